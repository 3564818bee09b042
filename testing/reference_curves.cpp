#include "testing/reference_curves.h"

#include <cmath>
#include <cstdint>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"

namespace lumora::reference {

namespace {

// Empties the curve and gives it the weighting and infinities of one shape.
bool prepare(TparamCurve& curve, bool weighted, TparamCurve::TinfinityType pre,
             TparamCurve::TinfinityType post) {
  curve.removeAllKeys();
  curve.setIsWeighted(weighted);
  if (curve.isWeighted() != weighted) return false;
  curve.setPreInfinityType(pre);
  curve.setPostInfinityType(post);
  return curve.preInfinityType() == pre && curve.postInfinityType() == post;
}

// A key at `seconds`, in the curve's own kind of time.
Tkeyframe keyAt(const TparamCurve& curve, float seconds, double value, TtangentType in,
                TtangentType out) {
  return Tkeyframe(curve.makeTimeValue(seconds), value, in, out);
}

// Non-weighted curves store a tangent as a unit direction; only its slope
// shapes the segment.
struct Tdirection {
  float x;
  float y;
};

Tdirection directionOfSlope(double slope) {
  const double length = std::hypot(1.0, slope);
  return {static_cast<float>(1.0 / length), static_cast<float>(slope / length)};
}

// xorshift32: tiny, and the same sequence everywhere, unlike the standard
// distributions whose output is left to each library.
class TvalueSequence {
 public:
  explicit TvalueSequence(unsigned seed)
      : fState(static_cast<std::uint32_t>(seed) * 2654435761u + 0x9E3779B9u) {
    if (fState == 0) fState = 1;  // zero is the one state xorshift never leaves
  }

  /// The next value in [-1, 1).
  double next() {
    fState ^= fState << 13;
    fState ^= fState >> 17;
    fState ^= fState << 5;
    return static_cast<double>(fState >> 8) / 8388608.0 - 1.0;
  }

 private:
  std::uint32_t fState;
};

}  // namespace

bool bouncingBall(TparamCurve& curve) {
  if (!prepare(curve, /*weighted=*/false, TparamCurve::kConstant, TparamCurve::kCycle)) {
    return false;
  }
  // The slope of the parabola through the ground, apex and landing keys at
  // either end of the flight; a Hermite segment with these end slopes is that
  // parabola exactly.
  const double flightSlope = 2.0 * kBallApexHeight / static_cast<double>(kBallApexTime);
  const Tdirection up = directionOfSlope(flightSlope);
  const Tdirection down = directionOfSlope(-flightSlope);

  Tkeyframe launch = keyAt(curve, 0.0f, 0.0, kTangentLinear, kTangentFixed);
  launch.setTanOut(up.x, up.y);
  const Tkeyframe apex =
      keyAt(curve, kBallApexTime, kBallApexHeight, kTangentSpline, kTangentSpline);
  Tkeyframe land = keyAt(curve, kBallLandTime, 0.0, kTangentFixed, kTangentStep);
  land.setTanIn(down.x, down.y);
  // The last key repeats the launch: the cycle starts over from it.
  Tkeyframe squashed = keyAt(curve, kBallPeriod, 0.0, kTangentClamped, kTangentFixed);
  squashed.setTanOut(up.x, up.y);

  return curve.add(launch) && curve.add(apex) && curve.add(land) && curve.add(squashed);
}

bool twoKeyBezier(TparamCurve& curve) {
  if (!prepare(curve, /*weighted=*/true, TparamCurve::kConstant, TparamCurve::kConstant)) {
    return false;
  }
  // Weighted control points lie a third of the tangent away from the key:
  // (0.8, 2) and (1.5, 10), at 0.4 and 0.75 of the two-second span.
  Tkeyframe first = keyAt(curve, 0.0f, 0.0, kTangentFixed, kTangentFixed);
  first.setTanIn(2.4f, 6.0f);
  first.setTanOut(2.4f, 6.0f);
  Tkeyframe last = keyAt(curve, 2.0f, 10.0, kTangentFixed, kTangentFixed);
  last.setTanIn(1.5f, 0.0f);
  last.setTanOut(1.5f, 0.0f);
  return curve.add(first) && curve.add(last);
}

bool regressiveS(TparamCurve& curve) {
  if (!prepare(curve, /*weighted=*/true, TparamCurve::kConstant, TparamCurve::kConstant)) {
    return false;
  }
  // Control points (1.5, 0) and (-0.5, 1): each handle ends half a span
  // beyond the opposite key.
  Tkeyframe first = keyAt(curve, 0.0f, 0.0, kTangentFixed, kTangentFixed);
  first.setTanIn(4.5f, 0.0f);
  first.setTanOut(4.5f, 0.0f);
  Tkeyframe last = keyAt(curve, 1.0f, 1.0, kTangentFixed, kTangentFixed);
  last.setTanIn(4.5f, 0.0f);
  last.setTanOut(4.5f, 0.0f);
  return curve.add(first) && curve.add(last);
}

bool denseSpline(TparamCurve& curve, unsigned keys, unsigned seed) {
  if (!prepare(curve, /*weighted=*/false, TparamCurve::kConstant, TparamCurve::kConstant)) {
    return false;
  }
  TvalueSequence values(seed);
  for (unsigned i = 0; i < keys; ++i) {
    const Tkeyframe key =
        keyAt(curve, static_cast<float>(i), values.next(), kTangentSpline, kTangentSpline);
    if (!curve.add(key)) return false;
  }
  return true;
}

}  // namespace lumora::reference
