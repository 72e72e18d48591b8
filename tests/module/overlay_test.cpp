// The Transform overlay through the reference host: the box it draws holds the text the render
// draws, and every zone answers with its cursor at its place, under rotation, scale and zoom.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "host_helpers.h"
#include "params/params.h"
#include "vetext/host/host.h"
#include "vetext/overlay.h"

namespace {

using vetext::kParamAnchorPoint;
using vetext::kParamHorizontalScale;
using vetext::kParamPosition;
using vetext::kParamRotation;
using vetext::kParamScale;
using vetext::kParamTransformGroup;
using vetext::kParamUniformScale;

struct P {
  double x, y;
};

struct OverlayCase {
  const char* name;
  double px, py, scale, hscale, rotation, ax, ay;  // hscale 0: uniform
  vxhost::ViewerTransform viewer;
};

class TransformOverlay : public ::testing::Test {
 protected:
  void SetUp() override {
    module_ = vetext_test::LoadModule(host_, vxhost::DefaultModulePath());
    ASSERT_NE(module_, nullptr);
    ASSERT_EQ(module_->Setup(), 0);
    inst_ = module_->CreateInstance();
    ASSERT_NE(inst_, nullptr);
    inst_->SetLayerSize(kW, kH);
  }
  void Set(int32_t index, double x, double y = 0, bool flag = false) {
    vxhost::ParamValue v;
    v.x = x, v.y = y, v.flag = flag;
    ASSERT_EQ(inst_->SetValue(index, v), 0);
  }
  void Apply(const OverlayCase& c) {
    Set(kParamPosition, c.px, c.py);
    Set(kParamAnchorPoint, c.ax, c.ay);
    Set(kParamScale, c.scale);
    Set(kParamRotation, c.rotation);
    Set(kParamUniformScale, 0, 0, c.hscale == 0);
    if (c.hscale != 0) Set(kParamHorizontalScale, c.hscale);
    host_.viewer() = c.viewer;
  }
  EventRecord Send(int32_t type, P at) {
    EventRecord ev{};
    ev.event_type = type;
    ev.param_index = kParamTransformGroup;
    ev.click_x = int32_t(std::lround(at.x));
    ev.click_y = int32_t(std::lround(at.y));
    EXPECT_EQ(inst_->Event(&ev), 0);
    return ev;
  }
  // The box the draw event drew: its outline's four corners and the anchor cross's centre.
  bool DrawnBox(P corner[4], P* anchor) {
    host_.ClearDrawing();
    Send(kEventDraw, {0, 0});
    const auto drawn = host_.drawn_paths();
    if (drawn.empty() || drawn[0].ops.size() < 11) return false;
    const auto& ops = drawn[0].ops;
    for (int i = 0; i < 4; ++i) corner[i] = {ops[size_t(i)].x, ops[size_t(i)].y};
    *anchor = {(ops[7].x + ops[8].x) / 2, (ops[7].y + ops[8].y) / 2};
    return true;
  }
  static constexpr int32_t kW = 640, kH = 360;
  vxhost::Host host_;
  std::unique_ptr<vxhost::Module> module_;
  std::unique_ptr<vxhost::Instance> inst_;
};

P Mid(P a, P b) {
  return {(a.x + b.x) / 2, (a.y + b.y) / 2};
}
// `d` viewer pixels from `from` in the direction away from `centre`.
P Out(P from, P centre, double d) {
  const double dx = from.x - centre.x, dy = from.y - centre.y, n = std::hypot(dx, dy);
  return {from.x + dx / n * d, from.y + dy / n * d};
}

TEST_F(TransformOverlay, BoxHoldsTheRenderedInkAndEveryZoneShowsItsCursor) {
  const OverlayCase cases[] = {
      {"upright", 320, 180, 100, 0, 0, 320, 180, {1, 0, 0}},
      {"turned and scaled", 300, 200, 150, 0, 30, 320, 180, {1, 0, 0}},
      {"squeezed, anchor off centre", 320, 180, 100, 60, -20, 200, 150, {1, 0, 0}},
      {"half-size viewer", 320, 180, 200, 0, 10, 320, 180, {0.5, 40, 20}},
      {"zoomed viewer", 320, 180, 80, 0, 0, 320, 180, {2, -300, -150}},
  };
  for (const OverlayCase& c : cases) {
    SCOPED_TRACE(c.name);
    Apply(c);
    P k[4], anchor;
    ASSERT_TRUE(DrawnBox(k, &anchor));
    const vxhost::ViewerTransform& v = c.viewer;
    EXPECT_NEAR(anchor.x, c.ax * v.zoom + v.offset_x, 0.01);
    EXPECT_NEAR(anchor.y, c.ay * v.zoom + v.offset_y, 0.01);

    // Every inked pixel of the CPU render lies in the box (a pixel of slack for the blend's
    // reach), and the ink reaches near each of its sides: the box is where the text is.
    vxhost::Frame in(kW, kH), out(kW, kH);
    in.Fill(0, 0, 0, 255);
    ASSERT_EQ(inst_->Render(0, in, out), 0);
    double near_side[4] = {1e9, 1e9, 1e9, 1e9};
    int outside = 0, ink = 0;
    for (int32_t y = 0; y < kH; ++y)
      for (int32_t x = 0; x < kW; ++x) {
        if (out.row(y)[4 * x + 1] < 128) continue;
        ++ink;
        const P p{(x + 0.5) * v.zoom + v.offset_x, (y + 0.5) * v.zoom + v.offset_y};
        for (int i = 0; i < 4; ++i) {
          const P a = k[i], b = k[(i + 1) % 4];
          const double len = std::hypot(b.x - a.x, b.y - a.y);
          // Distance inside the edge (the corners run clockwise on screen).
          const double in_by = ((b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x)) / len;
          if (in_by < -1.5 * v.zoom) ++outside;
          near_side[i] = std::min(near_side[i], in_by);
        }
      }
    EXPECT_GT(ink, 200);
    EXPECT_EQ(outside, 0);
    const double size = std::hypot(k[1].x - k[0].x, k[1].y - k[0].y);
    for (double d : near_side) EXPECT_LT(d, 0.15 * size);

    // The zones at their places (viewer pixels from the drawn box).
    const P centre = Mid(k[0], k[2]);
    const P top = Mid(k[0], k[1]);
    const struct {
      P at;
      int32_t cursor;
    } zones[] = {
        {k[0], 25},
        {k[1], 27},
        {k[3], 27},
        {k[2], 25},
        {Mid(k[3], k[0]), 24},
        {Mid(k[1], k[2]), 24},
        {top, 26},
        {Mid(k[2], k[3]), 26},
        {Mid(centre, Mid(k[1], k[2])), 35},  // inside, between centre and right edge
        {anchor, 29},
        {Out(Mid(k[1], k[2]), centre, 12), 33},  // just outside the right edge
        {Out(top, Mid(k[2], k[3]), kZoneKnobDistance), 31},
        {Out(Mid(k[1], k[2]), centre, 60), 0},  // well away
    };
    for (const auto& z : zones) {
      if (z.cursor == 35 && std::hypot(z.at.x - anchor.x, z.at.y - anchor.y) < 8) continue;
      SCOPED_TRACE(testing::Message() << "at " << z.at.x << "," << z.at.y);
      EXPECT_EQ(Send(kEventAdjustCursor, z.at).cursor, z.cursor);
    }
    // A click reports a hit exactly where there is a zone.
    EXPECT_EQ(Send(kEventClick, k[0]).handled, 1);
    EXPECT_EQ(Send(kEventClick, Out(Mid(k[1], k[2]), centre, 60)).handled, 0);
  }
}

}  // namespace
