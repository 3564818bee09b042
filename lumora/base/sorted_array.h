// An array kept in order by a comparison that subclasses supply.
//
//   class TtimeArray : public TsortedArray {
//    public:
//     TtimeArray() : TsortedArray(sizeof(float), 0, /*allowDuplicates=*/false) {}
//     int compare(const void* a, const void* b) const override;   // <0, 0, >0
//   };
//
//   TtimeArray times;
//   unsigned where;
//   float t = 1.5f;
//   if (times.insertSorted(&t, where) != 0) { /* an equal time is already there */ }
//   if (times.search(&t, where)) { /* times[where] is the first equal time */ }
//
// The comparison may treat nearby values as equal (a time tolerance, say);
// "equal" below always means "compare() answers 0". Binary search is only
// meaningful while the array is in order; the plain Tarray editing
// operations remain available and do not keep it so, and orderValidAt()
// and validateAndUpdate() report where the order is broken.
#pragma once

#include "lumora/base/array.h"
#include "lumora/base/export.h"

namespace lumora {

/// A Tarray whose elements stay sorted by compare().
///
/// Without duplicates, an element equal to one already present is refused.
/// With duplicates, a new element goes after the run of elements equal to it,
/// so equal elements keep their insertion order.
class LUMORA_API TsortedArray : public Tarray {
 public:
  // --- Construction --------------------------------------------------------

  TsortedArray(unsigned elementSize, unsigned capacity, bool allowDuplicates);

  bool allowsDuplicates() const { return fAllowDuplicates; }

  // --- Order ---------------------------------------------------------------

  /// Negative when `a` sorts before `b`, 0 when they are equal, positive
  /// otherwise. The default compares the elements as unsigned bytes.
  virtual int compare(const void* a, const void* b) const;

  /// Inserts a copy of `*element` at its place in the order. Returns 0 and
  /// sets `index` to where it went. Without duplicates an equal element is
  /// refused: the result is nonzero and `index` names the element already
  /// present. Nonzero with `index` untouched for a null element or when the
  /// array cannot grow.
  int insertSorted(const void* element, unsigned& index);
  /// True when an element equal to `*probe` is present, with `index` the
  /// first such element. Otherwise false, with `index` the position at which
  /// `*probe` would be inserted. A null probe answers false and index 0.
  bool search(const void* probe, unsigned& index) const;
  /// Whether element `index` sits in order between its neighbours: strictly
  /// without duplicates, allowing equality with them. False for an index out
  /// of range.
  bool orderValidAt(unsigned index) const;

 protected:
  /// Adds an order check to Tarray's bookkeeping checks (code 4 when two
  /// neighbours are out of order).
  int internalConsistencyCheck() const override;

 private:
  /// First position whose element does not sort before `probe`; with
  /// `upper`, the first whose element sorts after it.
  unsigned boundFor(const void* probe, bool upper) const;

  bool fAllowDuplicates;
};

}  // namespace lumora
