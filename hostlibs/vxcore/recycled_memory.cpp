// RecycledMemory: a process-wide pool of blocks bucketed by size class, so that per-frame
// buffers of similar size reuse pages instead of faulting in fresh ones on every frame.
//
// Size classes: multiples of 64 bytes up to 4 KiB, then four classes per power of two (at most
// 25% slack). The pool keeps at most kMaxPooledBytes of idle blocks; a block given back beyond
// that is freed at once.
#include <cstdlib>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "vetext/vxcore.h"

namespace vxcore {
namespace {

constexpr size_t kAlignment = 64;
constexpr size_t kMaxPooledBytes = size_t{256} << 20;
// Blocks larger than this are not worth keeping: one would hold a large share of the pool.
constexpr size_t kMaxPooledBlock = size_t{64} << 20;

size_t SizeClass(size_t size) {
  if (size <= 4096) return size == 0 ? kAlignment : (size + kAlignment - 1) & ~(kAlignment - 1);
  int top = 63 - __builtin_clzll(static_cast<unsigned long long>(size));
  size_t step = size_t{1} << (top - 2);
  if (size > SIZE_MAX - step) return 0;
  return (size + step - 1) & ~(step - 1);
}

class Pool {
 public:
  void* Take(size_t capacity) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      auto it = free_.find(capacity);
      if (it != free_.end() && !it->second.empty()) {
        void* p = it->second.back();
        it->second.pop_back();
        pooled_ -= capacity;
        return p;
      }
    }
    void* p = std::aligned_alloc(kAlignment, capacity);
    if (!p) {
      // Memory is short: give the idle blocks back to the system and try once more.
      Trim();
      p = std::aligned_alloc(kAlignment, capacity);
      if (!p) throw std::bad_alloc();
    }
    return p;
  }

  void Give(void* p, size_t capacity) {
    if (capacity <= kMaxPooledBlock) {
      std::lock_guard<std::mutex> lock(mutex_);
      if (pooled_ + capacity <= kMaxPooledBytes) {
        free_[capacity].push_back(p);
        pooled_ += capacity;
        return;
      }
    }
    std::free(p);
  }

  void Trim() {
    std::unordered_map<size_t, std::vector<void*>> old;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      old.swap(free_);
      pooled_ = 0;
    }
    for (auto& [cap, blocks] : old)
      for (void* p : blocks) std::free(p);
  }

  size_t Pooled() {
    std::lock_guard<std::mutex> lock(mutex_);
    return pooled_;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<size_t, std::vector<void*>> free_;
  size_t pooled_ = 0;
};

// Never destroyed: blocks may be given back by static destructors of other libraries.
Pool& ThePool() {
  static Pool* pool = new Pool;
  return *pool;
}

}  // namespace

RecycledMemory::RecycledMemory(size_t size) : data_(nullptr), size_(size), capacity_(0) {
  capacity_ = SizeClass(size);
  if (capacity_ == 0) throw std::bad_alloc();
  data_ = ThePool().Take(capacity_);
}

RecycledMemory::~RecycledMemory() {
  if (data_) ThePool().Give(data_, capacity_);
}

void RecycledMemory::Trim() {
  ThePool().Trim();
}

size_t RecycledMemory::PooledBytes() {
  return ThePool().Pooled();
}

}  // namespace vxcore
