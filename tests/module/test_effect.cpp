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

std::unique_ptr<vxhost::Module> Load(vxhost::Host& host) {
  return vetext_test::LoadModule(host, vxhost::DefaultModulePath());
}

std::string Message(const OutputRecord& out) {
  return std::string(out.message, strnlen(out.message, sizeof out.message));
}

TEST(Lifecycle, SetupDeclaresTheEffectAndTeardownLeavesNothing) {
  vxhost::Host host;
  {
    auto m = Load(host);
    ASSERT_TRUE(m);
    ASSERT_EQ(m->GlobalSetup(), kStatusOk);
    const OutputRecord& out = m->last_output();
    EXPECT_EQ(out.out_flags & kEffectGlobalOutFlags, kEffectGlobalOutFlags);
    EXPECT_EQ(out.out_flags & kOutFlagDisplayMessage, 0u);
    EXPECT_EQ(out.my_version, kEffectVersionWord);
    EXPECT_EQ(m->supported_formats(), std::vector<uint32_t>{kPixelFormatBGRA});
    EXPECT_EQ(host.stats().registrations.load(), 1);
    EXPECT_EQ(host.stats().live_handles.load(), 1);  // the global data
    ASSERT_EQ(m->ParamsSetup(), kStatusOk);
    EXPECT_EQ(m->declared_param_count(), 11);
    ASSERT_EQ(m->GlobalSetdown(), kStatusOk);
    EXPECT_EQ(host.stats().registrations.load(), 0);
  }
  EXPECT_EQ(host.stats().live_handles.load(), 0);
  EXPECT_EQ(host.stats().suites_acquired.load(), host.stats().suites_released.load());
}

TEST(Lifecycle, RegistrationFailureAllocatesNothing) {
  vxhost::Host host;
  host.faults().registration_status = 7;
  auto m = Load(host);
  ASSERT_TRUE(m);
  EXPECT_EQ(m->GlobalSetup(), 7);
  EXPECT_NE(m->last_output().out_flags & kOutFlagDisplayMessage, 0u);
  EXPECT_EQ(Message(m->last_output()), "Text could not be initialized.");
  EXPECT_EQ(host.stats().handles_allocated.load(), 0);
  EXPECT_EQ(host.stats().registrations.load(), 0);
  EXPECT_EQ(m->last_output().global_data, nullptr);
}

TEST(Lifecycle, NoMemoryForGlobalDataUnregisters) {
  vxhost::Host host;
  host.faults().fail_alloc_after = 0;
  auto m = Load(host);
  ASSERT_TRUE(m);
  EXPECT_EQ(m->GlobalSetup(), kStatusOutOfMemory);
  EXPECT_EQ(Message(m->last_output()), "Text could not be initialized.");
  EXPECT_EQ(host.stats().registrations.load(), 0);
  EXPECT_EQ(host.stats().live_handles.load(), 0);
}

TEST(Lifecycle, MissingPixelFormatSuiteStillSetsUp) {
  vxhost::Host host;
  host.faults().missing_suites = {"PF Pixel Format Suite"};
  auto m = Load(host);
  ASSERT_TRUE(m);
  EXPECT_EQ(m->GlobalSetup(), kStatusOk);
  EXPECT_NE(m->last_output().out_flags & kOutFlagDisplayMessage, 0u);
  EXPECT_EQ(Message(m->last_output()), "Not able to acquire VEFX Suite.");
  EXPECT_TRUE(m->supported_formats().empty());
  EXPECT_EQ(m->ParamsSetup(), kStatusOk);
}

TEST(Params, ElevenParametersWithLabelsDefaultsAndRanges) {
  vxhost::Host host;
  auto m = Load(host);
  ASSERT_TRUE(m);
  ASSERT_EQ(m->Setup(), kStatusOk);
  const std::vector<ParamDef>& p = m->params();
  ASSERT_EQ(p.size(), 11u);
  const char* names[] = {"",        "Source Text",      "Transform", "Position",
                         "Scale",   "Horizontal Scale", "",          "Rotation",
                         "Opacity", "Anchor Point",     ""};
  const ParamType types[] = {kParamTypeLayer,    kParamTypeArbitrary,   kParamTypeGroupStart,
                             kParamTypePoint,    kParamTypeFixedSlider, kParamTypeFixedSlider,
                             kParamTypeCheckbox, kParamTypeAngle,       kParamTypeFixedSlider,
                             kParamTypePoint,    kParamTypeGroupEnd};
  for (int i = 1; i < 11; ++i) {
    EXPECT_EQ(p[i].id, i);
    EXPECT_STREQ(p[i].name, names[i]) << i;
    EXPECT_EQ(p[i].param_type, types[i]) << i;
  }
  EXPECT_EQ(p[1].ui_flags, uint32_t{kParamUIFlagControl});
  EXPECT_EQ(p[1].u.arb_d.id, 1);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p[1].u.arb_d.refcon), 2u);
  EXPECT_EQ(p[3].u.td.x_dephault, 50 << 16);
  EXPECT_EQ(p[3].u.td.y_dephault, 50 << 16);
  EXPECT_EQ(p[3].u.td.restrict_bounds, 0);
  EXPECT_EQ(p[4].u.fd.dephault, 100 << 16);
  EXPECT_EQ(p[4].u.fd.valid_min, 25 << 16);
  EXPECT_EQ(p[4].u.fd.valid_max, 400 << 16);
  EXPECT_EQ(p[4].u.fd.slider_max, 400 << 16);
  EXPECT_EQ(p[4].u.fd.display_flags, 0);
  EXPECT_EQ(p[4].ui_flags, 0u);
  EXPECT_EQ(p[5].ui_flags, uint32_t{kParamUIFlagDisabled});
  EXPECT_EQ(p[6].flags, 0x42u);
  EXPECT_EQ(p[6].u.bd.value, 1);
  EXPECT_EQ(p[6].u.bd.dephault, 1);
  ASSERT_NE(p[6].u.bd.name, nullptr);
  EXPECT_STREQ(p[6].u.bd.name, "Uniform Scale");
  EXPECT_EQ(p[7].u.ad.dephault, 0);
  EXPECT_EQ(p[8].u.fd.valid_min, 0);
  EXPECT_EQ(p[8].u.fd.valid_max, 100 << 16);
  EXPECT_EQ(p[8].u.fd.precision, 1);
  EXPECT_EQ(p[8].u.fd.display_flags, 1);
  for (int i = 2; i < 11; ++i) EXPECT_EQ(p[i].flags, i == 6 ? 0x42u : 0u) << i;

  EXPECT_EQ(m->LookupLabel(1), "Vertical Scale");
  EXPECT_EQ(m->LookupLabel(10), "");
  EXPECT_EQ(m->LookupLabel(22), "Tsume %");
  EXPECT_EQ(m->LookupLabel(40), "Anchor Point");

  // The Source Text default is the default document written out in full.
  auto inst = m->CreateInstance();
  ASSERT_TRUE(inst);
  EXPECT_EQ(inst->ValueAt(1, 0).bytes, KTE::WriteDocument(*KTE::MakeDefaultDocument()));
}

TEST(Params, FailingAddOfScaleStopsSetupAndKeepsTheCount) {
  vxhost::Host host;
  host.faults().fail_add_param_at = 3;  // Source Text, Transform, Position, then Scale
  host.faults().add_param_status = -9;
  auto m = Load(host);
  ASSERT_TRUE(m);
  ASSERT_EQ(m->GlobalSetup(), kStatusOk);
  const int32_t before = m->declared_param_count();
  EXPECT_EQ(m->ParamsSetup(), -9);
  EXPECT_EQ(m->declared_param_count(), before);
  EXPECT_NE(before, 11);
}

TEST(Params, UniformScaleOffRelabelsAndEnables) {
  vxhost::Host host;
  auto m = Load(host);
  ASSERT_TRUE(m);
  ASSERT_EQ(m->Setup(), kStatusOk);
  auto inst = m->CreateInstance();
  ASSERT_TRUE(inst);
  vxhost::ParamValue off;
  off.flag = false;
  ASSERT_EQ(inst->SetValue(6, off), kStatusOk);
  ASSERT_EQ(inst->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);
  EXPECT_STREQ(inst->ui_param(4).name, "Vertical Scale");
  EXPECT_EQ(inst->ui_param(5).ui_flags, 0u);
  EXPECT_STREQ(inst->ui_param(5).name, "Horizontal Scale");
  EXPECT_DOUBLE_EQ(inst->ValueAt(4, 0).x, 100.0);
  EXPECT_DOUBLE_EQ(inst->ValueAt(5, 0).x, 100.0);

  vxhost::ParamValue on;
  on.flag = true;
  ASSERT_EQ(inst->SetValue(6, on), kStatusOk);
  ASSERT_EQ(inst->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);
  EXPECT_STREQ(inst->ui_param(4).name, "Scale");
  EXPECT_EQ(inst->ui_param(5).ui_flags, uint32_t{kParamUIFlagDisabled});
  EXPECT_EQ(host.stats().suites_acquired.load(), host.stats().suites_released.load());
}

TEST(Params, ChangeNotificationNeedsTheParamUtilsSuite) {
  vxhost::Host host;
  auto m = Load(host);
  ASSERT_TRUE(m);
  ASSERT_EQ(m->Setup(), kStatusOk);
  auto inst = m->CreateInstance();
  ASSERT_TRUE(inst);
  const std::vector<uint8_t> doc = inst->ValueAt(1, 0).bytes;
  ExtraRecord change{};
  change.change.param_index = 6;
  EXPECT_EQ(inst->Command(kCmdUserChangedParam, &change), kStatusOk);
  EXPECT_EQ(inst->ValueAt(1, 0).bytes, doc);

  // A null suite: success, and nothing is released.
  host.faults().null_suites = {"PF Param Utils Suite"};
  const int64_t released = host.stats().suites_released.load();
  EXPECT_EQ(inst->Command(kCmdUserChangedParam, &change), kStatusOk);
  EXPECT_EQ(host.stats().suites_released.load(), released);
  EXPECT_EQ(inst->Command(kCmdUpdateParamsUI, nullptr), kStatusOk);

  // A missing suite: status 13 and the message.
  host.faults().null_suites.clear();
  host.faults().missing_suites = {"PF Param Utils Suite"};
  EXPECT_EQ(inst->Command(kCmdUserChangedParam, &change), kStatusSuiteThrew);
  EXPECT_EQ(Message(inst->last_output()), "Not able to acquire VEFX Suite.");
  EXPECT_EQ(inst->Command(kCmdUpdateParamsUI, nullptr), kStatusSuiteThrew);
}

TEST(DocumentParam, FlattenUnflattenAndFailedAllocationThroughTheHost) {
  vxhost::Host host;
  auto m = Load(host);
  ASSERT_TRUE(m);
  ASSERT_EQ(m->Setup(), kStatusOk);
  auto inst = m->CreateInstance();
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

  host.faults().fail_alloc_after = host.stats().handles_allocated.load();
  vxhost::ParamValue other;
  other.bytes = {1, 2, 3};
  EXPECT_EQ(inst->SetValue(1, other), kStatusOutOfMemory);
  host.faults().fail_alloc_after = -1;
  EXPECT_EQ(inst->ValueAt(1, 0).bytes, v.bytes);
}

TEST(Entry, OutOfRangeCommandsAreIgnored) {
  vxhost::Host host;
  auto m = Load(host);
  ASSERT_TRUE(m);
  EffectMainFunc main = m->effect_main();
  OutputRecord out;
  std::memset(&out, 0x3C, sizeof out);
  OutputRecord copy = out;
  EXPECT_EQ(main(23, nullptr, &out, nullptr, nullptr, nullptr), kStatusOk);
  EXPECT_EQ(main(0xFFFFFFFFu, nullptr, &out, nullptr, nullptr, nullptr), kStatusOk);
  EXPECT_EQ(std::memcmp(&out, &copy, sizeof out), 0);
  ASSERT_NE(m->gpu_entry(), nullptr);
}

// The defined dynamic symbols of the module, read from its ELF dynamic symbol table.
std::set<std::string> ExportedSymbols(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  std::set<std::string> names;
  if (bytes.size() < sizeof(Elf64_Ehdr)) return names;
  Elf64_Ehdr eh;
  std::memcpy(&eh, bytes.data(), sizeof eh);
  if (std::memcmp(eh.e_ident, ELFMAG, SELFMAG) != 0 || eh.e_ident[EI_CLASS] != ELFCLASS64)
    return names;
  auto section = [&](size_t i) {
    Elf64_Shdr sh{};
    const size_t at = eh.e_shoff + i * eh.e_shentsize;
    if (at + sizeof sh <= bytes.size()) std::memcpy(&sh, bytes.data() + at, sizeof sh);
    return sh;
  };
  for (size_t i = 0; i < eh.e_shnum; ++i) {
    const Elf64_Shdr sh = section(i);
    if (sh.sh_type != SHT_DYNSYM) continue;
    const Elf64_Shdr strtab = section(sh.sh_link);
    for (size_t off = sh.sh_offset; off + sizeof(Elf64_Sym) <= sh.sh_offset + sh.sh_size &&
                                    off + sizeof(Elf64_Sym) <= bytes.size();
         off += sizeof(Elf64_Sym)) {
      Elf64_Sym sym;
      std::memcpy(&sym, bytes.data() + off, sizeof sym);
      if (sym.st_shndx == SHN_UNDEF || sym.st_name == 0) continue;
      const size_t name_at = strtab.sh_offset + sym.st_name;
      if (name_at >= bytes.size()) continue;
      names.insert(std::string(bytes.data() + name_at,
                               strnlen(bytes.data() + name_at, bytes.size() - name_at)));
    }
  }
  return names;
}

TEST(Entry, ExportsExactlyTheTwoEntryPoints) {
  const std::set<std::string> expected = {"EffectMain", "xGPUFilterEntry"};
  EXPECT_EQ(ExportedSymbols(vxhost::DefaultModulePath()), expected);
}

}  // namespace
