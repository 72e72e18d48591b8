// Pictures as the tool moves them between decoders, the effect and encoders, and PNG files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vetext_tool {

// The largest frame side the tool reads, renders or writes, in pixels.
constexpr int32_t kMaxFrameSide = 16384;

// An 8-bit BGRA picture, rows top-down and packed (stride = 4 x width). This is the one pixel
// layout every decoder produces and every encoder takes, so conversions happen in one place.
struct Image {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> pixels;

  Image() = default;
  Image(int32_t w, int32_t h) : width(w), height(h), pixels(size_t(w) * size_t(h) * 4, 0) {}
  void Resize(int32_t w, int32_t h) {
    width = w;
    height = h;
    pixels.assign(size_t(w) * size_t(h) * 4, 0);
  }
  uint8_t* row(int32_t y) { return pixels.data() + size_t(y) * size_t(width) * 4; }
  const uint8_t* row(int32_t y) const { return pixels.data() + size_t(y) * size_t(width) * 4; }
  size_t stride() const { return size_t(width) * 4; }
};

// Reads a PNG file (any bit depth or colour type) into BGRA. False with a message on failure.
bool ReadPng(const std::string& path, Image* out, std::string* error);
// Writes BGRA as an 8-bit RGBA PNG, through a temporary file beside `path` that replaces it
// only when complete. False with a message on failure; `path` is then left as it was.
bool WritePng(const std::string& path, const Image& image, std::string* error);

// Lower-cased extension of a path without the dot ("" when none).
std::string FileExtension(const std::string& path);
// True when `path` holds a printf-style frame number ("%d", "%04d"), the image-sequence form.
bool IsSequencePattern(const std::string& path);
// The file name of frame `number` of a sequence pattern (at most one "%[0N]d"; "%%" is a '%').
std::string SequenceFileName(const std::string& pattern, int64_t number);

}  // namespace vetext_tool
