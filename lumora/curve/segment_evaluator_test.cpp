#include "lumora/curve/segment_evaluator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
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
  double x1 = t0 + outX * kThird, y1 = y0 + outY * kThird;
  double x2 = t3 - inX * kThird, y2 = y3 - inY * kThird;
  ev.setSegment(t0, y0, x1, y1, x2, y2, t3, y3, /*keepFirst=*/true);
}

// Bezier coordinate at parameter s.
double bezier(double p0, double p1, double p2, double p3, double s) {
  const double r = 1.0 - s;
  return r * r * r * p0 + 3.0 * r * r * s * p1 + 3.0 * r * s * s * p2 + s * s * s * p3;
}

std::unique_ptr<TsegmentEvaluator> evaluator(bool weighted) {
  if (weighted) return std::make_unique<TbezierSegmentEvaluator>(true);
  return std::make_unique<ThermiteSegmentEvaluator>(true);
}

TEST(ThermiteSegmentEvaluator, EvaluatesTheHermiteCubic) {
  ThermiteSegmentEvaluator ev(/*isFloat=*/true);
  loadSpan(ev, 1.0, 2.0, 1.0f, 0.0f, 3.0, 6.0, 1.0f, 0.0f);  // flat ends
  EXPECT_EQ(ev.evaluate(1.0), 2.0);
  EXPECT_DOUBLE_EQ(ev.evaluate(3.0), 6.0);
  EXPECT_DOUBLE_EQ(ev.evaluate(2.0), 4.0);
  EXPECT_DOUBLE_EQ(ev.evaluate(1.5), 2.0 + 4.0 * (3 * 0.0625 - 2 * 0.015625));

  // Only the handles' slopes matter, not their lengths.
  ThermiteSegmentEvaluator longer(true), shorter(true);
  loadSpan(longer, 1.0, 2.0, 0.5f, 1.0f, 3.0, 6.0, 3.0f, -1.5f);
  loadSpan(shorter, 1.0, 2.0, 0.05f, 0.1f, 3.0, 6.0, 0.2f, -0.1f);
  for (double t = 1.0; t <= 3.0; t += 0.125) {
    EXPECT_NEAR(longer.evaluate(t), shorter.evaluate(t), 1e-6) << t;
  }
}

// tan(89.99999 degrees) stands in for a vertical slope.
TEST(ThermiteSegmentEvaluator, ZeroLengthHandleIsVerticalUpwards) {
  EXPECT_EQ(verticalSlope(), 5729577.948511148);
  for (const double handleY : {0.0, 1.0, -1.0}) {
    ThermiteSegmentEvaluator ev(true);
    double x1 = 0.0, y1 = handleY, x2 = 2.0 / 3.0, y2 = 0.0;
    ev.setSegment(0.0, 0.0, x1, y1, x2, y2, 1.0, 0.0, true);
    EXPECT_NEAR(ev.evaluate(1e-12) / 1e-12, 5729577.948511148, 1e-3) << handleY;
    // The split hands the start key the same slope back.
    float kx, ky, ox, oy, px, py, nx, ny;
    ev.splitSegment(0.5, kx, ky, ox, oy, px, py, nx, ny);
    EXPECT_EQ((std::array{px, py}),
              (std::array{0.0001f, static_cast<float>(5729577.948511148 * double{0.0001f})}));
  }
}

TEST(TbezierSegmentEvaluator, FollowsTheBezierInTimeAndValue) {
  TbezierSegmentEvaluator ev(true);
  double x1 = 0.9, y1 = 5.0, x2 = 1.2, y2 = -3.0;
  ev.setSegment(0.5, 1.0, x1, y1, x2, y2, 2.5, 2.0, true);
  EXPECT_EQ((std::array{x1, x2}), (std::array{0.9, 1.2}));  // inside the segment: not moved
  for (int i = 0; i <= 50; ++i) {
    const double s = i / 50.0;
    const double t = bezier(0.5, 0.9, 1.2, 2.5, s);
    EXPECT_NEAR(ev.evaluate(t), bezier(1.0, 5.0, -3.0, 2.0, s), 1e-9) << s;
  }
  // Outside the segment (3.0) the time polynomial has no root in [0, 1].
  EXPECT_EQ((std::array{ev.evaluate(0.5), ev.evaluate(2.5), ev.evaluate(3.0)}),
            (std::array{1.0, 2.0, 1.0}));
}

TEST(TbezierSegmentEvaluator, HandlesOutsideTheSegmentArePulledIn) {
  TbezierSegmentEvaluator ev(true);
  double x1 = -1.0, y1 = 7.0, x2 = 4.0, y2 = 9.0;
  ev.setSegment(0.0, 1.0, x1, y1, x2, y2, 2.0, 3.0, true);
  EXPECT_EQ((std::array{x1, y1, x2, y2}), (std::array{0.0, 1.0, 2.0, 3.0}));

  // A first handle beyond the end, kept: only the second one moves, shortened
  // along its own direction.
  double a1 = 2.5, b1 = 2.0, a2 = 0.2, b2 = 5.0;
  ev.setSegment(0.0, 0.0, a1, b1, a2, b2, 2.0, 3.0, /*keepFirst=*/true);
  EXPECT_EQ((std::array{a1, b1}), (std::array{2.5, 2.0}));
  EXPECT_GT(a2, 0.2);
  EXPECT_NEAR((b2 - 3.0) / (a2 - 2.0), (5.0 - 3.0) / (0.2 - 2.0), 1e-9);
  // Kept as the first, the long handle wins; otherwise the second one does.
  double c1 = 2.5, d1 = 2.0, c2 = 0.2, d2 = 5.0;
  ev.setSegment(0.0, 0.0, c1, d1, c2, d2, 2.0, 3.0, /*keepFirst=*/false);
  EXPECT_LT(c1, 2.5);
  EXPECT_DOUBLE_EQ(c2, 0.2);  // kept, up to the rounding of 1 - (1 - u2)
  EXPECT_NEAR(d1 / c1, 2.0 / 2.5, 1e-9);
}

TEST(SegmentEvaluator, ZeroLengthSegments) {
  ThermiteSegmentEvaluator plain(true);  // holds the start value
  double x1 = 2.0, y1 = 1.0, x2 = 2.0, y2 = 3.0;
  plain.setSegment(2.0, 1.5, x1, y1, x2, y2, 2.0, 4.0, true);
  EXPECT_EQ((std::array{plain.evaluate(2.0), plain.evaluate(7.0)}), (std::array{1.5, 1.5}));
  TbezierSegmentEvaluator weighted(true);  // keeps the previous segment
  EXPECT_EQ(weighted.evaluate(0.5), 0.0);  // nothing loaded yet: flat at 0
  loadSpan(weighted, 0.0, 0.0, 3.0f, 3.0f, 3.0, 3.0, 3.0f, 3.0f);
  double a1 = 5.0, b1 = 9.0, a2 = 5.0, b2 = 9.0;
  weighted.setSegment(5.0, 9.0, a1, b1, a2, b2, 5.0, 9.0, true);
  EXPECT_DOUBLE_EQ(weighted.evaluate(1.5), 1.5);
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
        const double a = (x1 - 2.0) / 4.0, b = (x2 - 2.0) / 4.0;
        for (int i = 0; i < 400; ++i) {
          ASSERT_LE(bezier(0, a, b, 1, i / 400.0), bezier(0, a, b, 1, (i + 1) / 400.0) + 1e-12)
              << u1 << " " << u2 << " " << keepFirst;
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
  for (const bool weighted : {false, true}) {
    const std::unique_ptr<TsegmentEvaluator> ev = evaluator(weighted);
    loadSpan(*ev, 0.0, 0.0, 1.0f, 3.0f, 1.0, 0.0, 1.0f, 3.0f);
    std::array<double, 4> e;  // min value, max value, min time, max time
    ev->segmentExtremes(e[0], e[1], e[2], e[3]);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(e[i], (std::array{-peak, peak, tMin, tMax})[i], 1e-12);
    // A monotonic segment has its extremes at the ends.
    loadSpan(*ev, 1.0, 2.0, 1.0f, 0.0f, 3.0, 6.0, 1.0f, 0.0f);
    ev->segmentExtremes(e[0], e[1], e[2], e[3]);
    EXPECT_EQ(e, (std::array{2.0, 6.0, 1.0, 3.0}));
  }
}

TEST(SegmentEvaluator, ValueBoundsWidenToTheControlPolygon) {
  ThermiteSegmentEvaluator ev(true);
  double lo = 0.0, hi = 1.0;  // widened, never narrowed
  ev.segmentValueBounds(0.5, -2.0, 0.75, 0.25, lo, hi);
  EXPECT_EQ((std::array{lo, hi}), (std::array{-2.0, 1.0}));
  ev.segmentValueBounds(0.5, 0.5, 4.0, 0.5, lo, hi);
  EXPECT_EQ((std::array{lo, hi}), (std::array{-2.0, 4.0}));
}

// The two halves of a split, loaded from the returned tangents, trace the original.
TEST(SegmentEvaluator, SplitHalvesTraceTheOriginal) {
  // Plain; then weighted with third handles (linear time), long, short and constrained ones.
  const float handles[][4] = {{0.6f, 0.8f, 0.96f, -0.28f},
                              {2.0f, 6.0f, 2.0f, -1.0f},
                              {5.0f, 6.0f, 0.3f, 4.0f},
                              {0.2f, -2.0f, 5.5f, -1.0f},
                              {7.0f, 2.0f, 6.0f, -1.0f}};
  for (const double t : {0.3, 1.0, 1.75}) {
    for (const auto& h : handles) {
      const bool weighted = &h != handles;
      const std::unique_ptr<TsegmentEvaluator> ev = evaluator(weighted);
      loadSpan(*ev, 0.0, 1.0, h[0], h[1], 2.0, -3.0, h[2], h[3]);
      double original[101];
      for (int i = 0; i <= 100; ++i) original[i] = ev->evaluate(i / 50.0);
      float kx, ky, ox, oy, px, py, nx, ny;
      const double v = ev->splitSegment(t, kx, ky, ox, oy, px, py, nx, ny);
      EXPECT_NEAR(v, ev->evaluate(t), 1e-9);
      if (!weighted) {  // directions in storage form
        EXPECT_NEAR(kx * kx + ky * ky, 1.0f, 1e-6f);
        EXPECT_NEAR(px * px + py * py, 1.0f, 1e-6f);
      }
      for (int i = 0; i <= 100; ++i) {
        const double time = i / 50.0;
        if (time <= t) {
          loadSpan(*ev, 0.0, 1.0, px, py, t, v, kx, ky);
        } else {
          loadSpan(*ev, t, v, ox, oy, 2.0, -3.0, nx, ny);
        }
        EXPECT_NEAR(ev->evaluate(time), original[i], 6e-5) << weighted << " " << time;
      }
    }
  }
}

}  // namespace
}  // namespace lumora
