// TcurveSampler: a compiled, read-only snapshot of a curve for fast sampling.
//
// A curve answers samples through its own cache and evaluator, so it can only
// be sampled from one thread at a time, and random access pays for the cache
// walk, a search through scattered keys and a segment load. A sampler is
// built from a curve once, in O(n), and holds what evaluation needs in one
// contiguous block: key times, the arithmetic of every span ready to run, the
// infinity data. It never changes afterwards, so any number of threads may
// sample one sampler at once.
//
//   TparamCurve curve(/*isFloat=*/true);
//   curve.add(Tkeyframe(0.0f, 0.0, kTangentFlat, kTangentFlat));
//   curve.add(Tkeyframe(1.0f, 10.0, kTangentFlat, kTangentFlat));
//   const TcurveSampler sampler(curve);
//   double v = sampler.evaluate(0.5f);          // 5.0, the same bits as the curve
//
//   // One frame of a scene: every channel at one time.
//   std::vector<const TcurveSampler*> channels = ...;
//   std::vector<double> values(channels.size());
//   TcurveSampler::evaluateAll(channels.size(), channels.data(), frameSeconds, values.data());
//
// Things that surprise people:
//  * A sampler answers, bit for bit, what the curve answers for a single time
//    from an empty cache: what `TparamCurve copy(curve); copy.evaluate(t)`
//    returns, for both evaluate() forms. A curve sampled through its own
//    cache (in time order, say) gives the same bits except for times within
//    the key tolerance of a key (1e-5 s on float curves, a tick on tick
//    curves), or whose image under a looping infinity falls there: its cache
//    compares key times exactly where its full search is tolerant.
//  * The sampler is a snapshot: it holds no pointer into the curve or its
//    keys. Editing or destroying the curve later changes nothing here; build
//    a new sampler to pick the edits up. Build it on the thread that owns the
//    curve, while nobody edits it.
//  * Keys out of time order (a setTime that failed leaves the new time
//    written) and keys marked for deferred deletion are sampled the way the
//    curve itself samples them, which a copy of the curve would not (copying
//    drops keys that are out of order and the deletion marks).
//  * Rotation curves under quaternion interpolation are sampled one channel
//    at a time on their own keys, as the curve does today; rotation curves
//    sampled as a set come with rotation interpolation.
//  * Copying a sampler copies its block (one allocation and a memcpy); moving
//    is free and leaves the source empty. To share one sampler between
//    threads, share a const reference: every member function is const.
//  * An empty sampler (default-constructed, or built from a curve without
//    live keys) answers 0 for every time and NaN for a NaN time, as an empty
//    curve does.
#pragma once

#include <cstdint>

#include "lumora/base/export.h"
#include "lumora/base/time_value.h"

namespace lumora {

class TparamCurve;

class LUMORA_API TcurveSampler {
 public:
  // --- Construction ------------------------------------------------------------

  /// The empty sampler.
  TcurveSampler() = default;
  /// A snapshot of `curve` as it is now, built in O(n).
  explicit TcurveSampler(const TparamCurve& curve);
  TcurveSampler(const TcurveSampler& other);
  TcurveSampler& operator=(const TcurveSampler& other);
  TcurveSampler(TcurveSampler&& other) noexcept;
  TcurveSampler& operator=(TcurveSampler&& other) noexcept;
  ~TcurveSampler();

  // --- Sampling ------------------------------------------------------------------

  /// The curve's value at `seconds`; NaN for a NaN time.
  double evaluate(float seconds) const;
  /// The curve's value at `t`, compared and searched as the curve compares
  /// and searches a time value of that kind; NaN for a NaN float time.
  double evaluate(const TtimeValue& t) const;
  /// values[i] = evaluate(static_cast<float>(times[i])) for i < count. False
  /// (nothing written) for a null array when count > 0.
  bool evaluate(unsigned count, const double* times, double* values) const;
  /// One frame of a scene: values[i] = samplers[i]->evaluate(seconds), NaN for
  /// a null entry. False (nothing written) for a null array when count > 0.
  static bool evaluateAll(unsigned count, const TcurveSampler* const* samplers, float seconds,
                          double* values);

  // --- Queries -------------------------------------------------------------------

  /// True when there are no live keys: every answer is 0 (NaN for NaN).
  bool empty() const { return fCount == 0; }
  /// Live keys, as the curve's keyframeCount() gave them.
  unsigned keyframeCount() const { return fCount; }
  /// Whether the curve kept float seconds (false: ticks, or empty).
  bool isFloat() const { return (fMode & kFloatTimes) != 0; }
  /// Whether the curve had weighted tangents.
  bool isWeighted() const { return (fMode & kWeightedTangents) != 0; }
  /// Seconds of the first key and of the last live one: the range the
  /// infinities extend. 0 for an empty sampler.
  float startSeconds() const;
  float endSeconds() const;

 private:
  struct Tblock;
  struct Tspan;
  struct Tkey;

  enum : std::uint32_t {
    kFloatTimes = 1u << 0,
    kWeightedTangents = 1u << 1,
    kTickTimes = 1u << 2,
    kStaticCurve = 1u << 3,
    kUnordered = 1u << 4,  // key times not in order: every search runs the curve's own
  };

  // Lanes of the batch calls: enough searches in flight at once to hide
  // most of the wait on each one's loads.
  static constexpr unsigned kGroup = 8;

  static void sampleGroup(const TcurveSampler* const* samplers, const float* times, unsigned lanes,
                          double* values);
  void release();
  void forget();
  void take(TcurveSampler& other);
  void adopt(const TcurveSampler& other);
  double sampleSeconds(float seconds) const;
  double sampleTicksCurve(float seconds) const;
  template <typename Key>
  double inside(Key probe, double seconds) const;
  template <typename Key>
  double fromFirst(unsigned first, Key probe, double seconds) const;
  template <typename Key>
  double searchLikeCurve(Key probe, double seconds) const;
  template <typename Key>
  double keyOrSearch(unsigned index, Key probe, double seconds) const;
  double spanValue(unsigned index, double seconds) const;
  double beyondKeys(float seconds, bool pre, bool afterEnd, bool mapToTicks) const;

  // Hot fields first: a sample inside the keys reads these, one search array
  // and one span.
  Tblock* fBlock = nullptr;         // owns the allocation; null when empty
  const void* fSearch = nullptr;    // per key: float upper tolerance bound, or int32 ticks
  const Tspan* fSpans = nullptr;    // per span (physical count - 1)
  const Tkey* fKeys = nullptr;      // per key: value and lower tolerance bound
  const void* fWeighted = nullptr;  // per span of a weighted curve, else null
  std::uint32_t fPhysical = 0;      // keys in the snapshot, dead ones included
  std::uint32_t fCount = 0;         // live keys
  std::uint32_t fMode = 0;
  float fPreBound = 0.0f;   // float curves: before this the pre infinity applies
  float fPostBound = 0.0f;  // float curves: after this the post infinity applies
};

}  // namespace lumora
