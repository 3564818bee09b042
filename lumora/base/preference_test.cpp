#include "lumora/base/preference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "lumora/base/string.h"

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
  auto* basket = new Tbasket;
  auto* first = new TcountedItem(201);
  for (TpreferenceItem* item : {new TcountedItem(7), first, new TcountedItem(201)}) {
    ASSERT_EQ(basket->adopt(item), 0);
  }
  mgr().fBasketList.addLast(basket);
  TpreferenceItem* found = nullptr;
  EXPECT_TRUE(mgr().getPrefItem(201, found));
  EXPECT_EQ(found, first);
  EXPECT_FALSE(mgr().getPrefItem(8, found));
  EXPECT_EQ(found, nullptr);

  mgr().fPrefItemList.insertElement(0, 1);  // a null slot is skipped
  EXPECT_TRUE(mgr().getPrefItem(7, found));
}

TEST_F(PreferenceLists, AdoptionListsEachItemOnce) {
  Tbasket first, second;
  auto* item = new TcountedItem(1);
  EXPECT_EQ(std::vector<int>({first.adopt(item), first.adopt(item)}), (std::vector<int>{0, 0}));
  EXPECT_EQ(first.itemCount(), 1u);  // already there the second time
  EXPECT_EQ(second.adopt(item), 0);  // moves
  EXPECT_EQ(std::tuple(first.itemCount(), second.item(0), second.item(1), item->basket(),
                       mgr().fPrefItemList.count(), first.adopt(nullptr)),
            std::tuple(0u, item, nullptr, &second, 1u, -1));
  delete item;  // leaves its basket and the list
  EXPECT_EQ(std::tuple(second.itemCount(), mgr().fPrefItemList.count()), std::tuple(0u, 0u));
}

TEST_F(PreferenceLists, DestroyBasketsLeavesNoItemsBehind) {
  int deaths = 0;
  for (int b = 0; b < 3; ++b) {
    auto* basket = new Tbasket;
    for (int i = 0; i < 4; ++i) basket->adopt(new TcountedItem(100 + i, &deaths));
    basket->initialise();
    EXPECT_TRUE(basket->isInitialised());
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

TEST_F(PreferenceLists, CopiesLeaveMembershipBehind) {
  Tbasket basket;
  auto* item = new TcountedItem(201);
  item->setFlags(17);
  basket.adopt(item);
  TpreferenceItem copy(*item);
  EXPECT_EQ(std::tuple(copy.itemType(), copy.flags(), copy.basket(), mgr().fPrefItemList.count()),
            std::tuple(201, 17u, nullptr, 1u));
  Tstring out("keep");
  copy.writeAsCommand(out);  // the base item has nothing to say
  EXPECT_EQ(out, "keep");
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

TEST(TinitBasket, RunsByPriorityThenRegistrationOrder) {
  sRan.clear();
  TinitBasket late(&run<3>, 5), early(&run<1>, -1), lateToo(&run<4>, 5), middle(&run<2>, 0);
  TinitBasket none(nullptr, 0);
  TinitBasket::runAll();
  EXPECT_THAT(sRan, ElementsAre(1, 2, 3, 4));
  EXPECT_TRUE(middle.hasRun() && !none.hasRun());
  TinitBasket::runAll();  // nothing runs twice
  EXPECT_THAT(sRan, ElementsAre(1, 2, 3, 4));
}

TEST(TinitBasket, LateRegistrationsRunWithdrawnOnesDoNot) {
  sRan.clear();
  auto withdrawn = std::make_unique<TinitBasket>(&run<0>, 0);
  withdrawn.reset();
  TinitBasket registering(&run1AndRegister2, 0);
  TinitBasket waiting(&run<3>, 9);  // the late registration runs ahead of it
  TinitBasket::runAll();
  EXPECT_THAT(sRan, ElementsAre(1, 2, 3));
  sLateRegistration.reset();
}

}  // namespace
}  // namespace lumora
