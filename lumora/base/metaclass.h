// Run-time type records.
//
// Every class that takes part in run-time typing (messages, servers, clients,
// preference items, deltas) has one static Tmetaclass record naming the class,
// its instance size, its parent's record and, optionally, a function that makes
// a new instance. The record is reached through an exported pointer named
// after the class with `Tmeta` behind it:
//
//   extern LUMORA_API Tmetaclass* TserverMsgTmeta;
//
//   if (msg.typeof()->istype(TserverModifiedMsgTmeta)) ...
//   auto* modified = static_cast<TserverModifiedMsg*>(msg.cast(TserverModifiedMsgTmeta));
//
// Records are created when the module starts and destroyed when it stops; in
// between the exported pointer holds the record's address, outside that time
// it is null.
//
// The convention every class with a record follows:
//
//   class X : public Base {
//    public:
//     // Its own record.
//     Tmetaclass* typeof() const override { return XTmeta; }
//     // `this`, as an X*, for X's record; otherwise whatever Base answers.
//     // The root of a hierarchy answers null for records that are not its own.
//     void* cast(Tmetaclass* record) override;
//     // Null for a null record or a record that is not X or derived from it;
//     // otherwise the record makes an instance and hands it back cast to X.
//     static X* construct(Tmetaclass* record);
//   };
//
// A construct function stored in a record makes an instance of the record's
// class and returns `instance->cast(requested)`, so that the caller receives
// the address of the part it asked for even under multiple inheritance. When
// the new instance is not of the requested type the function deletes it again
// and returns null.
#pragma once

#include <cstddef>
#include <new>

#include "lumora/base/export.h"

namespace lumora {

class Tmetaclass;

/// Makes a new instance of a record's class and returns its cast to
/// `requested` (null, with nothing left behind, when it is not of that type).
using TconstructFunction = void* (*)(Tmetaclass* requested);

/// The run-time type record of one class.
///
/// A record does not own its name: it is expected to be a string literal. A
/// record is neither copied nor moved, because its address is its identity
/// and is published through the exported pointer.
class LUMORA_API Tmetaclass {
 public:
  // --- Construction ----------------------------------------------------------

  /// Creates the record and stores its address in `*exported` (when
  /// `exported` is not null). `name` null is read as "". `parent` is null for
  /// the root of a hierarchy.
  Tmetaclass(Tmetaclass** exported, const char* name, std::size_t instanceSize,
             TconstructFunction construct, Tmetaclass* parent);
  /// Sets the exported pointer back to null, if it still names this record.
  ~Tmetaclass();

  Tmetaclass(const Tmetaclass&) = delete;
  Tmetaclass& operator=(const Tmetaclass&) = delete;

  // --- Description -----------------------------------------------------------

  const char* name() const { return fName; }
  std::size_t instanceSize() const { return fInstanceSize; }
  /// The parent's record; null for a root.
  Tmetaclass* parent() const { return fParent; }

  // --- Queries ---------------------------------------------------------------

  /// True when this record is `record` or derives from it; false for null.
  bool istype(const Tmetaclass* record) const;
  /// The result of the construct function called with `requested`; null when
  /// the record has no construct function.
  void* construct(Tmetaclass* requested);

 private:
  Tmetaclass** fExported;
  const char* fName;
  std::size_t fInstanceSize;
  TconstructFunction fConstruct;
  Tmetaclass* fParent;
};

/// The usual construct function of a default-constructible class T: makes a
/// new T and returns its cast to `requested`. Returns null, and deletes the
/// instance again, when T is not of the requested type or the allocation
/// fails.
///
///   Tmetaclass record(&XTmeta, "X", sizeof(X), &constructInstance<X>, BaseTmeta);
template <class T>
void* constructInstance(Tmetaclass* requested) {
  T* instance = new (std::nothrow) T();
  if (instance == nullptr) return nullptr;
  void* part = instance->cast(requested);
  if (part == nullptr) delete instance;
  return part;
}

}  // namespace lumora
