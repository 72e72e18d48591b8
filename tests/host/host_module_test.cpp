// Loading, the setup/teardown lifecycle, labels, faults at setup, suite services, handles and
// text callbacks, layer copies, frames, render, UI update and events.
#include <cstring>

#include "host_test_util.h"

using namespace vxhost;
using namespace vxhost_test;

TEST(HostLoad, ReportsMissingFilesAndEntriesReadsTheInfoNoteAndTheDefaultPath) {
  Host host;
  const std::pair<std::string, std::string> bad[] = {
      {"/nonexistent/dir/VEText.so", "/nonexistent/dir/VEText.so"},
      {HOST_NOT_AN_EFFECT, "EffectMain"},
      {"", "no module path"}};
  for (const auto& [path, mention] : bad) {
    std::string error;
    EXPECT_EQ(host.Load(path, &error), nullptr);
    EXPECT_NE(error.find(mention), std::string::npos) << error;
  }
  // The module's info note is read before setup: a key is matched whole, up to its "=".
  auto module = LoadTestModule(host);
  const std::pair<std::string, std::string> info[] = {
      {"name", "$$$/Test/Name=Stand-in"}, {"category", "Test"}, {"nam", ""}, {"nameless", ""}};
  for (const auto& [key, value] : info) EXPECT_EQ(module->Info(key), value) << key;
  setenv("VETEXT_MODULE", "/tmp/elsewhere/VEText.so", 1);
  EXPECT_EQ(DefaultModulePath(), "/tmp/elsewhere/VEText.so");
  unsetenv("VETEXT_MODULE");
  EXPECT_NE(DefaultModulePath(), "/tmp/elsewhere/VEText.so");
}

TEST(HostLifecycle, SetupInstancesAndTeardownLeaveNothingBehind) {
  Host host;
  std::unique_ptr<Instance> orphan;
  {
    auto module = LoadTestModule(host);
    ASSERT_EQ(module->GlobalSetup(), kStatusOk);
    ASSERT_EQ(module->ParamsSetup(), kStatusOk);
    EXPECT_EQ(module->supported_formats(),
              (std::vector<uint32_t>{kPixelFormatBGRA, kPixelFormatVUYA}));
    EXPECT_EQ(host.stats().registrations.load(), 1);
    // Index 0 is the layer the host adds; the module declared five more.
    ASSERT_EQ(module->params().size(), 6u);
    EXPECT_EQ(module->declared_param_count(), 6);
    EXPECT_EQ(module->params()[0].param_type, kParamTypeLayer);
    EXPECT_STREQ(module->params()[kDoc].name, "Source Text");
    auto a = module->CreateInstance();
    orphan = module->CreateInstance();
    ASSERT_TRUE(a && orphan);
    EXPECT_NE(a->node_id(), orphan->node_id());
    // Each instance starts from its own copy of the declared default.
    ASSERT_EQ(a->SetValue(kDoc, Doc("changed")), kStatusOk);
    EXPECT_EQ(Text(orphan->ValueAt(kDoc, 0).bytes), "default document");
  }
  // The module tore down the instance that outlived it; what is left of it is harmless.
  EXPECT_EQ(host.stats().live_handles.load(), 0);
  EXPECT_EQ(host.stats().registrations.load(), 0);
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

TEST(HostFaults, AllocationAddParamAndSuiteFailures) {
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
      {kDrawbotDrawSuiteName, 1},   {kDrawbotSupplierSuiteName, 1}, {kDrawbotPathSuiteName, 2},
      {kDrawbotSurfaceSuiteName, 1}};
  const void* suite = nullptr;
  for (const auto& [name, version] : known) {
    EXPECT_TRUE(ss->acquire(name, version, &suite) == kStatusOk && suite) << name;
    EXPECT_EQ(ss->release(name, version), kStatusOk) << name;
    EXPECT_TRUE(ss->acquire(name, version + 1, &suite) != kStatusOk && !suite) << name;
    EXPECT_NE(ss->release(name, version + 1), kStatusOk) << name;
  }
  // Version 1 of the path suite, without curves, is still served.
  EXPECT_TRUE(ss->acquire(kDrawbotPathSuiteName, 1, &suite) == kStatusOk && suite);
  EXPECT_EQ(ss->release(kDrawbotPathSuiteName, 1), kStatusOk);
  EXPECT_EQ(host.stats().suites_acquired.load(), 11);
  EXPECT_EQ(host.stats().suites_released.load(), 11);
  EXPECT_NE(ss->acquire("VEFX Suite", 1, &suite), kStatusOk);
  EXPECT_NE(ss->release("VEFX Suite", 1), kStatusOk);
  EXPECT_NE(ss->acquire(nullptr, 1, &suite), kStatusOk);
  EXPECT_NE(ss->acquire(kRPixSuiteName, 1, nullptr), kStatusOk);
  // Worlds have rows of the asked width in the format's pixel size; a world of no size is refused.
  ASSERT_EQ(ss->acquire(kPixelFormatSuiteName, 1, &suite), kStatusOk);
  auto* pf = static_cast<const PixelFormatSuite1*>(suite);
  OutputLayer world{};
  EXPECT_NE(pf->new_world_of_pixel_format(nullptr, 0, 2, 0, kPixelFormatBGRA, &world), kStatusOk);
  EXPECT_NE(pf->new_world_of_pixel_format(nullptr, 3, 0, 0, kPixelFormatBGRA, &world), kStatusOk);
  ASSERT_EQ(pf->new_world_of_pixel_format(nullptr, 3, 2, 0, kPixelFormatBGRA16, &world), kStatusOk);
  EXPECT_EQ(std::tuple(world.row_bytes, world.width, world.height), std::tuple(24, 3, 2));
  EXPECT_EQ(pf->dispose_world(nullptr, &world), kStatusOk);

  host.faults().missing_suites = {kRPixSuiteName};
  host.faults().null_suites = {kRPixCacheSuiteName};
  EXPECT_NE(ss->acquire(kRPixSuiteName, 1, &suite), kStatusOk);
  suite = &host;
  EXPECT_EQ(ss->acquire(kRPixCacheSuiteName, 6, &suite), kStatusOk);
  EXPECT_EQ(suite, nullptr);

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
  EXPECT_EQ(std::memcmp(*h, "\0\0\0\0\0", 5), 0);
  EXPECT_EQ(
      std::tuple(u->get_handle_size(h), u->get_handle_size(empty), u->get_handle_size(nullptr)),
      std::tuple(5u, 0u, 0u));
  EXPECT_EQ(host.stats().live_handles.load(), 2);
  for (VxHandle d : {h, empty, VxHandle(nullptr)}) u->dispose_handle(d);
  EXPECT_EQ(std::tuple(host.stats().live_handles.load(), host.stats().handles_allocated.load()),
            std::tuple(0, 2));
  EXPECT_EQ(u->new_handle(uint64_t(1) << 62), nullptr);

  char field[8];
  u->copy_text(field, sizeof field, "a long label");
  EXPECT_STREQ(field, "a long ");
  u->copy_text(field, sizeof field, nullptr);
  EXPECT_STREQ(field, "");
  EXPECT_STREQ(u->lookup_string(12345, 0, 0, 0), "");  // unknown token
}

TEST(HostCallbacks, CopyLayerKeepsVisualRowsInEveryOrientation) {
  Host host;
  const UtilCallbacks* u = host.utils();
  // Whole frames, part of some rows, and whole rows (one block when the strides agree); the
  // rest of the destination is left alone.
  const VxRect whole{0, 0, 7, 5}, part_src{1, 2, 3, 4}, part_dst{0, 1, 2, 3}, rows_src{0, 1, 7, 3},
      rows_dst{0, 2, 7, 4};
  using Rects = std::pair<const VxRect*, const VxRect*>;
  for (bool src_up : {false, true})
    for (bool dst_up : {false, true})
      for (auto [s, d] : {Rects{}, Rects{&part_src, &part_dst}, Rects{&rows_src, &rows_dst}}) {
        Frame src(7, 5, kPixelFormatBGRA, src_up), dst(7, 5, kPixelFormatBGRA, dst_up);
        for (int y = 0; y < 5; ++y)
          for (int x = 0; x < 28; ++x) src.row(y)[x] = uint8_t(y * 40 + x);
        dst.Fill(1, 1, 1, 1);
        ASSERT_EQ(u->copy_layer(nullptr, src.layer(), dst.layer(), s, d), kStatusOk);
        const VxRect &sr = s ? *s : whole, &dr = d ? *d : whole;
        for (int y = 0; y < 5; ++y)
          for (int x = 0; x < 28; ++x) {
            const bool in = x / 4 >= dr.left && x / 4 < dr.right && y >= dr.top && y < dr.bottom;
            ASSERT_EQ(dst.row(y)[x],
                      in ? (y - dr.top + sr.top) * 40 + x + (sr.left - dr.left) * 4 : 1)
                << src_up << dst_up << " rect " << dr.left << "," << dr.top << " at " << x << ","
                << y;
          }
      }
  Frame up(3, 4), other_size(4, 4), other_format(3, 4, kPixelFormatVUYA);
  EXPECT_NE(u->copy_layer(nullptr, up.layer(), other_size.layer(), nullptr, nullptr), kStatusOk);
  EXPECT_NE(u->copy_layer(nullptr, up.layer(), other_format.layer(), nullptr, nullptr), kStatusOk);
  EXPECT_NE(u->copy_layer(nullptr, nullptr, up.layer(), nullptr, nullptr), kStatusOk);
}

using HostRender = StandInInstance;

TEST_F(HostRender, CopiesInputPassesParametersAndRejectsMismatchedFrames) {
  for (bool bottom_up : {true, false}) {
    Frame in(200, 100, kPixelFormatBGRA, bottom_up), out(200, 100, kPixelFormatBGRA, bottom_up);
    in.Fill(10, 20, 30, 255);
    in.row(99)[0] = 77;
    ASSERT_EQ(inst_->Render(0, in, out), kStatusOk);
    // Scale, angle and checkbox defaults, the document's first byte, and the position default:
    // 50 % of 200 x 100. The bottom row is where the input had it.
    EXPECT_EQ(std::vector<uint8_t>(out.row(0), out.row(0) + 6),
              (std::vector<uint8_t>{100, 0, 1, 'd', 100, 50}));
    EXPECT_EQ(std::tuple(out.row(99)[0], out.row(50)[1]), std::tuple(77, 20));
  }
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
  auto shown = [&] {
    return std::tuple(std::string(inst_->ui_param(kScale).name), inst_->ui_param(kScale).ui_flags);
  };
  ASSERT_EQ(inst_->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);
  EXPECT_EQ(shown(), std::tuple("Scale", 0u));
  ASSERT_EQ(inst_->SetValue(kCheck, {0, 0, false}), kStatusOk);
  ASSERT_EQ(inst_->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);
  EXPECT_EQ(shown(), std::tuple("Vertical Scale", kParamUIFlagDisabled));
  EXPECT_STREQ(module_->params()[kScale].name, "Scale");  // the declaration is untouched
  // The module sees the shown name in later calls.
  EXPECT_STREQ(inst_->ParamAt(kScale, 0).name, "Vertical Scale");
  host_.faults().missing_suites = {kParamUtilsSuiteName};
  EXPECT_EQ(inst_->Command(kCmdUpdateParamsUI, nullptr), kStatusSuiteThrew);
}

TEST_F(HostRender, DrawEventIsRecordedInViewerCoordinates) {
  host_.viewer() = {2.0, 5, 3};
  EventRecord ev{};
  ev.event_type = kEventDraw;
  ev.click_x = 10;
  ev.click_y = 7;
  ASSERT_EQ(inst_->Event(&ev), kStatusOk);
  EXPECT_EQ(ev.handled, 1);
  EXPECT_EQ(ev.context, nullptr);  // the host's context lived for the call only
  // A stroked rectangle at 10 * 2 + 5, 7 * 2 + 3, as large as the click taken back to the layer.
  const auto drawn = host_.drawn_paths();
  ASSERT_EQ(drawn.size(), 1u);
  EXPECT_EQ(std::tuple(drawn[0].fill, drawn[0].line_width, drawn[0].ops.size()),
            std::tuple(false, 2.0f, size_t(1)));
  const PathOp& op = drawn[0].ops[0];
  EXPECT_EQ(std::tuple(op.kind, op.x, op.y, op.width, op.height),
            std::tuple(PathOp::kRect, 25.f, 17.f, 10.f, 7.f));
  // The window type reaches the module, which draws only in the layer window.
  host_.ClearDrawing();
  EventRecord other{};
  other.event_type = kEventDraw;
  ASSERT_EQ(inst_->Event(&other, 0, 3), kStatusOk);
  EXPECT_TRUE(host_.drawn_paths().empty());
}
