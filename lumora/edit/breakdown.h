// Breakdown keys: keys that keep their relative place between the ordinary
// keys around them.
//
// A breakdown key (Tkeyframe::breakdown) sits between the nearest ordinary
// keys before and after it. When those move, it follows: at the same
// proportion of the interval when it has both, at the same offset in seconds
// when it has one. Moves do this on their own (TparamCurve::moveKeys with
// moveBreakdowns); an edit that moves ordinary keys in another way records
// the breakdown keys first and places them afterwards:
//
//   curve.setBreakdown(1, true);                    // keys at 0, 2.5 and 10 s
//   TkeyframeHandle last(&curve, 2u);
//   curve.addBreakdownData(&last);                  // records the key at 2.5 s
//   curve.setTime(2, TtimeValue(20.0f));
//   curve.applyBreakdownCache();                    // the breakdown is at 5 s
//   curve.flushBreakdownCache();
//
// Things that surprise people:
//  * The proportion is computed from times in seconds with the distance to
//    the previous key rounded to single precision first, and the desired
//    time is rounded to single precision and then to the curve's kind: a
//    breakdown key on a tick curve lands on the nearest tick.
//  * A breakdown key with only one ordinary neighbour keeps its offset from
//    it; one with none stays where it is. Breakdown keys next to each other
//    all take the same ordinary neighbours.
//  * applyBreakdownCache may pass keys (it moves with TmoveOption kMovePass),
//    so a breakdown key never blocks the key it follows.
//  * Records name keys by handle: they survive re-sorting, and a record whose
//    key was removed is skipped.
#pragma once

#include "lumora/base/export.h"
#include "lumora/base/ptr_array.h"
#include "lumora/base/time_value.h"

namespace lumora {

class Tkeyframe;
class TkeyframeHandle;
class TparamCurve;

/// The place of one breakdown key between its ordinary neighbours.
class LUMORA_API TbreakdownData {
 public:
  /// The record of key `keyIndex` of `curve` between the ordinary keys
  /// `prevIndex` and `nextIndex` (0xFFFFFFFF for none). The ratio is the
  /// proportion (t - tPrev) / (tNext - tPrev) with both neighbours, the
  /// offset t - tPrev or t - tNext with one, and 1 with none.
  TbreakdownData(const TparamCurve* curve, unsigned prevIndex, unsigned keyIndex,
                 unsigned nextIndex);
  ~TbreakdownData();
  TbreakdownData(const TbreakdownData&) = delete;
  TbreakdownData& operator=(const TbreakdownData&) = delete;

  /// Where the breakdown key belongs now, from its neighbours' current
  /// times; the "neither" time without a curve or a key.
  TtimeValue getDesiredTime(const TparamCurve* curve) const;
  /// The same from the given neighbour times in seconds (for a move that
  /// places keys before they are moved).
  float desiredSeconds(float prevSeconds, float nextSeconds, float ownSeconds) const;

  TkeyframeHandle* keyHandle() const { return fKey; }
  TkeyframeHandle* previousHandle() const { return fPrevious; }
  TkeyframeHandle* nextHandle() const { return fNext; }
  float ratio() const { return fRatio; }
  /// A copy of the key as it was when the record was made.
  const Tkeyframe* savedKey() const { return fSavedKey; }

 private:
  TkeyframeHandle* fKey = nullptr;       // owned
  TkeyframeHandle* fPrevious = nullptr;  // owned, or null
  TkeyframeHandle* fNext = nullptr;      // owned, or null
  float fRatio = 1.0f;
  Tkeyframe* fSavedKey = nullptr;  // owned
};

/// Pointers to breakdown records; never owns them.
class LUMORA_API TbreakdownDataPtrArray : public TptrArray<TbreakdownData> {
 public:
  using TptrArray<TbreakdownData>::TptrArray;
};

/// Pointers to arrays of breakdown records; never owns them.
class LUMORA_API TbreakdownDataPtrArrayPtrList : public TptrArray<TbreakdownDataPtrArray> {
 public:
  using TptrArray<TbreakdownDataPtrArray>::TptrArray;
};

}  // namespace lumora
