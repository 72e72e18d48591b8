// The layout record's JSON form, through the host serializer.
#pragma once

#include <cstddef>
#include <string>

#include "document/records.h"

namespace vetext {

// Compact UTF-16 JSON text of a layout, members in the record's order.
std::u16string LayoutToText(const LayoutRecord& layout, bool formatted = false);
// Reads layout text into `out` (missing keys read as zero/false/empty, "mOverSampling" too).
// Throws KTE::Error("JSON not well-formed") for text that does not parse, and
// boost::bad_any_cast for a member of the wrong type.
void TextToLayout(const char16_t* text, size_t length, LayoutRecord& out);

}  // namespace vetext
