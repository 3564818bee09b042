// The arguments of the edit fuzzer's steps: read from the input bytes, and
// described in words for the step log.
//
// Every byte string decodes: past the end of the input every read gives zero.
// The decoders favour the values that break things (NaN, infinities, the
// float limits, exact key times and times a hair away from them).
//
//   Treader in(data, size);
//   const float t = decodeSeconds(in, curve);
//   logStep(format("evaluate(%.9g)", static_cast<double>(t)));
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "lumora/base/time_value.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/tangent_type.h"

namespace lumora {
class TanimTimeArray;
class TdoubleArray;
class TparamCurve;
}  // namespace lumora

namespace lumora::fuzz {

/// Reads the input front to back; past its end every read gives zero.
class Treader {
 public:
  Treader(const std::uint8_t* data, std::size_t size) : fData(data), fSize(size) {}

  bool done() const { return fPos >= fSize; }
  std::size_t position() const { return fPos; }
  std::uint8_t u8() { return fPos < fSize ? fData[fPos++] : 0; }
  bool flag() { return (u8() & 1) != 0; }
  std::uint32_t u32() {
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | u8();
    return v;
  }

 private:
  const std::uint8_t* fData;
  std::size_t fSize;
  std::size_t fPos = 0;
};

// --- Decoding ----------------------------------------------------------------

/// A time in seconds: NaN, infinities, the float limits, signed zeros, a key's
/// exact time or one a hair from it, any float, or a grid time in eighths.
float decodeSeconds(Treader& in, const TparamCurve& curve);
/// A time of the curve's kind mostly; sometimes raw ticks, a float time on a
/// tick curve, or the "neither" time.
TtimeValue decodeTime(Treader& in, const TparamCurve& curve);
/// A key value: NaN, infinities, the double limits, tiny and negative zero
/// values, any double, or a grid value in quarters.
double decodeValue(Treader& in);
/// A tangent component or quaternion W, with the same bias as decodeValue.
float decodeComponent(Treader& in);
/// A key index: mostly in range, sometimes just past it, sometimes absurd.
unsigned decodeIndex(Treader& in, const TparamCurve& curve);
/// Any type from 0 to 12: the valid ones and two beyond the enumeration.
TtangentType decodeTangentType(Treader& in);
/// A key with a decoded time, value, both types and (sometimes) a quaternion W.
Tkeyframe decodeKey(Treader& in, const TparamCurve& curve);
/// A time unit, now and then one outside the enumeration.
TtimeUnitSystem decodeUnit(Treader& in);

// --- Describing --------------------------------------------------------------

/// printf into a string (at most 511 characters).
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
const char* boolName(bool b);
/// "[a, b, ...]" with every value exact.
std::string listOf(const TdoubleArray& values);
std::string listOf(const TanimTimeArray& ticks);
/// "1.5s", "9000t" or "neither".
std::string describeTime(const TtimeValue& t);
/// "key(time, value, in type, out type)" in the curve's kind of time.
std::string describeKey(const Tkeyframe& k, const TparamCurve& curve);

}  // namespace lumora::fuzz
