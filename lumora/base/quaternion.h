// Rotations as quaternions and as Euler angles, with spherical interpolation.
//
//   Tquaternion q = Tquaternion::fromAxisAngle(0, 0, 1, Tangle::sQuarter);
//   double v[3] = {1, 0, 0};
//   q.rotate(v);                                   // v is now (0, 1, 0)
//   TrotateXYZ e = q.convertToEulerAngles();       // x 0, y 0, z 90 degrees
//   Tquaternion h = slerp(Tquaternion(), q, 0.5);  // 45 degrees about Z
//
// A unit quaternion q and its negation -q describe the same rotation; compare
// rotations with `equivalent`, not with ==. Products compose like matrices:
// (a * b) applies b first and then a.
//
// Rotation curves interpolate keys q0, q1, q2, ... with
//   squad(q[i], squadPt(q[i-1], q[i], q[i+1]), squadPt(q[i], q[i+1], q[i+2]), q[i+1], t)
// which passes through every key with a continuous angular velocity.
#pragma once

#include "lumora/base/angle.h"
#include "lumora/base/export.h"

namespace lumora {

class Tquaternion;

/// Euler angles applied about the fixed axes X first, then Y, then Z: the
/// rotation matrix is Rz * Ry * Rx.
class LUMORA_API TrotateXYZ {
 public:
  Tangle x;
  Tangle y;
  Tangle z;

  TrotateXYZ() = default;
  TrotateXYZ(const Tangle& rx, const Tangle& ry, const Tangle& rz) : x(rx), y(ry), z(rz) {}

  /// The unit quaternion of the same rotation.
  Tquaternion asQuaternion() const;
};

/// A quaternion x i + y j + z k + w; the default is the identity rotation.
///
/// Operations that need a unit quaternion (rotate, convertToEulerAngles, the
/// interpolators) normalise their inputs first and treat a zero or non-finite
/// quaternion as the identity. Plain arithmetic (+, -, *, dot) works on the
/// components as given and lets NaN through like double arithmetic does.
class LUMORA_API Tquaternion {
 public:
  double x = 0.0;
  double y = 0.0;
  double z = 0.0;
  double w = 1.0;

  // Construction ------------------------------------------------------------

  constexpr Tquaternion() = default;
  constexpr Tquaternion(double qx, double qy, double qz, double qw) : x(qx), y(qy), z(qz), w(qw) {}
  constexpr Tquaternion(const Tquaternion&) = default;
  constexpr Tquaternion& operator=(const Tquaternion&) = default;

  /// The rotation by `angle` about the axis (ax, ay, az), right-handed. The
  /// axis need not be unit length; a zero or non-finite axis gives the
  /// identity.
  static Tquaternion fromAxisAngle(double ax, double ay, double az, const Tangle& angle);

  // Comparison --------------------------------------------------------------

  /// True when this and `other`, or this and -`other`, agree component by
  /// component within `tolerance`: for unit quaternions, the same rotation.
  bool equivalent(const Tquaternion& other, double tolerance) const;
  /// Exact component equality (q and -q are not equal).
  constexpr bool operator==(const Tquaternion&) const = default;

  // Algebra -----------------------------------------------------------------

  double dot(const Tquaternion& o) const { return x * o.x + y * o.y + z * o.z + w * o.w; }
  double length() const;
  /// This scaled to unit length; the identity when the length is zero or not
  /// finite.
  Tquaternion normal() const;
  /// Scales this to unit length in place (see normal()); returns *this.
  Tquaternion& normalize();
  /// (-x, -y, -z, w).
  Tquaternion conjugate() const { return Tquaternion(-x, -y, -z, w); }
  /// The multiplicative inverse, conjugate / |q|^2; the identity for a zero or
  /// non-finite quaternion.
  Tquaternion inverse() const;
  /// The natural logarithm. For a unit quaternion (axis sin a, cos a) this is
  /// (axis a, 0). The zero quaternion gives the zero quaternion.
  Tquaternion log() const;
  /// The exponential: (v, s) becomes e^s (v/|v| sin |v|, cos |v|).
  Tquaternion exp() const;

  /// Hamilton product: the rotation that applies `o` first and then this.
  Tquaternion operator*(const Tquaternion& o) const;
  Tquaternion operator*(double factor) const {
    return Tquaternion(x * factor, y * factor, z * factor, w * factor);
  }
  Tquaternion operator+(const Tquaternion& o) const {
    return Tquaternion(x + o.x, y + o.y, z + o.z, w + o.w);
  }
  Tquaternion operator-(const Tquaternion& o) const {
    return Tquaternion(x - o.x, y - o.y, z - o.z, w - o.w);
  }
  Tquaternion operator-() const { return Tquaternion(-x, -y, -z, -w); }

  // Rotation ----------------------------------------------------------------

  /// Rotates the 3-vector `vector` in place by the rotation this quaternion
  /// represents (normalised first). A null pointer is ignored.
  void rotate(double vector[3]) const;

  /// Euler angles of the same rotation: x and z in (-pi, pi], y in
  /// [-pi/2, pi/2]. At gimbal lock (y at +-pi/2, where only z - x or z + x is
  /// determined) x is 0 and z carries the whole turn. A zero or non-finite
  /// quaternion gives all zeros.
  TrotateXYZ convertToEulerAngles() const;
};

/// Spherical linear interpolation from `a` (t = 0) to `b` (t = 1) along the
/// shorter arc: when a . b < 0 the path runs towards -b, so t = 1 gives -b (the
/// same rotation as b). Inputs are normalised; nearly equal inputs use
/// normalised linear interpolation. t outside [0, 1] extrapolates.
LUMORA_API Tquaternion slerp(const Tquaternion& a, const Tquaternion& b, double t);

/// Spherical cubic interpolation from `a` (t = 0) to `d` (t = 1) with inner
/// control points `b` and `c` (see squadPt):
/// slerp(slerp(a, d, t), slerp(b, c, t), 2 t (1 - t)).
LUMORA_API Tquaternion squad(const Tquaternion& a, const Tquaternion& b, const Tquaternion& c,
                             const Tquaternion& d, double t);

/// The inner control point at key `current` between its neighbours:
/// current * exp(-(log(current^-1 * next) + log(current^-1 * previous)) / 4),
/// after moving `previous` and `next` onto current's hemisphere. At the ends
/// of a sequence pass the end key as its own missing neighbour.
LUMORA_API Tquaternion squadPt(const Tquaternion& previous, const Tquaternion& current,
                               const Tquaternion& next);

}  // namespace lumora
