// The GPU foundation's devices (transfers with both row orders, Motion against the CPU
// compositor, bad arguments) on every device the machine has, and the video frames' interfaces.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "vetext/gpu_foundation.h"
#include "vetext/image_renderer.h"
#include "vetext/video_frame.h"

namespace {

// W x H 4-byte pixels in host memory, top-down or bottom-up; top() is the visual top row.
struct Pixels {
  int32_t w, h;
  bool bottom_up;
  std::vector<uint8_t> bytes;
  Pixels(int32_t w_, int32_t h_, bool bu)
      : w(w_), h(h_), bottom_up(bu), bytes(size_t(w_) * h_ * 4) {}
  int64_t pitch() const { return bottom_up ? -4 * int64_t(w) : 4 * int64_t(w); }
  uint8_t* top() { return bytes.data() + (bottom_up ? size_t(h - 1) * w * 4 : 0); }
  uint8_t* at(int32_t x, int32_t y) { return top() + y * pitch() + x * 4; }
};

// A premultiplied source (4x oversampled text-like stripes) and a straight backdrop.
Pixels Source(int32_t w, int32_t h, bool bu) {
  Pixels p(w, h, bu);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      const uint8_t a = ((x / 5 + y / 7) % 3) ? uint8_t((x * 13 + y * 7) % 256) : 0;
      uint8_t* q = p.at(x, y);
      q[0] = uint8_t(a / 3), q[1] = uint8_t(a / 2), q[2] = a, q[3] = a;
    }
  return p;
}
Pixels Backdrop(int32_t w, int32_t h, bool bu) {
  Pixels p(w, h, bu);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) {
      uint8_t* q = p.at(x, y);
      q[0] = uint8_t(x * 3), q[1] = uint8_t(y * 5), q[2] = 90, q[3] = 255;
    }
  return p;
}

// Host pixels on a device and back.
struct OnDevice {
  GF::DevicePtr d;
  void* mem = nullptr;
  int32_t w, h;
  bool bu;
  OnDevice(GF::DevicePtr dev, Pixels& p) : d(std::move(dev)), w(p.w), h(p.h), bu(p.bottom_up) {
    EXPECT_EQ(d->Allocate(p.bytes.size(), &mem), GF::kGFOk);
    EXPECT_EQ(d->Upload(top(), pitch(), p.top(), p.pitch(), 4 * w, h), GF::kGFOk);
  }
  ~OnDevice() { d->Free(mem); }
  int64_t pitch() const { return bu ? -4 * int64_t(w) : 4 * int64_t(w); }
  void* top() const { return static_cast<uint8_t*>(mem) + (bu ? (h - 1) * 4 * int64_t(w) : 0); }
  void Into(Pixels& p) { EXPECT_EQ(d->Download(p.top(), p.pitch(), top(), pitch(), 4 * w, h), 0); }
};

TEST(GPUFoundation, DevicesAndTheirTransfersInBothRowOrders) {
  const std::vector<GF::DevicePtr> devices = GF::Devices();
  ASSERT_FALSE(devices.empty());
  EXPECT_STREQ(devices[0]->Kind(), "cpu");
  EXPECT_EQ(GF::GetDevice(0), devices[0]);
  EXPECT_FALSE(GF::GetDevice(-1));
  EXPECT_FALSE(GF::GetDevice(int32_t(devices.size())));
  EXPECT_EQ(bool(GF::GetPrimaryDevice()), devices.size() > 1);
  EXPECT_EQ(GF::CudaUnavailableReason().empty(), devices.size() > 1);
  for (const GF::DevicePtr& d : devices) {
    SCOPED_TRACE(d->Name());
    EXPECT_EQ(d, GF::GetDevice(d->Index()));
    // Every pair of row orders: up to the device, across on it, back; visual rows stay put.
    for (int mask = 0; mask < 8; ++mask) {
      Pixels src = Source(37, 11, mask & 1), back(37, 11, mask & 4);
      OnDevice a(d, src);
      Pixels shape(37, 11, mask & 2);
      OnDevice b(d, shape);
      ASSERT_EQ(d->Copy(b.top(), b.pitch(), a.top(), a.pitch(), 4 * 37, 11), GF::kGFOk);
      b.Into(back);
      for (int32_t y = 0; y < 11; ++y)
        ASSERT_EQ(std::memcmp(back.at(0, y), src.at(0, y), 4 * 37), 0) << mask << " row " << y;
    }
    void* mem = nullptr;
    EXPECT_EQ(d->Allocate(0, &mem), GF::kGFErrArgument);
    Pixels p(4, 4, false);
    EXPECT_EQ(d->Upload(nullptr, 16, p.top(), 16, 16, 4), GF::kGFErrArgument);
    EXPECT_EQ(d->Download(p.top(), 8, p.top(), 16, 16, 4), GF::kGFErrArgument);  // pitch < row
  }
}

TEST(GPUFoundation, MotionDrawsWhatTheCompositorDraws) {
  struct Row {
    IR_Point dst, src, scale;
    double rot;
    float opacity;
    bool src_bu, dst_bu;
  } rows[] = {
      {{0.41f, 0.52f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 0, 1, false, false},  // one to one, off-grid
      {{0.5f, 0.5f}, {0.3f, 0.6f}, {0.25f, 0.25f}, 30, 1, true, false},
      {{0.5f, 0.4f}, {0.5f, 0.5f}, {0.125f, 0.125f}, 0, 1, false, true},
      {{0.5f, 0.5f}, {0.5f, 0.5f}, {0.5f, 0.35f}, -12, 0.5f, true, true},
  };
  for (const GF::DevicePtr& d : GF::Devices())
    for (const Row& r : rows) {
      SCOPED_TRACE(testing::Message() << d->Kind() << " rot " << r.rot << " scale " << r.scale.x);
      Pixels src = Source(120, 64, r.src_bu), want = Backdrop(64, 40, r.dst_bu), got = want;
      ASSERT_EQ(IR_Motion(src.top(), int32_t(src.pitch()), src.w, src.h, kIRFormatBGRA8, 0, nullptr,
                          want.top(), int32_t(want.pitch()), want.w, want.h, kIRFormatBGRA8, 0, 1,
                          1, r.dst, r.src, r.scale, r.rot, r.opacity, true, 0, false, 0, 4, true),
                0);
      OnDevice s(d, src), t(d, got);
      GF::MotionArgs a;
      a.src = s.top(), a.src_pitch = s.pitch(), a.src_width = src.w, a.src_height = src.h;
      a.dst = t.top(), a.dst_pitch = t.pitch(), a.dst_width = got.w, a.dst_height = got.h;
      a.dst_point = r.dst, a.src_point = r.src, a.scale = r.scale;
      a.rotation_deg = r.rot, a.opacity = r.opacity;
      ASSERT_EQ(GF::Motion(d, a), GF::kGFOk);
      t.Into(got);
      int worst = 0;
      size_t off = 0;
      for (size_t i = 0; i < got.bytes.size(); ++i) {
        const int e = std::abs(int(got.bytes[i]) - int(want.bytes[i]));
        worst = std::max(worst, e);
        off += e > 1;
      }
      EXPECT_LE(worst, std::string(d->Kind()) == "cpu" ? 0 : 4);
      EXPECT_LE(off, got.bytes.size() / 100);
      // New pixels in the same device memory: a reduction kept from the first draw must not
      // stand in for them.
      Pixels other = Source(120, 64, r.src_bu);
      for (uint8_t& b : other.bytes) b = uint8_t(b / 2);
      Pixels want2 = Backdrop(64, 40, r.dst_bu), got2 = want2;
      ASSERT_EQ(d->Upload(s.top(), s.pitch(), other.top(), other.pitch(), 4 * 120, 64), 0);
      ASSERT_EQ(d->Upload(t.top(), t.pitch(), got2.top(), got2.pitch(), 4 * 64, 40), 0);
      ASSERT_EQ(GF::Motion(d, a), GF::kGFOk);
      t.Into(got2);
      ASSERT_EQ(IR_Motion(other.top(), int32_t(other.pitch()), 120, 64, kIRFormatBGRA8, 0, nullptr,
                          want2.top(), int32_t(want2.pitch()), 64, 40, kIRFormatBGRA8, 0, 1, 1,
                          r.dst, r.src, r.scale, r.rot, r.opacity, true, 0, false, 0, 4, true),
                0);
      int worst2 = 0;
      for (size_t i = 0; i < got2.bytes.size(); ++i)
        worst2 = std::max(worst2, std::abs(int(got2.bytes[i]) - int(want2.bytes[i])));
      EXPECT_LE(worst2, std::string(d->Kind()) == "cpu" ? 0 : 4);
    }
}

TEST(GPUFoundation, MotionUndoesAShiftAndRefusesBadArguments) {
  const GF::DevicePtr cpu = GF::GetDevice(0);
  // A one-to-one placement half a pixel off the grid: drawn displaced by the step the
  // compositor names, the image lands on whole pixels (a copy, no resampling blur).
  Pixels src(16, 16, false), dst(12, 12, false);
  std::memset(src.bytes.data(), 255, src.bytes.size());  // one opaque white reduced 4 x 4 block
  GF::MotionArgs a;
  a.src = src.top(), a.src_pitch = src.pitch(), a.src_width = 16, a.src_height = 16;
  a.dst = dst.top(), a.dst_pitch = dst.pitch(), a.dst_width = 12, a.dst_height = 12;
  a.dst_point = {0.5f, 0.5f}, a.src_point = {0.4375f, 0.4375f}, a.scale = {0.25f, 0.25f};
  ASSERT_EQ(IR_AlignedShift(16, 16, 4, 4, 12, 12, a.dst_point, a.src_point, a.scale, 0, 16,
                            &a.shift_x, &a.shift_y),
            1);
  a.shift_steps = 16;
  ASSERT_EQ(GF::Motion(cpu, a), GF::kGFOk);
  int full = 0, partial = 0;
  for (size_t i = 3; i < dst.bytes.size(); i += 4) {
    full += dst.bytes[i] == 255;
    partial += dst.bytes[i] != 0 && dst.bytes[i] != 255;
  }
  EXPECT_EQ(full, 16);
  EXPECT_EQ(partial, 0);

  const std::vector<uint8_t> before = dst.bytes;
  const float nan = std::nanf("");
  struct Bad {
    GF::MotionArgs args;
    int32_t status;
  } bad[] = {{a, GF::kGFErrFormat},
             {a, GF::kGFErrArgument},
             {a, GF::kGFErrArgument},
             {a, GF::kGFErrArgument},
             {a, GF::kGFErrArgument}};
  bad[0].args.format = 99;
  bad[1].args.src = nullptr;
  bad[2].args.dst_pitch = 8;  // shorter than a row
  bad[3].args.scale.x = nan;
  bad[4].args.shift_x = 16;  // outside its steps
  for (const Bad& b : bad) EXPECT_EQ(GF::Motion(cpu, b.args), b.status);
  EXPECT_EQ(GF::Motion(GF::DevicePtr(), a), GF::kGFErrArgument);
  EXPECT_EQ(dst.bytes, before);
}

TEST(VideoFrame, MappingAnswersThreeInterfacesAndOutlivesTheHandle) {
  int memory = 0;
  GPUFrameHandle h = VF::CreateFrameHandle(2, &memory, -7680, 1920, 1080, 0x61726762u, 10, 11);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(VF::CreateFrameHandle(0, nullptr, 4, 1, 1, 0, 1, 1), nullptr);
  EXPECT_EQ(VF::CreateFrameHandle(0, &memory, 4, 0, 1, 0, 1, 1), nullptr);
  VF::Unknown* u = nullptr;
  ASSERT_EQ(VF::GetRPixHandFrameMapping(h, &u), VF::kVFOk);
  VF::DisposeFrameHandle(h);  // the mapping keeps the frame
  void *dev = nullptr, *lay = nullptr, *asp = nullptr, *other = &memory;
  ASSERT_EQ(u->QueryInterface(VF::kIIDFrameDevice, &dev), VF::kVFOk);
  ASSERT_EQ(u->QueryInterface(VF::kIIDFrameLayout, &lay), VF::kVFOk);
  ASSERT_EQ(u->QueryInterface(VF::kIIDFrameAspect, &asp), VF::kVFOk);
  EXPECT_EQ(u->QueryInterface(VF::Guid{1, 2, 3, {}}, &other), VF::kVFErrNoInterface);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(u->Release(), 3u);  // the three interfaces hold it now
  VxRect b{};
  void* data = nullptr;
  int32_t index = -1, num = 0, den = 0;
  int64_t pitch = 0;
  uint32_t format = 0;
  auto* fd = static_cast<VF::FrameDevice*>(dev);
  auto* fl = static_cast<VF::FrameLayout*>(lay);
  auto* fa = static_cast<VF::FrameAspect*>(asp);
  fd->GetBounds(&b), fd->GetDeviceData(&data), fd->GetDeviceIndex(&index);
  fl->GetPitch(&pitch), fl->GetPixelFormat(&format), fa->GetPixelAspect(&num, &den);
  EXPECT_EQ(b.right, 1920);
  EXPECT_EQ(b.bottom, 1080);
  EXPECT_EQ(data, &memory);
  EXPECT_EQ(index, 2);
  EXPECT_EQ(pitch, -7680);
  EXPECT_EQ(format, 0x61726762u);
  EXPECT_EQ(num * 100 + den, 1011);
  EXPECT_EQ(fd->GetBounds(nullptr), VF::kVFErrArgument);
  fd->Release(), fl->Release();
  EXPECT_EQ(fa->Release(), 0u);
  EXPECT_EQ(VF::GetRPixHandFrameMapping(nullptr, &u), VF::kVFErrArgument);
  EXPECT_EQ(u, nullptr);
}

}  // namespace
