// The host's GPU render driver: what a video editor does to draw an effect through its GPU
// filter. For one frame: the filter's dependency queries, one precomputed image per dependency
// (made in a host buffer by the filter, uploaded, and kept for later frames), then the filter's
// render into the frame in device memory.
//
// A precomputed image is kept under a key of everything the filter could have drawn it from: the
// dependency, the record's index, the frame it is for, and every parameter's value at the
// frame's time. The next frame with the same values (an unchanged text) finds its images and
// makes none; any change makes them again, as a host that knows nothing of the effect must.
#include <chrono>
#include <cmath>
#include <cstring>
#include <list>
#include <unordered_map>

#include "host_impl.h"
#include "vetext/image_renderer.h"
#include "vetext/video_frame.h"
#include "vetext/vxcore.h"

namespace vxhost {

// ---- DeviceFrame ----------------------------------------------------------------------------

DeviceFrame::DeviceFrame(GF::DevicePtr device, int32_t width, int32_t height, bool bottom_up,
                         int32_t par_num, int32_t par_den)
    : device_(std::move(device)), width_(width), height_(height), bottom_up_(bottom_up) {
  if (!device_ || width <= 0 || height <= 0) return;
  if (device_->Allocate(uint64_t(width) * 4 * uint64_t(height), &memory_) != GF::kGFOk) {
    memory_ = nullptr;
    return;
  }
  handle_ = VF::CreateFrameHandle(device_->Index(), top_row(), pitch(), width, height,
                                  kPixelFormatBGRA, par_num, par_den);
}

DeviceFrame::~DeviceFrame() {
  Reset();
}

void DeviceFrame::Reset() {
  VF::DisposeFrameHandle(handle_);
  handle_ = nullptr;
  if (memory_ != nullptr) device_->Free(memory_);
  memory_ = nullptr;
}

DeviceFrame::DeviceFrame(DeviceFrame&& o) noexcept
    : device_(std::move(o.device_)),
      memory_(o.memory_),
      width_(o.width_),
      height_(o.height_),
      bottom_up_(o.bottom_up_),
      handle_(o.handle_) {
  o.memory_ = nullptr;
  o.handle_ = nullptr;
}

DeviceFrame& DeviceFrame::operator=(DeviceFrame&& o) noexcept {
  if (this != &o) {
    Reset();
    device_ = std::move(o.device_);
    memory_ = o.memory_;
    width_ = o.width_;
    height_ = o.height_;
    bottom_up_ = o.bottom_up_;
    handle_ = o.handle_;
    o.memory_ = nullptr;
    o.handle_ = nullptr;
  }
  return *this;
}

void* DeviceFrame::top_row() const {
  if (memory_ == nullptr || !bottom_up_) return memory_;
  return static_cast<uint8_t*>(memory_) + int64_t(width_) * 4 * (height_ - 1);
}

int64_t DeviceFrame::pitch() const {
  return bottom_up_ ? -int64_t(width_) * 4 : int64_t(width_) * 4;
}

int32_t DeviceFrame::Upload(const Frame& from) {
  if (!ok() || from.width() != width_ || from.height() != height_ ||
      from.pixel_format() != kPixelFormatBGRA)
    return GF::kGFErrArgument;
  return device_->Upload(top_row(), pitch(), from.row(0), from.layer()->row_bytes,
                         int64_t(width_) * 4, height_);
}

int32_t DeviceFrame::Download(Frame& to) const {
  if (!ok() || to.width() != width_ || to.height() != height_ ||
      to.pixel_format() != kPixelFormatBGRA)
    return GF::kGFErrArgument;
  return device_->Download(to.row(0), to.layer()->row_bytes, top_row(), pitch(),
                           int64_t(width_) * 4, height_);
}

// ---- kept precomputes -----------------------------------------------------------------------

// One precomputed image on its device.
struct KeptImage {
  DeviceFrame frame;
  uint64_t bytes = 0;
};

struct PrecomputeCache {
  static constexpr uint64_t kBudget = 256ull << 20;
  std::mutex mutex;
  std::list<std::pair<std::string, std::shared_ptr<KeptImage>>> order;  // most recent first
  std::unordered_map<std::string, decltype(order)::iterator> index;
  uint64_t bytes = 0;

  std::shared_ptr<KeptImage> Find(const std::string& key) {
    std::lock_guard lock(mutex);
    auto it = index.find(key);
    if (it == index.end()) return nullptr;
    order.splice(order.begin(), order, it->second);
    return it->second->second;
  }
  void Keep(const std::string& key, std::shared_ptr<KeptImage> image) {
    std::lock_guard lock(mutex);
    if (index.count(key)) return;
    bytes += image->bytes;
    order.emplace_front(key, std::move(image));
    index[key] = order.begin();
    // Frames in use hold their own references: evicting only drops the cache's.
    while (bytes > kBudget && order.size() > 1) {
      bytes -= order.back().second->bytes;
      index.erase(order.back().first);
      order.pop_back();
    }
  }
};

struct GpuInstance {
  GPUFilterFunctions functions{};
  GPUInstanceRecord record{};
  bool created = false;
};

void Instance::Impl::DisposeGpu() {
  if (gpu && gpu->created) gpu->functions.dispose_instance(&gpu->record);
  gpu.reset();
  gpu_frame.reset();
}

namespace {

using Clock = std::chrono::steady_clock;
double Ms(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::milli>(b - a).count();
}

int32_t EnsureGpuFilter(Module::Impl& m) {
  std::lock_guard lock(m.gpu_mutex);
  if (m.gpu_status >= 0) return m.gpu_status;
  if (m.gpu == nullptr) return kErrUnsupported;
  int32_t index = -1;  // the first filter
  GPUFilterInfo info{};
  m.gpu_status = m.gpu(2, &index, 1, 0, &m.gpu_functions, &info);
  return m.gpu_status;
}

// What every precomputed image of a frame may depend on: the frame and every parameter's value at
// its time (arbitrary data as its flat bytes), as a digest.
std::string FrameDigest(Instance::Impl& inst, double time, const GPURenderParams& p,
                        int32_t device) {
  vxcore::MixHash h;
  auto mix = [&h](const auto& v) { h.MixInData(&v, sizeof v); };
  mix(device);
  mix(p.quality);
  mix(p.downsample_x);
  mix(p.downsample_y);
  mix(p.frame_width);
  mix(p.frame_height);
  mix(p.frame_bottom_up);
  mix(p.par_num);
  mix(p.par_den);
  for (int32_t i = 1; i < int32_t(inst.decl.size()); ++i) {
    const ParamValue v = inst.ValueAt(i, time);
    mix(v.x);
    mix(v.y);
    mix(v.flag);
    const uint64_t n = v.bytes.size();
    mix(n);
    if (n != 0) h.MixInData(v.bytes.data(), n);
  }
  uint8_t digest[16];
  h.Finish(digest);
  return std::string(reinterpret_cast<const char*>(digest), sizeof digest);
}

// The key of one image: the frame's digest, the record and its dependency.
std::string PrecomputeKey(const std::string& frame_digest, const GPUDependency& d, int32_t record) {
  std::string key = frame_digest;
  auto add = [&key](const auto& v) { key.append(reinterpret_cast<const char*>(&v), sizeof v); };
  add(record);
  add(d.pixel_format);
  add(d.width);
  add(d.height);
  return key;
}

}  // namespace

int32_t Instance::RenderGPU(double time, DeviceFrame& frame, const RenderOptions& options,
                            GPUFrameStats* stats) {
  Impl& inst = *impl_;
  if (!inst.module) return kStatusBadCallbackParam;
  if (!frame.ok()) return kErrGeneric;
  Module::Impl& m = *inst.module;
  if (const int32_t st = EnsureGpuFilter(m); st < 0) return st;
  Host::Impl& host = *m.host;
  if (!inst.gpu) {
    auto gpu = std::make_shared<GpuInstance>();
    gpu->functions = m.gpu_functions;
    gpu->record.suites = host.gpu_suites;
    gpu->record.device_index = frame.device()->Index();
    gpu->record.node_id = inst.node_id;
    if (const int32_t st = gpu->functions.create_instance(&gpu->record); st < 0) return st;
    gpu->created = true;
    inst.gpu = std::move(gpu);
  }
  GpuInstance& gpu = *inst.gpu;
  gpu.record.device_index = frame.device()->Index();
  {
    std::lock_guard lock(host.precomputes_mutex);
    if (!host.precomputes) host.precomputes = std::make_shared<PrecomputeCache>();
  }
  PrecomputeCache& kept = *host.precomputes;
  inst.layer_width.store(frame.width());
  inst.layer_height.store(frame.height());

  GPUFrameStats local;
  GPUFrameStats& s = stats ? *stats : local;
  s = GPUFrameStats{};
  GPURenderParams p{};
  p.clip_time = std::llround(time * double(kTicksPerSecond));
  p.sequence_time = p.clip_time;
  p.quality = 4;  // the best
  p.downsample_x = float(double(options.downsample_x.num) / options.downsample_x.den);
  p.downsample_y = float(double(options.downsample_y.num) / options.downsample_y.den);
  p.frame_width = frame.width();
  p.frame_height = frame.height();
  p.frame_bottom_up = frame.bottom_up() ? 1 : 0;
  p.par_num = options.pixel_aspect.num;
  p.par_den = int32_t(options.pixel_aspect.den);

  const auto t0 = Clock::now();
  std::vector<GPUDependency> deps;
  for (int32_t index = 0;;) {
    GPUDependency d{};
    const int32_t asked = index;
    // A failure ends the list: past the last record, or no records at all (then the render
    // draws nothing, or says why).
    if (gpu.functions.query_dependency(&gpu.record, &p, &index, &d) < 0) break;
    deps.push_back(d);
    if (index == asked) break;
  }
  s.records = int32_t(deps.size());

  std::vector<std::shared_ptr<KeptImage>> images;
  images.reserve(deps.size());
  const RPixCreatorSuite3* creator = host.cache.creator_suite();
  const RPixSuite1* pix = host.cache.pix_suite();
  const bool bottom_up_images = IR_IsOriginBottomLeft(kIRFormatBGRA8);
  const std::string digest =
      deps.empty() ? std::string() : FrameDigest(inst, time, p, frame.device()->Index());
  for (size_t i = 0; i < deps.size(); ++i) {
    const GPUDependency& d = deps[i];
    const std::string key = PrecomputeKey(digest, d, int32_t(i));
    if (std::shared_ptr<KeptImage> found = kept.Find(key)) {
      images.push_back(std::move(found));
      continue;
    }
    RPixHandle buffer = nullptr;
    if (creator->create(&buffer, 1, d.pixel_format, d.width, d.height, p.par_num, p.par_den, 0) <
            0 ||
        buffer == nullptr)
      return kErrGeneric;
    struct Disposer {
      const RPixSuite1* pix;
      RPixHandle h;
      ~Disposer() { pix->dispose(h); }
    } disposer{pix, buffer};
    if (const int32_t st = gpu.functions.precompute(&gpu.record, &p, int32_t(i), buffer); st < 0)
      return st;
    void* pixels = nullptr;
    int32_t row_bytes = 0;
    pix->get_pixels(buffer, kRPixAccessRead, &pixels);
    pix->get_row_bytes(buffer, &row_bytes);
    auto image = std::make_shared<KeptImage>();
    image->frame =
        DeviceFrame(frame.device(), d.width, d.height, bottom_up_images, p.par_num, p.par_den);
    if (!image->frame.ok() || pixels == nullptr) return kErrGeneric;
    image->bytes = uint64_t(d.width) * 4 * uint64_t(d.height);
    // The buffer's rows are stored the way the image frame stores them: one copy, in order.
    const uint8_t* top = static_cast<const uint8_t*>(pixels) +
                         (bottom_up_images ? int64_t(row_bytes) * (d.height - 1) : 0);
    if (const int32_t st = frame.device()->Upload(image->frame.top_row(), image->frame.pitch(), top,
                                                  bottom_up_images ? -row_bytes : row_bytes,
                                                  int64_t(d.width) * 4, d.height);
        st < 0)
      return st;
    kept.Keep(key, image);
    images.push_back(std::move(image));
    ++s.precomputed;
  }
  const auto t1 = Clock::now();

  std::vector<GPUFrameHandle> frames;
  frames.reserve(images.size() + 1);
  frames.push_back(frame.handle());
  for (const auto& image : images) frames.push_back(image->frame.handle());
  GPUFrameHandle out = nullptr;
  const int32_t st =
      gpu.functions.render(&gpu.record, &p, frames.data(), uint64_t(frames.size()), &out);
  const auto t2 = Clock::now();
  s.precompute_ms = Ms(t0, t1);
  s.render_ms = Ms(t1, t2);
  return st;
}

int32_t Instance::RenderGPU(double time, const Frame& in, Frame& out, int32_t device_index,
                            const RenderOptions& options, GPUFrameStats* stats) {
  Impl& inst = *impl_;
  if (!inst.module) return kStatusBadCallbackParam;
  if (in.width() != out.width() || in.height() != out.height() ||
      in.pixel_format() != kPixelFormatBGRA || out.pixel_format() != kPixelFormatBGRA)
    return kStatusBadCallbackParam;
  GF::DevicePtr device = GF::GetDevice(device_index);
  if (!device) return kErrGeneric;
  DeviceFrame* frame = inst.gpu_frame.get();
  if (frame == nullptr || frame->device() != device || frame->width() != in.width() ||
      frame->height() != in.height() || frame->bottom_up() != in.bottom_up()) {
    inst.gpu_frame =
        std::make_shared<DeviceFrame>(device, in.width(), in.height(), in.bottom_up(),
                                      options.pixel_aspect.num, int32_t(options.pixel_aspect.den));
    frame = inst.gpu_frame.get();
  }
  GPUFrameStats local;
  GPUFrameStats& s = stats ? *stats : local;
  const auto t0 = Clock::now();
  if (const int32_t st = frame->Upload(in); st < 0) return st;
  const auto t1 = Clock::now();
  const int32_t st = RenderGPU(time, *frame, options, &s);
  if (st < 0) return st;
  const auto t2 = Clock::now();
  if (const int32_t dl = frame->Download(out); dl < 0) return dl;
  s.upload_ms = Ms(t0, t1);
  s.download_ms = Ms(t2, Clock::now());
  return st;
}

}  // namespace vxhost
