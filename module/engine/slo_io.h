// The common writer and reader interfaces of the engine's dictionary format, byte sinks and
// sources, and the helpers that move a Value tree through them. Private to the module.
//
// The tree-producing code (documents, sheets, resources) is written once against PDFWriter and
// runs unchanged over the text writer, the binary writer or a TreeWriter. Errors are raised as
// SLO::Error. Writers and readers belong to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/slo_value.h"

namespace SLO {

// Where writers put their bytes. Write may throw (std::bad_alloc, an I/O error of its own).
class ByteSink {
 public:
  virtual ~ByteSink() = default;
  virtual void Write(const uint8_t* data, size_t size) = 0;
};

// Appends to a caller-owned vector.
class VectorSink : public ByteSink {
 public:
  explicit VectorSink(std::vector<uint8_t>& out) : out_(out) {}
  void Write(const uint8_t* data, size_t size) override {
    out_.insert(out_.end(), data, data + size);
  }

 private:
  std::vector<uint8_t>& out_;
};

// Where the text reader takes its bytes from, one chunk at a time. Read fills at most `capacity`
// bytes and returns how many; 0 means the end of the input.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual size_t Read(uint8_t* buffer, size_t capacity) = 0;
};

// Hands out a caller-owned byte range (which must outlive the source).
class MemorySource : public ByteSource {
 public:
  MemorySource(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  size_t Read(uint8_t* buffer, size_t capacity) override;

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

// The writer interface: the eighteen operations in their fixed slot order (slot 0 is the
// destructor). The two begin/end pairs of arrays and of dictionaries are the same operation
// under two names, kept so that both writers present the same table.
class PDFWriter {
 public:
  virtual ~PDFWriter() = default;                                     // 0
  virtual void WriteBoolean(bool value) = 0;                          // 1
  virtual void WriteInteger(int32_t value) = 0;                       // 2
  virtual void WriteReal(float value) = 0;                            // 3
  virtual void WriteString(const char16_t* units, size_t count) = 0;  // 4
  // Raw bytes as a string without a byte-order mark; readers give them back as a string whose
  // code units are the bytes.
  virtual void WriteByteString(const uint8_t* bytes, size_t size) = 0;  // 5
  // The same bytes in hexadecimal form ("<" hex digits ">" in text); read back like slot 5.
  virtual void WriteHexString(const uint8_t* bytes, size_t size) = 0;  // 6
  // A UTF-8 string written as the UTF-16 string it encodes (invalid sequences become U+FFFD).
  virtual void WriteUTF8String(std::string_view utf8);  // 7
  // Throws Error when a code unit breaks the name rules (see CheckNameUnit); an empty name
  // writes nothing.
  virtual void WriteName(const char16_t* units, size_t count) = 0;  // 8
  virtual void BeginArray() = 0;                                    // 9
  virtual void EndArray() = 0;                                      // 10
  virtual void BeginInlineArray() { BeginArray(); }                 // 11
  virtual void EndInlineArray() { EndArray(); }                     // 12
  virtual void BeginDictionary() = 0;                               // 13
  virtual void EndDictionary() = 0;                                 // 14
  virtual void BeginInlineDictionary() { BeginDictionary(); }       // 15
  virtual void EndInlineDictionary() { EndDictionary(); }           // 16
  virtual void Idle() {}                                            // 17

  // Conveniences over the slots above (not slots themselves).
  void WriteString(const std::u16string& s) { WriteString(s.data(), s.size()); }
  void WriteName(std::string_view ascii);
  void WriteKey(std::string_view ascii) { WriteName(ascii); }
};

// The reader interface: destructor and parse. Parse reads one whole value (normally the root
// dictionary) and the end of the input after it; anything else raises Error.
class PDFReader {
 public:
  virtual ~PDFReader() = default;
  virtual Value Parse() = 0;
};

// A writer that builds the Value tree instead of bytes: the tree-producing code writes into it
// to obtain the tree itself. Values written at the top level after the first are refused.
class TreeWriter : public PDFWriter {
 public:
  void WriteBoolean(bool value) override { Put(Value::Boolean(value)); }
  void WriteInteger(int32_t value) override { Put(Value::Integer(value)); }
  void WriteReal(float value) override { Put(Value::Real(value)); }
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

  // True once a complete top-level value has been written.
  bool Done() const { return done_; }
  // The finished tree (Error when it is not complete).
  Value Take();

 private:
  void Put(Value v);
  void Open(Value v);
  void Close(Value::Kind kind);

  std::vector<Value> stack_;      // open containers
  std::vector<std::string> key_;  // per open dictionary: a key waiting for its value
  std::vector<bool> has_key_;
  Value root_;
  bool done_ = false;
};

// Writes `value` through the writer's slots (dictionaries as key name + value pairs).
void WriteTree(PDFWriter& writer, const Value& value);

}  // namespace SLO
