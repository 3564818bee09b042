#include "lumora/curve/eval_cursor.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

std::uint64_t bits(double v) {
  return std::bit_cast<std::uint64_t>(v);
}

// Times that exercise every path of the walk: ordered runs through the keys,
// jumps back, exact key times, times a float step or within the key
// tolerance of a key (where the walk and the search answer differently),
// both infinities and a few far periods.
std::vector<float> walkTimes(const TparamCurve& curve, std::uint32_t seed) {
  std::vector<float> times;
  const unsigned n = curve.keyframeCount();
  if (n == 0) return {0.0f, 1.0f};
  const float first = curve.seconds(0u);
  const float last = curve.seconds(n - 1);
  const float range = last - first;
  for (int i = -40; i <= 140; ++i) times.push_back(first + range * static_cast<float>(i) / 100.0f);
  for (unsigned k = 0; k < n; ++k) {
    const float t = curve.seconds(k);
    times.push_back(t);
    times.push_back(std::nextafter(t, -1e30f));
    times.push_back(std::nextafter(t, 1e30f));
    times.push_back(t - 0.6e-5f);
    times.push_back(t + 0.6e-5f);
  }
  std::uint32_t state = seed;
  for (int i = 0; i < 400; ++i) {
    state = state * 1664525u + 1013904223u;
    const float r = static_cast<float>(state >> 8) / 16777216.0f;
    times.push_back(first + range * (3.0f * r - 1.0f));
    if (i % 7 == 0) times.push_back(times[state % times.size()]);  // revisit
  }
  for (float periods : {3.0f, 1000.5f, 1e6f}) times.push_back(last + range * periods);
  times.push_back(std::nanf(""));
  return times;
}

// Curves of every kind the walk treats differently.
std::vector<std::unique_ptr<TparamCurve>> curveZoo() {
  std::vector<std::unique_ptr<TparamCurve>> zoo;
  const auto add = [&](bool isFloat, bool weighted, auto build) {
    auto c = std::make_unique<TparamCurve>(isFloat);
    c->setIsWeighted(weighted);
    build(*c);
    zoo.push_back(std::move(c));
  };
  for (bool isFloat : {true, false}) {
    for (bool weighted : {false, true}) {
      add(isFloat, weighted, [](TparamCurve& c) { reference::bouncingBall(c); });
      add(isFloat, weighted, [](TparamCurve& c) { reference::denseSpline(c, 40, 7); });
      add(isFloat, weighted, [](TparamCurve& c) {
        reference::regressiveS(c);
        c.setPreInfinityType(TparamCurve::kOscillate);
        c.setPostInfinityType(TparamCurve::kCycleRelative);
      });
      add(isFloat, weighted, [](TparamCurve& c) {
        reference::denseSpline(c, 12, 3);
        c.setPreInfinityType(TparamCurve::kLinear);
        c.setPostInfinityType(TparamCurve::kCycle);
        c.setTanOutType(3, kTangentStep);
        c.setTanOutType(5, kTangentLinear);
        c.setTanInType(6, kTangentLinear);
      });
    }
  }
  // Keys closer than twice the tolerance: a probe between them is within
  // tolerance of both.
  add(true, false, [](TparamCurve& c) {
    c.add(Tkeyframe(1.0f, 1.0, kTangentSpline, kTangentSpline));
    c.add(Tkeyframe(1.000015f, 2.0, kTangentSpline, kTangentSpline));
    c.add(Tkeyframe(2.0f, -1.0, kTangentSpline, kTangentSpline));
  });
  add(true, false, [](TparamCurve& c) { c.add(Tkeyframe(0.5f, 3.0, kTangentFlat, kTangentFlat)); });
  add(true, false, [](TparamCurve&) {});
  return zoo;
}

TEST(TevalCursor, AnswersExactlyWhatTheCurveAnswersAfterTheSameSamples) {
  std::uint32_t seed = 1;
  for (const auto& original : curveZoo()) {
    // Each side starts from a fresh cache.
    TparamCurve own(*original);
    const TparamCurve& shared = *original;
    TevalCursor cursor;
    for (float t : walkTimes(shared, ++seed)) {
      const double expected = own.evaluate(t);
      EXPECT_EQ(bits(shared.evaluate(t, cursor)), bits(expected)) << "t=" << t << " seed " << seed;
    }
    // Time values take the same walk with their own comparisons.
    TparamCurve ownTimes(*original);
    TevalCursor timeCursor;
    for (float t : walkTimes(shared, ++seed)) {
      const TtimeValue time = shared.makeTimeValue(t);
      const double expected = ownTimes.evaluate(time);
      EXPECT_EQ(bits(shared.evaluate(time, timeCursor)), bits(expected)) << "t=" << t;
    }
    // Arrays: the curve's own cache against a caller's.
    const std::vector<float> times = walkTimes(shared, ++seed);
    std::vector<double> seconds(times.begin(), times.end());
    std::vector<double> a(times.size()), b(times.size());
    TparamCurve ownArray(*original);
    TevalCursor arrayCursor;
    ASSERT_TRUE(ownArray.evaluate(static_cast<unsigned>(times.size()), seconds.data(), a.data()));
    ASSERT_TRUE(shared.evaluate(static_cast<unsigned>(times.size()), seconds.data(), b.data(),
                                arrayCursor));
    for (std::size_t i = 0; i < a.size(); ++i) EXPECT_EQ(bits(a[i]), bits(b[i])) << times[i];
  }
}

TEST(TevalCursor, NanTimesLeaveThePositionAlone) {
  TparamCurve curve(true);
  curve.add(Tkeyframe(0.0f, 0.0, kTangentSpline, kTangentSpline));
  curve.add(Tkeyframe(1.0f, 5.0, kTangentSpline, kTangentSpline));
  curve.add(Tkeyframe(2.0f, -3.0, kTangentSpline, kTangentSpline));
  // Just before key 1 the walk from key 0 answers the span, a fresh search
  // the key: the answer shows where the cursor stood.
  const float nearKey = std::nextafter(1.0f, 0.0f);
  TevalCursor walked, fresh;
  const double fromSpan = (curve.evaluate(0.5f, walked), curve.evaluate(nearKey, walked));
  const double fromSearch = curve.evaluate(nearKey, fresh);
  ASSERT_NE(bits(fromSpan), bits(fromSearch));

  TevalCursor cursor;
  curve.evaluate(0.5f, cursor);
  EXPECT_TRUE(std::isnan(curve.evaluate(std::nanf(""), cursor)));
  EXPECT_TRUE(std::isnan(curve.evaluate(TtimeValue(std::nanf("")), cursor)));
  EXPECT_EQ(bits(curve.evaluate(nearKey, cursor)), bits(fromSpan));
}

TEST(TevalCursor, NoticesAnotherCurveAnEditAndADestroyedCurve) {
  TparamCurve a(true), b(true);
  a.add(Tkeyframe(0.0f, 0.0, kTangentLinear, kTangentLinear));
  a.add(Tkeyframe(2.0f, 2.0, kTangentLinear, kTangentLinear));
  b.add(Tkeyframe(0.0f, 10.0, kTangentLinear, kTangentLinear));
  b.add(Tkeyframe(2.0f, 30.0, kTangentLinear, kTangentLinear));

  TevalCursor cursor;
  EXPECT_EQ(a.evaluate(1.0f, cursor), 1.0);
  EXPECT_TRUE(cursor.isCurrentFor(a));
  EXPECT_EQ(b.evaluate(1.0f, cursor), 20.0);
  EXPECT_FALSE(cursor.isCurrentFor(a));
  EXPECT_EQ(a.evaluate(1.5f, cursor), 1.5);

  // An edit through the curve makes every cursor of it stale.
  const std::uint64_t stamp = a.editStamp();
  a.setValue(1u, 4.0);
  EXPECT_NE(a.editStamp(), stamp);
  EXPECT_FALSE(cursor.isCurrentFor(a));
  EXPECT_EQ(a.evaluate(1.5f, cursor), 3.0);
  a.setPostInfinityType(TparamCurve::kLinear);
  EXPECT_EQ(a.evaluate(3.0f, cursor), TparamCurve(a).evaluate(3.0f));
  EXPECT_NE(a.evaluate(3.0f, cursor), 4.0);

  // A curve built where a destroyed one lived still has a stamp of its own.
  alignas(TparamCurve) unsigned char storage[sizeof(TparamCurve)];
  auto* first = new (storage) TparamCurve(true);
  first->add(Tkeyframe(0.0f, 0.0, kTangentLinear, kTangentLinear));
  first->add(Tkeyframe(2.0f, 2.0, kTangentLinear, kTangentLinear));
  TevalCursor reused;
  EXPECT_EQ(first->evaluate(1.0f, reused), 1.0);
  first->~TparamCurve();
  auto* second = new (storage) TparamCurve(true);
  second->add(Tkeyframe(0.0f, 7.0, kTangentLinear, kTangentLinear));
  second->add(Tkeyframe(2.0f, 7.0, kTangentLinear, kTangentLinear));
  EXPECT_FALSE(reused.isCurrentFor(*second));
  EXPECT_EQ(second->evaluate(1.0f, reused), 7.0);
  second->~TparamCurve();

  // Copies and assignments are new curves too.
  TparamCurve copy(a);
  EXPECT_NE(copy.editStamp(), a.editStamp());
  copy = b;
  EXPECT_EQ(copy.evaluate(1.0f, cursor), 20.0);
  cursor.reset();
  EXPECT_FALSE(cursor.isCurrentFor(copy));
}

TEST(TevalCursor, EvaluationThroughTheCurveLeavesOtherCursorsCurrent) {
  TparamCurve curve(true);
  reference::denseSpline(curve, 20, 11);
  TevalCursor cursor;
  curve.evaluate(3.5f, cursor);
  const std::uint64_t stamp = curve.editStamp();
  for (float t = -2.0f; t < 30.0f; t += 0.37f) curve.evaluate(t);
  EXPECT_EQ(curve.editStamp(), stamp);
  EXPECT_TRUE(cursor.isCurrentFor(curve));
}

}  // namespace
}  // namespace lumora
