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
#include <vector>

#include "render/geometry.h"
#include "vetext/effect.h"
#include "vetext/image_renderer.h"
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

// Beside the 4x raster two smaller entries serve the frames of an unchanged document: its
// geometry alone (a RasterEntryHeader with the geometry magic and no pixels, so that a frame
// can work out its placement before it knows which reduction it needs), and the reduction the
// compositor draws from: a PrefilterEntryHeader, then the bordered reduced image, then the row
// spans (two int32 a row). A reduction is keyed by its factors and its displacement, so a
// document shown at two sizes or two sub-pixel positions keeps one of each.
constexpr uint32_t kGeometryEntryMagic = 0x31475456u;   // "VTG1"
constexpr uint32_t kPrefilterEntryMagic = 0x31505456u;  // "VTP1"
constexpr size_t kPrefilterKeySize = 96;

struct PrefilterEntryHeader {
  uint32_t magic = kPrefilterEntryMagic;
  uint32_t pixel_format = 0;
  int32_t src_width = 0, src_height = 0, factor_x = 0, factor_y = 0;
  int32_t shift_steps = 0, shift_x = 0, shift_y = 0;
  int32_t width = 0, height = 0;  // the reduced image, border excluded
  int32_t pad = 0;
  uint64_t image_bytes = 0;  // (width + 2) x (height + 2) x 4
  uint64_t span_bytes = 0;   // 8 x height
};
static_assert(sizeof(PrefilterEntryHeader) == 64, "the image starts 64 bytes into an entry");

// "<layout key>-g<format>", and "<layout key>-p<format>-<fx>x<fy>-<steps>.<sx>.<sy>".
void MakeGeometryKey(const char* raster_key, char key[kRasterKeySize]);
void MakePrefilterKey(const char* raster_key, int32_t fx, int32_t fy, int32_t steps, int32_t sx,
                      int32_t sy, char key[kPrefilterKeySize]);

// A placed layer: a reduction resampled once for one placement on frames of one size (see
// IR_PlaceBounds), so that a text that is turned or scaled but stays where it is costs one
// whole-pixel blend a frame. Keyed by the reduction's key, the frame size and the exact bits of
// the placement (opacity aside: it applies when the layer is blended). A placement seen for the
// first time leaves only a mark, since a text that moves on every frame would otherwise make a
// layer that no later frame uses; the second sighting makes the layer.
constexpr uint32_t kPlacedEntryMagic = 0x314c5456u;  // "VTL1"
constexpr size_t kPlacedKeySize = 192;

struct PlacedEntryHeader {
  uint32_t magic = kPlacedEntryMagic;
  uint32_t pixel_format = 0;
  int32_t rect[4] = {};      // the frame rectangle the layer covers: x0, y0, x1, y1 (exclusive)
  uint64_t image_bytes = 0;  // (x1 - x0 + 2) x (y1 - y0 + 2) x 4: the layer, with its border
  uint64_t span_bytes = 0;   // 8 x (y1 - y0)
  uint8_t reserved[24] = {};
};
static_assert(sizeof(PlacedEntryHeader) == 64, "the layer starts 64 bytes into an entry");

// "<reduction key>-L<w>x<h>-<placement bits>", and the mark's key (the same with "-M").
void MakePlacedKey(const char* prefilter_key, int32_t frame_width, int32_t frame_height,
                   IR_Point dst_point, IR_Point src_point, IR_Point scale, double rotation_deg,
                   char key[kPlacedKeySize], char mark_key[kPlacedKeySize]);

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
  // Adds an entry made earlier in this call (`last_made` right after making it).
  void Publish(const char* key, RPixHandle made);
  RPixHandle last_made() const { return made_; }

  // The geometry entry: a hit copies the geometry out; Store adds one (failures are silent).
  bool LookupGeometry(const char* key, uint32_t pixel_format, RasterGeometry* g);
  void StoreGeometry(const char* key, const RasterGeometry& g, uint32_t pixel_format);

  // A reduction entry whose header matches `expect` (all but the shift, which is returned in
  // *found); image and spans stay valid while the object lives.
  bool LookupPrefiltered(const char* key, const PrefilterEntryHeader& expect,
                         PrefilterEntryHeader* found, uint8_t** image, int32_t** spans);
  // A new reduction entry with a zeroed image; Publish adds it.
  bool CreatePrefiltered(const PrefilterEntryHeader& header, uint8_t** image, int32_t** spans);

  // A placed layer for `rect` in `pixel_format`; layer and spans stay valid while the object
  // lives. CreatePlaced makes one with a zeroed layer (Publish adds it).
  bool LookupPlaced(const char* key, uint32_t pixel_format, const int32_t rect[4], uint8_t** layer,
                    int32_t** spans);
  bool CreatePlaced(uint32_t pixel_format, const int32_t rect[4], uint8_t** layer, int32_t** spans);
  // Whether a mark is under `key`, and leaving one (failures are silent).
  bool HasMark(const char* key);
  void Mark(const char* key);

 private:
  RPixHandle Find(const char* key, void** data);
  void* Make(uint64_t size);
  const InputRecord* in_;
  const RPixCacheSuite6* cache_ = nullptr;
  const RPixCreatorSuite3* creator_ = nullptr;
  const RPixSuite1* pix_ = nullptr;
  std::vector<RPixHandle> held_;  // references released by the destructor
  RPixHandle made_ = nullptr;     // the last entry made, for Publish
};

}  // namespace vetext
