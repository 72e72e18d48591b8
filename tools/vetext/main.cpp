// vetext: text over images and video, and the tools around the Text effect.
#include <algorithm>
#include <cstdio>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"

extern "C" {
#include <libavutil/log.h>
}

namespace vetext_tool {
namespace {

struct Entry {
  std::string name;
  int order;
  RegisterFn fn;
};

std::vector<Entry>& Registry() {
  static std::vector<Entry> entries;
  return entries;
}

int g_exit_status = 0;

}  // namespace

Registrar::Registrar(const char* name, int order, RegisterFn fn) {
  Registry().push_back({name, order, fn});
}

void SetExitStatus(int status) {
  g_exit_status = status;
}

int Fail(const std::string& message) {
  std::fprintf(stderr, "vetext: %s\n", message.c_str());
  return 1;
}

int FailOption(const std::string& message) {
  Fail(message);
  return 2;
}

}  // namespace vetext_tool

int main(int argc, char** argv) {
  using namespace vetext_tool;
  CLI::App app{"vetext: styled, animated text over images and video", "vetext"};
  app.require_subcommand(0, 1);
  std::sort(Registry().begin(), Registry().end(),
            [](const Entry& a, const Entry& b) { return a.order < b.order; });
  for (const Entry& e : Registry()) e.fn(app);

  // With no arguments at all, vetext renders the default document over a test pattern.
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    bool has_render = std::any_of(Registry().begin(), Registry().end(),
                                  [](const Entry& e) { return e.name == "render"; });
    if (has_render) args.push_back("render");
  }
  std::reverse(args.begin(), args.end());
  // FFmpeg's own log lines are not for the user: every failure comes back through a return
  // code and is reported by the command with the file it concerns.
  av_log_set_level(AV_LOG_QUIET);
  // The one error path: commands run inside parse(), so whatever they throw ends here as a
  // message and a status, never as terminate().
  try {
    app.parse(args);
  } catch (const CLI::ParseError& e) {
    int rc = app.exit(e);
    return rc == 0 ? 0 : 2;
  } catch (const std::bad_alloc&) {
    return Fail("out of memory; try a smaller frame, fewer --threads or less text");
  } catch (const std::exception& e) {
    return Fail(e.what());
  }
  if (app.get_subcommands().empty()) {
    std::fputs(app.help().c_str(), stdout);
    return 0;
  }
  return g_exit_status;
}
