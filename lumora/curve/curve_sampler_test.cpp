#include "lumora/curve/curve_sampler.h"

#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

constexpr float kNanF = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfF = std::numeric_limits<float>::infinity();

std::uint64_t bits(double v) {
  return std::bit_cast<std::uint64_t>(v);
}

// What a copy of the curve, with its empty cache, answers for one time.
template <typename Time>
double fresh(const TparamCurve& curve, const Time& t) {
  TparamCurve copy(curve);
  return copy.evaluate(t);
}

// The curve's own answer from an empty cache, for curves that a copy does
// not reproduce. Writing a tangent back unchanged empties the cache.
template <typename Time>
double uncached(TparamCurve& curve, const Time& t) {
  float x = 0.0f, y = 0.0f;
  curve.keyframe(0)->getTanIn(x, y);
  TparamCurveTestAccess::setTanIn(curve, 0, x, y);
  return curve.evaluate(t);
}

// Times that probe every decision: far out, at and around each key (float
// steps, the tolerance, half ticks), between keys and at images of the keys
// one and more periods away.
std::vector<float> probeTimes(const TparamCurve& c, std::mt19937& rng) {
  std::vector<float> times = {kNanF, kInfF, -kInfF, FLT_MAX, -FLT_MAX, 0.0f, 1e30f, -1e30f};
  const unsigned n = c.keyframeCount();
  if (n == 0) return times;
  const float start = c.seconds(0u), end = c.seconds(n - 1);
  const float range = end - start;
  for (unsigned i = 0; i < n; ++i) {
    const float s = c.seconds(i);
    for (const float d : {0.0f, 1e-5f, -1e-5f, 1.00001e-5f, -1.00001e-5f, 2e-5f, -2e-5f}) {
      for (const float image : {0.0f, range, -range, 3.0f * range, -2.0f * range}) {
        const float t = s + d + image;
        times.insert(times.end(), {t, std::nextafter(t, kInfF), std::nextafter(t, -kInfF)});
      }
    }
    const double tick = std::floor(static_cast<double>(s) * 6000.0);
    times.push_back(static_cast<float>((tick + 0.5) / 6000.0));
    if (i + 1 < n) times.push_back(0.5f * (s + c.seconds(i + 1)));
  }
  std::uniform_real_distribution<float> any(start - 2.5f * range - 1.0f, end + 2.5f * range + 1.0f);
  for (int i = 0; i < 40; ++i) times.push_back(any(rng));
  return times;
}

// Expects the sampler to answer every probe, as float seconds and as time
// values of every kind, with the bits of `reference`.
template <typename Reference>
void expectSameBits(const TcurveSampler& s, const TparamCurve& c, std::mt19937& rng,
                    Reference reference) {
  std::vector<TtimeValue> values = {TtimeValue()};
  for (unsigned i = 0; i < c.keyframeCount() && c.isAnimTime(); ++i) {
    const std::int32_t k = c.keyframe(i)->timeAsTicks();
    for (const std::int32_t d : {-1, 0, 1}) values.push_back(TtimeValue(TanimTime(k + d)));
  }
  for (const float t : probeTimes(c, rng)) {
    values.push_back(TtimeValue(t));
    if (c.isAnimTime()) values.push_back(c.makeTimeValue(t));
    ASSERT_EQ(bits(s.evaluate(t)), bits(reference(t))) << "at " << t << " s";
  }
  for (const TtimeValue& v : values) {
    ASSERT_EQ(bits(s.evaluate(v)), bits(reference(v))) << "at time value " << v.inSeconds();
  }
}

void expectLikeFresh(const TparamCurve& c, std::mt19937& rng) {
  const TcurveSampler s(c);
  EXPECT_EQ(s.keyframeCount(), c.keyframeCount());
  expectSameBits(s, c, rng, [&c](const auto& t) { return fresh(c, t); });
}

// A random curve: either kind of time, any weighting, tangent types and
// infinities; keys now and then closer than twice the tolerance (float) or
// beyond the float precision of seconds (ticks).
void randomCurve(TparamCurve& c, std::mt19937& rng) {
  const auto pick = [&rng](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  c.setIsWeighted(pick(2) == 0);
  const TtangentType types[] = {kTangentFixed,  kTangentLinear, kTangentFlat, kTangentSmooth,
                                kTangentStep,   kTangentSlow,   kTangentFast, kTangentClampedSmooth,
                                kTangentSpline, kTangentClamped};
  const TparamCurve::TinfinityType infinities[] = {TparamCurve::kConstant, TparamCurve::kLinear,
                                                   TparamCurve::kCycle, TparamCurve::kCycleRelative,
                                                   TparamCurve::kOscillate};
  std::uniform_real_distribution<float> value(-10.0f, 10.0f);
  const int keys = pick(9);
  double seconds = pick(4) == 0 ? 3000.0 * pick(3) : -3.0 + pick(6);
  std::int32_t ticks = pick(3) == 0 ? (1 << 25) + pick(1000) : pick(20000) - 10000;
  for (int i = 0; i < keys; ++i) {
    const bool close = pick(4) == 0;
    seconds += close ? 1.05e-5 + 0.9e-5 * pick(10) / 10.0 : 0.01 + pick(300) / 100.0;
    ticks += close ? 1 + pick(3) : 1 + pick(12000);
    const TtimeValue time =
        c.isFloat() ? TtimeValue(static_cast<float>(seconds)) : TtimeValue(TanimTime(ticks));
    Tkeyframe key(time, value(rng), types[pick(10)], types[pick(10)]);
    key.setTanIn(value(rng) / 3.0f + 3.4f, value(rng));
    key.setTanOut(value(rng) / 3.0f + 3.4f, value(rng));
    c.add(key);
  }
  c.setPreInfinityType(infinities[pick(5)]);
  c.setPostInfinityType(infinities[pick(5)]);
  if (pick(8) == 0) c.setStaticCurve(true);
  if (pick(8) == 0) c.setRotationInterpolation(TparamCurve::kQuaternion);
}

TEST(TcurveSampler, AnswersRandomCurvesWithTheBitsOfAFreshCopy) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 400; ++round) {
    TparamCurve c(/*isFloat=*/round % 2 == 0);
    randomCurve(c, rng);
    SCOPED_TRACE(testing::Message() << "round " << round);
    expectLikeFresh(c, rng);
    if (HasFatalFailure()) return;
  }
}

TEST(TcurveSampler, AnswersTheReferenceCurvesWithTheBitsOfAFreshCopy) {
  std::mt19937 rng(7);
  for (const bool isFloat : {true, false}) {
    for (bool (*build)(TparamCurve&) :
         {reference::bouncingBall, reference::twoKeyBezier, reference::regressiveS}) {
      TparamCurve c(isFloat);
      ASSERT_TRUE(build(c));
      expectLikeFresh(c, rng);
    }
    TparamCurve dense(isFloat);
    ASSERT_TRUE(reference::denseSpline(dense, 40, 3));
    dense.setPostInfinityType(TparamCurve::kOscillate);
    expectLikeFresh(dense, rng);
  }
}

// Keys 1e-5 to 2e-5 s apart share times within the tolerance of both; the
// curve's search path decides which key such a time finds, so every float
// around a cluster, at every position among other keys, is compared.
TEST(TcurveSampler, FollowsTheSearchPathBetweenKeysWithinTwiceTheTolerance) {
  for (unsigned before = 0; before < 9; ++before) {
    for (const unsigned cluster : {2u, 3u, 5u}) {
      TparamCurve c(/*isFloat=*/true);
      for (unsigned i = 0; i < before; ++i) c.add(Tkeyframe(-1.0f - i, 1.0 * i));
      for (unsigned i = 0; i < cluster; ++i) c.add(Tkeyframe(1.0f + 1.3e-5f * i, 10.0 + i));
      c.add(Tkeyframe(3.0f, -4.0));
      ASSERT_EQ(c.keyframeCount(), before + cluster + 1);
      const TcurveSampler s(c);
      for (float t = 1.0f - 3e-5f; t < 1.0f + 1.3e-5f * cluster + 3e-5f;
           t = std::nextafter(t, kInfF)) {
        ASSERT_EQ(bits(s.evaluate(t)), bits(fresh(c, t))) << before << " " << cluster << " " << t;
      }
    }
  }
}

// Beyond 2^24 ticks neighbouring ticks round to one float second: spans
// without duration, which each span kind answers in its own way.
TEST(TcurveSampler, AnswersSpansWithoutDurationOnTickCurves) {
  std::mt19937 rng(11);
  for (const TtangentType type : {kTangentSpline, kTangentLinear, kTangentStep, kTangentFixed}) {
    for (const bool weighted : {false, true}) {
      TparamCurve c(/*isFloat=*/false);
      c.setIsWeighted(weighted);
      for (std::int32_t i = 0; i < 6; ++i) {
        Tkeyframe key(TanimTime((1 << 26) + i), 2.0 * i - (i % 3), type, type);
        key.setTanOut(1.0f, 1.0f);
        c.add(key);
      }
      ASSERT_EQ(c.seconds(0u), c.seconds(1u));
      c.setPostInfinityType(TparamCurve::kCycleRelative);
      expectLikeFresh(c, rng);
    }
  }
}

// A failed setTime leaves keys out of order, and deferred deletion keeps dead
// keys in place. A copy reproduces neither, so the curve itself, its cache
// emptied, is the reference.
TEST(TcurveSampler, SearchesUnorderedAndDeferredKeysAsTheCurveDoes) {
  std::mt19937 rng(5);
  const TparamCurve::TinfinityType posts[] = {TparamCurve::kCycle, TparamCurve::kLinear,
                                              TparamCurve::kConstant};
  // Every combination of: time kind, the two states, pre infinity looping or
  // not, three post infinities, and which key moves.
  for (int round = 0; round < 96; ++round) {
    TparamCurve c(/*isFloat=*/(round & 1) != 0);
    ASSERT_TRUE(reference::denseSpline(c, 3 + round % 5, round));
    c.setPreInfinityType((round & 4) ? TparamCurve::kOscillate : TparamCurve::kConstant);
    c.setPostInfinityType(posts[(round >> 3) % 3]);
    const unsigned n = c.keyframeCount();
    if ((round & 2) == 0) {
      // A key moves past the last key, or the last key before the first.
      const unsigned i = round >= 48 ? n - 1 : round % (n - 1);
      const float moved = i + 1 < n ? c.seconds(n - 1) + 0.3f * (round % 5 + 1) : -2.5f;
      ASSERT_FALSE(c.setTime(i, c.makeTimeValue(moved)));
      EXPECT_LT(TparamCurve(c).keyframeCount(), n);  // the copy drops the key out of order
    } else {
      TparamCurveTestAccess::setDeferredDeletion(c, true);
      for (unsigned i = round % 3; i < n; i += 2) c.keyframe(i)->setToBeDeleted(true);
    }
    const TcurveSampler s(c);
    expectSameBits(s, c, rng, [&c](const auto& t) { return uncached(c, t); });
    if (HasFatalFailure()) return;
  }
}

TEST(TcurveSampler, EmptyAndOneKeyCurvesAndTheirQueries) {
  const TcurveSampler none;
  EXPECT_TRUE(none.empty());
  EXPECT_FALSE(none.isFloat());
  EXPECT_EQ(bits(none.evaluate(1.0f)), bits(0.0));
  EXPECT_TRUE(std::isnan(none.evaluate(kNanF)));
  EXPECT_EQ(bits(none.evaluate(TtimeValue(TanimTime(5)))), bits(0.0));
  EXPECT_EQ(none.startSeconds(), 0.0f);

  TparamCurve c(/*isFloat=*/true);
  c.setIsWeighted(true);
  EXPECT_TRUE(TcurveSampler(c).isFloat());
  EXPECT_TRUE(TcurveSampler(c).isWeighted());
  EXPECT_TRUE(TcurveSampler(c).empty());
  c.add(Tkeyframe(2.0f, 7.5));
  c.setPreInfinityType(TparamCurve::kCycle);
  const TcurveSampler one(c);
  EXPECT_EQ(one.keyframeCount(), 1u);
  EXPECT_EQ(one.startSeconds(), 2.0f);
  EXPECT_EQ(one.endSeconds(), 2.0f);
  for (const float t : {-kInfF, 0.0f, 2.0f, 9.0f, kInfF}) EXPECT_EQ(one.evaluate(t), 7.5);
  EXPECT_TRUE(std::isnan(one.evaluate(TtimeValue(kNanF))));
}

TEST(TcurveSampler, KeepsTheBitsOfItsSnapshotThroughEditsCopiesAndMoves) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  ASSERT_TRUE(reference::bouncingBall(*c));
  TcurveSampler s(*c);
  std::vector<float> times;
  std::vector<std::uint64_t> expected;
  for (float t = -1.0f; t < 4.0f; t += 0.0371f) {
    times.push_back(t);
    expected.push_back(bits(c->evaluate(t)));
  }
  const auto expectSnapshot = [&](const TcurveSampler& x) {
    for (std::size_t i = 0; i < times.size(); ++i) {
      ASSERT_EQ(bits(x.evaluate(times[i])), expected[i]) << times[i];
    }
  };
  c->setValue(1, 3.0);
  c->remove(0);
  c->setPostInfinityType(TparamCurve::kConstant);
  expectSnapshot(s);
  c.reset();
  expectSnapshot(s);

  TcurveSampler copy(s);
  expectSnapshot(copy);
  TcurveSampler moved(std::move(copy));
  expectSnapshot(moved);
  EXPECT_TRUE(copy.empty());  // NOLINT(bugprone-use-after-move): moving leaves it empty
  EXPECT_EQ(copy.evaluate(0.45f), 0.0);
  copy = moved;
  const TcurveSampler& alias = copy;
  copy = alias;
  expectSnapshot(copy);
  moved = TcurveSampler();
  EXPECT_TRUE(moved.empty());
  expectSnapshot(copy);
}

// Both batch calls over several groups of samplers of every kind and length,
// some null or empty, at every probe time (NaN included).
TEST(TcurveSampler, SamplesArraysAndScenesLikeSingleSamples) {
  std::mt19937 rng(9);
  std::vector<TparamCurve> curves;
  for (int i = 0; i < 29; ++i) {
    curves.emplace_back(/*isFloat=*/i % 4 != 0);
    randomCurve(curves.back(), rng);
  }
  const std::vector<TcurveSampler> samplers(curves.begin(), curves.end());
  std::vector<const TcurveSampler*> channels;
  for (std::size_t i = 0; i < samplers.size(); ++i) {
    channels.push_back(i % 9 == 4 ? nullptr : &samplers[i]);
  }
  std::vector<float> times;
  for (int i = 0; i < 4; ++i) {
    const std::vector<float> more = probeTimes(curves[i], rng);
    times.insert(times.end(), more.begin(), more.end());
  }
  std::vector<double> wide(times.begin(), times.end());
  wide.push_back(1e40);  // beyond the float range: infinity
  std::vector<double> values(wide.size());
  for (const TcurveSampler& sampler : samplers) {
    ASSERT_TRUE(sampler.evaluate(static_cast<unsigned>(wide.size()), wide.data(), values.data()));
    for (std::size_t i = 0; i < wide.size(); ++i) {
      ASSERT_EQ(bits(values[i]), bits(sampler.evaluate(static_cast<float>(wide[i])))) << wide[i];
    }
  }
  for (const float t : times) {
    ASSERT_TRUE(TcurveSampler::evaluateAll(static_cast<unsigned>(channels.size()), channels.data(),
                                           t, values.data()));
    for (std::size_t i = 0; i < channels.size(); ++i) {
      const double single = channels[i] ? channels[i]->evaluate(t) : std::nan("");
      ASSERT_EQ(bits(values[i]), bits(single)) << "channel " << i << " at " << t;
    }
  }
  EXPECT_FALSE(samplers[0].evaluate(2, nullptr, values.data()));
  EXPECT_FALSE(samplers[0].evaluate(2, wide.data(), nullptr));
  EXPECT_TRUE(samplers[0].evaluate(0, nullptr, nullptr));
  EXPECT_FALSE(TcurveSampler::evaluateAll(4, nullptr, 1.0f, values.data()));
  EXPECT_FALSE(TcurveSampler::evaluateAll(4, channels.data(), 1.0f, nullptr));
  EXPECT_TRUE(TcurveSampler::evaluateAll(0, nullptr, 1.0f, nullptr));
}

// A curve sampled in time order through its own cache answers like the
// sampler except within the tolerance of a key.
TEST(TcurveSampler, DiffersFromACurveSampledInOrderOnlyNearKeys) {
  std::mt19937 rng(3);
  for (int round = 0; round < 40; ++round) {
    TparamCurve c(/*isFloat=*/round % 2 == 0);
    randomCurve(c, rng);
    c.setPreInfinityType(TparamCurve::kConstant);
    c.setPostInfinityType(TparamCurve::kLinear);
    const TcurveSampler s(c);
    const unsigned n = c.keyframeCount();
    if (n == 0) continue;
    const float start = c.seconds(0u), end = c.seconds(n - 1);
    const float step = (end - start) / 997.0f + 1e-3f;
    for (float t = start - 1.0f; t < end + 1.0f; t += step) {
      bool near = false;
      for (unsigned i = 0; i < n; ++i) near = near || std::fabs(t - c.seconds(i)) < 3e-4f;
      const double cached = c.evaluate(t);
      if (!near) {
        ASSERT_EQ(bits(s.evaluate(t)), bits(cached)) << round << " at " << t;
      }
    }
  }
}

}  // namespace
}  // namespace lumora
