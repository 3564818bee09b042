#include "tools/lumora/options.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace lumora::tool {

namespace {

// Splits "--name=value" into its parts; other arguments have no inline value.
struct Targument {
  std::string_view name;
  std::optional<std::string_view> inlineValue;
};

Targument splitArgument(const char* arg) {
  const std::string_view text(arg);
  const std::size_t eq = text.find('=');
  if (text.rfind("--", 0) != 0 || eq == std::string_view::npos) return {text, std::nullopt};
  return {text.substr(0, eq), text.substr(eq + 1)};
}

}  // namespace

bool parseSeconds(const char* text, double& seconds) {
  if (text == nullptr || *text == '\0') return false;
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(text, &end);
  if (errno != 0 || end == text || *end != '\0') return false;
  if (!std::isfinite(v) || std::fabs(v) > kMaxSeconds) return false;
  seconds = v;
  return true;
}

bool parseCount(const char* text, unsigned low, unsigned high, unsigned& count) {
  if (text == nullptr || *text == '\0') return false;
  for (const char* p = text; *p; ++p) {
    if (*p < '0' || *p > '9') return false;
  }
  if (std::strlen(text) > 9) return false;  // beyond any sensible count
  const unsigned long v = std::strtoul(text, nullptr, 10);
  if (v < low || v > high) return false;
  count = static_cast<unsigned>(v);
  return true;
}

TparseResult parsePlotOptions(int count, const char* const* args, TplotOptions& options,
                              std::string& error) {
  for (int i = 0; i < count; ++i) {
    const Targument arg = splitArgument(args[i]);
    const auto takesValue = [&](std::string& value) {
      if (arg.inlineValue) {
        value = std::string(*arg.inlineValue);
        return true;
      }
      if (i + 1 >= count) {
        error = std::string(arg.name) + " needs a value";
        return false;
      }
      value = args[++i];
      return true;
    };
    const auto noValue = [&]() {
      if (!arg.inlineValue) return true;
      error = std::string(arg.name) + " takes no value";
      return false;
    };

    std::string value;
    if (arg.name == "-h" || arg.name == "--help") {
      if (!noValue()) return TparseResult::kBadArguments;
      return TparseResult::kHelp;
    }
    if (arg.name == "--no-table") {
      if (!noValue()) return TparseResult::kBadArguments;
      options.table = false;
    } else if (arg.name == "--from" || arg.name == "--to") {
      if (!takesValue(value)) return TparseResult::kBadArguments;
      double seconds = 0.0;
      if (!parseSeconds(value.c_str(), seconds)) {
        error = std::string(arg.name) + ": '" + value + "' is not a time in seconds";
        return TparseResult::kBadArguments;
      }
      (arg.name == "--from" ? options.from : options.to) = seconds;
    } else if (arg.name == "--samples") {
      if (!takesValue(value)) return TparseResult::kBadArguments;
      if (!parseCount(value.c_str(), kMinSamples, kMaxSamples, options.samples)) {
        error = "--samples: '" + value + "' is not a count from " + std::to_string(kMinSamples) +
                " to " + std::to_string(kMaxSamples);
        return TparseResult::kBadArguments;
      }
    } else if (arg.name == "-o" || arg.name == "--output") {
      if (!takesValue(value)) return TparseResult::kBadArguments;
      if (value.empty()) {
        error = std::string(arg.name) + " needs a file name";
        return TparseResult::kBadArguments;
      }
      options.output = value;
    } else if (arg.name == "--curve") {
      if (!takesValue(value)) return TparseResult::kBadArguments;
      options.curve = value;
    } else {
      error = "unknown argument '" + std::string(args[i]) + "'";
      return TparseResult::kBadArguments;
    }
  }
  if (options.from && options.to && !(*options.from < *options.to)) {
    error = "--from must be earlier than --to";
    return TparseResult::kBadArguments;
  }
  return TparseResult::kRun;
}

}  // namespace lumora::tool
