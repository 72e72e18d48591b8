// MixHash: XXH3-128, streaming. The digest is stable across runs, builds and machines, which
// the layout cache relies on: its keys must match what earlier runs stored.
#define XXH_STATIC_LINKING_ONLY
#include <xxhash.h>

#include <new>

#include "vetext/vxcore.h"

namespace vxcore {

MixHash::MixHash() : state_(XXH3_createState()) {
  if (!state_) throw std::bad_alloc();
  XXH3_128bits_reset(static_cast<XXH3_state_t*>(state_));
}

MixHash::~MixHash() {
  XXH3_freeState(static_cast<XXH3_state_t*>(state_));
}

void MixHash::MixInData(const void* data, size_t size) {
  if (size == 0) return;
  XXH3_128bits_update(static_cast<XXH3_state_t*>(state_), data, size);
  length_ += size;
}

void MixHash::Finish(uint8_t out[16]) const {
  // The digest call leaves the state as it is, so mixing may continue afterwards.
  XXH128_hash_t h = XXH3_128bits_digest(static_cast<XXH3_state_t*>(state_));
  XXH128_canonical_t c;
  XXH128_canonicalFromHash(&c, h);
  for (int i = 0; i < 16; ++i) out[i] = c.digest[i];
}

}  // namespace vxcore
