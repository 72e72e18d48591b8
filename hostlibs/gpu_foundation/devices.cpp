// The device list and the cpu device.
//
// The cpu device is the GPU path without a GPU: its memory is host memory and its Motion is the
// CPU compositor's own arithmetic (reduce by the factors the scale asks for, then resample or copy
// whole pixels), so a frame drawn through the GPU path on it is what the CPU render would draw
// from the same images.
#include "gpu_foundation/devices.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <thread>

#include "vetext/vxcore.h"

namespace gf {

int32_t CheckMotionArgs(const GF::MotionArgs& a) {
  if (a.format != kIRFormatBGRA8 && a.format != kIRFormatVUYA8) return GF::kGFErrFormat;
  if (a.src == nullptr || a.dst == nullptr || a.src_width < 1 || a.src_height < 1 ||
      a.dst_width < 1 || a.dst_height < 1 || std::llabs(a.src_pitch) < int64_t(a.src_width) * 4 ||
      std::llabs(a.dst_pitch) < int64_t(a.dst_width) * 4)
    return GF::kGFErrArgument;
  for (float v : {a.dst_point.x, a.dst_point.y, a.src_point.x, a.src_point.y, a.scale.x, a.scale.y,
                  a.opacity})
    if (!std::isfinite(v)) return GF::kGFErrArgument;
  if (!std::isfinite(a.rotation_deg)) return GF::kGFErrArgument;
  if (a.shift_steps < 0 || (a.shift_steps > 0 && (a.shift_x < 0 || a.shift_x >= a.shift_steps ||
                                                  a.shift_y < 0 || a.shift_y >= a.shift_steps)))
    return GF::kGFErrArgument;
  return GF::kGFOk;
}

void CopyRows(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch, int64_t row_bytes,
              int32_t rows) {
  auto* d = static_cast<uint8_t*>(dst);
  const auto* s = static_cast<const uint8_t*>(src);
  if (dst_pitch == row_bytes && src_pitch == row_bytes) {
    std::memcpy(d, s, size_t(row_bytes) * size_t(rows));
    return;
  }
  for (int32_t y = 0; y < rows; ++y, d += dst_pitch, s += src_pitch)
    std::memcpy(d, s, size_t(row_bytes));
}

namespace {

bool CopyArgsOk(const void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch,
                int64_t row_bytes, int32_t rows) {
  return dst != nullptr && src != nullptr && row_bytes > 0 && rows > 0 &&
         std::llabs(dst_pitch) >= row_bytes && std::llabs(src_pitch) >= row_bytes;
}

class CpuDevice final : public GF::Device {
 public:
  const char* Kind() const override { return "cpu"; }
  std::string Name() const override {
    return "the host's processor (" + std::to_string(std::thread::hardware_concurrency()) +
           " threads): device memory is host memory";
  }
  int32_t Index() const override { return 0; }
  int32_t Allocate(uint64_t bytes, void** out) override {
    if (out == nullptr || bytes == 0) return GF::kGFErrArgument;
    // Whole cache lines, so that rows copied by several threads do not share one.
    const size_t size = size_t((bytes + 63) / 64 * 64);
    *out = std::aligned_alloc(64, size);
    if (*out == nullptr) return GF::kGFErrOutOfMemory;
    std::lock_guard lock(mutex_);
    sizes_[static_cast<const uint8_t*>(*out)] = size;
    return GF::kGFOk;
  }
  int32_t Free(void* memory) override {
    if (memory == nullptr) return GF::kGFOk;
    {
      std::lock_guard lock(mutex_);
      auto it = sizes_.find(static_cast<const uint8_t*>(memory));
      if (it != sizes_.end()) {
        ForgetLocked(static_cast<uint8_t*>(memory), static_cast<uint8_t*>(memory) + it->second);
        sizes_.erase(it);
      }
    }
    std::free(memory);
    return GF::kGFOk;
  }
  int32_t Upload(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch,
                 int64_t row_bytes, int32_t rows) override {
    return Copy(dst, dst_pitch, src, src_pitch, row_bytes, rows);
  }
  int32_t Download(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch,
                   int64_t row_bytes, int32_t rows) override {
    if (!CopyArgsOk(dst, dst_pitch, src, src_pitch, row_bytes, rows)) return GF::kGFErrArgument;
    CopyRows(dst, dst_pitch, src, src_pitch, row_bytes, rows);  // host memory: nothing to forget
    return GF::kGFOk;
  }
  int32_t Copy(void* dst, int64_t dst_pitch, const void* src, int64_t src_pitch, int64_t row_bytes,
               int32_t rows) override {
    if (!CopyArgsOk(dst, dst_pitch, src, src_pitch, row_bytes, rows)) return GF::kGFErrArgument;
    Forget(dst, dst_pitch, row_bytes, rows);
    CopyRows(dst, dst_pitch, src, src_pitch, row_bytes, rows);
    return GF::kGFOk;
  }
  int32_t Motion(const GF::MotionArgs& a) override {
    if (const int32_t st = CheckMotionArgs(a); st != GF::kGFOk) return st;
    if (a.src_pitch > INT32_MAX || a.src_pitch < -INT32_MAX || a.dst_pitch > INT32_MAX ||
        a.dst_pitch < -INT32_MAX)
      return GF::kGFErrArgument;
    try {
      std::shared_ptr<const Reduction> r = ReductionOf(a);
      if (!r) return GF::kGFErrArgument;
      IR_Prefiltered pf = r->pf;
      pf.shift_steps = a.shift_steps;
      pf.shift_x = a.shift_x;
      pf.shift_y = a.shift_y;
      Forget(a.dst, a.dst_pitch, int64_t(a.dst_width) * 4, a.dst_height);
      return IR_MotionPrefiltered(&pf, a.format, a.dst, int32_t(a.dst_pitch), a.dst_width,
                                  a.dst_height, a.dst_point, a.src_point, a.scale, a.rotation_deg,
                                  a.opacity) == 0
                 ? GF::kGFOk
                 : GF::kGFErrArgument;
    } catch (const std::bad_alloc&) {
      return GF::kGFErrOutOfMemory;
    }
  }
  std::string LastError() const override { return ""; }

 private:
  // A source's reduction for one pair of factors, with its row spans. Kept from one Motion to
  // the next: the images a host draws on every frame (its kept precomputes) are then reduced
  // once, as a GPU keeps them in its own memory. Only sources in memory this device allocated
  // are kept: that memory changes only through this device's calls (the contract of device
  // memory), and each forgets the reductions of the bytes it overwrites. Any other address may
  // be rewritten, or freed and handed out again, behind the device's back.
  struct Reduction {
    const uint8_t *lo, *hi;  // the source's bytes
    const void* src;
    int64_t pitch;
    int32_t width, height, fx, fy;
    std::vector<uint8_t> image;
    std::vector<int32_t> spans;
    IR_Prefiltered pf;
  };
  static constexpr uint64_t kKeptBytes = 64ull << 20;

  std::shared_ptr<const Reduction> ReductionOf(const GF::MotionArgs& a) {
    int32_t fx = 1, fy = 1;
    IR_PrefilterFactors(a.scale, &fx, &fy);
    {
      std::lock_guard lock(mutex_);
      for (const auto& r : kept_)
        if (r->src == a.src && r->pitch == a.src_pitch && r->width == a.src_width &&
            r->height == a.src_height && r->fx == fx && r->fy == fy)
          return r;
    }
    const uint64_t bytes = IR_PrefilterSize(a.src_width, a.src_height, fx, fy);
    if (bytes == 0) return nullptr;
    auto r = std::make_shared<Reduction>();
    const auto* top = static_cast<const uint8_t*>(a.src);
    const uint8_t* last = top + a.src_pitch * (a.src_height - 1);
    r->lo = std::min(top, last);
    r->hi = std::max(top, last) + int64_t(a.src_width) * 4;
    r->src = a.src;
    r->pitch = a.src_pitch;
    r->width = a.src_width, r->height = a.src_height, r->fx = fx, r->fy = fy;
    r->image.resize(size_t(bytes));
    if (IR_Prefilter(a.src, int32_t(a.src_pitch), a.src_width, a.src_height, fx, fy,
                     r->image.data(), bytes, &r->pf) != 0)
      return nullptr;
    r->spans.resize(size_t(r->pf.height) * 2);
    IR_PrefilterSpans(&r->pf, r->spans.data());
    r->pf.row_spans = r->spans.data();
    std::lock_guard lock(mutex_);
    if (!OwnedLocked(r->lo, r->hi)) return r;
    kept_bytes_ += bytes;
    kept_.push_front(r);
    while (kept_bytes_ > kKeptBytes && kept_.size() > 1) {
      kept_bytes_ -= kept_.back()->image.size();
      kept_.pop_back();
    }
    return r;
  }

  void Forget(const void* dst, int64_t pitch, int64_t row_bytes, int32_t rows) {
    const auto* top = static_cast<const uint8_t*>(dst);
    const uint8_t* last = top + pitch * (rows - 1);
    std::lock_guard lock(mutex_);
    ForgetLocked(std::min(top, last), std::max(top, last) + row_bytes);
  }
  // Whether [lo, hi) lies within one allocation of this device.
  bool OwnedLocked(const uint8_t* lo, const uint8_t* hi) const {
    auto it = sizes_.upper_bound(lo);
    if (it == sizes_.begin()) return false;
    --it;
    return hi <= it->first + it->second;
  }
  void ForgetLocked(const uint8_t* lo, const uint8_t* hi) {
    for (auto it = kept_.begin(); it != kept_.end();) {
      if ((*it)->lo < hi && lo < (*it)->hi) {
        kept_bytes_ -= (*it)->image.size();
        it = kept_.erase(it);
      } else {
        ++it;
      }
    }
  }

  std::mutex mutex_;
  std::map<const uint8_t*, size_t> sizes_;            // this device's allocations, by address
  std::list<std::shared_ptr<const Reduction>> kept_;  // most recent first
  uint64_t kept_bytes_ = 0;
};

struct Registry {
  std::vector<GF::DevicePtr> devices;
  std::string cuda_reason;
};

// Made on first use, once: the driver is opened and its GPUs listed a single time per process.
const Registry& TheRegistry() {
  static std::once_flag once;
  static const Registry* registry = nullptr;
  std::call_once(once, [] {
    auto* r = new Registry;  // lives as long as the process: devices outlive every caller
    r->devices.push_back(MakeCpuDevice());
    for (GF::DevicePtr& d : MakeCudaDevices(1, &r->cuda_reason)) r->devices.push_back(d);
    registry = r;
  });
  return *registry;
}

}  // namespace

GF::DevicePtr MakeCpuDevice() {
  return GF::DevicePtr(new CpuDevice);
}

}  // namespace gf

namespace GF {

DevicePtr GetPrimaryDevice() {
  const auto& devices = gf::TheRegistry().devices;
  return devices.size() > 1 ? devices[1] : DevicePtr();
}

DevicePtr GetDevice(int32_t index) {
  const auto& devices = gf::TheRegistry().devices;
  return index >= 0 && size_t(index) < devices.size() ? devices[size_t(index)] : DevicePtr();
}

std::vector<DevicePtr> Devices() {
  return gf::TheRegistry().devices;
}

std::string CudaUnavailableReason() {
  return gf::TheRegistry().cuda_reason;
}

int32_t Motion(const DevicePtr& device, const MotionArgs& args) {
  return device ? device->Motion(args) : kGFErrArgument;
}

}  // namespace GF
