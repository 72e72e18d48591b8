// The Motion kernels of the cuda device: the CPU compositor's arithmetic (image_renderer/
// motion.cpp) one pixel per thread. Compiled with -fmad=false so that no multiply-add is fused
// and the single-precision steps round as the CPU's do.
#include "motion_kernel.h"

extern "C" __global__ void gf_reduce(const GFReduceParams p) {
  const int x = blockIdx.x * blockDim.x + threadIdx.x;
  const int y = blockIdx.y * blockDim.y + threadIdx.y;
  if (x >= p.rw + 2 || y >= p.rh + 2) return;
  unsigned char* o =
      reinterpret_cast<unsigned char*>(p.out) + (static_cast<size_t>(y) * (p.rw + 2) + x) * 4;
  if (x == 0 || y == 0 || x == p.rw + 1 || y == p.rh + 1) {
    o[0] = o[1] = o[2] = o[3] = 0;
    return;
  }
  const int sx0 = (x - 1) * p.fx, sy0 = (y - 1) * p.fy;
  const int sx1 = min(p.width, sx0 + p.fx), sy1 = min(p.height, sy0 + p.fy);
  unsigned long long sum[4] = {0, 0, 0, 0};
  for (int sy = sy0; sy < sy1; ++sy) {
    const unsigned char* row =
        reinterpret_cast<const unsigned char*>(p.src) + static_cast<long long>(sy) * p.src_pitch;
    for (int sx = sx0; sx < sx1; ++sx)
      for (int c = 0; c < 4; ++c) sum[c] += row[sx * 4 + c];
  }
  for (int c = 0; c < 4; ++c) {
    const unsigned long long v = (sum[c] * p.mul + (1ull << 31)) >> 32;
    o[c] = static_cast<unsigned char>(v > 255 ? 255 : v);
  }
}

extern "C" __global__ void gf_blend(const GFBlendParams p) {
  const int X = p.x0 + static_cast<int>(blockIdx.x * blockDim.x + threadIdx.x);
  const int Y = p.y0 + static_cast<int>(blockIdx.y * blockDim.y + threadIdx.y);
  if (X >= p.x1 || Y >= p.y1) return;
  unsigned char* d =
      reinterpret_cast<unsigned char*>(p.dst) + static_cast<long long>(Y) * p.dst_pitch + X * 4;
  const unsigned char* base = reinterpret_cast<const unsigned char*>(p.base);
  const float opacity = p.opacity;
  if (p.exact) {
    const long long u = X + p.u0, v = Y + p.v0;
    if (u < 1 || v < 1 || u > p.wp - 2 || v > p.hp - 2) return;
    const unsigned char* s = base + (static_cast<size_t>(v) * p.wp + static_cast<size_t>(u)) * 4;
    if ((s[0] | s[1] | s[2] | s[3]) == 0) return;
    if (opacity == 1.0f) {
      const unsigned int inv = 255u - s[3];
      for (int c = 0; c < 4; ++c) {
        unsigned int t = d[c] * inv + 128u;
        t = (t + (t >> 8)) >> 8;
        const unsigned int o = s[c] + t;
        d[c] = static_cast<unsigned char>(o > 255u ? 255u : o);
      }
    } else {
      const float keep = 1.0f - static_cast<float>(s[3]) * (opacity / 255.0f);
      for (int c = 0; c < 4; ++c) {
        const float o = static_cast<float>(d[c]) * keep + static_cast<float>(s[c]) * opacity + 0.5f;
        d[c] = static_cast<unsigned char>(fminf(o, 255.0f));
      }
    }
    return;
  }
  float u = static_cast<float>(p.ax + p.bx * X + p.cx * Y);
  float v = static_cast<float>(p.ay + p.by * X + p.cy * Y);
  u = fminf(fmaxf(u, -1.0f), static_cast<float>(p.wp));
  v = fminf(fmaxf(v, -1.0f), static_cast<float>(p.hp));
  const int ix = min(max(static_cast<int>(u), 0), p.wp - 2);
  const int iy = min(max(static_cast<int>(v), 0), p.hp - 2);
  const float fu = fminf(fmaxf(u - static_cast<float>(ix), 0.0f), 1.0f);
  const float fv = fminf(fmaxf(v - static_cast<float>(iy), 0.0f), 1.0f);
  const unsigned char* q0 = base + (static_cast<size_t>(iy) * p.wp + ix) * 4;
  const unsigned char* q1 = q0 + static_cast<size_t>(p.wp) * 4;
  bool clear = true, uniform = true;
  for (int c = 0; c < 8; ++c) {
    clear = clear && q0[c] == 0 && q1[c] == 0;
    uniform = uniform && q0[c] == q1[c] && q0[c % 4] == q0[c];
  }
  if (clear) return;
  float s[4];
  if (uniform) {
    for (int c = 0; c < 4; ++c) s[c] = q0[c];
  } else {
    const float w00 = (1 - fu) * (1 - fv), w01 = fu * (1 - fv), w10 = (1 - fu) * fv, w11 = fu * fv;
    for (int c = 0; c < 4; ++c)
      s[c] = w00 * q0[c] + w01 * q0[4 + c] + w10 * q1[c] + w11 * q1[4 + c];
  }
  const float keep = 1.0f - s[3] * (opacity / 255.0f);
  for (int c = 0; c < 4; ++c) {
    const float o = static_cast<float>(d[c]) * keep + s[c] * opacity + 0.5f;
    d[c] = static_cast<unsigned char>(fminf(o, 255.0f));
  }
}
