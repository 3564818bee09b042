#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

#include "lumora/base/typed_array.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/keys/keyframe.h"
#include "lumora/notify/internal/notify_module.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/msg_depot.h"
#include "lumora/notify/param_curve_delta.h"
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
    const TparamCurveMsgDepot& depot = TparamCurve::globalMsgDepot();
    ASSERT_TRUE(depot.delayCount() == 0 && !depot.updatesSuspended());
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
  Access::endChange(curve, false);           // one changed inner scope reports the outer one
  EXPECT_EQ(std::tuple(Access::changeDepth(curve), Access::changedInChange(curve)),
            std::tuple(0u, false));
  // Begin, then update: helpers hear of the close before global clients hear of the curve.
  ASSERT_EQ(rec.kinds(), (std::vector<Kind>{Kind::kHelper, Kind::kHelper, Kind::kChanged}));
  EXPECT_EQ(std::tuple(rec.log[0].request, rec.log[0].stateAsSent, rec.log[1].request),
            std::tuple(Help::kHelpBeginChange, std::uint32_t{Help::kMarkConnectionsDirty},
                       Help::kHelpUpdate));
  EXPECT_EQ(rec.log[2].curves, std::vector<TparamCurve*>{&curve});

  // An unchanged scope tells the helpers but not the global clients. Unanswered,
  // the begin question keeps the connections-dirty bit it was sent with.
  rec.log.clear();
  ASSERT_TRUE(Access::beginChange(curve));
  EXPECT_TRUE(Access::connectionsDirty(curve));
  Access::endChange(curve, false);
  ASSERT_EQ(rec.kinds(), (std::vector<Kind>{Kind::kHelper, Kind::kHelper}));
  EXPECT_EQ(rec.log[1].stateAsSent, static_cast<std::uint32_t>(Help::kMarkConnectionsDirty));
  rec.log.clear();
  Access::endChange(curve, true);  // unmatched: the depth wraps, nothing is sent
  EXPECT_EQ(Access::changeDepth(curve), 0xFFFFu);
  EXPECT_TRUE(rec.log.empty());
}

TEST_F(ChangeScope, ConnectionsDirtyAnswerIsStoredAndReportedAtClose) {
  rec.connectionsDirtyAnswer = false;
  ASSERT_TRUE(Access::beginChange(curve));
  EXPECT_FALSE(Access::connectionsDirty(curve));
  Access::endChange(curve, false);
  EXPECT_EQ(std::tuple(rec.log.back().request, rec.log.back().stateAsSent),
            std::tuple(Help::kHelpUpdate, 0u));
}

TEST_F(ChangeScope, ProceduralAndReferenceCurvesNeedApprovalForEveryScopeAndSelection) {
  curve.isProcedural(true);
  EXPECT_FALSE(Access::beginChange(curve));
  EXPECT_EQ(Access::changeDepth(curve), 0u);
  EXPECT_FALSE(curve.canSelect());
  curve.markDirty();
  // Only the refused questions went out: no scope opened, no key message.
  EXPECT_EQ(std::tuple(rec.count(Help::kHelpProcedural), rec.log.size()), std::tuple(3u, 3u));

  rec.approveProcedural = true;
  rec.log.clear();
  EXPECT_TRUE(curve.canSelect());
  ASSERT_TRUE(Access::beginChange(curve));
  ASSERT_TRUE(Access::beginChange(curve));  // nested scopes ask again
  Access::endChange(curve, true);
  Access::endChange(curve, true);
  EXPECT_EQ(std::tuple(rec.count(Help::kHelpProcedural), rec.count(Help::kHelpBeginChange),
                       rec.count(Kind::kChanged)),
            std::tuple(3u, 1u, 1u));

  // A reference curve needs its own answer; the procedural one does not help.
  curve.isReference(true);
  EXPECT_FALSE(Access::beginChange(curve));
  EXPECT_FALSE(curve.canSelect());
  EXPECT_EQ(rec.count(Help::kHelpReference), 2u);
  rec.approveReference = true;
  EXPECT_TRUE(curve.canSelect());
  rec.approveProcedural = false;  // both flags set: both answers needed
  EXPECT_FALSE(curve.canSelect());
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
  EXPECT_EQ(
      std::tuple(rec.log[1].request, rec.log[1].stateAsSent, internal::modelUpdatesDisabled()),
      std::tuple(Help::kHelpUpdate, 0u, true));

  // The next outermost scope re-arms it.
  ASSERT_TRUE(Access::beginChange(curve));
  EXPECT_FALSE(internal::modelUpdatesDisabled());
  Access::endChange(curve, false);
}

// Outside a scope key messages go only to the curve; an index out of range
// sends an empty handle. Add/delete messages are built only for their listeners.
TEST_F(ChangeScope, KeyMessagesOutsideAScopeGoOnlyToTheCurve) {
  Access::notifyClientsOfChange(curve, keys[2], Modified::kWeightingChanged);
  Access::notifyClientsOfChangeAt(curve, 1, Modified::kKeyChanged);
  Access::notifyClientsOfChangeAt(curve, 3, Modified::kKeyRemoved);
  Access::sendAddDeleteMessage(curve, keys[1], false);  // rec hears modified messages only
  ASSERT_EQ(rec.kinds(), (std::vector<Kind>{Kind::kModified, Kind::kModified, Kind::kModified}));
  const TrecordedMsg& m = rec.log[0];
  EXPECT_EQ(
      std::tuple(m.server, m.messageType, m.key, m.keyValid),
      std::tuple(static_cast<TclientServer*>(&curve), Modified::kWeightingChanged, keys[2], true));
  EXPECT_EQ(std::tuple(rec.log[1].key, rec.log[2].key, rec.log[2].keyValid, rec.log[2].messageType),
            std::tuple(keys[1], nullptr, false, Modified::kKeyRemoved));

  TmessageRecorder keyWatcher;
  keyWatcher.listenTo(curve, TkeyframeAddDeleteMsgTmeta);
  Access::sendAddDeleteMessage(curve, keys[1], false);
  Access::sendAddDeleteMessage(curve, keys[1], true);
  const auto sent = keyWatcher.only(Kind::kAddDelete);
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(std::tuple(sent[0].key, sent[0].added, sent[1].added, rec.log.size()),
            std::tuple(keys[1], false, true, 3u));
}

// A dirty curve sends key-changed for its first key only; during file input
// key messages need permission, and the silenced hook stops them.
TEST_F(ChangeScope, MarkDirtySendsKeyChangedForTheFirstKeyOnly) {
  curve.markDirty();
  const auto sent = rec.only(Kind::kModified);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(std::tuple(sent[0].key, sent[0].messageType, rec.count(Help::kHelpBeginChange)),
            std::tuple(keys[0], Modified::kKeyChanged, 1u));
  EXPECT_EQ(rec.only(Kind::kChanged).at(0).curves, std::vector<TparamCurve*>{&curve});
  TparamCurve empty(/*isFloat=*/false);  // an empty curve: nothing at all
  rec.listenTo(empty);
  rec.log.clear();
  empty.markDirty();
  EXPECT_TRUE(rec.log.empty());

  const auto counts = [&] {
    return std::tuple(rec.count(Kind::kModified), rec.count(Kind::kChanged),
                      rec.count(Help::kHelpUpdate));
  };
  curve.setInFileIO(true);
  curve.markDirty();
  // Without a key message the helpers are not told to stop model updates.
  EXPECT_EQ(counts(), std::tuple(0u, 1u, 1u));
  curve.setNotifyClientsDuringFileIO(true);
  curve.markDirty();
  EXPECT_EQ(counts(), std::tuple(1u, 2u, 3u));
  curve.setInFileIO(false);
  internal::setMessagesSilenced(true);
  curve.markDirty();
  EXPECT_EQ(counts(), std::tuple(1u, 3u, 4u));
}

// --- Curves nobody listens to -----------------------------------------------------

using Question = std::pair<Help::ThelpRequest, std::uint32_t>;

// The questions a helper hears while `curve` gets a key appended, a value
// changed and its first key removed.
std::vector<Question> questionsWhileEditing(TparamCurve& curve) {
  TmessageRecorder helper;
  TparamCurve::addGlobalHelper(&helper, &TmessageRecorder::record);
  EXPECT_TRUE(curve.add(Tkeyframe(TanimTime(300), 3.0)));
  curve.setValue(1, 5.0);
  curve.remove(0);
  std::vector<Question> heard;
  for (const TrecordedMsg& m : helper.log) heard.emplace_back(m.request, m.stateAsSent);
  return heard;
}

// Key messages are built only for a curve that someone listens to; the
// helpers must hear exactly the same questions either way.
TEST(ChangeScopeUnwatched, HelpersHearTheSameWhetherOrNotKeysAreWatched) {
  TparamCurve watched(/*isFloat=*/false);
  TparamCurve unwatched(/*isFloat=*/false);
  for (TparamCurve* c : {&watched, &unwatched}) {
    ASSERT_TRUE(c->add(Tkeyframe(TanimTime(100), 1.0)));
    ASSERT_TRUE(c->add(Tkeyframe(TanimTime(200), 2.0)));
  }
  TmessageRecorder keys;
  keys.listenTo(watched);

  const std::vector<Question> heard = questionsWhileEditing(unwatched);
  EXPECT_EQ(heard, questionsWhileEditing(watched));
  // Per edit: the begin question, model updates stopped by its first key
  // message, the close with the unanswered connections-dirty bit.
  const Question begin{Help::kHelpBeginChange, Help::kMarkConnectionsDirty};
  const Question stop{Help::kHelpUpdate, 0u};
  const Question close{Help::kHelpUpdate, Help::kMarkConnectionsDirty};
  EXPECT_EQ(heard,
            (std::vector<Question>{begin, stop, close, begin, stop, close, begin, stop, close}));
  EXPECT_EQ(keys.count(Kind::kModified), 3u);
}

TEST(ChangeScopeUnwatched, ListenersRegisteredLaterHearEveryChange) {
  TparamCurve curve(/*isFloat=*/false);
  ASSERT_TRUE(curve.add(Tkeyframe(TanimTime(100), 1.0)));
  ASSERT_TRUE(curve.add(Tkeyframe(TanimTime(200), 2.0)));
  // Announced to nobody, so nothing is left gathered either.
  EXPECT_TRUE(TparamCurve::globalMsgDepot().changedCurves().empty());

  TmessageRecorder rec;
  rec.listenTo(curve);
  rec.listenGlobally();
  ASSERT_TRUE(curve.add(Tkeyframe(TanimTime(300), 3.0)));
  Tkeyframe* added = curve.keyframe(2);
  curve.remove(0);
  const std::vector<Kind> scope{Kind::kHelper, Kind::kModified, Kind::kHelper, Kind::kHelper,
                                Kind::kChanged};
  std::vector<Kind> both = scope;
  both.insert(both.end(), scope.begin(), scope.end());
  ASSERT_EQ(rec.kinds(), both);
  const auto sent = rec.only(Kind::kModified);
  EXPECT_EQ(std::tuple(sent[0].messageType, sent[0].key, sent[0].keyValid, sent[1].messageType),
            std::tuple(Modified::kKeyAdded, added, true, Modified::kKeyRemoved));
  EXPECT_EQ(curve.keyframe(1), added);
  for (const TrecordedMsg& m : rec.only(Kind::kChanged)) {
    EXPECT_EQ(m.curves, std::vector<TparamCurve*>{&curve});
  }
}

// While messages are delayed a changed curve is gathered even with no global
// client yet: one registered before the resume hears of it.
TEST(ChangeScopeUnwatched, CurvesGatheredWhileDelayedReachALaterClient) {
  TparamCurve curve(/*isFloat=*/false);
  TparamCurve::delayMessages();
  ASSERT_TRUE(curve.add(Tkeyframe(TanimTime(100), 1.0)));
  TmessageRecorder rec;
  TparamCurve::addGlobalClient(&rec, &TmessageRecorder::record);
  TparamCurve::resumeMessagesAndUpdate();
  const auto changed = rec.only(Kind::kChanged);
  ASSERT_EQ(changed.size(), 1u);
  EXPECT_EQ(changed[0].curves, std::vector<TparamCurve*>{&curve});
}

}  // namespace
}  // namespace lumora

namespace lumora {
namespace {

// A client that, on every message of the curve it watches, reads the whole
// curve and then tries to edit it in every way there is.
struct TmeddlingClient : Tclient {
  unsigned messages = 0;
  unsigned editsTaken = 0;
  double sum = 0.0;

  static void heard(Tclient* c, TclientServer* server, const TserverMsg&) {
    auto* self = static_cast<TmeddlingClient*>(c);
    auto* curve = static_cast<TparamCurve*>(server);
    ++self->messages;
    for (unsigned i = 0; i < curve->keyframeCount(); ++i) {
      self->sum += curve->keyframe(i)->value() + curve->evaluate(curve->seconds(i) + 0.25f);
    }
    const unsigned before = curve->keyframeCount();
    curve->remove(0);
    curve->add(Tkeyframe(curve->makeTimeValue(0.125f), 1.0));
    curve->insert(curve->makeTimeValue(0.75f), false, false);
    curve->setTanInType(0, kTangentFlat);
    curve->removeAllKeys();
    TdoubleArray times, values;
    times.addLast(3.5);
    values.addLast(1.0);
    curve->blockAdd(Tkeyframe(), &times, &values);
    curve->noUpdate(TtimeUnitSystem::kSeconds, TtimeUnitSystem::kFilm);
    if (curve->keyframeCount() != before) ++self->editsTaken;
  }
};

TEST(TparamCurveMessages, EditsFromInsideTheCurvesOwnMessagesAreRefused) {
  for (const bool isFloat : {true, false}) {
    TparamCurve curve(isFloat);
    TmeddlingClient client;
    const TclientServer::TclientRegistration registrations[] = {
        {TparamCurveModifiedMsgTmeta, &TmeddlingClient::heard},
        {TkeyframeAddDeleteMsgTmeta, &TmeddlingClient::heard},
    };
    ASSERT_EQ(curve.addClient(&client, registrations, 2), 0);
    TparamCurveDeltaUser action;
    action.beginParamCurveMod(curve);
    for (int i = 0; i < 4; ++i) curve.add(Tkeyframe(curve.makeTimeValue(float(i)), i * 2.0));
    curve.insert(curve.makeTimeValue(1.5f), false, false);
    curve.setTanOutType(2, kTangentLinear);
    curve.dragTangent(1, 0.5f, 0.5f, false);
    curve.setIsWeighted(!curve.isWeighted());
    curve.remove(1);
    curve.remove(0);
    action.endParamCurveMod(curve);
    action.undoPC();
    action.redoPC();
    EXPECT_GT(client.messages, 20u);
    EXPECT_EQ(client.editsTaken, 0u);
    EXPECT_EQ(curve.keyframeCount(), 3u);
    curve.removeAllKeys();  // messages again, and the client still cannot meddle
    EXPECT_EQ(curve.keyframeCount(), 0u);
  }
}

}  // namespace
}  // namespace lumora
