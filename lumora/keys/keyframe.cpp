#include "lumora/keys/keyframe.h"

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <new>

#include "lumora/base/arena.h"
#include "lumora/base/metaclass.h"
#include "lumora/base/preference.h"
#include "lumora/keys/internal/key_pool.h"
#include "lumora/prefs/internal/prefs_module.h"
#include "lumora/prefs/pref_keyframe.h"

// Under AddressSanitizer a key handed back to the pool is poisoned until the
// pool hands it out again, so that a read of a deleted key is reported even
// though its memory stays with the pool.
#if defined(__SANITIZE_ADDRESS__)
#define LUMORA_POISON_KEYS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LUMORA_POISON_KEYS 1
#endif
#endif
#ifdef LUMORA_POISON_KEYS
#include <sanitizer/asan_interface.h>
#endif

namespace lumora {

namespace {

void poisonKey(void* p) {
#ifdef LUMORA_POISON_KEYS
  ASAN_POISON_MEMORY_REGION(p, sizeof(Tkeyframe));
#else
  (void)p;
#endif
}

void unpoisonKey(void* p) {
#ifdef LUMORA_POISON_KEYS
  ASAN_UNPOISON_MEMORY_REGION(p, sizeof(Tkeyframe));
#else
  (void)p;
#endif
}

// Bit of each tangent type in the in-side group (bits 0..9); the out side uses
// the same layout shifted by 11.
constexpr unsigned kOutShift = 11;
constexpr std::uint32_t kSideMask = 0x3FFu;

unsigned typeBit(TtangentType type) {
  switch (type) {
    case kTangentSmooth:
      return 0;
    case kTangentFixed:
      return 1;
    case kTangentLinear:
      return 2;
    case kTangentFlat:
      return 3;
    case kTangentStep:
      return 4;
    case kTangentSlow:
      return 5;
    case kTangentFast:
      return 6;
    case kTangentClampedSmooth:
      return 7;
    case kTangentClamped:
      return 9;
    default:
      return 8;  // spline, and every value outside 1..10
  }
}

// Decoding order is fixed: the first bit that is set wins, so a corrupt word
// with several type bits still decodes the same way everywhere.
struct TdecodeEntry {
  unsigned bit;
  TtangentType type;
};
constexpr TdecodeEntry kDecodeOrder[] = {
    {8, kTangentSpline}, {1, kTangentFixed},        {2, kTangentLinear}, {3, kTangentFlat},
    {4, kTangentStep},   {5, kTangentSlow},         {6, kTangentFast},   {9, kTangentClamped},
    {0, kTangentSmooth}, {7, kTangentClampedSmooth}};

TtangentType decodeSide(std::uint32_t side) {
  for (const auto& entry : kDecodeOrder) {
    if (side & (1u << entry.bit)) return entry.type;
  }
  return kTangentSpline;
}

// The bits of one side that decode as `type` when set alone, and the bits
// that win over it: the side decodes as `type` exactly when its own bit is set
// and none of the winners is.
constexpr std::uint32_t bitOf(TtangentType type) {
  for (const auto& entry : kDecodeOrder) {
    if (entry.type == type) return 1u << entry.bit;
  }
  return 0;
}
constexpr std::uint32_t bitsBefore(TtangentType type) {
  std::uint32_t bits = 0;
  for (const auto& entry : kDecodeOrder) {
    if (entry.type == type) break;
    bits |= 1u << entry.bit;
  }
  return bits;
}

// interpMethod() runs for every evaluated span, so the out side's step test
// is one mask instead of a full decode.
constexpr std::uint32_t kOutStepBit = bitOf(kTangentStep) << kOutShift;
constexpr std::uint32_t kOutStepTestMask = kOutStepBit | (bitsBefore(kTangentStep) << kOutShift);

// The value rule: saturate at +-DBL_MAX, magnitudes below 1e-10 (and NaN)
// become exactly 0.
double clampValue(double v) {
  if (std::isnan(v)) return 0.0;
  if (v < -DBL_MAX) return -DBL_MAX;
  if (v >= DBL_MAX) return DBL_MAX;
  if (v > -1e-10 && v < 1e-10) return 0.0;
  return v;
}

float clampTangentComponent(float v) {
  if (std::isnan(v)) return 0.0f;
  if (v <= -FLT_MAX) return -FLT_MAX;
  if (v >= FLT_MAX) return FLT_MAX;
  if (v > -1e-5f && v < 1e-5f) return 0.0f;
  return v;
}

// The flag bits of a side's type, as setTanInType would store them.
std::uint32_t sideBits(TtangentType type) {
  return 1u << typeBit(type);
}

// Replaces a 0 ("use the default") by the keyframe preference item's default
// type, or by spline when there is no item or the item itself holds 0.
void resolveGlobalTypes(TtangentType& in, TtangentType& out) {
  const TprefKeyframe* pref = internal::keyframePreference();
  if (in == kTangentGlobal) in = pref ? pref->inTangentType() : kTangentSpline;
  if (out == kTangentGlobal) out = pref ? pref->outTangentType() : kTangentSpline;
  if (in == kTangentGlobal) in = kTangentSpline;
  if (out == kTangentGlobal) out = kTangentSpline;
}

}  // namespace

// --- Construction -------------------------------------------------------------

void Tkeyframe::initialise(double value, float w, TtangentType in, TtangentType out) {
  fValue = value;
  fTanInX = fTanInY = fTanOutX = fTanOutY = 0.0f;
  fFlags.clear();
  fQuaternionEulerCache = nullptr;
  fQuaternionW = w;
  // Keys are made by the million when curves load, so the flag word is built
  // in one go: the two types (0 resolved through the preference item), not
  // locked, tangents and weights locked, a curve span.
  if (in == kTangentGlobal || out == kTangentGlobal) resolveGlobalTypes(in, out);
  fFlags.setBits(sideBits(in) | (sideBits(out) << kOutShift) | (1u << kBitTangentsLocked) |
                 (1u << kBitWeightsLocked));
}

Tkeyframe::Tkeyframe() {
  initialise(0.0, 1.0f, kTangentGlobal, kTangentGlobal);
}

Tkeyframe::Tkeyframe(float seconds, double value, TtangentType in, TtangentType out)
    : fTime(std::bit_cast<std::uint32_t>(seconds)) {
  initialise(value, 1.0f, in, out);
}

Tkeyframe::Tkeyframe(TanimTime ticks, double value, TtangentType in, TtangentType out)
    : fTime(static_cast<std::uint32_t>(ticks.inTicks())) {
  initialise(value, 1.0f, in, out);
}

Tkeyframe::Tkeyframe(const TtimeValue& time, double value, TtangentType in, TtangentType out) {
  initialise(value, 1.0f, in, out);
  if (time.isAnimTime()) {
    fTime = static_cast<std::uint32_t>(time.asAnimTime().inTicks());
  } else if (time.isFloat()) {
    fTime = std::bit_cast<std::uint32_t>(time.asFloat());
  }
}

Tkeyframe::Tkeyframe(float seconds, double value, double w, TtangentType in, TtangentType out)
    : fTime(std::bit_cast<std::uint32_t>(seconds)) {
  initialise(value, static_cast<float>(w), in, out);
}

Tkeyframe::Tkeyframe(TanimTime ticks, double value, double w, TtangentType in, TtangentType out)
    : fTime(static_cast<std::uint32_t>(ticks.inTicks())) {
  initialise(value, static_cast<float>(w), in, out);
}

Tkeyframe::Tkeyframe(const TtimeValue& time, double value, double w, TtangentType in,
                     TtangentType out)
    : Tkeyframe(time, value, in, out) {
  fQuaternionW = static_cast<float>(w);
}

Tkeyframe::Tkeyframe(const Tkeyframe& other) {
  *this = other;
  fFlags.setBit(kBitKeyActive, false);
  fFlags.setBit(kBitInTangentActive, false);
  fFlags.setBit(kBitOutTangentActive, false);
}

Tkeyframe& Tkeyframe::operator=(const Tkeyframe& other) {
  if (this == &other) return *this;
  const bool keyActive = isKeyframeActive();
  const bool inActive = isInTangentActive();
  const bool outActive = isOutTangentActive();
  const bool deleted = toBeDeleted();

  fValue = other.fValue;
  fTime = other.fTime;
  fTanInX = other.fTanInX;
  fTanInY = other.fTanInY;
  fTanOutX = other.fTanOutX;
  fTanOutY = other.fTanOutY;
  fQuaternionW = other.fQuaternionW;
  fFlags = other.fFlags;
  fQuaternionEulerCache = nullptr;

  // Selection belongs to the key object, not to its content.
  setActive(TbitField32(TpickKey::kPickKey | TpickKey::kPickInTangent | TpickKey::kPickOutTangent),
            false);
  if (keyActive) setActive(TbitField32(TpickKey::kPickKey), true);
  if (inActive) setActive(TbitField32(TpickKey::kPickInTangent), true);
  if (outActive) setActive(TbitField32(TpickKey::kPickOutTangent), true);
  setToBeDeleted(deleted);
  return *this;
}

void* Tkeyframe::operator new(std::size_t size) {
  TcompactArena* pool = internal::keyPool();
  void* p = nullptr;
  if (pool && !TpureArena::sPurifyInUse) p = pool->allocate(size, alignof(Tkeyframe));
  if (p) {
    unpoisonKey(p);
    return p;
  }
  p = std::malloc(size);
  if (!p) throw std::bad_alloc();
  return p;
}

void Tkeyframe::operator delete(void* p) noexcept {
  if (!p) return;
  TcompactArena* pool = internal::keyPool();
  // Poisoned before the pool takes it back: the pool never reads a slot, and
  // may hand an emptied page back to the system allocator.
  poisonKey(p);
  if (pool && pool->deallocate(p)) return;
  unpoisonKey(p);
  std::free(p);  // a block taken from malloc while a memory checker was in use
}

// --- Value and time ------------------------------------------------------------

Tkeyframe& Tkeyframe::setValue(double v) {
  fValue = clampValue(v);
  return *this;
}

Tkeyframe& Tkeyframe::setTime(float seconds) {
  fTime = std::bit_cast<std::uint32_t>(seconds);
  return *this;
}

Tkeyframe& Tkeyframe::setTime(TanimTime ticks) {
  fTime = static_cast<std::uint32_t>(ticks.inTicks());
  return *this;
}

Tkeyframe& Tkeyframe::setTime(const TtimeValue& time) {
  if (time.isAnimTime()) return setTime(time.asAnimTime());
  if (!time.isFloat()) {
    fTime = 0;
    return *this;
  }
  float t = time.asFloat();
  if (std::isnan(t)) {
    t = 0.0f;
  } else if (t <= -FLT_MAX) {
    t = -FLT_MAX;
  } else if (t >= FLT_MAX) {
    t = FLT_MAX;
  } else if (t > -1e-5f && t < 1e-5f) {
    t = 0.0f;
  }
  return setTime(t);
}

Tkeyframe& Tkeyframe::setTimeAndValue(const TtimeValue& time, double value, double w) {
  setTime(time);
  setValue(value);
  fQuaternionW = static_cast<float>(clampValue(w));
  return *this;
}

// --- Tangents --------------------------------------------------------------------

void Tkeyframe::getTangent(TpickKey::TpickBits which, float& x, float& y) const {
  if (which == kInSide) {
    getTanIn(x, y);
  } else {
    getTanOut(x, y);
  }
}

Tkeyframe& Tkeyframe::setTangent(TpickKey::TpickBits which, float x, float y) {
  return which == kInSide ? setTanIn(x, y) : setTanOut(x, y);
}

Tkeyframe& Tkeyframe::setTanIn(float x, float y) {
  fTanInX = x < 0.0f ? 0.0f : clampTangentComponent(x);
  fTanInY = clampTangentComponent(y);
  return *this;
}

Tkeyframe& Tkeyframe::setTanOut(float x, float y) {
  fTanOutX = x < 0.0f ? 0.0f : clampTangentComponent(x);
  fTanOutY = clampTangentComponent(y);
  return *this;
}

TtangentType Tkeyframe::tanInType() const {
  return decodeSide(fFlags.bits() & kSideMask);
}

TtangentType Tkeyframe::tanOutType() const {
  return decodeSide((fFlags.bits() >> kOutShift) & kSideMask);
}

Tkeyframe& Tkeyframe::setTanInType(TtangentType type) {
  if (type == kTangentGlobal) {
    updateGlobalTangentTypes(kTangentGlobal, tanOutType());
    return *this;
  }
  fFlags.setBits((fFlags.bits() & ~kSideMask) | (1u << typeBit(type)));
  return *this;
}

Tkeyframe& Tkeyframe::setTanOutType(TtangentType type) {
  if (type == kTangentGlobal) {
    updateGlobalTangentTypes(tanInType(), kTangentGlobal);
    return *this;
  }
  fFlags.setBits((fFlags.bits() & ~(kSideMask << kOutShift)) | (1u << (typeBit(type) + kOutShift)));
  return *this;
}

TtangentType Tkeyframe::tangentType(TpickKey::TpickBits which) const {
  return which == kInSide ? tanInType() : tanOutType();
}

Tkeyframe& Tkeyframe::setTangentType(TpickKey::TpickBits which, TtangentType type) {
  return which == kInSide ? setTanInType(type) : setTanOutType(type);
}

void Tkeyframe::updateGlobalTangentTypes(TtangentType in, TtangentType out) {
  // A preference holding 0 must not send us round again: resolving never
  // leaves a 0 behind.
  if (in == kTangentGlobal || out == kTangentGlobal) resolveGlobalTypes(in, out);
  setTanInType(in);
  setTanOutType(out);
}

Tkeyframe::TspanInterpMethod Tkeyframe::interpMethod() const {
  const std::uint32_t bits = fFlags.bits();
  if (bits & (1u << kBitLinearSpan)) return kSpanLinear;
  // Equivalent to tanOutType() == kTangentStep.
  if ((bits & kOutStepTestMask) == kOutStepBit) return kSpanStep;
  return kSpanCurve;
}

Tkeyframe& Tkeyframe::setInterpMethod(int method) {
  return setBit(kBitLinearSpan, method == kSpanLinear);
}

// --- Flags ----------------------------------------------------------------------

Tkeyframe& Tkeyframe::setActive(const TbitField32& mask, bool on) {
  if (!on) {
    if (mask.testBit(0)) fFlags.setBit(kBitKeyActive, false);
    if (mask.testBit(1)) fFlags.setBit(kBitInTangentActive, false);
    if (mask.testBit(2)) fFlags.setBit(kBitOutTangentActive, false);
    return *this;
  }
  const TbitField32 current((fFlags.bits() & kActiveMask) >> kBitKeyActive);
  const TbitField32 merged = TpickKey::merge(current, mask);
  fFlags.setBits((fFlags.bits() & ~kActiveMask) | ((merged.bits() & 7u) << kBitKeyActive));
  return *this;
}

// --- Tolerant comparison ----------------------------------------------------------

bool Tkeyframe::operator==(const Tkeyframe& o) const {
  return std::fabs(timeAsFloat() - o.timeAsFloat()) <= kTimeTolerance;
}
bool Tkeyframe::operator!=(const Tkeyframe& o) const {
  return std::fabs(timeAsFloat() - o.timeAsFloat()) > kTimeTolerance;
}
bool Tkeyframe::operator<(const Tkeyframe& o) const {
  return timeAsFloat() < o.timeAsFloat() - kTimeTolerance;
}
bool Tkeyframe::operator>(const Tkeyframe& o) const {
  return timeAsFloat() > o.timeAsFloat() + kTimeTolerance;
}
bool Tkeyframe::operator<=(const Tkeyframe& o) const {
  return timeAsFloat() <= o.timeAsFloat() + kTimeTolerance;
}
bool Tkeyframe::operator>=(const Tkeyframe& o) const {
  return timeAsFloat() >= o.timeAsFloat() - kTimeTolerance;
}

}  // namespace lumora
