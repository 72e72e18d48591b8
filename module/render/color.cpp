#include "render/color.h"

#include <cmath>

#include "vetext/effect.h"
#include "vetext/vxcore.h"

namespace vetext {

PixelColor ColorToPixel(uint8_t /*alpha*/, uint8_t red, uint8_t green, uint8_t blue,
                        uint32_t pixel_format, float opacity) {
  const float k255 = 255.0f;
  PixelColor p;
  if (pixel_format == kPixelFormatVUYA) {
    uint32_t rgb = uint32_t(red) | uint32_t(green) << 8 | uint32_t(blue) << 16;
    VxYUV yuv = ColorRGBtoYUV(rgb);
    p.c[0] = float(yuv.v) / k255 + 0.5f;
    p.c[1] = float(yuv.u) / k255 + 0.5f;
    p.c[2] = float(yuv.y) / k255;
  } else {
    p.c[0] = float(blue) / k255;
    p.c[1] = float(green) / k255;
    p.c[2] = float(red) / k255;
  }
  p.c[3] = opacity;
  return p;
}

uint8_t ChannelToByte(float v) {
  if (!(v > 0.0f)) return 0;
  if (v >= 1.0f) return 255;
  return static_cast<uint8_t>(std::lround(v * 255.0f));
}

namespace {
void ToBytes(float r, float g, float b, uint32_t pixel_format, uint8_t out[3]) {
  PixelColor p =
      ColorToPixel(255, ChannelToByte(r), ChannelToByte(g), ChannelToByte(b), pixel_format, 1.0f);
  for (int i = 0; i < 3; ++i) out[i] = ChannelToByte(p.c[i]);
}
}  // namespace

GlyphPaint PaintForRecord(const CharacterRecord& c, uint32_t pixel_format) {
  GlyphPaint paint;
  ToBytes(c.mFillRed, c.mFillGreen, c.mFillBlue, pixel_format, paint.fill);
  ToBytes(c.mStrokeRed, c.mStrokeGreen, c.mStrokeBlue, pixel_format, paint.stroke);
  return paint;
}

}  // namespace vetext
