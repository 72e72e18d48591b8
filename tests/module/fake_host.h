// A minimal in-process host for driving the module's handlers without loading the module:
// counted handles with an allocation failure switch, a message sink and recorded suite traffic.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "vetext/effect.h"

namespace fake {

struct Block {
  void* ptr;  // first, so that &block->ptr is the handle
  uint64_t size;
};

inline int64_t g_live = 0;
inline int64_t g_fail_after = -1;  // allocations that still succeed; -1 never fails
inline std::vector<std::string> g_released;

inline VxHandle NewHandle(uint64_t size) {
  if (g_fail_after == 0) return nullptr;
  if (g_fail_after > 0) --g_fail_after;
  auto* b = new Block{size ? ::operator new(size) : nullptr, size};
  ++g_live;
  return &b->ptr;
}
inline void DisposeHandle(VxHandle h) {
  auto* b = reinterpret_cast<Block*>(h);
  ::operator delete(b->ptr);
  delete b;
  --g_live;
}
inline uint64_t HandleSize(VxHandle h) {
  return reinterpret_cast<Block*>(h)->size;
}
inline void CopyMessage(OutputRecord* out, const char* text) {
  std::strncpy(out->message, text, sizeof out->message - 1);
}
inline void CopyText(char* dst, size_t cap, const char* src) {
  std::strncpy(dst, src, cap - 1);
  dst[cap - 1] = '\0';
}

inline VxHandle HandleOf(const std::vector<uint8_t>& bytes) {
  VxHandle h = NewHandle(bytes.size());
  if (!bytes.empty()) std::memcpy(*h, bytes.data(), bytes.size());
  return h;
}
inline std::vector<uint8_t> BytesOf(VxHandle h) {
  const auto* p = static_cast<const uint8_t*>(*h);
  return std::vector<uint8_t>(p, p + HandleSize(h));
}

// Resets the counters and returns records wired to the callbacks above.
struct Host {
  UtilCallbacks utils{};
  SuiteServices suites{};
  InputRecord in{};
  OutputRecord out{};
  Host() {
    g_live = 0;
    g_fail_after = -1;
    g_released.clear();
    utils.new_handle = &NewHandle;
    utils.dispose_handle = &DisposeHandle;
    utils.get_handle_size = &HandleSize;
    utils.copy_message = &CopyMessage;
    utils.copy_text = &CopyText;
    in.utils = &utils;
  }
};

}  // namespace fake
