// Handing the effect top-down frames (top row first, positive row bytes), as video decoders and
// frei0r clients hold them, without a flip copy.
//
// The effect's arithmetic reads a top-down frame's Position y and Rotation with the opposite
// sign (so that one formula serves both row orders); a host that gives it top-down frames
// therefore states those two parameters negated, and the text lands where the same values put
// it in a bottom-up frame.
#pragma once

#include "vetext/host/host.h"

namespace vetext_tool {

// Negates Position y and Rotation, their constant or every keyframe. Applying it twice restores
// the values. Save a project before, not after: a project holds the user's values.
void StateForTopDownFrames(vxhost::Instance& instance);

}  // namespace vetext_tool
