// Command-line options of the lumora tool's plot command.
//
//   TplotOptions options;
//   std::string error;
//   switch (parsePlotOptions(argc, argv, options, error)) { ... }
//
// Parsing never prints: the caller decides what to show and how to exit. Times
// left unset take the curve's own view (see sample_table.h).
#pragma once

#include <optional>
#include <string>

namespace lumora::tool {

/// What the plot command was asked to do.
struct TplotOptions {
  std::string curve = "ball";        ///< name of a reference curve
  std::optional<double> from;        ///< first time shown, seconds
  std::optional<double> to;          ///< last time shown, seconds
  unsigned samples = 31;             ///< evenly spaced table rows
  std::string output = "curve.svg";  ///< SVG file written
  bool table = true;                 ///< print the table to stdout
};

/// The outcome of parsing.
enum class TparseResult { kRun, kHelp, kBadArguments };

/// Fewest and most evenly spaced table rows accepted by --samples.
inline constexpr unsigned kMinSamples = 2;
inline constexpr unsigned kMaxSamples = 100000;

/// Largest time magnitude accepted: curves evaluate at float seconds, which
/// stop resolving milliseconds beyond this.
inline constexpr double kMaxSeconds = 1e6;

/// Parses the arguments of the plot command, `args[0..count)` (the program
/// and command names already removed). Accepts "--name value" and
/// "--name=value". On kBadArguments `error` says what was wrong and `options`
/// may be partly filled.
TparseResult parsePlotOptions(int count, const char* const* args, TplotOptions& options,
                              std::string& error);

/// A finite number of seconds within +-kMaxSeconds, the whole text; false
/// otherwise.
bool parseSeconds(const char* text, double& seconds);

/// A decimal count within [low, high], the whole text; false otherwise.
bool parseCount(const char* text, unsigned low, unsigned high, unsigned& count);

}  // namespace lumora::tool
