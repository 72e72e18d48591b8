// The Source Text overlay: the text frame, the character under a click, and the selection drawn
// while editing. Characters are UTF-16 indices into the document's text (runs concatenated).
#pragma once

#include <cstdint>
#include <vector>

#include "document/records.h"
#include "vetext/effect.h"

namespace vetext {

// The character under layer point (x, y), found per glyph through its cluster (right-to-left
// runs included): on the nearest line, the glyph whose ink lies nearest across. -1 when the
// point is off the text (outside its bounds by more than a tenth of the font size) or there
// is no text.
int32_t HitTestCharacter(InputRecord* in, ParamList* params, double x, double y);
// The same in layout units, for a layout composed with its records' characters.
int32_t CharacterAt(const LayoutRecord& layout, const std::vector<int32_t>& characters, double x,
                    double y);

// The text frame: the layout bounds (the box, for box text) and each line's baseline.
void DrawTextFrame(InputRecord* in, ParamList* params, const EventRecord& ev);

// The characters from `first` to `last` (inclusive, either order) as one filled band per line,
// from the first to the last selected glyph's ink and from ascent to descent.
void DrawTextSelection(InputRecord* in, ParamList* params, const EventRecord& ev, int32_t first,
                       int32_t last);

}  // namespace vetext
