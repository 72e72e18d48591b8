// Loading, the setup/teardown lifecycle, labels, faults at setup, render, UI update and events.
#include <cstring>

#include "host_test_util.h"

using namespace vxhost;
using namespace vxhost_test;

TEST(HostLoad, ReportsMissingFileAndMissingEntry) {
  Host host;
  std::string error;
  EXPECT_EQ(host.Load("/nonexistent/dir/VEText.so", &error), nullptr);
  EXPECT_NE(error.find("/nonexistent/dir/VEText.so"), std::string::npos) << error;

  error.clear();
  EXPECT_EQ(host.Load(HOST_TEST_MODULE_NOENTRY, &error), nullptr);
  EXPECT_NE(error.find("EffectMain"), std::string::npos) << error;

  error.clear();
  EXPECT_EQ(host.Load("", &error), nullptr);
  EXPECT_FALSE(error.empty());

  auto module = host.Load(HOST_TEST_MODULE, &error);
  ASSERT_NE(module, nullptr) << error;
  EXPECT_NE(module->effect_main(), nullptr);
  EXPECT_EQ(module->gpu_entry(), nullptr);  // the stand-in has no GPU entry
}

TEST(HostLoad, DefaultModulePathFollowsEnvironment) {
  setenv("VETEXT_MODULE", "/tmp/elsewhere/VEText.so", 1);
  EXPECT_EQ(DefaultModulePath(), "/tmp/elsewhere/VEText.so");
  unsetenv("VETEXT_MODULE");
  EXPECT_NE(DefaultModulePath(), "/tmp/elsewhere/VEText.so");
}

TEST(HostLifecycle, SetupParamsInstancesAndTeardownLeaveNothingBehind) {
  Host host;
  {
    auto module = LoadTestModule(host);
    ASSERT_EQ(module->GlobalSetup(), kStatusOk);
    EXPECT_EQ(module->last_output().out_flags & kEffectGlobalOutFlags, kEffectGlobalOutFlags);
    EXPECT_EQ(module->last_output().my_version, kEffectVersionWord);
    ASSERT_EQ(module->ParamsSetup(), kStatusOk);
    EXPECT_EQ(module->supported_formats(),
              (std::vector<uint32_t>{kPixelFormatBGRA, kPixelFormatVUYA}));
    EXPECT_EQ(host.stats().registrations.load(), 1);

    // Index 0 is the layer the host adds; the module declared five more.
    ASSERT_EQ(module->params().size(), 6u);
    EXPECT_EQ(module->declared_param_count(), 6);
    EXPECT_EQ(module->params()[0].param_type, kParamTypeLayer);
    EXPECT_EQ(module->params()[kDoc].param_type, kParamTypeArbitrary);
    EXPECT_STREQ(module->params()[kDoc].name, "Source Text");
    EXPECT_STREQ(module->params()[kScale].name, "Scale");

    auto a = module->CreateInstance();
    auto b = module->CreateInstance();
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_NE(a->node_id(), b->node_id());
    // Each instance starts from its own copy of the declared default.
    EXPECT_EQ(Text(a->ValueAt(kDoc, 0).bytes), "default document");
    ASSERT_EQ(a->SetValue(kDoc, {0, 0, false, Bytes("changed")}), kStatusOk);
    EXPECT_EQ(Text(b->ValueAt(kDoc, 0).bytes), "default document");
    EXPECT_GT(host.stats().live_handles.load(), 0);
    a.reset();
    // b is still alive when the module goes: the module tears it down itself.
  }
  EXPECT_EQ(host.stats().live_handles.load(), 0);
  EXPECT_EQ(host.stats().registrations.load(), 0);
  EXPECT_GT(host.stats().handles_allocated.load(), 0);
}

TEST(HostLifecycle, InstanceOutlivingItsModuleIsHarmless) {
  Host host;
  std::unique_ptr<Instance> orphan;
  {
    auto module = LoadTestModule(host);
    ASSERT_EQ(module->Setup(), kStatusOk);
    orphan = module->CreateInstance();
    ASSERT_NE(orphan, nullptr);
  }
  EXPECT_EQ(host.stats().live_handles.load(), 0);
  Frame in(4, 4), out(4, 4);
  EXPECT_EQ(orphan->Render(0, in, out), kStatusBadCallbackParam);
  EXPECT_NE(orphan->SetValue(kScale, {50}), kStatusOk);
  orphan.reset();
  EXPECT_EQ(host.stats().live_handles.load(), 0);
}

TEST(HostLabels, RegisteredTableIsLookedUpByIndex) {
  Host host;
  auto module = LoadTestModule(host);
  EXPECT_EQ(module->LookupLabel(1), "");  // nothing registered before setup
  ASSERT_EQ(module->GlobalSetup(), kStatusOk);
  EXPECT_EQ(module->LookupLabel(0), "zero");
  EXPECT_EQ(module->LookupLabel(2), "Vertical Scale");
  EXPECT_EQ(module->LookupLabel(4), "a=b");  // only the first "=" separates
  EXPECT_EQ(module->LookupLabel(5), "");     // the terminator
  EXPECT_EQ(module->LookupLabel(-1), "");
  EXPECT_EQ(module->LookupLabel(1000), "");
  // Two hosts may load the same module; the table stays until the last one unregisters.
  {
    Host other;
    auto again = LoadTestModule(other);
    ASSERT_EQ(again->GlobalSetup(), kStatusOk);
    EXPECT_EQ(again->LookupLabel(3), "Source Text");
  }
  EXPECT_EQ(module->LookupLabel(3), "Source Text");
  EXPECT_EQ(module->GlobalSetdown(), kStatusOk);
  EXPECT_EQ(module->LookupLabel(3), "");
}

TEST(HostFaults, RegistrationAllocationAndAddParamFailures) {
  {
    Host host;
    host.faults().registration_status = 7;
    auto module = LoadTestModule(host);
    EXPECT_EQ(module->GlobalSetup(), 7);
    EXPECT_NE(module->last_output().out_flags & kOutFlagDisplayMessage, 0u);
    EXPECT_STREQ(module->last_output().message, "Test could not be initialized.");
    EXPECT_EQ(host.stats().handles_allocated.load(), 0);
    EXPECT_EQ(host.stats().registrations.load(), 0);
  }
  {
    Host host;
    host.faults().fail_alloc_after = 0;
    auto module = LoadTestModule(host);
    EXPECT_EQ(module->GlobalSetup(), kStatusOutOfMemory);
    EXPECT_EQ(host.stats().registrations.load(), 0);  // the module gave its token back
    host.faults().fail_alloc_after = 1;               // the global data succeeds, the default fails
    ASSERT_EQ(module->GlobalSetup(), kStatusOk);
    EXPECT_EQ(module->ParamsSetup(), kStatusOutOfMemory);
    host.faults().fail_alloc_after = -1;
  }
  {
    Host host;
    host.faults().fail_add_param_at = 2;  // the angle, after document and slider
    host.faults().add_param_status = 9;
    auto module = LoadTestModule(host);
    ASSERT_EQ(module->GlobalSetup(), kStatusOk);
    EXPECT_EQ(module->ParamsSetup(), 9);
    EXPECT_EQ(module->params().size(), 3u);  // layer, document, slider
    EXPECT_EQ(module->declared_param_count(), 0);
    module.reset();
    EXPECT_EQ(host.stats().live_handles.load(), 0);  // the declared default was freed
  }
}

TEST(HostFaults, NoSuiteServicesStillSetsUpWithAMessage) {
  Host host;
  host.faults().no_suite_services = true;
  auto module = LoadTestModule(host);
  ASSERT_EQ(module->Setup(), kStatusOk);
  EXPECT_TRUE(module->supported_formats().empty());
  auto inst = module->CreateInstance();
  ASSERT_NE(inst, nullptr);
  Frame in(4, 4), out(4, 4);
  // Without the pixel format suite the stand-in cannot tell the format.
  EXPECT_EQ(inst->Render(0, in, out), kStatusUnsupportedPixelFormat);
}

using HostRender = StandInInstance;

TEST_F(HostRender, CopiesInputAndPassesParametersInLayerPixels) {
  for (bool bottom_up : {true, false}) {
    Frame in(200, 100, kPixelFormatBGRA, bottom_up), out(200, 100, kPixelFormatBGRA, bottom_up);
    in.Fill(10, 20, 30, 255);
    in.row(99)[0] = 77;
    ASSERT_EQ(inst_->Render(0, in, out), kStatusOk);
    const uint8_t* top = out.row(0);
    EXPECT_EQ(top[0], 100);         // Scale default
    EXPECT_EQ(top[1], 0);           // Rotation default
    EXPECT_EQ(top[2], 1);           // checkbox on
    EXPECT_EQ(top[3], 'd');         // the document came back through the frame cache
    EXPECT_EQ(top[4], 100);         // Position default: 50 % of 200
    EXPECT_EQ(top[5], 50);          // 50 % of 100
    EXPECT_EQ(out.row(99)[0], 77);  // the bottom row is where the input had it
    EXPECT_EQ(out.row(50)[1], 20);
  }
  EXPECT_GE(host_.cache().Stats().adds, 1u);
  EXPECT_GE(host_.cache().Stats().hits, 1u);
}

TEST_F(HostRender, RejectsMismatchedFramesAndUnknownFormats) {
  Frame in(8, 8), small(4, 8), vuya(8, 8, kPixelFormatVUYA), deep(8, 8, kPixelFormatBGRA16);
  EXPECT_EQ(inst_->Render(0, in, small), kStatusBadCallbackParam);
  EXPECT_EQ(inst_->Render(0, in, vuya), kStatusBadCallbackParam);
  Frame vuya_in(8, 8, kPixelFormatVUYA);
  EXPECT_EQ(inst_->Render(0, vuya_in, vuya), kStatusOk);
  Frame deep_in(8, 8, kPixelFormatBGRA16);
  deep_in.Fill(1, 2, 3, 4);
  EXPECT_EQ(inst_->Render(0, deep_in, deep), kStatusUnsupportedPixelFormat);
  EXPECT_EQ(deep.row(0)[0], 0);  // untouched
  // An empty document is the module's to refuse.
  ASSERT_EQ(inst_->SetValue(kDoc, {}), kStatusOk);
  EXPECT_EQ(inst_->Render(0, in, in), kStatusStructDamaged);
}

TEST_F(HostRender, UpdateParamsUIChangesOnlyTheInstanceCopy) {
  ASSERT_EQ(inst_->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);
  EXPECT_STREQ(inst_->ui_param(kScale).name, "Scale");
  EXPECT_EQ(inst_->ui_param(kScale).ui_flags, 0u);
  ASSERT_EQ(inst_->SetValue(kCheck, {0, 0, false}), kStatusOk);
  ASSERT_EQ(inst_->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);
  EXPECT_STREQ(inst_->ui_param(kScale).name, "Vertical Scale");
  EXPECT_EQ(inst_->ui_param(kScale).ui_flags, uint32_t(kParamUIFlagDisabled));
  EXPECT_STREQ(module_->params()[kScale].name, "Scale");  // the declaration is untouched
  // The module sees the shown name in later calls.
  EXPECT_STREQ(inst_->ParamAt(kScale, 0).name, "Vertical Scale");
  host_.faults().missing_suites = {kParamUtilsSuiteName};
  EXPECT_EQ(inst_->Command(kCmdUpdateParamsUI, nullptr), kStatusSuiteThrew);
}

TEST_F(HostRender, DrawEventIsRecordedInViewerCoordinates) {
  host_.viewer().zoom = 2.0;
  host_.viewer().offset_x = 5;
  EventRecord ev{};
  ev.event_type = kEventDraw;
  ev.click_x = 10;
  ev.click_y = 7;
  ev.param_index = 2;
  ASSERT_EQ(inst_->Event(&ev), kStatusOk);
  EXPECT_EQ(ev.handled, 1);
  EXPECT_EQ(ev.context, nullptr);  // the host's context lived for the call only
  auto drawn = host_.drawn_paths();
  ASSERT_EQ(drawn.size(), 1u);
  EXPECT_FALSE(drawn[0].fill);
  EXPECT_EQ(drawn[0].color.red, 1.0f);
  EXPECT_EQ(drawn[0].line_width, 2.0f);
  ASSERT_EQ(drawn[0].ops.size(), 1u);
  EXPECT_EQ(drawn[0].ops[0].kind, PathOp::kRect);
  EXPECT_EQ(drawn[0].ops[0].x, 25.0f);  // 10 * 2 + 5
  EXPECT_EQ(drawn[0].ops[0].y, 14.0f);
  // Another window: nothing drawn.
  host_.ClearDrawing();
  EventRecord other{};
  other.event_type = kEventDraw;
  ASSERT_EQ(inst_->Event(&other, 0, 3), kStatusOk);
  EXPECT_EQ(other.handled, 0);
  EXPECT_TRUE(host_.drawn_paths().empty());
}
