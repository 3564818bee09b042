// Curve queries: the closest-key tie rules, and boxes that hold the curve.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "lumora/curve/eval_cursor.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/select/pick_key.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

// The index a query's handle names, or -1 for none; the handle is deleted.
int indexOf(TkeyframeHandle* handle) {
  const std::unique_ptr<TkeyframeHandle> owned(handle);
  return owned ? static_cast<int>(owned->index()) : -1;
}

TparamCurve floatCurve(std::initializer_list<std::pair<float, double>> keys) {
  TparamCurve c(/*isFloat=*/true);
  for (const auto& [t, v] : keys) c.add(Tkeyframe(t, v, kTangentSpline, kTangentSpline));
  return c;
}

TEST(ClosestKeyframe, WholeSecondDistancesAndTheirTies) {
  // Both distances truncate to 0 s: the tie goes to the later key.
  const TparamCurve pair = floatCurve({{0.2f, 0.0}, {0.9f, 1.0}});
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(0.85f))), 1);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(0.3f))), 1);
  // Before the first key, after the last, and on a key.
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(-7.0f))), 0);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(9.0f))), 1);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(0.2f))), 0);

  // From 1.2 s the key at 1.5 s is 0 whole seconds away, the others 1. From
  // 2.2 s the keys at 1.5 s and 3 s are both 0 away, and from 4.2 s those at
  // 3 s and 6 s both 1: each tie goes to the later key.
  const TparamCurve three = floatCurve({{0.0f, 0.0}, {1.5f, 0.0}, {3.0f, 0.0}, {6.0f, 0.0}});
  EXPECT_EQ(indexOf(three.findClosestKeyframe(TtimeValue(1.2f))), 1);
  EXPECT_EQ(indexOf(three.findClosestKeyframe(TtimeValue(2.2f))), 2);
  EXPECT_EQ(indexOf(three.findClosestKeyframe(TtimeValue(4.2f))), 3);
  EXPECT_EQ(indexOf(three.findClosestKeyframe(TtimeValue(5.5f))), 3);

  // Ticks count exactly; a time in seconds is taken by its ticks.
  TparamCurve ticks(/*isFloat=*/false);
  ticks.add(Tkeyframe(TanimTime(0), 0.0));
  ticks.add(Tkeyframe(TanimTime(6000), 1.0));
  EXPECT_EQ(indexOf(ticks.findClosestKeyframe(TtimeValue(TanimTime(2000)))), 0);
  EXPECT_EQ(indexOf(ticks.findClosestKeyframe(TtimeValue(TanimTime(3000)))), 1);
  EXPECT_EQ(indexOf(ticks.findClosestKeyframe(TtimeValue(0.75f))), 1);

  EXPECT_EQ(indexOf(TparamCurve(true).findClosestKeyframe(TtimeValue(1.0f))), -1);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue(std::nanf("")))), -1);
  EXPECT_EQ(indexOf(pair.findClosestKeyframe(TtimeValue())), -1);
}

TEST(ClosestKeyframe, ToAPointAndToAValue) {
  TparamCurve c = floatCurve({{0.0f, 0.0}, {2.0f, 0.0}, {3.0f, 5.0}});
  // Equal squared distances: the first key wins; an exact hit at once.
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(1.0f), 0.0, false)), 0);
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(3.0f), 5.0, false)), 2);
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(2.9f), 1.0, false)), 1);
  // Selected keys only: none selected gives nothing, one gives it.
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(0.0f), 0.0, true)), -1);
  c.keyframe(2)->setActive(TbitField32(TpickKey::kPickKey), true);
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(0.0f), 0.0, true)), 2);
  EXPECT_EQ(indexOf(c.findClosestKeyframe(TtimeValue(0.0f), std::nan(""), false)), -1);

  EXPECT_EQ(indexOf(c.findClosestValue(2.5)), 0);  // 0 and 5 tie: the first
  EXPECT_EQ(indexOf(c.findClosestValue(4.0)), 2);
  EXPECT_EQ(indexOf(TparamCurve(true).findClosestValue(1.0)), -1);
  EXPECT_EQ(indexOf(c.findClosestValue(std::nan(""))), -1);
}

// Every sample of the curve over its keys lies in its box.
void expectBoxHolds(const TparamCurve& c) {
  float minTime = 0.0f, maxTime = 0.0f;
  double minValue = 0.0, maxValue = 0.0;
  c.boundingBox(minTime, minValue, maxTime, maxValue, false);
  const unsigned n = c.keyframeCount();
  ASSERT_EQ(minTime, c.seconds(0u));
  ASSERT_EQ(maxTime, c.seconds(n - 1));
  TevalCursor cursor;
  const double slack = 1e-9 * (1.0 + std::fabs(minValue) + std::fabs(maxValue));
  for (unsigned k = 0; k <= 4000; ++k) {
    const float t = minTime + (maxTime - minTime) * static_cast<float>(k) / 4000.0f;
    const double v = c.evaluate(t, cursor);
    ASSERT_GE(v, minValue - slack) << "at " << t;
    ASSERT_LE(v, maxValue + slack) << "at " << t;
  }
}

TEST(BoundingBox, HoldsEveryCurve) {
  for (bool weighted : {false, true}) {
    TparamCurve dense(/*isFloat=*/true);
    reference::denseSpline(dense, 40, 7);
    dense.setIsWeighted(weighted);
    for (unsigned i = 0; i < dense.keyframeCount(); i += 3) dense.dragTangent(i, 0.8f, 2.5f, false);
    expectBoxHolds(dense);
  }
  for (bool (*make)(TparamCurve&) :
       {&reference::bouncingBall, &reference::twoKeyBezier, &reference::regressiveS}) {
    TparamCurve shape(/*isFloat=*/true);
    ASSERT_TRUE(make(shape));
    expectBoxHolds(shape);
  }
}

TEST(BoundingBox, SmallCurvesSpansAndSelections) {
  const float untouched = -123.0f;
  float minTime = untouched, maxTime = untouched;
  double minValue = untouched, maxValue = untouched;
  TparamCurve c(/*isFloat=*/true);
  c.boundingBox(minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue),
            std::tuple(untouched, double{untouched}, untouched, double{untouched}));
  c.add(Tkeyframe(2.0f, 3.0));
  c.boundingBox(minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(2.0f, 3.0, 2.0f, 3.0));

  // A weighted span whose handles rise to 2 at 1 s and 2 s: the control
  // polygon (0, 2, 2, 0) bounds it, reached first at 1 s.
  TparamCurve arch(/*isFloat=*/true);
  arch.setIsWeighted(true);
  Tkeyframe a(0.0f, 0.0, kTangentFixed, kTangentFixed);
  a.setTangent(Tkeyframe::kOutSide, 3.0f, 6.0f);
  Tkeyframe b(3.0f, 0.0, kTangentFixed, kTangentFixed);
  b.setTangent(Tkeyframe::kInSide, 3.0f, -6.0f);
  arch.add(a);
  arch.add(b);
  arch.boundingBox(minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(0.0f, 0.0, 3.0f, 2.0));
  EXPECT_TRUE(arch.minMaxValueAndTime(0u, minTime, minValue, maxTime, maxValue));
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(0.0f, 0.0, 1.0f, 2.0));
  EXPECT_FALSE(arch.minMaxValueAndTime(1u, minTime, minValue, maxTime, maxValue));

  // A non-weighted tangent stored with x = 0 is boxed by its y alone.
  TparamCurve steep(/*isFloat=*/true);
  Tkeyframe down(0.0f, 0.0, kTangentFixed, kTangentFixed);
  down.setTangent(Tkeyframe::kOutSide, 0.0f, -1.5f);
  steep.add(down);
  steep.add(Tkeyframe(3.0f, 0.0, kTangentFixed, kTangentFixed));
  steep.boundingBox(minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::pair(minValue, maxValue), std::pair(-1.5, 0.0));

  // The per-span form sets or widens; a span that does not exist changes
  // nothing.
  minTime = -1.0f;
  maxTime = 0.5f;
  minValue = -4.0;
  maxValue = 1.0;
  arch.boundingBox(0u, minTime, minValue, maxTime, maxValue, /*widen=*/true);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(-1.0f, -4.0, 3.0f, 2.0));
  arch.boundingBox(1u, minTime, minValue, maxTime, maxValue, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue), std::tuple(-1.0f, -4.0, 3.0f, 2.0));

  // Selected keys only: the spans between two selected keys, and lone keys.
  TparamCurve line = floatCurve({{0.0f, 0.0}, {1.0f, 9.0}, {2.0f, -1.0}, {3.0f, 4.0}});
  minTime = maxTime = untouched;
  line.boundingBox(minTime, minValue, maxTime, maxValue, true);
  EXPECT_EQ(minTime, untouched);
  line.keyframe(2)->setActive(TbitField32(TpickKey::kPickKey), true);
  line.keyframe(3)->setActive(TbitField32(TpickKey::kPickKey), true);
  line.boundingBox(minTime, minValue, maxTime, maxValue, true);
  float spanMin = 0.0f, spanMax = 0.0f;
  double spanLow = 0.0, spanHigh = 0.0;
  line.boundingBox(2u, spanMin, spanLow, spanMax, spanHigh, false);
  EXPECT_EQ(std::tuple(minTime, minValue, maxTime, maxValue),
            std::tuple(spanMin, spanLow, spanMax, spanHigh));
}

// --- getNextKey ----------------------------------------------------------------------------

struct Tvisited {
  double time;  // seconds
  double value;
  float inSlope;
  float outSlope;
  bool allocated;
};

// Walks getNextKey from `from` until it reaches `to` or passes it.
std::vector<Tvisited> walk(const TparamCurve& c, float from, float to, bool forward) {
  std::vector<Tvisited> out;
  TtimeValue t = c.makeTimeValue(from);
  for (int guard = 0; guard < 1000; ++guard) {
    bool allocated = false;
    Tkeyframe* key = c.getNextKey(t, forward, allocated);
    if (!key) break;
    const TtimeValue at =
        c.isAnimTime() ? TtimeValue(key->timeAsAnimTime()) : TtimeValue(key->timeAsFloat());
    float x = 0.0f, y = 0.0f, ox = 0.0f, oy = 0.0f;
    key->getTanIn(x, y);
    key->getTanOut(ox, oy);
    out.push_back({at.inSeconds(), key->value(), y / x, oy / ox, allocated});
    if (allocated) delete key;
    if (forward ? at.inSeconds() >= to : at.inSeconds() <= to) break;
    t = at;
  }
  return out;
}

// The curve's slope between two times (as floats), for comparing with the
// tangents of the copies' keys on either side of them.
double slopeBetween(const TparamCurve& c, TevalCursor& cursor, double a, double b) {
  const auto fa = static_cast<float>(a);
  const auto fb = static_cast<float>(b);
  return (c.evaluate(fb, cursor) - c.evaluate(fa, cursor)) / (static_cast<double>(fb) - fa);
}

// A walk forward visits exactly the keys evaluation passes through: times
// strictly rise, each key has the curve's value at its time, each copied
// key's tangents the curve's slope on either side of it, and the walk back
// from the last key visits the same keys in reverse. `valueSlack` is what
// rounding a copy's time to float may cost.
void expectWalkFollowsEvaluation(const TparamCurve& c, float from, float to, std::size_t keys,
                                 double valueSlack) {
  const std::vector<Tvisited> up = walk(c, from, to, true);
  ASSERT_EQ(up.size(), keys);
  TevalCursor cursor;
  for (std::size_t k = 0; k < up.size(); ++k) {
    const Tvisited& key = up[k];
    if (k > 0) {
      EXPECT_LT(up[k - 1].time, key.time);
    }
    const double v = c.evaluate(c.makeTimeValue(static_cast<float>(key.time)), cursor);
    EXPECT_NEAR(key.value, v, valueSlack) << "at " << key.time;
    const float first = c.seconds(0u);
    const float last = c.seconds(c.keyframeCount() - 1);
    EXPECT_EQ(key.allocated, key.time < first || key.time > last) << "at " << key.time;
    // Slopes on float curves only: beyond the keys a tick curve maps times
    // to whole ticks, too coarse to measure slopes this close.
    if (!key.allocated || c.isAnimTime()) continue;
    // One-sided slopes a little away from the key, so that a jump where
    // two copies meet does not count, and beyond the 1e-5 s within which
    // evaluation may answer with the key's own value.
    const double h = 2e-5;
    const double before = slopeBetween(c, cursor, key.time - 3 * h, key.time - 2 * h);
    const double after = slopeBetween(c, cursor, key.time + 2 * h, key.time + 3 * h);
    EXPECT_NEAR(key.inSlope, before, 0.02 * (1.0 + std::fabs(before))) << "at " << key.time;
    EXPECT_NEAR(key.outSlope, after, 0.02 * (1.0 + std::fabs(after))) << "at " << key.time;
  }
  const std::vector<Tvisited> down =
      walk(c, static_cast<float>(up.back().time), static_cast<float>(up.front().time), false);
  ASSERT_EQ(down.size() + 1, up.size());
  for (std::size_t k = 0; k < down.size(); ++k) {
    EXPECT_EQ(down[down.size() - 1 - k].time, up[k].time);
    EXPECT_EQ(down[down.size() - 1 - k].value, up[k].value);
  }
}

using Tinf = TparamCurve::TinfinityType;
constexpr Tinf kEveryInfinity[] = {TparamCurve::kCycle, TparamCurve::kCycleRelative,
                                   TparamCurve::kOscillate, TparamCurve::kConstant,
                                   TparamCurve::kLinear};

bool loops(Tinf type) {
  return type != TparamCurve::kConstant && type != TparamCurve::kLinear;
}

// Keys of distinct values and slopes, so that every copy shows which key it
// repeats and how; the first and last values differ, so cycled copies jump
// where they meet.
TparamCurve keysAt(bool isFloat, std::initializer_list<std::pair<float, double>> keys) {
  TparamCurve c(isFloat);
  for (const auto& [t, v] : keys) {
    c.add(Tkeyframe(c.makeTimeValue(t), v, kTangentSpline, kTangentSpline));
  }
  return c;
}

TEST(GetNextKey, WalksTheKeysEvaluationPassesThroughOnEverySide) {
  // Keys at 0, 0.5, 1.25 and 2 s: copies three keys a period (the range's
  // ends meet), all their times exact in floats and ticks. From -7.3 s to
  // 9.1 s a looping side before the keys adds 10 keys, one after them 11.
  for (bool isFloat : {true, false}) {
    for (Tinf pre : kEveryInfinity) {
      for (Tinf post : kEveryInfinity) {
        SCOPED_TRACE(testing::Message()
                     << "float " << isFloat << " pre " << pre << " post " << post);
        TparamCurve c = keysAt(isFloat, {{0.0f, 0.0}, {0.5f, 3.0}, {1.25f, -1.0}, {2.0f, 2.0}});
        c.setPreInfinityType(pre);
        c.setPostInfinityType(post);
        const std::size_t keys = 4 + (loops(pre) ? 10 : 0) + (loops(post) ? 11 : 0);
        expectWalkFollowsEvaluation(c, -7.3f, 9.1f, keys, /*valueSlack=*/0.0);
      }
    }
  }
}

TEST(GetNextKey, WhereCopiesMeetTheKeyIsTheOneEvaluationTakes) {
  // Key times that floats do not hold exactly: where cycled copies meet,
  // the float arithmetic of evaluation picks the side, and the key (with
  // its value, and its whole rises on a cycling-relative side) follows it.
  // Four keys a period from -9 s to 12 s: 4 copies before, 5 after.
  for (bool isFloat : {true, false}) {
    for (Tinf type : {TparamCurve::kCycle, TparamCurve::kCycleRelative, TparamCurve::kOscillate}) {
      SCOPED_TRACE(testing::Message() << "float " << isFloat << " type " << type);
      TparamCurve c =
          keysAt(isFloat, {{0.1f, 0.0}, {0.37f, 3.0}, {1.3f, -1.0}, {1.7f, 2.5}, {2.2f, 2.0}});
      c.setPreInfinityType(type);
      c.setPostInfinityType(type);
      // A copy's time may round off its key's by a float step; the slopes
      // here stay below 20.
      expectWalkFollowsEvaluation(c, -9.0f, 12.0f, 5 + 4 * 4 + 4 * 5, /*valueSlack=*/1e-5);
    }
  }
}

TEST(GetNextKey, MirroredCopiesShowTheSpanTheyRepeat) {
  // Keys at 0, 1, 2 and 3 s; the span from 0 s to 1 s is linear.
  // Oscillating after the keys, the first copy runs backwards: its keys at
  // 4 s and 5 s repeat the keys at 2 s and 1 s, and the span after the one
  // at 5 s is the mirror of the linear span. The next copy runs forwards
  // from the key at 0 s again, at 6 s.
  TparamCurve c(/*isFloat=*/true);
  c.add(Tkeyframe(0.0f, 0.0, kTangentSpline, kTangentLinear));
  c.add(Tkeyframe(1.0f, 1.0, kTangentLinear, kTangentSpline));
  c.add(Tkeyframe(2.0f, 4.0, kTangentSpline, kTangentSpline));
  c.add(Tkeyframe(3.0f, 0.0, kTangentSpline, kTangentSpline));
  ASSERT_EQ(c.keyframe(0u)->interpMethod(), Tkeyframe::kSpanLinear);
  c.setPostInfinityType(TparamCurve::kOscillate);
  const auto next = [&](float t) {
    bool allocated = false;
    const std::unique_ptr<Tkeyframe> key(c.getNextKey(TtimeValue(t), true, allocated));
    EXPECT_TRUE(allocated);
    return key ? std::pair(key->timeAsFloat(), key->interpMethod())
               : std::pair(0.0f, Tkeyframe::kSpanStep);
  };
  EXPECT_EQ(next(3.0f), std::pair(4.0f, Tkeyframe::kSpanCurve));
  EXPECT_EQ(next(4.0f), std::pair(5.0f, Tkeyframe::kSpanLinear));
  EXPECT_EQ(next(5.0f), std::pair(6.0f, Tkeyframe::kSpanLinear));
  EXPECT_EQ(next(6.0f), std::pair(7.0f, Tkeyframe::kSpanCurve));
  EXPECT_EQ(next(8.0f), std::pair(9.0f, Tkeyframe::kSpanCurve));  // into a backward copy
  EXPECT_EQ(next(10.0f), std::pair(11.0f, Tkeyframe::kSpanLinear));
}

TEST(GetNextKey, FarFromZeroFloatTimesStillMove) {
  // At 3e7 s floats are 2 s apart, a whole period of this 24-per-second
  // curve: many copied keys round to one time. The walk still gives a later
  // time at every step, in both directions.
  TparamCurve c(/*isFloat=*/true);
  for (int i = 0; i <= 48; ++i) {
    c.add(Tkeyframe(static_cast<float>(i) / 24.0f, std::sin(i * 0.3), kTangentSpline,
                    kTangentSpline));
  }
  c.setPostInfinityType(TparamCurve::kCycle);
  for (float from : {2e6f, 3e7f}) {
    for (bool forward : {true, false}) {
      TtimeValue t(from);
      for (int step = 0; step < 50; ++step) {
        bool allocated = false;
        const std::unique_ptr<Tkeyframe> key(c.getNextKey(t, forward, allocated));
        ASSERT_NE(key, nullptr) << "from " << t.asFloat() << " step " << step;
        ASSERT_TRUE(allocated);
        if (forward) {
          ASSERT_GT(key->timeAsFloat(), t.asFloat());
        } else {
          ASSERT_LT(key->timeAsFloat(), t.asFloat());
        }
        t = TtimeValue(key->timeAsFloat());
      }
    }
  }
}

TEST(GetNextKey, EndsAndBadInput) {
  bool allocated = true;
  EXPECT_EQ(TparamCurve(true).getNextKey(TtimeValue(1.0f), true, allocated), nullptr);
  TparamCurve one(/*isFloat=*/true);
  one.add(Tkeyframe(1.0f, 4.0));
  one.setPostInfinityType(TparamCurve::kCycle);
  EXPECT_EQ(one.getNextKey(TtimeValue(0.0f), true, allocated), one.keyframe(0u));
  EXPECT_FALSE(allocated);
  EXPECT_EQ(one.getNextKey(TtimeValue(1.0f), true, allocated), nullptr);
  EXPECT_EQ(one.getNextKey(TtimeValue(std::nanf("")), true, allocated), nullptr);
  EXPECT_EQ(one.getNextKey(TtimeValue(), false, allocated), nullptr);
  // On a key, the next and the previous are its neighbours.
  const TparamCurve c = keysAt(true, {{0.0f, 0.0}, {0.5f, 3.0}, {1.25f, -1.0}, {2.0f, 2.0}});
  EXPECT_EQ(c.getNextKey(TtimeValue(0.5f), true, allocated), c.keyframe(2u));
  EXPECT_EQ(c.getNextKey(TtimeValue(0.5f), false, allocated), c.keyframe(0u));
  EXPECT_EQ(c.getNextKey(TtimeValue(2.0f), true, allocated), nullptr);
  EXPECT_EQ(c.getNextKey(TtimeValue(-3.0f), true, allocated), c.keyframe(0u));
}

}  // namespace
}  // namespace lumora
