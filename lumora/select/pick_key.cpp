#include "lumora/select/pick_key.h"

#include <cmath>
#include <new>
#include <utility>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"

namespace lumora {

// --- Construction ----------------------------------------------------------------

TpickKey::TpickKey(const TpickKey& other, bool ensureUnique) {
  if (other.isVoid() || other.fHandle == nullptr) return;
  // The key was allowed to be picked when `other` was made.
  (void)create(*other.fHandle, other.fFlags, ensureUnique, /*skipSelectCheck=*/true);
}

TpickKey::TpickKey(TpickKey&& other) noexcept : fFlags(other.fFlags), fHandle(other.fHandle) {
  other.fHandle = nullptr;
  other.fFlags.clear();
}

TpickKey& TpickKey::operator=(const TpickKey& other) {
  if (this == &other) return *this;
  TpickKey copy(other);
  *this = std::move(copy);
  return *this;
}

TpickKey& TpickKey::operator=(TpickKey&& other) noexcept {
  if (this == &other) return *this;
  release();
  fFlags = other.fFlags;
  fHandle = other.fHandle;
  other.fHandle = nullptr;
  other.fFlags.clear();
  return *this;
}

TpickKey::~TpickKey() {
  release();
}

void TpickKey::release() {
  delete fHandle;
  fHandle = nullptr;
}

int TpickKey::create(TparamCurve* curve, float seconds, const TbitField32& flags, bool ensureUnique,
                     bool skipSelectCheck) {
  if (fHandle != nullptr || curve == nullptr || std::isnan(seconds)) return -1;
  if (!skipSelectCheck && !curve->canSelect()) return -1;
  return adopt(new (std::nothrow) TkeyframeHandle(curve, seconds, ensureUnique), flags);
}

int TpickKey::create(TparamCurve* curve, unsigned index, const TbitField32& flags,
                     bool ensureUnique, bool skipSelectCheck) {
  if (fHandle != nullptr || curve == nullptr) return -1;
  if (!skipSelectCheck && !curve->canSelect()) return -1;
  return adopt(new (std::nothrow) TkeyframeHandle(curve, index, ensureUnique), flags);
}

int TpickKey::create(const TkeyframeHandle& handle, const TbitField32& flags, bool ensureUnique,
                     bool skipSelectCheck) {
  TparamCurve* curve = handle.paramCurve();
  if (fHandle != nullptr || curve == nullptr || handle.keyframe() == nullptr) return -1;
  if (!skipSelectCheck && !curve->canSelect()) return -1;
  return adopt(new (std::nothrow) TkeyframeHandle(handle, ensureUnique), flags);
}

int TpickKey::adopt(TkeyframeHandle* handle, const TbitField32& flags) {
  // A handle made by time or index has no key when there is none there; a
  // pick of nothing would only sit in a selection at time zero.
  if (handle == nullptr || handle->keyframe() == nullptr) {
    delete handle;
    return -1;
  }
  fHandle = handle;
  fFlags = TbitField32(flags.bits() & ~static_cast<unsigned>(kPickNoHandle));
  ensureFlagIntegrity();
  return 0;
}

void TpickKey::markVoid() {
  release();
  fFlags = TbitField32(kPickNoHandle);
}

// --- Flags -------------------------------------------------------------------------

void TpickKey::setFlagsMerge(const TpickKey& other) {
  if (handle() == nullptr) return;
  fFlags = merge(fFlags, other.fFlags);
}

void TpickKey::setFlagsDifference(const TpickKey& other) {
  if (handle() == nullptr) return;
  fFlags.setBits(fFlags.bits() & ~(other.fFlags.bits() & kPickMask));
}

void TpickKey::setFlagsIntersection(const TpickKey& other) {
  if (handle() == nullptr) return;
  const unsigned kept = fFlags.bits() & other.fFlags.bits() & kPickMask;
  fFlags.setBits((fFlags.bits() & ~kPickMask) | kept);
}

// --- Queries -----------------------------------------------------------------------

bool TpickKey::namesKey() const {
  const TkeyframeHandle* h = handle();
  return h != nullptr && h->keyframe() != nullptr;
}

TtimeValue TpickKey::time() const {
  const TkeyframeHandle* h = handle();
  return h != nullptr ? h->timeValue() : TtimeValue();
}

TpickKey::Tconflict TpickKey::conflictsInTimeWith(const TpickKey& other) const {
  // A pick whose key is gone reads as time zero; it must not meet a key
  // that happens to sit there.
  if (!namesKey() || !other.namesKey()) return kNoConflict;
  return time() == other.time() ? kSameTime : kNoConflict;
}

// --- Comparison --------------------------------------------------------------------

bool TpickKey::operator==(const TpickKey& other) const {
  const TkeyframeHandle* mine = handle();
  const TkeyframeHandle* theirs = other.handle();
  if (mine == nullptr || theirs == nullptr) return false;
  return fFlags == other.fFlags && *mine == *theirs;
}

bool TpickKey::operator<(const TpickKey& other) const {
  if (handle() == nullptr || other.handle() == nullptr) return false;
  return time() < other.time();
}

bool TpickKey::operator<=(const TpickKey& other) const {
  if (handle() == nullptr || other.handle() == nullptr) return false;
  return time() <= other.time();
}

}  // namespace lumora
