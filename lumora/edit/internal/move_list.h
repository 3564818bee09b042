// The move list of a curve's open move edit, and the rules of each move option.
//
//   TmoveList list;
//   list.add(handle, /*breakdown=*/nullptr, /*moves=*/true, pickIndex);
//   TmoveRecord* r = list.find(handle);            // constant time
//   const TmoveRule& rule = TmoveList::rule(TparamCurve::kMovePass);
//
// A record ties one key (through a handle that shares the caller's record)
// to the caller's arrays of start times and values by its pick index, for as
// long as the edit is open. Records of breakdown keys that follow the moved
// keys have no pick index. Not installed.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "lumora/base/time_value.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe_handle.h"

namespace lumora {

class TbreakdownData;

namespace internal {

/// One key of a move edit.
struct TmoveRecord {
  static constexpr std::uint32_t kNoPick = 0xFFFFFFFFu;

  TkeyframeHandle handle;               // shares the caller's record
  TbreakdownData* breakdown = nullptr;  // the cache's record of a following breakdown key
  TtimeValue target;                    // where the key goes in the current move call
  std::uint8_t moves = 1;               // 1: picked and moving; 0: a following breakdown key
  std::uint8_t active = 1;              // 0: skipped everywhere
  std::uint32_t pickIndex = kNoPick;    // position among the picked keys
  unsigned indexHint = 0xFFFFFFFFu;     // where the key was last found
};

/// What an option allows, and how a key settles against the keys it reaches.
struct TmoveRule {
  /// Every key from the moved block onward shifts first.
  bool ripple;
  /// A moved key may pass other keys (they are re-sorted).
  bool passes;
  /// An absolute move with setTime, by the number of moving records: the
  /// dictionary form's answer.
  bool (*allowsAbsolute)(unsigned movingRecords);
  /// The same for the drag form, which also needs relative moves of blocks.
  bool (*allowsAbsoluteDrag)(unsigned handles);
};

/// The records of one move edit, in the order they were added.
class TmoveList {
 public:
  /// The rules of `option`; null outside 0..3.
  static const TmoveRule* rule(int option);
  /// One function per option: the rule it stands for.
  static const TmoveRule& keepOrder();
  static const TmoveRule& ripple();
  static const TmoveRule& pass();
  static const TmoveRule& passRelative();

  /// Adds a record for the key `handle` names; null when that key has a
  /// record already (the first stays) or the handle names no key.
  TmoveRecord* add(const TkeyframeHandle& handle, TbreakdownData* breakdown, bool moves,
                   std::uint32_t pickIndex);
  /// The first active record of the key `handle` names, or null.
  TmoveRecord* find(const TkeyframeHandle& handle);
  /// The first active record of `key`, or null.
  TmoveRecord* find(const Tkeyframe* key);

  unsigned count() const { return static_cast<unsigned>(fRecords.size()); }
  bool empty() const { return fRecords.empty(); }
  TmoveRecord& operator[](unsigned i) { return fRecords[i]; }
  const TmoveRecord& operator[](unsigned i) const { return fRecords[i]; }
  /// Active records whose key moves.
  unsigned movingCount() const;

 private:
  std::vector<TmoveRecord> fRecords;
  std::unordered_map<const Tkeyframe*, unsigned> fByKey;
};

/// Module-wide switches of the moving operations (edits run on one thread).
/// Whether a single-key move recomputes automatic tangents at once.
bool perKeyTangentUpdate();
void setPerKeyTangentUpdate(bool on);
/// The dictionary-move flag: 1 while a dictionary move of a quaternion
/// rotation curve runs. Drag records made meanwhile are appended whole.
bool dictionaryMove();
void setDictionaryMove(bool on);

}  // namespace internal
}  // namespace lumora
