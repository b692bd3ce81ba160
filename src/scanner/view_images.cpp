// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/view_images.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "core/median.hpp"
#include "geometry/quadratic_fit.hpp"
#include "imaging/white_level.hpp"
#include "sl/coding/stripe_code.hpp"

namespace vorn::mv {

namespace {

constexpr double fullRange = 255;

/// Amplitude and phase of a fringe and what its four images hold beside, of pixels that tell them.
struct FringeSample {
  cv::Point place;
  double amplitude = 0;
  double mean = 0;
  double beside = 0; ///< (P0 - P1 + P2 - P3) / 4
  double cos2 = 0;   ///< of twice the phase
  double sin2 = 0;
};

/// Normal equations of few unknowns.
template <int count>
class SmallFit {
public:
  void add(cv::Vec<double, count> const& terms, double value, double weight = 1) {
    for (int i = 0; i < count; ++i) {
      right_[i] += weight * terms[i] * value;
      for (int j = 0; j < count; ++j) {
        normal_(i, j) += weight * terms[i] * terms[j];
      }
    }
  }
  std::optional<cv::Vec<double, count>> solve() const {
    bool isSolved = false;
    auto const inverse = normal_.inv(cv::DECOMP_CHOLESKY, &isSolved);
    return isSolved ? std::optional<cv::Vec<double, count>>(inverse * right_) : std::nullopt;
  }
  /// What a solution explains of the sum of the values' squares.
  double explainedBy(cv::Vec<double, count> const& solution) const { return solution.dot(right_); }

private:
  cv::Matx<double, count, count> normal_ = cv::Matx<double, count, count>::zeros();
  cv::Vec<double, count> right_;
};

/// Square patches around the dots that lie within the image, as large as the dots' distance lets them be.
std::vector<cv::Rect> patchesAt(std::vector<cv::Point2f> const& dots, cv::Size const& image) {
  std::vector<float> distances;
  for (cv::Point2f const& a : dots) {
    float nearest = std::numeric_limits<float>::infinity();
    for (cv::Point2f const& b : dots) {
      if (&a != &b) {
        cv::Point2f const d = a - b;
        nearest = std::min(nearest, d.dot(d));
      }
    }
    distances.push_back(std::sqrt(nearest));
  }
  constexpr float leastRadius = 4;
  constexpr float mostRadius = 40;
  float const distance = medianAmong(distances);
  int const radius = cvRound(std::clamp(0.5F * distance, leastRadius, mostRadius));
  std::vector<cv::Rect> patches;
  cv::Rect const whole(cv::Point(), image);
  for (cv::Point2f const& dot : dots) {
    cv::Rect const patch(cvRound(dot.x) - radius, cvRound(dot.y) - radius, 2 * radius + 1, 2 * radius + 1);
    if ((patch & whole) == patch) {
      patches.push_back(patch);
    }
  }
  return patches;
}

/// A patch of an image in grey values of 255.
/// @param white the image's level that is 255
cv::Mat_<float> patchOf(cv::Mat const& image, cv::Rect const& patch, double white) {
  cv::Mat grey = image(patch);
  if (grey.channels() > 1) {
    cv::cvtColor(grey, grey, grey.channels() == 4 ? cv::COLOR_BGRA2GRAY : cv::COLOR_BGR2GRAY);
  }
  cv::Mat_<float> result;
  grey.convertTo(result, CV_32F, fullRange / white);
  return result;
}

double shareClipped(cv::Mat_<float> const& patch) {
  constexpr float clipped = 254;
  return static_cast<double>(cv::countNonZero(patch >= clipped)) / static_cast<double>(patch.total());
}

/// The fringes of one patch.
struct FringePatch {
  std::array<cv::Mat_<float>, sl::StripeCode::phaseImages> images;
  cv::Mat_<float> amplitude;
  /// Pixels well within the lit parts.
  cv::Mat_<std::uint8_t> isInner;

  FringePatch(sl::GreyStack const& sequence, cv::Rect const& patch) : isInner(patch.size()) {
    for (std::size_t k = 0; k < images.size(); ++k) {
      images[k] = patchOf(sequence.images[k], patch, sequence.white);
    }
    cv::Mat c;
    cv::Mat s;
    cv::subtract(images[0], images[2], c);
    cv::subtract(images[3], images[1], s);
    cv::magnitude(c, s, amplitude);
    amplitude *= 0.5;
    std::vector<float> all(amplitude.begin(), amplitude.end());
    float const high = rankedAmong(all, all.size() * 9 / 10);
    constexpr int rim = 5;
    cv::erode(amplitude > 0.5F * high, isInner, cv::Mat::ones(rim, rim, CV_8U), cv::Point(-1, -1), 1,
              cv::BORDER_CONSTANT, cv::Scalar(0));
  }

  FringeSample sampleAt(int y, int x) const {
    auto const at = [&](std::size_t k) { return static_cast<double>(images[k](y, x)); };
    double const c = at(0) - at(2);
    double const s = at(3) - at(1);
    double const squares = std::max(c * c + s * s, 1e-9);
    return {{x, y},
            static_cast<double>(amplitude(y, x)),
            0.25 * (at(0) + at(1) + at(2) + at(3)),
            0.25 * (at(0) - at(1) + at(2) - at(3)),
            (c * c - s * s) / squares,
            2 * c * s / squares};
  }
};

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

  /// The scatter of the means of rows over what the differences of neighbours let expect.
  double ratio() const {
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
      return SequenceFigures::untold;
    }
    return std::sqrt(std::max(0.0, squares - sum * sum / weight) / (rowCount - 1) / variance);
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

double median(std::vector<double> values) {
  return values.empty() ? SequenceFigures::untold : medianAmong(values);
}

SequenceFigures figuresOf(sl::GreyStack const& sequence, cv::Mat_<float> const& map, int period,
                          std::vector<cv::Rect> const& patches) {
  SequenceFigures figures;
  SmallFit<3> harmonic; // of what is beside, over the amplitude
  SmallFit<3> uneven;   // of the same, over the mean
  std::vector<double> amplitudes;
  std::vector<double> contrasts;
  double clipped = 0;
  Repetition repetition(period);
  std::vector<std::vector<FringeSample>> ofPatches;
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
          uneven.add({1, sample.cos2, sample.sin2}, sample.beside / std::max(sample.mean, 1.0));
        }
      }
    }
    repetition.add(map, patch, fringes.isInner);
  }
  if (!patches.empty()) {
    figures.clipped = clipped / static_cast<double>(patches.size());
  }
  figures.amplitude = median(std::move(amplitudes));
  figures.contrast = median(std::move(contrasts));
  figures.staircase = repetition.staircase();
  figures.ripple = repetition.ripple();
  auto const harmonics = harmonic.solve();
  auto const unevenness = uneven.solve();
  if (harmonics && unevenness) {
    figures.secondHarmonic = std::hypot((*harmonics)[1], (*harmonics)[2]);
    figures.flicker = std::abs((*unevenness)[0]);
    RowScatter rows;
    for (std::size_t i = 0; i < patches.size(); ++i) {
      FringeSample const* before = nullptr;
      double valueBefore = 0;
      for (FringeSample const& sample : ofPatches[i]) {
        double const value = sample.beside / std::max(sample.mean, 1.0) - (*unevenness)[0] -
                             (*unevenness)[1] * sample.cos2 - (*unevenness)[2] * sample.sin2;
        rows.add(patches[i].y + sample.place.y, value);
        if (before != nullptr && before->place + cv::Point(1, 0) == sample.place) {
          rows.addDifference(value - valueBefore);
        }
        before = &sample;
        valueBefore = value;
      }
    }
    figures.bands = rows.ratio();
  }
  return figures;
}

/// The patch under full light: mean and amplitude of the fringes together.
cv::Mat_<float> fullLight(sl::GreyStack const& sequence, cv::Rect const& patch) {
  FringePatch const fringes(sequence, patch);
  cv::Mat_<float> light = fringes.amplitude.clone();
  for (auto const& image : fringes.images) {
    cv::scaleAdd(image, 1.0 / static_cast<double>(fringes.images.size()), light, light);
  }
  return light;
}

/// By how many pixels what is seen in `from` lies elsewhere in `to`, whose gain and offset may differ; by
/// `ViewFigures::largeMotion` where no small shift explains the difference.
std::optional<cv::Vec2d> shiftOf(cv::Mat_<float> const& from, cv::Mat_<float> const& to) {
  constexpr float clipped = 250;
  SmallFit<4> fit;
  double sum = 0;
  double squares = 0;
  for (int y = 1; y + 1 < from.rows; ++y) {
    for (int x = 1; x + 1 < from.cols; ++x) {
      if (from(y, x) >= clipped || to(y, x) >= clipped) {
        return std::nullopt;
      }
      double const byX = 0.5 * (static_cast<double>(from(y, x + 1)) - from(y, x - 1));
      double const byY = 0.5 * (static_cast<double>(from(y + 1, x)) - from(y - 1, x));
      fit.add({from(y, x), 1, byX, byY}, to(y, x));
      sum += to(y, x);
      squares += static_cast<double>(to(y, x)) * to(y, x);
    }
  }
  auto const solved = fit.solve();
  if (!solved || std::abs((*solved)[0]) < 1e-6) {
    return std::nullopt;
  }
  double const varied = squares - sum * sum / ((from.rows - 2.0) * (from.cols - 2.0));
  constexpr double leastExplained = 0.8;
  if (squares - fit.explainedBy(*solved) > (1 - leastExplained) * varied) {
    return cv::Vec2d(ViewFigures::largeMotion, 0);
  }
  return cv::Vec2d(-(*solved)[2] / (*solved)[0], -(*solved)[3] / (*solved)[0]);
}

/// The length of the median of shifts, at most `ViewFigures::largeMotion`; untold for fewer than 10.
double typicalShift(std::vector<std::optional<cv::Vec2d>> const& shifts) {
  std::vector<double> x;
  std::vector<double> y;
  for (auto const& shift : shifts) {
    if (shift) {
      x.push_back((*shift)[0]);
      y.push_back((*shift)[1]);
    }
  }
  constexpr std::size_t fewest = 10;
  return x.size() < fewest ? SequenceFigures::untold
                           : std::min(ViewFigures::largeMotion, std::hypot(medianAmong(x), medianAmong(y)));
}

/// The blur of the edges of a dot: that of a step which is nowhere steeper.
std::optional<double> blurOf(cv::Mat_<float> const& patch) {
  std::vector<float> values(patch.begin(), patch.end());
  double const low = rankedAmong(values, values.size() / 20);
  double const contrast = rankedAmong(values, values.size() - 1 - values.size() / 20) - low;
  double steepest = 0;
  for (int y = 1; y + 1 < patch.rows; ++y) {
    for (int x = 1; x + 1 < patch.cols; ++x) {
      double const byX = 0.5 * (static_cast<double>(patch(y, x + 1)) - patch(y, x - 1));
      double const byY = 0.5 * (static_cast<double>(patch(y + 1, x)) - patch(y - 1, x));
      steepest = std::max(steepest, std::hypot(byX, byY));
    }
  }
  constexpr double leastContrast = 10;
  if (contrast < leastContrast || steepest <= 0) {
    return std::nullopt;
  }
  return contrast / (std::sqrt(CV_2PI) * steepest);
}

} // namespace

ViewFigures figuresOf(ViewImages const& view, cv::Mat_<float> const& columns, cv::Mat_<float> const& rows,
                      std::vector<cv::Point2f> const& dots) {
  std::vector<cv::Rect> const patches = patchesAt(dots, view.target.size());
  ViewFigures figures;
  figures.columns = figuresOf(view.columns, columns, sl::columnCode.period, patches);
  figures.rows = figuresOf(view.rows, rows, sl::rowCode.period, patches);
  double clipped = 0;
  double const targetWhite = findWhiteLevel({view.target});
  std::vector<std::optional<cv::Vec2d>> between;
  std::vector<std::optional<cv::Vec2d>> before;
  std::vector<double> blurs;
  for (cv::Rect const& patch : patches) {
    cv::Mat_<float> const target = patchOf(view.target, patch, targetWhite);
    cv::Mat_<float> const inColumns = fullLight(view.columns, patch);
    between.push_back(shiftOf(inColumns, fullLight(view.rows, patch)));
    before.push_back(shiftOf(target, inColumns));
    clipped += shareClipped(target);
    if (auto const blur = blurOf(target)) {
      blurs.push_back(*blur);
    }
  }
  // Images of real numbers have no end of their range.
  figures.targetClipped = view.target.depth() <= CV_16U && !patches.empty()
                              ? clipped / static_cast<double>(patches.size())
                              : SequenceFigures::untold;
  figures.cameraBlur = median(std::move(blurs));
  figures.movedBetween = typicalShift(between);
  figures.movedBefore = typicalShift(before);
  return figures;
}

} // namespace vorn::mv
