// Sizing of the text buffer, its drawing origin and alignment anchor, and the colour rule in the
// frame's byte order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

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

TEST(RasterGeometry, StrokeMarginOriginAndTruncation) {
  struct Case {
    LayoutRecord layout;
    int32_t bw, bh, W, H;
    float ox, oy;
  };
  const Case cases[] = {
      {Box(0, 0, 100, 20, {1, 3, 2}), 100, 20, 106, 26, 3, 3},  // the largest stroke counts
      {Box(-10, -50, 90, -30, {3}), 100, 20, 106, 26, 13, 53},  // negative left/top move it
      {Box(7, 9, 107, 29, {3}), 100, 20, 106, 26, 3, 3},        // positive ones do not
      {Box(0, 0, 100.9f, 20.9f, {0.75f}), 100, 20, 101, 21, 0.75f, 0.75f},
      {Box(0, 0, 10, 10, {-5, -1}), 10, 10, 10, 10, 0, 0},  // negative widths never count
  };
  for (const Case& c : cases) {
    RasterGeometry g = ComputeRasterGeometry(c.layout);
    EXPECT_EQ(g.bw, c.bw);
    EXPECT_EQ(g.bh, c.bh);
    EXPECT_EQ(g.W, c.W);
    EXPECT_EQ(g.H, c.H);
    EXPECT_FLOAT_EQ(g.ox, c.ox);
    EXPECT_FLOAT_EQ(g.oy, c.oy);
    EXPECT_EQ(RasterBufferBytes(g), int64_t(c.W) * c.H * 4);
  }
  LayoutRecord l = Box(0, 0, 1, 1, {0, 0});
  EXPECT_FLOAT_EQ(ComputeRasterGeometry(l).first_baseline_shift, 0.0f);
  l.mCharacters[0].mBaselineShift = 12;
  l.mCharacters[1].mBaselineShift = 30;
  EXPECT_FLOAT_EQ(ComputeRasterGeometry(l).first_baseline_shift, 12.0f);
  EXPECT_FLOAT_EQ(FirstBaselineShift(LayoutRecord{}), 0.0f);
}

TEST(RasterGeometry, NothingToDrawForThinOrDamagedBlocks) {
  EXPECT_TRUE(ComputeRasterGeometry(Box(0, 0, 1, 1)).Drawable());
  for (const LayoutRecord& l : {Box(0, 0, 0.9f, 20), Box(0, 0, 100, 0.5f, {4}), LayoutRecord{},
                                Box(100, 0, 0, 20), Box(0, 0, INFINITY, 20)})
    EXPECT_FALSE(ComputeRasterGeometry(l).Drawable()) << l.mLeft << " " << l.mRight;
  // Enormous bounds are refused rather than allocated.
  EXPECT_LT(RasterBufferBytes(ComputeRasterGeometry(Box(0, 0, 1e9f, 1e9f))), 0);
  EXPECT_LT(RasterBufferBytes(ComputeRasterGeometry(Box(0, 0, 20000, 20000))), 0);
}

TEST(RasterGeometry, AlignmentAnchorFollowsTheFirstRecord) {
  LayoutRecord l = Box(0, 0, 10, 10, {0, 0});
  const std::pair<uint32_t, float> cases[] = {{0, 0.0f}, {1, 1.0f}, {2, 0.5f}, {6, 0.5f}};
  for (auto [alignment, expected] : cases) {
    l.mCharacters[0].mAlignment = alignment;
    l.mCharacters[1].mAlignment = 0;
    RasterGeometry g = ComputeRasterGeometry(l);
    EXPECT_FLOAT_EQ(g.ax, expected) << alignment;
    EXPECT_FLOAT_EQ(g.ay, 0.5f);
  }
  float ax = -1, ay = -1;
  AlignmentAnchor(Box(0, 0, 1, 1), &ax, &ay);
  EXPECT_FLOAT_EQ(ax, 0.5f);
  EXPECT_FLOAT_EQ(ay, 0.5f);
  // Box text anchors at the top-left corner whatever the alignment.
  l.mTextInABox = true;
  l.mCharacters[0].mAlignment = 1;
  AlignmentAnchor(l, &ax, &ay);
  EXPECT_FLOAT_EQ(ax, 0.0f);
  EXPECT_FLOAT_EQ(ay, 0.0f);
}

TEST(ColorToPixel, ChannelsInFormatOrderWithTheOpacityLast) {
  // BT.709: red and blue in V, U, Y; B, G, R for 'bgra'. The alpha byte is ignored.
  struct Case {
    uint32_t format;
    uint8_t r, g, b;
    float want[3];
  };
  const Case cases[] = {
      {kPixelFormatBGRA, 255, 51, 0, {0.0f, 0.2f, 1.0f}},
      {kPixelFormatVUYA, 255, 255, 255, {0.5f, 0.5f, 1.0f}},
      {kPixelFormatVUYA, 0, 0, 0, {0.5f, 0.5f, 0.0f}},
      {kPixelFormatVUYA, 255, 0, 0, {0.998f, 0.386f, 0.2118f}},
      {kPixelFormatVUYA, 0, 0, 255, {0.453f, 0.998f, 0.0706f}},
  };
  for (const Case& c : cases) {
    PixelColor p = ColorToPixel(0, c.r, c.g, c.b, c.format, 0.25f);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(p.c[i], c.want[i], 1.5f / 255) << int(c.r) << i;
    EXPECT_FLOAT_EQ(p.c[3], 0.25f);
  }
}

TEST(ColorToPixel, RecordPaintInBufferOrderClamped) {
  CharacterRecord c;
  c.mFillRed = 1.0f, c.mFillGreen = 0.5f, c.mFillBlue = 0.0f;
  c.mStrokeRed = 0.0f, c.mStrokeGreen = NAN, c.mStrokeBlue = 2.0f;  // out of range: clamped
  GlyphPaint p = PaintForRecord(c, kPixelFormatBGRA);
  const uint8_t fill[3] = {0, 128, 255}, stroke[3] = {255, 0, 0};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(p.fill[i], fill[i]) << i;
    EXPECT_EQ(p.stroke[i], stroke[i]) << i;
  }
  GlyphPaint v = PaintForRecord(c, kPixelFormatVUYA);
  VxYUV yuv = ColorRGBtoYUV(255 | 128 << 8);
  EXPECT_LE(std::abs(int(v.fill[0]) - (yuv.v + 128)), 1);
  EXPECT_LE(std::abs(int(v.fill[1]) - (yuv.u + 128)), 1);
  EXPECT_EQ(v.fill[2], yuv.y);
  EXPECT_EQ(ChannelToByte(-1.0f), 0);
  EXPECT_EQ(ChannelToByte(1.0f), 255);
}

}  // namespace
}  // namespace vetext
