// Sampling a curve for display: the time range to show, where its keys (and
// their images in repeating infinities) fall, the samples of the table and of
// the drawn line, and the printed table.
//
//   TtimeRange view = defaultView(curve);
//   std::vector<TkeyMark> marks = keyMarksInView(curve, view);
//   std::vector<Tsample> rows = sampleTable(curve, view, 31, marks);
//   printTable(stdout, rows, marks);
//
// Samples are taken with TparamCurve::evaluate(float), so sample times are
// rounded to float seconds exactly as a host's would be.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace lumora {
class TparamCurve;
}

namespace lumora::tool {

/// A closed time range in seconds.
struct TtimeRange {
  double from = 0.0;
  double to = 1.0;
};

/// A time at which a key's value is reached: the key itself (repeat 0) or its
/// image `repeat` periods after (positive) or before (negative) the keyed
/// range, where the infinity repeats the keys.
struct TkeyMark {
  double time = 0.0;
  unsigned index = 0;
  int repeat = 0;
};

/// One sample; `mark` indexes the key mark at this time, or is -1.
struct Tsample {
  double time = 0.0;
  double value = 0.0;
  int mark = -1;
};

/// The range a curve is best looked at in: three cycles from the first key
/// when the post infinity repeats the keys (one more cycle before them when
/// the pre infinity does too); otherwise the keyed range with a fifth of it
/// as margin on each side. A curve without keys or with all keys at one time
/// gets a range of one or two seconds around them.
TtimeRange defaultView(const TparamCurve& curve);

/// The keys inside `view`, then their images in the repeating infinities
/// (cycle, cycle relative, oscillate), sorted by time. Where two coincide
/// (the last key and the first key's image, one period on) only the key, or
/// the image nearer the keyed range, is kept. Images are left out altogether
/// when they would number more than kMaxImages.
std::vector<TkeyMark> keyMarksInView(const TparamCurve& curve, const TtimeRange& view);
inline constexpr unsigned kMaxImages = 2000;

/// `count` evenly spaced samples from view.from to view.to, both included,
/// merged with a sample at every mark; samples at marks refer to them.
std::vector<Tsample> sampleTable(TparamCurve& curve, const TtimeRange& view, unsigned count,
                                 const std::vector<TkeyMark>& marks);

/// `count` evenly spaced samples plus, at every mark, one sample at the mark
/// and one at the float time just before it, so that steps and corners at
/// keys are drawn sharp rather than cut across.
std::vector<Tsample> samplePolyline(TparamCurve& curve, const TtimeRange& view, unsigned count,
                                    const std::vector<TkeyMark>& marks);

/// "key 2", or "key 2, cycle +1" for an image.
std::string markLabel(const TkeyMark& mark);

/// Prints an aligned table: time, value and the mark label of rows at keys.
/// Times get as many decimals as the row spacing needs (at least three).
void printTable(std::FILE* out, const std::vector<Tsample>& rows,
                const std::vector<TkeyMark>& marks);

}  // namespace lumora::tool
