// The module's commands: the handlers driven in-process on the reference host's callbacks
// (document data, overlay events, the GPU filter entry, ignored commands), then the built module
// loaded and driven by the host.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "effect/lifecycle.h"
#include "engine/kte.h"
#include "exported_symbols.h"
#include "gpu/driver.h"
#include "gpu/filter.h"
#include "gpu/ksl.h"
#include "host_helpers.h"
#include "overlay/events.h"
#include "vetext/host/host.h"

namespace {

const VxHandle kStale = reinterpret_cast<VxHandle>(0x1);  // a result slot not yet written
const std::vector<uint8_t> kBlock = {6, 0, 0, 0, 0, 0, 0, 0, '{', 0, '}', 0, 0xFF, 0xFE};

// The reference host's handle callbacks, with its counters and allocation failure switch.
struct Handlers : testing::Test {
  vxhost::Host host;
  const UtilCallbacks& u = *host.utils();
  InputRecord in{&u};
  OutputRecord out{};
  ArbRequestRecord last{};  // the last document-data request as the handler left it

  vxhost::HostStats& stats() { return host.stats(); }
  int64_t Live() { return stats().live_handles.load(); }
  void NoMemory(bool on) {
    host.faults().fail_alloc_after = on ? stats().handles_allocated.load() : -1;
  }
  VxHandle HandleOf(const std::vector<uint8_t>& bytes) {
    VxHandle h = u.new_handle(bytes.size());
    std::copy(bytes.begin(), bytes.end(), static_cast<uint8_t*>(*h));
    return h;
  }
  std::vector<uint8_t> BytesOf(VxHandle h) {
    return {static_cast<uint8_t*>(*h), static_cast<uint8_t*>(*h) + u.get_handle_size(h)};
  }
  VxStatus Run(EffectCommand cmd, ExtraRecord* extra = nullptr) {
    return vetext::Dispatch(cmd, &in, &out, nullptr, nullptr, extra);
  }
  // One document-data request.
  using Request = decltype(ArbRequestRecord::u);
  VxStatus Arb(int32_t selector, uint64_t refcon, Request request) {
    ExtraRecord extra{};
    extra.arb = {selector, 0, refcon, request};
    const VxStatus st = Run(kCmdArbitraryCallback, &extra);
    last = extra.arb;
    return st;
  }
};

TEST_F(Handlers, RequestsThatMakeAValue) {
  // What the result slot receives: the value's bytes in new memory, an empty handle, null, or
  // nothing at all.
  enum Result { kBytes, kEmpty, kNull, kUntouched };
  // selector, reference constant, empty value, no memory -> status, result
  const std::tuple<int32_t, uint64_t, bool, bool, VxStatus, Result> kCases[] = {
      // Create honours the constant, but a foreign parameter still gets its empty value.
      {kArbNew, 1, false, false, kStatusOk, kEmpty},
      {kArbNew, 2, false, false, kStatusOk, kEmpty},
      {kArbNew, 3, false, false, kStatusStructDamaged, kEmpty},
      {kArbNew, 2, false, true, kStatusOutOfMemory, kNull},
      {kArbCopy, 1, false, false, kStatusOk, kBytes},
      {kArbCopy, 9, false, false, kStatusOk, kUntouched},  // a foreign copy succeeds
      {kArbCopy, 2, false, true, kStatusOutOfMemory, kNull},
      {kArbUnflatten, 77, false, false, kStatusOk, kBytes},  // ignores the constant
      {kArbUnflatten, 77, false, true, kStatusOutOfMemory, kNull},
      // A text document holds its value until the next keyframe: the earlier one.
      {kArbInterpolate, 2, false, false, kStatusOk, kBytes},
      {kArbInterpolate, 2, true, false, kStatusOk, kUntouched},
      {kArbInterpolate, 2, false, true, kStatusOk, kNull},
      // Compare, print and unknown selectors do nothing.
      {kArbCompare, 2, false, false, kStatusOk, kUntouched},
      {kArbPrint, 2, false, false, kStatusOk, kUntouched},
      {100, 2, false, false, kStatusOk, kUntouched},
      {-1, 2, false, false, kStatusOk, kUntouched},
  };
  for (const auto& [selector, refcon, empty_value, no_memory, status, want] : kCases) {
    SCOPED_TRACE(testing::Message() << selector << " " << refcon << " " << no_memory);
    const std::vector<uint8_t> bytes = empty_value ? std::vector<uint8_t>{} : kBlock;
    VxHandle value = HandleOf(bytes), later = HandleOf({9, 9}), result = kStale;
    NoMemory(no_memory);
    const Request request =
        selector == kArbNew    ? Request{.create = {&result}}
        : selector == kArbCopy ? Request{.copy = {value, &result}}
        : selector == kArbUnflatten
            ? Request{.unflatten = {uint32_t(bytes.size()), 0, bytes.data(), &result}}
            : Request{.interpolate = {value, later, 0.5, &result}};
    EXPECT_EQ(Arb(selector, refcon, request), status);
    NoMemory(false);
    EXPECT_EQ(result == kStale, want == kUntouched);
    EXPECT_EQ(result == nullptr, want == kNull);
    if (result != nullptr && result != kStale) {
      EXPECT_EQ(BytesOf(result), want == kBytes ? bytes : std::vector<uint8_t>{});
      EXPECT_NE(*result, *value);
      u.dispose_handle(result);
    }
    for (VxHandle h : {value, later}) u.dispose_handle(h);
  }
  EXPECT_EQ(Live(), 0);
}

TEST_F(Handlers, DisposeSizeAndFlatten) {
  // Dispose honours the constant: a foreign value is left alone.
  VxHandle value = HandleOf(kBlock);
  EXPECT_EQ(Arb(kArbDispose, 3, {.dispose = {value}}), kStatusStructDamaged);
  EXPECT_EQ(Live(), 1);
  // Size and flatten ignore the constant; flatten copies what both the value and the buffer
  // hold, and nothing past it.
  uint32_t size = 0;
  EXPECT_EQ(Arb(kArbFlatSize, 77, {.flat_size = {value, &size}}), kStatusOk);
  EXPECT_EQ(size, kBlock.size());
  for (uint32_t buf_size : {size - 4, size, 64u}) {
    std::vector<uint8_t> flat(65, 0xAA);
    EXPECT_EQ(Arb(kArbFlatten, 7, {.flatten = {value, buf_size, 0, flat.data()}}), kStatusOk);
    const size_t n = std::min<size_t>(buf_size, kBlock.size());
    EXPECT_TRUE(std::equal(kBlock.begin(), kBlock.begin() + n, flat.begin())) << buf_size;
    EXPECT_EQ(flat[n], 0xAA) << buf_size;
  }
  EXPECT_EQ(Arb(kArbDispose, 2, {.dispose = {value}}), kStatusOk);
  EXPECT_EQ(last.u.dispose.handle, nullptr);
  EXPECT_EQ(Live(), 0);
}

TEST(Dispatch, IgnoredCommandsReadNothing) {
  // Codes the module has no use for and codes past the table: with null records, any read fails.
  for (EffectCommand cmd :
       {0u, 2u, 6u, 7u, 9u, 10u, 12u, 16u, 17u, 18u, 19u, 20u, 21u, 23u, 0xFFFFFFFFu})
    EXPECT_EQ(vetext::Dispatch(cmd, nullptr, nullptr, nullptr, nullptr, nullptr), kStatusOk) << cmd;
}

TEST_F(Handlers, SequenceHandles) {
  EXPECT_EQ(Run(kCmdSequenceSetup), kStatusOk);
  ASSERT_NE(out.sequence_data, nullptr);
  EXPECT_EQ(u.get_handle_size(out.sequence_data), 1u);
  in.sequence_data = out.sequence_data;
  EXPECT_EQ(Run(kCmdSequenceSetdown), kStatusOk);
  EXPECT_EQ(Live(), 0);
  in.sequence_data = nullptr;  // null: nothing is called
  EXPECT_EQ(Run(kCmdSequenceSetdown), kStatusOk);
  NoMemory(true);
  out.sequence_data = kStale;
  EXPECT_EQ(Run(kCmdSequenceSetup), kStatusStructDamaged);
  EXPECT_EQ(out.sequence_data, nullptr);
}

TEST(Overlay, EventRoutingAndGates) {
  constexpr int32_t kAny = -1, kSent = 5;  // handled: not looked at, as sent
  const int64_t kBefore = 123, kClicked = vetext::PackPoint(-14, 70);
  // Window 0 is the program viewer. Every event is sent at (-7, 30) with cursor 44 and handled 5.
  // window, event, parameter, drag, editing -> event, handled, cursor, editing, click point
  const std::tuple<int32_t, int32_t, int32_t, bool, bool, int32_t, int32_t, int32_t, bool, int64_t>
      kCases[] = {
          {0, kEventActivate, 1, false, true, kEventActivate, kSent, 44, false, kBefore},
          // A click on the Source Text stops editing and keeps the point in layer pixels.
          {0, kEventClick, 1, false, true, kEventClick, kAny, 44, false, kClicked},
          // Not a click: a drag, which extends the selection while editing.
          {0, kEventClick, 1, true, true, kEventDrag, 1, 44, true, kBefore},
          {1, kEventClick, 1, false, true, kEventClick, kSent, 44, true, kBefore},
          // Draws are consumed in the viewer only, cursor events anywhere (cleared in the viewer).
          {0, kEventDraw, 1, false, true, kEventDraw, 1, 44, true, kBefore},
          {0, kEventDraw, 7, false, false, kEventDraw, 1, 44, false, kBefore},
          {2, kEventDraw, 1, false, false, kEventDraw, kSent, 44, false, kBefore},
          {0, kEventAdjustCursor, 1, false, false, kEventAdjustCursor, 1, 0, false, kBefore},
          {0, kEventAdjustCursor, 2, false, true, kEventAdjustCursor, 1, 0, true, kBefore},
          {3, kEventAdjustCursor, 2, false, false, kEventAdjustCursor, 1, 44, false, kBefore},
          {0, 6, 2, false, false, 6, kSent, 44, false, kBefore},
      };
  for (const auto& [window, type, param, drag, editing, type_after, handled, cursor, editing_after,
                    click] : kCases) {
    SCOPED_TRACE(testing::Message() << window << " " << type << " " << param);
    EventContext ctx{nullptr, window, 0};
    EventContext* ctx_ptr = &ctx;
    EventCallbacks callbacks{};
    callbacks.viewer_to_layer = [](void*, VxFixed* x, VxFixed* y) -> VxStatus {
      *x *= 2, *y = *y * 2 + (10 << 16);  // a viewer at half size, 10 pixels down
      return 0;
    };
    ExtraRecord extra{.event = {&ctx_ptr, type, -7, 30, drag, {}, param, 44, kSent, &callbacks}};
    const EventRecord& ev = extra.event;
    vetext::SetEditingFlag(editing);
    vetext::SetLastClickPoint(kBefore);
    EXPECT_EQ(vetext::Dispatch(kCmdEvent, nullptr, nullptr, nullptr, nullptr, &extra), kStatusOk);
    EXPECT_EQ(ev.event_type, type_after);
    EXPECT_TRUE(handled == kAny || ev.handled == handled) << ev.handled;
    EXPECT_EQ(ev.cursor, cursor);
    EXPECT_EQ(vetext::EditingFlag(), editing_after);
    EXPECT_EQ(vetext::LastClickPoint(), click);
  }
  vetext::SetEditingFlag(false);

  const int32_t expected[14] = {0, 25, 27, 27, 25, 24, 24, 26, 26, 35, 29, 33, 31, 0};
  for (int32_t zone = 0; zone <= 13; ++zone) EXPECT_EQ(vetext::CursorForZone(zone), expected[zone]);
}

TEST(GPUFilterEntry, EnumeratesExactlyOneFilter) {
  // startup, index asked -> status, index after (-1 asks for the first filter). Only a startup
  // fills the functions; only a filter found fills the information.
  const int32_t kCases[][4] = {
      {1, -1, kGPUOk, 0}, {1, 0, kGPUOk, 0}, {1, 1, kErrNoMoreFilters, 1}, {0, -1, kGPUOk, -1}};
  const GPUFilterInfo filter{2, {}};
  for (const auto& [startup, asked, status, after] : kCases) {
    GPUFilterFunctions fns{};
    GPUFilterInfo info;
    std::memset(&info, 0x77, sizeof info);
    int32_t index = asked;
    EXPECT_EQ(vetext::GPUFilterEntry(0, &index, uint32_t(startup), 0, &fns, &info), status);
    EXPECT_EQ(index, after) << startup << " " << asked;
    EXPECT_EQ(fns.create_instance != nullptr && fns.render != nullptr, startup == 1);
    EXPECT_EQ(std::memcmp(&info, &filter, sizeof info) == 0, startup == 1 && status == kGPUOk);
    // The enumeration-only twin answers the same without touching a table.
    if (startup == 1) {
      int32_t twin_index = asked;
      GPUFilterInfo twin;
      std::memset(&twin, 0x77, sizeof twin);
      EXPECT_EQ(vetext::GPUFilterEnumerate(&twin_index, &twin), status);
      EXPECT_EQ(twin_index, after);
      EXPECT_EQ(std::memcmp(&info, &twin, sizeof info), 0);
    }
  }
}

TEST(GPUFilterEntry, StartsTheDriverOnceAndWorksWithoutOne) {
  // Entry calls on several threads at once: the guarded start runs exactly once, and on a
  // machine without a GPU (no primary device) it loads nothing and every call still succeeds.
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      GPUFilterFunctions fns{};
      GPUFilterInfo info{};
      int32_t index = -1;
      if (vetext::GPUFilterEntry(0, &index, 1, 0, &fns, &info) != kGPUOk) ++failures;
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(vetext::DriverInitRuns(), 1);
  if (!GF::GetPrimaryDevice()) {
    EXPECT_EQ(vetext::DriverLoadResult(), -1);
  }

  GPUFilterFunctions fns{};
  GPUFilterInfo info{};
  int32_t index = 0;
  ASSERT_EQ(vetext::GPUFilterEntry(0, &index, 1, 0, &fns, &info), kGPUOk);
  GPUInstanceRecord rec{};  // no suites: instances are still made and disposed
  auto slot = [&rec] {      // the slot is not aligned for a pointer: read it bytewise
    void* p = nullptr;
    std::memcpy(&p, reinterpret_cast<const char*>(&rec) + offsetof(GPUInstanceRecord, private_slot),
                sizeof p);
    return p;
  };
  ASSERT_EQ(fns.create_instance(&rec), kGPUOk);
  EXPECT_NE(slot(), nullptr);
  GPURenderParams params{};
  int32_t query = 0;
  GPUDependency dep{};
  // Without suites the render cannot read its document: a null interface, reported as failure.
  EXPECT_EQ(fns.query_dependency(&rec, &params, &query, &dep), kErrGeneric);
  EXPECT_EQ(fns.dispose_instance(&rec), kGPUOk);
  EXPECT_EQ(slot(), nullptr);
  EXPECT_EQ(fns.dispose_instance(&rec), kGPUOk);  // twice is harmless
  EXPECT_STREQ(KSL::NullInterfaceException().what(),
               "A NULL interface pointer has been dereferenced.");

  // The render quality as the draw's interpolation mode.
  const int32_t kQuality[][2] = {{-1, -1}, {0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 1}, {7, 1}};
  for (const auto& [quality, mode] : kQuality) EXPECT_EQ(vetext::InterpolationFor(quality), mode);
}

// ---- the built module ----

[[maybe_unused]] const int kFontConfig =
    (setenv("FONTCONFIG_FILE", VETEXT_SOURCE_DIR "/fonts/fonts.conf", 0), 0);

// A host with the module loaded; faults are switched on before the command they are meant for.
struct Effect : Handlers {
  std::unique_ptr<vxhost::Module> m = vetext_test::LoadModule(host, vxhost::DefaultModulePath());
  void SetUp() override { ASSERT_TRUE(m); }
  std::unique_ptr<vxhost::Instance> SetUpInstance() {
    EXPECT_EQ(m->Setup(), kStatusOk);
    return m->CreateInstance();
  }
};

TEST_F(Effect, SetupDeclaresTheEffectAndTeardownLeavesNothing) {
  ASSERT_EQ(m->GlobalSetup(), kStatusOk);
  const OutputRecord& out = m->last_output();
  EXPECT_EQ(out.out_flags & kEffectGlobalOutFlags, kEffectGlobalOutFlags);
  EXPECT_EQ(out.out_flags & kOutFlagDisplayMessage, 0u);
  EXPECT_EQ(out.my_version, kEffectVersionWord);
  EXPECT_EQ(m->supported_formats(), std::vector<uint32_t>{kPixelFormatBGRA});
  EXPECT_EQ(stats().registrations.load(), 1);
  EXPECT_EQ(stats().live_handles.load(), 1);  // the global data
  ASSERT_EQ(m->ParamsSetup(), kStatusOk);
  EXPECT_EQ(m->declared_param_count(), 11);
  ASSERT_EQ(m->GlobalSetdown(), kStatusOk);
  EXPECT_EQ(stats().registrations.load(), 0);
  m.reset();
  EXPECT_EQ(stats().live_handles.load(), 0);
  EXPECT_EQ(stats().suites_acquired.load(), stats().suites_released.load());
}

TEST_F(Effect, FailedSetupUnregistersAndKeepsNothing) {
  // A refused registration, then no memory for the global data.
  for (bool refused : {true, false}) {
    host.faults().registration_status = refused ? 7 : 0;
    host.faults().fail_alloc_after = refused ? -1 : 0;
    EXPECT_EQ(m->GlobalSetup(), refused ? 7 : kStatusOutOfMemory);
    EXPECT_NE(m->last_output().out_flags & kOutFlagDisplayMessage, 0u);
    EXPECT_STREQ(m->last_output().message, "Text could not be initialized.");
    EXPECT_EQ(stats().handles_allocated.load(), 0);
    EXPECT_EQ(stats().registrations.load(), 0);
    EXPECT_EQ(m->last_output().global_data, nullptr);
  }
}

TEST_F(Effect, MissingPixelFormatSuiteStillSetsUp) {
  host.faults().missing_suites = {"PF Pixel Format Suite"};
  EXPECT_EQ(m->GlobalSetup(), kStatusOk);
  EXPECT_NE(m->last_output().out_flags & kOutFlagDisplayMessage, 0u);
  EXPECT_STREQ(m->last_output().message, "Not able to acquire VEFX Suite.");
  EXPECT_TRUE(m->supported_formats().empty());
  EXPECT_EQ(m->ParamsSetup(), kStatusOk);
}

// What the host learns of a declared parameter: type, flags, and the fields its type gives
// meaning to.
std::vector<int64_t> Declared(const ParamDef& p) {
  std::vector<int64_t> v = {p.param_type, p.ui_flags, p.flags};
  const FixedSliderDef& f = p.u.fd;
  const PointDef& t = p.u.td;
  if (p.param_type == kParamTypeFixedSlider)
    v.insert(v.end(), {f.value, f.dephault, f.valid_min, f.valid_max, f.slider_min, f.slider_max,
                       f.precision, f.display_flags});
  else if (p.param_type == kParamTypePoint)
    v.insert(v.end(), {t.x_value, t.y_value, t.x_dephault, t.y_dephault, t.restrict_bounds});
  else if (p.param_type == kParamTypeCheckbox)
    v.insert(v.end(), {p.u.bd.value, p.u.bd.dephault});
  else if (p.param_type == kParamTypeAngle)
    v.push_back(p.u.ad.dephault);
  else if (p.param_type == kParamTypeArbitrary)
    v.insert(v.end(), {p.u.arb_d.id, int64_t(reinterpret_cast<uintptr_t>(p.u.arb_d.refcon))});
  return v;
}

TEST_F(Effect, ParamsSetupDeclaresElevenParameters) {
  auto inst = SetUpInstance();
  ASSERT_TRUE(inst);
  const std::vector<ParamDef>& p = m->params();
  ASSERT_EQ(p.size(), 11u);
  constexpr int64_t k25 = 25 << 16, k50 = 50 << 16, k100 = 100 << 16, k400 = 400 << 16;
  const std::pair<std::string, std::vector<int64_t>> kWant[] = {
      {"Source Text", {kParamTypeArbitrary, kParamUIFlagControl, 0, 1, 2}},
      {"Transform", {kParamTypeGroupStart, 0, 0}},
      {"Position", {kParamTypePoint, 0, 0, k50, k50, k50, k50, 0}},
      {"Scale", {kParamTypeFixedSlider, 0, 0, k100, k100, k25, k400, k25, k400, 0, 0}},
      {"Horizontal Scale",
       {kParamTypeFixedSlider, kParamUIFlagDisabled, 0, k100, k100, k25, k400, k25, k400, 0, 0}},
      {"", {kParamTypeCheckbox, 0, 0x42, 1, 1}},
      {"Rotation", {kParamTypeAngle, 0, 0, 0}},
      {"Opacity", {kParamTypeFixedSlider, 0, 0, k100, k100, 0, k100, 0, k100, 1, 1}},
      {"Anchor Point", {kParamTypePoint, 0, 0, k50, k50, k50, k50, 0}},
      {"", {kParamTypeGroupEnd, 0, 0}}};
  for (int i = 1; i < 11; ++i) {
    EXPECT_EQ(p[i].id, i);
    EXPECT_EQ(std::pair(std::string(p[i].name), Declared(p[i])), kWant[i - 1]) << i;
  }
  EXPECT_STREQ(p[6].u.bd.name, "Uniform Scale");
  // The Source Text default is the default document written out in full.
  EXPECT_EQ(inst->ValueAt(1, 0).bytes, KTE::WriteDocument(*KTE::MakeDefaultDocument()));

  // The labels the host finds in the table registered at global setup.
  const std::pair<int32_t, std::string> kLabels[] = {
      {1, "Vertical Scale"}, {10, ""}, {22, "Tsume %"}, {40, "Anchor Point"}};
  for (const auto& [index, text] : kLabels) EXPECT_EQ(m->LookupLabel(index), text) << index;
}

TEST_F(Effect, FailedParamsSetupKeepsTheCount) {
  host.faults().fail_add_param_at = 3;  // Source Text, Transform, Position, then Scale
  host.faults().add_param_status = -9;
  ASSERT_EQ(m->GlobalSetup(), kStatusOk);
  const int32_t before = m->declared_param_count();
  EXPECT_NE(before, 11);
  // No memory for the Source Text default, then the failing add.
  NoMemory(true);
  EXPECT_EQ(m->ParamsSetup(), kStatusOutOfMemory);
  NoMemory(false);
  EXPECT_EQ(m->ParamsSetup(), -9);
  EXPECT_EQ(m->declared_param_count(), before);
}

TEST_F(Effect, ParamUtilsSuiteRelabelsScaleAndIsNeededForChanges) {
  auto inst = SetUpInstance();
  ASSERT_TRUE(inst);
  for (bool uniform : {false, true, false}) {
    vxhost::ParamValue v;
    v.flag = uniform;
    ASSERT_EQ(inst->SetValue(6, v), kStatusOk);
    ASSERT_EQ(inst->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);
    EXPECT_STREQ(inst->ui_param(4).name, uniform ? "Scale" : "Vertical Scale");
    EXPECT_EQ(inst->ui_param(5).ui_flags, uniform ? uint32_t{kParamUIFlagDisabled} : 0u);
  }
  EXPECT_EQ(stats().suites_acquired.load(), stats().suites_released.load());
  ExtraRecord change{.change = {6}};
  EXPECT_EQ(inst->Command(kCmdUserChangedParam, &change), kStatusOk);

  // A null suite: success, and nothing is released.
  host.faults().null_suites = {"PF Param Utils Suite"};
  const int64_t released = stats().suites_released.load();
  EXPECT_EQ(inst->Command(kCmdUserChangedParam, &change), kStatusOk);
  EXPECT_EQ(stats().suites_released.load(), released);
  EXPECT_EQ(inst->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);

  // A missing suite: status 13 and the message.
  host.faults().null_suites.clear();
  host.faults().missing_suites = {"PF Param Utils Suite"};
  EXPECT_EQ(inst->Command(kCmdUserChangedParam, &change), kStatusSuiteThrew);
  EXPECT_STREQ(inst->last_output().message, "Not able to acquire VEFX Suite.");
  EXPECT_EQ(inst->Command(kCmdUpdateParamsUI, nullptr), kStatusSuiteThrew);
}

TEST(Entry, ExportsExactlyTheTwoEntryPoints) {
  const std::set<std::string> expected = {"EffectMain", "xGPUFilterEntry"};
  EXPECT_EQ(vetext_test::ExportedSymbols(vxhost::DefaultModulePath()), expected);
}

}  // namespace
