#include "lumora/notify/msg_depot.h"

#include <gtest/gtest.h>

#include <memory>
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
  struct Trow {
    Tmetaclass* record;
    const char* name;
    Tmetaclass* parent;
  };
  const Trow rows[] = {
      {TparamCurveModifiedMsgTmeta, "TparamCurveModifiedMsg", TserverMsgTmeta},
      {TparamCurveChangedMsgTmeta, "TparamCurveChangedMsg", TserverModifiedMsgTmeta},
      {TparamCurveHelperMsgTmeta, "TparamCurveHelperMsg", TserverMsgTmeta},
      {TkeyframeAddDeleteMsgTmeta, "TkeyframeAddDeleteMsg", TserverMsgTmeta},
      {TkeyframeMovedMsgTmeta, "TkeyframeMovedMsg", TserverMsgTmeta},
  };
  for (const Trow& row : rows) {
    ASSERT_NE(row.record, nullptr) << row.name;
    EXPECT_STREQ(row.record->name(), row.name);
    EXPECT_EQ(row.record->parent(), row.parent) << row.name;
  }
}

TEST(ParamCurveMsgs, CastAnswersOwnRecordAndParents) {
  TparamCurveChangedMsg changed;
  EXPECT_EQ(changed.typeof(), TparamCurveChangedMsgTmeta);
  EXPECT_EQ(changed.cast(TparamCurveChangedMsgTmeta), &changed);
  EXPECT_EQ(changed.cast(TserverModifiedMsgTmeta), &changed);
  EXPECT_EQ(changed.cast(TserverMsgTmeta), &changed);
  EXPECT_EQ(changed.cast(TparamCurveHelperMsgTmeta), nullptr);
  EXPECT_EQ(changed.cast(nullptr), nullptr);

  TparamCurveModifiedMsg modified(nullptr, TparamCurveModifiedMsg::kKeyAdded);
  EXPECT_EQ(modified.cast(TparamCurveModifiedMsgTmeta), &modified);
  EXPECT_EQ(modified.cast(TserverModifiedMsgTmeta), nullptr);  // not a modified-server message

  TkeyframeMovedMsg moved(TtimeValue(1.0f), TtimeValue(2.0f), 3);
  EXPECT_EQ(moved.cast(TkeyframeMovedMsgTmeta), &moved);
  EXPECT_EQ(moved.cast(TkeyframeAddDeleteMsgTmeta), nullptr);
  EXPECT_EQ(moved.toTime(), TtimeValue(2.0f));
  EXPECT_EQ(moved.moveOption(), 3);
}

TEST(ParamCurveMsgs, OnlyTheChangedMessageCanBeConstructedByRecord) {
  std::unique_ptr<TparamCurveChangedMsg> made(
      TparamCurveChangedMsg::construct(TparamCurveChangedMsgTmeta));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->typeof(), TparamCurveChangedMsgTmeta);
  EXPECT_EQ(made->curves(), nullptr);
  // Through the parent's construct, too.
  std::unique_ptr<TserverModifiedMsg> viaParent(
      TserverModifiedMsg::construct(TparamCurveChangedMsgTmeta));
  ASSERT_NE(viaParent, nullptr);
  EXPECT_EQ(viaParent->typeof(), TparamCurveChangedMsgTmeta);

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
  EXPECT_EQ(empty.curves(), &list);
  // Something that is not a changed-curves message is ignored.
  empty.copy(TserverModifiedMsg());
  EXPECT_EQ(empty.curves(), &list);
  const TparamCurveChangedMsg copied(withList);
  EXPECT_EQ(copied.curves(), &list);
}

TEST(ParamCurveMsgs, HelperStateSettersTouchOneBitThroughConstReference) {
  const TparamCurveHelperMsg q(Help::kHelpProcedural, true);
  EXPECT_EQ(q.stateFlags(), 1u);
  EXPECT_TRUE(q.markConnectionsDirtyState());
  q.creatingReferenceObjectState(true);
  EXPECT_EQ(q.stateFlags(), 5u);
  q.creatingProceduralObjectState(true);
  q.markConnectionsDirtyState(false);
  EXPECT_EQ(q.stateFlags(), 6u);
  q.creatingReferenceObjectState(false);
  EXPECT_TRUE(q.creatingProceduralObjectState());
  EXPECT_FALSE(q.creatingReferenceObjectState());
  EXPECT_EQ(q.stateFlags(), 2u);

  TparamCurveHelperMsg copy(q);
  EXPECT_EQ(copy.stateFlags(), 2u);
  EXPECT_EQ(copy.helpRequest(), Help::kHelpProcedural);
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

TEST_F(MsgDepot, SendsAtOnceAndReusesTheList) {
  change(a);
  change(b);
  EXPECT_EQ(changedLists(), (std::vector<std::vector<TparamCurve*>>{{&a}, {&b}}));
  EXPECT_TRUE(depot().changedCurves().empty());
  EXPECT_EQ(depot().pendingFlag(), 0u);
}

TEST_F(MsgDepot, ListPointsAtTheDepotsOwnListDuringTheSend) {
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
  EXPECT_EQ(spy.seen, &depot().changedCurves());
  EXPECT_EQ(spy.countDuringSend, 1u);
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
  EXPECT_EQ(changedLists(), (std::vector<std::vector<TparamCurve*>>{{&b, &a}}));
  EXPECT_TRUE(depot().changedCurves().empty());
}

TEST_F(MsgDepot, ResumeWithNothingGatheredSendsNothing) {
  TparamCurve::delayMessages();
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);
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
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);
  EXPECT_EQ(rec.count(Help::kHelpBeginChange), 1u);
  EXPECT_EQ(rec.count(Help::kHelpUpdate), 1u);
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
  EXPECT_EQ(rec.count(Kind::kDeleted), 1u);
  EXPECT_EQ(internal::msgDepot(), nullptr);
  EXPECT_EQ(TparamCurveChangedMsgTmeta, nullptr);
  EXPECT_EQ(TkeyframeAddDeleteMsgTmeta, nullptr);
  EXPECT_EQ(rec.serverCount(), 0u);

  internal::startNotifyModule();
  ASSERT_NE(internal::msgDepot(), nullptr);
  EXPECT_EQ(&TparamCurve::globalMsgDepot(), internal::msgDepot());
  EXPECT_NE(TparamCurveModifiedMsgTmeta, nullptr);
  EXPECT_NE(TkeyframeMovedMsgTmeta, nullptr);
  EXPECT_EQ(TparamCurveChangedMsgTmeta->parent(), TserverModifiedMsgTmeta);
  internal::startNotifyModule();  // a second start changes nothing
  EXPECT_EQ(&TparamCurve::globalMsgDepot(), internal::msgDepot());
}

}  // namespace
}  // namespace lumora
