// An SVG picture of one curve: the sampled line, its keys with their tangent
// handles, the images of the keys where an infinity repeats them, axes with
// ticks, and the keyed range shaded apart from the infinities.
//
//   TplotContent content;
//   content.title = "Bouncing ball";
//   content.from = 0.0;
//   content.to = 3.0;
//   content.curve = {{0.0, 0.0}, {0.45, 1.0}, ...};
//   std::string svg = renderSvg(content);
//
// The writer knows nothing of curves: it draws what it is given, so it can
// serve every command that produces a curve. Everything here except
// writeTextFile is a pure function.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace lumora::tool {

// --- Axes ----------------------------------------------------------------------------

/// Tick positions for an axis: the multiples of `step` within [low, high].
struct TaxisTicks {
  double step = 1.0;
  std::vector<double> values;
};

/// About `target` ticks over [low, high], at multiples of 1, 2 or 5 times a
/// power of ten. A range that is empty or not finite gets the single tick at
/// `low` (step 1).
TaxisTicks niceTicks(double low, double high, unsigned target);

/// A tick label with as many decimals as `step` needs: "0.25", "-1", "10".
/// Never "-0".
std::string tickLabel(double value, double step);

/// Maps data coordinates (seconds, value) into a pixel rectangle. Pixel y
/// grows downwards, so larger values sit higher.
class TplotFrame {
 public:
  TplotFrame(double left, double top, double width, double height, double timeLow, double timeHigh,
             double valueLow, double valueHigh);

  double x(double time) const { return fLeft + (time - fTimeLow) * fScaleX; }
  double y(double value) const { return fTop + (fValueHigh - value) * fScaleY; }
  /// Pixels per second and per value unit.
  double scaleX() const { return fScaleX; }
  double scaleY() const { return fScaleY; }
  double left() const { return fLeft; }
  double top() const { return fTop; }
  double right() const { return fLeft + fWidth; }
  double bottom() const { return fTop + fHeight; }

 private:
  double fLeft;
  double fTop;
  double fWidth;
  double fHeight;
  double fTimeLow;
  double fValueHigh;
  double fScaleX;
  double fScaleY;
};

// --- Content -----------------------------------------------------------------------------

struct TplotPoint {
  double time = 0.0;
  double value = 0.0;
};

/// One tangent handle. A weighted handle is an offset in data units, drawn to
/// scale (it ends at the Bezier control point). A non-weighted handle has
/// only a direction, given in data units and drawn kHandleLength pixels long.
struct Thandle {
  double dt = 0.0;
  double dv = 0.0;
  bool toScale = true;
};

struct TkeyGlyph {
  TplotPoint at;
  std::optional<Thandle> in;
  std::optional<Thandle> out;
};

/// Everything the picture shows.
struct TplotContent {
  std::string title;
  std::string subtitle;
  std::string timeTitle = "time (s)";
  std::string valueTitle = "value";
  double from = 0.0;  ///< time range shown, seconds
  double to = 1.0;
  /// The keyed range (first to last key time), shaded apart from the
  /// infinities on either side; without keys everything is shaded alike.
  bool hasKeys = false;
  double keyedFrom = 0.0;
  double keyedTo = 0.0;
  std::string beforeLabel;  ///< names the region before the keys, e.g. "pre infinity: constant"
  std::string afterLabel;   ///< names the region after the keys
  std::vector<TplotPoint> curve;
  std::vector<TkeyGlyph> keys;
  std::vector<TplotPoint> keyImages;
};

/// Size of the picture and length of non-weighted handles, in pixels.
inline constexpr double kPictureWidth = 960.0;
inline constexpr double kPictureHeight = 540.0;
inline constexpr double kHandleLength = 40.0;

/// The value range drawn: the curve, the keys and the ends of to-scale
/// handles, with a margin; never empty.
void valueRange(const TplotContent& content, double& low, double& high);

/// The frame of the plot area for `content` inside the picture.
TplotFrame plotFrame(const TplotContent& content);

/// The complete SVG document.
std::string renderSvg(const TplotContent& content);

// --- Output ----------------------------------------------------------------------------------

/// Writes `text` to the file at `path`, replacing it. False, with the reason
/// in `error`, when the file cannot be opened or written.
bool writeTextFile(const std::string& path, const std::string& text, std::string& error);

}  // namespace lumora::tool
