#include "gpu/driver.h"

#include <dlfcn.h>

#include <atomic>
#include <boost/thread/once.hpp>
#include <iterator>

#include "vetext/gpu_foundation.h"

namespace vetext {
namespace {

// The driver API functions that interface version 8000 offers and a host's GPU work relies on,
// device to graphics interop. Resolving them all finds a driver too old for that interface
// before any GPU work starts; nothing in the effect calls them.
constexpr const char* kEntryPoints[] = {
    "cuDeviceGet",
    "cuDeviceGetCount",
    "cuDeviceGetName",
    "cuDeviceTotalMem_v2",
    "cuDeviceGetAttribute",
    "cuDevicePrimaryCtxRetain",
    "cuCtxCreate_v2",
    "cuCtxDestroy_v2",
    "cuCtxPushCurrent_v2",
    "cuCtxPopCurrent_v2",
    "cuCtxSetCurrent",
    "cuCtxGetCurrent",
    "cuCtxSynchronize",
    "cuModuleLoadData",
    "cuModuleUnload",
    "cuModuleGetFunction",
    "cuMemAlloc_v2",
    "cuMemFree_v2",
    "cuMemAllocPitch_v2",
    "cuMemcpyHtoD_v2",
    "cuMemcpyDtoH_v2",
    "cuMemcpyDtoD_v2",
    "cuMemcpy2D_v2",
    "cuMemcpy2DAsync_v2",
    "cuMemsetD8_v2",
    "cuArrayCreate_v2",
    "cuArrayDestroy",
    "cuTexObjectCreate",
    "cuTexObjectDestroy",
    "cuStreamCreate",
    "cuStreamDestroy_v2",
    "cuStreamSynchronize",
    "cuEventCreate",
    "cuEventDestroy_v2",
    "cuEventRecord",
    "cuEventSynchronize",
    "cuLaunchKernel",
    "cuGraphicsUnregisterResource",
    "cuGraphicsMapResources",
    "cuGraphicsUnmapResources",
};

struct DriverTable {
  void* library = nullptr;
  void* entries[std::size(kEntryPoints)] = {};
};
DriverTable g_driver;  // kept for the life of the process, never released

boost::once_flag g_once = BOOST_ONCE_INIT;
std::atomic<int32_t> g_runs{0};
std::atomic<int32_t> g_load_result{-1};

void InitializeOnce() {
  g_runs.fetch_add(1);
  bool has_primary = false;
  {
    GF::DevicePtr primary = GF::GetPrimaryDevice();
    has_primary = primary.get() != nullptr;
  }  // released before the load, as a host expects of its device references
  if (!has_primary) return;
  g_load_result.store(LoadDriverInterface(0, 8000));
}

}  // namespace

int32_t LoadDriverInterface(uint32_t flags, int32_t /*interface_version*/) {
  if (g_driver.library == nullptr) g_driver.library = dlopen("libcuda.so.1", RTLD_NOW | RTLD_LOCAL);
  if (g_driver.library == nullptr) return kDriverNotLoaded;
  using InitFn = int (*)(unsigned);
  using VersionFn = int (*)(int*);
  auto init = reinterpret_cast<InitFn>(dlsym(g_driver.library, "cuInit"));
  if (init == nullptr) return kDriverNotLoaded;
  if (const int r = init(flags); r != 0) return r;
  if (auto version = reinterpret_cast<VersionFn>(dlsym(g_driver.library, "cuDriverGetVersion"))) {
    int v = 0;
    if (const int r = version(&v); r != 0) return r;
  }
  for (size_t i = 0; i < std::size(kEntryPoints); ++i) {
    g_driver.entries[i] = dlsym(g_driver.library, kEntryPoints[i]);
    if (g_driver.entries[i] == nullptr) return kDriverNotLoaded;
  }
  return 0;
}

void EnsureDriverInitialized() {
  boost::call_once(g_once, &InitializeOnce);
}

int32_t DriverInitRuns() {
  return g_runs.load();
}
int32_t DriverLoadResult() {
  return g_load_result.load();
}

}  // namespace vetext
