// The binary form and the tree writer: exact bytes of the encoding, bit-exact round trips, the
// three writers agreeing on one tree, damaged input refused without reading outside the bytes,
// and the nesting limit of every reader.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "tree_gen.h"

namespace {

using namespace dict_test;
using SLO::Value;
using namespace std::string_literals;

// The header, then the bytes written in hexadecimal ("03 80 01").
std::vector<uint8_t> Bytes(const char* hex) {
  std::vector<uint8_t> out = {'K', 'T', 'D', 'B', 1};
  for (char* end = nullptr;; hex = end) {
    const long b = std::strtol(hex, &end, 16);
    if (end == hex) return out;
    out.push_back(static_cast<uint8_t>(b));
  }
}

TEST(BinaryForm, EncodesEachValueAsDocumented) {
  Value d = Value::Dictionary();
  d.Add("K", Value::Array({Value::Integer(1)}));
  const struct {
    Value value;
    const char* hex;
  } cases[] = {{Value::Boolean(false), "01"},
               {Value::Boolean(true), "02"},
               {Value::Integer(0), "03 00"},
               {Value::Integer(-1), "03 01"},
               {Value::Integer(64), "03 80 01"},
               {Value::Integer(std::numeric_limits<int32_t>::min()), "03 FF FF FF FF 0F"},
               {Value::Real(1.0f), "04 00 00 80 3F"},
               {Value::String(u"A\U0001F600"), "05 03 41 00 3D D8 00 DE"},
               {Value::Name("Ab"), "07 02 41 62"},
               {d, "0A 07 01 4B 08 03 02 09 0B"}};
  for (const auto& c : cases) {
    EXPECT_EQ(ToBinary(c.value), Bytes(c.hex)) << c.hex;
    EXPECT_EQ(FromBinary(Bytes(c.hex)), c.value) << c.hex;
  }
}

TEST(BinaryForm, RandomTreesRoundTripThroughEveryForm) {
  // Any bit pattern survives the binary form.
  dict_test::TreeGen any(99, /*text_safe=*/false);
  for (int i = 0; i < 300; ++i) {
    const Value tree = any.Tree();
    ASSERT_EQ(FromBinary(ToBinary(tree)), tree);
  }
  for (float f : {-0.0f, std::numeric_limits<float>::denorm_min(),
                  std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()})
    EXPECT_EQ(FromBinary(ToBinary(Value::Real(f))), Value::Real(f)) << f;
  // Trees the text form carries exactly: the tree writer, the binary and the text form (either
  // separator mode, read in chunks of any size) all give back the same tree.
  dict_test::TreeGen safe(7, /*text_safe=*/true);
  for (int i = 0; i < 300; ++i) {
    Value tree = Value::Dictionary();
    tree.Add("Root", safe.Tree());
    SLO::TreeWriter built;
    SLO::WriteTree(built, tree);
    ASSERT_EQ(built.Take(), tree);
    ASSERT_EQ(FromBinary(ToBinary(tree)), tree);
    const std::string text = ToText(tree, 5, i % 2 == 0);
    ASSERT_EQ(FromText(text, 1 + i % 9), tree) << text;
  }
}

TEST(BinaryForm, ByteStringsReadBackAsStrings) {
  const uint8_t raw[] = {0, '(', 0xFF, 'z'};
  Sink bin;
  SLO::BinaryPDFWriter(bin.sink).WriteHexString(raw, sizeof raw);
  EXPECT_EQ(bin.bytes, Bytes("06 04 00 28 FF 7A"));
  EXPECT_EQ(FromBinary(bin.bytes), Value::String(u"\0(\u00FFz"s));
  SLO::TreeWriter tree;
  tree.WriteHexString(raw, sizeof raw);
  EXPECT_EQ(tree.Take(), Value::String(u"\0(\u00FFz"s));
}

TEST(BinaryForm, DamagedInputIsRefused) {
  std::vector<std::vector<uint8_t>> cases = {
      {}, {'K', 'T', 'D'}, {'K', 'T', 'D', 'X', 1, 1}, {'K', 'T', 'D', 'B', 2, 1}};
  for (const char* hex :
       {// No value, unknown tags, stray ends, a second value.
        "", "00", "0C", "09", "0B", "01 01",
        // Integers: no payload, a truncated varint, beyond 32 bits, beyond 64 bits, too long.
        "03", "03 80", "03 80 80 80 80 10", "03 FF FF FF FF FF FF FF FF FF 7F",
        "03 80 80 80 80 80 80 80 80 80 80 01",
        // Short payloads and a count of 2^63 - 1.
        "04 00 00 80", "05 02 41 00 42", "05 FF FF FF FF FF FF FF FF 7F", "06 05 41",
        // Empty and invalid names.
        "07 00", "07 01 20", "07 01 2F",
        // Containers: unterminated, wrong end, a key that is no name, a key without a value.
        "08 01", "08 0B", "0A 03 00 03 00 0B", "0A 07 01 4B 0B", "0A 07 01 4B 09",
        "0A 07 01 4B 01"})
    cases.push_back(Bytes(hex));
  for (size_t i = 0; i < cases.size(); ++i) {
    const SLO::Error e = Refusal([&] { FromBinary(cases[i]); });
    EXPECT_EQ(e.source(), "SLOBinaryPDFReader") << i;
    EXPECT_LE(e.offset(), static_cast<int64_t>(cases[i].size())) << i;
  }
  // Every truncation of a valid encoding is refused too.
  dict_test::TreeGen gen(5, false);
  Value tree = Value::Dictionary();
  for (int i = 0; i < 6; ++i) tree.Add(gen.Name(), gen.Tree());
  const std::vector<uint8_t> full = ToBinary(tree);
  ASSERT_EQ(FromBinary(full), tree);
  for (size_t len = 0; len < full.size(); ++len) {
    EXPECT_THROW(FromBinary(std::vector<uint8_t>(full.begin(), full.begin() + len)), SLO::Error)
        << len;
  }
}

// kMaxDepth nested arrays or dictionaries are read; one more is refused, by both readers and
// by the tree writer.
TEST(Nesting, LimitedToMaxDepthInEveryReader) {
  for (int depth : {SLO::kMaxDepth, SLO::kMaxDepth + 1}) {
    Value arrays = Value::Array(), dicts = Value::Dictionary();
    for (int i = 1; i < depth; ++i) {
      arrays = Value::Array({arrays});
      Value d = Value::Dictionary();
      d.Add("a", std::move(dicts));
      dicts = std::move(d);
    }
    for (const Value& tree : {arrays, dicts}) {
      SCOPED_TRACE(testing::Message() << depth << (tree.IsArray() ? " arrays" : " dictionaries"));
      auto via_tree = [&] {
        SLO::TreeWriter w;
        SLO::WriteTree(w, tree);
        return w.Take();
      };
      if (depth == SLO::kMaxDepth) {
        EXPECT_EQ(FromBinary(ToBinary(tree)), tree);
        EXPECT_EQ(FromText(ToText(tree)), tree);
        EXPECT_EQ(via_tree(), tree);
      } else {
        EXPECT_THROW(FromBinary(ToBinary(tree)), SLO::Error);
        EXPECT_THROW(FromText(ToText(tree)), SLO::Error);
        EXPECT_THROW(via_tree(), SLO::Error);
      }
    }
  }
  // An unterminated run of dictionaries deeper than the limit stops at the limit.
  std::string dicts;
  for (int i = 0; i <= SLO::kMaxDepth; ++i) dicts += "<</a";
  EXPECT_THROW(FromText(dicts), SLO::Error);
}

}  // namespace
