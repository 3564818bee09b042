// TkeyWatch: hears when one key object is deleted.
//
// Key objects move between a curve and the undo records that keep them while
// they are out of it, and are deleted by whichever owns them last. Anything
// that keeps a pointer to a key without owning it (a key handle's record, for
// one) watches the key, so that it learns of the deletion instead of reading
// freed memory later:
//
//   class TmyWatch : public TkeyWatch {
//     void keyDeleted(Tkeyframe* key) override { /* forget `key` */ }
//   };
//   TmyWatch w;
//   w.watch(key);       // w.watchedKey() == key
//   delete key;         // w.keyDeleted(key) runs; w.watchedKey() is null
//
// Things that surprise people:
//  * keyDeleted runs from inside the key's destructor, after the watch has
//    been released: it may look at the key's address but must not read it.
//  * Watching costs nothing on keys nobody watches: a key carries one 32-bit
//    slot number, 0 while unwatched.
//  * TkeyPointer below is the simplest watch: a pointer that turns null.
//  * Single-threaded, like every edit: keys must not be watched, unwatched or
//    deleted from two threads at once.
#pragma once

#include <cstdint>

#include "lumora/base/export.h"

namespace lumora {

class Tkeyframe;

class LUMORA_API TkeyWatch {
 public:
  TkeyWatch() = default;
  TkeyWatch(const TkeyWatch&) = delete;
  TkeyWatch& operator=(const TkeyWatch&) = delete;
  /// Stops watching.
  virtual ~TkeyWatch();

  /// Watches `key` instead of whatever was watched before; null stops
  /// watching.
  void watch(Tkeyframe* key);
  /// The key watched, or null.
  Tkeyframe* watchedKey() const { return fKey; }

 protected:
  /// The watched key object is being deleted. The watch is already released.
  virtual void keyDeleted(Tkeyframe* key) = 0;

 private:
  friend class Tkeyframe;

  /// Tells every watch of `key`, which is being deleted, and frees its slot.
  static void keyDying(Tkeyframe* key);
  void link(Tkeyframe* key);
  void unlink();

  Tkeyframe* fKey = nullptr;
  TkeyWatch* fPrev = nullptr;
  TkeyWatch* fNext = nullptr;
};

/// A pointer to a key object that turns null when the key is deleted, for
/// records that name a key they do not always own.
///
///   TkeyPointer p(key);
///   delete key;   // p.get() is null now
class LUMORA_API TkeyPointer final : public TkeyWatch {
 public:
  TkeyPointer() = default;
  explicit TkeyPointer(Tkeyframe* key) { watch(key); }
  TkeyPointer& operator=(Tkeyframe* key) {
    watch(key);
    return *this;
  }
  Tkeyframe* get() const { return watchedKey(); }

 private:
  void keyDeleted(Tkeyframe* /*key*/) override {}
};

}  // namespace lumora
