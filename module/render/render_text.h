// The CPU render of one frame (command 11).
#pragma once

#include "vetext/effect.h"

namespace vetext {

// Copies the input layer to `layer` and composites the text of the Source Text parameter over
// it. Returns kStatusOk, kStatusStructDamaged (empty document handle) or
// kStatusUnsupportedPixelFormat (the frame is neither 'bgra' nor 'vuya'; the frame is untouched).
// Throws std::bad_alloc when memory runs out (the dispatch turns it into a status).
VxStatus RenderText(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer* layer);

}  // namespace vetext
