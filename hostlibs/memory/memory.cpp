// Host pointers with a remembered size: a small header in front of the bytes.
#include "vetext/memory.h"

#include <cstdlib>
#include <cstring>

namespace {
// 16 bytes keep the payload aligned for any scalar type.
struct alignas(16) PtrHeader {
  uint64_t size;
  uint64_t magic;
};
constexpr uint64_t kMagic = 0x7674787074727621ull;

PtrHeader* HeaderOf(const void* p) {
  return const_cast<PtrHeader*>(reinterpret_cast<const PtrHeader*>(p) - 1);
}
}  // namespace

void* RxNewPtr(uint64_t size) {
  if (size > UINT64_MAX - sizeof(PtrHeader)) return nullptr;
  auto* h = static_cast<PtrHeader*>(std::malloc(sizeof(PtrHeader) + size));
  if (!h) return nullptr;
  h->size = size;
  h->magic = kMagic;
  return h + 1;
}

uint64_t RxGetPtrSize(const void* p) {
  return p ? HeaderOf(p)->size : 0;
}

void RxDisposePtr(void* p) {
  if (!p) return;
  PtrHeader* h = HeaderOf(p);
  h->magic = 0;  // a second dispose of the same pointer is then caught in debug runs
  std::free(h);
}
