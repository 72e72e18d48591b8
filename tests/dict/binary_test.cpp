// The binary form: exact bytes of the encoding, bit-exact round trips, agreement with the text
// form and the tree writer, and damaged input refused without reading outside the bytes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "engine/slo_binary.h"
#include "tree_gen.h"

namespace {

using SLO::Value;

std::vector<uint8_t> ToBinary(const Value& v) {
  std::vector<uint8_t> out;
  SLO::VectorSink sink(out);
  SLO::BinaryPDFWriter w(sink);
  SLO::WriteTree(w, v);
  return out;
}

Value FromBinary(const std::vector<uint8_t>& bytes) {
  // A copy of exactly the bytes, so that any read past them is caught by the sanitizers.
  std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes.size() + 1]);
  if (!bytes.empty()) std::memcpy(copy.get(), bytes.data(), bytes.size());
  SLO::BinaryPDFReader r(copy.get(), bytes.size());
  return r.Parse();
}

std::vector<uint8_t> Bytes(std::initializer_list<int> list) {
  std::vector<uint8_t> out = {'K', 'T', 'D', 'B', 1};
  for (int b : list) out.push_back(static_cast<uint8_t>(b));
  return out;
}

TEST(BinaryForm, EncodesEachValueAsDocumented) {
  EXPECT_EQ(ToBinary(Value::Boolean(false)), Bytes({0x01}));
  EXPECT_EQ(ToBinary(Value::Boolean(true)), Bytes({0x02}));
  EXPECT_EQ(ToBinary(Value::Integer(0)), Bytes({0x03, 0x00}));
  EXPECT_EQ(ToBinary(Value::Integer(-1)), Bytes({0x03, 0x01}));
  EXPECT_EQ(ToBinary(Value::Integer(64)), Bytes({0x03, 0x80, 0x01}));
  EXPECT_EQ(ToBinary(Value::Integer(std::numeric_limits<int32_t>::min())),
            Bytes({0x03, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
  EXPECT_EQ(ToBinary(Value::Real(1.0f)), Bytes({0x04, 0x00, 0x00, 0x80, 0x3F}));
  EXPECT_EQ(ToBinary(Value::String(u"A\U0001F600")),
            Bytes({0x05, 0x03, 0x41, 0x00, 0x3D, 0xD8, 0x00, 0xDE}));
  EXPECT_EQ(ToBinary(Value::Name("Ab")), Bytes({0x07, 0x02, 'A', 'b'}));
  Value d = Value::Dictionary();
  d.Add("K", Value::Array({Value::Integer(1)}));
  EXPECT_EQ(ToBinary(d), Bytes({0x0A, 0x07, 0x01, 'K', 0x08, 0x03, 0x02, 0x09, 0x0B}));
}

TEST(BinaryForm, RandomTreesRoundTripBitForBit) {
  dict_test::TreeGen gen(99, /*text_safe=*/false);
  for (int i = 0; i < 300; ++i) {
    const Value tree = gen.Tree();
    ASSERT_EQ(FromBinary(ToBinary(tree)), tree);
  }
  const float specials[] = {-0.0f, std::numeric_limits<float>::denorm_min(),
                            std::numeric_limits<float>::infinity(),
                            std::numeric_limits<float>::quiet_NaN(), 3.4e38f};
  for (float f : specials) EXPECT_EQ(FromBinary(ToBinary(Value::Real(f))), Value::Real(f)) << f;
}

TEST(BinaryForm, ByteStringsReadBackAsStringsInEveryForm) {
  const uint8_t raw[] = {0, '(', 0xFF, 'z'};
  const Value expected = Value::String(std::u16string(u"\0(\u00FFz", 4));
  std::vector<uint8_t> bin, text;
  SLO::VectorSink bin_sink(bin), text_sink(text);
  SLO::BinaryPDFWriter bw(bin_sink);
  bw.WriteByteString(raw, sizeof raw);
  SLO::TextPDFWriter tw(text_sink);
  tw.BeginArray();
  tw.WriteByteString(raw, sizeof raw);
  tw.WriteHexString(raw, sizeof raw);
  tw.EndArray();
  EXPECT_EQ(FromBinary(bin), expected);
  EXPECT_EQ(dict_test::FromText(text), Value::Array({expected, expected}));
  SLO::TreeWriter tree;
  tree.WriteByteString(raw, sizeof raw);
  EXPECT_EQ(tree.Take(), expected);
}

TEST(BinaryForm, TheThreeWritersAgreeOnTheTree) {
  dict_test::TreeGen gen(7, /*text_safe=*/true);
  for (int i = 0; i < 100; ++i) {
    Value tree = Value::Dictionary();
    tree.Add("Root", gen.Tree());
    SLO::TreeWriter built;
    SLO::WriteTree(built, tree);
    const Value from_tree = built.Take();
    EXPECT_EQ(from_tree, tree);
    EXPECT_EQ(FromBinary(ToBinary(tree)), from_tree);
    EXPECT_EQ(dict_test::FromText(dict_test::ToText(tree)), from_tree);
  }
}

TEST(BinaryForm, NameRulesMatchTheTextWriter) {
  for (const char16_t* name : {u"a b", u"a/b", u"x\u00E9", u"{"}) {
    std::vector<uint8_t> bin, text;
    SLO::VectorSink bin_sink(bin), text_sink(text);
    SLO::BinaryPDFWriter bw(bin_sink);
    SLO::TextPDFWriter tw(text_sink);
    const std::u16string n(name);
    int bin_line = 0, text_line = 0;
    try {
      bw.WriteName(n.data(), n.size());
    } catch (const SLO::Error& e) {
      bin_line = e.line();
    }
    try {
      tw.WriteName(n.data(), n.size());
    } catch (const SLO::Error& e) {
      text_line = e.line();
    }
    EXPECT_NE(bin_line, 0);
    EXPECT_EQ(bin_line, text_line);
    EXPECT_EQ(bin.size(), 5u) << "a refused name left bytes behind";
  }
}

TEST(BinaryForm, DamagedInputIsRefused) {
  const std::vector<std::vector<uint8_t>> cases = {
      {},
      {'K', 'T', 'D'},
      {'K', 'T', 'D', 'X', 1, 0x01},
      {'K', 'T', 'D', 'B', 2, 0x01},                // unknown version
      Bytes({}),                                    // no value
      Bytes({0x00}),                                // unknown tag
      Bytes({0x0C}),                                // unknown tag
      Bytes({0x09}),                                // end without begin
      Bytes({0x0B}),                                // end without begin
      Bytes({0x01, 0x01}),                          // data after the value
      Bytes({0x03}),                                // integer without payload
      Bytes({0x03, 0x80}),                          // truncated varint
      Bytes({0x03, 0x80, 0x80, 0x80, 0x80, 0x10}),  // beyond 32 bits
      Bytes({0x03, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}),
      Bytes({0x03, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}),
      Bytes({0x04, 0x00, 0x00, 0x80}),        // short real
      Bytes({0x05, 0x02, 0x41, 0x00, 0x42}),  // string shorter than its count
      Bytes({0x05, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}),  // huge count
      Bytes({0x06, 0x05, 0x41}),                    // byte string shorter than its count
      Bytes({0x07, 0x00}),                          // empty name
      Bytes({0x07, 0x01, ' '}),                     // invalid name byte
      Bytes({0x07, 0x01, '/'}),                     // invalid name byte
      Bytes({0x08, 0x01}),                          // unterminated array
      Bytes({0x08, 0x0B}),                          // dictionary end inside an array
      Bytes({0x0A, 0x03, 0x00, 0x03, 0x00, 0x0B}),  // key is not a name
      Bytes({0x0A, 0x07, 0x01, 'K', 0x0B}),         // key without value
      Bytes({0x0A, 0x07, 0x01, 'K', 0x09}),         // key followed by an array end
      Bytes({0x0A, 0x07, 0x01, 'K', 0x01}),         // unterminated dictionary
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    try {
      FromBinary(cases[i]);
      ADD_FAILURE() << "accepted case " << i;
    } catch (const SLO::Error& e) {
      EXPECT_EQ(e.source(), "SLOBinaryPDFReader") << i;
      EXPECT_LE(e.offset(), static_cast<int64_t>(cases[i].size())) << i;
    }
  }
}

TEST(BinaryForm, EveryTruncationOfAValidEncodingIsRefused) {
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

TEST(BinaryForm, NestingIsLimited) {
  std::vector<uint8_t> ok = Bytes({});
  ok.insert(ok.end(), SLO::kMaxDepth, 0x08);
  ok.insert(ok.end(), SLO::kMaxDepth, 0x09);
  EXPECT_TRUE(FromBinary(ok).IsArray());
  std::vector<uint8_t> deep = Bytes({});
  deep.insert(deep.end(), SLO::kMaxDepth + 1, 0x08);
  deep.insert(deep.end(), SLO::kMaxDepth + 1, 0x09);
  EXPECT_THROW(FromBinary(deep), SLO::Error);
}

TEST(TreeWriter, RefusesWritesThatMakeNoTree) {
  {
    SLO::TreeWriter w;
    w.WriteInteger(1);
    EXPECT_THROW(w.WriteInteger(2), SLO::Error);  // a second top-level value
  }
  {
    SLO::TreeWriter w;
    w.BeginDictionary();
    EXPECT_THROW(w.WriteInteger(1), SLO::Error);  // a value without a key
  }
  {
    SLO::TreeWriter w;
    w.BeginDictionary();
    w.WriteName("K");
    EXPECT_THROW(w.EndDictionary(), SLO::Error);  // a key without a value
  }
  {
    SLO::TreeWriter w;
    w.BeginArray();
    EXPECT_THROW(w.EndDictionary(), SLO::Error);
    EXPECT_THROW(w.Take(), SLO::Error);  // not complete
  }
  {
    // An empty key or name value would vanish from the text form, so the walk refuses it.
    std::vector<uint8_t> out;
    SLO::VectorSink sink(out);
    SLO::TextPDFWriter w(sink);
    Value d = Value::Dictionary();
    d.Add("", Value::Integer(1));
    EXPECT_THROW(SLO::WriteTree(w, d), SLO::Error);
    EXPECT_THROW(SLO::WriteTree(w, Value::Array({Value::Name("")})), SLO::Error);
  }
}

}  // namespace
