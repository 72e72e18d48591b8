// The numbers the render derives from a layout: the text buffer's size and drawing origin and
// where the alignment point lies in it. Kept apart from the layout so that a cached raster can
// carry them and a hit needs no layout at all.
#pragma once

#include <cstdint>

#include "document/records.h"
#include "params/params.h"
#include "vetext/image_renderer.h"

namespace vetext {

// Largest stroke width over all records, starting from 0 (negative widths never count).
float MaxStrokeWidth(const LayoutRecord& layout);
// The first record's baseline shift (frame pixels), 0 without records.
float FirstBaselineShift(const LayoutRecord& layout);
// Fractions of the buffer at which the alignment point lies: top-left for box text; for point
// text x follows the first record's alignment (0 left, 1 right, else centre) and y is 0.5.
void AlignmentAnchor(const LayoutRecord& layout, float* ax, float* ay);

// Everything the transform needs about the text buffer.
struct RasterGeometry {
  int32_t bw = 0, bh = 0;  // text block size, oversampled pixels (0: nothing to draw)
  int32_t W = 0, H = 0;    // buffer size: the block plus a full stroke width on every side
  float ox = 0, oy = 0;    // drawing origin inside the buffer
  float first_baseline_shift = 0;
  float oversampling = 4.0f;
  float ax = 0.5f, ay = 0.5f;
  // Whether there is anything to draw at all.
  bool Drawable() const { return bw != 0 && bh != 0 && W > 0 && H > 0; }
};

// Computes the geometry of a layout. The block size truncates toward zero; W and H add twice
// the largest stroke width in double precision and truncate again; the origin subtracts the
// layout's left/top only when they are negative.
RasterGeometry ComputeRasterGeometry(const LayoutRecord& layout);

// The buffer's byte size (4 bytes a pixel, rows packed), or -1 when it is not representable or
// beyond what one frame buffer may reasonably take.
int64_t RasterBufferBytes(const RasterGeometry& g);

// The frame a text is placed on: its size, row order, and how it is shown (downsample factors,
// inverse pixel aspect ratio).
struct FrameInfo {
  int32_t width = 0, height = 0;  // pixels
  bool bottom_up = false;         // rows stored bottom-up (negative stride)
  double downsample_x = 1, downsample_y = 1;
  double inverse_par = 1;  // pixel aspect denominator / numerator
};

// Where the compositor puts the text buffer: `src` (fractions of the buffer) lands on `dst`
// (fractions of the frame), the buffer is scaled by `scale` (frame pixels per buffer pixel) and
// turned by `rotation` degrees about that point, then blended at `opacity`.
struct TextPlacement {
  IR_Point dst{0, 0}, src{0, 0}, scale{0, 0};
  float rotation = 0;
  float opacity = 1;
};

// The one placement of a text buffer of geometry `g` on `frame` under the transform `t`: the
// alignment point goes to Position (less the first baseline shift), and scale and rotation act
// about Anchor Point. The sign rules make one formula serve both row orders: a top-down frame
// negates the position's y, a bottom-up one the rotation. Single precision wherever an operand
// is single, in this order, so every caller gets the same bits.
TextPlacement PlaceText(const RasterGeometry& g, const TransformValues& t, const FrameInfo& frame);

// Where point (bx, by) of the text buffer (buffer pixels, pixel edges on whole numbers) lands in
// `frame` under `p`, in frame pixels, as the compositor maps it: the inverse of its sampling.
IR_Point PlacedPoint(const TextPlacement& p, const RasterGeometry& g, const FrameInfo& frame,
                     double bx, double by);
// The inverse: the buffer point (buffer pixels) that lands on frame point (fx, fy). Null scales
// give the source point itself.
IR_Point BufferPoint(const TextPlacement& p, const RasterGeometry& g, const FrameInfo& frame,
                     double fx, double fy);

}  // namespace vetext
