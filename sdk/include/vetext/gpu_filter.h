/* vetext SDK: the GPU filter interface.
 *
 * The host calls the module's xGPUFilterEntry to enumerate its GPU filters and receives a table
 * of five functions per filter; it then creates one instance per effect instance. Results are
 * signed 32-bit, negative on failure. Instances may be called from any host thread. */
#ifndef VETEXT_GPU_FILTER_H
#define VETEXT_GPU_FILTER_H

#include <stdint.h>

#include "vetext/effect.h"
#include "vetext/suites.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
  kGPUOk = 0,
  kErrGeneric = (int32_t)0x80000000u,
  kErrNoMoreFilters = (int32_t)0x80000001u,
  kErrCacheBuild = (int32_t)0x80000002u,
  kErrUnsupported = (int32_t)0x80000004u
};

/* The host's basic-suite accessor, reached through the instance record. */
typedef struct GPUSuiteAccessor {
  int32_t (*acquire)(const char* name, int32_t version, const void** suite);
  int32_t (*release)(const char* name, int32_t version);
} GPUSuiteAccessor;

#pragma pack(push, 4)
/* Host-owned. The private slot follows the three 32-bit fields directly (4-byte aligned). */
typedef struct GPUInstanceRecord {
  const GPUSuiteAccessor* suites;
  int32_t device_index;
  int32_t timeline_id;
  int32_t node_id;
  void* private_slot; /* the module's instance object */
} GPUInstanceRecord;
#pragma pack(pop)
#ifdef __cplusplus
static_assert(offsetof(GPUInstanceRecord, private_slot) == sizeof(void*) + 12, "unaligned slot");
#endif

typedef struct GPURenderParams {
  int64_t clip_time;     /* for parameter queries */
  int64_t sequence_time; /* copied into dependencies */
  int32_t quality;
  float downsample_x;
  float downsample_y;
  /* The frame the text lands on, the same for the three calls of one frame (a record is drawn
   * for the frame it is shown on): its size in pixels, whether its rows are stored bottom-up
   * (the effect's sign rules depend on it), its pixel aspect. */
  int32_t frame_width;
  int32_t frame_height;
  int32_t frame_bottom_up;
  int32_t par_num;
  int32_t par_den;
} GPURenderParams;

typedef struct GPUDependency {
  int32_t kind; /* 2: a precompute dependency */
  int32_t status;
  int64_t time;
  uint32_t pixel_format; /* 'bgra' */
  int32_t width;
  int32_t height;
  int32_t value1;
  int64_t value2;
  int64_t value3;
  int32_t value4;
} GPUDependency;

typedef struct GPUFrameOpaque* GPUFrameHandle;

typedef int32_t (*GPUCreateInstanceFunc)(GPUInstanceRecord* rec);
typedef int32_t (*GPUDisposeInstanceFunc)(GPUInstanceRecord* rec);
typedef int32_t (*GPUQueryDependencyFunc)(GPUInstanceRecord* rec, const GPURenderParams* params,
                                          int32_t* query_index, GPUDependency* dependency);
typedef int32_t (*GPUPrecomputeFunc)(GPUInstanceRecord* rec, const GPURenderParams* params,
                                     int32_t record_index, RPixHandle buffer);
typedef int32_t (*GPURenderFrameFunc)(GPUInstanceRecord* rec, const GPURenderParams* params,
                                      const GPUFrameHandle* frames, uint64_t frame_count,
                                      GPUFrameHandle* out_frame);

typedef struct GPUFilterFunctions {
  GPUCreateInstanceFunc create_instance;
  GPUDisposeInstanceFunc dispose_instance;
  GPUQueryDependencyFunc query_dependency;
  GPUPrecomputeFunc precompute;
  GPURenderFrameFunc render;
} GPUFilterFunctions;

typedef struct GPUFilterInfo {
  int32_t interface_version; /* 2 */
  uint8_t name_value[16];    /* all zero */
} GPUFilterInfo;

/* xGPUFilterEntry(host interface version, in/out filter index, startup flag, plug-in id,
 * functions to fill, info to fill). */
typedef int32_t (*GPUFilterEntryFunc)(uint32_t host_version, int32_t* index, uint32_t startup,
                                      int32_t plugin_id, GPUFilterFunctions* functions,
                                      GPUFilterInfo* info);
#define kGPUFilterEntryName "xGPUFilterEntry"

#ifdef __cplusplus
}

/* Base class of a module's GPU filter instance; virtual slots in the order of the table. */
class RxGPUFilterBase {
 public:
  virtual ~RxGPUFilterBase() = default;
  virtual int32_t Initialize(GPUInstanceRecord* rec);
  virtual int32_t QueryDependency(const GPURenderParams*, int32_t*, GPUDependency*) {
    return kErrUnsupported;
  }
  virtual int32_t PrecomputeRecord(const GPURenderParams*, int32_t, RPixHandle) {
    return kErrUnsupported;
  }
  virtual int32_t RenderFrame(const GPURenderParams* params, const GPUFrameHandle* frames,
                              uint64_t frame_count, GPUFrameHandle* out_frame) = 0;

 protected:
  const VideoSegmentSuite6* video_segment_suite_ = nullptr;
  int32_t timeline_id_ = 0;
  int32_t node_id_ = 0;
  int32_t device_index_ = 0;
};

inline int32_t RxGPUFilterBase::Initialize(GPUInstanceRecord* rec) {
  device_index_ = rec->device_index;
  timeline_id_ = rec->timeline_id;
  node_id_ = rec->node_id;
  const void* s = nullptr;
  if (rec->suites &&
      rec->suites->acquire(kVideoSegmentSuiteName, kVideoSegmentSuiteVersion, &s) == 0)
    video_segment_suite_ = static_cast<const VideoSegmentSuite6*>(s);
  return 0;
}
#endif

#endif
