#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"

namespace lumora {
namespace {

// A key with explicit tangents, inserted without tangent computation.
Tkeyframe* key(TparamCurve& c, float t, double v, float inX, float inY, float outX, float outY,
               TtangentType in = kTangentFixed, TtangentType out = kTangentFixed) {
  auto* k = new Tkeyframe(c.makeTimeValue(t), v, in, out);
  k->setTanIn(inX, inY);
  k->setTanOut(outX, outY);
  EXPECT_GE(TparamCurveTestAccess::arrayInsert(c, k), 0);
  c.setStaticCurve(false);
  return k;
}

// Flat keys (1 s, 2) and (3 s, 10): the midpoint is exactly 6.
void flatPair(TparamCurve& c) {
  key(c, 1.0f, 2.0, 1, 0, 1, 0);
  key(c, 3.0f, 10.0, 1, 0, 1, 0);
}

TEST(TparamCurveEvaluate, FlatSpanConstantEndsNanAndStaticCurves) {
  for (bool ticks : {false, true}) {
    TparamCurve c(!ticks);
    flatPair(c);
    EXPECT_EQ(c.evaluate(-10.0f), 2.0);
    EXPECT_EQ(c.evaluate(3.0f), 10.0);
    EXPECT_NEAR(c.evaluate(2.0f), 6.0, 1e-9);
    EXPECT_NEAR(c.evaluate(TtimeValue(2.0f)), 6.0, 1e-9);
    // After the end the cache stays on the first span.
    EXPECT_EQ(c.evaluate(10.0f), 10.0);
    EXPECT_EQ(TparamCurveTestAccess::cachedIndex(c), 0u);
    EXPECT_EQ(TparamCurveTestAccess::cachedKey(c), c.keyframe(0));
    c.evaluate(1.5f);
    const int interval = TparamCurveTestAccess::cachedInterval(c);
    EXPECT_TRUE(std::isnan(c.evaluate(std::nanf(""))));
    EXPECT_TRUE(std::isnan(c.evaluate(TtimeValue(std::nanf("")))));
    EXPECT_EQ(TparamCurveTestAccess::cachedInterval(c), interval);
    c.setStaticCurve(true);
    EXPECT_EQ(c.evaluate(2.0f), 2.0);
  }
}

TEST(TparamCurveEvaluate, WeightedHandlesAtOneThirdMatchNonWeighted) {
  TparamCurve plain(true), weighted(true);
  plain.setIsWeighted(false);
  weighted.setIsWeighted(true);
  const float s0 = 2.0f, s1 = -1.5f;  // slopes
  key(plain, 0.0f, 1.0, 1, s0, 1, s0);
  key(plain, 3.0f, 4.0, 1, s1, 1, s1);
  key(weighted, 0.0f, 1.0, 3, 3 * s0, 3, 3 * s0);
  key(weighted, 3.0f, 4.0, 3, 3 * s1, 3, 3 * s1);
  for (int i = 0; i <= 300; ++i) {
    const float t = 0.01f * static_cast<float>(i);
    EXPECT_NEAR(plain.evaluate(t), weighted.evaluate(t), 1e-9) << t;
  }
}

TEST(TparamCurveEvaluate, KeyTimesReturnKeyValuesWithoutLoadingASegment) {
  TparamCurve c(true);
  flatPair(c);
  key(c, 4.0f, 3.0, 1, 0, 1, 0);
  EXPECT_EQ(c.evaluate(3.0f), 10.0);
  EXPECT_EQ(TparamCurveTestAccess::cachedInterval(c), -1);
  EXPECT_EQ(TparamCurveTestAccess::cachedIndex(c), 1u);
  EXPECT_EQ(c.evaluate(4.0f), 3.0);  // the next key, found from the cache
  EXPECT_EQ(TparamCurveTestAccess::cachedIndex(c), 2u);
  EXPECT_EQ(c.evaluate(3.0f), 10.0);  // the previous key
  EXPECT_EQ(TparamCurveTestAccess::cachedIndex(c), 1u);
  EXPECT_EQ(TparamCurveTestAccess::cachedInterval(c), -1);
}

TEST(TparamCurveEvaluate, StepAndLinearSpans) {
  TparamCurve c(true);
  key(c, 0.0f, 1.0, 1, 0, 0, 0, kTangentFixed, kTangentStep);
  Tkeyframe* mid = key(c, 1.0f, 3.0, 1, 0, 1, 0, kTangentFixed, kTangentLinear);
  key(c, 3.0f, 7.0, 1, 0, 1, 0, kTangentLinear, kTangentFixed);
  TparamCurveTestAccess::setSpanInterpMethod(c, 2);
  EXPECT_EQ(mid->interpMethod(), Tkeyframe::kSpanLinear);
  EXPECT_EQ(c.evaluate(0.999f), 1.0);
  EXPECT_EQ(c.evaluate(0.25f), 1.0);
  EXPECT_DOUBLE_EQ(c.evaluate(2.0f), 5.0);
  EXPECT_DOUBLE_EQ(c.evaluate(1.5f), 4.0);
  // Breaking the linear pair turns the span back into a curve span.
  c.keyframe(2)->setTanInType(kTangentFlat);
  TparamCurveTestAccess::setSpanInterpMethod(c, 2);
  EXPECT_EQ(mid->interpMethod(), Tkeyframe::kSpanCurve);
}

TEST(TparamCurveEvaluate, CacheWalkAgreesWithFreshEvaluation) {
  // Sampling forward, backward and at random must give exactly what a curve
  // with an empty cache gives, for every span kind.
  TparamCurve c(false);
  float t = 0.0f;
  for (int i = 0; i < 40; ++i) {
    const TtangentType out = i % 7 == 3 ? kTangentStep : kTangentFixed;
    key(c, t, std::sin(i * 0.7) * 10.0, 1, static_cast<float>(i % 5) - 2.0f, 1,
        static_cast<float>(i % 3) - 1.0f, kTangentFixed, out);
    t += 0.25f + 0.125f * static_cast<float>(i % 4);
  }
  std::vector<float> times;
  std::vector<double> expected;
  for (int i = -20; i < 1000; ++i) {
    times.push_back(static_cast<float>(i) * 0.0173f);
    expected.push_back(TparamCurve(c).evaluate(times.back()));
  }
  for (std::size_t i = 0; i < times.size(); ++i) EXPECT_EQ(c.evaluate(times[i]), expected[i]);
  for (std::size_t i = times.size(); i-- > 0;) EXPECT_EQ(c.evaluate(times[i]), expected[i]);
  for (std::size_t i = 0; i < times.size(); ++i) {
    const std::size_t j = (i * 7919) % times.size();
    EXPECT_EQ(c.evaluate(times[j]), expected[j]);
  }
  std::vector<double> secs(times.begin(), times.end());
  std::vector<double> batch(times.size());
  ASSERT_TRUE(c.evaluate(static_cast<unsigned>(secs.size()), secs.data(), batch.data()));
  EXPECT_EQ(batch, expected);
  EXPECT_FALSE(c.evaluate(3, nullptr, batch.data()));
}

TEST(TparamCurveEvaluate, InlineSamplesNearKeysFollowTheWalk) {
  // From a cache that points away from the loaded span, the walk takes the
  // tolerant full search, which answers the value of a key that a time
  // merely rounds to. The inline path must not answer from the span there.
  for (const bool isFloat : {true, false}) {
    TparamCurve c(isFloat);
    for (int i = 0; i < 4; ++i) {
      c.add(Tkeyframe(c.makeTimeValue(static_cast<float>(i)), i * i * 1.5, kTangentSpline,
                      kTangentSpline));
    }
    c.evaluate(2.5f);  // loads the span from key 2 to key 3
    c.evaluate(1.0f);  // an exact hit moves the cache to key 1
    const float nearKey2 = isFloat ? 2.000005f : 2.00005f;
    EXPECT_EQ(c.evaluate(nearKey2), 6.0) << isFloat;
    EXPECT_EQ(TparamCurveTestAccess::cachedIndex(c), 2u) << isFloat;
    EXPECT_EQ(TparamCurveTestAccess::cachedKey(c), c.keyframe(2)) << isFloat;
  }
}

TEST(TparamCurveEvaluate, FloatAndTimeValueSamplesAgreeInBitsAndCache) {
  // evaluate(TtimeValue) always takes the walk; evaluate(float) takes the
  // inline shortcuts where it can. Twin curves sampled the two ways must
  // agree on every value and on where the cache ends, near keys above all,
  // inside the keys and in later periods of a cycle.
  TparamCurve a(true);
  float t = 0.0f;
  for (int i = 0; i < 12; ++i) {
    a.add(Tkeyframe(t, std::sin(i * 0.9) * 4.0, kTangentSpline, kTangentSpline));
    t += i % 3 == 0 ? 1.0f : 0.375f;
  }
  a.setPostInfinityType(TparamCurve::kCycleRelative);
  TparamCurve b(a);
  const float last = a.seconds(a.keyframeCount() - 1);
  std::uint32_t state = 12345;
  const auto next = [&state] {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  };
  const float offsets[] = {0.0f, 4e-6f, -4e-6f, 1e-5f, -1e-5f, 1.5e-5f, -1.5e-5f, 3e-5f, 0.1f};
  for (int i = 0; i < 20000; ++i) {
    const unsigned k = next() % a.keyframeCount();
    const float period = static_cast<float>(next() % 3) * last;
    float s = a.seconds(k) + period + offsets[next() % 9];
    if (next() % 4 == 0) s = static_cast<float>(next() % 100000) * (3.0f * last / 100000.0f);
    const double va = a.evaluate(s);
    const double vb = b.evaluate(TtimeValue(s));
    ASSERT_EQ(std::bit_cast<std::uint64_t>(va), std::bit_cast<std::uint64_t>(vb)) << s;
    ASSERT_EQ(TparamCurveTestAccess::cachedIndex(a), TparamCurveTestAccess::cachedIndex(b)) << s;
    ASSERT_EQ(TparamCurveTestAccess::cachedInterval(a), TparamCurveTestAccess::cachedInterval(b))
        << s;
  }
}

#if defined(__GNUC__) && defined(__x86_64__)
// Samples in order, from code built for multiply-add instructions, as a host
// compiled for a recent processor would.
__attribute__((target("fma"))) std::vector<double> sampleAsAFusingHost(
    TparamCurve& c, const std::vector<float>& times) {
  std::vector<double> values;
  for (float t : times) values.push_back(c.evaluate(t));
  return values;
}

TEST(TparamCurveEvaluate, HostsBuiltForMultiplyAddGetTheLibrarysBits) {
  // Most in-order samples are answered inline, in the host's own code. A host
  // built with multiply-add enabled must still see the values the library
  // computes on its general path, bit for bit.
  if (!__builtin_cpu_supports("fma")) GTEST_SKIP() << "no multiply-add instructions";
  TparamCurve c(true);
  for (int i = 0; i < 6; ++i) {
    key(c, static_cast<float>(i), std::sin(i * 1.3) * 7.0, 1, static_cast<float>(i % 3) - 1.1f, 1,
        0.7f - static_cast<float>(i % 2));
  }
  c.setPostInfinityType(TparamCurve::kCycleRelative);
  std::vector<float> times;
  for (int i = 1; i < 3000; ++i) times.push_back(static_cast<float>(i) * 0.00731f);
  const std::vector<double> values = sampleAsAFusingHost(c, times);
  for (std::size_t i = 0; i < times.size(); ++i) {
    TparamCurve fresh(c);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(values[i]),
              std::bit_cast<std::uint64_t>(fresh.evaluate(times[i])))
        << "at " << times[i];
  }
}
#endif

}  // namespace
}  // namespace lumora
