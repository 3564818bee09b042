// Arrays of times and rotations exchanged with hosts.
//
//   TanimTimeArray ticks;
//   ticks.addLast(TanimTime(6000));
//   TquaternionArray rotations(/*capacity=*/3);
//   rotations.addLast(Tquaternion());
//
// These are TtypedArray instances (see typed_array.h): operator[] is
// unchecked, valueAt() is checked. Slots that Tarray creates without a value
// (create(), changeLogicalSizeTo(), gaps left by createAndInitialise()) are
// zero bytes: 0 ticks for TanimTime, the "neither" time for TtimeValue, and
// the all-zero quaternion (not the identity) for Tquaternion.
#pragma once

#include "lumora/base/export.h"
#include "lumora/base/quaternion.h"
#include "lumora/base/time_value.h"
#include "lumora/base/typed_array.h"

namespace lumora {

/// An array of tick times.
class LUMORA_API TanimTimeArray : public TtypedArray<TanimTime> {
 public:
  using TtypedArray::TtypedArray;
};

/// An array of times that are each float seconds, ticks or neither.
class LUMORA_API TtimeValueArray : public TtypedArray<TtimeValue> {
 public:
  using TtypedArray::TtypedArray;
};

/// An array of quaternions (rotation keys of quaternion-interpolated curves).
class LUMORA_API TquaternionArray : public TtypedArray<Tquaternion> {
 public:
  using TtypedArray::TtypedArray;
};

}  // namespace lumora
