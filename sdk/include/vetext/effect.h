/* vetext SDK: the effect command interface.
 *
 * The host drives a module through one exported C function, EffectMain, with a command code and
 * six records. Every record here is a plain C struct owned by the host; the module reads the
 * input records and writes the fields of the output records that each command names.
 *
 * Units: fixed-point values are signed 16.16 (1.0 == 0x10000). Points are in layer pixels unless
 * said otherwise. Handles are pointers to pointers to host-owned bytes; only the host's handle
 * callbacks allocate, resize or free them.
 *
 * Thread safety: the host may call EffectMain from several threads at once, except commands 1
 * and 3, which it sends alone. All callbacks in UtilCallbacks are safe to call from any thread.
 */
#ifndef VETEXT_EFFECT_H
#define VETEXT_EFFECT_H

#include <stddef.h>
#include <stdint.h>

#include "vetext/vx_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- command codes ------------------------------------------------------------------------ */
typedef uint32_t EffectCommand;
enum {
  kCmdAbout = 0,
  kCmdGlobalSetup = 1,
  kCmdUnused2 = 2,
  kCmdGlobalSetdown = 3,
  kCmdParamsSetup = 4,
  kCmdSequenceSetup = 5,
  kCmdSequenceResetup = 6,
  kCmdSequenceFlatten = 7,
  kCmdSequenceSetdown = 8,
  kCmdDoDialog = 9,
  kCmdFrameSetup = 10,
  kCmdRender = 11,
  kCmdFrameSetdown = 12,
  kCmdUserChangedParam = 13,
  kCmdUpdateParamsUI = 14,
  kCmdEvent = 15,
  kCmdArbitraryCallback = 22,
  kCmdCount = 23 /* codes at or above this are accepted and ignored */
};

/* ---- status codes ------------------------------------------------------------------------- */
typedef int32_t VxStatus;
enum {
  kStatusOk = 0,
  kStatusFailed = 1, /* the effect failed; OutputRecord.message says why */
  kStatusOutOfMemory = 4,
  kStatusSuiteThrew = 13, /* a ScopedSuite failed to acquire its suite */
  kStatusStructDamaged = 512,
  kStatusUnsupportedPixelFormat = 514,
  kStatusBadCallbackParam = 516
};

/* ---- output flags (OutputRecord.out_flags) ------------------------------------------------ */
enum {
  kOutFlagIExpandBuffer = 1u << 6,      /* renders only the extent the host asks for */
  kOutFlagDisplayMessage = 0x100u,      /* the host shows OutputRecord.message */
  kOutFlagCustomUI = 1u << 15,          /* draws its own overlay, receives command 15 */
  kOutFlagSendUpdateParamsUI = 1u << 26 /* wants command 14 */
};
#define kEffectGlobalOutFlags 0x4008040u
#define kEffectVersionWord 0x80000u

/* ---- four-character codes (bytes in memory spell the code) -------------------------------- */
#define kPixelFormatBGRA 0x61726762u    /* 'b','g','r','a': 8 bits per channel */
#define kPixelFormatVUYA 0x61797576u    /* 'v','u','y','a': 8 bits per channel */
#define kPixelFormatBGRA16 0x36316762u  /* 'b','g','1','6': 16 bits per channel (not supported) */
#define kPixelFormatBGRA32F 0x66326762u /* 'b','g','2','f': float channels (not supported) */
#define kPixelFormatRaw 0x65746B40u     /* '@','k','t','e': raw bytes in the frame cache */
#define kPixelFormatBad 0x66646162u     /* 'b','a','d','f': "no format known" sentinel */

typedef void** VxHandle;                   /* pointer to a pointer to host-owned bytes */
typedef struct EffectRefOpaque* EffectRef; /* identifies the effect instance to the host */

typedef struct VxRational {
  int32_t num;
  uint32_t den;
} VxRational;

typedef struct VxRect {
  int32_t left, top, right, bottom;
} VxRect;

/* A frame. `data` points at the visual top row; row y (y down) starts at data + y * row_bytes.
 * A negative row_bytes is a bottom-up frame (the top row lies at the highest address), which is
 * how the reference host hands frames to the CPU render. `pixel_format` is the host's own
 * bookkeeping: modules query it through the "PF Pixel Format Suite". */
typedef struct OutputLayer {
  void* data;
  int32_t row_bytes;
  int32_t width;
  int32_t height;
  uint32_t pixel_format;
  VxRect extent_hint; /* the part of the frame the host needs; the whole frame by default */
  VxRational pixel_aspect;
} OutputLayer;

/* ---- parameters --------------------------------------------------------------------------- */
typedef int32_t ParamType;
enum {
  kParamTypeLayer = 0,
  kParamTypeFixedSlider = 2,
  kParamTypeAngle = 3,
  kParamTypeCheckbox = 4,
  kParamTypePoint = 6,
  kParamTypeArbitrary = 11,
  kParamTypeGroupStart = 13,
  kParamTypeGroupEnd = 14
};

enum {
  kParamUIFlagControl = 0x2,  /* the parameter has a custom control area */
  kParamUIFlagDisabled = 0x20 /* shown greyed out */
};
enum {
  kParamFlagCannotTimeVary = 0x2, /* not animatable */
  kParamFlagSupervise = 0x40      /* the host sends command 13 when the user changes it */
};
enum { kParamIndexAppend = -1 };
#define kParamNameLength 32

typedef int32_t VxFixed; /* signed 16.16 */

typedef struct FixedSliderDef {
  VxFixed value;
  char value_str[32];
  char value_desc[32];
  VxFixed valid_min, valid_max;
  VxFixed slider_min, slider_max;
  VxFixed dephault;
  int16_t precision;     /* decimals shown */
  int16_t display_flags; /* 1: show as percent */
} FixedSliderDef;

typedef struct AngleDef {
  VxFixed value; /* degrees */
  VxFixed dephault;
} AngleDef;

typedef struct CheckboxDef {
  int32_t value;
  uint8_t dephault;
  char reserved;
  int16_t reserved1;
  const char* name; /* text shown beside the box; owned by the module, must outlive the effect */
} CheckboxDef;

typedef struct PointDef {
  VxFixed x_value, y_value; /* layer pixels at render time; percent of the layer in the default */
  char reserved[3];
  uint8_t restrict_bounds;
  VxFixed x_dephault, y_dephault; /* percent of the layer's width and height */
} PointDef;

typedef struct ArbitraryDef {
  int16_t id;
  int16_t pad;
  VxHandle dephault; /* owned by the host once added */
  VxHandle value;    /* the current value, owned by the host */
  void* refcon;      /* handed back as ArbRequestRecord.refcon */
} ArbitraryDef;

typedef struct LayerDef {
  OutputLayer* layer; /* the input frame (parameter 0) */
} LayerDef;

typedef union ParamValueUnion {
  LayerDef ld;
  FixedSliderDef fd;
  AngleDef ad;
  CheckboxDef bd;
  PointDef td;
  ArbitraryDef arb_d;
} ParamValueUnion;

typedef struct ParamDef {
  int32_t id;
  uint32_t ui_flags;
  int16_t ui_width, ui_height;
  ParamType param_type;
  char name[kParamNameLength];
  uint32_t flags;
  ParamValueUnion u;
} ParamDef;

/* The parameter values of one call, by index; params[0] is the input layer. */
typedef struct ParamList {
  int32_t count;
  ParamDef** params;
} ParamList;

/* ---- host callbacks ----------------------------------------------------------------------- */
typedef struct OutputRecord OutputRecord;

typedef struct UtilCallbacks {
  /* Registration: `token` is in/out (seeded by the caller). Returns 0 or a failure status. */
  VxStatus (*register_token)(int64_t* token, int32_t code);
  VxStatus (*unregister_token)(int64_t* token);
  /* Returns the label with `index` of the string table registered with `token`: a
   * zero-terminated UTF-8 string owned by the host (valid until unregistration), or "". */
  const char* (*lookup_string)(int64_t token, int32_t index, int32_t reserved1, int32_t reserved2);
  /* Appends (index -1) a parameter; the host copies the record. */
  VxStatus (*add_param)(EffectRef ref, int32_t index, const ParamDef* def);
  /* Copies a zero-terminated text into a fixed field of `capacity` bytes, always terminated. */
  void (*copy_text)(char* dst, size_t capacity, const char* src);
  /* Copies a message into out->message (truncated, terminated). */
  void (*copy_message)(OutputRecord* out, const char* text);
  /* Handles: null on failure. */
  VxHandle (*new_handle)(uint64_t size);
  void (*dispose_handle)(VxHandle h);
  uint64_t (*get_handle_size)(VxHandle h);
  /* Copies the whole source frame into the destination (same size and format). Rects may be
   * null for "whole frame". */
  VxStatus (*copy_layer)(EffectRef ref, const OutputLayer* src, OutputLayer* dst,
                         const VxRect* src_rect, const VxRect* dst_rect);
} UtilCallbacks;

/* Suite services: suites are function tables found by name and version. */
typedef struct SuiteServices {
  /* Stores the suite's table in *suite (null when the host has no such suite at that
   * version) and returns 0; a non-zero return is a failure. */
  VxStatus (*acquire)(const char* name, int32_t version, const void** suite);
  VxStatus (*release)(const char* name, int32_t version);
} SuiteServices;

/* ---- the records of EffectMain ------------------------------------------------------------ */
typedef struct InputRecord {
  const UtilCallbacks* utils;
  EffectRef effect_ref;
  VxHandle global_data;
  VxHandle sequence_data;
  const SuiteServices* suites; /* may be null on a host without suites */
  VxRational downsample_x;     /* 1/1 at full resolution, 1/2 at half */
  VxRational downsample_y;
  VxRational pixel_aspect; /* of the layer */
  int64_t current_time;    /* in time_scale units */
  int64_t time_step;
  uint32_t time_scale;
  uint32_t quality;
  int32_t width, height; /* of the input layer */
} InputRecord;

#define kOutputMessageLength 256
struct OutputRecord {
  uint32_t my_version;
  int32_t num_params;
  VxHandle global_data;
  VxHandle sequence_data;
  uint32_t out_flags;
  uint32_t out_flags2;
  char message[kOutputMessageLength];
};

/* Command 13: which parameter changed. */
typedef struct ChangeRecord {
  int32_t param_index;
} ChangeRecord;

/* Command 15: a viewer or control event. */
enum {
  kEventActivate = 1,
  kEventClick = 2,
  kEventDrag = 3,
  kEventDraw = 4,
  kEventAdjustCursor = 9
};
typedef struct EventContext {
  void* host_data;
  int32_t window_type; /* 0: the program viewer */
  int32_t reserved;
} EventContext;
typedef struct EventCallbacks {
  /* Viewer <-> layer conversions, points as 16.16 fixed point. */
  VxStatus (*layer_to_viewer)(void* host_data, VxFixed* x, VxFixed* y);
  VxStatus (*viewer_to_layer)(void* host_data, VxFixed* x, VxFixed* y);
  /* Sets parameter `index` of the effect `effect` (the event's InputRecord.effect_ref) at the
   * event's time, the way a user's edit does: a parameter with keyframes gets a keyframe there,
   * one without a new value. Sliders and angles take x (16.16 fixed point, the parameter's own
   * unit), points x and y (layer pixels, 16.16), checkboxes x (0 or 1 << 16). Returns 0, or
   * kStatusBadCallbackParam for an index or a parameter type it cannot set. May be null. */
  VxStatus (*set_param)(EffectRef effect, int32_t index, VxFixed x, VxFixed y);
} EventCallbacks;
typedef struct EventRecord {
  EventContext** context; /* context handle */
  int32_t event_type;
  int32_t click_x, click_y; /* viewer pixels */
  uint8_t send_drag;
  uint8_t pad[3];
  int32_t param_index;
  int32_t cursor;
  int32_t handled;
  const EventCallbacks* callbacks;
} EventRecord;

/* Command 22: an arbitrary-data request. The offsets are fixed by the wire format. */
enum {
  kArbNew = 0,
  kArbDispose = 1,
  kArbCopy = 2,
  kArbFlatSize = 3,
  kArbFlatten = 4,
  kArbUnflatten = 5,
  kArbInterpolate = 6,
  kArbCompare = 7,
  kArbPrint = 8
};
typedef struct ArbRequestRecord {
  int32_t selector; /* offset 0 */
  int32_t pad0;
  uint64_t refcon; /* offset 8: the parameter's reference constant */
  union {          /* offset 16 */
    struct {
      VxHandle* dst;
    } create;
    struct {
      VxHandle handle;
    } dispose;
    struct {
      VxHandle src;
      VxHandle* dst;
    } copy;
    struct {
      VxHandle handle;
      uint32_t* flat_size;
    } flat_size;
    struct {
      VxHandle handle;
      uint32_t buf_size;
      uint32_t pad;
      void* buf;
    } flatten;
    struct {
      uint32_t buf_size;
      uint32_t pad;
      const void* buf;
      VxHandle* dst;
    } unflatten;
    struct {
      VxHandle left;
      VxHandle right;
      double t;
      VxHandle* dst;
    } interpolate;
  } u;
} ArbRequestRecord;

/* The command-specific record; which member is meant follows from the command. */
typedef union ExtraRecord {
  ChangeRecord change;
  EventRecord event;
  ArbRequestRecord arb;
} ExtraRecord;

/* ---- the entry point ---------------------------------------------------------------------- */
typedef VxStatus (*EffectMainFunc)(EffectCommand cmd, InputRecord* in, OutputRecord* out,
                                   ParamList* params, OutputLayer* layer, ExtraRecord* extra);
#define kEffectMainName "EffectMain"

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
/* The wire layouts both sides are built against, checked where the header is compiled: the
 * four-character codes spell their bytes in memory (little-endian), and the offsets are fixed. */
static_assert(kPixelFormatBGRA == ('b' | 'g' << 8 | 'r' << 16 | 'a' << 24), "four-character code");
static_assert(kPixelFormatVUYA == ('v' | 'u' << 8 | 'y' << 16 | 'a' << 24), "four-character code");
static_assert(kPixelFormatRaw == ('@' | 'k' << 8 | 't' << 16 | 'e' << 24), "four-character code");
static_assert(kPixelFormatBad == ('b' | 'a' << 8 | 'd' << 16 | 'f' << 24), "four-character code");
static_assert(kEffectGlobalOutFlags ==
                  (kOutFlagIExpandBuffer | kOutFlagCustomUI | kOutFlagSendUpdateParamsUI),
              "the three global flags");
static_assert(sizeof(ParamDef{}.name) == 32 && offsetof(ParamDef, ui_width) == 8 &&
                  offsetof(ParamDef, param_type) == 12 && offsetof(ParamDef, name) == 16 &&
                  offsetof(ParamDef, flags) == 48,
              "wire layout");
static_assert(offsetof(ArbRequestRecord, refcon) == 8, "wire layout");
static_assert(offsetof(ArbRequestRecord, u) == 16, "wire layout");
static_assert(offsetof(ArbRequestRecord, u.flat_size.flat_size) == 24, "wire layout");
static_assert(offsetof(ArbRequestRecord, u.flatten.buf_size) == 24, "wire layout");
static_assert(offsetof(ArbRequestRecord, u.unflatten.buf) == 24, "wire layout");
static_assert(offsetof(ArbRequestRecord, u.interpolate.t) == 32, "wire layout");
static_assert(offsetof(ArbRequestRecord, u.copy.dst) == 24, "wire layout");
static_assert(offsetof(ArbRequestRecord, u.flatten.buf) == 32, "wire layout");
static_assert(offsetof(ArbRequestRecord, u.unflatten.dst) == 32, "wire layout");
static_assert(offsetof(ArbRequestRecord, u.interpolate.dst) == 40, "wire layout");
#endif

#endif
