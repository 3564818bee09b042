#include "lumora/base/quaternion.h"

#include <cmath>
#include <numbers>

namespace lumora {

namespace {

constexpr double kHalfPi = std::numbers::pi / 2.0;

// Below this angle between two quaternions (half the rotation between them)
// slerp's sine ratios lose precision and normalised linear interpolation is
// exact to far beyond double precision (its error grows with the cube).
constexpr double kSlerpMinAngle = 1e-9;

// When one of the two half-sums used by convertToEulerAngles falls below this
// fraction of the other, the pitch is within about 1e-10 of a quarter turn and
// roll and yaw are no longer separable; the roll is then taken as 0.
constexpr double kGimbalRatio = 1e-10;

bool isUsable(double length) {
  return length > 0.0 && std::isfinite(length);
}

double norm3(double a, double b, double c) {
  return std::sqrt(a * a + b * b + c * c);
}

Tangle wrappedRadians(double radians) {
  return Tangle(radians, TangleUnit::kRadians, /*wrap=*/true);
}

}  // namespace

// ---------------------------------------------------------------------------
// TrotateXYZ

Tquaternion TrotateXYZ::asQuaternion() const {
  const double hx = x.radians() / 2.0;
  const double hy = y.radians() / 2.0;
  const double hz = z.radians() / 2.0;
  const double cx = std::cos(hx), sx = std::sin(hx);
  const double cy = std::cos(hy), sy = std::sin(hy);
  const double cz = std::cos(hz), sz = std::sin(hz);
  // qz * qy * qx multiplied out.
  return Tquaternion(sx * cy * cz - cx * sy * sz,  //
                     cx * sy * cz + sx * cy * sz,  //
                     cx * cy * sz - sx * sy * cz,  //
                     cx * cy * cz + sx * sy * sz);
}

// ---------------------------------------------------------------------------
// Tquaternion

Tquaternion Tquaternion::fromAxisAngle(double ax, double ay, double az, const Tangle& angle) {
  const double len = norm3(ax, ay, az);
  if (!isUsable(len)) return Tquaternion();
  const double half = angle.radians() / 2.0;
  const double s = std::sin(half) / len;
  return Tquaternion(ax * s, ay * s, az * s, std::cos(half));
}

bool Tquaternion::equivalent(const Tquaternion& o, double tolerance) const {
  const auto within = [tolerance](double a, double b) { return std::fabs(a - b) <= tolerance; };
  if (within(x, o.x) && within(y, o.y) && within(z, o.z) && within(w, o.w)) return true;
  return within(x, -o.x) && within(y, -o.y) && within(z, -o.z) && within(w, -o.w);
}

double Tquaternion::length() const {
  return std::sqrt(dot(*this));
}

Tquaternion Tquaternion::normal() const {
  const double len = length();
  if (!isUsable(len)) return Tquaternion();
  return *this * (1.0 / len);
}

Tquaternion& Tquaternion::normalize() {
  return *this = normal();
}

Tquaternion Tquaternion::inverse() const {
  const double n = dot(*this);
  if (!isUsable(n)) return Tquaternion();
  return conjugate() * (1.0 / n);
}

Tquaternion Tquaternion::log() const {
  const double len = length();
  if (len == 0.0) return Tquaternion(0.0, 0.0, 0.0, 0.0);
  const double vlen = norm3(x, y, z);
  // atan2 keeps the angle accurate near 0 and near pi, where acos would not.
  const double scale = vlen > 0.0 ? std::atan2(vlen, w) / vlen : 0.0;
  return Tquaternion(x * scale, y * scale, z * scale, std::log(len));
}

Tquaternion Tquaternion::exp() const {
  const double vlen = norm3(x, y, z);
  const double ew = std::exp(w);
  const double scale = vlen > 0.0 ? ew * std::sin(vlen) / vlen : ew;
  return Tquaternion(x * scale, y * scale, z * scale, ew * std::cos(vlen));
}

Tquaternion Tquaternion::operator*(const Tquaternion& o) const {
  return Tquaternion(w * o.x + x * o.w + y * o.z - z * o.y,  //
                     w * o.y - x * o.z + y * o.w + z * o.x,  //
                     w * o.z + x * o.y - y * o.x + z * o.w,  //
                     w * o.w - x * o.x - y * o.y - z * o.z);
}

void Tquaternion::rotate(double vector[3]) const {
  if (vector == nullptr) return;
  const Tquaternion q = normal();
  const double vx = vector[0], vy = vector[1], vz = vector[2];
  // v' = v + w t + u x t with u the vector part and t = 2 u x v: the
  // expansion of q v q* for a unit q, without forming the products.
  const double tx = 2.0 * (q.y * vz - q.z * vy);
  const double ty = 2.0 * (q.z * vx - q.x * vz);
  const double tz = 2.0 * (q.x * vy - q.y * vx);
  vector[0] = vx + q.w * tx + (q.y * tz - q.z * ty);
  vector[1] = vy + q.w * ty + (q.z * tx - q.x * tz);
  vector[2] = vz + q.w * tz + (q.x * ty - q.y * tx);
}

TrotateXYZ Tquaternion::convertToEulerAngles() const {
  const double len = length();
  if (!isUsable(len)) return TrotateXYZ();
  const Tquaternion q = *this * (1.0 / len);
  // Multiplying out qz(c) * qy(b) * qx(a) with half angles gives
  //   w + y = (cos b/2 + sin b/2) cos((c - a)/2),  z - x = (...) sin((c - a)/2)
  //   w - y = (cos b/2 - sin b/2) cos((c + a)/2),  z + x = (...) sin((c + a)/2)
  // so each pair yields a half-sum angle by atan2 and their magnitudes, the
  // square roots of 1 + sin b and 1 - sin b, yield the pitch. Unlike reading
  // the angles off the rotation matrix this stays accurate next to gimbal
  // lock, where a magnitude is tiny but so is its share of the rotation.
  const double plusLen = std::hypot(q.w + q.y, q.z - q.x);
  const double minusLen = std::hypot(q.w - q.y, q.z + q.x);
  const double pitch = kHalfPi - 2.0 * std::atan2(minusLen, plusLen);
  const double diff = std::atan2(q.z - q.x, q.w + q.y);  // (yaw - roll) / 2
  const double sum = std::atan2(q.z + q.x, q.w - q.y);   // (yaw + roll) / 2

  double roll = sum - diff;
  double yaw = sum + diff;
  if (minusLen <= kGimbalRatio * plusLen) {
    roll = 0.0;
    yaw = 2.0 * diff;
  } else if (plusLen <= kGimbalRatio * minusLen) {
    roll = 0.0;
    yaw = 2.0 * sum;
  }
  return TrotateXYZ(wrappedRadians(roll), Tangle(pitch), wrappedRadians(yaw));
}

// ---------------------------------------------------------------------------
// Interpolation

Tquaternion slerp(const Tquaternion& a, const Tquaternion& b, double t) {
  const Tquaternion from = a.normal();
  if (!std::isfinite(t)) return from;
  Tquaternion to = b.normal();
  if (from.dot(to) < 0.0) to = -to;

  // The angle between the two from the chord and its complement: accurate for
  // every angle, where acos of the dot product is not near 0.
  const double angle = 2.0 * std::atan2((from - to).length(), (from + to).length());
  if (angle < kSlerpMinAngle) return (from * (1.0 - t) + to * t).normal();
  const double s = std::sin(angle);
  return from * (std::sin((1.0 - t) * angle) / s) + to * (std::sin(t * angle) / s);
}

Tquaternion squad(const Tquaternion& a, const Tquaternion& b, const Tquaternion& c,
                  const Tquaternion& d, double t) {
  return slerp(slerp(a, d, t), slerp(b, c, t), 2.0 * t * (1.0 - t));
}

Tquaternion squadPt(const Tquaternion& previous, const Tquaternion& current,
                    const Tquaternion& next) {
  const Tquaternion q = current.normal();
  Tquaternion before = previous.normal();
  Tquaternion after = next.normal();
  if (q.dot(before) < 0.0) before = -before;
  if (q.dot(after) < 0.0) after = -after;

  const Tquaternion qInverse = q.conjugate();
  const Tquaternion tangent = (qInverse * after).log() + (qInverse * before).log();
  return (q * (tangent * -0.25).exp()).normal();
}

}  // namespace lumora
