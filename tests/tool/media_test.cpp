// The render command's media layer: keyframe syntax, frame copies and their colour conversion,
// file names, backgrounds, PNG and video round trips.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "keyframes.h"
#include "media_background.h"
#include "media_convert.h"
#include "media_image.h"
#include "tool_run.h"
#include "vetext/vxcore.h"

namespace vetext_tool {
namespace {

TEST(Keyframes, ValuesBuildOneSortedTrackOrFailNamingTheOption) {
  std::string err;
  Track c, p;
  ASSERT_TRUE(ParseTrackValue("--scale", " 150 ", 1, &c, &err)) << err;
  EXPECT_EQ(c.constant, (KeyValue{150, 0}));
  ASSERT_TRUE(ParseTrackValue("--position", "2.5=800,200;0=100,-20", 2, &p, &err)) << err;
  ASSERT_TRUE(ParseTrackValue("--position", "1=400.5,200;", 2, &p, &err)) << err;
  ASSERT_EQ(p.keys.size(), 3u);
  EXPECT_EQ(p.keys[0], (std::pair<double, KeyValue>{0, {100, -20}}));
  EXPECT_EQ(p.keys[1], (std::pair<double, KeyValue>{1, {400.5, 200}}));
  EXPECT_EQ(p.keys[2].first, 2.5);

  struct Case {
    const char* first;  // taken before `text`; "" for none
    const char* text;
    int components;
    const char* needle;
  } cases[] = {
      {"", "abc", 1, "expected a number"},
      {"", "100", 2, "expected X,Y"},
      {"", "1,2,3", 2, "expected X,Y"},
      {"", "1=2", 2, "is not X,Y"},
      {"", "x=5", 1, "is not a number of seconds"},
      {"", "-1=5", 1, "must not be negative"},
      {"", "0=5;;1=6", 1, "empty keyframe"},
      {"", "0=5;7", 1, "is not T=V"},
      {"", "", 1, "expected a number"},
      {"", "0=1e999", 1, "is not a number"},
      {"", "0=nan", 1, "is not a number"},
      {"1=10", "1.0=20", 1, "two keyframes at 1 s"},
      {"1=10", "30", 1, "a constant cannot be combined"},
      {"30", "0=1", 1, "keyframes cannot be combined with a constant"},
      {"30", "40", 1, "a constant cannot be combined"},
  };
  for (const Case& c : cases) {
    Track t;
    ASSERT_TRUE(*c.first == 0 || ParseTrackValue("--opt", c.first, c.components, &t, &err));
    EXPECT_FALSE(ParseTrackValue("--opt", c.text, c.components, &t, &err)) << c.text;
    EXPECT_NE(err.find("for --opt: "), std::string::npos) << err;
    EXPECT_NE(err.find(c.needle), std::string::npos) << c.text << " -> " << err;
  }
}

// A picture whose rows all differ.
Image Gradient(int32_t w, int32_t h) {
  Image img(w, h);
  DrawBackground(Background{Background::kGradient, 250, 10, 40, 5, 240, 200}, &img);
  return img;
}

TEST(FrameCopy, BgraIsBottomUpVuyaCarriesBt709AndOtherFramesAreRefused) {
  Image img = Gradient(31, 9), back;
  vxhost::Frame bgra(31, 9, kPixelFormatBGRA);
  ASSERT_TRUE(ImageToFrame(img, bgra));
  // The base address holds the picture's top row; the next row in memory order is one lower.
  const OutputLayer* layer = bgra.layer();
  ASSERT_LT(layer->row_bytes, 0);
  const uint8_t* base = static_cast<const uint8_t*>(layer->data);
  EXPECT_EQ(0, std::memcmp(base, img.row(0), img.stride()));
  EXPECT_EQ(0, std::memcmp(base + layer->row_bytes, img.row(1), img.stride()));
  ASSERT_TRUE(FrameToImage(bgra, &back));
  EXPECT_EQ(back.pixels, img.pixels);

  vxhost::Frame vuya(31, 9, kPixelFormatVUYA);
  ASSERT_TRUE(ImageToFrame(img, vuya));
  // Pixel (3, 2): bytes V, U, Y, A of its colour.
  const uint8_t *s = img.row(2) + 12, *d = vuya.row(2) + 12;
  const VxYUV want = ColorRGBtoYUV(s[2] | s[1] << 8 | s[0] << 16);
  EXPECT_EQ(std::vector<int>(d, d + 4),
            (std::vector<int>{want.v + 128, want.u + 128, want.y, 255}));
  ASSERT_TRUE(FrameToImage(vuya, &back));
  for (size_t i = 0; i < img.pixels.size(); ++i)
    ASSERT_LE(std::abs(int(back.pixels[i]) - int(img.pixels[i])), 2) << "byte " << i;

  vxhost::Frame wrong_size(30, 9, kPixelFormatBGRA), wide(31, 9, kPixelFormatBGRA16);
  EXPECT_FALSE(ImageToFrame(img, wrong_size));
  EXPECT_FALSE(ImageToFrame(img, wide));
  EXPECT_FALSE(FrameToImage(wide, &back));
}

TEST(Names, SequencePatternsAndExtensions) {
  EXPECT_FALSE(IsSequencePattern("100%%.png"));
  EXPECT_FALSE(IsSequencePattern("plain.png"));
  EXPECT_EQ(SequenceFileName("out/frame_%04d.png", 7), "out/frame_0007.png");
  EXPECT_EQ(SequenceFileName("a%%b_%d.png", 12345), "a%b_12345.png");
  EXPECT_EQ(SequenceFileName("s_%40d.png", 7), "s_" + std::string(39, ' ') + "7.png");
  EXPECT_EQ(FileExtension("dir.v2/clip.MP4"), "mp4");
  EXPECT_EQ(FileExtension("dir.v2/clip"), "");
}

TEST(Backgrounds, ParseAndDraw) {
  Background bg;
  std::string err;
  Image img(8, 6);
  ASSERT_TRUE(ParseBackground("color:#102030", &bg, &err));
  DrawBackground(bg, &img);
  for (size_t i = 0; i < img.pixels.size(); i += 4)
    ASSERT_EQ(std::memcmp(&img.pixels[i], "\x30\x20\x10\xff", 4), 0) << i / 4;
  ASSERT_TRUE(ParseBackground("gradient:#000000,#ffffff", &bg, &err));
  DrawBackground(bg, &img);
  EXPECT_EQ(img.row(0)[0], 0);
  EXPECT_EQ(img.row(5)[4 * 7], 255);
  EXPECT_LT(img.row(2)[4 * 2], img.row(3)[4 * 4]);  // brighter towards the bottom right

  ASSERT_TRUE(ParseBackground("pattern", &bg, &err));
  Image pat(140, 90);
  DrawBackground(bg, &pat);
  // The centre cross is white; the first bar is light grey, the last blue.
  EXPECT_EQ((std::vector<int>{pat.row(45)[4 * 5 + 1], pat.row(10)[4 * 3 + 2],
                              pat.row(10)[4 * 137 + 0], pat.row(10)[4 * 137 + 2]}),
            (std::vector<int>{255, 191, 191, 0}));

  for (const char* bad : {"colour:#102030", "color:#1020", "color:#10203g", "gradient:#000000",
                          "gradient:#000000;#ffffff", ""}) {
    EXPECT_FALSE(ParseBackground(bad, &bg, &err)) << bad;
    EXPECT_NE(err.find("--background"), std::string::npos);
  }
}

using Files = vetext_test::ToolTest;

TEST_F(Files, PngRoundTripAndFilesThatCannotBeRead) {
  Image img = Gradient(21, 5), back;
  img.row(4)[3] = 77;  // alpha survives
  std::string err;
  ASSERT_TRUE(WritePng(Path("a.png"), img, &err)) << err;
  ASSERT_TRUE(ReadPng(Path("a.png"), &back, &err)) << err;
  EXPECT_EQ(back.width, 21);
  EXPECT_EQ(back.pixels, img.pixels);

  EXPECT_FALSE(ReadPng(Path("none.png"), &back, &err));
  EXPECT_NE(err.find("No such file or directory"), std::string::npos) << err;
  std::ofstream(Path("junk.png")) << "not a png at all";
  EXPECT_FALSE(ReadPng(Path("junk.png"), &back, &err));
}

}  // namespace
}  // namespace vetext_tool
