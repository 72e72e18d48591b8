#include "overlay/transform_box.h"

#include <algorithm>
#include <cmath>

#include "document/layout_cache.h"
#include "effect/suites.h"
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

BoxPoint ToViewer(const EventRecord& ev, const BoxPoint& p) {
  if (ev.callbacks == nullptr || ev.callbacks->layer_to_viewer == nullptr ||
      ev.context == nullptr || *ev.context == nullptr)
    return p;
  // 16.16 fixed point, as the host takes points, keeping the fraction.
  VxFixed x = static_cast<VxFixed>(std::lround(std::clamp(p.x, -32767.0, 32767.0) * 65536.0));
  VxFixed y = static_cast<VxFixed>(std::lround(std::clamp(p.y, -32767.0, 32767.0) * 65536.0));
  if (ev.callbacks->layer_to_viewer((*ev.context)->host_data, &x, &y) != kStatusOk) return p;
  return {x / 65536.0, y / 65536.0};
}

}  // namespace

bool MakeTransformBox(InputRecord* in, OutputRecord* out, ParamList* params, TransformBox* box) {
  if (in == nullptr || params == nullptr) return false;
  LayoutRecord layout;
  if (GetLayoutFromParam(in, out, params, layout) != kStatusOk) return false;
  layout.mOverSampling = 4.0f;  // the hit test's layout carries 4, whatever the record said
  const RasterGeometry g = ComputeRasterGeometry(layout);
  if (!g.Drawable()) return false;
  TransformValues t;
  if (!ReadTransform(params, &t)) return false;
  // Layer pixels, visual rows (y down), the way a viewer shows the layer; the layer's pixel
  // aspect applies, the viewer's downsampling does not (the host converts layer points).
  FrameInfo frame;
  frame.width = in->width;
  frame.height = in->height;
  frame.bottom_up = true;
  if (in->pixel_aspect.num != 0)
    frame.inverse_par = double(in->pixel_aspect.den) / double(in->pixel_aspect.num);
  const TextPlacement p = PlaceText(g, t, frame);
  // The layout bounds inside the buffer (the drawing origin moves them as it moves the glyphs),
  // widened by the widest stroke, which the bounds leave out and the picture shows.
  const double m = MaxStrokeWidth(layout);
  const double left = g.ox + layout.mLeft - m, right = g.ox + layout.mRight + m;
  const double top = g.oy + layout.mTop - m, bottom = g.oy + layout.mBottom + m;
  const double xs[4] = {left, right, right, left}, ys[4] = {top, top, bottom, bottom};
  for (int i = 0; i < 4; ++i) {
    const IR_Point q = PlacedPoint(p, g, frame, xs[i], ys[i]);
    box->corner[i] = {q.x, q.y};
  }
  box->anchor = {t.anchor_x, t.anchor_y};
  return true;
}

TransformBox BoxInViewer(const TransformBox& layer_box, const EventRecord& ev) {
  TransformBox v;
  for (int i = 0; i < 4; ++i) v.corner[i] = ToViewer(ev, layer_box.corner[i]);
  v.anchor = ToViewer(ev, layer_box.anchor);
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

namespace {

void DrawBox(InputRecord* in, const TransformBox& b, const EventRecord& ev) {
  auto drawer = static_cast<DrawbotDrawerRef>((*ev.context)->host_data);
  ScopedSuite<DrawbotDrawSuite1> draw(in, nullptr, kDrawbotDrawSuiteName, kDrawbotDrawSuiteVersion);
  ScopedSuite<DrawbotSupplierSuite1> supplier_suite(in, nullptr, kDrawbotSupplierSuiteName,
                                                    kDrawbotSupplierSuiteVersion);
  ScopedSuite<DrawbotPathSuite1> path(in, nullptr, kDrawbotPathSuiteName, kDrawbotPathSuiteVersion);
  ScopedSuite<DrawbotSurfaceSuite1> surface_suite(in, nullptr, kDrawbotSurfaceSuiteName,
                                                  kDrawbotSurfaceSuiteVersion);
  if (!draw.get() || !supplier_suite.get() || !path.get() || !surface_suite.get()) return;
  DrawbotSupplierRef supplier = nullptr;
  DrawbotSurfaceRef surface = nullptr;
  if (draw->get_supplier(drawer, &supplier) != 0 || draw->get_surface(drawer, &surface) != 0)
    return;
  // One path per colour: the outline with the knob's stem, then the handles filled.
  auto with_path = [&](auto&& build, const DrawbotColor& color, bool fill) {
    DrawbotPathRef p = nullptr;
    if (supplier_suite->new_path(supplier, &p) != 0 || p == nullptr) return;
    build(p);
    if (fill)
      surface_suite->fill_path(surface, &color, p);
    else
      surface_suite->stroke_path(surface, &color, p, 1.0f);
    supplier_suite->dispose_path(p);
  };
  const DrawbotColor line{0.35f, 0.65f, 1.0f, 1.0f}, handle{1.0f, 1.0f, 1.0f, 1.0f};
  const BoxPoint knob = KnobPoint(b), top = Mid(b.corner[0], b.corner[1]);
  with_path(
      [&](DrawbotPathRef p) {
        path->move_to(p, float(b.corner[0].x), float(b.corner[0].y));
        for (int i = 1; i < 4; ++i) path->line_to(p, float(b.corner[i].x), float(b.corner[i].y));
        path->close(p);
        path->move_to(p, float(top.x), float(top.y));
        path->line_to(p, float(knob.x), float(knob.y));
        // The anchor mark: a cross through the anchor.
        const float ax = float(b.anchor.x), ay = float(b.anchor.y), r = float(kZoneHandleRadius);
        path->move_to(p, ax - r, ay);
        path->line_to(p, ax + r, ay);
        path->move_to(p, ax, ay - r);
        path->line_to(p, ax, ay + r);
      },
      line, false);
  with_path(
      [&](DrawbotPathRef p) {
        const float h = 3.0f;  // half the side of a handle, viewer pixels
        auto square = [&](const BoxPoint& c) {
          path->add_rect(p, float(c.x) - h, float(c.y) - h, 2 * h, 2 * h);
        };
        for (int i = 0; i < 4; ++i) {
          square(b.corner[i]);
          square(Mid(b.corner[i], b.corner[(i + 1) % 4]));
        }
        square(knob);
      },
      handle, true);
}

}  // namespace

void DrawTransformBox(InputRecord* in, const TransformBox& b, const EventRecord& ev) {
  if (ev.context == nullptr || *ev.context == nullptr) return;
  try {
    DrawBox(in, b, ev);
  } catch (const SuiteError&) {
    // A host without the drawing suites shows no box; the event is still answered.
  }
}

}  // namespace vetext
