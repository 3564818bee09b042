// TkeyframeHandle: a reference to one key of one curve that survives edits.
//
// A handle names a key object, not a position: moving, re-sorting or
// re-valuing keys leaves it pointing at the same key, and index() finds the
// key's current place by its time. Handles are cheap to copy: copies share
// one reference-counted record, and only that record observes the curve.
//
//   TkeyframeHandle h(&curve, /*index=*/2u, /*makeClient=*/true);
//   curve.remove(2);        // h.isValid() is now false, h.keyframe() unchanged
//   delta->undo();          // the same key object is back: h.isValid() again
//   unsigned i = h.index(); // its current index
//
// Things that surprise people:
//  * A handle hears of removals only once registered (makeClient true, or
//    makeClient() later). An unregistered handle keeps whatever validity it
//    had.
//  * A removed key object usually lives on inside the undo record of its
//    removal. While it does, a handle keeps answering from it (value,
//    seconds, timeValue, tangents) although isValid() is false and index()
//    finds nothing; when undo puts it back, the handle is valid again.
//  * Every handle, registered or not, hears when its key object is deleted
//    (by an unrecorded removal, by the undo record that held it, or with its
//    curve). From then on the handle names nothing: keyframe() and
//    paramCurve() are null and every query gives its neutral answer. No
//    query ever reads a deleted key.
//  * When the curve is destroyed its keys go with it, so every handle to
//    them becomes empty as above.
//  * A handle copied from the one inside a key-removed message is already
//    invalid: the key is on its way out of the curve.
//  * timeValueRef() returns one process-wide scratch value: copy it.
#pragma once

#include <cstdint>

#include "lumora/base/client_server.h"
#include "lumora/base/export.h"
#include "lumora/base/ptr_array.h"
#include "lumora/base/time_value.h"
#include "lumora/keys/key_watch.h"

namespace lumora {

class Tkeyframe;
class TparamCurve;
class TkeyframeHandle;

/// The record shared by copies of a handle; the part that observes the curve.
///
/// Listens (once registered) for TkeyframeAddDeleteMsg, whose `added` flag
/// becomes the valid bit when the message names this record's key, and for
/// the curve's destruction, after which the record has no curve and is
/// neither valid nor registered. It always watches its key object: when the
/// key is deleted the record withdraws from the curve and forgets both key
/// and curve. A registered record withdraws from the curve when destroyed.
/// Neither pointer is owned.
class LUMORA_API TkeyframeHandleData : public Tclient, public TkeyWatch {
 public:
  /// Flag-word bit values.
  enum TflagBit : std::uint32_t {
    kValid = 1,       ///< the key is in the curve
    kRegistered = 2,  ///< the record observes the curve
  };

  /// A record with a count of 1, valid when `valid`, not registered.
  TkeyframeHandleData(TparamCurve* curve, Tkeyframe* key, bool valid);
  /// Withdraws from the curve when registered.
  ~TkeyframeHandleData() override;
  TkeyframeHandleData(const TkeyframeHandleData&) = delete;
  TkeyframeHandleData& operator=(const TkeyframeHandleData&) = delete;

  // --- State -------------------------------------------------------------------

  std::uint32_t flags() const { return fFlags; }
  bool isValid() const { return (fFlags & kValid) != 0; }
  bool isRegistered() const { return (fFlags & kRegistered) != 0; }
  TparamCurve* curve() const { return fCurve; }
  Tkeyframe* keyframe() const { return watchedKey(); }
  std::uint32_t refCount() const { return fRefCount; }

 private:
  friend class TkeyframeHandle;

  void keyDeleted(Tkeyframe* key) override;

  void setFlag(TflagBit bit, bool on) {
    fFlags = on ? (fFlags | bit) : (fFlags & ~static_cast<std::uint32_t>(bit));
  }
  /// Registers with the curve for key add/delete and server-deleted messages.
  void registerWithCurve();

  static void keyAddedOrDeleted(Tclient* client, TclientServer* server, const TserverMsg& msg);
  static void curveDeleted(Tclient* client, TclientServer* server, const TserverMsg& msg);

  std::uint32_t fFlags = 0;
  TparamCurve* fCurve = nullptr;
  std::uint32_t fRefCount = 1;
};

/// A stable reference to one key of one curve.
///
/// Every query gives a neutral answer (null, 0, false, the invalid index)
/// when the handle has no record, no key or no curve. The final `makeClient`
/// argument of the constructors registers the record with the curve at once.
class LUMORA_API TkeyframeHandle {
 public:
  /// The index that names no key.
  static constexpr unsigned kInvalidIndex = 0xFFFFFFFFu;

  // --- Construction ------------------------------------------------------------

  /// A handle without a record: it names nothing.
  TkeyframeHandle() = default;
  /// Shares `other`'s record (registering it if `makeClient`).
  TkeyframeHandle(const TkeyframeHandle& other, bool makeClient = false);
  /// The key of `curve` at `seconds` (in the curve's own time kind); invalid
  /// with a null key when there is none.
  TkeyframeHandle(TparamCurve* curve, float seconds, bool makeClient = false);
  /// The key of `curve` at `time`; invalid with a null key when there is none.
  TkeyframeHandle(TparamCurve* curve, TanimTime time, bool makeClient = false);
  /// Key `index` of `curve`; invalid with a null key when out of range.
  TkeyframeHandle(TparamCurve* curve, unsigned index, bool makeClient = false);
  /// `key`, which should belong to `curve` (null when the curve is null);
  /// valid when the key is not null.
  TkeyframeHandle(TparamCurve* curve, Tkeyframe* key, bool makeClient = false);
  /// Shares `other`'s record; the old record is released.
  TkeyframeHandle& operator=(const TkeyframeHandle& other);
  /// Releases the record (deleted with its last handle).
  ~TkeyframeHandle();

  /// Registers the shared record with its curve so that it hears of removals.
  /// Nothing when already registered, or when there is no record or curve.
  void makeClient();

  // --- Queries -----------------------------------------------------------------

  Tkeyframe* keyframe() const;
  TparamCurve* paramCurve() const;
  /// True when the key is in the curve, as last heard. A registered handle
  /// hears every removal and return; every handle hears its key's deletion.
  bool isValid() const;
  /// The key's value, also while the key is kept by an undo record; 0.0
  /// without a key.
  double value() const;
  /// The key's time in seconds (ticks x 0.00016666666f on a tick curve).
  float seconds() const;
  /// The key's time in the curve's kind; the "neither" time without a key.
  TtimeValue timeValue() const;
  /// Like timeValue(), but written to one process-wide scratch value that
  /// the next call overwrites.
  const TtimeValue& timeValueRef() const;
  /// The key's current index, found by its time and checked to be this very
  /// key object; kInvalidIndex when there is no key or curve, or when the key
  /// is not in the curve. Never cached.
  unsigned index() const;
  /// The key's tangents; false (and x, y untouched) without a key.
  bool getTanIn(float& x, float& y) const;
  bool getTanOut(float& x, float& y) const;

  /// True for handles sharing one record; false when only one has a record;
  /// otherwise true when key, curve and validity all agree. Two empty handles
  /// are equal.
  bool operator==(const TkeyframeHandle& other) const;
  bool operator!=(const TkeyframeHandle& other) const { return !(*this == other); }

 private:
  friend class TkeyframeHandleTestAccess;
  friend class TparamCurve;  // marks the handle of a key-removed message

  /// Clears the valid bit of the shared record, for every copy.
  void markInvalid() {
    if (fData != nullptr) fData->setFlag(TkeyframeHandleData::kValid, false);
  }

  /// Makes a record of its own for this handle (copy on write): a shared
  /// record is left to the other handles and this one gets an unregistered
  /// copy with the same curve, key and validity; no record becomes an empty
  /// one.
  void ensureUniqueData();
  /// Drops this handle's share of the record, deleting it with the last one.
  void removeData();
  /// Takes a fresh record for `key` and registers it if asked.
  void adopt(TparamCurve* curve, Tkeyframe* key, bool makeClient);
  /// The key when there is both a key and a curve; otherwise null. Never a
  /// deleted key: the record forgets its key when the key is deleted.
  Tkeyframe* liveKey() const;

  TkeyframeHandleData* fData = nullptr;
};

/// Pointers to handles; never owns them.
class LUMORA_API TkeyframeHandlePtrArray : public TptrArray<TkeyframeHandle> {
 public:
  using TptrArray<TkeyframeHandle>::TptrArray;
};

/// Pointers to arrays of handle pointers; never owns them.
class LUMORA_API TkeyframeHandlePtrArrayPtrList : public TptrArray<TkeyframeHandlePtrArray> {
 public:
  using TptrArray<TkeyframeHandlePtrArray>::TptrArray;
};

}  // namespace lumora
