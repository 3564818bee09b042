// Curve deltas: the base class, the composites that gather them, and the
// type records of those.
#include "lumora/notify/param_curve_delta.h"

#include <bit>
#include <cassert>
#include <cmath>
#include <cstdint>
#include <vector>

#include "lumora/base/internal/flat_multi_map.h"
#include "lumora/curve/internal/key_array.h"
#include "lumora/notify/drag_deltas.h"
#include "lumora/notify/internal/curve_delta_access.h"
#include "lumora/notify/internal/delta_module.h"
#include "lumora/notify/internal/delta_records.h"

namespace lumora {

Tmetaclass* TparamCurveDeltaTmeta = nullptr;
Tmetaclass* TparamCurveDeltaCompTmeta = nullptr;

namespace {

using Access = internal::TcurveDeltaAccess;

// Two drags chain when the second starts where the first ended, up to this
// difference in value.
constexpr double kDragValueTolerance = 1e-10;

TparamCurveDelta* asCurveDelta(Tdelta* delta) {
  return isDeltaOfType(delta, TparamCurveDeltaTmeta) ? static_cast<TparamCurveDelta*>(delta)
                                                     : nullptr;
}

TparamCurveDeltaComp* asCurveComposite(Tdelta* delta) {
  return isDeltaOfType(delta, TparamCurveDeltaCompTmeta) ? static_cast<TparamCurveDeltaComp*>(delta)
                                                         : nullptr;
}

TPCDdragKey* asDragKey(Tdelta* delta) {
  return isDeltaOfType(delta, TPCDdragKeyTmeta) ? static_cast<TPCDdragKey*>(delta) : nullptr;
}

}  // namespace

namespace internal {

// The drag records of a composite by the curve and the time they ended at:
// each entry holds a child's place in the list.
class TdragMergeIndex {
 public:
  struct Tkey {
    const TparamCurve* curve;
    std::uint32_t seconds;  // bits of the end time in seconds (0 for -0)
    bool operator==(const Tkey&) const = default;
  };
  struct Thash {
    std::uint64_t operator()(const Tkey& k) const {
      const auto c = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(k.curve));
      return mixBits((c << 7) ^ k.seconds);
    }
  };

  // The bucket key of `time`; false for a time equal to no time (NaN).
  static bool keyOf(const TparamCurve* curve, const TtimeValue& time, Tkey& key) {
    float seconds = time.inSeconds();
    if (std::isnan(seconds)) return false;
    // Every pair of times that compare equal has equal seconds, so a key
    // finds every candidate; candidates are then compared exactly.
    if (seconds == 0.0f) seconds = 0.0f;
    key = {curve, std::bit_cast<std::uint32_t>(seconds)};
    return true;
  }

  TflatMultiMap<Tkey, Thash> places;
  unsigned indexedUpTo = 0;
  unsigned holes = 0;
};

}  // namespace internal

bool isDeltaOfType(const Tdelta* delta, const Tmetaclass* record) {
  if (!delta || !record) return false;
  const Tmetaclass* own = delta->typeof();
  return own && own->istype(record);
}

// --- TparamCurveDelta --------------------------------------------------------------------

TparamCurveDelta::TparamCurveDelta(TparamCurve* curve) : Tdelta(curve), fCurve(curve) {}

TparamCurveDelta::~TparamCurveDelta() = default;

Tmetaclass* TparamCurveDelta::typeof() const {
  return TparamCurveDeltaTmeta;
}

void* TparamCurveDelta::cast(Tmetaclass* record) {
  if (record && record == TparamCurveDeltaTmeta) return this;
  return Tdelta::cast(record);
}

void TparamCurveDelta::setSubjectKey(Tkeyframe* key) {
  fSubjectKey = key;
}

bool TparamCurveDelta::beginReplay() {
  return fCurve != nullptr && Access::beginChange(*fCurve);
}

void TparamCurveDelta::endReplay(bool opened, bool after) {
  if (!opened) return;
  fKeyStates.restore(*fCurve, after);
  // The kind's own steps and the restore reported their changes themselves.
  Access::endChange(*fCurve, /*changed=*/false);
}

unsigned TparamCurveDelta::indexOfKey(const TparamCurve& curve, const Tkeyframe* key) {
  if (!key) return kNoIndex;
  unsigned index = 0;
  if (curve.find(curve.timeValue(key), index) && curve.keyframe(index) == key) return index;
  // A key whose time was overwritten in place may sit where a search does
  // not look.
  const unsigned n = Access::physicalCount(curve);
  for (unsigned i = 0; i < n; ++i) {
    if (curve.keyframe(i) == key) return i;
  }
  return kNoIndex;
}

bool TparamCurveDelta::detachKey(TparamCurve& curve, Tkeyframe* key, bool refreshNewFirst) {
  const unsigned index = indexOfKey(curve, key);
  if (index == kNoIndex) return false;
  if (!Access::beginChange(curve)) return false;
  assert(Access::keyArray(curve) && "a key found in the curve means it has key storage");
  Access::sendAddDeleteMessage(curve, key, /*added=*/false);
  Access::notifyClientsOfChange(curve, key, TparamCurveModifiedMsg::kKeyRemoved);
  Access::keyArray(curve)->removeKey(index);
  if (index > 0) {
    Access::setSpanInterpMethod(curve, index - 1);
    Access::modifyTangents(curve, index - 1);
  } else if (refreshNewFirst && curve.keyframeCount() > 0) {
    // The new first key has lost the previous neighbour it was computed with.
    Access::modifyTangents(curve, 0);
  }
  Access::invalidateCache(curve, static_cast<int>(index));
  if (curve.keyframeCount() == 0) curve.setStaticCurve(true);
  Access::endChange(curve, true);
  return true;
}

// --- TparamCurveDeltaComp ----------------------------------------------------------------

TparamCurveDeltaComp::TparamCurveDeltaComp()
    : fEntries(/*elementSize=*/4, /*capacity=*/0, /*allowDuplicates=*/false) {}

TparamCurveDeltaComp::~TparamCurveDeltaComp() {
  // The base deletes the children in an order that must not meet empty places.
  compact();
}

Tmetaclass* TparamCurveDeltaComp::typeof() const {
  return TparamCurveDeltaCompTmeta;
}

void* TparamCurveDeltaComp::cast(Tmetaclass* record) {
  if (record && record == TparamCurveDeltaCompTmeta) return this;
  return TdeltaComposite::cast(record);
}

bool TparamCurveDeltaComp::merge(Tdelta* delta) {
  if (!delta || delta == this) return true;
  if (TparamCurveDeltaComp* composite = asCurveComposite(delta)) {
    if (merge(composite)) return true;
  } else if (TparamCurveDelta* curveDelta = asCurveDelta(delta)) {
    if (merge(curveDelta)) return true;
  }
  return TdeltaComposite::merge(delta);
}

bool TparamCurveDeltaComp::merge(TparamCurveDeltaComp* other) {
  if (!other) return true;
  if (other == this) return false;
  other->compact();
  const unsigned n = other->fChildren.count();
  for (unsigned i = 0; i < n; ++i) merge(other->fChildren[i]);
  other->reset();
  delete other;
  return true;
}

template <typename Accept>
long TparamCurveDeltaComp::findDragToContinue(const TparamCurve* curve, const TtimeValue& oldTime,
                                              double oldValue, const TPCDdragKey* self,
                                              Accept accept) {
  if (!fDragIndex) fDragIndex = std::make_unique<internal::TdragMergeIndex>();
  internal::TdragMergeIndex& index = *fDragIndex;
  // Children that arrived since the last merge join the index first.
  const unsigned n = fChildren.count();
  for (unsigned i = index.indexedUpTo; i < n; ++i) {
    const TPCDdragKey* child = asDragKey(fChildren.data()[i]);
    internal::TdragMergeIndex::Tkey key{};
    if (child && internal::TdragMergeIndex::keyOf(child->curve(), child->newTime(), key)) {
      index.places.insert(key, i);
    }
  }
  index.indexedUpTo = n;

  internal::TdragMergeIndex::Tkey key{};
  if (!internal::TdragMergeIndex::keyOf(curve, oldTime, key)) return -1;
  long chosen = -1;
  index.places.forEach(key, [&](auto& slot) {
    const auto* earlier = static_cast<const TPCDdragKey*>(fChildren.data()[slot.value]);
    if (earlier == self || earlier->newTime() != oldTime) return true;
    if (!(std::fabs(earlier->newValue() - oldValue) < kDragValueTolerance)) return true;
    if (!accept(*earlier)) return true;
    if (chosen < 0 || slot.value < static_cast<unsigned long>(chosen)) {
      chosen = static_cast<long>(slot.value);
    }
    return true;
  });
  return chosen;
}

void TparamCurveDeltaComp::finishMerge(unsigned place, TPCDdragKey* drag) {
  internal::TdragMergeIndex& index = *fDragIndex;
  const auto* earlier = static_cast<const TPCDdragKey*>(fChildren.data()[place]);
  internal::TdragMergeIndex::Tkey key{};
  if (internal::TdragMergeIndex::keyOf(earlier->curve(), earlier->newTime(), key)) {
    index.places.forEach(key, [&](auto& slot) {
      if (slot.value != place) return true;
      index.places.erase(slot);
      return false;
    });
  }
  // The earlier record's place stays empty until the list is compacted, so
  // that no merge moves the children after it.
  fChildren.data()[place] = nullptr;
  ++index.holes;
  fChildren.addLast(drag);
  if (fMergeBatch == 0 || (index.holes > 64 && index.holes > fChildren.count() / 2)) compact();
}

bool TparamCurveDeltaComp::merge(TparamCurveDelta* delta) {
  if (!delta) return true;
  TPCDdragKey* drag = asDragKey(delta);
  if (!drag) return false;
  // A drag of another run of moves is put back by another journal.
  const long place =
      findDragToContinue(drag->curve(), drag->oldTime(), drag->oldValue(), drag,
                         [drag](const TPCDdragKey& e) { return e.journal() == drag->journal(); });
  if (place < 0) return false;
  auto* earlier = static_cast<TPCDdragKey*>(fChildren.data()[place]);
  drag->setOldState(earlier->oldTime(), earlier->oldValue(), earlier->oldW());
  finishMerge(static_cast<unsigned>(place), drag);
  delete earlier;
  return true;
}

TPCDdragKey* TparamCurveDeltaComp::continueDrag(const TparamCurve* curve, const Tkeyframe* key,
                                                const TtimeValue& oldTime, double oldValue,
                                                const internal::TmoveJournal* journal) {
  const long place =
      findDragToContinue(curve, oldTime, oldValue, nullptr,
                         [journal](const TPCDdragKey& e) { return e.journal() == journal; });
  if (place < 0) return nullptr;
  auto* earlier = static_cast<TPCDdragKey*>(fChildren.data()[place]);
  const TkeyframeHandle* handle = earlier->handle();
  if (!handle || handle->keyframe() != key || !earlier->keyStates().empty() ||
      earlier->subjectKey() != nullptr || earlier->dictionaryMove() || earlier->isUndone()) {
    return nullptr;
  }
  finishMerge(static_cast<unsigned>(place), earlier);
  return earlier;
}

void TparamCurveDeltaComp::compact() {
  if (!fDragIndex || fDragIndex->holes == 0) return;
  internal::TdragMergeIndex& index = *fDragIndex;
  Tdelta** children = fChildren.data();
  const unsigned n = fChildren.count();
  // Where each child goes; the index follows its children instead of being
  // built again.
  std::vector<unsigned> moved(n);
  unsigned kept = 0;
  unsigned indexedKept = 0;
  for (unsigned i = 0; i < n; ++i) {
    if (i == index.indexedUpTo) indexedKept = kept;
    moved[i] = kept;
    if (children[i] != nullptr) children[kept++] = children[i];
  }
  if (index.indexedUpTo >= n) indexedKept = kept;
  fChildren.changeLogicalSizeTo(kept);
  index.places.forEachValue([&moved](std::uint32_t& place) { place = moved[place]; });
  index.indexedUpTo = indexedKept;
  index.holes = 0;
}

void TparamCurveDeltaComp::endMergeBatch() {
  if (fMergeBatch == 0) return;
  if (--fMergeBatch == 0) compact();
}

void TparamCurveDeltaComp::undo() {
  compact();
  TdeltaComposite::undo();
}

void TparamCurveDeltaComp::redo() {
  compact();
  TdeltaComposite::redo();
}

void TparamCurveDeltaComp::addLast(Tdelta* delta) {
  if (!delta || delta == this) return;
  if (TparamCurveDeltaComp* composite = asCurveComposite(delta)) {
    composite->compact();
    const unsigned n = composite->fChildren.count();
    for (unsigned i = 0; i < n; ++i) addLast(composite->fChildren[i]);
    return;
  }
  if (asCurveDelta(delta)) {
    fChildren.addLast(delta);
    return;
  }
  TdeltaComposite::merge(delta);
}

void TparamCurveDeltaComp::reset() {
  fChildren.changeLogicalSizeTo(0);
  fDragIndex.reset();
}

void TparamCurveDeltaComp::releaseFlattened(TparamCurveDeltaComp* flattened) {
  if (!flattened) return;
  flattened->compact();
  const unsigned n = flattened->fChildren.count();
  for (unsigned i = 0; i < n; ++i) {
    releaseFlattened(asCurveComposite(flattened->fChildren[i]));
  }
  flattened->reset();
  delete flattened;
}

// --- TparamCurveDeltaUser ----------------------------------------------------------------

void TparamCurveDeltaUser::beginParamCurveMod(TparamCurve& curve) {
  curve.beginMod();
}

bool TparamCurveDeltaUser::endParamCurveMod(TparamCurve& curve) {
  if (!curve.isMod()) return false;
  Tdelta* gathered = curve.endMod();
  if (!gathered) return false;
  addLast(gathered);
  releaseFlattened(asCurveComposite(gathered));
  return true;
}

// --- Type records ------------------------------------------------------------------------

namespace {

// Parents first; stopping destroys them back to front.
constinit internal::TrecordSet<4> sRecords;

}  // namespace

namespace internal {

void startDeltaRecords() {
  const TrecordRow rows[] = {
      {&TdeltaTmeta, "Tdelta", sizeof(Tdelta), &constructInstance<Tdelta>, nullptr},
      {&TdeltaCompositeTmeta, "TdeltaComposite", sizeof(TdeltaComposite),
       &constructInstance<TdeltaComposite>, &TdeltaTmeta},
      {&TparamCurveDeltaTmeta, "TparamCurveDelta", sizeof(TparamCurveDelta), nullptr, &TdeltaTmeta},
      {&TparamCurveDeltaCompTmeta, "TparamCurveDeltaComp", sizeof(TparamCurveDeltaComp),
       &constructInstance<TparamCurveDeltaComp>, &TdeltaCompositeTmeta},
  };
  sRecords.start(rows);
  startKeyDeltaRecords();
  startDragDeltaRecords();
  startSettingDeltaRecords();
}

void stopDeltaRecords() {
  stopSettingDeltaRecords();
  stopDragDeltaRecords();
  stopKeyDeltaRecords();
  sRecords.stop();
}

}  // namespace internal

}  // namespace lumora
