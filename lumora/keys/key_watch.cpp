#include "lumora/keys/key_watch.h"

#include <cassert>
#include <cstdint>
#include <vector>

#include "lumora/keys/keyframe.h"

namespace lumora {

namespace {

// The watches of each watched key, as intrusive lists. A key stores the
// number of its list plus one; numbers of lists that emptied are reused.
struct TwatchTable {
  std::vector<TkeyWatch*> heads;
  std::vector<std::uint32_t> freeSlots;
};

// Made on first use and never destroyed: keys may be deleted during static
// destruction (a host's global curve), after any table with a destructor
// would be gone.
TwatchTable& table() {
  static TwatchTable* const instance = new TwatchTable;
  return *instance;
}

}  // namespace

TkeyWatch::~TkeyWatch() {
  unlink();
}

void TkeyWatch::watch(Tkeyframe* key) {
  if (key == fKey) return;
  unlink();
  if (key != nullptr) link(key);
}

void TkeyWatch::link(Tkeyframe* key) {
  TwatchTable& t = table();
  std::uint32_t slot = key->fWatchSlot;
  if (slot == 0) {
    if (t.freeSlots.empty()) {
      t.heads.push_back(nullptr);
      slot = static_cast<std::uint32_t>(t.heads.size());
    } else {
      slot = t.freeSlots.back();
      t.freeSlots.pop_back();
    }
    key->fWatchSlot = slot;
  }
  TkeyWatch*& head = t.heads[slot - 1];
  fKey = key;
  fPrev = nullptr;
  fNext = head;
  if (head != nullptr) head->fPrev = this;
  head = this;
}

void TkeyWatch::unlink() {
  if (fKey == nullptr) return;
  TwatchTable& t = table();
  const std::uint32_t slot = fKey->fWatchSlot;
  assert(slot != 0 && slot <= t.heads.size() && "a watched key has a slot");
  TkeyWatch*& head = t.heads[slot - 1];
  if (fPrev != nullptr) fPrev->fNext = fNext;
  if (fNext != nullptr) fNext->fPrev = fPrev;
  if (head == this) head = fNext;
  if (head == nullptr) {
    t.freeSlots.push_back(slot);
    fKey->fWatchSlot = 0;
  }
  fKey = nullptr;
  fPrev = fNext = nullptr;
}

void TkeyWatch::keyDying(Tkeyframe* key) {
  // One watch at a time, each released before it is told: a callback may
  // release other watches of the key, or even watch it anew.
  while (key->fWatchSlot != 0) {
    TkeyWatch* w = table().heads[key->fWatchSlot - 1];
    w->unlink();
    w->keyDeleted(key);
  }
}

}  // namespace lumora
