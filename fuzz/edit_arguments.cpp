#include "fuzz/edit_arguments.h"

#include <bit>
#include <cfloat>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <limits>

#include "lumora/base/time_arrays.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"

namespace lumora::fuzz {

// A time in seconds, biased towards the values that break things.
float decodeSeconds(Treader& in, const TparamCurve& curve) {
  const std::uint8_t kind = in.u8();
  const unsigned n = curve.keyframeCount();
  switch (kind % 16) {
    case 0:
      return std::numeric_limits<float>::quiet_NaN();
    case 1:
      return std::numeric_limits<float>::infinity();
    case 2:
      return -std::numeric_limits<float>::infinity();
    case 3:
      return (kind & 16) ? FLT_MAX : -FLT_MAX;
    case 4:
      return (kind & 16) ? 1e9f : -3.6e5f;
    case 5:
      return (kind & 16) ? -0.0f : 0.0f;
    case 6:
    case 7: {  // exactly a key's time
      if (n == 0) return 0.0f;
      return curve.seconds(in.u8() % n);
    }
    case 8: {  // a hair from a key's time
      if (n == 0) return 1e-6f;
      const float t = curve.seconds(in.u8() % n);
      const float offsets[] = {5e-6f, -5e-6f, 1e-5f, 2e-5f, -1.5e-4f, 2e-4f, 1e-3f, -0.0f};
      return t + offsets[in.u8() % 8];
    }
    case 9:
      return std::bit_cast<float>(in.u32());
    default:
      return static_cast<float>(static_cast<std::int8_t>(in.u8())) / 8.0f;
  }
}

// A time of either kind; mostly the curve's own.
TtimeValue decodeTime(Treader& in, const TparamCurve& curve) {
  const std::uint8_t kind = in.u8();
  if (kind < 200) return curve.makeTimeValue(decodeSeconds(in, curve));
  if (kind < 230) return TtimeValue(TanimTime(static_cast<std::int32_t>(in.u32())));
  if (kind < 250) return TtimeValue(decodeSeconds(in, curve));
  return TtimeValue();
}

double decodeValue(Treader& in) {
  const std::uint8_t kind = in.u8();
  switch (kind % 12) {
    case 0:
      return std::numeric_limits<double>::quiet_NaN();
    case 1:
      return (kind & 16) ? std::numeric_limits<double>::infinity()
                         : -std::numeric_limits<double>::infinity();
    case 2:
      return (kind & 16) ? DBL_MAX : -DBL_MAX;
    case 3:
      return (kind & 16) ? 1e300 : -1e-11;
    case 4:
      return -0.0;
    case 5: {
      const std::uint64_t hi = in.u32();
      return std::bit_cast<double>((hi << 32) | in.u32());
    }
    default:
      return static_cast<double>(static_cast<std::int8_t>(in.u8())) / 4.0;
  }
}

float decodeComponent(Treader& in) {
  const std::uint8_t kind = in.u8();
  switch (kind % 10) {
    case 0:
      return std::numeric_limits<float>::quiet_NaN();
    case 1:
      return (kind & 16) ? std::numeric_limits<float>::infinity() : -FLT_MAX;
    case 2:
      return (kind & 16) ? 1e-7f : -0.0f;
    case 3:
      return std::bit_cast<float>(in.u32());
    default:
      return static_cast<float>(static_cast<std::int8_t>(in.u8())) / 16.0f;
  }
}

// A key index: mostly in range, sometimes just past it, sometimes absurd.
unsigned decodeIndex(Treader& in, const TparamCurve& curve) {
  const std::uint8_t b = in.u8();
  if (b >= 250) return b == 255 ? TparamCurve::kInvalidIndex : 0x7FFFFFFFu;
  return b % (curve.keyframeCount() + 1);
}

// Any value of the enumeration's storage type, with the valid ones most often.
TtangentType decodeTangentType(Treader& in) {
  return static_cast<TtangentType>(in.u8() % 13);
}

namespace {
const TtimeUnitSystem kUnits[] = {
    TtimeUnitSystem::kHours,    TtimeUnitSystem::kMinutes,   TtimeUnitSystem::kSeconds,
    TtimeUnitSystem::kFilm,     TtimeUnitSystem::kPal,       TtimeUnitSystem::kNtsc,
    TtimeUnitSystem::kShowScan, TtimeUnitSystem::kNtscField, TtimeUnitSystem::kFrames120,
    TtimeUnitSystem::kTicks,    TtimeUnitSystem::kGames,     static_cast<TtimeUnitSystem>(99)};
}  // namespace

TtimeUnitSystem decodeUnit(Treader& in) {
  return kUnits[in.u8() % std::size(kUnits)];
}

Tkeyframe decodeKey(Treader& in, const TparamCurve& curve) {
  const TtimeValue t = decodeTime(in, curve);
  const double v = decodeValue(in);
  const TtangentType tin = decodeTangentType(in);
  const TtangentType tout = decodeTangentType(in);
  if (in.flag()) return Tkeyframe(t, v, tin, tout);
  return Tkeyframe(t, v, static_cast<double>(decodeComponent(in)), tin, tout);
}

std::string listOf(const TdoubleArray& values) {
  std::string out = "[";
  for (unsigned j = 0; j < values.count(); ++j) {
    out += format(j ? ", %.17g" : "%.17g", values[j]);
  }
  return out + "]";
}

std::string listOf(const TanimTimeArray& ticks) {
  std::string out = "[";
  for (unsigned j = 0; j < ticks.count(); ++j) {
    out += format(j ? ", %d" : "%d", ticks[j].inTicks());
  }
  return out + "]";
}

std::string describeTime(const TtimeValue& t) {
  if (t.isFloat()) return format("%.9gs", static_cast<double>(t.asFloat()));
  if (t.isAnimTime()) return format("%dt", t.asAnimTime().inTicks());
  return "neither";
}

std::string describeKey(const Tkeyframe& k, const TparamCurve& curve) {
  const TtimeValue t =
      curve.isFloat() ? TtimeValue(k.timeAsFloat()) : TtimeValue(k.timeAsAnimTime());
  return format("key(%s, %.17g, in %d, out %d)", describeTime(t).c_str(), k.value(),
                static_cast<int>(k.tanInType()), static_cast<int>(k.tanOutType()));
}

std::string format(const char* pattern, ...) {
  char buffer[512];
  va_list args;
  va_start(args, pattern);
  std::vsnprintf(buffer, sizeof buffer, pattern, args);
  va_end(args);
  return buffer;
}

const char* boolName(bool b) {
  return b ? "true" : "false";
}

}  // namespace lumora::fuzz
