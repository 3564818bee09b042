// The full states of the keys that the recorded moves of one modification
// changed, before the first of those moves and after the last.
//
// Drag records (TPCDdragKey) of one key merge into one record from the
// drag's start to its end, and the records of a whole drag end up in an
// order that no longer says which key has to go back first. Putting keys
// back one at a time could therefore stop a key at a neighbour that has not
// gone back yet, or land it on a time another key still holds, and the
// tangents the rules compute on the way back need not be the ones the keys
// had (they may have been written directly). So while a curve records, its
// moves note here the state of every key they are about to change, once,
// and after each move operation the state of each such key as it is now:
//
//   journal->noteBefore(key);    // before the first change of `key`
//   ... the move ...
//   journal->captureAfter();     // after each outermost move operation
//
// The drag records of the modification share the journal. When the last of
// them is undone (the whole group has been undone), the journal puts every
// noted key back to its state from before, re-sorting the key array in one
// pass; when the last of them is redone, to its state from after. Keys stay
// the same objects throughout. Not installed.
#pragma once

#include <cstdint>
#include <deque>

#include "lumora/base/internal/flat_multi_map.h"
#include "lumora/keys/key_watch.h"
#include "lumora/keys/keyframe.h"

namespace lumora {

class TparamCurve;

namespace internal {

class TmoveJournal {
 public:
  explicit TmoveJournal(TparamCurve& curve) : fCurve(&curve) {}
  TmoveJournal(const TmoveJournal&) = delete;
  TmoveJournal& operator=(const TmoveJournal&) = delete;

  /// Notes the state of `key` now, unless it was noted already in this run
  /// of moves: one probe for a key noted before. The curve's static flag is
  /// noted with the first key.
  void noteBefore(Tkeyframe* key);
  /// Takes the state of every noted key as it is now, and the static flag,
  /// when anything was noted since the last capture. The curve calls it
  /// when the run of moves ends: before any other change of the curve
  /// starts, when another record is made, and when recording stops; a
  /// restore calls it first too. A drag of many steps therefore copies each
  /// key's state once, not once per step.
  void captureAfter();

  /// A drag record joined or left the group.
  void addMember() { ++fMembers; }
  void removeMember() {
    if (fMembers > 0) --fMembers;
  }
  /// A member was undone (redone); the last of the group puts the states back.
  void memberUndone();
  void memberRedone();

  /// Keys noted so far.
  std::size_t size() const { return fEntries.size(); }

 private:
  // Watches a noted key: a key deleted meanwhile leaves the lookup, so that
  // a new key object at the same address is noted afresh.
  class Twatch final : public TkeyWatch {
   public:
    TmoveJournal* journal = nullptr;

   private:
    void keyDeleted(Tkeyframe* key) override;
  };
  struct Tentry {
    Twatch key;
    Tkeyframe before;
    Tkeyframe after;
    bool hasAfter = false;
  };
  /// Puts the noted states back into the keys that are in the curve.
  void restore(bool after);

  TparamCurve* fCurve;
  std::deque<Tentry> fEntries;
  TflatMultiMap<const void*, ThashPointer> fByKey;  // live noted key -> its entry's place
  // The last keys noted: a move notes a key with its neighbours, so
  // successive moves of neighbouring keys note each key up to three times.
  const Tkeyframe* fRecent[4] = {};
  unsigned fRecentNext = 0;
  bool fDirty = false;  // noted since the last capture
  bool fHasStatic = false;
  bool fStaticBefore = false;
  bool fStaticAfter = false;
  unsigned fMembers = 0;
  unsigned fUndoneMembers = 0;
  unsigned fRedoneMembers = 0;
};

}  // namespace internal
}  // namespace lumora
