// Many threads sampling one curve, and shared samplers of it, while another
// thread copies the curve, edits the copy and builds samplers of that. Run
// under the thread sanitizer (preset "tsan") this proves that evaluation
// through cursors and samplers reads shared state only; in every build it
// checks that each thread got exactly the bits a single thread gets.
#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <thread>
#include <vector>

#include "lumora/curve/curve_sampler.h"
#include "lumora/curve/eval_cursor.h"
#include "lumora/curve/param_curve.h"
#include "testing/reference_curves.h"

namespace lumora {
namespace {

constexpr unsigned kThreads = 8;
constexpr unsigned kPasses = 3;

std::uint64_t bits(double v) {
  return std::bit_cast<std::uint64_t>(v);
}

// A sampling pattern per thread: ordered runs, jumps and both infinities.
std::vector<float> patternFor(unsigned thread, float first, float last) {
  std::vector<float> times;
  std::uint32_t state = 977u * (thread + 1);
  const float range = last - first;
  for (unsigned i = 0; i < 600; ++i) {
    state = state * 1664525u + 1013904223u;
    if (thread % 2 == 0 && i % 50 != 0) {
      times.push_back(first - range * 0.5f + range * 2.0f * static_cast<float>(i) / 600.0f);
    } else {
      times.push_back(first + range * (3.0f * static_cast<float>(state >> 8) / 16777216.0f - 1.0f));
    }
  }
  return times;
}

// The shared curves: non-weighted and weighted, with looping infinities.
std::vector<TparamCurve> sharedCurves() {
  std::vector<TparamCurve> curves;
  for (bool weighted : {false, true}) {
    TparamCurve c(/*isFloat=*/true);
    reference::denseSpline(c, 120, 5);
    c.setIsWeighted(weighted);
    if (weighted) {
      // Handles off the thirds, so every sample solves for the parameter.
      for (unsigned i = 0; i < c.keyframeCount(); i += 3) c.dragTangent(i, 1.4f, 0.3f, false);
    }
    c.setPreInfinityType(TparamCurve::kOscillate);
    c.setPostInfinityType(TparamCurve::kCycleRelative);
    curves.push_back(c);
  }
  return curves;
}

TEST(ConcurrentSampling, CursorsOnOneCurveWhileACopyIsEdited) {
  const std::vector<TparamCurve> curves = sharedCurves();
  struct Tjob {
    const TparamCurve* curve;
    std::vector<float> times;
    std::vector<double> expected;  // kPasses passes through one cursor
  };
  std::vector<Tjob> jobs;
  for (unsigned i = 0; i < kThreads; ++i) {
    const TparamCurve& curve = curves[i % curves.size()];
    Tjob job{
        &curve, patternFor(i, curve.seconds(0u), curve.seconds(curve.keyframeCount() - 1)), {}};
    TevalCursor cursor;
    for (unsigned pass = 0; pass < kPasses; ++pass) {
      for (float t : job.times) job.expected.push_back(curve.evaluate(t, cursor));
    }
    jobs.push_back(std::move(job));
  }

  std::atomic<unsigned> mismatches{0};
  std::atomic<unsigned> finished{0};
  std::vector<std::thread> threads;
  for (const Tjob& job : jobs) {
    threads.emplace_back([&job, &mismatches, &finished] {
      TevalCursor cursor;
      std::size_t k = 0;
      for (unsigned pass = 0; pass < kPasses; ++pass) {
        for (float t : job.times) {
          if (bits(job.curve->evaluate(t, cursor)) != bits(job.expected[k++])) ++mismatches;
        }
      }
      ++finished;
    });
  }
  // Meanwhile: copies of the shared curves are edited and sampled here.
  unsigned rounds = 0;
  while (rounds < 20 || finished.load() < kThreads) {
    TparamCurve copy(curves[rounds % curves.size()]);
    copy.setValue(rounds % copy.keyframeCount(), 3.0 * rounds);
    copy.add(Tkeyframe(copy.seconds(copy.keyframeCount() - 1) + 1.0f, 1.0, kTangentSpline,
                       kTangentSpline));
    copy.remove(1);
    copy.setPostInfinityType(TparamCurve::kLinear);
    TevalCursor cursor;
    for (float t = -10.0f; t < 200.0f; t += 0.5f) (void)copy.evaluate(t, cursor);
    ++rounds;
  }
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(mismatches.load(), 0u);
}

TEST(ConcurrentSampling, SharedSamplersWhileNewOnesAreBuilt) {
  const std::vector<TparamCurve> curves = sharedCurves();
  std::vector<TcurveSampler> samplers;
  for (const TparamCurve& c : curves) samplers.emplace_back(c);
  std::vector<const TcurveSampler*> scene;
  for (const TcurveSampler& s : samplers) scene.push_back(&s);

  // What one thread gets: the curve from an empty cache, per time; and a
  // whole scene frame per time.
  struct Tjob {
    const TcurveSampler* sampler;
    std::vector<float> times;
    std::vector<double> expected;
    std::vector<double> frames;  // scene.size() values per time
  };
  std::vector<Tjob> jobs;
  for (unsigned i = 0; i < kThreads; ++i) {
    const TparamCurve& curve = curves[i % curves.size()];
    Tjob job{&samplers[i % samplers.size()],
             patternFor(i, curve.seconds(0u), curve.seconds(curve.keyframeCount() - 1)),
             {},
             {}};
    for (float t : job.times) {
      TevalCursor fresh;
      job.expected.push_back(curve.evaluate(t, fresh));
      for (const TparamCurve& other : curves) {
        TevalCursor cursor;
        job.frames.push_back(other.evaluate(t, cursor));
      }
    }
    jobs.push_back(std::move(job));
  }

  std::atomic<unsigned> mismatches{0};
  std::atomic<unsigned> finished{0};
  std::vector<std::thread> threads;
  for (const Tjob& job : jobs) {
    threads.emplace_back([&job, &scene, &mismatches, &finished] {
      std::vector<double> frame(scene.size());
      for (unsigned pass = 0; pass < kPasses; ++pass) {
        for (std::size_t k = 0; k < job.times.size(); ++k) {
          if (bits(job.sampler->evaluate(job.times[k])) != bits(job.expected[k])) ++mismatches;
          TcurveSampler::evaluateAll(static_cast<unsigned>(scene.size()), scene.data(),
                                     job.times[k], frame.data());
          for (std::size_t c = 0; c < frame.size(); ++c) {
            if (bits(frame[c]) != bits(job.frames[k * scene.size() + c])) ++mismatches;
          }
        }
      }
      ++finished;
    });
  }
  // Meanwhile: edited copies are compiled and sampled here, and each new
  // sampler answers for its own copy only.
  unsigned rounds = 0;
  while (rounds < 20 || finished.load() < kThreads) {
    TparamCurve copy(curves[rounds % curves.size()]);
    copy.setValue(rounds % copy.keyframeCount(), -2.0 * rounds);
    copy.remove(2);
    const TcurveSampler fresh(copy);
    copy.setValue(0u, 1e3);  // the snapshot must not see this
    TparamCurve before(curves[rounds % curves.size()]);
    before.setValue(rounds % before.keyframeCount(), -2.0 * rounds);
    before.remove(2);
    TevalCursor cursor;
    for (float t = -10.0f; t < 200.0f; t += 0.75f) {
      if (bits(fresh.evaluate(t)) != bits(before.evaluate(t, cursor))) ++mismatches;
      cursor.reset();
    }
    ++rounds;
  }
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(mismatches.load(), 0u);
}

}  // namespace
}  // namespace lumora
