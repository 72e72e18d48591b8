// Debug traces: formatted here, handed to whatever sink the host installed (none by default).
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include "vetext/vxcore.h"

namespace vxcore {
namespace {
std::atomic<TraceSink> g_sink{nullptr};
}

void SetTraceSink(TraceSink sink) {
  g_sink.store(sink, std::memory_order_release);
}

void Trace(const char* format, ...) {
  TraceSink sink = g_sink.load(std::memory_order_acquire);
  if (!sink || !format) return;
  char small[512];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  int n = std::vsnprintf(small, sizeof small, format, args);
  va_end(args);
  if (n < 0) {
    va_end(again);
    return;
  }
  if (static_cast<size_t>(n) < sizeof small) {
    va_end(again);
    sink(small);
    return;
  }
  std::vector<char> big(static_cast<size_t>(n) + 1);
  std::vsnprintf(big.data(), big.size(), format, again);
  va_end(again);
  sink(big.data());
}

}  // namespace vxcore
