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

void MakeGeometryKey(const char* raster_key, char key[kRasterKeySize]) {
  std::snprintf(key, kRasterKeySize, "%s", raster_key);
  char* r = std::strrchr(key, 'r');
  if (r != nullptr) *r = 'g';
}

void MakePrefilterKey(const char* raster_key, int32_t fx, int32_t fy, int32_t steps, int32_t sx,
                      int32_t sy, char key[kPrefilterKeySize]) {
  std::snprintf(key, kPrefilterKeySize, "%s-%dx%d-%d.%d.%d", raster_key, int(fx), int(fy),
                int(steps), int(sx), int(sy));
  char* r = std::strrchr(key, 'r');
  if (r != nullptr) *r = 'p';
}

void MakePlacedKey(const char* prefilter_key, int32_t frame_width, int32_t frame_height,
                   IR_Point dst_point, IR_Point src_point, IR_Point scale, double rotation_deg,
                   char key[kPlacedKeySize], char mark_key[kPlacedKeySize]) {
  uint32_t f[6];
  const float v[6] = {dst_point.x, dst_point.y, src_point.x, src_point.y, scale.x, scale.y};
  std::memcpy(f, v, sizeof f);
  uint64_t r;
  std::memcpy(&r, &rotation_deg, sizeof r);
  for (char* out : {key, mark_key})
    std::snprintf(out, kPlacedKeySize, "%s-%c%dx%d-%08x%08x%08x%08x%08x%08x-%016llx", prefilter_key,
                  out == key ? 'L' : 'M', int(frame_width), int(frame_height), f[0], f[1], f[2],
                  f[3], f[4], f[5], static_cast<unsigned long long>(r));
}

namespace {

PlacedEntryHeader PlacedHeader(uint32_t pixel_format, const int32_t rect[4]) {
  PlacedEntryHeader h;
  h.pixel_format = pixel_format;
  std::memcpy(h.rect, rect, sizeof h.rect);
  const uint64_t w = uint64_t(int64_t(rect[2]) - rect[0]),
                 hh = uint64_t(int64_t(rect[3]) - rect[1]);
  h.image_bytes = (w + 2) * (hh + 2) * 4;
  h.span_bytes = hh * 8;
  return h;
}

}  // namespace

RasterCache::~RasterCache() {
  for (RPixHandle h : held_)
    if (pix_) pix_->dispose(h);
  // As everywhere in the effect, a suite handed back as null is not released.
  if (cache_) ReleaseSuite(in_, nullptr, kRPixCacheSuiteName, kRPixCacheSuiteVersion, nullptr);
  if (creator_)
    ReleaseSuite(in_, nullptr, kRPixCreatorSuiteName, kRPixCreatorSuiteVersion, nullptr);
  if (pix_) ReleaseSuite(in_, nullptr, kRPixSuiteName, kRPixSuiteVersion, nullptr);
}

RPixHandle RasterCache::Find(const char* key, void** data) {
  if (!ok()) return nullptr;
  RPixHandle h = nullptr;
  if (cache_->lookup(key, &h) != 0 || h == nullptr) return nullptr;
  *data = nullptr;
  if (pix_->get_pixels(h, kRPixAccessRead, data) != 0 || *data == nullptr) {
    pix_->dispose(h);
    return nullptr;
  }
  return h;
}

void* RasterCache::Make(uint64_t size) {
  if (!ok()) return nullptr;
  RPixHandle h = nullptr;
  if (creator_->create(&h, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, size) < 0 || h == nullptr)
    return nullptr;
  void* data = nullptr;
  if (pix_->get_pixels(h, kRPixAccessWrite, &data) != 0 || data == nullptr) {
    pix_->dispose(h);
    return nullptr;
  }
  held_.push_back(h);
  made_ = h;
  return data;
}

bool RasterCache::Lookup(const char* key, uint32_t pixel_format, const RasterEntryHeader** header,
                         uint8_t** pixels) {
  void* data = nullptr;
  RPixHandle h = Find(key, &data);
  if (h == nullptr) return false;
  const auto* hd = static_cast<const RasterEntryHeader*>(data);
  RasterGeometry g = GeometryOfHeader(*hd);
  int64_t bytes = g.Drawable() ? RasterBufferBytes(g) : 0;
  if (hd->magic != kRasterEntryMagic || hd->pixel_format != pixel_format || bytes < 0 ||
      hd->pixel_bytes != uint64_t(bytes)) {
    pix_->dispose(h);
    return false;
  }
  held_.push_back(h);
  *header = hd;
  *pixels = static_cast<uint8_t*>(data) + sizeof(RasterEntryHeader);
  return true;
}

uint8_t* RasterCache::Create(const RasterEntryHeader& header) {
  void* data = Make(sizeof(RasterEntryHeader) + header.pixel_bytes);
  if (data == nullptr) return nullptr;
  std::memcpy(data, &header, sizeof header);
  uint8_t* pixels = static_cast<uint8_t*>(data) + sizeof(RasterEntryHeader);
  std::memset(pixels, 0, header.pixel_bytes);
  return pixels;
}

void RasterCache::Publish(const char* key) {
  // Two threads may make the same entry at once; the cache keeps the first and each thread
  // draws from its own buffer for this frame.
  if (ok() && made_) cache_->add(key, made_);
}

void RasterCache::Publish(const char* key, RPixHandle made) {
  if (ok() && made) cache_->add(key, made);
}

bool RasterCache::LookupGeometry(const char* key, uint32_t pixel_format, RasterGeometry* g) {
  void* data = nullptr;
  RPixHandle h = Find(key, &data);
  if (h == nullptr) return false;
  RasterEntryHeader hd;
  std::memcpy(&hd, data, sizeof hd);
  pix_->dispose(h);
  if (hd.magic != kGeometryEntryMagic || hd.pixel_format != pixel_format) return false;
  *g = GeometryOfHeader(hd);
  return true;
}

void RasterCache::StoreGeometry(const char* key, const RasterGeometry& g, uint32_t pixel_format) {
  RasterEntryHeader hd = MakeRasterHeader(g, pixel_format);
  hd.magic = kGeometryEntryMagic;
  hd.pixel_bytes = 0;
  void* data = Make(sizeof hd);
  if (data == nullptr) return;
  std::memcpy(data, &hd, sizeof hd);
  Publish(key);
}

bool RasterCache::LookupPrefiltered(const char* key, const PrefilterEntryHeader& expect,
                                    PrefilterEntryHeader* found, uint8_t** image, int32_t** spans) {
  void* data = nullptr;
  RPixHandle h = Find(key, &data);
  if (h == nullptr) return false;
  PrefilterEntryHeader hd;
  std::memcpy(&hd, data, sizeof hd);
  PrefilterEntryHeader a = hd, b = expect;
  a.shift_steps = a.shift_x = a.shift_y = b.shift_steps = b.shift_x = b.shift_y = 0;
  if (std::memcmp(&a, &b, sizeof a) != 0) {
    pix_->dispose(h);
    return false;
  }
  held_.push_back(h);
  *found = hd;
  *image = static_cast<uint8_t*>(data) + sizeof hd;
  *spans = reinterpret_cast<int32_t*>(*image + hd.image_bytes);
  return true;
}

bool RasterCache::CreatePrefiltered(const PrefilterEntryHeader& header, uint8_t** image,
                                    int32_t** spans) {
  void* data = Make(sizeof header + header.image_bytes + header.span_bytes);
  if (data == nullptr) return false;
  std::memcpy(data, &header, sizeof header);
  *image = static_cast<uint8_t*>(data) + sizeof header;
  std::memset(*image, 0, header.image_bytes + header.span_bytes);
  *spans = reinterpret_cast<int32_t*>(*image + header.image_bytes);
  return true;
}

bool RasterCache::LookupPlaced(const char* key, uint32_t pixel_format, const int32_t rect[4],
                               uint8_t** layer, int32_t** spans) {
  void* data = nullptr;
  RPixHandle h = Find(key, &data);
  if (h == nullptr) return false;
  PlacedEntryHeader hd;
  std::memcpy(&hd, data, sizeof hd);
  const PlacedEntryHeader want = PlacedHeader(pixel_format, rect);
  if (std::memcmp(&hd, &want, sizeof hd) != 0) {
    pix_->dispose(h);
    return false;
  }
  held_.push_back(h);
  *layer = static_cast<uint8_t*>(data) + sizeof hd;
  *spans = reinterpret_cast<int32_t*>(*layer + hd.image_bytes);
  return true;
}

bool RasterCache::CreatePlaced(uint32_t pixel_format, const int32_t rect[4], uint8_t** layer,
                               int32_t** spans) {
  const PlacedEntryHeader hd = PlacedHeader(pixel_format, rect);
  void* data = Make(sizeof hd + hd.image_bytes + hd.span_bytes);
  if (data == nullptr) return false;
  std::memcpy(data, &hd, sizeof hd);
  *layer = static_cast<uint8_t*>(data) + sizeof hd;
  std::memset(*layer, 0, hd.image_bytes + hd.span_bytes);
  *spans = reinterpret_cast<int32_t*>(*layer + hd.image_bytes);
  return true;
}

bool RasterCache::HasMark(const char* key) {
  void* data = nullptr;
  RPixHandle h = Find(key, &data);
  if (h == nullptr) return false;
  pix_->dispose(h);
  return true;
}

void RasterCache::Mark(const char* key) {
  if (Make(1) != nullptr) Publish(key);
}

}  // namespace vetext
