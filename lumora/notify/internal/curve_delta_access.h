// The private curve operations that undo records use.
//
// Undoing an edit has to do what the edit did, step by step, and some of
// those steps (taking a key object out of the array without deleting it,
// putting the same object back, sending the add/delete message) are not
// public operations. TparamCurve befriends this one class instead of every
// delta kind, so the set of private operations the deltas rely on is listed
// here and nowhere else:
//
//   using Access = internal::TcurveDeltaAccess;
//   if (!Access::beginChange(curve)) return;
//   Access::invalidateCache(curve, -1);
//   Access::endChange(curve, /*changed=*/true);
//
// Each function forwards to the member of the same name; the comments say
// what the deltas use it for. Not installed.
#pragma once

#include "lumora/curve/param_curve.h"

namespace lumora::internal {

class TcurveDeltaAccess {
 public:
  // --- Storage ---------------------------------------------------------------------------

  /// The key array; null when the curve has no key storage.
  static TkeyArray* keyArray(const TparamCurve& curve) { return curve.keyArray(); }
  /// Number of key objects in the array, keys marked for deferred deletion
  /// included (snapshots and identity searches walk all of them).
  static unsigned physicalCount(const TparamCurve& curve) { return curve.physicalCount(); }
  /// Puts a key object into the array at its time without any message; the
  /// index, or -1 when refused.
  static int arrayInsert(TparamCurve& curve, Tkeyframe* key, unsigned hint) {
    return curve.arrayInsert(key, hint);
  }
  /// Drops the evaluation cache from key `index` on (-1: all of it).
  static void invalidateCache(TparamCurve& curve, int index) { curve.invalidateCache(index); }

  // --- Keys --------------------------------------------------------------------------------

  /// Puts a removed key object back into the curve, as it was removed.
  static bool addRemovedKey(TparamCurve& curve, Tkeyframe* key) { return curve.addRemovedKey(key); }
  /// Overwrites the state of `key` with `newState` without re-sorting; false
  /// when `key` is not this curve's key at its time or the change is refused.
  static bool replaceKey(TparamCurve& curve, Tkeyframe* key, const Tkeyframe& newState) {
    return curve.replaceKey(key, newState);
  }

  // --- Tangents ----------------------------------------------------------------------------

  /// Writes one side's tangent vector through the curve's evaluator, so that
  /// its caches follow (in side for Tkeyframe::kInSide, else out side).
  static void setTangent(TparamCurve& curve, Tkeyframe* key, TpickKey::TpickBits side, float x,
                         float y) {
    curve.setTangent(key, side, x, y);
  }
  /// Recomputes the automatic tangents around key `index`.
  static bool modifyTangents(TparamCurve& curve, unsigned index) {
    return curve.modifyTangents(index);
  }
  /// Derives the span method of the span that key `index` starts.
  static void setSpanInterpMethod(TparamCurve& curve, unsigned index) {
    curve.setSpanInterpMethod(index);
  }
  /// Clears the curve's static flag when key `index` differs in value from a
  /// neighbour (used after keys came back).
  static void checkStaticValueCondition(TparamCurve& curve, unsigned index) {
    curve.checkStaticValueCondition(index);
  }

  // --- Moves ------------------------------------------------------------------------------

  /// Moves the keys of `handles` by `offset` and `valueOffset` through a
  /// move list of its own, leaving the curve's open move edit alone.
  static bool moveBlockForDeltaUndoRedo(TparamCurve& curve, const TkeyframeHandlePtrArray& handles,
                                        const TtimeValue& offset, double valueOffset,
                                        TparamCurve::TmoveOption option, bool moveBreakdowns) {
    return curve.moveBlockForDeltaUndoRedo(handles, offset, valueOffset, option, moveBreakdowns);
  }

  // --- Change scopes and messages ------------------------------------------------------------

  /// Opens a change scope; false when the helpers refuse the change.
  static bool beginChange(TparamCurve& curve) { return curve.beginChange(); }
  static void endChange(TparamCurve& curve, bool changed) { curve.endChange(changed); }
  /// Tells the curve's clients that `key` changed.
  static void notifyClientsOfChange(TparamCurve& curve, Tkeyframe* key,
                                    TparamCurveModifiedMsg::TmessageType type) {
    curve.notifyClientsOfChange(key, type);
  }
  static void notifyClientsOfChange(TparamCurve& curve, unsigned index,
                                    TparamCurveModifiedMsg::TmessageType type) {
    curve.notifyClientsOfChange(index, type);
  }
  /// Tells listeners that a key object left the curve or came back.
  static void sendAddDeleteMessage(TparamCurve& curve, Tkeyframe* key, bool added) {
    curve.sendAddDeleteMessage(key, added);
  }
};

}  // namespace lumora::internal
