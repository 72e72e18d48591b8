// Running the built `vetext` binary from a test: a fresh folder per test, the command line quoted
// for the shell, and its exit code, stdout and stderr read back. VETEXT_TOOL_PATH names the binary.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace vetext_test {

struct ToolOutput {
  int rc = -1;
  std::string out, err;
};

inline std::string ShellQuote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

inline std::string ReadWholeFile(const std::filesystem::path& p) {
  std::ifstream f(p, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

// A folder of its own, named after the running test and process, removed afterwards.
inline std::filesystem::path FreshTestDir(const std::string& prefix) {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = prefix;
  if (info) name += std::string(info->test_suite_name()) + "_" + info->name() + "_";
  name += std::to_string(getpid());
  std::filesystem::path dir = std::filesystem::temp_directory_path() / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir;
}

#ifdef VETEXT_TOOL_PATH
class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override { dir_ = FreshTestDir("vetext_tool_"); }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }

  // Runs the tool in the test's folder with `args`, feeding `input` on stdin; `shell` comes
  // before the command (limits, traps).
  ToolOutput Run(const std::vector<std::string>& args, const std::string& input = "",
                 const std::string& shell = "") const {
    std::ofstream(Path("stdin.txt"), std::ios::binary) << input;
    // Appended piece by piece: GCC 12 at -O3 reports a false -Wrestrict on a literal `+` a
    // temporary string.
    std::string cmd = "cd ";
    cmd += ShellQuote(dir_.string());
    cmd += " && ";
    cmd += shell;
    cmd += ShellQuote(VETEXT_TOOL_PATH);
    for (const auto& a : args) {
      cmd += ' ';
      cmd += ShellQuote(a);
    }
    cmd += " <stdin.txt >stdout.txt 2>stderr.txt";
    int status = std::system(cmd.c_str());
    ToolOutput o;
    o.rc = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    o.out = ReadWholeFile(Path("stdout.txt"));
    o.err = ReadWholeFile(Path("stderr.txt"));
    return o;
  }

  std::filesystem::path dir_;
};
#endif

}  // namespace vetext_test
