#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <tuple>
#include <type_traits>
#include <vector>

#include "lumora/base/arena.h"
#include "lumora/base/time_arrays.h"
#include "lumora/keys/internal/key_pool.h"
#include "lumora/notify/key_deltas.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/param_curve_delta.h"
#include "testing/curve_invariants.h"
#include "testing/curve_snapshot.h"

namespace lumora {
namespace {

using Kind = TrecordedMsg::Tkind;
using Modified = TparamCurveModifiedMsg;
constexpr TtangentType kSpline = kTangentSpline;

// Keys alive in the pool; -1 when the pool cannot count (memory-checker mode).
long liveKeys() {
  const TcompactArena* pool = internal::keyPool();
  if (!pool || pool->isPure()) return -1;
  return static_cast<long>(pool->liveCount());
}

void addKeys(TparamCurve& c, std::initializer_list<Tkeyframe> keys) {
  for (const Tkeyframe& k : keys) ASSERT_TRUE(c.add(k));
}

// An array of `items`, each converted to the element type.
template <typename Array>
Array arrayOf(std::initializer_list<double> items) {
  Array a;
  for (double item : items) a.addLast(std::remove_cvref_t<decltype(a[0])>(item));
  return a;
}

std::array<float, 2> tanOut(const Tkeyframe* k) {
  std::array<float, 2> t;
  k->getTanOut(t[0], t[1]);
  return t;
}

std::array<float, 2> tanIn(const Tkeyframe* k) {
  std::array<float, 2> t;
  k->getTanIn(t[0], t[1]);
  return t;
}

std::vector<double> sample(TparamCurve& c, float from, float to, int steps) {
  std::vector<double> out;
  for (int s = 0; s <= steps; ++s) out.push_back(c.evaluate(from + (to - from) * s / steps));
  return out;
}

// The words of a key's tangents (in x, in y, out x, out y).
std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t> tangentWords(
    const Tkeyframe* k) {
  const TkeySnapshot s = snapshotOf(*k);
  return {s.tanInX, s.tanInY, s.tanOutX, s.tanOutY};
}

// Three float curves that answer as the x, y and z of one rotation.
struct Trotation {
  TparamCurve x{true}, y{true}, z{true};
  Trotation() {
    for (TparamCurve* c : {&x, &y, &z}) c->setTDNparamCurve(this, &provide);
  }
  static bool provide(void* self, TparamCurve** px, TparamCurve** py, TparamCurve** pz, bool) {
    auto* r = static_cast<Trotation*>(self);
    return (*px = &r->x, *py = &r->y, *pz = &r->z, true);
  }
};

// --- add -------------------------------------------------------------------------------

TEST(TparamCurveAdd, OverwriteCopiesEveryFieldKeepsOrderAndReportsOnlyValueChanges) {
  TparamCurve c(true);
  addKeys(c, {Tkeyframe(1.0f, 5.0, kTangentFlat, kTangentFlat), Tkeyframe(2.0f, 6.0)});
  Tkeyframe* original = c.keyframe(0);
  TmessageRecorder rec;
  rec.listenTo(c);
  Tkeyframe same(1.000004f, 5.0, kTangentFixed, kTangentStep);
  same.setTanIn(2.0f, 3.0f).setBreakdown(true);
  EXPECT_TRUE(c.add(same));
  TkeySnapshot expected = snapshotOf(same);
  expected.address = reinterpret_cast<std::uintptr_t>(original);  // the object stays
  EXPECT_EQ(describeDifference(expected, snapshotOf(*original), /*isFloat=*/true), "");
  EXPECT_EQ(rec.count(Kind::kModified), 0u);
  EXPECT_TRUE(c.add(Tkeyframe(1.0f, 7.0, kTangentFlat, kTangentFlat)));
  ASSERT_EQ(rec.count(Kind::kModified), 1u);
  EXPECT_EQ(rec.log.back().messageType, Modified::kKeyChanged);

  // Within the tolerance of a key at 1 s and of one at 1.000011 s: the first
  // takes the value but keeps its time.
  TparamCurve d(true);
  addKeys(d, {Tkeyframe(1.0f, 0.0), Tkeyframe(1.000011f, 1.0), Tkeyframe(1.000008f, 2.0)});
  EXPECT_EQ(checkCurveInvariants(d), "");
  EXPECT_EQ(std::tuple(d.keyframe(0)->value(), d.keyframe(0)->timeAsFloat()),
            std::tuple(2.0, 1.0f));
}

TEST(TparamCurveAdd, BadInputChangesNothingAndLeaksNothing) {
  TparamCurve c(true);
  c.add(Tkeyframe(0.0f, 1.0));
  const long before = liveKeys();
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(c.add(Tkeyframe(std::nanf(""), 1.0)));
  EXPECT_FALSE(c.add(Tkeyframe(1.0f, std::nan(""))));
  EXPECT_FALSE(c.insert(Tkeyframe(1.0f, -inf), true, false));
  EXPECT_FALSE(c.insert(TtimeValue(static_cast<float>(inf)), false, false));
  EXPECT_FALSE(c.insert(TtimeValue(), false, false));

  TanimTimeArray noTicks, ticks = arrayOf<TanimTimeArray>({6000, 12000});
  TdoubleArray none, one = arrayOf<TdoubleArray>({2.0}), two = arrayOf<TdoubleArray>({2.0, 3.0});
  TdoubleArray lastInf = arrayOf<TdoubleArray>({2.0, inf});
  TdoubleArray seconds = arrayOf<TdoubleArray>({1.0, 1e300});  // no float holds 1e300
  const Tkeyframe templ(0.0f, 0.0, kSpline, kSpline);
  EXPECT_FALSE(c.blockAdd(noTicks, none, kSpline, kSpline));
  EXPECT_FALSE(c.blockAdd(templ, nullptr, &two));
  EXPECT_FALSE(c.blockAdd(nullptr, &two, kSpline, kSpline, true));
  EXPECT_FALSE(c.blockAdd(ticks, one, kSpline, kSpline));
  // The last value is checked before the first key is added.
  EXPECT_FALSE(c.blockAdd(&ticks, &lastInf, kSpline, kSpline, true));
  EXPECT_FALSE(c.blockAdd(templ, &seconds, &two));
  EXPECT_EQ(c.keyframeCount(), 1u);
  EXPECT_EQ(liveKeys(), before);
}

TEST(TparamCurveAdd, SiblingsGetKeysThatLieOnTheirOwnCurves) {
  Trotation r;
  addKeys(r.y, {Tkeyframe(0.0f, 10.0, 0.5, kTangentLinear, kTangentLinear),
                Tkeyframe(2.0f, 20.0, kTangentLinear, kTangentLinear)});
  for (TparamCurve* c : {&r.x, &r.y, &r.z}) c->setRotationInterpolation(TparamCurve::kQuaternion);
  Tkeyframe k(1.0f, 99.0, kTangentFlat, kTangentFlat);
  k.setBreakdown(true);
  ASSERT_TRUE(r.x.add(k, false, /*allSiblings=*/true));
  ASSERT_EQ(r.y.keyframeCount(), 3u);
  const Tkeyframe* made = r.y.keyframe(1);
  EXPECT_DOUBLE_EQ(made->value(), 15.0);  // its own value at 1 s
  // Types copied from its neighbour, but not the neighbour's W, nor the breakdown.
  EXPECT_EQ(std::tuple(made->tanInType(), made->quaternionW(), made->breakdown()),
            std::tuple(kTangentLinear, 1.0f, false));
  // No neighbour: a copy of the key itself, still without the breakdown.
  EXPECT_EQ(std::tuple(r.z.keyframe(0)->value(), r.z.keyframe(0)->breakdown()),
            std::tuple(99.0, false));

  r.x.remove(0, nullptr, /*allSiblings=*/true);  // index 0 of each curve
  EXPECT_EQ(r.x.keyframeCount() + r.z.keyframeCount(), 0u);
  EXPECT_EQ(r.y.keyframeCount(), 2u);
  r.x.remove(0, nullptr, /*allSiblings=*/true);  // stops at the first curve without the index
  EXPECT_EQ(r.y.keyframeCount(), 2u);
}

// --- insert ----------------------------------------------------------------------------

TEST(TparamCurveInsert, ExistingTimeSucceedsAndChangesNothing) {
  TparamCurve c(true);
  ASSERT_TRUE(c.add(Tkeyframe(1.0f, 5.0)));
  TmessageRecorder rec;
  rec.listenTo(c);
  EXPECT_TRUE(c.insert(Tkeyframe(1.0f, 8.0), /*keepShape=*/true, false));
  EXPECT_TRUE(c.insert(TtimeValue(1.0f), /*breakdown=*/true, false));
  EXPECT_EQ(std::tuple(c.keyframeCount(), c.keyframe(0)->value(), c.keyframe(0)->breakdown(),
                       rec.log.size()),
            std::tuple(1u, 5.0, false, 0u));

  auto* owned = new Tkeyframe(1.0f, 3.0);
  EXPECT_FALSE(c.insert(owned, false));  // not adopted: still ours
  delete owned;
  auto* adopted = new Tkeyframe(2.0f, 3.0);
  EXPECT_TRUE(c.insert(adopted, false));
  EXPECT_EQ(c.keyframe(1), adopted);
}

TEST(TparamCurveInsert, TimeFormOnEmptyCurveAddsZeroKey) {
  for (bool isFloat : {true, false}) {
    TparamCurve c(isFloat);
    ASSERT_TRUE(c.insert(c.makeTimeValue(1.5f), /*breakdown=*/true, false));
    ASSERT_EQ(c.keyframeCount(), 1u);
    EXPECT_TRUE(c.keyframe(0)->value() == 0.0 && c.keyframe(0)->breakdown());
    EXPECT_FLOAT_EQ(c.seconds(0u), 1.5f);
  }
}

TEST(TparamCurveInsert, KeepShapeAfterStepKeyGivesSplineStep) {
  TparamCurve c(true);
  addKeys(c, {Tkeyframe(0.0f, 1.0, kSpline, kTangentStep), Tkeyframe(2.0f, 5.0, kSpline, kSpline)});
  ASSERT_TRUE(c.insert(TtimeValue(1.0f), false, false));
  const Tkeyframe* k = c.keyframe(1);
  EXPECT_EQ((std::array{k->tanInType(), k->tanOutType()}), (std::array{kSpline, kTangentStep}));
  EXPECT_EQ((std::array{k->value(), c.evaluate(1.5f)}), (std::array{1.0, 1.0}));
  EXPECT_EQ(c.keyframe(0)->tanInType(), kTangentFixed);
  EXPECT_EQ(c.keyframe(2)->tanOutType(), kTangentFixed);
}

TEST(TparamCurveInsert, KeepShapeLeavesTheCurveUnchanged) {
  // Weighted, float time, and the tangent types around the span [1, 2.5] that
  // receives the new key.
  struct {
    bool weighted, isFloat;
    TtangentType prevIn, prevOut, nextIn, nextOut;
  } const cases[] = {
      {false, true, kSpline, kSpline, kSpline, kSpline},
      {true, true, kSpline, kSpline, kSpline, kSpline},
      {false, true, kTangentClamped, kTangentClamped, kTangentFixed, kTangentFixed},
      {true, true, kTangentFixed, kTangentFixed, kTangentClamped, kTangentClamped},
      {true, true, kTangentSmooth, kTangentSmooth, kTangentLinear, kTangentLinear},
      {false, false, kTangentFlat, kTangentFixed, kSpline, kTangentClamped},
      {true, false, kTangentClampedSmooth, kSpline, kTangentFixed, kSpline},
  };
  for (const auto& sc : cases) {
    for (bool timeForm : {true, false}) {
      TparamCurve c(sc.isFloat);
      c.setIsWeighted(sc.weighted);
      Tkeyframe prev(c.makeTimeValue(1.0f), 3.0, sc.prevIn, sc.prevOut);
      Tkeyframe next(c.makeTimeValue(2.5f), -1.0, sc.nextIn, sc.nextOut);
      prev.setTanIn(0.7f, 1.9f).setTanOut(0.4f, -2.5f);
      next.setTanIn(0.5f, 0.8f).setTanOut(0.6f, 0.3f);
      addKeys(c, {Tkeyframe(c.makeTimeValue(0.0f), 0.0, kSpline, kSpline), prev, next,
                  Tkeyframe(c.makeTimeValue(4.0f), 2.0, kSpline, kSpline)});
      const std::vector<double> before = sample(c, 0.0f, 4.0f, 800);
      const TtimeValue at = c.makeTimeValue(1.7f);
      ASSERT_TRUE(timeForm ? c.insert(at, false, false)
                           : c.insert(Tkeyframe(at, c.evaluate(at)), true, false));
      ASSERT_EQ(c.keyframeCount(), 5u);
      for (unsigned i : {1u, 2u, 3u}) {
        EXPECT_EQ(std::tuple(c.keyframe(i)->tanInType(), c.keyframe(i)->tanOutType()),
                  std::tuple(kTangentFixed, kTangentFixed));
      }
      const std::vector<double> after = sample(c, 0.0f, 4.0f, 800);
      for (std::size_t s = 0; s < before.size(); ++s) {
        ASSERT_NEAR(after[s], before[s], 2e-6 * (1.0 + std::fabs(before[s])))
            << "case " << (&sc - cases) << " sample " << s << " timeForm " << timeForm;
      }
    }
  }
}

TEST(TparamCurveInsert, RandomEditsKeepKeysStrictlyOrdered) {
  for (bool isFloat : {true, false}) {
    TparamCurve c(isFloat);
    std::mt19937 random(20240601);
    const auto rng = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
    for (int step = 0; step < 3000; ++step) {
      // Times on a 1/100 s grid, nudged by up to 9e-6 s so that float curves
      // also meet times within their tolerance.
      const TtimeValue t = c.makeTimeValue(static_cast<float>(rng(2000)) * 0.01f + rng(10) * 1e-6f);
      const double v = static_cast<double>(rng(2001)) / 100.0 - 10.0;
      const auto type = static_cast<TtangentType>(1 + rng(10));
      const unsigned op = rng(5);
      if (op == 0) c.add(Tkeyframe(t, v, type, type));
      if (op == 1) c.insert(t, rng(2) == 0, false);
      if (op == 2) c.insert(Tkeyframe(t, v, type, kSpline), rng(2) == 0, false);
      if (op > 2) c.remove(rng(c.keyframeCount() + 2));
      ASSERT_EQ(checkCurveInvariants(c), "") << "step " << step;
    }
    EXPECT_GT(c.keyframeCount(), 50u);
  }
}

// --- blockAdd ---------------------------------------------------------------------------

TEST(TparamCurveBlockAdd, AscendingPromiseBrokenFallsBackToSortedInsertion) {
  TparamCurve c(false);
  c.add(Tkeyframe(TanimTime(6000), 0.0));
  TanimTimeArray ticks = arrayOf<TanimTimeArray>({12000, 18000, 3000, 18000, 24000});
  TdoubleArray values = arrayOf<TdoubleArray>({2, 3, 0.5, 3, 4});
  const long before = liveKeys();
  ASSERT_TRUE(c.blockAdd(&ticks, &values, kSpline, kSpline, /*ascending=*/true));
  EXPECT_EQ(c.keyframeCount(), 5u);  // the repeated time was refused
  EXPECT_EQ(checkCurveInvariants(c), "");
  EXPECT_EQ(c.keyframe(0)->timeAsTicks(), 3000);
  EXPECT_EQ(liveKeys(), before < 0 ? before : before + 4);
}

TEST(TparamCurveBlockAdd, SplineTangentsMatchKeysAddedOneByOne) {
  for (bool weighted : {true, false}) {
    TparamCurve block(true), single(true);
    block.setIsWeighted(weighted);
    single.setIsWeighted(weighted);
    TanimTimeArray ticks;
    TdoubleArray values;
    for (int i = 0; i < 20; ++i) {
      ticks.addLast(TanimTime(i * 1500 + (i % 3) * 700));
      values.addLast(std::sin(i * 0.7) * 5.0);
      single.add(Tkeyframe(ticks[i].inSeconds(), values[i], kSpline, kSpline));
    }
    ASSERT_TRUE(block.blockAdd(ticks, values, kSpline, kSpline));
    ASSERT_EQ(block.keyframeCount(), single.keyframeCount());
    for (unsigned i = 0; i < block.keyframeCount(); ++i) {
      EXPECT_EQ(tangentWords(block.keyframe(i)), tangentWords(single.keyframe(i))) << i;
    }
  }
}

TEST(TparamCurveBlockAdd, FixedInTypeComputesNoTangents) {
  TparamCurve c(true);
  TmessageRecorder rec;
  rec.listenTo(c);
  TanimTimeArray ticks = arrayOf<TanimTimeArray>({0, 6000, 12000, 18000});
  TdoubleArray values = arrayOf<TdoubleArray>({0, 1, 4, 9});
  ASSERT_TRUE(c.blockAdd(ticks, values, kTangentFixed, kSpline));
  for (unsigned i = 0; i < 4; ++i) EXPECT_EQ(tanOut(c.keyframe(i)), (std::array{0.0f, 0.0f}));
  EXPECT_EQ(rec.count(Kind::kModified), 4u);  // one key-added message per key
  EXPECT_FALSE(c.staticCurve());
}

TEST(TparamCurveBlockAdd, TemplateFormOverwritesAndSendsNothing) {
  TparamCurve c(true);
  c.add(Tkeyframe(1.0f, 1.0, kTangentFlat, kTangentFlat));
  TmessageRecorder rec;
  rec.listenTo(c);
  const TdoubleArray seconds = arrayOf<TdoubleArray>({2.0, 1.0, 0.5});
  const TdoubleArray values = arrayOf<TdoubleArray>({20.0, 10.0, 5.0});
  ASSERT_TRUE(c.blockAdd(Tkeyframe(0.0f, 0.0, kTangentLinear, kTangentLinear), &seconds, &values));
  ASSERT_EQ(c.keyframeCount(), 3u);
  EXPECT_TRUE(c.keyframe(1)->value() == 10.0 && c.keyframe(1)->tanInType() == kTangentLinear);
  EXPECT_DOUBLE_EQ(c.evaluate(1.5f), 15.0);
  EXPECT_TRUE(rec.log.empty());
}

TEST(TparamCurveBlockSetters, RangesAreCheckedAndClamped) {
  TparamCurve c(true);
  c.setIsWeighted(true);
  for (int i = 0; i < 3; ++i) c.add(Tkeyframe(float(i), i, kTangentFixed, kTangentFixed));
  TdoubleArray xs = arrayOf<TdoubleArray>({0.25, 0.5, 0.75, 1.0, 1.25});
  Tint16Array types = arrayOf<Tint16Array>({kTangentStep, kTangentStep, kTangentStep});
  EXPECT_FALSE(c.setBlockTangentXValue(3, 4, xs, true));
  EXPECT_FALSE(TparamCurve(true).setBlockTanType(0, 0, types, true));
  EXPECT_TRUE(c.setBlockTangentXValue(2, 1, xs, true));  // empty range
  ASSERT_TRUE(c.setBlockTangentYValue(0, 1, xs, false));
  ASSERT_TRUE(c.setBlockTangentXValue(1, 99, xs, false));  // element 0 goes to key `first`
  EXPECT_EQ(tanOut(c.keyframe(0))[1], 0.25f);
  EXPECT_EQ(tanOut(c.keyframe(1)), (std::array{0.25f, 0.5f}));
  EXPECT_EQ(tanOut(c.keyframe(2))[0], 0.5f);
  ASSERT_TRUE(c.setBlockTanType(1, 7, types, /*inSide=*/false));
  EXPECT_EQ(std::tuple(c.keyframe(0)->tanOutType(), c.keyframe(2)->tanOutType()),
            std::tuple(kTangentFixed, kTangentStep));
  xs[0] = std::nan("");
  EXPECT_FALSE(c.setBlockTangentXValue(0, 0, xs, true));
}

// --- remove -------------------------------------------------------------------------------

TEST(TparamCurveRemove, NotRecordingDeletesTheKeyAndRecomputesNeighbours) {
  TparamCurve c(true);
  c.setIsWeighted(false);
  for (int i = 0; i < 3; ++i) c.add(Tkeyframe(float(i), i * i, kSpline, kSpline));
  TmessageRecorder rec;
  rec.listenTo(c);
  rec.listenTo(c, TkeyframeAddDeleteMsgTmeta);
  const long before = liveKeys();
  Tkeyframe* doomed = c.keyframe(2);
  c.remove(2);
  EXPECT_EQ(liveKeys(), before < 0 ? before : before - 1);
  ASSERT_EQ(rec.kinds(), (std::vector<Kind>{Kind::kAddDelete, Kind::kModified}));
  EXPECT_TRUE(rec.log[0].key == doomed && !rec.log[0].added);
  EXPECT_EQ(rec.log[1].messageType, Modified::kKeyRemoved);
  const std::array<float, 2> out = tanOut(c.keyframe(1));
  EXPECT_FLOAT_EQ(out[1] / out[0], 1.0f);  // last key now: its spline points back at key 0
  c.remove(5);                             // out of range: nothing
  EXPECT_EQ(c.keyframeCount(), 2u);
  c.remove(1);
  EXPECT_FALSE(c.staticCurve());
  c.remove(0);  // the only key: the curve is static again
  EXPECT_TRUE(c.keyframeCount() == 0u && c.staticCurve());
}

TEST(TparamCurveRemove, RecordingKeepsTheKeyObjectWithTheUndoContent) {
  TparamCurve c(true);
  addKeys(c, {Tkeyframe(0.0f, 1.0), Tkeyframe(1.0f, 2.0)});
  Tkeyframe* removed = c.keyframe(1);
  const Tkeyframe undoState(1.0f, 42.0);
  c.beginMod();
  c.remove(1, &undoState);
  std::unique_ptr<Tdelta> delta(c.endMod());
  ASSERT_TRUE(isDeltaOfType(delta.get(), TPCDaddRemoveKeyTmeta));
  const auto* d = static_cast<TPCDaddRemoveKey*>(delta.get());
  EXPECT_TRUE(d->operation() == TPCDaddRemoveKey::kKeyRemoved && d->keyframe() == removed);
  EXPECT_EQ(std::tuple(removed->value(), c.keyframeCount()), std::tuple(42.0, 1u));
  c.setBlockAddMode(true);  // bulk removals record nothing
  c.beginMod();
  c.remove(0);
  EXPECT_EQ(c.endMod(), nullptr);
}

}  // namespace
}  // namespace lumora

namespace lumora {
namespace {

TEST(TparamCurveRemove, NewFirstKeyEqualsTheSameKeysBuiltAfresh) {
  TparamCurve c(true), fresh(true);
  for (int i = 0; i < 4; ++i) c.add(Tkeyframe(float(i), i * i * 0.5, kSpline, kSpline));
  for (int i = 1; i < 4; ++i) fresh.add(Tkeyframe(float(i), i * i * 0.5, kSpline, kSpline));
  c.remove(0);
  ASSERT_EQ(c.keyframeCount(), fresh.keyframeCount());
  for (unsigned i = 0; i < c.keyframeCount(); ++i) {
    EXPECT_EQ(tanIn(c.keyframe(i)), tanIn(fresh.keyframe(i))) << i;
    EXPECT_EQ(tanOut(c.keyframe(i)), tanOut(fresh.keyframe(i))) << i;
  }
}

TEST(TparamCurveInsert, KeysNearTheEndsOfTheDoubleRangeNeverBecomeNonFinite) {
  // The curve's own arithmetic overflows between keys of opposite extreme
  // values: no key may take the NaN it gives there.
  constexpr double kHuge = std::numeric_limits<double>::max();
  for (const bool weighted : {false, true}) {
    TparamCurve c(true);
    c.setIsWeighted(weighted);
    for (int i = 0; i < 3; ++i)
      c.add(Tkeyframe(float(i), i == 1 ? kHuge : -kHuge, kSpline, kSpline));
    c.insert(c.makeTimeValue(0.5f), /*breakdown=*/false, /*allSiblings=*/false);
    c.insert(c.makeTimeValue(1.5f), /*breakdown=*/true, /*allSiblings=*/false);
    c.insert(Tkeyframe(0.25f, 1.0), /*keepShape=*/true, /*allSiblings=*/false);
    for (unsigned i = 0; i < c.keyframeCount(); ++i) {
      const Tkeyframe* k = c.keyframe(i);
      const std::array<float, 2> in = tanIn(k), out = tanOut(k);
      EXPECT_TRUE(std::isfinite(k->value()) && std::isfinite(in[0]) && std::isfinite(in[1]) &&
                  std::isfinite(out[0]) && std::isfinite(out[1]))
          << "weighted " << weighted << " key " << i;
    }
    EXPECT_EQ(checkCurveInvariants(c), "");
  }
}

}  // namespace
}  // namespace lumora

namespace lumora {
namespace {

TEST(TparamCurveInsert, AKeyOwnedByACurveIsNeverAdopted) {
  TparamCurve a(true), b(true);
  a.add(Tkeyframe(1.0f, 3.0));
  Tkeyframe* owned = a.keyframe(0);
  ASSERT_TRUE(owned->isInCurve());
  EXPECT_FALSE(b.insert(owned, /*allSiblings=*/false));
  EXPECT_EQ(b.keyframeCount(), 0u);
  EXPECT_FALSE(a.insert(owned, /*allSiblings=*/false));
  auto* loose = new Tkeyframe(2.0f, 4.0);
  EXPECT_FALSE(loose->isInCurve());
  ASSERT_TRUE(b.insert(loose, /*allSiblings=*/false));
  EXPECT_TRUE(loose->isInCurve());
  // A key the curve let go of without deleting is loose again.
  a.removeAllKeys(/*recreate=*/true, /*deleteKeys=*/false);
  EXPECT_FALSE(owned->isInCurve());
  ASSERT_TRUE(b.insert(owned, /*allSiblings=*/false));
  EXPECT_EQ(b.keyframeCount(), 2u);
}

TEST(TparamCurveStorage, RescalingTicksKeepsKeysApartAndCopiesKeepTheirKind) {
  using Unit = TtimeUnitSystem;
  // Minutes to seconds shrinks every time 60-fold: 1, 2 and 3 ticks would all
  // truncate to 0. Seconds to hours grows them 3600-fold: the last two keys
  // would both saturate at the end of the tick range.
  for (const auto& [from, to] :
       {std::pair(Unit::kMinutes, Unit::kSeconds), std::pair(Unit::kSeconds, Unit::kHours)}) {
    TparamCurve c(false);
    for (const int ticks : {-5, 1, 2, 3, 900000, 1000000}) {
      c.add(Tkeyframe(TanimTime(ticks), ticks * 0.5));
    }
    c.noUpdate(from, to);
    EXPECT_EQ(c.keyframeCount(), 6u);
    EXPECT_EQ(checkCurveInvariants(c), "") << static_cast<int>(to);
  }

  TparamCurve bare(true);
  bare.removeAllKeys(/*recreate=*/false);
  const TparamCurve copy(bare);
  EXPECT_EQ(std::tuple(copy.isFloat(), copy.isAnimTime()), std::tuple(false, false));
}

}  // namespace
}  // namespace lumora
