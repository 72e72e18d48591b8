// Seeded random dictionary trees for round-trip tests.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "engine/slo_io.h"
#include "engine/slo_text.h"

namespace dict_test {

inline std::vector<uint8_t> ToText(const SLO::Value& v, int precision = 5, bool line_mode = true) {
  std::vector<uint8_t> out;
  SLO::VectorSink sink(out);
  SLO::TextPDFWriter w(sink, precision, line_mode);
  SLO::WriteTree(w, v);
  return out;
}

inline SLO::Value FromText(const std::vector<uint8_t>& bytes, size_t chunk = 4096) {
  SLO::TextPDFReader r(bytes.data(), bytes.size(), chunk);
  return r.Parse();
}

inline SLO::Value FromText(const std::string& s, size_t chunk = 4096) {
  return FromText(std::vector<uint8_t>(s.begin(), s.end()), chunk);
}

// Random trees. With `text_safe`, reals are multiples of 1/32 below 2^20 (exact at five places)
// so that the text form reads back bit for bit; otherwise any bit pattern may appear.
class TreeGen {
 public:
  TreeGen(uint32_t seed, bool text_safe) : rng_(seed), text_safe_(text_safe) {}

  SLO::Value Tree(int depth = 0) {
    int pick = Int(0, depth >= 5 ? 5 : 7);
    switch (pick) {
      case 0:
        return SLO::Value::Boolean(Int(0, 1) == 1);
      case 1:
        return SLO::Value::Integer(static_cast<int32_t>(rng_()));
      case 2:
        return SLO::Value::Real(Real());
      case 3:
        return SLO::Value::String(String());
      case 4:
      case 5:
        return SLO::Value::Name(Name());
      case 6: {
        SLO::Value a = SLO::Value::Array();
        for (int i = Int(0, 4); i > 0; --i) a.Push(Tree(depth + 1));
        return a;
      }
      default: {
        SLO::Value d = SLO::Value::Dictionary();
        for (int i = Int(0, 4); i > 0; --i) d.Add(Name(), Tree(depth + 1));
        return d;
      }
    }
  }

  int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

  float Real() {
    if (text_safe_) return static_cast<float>(Int(-(1 << 25), 1 << 25)) / 32.0f;
    uint32_t bits = static_cast<uint32_t>(rng_());
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
  }

  std::u16string String() {
    std::u16string s;
    for (int i = Int(0, 12); i > 0; --i) {
      switch (Int(0, 3)) {
        case 0:  // the bytes the writer must escape, in either half
          s.push_back(static_cast<char16_t>(u"()\\"[Int(0, 2)] << (Int(0, 1) * 8)));
          break;
        case 1:
          s.push_back(static_cast<char16_t>(Int(0, 0xFFFF)));
          break;
        case 2:  // a surrogate pair
          s.push_back(static_cast<char16_t>(Int(0xD800, 0xDBFF)));
          s.push_back(static_cast<char16_t>(Int(0xDC00, 0xDFFF)));
          break;
        default:
          s.push_back(static_cast<char16_t>(Int(0x20, 0x7E)));
      }
    }
    return s;
  }

  std::string Name() {
    std::string n;
    for (int i = Int(1, 10); i > 0; --i) {
      char c;
      do c = static_cast<char>(Int(0x21, 0x7E));
      while (SLO::CheckNameUnit(static_cast<char16_t>(c)) != 0);
      n.push_back(c);
    }
    return n;
  }

 private:
  std::mt19937 rng_;
  bool text_safe_;
};

}  // namespace dict_test
