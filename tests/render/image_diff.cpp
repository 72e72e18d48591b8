#include "image_diff.h"

#include <png.h>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace vetext_test {

DiffStats Diff(const Buffer& a, const Buffer& b, int first, int count) {
  DiffStats s;
  if (a.W != b.W || a.H != b.H) return {255, 255, 0};
  uint64_t sum = 0, sq = 0, n = 0;
  for (size_t i = 0; i < a.px.size(); i += 4)
    for (size_t c = i + size_t(first); c < i + size_t(first + count); ++c, ++n) {
      int d = std::abs(int(a.px[c]) - int(b.px[c]));
      s.max_abs = std::max(s.max_abs, d);
      sum += uint64_t(d);
      sq += uint64_t(d * d);
    }
  s.mean_abs = n ? double(sum) / double(n) : 0;
  s.psnr = sq == 0 ? std::numeric_limits<double>::infinity()
                   : 10.0 * std::log10(255.0 * 255.0 * double(n) / double(sq));
  return s;
}

bool WritePng(const std::string& path, const Buffer& b, std::string* error) {
  png_image img{};
  img.version = PNG_IMAGE_VERSION, img.format = PNG_FORMAT_BGRA;
  img.width = png_uint_32(b.W), img.height = png_uint_32(b.H);
  if (png_image_write_to_file(&img, path.c_str(), 0, b.px.data(), b.W * 4, nullptr)) return true;
  *error = path + ": " + img.message;
  return false;
}

bool ReadPng(const std::string& path, Buffer* out, std::string* error) {
  png_image img{};
  img.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&img, path.c_str())) {
    img.format = PNG_FORMAT_BGRA;
    *out = Buffer(int32_t(img.width), int32_t(img.height));
    if (png_image_finish_read(&img, nullptr, out->data(), out->W * 4, nullptr)) return true;
  }
  *error = path + ": " + img.message;
  png_image_free(&img);
  return false;
}

}  // namespace vetext_test
