// UTF-8 <-> UTF-16 conversions. Bad input is replaced, never rejected: every maximal ill-formed
// subsequence of UTF-8 and every unpaired surrogate becomes one U+FFFD, so text from any source
// can be shown and written as JSON.
#include <cstring>

#include "vetext/vxcore.h"

namespace vxcore {

std::u16string UTF8ToUTF16(const char* s, size_t size) {
  std::u16string out;
  if (!s || size == 0) return out;
  // Every unit written consumes at least one byte (a 4-byte sequence gives 2 units).
  out.resize(size);
  char16_t* o = out.data();
  const auto* b = reinterpret_cast<const unsigned char*>(s);
  size_t i = 0;
  while (i < size) {
    unsigned c = b[i];
    if (c < 0x80) {
      *o++ = static_cast<char16_t>(c);
      ++i;
      continue;
    }
    uint32_t cp;
    size_t len;
    unsigned lo = 0x80, hi = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2;
      cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3;
      cp = c & 0x0F;
      if (c == 0xE0) lo = 0xA0;  // overlong
      if (c == 0xED) hi = 0x9F;  // encoded surrogate
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4;
      cp = c & 0x07;
      if (c == 0xF0) lo = 0x90;  // overlong
      if (c == 0xF4) hi = 0x8F;  // beyond U+10FFFF
    } else {
      *o++ = 0xFFFD;
      ++i;
      continue;
    }
    size_t j = 1;
    for (; j < len; ++j) {
      if (i + j >= size) break;
      unsigned t = b[i + j];
      if (t < lo || t > hi) break;
      cp = (cp << 6) | (t & 0x3F);
      lo = 0x80;
      hi = 0xBF;
    }
    if (j < len) {
      *o++ = 0xFFFD;
      i += j;
      continue;
    }
    i += len;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      *o++ = static_cast<char16_t>(0xD800 + (cp >> 10));
      *o++ = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    } else {
      *o++ = static_cast<char16_t>(cp);
    }
  }
  out.resize(static_cast<size_t>(o - out.data()));
  return out;
}

std::string UTF16ToUTF8(const char16_t* s, size_t size) {
  std::string out;
  if (!s || size == 0) return out;
  // At most three bytes per unit: a pair of units makes four bytes.
  out.resize(size * 3);
  auto* o = reinterpret_cast<unsigned char*>(out.data());
  size_t i = 0;
  while (i < size) {
    uint32_t c = s[i++];
    if (c < 0x80) {
      *o++ = static_cast<unsigned char>(c);
      continue;
    }
    if (c >= 0xD800 && c <= 0xDFFF) {
      if (c <= 0xDBFF && i < size && s[i] >= 0xDC00 && s[i] <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (s[i++] - 0xDC00u);
      } else {
        c = 0xFFFD;
      }
    }
    if (c < 0x800) {
      *o++ = static_cast<unsigned char>(0xC0 | (c >> 6));
      *o++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      *o++ = static_cast<unsigned char>(0xE0 | (c >> 12));
      *o++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
      *o++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    } else {
      *o++ = static_cast<unsigned char>(0xF0 | (c >> 18));
      *o++ = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
      *o++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
      *o++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    }
  }
  out.resize(static_cast<size_t>(o - reinterpret_cast<unsigned char*>(out.data())));
  return out;
}

}  // namespace vxcore
