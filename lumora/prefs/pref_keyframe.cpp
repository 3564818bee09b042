#include "lumora/prefs/pref_keyframe.h"

#include "lumora/base/internal/module_storage.h"
#include "lumora/base/string.h"
#include "lumora/prefs/internal/prefs_module.h"

namespace lumora {

Tmetaclass* TprefKeyframeTmeta = nullptr;

TprefKeyframe::TprefKeyframe() {
  fWeightedFlags.setBit(0, false);
  setItemType(kItemNumber);
  setFlags(17);
}

namespace {
// The item asKeyframePreference last found to be a keyframe preference item.
const TpreferenceItem* gCheckedItem = nullptr;
}  // namespace

TprefKeyframe::~TprefKeyframe() {
  if (gCheckedItem == this) gCheckedItem = nullptr;
}

void TprefKeyframe::writeAsCommand(Tstring& out) const {
  out.catenate("keyTangent ");
  out.catenate("-global ");
  out.catenate("-inTangentType ");
  if (const char* name = tangentTypeKeyword(fInTangentType)) {
    out.catenate(name);
    out.catenate(" ");
  }
  out.catenate("-outTangentType ");
  if (const char* name = tangentTypeKeyword(fOutTangentType)) {
    out.catenate(name);
    out.catenate(" ");
  }
  out.catenate("-weightedTangents ");
  out.catenate(weightedTangents() ? "true" : "false");
  out.catenate(";");
}

Tmetaclass* TprefKeyframe::typeof() const {
  return TprefKeyframeTmeta;
}

void* TprefKeyframe::cast(Tmetaclass* record) {
  if (record && record == TprefKeyframeTmeta) return this;
  return TpreferenceItem::cast(record);
}

TprefKeyframe* TprefKeyframe::construct(Tmetaclass* record) {
  if (!record || !TprefKeyframeTmeta || !record->istype(TprefKeyframeTmeta)) return nullptr;
  return static_cast<TprefKeyframe*>(record->construct(record));
}

namespace {

// The basket that owns the keyframe preference item.
class TkeyframePrefBasket final : public Tbasket {
 public:
  TkeyframePrefBasket() {
    auto* item = new TprefKeyframe();
    // A refused item is not the basket's: without this it would leak.
    if (adopt(item) != 0) delete item;
  }
};

void createKeyframePreferences() {
  auto* basket = new TkeyframePrefBasket();
  basket->initialise();
  TglobalPrefMgr::global().fBasketList.addLast(basket);
}

internal::TmoduleStorage<Tmetaclass> gRecord;
internal::TmoduleStorage<TinitBasket> gInitBasket;

}  // namespace

namespace internal {

TprefKeyframe* keyframePreference() {
  TpreferenceItem* item = nullptr;
  if (!TglobalPrefMgr::global().getPrefItem(TprefKeyframe::kItemNumber, item)) return nullptr;
  return asKeyframePreference(item);
}

TprefKeyframe* asKeyframePreference(TpreferenceItem* item) {
  if (!item) return nullptr;
  if (item == gCheckedItem) return static_cast<TprefKeyframe*>(item);
  const Tmetaclass* record = item->typeof();
  if (!record || !TprefKeyframeTmeta || !record->istype(TprefKeyframeTmeta)) return nullptr;
  gCheckedItem = item;
  return static_cast<TprefKeyframe*>(item);
}

void startPrefsModule() {
  gRecord.emplace(&TprefKeyframeTmeta, "TprefKeyframe", sizeof(TprefKeyframe), nullptr,
                  TpreferenceItemTmeta);
  gInitBasket.emplace(&createKeyframePreferences, 0);
}

void stopPrefsModule() {
  gInitBasket.reset();
  gRecord.reset();
}

}  // namespace internal
}  // namespace lumora
