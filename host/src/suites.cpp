// Suites whose entries carry their own context: an EffectRef, a world, or a drawing object.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "host_impl.h"

namespace vxhost {

namespace {

RefTarget* TargetOf(EffectRef ref) {
  return reinterpret_cast<RefTarget*>(ref);
}

// ---- "PF Pixel Format Suite" ----------------------------------------------------------------

VxStatus ClearFormats(EffectRef ref) {
  RefTarget* t = TargetOf(ref);
  if (!t || !t->module) return kStatusBadCallbackParam;
  t->module->formats.clear();
  return kStatusOk;
}

VxStatus AddFormat(EffectRef ref, uint32_t pixel_format) {
  RefTarget* t = TargetOf(ref);
  if (!t || !t->module) return kStatusBadCallbackParam;
  auto& f = t->module->formats;
  if (std::find(f.begin(), f.end(), pixel_format) == f.end()) f.push_back(pixel_format);
  return kStatusOk;
}

VxStatus NewWorld(EffectRef, int32_t width, int32_t height, uint32_t, uint32_t pixel_format,
                  OutputLayer* out) {
  if (!out || width <= 0 || height <= 0) return kStatusBadCallbackParam;
  const int64_t stride = int64_t(width) * BytesPerPixel(pixel_format);
  if (stride > INT32_MAX || uint64_t(stride) * uint64_t(height) > (uint64_t(1) << 34))
    return kStatusOutOfMemory;
  void* data = std::calloc(size_t(stride), size_t(height));
  if (!data) return kStatusOutOfMemory;
  *out = OutputLayer{};
  out->data = data;
  out->row_bytes = int32_t(stride);
  out->width = width;
  out->height = height;
  out->pixel_format = pixel_format;
  out->extent_hint = VxRect{0, 0, width, height};
  out->pixel_aspect = VxRational{1, 1};
  return kStatusOk;
}

VxStatus DisposeWorld(EffectRef, OutputLayer* world) {
  if (!world) return kStatusBadCallbackParam;
  std::free(world->data);
  world->data = nullptr;
  return kStatusOk;
}

VxStatus GetPixelFormat(const OutputLayer* world, uint32_t* pixel_format) {
  if (!world || !pixel_format) return kStatusBadCallbackParam;
  *pixel_format = world->pixel_format;
  return kStatusOk;
}

constexpr PixelFormatSuite1 kPixelFormat{&ClearFormats, &AddFormat, &NewWorld, &DisposeWorld,
                                         &GetPixelFormat};

// ---- "PF Param Utils Suite" -----------------------------------------------------------------

VxStatus UpdateParamUI(EffectRef ref, int32_t index, const ParamDef* def) {
  RefTarget* t = TargetOf(ref);
  if (!t || !t->instance || !def) return kStatusBadCallbackParam;
  Instance::Impl* inst = t->instance;
  std::unique_lock lock(inst->store_mutex);
  if (index < 0 || size_t(index) >= inst->ui.size()) return kStatusBadCallbackParam;
  ParamDef& ui = inst->ui[size_t(index)];
  std::memcpy(ui.name, def->name, sizeof(ui.name));
  ui.name[sizeof(ui.name) - 1] = 0;
  ui.ui_flags = def->ui_flags;
  return kStatusOk;
}

VxStatus CheckoutParam(EffectRef ref, int32_t index, int64_t time, int64_t, uint32_t time_scale,
                       ParamDef* def) {
  RefTarget* t = TargetOf(ref);
  if (!t || !t->instance || !def || time_scale == 0) return kStatusBadCallbackParam;
  Instance::Impl* inst = t->instance;
  if (index < 0 || size_t(index) >= inst->slots.size()) return kStatusBadCallbackParam;
  bool temp = false;
  *def = inst->DefAt(index, double(time) / double(time_scale), inst->layer_width.load(),
                     inst->layer_height.load(), &temp);
  if (temp && def->u.arb_d.value) {
    std::lock_guard lock(inst->checkout_mutex);
    inst->checked_out.insert(def->u.arb_d.value);
  }
  return kStatusOk;
}

VxStatus CheckinParam(EffectRef ref, const ParamDef* def) {
  RefTarget* t = TargetOf(ref);
  if (!t || !t->instance || !def) return kStatusBadCallbackParam;
  Instance::Impl* inst = t->instance;
  if (def->param_type != kParamTypeArbitrary || !def->u.arb_d.value) return kStatusOk;
  {
    std::lock_guard lock(inst->checkout_mutex);
    if (!inst->checked_out.erase(def->u.arb_d.value)) return kStatusOk;
  }
  inst->DisposeValue(def->id, def->u.arb_d.value);
  return kStatusOk;
}

constexpr ParamUtilsSuite3 kParamUtils{&UpdateParamUI, &CheckoutParam, &CheckinParam};

// ---- "DRAWBOT ..." suites: the drawer, supplier and surface are the host's viewer context --

ViewerContext* ViewerOf(void* p) {
  return static_cast<ViewerContext*>(p);
}

int32_t GetSupplier(DrawbotDrawerRef drawer, DrawbotSupplierRef* out) {
  if (!drawer || !out) return -1;
  *out = reinterpret_cast<DrawbotSupplierRef>(drawer);
  return 0;
}
int32_t GetSurface(DrawbotDrawerRef drawer, DrawbotSurfaceRef* out) {
  if (!drawer || !out) return -1;
  *out = reinterpret_cast<DrawbotSurfaceRef>(drawer);
  return 0;
}
int32_t NewPath(DrawbotSupplierRef supplier, DrawbotPathRef* out) {
  if (!supplier || !out) return -1;
  *out = reinterpret_cast<DrawbotPathRef>(new (std::nothrow) DrawPath);
  return *out ? 0 : -1;
}
int32_t DisposePath(DrawbotPathRef path) {
  delete reinterpret_cast<DrawPath*>(path);
  return 0;
}
int32_t AddOp(DrawbotPathRef path, const PathOp& op) {
  if (!path) return -1;
  reinterpret_cast<DrawPath*>(path)->ops.push_back(op);
  return 0;
}
int32_t MoveTo(DrawbotPathRef path, float x, float y) {
  return AddOp(path, PathOp{PathOp::kMove, x, y});
}
int32_t LineTo(DrawbotPathRef path, float x, float y) {
  return AddOp(path, PathOp{PathOp::kLine, x, y});
}
int32_t AddRect(DrawbotPathRef path, float left, float top, float width, float height) {
  return AddOp(path, PathOp{PathOp::kRect, left, top, width, height});
}
int32_t CurveTo(DrawbotPathRef path, float x1, float y1, float x2, float y2, float x, float y) {
  PathOp op{PathOp::kCurve, x, y};
  op.x1 = x1, op.y1 = y1, op.x2 = x2, op.y2 = y2;
  return AddOp(path, op);
}
int32_t ClosePath(DrawbotPathRef path) {
  return AddOp(path, PathOp{PathOp::kClose});
}

int32_t Paint(DrawbotSurfaceRef surface, const DrawbotColor* color, DrawbotPathRef path, bool fill,
              float width) {
  if (!surface || !color || !path) return -1;
  ViewerContext* v = ViewerOf(surface);
  DrawnPath drawn;
  drawn.fill = fill;
  drawn.color = *color;
  drawn.line_width = width;
  drawn.ops = reinterpret_cast<DrawPath*>(path)->ops;
  std::lock_guard lock(v->host->draw_mutex);
  v->host->drawn.push_back(std::move(drawn));
  return 0;
}
int32_t StrokePath(DrawbotSurfaceRef surface, const DrawbotColor* color, DrawbotPathRef path,
                   float width) {
  return Paint(surface, color, path, false, width);
}
int32_t FillPath(DrawbotSurfaceRef surface, const DrawbotColor* color, DrawbotPathRef path) {
  return Paint(surface, color, path, true, 0);
}

constexpr DrawbotDrawSuite1 kDraw{&GetSupplier, &GetSurface};
constexpr DrawbotSupplierSuite1 kSupplier{&NewPath, &DisposePath};
constexpr DrawbotPathSuite1 kPath{&MoveTo, &LineTo, &AddRect, &ClosePath};
constexpr DrawbotPathSuite2 kPath2{&MoveTo, &LineTo, &AddRect, &ClosePath, &CurveTo};
constexpr DrawbotSurfaceSuite1 kSurface{&StrokePath, &FillPath};

}  // namespace

const PixelFormatSuite1* PixelFormatTable() {
  return &kPixelFormat;
}
const ParamUtilsSuite3* ParamUtilsTable() {
  return &kParamUtils;
}
const DrawbotDrawSuite1* DrawTable() {
  return &kDraw;
}
const DrawbotSupplierSuite1* SupplierTable() {
  return &kSupplier;
}
const DrawbotPathSuite1* PathTable() {
  return &kPath;
}
const DrawbotPathSuite2* PathTable2() {
  return &kPath2;
}
const DrawbotSurfaceSuite1* SurfaceTable() {
  return &kSurface;
}

}  // namespace vxhost
