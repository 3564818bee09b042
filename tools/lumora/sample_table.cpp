#include "tools/lumora/sample_table.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"

namespace lumora::tool {

namespace {

// Times closer than this are taken as one time; keys lie much further apart.
constexpr double kSameTime = 1e-6;

bool repeatsKeys(TparamCurve::TinfinityType type) {
  return type == TparamCurve::kCycle || type == TparamCurve::kCycleRelative ||
         type == TparamCurve::kOscillate;
}

bool inside(const TtimeRange& view, double t) {
  return t >= view.from - kSameTime && t <= view.to + kSameTime;
}

// Where key k's value shows in the cycle-th repetition after (cycle > 0) or
// before (cycle < 0) the keyed range [t0, t1] of period p. Oscillation
// mirrors the odd repetitions.
double imageTime(double tk, double t0, double t1, double p, int cycle, bool oscillate) {
  const bool mirrored = oscillate && (std::abs(cycle) % 2 == 1);
  if (cycle > 0) return mirrored ? t1 + (cycle - 1) * p + (t1 - tk) : tk + cycle * p;
  const int c = -cycle;
  return mirrored ? 2.0 * t0 - tk - (c - 1) * p : tk - c * p;
}

void addImages(const TparamCurve& curve, const TtimeRange& view, bool after,
               std::vector<TkeyMark>& marks) {
  const unsigned n = curve.keyframeCount();
  const double t0 = curve.seconds(0u);
  const double t1 = curve.seconds(n - 1);
  const double p = t1 - t0;
  const TparamCurve::TinfinityType type =
      after ? curve.postInfinityType() : curve.preInfinityType();
  if (!repeatsKeys(type) || !(p > 0.0)) return;

  const double reach = after ? view.to - t1 : t0 - view.from;
  if (reach <= 0.0) return;
  const double cycles = std::ceil(reach / p);
  if (cycles * n > kMaxImages) return;
  for (int c = 1; c <= static_cast<int>(cycles); ++c) {
    for (unsigned k = 0; k < n; ++k) {
      const int cycle = after ? c : -c;
      const double t =
          imageTime(curve.seconds(k), t0, t1, p, cycle, type == TparamCurve::kOscillate);
      if (inside(view, t)) marks.push_back({t, k, cycle});
    }
  }
}

// Weighted handles that face a span can reach past the keys (the control
// points of a regressive S do); the view takes in where they end.
void widenToWeightedHandles(const TparamCurve& curve, double& low, double& high) {
  if (!curve.isWeighted()) return;
  const unsigned n = curve.keyframeCount();
  for (unsigned k = 0; k < n; ++k) {
    const Tkeyframe* key = curve.keyframe(k);
    float x = 0.0f;
    float y = 0.0f;
    if (k > 0) {
      key->getTanIn(x, y);
      low = std::min(low, curve.seconds(k) - x / 3.0);
    }
    if (k + 1 < n) {
      key->getTanOut(x, y);
      high = std::max(high, curve.seconds(k) + x / 3.0);
    }
  }
}

// 1, 2 or 5 times a power of ten, near `raw`.
double roundStep(double raw) {
  const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
  const double normal = raw / magnitude;
  return (normal < 1.5 ? 1.0 : normal < 3.0 ? 2.0 : normal < 7.0 ? 5.0 : 10.0) * magnitude;
}

int decimalsFor(double spacing) {
  if (!(spacing > 0.0)) return 3;
  const int needed = static_cast<int>(std::ceil(-std::log10(spacing))) + 1;
  return std::clamp(needed, 3, 9);
}

}  // namespace

TtimeRange defaultView(const TparamCurve& curve) {
  const unsigned n = curve.keyframeCount();
  if (n == 0) return {0.0, 1.0};
  const double t0 = curve.seconds(0u);
  const double t1 = curve.seconds(n - 1);
  const double p = t1 - t0;
  if (!(p > 0.0)) return {t0 - 1.0, t0 + 1.0};
  if (repeatsKeys(curve.postInfinityType())) {
    const double before = repeatsKeys(curve.preInfinityType()) ? p : 0.0;
    return {t0 - before, t0 + 3.0 * p};
  }
  double low = t0 - 0.2 * p;
  double high = t1 + 0.2 * p;
  widenToWeightedHandles(curve, low, high);
  // Ends on round times, so that the default table rows fall on round times.
  const double step = roundStep((high - low) / 6.0);
  return {std::floor(low / step) * step, std::ceil(high / step) * step};
}

std::vector<TkeyMark> keyMarksInView(const TparamCurve& curve, const TtimeRange& view) {
  std::vector<TkeyMark> marks;
  const unsigned n = curve.keyframeCount();
  if (n == 0) return marks;
  for (unsigned k = 0; k < n; ++k) {
    const double t = curve.seconds(k);
    if (inside(view, t)) marks.push_back({t, k, 0});
  }
  addImages(curve, view, /*after=*/true, marks);
  addImages(curve, view, /*after=*/false, marks);

  // Coinciding marks: the key itself wins, then the image nearer the keys.
  std::stable_sort(marks.begin(), marks.end(), [](const TkeyMark& a, const TkeyMark& b) {
    if (std::fabs(a.time - b.time) > kSameTime) return a.time < b.time;
    return std::abs(a.repeat) < std::abs(b.repeat);
  });
  std::vector<TkeyMark> kept;
  for (const TkeyMark& m : marks) {
    if (!kept.empty() && std::fabs(kept.back().time - m.time) <= kSameTime) continue;
    kept.push_back(m);
  }
  return kept;
}

std::vector<Tsample> sampleTable(TparamCurve& curve, const TtimeRange& view, unsigned count,
                                 const std::vector<TkeyMark>& marks) {
  std::vector<Tsample> rows;
  const unsigned steps = count > 1 ? count - 1 : 1;
  for (unsigned i = 0; i < count; ++i) {
    const double t = view.from + (view.to - view.from) * i / steps;
    rows.push_back({t, 0.0, -1});
  }
  // A row at a mark takes over an evenly spaced row at the same time.
  for (std::size_t m = 0; m < marks.size(); ++m) {
    const auto same = std::find_if(rows.begin(), rows.end(), [&](const Tsample& s) {
      return s.mark < 0 && std::fabs(s.time - marks[m].time) <= kSameTime;
    });
    if (same != rows.end()) {
      same->time = marks[m].time;
      same->mark = static_cast<int>(m);
    } else {
      rows.push_back({marks[m].time, 0.0, static_cast<int>(m)});
    }
  }
  std::stable_sort(rows.begin(), rows.end(),
                   [](const Tsample& a, const Tsample& b) { return a.time < b.time; });
  for (Tsample& row : rows) row.value = curve.evaluate(static_cast<float>(row.time));
  return rows;
}

std::vector<Tsample> samplePolyline(TparamCurve& curve, const TtimeRange& view, unsigned count,
                                    const std::vector<TkeyMark>& marks) {
  std::vector<Tsample> points;
  const unsigned steps = count > 1 ? count - 1 : 1;
  for (unsigned i = 0; i < count; ++i) {
    points.push_back({view.from + (view.to - view.from) * i / steps, 0.0, -1});
  }
  for (std::size_t m = 0; m < marks.size(); ++m) {
    const float at = static_cast<float>(marks[m].time);
    const double before = std::nextafter(at, -HUGE_VALF);
    if (before >= view.from) points.push_back({before, 0.0, -1});
    points.push_back({marks[m].time, 0.0, static_cast<int>(m)});
  }
  std::stable_sort(points.begin(), points.end(),
                   [](const Tsample& a, const Tsample& b) { return a.time < b.time; });
  for (Tsample& p : points) p.value = curve.evaluate(static_cast<float>(p.time));
  return points;
}

std::string markLabel(const TkeyMark& mark) {
  std::string label = "key " + std::to_string(mark.index);
  if (mark.repeat == 0) return label;
  return label + ", cycle " + (mark.repeat > 0 ? "+" : "") + std::to_string(mark.repeat);
}

void printTable(std::FILE* out, const std::vector<Tsample>& rows,
                const std::vector<TkeyMark>& marks) {
  double spacing = 0.0;
  for (std::size_t i = 1; i < rows.size(); ++i) {
    const double gap = rows[i].time - rows[i - 1].time;
    if (gap > kSameTime && (spacing == 0.0 || gap < spacing)) spacing = gap;
  }
  const int decimals = decimalsFor(spacing);
  const int timeWidth = std::max(10, decimals + 7);
  std::fprintf(out, "%*s  %14s  %s\n", timeWidth, "time (s)", "value", "key");
  for (const Tsample& row : rows) {
    const double time = std::fabs(row.time) < 0.5 * std::pow(10.0, -decimals) ? 0.0 : row.time;
    // Rounding residue would otherwise print as -0.000000.
    const double value = std::fabs(row.value) < 5e-7 ? 0.0 : row.value;
    std::fprintf(out, "%*.*f  %14.6f", timeWidth, decimals, time, value);
    if (row.mark >= 0 && static_cast<std::size_t>(row.mark) < marks.size()) {
      std::fprintf(out, "  <- %s", markLabel(marks[static_cast<std::size_t>(row.mark)]).c_str());
    }
    std::fputc('\n', out);
  }
}

}  // namespace lumora::tool
