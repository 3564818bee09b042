// TcurveSnapshot: the state of a curve as raw bits, for bitwise comparisons.
//
// Undo must give back a curve exactly, not approximately: the same key
// objects (handles name objects), the same time words, values, tangents and
// flags, down to the sign of a zero and the payload of a NaN. A snapshot
// records all of that, and equality compares the recorded bits:
//
//   const TcurveSnapshot before(curve);
//   action.beginParamCurveMod(curve);
//   curve.remove(0);
//   action.endParamCurveMod(curve);
//   action.undoPC();
//   EXPECT_EQ(describeDifference(before, TcurveSnapshot(curve)), "");
//
// Things that surprise people:
//  * A snapshot holds key addresses, never pointers it would read again, so
//    it may outlive the keys and the curve.
//  * Selection belongs to the key object rather than to its content, and some
//    undo records deliberately leave it alone; pass a flag mask without
//    kSelectionFlags to ignore it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lumora/keys/keyframe.h"

namespace lumora {

class TparamCurve;

/// One key as raw words, in the curve's array order.
struct TkeySnapshot {
  std::uintptr_t address = 0;
  std::uint32_t timeBits = 0;  // ticks or float seconds, as stored
  std::uint64_t valueBits = 0;
  std::uint32_t tanInX = 0, tanInY = 0, tanOutX = 0, tanOutY = 0;
  std::uint32_t flags = 0;  // after the snapshot's flag mask
  // The side types, as the flags encode them (recorded for the reader).
  std::int32_t tanInType = 0, tanOutType = 0;
  std::uint32_t quaternionWBits = 0;

  bool operator==(const TkeySnapshot&) const = default;
};

/// The raw words of one key, which need not belong to a curve; flag words are
/// masked with `flagMask`.
TkeySnapshot snapshotOf(const Tkeyframe& key, std::uint32_t flagMask = 0xFFFFFFFFu);

/// The bits of every key and of the curve-wide state.
class TcurveSnapshot {
 public:
  /// Every flag bit of a key.
  static constexpr std::uint32_t kAllFlags = 0xFFFFFFFFu;
  /// The key, in-tangent and out-tangent selection bits.
  static constexpr std::uint32_t kSelectionFlags = (1u << Tkeyframe::kBitKeyActive) |
                                                   (1u << Tkeyframe::kBitInTangentActive) |
                                                   (1u << Tkeyframe::kBitOutTangentActive);

  /// Records `curve` now; key flag words are masked with `flagMask`.
  explicit TcurveSnapshot(const TparamCurve& curve, std::uint32_t flagMask = kAllFlags);

  bool operator==(const TcurveSnapshot&) const = default;

  const std::vector<TkeySnapshot>& keys() const { return fKeys; }
  unsigned keyframeCount() const { return fKeyframeCount; }
  bool staticCurve() const { return fStatic; }

  // --- Adjusting -------------------------------------------------------------
  // A comparison that must overlook a difference known to exist edits the
  // recorded words of both snapshots alike.

  std::vector<TkeySnapshot>& keys() { return fKeys; }
  void setStaticCurve(bool on) { fStatic = on; }

 private:
  friend std::string describeDifference(const TcurveSnapshot& expected,
                                        const TcurveSnapshot& actual);

  bool fIsFloat = false;
  int fPreInfinity = 0;
  int fPostInfinity = 0;
  bool fWeighted = false;
  bool fStatic = false;
  int fRotationInterpolation = 0;
  unsigned fKeyframeCount = 0;
  std::vector<TkeySnapshot> fKeys;
};

/// The first difference between two key snapshots in words ("value ... became
/// ..."), or "" when they are equal; times are read as float seconds when
/// `isFloat`, else as ticks.
std::string describeDifference(const TkeySnapshot& expected, const TkeySnapshot& actual,
                               bool isFloat);

/// The first difference between two snapshots in words ("key 2: value
/// 0x4000000000000000 (2) became 0x0 (0)"), or "" when they are equal.
std::string describeDifference(const TcurveSnapshot& expected, const TcurveSnapshot& actual);

}  // namespace lumora
