// Undo and redo of key edits put every key back bit for bit, and bad input
// changes nothing.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

#include "lumora/base/typed_array.h"
#include "lumora/curve/hermite_segment_evaluator.h"
#include "lumora/curve/param_curve.h"
#include "lumora/notify/param_curve_delta.h"

namespace lumora {
namespace {

// Every stored field of every key (selection aside) and the key object, as
// raw words.
std::vector<std::uint64_t> stateOf(const TparamCurve& c) {
  constexpr std::uint32_t kSelection = 7u << Tkeyframe::kBitKeyActive;
  std::vector<std::uint64_t> words;
  for (unsigned i = 0; i < c.keyframeCount(); ++i) {
    const Tkeyframe* k = c.keyframe(i);
    float t[4];
    k->getTanIn(t[0], t[1]);
    k->getTanOut(t[2], t[3]);
    words.push_back(reinterpret_cast<std::uintptr_t>(k));
    words.push_back(std::bit_cast<std::uint64_t>(k->value()));
    words.push_back(static_cast<std::uint32_t>(k->timeAsTicks()));
    words.push_back(k->flags().bits() & ~kSelection);
    words.push_back(std::bit_cast<std::uint32_t>(k->quaternionW()));
    for (const float v : t) words.push_back(std::bit_cast<std::uint32_t>(v));
  }
  return words;
}

// A unit direction that ThermiteSegmentEvaluator moves by a bit when it
// normalises it a second time.
bool unstableDirection(float& x, float& y) {
  for (float a = 0.1f; a < 10.0f; a += 0.37f) {
    for (float b = 0.1f; b < 10.0f; b += 0.13f) {
      float tx = 0.0f, ty = 0.0f;
      ThermiteSegmentEvaluator::directionToStorage(a, b, x, y);
      ThermiteSegmentEvaluator::directionToStorage(x, y, tx, ty);
      if (tx != x || ty != y) return true;
    }
  }
  return false;
}

// A non-weighted float curve with keys at 0, 1, 2 and 3 s.
std::unique_ptr<TparamCurve> makeCurve(TtangentType type) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  c->setIsWeighted(false);
  for (int i = 0; i < 4; ++i) c->add(Tkeyframe(static_cast<float>(i), (i * 7) % 5, type, type));
  return c;
}

// Records `edit` in one action, then checks that undo gives back the state
// before it and redo the state after it, three times over.
template <typename Edit>
void expectRoundTrip(TparamCurve& c, Edit edit) {
  const auto before = stateOf(c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(c);
  edit();
  const auto after = stateOf(c);
  ASSERT_TRUE(action.endParamCurveMod(c));
  for (int round = 0; round < 3; ++round) {
    action.undoPC();
    EXPECT_EQ(stateOf(c), before) << "undo " << round;
    action.redoPC();
    EXPECT_EQ(stateOf(c), after) << "redo " << round;
  }
}

TEST(KeyEditUndo, RestoresEveryKeyBitwise) {
  float x = 0.0f, y = 0.0f;
  ASSERT_TRUE(unstableDirection(x, y));
  auto c = makeCurve(kTangentFixed);
  c->keyframe(1)->setTanOut(x, y);
  c->keyframe(2)->setTanIn(x, y);
  // Shape-keeping insertion next to fixed unit tangents, and drags of them.
  expectRoundTrip(*c, [&] { c->insert(TtimeValue(1.5f), false, false); });
  expectRoundTrip(*c, [&] { c->dragTangent(1, x, y * 2.0f, false); });
  // Removing the first key leaves the new first key's tangents alone;
  // adding one in front recomputes them.
  c = makeCurve(kTangentSpline);
  expectRoundTrip(*c, [&] { c->remove(0); });
  expectRoundTrip(*c, [&] { c->add(Tkeyframe(-1.0f, 4.0, kTangentSpline, kTangentSpline)); });
  // The first key of an empty curve keeps the tangents it was given.
  TparamCurve empty(/*isFloat=*/true);
  expectRoundTrip(empty, [&] { empty.add(Tkeyframe(1.0f, 2.0, kTangentLinear, kTangentLinear)); });
}

TEST(KeyEditUndo, TypeChangeBesideLinearSpanRestoresVector) {
  auto c = makeCurve(kTangentLinear);
  c->setTanInType(1, kTangentFixed);
  c->keyframe(1)->setTanIn(0.6f, 0.8f);
  ASSERT_EQ(c->keyframe(1)->interpMethod(), Tkeyframe::kSpanLinear);
  ASSERT_FALSE(c->dragTangent(1, 1.0f, 0.0f, /*inSide=*/true));  // refused there
  expectRoundTrip(*c, [&] { c->setTanInType(1, kTangentFlat); });
}

TEST(KeyEditUndo, SnapshotKeepsStoredSpanMethods) {
  auto c = makeCurve(kTangentLinear);
  Tint16Array fixed;
  fixed.addLast(kTangentFixed);
  ASSERT_TRUE(c->setBlockTanType(1, 1, fixed, /*inSide=*/false));  // span bit left as it was
  expectRoundTrip(*c, [&] {
    c->generateCurveDeltas();
    c->add(Tkeyframe(0.5f, 9.0, kTangentSpline, kTangentSpline));
  });
}

TEST(KeyEditUndo, RepeatedUndoOfOverwriteChangesNothing) {
  auto c = makeCurve(kTangentSpline);
  const auto before = stateOf(*c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*c);
  c->add(Tkeyframe(1.0f, -6.0, kTangentFlat, kTangentFlat));
  ASSERT_TRUE(action.endParamCurveMod(*c));
  action.undoPC();
  action.undoPC();
  EXPECT_EQ(stateOf(*c), before);
}

TEST(KeyEditBadInput, NonFiniteValuesAreRefused) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  auto c = makeCurve(kTangentSpline);
  TparamCurve ticks(/*isFloat=*/false);
  ticks.add(Tkeyframe(TanimTime(0), 1.0));
  const auto before = stateOf(*c);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(*c);
  EXPECT_FALSE(c->dragTangent(1, nan, 1.0f, false));
  EXPECT_FALSE(c->dragTangent(1, 1.0f, inf, true));
  EXPECT_FALSE(action.endParamCurveMod(*c));  // nothing recorded
  EXPECT_EQ(stateOf(*c), before);
  EXPECT_FALSE(ticks.insert(TtimeValue(nan), false, false));
  EXPECT_FALSE(ticks.insert(TtimeValue(inf), false, false));
  EXPECT_EQ(ticks.keyframeCount(), 1u);
}

}  // namespace
}  // namespace lumora
