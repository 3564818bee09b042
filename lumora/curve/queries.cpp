// TparamCurve: which key is closest to a time, a point or a value, and the
// box the curve occupies.
#include <algorithm>
#include <cfloat>
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

// --- The keys of the repeated copies ---------------------------------------------------------
//
// Outside the keyed range [start, end] a looping side repeats the range in
// copies of length R = end - start, counted from 1 outward. Within copy j a
// key sits at the distance s in [0, R) from where the copy begins (end for
// the side after the keys, start for the side before), and the copy maps s
// to a time of the range either as start + s or as end - s, as evaluation
// of the infinity does: that decides which keys a copy shows (the one at
// s = R belongs to the next copy) and in which order. Copy 1's key at s = 0
// is the end key of the range itself.

namespace {

enum class Tside { kPost, kPre };

struct Tcopies {
  const TparamCurve* curve;
  Tside side;
  TparamCurve::TinfinityType type;
  bool ticks;
  unsigned n;
  double start;
  double end;
  double range;

  double keyUnits(unsigned i) const {
    const Tkeyframe* key = curve->keyframe(i);
    return ticks ? static_cast<double>(key->timeAsTicks())
                 : static_cast<double>(key->timeAsFloat());
  }
  // Whether copy j maps s to start + s (true) or to end - s.
  bool fromStart(std::uint64_t j) const {
    const bool odd = (j % 2) == 1;
    if (side == Tside::kPost) return type == TparamCurve::kOscillate ? !odd : true;
    return type == TparamCurve::kOscillate ? odd : false;
  }
  // The s of key i in a copy of that direction.
  double distanceOf(unsigned i, bool up) const {
    return up ? keyUnits(i) - start : end - keyUnits(i);
  }
  // The first key in [lo, hi] later than u, or hi + 1.
  unsigned firstAfter(double u, unsigned lo, unsigned hi) const {
    unsigned a = lo, b = hi + 1;
    while (a < b) {
      const unsigned mid = a + (b - a) / 2;
      if (keyUnits(mid) > u) {
        b = mid;
      } else {
        a = mid + 1;
      }
    }
    return a;
  }
  // The last key in [lo, hi] earlier than u, or lo - 1 (wrapping below 0).
  unsigned lastBefore(double u, unsigned lo, unsigned hi) const {
    return firstAfter(std::nextafter(u, -HUGE_VAL), lo, hi) - 1;
  }
  // The key of copy j with the least s above `s` (outward) or the greatest
  // below it (inward); false when the copy has none.
  bool nextIn(std::uint64_t j, double s, bool outward, unsigned& i) const {
    const bool up = fromStart(j);
    // Keys a copy shows: s in [0, R).
    const unsigned lo = up ? 0 : 1;
    const unsigned hi = up ? n - 2 : n - 1;
    if (up) {
      i = outward ? firstAfter(start + s, lo, hi) : lastBefore(start + s, lo, hi);
    } else {
      i = outward ? lastBefore(end - s, lo, hi) : firstAfter(end - s, lo, hi);
    }
    return i >= lo && i <= hi;
  }
};

}  // namespace

Tkeyframe* TparamCurve::getNextKey(const TtimeValue& t, bool forward, bool& allocated) const {
  allocated = false;
  const unsigned n = keyframeCount();
  if (n == 0 || !usable(t)) return nullptr;
  const bool ticks = isAnimTime();
  const TtimeValue at = t.isAnimTime() == ticks ? t : makeTimeValue(t.inSeconds());
  const double u = ticks ? static_cast<double>(at.asAnimTime().inTicks()) : at.asFloat();
  Tcopies c{this, Tside::kPost, fPostInfinity, ticks, n, 0.0, 0.0, 0.0};
  c.start = c.keyUnits(0);
  c.end = c.keyUnits(n - 1);
  c.range = c.end - c.start;

  // Within the range: the curve's own keys.
  if (forward && u >= c.start && u < c.end) return keyframe(c.firstAfter(u, 0, n - 1));
  if (!forward && u > c.start && u <= c.end) return keyframe(c.lastBefore(u, 0, n - 1));
  // Outside it: the side `u` lies on, walked outward (away from the keys)
  // or inward.
  c.side = (forward ? u >= c.end : u > c.end) ? Tside::kPost : Tside::kPre;
  c.type = c.side == Tside::kPost ? fPostInfinity : fPreInfinity;
  const bool outward = c.side == Tside::kPost ? forward : !forward;
  const bool loops = c.type == kCycle || c.type == kCycleRelative || c.type == kOscillate;
  if (!(c.range > 0.0) || !loops) {
    // No copies: inward comes the end key of the range itself.
    if (outward) return nullptr;
    return keyframe(c.side == Tside::kPost ? n - 1 : 0u);
  }

  // Where `u` lies: copy j, distance s into it.
  const double d = c.side == Tside::kPost ? u - c.end : c.start - u;
  double whole = std::floor(d / c.range);
  if (!(whole < 4e18)) return nullptr;  // beyond counting copies
  auto j = static_cast<std::uint64_t>(whole) + 1;
  double s = d - whole * c.range;
  if (s < 0.0) s = 0.0;
  if (s >= c.range) {
    ++j;
    s = 0.0;
  }
  for (int attempt = 0; attempt < 4; ++attempt) {
    unsigned i = 0;
    if (!c.nextIn(j, s, outward, i)) {
      if (outward) {
        ++j;
        i = c.fromStart(j) ? 0 : n - 1;
      } else if (j == 1) {
        // Back at the range: its end key.
        return keyframe(c.side == Tside::kPost ? n - 1 : 0u);
      } else {
        --j;
        i = c.fromStart(j) ? n - 2 : 1;
      }
    }
    const double si = c.distanceOf(i, c.fromStart(j));
    if (j == 1 && si == 0.0) return keyframe(c.side == Tside::kPost ? n - 1 : 0u);
    const double offset = static_cast<double>(j - 1) * c.range + si;
    const double units = c.side == Tside::kPost ? c.end + offset : c.start - offset;
    TtimeValue time;
    if (ticks) {
      if (units < -2147483648.0 || units > 2147483647.0) return nullptr;
      time = TtimeValue(TanimTime(static_cast<std::int32_t>(units)));
    } else {
      if (!(std::fabs(units) <= FLT_MAX)) return nullptr;
      time = TtimeValue(static_cast<float>(units));
    }
    // Far from zero float seconds may round a copy's key onto `t` or past
    // it: the search goes on from there.
    const double got = ticks ? static_cast<double>(time.asAnimTime().inTicks()) : time.asFloat();
    if (forward ? got <= u : got >= u) {
      s = si;
      continue;
    }
    const Tkeyframe* source = keyframe(i);
    auto* copy = new Tkeyframe(*source);
    double value = source->value();
    if (c.type == kCycleRelative) {
      const double rise = keyframe(n - 1)->value() - keyframe(0u)->value();
      value += (c.side == Tside::kPost ? rise : -rise) * static_cast<double>(j);
    }
    copy->setTimeAndValue(time, value, source->quaternionW());
    const bool mirrored = c.side == Tside::kPost ? !c.fromStart(j) : c.fromStart(j);
    if (mirrored) {
      float inX = 0.0f, inY = 0.0f, outX = 0.0f, outY = 0.0f;
      source->getTanIn(inX, inY);
      source->getTanOut(outX, outY);
      copy->setTangentType(Tkeyframe::kInSide, source->tanOutType());
      copy->setTangentType(Tkeyframe::kOutSide, source->tanInType());
      copy->setTangent(Tkeyframe::kInSide, outX, -outY);
      copy->setTangent(Tkeyframe::kOutSide, inX, -inY);
    }
    allocated = true;
    return copy;
  }
  return nullptr;
}

}  // namespace lumora
