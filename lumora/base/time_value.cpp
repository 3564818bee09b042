#include "lumora/base/time_value.h"

#include <cmath>
#include <iterator>
#include <limits>

namespace lumora {

namespace {

constexpr std::int64_t kTicksPerUnit[] = {
    21600000,  // hours
    360000,    // minutes
    6000,      // seconds
    6,         // milliseconds
    400,       // 15 fps
    250,       // 24 fps
    240,       // 25 fps
    200,       // 30 fps
    125,       // 48 fps
    120,       // 50 fps
    100,       // 60 fps
    50,        // 120 fps
    1,         // ticks
};

std::int32_t clampToTicks(double ticks) {
  if (std::isnan(ticks)) return 0;
  constexpr double lo = std::numeric_limits<std::int32_t>::min();
  constexpr double hi = std::numeric_limits<std::int32_t>::max();
  if (ticks <= lo) return std::numeric_limits<std::int32_t>::min();
  if (ticks >= hi) return std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::llround(ticks));
}

}  // namespace

std::int64_t ticksPerUnit(TtimeUnitSystem unit) {
  const auto i = static_cast<int>(unit);
  if (i < 0 || i >= static_cast<int>(std::size(kTicksPerUnit))) return 0;
  return kTicksPerUnit[i];
}

const TanimTime TanimTime::minTime{std::numeric_limits<std::int32_t>::min()};
const TanimTime TanimTime::maxTime{std::numeric_limits<std::int32_t>::max()};

void TanimTime::setValue(double amount, TtimeUnitSystem unit) {
  fTicks = clampToTicks(amount * static_cast<double>(ticksPerUnit(unit)));
}

double TanimTime::valueInThisUnit(TtimeUnitSystem unit) const {
  const std::int64_t per = ticksPerUnit(unit);
  if (per == 0) return 0.0;
  return static_cast<double>(fTicks) / static_cast<double>(per);
}

TanimTime TtimeValue::asAnimTime() const {
  if (fIsAnimTime) return TanimTime(fValue.ticks);
  if (fIsFloat) {
    TanimTime t;
    t.setValue(fValue.seconds, TtimeUnitSystem::kSeconds);
    return t;
  }
  return TanimTime(0);
}

float TtimeValue::inSeconds() const {
  if (fIsFloat) return fValue.seconds;
  if (fIsAnimTime) return static_cast<float>(fValue.ticks) * TanimTime::kSecondsPerTick;
  return 0.0f;
}

bool TtimeValue::operator==(const TtimeValue& o) const {
  if (fIsAnimTime && o.fIsAnimTime) return fValue.ticks == o.fValue.ticks;
  if (fIsFloat && o.fIsFloat) return fValue.seconds == o.fValue.seconds;
  if (isNeither() && o.isNeither()) return true;
  return inSeconds() == o.inSeconds();
}

bool TtimeValue::operator<(const TtimeValue& o) const {
  if (fIsAnimTime && o.fIsAnimTime) return fValue.ticks < o.fValue.ticks;
  return inSeconds() < o.inSeconds();
}

TtimeValue TtimeValue::operator+(const TtimeValue& o) const {
  if (fIsAnimTime && o.fIsAnimTime) return TanimTime(fValue.ticks) + TanimTime(o.fValue.ticks);
  if (isNeither() && o.isNeither()) return {};
  return TtimeValue(inSeconds() + o.inSeconds());
}

TtimeValue TtimeValue::operator-(const TtimeValue& o) const {
  if (fIsAnimTime && o.fIsAnimTime) return TanimTime(fValue.ticks) - TanimTime(o.fValue.ticks);
  if (isNeither() && o.isNeither()) return {};
  return TtimeValue(inSeconds() - o.inSeconds());
}

TtimeValue TtimeValue::operator-() const {
  if (fIsAnimTime) return -TanimTime(fValue.ticks);
  if (fIsFloat) return TtimeValue(-fValue.seconds);
  return {};
}

float TtimeValue::operator/(const TtimeValue& o) const {
  if (fIsAnimTime && o.fIsAnimTime) {
    if (o.fValue.ticks == 0) return 0.0f;
    return static_cast<float>(static_cast<double>(fValue.ticks) / o.fValue.ticks);
  }
  const float d = o.inSeconds();
  if (d == 0.0f) return 0.0f;
  return inSeconds() / d;
}

TtimeValue TtimeValue::operator*(float factor) const {
  if (fIsAnimTime) return TanimTime(clampToTicks(static_cast<double>(fValue.ticks) * factor));
  if (fIsFloat) return TtimeValue(fValue.seconds * factor);
  return {};
}

}  // namespace lumora
