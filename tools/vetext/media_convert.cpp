#include "media_convert.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vetext_tool {
namespace {

constexpr double kKr = 0.2126, kKb = 0.0722, kKg = 1.0 - kKr - kKb;

inline uint8_t Clamp8(double v) {
  long r = std::lround(v);
  return uint8_t(std::clamp(r, 0L, 255L));
}

}  // namespace

Yuv8 RgbToYuv709(uint8_t r, uint8_t g, uint8_t b) {
  double y = kKr * r + kKg * g + kKb * b;
  double cb = (b - y) / (2.0 * (1.0 - kKb));
  double cr = (r - y) / (2.0 * (1.0 - kKr));
  // Round the signed chroma before the offset, as the host library does (halves away from 0).
  return {Clamp8(y), Clamp8(double(std::lround(cb)) + 128.0),
          Clamp8(double(std::lround(cr)) + 128.0)};
}

void Yuv709ToRgb(uint8_t y, uint8_t u, uint8_t v, uint8_t* r, uint8_t* g, uint8_t* b) {
  double cb = double(u) - 128.0, cr = double(v) - 128.0;
  double rr = y + 2.0 * (1.0 - kKr) * cr;
  double bb = y + 2.0 * (1.0 - kKb) * cb;
  double gg = (y - kKr * rr - kKb * bb) / kKg;
  *r = Clamp8(rr);
  *g = Clamp8(gg);
  *b = Clamp8(bb);
}

bool ImageToFrame(const Image& image, vxhost::Frame& frame) {
  if (frame.width() != image.width || frame.height() != image.height) return false;
  const size_t row_len = image.stride();
  if (frame.pixel_format() == kPixelFormatBGRA) {
    for (int32_t y = 0; y < image.height; ++y) std::memcpy(frame.row(y), image.row(y), row_len);
    return true;
  }
  if (frame.pixel_format() != kPixelFormatVUYA) return false;
  for (int32_t y = 0; y < image.height; ++y) {
    const uint8_t* s = image.row(y);
    uint8_t* d = frame.row(y);
    for (int32_t x = 0; x < image.width; ++x, s += 4, d += 4) {
      Yuv8 c = RgbToYuv709(s[2], s[1], s[0]);
      d[0] = c.v;
      d[1] = c.u;
      d[2] = c.y;
      d[3] = s[3];
    }
  }
  return true;
}

bool FrameToImage(const vxhost::Frame& frame, Image* image) {
  if (frame.pixel_format() != kPixelFormatBGRA && frame.pixel_format() != kPixelFormatVUYA)
    return false;
  if (image->width != frame.width() || image->height != frame.height())
    image->Resize(frame.width(), frame.height());
  const size_t row_len = image->stride();
  if (frame.pixel_format() == kPixelFormatBGRA) {
    for (int32_t y = 0; y < image->height; ++y) std::memcpy(image->row(y), frame.row(y), row_len);
    return true;
  }
  for (int32_t y = 0; y < image->height; ++y) {
    const uint8_t* s = frame.row(y);
    uint8_t* d = image->row(y);
    for (int32_t x = 0; x < image->width; ++x, s += 4, d += 4) {
      Yuv709ToRgb(s[2], s[1], s[0], &d[2], &d[1], &d[0]);
      d[3] = s[3];
    }
  }
  return true;
}

}  // namespace vetext_tool
