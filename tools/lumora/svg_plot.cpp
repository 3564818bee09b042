#include "tools/lumora/svg_plot.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace lumora::tool {

namespace {

// Plot area margins inside the picture, in pixels.
constexpr double kMarginLeft = 78.0;
constexpr double kMarginRight = 28.0;
constexpr double kMarginTop = 66.0;
constexpr double kMarginBottom = 58.0;

// Share of the value range added above and below the data.
constexpr double kValueMargin = 0.08;

// Colours.
constexpr const char* kInk = "#222222";
constexpr const char* kMuted = "#5f6b7a";
constexpr const char* kGrid = "#d9dee5";
constexpr const char* kKeyedFill = "#e9f1fb";
constexpr const char* kInfinityFill = "#f6f6f4";
constexpr const char* kHatch = "#e4e3de";
constexpr const char* kCurve = "#1f5fa8";
constexpr const char* kHandle = "#d2691e";

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

std::string format(const char* fmt, ...) {
  char buffer[512];
  std::va_list args;
  va_start(args, fmt);
  const int n = std::vsnprintf(buffer, sizeof buffer, fmt, args);
  va_end(args);
  if (n < 0) return {};
  return std::string(buffer, std::min<std::size_t>(static_cast<std::size_t>(n), sizeof buffer - 1));
}

std::string escapeXml(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string text(double x, double y, const std::string& content, const char* extra) {
  return format("<text x=\"%.1f\" y=\"%.1f\" %s>", x, y, extra) + escapeXml(content) + "</text>\n";
}

// The screen end of a handle that starts at the key's pixel position.
void handleEnd(const TplotFrame& frame, const TplotPoint& key, const Thandle& h, double& x,
               double& y) {
  double dx = h.dt * frame.scaleX();
  double dy = -h.dv * frame.scaleY();
  if (!h.toScale) {
    const double length = std::hypot(dx, dy);
    if (length > 0.0) {
      dx *= kHandleLength / length;
      dy *= kHandleLength / length;
    }
  }
  x = frame.x(key.time) + dx;
  y = frame.y(key.value) + dy;
}

bool drawable(const std::optional<Thandle>& h) {
  return h && std::isfinite(h->dt) && std::isfinite(h->dv) && (h->dt != 0.0 || h->dv != 0.0);
}

void appendRegions(const TplotContent& c, const TplotFrame& f, std::string& svg) {
  const double height = f.bottom() - f.top();
  svg += format(
      "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"%s\"/>\n"
      "<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"url(#hatch)\"/>\n",
      f.left(), f.top(), f.right() - f.left(), height, kInfinityFill, f.left(), f.top(),
      f.right() - f.left(), height);
  if (!c.hasKeys) return;
  const double x0 = std::clamp(f.x(c.keyedFrom), f.left(), f.right());
  const double x1 = std::clamp(f.x(c.keyedTo), f.left(), f.right());
  if (x1 > x0) {
    svg += format("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"%s\"/>\n", x0,
                  f.top(), x1 - x0, height, kKeyedFill);
  }
  // Each region is named in its top corner when there is room for the name.
  constexpr double kRoomPerChar = 6.2;
  const auto label = [&](double from, double to, const std::string& name) {
    if (name.empty() || to - from < kRoomPerChar * static_cast<double>(name.size()) + 12.0) return;
    svg += text(from + 6.0, f.top() + 15.0, name,
                format("font-size=\"11\" fill=\"%s\"", kMuted).c_str());
  };
  label(f.left(), x0, c.beforeLabel);
  label(x0, x1, "keyed range");
  label(x1, f.right(), c.afterLabel);
}

void appendAxes(const TplotContent& c, const TplotFrame& f, double valueLow, double valueHigh,
                std::string& svg) {
  const TaxisTicks timeTicks = niceTicks(c.from, c.to, 10);
  const TaxisTicks valueTicks = niceTicks(valueLow, valueHigh, 6);
  const char* tickText = "font-size=\"12\" fill=\"#333333\"";
  for (const double t : timeTicks.values) {
    const double x = f.x(t);
    svg += format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\"/>\n", x,
                  f.top(), x, f.bottom(), kGrid);
    svg += format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\"/>\n", x,
                  f.bottom(), x, f.bottom() + 5.0, kInk);
    svg += text(x, f.bottom() + 19.0, tickLabel(t, timeTicks.step),
                (std::string(tickText) + " text-anchor=\"middle\"").c_str());
  }
  for (const double v : valueTicks.values) {
    const double y = f.y(v);
    // The zero line is drawn a little stronger: it is often the ground.
    const char* grid = std::fabs(v) < valueTicks.step * 1e-9 ? "#aab3bf" : kGrid;
    svg += format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\"/>\n",
                  f.left(), y, f.right(), y, grid);
    svg += format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\"/>\n",
                  f.left() - 5.0, y, f.left(), y, kInk);
    svg += text(f.left() - 8.0, y + 4.0, tickLabel(v, valueTicks.step),
                (std::string(tickText) + " text-anchor=\"end\"").c_str());
  }
  svg += format(
      "<polyline points=\"%.1f,%.1f %.1f,%.1f %.1f,%.1f\" fill=\"none\" stroke=\"%s\" "
      "stroke-width=\"1.2\"/>\n",
      f.left(), f.top(), f.left(), f.bottom(), f.right(), f.bottom(), kInk);
  svg += text((f.left() + f.right()) / 2.0, f.bottom() + 44.0, c.timeTitle,
              "font-size=\"13\" fill=\"#222222\" text-anchor=\"middle\"");
  const double midY = (f.top() + f.bottom()) / 2.0;
  svg += format(
             "<text x=\"22\" y=\"%.1f\" font-size=\"13\" fill=\"%s\" text-anchor=\"middle\" "
             "transform=\"rotate(-90 22 %.1f)\">",
             midY, kInk, midY) +
         escapeXml(c.valueTitle) + "</text>\n";
}

void appendCurve(const TplotContent& c, const TplotFrame& f, std::string& svg) {
  if (c.curve.empty()) return;
  svg += format(
      "<polyline clip-path=\"url(#plot)\" fill=\"none\" stroke=\"%s\" stroke-width=\"2\" "
      "stroke-linejoin=\"round\" points=\"",
      kCurve);
  for (const TplotPoint& p : c.curve) {
    if (!std::isfinite(p.value)) continue;
    svg += format("%.2f,%.2f ", f.x(p.time), f.y(p.value));
  }
  svg += "\"/>\n";
}

void appendKeys(const TplotContent& c, const TplotFrame& f, std::string& svg) {
  for (const TplotPoint& p : c.keyImages) {
    svg += format(
        "<circle cx=\"%.2f\" cy=\"%.2f\" r=\"3.5\" fill=\"white\" stroke=\"%s\" "
        "stroke-width=\"1.3\"/>\n",
        f.x(p.time), f.y(p.value), kCurve);
  }
  svg += "<g clip-path=\"url(#plot)\">\n";
  for (const TkeyGlyph& k : c.keys) {
    for (const std::optional<Thandle>* h : {&k.in, &k.out}) {
      if (!drawable(*h)) continue;
      double x = 0.0;
      double y = 0.0;
      handleEnd(f, k.at, **h, x, y);
      svg += format(
          "<line x1=\"%.2f\" y1=\"%.2f\" x2=\"%.2f\" y2=\"%.2f\" stroke=\"%s\" "
          "stroke-width=\"1.3\"/>\n<circle cx=\"%.2f\" cy=\"%.2f\" r=\"2.8\" fill=\"%s\"/>\n",
          f.x(k.at.time), f.y(k.at.value), x, y, kHandle, x, y, kHandle);
    }
  }
  svg += "</g>\n";
  for (const TkeyGlyph& k : c.keys) {
    svg += format(
        "<circle cx=\"%.2f\" cy=\"%.2f\" r=\"4.5\" fill=\"%s\" stroke=\"white\" "
        "stroke-width=\"1\"/>\n",
        f.x(k.at.time), f.y(k.at.value), kInk);
  }
}

void appendLegend(const TplotFrame& f, bool images, std::string& svg) {
  double x = f.right() - 250.0;
  const double y = f.top() - 14.0;
  const char* legendText = "font-size=\"11\" fill=\"#5f6b7a\"";
  svg += format("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"4\" fill=\"%s\"/>\n", x, y - 4.0, kInk);
  svg += text(x + 8.0, y, "key", legendText);
  x += 42.0;
  svg += format(
      "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\" "
      "stroke-width=\"1.3\"/><circle cx=\"%.1f\" cy=\"%.1f\" r=\"2.5\" fill=\"%s\"/>\n",
      x - 4.0, y - 4.0, x + 12.0, y - 4.0, kHandle, x + 12.0, y - 4.0, kHandle);
  svg += text(x + 18.0, y, "tangent", legendText);
  if (!images) return;
  x += 70.0;
  svg += format(
      "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"3.5\" fill=\"white\" stroke=\"%s\" "
      "stroke-width=\"1.3\"/>\n",
      x, y - 4.0, kCurve);
  svg += text(x + 8.0, y, "repeated key", legendText);
}

}  // namespace

// --- Axes ----------------------------------------------------------------------------------

TaxisTicks niceTicks(double low, double high, unsigned target) {
  TaxisTicks ticks;
  if (!std::isfinite(low) || !std::isfinite(high) || !(high > low) || target == 0) {
    if (std::isfinite(low)) ticks.values.push_back(low);
    return ticks;
  }
  const double raw = (high - low) / target;
  const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
  const double normal = raw / magnitude;
  const double factor = normal < 1.5 ? 1.0 : normal < 3.0 ? 2.0 : normal < 7.0 ? 5.0 : 10.0;
  ticks.step = factor * magnitude;
  const double first = std::ceil(low / ticks.step - 1e-9);
  const double last = std::floor(high / ticks.step + 1e-9);
  for (double i = first; i <= last; i += 1.0) {
    const double v = i * ticks.step;
    ticks.values.push_back(std::fabs(v) < ticks.step * 1e-9 ? 0.0 : v);
  }
  return ticks;
}

std::string tickLabel(double value, double step) {
  int decimals = 0;
  if (step > 0.0 && std::isfinite(step)) {
    decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 12);
  }
  std::string label = format("%.*f", decimals, value);
  if (label.find_first_not_of("-0.") == std::string::npos && label[0] == '-') label.erase(0, 1);
  return label;
}

TplotFrame::TplotFrame(double left, double top, double width, double height, double timeLow,
                       double timeHigh, double valueLow, double valueHigh)
    : fLeft(left),
      fTop(top),
      fWidth(width),
      fHeight(height),
      fTimeLow(timeLow),
      fValueHigh(valueHigh),
      fScaleX(timeHigh > timeLow ? width / (timeHigh - timeLow) : 1.0),
      fScaleY(valueHigh > valueLow ? height / (valueHigh - valueLow) : 1.0) {}

// --- Content ---------------------------------------------------------------------------------

void valueRange(const TplotContent& content, double& low, double& high) {
  low = HUGE_VAL;
  high = -HUGE_VAL;
  const auto widen = [&](double v) {
    if (!std::isfinite(v)) return;
    low = std::min(low, v);
    high = std::max(high, v);
  };
  for (const TplotPoint& p : content.curve) widen(p.value);
  for (const TkeyGlyph& k : content.keys) {
    widen(k.at.value);
    for (const std::optional<Thandle>* h : {&k.in, &k.out}) {
      if (drawable(*h) && (*h)->toScale) widen(k.at.value + (*h)->dv);
    }
  }
  if (!(high >= low)) {
    low = -1.0;
    high = 1.0;
    return;
  }
  const double span = high - low;
  if (span < 1e-12 * std::max(1.0, std::fabs(high))) {
    low -= 1.0;
    high += 1.0;
    return;
  }
  low -= span * kValueMargin;
  high += span * kValueMargin;
}

TplotFrame plotFrame(const TplotContent& content) {
  double low = 0.0;
  double high = 1.0;
  valueRange(content, low, high);
  return TplotFrame(kMarginLeft, kMarginTop, kPictureWidth - kMarginLeft - kMarginRight,
                    kPictureHeight - kMarginTop - kMarginBottom, content.from, content.to, low,
                    high);
}

std::string renderSvg(const TplotContent& content) {
  double low = 0.0;
  double high = 1.0;
  valueRange(content, low, high);
  const TplotFrame f = plotFrame(content);

  std::string svg = format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
      "viewBox=\"0 0 %.0f %.0f\" font-family=\"DejaVu Sans, Helvetica, Arial, sans-serif\">\n",
      kPictureWidth, kPictureHeight, kPictureWidth, kPictureHeight);
  svg += format(
      "<defs>\n<clipPath id=\"plot\"><rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" "
      "height=\"%.1f\"/></clipPath>\n"
      "<pattern id=\"hatch\" width=\"8\" height=\"8\" patternUnits=\"userSpaceOnUse\" "
      "patternTransform=\"rotate(45)\"><line x1=\"0\" y1=\"0\" x2=\"0\" y2=\"8\" stroke=\"%s\" "
      "stroke-width=\"2\"/></pattern>\n</defs>\n",
      f.left(), f.top(), f.right() - f.left(), f.bottom() - f.top(), kHatch);
  svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  svg +=
      text(f.left(), 26.0, content.title, "font-size=\"18\" font-weight=\"bold\" fill=\"#222222\"");
  svg += text(f.left(), 45.0, content.subtitle, "font-size=\"12\" fill=\"#5f6b7a\"");
  appendRegions(content, f, svg);
  appendAxes(content, f, low, high, svg);
  appendCurve(content, f, svg);
  appendKeys(content, f, svg);
  appendLegend(f, !content.keyImages.empty(), svg);
  svg += "</svg>\n";
  return svg;
}

// --- Output ----------------------------------------------------------------------------------

bool writeTextFile(const std::string& path, const std::string& text, std::string& error) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) {
    error = "cannot open '" + path + "' for writing: " + std::strerror(errno);
    return false;
  }
  const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  const int writeErrno = errno;
  const bool closed = std::fclose(file) == 0;
  if (written && closed) return true;
  error = "cannot write '" + path + "': " + std::strerror(written ? errno : writeErrno);
  return false;
}

}  // namespace lumora::tool
