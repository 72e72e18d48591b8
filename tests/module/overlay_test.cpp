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
  EventRecord Send(int32_t type, P at, double time = 0, int32_t param = kParamTransformGroup) {
    EventRecord ev{};
    ev.event_type = type;
    ev.param_index = param;
    ev.click_x = int32_t(std::lround(at.x));
    ev.click_y = int32_t(std::lround(at.y));
    EXPECT_EQ(inst_->Event(&ev, time), 0);
    return ev;
  }
  // The box the draw event drew: its outline's four corners and the anchor cross's centre.
  bool DrawnBox(P corner[4], P* anchor, double time = 0) {
    host_.ClearDrawing();
    Send(kEventDraw, {0, 0}, time);
    const auto drawn = host_.drawn_paths();
    if (drawn.empty() || drawn[0].ops.size() < 11) return false;
    const auto& ops = drawn[0].ops;
    for (int i = 0; i < 4; ++i) corner[i] = {ops[size_t(i)].x, ops[size_t(i)].y};
    *anchor = {(ops[7].x + ops[8].x) / 2, (ops[7].y + ops[8].y) / 2};
    return true;
  }
  // Presses at `from` and drags to `to` (viewer pixels), at `time` seconds.
  void DragFrom(P from, P to, double time = 0) {
    EventRecord click = Send(kEventClick, from, time);
    EXPECT_EQ(click.handled, 1);
    EXPECT_EQ(Send(kEventDrag, to, time).handled, 1);
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

TEST_F(TransformOverlay, ClickOnTheTextEditsAndADragSelectsOneBandPerLine) {
  Apply({"", 320, 180, 100, 0, 20, 320, 180, {1.5, 10, 5}});
  P k[4]{}, anchor{};
  ASSERT_TRUE(DrawnBox(k, &anchor));
  auto send = [&](int32_t type, P at) { return Send(type, at, 0, vetext::kParamSourceText); };
  auto drawn = [&]() {
    host_.ClearDrawing();
    send(kEventDraw, {0, 0});
    return host_.drawn_paths();
  };
  // Not editing: the frame (outline and baseline), stroked.
  auto frame = drawn();
  ASSERT_EQ(frame.size(), 1u);
  EXPECT_FALSE(frame[0].fill);
  // A click on the text starts editing; a drag across it selects: one filled band (one line),
  // its corners inside the box, wider than one glyph.
  const P left = Mid(Mid(k[0], k[3]), Mid(k[0], k[2])),
          right = Mid(Mid(k[1], k[2]), Mid(k[0], k[2]));
  EXPECT_EQ(send(kEventClick, left).handled, 1);
  EXPECT_EQ(send(kEventDrag, right).handled, 1);
  auto band = drawn();
  ASSERT_EQ(band.size(), 1u);
  EXPECT_TRUE(band[0].fill);
  ASSERT_EQ(band[0].ops.size(), 5u);
  const double width =
      std::hypot(band[0].ops[1].x - band[0].ops[0].x, band[0].ops[1].y - band[0].ops[0].y);
  const double box_width = std::hypot(k[1].x - k[0].x, k[1].y - k[0].y);
  EXPECT_GT(width, 0.3 * box_width);
  EXPECT_LT(width, box_width);
  // A click beside the text leaves editing: the frame again.
  EXPECT_EQ(send(kEventClick, Out(k[1], anchor, 80)).handled, 0);
  EXPECT_FALSE(drawn()[0].fill);
}

// The ink's bounding box in a render at `time`: x0, y0, x1, y1 in layer pixels.
std::vector<int> InkBounds(vxhost::Instance& inst, int32_t w, int32_t h, double time) {
  vxhost::Frame in(w, h), out(w, h);
  in.Fill(0, 0, 0, 255);
  EXPECT_EQ(inst.Render(time, in, out), 0);
  std::vector<int> b = {w, h, -1, -1};
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x)
      if (out.row(y)[4 * x + 1] >= 128)
        b = {std::min(b[0], x), std::min(b[1], y), std::max(b[2], x), std::max(b[3], y)};
  return b;
}

TEST_F(TransformOverlay, DragsSetWhatTheirZonePromises) {
  const OverlayCase start = {"", 320, 180, 100, 0, 0, 320, 180, {2, -320, -180}};
  struct DragCase {
    const char* name;
    int corner;  // drag from: 0-3 a corner, 4 the right edge, 5 the top edge, 6 inside,
                 // 7 the anchor, 8 just outside the right edge
    P by;        // viewer pixels
    bool uniform;
    // Expected: position, anchor, scale, hscale, rotation (NaN: unchanged).
    double pos_x, pos_y, anchor_x, anchor_y, scale, hscale, rotation;
  };
  const double kSame = NAN;
  const DragCase cases[] = {
      {"move", 6, {30, -20}, true, 335, 170, kSame, kSame, kSame, kSame, kSame},
      {"corner out", 2, {0, 0}, true, kSame, kSame, kSame, kSame, kSame, kSame, kSame},
      {"right edge, axes apart", 4, {0, 0}, false, kSame, kSame, kSame, kSame, kSame, kSame, kSame},
      {"rotate a quarter turn", 8, {0, 0}, true, kSame, kSame, kSame, kSame, kSame, kSame, 90},
      {"anchor, upright", 7, {40, 20}, true, kSame, kSame, 340, 190, kSame, kSame, kSame},
  };
  for (const DragCase& c : cases) {
    SCOPED_TRACE(c.name);
    inst_->ResetValue(kParamUniformScale);
    Apply(start);
    Set(kParamUniformScale, 0, 0, c.uniform);
    P k[4], anchor;
    ASSERT_TRUE(DrawnBox(k, &anchor));
    const P centre = Mid(k[0], k[2]);
    const P from[] = {k[0],
                      k[1],
                      k[2],
                      k[3],
                      Mid(k[1], k[2]),
                      Mid(k[0], k[1]),
                      Mid(centre, Mid(k[1], k[2])),
                      anchor,
                      Out(Mid(k[1], k[2]), centre, 10)};
    P to = {from[c.corner].x + c.by.x, from[c.corner].y + c.by.y};
    if (c.corner == 2) to = Out(from[2], anchor, std::hypot(k[2].x - anchor.x, k[2].y - anchor.y));
    if (c.corner == 4) to = Out(from[4], anchor, std::hypot(from[4].x - anchor.x, 0));
    if (c.corner == 8) to = {anchor.x, anchor.y + std::hypot(from[8].x - anchor.x, 0)};
    DragFrom(from[c.corner], to);
    const vxhost::ParamValue pos = inst_->ValueAt(kParamPosition, 0);
    const vxhost::ParamValue anc = inst_->ValueAt(kParamAnchorPoint, 0);
    auto expect = [](double want, double got, double was) {
      EXPECT_NEAR(got, std::isnan(want) ? was : want, 0.02);
    };
    expect(c.pos_x, pos.x, start.px);
    expect(c.pos_y, pos.y, start.py);
    expect(c.anchor_x, anc.x, start.ax);
    expect(c.anchor_y, anc.y, start.ay);
    // A corner dragged to twice its distance from the anchor doubles the scale; the right edge
    // dragged to twice its distance doubles the horizontal scale alone.
    const double scale = inst_->ValueAt(kParamScale, 0).x;
    const double hscale = inst_->ValueAt(kParamHorizontalScale, 0).x;
    EXPECT_NEAR(scale, c.corner == 2 ? 200 : 100, 1.0);
    if (!c.uniform) {
      EXPECT_NEAR(hscale, c.corner == 4 ? 200 : 100, 1.0);
    }
    expect(c.rotation, inst_->ValueAt(kParamRotation, 0).x, 0);
  }
  // Moving the anchor of turned, scaled text keeps the text where it is.
  Apply({"", 300, 200, 150, 0, 30, 320, 180, {1, 0, 0}});
  const std::vector<int> before = InkBounds(*inst_, kW, kH, 0);
  DragFrom({320, 180}, {380, 150});
  EXPECT_NEAR(inst_->ValueAt(kParamAnchorPoint, 0).x, 380, 0.02);
  const std::vector<int> after = InkBounds(*inst_, kW, kH, 0);
  for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(after[i], before[i], 1) << i;
}

TEST_F(TransformOverlay, DragsKeyAnimatedParametersAndAReturnChangesNothing) {
  Apply({"", 320, 180, 100, 0, 0, 320, 180, {1, 0, 0}});
  vxhost::ParamValue r;
  r.x = 0;
  inst_->SetValue(kParamRotation, r, 0.0);
  r.x = 40;
  inst_->SetValue(kParamRotation, r, 2.0);
  P k[4]{}, anchor{};
  ASSERT_TRUE(DrawnBox(k, &anchor, 1.0));
  // At 1 s the rotation is 20; a quarter turn clockwise there adds a keyframe of 110.
  const P from = Out(Mid(k[1], k[2]), Mid(k[0], k[2]), 10);
  // A quarter turn clockwise on screen about the anchor: (x, y) -> (-y, x), y down.
  DragFrom(from, {anchor.x - (from.y - anchor.y), anchor.y + (from.x - anchor.x)}, 1.0);
  EXPECT_EQ(inst_->KeyTimes(kParamRotation), (std::vector<double>{0, 1, 2}));
  EXPECT_NEAR(inst_->ValueAt(kParamRotation, 1.0).x, 20 + 90, 0.5);
  EXPECT_EQ(inst_->ValueAt(kParamRotation, 2.0).x, 40);
  // An unanimated parameter gets a new value, no keyframe.
  ASSERT_TRUE(DrawnBox(k, &anchor, 1.0));
  DragFrom(Mid(Mid(k[0], k[2]), Mid(k[1], k[2])), {100, 100}, 1.0);
  EXPECT_TRUE(inst_->KeyTimes(kParamPosition).empty());

  // Away and back to where it began: every parameter exactly as it was.
  Apply({"", 301.3, 187.7, 133.3, 0, 17.1, 320, 180, {1.5, 7, 3}});
  ASSERT_TRUE(DrawnBox(k, &anchor));
  std::vector<vxhost::ParamValue> was;
  for (int32_t i = kParamPosition; i <= kParamAnchorPoint; ++i) was.push_back(inst_->ValueAt(i, 0));
  const P centre = Mid(k[0], k[2]);
  for (P at : {k[0], Mid(k[1], k[2]), Mid(k[0], k[1]), Mid(centre, Mid(k[1], k[2])), anchor,
               Out(Mid(k[1], k[2]), centre, 10)}) {
    EXPECT_EQ(Send(kEventClick, at).handled, 1);
    Send(kEventDrag, {at.x + 37, at.y - 23});
    Send(kEventDrag, at);
    for (int32_t i = kParamPosition; i <= kParamAnchorPoint; ++i) {
      const vxhost::ParamValue v = inst_->ValueAt(i, 0);
      EXPECT_EQ(v.x, was[size_t(i - kParamPosition)].x) << i;
      EXPECT_EQ(v.y, was[size_t(i - kParamPosition)].y) << i;
    }
  }
}

}  // namespace
