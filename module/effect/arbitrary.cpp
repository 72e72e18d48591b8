#include "effect/arbitrary.h"

#include <algorithm>
#include <cstring>

#include "params/params.h"

namespace vetext {
namespace {

uint64_t HandleSize(const UtilCallbacks* u, VxHandle h) {
  if (h == nullptr || *h == nullptr || u->get_handle_size == nullptr) return 0;
  return u->get_handle_size(h);
}

// A new handle holding `size` bytes from `src` (null when the host has no memory).
VxHandle NewCopy(const UtilCallbacks* u, const void* src, uint64_t size) {
  VxHandle h = u->new_handle(size);
  if (h == nullptr) return nullptr;
  if (size > 0) {
    if (*h == nullptr) {  // a host that answers with an empty handle for a non-empty size
      if (u->dispose_handle != nullptr) u->dispose_handle(h);
      return nullptr;
    }
    std::memcpy(*h, src, size);
  }
  return h;
}

}  // namespace

VxStatus ArbitraryDataCallback(InputRecord* in, OutputRecord*, ParamList*, OutputLayer*,
                               ExtraRecord* extra) {
  if (in == nullptr || in->utils == nullptr || extra == nullptr) return kStatusStructDamaged;
  const UtilCallbacks* u = in->utils;
  if (u->new_handle == nullptr || u->dispose_handle == nullptr) return kStatusStructDamaged;
  ArbRequestRecord& req = extra->arb;
  const bool own = IsOwnRefcon(req.refcon);

  switch (req.selector) {
    case kArbNew: {
      if (req.u.create.dst == nullptr) return kStatusStructDamaged;
      *req.u.create.dst = nullptr;
      VxHandle h = u->new_handle(0);
      if (h == nullptr) return kStatusOutOfMemory;
      // A foreign parameter still receives its empty value; the status says it is not ours.
      *req.u.create.dst = h;
      return own ? kStatusOk : kStatusStructDamaged;
    }
    case kArbDispose:
      if (!own) return kStatusStructDamaged;
      if (req.u.dispose.handle != nullptr) u->dispose_handle(req.u.dispose.handle);
      req.u.dispose.handle = nullptr;
      return kStatusOk;
    case kArbCopy: {
      if (!own) return kStatusOk;
      if (req.u.copy.dst == nullptr) return kStatusStructDamaged;
      const uint64_t size = HandleSize(u, req.u.copy.src);
      VxHandle h = NewCopy(u, size ? *req.u.copy.src : nullptr, size);
      *req.u.copy.dst = h;
      return h != nullptr ? kStatusOk : kStatusOutOfMemory;
    }
    case kArbFlatSize:
      if (req.u.flat_size.flat_size == nullptr) return kStatusStructDamaged;
      *req.u.flat_size.flat_size = static_cast<uint32_t>(HandleSize(u, req.u.flat_size.handle));
      return kStatusOk;
    case kArbFlatten: {
      const uint64_t size = HandleSize(u, req.u.flatten.handle);
      const uint64_t n = std::min<uint64_t>(size, req.u.flatten.buf_size);
      if (n > 0) {
        if (req.u.flatten.buf == nullptr) return kStatusStructDamaged;
        std::memcpy(req.u.flatten.buf, *req.u.flatten.handle, n);
      }
      return kStatusOk;
    }
    case kArbUnflatten: {
      const uint32_t size = req.u.unflatten.buf_size;
      if (req.u.unflatten.dst == nullptr || (size > 0 && req.u.unflatten.buf == nullptr))
        return kStatusStructDamaged;
      VxHandle h = NewCopy(u, req.u.unflatten.buf, size);
      *req.u.unflatten.dst = h;
      return h != nullptr ? kStatusOk : kStatusOutOfMemory;
    }
    case kArbInterpolate: {
      // A text document holds its value until the next keyframe: the result is the earlier one.
      const uint64_t size = HandleSize(u, req.u.interpolate.left);
      if (size == 0 || req.u.interpolate.dst == nullptr) return kStatusOk;
      *req.u.interpolate.dst = NewCopy(u, *req.u.interpolate.left, size);
      return kStatusOk;
    }
    default:
      return kStatusOk;  // comparing and printing are left to the host's defaults
  }
}

}  // namespace vetext
