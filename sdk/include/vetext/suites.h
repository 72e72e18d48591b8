/* vetext SDK: host suites, each a function table found by name and version through
 * SuiteServices (effect.h). A suite table is owned by the host and stays valid until the matching
 * release. All entries are safe to call from any thread unless a suite says otherwise. Results
 * are 0 on success; the RPix suites return a negative value on failure. */
#ifndef VETEXT_SUITES_H
#define VETEXT_SUITES_H

#include "vetext/effect.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- "PF Pixel Format Suite", version 1 --------------------------------------------------- */
#define kPixelFormatSuiteName "PF Pixel Format Suite"
#define kPixelFormatSuiteVersion 1
typedef struct PixelFormatSuite1 {
  VxStatus (*clear_supported_pixel_formats)(EffectRef ref);
  VxStatus (*add_supported_pixel_format)(EffectRef ref, uint32_t pixel_format);
  VxStatus (*new_world_of_pixel_format)(EffectRef ref, int32_t width, int32_t height,
                                        uint32_t flags, uint32_t pixel_format, OutputLayer* out);
  VxStatus (*dispose_world)(EffectRef ref, OutputLayer* world);
  /* Writes the four-character code of `world` into *pixel_format. */
  VxStatus (*get_pixel_format)(const OutputLayer* world, uint32_t* pixel_format);
} PixelFormatSuite1;

/* ---- "PF Param Utils Suite", version 3 ---------------------------------------------------- */
#define kParamUtilsSuiteName "PF Param Utils Suite"
#define kParamUtilsSuiteVersion 3
typedef struct ParamUtilsSuite3 {
  /* Updates the displayed control of one parameter: its name and UI flags are taken from
   * `def`; the value is not changed. */
  VxStatus (*update_param_ui)(EffectRef ref, int32_t index, const ParamDef* def);
  /* Fills *def with the parameter's value at a time (time_scale units). */
  VxStatus (*checkout_param)(EffectRef ref, int32_t index, int64_t time, int64_t time_step,
                             uint32_t time_scale, ParamDef* def);
  VxStatus (*checkin_param)(EffectRef ref, const ParamDef* def);
} ParamUtilsSuite3;

/* ---- the frame cache: "Reelix RPix ..." suites ---------------------------------------------
 * An RPixHandle is a counted reference to a host pixel buffer. Every handle a call hands out
 * (create, lookup) is the caller's reference and must be disposed with RPixSuite1.dispose. */
typedef struct RPixOpaque* RPixHandle;
enum { kRPixAccessRead = 0, kRPixAccessWrite = 2 };

#define kRPixSuiteName "Reelix RPix Suite"
#define kRPixSuiteVersion 1
typedef struct RPixSuite1 {
  int32_t (*dispose)(RPixHandle h);
  int32_t (*get_pixels)(RPixHandle h, int32_t access, void** pixels);
  int32_t (*get_bounds)(RPixHandle h, VxRect* bounds);
  int32_t (*get_row_bytes)(RPixHandle h, int32_t* row_bytes);
  int32_t (*get_pixel_aspect)(RPixHandle h, int32_t* num, int32_t* den);
  int32_t (*get_pixel_format)(RPixHandle h, uint32_t* pixel_format);
} RPixSuite1;

#define kRPixCacheSuiteName "Reelix RPix Cache Suite"
#define kRPixCacheSuiteVersion 6
typedef struct RPixCacheSuite6 {
  /* On a hit stores a new reference in *out and returns 0; on a miss stores null and returns 0.
   * `key` is a zero-terminated text. */
  int32_t (*lookup)(const char* key, RPixHandle* out);
  /* Adds `h` under `key`; the cache takes its own reference. Adding a key that is present
   * keeps the earlier entry and returns 0. */
  int32_t (*add)(const char* key, RPixHandle h);
} RPixCacheSuite6;

#define kRPixCreatorSuiteName "Reelix RPix Creator 2 Suite"
#define kRPixCreatorSuiteVersion 3
enum { kRPixKindRaw = 2 };
typedef struct RPixCreatorSuite3 {
  /* Creates a buffer. For kind 2 (raw bytes) width, height and the aspect are 1 and `byte_size`
   * is the size; otherwise `byte_size` is ignored and rows are width * 4 bytes. */
  int32_t (*create)(RPixHandle* out, int32_t kind, uint32_t pixel_format, int32_t width,
                    int32_t height, int32_t par_num, int32_t par_den, uint64_t byte_size);
} RPixCreatorSuite3;

/* ---- "MediaHub Video Segment Suite", version 6 -------------------------------------------- */
#define kVideoSegmentSuiteName "MediaHub Video Segment Suite"
#define kVideoSegmentSuiteVersion 6
enum {
  kSegParamNone = 0,
  kSegParamFloat = 1,
  kSegParamBool = 2,
  kSegParamPoint = 3,
  kSegParamHandle = 4
};
typedef struct SegmentParamValue {
  int32_t type;
  int32_t pad;
  double value; /* float parameters (sliders in their display unit, angles in degrees) */
  double x, y;  /* points, layer pixels */
  uint8_t flag; /* booleans */
  void* handle; /* arbitrary data: a copy owned by the caller, freed with RxDisposePtr */
} SegmentParamValue;
typedef struct VideoSegmentSuite6 {
  int32_t (*get_param)(int32_t node_id, int32_t param_index, int64_t time, SegmentParamValue* out);
} VideoSegmentSuite6;

/* ---- "DRAWBOT ..." suites: the viewer overlay's drawing ------------------------------------ */
typedef struct DrawbotDrawer* DrawbotDrawerRef;
typedef struct DrawbotSupplier* DrawbotSupplierRef;
typedef struct DrawbotSurface* DrawbotSurfaceRef;
typedef struct DrawbotPath* DrawbotPathRef;
typedef struct DrawbotColor {
  float red, green, blue, alpha;
} DrawbotColor;

#define kDrawbotDrawSuiteName "DRAWBOT Draw Suite"
#define kDrawbotDrawSuiteVersion 1
typedef struct DrawbotDrawSuite1 {
  int32_t (*get_supplier)(DrawbotDrawerRef drawer, DrawbotSupplierRef* out);
  int32_t (*get_surface)(DrawbotDrawerRef drawer, DrawbotSurfaceRef* out);
} DrawbotDrawSuite1;

#define kDrawbotSupplierSuiteName "DRAWBOT Supplier Suite"
#define kDrawbotSupplierSuiteVersion 1
typedef struct DrawbotSupplierSuite1 {
  int32_t (*new_path)(DrawbotSupplierRef supplier, DrawbotPathRef* out);
  int32_t (*dispose_path)(DrawbotPathRef path);
} DrawbotSupplierSuite1;

#define kDrawbotPathSuiteName "DRAWBOT Path Suite"
#define kDrawbotPathSuiteVersion 1
typedef struct DrawbotPathSuite1 {
  int32_t (*move_to)(DrawbotPathRef path, float x, float y);
  int32_t (*line_to)(DrawbotPathRef path, float x, float y);
  int32_t (*add_rect)(DrawbotPathRef path, float left, float top, float width, float height);
  int32_t (*close)(DrawbotPathRef path);
} DrawbotPathSuite1;
/* Version 2 adds cubic Bezier curves; its first four entries are version 1's. */
#define kDrawbotPathSuiteVersion2 2
typedef struct DrawbotPathSuite2 {
  int32_t (*move_to)(DrawbotPathRef path, float x, float y);
  int32_t (*line_to)(DrawbotPathRef path, float x, float y);
  int32_t (*add_rect)(DrawbotPathRef path, float left, float top, float width, float height);
  int32_t (*close)(DrawbotPathRef path);
  /* From the current point through control points (x1, y1) and (x2, y2) to (x, y). */
  int32_t (*curve_to)(DrawbotPathRef path, float x1, float y1, float x2, float y2, float x,
                      float y);
} DrawbotPathSuite2;

#define kDrawbotSurfaceSuiteName "DRAWBOT Surface Suite"
#define kDrawbotSurfaceSuiteVersion 1
typedef struct DrawbotSurfaceSuite1 {
  int32_t (*stroke_path)(DrawbotSurfaceRef surface, const DrawbotColor* color, DrawbotPathRef path,
                         float width);
  int32_t (*fill_path)(DrawbotSurfaceRef surface, const DrawbotColor* color, DrawbotPathRef path);
} DrawbotSurfaceSuite1;

#ifdef __cplusplus
}
#endif

#endif
