// The text form. The writer byte for byte: separators and line mode, every token form, the
// name rules, reals at every precision. The reader: round trips over every chunk size, the
// forms it accepts beyond the writer's, malformed input refused with the reader's error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "tree_gen.h"

namespace {

using namespace dict_test;
using SLO::TextPDFWriter;
using SLO::Value;
using namespace std::string_literals;

constexpr auto I = &Value::Integer;
constexpr auto R = &Value::Real;
constexpr auto S = &Value::String;

// Drives a writer from a script of space-separated tokens: "<<" ">>" "[" "]" begin and end,
// "/K" a name ("/" alone the empty name), true and false, "-12" an integer, "1.5" a real, "!"
// sets the one-shot flag, "=N" sets line mode N. Every container must be closed.
std::string Script(bool line_mode, const char* script) {
  Sink out;
  TextPDFWriter w(out.sink, 5, line_mode);
  std::istringstream in(script);
  for (std::string t; in >> t;) {
    if (t == "<<") w.BeginDictionary();
    if (t == ">>") w.EndDictionary();
    if (t == "[") w.BeginArray();
    if (t == "]") w.EndArray();
    if (t == "!") w.SetOneShot(true);
    if (t[0] == '=') w.SetLineMode(std::stoi(t.substr(1)));
    if (t[0] == '/') w.WriteName(t.substr(1));
    if (t == "true" || t == "false") w.WriteBoolean(t == "true");
    if (t.find_first_not_of("-0123456789") == std::string::npos) w.WriteInteger(std::stoi(t));
    if (t.find_first_not_of("-.0123456789") == std::string::npos && t.find('.') != t.npos)
      w.WriteReal(std::stof(t));
  }
  EXPECT_EQ(w.dictionary_depth(), 0) << script;
  EXPECT_EQ(w.array_depth(), 0) << script;
  return out.Str();
}

TEST(TextWriter, SeparatorsAndLineMode) {
  const struct {
    bool line_mode;
    const char* script;
    const char* expected;
  } cases[] = {
      {false, "true false 0 -1 1234567 2147483647 -2147483648 /Key 2.0",
       " true false 0 -1 1234567 2147483647 -2147483648 /Key 2.0"},
      {false, "<< /A [ << >> ] >>", " << /A [ << >> ] >>"},
      // A key and its value share one line; arrays stay on the line they begin.
      {true, "<< /A 1 /B << /C 2 >> /D [ 1 2 ] /E /F >>",
       "\n<<\n/A 1\n/B\n<<\n/C 2\n>>\n/D [ 1 2 ]\n/E /F\n>>"},
      // A dictionary begun inside an array makes the rest of that array line-separated, and
      // the end of the array does not take the counter below zero.
      {true, "[ 7 << /K 1 >> 3 ] [ 4 ]", "\n[ 7\n<<\n/K 1\n>>\n3\n]\n[ 4 ]"},
      // A name inside an array still inverts the one-shot flag, so the next key shares the
      // array's line and its value goes to a new line.
      {true, "<< /K [ /A ] /L 1 >>", "\n<<\n/K [ /A ] /L\n1\n>>"},
      // The flag shortens one separator only; line mode 0 means spaces.
      {true, "! 1 2 =0 3", " 1\n2 3"},
      // An empty name writes nothing at all and leaves the flag alone.
      {true, "/ 1", "\n1"},
  };
  for (const auto& c : cases) EXPECT_EQ(Script(c.line_mode, c.script), c.expected) << c.script;
}

TEST(TextWriter, StringsCarryTheMarkAndEscapeEitherByte) {
  Sink out;
  TextPDFWriter w(out.sink);
  w.WriteString(u"(");
  w.WriteString(std::u16string(1, char16_t{0x285C}));
  w.WriteString(u"A\0"s + char16_t{0x5C29});
  w.WriteString(u"");
  w.WriteString(u"\U0001F600");
  const uint8_t bytes[] = {'a', '(', 0, ')', '\\', 0xFF};
  w.WriteByteString(bytes, sizeof bytes);
  w.WriteHexString(bytes, sizeof bytes);
  EXPECT_EQ(out.Str(),
            " (\xFE\xFF\x00\x5C\x28) (\xFE\xFF\x5C\x28\x5C\x5C) (\xFE\xFF\x00"
            "A\x00\x00\x5C\x5C\x5C)) (\xFE\xFF) (\xFE\xFF\xD8\x3D\xDE\x00)"
            " (a\\(\x00\\)\\\\\xFF) <612800295CFF>"s);
}

// Both writers refuse the same names with the same line; the text writer keeps the bytes before
// the bad unit (marked by the last "|" here), the binary writer nothing.
TEST(TextWriter, NameRulesOfBothWriters) {
  const std::pair<int, std::vector<std::u16string>> cases[] = {
      {424, {u"ab| cd", u"x|\u00E9", u"|\x7F", u"tab|\tbed", u"|\U0001F600"}},
      {439, {u"a|/b", u"|#", u"p|%", u"|(x", u"x|)", u"|<", u"ok|>", u"|[", u"|]", u"|{", u"|}"}},
      {0, {u"!\"$&'*+,-.09:;=?@AZ\\^_`az|~|"}}};  // accepted: every kind of allowed byte
  for (const auto& [line, names] : cases) {
    for (std::u16string name : names) {
      const size_t kept = name.rfind(u'|');
      name.erase(kept, 1);
      Sink text, bin;
      TextPDFWriter tw(text.sink);
      SLO::BinaryPDFWriter bw(bin.sink);
      const SLO::Error e = Refusal([&] { tw.WriteName(name.data(), name.size()); });
      EXPECT_EQ(e.source(), line == 0 ? "nothing thrown" : "SLOTextPDFWriter");
      EXPECT_EQ(e.line(), line) << kept;
      EXPECT_EQ(Refusal([&] { bw.WriteName(name.data(), name.size()); }).line(), line) << kept;
      EXPECT_EQ(text.Str(), " /" + std::string(name.begin(), name.begin() + kept));
      EXPECT_EQ(bin.bytes.size(), line == 0 ? 7 + name.size() : 5u);
    }
  }
}

TEST(TextWriter, RealsAtEveryPrecision) {
  // The value, then its text at 0..5 places (the last text given holds for the rest).
  const char* cases[] = {"0 0.0", "-0 0.0", "3 3.0", "0.5 0.0 .5", "-0.25 0.0 -.3 -.25",
                         "1.05 1.0 1.0 1.05", "1.23456 1.0 1.2 1.23 1.235 1.2346 1.23456",
                         "-2.5 -2.0 -2.5", "0.07 0.0 .1 .07",
                         // The fraction never carries into the integer part.
                         "0.99999 0.0 .9 .99 .999 .9999 .99999", "0.9999 0.0 .9 .99 .999 .9999",
                         // A negative value that rounds to zero loses its sign.
                         "-0.001 0.0 0.0 0.0 -.001", "0.00001 0.0 0.0 0.0 0.0 0.0 .00001",
                         "-123.004 -123.0 -123.0 -123.0 -123.004", "1000000.5 1000000.0 1000000.5",
                         "16777217 16777216.0", "1073741760 1073741760.0", "nan 0.0",
                         // Clamped to 2^30.
                         "1073741824 1073741824.0", "5e9 1073741824.0", "inf 1073741824.0",
                         "-3e38 -1073741824.0", "-inf -1073741824.0"};
  for (const char* c : cases) {
    std::istringstream in(c);
    std::string value, text;
    in >> value;
    for (int p = 0; p <= 5; ++p) {
      in >> text;
      const float f = std::stof(value);
      EXPECT_EQ(TextPDFWriter::FormatReal(f, p), text) << value << " at " << p;
      // The same text comes out of the writer, after its separator.
      Sink out;
      TextPDFWriter(out.sink, p).WriteReal(f);
      EXPECT_EQ(out.Str(), " " + text);
    }
  }
  // Precision outside 0..5 is clamped, by the constructor and by SetPrecision.
  Sink out;
  TextPDFWriter w(out.sink, 9);
  w.WriteReal(1.234567f);
  w.SetPrecision(-3);
  w.WriteReal(2.75f);
  EXPECT_EQ(out.Str(), " 1.23457 2.0");
}

Value Dict(std::vector<Value::Entry> entries) {
  Value d = Value::Dictionary();
  d.entries = std::move(entries);
  return d;
}

// Every kind of value, the extremes of integers, escapes and surrogates, nesting, a duplicate
// key.
const Value& Sample() {
  static const Value sample = FromText(
      "<< /Int -42 /Min -2147483648 /Max 2147483647 /Real -12.375 /Half .5 /Zero 0.0 /Yes true"
      " /No false /Text <FEFF0028006100290020005C0020285C0020D83DDE00002000E9> /Empty ()"
      " /Name /dflt /Arr [ /x << /K [ 1 [ ] << >> ] >> 3 ] /Dup 1 /Dup 2 >>");
  return sample;
}

TEST(TextReader, FormsBeyondTheWritersOwn) {
  // Numbers, each with what the writer makes of the value read: integers unless there is a "."
  // or an exponent.
  for (const char* c :
       {"0 0", "+5 5", "-0 0", "007 7", "2147483647 2147483647", "3. 3.0",
        "-2147483648 -2147483648", "3.0 3.0", ".5 .5", "+.5 .5", "-.25 -.25", "1e3 1000.0",
        "1E+3 1000.0", "+.5e-1 .05", "2.5e-60 0.0", "1073741824.0 1073741824.0"}) {
    const std::string in(c, std::strchr(c, ' '));
    EXPECT_EQ(ToText(FromText(in), 5, false), std::strchr(c, ' ')) << in;
  }
  const struct {
    std::string text;
    Value expected;
  } cases[] = {{"-1e-400", R(-0.0f)},
               {"(abc)", S(u"abc")},
               {"(\\)\\(\\\\x)", S(u")(\\x")},
               {"(a(b)", S(u"a(b")},  // an unescaped "(" is a plain byte
               {"(\xE9\x00)"s, S(u"\u00E9\0"s)},
               {"(\xFE\xFF\x00"
                "A\xD8\x3D\xDE\x00)"s,
                S(u"A\U0001F600")},
               {"<FEFF0041>", S(u"A")},
               {"< 41 4 2\n4f 4>", S(u"ABO@")},
               {"<>", S(u"")},
               // White space of every kind and comments between tokens; keys keep their order,
               // duplicates included.
               {"%head\r\n<<\t/A\r\n1 % note\n/B[true\ffalse]\0/A/D>>%"s,
                Dict({{"A", I(1)},
                      {"B", Value::Array({Value::Boolean(true), Value::Boolean(false)})},
                      {"A", Value::Name("D")}})}};
  for (const auto& c : cases) EXPECT_EQ(FromText(c.text), c.expected) << c.text;
  // Find takes the first of two equal keys.
  EXPECT_EQ(FromText("<< /A 1 /A 3 >>").Find("A")->integer, 1);
  EXPECT_EQ(FromText("<< /A 1 >>").Find("C"), nullptr);
}

TEST(TextReader, MalformedInputIsRefused) {
  const std::string cases[] = {
      "", "   % only a comment", "(abc", "(abc\\", "<< /A 1", "[ 1 2", "<< /A [ 1 >>", ">a", "> >",
      ">", "1.2.3", "--1", "+", ".", "1e", "1e+", "e5", "1x", "2147483648", "-2147483649", "1e39",
      "-3.5e38", "<< 1 2 >>", "<< /A >>", "<< /A ]", "/", "/a#b", "tru", "truex", "nul", "]", ">>",
      "{", "}", "1 2", "<< >> x", "<41", "<4G>", ")", "<< (k) 1 >>", "[ /A >> ]",
      // Bytes no token begins with, name bytes outside the allowed range, odd UTF-16 strings.
      "\x01", "/a\x80", "/a\x7F", "(\xFE\xFF\x00)"s, "<FEFF00>"};
  for (const std::string& c : cases) {
    const SLO::Error e = Refusal([&] { FromText(c); });
    EXPECT_EQ(e.source(), "SLOTextPDFReader") << c;
    EXPECT_GE(e.offset(), 0) << c;
  }
  // A key without a value: the error names the line.
  const SLO::Error e = Refusal([] { FromText("<<\n/A 1\n/B >>\n"); });
  EXPECT_EQ(e.line(), 3);
  EXPECT_NE(std::string(e.what()).find("SLOTextPDFReader line 3"), std::string::npos);
}

// A source that checks the reader's requests: never more than the chunk, never again after it
// has reported the end, and hands out at most `step` bytes at a time.
struct StrictSource : SLO::ByteSource {
  StrictSource(std::string data, size_t chunk, size_t step)
      : data(std::move(data)), chunk(chunk), step(step) {}
  size_t Read(uint8_t* buffer, size_t capacity) override {
    EXPECT_LE(capacity, chunk);
    EXPECT_FALSE(ended) << "read again after the end";
    const size_t n = std::min({capacity, step, data.size() - pos});
    if (n != 0) std::memcpy(buffer, data.data() + pos, n);
    pos += n;
    ended = n == 0;
    ++reads;
    return n;
  }
  std::string data;
  size_t chunk, step, pos = 0;
  bool ended = false;
  size_t reads = 0;
};

TEST(TextReader, ReadsWhatTheWriterWritesInBoundedChunksAndStopsAtTheEnd) {
  for (bool line_mode : {false, true}) {
    const std::string text = ToText(Sample(), 5, line_mode);
    for (size_t chunk : {1, 2, 3, 5, 7, 64, 4096}) {
      for (size_t step : {1, 3, 1000}) {
        StrictSource source(text, chunk, step);
        EXPECT_EQ(SLO::TextPDFReader(source, chunk).Parse(), Sample())
            << "chunk " << chunk << " step " << step << " line mode " << line_mode;
        EXPECT_GE(source.reads, text.size() / chunk);
      }
    }
  }
  // Cut short anywhere, the text is refused, and the reader never asks past the end.
  const std::string text = ToText(Sample());
  for (size_t len = 0; len < text.size(); ++len) {
    StrictSource source(text.substr(0, len), 16, 7);
    EXPECT_THROW(SLO::TextPDFReader(source, 16).Parse(), SLO::Error) << len;
  }
}

}  // namespace
