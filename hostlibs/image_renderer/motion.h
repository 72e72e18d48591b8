// The CPU compositor behind IR_Motion: a box reduction of the source by integer factors, then
// an affine, bilinear resample of the reduction blended over the destination.
#ifndef VETEXT_HOSTLIBS_IMAGE_RENDERER_MOTION_H
#define VETEXT_HOSTLIBS_IMAGE_RENDERER_MOTION_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vetext/image_renderer.h"

namespace ir {

// Reduced size (border excluded) of a w x h source by factors fx, fy.
inline int32_t ReducedExtent(int32_t n, int32_t f) {
  return (n + f - 1) / f;
}

// Box-reduces src into out ((rw + 2) x (rh + 2) pixels, packed, transparent border). Each
// reduced pixel is the mean of its fx x fy source block; parts of a block beyond the source
// count as transparent. Rows [row_begin, row_end) of the reduction only (border rows included
// when in range), so that two threads can share the work.
void ReduceRows(const uint8_t* src, ptrdiff_t src_row_bytes, int32_t w, int32_t h, int32_t fx,
                int32_t fy, uint8_t* out, int32_t row_begin, int32_t row_end);

// The whole reduction, on two threads when the source is large.
void Reduce(const uint8_t* src, ptrdiff_t src_row_bytes, int32_t w, int32_t h, int32_t fx,
            int32_t fy, uint8_t* out);

// One destination row of the resample-and-blend: pixel i samples the reduction (padded size
// wp x hp) at (u0 + i du, v0 + i dv), in reduced pixels less the half pixel of the bilinear
// centre, and blends over d[4 i .. 4 i + 3]. The scalar variant is the reference; the SIMD
// variant must give identical bytes. Both are exported so that the tests can hold them side by
// side.
using BlendRowFn = void (*)(const uint8_t* base, int32_t wp, int32_t hp, float u0, float du,
                            float v0, float dv, uint8_t* d, int32_t n, float opacity);
VX_API void BlendRowScalar(const uint8_t* base, int32_t wp, int32_t hp, float u0, float du,
                           float v0, float dv, uint8_t* d, int32_t n, float opacity);
#if defined(__SSE2__)
VX_API void BlendRowSse2(const uint8_t* base, int32_t wp, int32_t hp, float u0, float du, float v0,
                         float dv, uint8_t* d, int32_t n, float opacity);
#endif

// Whole-pixel blend of n premultiplied pixels over straight ones at opacity 1 (the one-to-one
// path); the scalar variant is the reference and the SIMD variant gives identical bytes.
using BlendExactRowFn = void (*)(const uint8_t* s, uint8_t* d, int32_t n);
VX_API void BlendExactRowScalar(const uint8_t* s, uint8_t* d, int32_t n);
#if defined(__SSE2__)
VX_API void BlendExactRowSse2(const uint8_t* s, uint8_t* d, int32_t n);
#endif
VX_API void BlendExactRowOpacity(const uint8_t* s, uint8_t* d, int32_t n, float opacity);

// Geometry of one placement, in visual coordinates (x right, y down).
struct Placement {
  double src_x, src_y;  // source point, in source pixels
  double dst_x, dst_y;  // destination point, in destination pixels
  double scale_x, scale_y;
  double rotation_deg;  // counter-clockwise on screen
  float opacity;
};

// Within the library (the GPU devices draw with the same arithmetic):
// The sample position (in reduced pixels, minus the half pixel of the bilinear centre) of the
// centre of destination pixel (X, Y): u = ax + bx X + cx Y, v = ay + by X + cy Y.
struct Mapping {
  double ax, bx, cx, ay, by, cy;
};
struct Span {
  int32_t x0, x1;  // [x0, x1)
};
// The mapping of a placement onto `src` (its factors and shift) and, when it is one to one and
// lands on whole pixels, the offset (u0, v0) of the whole-pixel path: destination pixel (X, Y)
// takes bordered reduced pixel (X + u0, Y + v0). False when the placement is not finite.
bool PlanPlacement(const IR_Prefiltered& src, const Placement& pl, bool allow_exact, Mapping* m,
                   bool* exact, int64_t* u0, int64_t* v0);
// The destination columns each row's samples can touch (a sample touches the image, not only
// its border, when 0 < u < width + 1), and their total.
int64_t DestinationSpans(const IR_Prefiltered& src, const Mapping& m, int32_t dst_width,
                         int32_t dst_height, std::vector<Span>* spans);

// Composites a reduction (as made by Reduce) over dst. Returns false when the placement is not
// finite; a zero scale draws nothing. `allow_exact` false keeps one-to-one placements on the
// resampling path (for tests that hold the two side by side).
VX_API bool Composite(const IR_Prefiltered& src, const Placement& placement, uint8_t* dst,
                      ptrdiff_t dst_row_bytes, int32_t dst_width, int32_t dst_height,
                      bool allow_exact = true);

// A placement drawn once into a layer for many frames (see IR_PlaceBounds): the destination
// rectangle {x0, y0, x1, y1} a resampling placement touches (1), or 0 when it would take the
// whole-pixel path or draw nothing, -1 when it is not finite.
VX_API int32_t PlaceBounds(const IR_Prefiltered& src, const Placement& placement, int32_t dst_width,
                           int32_t dst_height, int32_t rect[4]);
// Resamples that placement at opacity 1 into `layer`, (x1 - x0 + 2) x (y1 - y0 + 2) zeroed
// pixels with a border. False when PlaceBounds would not have returned 1.
VX_API bool Place(const IR_Prefiltered& src, const Placement& placement, int32_t dst_width,
                  int32_t dst_height, const int32_t rect[4], uint8_t* layer);
// Blends such a layer, whose top-left interior pixel belongs at destination (x, y).
VX_API void CompositeLayer(const IR_Prefiltered& layer, int32_t x, int32_t y, uint8_t* dst,
                           ptrdiff_t dst_row_bytes, int32_t dst_width, int32_t dst_height,
                           float opacity);

// For a one-to-one placement (see IR_AlignedShift) the displacement, in 1/steps of a reduced
// pixel, that puts the image on whole destination pixels; false for other placements.
VX_API bool AlignedShift(const Placement& pl, int32_t fx, int32_t fy, int32_t steps,
                         int32_t* shift_x, int32_t* shift_y);

// The first pixel of a row of n packed 4-byte pixels that is not all zero, and one past the last
// such pixel; *first == *end when the whole row is zero.
VX_API void RowExtent(const uint8_t* row, int32_t n, int32_t* first, int32_t* end);

// The row spans of a reduction (see IR_Prefiltered::row_spans).
VX_API void ComputeSpans(const IR_Prefiltered& src, int32_t* spans);

}  // namespace ir

#endif
