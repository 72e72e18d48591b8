// The cuda device: the CUDA driver API, opened at run time (nothing links against CUDA), with
// the Motion kernels compiled to PTX at build time and embedded in the library.
//
// Every call makes the device's primary context current for its duration, works on the legacy
// default stream and synchronises the context before it returns, so that the caller may read
// back or free what it wrote at once and driver errors of the queued work surface in the call
// that queued it. A Motion's reduction goes to a scratch buffer the device keeps; the mutex
// around it and the synchronisation make reusing it safe.
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

#include "gpu_foundation/devices.h"
#include "gpu_foundation/motion_kernel.h"
#include "image_renderer/motion.h"

#ifdef VETEXT_HAVE_CUDA_KERNELS
extern const char kGFMotionPtx[];  // generated at build time
#endif

namespace gf {
namespace {

// The few driver types this file needs, as the driver's ABI has them.
using CUresult = int;
using CUdevice = int;
using CUdeviceptr = unsigned long long;
using CUcontext = struct CUctx_st*;
using CUmodule = struct CUmod_st*;
using CUfunction = struct CUfunc_st*;
using CUstream = struct CUstream_st*;
constexpr CUresult kCudaErrorOutOfMemory = 2;
enum CUmemorytype : int { kMemHost = 1, kMemDevice = 2 };
struct CUDA_MEMCPY2D {
  size_t srcXInBytes, srcY;
  CUmemorytype srcMemoryType;
  const void* srcHost;
  CUdeviceptr srcDevice;
  void* srcArray;
  size_t srcPitch;
  size_t dstXInBytes, dstY;
  CUmemorytype dstMemoryType;
  void* dstHost;
  CUdeviceptr dstDevice;
  void* dstArray;
  size_t dstPitch;
  size_t WidthInBytes, Height;
};
static_assert(sizeof(CUDA_MEMCPY2D) == 128, "CUDA_MEMCPY2D as the driver lays it out");

struct Driver {
  void* library = nullptr;
  CUresult (*Init)(unsigned);
  CUresult (*DeviceGetCount)(int*);
  CUresult (*DeviceGet)(CUdevice*, int);
  CUresult (*DeviceGetName)(char*, int, CUdevice);
  CUresult (*DriverGetVersion)(int*);
  CUresult (*PrimaryCtxRetain)(CUcontext*, CUdevice);
  CUresult (*PrimaryCtxRelease)(CUdevice);
  CUresult (*CtxPush)(CUcontext);
  CUresult (*CtxPop)(CUcontext*);
  CUresult (*CtxSynchronize)();
  CUresult (*ModuleLoadData)(CUmodule*, const void*);
  CUresult (*ModuleGetFunction)(CUfunction*, CUmodule, const char*);
  CUresult (*MemAlloc)(CUdeviceptr*, size_t);
  CUresult (*MemFree)(CUdeviceptr);
  CUresult (*MemcpyHtoD)(CUdeviceptr, const void*, size_t);
  CUresult (*Memcpy2D)(const CUDA_MEMCPY2D*);
  CUresult (*LaunchKernel)(CUfunction, unsigned, unsigned, unsigned, unsigned, unsigned, unsigned,
                           unsigned, CUstream, void**, void**);
  CUresult (*GetErrorString)(CUresult, const char**);

  // Opens the library and resolves every entry point; false with *reason when it cannot.
  bool Load(std::string* reason) {
    library = dlopen("libcuda.so.1", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
      const char* e = dlerror();
      *reason = std::string("the CUDA driver library could not be loaded (") +
                (e ? e : "libcuda.so.1") + ")";
      return false;
    }
    bool ok = true;
    auto get = [&](auto& fn, const char* name) {
      fn = reinterpret_cast<std::remove_reference_t<decltype(fn)>>(dlsym(library, name));
      if (fn == nullptr && ok) {
        ok = false;
        *reason = std::string("the CUDA driver lacks ") + name;
      }
    };
    get(Init, "cuInit");
    get(DeviceGetCount, "cuDeviceGetCount");
    get(DeviceGet, "cuDeviceGet");
    get(DeviceGetName, "cuDeviceGetName");
    get(DriverGetVersion, "cuDriverGetVersion");
    get(PrimaryCtxRetain, "cuDevicePrimaryCtxRetain");
    get(PrimaryCtxRelease, "cuDevicePrimaryCtxRelease_v2");
    get(CtxPush, "cuCtxPushCurrent_v2");
    get(CtxPop, "cuCtxPopCurrent_v2");
    get(CtxSynchronize, "cuCtxSynchronize");
    get(ModuleLoadData, "cuModuleLoadData");
    get(ModuleGetFunction, "cuModuleGetFunction");
    get(MemAlloc, "cuMemAlloc_v2");
    get(MemFree, "cuMemFree_v2");
    get(MemcpyHtoD, "cuMemcpyHtoD_v2");
    get(Memcpy2D, "cuMemcpy2D_v2");
    get(LaunchKernel, "cuLaunchKernel");
    get(GetErrorString, "cuGetErrorString");
    return ok;
  }
  std::string ErrorText(CUresult r) const {
    const char* text = nullptr;
    if (GetErrorString == nullptr || GetErrorString(r, &text) != 0 || text == nullptr)
      return "CUDA error " + std::to_string(r);
    return std::string(text) + " (" + std::to_string(r) + ")";
  }
};

Driver* g_driver = nullptr;  // loaded once with the device list, kept for the process

class CudaDevice final : public GF::Device {
 public:
  CudaDevice(int32_t index, CUdevice device, CUcontext context, std::string name)
      : index_(index), device_(device), context_(context), name_(std::move(name)) {}
  ~CudaDevice() override {
    {
      Scope scope(this);
      if (scope.ok() && scratch_ != 0) g_driver->MemFree(scratch_);
    }
    g_driver->PrimaryCtxRelease(device_);  // the last release also unloads the kernels
  }

  // Loads the kernels into the device's context; false with *error when they do not load.
  bool LoadKernels(std::string* error) {
#ifdef VETEXT_HAVE_CUDA_KERNELS
    Scope scope(this);
    CUmodule module = nullptr;
    if (!scope.ok() || !Ok(g_driver->ModuleLoadData(&module, kGFMotionPtx)) ||
        !Ok(g_driver->ModuleGetFunction(&reduce_, module, "gf_reduce")) ||
        !Ok(g_driver->ModuleGetFunction(&blend_, module, "gf_blend"))) {
      *error = LastError();
      return false;
    }
    return true;
#else
    *error = "built without the CUDA kernels";
    return false;
#endif
  }

  const char* Kind() const override {
    return "cuda";
  }
  std::string Name() const override {
    return name_;
  }
  int32_t Index() const override {
    return index_;
  }

  int32_t Allocate(uint64_t bytes, void** out) override {
    if (out == nullptr || bytes == 0) return GF::kGFErrArgument;
    *out = nullptr;
    Scope scope(this);
    if (!scope.ok()) return GF::kGFErrDevice;
    CUdeviceptr p = 0;
    if (const CUresult r = g_driver->MemAlloc(&p, size_t(bytes)); !Ok(r))
      return r == kCudaErrorOutOfMemory ? GF::kGFErrOutOfMemory : GF::kGFErrDevice;
    *out = reinterpret_cast<void*>(p);
    return GF::kGFOk;
  }
  int32_t Free(void* memory) override {
    if (memory == nullptr) return GF::kGFOk;
    Scope scope(this);
    return scope.ok() && Ok(g_driver->MemFree(Ptr(memory))) ? GF::kGFOk : GF::kGFErrDevice;
  }
  int32_t Upload(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch,
                 int64_t row_bytes, int32_t rows) override {
    return Copy2D(kMemDevice, dst, dst_pitch, kMemHost, src, src_pitch, row_bytes, rows);
  }
  int32_t Download(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch,
                   int64_t row_bytes, int32_t rows) override {
    return Copy2D(kMemHost, dst, dst_pitch, kMemDevice, src, src_pitch, row_bytes, rows);
  }
  int32_t Copy(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch, int64_t row_bytes,
               int32_t rows) override {
    return Copy2D(kMemDevice, dst, dst_pitch, kMemDevice, src, src_pitch, row_bytes, rows);
  }

  // The CPU compositor's plan, made here on the host (placement, one-to-one test, the rows and
  // columns the samples touch), then the reduction and the blend as two kernels.
  int32_t Motion(const GF::MotionArgs& a) override {
    if (const int32_t st = CheckMotionArgs(a); st != GF::kGFOk) return st;
    if (a.scale.x == 0 || a.scale.y == 0 || !(a.opacity > 0)) return GF::kGFOk;
    int32_t fx = 1, fy = 1;
    IR_PrefilterFactors(a.scale, &fx, &fy);
    IR_Prefiltered pf{};
    pf.width = ir::ReducedExtent(a.src_width, fx);
    pf.height = ir::ReducedExtent(a.src_height, fy);
    pf.factor_x = fx, pf.factor_y = fy;
    pf.src_width = a.src_width, pf.src_height = a.src_height;
    pf.shift_steps = a.shift_steps, pf.shift_x = a.shift_x, pf.shift_y = a.shift_y;
    ir::Placement pl;
    pl.src_x = double(a.src_point.x) * a.src_width;
    pl.src_y = double(a.src_point.y) * a.src_height;
    pl.dst_x = double(a.dst_point.x) * a.dst_width;
    pl.dst_y = double(a.dst_point.y) * a.dst_height;
    pl.scale_x = a.scale.x, pl.scale_y = a.scale.y;
    pl.rotation_deg = a.rotation_deg;
    pl.opacity = std::min(a.opacity, 1.0f);
    ir::Mapping m;
    bool exact = false;
    int64_t u0 = 0, v0 = 0;
    if (!ir::PlanPlacement(pf, pl, true, &m, &exact, &u0, &v0)) return GF::kGFErrArgument;

    GFBlendParams b{};
    b.wp = pf.width + 2, b.hp = pf.height + 2;
    b.ax = m.ax, b.bx = m.bx, b.cx = m.cx, b.ay = m.ay, b.by = m.by, b.cy = m.cy;
    b.u0 = u0, b.v0 = v0;
    b.dst = Ptr(a.dst);
    b.dst_pitch = a.dst_pitch;
    b.opacity = pl.opacity;
    b.k255 = b.opacity / 255.0f;
    b.exact = exact ? 1 : 0;
    std::vector<int32_t> spans;  // the rectangle's rows, [x0, x1) each
    if (exact) {
      b.x0 = int32_t(std::clamp<int64_t>(1 - u0, 0, a.dst_width));
      b.y0 = int32_t(std::clamp<int64_t>(1 - v0, 0, a.dst_height));
      b.x1 = int32_t(std::clamp<int64_t>(pf.width + 1 - u0, 0, a.dst_width));
      b.y1 = int32_t(std::clamp<int64_t>(pf.height + 1 - v0, 0, a.dst_height));
    } else {
      std::vector<ir::Span> rows;
      if (ir::DestinationSpans(pf, m, a.dst_width, a.dst_height, &rows) == 0) return GF::kGFOk;
      b.x0 = a.dst_width, b.y0 = -1;
      for (int32_t y = 0; y < a.dst_height; ++y) {
        const ir::Span& sp = rows[size_t(y)];
        if (sp.x1 <= sp.x0) continue;
        if (b.y0 < 0) b.y0 = y;
        b.y1 = y + 1;
        b.x0 = std::min(b.x0, sp.x0);
        b.x1 = std::max(b.x1, sp.x1);
      }
      for (int32_t y = b.y0; y < b.y1; ++y)
        spans.insert(spans.end(), {rows[size_t(y)].x0, rows[size_t(y)].x1});
    }
    if (b.x1 <= b.x0 || b.y1 <= b.y0) return GF::kGFOk;

    // Scratch: the bordered reduction, then the spans at an aligned offset.
    const uint64_t reduced_bytes = (uint64_t(b.wp) * uint64_t(b.hp) * 4 + 15) / 16 * 16;
    const uint64_t need = reduced_bytes + spans.size() * sizeof(int32_t);
    std::lock_guard lock(scratch_mutex_);
    Scope scope(this);
    if (!scope.ok()) return GF::kGFErrDevice;
    if (need > scratch_bytes_) {
      if (scratch_ != 0) g_driver->MemFree(scratch_);
      scratch_ = 0;
      scratch_bytes_ = 0;
      if (const CUresult r = g_driver->MemAlloc(&scratch_, size_t(need)); !Ok(r)) {
        scratch_ = 0;
        return r == kCudaErrorOutOfMemory ? GF::kGFErrOutOfMemory : GF::kGFErrDevice;
      }
      scratch_bytes_ = need;
    }
    b.base = scratch_;
    b.spans = scratch_ + reduced_bytes;
    if (!spans.empty() &&
        !Ok(g_driver->MemcpyHtoD(b.spans, spans.data(), spans.size() * sizeof(int32_t))))
      return GF::kGFErrDevice;

    GFReduceParams r{};
    r.src = Ptr(a.src);
    r.src_pitch = a.src_pitch;
    r.out = scratch_;
    const uint64_t area = uint64_t(fx) * uint64_t(fy);
    r.mul = ((uint64_t(1) << 32) + area / 2) / area;  // as the CPU's reduction divides
    r.width = a.src_width, r.height = a.src_height;
    r.fx = fx, r.fy = fy;
    r.rw = pf.width, r.rh = pf.height;
    // Each kernel takes one argument, its record: the driver copies sizeof(record) bytes.
    void* reduce_args[] = {&r};
    void* blend_args[] = {&b};
    constexpr unsigned kBlock = 16;
    auto blocks = [](int64_t n) { return unsigned((n + kBlock - 1) / kBlock); };
    if (!Ok(g_driver->LaunchKernel(reduce_, blocks(b.wp), blocks(b.hp), 1, kBlock, kBlock, 1, 0,
                                   nullptr, reduce_args, nullptr)) ||
        !Ok(g_driver->LaunchKernel(blend_, blocks(b.x1 - b.x0), blocks(b.y1 - b.y0), 1, kBlock,
                                   kBlock, 1, 0, nullptr, blend_args, nullptr)) ||
        !Ok(g_driver->CtxSynchronize()))
      return GF::kGFErrDevice;
    return GF::kGFOk;
  }

  std::string LastError() const override {
    std::lock_guard lock(error_mutex_);
    return last_error_;
  }

 private:
  // The device's context made current for a scope.
  class Scope {
   public:
    explicit Scope(CudaDevice* d) : ok_(d->Ok(g_driver->CtxPush(d->context_))) {}
    ~Scope() {
      CUcontext popped = nullptr;
      if (ok_) g_driver->CtxPop(&popped);
    }
    bool ok() const { return ok_; }

   private:
    const bool ok_;
  };

  static CUdeviceptr Ptr(const void* p) {
    return reinterpret_cast<CUdeviceptr>(p);
  }

  bool Ok(CUresult r) {
    if (r == 0) return true;
    std::lock_guard lock(error_mutex_);
    last_error_ = g_driver->ErrorText(r);
    return false;
  }

  // A 2D copy with signed pitches. Same-sign pitches copy in memory order in one call (for
  // negative ones from the bottom row, where memory starts); opposite signs flip, a row a call.
  int32_t Copy2D(CUmemorytype dst_type, void* dst, int64_t dst_pitch, CUmemorytype src_type,
                 const void* src, int64_t src_pitch, int64_t row_bytes, int32_t rows) {
    if (dst == nullptr || src == nullptr || row_bytes <= 0 || rows <= 0 ||
        std::llabs(dst_pitch) < row_bytes || std::llabs(src_pitch) < row_bytes)
      return GF::kGFErrArgument;
    auto make = [&](const uint8_t* s, int64_t sp, uint8_t* d, int64_t dp, int32_t n) {
      CUDA_MEMCPY2D c{};
      c.srcMemoryType = src_type;
      c.dstMemoryType = dst_type;
      if (src_type == kMemHost)
        c.srcHost = s;
      else
        c.srcDevice = Ptr(s);
      if (dst_type == kMemHost)
        c.dstHost = d;
      else
        c.dstDevice = Ptr(d);
      c.srcPitch = size_t(sp);
      c.dstPitch = size_t(dp);
      c.WidthInBytes = size_t(row_bytes);
      c.Height = size_t(n);
      return c;
    };
    const auto* s = static_cast<const uint8_t*>(src);
    auto* d = static_cast<uint8_t*>(dst);
    Scope scope(this);
    if (!scope.ok()) return GF::kGFErrDevice;
    if ((dst_pitch < 0) == (src_pitch < 0)) {
      if (dst_pitch < 0) {
        s += src_pitch * (rows - 1), src_pitch = -src_pitch;
        d += dst_pitch * (rows - 1), dst_pitch = -dst_pitch;
      }
      const CUDA_MEMCPY2D c = make(s, src_pitch, d, dst_pitch, rows);
      if (!Ok(g_driver->Memcpy2D(&c))) return GF::kGFErrDevice;
    } else {
      for (int32_t y = 0; y < rows; ++y) {
        const CUDA_MEMCPY2D c = make(s + src_pitch * y, row_bytes, d + dst_pitch * y, row_bytes, 1);
        if (!Ok(g_driver->Memcpy2D(&c))) return GF::kGFErrDevice;
      }
    }
    // Device-to-device copies are asynchronous: finish them before the caller frees the source.
    return Ok(g_driver->CtxSynchronize()) ? GF::kGFOk : GF::kGFErrDevice;
  }

  const int32_t index_;
  const CUdevice device_;
  const CUcontext context_;
  const std::string name_;
  CUfunction reduce_ = nullptr, blend_ = nullptr;
  std::mutex scratch_mutex_;
  CUdeviceptr scratch_ = 0;
  uint64_t scratch_bytes_ = 0;
  mutable std::mutex error_mutex_;
  std::string last_error_;
};

}  // namespace

std::vector<GF::DevicePtr> MakeCudaDevices(int32_t first_index, std::string* reason) {
  std::vector<GF::DevicePtr> devices;
#ifndef VETEXT_HAVE_CUDA_KERNELS
  (void)first_index;
#ifdef VETEXT_CUDA_DISABLED
  *reason = "built without the CUDA kernels (VETEXT_CUDA=OFF)";
#else
  *reason = "built without the CUDA toolkit (nvcc not found)";
#endif
  return devices;
#else
  auto* driver = new Driver;  // kept for the process: devices hold its entry points
  if (!driver->Load(reason)) {
    delete driver;
    return devices;
  }
  g_driver = driver;
  if (const CUresult r = driver->Init(0); r != 0) {
    *reason = "the CUDA driver finds no usable GPU (cuInit: " + driver->ErrorText(r) + ")";
    return devices;
  }
  int count = 0;
  if (const CUresult r = driver->DeviceGetCount(&count); r != 0 || count < 1) {
    *reason = "the CUDA driver reports no GPU (cuDeviceGetCount: " +
              (r != 0 ? driver->ErrorText(r) : std::to_string(count) + " devices") + ")";
    return devices;
  }
  int version = 0;
  driver->DriverGetVersion(&version);
  const std::string driver_text = " (CUDA driver " + std::to_string(version / 1000) + "." +
                                  std::to_string(version % 1000 / 10) + ")";
  for (int i = 0; i < count; ++i) {
    CUdevice dev = 0;
    CUcontext ctx = nullptr;
    if (const CUresult r = driver->DeviceGet(&dev, i); r != 0) {
      *reason = "GPU " + std::to_string(i) + ": cuDeviceGet: " + driver->ErrorText(r);
      continue;
    }
    if (const CUresult r = driver->PrimaryCtxRetain(&ctx, dev); r != 0) {
      *reason = "GPU " + std::to_string(i) + ": cuDevicePrimaryCtxRetain: " + driver->ErrorText(r);
      continue;
    }
    char name[256] = {};
    if (driver->DeviceGetName(name, sizeof name - 1, dev) != 0 || name[0] == 0)
      std::snprintf(name, sizeof name, "GPU %d", i);
    // Owned from here: a device whose kernels do not load releases its context as it goes.
    GF::DevicePtr held(new CudaDevice(first_index + int32_t(devices.size()), dev, ctx,
                                      std::string(name) + driver_text));
    std::string error;
    if (!static_cast<CudaDevice*>(held.get())->LoadKernels(&error)) {
      *reason = "the kernels do not load on " + std::string(name) + ": " + error;
      continue;
    }
    devices.push_back(held);
  }
  if (!devices.empty()) reason->clear();
  return devices;
#endif
}

}  // namespace gf
