#include "lumora/keys/keyframe_handle.h"

#include <new>

#include "lumora/base/server_msg.h"
#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/notify/internal/msg_records.h"
#include "lumora/notify/param_curve_msgs.h"

namespace lumora {

namespace {

// The scratch value behind timeValueRef(); one for the whole process.
TtimeValue gScratchTime;

// The key of `curve` at `time`, or null when there is none.
Tkeyframe* keyAtTime(const TparamCurve& curve, const TtimeValue& time) {
  if (curve.keyframeCount() == 0) return nullptr;
  unsigned index = 0;
  if (!curve.find(time, index)) return nullptr;
  return curve.keyframe(index);
}

}  // namespace

// --- TkeyframeHandleData ---------------------------------------------------------

TkeyframeHandleData::TkeyframeHandleData(TparamCurve* curve, Tkeyframe* key, bool valid)
    : fFlags(valid ? kValid : 0u), fCurve(curve) {
  watch(key);
}

TkeyframeHandleData::~TkeyframeHandleData() {
  if (isRegistered() && fCurve != nullptr) fCurve->removeClient(this);
}

void TkeyframeHandleData::registerWithCurve() {
  if (isRegistered() || fCurve == nullptr) return;
  const TclientServer::TclientRegistration registrations[] = {
      {TkeyframeAddDeleteMsgTmeta, &TkeyframeHandleData::keyAddedOrDeleted},
      {TserverDeletedMsgTmeta, &TkeyframeHandleData::curveDeleted},
  };
  // Refused only while the module is stopped (no records to register for).
  if (fCurve->addClient(this, registrations, 2) != 0) return;
  setFlag(kRegistered, true);
}

void TkeyframeHandleData::keyAddedOrDeleted(Tclient* client, TclientServer* /*server*/,
                                            const TserverMsg& msg) {
  // Registered only for this record itself, so the client is one.
  auto* data = static_cast<TkeyframeHandleData*>(client);
  // cast() only inspects the message.
  const auto* notice = static_cast<const TkeyframeAddDeleteMsg*>(
      const_cast<TserverMsg&>(msg).cast(TkeyframeAddDeleteMsgTmeta));
  if (notice == nullptr || data->keyframe() == nullptr) return;
  if (notice->keyframe() != data->keyframe()) return;
  data->setFlag(kValid, notice->added());
}

void TkeyframeHandleData::keyDeleted(Tkeyframe* /*key*/) {
  // The key is gone for good, so the record names nothing from now on; it
  // leaves the curve too, as nothing there concerns it any more (and an
  // unregistered record could not otherwise tell when the curve goes).
  if (isRegistered() && fCurve != nullptr) fCurve->removeClient(this);
  setFlag(kRegistered, false);
  setFlag(kValid, false);
  fCurve = nullptr;
}

void TkeyframeHandleData::curveDeleted(Tclient* client, TclientServer* /*server*/,
                                       const TserverMsg& /*msg*/) {
  // The record observes its own curve only, so this is that curve going
  // away. The server detaches the record itself after the send.
  auto* data = static_cast<TkeyframeHandleData*>(client);
  data->fCurve = nullptr;
  data->setFlag(kRegistered, false);
  data->setFlag(kValid, false);
}

// --- TkeyframeHandle: construction -------------------------------------------------

TkeyframeHandle::TkeyframeHandle(const TkeyframeHandle& other, bool registerNow)
    : fData(other.fData) {
  if (fData != nullptr) ++fData->fRefCount;
  if (registerNow) makeClient();
}

TkeyframeHandle::TkeyframeHandle(TparamCurve* curve, float seconds, bool registerNow) {
  Tkeyframe* key = curve != nullptr ? keyAtTime(*curve, curve->makeTimeValue(seconds)) : nullptr;
  adopt(curve, key, registerNow);
}

TkeyframeHandle::TkeyframeHandle(TparamCurve* curve, TanimTime time, bool registerNow) {
  Tkeyframe* key = nullptr;
  if (curve != nullptr) {
    // Looked up in the curve's own kind of time, so that a tick curve
    // compares exact ticks.
    const TtimeValue t = curve->isFloat() ? TtimeValue(time.inSeconds()) : TtimeValue(time);
    key = keyAtTime(*curve, t);
  }
  adopt(curve, key, registerNow);
}

TkeyframeHandle::TkeyframeHandle(TparamCurve* curve, unsigned index, bool registerNow) {
  adopt(curve, curve != nullptr ? curve->keyframe(index) : nullptr, registerNow);
}

TkeyframeHandle::TkeyframeHandle(TparamCurve* curve, Tkeyframe* key, bool registerNow) {
  adopt(curve, curve != nullptr ? key : nullptr, registerNow);
}

TkeyframeHandle& TkeyframeHandle::operator=(const TkeyframeHandle& other) {
  if (fData == other.fData) return *this;
  TkeyframeHandleData* incoming = other.fData;
  if (incoming != nullptr) ++incoming->fRefCount;
  removeData();
  fData = incoming;
  return *this;
}

TkeyframeHandle::~TkeyframeHandle() {
  removeData();
}

void TkeyframeHandle::makeClient() {
  if (fData == nullptr || fData->isRegistered() || fData->fCurve == nullptr) return;
  if (fData->fRefCount > 1 && fData->fCurve->hasClientMessage(fData, nullptr)) return;
  fData->registerWithCurve();
}

void TkeyframeHandle::adopt(TparamCurve* curve, Tkeyframe* key, bool registerNow) {
  // Without memory the handle stays empty and answers neutrally.
  fData = new (std::nothrow) TkeyframeHandleData(curve, key, /*valid=*/key != nullptr);
  if (registerNow) makeClient();
}

void TkeyframeHandle::ensureUniqueData() {
  if (fData == nullptr) {
    fData = new (std::nothrow) TkeyframeHandleData(nullptr, nullptr, /*valid=*/false);
    return;
  }
  if (fData->fRefCount <= 1) return;
  auto* own =
      new (std::nothrow) TkeyframeHandleData(fData->fCurve, fData->keyframe(), fData->isValid());
  if (own == nullptr) return;  // keeps sharing rather than losing the key
  --fData->fRefCount;
  fData = own;
}

void TkeyframeHandle::removeData() {
  if (fData == nullptr) return;
  if (--fData->fRefCount == 0) delete fData;
  fData = nullptr;
}

// --- TkeyframeHandle: queries --------------------------------------------------------

Tkeyframe* TkeyframeHandle::liveKey() const {
  if (fData == nullptr || fData->fCurve == nullptr) return nullptr;
  return fData->keyframe();
}

Tkeyframe* TkeyframeHandle::keyframe() const {
  return liveKey();
}

TparamCurve* TkeyframeHandle::paramCurve() const {
  return fData != nullptr ? fData->fCurve : nullptr;
}

bool TkeyframeHandle::isValid() const {
  return fData != nullptr && fData->isValid();
}

double TkeyframeHandle::value() const {
  const Tkeyframe* key = liveKey();
  return key != nullptr ? key->value() : 0.0;
}

float TkeyframeHandle::seconds() const {
  const Tkeyframe* key = liveKey();
  if (key == nullptr) return 0.0f;
  if (fData->fCurve->isAnimTime()) {
    return static_cast<float>(key->timeAsTicks()) * TanimTime::kSecondsPerTick;
  }
  if (fData->fCurve->isFloat()) return key->timeAsFloat();
  return 0.0f;
}

TtimeValue TkeyframeHandle::timeValue() const {
  const Tkeyframe* key = liveKey();
  if (key == nullptr) return TtimeValue();
  if (fData->fCurve->isAnimTime()) return TtimeValue(key->timeAsAnimTime());
  if (fData->fCurve->isFloat()) return TtimeValue(key->timeAsFloat());
  return TtimeValue();
}

const TtimeValue& TkeyframeHandle::timeValueRef() const {
  gScratchTime = timeValue();
  return gScratchTime;
}

unsigned TkeyframeHandle::index() const {
  if (liveKey() == nullptr) return kInvalidIndex;
  unsigned found = 0;
  // A key kept by an undo record is not in the curve, though another key may
  // sit at its time.
  if (!fData->fCurve->find(timeValue(), found)) return kInvalidIndex;
  if (fData->fCurve->keyframe(found) != fData->keyframe()) return kInvalidIndex;
  return found;
}

bool TkeyframeHandle::getTanIn(float& x, float& y) const {
  const Tkeyframe* key = liveKey();
  if (key == nullptr) return false;
  key->getTanIn(x, y);
  return true;
}

bool TkeyframeHandle::getTanOut(float& x, float& y) const {
  const Tkeyframe* key = liveKey();
  if (key == nullptr) return false;
  key->getTanOut(x, y);
  return true;
}

bool TkeyframeHandle::operator==(const TkeyframeHandle& other) const {
  if (fData == other.fData) return true;
  if (fData == nullptr || other.fData == nullptr) return false;
  return fData->keyframe() == other.fData->keyframe() && fData->fCurve == other.fData->fCurve &&
         fData->isValid() == other.fData->isValid();
}

}  // namespace lumora
