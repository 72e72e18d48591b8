// The GPU path per frame against the CPU render and the floor.
//
// Scenarios: a title ("TEXT Wgij", 160 px, 8 px outline, unchanged), a counter (a title whose
// text changes every frame, through the document) and a 300-character paragraph (48 px, 3 px
// outline, in a box), at 1080p and 2160p. Contenders, interleaved within each repeat:
//   cpu render          Instance::Render (host frames)
//   <dev> floor         one device frame copy: what any effect pays to turn input into output
//   <dev> gpu           the source copied on the device, then the GPU path in place (the frame
//                       stays on the device, as in a GPU host)
//   <dev> gpu+transfer  upload, the GPU path, download (vetext render --gpu)
// for the cpu device and, when there is one, the first CUDA device. The table shows medians of
// the per-frame time and ratios to the device's floor.
//
//   bench_gpu [--frames N] [--repeats R] [--only-1080]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "../common/bench_texts.h"
#include "document/document_json.h"
#include "params/params.h"
#include "vetext/host/host.h"

namespace {

using Clock = std::chrono::steady_clock;

using vetext_bench::kParagraph;

struct Scenario {
  const char* kind;  // "title", "counter", "paragraph"
  int width, height;
  std::string Name() const { return std::string(kind) + (height == 1080 ? " 1080p" : " 2160p"); }
};

std::vector<uint8_t> Block(const Scenario& s, int64_t n) {
  vetext::DocumentRecord doc;
  vetext::TextRun& run = doc.mTextParam.mTextRuns.emplace_back();
  const bool paragraph = std::strcmp(s.kind, "paragraph") == 0;
  std::string text = paragraph                             ? kParagraph
                     : std::strcmp(s.kind, "counter") == 0 ? "vetext " + std::to_string(n)
                                                           : "TEXT Wgij";
  run.mText.assign(text.begin(), text.end());
  run.mStyleParam.mFontName = u"Liberation Sans";
  run.mStyleParam.mFontSize = paragraph ? 48 : 160;
  run.mStyleParam.mStrokeWidth = paragraph ? 3 : 8;
  run.mStyleParam.mStrokeRed = run.mStyleParam.mStrokeGreen = run.mStyleParam.mStrokeBlue = 0;
  if (paragraph) doc.mTextParam.mWidth = 1200, doc.mTextParam.mHeight = 800;
  return vetext::WriteDocumentBlock(doc);
}

vxhost::Frame Source(int w, int h) {
  vxhost::Frame f(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      uint8_t* p = f.row(y) + 4 * x;
      p[0] = uint8_t(x * 255 / w), p[1] = uint8_t(y * 255 / h), p[2] = uint8_t((x ^ y) & 0xff);
      p[3] = 255;
    }
  return f;
}

struct Contender {
  std::string name;
  GF::DevicePtr device;  // null: the CPU render
  enum Mode { kCpu, kFloor, kGpu, kGpuTransfer } mode;
};

// Runs `frames` frames of one contender and returns the milliseconds per frame.
double RunOne(vxhost::Module& module, const Scenario& s, const Contender& c, int frames) {
  auto inst = module.CreateInstance();
  if (!inst) return -1;
  auto set_text = [&](int64_t n) {
    vxhost::ParamValue v;
    v.bytes = Block(s, n);
    inst->SetValue(vetext::kParamSourceText, v);
  };
  set_text(0);
  const bool counter = std::strcmp(s.kind, "counter") == 0;
  const vxhost::Frame src = Source(s.width, s.height);
  vxhost::Frame out(s.width, s.height);
  std::unique_ptr<vxhost::DeviceFrame> dsrc, work;
  if (c.device) {
    dsrc = std::make_unique<vxhost::DeviceFrame>(c.device, s.width, s.height, true);
    work = std::make_unique<vxhost::DeviceFrame>(c.device, s.width, s.height, true);
    if (!dsrc->ok() || !work->ok() || dsrc->Upload(src) != 0) return -1;
  }
  auto frame = [&](int64_t n) -> int32_t {
    const double t = double(n) / 25.0;
    if (counter && n > 0) set_text(n);
    switch (c.mode) {
      case Contender::kCpu:
        return inst->Render(t, src, out);
      case Contender::kFloor:
        return c.device->Copy(work->top_row(), work->pitch(), dsrc->top_row(), dsrc->pitch(),
                              int64_t(s.width) * 4, s.height);
      case Contender::kGpu:
        if (int32_t st = c.device->Copy(work->top_row(), work->pitch(), dsrc->top_row(),
                                        dsrc->pitch(), int64_t(s.width) * 4, s.height))
          return st;
        return inst->RenderGPU(t, *work);
      case Contender::kGpuTransfer:
        return inst->RenderGPU(t, src, out, c.device->Index());
    }
    return -1;
  };
  if (frame(0) != 0) return -1;  // warm: layout, caches, device scratch
  const auto t0 = Clock::now();
  for (int i = 1; i <= frames; ++i)
    if (frame(i) != 0) return -1;
  return std::chrono::duration<double, std::milli>(Clock::now() - t0).count() / frames;
}

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  int frames = 24, repeats = 5;
  bool only_1080 = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--frames" && i + 1 < argc)
      frames = std::max(1, std::atoi(argv[++i]));
    else if (a == "--repeats" && i + 1 < argc)
      repeats = std::max(1, std::atoi(argv[++i]));
    else if (a == "--only-1080")
      only_1080 = true;
    else {
      std::fprintf(stderr, "usage: bench_gpu [--frames N] [--repeats R] [--only-1080]\n");
      return 2;
    }
  }
  setenv("FONTCONFIG_FILE", VETEXT_FONTS_CONF, 0);
  vxhost::Host host;
  std::string error;
  auto module = host.Load(vxhost::DefaultModulePath(), &error);
  if (!module || module->Setup() != 0) {
    std::fprintf(stderr, "bench_gpu: cannot load the module: %s\n", error.c_str());
    return 1;
  }
  std::vector<Contender> contenders{{"cpu render", nullptr, Contender::kCpu}};
  for (const GF::DevicePtr& d : GF::Devices()) {
    const std::string k = d->Kind();
    contenders.push_back({k + " floor", d, Contender::kFloor});
    contenders.push_back({k + " gpu", d, Contender::kGpu});
    contenders.push_back({k + " gpu+transfer", d, Contender::kGpuTransfer});
  }
  std::printf("devices:");
  for (const GF::DevicePtr& d : GF::Devices())
    std::printf("  [%d] %s", d->Index(), d->Name().c_str());
  if (!GF::GetPrimaryDevice())
    std::printf("  (no CUDA device: %s)", GF::CudaUnavailableReason().c_str());
  std::printf(
      "\n%d frames x %d repeats, interleaved; ms per frame (ratio to the device's floor)\n\n",
      frames, repeats);

  std::vector<Scenario> scenarios;
  for (int h : {1080, 2160}) {
    if (h == 2160 && only_1080) continue;
    for (const char* kind : {"title", "counter", "paragraph"})
      scenarios.push_back({kind, h == 1080 ? 1920 : 3840, h});
  }
  std::printf("%-16s", "scenario");
  for (const Contender& c : contenders) std::printf(" %22s", c.name.c_str());
  std::printf("\n");
  for (const Scenario& s : scenarios) {
    std::vector<std::vector<double>> times(contenders.size());
    for (int r = 0; r < repeats; ++r)
      for (size_t k = 0; k < contenders.size(); ++k) {
        const size_t i = (k + size_t(r)) % contenders.size();  // a rotating order
        times[i].push_back(RunOne(*module, s, contenders[i], frames));
      }
    std::map<std::string, double> floor;
    for (size_t i = 0; i < contenders.size(); ++i)
      if (contenders[i].mode == Contender::kFloor)
        floor[contenders[i].device->Kind()] = Median(times[i]);
    std::printf("%-16s", s.Name().c_str());
    for (size_t i = 0; i < contenders.size(); ++i) {
      const double ms = Median(times[i]);
      char cell[64];
      if (ms < 0)
        std::snprintf(cell, sizeof cell, "failed");
      else if (contenders[i].device && contenders[i].mode != Contender::kFloor)
        std::snprintf(cell, sizeof cell, "%.3f (%.2fx)", ms,
                      ms / floor[contenders[i].device->Kind()]);
      else
        std::snprintf(cell, sizeof cell, "%.3f", ms);
      std::printf(" %22s", cell);
    }
    std::printf("\n");
    std::fflush(stdout);
  }
  return 0;
}
