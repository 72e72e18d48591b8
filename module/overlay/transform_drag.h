// Drags on the Transform box: a click in a zone starts one, each drag event sets the parameters
// the zone promises through the host's set_param callback, computed afresh from the values at
// the click (so a drag that comes back to where it began sets exactly the values it found).
#pragma once

#include <cstdint>

#include "vetext/effect.h"

namespace vetext {

// Starts a drag of `zone` (a kZone* of vetext/overlay.h; kZoneNone ends any drag) at the event's
// point, remembering the parameters and the box as they are now.
void BeginTransformDrag(InputRecord* in, OutputRecord* out, ParamList* params,
                        const EventRecord& ev, int32_t zone);

// Applies the drag to the event's point. Returns true when a drag is under way (the event is
// then handled), false when none is.
bool ContinueTransformDrag(InputRecord* in, const EventRecord& ev);

}  // namespace vetext
