// Every file kept in the dictionary fuzz corpora (seeds and any crasher found since) goes
// through the same checks as under the fuzzer.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "dict_invariants.h"

namespace {

TEST(DictFuzzCorpus, EveryKeptInputHolds) {
  for (const bool binary : {false, true}) {
    const auto dir = std::filesystem::path(VETEXT_SOURCE_DIR) / "fuzz" /
                     (binary ? "dict_binary" : "dict_text") / "corpus";
    int accepted = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir)) {
      std::ifstream f(e.path(), std::ios::binary);
      const std::string bytes((std::istreambuf_iterator<char>(f)), {});
      const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
      EXPECT_EQ(dict_invariants::CheckBytes(data, bytes.size(), binary), "") << e.path();
      accepted += dict_test::Refusal([&] {
                    binary ? dict_test::FromBinary({data, data + bytes.size()})
                           : dict_test::FromText(bytes);
                  }).line() == 0;
    }
    EXPECT_GT(accepted, 0) << "no input in " << dir << " is a valid dictionary";
  }
}

}  // namespace
