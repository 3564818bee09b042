// TbezierSegmentEvaluator: segment maths of weighted curves.
//
// A weighted segment is a cubic Bezier in both time and value. Its control
// points are the two keys and the key plus a third of its out tangent / the
// next key minus a third of its in tangent, so a tangent's length (its
// "weight") shapes the segment.
//
//   TbezierSegmentEvaluator ev(/*isFloat=*/true);
//   double x1 = 0.5, y1 = 1.0, x2 = 0.9, y2 = 1.0;
//   ev.setSegment(0.0, 0.0, x1, y1, x2, y2, 1.0, 1.0, /*keepFirst=*/true);
//   double v = ev.evaluate(0.25);   // solves x(s) = 0.25, returns y(s)
#pragma once

#include <cstdint>

#include "lumora/base/export.h"
#include "lumora/base/float_math.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/curve/span_math.h"

namespace lumora {

/// Weighted segment evaluator.
///
/// Surprises:
///  * setSegment keeps time running forwards: a handle that points outside the
///    segment in time is pulled back (and shortened along its own direction),
///    and handles so long that the time polynomial would turn back are cut
///    to the longest monotonic lengths, keeping the first handle when
///    keepFirst is true and the second otherwise. The moved handles are
///    written back to the caller's variables.
///  * A segment of zero (or NaN) duration is ignored: the previous segment
///    stays loaded. Before the first segment a flat segment at 0 over [0, 1]
///    is loaded.
///  * When the time handles sit at one and two thirds of the segment, time is
///    linear in the curve parameter and evaluate() skips root finding; then a
///    time outside the segment extrapolates the cubic. Otherwise a time
///    outside the segment evaluates to y0, as does any time at which the time
///    polynomial has no single solution.
///  * setTanIn / setTanOut store the vector as given, except that a negative
///    x becomes 0.
class LUMORA_API TbezierSegmentEvaluator final : public TsegmentEvaluator {
 public:
  // --- Construction -------------------------------------------------------------

  explicit TbezierSegmentEvaluator(bool isFloat);
  ~TbezierSegmentEvaluator() override;

  // --- Segment --------------------------------------------------------------------

  void setSegment(double x0, double y0, double& x1, double& y1, double& x2, double& y2, double x3,
                  double y3, bool keepFirst) override;
  double evaluate(double t) const override;
  /// The loaded segment's polynomials.
  const TweightedSpan& span() const { return fSpan; }

  // --- Writing tangents -------------------------------------------------------------

  bool setTanIn(Tkeyframe* key, float x, float y) override;
  bool setTanOut(Tkeyframe* key, float x, float y) override;

  // --- Queries on the loaded segment ----------------------------------------------------

  void segmentExtremes(double& minValue, double& maxValue, double& minTime,
                       double& maxTime) const override;
  /// De Casteljau subdivision at the curve parameter whose time is t; each
  /// returned tangent is three times the handle vector of its half.
  double splitSegment(double t, float& keyInX, float& keyInY, float& keyOutX, float& keyOutY,
                      float& prevOutX, float& prevOutY, float& nextInX, float& nextInY) override;

  // --- Tangent rules ----------------------------------------------------------------------

  /// Both neighbours: the chord slope (vertical when they are less than
  /// 0.0001 s apart), each handle as long in time as its adjacent span. One
  /// neighbour: the vector to it on both sides. None: (1, 0).
  void tangentSpline(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) override;
  /// Both neighbours: the adjacent slopes averaged, each weighted by the
  /// length of the opposite span (a span of 0.01 s or less counts as level);
  /// both sides get the shorter of the two candidate handles. One neighbour:
  /// the vector to it. None: (0, 0).
  void tangentSmooth(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) override;

  bool isWeighted() const override { return true; }

 private:
  // Control points after the handle adjustments of setSegment.
  double fX0 = 0.0;
  double fY0 = 0.0;
  double fX1 = 1.0 / 3.0;
  double fY1 = 0.0;
  double fX2 = 2.0 / 3.0;
  double fY2 = 0.0;
  double fX3 = 1.0;
  double fY3 = 0.0;
  // The loaded span's polynomials.
  TweightedSpan fSpan;
};

}  // namespace lumora
