#include "lumora/curve/bezier_segment_evaluator.h"

#include <cmath>

#include "lumora/curve/internal/root_finder.h"

namespace lumora {

namespace {

// Chord durations below this make the spline slope vertical.
constexpr double kMinChord = 0.0001;
// Spans this short or shorter count as level for the smooth rule.
constexpr double kMinSmoothSpan = 0.01;

struct Tpoint {
  double x, y;
};

Tpoint lerp(const Tpoint& a, const Tpoint& b, double s) {
  return {a.x + (b.x - a.x) * s, a.y + (b.y - a.y) * s};
}

void thriceHandle(const Tpoint& from, const Tpoint& to, float& x, float& y) {
  x = static_cast<float>(3.0 * (to.x - from.x));
  y = static_cast<float>(3.0 * (to.y - from.y));
}

bool storeTangent(Tkeyframe* key, bool inSide, float x, float y) {
  if (key == nullptr || !std::isfinite(x) || !std::isfinite(y)) return false;
  if (x < 0.0f) x = 0.0f;
  const TpickKey::TpickBits side = inSide ? Tkeyframe::kInSide : Tkeyframe::kOutSide;
  float cx = 0.0f;
  float cy = 0.0f;
  key->getTangent(side, cx, cy);
  if (cx == x && cy == y) return false;
  key->setTangent(side, x, y);
  return true;
}

}  // namespace

TbezierSegmentEvaluator::TbezierSegmentEvaluator(bool isFloat) : TsegmentEvaluator(isFloat) {
  machineEpsilon();  // fixed once, before the first root is searched for
}

TbezierSegmentEvaluator::~TbezierSegmentEvaluator() = default;

// --- Segment ---------------------------------------------------------------------------

void TbezierSegmentEvaluator::setSegment(double x0, double y0, double& x1, double& y1, double& x2,
                                         double& y2, double x3, double y3, bool keepFirst) {
  if (!fSpan.load(x0, y0, x1, y1, x2, y2, x3, y3, keepFirst)) return;
  fX0 = x0;
  fY0 = y0;
  fX1 = x1;
  fY1 = y1;
  fX2 = x2;
  fY2 = y2;
  fX3 = x3;
  fY3 = y3;
}

double TbezierSegmentEvaluator::evaluate(double t) const {
  return fSpan.evaluate(t);
}

// --- Writing tangents --------------------------------------------------------------------

bool TbezierSegmentEvaluator::setTanIn(Tkeyframe* key, float x, float y) {
  return storeTangent(key, /*inSide=*/true, x, y);
}

bool TbezierSegmentEvaluator::setTanOut(Tkeyframe* key, float x, float y) {
  return storeTangent(key, /*inSide=*/false, x, y);
}

// --- Queries on the loaded segment ---------------------------------------------------------

void TbezierSegmentEvaluator::segmentExtremes(double& minValue, double& maxValue, double& minTime,
                                              double& maxTime) const {
  minValue = maxValue = fY0;
  minTime = maxTime = fX0;
  const auto consider = [&](double time, double value) {
    if (value < minValue) {
      minValue = value;
      minTime = time;
    }
    if (value > maxValue) {
      maxValue = value;
      maxTime = time;
    }
  };

  const double h = fX3 - fX0;
  const double derivative[3] = {fSpan.yc1, 2.0 * fSpan.yc2, 3.0 * fSpan.yc3};
  double turns[2];
  const int count = internal::findPolynomialRoots(derivative, 2, 0.0, 1.0, false, false, turns);
  for (int i = 0; i < count; ++i) {
    const double s = turns[i];
    const double u = fSpan.timeIsLinear ? s : fSpan.timeAt(s);
    consider(fX0 + h * u, fSpan.valueAt(s));
  }
  consider(fX3, fY3);
}

double TbezierSegmentEvaluator::splitSegment(double t, float& keyInX, float& keyInY, float& keyOutX,
                                             float& keyOutY, float& prevOutX, float& prevOutY,
                                             float& nextInX, float& nextInY) {
  const double u = fSpan.normalisedTime(t);
  const double s = fSpan.timeIsLinear ? u : fSpan.parameterAt(u);

  const Tpoint p0{fX0, fY0};
  const Tpoint p1{fX1, fY1};
  const Tpoint p2{fX2, fY2};
  const Tpoint p3{fX3, fY3};
  const Tpoint p01 = lerp(p0, p1, s);
  const Tpoint p12 = lerp(p1, p2, s);
  const Tpoint p23 = lerp(p2, p3, s);
  const Tpoint p012 = lerp(p01, p12, s);
  const Tpoint p123 = lerp(p12, p23, s);
  const Tpoint mid = lerp(p012, p123, s);

  thriceHandle(p0, p01, prevOutX, prevOutY);
  thriceHandle(p012, mid, keyInX, keyInY);
  thriceHandle(mid, p123, keyOutX, keyOutY);
  thriceHandle(p23, p3, nextInX, nextInY);
  return mid.y;
}

// --- Tangent rules --------------------------------------------------------------------------

void TbezierSegmentEvaluator::tangentSpline(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const Tspans s = spans(prev, *key, next);
  if (s.hasPrev && s.hasNext) {
    const double slope =
        std::fabs(s.dtChord) >= kMinChord ? s.dvChord / s.dtChord : verticalSlope();
    writeRuleResult(key, kTangentSpline, s.dtIn, s.dtIn * slope, s.dtOut, s.dtOut * slope);
    return;
  }
  if (s.hasPrev) {
    writeRuleResult(key, kTangentSpline, s.dtIn, s.dvIn, s.dtIn, s.dvIn);
    return;
  }
  if (s.hasNext) {
    writeRuleResult(key, kTangentSpline, s.dtOut, s.dvOut, s.dtOut, s.dvOut);
    return;
  }
  writeRuleResult(key, kTangentSpline, 1.0, 0.0, 1.0, 0.0);
}

void TbezierSegmentEvaluator::tangentSmooth(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const Tspans s = spans(prev, *key, next);
  const double slopeIn = s.dtIn > kMinSmoothSpan ? s.dvIn / s.dtIn : 0.0;
  const double slopeOut = s.dtOut > kMinSmoothSpan ? s.dvOut / s.dtOut : 0.0;
  const double inLength2 = s.hasPrev ? s.dvIn * s.dvIn + s.dtIn * s.dtIn : 0.0;
  const double outLength2 = s.hasNext ? s.dvOut * s.dvOut + s.dtOut * s.dtOut : 0.0;

  if (s.hasPrev && s.hasNext && !(inLength2 == 0.0 && outLength2 == 0.0)) {
    const double inLength = std::sqrt(inLength2);
    const double outLength = std::sqrt(outLength2);
    // Each slope is weighted by the length of the opposite span.
    const double slope = (slopeOut * inLength + outLength * slopeIn) / (outLength + inLength);
    const double ax = s.dtIn;
    const double ay = slope * s.dtIn;
    const double bx = s.dtOut;
    const double by = slope * s.dtOut;
    // The shorter handle serves both sides (ties take the in side's).
    if (bx * bx + by * by < ax * ax + ay * ay) {
      writeRuleResult(key, kTangentSmooth, bx, by, bx, by);
    } else {
      writeRuleResult(key, kTangentSmooth, ax, ay, ax, ay);
    }
    return;
  }
  if (s.hasPrev && !s.hasNext) {
    writeRuleResult(key, kTangentSmooth, s.dtIn, s.dvIn, s.dtIn, s.dvIn);
    return;
  }
  if (s.hasNext && !s.hasPrev) {
    writeRuleResult(key, kTangentSmooth, s.dtOut, s.dvOut, s.dtOut, s.dvOut);
    return;
  }
  // No neighbour, or two neighbours that coincide with the key.
  writeRuleResult(key, kTangentSmooth, 0.0, 0.0, 0.0, 0.0);
}

}  // namespace lumora
