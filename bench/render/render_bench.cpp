// Text over video frames: the Text effect through the reference host against its peers, FFmpeg's
// drawtext filter (libavfilter in-process, frames fed from memory) and libass (ass_render_frame
// plus our own blend), with one frame copy as the floor that every contender pays: the effect
// copies input to output, drawtext gets a fresh frame filled from the source, libass blends over
// a copy of the source. Every contender reads frame n from one of four source pictures in turn,
// so none copies from a picture the cache still holds.
//
// Scenarios: a title ("TEXT Wgij", 160 px, 8 px outline) and a 300-character paragraph (48 px,
// 3 px outline, wrapped in a box), at 1080p and 2160p, unchanged or changing every frame (a
// counter: the title cycles through "TEXT n", "vetext n" and "Wgij n"; drawtext, which cannot
// change words, shows "TEXT n"), upright, turned 30 degrees, or turning (two degrees more every
// frame); drawtext cannot turn text: n/a. libass gets the Fontsize that draws the same em. The
// contenders are interleaved within each repeat, in a rotating order; the table shows medians of
// the per-frame time over the repeats and ratios to the floor and between peers.
//
//   bench_render [--frames N] [--repeats R] [--only-1080] [--match TEXT] [--only NAME]
//                [--upright] [--cores N]
//
// --match keeps the scenarios whose name contains TEXT, --only runs one contender (copy,
// vetext, drawtext or libass): both are for profiling, the ratios need every contender.
// --cores N pins the whole run (every contender's threads) to the first N cores: run it with 1
// and with 2 for the one-core and two-core rows.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <sched.h>
#include <unistd.h>

#include "../common/bench_texts.h"
#include "document/document_json.h"
#include "document/records.h"
#include "vetext/host/host.h"

extern "C" {
#include <ass/ass.h>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
#include <libavutil/opt.h>
}

namespace {

constexpr const char* kFontFile =
    "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf";
constexpr double kFps = 25.0;

using vetext_bench::kParagraph;

enum class Turn { kUpright, kRot30, kTurning };

struct Scenario {
  bool paragraph;
  int width, height;
  bool counter;
  Turn turn;
  bool rotated() const { return turn != Turn::kUpright; }
  std::string Name() const {
    return std::string(paragraph ? "paragraph" : "title") + " " +
           (height == 1080 ? "1080p" : "2160p") + (counter ? " counter" : " static") +
           (turn == Turn::kRot30     ? " rot30"
            : turn == Turn::kTurning ? " turning"
                                     : "");
  }
  // The counter cycles through words of different shapes: "vetext" has glyphs that reach past
  // their boxes, "Wgij" descenders and a wide capital.
  std::string Text(int64_t n) const {
    static const char* const kWords[] = {"TEXT ", "vetext ", "Wgij "};
    if (counter)
      return std::string(paragraph ? "Frame " : kWords[n % 3]) + std::to_string(n) +
             (paragraph ? std::string(" ") + kParagraph : "");
    return paragraph ? kParagraph : "TEXT Wgij";
  }
  // Degrees clockwise at frame n: 30 for rot30; two more every frame for turning.
  double Angle(int64_t n) const {
    return turn == Turn::kRot30 ? 30.0 : turn == Turn::kTurning ? 30.0 + 2.0 * double(n) : 0.0;
  }
  int FontPx() const { return paragraph ? 48 : 160; }
  int OutlinePx() const { return paragraph ? 3 : 8; }
  int BoxWidth() const { return 1200; }
};

// The source pictures: grey ramps with some structure, BGRA top-down. Frame n reads picture
// n % kSources, so that no contender (the floor included) copies from a picture the cache still
// holds, as none does in a real video.
constexpr int kSources = 4;
using Sources = std::vector<std::vector<uint8_t>>;
Sources MakeSources(int w, int h) {
  Sources all;
  for (int k = 0; k < kSources; ++k) {
    std::vector<uint8_t> px(size_t(w) * h * 4);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        uint8_t* p = &px[(size_t(y) * w + x) * 4];
        p[0] = uint8_t(x * 255 / w + k), p[1] = uint8_t(y * 255 / h);
        p[2] = uint8_t((x ^ y) & 0xff), p[3] = 255;
      }
    all.push_back(std::move(px));
  }
  return all;
}
const std::vector<uint8_t>& SourceOf(const Sources& all, int64_t n) {
  return all[size_t(n % kSources)];
}

class Contender {
 public:
  virtual ~Contender() = default;
  virtual const char* name() const = 0;
  virtual bool Supports(const Scenario&) const { return true; }
  virtual bool Prepare(const Scenario& s, const Sources& src) = 0;
  virtual void Frame(int64_t n) = 0;
  virtual void Finish() {}
  // A checksum of the last output, so that the work cannot be optimised away.
  virtual uint64_t Touch() const = 0;
};

// The floor: one whole-frame copy.
class CopyFloor : public Contender {
 public:
  const char* name() const override { return "copy"; }
  bool Prepare(const Scenario&, const Sources& src) override {
    src_ = &src;
    dst_.resize(src[0].size());
    return true;
  }
  void Frame(int64_t n) override {
    std::memcpy(dst_.data(), SourceOf(*src_, n).data(), dst_.size());
  }
  uint64_t Touch() const override { return dst_[dst_.size() / 2]; }

 private:
  const Sources* src_ = nullptr;
  std::vector<uint8_t> dst_;
};

// The effect through the reference host: Instance::Render copies the input and draws the text.
class VetextContender : public Contender {
 public:
  explicit VetextContender(vxhost::Module* module) : module_(module) {}
  const char* name() const override { return "vetext"; }
  bool Prepare(const Scenario& s, const Sources& src) override {
    scenario_ = s;
    inst_ = module_->CreateInstance();
    if (!inst_) return false;
    in_.clear();
    for (const std::vector<uint8_t>& picture : src) {
      in_.push_back(std::make_unique<vxhost::Frame>(s.width, s.height));
      for (int y = 0; y < s.height; ++y)
        std::memcpy(in_.back()->row(y), &picture[size_t(y) * s.width * 4], size_t(s.width) * 4);
    }
    out_ = std::make_unique<vxhost::Frame>(s.width, s.height);
    blocks_.clear();
    if (!s.counter) SetText(Block(0));
    // Rotation: constant, or keyframed so that every frame has its own angle (the effect reads
    // it at the frame's time, as from any animated parameter).
    vxhost::ParamValue v;
    v.x = s.Angle(0);
    if (s.turn != Turn::kTurning) {
      inst_->SetValue(7, v);
    } else {
      inst_->SetValue(7, v, 0.0);
      v.x = s.Angle(100000);
      inst_->SetValue(7, v, 100000 / kFps);
    }
    return true;
  }
  // Documents of the counter are serialized ahead, outside the timed frames, the way a host
  // holds the parameter's bytes; handing them to the effect is timed.
  void Precompute(int64_t first, int64_t count) {
    blocks_.clear();
    for (int64_t i = 0; i < count; ++i) blocks_.push_back(Block(first + i));
    first_ = first;
  }
  void Frame(int64_t n) override {
    if (scenario_.counter) SetText(blocks_[size_t(n - first_)]);
    status_ |= inst_->Render(double(n) / kFps, *in_[size_t(n % kSources)], *out_);
  }
  void Finish() override {
    if (status_ != 0) std::fprintf(stderr, "vetext: render status %d\n", int(status_));
    inst_.reset();
  }
  uint64_t Touch() const override { return out_->row(out_->height() / 2)[out_->width() * 2]; }

 private:
  std::vector<uint8_t> Block(int64_t n) const {
    vetext::DocumentRecord doc;
    vetext::TextRun run;
    const std::string text = scenario_.Text(n);
    run.mText.assign(text.begin(), text.end());
    run.mStyleParam.mFontName = u"Liberation Sans";
    run.mStyleParam.mFontSize = float(scenario_.FontPx());
    run.mStyleParam.mFillRed = run.mStyleParam.mFillGreen = run.mStyleParam.mFillBlue = 1.0f;
    run.mStyleParam.mStrokeRed = run.mStyleParam.mStrokeGreen = run.mStyleParam.mStrokeBlue = 0.0f;
    // The stroke is centred on the outline, so twice the visible outline.
    run.mStyleParam.mStrokeWidth = float(2 * scenario_.OutlinePx());
    run.mStyleParam.mFillOverStroke = true;
    run.mParaParam.mAlignment = vetext::kAlignCenter;
    doc.mTextParam.mTextRuns.push_back(run);
    if (scenario_.paragraph) {
      doc.mTextParam.mWidth = scenario_.BoxWidth();
      doc.mTextParam.mHeight = 500;
    }
    return vetext::WriteDocumentBlock(doc);
  }
  void SetText(const std::vector<uint8_t>& block) {
    vxhost::ParamValue v;
    v.bytes = block;
    inst_->SetValue(1, v);
  }
  vxhost::Module* module_;
  Scenario scenario_{};
  std::unique_ptr<vxhost::Instance> inst_;
  std::vector<std::unique_ptr<vxhost::Frame>> in_;
  std::unique_ptr<vxhost::Frame> out_;
  std::vector<std::vector<uint8_t>> blocks_;
  int64_t first_ = 0;
  VxStatus status_ = 0;
};

// FFmpeg's drawtext: buffer -> drawtext -> buffersink, fresh frames from a buffer pool.
class DrawtextContender : public Contender {
 public:
  const char* name() const override { return "drawtext"; }
  bool Supports(const Scenario& s) const override { return !s.rotated(); }
  bool Prepare(const Scenario& s, const Sources& src) override {
    Release();
    src_ = &src;
    w_ = s.width;
    h_ = s.height;
    // The text goes through a file: drawtext does not wrap, so the paragraph is broken into
    // lines of about the box's width (25 characters per 1200 px at 48 px).
    std::string text =
        s.counter ? (s.paragraph ? std::string("Frame %{frame_num} ") : "TEXT %{frame_num}") : "";
    std::string body = s.paragraph ? kParagraph : (s.counter ? "" : "TEXT Wgij");
    if (s.paragraph) {
      std::string wrapped, line;
      std::string word;
      auto flush_word = [&]() {
        if (line.size() + word.size() + 1 > 48 && !line.empty()) {
          wrapped += line + "\n";
          line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
        word.clear();
      };
      for (char c : body) {
        if (c == ' ')
          flush_word();
        else
          word += c;
      }
      flush_word();
      wrapped += line;
      body = wrapped;
    }
    text_file_ = "/tmp/vetext_bench_drawtext_" + std::to_string(getpid()) + ".txt";
    std::ofstream(text_file_) << text << body;
    graph_ = avfilter_graph_alloc();
    char args[256];
    std::snprintf(args, sizeof args,
                  "video_size=%dx%d:pix_fmt=bgra:time_base=1/25:pixel_aspect=1/1", w_, h_);
    if (avfilter_graph_create_filter(&src_ctx_, avfilter_get_by_name("buffer"), "in", args, nullptr,
                                     graph_) < 0 ||
        avfilter_graph_create_filter(&sink_ctx_, avfilter_get_by_name("buffersink"), "out", nullptr,
                                     nullptr, graph_) < 0)
      return false;
    char desc[1024];
    std::snprintf(desc, sizeof desc,
                  "drawtext=fontfile=%s:textfile=%s:fontsize=%d:borderw=%d:fontcolor=white:"
                  "bordercolor=black:x=(w-text_w)/2:y=(h-text_h)/2",
                  kFontFile, text_file_.c_str(), s.FontPx(), s.OutlinePx());
    AVFilterInOut* outputs = avfilter_inout_alloc();
    AVFilterInOut* inputs = avfilter_inout_alloc();
    outputs->name = av_strdup("in");
    outputs->filter_ctx = src_ctx_;
    inputs->name = av_strdup("out");
    inputs->filter_ctx = sink_ctx_;
    int rc = avfilter_graph_parse_ptr(graph_, desc, &inputs, &outputs, nullptr);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    if (rc < 0 || avfilter_graph_config(graph_, nullptr) < 0) return false;
    pool_ = av_buffer_pool_init(int(src[0].size()), nullptr);
    out_ = av_frame_alloc();
    return pool_ != nullptr;
  }
  void Frame(int64_t n) override {
    AVFrame* f = av_frame_alloc();
    f->buf[0] = av_buffer_pool_get(pool_);
    f->data[0] = f->buf[0]->data;
    f->linesize[0] = w_ * 4;
    f->width = w_;
    f->height = h_;
    f->format = AV_PIX_FMT_BGRA;
    f->pts = n;
    const std::vector<uint8_t>& picture = SourceOf(*src_, n);
    std::memcpy(f->data[0], picture.data(), picture.size());
    if (av_buffersrc_add_frame_flags(src_ctx_, f, 0) < 0) failures_++;
    av_frame_free(&f);
    av_frame_unref(out_);
    if (av_buffersink_get_frame(sink_ctx_, out_) >= 0)
      touch_ = out_->data[0][size_t(out_->linesize[0]) * (h_ / 2) + size_t(w_) * 2];
  }
  void Finish() override {
    if (failures_ != 0) std::fprintf(stderr, "drawtext: %d frames not accepted\n", failures_);
    failures_ = 0;
    Release();
  }
  uint64_t Touch() const override { return touch_; }
  ~DrawtextContender() override { Release(); }

 private:
  void Release() {
    av_frame_free(&out_);
    avfilter_graph_free(&graph_);
    av_buffer_pool_uninit(&pool_);
    if (!text_file_.empty()) std::remove(text_file_.c_str());
  }
  const Sources* src_ = nullptr;
  int w_ = 0, h_ = 0;
  std::string text_file_;
  AVFilterGraph* graph_ = nullptr;
  AVFilterContext* src_ctx_ = nullptr;
  AVFilterContext* sink_ctx_ = nullptr;
  AVBufferPool* pool_ = nullptr;
  AVFrame* out_ = nullptr;
  uint64_t touch_ = 0;
  int failures_ = 0;
};

// libass sizes a font by its ascender plus descender (Liberation Sans: 1854 + 434 units of
// 2048), the others by the em: this Fontsize draws the same em as a font size of `px`.
int AssFontsize(int px) {
  return int(std::lround(px * (1854.0 + 434.0) / 2048.0));
}

// libass: one event per frame for the counter, the renderer's images blended over a copy of
// the source by us.
class LibassContender : public Contender {
 public:
  LibassContender() {
    lib_ = ass_library_init();
    // Only libass's errors, not its chatter about every script read.
    ass_set_message_cb(
        lib_,
        [](int level, const char* fmt, va_list args, void*) {
          if (level > 1) return;
          std::vfprintf(stderr, fmt, args);
          std::fputc('\n', stderr);
        },
        nullptr);
    renderer_ = ass_renderer_init(lib_);
    ass_set_fonts(renderer_, kFontFile, "Liberation Sans", ASS_FONTPROVIDER_AUTODETECT, nullptr, 1);
  }
  ~LibassContender() override {
    if (track_) ass_free_track(track_);
    ass_renderer_done(renderer_);
    ass_library_done(lib_);
  }
  const char* name() const override { return "libass"; }
  bool Prepare(const Scenario& s, const Sources& src) override {
    scenario_ = s;
    src_ = &src;
    dst_.resize(src[0].size());
    ass_set_frame_size(renderer_, s.width, s.height);
    ass_set_storage_size(renderer_, s.width, s.height);
    if (track_) ass_free_track(track_);
    track_ = nullptr;
    return true;
  }
  // The script holds the frames to come, so that building it stays outside the timed frames.
  void Precompute(int64_t first, int64_t count) {
    if (track_) ass_free_track(track_);
    const Scenario& s = scenario_;
    const int margin = (s.width - s.BoxWidth()) / 2;
    std::string script =
        "[Script Info]\nScriptType: v4.00+\nPlayResX: " + std::to_string(s.width) +
        "\nPlayResY: " + std::to_string(s.height) +
        "\nScaledBorderAndShadow: yes\nWrapStyle: 0\n\n[V4+ Styles]\nFormat: Name, Fontname, "
        "Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, Italic, "
        "Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, "
        "Alignment, MarginL, MarginR, MarginV, Encoding\nStyle: Default,Liberation Sans," +
        std::to_string(AssFontsize(s.FontPx())) +
        ",&H00FFFFFF,&H00FFFFFF,&H00000000,&H00000000,0,0,0,0,100,"
        "100,0,0,1," +
        std::to_string(s.OutlinePx()) + ",0,5," + std::to_string(margin) + "," +
        std::to_string(margin) +
        ",10,1\n\n[Events]\nFormat: Layer, Start, End, Style, Name, "
        "MarginL, MarginR, MarginV, Effect, Text\n";
    auto turn = [&s](int64_t n) {
      if (!s.rotated()) return std::string();
      char b[32];
      std::snprintf(b, sizeof b, "{\\frz%g}", -s.Angle(n));
      return std::string(b);
    };
    auto stamp = [](int64_t cs) {
      char b[32];
      std::snprintf(b, sizeof b, "%d:%02d:%02d.%02d", int(cs / 360000), int(cs / 6000 % 60),
                    int(cs / 100 % 60), int(cs % 100));
      return std::string(b);
    };
    if (s.counter || s.turn == Turn::kTurning) {  // an event a frame
      for (int64_t i = 0; i < count; ++i) {
        int64_t n = first + i;
        script += "Dialogue: 0," + stamp(n * 4) + "," + stamp(n * 4 + 4) + ",Default,,0,0,0,," +
                  turn(n) + s.Text(n) + "\n";
      }
    } else {
      script += "Dialogue: 0,0:00:00.00,9:00:00.00,Default,,0,0,0,," + turn(0) + s.Text(0) + "\n";
    }
    track_ = ass_read_memory(lib_, script.data(), script.size(), nullptr);
  }
  void Frame(int64_t n) override {
    std::memcpy(dst_.data(), SourceOf(*src_, n).data(), dst_.size());
    int changed = 0;
    // Frame n shows at the middle of its 40 ms slot.
    for (ASS_Image* img = ass_render_frame(renderer_, track_, n * 40 + 20, &changed); img;
         img = img->next)
      Blend(*img);
  }
  uint64_t Touch() const override { return dst_[dst_.size() / 2]; }

 private:
  void Blend(const ASS_Image& img) {
    const uint32_t c = img.color;
    const uint32_t r = c >> 24, g = (c >> 16) & 0xff, b = (c >> 8) & 0xff;
    const uint32_t opacity = 255 - (c & 0xff);
    const int w = scenario_.width;
    for (int y = 0; y < img.h; ++y) {
      const uint8_t* m = img.bitmap + size_t(y) * img.stride;
      uint8_t* d = &dst_[(size_t(img.dst_y + y) * w + img.dst_x) * 4];
      for (int x = 0; x < img.w; ++x, d += 4) {
        const uint32_t a = (m[x] * opacity + 127) / 255;
        if (a == 0) continue;
        const uint32_t ia = 255 - a;
        d[0] = uint8_t((d[0] * ia + b * a + 127) / 255);
        d[1] = uint8_t((d[1] * ia + g * a + 127) / 255);
        d[2] = uint8_t((d[2] * ia + r * a + 127) / 255);
      }
    }
  }
  ASS_Library* lib_ = nullptr;
  ASS_Renderer* renderer_ = nullptr;
  ASS_Track* track_ = nullptr;
  Scenario scenario_{};
  const Sources* src_ = nullptr;
  std::vector<uint8_t> dst_;
};

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? NAN : v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int frames = 12, repeats = 5;
  bool only_1080 = false, upright = false;
  int cores = 0;  // 0: as many as the machine gives
  std::string match, only;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--frames" && i + 1 < argc)
      frames = std::max(1, std::atoi(argv[++i]));
    else if (a == "--repeats" && i + 1 < argc)
      repeats = std::max(1, std::atoi(argv[++i]));
    else if (a == "--only-1080")
      only_1080 = true;
    else if (a == "--match" && i + 1 < argc)
      match = argv[++i];
    else if (a == "--only" && i + 1 < argc)
      only = argv[++i];
    else if (a == "--upright")
      upright = true;
    else if (a == "--cores" && i + 1 < argc)
      cores = std::max(1, std::atoi(argv[++i]));
    else {
      std::fprintf(stderr,
                   "usage: bench_render [--frames N] [--repeats R] [--only-1080] [--match TEXT] "
                   "[--only NAME] [--upright] [--cores N]\n");
      return 2;
    }
  }
  setenv("FONTCONFIG_FILE", VETEXT_FONTS_CONF, 0);
  av_log_set_level(AV_LOG_ERROR);
  // Pinned to the first N cores, every thread of every contender included: "one core" rows
  // are one core for all of them, whatever threads they start.
  if (cores > 0) {
    cpu_set_t set;
    CPU_ZERO(&set);
    for (int c = 0; c < cores; ++c) CPU_SET(c, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) {
      std::fprintf(stderr, "cannot pin to %d cores\n", cores);
      return 1;
    }
  }
  cpu_set_t have;
  CPU_ZERO(&have);
  sched_getaffinity(0, sizeof have, &have);
  const int used = CPU_COUNT(&have);

  vxhost::Host host;
  std::string error;
  std::unique_ptr<vxhost::Module> module = host.Load(vxhost::DefaultModulePath(), &error);
  if (!module || module->Setup() != 0) {
    std::fprintf(stderr, "cannot load the effect module: %s\n", error.c_str());
    return 1;
  }
  CopyFloor copy;
  VetextContender vetext(module.get());
  DrawtextContender drawtext;
  LibassContender libass;
  std::vector<Contender*> contenders = {&copy, &vetext, &drawtext, &libass};

  std::vector<Scenario> scenarios;
  for (int h : {1080, 2160}) {
    if (h == 2160 && only_1080) continue;
    for (bool paragraph : {false, true})
      for (bool counter : {false, true})
        for (Turn turn : {Turn::kUpright, Turn::kRot30, Turn::kTurning}) {
          if (turn != Turn::kUpright && upright) continue;
          Scenario s{paragraph, h * 16 / 9, h, counter, turn};
          if (match.empty() || s.Name().find(match) != std::string::npos) scenarios.push_back(s);
        }
  }

  std::printf("Per-frame milliseconds, median of %d repeats of %d frames (BGRA, %d core%s).\n\n",
              repeats, frames, used, used == 1 ? "" : "s");
  std::printf(
      "| scenario | copy | vetext | drawtext | libass | vetext/copy | drawtext/copy | "
      "libass/copy | vetext/drawtext | vetext/libass |\n");
  std::printf("|---|---|---|---|---|---|---|---|---|---|\n");
  uint64_t sink = 0;
  for (const Scenario& s : scenarios) {
    const Sources src = MakeSources(s.width, s.height);
    std::vector<std::vector<double>> ms(contenders.size());
    std::vector<bool> ok(contenders.size(), false);
    const int64_t total = int64_t(repeats + 1) * frames + 1;
    for (size_t c = 0; c < contenders.size(); ++c) {
      if (!contenders[c]->Supports(s) || (!only.empty() && only != contenders[c]->name())) continue;
      ok[c] = contenders[c]->Prepare(s, src);
      if (!ok[c])
        std::fprintf(stderr, "%s: cannot prepare %s\n", contenders[c]->name(), s.Name().c_str());
    }
    vetext.Precompute(0, total);
    libass.Precompute(0, total);
    for (size_t c = 0; c < contenders.size(); ++c)
      if (ok[c]) contenders[c]->Frame(0);  // warm-up: fonts, caches, first layout
    for (int rep = 0; rep < repeats; ++rep) {
      for (size_t k = 0; k < contenders.size(); ++k) {
        size_t c = (k + size_t(rep)) % contenders.size();
        if (!ok[c]) continue;
        const int64_t first = 1 + int64_t(rep) * frames;
        auto t0 = std::chrono::steady_clock::now();
        for (int64_t n = first; n < first + frames; ++n) contenders[c]->Frame(n);
        auto t1 = std::chrono::steady_clock::now();
        ms[c].push_back(std::chrono::duration<double, std::milli>(t1 - t0).count() / frames);
        sink += contenders[c]->Touch();
      }
    }
    for (size_t c = 0; c < contenders.size(); ++c)
      if (ok[c]) contenders[c]->Finish();
    double m[4];
    for (size_t c = 0; c < 4; ++c) m[c] = ok[c] ? Median(ms[c]) : NAN;
    auto cell = [](double v) {
      char b[32];
      if (std::isnan(v)) return std::string("n/a");
      std::snprintf(b, sizeof b, "%.2f", v);
      return std::string(b);
    };
    auto ratio = [](double a, double b) {
      char buf[32];
      if (std::isnan(a) || std::isnan(b) || b <= 0) return std::string("n/a");
      std::snprintf(buf, sizeof buf, "%.2fx", a / b);
      return std::string(buf);
    };
    std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", s.Name().c_str(),
                cell(m[0]).c_str(), cell(m[1]).c_str(), cell(m[2]).c_str(), cell(m[3]).c_str(),
                ratio(m[1], m[0]).c_str(), ratio(m[2], m[0]).c_str(), ratio(m[3], m[0]).c_str(),
                ratio(m[1], m[2]).c_str(), ratio(m[1], m[3]).c_str());
    std::fflush(stdout);
  }
  std::fprintf(stderr, "(checksum %llu)\n", static_cast<unsigned long long>(sink));
  return 0;
}
