// The CPU render of one frame: format check, input copy, then the document's text drawn at 4x
// into a private buffer and composited over the output by the host's renderer.
#include "render/render_text.h"

#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "document/layout_cache.h"
#include "effect/suites.h"
#include "render/geometry.h"
#include "render/raster_cache.h"
#include "render/rasterize.h"
#include "vetext/image_renderer.h"
#include "vetext/suites.h"
#include "vetext/vxcore.h"

namespace vetext {
namespace {

// Steps per frame pixel of the displacement that puts a one-to-one reduction on whole pixels:
// a quarter of a 4x pixel, the phase to which glyph origins are drawn.
constexpr int32_t kShiftSteps = 16;

float FixedToFloat(VxFixed v) {
  return float(double(v) * 1.52587890625e-5);
}

// Blends the placed layer of a turned or scaled text that stays where it is (see RasterCache),
// making it on the second frame that asks for it. False when the placement is not one for a
// layer or the cache cannot hold one: the caller then composites directly.
bool DrawPlaced(RasterCache& cache, const IR_Prefiltered& pf, const char* prefilter_key,
                uint32_t format, int32_t ir_format, OutputLayer* layer, IR_Point dst, IR_Point src,
                IR_Point scale, float rot, float opacity) {
  const int32_t out_w = layer->width, out_h = layer->height;
  int32_t rect[4];
  if (IR_PlaceBounds(&pf, out_w, out_h, dst, src, scale, double(rot), rect) != 1) return false;
  char key[kPlacedKeySize], mark_key[kPlacedKeySize];
  MakePlacedKey(prefilter_key, out_w, out_h, dst, src, scale, double(rot), key, mark_key);
  uint8_t* image = nullptr;
  int32_t* spans = nullptr;
  const int32_t w = rect[2] - rect[0], h = rect[3] - rect[1];
  if (!cache.LookupPlaced(key, format, rect, &image, &spans)) {
    if (!cache.HasMark(mark_key)) {
      cache.Mark(mark_key);
      return false;
    }
    if (!cache.CreatePlaced(format, rect, &image, &spans)) return false;
    const RPixHandle entry = cache.last_made();
    const uint64_t bytes = (uint64_t(w) + 2) * (uint64_t(h) + 2) * 4;
    if (IR_PlacePrefiltered(&pf, out_w, out_h, dst, src, scale, double(rot), rect, image, bytes) !=
        0)
      return false;
    IR_Prefiltered view{image, w, h, 1, 1, w, h, nullptr, 0, 0, 0};
    IR_PrefilterSpans(&view, spans);
    cache.Publish(key, entry);
  }
  IR_Prefiltered placed{image, w, h, 1, 1, w, h, spans, 0, 0, 0};
  return IR_CompositeLayer(&placed, ir_format, layer->data, layer->row_bytes, out_w, out_h, rect[0],
                           rect[1], opacity) == 0;
}

}  // namespace

VxStatus RenderText(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer* layer) {
  uint32_t format = kPixelFormatBad;
  const void* table = nullptr;
  if (AcquireSuite(in, out, kPixelFormatSuiteName, kPixelFormatSuiteVersion, nullptr, &table) ==
          kStatusOk &&
      table != nullptr) {
    static_cast<const PixelFormatSuite1*>(table)->get_pixel_format(layer, &format);
    ReleaseSuite(in, out, kPixelFormatSuiteName, kPixelFormatSuiteVersion, nullptr);
  }
  if (format != kPixelFormatBGRA && format != kPixelFormatVUYA)
    return kStatusUnsupportedPixelFormat;
  if (params == nullptr || params->count < 10 || params->params == nullptr)
    return kStatusStructDamaged;
  for (int i = 0; i < 10; ++i)
    if (params->params[i] == nullptr) return kStatusStructDamaged;

  const int32_t out_w = layer->width, out_h = layer->height, stride = layer->row_bytes;
  const double dsx = double(in->downsample_x.num) / double(in->downsample_x.den);
  const double dsy = double(in->downsample_y.num) / double(in->downsample_y.den);
  const double inv_par = double(in->pixel_aspect.den) / double(in->pixel_aspect.num);

  in->utils->copy_layer(in->effect_ref, params->params[0]->u.ld.layer, layer, nullptr, nullptr);

  VxHandle doc = params->params[1]->u.arb_d.value;
  uint64_t doc_size = doc != nullptr && *doc != nullptr ? in->utils->get_handle_size(doc) : 0;
  if (doc_size == 0) return kStatusStructDamaged;

  // The transform parameters, with the sign rules of a bottom-up (negative stride) frame: the
  // position's y is negated for top-down frames and the rotation for bottom-up ones.
  float px = FixedToFloat(params->params[3]->u.td.x_value);
  float py = FixedToFloat(params->params[3]->u.td.y_value);
  if (stride >= 0) py = -py;
  float sx = float(double(FixedToFloat(params->params[5]->u.fd.value)) / 100.0);
  float sy = float(double(FixedToFloat(params->params[4]->u.fd.value)) / 100.0);
  if (params->params[6]->u.bd.value != 0) sx = sy;
  float rot = FixedToFloat(params->params[7]->u.ad.value);
  if (stride < 0) rot = -rot;
  float opacity = FixedToFloat(params->params[8]->u.fd.value) / 100.0f;
  float qx = FixedToFloat(params->params[9]->u.td.x_value);
  float qy = FixedToFloat(params->params[9]->u.td.y_value);

  // An unchanged document is neither composed nor rasterized again: its geometry and the
  // reduction the compositor draws from come from the frame cache, so such a frame costs the
  // key's hash, two lookups and the composite. What is missing is made and kept.
  const uint8_t* doc_bytes = static_cast<const uint8_t*>(*doc);
  RasterCache cache(in);
  char raster_key[kRasterKeySize] = {}, geometry_key[kRasterKeySize] = {};
  if (cache.ok()) {
    MakeRasterKey(doc_bytes, size_t(doc_size), format, raster_key);
    MakeGeometryKey(raster_key, geometry_key);
  }
  LayoutRecord layout;  // no records, zero bounds, oversampling 4, point text
  bool have_layout = false;
  auto build_layout = [&] {
    if (have_layout) return;
    std::vector<uint8_t> copy(doc_bytes, doc_bytes + doc_size);
    BuildTextLayout(copy.data(), copy.size(), layout, in, out);
    have_layout = true;
  };
  RasterGeometry g;
  if (!cache.ok() || !cache.LookupGeometry(geometry_key, format, &g)) {
    build_layout();
    g = ComputeRasterGeometry(layout);
    if (cache.ok()) cache.StoreGeometry(geometry_key, g, format);
  }
  if (!g.Drawable()) return kStatusOk;
  if (RasterBufferBytes(g) < 0) throw std::bad_alloc();  // a block no frame buffer can hold

  // The transform, single precision wherever an operand is single.
  const int32_t W = g.W, H = g.H;
  float syd = float(double(sy) * dsy);
  py = py - g.first_baseline_shift * syd;
  float scale_y = syd / g.oversampling;
  float scale_x = float(double(float(double(sx) * dsx) / g.oversampling) * inv_par);
  int32_t ir_format = format == kPixelFormatVUYA ? kIRFormatVUYA8 : kIRFormatBGRA8;
  float u = (qx - px) / (float(W) * scale_x);
  float v = (qy - py) / (float(H) * scale_y);
  IR_Point dst{(u * float(W) * scale_x + px) / float(out_w),
               (v * float(H) * scale_y + py) / float(out_h)};
  IR_Point src{u + g.ax, v + g.ay};
  IR_Point scale{scale_x, scale_y};

  // The compositor reduces the 4x picture by factors that follow the scale. For 4 x 4 (text
  // at 80 to 100 %) the reduction is assembled straight from reduced glyphs, and when the
  // placement is one to one it is drawn displaced so that it lands on whole frame pixels (the
  // displacement is rounded to a sixteenth of a pixel, the precision glyph origins have
  // anyway), which the compositor then blends without resampling.
  int32_t fx = 1, fy = 1;
  IR_PrefilterFactors(scale, &fx, &fy);
  const bool direct = fx == 4 && fy == 4 && g.oversampling == 4.0f;
  int32_t steps = 0, shift_x = 0, shift_y = 0;
  if (direct && IR_AlignedShift(W, H, fx, fy, out_w, out_h, dst, src, scale, double(rot),
                                kShiftSteps, &shift_x, &shift_y) == 1)
    steps = kShiftSteps;
  PrefilterEntryHeader want;
  want.pixel_format = format;
  want.src_width = W;
  want.src_height = H;
  want.factor_x = fx;
  want.factor_y = fy;
  want.width = (W + fx - 1) / fx;
  want.height = (H + fy - 1) / fy;
  want.image_bytes = IR_PrefilterSize(W, H, fx, fy);
  want.span_bytes = uint64_t(want.height) * 8;
  if (want.image_bytes == 0) return kStatusOk;
  char prefilter_key[kPrefilterKeySize] = {};
  if (cache.ok()) MakePrefilterKey(raster_key, fx, fy, steps, shift_x, shift_y, prefilter_key);

  PrefilterEntryHeader have = want;
  uint8_t* image = nullptr;
  int32_t* spans = nullptr;
  std::unique_ptr<vxcore::RecycledMemory> scratch, scratch4x;
  if (!cache.ok() || !cache.LookupPrefiltered(prefilter_key, want, &have, &image, &spans)) {
    have = want;
    const bool in_cache = cache.ok() && cache.CreatePrefiltered(have, &image, &spans);
    const RPixHandle entry = in_cache ? cache.last_made() : nullptr;
    if (!in_cache) {
      scratch =
          std::make_unique<vxcore::RecycledMemory>(size_t(have.image_bytes + have.span_bytes));
      image = static_cast<uint8_t*>(scratch->data());
      std::memset(image, 0, size_t(have.image_bytes + have.span_bytes));
      spans = reinterpret_cast<int32_t*>(image + have.image_bytes);
    }
    bool drawn = false;
    if (direct) {
      build_layout();
      const float k = 4.0f / float(kShiftSteps);
      drawn = RasterizeLayoutReduced(layout, W, H, g.ox + k * float(steps ? shift_x : 0),
                                     g.oy + k * float(steps ? shift_y : 0), format, image);
    }
    if (drawn) {
      have.shift_steps = steps;
      have.shift_x = shift_x;
      have.shift_y = shift_y;
    } else {
      // The literal picture: the 4x raster (kept in the cache too, for the other sizes), then
      // its reduction.
      const RasterEntryHeader* rh = nullptr;
      uint8_t* pixels = nullptr;
      if (!cache.ok() || !cache.Lookup(raster_key, format, &rh, &pixels)) {
        build_layout();
        pixels = cache.ok() ? cache.Create(MakeRasterHeader(g, format)) : nullptr;
        const bool made_in_cache = pixels != nullptr;
        if (!made_in_cache) {
          scratch4x = std::make_unique<vxcore::RecycledMemory>(size_t(RasterBufferBytes(g)));
          pixels = static_cast<uint8_t*>(scratch4x->data());
          std::memset(pixels, 0, size_t(RasterBufferBytes(g)));
        }
        RasterizeLayout(layout, pixels, 4 * W, false, W, H, g.ox, g.oy, format);
        if (made_in_cache) cache.Publish(raster_key);
      }
      IR_Prefiltered tmp;
      IR_Prefilter(pixels, 4 * W, W, H, fx, fy, image, have.image_bytes, &tmp);
      have.shift_steps = have.shift_x = have.shift_y = 0;
    }
    IR_Prefiltered view{image, have.width, have.height, fx, fy, W, H, nullptr, 0, 0, 0};
    IR_PrefilterSpans(&view, spans);
    if (in_cache) {
      std::memcpy(image - sizeof(PrefilterEntryHeader), &have, sizeof have);
      cache.Publish(prefilter_key, entry);
    }
  }
  IR_Prefiltered pf{image, have.width, have.height,      fx,           fy,          W,
                    H,     spans,      have.shift_steps, have.shift_x, have.shift_y};
  if (cache.ok() &&
      DrawPlaced(cache, pf, prefilter_key, format, ir_format, layer, dst, src, scale, rot, opacity))
    return kStatusOk;
  IR_MotionPrefiltered(&pf, ir_format, layer->data, stride, out_w, out_h, dst, src, scale,
                       double(rot), opacity);
  return kStatusOk;
}

}  // namespace vetext
