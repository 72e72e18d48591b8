// The component runtime: reference-counted start and stop, and a look-up of the procedures the
// text engine binds to. The engine here is linked into the module, so the look-up has nothing of
// its own to resolve yet; it answers null for every name, which the binding layer accepts.
#include "vetext/corvo.h"

#include <atomic>

namespace {
std::atomic<int> g_starts{0};
std::atomic<bool> g_fail{false};

void* LookupProc(const char*, const char*, const char*) {
  return nullptr;
}
}  // namespace

CorvoLookupProc InitCorvoComponents(void) {
  if (g_fail.load()) return nullptr;
  g_starts.fetch_add(1);
  return &LookupProc;
}

bool TerminateCorvoComponents(void) {
  int n = g_starts.load();
  while (n > 0 && !g_starts.compare_exchange_weak(n, n - 1)) {
  }
  return n > 0;
}

void CorvoSetFailForTesting(bool fail) {
  g_fail.store(fail);
}
