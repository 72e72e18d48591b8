// The layout record's JSON form, through the host serializer.
#pragma once

#include <cstddef>
#include <string>

#include "document/records.h"

namespace vetext {

// Compact UTF-16 JSON text of a layout, members in the record's order.
std::u16string LayoutToText(const LayoutRecord& layout, bool formatted = false);
// Reads layout text into `out` (missing keys read as zero/false/empty, "mOverSampling" too;
// unknown keys are ignored; of duplicate keys the first counts). Throws KTE::Error("JSON not
// well-formed") for text that does not parse, and boost::bad_any_cast for a member of the wrong
// type; `out` is left as it was on both.
void TextToLayout(const char16_t* text, size_t length, LayoutRecord& out);

// The same two operations through the host's value tree (build the tree, then write or read
// it). Slower; kept as the reference the streaming forms above are checked against.
std::u16string LayoutToTextTree(const LayoutRecord& layout, bool formatted = false);
void TextToLayoutTree(const char16_t* text, size_t length, LayoutRecord& out);

}  // namespace vetext
