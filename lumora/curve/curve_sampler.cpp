// TcurveSampler: building the snapshot and sampling it.
//
// Every answer retraces what TparamCurve::evaluate does for one time with an
// empty cache, operation for operation, on copies of the same numbers:
//  * the same comparisons decide between the infinities and the keys, in the
//    same order, on the same kind of time (ticks or float seconds);
//  * the keys are searched with the curve's tolerant order (1e-5 s on float
//    curves, exact ticks on tick curves). Where that order cannot tie two
//    keys, any search finds what the curve's binary search finds, so a
//    branch-free lower bound does; where it can (keys less than twice the
//    tolerance apart, or out of order) the curve's own midpoint search is
//    run on the snapshot;
//  * spans are the span types of span_math.h, loaded from the same control
//    points, so they evaluate to the same bits; linear and step spans repeat
//    the curve's expressions;
//  * the infinities map times with the curve's own mapping and repeat its
//    arithmetic around it.
#include "lumora/curve/curve_sampler.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "lumora/base/angle.h"
#include "lumora/base/float_math.h"
#include "lumora/curve/internal/infinity_map.h"
#include "lumora/curve/param_curve.h"
#include "lumora/curve/span_math.h"
#include "lumora/keys/keyframe.h"

namespace lumora {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Arrays start on their own cache lines, so a span never shares a line with
// another array and the first lines of the search are not split.
constexpr std::size_t kLine = 64;
constexpr std::align_val_t kBlockAlignment{kLine};

std::size_t wholeLines(std::size_t bytes) {
  return (bytes + kLine - 1) & ~(kLine - 1);
}

// The ticks a tick curve gives `seconds` (TanimTime::setValue in seconds):
// the nearest tick, halves away from zero, saturating at the tick range, 0 for
// NaN. Inline, as tick curves convert every sample.
std::int32_t secondsToTicks(float seconds) {
  const double ticks = static_cast<double>(seconds) * 6000.0;
  if (std::isnan(ticks)) return 0;
  if (ticks <= -2147483648.0) return std::numeric_limits<std::int32_t>::min();
  if (ticks >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
  // Below 2^31 the truncation is exact and so is the remainder it leaves.
  std::int64_t whole = static_cast<std::int64_t>(ticks);
  const double rest = ticks - static_cast<double>(whole);
  if (rest >= 0.5) {
    ++whole;
  } else if (rest <= -0.5) {
    --whole;
  }
  return static_cast<std::int32_t>(whole);
}

// The end value continued along a slope for `distance` seconds, as the
// curve's linear infinity computes it.
double continueAlong(double endValue, double slope, float distance, bool pre) {
  if (slope == 0.0) return endValue;
  return pre ? endValue - slope * distance : endValue + slope * distance;
}

// v shifted by whole value differences for cycle relative, as the curve
// shifts it (the product rounded on its own, as its inline shortcut adds it).
double shiftForCycles(double v, double difference, double cycles, bool pre) {
  if (difference == 0.0) return v;
  const double shift = unfused(difference * cycles);
  return pre ? v - shift : v + shift;
}

// base + half when base[half] < probe, else base, without a branch: random
// probes make the comparison unpredictable, and a conditional move costs less
// than the mispredictions. Compilers select with a conditional move, except
// that clang may turn the move back into a branch inside a loop; there the
// move is spelled out.
inline const float* stepBelow(const float* base, unsigned half, float probe) {
#if defined(__clang__) && defined(__x86_64__)
  const float* next = base + half;
  asm("ucomiss %[key], %[probe]\n\tcmova %[next], %[base]"
      : [base] "+r"(base)
      : [key] "m"(*next), [probe] "x"(probe), [next] "r"(next)
      : "cc");
  return base;
#else
  return base[half] < probe ? base + half : base;
#endif
}

inline const std::int32_t* stepBelow(const std::int32_t* base, unsigned half, std::int32_t probe) {
#if defined(__clang__) && defined(__x86_64__)
  const std::int32_t* next = base + half;
  asm("cmpl %[key], %[probe]\n\tcmovg %[next], %[base]"
      : [base] "+r"(base)
      : [key] "m"(*next), [probe] "r"(probe), [next] "r"(next)
      : "cc");
  return base;
#else
  return base[half] < probe ? base + half : base;
#endif
}

// How many of keys[0, n) lie below `probe`, for keys in order and n >= 1,
// without a branch on the keys. Each step asks for the two lines the next
// step may read, overlapping their misses with its own.
template <typename Key>
inline unsigned countBelow(const Key* keys, unsigned n, Key probe) {
  const Key* base = keys;
  while (n > 1) {
    const unsigned half = n / 2;
#if defined(__GNUC__)
    __builtin_prefetch(base + half / 2);
    __builtin_prefetch(base + half + half / 2);
#endif
    base = stepBelow(base, half, probe);
    n -= half;
  }
  return static_cast<unsigned>(base - keys) + (*base < probe ? 1u : 0u);
}

// What evaluation of a span needs once it is found.
enum TspanKind : std::uint32_t {
  kCubicSpan = 0,     // non-weighted curve span: the Hermite cubic
  kLinearSpan = 1,    // interpolation between the key values
  kConstantSpan = 2,  // step, or a linear span without duration: the start value
  kWeightedSpan = 3,  // weighted curve span: its TweightedSpan
};

}  // namespace

// One span, from key i to key i + 1, in 48 bytes: the coefficients, the
// start and the bound that rules out a key hit arrive together, from one
// cache line or two adjacent ones.
struct TcurveSampler::Tspan {
  // Cubic spans: the cubic. Linear spans keep the curve's operands in it:
  // x0 the start, a the duration, b the rise and d the start value; constant
  // spans keep their value in d.
  ThermiteSpan cubic;
  // The lower tolerance bound of the end key (float bits), or its ticks.
  std::uint32_t endLow;
  std::uint32_t kind;
};

// One key: what a sample within its tolerance answers.
struct TcurveSampler::Tkey {
  double value;
  // Lower tolerance bound (float bits), or the ticks.
  std::uint32_t low;
  // Whether a time can lie within the tolerance of this key and of the next
  // at once: then which one the curve's search finds depends on its path.
  std::uint32_t tiesNext;
};

// The head of the block: its layout and what only samples beyond the keys read.
struct TcurveSampler::Tblock {
  std::size_t bytes;
  std::size_t searchOffset;
  std::size_t spansOffset;
  std::size_t keysOffset;
  std::size_t weightedOffset;  // 0 without weighted spans
  // The keyed range as the infinities see it: key 0 and the last live key.
  float start;
  float end;
  float range;  // end - start, rounded as the curve rounds it
  std::int32_t startTicks;
  std::int32_t endTicks;
  std::int32_t preType;
  std::int32_t postType;
  double startValue;
  double endValue;
  double endRise;  // endValue - startValue
  double preSlope;
  double postSlope;
};

// --- Construction ---------------------------------------------------------------------------

TcurveSampler::TcurveSampler(const TparamCurve& curve) {
  static_assert(sizeof(Tspan) == 48, "one span record is meant to fit in a cache line");
  if (curve.isFloat()) fMode |= kFloatTimes;
  if (curve.isWeighted()) fMode |= kWeightedTangents;
  // Evaluation counts live keys but searches the whole array, where keys
  // marked for deferred deletion stay until they go.
  const unsigned count = curve.keyframeCount();
  unsigned physical = 0;
  while (curve.keyframe(physical)) ++physical;
  if (count == 0 || physical < count) return;
  const bool ticks = !curve.isFloat();
  const bool weighted = curve.isWeighted();
  if (ticks) fMode |= kTickTimes;
  if (curve.staticCurve()) fMode |= kStaticCurve;

  const std::size_t spans = physical - 1;
  Tblock layout{};
  layout.searchOffset = wholeLines(sizeof(Tblock));
  layout.spansOffset = layout.searchOffset + wholeLines(sizeof(std::uint32_t) * physical);
  layout.keysOffset = layout.spansOffset + wholeLines(sizeof(Tspan) * spans);
  const std::size_t keysEnd = layout.keysOffset + wholeLines(sizeof(Tkey) * physical);
  layout.weightedOffset = weighted && spans > 0 ? keysEnd : 0;
  layout.bytes = keysEnd + (layout.weightedOffset ? wholeLines(sizeof(TweightedSpan) * spans) : 0);

  auto* bytes = static_cast<std::byte*>(::operator new(layout.bytes, kBlockAlignment));
  Tblock* block = new (bytes) Tblock(layout);
  auto* search = reinterpret_cast<std::uint32_t*>(bytes + layout.searchOffset);
  auto* spanArray = reinterpret_cast<Tspan*>(bytes + layout.spansOffset);
  auto* keyArray = reinterpret_cast<Tkey*>(bytes + layout.keysOffset);
  TweightedSpan* weightedArray = nullptr;
  if (layout.weightedOffset) {
    weightedArray = reinterpret_cast<TweightedSpan*>(bytes + layout.weightedOffset);
    for (std::size_t i = 0; i < spans; ++i) new (weightedArray + i) TweightedSpan();
  }

  // Keys: the bounds of the curve's tolerant order (float curves), computed
  // with its float arithmetic, or the ticks.
  bool ordered = true;
  for (unsigned i = 0; i < physical; ++i) {
    const Tkeyframe* key = curve.keyframe(i);
    Tkey& k = *new (keyArray + i) Tkey{key->value(), 0, 0};
    if (ticks) {
      const std::int32_t t = key->timeAsTicks();
      k.low = search[i] = std::bit_cast<std::uint32_t>(t);
      if (i > 0) {
        const std::int32_t before = std::bit_cast<std::int32_t>(search[i - 1]);
        ordered = ordered && before <= t;
        keyArray[i - 1].tiesNext = t <= before;
      }
    } else {
      const float time = key->timeAsFloat();
      const float low = time - Tkeyframe::kTimeTolerance;
      const float high = time + Tkeyframe::kTimeTolerance;
      k.low = std::bit_cast<std::uint32_t>(low);
      search[i] = std::bit_cast<std::uint32_t>(high);
      if (i > 0) {
        const float lowBefore = std::bit_cast<float>(keyArray[i - 1].low);
        const float highBefore = std::bit_cast<float>(search[i - 1]);
        ordered = ordered && lowBefore <= low && highBefore <= high;
        keyArray[i - 1].tiesNext = !(low > highBefore);
      }
    }
  }
  if (!ordered) fMode |= kUnordered;

  // Spans, loaded as the curve loads the span it evaluates.
  constexpr double kThird = 0.3333333333333333;
  for (unsigned i = 0; i + 1 < physical; ++i) {
    const Tkeyframe* a = curve.keyframe(i);
    const Tkeyframe* b = curve.keyframe(i + 1);
    Tspan& s = *new (spanArray + i) Tspan{};
    s.endLow = keyArray[i + 1].low;
    const double t0 = curve.seconds(a);
    const double t3 = curve.seconds(b);
    const double y0 = a->value();
    const double y3 = b->value();
    switch (a->interpMethod()) {
      case Tkeyframe::kSpanLinear:
        s.kind = t0 == t3 ? kConstantSpan : kLinearSpan;
        s.cubic.x0 = t0;
        s.cubic.a = t3 - t0;
        s.cubic.b = y3 - y0;
        s.cubic.d = y0;
        break;
      case Tkeyframe::kSpanStep:
        s.kind = kConstantSpan;
        s.cubic.d = y0;
        break;
      case Tkeyframe::kSpanCurve:
      default: {
        float ox = 0.0f, oy = 0.0f, ix = 0.0f, iy = 0.0f;
        a->getTanOut(ox, oy);
        b->getTanIn(ix, iy);
        double x1 = t0 + ox * kThird;
        double y1 = y0 + oy * kThird;
        double x2 = t3 - ix * kThird;
        double y2 = y3 - iy * kThird;
        if (weighted) {
          // A span without duration is refused and keeps the span a fresh
          // evaluator starts with, as the evaluator of a fresh curve does.
          s.kind = kWeightedSpan;
          weightedArray[i].load(t0, y0, x1, y1, x2, y2, t3, y3, /*keepFirst=*/true);
        } else {
          s.kind = kCubicSpan;
          s.cubic = ThermiteSpan::fromControlPoints(t0, y0, x1, y1, x2, y2, t3, y3);
        }
        break;
      }
    }
  }

  // Infinities: the keyed range runs from key 0 to the last live key.
  const Tkeyframe* first = curve.keyframe(0);
  const Tkeyframe* last = curve.keyframe(count - 1);
  block->start = curve.seconds(first);
  block->end = curve.seconds(last);
  block->range = block->end - block->start;
  block->startTicks = ticks ? first->timeAsTicks() : 0;
  block->endTicks = ticks ? last->timeAsTicks() : 0;
  block->preType = curve.preInfinityType();
  block->postType = curve.postInfinityType();
  block->startValue = first->value();
  block->endValue = last->value();
  block->endRise = block->endValue - block->startValue;
  const auto slopeOf = [&curve](unsigned index) {
    return std::tan(curve.tangentAngle(index, /*inSide=*/true, 1.0f, 1.0f).radians());
  };
  block->preSlope = block->preType == TparamCurve::kLinear ? slopeOf(0) : 0.0;
  block->postSlope = block->postType == TparamCurve::kLinear ? slopeOf(count - 1) : 0.0;

  fBlock = block;
  fSearch = search;
  fSpans = spanArray;
  fKeys = keyArray;
  fWeighted = weightedArray;
  fPhysical = physical;
  fCount = count;
  fPreBound = block->preType != TparamCurve::kConstant ? block->start : -kInfinity;
  fPostBound = block->postType != TparamCurve::kConstant ? block->end : kInfinity;
}

TcurveSampler::TcurveSampler(const TcurveSampler& other) {
  adopt(other);
}

TcurveSampler& TcurveSampler::operator=(const TcurveSampler& other) {
  if (this != &other) {
    TcurveSampler copy(other);  // allocates first: a failure leaves this sampler as it was
    *this = std::move(copy);
  }
  return *this;
}

TcurveSampler::TcurveSampler(TcurveSampler&& other) noexcept {
  take(other);
}

TcurveSampler& TcurveSampler::operator=(TcurveSampler&& other) noexcept {
  if (this != &other) {
    release();
    take(other);
  }
  return *this;
}

TcurveSampler::~TcurveSampler() {
  release();
}

void TcurveSampler::take(TcurveSampler& other) {
  fBlock = other.fBlock;
  fSearch = other.fSearch;
  fSpans = other.fSpans;
  fKeys = other.fKeys;
  fWeighted = other.fWeighted;
  fPhysical = other.fPhysical;
  fCount = other.fCount;
  fMode = other.fMode;
  fPreBound = other.fPreBound;
  fPostBound = other.fPostBound;
  other.forget();
}

void TcurveSampler::adopt(const TcurveSampler& other) {
  if (!other.fBlock) {
    fMode = other.fMode;
    return;
  }
  // Everything in the block is plain data, and the arrays sit at the offsets
  // its head records: a byte copy is a complete copy.
  const std::size_t size = other.fBlock->bytes;
  auto* bytes = static_cast<std::byte*>(::operator new(size, kBlockAlignment));
  std::memcpy(bytes, other.fBlock, size);
  fBlock = reinterpret_cast<Tblock*>(bytes);
  fSearch = bytes + fBlock->searchOffset;
  fSpans = reinterpret_cast<const Tspan*>(bytes + fBlock->spansOffset);
  fKeys = reinterpret_cast<const Tkey*>(bytes + fBlock->keysOffset);
  fWeighted = fBlock->weightedOffset ? bytes + fBlock->weightedOffset : nullptr;
  fPhysical = other.fPhysical;
  fCount = other.fCount;
  fMode = other.fMode;
  fPreBound = other.fPreBound;
  fPostBound = other.fPostBound;
}

void TcurveSampler::forget() {
  fBlock = nullptr;
  fSearch = nullptr;
  fSpans = nullptr;
  fKeys = nullptr;
  fWeighted = nullptr;
  fPhysical = 0;
  fCount = 0;
  fMode = 0;
  fPreBound = 0.0f;
  fPostBound = 0.0f;
}

void TcurveSampler::release() {
  if (fBlock) ::operator delete(fBlock, kBlockAlignment);
  forget();
}

// --- Sampling -----------------------------------------------------------------------------

inline double TcurveSampler::spanValue(unsigned index, double seconds) const {
  const Tspan& s = fSpans[index];
  switch (s.kind) {
    case kCubicSpan:
      return s.cubic.evaluate(seconds);
    case kLinearSpan:
      return s.cubic.d + (seconds - s.cubic.x0) / s.cubic.a * s.cubic.b;
    case kConstantSpan:
      return s.cubic.d;
    default:
      return static_cast<const TweightedSpan*>(fWeighted)[index].evaluate(seconds);
  }
}

// The curve's binary search, step for step, and the answer it gives for what
// it finds: a key's value, or the span before the insertion position.
template <typename Key>
double TcurveSampler::searchLikeCurve(Key probe, double seconds) const {
  const Key* high = static_cast<const Key*>(fSearch);
  std::int64_t lo = 0;
  std::int64_t hi = static_cast<std::int64_t>(fPhysical) - 1;
  while (lo <= hi) {
    const std::int64_t mid = (lo + hi) >> 1;
    if (probe < std::bit_cast<Key>(fKeys[mid].low)) {
      hi = mid - 1;
    } else if (probe > high[mid]) {
      lo = mid + 1;
    } else {
      return fKeys[mid].value;  // found
    }
  }
  const auto index = static_cast<unsigned>(lo);
  if (index >= fCount) return fKeys[fCount - 1].value;
  if (index > 0) return spanValue(index - 1, seconds);
  return fKeys[0].value;
}

// The value of key `index`, which the probe lies within the tolerance of,
// unless it lies within the next key's too; then the curve's search decides.
template <typename Key>
double TcurveSampler::keyOrSearch(unsigned index, Key probe, double seconds) const {
  const Tkey& k = fKeys[index];
  if (k.tiesNext && !(probe < std::bit_cast<Key>(fKeys[index + 1].low))) {
    return searchLikeCurve(probe, seconds);
  }
  return k.value;
}

// Evaluation inside the keys for a probe (float seconds or ticks) and the
// seconds a span is evaluated at. With the keys in order the curve's tolerant
// order runs: after, ..., after, at, ..., at, before, ..., before. Its binary
// search ends in the run of keys "at" the probe when there is one, and at
// its start otherwise; the start is the first key whose upper bound is not
// below the probe. Only a run of two or more keys leaves the choice to the
// search's path.
template <typename Key>
inline double TcurveSampler::inside(Key probe, double seconds) const {
  if (fMode & (kStaticCurve | kUnordered)) [[unlikely]] {
    if (fMode & kStaticCurve) return fKeys[0].value;
    return searchLikeCurve(probe, seconds);
  }
  return fromFirst(countBelow(static_cast<const Key*>(fSearch), fPhysical, probe), probe, seconds);
}

// The answer for keys in order, given the first key whose upper bound is not
// below the probe.
template <typename Key>
inline double TcurveSampler::fromFirst(unsigned first, Key probe, double seconds) const {
  if (first - 1u < fPhysical - 1u) [[likely]] {
    // Keys on both sides: the span before `first`, unless the probe is at it.
    if (probe < std::bit_cast<Key>(fSpans[first - 1].endLow)) [[likely]] {
      // Past the live keys (deferred deletion) the last live key answers.
      return first < fCount ? spanValue(first - 1, seconds) : fKeys[fCount - 1].value;
    }
    return keyOrSearch(first, probe, seconds);
  }
  // Before the first key, or at it, key 0 answers; after every key the last
  // live one.
  if (first == 0) return keyOrSearch(0u, probe, seconds);
  return fKeys[fCount - 1].value;
}

// Beyond the keys of a curve whose infinity is not constant. `mapToTicks`:
// the mapped time becomes a tick time (time values on tick curves) instead of
// staying float seconds.
double TcurveSampler::beyondKeys(float seconds, bool pre, bool afterEnd, bool mapToTicks) const {
  const Tblock& b = *fBlock;
  if (b.range == 0.0f) return b.startValue;
  const int type = pre ? b.preType : b.postType;
  if (type == TparamCurve::kLinear) {
    const float distance = pre ? b.start - seconds : seconds - b.end;
    return continueAlong(pre ? b.startValue : b.endValue, pre ? b.preSlope : b.postSlope, distance,
                         pre);
  }
  const internal::Tmapped m =
      internal::mapIntoRange(seconds, b.start, b.end, b.range, afterEnd, type, pre);
  double v = 0.0;
  if (mapToTicks) {
    const std::int32_t ticks = secondsToTicks(m.local);
    v = inside(ticks, static_cast<double>(TanimTime(ticks).inSeconds()));
  } else if (std::isnan(m.local)) {
    v = kNaN;
  } else if (fMode & kTickTimes) {
    v = inside(secondsToTicks(m.local), static_cast<double>(m.local));
  } else {
    v = inside(m.local, static_cast<double>(m.local));
  }
  if (type != TparamCurve::kCycleRelative) return v;
  return shiftForCycles(v, b.endRise, m.cycles, pre);
}

double TcurveSampler::sampleTicksCurve(float seconds) const {
  const Tblock& b = *fBlock;
  const std::int32_t ticks = secondsToTicks(seconds);
  if (b.preType != TparamCurve::kConstant && ticks < b.startTicks) {
    return beyondKeys(seconds, /*pre=*/true, seconds > b.end, false);
  }
  if (b.postType != TparamCurve::kConstant && b.end < seconds) {
    return beyondKeys(seconds, /*pre=*/false, true, false);
  }
  return inside(ticks, static_cast<double>(seconds));
}

inline double TcurveSampler::sampleSeconds(float seconds) const {
  if (std::isnan(seconds)) return kNaN;
  if (fCount == 0) return 0.0;
  if (fMode & kTickTimes) return sampleTicksCurve(seconds);
  if (seconds < fPreBound) return beyondKeys(seconds, /*pre=*/true, seconds > fBlock->end, false);
  if (seconds > fPostBound) return beyondKeys(seconds, /*pre=*/false, true, false);
  return inside(seconds, static_cast<double>(seconds));
}

double TcurveSampler::evaluate(float seconds) const {
  return sampleSeconds(seconds);
}

double TcurveSampler::evaluate(const TtimeValue& t) const {
  if (t.isFloat() && std::isnan(t.asFloat())) return kNaN;
  if (fCount == 0) return 0.0;
  // On float curves a time value of any kind compares, searches and maps
  // through its seconds, as a float sample does.
  if (!(fMode & kTickTimes)) return sampleSeconds(t.inSeconds());
  // On tick curves ticks compare with ticks; other times through seconds,
  // searched as the nearest tick. Mapped times become ticks.
  const Tblock& b = *fBlock;
  const float seconds = t.inSeconds();
  const bool pre = b.preType != TparamCurve::kConstant;
  const bool post = b.postType != TparamCurve::kConstant;
  if (t.isAnimTime()) {
    const std::int32_t ticks = t.asAnimTime().inTicks();
    if (pre && ticks < b.startTicks) return beyondKeys(seconds, true, ticks > b.endTicks, true);
    if (post && ticks > b.endTicks) return beyondKeys(seconds, false, true, true);
    return inside(ticks, static_cast<double>(seconds));
  }
  if (pre && seconds < b.start) return beyondKeys(seconds, true, b.end < seconds, true);
  if (post && b.end < seconds) return beyondKeys(seconds, false, true, true);
  return inside(secondsToTicks(seconds), static_cast<double>(seconds));
}

// Batches are sampled a group at a time. Searching a sampler is a chain of
// dependent loads, each waiting on the cache; the searches of a group advance
// in step, so that their loads are in flight together and the waits overlap.
// Lanes that need more than a float search inside the keys (and null lanes,
// NaN times) take the single-sample path. `samplers` and `times` hold one
// entry per lane; a lane's sampler may be null (NaN).
void TcurveSampler::sampleGroup(const TcurveSampler* const* samplers, const float* times,
                                unsigned lanes, double* values) {
  constexpr std::uint32_t kSearchedDirectly = kTickTimes | kStaticCurve | kUnordered;
  // Lanes without a search of their own search one key above any time:
  // every lane then takes every step, and the steps unroll.
  const float none = kInfinity;
  const TcurveSampler* direct[kGroup];
  const float* base[kGroup];
  const float* start[kGroup];
  unsigned length[kGroup];
  float probe[kGroup];
  unsigned longest = 0;
  for (unsigned k = 0; k < kGroup; ++k) {
    direct[k] = nullptr;
    base[k] = &none;
    length[k] = 1;
    probe[k] = 0.0f;
    if (k >= lanes) continue;
    const TcurveSampler* s = samplers[k];
    const float t = times[k];
    if (!s) {
      values[k] = kNaN;
    } else if (s->fCount == 0 || (s->fMode & kSearchedDirectly) || !(t >= s->fPreBound) ||
               t > s->fPostBound) {
      values[k] = s->sampleSeconds(t);  // also NaN
    } else {
      direct[k] = s;
      base[k] = static_cast<const float*>(s->fSearch);
      length[k] = s->fPhysical;
      probe[k] = t;
      if (s->fPhysical > longest) longest = s->fPhysical;
    }
  }
  for (unsigned k = 0; k < kGroup; ++k) start[k] = base[k];
  // countBelow for every lane at once: the lanes halve their ranges in step,
  // and a finished lane (length 1) stays where it is.
  for (unsigned n = longest; n > 1; n -= n / 2) {
    for (unsigned k = 0; k < kGroup; ++k) {
      const unsigned half = length[k] / 2;
      base[k] = stepBelow(base[k], half, probe[k]);
      length[k] -= half;
    }
  }
  // The spans are read only after every lane has asked for its own.
  unsigned first[kGroup];
  for (unsigned k = 0; k < lanes; ++k) {
    if (!direct[k]) continue;
    first[k] = static_cast<unsigned>(base[k] - start[k]) + (*base[k] < probe[k] ? 1u : 0u);
#if defined(__GNUC__)
    __builtin_prefetch(direct[k]->fSpans + (first[k] ? first[k] - 1 : 0));
#endif
  }
  for (unsigned k = 0; k < lanes; ++k) {
    if (direct[k]) values[k] = direct[k]->fromFirst(first[k], probe[k], probe[k]);
  }
}

bool TcurveSampler::evaluate(unsigned count, const double* times, double* values) const {
  if (count == 0) return true;
  if (!times || !values) return false;
  const TcurveSampler* const self[kGroup] = {this, this, this, this, this, this, this, this};
  float group[kGroup];
  for (unsigned begin = 0; begin < count; begin += kGroup) {
    const unsigned lanes = count - begin < kGroup ? count - begin : kGroup;
    for (unsigned k = 0; k < lanes; ++k) group[k] = static_cast<float>(times[begin + k]);
    sampleGroup(self, group, lanes, values + begin);
  }
  return true;
}

bool TcurveSampler::evaluateAll(unsigned count, const TcurveSampler* const* samplers, float seconds,
                                double* values) {
  if (count == 0) return true;
  if (!samplers || !values) return false;
  float group[kGroup];
  for (float& t : group) t = seconds;
  for (unsigned begin = 0; begin < count; begin += kGroup) {
    const unsigned lanes = count - begin < kGroup ? count - begin : kGroup;
#if defined(__GNUC__)
    // The next group's samplers may lie anywhere: ask for them now.
    for (unsigned k = begin + kGroup; k < begin + 2 * kGroup && k < count; ++k) {
      __builtin_prefetch(samplers[k]);
    }
#endif
    sampleGroup(samplers + begin, group, lanes, values + begin);
  }
  return true;
}

// --- Queries --------------------------------------------------------------------------------

float TcurveSampler::startSeconds() const {
  return fBlock ? fBlock->start : 0.0f;
}

float TcurveSampler::endSeconds() const {
  return fBlock ? fBlock->end : 0.0f;
}

}  // namespace lumora
