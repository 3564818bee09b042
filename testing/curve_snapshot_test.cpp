// A snapshot must see every bit undo could get wrong, and say which one.
#include "testing/curve_snapshot.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"

namespace lumora {
namespace {

// Three spline keys at 0, 1 and 2 s.
void fill(TparamCurve& c) {
  for (int i = 0; i < 3; ++i) {
    c.add(
        Tkeyframe(c.makeTimeValue(static_cast<float>(i)), i * 2.0, kTangentSpline, kTangentSpline));
  }
}

TEST(CurveSnapshot, DetectsOneBitOfATangent) {
  TparamCurve c(/*isFloat=*/true);
  fill(c);
  const TcurveSnapshot before(c);
  EXPECT_EQ(before, TcurveSnapshot(c));
  float x = 0.0f, y = 0.0f;
  c.keyframe(1)->getTanOut(x, y);
  const float nudged = std::bit_cast<float>(std::bit_cast<std::uint32_t>(x) ^ 1u);
  c.keyframe(1)->setTanOut(nudged, y);
  const std::string d = describeDifference(before, TcurveSnapshot(c));
  EXPECT_NE(d.find("key 1: out tangent x"), std::string::npos) << d;
  EXPECT_NE(before, TcurveSnapshot(c));
}

TEST(CurveSnapshot, TellsSignedZerosApartAndNaNsAlike) {
  TparamCurve c(/*isFloat=*/false);
  fill(c);
  c.keyframe(0)->setQuaternionW(0.0f);
  const TcurveSnapshot positive(c);
  c.keyframe(0)->setQuaternionW(-0.0f);
  EXPECT_NE(describeDifference(positive, TcurveSnapshot(c)).find("key 0: quaternion w"),
            std::string::npos);
  // A NaN word equals itself bit for bit, where a float comparison would not.
  c.keyframe(2)->setQuaternionW(std::numeric_limits<float>::quiet_NaN());
  const TcurveSnapshot withNaN(c);
  EXPECT_EQ(describeDifference(withNaN, TcurveSnapshot(c)), "");
}

TEST(CurveSnapshot, NamesKeyObjectsAndCurveState) {
  TparamCurve c(/*isFloat=*/true);
  fill(c);
  const TcurveSnapshot original(c);
  // Equal content in other key objects is another state: handles name objects.
  const TparamCurve copy(c);
  EXPECT_NE(describeDifference(original, TcurveSnapshot(copy)).find("key 0: key object"),
            std::string::npos);
  c.setPostInfinityType(TparamCurve::kCycle);
  EXPECT_EQ(describeDifference(original, TcurveSnapshot(c)), "post infinity 0 became 3");
  c.setPostInfinityType(TparamCurve::kConstant);
  c.remove(2);
  EXPECT_EQ(describeDifference(original, TcurveSnapshot(c)), "keyframeCount 3 became 2");
  // Selection can be left out of the comparison, and only selection.
  TparamCurve d(/*isFloat=*/true);
  fill(d);
  const TcurveSnapshot unselected(d, ~TcurveSnapshot::kSelectionFlags);
  d.keyframe(1)->setActive(TbitField32(TpickKey::kPickKey), true);
  EXPECT_EQ(describeDifference(unselected, TcurveSnapshot(d, ~TcurveSnapshot::kSelectionFlags)),
            "");
  EXPECT_NE(describeDifference(TcurveSnapshot(d), unselected).find("key 1: flags"),
            std::string::npos);
}

}  // namespace
}  // namespace lumora
