// TparamCurve: which key is closest to a time, a point or a value, and the
// box the curve occupies.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>

#include "lumora/base/float_math.h"
#include "lumora/curve/eval_cursor.h"
#include "lumora/curve/internal/infinity_map.h"
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
// copies of length R = end - start. A time there is placed by its offset
// outward from the range's end on that side (after `end` for the side after
// the keys, before `start` for the side before): copy j, counted from 1,
// holds the offsets [(j - 1) R, j R), and a key of it sits at the distance
// s in [0, R) from where the copy begins. The copy maps s to a time of the
// range either as start + s or as end - s, as evaluation of the infinity
// does: that decides which keys a copy holds (the one at s = R belongs to
// the next copy) and in which order. Copy 1's key at s = 0 is the end key
// of the range itself.
//
// Which time comes next is settled exactly, in offsets. What the key there
// shows is settled by where evaluation maps that (rounded) time: where two
// copies meet, float arithmetic decides which copy evaluation reads, and the
// key must carry the value the curve has at its time.

namespace {

using internal::isOdd;
using internal::mapIntoRange;
using internal::Tmapped;

enum class Tside { kPost, kPre };

// What one side of a produced key repeats: a key of the range, and whether
// its copy runs backwards in time (the side then shows the key's other side,
// mirrored).
struct TsideSource {
  unsigned index;
  bool mirrored;
};

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
  // Whether copy j runs backwards in time: the odd copies of an oscillation.
  bool mirrored(std::uint64_t j) const { return type == TparamCurve::kOscillate && (j % 2) == 1; }
  // The s of key i in a copy of that direction.
  double distanceOf(unsigned i, bool up) const {
    return up ? keyUnits(i) - start : end - keyUnits(i);
  }
  double offsetOf(double units) const { return side == Tside::kPost ? units - end : start - units; }
  double unitsAt(double offset) const {
    return side == Tside::kPost ? end + offset : start - offset;
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

  // The copy j and distance s into it of an offset; false beyond counting
  // copies.
  bool locate(double offset, std::uint64_t& j, double& s) const {
    offset = std::max(offset, 0.0);
    const double whole = std::floor(offset / range);
    if (!(whole < 4e18)) return false;
    j = static_cast<std::uint64_t>(whole) + 1;
    s = std::max(offset - whole * range, 0.0);
    if (s >= range) {
      ++j;
      s = 0.0;
    }
    return true;
  }
  // The key of copy j with the least s above `s` (outward) or the greatest
  // below it (inward); false when the copy has none.
  bool nextIn(std::uint64_t j, double s, bool outward, unsigned& i) const {
    const bool up = fromStart(j);
    // Keys a copy holds: s in [0, R).
    const unsigned lo = up ? 0 : 1;
    const unsigned hi = up ? n - 2 : n - 1;
    if (up) {
      i = outward ? firstAfter(start + s, lo, hi) : lastBefore(start + s, lo, hi);
    } else {
      i = outward ? lastBefore(end - s, lo, hi) : firstAfter(end - s, lo, hi);
    }
    return i >= lo && i <= hi;
  }
  // The next key from s in copy j, outward or inward, as (j, i); false when
  // walking inward leaves copy 1 for the range itself.
  bool step(std::uint64_t& j, double s, bool outward, unsigned& i) const {
    if (nextIn(j, s, outward, i)) return true;
    if (outward) {
      ++j;
      i = fromStart(j) ? 0 : n - 1;
      return true;
    }
    if (j == 1) return false;
    --j;
    i = fromStart(j) ? n - 2 : 1;
    return true;
  }

  // Where evaluation maps `time` into the range, as the infinity evaluation
  // computes it, and how many periods away.
  Tmapped evaluationAt(const TtimeValue& time) const {
    const float tStart = curve->seconds(0u);
    const float tEnd = curve->seconds(n - 1);
    const bool afterEnd = !(time <= curve->timeValue(n - 1));
    return mapIntoRange(time.inSeconds(), tStart, tEnd, tEnd - tStart, afterEnd, type,
                        side == Tside::kPre);
  }
  // The key of the range nearest a mapped time. Mostly that is `hint`, the
  // key the offsets found, or where copies meet the range's other end: those
  // are tried first, as a key nearer than both its neighbours is the
  // nearest.
  unsigned nearestTo(float local, unsigned hint) const {
    const double u = ticks ? static_cast<double>(curve->makeTimeValue(local).asAnimTime().inTicks())
                           : static_cast<double>(local);
    const auto nearer = [&](unsigned a, unsigned b) {
      return std::fabs(keyUnits(a) - u) <= std::fabs(keyUnits(b) - u);
    };
    for (const unsigned k : {hint, hint == 0 ? n - 1 : 0u}) {
      if ((k == 0 || nearer(k, k - 1)) && (k == n - 1 || nearer(k, k + 1))) return k;
    }
    const unsigned above = firstAfter(u, 0, n - 1);
    if (above == 0) return 0;
    if (above == n) return n - 1;
    return nearer(above, above - 1) ? above : above - 1;
  }

  // Side `which` of `copy` as `from` shows it.
  void copySide(Tkeyframe& copy, TpickKey::TpickBits which, TsideSource from) const {
    const Tkeyframe* key = curve->keyframe(from.index);
    const TpickKey::TpickBits other =
        which == Tkeyframe::kInSide ? Tkeyframe::kOutSide : Tkeyframe::kInSide;
    const TpickKey::TpickBits shown = from.mirrored ? other : which;
    float x = 0.0f, y = 0.0f;
    key->getTangent(shown, x, y);
    copy.setTangentType(which, key->tangentType(shown));
    copy.setTangent(which, x, from.mirrored ? -y : y);
  }

  // The new key at `time`, found as key i of copy j (at s = 0 of copy j
  // when `seam`).
  Tkeyframe* produce(const TtimeValue& time, std::uint64_t j, unsigned i, bool seam) const {
    const Tmapped m = evaluationAt(time);
    const unsigned shown = nearestTo(m.local, i);
    const bool flipped = type == TparamCurve::kOscillate && isOdd(m.cycles);
    TsideSource in{shown, flipped};
    TsideSource out{shown, flipped};
    if (seam) {
      // Where two copies meet, each side of the key belongs to the copy on
      // that side: the key at s = R of copy j - 1, and key i of copy j.
      const TsideSource inner{fromStart(j - 1) ? n - 1 : 0u, mirrored(j - 1)};
      const TsideSource outer{i, mirrored(j)};
      in = side == Tside::kPost ? inner : outer;
      out = side == Tside::kPost ? outer : inner;
    }
    const Tkeyframe* source = curve->keyframe(shown);
    double value = source->value();
    const double rise = curve->keyframe(n - 1)->value() - curve->keyframe(0u)->value();
    if (type == TparamCurve::kCycleRelative && rise != 0.0) {
      // As evaluation adds it, so the key's value is the curve's bit for bit.
      const double shift = unfused(rise * m.cycles);
      value = side == Tside::kPre ? value - shift : value + shift;
    }
    auto* copy = new Tkeyframe(*source);
    copy->setTimeAndValue(time, value, source->quaternionW());
    copySide(*copy, Tkeyframe::kInSide, in);
    copySide(*copy, Tkeyframe::kOutSide, out);
    // The span that follows the key in time: in a backward copy it is the
    // span that ends at the out side's key.
    const bool linear = out.mirrored
                            ? out.index > 0 && curve->keyframe(out.index - 1)->interpMethod() ==
                                                   Tkeyframe::kSpanLinear
                            : curve->keyframe(out.index)->interpMethod() == Tkeyframe::kSpanLinear;
    copy->setInterpMethod(linear ? Tkeyframe::kSpanLinear : Tkeyframe::kSpanCurve);
    return copy;
  }
};

// The time of `offset` as the curve stores times; false when the curve's
// times cannot hold it.
bool curveTime(const Tcopies& c, double offset, TtimeValue& time) {
  const double units = c.unitsAt(offset);
  if (c.ticks) {
    if (units < -2147483648.0 || units > 2147483647.0) return false;
    time = TtimeValue(TanimTime(static_cast<std::int32_t>(units)));
    return true;
  }
  if (!(std::fabs(units) <= FLT_MAX)) return false;
  time = TtimeValue(static_cast<float>(units));
  return true;
}

// Halfway from float seconds u to the next float in the walk's direction:
// a time beyond it rounds past u.
double roundingEdge(double u, bool forward) {
  const float from = static_cast<float>(u);
  const float next = std::nextafter(from, forward ? HUGE_VALF : -HUGE_VALF);
  return 0.5 * (static_cast<double>(from) + static_cast<double>(next));
}

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
  const unsigned rangeEnd = c.side == Tside::kPost ? n - 1 : 0u;
  if (!(c.range > 0.0) || !loops) {
    // No copies: inward comes the end key of the range itself.
    return outward ? nullptr : keyframe(rangeEnd);
  }

  double from = c.offsetOf(u);
  for (int attempt = 0; attempt < 4; ++attempt) {
    std::uint64_t j = 0;
    double s = 0.0;
    unsigned i = 0;
    if (!c.locate(from, j, s)) return nullptr;
    if (!c.step(j, s, outward, i)) return keyframe(rangeEnd);
    const double si = c.distanceOf(i, c.fromStart(j));
    if (j == 1 && si == 0.0) return keyframe(rangeEnd);
    const double offset = static_cast<double>(j - 1) * c.range + si;
    TtimeValue time;
    if (!curveTime(c, offset, time)) return nullptr;
    const double got = ticks ? static_cast<double>(time.asAnimTime().inTicks()) : time.asFloat();
    if (forward ? got > u : got < u) {
      allocated = true;
      return c.produce(time, j, i, /*seam=*/si == 0.0);
    }
    // Far from zero, float seconds round this key (and maybe many after it)
    // onto `t` or past it: search again from where times first round beyond
    // `t`, then, should double rounding still land there, key by key.
    from = attempt == 0 ? c.offsetOf(roundingEdge(u, forward)) : offset;
  }
  return nullptr;
}

}  // namespace lumora
