#include "lumora/keys/keyframe_handle.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"
#include "lumora/keys/keyframe.h"
#include "lumora/notify/message_recorder_test_support.h"
#include "lumora/notify/param_curve_delta.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {

// Reaches the copy-on-write machinery, which the library uses internally.
class TkeyframeHandleTestAccess {
 public:
  static void ensureUniqueData(TkeyframeHandle& h) { h.ensureUniqueData(); }
  static const TkeyframeHandleData* data(const TkeyframeHandle& h) { return h.fData; }
};

namespace {

using Access = TparamCurveTestAccess;
using HandleAccess = TkeyframeHandleTestAccess;

// A float curve with keys at 0, 1 and 2 s (values 0, 10, 20).
class KeyframeHandle : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 3; ++i) {
      keys[i] = new Tkeyframe(static_cast<float>(i), 10.0 * i);
      ASSERT_GE(Access::arrayInsert(curve, keys[i]), 0);
    }
  }
  // What TparamCurve::remove and the undo of a removal tell the curve's clients.
  void removeNotice(Tkeyframe* key) { Access::sendAddDeleteMessage(curve, key, false); }
  void reAddNotice(Tkeyframe* key) { Access::sendAddDeleteMessage(curve, key, true); }

  TparamCurve curve{/*isFloat=*/true};
  Tkeyframe* keys[3] = {};
};

TEST_F(KeyframeHandle, ConstructorsFindTheKey) {
  const TkeyframeHandle byTime(&curve, 1.0f);
  const TkeyframeHandle byIndex(&curve, 2u);
  const TkeyframeHandle byKey(&curve, keys[0]);
  EXPECT_EQ(std::tuple(byTime.keyframe(), byIndex.keyframe(), byKey.keyframe()),
            std::tuple(keys[1], keys[2], keys[0]));
  for (const TkeyframeHandle* h : {&byTime, &byIndex, &byKey}) {
    EXPECT_TRUE(h->isValid() && h->paramCurve() == &curve);
  }
  EXPECT_EQ(std::tuple(byTime.value(), byTime.index(), byTime.seconds(), byTime.timeValue(),
                       byTime.timeValueRef()),
            std::tuple(10.0, 1u, 1.0f, TtimeValue(1.0f), TtimeValue(1.0f)));
  // Within the float time tolerance.
  EXPECT_EQ(TkeyframeHandle(&curve, 2.000004f).keyframe(), keys[2]);

  // On a tick curve 6000 ticks are one second, and tick times match exactly.
  TparamCurve ticks(/*isFloat=*/false);
  auto* key = new Tkeyframe(TanimTime(6000), 3.0);
  ASSERT_GE(Access::arrayInsert(ticks, key), 0);
  const TkeyframeHandle h(&ticks, TanimTime(6000));
  EXPECT_EQ(std::tuple(h.keyframe(), h.seconds(), h.timeValue().asAnimTime().inTicks(),
                       h.timeValue().isAnimTime()),
            std::tuple(key, 1.0f, 6000, true));
  EXPECT_EQ(std::tuple(TkeyframeHandle(&ticks, 1.0f).keyframe(),
                       TkeyframeHandle(&ticks, TanimTime(6001)).keyframe()),
            std::tuple(key, nullptr));
}

TEST_F(KeyframeHandle, MissingKeysGiveInvalidHandlesWithNeutralAnswers) {
  const TkeyframeHandle byTime(&curve, 1.5f);
  const TkeyframeHandle byIndex(&curve, 3u);
  const TkeyframeHandle nullCurve(nullptr, keys[0]);
  const TkeyframeHandle empty;
  for (const TkeyframeHandle* h : {&byTime, &byIndex, &nullCurve, &empty}) {
    float x = 7.0f, y = 8.0f;
    EXPECT_FALSE(h->isValid() || h->getTanIn(x, y) || h->getTanOut(x, y));
    EXPECT_EQ(
        std::tuple(h->keyframe(), h->index(), h->value(), h->seconds(), h->timeValue().isNeither(),
                   h->timeValueRef().isNeither(), x, y),
        std::tuple(nullptr, TkeyframeHandle::kInvalidIndex, 0.0, 0.0f, true, true, 7.0f, 8.0f));
  }
  EXPECT_EQ(std::tuple(byTime.paramCurve(), empty.paramCurve()), std::tuple(&curve, nullptr));
  TparamCurve noKeys(true);
  EXPECT_FALSE(TkeyframeHandle(&noKeys, 0.0f).isValid());
}

TEST_F(KeyframeHandle, OnlyRegisteredHandlesFollowRemovalAndUndo) {
  TkeyframeHandle h(&curve, keys[1]);
  removeNotice(keys[1]);
  EXPECT_TRUE(h.isValid());  // not registered: does not hear
  h.makeClient();
  reAddNotice(keys[1]);
  removeNotice(keys[0]);  // another key: no effect
  EXPECT_TRUE(h.isValid());
  removeNotice(keys[1]);
  EXPECT_FALSE(h.isValid());
  EXPECT_EQ(h.keyframe(), keys[1]);  // the key object lives on in the undo record
  reAddNotice(keys[1]);
  EXPECT_EQ(std::tuple(h.isValid(), h.index()), std::tuple(true, 1u));
  // The index is found anew from the key after a key goes in front of it.
  ASSERT_GE(Access::arrayInsert(curve, new Tkeyframe(-1.0f, 5.0)), 0);
  keys[1]->setValue(99.0);
  EXPECT_EQ(std::tuple(h.index(), h.keyframe(), h.value()), std::tuple(2u, keys[1], 99.0));
}

TEST_F(KeyframeHandle, CopiesShareOneRecordAndOneRegistration) {
  TkeyframeHandle h(&curve, keys[0]);
  {
    const TkeyframeHandle copy(h, /*makeClient=*/true);
    EXPECT_EQ(std::tuple(HandleAccess::data(copy), HandleAccess::data(h)->refCount(),
                         curve.clientCount()),
              std::tuple(HandleAccess::data(h), 2u, 1u));
    TkeyframeHandle assigned;
    assigned = copy;
    const TkeyframeHandle& alias = assigned;
    assigned = alias;  // self-assignment keeps the share
    EXPECT_EQ(HandleAccess::data(h)->refCount(), 3u);
    removeNotice(keys[0]);
    EXPECT_FALSE(h.isValid());  // the original hears through the shared record
  }
  EXPECT_EQ(std::tuple(HandleAccess::data(h)->refCount(), curve.clientCount()), std::tuple(1u, 1u));
  h = TkeyframeHandle();
  // The last handle took the registered record with it.
  EXPECT_EQ(curve.clientCount(), 0u);
}

TEST_F(KeyframeHandle, EqualityComparesKeyCurveAndValidity) {
  const TkeyframeHandle a(&curve, keys[1]);
  TkeyframeHandle b(&curve, 1.0f, /*makeClient=*/true);
  const TkeyframeHandle copy(a), none;
  TparamCurve other(true);
  EXPECT_EQ(std::vector<bool>({a == b, a == copy, a == TkeyframeHandle(&curve, keys[2]), a == none,
                               none == a, none == TkeyframeHandle(),
                               a == TkeyframeHandle(&other, keys[1])}),
            (std::vector<bool>{true, true, false, false, false, true, false}));
  removeNotice(keys[1]);  // b hears, a does not
  EXPECT_TRUE(a != b);
}

TEST_F(KeyframeHandle, UniqueDataStopsHearingUntilRegisteredAgain) {
  const TkeyframeHandle registered(&curve, keys[2], /*makeClient=*/true);
  TkeyframeHandle h(registered);
  HandleAccess::ensureUniqueData(h);
  const TkeyframeHandleData* own = HandleAccess::data(h);
  ASSERT_NE(own, HandleAccess::data(registered));
  EXPECT_EQ(
      std::tuple(own->refCount(), HandleAccess::data(registered)->refCount(), own->isRegistered()),
      std::tuple(1u, 1u, false));
  EXPECT_TRUE(h == registered);  // same key, curve and validity
  removeNotice(keys[2]);
  EXPECT_EQ(std::tuple(registered.isValid(), h.isValid()), std::tuple(false, true));
  h.makeClient();
  reAddNotice(keys[2]);
  removeNotice(keys[2]);
  EXPECT_EQ(std::tuple(h.isValid(), curve.clientCount()), std::tuple(false, 2u));
  HandleAccess::ensureUniqueData(h);  // unique already: the same record
  EXPECT_EQ(HandleAccess::data(h), own);
}

TEST_F(KeyframeHandle, DestroyedCurveIsForgotten) {
  auto doomed = std::make_unique<TparamCurve>(/*isFloat=*/true);
  ASSERT_GE(Access::arrayInsert(*doomed, new Tkeyframe(1.0f, 4.0)), 0);
  TkeyframeHandle h(doomed.get(), 0u, /*makeClient=*/true);
  ASSERT_EQ(h.value(), 4.0);
  doomed.reset();
  h.makeClient();  // no curve left to register with
  EXPECT_EQ(std::tuple(h.paramCurve(), h.isValid(), HandleAccess::data(h)->isRegistered(),
                       h.keyframe(), h.value(), h.index()),
            std::tuple(nullptr, false, false, nullptr, 0.0, TkeyframeHandle::kInvalidIndex));
}

TEST_F(KeyframeHandle, ModifiedMessageHandleCanBeKept) {
  struct Tkeeper : Tclient {
    TkeyframeHandle kept;
  } keeper;
  curve.addClient(&keeper, TparamCurveModifiedMsgTmeta,
                  [](Tclient* c, TclientServer*, const TserverMsg& m) {
                    const auto& msg = static_cast<const TparamCurveModifiedMsg&>(m);
                    static_cast<Tkeeper*>(c)->kept =
                        TkeyframeHandle(*msg.keyframeHandle(), /*makeClient=*/true);
                  });
  Access::notifyClientsOfChange(curve, keys[0], TparamCurveModifiedMsg::kKeyChanged);
  EXPECT_EQ(keeper.kept.keyframe(), keys[0]);
  removeNotice(keys[0]);
  EXPECT_FALSE(keeper.kept.isValid());
}

}  // namespace
}  // namespace lumora

namespace lumora {
namespace {

// A client that, during every key-removed message, reads the curve and keeps
// a registered copy of the message's handle, as a view of the curve would.
struct TremovalWatcher : Tclient {
  std::vector<TkeyframeHandle> kept;
  std::vector<unsigned> countsSeen;
  std::vector<double> valuesSeen;

  void listenTo(TparamCurve& curve) {
    curve.addClient(this, TparamCurveModifiedMsgTmeta, &TremovalWatcher::heard);
  }
  static void heard(Tclient* c, TclientServer* server, const TserverMsg& m) {
    auto* self = static_cast<TremovalWatcher*>(c);
    const auto& msg = static_cast<const TparamCurveModifiedMsg&>(m);
    if (msg.messageType() != TparamCurveModifiedMsg::kKeyRemoved) return;
    auto* curve = static_cast<TparamCurve*>(server);
    const unsigned n = curve->keyframeCount();
    self->countsSeen.push_back(n);
    for (unsigned i = 0; i < n; ++i) self->valuesSeen.push_back(curve->keyframe(i)->value());
    self->valuesSeen.push_back(msg.keyframeHandle()->value());
    self->kept.emplace_back(*msg.keyframeHandle(), /*makeClient=*/true);
  }
};

TEST(KeyLifetime, HandleAnswersFromAKeyKeptByAnUndoRecordUntilItIsDeleted) {
  TparamCurve curve(/*isFloat=*/true);
  for (int i = 0; i < 3; ++i) curve.add(Tkeyframe(static_cast<float>(i), 10.0 * i));
  float inX = 0.0f, inY = 0.0f;
  curve.keyframe(1)->getTanIn(inX, inY);
  TkeyframeHandle registered(&curve, 1u, /*makeClient=*/true);
  const TkeyframeHandle unregistered(&curve, 1u);
  auto action = std::make_unique<TparamCurveDeltaUser>();
  action->beginParamCurveMod(curve);
  curve.remove(1);
  ASSERT_TRUE(action->endParamCurveMod(curve));

  float x = 0.0f, y = 0.0f;
  EXPECT_EQ(std::tuple(registered.isValid(), registered.index(), registered.value(),
                       registered.seconds(), registered.getTanIn(x, y), x, y),
            std::tuple(false, TkeyframeHandle::kInvalidIndex, 10.0, 1.0f, true, inX, inY));
  EXPECT_EQ(unregistered.value(), 10.0);  // the key lives on, so reading it is safe
  action->undoPC();
  EXPECT_EQ(std::tuple(registered.isValid(), registered.index()), std::tuple(true, 1u));
  action->redoPC();
  action.reset();  // the record deletes the key it held
  for (const TkeyframeHandle* h :
       {static_cast<const TkeyframeHandle*>(&registered), &unregistered}) {
    EXPECT_EQ(std::tuple(h->keyframe(), h->paramCurve(), h->isValid(), h->value(), h->index(),
                         h->getTanIn(x, y)),
              std::tuple(nullptr, nullptr, false, 0.0, TkeyframeHandle::kInvalidIndex, false));
  }
  EXPECT_EQ(curve.clientCount(), 0u);  // the registered record withdrew
}

TEST(KeyLifetime, CopyOfARemovalMessageHandleNeverReadsTheFreedKey) {
  TparamCurve curve(/*isFloat=*/true);
  for (int i = 0; i < 3; ++i) curve.add(Tkeyframe(static_cast<float>(i), 10.0 * i));
  TremovalWatcher watcher;
  watcher.listenTo(curve);
  curve.remove(1);  // not recorded: the key is deleted at once
  ASSERT_EQ(watcher.kept.size(), 1u);
  const TkeyframeHandle& h = watcher.kept[0];
  EXPECT_EQ(std::tuple(h.keyframe(), h.isValid(), h.value(), h.index()),
            std::tuple(nullptr, false, 0.0, TkeyframeHandle::kInvalidIndex));
}

TEST(KeyLifetime, CopyTakenDuringARecordedRemovalIsInvalidButReadable) {
  TparamCurve curve(/*isFloat=*/true);
  for (int i = 0; i < 3; ++i) curve.add(Tkeyframe(static_cast<float>(i), 10.0 * i));
  TremovalWatcher watcher;
  watcher.listenTo(curve);
  TparamCurveDeltaUser action;
  action.beginParamCurveMod(curve);
  curve.remove(2);
  action.endParamCurveMod(curve);
  const TkeyframeHandle& h = watcher.kept.at(0);
  EXPECT_EQ(std::tuple(h.isValid(), h.value()), std::tuple(false, 20.0));
  action.undoPC();  // the copy was registered during the send, so it hears the return
  EXPECT_EQ(std::tuple(h.isValid(), h.index()), std::tuple(true, 2u));
}

TEST(KeyLifetime, RemovingAllKeysTellsOfEachKeyWhileItLivesAndTheCurveIsEmpty) {
  auto curve = std::make_unique<TparamCurve>(/*isFloat=*/true);
  for (int i = 0; i < 3; ++i) curve->add(Tkeyframe(static_cast<float>(i), 10.0 * i + 1.0));
  TremovalWatcher watcher;
  watcher.listenTo(*curve);
  curve->removeAllKeys();
  EXPECT_EQ(watcher.countsSeen, (std::vector<unsigned>{0, 0, 0}));
  EXPECT_EQ(watcher.valuesSeen, (std::vector<double>{1.0, 11.0, 21.0}));
  for (const TkeyframeHandle& h : watcher.kept) EXPECT_EQ(h.keyframe(), nullptr);

  // The destructor goes the same way.
  curve->add(Tkeyframe(5.0f, 7.0));
  watcher.kept.clear();
  const TkeyframeHandle unregistered(curve.get(), 0u);
  curve.reset();
  ASSERT_EQ(watcher.kept.size(), 1u);
  EXPECT_EQ(std::tuple(watcher.kept[0].keyframe(), unregistered.keyframe(),
                       unregistered.paramCurve(), unregistered.value()),
            std::tuple(nullptr, nullptr, nullptr, 0.0));
}

}  // namespace
}  // namespace lumora
