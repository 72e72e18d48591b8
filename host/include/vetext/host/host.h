// The reference host: loads an effect module and drives it the way a video editor would.
// Used by the vetext tool, the tests, the benchmarks and the adapters.
//
// Ownership: a Host owns its Modules; a Module owns its Instances; an Instance owns its
// parameter values (handles included). Frames belong to the caller. Destroy Modules before their
// Host; an Instance may outlive its Module (the Module tears it down, later calls then fail).
// Each Host has its own callback and suite tables, so several Hosts live in one process.
// Times: Instance calls take seconds; InputRecord times are in microseconds (time_scale 1e6);
// the video segment suite and the GPU path use kTicksPerSecond.
// Thread safety: Instance::Render and the frame cache may be used from many threads at once;
// everything else belongs to one thread at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vetext/effect.h"
#include "vetext/gpu_filter.h"
#include "vetext/gpu_foundation.h"
#include "vetext/suites.h"

namespace vxhost {

// A frame in host memory. Bottom-up by default (negative row bytes, data at the top row), the
// way the reference host hands frames to a CPU render.
class Frame {
 public:
  // Sizes below 0 are taken as 0. 'bgra' and 'vuya' have 4 bytes per pixel, 'bg16' 8, 'bg2f' 16;
  // any other code is taken as 4 bytes per pixel (for tests of unsupported formats).
  Frame(int32_t width, int32_t height, uint32_t pixel_format = kPixelFormatBGRA,
        bool bottom_up = true);
  // A frame over pixels the caller owns (a client's buffer), which must outlive it: `top_row` is
  // the first row in visual order, `row_bytes` the step to the next one (negative for bottom-up
  // memory). Copies of it copy the pixels into storage of their own.
  static Frame View(void* top_row, int32_t width, int32_t height, int32_t row_bytes,
                    uint32_t pixel_format = kPixelFormatBGRA);
  Frame(const Frame& other);
  Frame& operator=(const Frame& other);
  bool bottom_up() const { return layer_.row_bytes < 0; }
  int32_t width() const { return layer_.width; }
  int32_t height() const { return layer_.height; }
  uint32_t pixel_format() const { return layer_.pixel_format; }
  int32_t bytes_per_pixel() const { return bpp_; }
  // Visual row y (0 on top).
  uint8_t* row(int32_t y) {
    return static_cast<uint8_t*>(layer_.data) + int64_t(y) * layer_.row_bytes;
  }
  const uint8_t* row(int32_t y) const {
    return static_cast<const uint8_t*>(layer_.data) + int64_t(y) * layer_.row_bytes;
  }
  OutputLayer* layer() { return &layer_; }
  const OutputLayer* layer() const { return &layer_; }
  void Fill(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3);

 private:
  std::vector<uint8_t> storage_;
  OutputLayer layer_{};
  int32_t bpp_ = 4;
};

// Counters of the frame cache, read by tests and benchmarks.
struct CacheStats {
  uint64_t hits = 0, misses = 0, adds = 0, evictions = 0;
  uint64_t bytes = 0, entries = 0;
};

// The frame cache behind the three RPix suites: raw buffers tagged by pixel format, looked up
// and added by key text, evicted least recently used beyond a byte budget. Thread safe.
class FrameCache {
 public:
  explicit FrameCache(uint64_t budget_bytes = 512ull << 20);
  ~FrameCache();
  void SetBudget(uint64_t bytes);  // evicts at once down to the new budget
  void Clear();
  CacheStats Stats() const;
  const RPixSuite1* pix_suite() const;
  const RPixCacheSuite6* cache_suite() const;
  const RPixCreatorSuite3* creator_suite() const;
  // A fault a test can switch on: n > 0 makes every n-th buffer creation in the process fail
  // (as when memory runs out now and then); 0 turns it off. FailedCreations() counts the
  // creations it refused. Safe from any thread.
  static void FailEveryNthCreation(int64_t n);
  static int64_t FailedCreations();
  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

// Faults a test can switch on; all off by default.
struct Faults {
  std::vector<std::string> missing_suites;  // acquire fails (non-zero status)
  std::vector<std::string> null_suites;     // acquire succeeds but hands back null
  bool no_suite_services = false;           // InputRecord.suites is null
  // new_handle fails once HostStats.handles_allocated has reached this count (-1: never), so a
  // test sets it to stats().handles_allocated + N to let N more allocations succeed.
  int64_t fail_alloc_after = -1;
  VxStatus registration_status = 0;  // non-zero: register_token fails with it
  int32_t fail_add_param_at = -1;    // the n-th add_param (0-based) fails ...
  VxStatus add_param_status = -1;    // ... with this status
};

// Lifetime counters of a Host. live_handles and registrations are what is outstanding now (a
// clean lifecycle ends with both at 0); the others only grow.
struct HostStats {
  std::atomic<int64_t> live_handles{0};
  std::atomic<int64_t> handles_allocated{0};
  std::atomic<int64_t> suites_acquired{0};
  std::atomic<int64_t> suites_released{0};
  std::atomic<int64_t> registrations{0};
  std::atomic<int64_t> arb_requests{0};  // command 22 requests the host sent
};

// Time of the GPU path and of the video segment suite: ticks per second.
constexpr int64_t kTicksPerSecond = 254016000000;

// Viewer events: viewer point = layer point * zoom + offset.
struct ViewerTransform {
  double zoom = 1.0;
  double offset_x = 0.0, offset_y = 0.0;
};

// What the DRAWBOT suites drew, in call order. The drawer of a draw event (command 15, type 4)
// is the event context's host_data: (DrawbotDrawerRef)(*event.context)->host_data.
struct PathOp {
  enum Kind { kMove, kLine, kRect, kClose, kCurve } kind;
  float x = 0, y = 0, width = 0, height = 0;  // the end point (x, y); a rectangle's size
  float x1 = 0, y1 = 0, x2 = 0, y2 = 0;       // a curve's control points
};
struct DrawnPath {
  bool fill = false;  // false: stroked
  DrawbotColor color{};
  float line_width = 0;
  std::vector<PathOp> ops;
};

// The drawn paths as SVG elements (one <path> each, viewer pixels, colours as rgb() with their
// alpha as opacity), for embedding in an SVG document of the viewer's size.
std::string DrawnPathsToSvg(const std::vector<DrawnPath>& paths);

// A frame in a GPU device's memory ('bgra'), top row first or bottom-up like a Frame. Owned;
// moves but does not copy. Its handle is what the GPU filter receives as a frame.
class DeviceFrame {
 public:
  DeviceFrame() = default;  // no memory: ok() is false
  // Allocates width x height pixels on `device`; ok() is false when that fails.
  DeviceFrame(GF::DevicePtr device, int32_t width, int32_t height, bool bottom_up,
              int32_t par_num = 1, int32_t par_den = 1);
  ~DeviceFrame();
  DeviceFrame(DeviceFrame&& other) noexcept;
  DeviceFrame& operator=(DeviceFrame&& other) noexcept;
  DeviceFrame(const DeviceFrame&) = delete;
  DeviceFrame& operator=(const DeviceFrame&) = delete;
  bool ok() const { return memory_ != nullptr; }
  int32_t width() const { return width_; }
  int32_t height() const { return height_; }
  bool bottom_up() const { return bottom_up_; }
  void* top_row() const;
  int64_t pitch() const;  // negative for bottom-up
  const GF::DevicePtr& device() const { return device_; }
  GPUFrameHandle handle() const { return handle_; }
  // Copies a frame of the same size in or out, in visual row order. 0 or a GF status (a frame
  // of another size or format: kGFErrArgument).
  int32_t Upload(const Frame& from);
  int32_t Download(Frame& to) const;

 private:
  void Reset();
  GF::DevicePtr device_;
  void* memory_ = nullptr;
  int32_t width_ = 0, height_ = 0;
  bool bottom_up_ = false;
  GPUFrameHandle handle_ = nullptr;
};

// Where the time of one GPU frame went (milliseconds), for the benchmarks.
struct GPUFrameStats {
  double upload_ms = 0, precompute_ms = 0, render_ms = 0, download_ms = 0;
  int32_t records = 0;      // dependencies the filter asked for
  int32_t precomputed = 0;  // of those, images made on this frame (the rest were kept)
};

class Host;
class Instance;

// A loaded module with its global state and declared parameters.
class Module {
 public:
  ~Module();  // tears down (command 3) if set up, then closes the library
  EffectMainFunc effect_main() const;
  GPUFilterEntryFunc gpu_entry() const;  // null when the module has none
  // Command 1 then command 4. Returns the first non-zero status.
  VxStatus Setup();
  VxStatus GlobalSetup();
  VxStatus ParamsSetup();
  VxStatus GlobalSetdown();
  // Parameters as declared, index 0 being the input layer the host adds itself.
  const std::vector<ParamDef>& params() const;
  int32_t declared_param_count() const;  // OutputRecord.num_params after command 4
  // The label table registered with the host at global setup (key text after "=").
  std::string LookupLabel(int32_t index) const;
  // A value of the module's info note (vetext/module_info.h), readable before setup: "name"
  // (a string resource key), "category". "" when the module does not carry the key.
  std::string Info(const std::string& key) const;
  const OutputRecord& last_output() const;  // flags, message, version of the last command
  // Formats the module declared through the "PF Pixel Format Suite".
  std::vector<uint32_t> supported_formats() const;
  // Command 5; null on failure (*status receives the module's status when given). Arbitrary data
  // values start as copies of the declared defaults (command 22, selector 2).
  std::unique_ptr<Instance> CreateInstance(VxStatus* status = nullptr);
  Host& host();
  struct Impl;

 private:
  friend class Host;
  explicit Module(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// One value of a parameter: what a keyframe holds.
struct ParamValue {
  double x = 0, y = 0;         // sliders and angles use x; points use x and y (layer pixels)
  bool flag = false;           // checkboxes
  std::vector<uint8_t> bytes;  // arbitrary data: the flat bytes
};

struct RenderOptions {
  VxRational downsample_x{1, 1}, downsample_y{1, 1};
  VxRational pixel_aspect{1, 1};
};

// One effect instance (a sequence): command 5 at creation, command 8 at destruction.
class Instance {
 public:
  ~Instance();
  // Values: without a time the value is constant (keyframes cleared); with a time in seconds a
  // keyframe is set. Numbers interpolate linearly between keyframes; arbitrary data through
  // command 22, selector 6.
  // Arbitrary data goes in through selector 5 (unflatten); a non-zero status leaves the old
  // value in place. An index out of range or without a value gives kStatusBadCallbackParam.
  VxStatus SetValue(int32_t index, const ParamValue& value, std::optional<double> time = {});
  // Removes keyframes and constant: the parameter returns to its declared default
  // (arbitrary data: a fresh copy of the default).
  void ResetValue(int32_t index);
  ParamValue ValueAt(int32_t index, double time) const;
  // The times of the parameter's keyframes, ascending; empty for a constant or default value.
  std::vector<double> KeyTimes(int32_t index) const;
  // The layer size that turns point defaults (percent) into pixels outside Render, which uses
  // its input frame's size (and remembers it here).
  void SetLayerSize(int32_t width, int32_t height);
  int32_t node_id() const;  // the id the video segment suite and the GPU path know it by
  // The ParamDef the module sees for `index` at `time` (arbitrary data: a new host handle owned
  // by the instance until the next call).
  ParamDef ParamAt(int32_t index, double time);
  // Command 11 on the CPU: `out` receives the input plus the effect. `out` must have the size
  // and pixel format of `in` (else kStatusBadCallbackParam, nothing sent).
  VxStatus Render(double time, const Frame& in, Frame& out, const RenderOptions& options = {});
  // The GPU path: the module's GPU filter draws the text into `frame` in place, on the frame's
  // device: dependencies, precomputed record images (kept by the host between frames while the
  // parameters at the frame's time are unchanged, so an unchanged text is not rasterised
  // again), then the filter's render. Returns 0 or the filter's negative status;
  // kErrUnsupported when the module has no GPU filter. Not for concurrent calls on one
  // instance.
  int32_t RenderGPU(double time, DeviceFrame& frame, const RenderOptions& options = {},
                    GPUFrameStats* stats = nullptr);
  // Upload, RenderGPU on device `device_index` (GF::GetDevice), download. `out` must have the
  // size and pixel format ('bgra') of `in`, else kStatusBadCallbackParam.
  int32_t RenderGPU(double time, const Frame& in, Frame& out, int32_t device_index,
                    const RenderOptions& options = {}, GPUFrameStats* stats = nullptr);
  // Any command with an extra record (13, 14, 15, 22), parameters at `time`.
  VxStatus Command(EffectCommand cmd, ExtraRecord* extra, double time = 0);
  // Command 15 in the program viewer (window type 0 unless given): fills the context and the
  // point conversion callbacks of `event` and sends it.
  VxStatus Event(EventRecord* event, double time = 0, int32_t window_type = 0);
  // Controls as the host shows them after command 14 (labels and UI flags by index).
  const ParamDef& ui_param(int32_t index) const;
  // Project files: parameters, keyframes and document blocks, restored byte for byte.
  std::vector<uint8_t> SaveProject() const;
  bool LoadProject(const uint8_t* bytes, size_t size, std::string* error);
  const OutputRecord& last_output() const;
  struct Impl;

 private:
  friend class Module;
  explicit Instance(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

class Host {
 public:
  explicit Host(uint64_t cache_budget_bytes = 512ull << 20);
  ~Host();
  // dlopen()s the module and finds EffectMain (required) and xGPUFilterEntry (optional).
  std::unique_ptr<Module> Load(const std::string& path, std::string* error);
  FrameCache& cache();
  Faults& faults();
  HostStats& stats();
  const SuiteServices* suite_services() const;
  const UtilCallbacks* utils() const;
  const GPUSuiteAccessor* gpu_suites() const;
  ViewerTransform& viewer();
  std::vector<DrawnPath> drawn_paths() const;
  void ClearDrawing();
  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

// Where the built VEText module lies (set at build time; overridden by $VETEXT_MODULE).
std::string DefaultModulePath();

}  // namespace vxhost
