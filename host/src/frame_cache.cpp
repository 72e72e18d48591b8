// The frame cache behind the RPix suites.
//
// Entries are reference-counted: the cache holds one reference while an entry is in its map,
// and every handle the suites hand out is one more. Eviction only drops the cache's reference,
// so a buffer that a caller is still reading stays valid until that caller disposes it. One
// mutex guards the map and the LRU list; reference counts are atomic so that dispose of a
// buffer still in the cache takes no lock.
#include <array>
#include <list>
#include <new>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host_impl.h"

namespace vxhost {

namespace {
constexpr uint64_t kEntryMagic = 0x7678726978656e74ull;
constexpr uint64_t kMaxBufferBytes = uint64_t(1) << 34;
// Large entries kept while nobody has asked for them yet: enough for every layer of a frame
// (and a frame or two of look-ahead) to find its entries on the next frame.
constexpr size_t kProbationEntries = 32;
}  // namespace

struct CacheEntry {
  uint64_t magic = kEntryMagic;
  std::atomic<int64_t> refs{1};
  int32_t kind = 0;
  uint32_t format = 0;
  int32_t width = 0, height = 0;
  int32_t row_bytes = 0;
  int32_t par_num = 1, par_den = 1;
  std::vector<uint8_t> bytes;
  // Position in the LRU list while the entry is in the cache.
  bool cached = false;
  std::list<std::pair<std::string, CacheEntry*>>::iterator lru;
  // Position in the probation list while the entry is large and has not been looked up since
  // it was added.
  bool on_probation = false;
  std::list<CacheEntry*>::iterator probation;
};

namespace {

// Large buffers of entries that died, kept for the next entries of about the same size. An
// effect that makes a few entries a frame (a text that changes every frame) would otherwise
// get fresh pages from the system each time and pay a page fault per page to touch them.
class BufferPool {
 public:
  static constexpr size_t kMinBytes = size_t(1) << 16;  // smaller ones are cheap to allocate
  static constexpr size_t kMaxBuffers = 16;
  static constexpr size_t kMaxPooledBytes = size_t(1) << 26;

  // A buffer of `size` zero bytes, recycled when one of a fitting capacity is at hand.
  std::vector<uint8_t> Take(size_t size) {
    std::vector<uint8_t> out;
    if (size >= kMinBytes) {
      std::lock_guard lock(mutex_);
      for (size_t i = 0; i < free_.size(); ++i) {
        const size_t cap = free_[i].capacity();
        if (cap >= size && cap / 2 <= size) {
          out.swap(free_[i]);
          free_.erase(free_.begin() + ptrdiff_t(i));
          pooled_ -= cap;
          break;
        }
      }
    }
    out.assign(size, 0);  // within the capacity of a recycled buffer: no allocation
    return out;
  }
  void Give(std::vector<uint8_t>&& bytes) {
    const size_t cap = bytes.capacity();
    if (cap < kMinBytes || cap > kMaxPooledBytes) return;
    std::vector<uint8_t> drop;  // freed outside the lock
    std::lock_guard lock(mutex_);
    if (free_.size() == kMaxBuffers || pooled_ + cap > kMaxPooledBytes) {
      if (free_.empty()) return;
      pooled_ -= free_.front().capacity();
      drop.swap(free_.front());
      free_.erase(free_.begin());  // the oldest goes
    }
    pooled_ += cap;
    free_.push_back(std::move(bytes));
  }

 private:
  std::mutex mutex_;
  std::vector<std::vector<uint8_t>> free_;
  size_t pooled_ = 0;
};

BufferPool& Pool() {
  static BufferPool* pool = new BufferPool;  // outlives every entry, also at exit
  return *pool;
}

CacheEntry* EntryOf(RPixHandle h) {
  auto* e = reinterpret_cast<CacheEntry*>(h);
  if (!e || e->magic != kEntryMagic) return nullptr;
  return e;
}
void Unref(CacheEntry* e) {
  if (e->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    e->magic = 0;
    Pool().Give(std::move(e->bytes));
    delete e;
  }
}
}  // namespace

struct FrameCache::Impl {
  size_t slot = 0;
  mutable std::mutex mutex;
  uint64_t budget;
  // Most recently used first.
  std::list<std::pair<std::string, CacheEntry*>> lru;
  std::unordered_map<std::string, CacheEntry*> map;
  CacheStats stats;

  // Large entries that have not been looked up since they were added, newest first. A text
  // that changes every frame adds one such entry a frame that no later frame asks for; left to
  // the budget they would pile up in fresh memory (a page fault per page to fill each) until the
  // budget is reached. Only the newest few are kept on trust, the older ones go, and their
  // buffers serve the next entries. An entry that is looked up once is a normal entry from then
  // on, so an unchanged document, whose next frame finds its entries, never loses them here.
  std::list<CacheEntry*> probation;

  explicit Impl(uint64_t b) : budget(b) {}

  void LeaveProbationLocked(CacheEntry* e) {
    if (!e->on_probation) return;
    probation.erase(e->probation);
    e->on_probation = false;
  }

  // Caller holds the mutex. Takes `it` out of the cache; returns the next LRU position.
  std::list<std::pair<std::string, CacheEntry*>>::iterator DropLocked(
      std::list<std::pair<std::string, CacheEntry*>>::iterator it) {
    CacheEntry* e = it->second;
    map.erase(it->first);
    stats.bytes -= e->bytes.size();
    stats.entries--;
    stats.evictions++;
    e->cached = false;
    LeaveProbationLocked(e);
    it = lru.erase(it);
    Unref(e);
    return it;
  }

  // Caller holds the mutex. Drops least recently used entries beyond the budget, never `keep`.
  void EvictLocked(const CacheEntry* keep) {
    auto it = lru.end();
    while (stats.bytes > budget && it != lru.begin()) {
      --it;
      if (it->second == keep) continue;
      it = DropLocked(it);
    }
  }

  // Caller holds the mutex. Drops the oldest entries on probation beyond the allowance.
  void TrimProbationLocked() {
    while (probation.size() > kProbationEntries) {
      DropLocked(probation.back()->lru);
    }
  }

  int32_t Lookup(const char* key, RPixHandle* out) {
    if (!out) return -1;
    *out = nullptr;
    if (!key) return -1;
    std::lock_guard lock(mutex);
    auto found = map.find(key);
    if (found == map.end()) {
      stats.misses++;
      return 0;
    }
    CacheEntry* e = found->second;
    lru.splice(lru.begin(), lru, e->lru);
    LeaveProbationLocked(e);
    e->refs.fetch_add(1, std::memory_order_relaxed);
    stats.hits++;
    *out = reinterpret_cast<RPixHandle>(e);
    return 0;
  }

  int32_t Add(const char* key, RPixHandle h) {
    CacheEntry* e = EntryOf(h);
    if (!key || !e) return -1;
    std::lock_guard lock(mutex);
    if (map.count(key)) return 0;  // the earlier entry stays
    if (e->cached) return -1;      // one buffer lives under one key
    e->refs.fetch_add(1, std::memory_order_relaxed);
    lru.emplace_front(key, e);
    e->lru = lru.begin();
    e->cached = true;
    map.emplace(key, e);
    stats.adds++;
    stats.entries++;
    stats.bytes += e->bytes.size();
    if (e->bytes.size() >= BufferPool::kMinBytes) {
      probation.push_front(e);
      e->probation = probation.begin();
      e->on_probation = true;
      TrimProbationLocked();
    }
    EvictLocked(e);
    return 0;
  }

  void ClearLocked() {
    for (auto& [key, e] : lru) {
      e->cached = false;
      e->on_probation = false;
      Unref(e);
    }
    lru.clear();
    probation.clear();
    map.clear();
    stats.bytes = 0;
    stats.entries = 0;
  }
};

namespace {

std::array<std::atomic<FrameCache::Impl*>, kMaxCaches> g_caches{};
std::atomic<int64_t> g_fail_every{0}, g_creations{0}, g_failed_creations{0};

int32_t Create(RPixHandle* out, int32_t kind, uint32_t pixel_format, int32_t width, int32_t height,
               int32_t par_num, int32_t par_den, uint64_t byte_size) {
  if (!out) return -1;
  *out = nullptr;
  if (width <= 0 || height <= 0 || par_den == 0) return -1;
  if (const int64_t n = g_fail_every.load(std::memory_order_relaxed);
      n > 0 && g_creations.fetch_add(1, std::memory_order_relaxed) % n == n - 1) {
    g_failed_creations.fetch_add(1, std::memory_order_relaxed);
    return -1;
  }
  uint64_t size;
  int32_t row_bytes;
  if (kind == kRPixKindRaw) {
    if (byte_size > kMaxBufferBytes || byte_size > INT32_MAX) return -1;
    size = byte_size;
    row_bytes = static_cast<int32_t>(byte_size);
  } else {
    if (uint64_t(width) * 4 > INT32_MAX) return -1;
    row_bytes = width * 4;
    size = uint64_t(row_bytes) * uint64_t(height);
    if (size > kMaxBufferBytes) return -1;
  }
  auto* e = new (std::nothrow) CacheEntry;
  if (!e) return -1;
  try {
    e->bytes = Pool().Take(size_t(size));
  } catch (const std::bad_alloc&) {
    delete e;
    return -1;
  }
  e->kind = kind;
  e->format = pixel_format;
  e->width = width;
  e->height = height;
  e->row_bytes = row_bytes;
  e->par_num = par_num;
  e->par_den = par_den;
  *out = reinterpret_cast<RPixHandle>(e);
  return 0;
}

template <size_t I>
struct CacheSlot {
  static int32_t Lookup(const char* key, RPixHandle* out) {
    FrameCache::Impl* c = g_caches[I].load(std::memory_order_acquire);
    if (!c) {
      if (out) *out = nullptr;
      return -1;
    }
    return c->Lookup(key, out);
  }
  static int32_t Add(const char* key, RPixHandle h) {
    FrameCache::Impl* c = g_caches[I].load(std::memory_order_acquire);
    return c ? c->Add(key, h) : -1;
  }
  static constexpr RPixCacheSuite6 kCache{&Lookup, &Add};
};

template <size_t... I>
constexpr std::array<RPixCacheSuite6, sizeof...(I)> MakeCacheTables(std::index_sequence<I...>) {
  return {CacheSlot<I>::kCache...};
}
constexpr auto kCacheTables = MakeCacheTables(std::make_index_sequence<kMaxCaches>{});
constexpr RPixCreatorSuite3 kCreator{&Create};

int32_t PixDispose(RPixHandle h) {
  CacheEntry* e = EntryOf(h);
  if (!e) return -1;
  Unref(e);
  return 0;
}
int32_t PixGetPixels(RPixHandle h, int32_t, void** pixels) {
  CacheEntry* e = EntryOf(h);
  if (!pixels) return -1;
  *pixels = nullptr;
  if (!e) return -1;
  *pixels = e->bytes.data();
  return 0;
}
int32_t PixGetBounds(RPixHandle h, VxRect* bounds) {
  CacheEntry* e = EntryOf(h);
  if (!e || !bounds) return -1;
  *bounds = VxRect{0, 0, e->width, e->height};
  return 0;
}
int32_t PixGetRowBytes(RPixHandle h, int32_t* row_bytes) {
  CacheEntry* e = EntryOf(h);
  if (!e || !row_bytes) return -1;
  *row_bytes = e->row_bytes;
  return 0;
}
int32_t PixGetAspect(RPixHandle h, int32_t* num, int32_t* den) {
  CacheEntry* e = EntryOf(h);
  if (!e || !num || !den) return -1;
  *num = e->par_num;
  *den = e->par_den;
  return 0;
}
int32_t PixGetFormat(RPixHandle h, uint32_t* pixel_format) {
  CacheEntry* e = EntryOf(h);
  if (!e || !pixel_format) return -1;
  *pixel_format = e->format;
  return 0;
}
constexpr RPixSuite1 kPix{&PixDispose,     &PixGetPixels, &PixGetBounds,
                          &PixGetRowBytes, &PixGetAspect, &PixGetFormat};

std::mutex g_slot_mutex;

}  // namespace

FrameCache::FrameCache(uint64_t budget_bytes) : impl_(std::make_unique<Impl>(budget_bytes)) {
  std::lock_guard lock(g_slot_mutex);
  for (size_t i = 0; i < kMaxCaches; ++i) {
    if (!g_caches[i].load()) {
      impl_->slot = i;
      g_caches[i].store(impl_.get(), std::memory_order_release);
      return;
    }
  }
  throw std::runtime_error("too many frame caches in one process");
}

FrameCache::~FrameCache() {
  {
    std::lock_guard lock(g_slot_mutex);
    g_caches[impl_->slot].store(nullptr, std::memory_order_release);
  }
  std::lock_guard lock(impl_->mutex);
  impl_->ClearLocked();
}

void FrameCache::FailEveryNthCreation(int64_t n) {
  g_fail_every.store(n, std::memory_order_relaxed);
}

int64_t FrameCache::FailedCreations() {
  return g_failed_creations.load(std::memory_order_relaxed);
}

void FrameCache::SetBudget(uint64_t bytes) {
  std::lock_guard lock(impl_->mutex);
  impl_->budget = bytes;
  impl_->EvictLocked(nullptr);
}

void FrameCache::Clear() {
  std::lock_guard lock(impl_->mutex);
  impl_->ClearLocked();
}

CacheStats FrameCache::Stats() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->stats;
}

const RPixSuite1* FrameCache::pix_suite() const {
  return &kPix;
}
const RPixCacheSuite6* FrameCache::cache_suite() const {
  return &kCacheTables[impl_->slot];
}
const RPixCreatorSuite3* FrameCache::creator_suite() const {
  return &kCreator;
}

}  // namespace vxhost
