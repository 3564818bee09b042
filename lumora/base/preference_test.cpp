#include "lumora/base/preference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

namespace lumora {
namespace {

using ::testing::ElementsAre;

// Sets the manager's lists aside for the test and puts them back afterwards,
// so that preferences registered by the rest of the program are untouched.
class PreferenceLists : public ::testing::Test {
 protected:
  PreferenceLists() {
    mgr().fPrefItemList.swap(fSavedItems);
    mgr().fBasketList.swap(fSavedBaskets);
  }
  ~PreferenceLists() override {
    mgr().destroyBaskets();
    mgr().fPrefItemList.swap(fSavedItems);
    mgr().fBasketList.swap(fSavedBaskets);
  }

  static TglobalPrefMgr& mgr() { return TglobalPrefMgr::global(); }

  // An item that counts its destructions.
  struct TcountedItem : TpreferenceItem {
    explicit TcountedItem(int type, int* deaths = nullptr) : fDeaths(deaths) { setItemType(type); }
    ~TcountedItem() override {
      if (fDeaths != nullptr) ++*fDeaths;
    }
    int* fDeaths;
  };

  TobjArray fSavedItems;
  TobjArray fSavedBaskets;
};

TEST_F(PreferenceLists, GetPrefItemFindsTheFirstOfItsNumber) {
  Tbasket basket;
  auto* first = new TcountedItem(201);
  for (TpreferenceItem* item : {new TcountedItem(7), first, new TcountedItem(201)}) {
    basket.adopt(item);
  }
  TpreferenceItem* found = nullptr;
  EXPECT_TRUE(mgr().getPrefItem(201, found));
  EXPECT_EQ(found, first);
  EXPECT_FALSE(mgr().getPrefItem(8, found));
  EXPECT_EQ(found, nullptr);

  mgr().fPrefItemList.insertElement(0, 1);  // a null slot is skipped
  EXPECT_TRUE(mgr().getPrefItem(7, found));
}

TEST_F(PreferenceLists, AdoptionListsEachItemOnceAndCopiesLeaveIt) {
  Tbasket first, second;
  auto* item = new TcountedItem(201);
  item->setFlags(17);
  EXPECT_EQ(std::vector<int>({first.adopt(item), first.adopt(item), first.adopt(nullptr)}),
            (std::vector<int>{0, 0, -1}));
  EXPECT_EQ(first.itemCount(), 1u);  // already there the second time
  EXPECT_EQ(second.adopt(item), 0);  // moves
  EXPECT_EQ(std::tuple(first.itemCount(), second.item(0), second.item(1), item->basket(),
                       mgr().fPrefItemList.count()),
            std::tuple(0u, item, nullptr, &second, 1u));
  TpreferenceItem copy(*item);  // number and flags, but no membership
  EXPECT_EQ(std::tuple(copy.itemType(), copy.flags(), copy.basket(), mgr().fPrefItemList.count()),
            std::tuple(201, 17u, nullptr, 1u));
  delete item;  // leaves its basket and the list
  EXPECT_EQ(std::tuple(second.itemCount(), mgr().fPrefItemList.count()), std::tuple(0u, 0u));
}

TEST_F(PreferenceLists, DestroyBasketsLeavesNoItemsBehind) {
  int deaths = 0;
  for (int b = 0; b < 3; ++b) {
    auto* basket = new Tbasket;
    for (int i = 0; i < 4; ++i) basket->adopt(new TcountedItem(100 + i, &deaths));
    mgr().fBasketList.addLast(basket);
  }
  TcountedItem loose(55, &deaths);  // listed but owned by no basket
  mgr().fPrefItemList.addLast(&loose);
  EXPECT_EQ(mgr().fPrefItemList.count(), 13u);
  delete static_cast<Tbasket*>(mgr().fBasketList[1]);  // leaves the list itself
  EXPECT_EQ(std::tuple(deaths, mgr().fBasketList.count()), std::tuple(4, 2u));
  mgr().destroyBaskets();
  EXPECT_EQ(std::tuple(deaths, mgr().fBasketList.count(), mgr().fPrefItemList.count(),
                       mgr().fPrefItemList[0]),
            std::tuple(12, 0u, 1u, static_cast<void*>(&loose)));
  TpreferenceItem* found;
  EXPECT_FALSE(mgr().getPrefItem(100, found));
  mgr().removeItem(&loose);
  EXPECT_EQ(mgr().fPrefItemList.count(), 0u);
}

// --- TinitBasket ---------------------------------------------------------------

std::vector<int> sRan;
std::unique_ptr<TinitBasket> sLateRegistration;

template <int N>
void run() {
  sRan.push_back(N);
}
void run1AndRegister2() {
  run<1>();
  sLateRegistration = std::make_unique<TinitBasket>(&run<2>, 0);
}

TEST(TinitBasket, RunsOnceByPriorityThenRegistrationOrder) {
  sRan.clear();
  std::make_unique<TinitBasket>(&run<0>, 0).reset();  // withdrawn before it runs
  TinitBasket late(&run<4>, 5), early(&run1AndRegister2, -1), lateToo(&run<5>, 5);
  TinitBasket middle(&run<3>, 0), none(nullptr, 0);
  TinitBasket::runAll();
  // 2 is registered while 1 runs; it still runs, after the 0 registered earlier.
  EXPECT_THAT(sRan, ElementsAre(1, 3, 2, 4, 5));
  EXPECT_TRUE(middle.hasRun() && !none.hasRun());
  TinitBasket::runAll();  // nothing runs twice
  EXPECT_EQ(sRan.size(), 5u);
  sLateRegistration.reset();
}

}  // namespace
}  // namespace lumora
