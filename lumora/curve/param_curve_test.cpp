#include "lumora/curve/param_curve.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

#include "lumora/base/debug_output.h"
#include "lumora/base/server_msg.h"
#include "lumora/curve/param_curve_test_support.h"

namespace lumora {
namespace {

// Inserts keys straight into the key array, bypassing tangent computation.
void putKeys(TparamCurve& c, std::initializer_list<float> times) {
  for (float t : times) {
    ASSERT_GE(TparamCurveTestAccess::arrayInsert(c, new Tkeyframe(c.makeTimeValue(t), t)), 0);
  }
  c.setStaticCurve(false);
}
void putKey(TparamCurve& c, Tkeyframe* key) {
  ASSERT_GE(TparamCurveTestAccess::arrayInsert(c, key), 0);
  c.setStaticCurve(false);
}

// (found, index) after find() or incrementalFind() with the index starting at `hint`.
std::pair<bool, unsigned> findAt(const TparamCurve& c, TtimeValue t) {
  unsigned i = 99;
  const bool found = c.find(t, i);
  return {found, i};
}
std::pair<bool, unsigned> findFrom(const TparamCurve& c, float t, unsigned hint, bool forward) {
  const bool found = c.incrementalFind(TtimeValue(t), hint, forward);
  return {found, hint};
}

struct TmessageCounter : Tclient {
  int count = 0;
  static void onMessage(Tclient* self, TclientServer*, const TserverMsg&) {
    ++static_cast<TmessageCounter*>(self)->count;
  }
};

TEST(TparamCurve, EmptyCurveReadsAsNothing) {
  TparamCurve c;
  EXPECT_TRUE(c.isAnimTime());
  EXPECT_EQ(c.keyframe(0), nullptr);
  EXPECT_TRUE(c.timeValue(0u).isNeither());
  EXPECT_EQ(c.seconds(3u), 0.0f);
  EXPECT_EQ(c.evaluate(1.0f), 0.0);
}

TEST(TparamCurve, TimesOfBothKinds) {
  TparamCurve ticks(false);
  putKey(ticks, new Tkeyframe(TanimTime(6000), 1.0));
  EXPECT_FLOAT_EQ(ticks.seconds(0u), 1.0f);
  EXPECT_EQ(ticks.animTime(0u).inTicks(), 6000);
  EXPECT_TRUE(ticks.timeValue(0u).isAnimTime());
  EXPECT_EQ(ticks.makeTimeValue(0.5f).asAnimTime().inTicks(), 3000);
  EXPECT_EQ(ticks.maxTimeValue().asAnimTime(), TanimTime::maxTime);

  TparamCurve floats(true);
  putKey(floats, new Tkeyframe(0.5f, 1.0));
  EXPECT_EQ(floats.seconds(0u), 0.5f);
  EXPECT_EQ(floats.animTime(0u).inTicks(), 3000);
  EXPECT_TRUE(floats.makeTimeValue(0.5f).isFloat());
  EXPECT_EQ(floats.minTimeValue().asFloat(), -FLT_MAX);
}

TEST(TparamCurve, FindIsTolerantOnFloatCurvesOnly) {
  TparamCurve f(true), t(false), empty(true);
  putKeys(f, {0.0f, 1.0f, 2.0f});
  EXPECT_EQ(findAt(f, TtimeValue(1.000005f)), std::pair(true, 1u));
  EXPECT_EQ(findAt(f, TtimeValue(1.5f)), std::pair(false, 2u));
  EXPECT_EQ(findAt(f, TtimeValue(-1.0f)), std::pair(false, 0u));
  EXPECT_EQ(findAt(f, TtimeValue(9.0f)), std::pair(false, 3u));
  putKey(t, new Tkeyframe(TanimTime(100), 0.0));
  putKey(t, new Tkeyframe(TanimTime(101), 0.0));
  EXPECT_EQ(findAt(t, TtimeValue(TanimTime(101))), std::pair(true, 1u));
  EXPECT_EQ(findAt(t, TtimeValue(TanimTime(102))), std::pair(false, 2u));
  EXPECT_EQ(findAt(empty, TtimeValue(1.0f)), std::pair(false, 0u));
}

// Keys whose times were changed in place can be out of order. A time after
// the last key must still get the binary search's own answer there, which may
// be a key in the middle.
TEST(TparamCurve, FindAfterTheLastKeyAnswersAsTheSearchOnKeysOutOfOrder) {
  TparamCurve t(false), f(true);
  for (std::int32_t ticks : {0, 100, 200, 300}) putKey(t, new Tkeyframe(TanimTime(ticks), 0.0));
  putKeys(f, {0.0f, 1.0f, 2.0f, 3.0f});
  EXPECT_FALSE(t.setTime(1, TtimeValue(TanimTime(1000))));  // 0, 1000, 200, 300
  EXPECT_FALSE(f.setTime(1, TtimeValue(10.0f)));
  EXPECT_EQ(findAt(t, TtimeValue(TanimTime(1000))), std::pair(true, 1u));
  EXPECT_EQ(findAt(t, TtimeValue(TanimTime(400))), std::pair(false, 1u));
  EXPECT_EQ(findAt(f, TtimeValue(10.0f)), std::pair(true, 1u));
  EXPECT_EQ(findAt(f, TtimeValue(4.0f)), std::pair(false, 1u));
  EXPECT_EQ(findAt(f, TtimeValue(std::nanf(""))), std::pair(false, 0u));
  // Back in order, a time after the last key goes after it.
  EXPECT_TRUE(t.setTime(1, TtimeValue(TanimTime(100))));
  EXPECT_EQ(findAt(t, TtimeValue(TanimTime(400))), std::pair(false, 4u));
  EXPECT_EQ(findAt(t, TtimeValue(TanimTime(300))), std::pair(true, 3u));
}

// A first key's clamped in side copies its out side. When that out side is a
// spline recomputed for a new neighbour, the rules run once more so that the
// in side copies the new tangent, not the old one.
TEST(TparamCurve, ModifyTangentsRerunsASplineSideBesideAClampedOne) {
  TparamCurve c(true);
  auto* first = new Tkeyframe(0.0f, 0.0, kTangentClamped, kTangentSpline);
  first->setTanIn(1.0f, 0.0f);
  first->setTanOut(1.0f, 0.0f);
  putKey(c, first);
  putKey(c, new Tkeyframe(1.0f, 1.0, kTangentSpline, kTangentSpline));
  ASSERT_TRUE(TparamCurveTestAccess::modifyTangents(c, 1));
  float inX = 0.0f, inY = 0.0f, outX = 0.0f, outY = 0.0f;
  first->getTanIn(inX, inY);
  first->getTanOut(outX, outY);
  EXPECT_GT(outY, 0.0f);  // rising towards the neighbour
  EXPECT_EQ(std::pair(inX, inY), std::pair(outX, outY));
}

TEST(TparamCurve, IncrementalFindUsesAndChecksTheHint) {
  TparamCurve c(true);
  putKeys(c, {0.0f, 1.0f, 2.0f, 3.0f});
  EXPECT_EQ(findFrom(c, 2.0f, 1, true), std::pair(true, 2u));
  EXPECT_EQ(findFrom(c, 1.0f, 2, false), std::pair(true, 1u));
  // A neighbour that does not match falls back to a full search.
  EXPECT_EQ(findFrom(c, 3.0f, 0, true), std::pair(true, 3u));
  EXPECT_EQ(findFrom(c, 2.5f, TparamCurve::kInvalidIndex, true), std::pair(false, 3u));
}

TEST(TparamCurve, SeekKeyWithAndWithoutDeferredDeletion) {
  TparamCurve c(true);
  putKeys(c, {0.0f, 1.0f, 2.0f, 3.0f, 4.0f});
  // (key found, index after) seeking from `start` in `direction`.
  const auto seek = [&c](unsigned start, int direction) {
    Tkeyframe* k = c.seekKey(start, direction);
    return std::pair(k, start);
  };
  const auto at = [&c](unsigned i) { return c.keyframe(i); };
  Tkeyframe* const none = nullptr;
  EXPECT_EQ(seek(1, 0), std::pair(at(1), 1u));
  EXPECT_EQ(seek(1, 1).first, nullptr);  // direction 1 never advances
  EXPECT_EQ(seek(1, 2), std::pair(at(2), 2u));
  EXPECT_EQ(seek(4, 2), std::pair(none, 5u));
  EXPECT_EQ(seek(5, -1).first, at(4));
  EXPECT_EQ(seek(0, -1), std::pair(none, 0u));

  c.keyframe(1)->setToBeDeleted(true);
  TparamCurveTestAccess::setDeferredDeletion(c, true);
  EXPECT_EQ(c.keyframeCount(), 4u);
  EXPECT_EQ(seek(1, 0), std::pair(at(2), 2u));  // logical 1 is physical 2
  EXPECT_EQ(seek(0, 1), std::pair(at(2), 2u));  // skips the deleted key
  EXPECT_EQ(seek(2, -1).first, at(0));
  EXPECT_EQ(seek(3, 1).first, nullptr);  // n - 1 reached
  EXPECT_EQ(seek(4, 0).first, nullptr);
}

TEST(TparamCurve, SetValueClampsAndSkipsNoChange) {
  TparamCurve c(true);
  putKey(c, new Tkeyframe(0.0f, 1.0));
  TmessageCounter counter;
  c.addClient(&counter, TserverMsgTmeta, &TmessageCounter::onMessage);
  c.setValue(0, 1.0);
  EXPECT_EQ(counter.count, 0);
  c.setValue(0, 5e-11);
  EXPECT_EQ(c.keyframe(0)->value(), 0.0);
  EXPECT_GT(counter.count, 0);
  const int sent = counter.count;
  c.setValue(0, std::nan(""));
  c.setValue(7, 2.0);
  EXPECT_EQ(counter.count, sent);
  EXPECT_EQ(c.keyframe(0)->value(), 0.0);
  c.setValue(0, 0.0, 0.5f);  // only W differs
  EXPECT_EQ(c.keyframe(0)->quaternionW(), 0.5f);
  c.removeClient(&counter);
}

TEST(TparamCurve, SetTimeChecksOrderButKeepsTheTime) {
  TparamCurve c(true);
  putKeys(c, {0.0f, 1.0f, 2.0f});
  EXPECT_TRUE(c.setTime(1, TtimeValue(1.5f)));
  EXPECT_EQ(c.seconds(1u), 1.5f);
  EXPECT_FALSE(c.setTime(1, TtimeValue(2.5f)));
  EXPECT_EQ(c.seconds(1u), 2.5f);  // written although out of order
  EXPECT_TRUE(c.setTime(1, TtimeValue(1.0f)));
  EXPECT_FALSE(c.setTime(1, TtimeValue(TanimTime(100))));  // other kind: nothing written
  EXPECT_EQ(c.seconds(1u), 1.0f);
  EXPECT_FALSE(c.setTime(9, TtimeValue(1.0f)));
  EXPECT_FALSE(c.setTime(1, TtimeValue(std::nanf(""))));
  EXPECT_TRUE(c.setTime(1, TtimeValue(1.0f)));  // unchanged time
}

TEST(TparamCurve, NoUpdateRescalesTicksOnly) {
  TparamCurve f(true), t(false);
  putKey(f, new Tkeyframe(1.0f, 0.0));
  f.noUpdate(TtimeUnitSystem::kFilm, TtimeUnitSystem::kNtsc);
  EXPECT_EQ(f.seconds(0u), 1.0f);
  for (int ticks : {250, 500, 751}) putKey(t, new Tkeyframe(TanimTime(ticks), 0.0));
  t.noUpdate(TtimeUnitSystem::kFilm, TtimeUnitSystem::kNtsc);  // 250 -> 200 ticks a frame
  EXPECT_EQ(t.keyframe(0)->timeAsTicks(), 200);
  EXPECT_EQ(t.keyframe(1)->timeAsTicks(), 400);
  EXPECT_EQ(t.keyframe(2)->timeAsTicks(), 600);  // 600.8 truncated
  t.noUpdate(TtimeUnitSystem::kNtsc, TtimeUnitSystem::kFilm);
  EXPECT_EQ(t.keyframe(2)->timeAsTicks(), 750);
}

TEST(TparamCurve, CopiesAreIndependentAndUnselected) {
  TparamCurve c(true);
  putKeys(c, {0.0f, 1.0f});
  c.keyframe(0)->setActive(TbitField32(TpickKey::kPickKey), true);
  c.setPostInfinityType(TparamCurve::kCycle);
  TmessageCounter counter;
  c.addClient(&counter, TserverMsgTmeta, &TmessageCounter::onMessage);

  TparamCurve copy(c);
  ASSERT_EQ(copy.keyframeCount(), 2u);
  EXPECT_NE(copy.keyframe(0), c.keyframe(0));
  EXPECT_FALSE(copy.keyframe(0)->isKeyframeActive());
  EXPECT_EQ(copy.postInfinityType(), TparamCurve::kCycle);
  EXPECT_EQ(copy.clientCount(), 0u);
  copy.setValue(1, 7.0);
  EXPECT_EQ(c.keyframe(1)->value(), 1.0);

  TparamCurve assigned(false);
  assigned = copy;
  EXPECT_TRUE(assigned.isFloat());
  EXPECT_EQ(assigned.keyframe(1)->value(), 7.0);
  c.removeClient(&counter);
}

TEST(TparamCurve, DebugOutputFormat) {
  TparamCurve c(true), t(false);
  putKey(c, new Tkeyframe(0.5f, 2.0));
  TstringDebugOutput out;
  c.debugOutput(out);
  EXPECT_TRUE(out.closed());
  EXPECT_EQ(out.text().rfind("Param Curve 0x", 0), 0u);
  EXPECT_NE(out.text().find(" : 1 float keysindex: 0\t time: 0.500000\t value: 2.000000\n"),
            std::string::npos);
  putKey(t, new Tkeyframe(TanimTime(6000), -1.0));
  TstringDebugOutput ticks;
  t.debugOutput(ticks);
  EXPECT_NE(
      ticks.text().find(" : 1 animTime keysindex: 0\t time: 6000.000000\t value: -1.000000\n"),
      std::string::npos);
}

TEST(TparamCurve, SiblingsAndRotationModes) {
  TparamCurve c(true);
  TparamCurve* x = nullptr;
  TparamCurve* y = &c;
  TparamCurve* z = &c;
  EXPECT_FALSE(c.getSiblingRotationCurves(&x, &y, &z, false));
  EXPECT_EQ((std::array{x, y, z}), (std::array<TparamCurve*, 3>{&c, nullptr, nullptr}));

  static TparamCurve* siblings[3];
  TparamCurve a(true), b(true);
  siblings[0] = &c;
  siblings[1] = &a;
  siblings[2] = &b;
  int host = 0;
  c.setTDNparamCurve(&host,
                     [](void* tdn, TparamCurve** px, TparamCurve** py, TparamCurve** pz, bool) {
                       if (!tdn) return false;
                       *px = siblings[0];
                       *py = siblings[1];
                       *pz = siblings[2];
                       return true;
                     });
  EXPECT_EQ(c.TDNparamCurve(), &host);
  EXPECT_TRUE(c.getSiblingRotationCurves(&x, &y, &z, true));
  EXPECT_EQ(y, &a);
  EXPECT_FALSE(TparamCurve::isRotationInterpolationValid(0));

  // Quaternion curves share their infinity settings with their siblings.
  c.setRotationInterpolation(TparamCurve::kQuaternion);
  c.setPostInfinityType(TparamCurve::kOscillate);
  EXPECT_EQ(a.postInfinityType(), TparamCurve::kOscillate);
  EXPECT_EQ(b.postInfinityType(), TparamCurve::kOscillate);
  c.setRotationInterpolation(static_cast<TparamCurve::TrotationInterpolation>(9));
  EXPECT_EQ(c.getRotationInterpolation(), TparamCurve::kQuaternion);
}

}  // namespace
}  // namespace lumora
