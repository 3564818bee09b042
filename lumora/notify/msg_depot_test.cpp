#include "lumora/notify/msg_depot.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/notify/internal/msg_records.h"
#include "lumora/notify/internal/notify_module.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {
namespace {

using Access = TparamCurveTestAccess;
using Kind = TrecordedMsg::Tkind;
using Help = TparamCurveHelperMsg;

// One complete outermost change scope on `c`.
void change(TparamCurve& c) {
  ASSERT_TRUE(Access::beginChange(c));
  Access::endChange(c, true);
}

// --- Message classes ------------------------------------------------------------

TEST(ParamCurveMsgs, RecordsNameTheirClassAndParent) {
  const std::tuple<Tmetaclass*, const char*, Tmetaclass*> rows[] = {
      {TparamCurveModifiedMsgTmeta, "TparamCurveModifiedMsg", TserverMsgTmeta},
      {TparamCurveChangedMsgTmeta, "TparamCurveChangedMsg", TserverModifiedMsgTmeta},
      {TparamCurveHelperMsgTmeta, "TparamCurveHelperMsg", TserverMsgTmeta},
      {TkeyframeAddDeleteMsgTmeta, "TkeyframeAddDeleteMsg", TserverMsgTmeta},
      {TkeyframeMovedMsgTmeta, "TkeyframeMovedMsg", TserverMsgTmeta},
  };
  for (const auto& [record, name, parent] : rows) {
    ASSERT_NE(record, nullptr) << name;
    EXPECT_STREQ(record->name(), name);
    EXPECT_EQ(record->parent(), parent) << name;
  }
}

TEST(ParamCurveMsgs, CastAnswersOwnRecordAndParents) {
  TparamCurveChangedMsg changed;
  void* const self = &changed;
  EXPECT_EQ(changed.typeof(), TparamCurveChangedMsgTmeta);
  EXPECT_EQ(std::tuple(changed.cast(TparamCurveChangedMsgTmeta),
                       changed.cast(TserverModifiedMsgTmeta), changed.cast(TserverMsgTmeta),
                       changed.cast(TparamCurveHelperMsgTmeta), changed.cast(nullptr)),
            std::tuple(self, self, self, nullptr, nullptr));
  TparamCurveModifiedMsg modified(nullptr, TparamCurveModifiedMsg::kKeyAdded);
  EXPECT_EQ(modified.cast(TparamCurveModifiedMsgTmeta), &modified);
  EXPECT_EQ(modified.cast(TserverModifiedMsgTmeta), nullptr);  // not a modified-server message
  TkeyframeMovedMsg moved(TtimeValue(1.0f), TtimeValue(2.0f), 3);
  EXPECT_EQ(std::tuple(moved.cast(TkeyframeMovedMsgTmeta), moved.cast(TkeyframeAddDeleteMsgTmeta),
                       moved.toTime(), moved.moveOption()),
            std::tuple(static_cast<void*>(&moved), nullptr, TtimeValue(2.0f), 3));
}

TEST(ParamCurveMsgs, OnlyTheChangedMessageCanBeConstructedByRecord) {
  std::unique_ptr<TparamCurveChangedMsg> made(
      TparamCurveChangedMsg::construct(TparamCurveChangedMsgTmeta));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(std::tuple(made->typeof(), made->curves()),
            std::tuple(TparamCurveChangedMsgTmeta, nullptr));
  // Through the parent's construct, too.
  std::unique_ptr<TserverModifiedMsg> viaParent(
      TserverModifiedMsg::construct(TparamCurveChangedMsgTmeta));
  EXPECT_EQ(viaParent ? viaParent->typeof() : nullptr, TparamCurveChangedMsgTmeta);

  EXPECT_EQ(TparamCurveChangedMsg::construct(nullptr), nullptr);
  EXPECT_EQ(TparamCurveChangedMsg::construct(TserverModifiedMsgTmeta), nullptr);
  EXPECT_EQ(TparamCurveModifiedMsg::construct(TparamCurveModifiedMsgTmeta), nullptr);
  EXPECT_EQ(TparamCurveModifiedMsg::construct(TparamCurveChangedMsgTmeta), nullptr);
  EXPECT_EQ(TparamCurveHelperMsg::construct(TparamCurveHelperMsgTmeta), nullptr);
  EXPECT_EQ(TkeyframeAddDeleteMsg::construct(TkeyframeAddDeleteMsgTmeta), nullptr);
  EXPECT_EQ(TkeyframeMovedMsg::construct(TkeyframeMovedMsgTmeta), nullptr);
}

TEST(ParamCurveMsgs, ChangedMessagesNeverMergeAndCopyTakeTheList) {
  TparamCurvePtrArray list;
  TparamCurveChangedMsg withList(&list);
  TparamCurveChangedMsg empty;
  EXPECT_FALSE(empty.merge(withList));
  EXPECT_EQ(empty.curves(), nullptr);
  empty.copy(withList);
  empty.copy(TserverModifiedMsg());  // not a changed-curves message: ignored
  EXPECT_EQ(std::tuple(empty.curves(), TparamCurveChangedMsg(withList).curves()),
            std::tuple(&list, &list));
}

TEST(ParamCurveMsgs, HelperStateSettersTouchOneBitThroughConstReference) {
  const TparamCurveHelperMsg q(Help::kHelpProcedural, true);
  EXPECT_TRUE(q.stateFlags() == 1u && q.markConnectionsDirtyState());
  q.creatingReferenceObjectState(true);
  EXPECT_EQ(q.stateFlags(), 5u);
  q.creatingProceduralObjectState(true);
  q.markConnectionsDirtyState(false);
  EXPECT_EQ(q.stateFlags(), 6u);
  q.creatingReferenceObjectState(false);
  EXPECT_EQ(std::tuple(q.stateFlags(), q.creatingProceduralObjectState(),
                       q.creatingReferenceObjectState()),
            std::tuple(2u, true, false));
  TparamCurveHelperMsg copy(q);
  EXPECT_EQ(std::tuple(copy.stateFlags(), copy.helpRequest()),
            std::tuple(2u, Help::kHelpProcedural));
  copy.helpRequest(Help::kHelpReference);
  EXPECT_EQ(copy.helpRequest(), Help::kHelpReference);
  EXPECT_EQ(TparamCurveHelperMsg(Help::kHelpUpdate, false).stateFlags(), 0u);
}

// --- The depot -----------------------------------------------------------------

class MsgDepot : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(depot().delayCount(), 0u);
    ASSERT_FALSE(depot().updatesSuspended());
    ASSERT_TRUE(depot().changedCurves().empty());
    rec.listenGlobally();
  }
  static TparamCurveMsgDepot& depot() { return TparamCurve::globalMsgDepot(); }
  std::vector<std::vector<TparamCurve*>> changedLists() const {
    std::vector<std::vector<TparamCurve*>> out;
    for (const TrecordedMsg& m : rec.only(Kind::kChanged)) out.push_back(m.curves);
    return out;
  }

  TparamCurve a{/*isFloat=*/true};
  TparamCurve b{/*isFloat=*/false};
  TmessageRecorder rec;
};

// The message's list is the depot's own, filled for the send and emptied after it.
TEST_F(MsgDepot, SendsAtOnceFromItsOwnList) {
  struct Tspy : Tclient {
    const TparamCurvePtrArray* seen = nullptr;
    unsigned countDuringSend = 0;
  } spy;
  TparamCurve::addGlobalClient(&spy, [](Tclient* c, TclientServer*, const TserverMsg& m) {
    auto* s = static_cast<Tspy*>(c);
    s->seen = static_cast<const TparamCurveChangedMsg&>(m).curves();
    s->countDuringSend = s->seen->count();
  });
  change(a);
  change(b);
  EXPECT_EQ(changedLists(), (std::vector<std::vector<TparamCurve*>>{{&a}, {&b}}));
  EXPECT_EQ(std::tuple(spy.seen, spy.countDuringSend, depot().changedCurves().count(),
                       depot().pendingFlag()),
            std::tuple(&depot().changedCurves(), 1u, 0u, 0u));
}

TEST_F(MsgDepot, DelayedCurvesGoOutTogetherInFirstChangeOrder) {
  TparamCurve::delayMessages();
  TparamCurve::delayMessages();
  change(b);
  change(a);
  change(b);  // listed once
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);  // still one level of delay
  EXPECT_EQ(depot().changedCurves().count(), 2u);
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_TRUE(depot().changedCurves().empty());
  TparamCurve::delayMessages();  // nothing gathered: nothing sent
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(changedLists(), (std::vector<std::vector<TparamCurve*>>{{&b, &a}}));
}

TEST_F(MsgDepot, UnmatchedResumeWrapsAndKeepsMessagesDelayed) {
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(depot().delayCount(), 0xFFFFu);
  change(a);
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);
  // A delay wraps the count back to 0; the next matched pair sends the curve.
  TparamCurve::delayMessages();
  EXPECT_EQ(depot().delayCount(), 0u);
  TparamCurve::delayMessages();
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(changedLists(), (std::vector<std::vector<TparamCurve*>>{{&a}}));
}

TEST_F(MsgDepot, SuspendedChangesAreLostNotDeferred) {
  EXPECT_FALSE(TparamCurve::suspendUpdates(true));
  change(a);
  EXPECT_TRUE(depot().changedCurves().empty());
  EXPECT_TRUE(TparamCurve::suspendUpdates(false));
  change(b);
  EXPECT_EQ(changedLists(), (std::vector<std::vector<TparamCurve*>>{{&b}}));

  // Lost even when the suspension ends while messages are delayed.
  TparamCurve::delayMessages();
  TparamCurve::suspendUpdates(true);
  change(a);
  TparamCurve::suspendUpdates(false);
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(rec.count(Kind::kChanged), 1u);
}

TEST_F(MsgDepot, RemoveGlobalClientLeavesTheHelperRegistration) {
  TparamCurve::removeGlobalClient(&rec);
  rec.log.clear();
  change(a);
  EXPECT_EQ(std::tuple(rec.count(Kind::kChanged), rec.count(Help::kHelpBeginChange),
                       rec.count(Help::kHelpUpdate)),
            std::tuple(0u, 1u, 1u));
  // The helper withdraws through the depot itself.
  depot().removeClient(&rec);
  rec.log.clear();
  change(a);
  EXPECT_TRUE(rec.log.empty());
}

TEST_F(MsgDepot, DestroyedCurveCanBeDroppedFromTheGatheredList) {
  TparamCurve::delayMessages();
  {
    TparamCurve doomed(true);
    change(doomed);
    change(a);
    depot().removeChangedCurve(&doomed);
  }
  depot().removeChangedCurve(nullptr);
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(changedLists(), (std::vector<std::vector<TparamCurve*>>{{&a}}));
}

TEST(NotifyModule, StopTellsDepotClientsAndRestartRestoresRecords) {
  TmessageRecorder rec;
  rec.listenTo(TparamCurve::globalMsgDepot(), TserverDeletedMsgTmeta);
  internal::stopNotifyModule();
  EXPECT_EQ(std::tuple(rec.count(Kind::kDeleted), rec.serverCount()), std::tuple(1u, 0u));
  EXPECT_EQ(
      std::tuple(internal::msgDepot(), TparamCurveChangedMsgTmeta, TkeyframeAddDeleteMsgTmeta),
      std::tuple(nullptr, nullptr, nullptr));

  internal::startNotifyModule();
  ASSERT_NE(internal::msgDepot(), nullptr);
  EXPECT_EQ(&TparamCurve::globalMsgDepot(), internal::msgDepot());
  EXPECT_TRUE(TparamCurveModifiedMsgTmeta != nullptr && TkeyframeMovedMsgTmeta != nullptr);
  EXPECT_EQ(TparamCurveChangedMsgTmeta->parent(), TserverModifiedMsgTmeta);
  internal::startNotifyModule();  // a second start changes nothing
  EXPECT_EQ(&TparamCurve::globalMsgDepot(), internal::msgDepot());
}

}  // namespace
}  // namespace lumora
