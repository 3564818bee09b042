// TparamCurve: an animation curve of one scalar channel over time.
//
// A curve is a time-sorted array of keys (Tkeyframe) with pre- and
// post-infinity behaviour, an owned segment evaluator and an evaluation
// cursor (its cache). It is observable (clients hear of every change, see
// "lumora/notify/param_curve_msgs.h") and records undo deltas while it is in
// modification (see "lumora/notify/delta.h").
//
//   TparamCurve curve(/*isFloat=*/true);
//   curve.add(Tkeyframe(0.0f, 0.0, kTangentFlat, kTangentFlat));
//   curve.add(Tkeyframe(1.0f, 10.0, kTangentFlat, kTangentFlat));
//   double v = curve.evaluate(0.5f);   // 5.0
//
// Things that surprise people:
//  * A curve is a float curve (key times are float seconds, compared with a
//    tolerance of 1e-5 s) or a tick curve (integer ticks, 6000 per second,
//    compared exactly). The choice is made at construction and never changes;
//    the default constructor makes a tick curve.
//  * Indices out of range are not errors: they give null keys, zero values or
//    no action. The invalid index is 0xFFFFFFFF.
//  * evaluate(t) writes the curve's own evaluation cursor, so only one thread
//    at a time may call it. Any number of threads may sample a curve at once
//    through the const overloads, each with its own TevalCursor, or through
//    a TcurveSampler built from it, while no thread edits the curve. Edits
//    are not thread-safe.
//  * Every edit runs inside a change scope. For procedural and reference
//    curves the global helpers must approve it first; a refused edit returns
//    its failure value and leaves the curve untouched.
//  * An observer may read the curve from inside any message, and edit other
//    curves, but this curve refuses edits (each returns its failure value,
//    or does nothing) while it is delivering a message of its own: the edit
//    that sent it is still under way. Global clients hear of a change once
//    it is complete and may edit the curve then. Destroying a curve from
//    inside its own message is not allowed.
//  * timeValueRef-style accessors and fsTimeValue are single process-wide
//    scratch values: copy what they return before the next call.
//
// The class is defined across the folders that own each capability:
// curve/ (storage, lookup, evaluation, infinities, debug print), edit/
// (tangents, adding and removing keys, moving keys, breakdown keys),
// select/ (selections), notify/ (change scopes and messages). A move edit
// (beginEdit(kEditMoveKeys, ...) to endEdit()) owns a move list and the
// breakdown records of the keys that follow the move; endEdit drops both,
// removeAllKeys drops the records, and neither is ever copied with a curve.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "lumora/base/client_server.h"
#include "lumora/base/export.h"
#include "lumora/base/float_math.h"
#include "lumora/base/ptr_array.h"
#include "lumora/base/time_value.h"
#include "lumora/curve/eval_cursor.h"
#include "lumora/curve/hermite_segment_evaluator.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/tangent_type.h"
#include "lumora/notify/delta.h"
#include "lumora/notify/param_curve_msgs.h"
#include "lumora/select/pick_key.h"

namespace lumora {

namespace internal {
class TbreakdownCache;
class TcurveDeltaAccess;
class TmoveJournal;
class TmoveList;

// Whether this file is being compiled with relaxed float maths (-ffast-math,
// -ffinite-math-only, /fp:fast), which may rewrite the IEEE rounding and NaN
// tests that inline sampling relies on.
#if defined(__FAST_MATH__) || defined(_M_FP_FAST) || \
    (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__)
constexpr bool kRelaxedFloatMath = true;
#else
constexpr bool kRelaxedFloatMath = false;
#endif
}  // namespace internal

class Tangle;
class TanimTimeArray;
class TbreakdownData;
class TdebugOutput;
class TdoubleArray;
class TfloatArray;
class Tint16Array;
class TkeyArray;
class TkeyframeHandle;
class TkeyframeHandlePtrArray;
class TparamCurve;
class TparamCurveMsgDepot;
class TpickKeyDictionary;
class Tquaternion;
class TquaternionArray;
class TsegmentEvaluator;
class TtimeValueArray;
class TparamCurveTestAccess;

/// Pointers to curves; never owns them.
class LUMORA_API TparamCurvePtrArray : public TptrArray<TparamCurve> {
 public:
  using TptrArray<TparamCurve>::TptrArray;
};

/// Host callback that yields the three sibling rotation curves (x, y, z) of
/// the curve whose host handle is `tdnCurve`. Returns false when it cannot.
using TsiblingCurvesCallback = bool (*)(void* tdnCurve, TparamCurve** x, TparamCurve** y,
                                        TparamCurve** z, bool create);

class LUMORA_API TparamCurve : public TdeltaUser, public TclientServer {
 public:
  /// Behaviour outside the keyed range. Stored in files: only add values.
  enum TinfinityType : int {
    kConstant = 0,
    kLinear = 1,
    kCycle = 3,
    kCycleRelative = 4,
    kOscillate = 5,
  };

  /// Interpolation of three sibling rotation curves. Stored in files.
  enum TrotationInterpolation : int {
    kEuler = 1,
    kSynchronizedEuler = 2,
    kQuaternion = 3,
  };

  /// How moved keys treat the keys they reach. Stored by hosts: only add values.
  enum TmoveOption : int {
    /// Keys keep their order: a moved key stops one tick short of the
    /// neighbour it would reach.
    kMoveKeepOrder = 0,
    /// As kMoveKeepOrder, but every key from the moved block onward (in the
    /// direction of the move) shifts by the same time first, so nothing is reached.
    kMoveRipple = 1,
    /// Keys take their new times exactly and pass other keys, which are
    /// re-sorted; an exact collision steps one tick back towards the origin.
    kMovePass = 2,
    /// As kMovePass, for relative moves only.
    kMovePassRelative = 3,
  };

  /// Interactive edit in progress (see beginEdit); 0 when none.
  enum TeditMode : int {
    kEditNone = 0,
    kEditMoveKeys = 1,
    /// Stored and reset like the others; no begin or end work.
    kEditReserved = 2,
    kEditScaleKeys = 3,
  };

  /// The invalid index.
  static constexpr unsigned kInvalidIndex = 0xFFFFFFFFu;

  /// One process-wide scratch time used to build lookup times.
  static TtimeValue fsTimeValue;

  // --- Construction -----------------------------------------------------------

  /// An empty, static curve. Weighted when the keyframe preference says so.
  explicit TparamCurve(bool isFloat = false);
  /// An independent copy: new keys (unselected), no clients, no deltas, empty cache.
  TparamCurve(const TparamCurve& other);
  TparamCurve& operator=(const TparamCurve& other);
  ~TparamCurve() override;

  // --- Flags ---------------------------------------------------------------------

  bool isFloat() const { return fFloatKeys != nullptr; }
  bool isAnimTime() const { return fTickKeys != nullptr; }
  bool staticCurve() const { return fCurveFlags.testBit(kFlagStatic); }
  void setStaticCurve(bool on) {
    fCurveFlags.setBit(kFlagStatic, on);
    touch();
  }
  bool inFileIO() const { return fCurveFlags.testBit(kFlagInFileIO); }
  void setInFileIO(bool on) { fCurveFlags.setBit(kFlagInFileIO, on); }
  bool notifyClientsDuringFileIO() const { return fCurveFlags.testBit(kFlagNotifyDuringFileIO); }
  void setNotifyClientsDuringFileIO(bool on) { fCurveFlags.setBit(kFlagNotifyDuringFileIO, on); }
  bool isProcedural() const { return fCurveFlags.testBit(kFlagProcedural); }
  void isProcedural(bool on) { fCurveFlags.setBit(kFlagProcedural, on); }
  bool isReference() const { return fCurveFlags.testBit(kFlagReference); }
  void isReference(bool on) { fCurveFlags.setBit(kFlagReference, on); }
  bool blockAddMode() const { return fCurveFlags.testBit(kFlagBlockAdd); }
  void setBlockAddMode(bool on) { fCurveFlags.setBit(kFlagBlockAdd, on); }
  bool isWeighted() const { return fCurveFlags.testBit(kFlagWeighted); }
  /// Switches between weighted and non-weighted tangents. Automatic tangents
  /// are recomputed in the new form; fixed tangents keep their direction
  /// (their slope), and on the way to weighted their handle length becomes one
  /// third of the adjacent span, the length at which a weighted segment
  /// reproduces the non-weighted shape. Records a delta while recording and
  /// sends kWeightingChanged for every key.
  void setIsWeighted(bool weighted);
  bool isCachedQuaternionDataValid() const { return fCurveFlags.testBit(kFlagQuaternionCache); }
  bool isEdit() const { return fEditMode != kEditNone; }
  TeditMode editMode() const { return fEditMode; }

  // --- Rotation interpolation ------------------------------------------------------

  static bool isRotationInterpolationValid(int mode) { return mode >= 1 && mode <= 3; }
  static bool isEulerAngled(int mode) { return mode == kEuler || mode == kSynchronizedEuler; }
  static bool isSynchronizedEuler(int mode) { return mode == kSynchronizedEuler; }
  static bool isQuaternion(int mode) { return mode == kQuaternion; }
  static bool rotationInterpolationRequiresSyncronisation(int mode) {
    return mode == kSynchronizedEuler || mode == kQuaternion;
  }
  TrotationInterpolation getRotationInterpolation() const { return fRotationInterpolation; }
  /// Stores the mode (records a delta while recording) and drops the
  /// quaternion-Euler cache. Opens no change scope and sends no message.
  /// Invalid modes are ignored.
  void setRotationInterpolation(TrotationInterpolation mode);

  // --- Host handle and siblings ------------------------------------------------------

  void* TDNparamCurve() const { return fTdnCurve; }
  void setTDNparamCurve(void* handle, TsiblingCurvesCallback callback) {
    fTdnCurve = handle;
    fSiblingCurvesCallback = callback;
  }
  /// The host's answer when both the handle and the callback are set;
  /// otherwise *x = this, *y = *z = null and false.
  bool getSiblingRotationCurves(TparamCurve** x, TparamCurve** y, TparamCurve** z,
                                bool create) const;
  void setCachedSiblingCurves(TparamCurve* x, TparamCurve* y, TparamCurve* z);
  void getCachedSiblingCurves(TparamCurve*& x, TparamCurve*& y, TparamCurve*& z) const;

  // --- Keys ----------------------------------------------------------------------------

  /// Key i, or null.
  Tkeyframe* keyframe(unsigned i) const;
  Tkeyframe* operator[](unsigned i) const { return keyframe(i); }
  /// Number of keys; with deferred deletion, keys marked toBeDeleted do not count.
  unsigned keyframeCount() const;
  TtimeValue timeValue(const Tkeyframe* key) const;
  TtimeValue timeValue(unsigned i) const { return timeValue(keyframe(i)); }
  /// Seconds of a key: ticks x 0.00016666666f on tick curves; 0 for null.
  float seconds(const Tkeyframe* key) const {
    if (!key) return 0.0f;
    if (fTickKeys) return static_cast<float>(key->timeAsTicks()) * TanimTime::kSecondsPerTick;
    return key->timeAsFloat();
  }
  float seconds(unsigned i) const { return seconds(keyframe(i)); }
  TanimTime animTime(const Tkeyframe* key) const;
  TanimTime animTime(unsigned i) const { return animTime(keyframe(i)); }
  /// A time of this curve's kind for `seconds`.
  TtimeValue makeTimeValue(float seconds) const;
  TtimeValue minTimeValue() const;
  TtimeValue maxTimeValue() const;

  /// Binary search. Found: true and the key's index (first of equal keys).
  /// Not found: false and the insertion position. Float curves use the 1e-5 s
  /// tolerance, tick curves exact ticks.
  bool find(const TtimeValue& t, unsigned& index) const;
  /// Like find, but first tries index +-1 (by `forward`) as a hint when t
  /// equals that key's time exactly.
  bool incrementalFind(const TtimeValue& t, unsigned& index, bool forward) const;
  /// Steps through keys. Without deferred deletion direction 1 does NOT
  /// advance (pass 2 or more to step forward); with it, index is a logical
  /// index for direction 0 and live keys are skipped to otherwise.
  Tkeyframe* seekKey(unsigned& index, int direction) const;

  /// Sets the value of key i (clamped as Tkeyframe::setValue). NaN is refused.
  void setValue(unsigned i, double v);
  void setValue(unsigned i, double v, float w);
  /// Moves key i to time t. False for a missing key, a refused scope or a
  /// time that breaks the order; the new time stays written even then, and
  /// the caller must put it back. A time of the other kind writes nothing,
  /// and a float time that is not finite is refused (false).
  bool setTime(unsigned i, const TtimeValue& t);
  /// Tells clients the curve changed without changing it.
  void markDirty();
  /// Rescales tick times from one unit system to another; no message, no delta.
  /// Nothing for an unknown unit; times beyond the tick range saturate.
  void noUpdate(TtimeUnitSystem from, TtimeUnitSystem to);
  /// Prints the keys through `out`, then closes it.
  void debugOutput(TdebugOutput& out) const;

  // --- Evaluation -----------------------------------------------------------------------

  /// The curve's value at `seconds`; NaN for a NaN time (cache untouched).
  /// Sampling in time order mostly stays inside the span already loaded, and
  /// that case is answered here, inline.
  double evaluate(float seconds) { return evaluateWith(seconds, fCursor); }
  double evaluate(const TtimeValue& t);
  /// values[i] = evaluate(times[i]) for i < count. False for null arrays.
  bool evaluate(unsigned count, const double* times, double* values);

  /// The same answers as evaluate(seconds) would give after the samples this
  /// cursor took, without writing the curve: any number of threads may sample
  /// one curve at once, each through its own cursor, while no edit runs. A
  /// cursor that served another curve, or this one before an edit, starts
  /// afresh (see "lumora/curve/eval_cursor.h").
  double evaluate(float seconds, TevalCursor& cursor) const {
    if (cursor.fCurve != this || cursor.fStamp != fEditStamp) [[unlikely]]
      adopt(cursor);
    return evaluateWith(seconds, cursor);
  }
  double evaluate(const TtimeValue& t, TevalCursor& cursor) const;
  bool evaluate(unsigned count, const double* times, double* values, TevalCursor& cursor) const;

  /// Changes whenever the curve changes in a way evaluation could see; no two
  /// curves of a process ever share a stamp.
  std::uint64_t editStamp() const { return fEditStamp; }

  // --- Queries (curve/queries.cpp) ------------------------------------------------------
  // Read-only questions a graph editor asks. They evaluate through cursors
  // of their own, so they leave the curve's cache alone and may run while
  // other threads sample the curve; the handles and keys they return are
  // made as edits make them, so one thread at a time may query or edit.

  /// A new handle (the caller owns it) to the key closest to `t`; null for a
  /// curve without keys or a NaN time. Distances on float curves are whole
  /// seconds (truncated toward zero), so keys less than a second from `t`
  /// tie; a tie between the two keys around `t` goes to the later one. A
  /// time of the other kind is taken by its seconds.
  TkeyframeHandle* findClosestKeyframe(const TtimeValue& t) const;
  /// A new handle to the key closest to the point (`t`, `value`) by
  /// squared distance in seconds and value units, the first of equal ones;
  /// with `selectedOnly`, among the selected keys only. Null when no key is
  /// considered or the point is NaN.
  TkeyframeHandle* findClosestKeyframe(const TtimeValue& t, double value, bool selectedOnly) const;
  /// A new handle to the first key whose value is closest to `value`; null
  /// for a curve without keys or a NaN value.
  TkeyframeHandle* findClosestValue(double value) const;
  /// The box the curve occupies over its keys, times in seconds: the keys'
  /// times, and values widened by every span's control polygon (the Bezier
  /// control values of the span, which contain the curve). One key gives the
  /// point (its time, the curve's value there); no key leaves the outputs as
  /// they were. With `selectedOnly` only the selected keys count, and the
  /// spans between two selected keys: "frame selected" in a graph editor;
  /// no selected key leaves the outputs as they were. Quaternion rotation
  /// curves take the same path until rotation interpolation brings their
  /// own. One exception to holding the curve: a non-weighted tangent stored
  /// with x = 0 (a key's own setters can store one) is boxed by its y,
  /// while evaluation takes the upward vertical slope there.
  void boundingBox(float& minTime, double& minValue, float& maxTime, double& maxValue,
                   bool selectedOnly) const;
  /// The box of the span from key `index` to the next: the two keys' times
  /// and the control polygon's values. With `widen` the outputs grow to hold
  /// the box (for a caller gathering several spans), otherwise they become
  /// it. Nothing happens when the span does not exist.
  void boundingBox(unsigned index, float& minTime, double& minValue, float& maxTime,
                   double& maxValue, bool widen) const;
  /// Where the control polygon of the span from key `index` is lowest and
  /// highest: the extreme values and the times of the control points that
  /// reach them (the earliest of equal ones). False, with the outputs
  /// untouched, when the span does not exist.
  bool minMaxValueAndTime(unsigned index, float& minTime, double& minValue, float& maxTime,
                          double& maxValue) const;

  /// The key after `t` (`forward`) or before it, including the keys of the
  /// repeated copies that cycling, cycling-relative and oscillating
  /// infinities lay out: the curve's own key (`allocated` false) or a new
  /// key from the key pool that the caller deletes (`allocated` true), a
  /// copy of the keyed-range key it repeats with the repeated time, the
  /// value shifted by whole rises on a cycling-relative side, and in the
  /// mirrored copies of an oscillation its tangents mirrored (in and out
  /// swapped, slopes negated) and the linear-span mark of the span it
  /// mirrors. Where two copies meet, the key is the one evaluation takes
  /// there (float arithmetic decides which copy it reads, and the key
  /// follows), with its in side from the copy before and its out side from
  /// the copy after; so walking forward from before the first key visits
  /// each time once, in order, with the curve's value at each and its slope
  /// on either side. Far from zero, where float seconds cannot tell copied
  /// keys apart, the key is the first whose time rounds beyond `t`. Null
  /// past the last key a constant or linear side produces, beyond about
  /// 4e18 periods or the curve's time range, for a NaN time, and for a
  /// curve without keys; a one-key curve has no copies.
  Tkeyframe* getNextKey(const TtimeValue& t, bool forward, bool& allocated) const;

  // --- Infinities -------------------------------------------------------------------------

  TinfinityType preInfinityType() const { return fPreInfinity; }
  TinfinityType postInfinityType() const { return fPostInfinity; }
  /// Values other than 1, 3, 4 and 5 are stored as 0 (constant). A quaternion
  /// rotation curve with siblings changes all three.
  void setPreInfinityType(TinfinityType type);
  void setPostInfinityType(TinfinityType type);

  // --- Tangents ------------------------------------------------------------------------------

  /// Sets one side's type and recomputes the tangents around the key. `side`
  /// Tkeyframe::kInSide (1) means the in side and any other value the out side.
  void setTangentTypeHelper(unsigned index, TtangentType type, TpickKey::TpickBits side);
  void setTanInType(unsigned i, TtangentType type) {
    setTangentTypeHelper(i, type, Tkeyframe::kInSide);
  }
  void setTanOutType(unsigned i, TtangentType type) {
    setTangentTypeHelper(i, type, Tkeyframe::kOutSide);
  }
  /// View length of a tangent handle (weighted) or 1/0 (non-weighted); 0 for a
  /// missing key. a and b scale x and y to view units.
  double tangentWeight(unsigned index, bool inSide, float a, float b) const;
  /// Angle of a tangent in view units; 0 for a missing key.
  Tangle tangentAngle(unsigned index, bool inSide, float a, float b) const;
  /// Writes a dragged tangent and makes the side fixed. False for a missing
  /// key, an in side of a linear span, or a refused scope.
  bool dragTangent(unsigned index, float x, float y, bool inSide);
  /// The tangent (x, y) that points side `inSide` of key `index` at `angle`
  /// with the view length `weight` (at least 0.005), under the view scales
  /// a (time) and b (value; a scale of 0 counts as 1). The key is not
  /// changed; the outputs are left alone for a missing key.
  void setTangentWeightAndAngle(unsigned index, float weight, const Tangle& angle, bool inSide,
                                float& x, float& y, float a, float b) const;
  /// Locks (or frees) the two tangents of key `index` together: a drag of
  /// one side then turns and stretches the other alike. Recorded for undo.
  /// Nothing for a missing key or a refused change.
  void setTangentsLocked(unsigned index, bool locked);
  /// False for a missing key.
  bool tangentsLocked(unsigned index) const;
  /// Locks or frees the tangents of every picked key of this curve (void
  /// picks, picks of other curves and of keys no longer here are skipped),
  /// as one change. False only when the change is refused.
  bool setTangentLockedStatus(const TpickKeyDictionary& picks, bool locked);
  /// The same for the weight lock, which keeps a weighted handle's length
  /// while it is turned.
  void setWeightsLocked(unsigned index, bool locked);
  bool weightsLocked(unsigned index) const;
  bool setWeightLockedStatus(const TpickKeyDictionary& picks, bool locked);

  // Dragging and typing tangents in a graph editor. Each edit of a side
  // writes the side through the segment evaluator (a non-weighted curve
  // stores a unit direction) and makes it fixed; when the key's tangents are
  // locked, the other side turns and stretches by as much as the edited one
  // (see manageTangentChangeWhenLocked), and where it cannot, the edit is
  // refused and the key keeps every bit it had. While the curve records,
  // each changed side records a TPCDdragTan whose undo gives back the keys
  // around the edit bit for bit. NaN or infinite arguments refuse the edit.
  //
  // Points of a drag are given in the frame of the side they move, so that
  // a side's tangent is three times its handle's point: (time, value)
  // offsets from the key for the out side, and the same mirrored through
  // the key for the in side (time running back from the key, value falling),
  // whose handle sits at the key minus a third of its tangent.

  /// Drags the picked tangent handle(s) of one key by the pointer at
  /// (`dragX`, `dragY`). The drag of a side is the pointer taken relative to
  /// that side's reference point (`inRefX`, `inRefY` or `outRefX`, `outRefY`):
  /// on a weighted curve the handle moves by it (pass where the handle was
  /// when the pointer took it, and the new tangent is the old one plus three
  /// times the drag); on a non-weighted curve the drag itself is the new
  /// direction (pass the key, that is (0, 0)). `xScale` and `yScale` turn
  /// seconds and values into view units, for the shortest handle (0.005 in
  /// view units) and the locks; a scale of 0 counts as 1, and a weighted
  /// tick curve measures time with 1. `valueScale` is the value scale the
  /// lock turns sides in (xScale / yScale turns them as they look; 0 counts
  /// as 1).
  ///
  /// Only the in bit drags the in side, only the out bit the out side. With
  /// both bits the out side is dragged and the in side follows through the
  /// lock, whether or not the key's tangents are locked; the pointer is then
  /// read in the out side's frame, and `negateVertical` negates the vertical
  /// drag first: set it when the pointer holds the in handle and its points
  /// are measured with time running back from the key but values as they
  /// are, so that the out side tilts away and the in handle, following,
  /// stays under the pointer.
  ///
  /// `angleLock` keeps the side's direction and takes only the drag's length
  /// (weighted curves whose key's weights are not locked; otherwise the call
  /// is refused). A weighted key with locked weights keeps its handle length
  /// and takes only the direction.
  ///
  /// False, with nothing changed, for a pick without a tangent bit, a void
  /// or handle-less pick, a key not in this curve, a refused change, a
  /// handle shorter than 0.005 in view units, or a lock that cannot hold.
  bool adjustTangent(const TpickKey& pick, float dragX, float dragY, float inRefX, float inRefY,
                     float outRefX, float outRefY, float xScale, float yScale, float valueScale,
                     bool negateVertical, bool angleLock);
  /// Sets side `inSide` of the key `handle` names to `angle` and the view
  /// length `weight` (the handle of a weighted tangent; at least 0.005),
  /// under the view scales, or with `relative` turns it by `angle` and
  /// lengthens it by `weight`. The largest float weight and an angle of the
  /// largest double in degrees leave that part alone; with both left alone
  /// nothing changes and the result is true. A weighted key with locked
  /// weights keeps its handle length. A locked key's other side turns and
  /// stretches alike, in the view's proportions (value scale xScale /
  /// yScale). False, with nothing changed, for a handle of another curve or
  /// of no key, a refused change, NaN arguments or a lock that cannot hold.
  bool adjustTangent(const TkeyframeHandle& handle, bool inSide, bool relative, const Tangle& angle,
                     float weight, float xScale, float yScale);
  /// One drag step of every picked tangent of this curve: each picked side
  /// moves by (`dragX`, `dragY`) in its own frame (see above), as the pick
  /// form drags it with the reference at its current handle (a third of its
  /// tangent) and the pointer that far off: a weighted handle moves by the
  /// drag, a non-weighted direction turns toward it. Both tangents picked
  /// (or the key picked) drag the out side and the in side follows, as in
  /// the pick form. Picks of other curves and void picks are skipped; a key
  /// that refuses keeps every bit it had while the others are dragged. One
  /// change for the whole selection. False when the change is refused or any
  /// picked key refused the drag.
  bool adjustTangents(const TpickKeyDictionary& picks, float dragX, float dragY, float xScale,
                      float yScale, float valueScale, bool negateVertical, bool angleLock);
  /// Types angles and weights into every picked side, as the handle form
  /// does for one (a picked key counts as both its sides): the in sides take
  /// `inAngle` and `inWeight`, the out sides `outAngle` and `outWeight`; the
  /// leave-alone values leave a part as it is. False when the change is
  /// refused or any picked side refused.
  bool adjustTangents(const TpickKeyDictionary& picks, bool relative, const Tangle& inAngle,
                      float inWeight, const Tangle& outAngle, float outWeight, float xScale,
                      float yScale);
  /// The same with one angle and weight for every picked side.
  bool adjustTangents(const TpickKeyDictionary& picks, bool relative, const Tangle& angle,
                      float weight, float xScale, float yScale);
  /// The tangents of the picked keys of this curve, in dictionary order, for
  /// generateDeltasForTangents: four floats per pick (in x, in y, out x,
  /// out y) and two types (in, out); zeros for picks that name no key here.
  void getTangentsForDeltas(const TpickKeyDictionary& picks, TfloatArray& tangents,
                            Tint16Array& types) const;
  /// Records, without changing anything, the undo of tangent edits made
  /// while the curve was not recording (a drag applied step by step and
  /// recorded once when the pointer is released): each picked key whose
  /// sides differ from `tangents` and `types` (as getTangentsForDeltas
  /// filled them before the edits) gets a TPCDdragTan per changed side; undo
  /// gives the key back its recorded tangents and types, with the span
  /// interpolation those types give, and redo the ones it has now. Nothing
  /// while not recording, for arrays too short for the picks, or for
  /// recorded values that no key could hold (NaN, types outside 1..10).
  void generateDeltasForTangents(const TpickKeyDictionary& picks, const TfloatArray& tangents,
                                 const Tint16Array& types);
  /// Swaps the in and out tangents of every picked key of this curve (a key
  /// counts as picked with any of its bits): vectors as stored and types,
  /// then the automatic sides are computed again. Both sides change at once,
  /// so a lock has no side to carry along. Recorded for undo. False only
  /// when the change is refused.
  bool switchInOutTangents(const TpickKeyDictionary& picks);

  // --- Adding and removing keys -----------------------------------------------------------------

  /// Inserts a copy of `key`, or overwrites the key at its time. The second
  /// argument has no effect.
  bool add(const Tkeyframe& key, bool ignored = false, bool allSiblings = false);
  /// Inserts a key on the curve at `time` where none exists.
  bool insert(const TtimeValue& time, bool breakdown, bool allSiblings);
  /// Inserts a copy of `key` where none exists, optionally keeping the shape.
  bool insert(const Tkeyframe& key, bool keepShape, bool allSiblings);
  /// Adopts `key` when it is inserted; otherwise the caller keeps it.
  bool insert(Tkeyframe* key, bool allSiblings);
  /// Fast loader: times in seconds; no scope, no deltas, no messages.
  bool blockAdd(const Tkeyframe& templ, const TdoubleArray* times, const TdoubleArray* values);
  bool blockAdd(TanimTimeArray& times, TdoubleArray& values, TtangentType inType,
                TtangentType outType);
  /// As the reference form. With `ascending` true the caller promises that
  /// the times are strictly increasing and later than every existing key,
  /// and keys are appended without searching; times that break the promise
  /// fall back to ordinary sorted insertion.
  bool blockAdd(TanimTimeArray* times, TdoubleArray* values, TtangentType inType,
                TtangentType outType, bool ascending);
  bool setBlockTangentXValue(unsigned first, unsigned last, TdoubleArray& values, bool inSide);
  bool setBlockTangentYValue(unsigned first, unsigned last, TdoubleArray& values, bool inSide);
  bool setBlockTanType(unsigned first, unsigned last, Tint16Array& types, bool inSide);
  /// Removes key `index` (undo brings back `undoKey`'s content when given,
  /// finite and at a time no other key holds; otherwise the key as it was).
  /// The automatic tangents of the keys next to the gap, the new first key
  /// included, are computed again, so the curve is what the remaining keys
  /// give when built afresh.
  void remove(unsigned index, const Tkeyframe* undoKey = nullptr, bool allSiblings = false);
  /// Deletes (or with deleteKeys false, forgets) every key; no scope, no deltas.
  void removeAllKeys(bool recreate = true, bool deleteKeys = true);
  /// Records a snapshot of the whole curve while recording.
  void generateCurveDeltas();
  /// Stops recording and hands the gathered delta to the caller (see
  /// TdeltaUser); the moves of the next modification keep states of their own.
  Tdelta* endMod() override;

  // --- Moving keys (edit/move_keys.cpp) ------------------------------------------------------
  // See "lumora/edit/move_keys.h" for the whole picture: an interactive drag is
  // beginEdit(kEditMoveKeys, ...), any number of moveKeys calls measured from
  // the keys' start times, then endEdit().

  /// Opens an edit of `mode`: for kEditMoveKeys the move list of the picked
  /// keys (beginMoveKeys); the dictionary form also forgets the cached
  /// quaternion data. False, with nothing changed, for a mode outside 0..3 or
  /// from inside one of the curve's own messages.
  bool beginEdit(TeditMode mode, const TpickKeyDictionary& picks);
  bool beginEdit(TeditMode mode, const TkeyframeHandlePtrArray& handles);
  /// Closes the open edit (drops the move list, or ends a scale) and resets
  /// the mode to kEditNone. False when no edit is open or from inside a message.
  bool endEdit();
  /// Builds the move list: one record per picked key of this curve (in
  /// dictionary or array order), then one per breakdown key that follows
  /// them. Replaces an open list. False from inside a message.
  bool beginMoveKeys(const TpickKeyDictionary& picks);
  bool beginMoveKeys(const TkeyframeHandlePtrArray& handles);
  /// Drops the move list and the breakdown records.
  void endMoveKeys();
  /// Ends a scale of keys: drops the breakdown records that it placed.
  void endScaleKeys();
  /// True while a move list is open.
  bool hasMoveList() const { return fMoveList != nullptr; }

  /// Whether the picked keys may move by (relative) or to (absolute) `time`.
  /// False for no pick, a time of the wrong kind, an absolute move of several
  /// keys, an option outside 0..3, or (kMoveKeepOrder) a move past a
  /// neighbour. `check` false answers true for any pick.
  bool canMove(const TpickKeyDictionary& picks, const TtimeValue& time, double value, bool relative,
               TmoveOption option, bool check) const;
  /// The handle form: the first and last handles stand for the block.
  bool canMove(const TkeyframeHandlePtrArray& handles, const TtimeValue& delta, double value,
               bool relative, TmoveOption option) const;
  /// Moves the picked keys by (relative) or to (absolute, one key) `time`
  /// and `value`, as one change. Opens and closes the move edit itself.
  bool moveKeys(const TpickKeyDictionary& picks, const TtimeValue& time, double value,
                bool relative, TmoveOption option, bool moveBreakdowns, bool setTime,
                bool setValue);
  /// The drag form, inside an open move edit: each picked key goes to its
  /// start time (startTimes[pick index]) plus `time` (relative) or to `time`.
  bool moveKeys(const TkeyframeHandlePtrArray& handles, const TtimeValueArray& startTimes,
                const TtimeValue& time, double value, TmoveOption option, bool moveBreakdowns,
                bool relative, bool setTime, bool setValue);
  /// Each key to its own time and value (by pick index), inside an open move edit.
  bool moveKeys(const TkeyframeHandlePtrArray& handles, const TtimeValueArray& newTimes,
                const TtimeValueArray& oldTimes, const TdoubleArray& newValues,
                const TdoubleArray& oldValues, TmoveOption option, bool moveBreakdowns);
  /// As the form above, for times only.
  bool replaceKeys(const TkeyframeHandlePtrArray& handles, const TtimeValueArray& newTimes,
                   const TtimeValueArray& oldTimes, TmoveOption option);
  /// Moves key `index` to `time` and `value` under the rules of `option`.
  /// With `recordUndo` false no undo record is made even while recording.
  bool moveKeyframe(unsigned index, const TtimeValue& time, double value, TmoveOption option,
                    bool recordUndo = true);
  /// The same for a quaternion rotation curve: the value and quaternion W
  /// come from `rotation`.
  bool moveKeyframe(unsigned index, const TtimeValue& time, const Tquaternion& rotation,
                    TmoveOption option, bool recordUndo = true);
  /// Changes key `index`'s value (and quaternion W; NaN keeps the key's).
  bool moveKeyframeInValue(unsigned index, double value,
                           double w = std::numeric_limits<double>::quiet_NaN());
  /// Puts the key `key` names to `time`, `value` and `w` for the undo and
  /// redo of a drag record; records nothing. The key may pass other keys.
  bool moveForDeltaUndoRedo(TkeyframeHandle* key, const TtimeValue& time, double value, double w,
                            TmoveOption option);
  /// Records, without moving anything, the undo of a move made while the
  /// curve was not recording: the keys of the open move list go back to
  /// `times` (by pick index) and values (see the header of move_keys.h).
  void generateDeltasForMove(const TkeyframeHandlePtrArray& handles, const TtimeValueArray& times,
                             const TdoubleArray* values, const double* value,
                             const TquaternionArray* rotations, TmoveOption option);
  /// Whether each single-key move recomputes automatic tangents at once.
  /// Multi-key moves switch it off while they run and recompute at the end.
  static bool perKeyTangentUpdate();
  /// Sets the tangent types of the picked keys and tangents.
  bool setTangentType(const TpickKeyDictionary& picks, TtangentType inType, TtangentType outType,
                      bool setIn, bool setOut);

  // --- Breakdown keys (edit/breakdown.cpp) ----------------------------------------------------
  // See "lumora/edit/breakdown.h".

  /// Whether key `index` is a breakdown key; false out of range.
  bool breakdown(unsigned index) const;
  /// Marks key `index` as a breakdown key or an ordinary one; records a
  /// TPCDbreakdown while recording. False out of range or when refused.
  bool setBreakdown(unsigned index, bool breakdown);
  /// A new record of breakdown key `index` (the caller owns it); null when
  /// the key is not a breakdown or has no ordinary neighbour.
  TbreakdownData* getBreakdownData(unsigned index) const;
  /// The cache position of the record of key `index`, or -1.
  int findBreakdownData(unsigned index) const;
  /// Records the breakdown keys that the ordinary key `handle` governs.
  void addBreakdownData(const TkeyframeHandle* handle);
  void getAffectedBreakdowns(const TkeyframeHandlePtrArray& handles);
  void getAffectedBreakdowns(const TpickKeyDictionary& picks);
  /// Moves every recorded breakdown key to where its record asks.
  void applyBreakdownCache();
  /// Drops every record.
  void flushBreakdownCache();
  /// The records cached now, in cache order.
  unsigned breakdownCacheCount() const;
  const TbreakdownData* breakdownCacheEntry(unsigned position) const;

  // --- Change notification --------------------------------------------------------------

  static TparamCurveMsgDepot& globalMsgDepot();
  static void addGlobalClient(Tclient* client, TclientCallback callback);
  static void addGlobalHelper(Tclient* client, TclientCallback callback);
  /// Removes the changed-curves registration only; a helper registration stays.
  static void removeGlobalClient(Tclient* client);
  static void delayMessages();
  static void resumeMessagesAndUpdate();
  /// Returns the previous setting.
  static bool suspendUpdates(bool suspend);
  /// False when the helpers refuse selection of a procedural or reference curve.
  bool canSelect();

  // --- Selection (select/curve_selection.cpp) ---

  /// Sets (`active` true, by the pick-merge rule) or clears the active flags
  /// of the keys `picks` names on this curve, in time order. Void picks,
  /// picks of other curves and picks whose key is not in the curve are
  /// skipped. Runs as one change (so helpers may refuse it, and global
  /// clients hear of the curve once) but sends no per-key message and
  /// records no undo. Nothing for a curve without keys.
  void setActive(const TpickKeyDictionary& picks, bool active);

 protected:
  bool deferredDeletion() const { return fCurveFlags.testBit(kFlagDeferredDeletion); }
  void setDeferredDeletion(bool on) {
    fCurveFlags.setBit(kFlagDeferredDeletion, on);
    touch();
  }

 private:
  friend class TparamCurveTestAccess;
  // The private operations undo records replay edits with.
  friend class internal::TcurveDeltaAccess;

  enum TcurveFlag : unsigned {
    kFlagStatic = 0,
    kFlagInFileIO = 1,
    kFlagNotifyDuringFileIO = 2,
    kFlagProcedural = 3,
    kFlagReference = 4,
    kFlagBlockAdd = 5,
    kFlagWeighted = 6,
    kFlagDeferredDeletion = 7,
    kFlagQuaternionCache = 8,
  };

  // --- Storage (curve/param_curve.cpp) ---
  TkeyArray* keyArray() const { return fFloatKeys ? fFloatKeys : fTickKeys; }
  /// find() for a time in seconds, without building a time value: the same
  /// answer as find(makeTimeValue(seconds), index).
  bool findSample(float seconds, unsigned& index) const;
  bool findSample(const TtimeValue& t, unsigned& index) const { return find(t, index); }
  /// makeTimeValue(seconds) < timeValue(key), without building time values.
  bool secondsBefore(float seconds, const Tkeyframe* key) const;
  unsigned physicalCount() const;
  void copyFrom(const TparamCurve& other);
  TtimeValue& timeValueRef(const Tkeyframe* key) const;
  TtimeValue& timeValueRef(unsigned i) const { return timeValueRef(keyframe(i)); }
  /// Inserts into whichever array exists; the index, or -1 when refused.
  int arrayInsert(Tkeyframe* key, unsigned hint);
  void invalidateCache(int index = -1);
  void dirtyQuaternionEulerCache(int index);
  void setTanIn(unsigned i, float x, float y);
  void setTanOut(unsigned i, float x, float y);
  TsegmentEvaluator* makeEvaluator(bool weighted) const;

  // --- Evaluation (curve/evaluate.cpp, curve/infinity.cpp) ---
  // Evaluation reads the curve and writes only the cursor it is given: the
  // curve's own for evaluate(), a caller's for the const overloads.

  /// Points `cursor` at this curve as it is now, forgetting its position.
  void adopt(TevalCursor& cursor) const;
  /// A new stamp: every cursor's state of this curve is stale from now on.
  void touch();
  double evaluateWith(float seconds, TevalCursor& c) const {
    // The shortcuts rely on IEEE rounding that relaxed float maths would
    // rewrite, so a host built that way always takes the library's path.
    if (!internal::kRelaxedFloatMath && c.fHermiteReady) [[likely]] {
      if (seconds > c.fLoadedSpanStart && seconds < c.fLoadedSpanEnd) {
        return c.fHermite.evaluate(seconds);
      }
      // Beyond the keys of a looping curve, the loaded span repeats once per
      // period. Where mapping a time into it provably rounds nowhere, its
      // image in the period mapped last is sampled like the span itself.
      const double t = seconds;
      if (t > c.fCycledSpanLo && t < c.fCycledSpanHi) {
        const double v = c.fHermite.evaluateAfterStart(t - c.fCycledSpanOrigin);
        return c.fCycleShift == 0.0 ? v : v + unfused(c.fCycleShift * c.fPeriods);
      }
      // Elsewhere: the post infinity's mapping into the keyed range, landing in
      // the loaded span, rounded as it rounds.
      if (c.fCycleRange != 0.0f && seconds > c.fCycleEnd) {
        float local;
        double periods;
        // Inside the period mapped last, one subtraction gives the offset
        // into it. When that offset is exactly a float and clear of both ends
        // of the period, the general mapping's division would round to this
        // same float (see TevalCursor::rememberCyclePeriod), so it can be
        // skipped.
        const double offset = t - c.fPeriodStart;
        const float q = static_cast<float>(offset);
        if (q > c.fPeriodOffsetMin && q < c.fPeriodOffsetMax && static_cast<double>(q) == offset) {
          local = q + c.fCycleStart;
          periods = c.fPeriods;
        } else {
          // x is positive here; below 2^52 its whole part is the truncation
          // (beyond, the general path handles it).
          const double x = (t - c.fCycleEnd) / c.fCycleRange;
          if (!(x < 4503599627370496.0)) return evaluateSample(seconds, c);
          const double whole = static_cast<double>(static_cast<std::int64_t>(x));
          local = static_cast<float>(c.fCycleRange * (x - whole)) + c.fCycleStart;
          periods = whole + 1.0;
        }
        if (local > c.fLoadedSpanStart && local < c.fLoadedSpanEnd) {
          const double v = c.fHermite.evaluate(local);
          return c.fCycleShift == 0.0 ? v : v + unfused(c.fCycleShift * periods);
        }
      }
    }
    // A weighted span answers inline only inside itself: its solve is too
    // long for the looping shortcuts to matter.
    if (!internal::kRelaxedFloatMath && c.fWeightedReady && seconds > c.fLoadedSpanStart &&
        seconds < c.fLoadedSpanEnd) {
      return c.fWeighted.evaluate(seconds);
    }
    return evaluateSample(seconds, c);
  }
  /// The loaded span's value at t when t lies strictly inside it and nothing
  /// else (rotation, static or deferred-deletion state) can apply; false otherwise.
  bool evaluateLoadedSpan(float t, const TevalCursor& c, double& value) const;
  /// Sets the range that inline sampling answers from the loaded span to
  /// where the cache walk, from the cache's current key, would end in that
  /// span too.
  void fitLoadedSpanToCache(TevalCursor& c) const;
  /// Evaluation past the inline shortcuts: infinities, static curve, cache
  /// walk, full search, span.
  double evaluateSample(float t, TevalCursor& c) const;
  double evaluateTime(const TtimeValue& t, TevalCursor& c) const;
  /// The answers that need no key lookup: a sample in the loaded span, a NaN
  /// time, a quaternion rotation curve. False when the keys must be consulted.
  bool evaluateBeforeKeys(float t, const TevalCursor& c, double& value) const;
  bool evaluateBeforeKeys(const TtimeValue& t, double& value) const;
  template <typename Probe>
  double evaluateInside(const Probe& probe, unsigned n, TevalCursor& c) const;
  /// Evaluation of a time that infinity evaluation mapped into the keyed
  /// range: like evaluate(), but never enters an infinity again.
  double evaluateMapped(float t, TevalCursor& c) const;
  double evaluateMapped(const TtimeValue& t, TevalCursor& c) const;
  /// The span from key a to key b = key `end`, at t seconds.
  double evaluateSpan(const Tkeyframe* a, const Tkeyframe* b, unsigned end, double t,
                      TevalCursor& c) const;
  /// Loads the span from key i to key i + 1 into the cursor.
  void loadSpan(unsigned i, TevalCursor& c) const;
  /// Loads that span into the curve's cursor and into its segment evaluator,
  /// for the operations that split it.
  void setInterpolationInterval(unsigned i);
  void setSpanInterpMethod(unsigned i);
  double evaluateInfinities(float t, bool pre, unsigned n, TevalCursor& c) const;
  double evaluateInfinities(const TtimeValue& t, bool pre, TevalCursor& c) const;
  /// Quaternion evaluation of rotation curves; reports through `failed`
  /// whether it handled the time.
  double evaluateQuaternionAsEulerComponent(float t, bool* failed) const;
  void setInfinityType(TinfinityType type, bool pre);
  /// The curves a rotation-wide setting applies to: the three siblings for a
  /// quaternion rotation curve whose host provides them, else this curve alone
  /// (the other two slots null).
  void rotationCurveSet(TparamCurve* (&curves)[3]);
  void recordInfinityDelta(bool pre, TinfinityType oldType, TinfinityType newType);
  void recordWeightedDelta();
  void adaptFixedTangentsForWeighting(bool weighted);

  // --- Tangents (edit/tangents.cpp) ---
  bool modifyTangents(unsigned index);
  bool tangentMethodIdentifier(unsigned index, bool inSide, bool otherSideDone);
  void modifyTangentHelper(unsigned index);
  bool modifySmoothTangents(unsigned first, unsigned last);
  bool modifyLinearTangents(unsigned first, unsigned last);
  void recomputeTangents(TkeyframeHandlePtrArray& keys);
  void setTanIn(Tkeyframe* key, float x, float y);
  void setTanOut(Tkeyframe* key, float x, float y);
  /// setTanIn when `side` is Tkeyframe::kInSide, otherwise setTanOut.
  void setTangent(Tkeyframe* key, TpickKey::TpickBits side, float x, float y);
  void scaleTangentX(Tkeyframe* key, float factor);
  void scaleTangentY(Tkeyframe* key, float factor);
  void checkStaticValueCondition(unsigned index);
  void checkStaticTanCondition(unsigned index);

  // --- Adding and removing (edit/add_remove.cpp) ---
  bool insertKey(const Tkeyframe& key, bool keepShape);
  bool setBlockTangentComponent(unsigned first, unsigned last, TdoubleArray& values, bool inSide,
                                bool xComponent);
  /// A key at `time` that leaves the curve unchanged, owned by the caller;
  /// null for an unusable time or where the curve's arithmetic overflows.
  Tkeyframe* newMatchingKeyframe(const TtimeValue& time);
  bool addRemovedKey(Tkeyframe* key);
  bool replaceKey(Tkeyframe* key, const Tkeyframe& newState);
  bool addDelta(Tdelta* delta, bool atEnd);

  // --- Moving keys (edit/move_keys.cpp) ---
  bool moveKeyframeHelper(Tkeyframe* key, unsigned index, const TtimeValue& time, double value,
                          double w, TmoveOption option, bool recordUndo);
  bool applyMoveKeyList(const TtimeValue& delta, double value, bool setValue, bool relative,
                        TmoveOption option, bool moveBreakdowns, bool fromPicks);
  void swapKeys(unsigned from, unsigned to);
  bool moveEachKey(const TkeyframeHandlePtrArray& handles, const TtimeValueArray& newTimes,
                   const TdoubleArray* newValues, TmoveOption option, bool moveBreakdowns);
  /// Moves the keys of `handles` by offsets as the segment drag record
  /// replays them, through a move list of its own.
  bool moveBlockForDeltaUndoRedo(const TkeyframeHandlePtrArray& handles, const TtimeValue& offset,
                                 double valueOffset, TmoveOption option, bool moveBreakdowns);
  /// Frees the move list and the breakdown cache (destruction).
  void dropEditState();
  /// Places the targets of the breakdown records from their neighbours'.
  void placeBreakdownTargets();
  /// Sets one lock of key `index` inside an open change, recording the
  /// key's states; nothing when the lock is already so.
  void setKeyLock(unsigned index, bool locked, bool weights);
  // Tangent geometry (edit/tangent_edit.cpp): each computes a tangent (x, y)
  // without touching the key, but for manageTangentChangeWhenLocked.
  void setTangentAngle(unsigned index, const Tangle& angle, bool inSide, float& x, float& y,
                       float a, float b) const;
  void setTangentWeight(unsigned index, float weight, bool inSide, float& x, float& y, float a,
                        float b) const;
  /// Absolute or relative edits of a side's angle and weight; the largest
  /// float weight and an angle of the largest double in degrees leave that
  /// part as it is.
  void editTangent(unsigned index, bool relative, const Tangle& angle, float weight, bool inSide,
                   float& x, float& y, float a, float b) const;
  /// (x, y) takes the view length of (refX, refY), keeping its direction.
  void adjustForWeightLock(float a, float b, float refX, float refY, float& x, float& y) const;
  /// (x, y) takes the direction of (refX, refY), keeping its view length.
  void adjustForAngleLock(float a, float b, float refX, float refY, float& x, float& y) const;
  /// Turns and stretches the other side of a locked key as the dragged side
  /// went from (oldX, oldY) to (x, y); pulls the dragged side back where the
  /// other cannot follow. True when it could follow as dragged.
  bool preserveTangentLock(float s, float oldX, float oldY, float& x, float& y, float otherX,
                           float otherY, float& outX, float& outY) const;
  /// After side `inSide` of key `index` was dragged from (oldX, oldY): the
  /// other side follows through the lock, or the dragged side goes back.
  bool manageTangentChangeWhenLocked(float s, unsigned index, float oldX, float oldY, bool inSide);
  /// The step every tangent edit ends in: side `inSide` of key `index` (in
  /// an open change) takes (x, y) through the segment evaluator and becomes
  /// fixed; with `follow` the other side follows through
  /// manageTangentChangeWhenLocked (value scale `s`), the key held by the
  /// temporary lock meanwhile when `temporaryLock`. Records a TPCDdragTan
  /// per changed side while recording. False, with the keys of this curve
  /// and its rotation siblings as they were and nothing recorded, when the
  /// lock cannot hold.
  bool writeTangentEdit(unsigned index, bool inSide, float x, float y, bool follow,
                        bool temporaryLock, float s);
  /// The pick form of adjustTangent on key `index` with the pick bits
  /// `bits` (in and out tangent bits) and the drag of the side already taken
  /// relative to its reference (and negated as asked).
  bool adjustPickedTangent(unsigned bits, unsigned index, float dragX, float dragY, float xScale,
                           float yScale, float valueScale, bool angleLock);
  /// The handle form of adjustTangent on key `index`.
  bool typeTangent(unsigned index, bool inSide, bool relative, const Tangle& angle, float weight,
                   float xScale, float yScale);
  /// The index of the key a pick names in this curve, looked for around
  /// `hint` first; kInvalidIndex when it names none here.
  unsigned pickedIndex(const TpickKey& pick, unsigned hint) const;
  bool setPickedLocks(const TpickKeyDictionary& picks, bool locked, bool weights);
  /// Adds the breakdown keys of the cache to the move list, as keys that
  /// follow the move without being picked.
  void listBreakdownFollowers();
  /// Notes the keys around `index` in the move journal before they change.
  void noteMoveBefore(unsigned index);
  /// Brackets a move operation; the outermost one closes the journal's
  /// states and tidies the gathered delta.
  void beginMoveOperation();
  void endMoveOperation();
  /// Recomputes the automatic tangents around the given keys.
  void recomputeTangentsAround(std::vector<std::pair<Tkeyframe*, unsigned>>& keys);

  // --- Change scopes (notify/change_scope.cpp) ---
  bool beginChange();
  void endChange(bool changed);
  void notifyClientsOfChange(Tkeyframe* key, TparamCurveModifiedMsg::TmessageType type);
  void notifyClientsOfChange(unsigned index, TparamCurveModifiedMsg::TmessageType type);
  void sendAddDeleteMessage(Tkeyframe* key, bool added);
  static void disableAnimCurveModelUpdates();

  // --- Data ---
  TrotationInterpolation fRotationInterpolation = kEuler;
  TsiblingCurvesCallback fSiblingCurvesCallback = nullptr;
  TinfinityType fPreInfinity = kConstant;
  TinfinityType fPostInfinity = kConstant;
  TkeyArray* fFloatKeys = nullptr;
  TkeyArray* fTickKeys = nullptr;
  void* fTdnCurve = nullptr;
  TbitField16 fCurveFlags;
  TeditMode fEditMode = kEditNone;
  // The records of the open move edit; null outside one.
  internal::TmoveList* fMoveList = nullptr;
  // Breakdown keys recorded for the edit under way; null when none.
  internal::TbreakdownCache* fBreakdownCache = nullptr;
  // The full key states of the moves recorded during this modification,
  // shared with their undo records (see notify/internal/move_journal.h).
  std::shared_ptr<internal::TmoveJournal> fMoveJournal;
  // Outermost move operations under way on this curve.
  std::uint16_t fMoveDepth = 0;
  // The cursor evaluate() answers through.
  TevalCursor fCursor;
  std::uint64_t fEditStamp = 0;
  TsegmentEvaluator* fSegmentEvaluator = nullptr;
  std::uint16_t fChangeDepth = 0;
  // Sends of this curve's own messages in progress (to its clients, or to the
  // helpers while it opens a scope or reports its first change): edits of
  // the curve are refused meanwhile.
  std::uint16_t fSendDepth = 0;
  TparamCurve* fSiblingX = nullptr;
  TparamCurve* fSiblingY = nullptr;
  TparamCurve* fSiblingZ = nullptr;
  bool fConnectionsDirty = false;
  bool fChangedInChange = false;
};

}  // namespace lumora
