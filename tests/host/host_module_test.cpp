// Loading, the setup/teardown lifecycle, labels, faults at setup, suite services, handles and
// text callbacks, layer copies, frames, render, UI update and events.
#include <cstring>

#include "host_test_util.h"

using namespace vxhost;
using namespace vxhost_test;

TEST(HostLoad, ReportsMissingFileMissingEntryAndTheDefaultPath) {
  Host host;
  const std::pair<std::string, std::string> bad[] = {
      {"/nonexistent/dir/VEText.so", "/nonexistent/dir/VEText.so"},
      {HOST_TEST_MODULE_NOENTRY, "EffectMain"},
      {"", "no module path"}};
  for (const auto& [path, mention] : bad) {
    std::string error;
    EXPECT_EQ(host.Load(path, &error), nullptr);
    EXPECT_NE(error.find(mention), std::string::npos) << error;
  }
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
    EXPECT_EQ(module->last_output().my_version, kEffectVersionWord);
    ASSERT_EQ(module->ParamsSetup(), kStatusOk);
    EXPECT_EQ(module->supported_formats(),
              (std::vector<uint32_t>{kPixelFormatBGRA, kPixelFormatVUYA}));
    EXPECT_EQ(host.stats().registrations.load(), 1);
    // Index 0 is the layer the host adds; the module declared five more.
    ASSERT_EQ(module->params().size(), 6u);
    EXPECT_EQ(module->declared_param_count(), 6);
    EXPECT_EQ(module->params()[0].param_type, kParamTypeLayer);
    EXPECT_STREQ(module->params()[kDoc].name, "Source Text");
    auto a = module->CreateInstance(), b = module->CreateInstance();
    ASSERT_TRUE(a && b);
    EXPECT_NE(a->node_id(), b->node_id());
    // Each instance starts from its own copy of the declared default.
    ASSERT_EQ(a->SetValue(kDoc, Doc("changed")), kStatusOk);
    EXPECT_EQ(Text(b->ValueAt(kDoc, 0).bytes), "default document");
    a.reset();
    // b is still alive when the module goes: the module tears it down itself.
  }
  EXPECT_EQ(host.stats().live_handles.load(), 0);
  EXPECT_EQ(host.stats().registrations.load(), 0);
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
  // Only the first "=" separates; past the terminator (index 5) there is no text.
  const std::pair<int32_t, std::string> labels[] = {
      {0, "zero"}, {2, "Vertical Scale"}, {4, "a=b"}, {5, ""}, {-1, ""}, {1000, ""}};
  for (const auto& [index, text] : labels) EXPECT_EQ(module->LookupLabel(index), text) << index;
  {  // Two hosts may load the same module; the table stays until the last one unregisters.
    Host other;
    ASSERT_EQ(LoadTestModule(other)->GlobalSetup(), kStatusOk);
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
  // Without suite services the stand-in sets up but cannot tell the pixel format.
  Host host;
  host.faults().no_suite_services = true;
  auto module = LoadTestModule(host);
  ASSERT_EQ(module->Setup(), kStatusOk);
  EXPECT_TRUE(module->supported_formats().empty());
  Frame in(4, 4), out(4, 4);
  EXPECT_EQ(module->CreateInstance()->Render(0, in, out), kStatusUnsupportedPixelFormat);
}

TEST(HostSuites, AcquireReleaseUnknownWrongVersionAndFaults) {
  Host host;
  const SuiteServices* ss = host.suite_services();
  const std::pair<const char*, int32_t> known[] = {
      {kPixelFormatSuiteName, 1},   {kParamUtilsSuiteName, 3},      {kRPixSuiteName, 1},
      {kRPixCacheSuiteName, 6},     {kRPixCreatorSuiteName, 3},     {kVideoSegmentSuiteName, 6},
      {kDrawbotDrawSuiteName, 1},   {kDrawbotSupplierSuiteName, 1}, {kDrawbotPathSuiteName, 1},
      {kDrawbotSurfaceSuiteName, 1}};
  const void* suite = nullptr;
  for (const auto& [name, version] : known) {
    EXPECT_EQ(ss->acquire(name, version, &suite), kStatusOk) << name;
    EXPECT_NE(suite, nullptr) << name;
    EXPECT_EQ(ss->release(name, version), kStatusOk) << name;
    EXPECT_NE(ss->acquire(name, version + 1, &suite), kStatusOk) << name;
    EXPECT_EQ(suite, nullptr) << name;
    EXPECT_NE(ss->release(name, version + 1), kStatusOk) << name;
  }
  EXPECT_EQ(host.stats().suites_acquired.load(), 10);
  EXPECT_EQ(host.stats().suites_released.load(), 10);
  EXPECT_NE(ss->acquire("VEFX Suite", 1, &suite), kStatusOk);
  EXPECT_NE(ss->release("VEFX Suite", 1), kStatusOk);
  EXPECT_NE(ss->acquire(nullptr, 1, &suite), kStatusOk);
  EXPECT_NE(ss->acquire(kRPixSuiteName, 1, nullptr), kStatusOk);

  host.faults().missing_suites = {kRPixSuiteName};
  host.faults().null_suites = {kRPixCacheSuiteName};
  EXPECT_NE(ss->acquire(kRPixSuiteName, 1, &suite), kStatusOk);
  suite = &host;
  EXPECT_EQ(ss->acquire(kRPixCacheSuiteName, 6, &suite), kStatusOk);
  EXPECT_EQ(suite, nullptr);
  // The GPU accessor serves the same suites.
  EXPECT_EQ(host.gpu_suites()->acquire(kVideoSegmentSuiteName, 6, &suite), 0);
  EXPECT_NE(suite, nullptr);

  // Hosts do not share tables, and a handle remembers its host.
  Host other;
  EXPECT_EQ(other.suite_services()->acquire(kRPixSuiteName, 1, &suite), kStatusOk);
  EXPECT_NE(suite, nullptr);
  VxHandle h = host.utils()->new_handle(3);
  EXPECT_EQ(other.stats().live_handles.load(), 0);
  other.utils()->dispose_handle(h);
  EXPECT_EQ(host.stats().live_handles.load(), 0);
}

TEST(HostCallbacks, HandlesTextAndMessages) {
  Host host;
  const UtilCallbacks* u = host.utils();
  VxHandle h = u->new_handle(5), empty = u->new_handle(0);
  ASSERT_TRUE(h && empty);
  EXPECT_EQ(u->get_handle_size(h), 5u);
  EXPECT_EQ(std::memcmp(*h, "\0\0\0\0\0", 5), 0);
  EXPECT_EQ(u->get_handle_size(empty), 0u);
  EXPECT_EQ(host.stats().live_handles.load(), 2);
  u->dispose_handle(h);
  u->dispose_handle(empty);
  u->dispose_handle(nullptr);
  EXPECT_EQ(host.stats().live_handles.load(), 0);
  EXPECT_EQ(host.stats().handles_allocated.load(), 2);
  EXPECT_EQ(u->get_handle_size(nullptr), 0u);
  EXPECT_EQ(u->new_handle(uint64_t(1) << 62), nullptr);
  host.faults().fail_alloc_after = 3;
  VxHandle third = u->new_handle(1);
  EXPECT_NE(third, nullptr);
  EXPECT_EQ(u->new_handle(1), nullptr);
  EXPECT_EQ(host.stats().live_handles.load(), 1);
  u->dispose_handle(third);

  char field[8];
  u->copy_text(field, sizeof field, "a long label");
  EXPECT_STREQ(field, "a long ");
  u->copy_text(field, sizeof field, nullptr);
  EXPECT_STREQ(field, "");
  OutputRecord out{};
  u->copy_message(&out, std::string(400, 'x').c_str());
  EXPECT_EQ(std::strlen(out.message), sizeof(out.message) - 1);
  u->copy_message(nullptr, "ignored");
  EXPECT_STREQ(u->lookup_string(12345, 0, 0, 0), "");  // unknown token
}

TEST(HostCallbacks, CopyLayerKeepsVisualRowsInEveryOrientation) {
  Host host;
  const UtilCallbacks* u = host.utils();
  for (bool src_up : {false, true})
    for (bool dst_up : {false, true}) {
      Frame src(7, 5, kPixelFormatBGRA, src_up), dst(7, 5, kPixelFormatBGRA, dst_up);
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 28; ++x) src.row(y)[x] = uint8_t(y * 40 + x);
      ASSERT_EQ(u->copy_layer(nullptr, src.layer(), dst.layer(), nullptr, nullptr), kStatusOk);
      for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 28; ++x)
          ASSERT_EQ(dst.row(y)[x], y * 40 + x) << src_up << dst_up << " at " << x << "," << y;
      // Part of some rows, and whole rows (one block when the strides agree); the rest of the
      // destination is left alone.
      using Rects = std::pair<VxRect, VxRect>;
      for (const auto& [s, d] :
           {Rects{{1, 2, 3, 4}, {0, 1, 2, 3}}, Rects{{0, 1, 7, 3}, {0, 2, 7, 4}}}) {
        Frame part(7, 5, kPixelFormatBGRA, dst_up);
        part.Fill(9, 9, 9, 9);
        ASSERT_EQ(u->copy_layer(nullptr, src.layer(), part.layer(), &s, &d), kStatusOk);
        for (int y = 0; y < 5; ++y)
          for (int x = 0; x < 7; ++x) {
            const bool inside = x >= d.left && x < d.right && y >= d.top && y < d.bottom;
            ASSERT_EQ(part.row(y)[x * 4],
                      inside ? (y - d.top + s.top) * 40 + (x - d.left + s.left) * 4 : 9)
                << src_up << dst_up << " rect " << d.left << " at " << x << "," << y;
          }
      }
    }
  // Visual row 0 of a bottom-up frame sits at the highest address.
  Frame up(3, 4, kPixelFormatBGRA, true);
  up.row(0)[0] = 1;
  EXPECT_EQ(static_cast<uint8_t*>(up.layer()->data)[0], 1);
  EXPECT_LT(up.layer()->row_bytes, 0);
  Frame other_size(4, 4), other_format(3, 4, kPixelFormatVUYA);
  EXPECT_NE(u->copy_layer(nullptr, up.layer(), other_size.layer(), nullptr, nullptr), kStatusOk);
  EXPECT_NE(u->copy_layer(nullptr, up.layer(), other_format.layer(), nullptr, nullptr), kStatusOk);
  EXPECT_NE(u->copy_layer(nullptr, nullptr, up.layer(), nullptr, nullptr), kStatusOk);
}

TEST(HostFrame, CopiesAreIndependentAndSizesAreSane) {
  Frame a(5, 2, kPixelFormatBGRA, true);
  a.Fill(1, 2, 3, 4);
  Frame b = a;
  b.row(0)[0] = 99;
  EXPECT_EQ(a.row(0)[0], 1);
  EXPECT_EQ(b.row(1)[2], 3);
  EXPECT_TRUE(b.bottom_up());
  Frame c(1, 1);
  c = b;
  EXPECT_EQ(c.width(), 5);
  EXPECT_EQ(c.row(0)[0], 99);
  c.row(1)[0] = 7;
  EXPECT_EQ(b.row(1)[0], 1);
  EXPECT_EQ(Frame(2, 2, kPixelFormatBGRA16).layer()->row_bytes, -16);
  Frame none(-3, 4);
  EXPECT_EQ(none.width(), 0);
  EXPECT_EQ(none.layer()->data, nullptr);
}

using HostRender = StandInInstance;

TEST_F(HostRender, CopiesInputAndPassesParametersInLayerPixels) {
  for (bool bottom_up : {true, false}) {
    Frame in(200, 100, kPixelFormatBGRA, bottom_up), out(200, 100, kPixelFormatBGRA, bottom_up);
    in.Fill(10, 20, 30, 255);
    in.row(99)[0] = 77;
    ASSERT_EQ(inst_->Render(0, in, out), kStatusOk);
    // Scale, angle and checkbox defaults; the document's first byte came back through the frame
    // cache; the position default is 50 % of 200 x 100.
    EXPECT_EQ(std::vector<uint8_t>(out.row(0), out.row(0) + 6),
              (std::vector<uint8_t>{100, 0, 1, 'd', 100, 50}));
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
  Frame vuya_in(8, 8, kPixelFormatVUYA), deep_in(8, 8, kPixelFormatBGRA16);
  EXPECT_EQ(inst_->Render(0, vuya_in, vuya), kStatusOk);
  EXPECT_EQ(inst_->Render(0, deep_in, deep), kStatusUnsupportedPixelFormat);
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
  ASSERT_EQ(inst_->Event(&ev), kStatusOk);
  EXPECT_EQ(ev.handled, 1);
  EXPECT_EQ(ev.context, nullptr);  // the host's context lived for the call only
  auto drawn = host_.drawn_paths();
  ASSERT_EQ(drawn.size(), 1u);
  EXPECT_FALSE(drawn[0].fill);
  EXPECT_EQ(drawn[0].line_width, 2.0f);
  ASSERT_EQ(drawn[0].ops.size(), 1u);
  EXPECT_EQ(drawn[0].ops[0].kind, PathOp::kRect);
  EXPECT_EQ(drawn[0].ops[0].x, 25.0f);  // 10 * 2 + 5
  EXPECT_EQ(drawn[0].ops[0].y, 14.0f);
  // The window type reaches the module, which draws only in the layer window.
  host_.ClearDrawing();
  EventRecord other{};
  other.event_type = kEventDraw;
  ASSERT_EQ(inst_->Event(&other, 0, 3), kStatusOk);
  EXPECT_TRUE(host_.drawn_paths().empty());
}
