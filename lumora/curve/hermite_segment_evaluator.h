// ThermiteSegmentEvaluator: segment maths of non-weighted curves.
//
// A non-weighted segment is a cubic Hermite in time: it runs from (x0, y0) to
// (x3, y3) with the slopes of the two handles at its ends. Only the handles'
// directions matter, not their lengths, so tangents are stored as unit
// directions.
//
//   ThermiteSegmentEvaluator ev(/*isFloat=*/true);
//   double x1 = 0.25, y1 = 0.0, x2 = 0.75, y2 = 1.0;     // flat ends
//   ev.setSegment(0.0, 0.0, x1, y1, x2, y2, 1.0, 1.0, /*keepFirst=*/true);
//   ev.evaluate(0.5);                                     // 0.5
#pragma once

#include "lumora/base/export.h"
#include "lumora/base/float_math.h"
#include "lumora/curve/segment_evaluator.h"
#include "lumora/curve/span_math.h"

namespace lumora {

/// Non-weighted segment evaluator.
///
/// Surprises:
///  * A handle of zero duration (x1 == x0 or x3 == x2) gives the positive
///    vertical slope verticalSlope(), whatever the sign of its value
///    component.
///  * A segment of zero duration (x3 == x0, or a NaN duration) evaluates to
///    the constant y0 instead of dividing by zero.
///  * setTanIn / setTanOut store unit vectors with x >= 0. A direction within
///    1e-5 of vertical is stored in the near-vertical form
///    (0.0001, +-verticalSlope() * 0.0001), so its slope stays finite; a zero
///    vector is stored as (0, 0).
class LUMORA_API ThermiteSegmentEvaluator final : public TsegmentEvaluator {
 public:
  // --- Construction -------------------------------------------------------------

  explicit ThermiteSegmentEvaluator(bool isFloat);
  ~ThermiteSegmentEvaluator() override;

  // --- Segment --------------------------------------------------------------------

  /// Loads the segment; the middle points are only read (keepFirst is unused).
  void setSegment(double x0, double y0, double& x1, double& y1, double& x2, double& y2, double x3,
                  double y3, bool keepFirst) override;
  /// ((a s + b) s + c) s + d with s = t - x0; outside [x0, x3] the cubic
  /// continues.
  double evaluate(double t) const override { return fSpan.evaluate(t); }
  /// The value `s` seconds after the segment's start: evaluate(start() + s)
  /// without the subtraction.
  double evaluateAfterStart(double s) const { return fSpan.evaluateAfterStart(s); }
  /// The segment's start time x0, in seconds.
  double start() const { return fX0; }
  /// The loaded segment's cubic.
  const ThermiteSpan& span() const { return fSpan; }

  // --- Writing tangents -------------------------------------------------------------

  bool setTanIn(Tkeyframe* key, float x, float y) override;
  bool setTanOut(Tkeyframe* key, float x, float y) override;

  /// The storage form of the direction (x, y): x < 0 becomes 0, the vector is
  /// normalised, and a near-vertical direction takes the near-vertical form.
  /// (0, 0) stays (0, 0). Returns false (outputs untouched) for non-finite
  /// input.
  static bool directionToStorage(float x, float y, float& storedX, float& storedY);

  // --- Queries on the loaded segment ----------------------------------------------------

  void segmentExtremes(double& minValue, double& maxValue, double& minTime,
                       double& maxTime) const override;
  /// The new key's tangents have the cubic's slope at t; the outer tangents
  /// keep the segment's end slopes. All four are directions in storage form.
  double splitSegment(double t, float& keyInX, float& keyInY, float& keyOutX, float& keyOutY,
                      float& prevOutX, float& prevOutY, float& nextInX, float& nextInY) override;

  // --- Tangent rules ----------------------------------------------------------------------

  /// Both neighbours: (1, chord slope), the vertical slope when they are less
  /// than 0.0001 s apart. One neighbour: the direction to it. None: (1, 0).
  void tangentSpline(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) override;
  /// Runs the spline rule with the key's smooth sides posing as spline.
  void tangentSmooth(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) override;

  bool isWeighted() const override { return false; }

 private:
  /// Slope of the end handle from (x2, y2) to (x3, y3).
  double endSlope() const;

  double fX0 = 0.0;
  double fY0 = 0.0;
  double fX1 = 0.0;
  double fY1 = 0.0;
  double fX2 = 0.0;
  double fY2 = 0.0;
  double fX3 = 0.0;
  double fY3 = 0.0;
  // The cubic in s = t - x0.
  ThermiteSpan fSpan;
};

}  // namespace lumora
