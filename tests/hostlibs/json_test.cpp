// The JSON value model: parse and write UTF-16 text, number kinds, member order, bad input.
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "vetext/vxcore.h"

namespace {

using vxcore::Array;
using vxcore::GetJSONString;
using vxcore::JSONParse;
using vxcore::Object;
using vxcore::VariantPtr;

const Object& AsObject(const VariantPtr& v) {
  return boost::any_cast<const Object&>(*v);
}
const Array& AsArray(const VariantPtr& v) {
  return boost::any_cast<const Array&>(*v);
}

template <typename T>
T Member(const VariantPtr& obj, const char* key) {
  VariantPtr m = vxcore::GetVariantInObject(AsObject(obj), key);
  EXPECT_TRUE(m) << key;
  if (!m) return T();
  return boost::any_cast<T>(*m);
}

TEST(JsonParse, NumbersKeepTheirKind) {
  VariantPtr v = JSONParse(
      u"{\"small\":40,\"neg\":-3,\"min\":-9223372036854775808,\"max\":9223372036854775807,"
      u"\"umax\":18446744073709551615,\"big\":18446744073709551616,\"tenth\":0.1,"
      u"\"huge\":1e300,\"negzero\":-0.0,\"whole\":40.0,\"t\":true,\"f\":false,\"n\":null}");
  ASSERT_TRUE(v);
  EXPECT_EQ(Member<int64_t>(v, "small"), 40);
  EXPECT_EQ(Member<int64_t>(v, "neg"), -3);
  EXPECT_EQ(Member<int64_t>(v, "min"), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(Member<int64_t>(v, "max"), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(Member<uint64_t>(v, "umax"), std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(Member<double>(v, "big"), 18446744073709551616.0);
  EXPECT_EQ(Member<double>(v, "tenth"), 0.1);
  EXPECT_EQ(Member<double>(v, "huge"), 1e300);
  double nz = Member<double>(v, "negzero");
  EXPECT_EQ(nz, 0.0);
  EXPECT_TRUE(std::signbit(nz));
  EXPECT_EQ(Member<double>(v, "whole"), 40.0);
  EXPECT_TRUE(Member<bool>(v, "t"));
  EXPECT_FALSE(Member<bool>(v, "f"));
  VariantPtr n = vxcore::GetVariantInObject(AsObject(v), "n");
  ASSERT_TRUE(n);
  EXPECT_TRUE(n->empty());
}

TEST(JsonParse, NumbersAtTheEdgesOfTheDoubleRangeAreCorrectlyRounded) {
  const std::u16string zeros60(60, u'0');
  const std::u16string zeros400(400, u'0');
  struct Case {
    std::u16string text;
    double want;
  } cases[] = {
      // Many zeros after the point, then a large negative exponent: far below the smallest
      // subnormal, so zero (with its sign).
      {u"0." + zeros60 + u"1e-300", 0.0},
      {u"-0." + zeros400 + u"1", -0.0},
      {u"1e-400", 0.0},
      // The same zeros with a positive exponent land back in range.
      {u"0." + zeros400 + u"1e500", 1e99},
      {u"4.9406564584124654e-324", std::numeric_limits<double>::denorm_min()},
      {u"2.2250738585072011e-308", 2.2250738585072011e-308},
      {u"1.7976931348623157e308", std::numeric_limits<double>::max()},
      // 800 significant digits round to the nearest double.
      {u"0.1" + std::u16string(800, u'0') + u"1", 0.1},
      {u"123456789012345678901234567890", 123456789012345678901234567890.0},
  };
  for (const auto& c : cases) {
    VariantPtr v = JSONParse(u"[" + c.text + u"]");
    ASSERT_TRUE(v) << vxcore::UTF16ToUTF8(c.text);
    const double got = boost::any_cast<double>(*AsArray(v).at(0));
    EXPECT_EQ(got, c.want) << vxcore::UTF16ToUTF8(c.text);
    EXPECT_EQ(std::signbit(got), std::signbit(c.want)) << vxcore::UTF16ToUTF8(c.text);
  }
  // Beyond the largest double: refused, not infinity.
  for (const std::u16string& big : {std::u16string(u"1e309"), std::u16string(u"1.8e308"),
                                    u"1" + zeros400, std::u16string(u"-9.9e308")})
    EXPECT_FALSE(JSONParse(u"[" + big + u"]")) << vxcore::UTF16ToUTF8(big);
}

TEST(JsonParse, ShortAndLongDecimalsAreCorrectlyRounded) {
  // Significands of 1 to 18 digits at decimal exponents around the range where a single
  // multiplication or division by a power of ten is exact: every value must be the correctly
  // rounded one (std::from_chars is the reference).
  std::mt19937_64 rng(5);
  for (int i = 0; i < 4000; ++i) {
    const int digits = 1 + int(rng() % 18);
    std::string significand;
    for (int k = 0; k < digits; ++k)
      significand += char('0' + (k == 0 ? 1 + rng() % 9 : rng() % 10));
    const int point = int(rng() % (digits + 1));  // digits before the point
    const int exp = int(rng() % 61) - 30;
    // Built by appending only: GCC 12 at -O3 warns wrongly (-Wrestrict) about inserting.
    std::string text = rng() % 2 ? "-" : "";
    text += point == 0 ? std::string("0") : significand.substr(0, size_t(point));
    text += '.';
    text += point == digits ? std::string("0") : significand.substr(size_t(point));
    text += 'e';
    text += std::to_string(exp);
    double want = 0;
    ASSERT_EQ(std::from_chars(text.data(), text.data() + text.size(), want).ec, std::errc());
    VariantPtr v = JSONParse(vxcore::UTF8ToUTF16("[" + text + "]"));
    ASSERT_TRUE(v) << text;
    EXPECT_EQ(boost::any_cast<double>(*AsArray(v).at(0)), want) << text;
  }
}

TEST(JsonRoundTrip, EveryNumberKindAndStringReadsBackEqual) {
  VariantPtr root = vxcore::MakeObject();
  vxcore::AddToObject(root, "i", vxcore::MakeVariant(std::numeric_limits<int64_t>::min()));
  vxcore::AddToObject(root, "u", vxcore::MakeVariant(std::numeric_limits<uint64_t>::max()));
  vxcore::AddToObject(root, "u_small", vxcore::MakeVariant(uint64_t{7}));
  vxcore::AddToObject(root, "d", vxcore::MakeVariant(0.1));
  vxcore::AddToObject(root, "e", vxcore::MakeVariant(1e300));
  vxcore::AddToObject(root, "z", vxcore::MakeVariant(-0.0));
  vxcore::AddToObject(root, "w", vxcore::MakeVariant(3.0));
  vxcore::AddToObject(root, "f", vxcore::MakeVariant(static_cast<double>(12.3456f)));
  vxcore::AddToObject(root, "denorm", vxcore::MakeVariant(4.9406564584124654e-324));
  vxcore::AddToObject(root, "s", vxcore::MakeVariant(std::string("a\"b\\c\n\t\x01/\xC3\xA9")));
  vxcore::AddToObject(root, "emoji", vxcore::MakeVariant(std::string("\xF0\x9F\x98\x80")));

  for (bool formatted : {false, true}) {
    std::u16string text = GetJSONString(root, formatted);
    VariantPtr back = JSONParse(text);
    ASSERT_TRUE(back) << formatted;
    EXPECT_EQ(Member<int64_t>(back, "i"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(Member<uint64_t>(back, "u"), std::numeric_limits<uint64_t>::max());
    // A small unsigned value has no unsigned spelling in JSON: it reads back as signed.
    EXPECT_EQ(Member<int64_t>(back, "u_small"), 7);
    EXPECT_EQ(Member<double>(back, "d"), 0.1);
    EXPECT_EQ(Member<double>(back, "e"), 1e300);
    EXPECT_TRUE(std::signbit(Member<double>(back, "z")));
    EXPECT_EQ(Member<double>(back, "w"), 3.0);
    EXPECT_EQ(static_cast<float>(Member<double>(back, "f")), 12.3456f);
    EXPECT_EQ(Member<double>(back, "denorm"), 4.9406564584124654e-324);
    EXPECT_EQ(Member<std::string>(back, "s"), "a\"b\\c\n\t\x01/\xC3\xA9");
    EXPECT_EQ(Member<std::string>(back, "emoji"), "\xF0\x9F\x98\x80");
    // Writing what was read gives the same text again.
    EXPECT_EQ(GetJSONString(back, formatted), text);
  }
}

TEST(JsonRoundTrip, ManyRandomDoublesReadBackBitExact) {
  uint64_t state = 0x9E3779B97F4A7C15ull;
  VariantPtr arr = vxcore::MakeArray();
  std::vector<double> values;
  for (int i = 0; i < 2000; ++i) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    double d;
    std::memcpy(&d, &state, sizeof d);
    if (!std::isfinite(d)) continue;
    values.push_back(d);
    vxcore::AppendToArray(arr, vxcore::MakeVariant(d));
  }
  VariantPtr back = JSONParse(GetJSONString(arr, false));
  ASSERT_TRUE(back);
  const Array& a = AsArray(back);
  ASSERT_EQ(a.size(), values.size());
  for (size_t i = 0; i < values.size(); ++i) {
    double got = boost::any_cast<double>(*a[i]);
    EXPECT_EQ(std::memcmp(&got, &values[i], sizeof got), 0) << values[i];
  }
}

TEST(JsonWrite, CompactTextAndMemberOrder) {
  VariantPtr root = vxcore::MakeObject();
  vxcore::AddToObject(root, "zeta", vxcore::MakeVariant(int64_t{1}));
  vxcore::AddToObject(root, "alpha", vxcore::MakeVariant(true));
  VariantPtr arr = vxcore::MakeArray();
  vxcore::AppendToArray(arr, vxcore::MakeVariant(std::string("x")));
  vxcore::AppendToArray(arr, VariantPtr());
  vxcore::AppendToArray(arr, vxcore::MakeVariant(vxcore::Variant()));
  vxcore::AddToObject(root, "mid", arr);
  vxcore::AddToObject(root, "zeta", vxcore::MakeVariant(2.5));  // duplicates are kept
  EXPECT_EQ(GetJSONString(root, false),
            u"{\"zeta\":1,\"alpha\":true,\"mid\":[\"x\",null,null],\"zeta\":2.5}");
  EXPECT_EQ(GetJSONString(root, true).find(u"\n  \"zeta\": 1"), 1u);
  // The first of duplicate keys is the one found.
  EXPECT_EQ(Member<int64_t>(root, "zeta"), 1);
}

TEST(JsonWrite, OrderOfParsedMembersIsKept) {
  VariantPtr v = JSONParse(u"{\"b\":1,\"a\":2,\"c\":{\"y\":1,\"x\":2}}");
  ASSERT_TRUE(v);
  const Object& o = AsObject(v);
  ASSERT_EQ(o.size(), 3u);
  EXPECT_EQ(o[0].first, "b");
  EXPECT_EQ(o[1].first, "a");
  EXPECT_EQ(o[2].first, "c");
  EXPECT_EQ(GetJSONString(v, false), u"{\"b\":1,\"a\":2,\"c\":{\"y\":1,\"x\":2}}");
}

TEST(JsonWrite, NonFiniteAndInvalidUtf8AndForeignTypes) {
  VariantPtr arr = vxcore::MakeArray();
  vxcore::AppendToArray(arr, vxcore::MakeVariant(std::numeric_limits<double>::quiet_NaN()));
  vxcore::AppendToArray(arr, vxcore::MakeVariant(-std::numeric_limits<double>::infinity()));
  vxcore::AppendToArray(arr, vxcore::MakeVariant(std::string("a\xFF"
                                                             "b")));
  EXPECT_EQ(GetJSONString(arr, false), u"[null,null,\"a\uFFFDb\"]");

  VariantPtr bad = vxcore::MakeArray();
  vxcore::AppendToArray(bad, vxcore::MakeVariant(int32_t{3}));
  EXPECT_THROW(GetJSONString(bad, false), boost::bad_any_cast);
  EXPECT_THROW(vxcore::AddToObject(bad, "k", VariantPtr()), boost::bad_any_cast);
  EXPECT_THROW(vxcore::AppendToArray(vxcore::MakeObject(), VariantPtr()), boost::bad_any_cast);
}

TEST(JsonParse, NonAsciiSurrogatesAndEscapes) {
  // Raw BMP and astral characters, and the same written as escapes.
  std::u16string text = u"[\"h\u00E9llo \u65E5\u672C \U0001F600\",\"\\u00e9\\uD83D\\uDE00\\n\\/\"]";
  VariantPtr v = JSONParse(text);
  ASSERT_TRUE(v);
  const Array& a = AsArray(v);
  ASSERT_EQ(a.size(), 2u);
  EXPECT_EQ(vxcore::UTF8ToUTF16(boost::any_cast<std::string>(*a[0])),
            u"h\u00E9llo \u65E5\u672C \U0001F600");
  EXPECT_EQ(boost::any_cast<std::string>(*a[1]), "\xC3\xA9\xF0\x9F\x98\x80\n/");
}

TEST(JsonParse, LoneSurrogatesBecomeReplacementCharacters) {
  struct Case {
    std::u16string text;
    std::string want;
  };
  const std::u16string raw_high = std::u16string(u"[\"a") + char16_t(0xD800) + u"b\"]";
  const std::u16string raw_low = std::u16string(u"[\"") + char16_t(0xDC00) + u"\"]";
  const Case cases[] = {
      {u"[\"a\\uD800b\"]",
       "a\xEF\xBF\xBD"
       "b"},
      {u"[\"\\uD800\\u0041\"]",
       "\xEF\xBF\xBD"
       "A"},
      {u"[\"\\uDC00x\"]",
       "\xEF\xBF\xBD"
       "x"},
      {u"[\"\\uD800\"]", "\xEF\xBF\xBD"},
      {u"[\"\\\\uD800\"]", "\\uD800"},  // an escaped backslash, not an escape
      {raw_high,
       "a\xEF\xBF\xBD"
       "b"},
      {raw_low, "\xEF\xBF\xBD"},
  };
  for (const Case& c : cases) {
    VariantPtr v = JSONParse(c.text);
    ASSERT_TRUE(v) << vxcore::UTF16ToUTF8(c.text);
    EXPECT_EQ(boost::any_cast<std::string>(*AsArray(v).at(0)), c.want)
        << vxcore::UTF16ToUTF8(c.text);
  }
}

TEST(JsonParse, MalformedTextGivesNull) {
  const std::u16string bad[] = {
      u"",      u"   ",     u"{",          u"{\"a\":1",   u"{\"a\":1}x", u"[1,]",
      u"[1 2]", u"{\"a\"}", u"{a:1}",      u"'x'",        u"[\"abc",     u"[1] [2]",
      u"01",    u"1.",      u"-",          u"nul",        u"[\"\\x\"]",  u"[\"\\u12\"]",
      u"[NaN]", u"[1e]",    u"[\"a\nb\"]", u"{\"a\":1,}", u"[tru]",      u"//c\n1",
  };
  for (const auto& t : bad) EXPECT_FALSE(JSONParse(t)) << vxcore::UTF16ToUTF8(t);

  // An embedded zero unit ends nothing: what follows it is still garbage.
  std::u16string nul = u"{}";
  nul.push_back(0);
  nul += u"garbage";
  EXPECT_FALSE(JSONParse(nul));
  std::u16string nul_only = u"[1]";
  nul_only.push_back(0);
  EXPECT_FALSE(JSONParse(nul_only));
  EXPECT_FALSE(JSONParse(nullptr, 4));
  // Whitespace around the root is fine.
  EXPECT_TRUE(JSONParse(u" \n[1]\t "));
}

TEST(JsonParse, NeverReadsPastTheGivenLength) {
  // The full text is valid; every strict prefix is not, and must be judged on its own bytes
  // (ASan catches a read past the heap copy that holds exactly the prefix).
  const std::u16string full = u"{\"k\":[1,2.5,\"s\",true,null,{\"x\":-7}]}";
  ASSERT_TRUE(JSONParse(full));
  for (size_t n = 0; n < full.size(); ++n) {
    std::unique_ptr<char16_t[]> copy(new char16_t[n ? n : 1]);
    std::memcpy(copy.get(), full.data(), n * sizeof(char16_t));
    EXPECT_FALSE(JSONParse(copy.get(), n)) << n;
  }
  // A valid prefix of a longer buffer parses when only the prefix is given.
  const std::u16string two = u"[1][2]";
  EXPECT_TRUE(JSONParse(two.data(), 3));
}

TEST(JsonParse, NestingDepthIsLimited) {
  auto nest = [](int depth) {
    std::u16string t(static_cast<size_t>(depth), u'[');
    t.append(static_cast<size_t>(depth), u']');
    return t;
  };
  EXPECT_TRUE(JSONParse(nest(vxcore::kMaxJSONDepth)));
  EXPECT_FALSE(JSONParse(nest(vxcore::kMaxJSONDepth + 1)));
  EXPECT_FALSE(JSONParse(nest(100000)));  // deep enough to overflow a naive recursive parser

  std::u16string objs;
  for (int i = 0; i <= vxcore::kMaxJSONDepth; ++i) objs += u"{\"a\":";
  objs += u"1";
  objs.append(static_cast<size_t>(vxcore::kMaxJSONDepth) + 1, u'}');
  EXPECT_FALSE(JSONParse(objs));
}

}  // namespace
