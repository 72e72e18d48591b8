// The built module, loaded and driven by the reference host.
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
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

// The fields of a declared parameter that its type gives meaning to.
std::vector<int64_t> TypedFields(const ParamDef& p) {
  const FixedSliderDef& f = p.u.fd;
  const PointDef& t = p.u.td;
  switch (p.param_type) {
    case kParamTypeFixedSlider:
      return {f.value,      f.dephault,   f.valid_min, f.valid_max,
              f.slider_min, f.slider_max, f.precision, f.display_flags};
    case kParamTypePoint:
      return {t.x_value, t.y_value, t.x_dephault, t.y_dephault, t.restrict_bounds};
    case kParamTypeCheckbox:
      return {p.u.bd.value, p.u.bd.dephault};
    case kParamTypeAngle:
      return {p.u.ad.dephault};
    case kParamTypeArbitrary:
      return {p.u.arb_d.id, int64_t(reinterpret_cast<uintptr_t>(p.u.arb_d.refcon))};
    default:
      return {};
  }
}

TEST_F(Effect, ParamsSetupDeclaresElevenParameters) {
  auto inst = SetUpInstance();
  ASSERT_TRUE(inst);
  const std::vector<ParamDef>& p = m->params();
  ASSERT_EQ(p.size(), 11u);
  constexpr int64_t k25 = 25 << 16, k50 = 50 << 16, k100 = 100 << 16, k400 = 400 << 16;
  const struct {
    ParamType type;
    const char* name;
    uint32_t ui_flags, flags;
    std::vector<int64_t> fields;
  } kWant[] = {
      {kParamTypeArbitrary, "Source Text", kParamUIFlagControl, 0, {1, 2}},
      {kParamTypeGroupStart, "Transform", 0, 0, {}},
      {kParamTypePoint, "Position", 0, 0, {k50, k50, k50, k50, 0}},
      {kParamTypeFixedSlider, "Scale", 0, 0, {k100, k100, k25, k400, k25, k400, 0, 0}},
      {kParamTypeFixedSlider,
       "Horizontal Scale",
       kParamUIFlagDisabled,
       0,
       {k100, k100, k25, k400, k25, k400, 0, 0}},
      {kParamTypeCheckbox, "", 0, 0x42, {1, 1}},
      {kParamTypeAngle, "Rotation", 0, 0, {0}},
      {kParamTypeFixedSlider, "Opacity", 0, 0, {k100, k100, 0, k100, 0, k100, 1, 1}},
      {kParamTypePoint, "Anchor Point", 0, 0, {k50, k50, k50, k50, 0}},
      {kParamTypeGroupEnd, "", 0, 0, {}},
  };
  for (int i = 1; i < 11; ++i) {
    const auto& want = kWant[i - 1];
    EXPECT_EQ(p[i].id, i);
    EXPECT_EQ(p[i].param_type, want.type) << i;
    EXPECT_STREQ(p[i].name, want.name) << i;
    EXPECT_EQ(p[i].ui_flags, want.ui_flags) << i;
    EXPECT_EQ(p[i].flags, want.flags) << i;
    EXPECT_EQ(TypedFields(p[i]), want.fields) << i;
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

TEST_F(Effect, FailingAddOfScaleStopsSetupAndKeepsTheCount) {
  host.faults().fail_add_param_at = 3;  // Source Text, Transform, Position, then Scale
  host.faults().add_param_status = -9;
  ASSERT_EQ(m->GlobalSetup(), kStatusOk);
  const int32_t before = m->declared_param_count();
  EXPECT_EQ(m->ParamsSetup(), -9);
  EXPECT_EQ(m->declared_param_count(), before);
  EXPECT_NE(before, 11);
}

TEST_F(Effect, UniformScaleRelabelsAndDisables) {
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
}

TEST_F(Effect, ChangeNotificationNeedsTheParamUtilsSuite) {
  auto inst = SetUpInstance();
  ASSERT_TRUE(inst);
  const std::vector<uint8_t> doc = inst->ValueAt(1, 0).bytes;
  ExtraRecord change{};
  change.change.param_index = 6;
  EXPECT_EQ(inst->Command(kCmdUserChangedParam, &change), kStatusOk);
  EXPECT_EQ(inst->ValueAt(1, 0).bytes, doc);

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

TEST_F(Effect, DocumentParamThroughProjectsAndFailedAllocation) {
  auto inst = SetUpInstance();
  ASSERT_TRUE(inst);
  const std::vector<uint8_t> original = inst->ValueAt(1, 0).bytes;
  const std::vector<uint8_t> project = inst->SaveProject();
  std::string error;
  ASSERT_TRUE(inst->LoadProject(project.data(), project.size(), &error)) << error;
  EXPECT_EQ(inst->ValueAt(1, 0).bytes, original);

  vxhost::ParamValue v;
  v.bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, '{', 0};  // length field lies
  ASSERT_EQ(inst->SetValue(1, v), kStatusOk);
  EXPECT_EQ(inst->ValueAt(1, 0).bytes, v.bytes);

  host.faults().fail_alloc_after = stats().handles_allocated.load();
  vxhost::ParamValue other;
  other.bytes = {1, 2, 3};
  EXPECT_EQ(inst->SetValue(1, other), kStatusOutOfMemory);
  host.faults().fail_alloc_after = -1;
  EXPECT_EQ(inst->ValueAt(1, 0).bytes, v.bytes);
}

// The defined dynamic symbols of the module, read from its ELF dynamic symbol table.
std::set<std::string> ExportedSymbols(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  const std::string b((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  auto read = [&](auto& v, size_t at) {
    return at + sizeof v <= b.size() && std::memcpy(&v, b.data() + at, sizeof v);
  };
  std::set<std::string> names;
  Elf64_Ehdr eh;
  if (!read(eh, 0) || std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 ||
      eh.e_ident[EI_CLASS] != ELFCLASS64)
    return names;
  for (size_t i = 0; i < eh.e_shnum; ++i) {
    Elf64_Shdr sh, strtab{};
    if (!read(sh, eh.e_shoff + i * eh.e_shentsize) || sh.sh_type != SHT_DYNSYM) continue;
    read(strtab, eh.e_shoff + sh.sh_link * eh.e_shentsize);
    Elf64_Sym sym;
    for (size_t at = sh.sh_offset; at < sh.sh_offset + sh.sh_size && read(sym, at);
         at += sizeof sym) {
      if (sym.st_shndx != SHN_UNDEF && sym.st_name != 0 &&
          strtab.sh_offset + sym.st_name < b.size())
        names.insert(b.c_str() + strtab.sh_offset + sym.st_name);
    }
  }
  return names;
}

TEST(Entry, ExportsExactlyTheTwoEntryPoints) {
  const std::set<std::string> expected = {"EffectMain", "xGPUFilterEntry"};
  EXPECT_EQ(ExportedSymbols(vxhost::DefaultModulePath()), expected);
}

}  // namespace
