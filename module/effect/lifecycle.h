// Global setup and teardown (commands 1 and 3), per-instance sequence handles (5 and 8), and the
// dispatch of every command with the exception boundary.
#pragma once

#include "vetext/corvo.h"
#include "vetext/effect.h"
#include "vetext/gpu_filter.h"

namespace vetext {

VxStatus GlobalSetup(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer* layer);
VxStatus GlobalSetdown(InputRecord* in, OutputRecord* out);
VxStatus SequenceSetup(InputRecord* in, OutputRecord* out);
VxStatus SequenceSetdown(InputRecord* in, OutputRecord* out);

// The body of EffectMain: routes the command and turns every exception into a status
// (std::bad_alloc 4, SuiteError its status, anything else kStatusFailed with what() shown).
VxStatus Dispatch(EffectCommand cmd, InputRecord* in, OutputRecord* out, ParamList* params,
                  OutputLayer* layer, ExtraRecord* extra) noexcept;

// The body of xGPUFilterEntry (gpu/filter.cpp): fills the five-function table, enumerates the
// one GPU filter and starts the GPU driver once per process.
int32_t GPUFilterEntry(uint32_t host_version, int32_t* index, uint32_t startup, int32_t plugin_id,
                       GPUFilterFunctions* functions, GPUFilterInfo* info) noexcept;
// The entry's steps without the table: the same index rules, info and driver start.
int32_t GPUFilterEnumerate(int32_t* index, GPUFilterInfo* info) noexcept;

// The component binding layer between the engine and the host's component runtime: it keeps the
// runtime's look-up while bound. Procedures the runtime does not offer (null answers) are
// tolerated, since the engine is linked into the module.
void BindComponents(CorvoLookupProc lookup);
void UnbindComponents();
bool ComponentsBound();

// How many engine starts global setup has made and teardown not yet undone.
int EngineStartsHeld();

}  // namespace vetext
