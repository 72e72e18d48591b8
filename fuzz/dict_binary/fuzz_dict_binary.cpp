// The dictionary binary reader on arbitrary bytes: never a crash, and every tree it accepts
// survives both writers.
#include <cstdio>
#include <cstdlib>

#include "dict_invariants.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string problem = dict_invariants::CheckBytes(data, size, /*binary=*/true);
  if (!problem.empty()) {
    std::fprintf(stderr, "%s\n", problem.c_str());
    std::abort();
  }
  return 0;
}
