// Bytes -> UTF-16 JSON text -> value -> text -> value: whatever parses must write out as text
// that parses again and writes out identically.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vetext/vxcore.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Odd inputs are read as UTF-8 (reaching the converter), even ones as raw UTF-16 units.
  std::u16string text;
  if (size % 2) {
    text = vxcore::UTF8ToUTF16(reinterpret_cast<const char*>(data), size);
  } else {
    text.resize(size / 2);
    std::memcpy(text.data(), data, size);
  }
  // A heap copy of exactly the units present, so a read past the end is caught.
  char16_t* exact = static_cast<char16_t*>(std::malloc(text.size() * sizeof(char16_t) + 1));
  std::memcpy(exact, text.data(), text.size() * sizeof(char16_t));
  vxcore::VariantPtr v = vxcore::JSONParse(exact, text.size());
  std::free(exact);
  if (!v) return 0;
  for (bool formatted : {false, true}) {
    const std::u16string once = vxcore::GetJSONString(v, formatted);
    vxcore::VariantPtr again = vxcore::JSONParse(once);
    if (!again) std::abort();
    if (vxcore::GetJSONString(again, formatted) != once) std::abort();
  }
  return 0;
}
