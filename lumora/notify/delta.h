// Generic undo records: Tdelta, TdeltaUser and TdeltaComposite.
//
// An object that can be edited derives from TdeltaUser. Between beginMod()
// and endMod() every edit hands it a Tdelta that can undo and redo exactly
// that edit; endMod() gives the gathered delta to the caller, who owns it from
// then on.
//
//   curve.beginMod();
//   curve.add(Tkeyframe(2.0f, 5.0));  // records a delta
//   std::unique_ptr<Tdelta> d(curve.endMod());
//   d->undo();                        // the key is gone again
//   d->redo();
//
// A composite owns its children and undoes them last to first.
#pragma once

#include <cstdint>

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/ptr_array.h"

namespace lumora {

class TdeltaUser;

extern LUMORA_API Tmetaclass* TdeltaTmeta;
extern LUMORA_API Tmetaclass* TdeltaCompositeTmeta;

class LUMORA_API Tdelta {
 public:
  /// Flag bit values.
  enum : std::uint32_t { kUndone = 1 };

  explicit Tdelta(TdeltaUser* user = nullptr) : fUser(user) {}
  Tdelta(const Tdelta&) = delete;
  Tdelta& operator=(const Tdelta&) = delete;

  virtual ~Tdelta();
  virtual Tmetaclass* typeof() const;
  virtual void* cast(Tmetaclass* record);
  /// Asks the user to undo this delta, then marks it undone.
  virtual void undo();
  /// Asks the user to redo this delta, then clears the undone mark.
  virtual void redo();
  /// Offers `other` to this delta; true when it was absorbed (and is then
  /// owned by this delta). A plain delta absorbs nothing.
  virtual bool merge(Tdelta* other);

  TdeltaUser* user() const { return fUser; }
  bool isUndone() const { return (fFlags & kUndone) != 0; }

 protected:
  void setUndone(bool undone) { fFlags = undone ? (fFlags | kUndone) : (fFlags & ~kUndone); }

  TdeltaUser* fUser = nullptr;
  std::uint32_t fFlags = 0;
};

/// An object whose edits are recorded while it is in modification.
class LUMORA_API TdeltaUser {
 public:
  enum : std::uint32_t { kInModification = 1 };

  TdeltaUser() = default;
  /// Copies are shallow on purpose: both fields are taken as they are.
  TdeltaUser(const TdeltaUser&) = default;
  TdeltaUser& operator=(const TdeltaUser&) = default;

  /// Deletes the delta gathered so far, if any.
  virtual ~TdeltaUser();
  /// Starts recording; a delta gathered earlier is kept.
  virtual void beginMod();
  /// Stops recording and hands the gathered delta (or null) to the caller.
  virtual Tdelta* endMod();
  virtual void undoDelta(Tdelta* delta);
  virtual void redoDelta(Tdelta* delta);

  bool isMod() const { return (fFlags & kInModification) != 0; }
  const Tdelta* currentDelta() const { return fCurrentDelta; }

 protected:
  Tdelta* fCurrentDelta = nullptr;
  std::uint32_t fFlags = 0;
};

/// A delta made of deltas, undone last to first and redone first to last.
class LUMORA_API TdeltaComposite : public Tdelta {
 public:
  TdeltaComposite() = default;
  /// Deletes the children: first to last when done, last to first when undone.
  ~TdeltaComposite() override;
  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;
  /// Null is accepted as absorbed. Otherwise the last child may absorb `other`;
  /// if it does not, `other` is appended. Always true: the composite owns it.
  bool merge(Tdelta* other) override;

  unsigned childCount() const { return fChildren.count(); }
  Tdelta* child(unsigned i) const { return i < fChildren.count() ? fChildren.data()[i] : nullptr; }

 protected:
  TptrArray<Tdelta> fChildren;
};

}  // namespace lumora
