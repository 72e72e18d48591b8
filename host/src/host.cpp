// The Host: host callbacks, handles, label tables, suite services and frames.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "host_impl.h"
#include "vetext/memory.h"

namespace vxhost {

// ---- small helpers --------------------------------------------------------------------------

int32_t BytesPerPixel(uint32_t pixel_format) {
  switch (pixel_format) {
    case kPixelFormatBGRA16:
      return 8;
    case kPixelFormatBGRA32F:
      return 16;
    default:
      return 4;
  }
}

double FixedToDouble(VxFixed f) {
  return double(f) / 65536.0;
}

VxFixed DoubleToFixed(double d) {
  double v = std::round(d * 65536.0);
  if (!(v == v)) return 0;  // NaN
  v = std::clamp(v, double(INT32_MIN), double(INT32_MAX));
  return static_cast<VxFixed>(v);
}

// ---- slots ----------------------------------------------------------------------------------

namespace {

std::array<std::atomic<Host::Impl*>, kMaxHosts> g_hosts{};
std::mutex g_host_slot_mutex;

HandleBlock* BlockOf(VxHandle h) {
  if (!h) return nullptr;
  auto* b = reinterpret_cast<HandleBlock*>(h);
  return b->magic == kHandleMagic ? b : nullptr;
}

// Callbacks that need no host.
const char* LookupString(int64_t token, int32_t index, int32_t, int32_t) {
  return LookupLabelText(token, index);
}

VxStatus AddParam(EffectRef ref, int32_t index, const ParamDef* def) {
  auto* target = reinterpret_cast<RefTarget*>(ref);
  if (!target || !target->module || !def) return kStatusBadCallbackParam;
  Module::Impl* m = target->module;
  Host::Impl* h = m->host;
  int32_t n = h->add_param_calls.fetch_add(1);
  if (h->faults.fail_add_param_at >= 0 && n == h->faults.fail_add_param_at)
    return h->faults.add_param_status;
  if (index != kParamIndexAppend && index != int32_t(m->params.size()))
    return kStatusBadCallbackParam;
  m->params.push_back(*def);
  return kStatusOk;
}

void CopyText(char* dst, size_t capacity, const char* src) {
  if (!dst || capacity == 0) return;
  if (!src) src = "";
  size_t n = strnlen(src, capacity - 1);
  std::memcpy(dst, src, n);
  dst[n] = 0;
}

void CopyMessage(OutputRecord* out, const char* text) {
  if (out) CopyText(out->message, sizeof(out->message), text);
}

void DisposeHandle(VxHandle h) {
  HandleBlock* b = BlockOf(h);
  if (!b) return;
  if (b->owner) b->owner->stats.live_handles.fetch_sub(1);
  b->magic = 0;
  std::free(b);
}

uint64_t GetHandleSize(VxHandle h) {
  HandleBlock* b = BlockOf(h);
  return b ? b->size : 0;
}

// Copies row by row in visual order, so either frame may be bottom-up.
VxStatus CopyLayer(EffectRef, const OutputLayer* src, OutputLayer* dst, const VxRect* src_rect,
                   const VxRect* dst_rect) {
  if (!src || !dst || !src->data || !dst->data) return kStatusBadCallbackParam;
  if (src->pixel_format != dst->pixel_format) return kStatusBadCallbackParam;
  const int64_t bpp = BytesPerPixel(src->pixel_format);
  VxRect s = src_rect ? *src_rect : VxRect{0, 0, src->width, src->height};
  VxRect d = dst_rect ? *dst_rect : VxRect{0, 0, dst->width, dst->height};
  if (!src_rect && !dst_rect && (src->width != dst->width || src->height != dst->height))
    return kStatusBadCallbackParam;
  s.left = std::max(s.left, 0);
  s.top = std::max(s.top, 0);
  s.right = std::min(s.right, src->width);
  s.bottom = std::min(s.bottom, src->height);
  d.left = std::max(d.left, 0);
  d.top = std::max(d.top, 0);
  d.right = std::min(d.right, dst->width);
  d.bottom = std::min(d.bottom, dst->height);
  const int32_t w = std::min(s.right - s.left, d.right - d.left);
  const int32_t hgt = std::min(s.bottom - s.top, d.bottom - d.top);
  if (w <= 0 || hgt <= 0) return kStatusOk;
  // Whole frames of the same packed layout (the usual input copy) are one block: one call
  // instead of a call a row is measurably faster at frame sizes.
  const int64_t row = int64_t(w) * bpp;
  if (s.left == 0 && d.left == 0 && src->row_bytes == dst->row_bytes &&
      (src->row_bytes == row || src->row_bytes == -row)) {
    const int64_t first = src->row_bytes < 0 ? int64_t(hgt - 1) : 0;
    const auto* from =
        static_cast<const uint8_t*>(src->data) + (s.top + first) * int64_t(src->row_bytes);
    auto* to = static_cast<uint8_t*>(dst->data) + (d.top + first) * int64_t(dst->row_bytes);
    // A frame rendered in place (input and output one buffer) needs no copy at all.
    if (to != from) std::memmove(to, from, size_t(row * hgt));
    return kStatusOk;
  }
  for (int32_t y = 0; y < hgt; ++y) {
    const auto* from =
        static_cast<const uint8_t*>(src->data) + int64_t(s.top + y) * src->row_bytes + s.left * bpp;
    auto* to =
        static_cast<uint8_t*>(dst->data) + int64_t(d.top + y) * dst->row_bytes + d.left * bpp;
    std::memmove(to, from, size_t(w * bpp));
  }
  return kStatusOk;
}

template <size_t I>
struct HostSlot {
  static Host::Impl* H() { return g_hosts[I].load(std::memory_order_acquire); }

  static VxStatus Register(int64_t* token, int32_t) {
    Host::Impl* h = H();
    if (!h || !token) return kStatusBadCallbackParam;
    if (h->faults.registration_status != 0) return h->faults.registration_status;
    VxStatus st = RegisterLabels(*token);
    if (st != kStatusOk) return st;
    h->stats.registrations.fetch_add(1);
    if (Module::Impl* m = h->global_module.load()) {
      m->token = *token;
      m->registered = true;
    }
    return kStatusOk;
  }
  static VxStatus Unregister(int64_t* token) {
    Host::Impl* h = H();
    if (!h || !token) return kStatusBadCallbackParam;
    UnregisterLabels(*token);
    h->stats.registrations.fetch_sub(1);
    if (Module::Impl* m = h->global_module.load()) {
      if (m->token == *token) m->registered = false;
    }
    return kStatusOk;
  }
  static VxHandle NewHandle(uint64_t size) {
    Host::Impl* h = H();
    return h ? h->NewHandle(size) : nullptr;
  }
  static VxStatus Acquire(const char* name, int32_t version, const void** suite) {
    Host::Impl* h = H();
    if (!h) {
      if (suite) *suite = nullptr;
      return kStatusBadCallbackParam;
    }
    return h->Acquire(name, version, suite);
  }
  static VxStatus Release(const char* name, int32_t version) {
    Host::Impl* h = H();
    return h ? h->Release(name, version) : kStatusBadCallbackParam;
  }
  static int32_t SegmentParam(int32_t node, int32_t index, int64_t time, SegmentParamValue* out) {
    Host::Impl* h = H();
    return h ? h->SegmentParam(node, index, time, out) : -1;
  }

  static constexpr UtilCallbacks kUtils{&Register,      &Unregister,  &LookupString, &AddParam,
                                        &CopyText,      &CopyMessage, &NewHandle,    &DisposeHandle,
                                        &GetHandleSize, &CopyLayer};
  static constexpr SuiteServices kSuites{&Acquire, &Release};
  static constexpr GPUSuiteAccessor kGPU{&Acquire, &Release};
  static constexpr VideoSegmentSuite6 kSegment{&SegmentParam};
};

template <size_t... I>
constexpr auto MakeUtils(std::index_sequence<I...>) {
  return std::array<UtilCallbacks, sizeof...(I)>{HostSlot<I>::kUtils...};
}
template <size_t... I>
constexpr auto MakeSuites(std::index_sequence<I...>) {
  return std::array<SuiteServices, sizeof...(I)>{HostSlot<I>::kSuites...};
}
template <size_t... I>
constexpr auto MakeGPU(std::index_sequence<I...>) {
  return std::array<GPUSuiteAccessor, sizeof...(I)>{HostSlot<I>::kGPU...};
}
template <size_t... I>
constexpr auto MakeSegment(std::index_sequence<I...>) {
  return std::array<VideoSegmentSuite6, sizeof...(I)>{HostSlot<I>::kSegment...};
}
constexpr auto kUtilTables = MakeUtils(std::make_index_sequence<kMaxHosts>{});
constexpr auto kSuiteTables = MakeSuites(std::make_index_sequence<kMaxHosts>{});
constexpr auto kGPUTables = MakeGPU(std::make_index_sequence<kMaxHosts>{});
constexpr auto kSegmentTables = MakeSegment(std::make_index_sequence<kMaxHosts>{});

}  // namespace

void DisposeHostHandle(VxHandle h) {
  DisposeHandle(h);
}

Host::Impl* HostInSlot(size_t slot) {
  return g_hosts[slot].load();
}
const UtilCallbacks* UtilTable(size_t slot) {
  return &kUtilTables[slot];
}
const SuiteServices* SuiteTable(size_t slot) {
  return &kSuiteTables[slot];
}
const GPUSuiteAccessor* GPUSuiteTable(size_t slot) {
  return &kGPUTables[slot];
}
const VideoSegmentSuite6* SegmentTable(size_t slot) {
  return &kSegmentTables[slot];
}

size_t ClaimHostSlot(Host::Impl* host) {
  std::lock_guard lock(g_host_slot_mutex);
  for (size_t i = 0; i < kMaxHosts; ++i) {
    if (!g_hosts[i].load()) {
      g_hosts[i].store(host, std::memory_order_release);
      return i;
    }
  }
  throw std::runtime_error("too many hosts in one process");
}

void FreeHostSlot(size_t slot) {
  std::lock_guard lock(g_host_slot_mutex);
  g_hosts[slot].store(nullptr, std::memory_order_release);
}

// ---- label tables ---------------------------------------------------------------------------

namespace {
struct LabelSet {
  int64_t refs = 0;
  std::vector<std::string> texts;  // never changed after registration: c_str() stays valid
};
std::mutex g_labels_mutex;
std::map<int64_t, std::unique_ptr<LabelSet>> g_labels;
constexpr int32_t kMaxLabels = 4096;
}  // namespace

VxStatus RegisterLabels(int64_t token) {
  std::lock_guard lock(g_labels_mutex);
  auto& set = g_labels[token];
  if (set) {
    set->refs++;
    return kStatusOk;
  }
  auto fresh = std::make_unique<LabelSet>();
  fresh->refs = 1;
  // A zero token is a module without a table; it registers all the same.
  if (token != 0) {
    const auto* table = reinterpret_cast<const LabelTable*>(token);
    if (table->count < 0 || table->count > kMaxLabels || (table->count > 0 && !table->entries)) {
      g_labels.erase(token);
      return kStatusBadCallbackParam;
    }
    for (int32_t i = 0; i < table->count; ++i) {
      const char* key = table->entries[i].key;
      if (!key) break;  // the terminator
      const char* eq = std::strchr(key, '=');
      fresh->texts.emplace_back(eq ? eq + 1 : "");
    }
  }
  set = std::move(fresh);
  return kStatusOk;
}

void UnregisterLabels(int64_t token) {
  std::lock_guard lock(g_labels_mutex);
  auto it = g_labels.find(token);
  if (it == g_labels.end()) return;
  if (--it->second->refs == 0) g_labels.erase(it);
}

const char* LookupLabelText(int64_t token, int32_t index) {
  std::lock_guard lock(g_labels_mutex);
  auto it = g_labels.find(token);
  if (it == g_labels.end() || index < 0 || size_t(index) >= it->second->texts.size()) return "";
  return it->second->texts[size_t(index)].c_str();
}

// ---- Host::Impl -----------------------------------------------------------------------------

Host::Impl::Impl(uint64_t cache_budget) : cache(cache_budget) {
  slot = ClaimHostSlot(this);
  utils = UtilTable(slot);
  suites = SuiteTable(slot);
  gpu_suites = GPUSuiteTable(slot);
  video_segment = SegmentTable(slot);
  viewer.host = this;
}

Host::Impl::~Impl() {
  FreeHostSlot(slot);
}

VxHandle Host::Impl::NewHandle(uint64_t size) {
  if (size > kHandleMaxBytes) return nullptr;
  if (faults.fail_alloc_after >= 0 && stats.handles_allocated.load() >= faults.fail_alloc_after)
    return nullptr;
  auto* b = static_cast<HandleBlock*>(std::malloc(sizeof(HandleBlock) + size));
  if (!b) return nullptr;
  b->data = b + 1;
  b->size = size;
  b->magic = kHandleMagic;
  b->owner = this;
  std::memset(b->data, 0, size);
  stats.handles_allocated.fetch_add(1);
  stats.live_handles.fetch_add(1);
  return &b->data;
}

namespace {
struct SuiteEntry {
  const char* name;
  int32_t version;
};
constexpr SuiteEntry kKnownSuites[] = {
    {kPixelFormatSuiteName, kPixelFormatSuiteVersion},
    {kParamUtilsSuiteName, kParamUtilsSuiteVersion},
    {kRPixSuiteName, kRPixSuiteVersion},
    {kRPixCacheSuiteName, kRPixCacheSuiteVersion},
    {kRPixCreatorSuiteName, kRPixCreatorSuiteVersion},
    {kVideoSegmentSuiteName, kVideoSegmentSuiteVersion},
    {kDrawbotDrawSuiteName, kDrawbotDrawSuiteVersion},
    {kDrawbotSupplierSuiteName, kDrawbotSupplierSuiteVersion},
    {kDrawbotPathSuiteName, kDrawbotPathSuiteVersion},
    {kDrawbotPathSuiteName, kDrawbotPathSuiteVersion2},
    {kDrawbotSurfaceSuiteName, kDrawbotSurfaceSuiteVersion},
};
bool Listed(const std::vector<std::string>& list, const char* name) {
  return std::find(list.begin(), list.end(), name) != list.end();
}
}  // namespace

VxStatus Host::Impl::Acquire(const char* name, int32_t version, const void** suite) {
  if (!suite) return kStatusBadCallbackParam;
  *suite = nullptr;
  if (!name) return kStatusBadCallbackParam;
  if (Listed(faults.missing_suites, name)) return kStatusBadCallbackParam;
  const void* table = nullptr;
  const std::string_view n(name);
  if (n == kPixelFormatSuiteName && version == kPixelFormatSuiteVersion) {
    table = PixelFormatTable();
  } else if (n == kParamUtilsSuiteName && version == kParamUtilsSuiteVersion) {
    table = ParamUtilsTable();
  } else if (n == kRPixSuiteName && version == kRPixSuiteVersion) {
    table = cache.pix_suite();
  } else if (n == kRPixCacheSuiteName && version == kRPixCacheSuiteVersion) {
    table = cache.cache_suite();
  } else if (n == kRPixCreatorSuiteName && version == kRPixCreatorSuiteVersion) {
    table = cache.creator_suite();
  } else if (n == kVideoSegmentSuiteName && version == kVideoSegmentSuiteVersion) {
    table = video_segment;
  } else if (n == kDrawbotDrawSuiteName && version == kDrawbotDrawSuiteVersion) {
    table = DrawTable();
  } else if (n == kDrawbotSupplierSuiteName && version == kDrawbotSupplierSuiteVersion) {
    table = SupplierTable();
  } else if (n == kDrawbotPathSuiteName && version == kDrawbotPathSuiteVersion) {
    table = PathTable();
  } else if (n == kDrawbotPathSuiteName && version == kDrawbotPathSuiteVersion2) {
    table = PathTable2();
  } else if (n == kDrawbotSurfaceSuiteName && version == kDrawbotSurfaceSuiteVersion) {
    table = SurfaceTable();
  } else {
    return kStatusBadCallbackParam;
  }
  stats.suites_acquired.fetch_add(1);
  if (Listed(faults.null_suites, name)) return kStatusOk;
  *suite = table;
  return kStatusOk;
}

VxStatus Host::Impl::Release(const char* name, int32_t version) {
  if (!name) return kStatusBadCallbackParam;
  for (const SuiteEntry& s : kKnownSuites) {
    if (version == s.version && std::strcmp(name, s.name) == 0) {
      stats.suites_released.fetch_add(1);
      return kStatusOk;
    }
  }
  return kStatusBadCallbackParam;
}

// ---- Host -----------------------------------------------------------------------------------

Host::Host(uint64_t cache_budget_bytes) : impl_(std::make_unique<Impl>(cache_budget_bytes)) {}
Host::~Host() = default;

std::unique_ptr<Module> Host::Load(const std::string& path, std::string* error) {
  auto fail = [&](const std::string& text) -> std::unique_ptr<Module> {
    if (error) *error = text;
    return nullptr;
  };
  if (path.empty()) return fail("no module path given");
  dlerror();
  void* lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!lib) {
    const char* why = dlerror();
    return fail("cannot load module " + path + ": " + (why ? why : "unknown error"));
  }
  auto main = reinterpret_cast<EffectMainFunc>(dlsym(lib, kEffectMainName));
  if (!main) {
    dlclose(lib);
    return fail("module " + path + " does not export " + kEffectMainName);
  }
  auto impl = std::make_unique<Module::Impl>();
  impl->host = impl_.get();
  impl->host_public = this;
  impl->library = lib;
  impl->path = path;
  impl->main = main;
  impl->gpu = reinterpret_cast<GPUFilterEntryFunc>(dlsym(lib, kGPUFilterEntryName));
  impl->ref.module = impl.get();
  return std::unique_ptr<Module>(new Module(std::move(impl)));
}

FrameCache& Host::cache() {
  return impl_->cache;
}
Faults& Host::faults() {
  return impl_->faults;
}
HostStats& Host::stats() {
  return impl_->stats;
}
const SuiteServices* Host::suite_services() const {
  return impl_->suites;
}
const UtilCallbacks* Host::utils() const {
  return impl_->utils;
}
const GPUSuiteAccessor* Host::gpu_suites() const {
  return impl_->gpu_suites;
}
ViewerTransform& Host::viewer() {
  return impl_->viewer.transform;
}

std::string DrawnPathsToSvg(const std::vector<DrawnPath>& paths) {
  std::string svg;
  char buf[160];
  auto channel = [](float v) { return int(std::lround(std::clamp(v, 0.0f, 1.0f) * 255)); };
  for (const DrawnPath& p : paths) {
    std::string d;
    for (const PathOp& op : p.ops) {
      switch (op.kind) {
        case PathOp::kMove:
          std::snprintf(buf, sizeof buf, "M%.2f %.2f ", op.x, op.y);
          break;
        case PathOp::kLine:
          std::snprintf(buf, sizeof buf, "L%.2f %.2f ", op.x, op.y);
          break;
        case PathOp::kRect:
          std::snprintf(buf, sizeof buf, "M%.2f %.2f h%.2f v%.2f h%.2f Z ", op.x, op.y, op.width,
                        op.height, -op.width);
          break;
        case PathOp::kClose:
          std::snprintf(buf, sizeof buf, "Z ");
          break;
        case PathOp::kCurve:
          std::snprintf(buf, sizeof buf, "C%.2f %.2f %.2f %.2f %.2f %.2f ", op.x1, op.y1, op.x2,
                        op.y2, op.x, op.y);
          break;
      }
      d += buf;
    }
    if (!d.empty()) d.pop_back();
    const DrawbotColor& c = p.color;
    std::snprintf(buf, sizeof buf, "rgb(%d,%d,%d)\" %s-opacity=\"%.3f\"", channel(c.red),
                  channel(c.green), channel(c.blue), p.fill ? "fill" : "stroke",
                  std::clamp(c.alpha, 0.0f, 1.0f));
    svg += "<path d=\"" + d + "\" ";
    if (p.fill) {
      svg += "fill=\"" + std::string(buf) + " stroke=\"none\"/>\n";
    } else {
      char width[48];
      std::snprintf(width, sizeof width, "%.2f", p.line_width);
      svg += "fill=\"none\" stroke-width=\"" + std::string(width) + "\" stroke=\"" +
             std::string(buf) + "/>\n";
    }
  }
  return svg;
}

std::vector<DrawnPath> Host::drawn_paths() const {
  std::lock_guard lock(impl_->draw_mutex);
  return impl_->drawn;
}

void Host::ClearDrawing() {
  std::lock_guard lock(impl_->draw_mutex);
  impl_->drawn.clear();
}

std::string DefaultModulePath() {
  if (const char* env = std::getenv("VETEXT_MODULE"); env && *env) return env;
    // The build tree's module while it is there; once installed, the one installed beside the
    // running program (<prefix>/bin/vetext finds <prefix>/<libdir>/vetext/VEText.so), else the one
    // under the prefix the build was configured for.
#ifdef VETEXT_DEFAULT_MODULE
  if (access(VETEXT_DEFAULT_MODULE, F_OK) == 0) return VETEXT_DEFAULT_MODULE;
#endif
#ifdef VETEXT_INSTALLED_MODULE
  char exe[4096];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n > 0) {
    std::string dir(exe, size_t(n));
    dir.erase(dir.find_last_of('/') == std::string::npos ? 0 : dir.find_last_of('/'));
    const std::string beside = dir + "/../" VETEXT_INSTALL_LIBDIR "/vetext/VEText.so";
    if (access(beside.c_str(), F_OK) == 0) return beside;
  }
  return VETEXT_INSTALLED_MODULE;
#else
  return "VEText.so";
#endif
}

// ---- Frame ----------------------------------------------------------------------------------

Frame::Frame(int32_t width, int32_t height, uint32_t pixel_format, bool bottom_up) {
  width = std::max(width, 0);
  height = std::max(height, 0);
  bpp_ = BytesPerPixel(pixel_format);
  const int64_t stride = int64_t(width) * bpp_;
  if (stride > INT32_MAX) throw std::length_error("frame too wide");
  storage_.assign(size_t(stride) * size_t(height), 0);
  layer_.width = width;
  layer_.height = height;
  layer_.pixel_format = pixel_format;
  layer_.extent_hint = VxRect{0, 0, width, height};
  layer_.pixel_aspect = VxRational{1, 1};
  if (storage_.empty()) {
    layer_.data = nullptr;
    layer_.row_bytes = int32_t(bottom_up ? -stride : stride);
  } else if (bottom_up) {
    layer_.data = storage_.data() + size_t(stride) * size_t(height - 1);
    layer_.row_bytes = -int32_t(stride);
  } else {
    layer_.data = storage_.data();
    layer_.row_bytes = int32_t(stride);
  }
}

Frame Frame::View(void* top_row, int32_t width, int32_t height, int32_t row_bytes,
                  uint32_t pixel_format) {
  Frame f(0, 0, pixel_format);
  f.layer_.width = std::max(width, 0);
  f.layer_.height = std::max(height, 0);
  f.layer_.extent_hint = VxRect{0, 0, f.layer_.width, f.layer_.height};
  f.layer_.data = top_row;
  f.layer_.row_bytes = row_bytes;
  return f;
}

Frame::Frame(const Frame& other) : layer_(other.layer_), bpp_(other.bpp_) {
  if (!other.layer_.data) return;
  // Rows are copied in visual order into storage laid out the way the source is (bottom-up
  // or top-down), whether the source owns its pixels or views a caller's.
  const size_t row_len = size_t(layer_.width) * size_t(bpp_);
  storage_.resize(row_len * size_t(layer_.height));
  const bool up = other.bottom_up();
  layer_.row_bytes = int32_t(up ? -int64_t(row_len) : int64_t(row_len));
  layer_.data = up ? storage_.data() + row_len * size_t(layer_.height - 1) : storage_.data();
  for (int32_t y = 0; y < layer_.height; ++y) std::memcpy(row(y), other.row(y), row_len);
}

Frame& Frame::operator=(const Frame& other) {
  if (this != &other) {
    Frame copy(other);
    storage_.swap(copy.storage_);
    layer_ = copy.layer_;
    bpp_ = copy.bpp_;
  }
  return *this;
}

void Frame::Fill(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3) {
  const uint8_t pattern[4] = {b0, b1, b2, b3};
  const size_t row_len = size_t(layer_.width) * size_t(bpp_);
  for (int32_t y = 0; y < layer_.height; ++y) {
    uint8_t* r = row(y);
    for (size_t i = 0; i < row_len; ++i) r[i] = pattern[i % 4];
  }
}

}  // namespace vxhost
