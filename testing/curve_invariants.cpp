#include "testing/curve_invariants.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "lumora/base/time_value.h"
#include "lumora/curve/curve_sampler.h"
#include "lumora/curve/eval_cursor.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"

namespace lumora {
namespace {

constexpr float kNearKeySeconds = 1e-4f;

std::string format(const char* pattern, auto... args) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, pattern, args...);
  return buffer;
}

std::string keyTime(const TparamCurve& curve, const Tkeyframe& key) {
  if (curve.isFloat()) return format("%.9g s", static_cast<double>(key.timeAsFloat()));
  return format("%d ticks", key.timeAsTicks());
}

// The key's own invariants: its value and tangents.
std::string keyViolation(const Tkeyframe& key) {
  if (!std::isfinite(key.value())) return format("value %g is not finite", key.value());
  float x[2] = {}, y[2] = {};
  key.getTanIn(x[0], y[0]);
  key.getTanOut(x[1], y[1]);
  for (int side = 0; side < 2; ++side) {
    const char* name = side == 0 ? "in" : "out";
    if (!std::isfinite(x[side]) || !std::isfinite(y[side])) {
      return format("%s tangent (%g, %g) is not finite", name, static_cast<double>(x[side]),
                    static_cast<double>(y[side]));
    }
    // -0.0 compares equal to 0 and is as good as a vertical-free zero length.
    if (x[side] < 0.0f) {
      return format("%s tangent x %g is negative", name, static_cast<double>(x[side]));
    }
  }
  return {};
}

// Whether `later` comes strictly after `earlier` in the curve's ordering.
bool strictlyAfter(const TparamCurve& curve, const Tkeyframe& earlier, const Tkeyframe& later) {
  if (curve.isFloat()) return earlier < later;
  return earlier.timeAsTicks() < later.timeAsTicks();
}

// Near a key the cache walk (exact comparisons) and the full search (the key
// tolerance; on tick curves, seconds rounded to ticks) may answer differently
// by design. Far from zero float seconds are coarse, so "near" also covers a
// few float steps, and on tick curves a couple of ticks.
bool nearAnyKey(const TparamCurve& curve, float seconds) {
  const double ticks = curve.isAnimTime() ? 2.0 / 6000.0 : 0.0;
  for (unsigned i = 0; i < curve.keyframeCount(); ++i) {
    const double key = curve.seconds(i);
    const double near = kNearKeySeconds + ticks + std::fabs(key) * 0x1p-21;
    if (std::fabs(key - seconds) <= near) return true;
  }
  return false;
}

std::string compareBits(const char* form, float seconds, float warmUp, double warm, double fresh) {
  if (std::bit_cast<std::uint64_t>(warm) == std::bit_cast<std::uint64_t>(fresh)) return {};
  return format("%s at %.9g s: %.17g after a sample at %.9g s, %.17g from a fresh copy", form,
                static_cast<double>(seconds), warm, static_cast<double>(warmUp), fresh);
}

}  // namespace

std::string checkCurveInvariants(const TparamCurve& curve) {
  const unsigned n = curve.keyframeCount();
  if (curve.keyframe(n) != nullptr) {
    return format("keyframeCount is %u but key %u exists", n, n);
  }
  const Tkeyframe* previous = nullptr;
  for (unsigned i = 0; i < n; ++i) {
    const Tkeyframe* key = curve.keyframe(i);
    if (!key) return format("key %u of %u is null", i, n);
    if (curve.isFloat() && !std::isfinite(key->timeAsFloat())) {
      return format("key %u: time %s is not finite", i, keyTime(curve, *key).c_str());
    }
    if (previous && !strictlyAfter(curve, *previous, *key)) {
      return format("key %u at %s does not come after key %u at %s", i,
                    keyTime(curve, *key).c_str(), i - 1, keyTime(curve, *previous).c_str());
    }
    const std::string violation = keyViolation(*key);
    if (!violation.empty())
      return format("key %u at %s: ", i, keyTime(curve, *key).c_str()) + violation;
    previous = key;
  }
  return {};
}

std::string checkEvaluationIndependentOfCache(TparamCurve& curve, float seconds,
                                              float warmUpSeconds) {
  if (nearAnyKey(curve, seconds)) return {};
  const TtimeValue time = curve.makeTimeValue(seconds);
  {
    TparamCurve fresh(curve);
    (void)curve.evaluate(warmUpSeconds);
    const std::string d = compareBits("evaluate(float)", seconds, warmUpSeconds,
                                      curve.evaluate(seconds), fresh.evaluate(seconds));
    if (!d.empty()) return d;
  }
  TparamCurve fresh(curve);
  (void)curve.evaluate(warmUpSeconds);
  return compareBits("evaluate(TtimeValue)", seconds, warmUpSeconds, curve.evaluate(time),
                     fresh.evaluate(time));
}

std::string checkCursorAgreesWithFreshCopy(const TparamCurve& curve, TevalCursor& kept,
                                           float seconds) {
  TparamCurve fresh(curve);
  const double expected = fresh.evaluate(seconds);
  if (!nearAnyKey(curve, seconds)) {
    const std::string d =
        compareBits("a kept cursor", seconds, seconds, curve.evaluate(seconds, kept), expected);
    if (!d.empty()) return d;
  }
  TevalCursor cursor;
  const std::string d =
      compareBits("a fresh cursor", seconds, seconds, curve.evaluate(seconds, cursor), expected);
  if (!d.empty()) return d;
  const TtimeValue time = curve.makeTimeValue(seconds);
  TparamCurve freshTimes(curve);
  TevalCursor timeCursor;
  return compareBits("a fresh cursor (time value)", seconds, seconds,
                     curve.evaluate(time, timeCursor), freshTimes.evaluate(time));
}

std::string checkSamplerAgreesWithCurve(const TparamCurve& curve, const TcurveSampler& sampler,
                                        float seconds) {
  TevalCursor fresh;
  const double expected = curve.evaluate(seconds, fresh);
  std::string d = compareBits("a sampler", seconds, seconds, sampler.evaluate(seconds), expected);
  if (!d.empty()) return d;
  const double times[] = {static_cast<double>(seconds)};
  double batch[] = {0.0};
  if (!sampler.evaluate(1, times, batch)) return "a sampler refused a one-time array";
  d = compareBits("a sampler's array call", seconds, seconds, batch[0], expected);
  if (!d.empty()) return d;
  const TtimeValue time = curve.makeTimeValue(seconds);
  TevalCursor freshTimes;
  return compareBits("a sampler (time value)", seconds, seconds, sampler.evaluate(time),
                     curve.evaluate(time, freshTimes));
}

}  // namespace lumora
