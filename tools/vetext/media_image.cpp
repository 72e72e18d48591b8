#include "media_image.h"

#include <png.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "files.h"

namespace vetext_tool {

bool ReadPng(const std::string& path, Image* out, std::string* error) {
  // Open the file ourselves first so that a missing file reports the system's reason.
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    *error = "cannot open input '" + path + "': " + std::strerror(errno);
    return false;
  }
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_stdio(&image, f)) {
    *error = "cannot read PNG '" + path + "': " + image.message;
    std::fclose(f);
    return false;
  }
  if (image.width == 0 || image.height == 0 || image.width > uint32_t(kMaxFrameSide) ||
      image.height > uint32_t(kMaxFrameSide)) {
    *error = "cannot read PNG '" + path + "': it is " + std::to_string(image.width) + "x" +
             std::to_string(image.height) + "; pictures are at most " +
             std::to_string(kMaxFrameSide) + " pixels a side";
    png_image_free(&image);
    std::fclose(f);
    return false;
  }
  image.format = PNG_FORMAT_BGRA;
  out->Resize(int32_t(image.width), int32_t(image.height));
  bool ok = png_image_finish_read(&image, nullptr, out->pixels.data(), int32_t(out->stride()),
                                  nullptr) != 0;
  if (!ok) *error = "cannot read PNG '" + path + "': " + image.message;
  png_image_free(&image);
  std::fclose(f);
  return ok;
}

bool WritePng(const std::string& path, const Image& in, std::string* error) {
  OutputFile out;
  if (!out.Create(path, error)) return false;
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  image.width = png_uint_32(in.width);
  image.height = png_uint_32(in.height);
  image.format = PNG_FORMAT_BGRA;
  // The simplified writer checks every write and the close, so a full disk fails here.
  if (!png_image_write_to_file(&image, out.temp_path().c_str(), 0, in.pixels.data(),
                               int32_t(in.stride()), nullptr)) {
    *error = "cannot write '" + path + "': " + image.message;
    return false;
  }
  return out.Commit(error);
}

std::string FileExtension(const std::string& path) {
  size_t slash = path.find_last_of('/');
  size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return char(std::tolower(c)); });
  return ext;
}

namespace {
// Finds the one "%[0][width]d" of a pattern: its start and end, or npos.
bool FindNumberSpec(const std::string& p, size_t* start, size_t* end) {
  for (size_t i = 0; i < p.size(); ++i) {
    if (p[i] != '%') continue;
    if (i + 1 < p.size() && p[i + 1] == '%') {
      ++i;
      continue;
    }
    size_t j = i + 1;
    while (j < p.size() && std::isdigit(static_cast<unsigned char>(p[j]))) ++j;
    if (j < p.size() && p[j] == 'd' && j - i - 1 <= 2) {
      *start = i;
      *end = j + 1;
      return true;
    }
    return false;
  }
  return false;
}
}  // namespace

bool IsSequencePattern(const std::string& path) {
  size_t s, e;
  return FindNumberSpec(path, &s, &e);
}

std::string SequenceFileName(const std::string& pattern, int64_t number) {
  size_t s = 0, e = 0;
  if (!FindNumberSpec(pattern, &s, &e)) return pattern;
  char buf[128];  // two width digits at most: up to 99 characters
  std::string conversion = pattern.substr(s, e - s - 1) + "lld";
  std::snprintf(buf, sizeof buf, conversion.c_str(), static_cast<long long>(number));
  std::string out;
  // Unescape "%%" on both sides of the number.
  auto unescape = [](const std::string& t) {
    std::string r;
    for (size_t i = 0; i < t.size(); ++i) {
      r += t[i];
      if (t[i] == '%' && i + 1 < t.size() && t[i + 1] == '%') ++i;
    }
    return r;
  };
  return unescape(pattern.substr(0, s)) + buf + unescape(pattern.substr(e));
}

}  // namespace vetext_tool
