#include "interrupt.h"

#include <signal.h>

#include <atomic>

namespace vetext_tool {
namespace {

std::atomic<bool> g_requested{false};
struct sigaction g_old_int, g_old_term;

// Async-signal-safe: one lock-free store. SA_RESETHAND puts the default action back, so a second
// signal ends the process.
void OnSignal(int) {
  g_requested.store(true, std::memory_order_relaxed);
}

}  // namespace

InterruptScope::InterruptScope() {
  g_requested.store(false);
  struct sigaction sa {};
  sa.sa_handler = &OnSignal;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESETHAND | SA_RESTART;
  sigaction(SIGINT, &sa, &g_old_int);
  sigaction(SIGTERM, &sa, &g_old_term);
}

InterruptScope::~InterruptScope() {
  sigaction(SIGINT, &g_old_int, nullptr);
  sigaction(SIGTERM, &g_old_term, nullptr);
}

bool InterruptScope::Requested() {
  return g_requested.load(std::memory_order_relaxed);
}

}  // namespace vetext_tool
