#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <string>

#include "engine/slo_text.h"

namespace SLO {

namespace {

// Longest number token accepted; real input never comes close.
constexpr size_t kMaxNumberLength = 128;

bool IsWhite(int c) {
  return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == 0;
}

bool IsDelimiter(int c) {
  switch (c) {
    case '(':
    case ')':
    case '<':
    case '>':
    case '[':
    case ']':
    case '{':
    case '}':
    case '/':
    case '%':
      return true;
    default:
      return IsWhite(c);
  }
}

int HexValue(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

TextPDFReader::TextPDFReader(ByteSource& source, size_t chunk_size)
    : source_(source), chunk_(std::max<size_t>(chunk_size, 1)) {}

TextPDFReader::TextPDFReader(const uint8_t* data, size_t size, size_t chunk_size)
    : owned_source_(std::make_unique<MemorySource>(data, size)),
      source_(*owned_source_),
      chunk_(std::max<size_t>(chunk_size, 1)) {}

TextPDFReader::~TextPDFReader() = default;

bool TextPDFReader::Fill() {
  if (at_end_) return false;
  size_t n = source_.Read(chunk_.data(), chunk_.size());
  chunk_len_ = std::min(n, chunk_.size());  // a source that claims more gets no more trust
  chunk_pos_ = 0;
  if (chunk_len_ == 0) at_end_ = true;
  return chunk_len_ != 0;
}

int TextPDFReader::Peek() {
  if (chunk_pos_ >= chunk_len_ && !Fill()) return -1;
  return chunk_[chunk_pos_];
}

int TextPDFReader::Get() {
  int c = Peek();
  if (c >= 0) {
    ++chunk_pos_;
    ++offset_;
    if (c == '\n') ++line_;
  }
  return c;
}

void TextPDFReader::Fail(const std::string& message) const {
  throw Error(kSourceName, line_, message, offset_);
}

void TextPDFReader::SkipSeparators() {
  for (;;) {
    int c = Peek();
    if (IsWhite(c)) {
      Get();
    } else if (c == '%') {
      while (c != -1 && c != '\n' && c != '\r') {
        Get();
        c = Peek();
      }
    } else {
      return;
    }
  }
}

TextPDFReader::Lexeme TextPDFReader::Next() {
  SkipSeparators();
  Lexeme lex;
  int c = Peek();
  switch (c) {
    case -1:
      lex.kind = Token::kEnd;
      return lex;
    case '(':
      ReadString(lex);
      return lex;
    case '/':
      ReadName(lex);
      return lex;
    case '<':
      Get();
      if (Peek() == '<') {
        Get();
        lex.kind = Token::kBeginDictionary;
      } else {
        ReadHexString(lex);
      }
      return lex;
    case '>':
      Get();
      if (Get() != '>') Fail("\">\" not followed by \">\"");
      lex.kind = Token::kEndDictionary;
      return lex;
    case '[':
      Get();
      lex.kind = Token::kBeginArray;
      return lex;
    case ']':
      Get();
      lex.kind = Token::kEndArray;
      return lex;
    case 'f':
      ReadLiteral("false", false, lex);
      return lex;
    case 't':
      ReadLiteral("true", true, lex);
      return lex;
    default:
      break;
  }
  if (c == '+' || c == '-' || c == '.' || (c >= '0' && c <= '9')) {
    ReadNumber(lex);
    return lex;
  }
  Fail("unexpected byte " + std::to_string(c));
}

Value TextPDFReader::DecodeStringBytes(const std::string& bytes, const TextPDFReader* self) {
  std::u16string units;
  if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFE &&
      static_cast<uint8_t>(bytes[1]) == 0xFF) {
    if (bytes.size() % 2 != 0) self->Fail("UTF-16 string with an odd number of bytes");
    units.reserve((bytes.size() - 2) / 2);
    for (size_t i = 2; i < bytes.size(); i += 2)
      units.push_back(static_cast<char16_t>((static_cast<uint8_t>(bytes[i]) << 8) |
                                            static_cast<uint8_t>(bytes[i + 1])));
  } else {
    // Without the mark each byte is one code unit.
    units.reserve(bytes.size());
    for (char b : bytes) units.push_back(static_cast<uint8_t>(b));
  }
  return Value::String(std::move(units));
}

void TextPDFReader::ReadString(Lexeme& out) {
  Get();  // "("
  std::string bytes;
  for (;;) {
    int c = Get();
    if (c == -1) Fail("unterminated string");
    if (c == ')') break;
    if (c == '\\') {
      c = Get();
      if (c == -1) Fail("unterminated string");
    }
    // An unescaped "(" is an ordinary byte: the writer escapes every one it emits.
    bytes.push_back(static_cast<char>(c));
  }
  out.kind = Token::kString;
  out.value = DecodeStringBytes(bytes, this);
}

void TextPDFReader::ReadHexString(Lexeme& out) {
  // The "<" is already taken.
  std::string bytes;
  int high = -1;
  for (;;) {
    int c = Get();
    if (c == -1) Fail("unterminated hexadecimal string");
    if (c == '>') break;
    if (IsWhite(c)) continue;
    int v = HexValue(c);
    if (v < 0) Fail("bad digit in a hexadecimal string");
    if (high < 0) {
      high = v;
    } else {
      bytes.push_back(static_cast<char>(high << 4 | v));
      high = -1;
    }
  }
  if (high >= 0)
    bytes.push_back(static_cast<char>(high << 4));  // a lone last digit is its high half
  out.kind = Token::kString;
  out.value = DecodeStringBytes(bytes, this);
}

void TextPDFReader::ReadNumber(Lexeme& out) {
  std::string text;
  for (int c = Peek(); c != -1 && !IsDelimiter(c); c = Peek()) {
    if (text.size() >= kMaxNumberLength) Fail("number too long");
    text.push_back(static_cast<char>(Get()));
  }
  // [+-]? digits* ("." digits*)? ([eE] [+-]? digits+)?, at least one mantissa digit.
  size_t i = 0;
  const size_t n = text.size();
  bool negative = false;
  if (i < n && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  size_t mantissa_digits = 0;
  while (i < n && text[i] >= '0' && text[i] <= '9') ++i, ++mantissa_digits;
  bool real = false;
  if (i < n && text[i] == '.') {
    real = true;
    ++i;
    while (i < n && text[i] >= '0' && text[i] <= '9') ++i, ++mantissa_digits;
  }
  bool negative_exponent = false;
  if (i < n && (text[i] == 'e' || text[i] == 'E') && mantissa_digits != 0) {
    real = true;
    ++i;
    if (i < n && (text[i] == '+' || text[i] == '-')) negative_exponent = text[i++] == '-';
    size_t exponent_digits = 0;
    while (i < n && text[i] >= '0' && text[i] <= '9') ++i, ++exponent_digits;
    if (exponent_digits == 0) Fail("bad number \"" + text + "\"");
  }
  if (mantissa_digits == 0 || i != n) Fail("bad number \"" + text + "\"");

  // from_chars takes no "+"; keep the "-".
  const char* first = text.data() + (text[0] == '+' ? 1 : 0);
  const char* last = text.data() + n;
  if (!real) {
    int64_t v = 0;
    auto [ptr, ec] = std::from_chars(first, last, v);
    if (ec != std::errc() || ptr != last || v < INT32_MIN || v > INT32_MAX)
      Fail("integer out of range \"" + text + "\"");
    out.kind = Token::kInteger;
    out.value = Value::Integer(static_cast<int32_t>(v));
    return;
  }
  double d = 0.0;
  auto [ptr, ec] = std::from_chars(first, last, d);
  if (ec == std::errc::result_out_of_range && negative_exponent) {
    d = negative ? -0.0 : 0.0;  // too small for a double: it is zero as a float too
  } else if (ec != std::errc() || ptr != last) {
    Fail("number out of range \"" + text + "\"");
  }
  if (!(std::fabs(d) <= FLT_MAX)) Fail("number out of range \"" + text + "\"");
  out.kind = Token::kReal;
  out.value = Value::Real(static_cast<float>(d));
}

void TextPDFReader::ReadName(Lexeme& out) {
  Get();  // "/"
  std::string name;
  for (int c = Peek(); c != -1 && !IsDelimiter(c); c = Peek()) {
    if (CheckNameUnit(static_cast<char16_t>(c)) != 0) Fail("invalid character in a name");
    name.push_back(static_cast<char>(Get()));
  }
  if (name.empty()) Fail("empty name");
  out.kind = Token::kName;
  out.value = Value::Name(std::move(name));
}

void TextPDFReader::ReadLiteral(const char* word, bool value, Lexeme& out) {
  std::string text;
  for (int c = Peek(); c != -1 && !IsDelimiter(c) && text.size() < 8; c = Peek())
    text.push_back(static_cast<char>(Get()));
  if (text != word) Fail("unknown keyword \"" + text + "\"");
  out.kind = Token::kBoolean;
  out.value = Value::Boolean(value);
}

Value TextPDFReader::ParseValue(Lexeme lex, int depth) {
  switch (lex.kind) {
    case Token::kBoolean:
    case Token::kInteger:
    case Token::kReal:
    case Token::kString:
    case Token::kName:
      return std::move(lex.value);
    case Token::kBeginArray: {
      if (depth >= kMaxDepth) Fail("nesting too deep");
      Value array = Value::Array();
      for (;;) {
        Lexeme item = Next();
        if (item.kind == Token::kEnd) Fail("unterminated array");
        if (item.kind == Token::kEndArray) return array;
        if (item.kind == Token::kEndDictionary) Fail("\">>\" inside an array");
        array.Push(ParseValue(std::move(item), depth + 1));
      }
    }
    case Token::kBeginDictionary: {
      if (depth >= kMaxDepth) Fail("nesting too deep");
      Value dict = Value::Dictionary();
      for (;;) {
        Lexeme key = Next();
        if (key.kind == Token::kEnd) Fail("unterminated dictionary");
        if (key.kind == Token::kEndDictionary) return dict;
        if (key.kind != Token::kName) Fail("dictionary key is not a name");
        Lexeme value = Next();
        if (value.kind == Token::kEnd) Fail("unterminated dictionary");
        if (value.kind == Token::kEndDictionary || value.kind == Token::kEndArray)
          Fail("key /" + key.value.name + " without a value");
        dict.Add(std::move(key.value.name), ParseValue(std::move(value), depth + 1));
      }
    }
    case Token::kEndArray:
      Fail("\"]\" without \"[\"");
    case Token::kEndDictionary:
      Fail("\">>\" without \"<<\"");
    case Token::kEnd:
      break;
  }
  Fail("no value");
}

Value TextPDFReader::Parse() {
  Lexeme first = Next();
  if (first.kind == Token::kEnd) Fail("no value");
  Value root = ParseValue(std::move(first), 0);
  SkipSeparators();
  if (Peek() != -1) Fail("data after the value");
  return root;
}

}  // namespace SLO
