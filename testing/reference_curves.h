// Named reference curves shared by tests, benchmarks and the demo tool. They
// live in the lumora_testing library, beside the code that checks curves, and
// are not part of the installed product.
//
// Each builder empties the curve it is given and fills it with one well-known
// shape, so that a test, a benchmark and a picture can all talk about "the
// bouncing ball" and mean the same keys:
//
//   TparamCurve ball(/*isFloat=*/true);
//   reference::bouncingBall(ball);
//   double apex = ball.evaluate(0.45f);        // 1.0, the key at the apex
//   double later = ball.evaluate(2.45f);       // the same height, two bounces on
//
// Things that surprise people:
//  * A builder discards the curve's existing keys without recording undo
//    deltas (as removeAllKeys does); it is meant for fresh curves. The keys
//    it adds go through TparamCurve::add, so clients hear of them and a
//    recording curve records them.
//  * A builder sets the curve's weighting and both infinities; the weighting
//    decides how a curve's tangents are read, so the shapes only hold with the
//    weighting the builder chose.
//  * Times are given in seconds and converted to the curve's own kind, so
//    the builders work on float and tick curves alike.
//  * A builder returns false when the curve refused one of its edits (a
//    procedural or reference curve whose helpers say no); the curve then holds
//    whatever was built up to that edit.
#pragma once

namespace lumora {

class TparamCurve;

namespace reference {

// --- The bouncing ball -------------------------------------------------------------

/// Height of the ball at the top of its flight, in metres.
inline constexpr double kBallApexHeight = 1.0;
/// Time of the apex; the flight lasts twice as long.
inline constexpr float kBallApexTime = 0.45f;
/// Time at which the ball lands and starts its squash on the ground.
inline constexpr float kBallLandTime = 0.9f;
/// Length of one bounce: the keyed range, repeated by the post infinity.
inline constexpr float kBallPeriod = 1.0f;

/// A ball bouncing on the ground (height 0), one bounce per second.
/// Non-weighted, four keys:
///   0 s     on the ground; out tangent fixed at the launch slope (in: linear)
///   0.45 s  the apex, spline tangents (flat, as both neighbours are at 0)
///   0.9 s   landing; in tangent fixed at the falling slope, out type step,
///           so the ball stays on the ground while it squashes
///   1 s     still on the ground (in: clamped, out: fixed like the first key)
/// The launch and landing slopes are those of the parabola through the three
/// flight keys, so the flight is a true parabola: sharp at the ground, round
/// at the top. Pre infinity constant, post infinity cycle.
bool bouncingBall(TparamCurve& curve);

// --- Weighted shapes -----------------------------------------------------------------

/// Two weighted keys, (0 s, 0) and (2 s, 10), with fixed tangents whose
/// handles sit at 0.4 and 0.75 of the span instead of the thirds, so time is
/// not linear in the Bezier parameter and every sample solves for it.
/// Constant infinities.
bool twoKeyBezier(TparamCurve& curve);

/// Two weighted keys, (0 s, 0) and (1 s, 1), whose flat handles are so long
/// (one and a half spans) that each reaches past the other key: left alone the
/// curve would run backwards in time. The segment is cut to the longest
/// monotonic handles, giving a steep S that never folds back. Constant
/// infinities.
bool regressiveS(TparamCurve& curve);

// --- Bulk --------------------------------------------------------------------------------

/// `keys` non-weighted spline keys at 0, 1, 2, ... seconds with pseudo-random
/// values in [-1, 1]. The same seed gives the same values on every platform.
/// Constant infinities. Meant for benchmarks.
bool denseSpline(TparamCurve& curve, unsigned keys, unsigned seed);

}  // namespace reference
}  // namespace lumora
