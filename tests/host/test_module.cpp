// A small stand-in effect for the host tests. It follows the command contract of a real effect
// (registration with a label table, global and sequence handles, parameters, the arbitrary-data
// selectors) and reports what it saw in ways a test can check: render writes parameter values
// into the first pixels of the output, command 13 describes a checked-out parameter in the
// message buffer, a draw event draws one rectangle.
#include <cstdio>
#include <cstring>

#include "vetext/effect.h"
#include "vetext/labels.h"
#include "vetext/suites.h"

namespace {

LabelEntry g_entries[] = {
    {"$$$/Test/kStrZero=zero", 0, 0, 0},
    {"$$$/Test/kStrScale=Scale", 0, 0, 0},
    {"$$$/Test/kStrVScale=Vertical Scale", 0, 0, 0},
    {"$$$/Test/kStrDoc=Source Text", 0, 0, 0},
    {"$$$/Test/kStrEq=a=b", 0, 0, 0},
    {nullptr, -1, -1, 0},
};
LabelTable g_table{"FX", 6, g_entries};

enum { kDoc = 1, kScale = 2, kAngle = 3, kCheck = 4, kPoint = 5, kCount = 6 };

void Fail(InputRecord* in, OutputRecord* out, const char* text) {
  out->out_flags |= kOutFlagDisplayMessage;
  in->utils->copy_message(out, text);
}

const void* Acquire(InputRecord* in, const char* name, int32_t version) {
  const void* s = nullptr;
  if (!in->suites || in->suites->acquire(name, version, &s) != 0) return nullptr;
  return s;
}

VxStatus GlobalSetup(InputRecord* in, OutputRecord* out) {
  int64_t token = reinterpret_cast<int64_t>(&g_table);
  VxStatus st = in->utils->register_token(&token, 4321);
  if (st != 0) {
    Fail(in, out, "Test could not be initialized.");
    return st;
  }
  VxHandle h = in->utils->new_handle(8);
  if (!h) {
    in->utils->unregister_token(&token);
    Fail(in, out, "Test could not be initialized.");
    return kStatusOutOfMemory;
  }
  std::memcpy(*h, &token, 8);
  out->global_data = in->global_data = h;
  out->out_flags |= kEffectGlobalOutFlags;
  out->my_version = kEffectVersionWord;
  auto* pf = static_cast<const PixelFormatSuite1*>(
      Acquire(in, kPixelFormatSuiteName, kPixelFormatSuiteVersion));
  if (pf) {
    pf->clear_supported_pixel_formats(in->effect_ref);
    pf->add_supported_pixel_format(in->effect_ref, kPixelFormatBGRA);
    pf->add_supported_pixel_format(in->effect_ref, kPixelFormatVUYA);
    in->suites->release(kPixelFormatSuiteName, kPixelFormatSuiteVersion);
  } else {
    Fail(in, out, "Not able to acquire VEFX Suite.");
  }
  return kStatusOk;
}

VxStatus GlobalSetdown(InputRecord* in, OutputRecord* out) {
  int64_t token;
  std::memcpy(&token, *in->global_data, 8);
  in->utils->unregister_token(&token);
  in->utils->dispose_handle(in->global_data);
  out->global_data = in->global_data = nullptr;
  return kStatusOk;
}

VxStatus ParamsSetup(InputRecord* in, OutputRecord* out) {
  const UtilCallbacks* u = in->utils;
  auto label = [&](int32_t i) {
    return u->lookup_string(reinterpret_cast<int64_t>(&g_table), i, 0, 0);
  };
  ParamDef def{};
  static const char kDefault[] = "default document";
  VxHandle h = u->new_handle(sizeof kDefault - 1);
  if (!h) return kStatusOutOfMemory;
  std::memcpy(*h, kDefault, sizeof kDefault - 1);
  def.id = kDoc;
  def.param_type = kParamTypeArbitrary;
  u->copy_text(def.name, sizeof def.name, label(3));
  def.u.arb_d.id = 1;
  def.u.arb_d.dephault = h;
  def.u.arb_d.refcon = reinterpret_cast<void*>(2);
  u->add_param(in->effect_ref, kParamIndexAppend, &def);

  def = ParamDef{};
  def.id = kScale;
  def.param_type = kParamTypeFixedSlider;
  u->copy_text(def.name, sizeof def.name, label(1));
  def.u.fd.value = def.u.fd.dephault = 100 << 16;
  def.u.fd.valid_max = def.u.fd.slider_max = 400 << 16;
  if (VxStatus st = u->add_param(in->effect_ref, kParamIndexAppend, &def)) return st;

  def = ParamDef{};
  def.id = kAngle;
  def.param_type = kParamTypeAngle;
  if (VxStatus st = u->add_param(in->effect_ref, kParamIndexAppend, &def)) return st;

  def = ParamDef{};
  def.id = kCheck;
  def.param_type = kParamTypeCheckbox;
  def.flags = kParamFlagCannotTimeVary | kParamFlagSupervise;
  def.u.bd.value = def.u.bd.dephault = 1;
  if (VxStatus st = u->add_param(in->effect_ref, kParamIndexAppend, &def)) return st;

  def = ParamDef{};
  def.id = kPoint;
  def.param_type = kParamTypePoint;
  def.u.td.x_dephault = def.u.td.y_dephault = 50 << 16;
  if (VxStatus st = u->add_param(in->effect_ref, kParamIndexAppend, &def)) return st;
  out->num_params = kCount;
  return kStatusOk;
}

uint8_t Byte(VxFixed f) {
  return uint8_t(f >> 16);
}

VxStatus Render(InputRecord* in, ParamList* params, OutputLayer* layer) {
  uint32_t format = kPixelFormatBad;
  if (auto* pf = static_cast<const PixelFormatSuite1*>(
          Acquire(in, kPixelFormatSuiteName, kPixelFormatSuiteVersion))) {
    pf->get_pixel_format(layer, &format);
    in->suites->release(kPixelFormatSuiteName, kPixelFormatSuiteVersion);
  }
  if (format != kPixelFormatBGRA && format != kPixelFormatVUYA)
    return kStatusUnsupportedPixelFormat;
  in->utils->copy_layer(in->effect_ref, params->params[0]->u.ld.layer, layer, nullptr, nullptr);
  VxHandle doc = params->params[kDoc]->u.arb_d.value;
  const uint64_t size = in->utils->get_handle_size(doc);
  if (size == 0) return kStatusStructDamaged;

  // The document goes through the frame cache, keyed by its bytes, the way layouts do.
  auto* cache =
      static_cast<const RPixCacheSuite6*>(Acquire(in, kRPixCacheSuiteName, kRPixCacheSuiteVersion));
  auto* creator = static_cast<const RPixCreatorSuite3*>(
      Acquire(in, kRPixCreatorSuiteName, kRPixCreatorSuiteVersion));
  auto* pix = static_cast<const RPixSuite1*>(Acquire(in, kRPixSuiteName, kRPixSuiteVersion));
  uint8_t first = 0;
  if (cache && creator && pix) {
    uint64_t hash = 1469598103934665603ull;
    for (uint64_t i = 0; i < size; ++i)
      hash = (hash ^ static_cast<uint8_t*>(*doc)[i]) * 1099511628211ull;
    char key[64];
    std::snprintf(key, sizeof key, "test-%016llx-%llu", static_cast<unsigned long long>(hash),
                  static_cast<unsigned long long>(size));
    RPixHandle h = nullptr;
    cache->lookup(key, &h);
    if (!h) {
      RPixHandle made = nullptr;
      if (creator->create(&made, kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1, size) >= 0) {
        void* p = nullptr;
        pix->get_pixels(made, kRPixAccessWrite, &p);
        std::memcpy(p, *doc, size);
        cache->add(key, made);
        h = made;  // another thread may evict it at once; the reference keeps it readable
      }
    }
    if (h) {
      void* p = nullptr;
      if (pix->get_pixels(h, kRPixAccessRead, &p) >= 0) first = *static_cast<uint8_t*>(p);
      pix->dispose(h);
    }
  }
  if (cache) in->suites->release(kRPixCacheSuiteName, kRPixCacheSuiteVersion);
  if (creator) in->suites->release(kRPixCreatorSuiteName, kRPixCreatorSuiteVersion);
  if (pix) in->suites->release(kRPixSuiteName, kRPixSuiteVersion);

  // Row 0 is the visual top whatever the stride.
  auto* top = static_cast<uint8_t*>(layer->data);
  top[0] = Byte(params->params[kScale]->u.fd.value);
  top[1] = Byte(params->params[kAngle]->u.ad.value);
  top[2] = uint8_t(params->params[kCheck]->u.bd.value);
  top[3] = first;
  if (layer->width > 1) {
    top[4] = Byte(params->params[kPoint]->u.td.x_value);
    top[5] = Byte(params->params[kPoint]->u.td.y_value);
  }
  return kStatusOk;
}

VxStatus UpdateUI(InputRecord* in, ParamList* params) {
  auto* pu = static_cast<const ParamUtilsSuite3*>(
      Acquire(in, kParamUtilsSuiteName, kParamUtilsSuiteVersion));
  if (!pu) return kStatusSuiteThrew;
  ParamDef scale = *params->params[kScale];
  const bool uniform = params->params[kCheck]->u.bd.value != 0;
  in->utils->copy_text(
      scale.name, sizeof scale.name,
      in->utils->lookup_string(reinterpret_cast<int64_t>(&g_table), uniform ? 1 : 2, 0, 0));
  scale.ui_flags = uniform ? 0 : kParamUIFlagDisabled;
  pu->update_param_ui(in->effect_ref, kScale, &scale);
  in->suites->release(kParamUtilsSuiteName, kParamUtilsSuiteVersion);
  return kStatusOk;
}

// Describes the changed parameter as checked out at the current time.
VxStatus Changed(InputRecord* in, OutputRecord* out, ExtraRecord* extra) {
  auto* pu = static_cast<const ParamUtilsSuite3*>(
      Acquire(in, kParamUtilsSuiteName, kParamUtilsSuiteVersion));
  if (!pu) return kStatusSuiteThrew;
  ParamDef def{};
  char text[64] = "checkout failed";
  if (pu->checkout_param(in->effect_ref, extra->change.param_index, in->current_time, in->time_step,
                         in->time_scale, &def) == 0) {
    if (def.param_type == kParamTypeArbitrary)
      std::snprintf(text, sizeof text, "bytes=%llu",
                    static_cast<unsigned long long>(in->utils->get_handle_size(def.u.arb_d.value)));
    else
      std::snprintf(text, sizeof text, "value=%d", def.u.fd.value);
    pu->checkin_param(in->effect_ref, &def);
  }
  in->utils->copy_message(out, text);
  in->suites->release(kParamUtilsSuiteName, kParamUtilsSuiteVersion);
  return kStatusOk;
}

VxStatus Event(InputRecord* in, ExtraRecord* extra) {
  EventRecord& ev = extra->event;
  if (ev.event_type != kEventDraw || (*ev.context)->window_type != 0) return kStatusOk;
  auto* draw = static_cast<const DrawbotDrawSuite1*>(
      Acquire(in, kDrawbotDrawSuiteName, kDrawbotDrawSuiteVersion));
  auto* supplier = static_cast<const DrawbotSupplierSuite1*>(
      Acquire(in, kDrawbotSupplierSuiteName, kDrawbotSupplierSuiteVersion));
  auto* path = static_cast<const DrawbotPathSuite1*>(
      Acquire(in, kDrawbotPathSuiteName, kDrawbotPathSuiteVersion));
  auto* surface = static_cast<const DrawbotSurfaceSuite1*>(
      Acquire(in, kDrawbotSurfaceSuiteName, kDrawbotSurfaceSuiteVersion));
  if (draw && supplier && path && surface) {
    auto drawer = static_cast<DrawbotDrawerRef>((*ev.context)->host_data);
    DrawbotSupplierRef sup = nullptr;
    DrawbotSurfaceRef surf = nullptr;
    DrawbotPathRef p = nullptr;
    draw->get_supplier(drawer, &sup);
    draw->get_surface(drawer, &surf);
    supplier->new_path(sup, &p);
    VxFixed x = ev.click_x << 16, y = ev.click_y << 16;
    ev.callbacks->layer_to_viewer((*ev.context)->host_data, &x, &y);
    path->add_rect(p, float(x >> 16), float(y >> 16), 10, 20);
    const DrawbotColor red{1, 0, 0, 1};
    surface->stroke_path(surf, &red, p, 2);
    supplier->dispose_path(p);
    ev.handled = 1;
  }
  const char* names[] = {kDrawbotDrawSuiteName, kDrawbotSupplierSuiteName, kDrawbotPathSuiteName,
                         kDrawbotSurfaceSuiteName};
  const void* got[] = {draw, supplier, path, surface};
  for (int i = 0; i < 4; ++i)
    if (got[i]) in->suites->release(names[i], 1);
  return kStatusOk;
}

bool Own(uint64_t refcon) {
  return refcon == 1 || refcon == 2;
}

VxStatus Arbitrary(InputRecord* in, ExtraRecord* extra) {
  const UtilCallbacks* u = in->utils;
  ArbRequestRecord& r = extra->arb;
  switch (r.selector) {
    case kArbNew: {
      *r.u.create.dst = nullptr;
      VxHandle h = u->new_handle(0);
      if (!h) return kStatusOutOfMemory;
      *r.u.create.dst = h;
      return Own(r.refcon) ? kStatusOk : kStatusStructDamaged;
    }
    case kArbDispose:
      if (!Own(r.refcon)) return kStatusStructDamaged;
      u->dispose_handle(r.u.dispose.handle);
      r.u.dispose.handle = nullptr;
      return kStatusOk;
    case kArbCopy: {
      if (!Own(r.refcon)) return kStatusOk;
      const uint64_t size = u->get_handle_size(r.u.copy.src);
      VxHandle h = u->new_handle(size);
      if (!h) return kStatusOutOfMemory;
      if (size) std::memcpy(*h, *r.u.copy.src, size);
      *r.u.copy.dst = h;
      return kStatusOk;
    }
    case kArbFlatSize:
      *r.u.flat_size.flat_size = uint32_t(u->get_handle_size(r.u.flat_size.handle));
      return kStatusOk;
    case kArbFlatten:
      if (r.u.flatten.buf_size)
        std::memcpy(r.u.flatten.buf, *r.u.flatten.handle, r.u.flatten.buf_size);
      return kStatusOk;
    case kArbUnflatten: {
      VxHandle h = u->new_handle(r.u.unflatten.buf_size);
      if (!h) return kStatusOutOfMemory;
      if (r.u.unflatten.buf_size) std::memcpy(*h, r.u.unflatten.buf, r.u.unflatten.buf_size);
      *r.u.unflatten.dst = h;
      return kStatusOk;
    }
    case kArbInterpolate: {
      const uint64_t size = u->get_handle_size(r.u.interpolate.left);
      if (size == 0) return kStatusOk;
      VxHandle h = u->new_handle(size);
      if (!h) return kStatusOk;
      std::memcpy(*h, *r.u.interpolate.left, size);
      *r.u.interpolate.dst = h;
      return kStatusOk;
    }
    default:
      return kStatusOk;
  }
}

}  // namespace

extern "C" VX_MODULE_EXPORT VxStatus EffectMain(EffectCommand cmd, InputRecord* in,
                                                OutputRecord* out, ParamList* params,
                                                OutputLayer* layer, ExtraRecord* extra) {
  switch (cmd) {
    case kCmdGlobalSetup:
      return GlobalSetup(in, out);
    case kCmdGlobalSetdown:
      return GlobalSetdown(in, out);
    case kCmdParamsSetup:
      return ParamsSetup(in, out);
    case kCmdSequenceSetup:
      out->sequence_data = in->utils->new_handle(1);
      return out->sequence_data ? kStatusOk : kStatusStructDamaged;
    case kCmdSequenceSetdown:
      if (in->sequence_data) in->utils->dispose_handle(in->sequence_data);
      return kStatusOk;
    case kCmdRender:
      return Render(in, params, layer);
    case kCmdUserChangedParam:
      return Changed(in, out, extra);
    case kCmdUpdateParamsUI:
      return UpdateUI(in, params);
    case kCmdEvent:
      return Event(in, extra);
    case kCmdArbitraryCallback:
      return Arbitrary(in, extra);
    default:
      return kStatusOk;
  }
}
