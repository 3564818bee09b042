// Undo records of settings: the infinity types, the weighted flag, the
// rotation interpolation mode, and the breakdown mark of one key.
//
//   curve.beginMod();
//   curve.setPostInfinityType(TparamCurve::kCycle);   // records a TPCDinfinityType
//   std::unique_ptr<Tdelta> undo(curve.endMod());
//   undo->undo();                                     // constant again
//
// Undo and redo go through the curve's public setters, as if the host had
// called them again.
#pragma once

#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/curve/param_curve.h"
#include "lumora/notify/param_curve_delta.h"

namespace lumora {

// Records of these classes; null while the module is stopped.
extern LUMORA_API Tmetaclass* TPCDinfinityTypeTmeta;
extern LUMORA_API Tmetaclass* TPCDweightedTangentsTmeta;
extern LUMORA_API Tmetaclass* TPCDrotationInterpolationTmeta;
extern LUMORA_API Tmetaclass* TPCDbreakdownTmeta;

/// A pre- or post-infinity type change.
class LUMORA_API TPCDinfinityType : public TparamCurveDelta {
 public:
  TPCDinfinityType(TparamCurve* curve, bool isPre, TparamCurve::TinfinityType oldType,
                   TparamCurve::TinfinityType newType);

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  bool isPre() const { return fIsPre; }
  TparamCurve::TinfinityType oldType() const { return fOldType; }
  TparamCurve::TinfinityType newType() const { return fNewType; }

 private:
  void apply(TparamCurve::TinfinityType type);

  bool fIsPre = true;
  TparamCurve::TinfinityType fOldType;
  TparamCurve::TinfinityType fNewType;
};

/// The weighted flag changed; `weighted` is the state before the change.
/// Undo and redo are the same toggle.
class LUMORA_API TPCDweightedTangents : public TparamCurveDelta {
 public:
  TPCDweightedTangents(TparamCurve* curve, bool weighted);

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  bool weighted() const { return fWeighted; }

 private:
  void toggle();

  bool fWeighted;
};

/// The rotation interpolation mode changed.
class LUMORA_API TPCDrotationInterpolation : public TparamCurveDelta {
 public:
  TPCDrotationInterpolation(TparamCurve* curve, TparamCurve::TrotationInterpolation oldMode,
                            TparamCurve::TrotationInterpolation newMode);

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  TparamCurve::TrotationInterpolation oldMode() const { return fOldMode; }
  TparamCurve::TrotationInterpolation newMode() const { return fNewMode; }

 private:
  TparamCurve::TrotationInterpolation fOldMode;
  TparamCurve::TrotationInterpolation fNewMode;
};

/// The breakdown mark of key `index` changed; `breakdown` is the mark to put
/// back. Undo and redo are the same swap: each sets the stored mark and keeps
/// the one it replaced. An index out of range makes them do nothing.
class LUMORA_API TPCDbreakdown : public TparamCurveDelta {
 public:
  TPCDbreakdown(TparamCurve* curve, unsigned index, bool breakdown);

  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  void undo() override;
  void redo() override;

  bool breakdown() const { return fBreakdown; }
  unsigned index() const { return fIndex; }

 private:
  void swap();

  bool fBreakdown;
  unsigned fIndex;
};

}  // namespace lumora
