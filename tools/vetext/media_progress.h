// A one-line progress bar on stderr: frames done, frames per second and time left. It draws
// only when stderr is a terminal, so logs and pipes stay clean.
#pragma once

#include <chrono>
#include <cstdint>

namespace vetext_tool {

class ProgressBar {
 public:
  // `total` frames, or 0 when unknown (then only the count and the rate are shown).
  explicit ProgressBar(int64_t total, bool enabled);
  static bool StderrIsTerminal();
  void Update(int64_t done);
  void Finish();

 private:
  int64_t total_;
  bool enabled_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point last_;
};

}  // namespace vetext_tool
