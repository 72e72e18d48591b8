// The defined dynamic symbols of a shared library, as binutils reads its dynamic symbol table:
// what a loader can find in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

namespace vetext_test {

inline std::set<std::string> ExportedSymbols(const std::string& path) {
  std::set<std::string> names;
  FILE* nm = popen(("nm -D --defined-only --format=just-symbols '" + path + "'").c_str(), "r");
  char line[512];
  while (nm != nullptr && std::fgets(line, sizeof line, nm) != nullptr)
    names.insert(std::string(line, std::strcspn(line, "\n")));
  EXPECT_TRUE(nm != nullptr && pclose(nm) == 0) << "nm failed on " << path;
  return names;
}

}  // namespace vetext_test
