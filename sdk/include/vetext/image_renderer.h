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
                         bool blend, double shutter_angle, bool motion_blur,
                         int32_t motion_samples, int32_t quality, bool use_alpha);

/* Whether buffers of renderer format code `format` hold their rows bottom-up (the GPU
 * precompute buffers of the reference host do: returns true for 4). */
VX_API bool IR_IsOriginBottomLeft(int32_t format);

#ifdef __cplusplus
}
#endif

#endif
