// A loaded module: global setup and setdown, parameter setup, instances.
#include <dlfcn.h>
#include <link.h>

#include <cstring>

#include "host_impl.h"
#include "vetext/module_info.h"

namespace vxhost {
namespace {

struct InfoSearch {
  ElfW(Addr) base = 0;
  std::string desc;
};

// Finds the module's info note among the PT_NOTE segments of the object loaded at `base`. The
// segments are mapped, so the notes are read in place, each bounded by its segment.
int FindInfoNote(dl_phdr_info* info, size_t, void* arg) {
  auto* search = static_cast<InfoSearch*>(arg);
  if (info->dlpi_addr != search->base) return 0;
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& ph = info->dlpi_phdr[i];
    if (ph.p_type != PT_NOTE) continue;
    const auto* p = reinterpret_cast<const uint8_t*>(info->dlpi_addr + ph.p_vaddr);
    uint64_t left = ph.p_memsz;
    while (left >= 12) {
      uint32_t hdr[3];  // name size, descriptor size, type
      std::memcpy(hdr, p, sizeof hdr);
      const uint64_t name_len = (uint64_t(hdr[0]) + 3) & ~uint64_t(3);
      const uint64_t desc_len = (uint64_t(hdr[1]) + 3) & ~uint64_t(3);
      if (name_len + desc_len > left - 12) break;
      const char* name = reinterpret_cast<const char*>(p + 12);
      if (hdr[2] == kModuleInfoNoteType && hdr[0] == sizeof kModuleInfoNoteOwner &&
          std::memcmp(name, kModuleInfoNoteOwner, sizeof kModuleInfoNoteOwner) == 0) {
        search->desc.assign(name + name_len, hdr[1]);
        return 1;
      }
      p += 12 + name_len + desc_len;
      left -= 12 + name_len + desc_len;
    }
  }
  return 1;
}

}  // namespace

std::string Module::Info(const std::string& key) const {
  link_map* map = nullptr;
  if (dlinfo(impl_->library, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return "";
  InfoSearch search;
  search.base = map->l_addr;
  dl_iterate_phdr(&FindInfoNote, &search);
  // "key=value" entries, each ended by a zero (the last one may end with the descriptor).
  const std::string& d = search.desc;
  for (size_t at = 0; at < d.size();) {
    size_t end = d.find('\0', at);
    if (end == std::string::npos) end = d.size();
    if (end - at > key.size() && d.compare(at, key.size(), key) == 0 && d[at + key.size()] == '=')
      return d.substr(at + key.size() + 1, end - at - key.size() - 1);
    at = end + 1;
  }
  return "";
}

InputRecord Module::Impl::MakeInput() const {
  InputRecord in{};
  in.utils = host->utils;
  in.effect_ref = reinterpret_cast<EffectRef>(const_cast<RefTarget*>(&ref));
  in.global_data = global_data;
  in.suites = host->faults.no_suite_services ? nullptr : host->suites;
  in.downsample_x = VxRational{1, 1};
  in.downsample_y = VxRational{1, 1};
  in.pixel_aspect = VxRational{1, 1};
  in.time_scale = kInputTimeScale;
  in.time_step = kInputTimeScale / 30;
  in.quality = 1;
  return in;
}

VxStatus Module::Impl::Call(EffectCommand cmd, InputRecord* in, OutputRecord* out,
                            ParamList* params, OutputLayer* layer, ExtraRecord* extra) {
  // A C entry point must not throw; if a module does all the same, the host survives it.
  try {
    return main(cmd, in, out, params, layer, extra);
  } catch (...) {
    if (out) std::strcpy(out->message, "the module raised an exception");
    return kStatusFailed;
  }
}

Module::Module(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Module::~Module() {
  GlobalSetdown();
  if (impl_->library) dlclose(impl_->library);
}

EffectMainFunc Module::effect_main() const {
  return impl_->main;
}
GPUFilterEntryFunc Module::gpu_entry() const {
  return impl_->gpu;
}

VxStatus Module::Setup() {
  VxStatus st = GlobalSetup();
  if (st != kStatusOk) return st;
  return ParamsSetup();
}

VxStatus Module::GlobalSetup() {
  Impl& m = *impl_;
  if (m.set_up) return kStatusOk;
  InputRecord in = m.MakeInput();
  OutputRecord out{};
  out.global_data = m.global_data;
  ParamList params{0, nullptr};
  m.host->global_module.store(&m);
  VxStatus st = m.Call(kCmdGlobalSetup, &in, &out, &params, nullptr, nullptr);
  m.host->global_module.store(nullptr);
  m.global_data = out.global_data;
  m.last_output = out;
  m.set_up = st == kStatusOk;
  return st;
}

namespace {
// Frees the declared defaults the host owns since command 4: through the module's dispose
// selector, or directly when the module declines.
void DisposeDefaults(Module::Impl& m) {
  for (ParamDef& def : m.params) {
    if (def.param_type != kParamTypeArbitrary || !def.u.arb_d.dephault) continue;
    ExtraRecord extra{};
    extra.arb.selector = kArbDispose;
    extra.arb.refcon = uint64_t(reinterpret_cast<uintptr_t>(def.u.arb_d.refcon));
    extra.arb.u.dispose.handle = def.u.arb_d.dephault;
    InputRecord in = m.MakeInput();
    OutputRecord out{};
    out.global_data = m.global_data;
    ParamList params{0, nullptr};
    m.host->stats.arb_requests.fetch_add(1);
    VxStatus st = m.Call(kCmdArbitraryCallback, &in, &out, &params, nullptr, &extra);
    if (st != kStatusOk) DisposeHostHandle(def.u.arb_d.dephault);
    def.u.arb_d.dephault = nullptr;
  }
}
}  // namespace

VxStatus Module::ParamsSetup() {
  Impl& m = *impl_;
  DisposeDefaults(m);
  m.params.clear();
  ParamDef layer{};
  layer.id = 0;
  layer.param_type = kParamTypeLayer;
  std::strcpy(layer.name, "Input");
  m.params.push_back(layer);
  m.host->add_param_calls.store(0);
  InputRecord in = m.MakeInput();
  OutputRecord out{};
  out.global_data = m.global_data;
  out.num_params = m.num_params;
  ParamList params{0, nullptr};
  VxStatus st = m.Call(kCmdParamsSetup, &in, &out, &params, nullptr, nullptr);
  m.num_params = out.num_params;
  m.last_output = out;
  return st;
}

VxStatus Module::GlobalSetdown() {
  Impl& m = *impl_;
  std::set<Instance::Impl*> instances;
  {
    std::lock_guard lock(m.instances_mutex);
    instances.swap(m.instances);
  }
  for (Instance::Impl* inst : instances) inst->Teardown();
  if (m.gpu != nullptr && m.gpu_status >= 0) {
    int32_t index = 0;
    m.gpu(2, &index, 0, 0, nullptr, nullptr);  // startup 0: the filter is shut down
    m.gpu_status = kErrUnsupported;
  }
  DisposeDefaults(m);
  if (!m.set_up) return kStatusOk;
  InputRecord in = m.MakeInput();
  OutputRecord out{};
  out.global_data = m.global_data;
  ParamList params{0, nullptr};
  m.host->global_module.store(&m);
  VxStatus st = m.Call(kCmdGlobalSetdown, &in, &out, &params, nullptr, nullptr);
  m.host->global_module.store(nullptr);
  m.global_data = out.global_data;
  m.last_output = out;
  m.set_up = false;
  return st;
}

const std::vector<ParamDef>& Module::params() const {
  return impl_->params;
}
int32_t Module::declared_param_count() const {
  return impl_->num_params;
}

std::string Module::LookupLabel(int32_t index) const {
  if (!impl_->registered) return "";
  return LookupLabelText(impl_->token, index);
}

const OutputRecord& Module::last_output() const {
  return impl_->last_output;
}
std::vector<uint32_t> Module::supported_formats() const {
  return impl_->formats;
}
Host& Module::host() {
  return *impl_->host_public;
}

std::unique_ptr<Instance> Module::CreateInstance(VxStatus* status) {
  Impl& m = *impl_;
  auto impl = std::make_unique<Instance::Impl>();
  Instance::Impl& inst = *impl;
  inst.module = &m;
  inst.ref.module = &m;
  inst.ref.instance = &inst;
  inst.decl = m.params;
  inst.ui = m.params;
  inst.slots.resize(m.params.size());

  InputRecord in = inst.MakeInput(0);
  OutputRecord out{};
  out.global_data = m.global_data;
  ParamList params{0, nullptr};
  VxStatus st = m.Call(kCmdSequenceSetup, &in, &out, &params, nullptr, nullptr);
  inst.sequence_data = out.sequence_data;
  if (status) *status = st;
  if (st != kStatusOk) {
    if (inst.sequence_data) {
      in.sequence_data = inst.sequence_data;
      m.Call(kCmdSequenceSetdown, &in, &out, &params, nullptr, nullptr);
    }
    return nullptr;
  }
  for (size_t i = 0; i < inst.decl.size(); ++i) {
    const ParamDef& def = inst.decl[i];
    if (def.param_type != kParamTypeArbitrary) continue;
    VxHandle h = def.u.arb_d.dephault ? inst.CopyValue(int32_t(i), def.u.arb_d.dephault)
                                      : inst.NewValue(int32_t(i));
    inst.slots[i].handle = h;
  }
  {
    std::lock_guard lock(m.host->nodes_mutex);
    inst.node_id = m.host->next_node_id++;
    m.host->nodes[inst.node_id] = &inst;
  }
  {
    std::lock_guard lock(m.instances_mutex);
    m.instances.insert(&inst);
  }
  return std::unique_ptr<Instance>(new Instance(std::move(impl)));
}

}  // namespace vxhost
