#include "media_convert.h"

#include <cstring>

#include "vetext/vxcore.h"

namespace vetext_tool {

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
      const VxYUV c = ColorRGBtoYUV(uint32_t(s[2]) | uint32_t(s[1]) << 8 | uint32_t(s[0]) << 16);
      d[0] = uint8_t(c.v + 128);
      d[1] = uint8_t(c.u + 128);
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
      const VxRGB c = ColorYUVtoRGB(VxYUV{s[2], int8_t(s[1] - 128), int8_t(s[0] - 128)});
      d[0] = c.b;
      d[1] = c.g;
      d[2] = c.r;
      d[3] = s[3];
    }
  }
  return true;
}

}  // namespace vetext_tool
