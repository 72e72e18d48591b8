// The GPU path's layout: read from the Source Text parameter at the clip time, laid out once per
// distinct document into the layout cache (the entry the CPU render uses for the same bytes),
// and always read back from the entry's serialized form, so that every caller sees the same
// records whichever thread composed them.
//
// A frame asks for the layout three times (dependencies, each record's precompute, the draw),
// and every frame of an unchanged document asks again. Parsing the layout text each time would
// cost a good part of a composition for a long text, so the parse of each entry is kept beside
// it: shared, read-only, and dropped once the host's cache no longer holds the entry (checked
// on every use of the key, and for all kept parses when there are more than kKeptParses).
#include <cmath>
#include <limits>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "document/layout_cache.h"
#include "document/layout_json.h"
#include "engine/kte.h"
#include "gpu/filter.h"
#include "gpu/ksl.h"
#include "vetext/memory.h"
#include "vetext/vxcore.h"

namespace vetext {
namespace {

constexpr size_t kKeptParses = 64;

class KeptParses {
 public:
  std::shared_ptr<const LayoutRecord> Find(const std::string& key) {
    std::lock_guard lock(mutex_);
    auto it = parses_.find(key);
    return it == parses_.end() ? nullptr : it->second;
  }
  void Drop(const std::string& key) {
    std::lock_guard lock(mutex_);
    parses_.erase(key);
  }
  // Keeps `layout` under `key`; beyond kKeptParses first drops the parses whose entries the
  // host has let go (`held` says whether it still has a key).
  template <typename Held>
  void Keep(const std::string& key, std::shared_ptr<const LayoutRecord> layout, Held&& held) {
    std::lock_guard lock(mutex_);
    if (parses_.size() >= kKeptParses) {
      for (auto it = parses_.begin(); it != parses_.end();)
        it = held(it->first) ? std::next(it) : parses_.erase(it);
      if (parses_.size() >= kKeptParses) parses_.clear();  // all held: start over
    }
    parses_[key] = std::move(layout);
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, std::shared_ptr<const LayoutRecord>> parses_;
};

KeptParses& Parses() {
  static KeptParses* parses = new KeptParses;  // outlives every instance, never destroyed
  return *parses;
}

// One reference to a host buffer, disposed when it goes.
class Ref {
 public:
  explicit Ref(const RPixSuite1* pix) : pix_(pix) {}
  ~Ref() {
    if (h_ != nullptr) pix_->dispose(h_);
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  RPixHandle* slot() { return &h_; }
  RPixHandle get() const { return h_; }

 private:
  const RPixSuite1* pix_;
  RPixHandle h_ = nullptr;
};

bool Lookup(const RPixCacheSuite6* cache, const char* key, Ref* found) {
  return cache->lookup(key, found->slot()) >= 0 && found->get() != nullptr;
}

// A value as the CPU render receives it: on the host's 16.16 grid, then single precision.
float OnFixedGrid(double v) {
  const double f = std::round(v * 65536.0);
  if (!(f > double(std::numeric_limits<int32_t>::min()) &&
        f < double(std::numeric_limits<int32_t>::max())))
    return float(v);
  return FixedToFloat(VxFixed(f));
}

}  // namespace

int32_t VEFilterTextGPU::GetLayoutRecords(const GPURenderParams* params,
                                          std::shared_ptr<const LayoutRecord>* out) {
  if (params == nullptr || out == nullptr) return kErrGeneric;
  const VideoSegmentSuite6* segment = KSL::Checked(video_segment_suite_);
  SegmentParamValue v{};
  const int32_t st =
      segment->get_param(node_id_, GpuParamIndex(kParamSourceText), params->clip_time, &v);
  if (v.handle == nullptr) return kErrGeneric;
  // The host's copy goes back at once: the key and the composition work on our own.
  std::vector<uint8_t> block(static_cast<const uint8_t*>(v.handle),
                             static_cast<const uint8_t*>(v.handle) + RxGetPtrSize(v.handle));
  RxDisposePtr(v.handle);
  if (st < 0 || v.type != kSegParamHandle || block.empty()) return kErrGeneric;

  const RPixSuite1* pix = KSL::Checked(pix_suite_);
  const RPixCacheSuite6* cache = KSL::Checked(cache_suite_);
  const RPixCreatorSuite3* creator = KSL::Checked(creator_suite_);
  char key[37];
  MakeLayoutKey(block.data(), block.size(), key);

  Ref found(pix);
  if (!Lookup(cache, key, &found)) {
    Parses().Drop(key);  // the host let the entry go (or never had it): so does the parse
    // Double-checked under the composition mutex, so one document is laid out once however
    // many threads ask at the same moment.
    struct CompositionLock {
      CompositionLock() { LockCompositionMutex(); }
      ~CompositionLock() { UnlockCompositionMutex(); }
    } lock;
    if (!Lookup(cache, key, &found)) {
      KTE::DocumentPtr doc = KTE::MakeDocument(block.data(), block.size());
      LayoutRecord composed;
      KTE::Compose(*doc, composed);
      if (!AddLayoutEntry(pix, creator, cache, key, LayoutToText(composed), found.slot()))
        return kErrCacheBuild;
    }
  }
  if (std::shared_ptr<const LayoutRecord> kept = Parses().Find(key)) {
    *out = std::move(kept);
    return kGPUOk;
  }
  auto layout = std::make_shared<LayoutRecord>();
  if (!ReadLayoutEntry(pix, found.get(), *layout)) return kErrCacheBuild;
  Parses().Keep(key, layout, [&](const std::string& k) {
    Ref held(pix);
    return Lookup(cache, k.c_str(), &held);
  });
  *out = std::move(layout);
  return kGPUOk;
}

bool VEFilterTextGPU::ReadTransformAt(int64_t clip_time, TransformValues* t) const {
  const VideoSegmentSuite6* segment = KSL::Checked(video_segment_suite_);
  SegmentParamValue v[kParamCount] = {};
  for (int32_t i = kParamPosition; i <= kParamAnchorPoint; ++i) {
    if (segment->get_param(node_id_, GpuParamIndex(ParamIndex(i)), clip_time, &v[i]) < 0)
      return false;
    if (v[i].handle != nullptr) RxDisposePtr(v[i].handle);  // not ours to keep
  }
  // The same arithmetic as ReadTransform on the CPU render's records.
  t->position_x = OnFixedGrid(v[kParamPosition].x);
  t->position_y = OnFixedGrid(v[kParamPosition].y);
  t->scale_y = float(double(OnFixedGrid(v[kParamScale].value)) / 100.0);
  t->scale_x = v[kParamUniformScale].flag != 0
                   ? t->scale_y
                   : float(double(OnFixedGrid(v[kParamHorizontalScale].value)) / 100.0);
  t->rotation = OnFixedGrid(v[kParamRotation].value);
  t->opacity = OnFixedGrid(v[kParamOpacity].value) / 100.0f;
  t->anchor_x = OnFixedGrid(v[kParamAnchorPoint].x);
  t->anchor_y = OnFixedGrid(v[kParamAnchorPoint].y);
  return true;
}

}  // namespace vetext
