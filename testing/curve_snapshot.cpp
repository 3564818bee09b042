#include "testing/curve_snapshot.h"

#include <bit>
#include <cstdio>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"

namespace lumora {

TkeySnapshot snapshotOf(const Tkeyframe& key, std::uint32_t flagMask) {
  TkeySnapshot s;
  float x = 0.0f, y = 0.0f;
  s.address = reinterpret_cast<std::uintptr_t>(&key);
  s.timeBits = static_cast<std::uint32_t>(key.timeAsTicks());
  s.valueBits = std::bit_cast<std::uint64_t>(key.value());
  key.getTanIn(x, y);
  s.tanInX = std::bit_cast<std::uint32_t>(x);
  s.tanInY = std::bit_cast<std::uint32_t>(y);
  key.getTanOut(x, y);
  s.tanOutX = std::bit_cast<std::uint32_t>(x);
  s.tanOutY = std::bit_cast<std::uint32_t>(y);
  s.flags = key.flags().bits() & flagMask;
  s.tanInType = key.tanInType();
  s.tanOutType = key.tanOutType();
  s.quaternionWBits = std::bit_cast<std::uint32_t>(key.quaternionW());
  return s;
}

TcurveSnapshot::TcurveSnapshot(const TparamCurve& curve, std::uint32_t flagMask)
    : fIsFloat(curve.isFloat()),
      fPreInfinity(curve.preInfinityType()),
      fPostInfinity(curve.postInfinityType()),
      fWeighted(curve.isWeighted()),
      fStatic(curve.staticCurve()),
      fRotationInterpolation(curve.getRotationInterpolation()),
      fKeyframeCount(curve.keyframeCount()) {
  fKeys.reserve(fKeyframeCount);
  for (unsigned i = 0; i < fKeyframeCount; ++i) {
    const Tkeyframe* key = curve.keyframe(i);
    TkeySnapshot s;
    if (key) s = snapshotOf(*key, flagMask);
    fKeys.push_back(s);
  }
}

namespace {

std::string format(const char* pattern, auto... args) {
  char buffer[256];
  std::snprintf(buffer, sizeof buffer, pattern, args...);
  return buffer;
}

// "name 0x... (decimal) became 0x... (decimal)" for a 32-bit float word.
std::string floatWord(const char* name, std::uint32_t a, std::uint32_t b) {
  return format("%s 0x%08x (%.9g) became 0x%08x (%.9g)", name, a,
                static_cast<double>(std::bit_cast<float>(a)), b,
                static_cast<double>(std::bit_cast<float>(b)));
}

}  // namespace

std::string describeDifference(const TkeySnapshot& a, const TkeySnapshot& b, bool isFloat) {
  if (a.address != b.address) {
    return format("key object %p became %p", reinterpret_cast<void*>(a.address),
                  reinterpret_cast<void*>(b.address));
  }
  if (a.timeBits != b.timeBits) {
    if (isFloat) return floatWord("time", a.timeBits, b.timeBits);
    return format("time %d ticks became %d ticks", static_cast<std::int32_t>(a.timeBits),
                  static_cast<std::int32_t>(b.timeBits));
  }
  if (a.valueBits != b.valueBits) {
    return format("value 0x%016llx (%.17g) became 0x%016llx (%.17g)",
                  static_cast<unsigned long long>(a.valueBits), std::bit_cast<double>(a.valueBits),
                  static_cast<unsigned long long>(b.valueBits), std::bit_cast<double>(b.valueBits));
  }
  if (a.tanInX != b.tanInX) return floatWord("in tangent x", a.tanInX, b.tanInX);
  if (a.tanInY != b.tanInY) return floatWord("in tangent y", a.tanInY, b.tanInY);
  if (a.tanOutX != b.tanOutX) return floatWord("out tangent x", a.tanOutX, b.tanOutX);
  if (a.tanOutY != b.tanOutY) return floatWord("out tangent y", a.tanOutY, b.tanOutY);
  if (a.flags != b.flags) {
    return format("flags 0x%08x became 0x%08x (bits 0x%08x differ)", a.flags, b.flags,
                  a.flags ^ b.flags);
  }
  if (a.quaternionWBits != b.quaternionWBits) {
    return floatWord("quaternion w", a.quaternionWBits, b.quaternionWBits);
  }
  return {};
}

std::string describeDifference(const TcurveSnapshot& expected, const TcurveSnapshot& actual) {
  const TcurveSnapshot& a = expected;
  const TcurveSnapshot& b = actual;
  if (a.fIsFloat != b.fIsFloat) {
    return format("time kind %s became %s", a.fIsFloat ? "float" : "tick",
                  b.fIsFloat ? "float" : "tick");
  }
  if (a.fPreInfinity != b.fPreInfinity) {
    return format("pre infinity %d became %d", a.fPreInfinity, b.fPreInfinity);
  }
  if (a.fPostInfinity != b.fPostInfinity) {
    return format("post infinity %d became %d", a.fPostInfinity, b.fPostInfinity);
  }
  if (a.fWeighted != b.fWeighted) {
    return format("weighted %d became %d", a.fWeighted, b.fWeighted);
  }
  if (a.fStatic != b.fStatic) return format("static %d became %d", a.fStatic, b.fStatic);
  if (a.fRotationInterpolation != b.fRotationInterpolation) {
    return format("rotation interpolation %d became %d", a.fRotationInterpolation,
                  b.fRotationInterpolation);
  }
  if (a.fKeyframeCount != b.fKeyframeCount) {
    return format("keyframeCount %u became %u", a.fKeyframeCount, b.fKeyframeCount);
  }
  for (std::size_t i = 0; i < a.fKeys.size() && i < b.fKeys.size(); ++i) {
    const std::string d = describeDifference(a.fKeys[i], b.fKeys[i], a.fIsFloat);
    if (!d.empty()) return format("key %zu: ", i) + d;
  }
  return {};
}

}  // namespace lumora
