/* vetext host library "GPUFoundation": the devices the GPU path draws on.
 *
 * Devices, by index (GF::GetDevice):
 *   0        "cpu": always present. Device memory is host memory; Motion is the CPU
 *            compositor's arithmetic (ImageRenderer), so every machine runs the whole GPU path.
 *   1 .. n   "cuda": one per GPU the CUDA driver reports, when libcuda.so.1 loads (opened at run
 *            time; nothing links against CUDA) and the library was built with the CUDA kernels.
 * The primary device (GF::GetPrimaryDevice) is the first GPU; empty when there is none.
 *
 * Device pointers are plain addresses in the device's memory (on "cuda" CUdeviceptr values).
 * Memory a device allocated is written only through that device's calls (Upload, Copy,
 * Motion), on "cpu" too, where it is host memory: the device may keep work derived from it (a
 * source's reduction) until one of its calls overwrites it. Motion on "cpu" also accepts other
 * host memory, and then keeps nothing.
 * Pitches are signed byte steps from one visual row to the next: a frame stored bottom-up is
 * described by its top visual row and a negative pitch, as ImageRenderer's buffers are.
 *
 * Results: 0 on success; a negative kGF* status on failure (a failed call leaves its
 * destination as it was, except Motion, which may have drawn part of its rows when the device
 * itself fails).
 *
 * Thread safety: devices are shared and every member may be called from any thread; calls on
 * disjoint memory may run at once. Each call completes before it returns (the cuda device
 * synchronises its stream), so device memory can be read back or freed right after. */
#ifndef VETEXT_GPU_FOUNDATION_H
#define VETEXT_GPU_FOUNDATION_H

#include <stdint.h>

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "vetext/image_renderer.h"
#include "vetext/vx_api.h"

namespace GF {

enum : int32_t {
  kGFOk = 0,
  kGFErrArgument = -1,    /* null pointers, sizes below 1, pitches shorter than a row */
  kGFErrOutOfMemory = -2, /* device memory exhausted */
  kGFErrDevice = -3,      /* the driver failed (the device's LastError says how) */
  kGFErrFormat = -4       /* a pixel format Motion does not draw */
};

/* How Motion places `src` over `dst`: the arguments of IR_MotionPrefiltered for a source that
 * Motion reduces itself, plus the displacement of a pre-shifted source. */
struct MotionArgs {
  const void* src = nullptr; /* top visual row, premultiplied 4-byte pixels, device memory */
  int64_t src_pitch = 0;
  int32_t src_width = 0, src_height = 0;
  void* dst = nullptr; /* top visual row, straight 4-byte pixels, device memory */
  int64_t dst_pitch = 0;
  int32_t dst_width = 0, dst_height = 0;
  int32_t format = kIRFormatBGRA8; /* kIRFormatBGRA8 or kIRFormatVUYA8, both buffers */
  /* The source point (fractions of the source size) lands on the destination point (fractions
   * of the destination size); the source is scaled by `scale` (destination pixels per source
   * pixel) and turned by `rotation_deg` about it, counter-clockwise on screen. */
  IR_Point dst_point{0, 0}, src_point{0, 0}, scale{0, 0};
  double rotation_deg = 0;
  float opacity = 1;
  /* The source is reduced by IR_PrefilterFactors(scale) before sampling. When the placement is
   * one to one (see IR_AlignedShift) the source may have been drawn displaced by
   * (shift_x, shift_y) / shift_steps reduced pixels, which Motion then undoes by copying pixel
   * for pixel; shift_steps 0 means not displaced. */
  int32_t shift_steps = 0, shift_x = 0, shift_y = 0;
  /* Interpolation mode, -1 .. 5 (the GPU filter's mapping of the render quality). One filter
   * exists: the mode is accepted and has no effect. */
  int32_t interpolation = 1;
};

class Device {
 public:
  virtual ~Device() = default;
  virtual const char* Kind() const = 0; /* "cpu" or "cuda" */
  virtual std::string Name() const = 0; /* for people: the processor or GPU and its driver */
  virtual int32_t Index() const = 0;    /* its GF::GetDevice index */
  /* Device memory: `*out` receives the address (null on failure). Free of null is harmless. */
  virtual int32_t Allocate(uint64_t bytes, void** out) = 0;
  virtual int32_t Free(void* memory) = 0;
  /* Copies `rows` rows of `row_bytes` bytes: host to device, device to host, device to device.
   * Pitches as described above (negative for bottom-up). */
  virtual int32_t Upload(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch,
                         int64_t row_bytes, int32_t rows) = 0;
  virtual int32_t Download(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch,
                           int64_t row_bytes, int32_t rows) = 0;
  virtual int32_t Copy(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch,
                       int64_t row_bytes, int32_t rows) = 0;
  /* Draws args.src over args.dst (see MotionArgs). A zero scale, or a source that falls outside
   * the destination, draws nothing and returns 0. */
  virtual int32_t Motion(const MotionArgs& args) = 0;
  /* The driver's last error, for messages ("" when none). */
  virtual std::string LastError() const = 0;
};

typedef boost::shared_ptr<Device> DevicePtr;

/* The first GPU, or empty when the machine has none (or the library has no CUDA kernels). */
VX_API DevicePtr GetPrimaryDevice();
/* Device `index` (see above), or empty when there is no such device. */
VX_API DevicePtr GetDevice(int32_t index);
/* Every device, cpu first. The list is made once per process. */
VX_API std::vector<DevicePtr> Devices();
/* Why no cuda device is listed ("" when one is): no kernels built, no driver, no GPU, ... */
VX_API std::string CudaUnavailableReason();

/* GF::Motion(device, args): device->Motion(args), or kGFErrArgument for an empty device. */
VX_API int32_t Motion(const DevicePtr& device, const MotionArgs& args);

}  // namespace GF

#endif
