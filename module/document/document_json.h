// The document block: an 8-byte little-endian byte count, then UTF-16LE JSON of a DocumentRecord.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "document/records.h"
#include "vetext/vxcore.h"

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

// ---- value conversions shared by the document and layout readers and writers ----------------
// Numbers are accepted as double, int64 or uint64 (JSON integers read back as numbers); any other
// held type throws boost::bad_any_cast. Integers are truncated to 32 bits; doubles outside the
// 64-bit range saturate first, and numbers beyond the float range clamp to its largest value, so
// no conversion is undefined and every record read can be written again.
namespace vetext::json {

float ToFloat(const vxcore::Variant& v);
int32_t ToInt32(const vxcore::Variant& v);
uint32_t ToUInt32(const vxcore::Variant& v);
bool ToBool(const vxcore::Variant& v);
std::u16string ToU16(const vxcore::Variant& v);
// The object a value holds (boost::bad_any_cast otherwise).
const vxcore::Object& ToObject(const vxcore::VariantPtr& v);
const vxcore::Array& ToArray(const vxcore::VariantPtr& v);
// The parsed root, or its "SerializerWrappedObject" member when it is an object that has one.
vxcore::VariantPtr Unwrap(const vxcore::VariantPtr& root);

void AddFloat(const vxcore::VariantPtr& obj, const char* key, float value);
void AddInt(const vxcore::VariantPtr& obj, const char* key, int64_t value);
void AddUInt(const vxcore::VariantPtr& obj, const char* key, uint64_t value);
void AddBool(const vxcore::VariantPtr& obj, const char* key, bool value);
void AddString(const vxcore::VariantPtr& obj, const char* key, const std::u16string& value);

}  // namespace vetext::json
