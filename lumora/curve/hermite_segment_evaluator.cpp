#include "lumora/curve/hermite_segment_evaluator.h"

#include <cfloat>
#include <cmath>

#include "lumora/curve/internal/root_finder.h"

namespace lumora {

namespace {

// A stored direction whose x is at most this is treated as vertical.
constexpr float kVerticalX = 0.00001f;
// The x of the near-vertical form; its y is verticalSlope() times this.
constexpr float kNearVerticalX = 0.0001f;
// Chord durations below this make the spline slope vertical.
constexpr double kMinChord = 0.0001;

// Slope of the handle from (xa, ya) to (xb, yb); a handle of zero duration is
// vertical upwards, whatever the sign of its value component.
double handleSlope(double xa, double ya, double xb, double yb) {
  if (xb != xa) return (yb - ya) / (xb - xa);
  return verticalSlope();
}

// The storage form of the direction (1, slope). A slope beyond the float range
// saturates first; a NaN slope gives (0, 0).
void slopeToStorage(double slope, float& x, float& y) {
  x = 0.0f;
  y = 0.0f;
  if (std::isnan(slope)) return;
  const double clamped = std::fmax(-FLT_MAX, std::fmin(FLT_MAX, slope));
  ThermiteSegmentEvaluator::directionToStorage(1.0f, static_cast<float>(clamped), x, y);
}

}  // namespace

ThermiteSegmentEvaluator::ThermiteSegmentEvaluator(bool isFloat) : TsegmentEvaluator(isFloat) {}

ThermiteSegmentEvaluator::~ThermiteSegmentEvaluator() = default;

// --- Segment ---------------------------------------------------------------------------

void ThermiteSegmentEvaluator::setSegment(double x0, double y0, double& x1, double& y1, double& x2,
                                          double& y2, double x3, double y3, bool) {
  fX0 = x0;
  fY0 = y0;
  fX1 = x1;
  fY1 = y1;
  fX2 = x2;
  fY2 = y2;
  fX3 = x3;
  fY3 = y3;
  fSpan = ThermiteSpan::fromControlPoints(x0, y0, x1, y1, x2, y2, x3, y3);
}

double ThermiteSegmentEvaluator::endSlope() const {
  return handleSlope(fX2, fY2, fX3, fY3);
}

// --- Writing tangents --------------------------------------------------------------------

bool ThermiteSegmentEvaluator::directionToStorage(float x, float y, float& storedX,
                                                  float& storedY) {
  if (!std::isfinite(x) || !std::isfinite(y)) return false;
  double dx = x < 0.0f ? 0.0 : static_cast<double>(x);
  double dy = static_cast<double>(y);
  const double length = std::sqrt(dx * dx + dy * dy);
  if (length != 0.0) {
    dx /= length;
    dy /= length;
  }
  if (static_cast<float>(dx) <= kVerticalX && std::fabs(dy) > 1e-10) {
    // Keep a finite slope: the direction of 89.99999 degrees, up or down.
    const double nearX = static_cast<double>(kNearVerticalX);
    dx = nearX;
    dy = (dy >= 0.0 ? 1.0 : -1.0) * verticalSlope() * nearX;
  }
  storedX = static_cast<float>(dx);
  storedY = static_cast<float>(dy);
  return true;
}

bool ThermiteSegmentEvaluator::setTanIn(Tkeyframe* key, float x, float y) {
  if (key == nullptr) return false;
  float sx = 0.0f;
  float sy = 0.0f;
  if (!directionToStorage(x, y, sx, sy)) return false;
  float cx = 0.0f;
  float cy = 0.0f;
  key->getTanIn(cx, cy);
  if (cx == sx && cy == sy) return false;
  key->setTanIn(sx, sy);
  return true;
}

bool ThermiteSegmentEvaluator::setTanOut(Tkeyframe* key, float x, float y) {
  if (key == nullptr) return false;
  float sx = 0.0f;
  float sy = 0.0f;
  if (!directionToStorage(x, y, sx, sy)) return false;
  float cx = 0.0f;
  float cy = 0.0f;
  key->getTanOut(cx, cy);
  if (cx == sx && cy == sy) return false;
  key->setTanOut(sx, sy);
  return true;
}

// --- Queries on the loaded segment ---------------------------------------------------------

void ThermiteSegmentEvaluator::segmentExtremes(double& minValue, double& maxValue, double& minTime,
                                               double& maxTime) const {
  minValue = maxValue = fSpan.d;
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
  if (!(h > 0.0)) return;  // no duration: the constant y0
  const double derivative[3] = {fSpan.c, 2.0 * fSpan.b, 3.0 * fSpan.a};
  double turns[2];
  const int count = internal::findPolynomialRoots(derivative, 2, 0.0, h, false, false, turns);
  for (int i = 0; i < count; ++i) {
    const double s = turns[i];
    consider(fX0 + s, evaluateAfterStart(s));
  }
  consider(fX3, fY3);
}

double ThermiteSegmentEvaluator::splitSegment(double t, float& keyInX, float& keyInY,
                                              float& keyOutX, float& keyOutY, float& prevOutX,
                                              float& prevOutY, float& nextInX, float& nextInY) {
  const double s = t - fX0;
  const double value = evaluateAfterStart(s);
  const double slope = (3.0 * fSpan.a * s + 2.0 * fSpan.b) * s + fSpan.c;
  slopeToStorage(slope, keyInX, keyInY);
  keyOutX = keyInX;
  keyOutY = keyInY;
  // The outer halves keep the segment's end slopes (the original handles'
  // slopes, also for a segment without duration).
  slopeToStorage(handleSlope(fX0, fY0, fX1, fY1), prevOutX, prevOutY);
  slopeToStorage(endSlope(), nextInX, nextInY);
  return value;
}

// --- Tangent rules --------------------------------------------------------------------------

void ThermiteSegmentEvaluator::tangentSpline(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const Tspans s = spans(prev, *key, next);
  double x = 1.0;
  double y = 0.0;
  if (s.hasPrev && s.hasNext) {
    y = std::fabs(s.dtChord) >= kMinChord ? s.dvChord / s.dtChord : verticalSlope();
  } else if (s.hasPrev) {
    x = s.dtIn;
    y = s.dvIn;
  } else if (s.hasNext) {
    x = s.dtOut;
    y = s.dvOut;
  }
  writeRuleResult(key, kTangentSpline, x, y, x, y);
}

void ThermiteSegmentEvaluator::tangentSmooth(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) {
  if (key == nullptr) return;
  const bool inSmooth = key->tanInType() == kTangentSmooth;
  const bool outSmooth = key->tanOutType() == kTangentSmooth;
  if (inSmooth) key->setTanInType(kTangentSpline);
  if (outSmooth) key->setTanOutType(kTangentSpline);
  tangentSpline(prev, key, next);
  if (inSmooth) key->setTanInType(kTangentSmooth);
  if (outSmooth) key->setTanOutType(kTangentSmooth);
}

}  // namespace lumora
