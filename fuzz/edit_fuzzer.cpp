// The edit-sequence fuzzer: decodes bytes into public curve edits, runs them
// the way a host would (observers reading the curve during every message,
// handles kept across edits, recordings undone and redone on an undo stack)
// and checks the curves after every step. See edit_sequence.h.
#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/edit_arguments.h"
#include "fuzz/edit_sequence.h"
#include "lumora/base/angle.h"
#include "lumora/base/arena.h"
#include "lumora/base/client_server.h"
#include "lumora/base/server_msg.h"
#include "lumora/base/time_arrays.h"
#include "lumora/base/time_value.h"
#include "lumora/base/typed_array.h"
#include "lumora/curve/curve_sampler.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/notify/msg_depot.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/notify/param_curve_msgs.h"
#include "lumora/select/pick_key.h"
#include "lumora/select/pick_key_dictionary.h"
#include "lumora/select/pick_key_list.h"
#include "testing/curve_invariants.h"
#include "testing/curve_snapshot.h"

namespace lumora::fuzz {
namespace {

constexpr unsigned kMaxCurves = 3;
constexpr unsigned kMaxSteps = 96;
// Keeps every run small: a curve this full takes no more keys from the fuzzer.
constexpr unsigned kMaxKeys = 48;
constexpr std::size_t kKeptMessageHandles = 6;
constexpr std::size_t kMaxHandles = 12;
// Undo records keep key selection to the key object, so it is left out.
constexpr std::uint32_t kSnapshotFlags = ~TcurveSnapshot::kSelectionFlags;

// --- The step log and failures -------------------------------------------------------

std::vector<std::string> gSteps;
bool gTrace = false;

void logStep(std::string step) {
  if (gTrace) std::fprintf(stderr, "step %zu: %s\n", gSteps.size(), step.c_str());
  gSteps.push_back(std::move(step));
}

void printCurves();

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "\n== lumora_edit_fuzzer: check failed after %zu steps\n", gSteps.size());
  for (std::size_t i = 0; i < gSteps.size(); ++i) {
    std::fprintf(stderr, "  step %zu: %s\n", i, gSteps[i].c_str());
  }
  printCurves();
  std::fprintf(stderr, "== %s\n", what.c_str());
  std::abort();
}

void expect(bool ok, const std::string& what) {
  if (!ok) fail(what);
}

// --- Observers ---------------------------------------------------------------------------

// A handle the fuzzer holds, with whether its record observes the curve.
struct TheldHandle {
  TkeyframeHandle handle;
  bool registered = false;
};

// The curve's own client, registered for every message the curve sends: it
// reads the curve during each one and keeps registered copies of the handles
// that modified-messages carry, as a host's views do.
class TcurveObserver : public Tclient {
 public:
  static void onMessage(Tclient* client, TclientServer* server, const TserverMsg& msg);

  std::vector<TheldHandle> fKept;  // the most recent copies, oldest first
  unsigned fMessages = 0;
};

// The global client: reads every curve a changed-curves message lists.
class TglobalObserver : public Tclient {
 public:
  static void onChanged(Tclient* client, TclientServer* server, const TserverMsg& msg);
};

// --- Curves and the undo stack ------------------------------------------------------------

// One finished recording on the host's undo or redo stack.
struct Taction {
  std::unique_ptr<TparamCurveDeltaUser> delta;
  unsigned curve = 0;
  TcurveSnapshot before;
  TcurveSnapshot after;
  // Set once an action of the curve that does not undo exactly was recorded,
  // undone or redone: the snapshots no longer describe the states this action
  // moves between, so it is still undone and redone but no longer compared.
  bool stale = false;
};

struct TcurveSlot {
  // The observer outlives the curve it observes.
  std::unique_ptr<TcurveObserver> observer;
  // A host's cursor, kept across edits and curve replacements: it must notice
  // every one of them.
  TevalCursor cursor;
  // A snapshot taken at the previous check and what it answered then: no
  // edit, replacement or destruction of the curve since may change that.
  TcurveSampler sampler;
  float sampledAt = 0.0f;
  double sampled = 0.0;
  std::unique_ptr<TparamCurve> curve;
  std::unique_ptr<TparamCurveDeltaUser> recording;
  std::unique_ptr<TcurveSnapshot> recordingStart;
  // Why the open recording cannot be expected to undo and redo exactly;
  // empty when it can.
  std::string inexact;
  // The open recording must not be undone at all (see TsilentEdit).
  bool neverUndo = false;
};

struct Tstate {
  TcurveSlot slots[kMaxCurves];
  unsigned curveCount = 1;
  std::vector<TheldHandle> handles;
  std::vector<Taction> undoStack;
  std::vector<Taction> redoStack;
  unsigned delayDepth = 0;
  bool suspended = false;
  // Whether the curves name each other as rotation siblings (x, y, z).
  bool siblings = false;
};

Tstate* gState = nullptr;

bool contains(const TparamCurve& curve, const Tkeyframe* key) {
  for (unsigned i = 0; i < curve.keyframeCount(); ++i) {
    if (curve.keyframe(i) == key) return true;
  }
  return false;
}

// The index of the key object in the curve, or kInvalidIndex.
unsigned indexOf(const TparamCurve& curve, const Tkeyframe* key) {
  for (unsigned i = 0; i < curve.keyframeCount(); ++i) {
    if (curve.keyframe(i) == key) return i;
  }
  return TparamCurve::kInvalidIndex;
}

bool isLiveCurve(const TparamCurve* curve) {
  if (!gState || !curve) return false;
  for (const TcurveSlot& s : gState->slots) {
    if (s.curve.get() == curve) return true;
  }
  return false;
}

// Every read a host makes of a curve it is told about.
void readCurve(TparamCurve& curve) {
  volatile double sink = 0.0;
  const unsigned n = curve.keyframeCount();
  for (unsigned i = 0; i < n; ++i) {
    const Tkeyframe* key = curve.keyframe(i);
    if (!key) continue;
    float x = 0.0f, y = 0.0f;
    key->getTanIn(x, y);
    key->getTanOut(x, y);
    sink = sink + key->value() + curve.seconds(key) + x + y;
  }
  const float probes[] = {-1.0f, 0.25f, 1.5f, 40.0f};
  for (const float t : probes) sink = sink + curve.evaluate(t);
  if (n > 0) sink = sink + curve.evaluate(curve.timeValue(n / 2));
  (void)sink;
}

// The queries of a handle the host kept; only made where they may read the key.
void queryHandle(const TheldHandle& held) {
  const TkeyframeHandle& h = held.handle;
  TparamCurve* curve = h.paramCurve();
  if (!curve || !h.keyframe()) return;
  // An unregistered handle cannot know its key left; ask only while it is in.
  if (!held.registered && !contains(*curve, h.keyframe())) return;
  volatile double sink = h.value() + h.seconds();
  float x = 0.0f, y = 0.0f;
  (void)h.getTanIn(x, y);
  (void)h.getTanOut(x, y);
  sink = sink + x + y + h.index();
  (void)sink;
}

void TcurveObserver::onMessage(Tclient* client, TclientServer* server, const TserverMsg& msg) {
  auto* self = static_cast<TcurveObserver*>(client);
  ++self->fMessages;
  auto* curve = static_cast<TparamCurve*>(server);
  if (const auto* modified = dynamic_cast<const TparamCurveModifiedMsg*>(&msg)) {
    readCurve(*curve);
    expect(modified->keyframeHandle() != nullptr, "a modified message came without a handle");
    TheldHandle copy{TkeyframeHandle(*modified->keyframeHandle(), /*makeClient=*/true), true};
    queryHandle(copy);
    if (self->fKept.size() == kKeptMessageHandles) self->fKept.erase(self->fKept.begin());
    self->fKept.push_back(std::move(copy));
    for (const TheldHandle& kept : self->fKept) queryHandle(kept);
    return;
  }
  if (const auto* addDelete = dynamic_cast<const TkeyframeAddDeleteMsg*>(&msg)) {
    // The key object outlives its removal, so a listener may look at it.
    if (const Tkeyframe* key = addDelete->keyframe()) {
      volatile double sink = key->value() + key->timeAsTicks();
      (void)sink;
    }
    readCurve(*curve);
    return;
  }
  if (dynamic_cast<const TkeyframeMovedMsg*>(&msg)) readCurve(*curve);
}

void TglobalObserver::onChanged(Tclient*, TclientServer*, const TserverMsg& msg) {
  const auto* changed = dynamic_cast<const TparamCurveChangedMsg*>(&msg);
  if (!changed || !changed->curves()) return;
  const TparamCurvePtrArray& curves = *changed->curves();
  for (unsigned i = 0; i < curves.count(); ++i) {
    TparamCurve* c = curves[i];
    expect(isLiveCurve(c), format("the changed-curves message lists a curve (%p) that is not alive",
                                  static_cast<void*>(c)));
    readCurve(*c);
  }
}

// The keys of every curve as they are now, after the step log of a failure.
void printCurves() {
  if (!gState) return;
  for (unsigned c = 0; c < gState->curveCount; ++c) {
    const TparamCurve* curve = gState->slots[c].curve.get();
    if (!curve) continue;
    std::fprintf(stderr, "  curve %u: %s, weighted=%s, infinities %d/%d, %u keys\n", c,
                 curve->isFloat() ? "float" : "tick", boolName(curve->isWeighted()),
                 curve->preInfinityType(), curve->postInfinityType(), curve->keyframeCount());
    for (unsigned i = 0; i < curve->keyframeCount() && i < 16; ++i) {
      const Tkeyframe* k = curve->keyframe(i);
      if (!k) continue;
      float ix = 0.0f, iy = 0.0f, ox = 0.0f, oy = 0.0f;
      k->getTanIn(ix, iy);
      k->getTanOut(ox, oy);
      std::fprintf(stderr,
                   "    key %u: %s %.9g s (%d ticks), value %.17g, in %d (%.9g, %.9g), out %d "
                   "(%.9g, %.9g)\n",
                   i, curve->isFloat() ? "float" : "tick", static_cast<double>(curve->seconds(k)),
                   k->timeAsTicks(), k->value(), k->tanInType(), static_cast<double>(ix),
                   static_cast<double>(iy), k->tanOutType(), static_cast<double>(ox),
                   static_cast<double>(oy));
    }
  }
}

// --- Recording bookkeeping ----------------------------------------------------------------

bool recording(unsigned c) {
  return gState->slots[c].recording != nullptr;
}

// Marks the open recording of curve `c` as one that will not undo and redo
// exactly, for a reason the library documents.
void recordingInexact(unsigned c, const std::string& why) {
  TcurveSlot& s = gState->slots[c];
  if (s.recording && s.inexact.empty()) s.inexact = why;
}

std::vector<const Tkeyframe*> keyObjects(const TparamCurve& curve) {
  std::vector<const Tkeyframe*> keys;
  for (unsigned i = 0; i < curve.keyframeCount(); ++i) keys.push_back(curve.keyframe(i));
  return keys;
}

// An edit that records no delta of its own: while the curve records, a
// snapshot of the whole curve is recorded first. Such a snapshot gives back
// the states of the key objects it saw, and cannot bring back a key object
// the edit deleted, nor redo one the edit added.
class TsilentEdit {
 public:
  explicit TsilentEdit(unsigned c) : fCurve(c) {
    if (!recording(c)) return;
    const TparamCurve& curve = *gState->slots[c].curve;
    gState->slots[c].curve->generateCurveDeltas();
    fKeys = keyObjects(curve);
    std::sort(fKeys.begin(), fKeys.end());
  }
  ~TsilentEdit() {
    if (!recording(fCurve)) return;
    // Moving keys reorders the same objects, which the snapshot puts back.
    std::vector<const Tkeyframe*> now = keyObjects(*gState->slots[fCurve].curve);
    std::sort(now.begin(), now.end());
    if (now == fKeys) return;
    // A key object that an unrecorded edit deleted can only come back as a
    // new object with the same state; one it added goes and comes back.
    recordingInexact(fCurve, "a silent edit deleted key objects");
  }
  TsilentEdit(const TsilentEdit&) = delete;
  TsilentEdit& operator=(const TsilentEdit&) = delete;

 private:
  unsigned fCurve;
  std::vector<const Tkeyframe*> fKeys;
};

// An edit outside every recording. A host records every edit it makes, so
// one it did not record ends the undo history of the curve: the actions may
// name key objects the edit has deleted since.
void dropActionsOf(unsigned c);
void editedOutsideRecording(unsigned c) {
  if (!recording(c)) dropActionsOf(c);
}

// Undoing or redoing a stale action leaves the curve somewhere no snapshot
// describes, so every action of the curve becomes stale with it.
void movedByStaleAction(unsigned c) {
  for (Taction& a : gState->undoStack) a.stale = a.stale || a.curve == c;
  for (Taction& a : gState->redoStack) a.stale = a.stale || a.curve == c;
}

void expectSnapshot(const TcurveSnapshot& expected, unsigned c, const char* when) {
  const TcurveSnapshot now(*gState->slots[c].curve, kSnapshotFlags);
  const std::string d = describeDifference(expected, now);
  expect(d.empty(), format("curve %u %s: %s", c, when, d.c_str()));
}

void dropActionsOf(unsigned c) {
  const auto ofCurve = [c](const Taction& a) { return a.curve == c; };
  std::erase_if(gState->redoStack, ofCurve);
  std::erase_if(gState->undoStack, ofCurve);
}

// --- Checks -----------------------------------------------------------------------------------

void checkHandle(const TheldHandle& held, const char* kind, std::size_t i) {
  const TkeyframeHandle& h = held.handle;
  if (!held.registered) return;
  TparamCurve* curve = h.paramCurve();
  if (!curve || !h.keyframe()) return;
  expect(isLiveCurve(curve), format("%s handle %zu names a destroyed curve", kind, i));
  const unsigned where = indexOf(*curve, h.keyframe());
  const bool in = where != TparamCurve::kInvalidIndex;
  expect(h.isValid() == in,
         format("%s handle %zu: isValid() is %s but its key object is %s its curve", kind, i,
                boolName(h.isValid()), in ? "in" : "not in"));
  if (in) {
    expect(h.index() == where,
           format("%s handle %zu: index() %u, key object at %u", kind, i, h.index(), where));
  }
  queryHandle(held);
}

// Whether `seconds` lies beyond the keys of a looping curve where its image
// in the keyed range falls near a key (or the period is tiny, or the time is
// far out). Near a key the cache walk and the tolerant full search answer
// differently by design (the walk compares exactly, the search within the key
// tolerance), so an image there may depend on the cache as a time there does.
bool nearCycledKey(const TparamCurve& curve, float seconds) {
  const unsigned n = curve.keyframeCount();
  if (n == 0 || std::isnan(seconds)) return false;
  const auto loops = [](TparamCurve::TinfinityType t) {
    return t == TparamCurve::kCycle || t == TparamCurve::kCycleRelative ||
           t == TparamCurve::kOscillate;
  };
  const double first = curve.seconds(0u), last = curve.seconds(n - 1);
  const bool before = seconds < first && loops(curve.preInfinityType());
  const bool after = seconds > last && loops(curve.postInfinityType());
  if (!before && !after) return false;
  const double range = last - first;
  if (range < 1e-3 || !(std::fabs(seconds) <= 1e6)) return true;
  // Oscillation mirrors every other period; both images are tried.
  const double offset = std::fmod(static_cast<double>(seconds) - first, range);
  const double images[] = {first + offset, first + offset + range, last - offset, first - offset};
  // Far from zero, float seconds are coarse: "near" grows with the times.
  const double near = 1e-4 + 1e-6 * (std::fabs(first) + std::fabs(last));
  for (const double image : images) {
    for (unsigned i = 0; i < n; ++i) {
      if (std::fabs(image - curve.seconds(i)) < near) return true;
    }
  }
  return false;
}

void checkAll(Treader& in) {
  for (unsigned c = 0; c < gState->curveCount; ++c) {
    TparamCurve& curve = *gState->slots[c].curve;
    const std::string bad = checkCurveInvariants(curve);
    expect(bad.empty(), format("curve %u: %s", c, bad.c_str()));
    const float t = decodeSeconds(in, curve);
    const float warm = decodeSeconds(in, curve);
    const std::string cache =
        nearCycledKey(curve, t) ? std::string() : checkEvaluationIndependentOfCache(curve, t, warm);
    expect(cache.empty(), format("curve %u: %s", c, cache.c_str()));
    const std::string cursor =
        nearCycledKey(curve, t) ? std::string()
                                : checkCursorAgreesWithFreshCopy(curve, gState->slots[c].cursor, t);
    expect(cursor.empty(), format("curve %u: %s", c, cursor.c_str()));
    TcurveSlot& slot = gState->slots[c];
    const double again = slot.sampler.evaluate(slot.sampledAt);
    expect(std::bit_cast<std::uint64_t>(again) == std::bit_cast<std::uint64_t>(slot.sampled),
           format("curve %u: a sampler answered %.17g at %.9g s, %.17g before later edits", c,
                  again, static_cast<double>(slot.sampledAt), slot.sampled));
    slot.sampler = TcurveSampler(curve);
    const std::string sampler = checkSamplerAgreesWithCurve(curve, slot.sampler, t);
    expect(sampler.empty(), format("curve %u: %s", c, sampler.c_str()));
    slot.sampledAt = t;
    slot.sampled = slot.sampler.evaluate(t);
    const auto& kept = gState->slots[c].observer->fKept;
    for (std::size_t i = 0; i < kept.size(); ++i) checkHandle(kept[i], "message", i);
  }
  for (std::size_t i = 0; i < gState->handles.size(); ++i) {
    checkHandle(gState->handles[i], "held", i);
  }
}

// --- Curve lifetime ---------------------------------------------------------------------------

void attachObserver(unsigned c) {
  TcurveSlot& s = gState->slots[c];
  s.curve->addClient(s.observer.get(), TserverMsgTmeta, &TcurveObserver::onMessage);
}

void makeCurve(unsigned c, bool isFloat, bool weighted) {
  TcurveSlot& s = gState->slots[c];
  if (!s.observer) s.observer = std::make_unique<TcurveObserver>();
  s.curve = std::make_unique<TparamCurve>(isFloat);
  s.curve->setIsWeighted(weighted);
  attachObserver(c);
}

// Everything the host drops with a curve: its actions, its open recording
// and the unregistered handles, which could not learn that it is gone.
void destroyCurve(unsigned c) {
  TcurveSlot& s = gState->slots[c];
  dropActionsOf(c);
  if (s.recording) {
    s.recording->endParamCurveMod(*s.curve);
    s.recording.reset();
    s.recordingStart.reset();
  }
  TparamCurve* old = s.curve.get();
  std::erase_if(gState->handles, [old](const TheldHandle& h) {
    return !h.registered && h.handle.paramCurve() == old;
  });
  s.curve.reset();
}

// --- Operations -----------------------------------------------------------------------------

enum Top : std::uint8_t {
  kOpAdd,
  kOpInsertTime,
  kOpInsertKey,
  kOpInsertOwned,
  kOpBlockAddTemplate,
  kOpBlockAddRef,
  kOpBlockAddPtr,
  kOpBlockTangent,
  kOpBlockTanType,
  kOpRemove,
  kOpRemoveAll,
  kOpSetValue,
  kOpSetTime,
  kOpSetTanType,
  kOpDragTangent,
  kOpInfinity,
  kOpWeighted,
  kOpRotation,
  kOpBlockAddMode,
  kOpNoUpdate,
  kOpMarkDirty,
  kOpEvaluate,
  kOpMakeHandle,
  kOpHandleCopyOrDrop,
  kOpCurveCopy,
  kOpDelay,
  kOpSuspend,
  kOpBegin,
  kOpEnd,
  kOpUndo,
  kOpRedo,
  kOpDropAction,
  kOpGenerateDeltas,
  kOpSiblings,
  kOpSelect,
  kOpMovePicks,
  kOpDrag,
  kOpMoveKeyframe,
  kOpBreakdown,
  kOpMoveEdit,
  kOpQuery,
  kOpLocks,
  kOpAdjustTangent,
  kOpTangentEdits,
  kOpCount
};

void finishRecording(unsigned c) {
  TcurveSlot& s = gState->slots[c];
  TparamCurve& curve = *s.curve;
  std::unique_ptr<TparamCurveDeltaUser> action = std::move(s.recording);
  std::unique_ptr<TcurveSnapshot> before = std::move(s.recordingStart);
  const std::string inexact = std::move(s.inexact);
  s.inexact.clear();
  const TcurveSnapshot after(curve, kSnapshotFlags);
  const bool recorded = action->endParamCurveMod(curve);
  logStep(format("curve %u: endParamCurveMod -> %s%s%s", c, boolName(recorded),
                 inexact.empty() ? "" : "; not exact: ", inexact.c_str()));
  if (!recorded) {
    s.neverUndo = false;
    if (inexact.empty()) expectSnapshot(*before, c, "after a recording that recorded nothing");
    movedByStaleAction(c);
    return;
  }
  gState->redoStack.clear();
  if (std::exchange(s.neverUndo, false)) {
    // The older actions may name keys that this one owned: they go with it.
    logStep(format("curve %u: the action is dropped without undo, with the older ones", c));
    dropActionsOf(c);
    return;
  }
  if (!inexact.empty()) {
    // Nothing to compare with: the action and every older one are stale.
    action->undoPC();
    action->redoPC();
    gState->undoStack.push_back(Taction{std::move(action), c, *before, after, true});
    movedByStaleAction(c);
    return;
  }
  action->undoPC();
  expectSnapshot(*before, c, "after undoPC of the recording just finished");
  action->redoPC();
  expectSnapshot(after, c, "after redoPC of the recording just finished");
  gState->undoStack.push_back(Taction{std::move(action), c, *before, after, false});
}

// What a step works on: the input, the curve it was given (index, slot and
// curve), the curve's key count before the step and the operation.
struct Tstep {
  Treader& in;
  unsigned c;
  TcurveSlot& slot;
  TparamCurve& curve;
  unsigned n;
  bool full;  // the curve takes no more keys
  Top op;
};

void opAdd(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const bool full = step.full;
  const Tkeyframe key = decodeKey(in, curve);
  const bool ignored = in.flag(), siblings = in.flag();
  if (full) return;
  logStep(format("curve %u: add(%s, %s, %s)", c, describeKey(key, curve).c_str(), boolName(ignored),
                 boolName(siblings)));
  (void)curve.add(key, ignored, siblings);
  editedOutsideRecording(c);
}

void opInsertTime(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const bool full = step.full;
  const TtimeValue t = decodeTime(in, curve);
  const bool breakdown = in.flag(), siblings = in.flag();
  if (full) return;
  logStep(format("curve %u: insert(%s, breakdown=%s, %s)", c, describeTime(t).c_str(),
                 boolName(breakdown), boolName(siblings)));
  (void)curve.insert(t, breakdown, siblings);
  editedOutsideRecording(c);
}

void opInsertKey(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const bool full = step.full;
  const Tkeyframe key = decodeKey(in, curve);
  const bool keepShape = in.flag(), siblings = in.flag();
  if (full) return;
  logStep(format("curve %u: insert(%s, keepShape=%s, %s)", c, describeKey(key, curve).c_str(),
                 boolName(keepShape), boolName(siblings)));
  (void)curve.insert(key, keepShape, siblings);
  editedOutsideRecording(c);
}

void opInsertOwned(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const bool full = step.full;
  auto* key = new Tkeyframe(decodeKey(in, curve));
  const bool siblings = in.flag();
  if (full) {
    delete key;
    return;
  }
  logStep(format("curve %u: insert(new %s, %s)", c, describeKey(*key, curve).c_str(),
                 boolName(siblings)));
  // This form records no delta: a host snapshots the curve first, as for
  // every edit that records nothing.
  const TsilentEdit silent(c);
  if (!curve.insert(key, siblings)) delete key;
  editedOutsideRecording(c);
}

void opBlockAdd(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const bool full = step.full;
  const Top op = step.op;
  const unsigned count = in.u8() % 9;
  const unsigned valueCount = in.flag() ? count : in.u8() % 9;
  TdoubleArray seconds, values;
  TanimTimeArray ticks;
  for (unsigned j = 0; j < count; ++j) {
    const float s = decodeSeconds(in, curve);
    seconds.addLast(s);
    TanimTime t;
    t.setTicks(in.flag() ? static_cast<std::int32_t>(in.u32())
                         : static_cast<std::int32_t>(std::lround(
                               std::clamp(static_cast<double>(s) * 6000.0, -2e9, 2e9))));
    ticks.addLast(t);
  }
  for (unsigned j = 0; j < valueCount; ++j) values.addLast(decodeValue(in));
  const TtangentType tin = decodeTangentType(in), tout = decodeTangentType(in);
  const bool ascending = in.flag(), nullTimes = in.u8() == 7;
  if (full) return;
  const TsilentEdit silent(c);
  const std::string valueList = listOf(values);
  if (op == kOpBlockAddTemplate) {
    const Tkeyframe templ = decodeKey(in, curve);
    logStep(format("curve %u: blockAdd(%s, seconds %s, values %s)", c,
                   describeKey(templ, curve).c_str(), nullTimes ? "null" : listOf(seconds).c_str(),
                   valueList.c_str()));
    (void)curve.blockAdd(templ, nullTimes ? nullptr : &seconds, &values);
  } else if (op == kOpBlockAddRef) {
    logStep(format("curve %u: blockAdd(ticks %s, values %s, in %d, out %d)", c,
                   listOf(ticks).c_str(), valueList.c_str(), tin, tout));
    (void)curve.blockAdd(ticks, values, tin, tout);
  } else {
    logStep(format("curve %u: blockAdd(ticks %s, values %s, in %d, out %d, ascending=%s)", c,
                   nullTimes ? "null" : listOf(ticks).c_str(), valueList.c_str(), tin, tout,
                   boolName(ascending)));
    (void)curve.blockAdd(nullTimes ? nullptr : &ticks, &values, tin, tout, ascending);
  }
  editedOutsideRecording(c);
}

void opBlockTangent(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned first = decodeIndex(in, curve), last = decodeIndex(in, curve);
  const bool inSide = in.flag(), x = in.flag();
  TdoubleArray values;
  const unsigned count = in.u8() % 6;
  for (unsigned j = 0; j < count; ++j) values.addLast(decodeValue(in));
  const TsilentEdit silent(c);
  logStep(format("curve %u: setBlockTangent%sValue(%u, %u, %s, inSide=%s)", c, x ? "X" : "Y", first,
                 last, listOf(values).c_str(), boolName(inSide)));
  if (x) {
    (void)curve.setBlockTangentXValue(first, last, values, inSide);
  } else {
    (void)curve.setBlockTangentYValue(first, last, values, inSide);
  }
  editedOutsideRecording(c);
}

void opBlockTanType(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned first = decodeIndex(in, curve), last = decodeIndex(in, curve);
  const bool inSide = in.flag();
  Tint16Array types;
  const unsigned count = in.u8() % 6;
  for (unsigned j = 0; j < count; ++j) {
    types.addLast(static_cast<std::int16_t>(static_cast<std::int8_t>(in.u8()) % 14));
  }
  const TsilentEdit silent(c);
  logStep(format("curve %u: setBlockTanType(%u, %u, %u types, inSide=%s)", c, first, last, count,
                 boolName(inSide)));
  (void)curve.setBlockTanType(first, last, types, inSide);
  editedOutsideRecording(c);
}

void opRemove(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned i = decodeIndex(in, curve);
  const bool wantsUndoKey = in.flag(), siblings = in.flag();
  const Tkeyframe undoKey = decodeKey(in, curve);
  const bool withUndoKey = wantsUndoKey;
  // Through linked siblings the removal reaches the other curves too.
  std::vector<std::unique_ptr<TsilentEdit>> silent;
  for (unsigned d = 0; d < gState->curveCount; ++d) {
    if (d != c && !(siblings && gState->siblings)) continue;
    TcurveSlot& slot = gState->slots[d];
    const bool removes = i < slot.curve->keyframeCount();
    if (withUndoKey && removes) {
      recordingInexact(d, "undo of a removal brings back the undo key's content");
    }
    if (!slot.curve->blockAddMode()) continue;
    silent.push_back(std::make_unique<TsilentEdit>(d));
  }
  logStep(format("curve %u: remove(%u, %s, %s)", c, i,
                 withUndoKey ? describeKey(undoKey, curve).c_str() : "null", boolName(siblings)));
  curve.remove(i, withUndoKey ? &undoKey : nullptr, siblings);
  editedOutsideRecording(c);
}

void opRemoveAll(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned n = step.n;
  const bool recreate = in.flag(), deleteKeys = in.flag();
  if (recording(c)) return;
  logStep(format("curve %u: removeAllKeys(recreate=%s, deleteKeys=%s)", c, boolName(recreate),
                 boolName(deleteKeys)));
  // Keys the curve forgets become the caller's.
  std::vector<Tkeyframe*> forgotten;
  if (!deleteKeys) {
    for (unsigned i = 0; i < n; ++i) forgotten.push_back(curve.keyframe(i));
  }
  { curve.removeAllKeys(recreate, deleteKeys); }
  for (Tkeyframe* key : forgotten) {
    expect(!contains(curve, key), "removeAllKeys kept a key");
    delete key;
  }
  editedOutsideRecording(c);
}

void opSetValue(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned i = decodeIndex(in, curve);
  const double v = decodeValue(in);
  const bool withW = in.flag();
  const float w = decodeComponent(in);
  const TsilentEdit silent(c);
  if (withW) {
    logStep(format("curve %u: setValue(%u, %.17g, w=%.9g)", c, i, v, static_cast<double>(w)));
    curve.setValue(i, v, w);
  } else {
    logStep(format("curve %u: setValue(%u, %.17g)", c, i, v));
    curve.setValue(i, v);
  }
  editedOutsideRecording(c);
}

void opSetTime(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned i = decodeIndex(in, curve);
  const TtimeValue t = decodeTime(in, curve);
  const TtimeValue old = curve.timeValue(i);
  const TsilentEdit silent(c);
  logStep(format("curve %u: setTime(%u, %s)", c, i, describeTime(t).c_str()));
  // A refused move may leave the new time written: the caller puts it back.
  if (!curve.setTime(i, t) && curve.keyframe(i) && !(curve.timeValue(i) == old)) {
    logStep(format("curve %u: setTime(%u, %s) to put the refused move back", c, i,
                   describeTime(old).c_str()));
    (void)curve.setTime(i, old);
  }
  editedOutsideRecording(c);
}

void opSetTanType(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned i = decodeIndex(in, curve);
  const TtangentType type = decodeTangentType(in);
  const bool inSide = in.flag();
  logStep(format("curve %u: setTan%sType(%u, %d)", c, inSide ? "In" : "Out", i, type));
  if (inSide) {
    curve.setTanInType(i, type);
  } else {
    curve.setTanOutType(i, type);
  }
  editedOutsideRecording(c);
}

void opDragTangent(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned i = decodeIndex(in, curve);
  const float x = decodeComponent(in), y = decodeComponent(in);
  const bool inSide = in.flag();
  logStep(format("curve %u: dragTangent(%u, %.9g, %.9g, inSide=%s)", c, i, static_cast<double>(x),
                 static_cast<double>(y), boolName(inSide)));
  (void)curve.dragTangent(i, x, y, inSide);
  editedOutsideRecording(c);
}

void opInfinity(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const auto type = static_cast<TparamCurve::TinfinityType>(static_cast<std::int8_t>(in.u8()) % 8);
  const bool pre = in.flag();
  logStep(format("curve %u: set%sInfinityType(%d)", c, pre ? "Pre" : "Post", type));
  if (pre) {
    curve.setPreInfinityType(type);
  } else {
    curve.setPostInfinityType(type);
  }
  editedOutsideRecording(c);
}

void opWeighted(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const bool weighted = in.flag();
  logStep(format("curve %u: setIsWeighted(%s)", c, boolName(weighted)));
  curve.setIsWeighted(weighted);
  editedOutsideRecording(c);
}

void opRotation(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const auto mode =
      static_cast<TparamCurve::TrotationInterpolation>(static_cast<std::int8_t>(in.u8()) % 6);
  logStep(format("curve %u: setRotationInterpolation(%d)", c, mode));
  curve.setRotationInterpolation(mode);
  editedOutsideRecording(c);
}

void opBlockAddMode(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const bool on = in.flag();
  logStep(format("curve %u: setBlockAddMode(%s)", c, boolName(on)));
  curve.setBlockAddMode(on);
}

void opNoUpdate(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const TtimeUnitSystem from = decodeUnit(in);
  const TtimeUnitSystem to = decodeUnit(in);
  const TsilentEdit silent(c);
  logStep(format("curve %u: noUpdate(%d, %d)", c, static_cast<int>(from), static_cast<int>(to)));
  curve.noUpdate(from, to);
  editedOutsideRecording(c);
}

void opMarkDirty(Tstep& step) {
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  logStep(format("curve %u: markDirty()", c));
  curve.markDirty();
}

void opEvaluate(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned count = 1 + in.u8() % 4;
  for (unsigned j = 0; j < count; ++j) {
    const float s = decodeSeconds(in, curve);
    const TtimeValue t = decodeTime(in, curve);
    logStep(format("curve %u: evaluate(%.9g) and evaluate(%s)", c, static_cast<double>(s),
                   describeTime(t).c_str()));
    volatile double sink = curve.evaluate(s) + curve.evaluate(t);
    (void)sink;
  }
}

void opMakeHandle(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned n = step.n;
  const std::uint8_t how = in.u8();
  const bool registered = in.flag();
  TheldHandle held;
  held.registered = registered;
  switch (how % 4) {
    case 0: {
      const unsigned i = decodeIndex(in, curve);
      logStep(format("curve %u: handle by index %u, registered=%s", c, i, boolName(registered)));
      held.handle = TkeyframeHandle(&curve, i, registered);
      break;
    }
    case 1: {
      const float s = decodeSeconds(in, curve);
      logStep(format("curve %u: handle at %.9g s, registered=%s", c, static_cast<double>(s),
                     boolName(registered)));
      held.handle = TkeyframeHandle(&curve, s, registered);
      break;
    }
    case 2: {
      const TanimTime t(static_cast<std::int32_t>(
          curve.makeTimeValue(decodeSeconds(in, curve)).asAnimTime().inTicks()));
      logStep(format("curve %u: handle at %d ticks, registered=%s", c, t.inTicks(),
                     boolName(registered)));
      held.handle = TkeyframeHandle(&curve, t, registered);
      break;
    }
    default: {
      if (n == 0) return;
      const unsigned i = in.u8() % n;
      logStep(
          format("curve %u: handle of key object %u, registered=%s", c, i, boolName(registered)));
      held.handle = TkeyframeHandle(&curve, curve.keyframe(i), registered);
      break;
    }
  }
  queryHandle(held);
  if (gState->handles.size() == kMaxHandles) gState->handles.erase(gState->handles.begin());
  gState->handles.push_back(std::move(held));
}

// Whether the host may register `held` now: a record cannot learn of a
// removal it did not hear, so only while its key is still in its curve.
bool mayRegister(const TheldHandle& held) {
  if (held.registered) return true;
  const TparamCurve* owner = held.handle.paramCurve();
  return owner && isLiveCurve(owner) && contains(*owner, held.handle.keyframe());
}

void opHandleCopyOrDrop(Tstep& step) {
  Treader& in = step.in;
  TcurveSlot& slot = step.slot;
  const std::uint8_t how = in.u8();
  auto& pool = (how & 1) ? gState->handles : slot.observer->fKept;
  if (pool.empty()) return;
  const std::size_t i = in.u8() % pool.size();
  switch ((how >> 1) % 4) {
    case 0:
      logStep(format("drop %s handle %zu", (how & 1) ? "held" : "message", i));
      pool.erase(pool.begin() + static_cast<std::ptrdiff_t>(i));
      return;
    case 1: {
      // Copies share one record, so registering the copy registers both.
      const bool registered = in.flag() && mayRegister(pool[i]);
      logStep(format("copy %s handle %zu, registered=%s", (how & 1) ? "held" : "message", i,
                     boolName(registered)));
      TheldHandle copy{TkeyframeHandle(pool[i].handle, registered),
                       pool[i].registered || registered};
      pool[i].registered = copy.registered;
      if (gState->handles.size() == kMaxHandles) gState->handles.erase(gState->handles.begin());
      gState->handles.push_back(std::move(copy));
      return;
    }
    case 2: {
      if (!mayRegister(pool[i])) return;
      logStep(format("register %s handle %zu", (how & 1) ? "held" : "message", i));
      pool[i].handle.makeClient();
      pool[i].registered = true;
      return;
    }
    default:
      logStep(format("query %s handle %zu", (how & 1) ? "held" : "message", i));
      queryHandle(pool[i]);
      return;
  }
}

void opCurveCopy(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TcurveSlot& slot = step.slot;
  TparamCurve& curve = step.curve;
  const unsigned from = in.u8() % gState->curveCount;
  const std::uint8_t how = in.u8() % 3;
  if (how == 0) {
    if (recording(c)) return;
    logStep(format("curve %u = curve %u (assignment)", c, from));
    curve = *gState->slots[from].curve;
    editedOutsideRecording(c);
    return;
  }
  if (how == 1) {
    logStep(format("copy of curve %u, evaluated and destroyed", from));
    TparamCurve copy(*gState->slots[from].curve);
    readCurve(copy);
    return;
  }
  logStep(format("curve %u destroyed and replaced by a copy of curve %u", c, from));
  auto copy = std::make_unique<TparamCurve>(*gState->slots[from].curve);
  destroyCurve(c);
  slot.curve = std::move(copy);
  attachObserver(c);
}

void opDelay(Tstep& step) {
  Treader& in = step.in;
  if (in.flag() && gState->delayDepth < 4) {
    logStep("delayMessages()");
    TparamCurve::delayMessages();
    ++gState->delayDepth;
  } else if (gState->delayDepth > 0) {
    logStep("resumeMessagesAndUpdate()");
    --gState->delayDepth;
    TparamCurve::resumeMessagesAndUpdate();
  }
}

void opSuspend(Tstep& step) {
  Treader& in = step.in;
  const bool on = in.flag();
  logStep(format("suspendUpdates(%s)", boolName(on)));
  const bool previous = TparamCurve::suspendUpdates(on);
  expect(previous == gState->suspended, "suspendUpdates returned a wrong previous setting");
  gState->suspended = on;
}

void opBegin(Tstep& step) {
  const unsigned c = step.c;
  TcurveSlot& slot = step.slot;
  TparamCurve& curve = step.curve;
  if (recording(c)) return;
  logStep(format("curve %u: beginParamCurveMod", c));
  slot.recordingStart = std::make_unique<TcurveSnapshot>(curve, kSnapshotFlags);
  slot.recording = std::make_unique<TparamCurveDeltaUser>();
  slot.recording->beginParamCurveMod(curve);
}

void opEnd(Tstep& step) {
  const unsigned c = step.c;
  if (recording(c)) finishRecording(c);
}

void opUndo(Tstep& /*step*/) {
  if (gState->undoStack.empty() || recording(gState->undoStack.back().curve)) return;
  Taction a = std::move(gState->undoStack.back());
  gState->undoStack.pop_back();
  logStep(format("undo the action on curve %u%s", a.curve, a.stale ? " (stale)" : ""));
  a.delta->undoPC();
  if (a.stale) {
    movedByStaleAction(a.curve);
  } else {
    expectSnapshot(a.before, a.curve, "after undo from the undo stack");
  }
  gState->redoStack.push_back(std::move(a));
}

void opRedo(Tstep& /*step*/) {
  if (gState->redoStack.empty() || recording(gState->redoStack.back().curve)) return;
  Taction a = std::move(gState->redoStack.back());
  gState->redoStack.pop_back();
  logStep(format("redo the action on curve %u%s", a.curve, a.stale ? " (stale)" : ""));
  a.delta->redoPC();
  if (a.stale) {
    movedByStaleAction(a.curve);
  } else {
    expectSnapshot(a.after, a.curve, "after redo from the redo stack");
  }
  gState->undoStack.push_back(std::move(a));
}

void opDropAction(Tstep& step) {
  Treader& in = step.in;
  if (in.flag()) {
    if (gState->undoStack.empty()) return;
    logStep("destroy the oldest undoable action");
    gState->undoStack.erase(gState->undoStack.begin());
  } else {
    if (gState->redoStack.empty()) return;
    logStep("destroy the most recent redoable action");
    gState->redoStack.pop_back();
  }
}

void opGenerateDeltas(Tstep& step) {
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  logStep(format("curve %u: generateCurveDeltas()", c));
  curve.generateCurveDeltas();
}

// The host's sibling lookup: the run's three curves, in slot order.
bool siblingCurves(void* host, TparamCurve** x, TparamCurve** y, TparamCurve** z, bool /*create*/) {
  const auto* state = static_cast<const Tstate*>(host);
  if (state->curveCount < 3) return false;
  *x = state->slots[0].curve.get();
  *y = state->slots[1].curve.get();
  *z = state->slots[2].curve.get();
  return *x && *y && *z;
}

// Links the three curves as rotation siblings, or unlinks them; edits with
// allSiblings and settings of quaternion rotation curves then reach all three.
void opSiblings(Tstep& step) {
  const bool on = step.in.flag() && gState->curveCount == 3;
  logStep(format("%s the curves as rotation siblings", on ? "link" : "unlink"));
  gState->siblings = on;
  for (unsigned d = 0; d < gState->curveCount; ++d) {
    gState->slots[d].curve->setTDNparamCurve(on ? gState : nullptr, on ? &siblingCurves : nullptr);
  }
}

// --- Selections, moves and breakdown keys -------------------------------------------------

// Picks decoded from the input: up to six picks of keys of `curve` by index
// (the index may be out of range), some naming a key of another curve, some
// made void, with any flags.
TpickKeyDictionary decodePicks(Treader& in, unsigned c, std::string& text) {
  TpickKeyDictionary picks;
  const unsigned count = in.u8() % 7;
  for (unsigned p = 0; p < count; ++p) {
    const std::uint8_t how = in.u8();
    unsigned owner = c;
    if ((how & 0x30) == 0x30 && gState->curveCount > 1) owner = (c + 1) % gState->curveCount;
    TparamCurve& from = *gState->slots[owner].curve;
    const unsigned i = decodeIndex(in, from);
    const TbitField32 flags((how & 7) != 0 ? static_cast<std::uint32_t>(how & 7) : 1u);
    TpickKey pick;
    if (pick.create(&from, i, flags) != 0) continue;
    const bool makeVoid = (how & 0xC0) == 0xC0;
    text += format("%s%u:%u%s%s", text.empty() ? "" : " ", owner, i, (flags.bits() & 1) ? "k" : "t",
                   makeVoid ? "(void)" : "");
    const TtimeValue at = pick.time();
    if (makeVoid) pick.markVoid();
    picks.insert(at, pick);
  }
  return picks;
}

TparamCurve::TmoveOption decodeOption(Treader& in) {
  // Mostly the four options; now and then one outside them.
  const int v = static_cast<int>(in.u8() % 6) - (in.flag() ? 1 : 0);
  return static_cast<TparamCurve::TmoveOption>(v == 5 ? 7 : v);
}

std::vector<const Tkeyframe*> sortedKeyObjects(const TparamCurve& curve) {
  std::vector<const Tkeyframe*> keys = keyObjects(curve);
  std::sort(keys.begin(), keys.end());
  return keys;
}

// Moves never add, remove or replace key objects.
void expectSameKeyObjects(const std::vector<const Tkeyframe*>& before, unsigned c,
                          const char* what) {
  expect(sortedKeyObjects(*gState->slots[c].curve) == before,
         format("curve %u: %s lost, merged or duplicated key objects", c, what));
}

// A refused edit leaves the curve as it was.
void expectUnchangedWhenRefused(bool done, const TcurveSnapshot& before, unsigned c,
                                const char* what) {
  if (done) return;
  const std::string d =
      describeDifference(before, TcurveSnapshot(*gState->slots[c].curve, kSnapshotFlags));
  expect(d.empty(), format("curve %u: a refused %s changed the curve: %s", c, what, d.c_str()));
}

// The picked keys of this curve that the pick names with its key bit, in
// index order; empty when any pick is void, of another curve, or not a key.
std::vector<unsigned> pickedIndices(const TparamCurve& curve, const TpickKeyDictionary& picks) {
  std::vector<unsigned> indices;
  for (const TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
    const TpickKey& pick = n->data();
    const TkeyframeHandle* h = pick.handle();
    if (!h || h->paramCurve() != &curve || (pick.flags().bits() & TpickKey::kPickKey) == 0) {
      return {};
    }
    const unsigned i = indexOf(curve, h->keyframe());
    if (i == TparamCurve::kInvalidIndex) return {};
    indices.push_back(i);
  }
  std::sort(indices.begin(), indices.end());
  return indices;
}

void opSelect(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  std::string text, otherText;
  const TpickKeyDictionary picks = decodePicks(in, c, text);
  const TpickKeyDictionary others = decodePicks(in, c, otherText);
  const bool active = in.flag();
  logStep(format("curve %u: setActive([%s], %s); list algebra with [%s]", c, text.c_str(),
                 boolName(active), otherText.c_str()));
  curve.setActive(picks, active);
  // The set operations of selections, checked where their algebra is plain:
  // merging picks and removing them again gives back the start, and an
  // intersection lies within both.
  TpickKeyList list(picks);
  const TpickKeyList other(others);
  const TpickKeyList start(list);
  TpickKeyList both;
  if (list.getIntersection(other, both)) {
    for (const TpickKeyDictionaryNode* n = both.first(); n; n = TpickKeyDictionary::next(n)) {
      expect(list.search(n->key()) && other.search(n->key()),
             format("curve %u: an intersection holds a pick outside its operands", c));
    }
  }
  TpickKeyList diff, conflicts;
  (void)list.getDifference(other, diff);
  (void)list.getConflicts(other, conflicts);
  (void)list.intersects(other);
  TtimeValue first, last;
  (void)list.timeRange(first, last);
  const bool apart = !list.intersects(other);
  list.merge(other);
  (void)list.remove(other);
  if (apart) {
    bool same = list.count() == start.count();
    for (const TpickKeyDictionaryNode* n = start.first(); n && same;
         n = TpickKeyDictionary::next(n)) {
      const TpickKey* back = list.search(n->key());
      same = back && back->flags().bits() == n->data().flags().bits();
    }
    expect(same, format("curve %u: merging picks and removing them again changed the list", c));
  }
  list.updateDictionary();
  TpickKeyList range;
  if (curve.keyframeCount() > 0) {
    (void)range.insertRange(&curve, curve.timeValue(0u),
                            curve.timeValue(curve.keyframeCount() / 2));
  }
}

void opMovePicks(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  std::string text;
  const TpickKeyDictionary picks = decodePicks(in, c, text);
  const TtimeValue time = decodeTime(in, curve);
  const double value = in.flag() ? 0.0 : decodeValue(in);
  const TparamCurve::TmoveOption option = decodeOption(in);
  const std::uint8_t bits = in.u8();
  const bool relative = (bits & 1) == 0, moveBreakdowns = (bits & 2) != 0;
  const bool setTime = (bits & 4) == 0, setValue = (bits & 8) != 0;
  logStep(
      format("curve %u: moveKeys([%s], %s, %.17g, relative=%s, option=%d, breakdowns=%s, "
             "setTime=%s, setValue=%s)",
             c, text.c_str(), describeTime(time).c_str(), value, boolName(relative), option,
             boolName(moveBreakdowns), boolName(setTime), boolName(setValue)));
  const std::vector<const Tkeyframe*> keys = sortedKeyObjects(curve);
  const TcurveSnapshot before(curve, kSnapshotFlags);
  const bool may = curve.canMove(picks, time, value, relative, option, true);
  // Where the picked keys start, for the check of canMove below.
  const std::vector<unsigned> indices = pickedIndices(curve, picks);
  std::vector<std::pair<const Tkeyframe*, std::int64_t>> starts;
  for (const unsigned i : indices)
    starts.emplace_back(curve.keyframe(i), curve.timeValue(i).asAnimTime().inTicks());
  const bool moved =
      curve.moveKeys(picks, time, value, relative, option, moveBreakdowns, setTime, setValue);
  expectSameKeyObjects(keys, c, "moveKeys");
  expectUnchangedWhenRefused(moved, before, c, "moveKeys");
  editedOutsideRecording(c);

  // canMove against the move itself: a contiguous block of keys moved on a
  // tick curve in order-keeping mode reaches its targets (a tick away at
  // most) exactly when canMove said it would.
  const bool contiguous = !indices.empty() &&
                          indices.back() - indices.front() + 1 == indices.size() &&
                          std::adjacent_find(indices.begin(), indices.end()) == indices.end();
  if (!moved || option != TparamCurve::kMoveKeepOrder || !relative || !setTime || moveBreakdowns ||
      !curve.isAnimTime() || !time.isAnimTime() || !contiguous) {
    return;
  }
  const std::int64_t delta = time.asAnimTime().inTicks();
  bool reached = true;
  for (const auto& [key, start] : starts) {
    const std::int64_t target = start + delta;
    if (target < INT32_MIN || target > INT32_MAX) return;  // clamped: no claim
    const std::int64_t end = key->timeAsTicks();
    if (end - target > 1 || target - end > 1) reached = false;
  }
  expect(reached == may, format("curve %u: canMove said %s but the keys %s their targets", c,
                                boolName(may), reached ? "reached" : "did not reach"));
}

// An interactive drag: a move edit over handles, several moves measured from
// the start times with growing offsets, then (mostly) the end of the edit.
void opDrag(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned n = step.n;
  const unsigned count = in.u8() % 5;
  std::vector<std::unique_ptr<TkeyframeHandle>> owned;
  TkeyframeHandlePtrArray handles;
  TtimeValueArray starts;
  std::string text;
  for (unsigned p = 0; p < count && n > 0; ++p) {
    const unsigned i = in.u8() % n;
    owned.push_back(std::make_unique<TkeyframeHandle>(&curve, curve.keyframe(i), false));
    handles.addLast(owned.back().get());
    starts.addLast(curve.timeValue(i));
    text += format("%s%u", text.empty() ? "" : " ", i);
  }
  if (in.flag() && starts.count() > 0) starts.remove(starts.count() - 1);  // a start time short
  const TtimeValue stepTime = decodeTime(in, curve);
  const double value = in.flag() ? 0.0 : decodeValue(in);
  const TparamCurve::TmoveOption option = decodeOption(in);
  const std::uint8_t bits = in.u8();
  const bool relative = (bits & 1) == 0, moveBreakdowns = (bits & 2) != 0;
  const bool setTime = (bits & 4) == 0, setValue = (bits & 8) != 0,
             leaveOpen = (bits & 0x70) == 0x70;
  const unsigned calls = 1 + in.u8() % 6;
  logStep(
      format("curve %u: drag [%s] by %u steps of %s, value %.17g, option=%d, relative=%s, "
             "breakdowns=%s, setTime=%s, setValue=%s%s",
             c, text.c_str(), calls, describeTime(stepTime).c_str(), value, option,
             boolName(relative), boolName(moveBreakdowns), boolName(setTime), boolName(setValue),
             leaveOpen ? ", left open" : ""));
  const std::vector<const Tkeyframe*> keys = sortedKeyObjects(curve);
  if (!curve.beginEdit(TparamCurve::kEditMoveKeys, handles)) return;
  for (unsigned k = 1; k <= calls; ++k) {
    TtimeValue offset = stepTime;
    for (unsigned j = 1; j < k; ++j) offset = offset + stepTime;
    (void)curve.moveKeys(handles, starts, offset, value * k, option, moveBreakdowns, relative,
                         setTime, setValue);
    expectSameKeyObjects(keys, c, "a drag step");
    const std::string bad = checkCurveInvariants(curve);
    expect(bad.empty(), format("curve %u after drag step %u: %s", c, k, bad.c_str()));
  }
  if (!leaveOpen) expect(curve.endEdit(), format("curve %u: endEdit refused an open drag", c));
  editedOutsideRecording(c);
}

void opMoveKeyframe(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned i = decodeIndex(in, curve);
  const TtimeValue t = decodeTime(in, curve);
  const double v = decodeValue(in);
  const TparamCurve::TmoveOption option = decodeOption(in);
  const std::uint8_t how = in.u8();
  const std::vector<const Tkeyframe*> keys = sortedKeyObjects(curve);
  const TcurveSnapshot before(curve, kSnapshotFlags);
  bool done = false;
  if (how % 3 == 2) {
    logStep(format("curve %u: moveKeyframeInValue(%u, %.17g)", c, i, v));
    done = curve.moveKeyframeInValue(i, v);
  } else {
    const bool recordUndo = how % 3 == 0;
    logStep(format("curve %u: moveKeyframe(%u, %s, %.17g, option=%d, recordUndo=%s)", c, i,
                   describeTime(t).c_str(), v, option, boolName(recordUndo)));
    // A move that records nothing while the curve records is a silent edit.
    std::unique_ptr<TsilentEdit> silent;
    if (!recordUndo) silent = std::make_unique<TsilentEdit>(c);
    done = curve.moveKeyframe(i, t, v, option, recordUndo);
  }
  expectSameKeyObjects(keys, c, "moveKeyframe");
  expectUnchangedWhenRefused(done, before, c, "moveKeyframe");
  editedOutsideRecording(c);
}

void opBreakdown(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const unsigned i = decodeIndex(in, curve);
  const bool on = in.flag();
  logStep(format("curve %u: setBreakdown(%u, %s)", c, i, boolName(on)));
  const bool done = curve.setBreakdown(i, on);
  expect(!done || curve.keyframe(i) != nullptr,
         format("curve %u: setBreakdown out of range succeeded", c));
  if (done)
    expect(curve.breakdown(i) == on, format("curve %u: the breakdown mark did not take", c));
  editedOutsideRecording(c);
}

// The move edit's other entry points, balanced or not: the edit bracket with
// any mode, the per-key and times-only forms, tangent types of a selection,
// and the undo records of a move made elsewhere.
void opMoveEdit(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  std::string text;
  const TpickKeyDictionary picks = decodePicks(in, c, text);
  const std::uint8_t what = in.u8();
  TkeyframeHandlePtrArray handles;
  std::vector<std::unique_ptr<TkeyframeHandle>> owned;
  TtimeValueArray newTimes, oldTimes;
  TdoubleArray newValues, oldValues;
  for (const TpickKeyDictionaryNode* p = picks.first(); p; p = TpickKeyDictionary::next(p)) {
    const TkeyframeHandle* h = p->data().handle();
    if (!h) continue;
    owned.push_back(std::make_unique<TkeyframeHandle>(*h));
    handles.addLast(owned.back().get());
    oldTimes.addLast(h->timeValue());
    newTimes.addLast(decodeTime(in, curve));
    oldValues.addLast(h->value());
    newValues.addLast(decodeValue(in));
  }
  const TparamCurve::TmoveOption option = decodeOption(in);
  const std::vector<const Tkeyframe*> keys = sortedKeyObjects(curve);
  switch (what % 7) {
    case 0: {
      const auto mode = static_cast<TparamCurve::TeditMode>(static_cast<int>(in.u8() % 6) - 1);
      const bool byPicks = in.flag();
      logStep(format("curve %u: beginEdit(%d, %s [%s])", c, mode, byPicks ? "picks" : "handles",
                     text.c_str()));
      (void)(byPicks ? curve.beginEdit(mode, picks) : curve.beginEdit(mode, handles));
      break;
    }
    case 1:
      logStep(format("curve %u: endEdit()", c));
      (void)curve.endEdit();
      break;
    case 2: {
      const bool breakdowns = in.flag();
      logStep(
          format("curve %u: moveKeys(each to its own time and value [%s], option=%d, "
                 "breakdowns=%s)",
                 c, text.c_str(), option, boolName(breakdowns)));
      (void)curve.moveKeys(handles, newTimes, oldTimes, newValues, oldValues, option, breakdowns);
      break;
    }
    case 3:
      logStep(format("curve %u: replaceKeys([%s], option=%d)", c, text.c_str(), option));
      (void)curve.replaceKeys(handles, newTimes, oldTimes, option);
      break;
    case 4: {
      const TtangentType inType = decodeTangentType(in), outType = decodeTangentType(in);
      const bool setIn = in.flag(), setOut = in.flag();
      logStep(format("curve %u: setTangentType([%s], %d, %d, %s, %s)", c, text.c_str(), inType,
                     outType, boolName(setIn), boolName(setOut)));
      (void)curve.setTangentType(picks, inType, outType, setIn, setOut);
      break;
    }
    case 5: {
      const bool withValue = in.flag();
      const double one = decodeValue(in);
      logStep(format("curve %u: generateDeltasForMove([%s], option=%d)", c, text.c_str(), option));
      // The records describe a move the fuzzer did not make: undoing them
      // goes wherever they say.
      if (recording(c) && curve.hasMoveList()) {
        recordingInexact(c, "generateDeltasForMove recorded a move that was not made");
      }
      curve.generateDeltasForMove(handles, oldTimes, withValue ? &oldValues : nullptr,
                                  withValue ? nullptr : &one, nullptr, option);
      break;
    }
    default: {
      const TtimeValue delta = decodeTime(in, curve);
      const bool relative = in.flag();
      logStep(format("curve %u: canMove(handles [%s], %s, relative=%s, option=%d)", c, text.c_str(),
                     describeTime(delta).c_str(), boolName(relative), option));
      (void)curve.canMove(handles, delta, 0.0, relative, option);
      break;
    }
  }
  expectSameKeyObjects(keys, c, "a move edit");
  editedOutsideRecording(c);
}

// Tangent and weight locks, of one key or of a selection.
void opLocks(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const std::uint8_t how = in.u8();
  const bool locked = in.flag();
  const bool weights = (how & 1) != 0;
  if ((how & 2) != 0) {
    std::string text;
    const TpickKeyDictionary picks = decodePicks(in, c, text);
    logStep(format("curve %u: set%sLockedStatus([%s], %s)", c, weights ? "Weight" : "Tangent",
                   text.c_str(), boolName(locked)));
    (void)(weights ? curve.setWeightLockedStatus(picks, locked)
                   : curve.setTangentLockedStatus(picks, locked));
  } else {
    const unsigned i = decodeIndex(in, curve);
    logStep(format("curve %u: set%sLocked(%u, %s)", c, weights ? "Weights" : "Tangents", i,
                   boolName(locked)));
    if (weights) {
      curve.setWeightsLocked(i, locked);
    } else {
      curve.setTangentsLocked(i, locked);
    }
    expect(!curve.keyframe(i) ||
               (weights ? curve.weightsLocked(i) : curve.tangentsLocked(i)) == locked,
           format("curve %u: the lock of key %u did not take", c, i));
  }
  editedOutsideRecording(c);
}

// A tangent handle dragged: the first of the decoded picks, with any floats.
void opAdjustTangent(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  std::string text;
  const TpickKeyDictionary picks = decodePicks(in, c, text);
  float f[9];
  for (float& v : f) v = decodeComponent(in);
  const bool mirror = in.flag(), angleLock = in.flag();
  if (!picks.first()) return;
  logStep(
      format("curve %u: adjustTangent([%s], %.9g, %.9g, in %.9g %.9g, out %.9g %.9g, scales "
             "%.9g %.9g %.9g, mirror=%s, angleLock=%s)",
             c, text.c_str(), f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8],
             boolName(mirror), boolName(angleLock)));
  const std::vector<const Tkeyframe*> keys = sortedKeyObjects(curve);
  const TcurveSnapshot before(curve, kSnapshotFlags);
  const bool done = curve.adjustTangent(picks.first()->data(), f[0], f[1], f[2], f[3], f[4], f[5],
                                        f[6], f[7], f[8], mirror, angleLock);
  expectSameKeyObjects(keys, c, "adjustTangent");
  expectUnchangedWhenRefused(done, before, c, "adjustTangent");
  editedOutsideRecording(c);
}

// The other tangent edits: the handle form with angles and weights
// (sentinels included), the selection forms, switching sides, and tangent
// deltas recorded after an unrecorded edit.
void opTangentEdits(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  std::string text;
  const TpickKeyDictionary picks = decodePicks(in, c, text);
  const std::uint8_t what = in.u8();
  const bool relative = in.flag(), flag = in.flag();
  const auto angleOf = [&in]() {
    const std::uint8_t kind = in.u8();
    if (kind % 7 == 0) {
      return Tangle(std::numeric_limits<double>::max(), TangleUnit::kDegrees, false);
    }
    return Tangle(static_cast<double>(decodeComponent(in)), TangleUnit::kRadians, false);
  };
  const auto weightOf = [&in]() {
    return in.u8() % 7 == 0 ? std::numeric_limits<float>::max() : decodeComponent(in);
  };
  const Tangle a1 = angleOf(), a2 = angleOf();
  const float w1 = weightOf(), w2 = weightOf();
  const float f[5] = {decodeComponent(in), decodeComponent(in), decodeComponent(in),
                      decodeComponent(in), decodeComponent(in)};
  const std::vector<const Tkeyframe*> keys = sortedKeyObjects(curve);
  switch (what % 6) {
    case 0: {
      const TpickKeyDictionaryNode* n = picks.first();
      if (!n || !n->data().handle()) return;
      logStep(format("curve %u: adjustTangent(handle [%s], %s side, relative=%s, %.9g rad, %.9g)",
                     c, text.c_str(), flag ? "in" : "out", boolName(relative), a1.radians(),
                     static_cast<double>(w1)));
      (void)curve.adjustTangent(*n->data().handle(), flag, relative, a1, w1, f[0], f[1]);
      break;
    }
    case 1:
      logStep(format("curve %u: adjustTangents([%s], drag %.9g %.9g, scales %.9g %.9g %.9g)", c,
                     text.c_str(), static_cast<double>(f[0]), static_cast<double>(f[1]),
                     static_cast<double>(f[2]), static_cast<double>(f[3]),
                     static_cast<double>(f[4])));
      (void)curve.adjustTangents(picks, f[0], f[1], f[2], f[3], f[4], flag, relative);
      break;
    case 2:
      logStep(
          format("curve %u: adjustTangents([%s], relative=%s, in %.9g rad %.9g, out %.9g rad "
                 "%.9g)",
                 c, text.c_str(), boolName(relative), a1.radians(), static_cast<double>(w1),
                 a2.radians(), static_cast<double>(w2)));
      (void)curve.adjustTangents(picks, relative, a1, w1, a2, w2, f[0], f[1]);
      break;
    case 3:
      logStep(format("curve %u: adjustTangents([%s], relative=%s, %.9g rad %.9g)", c, text.c_str(),
                     boolName(relative), a1.radians(), static_cast<double>(w1)));
      (void)curve.adjustTangents(picks, relative, a1, w1, f[0], f[1]);
      break;
    case 4:
      logStep(format("curve %u: switchInOutTangents([%s])", c, text.c_str()));
      (void)curve.switchInOutTangents(picks);
      break;
    default: {
      // An edit made unrecorded, then recorded after the fact: the recording
      // goes back to the tangents saved before it.
      TfloatArray tangents;
      Tint16Array types;
      curve.getTangentsForDeltas(picks, tangents, types);
      logStep(format("curve %u: unrecorded adjustTangents([%s]), then generateDeltasForTangents", c,
                     text.c_str()));
      if (recording(c)) {
        // While recording the edit records itself, and the records made
        // after the fact describe it a second time.
        recordingInexact(c, "tangent deltas recorded after an edit the curve also recorded");
      }
      (void)curve.adjustTangents(picks, f[0], f[1], f[2], f[3], f[4], flag, false);
      curve.generateDeltasForTangents(picks, tangents, types);
      break;
    }
  }
  expectSameKeyObjects(keys, c, "a tangent edit");
  editedOutsideRecording(c);
}

// The read-only queries: the closest keys, the box, and a walk of a few
// keys with getNextKey, whose times must move strictly in the walk's
// direction and whose own keys must be the curve's.
void opQuery(Tstep& step) {
  Treader& in = step.in;
  const unsigned c = step.c;
  TparamCurve& curve = step.curve;
  const TtimeValue t = decodeTime(in, curve);
  const double v = decodeValue(in);
  const bool flag = in.flag(), forward = in.flag();
  const unsigned steps = in.u8() % 8;
  logStep(format("curve %u: queries at %s, %.17g, %s; walk %u keys %s", c, describeTime(t).c_str(),
                 v, boolName(flag), steps, forward ? "forward" : "backward"));
  const auto own = [&curve](const TkeyframeHandle* h, const char* what) {
    expect(!h || (h->paramCurve() == &curve && contains(curve, h->keyframe())),
           format("%s named no key of the curve", what));
    delete h;
  };
  own(curve.findClosestKeyframe(t), "findClosestKeyframe(t)");
  own(curve.findClosestKeyframe(t, v, flag), "findClosestKeyframe(t, value)");
  own(curve.findClosestValue(v), "findClosestValue");
  const unsigned n = curve.keyframeCount();
  float minTime = 0.0f, maxTime = 0.0f;
  double minValue = 0.0, maxValue = 0.0;
  curve.boundingBox(minTime, minValue, maxTime, maxValue, flag);
  if (!flag && n > 1) {
    for (unsigned i = 0; i < n; ++i) {
      const double kv = curve.keyframe(i)->value();
      const float ks = curve.seconds(i);
      expect(kv >= minValue && kv <= maxValue && ks >= minTime && ks <= maxTime,
             format("curve %u: key %u lies outside the bounding box", c, i));
    }
  }
  (void)curve.minMaxValueAndTime(in.u8() % (n + 1), minTime, minValue, maxTime, maxValue);
  TtimeValue at = t;
  for (unsigned k = 0; k < steps; ++k) {
    bool allocated = false;
    Tkeyframe* key = curve.getNextKey(at, forward, allocated);
    if (!key) break;
    const TtimeValue next = curve.timeValue(key);
    expect(allocated != contains(curve, key),
           format("curve %u: getNextKey gave a %s key", c, allocated ? "curve's" : "foreign"));
    const bool usable = !(at.isFloat() && std::isnan(at.asFloat())) && !at.isNeither() &&
                        at.isAnimTime() == curve.isAnimTime();
    if (usable) {
      const auto units = [&curve](const TtimeValue& time) {
        return curve.isAnimTime() ? static_cast<double>(time.asAnimTime().inTicks())
                                  : static_cast<double>(time.asFloat());
      };
      const double from = units(at);
      const double to = units(next);
      expect(forward ? to > from : to < from,
             format("curve %u: getNextKey went from %.9g to %.9g walking %s", c, from, to,
                    forward ? "forward" : "backward"));
    }
    if (allocated) delete key;
    at = next;
  }
}

// One function per operation byte value, in the order of Top.
using TstepFunction = void (*)(Tstep&);
constexpr TstepFunction kSteps[] = {opAdd,           opInsertTime,   opInsertKey,
                                    opInsertOwned,   opBlockAdd,     opBlockAdd,
                                    opBlockAdd,      opBlockTangent, opBlockTanType,
                                    opRemove,        opRemoveAll,    opSetValue,
                                    opSetTime,       opSetTanType,   opDragTangent,
                                    opInfinity,      opWeighted,     opRotation,
                                    opBlockAddMode,  opNoUpdate,     opMarkDirty,
                                    opEvaluate,      opMakeHandle,   opHandleCopyOrDrop,
                                    opCurveCopy,     opDelay,        opSuspend,
                                    opBegin,         opEnd,          opUndo,
                                    opRedo,          opDropAction,   opGenerateDeltas,
                                    opSiblings,      opSelect,       opMovePicks,
                                    opDrag,          opMoveKeyframe, opBreakdown,
                                    opMoveEdit,      opQuery,        opLocks,
                                    opAdjustTangent, opTangentEdits};
static_assert(std::size(kSteps) == kOpCount, "one function per operation");

// Runs one step on curve `c`.
void runStep(Treader& in, unsigned c) {
  TcurveSlot& slot = gState->slots[c];
  TparamCurve& curve = *slot.curve;
  const unsigned n = curve.keyframeCount();
  Tstep step{in, c, slot, curve, n, n >= kMaxKeys, static_cast<Top>(in.u8() % kOpCount)};
  // An edit of linked siblings may change the other curves too: each that
  // changed outside a recording loses its undo history, as `c` does.
  std::vector<TcurveSnapshot> others;
  if (gState->siblings) {
    for (unsigned d = 0; d < gState->curveCount; ++d) others.emplace_back(*gState->slots[d].curve);
  }
  kSteps[step.op](step);
  for (unsigned d = 0; d < others.size(); ++d) {
    const TparamCurve* now = gState->slots[d].curve.get();
    if (d != c && now && !(others[d] == TcurveSnapshot(*now))) editedOutsideRecording(d);
  }
}

// Returns the process to the state the next run expects.
void tearDown() {
  logStep("tear down");
  while (gState->delayDepth > 0) {
    --gState->delayDepth;
    TparamCurve::resumeMessagesAndUpdate();
  }
  for (unsigned c = 0; c < gState->curveCount; ++c) {
    if (recording(c)) finishRecording(c);
  }
  if (gState->suspended) TparamCurve::suspendUpdates(false);
  gState->redoStack.clear();
  gState->undoStack.clear();
  gState->handles.clear();
  for (unsigned c = 0; c < gState->curveCount; ++c) destroyCurve(c);
  for (TcurveSlot& s : gState->slots) s.observer.reset();
}

}  // namespace

void runEditSequence(const std::uint8_t* data, std::size_t size) {
  static const bool once = [] {
    // Every key its own heap block, so that the address sanitizer sees each
    // read of a deleted key.
    TpureArena::sPurifyInUse = true;
    gTrace = std::getenv("LUMORA_FUZZ_TRACE") != nullptr;
    return true;
  }();
  (void)once;
  static TglobalObserver globalObserver;
  Tstate state;
  gState = &state;
  gSteps.clear();
  Treader in(data, size);
  const std::uint8_t setup = in.u8();
  state.curveCount = 1 + setup % kMaxCurves;
  for (unsigned c = 0; c < state.curveCount; ++c) {
    const std::uint8_t kind = in.u8();
    makeCurve(c, (kind & 1) != 0, (kind & 2) != 0);
    logStep(format("curve %u: %s curve, weighted=%s", c, (kind & 1) ? "float" : "tick",
                   boolName((kind & 2) != 0)));
  }
  TparamCurve::addGlobalClient(&globalObserver, &TglobalObserver::onChanged);
  for (unsigned step = 0; step < kMaxSteps && !in.done(); ++step) {
    const std::size_t start = in.position();
    runStep(in, in.u8() % state.curveCount);
    checkAll(in);
    // Where each iteration's bytes lie, for tools that cut inputs down.
    if (gTrace) std::fprintf(stderr, "bytes %zu %zu\n", start, in.position());
  }
  tearDown();
  TparamCurve::removeGlobalClient(&globalObserver);
  gState = nullptr;
}

}  // namespace lumora::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumora::fuzz::runEditSequence(data, size);
  return 0;
}
