// The GPU foundation's devices (the registry, transfers with both row orders, Motion against the
// CPU compositor, shifted sources, bad arguments) and the video frames' interfaces.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
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

// A premultiplied source (4x oversampled, text-like stripes) and a straight backdrop.
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

// Host pixels copied into device memory of the same row order, and back.
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

GF::MotionArgs ArgsFor(const OnDevice& s, const OnDevice& t) {
  GF::MotionArgs a;
  a.src = s.top(), a.src_pitch = s.pitch(), a.src_width = s.w, a.src_height = s.h;
  a.dst = t.top(), a.dst_pitch = t.pitch(), a.dst_width = t.w, a.dst_height = t.h;
  return a;
}

// Placements of a 120 x 64 source (4x oversampled) over a 64 x 40 destination.
struct Placement {
  const char* name;
  IR_Point dst, src, scale;
  double rot;
  float opacity;
  bool src_bu, dst_bu;
};
const Placement kPlacements[] = {
    {"100% on whole pixels", {0.5f, 0.5f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 0, 1, false, false},
    {"100% off the grid", {0.41f, 0.52f}, {0.5f, 0.5f}, {0.25f, 0.25f}, 0, 1, true, false},
    {"30 degrees", {0.5f, 0.5f}, {0.3f, 0.6f}, {0.25f, 0.25f}, 30, 1, false, true},
    {"50%", {0.5f, 0.4f}, {0.5f, 0.5f}, {0.125f, 0.125f}, 0, 1, true, true},
    {"200%", {0.45f, 0.5f}, {0.5f, 0.5f}, {0.5f, 0.5f}, 0, 1, false, false},
    {"opacity 0.5, turned", {0.5f, 0.5f}, {0.5f, 0.5f}, {0.5f, 0.35f}, -12, 0.5f, true, true},
    {"opacity 0.5 on whole pixels",
     {0.5f, 0.5f},
     {0.5f, 0.5f},
     {0.25f, 0.25f},
     0,
     0.5f,
     true,
     false},
};

Pixels Compositor(const Placement& p, Pixels& src) {
  Pixels out = Backdrop(64, 40, p.dst_bu);
  EXPECT_EQ(IR_Motion(src.top(), int32_t(src.pitch()), src.w, src.h, kIRFormatBGRA8, 0, nullptr,
                      out.top(), int32_t(out.pitch()), out.w, out.h, kIRFormatBGRA8, 0, 1, 1, p.dst,
                      p.src, p.scale, p.rot, p.opacity, true, 0, false, 0, 4, true),
            0);
  return out;
}

Pixels OnDeviceMotion(const GF::DevicePtr& d, const Placement& p, Pixels& src) {
  Pixels out = Backdrop(64, 40, p.dst_bu);
  OnDevice s(d, src), t(d, out);
  GF::MotionArgs a = ArgsFor(s, t);
  a.dst_point = p.dst, a.src_point = p.src, a.scale = p.scale;
  a.rotation_deg = p.rot, a.opacity = p.opacity;
  EXPECT_EQ(GF::Motion(d, a), GF::kGFOk);
  t.Into(out);
  return out;
}

TEST(GPUFoundation, RegistryAndTransfersInEveryRowOrder) {
  const std::vector<GF::DevicePtr> devices = GF::Devices();
  ASSERT_FALSE(devices.empty());
  EXPECT_STREQ(devices[0]->Kind(), "cpu");
  EXPECT_EQ(GF::GetDevice(0), devices[0]);
  EXPECT_FALSE(GF::GetDevice(-1));
  EXPECT_FALSE(GF::GetDevice(int32_t(devices.size())));
  EXPECT_EQ(GF::GetPrimaryDevice(), devices.size() > 1 ? devices[1] : GF::DevicePtr());
  // Either a GPU is listed or the reason says why not.
  EXPECT_EQ(GF::CudaUnavailableReason().empty(), devices.size() > 1);
  for (const GF::DevicePtr& d : devices) {
    SCOPED_TRACE(d->Name());
    EXPECT_EQ(d, GF::GetDevice(d->Index()));
    // Every mix of row orders: up to the device, across on it, back; visual rows stay put.
    for (int mask = 0; mask < 8; ++mask) {
      Pixels src = Source(37, 11, mask & 1), back(37, 11, mask & 4), shape(37, 11, mask & 2);
      OnDevice a(d, src), b(d, shape);
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
    EXPECT_EQ(d->Copy(p.top(), 16, p.top(), -16, 16, 0), GF::kGFErrArgument);
  }
}

TEST(GPUFoundation, CpuMotionIsTheCompositorByteForByte) {
  const GF::DevicePtr cpu = GF::GetDevice(0);
  for (const Placement& p : kPlacements) {
    SCOPED_TRACE(p.name);
    Pixels src = Source(120, 64, p.src_bu);
    EXPECT_EQ(OnDeviceMotion(cpu, p, src).bytes, Compositor(p, src).bytes);
  }
  // The device keeps a source's reduction between draws: new pixels written into the same
  // memory must be drawn, not the reduction of the old ones.
  const Placement& p = kPlacements[2];
  Pixels src = Source(120, 64, p.src_bu), other = src, got = Backdrop(64, 40, p.dst_bu);
  for (uint8_t& b : other.bytes) b = uint8_t(b / 2);
  OnDevice s(cpu, src), t(cpu, got);
  GF::MotionArgs a = ArgsFor(s, t);
  a.dst_point = p.dst, a.src_point = p.src, a.scale = p.scale, a.rotation_deg = p.rot;
  ASSERT_EQ(GF::Motion(cpu, a), GF::kGFOk);
  Pixels backdrop = Backdrop(64, 40, p.dst_bu);
  ASSERT_EQ(cpu->Upload(s.top(), s.pitch(), other.top(), other.pitch(), 4 * 120, 64), 0);
  ASSERT_EQ(cpu->Upload(t.top(), t.pitch(), backdrop.top(), backdrop.pitch(), 4 * 64, 40), 0);
  ASSERT_EQ(GF::Motion(cpu, a), GF::kGFOk);
  t.Into(got);
  EXPECT_EQ(got.bytes, Compositor(p, other).bytes);
}

TEST(GPUFoundation, CudaMotionMatchesTheCpuDevice) {
  const std::vector<GF::DevicePtr> devices = GF::Devices();
  if (devices.size() < 2) GTEST_SKIP() << GF::CudaUnavailableReason();
  for (size_t i = 1; i < devices.size(); ++i)
    for (const Placement& p : kPlacements) {
      SCOPED_TRACE(devices[i]->Name() + ": " + p.name);
      Pixels src = Source(120, 64, p.src_bu);
      const Pixels want = OnDeviceMotion(devices[0], p, src);
      const Pixels got = OnDeviceMotion(devices[i], p, src);
      int worst = 0;
      size_t off = 0;
      for (size_t px = 0; px < got.bytes.size(); px += 4) {
        int e = 0;
        for (size_t c = px; c < px + 4; ++c)
          e = std::max(e, std::abs(int(got.bytes[c]) - int(want.bytes[c])));
        worst = std::max(worst, e);
        off += e > 1;
      }
      EXPECT_LE(worst, 4);
      EXPECT_LE(off * 100, got.bytes.size() / 4);  // at least 99% within 1/255
    }
}

TEST(GPUFoundation, AShiftedSourceLandsOnWholePixels) {
  // A 32 x 32 source at 100% of its 4x oversampling, its point 15 source pixels in: the image
  // lands a quarter pixel off the grid. Drawn displaced as IR_AlignedShift says, an opaque
  // square that belongs on destination pixels [6, 10) lands there exactly.
  const IR_Point dst_point{0.5f, 0.5f}, src_point{15 / 32.0f, 15 / 32.0f}, scale{0.25f, 0.25f};
  constexpr int32_t kSteps = 4;
  int32_t sx = -1, sy = -1;
  ASSERT_EQ(IR_AlignedShift(32, 32, 4, 4, 16, 16, dst_point, src_point, scale, 0, kSteps, &sx, &sy),
            1);
  ASSERT_EQ(sx, 1);  // a quarter of a reduced pixel: one source pixel
  ASSERT_EQ(sy, 1);
  // Undisplaced, the square would cover source pixels [7, 23): (7 - 15) / 4 + 8 = 6.
  Pixels src(32, 32, true);
  for (int32_t y = 7 + sy; y < 23 + sy; ++y)
    for (int32_t x = 7 + sx; x < 23 + sx; ++x) std::memset(src.at(x, y), 255, 4);
  for (const GF::DevicePtr& d : GF::Devices())
    for (int32_t steps : {kSteps, 0}) {
      SCOPED_TRACE(testing::Message() << d->Name() << " steps " << steps);
      Pixels dst(16, 16, false);
      OnDevice s(d, src), t(d, dst);
      GF::MotionArgs a = ArgsFor(s, t);
      a.dst_point = dst_point, a.src_point = src_point, a.scale = scale;
      a.shift_steps = steps, a.shift_x = steps ? sx : 0, a.shift_y = steps ? sy : 0;
      ASSERT_EQ(GF::Motion(d, a), GF::kGFOk);
      t.Into(dst);
      int inside = 0, outside = 0;
      for (int32_t y = 0; y < 16; ++y)
        for (int32_t x = 0; x < 16; ++x) {
          const uint8_t alpha = dst.at(x, y)[3];
          if (x >= 6 && x < 10 && y >= 6 && y < 10)
            inside += alpha == 255;
          else
            outside += alpha != 0;
        }
      if (steps) {
        EXPECT_EQ(inside, 16);
        EXPECT_EQ(outside, 0);
      } else {
        EXPECT_GT(outside, 0);  // not told of the shift: drawn a quarter pixel off, blurred
      }
    }
}

TEST(GPUFoundation, MotionRefusesBadArgumentsAndLeavesTheDestination) {
  constexpr double inf = std::numeric_limits<double>::infinity();
  struct Bad {
    const char* what;
    void (*spoil)(GF::MotionArgs&);
    int32_t status;
  } bad[] = {
      {"format", [](GF::MotionArgs& a) { a.format = 99; }, GF::kGFErrFormat},
      {"null source", [](GF::MotionArgs& a) { a.src = nullptr; }, GF::kGFErrArgument},
      {"null destination", [](GF::MotionArgs& a) { a.dst = nullptr; }, GF::kGFErrArgument},
      {"empty source", [](GF::MotionArgs& a) { a.src_width = 0; }, GF::kGFErrArgument},
      {"empty destination", [](GF::MotionArgs& a) { a.dst_height = -3; }, GF::kGFErrArgument},
      {"short source pitch", [](GF::MotionArgs& a) { a.src_pitch = -8; }, GF::kGFErrArgument},
      {"short destination pitch", [](GF::MotionArgs& a) { a.dst_pitch = 8; }, GF::kGFErrArgument},
      {"scale", [](GF::MotionArgs& a) { a.scale.x = std::nanf(""); }, GF::kGFErrArgument},
      {"rotation", [](GF::MotionArgs& a) { a.rotation_deg = -inf; }, GF::kGFErrArgument},
      {"opacity", [](GF::MotionArgs& a) { a.opacity = std::nanf(""); }, GF::kGFErrArgument},
      {"point", [](GF::MotionArgs& a) { a.dst_point.y = float(inf); }, GF::kGFErrArgument},
      {"shift", [](GF::MotionArgs& a) { a.shift_x = 4; }, GF::kGFErrArgument},
      {"shift steps", [](GF::MotionArgs& a) { a.shift_steps = -1; }, GF::kGFErrArgument},
  };
  for (const GF::DevicePtr& d : GF::Devices()) {
    Pixels src = Source(40, 24, true), dst = Backdrop(16, 12, false), after = dst;
    OnDevice s(d, src), t(d, dst);
    GF::MotionArgs good = ArgsFor(s, t);
    good.dst_point = {0.5f, 0.5f}, good.src_point = {0.5f, 0.5f}, good.scale = {0.25f, 0.25f};
    good.shift_steps = 4;
    for (const Bad& b : bad) {
      GF::MotionArgs a = good;
      b.spoil(a);
      EXPECT_EQ(GF::Motion(d, a), b.status) << d->Name() << ": " << b.what;
    }
    t.Into(after);
    EXPECT_EQ(after.bytes, dst.bytes) << d->Name();
    EXPECT_EQ(GF::Motion(GF::DevicePtr(), good), GF::kGFErrArgument);
  }
}

TEST(VideoFrame, MappingAnswersThreeInterfacesAndOutlivesTheHandle) {
  int memory = 0;
  GPUFrameHandle h = VF::CreateFrameHandle(2, &memory, -7680, 1920, 1080, 0x61726762u, 10, 11);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(VF::CreateFrameHandle(0, nullptr, 4, 1, 1, 0, 1, 1), nullptr);
  EXPECT_EQ(VF::CreateFrameHandle(0, &memory, 4, 0, 1, 0, 1, 1), nullptr);
  EXPECT_EQ(VF::CreateFrameHandle(0, &memory, -4, 2, 1, 0, 1, 1), nullptr);  // pitch < row
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
  EXPECT_EQ(b.left + b.top, 0);
  EXPECT_EQ(b.right, 1920);
  EXPECT_EQ(b.bottom, 1080);
  EXPECT_EQ(data, &memory);
  EXPECT_EQ(index, 2);
  EXPECT_EQ(pitch, -7680);
  EXPECT_EQ(format, 0x61726762u);
  EXPECT_EQ(num * 100 + den, 1011);
  EXPECT_EQ(fd->GetBounds(nullptr), VF::kVFErrArgument);
  // Any interface answers for the others (one object behind them all).
  void* again = nullptr;
  ASSERT_EQ(fa->QueryInterface(VF::kIIDFrameLayout, &again), VF::kVFOk);
  EXPECT_EQ(again, lay);
  EXPECT_EQ(static_cast<VF::FrameLayout*>(again)->Release(), 3u);
  fd->Release(), fl->Release();
  EXPECT_EQ(fa->Release(), 0u);
  EXPECT_EQ(VF::GetRPixHandFrameMapping(nullptr, &u), VF::kVFErrArgument);
  EXPECT_EQ(u, nullptr);
}

}  // namespace
