// Project files of one instance.
//
// Format (all numbers little-endian):
//   "VXPJ"  u32 version (1)  u32 parameter count N (the declared parameters, input layer included)
//   N times:  u32 index  i32 type  u8 mode
//     mode 0 (default): nothing follows
//     mode 1 (constant): one value
//     mode 2 (keyframes): u32 count K (K >= 1), then K times: f64 seconds, one value
//   value, by type: slider and angle f64; checkbox u8 (0 or 1); point f64 x, f64 y (layer
//   pixels); arbitrary data u32 size and that many bytes, the value's flat form (command 22,
//   selectors 3 and 4). Layers and groups only ever have mode 0.
// Nothing follows the last parameter. Keyframe times are finite and strictly increasing.
//
// Loading reads everything first and changes nothing unless the whole file is good, so a bad
// file loses nothing. Every count and size is checked against the bytes actually left.
#include <cmath>
#include <cstring>

#include "host_impl.h"

namespace vxhost {

namespace {

constexpr char kMagic[4] = {'V', 'X', 'P', 'J'};
constexpr uint32_t kVersion = 1;

class Writer {
 public:
  void Bytes(const void* p, size_t n) {
    const auto* b = static_cast<const uint8_t*>(p);
    out_.insert(out_.end(), b, b + n);
  }
  void U8(uint8_t v) { out_.push_back(v); }
  void U32(uint32_t v) {
    for (int i = 0; i < 4; ++i) out_.push_back(uint8_t(v >> (8 * i)));
  }
  void F64(double d) {
    uint64_t v;
    std::memcpy(&v, &d, 8);
    for (int i = 0; i < 8; ++i) out_.push_back(uint8_t(v >> (8 * i)));
  }
  std::vector<uint8_t>& bytes() { return out_; }

 private:
  std::vector<uint8_t> out_;
};

class Reader {
 public:
  Reader(const uint8_t* p, size_t n) : p_(p), left_(p ? n : 0) {}
  size_t left() const { return left_; }
  bool Bytes(void* dst, size_t n) {
    if (n > left_) return false;
    if (n) std::memcpy(dst, p_, n);
    p_ += n;
    left_ -= n;
    return true;
  }
  bool U8(uint8_t* v) { return Bytes(v, 1); }
  bool U32(uint32_t* v) {
    uint8_t b[4];
    if (!Bytes(b, 4)) return false;
    *v = uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
    return true;
  }
  bool F64(double* d) {
    uint8_t b[8];
    if (!Bytes(b, 8)) return false;
    uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = v << 8 | b[i];
    std::memcpy(d, &v, 8);
    return true;
  }

 private:
  const uint8_t* p_;
  size_t left_;
};

bool HasValue(ParamType t) {
  return t == kParamTypeFixedSlider || t == kParamTypeAngle || t == kParamTypeCheckbox ||
         t == kParamTypePoint || t == kParamTypeArbitrary;
}

// The smallest encoding of one value of the type, to bound keyframe counts before reading.
size_t MinValueBytes(ParamType t) {
  switch (t) {
    case kParamTypeCheckbox:
      return 1;
    case kParamTypePoint:
      return 16;
    case kParamTypeArbitrary:
      return 4;
    default:
      return 8;
  }
}

void WriteValue(Writer& w, ParamType type, const ParamValue& v) {
  switch (type) {
    case kParamTypeFixedSlider:
    case kParamTypeAngle:
      w.F64(v.x);
      break;
    case kParamTypeCheckbox:
      w.U8(v.flag ? 1 : 0);
      break;
    case kParamTypePoint:
      w.F64(v.x);
      w.F64(v.y);
      break;
    case kParamTypeArbitrary:
      w.U32(uint32_t(v.bytes.size()));
      w.Bytes(v.bytes.data(), v.bytes.size());
      break;
    default:
      break;
  }
}

// Returns an error text, empty on success.
std::string ReadValue(Reader& r, ParamType type, ParamValue* v) {
  switch (type) {
    case kParamTypeFixedSlider:
    case kParamTypeAngle:
      if (!r.F64(&v->x)) return "truncated";
      if (!std::isfinite(v->x)) return "value is not a finite number";
      return {};
    case kParamTypeCheckbox: {
      uint8_t f;
      if (!r.U8(&f)) return "truncated";
      if (f > 1) return "checkbox value is neither 0 nor 1";
      v->flag = f != 0;
      return {};
    }
    case kParamTypePoint:
      if (!r.F64(&v->x) || !r.F64(&v->y)) return "truncated";
      if (!std::isfinite(v->x) || !std::isfinite(v->y)) return "point is not finite";
      return {};
    case kParamTypeArbitrary: {
      uint32_t size;
      if (!r.U32(&size)) return "truncated";
      if (size > r.left()) return "data size runs past the end";
      v->bytes.resize(size);
      r.Bytes(v->bytes.data(), size);
      return {};
    }
    default:
      return "parameter has no value";
  }
}

struct ParsedKey {
  double time = 0;
  ParamValue value;
};
struct ParsedParam {
  uint8_t mode = 0;
  ParamValue constant;
  std::vector<ParsedKey> keys;
};

}  // namespace

std::vector<uint8_t> Instance::SaveProject() const {
  Impl& inst = *impl_;
  Writer w;
  w.Bytes(kMagic, 4);
  w.U32(kVersion);
  w.U32(uint32_t(inst.decl.size()));
  std::shared_lock lock(inst.store_mutex);
  for (size_t i = 0; i < inst.decl.size(); ++i) {
    const ParamType type = inst.decl[i].param_type;
    const ParamSlot& slot = inst.slots[i];
    const bool arb = type == kParamTypeArbitrary;
    w.U32(uint32_t(i));
    w.U32(uint32_t(type));
    uint8_t mode = uint8_t(slot.mode);
    if (!HasValue(type)) mode = 0;
    if (mode == uint8_t(ValueMode::kKeyframes) && slot.keys.empty()) mode = 0;
    w.U8(mode);
    if (mode == uint8_t(ValueMode::kConstant)) {
      ParamValue v = slot.constant;
      if (arb && !inst.Flatten(int32_t(i), slot.handle, &v.bytes)) return {};
      WriteValue(w, type, v);
    } else if (mode == uint8_t(ValueMode::kKeyframes)) {
      w.U32(uint32_t(slot.keys.size()));
      for (const Keyframe& k : slot.keys) {
        w.F64(k.time);
        ParamValue v = k.value;
        if (arb && !inst.Flatten(int32_t(i), k.handle, &v.bytes)) return {};
        WriteValue(w, type, v);
      }
    }
  }
  return std::move(w.bytes());
}

bool Instance::LoadProject(const uint8_t* bytes, size_t size, std::string* error) {
  Impl& inst = *impl_;
  auto fail = [&](const std::string& text) {
    if (error) *error = text;
    return false;
  };
  if (!inst.module) return fail("the instance has no module");
  Reader r(bytes, size);
  char magic[4];
  if (!r.Bytes(magic, 4) || std::memcmp(magic, kMagic, 4) != 0) return fail("not a project file");
  uint32_t version, count;
  if (!r.U32(&version)) return fail("project truncated");
  if (version != kVersion) return fail("unsupported project version " + std::to_string(version));
  if (!r.U32(&count)) return fail("project truncated");
  if (count != inst.decl.size())
    return fail("project has " + std::to_string(count) + " parameters; the effect has " +
                std::to_string(inst.decl.size()));

  std::vector<ParsedParam> parsed(count);
  for (uint32_t i = 0; i < count; ++i) {
    const std::string where = "parameter " + std::to_string(i) + ": ";
    const ParamType type = inst.decl[i].param_type;
    uint32_t index, stored_type;
    uint8_t mode;
    if (!r.U32(&index) || !r.U32(&stored_type) || !r.U8(&mode)) return fail("project truncated");
    if (index != i) return fail(where + "out of order");
    if (int32_t(stored_type) != type) return fail(where + "type does not match the effect");
    if (mode > 2 || (mode != 0 && !HasValue(type))) return fail(where + "bad value mode");
    ParsedParam& p = parsed[i];
    p.mode = mode;
    if (mode == 1) {
      std::string e = ReadValue(r, type, &p.constant);
      if (!e.empty()) return fail(where + e);
    } else if (mode == 2) {
      uint32_t keys;
      if (!r.U32(&keys)) return fail("project truncated");
      if (keys == 0) return fail(where + "no keyframes");
      if (keys > r.left() / (8 + MinValueBytes(type)))
        return fail(where + "keyframe count runs past the end");
      p.keys.resize(keys);
      for (uint32_t k = 0; k < keys; ++k) {
        if (!r.F64(&p.keys[k].time)) return fail("project truncated");
        if (!std::isfinite(p.keys[k].time)) return fail(where + "keyframe time is not finite");
        if (k > 0 && !(p.keys[k].time > p.keys[k - 1].time))
          return fail(where + "keyframe times out of order");
        std::string e = ReadValue(r, type, &p.keys[k].value);
        if (!e.empty()) return fail(where + e);
      }
    }
  }
  if (r.left() != 0) return fail("trailing bytes after the last parameter");

  // Build the new store: arbitrary data goes back through selector 5 before anything changes.
  std::vector<ParamSlot> fresh(count);
  std::vector<std::pair<int32_t, VxHandle>> made;
  auto undo = [&]() {
    for (auto& [index, h] : made) inst.DisposeValue(index, h);
  };
  for (uint32_t i = 0; i < count; ++i) {
    const ParamDef& def = inst.decl[i];
    const bool arb = def.param_type == kParamTypeArbitrary;
    ParsedParam& p = parsed[i];
    ParamSlot& s = fresh[i];
    s.mode = ValueMode(p.mode);
    VxStatus st = kStatusOk;
    if (p.mode == 0 && arb) {
      s.handle = def.u.arb_d.dephault ? inst.CopyValue(int32_t(i), def.u.arb_d.dephault)
                                      : inst.NewValue(int32_t(i));
      if (s.handle) made.emplace_back(int32_t(i), s.handle);
    } else if (p.mode == 1) {
      s.constant = p.constant;
      if (arb) {
        s.handle = inst.Unflatten(int32_t(i), p.constant.bytes, &st);
        s.constant.bytes.clear();
      }
    } else if (p.mode == 2) {
      for (ParsedKey& pk : p.keys) {
        Keyframe k;
        k.time = pk.time;
        k.value = pk.value;
        if (arb) {
          k.handle = inst.Unflatten(int32_t(i), pk.value.bytes, &st);
          k.value.bytes.clear();
          if (st != kStatusOk) break;
          made.emplace_back(int32_t(i), k.handle);
        }
        s.keys.push_back(std::move(k));
      }
    }
    if (p.mode == 1 && s.handle) made.emplace_back(int32_t(i), s.handle);
    if (st != kStatusOk) {
      undo();
      return fail("parameter " + std::to_string(i) + ": the effect rejected its data (status " +
                  std::to_string(st) + ")");
    }
  }

  std::vector<std::pair<int32_t, VxHandle>> dropped;
  {
    std::unique_lock lock(inst.store_mutex);
    for (size_t i = 0; i < inst.slots.size(); ++i) {
      ParamSlot& s = inst.slots[i];
      if (s.handle) dropped.emplace_back(int32_t(i), s.handle);
      for (Keyframe& k : s.keys)
        if (k.handle) dropped.emplace_back(int32_t(i), k.handle);
    }
    inst.slots.swap(fresh);
  }
  for (auto& [index, h] : dropped) inst.DisposeValue(index, h);
  return true;
}

}  // namespace vxhost
