// The reference host: loads an effect module and drives it the way a video editor would.
// Used by the vetext tool, the tests, the benchmarks and the adapters.
//
// Ownership: a Host owns its Modules; a Module owns its Instances; an Instance owns its
// parameter values (handles included). Frames belong to the caller.
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
#include "vetext/suites.h"

namespace vxhost {

// A frame in host memory. Bottom-up by default (negative row bytes, data at the top row), the
// way the reference host hands frames to a CPU render.
class Frame {
 public:
  Frame(int32_t width, int32_t height, uint32_t pixel_format = kPixelFormatBGRA,
        bool bottom_up = true);
  int32_t width() const { return layer_.width; }
  int32_t height() const { return layer_.height; }
  uint32_t pixel_format() const { return layer_.pixel_format; }
  int32_t bytes_per_pixel() const { return bpp_; }
  // Visual row y (0 on top).
  uint8_t* row(int32_t y) { return static_cast<uint8_t*>(layer_.data) + int64_t(y) * layer_.row_bytes; }
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
  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

// Faults a test can switch on; all off by default.
struct Faults {
  std::vector<std::string> missing_suites;  // acquire fails (non-zero status)
  std::vector<std::string> null_suites;     // acquire succeeds but hands back null
  bool no_suite_services = false;           // InputRecord.suites is null
  int64_t fail_alloc_after = -1;            // new_handle fails after this many successes
  VxStatus registration_status = 0;         // non-zero: register_token fails with it
  int32_t fail_add_param_at = -1;           // the n-th add_param (0-based) fails ...
  VxStatus add_param_status = -1;           // ... with this status
};

struct HostStats {
  std::atomic<int64_t> live_handles{0};
  std::atomic<int64_t> handles_allocated{0};
  std::atomic<int64_t> suites_acquired{0};
  std::atomic<int64_t> suites_released{0};
  std::atomic<int64_t> registrations{0};
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
  const OutputRecord& last_output() const;  // flags, message, version of the last command
  std::unique_ptr<Instance> CreateInstance();  // command 5; null on failure
  Host& host();
  struct Impl;

 private:
  friend class Host;
  explicit Module(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// One value of a parameter: what a keyframe holds.
struct ParamValue {
  double x = 0, y = 0;            // sliders and angles use x; points use x and y (layer pixels)
  bool flag = false;              // checkboxes
  std::vector<uint8_t> bytes;     // arbitrary data: the flat bytes
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
  void SetValue(int32_t index, const ParamValue& value, std::optional<double> time = {});
  ParamValue ValueAt(int32_t index, double time) const;
  // The ParamDef the module sees for `index` at `time` (arbitrary data: a new host handle owned
  // by the instance until the next call).
  ParamDef ParamAt(int32_t index, double time);
  // Command 11 on the CPU: `out` receives the input plus the effect.
  VxStatus Render(double time, const Frame& in, Frame& out, const RenderOptions& options = {});
  // Any command with an extra record (13, 14, 15, 22), parameters at `time`.
  VxStatus Command(EffectCommand cmd, ExtraRecord* extra, double time = 0);
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
  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

// Where the built VEText module lies (set at build time; overridden by $VETEXT_MODULE).
std::string DefaultModulePath();

}  // namespace vxhost
