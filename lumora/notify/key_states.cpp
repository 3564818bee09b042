#include "lumora/notify/key_states.h"

#include <algorithm>
#include <bit>

#include "lumora/curve/internal/key_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/notify/delta.h"
#include "lumora/notify/internal/curve_delta_access.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {

namespace {

using Access = internal::TcurveDeltaAccess;
using Tmsg = TparamCurveModifiedMsg;

// The recorders open right now, innermost first. Edits run on one thread.
TkeyStatesRecorder* gOpenRecorders = nullptr;

bool isComposite(const Tdelta* delta) {
  return isDeltaOfType(delta, TdeltaCompositeTmeta);
}

// The curve deltas in `delta` (itself, or a composite's children from
// `from` on), in order.
void collectCurveDeltas(Tdelta* delta, unsigned from, std::vector<TparamCurveDelta*>& out) {
  if (!delta) return;
  if (!isComposite(delta)) {
    if (isDeltaOfType(delta, TparamCurveDeltaTmeta)) {
      out.push_back(static_cast<TparamCurveDelta*>(delta));
    }
    return;
  }
  const auto* composite = static_cast<const TdeltaComposite*>(delta);
  for (unsigned i = from; i < composite->childCount(); ++i) {
    collectCurveDeltas(composite->child(i), 0, out);
  }
}

// The bits of a key's time word, whichever way its curve reads it.
std::uint32_t timeBits(const Tkeyframe& key) {
  return static_cast<std::uint32_t>(key.timeAsTicks());
}

TtimeValue timeOf(const TparamCurve& curve, std::uint32_t bits) {
  if (curve.isAnimTime()) return TtimeValue(TanimTime(static_cast<std::int32_t>(bits)));
  return TtimeValue(std::bit_cast<float>(bits));
}

// What a restore would change in `key`: 0 nothing, else the message to send.
int changeKind(const Tkeyframe& key, const Tkeyframe& state) {
  constexpr std::uint32_t kOwnBits = 0x03C00000u;  // selection and deletion mark
  if (std::bit_cast<std::uint64_t>(key.value()) != std::bit_cast<std::uint64_t>(state.value()) ||
      timeBits(key) != timeBits(state)) {
    return 1 + Tmsg::kKeyChanged;
  }
  float a[4], b[4];
  key.getTanIn(a[0], a[1]);
  key.getTanOut(a[2], a[3]);
  state.getTanIn(b[0], b[1]);
  state.getTanOut(b[2], b[3]);
  for (int i = 0; i < 4; ++i) {
    if (std::bit_cast<std::uint32_t>(a[i]) != std::bit_cast<std::uint32_t>(b[i])) {
      return 1 + Tmsg::kTangentChanged;
    }
  }
  if (((key.flags().bits() ^ state.flags().bits()) & ~kOwnBits) != 0 ||
      std::bit_cast<std::uint32_t>(key.quaternionW()) !=
          std::bit_cast<std::uint32_t>(state.quaternionW())) {
    return 1 + Tmsg::kTangentChanged;
  }
  return 0;
}

}  // namespace

TkeyStates::TkeyStates(const TparamCurve& curve, unsigned center, unsigned reach) {
  record(curve, center, reach, /*after=*/false);
  fStaticBefore = curve.staticCurve();
}

void TkeyStates::captureAfter(const TparamCurve& curve, unsigned center, unsigned reach) {
  record(curve, center, reach, /*after=*/true);
  fStaticAfter = curve.staticCurve();
  fHasAfter = true;
}

void TkeyStates::record(const TparamCurve& curve, unsigned center, unsigned reach, bool after) {
  const unsigned n = Access::physicalCount(curve);
  if (n == 0) return;
  const bool whole = reach == kWholeCurve;
  const unsigned first = whole || center < reach ? 0 : center - reach;
  const unsigned last = whole || center >= n || n - 1 - center <= reach ? n - 1 : center + reach;
  // After an edit the keys are mostly those recorded before, in the same
  // order, so each is looked for where the previous one was found.
  std::size_t hint = 0;
  for (unsigned i = first; i <= last; ++i) {
    Tkeyframe* key = curve.keyframe(i);
    if (!key) continue;
    Tentry* entry = nullptr;
    if (after) {
      for (std::size_t probe = 0; probe < fEntries.size() && !entry; ++probe) {
        const std::size_t at = (hint + probe) % fEntries.size();
        if (fEntries[at].key == key) {
          entry = &fEntries[at];
          hint = at + 1;
        }
      }
    }
    if (!entry) {
      fEntries.push_back({});
      entry = &fEntries.back();
      entry->key = key;
    }
    (after ? entry->after : entry->before) = *key;
    (after ? entry->hasAfter : entry->hasBefore) = true;
  }
}

unsigned TkeyStates::locate(const TparamCurve& curve, const Tentry& entry) {
  for (const bool after : {false, true}) {
    if (!(after ? entry.hasAfter : entry.hasBefore)) continue;
    const Tkeyframe& state = after ? entry.after : entry.before;
    unsigned index = 0;
    if (curve.find(timeOf(curve, timeBits(state)), index) && curve.keyframe(index) == entry.key) {
      return index;
    }
  }
  return TparamCurve::kInvalidIndex;
}

bool TkeyStates::restore(TparamCurve& curve, bool after) const {
  if (fEntries.empty() && !fHasAfter) return false;
  if (!Access::beginChange(curve)) return false;
  bool changed = false;
  for (const Tentry& entry : fEntries) {
    if (!(after ? entry.hasAfter : entry.hasBefore)) continue;
    const unsigned index = locate(curve, entry);
    if (index == TparamCurve::kInvalidIndex) continue;
    const Tkeyframe& state = after ? entry.after : entry.before;
    Tkeyframe* key = entry.key;
    const int kind = changeKind(*key, state);
    if (kind == 0) continue;
    float* cache = key->getQuaternionEulerCache();
    const std::uint32_t time = timeBits(*key);
    *key = state;
    key->setQuaternionEulerCache(cache);
    // A state never moves a key past a neighbour (the curve changed behind
    // the records' backs): the key keeps its time then.
    if (!Access::keyArray(curve)->keyOrderValid(index)) {
      key->setTime(TanimTime(static_cast<std::int32_t>(time)));
    }
    Access::invalidateCache(curve, static_cast<int>(index));
    Access::notifyClientsOfChange(curve, key, static_cast<Tmsg::TmessageType>(kind - 1));
    changed = true;
  }
  const bool wantStatic = after ? fStaticAfter : fStaticBefore;
  if ((after ? fHasAfter : true) && curve.staticCurve() != wantStatic) {
    curve.setStaticCurve(wantStatic);
    changed = true;
  }
  Access::endChange(curve, changed);
  return true;
}

// --- TkeyStatesRecorder ---------------------------------------------------------------

TkeyStatesRecorder::TkeyStatesRecorder(TparamCurve& curve, unsigned center, unsigned reach) {
  if (!curve.isMod()) return;
  for (const TkeyStatesRecorder* r = gOpenRecorders; r != nullptr; r = r->fOuter) {
    if (r->fCurve == &curve) return;
  }
  fCurve = &curve;
  fOuter = gOpenRecorders;
  gOpenRecorders = this;
  fStates = TkeyStates(curve, center, reach);
  fStartDelta = curve.currentDelta();
  if (isComposite(fStartDelta)) {
    fStartChildren = static_cast<const TdeltaComposite*>(fStartDelta)->childCount();
  }
}

TkeyStatesRecorder::~TkeyStatesRecorder() {
  close();
}

void TkeyStatesRecorder::close() {
  if (!active()) return;
  // Recorders close in the reverse order of opening (they live on the stack).
  if (gOpenRecorders == this) gOpenRecorders = fOuter;
  fCurve = nullptr;
}

void TkeyStatesRecorder::finish(unsigned center, unsigned reach) {
  if (!active()) return;
  TparamCurve& curve = *fCurve;
  close();
  if (!curve.isMod()) return;
  // What the operation recorded: the whole gathered delta when there was
  // none before; the children after those that were there; or, when a
  // single delta turned into a composite, every child but the first.
  Tdelta* now = const_cast<Tdelta*>(curve.currentDelta());
  if (now == fStartDelta && !isComposite(now)) return;
  unsigned from = 0;
  if (fStartDelta != nullptr) from = now == fStartDelta ? fStartChildren : 1;
  std::vector<TparamCurveDelta*> recorded;
  collectCurveDeltas(now, from, recorded);
  if (recorded.empty()) return;
  fStates.captureAfter(curve, center, reach);
  if (recorded.size() > 1) recorded.front()->setKeyStates(fStates);
  recorded.back()->setKeyStates(std::move(fStates));
}

}  // namespace lumora
