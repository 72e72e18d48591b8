// The arguments of the Motion kernels, shared by the CUDA source and the host code that
// launches them. Device addresses are 64-bit integers and the 8-byte members come first, so that
// the host compiler and nvcc lay the records out alike; the size checks below hold both to it.
#ifndef VETEXT_HOSTLIBS_GPU_FOUNDATION_MOTION_KERNEL_H
#define VETEXT_HOSTLIBS_GPU_FOUNDATION_MOTION_KERNEL_H

// Box reduction of a source by fx x fy into a bordered (rw + 2) x (rh + 2) image.
struct GFReduceParams {
  unsigned long long src;  // top visual row
  long long src_pitch;
  unsigned long long out;  // packed rows of (rw + 2) pixels
  unsigned long long mul;  // 2^32 / (fx fy), rounded: the division as a multiply
  int width, height, fx, fy, rw, rh;
};
static_assert(sizeof(GFReduceParams) == 56, "GFReduceParams layout");

// Sampling of a reduction (wp x hp bordered pixels) and blending over the destination rectangle
// [x0, x1) x [y0, y1).
// With `exact`, destination pixel (X, Y) takes bordered pixel (X + u0, Y + v0) as it is.
// Otherwise row Y is drawn over its span spans[2 (Y - y0)] .. spans[2 (Y - y0) + 1] only, and
// pixel X of it samples at u = float(ax + bx x0 + cx Y) + float(bx) (X - x0) (v likewise, with
// x0 the span's start): the CPU compositor's row loop, rounding for rounding.
struct GFBlendParams {
  unsigned long long base;
  unsigned long long dst;    // top visual row
  unsigned long long spans;  // int pairs, one per row of the rectangle (resampling only)
  long long dst_pitch;
  long long u0, v0;
  double ax, bx, cx, ay, by, cy;
  int wp, hp;
  int x0, y0, x1, y1;
  float opacity, k255;  // k255 = opacity / 255, rounded as the CPU rounds it
  int exact;
};
static_assert(sizeof(GFBlendParams) == 136, "GFBlendParams layout");

#endif
