// Copies between the tool's top-down BGRA pictures and the reference host's frames, in either
// pixel format the effect accepts. Host frames are bottom-up in memory; Frame::row(y) is in
// visual order, so the flip happens in the copy the tool must make anyway. 'vuya' frames are
// converted with the host library's BT.709 full-range matrix, the one the effect draws with, so
// that the colours it was asked to draw come back as they were.
#pragma once

#include <cstdint>

#include "media_image.h"
#include "vetext/host/host.h"

namespace vetext_tool {

// `frame` must have the image's size and be 'bgra' or 'vuya'. Returns false otherwise.
bool ImageToFrame(const Image& image, vxhost::Frame& frame);
// Resizes `image` to the frame and converts. Returns false for a format other than the two.
bool FrameToImage(const vxhost::Frame& frame, Image* image);

}  // namespace vetext_tool
