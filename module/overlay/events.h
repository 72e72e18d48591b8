// The viewer overlay's event routing (command 15) and its module-wide state.
#pragma once

#include <cstdint>

#include "vetext/effect.h"

namespace vetext {

// Routes one viewer event: a click with the send-drag flag becomes a drag (the record is
// rewritten), activate clears the editing flag, click/drag/draw go to their handlers, and an
// adjust-cursor event is always reported handled. Handlers answer only in the program viewer
// (window type 0). Always returns 0.
VxStatus HandleEvent(InputRecord* in, OutputRecord* out, ParamList* params, OutputLayer* layer,
                     ExtraRecord* extra);

// Module-wide overlay state, shared by every instance; the host sends events for one viewer at
// a time, so these are plain variables.
bool EditingFlag();
void SetEditingFlag(bool on);
// The selected characters while editing (UTF-16 indices into the document's text, first <= last).
void Selection(int32_t* first, int32_t* last);
// The last click on the Source Text overlay in layer pixels, packed as x | (y << 32).
int64_t LastClickPoint();
void SetLastClickPoint(int64_t packed);
inline int64_t PackPoint(int32_t x, int32_t y) {
  return static_cast<int64_t>(static_cast<uint64_t>(static_cast<uint32_t>(x)) |
                              (static_cast<uint64_t>(static_cast<uint32_t>(y)) << 32));
}

// Cursor codes of the Transform box's twelve hit zones (1..12); 0 for none.
int32_t CursorForZone(int32_t zone);

}  // namespace vetext
