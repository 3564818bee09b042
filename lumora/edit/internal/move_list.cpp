// The move list and the rules of the move options.
#include "lumora/edit/internal/move_list.h"

namespace lumora::internal {

namespace {

bool gPerKeyTangentUpdate = true;
bool gDictionaryMove = false;

bool oneKey(unsigned n) {
  return n <= 1;
}
bool never(unsigned /*n*/) {
  return false;
}

// Keys in order and ripple stop at their neighbours; an absolute position
// means one key, and a block dragged by the drag form is always relative.
constexpr TmoveRule kKeepOrder{false, false, &oneKey, &never};
constexpr TmoveRule kRipple{true, false, &never, &never};
constexpr TmoveRule kPass{false, true, &oneKey, &oneKey};
constexpr TmoveRule kPassRelative{false, true, &never, &never};

}  // namespace

const TmoveRule& TmoveList::keepOrder() {
  return kKeepOrder;
}
const TmoveRule& TmoveList::ripple() {
  return kRipple;
}
const TmoveRule& TmoveList::pass() {
  return kPass;
}
const TmoveRule& TmoveList::passRelative() {
  return kPassRelative;
}

const TmoveRule* TmoveList::rule(int option) {
  switch (option) {
    case TparamCurve::kMoveKeepOrder:
      return &keepOrder();
    case TparamCurve::kMoveRipple:
      return &ripple();
    case TparamCurve::kMovePass:
      return &pass();
    case TparamCurve::kMovePassRelative:
      return &passRelative();
    default:
      return nullptr;
  }
}

TmoveRecord* TmoveList::add(const TkeyframeHandle& handle, TbreakdownData* breakdown, bool moves,
                            std::uint32_t pickIndex) {
  const Tkeyframe* key = handle.keyframe();
  if (!key || fByKey.count(key) != 0) return nullptr;
  fByKey.emplace(key, count());
  TmoveRecord& r = fRecords.emplace_back();
  r.handle = handle;
  r.breakdown = breakdown;
  r.moves = moves ? 1 : 0;
  r.pickIndex = pickIndex;
  return &r;
}

TmoveRecord* TmoveList::find(const Tkeyframe* key) {
  if (!key) return nullptr;
  const auto it = fByKey.find(key);
  if (it == fByKey.end()) return nullptr;
  TmoveRecord& r = fRecords[it->second];
  // A record whose key object was deleted names nothing any more.
  return r.active && r.handle.keyframe() == key ? &r : nullptr;
}

TmoveRecord* TmoveList::find(const TkeyframeHandle& handle) {
  TmoveRecord* r = find(handle.keyframe());
  return r && r->handle == handle ? r : nullptr;
}

unsigned TmoveList::movingCount() const {
  unsigned n = 0;
  for (const TmoveRecord& r : fRecords) n += (r.active && r.moves) ? 1u : 0u;
  return n;
}

bool perKeyTangentUpdate() {
  return gPerKeyTangentUpdate;
}
void setPerKeyTangentUpdate(bool on) {
  gPerKeyTangentUpdate = on;
}
bool dictionaryMove() {
  return gDictionaryMove;
}
void setDictionaryMove(bool on) {
  gDictionaryMove = on;
}

}  // namespace lumora::internal
