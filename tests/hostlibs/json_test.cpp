// JSON: the tree (JSONParse, GetJSONString) and the stream (JSONRead, JSONWriter) accept, refuse,
// deliver and write alike; numbers are correctly rounded and round-trip bit for bit.
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>

#include "vetext/vxcore.h"

namespace {

using vxcore::GetJSONString;
using vxcore::JSONParse;
using vxcore::MakeVariant;
using vxcore::VariantPtr;

// Writes the reader's events back out, to compare with what JSONParse builds as text (the writers
// spell every kind apart).
struct Echo : vxcore::JSONHandler {
  explicit Echo(bool formatted = false) : w(formatted) {}
  bool Null() override { return w.Null(), true; }
  bool Bool(bool b) override { return w.Bool(b), true; }
  bool Int64(int64_t i) override { return w.Int64(i), true; }
  bool Uint64(uint64_t u) override {
    EXPECT_GT(u, uint64_t(std::numeric_limits<int64_t>::max()));  // only these come unsigned
    return w.Uint64(u), true;
  }
  bool Double(double d) override { return w.Double(d), true; }
  bool String(const char* s, size_t n) override { return w.String(s, n), true; }
  bool Key(const char* s, size_t n) override { return w.Key(s, n), true; }
  bool StartObject() override { return w.StartObject(), true; }
  bool EndObject() override { return w.EndObject(), true; }
  bool StartArray() override { return w.StartArray(), true; }
  bool EndArray() override { return w.EndArray(), true; }
  vxcore::JSONWriter w;
};

const std::u16string kRefused = u"refused";

// Both readers on n units at p, which must agree: the compact text of what they read, or kRefused.
std::u16string Read(const char16_t* p, size_t n) {
  VariantPtr tree = JSONParse(p, n);
  Echo echo;
  EXPECT_EQ(vxcore::JSONRead(p, n, echo), bool(tree));
  if (!tree) return kRefused;
  const std::u16string text = GetJSONString(tree, false);
  EXPECT_EQ(echo.w.TakeText(), text);
  return text;
}
std::u16string Read(const std::u16string& t) {
  return Read(t.data(), t.size());
}

TEST(Json, BothReadersDeliverTheSameValues) {
  const std::u16string z60(60, u'0'), z400(400, u'0'), z800(800, u'0');
  struct Case {
    std::u16string text, want;  // an empty want: the text itself
  } cases[] = {
      // Integers keep their kind: int64 where they fit, uint64 beyond, double beyond that.
      {u"[40,-3,-9223372036854775808,9223372036854775807,18446744073709551615,4294967295]", u""},
      {u"[18446744073709551616,0.1,1e300,-0.0,40.0,true,false,null]",
       u"[18446744073709553000.0,0.1,1e300,-0.0,40.0,true,false,null]"},
      // At the edges of the double range, correctly rounded; underflow keeps its sign.
      {u"[0." + z60 + u"1e-300,-0." + z400 + u"1,1e-400,0." + z400 + u"1e500,-0.000001e-300]",
       u"[0.0,-0.0,0.0,1e99,-1e-306]"},
      {u"[4.9406564584124654e-324,2.2250738585072011e-308,1.7976931348623157e308]",
       u"[5e-324,2.225073858507201e-308,1.7976931348623157e308]"},
      {u"[0.1" + z800 + u"1,123456789012345678901234567890]", u"[0.1,1.2345678901234568e29]"},
      // Strings: raw and escaped, BMP and astral.
      {u"[\"h\u00E9llo \u65E5\u672C \U0001F600\",\"\\u00e9\\uD83D\\uDE00\\n\\/\\\"\"]",
       u"[\"h\u00E9llo \u65E5\u672C \U0001F600\",\"\u00E9\U0001F600\\n/\\\"\"]"},
      {u"\"\u0080 alone\"", u""},
      // Members in text order, duplicates kept; empty keys and containers; space around the root.
      {u" \n{\"b\":1,\"a\":2,\"c\":{\"y\":1,\"x\":2},\"k\u00E9y\":{\"\":[[],{},[{}]]},\"b\":3}\t ",
       u"{\"b\":1,\"a\":2,\"c\":{\"y\":1,\"x\":2},\"k\u00E9y\":{\"\":[[],{},[{}]]},\"b\":3}"},
      // Lone surrogates, escaped and raw, become U+FFFD; escapes that only look like them do not.
      {u"[\"a\\uD809b\"]", u"[\"a\uFFFDb\"]"},
      {u"[\"\\uD800\\u0041\"]", u"[\"\uFFFDA\"]"},
      {u"[\"\\uDC00x\"]", u"[\"\uFFFDx\"]"},
      {u"[\"\\uD800\\u12\"]", kRefused},
      {u"[\"\\uD800\\x\"]", kRefused},
      {u"[\"\\\\uD800\"]", u"[\"\\\\uD800\"]"},
      {u"[\"\\\\\\uD800\\\\\"]", u"[\"\\\\\uFFFD\\\\\"]"},
      {u"[\"\\uD83D\\uDE00\\uDE00\\uD83D\"]", u"[\"\U0001F600\uFFFD\uFFFD\"]"},
      {u"[\"\\uD800\\uD800\\uDC00\"]", u"[\"\uFFFD\U00010000\"]"},
      {u"{\"\\udbfa\":\"\\udbff\\udfff\"}", u"{\"\uFFFD\":\"\U0010FFFF\"}"},
      {std::u16string(u"[\"a") + char16_t(0xD800) + u"b\"]", u"[\"a\uFFFDb\"]"},
      {std::u16string(u"[\"") + char16_t(0xDC00) + u"\"]", u"[\"\uFFFD\"]"},
      {u"{\"\\uD800\":4.9406564584124654e-324,\"x\":0.1000000000000000000000000000001}",
       u"{\"\uFFFD\":5e-324,\"x\":0.1}"},  // numbers right after a mended escape
  };
  for (const Case& c : cases)
    EXPECT_EQ(Read(c.text), c.want.empty() ? c.text : c.want) << vxcore::UTF16ToUTF8(c.text);

  const char16_t* refused[] = {
      u"",        u"   ",        u"{",         u"{\"a\":1",   u"{\"a\":1}x", u"[1,]",
      u"[1 2]",   u"{\"a\"}",    u"{a:1}",     u"'x'",        u"[\"abc",     u"[1] [2]",
      u"01",      u"1.",         u"-",         u"nul",        u"[\"\\x\"]",  u"[\"\\u12\"]",
      u"[NaN]",   u"[1e]",       u"[tru]",     u"[\"a\nb\"]", u"{\"a\":1,}", u"//c\n1",
      u"[1e309]", u"[-9.9e308]", u"[1.8e308]",
  };
  for (const char16_t* t : refused) EXPECT_EQ(Read(t), kRefused) << vxcore::UTF16ToUTF8(t);
  EXPECT_EQ(Read(u"[1" + z400 + u"]"), kRefused);  // beyond the largest double

  // Of duplicate keys, the first is the one found.
  VariantPtr dup = JSONParse(u"{\"b\":1,\"b\":3}");
  EXPECT_EQ(boost::any_cast<int64_t>(
                *vxcore::GetVariantInObject(boost::any_cast<const vxcore::Object&>(*dup), "b")),
            1);
}

TEST(Json, ReadersJudgeOnlyTheGivenUnits) {
  // Every strict prefix is refused; each is copied to its exact size, so ASan sees a read past it.
  const std::u16string full = u"{\"k\":[1,2.5,\"s\\u00e9\\uD83D\\uDE00\",true,null,{\"x\":-7}]}";
  ASSERT_NE(Read(full), kRefused);
  for (size_t n = 0; n < full.size(); ++n) {
    std::unique_ptr<char16_t[]> copy(new char16_t[n ? n : 1]);
    std::memcpy(copy.get(), full.data(), n * sizeof(char16_t));
    EXPECT_EQ(Read(copy.get(), n), kRefused) << n;
  }
  EXPECT_EQ(Read(u"[1][2]", 3), u"[1]");
  // A zero unit ends nothing: it and what follows are trailing garbage.
  EXPECT_EQ(Read(u"{}" + std::u16string(1, 0) + u"garbage"), kRefused);
  EXPECT_EQ(Read(nullptr, 4), kRefused);

  auto nest = [](int depth, const char16_t* open, const char16_t* close) {
    std::u16string t;
    for (int i = 0; i < depth; ++i) t += open;
    t += u"1";
    for (int i = 0; i < depth; ++i) t += close;
    return t;
  };
  const int kMax = vxcore::kMaxJSONDepth;
  EXPECT_EQ(Read(nest(kMax, u"[", u"]")), nest(kMax, u"[", u"]"));
  EXPECT_EQ(Read(nest(kMax + 1, u"[", u"]")), kRefused);
  EXPECT_EQ(Read(nest(kMax, u"{\"a\":", u"}")), nest(kMax, u"{\"a\":", u"}"));
  EXPECT_EQ(Read(nest(kMax + 1, u"{\"a\":", u"}")), kRefused);
}

TEST(Json, ShortAndLongDecimalsAreCorrectlyRounded) {
  // 1 to 18 digits, exponents around where one multiplication or division by a power of ten is
  // exact: each value is the correctly rounded one (std::from_chars is the reference).
  std::mt19937_64 rng(5);
  for (int i = 0; i < 4000; ++i) {
    const int digits = 1 + int(rng() % 18);
    const int point = int(rng() % (digits + 1));  // digits before the point
    std::string text = rng() % 2 ? "-" : "";
    if (point == 0) text += '0';
    for (int k = 0; k < digits; ++k) {
      if (k == point) text += '.';
      text += char('0' + (k == 0 ? 1 + rng() % 9 : rng() % 10));
    }
    if (point == digits) text += ".0";
    text += 'e' + std::to_string(int(rng() % 61) - 30);
    double want = 0;
    ASSERT_EQ(std::from_chars(text.data(), text.data() + text.size(), want).ec, std::errc());
    EXPECT_EQ(Read(vxcore::UTF8ToUTF16(text)), GetJSONString(MakeVariant(want), false)) << text;
  }
}

TEST(Json, WrittenTextReadsBackToTheSameValues) {
  // A string with every kind of escape, then doubles: chosen, random (a third widened floats).
  VariantPtr arr = vxcore::MakeArray();
  vxcore::AppendToArray(arr, MakeVariant(std::string("q\"\\\n\t\x01/\xC3\xA9\xF0\x9F\x98\x80")));
  std::vector<double> values = {0.1, 1e300, -0.0, 3.0, 4.9406564584124654e-324, 12.3456f};
  for (uint64_t i = 0, r = 0x9E3779B97F4A7C15ull; i < 3000; ++i) {
    r ^= r << 13, r ^= r >> 7, r ^= r << 17;
    double d;
    std::memcpy(&d, &r, sizeof d);
    if (i % 3 == 0) d = float(d);
    if (std::isfinite(d)) values.push_back(d);
  }
  for (double d : values) vxcore::AppendToArray(arr, MakeVariant(d));
  for (bool formatted : {false, true}) {
    SCOPED_TRACE(formatted);
    const std::u16string text = GetJSONString(arr, formatted);
    EXPECT_EQ(Read(text), GetJSONString(arr, false));
    // The stream writer, fed the reader's events, writes the same; twice, as TakeText restarts it.
    Echo echo(formatted);
    for (int round = 0; round < 2; ++round) {
      ASSERT_TRUE(vxcore::JSONRead(text.data(), text.size(), echo));
      EXPECT_EQ(echo.w.TakeText(), text);
    }
    VariantPtr back = JSONParse(text);
    ASSERT_TRUE(back);
    const auto& a = boost::any_cast<const vxcore::Array&>(*back);
    ASSERT_EQ(a.size(), values.size() + 1);
    for (size_t i = 0; i < values.size(); ++i) {
      const double got = boost::any_cast<double>(*a[i + 1]);
      EXPECT_EQ(std::memcmp(&got, &values[i], sizeof got), 0) << values[i];
    }
  }
}

TEST(Json, WritersSpellNonFiniteAndInvalidUtf8AndRefuseForeignKinds) {
  const double nan = NAN, inf = INFINITY;
  const std::string bad = std::string("a\x80") + "b";
  VariantPtr arr = vxcore::MakeArray();
  for (VariantPtr v : {VariantPtr(), MakeVariant(nan), MakeVariant(-inf), MakeVariant(bad)})
    vxcore::AppendToArray(arr, v);
  vxcore::JSONWriter w;
  w.StartArray();
  w.Null();
  w.Double(nan);
  w.Double(-inf);
  w.String(bad);
  w.EndArray();
  EXPECT_EQ(GetJSONString(arr, false), u"[null,null,null,\"a\uFFFDb\"]");
  EXPECT_EQ(w.TakeText(), GetJSONString(arr, false));

  vxcore::AppendToArray(arr, MakeVariant(int32_t{3}));  // a kind outside the model
  EXPECT_THROW(GetJSONString(arr, false), boost::bad_any_cast);
  EXPECT_THROW(vxcore::AddToObject(arr, "k", VariantPtr()), boost::bad_any_cast);
  EXPECT_THROW(vxcore::AppendToArray(vxcore::MakeObject(), VariantPtr()), boost::bad_any_cast);
}

}  // namespace
