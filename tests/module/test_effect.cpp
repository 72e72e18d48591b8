// The built module, loaded and driven by the reference host.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "engine/kte.h"
#include "host_helpers.h"
#include "vetext/host/host.h"

namespace {

[[maybe_unused]] const int kFontConfig =
    (setenv("FONTCONFIG_FILE", VETEXT_SOURCE_DIR "/fonts/fonts.conf", 0), 0);

// A host with the module loaded; faults are switched on before the command they are meant for.
struct Effect : testing::Test {
  vxhost::Host host;
  std::unique_ptr<vxhost::Module> m = vetext_test::LoadModule(host, vxhost::DefaultModulePath());
  void SetUp() override { ASSERT_TRUE(m); }
  std::unique_ptr<vxhost::Instance> SetUpInstance() {
    EXPECT_EQ(m->Setup(), kStatusOk);
    return m->CreateInstance();
  }
  vxhost::HostStats& stats() { return host.stats(); }
};

std::string Message(const OutputRecord& out) {
  return std::string(out.message, strnlen(out.message, sizeof out.message));
}

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
    EXPECT_EQ(Message(m->last_output()), "Text could not be initialized.");
    EXPECT_EQ(stats().handles_allocated.load(), 0);
    EXPECT_EQ(stats().registrations.load(), 0);
    EXPECT_EQ(m->last_output().global_data, nullptr);
  }
}

TEST_F(Effect, MissingPixelFormatSuiteStillSetsUp) {
  host.faults().missing_suites = {"PF Pixel Format Suite"};
  EXPECT_EQ(m->GlobalSetup(), kStatusOk);
  EXPECT_NE(m->last_output().out_flags & kOutFlagDisplayMessage, 0u);
  EXPECT_EQ(Message(m->last_output()), "Not able to acquire VEFX Suite.");
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
  const int64_t kDisabled = kParamUIFlagDisabled, kControl = kParamUIFlagControl;
  const std::pair<std::string, std::vector<int64_t>> kWant[] = {
      {"Source Text", {kParamTypeArbitrary, kControl, 0, 1, 2}},
      {"Transform", {kParamTypeGroupStart, 0, 0}},
      {"Position", {kParamTypePoint, 0, 0, k50, k50, k50, k50, 0}},
      {"Scale", {kParamTypeFixedSlider, 0, 0, k100, k100, k25, k400, k25, k400, 0, 0}},
      {"Horizontal Scale",
       {kParamTypeFixedSlider, kDisabled, 0, k100, k100, k25, k400, k25, k400, 0, 0}},
      {"", {kParamTypeCheckbox, 0, 0x42, 1, 1}},
      {"Rotation", {kParamTypeAngle, 0, 0, 0}},
      {"Opacity", {kParamTypeFixedSlider, 0, 0, k100, k100, 0, k100, 0, k100, 1, 1}},
      {"Anchor Point", {kParamTypePoint, 0, 0, k50, k50, k50, k50, 0}},
      {"", {kParamTypeGroupEnd, 0, 0}}};
  for (int i = 1; i < 11; ++i) {
    EXPECT_EQ(p[i].id, i);
    EXPECT_EQ(std::pair(std::string(p[i].name), Declared(p[i])), kWant[i - 1]) << i;
  }
  ASSERT_NE(p[6].u.bd.name, nullptr);
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
  host.faults().fail_alloc_after = stats().handles_allocated.load();
  EXPECT_EQ(m->ParamsSetup(), kStatusOutOfMemory);
  host.faults().fail_alloc_after = -1;
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
  ExtraRecord change{};
  change.change.param_index = 6;
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
  EXPECT_EQ(Message(inst->last_output()), "Not able to acquire VEFX Suite.");
  EXPECT_EQ(inst->Command(kCmdUpdateParamsUI, nullptr), kStatusSuiteThrew);
}

// The defined dynamic symbols of the module, as binutils reads its dynamic symbol table.
std::set<std::string> ExportedSymbols(const std::string& path) {
  std::set<std::string> names;
  FILE* nm = popen(("nm -D --defined-only --format=just-symbols '" + path + "'").c_str(), "r");
  char line[512];
  while (nm != nullptr && std::fgets(line, sizeof line, nm) != nullptr)
    names.insert(std::string(line, std::strcspn(line, "\n")));
  EXPECT_TRUE(nm != nullptr && pclose(nm) == 0) << "nm failed on " << path;
  return names;
}

TEST(Entry, ExportsExactlyTheTwoEntryPoints) {
  const std::set<std::string> expected = {"EffectMain", "xGPUFilterEntry"};
  EXPECT_EQ(ExportedSymbols(vxhost::DefaultModulePath()), expected);
}

}  // namespace
