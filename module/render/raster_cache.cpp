#include "render/raster_cache.h"

#include <cstdio>
#include <cstring>

#include "document/layout_cache.h"
#include "effect/suites.h"

namespace vetext {

RasterEntryHeader MakeRasterHeader(const RasterGeometry& g, uint32_t pixel_format) {
  RasterEntryHeader h;
  h.pixel_format = pixel_format;
  h.bw = g.bw;
  h.bh = g.bh;
  h.W = g.W;
  h.H = g.H;
  h.ox = g.ox;
  h.oy = g.oy;
  h.first_baseline_shift = g.first_baseline_shift;
  h.oversampling = g.oversampling;
  h.ax = g.ax;
  h.ay = g.ay;
  int64_t bytes = g.Drawable() ? RasterBufferBytes(g) : -1;
  h.pixel_bytes = bytes > 0 ? uint64_t(bytes) : 0;
  return h;
}

RasterGeometry GeometryOfHeader(const RasterEntryHeader& h) {
  RasterGeometry g;
  g.bw = h.bw;
  g.bh = h.bh;
  g.W = h.W;
  g.H = h.H;
  g.ox = h.ox;
  g.oy = h.oy;
  g.first_baseline_shift = h.first_baseline_shift;
  g.oversampling = h.oversampling;
  g.ax = h.ax;
  g.ay = h.ay;
  return g;
}

void MakeRasterKey(const uint8_t* block, size_t size, uint32_t pixel_format,
                   char key[kRasterKeySize]) {
  char layout_key[37];
  MakeLayoutKey(block, size, layout_key);
  std::snprintf(key, kRasterKeySize, "%s-r%08x", layout_key, pixel_format);
}

RasterCache::RasterCache(const InputRecord* in) : in_(in) {
  const void* t = nullptr;
  if (AcquireSuite(in, nullptr, kRPixCacheSuiteName, kRPixCacheSuiteVersion, nullptr, &t) == 0)
    cache_ = static_cast<const RPixCacheSuite6*>(t);
  t = nullptr;
  if (AcquireSuite(in, nullptr, kRPixCreatorSuiteName, kRPixCreatorSuiteVersion, nullptr, &t) == 0)
    creator_ = static_cast<const RPixCreatorSuite3*>(t);
  t = nullptr;
  if (AcquireSuite(in, nullptr, kRPixSuiteName, kRPixSuiteVersion, nullptr, &t) == 0)
    pix_ = static_cast<const RPixSuite1*>(t);
}

RasterCache::~RasterCache() {
  if (held_ && pix_) pix_->dispose(held_);
  // As everywhere in the effect, a suite handed back as null is not released.
  if (cache_) ReleaseSuite(in_, nullptr, kRPixCacheSuiteName, kRPixCacheSuiteVersion, nullptr);
  if (creator_)
    ReleaseSuite(in_, nullptr, kRPixCreatorSuiteName, kRPixCreatorSuiteVersion, nullptr);
  if (pix_) ReleaseSuite(in_, nullptr, kRPixSuiteName, kRPixSuiteVersion, nullptr);
}

bool RasterCache::Lookup(const char* key, uint32_t pixel_format, const RasterEntryHeader** header,
                         uint8_t** pixels) {
  if (!ok() || held_) return false;
  RPixHandle h = nullptr;
  if (cache_->lookup(key, &h) != 0 || h == nullptr) return false;
  void* data = nullptr;
  if (pix_->get_pixels(h, kRPixAccessRead, &data) != 0 || data == nullptr) {
    pix_->dispose(h);
    return false;
  }
  const auto* hd = static_cast<const RasterEntryHeader*>(data);
  RasterGeometry g = GeometryOfHeader(*hd);
  int64_t bytes = g.Drawable() ? RasterBufferBytes(g) : 0;
  if (hd->magic != kRasterEntryMagic || hd->pixel_format != pixel_format || bytes < 0 ||
      hd->pixel_bytes != uint64_t(bytes)) {
    pix_->dispose(h);
    return false;
  }
  held_ = h;
  *header = hd;
  *pixels = static_cast<uint8_t*>(data) + sizeof(RasterEntryHeader);
  return true;
}

uint8_t* RasterCache::Create(const RasterEntryHeader& header) {
  if (!ok() || held_) return nullptr;
  RPixHandle h = nullptr;
  uint64_t size = sizeof(RasterEntryHeader) + header.pixel_bytes;
  if (creator_->create(&h, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, size) < 0 || h == nullptr)
    return nullptr;
  void* data = nullptr;
  if (pix_->get_pixels(h, kRPixAccessWrite, &data) != 0 || data == nullptr) {
    pix_->dispose(h);
    return nullptr;
  }
  std::memcpy(data, &header, sizeof header);
  uint8_t* pixels = static_cast<uint8_t*>(data) + sizeof(RasterEntryHeader);
  std::memset(pixels, 0, header.pixel_bytes);
  held_ = h;
  return pixels;
}

void RasterCache::Publish(const char* key) {
  // Two threads may make the same entry at once; the cache keeps the first and each thread
  // draws from its own buffer for this frame.
  if (ok() && held_) cache_->add(key, held_);
}

}  // namespace vetext
