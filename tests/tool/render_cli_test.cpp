// `vetext render` end to end: the built binary, its exit codes and messages, and the pictures
// and videos it writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ink.h"
#include "media_decode.h"
#include "media_image.h"
#include "tool_run.h"

namespace vetext_tool {
namespace {

namespace fs = std::filesystem;

using Result = vetext_test::ToolOutput;
using vetext_test::ShellQuote;

class RenderCli : public vetext_test::ToolTest {
 protected:
  Image ReadPicture(const std::string& path) const {
    Image img;
    std::string err;
    EXPECT_TRUE(ReadPng(path, &img, &err)) << err;
    return img;
  }

  int CountFrames(const std::string& path) const {
    MediaReader reader;
    std::string err;
    EXPECT_TRUE(reader.Open(path, &err)) << err;
    Image img;
    double t;
    int n = 0;
    while (reader.Next(&img, &t, &err) == 1) ++n;
    return n;
  }
};

using Diff = vetext_test::Ink;

// Pixels that differ from `ref` by more than a tolerance: their count, centroid and extent.
Diff Compare(const Image& a, const Image& ref, int tolerance = 24) {
  EXPECT_EQ(a.width, ref.width);
  EXPECT_EQ(a.height, ref.height);
  if (a.width != ref.width || a.height != ref.height) return Diff();
  return vetext_test::InkAgainst(
      a.width, a.height, [&](int32_t x, int32_t y) { return a.row(y) + 4 * x; },
      [&](int32_t x, int32_t y) { return ref.row(y) + 4 * x; }, tolerance);
}

Image Solid(int32_t w, int32_t h, uint8_t r, uint8_t g, uint8_t b) {
  Image img(w, h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      uint8_t* p = img.row(y) + 4 * x;
      p[0] = b, p[1] = g, p[2] = r, p[3] = 255;
    }
  return img;
}

TEST_F(RenderCli, BadOptionsFailWithAClearMessage) {
  struct Case {
    std::vector<std::string> args;
    int rc;
    const char* needle;
  } cases[] = {
      {{"render", "--no-such-option"}, 2, "--no-such-option"},
      {{"render", "--format", "rgba"}, 1, "bad --format 'rgba': expected bgra or vuya"},
      {{"render", "--scale", "500"}, 1, "--scale 500 is out of range (25 to 400)"},
      {{"render", "--opacity", "0=50;1=101"}, 1, "--opacity 101 is out of range"},
      {{"render", "--position", "0=100"}, 1, "bad value '0=100' for --position"},
      {{"render", "--position", "1=10,10", "--position", "1=20,20"}, 1, "two keyframes at 1 s"},
      {{"render", "--rotation", "x=5"}, 1, "is not a number of seconds"},
      {{"render", "--rotation", "10", "--rotation", "0=5"}, 1, "cannot be combined"},
      {{"render", "--frame-size", "640by480"}, 1, "bad frame size '640by480'"},
      {{"render", "--frame-size", "0x480"}, 1, "bad frame size"},
      {{"render", "--size", "64x4x4"}, 1, "bad frame size '64x4x4'"},
      {{"render", "--size", "64x64", "--frame-size", "64x64"}, 1, "keep one"},
      {{"render", "--size", "big"}, 2, "'big' is neither a font size nor WxH"},
      {{"doc", "--size", "64x64"}, 1, "--size 64x64 is a frame size"},
      {{"render", "--background", "plaid"}, 1, "bad --background 'plaid'"},
      {{"render", "--output", "x.jpg"}, 1, "pictures are written as PNG"},
      {{"render", "--output", "x.mp4", "--time", "1"}, 1, "--time picks the picture"},
      {{"render", "--threads", "0"}, 1, "--threads must be 1 to 64"},
      {{"render", "--fps", "-3"}, 1, "--fps must be above 0"},
      {{"render", "--project", "nothere.vxp"}, 1, "cannot open 'nothere.vxp'"},
  };
  for (const Case& c : cases) {
    Result r = Run(c.args);
    std::string line;
    for (const auto& a : c.args) line += a + " ";
    EXPECT_EQ(r.rc, c.rc) << line << "\n" << r.err;
    EXPECT_NE(r.err.find(c.needle), std::string::npos) << line << "\n" << r.err;
    EXPECT_FALSE(fs::exists(Path("vetext.png"))) << line;
  }
}

TEST_F(RenderCli, MissingOrUnreadableInputNamesTheFileAndTheReason) {
  Result r = Run({"render", "--input", "x.mp4"});
  EXPECT_EQ(r.rc, 1);
  EXPECT_EQ(r.err, "vetext: cannot open input 'x.mp4': No such file or directory\n");
  {
    std::ofstream f(Path("junk.mp4"));
    f << "this is not a video";
  }
  r = Run({"render", "--input", "junk.mp4", "--output", "o.png"});
  EXPECT_EQ(r.rc, 1);
  EXPECT_NE(r.err.find("vetext: cannot open input 'junk.mp4': "), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(Path("o.png")));
}

TEST_F(RenderCli, NoArgumentsRendersTheDefaultTextOverThePatternIntoVetextPng) {
  Result r = Run({});
  ASSERT_EQ(r.rc, 0) << r.err;
  EXPECT_EQ(r.err, "");  // no progress bar when stderr is not a terminal
  Image out = ReadPicture(Path("vetext.png"));
  EXPECT_EQ(out.width, 1920);
  EXPECT_EQ(out.height, 1080);
  ASSERT_EQ(Run({"render", "--opacity", "0", "--output", "bare.png"}).rc, 0);
  Diff d = Compare(out, ReadPicture(Path("bare.png")));
  // The default document's text sits around the centre of the frame.
  ASSERT_GT(d.count, 100);
  EXPECT_NEAR(d.mean_x, 960, 200);
  EXPECT_NEAR(d.mean_y, 540, 150);
}

TEST_F(RenderCli, TextPixelsSitInTheMiddleOfAPictureOfTheRightSize) {
  // --size takes the frame size as WxH, next to --frame-size.
  Result r = Run({"render", "--text", "MIDDLE", "--size", "640x360", "--background",
                  "color:#202020", "--output", "a.png"});
  ASSERT_EQ(r.rc, 0) << r.err;
  Image out = ReadPicture(Path("a.png"));
  ASSERT_EQ(out.width, 640);
  ASSERT_EQ(out.height, 360);
  Diff d = Compare(out, Solid(640, 360, 0x20, 0x20, 0x20));
  ASSERT_GT(d.count, 200);
  EXPECT_NEAR(d.mean_x, 320, 40);
  EXPECT_NEAR(d.mean_y, 180, 40);
  // Nothing drawn near the edges.
  EXPECT_GT(d.left, 20);
  EXPECT_LE(d.right, 620);
  EXPECT_GT(d.top, 20);
  EXPECT_LE(d.bottom, 340);
}

TEST_F(RenderCli, VuyaFramesGiveTheSamePictureWithinRounding) {
  const std::vector<std::string> base = {"render",  "--text",       "Wgij",         "--frame-size",
                                         "320x240", "--background", "color:#3060a0"};
  auto with = [&](std::vector<std::string> extra) {
    std::vector<std::string> a = base;
    a.insert(a.end(), extra.begin(), extra.end());
    return a;
  };
  ASSERT_EQ(Run(with({"--output", "bgra.png"})).rc, 0);
  Result r = Run(with({"--format", "vuya", "--output", "vuya.png"}));
  ASSERT_EQ(r.rc, 0) << r.err;
  Image a = ReadPicture(Path("bgra.png")), b = ReadPicture(Path("vuya.png"));
  Diff text = Compare(a, Solid(320, 240, 0x30, 0x60, 0xa0));
  ASSERT_GT(text.count, 50);
  Diff d = Compare(a, b, 6);
  EXPECT_LT(d.count, text.count / 20) << "vuya and bgra renders disagree";
}

TEST_F(RenderCli, TwoSecondVideoDecodesBackWithTheRightCountAndSize) {
  Result r = Run({"render", "--frame-size", "320x240", "--duration", "2", "--fps", "30",
                  "--threads", "2", "--output", "clip.mp4"});
  ASSERT_EQ(r.rc, 0) << r.err;
  MediaReader reader;
  std::string err;
  ASSERT_TRUE(reader.Open(Path("clip.mp4"), &err)) << err;
  EXPECT_EQ(reader.width(), 320);
  EXPECT_EQ(reader.height(), 240);
  EXPECT_EQ(reader.frame_rate().num / reader.frame_rate().den, 30);
  EXPECT_EQ(CountFrames(Path("clip.mp4")), 60);
}

TEST_F(RenderCli, KeyframedPositionMovesTheTextBetweenFirstAndLastFrame) {
  Result r = Run({"render", "--text", "MOVE", "--frame-size", "400x200", "--background",
                  "color:#000000", "--duration", "2", "--fps", "5", "--threads", "3", "--position",
                  "0=100,100;1.8=300,100", "--output", "f_%02d.png"});
  ASSERT_EQ(r.rc, 0) << r.err;
  for (int i = 1; i <= 10; ++i)
    EXPECT_TRUE(fs::exists(Path(SequenceFileName("f_%02d.png", i)))) << i;
  EXPECT_FALSE(fs::exists(Path("f_11.png")));
  const Image black = Solid(400, 200, 0, 0, 0);
  Diff first = Compare(ReadPicture(Path("f_01.png")), black);
  Diff mid = Compare(ReadPicture(Path("f_05.png")), black);   // t = 0.8 s
  Diff last = Compare(ReadPicture(Path("f_10.png")), black);  // t = 1.8 s
  ASSERT_GT(first.count, 50);
  ASSERT_GT(last.count, 50);
  EXPECT_NEAR(first.mean_x, 100, 25);
  EXPECT_NEAR(last.mean_x, 300, 25);
  EXPECT_NEAR(mid.mean_x, 100 + 200 * 0.8 / 1.8, 25);  // linear between the keys
  EXPECT_NEAR(first.mean_y, last.mean_y, 2);
}

TEST_F(RenderCli, StillImageInputKeepsItsSizeAndPixelsAroundTheText) {
  std::string err;
  ASSERT_TRUE(WritePng(Path("in.png"), Solid(300, 160, 10, 200, 30), &err)) << err;
  Result r = Run({"render", "--input", "in.png", "--text", "Hi", "--output", "out.png"});
  ASSERT_EQ(r.rc, 0) << r.err;
  Image out = ReadPicture(Path("out.png"));
  ASSERT_EQ(out.width, 300);
  ASSERT_EQ(out.height, 160);
  Diff d = Compare(out, Solid(300, 160, 10, 200, 30), 0);
  ASSERT_GT(d.count, 20);
  EXPECT_NEAR(d.mean_x, 150, 30);
  EXPECT_NEAR(d.mean_y, 80, 30);
  const uint8_t* corner = out.row(0);
  EXPECT_EQ(corner[0], 30);
  EXPECT_EQ(corner[1], 200);
  EXPECT_EQ(corner[2], 10);

  // A still input under a video output: the same picture under every frame.
  r = Run({"render", "--input", "in.png", "--duration", "1", "--fps", "4", "--output", "s.mkv"});
  ASSERT_EQ(r.rc, 0) << r.err;
  EXPECT_EQ(CountFrames(Path("s.mkv")), 4);
  // The frame size comes from the input.
  r = Run({"render", "--input", "in.png", "--frame-size", "64x64"});
  EXPECT_EQ(r.rc, 1);
  EXPECT_NE(r.err.find("the frame size comes from --input"), std::string::npos) << r.err;
}

TEST_F(RenderCli, VideoInputGivesItsFramesAtTheRequestedTime) {
  // A 1-second clip whose text moves; then a picture of it at 0.5 s.
  Result r = Run({"render", "--text", "T", "--frame-size", "320x240", "--background",
                  "color:#000000", "--duration", "1", "--fps", "10", "--position",
                  "0=60,120;0.9=260,120", "--output", "in.mp4"});
  ASSERT_EQ(r.rc, 0) << r.err;
  r = Run(
      {"render", "--input", "in.mp4", "--opacity", "0", "--time", "0.5", "--output", "half.png"});
  ASSERT_EQ(r.rc, 0) << r.err;
  Image half = ReadPicture(Path("half.png"));
  ASSERT_EQ(half.width, 320);
  Diff d = Compare(half, Solid(320, 240, 0, 0, 0), 60);
  ASSERT_GT(d.count, 10);
  EXPECT_NEAR(d.mean_x, 60 + 200 * 0.5 / 0.9, 25);

  // Video through video: the same count of frames.
  r = Run({"render", "--input", "in.mp4", "--text", "B", "--output", "out.mkv"});
  ASSERT_EQ(r.rc, 0) << r.err;
  EXPECT_EQ(CountFrames(Path("out.mkv")), 10);
  r = Run({"render", "--input", "in.mp4", "--fps", "12", "--output", "x.mkv"});
  EXPECT_EQ(r.rc, 1);
  EXPECT_NE(r.err.find("the frame rate comes from --input"), std::string::npos) << r.err;
}

TEST_F(RenderCli, AudioOfAVideoInputIsCarriedThrough) {
  if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "no ffmpeg to make a clip with sound";
  std::string make = "cd " + ShellQuote(dir_.string()) +
                     " && ffmpeg -v error -f lavfi -i color=c=gray:s=160x120:r=10:d=1 -f lavfi -i "
                     "sine=d=1 -c:v libx264 -c:a aac -shortest snd.mp4";
  ASSERT_EQ(std::system(make.c_str()), 0);
  Result r = Run({"render", "--input", "snd.mp4", "--output", "out.mp4"});
  ASSERT_EQ(r.rc, 0) << r.err;
  MediaReader reader;
  std::string err;
  ASSERT_TRUE(reader.Open(Path("out.mp4"), &err)) << err;
  EXPECT_NE(reader.audio_stream(), nullptr);
}

TEST_F(RenderCli, SavedProjectRendersTheIdenticalFrame) {
  Result r = Run({"render", "--text", "Saved", "--frame-size", "320x240", "--position",
                  "0=80,60;2=240,180", "--rotation", "0=0;2=30", "--scale", "150", "--opacity",
                  "80", "--time", "1.3", "--save-project", "p.vxp", "--output", "a.png"});
  ASSERT_EQ(r.rc, 0) << r.err;
  ASSERT_TRUE(fs::exists(Path("p.vxp")));
  r = Run({"render", "--project", "p.vxp", "--frame-size", "320x240", "--time", "1.3", "--output",
           "b.png"});
  ASSERT_EQ(r.rc, 0) << r.err;
  Image a = ReadPicture(Path("a.png")), b = ReadPicture(Path("b.png"));
  EXPECT_EQ(a.pixels, b.pixels);
  // And the project is not a no-op: without it the frame differs.
  ASSERT_EQ(Run({"render", "--frame-size", "320x240", "--time", "1.3", "--output", "c.png"}).rc, 0);
  EXPECT_NE(a.pixels, ReadPicture(Path("c.png")).pixels);

  std::ofstream(Path("bad.vxp")) << "garbage";
  r = Run({"render", "--project", "bad.vxp"});
  EXPECT_EQ(r.rc, 1);
  EXPECT_NE(r.err.find("cannot load project 'bad.vxp'"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace vetext_tool
