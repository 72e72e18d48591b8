// The text engine facade: whole-document operations the effect calls. Private to the module.
//
// Thread safety: every function may be called from any thread; documents are not shared
// between threads by the effect. Errors are reported by throwing KTE::Error.
#pragma once

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "document/records.h"

namespace KTE {

// The engine's error; what() is the user-facing message ("JSON not well-formed", ...).
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Document {
 public:
  virtual ~Document() = default;
  vetext::DocumentRecord data;
};
using DocumentPtr = boost::shared_ptr<Document>;

// Reference-counted engine start and stop (global setup and teardown). Compose and FindFont
// work without a start too (they start what they need lazily); a start keeps the font map and
// glyph caches alive between calls.
void EngineStart();
void EngineStop();

// Makes a document from a document block: an 8-byte little-endian byte count L, then L bytes of
// UTF-16LE JSON. size 0 gives the default document. At most the bytes present are read, whatever
// L says. Throws Error("JSON not well-formed") for text that is not a JSON document record.
DocumentPtr MakeDocument(const uint8_t* block, size_t size);
// The default document ("TEXT Wgij" as nine one-character runs, default style, centred).
DocumentPtr MakeDefaultDocument();
// Serializes a document into a document block, sized exactly (8 + 2 * code units).
std::vector<uint8_t> WriteDocument(const Document& doc);
void SetTextBox(vetext::DocumentRecord& data, int32_t width, int32_t height);
// "Left Align", "Right Align", "Center Align", and for box text the four justified names.
std::vector<std::u16string> AlignmentNames(const vetext::DocumentRecord& data);
// The name under which the font server knows the font that a request for `name` resolves to.
std::u16string FindFont(const std::u16string& name);

// Composes the document into `out` at oversampling 4 (see records.h for units). Identical
// documents give identical records.
// With `characters`, also the document text's UTF-16 index of each record's character (the
// first of its cluster), one per record in the same order; -1 where none is known.
void Compose(const Document& doc, vetext::LayoutRecord& out,
             std::vector<int32_t>* characters = nullptr);

}  // namespace KTE
