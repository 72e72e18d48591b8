// Subcommands of the vetext tool. Each cmd_*.cpp registers itself with a static Registrar, so
// adding a command touches no other file.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

namespace vetext_tool {

// Adds a subcommand to `app`; the subcommand's callback runs the command and stores its exit
// status through SetExitStatus (0 success, 1 bad input or failure, 2 usage).
using RegisterFn = void (*)(CLI::App& app);

struct Registrar {
  Registrar(const char* name, int order, RegisterFn fn);
};

void SetExitStatus(int status);

// Prints "vetext: <message>" to stderr and returns 1, for a command's failure paths: bad input,
// a file that cannot be read or written, an effect that fails.
int Fail(const std::string& message);
// The same, returning 2: an option value the command refuses.
int FailOption(const std::string& message);

}  // namespace vetext_tool
