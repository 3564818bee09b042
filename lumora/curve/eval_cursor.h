// TevalCursor: where one caller is in a curve, so that sampling in time order
// stays cheap without the curve itself being written.
//
// A curve answers its own evaluate() through a cursor it keeps. A caller that
// wants to sample a curve without changing it (from a const reference, or
// from several threads at once) keeps a cursor of its own, one per thread:
//
//   TevalCursor cursor;
//   for (float t = 0.0f; t < 10.0f; t += 1.0f / 24.0f)
//     values.push_back(curve.evaluate(t, cursor));     // curve is const here
//
// The answers are exactly those of curve.evaluate(t) after the same samples:
// the cursor holds what the curve's own cache would hold (the last key met,
// the span loaded, the mapping of a looping infinity).
//
// Surprises:
//  * A cursor remembers which curve it served and that curve's edit stamp.
//    Used with another curve, or after its curve was edited (through the
//    curve's own functions) or destroyed, it notices and starts afresh: it
//    never answers from stale state. Keys edited through a Tkeyframe pointer
//    behind the curve's back are not noticed, by cursors or by the curve.
//  * Sampling through cursors is safe from any number of threads while no
//    thread edits the curve; the curve's own evaluate() writes only the
//    curve's cursor, so one thread may use it meanwhile too.
//  * A cursor is a plain value: copying one copies its position.
#pragma once

#include <cstdint>
#include <limits>

#include "lumora/base/export.h"
#include "lumora/curve/span_math.h"

namespace lumora {

class Tkeyframe;
class TparamCurve;
class TparamCurveTestAccess;

class LUMORA_API TevalCursor {
 public:
  TevalCursor() = default;

  /// Forgets everything: the next sample searches the keys afresh.
  void reset() { *this = TevalCursor(); }
  /// True when the cursor holds state of `curve` as it is now.
  bool isCurrentFor(const TparamCurve& curve) const;

 private:
  friend class TparamCurve;
  friend class TparamCurveTestAccess;

  /// Forgets the position in the keys (not which curve it serves).
  void forgetPosition();
  /// Forgets the answers that skip the walk: the loaded span's range and the
  /// looping mappings.
  void forgetShortcuts() {
    fHermiteReady = false;
    fWeightedReady = false;
    fCycleRange = 0.0f;
    fPeriodOffsetMin = std::numeric_limits<float>::infinity();
    forgetCycledSpan();
  }
  void forgetCycledSpan() { fCycledSpanLo = fCycledSpanHi = 0.0; }
  /// The loaded span's value at t seconds.
  double evaluateLoaded(double t) const {
    return fWeightedLoaded ? fWeighted.evaluate(t) : fHermite.evaluate(t);
  }
  /// Lets later samples within `periods` periods after the last key skip the
  /// division of the cycle mapping, where that is provably exact.
  void rememberCyclePeriod(float tEnd, float range, double periods);
  /// Lets later samples in the loaded span's image in that period evaluate
  /// the span directly, where no rounding of the mapping can intervene.
  void rememberCycledSpan();

  // Read by the inline sampling in the curve's header, so kept first.
  //
  // Open time range (seconds) of the curve span loaded, or (0, 0) when none
  // is: a sample strictly inside it needs no other work.
  float fLoadedSpanStart = 0.0f;
  float fLoadedSpanEnd = 0.0f;
  // True when the loaded span is non-weighted and nothing else (static,
  // deferred deletion, quaternion rotation) could change the answer.
  bool fHermiteReady = false;
  // The same for a weighted span.
  bool fWeightedReady = false;
  // Which of the two spans below the loaded span is.
  bool fWeightedLoaded = false;
  ThermiteSpan fHermite;
  // The keyed range as the cycling post infinity maps times into it, kept
  // once a sample went that way, so that the next one skips the general walk.
  // Valid only while fCycleRange is not 0.
  float fCycleStart = 0.0f;
  float fCycleEnd = 0.0f;
  float fCycleRange = 0.0f;
  double fCycleShift = 0.0;  // value added per period (cycle relative), else 0
  // The period of the cycle mapped last: times in (fPeriodStart, fPeriodStart
  // + range) lie fPeriods periods after the last key. A float offset into it
  // outside (fPeriodOffsetMin, fPeriodOffsetMax) takes the division instead;
  // an empty range disables this.
  double fPeriodStart = 0.0;
  double fPeriods = 0.0;
  float fPeriodOffsetMin = std::numeric_limits<float>::infinity();
  float fPeriodOffsetMax = 0.0f;
  // The loaded span's image in that period: times strictly inside (Lo, Hi)
  // are the span's at t - Origin seconds after its start. Empty (0, 0) when
  // unset; cleared whenever another span is loaded.
  double fCycledSpanLo = 0.0;
  double fCycledSpanHi = 0.0;
  double fCycledSpanOrigin = 0.0;

  // The walk: the last key met and the span loaded (-1: none).
  const Tkeyframe* fCachedKey = nullptr;
  std::uint32_t fCachedIndex = 0;
  std::int32_t fCachedInterval = -1;
  // A weighted span of no duration leaves the previous one loaded, as the
  // curve's segment evaluator does, so this one outlives forgetPosition().
  TweightedSpan fWeighted;

  // The curve served and its edit stamp then.
  const TparamCurve* fCurve = nullptr;
  std::uint64_t fStamp = 0;
};

}  // namespace lumora
