// TkeyStatesDelta: an undo record that holds nothing but the states of the
// keys its edit changed.
//
// Some edits change a key in ways no record kind of its own describes (its
// lock flags, say). Bracketed by a TkeyStatesRecorder, such an edit records
// one of these; its undo puts the states from before back, its redo those
// from after, bit for bit. Not installed.
#pragma once

#include "lumora/notify/param_curve_delta.h"

namespace lumora::internal {

class TkeyStatesDelta final : public TparamCurveDelta {
 public:
  explicit TkeyStatesDelta(TparamCurve* curve) : TparamCurveDelta(curve) {}

  void undo() override {
    replay(/*after=*/false, [] {});
    setUndone(true);
  }
  void redo() override {
    replay(/*after=*/true, [] {});
    setUndone(false);
  }
};

}  // namespace lumora::internal
