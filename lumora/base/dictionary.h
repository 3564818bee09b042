// An ordered dictionary of caller-defined nodes, kept as a skip list.
//
//   class IntNode : public TdictionaryNode {
//    public:
//     IntNode(int key, int level = 0) : TdictionaryNode(level), fKey(key) {}
//     int compare(const TdictionaryNode& o) const override {
//       const int k = static_cast<const IntNode&>(o).fKey;
//       return fKey < k ? -1 : (fKey > k ? 1 : 0);
//     }
//     void setValue(const TdictionaryNode&) override {}
//     TdictionaryNode* clone(int level) const override { return new IntNode(fKey, level); }
//     int fKey;
//   };
//
//   Tdictionary d;
//   d.insertNode(IntNode(3));                       // stores a clone of the probe
//   TdictionaryNode* n = d.searchNode(IntNode(3));
//   for (Tbookmark m(d); m.valid(); m.next()) use(m.node());
//
// The caller never allocates stored nodes: the dictionary asks the probe for a
// clone with the number of forward links it picked, and destroys nodes through
// destroy(). Insert, remove and search take O(log n) expected time. Link
// counts come from a pseudo-random generator with a fixed seed, so the same
// sequence of operations builds the same structure on every run.
#pragma once

#include "lumora/base/export.h"

namespace lumora {

class Tdictionary;

/// One entry of a Tdictionary. Subclasses add the key and payload and
/// implement compare, setValue and clone; the base keeps the forward links.
///
/// A node built for searching (a probe) needs no links: construct it with
/// level 0. Nodes cannot be copied, so links are never shared by accident;
/// subclasses copy their own fields in clone().
class LUMORA_API TdictionaryNode {
 public:
  // Construction ------------------------------------------------------------

  /// A node with `level` forward links, all null. A negative level counts as
  /// 0; if the links cannot be allocated the node has none (and the
  /// dictionary refuses to store it).
  explicit TdictionaryNode(int level = 0);
  TdictionaryNode(const TdictionaryNode&) = delete;
  TdictionaryNode& operator=(const TdictionaryNode&) = delete;
  virtual ~TdictionaryNode();

  // Links -------------------------------------------------------------------

  /// The link to the next node at `level` (0 is the full ordered chain).
  /// Outside [0, levels()) the answer is a scratch slot, reset to null on
  /// each such call, that the dictionary never reads.
  virtual TdictionaryNode*& forward(int level);
  /// The number of forward links. A subclass that overrides forward() to keep
  /// its links elsewhere overrides this too.
  virtual int levels() const { return fLevels; }

  // Supplied by subclasses --------------------------------------------------

  /// Negative, zero or positive as this node's key is less than, equal to or
  /// greater than `other`'s. Must be a strict weak order.
  virtual int compare(const TdictionaryNode& other) const = 0;
  /// Copies `other`'s payload into this node; called when a key that is
  /// already present is inserted again. The key itself compares equal already.
  virtual void setValue(const TdictionaryNode& other) = 0;
  /// A new heap node of the concrete type with this node's key and payload and
  /// (at least) `level` forward links; null when it cannot be made.
  virtual TdictionaryNode* clone(int level) const = 0;
  /// Ends the node's life; the default deletes it.
  virtual void destroy();

 private:
  TdictionaryNode** fLinks = nullptr;
  int fLevels = 0;
  // Returned by forward() for levels the node does not have. Mutable so that
  // Tdictionary::next may be asked about a const probe.
  mutable TdictionaryNode* fScratchLink = nullptr;
};

/// A position in a Tdictionary: at one of its nodes, or at the single "no
/// node" position that lies both after the last node and before the first.
/// next() and previous() move around that ring, so stepping past either end
/// lands on "no node" and one more step wraps to the other end.
///
/// next() is O(1); previous() searches from the top in O(log n) (nodes carry
/// no back links). A bookmark does not keep its node alive: removing any
/// node, reset() and assigning the dictionary move every existing bookmark of
/// that dictionary to "no node", so a bookmark never leads to a freed node.
/// Insertions leave bookmarks where they are. A bookmark must not outlive its
/// dictionary.
class LUMORA_API Tbookmark {
 public:
  /// A bookmark of no dictionary: never valid, and moving it does nothing.
  Tbookmark() = default;
  /// A bookmark at the first node of `dictionary` ("no node" when empty).
  explicit Tbookmark(const Tdictionary& dictionary);

  /// True when the bookmark is at a node.
  bool valid() const { return node() != nullptr; }
  /// The node the bookmark is at; null at "no node".
  TdictionaryNode* node() const;
  const Tdictionary* dictionary() const { return fDictionary; }

  /// To the following node; from the last node to "no node", from "no node"
  /// to the first node.
  void next();
  /// To the preceding node; from the first node to "no node", from "no node"
  /// to the last node.
  void previous();
  void moveToFirst();
  void moveToLast();

 private:
  friend class Tdictionary;
  void place(const Tdictionary* dictionary, TdictionaryNode* node);

  const Tdictionary* fDictionary = nullptr;
  TdictionaryNode* fNode = nullptr;
  unsigned long long fGeneration = 0;  // the dictionary's generation when placed
};

/// An ordered set of nodes with unique keys. Owns its nodes: they are clones
/// of the probes passed in and are destroyed (TdictionaryNode::destroy) on
/// removal, reset() and destruction. Not safe for concurrent use.
class LUMORA_API Tdictionary {
 public:
  /// The most forward links a node gets; enough for billions of nodes.
  static constexpr int kMaxLevel = 16;

  // Construction ------------------------------------------------------------

  Tdictionary() = default;
  /// Clones every node of `other`, in order. A node whose clone fails is
  /// left out.
  Tdictionary(const Tdictionary& other);
  /// Takes `other`'s nodes; `other` is left empty.
  Tdictionary(Tdictionary&& other) noexcept;
  Tdictionary& operator=(const Tdictionary& other);
  Tdictionary& operator=(Tdictionary&& other) noexcept;
  virtual ~Tdictionary();

  // Changing ----------------------------------------------------------------

  /// Stores a clone of `probe`, or, when a node with an equal key exists,
  /// calls its setValue(probe). Returns the stored node; null when the clone
  /// could not be made (nothing changes then).
  TdictionaryNode* insertNode(const TdictionaryNode& probe);
  /// As above; `mark` is left at the returned node ("no node" on failure).
  TdictionaryNode* insertNode(const TdictionaryNode& probe, Tbookmark& mark);
  /// Removes and destroys the node whose key equals `probe`'s; false when
  /// there is none.
  bool removeNode(const TdictionaryNode& probe);
  /// As above; `mark` is left at the node after the removed one, or where
  /// searchNode(probe, mark) would leave it when nothing was removed.
  bool removeNode(const TdictionaryNode& probe, Tbookmark& mark);
  /// Destroys every node.
  void reset();

  // Lookup ------------------------------------------------------------------

  /// The node whose key equals `probe`'s, or null.
  TdictionaryNode* searchNode(const TdictionaryNode& probe) const;
  /// As above; `mark` is left at the found node or, on a miss, at the first
  /// node after where `probe` would be ("no node" if it would be last), so
  /// `mark.previous()` then reaches the last node before it.
  TdictionaryNode* searchNode(const TdictionaryNode& probe, Tbookmark& mark) const;

  unsigned count() const { return fCount; }
  bool empty() const { return fCount == 0; }

  // Walking -----------------------------------------------------------------

  TdictionaryNode* first() const { return fHead[0]; }
  /// O(log n).
  TdictionaryNode* last() const;
  /// The node after `node` in key order; null after the last node and for
  /// null.
  static TdictionaryNode* next(const TdictionaryNode* node);
  /// The stored node before `node` in key order, found by key in O(log n);
  /// null before the first node and for null.
  TdictionaryNode* previous(const TdictionaryNode* node) const;

 private:
  friend class Tbookmark;

  // The link at `level` leaving `from`, where null stands for the head.
  TdictionaryNode*& link(TdictionaryNode* from, int level);
  TdictionaryNode* link(TdictionaryNode* from, int level) const;
  // Fills update[i] with the last node (null: the head) whose key is below
  // `probe`'s at each level in use; returns the first node not below it.
  TdictionaryNode* findPredecessors(const TdictionaryNode& probe,
                                    TdictionaryNode* update[kMaxLevel]) const;
  static bool sameKey(const TdictionaryNode* node, const TdictionaryNode& probe);
  int randomLevel();
  void destroyAll();
  void takeFrom(Tdictionary& other);
  void appendClonesOf(const Tdictionary& other);

  TdictionaryNode* fHead[kMaxLevel] = {};
  int fLevel = 0;  // levels in use: fHead[i] is null for i >= fLevel
  unsigned fCount = 0;
  // Bumped whenever nodes may have been freed; bookmarks placed under an
  // older generation read as "no node".
  unsigned long long fGeneration = 0;
  unsigned long long fRandomState = 0x9E3779B97F4A7C15ull;  // xorshift64 state
};

}  // namespace lumora
