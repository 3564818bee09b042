// Test-only access to TparamCurve internals. Not installed.
#pragma once

#include "lumora/curve/param_curve.h"

namespace lumora {

class TparamCurveTestAccess {
 public:
  static bool beginChange(TparamCurve& c) { return c.beginChange(); }
  static void endChange(TparamCurve& c, bool changed) { c.endChange(changed); }
  static int arrayInsert(TparamCurve& c, Tkeyframe* key) { return c.arrayInsert(key, 0); }
  static void setDeferredDeletion(TparamCurve& c, bool on) { c.setDeferredDeletion(on); }
  static void sendAddDeleteMessage(TparamCurve& c, Tkeyframe* key, bool added) {
    c.sendAddDeleteMessage(key, added);
  }
  static void notifyClientsOfChange(TparamCurve& c, Tkeyframe* key,
                                    TparamCurveModifiedMsg::TmessageType type) {
    c.notifyClientsOfChange(key, type);
  }
  static void notifyClientsOfChangeAt(TparamCurve& c, unsigned index,
                                      TparamCurveModifiedMsg::TmessageType type) {
    c.notifyClientsOfChange(index, type);
  }
  static bool connectionsDirty(const TparamCurve& c) { return c.fConnectionsDirty; }
  static bool changedInChange(const TparamCurve& c) { return c.fChangedInChange; }
  static Tkeyframe* cachedKey(const TparamCurve& c) {
    return const_cast<Tkeyframe*>(c.fCursor.fCachedKey);
  }
  static unsigned cachedIndex(const TparamCurve& c) { return c.fCursor.fCachedIndex; }
  static int cachedInterval(const TparamCurve& c) { return c.fCursor.fCachedInterval; }
  static unsigned changeDepth(const TparamCurve& c) { return c.fChangeDepth; }
  static TsegmentEvaluator* evaluator(const TparamCurve& c) { return c.fSegmentEvaluator; }
  static void setInterpolationInterval(TparamCurve& c, unsigned i) {
    c.setInterpolationInterval(i);
  }
  static void setSpanInterpMethod(TparamCurve& c, unsigned i) { c.setSpanInterpMethod(i); }
  static void setTanIn(TparamCurve& c, unsigned i, float x, float y) { c.setTanIn(i, x, y); }
  static void setTanOut(TparamCurve& c, unsigned i, float x, float y) { c.setTanOut(i, x, y); }
  static bool addDelta(TparamCurve& c, Tdelta* delta, bool atEnd) {
    return c.addDelta(delta, atEnd);
  }
  static bool insertKey(TparamCurve& c, const Tkeyframe& key, bool keepShape) {
    return c.insertKey(key, keepShape);
  }
  static Tkeyframe* newMatchingKeyframe(TparamCurve& c, const TtimeValue& t) {
    return c.newMatchingKeyframe(t);
  }
  static bool addRemovedKey(TparamCurve& c, Tkeyframe* key) { return c.addRemovedKey(key); }
  static bool replaceKey(TparamCurve& c, Tkeyframe* key, const Tkeyframe& state) {
    return c.replaceKey(key, state);
  }
  static bool modifyTangents(TparamCurve& c, unsigned i) { return c.modifyTangents(i); }
  static void checkStaticTanCondition(TparamCurve& c, unsigned i) { c.checkStaticTanCondition(i); }
  static void scaleTangentX(TparamCurve& c, Tkeyframe* key, float f) { c.scaleTangentX(key, f); }
  static void forgetSampleShortcuts(TparamCurve& c) { c.fCursor.forgetShortcuts(); }
  static bool cycledSpanRemembered(const TparamCurve& c) { return c.fCursor.fCycledSpanHi != 0.0; }
  static void setInfinityRaw(TparamCurve& c, int type, bool pre) {
    (pre ? c.fPreInfinity : c.fPostInfinity) = static_cast<TparamCurve::TinfinityType>(type);
  }
  static void editTangent(const TparamCurve& c, unsigned index, bool relative, const Tangle& angle,
                          float weight, bool inSide, float& x, float& y, float a, float b) {
    c.editTangent(index, relative, angle, weight, inSide, x, y, a, b);
  }
  static void setTangentWeight(const TparamCurve& c, unsigned index, float weight, bool inSide,
                               float& x, float& y, float a, float b) {
    c.setTangentWeight(index, weight, inSide, x, y, a, b);
  }
  static void adjustForWeightLock(const TparamCurve& c, float a, float b, float refX, float refY,
                                  float& x, float& y) {
    c.adjustForWeightLock(a, b, refX, refY, x, y);
  }
  static void adjustForAngleLock(const TparamCurve& c, float a, float b, float refX, float refY,
                                 float& x, float& y) {
    c.adjustForAngleLock(a, b, refX, refY, x, y);
  }
  static bool preserveTangentLock(const TparamCurve& c, float s, float oldX, float oldY, float& x,
                                  float& y, float otherX, float otherY, float& outX, float& outY) {
    return c.preserveTangentLock(s, oldX, oldY, x, y, otherX, otherY, outX, outY);
  }
  static bool manageTangentChangeWhenLocked(TparamCurve& c, float s, unsigned index, float oldX,
                                            float oldY, bool inSide) {
    return c.manageTangentChangeWhenLocked(s, index, oldX, oldY, inSide);
  }
};

}  // namespace lumora
