// The arguments of the Motion kernels, shared by the CUDA source and the host code that
// launches them (the same plain layout on both sides). Device addresses are 64-bit integers.
#ifndef VETEXT_HOSTLIBS_GPU_FOUNDATION_MOTION_KERNEL_H
#define VETEXT_HOSTLIBS_GPU_FOUNDATION_MOTION_KERNEL_H

// Box reduction of a source by fx x fy into a bordered (rw + 2) x (rh + 2) image.
struct GFReduceParams {
  unsigned long long src;  // top visual row
  long long src_pitch;
  int width, height, fx, fy, rw, rh;
  unsigned long long out;  // packed rows of (rw + 2) pixels
  unsigned long long mul;  // 2^32 / (fx fy), rounded: the division as a multiply
};

// Sampling of a reduction (wp x hp bordered pixels) and blending over the destination rectangle
// [x0, x1) x [y0, y1). With `exact`, destination pixel (X, Y) takes bordered pixel
// (X + u0, Y + v0) as it is; otherwise the bilinear sample at u = ax + bx X + cx Y,
// v = ay + by X + cy Y.
struct GFBlendParams {
  unsigned long long base;
  int wp, hp;
  double ax, bx, cx, ay, by, cy;
  long long u0, v0;
  unsigned long long dst;  // top visual row
  long long dst_pitch;
  int x0, y0, x1, y1;
  float opacity;
  int exact;
};

#endif
