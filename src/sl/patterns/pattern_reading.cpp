// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/pattern_reading.hpp"

#include <algorithm>
#include <limits>

#include <opencv2/core.hpp>

#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

constexpr float unbounded = std::numeric_limits<float>::infinity();

SampleRange rangeOf(DecodeSettings const& settings, cv::Mat const& image) {
  int const depth = image.depth();
  SampleRange range{};
  double const usual = depth == CV_8U ? 255.0 : depth == CV_16U ? 65535.0 : 0.0;
  double const white = settings.whiteLevel > 0.0 ? settings.whiteLevel : usual;
  range.black = static_cast<float>(settings.blackLevel);
  range.white = white > 0.0 ? static_cast<float>(white - settings.blackLevel) : unbounded;
  // Where nothing tells how bright white is, all pixels are alike.
  range.levelStep = white > 0.0 ? range.white / static_cast<float>(levelBins) : unbounded;
  range.isWhole = depth != CV_32F;
  constexpr std::size_t plenty = 400000; // pixels
  constexpr std::size_t large = 4 * plenty;
  range.rowStep = image.total() > large ? static_cast<int>(image.total() / plenty) : 1;
  return range;
}

VORN_TARGET_CLONES
void subtractRow(float const* other, int n, float* __restrict values) {
  for (int x = 0; x < n; ++x) {
    values[x] -= other[x];
  }
}

/// A sample that is clipped tells only that the light was above white: nothing of a level that is above, too.
/// One that is not a number stays so: no bit can be less certain.
VORN_TARGET_CLONES
void compareRow(float const* level, float white, int n, float* __restrict values) {
  for (int x = 0; x < n; ++x) {
    float const difference = values[x] - level[x];
    values[x] = values[x] >= white ? std::max(0.0F, white - level[x]) : difference;
  }
}

VORN_TARGET_CLONES
void shortenRow(float const* values, int n, ShortFloat* __restrict out) {
  for (int x = 0; x < n; ++x) {
    out[x] = toShortFloat(values[x]);
  }
}

/// As before any bit.
void startCode(int row, CodeMaps& maps) {
  constexpr ShortFloat farthest = std::numeric_limits<ShortFloat>::max();
  std::fill_n(maps.word[row], maps.word.cols, 0);
  std::fill_n(maps.weakest[row], maps.weakest.cols, uchar{0});
  std::fill_n(maps.margin[row], maps.margin.cols, farthest);
  std::fill_n(maps.second[row], maps.second.cols, farthest);
  if (!maps.range.empty()) {
    std::fill_n(maps.range[row], maps.range.cols, 0.0F);
  }
}

VORN_TARGET_CLONES
void leastRow(float const* other, int n, float* __restrict values) {
  for (int x = 0; x < n; ++x) {
    values[x] = std::min(values[x], other[x]);
  }
}

} // namespace

PatternReading::PatternReading(PatternSet const& set, ReadingPlan const& plan, DecodeSettings const& settings,
                               cv::Mat const& first)
    : set_(set), plan_(plan), size_(first.size()), range_(rangeOf(settings, first)),
      kept_(size_, set.images.size()), fringes_(plan.fringes.size()), codes_(plan.codes.size()),
      levels_(plan.levels.size()), tallies_(plan.fringes.size()), harmonics_(plan.fringes.size()) {
  constexpr float usualLeast = 3.0F;
  least_ = settings.minModulation >= 0.0 ? static_cast<float>(settings.minModulation)
           : first.depth() == CV_8U      ? usualLeast
                                         : 0.0F;
  modulation_ = cv::Mat_<float>(size_, std::numeric_limits<float>::max());
}

/// Whether no fringe of its axis is finer.
bool PatternReading::isFinest(std::size_t fringe) const {
  Fringe const& own = plan_.fringes[fringe].fringe;
  return std::all_of(plan_.fringes.begin(), plan_.fringes.end(), [&](FringeDesign const& other) {
    return other.fringe.axis != own.axis || other.fringe.period >= own.period;
  });
}

bool PatternReading::hasFringes(PatternAxis axis) const {
  return std::any_of(plan_.fringes.begin(), plan_.fringes.end(),
                     [&](FringeDesign const& design) { return design.fringe.axis == axis; });
}

FringeTally PatternReading::tally(std::size_t fringe) const {
  FringeTally all = tallies_[fringe];
  for (cv::Vec2d const& ofRow : harmonics_[fringe]) {
    all.harmonic += ofRow[0];
    all.power += ofRow[1];
  }
  return all;
}

void PatternReading::prepare(std::size_t image) {
  for (ReadingStep const& step : plan_.steps[image]) {
    switch (step.kind) {
    case ReadingStep::Solve: {
      FringeMaps& maps = fringes_[step.target];
      maps.phase.create(size_);
      maps.precision.create(size_);
      maps.level.create(size_);
      harmonics_[step.target].assign(static_cast<std::size_t>(size_.height), {});
      for (std::size_t level = 0; level < plan_.levels.size(); ++level) {
        if (plan_.levels[level].source == LevelPlan::FringeMean &&
            plan_.levels[level].fringe == step.target) {
          levels_[level].create(size_);
        }
      }
      break;
    }
    case ReadingStep::Level:
      levels_[step.target].create(size_);
      break;
    case ReadingStep::Compare:
    case ReadingStep::Subtract: {
      CodeMaps& maps = codes_[step.target];
      if (maps.word.empty()) {
        maps.word.create(size_);
        maps.weakest.create(size_);
        maps.margin.create(size_);
        maps.second.create(size_);
        if (!hasFringes(plan_.codes[step.target].axis)) {
          maps.range.create(size_);
        }
      }
      break;
    }
    case ReadingStep::Add:
      break;
    }
  }
}

void PatternReading::take(std::size_t image, std::vector<cv::Mat> const& images, Band& band) {
  kept_.take(image, images[image], range_, band.firstRow_, band.endRow_);
  for (ReadingStep const& step : plan_.steps[image]) {
    switch (step.kind) {
    case ReadingStep::Add:
      addStep(step, images[step.image], band);
      break;
    case ReadingStep::Solve:
      solve(step.target, band);
      break;
    case ReadingStep::Level:
      makeLevel(step, images, band);
      break;
    case ReadingStep::Compare:
    case ReadingStep::Subtract:
      readBit(step, images, band);
      break;
    }
  }
}

void PatternReading::addStep(ReadingStep const& step, cv::Mat const& image, Band& band) {
  band.sums_.resize(plan_.fringes.size());
  std::unique_ptr<FringeSums>& sums = band.sums_[step.target];
  if (sums == nullptr) {
    sums = std::make_unique<FringeSums>(plan_.fringes[step.target], band.firstRow_,
                                        band.endRow_ - band.firstRow_, size_.width);
  }
  std::vector<float> samples(static_cast<std::size_t>(size_.width));
  for (int y = band.firstRow_; y < band.endRow_; ++y) {
    loadRow(image, y, range_.black, samples.data());
    sums->add(step.other, samples.data(), range_, y);
  }
}

void PatternReading::solve(std::size_t fringe, Band& band) {
  FringeMaps& maps = fringes_[fringe];
  FringeTally all;
  auto const width = static_cast<std::size_t>(size_.width);
  std::vector<float> amplitude(width);
  std::vector<float> mean(width);
  std::vector<float> precision(width);
  bool const isOfModulation = isFinest(fringe);
  for (int y = band.firstRow_; y < band.endRow_; ++y) {
    all.harmonic = all.power = 0.0;
    band.sums_[fringe]->solve(y, range_, least_,
                              {maps.phase[y], precision.data(), amplitude.data(), mean.data(), maps.level[y]},
                              all);
    shortenRow(precision.data(), size_.width, maps.precision[y]);
    harmonics_[fringe][static_cast<std::size_t>(y)] = {all.harmonic, all.power};
    if (isOfModulation) {
      leastRow(amplitude.data(), size_.width, modulation_[y]);
    }
    for (std::size_t level = 0; level < plan_.levels.size(); ++level) {
      LevelPlan const& plan = plan_.levels[level];
      if (plan.source == LevelPlan::FringeMean && plan.fringe == fringe) {
        std::transform(mean.begin(), mean.end(), levels_[level][y],
                       [&](float value) { return plan.gain * value; });
      }
    }
  }
  band.sums_[fringe].reset();
  std::lock_guard<std::mutex> const lock(tallying_);
  tallies_[fringe].noise.add(all.noise);
}

void PatternReading::makeLevel(ReadingStep const& step, std::vector<cv::Mat> const& images,
                               Band const& band) {
  std::vector<float> black(static_cast<std::size_t>(size_.width));
  for (int y = band.firstRow_; y < band.endRow_; ++y) {
    float* const level = levels_[step.target][y];
    loadRow(images[step.image], y, range_.black, level);
    loadRow(images[step.other], y, range_.black, black.data());
    for (int x = 0; x < size_.width; ++x) {
      level[x] = 0.5F * (level[x] + black[static_cast<std::size_t>(x)]);
    }
  }
}

void PatternReading::readBit(ReadingStep const& step, std::vector<cv::Mat> const& images, Band const& band) {
  CodeMaps& maps = codes_[step.target];
  std::vector<float> difference(static_cast<std::size_t>(size_.width));
  std::vector<float> inverse(difference.size());
  bool const isPair = step.kind == ReadingStep::Subtract;
  // The noise of a difference of two images is sqrt(2) that of one. Half of it is the bit's amplitude.
  BitScales const scales = isPair ? BitScales{0.70710678F, 0.5F} : BitScales{1.0F, 1.0F};
  for (int y = band.firstRow_; y < band.endRow_; ++y) {
    if (step.image == plan_.codes[step.target].firstBit) {
      startCode(y, maps);
    }
    loadRow(images[step.image], y, range_.black, difference.data());
    if (isPair) {
      loadRow(images[step.other], y, range_.black, inverse.data());
      subtractRow(inverse.data(), size_.width, difference.data());
    } else {
      compareRow(levels_[plan_.codes[step.target].level][y], range_.white, size_.width, difference.data());
    }
    addBit(difference.data(), scales, set_.images[step.image].bit, size_.width,
           {maps.word.ptr<std::uint32_t>(y), maps.weakest[y], maps.margin[y], maps.second[y],
            maps.range.empty() ? nullptr : maps.range[y]});
  }
}

} // namespace vorn::mv::sl
