// `vetext render` end to end: the built binary, its exit codes and messages, and the pictures
// and videos it writes.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ink.h"
#include "media_background.h"
#include "media_decode.h"
#include "media_image.h"
#include "tool_run.h"

namespace vetext_tool {
namespace {

namespace fs = std::filesystem;
using vetext_test::Ink;

Image Solid(int32_t w, int32_t h, uint8_t r, uint8_t g, uint8_t b) {
  Image img(w, h);
  DrawBackground(Background{Background::kColor, r, g, b}, &img);
  return img;
}

// Pixels of `a` that differ from `ref` by more than `tolerance`.
Ink Compare(const Image& a, const Image& ref, int tolerance = 24) {
  const bool same_size = a.width == ref.width && a.height == ref.height;
  EXPECT_TRUE(same_size) << a.width << "x" << a.height << " against " << ref.width;
  if (!same_size) return Ink();
  return vetext_test::InkAgainst(
      a.width, a.height, [&](int32_t x, int32_t y) { return a.row(y) + 4 * x; },
      [&](int32_t x, int32_t y) { return ref.row(y) + 4 * x; }, tolerance);
}

class RenderCli : public vetext_test::ToolTest {
 protected:
  Image Picture(const std::string& name) const {
    Image img;
    std::string err;
    EXPECT_TRUE(ReadPng(Path(name), &img, &err)) << err;
    return img;
  }
  // Renders with `args` into `output`; a still output is read back.
  Image Render(std::vector<std::string> args, const std::string& output) const {
    args.insert(args.begin(), "render");
    args.insert(args.end(), {"--output", output});
    vetext_test::ToolOutput r = Run(args);
    EXPECT_EQ(r.rc, 0) << r.err;
    EXPECT_EQ(r.err, "");  // no progress bar when stderr is not a terminal
    return r.rc == 0 && output.ends_with(".png") && output.find('%') == std::string::npos
               ? Picture(output)
               : Image();
  }
};

TEST_F(RenderCli, BadOptionsAndInputsFailWithAClearMessageAndWriteNothing) {
  std::string err;
  ASSERT_TRUE(WritePng(Path("in.png"), Solid(64, 64, 1, 2, 3), &err)) << err;
  Render({"--frame-size", "64x48", "--duration", "0.2", "--fps", "10"}, "in.mkv");
  std::ofstream(Path("bad.vxp")) << "garbage";
  struct Case {
    std::vector<std::string> args;
    int rc;
    const char* needle;
  } cases[] = {
      {{"render", "--no-such-option"}, 2, "--no-such-option"},
      {{"render", "--format", "rgba"}, 1, "bad --format 'rgba': expected bgra or vuya"},
      {{"render", "--scale", "500"}, 1, "--scale 500 is out of range (25 to 400)"},
      {{"render", "--hscale", "24"}, 1, "--hscale 24 is out of range (25 to 400)"},
      {{"render", "--opacity", "0=50;1=101"}, 1, "--opacity 101 is out of range"},
      {{"render", "--position", "0=100"}, 1, "bad value '0=100' for --position"},
      {{"render", "--position", "1=10,10", "--position", "1=20,20"}, 1, "two keyframes at 1 s"},
      {{"render", "--frame-size", "640by480"}, 1, "bad frame size '640by480'"},
      {{"render", "--frame-size", "0x480"}, 1, "bad frame size"},
      {{"render", "--size", "64x4x4"}, 1, "bad frame size '64x4x4'"},
      {{"render", "--size", "64x64", "--frame-size", "64x64"}, 1, "keep one"},
      {{"render", "--size", "big"}, 2, "'big' is neither a font size nor WxH"},
      {{"doc", "--size", "64x64"}, 1, "--size 64x64 is a frame size"},
      {{"render", "--background", "plaid"}, 1, "bad --background 'plaid'"},
      {{"render", "--output", "x.jpg"}, 1, "pictures are written as PNG"},
      {{"render", "--output", "x_%03d.jpg"}, 1, "only PNG sequences are written"},
      {{"render", "--output", "x.nosuchformat"}, 1, "unknown output format"},
      {{"render", "--frame-size", "63x48", "--output", "x.mp4"}, 1, "even width and height"},
      {{"render", "--frame-size", "8x8", "--output", "no/dir.png"}, 1, "cannot write 'no/dir.png'"},
      {{"render", "--output", "x.mp4", "--time", "1"}, 1, "--time picks the picture"},
      {{"render", "--time", "-1"}, 1, "--time must not be negative"},
      {{"render", "--duration", "0"}, 1, "--duration must be above 0"},
      {{"render", "--threads", "0"}, 1, "--threads must be 1 to 64"},
      {{"render", "--fps", "-3"}, 1, "--fps must be above 0"},
      {{"render", "--project", "nothere.vxp"}, 1, "cannot open 'nothere.vxp'"},
      {{"render", "--project", "bad.vxp"}, 1, "cannot load project 'bad.vxp'"},
      {{"render", "--input", "x.mp4"},
       1,
       "vetext: cannot open input 'x.mp4': No such file or directory\n"},
      {{"render", "--input", "in.png", "--frame-size", "64x64"}, 1, "size comes from --input"},
      {{"render", "--input", "in.png", "--background", "gradient"}, 1, "only without --input"},
      {{"render", "--input", "in.mkv", "--fps", "12"}, 1, "the frame rate comes from --input"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args));
    vetext_test::ToolOutput r = Run(c.args);
    EXPECT_EQ(r.rc, c.rc) << r.err;
    EXPECT_NE(r.err.find(c.needle), std::string::npos) << r.err;
    EXPECT_FALSE(fs::exists(Path("vetext.png")));
  }
}

TEST_F(RenderCli, NoArgumentsDrawsTheDefaultTextInTheMiddleOfThePatternIntoVetextPng) {
  vetext_test::ToolOutput r = Run({});
  ASSERT_EQ(r.rc, 0) << r.err;
  Image out = Picture("vetext.png"), pattern(1920, 1080);
  DrawBackground(Background{}, &pattern);
  Ink d = Compare(out, pattern);
  ASSERT_GT(d.count, 100);
  EXPECT_NEAR(d.mean_x, 960, 200);
  EXPECT_NEAR(d.mean_y, 540, 150);
}

TEST_F(RenderCli, TextSitsInTheMiddleOfAStillInputThatKeepsItsSizeAndVuyaAgrees) {
  std::string err;
  const Image in = Solid(640, 360, 10, 200, 30);
  ASSERT_TRUE(WritePng(Path("in.png"), in, &err)) << err;
  Image bgra = Render({"--input", "in.png", "--text", "MIDDLE"}, "bgra.png");
  Ink d = Compare(bgra, in, 0);
  ASSERT_GT(d.count, 200);
  EXPECT_NEAR(d.mean_x, 320, 40);
  EXPECT_NEAR(d.mean_y, 180, 40);
  // Every pixel away from the text as it was.
  EXPECT_TRUE(d.left > 20 && d.top > 20 && d.right <= 620 && d.bottom <= 340)
      << d.left << "," << d.top;
  Image vuya = Render({"--input", "in.png", "--text", "MIDDLE", "--format", "vuya"}, "vuya.png");
  EXPECT_LT(Compare(bgra, vuya, 6).count, d.count / 20) << "vuya and bgra renders disagree";
  // A box given no position is centred, not hung from the frame's centre by its corner.
  Image boxed = Render({"--input", "in.png", "--text", "Two lines of boxed text", "--box",
                        "400x200", "--align", "center align"},
                       "box.png");
  Ink b = Compare(boxed, in, 0);
  EXPECT_NEAR(b.cx(), 320, 20);
  EXPECT_TRUE(b.left >= 120 && b.right <= 520 && b.top >= 80 && b.bottom <= 280 && b.top < 120)
      << b.left << "," << b.top << " " << b.right << "," << b.bottom;
}

TEST_F(RenderCli, KeyframedTextMovesThroughAVideoAndBackOutAsPictures) {
  // Ten frames in batches of three, the text moving linearly between the keys.
  Render({"--text", "T", "--size", "320x240", "--background", "color:#0080c8", "--duration", "1",
          "--fps", "10", "--threads", "3", "--position", "0=60,120;0.9=260,120"},
         "in.mp4");
  MediaReader reader;
  std::string err;
  ASSERT_TRUE(reader.Open(Path("in.mp4"), &err)) << err;
  EXPECT_EQ(reader.frame_rate().num / reader.frame_rate().den, 10);
  Image img;
  double t = -1;
  int n = 0;
  for (; reader.Next(&img, &t, &err) == 1; ++n) EXPECT_NEAR(t, n / 10.0, 1e-6);
  EXPECT_EQ(n, 10);

  // Every frame of the video as a numbered picture, and the picture at a time between frames.
  Render({"--input", "in.mp4", "--opacity", "0"}, "f_%02d.png");
  Render({"--input", "in.mp4", "--opacity", "0", "--time", "0.5"}, "half.png");
  EXPECT_FALSE(fs::exists(Path("f_11.png")));
  const Image bg = Solid(320, 240, 0x00, 0x80, 0xc8);
  struct Case {
    std::string picture;
    double t;
  } cases[] = {{"f_01.png", 0}, {"f_05.png", 0.4}, {"f_10.png", 0.9}, {"half.png", 0.5}};
  for (const Case& c : cases) {
    const Image picture = Picture(c.picture);
    Ink d = Compare(picture, bg, 60);
    ASSERT_GT(d.count, 10) << c.picture;
    // The background's colour survives BT.709 both ways.
    EXPECT_LT(Compare(picture, bg, 6).count, 3000) << c.picture;
    EXPECT_NEAR(d.mean_x, 60 + 200 * c.t / 0.9, 25) << c.picture;
    EXPECT_NEAR(d.mean_y, 120, 25) << c.picture;
  }
}

TEST_F(RenderCli, SavedProjectRendersTheIdenticalFrameWithKeysAtBothEndsOfTheRanges) {
  Image a = Render({"--text", "Saved", "--frame-size", "320x240", "--position", "0=80,60;2=240,180",
                    "--rotation", "0=0;2=30", "--scale", "0=25;2=400", "--opacity", "0=0;2=100",
                    "--time", "1.3", "--save-project", "p.vxp"},
                   "a.png");
  Image b = Render({"--project", "p.vxp", "--frame-size", "320x240", "--time", "1.3"}, "b.png");
  EXPECT_EQ(a.pixels, b.pixels);
  // Document options beside --project override the saved document.
  Image c = Render(
      {"--project", "p.vxp", "--frame-size", "320x240", "--time", "1.3", "--text", "New"}, "c.png");
  EXPECT_NE(a.pixels, c.pixels);
}

}  // namespace
}  // namespace vetext_tool
