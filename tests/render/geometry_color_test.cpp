// Sizing of the text buffer, its drawing origin and alignment anchor, and the colour rule in the
// frame's byte order.
#include <gtest/gtest.h>

#include <cmath>
#include <tuple>

#include "render/color.h"
#include "render/geometry.h"
#include "vetext/effect.h"
#include "vetext/vxcore.h"

namespace vetext {
namespace {

LayoutRecord Box(float l, float t, float r, float b, std::vector<float> strokes = {}) {
  LayoutRecord layout;
  layout.mLeft = l, layout.mTop = t, layout.mRight = r, layout.mBottom = b;
  for (float s : strokes) layout.mCharacters.emplace_back().mStrokeWidth = s;
  return layout;
}

TEST(RasterGeometry, StrokeMarginOriginTruncationAndDamagedBlocks) {
  // Per layout: bw, bh, W, H, ox, oy.
  const std::pair<LayoutRecord, std::tuple<int32_t, int32_t, int32_t, int32_t, float, float>>
      cases[] = {
          {Box(0, 0, 100, 20, {1, 3, 2}), {100, 20, 106, 26, 3, 3}},  // the largest stroke counts
          {Box(-10, -50, 90, -30, {3}), {100, 20, 106, 26, 13, 53}},  // negative left/top move it
          {Box(7, 9, 107, 29, {3}), {100, 20, 106, 26, 3, 3}},        // positive ones do not
          {Box(0, 0, 100.9f, 20.9f, {0.75f}), {100, 20, 101, 21, 0.75f, 0.75f}},
          {Box(0, 0, 10, 10, {-5, -1}), {10, 10, 10, 10, 0, 0}},  // negative widths never count
      };
  for (const auto& [layout, want] : cases) {
    RasterGeometry g = ComputeRasterGeometry(layout);
    EXPECT_EQ(std::tuple(g.bw, g.bh, g.W, g.H, g.ox, g.oy), want);
    EXPECT_EQ(RasterBufferBytes(g), int64_t(g.W) * g.H * 4);
  }
  LayoutRecord l = Box(0, 0, 1, 1, {0, 0});
  l.mCharacters[0].mBaselineShift = 12, l.mCharacters[1].mBaselineShift = 30;
  EXPECT_FLOAT_EQ(ComputeRasterGeometry(l).first_baseline_shift, 12.0f);
  EXPECT_FLOAT_EQ(FirstBaselineShift(LayoutRecord{}), 0.0f);
  // Nothing to draw for thin or damaged blocks.
  EXPECT_TRUE(ComputeRasterGeometry(Box(0, 0, 1, 1)).Drawable());
  for (const LayoutRecord& l : {Box(0, 0, 0.9f, 20), Box(0, 0, 100, 0.5f, {4}), LayoutRecord{},
                                Box(100, 0, 0, 20), Box(0, 0, INFINITY, 20)})
    EXPECT_FALSE(ComputeRasterGeometry(l).Drawable()) << l.mLeft << " " << l.mRight;
  // Enormous bounds are refused rather than allocated.
  EXPECT_LT(RasterBufferBytes(ComputeRasterGeometry(Box(0, 0, 1e9f, 1e9f))), 0);
}

TEST(RasterGeometry, AlignmentAnchorFollowsTheFirstRecord) {
  auto aligned = [](uint32_t alignment, bool box = false) {
    LayoutRecord l = Box(0, 0, 10, 10, {0, 0});  // the second record stays left-aligned
    l.mCharacters[0].mAlignment = alignment;
    l.mTextInABox = box;
    return l;
  };
  // Box text anchors at the top-left corner whatever the alignment.
  const std::tuple<LayoutRecord, float, float> cases[] = {
      {aligned(0), 0, 0.5f},    {aligned(1), 1, 0.5f},         {aligned(2), 0.5f, 0.5f},
      {aligned(6), 0.5f, 0.5f}, {Box(0, 0, 1, 1), 0.5f, 0.5f}, {aligned(1, true), 0.0f, 0.0f}};
  for (const auto& [l, ax, ay] : cases) {
    RasterGeometry g = ComputeRasterGeometry(l);
    EXPECT_EQ(std::pair(g.ax, g.ay), std::pair(ax, ay));
  }
}

TEST(PaintForRecord, BytesInBufferOrderClamped) {
  CharacterRecord c;
  c.mFillRed = 1.0f, c.mFillGreen = 0.5f, c.mFillBlue = 0.0f;
  c.mStrokeRed = -1.0f, c.mStrokeGreen = NAN, c.mStrokeBlue = 2.0f;  // out of range: clamped
  GlyphPaint bgra = PaintForRecord(c, kPixelFormatBGRA), vuya = PaintForRecord(c, kPixelFormatVUYA);
  EXPECT_EQ(std::vector<uint8_t>(bgra.fill, bgra.fill + 3), (std::vector<uint8_t>{0, 128, 255}));
  EXPECT_EQ(std::vector<uint8_t>(bgra.stroke, bgra.stroke + 3), (std::vector<uint8_t>{255, 0, 0}));
  // V, U, Y as ColorRGBtoYUV gives them, the chroma moved to 0..255.
  VxYUV yuv = ColorRGBtoYUV(255 | 128 << 8);
  EXPECT_NEAR(vuya.fill[0], yuv.v + 128, 1);
  EXPECT_NEAR(vuya.fill[1], yuv.u + 128, 1);
  EXPECT_EQ(vuya.fill[2], yuv.y);
}

}  // namespace
}  // namespace vetext
