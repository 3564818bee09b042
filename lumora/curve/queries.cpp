// TparamCurve: which key is closest to a time, a point or a value, and the
// box the curve occupies.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "lumora/curve/eval_cursor.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"

namespace lumora {

namespace {

bool usable(const TtimeValue& t) {
  return !t.isNeither() && !(t.isFloat() && std::isnan(t.asFloat()));
}

// The distance between two times of a curve. Float seconds are truncated to
// whole seconds, so keys less than a second apart from the time tie: graph
// editors snap to the nearest key in whole seconds, and the tie rules of
// findClosestKeyframe rest on it.
float timeDistance(bool ticks, const TtimeValue& a, const TtimeValue& b) {
  if (ticks) {
    const std::int64_t d = std::int64_t{a.asAnimTime().inTicks()} - b.asAnimTime().inTicks();
    return static_cast<float>(d < 0 ? -d : d);
  }
  const float d = a.asFloat() - b.asFloat();
  return std::fabs(std::trunc(d));
}

// The control polygon of a span: the four Bezier control values and the
// times of their control points. The polygon contains the span's curve.
struct Tpolygon {
  double value[4];
  double time[4];
};

Tpolygon polygonOf(const TparamCurve& c, unsigned i) {
  const Tkeyframe* a = c.keyframe(i);
  const Tkeyframe* b = c.keyframe(i + 1);
  const double t0 = c.seconds(a);
  const double t3 = c.seconds(b);
  float outX = 0.0f, outY = 0.0f, inX = 0.0f, inY = 0.0f;
  a->getTanOut(outX, outY);
  b->getTanIn(inX, inY);
  Tpolygon p{};
  p.value[0] = a->value();
  p.value[3] = b->value();
  p.time[0] = t0;
  p.time[3] = t3;
  if (c.isWeighted()) {
    // Weighted tangents are three times their handles.
    p.value[1] = p.value[0] + outY / 3.0;
    p.value[2] = p.value[3] - inY / 3.0;
    p.time[1] = t0 + outX / 3.0;
    p.time[2] = t3 - inX / 3.0;
  } else {
    // Unit directions: the handles reach a third of the span in time, a
    // vertical one its own length.
    const double h = (t3 - t0) / 3.0;
    p.value[1] =
        outX != 0.0f ? p.value[0] + static_cast<double>(outY) / outX * h : p.value[0] + outY;
    p.value[2] = inX != 0.0f ? p.value[3] - static_cast<double>(inY) / inX * h : p.value[3] - inY;
    p.time[1] = t0 + h;
    p.time[2] = t3 - h;
  }
  return p;
}

void widenBy(const Tpolygon& p, double& minValue, double& maxValue) {
  for (const double v : p.value) {
    minValue = std::min(minValue, v);
    maxValue = std::max(maxValue, v);
  }
}

TkeyframeHandle* handleTo(const TparamCurve& c, unsigned index) {
  return new TkeyframeHandle(const_cast<TparamCurve*>(&c), index, /*makeClient=*/false);
}

}  // namespace

TkeyframeHandle* TparamCurve::findClosestKeyframe(const TtimeValue& t) const {
  const unsigned n = keyframeCount();
  if (n == 0 || !usable(t)) return nullptr;
  const bool ticks = isAnimTime();
  const TtimeValue at = t.isAnimTime() == ticks ? t : makeTimeValue(t.inSeconds());
  unsigned idx = 0;
  if (find(at, idx)) return handleTo(*this, idx);
  if (idx == 0) return handleTo(*this, 0u);
  if (idx >= n) return handleTo(*this, n - 1);
  const float dIdx = timeDistance(ticks, at, timeValue(idx));
  const float dPrev = timeDistance(ticks, at, timeValue(idx - 1));
  if (idx >= n - 1) return handleTo(*this, dPrev < dIdx ? idx - 1 : idx);
  const float dNext = timeDistance(ticks, at, timeValue(idx + 1));
  if (dPrev < dIdx) return handleTo(*this, dPrev < dNext ? idx - 1 : idx + 1);
  return handleTo(*this, dNext < dIdx ? idx + 1 : idx);
}

TkeyframeHandle* TparamCurve::findClosestKeyframe(const TtimeValue& t, double value,
                                                  bool selectedOnly) const {
  if (!usable(t) || std::isnan(value)) return nullptr;
  const TtimeValue at = t.isAnimTime() == isAnimTime() ? t : makeTimeValue(t.inSeconds());
  const unsigned n = keyframeCount();
  unsigned best = kInvalidIndex;
  double bestDistance = 0.0;
  for (unsigned i = 0; i < n; ++i) {
    const Tkeyframe* key = keyframe(i);
    if (selectedOnly && !key->isKeyframeActive()) continue;
    const double dt = (at - timeValue(key)).inSeconds();
    const double dv = value - key->value();
    const double d = dt * dt + dv * dv;
    if (d == 0.0) return handleTo(*this, i);
    if (best == kInvalidIndex || d < bestDistance) {
      best = i;
      bestDistance = d;
    }
  }
  return best == kInvalidIndex ? nullptr : handleTo(*this, best);
}

TkeyframeHandle* TparamCurve::findClosestValue(double value) const {
  const unsigned n = keyframeCount();
  if (n == 0 || std::isnan(value)) return nullptr;
  unsigned best = 0;
  double bestDistance = std::fabs(keyframe(0u)->value() - value);
  for (unsigned i = 0; i < n && bestDistance != 0.0; ++i) {
    const double d = std::fabs(keyframe(i)->value() - value);
    if (d < bestDistance) {
      best = i;
      bestDistance = d;
    }
  }
  return handleTo(*this, best);
}

void TparamCurve::boundingBox(float& minTime, double& minValue, float& maxTime, double& maxValue,
                              bool selectedOnly) const {
  // Quaternion rotation curves are boxed here on their own channel's keys
  // like any other curve until rotation interpolation brings the rotation
  // samples they would be boxed over.
  const unsigned n = keyframeCount();
  if (n == 0) return;
  const auto counts = [&](unsigned i) { return !selectedOnly || keyframe(i)->isKeyframeActive(); };
  if (!selectedOnly) {
    if (n == 1) {
      TevalCursor cursor;
      minTime = maxTime = seconds(0u);
      minValue = maxValue = evaluate(timeValue(0u), cursor);
      return;
    }
    if (n == 2) {
      boundingBox(0u, minTime, minValue, maxTime, maxValue, /*widen=*/false);
      return;
    }
  }
  bool any = false;
  float lowTime = 0.0f, highTime = 0.0f;
  double low = 0.0, high = 0.0;
  for (unsigned i = 0; i < n; ++i) {
    if (!counts(i)) continue;
    const float t = seconds(i);
    const double v = keyframe(i)->value();
    if (!any) {
      lowTime = highTime = t;
      low = high = v;
      any = true;
    }
    lowTime = std::min(lowTime, t);
    highTime = std::max(highTime, t);
    // The whole curve starts from its end keys' values; its inner keys lie
    // within the polygons of their spans.
    if (selectedOnly || i == 0 || i == n - 1) {
      low = std::min(low, v);
      high = std::max(high, v);
    }
  }
  if (!any) return;
  for (unsigned i = 0; i + 1 < n; ++i) {
    if (counts(i) && counts(i + 1)) widenBy(polygonOf(*this, i), low, high);
  }
  minTime = lowTime;
  maxTime = highTime;
  minValue = low;
  maxValue = high;
}

void TparamCurve::boundingBox(unsigned index, float& minTime, double& minValue, float& maxTime,
                              double& maxValue, bool widen) const {
  if (index >= keyframeCount() || index + 1 >= keyframeCount()) return;
  const Tpolygon p = polygonOf(*this, index);
  double low = p.value[0];
  double high = p.value[0];
  widenBy(p, low, high);
  const float t0 = seconds(index);
  const float t3 = seconds(index + 1);
  if (widen) {
    minTime = std::min(minTime, t0);
    maxTime = std::max(maxTime, t3);
    minValue = std::min(minValue, low);
    maxValue = std::max(maxValue, high);
  } else {
    minTime = t0;
    maxTime = t3;
    minValue = low;
    maxValue = high;
  }
}

bool TparamCurve::minMaxValueAndTime(unsigned index, float& minTime, double& minValue,
                                     float& maxTime, double& maxValue) const {
  if (index >= keyframeCount() || index + 1 >= keyframeCount()) return false;
  const Tpolygon p = polygonOf(*this, index);
  unsigned low = 0;
  unsigned high = 0;
  for (unsigned k = 1; k < 4; ++k) {
    if (p.value[k] < p.value[low]) low = k;
    if (p.value[k] > p.value[high]) high = k;
  }
  minValue = p.value[low];
  maxValue = p.value[high];
  minTime = static_cast<float>(p.time[low]);
  maxTime = static_cast<float>(p.time[high]);
  return true;
}

}  // namespace lumora
