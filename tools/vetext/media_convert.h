// Copies between the tool's top-down BGRA pictures and the reference host's frames, in either
// pixel format the effect accepts. Host frames are bottom-up in memory; Frame::row(y) is in
// visual order, so the flip happens in the copy the tool must make anyway.
#pragma once

#include <cstdint>

#include "media_image.h"
#include "vetext/host/host.h"

namespace vetext_tool {

// BT.709 full-range Y'CbCr of one 8-bit colour: y in 0..255, u (Cb) and v (Cr) centred on 128.
// The same matrix and rounding as the host library's colour conversion, so that colours the
// effect writes into a 'vuya' frame come back as the colours it was asked to draw.
struct Yuv8 {
  uint8_t y, u, v;
};
Yuv8 RgbToYuv709(uint8_t r, uint8_t g, uint8_t b);
void Yuv709ToRgb(uint8_t y, uint8_t u, uint8_t v, uint8_t* r, uint8_t* g, uint8_t* b);

// `frame` must have the image's size and be 'bgra' or 'vuya'. Returns false otherwise.
bool ImageToFrame(const Image& image, vxhost::Frame& frame);
// Resizes `image` to the frame and converts. Returns false for a format other than the two.
bool FrameToImage(const vxhost::Frame& frame, Image* image);

}  // namespace vetext_tool
