// The GPU path's layout: read from the Source Text parameter at the clip time, laid out once per
// distinct document into the layout cache (the entry the CPU render uses for the same bytes),
// and always read back from the entry's serialized form, so that every caller sees the same
// records whichever thread composed them.
//
// A frame asks for the layout three times (dependencies, each record's precompute, the draw),
// and every frame of an unchanged document asks again: the entry's parse is kept beside it
// (KeptLayout), so an unchanged document costs a key and a lookup, not a parse.
#include <cmath>
#include <limits>
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
  std::shared_ptr<const LayoutRecord> layout = KeptLayout(pix, cache, key, found.get());
  if (!layout) return kErrCacheBuild;
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
