// The GPU filter entry and its instances: enumeration of the one filter, the five-function
// table, and the instance object's creation, suites and disposal. Every function the host calls
// catches what the render throws: nothing crosses the C boundary, and every failure is
// kErrGeneric (the GPU results are negative on failure, so the CPU statuses do not apply).
#include "gpu/filter.h"

#include <cstring>
#include <exception>
#include <new>

#include "effect/lifecycle.h"
#include "gpu/driver.h"

namespace vetext {

int32_t VEFilterTextGPU::Initialize(GPUInstanceRecord* rec) {
  RxGPUFilterBase::Initialize(rec);
  AcquirePixelSuites(rec->suites);
  return 0;
}

void VEFilterTextGPU::AcquirePixelSuites(const GPUSuiteAccessor* accessor) {
  accessor_ = accessor;
  if (accessor == nullptr || accessor->acquire == nullptr) return;
  const void* s = nullptr;
  accessor->acquire(kRPixSuiteName, kRPixSuiteVersion, &s);
  pix_suite_ = static_cast<const RPixSuite1*>(s);
  s = nullptr;
  accessor->acquire(kRPixCacheSuiteName, kRPixCacheSuiteVersion, &s);
  cache_suite_ = static_cast<const RPixCacheSuite6*>(s);
  s = nullptr;
  accessor->acquire(kRPixCreatorSuiteName, kRPixCreatorSuiteVersion, &s);
  creator_suite_ = static_cast<const RPixCreatorSuite3*>(s);
}

namespace {

// The object in the record's private slot (which the host's layout leaves 4-byte aligned).
VEFilterTextGPU* ObjectOf(GPUInstanceRecord* rec) {
  if (rec == nullptr) return nullptr;
  void* p = nullptr;
  std::memcpy(&p, reinterpret_cast<const char*>(rec) + offsetof(GPUInstanceRecord, private_slot),
              sizeof p);
  return static_cast<VEFilterTextGPU*>(p);
}
void SetObject(GPUInstanceRecord* rec, VEFilterTextGPU* object) {
  void* p = object;
  std::memcpy(reinterpret_cast<char*>(rec) + offsetof(GPUInstanceRecord, private_slot), &p,
              sizeof p);
}

template <typename F>
int32_t Guarded(GPUInstanceRecord* rec, F&& f) noexcept {
  VEFilterTextGPU* object = ObjectOf(rec);
  if (object == nullptr) return kErrGeneric;
  try {
    return f(object);
  } catch (const std::exception&) {
    // std::bad_alloc, KSL::NullInterfaceException, engine errors over a damaged document: the
    // frame cannot be drawn on the GPU, which the host learns from the status.
    return kErrGeneric;
  }
}

int32_t CreateInstance(GPUInstanceRecord* rec) noexcept {
  if (rec == nullptr) return kErrGeneric;
  auto* object = new (std::nothrow) VEFilterTextGPU;
  if (object == nullptr) return kErrGeneric;
  const int32_t status = object->Initialize(rec);
  if (status < 0) {
    delete object;
    return status;
  }
  SetObject(rec, object);
  return status;
}

int32_t DisposeInstance(GPUInstanceRecord* rec) noexcept {
  if (rec == nullptr) return kGPUOk;
  delete ObjectOf(rec);
  SetObject(rec, nullptr);
  return kGPUOk;
}

int32_t QueryDependency(GPUInstanceRecord* rec, const GPURenderParams* params, int32_t* index,
                        GPUDependency* dependency) noexcept {
  return Guarded(rec,
                 [&](VEFilterTextGPU* o) { return o->QueryDependency(params, index, dependency); });
}
int32_t PrecomputeRecord(GPUInstanceRecord* rec, const GPURenderParams* params, int32_t index,
                         RPixHandle buffer) noexcept {
  return Guarded(rec,
                 [&](VEFilterTextGPU* o) { return o->PrecomputeRecord(params, index, buffer); });
}
int32_t RenderFrame(GPUInstanceRecord* rec, const GPURenderParams* params,
                    const GPUFrameHandle* frames, uint64_t count, GPUFrameHandle* out) noexcept {
  return Guarded(rec,
                 [&](VEFilterTextGPU* o) { return o->RenderFrame(params, frames, count, out); });
}

// Steps shared by the entry and its enumeration-only twin: the index rules, the info record,
// the driver's one start.
int32_t Enumerate(int32_t* index, GPUFilterInfo* info) {
  if (index == nullptr || info == nullptr) return kErrGeneric;
  const int32_t i = *index;
  if (i >= 1) return kErrNoMoreFilters;  // only filter 0 exists
  if (i < 0) *index = 0;                 // -1 asks for the first filter
  std::memset(info->name_value, 0, sizeof info->name_value);
  info->interface_version = 2;
  try {
    EnsureDriverInitialized();
  } catch (const std::exception&) {
    // A driver that cannot start leaves the host to find out when it renders.
  }
  return kGPUOk;
}

}  // namespace

int32_t GPUFilterEnumerate(int32_t* index, GPUFilterInfo* info) noexcept {
  return Enumerate(index, info);
}

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

int32_t InterpolationFor(int32_t quality) {
  if (quality == -1) return -1;
  if (quality >= 0 && quality <= 4) return quality + 1;
  return 1;
}

}  // namespace vetext
