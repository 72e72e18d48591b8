// The engine's dictionary tree in a compact binary form: BinaryPDFWriter writes it through the
// common writer interface, BinaryPDFReader reads it back into a Value tree.
//
// Layout (all multi-byte numbers little-endian):
//
//   header   "KTDB" (4 bytes), format version 1 (1 byte)
//   value    one tag byte, then the payload of that tag:
//     0x01 false, 0x02 true                         no payload
//     0x03 integer                                  zigzag-encoded LEB128 varint (a signed
//                                                   32-bit value; at most 5 bytes)
//     0x04 real                                     4 bytes, IEEE-754 single precision
//     0x05 string                                   varint count of UTF-16 code units, then the
//                                                   units, 2 bytes each
//     0x06 byte string                              varint byte count, then the bytes (read back
//                                                   as a string of one code unit per byte)
//     0x07 name                                     varint byte count (at least 1), then the
//                                                   bytes, each a valid name character
//     0x08 begin array, 0x09 end array              elements between them
//     0x0A begin dictionary, 0x0B end dictionary    name + value pairs between them
//
// A file holds exactly one value after the header. Varints are unsigned LEB128 (7 bits a byte,
// low group first, high bit = more follows) of at most 10 bytes. The reader checks every count
// against the bytes actually left before it allocates or copies anything.
#pragma once

#include <cstddef>
#include <cstdint>

#include "engine/slo_io.h"

namespace SLO {

constexpr uint8_t kBinaryMagic[4] = {'K', 'T', 'D', 'B'};
constexpr uint8_t kBinaryVersion = 1;

class BinaryPDFWriter : public PDFWriter {
 public:
  static constexpr const char* kSourceName = "SLOBinaryPDFWriter";

  // Writes the header at once; `sink` must outlive the writer.
  explicit BinaryPDFWriter(ByteSink& sink);

  void WriteBoolean(bool value) override;
  void WriteInteger(int32_t value) override;
  void WriteReal(float value) override;
  void WriteString(const char16_t* units, size_t count) override;
  void WriteByteString(const uint8_t* bytes, size_t size) override;
  void WriteHexString(const uint8_t* bytes, size_t size) override;
  // The same name rules as the text writer (Error with line 424 or 439); an empty name writes
  // nothing.
  void WriteName(const char16_t* units, size_t count) override;
  void BeginArray() override;
  void EndArray() override;
  void BeginDictionary() override;
  void EndDictionary() override;
  using PDFWriter::WriteName;
  using PDFWriter::WriteString;

 private:
  void Tag(uint8_t tag);
  void Varint(uint64_t v, std::string& out);

  ByteSink& sink_;
};

// Reads a caller-owned byte range. Error (source "SLOBinaryPDFReader", line 0, offset = the
// byte where the fault was found) for a wrong header, an unknown tag, a count beyond the bytes
// left, an integer outside 32 bits, an invalid or empty name, a non-name dictionary key, an end
// tag that matches nothing, nesting deeper than kMaxDepth, or bytes after the value.
class BinaryPDFReader : public PDFReader {
 public:
  static constexpr const char* kSourceName = "SLOBinaryPDFReader";

  BinaryPDFReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  Value Parse() override;

  // True when the bytes begin with the header's magic.
  static bool HasMagic(const uint8_t* data, size_t size);

 private:
  [[noreturn]] void Fail(const std::string& message) const;
  uint8_t Byte();
  uint64_t Varint();
  size_t Count(size_t unit_size);
  Value ParseValue(uint8_t tag, int depth);

  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

}  // namespace SLO
