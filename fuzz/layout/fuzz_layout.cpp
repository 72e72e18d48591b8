// Layout texts from untrusted bytes (UTF-16 code units): reading fails only with the engine's
// error or a type error of the value model, and a layout that was read writes a text that reads
// back to the same record.
#include <boost/any.hpp>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "document/layout_json.h"
#include "engine/kte.h"

namespace {

bool AllFinite(const vetext::LayoutRecord& l) {
  auto ok = [](float f) { return std::isfinite(f); };
  if (!ok(l.mLeft) || !ok(l.mTop) || !ok(l.mRight) || !ok(l.mBottom) || !ok(l.mOverSampling))
    return false;
  for (const auto& c : l.mCharacters) {
    for (float f : {c.mFontSize, c.mOriginX, c.mOriginY, c.mLeft, c.mTop, c.mWidth, c.mHeight,
                    c.mFillRed, c.mFillGreen, c.mFillBlue, c.mStrokeRed, c.mStrokeGreen,
                    c.mStrokeBlue, c.mStrokeWidth, c.mBaselineShift})
      if (!ok(f)) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<char16_t> text(size / 2);
  if (!text.empty()) std::memcpy(text.data(), data, text.size() * 2);
  vetext::LayoutRecord layout;
  try {
    vetext::TextToLayout(text.data(), text.size(), layout);
  } catch (const KTE::Error&) {
    return 0;
  } catch (const boost::bad_any_cast&) {
    return 0;
  }
  // Numbers beyond the float range become infinities, which JSON cannot carry: only finite
  // layouts are expected to survive a round trip.
  if (!AllFinite(layout)) return 0;
  const std::u16string written = vetext::LayoutToText(layout);
  vetext::LayoutRecord again;
  vetext::TextToLayout(written.data(), written.size(), again);
  if (!(again == layout)) std::abort();
  return 0;
}
