#include "params/params.h"

#include <array>
#include <cstring>
#include <vector>

#include "effect/suites.h"
#include "engine/kte.h"
#include "params/labels.h"
#include "vetext/suites.h"

namespace vetext {
namespace {

constexpr VxFixed kFixedOne = 0x10000;
constexpr VxFixed Fixed(int v) {
  return v * kFixedOne;
}

// The checkbox's own text must outlive the effect; the host's look-up string lives only until
// unregistration, so the module keeps a copy.
std::array<char, 64> g_uniform_scale_text{};

void CopyName(const InputRecord* in, ParamDef& def, const char* text) {
  if (in->utils->copy_text != nullptr) {
    in->utils->copy_text(def.name, sizeof def.name, text);
  } else {
    std::strncpy(def.name, text, sizeof def.name - 1);
    def.name[sizeof def.name - 1] = '\0';
  }
}

void Slider(ParamDef& def, VxFixed value, VxFixed lo, VxFixed hi, int16_t precision,
            int16_t display) {
  def.param_type = kParamTypeFixedSlider;
  def.u.fd.value = value;
  def.u.fd.dephault = value;
  def.u.fd.valid_min = def.u.fd.slider_min = lo;
  def.u.fd.valid_max = def.u.fd.slider_max = hi;
  def.u.fd.precision = precision;
  def.u.fd.display_flags = display;
}

void Point(ParamDef& def) {
  def.param_type = kParamTypePoint;
  def.u.td.x_value = def.u.td.y_value = Fixed(50);
  def.u.td.x_dephault = def.u.td.y_dephault = Fixed(50);
  def.u.td.restrict_bounds = 0;
}

bool UsableHost(const InputRecord* in) {
  return in != nullptr && in->utils != nullptr;
}

}  // namespace

VxStatus ParamsSetup(InputRecord* in, OutputRecord* out, ParamList*, OutputLayer*) {
  if (!UsableHost(in) || out == nullptr || in->utils->add_param == nullptr ||
      in->utils->new_handle == nullptr)
    return kStatusStructDamaged;
  const UtilCallbacks* u = in->utils;
  const int64_t token = RegistrationToken(in);
  const char* blank = LookupLabel(in, token, kLabelSpace);

  // Source Text: its default is the default document spelled out in full.
  {
    std::vector<uint8_t> block = KTE::WriteDocument(*KTE::MakeDefaultDocument());
    VxHandle h = u->new_handle(block.size());
    if (h == nullptr || *h == nullptr) {
      if (h != nullptr && u->dispose_handle != nullptr) u->dispose_handle(h);
      return kStatusOutOfMemory;
    }
    std::memcpy(*h, block.data(), block.size());
    ParamDef def{};
    def.id = kParamSourceText;
    def.ui_flags = kParamUIFlagControl;
    def.param_type = kParamTypeArbitrary;
    CopyName(in, def, LookupLabel(in, token, kLabelSourceText));
    def.u.arb_d.id = 1;
    def.u.arb_d.dephault = h;
    def.u.arb_d.value = nullptr;
    def.u.arb_d.refcon = reinterpret_cast<void*>(static_cast<uintptr_t>(kSourceTextRefcon));
    u->add_param(in->effect_ref, kParamIndexAppend, &def);  // its status is not looked at
  }

  std::strncpy(g_uniform_scale_text.data(), LookupLabel(in, token, kLabelUniformScale),
               g_uniform_scale_text.size() - 1);

  for (int32_t index = kParamTransformGroup; index <= kParamTransformGroupEnd; ++index) {
    ParamDef def{};
    def.id = index;
    switch (index) {
      case kParamTransformGroup:
        def.param_type = kParamTypeGroupStart;
        CopyName(in, def, LookupLabel(in, token, kLabelTransformGroup));
        break;
      case kParamPosition:
        Point(def);
        CopyName(in, def, LookupLabel(in, token, kLabelPosition));
        break;
      case kParamScale:
        Slider(def, Fixed(100), Fixed(25), Fixed(400), 0, 0);
        CopyName(in, def, LookupLabel(in, token, kLabelScale));
        break;
      case kParamHorizontalScale:
        // Starts disabled because Uniform Scale starts on.
        Slider(def, Fixed(100), Fixed(25), Fixed(400), 0, 0);
        def.ui_flags = kParamUIFlagDisabled;
        CopyName(in, def, LookupLabel(in, token, kLabelHScale));
        break;
      case kParamUniformScale:
        def.param_type = kParamTypeCheckbox;
        def.flags = kParamFlagCannotTimeVary | kParamFlagSupervise;
        def.u.bd.value = 1;
        def.u.bd.dephault = 1;
        def.u.bd.name = g_uniform_scale_text.data();
        CopyName(in, def, blank);  // the box's own text carries the name
        break;
      case kParamRotation:
        def.param_type = kParamTypeAngle;
        CopyName(in, def, LookupLabel(in, token, kLabelRotation));
        break;
      case kParamOpacity:
        Slider(def, Fixed(100), 0, Fixed(100), 1, 1);
        CopyName(in, def, LookupLabel(in, token, kLabelOpacity));
        break;
      case kParamAnchorPoint:
        Point(def);
        CopyName(in, def, LookupLabel(in, token, kLabelAnchorPoint));
        break;
      case kParamTransformGroupEnd:
        def.param_type = kParamTypeGroupEnd;
        break;
    }
    const VxStatus st = u->add_param(in->effect_ref, kParamIndexAppend, &def);
    if (st != 0) return st;
  }
  out->num_params = kParamCount;
  return kStatusOk;
}

bool ReadTransform(const ParamList* params, TransformValues* t) {
  if (params == nullptr || params->params == nullptr || params->count <= kParamAnchorPoint)
    return false;
  for (int32_t i = kParamPosition; i <= kParamAnchorPoint; ++i)
    if (params->params[i] == nullptr) return false;
  const ParamDef* const* p = params->params;
  t->position_x = FixedToFloat(p[kParamPosition]->u.td.x_value);
  t->position_y = FixedToFloat(p[kParamPosition]->u.td.y_value);
  // Percentages: the division by 100 is made in double on the single value and rounded back.
  t->scale_y = float(double(FixedToFloat(p[kParamScale]->u.fd.value)) / 100.0);
  t->scale_x = p[kParamUniformScale]->u.bd.value != 0
                   ? t->scale_y
                   : float(double(FixedToFloat(p[kParamHorizontalScale]->u.fd.value)) / 100.0);
  t->rotation = FixedToFloat(p[kParamRotation]->u.ad.value);
  t->opacity = FixedToFloat(p[kParamOpacity]->u.fd.value) / 100.0f;
  t->anchor_x = FixedToFloat(p[kParamAnchorPoint]->u.td.x_value);
  t->anchor_y = FixedToFloat(p[kParamAnchorPoint]->u.td.y_value);
  return true;
}

VxStatus UserChangedParam(InputRecord* in, OutputRecord* out, ParamList*, OutputLayer*,
                          ExtraRecord*) {
  // Only confirms that the host can update controls; no Transform edit touches the document.
  ScopedSuite<ParamUtilsSuite3> suite(in, out, kParamUtilsSuiteName, kParamUtilsSuiteVersion);
  return kStatusOk;
}

VxStatus UpdateParamsUI(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer*) {
  ScopedSuite<ParamUtilsSuite3> suite(in, out, kParamUtilsSuiteName, kParamUtilsSuiteVersion);
  if (!UsableHost(in) || params == nullptr || params->params == nullptr ||
      params->count <= kParamUniformScale || params->params[kParamScale] == nullptr ||
      params->params[kParamHorizontalScale] == nullptr ||
      params->params[kParamUniformScale] == nullptr)
    return kStatusStructDamaged;
  if (suite.get() == nullptr || suite->update_param_ui == nullptr) return kStatusOk;
  // Work on copies: the host's own records are never written.
  ParamDef scale = *params->params[kParamScale];
  ParamDef hscale = *params->params[kParamHorizontalScale];
  const bool uniform = params->params[kParamUniformScale]->u.bd.value != 0;
  const int64_t token = RegistrationToken(in);
  CopyName(in, scale, LookupLabel(in, token, uniform ? kLabelScale : kLabelVScale));
  hscale.ui_flags = uniform ? uint32_t{kParamUIFlagDisabled} : 0u;
  suite->update_param_ui(in->effect_ref, kParamScale, &scale);
  suite->update_param_ui(in->effect_ref, kParamHorizontalScale, &hscale);
  return kStatusOk;
}

}  // namespace vetext
