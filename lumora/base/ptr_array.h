// Arrays of object pointers, typed by the object class.
//
// Named arrays are declared by the owners of their element classes:
//
//   class LUMORA_API TparamCurvePtrArray : public TptrArray<TparamCurve> {
//    public:
//     using TptrArray::TptrArray;
//   };
//
//   TparamCurvePtrArray curves;
//   curves.addLast(&x);
//   curves.insert(list, /*count=*/2, /*index=*/0);   // count before index
//   if (curves.find(&y) == 0) curves.remove(&y);
//
// An array of such arrays is simply a TptrArray of the array class.
#pragma once

#include "lumora/base/array.h"

namespace lumora {

/// A Tarray whose elements are `T*`.
///
/// The array never owns what it points to: removing an element or destroying
/// the array leaves the object alone, and copies share the same objects.
/// Null pointers are ordinary elements.
///
/// Every operation forwards to a Tarray operation, and every `int` result is
/// that operation's: 0 on success, nonzero on failure (for find(), nonzero
/// when the element is absent). A failed operation changes nothing. Note the
/// argument order of the multi-element insert(): the count comes before the
/// index, the reverse of Tarray::insertElement().
template <typename T>
class TptrArray : public Tarray {
 public:
  // --- Construction --------------------------------------------------------

  /// An empty array with room for `capacity` pointers.
  explicit TptrArray(unsigned capacity = 0) : Tarray(sizeof(T*), capacity) {}

  /// Exchanges the contents of two arrays.
  void swap(TptrArray& other) noexcept { Tarray::swap(other); }

  // --- Access --------------------------------------------------------------

  /// The pointer block; null when the capacity is 0.
  T** data() { return reinterpret_cast<T**>(fData); }
  T* const* data() const { return reinterpret_cast<T* const*>(fData); }
  /// Slot `index`. An index at or past count() yields a scratch slot that
  /// reads as null and whose writes are discarded.
  T*& operator[](unsigned index) {
    if (index < fCount) return data()[index];
    static T* scratch;
    scratch = nullptr;
    return scratch;
  }
  T* operator[](unsigned index) const { return index < fCount ? data()[index] : nullptr; }
  /// The last pointer; null when the array is empty.
  T* last() const { return fCount != 0 ? data()[fCount - 1] : nullptr; }

  // --- Adding --------------------------------------------------------------

  /// Makes slots index .. index+count-1 each `element`, growing the array as
  /// needed (slots skipped over become null).
  int createAndSet(T* element, unsigned index, unsigned count) {
    return createAndInitialise(&element, index, count);
  }
  /// Inserts `element` before `index` (index <= count()).
  int insert(T* element, unsigned index) { return insertElement(&element, index, 1); }
  /// Inserts the `count` pointers at `elements` before `index`.
  int insert(T* const* elements, unsigned count, unsigned index) {
    return insertElements(elements, index, count);
  }
  /// Adds `element` at the end.
  int addLast(T* element) { return appendElement(&element); }
  /// Adds the `count` pointers at `elements` at the end.
  int addLast(T* const* elements, unsigned count) {
    return insertElements(elements, fCount, count);
  }

  // --- Finding and removing ------------------------------------------------

  /// 0 when `element` is in the array, nonzero when absent.
  int find(T* element) const {
    unsigned index = 0;
    return find(element, index);
  }
  /// 0 and the index of the first occurrence when present; nonzero, with
  /// `index` untouched, when absent.
  int find(T* element, unsigned& index) const { return findElement(&element, index); }
  /// Removes the first occurrence of `element`; nonzero when absent.
  int remove(T* element) { return removeElement(&element); }

  // --- Copying -------------------------------------------------------------
  // `other` may be this array in all of these.

  /// Makes this array hold exactly the pointers of `other`.
  int copy(const TptrArray& other) { return assignFrom(other, 0, other.count()); }
  /// Makes this array hold the pointers of `other` from `index` on.
  int copy(const TptrArray& other, unsigned index) {
    if (index > other.count()) return -1;
    return assignFrom(other, index, other.count() - index);
  }
  /// Makes this array hold `count` pointers of `other` from `index`.
  int copy(const TptrArray& other, unsigned index, unsigned count) {
    return assignFrom(other, index, count);
  }
  /// Writes the count() pointers to `buffer`, which must have room for them.
  int copyTo(T** buffer) const {
    if (buffer == nullptr) return -1;
    for (unsigned i = 0; i < fCount; ++i) buffer[i] = data()[i];
    return 0;
  }
  /// Appends the pointers of `other`.
  int catenate(const TptrArray& other) { return appendFrom(other, 0, other.count()); }
  /// Appends the pointers of `other` from `index` on.
  int catenate(const TptrArray& other, unsigned index) {
    if (index > other.count()) return -1;
    return appendFrom(other, index, other.count() - index);
  }
  /// Appends `count` pointers of `other` from `index`.
  int catenate(const TptrArray& other, unsigned index, unsigned count) {
    return appendFrom(other, index, count);
  }

  // --- Removing by position ------------------------------------------------

  /// Removes `count` pointers from `index`; the range must lie in the array.
  int removeAt(unsigned index, unsigned count = 1) { return Tarray::removeAt(index, count); }
};

}  // namespace lumora
