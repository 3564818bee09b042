// Curve times: integer ticks or float seconds.
//
// A TanimTime counts ticks, 6000 to the second. A TtimeValue holds either a
// tick time or float seconds and remembers which; a value with neither flag is
// the "neither" time that curves return for a missing key.
//
//   TanimTime t;
//   t.setValue(1.5, TtimeUnitSystem::kSeconds);   // 9000 ticks
//   TtimeValue a(t), b(0.25f);
//   float s = (a - b).inSeconds();                   // 1.25
//
// Comparisons of two times of the same kind are exact. Times of different
// kinds compare (and combine) through their seconds, and the result of
// arithmetic on mixed kinds is a float time.
#pragma once

#include <compare>
#include <cstdint>
#include <limits>

#include "lumora/base/export.h"

namespace lumora {

// Units a tick count can be expressed in. The numbers are stored in files and
// passed by hosts: do not change values; only add.
enum class TtimeUnitSystem : int {
  kHours = 0,
  kMinutes = 1,
  kSeconds = 2,
  kMilliseconds = 3,
  kGames = 4,       // 15 frames per second
  kFilm = 5,        // 24 frames per second
  kPal = 6,         // 25 frames per second
  kNtsc = 7,        // 30 frames per second
  kShowScan = 8,    // 48 frames per second
  kPalField = 9,    // 50 frames per second
  kNtscField = 10,  // 60 frames per second
  kFrames120 = 11,  // 120 frames per second
  kTicks = 12,      // the raw tick, 1/6000 s
};

/// Ticks in one unit of `unit`; 0 for a value outside the enumeration.
LUMORA_API std::int64_t ticksPerUnit(TtimeUnitSystem unit);

/// A signed 32-bit tick count (6000 ticks per second).
class LUMORA_API TanimTime {
 public:
  static constexpr std::int32_t kTicksPerSecond = 6000;
  /// The single-precision tick-to-second factor the curve code relies on.
  static constexpr float kSecondsPerTick = 0.00016666666f;

  static const TanimTime minTime;
  static const TanimTime maxTime;

  constexpr TanimTime() = default;
  constexpr explicit TanimTime(std::int32_t ticks) : fTicks(ticks) {}

  constexpr std::int32_t inTicks() const { return fTicks; }
  constexpr void setTicks(std::int32_t ticks) { fTicks = ticks; }

  /// Sets the time to `amount` units, rounded to the nearest tick and clamped
  /// to the representable range. An unknown unit or a NaN amount gives 0.
  void setValue(double amount, TtimeUnitSystem unit);
  /// The time expressed in `unit`; 0 for an unknown unit.
  double valueInThisUnit(TtimeUnitSystem unit) const;
  /// Seconds through the single-precision factor, as curves convert.
  float inSeconds() const { return static_cast<float>(fTicks) * kSecondsPerTick; }

  /// Sums and differences saturate at minTime and maxTime instead of wrapping.
  constexpr TanimTime operator+(TanimTime o) const {
    return saturated(std::int64_t{fTicks} + o.fTicks);
  }
  constexpr TanimTime operator-(TanimTime o) const {
    return saturated(std::int64_t{fTicks} - o.fTicks);
  }
  constexpr TanimTime operator-() const { return saturated(-std::int64_t{fTicks}); }
  constexpr auto operator<=>(const TanimTime&) const = default;

 private:
  static constexpr TanimTime saturated(std::int64_t ticks) {
    constexpr std::int64_t kLow = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t kHigh = std::numeric_limits<std::int32_t>::max();
    return TanimTime(
        static_cast<std::int32_t>(ticks < kLow ? kLow : (ticks > kHigh ? kHigh : ticks)));
  }

  std::int32_t fTicks = 0;
};

/// A time that is float seconds, ticks, or neither.
class LUMORA_API TtimeValue {
 public:
  constexpr TtimeValue() = default;
  TtimeValue(float seconds) { setFloat(seconds); }  // NOLINT: implicit by design
  TtimeValue(TanimTime t) { setAnimTime(t); }       // NOLINT: implicit by design

  void setFloat(float seconds) {
    fValue.seconds = seconds;
    fIsFloat = true;
    fIsAnimTime = false;
  }
  void setTicks(std::int32_t ticks) {
    fValue.ticks = ticks;
    fIsFloat = false;
    fIsAnimTime = true;
  }
  void setAnimTime(TanimTime t) { setTicks(t.inTicks()); }
  /// Forgets the value: the result is the "neither" time.
  void setNeither() {
    fValue.ticks = 0;
    fIsFloat = false;
    fIsAnimTime = false;
  }

  bool isFloat() const { return fIsFloat; }
  bool isAnimTime() const { return fIsAnimTime; }
  bool isNeither() const { return !fIsFloat && !fIsAnimTime; }

  /// Float seconds (0 for a tick or neither time).
  float asFloat() const { return fIsFloat ? fValue.seconds : 0.0f; }
  /// Ticks of a tick time; a float time is converted to the nearest tick; 0
  /// for the neither time.
  TanimTime asAnimTime() const;
  /// Seconds of either kind: ticks use the single-precision factor 1/6000.
  float inSeconds() const;

  /// Ticks compare with ticks and floats with floats exactly; times of
  /// different kinds compare through their seconds, the neither time
  /// counting as 0 s.
  bool operator==(const TtimeValue& o) const;
  bool operator!=(const TtimeValue& o) const { return !(*this == o); }
  bool operator<(const TtimeValue& o) const;
  bool operator>(const TtimeValue& o) const { return o < *this; }
  bool operator<=(const TtimeValue& o) const { return !(o < *this); }
  bool operator>=(const TtimeValue& o) const { return !(*this < o); }

  /// Two tick times give a tick time (saturating); otherwise float seconds.
  TtimeValue operator+(const TtimeValue& o) const;
  TtimeValue operator-(const TtimeValue& o) const;
  TtimeValue operator-() const;
  /// Ratio of two times (0 when the divisor is zero).
  float operator/(const TtimeValue& o) const;
  /// A tick time scaled by a float is rounded to the nearest tick.
  TtimeValue operator*(float factor) const;

 private:
  union {
    float seconds;
    std::int32_t ticks = 0;
  } fValue;
  bool fIsFloat = false;
  bool fIsAnimTime = false;
};

}  // namespace lumora
