// Ctrl-C (SIGINT) and SIGTERM during a long command. While a scope is alive, the first signal
// only asks the command to stop at its next frame, so that it can remove or finish its output;
// a second one ends the process at once, as it would without the scope.
#pragma once

namespace vetext_tool {

class InterruptScope {
 public:
  InterruptScope();
  ~InterruptScope();
  InterruptScope(const InterruptScope&) = delete;
  InterruptScope& operator=(const InterruptScope&) = delete;
  // True once a signal arrived in this scope. Safe from any thread.
  static bool Requested();
};

// The exit status of a command stopped by an interrupt (128 + SIGINT, as shells report it).
constexpr int kExitInterrupted = 130;

}  // namespace vetext_tool
