// Preference items, the baskets that own them, and the process-wide manager.
//
// A preference item holds one group of application settings and is known by
// its item number. Items are owned by baskets; every adopted item is also
// listed by the global manager, where anyone can find it by number:
//
//   void makeMyPreferences() {
//     auto* basket = new Tbasket;
//     basket->adopt(new TmyPrefItem);        // derived from TpreferenceItem
//     basket->initialise();
//     TglobalPrefMgr::global().fBasketList.addLast(basket);
//   }
//   TinitBasket sMyPreferences(&makeMyPreferences, /*priority=*/0);
//   ...
//   TinitBasket::runAll();                   // at start-up
//   TpreferenceItem* item;
//   if (TglobalPrefMgr::global().getPrefItem(kMyItemNumber, item)) ...
//   ...
//   TglobalPrefMgr::global().destroyBaskets();   // at exit
//
// Ownership: a basket owns its items and deletes them with itself; the
// manager's lists own nothing, but destroyBaskets deletes the baskets listed.
// Destroying an item or a basket takes it off every list that names it, so the
// lists never hold dangling pointers to them.
//
// None of this is thread-safe; preferences are set up and read on one thread.
#pragma once

#include <vector>

#include "lumora/base/array.h"
#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"

namespace lumora {

class Tbasket;
class Tstring;

/// Record of TpreferenceItem; null while the module is stopped.
extern LUMORA_API Tmetaclass* TpreferenceItemTmeta;
/// Record of Tbasket; null while the module is stopped.
extern LUMORA_API Tmetaclass* TbasketTmeta;

/// Base of preference items: an item number, a flag word and a writer.
///
/// Copying an item copies its number and flags but not its membership: the
/// copy belongs to no basket and is not listed by the manager.
class LUMORA_API TpreferenceItem {
 public:
  // --- Construction ----------------------------------------------------------

  TpreferenceItem() = default;
  TpreferenceItem(const TpreferenceItem& other);
  TpreferenceItem& operator=(const TpreferenceItem& other);
  /// Leaves the basket that owns it and the manager's item list.
  virtual ~TpreferenceItem();

  // --- Saving ----------------------------------------------------------------

  /// Appends the command that restores this item's settings to `out`, without
  /// clearing it first. The base item has no settings and appends nothing.
  virtual void writeAsCommand(Tstring& out) const;

  // --- Run-time type ---------------------------------------------------------

  virtual Tmetaclass* typeof() const;
  /// `this` for TpreferenceItem's record, otherwise null.
  virtual void* cast(Tmetaclass* record);

  // --- Attributes ------------------------------------------------------------

  /// The number the manager finds the item by (0 until set).
  void setItemType(int itemType) { fItemType = itemType; }
  int itemType() const { return fItemType; }
  /// Flag bits interpreted by the application (0 until set).
  void setFlags(unsigned flags) { fFlags = flags; }
  unsigned flags() const { return fFlags; }
  /// The basket that owns the item; null when it is not adopted.
  Tbasket* basket() const { return fBasket; }

  static TpreferenceItem* construct(Tmetaclass* record);

 private:
  friend class Tbasket;

  int fItemType = 0;
  unsigned fFlags = 0;
  Tbasket* fBasket = nullptr;
};

/// A group of preference items that it owns.
class LUMORA_API Tbasket {
 public:
  // --- Construction ----------------------------------------------------------

  Tbasket() = default;
  Tbasket(const Tbasket&) = delete;
  Tbasket& operator=(const Tbasket&) = delete;
  /// Deletes the items it owns (which takes them off the manager's item list)
  /// and leaves the manager's basket list.
  virtual ~Tbasket();

  /// Called once by whoever creates the basket, after construction and after
  /// the items are adopted, to bring the items into their working state. The
  /// base marks the basket initialised; overrides call it.
  virtual void initialise();

  // --- Run-time type ---------------------------------------------------------

  virtual Tmetaclass* typeof() const;
  /// `this` for Tbasket's record, otherwise null.
  virtual void* cast(Tmetaclass* record);

  // --- Items -----------------------------------------------------------------

  /// Takes ownership of `item`: appends it to this basket and to the
  /// manager's item list (once). An item owned by another basket moves to
  /// this one; one already here stays where it is. Returns 0, or -1 for a
  /// null item or when memory is refused (the item is then unchanged).
  int adopt(TpreferenceItem* item);
  unsigned itemCount() const { return static_cast<unsigned>(fItems.size()); }
  /// Item `index` in adoption order; null when out of range.
  TpreferenceItem* item(unsigned index) const;
  bool isInitialised() const { return fInitialised; }

  static Tbasket* construct(Tmetaclass* record);

 private:
  friend class TpreferenceItem;
  void forget(TpreferenceItem* item);

  std::vector<TpreferenceItem*> fItems;
  bool fInitialised = false;
};

/// The process-wide preference manager.
///
/// The instance lives for the whole process (it is never destroyed, so items
/// and baskets may outlive static destruction safely). Its lists are public:
/// fPrefItemList holds TpreferenceItem pointers, fBasketList Tbasket pointers.
/// Null entries are tolerated and skipped.
class LUMORA_API TglobalPrefMgr {
 public:
  static TglobalPrefMgr& global();

  TglobalPrefMgr(const TglobalPrefMgr&) = delete;
  TglobalPrefMgr& operator=(const TglobalPrefMgr&) = delete;

  // --- Lists -----------------------------------------------------------------

  TobjArray fPrefItemList;  ///< TpreferenceItem*, not owned.
  TobjArray fBasketList;    ///< Tbasket*, deleted by destroyBaskets().

  // --- Operations ------------------------------------------------------------

  /// Sets `item` to the first listed item with item number `itemType` and
  /// returns true; sets it to null and returns false when there is none.
  bool getPrefItem(int itemType, TpreferenceItem*& item) const;
  /// Takes `item` off the item list (every occurrence); does not delete it.
  void removeItem(TpreferenceItem* item);
  /// Takes `basket` off the basket list (every occurrence); does not delete it.
  void removeBasket(Tbasket* basket);
  /// Deletes every listed basket, last listed first, and with them their
  /// items. Items listed without a basket stay listed.
  void destroyBaskets();

 private:
  TglobalPrefMgr() = default;
  ~TglobalPrefMgr() = default;
};

/// Registers a function to be run once at start-up by runAll().
///
/// Functions run in increasing priority number; equal priorities run in
/// registration order. Usually a static object:
///
///   TinitBasket sRegistration(&makeMyPreferences, 0);
///
/// Destroying the object withdraws the function. A null function is never
/// run.
class LUMORA_API TinitBasket {
 public:
  using Tfunction = void (*)();

  TinitBasket(Tfunction function, int priority);
  ~TinitBasket();
  TinitBasket(const TinitBasket&) = delete;
  TinitBasket& operator=(const TinitBasket&) = delete;

  /// Runs, in order, every registered function that has not run yet,
  /// including functions registered by the functions it runs.
  static void runAll();

  int priority() const { return fPriority; }
  bool hasRun() const { return fHasRun; }

 private:
  Tfunction fFunction;
  int fPriority;
  bool fHasRun = false;
  TinitBasket* fNext = nullptr;

  // The registrations in running order. A plain pointer is constant-
  // initialised, so registrations made by static objects in any order of
  // static construction find it ready.
  static TinitBasket* fsFirst;
};

}  // namespace lumora
