// The compositor against the floor: placing a title-sized 4x oversampled text buffer
// (1400 x 320 -> 350 x 80) on a 1080p frame, upright and turned, compared with one plain copy
// of the frame, which every render pays anyway. Prints the ratios at the end.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "vetext/image_renderer.h"

namespace {

constexpr int32_t kFrameW = 1920, kFrameH = 1080;
constexpr int32_t kSrcW = 1400, kSrcH = 320;

struct Buffers {
  std::vector<uint8_t> frame, copy, src;
  Buffers()
      : frame(size_t{kFrameW} * kFrameH * 4, 0),
        copy(frame.size()),
        src(size_t{kSrcW} * kSrcH * 4, 0) {
    for (size_t i = 0; i < frame.size(); i += 4) {
      frame[i] = static_cast<uint8_t>(i >> 4);
      frame[i + 1] = 90;
      frame[i + 2] = static_cast<uint8_t>(i >> 12);
      frame[i + 3] = 255;
    }
    // Glyph-like strokes: vertical and horizontal bars of white, premultiplied, with soft edges.
    for (int32_t y = 40; y < 280; ++y)
      for (int32_t x = 20; x < 1380; ++x) {
        const int32_t gx = x % 70, gy = y % 120;
        int a = 0;
        if (gx < 14 || (gy > 50 && gy < 64)) a = 255;
        if (gx == 14 || gy == 50 || gy == 64) a = 128;
        uint8_t* p = &src[(size_t(y) * kSrcW + x) * 4];
        p[0] = p[1] = p[2] = p[3] = static_cast<uint8_t>(a);
      }
  }
};

Buffers& Bufs() {
  static Buffers b;
  return b;
}

void Place(uint8_t* frame, double rot) {
  Buffers& b = Bufs();
  // Bottom-up frame, as the reference host hands it to the effect.
  uint8_t* top = frame + size_t{kFrameH - 1} * kFrameW * 4;
  IR_Motion(b.src.data(), kSrcW * 4, kSrcW, kSrcH, kIRFormatBGRA8, 0, nullptr, top, -kFrameW * 4,
            kFrameW, kFrameH, kIRFormatBGRA8, 0, 1, 1, IR_Point{0.5f, 0.5f}, IR_Point{0.5f, 0.5f},
            IR_Point{0.25f, 0.25f}, rot, 1.0f, true, 0.0, false, 0, 4, true);
}

void BM_FrameCopy(benchmark::State& state) {
  Buffers& b = Bufs();
  for (auto _ : state) {
    std::memcpy(b.copy.data(), b.frame.data(), b.frame.size());
    benchmark::DoNotOptimize(b.copy.data());
    benchmark::ClobberMemory();
  }
}

void BM_IRMotion(benchmark::State& state) {
  Buffers& b = Bufs();
  const double rot = static_cast<double>(state.range(0));
  for (auto _ : state) {
    Place(b.copy.data(), rot);
    benchmark::ClobberMemory();
  }
}

void BM_IRMotionPrefiltered(benchmark::State& state) {
  Buffers& b = Bufs();
  const double rot = static_cast<double>(state.range(0));
  int32_t fx, fy;
  IR_PrefilterFactors(IR_Point{0.25f, 0.25f}, &fx, &fy);
  std::vector<uint8_t> reduced(IR_PrefilterSize(kSrcW, kSrcH, fx, fy));
  IR_Prefiltered pf;
  IR_Prefilter(b.src.data(), kSrcW * 4, kSrcW, kSrcH, fx, fy, reduced.data(), reduced.size(), &pf);
  uint8_t* top = b.copy.data() + size_t{kFrameH - 1} * kFrameW * 4;
  for (auto _ : state) {
    IR_MotionPrefiltered(&pf, kIRFormatBGRA8, top, -kFrameW * 4, kFrameW, kFrameH,
                         IR_Point{0.5f, 0.5f}, IR_Point{0.5f, 0.5f}, IR_Point{0.25f, 0.25f}, rot,
                         1.0f);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_FrameCopy);
BENCHMARK(BM_IRMotion)->Arg(0)->Arg(30);
BENCHMARK(BM_IRMotionPrefiltered)->Arg(0)->Arg(30);

// Keeps the time per iteration of every run, to print ratios once all have run.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& r : runs)
      if (r.iterations > 0) ns_[r.benchmark_name()] = r.GetAdjustedRealTime();
  }
  void PrintRatios() const {
    auto floor = ns_.find("BM_FrameCopy");
    if (floor == ns_.end() || floor->second <= 0) return;
    std::printf("\nratio to one 1080p frame copy (%.1f us):\n", floor->second / 1000.0);
    for (const auto& [name, ns] : ns_)
      if (name != "BM_FrameCopy") std::printf("  %-32s %6.3f\n", name.c_str(), ns / floor->second);
  }

 private:
  std::map<std::string, double> ns_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  benchmark::Shutdown();
  return 0;
}
