#include <algorithm>
#include <cmath>
#include <string>

#include "engine/slo_text.h"

namespace SLO {

namespace {
constexpr int kPowers[6] = {1, 10, 100, 1000, 10000, 100000};
constexpr float kRealLimit = 1073741824.0f;  // 2^30
}  // namespace

TextPDFWriter::TextPDFWriter(ByteSink& sink, int precision, bool line_mode)
    : sink_(sink), precision_(std::clamp(precision, 0, 5)), line_mode_(line_mode ? 1 : 0) {}

void TextPDFWriter::SetPrecision(int places) {
  precision_ = std::clamp(places, 0, 5);
}

void TextPDFWriter::Separator() {
  char c = ' ';
  if (array_depth_ < 1 && line_mode_ == 1) {
    if (one_shot_)
      one_shot_ = false;
    else
      c = '\n';
  }
  Put(&c, 1);
}

void TextPDFWriter::WriteBoolean(bool value) {
  Separator();
  if (value)
    Put("true", 4);
  else
    Put("false", 5);
}

void TextPDFWriter::WriteInteger(int32_t value) {
  Separator();
  char buf[12];
  char* end = buf + sizeof buf;
  char* p = end;
  // Work on the magnitude as unsigned so that INT32_MIN has one.
  uint32_t mag = value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
  do {
    *--p = static_cast<char>('0' + mag % 10);
    mag /= 10;
  } while (mag != 0);
  if (value < 0) *--p = '-';
  Put(p, static_cast<size_t>(end - p));
}

std::string TextPDFWriter::FormatReal(float f, int places) {
  places = std::clamp(places, 0, 5);
  const int P = kPowers[places];
  if (std::isnan(f)) f = 0.0f;  // no digits stand for NaN; it reads back as zero
  if (std::fabs(f) - kRealLimit >= -0.005f) f = std::clamp(f, -kRealLimit, kRealLimit);
  bool negative = f < 0.0f;
  if (negative) f = -f;
  int32_t i = static_cast<int32_t>(f);  // |f| <= 2^30 here, so the truncation fits
  // The fraction is scaled in single precision, as the value is held, and rounded half away
  // from zero.
  float scaled = (f - static_cast<float>(i)) * static_cast<float>(P);
  int32_t d = static_cast<int32_t>(scaled + 0.5f);
  // The fraction never carries into the integer part: 0.9999 at three places stays below 1.
  if (d >= P) d = P - 1;
  if (i == 0 && d == 0) return "0.0";
  std::string out;
  if (negative) out.push_back('-');
  if (i != 0) out += std::to_string(i);
  out.push_back('.');
  if (d == 0) {
    out.push_back('0');
  } else {
    std::string digits = std::to_string(d);
    out.append(static_cast<size_t>(places) - digits.size(), '0');
    while (!digits.empty() && digits.back() == '0') digits.pop_back();
    out += digits;
  }
  return out;
}

void TextPDFWriter::WriteReal(float value) {
  Separator();
  std::string s = FormatReal(value, precision_);
  Put(s.data(), s.size());
}

void TextPDFWriter::PutEscapedByte(std::string& out, uint8_t b) {
  if (b == '(' || b == ')' || b == '\\') out.push_back('\\');
  out.push_back(static_cast<char>(b));
}

void TextPDFWriter::WriteString(const char16_t* units, size_t count) {
  Separator();
  std::string out;
  out.reserve(4 + count * 2);
  out.push_back('(');
  out.push_back(static_cast<char>(0xFE));
  out.push_back(static_cast<char>(0xFF));
  for (size_t i = 0; i < count; ++i) {
    PutEscapedByte(out, static_cast<uint8_t>(units[i] >> 8));
    PutEscapedByte(out, static_cast<uint8_t>(units[i] & 0xFF));
  }
  out.push_back(')');
  Put(out.data(), out.size());
}

void TextPDFWriter::WriteByteString(const uint8_t* bytes, size_t size) {
  Separator();
  std::string out;
  out.reserve(2 + size);
  out.push_back('(');
  for (size_t i = 0; i < size; ++i) PutEscapedByte(out, bytes[i]);
  out.push_back(')');
  Put(out.data(), out.size());
}

void TextPDFWriter::WriteHexString(const uint8_t* bytes, size_t size) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  Separator();
  std::string out;
  out.reserve(2 + size * 2);
  out.push_back('<');
  for (size_t i = 0; i < size; ++i) {
    out.push_back(kHex[bytes[i] >> 4]);
    out.push_back(kHex[bytes[i] & 0xF]);
  }
  out.push_back('>');
  Put(out.data(), out.size());
}

void TextPDFWriter::WriteName(const char16_t* units, size_t count) {
  if (count == 0) return;  // an empty name writes nothing, not even "/"
  bool was_one_shot = one_shot_;
  Separator();
  one_shot_ = !was_one_shot;
  // A refused name leaves exactly the bytes before the bad unit in the output.
  std::string out;
  out.reserve(count + 1);
  out.push_back('/');
  int line = 0;
  for (size_t i = 0; i < count && line == 0; ++i) {
    line = CheckNameUnit(units[i]);
    if (line == 0) out.push_back(static_cast<char>(units[i]));
  }
  Put(out.data(), out.size());
  if (line == 424) throw Error(kSourceName, 424, "name character out of range");
  if (line == 439) throw Error(kSourceName, 439, "name holds a delimiter");
}

void TextPDFWriter::BeginArray() {
  Separator();
  Put("[", 1);
  ++array_depth_;
}

void TextPDFWriter::EndArray() {
  Separator();
  if (array_depth_ > 0) --array_depth_;
  Put("]", 1);
}

void TextPDFWriter::BeginDictionary() {
  array_depth_ = 0;
  one_shot_ = false;
  Separator();
  Put("<<", 2);
  ++dict_depth_;
}

void TextPDFWriter::EndDictionary() {
  --dict_depth_;
  Separator();
  Put(">>", 2);
}

}  // namespace SLO
