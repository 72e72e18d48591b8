// A small stand-in effect for the host tests. It follows the command contract of a real effect
// (registration with a label table, global and sequence handles, parameters, the arbitrary-data
// selectors) and reports what it saw in ways a test can check: render writes parameter values
// into the first pixels of the output, command 13 describes a checked-out parameter in the
// message buffer, a draw event draws one rectangle.
#include <cstdio>
#include <cstring>

#include "vetext/effect.h"
#include "vetext/labels.h"
#include "vetext/module_info.h"
#include "vetext/suites.h"

VX_MODULE_INFO("name=$$$/Test/Name=Stand-in\0category=Test\0nameless");

namespace {

LabelEntry g_entries[] = {{"$$$/Test/kStrZero=zero", 0, 0, 0},
                          {"$$$/Test/kStrScale=Scale", 0, 0, 0},
                          {"$$$/Test/kStrVScale=Vertical Scale", 0, 0, 0},
                          {"$$$/Test/kStrDoc=Source Text", 0, 0, 0},
                          {"$$$/Test/kStrEq=a=b", 0, 0, 0},
                          {nullptr, -1, -1, 0}};
LabelTable g_table{"FX", 6, g_entries};

const char kDefault[] = "default document";
enum { kDoc = 1, kScale = 2, kAngle = 3, kCheck = 4, kPoint = 5, kCount = 6 };

// A suite held for one scope; null when the host has none to give.
template <class T>
struct Suite {
  Suite(InputRecord* in, const char* name, int32_t version) : in(in), name(name), version(version) {
    const void* p = nullptr;
    if (in->suites && in->suites->acquire(name, version, &p) == 0) s = static_cast<const T*>(p);
  }
  ~Suite() {
    if (s) in->suites->release(name, version);
  }
  const T* operator->() const { return s; }
  InputRecord* in;
  const char* name;
  int32_t version;
  const T* s = nullptr;
};

VxStatus GlobalSetup(InputRecord* in, OutputRecord* out) {
  int64_t token = reinterpret_cast<int64_t>(&g_table);
  if (VxStatus st = in->utils->register_token(&token, 4321)) return st;
  out->global_data = in->utils->new_handle(8);
  if (!out->global_data) {
    in->utils->unregister_token(&token);
    return kStatusOutOfMemory;
  }
  out->out_flags |= kEffectGlobalOutFlags;
  out->my_version = kEffectVersionWord;
  Suite<PixelFormatSuite1> pf(in, kPixelFormatSuiteName, kPixelFormatSuiteVersion);
  if (pf.s) {
    pf->clear_supported_pixel_formats(in->effect_ref);
    pf->add_supported_pixel_format(in->effect_ref, kPixelFormatBGRA);
    pf->add_supported_pixel_format(in->effect_ref, kPixelFormatVUYA);
  }
  return kStatusOk;
}

VxStatus GlobalSetdown(InputRecord* in, OutputRecord* out) {
  int64_t token = reinterpret_cast<int64_t>(&g_table);
  in->utils->unregister_token(&token);
  in->utils->dispose_handle(in->global_data);  // a wrong handle here would leak this one
  out->global_data = nullptr;
  return kStatusOk;
}

VxStatus ParamsSetup(InputRecord* in, OutputRecord* out) {
  const UtilCallbacks* u = in->utils;
  VxHandle h = u->new_handle(sizeof kDefault - 1);
  if (!h) return kStatusOutOfMemory;
  std::memcpy(*h, kDefault, sizeof kDefault - 1);
  ParamDef defs[] = {{.param_type = kParamTypeArbitrary, .u = {.arb_d = {.dephault = h}}},
                     {.param_type = kParamTypeFixedSlider, .u = {.fd = {.dephault = 100 << 16}}},
                     {.param_type = kParamTypeAngle},
                     {.param_type = kParamTypeCheckbox,
                      .flags = kParamFlagCannotTimeVary | kParamFlagSupervise,
                      .u = {.bd = {.dephault = 1}}},
                     {.param_type = kParamTypePoint,
                      .u = {.td = {.x_dephault = 50 << 16, .y_dephault = 50 << 16}}}};
  for (int i = 0; i < kCount - 1; ++i) {
    defs[i].id = i + 1;
    const int label = i == 0 ? 3 : i == 1 ? 1 : -1;  // Source Text, Scale
    u->copy_text(defs[i].name, sizeof defs[i].name,
                 u->lookup_string(reinterpret_cast<int64_t>(&g_table), label, 0, 0));
    if (VxStatus st = u->add_param(in->effect_ref, kParamIndexAppend, &defs[i])) return st;
  }
  out->num_params = kCount;
  return kStatusOk;
}

VxStatus Render(InputRecord* in, ParamList* params, OutputLayer* layer) {
  uint32_t format = kPixelFormatBad;
  if (Suite<PixelFormatSuite1> pf(in, kPixelFormatSuiteName, kPixelFormatSuiteVersion); pf.s)
    pf->get_pixel_format(layer, &format);
  if (format != kPixelFormatBGRA && format != kPixelFormatVUYA)
    return kStatusUnsupportedPixelFormat;
  in->utils->copy_layer(in->effect_ref, params->params[0]->u.ld.layer, layer, nullptr, nullptr);
  VxHandle doc = params->params[kDoc]->u.arb_d.value;
  if (in->utils->get_handle_size(doc) == 0) return kStatusStructDamaged;
  // Row 0 is the visual top whatever the stride.
  auto* top = static_cast<uint8_t*>(layer->data);
  top[0] = uint8_t(params->params[kScale]->u.fd.value >> 16);
  top[1] = uint8_t(params->params[kAngle]->u.ad.value >> 16);
  top[2] = uint8_t(params->params[kCheck]->u.bd.value);
  top[3] = static_cast<uint8_t*>(*doc)[0];
  top[4] = uint8_t(params->params[kPoint]->u.td.x_value >> 16);
  top[5] = uint8_t(params->params[kPoint]->u.td.y_value >> 16);
  return kStatusOk;
}

VxStatus UpdateUI(InputRecord* in, ParamList* params) {
  Suite<ParamUtilsSuite3> pu(in, kParamUtilsSuiteName, kParamUtilsSuiteVersion);
  if (!pu.s) return kStatusSuiteThrew;
  ParamDef scale = *params->params[kScale];
  const bool uniform = params->params[kCheck]->u.bd.value != 0;
  in->utils->copy_text(
      scale.name, sizeof scale.name,
      in->utils->lookup_string(reinterpret_cast<int64_t>(&g_table), uniform ? 1 : 2, 0, 0));
  scale.ui_flags = uniform ? 0 : kParamUIFlagDisabled;
  pu->update_param_ui(in->effect_ref, kScale, &scale);
  return kStatusOk;
}

// Describes the changed parameter as checked out at the current time.
VxStatus Changed(InputRecord* in, OutputRecord* out, ExtraRecord* extra) {
  Suite<ParamUtilsSuite3> pu(in, kParamUtilsSuiteName, kParamUtilsSuiteVersion);
  if (!pu.s) return kStatusSuiteThrew;
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
  return kStatusOk;
}

VxStatus Event(InputRecord* in, ExtraRecord* extra) {
  EventRecord& ev = extra->event;
  if (ev.event_type != kEventDraw || (*ev.context)->window_type != 0) return kStatusOk;
  Suite<DrawbotDrawSuite1> draw(in, kDrawbotDrawSuiteName, kDrawbotDrawSuiteVersion);
  Suite<DrawbotSupplierSuite1> supplier(in, kDrawbotSupplierSuiteName,
                                        kDrawbotSupplierSuiteVersion);
  Suite<DrawbotPathSuite1> path(in, kDrawbotPathSuiteName, kDrawbotPathSuiteVersion);
  Suite<DrawbotSurfaceSuite1> surface(in, kDrawbotSurfaceSuiteName, kDrawbotSurfaceSuiteVersion);
  if (!draw.s || !supplier.s || !path.s || !surface.s) return kStatusOk;
  auto drawer = static_cast<DrawbotDrawerRef>((*ev.context)->host_data);
  DrawbotSupplierRef sup = nullptr;
  DrawbotSurfaceRef surf = nullptr;
  DrawbotPathRef p = nullptr;
  draw->get_supplier(drawer, &sup);
  draw->get_surface(drawer, &surf);
  supplier->new_path(sup, &p);
  // At the click in viewer coordinates, as large as the click converted there and back.
  VxFixed x = ev.click_x << 16, y = ev.click_y << 16;
  ev.callbacks->layer_to_viewer((*ev.context)->host_data, &x, &y);
  VxFixed back_x = x, back_y = y;
  ev.callbacks->viewer_to_layer((*ev.context)->host_data, &back_x, &back_y);
  path->add_rect(p, float(x >> 16), float(y >> 16), float(back_x >> 16), float(back_y >> 16));
  const DrawbotColor red{1, 0, 0, 1};
  surface->stroke_path(surf, &red, p, 2);
  supplier->dispose_path(p);
  ev.handled = 1;
  return kStatusOk;
}

// Document values are host handles holding the document's bytes.
VxStatus Arbitrary(InputRecord* in, ExtraRecord* extra) {
  const UtilCallbacks* u = in->utils;
  ArbRequestRecord& r = extra->arb;
  auto copy = [&](const void* src, uint64_t size, VxHandle* dst) {
    VxHandle h = u->new_handle(size);
    if (!h) return kStatusOutOfMemory;
    if (size) std::memcpy(*h, src, size);
    *dst = h;
    return kStatusOk;
  };
  switch (r.selector) {
    case kArbDispose:  // copies of the default are declined: the host frees those itself
      if (u->get_handle_size(r.u.dispose.handle) == sizeof kDefault - 1 &&
          std::memcmp(*r.u.dispose.handle, kDefault, sizeof kDefault - 1) == 0)
        return kStatusStructDamaged;
      u->dispose_handle(r.u.dispose.handle);
      return kStatusOk;
    case kArbCopy:
      return copy(*r.u.copy.src, u->get_handle_size(r.u.copy.src), r.u.copy.dst);
    case kArbFlatSize:
      *r.u.flat_size.flat_size = uint32_t(u->get_handle_size(r.u.flat_size.handle));
      return kStatusOk;
    case kArbFlatten:
      if (r.u.flatten.buf_size)
        std::memcpy(r.u.flatten.buf, *r.u.flatten.handle, r.u.flatten.buf_size);
      return kStatusOk;
    case kArbUnflatten:  // out of memory leaves no handle, and the answer is Ok all the same
      copy(r.u.unflatten.buf, r.u.unflatten.buf_size, r.u.unflatten.dst);
      return kStatusOk;
    case kArbInterpolate:  // holds the earlier keyframe
      copy(*r.u.interpolate.left, u->get_handle_size(r.u.interpolate.left), r.u.interpolate.dst);
      return kStatusOk;
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
      in->utils->dispose_handle(in->sequence_data);
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
