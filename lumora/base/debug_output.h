// Destinations for diagnostic listings such as TparamCurve::debugOutput.
//
//   TstringDebugOutput out;
//   curve.debugOutput(out);
//   std::puts(out.text().c_str());
//
// A listing is a series of printf-style prints followed by one close().
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

#include "lumora/base/export.h"

namespace lumora {

class LUMORA_API TdebugOutput {
 public:
  TdebugOutput() = default;
  TdebugOutput(const TdebugOutput&) = delete;
  TdebugOutput& operator=(const TdebugOutput&) = delete;
  virtual ~TdebugOutput();

  /// printf-style formatted print.
  void print(const char* format, ...) __attribute__((format(printf, 2, 3)));
  virtual void vprint(const char* format, std::va_list args) = 0;
  /// Ends the listing (flushes a file, marks a string complete).
  virtual void close();
};

/// Collects the listing in memory.
class LUMORA_API TstringDebugOutput final : public TdebugOutput {
 public:
  void vprint(const char* format, std::va_list args) override;
  void close() override { fClosed = true; }
  const std::string& text() const { return fText; }
  bool closed() const { return fClosed; }

 private:
  std::string fText;
  bool fClosed = false;
};

/// Writes the listing to a C stream it does not own (stdout by default).
class LUMORA_API TfileDebugOutput final : public TdebugOutput {
 public:
  explicit TfileDebugOutput(std::FILE* file = stdout) : fFile(file) {}
  void vprint(const char* format, std::va_list args) override;
  void close() override;

 private:
  std::FILE* fFile;
};

}  // namespace lumora
