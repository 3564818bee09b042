#include <gtest/gtest.h>

#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/keys/keyframe.h"
#include "lumora/notify/internal/notify_module.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/msg_depot.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {
namespace {

using Access = TparamCurveTestAccess;
using Kind = TrecordedMsg::Tkind;
using Help = TparamCurveHelperMsg;
using Modified = TparamCurveModifiedMsg;

// A float curve with keys at 0, 1 and 2 s and a recorder hearing everything.
class ChangeScope : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(TparamCurve::globalMsgDepot().delayCount(), 0u);
    ASSERT_FALSE(TparamCurve::globalMsgDepot().updatesSuspended());
    for (int i = 0; i < 3; ++i) {
      keys[i] = new Tkeyframe(static_cast<float>(i), 10.0 * i);
      ASSERT_GE(Access::arrayInsert(curve, keys[i]), 0);
    }
    rec.listenGlobally();
    rec.listenTo(curve);
  }
  void TearDown() override { internal::setMessagesSilenced(false); }

  TparamCurve curve{/*isFloat=*/true};
  Tkeyframe* keys[3] = {};
  TmessageRecorder rec;
};

TEST_F(ChangeScope, NestedScopesAskOnceAndAnnounceOnce) {
  ASSERT_TRUE(Access::beginChange(curve));
  ASSERT_TRUE(Access::beginChange(curve));
  EXPECT_EQ(Access::changeDepth(curve), 2u);
  Access::endChange(curve, true);
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);  // still inside the outer scope
  Access::endChange(curve, true);

  EXPECT_EQ(Access::changeDepth(curve), 0u);
  EXPECT_EQ(rec.count(Help::kHelpBeginChange), 1u);
  EXPECT_EQ(rec.count(Help::kHelpUpdate), 1u);
  const auto changed = rec.only(Kind::kChanged);
  ASSERT_EQ(changed.size(), 1u);
  EXPECT_EQ(changed[0].curves, std::vector<TparamCurve*>{&curve});
  // Helpers hear of the close before global clients hear of the curve.
  EXPECT_EQ(rec.kinds(), (std::vector<Kind>{Kind::kHelper, Kind::kHelper, Kind::kChanged}));
  EXPECT_EQ(rec.log[0].stateAsSent, static_cast<std::uint32_t>(Help::kMarkConnectionsDirty));
}

TEST_F(ChangeScope, ConnectionsDirtyAnswerIsStoredAndReportedAtClose) {
  rec.connectionsDirtyAnswer = false;
  ASSERT_TRUE(Access::beginChange(curve));
  EXPECT_FALSE(Access::connectionsDirty(curve));
  Access::endChange(curve, false);
  ASSERT_EQ(rec.log.back().request, Help::kHelpUpdate);
  EXPECT_EQ(rec.log.back().stateAsSent, 0u);

  // Unanswered, the question keeps the bit it was sent with.
  rec.connectionsDirtyAnswer.reset();
  ASSERT_TRUE(Access::beginChange(curve));
  EXPECT_TRUE(Access::connectionsDirty(curve));
  Access::endChange(curve, false);
  EXPECT_EQ(rec.log.back().stateAsSent, static_cast<std::uint32_t>(Help::kMarkConnectionsDirty));
}

TEST_F(ChangeScope, UnchangedScopeTellsHelpersButNotGlobalClients) {
  ASSERT_TRUE(Access::beginChange(curve));
  Access::endChange(curve, false);
  EXPECT_EQ(rec.count(Help::kHelpUpdate), 1u);
  EXPECT_EQ(rec.count(Kind::kChanged), 0u);

  // One changed inner scope is enough to report the outer one.
  ASSERT_TRUE(Access::beginChange(curve));
  ASSERT_TRUE(Access::beginChange(curve));
  Access::endChange(curve, true);
  Access::endChange(curve, false);
  EXPECT_EQ(rec.count(Kind::kChanged), 1u);
  EXPECT_FALSE(Access::changedInChange(curve));
}

TEST_F(ChangeScope, UnmatchedEndChangeWrapsTheDepth) {
  Access::endChange(curve, true);
  EXPECT_EQ(Access::changeDepth(curve), 0xFFFFu);
  EXPECT_TRUE(rec.log.empty());
}

TEST_F(ChangeScope, ProceduralCurveNeedsApprovalForEveryScopeAndSelection) {
  curve.isProcedural(true);
  EXPECT_FALSE(Access::beginChange(curve));
  EXPECT_EQ(Access::changeDepth(curve), 0u);
  EXPECT_FALSE(curve.canSelect());
  curve.markDirty();
  // Only the refused questions went out: no scope opened, no key message.
  EXPECT_EQ(rec.count(Help::kHelpProcedural), 3u);
  EXPECT_EQ(rec.log.size(), 3u);

  rec.approveProcedural = true;
  rec.log.clear();
  EXPECT_TRUE(curve.canSelect());
  ASSERT_TRUE(Access::beginChange(curve));
  ASSERT_TRUE(Access::beginChange(curve));  // nested scopes ask again
  Access::endChange(curve, true);
  Access::endChange(curve, true);
  EXPECT_EQ(rec.count(Help::kHelpProcedural), 3u);
  EXPECT_EQ(rec.count(Help::kHelpBeginChange), 1u);
  EXPECT_EQ(rec.count(Kind::kChanged), 1u);
}

TEST_F(ChangeScope, ReferenceCurveNeedsItsOwnApproval) {
  curve.isReference(true);
  rec.approveProcedural = true;  // the wrong answer does not help
  EXPECT_FALSE(Access::beginChange(curve));
  EXPECT_FALSE(curve.canSelect());
  EXPECT_EQ(rec.count(Help::kHelpReference), 2u);

  rec.approveReference = true;
  EXPECT_TRUE(curve.canSelect());

  // A curve that is both needs both answers.
  curve.isProcedural(true);
  rec.approveProcedural = false;
  EXPECT_FALSE(curve.canSelect());
  rec.approveProcedural = true;
  EXPECT_TRUE(Access::beginChange(curve));
  Access::endChange(curve, false);
}

TEST_F(ChangeScope, FirstKeyMessageOfAScopeStopsModelUpdatesOnce) {
  ASSERT_TRUE(Access::beginChange(curve));
  EXPECT_FALSE(internal::modelUpdatesDisabled());
  rec.log.clear();
  Access::notifyClientsOfChange(curve, keys[0], Modified::kKeyChanged);
  Access::notifyClientsOfChange(curve, keys[1], Modified::kTangentChanged);
  Access::endChange(curve, true);

  EXPECT_EQ(rec.kinds(), (std::vector<Kind>{Kind::kModified, Kind::kHelper, Kind::kModified,
                                            Kind::kHelper, Kind::kChanged}));
  EXPECT_EQ(rec.log[1].request, Help::kHelpUpdate);
  EXPECT_EQ(rec.log[1].stateAsSent, 0u);
  EXPECT_TRUE(internal::modelUpdatesDisabled());

  // The next outermost scope re-arms it.
  ASSERT_TRUE(Access::beginChange(curve));
  EXPECT_FALSE(internal::modelUpdatesDisabled());
  Access::endChange(curve, false);
}

TEST_F(ChangeScope, KeyMessagesOutsideAScopeGoOnlyToTheCurve) {
  Access::notifyClientsOfChange(curve, keys[2], Modified::kWeightingChanged);
  ASSERT_EQ(rec.log.size(), 1u);
  const TrecordedMsg& m = rec.log[0];
  EXPECT_EQ(m.kind, Kind::kModified);
  EXPECT_EQ(m.server, static_cast<TclientServer*>(&curve));
  EXPECT_EQ(m.messageType, Modified::kWeightingChanged);
  EXPECT_EQ(m.key, keys[2]);
  EXPECT_TRUE(m.keyValid);
}

TEST_F(ChangeScope, OutOfRangeIndexSendsAnEmptyHandle) {
  Access::notifyClientsOfChangeAt(curve, 1, Modified::kKeyChanged);
  Access::notifyClientsOfChangeAt(curve, 3, Modified::kKeyRemoved);
  const auto sent = rec.only(Kind::kModified);
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0].key, keys[1]);
  EXPECT_EQ(sent[1].key, nullptr);
  EXPECT_FALSE(sent[1].keyValid);
  EXPECT_EQ(sent[1].messageType, Modified::kKeyRemoved);
}

TEST_F(ChangeScope, FileInputSilencesKeyMessagesButNotTheScope) {
  curve.setInFileIO(true);
  curve.markDirty();
  EXPECT_EQ(rec.count(Kind::kModified), 0u);
  EXPECT_EQ(rec.count(Kind::kChanged), 1u);
  // Without a key message the helpers are not told to stop model updates.
  EXPECT_EQ(rec.count(Help::kHelpUpdate), 1u);

  curve.setNotifyClientsDuringFileIO(true);
  curve.markDirty();
  EXPECT_EQ(rec.count(Kind::kModified), 1u);
  EXPECT_EQ(rec.count(Kind::kChanged), 2u);
}

TEST_F(ChangeScope, SilencedHookStopsKeyMessages) {
  internal::setMessagesSilenced(true);
  curve.markDirty();
  EXPECT_EQ(rec.count(Kind::kModified), 0u);
  EXPECT_EQ(rec.count(Kind::kChanged), 1u);
}

TEST_F(ChangeScope, MarkDirtySendsKeyChangedForTheFirstKey) {
  curve.markDirty();
  const auto sent = rec.only(Kind::kModified);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].key, keys[0]);
  EXPECT_EQ(sent[0].messageType, Modified::kKeyChanged);
  EXPECT_EQ(rec.count(Help::kHelpBeginChange), 1u);
  EXPECT_EQ(rec.only(Kind::kChanged).at(0).curves, std::vector<TparamCurve*>{&curve});
}

TEST(ChangeScopeEmpty, MarkDirtyOnAnEmptyCurveDoesNothing) {
  TparamCurve empty(/*isFloat=*/false);
  TmessageRecorder rec;
  rec.listenGlobally();
  rec.listenTo(empty);
  empty.markDirty();
  EXPECT_TRUE(rec.log.empty());
}

TEST_F(ChangeScope, AddDeleteMessageIsBuiltOnlyForListeners) {
  // rec listens for modified messages only.
  Access::sendAddDeleteMessage(curve, keys[1], false);
  EXPECT_EQ(rec.count(Kind::kAddDelete), 0u);

  TmessageRecorder keyWatcher;
  keyWatcher.listenTo(curve, TkeyframeAddDeleteMsgTmeta);
  Access::sendAddDeleteMessage(curve, keys[1], false);
  Access::sendAddDeleteMessage(curve, keys[1], true);
  const auto sent = keyWatcher.only(Kind::kAddDelete);
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0].key, keys[1]);
  EXPECT_FALSE(sent[0].added);
  EXPECT_TRUE(sent[1].added);
  EXPECT_EQ(rec.count(Kind::kAddDelete), 0u);
}

}  // namespace
}  // namespace lumora
