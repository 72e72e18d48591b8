// The render command's option values from untrusted text: keyframe lists, colours, sizes and
// backgrounds. The first byte picks the parser, the rest is the value. Each parser either
// refuses with a message or returns values within the option's documented range.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "doc_options.h"
#include "keyframes.h"
#include "media_background.h"

namespace {

void Check(bool ok) {
  if (!ok) std::abort();
}

void Keyframes(const std::string& text, int components) {
  vetext_tool::Track track;
  std::string error;
  if (!vetext_tool::ParseTrackValue("--opt", text, components, &track, &error)) {
    Check(error.find("--opt") != std::string::npos);
    return;
  }
  if (track.constant) Check(std::isfinite(track.constant->x) && std::isfinite(track.constant->y));
  double last = -1;
  for (const auto& [t, v] : track.keys) {
    Check(std::isfinite(t) && t > last && std::isfinite(v.x) && std::isfinite(v.y));
    last = t;
  }
  vetext_tool::CheckTrackRange("--opt", track, 25, 400, &error);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 5) {
    case 0:
    case 1:
      Keyframes(text, 1 + data[0] % 2);
      break;
    case 2:
      try {
        const vetext_tool::Rgb c = vetext_tool::ParseColor(text);
        for (float v : {c.r, c.g, c.b}) Check(v >= 0 && v <= 1);
      } catch (const std::runtime_error& e) {
        Check(*e.what() != 0);
      }
      break;
    case 3: {
      int32_t w = -1, h = -1;
      if (vetext_tool::ParseWxH(text, 1, vetext_tool::kMaxBoxSide, &w, &h))
        Check(w >= 1 && h >= 1 && w <= vetext_tool::kMaxBoxSide && h <= vetext_tool::kMaxBoxSide);
      break;
    }
    default: {
      vetext_tool::Background bg;
      std::string error;
      if (!vetext_tool::ParseBackground(text, &bg, &error)) Check(!error.empty());
    }
  }
  return 0;
}
