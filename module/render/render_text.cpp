// The CPU render of one frame: format check, input copy, text composite.
#include "render/render_text.h"

#include "effect/suites.h"
#include "vetext/suites.h"

namespace vetext {

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
  in->utils->copy_layer(in->effect_ref, params->params[0]->u.ld.layer, layer, nullptr, nullptr);
  return kStatusOk;
}

}  // namespace vetext
