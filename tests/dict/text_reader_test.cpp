// The text reader: round trips of writer output over every chunk size, the forms it accepts
// beyond the writer's, and malformed input refused with the reader's error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "engine/slo_text.h"
#include "tree_gen.h"

namespace {

using dict_test::FromText;
using dict_test::ToText;
using SLO::Value;

Value Sample() {
  Value root = Value::Dictionary();
  root.Add("Int", Value::Integer(-42));
  root.Add("Min", Value::Integer(std::numeric_limits<int32_t>::min()));
  root.Add("Max", Value::Integer(std::numeric_limits<int32_t>::max()));
  root.Add("Real", Value::Real(-12.375f));
  root.Add("Half", Value::Real(0.5f));
  root.Add("Zero", Value::Real(0.0f));
  root.Add("Yes", Value::Boolean(true));
  root.Add("No", Value::Boolean(false));
  root.Add("Text", Value::String(u"(a) \\ \x285C \U0001F600 \u00E9"));
  root.Add("Empty", Value::String(u""));
  root.Add("Name", Value::Name("dflt"));
  Value& arr = root.Add("Arr", Value::Array());
  arr.Push(Value::Name("x"));
  Value& inner = arr.Push(Value::Dictionary());
  inner.Add("K", Value::Array({Value::Integer(1), Value::Array(), Value::Dictionary()}));
  arr.Push(Value::Integer(3));
  root.Add("Dup", Value::Integer(1));
  root.Add("Dup", Value::Integer(2));
  return root;
}

TEST(TextReader, ReadsBackWhatTheWriterWritesAtEveryChunkSize) {
  const Value tree = Sample();
  for (bool line_mode : {false, true}) {
    const std::vector<uint8_t> text = ToText(tree, 5, line_mode);
    for (size_t chunk : {1, 2, 3, 5, 7, 64, 4096}) {
      SCOPED_TRACE(testing::Message() << "chunk " << chunk << " line mode " << line_mode);
      EXPECT_EQ(FromText(text, chunk), tree);
    }
  }
}

TEST(TextReader, RandomTreesRoundTrip) {
  dict_test::TreeGen gen(1234, /*text_safe=*/true);
  for (int i = 0; i < 300; ++i) {
    const Value tree = gen.Tree();
    const std::vector<uint8_t> text = ToText(tree, 5, i % 2 == 0);
    ASSERT_EQ(FromText(text, 1 + i % 9), tree) << std::string(text.begin(), text.end());
  }
}

TEST(TextReader, DuplicateKeysKeepTheirOrderAndFindTakesTheFirst) {
  const Value v = FromText("<< /A 1 /B 2 /A 3 >>");
  ASSERT_EQ(v.entries.size(), 3u);
  EXPECT_EQ(v.entries[2].key, "A");
  EXPECT_EQ(v.Find("A")->integer, 1);
  EXPECT_EQ(v.Find("C"), nullptr);
}

TEST(TextReader, NumbersIntegersAndReals) {
  struct Case {
    const char* text;
    Value expected;
  };
  const Case cases[] = {
      {"0", Value::Integer(0)},
      {"+5", Value::Integer(5)},
      {"-0", Value::Integer(0)},
      {"007", Value::Integer(7)},
      {"2147483647", Value::Integer(2147483647)},
      {"-2147483648", Value::Integer(std::numeric_limits<int32_t>::min())},
      {"3.", Value::Real(3.0f)},
      {"3.0", Value::Real(3.0f)},
      {".5", Value::Real(0.5f)},
      {"+.5", Value::Real(0.5f)},
      {"-.25", Value::Real(-0.25f)},
      {"1e3", Value::Real(1000.0f)},
      {"1E+3", Value::Real(1000.0f)},
      {"+.5e-1", Value::Real(0.05f)},
      {"2.5e-60", Value::Real(0.0f)},
      {"-1e-400", Value::Real(-0.0f)},
      {"1073741824.0", Value::Real(1073741824.0f)},
  };
  for (const Case& c : cases) EXPECT_EQ(FromText(std::string(c.text)), c.expected) << c.text;
}

TEST(TextReader, StringsWithAndWithoutMarkAndHexStrings) {
  EXPECT_EQ(FromText("(abc)").string, u"abc");
  EXPECT_EQ(FromText("(\\)\\(\\\\x)").string, u")(\\x");
  EXPECT_EQ(FromText("(a(b)").string, u"a(b");  // an unescaped "(" is a plain byte
  EXPECT_EQ(FromText(std::string("(\xE9\x00)", 4)).string, std::u16string(u"\u00E9\0", 2));
  EXPECT_EQ(FromText(std::string("(\xFE\xFF\x00"
                                 "A\xD8\x3D\xDE\x00)",
                                 10))
                .string,
            u"A\U0001F600");
  EXPECT_EQ(FromText("<FEFF0041>").string, u"A");
  EXPECT_EQ(FromText("< 41 4 2\n43 4>").string, u"ABC@");
  EXPECT_EQ(FromText("<>").string, u"");
}

TEST(TextReader, WhiteSpaceAndCommentsBetweenTokens) {
  const char kText[] = "%head\r\n<<\t/A\r\n1 % note\n/B[true\ffalse]\0/C/D>>%";
  const std::string text(kText, sizeof kText - 1);
  const Value v = FromText(text);
  ASSERT_TRUE(v.IsDictionary());
  ASSERT_EQ(v.entries.size(), 3u);
  EXPECT_EQ(v.Find("A")->integer, 1);
  ASSERT_EQ(v.Find("B")->array.size(), 2u);
  EXPECT_FALSE(v.Find("B")->array[1].boolean);
  EXPECT_EQ(v.Find("C")->name, "D");
}

TEST(TextReader, MalformedInputIsRefused) {
  const char* cases[] = {
      "",
      "   % only a comment",
      "(abc",
      "(abc\\",
      "<< /A 1",
      "[ 1 2",
      "<< /A [ 1 >>",
      ">a",
      "> >",
      ">",
      "1.2.3",
      "--1",
      "+",
      ".",
      "1e",
      "1e+",
      "e5",
      "1x",
      "2147483648",
      "-2147483649",
      "1e39",
      "-3.5e38",
      "<< 1 2 >>",
      "<< /A >>",
      "<< /A ]",
      "/",
      "/a#b",
      "tru",
      "truex",
      "nul",
      "]",
      ">>",
      "{",
      "}",
      "1 2",
      "<< >> x",
      "<41",
      "<4G>",
      ")",
      "<< (k) 1 >>",
      "[ /A >> ]",
  };
  for (const char* c : cases) {
    try {
      FromText(std::string(c));
      ADD_FAILURE() << "accepted \"" << c << "\"";
    } catch (const SLO::Error& e) {
      EXPECT_EQ(e.source(), "SLOTextPDFReader") << c;
      EXPECT_GE(e.offset(), 0) << c;
    }
  }
  // Bytes no token begins with, name bytes outside the allowed range, odd UTF-16 strings.
  for (const std::string& c : {std::string("\x01"), std::string("/a\x80"), std::string("/a\x7F"),
                               std::string("(\xFE\xFF\x00)", 5), std::string("<FEFF00>")}) {
    EXPECT_THROW(FromText(c), SLO::Error) << c;
  }
}

TEST(TextReader, ErrorsNameTheInputLine) {
  try {
    FromText("<<\n/A 1\n/B >>\n");
    FAIL() << "accepted a key without a value";
  } catch (const SLO::Error& e) {
    EXPECT_EQ(e.line(), 3);
    EXPECT_NE(std::string(e.what()).find("SLOTextPDFReader line 3"), std::string::npos);
  }
}

TEST(TextReader, NestingIsLimited) {
  const std::string ok = std::string(SLO::kMaxDepth, '[') + std::string(SLO::kMaxDepth, ']');
  EXPECT_TRUE(FromText(ok).IsArray());
  const std::string deep =
      std::string(SLO::kMaxDepth + 1, '[') + std::string(SLO::kMaxDepth + 1, ']');
  EXPECT_THROW(FromText(deep), SLO::Error);
  std::string dicts;
  for (int i = 0; i <= SLO::kMaxDepth; ++i) dicts += "<</a";
  EXPECT_THROW(FromText(dicts), SLO::Error);
}

// A source that checks the reader's requests: never more than the chunk, never again after it
// has reported the end, and hands out at most `step` bytes at a time.
class StrictSource : public SLO::ByteSource {
 public:
  StrictSource(std::string data, size_t chunk, size_t step)
      : data_(std::move(data)), chunk_(chunk), step_(step) {}
  size_t Read(uint8_t* buffer, size_t capacity) override {
    EXPECT_LE(capacity, chunk_);
    EXPECT_FALSE(ended_) << "read again after the end";
    size_t n = std::min({capacity, step_, data_.size() - pos_});
    if (n != 0) std::memcpy(buffer, data_.data() + pos_, n);
    pos_ += n;
    if (n == 0) ended_ = true;
    ++reads_;
    return n;
  }
  int reads() const { return reads_; }

 private:
  std::string data_;
  size_t chunk_, step_, pos_ = 0;
  bool ended_ = false;
  int reads_ = 0;
};

TEST(TextReader, ReadsTheSourceInBoundedChunksAndStopsAtItsEnd) {
  const std::vector<uint8_t> bytes = ToText(Sample(), 5, true);
  const std::string text(bytes.begin(), bytes.end());
  for (size_t step : {1, 3, 1000}) {
    StrictSource source(text, 16, step);
    SLO::TextPDFReader reader(source, 16);
    EXPECT_EQ(reader.Parse(), Sample());
    EXPECT_GE(source.reads(), static_cast<int>(text.size() / 16));
  }
  // Cut short anywhere, the text is refused, and the reader never asks past the end.
  for (size_t len = 0; len < text.size(); ++len) {
    StrictSource source(text.substr(0, len), 16, 7);
    SLO::TextPDFReader reader(source, 16);
    EXPECT_THROW(reader.Parse(), SLO::Error) << len;
  }
}

}  // namespace
