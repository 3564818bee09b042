#include "lumora/base/dictionary.h"

#include <bit>
#include <new>

namespace lumora {

// ---------------------------------------------------------------------------
// TdictionaryNode

TdictionaryNode::TdictionaryNode(int level) {
  if (level <= 0) return;
  fLinks = new (std::nothrow) TdictionaryNode*[static_cast<unsigned>(level)]();
  if (fLinks != nullptr) fLevels = level;
}

TdictionaryNode::~TdictionaryNode() {
  delete[] fLinks;
}

TdictionaryNode*& TdictionaryNode::forward(int level) {
  if (level >= 0 && level < fLevels) return fLinks[level];
  fScratchLink = nullptr;
  return fScratchLink;
}

void TdictionaryNode::destroy() {
  delete this;
}

// ---------------------------------------------------------------------------
// Tbookmark

Tbookmark::Tbookmark(const Tdictionary& dictionary) {
  place(&dictionary, dictionary.first());
}

TdictionaryNode* Tbookmark::node() const {
  if (fDictionary == nullptr || fGeneration != fDictionary->fGeneration) return nullptr;
  return fNode;
}

void Tbookmark::next() {
  if (fDictionary == nullptr) return;
  TdictionaryNode* at = node();
  place(fDictionary, at != nullptr ? Tdictionary::next(at) : fDictionary->first());
}

void Tbookmark::previous() {
  if (fDictionary == nullptr) return;
  TdictionaryNode* at = node();
  place(fDictionary, at != nullptr ? fDictionary->previous(at) : fDictionary->last());
}

void Tbookmark::moveToFirst() {
  if (fDictionary != nullptr) place(fDictionary, fDictionary->first());
}

void Tbookmark::moveToLast() {
  if (fDictionary != nullptr) place(fDictionary, fDictionary->last());
}

void Tbookmark::place(const Tdictionary* dictionary, TdictionaryNode* node) {
  fDictionary = dictionary;
  fNode = node;
  fGeneration = dictionary != nullptr ? dictionary->fGeneration : 0;
}

// ---------------------------------------------------------------------------
// Tdictionary: construction

Tdictionary::Tdictionary(const Tdictionary& other) : fRandomState(other.fRandomState) {
  appendClonesOf(other);
}

Tdictionary::Tdictionary(Tdictionary&& other) noexcept {
  takeFrom(other);
}

Tdictionary& Tdictionary::operator=(const Tdictionary& other) {
  if (this == &other) return *this;
  reset();
  appendClonesOf(other);
  return *this;
}

Tdictionary& Tdictionary::operator=(Tdictionary&& other) noexcept {
  if (this == &other) return *this;
  reset();
  takeFrom(other);
  return *this;
}

Tdictionary::~Tdictionary() {
  destroyAll();
}

void Tdictionary::destroyAll() {
  TdictionaryNode* node = fHead[0];
  while (node != nullptr) {
    TdictionaryNode* following = node->forward(0);
    node->destroy();
    node = following;
  }
}

void Tdictionary::takeFrom(Tdictionary& other) {
  for (int i = 0; i < kMaxLevel; ++i) {
    fHead[i] = other.fHead[i];
    other.fHead[i] = nullptr;
  }
  fLevel = other.fLevel;
  fCount = other.fCount;
  fRandomState = other.fRandomState;
  other.fLevel = 0;
  other.fCount = 0;
  ++other.fGeneration;
}

void Tdictionary::appendClonesOf(const Tdictionary& other) {
  // The clones arrive in key order, so each goes after the current tail of
  // every level it joins; no searching is needed.
  TdictionaryNode* tail[kMaxLevel] = {};
  for (const TdictionaryNode* source = other.first(); source != nullptr; source = next(source)) {
    const int level = randomLevel();
    TdictionaryNode* node = source->clone(level);
    if (node == nullptr) continue;
    if (node->levels() < level) {
      node->destroy();
      continue;
    }
    for (int i = 0; i < level; ++i) {
      node->forward(i) = nullptr;
      link(tail[i], i) = node;
      tail[i] = node;
    }
    if (level > fLevel) fLevel = level;
    ++fCount;
  }
}

// ---------------------------------------------------------------------------
// Tdictionary: changing

TdictionaryNode* Tdictionary::insertNode(const TdictionaryNode& probe) {
  Tbookmark unused;
  return insertNode(probe, unused);
}

TdictionaryNode* Tdictionary::insertNode(const TdictionaryNode& probe, Tbookmark& mark) {
  TdictionaryNode* update[kMaxLevel];
  TdictionaryNode* found = findPredecessors(probe, update);
  if (sameKey(found, probe)) {
    found->setValue(probe);
    mark.place(this, found);
    return found;
  }

  const int level = randomLevel();
  TdictionaryNode* node = probe.clone(level);
  if (node != nullptr && node->levels() < level) {
    node->destroy();
    node = nullptr;
  }
  if (node == nullptr) {
    mark.place(this, nullptr);
    return nullptr;
  }
  // Levels above fLevel have update[i] null, which is the head.
  for (int i = 0; i < level; ++i) {
    TdictionaryNode*& into = link(update[i], i);
    node->forward(i) = into;
    into = node;
  }
  if (level > fLevel) fLevel = level;
  ++fCount;
  mark.place(this, node);
  return node;
}

bool Tdictionary::removeNode(const TdictionaryNode& probe) {
  Tbookmark unused;
  return removeNode(probe, unused);
}

bool Tdictionary::removeNode(const TdictionaryNode& probe, Tbookmark& mark) {
  TdictionaryNode* update[kMaxLevel];
  TdictionaryNode* found = findPredecessors(probe, update);
  if (!sameKey(found, probe)) {
    mark.place(this, found);
    return false;
  }

  TdictionaryNode* following = found->forward(0);
  for (int i = 0; i < fLevel; ++i) {
    TdictionaryNode*& into = link(update[i], i);
    if (into != found) break;  // found has no link at this level or above
    into = found->forward(i);
  }
  while (fLevel > 0 && fHead[fLevel - 1] == nullptr) --fLevel;
  --fCount;
  ++fGeneration;
  found->destroy();
  mark.place(this, following);
  return true;
}

void Tdictionary::reset() {
  destroyAll();
  for (TdictionaryNode*& head : fHead) head = nullptr;
  fLevel = 0;
  fCount = 0;
  ++fGeneration;
}

// ---------------------------------------------------------------------------
// Tdictionary: lookup and walking

TdictionaryNode* Tdictionary::searchNode(const TdictionaryNode& probe) const {
  TdictionaryNode* update[kMaxLevel];
  TdictionaryNode* found = findPredecessors(probe, update);
  return sameKey(found, probe) ? found : nullptr;
}

TdictionaryNode* Tdictionary::searchNode(const TdictionaryNode& probe, Tbookmark& mark) const {
  TdictionaryNode* update[kMaxLevel];
  TdictionaryNode* found = findPredecessors(probe, update);
  mark.place(this, found);
  return sameKey(found, probe) ? found : nullptr;
}

TdictionaryNode* Tdictionary::last() const {
  TdictionaryNode* at = nullptr;
  for (int i = fLevel - 1; i >= 0; --i) {
    for (TdictionaryNode* n = link(at, i); n != nullptr; n = link(at, i)) at = n;
  }
  return at;
}

TdictionaryNode* Tdictionary::next(const TdictionaryNode* node) {
  if (node == nullptr) return nullptr;
  // Stored nodes are never const objects; a const probe only touches its
  // mutable scratch link.
  return const_cast<TdictionaryNode*>(node)->forward(0);
}

TdictionaryNode* Tdictionary::previous(const TdictionaryNode* node) const {
  if (node == nullptr) return nullptr;
  TdictionaryNode* update[kMaxLevel];
  findPredecessors(*node, update);
  return update[0];
}

// ---------------------------------------------------------------------------
// Tdictionary: skip-list machinery

TdictionaryNode*& Tdictionary::link(TdictionaryNode* from, int level) {
  return from == nullptr ? fHead[level] : from->forward(level);
}

TdictionaryNode* Tdictionary::link(TdictionaryNode* from, int level) const {
  return from == nullptr ? fHead[level] : from->forward(level);
}

TdictionaryNode* Tdictionary::findPredecessors(const TdictionaryNode& probe,
                                               TdictionaryNode* update[kMaxLevel]) const {
  for (int i = 0; i < kMaxLevel; ++i) update[i] = nullptr;
  TdictionaryNode* at = nullptr;
  for (int i = fLevel - 1; i >= 0; --i) {
    for (TdictionaryNode* n = link(at, i); n != nullptr && n->compare(probe) < 0; n = link(at, i)) {
      at = n;
    }
    update[i] = at;
  }
  return link(at, 0);
}

bool Tdictionary::sameKey(const TdictionaryNode* node, const TdictionaryNode& probe) {
  return node != nullptr && node->compare(probe) == 0;
}

int Tdictionary::randomLevel() {
  // xorshift64; each further level is kept with probability 1/4, read off
  // pairs of low zero bits.
  unsigned long long x = fRandomState;
  x ^= x << 13;
  x ^= x >> 7;
  x ^= x << 17;
  fRandomState = x;
  const int level = 1 + std::countr_zero(x) / 2;
  return level < kMaxLevel ? level : kMaxLevel;
}

}  // namespace lumora
