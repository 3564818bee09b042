// The automatic tangent rules of both segment evaluators.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>

#include "lumora/curve/bezier_segment_evaluator.h"
#include "lumora/curve/hermite_segment_evaluator.h"
#include "lumora/curve/segment_evaluator.h"

namespace lumora {
namespace {

using KeyPtr = std::unique_ptr<Tkeyframe>;
using Vec = std::pair<float, float>;

KeyPtr makeKey(float seconds, double value, TtangentType in, TtangentType out) {
  return KeyPtr(new Tkeyframe(seconds, value, in, out));
}
KeyPtr makeKey(float seconds, double value, TtangentType type = kTangentFixed) {
  return makeKey(seconds, value, type, type);
}

// (x, y) scaled to unit length, as non-weighted curves store directions.
Vec unit(double x, double y) {
  const double l = std::hypot(x, y);
  return {static_cast<float>(x / l), static_cast<float>(y / l)};
}

bool nearlyEqual(float a, float b) {
  return a == b || std::fabs(a - b) <= 4 * FLT_EPSILON * std::max(std::fabs(a), std::fabs(b));
}

// The key's in and out tangents, each within a few float ulps.
::testing::AssertionResult tans(const Tkeyframe& k, Vec in, Vec out) {
  float ix, iy, ox, oy;
  k.getTanIn(ix, iy);
  k.getTanOut(ox, oy);
  if (nearlyEqual(ix, in.first) && nearlyEqual(iy, in.second) && nearlyEqual(ox, out.first) &&
      nearlyEqual(oy, out.second)) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << "in (" << ix << ", " << iy << ") out (" << ox << ", " << oy << ")";
}

std::unique_ptr<TsegmentEvaluator> evaluator(bool weighted) {
  return weighted ? std::unique_ptr<TsegmentEvaluator>(new TbezierSegmentEvaluator(true))
                  : std::unique_ptr<TsegmentEvaluator>(new ThermiteSegmentEvaluator(true));
}

TEST(TangentRules, SingleKey) {
  for (const bool weighted : {false, true}) {
    SCOPED_TRACE(weighted ? "weighted" : "plain");
    const std::unique_ptr<TsegmentEvaluator> ev = evaluator(weighted);
    for (const TtangentType type : {kTangentLinear, kTangentSpline, kTangentFlat, kTangentStep,
                                    kTangentSlow, kTangentFast, kTangentSmooth}) {
      KeyPtr k = makeKey(1.0f, 2.0, type);
      k->setTanIn(3.0f, 4.0f).setTanOut(3.0f, 4.0f);
      ev->computeTangents(nullptr, k.get(), nullptr);
      const bool level =
          type == kTangentLinear || type == kTangentSpline || (type == kTangentSmooth && !weighted);
      const float x = level ? 1.0f : 0.0f;
      EXPECT_TRUE(tans(*k, {x, 0.0f}, {x, 0.0f})) << type;
    }
    // Clamped kinds copy the current out tangent into the in side.
    for (const TtangentType type : {kTangentClamped, kTangentClampedSmooth}) {
      KeyPtr k = makeKey(1.0f, 2.0, type);
      const Vec out = weighted ? Vec{3.0f, 4.0f} : Vec{0.6f, 0.8f};  // the stored form of (3, 4)
      k->setTanIn(1.0f, 1.0f).setTanOut(out.first, out.second);
      ev->computeTangents(nullptr, k.get(), nullptr);
      EXPECT_TRUE(tans(*k, out, out));
      EXPECT_EQ(std::pair(k->tanInType(), k->tanOutType()), std::pair(type, type));
    }
  }
}

// One key between optional neighbours (a negative time: none). Every key starts
// with tangents in (5, 5) and out (7, 7), which sides of the fixed type keep.
struct Trule {
  bool weighted;
  float pt;
  double pv;
  float kt;
  double kv;
  TtangentType in, out;
  float nt;
  double nv;
  Vec tanIn, tanOut;
};

TEST(TangentRules, NeighbourRulesGiveExactTangents) {
  const bool W = true, P = false;
  const Vec up{0.0001f, static_cast<float>(verticalSlope() * static_cast<double>(0.0001f))};
  const double dtIn = static_cast<double>(1.00005f) - 1.0;
  const double dtOut = static_cast<double>(1.00009f) - static_cast<double>(1.00005f);
  const Vec steepIn{static_cast<float>(dtIn), static_cast<float>(dtIn * 5729577.948511148)};
  const Vec steepOut{static_cast<float>(dtOut), static_cast<float>(dtOut * 5729577.948511148)};
  const float dtLevel = static_cast<float>(2.0 - static_cast<double>(1.995f));
  const double clampedSlope = (1.0 - 0.050001) / 3.0;
  const double inLength = std::sqrt(2.0), outLength = std::sqrt(4.0 + 0.02 * 0.02);
  const double smoothY = (0.01 * inLength + outLength * 1.0) / (outLength + inLength);
  const float sy = static_cast<float>(smoothY), cs = static_cast<float>(clampedSlope);
  const Trule rules[] = {
      // Spline follows the chord; weighted handles are as long as the spans.
      {W, 0, 0, 1, 5, kTangentSpline, kTangentSpline, 3, 2, {1, 2.f / 3}, {2, 4.f / 3}},
      {P, 0, 0, 1, 5, kTangentSpline, kTangentSpline, 3, 2, unit(3, 2), unit(3, 2)},
      {W, -1, 0, 0, 0, kTangentSpline, kTangentSpline, 2, 1, {2, 1}, {2, 1}},  // first key
      {P, -1, 0, 0, 0, kTangentSpline, kTangentSpline, 2, 1, unit(2, 1), unit(2, 1)},
      // Neighbours closer than a ten-thousandth: vertical.
      {P, 1, 0, 1.00005f, 1, kTangentSpline, kTangentSpline, 1.00009f, 2, up, up},
      {W, 1, 0, 1.00005f, 1, kTangentSpline, kTangentSpline, 1.00009f, 2, steepIn, steepOut},
      // Linear, flat and step write only their own sides; a last key uses the in span twice.
      {W, 0, 1, 1, 2, kTangentLinear, kTangentFixed, 3, 0, {1, 1}, {7, 7}},
      {W, 0, 1, 1, 2, kTangentFlat, kTangentFlat, 3, 0, {1, 0}, {2, 0}},
      {W, 0, 1, 1, 2, kTangentFlat, kTangentFlat, -1, 0, {1, 0}, {1, 0}},
      {W, 0, 1, 1, 2, kTangentStep, kTangentLinear, 3, 0, {0, 0}, {2, -2}},
      {W, 0, 0, 1, 1, kTangentFlat, kTangentLinear, 4, 3, {1, 0}, {3, 2}},
      // Slow and fast rise on falling curves.
      {W, 0, 10, 1, 5, kTangentSlow, kTangentSlow, 3, 0, {1, 0.5772f}, {2, 1.1544f}},
      {W, 0, 10, 1, 5, kTangentFast, kTangentFast, -1, 0, {1, 1.732f}, {1, 1.732f}},
      {P, 0, 10, 1, 5, kTangentFast, kTangentFast, 3, 0, unit(1, 1.732), unit(1, 1.732)},
      // Clamped is flat next to a neighbour at most 0.05 away, else the spline chord.
      {W, 0, 0.05, 1, 0, kTangentClamped, kTangentClamped, 3, 1, {1, 0}, {2, 0}},
      {W, 0, 0.050001, 1, 0, kTangentClamped, kTangentClamped, 3, 1, {1, cs}, {2, 2 * cs}},
      {W, 0, 0.050001, 1, 0, kTangentClamped, kTangentClamped, 3, 0.01, {1, 0}, {2, 0}},
      // Clamped smooth decides per side: smooth with the shorter handle, level out.
      {W, 0, 0, 1, 1, kTangentClampedSmooth, kTangentClampedSmooth, 3, 1.02, {1, sy}, {2, 0}},
      {P, 0, 0, 1, 1, kTangentClampedSmooth, kTangentClampedSmooth, 3, 1.02, unit(3, 1.02), {1, 0}},
      // Weighted smooth: slopes 0.5 and 2 over equal spans average to 1.25; spans of
      // 0.01 s or less count as level. Plain smooth is the spline rule.
      {W, 0, 0, 2, 1, kTangentSmooth, kTangentSmooth, 3, 3, {1, 1.25f}, {1, 1.25f}},
      {W, 1.995f, 0, 2, 1, kTangentSmooth, kTangentSmooth, 2.008f, 3, {dtLevel, 0}, {dtLevel, 0}},
      {P, 0, 0, 1, 1, kTangentSmooth, kTangentFixed, 2, 4, unit(1, 2), {7, 7}},
  };
  for (const Trule& r : rules) {
    const std::unique_ptr<TsegmentEvaluator> ev = evaluator(r.weighted);
    KeyPtr p = makeKey(r.pt, r.pv), k = makeKey(r.kt, r.kv, r.in, r.out), n = makeKey(r.nt, r.nv);
    k->setTanIn(5.0f, 5.0f).setTanOut(7.0f, 7.0f);
    ev->computeTangents(r.pt < 0 ? nullptr : p.get(), k.get(), r.nt < 0 ? nullptr : n.get());
    EXPECT_TRUE(tans(*k, r.tanIn, r.tanOut)) << "row " << &r - rules;
    // The rule leaves the types alone.
    EXPECT_EQ(std::pair(k->tanInType(), k->tanOutType()), std::pair(r.in, r.out)) << &r - rules;
  }
  KeyPtr p = makeKey(0.0f, 0.0), n = makeKey(4.0f, 3.0);
  evaluator(true)->computeTangents(p.get(), nullptr, n.get());  // no key: nothing to do
}

TEST(TangentRules, TickCurvesConvertKeyTimes) {
  KeyPtr k(new Tkeyframe(TanimTime(0), 0.0, kTangentLinear, kTangentLinear));
  KeyPtr n(new Tkeyframe(TanimTime(3000), 1.0, kTangentFixed, kTangentFixed));
  TbezierSegmentEvaluator ev(/*isFloat=*/false);
  const double perTick = static_cast<double>(0.00016666666f);
  EXPECT_EQ(ev.keySeconds(*n), 3000 * perTick);
  ev.computeTangents(nullptr, k.get(), n.get());
  float x, y;
  k->getTanOut(x, y);
  EXPECT_FLOAT_EQ(x, static_cast<float>(3000 * perTick));
  EXPECT_FLOAT_EQ(y, 1.0f);
  EXPECT_EQ(TbezierSegmentEvaluator(true).keySeconds(*makeKey(1.5f, 0.0)), 1.5);
}

TEST(SetTangent, StoresEachVariantsFormAndReportsChange) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  KeyPtr k = makeKey(0.0f, 0.0);
  TbezierSegmentEvaluator weighted(true);
  EXPECT_TRUE(weighted.setTanIn(k.get(), -2.0f, 5.0f));  // x clamped to 0
  EXPECT_FALSE(weighted.setTanIn(k.get(), 0.0f, 5.0f));
  EXPECT_TRUE(weighted.setTanOut(k.get(), 2.0f, 3.0f));
  EXPECT_FALSE(weighted.setTanOut(k.get(), 2.0f, 3.0f));
  EXPECT_FALSE(weighted.setTanOut(nullptr, 2.0f, 3.0f));
  EXPECT_FALSE(weighted.setTanOut(k.get(), nan, 3.0f));
  EXPECT_TRUE(tans(*k, {0.0f, 5.0f}, {2.0f, 3.0f}));

  ThermiteSegmentEvaluator plain(true);
  EXPECT_TRUE(plain.setTanOut(k.get(), 3.0f, 4.0f));
  EXPECT_FALSE(plain.setTanOut(k.get(), 6.0f, 8.0f));  // the same direction
  EXPECT_TRUE(tans(*k, {0.0f, 5.0f}, {0.6f, 0.8f}));
  EXPECT_TRUE(plain.setTanOut(k.get(), 0.0f, 0.0f));
  const float nearVerticalY = static_cast<float>(verticalSlope() * static_cast<double>(0.0001f));
  EXPECT_TRUE(plain.setTanIn(k.get(), -2.0f, -5.0f));
  EXPECT_TRUE(tans(*k, {0.0001f, -nearVerticalY}, {0.0f, 0.0f}));  // zero is not normalised
  EXPECT_FALSE(plain.setTanIn(k.get(), 0.0f, -1.0f));
  EXPECT_FALSE(plain.setTanIn(k.get(), std::numeric_limits<float>::infinity(), 1.0f));
  EXPECT_FALSE(plain.setTanIn(nullptr, 1.0f, 1.0f));
}

}  // namespace
}  // namespace lumora
