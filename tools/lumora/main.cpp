// lumora: samples, tabulates and draws animation curves.
//
// The first argument names the command; without one (or when the first
// argument is an option) the plot command runs. "lumora help [COMMAND]"
// prints usage.
#include <cstdio>
#include <cstring>

#include "tools/lumora/commands.h"

namespace {

using lumora::tool::kExitBadArguments;
using lumora::tool::kExitSuccess;

struct Tcommand {
  const char* name;
  const char* summary;
  int (*run)(int count, const char* const* args);
  void (*usage)(std::FILE* out);
};

constexpr Tcommand kCommands[] = {
    {"plot", "sample a curve, print a table of it and draw it as SVG (the default)",
     lumora::tool::runPlotCommand, lumora::tool::printPlotUsage},
};

const Tcommand& defaultCommand() {
  return kCommands[0];
}

const Tcommand* findCommand(const char* name) {
  for (const Tcommand& c : kCommands) {
    if (std::strcmp(c.name, name) == 0) return &c;
  }
  return nullptr;
}

void printUsage(std::FILE* out) {
  std::fputs("usage: lumora [COMMAND] [options]\n\ncommands:\n", out);
  for (const Tcommand& c : kCommands) std::fprintf(out, "  %-8s %s\n", c.name, c.summary);
  std::fputs("  help     show the usage of a command: lumora help COMMAND\n\n", out);
  defaultCommand().usage(out);
}

int help(int count, const char* const* args) {
  if (count == 0) {
    printUsage(stdout);
    return kExitSuccess;
  }
  const Tcommand* command = findCommand(args[0]);
  if (!command || count > 1) {
    std::fprintf(stderr, "lumora: help takes one command name\n\n");
    printUsage(stderr);
    return kExitBadArguments;
  }
  command->usage(stdout);
  return kExitSuccess;
}

}  // namespace

int main(int argc, char** argv) {
  const char* const* args = argv + 1;
  const int count = argc > 0 ? argc - 1 : 0;
  if (count == 0 || args[0][0] == '-') return defaultCommand().run(count, args);
  if (std::strcmp(args[0], "help") == 0) return help(count - 1, args + 1);
  if (const Tcommand* command = findCommand(args[0])) return command->run(count - 1, args + 1);
  std::fprintf(stderr, "lumora: unknown command '%s'\n\n", args[0]);
  printUsage(stderr);
  return kExitBadArguments;
}
