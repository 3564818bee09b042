#include "lumora/base/angle.h"

#include <cmath>
#include <numbers>

namespace lumora {

namespace {

constexpr double kPi = std::numbers::pi;
constexpr double kTwoPi = 2.0 * std::numbers::pi;

// Units of `unit` in one degree; 0 for radians (handled apart, so that radian
// values pass through untouched) and for unknown units.
double unitsPerDegree(TangleUnit unit) {
  switch (unit) {
    case TangleUnit::kDegrees:
      return 1.0;
    case TangleUnit::kMinutes:
      return 60.0;
    case TangleUnit::kSeconds:
      return 3600.0;
    case TangleUnit::kRadians:
      break;
  }
  return 0.0;
}

double degreesToRadians(double degrees) {
  return degrees * (kPi / 180.0);
}

// Brings a finite radian value into (-pi, pi]. std::remainder is exact and
// answers in [-pi, pi]; only the lower end needs moving.
double wrapRadians(double radians) {
  const double r = std::remainder(radians, kTwoPi);
  return r <= -kPi ? r + kTwoPi : r;
}

}  // namespace

const Tangle Tangle::sQuarter{kPi / 2.0};

Tangle::Tangle(double value, TangleUnit unit, bool wrap) {
  if (unit == TangleUnit::kRadians) {
    setRadians(value);
  } else {
    const double perDegree = unitsPerDegree(unit);
    setRadians(perDegree == 0.0 ? 0.0 : degreesToRadians(value / perDegree));
  }
  if (wrap) fRadians = wrapRadians(fRadians);
}

double Tangle::degrees() const {
  return fRadians * (180.0 / kPi);
}

double Tangle::valueInUnit(TangleUnit unit) const {
  if (unit == TangleUnit::kRadians) return fRadians;
  return degrees() * unitsPerDegree(unit);
}

void Tangle::setDegrees(double degrees) {
  setRadians(degreesToRadians(degrees));
}

Tangle Tangle::wrapped() const {
  return Tangle(wrapRadians(fRadians));
}

}  // namespace lumora
