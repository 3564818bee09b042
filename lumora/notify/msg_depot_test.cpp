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
using Lists = std::vector<std::vector<TparamCurve*>>;

// One complete outermost change scope on `c`.
void change(TparamCurve& c) {
  ASSERT_TRUE(Access::beginChange(c));
  Access::endChange(c, true);
}

// --- Message classes ------------------------------------------------------------

TEST(ParamCurveMsgs, CastAndConstructFollowTheClassTree) {
  TparamCurveChangedMsg changed;
  void* const self = &changed;
  EXPECT_EQ(std::tuple(changed.typeof(), changed.cast(TparamCurveChangedMsgTmeta),
                       changed.cast(TserverModifiedMsgTmeta), changed.cast(TserverMsgTmeta),
                       changed.cast(TparamCurveHelperMsgTmeta), changed.cast(nullptr)),
            std::tuple(TparamCurveChangedMsgTmeta, self, self, self, nullptr, nullptr));
  // A modified-curve message is not a modified-server message; a move is not an add/delete.
  TparamCurveModifiedMsg modified(nullptr, TparamCurveModifiedMsg::kKeyAdded);
  TkeyframeMovedMsg moved(TtimeValue(1.0f), TtimeValue(2.0f), 3);
  EXPECT_EQ(std::tuple(modified.cast(TserverModifiedMsgTmeta), moved.cast(TkeyframeMovedMsgTmeta),
                       moved.cast(TkeyframeAddDeleteMsgTmeta)),
            std::tuple(nullptr, static_cast<void*>(&moved), nullptr));

  // Only the changed-curves message can be made from its record.
  std::unique_ptr<TparamCurveChangedMsg> made(
      TparamCurveChangedMsg::construct(TparamCurveChangedMsgTmeta));
  EXPECT_EQ(made ? made->typeof() : nullptr, TparamCurveChangedMsgTmeta);
  EXPECT_EQ(TparamCurveModifiedMsg::construct(TparamCurveModifiedMsgTmeta), nullptr);
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

// --- The depot -----------------------------------------------------------------

class MsgDepot : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(depot().delayCount() == 0 && !depot().updatesSuspended() &&
                depot().changedCurves().empty());
    rec.listenGlobally();
  }
  static TparamCurveMsgDepot& depot() { return TparamCurve::globalMsgDepot(); }
  Lists changedLists() const {
    Lists out;
    for (const TrecordedMsg& m : rec.only(Kind::kChanged)) out.push_back(m.curves);
    return out;
  }

  TparamCurve a{/*isFloat=*/true};
  TparamCurve b{/*isFloat=*/false};
  TmessageRecorder rec;
};

TEST_F(MsgDepot, DelayedCurvesGoOutTogetherInFirstChangeOrder) {
  TparamCurve::delayMessages();
  TparamCurve::delayMessages();
  change(b);
  change(a);
  change(b);  // listed once
  {
    TparamCurve doomed(true);  // destroyed while listed: it takes itself out
    change(doomed);
  }
  depot().removeChangedCurve(nullptr);
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);  // still one level of delay
  EXPECT_EQ(depot().changedCurves().count(), 2u);
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_TRUE(depot().changedCurves().empty());
  TparamCurve::delayMessages();  // nothing gathered: nothing sent
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(changedLists(), (Lists{{&b, &a}}));
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
  EXPECT_EQ(changedLists(), (Lists{{&a}}));
}

TEST_F(MsgDepot, SuspendedChangesAreLostNotDeferred) {
  EXPECT_FALSE(TparamCurve::suspendUpdates(true));
  change(a);
  EXPECT_TRUE(depot().changedCurves().empty());
  EXPECT_TRUE(TparamCurve::suspendUpdates(false));
  change(b);  // recording again: each change goes out at once, alone
  change(a);
  EXPECT_EQ(changedLists(), (Lists{{&b}, {&a}}));

  // Lost even when the suspension ends while messages are delayed.
  TparamCurve::delayMessages();
  TparamCurve::suspendUpdates(true);
  change(a);
  TparamCurve::suspendUpdates(false);
  TparamCurve::resumeMessagesAndUpdate();
  EXPECT_EQ(rec.count(Kind::kChanged), 2u);
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
