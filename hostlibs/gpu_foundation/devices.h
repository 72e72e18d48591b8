// The devices behind GF::*, private to the library: the cpu device, the CUDA devices, and the
// Motion arithmetic both share.
#ifndef VETEXT_HOSTLIBS_GPU_FOUNDATION_DEVICES_H
#define VETEXT_HOSTLIBS_GPU_FOUNDATION_DEVICES_H

#include <string>
#include <vector>

#include "vetext/gpu_foundation.h"

namespace gf {

// The cpu device (index 0).
GF::DevicePtr MakeCpuDevice();
// The CUDA devices, numbered from `first_index`; empty with *reason saying why when there are
// none.
std::vector<GF::DevicePtr> MakeCudaDevices(int32_t first_index, std::string* reason);

// Checks what every device's Motion needs of its arguments; kGFOk or the status to return.
int32_t CheckMotionArgs(const GF::MotionArgs& a);
// Row copy with signed pitches, host memory to host memory.
void CopyRows(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch, int64_t row_bytes,
              int32_t rows);

}  // namespace gf

#endif
