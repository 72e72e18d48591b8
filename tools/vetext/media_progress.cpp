#include "media_progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace vetext_tool {

ProgressBar::ProgressBar(int64_t total, bool enabled)
    : total_(total), enabled_(enabled), start_(std::chrono::steady_clock::now()), last_() {}

bool ProgressBar::StderrIsTerminal() {
  return isatty(STDERR_FILENO) == 1;
}

void ProgressBar::Update(int64_t done) {
  if (!enabled_) return;
  auto now = std::chrono::steady_clock::now();
  // Redraw at most ten times a second, and always for the last frame.
  if (drawn_ && now - last_ < std::chrono::milliseconds(100) && done != total_) return;
  last_ = now;
  drawn_ = true;
  double secs = std::chrono::duration<double>(now - start_).count();
  double fps = secs > 0 ? double(done) / secs : 0.0;
  char line[160];
  if (total_ > 0) {
    const int kWidth = 30;
    int filled = int(double(done) / double(total_) * kWidth);
    if (filled > kWidth) filled = kWidth;
    std::string bar(size_t(filled), '#');
    bar.append(size_t(kWidth - filled), '.');
    double left = fps > 0 ? double(total_ - done) / fps : 0.0;
    std::snprintf(line, sizeof line, "\r[%s] %lld/%lld  %.1f fps  %d:%02d left ", bar.c_str(),
                  static_cast<long long>(done), static_cast<long long>(total_), fps, int(left) / 60,
                  int(left) % 60);
  } else {
    std::snprintf(line, sizeof line, "\r%lld frames  %.1f fps ", static_cast<long long>(done), fps);
  }
  std::fputs(line, stderr);
  std::fflush(stderr);
}

void ProgressBar::Finish() {
  if (enabled_ && drawn_) std::fputs("\n", stderr);
  drawn_ = false;
}

}  // namespace vetext_tool
