// TpickKeyDictionary: pick keys ordered by time, one per time.
//
// The dictionary is a skip list (Tdictionary) whose nodes hold a time and a
// pick key. Editing operations take one to say what they act on:
//
//   TpickKeyDictionary picks;
//   TpickKey pick;
//   if (pick.create(&curve, 1u, TbitField32(TpickKey::kPickKey)) == 0) {
//     picks.insert(pick.time(), pick);   // stores a copy
//   }
//   for (TpickKeyDictionaryNode* n = picks.first(); n; n = TpickKeyDictionary::next(n)) {
//     use(n->key(), n->data());
//   }
//   curve.setActive(picks, true);
//
// Things that surprise people:
//  * One pick per time: inserting at a time that is taken replaces the pick
//    there. A dictionary therefore holds the selection of one curve; keep one
//    per curve.
//  * The node's time is the time the pick was inserted under. It does not
//    follow the key when the key moves; TpickKeyList::updateDictionary()
//    re-keys a list by its keys' current times.
//  * Times compare as TtimeValue does: exactly within one kind, through
//    seconds across kinds, the "neither" time as 0 s. Fill one dictionary with
//    times of one kind. A NaN time is never stored or found: insert() gives
//    null, remove() false, search() null.
//  * Removing a node, and assigning or resetting the dictionary, moves every
//    bookmark of it to "no node" (see Tbookmark); insertions keep them.
#pragma once

#include "lumora/base/dictionary.h"
#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/time_value.h"
#include "lumora/select/pick_key.h"

namespace lumora {

/// Type records, created at module start; null while the module is stopped.
/// The base dictionary classes have no records, so these are roots.
extern LUMORA_API Tmetaclass* TpickKeyDictionaryNodeTmeta;
extern LUMORA_API Tmetaclass* TpickKeyDictionaryTmeta;

/// One entry of a TpickKeyDictionary: a time and the pick stored under it.
class LUMORA_API TpickKeyDictionaryNode : public TdictionaryNode {
 public:
  /// The zero ("neither") time and an empty pick.
  TpickKeyDictionaryNode() = default;
  /// `key` and an empty pick: the probe used to look a time up.
  explicit TpickKeyDictionaryNode(const TtimeValue& key) : fKey(key) {}
  /// `key` and a copy of `data` (TpickKey(data, false)).
  TpickKeyDictionaryNode(const TtimeValue& key, const TpickKey& data) : fKey(key), fData(data) {}
  ~TpickKeyDictionaryNode() override;

  virtual Tmetaclass* typeof() const;
  /// `this` for this class's record; otherwise null.
  virtual void* cast(Tmetaclass* record);
  /// A new empty node; null for a null record or one that is not this class.
  static TpickKeyDictionaryNode* construct(Tmetaclass* record);

  const TtimeValue& key() const { return fKey; }
  /// The pick. Changing it in place is allowed; the node's time stays.
  TpickKey& data() { return fData; }
  const TpickKey& data() const { return fData; }

  // --- What the dictionary asks of its nodes -----------------------------------

  /// -1, 0 or 1 as this node's time is less than, equal to or greater than
  /// `other`'s. `other` must be a TpickKeyDictionaryNode.
  int compare(const TdictionaryNode& other) const override;
  /// Replaces the pick with a copy of `other`'s.
  void setValue(const TdictionaryNode& other) override;
  /// A node with this time, a copy of the pick and `level` links.
  TdictionaryNode* clone(int level) const override;

 private:
  friend class TpickKeyDictionary;

  /// A stored node with `level` links.
  TpickKeyDictionaryNode(int level, const TtimeValue& key, const TpickKey& data)
      : TdictionaryNode(level), fKey(key), fData(data) {}
  /// An insertion probe that lends `pick` instead of copying it, so that
  /// inserting copies a pick once (into the stored node), not twice.
  TpickKeyDictionaryNode(const TtimeValue& key, const TpickKey* lent) : fKey(key), fLent(lent) {}
  /// The pick this node stands for: the lent one of a probe, else its own.
  const TpickKey& payload() const { return fLent != nullptr ? *fLent : fData; }

  TtimeValue fKey;
  TpickKey fData;
  const TpickKey* fLent = nullptr;
};

/// Pick keys keyed by time. Holds only TpickKeyDictionaryNode nodes, which
/// is why the base class's node-level insertion and lookup are not offered.
/// Copies clone every node (the picks are copied with their own handles).
class LUMORA_API TpickKeyDictionary : public Tdictionary {
 public:
  TpickKeyDictionary() = default;
  TpickKeyDictionary(const TpickKeyDictionary& other) = default;
  TpickKeyDictionary(TpickKeyDictionary&& other) noexcept = default;
  TpickKeyDictionary& operator=(const TpickKeyDictionary& other) = default;
  TpickKeyDictionary& operator=(TpickKeyDictionary&& other) noexcept = default;
  ~TpickKeyDictionary() override;

  virtual Tmetaclass* typeof() const;
  /// `this` for this class's record; otherwise null.
  virtual void* cast(Tmetaclass* record);
  /// A new empty dictionary; null for a null record or one that is not this
  /// class.
  static TpickKeyDictionary* construct(Tmetaclass* record);

  // --- Changing ------------------------------------------------------------------

  /// Stores a copy of `pick` under `time`, replacing the pick already there.
  /// Returns the node; null for a NaN time or when memory runs out.
  TpickKeyDictionaryNode* insert(const TtimeValue& time, const TpickKey& pick);
  /// As above; `mark` is left at the node ("no node" on failure).
  TpickKeyDictionaryNode* insert(const TtimeValue& time, const TpickKey& pick, Tbookmark& mark);
  /// Removes the node at `time`; false when there is none.
  bool remove(const TtimeValue& time);
  /// As above; `mark` is left at the node after the removed one (see
  /// Tdictionary::removeNode).
  bool remove(const TtimeValue& time, Tbookmark& mark);

  // --- Lookup --------------------------------------------------------------------

  /// The node at `time`, or null.
  TpickKeyDictionaryNode* findNode(const TtimeValue& time) const;
  /// As above; on a miss `mark` is left at the first node after `time`, so
  /// that `mark.previous()` reaches the last node before it.
  TpickKeyDictionaryNode* findNode(const TtimeValue& time, Tbookmark& mark) const;
  /// The pick at `time`, or null.
  TpickKey* search(const TtimeValue& time) const;
  TpickKey* search(const TtimeValue& time, Tbookmark& mark) const;

  // --- Walking -------------------------------------------------------------------

  TpickKeyDictionaryNode* first() const { return asPickNode(Tdictionary::first()); }
  /// O(log n).
  TpickKeyDictionaryNode* last() const { return asPickNode(Tdictionary::last()); }
  /// The node after `node` in time order; null after the last and for null.
  static TpickKeyDictionaryNode* next(const TdictionaryNode* node) {
    return asPickNode(Tdictionary::next(node));
  }
  /// The node before `node`, O(log n); null before the first and for null.
  TpickKeyDictionaryNode* previous(const TdictionaryNode* node) const {
    return asPickNode(Tdictionary::previous(node));
  }
  /// The node `mark` is at when it is a bookmark of this dictionary; else null.
  TpickKeyDictionaryNode* nodeAt(const Tbookmark& mark) const {
    return mark.dictionary() == this ? asPickNode(mark.node()) : nullptr;
  }

 private:
  using Tdictionary::insertNode;
  using Tdictionary::removeNode;
  using Tdictionary::searchNode;

  static TpickKeyDictionaryNode* asPickNode(TdictionaryNode* node) {
    return static_cast<TpickKeyDictionaryNode*>(node);
  }
};

}  // namespace lumora
