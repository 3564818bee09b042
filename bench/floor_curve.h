// The floors that curve sampling is measured against, and the curves and
// times they are measured on, shared by the benchmarks of every sampling path.
//
// A floor holds the same spans' cubics, precomputed once and evaluated by
// Horner's rule at the same sample times, with the span found by a forward
// walk (sequential) or std::upper_bound (random access). Nothing can sample
// a cubic curve faster, so the ratio of a benchmark to its floor is the cost
// of the sampling machinery.
//
//   const TfloorCurve floor = hermiteFloor(curve);
//   floorRandom(floor, randomTimes(100000, 9999.0), out);
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"

namespace lumora::bench {

inline constexpr unsigned kSeed = 20240611;

// --- The floor -------------------------------------------------------------------------

// ((a s + b) s + c) s + d with s = t - start of the span.
struct Tcubic {
  double a = 0.0;
  double b = 0.0;
  double c = 0.0;
  double d = 0.0;
};

struct TfloorCurve {
  std::vector<double> keyTimes;
  std::vector<Tcubic> spans;  // spans[i] runs from keyTimes[i] to keyTimes[i + 1]
};

inline double horner(const Tcubic& c, double s) {
  return ((c.a * s + c.b) * s + c.c) * s + c.d;
}

// What a floor needs of one span: its length, end values and the tangents
// that leave and enter it.
struct TspanData {
  double h;
  double y0;
  double y3;
  float outX, outY, inX, inY;
};

// The key times of `curve`, and cubic(span) of each span.
template <typename Cubic>
TfloorCurve floorOf(const TparamCurve& curve, Cubic cubic) {
  TfloorCurve f;
  const unsigned n = curve.keyframeCount();
  for (unsigned i = 0; i < n; ++i) f.keyTimes.push_back(curve.seconds(i));
  for (unsigned i = 0; i + 1 < n; ++i) {
    TspanData d{f.keyTimes[i + 1] - f.keyTimes[i],
                curve.keyframe(i)->value(),
                curve.keyframe(i + 1)->value(),
                0.0f,
                0.0f,
                0.0f,
                0.0f};
    curve.keyframe(i)->getTanOut(d.outX, d.outY);
    curve.keyframe(i + 1)->getTanIn(d.inX, d.inY);
    f.spans.push_back(cubic(d));
  }
  return f;
}

// The Hermite cubic of each span of a non-weighted curve: only the slopes of
// the tangents matter.
inline TfloorCurve hermiteFloor(const TparamCurve& curve) {
  return floorOf(curve, [](const TspanData& d) {
    const double h = d.h;
    const double dy = d.y3 - d.y0;
    const double m0 = static_cast<double>(d.outY) / d.outX;
    const double m1 = static_cast<double>(d.inY) / d.inX;
    return Tcubic{(m0 + m1) / (h * h) - 2.0 * dy / (h * h * h), (3.0 * dy / h - 2.0 * m0 - m1) / h,
                  m0, d.y0};
  });
}

// The value polynomial of each span of a weighted curve, taken as if time ran
// linearly in the Bezier parameter: the cost of a weighted sample without its
// root finding, and the same work per sample as hermiteFloor.
inline TfloorCurve bezierValueFloor(const TparamCurve& curve) {
  return floorOf(curve, [](const TspanData& d) {
    const double h = d.h;
    const double p0 = d.y0;
    const double p3 = d.y3;
    const double p1 = p0 + d.outY / 3.0;
    const double p2 = p3 - d.inY / 3.0;
    // Power basis in u = s / h, rescaled to s.
    const double c3 = p3 - 3.0 * p2 + 3.0 * p1 - p0;
    const double c2 = 3.0 * (p2 - 2.0 * p1 + p0);
    const double c1 = 3.0 * (p1 - p0);
    return Tcubic{c3 / (h * h * h), c2 / (h * h), c1 / h, p0};
  });
}

// Samples are written to an output buffer, as a host fills an animation
// channel; the curve benchmarks do the same, so both pay the same stores.
inline void floorSequential(const TfloorCurve& f, const std::vector<float>& times, double* out) {
  std::size_t span = 0;
  const std::size_t lastSpan = f.spans.size() - 1;
  for (std::size_t i = 0; i < times.size(); ++i) {
    const double t = times[i];
    while (span < lastSpan && t >= f.keyTimes[span + 1]) ++span;
    out[i] = horner(f.spans[span], t - f.keyTimes[span]);
  }
}

inline double floorAt(const TfloorCurve& f, double t) {
  const auto after = std::upper_bound(f.keyTimes.begin(), f.keyTimes.end(), t);
  const std::ptrdiff_t lastSpan = static_cast<std::ptrdiff_t>(f.spans.size()) - 1;
  const auto span = static_cast<std::size_t>(
      std::clamp<std::ptrdiff_t>(after - f.keyTimes.begin() - 1, 0, lastSpan));
  return horner(f.spans[span], t - f.keyTimes[span]);
}

inline void floorRandom(const TfloorCurve& f, const std::vector<float>& times, double* out) {
  for (std::size_t i = 0; i < times.size(); ++i) out[i] = floorAt(f, times[i]);
}

// --- Curves and sample times -----------------------------------------------------------

// `count` times spread uniformly over [0, end), the same on every run.
inline std::vector<float> randomTimes(unsigned count, double end) {
  std::vector<float> times;
  std::uint64_t state = kSeed;
  for (unsigned i = 0; i < count; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    times.push_back(static_cast<float>(static_cast<double>(state >> 11) * 0x1p-53 * end));
  }
  return times;
}

// Weighted keys whose handles reach 0.4 of the span forwards and 0.25 back,
// so time is not linear in the Bezier parameter anywhere.
inline std::unique_ptr<TparamCurve> makeOffThirdsCurve(unsigned keys) {
  auto c = std::make_unique<TparamCurve>(/*isFloat=*/true);
  c->setIsWeighted(true);
  std::uint32_t state = kSeed;
  for (unsigned i = 0; i < keys; ++i) {
    state = state * 1664525u + 1013904223u;
    const double value = static_cast<double>(state >> 8) / 8388608.0 - 1.0;
    const float slope = static_cast<float>(static_cast<int>(state % 200) - 100) / 100.0f;
    Tkeyframe key(static_cast<float>(i), value, kTangentFixed, kTangentFixed);
    key.setTanIn(0.75f, 0.75f * slope);
    key.setTanOut(1.2f, 1.2f * slope);
    c->add(key);
  }
  return c;
}

}  // namespace lumora::bench
