// The frei0r filter: in the real programs that load it (ffmpeg, melt, gst-launch-1.0), each
// output frame against `vetext render` of the same settings; and through its C entry points, the
// failures that must pass the frame through, in-place frames and instances on two threads.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "exported_symbols.h"
#include "tool_run.h"

extern "C" {
#include <frei0r.h>
}

namespace {

using vetext_test::FreshTestDir;
using vetext_test::ReadWholeFile;
using vetext_test::ShellQuote;

const std::string kTool = VETEXT_TOOL_PATH;
const std::string kFilterDir = std::filesystem::path(VETEXT_FREI0R_PATH).parent_path().string();

struct Shell {
  int rc;
  std::string err;
};

class Frei0rPrograms : public ::testing::Test {
 protected:
  void SetUp() override {
#ifdef VETEXT_SANITIZED
    GTEST_SKIP() << "the programs are not built with the sanitizer this filter is built with";
#endif
    dir_ = FreshTestDir("vetext_frei0r_");
  }
  void TearDown() override {
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }
  std::string Path(const std::string& name) const {
    return (dir_ / name).string();
  }

  Shell Run(const std::string& command) const {
    // Appended piece by piece: GCC 12 at -O3 reports a false -Wrestrict on a literal `+` a
    // temporary string.
    std::string full = "cd ";
    full += ShellQuote(dir_.string());
    full += " && FREI0R_PATH=";
    full += ShellQuote(kFilterDir);
    full += " GST_REGISTRY=gst-registry.bin ";
    full += command;
    full += " >out.txt 2>err.txt";
    const int status = std::system(full.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadWholeFile(Path("err.txt"))};
  }
  static bool Have(const std::string& program) {
    std::string command = "command -v ";
    command += program;
    command += " >/dev/null";
    return std::system(command.c_str()) == 0;
  }
  // A 10-frame, 10 fps clip stored losslessly in RGB, so that every program decodes the same
  // pixels and only the text can differ.
  void MakeClip() {
    ASSERT_EQ(Run("ffmpeg -v error -f lavfi -i testsrc2=size=320x240:rate=10 -t 1 -c:v png "
                  "clip.mkv")
                  .rc,
              0);
  }
  // Frame i (1-based) of `prefix`%02d.png against the same frame of `reference`.
  void ExpectFramesMatch(const std::string& prefix, const std::string& reference, int first,
                         int count, int offset = 0) {
    for (int i = first; i < first + count; ++i) {
      char a[64], b[64];
      std::snprintf(a, sizeof a, "%s%02d.png", prefix.c_str(), i);
      std::snprintf(b, sizeof b, "%s%02d.png", reference.c_str(), i + offset);
      const Shell d = Run(ShellQuote(kTool) + " diff --tolerance 1 --min-within 99 " + a + " " + b);
      EXPECT_EQ(d.rc, 0) << a << " against " << b << ": " << ReadWholeFile(Path("out.txt"))
                         << d.err;
    }
  }
  std::filesystem::path dir_;
};

TEST_F(Frei0rPrograms, EachProgramsFramesMatchTheRenderCommand) {
  if (!Have("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed (scripts/install-deps.sh)";
  MakeClip();
  const bool melt = Have("melt");
  const bool gst = Have("gst-launch-1.0") && Run("gst-inspect-1.0 frei0r").rc == 0;
  if (!melt) std::printf("melt is not installed: its rows are skipped\n");
  if (!gst) std::printf("GStreamer's frei0r bridge is absent: its row is skipped\n");
  const std::string ff = "ffmpeg -v error -y -i clip.mkv -vf ";
  // Each row: the `vetext render` reference (run first: it may write the project the program
  // reads), the program writing o_NN.png, and the frames compared (o_ from `first` against
  // r_ from `first + offset`).
  struct Row {
    const char* name;
    bool runs;
    std::string render_args, program;
    int first = 1, count = 10, offset = 0;
  } rows[] = {
      {"styled", true,
       "--text 'Hello, frei0r' --font 'DejaVu Serif' --size 48 --fill 1,0.5,0 --stroke 0,0,1 "
       "--stroke-width 2.4",
       ff + "'frei0r=vetext:Hello\\, frei0r|DejaVu Serif|0.2|1/0.5/0|0/0/1|0.01' o_%02d.png"},
      {"placed", true,
       "--text Title --position 80,180 --anchor 80,180 --scale 150 --hscale 200 --rotation 30 "
       "--opacity 50",
       ff + "'frei0r=vetext:Title||0|1/1/1|1/1/1|0||0/0|0.25/0.75|0.25/0.75|1.5|2|30|0.5' "
            "o_%02d.png"},
      {"box", true, "--text 'Wrapped text in a box' --align 'Right Align' --box 160x120",
       ff + "'frei0r=vetext:Wrapped text in a box||0|1/1/1|1/1/1|0|right|0.5/0.5' o_%02d.png"},
      // A project with a keyframed rotation keeps its transform (the filter's own values are
      // left at their defaults).
      {"project", true,
       "--text Project --fill 0,1,0 --position 100,60 --rotation '0=0;0.9=-90' "
       "--save-project title.vxpj",
       ff + "frei0r=vetext:@title.vxpj o_%02d.png"},
      // sendcmd sets new parameters from 0.5 s on.
      {"commands before", true, "--text First",
       ff + "'sendcmd=f=cmds.txt,frei0r=vetext:First' o_%02d.png", 1, 5},
      {"commands after", true, "--text Second --size 60",
       ff + "'sendcmd=f=cmds.txt,frei0r=vetext:First' o_%02d.png", 6, 5},
      // MLT keyframes count frames; at 10 fps frame 9 is 0.9 s.
      {"melt", melt, "--text Turning --size 36 --fill '#ff8000' --rotation '0=0;0.9=90'",
       "melt -silent -quiet clip.mkv -filter frei0r.vetext text=Turning size=0.15 "
       "'rotation=0=0;9=90' fill=0xff8000ff -consumer avformat:o_%02d.png vcodec=png "
       "pix_fmt=rgba"},
      {"gstreamer", gst, "--text Pipeline --size 48 --fill 1,0.5,1 --position 128,120",
       "gst-launch-1.0 -q filesrc location=clip.mkv ! decodebin ! videoconvert ! "
       "frei0r-filter-vetext text=Pipeline size=0.2 fill-g=0.5 position-x=0.4 ! videoconvert ! "
       "video/x-raw,format=RGBA ! pngenc ! multifilesink location=o_%02d.png",
       0, 10, 1},  // multifilesink counts from 0
  };
  std::ofstream(Path("cmds.txt")) << "0.5 frei0r filter_params 'Second||0.25';\n";
  for (const Row& row : rows) {
    if (!row.runs) continue;
    SCOPED_TRACE(row.name);
    Run("rm -f o_*.png r_*.png");  // no frame of an earlier row can stand in
    ASSERT_EQ(Run(ShellQuote(kTool) + " render -i clip.mkv -o r_%02d.png " + row.render_args).rc,
              0);
    ASSERT_EQ(Run(row.program).rc, 0) << ReadWholeFile(Path("err.txt"));
    ExpectFramesMatch("o_", "r_", row.first, row.count, row.offset);
  }
}

TEST_F(Frei0rPrograms, BadSettingsPassTheFrameThroughWithAMessage) {
  if (!Have("ffmpeg")) GTEST_SKIP() << "ffmpeg is not installed (scripts/install-deps.sh)";
  MakeClip();
  ASSERT_EQ(Run("ffmpeg -v error -i clip.mkv -pix_fmt rgba in_%02d.png").rc, 0);
  const struct {
    const char* params;
    const char* needle;
  } cases[] = {
      {"@missing.vxpj", "missing.vxpj"},
      {"@-", "names no file"},
      {"Hello|No Such Family Anywhere", "'No Such Family Anywhere' is not installed"},
      {"Hello||0|1/1/1|1/1/1|0|diagonal", "'diagonal' is not one of"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.params);
    const Shell s = Run("ffmpeg -v error -i clip.mkv -vf " +
                        ShellQuote(std::string("frei0r=vetext:") + c.params) + " -y o_%02d.png");
    EXPECT_EQ(s.rc, 0);
    EXPECT_NE(s.err.find(c.needle), std::string::npos) << s.err;
    // Said once, not once a frame.
    EXPECT_EQ(s.err.find("vetext frei0r filter", s.err.find("vetext frei0r filter") + 1),
              std::string::npos)
        << s.err;
    ExpectFramesMatch("o_", "in_", 1, 10);
  }
}

// The filter loaded the way every client loads it, through its C entry points.
class Frei0rEntry : public ::testing::Test {
 protected:
  void SetUp() override {
    lib_ = dlopen(VETEXT_FREI0R_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib_, nullptr) << dlerror();
    init_ = reinterpret_cast<int (*)()>(dlsym(lib_, "f0r_init"));
    construct_ =
        reinterpret_cast<f0r_instance_t (*)(unsigned, unsigned)>(dlsym(lib_, "f0r_construct"));
    destruct_ = reinterpret_cast<void (*)(f0r_instance_t)>(dlsym(lib_, "f0r_destruct"));
    set_ = reinterpret_cast<void (*)(f0r_instance_t, f0r_param_t, int)>(
        dlsym(lib_, "f0r_set_param_value"));
    update_ = reinterpret_cast<void (*)(f0r_instance_t, double, const uint32_t*, uint32_t*)>(
        dlsym(lib_, "f0r_update"));
    ASSERT_TRUE(init_ && construct_ && destruct_ && set_ && update_);
    ASSERT_EQ(init_(), 1);
  }
  void TearDown() override {
    if (lib_) dlclose(lib_);
  }
  void SetText(f0r_instance_t inst, const char* text) {
    f0r_param_string s = const_cast<char*>(text);
    set_(inst, &s, 0);
  }
  // A grey frame with the text drawn over it; returns how many pixels the text changed.
  static size_t Changed(const std::vector<uint32_t>& in, const std::vector<uint32_t>& out) {
    size_t n = 0;
    for (size_t i = 0; i < in.size(); ++i) n += in[i] != out[i];
    return n;
  }
  void* lib_ = nullptr;
  int (*init_)() = nullptr;
  f0r_instance_t (*construct_)(unsigned, unsigned) = nullptr;
  void (*destruct_)(f0r_instance_t) = nullptr;
  void (*set_)(f0r_instance_t, f0r_param_t, int) = nullptr;
  void (*update_)(f0r_instance_t, double, const uint32_t*, uint32_t*) = nullptr;
};

TEST(Frei0rExports, ExactlyTheFrei0rEntryPoints) {
  const std::set<std::string> expected = {
      "f0r_init",      "f0r_deinit",   "f0r_get_plugin_info", "f0r_get_param_info",
      "f0r_construct", "f0r_destruct", "f0r_set_param_value", "f0r_get_param_value",
      "f0r_update"};
  EXPECT_EQ(vetext_test::ExportedSymbols(VETEXT_FREI0R_PATH), expected);
}

TEST_F(Frei0rEntry, InPlaceAndTwoThreadsDrawWhatSeparateBuffersDraw) {
  const unsigned w = 320, h = 96;
  const std::vector<uint32_t> grey(w * h, 0xff808080u);
  f0r_instance_t a = construct_(w, h), b = construct_(w, h);
  ASSERT_TRUE(a && b);
  SetText(a, "Left thread");
  SetText(b, "Right thread");
  // The second frame of a document is drawn from the effect's caches, as every later one is.
  std::vector<uint32_t> ref_a(w * h), ref_b(w * h);
  for (int warm = 0; warm < 2; ++warm) {
    update_(a, 0, grey.data(), ref_a.data());
    update_(b, 0, grey.data(), ref_b.data());
  }
  EXPECT_GT(Changed(grey, ref_a), 500u);
  EXPECT_NE(ref_a, ref_b);

  std::vector<uint32_t> out_a, out_b;
  std::thread other([&] {
    for (int i = 0; i < 20; ++i) {
      out_b = grey;
      update_(b, i / 10.0, out_b.data(), out_b.data());  // in place
    }
  });
  for (int i = 0; i < 20; ++i) {
    out_a = grey;
    update_(a, i / 10.0, out_a.data(), out_a.data());
  }
  other.join();
  EXPECT_EQ(out_a, ref_a);
  EXPECT_EQ(out_b, ref_b);
  destruct_(a);
  destruct_(b);
}

TEST_F(Frei0rEntry, RefusedFramesAndSettingsPassThrough) {
  // Wider than the effect draws: one row of 20000 pixels.
  const std::vector<uint32_t> row(20000, 0xff102030u);
  std::vector<uint32_t> out(row.size(), 0);
  f0r_instance_t wide = construct_(20000, 1);
  ASSERT_NE(wide, nullptr);
  update_(wide, 0, row.data(), out.data());
  EXPECT_EQ(out, row);
  destruct_(wide);

  // A document file that is not one, then good settings again: the text comes back.
  const std::filesystem::path bad = FreshTestDir("vetext_frei0r_bad_") / "bad.json";
  std::ofstream(bad) << "{ not a document";
  const std::vector<uint32_t> grey(128 * 32, 0xff808080u);
  std::vector<uint32_t> drawn(grey.size());
  f0r_instance_t inst = construct_(128, 32);
  std::string at = "@";
  at += bad.string();
  SetText(inst, at.c_str());
  update_(inst, 0, grey.data(), drawn.data());
  EXPECT_EQ(drawn, grey);
  SetText(inst, "Back");
  update_(inst, 0, grey.data(), drawn.data());
  EXPECT_GT(Changed(grey, drawn), 50u);
  // Numbers that are not finite are ignored: the same text is drawn.
  const std::vector<uint32_t> before = drawn;
  f0r_param_position_t nowhere{NAN, INFINITY};
  set_(inst, &nowhere, 7);  // box
  set_(inst, &nowhere, 8);  // position
  update_(inst, 0, grey.data(), drawn.data());
  EXPECT_EQ(drawn, before);
  destruct_(inst);
  std::filesystem::remove_all(bad.parent_path());
}

}  // namespace
