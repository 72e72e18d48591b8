// The rasterized text of a document, kept in the host's frame cache next to its layout, so
// that an unchanged document is neither composed nor parsed nor rasterized again: a frame then
// costs the key's hash, one lookup and the composite.
//
// An entry is a raw cache buffer: a RasterEntryHeader followed by W x H premultiplied pixels
// (rows of 4 x W bytes) in the byte order of the frame format it was made for. Its key is the
// document's layout key with the format appended, so 'bgra' and 'vuya' frames keep separate
// entries and the layout's own entry is never confused with it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "render/geometry.h"
#include "vetext/effect.h"
#include "vetext/suites.h"

namespace vetext {

constexpr uint32_t kRasterEntryMagic = 0x31525456u;  // "VTR1"
constexpr size_t kRasterKeySize = 48;

struct RasterEntryHeader {
  uint32_t magic = kRasterEntryMagic;
  uint32_t pixel_format = 0;
  int32_t bw = 0, bh = 0, W = 0, H = 0;
  float ox = 0, oy = 0, first_baseline_shift = 0, oversampling = 0, ax = 0, ay = 0;
  uint64_t pixel_bytes = 0;  // 4 * W * H, or 0 when there is nothing to draw
  uint8_t reserved[8] = {};
};
static_assert(sizeof(RasterEntryHeader) == 64, "pixels start 64 bytes into an entry");

RasterEntryHeader MakeRasterHeader(const RasterGeometry& g, uint32_t pixel_format);
RasterGeometry GeometryOfHeader(const RasterEntryHeader& h);

// "<layout key>-r<format as 8 hex digits>", terminated.
void MakeRasterKey(const uint8_t* block, size_t size, uint32_t pixel_format,
                   char key[kRasterKeySize]);

// The frame cache's suites for one render call, acquired silently (a host without them simply
// renders without the raster cache) and released by the destructor together with any entry
// reference still held.
class RasterCache {
 public:
  explicit RasterCache(const InputRecord* in);
  ~RasterCache();
  RasterCache(const RasterCache&) = delete;
  RasterCache& operator=(const RasterCache&) = delete;

  bool ok() const { return cache_ && creator_ && pix_; }
  // On a hit keeps a reference to the entry and returns its header and pixels (valid until the
  // object dies). A buffer under the key that does not carry a well-formed header for the
  // format is treated as a miss.
  bool Lookup(const char* key, uint32_t pixel_format, const RasterEntryHeader** header,
              uint8_t** pixels);
  // Creates an entry for `header` with zeroed pixels and returns the pixels (null on failure);
  // Publish adds it under `key`.
  uint8_t* Create(const RasterEntryHeader& header);
  void Publish(const char* key);

 private:
  const InputRecord* in_;
  const RPixCacheSuite6* cache_ = nullptr;
  const RPixCreatorSuite3* creator_ = nullptr;
  const RPixSuite1* pix_ = nullptr;
  RPixHandle held_ = nullptr;
};

}  // namespace vetext
