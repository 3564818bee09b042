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
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Tangle deg(double d) {
  return Tangle(d, TangleUnit::kDegrees, /*wrap=*/false);
}

Tquaternion aboutAxis(double ax, double ay, double az, double degrees) {
  return Tquaternion::fromAxisAngle(ax, ay, az, deg(degrees));
}

// v rotated by q, within 1e-12 of e.
::testing::AssertionResult rotates(const Tquaternion& q, std::array<double, 3> v,
                                   std::array<double, 3> e) {
  q.rotate(v.data());
  for (int i = 0; i < 3; ++i) {
    if (!(std::fabs(v[i] - e[i]) <= 1e-12))
      return ::testing::AssertionFailure() << i << " " << v[i];
  }
  return ::testing::AssertionSuccess();
}

// Rotation angle between two unit quaternions, ignoring their signs.
double angleBetween(const Tquaternion& a, const Tquaternion& b) {
  return 2.0 * std::acos(std::fmin(1.0, std::fabs(a.normal().dot(b.normal()))));
}

TEST(Tquaternion, RotatesVectorsByKnownRotations) {
  const Tquaternion aboutX = aboutAxis(1, 0, 0, 90), aboutZ = aboutAxis(0, 0, 1, 90);
  EXPECT_TRUE(rotates(aboutAxis(1, 1, 1, 120), {1, 0, 0}, {0, 1, 0}));  // any axis length
  EXPECT_TRUE(rotates(aboutZ * 3.0, {1, 0, 0}, {0, 1, 0}));             // like its normal
  // The right operand applies first. X first: Y goes to Z, which Z leaves
  // alone. Z first: Y goes to -X, which X leaves alone.
  EXPECT_TRUE(rotates(aboutZ * aboutX, {0, 1, 0}, {0, 0, 1}));
  EXPECT_TRUE(rotates(aboutX * aboutZ, {0, 1, 0}, {-1, 0, 0}));
  // Euler angles apply X, then Y, then Z: X 90 takes Y to Z, Y 90 takes Z to
  // X, Z 90 takes X to Y.
  EXPECT_TRUE(rotates(TrotateXYZ(deg(90), deg(90), deg(90)).asQuaternion(), {0, 1, 0}, {0, 1, 0}));
  EXPECT_TRUE(rotates(TrotateXYZ(deg(90), deg(90), deg(0)).asQuaternion(), {0, 1, 0}, {1, 0, 0}));
}

TEST(Tquaternion, AlgebraIdentitiesAndEquivalence) {
  const Tquaternion q = Tquaternion(0.3, -0.5, 0.2, 0.8).normal();
  EXPECT_NEAR(q.length(), 1.0, 1e-15);
  for (const Tquaternion& p : {q, Tquaternion(1, 2, 3, 4), Tquaternion(0, 0, 0, 2)}) {
    EXPECT_TRUE((p * p.inverse()).equivalent(Tquaternion(), 1e-15));
    EXPECT_TRUE(p.log().exp().equivalent(p, 1e-15));
  }
  // log of a unit quaternion is half the rotation vector.
  const Tquaternion l = aboutAxis(0, 1, 0, 60).log();
  EXPECT_NEAR(l.y, kPi / 6, 1e-15);
  EXPECT_NEAR(l.x * l.x + l.z * l.z + l.w * l.w, 0.0, 1e-30);
  // Hamilton's rule i j = k.
  EXPECT_EQ(Tquaternion(1, 0, 0, 0) * Tquaternion(0, 1, 0, 0), Tquaternion(0, 0, 1, 0));
  // Equivalence accepts the negation, which is the same rotation.
  EXPECT_TRUE(q.equivalent(-q, 0.0));
  EXPECT_TRUE(q.equivalent(q + Tquaternion(1e-7, 0, 0, 0), 1e-6));
  EXPECT_FALSE(q.equivalent(q + Tquaternion(0, 0, 0, 1e-5), 1e-6));
  EXPECT_FALSE(q.equivalent(q.conjugate(), 1e-6));
  EXPECT_FALSE(q.equivalent(q, kNaN));
}

TEST(Tquaternion, DegenerateInputsGiveIdentity) {
  const Tquaternion zero(0, 0, 0, 0);
  EXPECT_EQ(
      std::vector<Tquaternion>({zero.normal(), zero.inverse(), Tquaternion(kNaN, 0, 0, 1).normal(),
                                Tquaternion::fromAxisAngle(0, 0, 0, deg(30)),
                                Tquaternion::fromAxisAngle(kNaN, 1, 0, deg(30))}),
      std::vector<Tquaternion>(5, Tquaternion()));
  EXPECT_EQ(zero.log(), zero);
  const TrotateXYZ e = zero.convertToEulerAngles();
  EXPECT_EQ(e.x.radians() + e.y.radians() + e.z.radians(), 0.0);
  EXPECT_TRUE(rotates(zero, {1, 2, 3}, {1, 2, 3}));
  zero.rotate(nullptr);
  EXPECT_EQ(slerp(aboutAxis(0, 0, 1, 40), Tquaternion(), kNaN), aboutAxis(0, 0, 1, 40));
}

// The ranges make the angles unique away from gimbal lock, so a round trip
// that keeps the rotation also recovers the angles there.
TEST(TrotateXYZ, EulerRoundTripOverGrid) {
  std::vector<double> pitches = {90 - 1e-3, -90 + 1e-3, 90 - 1e-6,  -90 + 1e-6,
                                 90 - 1e-9, -90 + 1e-9, 90 - 1e-12, -90 + 1e-12};
  for (double p = -180; p <= 180; p += 15) pitches.push_back(p);
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

TEST(Slerp, ConstantSpeedAlongTheShortestPath) {
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
  // Constant angular speed along a general arc.
  const Tquaternion c = aboutAxis(1, -2, 0.5, 10), d = aboutAxis(-1, 0, 3, 170);
  for (double t = 0.0; t <= 1.0; t += 0.125) {
    EXPECT_NEAR(slerp(c, d, t).length(), 1.0, 1e-14);
    EXPECT_NEAR(angleBetween(c, slerp(c, d, t)), t * angleBetween(c, d), 1e-7) << t;
  }
  const Tquaternion tiny = aboutAxis(0, 1, 0, 1e-9);
  EXPECT_TRUE(slerp(a, tiny, 0.5).equivalent(aboutAxis(0, 1, 0, 0.5e-9), 1e-17));
  EXPECT_TRUE(slerp(tiny, tiny, 0.3).equivalent(tiny, 1e-17));
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

// Angular velocity between two nearby rotations h apart in time.
Tquaternion velocity(const Tquaternion& from, Tquaternion to, double h) {
  if (from.dot(to) < 0) to = -to;
  return (from.inverse() * to).log() * (2.0 / h);
}

TEST(Squad, PassesThroughKeysWithSmoothVelocity) {
  const std::vector<Tquaternion> k = curveKeys();
  const double h = 1e-5;
  for (std::size_t i = 0; i + 1 < k.size(); ++i) {
    EXPECT_TRUE(evalSegment(k, i, 0.0).equivalent(k[i], 1e-14)) << i;
    EXPECT_TRUE(evalSegment(k, i, 1.0).equivalent(k[i + 1], 1e-14)) << i;
    if (i == 0) continue;
    const Tquaternion vIn = velocity(evalSegment(k, i - 1, 1.0 - h), k[i], h);
    const Tquaternion vOut = velocity(k[i], evalSegment(k, i, h), h);
    EXPECT_LT((vIn - vOut).length(), 1e-3 * vIn.length()) << i;
  }
  // With the end points as inner controls it is plain slerp.
  EXPECT_TRUE(squad(k[1], k[1], k[2], k[2], 0.3).equivalent(slerp(k[1], k[2], 0.3), 1e-14));
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
