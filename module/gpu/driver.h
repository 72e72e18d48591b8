// The GPU driver's one start per process. The host does the GPU work; the effect only makes
// sure the driver was initialised before the host's GPU work for it begins.
#pragma once

#include <cstdint>

namespace vetext {

// Result of a driver load that could not find the library or one of its entry points.
constexpr int32_t kDriverNotLoaded = 999;

// Opens the CUDA driver library (libcuda.so.1), calls cuInit(flags) and cuDriverGetVersion, and
// resolves the driver entry points of the given interface version. Returns the driver's own
// result (0 on success) or kDriverNotLoaded. The handle and the entry points are kept for the
// life of the process.
int32_t LoadDriverInterface(uint32_t flags, int32_t interface_version);

// Once per process (concurrent callers wait for the first): when the host's GPU foundation has
// a primary device, loads the driver with flags 0 and interface version 8000. Failures are not
// reported: the host's GPU work then fails or falls back on its own.
void EnsureDriverInitialized();

// How many times the guarded body has run in this process (0 or 1), for the tests.
int32_t DriverInitRuns();
// The result of the load the guarded body made, or -1 when it made none (no primary device).
int32_t DriverLoadResult();

}  // namespace vetext
