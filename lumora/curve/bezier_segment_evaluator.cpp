#include "lumora/curve/bezier_segment_evaluator.h"

#include <cmath>

#include "lumora/curve/internal/root_finder.h"

namespace lumora {

namespace {

constexpr double kOneThird = 0.3333333333333333;
constexpr double kTwoThirds = 0.6666666666666666;
constexpr double kFourThirds = 1.3333333333333333;
// Room kept between an adjusted handle and the monotonic limit.
constexpr double kMargin = 1e-10;
// Chord durations below this make the spline slope vertical.
constexpr double kMinChord = 0.0001;
// Spans this short or shorter count as level for the smooth rule.
constexpr double kMinSmoothSpan = 0.01;

struct Tcubic {
  double c0, c1, c2, c3;
};

// Bezier control values to power basis, constant term first.
Tcubic powerBasis(double p0, double p1, double p2, double p3) {
  const double e = p1 - p0;
  const double g = p2 - p1;
  const double f = g - e;
  return {p0, 3.0 * e, 3.0 * f, p3 - p2 - g - f};
}

// Shortens the handle pair so that x(s) = Bezier(0, a, b, 1) never decreases
// on [0, 1]. `a` is the first handle's normalised time, `b` the second's.
void constrainMonotonic(double& a, double& b, bool keepFirst) {
  b = 1.0 - b;  // from here on, b is the second handle's distance from the end
  if (a < 0.0) a = 0.0;
  if (b < 0.0) b = 0.0;
  if (a <= 1.0 && b <= 1.0) {
    b = 1.0 - b;
    return;
  }
  // D > 0 outside the ellipse of monotonic handle pairs.
  const double d = (a - 2.0 + b) * a + (b - 2.0) * b + 1.0 + kMargin;
  if (d > 0.0) {
    double& p = keepFirst ? a : b;
    double& q = keepFirst ? b : a;
    if (p + kMargin >= kFourThirds) {
      p = kFourThirds - kMargin;
      q = kOneThird - kMargin;
    } else {
      const double s = p - 2.0;
      const double r = p - 1.0;
      const double root = std::sqrt(s * s - 4.0 * r * r);
      const double upper = (root - s) * 0.5;
      const double lower = (-s - root) * 0.5 + kMargin;
      if (q + kMargin > upper) {
        q = upper - kMargin;
      } else if (lower > q) {
        q = lower;
      }
    }
  }
  b = 1.0 - b;
}

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
  const double h = x3 - x0;
  if (h == 0.0 || std::isnan(h)) return;

  double u1 = (x1 - x0) / h;
  double u2 = (x2 - x0) / h;
  const double u1o = u1;
  const double u2o = u2;
  fTimeIsLinear = (std::fabs(u1 - kOneThird) < 1e-6 && std::fabs(u2 - kTwoThirds) < 1e-6) ? 1 : 0;

  if (u1 < 0.0) u1 = 0.0;
  if (u2 > 1.0) u2 = 1.0;
  // Only handles beyond the far end, or the second one more than a whole
  // segment before the start, are constrained.
  if (u1 > 1.0 || u2 < -1.0) constrainMonotonic(u1, u2, keepFirst);

  if (u1 != u1o) {
    x1 = u1 * h + x0;
    if (std::fabs(u1o) > 1e-10) y1 = (y1 - y0) * u1 / u1o + y0;
  }
  if (u2 != u2o) {
    x2 = u2 * h + x0;
    if (std::fabs(1.0 - u2o) > 1e-10) y2 = y3 - (y3 - y2) * (1.0 - u2) / (1.0 - u2o);
  }

  fX0 = x0;
  fY0 = y0;
  fX1 = x1;
  fY1 = y1;
  fX2 = x2;
  fY2 = y2;
  fX3 = x3;
  fY3 = y3;

  const Tcubic xc = powerBasis(0.0, u1, u2, 1.0);
  fXc0 = xc.c0;
  fXc1 = xc.c1;
  fXc2 = xc.c2;
  fXc3 = xc.c3;
  const Tcubic yc = powerBasis(y0, y1, y2, y3);
  fYc0 = yc.c0;
  fYc1 = yc.c1;
  fYc2 = yc.c2;
  fYc3 = yc.c3;
}

double TbezierSegmentEvaluator::normalisedTime(double t) const {
  if (std::fabs(t - fX0) <= 1e-10) return 0.0;
  if (std::fabs(t - fX3) <= 1e-10) return 1.0;
  return (t - fX0) / (fX3 - fX0);
}

double TbezierSegmentEvaluator::parameterAt(double u) const {
  const double c[4] = {fXc0 - u, fXc1, fXc2, fXc3};
  double roots[3];
  const int count = internal::findPolynomialRoots(c, 3, 0.0, 1.0, true, true, roots);
  return count == 1 ? roots[0] : 0.0;
}

double TbezierSegmentEvaluator::evaluate(double t) const {
  const double u = normalisedTime(t);
  const double s = fTimeIsLinear ? u : parameterAt(u);
  return valuePolynomial(s);
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
  const double derivative[3] = {fYc1, 2.0 * fYc2, 3.0 * fYc3};
  double turns[2];
  const int count = internal::findPolynomialRoots(derivative, 2, 0.0, 1.0, false, false, turns);
  for (int i = 0; i < count; ++i) {
    const double s = turns[i];
    const double u = fTimeIsLinear ? s : timePolynomial(s);
    consider(fX0 + h * u, valuePolynomial(s));
  }
  consider(fX3, fY3);
}

double TbezierSegmentEvaluator::splitSegment(double t, float& keyInX, float& keyInY, float& keyOutX,
                                             float& keyOutY, float& prevOutX, float& prevOutY,
                                             float& nextInX, float& nextInY) {
  const double u = normalisedTime(t);
  const double s = fTimeIsLinear ? u : parameterAt(u);

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
