#include "lumora/base/metaclass.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "lumora/base/client_server.h"
#include "lumora/base/internal/base_module.h"
#include "lumora/base/preference.h"
#include "lumora/base/server_msg.h"

namespace lumora {
namespace {

// A small hierarchy with a second base ahead of the typed one, so that the
// address of the typed part differs from the address of the whole object.
Tmetaclass* TshapeTmeta = nullptr;
Tmetaclass* TcircleTmeta = nullptr;

struct Tpadding {
  virtual ~Tpadding() = default;
  double fPad = 0;
};

class Tshape {
 public:
  virtual ~Tshape() = default;
  virtual Tmetaclass* typeof() const { return TshapeTmeta; }
  virtual void* cast(Tmetaclass* record) { return record == TshapeTmeta ? this : nullptr; }
};

class Tcircle : public Tpadding, public Tshape {
 public:
  Tmetaclass* typeof() const override { return TcircleTmeta; }
  void* cast(Tmetaclass* record) override {
    return record == TcircleTmeta ? this : Tshape::cast(record);
  }
};

TEST(Tmetaclass, ConstructHandsBackTheRequestedPart) {
  Tmetaclass shape(&TshapeTmeta, "Tshape", sizeof(Tshape), &constructInstance<Tshape>, nullptr);
  Tmetaclass circle(&TcircleTmeta, "Tcircle", sizeof(Tcircle), &constructInstance<Tcircle>,
                    TshapeTmeta);
  EXPECT_EQ(std::vector<bool>({circle.istype(&circle), circle.istype(&shape), shape.istype(&circle),
                               shape.istype(nullptr)}),
            (std::vector<bool>{true, true, false, false}));

  std::unique_ptr<Tshape> made(static_cast<Tshape*>(circle.construct(&shape)));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->typeof(), &circle);
  // The pointer must be the Tshape subobject, not the start of the Tcircle.
  EXPECT_EQ(static_cast<Tshape*>(dynamic_cast<Tcircle*>(made.get())), made.get());

  // A Tshape is made for the stranger, refused, and deleted again; the
  // stranger has no construct function of its own.
  Tmetaclass stranger(nullptr, "Tstranger", 8, nullptr, nullptr);
  EXPECT_EQ(std::tuple(shape.construct(&stranger), stranger.construct(&stranger)),
            std::tuple(nullptr, nullptr));
}

TEST(Tmetaclass, DestructionClearsOnlyItsOwnPublication) {
  Tmetaclass* exported = nullptr;
  {
    Tmetaclass record(&exported, nullptr, 0, nullptr, nullptr);
    EXPECT_TRUE(exported == &record && record.name()[0] == '\0');
  }
  EXPECT_EQ(exported, nullptr);
  auto first = std::make_unique<Tmetaclass>(&exported, "A", 0, nullptr, nullptr);
  Tmetaclass second(&exported, "A", 0, nullptr, nullptr);
  first.reset();
  EXPECT_EQ(exported, &second);
}

TEST(BaseRecords, HierarchyConstructionAndRestart) {
  startBaseRecords();
  ASSERT_NE(TserverMsgTmeta, nullptr);
  EXPECT_EQ(std::tuple(TserverModifiedMsgTmeta->parent(), TserverDeletedMsgTmeta->parent()),
            std::tuple(TserverMsgTmeta, TserverMsgTmeta));
  for (Tmetaclass* root : {TclientServerTmeta, TclientTmeta, TpreferenceItemTmeta, TbasketTmeta}) {
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->parent(), nullptr) << root->name();
  }
  std::unique_ptr<TserverMsg> msg(TserverMsg::construct(TserverModifiedMsgTmeta));
  ASSERT_NE(msg, nullptr);
  EXPECT_EQ(
      std::tuple(msg->typeof(), msg->cast(TserverMsgTmeta), msg->cast(TserverDeletedMsgTmeta)),
      std::tuple(TserverModifiedMsgTmeta, static_cast<void*>(msg.get()), nullptr));
  EXPECT_EQ(std::tuple(TserverModifiedMsg::construct(TserverMsgTmeta),
                       TserverMsg::construct(TclientTmeta)),
            std::tuple(nullptr, nullptr));
  std::unique_ptr<Tclient> client(Tclient::construct(TclientTmeta));
  EXPECT_EQ(client ? client->typeof() : nullptr, TclientTmeta);

  // Stopping clears the records; restarting puts them back at the same
  // addresses. Unbalanced calls do nothing.
  Tmetaclass* const before = TserverModifiedMsgTmeta;
  stopBaseRecords();
  EXPECT_EQ(std::tuple(TserverMsgTmeta, TbasketTmeta), std::tuple(nullptr, nullptr));
  stopBaseRecords();
  startBaseRecords();
  startBaseRecords();
  EXPECT_EQ(std::tuple(TserverModifiedMsgTmeta, TserverModifiedMsgTmeta->parent()),
            std::tuple(before, TserverMsgTmeta));
}

}  // namespace
}  // namespace lumora
