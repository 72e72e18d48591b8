// The document block: an 8-byte little-endian byte count, then UTF-16LE JSON of a DocumentRecord.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "document/records.h"

namespace vetext {

// The block of a record, keys in the record's order, compact text.
std::vector<uint8_t> WriteDocumentBlock(const DocumentRecord& doc);
// Reads a non-empty block into `doc` (fields missing from the text keep the values `doc` has).
// Reads at most `size` bytes whatever the length field says. Throws KTE::Error("JSON not
// well-formed") when the text is not JSON.
void ReadDocumentBlock(const uint8_t* block, size_t size, DocumentRecord& doc);
// The record as UTF-16 JSON text (formatted or compact), and back from UTF-16 JSON text.
std::u16string DocumentToText(const DocumentRecord& doc, bool formatted);
void TextToDocument(const char16_t* text, size_t length, DocumentRecord& doc);

}  // namespace vetext
