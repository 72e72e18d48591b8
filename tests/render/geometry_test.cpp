// Sizing of the text buffer, its drawing origin and the alignment anchor.
#include <gtest/gtest.h>

#include <cmath>

#include "render/geometry.h"

namespace vetext {
namespace {

LayoutRecord Box(float l, float t, float r, float b, std::vector<float> strokes = {}) {
  LayoutRecord layout;
  layout.mLeft = l;
  layout.mTop = t;
  layout.mRight = r;
  layout.mBottom = b;
  for (float s : strokes) {
    CharacterRecord c;
    c.mStrokeWidth = s;
    layout.mCharacters.push_back(c);
  }
  return layout;
}

TEST(RasterGeometry, StrokeMarginSurroundsTheBlockOnEverySide) {
  RasterGeometry g = ComputeRasterGeometry(Box(0, 0, 100, 20, {1, 3, 2}));
  EXPECT_EQ(g.bw, 100);
  EXPECT_EQ(g.bh, 20);
  EXPECT_EQ(g.W, 106);
  EXPECT_EQ(g.H, 26);
  EXPECT_FLOAT_EQ(g.ox, 3);
  EXPECT_FLOAT_EQ(g.oy, 3);
  EXPECT_EQ(RasterBufferBytes(g), 106 * 26 * 4);
  // A negative left or top moves the origin; a positive one is deliberately left alone.
  g = ComputeRasterGeometry(Box(-10, -50, 90, -30, {3}));
  EXPECT_EQ(g.W, 106);
  EXPECT_EQ(g.H, 26);
  EXPECT_FLOAT_EQ(g.ox, 13);
  EXPECT_FLOAT_EQ(g.oy, 53);
  g = ComputeRasterGeometry(Box(7, 9, 107, 29, {3}));
  EXPECT_FLOAT_EQ(g.ox, 3);
  EXPECT_FLOAT_EQ(g.oy, 3);
  // Fractional sizes truncate before and after the margin is added.
  g = ComputeRasterGeometry(Box(0, 0, 100.9f, 20.9f, {0.75f}));
  EXPECT_EQ(g.W, 101);
  EXPECT_EQ(g.H, 21);
}

TEST(RasterGeometry, NothingToDrawForThinOrDamagedBlocks) {
  EXPECT_FALSE(ComputeRasterGeometry(Box(0, 0, 0.9f, 20)).Drawable());
  EXPECT_FALSE(ComputeRasterGeometry(Box(0, 0, 100, 0.5f, {4})).Drawable());
  EXPECT_FALSE(ComputeRasterGeometry(LayoutRecord{}).Drawable());
  EXPECT_TRUE(ComputeRasterGeometry(Box(0, 0, 1, 1)).Drawable());
  // Inverted, infinite and enormous bounds are refused rather than allocated.
  EXPECT_FALSE(ComputeRasterGeometry(Box(100, 0, 0, 20)).Drawable());
  RasterGeometry huge = ComputeRasterGeometry(Box(0, 0, 1e9f, 1e9f));
  EXPECT_LT(RasterBufferBytes(huge), 0);
  RasterGeometry inf = ComputeRasterGeometry(Box(0, 0, INFINITY, 20));
  EXPECT_FALSE(inf.Drawable());
}

TEST(RasterGeometry, LayoutQueries) {
  EXPECT_FLOAT_EQ(MaxStrokeWidth(Box(0, 0, 1, 1)), 0.0f);
  EXPECT_FLOAT_EQ(MaxStrokeWidth(Box(0, 0, 1, 1, {-5, -1})), 0.0f);
  EXPECT_FLOAT_EQ(MaxStrokeWidth(Box(0, 0, 1, 1, {2, 7.5f, 1})), 7.5f);
  LayoutRecord l = Box(0, 0, 1, 1, {0, 0});
  EXPECT_FLOAT_EQ(FirstBaselineShift(Box(0, 0, 1, 1)), 0.0f);
  l.mCharacters[0].mBaselineShift = 12;
  l.mCharacters[1].mBaselineShift = 30;
  EXPECT_FLOAT_EQ(FirstBaselineShift(l), 12.0f);
}

TEST(RasterGeometry, AlignmentAnchorFollowsTheFirstRecord) {
  float ax = -1, ay = -1;
  LayoutRecord l = Box(0, 0, 10, 10, {0, 0});
  const std::pair<uint32_t, float> cases[] = {{0, 0.0f}, {1, 1.0f}, {2, 0.5f}, {6, 0.5f}};
  for (auto [alignment, expected] : cases) {
    l.mCharacters[0].mAlignment = alignment;
    l.mCharacters[1].mAlignment = 0;
    AlignmentAnchor(l, &ax, &ay);
    EXPECT_FLOAT_EQ(ax, expected) << alignment;
    EXPECT_FLOAT_EQ(ay, 0.5f);
  }
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

}  // namespace
}  // namespace vetext
