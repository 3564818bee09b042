// Test-only helpers for selections. Not installed.
#pragma once

#include <memory>
#include <tuple>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "lumora/keys/keyframe_handle.h"
#include "lumora/select/pick_key.h"
#include "lumora/select/pick_key_dictionary.h"

namespace lumora::pick_test {

/// A float curve with keys at 0, 1, ... `keys` - 1 s (value 10 x time), or a
/// tick curve with keys 100 ticks apart.
inline std::unique_ptr<TparamCurve> makeCurve(unsigned keys, bool isFloat = true) {
  auto curve = std::make_unique<TparamCurve>(isFloat);
  for (unsigned i = 0; i < keys; ++i) {
    if (isFloat) {
      curve->add(Tkeyframe(static_cast<float>(i), 10.0 * i));
    } else {
      curve->add(Tkeyframe(TanimTime(static_cast<std::int32_t>(i) * 100), 10.0 * i));
    }
  }
  return curve;
}

inline TbitField32 bits(unsigned b) {
  return TbitField32(b);
}

/// A pick of key `index` with `flags`, or an empty pick when it cannot be made.
inline TpickKey pickOf(TparamCurve& curve, unsigned index, unsigned flags) {
  TpickKey pick;
  (void)pick.create(&curve, index, TbitField32(flags));
  return pick;
}

/// One node as seen from outside: its time, the key its pick names and the flags.
using Tentry = std::tuple<TtimeValue, const Tkeyframe*, unsigned>;

inline std::vector<Tentry> entries(const TpickKeyDictionary& d) {
  std::vector<Tentry> out;
  for (const TpickKeyDictionaryNode* n = d.first(); n; n = TpickKeyDictionary::next(n)) {
    const TkeyframeHandle* h = n->data().handle();
    out.emplace_back(n->key(), h ? h->keyframe() : nullptr, n->data().flags().bits());
  }
  return out;
}

}  // namespace lumora::pick_test
