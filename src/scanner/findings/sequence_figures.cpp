// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/findings/sequence_figures.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <utility>

#include "core/median.hpp"
#include "geometry/quadratic_fit.hpp"
#include "scanner/findings/fringe_patch.hpp"
#include "scanner/findings/patch_shift.hpp"
#include "scanner/small_fit.hpp"

namespace vorn::mv {

namespace {

/// What one light for all images, a response that is not linear and light that changes from image to image
/// make of what four fringe images hold beside their fringe, over the mean: where the light changes, that
/// holds the fringe itself, which along the rows of a projector looks like bands.
cv::Vec<double, 5> unevenTerms(FringeSample const& sample) {
  double const contrast = sample.amplitude / std::max(sample.mean, 1.0);
  return {1, sample.cos2, sample.sin2, contrast * sample.cos1, contrast * sample.sin1};
}

/// Means over image rows of what is left of a share that noise alone should make.
class RowScatter {
public:
  void add(int row, double value) {
    Row& r = rows_[row];
    r.sum += value;
    ++r.count;
  }
  void addDifference(double difference) {
    squares_ += difference * difference;
    ++differences_;
  }

  /// The scatter of the means of rows.
  struct Scatter {
    double ratio = SequenceFigures::untold; ///< over what the differences of neighbours let expect
    double depth = SequenceFigures::untold; ///< less that, a standard deviation
  };
  Scatter scatter() const {
    constexpr int fewest = 20;
    double sum = 0;
    double weight = 0;
    double squares = 0;
    int rowCount = 0;
    for (auto const& [number, row] : rows_) {
      if (row.count >= fewest) {
        sum += row.sum;
        weight += row.count;
        squares += row.sum * row.sum / row.count;
        ++rowCount;
      }
    }
    double const variance = squares_ / std::max(1.0, 2.0 * differences_);
    if (rowCount < fewest || variance <= 0) {
      return {};
    }
    double const scattered = std::max(0.0, squares - sum * sum / weight);
    double const more = std::max(0.0, scattered - (rowCount - 1) * variance);
    return {std::sqrt(scattered / (rowCount - 1) / variance), std::sqrt(more / weight)};
  }

private:
  struct Row {
    double sum = 0;
    int count = 0;
  };
  std::map<int, Row> rows_;
  double squares_ = 0;
  double differences_ = 0;
};

/// What repeats in a decoded coordinate with each projector pixel and with each fringe, of what quadratic
/// surfaces on the patches leave.
class Repetition {
public:
  explicit Repetition(int period) : period_(period) {}

  void add(cv::Mat_<float> const& map, cv::Rect const& patch, cv::Mat_<std::uint8_t> const& isInner) {
    cv::Mat_<float> const coordinates = map(patch);
    double const scale = 2.0 / patch.width;
    QuadraticFit<6, 1> fit;
    std::vector<std::pair<cv::Vec6d, double>> samples;
    for (int y = 0; y < patch.height; ++y) {
      for (int x = 0; x < patch.width; ++x) {
        if (isInner(y, x) != 0 && coordinates(y, x) >= 0) {
          samples.emplace_back(quadraticTerms(x * scale - 1, y * scale - 1), coordinates(y, x));
          fit.add(samples.back().first, cv::Vec<double, 1>(samples.back().second));
        }
      }
    }
    constexpr std::size_t fewest = 30;
    auto const surface = samples.size() < fewest ? std::nullopt : fit.solve();
    if (!surface) {
      return;
    }
    for (auto const& [terms, value] : samples) {
      double smooth = 0;
      for (int i = 0; i < 6; ++i) {
        smooth += terms[i] * surface->coefficients(i, 0);
      }
      constexpr double gross = 1; // another stripe's coordinate
      double const rest = value - smooth;
      if (std::abs(rest) < gross) {
        double const byPixel = CV_2PI * value;
        double const byFringe = byPixel / period_;
        byPixel_.add({1, std::cos(byPixel), std::sin(byPixel)}, rest);
        byFringe_.add({1, std::cos(byFringe), std::sin(byFringe)}, rest);
      }
    }
  }

  double staircase() const { return amplitudeOf(byPixel_); }
  double ripple() const { return amplitudeOf(byFringe_); }

private:
  static double amplitudeOf(SmallFit<3> const& fit) {
    auto const solved = fit.solve();
    return solved ? std::hypot((*solved)[1], (*solved)[2]) : SequenceFigures::untold;
  }

  double period_;
  SmallFit<3> byPixel_;
  SmallFit<3> byFringe_;
};

} // namespace

double medianOrUntold(std::vector<double> values) {
  return values.empty() ? SequenceFigures::untold : medianAmong(values);
}

SequenceFigures sequenceFiguresOf(sl::GreyStack const& sequence, cv::Mat_<float> const& map, int period,
                                  std::vector<cv::Rect> const& patches) {
  SequenceFigures figures;
  SmallFit<3> harmonic; // of what is beside, over the amplitude
  SmallFit<5> uneven;   // of the same, over the mean
  std::vector<double> amplitudes;
  std::vector<double> contrasts;
  double clipped = 0;
  Repetition repetition(period);
  std::vector<std::vector<FringeSample>> ofPatches;
  std::vector<std::optional<cv::Vec2d>> steps;
  for (cv::Rect const& patch : patches) {
    FringePatch const fringes(sequence, patch);
    for (auto const& image : fringes.images) {
      clipped += shareClipped(image) / static_cast<double>(fringes.images.size());
    }
    std::vector<FringeSample>& samples = ofPatches.emplace_back();
    for (int y = 0; y < patch.height; ++y) {
      for (int x = 0; x < patch.width; ++x) {
        if (fringes.isInner(y, x) != 0) {
          FringeSample const sample = fringes.sampleAt(y, x);
          samples.push_back(sample);
          amplitudes.push_back(sample.amplitude);
          contrasts.push_back(sample.amplitude / std::max(sample.mean, 1.0));
          harmonic.add({1, sample.cos2, sample.sin2}, sample.beside / sample.amplitude);
          uneven.add(unevenTerms(sample), sample.beside / std::max(sample.mean, 1.0));
        }
      }
    }
    repetition.add(map, patch, fringes.isInner);
    auto const step = shiftOf(fringes.meanOfPair(0), fringes.meanOfPair(1));
    // Dark patches, whose noise explains more than their dots, tell nothing.
    if (step && cv::norm(*step) < ViewFigures::largeMotion) {
      steps.push_back(step);
    }
  }
  figures.creep = typicalShift(steps);
  if (!patches.empty()) {
    figures.clipped = clipped / static_cast<double>(patches.size());
  }
  // Of a few pixels, such as the white of boards in small images leaves, fits follow the noise.
  constexpr std::size_t fewestSamples = 1000;
  bool const isTelling = amplitudes.size() >= fewestSamples;
  figures.amplitude = medianOrUntold(std::move(amplitudes));
  figures.contrast = medianOrUntold(std::move(contrasts));
  if (isTelling) {
    figures.staircase = repetition.staircase();
    figures.ripple = repetition.ripple();
  }
  auto const harmonics = harmonic.solve();
  auto const unevenness = uneven.solve();
  if (isTelling && harmonics && unevenness) {
    figures.secondHarmonic = std::hypot((*harmonics)[1], (*harmonics)[2]);
    figures.flicker = std::abs((*unevenness)[0]);
    RowScatter rows;
    for (std::size_t i = 0; i < patches.size(); ++i) {
      FringeSample const* before = nullptr;
      double valueBefore = 0;
      for (FringeSample const& sample : ofPatches[i]) {
        double const value =
            sample.beside / std::max(sample.mean, 1.0) - unevenness->dot(unevenTerms(sample));
        rows.add(patches[i].y + sample.place.y, value);
        if (before != nullptr && before->place + cv::Point(1, 0) == sample.place) {
          rows.addDifference(value - valueBefore);
        }
        before = &sample;
        valueBefore = value;
      }
    }
    auto const [ratio, depth] = rows.scatter();
    figures.bands = ratio;
    figures.bandDepth = depth;
  }
  return figures;
}

} // namespace vorn::mv
