// Tkeyframe: one key of a curve.
//
// A key holds a time, a double value, an in and an out tangent with their
// tangent types, a flag word and two fields used by quaternion rotation
// curves. Keys are owned by exactly one curve; they are small, numerous and
// made and destroyed in bulk, so `new Tkeyframe` draws from the process-wide
// "Keys" pool.
//
//   Tkeyframe k(1.5f, 10.0, kTangentSpline, kTangentFlat);   // float seconds
//   k.setTanOut(1.0f, 2.0f);
//   Tkeyframe copy = k;   // copies are never selected
//
// Things that surprise people:
//  * The time is one 32-bit word that is either float seconds or integer
//    ticks. The key does not know which: its owning curve decides. The
//    comparison operators read it as float seconds with a tolerance of
//    1e-5 s, so they are only meaningful for keys of float curves.
//  * The value-taking constructors store the value as given; setValue clamps
//    (magnitudes below 1e-10 become exactly 0, beyond DBL_MAX saturate).
//  * Tangents are (x, y) in seconds and value units; x is never negative.
//  * Assignment transfers everything except the selection bits and the
//    deletion mark, which stay those of the destination.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "lumora/base/bit_field.h"
#include "lumora/base/export.h"
#include "lumora/base/time_value.h"
#include "lumora/keys/key_watch.h"
#include "lumora/keys/tangent_type.h"
#include "lumora/select/pick_key.h"

namespace lumora {

class LUMORA_API Tkeyframe {
 public:
  /// How the span that starts at this key is interpolated.
  enum TspanInterpMethod : int { kSpanCurve = 0, kSpanLinear = 1, kSpanStep = 2 };

  /// Values of the `which`/`side` arguments that pick one tangent side: 1 is
  /// the in side and any other value the out side. (These are not the pick
  /// bits of a selection, where 2 is the in tangent.)
  static constexpr TpickKey::TpickBits kInSide = TpickKey::kPickKey;
  static constexpr TpickKey::TpickBits kOutSide = TpickKey::kPickInTangent;

  /// Flag-word bit positions. Bits 10, 21 and 27 carry no meaning.
  enum TflagBit : unsigned {
    kBitKeyActive = 22,
    kBitInTangentActive = 23,
    kBitOutTangentActive = 24,
    kBitToBeDeleted = 25,
    kBitLinearSpan = 26,
    kBitLocked = 28,
    kBitTangentsLocked = 29,
    kBitWeightsLocked = 30,
    kBitBreakdown = 31,
  };

  // --- Construction ----------------------------------------------------------
  // Every constructor zeroes the tangents, sets the types (0 = preference
  // default), unlocks the key, locks its tangents and weights, and makes the
  // span a curve span.

  Tkeyframe();
  Tkeyframe(float seconds, double value, TtangentType in = kTangentGlobal,
            TtangentType out = kTangentGlobal);
  Tkeyframe(TanimTime ticks, double value, TtangentType in = kTangentGlobal,
            TtangentType out = kTangentGlobal);
  /// A tick time is stored as ticks, a float time as seconds, "neither" as 0.
  Tkeyframe(const TtimeValue& time, double value, TtangentType in = kTangentGlobal,
            TtangentType out = kTangentGlobal);
  Tkeyframe(float seconds, double value, double w, TtangentType in, TtangentType out);
  Tkeyframe(TanimTime ticks, double value, double w, TtangentType in, TtangentType out);
  Tkeyframe(const TtimeValue& time, double value, double w, TtangentType in, TtangentType out);

  /// Copies everything and leaves the copy unselected.
  Tkeyframe(const Tkeyframe& other);
  /// Copies everything but the destination's own selection bits and deletion
  /// mark; the quaternion-Euler cache pointer is reset to null.
  Tkeyframe& operator=(const Tkeyframe& other);
  /// Tells the watches of this key object (see key_watch.h) that it is gone.
  ~Tkeyframe() {
    if (fWatchSlot != 0) TkeyWatch::keyDying(this);
  }

  /// Keys come from the "Keys" pool; with TpureArena::sPurifyInUse set they
  /// come from plain malloc so memory checkers can see each block.
  static void* operator new(std::size_t size);
  static void operator delete(void* p) noexcept;

  // --- Value and time -------------------------------------------------------

  double value() const { return fValue; }
  /// Saturates at +-DBL_MAX; magnitudes below 1e-10 (and NaN) become 0.
  Tkeyframe& setValue(double v);

  float timeAsFloat() const { return std::bit_cast<float>(fTime); }
  std::int32_t timeAsTicks() const { return static_cast<std::int32_t>(fTime); }
  TanimTime timeAsAnimTime() const { return TanimTime(timeAsTicks()); }
  /// Stores float seconds as given.
  Tkeyframe& setTime(float seconds);
  Tkeyframe& setTime(TanimTime ticks);
  /// Ticks as given; float seconds clamped to +-FLT_MAX, magnitudes below 1e-5
  /// (and NaN) stored as 0; the neither time as 0.
  Tkeyframe& setTime(const TtimeValue& time);
  /// The time as setTime(TtimeValue), value and w as setValue; w is then stored
  /// as the float quaternion W.
  Tkeyframe& setTimeAndValue(const TtimeValue& time, double value, double w);

  // --- Tangents ---------------------------------------------------------------

  void getTanIn(float& x, float& y) const {
    x = fTanInX;
    y = fTanInY;
  }
  void getTanOut(float& x, float& y) const {
    x = fTanOutX;
    y = fTanOutY;
  }
  /// `which` == kInSide reads the in side, anything else the out side.
  void getTangent(TpickKey::TpickBits which, float& x, float& y) const;
  /// `which` == kInSide writes the in side as setTanIn does, anything else
  /// the out side as setTanOut does.
  Tkeyframe& setTangent(TpickKey::TpickBits which, float x, float y);
  /// x below 0 becomes 0, x magnitudes below 1e-5 become 0, x saturates at
  /// FLT_MAX; y saturates at +-FLT_MAX and magnitudes below 1e-5 become 0.
  Tkeyframe& setTanIn(float x, float y);
  Tkeyframe& setTanOut(float x, float y);

  TtangentType tanInType() const;
  TtangentType tanOutType() const;
  /// 0 takes the preference default; values outside 1..10 store 9 (spline).
  Tkeyframe& setTanInType(TtangentType type);
  Tkeyframe& setTanOutType(TtangentType type);
  TtangentType tangentType(TpickKey::TpickBits which) const;
  Tkeyframe& setTangentType(TpickKey::TpickBits which, TtangentType type);

  /// 1 when the span is stored as linear; otherwise 2 when the out type is
  /// step; otherwise 0.
  TspanInterpMethod interpMethod() const;
  /// Only linear is stored; step follows from the out tangent type.
  Tkeyframe& setInterpMethod(int method);

  // --- Flags --------------------------------------------------------------------

  const TbitField32& flags() const { return fFlags; }
  Tkeyframe& setFlags(const TbitField32& flags) {
    fFlags = flags;
    return *this;
  }
  bool isKeyframeActive() const { return fFlags.testBit(kBitKeyActive); }
  bool isInTangentActive() const { return fFlags.testBit(kBitInTangentActive); }
  bool isOutTangentActive() const { return fFlags.testBit(kBitOutTangentActive); }
  bool isAnyActive() const { return (fFlags.bits() & kActiveMask) != 0; }
  /// Mask bit 0 = key, 1 = in tangent, 2 = out tangent. On: merges the mask
  /// into the active bits by the pick-merge rule; off: clears the named bits.
  Tkeyframe& setActive(const TbitField32& mask, bool on);

  bool breakdown() const { return fFlags.testBit(kBitBreakdown); }
  Tkeyframe& setBreakdown(bool on) { return setBit(kBitBreakdown, on); }
  bool toBeDeleted() const { return fFlags.testBit(kBitToBeDeleted); }
  Tkeyframe& setToBeDeleted(bool on) { return setBit(kBitToBeDeleted, on); }
  bool locked() const { return fFlags.testBit(kBitLocked); }
  Tkeyframe& setLocked(bool on) { return setBit(kBitLocked, on); }
  bool tangentsLocked() const { return fFlags.testBit(kBitTangentsLocked); }
  Tkeyframe& setTangentsLocked(bool on) { return setBit(kBitTangentsLocked, on); }
  bool weightsLocked() const { return fFlags.testBit(kBitWeightsLocked); }
  Tkeyframe& setWeightsLocked(bool on) { return setBit(kBitWeightsLocked, on); }

  // --- Quaternion rotation data ---------------------------------------------------
  // Used only by rotation curves under quaternion interpolation. The key does
  // not own the cache.

  float quaternionW() const { return fQuaternionW; }
  Tkeyframe& setQuaternionW(float w) {
    fQuaternionW = w;
    return *this;
  }
  float* getQuaternionEulerCache() const { return fQuaternionEulerCache; }
  Tkeyframe& setQuaternionEulerCache(float* cache) {
    fQuaternionEulerCache = cache;
    return *this;
  }

  // --- Ownership -------------------------------------------------------------------

  /// True while this key object sits in a curve (which then owns it). A key
  /// in a curve is never adopted by another insertion.
  bool isInCurve() const { return fInCurve != 0; }

  // --- Tolerant time comparison ----------------------------------------------------
  // The time word read as float seconds; two times within 1e-5 s are equal.

  bool operator==(const Tkeyframe& o) const;
  bool operator!=(const Tkeyframe& o) const;
  bool operator<(const Tkeyframe& o) const;
  bool operator>(const Tkeyframe& o) const;
  bool operator<=(const Tkeyframe& o) const;
  bool operator>=(const Tkeyframe& o) const;

  /// Time tolerance of float keys, in seconds.
  static constexpr float kTimeTolerance = 1e-5f;

 protected:
  /// Sets both types, replacing a 0 by the keyframe preference default (9
  /// when there is no preference item).
  void updateGlobalTangentTypes(TtangentType in, TtangentType out);

 private:
  friend class TkeyWatch;
  friend class TkeyArray;  // marks the keys it holds

  static constexpr std::uint32_t kActiveMask =
      (1u << kBitKeyActive) | (1u << kBitInTangentActive) | (1u << kBitOutTangentActive);

  void initialise(double value, float w, TtangentType in, TtangentType out);
  Tkeyframe& setBit(unsigned bit, bool on) {
    fFlags.setBit(bit, on);
    return *this;
  }

  double fValue = 0.0;
  std::uint32_t fTime = 0;  // float seconds or int32 ticks, as the owning curve reads it
  float fTanInX = 0.0f;
  float fTanInY = 0.0f;
  float fTanOutX = 0.0f;
  float fTanOutY = 0.0f;
  TbitField32 fFlags;
  float* fQuaternionEulerCache = nullptr;
  float fQuaternionW = 1.0f;
  // Both belong to the object, not to its state: copies and assignment leave
  // them. Which list of watches the object has (key_watch.cpp), 0 for none.
  std::uint32_t fWatchSlot : 31 = 0;
  // Set while the object sits in a curve's key array (which owns it then).
  std::uint32_t fInCurve : 1 = 0;
};

}  // namespace lumora
