#include "lumora/select/pick_key_dictionary.h"

#include <cmath>
#include <new>

#include "lumora/base/internal/module_storage.h"
#include "lumora/select/internal/select_module.h"

namespace lumora {

Tmetaclass* TpickKeyDictionaryNodeTmeta = nullptr;
Tmetaclass* TpickKeyDictionaryTmeta = nullptr;

namespace {

// A NaN time is unordered against every time, so the skip list could neither
// place nor find it; it is turned away at the door.
bool usable(const TtimeValue& time) {
  return !(time.isFloat() && std::isnan(time.asFloat()));
}

// Leaves `mark` at the "no node" position of `dictionary`.
void markNoNode(const Tdictionary& dictionary, Tbookmark& mark) {
  mark = Tbookmark(dictionary);
  if (mark.valid()) {
    mark.moveToLast();
    mark.next();
  }
}

// Made when the library is loaded (see lumora/module.cpp).
internal::TmoduleStorage<Tmetaclass> sNodeRecord;
internal::TmoduleStorage<Tmetaclass> sDictionaryRecord;

}  // namespace

namespace internal {

void startSelectRecords() {
  if (sNodeRecord) return;
  sNodeRecord.emplace(&TpickKeyDictionaryNodeTmeta, "TpickKeyDictionaryNode",
                      sizeof(TpickKeyDictionaryNode), &constructInstance<TpickKeyDictionaryNode>,
                      nullptr);
  sDictionaryRecord.emplace(&TpickKeyDictionaryTmeta, "TpickKeyDictionary",
                            sizeof(TpickKeyDictionary), &constructInstance<TpickKeyDictionary>,
                            nullptr);
}

void stopSelectRecords() {
  sDictionaryRecord.reset();
  sNodeRecord.reset();
}

}  // namespace internal

// --- TpickKeyDictionaryNode --------------------------------------------------------

TpickKeyDictionaryNode::~TpickKeyDictionaryNode() = default;

Tmetaclass* TpickKeyDictionaryNode::typeof() const {
  return TpickKeyDictionaryNodeTmeta;
}

void* TpickKeyDictionaryNode::cast(Tmetaclass* record) {
  if (record != nullptr && record == TpickKeyDictionaryNodeTmeta) return this;
  return nullptr;
}

TpickKeyDictionaryNode* TpickKeyDictionaryNode::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TpickKeyDictionaryNodeTmeta)) return nullptr;
  return static_cast<TpickKeyDictionaryNode*>(record->construct(TpickKeyDictionaryNodeTmeta));
}

int TpickKeyDictionaryNode::compare(const TdictionaryNode& other) const {
  const TtimeValue& theirs = static_cast<const TpickKeyDictionaryNode&>(other).fKey;
  if (fKey < theirs) return -1;
  return fKey == theirs ? 0 : 1;
}

void TpickKeyDictionaryNode::setValue(const TdictionaryNode& other) {
  fData = static_cast<const TpickKeyDictionaryNode&>(other).payload();
}

TdictionaryNode* TpickKeyDictionaryNode::clone(int level) const {
  return new (std::nothrow) TpickKeyDictionaryNode(level, fKey, payload());
}

// --- TpickKeyDictionary ------------------------------------------------------------

TpickKeyDictionary::~TpickKeyDictionary() = default;

Tmetaclass* TpickKeyDictionary::typeof() const {
  return TpickKeyDictionaryTmeta;
}

void* TpickKeyDictionary::cast(Tmetaclass* record) {
  if (record != nullptr && record == TpickKeyDictionaryTmeta) return this;
  return nullptr;
}

TpickKeyDictionary* TpickKeyDictionary::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TpickKeyDictionaryTmeta)) return nullptr;
  return static_cast<TpickKeyDictionary*>(record->construct(TpickKeyDictionaryTmeta));
}

TpickKeyDictionaryNode* TpickKeyDictionary::insert(const TtimeValue& time, const TpickKey& pick) {
  if (!usable(time)) return nullptr;
  return asPickNode(insertNode(TpickKeyDictionaryNode(time, &pick)));
}

TpickKeyDictionaryNode* TpickKeyDictionary::insert(const TtimeValue& time, const TpickKey& pick,
                                                   Tbookmark& mark) {
  if (!usable(time)) {
    markNoNode(*this, mark);
    return nullptr;
  }
  return asPickNode(insertNode(TpickKeyDictionaryNode(time, &pick), mark));
}

bool TpickKeyDictionary::remove(const TtimeValue& time) {
  return usable(time) && removeNode(TpickKeyDictionaryNode(time));
}

bool TpickKeyDictionary::remove(const TtimeValue& time, Tbookmark& mark) {
  if (!usable(time)) {
    markNoNode(*this, mark);
    return false;
  }
  return removeNode(TpickKeyDictionaryNode(time), mark);
}

TpickKeyDictionaryNode* TpickKeyDictionary::findNode(const TtimeValue& time) const {
  if (!usable(time)) return nullptr;
  return asPickNode(searchNode(TpickKeyDictionaryNode(time)));
}

TpickKeyDictionaryNode* TpickKeyDictionary::findNode(const TtimeValue& time,
                                                     Tbookmark& mark) const {
  if (!usable(time)) {
    markNoNode(*this, mark);
    return nullptr;
  }
  return asPickNode(searchNode(TpickKeyDictionaryNode(time), mark));
}

TpickKey* TpickKeyDictionary::search(const TtimeValue& time) const {
  TpickKeyDictionaryNode* node = findNode(time);
  return node != nullptr ? &node->data() : nullptr;
}

TpickKey* TpickKeyDictionary::search(const TtimeValue& time, Tbookmark& mark) const {
  TpickKeyDictionaryNode* node = findNode(time, mark);
  return node != nullptr ? &node->data() : nullptr;
}

}  // namespace lumora
