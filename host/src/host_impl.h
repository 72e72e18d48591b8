// Internal state of the reference host, shared by the files of host/src.
//
// Host callbacks and suite entries are plain C function pointers without a context argument, so
// each Host takes one of a fixed number of slots; the slot's callback tables are template
// instances that find their Host through the slot. That keeps every Host in a process (tests run
// many) apart without thread-local state, and lets the module call back from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string>
#include <vector>

#include "vetext/host/host.h"
#include "vetext/labels.h"

namespace vxhost {

constexpr size_t kMaxHosts = 64;
constexpr size_t kMaxCaches = 64;

// A host handle: the handle itself (a VxHandle) is the address of `data`.
struct alignas(16) HandleBlock {
  void* data;
  uint64_t size;
  uint64_t magic;
  Host::Impl* owner;
};
constexpr uint64_t kHandleMagic = 0x76786864686e646cull;
constexpr uint64_t kHandleMaxBytes = uint64_t(1) << 36;
// InputRecord times are in microseconds.
constexpr uint32_t kInputTimeScale = 1000000;

// What an EffectRef points at: the module, and the instance when the call concerns one.
struct RefTarget {
  Module::Impl* module = nullptr;
  Instance::Impl* instance = nullptr;
};

// Per-host context of viewer events: the drawer of a draw event and the viewer transform.
struct ViewerContext {
  Host::Impl* host = nullptr;
  ViewerTransform transform;
};

struct DrawPath {
  std::vector<PathOp> ops;
};

struct GpuInstance;  // gpu_render.cpp
struct PrecomputeCache;

struct Host::Impl {
  explicit Impl(uint64_t cache_budget);
  ~Impl();

  size_t slot = 0;
  FrameCache cache;
  Faults faults;
  HostStats stats;
  const UtilCallbacks* utils = nullptr;
  const SuiteServices* suites = nullptr;
  const GPUSuiteAccessor* gpu_suites = nullptr;
  const VideoSegmentSuite6* video_segment = nullptr;

  // The module whose global setup or setdown is running (commands 1 and 3 come alone).
  std::atomic<Module::Impl*> global_module{nullptr};
  std::atomic<int32_t> add_param_calls{0};

  // Instances by node id, for the video segment suite.
  std::mutex nodes_mutex;
  std::map<int32_t, Instance::Impl*> nodes;
  int32_t next_node_id = 1;

  // Precomputed record images of the GPU path, on their devices.
  std::shared_ptr<PrecomputeCache> precomputes;
  std::mutex precomputes_mutex;  // guards making it
  // What the DRAWBOT suites drew.
  ViewerContext viewer;
  mutable std::mutex draw_mutex;
  std::vector<DrawnPath> drawn;

  VxHandle NewHandle(uint64_t size);
  VxStatus Acquire(const char* name, int32_t version, const void** suite);
  VxStatus Release(const char* name, int32_t version);
  int32_t SegmentParam(int32_t node_id, int32_t gpu_index, int64_t time, SegmentParamValue* out);
};

struct Module::Impl {
  Host::Impl* host = nullptr;
  Host* host_public = nullptr;
  void* library = nullptr;
  std::string path;
  EffectMainFunc main = nullptr;
  GPUFilterEntryFunc gpu = nullptr;
  RefTarget ref;
  VxHandle global_data = nullptr;
  bool set_up = false;
  int64_t token = 0;
  bool registered = false;
  std::vector<ParamDef> params;
  int32_t num_params = 0;
  std::vector<uint32_t> formats;
  OutputRecord last_output{};
  std::mutex instances_mutex;
  std::set<Instance::Impl*> instances;
  // The GPU filter's table, from the first GPU render on (gpu_status < 0: the entry refused).
  std::mutex gpu_mutex;
  GPUFilterFunctions gpu_functions{};
  int32_t gpu_status = kErrUnsupported;

  InputRecord MakeInput() const;
  VxStatus Call(EffectCommand cmd, InputRecord* in, OutputRecord* out, ParamList* params,
                OutputLayer* layer, ExtraRecord* extra);
};

// The stored value of one parameter.
struct Keyframe {
  double time = 0;
  ParamValue value;           // numeric parameters
  VxHandle handle = nullptr;  // arbitrary data
};
enum class ValueMode : uint8_t { kDefault = 0, kConstant = 1, kKeyframes = 2 };
struct ParamSlot {
  ValueMode mode = ValueMode::kDefault;
  ParamValue constant;
  VxHandle handle = nullptr;   // arbitrary data, constant mode
  std::vector<Keyframe> keys;  // sorted by time
};

struct Instance::Impl {
  Module::Impl* module = nullptr;  // null once the module has torn the instance down
  RefTarget ref;
  int32_t node_id = 0;
  VxHandle sequence_data = nullptr;
  mutable std::shared_mutex store_mutex;
  std::vector<ParamSlot> slots;
  std::vector<ParamDef> decl;  // as the module declared them; never changed
  std::vector<ParamDef> ui;    // names and UI flags as shown (command 14 changes them)
  std::atomic<int32_t> layer_width{1920}, layer_height{1080};
  VxHandle param_at_temp = nullptr;
  int32_t param_at_index = 0;
  std::mutex checkout_mutex;
  std::set<VxHandle> checked_out;
  mutable std::mutex output_mutex;
  OutputRecord last_output{};

  // Command 22 on behalf of the host.
  VxStatus Arb(ArbRequestRecord& request);
  VxHandle NewValue(int32_t index);
  VxHandle CopyValue(int32_t index, VxHandle src);
  VxHandle Unflatten(int32_t index, const std::vector<uint8_t>& bytes, VxStatus* status);
  bool Flatten(int32_t index, VxHandle h, std::vector<uint8_t>* bytes);
  void DisposeValue(int32_t index, VxHandle h);
  // The value at `time` (the caller holds store_mutex); for arbitrary data a handle that the
  // caller disposes when *temp.
  VxHandle HandleAt(int32_t index, double time, bool* temp);
  ParamValue NumericAt(int32_t index, double time, int32_t layer_w, int32_t layer_h) const;
  // Takes store_mutex itself.
  ParamDef DefAt(int32_t index, double time, int32_t layer_w, int32_t layer_h, bool* temp);
  ParamValue ValueAt(int32_t index, double time);
  VxStatus SetValue(int32_t index, const ParamValue& value, std::optional<double> time);
  std::atomic<double> event_time{0};  // the time of the event being sent (set_param's time)
  InputRecord MakeInput(double time) const;
  void SetOutput(const OutputRecord& out);
  void Teardown();  // disposes every value and sends command 8
  uint64_t refcon(int32_t index) const;
  // The GPU filter instance, made on the first GPU render and disposed before command 8.
  std::shared_ptr<GpuInstance> gpu;
  std::shared_ptr<DeviceFrame> gpu_frame;  // the upload target of RenderGPU(in, out)
  void DisposeGpu();
};

Host::Impl* HostInSlot(size_t slot);
const UtilCallbacks* UtilTable(size_t slot);
const SuiteServices* SuiteTable(size_t slot);
const GPUSuiteAccessor* GPUSuiteTable(size_t slot);
const VideoSegmentSuite6* SegmentTable(size_t slot);
size_t ClaimHostSlot(Host::Impl* host);
void FreeHostSlot(size_t slot);

// Label tables registered by token (process-wide: two hosts may load the same module).
VxStatus RegisterLabels(int64_t token);
void UnregisterLabels(int64_t token);
const char* LookupLabelText(int64_t token, int32_t index);

const PixelFormatSuite1* PixelFormatTable();
const ParamUtilsSuite3* ParamUtilsTable();
const DrawbotDrawSuite1* DrawTable();
const DrawbotSupplierSuite1* SupplierTable();
const DrawbotPathSuite1* PathTable();
const DrawbotPathSuite2* PathTable2();
const DrawbotSurfaceSuite1* SurfaceTable();

int32_t BytesPerPixel(uint32_t pixel_format);
void DisposeHostHandle(VxHandle h);
double FixedToDouble(VxFixed f);
VxFixed DoubleToFixed(double d);

}  // namespace vxhost
