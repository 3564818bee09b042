// Arrays of plain values: a typed face on Tarray.
//
//   TdoubleArray values;
//   for (double v : samples) values.addLast(v);   // 0: success
//   double sum = 0;
//   for (unsigned i = 0; i < values.count(); ++i) sum += values[i];
//
// TtypedArray<T> stores its values in the Tarray block, so everything Tarray
// offers (insertElement, removeAt, changeLogicalSizeTo, ...) works on it too.
// The element type must be trivially copyable: values are moved with memcpy
// and are never constructed or destroyed.
#pragma once

#include <cstdint>
#include <type_traits>

#include "lumora/base/array.h"
#include "lumora/base/export.h"

namespace lumora {

/// A growable array of `T` values.
///
/// operator[] does not check its index, because it sits in the inner loops
/// of evaluation: the index must be below count(). Use valueAt() where an
/// index may be out of range. The `int` operations return 0 on success and
/// nonzero on failure, leaving the array unchanged, as Tarray does.
template <typename T>
class TtypedArray : public Tarray {
  static_assert(std::is_trivially_copyable_v<T>, "elements are copied bytewise");

 public:
  // --- Construction --------------------------------------------------------

  /// An empty array with room for `capacity` values.
  explicit TtypedArray(unsigned capacity = 0) : Tarray(sizeof(T), capacity) {}

  // --- Access --------------------------------------------------------------

  /// Value `index`; the index must be below count() (unchecked).
  T& operator[](unsigned index) { return data()[index]; }
  const T& operator[](unsigned index) const { return data()[index]; }
  /// Value `index`, or a value-initialised T when the index is out of range.
  T valueAt(unsigned index) const { return index < fCount ? data()[index] : T{}; }
  /// The value block; null when the capacity is 0.
  T* data() { return reinterpret_cast<T*>(fData); }
  const T* data() const { return reinterpret_cast<const T*>(fData); }
  /// The last value. On an empty array this is a scratch value that reads
  /// as a value-initialised T and whose writes are discarded.
  T& last() {
    if (fCount != 0) return data()[fCount - 1];
    static T scratch;
    scratch = T{};
    return scratch;
  }
  T last() const { return fCount != 0 ? data()[fCount - 1] : T{}; }

  // --- Editing -------------------------------------------------------------

  /// Adds `value` at the end. Appending into spare capacity stays inline;
  /// only growth calls into the library.
  int addLast(const T& value) {
    if (fCount < fCapacity) {
      data()[fCount] = value;
      ++fCount;
      return 0;
    }
    return appendElement(&value);
  }
  /// Inserts `value` before `index` (index <= count()).
  int insert(const T& value, unsigned index) { return insertElement(&value, index, 1); }
  /// Removes the value at `index`.
  int remove(unsigned index) { return removeAt(index, 1); }
};

/// An array of doubles (curve values).
class LUMORA_API TdoubleArray : public TtypedArray<double> {
 public:
  using TtypedArray::TtypedArray;
};

/// An array of floats (times in seconds, tangent components).
class LUMORA_API TfloatArray : public TtypedArray<float> {
 public:
  using TtypedArray::TtypedArray;
};

/// An array of signed 16-bit integers.
class LUMORA_API Tint16Array : public TtypedArray<std::int16_t> {
 public:
  using TtypedArray::TtypedArray;
};

/// An array of bytes.
class LUMORA_API TuInt8Array : public TtypedArray<std::uint8_t> {
 public:
  using TtypedArray::TtypedArray;
};

}  // namespace lumora
