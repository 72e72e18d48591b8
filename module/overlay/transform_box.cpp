#include "overlay/transform_box.h"

#include <algorithm>
#include <cmath>

#include "document/layout_cache.h"
#include "overlay/painter.h"
#include "params/params.h"
#include "render/geometry.h"
#include "vetext/overlay.h"
#include "vetext/suites.h"

namespace vetext {
namespace {

BoxPoint Mid(const BoxPoint& a, const BoxPoint& b) {
  return {(a.x + b.x) / 2, (a.y + b.y) / 2};
}

double Distance(const BoxPoint& a, double x, double y) {
  return std::hypot(a.x - x, a.y - y);
}

// Distance from (x, y) to the segment a-b.
double SegmentDistance(const BoxPoint& a, const BoxPoint& b, double x, double y) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double len2 = dx * dx + dy * dy;
  double t = len2 > 0 ? ((x - a.x) * dx + (y - a.y) * dy) / len2 : 0;
  t = std::clamp(t, 0.0, 1.0);
  return std::hypot(a.x + t * dx - x, a.y + t * dy - y);
}

// Inside the quadrilateral (either winding: a mirrored or turned box keeps working).
bool Inside(const TransformBox& b, double x, double y) {
  int sign = 0;
  for (int i = 0; i < 4; ++i) {
    const BoxPoint& p = b.corner[i];
    const BoxPoint& q = b.corner[(i + 1) % 4];
    const double cross = (q.x - p.x) * (y - p.y) - (q.y - p.y) * (x - p.x);
    const int s = cross > 0 ? 1 : cross < 0 ? -1 : 0;
    if (s == 0) continue;
    if (sign == 0) sign = s;
    if (s != sign) return false;
  }
  return sign != 0;
}

using Conversion = VxStatus (*)(void* host_data, VxFixed* x, VxFixed* y);

// One of the host's point conversions, in 16.16 fixed point both ways, keeping the fraction;
// the point unchanged when the host has no such callback or it fails.
BoxPoint Convert(const EventRecord& ev, Conversion fn, const BoxPoint& p) {
  if (fn == nullptr || ev.context == nullptr || *ev.context == nullptr) return p;
  VxFixed x = static_cast<VxFixed>(std::lround(std::clamp(p.x, -32767.0, 32767.0) * 65536.0));
  VxFixed y = static_cast<VxFixed>(std::lround(std::clamp(p.y, -32767.0, 32767.0) * 65536.0));
  if (fn((*ev.context)->host_data, &x, &y) != kStatusOk) return p;
  return {x / 65536.0, y / 65536.0};
}

}  // namespace

BoxPoint LayerToViewer(const EventRecord& ev, const BoxPoint& p) {
  return Convert(ev, ev.callbacks ? ev.callbacks->layer_to_viewer : nullptr, p);
}

BoxPoint ViewerToLayerPoint(const EventRecord& ev, const BoxPoint& p) {
  return Convert(ev, ev.callbacks ? ev.callbacks->viewer_to_layer : nullptr, p);
}

BoxPoint LayerPlacement::LayoutToLayer(double x, double y) const {
  const IR_Point q = PlacedPoint(p, g, frame, g.ox + x, g.oy + y);
  return {q.x, q.y};
}

BoxPoint LayerPlacement::LayerToLayout(double x, double y) const {
  const IR_Point b = BufferPoint(p, g, frame, x, y);
  return {b.x - g.ox, b.y - g.oy};
}

bool PlaceOnLayer(InputRecord* in, ParamList* params, const LayoutRecord& layout,
                  LayerPlacement* out) {
  const RasterGeometry g = ComputeRasterGeometry(layout);
  if (!g.Drawable()) return false;
  TransformValues t;
  if (!ReadTransform(params, &t)) return false;
  out->g = g;
  out->frame = FrameInfo{};
  out->frame.width = in->width;
  out->frame.height = in->height;
  out->frame.bottom_up = true;
  if (in->pixel_aspect.num != 0)
    out->frame.inverse_par = double(in->pixel_aspect.den) / double(in->pixel_aspect.num);
  out->p = PlaceText(g, t, out->frame);
  return true;
}

bool MakeTransformBox(InputRecord* in, OutputRecord* out, ParamList* params, TransformBox* box) {
  if (in == nullptr || params == nullptr) return false;
  LayoutRecord layout;
  if (GetLayoutFromParam(in, out, params, layout) != kStatusOk) return false;
  layout.mOverSampling = 4.0f;  // the hit test's layout carries 4, whatever the record said
  LayerPlacement place;
  if (!PlaceOnLayer(in, params, layout, &place)) return false;
  // The layout bounds, widened by the widest stroke, which the bounds leave out and the picture
  // shows.
  const double m = MaxStrokeWidth(layout);
  const double left = layout.mLeft - m, right = layout.mRight + m;
  const double top = layout.mTop - m, bottom = layout.mBottom + m;
  const double xs[4] = {left, right, right, left}, ys[4] = {top, top, bottom, bottom};
  for (int i = 0; i < 4; ++i) box->corner[i] = place.LayoutToLayer(xs[i], ys[i]);
  TransformValues t;
  ReadTransform(params, &t);
  box->anchor = {t.anchor_x, t.anchor_y};
  return true;
}

TransformBox BoxInViewer(const TransformBox& layer_box, const EventRecord& ev) {
  TransformBox v;
  for (int i = 0; i < 4; ++i) v.corner[i] = LayerToViewer(ev, layer_box.corner[i]);
  v.anchor = LayerToViewer(ev, layer_box.anchor);
  return v;
}

BoxPoint KnobPoint(const TransformBox& b) {
  const BoxPoint top = Mid(b.corner[0], b.corner[1]);
  const BoxPoint bottom = Mid(b.corner[3], b.corner[2]);
  const double dx = top.x - bottom.x, dy = top.y - bottom.y;
  const double len = std::hypot(dx, dy);
  if (!(len > 0)) return {top.x, top.y - kZoneKnobDistance};
  return {top.x + dx / len * kZoneKnobDistance, top.y + dy / len * kZoneKnobDistance};
}

int32_t HitTestBox(const TransformBox& b, double x, double y) {
  const double r = kZoneHandleRadius;
  if (Distance(b.anchor, x, y) <= r) return kZoneAnchor;
  const int32_t corners[4] = {kZoneTopLeft, kZoneTopRight, kZoneBottomRight, kZoneBottomLeft};
  for (int i = 0; i < 4; ++i)
    if (Distance(b.corner[i], x, y) <= r) return corners[i];
  if (Distance(KnobPoint(b), x, y) <= r) return kZoneRotateKnob;
  // Edges in corner order: top (0-1), right (1-2), bottom (2-3), left (3-0).
  const int32_t edges[4] = {kZoneTop, kZoneRight, kZoneBottom, kZoneLeft};
  for (int i = 0; i < 4; ++i)
    if (Distance(Mid(b.corner[i], b.corner[(i + 1) % 4]), x, y) <= r) return edges[i];
  if (Inside(b, x, y)) return kZoneInside;
  double nearest = INFINITY;
  for (int i = 0; i < 4; ++i)
    nearest = std::min(nearest, SegmentDistance(b.corner[i], b.corner[(i + 1) % 4], x, y));
  if (nearest <= kZoneRotateReach) return kZoneRotate;
  return kZoneNone;
}

void DrawTransformBox(InputRecord* in, const TransformBox& b, const EventRecord& ev) {
  Painter paint(in, ev);
  if (!paint.ok()) return;
  const DrawbotColor line{0.35f, 0.65f, 1.0f, 1.0f}, handle{1.0f, 1.0f, 1.0f, 1.0f};
  const BoxPoint knob = KnobPoint(b), top = Mid(b.corner[0], b.corner[1]);
  // The outline with the knob's stem and the anchor's cross, stroked; then the handles, filled.
  // (Tools read the box back from this order: the four corners, the stem, the cross.)
  paint.MoveTo(b.corner[0].x, b.corner[0].y);
  for (int i = 1; i < 4; ++i) paint.LineTo(b.corner[i].x, b.corner[i].y);
  paint.Close();
  paint.MoveTo(top.x, top.y);
  paint.LineTo(knob.x, knob.y);
  const double ax = b.anchor.x, ay = b.anchor.y, r = kZoneHandleRadius;
  paint.MoveTo(ax - r, ay);
  paint.LineTo(ax + r, ay);
  paint.MoveTo(ax, ay - r);
  paint.LineTo(ax, ay + r);
  paint.Circle(ax, ay, r * 0.6);
  paint.Stroke(line, 1.0f);
  const double h = 3.0;  // half the side of a handle, viewer pixels
  auto square = [&](const BoxPoint& c) { paint.Rect(c.x - h, c.y - h, 2 * h, 2 * h); };
  for (int i = 0; i < 4; ++i) {
    square(b.corner[i]);
    square(Mid(b.corner[i], b.corner[(i + 1) % 4]));
  }
  square(knob);
  paint.Fill(handle);
}

}  // namespace vetext
