// `vetext render` end to end: the built binary, its exit codes and messages, and the pictures
// and videos it writes.
#include <gtest/gtest.h>

#include <algorithm>
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

// Files with the same bytes as `keep` before and after: nothing a failed command did touched it.
bool Untouched(const fs::path& dir, const std::string& keep) {
  for (const auto& e : fs::directory_iterator(dir))
    if (e.path().extension() == ".part") return false;  // no temporary file left behind
  return vetext_test::ReadWholeFile(dir / "keep.png") == keep;
}

// Bad options (status 2) and bad inputs (status 1), each with a message naming the problem, no
// signal, and the earlier output left as it was.
TEST_F(RenderCli, BadOptionsAndInputsFailWithAClearMessageAndLoseNothing) {
  std::string err;
  ASSERT_TRUE(WritePng(Path("in.png"), Solid(64, 64, 1, 2, 3), &err)) << err;
  ASSERT_TRUE(WritePng(Path("keep.png"), Solid(8, 8, 9, 9, 9), &err)) << err;
  const std::string keep = vetext_test::ReadWholeFile(Path("keep.png"));
  Render({"--frame-size", "64x48", "--duration", "0.2", "--fps", "10", "--save-project", "p.vxp"},
         "in.mkv");
  std::string project = vetext_test::ReadWholeFile(Path("p.vxp"));
  for (size_t i = 8; i < project.size(); i += 7) project[i] = char(project[i] ^ 0x5A);
  const std::string png = vetext_test::ReadWholeFile(Path("in.png"));
  std::string mkv = vetext_test::ReadWholeFile(Path("in.mkv"));
  for (size_t i = 0; i < 64; ++i) mkv[i] = char(mkv[i] ^ 0xA5);
  const std::pair<const char*, std::string> files[] = {{"flipped.vxp", project},
                                                       {"bad.vxp", "garbage"},
                                                       {"empty.vxp", ""},
                                                       {"big.vxp", std::string(3 << 20, 'x')},
                                                       {"cut.png", png.substr(0, png.size() / 2)},
                                                       {"flipped.mkv", mkv},
                                                       {"empty.mp4", ""},
                                                       {"text.txt", std::string(70000, 'a')}};
  for (const auto& [name, bytes] : files) std::ofstream(Path(name), std::ios::binary) << bytes;
  fs::create_directory(Path("folder.vxp"));
  std::ofstream(Path("broken.json")) << "{\"mVersion\": 1, \"mTextParam\": [";
  struct Case {
    std::vector<std::string> args;  // --output keep.png is added where none is given
    int rc;
    const char* needle;
    const char* input = "";  // on standard input
  } cases[] = {
      {{"render", "--no-such-option"}, 2, "--no-such-option"},
      {{"overlay", "--drag", "middle:1,2"}, 2, "bad --drag 'middle:1,2'"},
      {{"overlay", "--drag", "inside:1"}, 2, "bad --drag 'inside:1'"},
      {{"overlay", "-o", "keep.mp4"}, 2, "written as .svg or .png"},
      {{"overlay", "--text", " ", "--drag", "inside:1,1"}, 1, "draws no Transform box"},
      {{"render", "--format", "rgba"}, 2, "bad --format 'rgba': expected bgra or vuya"},
      {{"render", "--gpu", "opencl"}, 2, "bad --gpu 'opencl': expected auto, cpu or cuda"},
      {{"render", "--gpu", "cpu", "--format", "vuya"}, 2, "--gpu renders 'bgra' frames only"},
      {{"render", "--scale", "500"}, 2, "--scale 500 is out of range (25 to 400)"},
      {{"render", "--hscale", "24"}, 2, "--hscale 24 is out of range (25 to 400)"},
      {{"render", "--opacity", "0=50;1=101"}, 2, "--opacity 101 is out of range"},
      {{"render", "--position", "0=100"}, 2, "bad value '0=100' for --position"},
      {{"render", "--position", "1=10,10", "--position", "1=20,20"}, 2, "two keyframes at 1 s"},
      {{"render", "--rotation", "1e999"}, 2, "--rotation"},
      {{"render", "--frame-size", "640by480"}, 2, "bad frame size '640by480'"},
      {{"render", "--frame-size", "0x480"}, 2, "bad frame size"},
      {{"render", "--size", "4294967297x10"}, 2, "bad frame size '4294967297x10'"},
      {{"render", "--size", "64x4x4"}, 2, "bad frame size '64x4x4'"},
      {{"render", "--size", "64x64", "--frame-size", "64x64"}, 2, "keep one"},
      {{"render", "--size", "big"}, 2, "'big' is neither a font size nor WxH"},
      {{"render", "--size", "1e308"}, 2, "--size must be 0 to 1000 pixels"},
      {{"render", "--stroke-width", "1e9"}, 2, "--stroke-width must be 0 to 1000 pixels"},
      {{"render", "--tracking", "nan"}, 2, "--tracking must be"},
      {{"render", "--box", "99999x10"}, 2, "is not WxH, each 0 to 16384"},
      {{"render", "--fill", "2,0,0"}, 2, "components go from 0 to 1"},
      {{"render", "--fill", "red"}, 2, "'red' is not R,G,B or #rrggbb"},
      {{"render", "--align", "Justify All"}, 2, "justified names need --box"},
      {{"render", "--leading", "-1"}, 2, "--leading must be 0 to 100000 pixels"},
      {{"render", "--fill-over-stroke", "--stroke-over-fill"}, 2, "excludes"},
      {{"render", "--text", std::string(70000, 'a')}, 2, "at most 65536 are drawn"},
      {{"render", "--from", "text.txt"}, 1, "JSON not well-formed"},
      {{"doc", "--size", "64x64"}, 2, "--size 64x64 is a frame size"},
      {{"doc", "--from", "/dev/zero"}, 1, "'/dev/zero' goes on past 64 MiB"},
      {{"render", "--background", "plaid"}, 2, "bad --background 'plaid'"},
      {{"render", "--output", "x.jpg"}, 2, "pictures are written as PNG"},
      {{"render", "--output", "x_%03d.jpg"}, 2, "only PNG sequences are written"},
      {{"render", "--output", "x.nosuchformat"}, 2, "unknown output format"},
      {{"render", "--frame-size", "63x48", "--output", "x.mp4"}, 1, "even width and height"},
      {{"render", "--frame-size", "8x8", "--output", "no/dir.png"}, 1, "cannot write 'no/dir.png'"},
      {{"render", "--frame-size", "8x8", "--output", "folder.vxp"}, 2, "unknown output format"},
      {{"render", "--output", "x.mp4", "--time", "1"}, 2, "--time picks the picture"},
      {{"render", "--time", "-1"}, 2, "--time must be 0 to 86400 s"},
      {{"render", "--duration", "0"}, 2, "--duration must be above 0"},
      {{"render", "--duration", "86400", "--output", "x.mp4"}, 2, "at most 3600 s"},
      {{"render", "--frame-size", "8192x8192", "--threads", "8"}, 2, "use at most 4"},
      {{"render", "--threads", "0"}, 2, "--threads must be 1 to 64"},
      {{"render", "--fps", "-3"}, 2, "--fps must be above 0"},
      {{"render", "--project", "nothere.vxp"}, 1, "cannot open 'nothere.vxp'"},
      {{"render", "--project", "folder.vxp"}, 1, "'folder.vxp' is a folder, not a file"},
      {{"render", "--project", "/dev/zero"}, 1, "'/dev/zero' goes on past 64 MiB"},
      {{"render", "--project", "bad.vxp"}, 1, "cannot load project 'bad.vxp'"},
      {{"render", "--project", "empty.vxp"}, 1, "cannot load project 'empty.vxp'"},
      {{"render", "--project", "big.vxp"}, 1, "cannot load project 'big.vxp'"},
      {{"render", "--project", "flipped.vxp"}, 1, "cannot load project 'flipped.vxp'"},
      {{"render", "--input", "x.mp4"},
       1,
       "vetext: cannot open input 'x.mp4': No such file or directory\n"},
      {{"render", "--input", "cut.png"}, 1, "cut.png"},
      {{"render", "--input", "folder.vxp"}, 1, "folder.vxp"},
      {{"render", "--input", "flipped.mkv"}, 1, "cannot open input 'flipped.mkv'"},
      {{"render", "--input", "empty.mp4", "--output", "x.mp4"}, 1, "cannot open input 'empty.mp4'"},
      {{"render", "--input", "in.png", "--frame-size", "64x64"}, 2, "size comes from --input"},
      {{"render", "--input", "in.png", "--background", "gradient"}, 2, "only without --input"},
      {{"render", "--input", "in.mkv", "--fps", "12"}, 2, "the frame rate comes from --input"},
      {{"render", "--input", "keep.png"}, 2, "the output 'keep.png' is the input"},
      {{"dict", "decode", "folder.vxp"}, 1, "'folder.vxp' is a folder, not a file"},
      {{"dict", "decode"}, 1, "in standard input: unterminated string at byte", "<< /A (abc"},
      {{"dict", "encode"}, 1, "vetext: ", R"({"A":{"/":"has space"}})"},
      {{"doc", "--from", "broken.json"}, 1, "the document in 'broken.json': JSON not well-formed"},
      {{"describe", "--module", "/nonexistent/VEText.so"}, 1, "/nonexistent/VEText.so"},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.args).substr(0, 200));
    if (c.args[0] == "render" &&
        std::find(c.args.begin(), c.args.end(), "--output") == c.args.end())
      c.args.insert(c.args.end(), {"--output", "keep.png"});
    vetext_test::ToolOutput r = Run(c.args, c.input);
    EXPECT_EQ(r.rc, c.rc) << r.err;  // -1: a signal
    EXPECT_NE(r.err.find(c.needle), std::string::npos) << r.err;
    EXPECT_TRUE(Untouched(dir_, keep));
    EXPECT_FALSE(fs::exists(Path("vetext.png")));
  }
  // A disk that fills up (here: a limit of 512 bytes a file, below the project's size) fails
  // the write and keeps the earlier file.
  fs::copy_file(Path("keep.png"), Path("saved.vxp"));
  vetext_test::ToolOutput r =
      Run({"render", "--frame-size", "8x8", "--output", "out.png", "--save-project", "saved.vxp"},
          "", "trap '' XFSZ; ulimit -f 1; ");
  EXPECT_EQ(r.rc, 1);
  EXPECT_NE(r.err.find("cannot write 'saved.vxp': File too large"), std::string::npos) << r.err;
  EXPECT_EQ(vetext_test::ReadWholeFile(Path("saved.vxp")), keep);
}

// Ctrl-C during a video render: stopped within a second, the earlier output as it was and no
// temporary file left; with --keep-partial, a playable video of the frames so far.
TEST_F(RenderCli, InterruptedRenderKeepsTheEarlierOutputOrFinishesThePartialOne) {
  for (bool keep_partial : {false, true}) {
    SCOPED_TRACE(keep_partial);
    std::ofstream(Path("out.mp4"), std::ios::binary) << "earlier output";
    // In the background until frames reach the temporary file; then SIGINT, and the exit status
    // and the milliseconds until the exit.
    const std::string script =
        "cd " + vetext_test::ShellQuote(dir_.string()) + " && { " +
        vetext_test::ShellQuote(VETEXT_TOOL_PATH) +
        " render --frame-size 320x240 --duration 600 -o out.mp4 " +
        (keep_partial ? "--keep-partial " : "") +
        "2>stderr.txt & p=$!; for i in $(seq 400); do [ -s .out.mp4.*.part ] && break; "
        "sleep 0.025; done; sleep 0.2; t=$(date +%s%N); kill -INT $p; wait $p; "
        "echo $? $((($(date +%s%N) - t) / 1000000)) >result.txt; }";
    ASSERT_EQ(std::system(script.c_str()), 0);
    int status = -1, ms = -1;
    std::ifstream(Path("result.txt")) >> status >> ms;
    EXPECT_EQ(status, 130);
    EXPECT_LT(ms, 1000);
    for (const auto& e : fs::directory_iterator(dir_)) EXPECT_NE(e.path().extension(), ".part");
    EXPECT_NE(vetext_test::ReadWholeFile(Path("stderr.txt"))
                  .find(keep_partial ? "holds the first" : "is left as it was"),
              std::string::npos);
    if (!keep_partial) {
      EXPECT_EQ(vetext_test::ReadWholeFile(Path("out.mp4")), "earlier output");
      continue;
    }
    MediaReader reader;
    std::string err;
    ASSERT_TRUE(reader.Open(Path("out.mp4"), &err)) << err;
    Image img;
    double t;
    EXPECT_EQ(reader.Next(&img, &t, &err), 1) << err;
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
  // The null output renders every frame and writes nothing.
  const size_t files = std::distance(fs::directory_iterator(dir_), fs::directory_iterator());
  Render({"--input", "in.mp4"}, "null:");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), files);
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

TEST_F(RenderCli, GpuPathOnTheCpuDeviceDrawsTheReadmeDemoFrame) {
  const std::vector<std::string> demo = {
      "--background", "gradient",        "--duration",
      "10",           "--fps",           "30",
      "--text",       "vetext",          "--size",
      "160",          "--fill",          "#ffd040",
      "--stroke",     "#202020",         "--stroke-width",
      "10",           "--position",      "0=400,540;5=1520,540;10=960,300",
      "--rotation",   "0=0;5=30;10=-15", "--time",
      "3.5"};
  std::vector<std::string> gpu = demo;
  gpu.insert(gpu.end(), {"--gpu", "cpu"});
  const Image a = Render(demo, "cpu.png"), b = Render(gpu, "gpu.png");
  ASSERT_EQ(a.width, 1920);
  EXPECT_GT(Compare(b, Solid(1920, 1080, 0, 0, 0), 0).count, 0);
  const vetext_test::ToolOutput d =
      Run({"diff", Path("cpu.png"), Path("gpu.png"), "--tolerance", "1", "--min-within", "99"});
  EXPECT_EQ(d.rc, 0) << d.out << d.err;
}

}  // namespace
}  // namespace vetext_tool
