#include "lumora/curve/segment_evaluator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "lumora/curve/bezier_segment_evaluator.h"
#include "lumora/curve/hermite_segment_evaluator.h"

namespace lumora {
namespace {

constexpr double kThird = 0.3333333333333333;

// Loads the span from (t0, y0) with out tangent (outX, outY) to (t3, y3) with
// in tangent (inX, inY) the way a curve does: the inner control points sit a
// third of each tangent away from its key.
void loadSpan(TsegmentEvaluator& ev, double t0, double y0, float outX, float outY, double t3,
              double y3, float inX, float inY) {
  double x1 = t0 + outX * kThird;
  double y1 = y0 + outY * kThird;
  double x2 = t3 - inX * kThird;
  double y2 = y3 - inY * kThird;
  ev.setSegment(t0, y0, x1, y1, x2, y2, t3, y3, /*keepFirst=*/true);
}

// Bezier coordinate at parameter s.
double bezier(double p0, double p1, double p2, double p3, double s) {
  const double r = 1.0 - s;
  return r * r * r * p0 + 3.0 * r * r * s * p1 + 3.0 * r * s * s * p2 + s * s * s * p3;
}

TEST(VerticalSlope, IsTheSlopeOf89Point99999Degrees) {
  EXPECT_EQ(verticalSlope(), 5729577.948511148);
}

TEST(ThermiteSegmentEvaluator, EvaluatesTheHermiteCubic) {
  ThermiteSegmentEvaluator ev(/*isFloat=*/true);
  loadSpan(ev, 1.0, 2.0, 1.0f, 0.0f, 3.0, 6.0, 1.0f, 0.0f);  // flat ends
  EXPECT_EQ(ev.evaluate(1.0), 2.0);
  EXPECT_DOUBLE_EQ(ev.evaluate(3.0), 6.0);
  EXPECT_DOUBLE_EQ(ev.evaluate(2.0), 4.0);
  EXPECT_DOUBLE_EQ(ev.evaluate(1.5), 2.0 + 4.0 * (3 * 0.0625 - 2 * 0.015625));

  // Only the handles' slopes matter, not their lengths.
  ThermiteSegmentEvaluator longer(true);
  loadSpan(longer, 1.0, 2.0, 0.5f, 1.0f, 3.0, 6.0, 3.0f, -1.5f);
  ThermiteSegmentEvaluator shorter(true);
  loadSpan(shorter, 1.0, 2.0, 0.05f, 0.1f, 3.0, 6.0, 0.2f, -0.1f);
  for (double t = 1.0; t <= 3.0; t += 0.125) {
    EXPECT_NEAR(longer.evaluate(t), shorter.evaluate(t), 1e-6) << t;
  }
}

TEST(ThermiteSegmentEvaluator, ZeroLengthHandleIsVerticalUpwards) {
  for (const double handleY : {0.0, 1.0, -1.0}) {
    ThermiteSegmentEvaluator ev(true);
    double x1 = 0.0, y1 = handleY, x2 = 2.0 / 3.0, y2 = 0.0;
    ev.setSegment(0.0, 0.0, x1, y1, x2, y2, 1.0, 0.0, true);
    const double d = 1e-12;
    EXPECT_NEAR(ev.evaluate(d) / d, 5729577.948511148, 1e-3) << handleY;
    // The split hands the start key the same slope back.
    float kx, ky, ox, oy, px, py, nx, ny;
    ev.splitSegment(0.5, kx, ky, ox, oy, px, py, nx, ny);
    EXPECT_EQ(px, 0.0001f);
    EXPECT_EQ(py, static_cast<float>(verticalSlope() * static_cast<double>(0.0001f)));
  }
}

TEST(ThermiteSegmentEvaluator, ZeroLengthSegmentHoldsStartValue) {
  ThermiteSegmentEvaluator ev(true);
  double x1 = 2.0, y1 = 1.0, x2 = 2.0, y2 = 3.0;
  ev.setSegment(2.0, 1.5, x1, y1, x2, y2, 2.0, 4.0, true);
  EXPECT_EQ(ev.evaluate(2.0), 1.5);
  EXPECT_EQ(ev.evaluate(7.0), 1.5);
}

TEST(TbezierSegmentEvaluator, ThirdHandlesMatchHermite) {
  struct Row {
    double t0, y0;
    float outX, outY;
    double t3, y3;
    float inX, inY;
  };
  const Row rows[] = {
      {0.0, 0.0, 1.0f, 0.0f, 1.0, 1.0, 1.0f, 0.0f},
      {1.0, 2.0, 2.0f, 5.0f, 3.0, -1.0f, 2.0f, 3.0f},
      {-2.0, 10.0, 0.5f, -4.0f, 0.5, 10.0f, 2.5f, 8.0f},
  };
  for (const Row& r : rows) {
    const double h = r.t3 - r.t0;
    // Weighted tangents exactly as long as the span.
    TbezierSegmentEvaluator weighted(true);
    loadSpan(weighted, r.t0, r.y0, static_cast<float>(h), static_cast<float>(r.outY / r.outX * h),
             r.t3, r.y3, static_cast<float>(h), static_cast<float>(r.inY / r.inX * h));
    ThermiteSegmentEvaluator plain(true);
    loadSpan(plain, r.t0, r.y0, r.outX, r.outY, r.t3, r.y3, r.inX, r.inY);
    for (int i = 0; i <= 40; ++i) {
      const double t = r.t0 + h * i / 40.0;
      EXPECT_NEAR(weighted.evaluate(t), plain.evaluate(t), 1e-5) << r.t0 << " " << t;
    }
  }
}

TEST(TbezierSegmentEvaluator, FollowsTheBezierInTimeAndValue) {
  TbezierSegmentEvaluator ev(true);
  double x1 = 0.9, y1 = 5.0, x2 = 1.2, y2 = -3.0;
  ev.setSegment(0.5, 1.0, x1, y1, x2, y2, 2.5, 2.0, true);
  EXPECT_EQ(x1, 0.9);  // inside the segment: not moved
  EXPECT_EQ(x2, 1.2);
  for (int i = 0; i <= 50; ++i) {
    const double s = i / 50.0;
    const double t = bezier(0.5, 0.9, 1.2, 2.5, s);
    EXPECT_NEAR(ev.evaluate(t), bezier(1.0, 5.0, -3.0, 2.0, s), 1e-9) << s;
  }
  EXPECT_EQ(ev.evaluate(0.5), 1.0);
  EXPECT_EQ(ev.evaluate(2.5), 2.0);
  // Outside the segment the time polynomial has no root in [0, 1].
  EXPECT_EQ(ev.evaluate(3.0), 1.0);
}

TEST(TbezierSegmentEvaluator, HandlesOutsideTheSegmentArePulledIn) {
  TbezierSegmentEvaluator ev(true);
  double x1 = -1.0, y1 = 7.0, x2 = 4.0, y2 = 9.0;
  ev.setSegment(0.0, 1.0, x1, y1, x2, y2, 2.0, 3.0, true);
  EXPECT_EQ(x1, 0.0);
  EXPECT_EQ(y1, 1.0);
  EXPECT_EQ(x2, 2.0);
  EXPECT_EQ(y2, 3.0);

  // A first handle beyond the end, kept: only the second one moves, shortened
  // along its own direction.
  double a1 = 2.5, b1 = 2.0, a2 = 0.2, b2 = 5.0;
  ev.setSegment(0.0, 0.0, a1, b1, a2, b2, 2.0, 3.0, /*keepFirst=*/true);
  EXPECT_EQ(a1, 2.5);
  EXPECT_EQ(b1, 2.0);
  EXPECT_GT(a2, 0.2);
  EXPECT_NEAR((b2 - 3.0) / (a2 - 2.0), (5.0 - 3.0) / (0.2 - 2.0), 1e-9);
  // Kept as the first, the long handle wins; otherwise the second one does.
  double c1 = 2.5, d1 = 2.0, c2 = 0.2, d2 = 5.0;
  ev.setSegment(0.0, 0.0, c1, d1, c2, d2, 2.0, 3.0, /*keepFirst=*/false);
  EXPECT_LT(c1, 2.5);
  EXPECT_DOUBLE_EQ(c2, 0.2);  // kept, up to the rounding of 1 - (1 - u2)
  EXPECT_NEAR(d1 / c1, 2.0 / 2.5, 1e-9);
}

TEST(TbezierSegmentEvaluator, ZeroLengthSegmentKeepsThePreviousOne) {
  TbezierSegmentEvaluator ev(true);
  EXPECT_EQ(ev.evaluate(0.5), 0.0);  // nothing loaded yet: flat at 0
  loadSpan(ev, 0.0, 0.0, 3.0f, 3.0f, 3.0, 3.0, 3.0f, 3.0f);
  double x1 = 5.0, y1 = 9.0, x2 = 5.0, y2 = 9.0;
  ev.setSegment(5.0, 9.0, x1, y1, x2, y2, 5.0, 9.0, true);
  EXPECT_DOUBLE_EQ(ev.evaluate(1.5), 1.5);
}

TEST(TbezierSegmentEvaluator, MonotonicConstraintKeepsTimeRunningForwards) {
  for (const bool keepFirst : {true, false}) {
    for (double u1 = -0.5; u1 <= 3.0; u1 += 0.125) {
      for (double u2 = -3.0; u2 <= 1.5; u2 += 0.125) {
        const bool inBox = u1 <= 1.0 && u2 >= 0.0;
        const bool constrained = u1 > 1.0 || u2 < -1.0;
        if (!inBox && !constrained) continue;  // second handle in [-1, 0): left alone
        TbezierSegmentEvaluator ev(true);
        double x1 = 2.0 + 4.0 * u1, y1 = 1.0, x2 = 2.0 + 4.0 * u2, y2 = -1.0;
        ev.setSegment(2.0, 0.0, x1, y1, x2, y2, 6.0, 0.5, keepFirst);
        const double a = (x1 - 2.0) / 4.0;
        const double b = (x2 - 2.0) / 4.0;
        double previous = -1.0;
        for (int i = 0; i <= 400; ++i) {
          const double x = bezier(0.0, a, b, 1.0, i / 400.0);
          ASSERT_GE(x, previous - 1e-12) << u1 << " " << u2 << " " << keepFirst;
          previous = x;
        }
        // Every time in the segment has its one parameter.
        for (int i = 1; i < 20; ++i) {
          const double s = i / 20.0;
          const double t = 2.0 + 4.0 * bezier(0.0, a, b, 1.0, s);
          ASSERT_NEAR(ev.evaluate(t), bezier(0.0, y1, y2, 0.5, s), 1e-5)
              << u1 << " " << u2 << " " << s;
        }
      }
    }
  }
}

TEST(SegmentEvaluator, ExtremesOfAnOvershootingSegment) {
  // y = 6t^3 - 9t^2 + 3t on [0, 1]: extremes at 1/2 -+ sqrt(3)/6.
  const double tMax = 0.5 - std::sqrt(3.0) / 6.0;
  const double tMin = 0.5 + std::sqrt(3.0) / 6.0;
  const double peak = std::sqrt(3.0) / 6.0;
  ThermiteSegmentEvaluator plain(true);
  loadSpan(plain, 0.0, 0.0, 1.0f, 3.0f, 1.0, 0.0, 1.0f, 3.0f);
  TbezierSegmentEvaluator weighted(true);
  loadSpan(weighted, 0.0, 0.0, 1.0f, 3.0f, 1.0, 0.0, 1.0f, 3.0f);
  for (const TsegmentEvaluator* ev : {static_cast<const TsegmentEvaluator*>(&plain),
                                      static_cast<const TsegmentEvaluator*>(&weighted)}) {
    double minValue, maxValue, minTime, maxTime;
    ev->segmentExtremes(minValue, maxValue, minTime, maxTime);
    EXPECT_NEAR(maxValue, peak, 1e-12);
    EXPECT_NEAR(minValue, -peak, 1e-12);
    EXPECT_NEAR(maxTime, tMax, 1e-12);
    EXPECT_NEAR(minTime, tMin, 1e-12);
  }

  // A monotonic segment has its extremes at the ends.
  loadSpan(plain, 1.0, 2.0, 1.0f, 0.0f, 3.0, 6.0, 1.0f, 0.0f);
  double minValue, maxValue, minTime, maxTime;
  plain.segmentExtremes(minValue, maxValue, minTime, maxTime);
  EXPECT_EQ(minValue, 2.0);
  EXPECT_EQ(minTime, 1.0);
  EXPECT_EQ(maxValue, 6.0);
  EXPECT_EQ(maxTime, 3.0);
}

TEST(SegmentEvaluator, ValueBoundsWidenToTheControlPolygon) {
  ThermiteSegmentEvaluator ev(true);
  double lo = 0.0, hi = 1.0;
  ev.segmentValueBounds(0.5, -2.0, 0.75, 0.25, lo, hi);
  EXPECT_EQ(lo, -2.0);
  EXPECT_EQ(hi, 1.0);
  ev.segmentValueBounds(0.5, 0.5, 4.0, 0.5, lo, hi);
  EXPECT_EQ(lo, -2.0);
  EXPECT_EQ(hi, 4.0);
}

// Splits the span at t and checks that the two halves, loaded from the
// returned tangents, trace the original.
void expectSplitKeepsShape(TsegmentEvaluator& ev, double t0, double y0, float outX, float outY,
                           double t3, double y3, float inX, float inY, double t) {
  loadSpan(ev, t0, y0, outX, outY, t3, y3, inX, inY);
  double original[101];
  for (int i = 0; i <= 100; ++i) original[i] = ev.evaluate(t0 + (t3 - t0) * i / 100.0);
  float kx, ky, ox, oy, px, py, nx, ny;
  const double v = ev.splitSegment(t, kx, ky, ox, oy, px, py, nx, ny);
  EXPECT_NEAR(v, ev.evaluate(t), 1e-9);
  if (!ev.isWeighted()) {
    EXPECT_NEAR(kx * kx + ky * ky, 1.0f, 1e-6f);  // directions in storage form
    EXPECT_NEAR(px * px + py * py, 1.0f, 1e-6f);
  }
  const double scale = std::max({1.0, std::fabs(y0), std::fabs(y3)});
  for (int i = 0; i <= 100; ++i) {
    const double time = t0 + (t3 - t0) * i / 100.0;
    if (time <= t) {
      loadSpan(ev, t0, y0, px, py, t, v, kx, ky);
    } else {
      loadSpan(ev, t, v, ox, oy, t3, y3, nx, ny);
    }
    EXPECT_NEAR(ev.evaluate(time), original[i], 2e-5 * scale)
        << (ev.isWeighted() ? "weighted " : "plain ") << time;
  }
}

TEST(SegmentEvaluator, SplitHalvesTraceTheOriginal) {
  for (const double t : {0.3, 1.0, 1.75}) {
    ThermiteSegmentEvaluator plain(true);
    expectSplitKeepsShape(plain, 0.0, 1.0, 0.6f, 0.8f, 2.0, -3.0, 0.96f, -0.28f, t);
    TbezierSegmentEvaluator weighted(true);
    // Third handles (linear time), long handles and short ones.
    expectSplitKeepsShape(weighted, 0.0, 1.0, 2.0f, 6.0f, 2.0, -3.0, 2.0f, -1.0f, t);
    expectSplitKeepsShape(weighted, 0.0, 1.0, 5.0f, 6.0f, 2.0, -3.0, 0.3f, 4.0f, t);
    expectSplitKeepsShape(weighted, 0.0, 1.0, 0.2f, -2.0f, 2.0, -3.0, 5.5f, -1.0f, t);
    expectSplitKeepsShape(weighted, 0.0, 1.0, 7.0f, 2.0f, 2.0, -3.0, 6.0f, -1.0f,
                          t);  // constrained
  }
}

}  // namespace
}  // namespace lumora
