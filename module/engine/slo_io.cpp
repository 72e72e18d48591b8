#include "engine/slo_io.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "vetext/vxcore.h"

namespace SLO {

size_t MemorySource::Read(uint8_t* buffer, size_t capacity) {
  size_t n = std::min(capacity, size_ - pos_);
  if (n != 0) std::memcpy(buffer, data_ + pos_, n);
  pos_ += n;
  return n;
}

void PDFWriter::WriteUTF8String(std::string_view utf8) {
  // Converted as everywhere else in the system (a malformed sequence becomes one U+FFFD).
  const std::u16string s = vxcore::UTF8ToUTF16(utf8.data(), utf8.size());
  WriteString(s.data(), s.size());
}

void PDFWriter::WriteName(std::string_view ascii) {
  std::u16string units(ascii.begin(), ascii.end());
  // Bytes above 0x7F widen to code units above 0x7E and are refused like any such unit.
  for (size_t i = 0; i < ascii.size(); ++i) units[i] = static_cast<uint8_t>(ascii[i]);
  WriteName(units.data(), units.size());
}

// ---- TreeWriter ---------------------------------------------------------------------------

namespace {
[[noreturn]] void TreeFail(const std::string& message) {
  throw Error("SLOTreeWriter", 0, message);
}
}  // namespace

void TreeWriter::Put(Value v) {
  if (stack_.empty()) {
    if (done_) TreeFail("a second value at the top level");
    root_ = std::move(v);
    done_ = true;
    return;
  }
  Value& top = stack_.back();
  if (top.IsArray()) {
    top.Push(std::move(v));
    return;
  }
  if (!has_key_.back()) TreeFail("a dictionary value without a key");
  top.Add(std::move(key_.back()), std::move(v));
  has_key_.back() = false;
}

void TreeWriter::Open(Value v) {
  if (stack_.empty() && done_) TreeFail("a second value at the top level");
  if (!stack_.empty() && stack_.back().IsDictionary() && !has_key_.back())
    TreeFail("a dictionary value without a key");
  if (static_cast<int>(stack_.size()) >= kMaxDepth) TreeFail("nesting too deep");
  stack_.push_back(std::move(v));
  key_.emplace_back();
  has_key_.push_back(false);
}

void TreeWriter::Close(Value::Kind kind) {
  if (stack_.empty() || stack_.back().kind != kind) TreeFail("end without a matching begin");
  if (has_key_.back()) TreeFail("a key without a value");
  Value v = std::move(stack_.back());
  stack_.pop_back();
  key_.pop_back();
  has_key_.pop_back();
  Put(std::move(v));
}

void TreeWriter::WriteString(const char16_t* units, size_t count) {
  Put(Value::String(std::u16string(units, count)));
}

void TreeWriter::WriteByteString(const uint8_t* bytes, size_t size) {
  Put(Value::String(std::u16string(bytes, bytes + size)));
}

void TreeWriter::WriteHexString(const uint8_t* bytes, size_t size) {
  WriteByteString(bytes, size);
}

void TreeWriter::WriteName(const char16_t* units, size_t count) {
  if (count == 0) return;
  std::string name;
  name.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    int line = CheckNameUnit(units[i]);
    if (line != 0) throw Error("SLOTreeWriter", line, "invalid character in a name");
    name.push_back(static_cast<char>(units[i]));
  }
  if (!stack_.empty() && stack_.back().IsDictionary() && !has_key_.back()) {
    key_.back() = std::move(name);
    has_key_.back() = true;
    return;
  }
  Put(Value::Name(std::move(name)));
}

void TreeWriter::BeginArray() {
  Open(Value::Array());
}
void TreeWriter::EndArray() {
  Close(Value::Kind::kArray);
}
void TreeWriter::BeginDictionary() {
  Open(Value::Dictionary());
}
void TreeWriter::EndDictionary() {
  Close(Value::Kind::kDictionary);
}

Value TreeWriter::Take() {
  if (!done_ || !stack_.empty()) TreeFail("the tree is not complete");
  done_ = false;
  return std::move(root_);
}

// ---- WriteTree ----------------------------------------------------------------------------

void WriteTree(PDFWriter& writer, const Value& value) {
  switch (value.kind) {
    case Value::Kind::kBoolean:
      writer.WriteBoolean(value.boolean);
      break;
    case Value::Kind::kInteger:
      writer.WriteInteger(value.integer);
      break;
    case Value::Kind::kReal:
      writer.WriteReal(value.real);
      break;
    case Value::Kind::kString:
      writer.WriteString(value.string.data(), value.string.size());
      break;
    case Value::Kind::kName:
      // An empty name writes nothing at all, which would leave a hole in the tree.
      if (value.name.empty()) throw Error("SLOWriteTree", 0, "empty name");
      writer.WriteName(value.name);
      break;
    case Value::Kind::kArray:
      writer.BeginArray();
      for (const Value& v : value.array) WriteTree(writer, v);
      writer.EndArray();
      break;
    case Value::Kind::kDictionary:
      writer.BeginDictionary();
      for (const Value::Entry& e : value.entries) {
        if (e.key.empty()) throw Error("SLOWriteTree", 0, "empty dictionary key");
        writer.WriteName(e.key);
        WriteTree(writer, e.value);
      }
      writer.EndDictionary();
      break;
  }
}

}  // namespace SLO
