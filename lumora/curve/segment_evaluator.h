// TsegmentEvaluator: the per-curve maths of one cubic segment and of the
// automatic tangent rules.
//
// Every curve owns one evaluator of the variant that matches its weighting:
// ThermiteSegmentEvaluator for non-weighted tangents, TbezierSegmentEvaluator
// for weighted ones. The curve loads the span it is about to sample and then
// evaluates it as often as it likes:
//
//   ThermiteSegmentEvaluator ev(/*isFloat=*/true);
//   double x1 = 1.0 / 3, y1 = 0.0, x2 = 2.0 / 3, y2 = 1.0;
//   ev.setSegment(0.0, 0.0, x1, y1, x2, y2, 1.0, 1.0, /*keepFirst=*/true);
//   double v = ev.evaluate(0.5);
//
//   ev.computeTangents(prev, key, next);   // re-runs the key's tangent rules
//
// The same object also writes tangents into keys (setTanIn / setTanOut), since
// what a stored tangent means differs between the variants: a weighted tangent
// is a vector in (seconds, value units), a non-weighted one a unit direction.
#pragma once

#include "lumora/base/bit_field.h"
#include "lumora/base/export.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/tangent_type.h"

namespace lumora {

/// tan(89.99999 degrees) = 5729577.948511148: the slope used wherever a
/// tangent would be vertical. Computed once, the first time it is asked for.
LUMORA_API double verticalSlope();

/// The spacing of doubles at 1.0 (2^-52 with IEEE doubles), found once by
/// halving until 1 + half no longer exceeds 1.
LUMORA_API double machineEpsilon();

/// The segment maths of one curve.
///
/// Surprises:
///  * One segment at a time is loaded; evaluate(), segmentExtremes() and
///    splitSegment() all refer to the segment most recently given to
///    setSegment(). The evaluator does not know which keys it came from.
///  * Times are seconds throughout. Keys of a tick curve are converted with
///    ticks * 0.00016666666 (the float nearest 1/6000, widened to double);
///    the float-time flag given to the constructor decides which reading of
///    the key time word applies.
///  * The tangent rules write a side of a key only when that side's type is
///    the rule's own type, and only through setTanIn / setTanOut. Some rules
///    swap a key's tangent types for the duration of a call; they always
///    restore them before returning.
///  * A null key makes every key operation do nothing (setTanIn / setTanOut
///    return false).
class LUMORA_API TsegmentEvaluator {
 public:
  // --- Construction -----------------------------------------------------------

  /// `isFloat` is the owning curve's float-time flag: true when its keys hold
  /// float seconds, false when they hold ticks.
  explicit TsegmentEvaluator(bool isFloat);
  virtual ~TsegmentEvaluator();

  // --- Segment ------------------------------------------------------------------
  // The virtual operations below keep their declaration order: the curve and
  // its host depend on the slot order.

  /// Loads the segment with control points P0 = (x0, y0), P1 = (x1, y1),
  /// P2 = (x2, y2), P3 = (x3, y3), times in seconds. The weighted variant may
  /// move P1 and P2 (and writes the moved values back); `keepFirst` says which
  /// handle to keep when it has to shorten one.
  virtual void setSegment(double x0, double y0, double& x1, double& y1, double& x2, double& y2,
                          double x3, double y3, bool keepFirst) = 0;

  /// Value of the loaded segment at time `t` (seconds).
  virtual double evaluate(double t) const = 0;

  // --- Writing tangents -----------------------------------------------------------

  /// Stores (x, y) as the key's in tangent in this variant's storage form.
  /// Returns true when the stored tangent changed; false when it already
  /// held exactly that tangent, for a null key, and for a non-finite x or y
  /// (nothing is written then).
  virtual bool setTanIn(Tkeyframe* key, float x, float y) = 0;
  /// As setTanIn, for the out tangent.
  virtual bool setTanOut(Tkeyframe* key, float x, float y) = 0;

  // --- Queries on the loaded segment ------------------------------------------------

  /// The smallest and largest value of the loaded segment over its time span
  /// and the times (seconds) at which they occur. The ends count; when the
  /// extreme value is reached more than once the earliest time is given.
  virtual void segmentExtremes(double& minValue, double& maxValue, double& minTime,
                               double& maxTime) const = 0;

  /// Widens [minValue, maxValue] to include the four control values y0..y3.
  /// The box of the control polygon contains the segment.
  virtual void segmentValueBounds(double y0, double y1, double y2, double y3, double& minValue,
                                  double& maxValue) const;

  /// Splits the loaded segment at time `t` (seconds) so that the two halves,
  /// loaded from the keys with the returned tangents, evaluate like the whole
  /// did (up to single-precision rounding of the tangents). Returns the value
  /// at `t`; writes the new key's in and out tangents, the start key's new out
  /// tangent and the end key's new in tangent, in this variant's storage form.
  virtual double splitSegment(double t, float& keyInX, float& keyInY, float& keyOutX,
                              float& keyOutY, float& prevOutX, float& prevOutY, float& nextInX,
                              float& nextInY) = 0;

  // --- Tangent rules -----------------------------------------------------------------
  // Each takes the previous key (or null), the key, and the next key (or
  // null). A null key does nothing.

  /// kTangentFixed: the stored tangent is kept.
  virtual void tangentFixed(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);
  /// kTangentLinear: each side points at its neighbour; (1, 0) without one.
  virtual void tangentLinear(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);
  /// kTangentFlat: horizontal, as long as the adjacent span (the other span
  /// when one neighbour is missing; (0, 0) for a single key).
  virtual void tangentFlat(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);
  /// kTangentSpline: slope of the chord between the two neighbours.
  virtual void tangentSpline(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) = 0;
  /// kTangentStep: (0, 0) on both sides.
  virtual void tangentStep(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);
  /// kTangentSlow: slope +0.5772, whatever the direction of the curve.
  virtual void tangentSlow(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);
  /// kTangentFast: slope +1.732, whatever the direction of the curve.
  virtual void tangentFast(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);
  /// kTangentClamped: flat next to a neighbour within 0.05 in value (equality
  /// counts as near), otherwise spline. A side without a neighbour copies the
  /// key's other tangent.
  virtual void tangentClamped(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);
  /// kTangentClampedSmooth: per side, flat next to a neighbour within 0.05 in
  /// value, otherwise smooth. A side without a neighbour copies the key's
  /// other tangent.
  virtual void tangentClampedSmooth(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);
  /// kTangentSmooth: weighted curves average the adjacent slopes by segment
  /// length; non-weighted curves use the spline rule.
  virtual void tangentSmooth(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next) = 0;

  /// True for the weighted (Bezier) variant.
  virtual bool isWeighted() const = 0;

  // --- Non-virtual helpers -------------------------------------------------------------

  /// Runs the rule of the key's in type, then the rule of its out type when
  /// that differs. A type outside 1..10 runs nothing; a null key does nothing.
  void computeTangents(Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);

  /// The curve's float-time flag.
  bool isFloat() const { return fFlags.testBit(kFloatTimeBit); }

  /// A key's time in seconds under this evaluator's float-time flag.
  double keySeconds(const Tkeyframe& key) const;

 protected:
  /// Bit of fFlags holding the float-time flag.
  static constexpr unsigned kFloatTimeBit = 0;

  /// Time and value differences from a key to its neighbours, in seconds.
  /// Key times are narrowed to single precision before they are subtracted.
  /// The differences of a missing neighbour are 0.
  struct Tspans {
    bool hasPrev = false;
    bool hasNext = false;
    double dtIn = 0.0;     ///< key time - previous time
    double dvIn = 0.0;     ///< key value - previous value
    double dtOut = 0.0;    ///< next time - key time
    double dvOut = 0.0;    ///< next value - key value
    double dtChord = 0.0;  ///< next time - previous time (both neighbours present)
    double dvChord = 0.0;  ///< next value - previous value (both neighbours present)
  };

  /// The spans around `key`.
  Tspans spans(const Tkeyframe* prev, const Tkeyframe& key, const Tkeyframe* next) const;

  /// Writes (inX, inY) to the in side when its type is `type` and (outX, outY)
  /// to the out side when its type is `type`, narrowed to single precision,
  /// through setTanIn / setTanOut.
  void writeRuleResult(Tkeyframe* key, TtangentType type, double inX, double inY, double outX,
                       double outY);

  /// Runs the rule for `type` (nothing for a type outside 1..10).
  void runRule(TtangentType type, Tkeyframe* prev, Tkeyframe* key, Tkeyframe* next);

  TbitField16 fFlags;
};

}  // namespace lumora
