// TpickKey: one key of one curve, and which of its parts a selection names.
//
// A pick names the key itself, its in tangent or its out tangent, as bits of a
// TbitField32, and holds its own handle to the key, so it follows the key
// through moves, re-sorting and undo:
//
//   TpickKey pick;
//   if (pick.create(&curve, /*index=*/2u, TbitField32(TpickKey::kPickInTangent)) == 0) {
//     TtimeValue at = pick.time();   // the key's time now, wherever it moved
//   }
//   TbitField32 picked = TpickKey::merge(current, TbitField32(TpickKey::kPickInTangent));
//
// Things that surprise people:
//  * Picking the key implies both tangents and is stored without them:
//    creating a pick with all three bits keeps only the key bit.
//  * Merging is not a plain union: picking the key replaces any tangent
//    pick, and merging a tangent pick into a key pick keeps only the
//    tangents (the key bit of the pick merged into is dropped).
//  * create() refuses (-1) when the pick already holds a handle; assign an
//    empty TpickKey() first to reuse one. It also refuses when there is no
//    such key: a pick never names a key that does not exist.
//  * The `ensureUnique` arguments register the pick's handle with the curve
//    (see TkeyframeHandle), so that the pick hears of its key's removal and
//    return by undo on its own. Copies made with it false share the
//    registration of the handle they copy.
//  * A void pick (kPickNoHandle set, see markVoid()) names nothing: it has no
//    handle and no time, and every set operation and setActive skip it.
//  * The ordering operators compare the keys' current times and are all
//    false when either pick names no handle.
//  * The index form of create() takes an unsigned index: write `2u`, since a
//    plain `2` could be a time in seconds as well.
#pragma once

#include "lumora/base/bit_field.h"
#include "lumora/base/export.h"
#include "lumora/base/time_value.h"

namespace lumora {

class TkeyframeHandle;
class TparamCurve;

class LUMORA_API TpickKey {
 public:
  /// Bits of the pick flags. Their values are fixed: they map one to one onto
  /// a key's active flags (Tkeyframe::setActive).
  enum TpickBits : unsigned {
    kPickKey = 1,         ///< the key itself
    kPickInTangent = 2,   ///< its in tangent
    kPickOutTangent = 4,  ///< its out tangent
    kPickNoHandle = 8,    ///< void: the pick names nothing (a state bit, not a pick)
  };

  /// How two picks meet in time.
  enum Tconflict : int {
    kNoConflict = 0,  ///< different times, or one of them names no key
    kSameTime = 4,    ///< both name keys, at equal times
  };

  /// The three bits that name parts of a key.
  static constexpr unsigned kPickMask = kPickKey | kPickInTangent | kPickOutTangent;

  // --- Construction ------------------------------------------------------------

  /// An empty pick: flags 0, no handle.
  TpickKey() = default;
  /// A copy with a handle of its own to the same key (sharing the handle's
  /// record; registered with the curve when `ensureUnique`). Empty when
  /// `other` is void, has no handle or its key was deleted.
  TpickKey(const TpickKey& other, bool ensureUnique = false);
  /// Takes `other`'s handle and flags; `other` is left empty.
  TpickKey(TpickKey&& other) noexcept;
  /// Becomes a copy of `other` as the copy constructor makes it (a handle of
  /// its own, not registered); the old handle is released.
  TpickKey& operator=(const TpickKey& other);
  /// Takes `other`'s handle and flags; `other` is left empty.
  TpickKey& operator=(TpickKey&& other) noexcept;
  /// Deletes the handle.
  ~TpickKey();

  /// Picks the key of `curve` at `seconds` (in the curve's own kind of
  /// time, within its tolerance) with `flags`. The handle is registered with
  /// the curve when `ensureUnique`. Unless `skipSelectCheck`, the curve's
  /// helpers must allow selection (TparamCurve::canSelect).
  ///
  /// Returns 0 on success: the flags are `flags` without kPickNoHandle, with
  /// ensureFlagIntegrity() applied. Returns -1, leaving the pick untouched,
  /// when it already holds a handle, the curve is null, the time is NaN, no
  /// key is there, or selection is refused.
  int create(TparamCurve* curve, float seconds, const TbitField32& flags, bool ensureUnique = false,
             bool skipSelectCheck = false);
  /// As above for key `index` of `curve`; -1 when the index is out of range.
  int create(TparamCurve* curve, unsigned index, const TbitField32& flags,
             bool ensureUnique = false, bool skipSelectCheck = false);
  /// As above for the key `handle` names (its curve is the curve asked);
  /// the new handle copies it. -1 when `handle` names no key or curve.
  int create(const TkeyframeHandle& handle, const TbitField32& flags, bool ensureUnique = false,
             bool skipSelectCheck = false);

  /// Releases the handle and leaves the pick void (flags exactly
  /// kPickNoHandle). Editing code uses it to retire a pick in place while it
  /// walks a dictionary, where removing the node would lose its position.
  /// create() may fill a void pick again.
  void markVoid();

  // --- Flags -------------------------------------------------------------------

  const TbitField32& flags() const { return fFlags; }
  bool isVoid() const { return (fFlags.bits() & kPickNoHandle) != 0; }
  /// Keeps the flags well formed: with the key bit set, the tangent bits are
  /// cleared (the key implies them).
  void ensureFlagIntegrity() {
    if ((fFlags.bits() & kPickKey) != 0) {
      fFlags.setBits(fFlags.bits() & ~static_cast<unsigned>(kPickInTangent | kPickOutTangent));
    }
  }

  /// Merges pick bits `b` into `a`: when `b` picks the key the result is
  /// exactly the key bit; otherwise the union of the two tangent bits. The key
  /// bit of `a` is deliberately dropped, so adding a tangent pick to a key
  /// pick leaves only the tangent: a user who clicks one tangent of a picked
  /// key means to work on that tangent alone.
  static TbitField32 merge(const TbitField32& a, const TbitField32& b) {
    if (b.bits() & kPickKey) return TbitField32(kPickKey);
    return TbitField32((a.bits() | b.bits()) & (kPickInTangent | kPickOutTangent));
  }
  /// flags = merge(flags, other.flags), when this pick has a handle.
  void setFlagsMerge(const TpickKey& other);
  /// Clears each part bit that `other` picks, when this pick has a handle.
  /// Bits are compared as they are: taking a tangent off a key pick changes
  /// nothing, since the key pick holds no tangent bit.
  void setFlagsDifference(const TpickKey& other);
  /// Keeps only the part bits that `other` picks too, when this pick has a
  /// handle.
  void setFlagsIntersection(const TpickKey& other);

  // --- Queries -----------------------------------------------------------------

  /// True when the pick holds a handle (a void pick holds none). Neither
  /// looks at the key: see namesKey().
  bool isCreated() const { return fHandle != nullptr; }
  bool isValid() const { return fHandle != nullptr; }
  /// True when the pick holds a handle whose key object still exists (also
  /// while an undo record keeps a removed key).
  bool namesKey() const;
  /// The pick's handle; null when the pick is void or empty.
  TkeyframeHandle* handle() const { return isVoid() ? nullptr : fHandle; }
  /// The key's current time; the zero ("neither") time when the pick names
  /// no key.
  TtimeValue time() const;
  /// The same as time(): the time a move of the key starts from, read
  /// before the move begins.
  TtimeValue startTime() const { return time(); }
  /// True when the pick has a handle and picks the key or a tangent.
  bool somethingPicked() const { return handle() != nullptr && (fFlags.bits() & kPickMask) != 0; }
  /// True when both picks have handles and equal flag words.
  bool samePickFlagsAs(const TpickKey& other) const {
    return handle() != nullptr && other.handle() != nullptr && fFlags == other.fFlags;
  }
  /// kSameTime when both picks name keys and the keys' current times are
  /// equal (TtimeValue equality); otherwise kNoConflict.
  Tconflict conflictsInTimeWith(const TpickKey& other) const;

  // --- Comparison --------------------------------------------------------------

  /// Both have handles, equal flags, and equal handles (TkeyframeHandle's
  /// equality: one key of one curve, equally valid).
  bool operator==(const TpickKey& other) const;
  bool operator!=(const TpickKey& other) const { return !(*this == other); }
  /// By the keys' current times; false when either pick has no handle.
  bool operator<(const TpickKey& other) const;
  bool operator>(const TpickKey& other) const { return other < *this; }
  bool operator<=(const TpickKey& other) const;
  bool operator>=(const TpickKey& other) const { return other <= *this; }

 private:
  /// Takes `handle` (may be null) when it names a key, with `flags`; else
  /// deletes it and returns -1.
  int adopt(TkeyframeHandle* handle, const TbitField32& flags);
  void release();

  TbitField32 fFlags;
  TkeyframeHandle* fHandle = nullptr;  // owned
};

}  // namespace lumora
