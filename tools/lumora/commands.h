// The commands of the lumora tool and what they share.
//
// Every command takes the arguments that follow its name and returns the
// process exit status; main() picks the command (see main.cpp's table). A new
// command adds a run and a usage function here and a row to that table.
//
//   lumora                      plot, with its defaults
//   lumora plot --to 5 -o a.svg
//   lumora help plot
#pragma once

#include <cstdio>

namespace lumora::tool {

/// Exit statuses shared by all commands.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;  ///< the work could not be done (e.g. output not written)
inline constexpr int kExitBadArguments = 2;  ///< usage printed to stderr

/// Samples a reference curve, prints a table of its values and draws it as
/// an SVG file.
int runPlotCommand(int count, const char* const* args);
void printPlotUsage(std::FILE* out);

}  // namespace lumora::tool
