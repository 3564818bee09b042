#include "lumora/curve/span_math.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <vector>

namespace lumora {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

// The reference root finder dominates the run time; sanitizers slow it tenfold.
constexpr int kRandomSpans = kSanitized ? 3000 : 20000;
constexpr int kSamplesPerSpan = 100;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// A loaded span and the largest magnitude among its control values, which
// bounds how far a value may stray from the reference's.
struct Tloaded {
  TweightedSpan span;
  double scale = 0.0;
};

// Loads the span with handles at normalised times u1 and u2 over [x0, x0 + h].
Tloaded loadSpan(double x0, double h, double y0, double u1, double y1, double u2, double y2,
                 double y3) {
  Tloaded l;
  double x1 = x0 + u1 * h;
  double x2 = x0 + u2 * h;
  EXPECT_TRUE(l.span.load(x0, y0, x1, y1, x2, y2, x0 + h, y3, /*keepFirst=*/true));
  l.scale = std::max({std::fabs(y0), std::fabs(y1), std::fabs(y2), std::fabs(y3)});
  return l;
}

bool sameBits(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The value difference at u against the reference, relative to the span's
// largest control value; -1 when the quick solve left [0, 1].
double relativeError(const Tloaded& l, double u) {
  const double s = l.span.parameterAt(u);
  if (!(s >= 0.0 && s <= 1.0)) return -1.0;
  const double reference = l.span.valueAt(l.span.referenceParameterAt(u));
  const double value = l.span.valueAt(s);
  if (sameBits(value, reference)) return 0.0;
  return std::fabs(value - reference) / l.scale;
}

// Random spans of every shape load() can produce, handles drawn so that the
// awkward cases come up often.
class TspanSource {
 public:
  explicit TspanSource(std::uint64_t seed) : fRandom(seed) {}

  double uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(fRandom);
  }

  Tloaded next() {
    double u1 = uniform(0.0, 1.0);
    double u2 = uniform(0.0, 1.0);
    switch (fRandom() % 10) {
      case 0:  // a handle at its own key: a vertical end tangent
        (fRandom() % 2 ? u1 : u2) = fRandom() % 2 ? 0.0 : 1.0;
        if (fRandom() % 2) u2 = 1.0;
        break;
      case 1:  // nearly vertical end tangents
        u1 = uniform(0.0, 1e-6);
        u2 = 1.0 - uniform(0.0, 1e-6);
        break;
      case 2:  // handles longer than the span, cut by load()
        u1 = uniform(1.0, 3.0);
        u2 = uniform(-3.0, 0.5);
        break;
      case 3:  // the second handle before the span start: time may turn back
        u2 = uniform(-1.0, 0.0);
        break;
      case 4:  // close to a cusp
        u1 = 1.0 - uniform(0.0, 1e-3);
        u2 = uniform(0.0, 1e-3);
        break;
      case 5:  // just outside the window where time counts as linear
        u1 = 1.0 / 3 + (fRandom() % 2 ? 1.0 : -1.0) * uniform(1.0e-6, 1.5e-6);
        u2 = 2.0 / 3 + (fRandom() % 2 ? 1.0 : -1.0) * uniform(1.0e-6, 1.5e-6);
        break;
      case 6:  // handles pointing out of the span, pulled back
        u1 = uniform(-1.0, 0.2);
        u2 = uniform(0.8, 2.0);
        break;
      default:
        break;
    }
    const double h = std::pow(10.0, uniform(-6.0, 6.0));
    const double x0 = uniform(-1e3, 1e3);
    const double valueScale = std::pow(10.0, uniform(-100.0, 100.0));
    return loadSpan(x0, h, valueScale * uniform(-1.0, 1.0), u1, valueScale * uniform(-2.0, 2.0), u2,
                    valueScale * uniform(-2.0, 2.0), valueScale * uniform(-1.0, 1.0));
  }

  // Normalised times, crowding towards both ends now and then.
  double time() {
    switch (fRandom() % 8) {
      case 0:
        return std::pow(10.0, uniform(-16.0, -1.0));
      case 1:
        return 1.0 - std::pow(10.0, uniform(-16.0, -1.0));
      default:
        return uniform(0.0, 1.0);
    }
  }

 private:
  std::mt19937_64 fRandom;
};

TEST(TweightedSpanSolve, StaysWithinTheBoundOfTheReferenceOnRandomSpans) {
  TspanSource source(20240611);
  double worst = 0.0;
  int quick = 0;
  for (int i = 0; i < kRandomSpans; ++i) {
    const Tloaded l = source.next();
    quick += l.span.solveQuickly;
    for (int j = 0; j < kSamplesPerSpan; ++j) {
      const double u = source.time();
      const double e = relativeError(l, u);
      ASSERT_GE(e, 0.0) << "span " << i << " u " << u;
      ASSERT_LE(e, 1e-12) << "span " << i << " u " << u << " u1 " << l.span.xc1 / 3.0;
      worst = std::max(worst, e);
      // evaluate() takes a shorter route from a time to the value: it too
      // stays within the bound of the reference's value at that time.
      const double t = l.span.x0 + u * (l.span.x3 - l.span.x0);
      const double reference =
          l.span.valueAt(l.span.referenceParameterAt(l.span.normalisedTime(t)));
      const double value = l.span.evaluate(t);
      if (!sameBits(value, reference)) {
        ASSERT_LE(std::fabs(value - reference), 1e-12 * l.scale) << "span " << i << " t " << t;
      }
    }
  }
  // Most random spans rise strictly and take the quick solve.
  EXPECT_GT(quick, kRandomSpans / 2);
  std::ostringstream worstText;
  worstText << std::scientific << worst;
  RecordProperty("worst_relative_error", worstText.str());
}

TEST(TweightedSpanSolve, MatchesTheReferenceOnEveryShapeOfSpan) {
  // u1, u2 pairs: ordinary, ease in and out, strong ease, end tangents that
  // are vertical at one or both ends, a handle cut by load(), a near cusp.
  const double handles[][2] = {{0.4, 0.75}, {0.25, 0.75}, {0.05, 0.95}, {0.0, 0.6}, {0.3, 1.0},
                               {0.0, 1.0},  {0.0, 0.0},   {1.0, 1.0},   {1.2, 0.1}, {0.999, 0.001},
                               {0.8, 0.2},  {0.5, 0.5},   {1e-12, 0.9}, {0.3, 0.7}};
  for (const auto& uv : handles) {
    const Tloaded l = loadSpan(0.0, 1.0, 0.0, uv[0], 1.0, uv[1], -1.0, 0.5);
    double worst = 0.0;
    for (int k = 0; k <= 20000; ++k) {
      const double e = relativeError(l, k / 20000.0);
      ASSERT_GE(e, 0.0) << uv[0] << " " << uv[1] << " k " << k;
      worst = std::max(worst, e);
    }
    EXPECT_LE(worst, 1e-12) << uv[0] << " " << uv[1];
  }
}

TEST(TweightedSpanSolve, GivesTheReferenceBitsWhereItCannotVouchForItself) {
  const Tloaded rising = loadSpan(0.0, 1.0, 0.0, 0.4, 1.0, 0.75, -1.0, 0.5);
  ASSERT_EQ(rising.span.solveQuickly, 1);
  EXPECT_GT(rising.span.solveStepCube, 0.0);  // one Halley step settles its times
  // Outside the span, at and near its ends, and NaN.
  const double times[] = {-1.0, -1e-300,     0.0,         1e-300, 1e-12, 1e-10, 1.0 - 1e-10,
                          1.0,  1.0 + 1e-16, 1.0 + 1e-12, 2.0,    kInf,  -kInf, kNaN};
  for (double u : times) {
    EXPECT_TRUE(sameBits(rising.span.parameterAt(u), rising.span.referenceParameterAt(u))) << u;
  }
  EXPECT_EQ(rising.span.parameterAt(kNaN), 0.0);
  EXPECT_EQ(rising.span.parameterAt(-0.5), 0.0);

  // Time that turns back inside the span: several roots for some times, and
  // the reference's answer (0 for those) everywhere.
  const Tloaded turning = loadSpan(0.0, 1.0, 0.0, 0.0, 1.0, -0.5, -1.0, 0.5);
  EXPECT_EQ(turning.span.solveQuickly, 0);
  for (int k = -10; k <= 1010; ++k) {
    const double u = k / 1000.0;
    EXPECT_TRUE(sameBits(turning.span.parameterAt(u), turning.span.referenceParameterAt(u))) << u;
  }

  // A NaN handle leaves no usable time polynomial.
  TweightedSpan broken;
  double x1 = kNaN, y1 = 0.0, x2 = 0.5, y2 = 0.0;
  ASSERT_TRUE(broken.load(0.0, 0.0, x1, y1, x2, y2, 1.0, 1.0, true));
  EXPECT_EQ(broken.solveQuickly, 0);
  EXPECT_EQ(broken.parameterAt(0.5), 0.0);
}

TEST(TweightedSpanSolve, InvertsTheTimePolynomial) {
  // Symmetric handles put the middle of the span at parameter 1/2.
  for (double u1 : {0.05, 0.25, 0.4, 0.9}) {
    const Tloaded l = loadSpan(2.0, 3.0, 1.0, u1, 2.0, 1.0 - u1, 3.0, 4.0);
    EXPECT_NEAR(l.span.parameterAt(0.5), 0.5, 1e-15) << u1;
  }
  // Round trips both ways on an ordinary span: u -> s -> u and s -> u -> s.
  const Tloaded l = loadSpan(0.0, 1.0, 0.0, 0.4, 1.0, 0.75, -1.0, 0.5);
  double previous = 0.0;
  for (int k = 1; k < 1000; ++k) {
    const double u = k / 1000.0;
    const double s = l.span.parameterAt(u);
    EXPECT_NEAR(l.span.timeAt(s), u, 8e-16) << u;
    EXPECT_NEAR(l.span.parameterAt(l.span.timeAt(u)), u, 1e-15) << u;
    EXPECT_GT(s, previous) << u;  // rising time keeps the parameter rising
    previous = s;
  }
}

TEST(TweightedSpanSolve, DependsOnlyOnTheSpanAndTheTime) {
  TspanSource source(7);
  std::vector<Tloaded> spans;
  for (int i = 0; i < 200; ++i) spans.push_back(source.next());
  std::vector<double> times;
  for (int j = 0; j < 50; ++j) times.push_back(source.time());

  // In order, span by span.
  std::vector<double> first;
  for (const Tloaded& l : spans) {
    for (double u : times) first.push_back(l.span.parameterAt(u));
  }
  // Backwards, interleaving spans, each through a fresh copy.
  for (std::size_t j = times.size(); j-- > 0;) {
    for (std::size_t i = spans.size(); i-- > 0;) {
      const TweightedSpan copy = spans[i].span;
      const double s = copy.parameterAt(times[j]);
      ASSERT_TRUE(sameBits(s, first[i * times.size() + j])) << i << " " << j;
      ASSERT_TRUE(sameBits(copy.evaluate(copy.x0 + times[j] * (copy.x3 - copy.x0)),
                           spans[i].span.evaluate(copy.x0 + times[j] * (copy.x3 - copy.x0))));
    }
  }
}

TEST(TweightedSpanSolve, LoadOfASpanWithoutDurationChangesNothing) {
  TspanSource source(11);
  const Tloaded l = source.next();
  for (double end : {1.5, kNaN}) {
    TweightedSpan span = l.span;
    double x1 = 1.2, y1 = 3.0, x2 = 1.4, y2 = 4.0;
    const double start = end == end ? end : 1.0;
    EXPECT_FALSE(span.load(start, 2.0, x1, y1, x2, y2, end, 5.0, true));
    EXPECT_EQ(std::memcmp(&span, &l.span, sizeof span), 0);
    EXPECT_EQ(x1, 1.2);
    EXPECT_EQ(y1, 3.0);
    EXPECT_EQ(x2, 1.4);
    EXPECT_EQ(y2, 4.0);
  }
}

}  // namespace
}  // namespace lumora
