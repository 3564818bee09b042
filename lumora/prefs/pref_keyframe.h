// TprefKeyframe: application-wide defaults for new keys and curves.
//
// The item lives in the global preference manager as item number 201. Keys
// whose tangent type is 0 take the default types from it, and new curves take
// their weighted-tangent setting from it.
//
//   TpreferenceItem* item = nullptr;
//   if (TglobalPrefMgr::global().getPrefItem(TprefKeyframe::kItemNumber, item)) {
//     Tstring line;
//     item->writeAsCommand(line);
//     // "keyTangent -global -inTangentType spline -outTangentType spline
//     //  -weightedTangents false;"
//   }
//
// The item saves itself as one "keyTangent" command. Types 4 and 8 are
// internal and have no keyword: for them the type word and the blank after it
// are left out, so the command then reads "-inTangentType -outTangentType".
// Reading the command back is the host's business.
#pragma once

#include "lumora/base/bit_field.h"
#include "lumora/base/export.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/preference.h"
#include "lumora/keys/tangent_type.h"

namespace lumora {

class Tstring;

/// Type record of TprefKeyframe, created at module start.
extern LUMORA_API Tmetaclass* TprefKeyframeTmeta;

class LUMORA_API TprefKeyframe : public TpreferenceItem {
 public:
  /// Item number under which the preference manager keeps this item.
  static constexpr int kItemNumber = 201;

  TprefKeyframe();
  ~TprefKeyframe() override;

  /// Appends the "keyTangent" command to `out` without clearing it first.
  void writeAsCommand(Tstring& out) const override;
  Tmetaclass* typeof() const override;
  void* cast(Tmetaclass* record) override;
  /// Null for a null record and for a record that is not this class or derived.
  static TprefKeyframe* construct(Tmetaclass* record);

  // --- Settings ------------------------------------------------------------------

  bool weightedTangents() const { return fWeightedFlags.testBit(0); }
  void setWeightedTangents(bool on) { fWeightedFlags.setBit(0, on); }
  TtangentType inTangentType() const { return fInTangentType; }
  void setInTangentType(TtangentType type) { fInTangentType = type; }
  TtangentType outTangentType() const { return fOutTangentType; }
  void setOutTangentType(TtangentType type) { fOutTangentType = type; }

 private:
  TbitField16 fWeightedFlags;
  TtangentType fInTangentType = kTangentSpline;
  TtangentType fOutTangentType = kTangentSpline;
};

}  // namespace lumora
