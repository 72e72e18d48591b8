// The render command's media layer: keyframe syntax, colour conversion, frame copies, file
// names, PNG and video round trips.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "keyframes.h"
#include "media_background.h"
#include "media_convert.h"
#include "media_decode.h"
#include "media_encode.h"
#include "media_image.h"
#include "tool_run.h"
#include "vetext/vxcore.h"

namespace vetext_tool {
namespace {

namespace fs = std::filesystem;

TEST(Keyframes, ConstantsListsAndRepeatsBuildOneSortedTrack) {
  std::string err;
  Track c;
  ASSERT_TRUE(ParseTrackValue("--scale", " 150 ", 1, &c, &err)) << err;
  ASSERT_TRUE(c.constant);
  EXPECT_EQ(c.constant->x, 150);
  EXPECT_TRUE(c.keys.empty());

  Track p;
  ASSERT_TRUE(ParseTrackValue("--position", "2.5=800,200;0=100,-20", 2, &p, &err)) << err;
  ASSERT_TRUE(ParseTrackValue("--position", "1=400.5,200;", 2, &p, &err)) << err;
  ASSERT_EQ(p.keys.size(), 3u);
  EXPECT_EQ(p.keys[0].first, 0);
  EXPECT_EQ(p.keys[0].second, (KeyValue{100, -20}));
  EXPECT_EQ(p.keys[1].first, 1);
  EXPECT_EQ(p.keys[1].second, (KeyValue{400.5, 200}));
  EXPECT_EQ(p.keys[2].first, 2.5);
  EXPECT_FALSE(p.constant);
}

TEST(Keyframes, MalformedValuesAreRejectedWithTheOptionNamed) {
  struct Case {
    const char* text;
    int components;
    const char* needle;
  } cases[] = {
      {"abc", 1, "expected a number"},
      {"100", 2, "expected X,Y"},
      {"1,2,3", 2, "expected X,Y"},
      {"1=2", 2, "is not X,Y"},
      {"x=5", 1, "is not a number of seconds"},
      {"-1=5", 1, "must not be negative"},
      {"0=5;;1=6", 1, "empty keyframe"},
      {"0=5;7", 1, "is not T=V"},
      {"", 1, "expected a number"},
      {"0=1e999", 1, "is not a number"},
      {"0=nan", 1, "is not a number"},
  };
  for (const Case& c : cases) {
    Track t;
    std::string err;
    EXPECT_FALSE(ParseTrackValue("--opt", c.text, c.components, &t, &err)) << c.text;
    EXPECT_NE(err.find("--opt"), std::string::npos) << err;
    EXPECT_NE(err.find(c.needle), std::string::npos) << c.text << " -> " << err;
  }
}

TEST(Keyframes, DuplicateTimesAndMixingWithConstantsFail) {
  std::string err;
  Track t;
  ASSERT_TRUE(ParseTrackValue("--rotation", "1=10", 1, &t, &err));
  EXPECT_FALSE(ParseTrackValue("--rotation", "1.0=20", 1, &t, &err));
  EXPECT_NE(err.find("two keyframes at 1"), std::string::npos) << err;
  EXPECT_FALSE(ParseTrackValue("--rotation", "30", 1, &t, &err));
  EXPECT_NE(err.find("constant"), std::string::npos);

  Track c;
  ASSERT_TRUE(ParseTrackValue("--rotation", "30", 1, &c, &err));
  EXPECT_FALSE(ParseTrackValue("--rotation", "0=1", 1, &c, &err));
  EXPECT_FALSE(ParseTrackValue("--rotation", "40", 1, &c, &err));
}

TEST(Keyframes, RangeCheckCoversConstantsAndEveryKey) {
  std::string err;
  Track t;
  ASSERT_TRUE(ParseTrackValue("--scale", "0=25;1=400", 1, &t, &err));
  EXPECT_TRUE(CheckTrackRange("--scale", t, 25, 400, &err));
  ASSERT_TRUE(ParseTrackValue("--scale", "2=401", 1, &t, &err));
  EXPECT_FALSE(CheckTrackRange("--scale", t, 25, 400, &err));
  EXPECT_NE(err.find("--scale 401 is out of range (25 to 400)"), std::string::npos) << err;
  Track c;
  ASSERT_TRUE(ParseTrackValue("--opacity", "-1", 1, &c, &err));
  EXPECT_FALSE(CheckTrackRange("--opacity", c, 0, 100, &err));
}

TEST(Color, MatchesTheHostLibraryConversionAndRoundTrips) {
  int worst_back = 0;
  for (int r = 0; r < 256; r += 15) {
    for (int g = 0; g < 256; g += 17) {
      for (int b = 0; b < 256; b += 5) {
        Yuv8 mine = RgbToYuv709(uint8_t(r), uint8_t(g), uint8_t(b));
        VxYUV host = ColorRGBtoYUV(uint32_t(r) | uint32_t(g) << 8 | uint32_t(b) << 16);
        ASSERT_EQ(mine.y, host.y) << r << "," << g << "," << b;
        ASSERT_EQ(int(mine.u) - 128, host.u) << r << "," << g << "," << b;
        ASSERT_EQ(int(mine.v) - 128, host.v) << r << "," << g << "," << b;
        uint8_t rr, gg, bb;
        Yuv709ToRgb(mine.y, mine.u, mine.v, &rr, &gg, &bb);
        worst_back = std::max({worst_back, std::abs(rr - r), std::abs(gg - g), std::abs(bb - b)});
      }
    }
  }
  EXPECT_LE(worst_back, 2);  // 8-bit Y'CbCr keeps RGB within rounding
}

Image Gradient(int32_t w, int32_t h) {
  Image img(w, h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      uint8_t* p = img.row(y) + 4 * x;
      p[0] = uint8_t(x * 7), p[1] = uint8_t(y * 11), p[2] = uint8_t(x + y), p[3] = 255;
    }
  return img;
}

TEST(FrameCopy, BgraFramesAreBottomUpWithTheTopRowAtTheBase) {
  Image img = Gradient(13, 7);
  vxhost::Frame frame(13, 7, kPixelFormatBGRA);
  ASSERT_TRUE(ImageToFrame(img, frame));
  const OutputLayer* layer = frame.layer();
  ASSERT_LT(layer->row_bytes, 0);
  // The base address holds the picture's top row; the next row in memory order is one lower.
  const uint8_t* base = static_cast<const uint8_t*>(layer->data);
  EXPECT_EQ(0, std::memcmp(base, img.row(0), img.stride()));
  EXPECT_EQ(0, std::memcmp(base + layer->row_bytes, img.row(1), img.stride()));
  Image back;
  ASSERT_TRUE(FrameToImage(frame, &back));
  EXPECT_EQ(back.width, 13);
  EXPECT_EQ(back.height, 7);
  EXPECT_EQ(back.pixels, img.pixels);
}

TEST(FrameCopy, VuyaFramesCarryBt709AndComeBackWithinRounding) {
  Image img = Gradient(31, 9);
  vxhost::Frame frame(31, 9, kPixelFormatVUYA);
  ASSERT_TRUE(ImageToFrame(img, frame));
  // Pixel (3, 2): bytes V, U, Y, A of its colour.
  const uint8_t* s = img.row(2) + 12;
  const uint8_t* d = frame.row(2) + 12;
  Yuv8 want = RgbToYuv709(s[2], s[1], s[0]);
  EXPECT_EQ(d[0], want.v);
  EXPECT_EQ(d[1], want.u);
  EXPECT_EQ(d[2], want.y);
  EXPECT_EQ(d[3], 255);
  Image back;
  ASSERT_TRUE(FrameToImage(frame, &back));
  for (size_t i = 0; i < img.pixels.size(); ++i)
    ASSERT_LE(std::abs(int(back.pixels[i]) - int(img.pixels[i])), 2) << "byte " << i;
}

TEST(FrameCopy, RejectsOtherFormatsAndSizes) {
  Image img = Gradient(4, 4);
  vxhost::Frame wrong_size(5, 4, kPixelFormatBGRA);
  EXPECT_FALSE(ImageToFrame(img, wrong_size));
  vxhost::Frame wide(4, 4, kPixelFormatBGRA16);
  EXPECT_FALSE(ImageToFrame(img, wide));
  Image out;
  EXPECT_FALSE(FrameToImage(wide, &out));
}

TEST(Names, SequencePatternsAndOutputKinds) {
  EXPECT_TRUE(IsSequencePattern("out/frame_%04d.png"));
  EXPECT_TRUE(IsSequencePattern("f%d.png"));
  EXPECT_FALSE(IsSequencePattern("100%%.png"));
  EXPECT_FALSE(IsSequencePattern("plain.png"));
  EXPECT_EQ(SequenceFileName("out/frame_%04d.png", 7), "out/frame_0007.png");
  EXPECT_EQ(SequenceFileName("a%%b_%d.png", 12345), "a%b_12345.png");
  EXPECT_EQ(FileExtension("dir.v2/clip.MP4"), "mp4");
  EXPECT_EQ(FileExtension("dir.v2/clip"), "");

  OutputKind k;
  std::string err;
  ASSERT_TRUE(ClassifyOutput("x.png", &k, &err));
  EXPECT_EQ(k, OutputKind::kStill);
  ASSERT_TRUE(ClassifyOutput("x_%03d.png", &k, &err));
  EXPECT_EQ(k, OutputKind::kSequence);
  ASSERT_TRUE(ClassifyOutput("x.mkv", &k, &err));
  EXPECT_EQ(k, OutputKind::kVideo);
  EXPECT_FALSE(ClassifyOutput("x.jpg", &k, &err));
  EXPECT_NE(err.find("PNG"), std::string::npos);
  EXPECT_FALSE(ClassifyOutput("x_%03d.jpg", &k, &err));
  EXPECT_FALSE(ClassifyOutput("x.nosuchformat", &k, &err));
  EXPECT_NE(err.find("unknown output format"), std::string::npos);
}

TEST(Backgrounds, ParseAndDraw) {
  Background bg;
  std::string err;
  ASSERT_TRUE(ParseBackground("color:#102030", &bg, &err));
  Image img(8, 6);
  DrawBackground(bg, &img);
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 8; ++x) {
      const uint8_t* p = img.row(y) + 4 * x;
      ASSERT_EQ(p[0], 0x30);
      ASSERT_EQ(p[1], 0x20);
      ASSERT_EQ(p[2], 0x10);
      ASSERT_EQ(p[3], 255);
    }
  ASSERT_TRUE(ParseBackground("gradient:#000000,#ffffff", &bg, &err));
  DrawBackground(bg, &img);
  EXPECT_EQ(img.row(0)[0], 0);
  EXPECT_EQ(img.row(5)[4 * 7], 255);
  EXPECT_LT(img.row(2)[4 * 2], img.row(3)[4 * 4]);  // brighter towards the bottom right

  ASSERT_TRUE(ParseBackground("pattern", &bg, &err));
  Image pat(140, 90);
  DrawBackground(bg, &pat);
  // The centre cross is white; the first bar is light grey, the last blue.
  EXPECT_EQ(pat.row(45)[4 * 5 + 1], 255);
  EXPECT_EQ(pat.row(10)[4 * 3 + 2], 191);
  EXPECT_EQ(pat.row(10)[4 * 137 + 0], 191);
  EXPECT_EQ(pat.row(10)[4 * 137 + 2], 0);

  for (const char* bad : {"colour:#102030", "color:#1020", "color:#10203g", "gradient:#000000",
                          "gradient:#000000;#ffffff", ""}) {
    EXPECT_FALSE(ParseBackground(bad, &bg, &err)) << bad;
    EXPECT_NE(err.find("--background"), std::string::npos);
  }
}

TEST(Files, PngRoundTripAndMissingFiles) {
  fs::path dir = vetext_test::FreshTestDir("vetext_media_");
  Image img = Gradient(21, 5);
  img.row(4)[3] = 77;  // alpha survives
  std::string err;
  ASSERT_TRUE(WritePng((dir / "a.png").string(), img, &err)) << err;
  Image back;
  ASSERT_TRUE(ReadPng((dir / "a.png").string(), &back, &err)) << err;
  EXPECT_EQ(back.width, 21);
  EXPECT_EQ(back.height, 5);
  EXPECT_EQ(back.pixels, img.pixels);

  EXPECT_FALSE(ReadPng((dir / "none.png").string(), &back, &err));
  EXPECT_NE(err.find("No such file or directory"), std::string::npos) << err;
  {
    std::FILE* f = std::fopen((dir / "junk.png").c_str(), "wb");
    std::fputs("not a png at all", f);
    std::fclose(f);
  }
  EXPECT_FALSE(ReadPng((dir / "junk.png").string(), &back, &err));
  EXPECT_FALSE(WritePng((dir / "no/such/dir.png").string(), img, &err));

  MediaReader reader;
  const std::string missing = (dir / "x.mp4").string();
  EXPECT_FALSE(reader.Open(missing, &err));
  EXPECT_EQ(err, "cannot open input '" + missing + "': No such file or directory");
  fs::remove_all(dir);
}

TEST(Files, VideoRoundTripKeepsCountSizeAndColour) {
  fs::path dir = vetext_test::FreshTestDir("vetext_media_");
  const std::string path = (dir / "clip.mp4").string();
  std::string err;
  {
    VideoWriter w;
    ASSERT_TRUE(w.Open(path, 64, 48, AVRational{10, 1}, nullptr, &err)) << err;
    EXPECT_EQ(w.codec_name(), "libx264");
    Image img(64, 48);
    for (int i = 0; i < 12; ++i) {
      Background bg;
      bg.kind = Background::kColor;
      bg.r0 = uint8_t(20 * i), bg.g0 = 128, bg.b0 = 200;
      DrawBackground(bg, &img);
      ASSERT_TRUE(w.WriteFrame(img, &err)) << err;
    }
    ASSERT_TRUE(w.Finish(&err)) << err;
  }
  MediaReader r;
  ASSERT_TRUE(r.Open(path, &err)) << err;
  EXPECT_EQ(r.width(), 64);
  EXPECT_EQ(r.height(), 48);
  EXPECT_FALSE(r.is_still());
  EXPECT_EQ(r.frame_rate().num, 10);
  EXPECT_EQ(r.frame_rate().den, 1);
  EXPECT_EQ(r.audio_stream(), nullptr);
  Image img;
  double t = -1;
  int n = 0;
  while (r.Next(&img, &t, &err) == 1) {
    EXPECT_NEAR(t, n / 10.0, 1e-6);
    const uint8_t* p = img.row(24) + 4 * 32;
    EXPECT_NEAR(p[2], 20 * n, 4) << "frame " << n;
    EXPECT_NEAR(p[1], 128, 4);
    EXPECT_NEAR(p[0], 200, 4);
    ++n;
  }
  EXPECT_EQ(n, 12);

  VideoWriter odd;
  EXPECT_FALSE(odd.Open((dir / "odd.mp4").string(), 63, 48, AVRational{10, 1}, nullptr, &err));
  EXPECT_NE(err.find("even width and height"), std::string::npos);
  fs::remove_all(dir);
}

}  // namespace
}  // namespace vetext_tool
