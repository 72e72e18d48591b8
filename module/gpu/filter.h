// The GPU filter instance: one per effect instance, made by the host through the entry's
// function table. It holds the suites the three render operations use; the render itself
// (render_gpu.cpp) lays the document out once per distinct document, rasterises each glyph on
// the CPU into a buffer the host uploads, and draws each with the host's GF::Motion.
#pragma once

#include <cstdint>
#include <memory>

#include "document/records.h"
#include "params/params.h"
#include "render/geometry.h"
#include "vetext/gpu_filter.h"
#include "vetext/suites.h"

namespace vetext {

class VEFilterTextGPU : public RxGPUFilterBase {
 public:
  ~VEFilterTextGPU() override = default;
  // The base's copies and suite, then AcquirePixelSuites. Returns 0.
  int32_t Initialize(GPUInstanceRecord* rec) override;
  // Stores the accessor and acquires the RPix, RPix Cache and RPix Creator 2 suites (results
  // not checked: a missing suite makes the render operations fail instead).
  void AcquirePixelSuites(const GPUSuiteAccessor* accessor);

  int32_t QueryDependency(const GPURenderParams* params, int32_t* query_index,
                          GPUDependency* dependency) override;
  int32_t PrecomputeRecord(const GPURenderParams* params, int32_t record_index,
                           RPixHandle buffer) override;
  int32_t RenderFrame(const GPURenderParams* params, const GPUFrameHandle* frames,
                      uint64_t frame_count, GPUFrameHandle* out_frame) override;

  // The layout of the document at the clip time, read back from its cache entry: 0, kErrGeneric
  // (no document, a damaged one, a missing suite) or kErrCacheBuild. Shared, never modified.
  int32_t GetLayoutRecords(const GPURenderParams* params, std::shared_ptr<const LayoutRecord>* out);
  // The Transform group at the clip time; false when the host cannot say.
  bool ReadTransformAt(int64_t clip_time, TransformValues* t) const;

  const RPixSuite1* pix_suite() const { return pix_suite_; }

 private:
  const GPUSuiteAccessor* accessor_ = nullptr;
  const RPixSuite1* pix_suite_ = nullptr;
  const RPixCacheSuite6* cache_suite_ = nullptr;
  const RPixCreatorSuite3* creator_suite_ = nullptr;
};

// Where one glyph record's image goes: the frame's placement of the whole text and the record's
// box in the text buffer. The box starts on the reduction grid of the placement (a multiple of
// the compositor's factors), so the record's reduction holds exactly the reduced pixels of the
// whole text that it covers and its draw lands where the CPU render draws that glyph.
struct RecordPlan {
  RasterGeometry g;
  TextPlacement p;
  FrameInfo frame;
  int32_t fx = 1, fy = 1;  // the compositor's reduction factors for p.scale
  int32_t shift_steps = 0, shift_x = 0, shift_y = 0;  // one-to-one: drawn displaced
  float dx = 0, dy = 0;                               // that displacement, oversampled pixels
};
struct RecordBox {
  int32_t x0 = 0, y0 = 0;  // the image's top-left pixel in the text buffer
  int32_t width = 1, height = 1;
  bool empty = true;  // nothing of the glyph is in the buffer: a 1 x 1 transparent image
};

// The plan of a frame: geometry of `layout`, placement under `t` on the frame `params`
// describes.
RecordPlan PlanFrame(const LayoutRecord& layout, const TransformValues& t,
                     const GPURenderParams& params);
// The record's image box: its ink box widened by its stroke and a pixel, cut by the text
// buffer, rounded out to the reduction grid.
RecordBox BoxOf(const CharacterRecord& c, const RecordPlan& plan);

// The quality mapping for GF::Motion's interpolation mode: -1 -> -1, 0..4 -> 1..5, else 1.
int32_t InterpolationFor(int32_t quality);

}  // namespace vetext
