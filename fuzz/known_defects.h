// Open library defects that the edit fuzzer steps around.
//
// The library has defects that this fuzzer trips over at once (each is
// described, with a failing input, in fuzz/findings/). Until they are fixed
// the runner steps around them, so that it can look for other faults and the
// corpus replays clean. LUMORA_FUZZ_STRICT in the environment turns them off:
// "all" (or "1") every one, otherwise a comma-separated list of names, which
// is how each finding reproduces on its own. Each workaround goes with the
// fix of its defect.
//
//   LUMORA_FUZZ_STRICT=auto-tangents,static-flag lumora_fuzz_replay fuzz/findings/...
//
//   if (workaround(kStaticFlag)) snapshot.setStaticCurve(false);
#pragma once

namespace lumora::fuzz {

/// One per open defect; the comment gives the name LUMORA_FUZZ_STRICT takes.
enum Tworkaround : unsigned {
  kQuietRemoveAll,       // "remove-all"
  kRemovalHandles,       // "removal-handles"
  kForgottenKeys,        // "forgotten-keys"
  kSilentKeyObjects,     // "silent-key-objects"
  kOwningInsert,         // "owning-insert"
  kTangentTypeRange,     // "tangent-type-range"
  kSnapshotDeletesKeys,  // "snapshot-deletes-keys"
  kStaticFlag,           // "static-flag"
  kAutoTangents,         // "auto-tangents"
  kNoUpdateOrder,        // "no-update-order"
  kBlockModeRemove,      // "block-mode-remove"
  kWeightingUndo,        // "weighting-undo"
  kInsertOverflow,       // "insert-overflow"
  kCycleKeyImage,        // "cycle-key-image"
  kLinearSpanBit,        // "linear-span-bit"
  kUndoKeyContent,       // "undo-key-content"
  kWorkaroundCount
};

/// Reads LUMORA_FUZZ_STRICT ("all", "1" or a comma-separated list of names);
/// null leaves every workaround on.
void readStrictSetting(const char* setting);

/// Whether the run steps around the defect `w`.
bool workaround(Tworkaround w);

}  // namespace lumora::fuzz
