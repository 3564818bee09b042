// The type records of one family of deltas, made at module start and
// destroyed at module stop.
//
//   constinit TrecordSet<2> sRecords;
//
//   void startDragDeltaRecords() {
//     const TrecordRow rows[] = {
//         {&TPCDdragKeyTmeta, "TPCDdragKey", sizeof(TPCDdragKey), nullptr, &TparamCurveDeltaTmeta},
//         ...};
//     sRecords.start(rows);
//   }
//   void stopDragDeltaRecords() { sRecords.stop(); }
//
// A set is trivially destructible and constant-initialised, so it needs no
// static construction and the order of static initialisation across files
// never matters.
#pragma once

#include <cassert>
#include <cstddef>

#include "lumora/base/internal/module_storage.h"
#include "lumora/base/metaclass.h"

namespace lumora::internal {

/// One record to make.
struct TrecordRow {
  Tmetaclass** exported;         // where the record is published
  const char* name;              // a string literal
  std::size_t size;              // the class's instance size
  TconstructFunction construct;  // only classes that need no curve have one
  Tmetaclass** parent;           // the parent's exported pointer; null for a root
};

/// The records of N classes.
template <std::size_t N>
class TrecordSet {
 public:
  constexpr TrecordSet() = default;
  TrecordSet(const TrecordSet&) = delete;
  TrecordSet& operator=(const TrecordSet&) = delete;

  /// Makes the records in row order, so a parent's row comes before its
  /// children's; a parent of another set must have been started already.
  /// Nothing when the set is started.
  void start(const TrecordRow (&rows)[N]) {
    if (fStarted) return;
    fStarted = true;
    for (std::size_t i = 0; i < N; ++i) {
      const TrecordRow& row = rows[i];
      assert((!row.parent || *row.parent) && "a parent's record is made before its children's");
      fRecords[i].emplace(row.exported, row.name, row.size, row.construct,
                          row.parent ? *row.parent : nullptr);
    }
  }
  /// Destroys the records back to front; their exported pointers become
  /// null. Nothing when the set is not started.
  void stop() {
    if (!fStarted) return;
    fStarted = false;
    for (std::size_t i = N; i-- > 0;) fRecords[i].reset();
  }

 private:
  TmoduleStorage<Tmetaclass> fRecords[N];
  bool fStarted = false;
};

}  // namespace lumora::internal
