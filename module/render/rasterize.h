// Painting a layout's glyphs into the text buffer: fill and stroke, anti-aliased, premultiplied,
// in the record order and each record's paint order.
#pragma once

#include <cstdint>

#include "document/records.h"

namespace vetext {

// Paints every record of `layout` into `buf` (W x H pixels of 4 bytes, `row_bytes` a row, alpha
// in byte 3, premultiplied; the buffer is expected to start transparent). Record i is drawn with
// its origin at (mOriginX + ox, mOriginY + oy); with `gpu_variant` the picture is flipped
// vertically (origin at (x, H - y), glyphs upside down) for a bottom-up texture. Colours go in
// the byte order of `pixel_format` ('bgra' B, G, R; 'vuya' V, U, Y), converted once per call;
// the overload without a format paints 'bgra'. Glyphs whose font or outline cannot be had draw
// nothing. Large buffers are painted in two bands of rows on two threads.
void RasterizeLayout(const LayoutRecord& layout, uint8_t* buf, int32_t row_bytes, bool gpu_variant,
                     int32_t W, int32_t H, float ox, float oy);
void RasterizeLayout(const LayoutRecord& layout, uint8_t* buf, int32_t row_bytes, bool gpu_variant,
                     int32_t W, int32_t H, float ox, float oy, uint32_t pixel_format);

// The 4 x 4 box reduction of what RasterizeLayout paints into a W x H buffer, assembled from
// reduced glyph masks without the 4x picture: `out` is a zeroed bordered image of
// (ceil(W / 4) + 2) x (ceil(H / 4) + 2) pixels (the layout of an IR_Prefiltered reduction).
// Equal to reducing the literal picture within rounding where glyphs do not overlap, and within
// the coverage of shared edges where they do; a glyph reaching past the buffer's edge is cut
// there as the literal picture cuts it. The CPU picture only (no flip). Returns false, having
// drawn nothing, only for an empty buffer or a null `out`.
bool RasterizeLayoutReduced(const LayoutRecord& layout, int32_t W, int32_t H, float ox, float oy,
                            uint32_t pixel_format, uint8_t* out);

// One row of a reduced glyph (upper-layer weights `t`, lower-layer weights `b` or null) blended
// over `n` premultiplied pixels: the SIMD kernel or the scalar reference, for the tests.
void BlendReducedRow(const uint8_t* t, const uint8_t* b, const uint8_t top[4], const uint8_t bot[4],
                     uint8_t* d, int32_t n, bool simd);

// Above this many pixels the buffer is painted on two threads.
constexpr int64_t kRasterizeParallelPixels = int64_t(1) << 19;

}  // namespace vetext
