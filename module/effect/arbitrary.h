// The Source Text parameter's arbitrary-data callbacks (command 22).
#pragma once

#include "vetext/effect.h"

namespace vetext {

// Serves one request of `extra->arb` with the host's handle callbacks: 0, 4 (allocation failed)
// or 512 (a foreign reference constant on create or dispose, or a request with a null operand).
// Every read of a handle is bounded by the handle's own size.
VxStatus ArbitraryDataCallback(InputRecord* in, OutputRecord* out, ParamList* params,
                               OutputLayer* layer, ExtraRecord* extra);

}  // namespace vetext
