// GPU frame handles and their interfaces. One reference-counted object per frame answers all
// three interfaces (and the mapping's Unknown); the host's handle is one reference, each
// mapping and each interface handed out another.
#include <atomic>
#include <cstdlib>
#include <new>

#include "vetext/video_frame.h"

namespace VF {
namespace {

class Frame final : public FrameDevice, public FrameLayout, public FrameAspect {
 public:
  Frame(int32_t device_index, void* top_row, int64_t pitch, int32_t width, int32_t height,
        uint32_t pixel_format, int32_t par_num, int32_t par_den)
      : device_index_(device_index),
        top_row_(top_row),
        pitch_(pitch),
        width_(width),
        height_(height),
        pixel_format_(pixel_format),
        par_num_(par_num),
        par_den_(par_den) {}

  // One QueryInterface/AddRef/Release for the three bases: each base's slots forward here.
  int32_t Query(const Guid& iid, void** out) {
    if (out == nullptr) return kVFErrArgument;
    *out = nullptr;
    if (iid == kIIDFrameDevice)
      *out = static_cast<FrameDevice*>(this);
    else if (iid == kIIDFrameLayout)
      *out = static_cast<FrameLayout*>(this);
    else if (iid == kIIDFrameAspect)
      *out = static_cast<FrameAspect*>(this);
    else
      return kVFErrNoInterface;
    Ref();
    return kVFOk;
  }
  uint32_t Ref() { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; }
  uint32_t Unref() {
    const uint32_t left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
  }

  int32_t QueryInterface(const Guid& iid, void** out) override { return Query(iid, out); }
  uint32_t AddRef() override { return Ref(); }
  uint32_t Release() override { return Unref(); }

  int32_t GetBounds(VxRect* bounds) override {
    if (bounds == nullptr) return kVFErrArgument;
    *bounds = VxRect{0, 0, width_, height_};
    return kVFOk;
  }
  int32_t GetDeviceData(void** top_row) override {
    if (top_row == nullptr) return kVFErrArgument;
    *top_row = top_row_;
    return kVFOk;
  }
  int32_t GetDeviceIndex(int32_t* index) override {
    if (index == nullptr) return kVFErrArgument;
    *index = device_index_;
    return kVFOk;
  }
  int32_t GetPitch(int64_t* pitch) override {
    if (pitch == nullptr) return kVFErrArgument;
    *pitch = pitch_;
    return kVFOk;
  }
  int32_t GetPixelFormat(uint32_t* pixel_format) override {
    if (pixel_format == nullptr) return kVFErrArgument;
    *pixel_format = pixel_format_;
    return kVFOk;
  }
  int32_t GetPixelAspect(int32_t* num, int32_t* den) override {
    if (num == nullptr || den == nullptr) return kVFErrArgument;
    *num = par_num_;
    *den = par_den_;
    return kVFOk;
  }

 private:
  ~Frame() = default;
  std::atomic<uint32_t> refs_{1};
  const int32_t device_index_;
  void* const top_row_;
  const int64_t pitch_;
  const int32_t width_, height_;
  const uint32_t pixel_format_;
  const int32_t par_num_, par_den_;
};

// A handle is the frame's FrameDevice face, so that the mapping needs no table of frames.
Frame* FrameOf(GPUFrameHandle h) {
  return static_cast<Frame*>(reinterpret_cast<FrameDevice*>(h));
}

}  // namespace

int32_t GetRPixHandFrameMapping(GPUFrameHandle frame, Unknown** out) {
  if (out != nullptr) *out = nullptr;
  if (frame == nullptr || out == nullptr) return kVFErrArgument;
  Frame* f = FrameOf(frame);
  f->Ref();
  *out = static_cast<FrameDevice*>(f);
  return kVFOk;
}

GPUFrameHandle CreateFrameHandle(int32_t device_index, void* top_row, int64_t pitch, int32_t width,
                                 int32_t height, uint32_t pixel_format, int32_t par_num,
                                 int32_t par_den) {
  // A pitch shorter than a row would let a filter walk outside the frame's memory.
  if (top_row == nullptr || width < 1 || height < 1 || std::llabs(pitch) < int64_t(width) * 4)
    return nullptr;
  Frame* f = new (std::nothrow)
      Frame(device_index, top_row, pitch, width, height, pixel_format, par_num, par_den);
  return reinterpret_cast<GPUFrameHandle>(static_cast<FrameDevice*>(f));
}

void DisposeFrameHandle(GPUFrameHandle frame) {
  if (frame != nullptr) FrameOf(frame)->Unref();
}

}  // namespace VF
