#include "lumora/base/preference.h"

#include <algorithm>
#include <new>

namespace lumora {

Tmetaclass* TpreferenceItemTmeta = nullptr;
Tmetaclass* TbasketTmeta = nullptr;

TinitBasket* TinitBasket::fsFirst = nullptr;

namespace {

// Removes every slot of `list` that holds `object`.
void removeAll(TobjArray& list, const void* object) {
  for (unsigned i = list.count(); i-- > 0;) {
    if (list[i] == object) list.removeAt(i);
  }
}

bool contains(const TobjArray& list, const void* object) {
  for (unsigned i = 0; i < list.count(); ++i) {
    if (list[i] == object) return true;
  }
  return false;
}

}  // namespace

// --- TpreferenceItem ---------------------------------------------------------

TpreferenceItem::TpreferenceItem(const TpreferenceItem& other)
    : fItemType(other.fItemType), fFlags(other.fFlags) {}

TpreferenceItem& TpreferenceItem::operator=(const TpreferenceItem& other) {
  fItemType = other.fItemType;
  fFlags = other.fFlags;
  return *this;
}

TpreferenceItem::~TpreferenceItem() {
  if (fBasket != nullptr) fBasket->forget(this);
  TglobalPrefMgr::global().removeItem(this);
}

void TpreferenceItem::writeAsCommand(Tstring& /*out*/) const {}

Tmetaclass* TpreferenceItem::typeof() const {
  return TpreferenceItemTmeta;
}

void* TpreferenceItem::cast(Tmetaclass* record) {
  if (record == nullptr || record != TpreferenceItemTmeta) return nullptr;
  return this;
}

TpreferenceItem* TpreferenceItem::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TpreferenceItemTmeta)) return nullptr;
  return static_cast<TpreferenceItem*>(record->construct(TpreferenceItemTmeta));
}

// --- Tbasket -----------------------------------------------------------------

Tbasket::~Tbasket() {
  std::vector<TpreferenceItem*> items;
  items.swap(fItems);
  for (TpreferenceItem* item : items) {
    item->fBasket = nullptr;  // so that it does not come back to this basket
    delete item;
  }
  TglobalPrefMgr::global().removeBasket(this);
}

void Tbasket::initialise() {
  fInitialised = true;
}

Tmetaclass* Tbasket::typeof() const {
  return TbasketTmeta;
}

void* Tbasket::cast(Tmetaclass* record) {
  if (record == nullptr || record != TbasketTmeta) return nullptr;
  return this;
}

int Tbasket::adopt(TpreferenceItem* item) {
  if (item == nullptr) return -1;
  if (item->fBasket == this) return 0;

  TobjArray& list = TglobalPrefMgr::global().fPrefItemList;
  const bool listed = contains(list, item);
  try {
    fItems.push_back(item);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  if (!listed && list.addLast(item) != 0) {
    fItems.pop_back();
    return -1;
  }
  if (item->fBasket != nullptr) item->fBasket->forget(item);
  item->fBasket = this;
  return 0;
}

TpreferenceItem* Tbasket::item(unsigned index) const {
  if (index >= fItems.size()) return nullptr;
  return fItems[index];
}

Tbasket* Tbasket::construct(Tmetaclass* record) {
  if (record == nullptr || !record->istype(TbasketTmeta)) return nullptr;
  return static_cast<Tbasket*>(record->construct(TbasketTmeta));
}

void Tbasket::forget(TpreferenceItem* item) {
  std::erase(fItems, item);
  item->fBasket = nullptr;
}

// --- TglobalPrefMgr ----------------------------------------------------------

TglobalPrefMgr& TglobalPrefMgr::global() {
  // Never destroyed: items and baskets owned by static objects may be
  // destroyed after every other static, and they still deregister here.
  static TglobalPrefMgr* const manager = new TglobalPrefMgr;
  return *manager;
}

bool TglobalPrefMgr::getPrefItem(int itemType, TpreferenceItem*& item) const {
  for (unsigned i = 0; i < fPrefItemList.count(); ++i) {
    auto* candidate = static_cast<TpreferenceItem*>(fPrefItemList[i]);
    if (candidate != nullptr && candidate->itemType() == itemType) {
      item = candidate;
      return true;
    }
  }
  item = nullptr;
  return false;
}

void TglobalPrefMgr::removeItem(TpreferenceItem* item) {
  if (item == nullptr) return;
  removeAll(fPrefItemList, item);
}

void TglobalPrefMgr::removeBasket(Tbasket* basket) {
  if (basket == nullptr) return;
  removeAll(fBasketList, basket);
}

void TglobalPrefMgr::destroyBaskets() {
  // Each basket is taken off the list before it is deleted, so a basket
  // whose destructor changes the list cannot upset the walk.
  while (fBasketList.count() > 0) {
    const unsigned last = fBasketList.count() - 1;
    auto* basket = static_cast<Tbasket*>(fBasketList[last]);
    fBasketList.removeAt(last);
    delete basket;
  }
}

// --- TinitBasket -------------------------------------------------------------

TinitBasket::TinitBasket(Tfunction function, int priority)
    : fFunction(function), fPriority(priority) {
  if (fFunction == nullptr) return;
  TinitBasket** link = &fsFirst;
  while (*link != nullptr && (*link)->fPriority <= fPriority) link = &(*link)->fNext;
  fNext = *link;
  *link = this;
}

TinitBasket::~TinitBasket() {
  for (TinitBasket** link = &fsFirst; *link != nullptr; link = &(*link)->fNext) {
    if (*link == this) {
      *link = fNext;
      return;
    }
  }
}

void TinitBasket::runAll() {
  // Restart from the front after every call: the function may register or
  // withdraw registrations, including ones ahead of it.
  for (;;) {
    TinitBasket* next = fsFirst;
    while (next != nullptr && next->fHasRun) next = next->fNext;
    if (next == nullptr) return;
    next->fHasRun = true;
    next->fFunction();
  }
}

}  // namespace lumora
