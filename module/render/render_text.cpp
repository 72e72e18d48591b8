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

float FixedToFloat(VxFixed v) {
  return float(double(v) * 1.52587890625e-5);
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

  // The raster of an unchanged document comes straight from the frame cache: no layout parse,
  // no rasterizing. On a miss the layout is built, rasterized into a new cache entry and kept.
  const uint8_t* doc_bytes = static_cast<const uint8_t*>(*doc);
  RasterCache cache(in);
  char key[kRasterKeySize] = {};
  RasterGeometry g;
  const uint8_t* pixels = nullptr;
  const RasterEntryHeader* header = nullptr;
  uint8_t* hit_pixels = nullptr;
  if (cache.ok()) {
    MakeRasterKey(doc_bytes, size_t(doc_size), format, key);
    if (cache.Lookup(key, format, &header, &hit_pixels)) {
      g = GeometryOfHeader(*header);
      pixels = hit_pixels;
    }
  }
  std::unique_ptr<vxcore::RecycledMemory> scratch;
  if (header == nullptr) {
    LayoutRecord layout;  // no records, zero bounds, oversampling 4, point text
    {
      std::vector<uint8_t> copy(doc_bytes, doc_bytes + doc_size);
      BuildTextLayout(copy.data(), copy.size(), layout, in, out);
    }
    g = ComputeRasterGeometry(layout);
    int64_t bytes = g.Drawable() ? RasterBufferBytes(g) : 0;
    if (bytes < 0) throw std::bad_alloc();  // a block no frame buffer can hold
    uint8_t* buf = cache.ok() ? cache.Create(MakeRasterHeader(g, format)) : nullptr;
    if (buf == nullptr && bytes > 0) {
      scratch = std::make_unique<vxcore::RecycledMemory>(size_t(bytes));
      buf = static_cast<uint8_t*>(scratch->data());
      std::memset(buf, 0, size_t(bytes));
    }
    if (bytes > 0) RasterizeLayout(layout, buf, 4 * g.W, false, g.W, g.H, g.ox, g.oy, format);
    if (!scratch) cache.Publish(key);
    pixels = buf;
  }
  if (!g.Drawable() || pixels == nullptr) return kStatusOk;

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
  IR_Motion(pixels, 4 * W, W, H, ir_format, 0, nullptr, layer->data, stride, out_w, out_h,
            ir_format, 0, in->pixel_aspect.num, in->pixel_aspect.den, dst, src, scale, double(rot),
            opacity, true, 0.0, false, 0, 4, true);
  return kStatusOk;
}

}  // namespace vetext
