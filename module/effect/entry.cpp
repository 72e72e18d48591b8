// The module's two exported entry points. Nothing else is exported (see exports.map).
#include "effect/lifecycle.h"
#include "params/labels.h"
#include "vetext/module_info.h"

// The effect's name and category, for hosts that list it before setting it up.
VX_MODULE_INFO("name=" VETEXT_EFFECT_NAME_KEY "\0category=Video");

VX_EXTERN_C VX_MODULE_EXPORT VxStatus EffectMain(EffectCommand cmd, InputRecord* in,
                                                 OutputRecord* out, ParamList* params,
                                                 OutputLayer* layer, ExtraRecord* extra) {
  return vetext::Dispatch(cmd, in, out, params, layer, extra);
}

VX_EXTERN_C VX_MODULE_EXPORT int32_t xGPUFilterEntry(uint32_t host_version, int32_t* index,
                                                     uint32_t startup, int32_t plugin_id,
                                                     GPUFilterFunctions* functions,
                                                     GPUFilterInfo* info) {
  return vetext::GPUFilterEntry(host_version, index, startup, plugin_id, functions, info);
}
