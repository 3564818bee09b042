// Checks of what every curve must satisfy after any sequence of edits.
//
// Each check returns "" when the curve is sound and otherwise a description
// of the first violation, ready for a test failure message:
//
//   EXPECT_EQ(checkCurveInvariants(curve), "");
//   EXPECT_EQ(checkEvaluationIndependentOfCache(curve, 2.5f, 0.1f), "");
//
// The checks read the curve through its public interface only, so they hold
// for any build of the library and catch a broken curve however it was made.
#pragma once

#include <string>

namespace lumora {

class TcurveSampler;
class TevalCursor;
class TparamCurve;

/// The storage invariants: keyframeCount() keys, none null and none beyond;
/// times strictly increasing (ticks exactly; float seconds finite and apart
/// by more than the keys' 1e-5 s tolerance); values finite; tangent components
/// finite with x never negative.
std::string checkCurveInvariants(const TparamCurve& curve);

/// Evaluation must not depend on what was evaluated before, except at the
/// keys themselves, where float rounding may pick either side. So when
/// `seconds` lies more than 1e-4 s from every key (NaN and infinities
/// included), the curve, sampled first at `warmUpSeconds` so that its cache
/// holds some other span, must give the same bits as a fresh copy for both
/// evaluate(float) and evaluate(TtimeValue). Samples near a key are skipped
/// ("" is returned). Evaluation writes the curve's cache, hence the
/// non-const reference; the keys are not changed.
std::string checkEvaluationIndependentOfCache(TparamCurve& curve, float seconds,
                                              float warmUpSeconds);

/// A caller's cursor must never answer from state of another curve or of
/// this one before an edit: `kept`, whatever it served before, must give the
/// bits of a fresh copy at `seconds` (times near a key excepted, as above).
/// A fresh cursor must give the bits of a fresh copy everywhere, both forms.
std::string checkCursorAgreesWithFreshCopy(const TparamCurve& curve, TevalCursor& kept,
                                           float seconds);

/// A sampler built from `curve` as it is now must answer what the curve
/// answers from an empty cache, bit for bit, at `seconds` in both time forms
/// and through the array call.
std::string checkSamplerAgreesWithCurve(const TparamCurve& curve, const TcurveSampler& sampler,
                                        float seconds);

}  // namespace lumora
