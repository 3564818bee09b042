#include "lumora/base/metaclass.h"

namespace lumora {

Tmetaclass::Tmetaclass(Tmetaclass** exported, const char* name, std::size_t instanceSize,
                       TconstructFunction construct, Tmetaclass* parent)
    : fExported(exported),
      fName(name != nullptr ? name : ""),
      fInstanceSize(instanceSize),
      fConstruct(construct),
      fParent(parent) {
  if (fExported != nullptr) *fExported = this;
}

Tmetaclass::~Tmetaclass() {
  // A record created later for the same class may have taken the pointer
  // over; leave that one published.
  if (fExported != nullptr && *fExported == this) *fExported = nullptr;
}

bool Tmetaclass::istype(const Tmetaclass* record) const {
  if (record == nullptr) return false;
  for (const Tmetaclass* r = this; r != nullptr; r = r->fParent) {
    if (r == record) return true;
  }
  return false;
}

void* Tmetaclass::construct(Tmetaclass* requested) {
  if (fConstruct == nullptr) return nullptr;
  return fConstruct(requested);
}

}  // namespace lumora
