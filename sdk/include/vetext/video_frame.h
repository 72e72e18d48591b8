/* vetext host library "VideoFrame": GPU frames as the GPU filter sees them.
 *
 * A GPUFrameHandle (gpu_filter.h) names a frame in device memory. The filter maps it with
 * VF::GetRPixHandFrameMapping and asks the mapping for three interfaces by identifier, in the
 * manner of COM: QueryInterface hands out a counted reference that the caller releases.
 *
 * Ownership: the host makes frame handles over device memory it owns (CreateFrameHandle) and
 * disposes of them; a mapping and the interfaces it hands out hold a reference to the frame, so
 * they stay valid after the handle is disposed until their last Release.
 * Thread safety: reference counting is atomic; the getters only read. */
#ifndef VETEXT_VIDEO_FRAME_H
#define VETEXT_VIDEO_FRAME_H

#include <stdint.h>

#include "vetext/effect.h"
#include "vetext/gpu_filter.h"
#include "vetext/vx_api.h"

namespace VF {

struct Guid {
  uint32_t data1;
  uint16_t data2, data3;
  uint8_t data4[8];
};
inline bool operator==(const Guid& a, const Guid& b) {
  if (a.data1 != b.data1 || a.data2 != b.data2 || a.data3 != b.data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.data4[i] != b.data4[i]) return false;
  return true;
}

/* {5A2A4FE9-EE01-4438-8F14-AA8946104D5F}: bounds and device data. */
constexpr Guid kIIDFrameDevice = {
    0x5A2A4FE9, 0xEE01, 0x4438, {0x8F, 0x14, 0xAA, 0x89, 0x46, 0x10, 0x4D, 0x5F}};
/* {689AC22C-6831-4C8D-B1FD-0D654DC965BB}: pitch and layout. */
constexpr Guid kIIDFrameLayout = {
    0x689AC22C, 0x6831, 0x4C8D, {0xB1, 0xFD, 0x0D, 0x65, 0x4D, 0xC9, 0x65, 0xBB}};
/* {282D21CF-D8DA-4E4F-82BE-6E9C176CA796}: how the frame is shown (pixel aspect). */
constexpr Guid kIIDFrameAspect = {
    0x282D21CF, 0xD8DA, 0x4E4F, {0x82, 0xBE, 0x6E, 0x9C, 0x17, 0x6C, 0xA7, 0x96}};

enum : int32_t { kVFOk = 0, kVFErrNoInterface = -1, kVFErrArgument = -2 };

class Unknown {
 public:
  /* On success stores a new reference in *out and returns 0; otherwise stores null and returns
   * kVFErrNoInterface (kVFErrArgument when `out` is null). */
  virtual int32_t QueryInterface(const Guid& iid, void** out) = 0;
  virtual uint32_t AddRef() = 0;
  virtual uint32_t Release() = 0; /* the count left */

 protected:
  ~Unknown() = default;
};

class FrameDevice : public Unknown {
 public:
  virtual int32_t GetBounds(VxRect* bounds) = 0; /* {0, 0, width, height} */
  virtual int32_t GetDeviceData(void** top_row) = 0;
  virtual int32_t GetDeviceIndex(int32_t* index) = 0; /* GF::GetDevice index */

 protected:
  ~FrameDevice() = default;
};

class FrameLayout : public Unknown {
 public:
  /* Signed step from one visual row to the next (negative: stored bottom-up). */
  virtual int32_t GetPitch(int64_t* pitch) = 0;
  virtual int32_t GetPixelFormat(uint32_t* pixel_format) = 0; /* 'bgra' or 'vuya' */

 protected:
  ~FrameLayout() = default;
};

class FrameAspect : public Unknown {
 public:
  virtual int32_t GetPixelAspect(int32_t* num, int32_t* den) = 0;

 protected:
  ~FrameAspect() = default;
};

/* Maps a frame handle: *out receives a new reference to the frame's Unknown. Returns 0, or
 * kVFErrArgument for a null handle or out (then *out, when given, is null). */
VX_API int32_t GetRPixHandFrameMapping(GPUFrameHandle frame, Unknown** out);

/* Host side: a frame handle over `top_row` (device memory of device `device_index`, which the
 * caller keeps alive while the frame is used). Null for sizes below 1, a pitch shorter than a
 * row of 4-byte pixels, or a null pointer. */
VX_API GPUFrameHandle CreateFrameHandle(int32_t device_index, void* top_row, int64_t pitch,
                                        int32_t width, int32_t height, uint32_t pixel_format,
                                        int32_t par_num, int32_t par_den);
/* Drops the host's reference (mappings still held keep the frame alive). Null is harmless. */
VX_API void DisposeFrameHandle(GPUFrameHandle frame);

}  // namespace VF

#endif
