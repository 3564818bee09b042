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

// Keys at 0, 0.5, 1.25 and 2 s (ticks or seconds) of distinct values and
// slopes, so that every copy shows which key it repeats and how.
TparamCurve loopingCurve(bool isFloat) {
  TparamCurve c(isFloat);
  const std::pair<float, double> keys[] = {{0.0f, 0.0}, {0.5f, 3.0}, {1.25f, -1.0}, {2.0f, 2.0}};
  for (const auto& [t, v] : keys) {
    c.add(Tkeyframe(c.makeTimeValue(t), v, kTangentSpline, kTangentSpline));
  }
  return c;
}

TEST(GetNextKey, WalksTheKeysEvaluationPassesThroughOnEverySide) {
  using Tinf = TparamCurve::TinfinityType;
  for (bool isFloat : {true, false}) {
    for (Tinf type : {TparamCurve::kCycle, TparamCurve::kCycleRelative, TparamCurve::kOscillate,
                      TparamCurve::kConstant, TparamCurve::kLinear}) {
      SCOPED_TRACE(testing::Message() << "float " << isFloat << " type " << type);
      TparamCurve c = loopingCurve(isFloat);
      c.setPreInfinityType(type);
      c.setPostInfinityType(type);
      const bool loops = type != TparamCurve::kConstant && type != TparamCurve::kLinear;
      const std::vector<Tvisited> up = walk(c, -7.3f, 9.1f, true);
      // Three keys a period (the range's ends meet), or only the four keys.
      ASSERT_EQ(up.size(), loops ? 25u : 4u);
      TevalCursor cursor;
      for (std::size_t k = 0; k < up.size(); ++k) {
        if (k > 0) {
          EXPECT_LT(up[k - 1].time, up[k].time);
        }
        const double v = c.evaluate(c.makeTimeValue(static_cast<float>(up[k].time)), cursor);
        EXPECT_NEAR(up[k].value, v, 1e-9) << "at " << up[k].time;
        const bool inside = up[k].time >= 0.0 && up[k].time <= 2.0;
        EXPECT_EQ(up[k].allocated, !inside);
        // The slope on either side of a copied key is the curve's own, but
        // where two copies meet only on the side of the key's own copy.
        if (up[k].allocated && up[k].time > -6.0 && up[k].time < 8.0) {
          const auto at = static_cast<float>(up[k].time);
          const double h = 1e-3;
          const double before = (v - c.evaluate(at - static_cast<float>(h), cursor)) / h;
          const double after = (c.evaluate(at + static_cast<float>(h), cursor) - v) / h;
          const bool seam = std::fmod(up[k].time, 2.0) == 0.0;
          if (!seam || up[k].time < 0.0) {
            EXPECT_NEAR(up[k].inSlope, before, 0.05 * (1.0 + std::fabs(before))) << up[k].time;
          }
          if (!seam || up[k].time > 0.0) {
            EXPECT_NEAR(up[k].outSlope, after, 0.05 * (1.0 + std::fabs(after))) << up[k].time;
          }
        }
      }
      // Walking back from the last key gives the others in reverse.
      const std::vector<Tvisited> down =
          walk(c, static_cast<float>(up.back().time), static_cast<float>(up.front().time), false);
      ASSERT_EQ(down.size() + 1, up.size());
      for (std::size_t k = 0; k < down.size(); ++k) {
        EXPECT_EQ(down[down.size() - 1 - k].time, up[k].time);
        EXPECT_EQ(down[down.size() - 1 - k].value, up[k].value);
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
  const TparamCurve c = loopingCurve(true);
  EXPECT_EQ(c.getNextKey(TtimeValue(0.5f), true, allocated), c.keyframe(2u));
  EXPECT_EQ(c.getNextKey(TtimeValue(0.5f), false, allocated), c.keyframe(0u));
  EXPECT_EQ(c.getNextKey(TtimeValue(2.0f), true, allocated), nullptr);
  EXPECT_EQ(c.getNextKey(TtimeValue(-3.0f), true, allocated), c.keyframe(0u));
}

}  // namespace
}  // namespace lumora
