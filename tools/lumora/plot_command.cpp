// The plot command: a reference curve, sampled into a table and an SVG file.
#include <cstdio>
#include <string>
#include <vector>

#include "lumora/curve/param_curve.h"
#include "lumora/keys/keyframe.h"
#include "testing/reference_curves.h"
#include "tools/lumora/commands.h"
#include "tools/lumora/options.h"
#include "tools/lumora/sample_table.h"
#include "tools/lumora/svg_plot.h"

namespace lumora::tool {

namespace {

// Samples in the drawn line: about two per pixel of the plot's width.
constexpr unsigned kLineSamples = 1800;

struct TreferenceCurve {
  const char* name;
  const char* title;
  bool (*build)(TparamCurve&);
};

constexpr TreferenceCurve kReferenceCurves[] = {
    {"ball", "Bouncing ball", reference::bouncingBall},
    {"bezier", "Two-key Bezier", reference::twoKeyBezier},
    {"regressive-s", "Regressive S", reference::regressiveS},
    {"dense", "Dense spline", [](TparamCurve& c) { return reference::denseSpline(c, 12, 1); }},
};

const TreferenceCurve* findReferenceCurve(const std::string& name) {
  for (const TreferenceCurve& r : kReferenceCurves) {
    if (name == r.name) return &r;
  }
  return nullptr;
}

const char* infinityName(TparamCurve::TinfinityType type) {
  switch (type) {
    case TparamCurve::kConstant:
      return "constant";
    case TparamCurve::kLinear:
      return "linear";
    case TparamCurve::kCycle:
      return "cycle";
    case TparamCurve::kCycleRelative:
      return "cycle relative";
    case TparamCurve::kOscillate:
      return "oscillate";
  }
  return "constant";  // the curve stores nothing else
}

std::string describe(const TparamCurve& curve) {
  const unsigned n = curve.keyframeCount();
  return std::to_string(n) + (n == 1 ? " key, " : " keys, ") +
         (curve.isWeighted() ? "weighted" : "non-weighted") + ", pre infinity " +
         infinityName(curve.preInfinityType()) + ", post infinity " +
         infinityName(curve.postInfinityType());
}

// The view asked for; a missing end keeps the width of the curve's own view.
TtimeRange chooseView(const TparamCurve& curve, const TplotOptions& options) {
  TtimeRange view = defaultView(curve);
  const double width = view.to - view.from;
  if (options.from && options.to) return {*options.from, *options.to};
  if (options.from) return {*options.from, *options.from + width};
  if (options.to) return {*options.to - width, *options.to};
  return view;
}

// A key's tangent as a handle: weighted tangents end at the Bezier control
// point a third along them; non-weighted ones only give a direction.
std::optional<Thandle> handle(const TparamCurve& curve, const Tkeyframe& key, bool inSide) {
  float x = 0.0f;
  float y = 0.0f;
  if (inSide) {
    key.getTanIn(x, y);
  } else {
    key.getTanOut(x, y);
  }
  if (x == 0.0f && y == 0.0f) return std::nullopt;
  const double sign = inSide ? -1.0 : 1.0;
  if (curve.isWeighted()) return Thandle{sign * x / 3.0, sign * y / 3.0, /*toScale=*/true};
  return Thandle{sign * x, sign * y, /*toScale=*/false};
}

TplotContent plotContent(TparamCurve& curve, const char* title, const TtimeRange& view,
                         const std::vector<TkeyMark>& marks) {
  TplotContent content;
  content.title = title;
  content.subtitle = describe(curve);
  content.from = view.from;
  content.to = view.to;
  const unsigned n = curve.keyframeCount();
  if (n > 0) {
    content.hasKeys = true;
    content.keyedFrom = curve.seconds(0u);
    content.keyedTo = curve.seconds(n - 1);
    content.beforeLabel = std::string("pre infinity: ") + infinityName(curve.preInfinityType());
    content.afterLabel = std::string("post infinity: ") + infinityName(curve.postInfinityType());
  }
  for (const Tsample& s : samplePolyline(curve, view, kLineSamples, marks)) {
    content.curve.push_back({s.time, s.value});
  }
  for (const TkeyMark& m : marks) {
    if (m.repeat != 0) {
      content.keyImages.push_back({m.time, curve.evaluate(static_cast<float>(m.time))});
      continue;
    }
    const Tkeyframe* key = curve.keyframe(m.index);
    if (!key) continue;
    content.keys.push_back(
        {{m.time, key->value()}, handle(curve, *key, true), handle(curve, *key, false)});
  }
  return content;
}

int badArguments(const std::string& error) {
  std::fprintf(stderr, "lumora: %s\n\n", error.c_str());
  printPlotUsage(stderr);
  return kExitBadArguments;
}

}  // namespace

void printPlotUsage(std::FILE* out) {
  std::fputs(
      "usage: lumora [plot] [options]\n"
      "\n"
      "Samples a curve, prints its values as a table and draws it as an SVG file.\n"
      "Without options it plots the bouncing-ball reference curve over three\n"
      "bounces and writes curve.svg in the current folder.\n"
      "\n"
      "options:\n"
      "  --curve NAME        reference curve: ball (default), bezier, regressive-s, dense\n"
      "  --from SECONDS      first time shown (default: the curve's own view)\n"
      "  --to SECONDS        last time shown (default: three cycles for a repeating\n"
      "                      curve, else the keys with a margin)\n"
      "  --samples N         evenly spaced table rows, 2 to 100000 (default 31);\n"
      "                      a row is added at every key\n"
      "  -o, --output FILE   SVG file to write (default curve.svg)\n"
      "  --no-table          do not print the table\n"
      "  -h, --help          show this help\n"
      "\n"
      "exit status: 0 done, 1 the SVG file could not be written, 2 bad arguments\n",
      out);
}

int runPlotCommand(int count, const char* const* args) {
  TplotOptions options;
  std::string error;
  switch (parsePlotOptions(count, args, options, error)) {
    case TparseResult::kHelp:
      printPlotUsage(stdout);
      return kExitSuccess;
    case TparseResult::kBadArguments:
      return badArguments(error);
    case TparseResult::kRun:
      break;
  }
  const TreferenceCurve* reference = findReferenceCurve(options.curve);
  if (!reference) return badArguments("unknown curve '" + options.curve + "'");

  TparamCurve curve(/*isFloat=*/true);
  if (!reference->build(curve)) {
    std::fprintf(stderr, "lumora: the curve refused the keys of '%s'\n", reference->name);
    return kExitFailure;
  }
  const TtimeRange view = chooseView(curve, options);
  const std::vector<TkeyMark> marks = keyMarksInView(curve, view);

  if (options.table) {
    std::printf("%s: %s\n\n", reference->title, describe(curve).c_str());
    printTable(stdout, sampleTable(curve, view, options.samples, marks), marks);
    std::fflush(stdout);
  }
  const std::string svg = renderSvg(plotContent(curve, reference->title, view, marks));
  if (!writeTextFile(options.output, svg, error)) {
    std::fprintf(stderr, "lumora: %s\n", error.c_str());
    return kExitFailure;
  }
  std::fprintf(stderr, "lumora: wrote %s\n", options.output.c_str());
  return kExitSuccess;
}

}  // namespace lumora::tool
