// The parameter store: keyframes, arbitrary data through the module, checkout, the video
// segment suite, and project files.
#include <cstring>

#include "host_test_util.h"
#include "vetext/memory.h"

using namespace vxhost;
using namespace vxhost_test;

using HostParams = StandInInstance;

TEST_F(HostParams, NumbersHoldOutsideTheKeyframesAndInterpolateLinearlyBetween) {
  // The key at 1 s is inserted between the others, then replaced.
  Keys(kScale, {{0, {100}}, {2, {300}}, {1, {999}}, {1, {250}}});
  // On each keyframe, a step (1/1024 s) either side of it, and beyond the first and the last.
  auto want = [](double t) {
    return t <= 0 ? 100 : t <= 1 ? 100 + 150 * t : t <= 2 ? 200 + 50 * t : 300;
  };
  const double e = 1.0 / 1024;
  for (double t : {-5.0, -e, 0.0, e, 0.5, 1 - e, 1.0, 1 + e, 1.25, 2 - e, 2.0, 2 + e, 9.0})
    EXPECT_DOUBLE_EQ(inst_->ValueAt(kScale, t).x, want(t)) << t;
  Keys(kPoint, {{0, {0, 0}}, {4, {40, 80}}});
  const ParamValue p = inst_->ValueAt(kPoint, 1.0);
  EXPECT_EQ(std::tuple(p.x, p.y), std::tuple(10.0, 20.0));
  // The module sees the interpolated values in 16.16 at render time.
  Frame in(200, 100), out(200, 100);
  ASSERT_EQ(inst_->Render(0.5, in, out), kStatusOk);
  EXPECT_EQ(std::tuple(out.row(0)[0], out.row(0)[4]), std::tuple(175, 5));

  // A constant clears the keyframes.
  ASSERT_EQ(inst_->SetValue(kScale, {42}), kStatusOk);
  EXPECT_EQ(inst_->ValueAt(kScale, 0.5).x, 42.0);
  inst_->ResetValue(kScale);
  EXPECT_EQ(inst_->ValueAt(kScale, 0.5).x, 100.0);
  // Declared not animatable: each keyframe request sets the constant.
  Keys(kCheck, {{1, {0, 0, false}}, {3, {0, 0, true}}});
  EXPECT_TRUE(inst_->ValueAt(kCheck, 0).flag && inst_->ValueAt(kCheck, 2).flag);
  EXPECT_EQ(inst_->SetValue(0, {}), kStatusBadCallbackParam);  // the layer holds no value
  EXPECT_EQ(inst_->SetValue(kCount, {}), kStatusBadCallbackParam);
}

TEST_F(HostParams, ArbitraryDataHoldsTheEarlierKeyframeThroughTheModule) {
  Keys(kDoc, {{0, Doc("first")}, {4, Doc("third")}, {2, Doc("second")}});
  const int64_t requests = host_.stats().arb_requests.load();
  EXPECT_EQ(Text(inst_->ValueAt(kDoc, 1.9).bytes), "first");
  EXPECT_GT(host_.stats().arb_requests.load(), requests);  // interpolated by the module
  const std::pair<double, const char*> at[] = {{-1, "first"},   {0, "first"}, {2, "second"},
                                               {3.5, "second"}, {4, "third"}, {5, "third"}};
  for (const auto& [time, text] : at) EXPECT_EQ(Text(inst_->ValueAt(kDoc, time).bytes), text);

  const int64_t live = host_.stats().live_handles.load();
  ParamDef between = inst_->ParamAt(kDoc, 1.0);
  ASSERT_NE(between.u.arb_d.value, nullptr);
  EXPECT_EQ(std::memcmp(*between.u.arb_d.value, "first", 5), 0);
  EXPECT_EQ(host_.stats().live_handles.load(), live + 1);  // held until the next ParamAt
  inst_->ParamAt(kDoc, 2.0);
  EXPECT_EQ(host_.stats().live_handles.load(), live);

  // Renders between keyframes dispose what they interpolated.
  Frame in(16, 16), out(16, 16);
  for (int i = 0; i < 5; ++i) ASSERT_EQ(inst_->Render(0.5 + i * 0.1, in, out), kStatusOk);
  EXPECT_EQ(out.row(0)[3], 'f');
  EXPECT_EQ(host_.stats().live_handles.load(), live);

  // A failed unflatten keeps the old value.
  ASSERT_EQ(inst_->SetValue(kDoc, Doc("kept")), kStatusOk);
  host_.faults().fail_alloc_after = host_.stats().handles_allocated.load();
  EXPECT_EQ(inst_->SetValue(kDoc, Doc("lost")), kStatusOutOfMemory);
  host_.faults().fail_alloc_after = -1;
  EXPECT_EQ(Text(inst_->ValueAt(kDoc, 0).bytes), "kept");
}

TEST_F(HostParams, CheckoutThroughParamUtilsSeesTheValueAtTheCallTime) {
  Keys(kScale, {{0, {100}}, {2, {200}}});
  Keys(kDoc, {{0, Doc("abc")}, {2, Doc("abcdef")}});
  const int64_t live = host_.stats().live_handles.load();
  // Checkin frees the copy made between keyframes and leaves the stored value on a keyframe. The
  // input layer may be checked out, an index past the parameters may not.
  const std::tuple<int32_t, double, std::string> cases[] = {
      {kScale, 1, "value=" + std::to_string(150 << 16)},
      {kDoc, 1, "bytes=3"},
      {kDoc, 2, "bytes=6"},
      {0, 0, "value=0"},
      {kCount, 0, "checkout failed"}};
  for (const auto& [index, time, text] : cases) {
    ExtraRecord extra{};
    extra.change.param_index = index;
    ASSERT_EQ(inst_->Command(kCmdUserChangedParam, &extra, time), kStatusOk);
    EXPECT_EQ(inst_->last_output().message, text) << index;
    EXPECT_EQ(host_.stats().live_handles.load(), live) << index << " at " << time;
  }
}

TEST_F(HostParams, VideoSegmentSuiteAnswersByGpuIndex) {
  const void* table = nullptr;
  ASSERT_EQ(host_.suite_services()->acquire(kVideoSegmentSuiteName, 6, &table), kStatusOk);
  auto get = [&](int32_t node, int32_t index, int64_t time, SegmentParamValue* v) {
    return static_cast<const VideoSegmentSuite6*>(table)->get_param(node, index, time, v);
  };
  const int32_t node = inst_->node_id();
  Keys(kScale, {{0, {120}}, {1, {220}}});
  SegmentParamValue v{};
  ASSERT_EQ(get(node, kScale - 1, kTicksPerSecond / 2, &v), 0);
  EXPECT_EQ(v.type, kSegParamFloat);
  EXPECT_EQ(v.value, 170.0);
  ASSERT_EQ(get(node, kPoint - 1, 0, &v), 0);
  EXPECT_EQ(v.type, kSegParamPoint);
  EXPECT_EQ(v.x, 100.0);
  ASSERT_EQ(get(node, kDoc - 1, 0, &v), 0);
  ASSERT_EQ(v.type, kSegParamHandle);
  ASSERT_EQ(RxGetPtrSize(v.handle), 16u);
  EXPECT_EQ(std::memcmp(v.handle, "default document", 16), 0);
  RxDisposePtr(v.handle);
  EXPECT_NE(get(node + 1000, 0, 0, &v), 0);
  EXPECT_NE(get(node, -1, 0, &v), 0);  // the layer has no GPU index
  EXPECT_NE(get(node, kCount - 1, 0, &v), 0);
  host_.suite_services()->release(kVideoSegmentSuiteName, 6);
}

class HostProject : public StandInInstance {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(StandInInstance::SetUp());
    Keys(kDoc, {{0, Doc(std::string("doc\0one", 7))}, {1.5, Doc("doc two")}});
    Keys(kAngle, {{0, {-45}}, {3, {90}}});
    ASSERT_EQ(inst_->SetValue(kScale, {33.25}), kStatusOk);
    ASSERT_EQ(inst_->SetValue(kCheck, {0, 0, false}), kStatusOk);
    // kPoint stays at its default.
    saved_ = inst_->SaveProject();
    ASSERT_FALSE(saved_.empty());
    target_ = module_->CreateInstance();
    target_->SetLayerSize(200, 100);
  }
  void TearDown() override {
    target_.reset();
    StandInInstance::TearDown();
  }
  std::vector<uint8_t> saved_;
  std::unique_ptr<Instance> target_;
  std::string error_;
};

TEST_F(HostProject, SaveLoadSaveGivesIdenticalBytesAndValues) {
  ASSERT_TRUE(target_->LoadProject(saved_.data(), saved_.size(), &error_)) << error_;
  // Saving writes what the store holds, so equal bytes are equal values.
  EXPECT_EQ(target_->SaveProject(), saved_);
  EXPECT_EQ(Text(target_->ValueAt(kDoc, 0.5).bytes), std::string("doc\0one", 7));
  // An untouched instance saves its defaults and restores them; so does a constant document.
  const std::vector<uint8_t> defaults = module_->CreateInstance()->SaveProject();
  ASSERT_EQ(inst_->SetValue(kDoc, Doc("constant")), kStatusOk);
  for (const auto& [bytes, doc] :
       {std::pair(defaults, "default document"), std::pair(inst_->SaveProject(), "constant")}) {
    ASSERT_TRUE(target_->LoadProject(bytes.data(), bytes.size(), &error_)) << error_;
    EXPECT_EQ(target_->SaveProject(), bytes);
    EXPECT_EQ(Text(target_->ValueAt(kDoc, 0).bytes), doc);
  }
}

TEST_F(HostProject, TruncatedOrCorruptProjectsAreRejectedAndChangeNothing) {
  ASSERT_EQ(target_->SetValue(kScale, {77}), kStatusOk);
  const std::vector<uint8_t> before = target_->SaveProject();
  for (size_t n = 0; n < saved_.size(); ++n) {
    const std::vector<uint8_t> cut(saved_.begin(), saved_.begin() + ptrdiff_t(n));
    error_.clear();
    EXPECT_FALSE(target_->LoadProject(cut.data(), n, &error_)) << n;
    EXPECT_FALSE(error_.empty()) << n;
  }
  // Parameter records start at 12 (index, type, mode: 9 bytes); the document's keyframe count
  // follows the layer's record and its own, then the first keyframe: time, size, 7 bytes.
  const size_t keys = 12 + 9 + 9, second_time = keys + 4 + 8 + 4 + 7;
  ASSERT_EQ(saved_[keys], 2);
  const struct {
    size_t at;
    std::string bytes;
    const char* why;
  } corrupt[] = {
      {0, "X", "not a project"},
      {4, "\2", "version"},
      {8, "\5", "parameters"},
      {12 + 8, "\1", "mode"},  // the layer may hold no value
      {keys + 3, "\x7f", "keyframe count"},
      {keys + 4 + 8 + 3, "\x7f", "data size"},
      {keys + 4 + 6, "\xf0\x7f", "not finite"},                 // +inf
      {second_time + 6, std::string(2, '\0'), "out of order"},  // 1.5 s becomes 0 s
      {saved_.size(), std::string(1, '\0'), "trailing"},
  };
  for (const auto& c : corrupt) {
    std::vector<uint8_t> bad = saved_;
    bad.resize(std::max(bad.size(), c.at + c.bytes.size()));
    std::memcpy(&bad[c.at], c.bytes.data(), c.bytes.size());
    error_.clear();
    EXPECT_FALSE(target_->LoadProject(bad.data(), bad.size(), &error_)) << c.why;
    EXPECT_NE(error_.find(c.why), std::string::npos) << error_;
  }
  EXPECT_FALSE(target_->LoadProject(nullptr, 0, &error_));
  EXPECT_EQ(target_->SaveProject(), before);
}

TEST_F(HostProject, ModuleRefusingDataFailsTheLoadWithoutChanges) {
  const std::vector<uint8_t> before = target_->SaveProject();
  host_.faults().fail_alloc_after = host_.stats().handles_allocated.load() + 1;
  EXPECT_FALSE(target_->LoadProject(saved_.data(), saved_.size(), &error_));
  EXPECT_NE(error_.find("rejected"), std::string::npos) << error_;
  host_.faults().fail_alloc_after = -1;
  EXPECT_EQ(target_->SaveProject(), before);
}
