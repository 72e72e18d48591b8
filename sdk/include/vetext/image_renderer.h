/* vetext host library "ImageRenderer": the CPU compositor.
 *
 * Thread safety: every call is re-entrant; calls on disjoint destinations may run at once. */
#ifndef VETEXT_IMAGE_RENDERER_H
#define VETEXT_IMAGE_RENDERER_H

#include <stdbool.h>
#include <stdint.h>

#include "vetext/vx_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Renderer format codes (not four-character codes). */
enum { kIRFormatBGRA8 = 4, kIRFormatVUYA8 = 2053 };

typedef struct IR_Point {
  float x, y;
} IR_Point;

/* Composites `src` over `dst`.
 *
 * Geometry, in visual coordinates (x right, y down, row 0 on top for both buffers whatever the
 * sign of the row bytes): the source point (fractions of the source size) is mapped onto the
 * destination point (fractions of the destination size); the source is scaled by `scale` and
 * turned by `rotation_deg` about that point, a positive angle turning counter-clockwise on
 * screen. Each destination pixel centre is mapped back into the source and sampled with a
 * filter whose footprint follows the scale (area-averaged when shrinking, so a 4x oversampled
 * source does not alias), then blended over the destination at `opacity` (0..1) with the
 * source's alpha as coverage. Source pixels are premultiplied by their alpha; destination pixels
 * are straight (unpremultiplied) and keep their alpha where nothing is drawn.
 *
 * Both buffers are in `format` (kIRFormatBGRA8 or kIRFormatVUYA8: V, U, Y, A bytes); other
 * formats return -1 and leave the destination untouched. `src_rect`, when not null, limits the
 * source (VxRect-shaped: left, top, right, bottom). Returns 0.
 *
 * The trailing arguments are the host's rendering switches: `blend` (true: composite over the
 * destination), `shutter_angle` and `motion_blur` (no motion blur is drawn here),
 * `motion_samples`, `quality` (4: the best filter) and `use_alpha` (the source alpha is coverage).
 */
VX_API int32_t IR_Motion(const void* src, int32_t src_row_bytes, int32_t src_width,
                         int32_t src_height, int32_t src_format, int32_t src_flags,
                         const int32_t* src_rect, void* dst, int32_t dst_row_bytes,
                         int32_t dst_width, int32_t dst_height, int32_t dst_format,
                         int32_t dst_flags, int32_t par_num, uint32_t par_den, IR_Point dst_point,
                         IR_Point src_point, IR_Point scale, double rotation_deg, float opacity,
                         bool blend, double shutter_angle, bool motion_blur, int32_t motion_samples,
                         int32_t quality, bool use_alpha);

/* Only the best filter exists: `quality` and `src_flags`/`dst_flags` are accepted and ignored;
 * `par_num`/`par_den` are not applied, since `scale` already carries the pixel aspect. With
 * `blend` false or `use_alpha` false (modes this renderer does not draw) it returns -1, as it
 * does for null buffers, row bytes shorter than a row, source and destination formats that
 * differ, or a non-finite transform; the destination is then untouched. A zero scale, an empty
 * `src_rect` or a source that falls outside the destination draws nothing and returns 0.
 * For large placements the work is split over two threads inside the call. */

/* ---- prefiltered sources ----------------------------------------------------------------
 * IR_Motion first reduces the source by integer factors chosen from the scale (a box filter,
 * exact for a 4x oversampled buffer shown at 100%), then samples the reduction bilinearly. A
 * caller that composites the same source on many frames (an unchanged text layout) can do the
 * reduction once and keep it: IR_PrefilterFactors picks the factors for a scale, IR_Prefilter
 * builds the reduction into caller memory, and IR_MotionPrefiltered composites from it with the
 * same geometry arguments as IR_Motion. A reduction made for other factors still composites
 * correctly; it is only sharper or softer than the one IR_Motion would make. */
typedef struct IR_Prefiltered {
  /* (width + 2) x (height + 2) premultiplied 4-byte pixels, rows packed top row first, with a
   * transparent border one pixel wide around the reduced image. Owned by the caller. */
  const void* data;
  int32_t width, height;      /* the reduced image, border excluded */
  int32_t factor_x, factor_y; /* source pixels per reduced pixel */
  int32_t src_width, src_height;
  /* Optional (null: every pixel is visited): for each row of the reduced image, border
   * excluded, the columns [first, last) outside which the row is fully transparent; 2 x height
   * values, first >= last for an empty row. IR_PrefilterSpans computes them. */
  const int32_t* row_spans;
  /* The image may be drawn displaced by (shift_x, shift_y) / shift_steps reduced pixels, right
   * and down, from where the source point puts it (shift_steps 0: not displaced). A caller that
   * draws its reduction directly (rather than through IR_Prefilter) uses IR_AlignedShift to
   * learn the displacement at which the image lands on whole destination pixels. */
  int32_t shift_steps, shift_x, shift_y;
} IR_Prefiltered;

/* The reduction factors IR_Motion uses for `scale` (each >= 1). */
VX_API void IR_PrefilterFactors(IR_Point scale, int32_t* factor_x, int32_t* factor_y);
/* Bytes IR_Prefilter needs for a source of this size and these factors; 0 when the arguments
 * are not positive or the size does not fit. */
VX_API uint64_t IR_PrefilterSize(int32_t src_width, int32_t src_height, int32_t factor_x,
                                 int32_t factor_y);
/* Reduces `src` (premultiplied 4-byte pixels, row 0 on top at `src`, rows `src_row_bytes`
 * apart, negative for bottom-up storage) into `out` (`out_size` bytes, at least
 * IR_PrefilterSize) and fills `result` to describe it. Returns 0, or -1 on bad arguments. */
VX_API int32_t IR_Prefilter(const void* src, int32_t src_row_bytes, int32_t src_width,
                            int32_t src_height, int32_t factor_x, int32_t factor_y, void* out,
                            uint64_t out_size, IR_Prefiltered* result);
/* Fills `spans` (2 x src->height values) with the row spans of a reduction. Returns 0, or -1
 * on bad arguments. */
VX_API int32_t IR_PrefilterSpans(const IR_Prefiltered* src, int32_t* spans);
/* For a placement in which the reduction (factors `factor_x`, `factor_y` of a source of
 * `src_width` x `src_height`) maps one to one onto destination pixels (no rotation, scale
 * exactly 1 / factor) returns 1 and the displacement, in 1 / `steps` of a reduced pixel (each
 * 0 .. steps - 1, rounded to the nearest step), at which the image lands on whole destination
 * pixels; IR_MotionPrefiltered then copies such an image pixel for pixel. Returns 0 for any
 * other placement (and for bad arguments). The geometry arguments are those of
 * IR_MotionPrefiltered. */
VX_API int32_t IR_AlignedShift(int32_t src_width, int32_t src_height, int32_t factor_x,
                               int32_t factor_y, int32_t dst_width, int32_t dst_height,
                               IR_Point dst_point, IR_Point src_point, IR_Point scale,
                               double rotation_deg, int32_t steps, int32_t* shift_x,
                               int32_t* shift_y);
/* IR_Motion over a prefiltered source, with blending over the destination and alpha as
 * coverage. `src_point` is in fractions of the original source size. Returns as IR_Motion. */
VX_API int32_t IR_MotionPrefiltered(const IR_Prefiltered* src, int32_t format, void* dst,
                                    int32_t dst_row_bytes, int32_t dst_width, int32_t dst_height,
                                    IR_Point dst_point, IR_Point src_point, IR_Point scale,
                                    double rotation_deg, float opacity);
/* IR_MotionPrefiltered takes a path of its own when the image maps one to one onto whole
 * destination pixels (upright, scale exactly 1 / factor, the source point's offset, less the
 * shift, within half a shift step of a whole pixel, or exact without a shift): each pixel is
 * blended over its destination pixel as it is, skipping rows outside the row spans and
 * transparent runs. The bytes are those the resampling path gives for the same whole-pixel
 * placement. */

/* ---- placed layers --------------------------------------------------------------------
 * A source that stays where it is but is turned, or scaled off the whole-pixel grid, costs a
 * resampling on every frame. Drawn once into a layer that covers the destination rectangle it
 * touches, each later frame only blends that layer, pixel for pixel.
 *
 * IR_PlaceBounds: for the arguments of IR_MotionPrefiltered (opacity aside), returns 1 and the
 * destination rectangle `rect` = {x0, y0, x1, y1} (x1, y1 exclusive, within the destination)
 * when that call would resample; 0 when it would take the whole-pixel path or draw nothing
 * (composite directly then); -1 on bad arguments.
 *
 * IR_PlacePrefiltered: draws the placement at opacity 1 into `layer`: (x1 - x0 + 2) x
 * (y1 - y0 + 2) premultiplied pixels, rows packed, zeroed by the caller (`layer_size` bytes at
 * least that), a transparent border one pixel wide around the rectangle. Returns 0, or -1 on
 * bad arguments or when IR_PlaceBounds would not return 1 with the same `rect`.
 *
 * IR_CompositeLayer: blends such a layer (an IR_Prefiltered of factors 1 whose source and
 * reduced sizes are the rectangle's; row spans optional) over the destination with its
 * top-left interior pixel at (x, y), at `opacity`. Together the two give the bytes of
 * IR_MotionPrefiltered within one unit (the layer holds the resampled colour rounded once).
 * Returns 0, or -1 on bad arguments. */
VX_API int32_t IR_PlaceBounds(const IR_Prefiltered* src, int32_t dst_width, int32_t dst_height,
                              IR_Point dst_point, IR_Point src_point, IR_Point scale,
                              double rotation_deg, int32_t rect[4]);
VX_API int32_t IR_PlacePrefiltered(const IR_Prefiltered* src, int32_t dst_width, int32_t dst_height,
                                   IR_Point dst_point, IR_Point src_point, IR_Point scale,
                                   double rotation_deg, const int32_t rect[4], void* layer,
                                   uint64_t layer_size);
VX_API int32_t IR_CompositeLayer(const IR_Prefiltered* layer, int32_t format, void* dst,
                                 int32_t dst_row_bytes, int32_t dst_width, int32_t dst_height,
                                 int32_t x, int32_t y, float opacity);

/* Whether buffers of renderer format code `format` hold their rows bottom-up (the GPU
 * precompute buffers of the reference host do: returns true for 4). */
VX_API bool IR_IsOriginBottomLeft(int32_t format);

#ifdef __cplusplus
}
#endif

#endif
