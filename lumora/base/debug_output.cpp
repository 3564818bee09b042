#include "lumora/base/debug_output.h"

namespace lumora {

TdebugOutput::~TdebugOutput() = default;

void TdebugOutput::print(const char* format, ...) {
  if (!format) return;
  std::va_list args;
  va_start(args, format);
  vprint(format, args);
  va_end(args);
}

void TdebugOutput::close() {}

void TstringDebugOutput::vprint(const char* format, std::va_list args) {
  std::va_list copy;
  va_copy(copy, args);
  const int n = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (n <= 0) return;
  const std::size_t old = fText.size();
  fText.resize(old + static_cast<std::size_t>(n) + 1);
  std::vsnprintf(fText.data() + old, static_cast<std::size_t>(n) + 1, format, args);
  fText.resize(old + static_cast<std::size_t>(n));
}

void TfileDebugOutput::vprint(const char* format, std::va_list args) {
  if (fFile) std::vfprintf(fFile, format, args);
}

void TfileDebugOutput::close() {
  if (fFile) std::fflush(fFile);
}

}  // namespace lumora
