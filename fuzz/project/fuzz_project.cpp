// Project files from untrusted bytes: loading either refuses with a message and changes nothing,
// or takes the file; what was taken saves to a file that loads again and saves to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "vetext/host/host.h"

namespace {

struct Effect {
  vxhost::Host host;
  std::unique_ptr<vxhost::Module> module;
  std::unique_ptr<vxhost::Instance> instance;
};

Effect* Load() {
  auto* e = new Effect;  // lives for the process: the module stays set up between inputs
  std::string error;
  e->module = e->host.Load(vxhost::DefaultModulePath(), &error);
  if (!e->module || e->module->Setup() != kStatusOk ||
      !(e->instance = e->module->CreateInstance())) {
    std::fprintf(stderr, "fuzz_project: cannot set up the effect: %s\n", error.c_str());
    std::abort();
  }
  return e;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Effect* effect = Load();
  vxhost::Instance& inst = *effect->instance;
  const std::vector<uint8_t> before = inst.SaveProject();
  std::string error;
  if (!inst.LoadProject(data, size, &error)) {
    if (error.empty() || inst.SaveProject() != before) std::abort();  // refused: nothing changed
    return 0;
  }
  const std::vector<uint8_t> saved = inst.SaveProject();
  if (saved.empty() || !inst.LoadProject(saved.data(), saved.size(), &error)) std::abort();
  if (inst.SaveProject() != saved) std::abort();
  return 0;
}
