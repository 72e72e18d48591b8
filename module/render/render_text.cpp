// The CPU render of one frame: format check, input copy, then the document's text drawn at 4x
// into a private buffer and composited over the output by the host's renderer.
//
// What the compositor draws from is a reduction of the 4x picture, and every stage of the road
// to it is kept in the host's frame cache, so an unchanged document is neither composed nor
// rasterized again. The stages, each a step below:
//   geometry    the buffer size, drawing origin and alignment point (no layout needed on a hit)
//   reduction   the 4x picture reduced by the factors the scale asks for; for 4 x 4 assembled
//               straight from reduced glyphs, else made from...
//   raster      ...the literal 4x picture
//   placed      a reduction resampled once for a placement that repeats (a turned or scaled
//               text that stays put), then blended a frame at a time
#include "render/render_text.h"

#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "document/layout_cache.h"
#include "effect/suites.h"
#include "params/params.h"
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

uint32_t OutputPixelFormat(InputRecord* in, OutputRecord* out, OutputLayer* layer) {
  uint32_t format = kPixelFormatBad;  // stays when the suite cannot be had
  const void* table = nullptr;
  if (AcquireSuite(in, out, kPixelFormatSuiteName, kPixelFormatSuiteVersion, nullptr, &table) ==
          kStatusOk &&
      table != nullptr) {
    static_cast<const PixelFormatSuite1*>(table)->get_pixel_format(layer, &format);
    ReleaseSuite(in, out, kPixelFormatSuiteName, kPixelFormatSuiteVersion, nullptr);
  }
  return format;
}

bool ParamsPresent(const ParamList* params) {
  if (params == nullptr || params->params == nullptr || params->count <= kParamAnchorPoint)
    return false;
  for (int32_t i = kParamInput; i <= kParamAnchorPoint; ++i)
    if (params->params[i] == nullptr) return false;
  return true;
}

FrameInfo FrameOf(const InputRecord* in, const OutputLayer* layer) {
  FrameInfo f;
  f.width = layer->width;
  f.height = layer->height;
  f.bottom_up = layer->row_bytes < 0;
  f.downsample_x = double(in->downsample_x.num) / double(in->downsample_x.den);
  f.downsample_y = double(in->downsample_y.num) / double(in->downsample_y.den);
  f.inverse_par = double(in->pixel_aspect.den) / double(in->pixel_aspect.num);
  return f;
}

// One frame's text: the document, the frame cache and whatever the stages had to make. Buffers
// made outside the cache live as long as the object, so the composite can read them.
class FrameText {
 public:
  FrameText(InputRecord* in, OutputRecord* out, const uint8_t* doc, uint64_t doc_size,
            uint32_t format)
      : in_(in), out_(out), doc_(doc), doc_size_(doc_size), format_(format), cache_(in) {
    if (cache_.ok()) {
      MakeRasterKey(doc_, size_t(doc_size_), format_, raster_key_);
      MakeGeometryKey(raster_key_, geometry_key_);
    }
  }

  RasterGeometry Geometry();
  // The reduction the compositor draws from, for the factors `p.scale` asks for. False when the
  // text has no pixels at that size.
  bool Reduction(const RasterGeometry& g, const TextPlacement& p, const OutputLayer* layer,
                 IR_Prefiltered* pf);
  // Blends the placed layer for `p` (made on the second frame that asks for it). False when
  // the placement is not one for a layer or the cache cannot hold one.
  bool DrawPlaced(const IR_Prefiltered& pf, const TextPlacement& p, int32_t ir_format,
                  OutputLayer* layer);

 private:
  const LayoutRecord& Layout();
  void MakeReduction(const RasterGeometry& g, bool direct, PrefilterEntryHeader* h, uint8_t* image);
  const uint8_t* Raster(const RasterGeometry& g);

  InputRecord* in_;
  OutputRecord* out_;
  const uint8_t* doc_;
  uint64_t doc_size_;
  uint32_t format_;
  RasterCache cache_;
  char raster_key_[kRasterKeySize] = {}, geometry_key_[kRasterKeySize] = {};
  char prefilter_key_[kPrefilterKeySize] = {};
  LayoutRecord layout_;  // no records, zero bounds, oversampling 4, point text
  bool have_layout_ = false;
  std::unique_ptr<vxcore::RecycledMemory> reduction_, raster_;
};

const LayoutRecord& FrameText::Layout() {
  if (!have_layout_) {
    // The layout cache works on a private copy: the host's handle may move under a callback.
    std::vector<uint8_t> copy(doc_, doc_ + doc_size_);
    BuildTextLayout(copy.data(), copy.size(), layout_, in_, out_);
    have_layout_ = true;
  }
  return layout_;
}

RasterGeometry FrameText::Geometry() {
  RasterGeometry g;
  if (cache_.ok() && cache_.LookupGeometry(geometry_key_, format_, &g)) return g;
  g = ComputeRasterGeometry(Layout());
  if (cache_.ok()) cache_.StoreGeometry(geometry_key_, g, format_);
  return g;
}

const uint8_t* FrameText::Raster(const RasterGeometry& g) {
  const RasterEntryHeader* header = nullptr;
  uint8_t* pixels = nullptr;
  if (cache_.ok() && cache_.Lookup(raster_key_, format_, &header, &pixels)) return pixels;
  const LayoutRecord& layout = Layout();
  pixels = cache_.ok() ? cache_.Create(MakeRasterHeader(g, format_)) : nullptr;
  const bool in_cache = pixels != nullptr;
  if (!in_cache) {
    const size_t bytes = size_t(RasterBufferBytes(g));
    raster_ = std::make_unique<vxcore::RecycledMemory>(bytes);
    pixels = static_cast<uint8_t*>(raster_->data());
    std::memset(pixels, 0, bytes);
  }
  RasterizeLayout(layout, pixels, 4 * g.W, false, g.W, g.H, g.ox, g.oy, format_);
  if (in_cache) cache_.Publish(raster_key_);
  return pixels;
}

// Draws the reduction described by *h into `image` (zeroed): from reduced glyphs where `direct`
// allows, else by reducing the 4x raster (then not displaced).
void FrameText::MakeReduction(const RasterGeometry& g, bool direct, PrefilterEntryHeader* h,
                              uint8_t* image) {
  if (direct) {
    const float k = 4.0f / float(kShiftSteps);
    const float dx = k * float(h->shift_steps ? h->shift_x : 0);
    const float dy = k * float(h->shift_steps ? h->shift_y : 0);
    if (RasterizeLayoutReduced(Layout(), g.W, g.H, g.ox + dx, g.oy + dy, format_, image)) return;
  }
  IR_Prefiltered unused;
  IR_Prefilter(Raster(g), 4 * g.W, g.W, g.H, h->factor_x, h->factor_y, image, h->image_bytes,
               &unused);
  h->shift_steps = h->shift_x = h->shift_y = 0;
}

bool FrameText::Reduction(const RasterGeometry& g, const TextPlacement& p, const OutputLayer* layer,
                          IR_Prefiltered* pf) {
  // The compositor reduces the 4x picture by factors that follow the scale. For 4 x 4 (text at
  // 80 to 100 %) the reduction is assembled straight from reduced glyphs, and when the placement
  // is one to one it is drawn displaced so that it lands on whole frame pixels (the displacement
  // is rounded to a sixteenth of a pixel, the precision glyph origins have anyway), which the
  // compositor then blends without resampling.
  int32_t fx = 1, fy = 1;
  IR_PrefilterFactors(p.scale, &fx, &fy);
  const bool direct = fx == 4 && fy == 4 && g.oversampling == 4.0f;
  PrefilterEntryHeader want;
  want.pixel_format = format_;
  want.src_width = g.W;
  want.src_height = g.H;
  want.factor_x = fx;
  want.factor_y = fy;
  want.width = (g.W + fx - 1) / fx;
  want.height = (g.H + fy - 1) / fy;
  want.image_bytes = IR_PrefilterSize(g.W, g.H, fx, fy);
  want.span_bytes = uint64_t(want.height) * 8;
  if (want.image_bytes == 0) return false;
  if (direct &&
      IR_AlignedShift(g.W, g.H, fx, fy, layer->width, layer->height, p.dst, p.src, p.scale,
                      double(p.rotation), kShiftSteps, &want.shift_x, &want.shift_y) == 1)
    want.shift_steps = kShiftSteps;
  else
    want.shift_x = want.shift_y = 0;
  if (cache_.ok())
    MakePrefilterKey(raster_key_, fx, fy, want.shift_steps, want.shift_x, want.shift_y,
                     prefilter_key_);

  PrefilterEntryHeader have = want;
  uint8_t* image = nullptr;
  int32_t* spans = nullptr;
  if (!cache_.ok() || !cache_.LookupPrefiltered(prefilter_key_, want, &have, &image, &spans)) {
    have = want;
    const bool in_cache = cache_.ok() && cache_.CreatePrefiltered(have, &image, &spans);
    const RPixHandle entry = in_cache ? cache_.last_made() : nullptr;
    if (!in_cache) {
      const size_t bytes = size_t(have.image_bytes + have.span_bytes);
      reduction_ = std::make_unique<vxcore::RecycledMemory>(bytes);
      image = static_cast<uint8_t*>(reduction_->data());
      std::memset(image, 0, bytes);
      spans = reinterpret_cast<int32_t*>(image + have.image_bytes);
    }
    MakeReduction(g, direct, &have, image);
    IR_Prefiltered view{image, have.width, have.height, fx, fy, g.W, g.H, nullptr, 0, 0, 0};
    IR_PrefilterSpans(&view, spans);
    if (in_cache) {
      std::memcpy(image - sizeof(PrefilterEntryHeader), &have, sizeof have);
      cache_.Publish(prefilter_key_, entry);
    }
  }
  *pf = IR_Prefiltered{image, have.width, have.height,      fx,           fy,          g.W,
                       g.H,   spans,      have.shift_steps, have.shift_x, have.shift_y};
  return true;
}

bool FrameText::DrawPlaced(const IR_Prefiltered& pf, const TextPlacement& p, int32_t ir_format,
                           OutputLayer* layer) {
  if (!cache_.ok()) return false;
  const int32_t out_w = layer->width, out_h = layer->height;
  const double rot = double(p.rotation);
  int32_t rect[4];
  if (IR_PlaceBounds(&pf, out_w, out_h, p.dst, p.src, p.scale, rot, rect) != 1) return false;
  char key[kPlacedKeySize], mark_key[kPlacedKeySize];
  MakePlacedKey(prefilter_key_, out_w, out_h, p.dst, p.src, p.scale, rot, key, mark_key);
  uint8_t* image = nullptr;
  int32_t* spans = nullptr;
  const int32_t w = rect[2] - rect[0], h = rect[3] - rect[1];
  if (!cache_.LookupPlaced(key, format_, rect, &image, &spans)) {
    // A placement seen once leaves a mark only: a moving text would otherwise make a layer
    // that no later frame uses.
    if (!cache_.HasMark(mark_key)) {
      cache_.Mark(mark_key);
      return false;
    }
    if (!cache_.CreatePlaced(format_, rect, &image, &spans)) return false;
    const RPixHandle entry = cache_.last_made();
    const uint64_t bytes = (uint64_t(w) + 2) * (uint64_t(h) + 2) * 4;
    if (IR_PlacePrefiltered(&pf, out_w, out_h, p.dst, p.src, p.scale, rot, rect, image, bytes) != 0)
      return false;
    IR_Prefiltered view{image, w, h, 1, 1, w, h, nullptr, 0, 0, 0};
    IR_PrefilterSpans(&view, spans);
    cache_.Publish(key, entry);
  }
  IR_Prefiltered placed{image, w, h, 1, 1, w, h, spans, 0, 0, 0};
  return IR_CompositeLayer(&placed, ir_format, layer->data, layer->row_bytes, out_w, out_h, rect[0],
                           rect[1], p.opacity) == 0;
}

}  // namespace

VxStatus RenderText(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer* layer) {
  const uint32_t format = OutputPixelFormat(in, out, layer);
  if (format != kPixelFormatBGRA && format != kPixelFormatVUYA)
    return kStatusUnsupportedPixelFormat;  // the frame is left as the host gave it
  if (!ParamsPresent(params)) return kStatusStructDamaged;

  in->utils->copy_layer(in->effect_ref, params->params[kParamInput]->u.ld.layer, layer, nullptr,
                        nullptr);
  VxHandle doc = params->params[kParamSourceText]->u.arb_d.value;
  const uint64_t doc_size = doc != nullptr && *doc != nullptr ? in->utils->get_handle_size(doc) : 0;
  if (doc_size == 0) return kStatusStructDamaged;

  FrameText text(in, out, static_cast<const uint8_t*>(*doc), doc_size, format);
  const RasterGeometry g = text.Geometry();
  if (!g.Drawable()) return kStatusOk;
  if (RasterBufferBytes(g) < 0) throw std::bad_alloc();  // a block no frame buffer can hold

  TransformValues t;
  if (!ReadTransform(params, &t)) return kStatusStructDamaged;
  const TextPlacement p = PlaceText(g, t, FrameOf(in, layer));
  IR_Prefiltered pf;
  if (!text.Reduction(g, p, layer, &pf)) return kStatusOk;
  const int32_t ir_format = format == kPixelFormatVUYA ? kIRFormatVUYA8 : kIRFormatBGRA8;
  if (text.DrawPlaced(pf, p, ir_format, layer)) return kStatusOk;
  IR_MotionPrefiltered(&pf, ir_format, layer->data, layer->row_bytes, layer->width, layer->height,
                       p.dst, p.src, p.scale, double(p.rotation), p.opacity);
  return kStatusOk;
}

}  // namespace vetext
