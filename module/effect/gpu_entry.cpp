// The GPU filter entry: enumeration of the one filter the module offers. The instance functions
// are placeholders until the GPU path exists: they report kErrUnsupported and create nothing, so
// a host falls back to the CPU render.
#include <cstring>

#include "effect/lifecycle.h"

namespace vetext {
namespace {

int32_t CreateInstance(GPUInstanceRecord*) {
  return kErrUnsupported;
}
int32_t DisposeInstance(GPUInstanceRecord*) {
  return kErrUnsupported;
}
int32_t QueryDependency(GPUInstanceRecord*, const GPURenderParams*, int32_t*, GPUDependency*) {
  return kErrUnsupported;
}
int32_t PrecomputeRecord(GPUInstanceRecord*, const GPURenderParams*, int32_t, RPixHandle) {
  return kErrUnsupported;
}
int32_t RenderFrame(GPUInstanceRecord*, const GPURenderParams*, const GPUFrameHandle*, uint64_t,
                    GPUFrameHandle*) {
  return kErrUnsupported;
}

// Steps shared by the entry and its enumeration-only twin.
int32_t Enumerate(int32_t* index, GPUFilterInfo* info) {
  if (index == nullptr || info == nullptr) return kErrGeneric;
  const int32_t i = *index;
  if (i >= 1) return kErrNoMoreFilters;  // only filter 0 exists
  if (i < 0) *index = 0;                 // -1 asks for the first filter
  std::memset(info->name_value, 0, sizeof info->name_value);
  info->interface_version = 2;
  return kGPUOk;
}

}  // namespace

int32_t GPUFilterEntry(uint32_t, int32_t* index, uint32_t startup, int32_t,
                       GPUFilterFunctions* functions, GPUFilterInfo* info) noexcept {
  if (startup == 0) return kGPUOk;  // the host is shutting the filter down
  if (functions == nullptr) return kErrGeneric;
  functions->create_instance = &CreateInstance;
  functions->dispose_instance = &DisposeInstance;
  functions->query_dependency = &QueryDependency;
  functions->precompute = &PrecomputeRecord;
  functions->render = &RenderFrame;
  return Enumerate(index, info);
}

}  // namespace vetext
