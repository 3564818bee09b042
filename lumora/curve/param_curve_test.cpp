#include "lumora/curve/param_curve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "lumora/base/debug_output.h"
#include "lumora/base/server_msg.h"
#include "lumora/curve/param_curve_test_support.h"

namespace lumora {
namespace {

// Inserts keys straight into the key array, bypassing tangent computation.
void putKey(TparamCurve& c, Tkeyframe* key) {
  ASSERT_GE(TparamCurveTestAccess::arrayInsert(c, key), 0);
  c.setStaticCurve(false);
}

struct TmessageCounter : Tclient {
  int count = 0;
  static void onMessage(Tclient* self, TclientServer*, const TserverMsg&) {
    ++static_cast<TmessageCounter*>(self)->count;
  }
};

TEST(TparamCurve, DefaultIsAnEmptyStaticTickCurve) {
  TparamCurve c;
  EXPECT_TRUE(c.isAnimTime());
  EXPECT_FALSE(c.isFloat());
  EXPECT_EQ(c.keyframeCount(), 0u);
  EXPECT_TRUE(c.staticCurve());
  EXPECT_EQ(c.getRotationInterpolation(), TparamCurve::kEuler);
  EXPECT_EQ(c.preInfinityType(), TparamCurve::kConstant);
  EXPECT_FALSE(c.isEdit());
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
  TparamCurve f(true);
  for (float t : {0.0f, 1.0f, 2.0f}) putKey(f, new Tkeyframe(t, t));
  unsigned i = 99;
  EXPECT_TRUE(f.find(TtimeValue(1.000005f), i));
  EXPECT_EQ(i, 1u);
  EXPECT_FALSE(f.find(TtimeValue(1.5f), i));
  EXPECT_EQ(i, 2u);
  EXPECT_FALSE(f.find(TtimeValue(-1.0f), i));
  EXPECT_EQ(i, 0u);
  EXPECT_FALSE(f.find(TtimeValue(9.0f), i));
  EXPECT_EQ(i, 3u);

  TparamCurve t(false);
  putKey(t, new Tkeyframe(TanimTime(100), 0.0));
  putKey(t, new Tkeyframe(TanimTime(101), 0.0));
  EXPECT_TRUE(t.find(TtimeValue(TanimTime(101)), i));
  EXPECT_EQ(i, 1u);
  EXPECT_FALSE(t.find(TtimeValue(TanimTime(102)), i));
  EXPECT_EQ(i, 2u);

  TparamCurve empty(true);
  EXPECT_FALSE(empty.find(TtimeValue(1.0f), i));
  EXPECT_EQ(i, 0u);
}

TEST(TparamCurve, IncrementalFindUsesAndChecksTheHint) {
  TparamCurve c(true);
  for (float t : {0.0f, 1.0f, 2.0f, 3.0f}) putKey(c, new Tkeyframe(t, t));
  unsigned i = 1;
  EXPECT_TRUE(c.incrementalFind(TtimeValue(2.0f), i, true));
  EXPECT_EQ(i, 2u);
  i = 2;
  EXPECT_TRUE(c.incrementalFind(TtimeValue(1.0f), i, false));
  EXPECT_EQ(i, 1u);
  i = 0;  // neighbour does not match: falls back to a full search
  EXPECT_TRUE(c.incrementalFind(TtimeValue(3.0f), i, true));
  EXPECT_EQ(i, 3u);
  i = TparamCurve::kInvalidIndex;
  EXPECT_FALSE(c.incrementalFind(TtimeValue(2.5f), i, true));
  EXPECT_EQ(i, 3u);
}

TEST(TparamCurve, SeekKeyWithoutDeferredDeletion) {
  TparamCurve c(true);
  for (float t : {0.0f, 1.0f, 2.0f}) putKey(c, new Tkeyframe(t, t));
  unsigned i = 1;
  EXPECT_EQ(c.seekKey(i, 0), c.keyframe(1));
  EXPECT_EQ(c.seekKey(i, 1), nullptr);  // direction 1 never advances
  EXPECT_EQ(i, 1u);
  EXPECT_EQ(c.seekKey(i, 2), c.keyframe(2));
  EXPECT_EQ(i, 2u);
  EXPECT_EQ(c.seekKey(i, 2), nullptr);
  EXPECT_EQ(i, 3u);
  EXPECT_EQ(c.seekKey(i, -1), c.keyframe(2));
  i = 0;
  EXPECT_EQ(c.seekKey(i, -1), nullptr);
  EXPECT_EQ(i, 0u);
}

TEST(TparamCurve, SeekKeyWithDeferredDeletion) {
  TparamCurve c(true);
  for (float t : {0.0f, 1.0f, 2.0f, 3.0f, 4.0f}) putKey(c, new Tkeyframe(t, t));
  c.keyframe(1)->setToBeDeleted(true);
  TparamCurveTestAccess::setDeferredDeletion(c, true);
  EXPECT_EQ(c.keyframeCount(), 4u);
  unsigned i = 1;
  EXPECT_EQ(c.seekKey(i, 0), c.keyframe(2));  // logical 1 is physical 2
  EXPECT_EQ(i, 2u);
  i = 0;
  EXPECT_EQ(c.seekKey(i, 1), c.keyframe(2));  // skips the deleted key
  EXPECT_EQ(i, 2u);
  i = 2;
  EXPECT_EQ(c.seekKey(i, -1), c.keyframe(0));
  i = 3;
  EXPECT_EQ(c.seekKey(i, 1), nullptr);  // n - 1 reached
  i = 4;
  EXPECT_EQ(c.seekKey(i, 0), nullptr);
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
  for (float t : {0.0f, 1.0f, 2.0f}) putKey(c, new Tkeyframe(t, t));
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
  TparamCurve f(true);
  putKey(f, new Tkeyframe(1.0f, 0.0));
  f.noUpdate(TtimeUnitSystem::kFilm, TtimeUnitSystem::kNtsc);
  EXPECT_EQ(f.seconds(0u), 1.0f);

  TparamCurve t(false);
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
  putKey(c, new Tkeyframe(0.0f, 1.0));
  putKey(c, new Tkeyframe(1.0f, 2.0));
  c.keyframe(0)->setActive(TbitField32(TpickKey::kPickKey), true);
  c.setPostInfinityType(TparamCurve::kCycle);
  TmessageCounter counter;
  c.addClient(&counter, TserverMsgTmeta, &TmessageCounter::onMessage);

  TparamCurve copy(c);
  EXPECT_TRUE(copy.isFloat());
  ASSERT_EQ(copy.keyframeCount(), 2u);
  EXPECT_NE(copy.keyframe(0), c.keyframe(0));
  EXPECT_FALSE(copy.keyframe(0)->isKeyframeActive());
  EXPECT_EQ(copy.postInfinityType(), TparamCurve::kCycle);
  EXPECT_EQ(copy.clientCount(), 0u);
  copy.setValue(1, 7.0);
  EXPECT_EQ(c.keyframe(1)->value(), 2.0);

  TparamCurve assigned(false);
  assigned = copy;
  EXPECT_TRUE(assigned.isFloat());
  EXPECT_EQ(assigned.keyframe(1)->value(), 7.0);
  c.removeClient(&counter);
}

TEST(TparamCurve, DebugOutputFormat) {
  TparamCurve c(true);
  putKey(c, new Tkeyframe(0.5f, 2.0));
  TstringDebugOutput out;
  c.debugOutput(out);
  EXPECT_TRUE(out.closed());
  const std::string& text = out.text();
  EXPECT_EQ(text.rfind("Param Curve 0x", 0), 0u);
  EXPECT_NE(text.find(" : 1 float keysindex: 0\t time: 0.500000\t value: 2.000000\n"),
            std::string::npos);

  TparamCurve t(false);
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
  EXPECT_EQ(x, &c);
  EXPECT_EQ(y, nullptr);
  EXPECT_EQ(z, nullptr);

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

  EXPECT_TRUE(TparamCurve::isRotationInterpolationValid(3));
  EXPECT_FALSE(TparamCurve::isRotationInterpolationValid(0));
  EXPECT_TRUE(TparamCurve::isEulerAngled(2));
  EXPECT_FALSE(TparamCurve::isEulerAngled(3));
  EXPECT_TRUE(TparamCurve::rotationInterpolationRequiresSyncronisation(2));
  EXPECT_FALSE(TparamCurve::rotationInterpolationRequiresSyncronisation(1));

  // Quaternion curves share their infinity settings with their siblings.
  c.setRotationInterpolation(TparamCurve::kQuaternion);
  EXPECT_EQ(c.getRotationInterpolation(), TparamCurve::kQuaternion);
  c.setPostInfinityType(TparamCurve::kOscillate);
  EXPECT_EQ(a.postInfinityType(), TparamCurve::kOscillate);
  EXPECT_EQ(b.postInfinityType(), TparamCurve::kOscillate);
  c.setRotationInterpolation(static_cast<TparamCurve::TrotationInterpolation>(9));
  EXPECT_EQ(c.getRotationInterpolation(), TparamCurve::kQuaternion);
}

}  // namespace
}  // namespace lumora
