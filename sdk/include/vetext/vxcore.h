// vetext host library "vxcore": JSON value model, hashing, a recursive mutex, UTF conversions,
// recycled memory and tracing. C++ API; exported from libvxhost.
//
// Thread safety: free functions are re-entrant; a Variant tree, a MixHash and a RecycledMemory
// belong to one thread at a time; RecursiveMutex is the exception, made to be shared.
#ifndef VETEXT_VXCORE_H
#define VETEXT_VXCORE_H

#include <boost/any.hpp>
#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "vetext/vx_api.h"

namespace vxcore {

// ---- JSON value model ----------------------------------------------------------------------
// A value is a boost::any holding exactly one of:
//   Object (members in insertion order), Array, std::string (UTF-8), bool,
//   int64_t, uint64_t, double (numbers keep the kind they were written or parsed with),
//   or nothing (an empty any: JSON null).
// Values are shared through VariantPtr; an Object or Array owns its members through them.
using Variant = boost::any;
using VariantPtr = boost::shared_ptr<Variant>;
using Object = std::vector<std::pair<std::string, VariantPtr>>;
using Array = std::vector<VariantPtr>;

VX_API VariantPtr MakeVariant(Variant v);
VX_API VariantPtr MakeObject();
VX_API VariantPtr MakeArray();

// Appends member `key` to the object held by `object` (which must hold an Object; otherwise
// boost::bad_any_cast is thrown). Keys are not de-duplicated: the writer's order is kept.
VX_API void AddToObject(const VariantPtr& object, const std::string& key, VariantPtr value);
// Appends to the Array held by `array` (boost::bad_any_cast when it holds none).
VX_API void AppendToArray(const VariantPtr& array, VariantPtr value);
// The first member named `key`, or null when absent.
VX_API VariantPtr GetVariantInObject(const Object& object, const std::string& key);

// Parses UTF-16 JSON text (code units, native order, no terminator needed). Returns null when
// the text is not well-formed JSON or nests deeper than kMaxJSONDepth. Integers that fit int64
// parse as int64_t, larger non-negative ones as uint64_t, everything else as double. Unpaired
// surrogates in strings become U+FFFD. Never reads outside [text, text + length).
constexpr int kMaxJSONDepth = 256;
VX_API VariantPtr JSONParse(const char16_t* text, size_t length);
inline VariantPtr JSONParse(const std::u16string& text) {
  return JSONParse(text.data(), text.size());
}
// Writes `value` as UTF-16 JSON: compact, or indented when `formatted`. Doubles are written so
// that they read back to the same double; int64/uint64 as integers. Throws
// boost::bad_any_cast for a held type outside the model.
VX_API std::u16string GetJSONString(const VariantPtr& value, bool formatted);

// ---- streaming JSON ------------------------------------------------------------------------
// For readers that fill their own records: no tree is built, so a value costs no allocation.
//
// Events of JSONRead. Strings and keys arrive as UTF-8 (converted as UTF16ToUTF8 does; the
// bytes are valid only during the call, not terminated). Integers arrive in the kind JSONParse
// gives them: Int64 when they fit int64, Uint64 when larger; other numbers as Double. A handler
// returns false to stop the walk (JSONRead then returns false); an exception thrown by a
// handler passes out of JSONRead unchanged.
class VX_API JSONHandler {
 public:
  virtual ~JSONHandler();
  virtual bool Null() = 0;
  virtual bool Bool(bool b) = 0;
  virtual bool Int64(int64_t i) = 0;
  virtual bool Uint64(uint64_t u) = 0;
  virtual bool Double(double d) = 0;
  virtual bool String(const char* utf8, size_t size) = 0;
  virtual bool StartObject() = 0;
  virtual bool Key(const char* utf8, size_t size) = 0;
  virtual bool EndObject() = 0;
  virtual bool StartArray() = 0;
  virtual bool EndArray() = 0;
};

// Walks UTF-16 JSON text, calling `handler` once per event in text order. Accepts exactly the
// texts JSONParse accepts (the same nesting limit, lone surrogates become U+FFFD) and returns
// false for the others; events delivered before a fault are not taken back. Never reads
// outside [text, text + length).
VX_API bool JSONRead(const char16_t* text, size_t length, JSONHandler& handler);

// Writes JSON text as a stream of events, giving the same text as GetJSONString of the tree
// the same events would build (compact, or indented when `formatted`): doubles read back to the
// same double, NaN and infinities as null, invalid UTF-8 as U+FFFD. The caller keeps the events
// balanced (a key before each member value). One thread at a time.
class VX_API JSONWriter {
 public:
  explicit JSONWriter(bool formatted = false);
  ~JSONWriter();
  JSONWriter(const JSONWriter&) = delete;
  JSONWriter& operator=(const JSONWriter&) = delete;

  void Null();
  void Bool(bool b);
  void Int64(int64_t i);
  void Uint64(uint64_t u);
  void Double(double d);
  void String(const char* utf8, size_t size);
  void String(const std::string& utf8) { String(utf8.data(), utf8.size()); }
  void StartObject();
  void Key(const char* utf8, size_t size);
  void Key(const std::string& utf8) { Key(utf8.data(), utf8.size()); }
  void EndObject();
  void StartArray();
  void EndArray();
  // The text written so far; the writer is empty and ready for a new value afterwards.
  std::u16string TakeText();

 private:
  struct Impl;
  Impl* impl_;
};

// ---- hashing -------------------------------------------------------------------------------
// A 128-bit stream hash (XXH3-128): the same bytes give the same value on every run and machine.
class VX_API MixHash {
 public:
  MixHash();
  ~MixHash();
  MixHash(const MixHash&) = delete;
  MixHash& operator=(const MixHash&) = delete;
  void MixInData(const void* data, size_t size);
  // The digest as 16 bytes, most significant first (the canonical XXH128 form). The hash may
  // be finished more than once; more data may follow.
  void Finish(uint8_t out[16]) const;
  uint64_t Length() const { return length_; }

 private:
  void* state_;
  uint64_t length_ = 0;
};

// ---- locking -------------------------------------------------------------------------------
// A recursive mutex usable as a static object (constructed at load, destroyed at unload).
class VX_API RecursiveMutex {
 public:
  void lock() { m_.lock(); }
  bool try_lock() { return m_.try_lock(); }
  void unlock() { m_.unlock(); }

 private:
  std::recursive_mutex m_;
};

// ---- UTF conversions -----------------------------------------------------------------------
// Invalid input (bad UTF-8 sequences, unpaired surrogates) becomes U+FFFD; never throws on
// content, never reads past `size`.
VX_API std::u16string UTF8ToUTF16(const char* s, size_t size);
VX_API std::string UTF16ToUTF8(const char16_t* s, size_t size);
inline std::u16string UTF8ToUTF16(const std::string& s) {
  return UTF8ToUTF16(s.data(), s.size());
}
inline std::string UTF16ToUTF8(const std::u16string& s) {
  return UTF16ToUTF8(s.data(), s.size());
}

// ---- recycled memory -----------------------------------------------------------------------
// A block of at least `size` bytes taken from a process-wide pool of reusable blocks and given
// back by the destructor, so that per-frame buffers of similar size cost no fresh pages. The
// contents are not cleared. Throws std::bad_alloc when no memory can be had. Thread safe.
class VX_API RecycledMemory {
 public:
  explicit RecycledMemory(size_t size);
  ~RecycledMemory();
  RecycledMemory(const RecycledMemory&) = delete;
  RecycledMemory& operator=(const RecycledMemory&) = delete;
  void* data() const { return data_; }
  size_t size() const { return size_; }
  // Frees every pooled block not in use (for tests and memory pressure).
  static void Trim();
  // Bytes currently held by the pool and not in use.
  static size_t PooledBytes();

 private:
  void* data_;
  size_t size_;
  size_t capacity_;
};

// ---- trace ---------------------------------------------------------------------------------
// Debug traces go to the sink set here (none by default); the text is UTF-8, one line a call.
using TraceSink = void (*)(const char* line);
VX_API void SetTraceSink(TraceSink sink);
VX_API void Trace(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vxcore

// ---- colour (host foundation) --------------------------------------------------------------
// Converts a packed colour (red | green << 8 | blue << 16) to BT.709 full-range Y'CbCr:
// Y in 0..255, U (Cb) and V (Cr) as signed bytes centred on 0. The same matrix serves the
// reference host's 'vuya' frames, so a colour written through it reads back through the host's
// conversion to within rounding.
struct VxYUV {
  uint8_t y;
  int8_t u;
  int8_t v;
};
VX_EXTERN_C VX_API VxYUV ColorRGBtoYUV(uint32_t rgb);

// The inverse of ColorRGBtoYUV (same matrix), rounded and clamped to 0..255 per channel; for
// hosts that turn 'vuya' frames back into RGB.
struct VxRGB {
  uint8_t r;
  uint8_t g;
  uint8_t b;
};
VX_EXTERN_C VX_API VxRGB ColorYUVtoRGB(VxYUV yuv);

#endif
