// Every file kept in the dictionary fuzz corpora (seeds and any crasher found since) goes
// through the same checks as under the fuzzer.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "dict_invariants.h"

namespace {

namespace fs = std::filesystem;

void CheckCorpus(const char* name, bool binary) {
  const fs::path dir = fs::path(VETEXT_SOURCE_DIR) / "fuzz" / name / "corpus";
  ASSERT_TRUE(fs::is_directory(dir)) << dir;
  int files = 0, accepted = 0;
  for (const fs::directory_entry& e : fs::directory_iterator(dir)) {
    if (!e.is_regular_file()) continue;
    std::ifstream f(e.path(), std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(f)),
                                     std::istreambuf_iterator<char>());
    EXPECT_EQ(dict_invariants::CheckBytes(bytes.data(), bytes.size(), binary), "") << e.path();
    try {
      if (binary) {
        SLO::BinaryPDFReader(bytes.data(), bytes.size()).Parse();
      } else {
        SLO::TextPDFReader(bytes.data(), bytes.size()).Parse();
      }
      ++accepted;
    } catch (const SLO::Error&) {
    }
    ++files;
  }
  EXPECT_GT(files, 0);
  EXPECT_GT(accepted, 0) << "no seed in " << dir << " is a valid dictionary";
}

TEST(DictFuzzCorpus, TextSeedsHold) {
  CheckCorpus("dict_text", false);
}
TEST(DictFuzzCorpus, BinarySeedsHold) {
  CheckCorpus("dict_binary", true);
}

}  // namespace
