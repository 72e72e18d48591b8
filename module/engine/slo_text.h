// The engine's dictionary text syntax: TextPDFWriter emits it, TextPDFReader reads it back.
//
// Every token is preceded by exactly one separator byte: a line feed in line mode when the
// token is outside any array (or a dictionary has begun since the last array began), else a
// space; a one-shot flag, inverted by each name, turns the line feed before a key's value into
// a space so that a key and its value share one line. Names are "/" plus the low byte of each
// code unit (0x21..0x7E, none of # % ( ) / < > [ ] { }); strings are "(" FE FF, the UTF-16
// code units high byte first, ")", with every byte equal to "(", ")" or "\" escaped by "\";
// integers are decimal; reals are written with a fixed number of decimal places (0..5), never
// carrying the fraction into the integer part.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/slo_io.h"

namespace SLO {

class TextPDFWriter : public PDFWriter {
 public:
  static constexpr const char* kSourceName = "SLOTextPDFWriter";
  static constexpr int kDefaultPrecision = 5;

  // `sink` must outlive the writer.
  explicit TextPDFWriter(ByteSink& sink, int precision = kDefaultPrecision, bool line_mode = false);

  void WriteBoolean(bool value) override;
  void WriteInteger(int32_t value) override;
  void WriteReal(float value) override;
  void WriteString(const char16_t* units, size_t count) override;
  void WriteByteString(const uint8_t* bytes, size_t size) override;
  void WriteHexString(const uint8_t* bytes, size_t size) override;
  void WriteName(const char16_t* units, size_t count) override;
  void BeginArray() override;
  void EndArray() override;
  void BeginDictionary() override;
  void EndDictionary() override;
  using PDFWriter::WriteName;
  using PDFWriter::WriteString;

  // Decimal places of reals, clamped to 0..5.
  void SetPrecision(int places);
  int precision() const { return precision_; }
  // 1 = line mode (line feeds between entries outside arrays); anything else = spaces only.
  void SetLineMode(int mode) { line_mode_ = mode; }
  int line_mode() const { return line_mode_; }
  // Sets the one-shot flag: the next separator outside arrays in line mode is a space.
  void SetOneShot(bool on) { one_shot_ = on; }
  bool one_shot() const { return one_shot_; }
  int dictionary_depth() const { return dict_depth_; }
  int array_depth() const { return array_depth_; }

  // The text form of a real at `places` decimal places (0..5), without a separator.
  static std::string FormatReal(float value, int places);

 private:
  void Separator();
  void Put(const char* s, size_t n) { sink_.Write(reinterpret_cast<const uint8_t*>(s), n); }
  void PutEscapedByte(std::string& out, uint8_t b);

  ByteSink& sink_;
  int precision_;
  int line_mode_;
  bool one_shot_ = false;
  int dict_depth_ = 0;
  int array_depth_ = 0;
};

// Reads the text syntax from a ByteSource in chunks of `chunk_size` bytes (never asking for
// more than that, never reading past the end the source reports). Accepts what the writer
// emits and also: numbers beginning with "+" or ".", exponents ("1e3", a real), strings with
// or without the FE FF mark (without it each byte is one code unit), hexadecimal strings
// "<...>", white space of any kind (space, tab, CR, LF, FF, NUL) and "%" comments to the end of
// the line. A number is a real when it has "." or an exponent, otherwise a signed 32-bit
// integer. Refuses with Error (source "SLOTextPDFReader", line = input line): unterminated
// strings, dictionaries and arrays, ">" not followed by ">", malformed or out-of-range numbers,
// a string of FE FF and an odd number of bytes, unknown bytes, dictionary keys that are not
// names, empty or invalid names, nesting deeper than kMaxDepth, and anything after the value.
class TextPDFReader : public PDFReader {
 public:
  static constexpr const char* kSourceName = "SLOTextPDFReader";
  static constexpr size_t kDefaultChunk = 4096;

  // `source` must outlive the reader.
  explicit TextPDFReader(ByteSource& source, size_t chunk_size = kDefaultChunk);
  // Reads a caller-owned byte range (which must outlive the reader).
  TextPDFReader(const uint8_t* data, size_t size, size_t chunk_size = kDefaultChunk);
  ~TextPDFReader() override;

  Value Parse() override;

  // Token kinds as the tokenizer reports them.
  enum class Token : uint8_t {
    kEnd = 0,
    kBoolean = 1,
    kInteger = 2,
    kReal = 3,
    kString = 4,
    kName = 5,
    kBeginArray = 7,
    kEndArray = 8,
    kBeginDictionary = 9,
    kEndDictionary = 10,
  };

 private:
  struct Lexeme {
    Token kind = Token::kEnd;
    Value value;  // for scalar tokens
  };

  bool Fill();
  int Peek();  // next byte or -1 at the end
  int Get();
  [[noreturn]] void Fail(const std::string& message) const;
  void SkipSeparators();
  Lexeme Next();
  void ReadString(Lexeme& out);
  void ReadHexString(Lexeme& out);
  void ReadNumber(Lexeme& out);
  void ReadName(Lexeme& out);
  void ReadLiteral(const char* word, bool value, Lexeme& out);
  Value ParseValue(Lexeme lex, int depth);
  static Value DecodeStringBytes(const std::string& bytes, const TextPDFReader* self);

  std::unique_ptr<MemorySource> owned_source_;
  ByteSource& source_;
  std::vector<uint8_t> chunk_;
  size_t chunk_pos_ = 0;
  size_t chunk_len_ = 0;
  bool at_end_ = false;
  int64_t offset_ = 0;  // bytes consumed
  int line_ = 1;
};

}  // namespace SLO
