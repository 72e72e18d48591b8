// One effect instance: its parameter store, keyframes, the arbitrary-data lifecycle through
// command 22, and the commands it sends.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "host_impl.h"
#include "vetext/memory.h"

namespace vxhost {

namespace {

bool Numeric(ParamType t) {
  return t == kParamTypeFixedSlider || t == kParamTypeAngle || t == kParamTypeCheckbox ||
         t == kParamTypePoint;
}

// The keyframe pair around `time`: `lo` == `hi` outside the keyframes or on one of them.
void Bracket(const std::vector<Keyframe>& keys, double time, size_t* lo, size_t* hi, double* f) {
  *f = 0;
  if (time <= keys.front().time) {
    *lo = *hi = 0;
    return;
  }
  if (time >= keys.back().time) {
    *lo = *hi = keys.size() - 1;
    return;
  }
  auto it = std::upper_bound(keys.begin(), keys.end(), time,
                             [](double t, const Keyframe& k) { return t < k.time; });
  *hi = size_t(it - keys.begin());
  *lo = *hi - 1;
  if (keys[*lo].time == time) {
    *hi = *lo;
    return;
  }
  *f = (time - keys[*lo].time) / (keys[*hi].time - keys[*lo].time);
}

const EventCallbacks* ViewerCallbacks();

}  // namespace

// ---- command 22 on the host's behalf --------------------------------------------------------

uint64_t Instance::Impl::refcon(int32_t index) const {
  return uint64_t(reinterpret_cast<uintptr_t>(decl[size_t(index)].u.arb_d.refcon));
}

InputRecord Instance::Impl::MakeInput(double time) const {
  InputRecord in = module->MakeInput();
  in.effect_ref = reinterpret_cast<EffectRef>(const_cast<RefTarget*>(&ref));
  in.sequence_data = sequence_data;
  in.current_time = std::llround(time * kInputTimeScale);
  in.width = layer_width.load();
  in.height = layer_height.load();
  return in;
}

void Instance::Impl::SetOutput(const OutputRecord& out) {
  std::lock_guard lock(output_mutex);
  last_output = out;
}

VxStatus Instance::Impl::Arb(ArbRequestRecord& request) {
  if (!module) return kStatusBadCallbackParam;
  InputRecord in = MakeInput(0);
  OutputRecord out{};
  out.global_data = module->global_data;
  out.sequence_data = sequence_data;
  ParamList params{0, nullptr};
  ExtraRecord extra{};
  extra.arb = request;
  module->host->stats.arb_requests.fetch_add(1);
  VxStatus st = module->Call(kCmdArbitraryCallback, &in, &out, &params, nullptr, &extra);
  request = extra.arb;
  return st;
}

VxHandle Instance::Impl::NewValue(int32_t index) {
  VxHandle h = nullptr;
  ArbRequestRecord r{};
  r.selector = kArbNew;
  r.refcon = refcon(index);
  r.u.create.dst = &h;
  Arb(r);
  return h;  // a handle stored despite a complaint about the constant is the host's all the same
}

VxHandle Instance::Impl::CopyValue(int32_t index, VxHandle src) {
  VxHandle h = nullptr;
  ArbRequestRecord r{};
  r.selector = kArbCopy;
  r.refcon = refcon(index);
  r.u.copy.src = src;
  r.u.copy.dst = &h;
  if (Arb(r) != kStatusOk && h) {
    DisposeValue(index, h);
    return nullptr;
  }
  return h;
}

VxHandle Instance::Impl::Unflatten(int32_t index, const std::vector<uint8_t>& bytes,
                                   VxStatus* status) {
  if (bytes.size() > UINT32_MAX) {
    *status = kStatusBadCallbackParam;
    return nullptr;
  }
  VxHandle h = nullptr;
  ArbRequestRecord r{};
  r.selector = kArbUnflatten;
  r.refcon = refcon(index);
  r.u.unflatten.buf_size = uint32_t(bytes.size());
  r.u.unflatten.buf = bytes.data();
  r.u.unflatten.dst = &h;
  *status = Arb(r);
  if (*status == kStatusOk && !h) *status = kStatusOutOfMemory;
  if (*status != kStatusOk && h) {
    DisposeValue(index, h);
    h = nullptr;
  }
  return h;
}

bool Instance::Impl::Flatten(int32_t index, VxHandle h, std::vector<uint8_t>* bytes) {
  bytes->clear();
  if (!h) return false;
  uint32_t size = 0;
  ArbRequestRecord r{};
  r.selector = kArbFlatSize;
  r.refcon = refcon(index);
  r.u.flat_size.handle = h;
  r.u.flat_size.flat_size = &size;
  if (Arb(r) != kStatusOk) return false;
  bytes->resize(size);
  ArbRequestRecord f{};
  f.selector = kArbFlatten;
  f.refcon = refcon(index);
  f.u.flatten.handle = h;
  f.u.flatten.buf_size = size;
  f.u.flatten.buf = bytes->data();
  return Arb(f) == kStatusOk;
}

void Instance::Impl::DisposeValue(int32_t index, VxHandle h) {
  if (!h) return;
  ArbRequestRecord r{};
  r.selector = kArbDispose;
  r.refcon = refcon(index);
  r.u.dispose.handle = h;
  // A module that declines the dispose leaves a host handle behind; the host frees it.
  if (Arb(r) != kStatusOk) DisposeHostHandle(h);
}

// ---- values ---------------------------------------------------------------------------------

VxHandle Instance::Impl::HandleAt(int32_t index, double time, bool* temp) {
  *temp = false;
  const ParamSlot& slot = slots[size_t(index)];
  if (slot.mode != ValueMode::kKeyframes || slot.keys.empty()) return slot.handle;
  size_t lo, hi;
  double f;
  Bracket(slot.keys, time, &lo, &hi, &f);
  if (lo == hi) return slot.keys[lo].handle;
  VxHandle h = nullptr;
  ArbRequestRecord r{};
  r.selector = kArbInterpolate;
  r.refcon = refcon(index);
  r.u.interpolate.left = slot.keys[lo].handle;
  r.u.interpolate.right = slot.keys[hi].handle;
  r.u.interpolate.t = f;
  r.u.interpolate.dst = &h;
  Arb(r);
  if (!h) h = CopyValue(index, slot.keys[lo].handle);
  if (!h) return slot.keys[lo].handle;
  *temp = true;
  return h;
}

ParamValue Instance::Impl::NumericAt(int32_t index, double time, int32_t layer_w,
                                     int32_t layer_h) const {
  const ParamDef& def = decl[size_t(index)];
  const ParamSlot& slot = slots[size_t(index)];
  ParamValue v;
  if (slot.mode == ValueMode::kConstant) return slot.constant;
  if (slot.mode == ValueMode::kKeyframes && !slot.keys.empty()) {
    size_t lo, hi;
    double f;
    Bracket(slot.keys, time, &lo, &hi, &f);
    const ParamValue& a = slot.keys[lo].value;
    const ParamValue& b = slot.keys[hi].value;
    v.x = a.x + f * (b.x - a.x);
    v.y = a.y + f * (b.y - a.y);
    v.flag = a.flag;  // checkboxes hold until the next keyframe
    return v;
  }
  switch (def.param_type) {
    case kParamTypeFixedSlider:
      v.x = FixedToDouble(def.u.fd.dephault);
      break;
    case kParamTypeAngle:
      v.x = FixedToDouble(def.u.ad.dephault);
      break;
    case kParamTypeCheckbox:
      v.flag = def.u.bd.dephault != 0;
      break;
    case kParamTypePoint:
      v.x = FixedToDouble(def.u.td.x_dephault) / 100.0 * layer_w;
      v.y = FixedToDouble(def.u.td.y_dephault) / 100.0 * layer_h;
      break;
    default:
      break;
  }
  return v;
}

ParamDef Instance::Impl::DefAt(int32_t index, double time, int32_t layer_w, int32_t layer_h,
                               bool* temp) {
  *temp = false;
  std::shared_lock lock(store_mutex);
  ParamDef def = ui[size_t(index)];
  switch (def.param_type) {
    case kParamTypeFixedSlider:
      def.u.fd.value = DoubleToFixed(NumericAt(index, time, layer_w, layer_h).x);
      break;
    case kParamTypeAngle:
      def.u.ad.value = DoubleToFixed(NumericAt(index, time, layer_w, layer_h).x);
      break;
    case kParamTypeCheckbox:
      def.u.bd.value = NumericAt(index, time, layer_w, layer_h).flag ? 1 : 0;
      break;
    case kParamTypePoint: {
      ParamValue v = NumericAt(index, time, layer_w, layer_h);
      def.u.td.x_value = DoubleToFixed(v.x);
      def.u.td.y_value = DoubleToFixed(v.y);
      break;
    }
    case kParamTypeArbitrary:
      def.u.arb_d.value = HandleAt(index, time, temp);
      break;
    case kParamTypeLayer:
      def.u.ld.layer = nullptr;
      break;
    default:
      break;
  }
  return def;
}

ParamValue Instance::Impl::ValueAt(int32_t index, double time) {
  if (index < 0 || size_t(index) >= decl.size()) return {};
  std::shared_lock lock(store_mutex);
  if (decl[size_t(index)].param_type != kParamTypeArbitrary)
    return NumericAt(index, time, layer_width.load(), layer_height.load());
  ParamValue v;
  bool temp = false;
  VxHandle h = HandleAt(index, time, &temp);
  Flatten(index, h, &v.bytes);
  if (temp) DisposeValue(index, h);
  return v;
}

void Instance::Impl::Teardown() {
  if (!module) return;
  DisposeGpu();  // the GPU filter instance goes before the sequence it belongs to
  std::vector<std::pair<int32_t, VxHandle>> handles;
  {
    std::unique_lock lock(store_mutex);
    for (size_t i = 0; i < slots.size(); ++i) {
      ParamSlot& s = slots[i];
      if (s.handle) handles.emplace_back(int32_t(i), s.handle);
      for (Keyframe& k : s.keys)
        if (k.handle) handles.emplace_back(int32_t(i), k.handle);
      s = ParamSlot{};
    }
  }
  for (auto& [index, h] : handles) DisposeValue(index, h);
  if (param_at_temp) {
    DisposeValue(param_at_index, param_at_temp);
    param_at_temp = nullptr;
  }
  {
    std::lock_guard lock(checkout_mutex);
    for (VxHandle h : checked_out) DisposeHostHandle(h);
    checked_out.clear();
  }
  InputRecord in = MakeInput(0);
  OutputRecord out{};
  out.global_data = module->global_data;
  out.sequence_data = sequence_data;
  ParamList params{0, nullptr};
  module->Call(kCmdSequenceSetdown, &in, &out, &params, nullptr, nullptr);
  SetOutput(out);
  sequence_data = nullptr;
  {
    std::lock_guard lock(module->host->nodes_mutex);
    module->host->nodes.erase(node_id);
  }
  module = nullptr;
}

// ---- Instance -------------------------------------------------------------------------------

Instance::Instance(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Instance::~Instance() {
  Impl& inst = *impl_;
  if (!inst.module) return;
  {
    std::lock_guard lock(inst.module->instances_mutex);
    inst.module->instances.erase(&inst);
  }
  inst.Teardown();
}

VxStatus Instance::SetValue(int32_t index, const ParamValue& value, std::optional<double> time) {
  return impl_->SetValue(index, value, time);
}

VxStatus Instance::Impl::SetValue(int32_t index, const ParamValue& given,
                                  std::optional<double> time) {
  Impl& inst = *this;
  // The effect reads numbers as 16.16 fixed point, so they are kept on that grid: a value the
  // effect reads and sets back unchanged (a drag that ends where it began) is then the very value
  // that was there.
  ParamValue value = given;
  value.x = FixedToDouble(DoubleToFixed(value.x));
  value.y = FixedToDouble(DoubleToFixed(value.y));
  if (!inst.module || index < 0 || size_t(index) >= inst.decl.size())
    return kStatusBadCallbackParam;
  const ParamDef& def = inst.decl[size_t(index)];
  // A parameter that cannot vary over time only ever holds a constant.
  const bool keyed = time.has_value() && !(def.flags & kParamFlagCannotTimeVary);
  const double at = keyed ? time.value_or(0.0) : 0.0;
  if (!std::isfinite(at)) return kStatusBadCallbackParam;
  VxHandle h = nullptr;
  if (def.param_type == kParamTypeArbitrary) {
    VxStatus st = kStatusOk;
    h = inst.Unflatten(index, value.bytes, &st);
    if (st != kStatusOk) return st;
  } else if (!Numeric(def.param_type)) {
    return kStatusBadCallbackParam;
  }
  std::vector<VxHandle> dropped;
  {
    std::unique_lock lock(inst.store_mutex);
    ParamSlot& slot = inst.slots[size_t(index)];
    if (!keyed) {
      if (slot.handle) dropped.push_back(slot.handle);
      for (Keyframe& k : slot.keys)
        if (k.handle) dropped.push_back(k.handle);
      slot.keys.clear();
      slot.mode = ValueMode::kConstant;
      slot.constant = value;
      slot.constant.bytes.clear();
      slot.handle = h;
    } else {
      if (slot.mode != ValueMode::kKeyframes) {
        if (slot.handle) dropped.push_back(slot.handle);
        slot.handle = nullptr;
        slot.mode = ValueMode::kKeyframes;
      }
      Keyframe k;
      k.time = at;
      k.value = value;
      k.value.bytes.clear();
      k.handle = h;
      auto it = std::lower_bound(slot.keys.begin(), slot.keys.end(), at,
                                 [](const Keyframe& a, double t) { return a.time < t; });
      if (it != slot.keys.end() && it->time == at) {
        if (it->handle) dropped.push_back(it->handle);
        *it = std::move(k);
      } else {
        slot.keys.insert(it, std::move(k));
      }
    }
  }
  for (VxHandle d : dropped) inst.DisposeValue(index, d);
  return kStatusOk;
}

void Instance::ResetValue(int32_t index) {
  Impl& inst = *impl_;
  if (!inst.module || index < 0 || size_t(index) >= inst.decl.size()) return;
  const ParamDef& def = inst.decl[size_t(index)];
  VxHandle fresh = nullptr;
  if (def.param_type == kParamTypeArbitrary)
    fresh =
        def.u.arb_d.dephault ? inst.CopyValue(index, def.u.arb_d.dephault) : inst.NewValue(index);
  std::vector<VxHandle> dropped;
  {
    std::unique_lock lock(inst.store_mutex);
    ParamSlot& slot = inst.slots[size_t(index)];
    if (slot.handle) dropped.push_back(slot.handle);
    for (Keyframe& k : slot.keys)
      if (k.handle) dropped.push_back(k.handle);
    slot = ParamSlot{};
    slot.handle = fresh;
  }
  for (VxHandle d : dropped) inst.DisposeValue(index, d);
}

ParamValue Instance::ValueAt(int32_t index, double time) const {
  return impl_->ValueAt(index, time);
}

std::vector<double> Instance::KeyTimes(int32_t index) const {
  const Impl& inst = *impl_;
  std::vector<double> times;
  if (index < 0 || size_t(index) >= inst.slots.size()) return times;
  std::shared_lock lock(inst.store_mutex);
  for (const Keyframe& k : inst.slots[size_t(index)].keys) times.push_back(k.time);
  return times;
}

void Instance::SetLayerSize(int32_t width, int32_t height) {
  impl_->layer_width.store(width);
  impl_->layer_height.store(height);
}

int32_t Instance::node_id() const {
  return impl_->node_id;
}

ParamDef Instance::ParamAt(int32_t index, double time) {
  Impl& inst = *impl_;
  if (!inst.module || index < 0 || size_t(index) >= inst.decl.size()) return ParamDef{};
  if (inst.param_at_temp) {
    inst.DisposeValue(inst.param_at_index, inst.param_at_temp);
    inst.param_at_temp = nullptr;
  }
  bool temp = false;
  ParamDef def = inst.DefAt(index, time, inst.layer_width.load(), inst.layer_height.load(), &temp);
  if (temp) {
    inst.param_at_temp = def.u.arb_d.value;
    inst.param_at_index = index;
  }
  return def;
}

namespace {
// The parameters of one call; arbitrary data made for the call is disposed with it.
struct CallParams {
  std::vector<ParamDef> defs;
  std::vector<ParamDef*> ptrs;
  std::vector<std::pair<int32_t, VxHandle>> temps;
  ParamList list{0, nullptr};

  CallParams(Instance::Impl& inst, double time, const OutputLayer* input, int32_t w, int32_t h) {
    defs.resize(inst.decl.size());
    for (size_t i = 0; i < defs.size(); ++i) {
      bool temp = false;
      defs[i] = inst.DefAt(int32_t(i), time, w, h, &temp);
      if (temp) temps.emplace_back(int32_t(i), defs[i].u.arb_d.value);
    }
    if (!defs.empty() && defs[0].param_type == kParamTypeLayer)
      defs[0].u.ld.layer = const_cast<OutputLayer*>(input);
    for (ParamDef& d : defs) ptrs.push_back(&d);
    list.count = int32_t(ptrs.size());
    list.params = ptrs.data();
  }
  void Release(Instance::Impl& inst) {
    for (auto& [index, h] : temps) inst.DisposeValue(index, h);
    temps.clear();
  }
};
}  // namespace

VxStatus Instance::Render(double time, const Frame& in, Frame& out, const RenderOptions& options) {
  Impl& inst = *impl_;
  if (!inst.module) return kStatusBadCallbackParam;
  if (in.width() != out.width() || in.height() != out.height() ||
      in.pixel_format() != out.pixel_format())
    return kStatusBadCallbackParam;
  inst.layer_width.store(in.width());
  inst.layer_height.store(in.height());
  CallParams params(inst, time, in.layer(), in.width(), in.height());
  InputRecord rec = inst.MakeInput(time);
  rec.downsample_x = options.downsample_x;
  rec.downsample_y = options.downsample_y;
  rec.pixel_aspect = options.pixel_aspect;
  rec.width = in.width();
  rec.height = in.height();
  OutputRecord result{};
  result.global_data = inst.module->global_data;
  result.sequence_data = inst.sequence_data;
  VxStatus st = inst.module->Call(kCmdRender, &rec, &result, &params.list, out.layer(), nullptr);
  params.Release(inst);
  inst.SetOutput(result);
  return st;
}

VxStatus Instance::Command(EffectCommand cmd, ExtraRecord* extra, double time) {
  Impl& inst = *impl_;
  if (!inst.module) return kStatusBadCallbackParam;
  const int32_t w = inst.layer_width.load(), h = inst.layer_height.load();
  CallParams params(inst, time, nullptr, w, h);
  InputRecord rec = inst.MakeInput(time);
  OutputRecord result{};
  result.global_data = inst.module->global_data;
  result.sequence_data = inst.sequence_data;
  if (cmd == kCmdArbitraryCallback) inst.module->host->stats.arb_requests.fetch_add(1);
  VxStatus st = inst.module->Call(cmd, &rec, &result, &params.list, nullptr, extra);
  params.Release(inst);
  inst.SetOutput(result);
  return st;
}

VxStatus Instance::Event(EventRecord* event, double time, int32_t window_type) {
  Impl& inst = *impl_;
  if (!inst.module || !event) return kStatusBadCallbackParam;
  EventContext context{};
  context.host_data = &inst.module->host->viewer;
  context.window_type = window_type;
  EventContext* context_ptr = &context;
  ExtraRecord extra{};
  extra.event = *event;
  extra.event.context = &context_ptr;
  if (!extra.event.callbacks) extra.event.callbacks = ViewerCallbacks();
  inst.event_time.store(time);
  VxStatus st = Command(kCmdEvent, &extra, time);
  EventContext** caller_context = event->context;
  *event = extra.event;
  event->context = caller_context;
  return st;
}

const ParamDef& Instance::ui_param(int32_t index) const {
  static const ParamDef kNone{};
  if (index < 0 || size_t(index) >= impl_->ui.size()) return kNone;
  return impl_->ui[size_t(index)];
}

const OutputRecord& Instance::last_output() const {
  return impl_->last_output;
}

// ---- the video segment suite ----------------------------------------------------------------

int32_t Host::Impl::SegmentParam(int32_t node_id, int32_t gpu_index, int64_t time,
                                 SegmentParamValue* out) {
  if (!out) return -1;
  *out = SegmentParamValue{};
  std::lock_guard lock(nodes_mutex);
  auto it = nodes.find(node_id);
  if (it == nodes.end()) return -1;
  Instance::Impl& inst = *it->second;
  const int32_t index = gpu_index + 1;  // the GPU side does not count the input layer
  if (gpu_index < 0 || size_t(index) >= inst.decl.size()) return -1;
  const double seconds = double(time) / double(kTicksPerSecond);
  const ParamType type = inst.decl[size_t(index)].param_type;
  ParamValue v = inst.ValueAt(index, seconds);
  switch (type) {
    case kParamTypeFixedSlider:
    case kParamTypeAngle:
      out->type = kSegParamFloat;
      out->value = v.x;
      break;
    case kParamTypeCheckbox:
      out->type = kSegParamBool;
      out->flag = v.flag ? 1 : 0;
      break;
    case kParamTypePoint:
      out->type = kSegParamPoint;
      out->x = v.x;
      out->y = v.y;
      break;
    case kParamTypeArbitrary: {
      void* p = RxNewPtr(v.bytes.size());
      if (!p) return -1;
      if (!v.bytes.empty()) std::memcpy(p, v.bytes.data(), v.bytes.size());
      out->type = kSegParamHandle;
      out->handle = p;
      break;
    }
    default:
      out->type = kSegParamNone;
      break;
  }
  return 0;
}

// ---- viewer point conversions ---------------------------------------------------------------

namespace {
VxStatus LayerToViewer(void* host_data, VxFixed* x, VxFixed* y) {
  auto* v = static_cast<ViewerContext*>(host_data);
  if (!v || !x || !y) return kStatusBadCallbackParam;
  *x = DoubleToFixed(FixedToDouble(*x) * v->transform.zoom + v->transform.offset_x);
  *y = DoubleToFixed(FixedToDouble(*y) * v->transform.zoom + v->transform.offset_y);
  return kStatusOk;
}
VxStatus ViewerToLayer(void* host_data, VxFixed* x, VxFixed* y) {
  auto* v = static_cast<ViewerContext*>(host_data);
  if (!v || !x || !y || v->transform.zoom == 0) return kStatusBadCallbackParam;
  *x = DoubleToFixed((FixedToDouble(*x) - v->transform.offset_x) / v->transform.zoom);
  *y = DoubleToFixed((FixedToDouble(*y) - v->transform.offset_y) / v->transform.zoom);
  return kStatusOk;
}
VxStatus SetParamAtEvent(EffectRef effect, int32_t index, VxFixed x, VxFixed y) {
  auto* ref = reinterpret_cast<RefTarget*>(effect);
  if (!ref || !ref->instance) return kStatusBadCallbackParam;
  Instance::Impl& inst = *ref->instance;
  if (index < 0 || size_t(index) >= inst.decl.size()) return kStatusBadCallbackParam;
  ParamValue v;
  v.x = FixedToDouble(x);
  v.y = FixedToDouble(y);
  v.flag = x != 0;
  bool keyed;
  {
    std::shared_lock lock(inst.store_mutex);
    keyed = inst.slots[size_t(index)].mode == ValueMode::kKeyframes;
  }
  return inst.SetValue(index, v,
                       keyed ? std::optional<double>(inst.event_time.load()) : std::nullopt);
}
constexpr EventCallbacks kViewerCallbacks{&LayerToViewer, &ViewerToLayer, &SetParamAtEvent};
const EventCallbacks* ViewerCallbacks() {
  return &kViewerCallbacks;
}
}  // namespace

}  // namespace vxhost
