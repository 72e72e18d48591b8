#include "engine/slo_binary.h"

#include <cstring>
#include <string>

namespace SLO {

namespace {
enum Tag : uint8_t {
  kFalse = 0x01,
  kTrue = 0x02,
  kInteger = 0x03,
  kReal = 0x04,
  kString = 0x05,
  kByteString = 0x06,
  kName = 0x07,
  kBeginArray = 0x08,
  kEndArray = 0x09,
  kBeginDictionary = 0x0A,
  kEndDictionary = 0x0B,
};
}  // namespace

// ---- writer -------------------------------------------------------------------------------

BinaryPDFWriter::BinaryPDFWriter(ByteSink& sink) : sink_(sink) {
  uint8_t header[5];
  std::memcpy(header, kBinaryMagic, 4);
  header[4] = kBinaryVersion;
  sink_.Write(header, sizeof header);
}

void BinaryPDFWriter::Tag(uint8_t tag) {
  sink_.Write(&tag, 1);
}

void BinaryPDFWriter::Varint(uint64_t v, std::string& out) {
  do {
    uint8_t b = v & 0x7F;
    v >>= 7;
    if (v != 0) b |= 0x80;
    out.push_back(static_cast<char>(b));
  } while (v != 0);
}

void BinaryPDFWriter::WriteBoolean(bool value) {
  Tag(value ? kTrue : kFalse);
}

void BinaryPDFWriter::WriteInteger(int32_t value) {
  std::string out(1, static_cast<char>(kInteger));
  uint32_t u = static_cast<uint32_t>(value);
  uint32_t zigzag = (u << 1) ^ (value < 0 ? 0xFFFFFFFFu : 0u);
  Varint(zigzag, out);
  sink_.Write(reinterpret_cast<const uint8_t*>(out.data()), out.size());
}

void BinaryPDFWriter::WriteReal(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, 4);
  uint8_t out[5] = {kReal, static_cast<uint8_t>(bits), static_cast<uint8_t>(bits >> 8),
                    static_cast<uint8_t>(bits >> 16), static_cast<uint8_t>(bits >> 24)};
  sink_.Write(out, sizeof out);
}

void BinaryPDFWriter::WriteString(const char16_t* units, size_t count) {
  std::string out(1, static_cast<char>(kString));
  Varint(count, out);
  out.reserve(out.size() + count * 2);
  for (size_t i = 0; i < count; ++i) {
    out.push_back(static_cast<char>(units[i] & 0xFF));
    out.push_back(static_cast<char>(units[i] >> 8));
  }
  sink_.Write(reinterpret_cast<const uint8_t*>(out.data()), out.size());
}

void BinaryPDFWriter::WriteByteString(const uint8_t* bytes, size_t size) {
  std::string out(1, static_cast<char>(kByteString));
  Varint(size, out);
  out.append(reinterpret_cast<const char*>(bytes), size);
  sink_.Write(reinterpret_cast<const uint8_t*>(out.data()), out.size());
}

void BinaryPDFWriter::WriteHexString(const uint8_t* bytes, size_t size) {
  WriteByteString(bytes, size);
}

void BinaryPDFWriter::WriteName(const char16_t* units, size_t count) {
  if (count == 0) return;
  std::string out(1, static_cast<char>(kName));
  Varint(count, out);
  for (size_t i = 0; i < count; ++i) {
    int line = CheckNameUnit(units[i]);
    if (line != 0)
      throw Error(kSourceName, line,
                  line == 424 ? "name character out of range" : "name holds a delimiter");
    out.push_back(static_cast<char>(units[i]));
  }
  sink_.Write(reinterpret_cast<const uint8_t*>(out.data()), out.size());
}

void BinaryPDFWriter::BeginArray() {
  Tag(kBeginArray);
}
void BinaryPDFWriter::EndArray() {
  Tag(kEndArray);
}
void BinaryPDFWriter::BeginDictionary() {
  Tag(kBeginDictionary);
}
void BinaryPDFWriter::EndDictionary() {
  Tag(kEndDictionary);
}

// ---- reader -------------------------------------------------------------------------------

bool BinaryPDFReader::HasMagic(const uint8_t* data, size_t size) {
  return size >= 4 && std::memcmp(data, kBinaryMagic, 4) == 0;
}

void BinaryPDFReader::Fail(const std::string& message) const {
  throw Error(kSourceName, 0, message, static_cast<int64_t>(pos_));
}

uint8_t BinaryPDFReader::Byte() {
  if (pos_ >= size_) Fail("unexpected end of data");
  return data_[pos_++];
}

uint64_t BinaryPDFReader::Varint() {
  uint64_t v = 0;
  for (int shift = 0; shift < 64; shift += 7) {
    uint8_t b = Byte();
    uint64_t bits = b & 0x7F;
    if (shift == 63 && bits > 1) Fail("varint out of range");
    v |= bits << shift;
    if ((b & 0x80) == 0) return v;
  }
  Fail("varint too long");
}

size_t BinaryPDFReader::Count(size_t unit_size) {
  uint64_t n = Varint();
  if (n > (size_ - pos_) / unit_size) Fail("count beyond the end of the data");
  return static_cast<size_t>(n);
}

Value BinaryPDFReader::ParseValue(uint8_t tag, int depth) {
  switch (tag) {
    case kFalse:
      return Value::Boolean(false);
    case kTrue:
      return Value::Boolean(true);
    case kInteger: {
      uint64_t z = Varint();
      if (z > 0xFFFFFFFFu) Fail("integer out of range");
      uint32_t u = static_cast<uint32_t>(z);
      return Value::Integer(static_cast<int32_t>((u >> 1) ^ (0u - (u & 1))));
    }
    case kReal: {
      if (size_ - pos_ < 4) Fail("unexpected end of data");
      uint32_t bits = static_cast<uint32_t>(data_[pos_]) | data_[pos_ + 1] << 8 |
                      data_[pos_ + 2] << 16 | static_cast<uint32_t>(data_[pos_ + 3]) << 24;
      pos_ += 4;
      float f;
      std::memcpy(&f, &bits, 4);
      return Value::Real(f);
    }
    case kString: {
      size_t n = Count(2);
      std::u16string s(n, u'\0');
      for (size_t i = 0; i < n; ++i)
        s[i] = static_cast<char16_t>(data_[pos_ + 2 * i] | data_[pos_ + 2 * i + 1] << 8);
      pos_ += 2 * n;
      return Value::String(std::move(s));
    }
    case kByteString: {
      size_t n = Count(1);
      std::u16string s(data_ + pos_, data_ + pos_ + n);
      pos_ += n;
      return Value::String(std::move(s));
    }
    case kName: {
      size_t n = Count(1);
      if (n == 0) Fail("empty name");
      for (size_t i = 0; i < n; ++i)
        if (CheckNameUnit(data_[pos_ + i]) != 0) Fail("invalid character in a name");
      std::string name(reinterpret_cast<const char*>(data_ + pos_), n);
      pos_ += n;
      return Value::Name(std::move(name));
    }
    case kBeginArray: {
      if (depth >= kMaxDepth) Fail("nesting too deep");
      Value array = Value::Array();
      for (;;) {
        uint8_t t = Byte();
        if (t == kEndArray) return array;
        if (t == kEndDictionary) Fail("end of dictionary inside an array");
        array.Push(ParseValue(t, depth + 1));
      }
    }
    case kBeginDictionary: {
      if (depth >= kMaxDepth) Fail("nesting too deep");
      Value dict = Value::Dictionary();
      for (;;) {
        uint8_t t = Byte();
        if (t == kEndDictionary) return dict;
        if (t != kName) Fail("dictionary key is not a name");
        Value key = ParseValue(t, depth + 1);
        uint8_t vt = Byte();
        if (vt == kEndDictionary || vt == kEndArray) Fail("key /" + key.name + " without a value");
        dict.Add(std::move(key.name), ParseValue(vt, depth + 1));
      }
    }
    case kEndArray:
    case kEndDictionary:
      --pos_;
      Fail("end tag without a begin");
    default:
      --pos_;
      Fail("unknown tag " + std::to_string(tag));
  }
}

Value BinaryPDFReader::Parse() {
  pos_ = 0;
  if (!HasMagic(data_, size_)) Fail("not a binary dictionary (bad magic)");
  pos_ = 4;
  uint8_t version = Byte();
  if (version != kBinaryVersion) {
    --pos_;
    Fail("unsupported binary dictionary version " + std::to_string(version));
  }
  Value root = ParseValue(Byte(), 0);
  if (pos_ != size_) Fail("data after the value");
  return root;
}

}  // namespace SLO
