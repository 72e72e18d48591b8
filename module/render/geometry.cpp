#include "render/geometry.h"

#include <cmath>
#include <limits>

namespace vetext {
namespace {

// Truncation toward zero into 32 bits; values outside the range (or NaN) count as no size,
// so that a damaged layout draws nothing instead of asking for an absurd buffer.
int32_t TruncToInt32(double v) {
  if (!(v > -2147483648.0 && v < 2147483648.0)) return 0;
  return static_cast<int32_t>(v);
}

// A text buffer larger than this is refused as damaged input (16k x 16k oversampled pixels).
constexpr int64_t kMaxRasterBytes = int64_t(1) << 30;

}  // namespace

float MaxStrokeWidth(const LayoutRecord& layout) {
  float m = 0.0f;
  for (const CharacterRecord& c : layout.mCharacters)
    if (c.mStrokeWidth > m) m = c.mStrokeWidth;
  return m;
}

float FirstBaselineShift(const LayoutRecord& layout) {
  return layout.mCharacters.empty() ? 0.0f : layout.mCharacters.front().mBaselineShift;
}

void AlignmentAnchor(const LayoutRecord& layout, float* ax, float* ay) {
  if (layout.mTextInABox) {
    *ax = 0.0f;
    *ay = 0.0f;
    return;
  }
  *ax = 0.5f;
  *ay = 0.5f;
  if (!layout.mCharacters.empty()) {
    uint32_t a = layout.mCharacters.front().mAlignment;
    if (a == 0) *ax = 0.0f;
    if (a == 1) *ax = 1.0f;
  }
}

RasterGeometry ComputeRasterGeometry(const LayoutRecord& layout) {
  RasterGeometry g;
  g.bw = TruncToInt32(double(layout.mRight) - double(layout.mLeft));
  g.bh = TruncToInt32(double(layout.mBottom) - double(layout.mTop));
  float m = MaxStrokeWidth(layout);
  g.W = TruncToInt32(double(g.bw) + 2.0 * double(m));
  g.H = TruncToInt32(double(g.bh) + 2.0 * double(m));
  g.ox = m;
  if (layout.mLeft < 0) g.ox = m - layout.mLeft;
  g.oy = m;
  if (layout.mTop < 0) g.oy = m - layout.mTop;
  g.first_baseline_shift = FirstBaselineShift(layout);
  g.oversampling = layout.mOverSampling;
  AlignmentAnchor(layout, &g.ax, &g.ay);
  return g;
}

int64_t RasterBufferBytes(const RasterGeometry& g) {
  if (g.W <= 0 || g.H <= 0) return -1;
  int64_t bytes = int64_t(g.W) * 4 * int64_t(g.H);
  if (bytes > kMaxRasterBytes) return -1;
  return bytes;
}

TextPlacement PlaceText(const RasterGeometry& g, const TransformValues& t, const FrameInfo& frame) {
  const float px = t.position_x;
  float py = frame.bottom_up ? t.position_y : -t.position_y;
  const float syd = float(double(t.scale_y) * frame.downsample_y);
  py = py - g.first_baseline_shift * syd;
  TextPlacement p;
  p.scale.y = syd / g.oversampling;
  p.scale.x = float(double(float(double(t.scale_x) * frame.downsample_x) / g.oversampling) *
                    frame.inverse_par);
  // Normalised so that the anchor point maps onto itself: up to rounding dst is the anchor
  // point over the frame size, and src the alignment fractions plus the anchor's offset.
  const float W = float(g.W), H = float(g.H);
  const float u = (t.anchor_x - px) / (W * p.scale.x);
  const float v = (t.anchor_y - py) / (H * p.scale.y);
  p.dst = {(u * W * p.scale.x + px) / float(frame.width),
           (v * H * p.scale.y + py) / float(frame.height)};
  p.src = {u + g.ax, v + g.ay};
  p.rotation = frame.bottom_up ? -t.rotation : t.rotation;
  p.opacity = t.opacity;
  return p;
}

IR_Point PlacedPoint(const TextPlacement& p, const RasterGeometry& g, const FrameInfo& frame,
                     double bx, double by) {
  // The compositor samples the buffer at src + R (d - dst) / scale for a frame offset d, R
  // turning by the placement's angle counter-clockwise on screen; this is that map inverted.
  const double r = double(p.rotation) * (M_PI / 180.0);
  const double c = std::cos(r), s = std::sin(r);
  const double a = double(p.scale.x) * (bx - double(p.src.x) * g.W);
  const double b = double(p.scale.y) * (by - double(p.src.y) * g.H);
  return IR_Point{float(double(p.dst.x) * frame.width + c * a + s * b),
                  float(double(p.dst.y) * frame.height - s * a + c * b)};
}

IR_Point BufferPoint(const TextPlacement& p, const RasterGeometry& g, const FrameInfo& frame,
                     double fx, double fy) {
  const double r = double(p.rotation) * (M_PI / 180.0);
  const double c = std::cos(r), s = std::sin(r);
  const double dx = fx - double(p.dst.x) * frame.width, dy = fy - double(p.dst.y) * frame.height;
  const double a = c * dx - s * dy, b = s * dx + c * dy;
  const double sx = double(p.scale.x), sy = double(p.scale.y);
  return IR_Point{float(double(p.src.x) * g.W + (sx != 0 ? a / sx : 0)),
                  float(double(p.src.y) * g.H + (sy != 0 ? b / sy : 0))};
}

}  // namespace vetext
