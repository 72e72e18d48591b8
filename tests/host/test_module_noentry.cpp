// A loadable library that is not an effect: it exports no EffectMain.
#include "vetext/vx_api.h"

extern "C" VX_MODULE_EXPORT int NotAnEffect() {
  return 1;
}
