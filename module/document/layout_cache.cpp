// The layout cache. A composed layout is kept as layout text in a raw buffer of the host's frame
// cache, under a key made from the document block alone, so that every instance, thread and
// consumer with the same bytes shares one composition. Lookups take no lock; composition is
// double-checked under one process-wide recursive mutex (a thread holding it may come back in
// through the engine).
#include "document/layout_cache.h"

#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "document/layout_json.h"
#include "effect/suites.h"
#include "engine/kte.h"
#include "params/params.h"
#include "vetext/suites.h"
#include "vetext/vxcore.h"

namespace vetext {
namespace {

constexpr char kKeySalt[] = "KTEDocument";
constexpr size_t kKeySaltLength = sizeof(kKeySalt) - 1;

// Constructed at load, destroyed at unload.
vxcore::RecursiveMutex g_composition_mutex;

// The three suites of one request, released on every path out.
class CacheSuites {
 public:
  explicit CacheSuites(InputRecord* in) : in_(in) {
    // No message on failure: a missing suite means no layout, not an error for the user.
    ok_ = Take(kRPixCacheSuiteName, kRPixCacheSuiteVersion, &cache_) &&
          Take(kRPixCreatorSuiteName, kRPixCreatorSuiteVersion, &creator_) &&
          Take(kRPixSuiteName, kRPixSuiteVersion, &pix_);
  }
  ~CacheSuites() {
    for (auto it = held_.rbegin(); it != held_.rend(); ++it)
      ReleaseSuite(in_, nullptr, it->first, it->second, nullptr);
  }
  CacheSuites(const CacheSuites&) = delete;
  CacheSuites& operator=(const CacheSuites&) = delete;

  bool ok() const { return ok_; }
  const RPixCacheSuite6* cache() const { return cache_; }
  const RPixCreatorSuite3* creator() const { return creator_; }
  const RPixSuite1* pix() const { return pix_; }

 private:
  template <typename T>
  bool Take(const char* name, int32_t version, const T** table) {
    const void* suite = nullptr;
    if (AcquireSuite(in_, nullptr, name, version, nullptr, &suite) != kStatusOk) return false;
    held_.emplace_back(name, version);
    *table = static_cast<const T*>(suite);
    return suite != nullptr;
  }

  InputRecord* in_;
  bool ok_ = false;
  std::vector<std::pair<const char*, int32_t>> held_;
  const RPixCacheSuite6* cache_ = nullptr;
  const RPixCreatorSuite3* creator_ = nullptr;
  const RPixSuite1* pix_ = nullptr;
};

// One reference to a host buffer, disposed when it goes.
class PixRef {
 public:
  explicit PixRef(const RPixSuite1* pix) : pix_(pix) {}
  ~PixRef() { reset(); }
  PixRef(const PixRef&) = delete;
  PixRef& operator=(const PixRef&) = delete;
  RPixHandle* slot() { return &h_; }
  RPixHandle get() const { return h_; }
  void reset() {
    if (h_ != nullptr) pix_->dispose(h_);
    h_ = nullptr;
  }

 private:
  const RPixSuite1* pix_;
  RPixHandle h_ = nullptr;
};

// The parses of the entries, kept beside them: read-only, shared by every caller, and dropped
// once the host's cache no longer holds their entry (checked for all of them when there are
// more than kKeptParses, and for one whenever its key misses).
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
  void Keep(const std::string& key, std::shared_ptr<const LayoutRecord> layout,
            const RPixSuite1* pix, const RPixCacheSuite6* cache) {
    std::lock_guard lock(mutex_);
    if (parses_.size() >= kKeptParses) {
      for (auto it = parses_.begin(); it != parses_.end();) {
        RPixHandle h = nullptr;
        const bool held = cache->lookup(it->first.c_str(), &h) >= 0 && h != nullptr;
        if (h != nullptr) pix->dispose(h);
        it = held ? std::next(it) : parses_.erase(it);
      }
      if (parses_.size() >= kKeptParses) parses_.clear();  // all held: start over
    }
    parses_[key] = std::move(layout);
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, std::shared_ptr<const LayoutRecord>> parses_;
};

KeptParses& Parses() {
  static KeptParses* parses = new KeptParses;  // outlives every caller, never destroyed
  return *parses;
}

bool AddEntry(const CacheSuites& s, const char* key, const std::u16string& text) {
  return AddLayoutEntry(s.pix(), s.creator(), s.cache(), key, text, nullptr);
}

}  // namespace

std::shared_ptr<const LayoutRecord> KeptLayout(const RPixSuite1* pix, const RPixCacheSuite6* cache,
                                               const char* key, RPixHandle h) {
  if (std::shared_ptr<const LayoutRecord> kept = Parses().Find(key)) return kept;
  auto layout = std::make_shared<LayoutRecord>();
  if (!ReadLayoutEntry(pix, h, *layout)) return nullptr;
  Parses().Keep(key, layout, pix, cache);
  return layout;
}

bool ReadLayoutEntry(const RPixSuite1* pix, RPixHandle h, LayoutRecord& out) {
  uint32_t format = 0;
  if (pix->get_pixel_format(h, &format) < 0 || format != kPixelFormatRaw) return false;
  void* pixels = nullptr;
  if (pix->get_pixels(h, kRPixAccessRead, &pixels) < 0 || pixels == nullptr) return false;
  // A raw buffer is one row of its byte size: the count is never trusted beyond it.
  int32_t row_bytes = 0;
  if (pix->get_row_bytes(h, &row_bytes) < 0 || row_bytes < int32_t(sizeof(uint64_t))) return false;
  uint64_t count = 0;
  std::memcpy(&count, pixels, sizeof count);
  if (count > uint64_t(row_bytes) - sizeof count) return false;
  const uint8_t* start = static_cast<const uint8_t*>(pixels) + sizeof count;
  // The reference held keeps the buffer alive: read the text where it lies when it is aligned
  // for UTF-16 (a hit on a long text then copies nothing).
  if (reinterpret_cast<uintptr_t>(start) % alignof(char16_t) == 0) {
    TextToLayout(reinterpret_cast<const char16_t*>(start), size_t(count / 2), out);
    return true;
  }
  std::u16string text(size_t(count / 2), u'\0');
  std::memcpy(text.data(), start, text.size() * 2);
  TextToLayout(text.data(), text.size(), out);
  return true;
}

bool AddLayoutEntry(const RPixSuite1* pix, const RPixCreatorSuite3* creator,
                    const RPixCacheSuite6* cache, const char* key, const std::u16string& text,
                    RPixHandle* created_out) {
  const uint64_t count = uint64_t(text.size()) * 2;
  PixRef created(pix);
  if (creator->create(created.slot(), kRPixKindRaw, kPixelFormatRaw, 1, 1, 1, 1,
                      count + sizeof count) < 0 ||
      created.get() == nullptr)
    return false;
  void* pixels = nullptr;
  if (pix->get_pixels(created.get(), kRPixAccessWrite, &pixels) < 0 || pixels == nullptr)
    return false;
  std::memcpy(pixels, &count, sizeof count);
  std::memcpy(static_cast<uint8_t*>(pixels) + sizeof count, text.data(), size_t(count));
  if (cache->add(key, created.get()) < 0) return false;
  if (created_out != nullptr) {
    *created_out = created.get();
    *created.slot() = nullptr;  // the caller's reference now
  }
  return true;
}

void FormatLayoutKey(const uint8_t hash[16], char key[37]) {
  // The first three groups are byte-reversed, the last two are not (the GUID text form), so
  // that keys match what earlier runs stored.
  static const int kOrder[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  static const char kDigits[] = "0123456789abcdef";
  char* p = key;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *p++ = '-';
    uint8_t b = hash[kOrder[i]];
    *p++ = kDigits[b >> 4];
    *p++ = kDigits[b & 15];
  }
  *p = '\0';
}

void MakeLayoutKey(const uint8_t* block, size_t size, char key[37]) {
  vxcore::MixHash hash;
  hash.MixInData(kKeySalt, kKeySaltLength);
  if (size > 0) hash.MixInData(block, size);
  uint8_t digest[16];
  hash.Finish(digest);
  FormatLayoutKey(digest, key);
}

void LockCompositionMutex() {
  g_composition_mutex.lock();
}
void UnlockCompositionMutex() {
  g_composition_mutex.unlock();
}

void BuildTextLayout(const uint8_t* block, size_t size, LayoutRecord& out, InputRecord* in,
                     OutputRecord* /*out_record*/) {
  CacheSuites suites(in);
  if (!suites.ok()) return;
  char key[37];
  MakeLayoutKey(block, size, key);

  PixRef found(suites.pix());
  if (suites.cache()->lookup(key, found.slot()) < 0) found.reset();
  if (found.get() == nullptr) {
    Parses().Drop(key);  // the host let the entry go (or never had it): so does its parse
    std::lock_guard<vxcore::RecursiveMutex> lock(g_composition_mutex);
    if (suites.cache()->lookup(key, found.slot()) < 0) found.reset();
    if (found.get() == nullptr) {
      KTE::DocumentPtr doc = KTE::MakeDocument(block, size);
      LayoutRecord composed;
      KTE::Compose(*doc, composed);
      // The layout text holds every field exactly (floats through shortest round-trip
      // doubles), so the composed record is the one a later hit reads back; the layout cache
      // tests hold the two side by side. The entry only saves later frames the composition:
      // when the host cannot take it (no memory for a buffer), this frame still gets its
      // layout, or it would draw nothing and the frame's cached geometry would say so.
      AddEntry(suites, key, LayoutToText(composed));
      out = std::move(composed);
      return;
    }
  }
  if (std::shared_ptr<const LayoutRecord> kept =
          KeptLayout(suites.pix(), suites.cache(), key, found.get()))
    out = *kept;
}

VxStatus GetLayoutFromParam(InputRecord* in, OutputRecord* out_record, ParamList* params,
                            LayoutRecord& out) {
  if (in == nullptr || in->utils == nullptr || params == nullptr || params->params == nullptr ||
      params->count <= kParamSourceText || params->params[kParamSourceText] == nullptr)
    return kStatusStructDamaged;
  VxHandle handle = params->params[kParamSourceText]->u.arb_d.value;
  if (handle == nullptr || *handle == nullptr) return kStatusStructDamaged;
  uint64_t size = in->utils->get_handle_size(handle);
  if (size == 0) return kStatusStructDamaged;
  std::vector<uint8_t> copy(static_cast<const uint8_t*>(*handle),
                            static_cast<const uint8_t*>(*handle) + size);
  BuildTextLayout(copy.data(), copy.size(), out, in, out_record);
  return kStatusOk;
}

VxStatus StoreLayoutForDocument(const KTE::Document& doc, VxHandle handle, InputRecord* in,
                                OutputRecord* /*out_record*/) {
  if (in == nullptr || in->utils == nullptr || in->utils->get_handle_size == nullptr ||
      handle == nullptr || *handle == nullptr)
    return kStatusStructDamaged;
  const uint64_t size = in->utils->get_handle_size(handle);
  if (size == 0) return kStatusStructDamaged;
  CacheSuites suites(in);
  if (!suites.ok()) return kStatusOk;
  // The handle is the host's: key a private copy, as the parameter path does.
  std::vector<uint8_t> copy(static_cast<const uint8_t*>(*handle),
                            static_cast<const uint8_t*>(*handle) + size);
  char key[37];
  MakeLayoutKey(copy.data(), copy.size(), key);
  // Looked up before composing: an editing path that stores an unchanged document pays a
  // lookup, not a composition.
  PixRef found(suites.pix());
  if (suites.cache()->lookup(key, found.slot()) >= 0 && found.get() != nullptr) return kStatusOk;
  LayoutRecord composed;
  KTE::Compose(doc, composed);
  AddEntry(suites, key, LayoutToText(composed));  // a failed host call leaves no entry behind
  return kStatusOk;
}

}  // namespace vetext
