// Plane angles, stored in radians.
//
//   Tangle a(90.0, TangleUnit::kDegrees, /*wrap=*/false);   // a.radians() == pi/2
//   Tangle b = a + Tangle::sQuarter;                          // half a turn
//   Tangle c(270.0, TangleUnit::kDegrees, /*wrap=*/true);     // -90 degrees
//
// An angle is always a finite number: a NaN or infinite input, an unknown unit
// or arithmetic that would overflow stores 0 instead. Wrapping brings a value
// into the half-open interval (-pi, pi]; arithmetic never wraps on its own.
#pragma once

#include <compare>

#include "lumora/base/export.h"

namespace lumora {

// Units an angle can be given in. The numbers are passed by hosts: do not
// change values; only add.
enum class TangleUnit : int {
  kRadians = 1,
  kDegrees = 2,
  kMinutes = 3,  // minutes of arc, 1/60 degree
  kSeconds = 4,  // seconds of arc, 1/3600 degree
};

/// An angle in radians (double precision).
class LUMORA_API Tangle {
 public:
  /// A quarter turn, pi/2 radians.
  static const Tangle sQuarter;

  // Construction ------------------------------------------------------------

  /// The zero angle.
  constexpr Tangle() = default;
  /// `radians` radians; a non-finite value gives 0.
  constexpr explicit Tangle(double radians) : fRadians(finiteOrZero(radians)) {}
  /// `value` in `unit`, wrapped into (-pi, pi] when `wrap` is true. An unknown
  /// unit or a non-finite value gives 0.
  Tangle(double value, TangleUnit unit, bool wrap);
  constexpr Tangle(const Tangle&) = default;
  constexpr Tangle& operator=(const Tangle&) = default;

  // Access ------------------------------------------------------------------

  constexpr double radians() const { return fRadians; }
  double degrees() const;
  /// The angle expressed in `unit`; 0 for an unknown unit.
  double valueInUnit(TangleUnit unit) const;

  /// Non-finite values store 0.
  constexpr void setRadians(double radians) { fRadians = finiteOrZero(radians); }
  void setDegrees(double degrees);

  /// The same direction expressed in (-pi, pi].
  Tangle wrapped() const;

  // Arithmetic (results that would not be finite are 0) ---------------------

  constexpr Tangle operator+(const Tangle& o) const { return Tangle(fRadians + o.fRadians); }
  constexpr Tangle operator-(const Tangle& o) const { return Tangle(fRadians - o.fRadians); }
  constexpr Tangle operator-() const { return Tangle(-fRadians); }
  constexpr Tangle operator*(double factor) const { return Tangle(fRadians * factor); }
  constexpr Tangle& operator+=(const Tangle& o) { return *this = *this + o; }
  constexpr Tangle& operator-=(const Tangle& o) { return *this = *this - o; }

  // Comparison (exact, on radians) ------------------------------------------

  constexpr bool operator==(const Tangle&) const = default;
  constexpr std::partial_ordering operator<=>(const Tangle&) const = default;

 private:
  // True for every double except NaN and the infinities, usable in constant
  // expressions (std::isfinite is not constexpr before C++23).
  static constexpr double finiteOrZero(double v) { return (v - v) == 0.0 ? v : 0.0; }

  double fRadians = 0.0;
};

constexpr Tangle operator*(double factor, const Tangle& a) {
  return a * factor;
}

}  // namespace lumora
