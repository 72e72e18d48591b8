// The Motion kernels of the cuda device: the CPU compositor's arithmetic (image_renderer/
// motion.cpp) one pixel per thread, operation for operation, so that both draw the same bytes.
// Compiled with -fmad=false: no multiply-add is fused, and every single- and double-precision
// step rounds as the CPU's does.
#include "motion_kernel.h"

// One reduced pixel (or border pixel) per thread: the mean of its fx x fy source block, the part
// of the block beyond the source counting as transparent.
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
  // For 4 x 4 blocks mul is 2^28 and this is (sum + 8) >> 4, the CPU's shortcut, exactly.
  for (int c = 0; c < 4; ++c) {
    const unsigned long long v = (sum[c] * p.mul + (1ull << 31)) >> 32;
    o[c] = static_cast<unsigned char>(v > 255 ? 255 : v);
  }
}

// out = dst * (1 - a * opacity) + src * opacity, the source premultiplied.
__device__ void BlendOver(unsigned char* d, const float s[4], float opacity, float k255) {
  const float keep = 1.0f - s[3] * k255;
  for (int c = 0; c < 4; ++c) {
    const float o = static_cast<float>(d[c]) * keep + s[c] * opacity + 0.5f;
    d[c] = static_cast<unsigned char>(fminf(o, 255.0f));
  }
}

extern "C" __global__ void gf_blend(const GFBlendParams p) {
  const int X = p.x0 + static_cast<int>(blockIdx.x * blockDim.x + threadIdx.x);
  const int Y = p.y0 + static_cast<int>(blockIdx.y * blockDim.y + threadIdx.y);
  if (X >= p.x1 || Y >= p.y1) return;
  unsigned char* d =
      reinterpret_cast<unsigned char*>(p.dst) + static_cast<long long>(Y) * p.dst_pitch + X * 4;
  const unsigned char* base = reinterpret_cast<const unsigned char*>(p.base);

  if (p.exact) {
    const long long u = X + p.u0, v = Y + p.v0;
    if (u < 1 || v < 1 || u > p.wp - 2 || v > p.hp - 2) return;
    const unsigned char* s = base + (static_cast<size_t>(v) * p.wp + static_cast<size_t>(u)) * 4;
    if ((s[0] | s[1] | s[2] | s[3]) == 0) return;
    if (p.opacity == 1.0f) {
      // Integer division by 255, rounded (BlendExactRowScalar).
      const unsigned int inv = 255u - s[3];
      for (int c = 0; c < 4; ++c) {
        unsigned int t = d[c] * inv + 128u;
        t = (t + (t >> 8)) >> 8;
        const unsigned int o = s[c] + t;
        d[c] = static_cast<unsigned char>(o > 255u ? 255u : o);
      }
    } else {
      const float f[4] = {static_cast<float>(s[0]), static_cast<float>(s[1]),
                          static_cast<float>(s[2]), static_cast<float>(s[3])};
      BlendOver(d, f, p.opacity, p.k255);
    }
    return;
  }

  // The row's span, and the sample position stepped from its start in single precision.
  const int* span = reinterpret_cast<const int*>(p.spans) + 2 * (Y - p.y0);
  if (X < span[0] || X >= span[1]) return;
  const float u0 = static_cast<float>(p.ax + p.bx * span[0] + p.cx * Y);
  const float v0 = static_cast<float>(p.ay + p.by * span[0] + p.cy * Y);
  const float i = static_cast<float>(X - span[0]);
  float u = u0 + static_cast<float>(p.bx) * i;
  float v = v0 + static_cast<float>(p.by) * i;

  // FootprintAt: clamped into the border, the 2 x 2 footprint and its fractions.
  u = fminf(fmaxf(u, -1.0f), static_cast<float>(p.wp));
  v = fminf(fmaxf(v, -1.0f), static_cast<float>(p.hp));
  const int ix = min(max(static_cast<int>(u), 0), p.wp - 2);
  const int iy = min(max(static_cast<int>(v), 0), p.hp - 2);
  const float fu = fminf(fmaxf(u - static_cast<float>(ix), 0.0f), 1.0f);
  const float fv = fminf(fmaxf(v - static_cast<float>(iy), 0.0f), 1.0f);
  const unsigned char* q0 = base + (static_cast<size_t>(iy) * p.wp + ix) * 4;
  const unsigned char* q1 = q0 + static_cast<size_t>(p.wp) * 4;

  // A clear footprint leaves the pixel as it is; a uniform one is its pixel whatever the weights.
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
  BlendOver(d, s, p.opacity, p.k255);
}
