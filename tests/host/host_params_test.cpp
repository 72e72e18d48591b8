// The parameter store: keyframes, arbitrary data through the module, checkout, the video
// segment suite, and project files.
#include <cstring>

#include "host_test_util.h"
#include "vetext/memory.h"

using namespace vxhost;
using namespace vxhost_test;

class HostParams : public StandInInstance {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(StandInInstance::SetUp());
    inst_->SetLayerSize(200, 100);
  }
  void TearDown() override {
    inst_.reset();
    module_.reset();
    EXPECT_EQ(host_.stats().live_handles.load(), 0);
  }
};

TEST_F(HostParams, DefaultsComeFromTheDeclarations) {
  EXPECT_EQ(inst_->ValueAt(kScale, 3).x, 100.0);
  EXPECT_EQ(inst_->ValueAt(kAngle, 3).x, 0.0);
  EXPECT_TRUE(inst_->ValueAt(kCheck, 3).flag);
  ParamValue p = inst_->ValueAt(kPoint, 3);
  EXPECT_EQ(p.x, 100.0);  // 50 % of the layer
  EXPECT_EQ(p.y, 50.0);
  ParamDef def = inst_->ParamAt(kPoint, 0);
  EXPECT_EQ(def.u.td.x_value, 100 << 16);
  EXPECT_EQ(inst_->SetValue(0, {}), kStatusBadCallbackParam);  // the layer holds no value
  EXPECT_EQ(inst_->SetValue(kCount, {}), kStatusBadCallbackParam);
}

TEST_F(HostParams, NumbersInterpolateLinearlyAndHoldOutside) {
  ASSERT_EQ(inst_->SetValue(kScale, {100}, 0.0), kStatusOk);
  ASSERT_EQ(inst_->SetValue(kScale, {300}, 2.0), kStatusOk);
  ASSERT_EQ(inst_->SetValue(kScale, {200}, 1.0), kStatusOk);  // inserted between
  EXPECT_EQ(inst_->ValueAt(kScale, -5).x, 100.0);
  EXPECT_EQ(inst_->ValueAt(kScale, 0.5).x, 150.0);
  EXPECT_EQ(inst_->ValueAt(kScale, 1.0).x, 200.0);
  EXPECT_EQ(inst_->ValueAt(kScale, 1.25).x, 225.0);
  EXPECT_EQ(inst_->ValueAt(kScale, 9).x, 300.0);
  ASSERT_EQ(inst_->SetValue(kScale, {250}, 1.0), kStatusOk);  // replaces the key at 1 s
  EXPECT_EQ(inst_->ValueAt(kScale, 1.5).x, 275.0);

  ASSERT_EQ(inst_->SetValue(kPoint, {0, 0}, 0.0), kStatusOk);
  ASSERT_EQ(inst_->SetValue(kPoint, {40, 80}, 4.0), kStatusOk);
  ParamValue p = inst_->ValueAt(kPoint, 1.0);
  EXPECT_EQ(p.x, 10.0);
  EXPECT_EQ(p.y, 20.0);

  // The module sees the interpolated value in 16.16 at render time.
  Frame in(200, 100), out(200, 100);
  ASSERT_EQ(inst_->Render(0.5, in, out), kStatusOk);
  EXPECT_EQ(out.row(0)[0], 175);  // halfway to the replaced 250
  EXPECT_EQ(out.row(0)[4], 5);

  // A constant clears the keyframes.
  ASSERT_EQ(inst_->SetValue(kScale, {42}), kStatusOk);
  EXPECT_EQ(inst_->ValueAt(kScale, 0.5).x, 42.0);
  inst_->ResetValue(kScale);
  EXPECT_EQ(inst_->ValueAt(kScale, 0.5).x, 100.0);
}

TEST_F(HostParams, CheckboxCannotBeAnimated) {
  ASSERT_EQ(inst_->SetValue(kCheck, {0, 0, false}, 1.0), kStatusOk);
  ASSERT_EQ(inst_->SetValue(kCheck, {0, 0, true}, 3.0), kStatusOk);
  // Declared not animatable: each keyframe request set the constant.
  EXPECT_TRUE(inst_->ValueAt(kCheck, 0).flag);
  EXPECT_TRUE(inst_->ValueAt(kCheck, 2).flag);
}

TEST_F(HostParams, ArbitraryDataHoldsTheEarlierKeyframeThroughTheModule) {
  ASSERT_EQ(inst_->SetValue(kDoc, {0, 0, false, Bytes("first")}, 0.0), kStatusOk);
  ASSERT_EQ(inst_->SetValue(kDoc, {0, 0, false, Bytes("second")}, 2.0), kStatusOk);
  const int64_t requests = host_.stats().arb_requests.load();
  EXPECT_EQ(Text(inst_->ValueAt(kDoc, 1.9).bytes), "first");
  EXPECT_GT(host_.stats().arb_requests.load(), requests);  // interpolated by the module
  EXPECT_EQ(Text(inst_->ValueAt(kDoc, 2.0).bytes), "second");
  EXPECT_EQ(Text(inst_->ValueAt(kDoc, -1).bytes), "first");

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
}

TEST_F(HostParams, FailedUnflattenKeepsTheOldValue) {
  ASSERT_EQ(inst_->SetValue(kDoc, {0, 0, false, Bytes("kept")}), kStatusOk);
  host_.faults().fail_alloc_after = host_.stats().handles_allocated.load();
  EXPECT_EQ(inst_->SetValue(kDoc, {0, 0, false, Bytes("lost")}), kStatusOutOfMemory);
  host_.faults().fail_alloc_after = -1;
  EXPECT_EQ(Text(inst_->ValueAt(kDoc, 0).bytes), "kept");
}

TEST_F(HostParams, CheckoutThroughParamUtilsSeesTheValueAtTheCallTime) {
  ASSERT_EQ(inst_->SetValue(kScale, {100}, 0.0), kStatusOk);
  ASSERT_EQ(inst_->SetValue(kScale, {200}, 2.0), kStatusOk);
  ExtraRecord extra{};
  extra.change.param_index = kScale;
  ASSERT_EQ(inst_->Command(kCmdUserChangedParam, &extra, 1.0), kStatusOk);
  EXPECT_STREQ(inst_->last_output().message, ("value=" + std::to_string(150 << 16)).c_str());

  ASSERT_EQ(inst_->SetValue(kDoc, {0, 0, false, Bytes("abc")}, 0.0), kStatusOk);
  ASSERT_EQ(inst_->SetValue(kDoc, {0, 0, false, Bytes("abcdef")}, 2.0), kStatusOk);
  const int64_t live = host_.stats().live_handles.load();
  extra.change.param_index = kDoc;
  ASSERT_EQ(inst_->Command(kCmdUserChangedParam, &extra, 1.0), kStatusOk);
  EXPECT_STREQ(inst_->last_output().message, "bytes=3");
  EXPECT_EQ(host_.stats().live_handles.load(), live);  // checkin freed the interpolated copy
}

TEST_F(HostParams, VideoSegmentSuiteAnswersByGpuIndex) {
  const void* table = nullptr;
  ASSERT_EQ(
      host_.suite_services()->acquire(kVideoSegmentSuiteName, kVideoSegmentSuiteVersion, &table),
      kStatusOk);
  auto* seg = static_cast<const VideoSegmentSuite6*>(table);
  ASSERT_EQ(inst_->SetValue(kScale, {120}, 0.0), kStatusOk);
  ASSERT_EQ(inst_->SetValue(kScale, {220}, 1.0), kStatusOk);
  SegmentParamValue v{};
  ASSERT_EQ(seg->get_param(inst_->node_id(), kScale - 1, kTicksPerSecond / 2, &v), 0);
  EXPECT_EQ(v.type, kSegParamFloat);
  EXPECT_EQ(v.value, 170.0);
  ASSERT_EQ(seg->get_param(inst_->node_id(), kPoint - 1, 0, &v), 0);
  EXPECT_EQ(v.type, kSegParamPoint);
  EXPECT_EQ(v.x, 100.0);
  ASSERT_EQ(seg->get_param(inst_->node_id(), kDoc - 1, 0, &v), 0);
  ASSERT_EQ(v.type, kSegParamHandle);
  ASSERT_EQ(RxGetPtrSize(v.handle), 16u);
  EXPECT_EQ(std::memcmp(v.handle, "default document", 16), 0);
  RxDisposePtr(v.handle);
  EXPECT_NE(seg->get_param(inst_->node_id() + 1000, 0, 0, &v), 0);
  EXPECT_NE(seg->get_param(inst_->node_id(), -1, 0, &v), 0);  // the layer has no GPU index
  EXPECT_NE(seg->get_param(inst_->node_id(), kCount - 1, 0, &v), 0);
  host_.suite_services()->release(kVideoSegmentSuiteName, kVideoSegmentSuiteVersion);
}

class HostProject : public HostParams {
 protected:
  void Fill() {
    ASSERT_EQ(inst_->SetValue(kDoc, {0, 0, false, Bytes(std::string("doc\0one", 7))}, 0.0),
              kStatusOk);
    ASSERT_EQ(inst_->SetValue(kDoc, {0, 0, false, Bytes("doc two")}, 1.5), kStatusOk);
    ASSERT_EQ(inst_->SetValue(kScale, {33.25}), kStatusOk);
    ASSERT_EQ(inst_->SetValue(kAngle, {-45}, 0.0), kStatusOk);
    ASSERT_EQ(inst_->SetValue(kAngle, {90}, 3.0), kStatusOk);
    ASSERT_EQ(inst_->SetValue(kCheck, {0, 0, false}), kStatusOk);
    // kPoint stays at its default.
  }
};

TEST_F(HostProject, SaveLoadSaveGivesIdenticalBytesAndValues) {
  Fill();
  const std::vector<uint8_t> saved = inst_->SaveProject();
  ASSERT_FALSE(saved.empty());
  auto copy = module_->CreateInstance();
  ASSERT_NE(copy, nullptr);
  copy->SetLayerSize(200, 100);
  std::string error;
  ASSERT_TRUE(copy->LoadProject(saved.data(), saved.size(), &error)) << error;
  EXPECT_EQ(copy->SaveProject(), saved);
  EXPECT_EQ(copy->ValueAt(kDoc, 0.5).bytes, Bytes(std::string("doc\0one", 7)));
  EXPECT_EQ(Text(copy->ValueAt(kDoc, 2).bytes), "doc two");
  EXPECT_EQ(copy->ValueAt(kScale, 9).x, 33.25);
  EXPECT_EQ(copy->ValueAt(kAngle, 1.5).x, 22.5);
  EXPECT_FALSE(copy->ValueAt(kCheck, 0).flag);
  EXPECT_EQ(copy->ValueAt(kPoint, 0).x, 100.0);
  // An untouched instance saves its defaults and restores them.
  auto fresh = module_->CreateInstance();
  const std::vector<uint8_t> defaults = fresh->SaveProject();
  ASSERT_TRUE(copy->LoadProject(defaults.data(), defaults.size(), &error)) << error;
  EXPECT_EQ(copy->SaveProject(), defaults);
  EXPECT_EQ(Text(copy->ValueAt(kDoc, 0).bytes), "default document");
}

TEST_F(HostProject, TruncatedOrCorruptProjectsAreRejectedAndChangeNothing) {
  Fill();
  const std::vector<uint8_t> saved = inst_->SaveProject();
  auto target = module_->CreateInstance();
  ASSERT_EQ(target->SetValue(kScale, {77}), kStatusOk);
  const std::vector<uint8_t> before = target->SaveProject();
  std::string error;
  for (size_t n = 0; n < saved.size(); ++n) {
    std::vector<uint8_t> cut(saved.begin(), saved.begin() + n);
    error.clear();
    EXPECT_FALSE(target->LoadProject(cut.data(), cut.size(), &error)) << n;
    EXPECT_FALSE(error.empty()) << n;
  }
  EXPECT_EQ(target->SaveProject(), before);

  auto rejects = [&](std::vector<uint8_t> bytes, const char* why) {
    error.clear();
    EXPECT_FALSE(target->LoadProject(bytes.data(), bytes.size(), &error)) << why;
    EXPECT_NE(error.find(why), std::string::npos) << error;
  };
  std::vector<uint8_t> bad = saved;
  bad[0] = 'X';
  rejects(bad, "not a project");
  bad = saved;
  bad[4] = 2;
  rejects(bad, "version");
  bad = saved;
  bad.push_back(0);
  rejects(bad, "trailing");
  bad = saved;
  bad[8] = 5;  // parameter count
  rejects(bad, "parameters");
  // The first parameter record starts at 12: index, type, mode. The layer may hold no value.
  bad = saved;
  bad[12 + 8] = 1;
  rejects(bad, "mode");
  // The document's keyframe count (after index, type, mode of the layer and of the document).
  bad = saved;
  const size_t doc_keys = 12 + 9 + 9;
  ASSERT_EQ(bad[doc_keys], 2);  // two keyframes
  bad[doc_keys + 3] = 0x7f;
  rejects(bad, "keyframe count");
  // The first keyframe's data size.
  bad = saved;
  bad[doc_keys + 4 + 8 + 3] = 0x7f;
  rejects(bad, "data size");
  // Keyframe times must increase.
  bad = saved;
  std::memcpy(&bad[doc_keys + 4], "\0\0\0\0\0\0\xf0\x7f", 8);  // +inf
  rejects(bad, "not finite");
  EXPECT_FALSE(target->LoadProject(nullptr, 0, &error));
  EXPECT_EQ(target->SaveProject(), before);
}

TEST_F(HostProject, ModuleRefusingDataFailsTheLoadWithoutChanges) {
  Fill();
  const std::vector<uint8_t> saved = inst_->SaveProject();
  auto target = module_->CreateInstance();
  const std::vector<uint8_t> before = target->SaveProject();
  host_.faults().fail_alloc_after = host_.stats().handles_allocated.load() + 1;
  std::string error;
  EXPECT_FALSE(target->LoadProject(saved.data(), saved.size(), &error));
  EXPECT_NE(error.find("rejected"), std::string::npos) << error;
  host_.faults().fail_alloc_after = -1;
  EXPECT_EQ(target->SaveProject(), before);
}
