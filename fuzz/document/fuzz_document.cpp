// Document blocks from untrusted bytes: reading never fails other than with an engine error, and
// whatever was read writes a block that reads back to the same record.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "document/document_json.h"
#include "engine/kte.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vetext::DocumentRecord doc;
  try {
    vetext::ReadDocumentBlock(data, size, doc);
  } catch (const KTE::Error&) {
    return 0;
  }
  const std::vector<uint8_t> block = vetext::WriteDocumentBlock(doc);
  vetext::DocumentRecord again;
  vetext::ReadDocumentBlock(block.data(), block.size(), again);
  // NaN never comes out of JSON, so the records compare exactly.
  if (!(again == doc)) std::abort();
  if (vetext::WriteDocumentBlock(again) != block) std::abort();
  return 0;
}
