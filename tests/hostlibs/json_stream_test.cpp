// The streaming JSON reader and writer, held against the value tree: the same texts accepted
// and refused, the same values delivered, the same text written.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

#include "vetext/vxcore.h"

namespace {

using vxcore::Array;
using vxcore::GetJSONString;
using vxcore::JSONParse;
using vxcore::Object;
using vxcore::VariantPtr;

// Builds a value tree from the reader's events, so that what it delivers can be compared with
// what JSONParse builds (through the tree writer, which spells every kind apart).
class TreeHandler : public vxcore::JSONHandler {
 public:
  bool Null() override { return Add(vxcore::MakeVariant(vxcore::Variant())); }
  bool Bool(bool b) override { return Add(vxcore::MakeVariant(b)); }
  bool Int64(int64_t i) override { return Add(vxcore::MakeVariant(i)); }
  bool Uint64(uint64_t u) override {
    // Only integers beyond int64 come as unsigned.
    EXPECT_GT(u, uint64_t(std::numeric_limits<int64_t>::max()));
    return Add(vxcore::MakeVariant(u));
  }
  bool Double(double d) override { return Add(vxcore::MakeVariant(d)); }
  bool String(const char* s, size_t n) override {
    return Add(vxcore::MakeVariant(std::string(s, n)));
  }
  bool Key(const char* s, size_t n) override {
    key_.assign(s, n);
    return true;
  }
  bool StartObject() override { return Open(vxcore::MakeObject()); }
  bool EndObject() override { return Close(); }
  bool StartArray() override { return Open(vxcore::MakeArray()); }
  bool EndArray() override { return Close(); }

  VariantPtr root;
  int events = 0;

 private:
  bool Add(VariantPtr v) {
    ++events;
    if (stack_.empty())
      root = v;
    else if (boost::any_cast<Object>(stack_.back().get()))
      vxcore::AddToObject(stack_.back(), key_, v);
    else
      vxcore::AppendToArray(stack_.back(), v);
    return true;
  }
  bool Open(VariantPtr v) {
    Add(v);
    stack_.push_back(v);
    return true;
  }
  bool Close() {
    ++events;
    stack_.pop_back();
    return true;
  }
  std::vector<VariantPtr> stack_;
  std::string key_;
};

// Both readers on the same text: equal trees, or both refuse it.
void ExpectSameAsTree(const std::u16string& text) {
  SCOPED_TRACE(vxcore::UTF16ToUTF8(text));
  VariantPtr tree = JSONParse(text);
  TreeHandler h;
  const bool ok = vxcore::JSONRead(text.data(), text.size(), h);
  ASSERT_EQ(ok, bool(tree));
  if (ok) {
    ASSERT_TRUE(h.root);
    EXPECT_EQ(GetJSONString(h.root, false), GetJSONString(tree, false));
  }
}

TEST(JsonRead, DeliversWhatTheTreeHolds) {
  const std::u16string raw_high = std::u16string(u"[\"a") + char16_t(0xD800) + u"b\"]";
  const std::u16string texts[] = {
      u"{\"small\":40,\"neg\":-3,\"min\":-9223372036854775808,\"max\":9223372036854775807,"
      u"\"umax\":18446744073709551615,\"big\":18446744073709551616,\"tenth\":0.1,"
      u"\"huge\":1e300,\"negzero\":-0.0,\"whole\":40.0,\"t\":true,\"f\":false,\"n\":null}",
      u"[\"h\u00E9llo \u65E5\u672C \U0001F600\",\"\\u00e9\\uD83D\\uDE00\\n\\/\\\"\"]",
      u"{\"k\u00E9y\":{\"\":[[],{},[{}]]},\"k\u00E9y\":1}",
      u" \n[1]\t ",
      u"\"bare string\"",
      u"4294967295",
      u"-0.000001e-300",
      // Doubles at the edges of the range, also right after a mended escape.
      u"[0.000000000000000000000000000000000000000000000000000001e-300,1.7976931348623157e308]",
      u"{\"\\uD800\":4.9406564584124654e-324,\"x\":0.1000000000000000000000000000001}",
      u"[1e309]",
      // Lone surrogates, escaped and raw, and escapes that only look like them.
      u"[\"a\\uD800b\"]",
      u"[\"\\uD800\\u0041\"]",
      u"[\"\\uDC00x\"]",
      u"[\"\\uD800\"]",
      u"[\"\\\\uD800\"]",
      u"[\"\\\\\\uD800\\\\\"]",
      u"[\"\\uD83D\\uDE00\\uDE00\\uD83D\"]",
      u"[\"\\uD800\\uD800\\uDC00\"]",
      u"{\"\\uDBFF\":\"\\uDBFF\\uDFFF\"}",
      raw_high,
      // Refused by both.
      u"",
      u"{\"a\":1",
      u"[1,]",
      u"{\"a\":1}x",
      u"[\"\\u12\"]",
      u"[\"\\uD800\\u12\"]",
      u"[\"\\uD800\\x\"]",
      u"[NaN]",
      u"01",
  };
  for (const auto& t : texts) ExpectSameAsTree(t);

  // Random documents from the tree writer, mixed kinds, read back by both.
  uint64_t state = 0x2545F4914F6CDD1Dull;
  auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
  };
  for (int round = 0; round < 20; ++round) {
    VariantPtr arr = vxcore::MakeArray();
    for (int i = 0; i < 200; ++i) {
      uint64_t r = next();
      double d;
      std::memcpy(&d, &r, sizeof d);
      VariantPtr obj = vxcore::MakeObject();
      vxcore::AddToObject(obj, "d", vxcore::MakeVariant(std::isfinite(d) ? d : 0.5));
      vxcore::AddToObject(obj, "i", vxcore::MakeVariant(int64_t(r)));
      vxcore::AddToObject(obj, "u", vxcore::MakeVariant(uint64_t(r | (uint64_t(1) << 63))));
      vxcore::AddToObject(obj, "s",
                          vxcore::MakeVariant(std::string(1 + r % 5, char('a' + r % 26))));
      vxcore::AppendToArray(arr, obj);
    }
    ExpectSameAsTree(GetJSONString(arr, round % 2 == 1));
  }
}

TEST(JsonRead, RefusesWhatTheTreeRefusesWithinTheGivenLength) {
  const std::u16string full = u"{\"k\":[1,2.5,\"s\\u00e9\",true,null,{\"x\":-7}]}";
  for (size_t n = 0; n < full.size(); ++n) {
    // Exactly the prefix on the heap: a read past it shows up under ASan.
    std::unique_ptr<char16_t[]> copy(new char16_t[n ? n : 1]);
    std::memcpy(copy.get(), full.data(), n * sizeof(char16_t));
    TreeHandler h;
    EXPECT_FALSE(vxcore::JSONRead(copy.get(), n, h)) << n;
  }
  // A lone escape cut short at the end of the buffer is judged on the bytes present.
  const std::u16string cut = u"[\"\\uD800\\uDC";
  std::unique_ptr<char16_t[]> copy(new char16_t[cut.size()]);
  std::memcpy(copy.get(), cut.data(), cut.size() * sizeof(char16_t));
  TreeHandler cut_handler;
  EXPECT_FALSE(vxcore::JSONRead(copy.get(), cut.size(), cut_handler));

  std::u16string nul = u"[1]";
  nul.push_back(0);
  TreeHandler h;
  EXPECT_FALSE(vxcore::JSONRead(nul.data(), nul.size(), h));
  EXPECT_FALSE(vxcore::JSONRead(nullptr, 3, h));
  const std::u16string two = u"[1][2]";
  TreeHandler prefix;
  EXPECT_TRUE(vxcore::JSONRead(two.data(), 3, prefix));

  auto nest = [](int depth) {
    std::u16string t(static_cast<size_t>(depth), u'[');
    t.append(static_cast<size_t>(depth), u']');
    return t;
  };
  for (int depth : {vxcore::kMaxJSONDepth, vxcore::kMaxJSONDepth + 1, 100000}) {
    TreeHandler d;
    const std::u16string t = nest(depth);
    EXPECT_EQ(vxcore::JSONRead(t.data(), t.size(), d), depth <= vxcore::kMaxJSONDepth) << depth;
  }
}

// Stops after a number of events, or throws there.
class StoppingHandler : public TreeHandler {
 public:
  explicit StoppingHandler(int limit, bool throws) : limit_(limit), throws_(throws) {}
  bool Int64(int64_t i) override {
    if (++seen_ == limit_) {
      if (throws_) throw std::runtime_error("handler gave up");
      return false;
    }
    return TreeHandler::Int64(i);
  }

 private:
  int limit_;
  bool throws_;
  int seen_ = 0;
};

TEST(JsonRead, AHandlerCanStopTheWalk) {
  const std::u16string t = u"[1,2,3,4]";
  StoppingHandler stop(3, false);
  EXPECT_FALSE(vxcore::JSONRead(t.data(), t.size(), stop));
  EXPECT_EQ(stop.events, 3);  // the array and two numbers, nothing after the refusal
  StoppingHandler thrower(2, true);
  EXPECT_THROW(vxcore::JSONRead(t.data(), t.size(), thrower), std::runtime_error);
  StoppingHandler never(100, false);
  EXPECT_TRUE(vxcore::JSONRead(t.data(), t.size(), never));
}

// Replays a tree as writer events.
void Emit(vxcore::JSONWriter& w, const VariantPtr& v) {
  if (!v || v->empty()) {
    w.Null();
  } else if (const auto* o = boost::any_cast<Object>(v.get())) {
    w.StartObject();
    for (const auto& m : *o) {
      w.Key(m.first);
      Emit(w, m.second);
    }
    w.EndObject();
  } else if (const auto* a = boost::any_cast<Array>(v.get())) {
    w.StartArray();
    for (const auto& e : *a) Emit(w, e);
    w.EndArray();
  } else if (const auto* s = boost::any_cast<std::string>(v.get())) {
    w.String(*s);
  } else if (const auto* d = boost::any_cast<double>(v.get())) {
    w.Double(*d);
  } else if (const auto* i = boost::any_cast<int64_t>(v.get())) {
    w.Int64(*i);
  } else if (const auto* u = boost::any_cast<uint64_t>(v.get())) {
    w.Uint64(*u);
  } else {
    w.Bool(boost::any_cast<bool>(*v));
  }
}

TEST(JsonWriter, WritesTheTreeWritersTextAndRoundTripsDoubles) {
  uint64_t state = 0x9E3779B97F4A7C15ull;
  auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
  };
  VariantPtr root = vxcore::MakeObject();
  VariantPtr doubles = vxcore::MakeArray();
  std::vector<double> values;
  for (int i = 0; i < 3000; ++i) {
    uint64_t r = next();
    double d;
    std::memcpy(&d, &r, sizeof d);
    if (i % 3 == 0) d = static_cast<double>(static_cast<float>(d));  // floats widened, as layouts
    values.push_back(d);
    vxcore::AppendToArray(doubles, vxcore::MakeVariant(d));
  }
  vxcore::AddToObject(root, "doubles", doubles);
  vxcore::AddToObject(root, "special", vxcore::MakeVariant(-0.0));
  vxcore::AddToObject(root, "nan", vxcore::MakeVariant(std::numeric_limits<double>::quiet_NaN()));
  vxcore::AddToObject(root, "inf", vxcore::MakeVariant(std::numeric_limits<double>::infinity()));
  vxcore::AddToObject(root, "i", vxcore::MakeVariant(std::numeric_limits<int64_t>::min()));
  vxcore::AddToObject(root, "u", vxcore::MakeVariant(std::numeric_limits<uint64_t>::max()));
  vxcore::AddToObject(root, "b", vxcore::MakeVariant(false));
  vxcore::AddToObject(root, "n", vxcore::MakeVariant(vxcore::Variant()));
  vxcore::AddToObject(root, "s",
                      vxcore::MakeVariant(std::string("q\"\\\n\x01/\xC3\xA9\xF0\x9F\x98\x80")));
  vxcore::AddToObject(root, "bad\xFF utf8", vxcore::MakeVariant(std::string("a\xFF\xC3")));
  vxcore::AddToObject(root, "", vxcore::MakeArray());
  vxcore::AddToObject(root, "e", vxcore::MakeObject());

  for (bool formatted : {false, true}) {
    SCOPED_TRACE(formatted);
    vxcore::JSONWriter w(formatted);
    Emit(w, root);
    const std::u16string text = w.TakeText();
    EXPECT_EQ(text, GetJSONString(root, formatted));
    // The writer starts over after TakeText.
    Emit(w, doubles);
    const std::u16string again = w.TakeText();
    EXPECT_EQ(again, GetJSONString(doubles, formatted));
    VariantPtr back = JSONParse(again);
    ASSERT_TRUE(back);
    const Array& a = boost::any_cast<const Array&>(*back);
    ASSERT_EQ(a.size(), values.size());
    size_t exact = 0;
    for (size_t i = 0; i < values.size(); ++i) {
      if (!std::isfinite(values[i])) continue;
      const double got = boost::any_cast<double>(*a[i]);
      exact += std::memcmp(&got, &values[i], sizeof got) == 0;
    }
    size_t finite = 0;
    for (double d : values) finite += std::isfinite(d);
    EXPECT_EQ(exact, finite);
  }
  vxcore::JSONWriter w;
  EXPECT_EQ(w.TakeText(), u"");
}

}  // namespace
