// The layout cache: composed layouts kept as layout text in the host's frame cache, keyed by a
// hash of the document block, composed once per distinct block under one process-wide mutex.
#pragma once

#include <cstddef>
#include <cstdint>

#include <memory>
#include <string>
#include "document/records.h"

#include "vetext/effect.h"
#include "vetext/suites.h"

namespace KTE {
class Document;
}

namespace vetext {

// The 36-character key text (8-4-4-4-12, lowercase hex) plus terminator for a document block.
void MakeLayoutKey(const uint8_t* block, size_t size, char key[37]);
// The key text of 16 finished hash bytes, in the cache's byte order.
void FormatLayoutKey(const uint8_t hash[16], char key[37]);

// Fills `out` with the layout of the block, composing and caching on a miss. Leaves `out` as it
// was when a suite is missing. Throws KTE::Error("JSON not well-formed") for a bad block.
void BuildTextLayout(const uint8_t* block, size_t size, LayoutRecord& out, InputRecord* in,
                     OutputRecord* out_record);

// The layout of the Source Text parameter: 512 for an empty handle (no cache traffic), else 0.
VxStatus GetLayoutFromParam(InputRecord* in, OutputRecord* out_record, ParamList* params,
                            LayoutRecord& out);

// Stores the layout of a live document under the key of the document parameter's handle bytes
// (its block), so that the next request for that block is a cache hit. Composes from `doc`
// directly, without reading the block; adds nothing when the key is already present. Does not
// take the composition mutex: the host cache is safe to add to from any thread. Returns 0, also
// when a suite is missing (nothing is stored then); 512 for a missing or empty handle (no cache
// traffic). Engine failures pass out as KTE::Error.
VxStatus StoreLayoutForDocument(const KTE::Document& doc, VxHandle handle, InputRecord* in,
                                OutputRecord* out_record);

// A layout cache entry: the unsigned 64-bit byte count of the layout text, then the UTF-16 text,
// in a raw buffer tagged kPixelFormatRaw. ReadLayoutEntry parses one into `out`; false, leaving
// `out` alone, for a buffer that is not such an entry (the count is never trusted beyond the
// buffer). Throws as TextToLayout for damaged text.
bool ReadLayoutEntry(const RPixSuite1* pix, RPixHandle h, LayoutRecord& out);
// The parse of the entry `h` found under `key`, kept beside it for later calls (shared, never
// modified; dropped when a lookup of the key misses or the host no longer holds the entry).
// Null when `h` is not such an entry.
std::shared_ptr<const LayoutRecord> KeptLayout(const RPixSuite1* pix, const RPixCacheSuite6* cache,
                                               const char* key, RPixHandle h);
// Creates an entry holding `text` and adds it to the cache under `key`; false when a host call
// fails (nothing is left behind). With `created` the caller receives a reference to the buffer.
bool AddLayoutEntry(const RPixSuite1* pix, const RPixCreatorSuite3* creator,
                    const RPixCacheSuite6* cache, const char* key, const std::u16string& text,
                    RPixHandle* created);

// The process-wide recursive mutex that serialises composition into the cache.
void LockCompositionMutex();
void UnlockCompositionMutex();

}  // namespace vetext
