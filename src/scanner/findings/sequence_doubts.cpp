// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/findings/sequence_doubts.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/decode_patterns.hpp>

#include "core/progress.hpp"
#include "scanner/findings/step_levels.hpp"
#include "sl/patterns/crossing_check.hpp"
#include "sl/patterns/pattern_reading.hpp"
#include "sl/patterns/reading_plan.hpp"
#include "sl/patterns/repeat_check.hpp"
#include "sl/patterns/running_check.hpp"
#include "sl/patterns/sample_check.hpp"

namespace vorn::mv {

namespace {

/// The sequence as a set. It need not be one that the pattern generator makes: a stack may have more planes.
PatternSet setOf(PatternAxis axis, sl::CodedAxis const& coded, std::size_t images) {
  PatternSet set;
  set.projector = {coded.resolution, coded.resolution};
  PatternImage image;
  image.axis = axis;
  image.role = PatternRole::Phase;
  image.period = coded.code.period;
  image.steps = sl::StripeCode::phaseImages;
  for (image.step = 0; image.step < image.steps; ++image.step) {
    set.images.push_back(image);
  }
  image = {};
  image.axis = axis;
  image.role = PatternRole::Bit;
  image.code = BitCode::Xor;
  image.cell = coded.code.period;
  for (; set.images.size() < images; ++image.bit) {
    set.images.push_back(image);
  }
  return set;
}

/// Some rows and columns of an image one after another in one row, dark between them, so that none is the
/// neighbour of another.
class SampledLines {
public:
  SampledLines(cv::Size const& size, PatternAxis axis) {
    // Stripes of columns cross rows, unless the camera stands on its side.
    constexpr int across = 24;
    constexpr int along = 8;
    bool const isColumn = axis == PatternAxis::Column;
    rows_ = spread(size.height, isColumn ? across : along);
    columns_ = spread(size.width, isColumn ? along : across);
    length_ = static_cast<int>(rows_.size()) * (size.width + dark) +
              static_cast<int>(columns_.size()) * (size.height + dark);
  }

  cv::Mat of(cv::Mat const& image) const {
    cv::Mat lines = cv::Mat::zeros(1, length_, image.type());
    int at = 0;
    for (int const y : rows_) {
      image.row(y).copyTo(lines.colRange(at, at + image.cols));
      at += image.cols + dark;
    }
    for (int const x : columns_) {
      cv::Mat line = lines.colRange(at, at + image.rows);
      cv::transpose(image.col(x), line);
      at += image.rows + dark;
    }
    return lines;
  }

private:
  static constexpr int dark = 8; ///< more than a check looks over

  static std::vector<int> spread(int length, int count) {
    std::vector<int> places;
    int const number = std::min(length, count);
    for (int i = 0; i < number; ++i) {
      places.push_back((2 * i + 1) * length / (2 * number));
    }
    return places;
  }

  std::vector<int> rows_, columns_;
  int length_ = 0;
};

/// What makes a bit certain, in the levels of the images.
float certainMargin(sl::PatternReading const& reading) {
  constexpr float deviations = 4.0F; // one in 30 000 is not where it seems to be
  constexpr float ofRounding = 0.28867513F;
  return deviations * sl::LevelNoise(reading.tally(0).noise, ofRounding).overall();
}

/// The other axis' stripes are twice, or half, as wide, and begin half a pixel before the first pixel, too:
/// in parts of the period that is a sixteenth elsewhere.
void nameOtherAxis(PatternAxis axis, std::vector<PatternDoubt>& doubts) {
  constexpr double elsewhere = 0.0625;
  constexpr double scatter = 0.01;
  for (PatternDoubt& doubt : doubts) {
    if (doubt.fault == PatternFault::Shifted && std::fabs(doubt.value - elsewhere) < scatter) {
      doubt.text += axis == PatternAxis::Column ? "; the images of rows look like that"
                                                : "; the images of columns look like that";
    }
  }
}

/// That one phase image is brighter or darker than the others by more than the decoder corrects.
std::optional<PatternDoubt> levelDoubt(PatternSet const& set, sl::Fringe const& fringe,
                                       StepLevels const& found) {
  if (found.phaseError <= StepLevels::mostPhaseError) {
    return std::nullopt;
  }
  PatternDoubt doubt;
  doubt.fault = PatternFault::Level;
  doubt.axis = set.images[fringe.images[0]].axis;
  doubt.period = fringe.period;
  doubt.images = {fringe.images[found.image]};
  doubt.value = 2.0 * found.phaseError; // the sine and the cosine of a phase swing by twice the amplitude
  doubt.limit = 2.0 * StepLevels::mostPhaseError;
  doubt.text = sl::nameWithin(set, doubt.images[0]) + " " + found.text();
  return doubt;
}

/// Whether a doubt says what is to be done about an image.
bool isMendedBy(std::vector<PatternDoubt> const& doubts, std::size_t image) {
  return std::any_of(doubts.begin(), doubts.end(), [&](PatternDoubt const& doubt) {
    return doubt.images.size() == 2 && (doubt.images[0] == image || doubt.images[1] == image);
  });
}

} // namespace

std::vector<PatternDoubt> sequenceDoubts(sl::GreyStack const& stack, PatternAxis axis,
                                         sl::CodedAxis const& coded, double maxGrayLevel) {
  PatternSet const set = setOf(axis, coded, stack.images.size());
  sl::ReadingPlan const plan(set);
  SampledLines const sampled(stack.images[0].size(), axis);
  std::vector<cv::Mat> lines;
  for (cv::Mat const& image : stack.images) {
    lines.push_back(sampled.of(image));
  }
  DecodeSettings settings;
  settings.whiteLevel = stack.white;
  sl::PatternReading reading(set, plan, settings, lines[0]);
  sl::PatternReading::Band band(0, 1);
  sl::KeptSamples kept(stack.images[0].size(), stack.images.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    reading.prepare(i);
    reading.take(i, lines, band);
    kept.take(i, stack.images[i], reading.range(), 0, stack.images[i].rows);
  }
  sl::Fringe const& fringe = plan.fringes[0].fringe;
  sl::RepeatCheck const repeats = sl::checkRepeats(set, fringe, kept);
  if (!repeats.doubts.empty()) {
    return repeats.doubts; // what else does not fit comes of that
  }
  std::vector<PatternDoubt> doubts = sl::checkSamples(set, plan, kept, Progress()).doubts;
  constexpr double leastAmplitude = 4.0; // grey levels
  LitLimits const lit{leastAmplitude * stack.perGrey(), maxGrayLevel * stack.perGrey()};
  std::optional<PatternDoubt> const level = levelDoubt(set, fringe, stepLevels(stack, lit));
  if (level && !isMendedBy(doubts, level->images[0])) {
    return {*level};
  }
  int const bits = static_cast<int>(set.images.size()) - sl::StripeCode::phaseImages;
  sl::CodeWord const word(set.images[sl::StripeCode::phaseImages], bits);
  sl::CodeMaps const& code = reading.code(0);
  cv::Mat_<float> const& phase = reading.fringe(0).phase;
  float const certain = certainMargin(reading);
  std::vector<PatternDoubt> const running =
      sl::checkRunning(set, fringe, word, code, phase, certain, repeats.alike);
  std::vector<PatternDoubt> of = sl::checkCrossings(set, axis, word, {{&code}, {{&fringe, &phase}}}, certain);
  // Scenes of many small surfaces have as many broken borders as wrong images, but fringes end there.
  bool const isTold = running.empty() || !repeats.alike.empty();
  of.erase(std::remove_if(of.begin(), of.end(),
                          [&](PatternDoubt const& doubt) {
                            return doubt.fault == PatternFault::Stripes && isTold &&
                                   doubt.images.size() == static_cast<std::size_t>(bits);
                          }),
           of.end());
  of = of.empty() ? running : of;
  nameOtherAxis(axis, of);
  doubts.insert(doubts.end(), of.begin(), of.end());
  return doubts;
}

} // namespace vorn::mv
