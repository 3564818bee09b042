// A user's program: links the installed library and uses its public headers.
#include <cstdio>

#include <lumora/lumora.h>

#include "readme_example.h"

int main() {
  using namespace lumora;
  Tkeyframe key(1.0f, 2.5, kTangentGlobal, kTangentGlobal);
  if (key.tanInType() != kTangentSpline) return 1;

  TpreferenceItem* item = nullptr;
  if (!TglobalPrefMgr::global().getPrefItem(TprefKeyframe::kItemNumber, item) || !item) return 2;
  Tstring line;
  item->writeAsCommand(line);
  std::printf("%s\n", line.c_str());

  // Sampling through a cursor of one's own gives the curve's own bits.
  TparamCurve curve(/*isFloat=*/true);
  curve.add(Tkeyframe(0.0f, 0.0, kTangentSpline, kTangentSpline));
  curve.add(Tkeyframe(1.0f, 4.0, kTangentSpline, kTangentSpline));
  curve.add(Tkeyframe(3.0f, -2.0, kTangentSpline, kTangentSpline));
  const TparamCurve& shared = curve;
  TevalCursor cursor;
  for (float t = -1.0f; t < 4.0f; t += 0.125f) {
    if (shared.evaluate(t, cursor) != curve.evaluate(t)) return 3;
  }
  if (!cursor.isCurrentFor(curve)) return 4;

  // A sampler is a snapshot: it answers what a fresh copy of the curve did
  // when it was built, whatever happens to the curve later.
  const TcurveSampler sampler(curve);
  TparamCurve before(curve);
  curve.setValue(1u, 100.0);
  for (float t = -1.0f; t < 4.0f; t += 0.125f) {
    if (sampler.evaluate(t) != before.evaluate(t)) return 5;
  }
  const TcurveSampler* channels[] = {&sampler, nullptr};
  double frame[2] = {0.0, 0.0};
  if (!TcurveSampler::evaluateAll(2, channels, 0.5f, frame) || frame[0] != before.evaluate(0.5f))
    return 6;

  // The README's example samples a cycling curve after an undone removal.
  std::printf("readme example: %.17g\n", readmeExample());
  return 0;
}
