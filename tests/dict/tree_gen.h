// Dictionary trees through the text and binary forms, and seeded random trees for round trips.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "engine/slo_binary.h"
#include "engine/slo_io.h"
#include "engine/slo_text.h"

namespace dict_test {

// Bytes a writer puts out.
struct Sink {
  std::string Str() const { return std::string(bytes.begin(), bytes.end()); }
  std::vector<uint8_t> bytes;
  SLO::VectorSink sink{bytes};
};

inline std::string ToText(const SLO::Value& v, int precision = 5, bool line_mode = true) {
  Sink out;
  SLO::TextPDFWriter w(out.sink, precision, line_mode);
  SLO::WriteTree(w, v);
  return out.Str();
}

inline SLO::Value FromText(std::string_view text, size_t chunk = 4096) {
  return SLO::TextPDFReader(reinterpret_cast<const uint8_t*>(text.data()), text.size(), chunk)
      .Parse();
}

inline std::vector<uint8_t> ToBinary(const SLO::Value& v) {
  Sink out;
  SLO::BinaryPDFWriter w(out.sink);
  SLO::WriteTree(w, v);
  return out.bytes;
}

inline SLO::Value FromBinary(const std::vector<uint8_t>& bytes) {
  // A copy of exactly the bytes, so that any read past them is caught by the sanitizers.
  std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes.size() + 1]);
  if (!bytes.empty()) std::memcpy(copy.get(), bytes.data(), bytes.size());
  return SLO::BinaryPDFReader(copy.get(), bytes.size()).Parse();
}

// The error that `f` throws; one with source "nothing thrown" and line 0 when it throws none.
template <typename F>
SLO::Error Refusal(F f) {
  try {
    f();
  } catch (const SLO::Error& e) {
    return e;
  }
  return SLO::Error("nothing thrown", 0, "");
}

// Random trees. With `text_safe`, reals are multiples of 1/32 below 2^20 (exact at five places)
// so that the text form reads back bit for bit; otherwise any bit pattern may appear.
struct TreeGen {
  TreeGen(uint32_t seed, bool text_safe) : rng_(seed), text_safe_(text_safe) {}

  SLO::Value Tree(int depth = 0) {
    using SLO::Value;
    const int pick = Int(0, depth >= 5 ? 5 : 7);
    if (pick == 0) return Value::Boolean(Int(0, 1) == 1);
    if (pick == 1) return Value::Integer(static_cast<int32_t>(rng_()));
    if (pick == 2) return Value::Real(Real());
    if (pick == 3) return Value::String(String());
    if (pick <= 5) return Value::Name(Name());
    Value v = pick == 6 ? Value::Array() : Value::Dictionary();
    for (int i = Int(0, 4); i > 0; --i)
      pick == 6 ? (void)v.Push(Tree(depth + 1)) : (void)v.Add(Name(), Tree(depth + 1));
    return v;
  }

  int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

  float Real() {
    if (text_safe_) return static_cast<float>(Int(-(1 << 25), 1 << 25)) / 32.0f;
    const uint32_t bits = static_cast<uint32_t>(rng_());
    float f;
    std::memcpy(&f, &bits, sizeof f);
    return f;
  }

  // Any code units, the bytes the writer must escape (in either half), surrogate pairs, ASCII.
  std::u16string String() {
    std::u16string s;
    for (int i = Int(0, 12); i > 0; --i) {
      const int kind = Int(0, 3);
      if (kind == 0) s.push_back(static_cast<char16_t>(u"()\\"[Int(0, 2)] << (Int(0, 1) * 8)));
      if (kind == 1) s.push_back(static_cast<char16_t>(Int(0, 0xFFFF)));
      if (kind == 2)
        s += {static_cast<char16_t>(Int(0xD800, 0xDBFF)),
              static_cast<char16_t>(Int(0xDC00, 0xDFFF))};
      if (kind == 3) s.push_back(static_cast<char16_t>(Int(0x20, 0x7E)));
    }
    return s;
  }

  std::string Name() {
    std::string n(Int(1, 10), '!');
    for (char& c : n) {
      do c = static_cast<char>(Int(0x21, 0x7E));
      while (SLO::CheckNameUnit(static_cast<char16_t>(c)) != 0);
    }
    return n;
  }

  std::mt19937 rng_;
  bool text_safe_;
};

}  // namespace dict_test
