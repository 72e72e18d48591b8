// The colour rule and the per-record paint in the frame's byte order.
#include <gtest/gtest.h>

#include <cmath>

#include <cstdlib>

#include "render/color.h"
#include "vetext/effect.h"
#include "vetext/vxcore.h"

namespace vetext {
namespace {

TEST(ColorToPixel, BgraPutsBlueFirstAndTakesOpacityNotTheAlphaByte) {
  PixelColor p = ColorToPixel(0, 255, 51, 0, kPixelFormatBGRA, 0.25f);
  EXPECT_FLOAT_EQ(p.c[0], 0.0f);
  EXPECT_FLOAT_EQ(p.c[1], 0.2f);
  EXPECT_FLOAT_EQ(p.c[2], 1.0f);
  EXPECT_FLOAT_EQ(p.c[3], 0.25f);
  PixelColor q = ColorToPixel(255, 255, 51, 0, kPixelFormatBGRA, 0.25f);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(p.c[i], q.c[i]);
}

TEST(ColorToPixel, VuyaIsVThenUThenLuma) {
  // White and black: no chroma, luma at the ends.
  PixelColor w = ColorToPixel(255, 255, 255, 255, kPixelFormatVUYA, 1.0f);
  EXPECT_NEAR(w.c[0], 0.5f, 1.5f / 255);
  EXPECT_NEAR(w.c[1], 0.5f, 1.5f / 255);
  EXPECT_NEAR(w.c[2], 1.0f, 1.5f / 255);
  PixelColor k = ColorToPixel(255, 0, 0, 0, kPixelFormatVUYA, 1.0f);
  EXPECT_NEAR(k.c[2], 0.0f, 1.5f / 255);
  // Red: V (Cr) far above neutral, U (Cb) below; BT.709 luma of pure red is about 0.2126.
  PixelColor r = ColorToPixel(255, 255, 0, 0, kPixelFormatVUYA, 0.5f);
  EXPECT_GT(r.c[0], 0.9f);
  EXPECT_LT(r.c[1], 0.45f);
  EXPECT_NEAR(r.c[2], 0.2126f, 0.01f);
  EXPECT_FLOAT_EQ(r.c[3], 0.5f);
  // Blue: U far above neutral.
  PixelColor b = ColorToPixel(255, 0, 0, 255, kPixelFormatVUYA, 1.0f);
  EXPECT_GT(b.c[1], 0.9f);
  EXPECT_NEAR(b.c[2], 0.0722f, 0.01f);
}

TEST(ColorToPixel, RecordPaintInBufferOrder) {
  CharacterRecord c;
  c.mFillRed = 1.0f;
  c.mFillGreen = 0.5f;
  c.mFillBlue = 0.0f;
  c.mStrokeRed = 0.0f;
  c.mStrokeGreen = 0.0f;
  c.mStrokeBlue = 2.0f;  // out of range: clamped
  GlyphPaint p = PaintForRecord(c, kPixelFormatBGRA);
  EXPECT_EQ(p.fill[0], 0);
  EXPECT_EQ(p.fill[1], 128);
  EXPECT_EQ(p.fill[2], 255);
  EXPECT_EQ(p.stroke[0], 255);
  EXPECT_EQ(p.stroke[2], 0);
  GlyphPaint v = PaintForRecord(c, kPixelFormatVUYA);
  VxYUV yuv = ColorRGBtoYUV(255 | 128 << 8);
  EXPECT_LE(std::abs(int(v.fill[0]) - (yuv.v + 128)), 1);
  EXPECT_LE(std::abs(int(v.fill[1]) - (yuv.u + 128)), 1);
  EXPECT_EQ(v.fill[2], yuv.y);
  EXPECT_EQ(ChannelToByte(-1.0f), 0);
  EXPECT_EQ(ChannelToByte(NAN), 0);
  EXPECT_EQ(ChannelToByte(0.5f), 128);
}

}  // namespace
}  // namespace vetext
