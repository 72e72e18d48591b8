// The GPU path through the reference host, on the cpu device every machine has (and on the
// first CUDA device when there is one): the same pictures as the CPU render, the filter's
// dependencies, the layout entry two instances share, and the images kept between frames.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "document/document_json.h"
#include "gpu/filter.h"
#include "host_frames.h"
#include "host_helpers.h"
#include "params/params.h"
#include "test_layouts.h"
#include "vetext/host/host.h"

namespace {

using namespace vetext;
using vetext_test::Buffer;
using vetext_test::ToBuffer;
using vxhost::Frame;

std::vector<uint8_t> Document(const std::u16string& text, float size, float stroke_width = 0) {
  DocumentRecord doc;
  TextRun& run = doc.mTextParam.mTextRuns.emplace_back();
  run.mText = text;
  run.mStyleParam.mFontName = u"Liberation Sans";
  run.mStyleParam.mFontSize = size;
  run.mStyleParam.mFillRed = 1, run.mStyleParam.mFillGreen = 0.8f, run.mStyleParam.mFillBlue = 0.2f;
  run.mStyleParam.mStrokeRed = 0.1f, run.mStyleParam.mStrokeBlue = 0.9f;
  run.mStyleParam.mStrokeWidth = stroke_width;
  return WriteDocumentBlock(doc);
}

// A background with some structure, so that a blend in the wrong place shows.
Frame Background(int32_t w, int32_t h, bool bottom_up) {
  Frame f(w, h, kPixelFormatBGRA, bottom_up);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      uint8_t* p = f.row(y) + 4 * x;
      p[0] = uint8_t(x * 255 / w), p[1] = uint8_t(y * 255 / h), p[2] = 60, p[3] = 255;
    }
  return f;
}

class GpuPath : public ::testing::Test {
 protected:
  void SetUp() override {
    module_ = vetext_test::LoadModule(host_, vxhost::DefaultModulePath());
    ASSERT_TRUE(module_ && module_->Setup() == 0);
    inst_ = module_->CreateInstance();
    ASSERT_NE(inst_, nullptr);
  }
  void Set(int32_t index, double x, double y = 0, std::optional<double> time = {}) {
    EXPECT_EQ(inst_->SetValue(index, vxhost::ParamValue{x, y, x != 0, {}}, time), 0);
  }
  void SetDoc(vxhost::Instance& inst, std::vector<uint8_t> block) {
    vxhost::ParamValue v;
    v.bytes = std::move(block);
    ASSERT_EQ(inst.SetValue(kParamSourceText, v), 0);
  }

  vxhost::Host host_;
  std::unique_ptr<vxhost::Module> module_;
  std::unique_ptr<vxhost::Instance> inst_;
};

TEST_F(GpuPath, DrawsWhatTheCpuRenderDraws) {
  struct Row {
    const char* name;
    std::vector<std::array<double, 3>> params;  // index, x, y
    bool bottom_up = true;
    VxRational downsample{1, 1};
    float stroke = 0;
    VxRational par{1, 1};
  };
  const Row rows[] = {
      {"upright", {}},
      {"turned 30", {{kParamRotation, 30, 0}}},
      {"scale 50", {{kParamScale, 50, 0}}},
      {"scale 200", {{kParamScale, 200, 0}, {kParamPosition, 300, 200}}},
      {"non-uniform",
       {{kParamUniformScale, 0, 0}, {kParamScale, 80, 0}, {kParamHorizontalScale, 150, 0}}},
      {"uniform wins", {{kParamHorizontalScale, 300, 0}}},
      {"opacity 50", {{kParamOpacity, 50, 0}}},
      {"anchor moved",
       {{kParamAnchorPoint, 120, 90}, {kParamRotation, -20, 0}, {kParamScale, 120, 0}}},
      {"stroked", {{kParamPosition, 333.3, 180.6}}, true, {1, 1}, 6},
      {"half resolution", {{kParamRotation, 10, 0}}, true, {1, 2}},
      {"wide pixels", {{kParamRotation, 15, 0}}, true, {1, 1}, 0, {4, 3}},
      // A top-down frame: y runs the other way in the effect's sign rules.
      {"top-down", {{kParamRotation, 30, 0}, {kParamPosition, 250, -150}}, false},
      {"top-down upright", {{kParamPosition, 250.4, -150.7}}, false},
  };
  std::vector<GF::DevicePtr> devices{GF::GetDevice(0)};
  if (GF::DevicePtr gpu = GF::GetPrimaryDevice()) devices.push_back(gpu);
  for (const GF::DevicePtr& device : devices)
    for (const Row& row : rows) {
      SCOPED_TRACE(testing::Message() << row.name << " on " << device->Kind());
      inst_ = module_->CreateInstance();
      SetDoc(*inst_, Document(u"Gg Text 42", 64, row.stroke));
      for (const auto& [index, x, y] : row.params) Set(int32_t(index), x, y);
      vxhost::RenderOptions options;
      options.downsample_x = options.downsample_y = row.downsample;
      options.pixel_aspect = row.par;
      const int32_t w = 640 * row.downsample.num / int32_t(row.downsample.den);
      const int32_t h = 360 * row.downsample.num / int32_t(row.downsample.den);
      const Frame in = Background(w, h, row.bottom_up);
      Frame cpu(w, h, kPixelFormatBGRA, row.bottom_up), gpu(w, h, kPixelFormatBGRA, row.bottom_up);
      ASSERT_EQ(inst_->Render(0, in, cpu, options), 0);
      ASSERT_EQ(inst_->RenderGPU(0, in, gpu, device->Index(), options), 0);
      const vetext_tool::DiffStats text = Diff(ToBuffer(in), ToBuffer(cpu));
      EXPECT_LT(text.within, 0.995);  // the text is there to compare
      const Buffer a = ToBuffer(cpu), b = ToBuffer(gpu);
      const vetext_tool::DiffStats d =
          vetext_tool::DiffPixels(a.px.data(), b.px.data(), a.px.size() / 4, 0, 4, 1);
      EXPECT_GE(d.within, 0.99);
      EXPECT_LE(d.max_abs, 4);
    }
}

TEST_F(GpuPath, DependenciesFollowTheRecords) {
  // "A B": two records (a space draws nothing and has none). The filter is driven directly, as
  // a host drives it, with the reference host's suites.
  SetDoc(*inst_, Document(u"A B", 50));
  inst_->SetLayerSize(320, 180);
  GPUFilterFunctions fns{};
  GPUFilterInfo info{};
  int32_t filter = -1;
  ASSERT_EQ(module_->gpu_entry()(2, &filter, 1, 0, &fns, &info), kGPUOk);
  GPUInstanceRecord rec{host_.gpu_suites(), 0, 0, inst_->node_id(), nullptr};
  ASSERT_EQ(fns.create_instance(&rec), kGPUOk);
  GPURenderParams p{};
  p.sequence_time = 77;
  p.downsample_x = p.downsample_y = 1;
  p.frame_width = 320, p.frame_height = 180, p.frame_bottom_up = 1, p.par_num = p.par_den = 1;
  std::vector<int32_t> seen;
  std::vector<GPUDependency> deps;
  int32_t index = 0;
  for (int i = 0; i < 5; ++i) {
    GPUDependency d{};
    seen.push_back(index);
    ASSERT_EQ(fns.query_dependency(&rec, &p, &index, &d), kGPUOk);
    deps.push_back(d);
  }
  EXPECT_EQ(seen, (std::vector<int32_t>{0, 1, 1, 1, 1}));  // stays on the last record
  EXPECT_EQ(deps[0].kind, 2);
  EXPECT_EQ(deps[0].time, 77);
  EXPECT_EQ(deps[0].pixel_format, kPixelFormatBGRA);
  EXPECT_GT(deps[0].width, 100);  // a 50 px "A" at 4x, with its margins
  EXPECT_LT(deps[0].width, 160);
  // A record without ink (a damaged or empty glyph) asks for a 1 x 1 image.
  CharacterRecord blank;
  RecordPlan plan;
  plan.g.bw = plan.g.bh = plan.g.W = plan.g.H = 100;
  EXPECT_TRUE(BoxOf(blank, plan).empty);
  // A pixel aspect with a zero part (a host that states none) is taken as square pixels.
  GPURenderParams unstated = p;
  unstated.par_num = 0;
  unstated.par_den = 1;
  index = 0;
  GPUDependency square{};
  ASSERT_EQ(fns.query_dependency(&rec, &unstated, &index, &square), kGPUOk);
  EXPECT_EQ(square.width, deps[0].width);
  index = 2;
  GPUDependency past{};
  EXPECT_EQ(fns.query_dependency(&rec, &p, &index, &past), kErrGeneric);

  EXPECT_EQ(fns.dispose_instance(&rec), kGPUOk);
}

TEST_F(GpuPath, InstancesShareTheLayoutAndFramesKeepTheirImages) {
  auto second = module_->CreateInstance();
  ASSERT_NE(second, nullptr);
  SetDoc(*inst_, Document(u"Shared", 40));
  SetDoc(*second, Document(u"Shared", 40));
  const Frame in = Background(320, 180, true);
  Frame out(320, 180);
  const uint64_t adds = host_.cache().Stats().adds;
  vxhost::GPUFrameStats s;
  ASSERT_EQ(inst_->RenderGPU(0, in, out, 0, {}, &s), 0);
  EXPECT_EQ(s.records, 6);
  EXPECT_EQ(s.precomputed, 6);
  ASSERT_EQ(second->RenderGPU(0, in, out, 0), 0);
  EXPECT_EQ(host_.cache().Stats().adds, adds + 1);  // one layout entry for both
  SetDoc(*second, Document(u"Sharee", 40));
  ASSERT_EQ(second->RenderGPU(0, in, out, 0), 0);
  EXPECT_EQ(host_.cache().Stats().adds, adds + 2);

  // The next frame of an unchanged text makes no image; a change of any value makes them all.
  ASSERT_EQ(inst_->RenderGPU(0.04, in, out, 0, {}, &s), 0);
  EXPECT_EQ(s.precomputed, 0);
  Set(kParamRotation, 45);
  ASSERT_EQ(inst_->RenderGPU(0.08, in, out, 0, {}, &s), 0);
  EXPECT_EQ(s.precomputed, 6);
}

TEST_F(GpuPath, ConcurrentInstancesDrawTheSameFrames) {
  // Instances on several threads share the layout entry, its kept parse and the kept images'
  // cache, while a small frame cache evicts the layout now and then.
  host_.cache().SetBudget(64 << 10);
  const Frame in = Background(160, 90, true);
  std::vector<std::unique_ptr<vxhost::Instance>> insts;
  std::vector<Frame> outs(3, Frame(160, 90));
  for (int i = 0; i < 3; ++i) {
    insts.push_back(module_->CreateInstance());
    SetDoc(*insts.back(), Document(i == 2 ? u"Other" : u"Same", 30));
  }
  Frame want_same(160, 90), want_other(160, 90);
  ASSERT_EQ(insts[0]->RenderGPU(0, in, want_same, 0), 0);
  ASSERT_EQ(insts[2]->RenderGPU(0, in, want_other, 0), 0);
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int i = 0; i < 3; ++i)
    threads.emplace_back([&, i] {
      for (int f = 0; f < 8; ++f)
        if (insts[size_t(i)]->RenderGPU(f * 0.04, in, outs[size_t(i)], 0) != 0) ++failures;
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(ToBuffer(outs[0]).px, ToBuffer(want_same).px);
  EXPECT_EQ(ToBuffer(outs[1]).px, ToBuffer(want_same).px);
  EXPECT_EQ(ToBuffer(outs[2]).px, ToBuffer(want_other).px);
}

}  // namespace
