// TkeyframeGroup: a summary of the keys that several curves have at one time.
//
// A graph or dope-sheet view that shows many curves at once collapses the
// keys at one time into a group: the time, how many curves have a key there,
// how many of those keys are selected, and a flag word the view may use as it
// likes. Groups are plain values; arrays of them hold pointers.
//
//   TkeyframeGroupPtrSObj group(new TkeyframeGroup(TtimeValue(1.0f), /*numCurves=*/3));
//   group->setNumSelected(1);
//   TkeyframeGroupPtrArray groups;
//   groups.addLast(group.release());   // arrays never own: whoever empties it deletes the group
//
// Groups order by time first, then by curve count, selected count and flags,
// so sorting them gives the time order a view draws in, with a stable answer
// for groups at the same time.
#pragma once

#include <cstdint>

#include "lumora/base/export.h"
#include "lumora/base/ptr_array.h"
#include "lumora/base/time_value.h"

namespace lumora {

/// The keys of several curves at one time.
///
/// Comparison is lexicographic over (time, numCurves, numSelected, flags).
/// Times compare as TtimeValue does: exactly within one kind, through their
/// seconds across kinds. Two groups are equal when neither orders before the
/// other.
class LUMORA_API TkeyframeGroup {
 public:
  // --- Construction ----------------------------------------------------------

  /// The "neither" time, no curves, nothing selected, no flags.
  TkeyframeGroup() = default;
  explicit TkeyframeGroup(const TtimeValue& time, unsigned numCurves = 0, unsigned numSelected = 0,
                          std::uint32_t flags = 0)
      : fTime(time), fNumCurves(numCurves), fNumSelected(numSelected), fFlags(flags) {}

  // --- Access ----------------------------------------------------------------

  const TtimeValue& time() const { return fTime; }
  unsigned numCurves() const { return fNumCurves; }
  unsigned numSelected() const { return fNumSelected; }
  std::uint32_t flags() const { return fFlags; }

  void setTime(const TtimeValue& time) { fTime = time; }
  void setNumCurves(unsigned count) { fNumCurves = count; }
  void setNumSelected(unsigned count) { fNumSelected = count; }
  void setFlags(std::uint32_t flags) { fFlags = flags; }

  // --- Order -----------------------------------------------------------------

  bool operator<(const TkeyframeGroup& other) const;
  bool operator>(const TkeyframeGroup& other) const { return other < *this; }
  bool operator<=(const TkeyframeGroup& other) const { return !(other < *this); }
  bool operator>=(const TkeyframeGroup& other) const { return !(*this < other); }
  bool operator==(const TkeyframeGroup& other) const {
    return !(*this < other) && !(other < *this);
  }
  bool operator!=(const TkeyframeGroup& other) const { return !(*this == other); }

 private:
  TtimeValue fTime;
  unsigned fNumCurves = 0;
  unsigned fNumSelected = 0;
  std::uint32_t fFlags = 0;
};

/// Pointers to groups; never owns them.
class LUMORA_API TkeyframeGroupPtrArray : public TptrArray<TkeyframeGroup> {
 public:
  using TptrArray<TkeyframeGroup>::TptrArray;
};

/// Owns one group until it is released; moves but never copies.
class LUMORA_API TkeyframeGroupPtrSObj {
 public:
  TkeyframeGroupPtrSObj() = default;
  /// Takes ownership of `group` (which may be null).
  explicit TkeyframeGroupPtrSObj(TkeyframeGroup* group) : fGroup(group) {}
  TkeyframeGroupPtrSObj(TkeyframeGroupPtrSObj&& other) noexcept : fGroup(other.release()) {}
  TkeyframeGroupPtrSObj& operator=(TkeyframeGroupPtrSObj&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  TkeyframeGroupPtrSObj(const TkeyframeGroupPtrSObj&) = delete;
  TkeyframeGroupPtrSObj& operator=(const TkeyframeGroupPtrSObj&) = delete;
  /// Deletes the owned group.
  ~TkeyframeGroupPtrSObj() { delete fGroup; }

  TkeyframeGroup* get() const { return fGroup; }
  TkeyframeGroup* operator->() const { return fGroup; }
  /// Only for a holder that owns a group.
  TkeyframeGroup& operator*() const { return *fGroup; }
  explicit operator bool() const { return fGroup != nullptr; }

  /// Gives up ownership: returns the group and holds none.
  TkeyframeGroup* release() {
    TkeyframeGroup* group = fGroup;
    fGroup = nullptr;
    return group;
  }
  /// Deletes the owned group and takes `group` instead.
  void reset(TkeyframeGroup* group = nullptr) {
    if (group == fGroup) return;
    delete fGroup;
    fGroup = group;
  }

 private:
  TkeyframeGroup* fGroup = nullptr;
};

}  // namespace lumora
