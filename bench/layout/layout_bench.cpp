// What the layout cache saves: a hit (hash the block, look it up, copy the entry's kept parse)
// against a composition (make the document, compose it, write the layout text), for the default
// title and for a 2,000-character text; and the GPU path's read of the layout (the document from
// the parameter, its key, a lookup, the kept parse shared as it is). Prints the hit/composition ratio of each against the bar (a hit
// well under a tenth of a composition) and the cost per glyph of each part; it reports, it does
// not judge: the exit status is 0 whether the bar is met or not.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "document/layout_cache.h"
#include "document/layout_json.h"
#include "engine/kte.h"
#include "gpu/filter.h"
#include "vetext/host/host.h"
#include "vetext/vxcore.h"

namespace {

std::vector<uint8_t> TitleBlock() {
  return KTE::WriteDocument(*KTE::MakeDefaultDocument());
}

std::vector<uint8_t> LongBlock() {
  KTE::DocumentPtr doc = KTE::MakeDefaultDocument();
  vetext::TextRun run = doc->data.mTextParam.mTextRuns.front();
  const std::u16string sentence =
      u"Sphinx of black quartz, judge my vow; pack my box with five dozen liquor jugs. ";
  run.mText.clear();
  while (run.mText.size() < 2000) run.mText += sentence;
  run.mText.resize(2000);
  run.mStyleParam.mFontSize = 24;
  doc->data.mTextParam.mTextRuns = {run};
  doc->data.mTextParam.mWidth = 1200;
  doc->data.mTextParam.mHeight = 2000;
  return KTE::WriteDocument(*doc);
}

const std::vector<uint8_t>& Block(int which) {
  static const std::vector<uint8_t> title = TitleBlock();
  static const std::vector<uint8_t> long_text = LongBlock();
  return which == 0 ? title : long_text;
}

void BM_Compose(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  size_t glyphs = 0;
  for (auto _ : state) {
    KTE::DocumentPtr doc = KTE::MakeDocument(block.data(), block.size());
    vetext::LayoutRecord layout;
    KTE::Compose(*doc, layout);
    std::u16string text = vetext::LayoutToText(layout);
    benchmark::DoNotOptimize(text.data());
    glyphs = layout.mCharacters.size();
  }
  state.counters["glyphs"] = double(glyphs);
}

void BM_CacheHit(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  vxhost::Host host;
  InputRecord in{};
  in.suites = host.suite_services();
  OutputRecord out{};
  vetext::LayoutRecord warm;
  vetext::BuildTextLayout(block.data(), block.size(), warm, &in, &out);
  for (auto _ : state) {
    vetext::LayoutRecord layout;
    vetext::BuildTextLayout(block.data(), block.size(), layout, &in, &out);
    benchmark::DoNotOptimize(layout.mCharacters.data());
  }
  if (host.cache().Stats().adds != 1) state.SkipWithError("the hit path composed");
}

// The GPU path's read of the layout, three times a frame: the document from the parameter at the
// clip time, its key, a cache lookup and the kept parse of the entry's text.
void BM_GpuLayoutHit(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  vxhost::Host host;
  std::string error;
  auto module = host.Load(vxhost::DefaultModulePath(), &error);
  if (!module || module->Setup() != 0) return state.SkipWithError("no module");
  auto inst = module->CreateInstance();
  vxhost::ParamValue v;
  v.bytes = block;
  if (!inst || inst->SetValue(1, v) != 0) return state.SkipWithError("no instance");
  vetext::VEFilterTextGPU filter;
  GPUInstanceRecord rec{host.gpu_suites(), 0, 0, inst->node_id(), nullptr};
  filter.Initialize(&rec);
  GPURenderParams params{};
  std::shared_ptr<const vetext::LayoutRecord> layout;
  if (filter.GetLayoutRecords(&params, &layout) != 0) return state.SkipWithError("no layout");
  for (auto _ : state) {
    filter.GetLayoutRecords(&params, &layout);
    benchmark::DoNotOptimize(layout.get());
  }
  if (host.cache().Stats().adds != 1) state.SkipWithError("the hit path composed");
}

// The parts, to show where the time goes.
void BM_ComposeOnly(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  KTE::DocumentPtr doc = KTE::MakeDocument(block.data(), block.size());
  for (auto _ : state) {
    vetext::LayoutRecord layout;
    KTE::Compose(*doc, layout);
    benchmark::DoNotOptimize(layout.mCharacters.data());
  }
}

void BM_ParseOnly(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  vetext::LayoutRecord composed;
  KTE::Compose(*KTE::MakeDocument(block.data(), block.size()), composed);
  std::u16string text = vetext::LayoutToText(composed);
  state.counters["bytes"] = double(text.size() * 2);
  for (auto _ : state) {
    vetext::LayoutRecord layout;
    vetext::TextToLayout(text.data(), text.size(), layout);
    benchmark::DoNotOptimize(layout.mCharacters.data());
  }
}

void BM_JSONParseOnly(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  vetext::LayoutRecord composed;
  KTE::Compose(*KTE::MakeDocument(block.data(), block.size()), composed);
  std::u16string text = vetext::LayoutToText(composed);
  for (auto _ : state) {
    vxcore::VariantPtr root = vxcore::JSONParse(text);
    benchmark::DoNotOptimize(root.get());
  }
}

// The value-tree reader the streaming one replaced, for comparison.
void BM_ParseTree(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  vetext::LayoutRecord composed;
  KTE::Compose(*KTE::MakeDocument(block.data(), block.size()), composed);
  std::u16string text = vetext::LayoutToText(composed);
  for (auto _ : state) {
    vetext::LayoutRecord layout;
    vetext::TextToLayoutTree(text.data(), text.size(), layout);
    benchmark::DoNotOptimize(layout.mCharacters.data());
  }
}

void BM_WriteOnly(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  vetext::LayoutRecord composed;
  KTE::Compose(*KTE::MakeDocument(block.data(), block.size()), composed);
  for (auto _ : state) {
    std::u16string text = vetext::LayoutToText(composed);
    benchmark::DoNotOptimize(text.data());
  }
}

void BM_HashOnly(benchmark::State& state) {
  const std::vector<uint8_t>& block = Block(int(state.range(0)));
  for (auto _ : state) {
    char key[37];
    vetext::MakeLayoutKey(block.data(), block.size(), key);
    benchmark::DoNotOptimize(key);
  }
}

BENCHMARK(BM_Compose)->Arg(0)->Arg(1)->ArgName("long");
BENCHMARK(BM_ComposeOnly)->Arg(0)->Arg(1)->ArgName("long");
BENCHMARK(BM_ParseOnly)->Arg(0)->Arg(1)->ArgName("long");
BENCHMARK(BM_JSONParseOnly)->Arg(0)->Arg(1)->ArgName("long");
BENCHMARK(BM_ParseTree)->Arg(0)->Arg(1)->ArgName("long");
BENCHMARK(BM_WriteOnly)->Arg(0)->Arg(1)->ArgName("long");
BENCHMARK(BM_HashOnly)->Arg(0)->Arg(1)->ArgName("long");
BENCHMARK(BM_CacheHit)->Arg(0)->Arg(1)->ArgName("long");
BENCHMARK(BM_GpuLayoutHit)->Arg(0)->Arg(1)->ArgName("long");

// Keeps every run's time per iteration, by name, for the ratios printed at the end.
class Collector : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs)
      if (r.run_type == Run::RT_Iteration && !r.error_occurred) {
        times[r.benchmark_name()] = r.GetAdjustedRealTime();
        auto g = r.counters.find("glyphs");
        if (g != r.counters.end())
          glyphs[r.benchmark_name().substr(r.benchmark_name().find('/') + 1)] = g->second;
      }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;
  std::map<std::string, double> glyphs;  // by argument
};

}  // namespace

int main(int argc, char** argv) {
  setenv("FONTCONFIG_FILE", VETEXT_FONTS_CONF, 0);
  benchmark::Initialize(&argc, argv);
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  auto time = [&collector](const char* name, const char* arg) {
    auto it = collector.times.find(std::string(name) + "/" + arg);
    return it == collector.times.end() ? -1.0 : it->second;
  };
  for (const char* arg : {"long:0", "long:1"}) {
    const double hit = time("BM_CacheHit", arg), compose = time("BM_Compose", arg);
    if (hit < 0 || compose < 0) continue;
    const double ratio = hit / compose;
    const double glyphs = double(collector.glyphs[arg]);
    std::printf("%s: cache hit / composition = %.4f, bar < 0.1: %s\n",
                arg[5] == '0' ? "title \"TEXT Wgij\"" : "2,000 characters", ratio,
                ratio < 0.1 ? "PASS" : "MISS");
    if (const double gpu = time("BM_GpuLayoutHit", arg); gpu >= 0)
      std::printf("  GPU path layout read / composition = %.4f, bar < 0.1: %s\n", gpu / compose,
                  gpu / compose < 0.1 ? "PASS" : "MISS");
    if (glyphs > 0) {
      std::printf(
          "  per glyph (%g glyphs, ns): composition %.0f (compose %.0f, write %.0f);"
          " hit %.0f (hash %.0f, parse %.0f; tree parse %.0f)\n",
          glyphs, compose / glyphs, time("BM_ComposeOnly", arg) / glyphs,
          time("BM_WriteOnly", arg) / glyphs, hit / glyphs, time("BM_HashOnly", arg) / glyphs,
          time("BM_ParseOnly", arg) / glyphs, time("BM_ParseTree", arg) / glyphs);
    }
  }
  benchmark::Shutdown();
  return 0;
}
