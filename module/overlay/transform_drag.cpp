#include "overlay/transform_drag.h"

#include <algorithm>
#include <cmath>

#include "overlay/transform_box.h"
#include "params/params.h"
#include "vetext/overlay.h"

namespace vetext {
namespace {

constexpr double kDegrees = 180.0 / M_PI;
constexpr double kMinScale = 25, kMaxScale = 400;  // percent, the sliders' range

// The drag under way. Module-wide like the editing flag: the host sends one viewer's events at
// a time.
struct Drag {
  int32_t zone = kZoneNone;
  EffectRef effect = nullptr;
  BoxPoint start_viewer, start_layer, anchor_viewer;
  BoxPoint axis_x{1, 0}, axis_y{0, 1};  // the box's unit axes on screen (viewer pixels)
  VxFixed pos_x = 0, pos_y = 0, anchor_x = 0, anchor_y = 0, scale = 0, hscale = 0, rotation = 0;
  bool uniform = true;
};
Drag g_drag;

VxFixed ToFixed(double v) {
  return static_cast<VxFixed>(std::lround(std::clamp(v, -32767.0, 32767.0) * 65536.0));
}
double FromFixed(VxFixed f) {
  return double(f) / 65536.0;
}

BoxPoint Unit(double x, double y, BoxPoint fallback) {
  const double n = std::hypot(x, y);
  return n > 0 ? BoxPoint{x / n, y / n} : fallback;
}

// The event's point in layer pixels, keeping the fraction the host's conversion gives.
BoxPoint LayerPoint(const EventRecord& ev) {
  return ViewerToLayerPoint(ev, {double(ev.click_x), double(ev.click_y)});
}

// How far the point has gone from the anchor along `axis`, relative to where the drag began;
// 1 when the start lies (almost) on the anchor's perpendicular, where no ratio is defined.
double AxisRatio(const BoxPoint& m, const Drag& d, const BoxPoint& axis) {
  const double from = (d.start_viewer.x - d.anchor_viewer.x) * axis.x +
                      (d.start_viewer.y - d.anchor_viewer.y) * axis.y;
  const double to = (m.x - d.anchor_viewer.x) * axis.x + (m.y - d.anchor_viewer.y) * axis.y;
  if (std::fabs(from) < 1.0) return 1.0;
  return to / from;
}

VxFixed Scaled(VxFixed start, double ratio) {
  return ToFixed(std::clamp(FromFixed(start) * ratio, kMinScale, kMaxScale));
}

}  // namespace

void BeginTransformDrag(InputRecord* in, OutputRecord* out, ParamList* params,
                        const EventRecord& ev, int32_t zone) {
  g_drag = Drag{};
  TransformBox box;
  if (zone == kZoneNone || in == nullptr || !MakeTransformBox(in, out, params, &box)) return;
  const TransformBox v = BoxInViewer(box, ev);
  ParamDef* const* p = params->params;
  Drag d;
  d.zone = zone;
  d.effect = in->effect_ref;
  d.start_viewer = {double(ev.click_x), double(ev.click_y)};
  d.start_layer = LayerPoint(ev);
  d.anchor_viewer = v.anchor;
  d.axis_x = Unit(v.corner[1].x - v.corner[0].x, v.corner[1].y - v.corner[0].y, {1, 0});
  d.axis_y = Unit(v.corner[3].x - v.corner[0].x, v.corner[3].y - v.corner[0].y, {0, 1});
  d.pos_x = p[kParamPosition]->u.td.x_value;
  d.pos_y = p[kParamPosition]->u.td.y_value;
  d.anchor_x = p[kParamAnchorPoint]->u.td.x_value;
  d.anchor_y = p[kParamAnchorPoint]->u.td.y_value;
  d.scale = p[kParamScale]->u.fd.value;
  d.hscale = p[kParamHorizontalScale]->u.fd.value;
  d.uniform = p[kParamUniformScale]->u.bd.value != 0;
  d.rotation = p[kParamRotation]->u.ad.value;
  g_drag = d;
}

bool ContinueTransformDrag(InputRecord* in, const EventRecord& ev) {
  const Drag& d = g_drag;
  if (d.zone == kZoneNone || in == nullptr || in->effect_ref != d.effect) return false;
  if (ev.callbacks == nullptr || ev.callbacks->set_param == nullptr) return true;
  auto set = [&](int32_t index, VxFixed x, VxFixed y = 0) {
    ev.callbacks->set_param(d.effect, index, x, y);
  };
  const BoxPoint m{double(ev.click_x), double(ev.click_y)};
  const BoxPoint layer = LayerPoint(ev);
  const double dx = layer.x - d.start_layer.x, dy = layer.y - d.start_layer.y;
  switch (d.zone) {
    case kZoneInside:
      set(kParamPosition, ToFixed(FromFixed(d.pos_x) + dx), ToFixed(FromFixed(d.pos_y) + dy));
      break;
    case kZoneTopLeft:
    case kZoneTopRight:
    case kZoneBottomLeft:
    case kZoneBottomRight: {
      // Uniformly about the anchor: the pointer's distance from it against the start's.
      const double from =
          std::hypot(d.start_viewer.x - d.anchor_viewer.x, d.start_viewer.y - d.anchor_viewer.y);
      const double ratio =
          from < 1.0 ? 1.0 : std::hypot(m.x - d.anchor_viewer.x, m.y - d.anchor_viewer.y) / from;
      set(kParamScale, Scaled(d.scale, ratio));
      if (!d.uniform) set(kParamHorizontalScale, Scaled(d.hscale, ratio));
      break;
    }
    case kZoneLeft:
    case kZoneRight: {
      const double ratio = AxisRatio(m, d, d.axis_x);
      if (d.uniform)
        set(kParamScale, Scaled(d.scale, ratio));
      else
        set(kParamHorizontalScale, Scaled(d.hscale, ratio));
      break;
    }
    case kZoneTop:
    case kZoneBottom:
      set(kParamScale, Scaled(d.scale, AxisRatio(m, d, d.axis_y)));
      break;
    case kZoneRotate:
    case kZoneRotateKnob: {
      // Clockwise on screen is positive, as Rotation is.
      const double a0 =
          std::atan2(d.start_viewer.y - d.anchor_viewer.y, d.start_viewer.x - d.anchor_viewer.x);
      const double a1 = std::atan2(m.y - d.anchor_viewer.y, m.x - d.anchor_viewer.x);
      double turn = (a1 - a0) * kDegrees;
      if (turn > 180) turn -= 360;
      if (turn <= -180) turn += 360;
      set(kParamRotation, ToFixed(FromFixed(d.rotation) + turn));
      break;
    }
    case kZoneAnchor: {
      // The text is placed at Anchor + R (Position - Anchor) plus terms that do not involve
      // either, R turning clockwise by Rotation; moving the anchor by dA keeps it in place when
      // Position moves by dA - R^-1 dA.
      const double r = FromFixed(d.rotation) / kDegrees;
      const double c = std::cos(r), s = std::sin(r);
      const double px = dx - (c * dx + s * dy), py = dy - (-s * dx + c * dy);
      set(kParamAnchorPoint, ToFixed(FromFixed(d.anchor_x) + dx),
          ToFixed(FromFixed(d.anchor_y) + dy));
      set(kParamPosition, ToFixed(FromFixed(d.pos_x) + px), ToFixed(FromFixed(d.pos_y) + py));
      break;
    }
    default:
      break;
  }
  return true;
}

}  // namespace vetext
