// A small image comparison for the render tests: PNG in and out, error statistics.
#pragma once

#include <string>

#include "test_layouts.h"

namespace vetext_test {

struct DiffStats {
  int max_abs = 0;
  double mean_abs = 0, psnr = 0;  // psnr in dB; infinity for identical pictures
};
// Over bytes [first, first + count) of each pixel (0, 3: colour only; 3, 1: alpha alone).
DiffStats Diff(const Buffer& a, const Buffer& b, int first = 0, int count = 4);

// 8-bit RGBA PNG files of B,G,R,A buffers (red and blue swapped on the way, so a round trip is
// exact and viewers show true colours). False with a message on failure.
bool WritePng(const std::string& path, const Buffer& b, std::string* error);
bool ReadPng(const std::string& path, Buffer* out, std::string* error);

}  // namespace vetext_test
