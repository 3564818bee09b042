#include "lumora/notify/delta.h"

namespace lumora {

Tmetaclass* TdeltaTmeta = nullptr;
Tmetaclass* TdeltaCompositeTmeta = nullptr;

// --- Tdelta ----------------------------------------------------------------------

Tdelta::~Tdelta() = default;

Tmetaclass* Tdelta::typeof() const {
  return TdeltaTmeta;
}

void* Tdelta::cast(Tmetaclass* record) {
  if (record && record == TdeltaTmeta) return this;
  return nullptr;
}

void Tdelta::undo() {
  if (fUser) fUser->undoDelta(this);
  setUndone(true);
}

void Tdelta::redo() {
  if (fUser) fUser->redoDelta(this);
  setUndone(false);
}

bool Tdelta::merge(Tdelta*) {
  return false;
}

// --- TdeltaUser --------------------------------------------------------------------

TdeltaUser::~TdeltaUser() {
  delete fCurrentDelta;
}

void TdeltaUser::beginMod() {
  fFlags |= kInModification;
}

Tdelta* TdeltaUser::endMod() {
  Tdelta* delta = fCurrentDelta;
  fCurrentDelta = nullptr;
  fFlags &= ~kInModification;
  return delta;
}

void TdeltaUser::undoDelta(Tdelta*) {}
void TdeltaUser::redoDelta(Tdelta*) {}

// --- TdeltaComposite -----------------------------------------------------------------

TdeltaComposite::~TdeltaComposite() {
  const unsigned n = fChildren.count();
  if (isUndone()) {
    for (unsigned i = n; i-- > 0;) delete fChildren[i];
  } else {
    for (unsigned i = 0; i < n; ++i) delete fChildren[i];
  }
}

Tmetaclass* TdeltaComposite::typeof() const {
  return TdeltaCompositeTmeta;
}

void* TdeltaComposite::cast(Tmetaclass* record) {
  if (record && record == TdeltaCompositeTmeta) return this;
  return Tdelta::cast(record);
}

void TdeltaComposite::undo() {
  for (unsigned i = fChildren.count(); i-- > 0;) fChildren[i]->undo();
  setUndone(true);
}

void TdeltaComposite::redo() {
  for (unsigned i = 0; i < fChildren.count(); ++i) fChildren[i]->redo();
  setUndone(false);
}

bool TdeltaComposite::merge(Tdelta* other) {
  if (!other) return true;
  if (fChildren.count() > 0 && fChildren.last()->merge(other)) return true;
  fChildren.addLast(other);
  return true;
}

}  // namespace lumora
