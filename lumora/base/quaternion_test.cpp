#include "lumora/base/quaternion.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <tuple>
#include <vector>

namespace lumora {
namespace {

constexpr double kPi = std::numbers::pi;

Tangle deg(double d) {
  return Tangle(d, TangleUnit::kDegrees, /*wrap=*/false);
}

Tquaternion aboutAxis(double ax, double ay, double az, double degrees) {
  return Tquaternion::fromAxisAngle(ax, ay, az, deg(degrees));
}

// v rotated by q, within 1e-12 of (ex, ey, ez).
::testing::AssertionResult rotates(const Tquaternion& q, std::array<double, 3> v,
                                   std::array<double, 3> e) {
  q.rotate(v.data());
  for (int i = 0; i < 3; ++i) {
    if (!(std::fabs(v[i] - e[i]) <= 1e-12)) {
      return ::testing::AssertionFailure() << v[0] << " " << v[1] << " " << v[2];
    }
  }
  return ::testing::AssertionSuccess();
}

// Rotation angle between two unit quaternions, ignoring their signs.
double angleBetween(const Tquaternion& a, const Tquaternion& b) {
  return 2.0 * std::acos(std::fmin(1.0, std::fabs(a.normal().dot(b.normal()))));
}

TEST(Tquaternion, RotatesVectorsByKnownRotations) {
  EXPECT_TRUE(rotates(aboutAxis(0, 0, 1, 90), {1, 0, 0}, {0, 1, 0}));
  EXPECT_TRUE(
      rotates(aboutAxis(2, 0, 0, 90), {0, 1, 0}, {0, 0, 1}));  // axis length does not matter
  EXPECT_TRUE(rotates(aboutAxis(1, 1, 1, 120), {1, 0, 0}, {0, 1, 0}));
  // Non-unit quaternions rotate like their normal.
  EXPECT_TRUE(rotates(aboutAxis(0, 0, 1, 90) * 3.0, {1, 0, 0}, {0, 1, 0}));
}

TEST(Tquaternion, ProductAppliesRightOperandFirst) {
  const Tquaternion aboutX = aboutAxis(1, 0, 0, 90), aboutZ = aboutAxis(0, 0, 1, 90);
  // X first: Y goes to Z, which Z leaves alone. Z first: Y goes to -X, which X leaves alone.
  EXPECT_TRUE(rotates(aboutZ * aboutX, {0, 1, 0}, {0, 0, 1}));
  EXPECT_TRUE(rotates(aboutX * aboutZ, {0, 1, 0}, {-1, 0, 0}));
}

TEST(Tquaternion, AlgebraIdentities) {
  const Tquaternion q = Tquaternion(0.3, -0.5, 0.2, 0.8).normal();
  EXPECT_NEAR(q.length(), 1.0, 1e-15);
  EXPECT_TRUE((q * q.inverse()).equivalent(Tquaternion(), 1e-15));
  EXPECT_TRUE((Tquaternion(1, 2, 3, 4) * Tquaternion(1, 2, 3, 4).inverse())
                  .equivalent(Tquaternion(), 1e-15));
  EXPECT_TRUE(q.log().exp().equivalent(q, 1e-15));
  EXPECT_NEAR(q.log().w, 0.0, 1e-15);
  // log of a unit quaternion is half the rotation vector.
  const Tquaternion l = aboutAxis(0, 1, 0, 60).log();
  EXPECT_NEAR(l.y, kPi / 6, 1e-15);
  EXPECT_NEAR(l.x * l.x + l.z * l.z + l.w * l.w, 0.0, 1e-30);
  EXPECT_TRUE(Tquaternion(0, 0, 0, 2).log().exp().equivalent(Tquaternion(0, 0, 0, 2), 1e-15));
  // Hamilton's rule i j = k.
  EXPECT_EQ(Tquaternion(1, 0, 0, 0) * Tquaternion(0, 1, 0, 0), Tquaternion(0, 0, 1, 0));
}

TEST(Tquaternion, EquivalentAcceptsNegation) {
  const Tquaternion q = aboutAxis(1, 2, 3, 77);
  EXPECT_TRUE(q.equivalent(-q, 0.0));
  EXPECT_TRUE(q.equivalent(q + Tquaternion(1e-7, 0, 0, 0), 1e-6));
  EXPECT_FALSE(q.equivalent(q + Tquaternion(1e-5, 0, 0, 0), 1e-6));
  EXPECT_FALSE(q.equivalent(q.conjugate(), 1e-6));
  EXPECT_FALSE(q.equivalent(q, std::numeric_limits<double>::quiet_NaN()));
}

TEST(Tquaternion, DegenerateInputsGiveIdentity) {
  const Tquaternion zero(0, 0, 0, 0);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(zero.normal(), Tquaternion());
  EXPECT_EQ(zero.inverse(), Tquaternion());
  EXPECT_EQ(Tquaternion(nan, 0, 0, 1).normal(), Tquaternion());
  EXPECT_EQ(zero.log(), zero);
  EXPECT_EQ(Tquaternion::fromAxisAngle(0, 0, 0, deg(30)), Tquaternion());
  EXPECT_EQ(Tquaternion::fromAxisAngle(nan, 1, 0, deg(30)), Tquaternion());
  const TrotateXYZ e = zero.convertToEulerAngles();
  EXPECT_EQ(e.x.radians() + e.y.radians() + e.z.radians(), 0.0);
  zero.rotate(nullptr);
  EXPECT_TRUE(rotates(zero, {1, 2, 3}, {1, 2, 3}));
  EXPECT_EQ(slerp(aboutAxis(0, 0, 1, 40), Tquaternion(), nan), aboutAxis(0, 0, 1, 40));
}

TEST(TrotateXYZ, AppliesXThenYThenZ) {
  // X 90 takes Y to Z, then Y 90 takes Z to X, then Z 90 takes X to Y.
  EXPECT_TRUE(rotates(TrotateXYZ(deg(90), deg(90), deg(90)).asQuaternion(), {0, 1, 0}, {0, 1, 0}));
  EXPECT_TRUE(rotates(TrotateXYZ(deg(90), deg(90), deg(0)).asQuaternion(), {0, 1, 0}, {1, 0, 0}));
  EXPECT_TRUE(
      TrotateXYZ(deg(30), deg(0), deg(0)).asQuaternion().equivalent(aboutAxis(1, 0, 0, 30), 1e-15));
}

// The ranges make the angles unique away from gimbal lock, so a round trip
// that keeps the rotation also recovers the angles there.
TEST(TrotateXYZ, EulerRoundTripOverGrid) {
  std::vector<double> pitches;
  for (double p = -180; p <= 180; p += 15) pitches.push_back(p);
  for (double off : {1e-3, 1e-6, 1e-9, 1e-12}) {
    pitches.push_back(90 - off);
    pitches.push_back(-90 + off);
  }
  for (double rx = -180; rx <= 180; rx += 15) {
    for (double ry : pitches) {
      for (double rz = -180; rz <= 180; rz += 15) {
        const Tquaternion q = TrotateXYZ(deg(rx), deg(ry), deg(rz)).asQuaternion();
        const TrotateXYZ e = q.convertToEulerAngles();
        ASSERT_TRUE(e.asQuaternion().equivalent(q, 1e-9)) << rx << " " << ry << " " << rz;
        ASSERT_LE(std::fabs(e.y.radians()), kPi / 2);
        ASSERT_TRUE(e.x.radians() > -kPi && e.x.radians() <= kPi);
        ASSERT_TRUE(e.z.radians() > -kPi && e.z.radians() <= kPi);
      }
    }
  }
}

TEST(TrotateXYZ, GimbalLockPutsTheTurnInZ) {
  for (double pitch : {90.0, -90.0}) {
    const Tquaternion q = TrotateXYZ(deg(40), deg(pitch), deg(10)).asQuaternion();
    const TrotateXYZ e = q.convertToEulerAngles();
    EXPECT_EQ(e.x.radians(), 0.0);
    EXPECT_NEAR(e.y.degrees(), pitch, 1e-6);
    // At +90 only z - x matters, at -90 only z + x.
    EXPECT_NEAR(e.z.degrees(), pitch > 0 ? -30.0 : 50.0, 1e-6);
    EXPECT_TRUE(e.asQuaternion().equivalent(q, 1e-12));
  }
}

TEST(Slerp, EndpointsMidpointAndShortestPath) {
  const Tquaternion a, b = aboutAxis(0, 0, 1, 90);
  // Target, t, and the expected turn about z. -b is the same rotation as b and 300 degrees the
  // same as -60: the path must not take the long way round.
  const std::tuple<Tquaternion, double, double> cases[] = {
      {b, 0.0, 0.0},   {b, 1.0, 90.0},  {b, 0.5, 45.0},
      {b, 0.25, 22.5}, {-b, 0.5, 45.0}, {aboutAxis(0, 0, 1, 300), 0.5, -30.0}};
  for (const auto& [to, t, degrees] : cases) {
    EXPECT_TRUE(slerp(a, to, t).equivalent(aboutAxis(0, 0, 1, degrees), 1e-15))
        << t << " " << degrees;
  }
}

TEST(Slerp, ConstantSpeedAndTinyAngles) {
  const Tquaternion a = aboutAxis(1, -2, 0.5, 10);
  const Tquaternion b = aboutAxis(-1, 0, 3, 170);
  const double total = angleBetween(a, b);
  for (int i = 0; i <= 10; ++i) {
    const double t = i / 10.0;
    EXPECT_NEAR(slerp(a, b, t).length(), 1.0, 1e-14);
    EXPECT_NEAR(angleBetween(a, slerp(a, b, t)), t * total, 1e-7) << t;
  }
  const Tquaternion c = aboutAxis(0, 1, 0, 1e-9);
  EXPECT_TRUE(slerp(Tquaternion(), c, 0.5).equivalent(aboutAxis(0, 1, 0, 0.5e-9), 1e-17));
  EXPECT_TRUE(slerp(c, c, 0.3).equivalent(c, 1e-17));
}

// Keys of a rotation curve, deliberately with mixed signs.
std::vector<Tquaternion> curveKeys() {
  return {aboutAxis(1, 0, 0, 0),   -aboutAxis(1, 1, 0, 60), aboutAxis(0, 1, 1, 100),
          -aboutAxis(0, 0, 1, 30), aboutAxis(1, 2, 3, 200), aboutAxis(-1, 0, 1, 20)};
}

Tquaternion evalSegment(const std::vector<Tquaternion>& k, std::size_t i, double t) {
  const std::size_t n = k.size();
  const Tquaternion& prev = k[i == 0 ? 0 : i - 1];
  const Tquaternion& after = k[i + 2 < n ? i + 2 : n - 1];
  return squad(k[i], squadPt(prev, k[i], k[i + 1]), squadPt(k[i], k[i + 1], after), k[i + 1], t);
}

TEST(Squad, PassesThroughItsEndPoints) {
  const std::vector<Tquaternion> k = curveKeys();
  for (std::size_t i = 0; i + 1 < k.size(); ++i) {
    EXPECT_TRUE(evalSegment(k, i, 0.0).equivalent(k[i], 1e-14)) << i;
    EXPECT_TRUE(evalSegment(k, i, 1.0).equivalent(k[i + 1], 1e-14)) << i;
  }
  // With the end points as inner controls it is plain slerp.
  const Tquaternion a = k[1], d = k[2];
  EXPECT_TRUE(squad(a, a, d, d, 0.3).equivalent(slerp(a, d, 0.3), 1e-14));
}

// Angular velocity between two nearby rotations h apart in time.
Tquaternion velocity(const Tquaternion& from, Tquaternion to, double h) {
  if (from.dot(to) < 0) to = -to;
  return (from.inverse() * to).log() * (2.0 / h);
}

TEST(Squad, ControlPointsMakeTheCurveSmoothAtKeys) {
  const std::vector<Tquaternion> k = curveKeys();
  const double h = 1e-5;
  for (std::size_t i = 1; i + 1 < k.size(); ++i) {
    const Tquaternion key = evalSegment(k, i, 0.0);
    const Tquaternion vIn = velocity(evalSegment(k, i - 1, 1.0 - h), key, h);
    const Tquaternion vOut = velocity(key, evalSegment(k, i, h), h);
    EXPECT_LT((vIn - vOut).length(), 1e-3 * vIn.length()) << i;
  }
  // Without the control points (plain slerp per segment) the velocity jumps.
  const Tquaternion vIn = velocity(slerp(k[0], k[1], 1 - h), k[1], h);
  const Tquaternion vOut = velocity(k[1], slerp(k[1], k[2], h), h);
  EXPECT_GT((vIn - vOut).length(), 0.1 * vIn.length());
}

TEST(SquadPt, UsesTheShortArcToEachNeighbour) {
  const std::vector<Tquaternion> k = curveKeys();
  const Tquaternion s = squadPt(k[0], k[1], k[2]);
  EXPECT_TRUE(squadPt(-k[0], k[1], -k[2]).equivalent(s, 1e-14));
  EXPECT_TRUE(squadPt(k[0], -k[1], k[2]).equivalent(s, 1e-14));
  // Evenly spaced keys about one axis have no curvature: the control point is
  // the key itself.
  EXPECT_TRUE(squadPt(aboutAxis(0, 0, 1, 10), aboutAxis(0, 0, 1, 30), aboutAxis(0, 0, 1, 50))
                  .equivalent(aboutAxis(0, 0, 1, 30), 1e-14));
}

}  // namespace
}  // namespace lumora
