#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/curve/param_curve_test_support.h"

namespace lumora {
namespace {

// Keys (0 s, 0) and (1 s, 10) with a curved segment in between, so that
// mirrored and shifted samples differ from the plain ones.
void twoKeys(TparamCurve& c) {
  for (int i : {0, 1}) {
    auto* k = new Tkeyframe(c.makeTimeValue(i), 10.0 * i, kTangentFixed, kTangentFixed);
    k->setTanIn(1, 30.0f * i);
    k->setTanOut(1, 30.0f * i);
    TparamCurveTestAccess::arrayInsert(c, k);
  }
  c.setStaticCurve(false);
}

struct InfinityRow {
  TparamCurve::TinfinityType type;
  bool pre;
  float t;
  float equivalent;  // a time inside the keys with the same value...
  double shift;      // ...plus this offset
};

TEST(TparamCurveInfinity, TableOfEquivalentTimes) {
  const InfinityRow rows[] = {
      {TparamCurve::kCycleRelative, false, 1.5f, 0.5f, 10.0},
      {TparamCurve::kCycleRelative, false, 2.5f, 0.5f, 20.0},
      {TparamCurve::kCycleRelative, true, -0.25f, 0.75f, -10.0},
      {TparamCurve::kOscillate, false, 1.25f, 0.75f, 0.0},
      {TparamCurve::kOscillate, false, 2.25f, 0.25f, 0.0},
      {TparamCurve::kCycle, true, -0.25f, 0.75f, 0.0},
      {TparamCurve::kCycle, false, 3.25f, 0.25f, 0.0},
      {TparamCurve::kOscillate, true, -0.25f, 0.25f, 0.0},
      {TparamCurve::kOscillate, true, -1.25f, 0.75f, 0.0},
  };
  for (bool floats : {true, false}) {
    for (const auto& row : rows) {
      TparamCurve c(floats);
      twoKeys(c);
      row.pre ? c.setPreInfinityType(row.type) : c.setPostInfinityType(row.type);
      const double inside = c.evaluate(row.equivalent);
      EXPECT_NEAR(c.evaluate(row.t), inside + row.shift, 1e-4)
          << "type " << row.type << " at " << row.t << (floats ? " float" : " ticks");
      EXPECT_NEAR(c.evaluate(c.makeTimeValue(row.t)), inside + row.shift, 1e-4)
          << "time-value form, type " << row.type << " at " << row.t;
    }
  }
}

TEST(TparamCurveInfinity, LinearFollowsTheInTangentAtBothEnds) {
  TparamCurve c(true);
  twoKeys(c);
  c.setPostInfinityType(TparamCurve::kLinear);
  c.setPreInfinityType(TparamCurve::kLinear);
  EXPECT_NEAR(c.evaluate(2.0f), 40.0, 1e-4);  // last in tangent has slope 30
  EXPECT_NEAR(c.evaluate(-1.0f), 0.0, 1e-9);  // first in tangent is flat
  c.keyframe(1)->setTanIn(1, 0);
  EXPECT_NEAR(c.evaluate(5.0f), 10.0, 1e-9);
}

TEST(TparamCurveInfinity, DegenerateCurves) {
  TparamCurve one(true), none(true);
  TparamCurveTestAccess::arrayInsert(one, new Tkeyframe(2.0f, 3.0));
  one.setStaticCurve(false);
  for (auto type : {TparamCurve::kLinear, TparamCurve::kCycle, TparamCurve::kCycleRelative,
                    TparamCurve::kOscillate}) {
    one.setPreInfinityType(type);
    one.setPostInfinityType(type);
    EXPECT_EQ((std::array{one.evaluate(-5.0f), one.evaluate(50.0f)}), (std::array{3.0, 3.0}));
  }
  none.setPostInfinityType(TparamCurve::kCycle);
  EXPECT_EQ(none.evaluate(5.0f), 0.0);
}

TEST(TparamCurveInfinity, SettersNormaliseButAStoredTwoUsesTheRawOffset) {
  TparamCurve c(true);
  twoKeys(c);
  c.setPostInfinityType(static_cast<TparamCurve::TinfinityType>(2));
  EXPECT_EQ(c.postInfinityType(), TparamCurve::kConstant);
  c.setPreInfinityType(static_cast<TparamCurve::TinfinityType>(17));
  EXPECT_EQ(c.preInfinityType(), TparamCurve::kConstant);
  TparamCurveTestAccess::setInfinityRaw(c, 2, false);
  EXPECT_NEAR(c.evaluate(1.25f), c.evaluate(0.25f), 1e-9);
}

// Keys at start + i * step seconds (rounded to float), with fixed tangents of
// varying slope so that every span is a genuine cubic.
void keysAlong(TparamCurve& c, double start, double step, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    const auto t = static_cast<float>(start + step * i);
    const double value = (i % 3 == 0 ? 1.5 : -0.5) * (i + 1);
    Tkeyframe key(c.makeTimeValue(t), value, kTangentFixed, kTangentFixed);
    const float slope = 0.25f * static_cast<float>(static_cast<int>(i % 5) - 2);
    key.setTanIn(1.0f, slope);
    key.setTanOut(1.0f, -slope);
    c.add(key);
  }
}

std::uint64_t bitsOf(double v) {
  return std::bit_cast<std::uint64_t>(v);
}

struct CycleLayout {
  const char* name;
  double start;  // first key, seconds
  double step;   // between keys
  unsigned keys;
  double firstPeriod;  // sampling starts this many periods after the last key
  double sampleStep;   // seconds between samples
  bool mapsExactly;    // whether the mapping rounds nowhere in some span
};

TEST(TparamCurveInfinity, CycledSamplesMatchTheGeneralMappingBitForBit) {
  // Samples beyond the keys of a looping curve take shortcuts once a period
  // has been mapped. Whatever the layout of the keys, they must give exactly
  // what mapping each time afresh gives.
  const CycleLayout layouts[] = {
      {"whole seconds", 0.0, 1.0, 5, 0.0, 0.0101, true},
      {"frames at 24 per second", 0.0, 1.0 / 24, 25, 3.0, 1.0 / 24 / 7, true},
      {"first key off the float grid", 1.0 / 24, 0.5, 6, 0.0, 0.0131, false},
      {"negative keyed range", -7.25, 1.5, 5, 2.0, 0.0173, true},
      {"keys around zero", -3.0, 0.75, 5, 0.0, 0.0111, true},
      {"many periods on", 1000.0, 0.1, 8, 40000.0, 0.0037, false},
  };
  for (const auto& layout : layouts) {
    for (auto type : {TparamCurve::kCycle, TparamCurve::kCycleRelative}) {
      for (bool floats : {true, false}) {
        TparamCurve c(floats);
        c.setIsWeighted(false);
        keysAlong(c, layout.start, layout.step, layout.keys);
        c.setPostInfinityType(type);
        TparamCurve general(c);
        const float first = c.seconds(0u);
        const float last = c.seconds(c.keyframeCount() - 1);
        const double range = static_cast<double>(last) - first;

        std::vector<float> times;
        const double from = last + layout.firstPeriod * range;
        for (int i = 0; i < 700; ++i)
          times.push_back(static_cast<float>(from + layout.sampleStep * i));
        // Period boundaries and a few floats either side, where the mapping's
        // whole part and its rounding are most fragile.
        for (int p = 1; p <= 3; ++p) {
          float edge = static_cast<float>(from + p * range);
          for (int k = 0; k < 4; ++k) edge = std::nextafter(edge, -INFINITY);
          for (int k = 0; k < 9; ++k, edge = std::nextafter(edge, INFINITY)) times.push_back(edge);
        }

        bool usedImage = false;
        for (float t : times) {
          const double shortcut = c.evaluate(t);
          usedImage = usedImage || TparamCurveTestAccess::cycledSpanRemembered(c);
          TparamCurveTestAccess::forgetSampleShortcuts(general);
          ASSERT_EQ(bitsOf(shortcut), bitsOf(general.evaluate(t)))
              << layout.name << ", type " << type << (floats ? "" : ", ticks") << ", at " << t;
        }
        if (floats && layout.mapsExactly) {
          EXPECT_TRUE(usedImage) << layout.name;
        }
      }
    }
  }
}

}  // namespace
}  // namespace lumora
