// TkeyArray: the time-sorted array of key pointers inside a curve.
//
// A float array orders keys by their float seconds with the keys' tolerant
// operators (two keys within 1e-5 s are the same time); a tick array orders
// them by integer ticks exactly. Neither allows two keys at one time, and a
// key whose float time is not finite (NaN or infinite) is refused. The array
// does not delete keys: the curve that owns it does. It marks the keys it
// holds (Tkeyframe::isInCurve), so a key is never in two arrays at once:
// insertions refuse a marked key, and keys leave through removeKey or
// releaseAll.
#pragma once

#include "lumora/base/sorted_array.h"
#include "lumora/keys/keyframe.h"

namespace lumora {

class TkeyArray final : public TsortedArray {
 public:
  /// Growth step 8, no duplicates.
  explicit TkeyArray(bool ticks);

  bool ticks() const { return fTicks; }
  Tkeyframe** keys() { return static_cast<Tkeyframe**>(data()); }
  Tkeyframe* const* keys() const { return static_cast<Tkeyframe* const*>(data()); }
  /// Key i, or null when out of range.
  Tkeyframe* at(unsigned i) const { return i < count() ? keys()[i] : nullptr; }

  /// Orders two keys of this array's kind: <0, 0 (same time), >0.
  int compareKeys(const Tkeyframe& a, const Tkeyframe& b) const;
  int compare(const void* a, const void* b) const override;

  /// Inserts `key` in order; 0 and its index on success, nonzero when the time
  /// is taken or not finite.
  int insertKey(Tkeyframe* key, unsigned& index);
  /// Appends `key` when it is later than the last key; nonzero otherwise.
  int appendKey(Tkeyframe* key);
  /// Takes key i out of the array (the caller owns it now); null when out of
  /// range.
  Tkeyframe* removeKey(unsigned i);
  /// Puts `key` back at `index` unchecked, where removeKey took it from.
  void putBack(Tkeyframe* key, unsigned index);
  /// Forgets every key without deleting any (the caller owns them now).
  void releaseAll();
  /// True when key i is strictly between its neighbours.
  bool keyOrderValid(unsigned i) const;

 private:
  bool fTicks;
};

}  // namespace lumora
