// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/check_scan.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>
#include <vector>

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <opencv2/calib3d.hpp>

#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "core/error.hpp"
#include "core/median.hpp"
#include "core/progress.hpp"
#include "scanner/scan/scan_points.hpp"
#include "scanner/scan/sight_geometry.hpp"
#include "scanner/scanner_access.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "checkScan";
constexpr char const* stage = "comparing columns and rows";
constexpr std::size_t fewestPixels = 1000;
constexpr int cubicTerms = 10;
/// How much greater than what noise makes of it a smooth part must be.
constexpr double significance = 3;
/// Share of outliers. Edges make one in a hundred, of small images and of dots up to seven; more say that
/// coordinates are not those of the pixels, and what the others agree on is then no proof.
constexpr double mostOutliers = 0.2;

using Cubic = Eigen::Matrix<double, cubicTerms, 1>;

/// A pixel with both coordinates.
struct Sample {
  cv::Point2f pixel;
  float coordinate; ///< that the point comes from
  float across;     ///< the other one
};

/// What the calibration makes of a sample.
struct Disagreement {
  double across = 0; ///< decoded minus foretold
  cv::Vec3d byTurn;  ///< the foretold one by a turn of the projector
};

std::vector<Sample> samplesOf(cv::Mat_<float> const& map, cv::Mat_<float> const& across, int mostPixels) {
  int step = 1;
  while (static_cast<double>(map.total()) / (step * step) > mostPixels) {
    ++step;
  }
  std::vector<Sample> samples;
  for (int y = step / 2; y < map.rows; y += step) {
    for (int x = step / 2; x < map.cols; x += step) {
      if (map(y, x) >= 0.0F && across(y, x) >= 0.0F) {
        samples.push_back({cv::Point2f(cv::Point(x, y)), map(y, x), across(y, x)});
      }
    }
  }
  return samples;
}

/// One for each sample; NaN for those without a point.
std::vector<Disagreement> disagreementsOf(SightGeometry const& geometry, std::vector<Sample> const& samples,
                                          Progress const& progress) {
  std::vector<Disagreement> result(samples.size());
  constexpr int perBand = 4096;
  constexpr int perRow = 256;
  int const rows = static_cast<int>((samples.size() + perRow - 1) / perRow);
  parallelRows(rows, perBand / perRow, progress, stage, [&](int firstRow, int endRow) {
    std::size_t const end = std::min(samples.size(), static_cast<std::size_t>(endRow) * perRow);
    for (std::size_t i = static_cast<std::size_t>(firstRow) * perRow; i < end; ++i) {
      Sample const& sample = samples[i];
      cv::Vec3d const point = geometry.pointOf(sample.pixel, static_cast<double>(sample.coordinate));
      SightGeometry::Across const across = geometry.across(point);
      result[i] = {static_cast<double>(sample.across) - across.coordinate, across.byTurn};
    }
  });
  return result;
}

Cubic termsAt(cv::Point2f const& pixel, cv::Size const& size) {
  double const x = 2 * static_cast<double>(pixel.x) / size.width - 1;
  double const y = 2 * static_cast<double>(pixel.y) / size.height - 1;
  Cubic terms;
  terms << 1, x, y, x * x, x * y, y * y, x * x * x, x * x * y, x * y * y, y * y * y;
  return terms;
}

/// 1.48 times the median distance from the median: a standard deviation that outliers do not change.
double robustSigma(std::vector<double> values, double& median) {
  constexpr double ofNormal = 1.482602218505602;
  median = medianOf(values);
  for (double& value : values) {
    value = std::abs(value - median);
  }
  return ofNormal * medianOf(values);
}

/// A cubic through disagreements, in spite of outliers.
class SmoothPart {
public:
  SmoothPart(std::vector<Sample> const& samples, std::vector<Disagreement> const& disagreements,
             cv::Size const& size)
      : samples_(samples), disagreements_(disagreements), size_(size), counts(samples.size()) {
    startWithMedian();
    constexpr int rounds = 4;
    for (int round = 0; round < rounds && count() >= fewestPixels; ++round) {
      fit();
      drop();
    }
  }

  std::size_t count() const {
    return static_cast<std::size_t>(std::count(counts.begin(), counts.end(), true));
  }

private:
  void startWithMedian() {
    std::vector<double> finite;
    for (Disagreement const& one : disagreements_) {
      if (std::isfinite(one.across)) {
        finite.push_back(one.across);
      }
    }
    if (finite.size() < fewestPixels) {
      return;
    }
    double median = 0;
    constexpr double reach = 6;
    double const most = reach * std::max(robustSigma(finite, median), 1e-4);
    for (std::size_t i = 0; i < counts.size(); ++i) {
      counts[i] = std::abs(disagreements_[i].across - median) <= most; // NaN is not
    }
  }

  void fit() {
    Eigen::Matrix<double, cubicTerms, cubicTerms> normal =
        1e-9 * Eigen::Matrix<double, cubicTerms, cubicTerms>::Identity(); // for scenes on one line
    Cubic right = Cubic::Zero();
    for (std::size_t i = 0; i < counts.size(); ++i) {
      if (counts[i]) {
        Cubic const terms = termsAt(samples_[i].pixel, size_);
        normal += terms * terms.transpose();
        right += disagreements_[i].across * terms;
      }
    }
    Cubic const cubic = normal.ldlt().solve(right);
    double squares = 0;
    double sum = 0;
    std::vector<double> residuals;
    for (std::size_t i = 0; i < counts.size(); ++i) {
      double const here = cubic.dot(termsAt(samples_[i].pixel, size_));
      residuals_.resize(counts.size());
      residuals_[i] = disagreements_[i].across - here;
      if (counts[i]) {
        squares += here * here;
        sum += here;
        residuals.push_back(residuals_[i]);
      }
    }
    auto const number = static_cast<double>(residuals.size());
    smooth = std::sqrt(squares / number);
    mean = sum / number;
    double median = 0;
    noise = robustSigma(residuals, median);
  }

  /// Takes in what fits the cubic and leaves out the rest.
  void drop() {
    constexpr double reach = 4;
    double const most = reach * std::max(noise, 1e-5);
    for (std::size_t i = 0; i < counts.size(); ++i) {
      counts[i] = std::abs(residuals_[i]) <= most;
    }
  }

  std::vector<Sample> const& samples_;
  std::vector<Disagreement> const& disagreements_;
  cv::Size size_;
  std::vector<double> residuals_;

public:
  double smooth = 0;
  double mean = 0;
  double noise = 0;
  std::vector<bool> counts; ///< of each sample, whether it does
};

SightGeometry geometryOf(Sl3dScanner const& scanner, cv::Vec3d const& turn) {
  cv::Matx33d turned;
  cv::Rodrigues(turn, turned);
  cv::Matx44d const& transform = scanner.getTransform();
  return {scanner.getCameraModel(), scanner.getProjectorModel(),
          math::createTransform(turned * math::getR3(transform), math::getT3(transform)),
          coordinateOf(scanner)};
}

/// The turn that makes the disagreements of the samples that count smallest, and how well it is known.
void findTurn(Sl3dScanner const& scanner, std::vector<Sample> const& samples, std::vector<bool> const& counts,
              Progress const& progress, ScanCheck& check) {
  constexpr int rounds = 4;
  for (int round = 0; round < rounds; ++round) {
    auto const disagreements =
        disagreementsOf(geometryOf(scanner, check.turn), samples,
                        progress.part(static_cast<double>(round) / rounds, (round + 1.0) / rounds));
    Eigen::Matrix3d normal = Eigen::Matrix3d::Zero();
    Eigen::Vector3d right = Eigen::Vector3d::Zero();
    for (std::size_t i = 0; i < samples.size(); ++i) {
      if (counts[i] && std::isfinite(disagreements[i].across)) {
        Eigen::Vector3d const slope(disagreements[i].byTurn.val);
        normal += slope * slope.transpose();
        right += disagreements[i].across * slope;
      }
    }
    Eigen::Vector3d const step = normal.ldlt().solve(right);
    Eigen::Vector3d const sigma = check.noise * normal.inverse().diagonal().cwiseSqrt();
    check.turn += cv::Vec3d(step.data());
    check.turnSigma = cv::Vec3d(sigma.data());
  }
}

/// Means over the samples that count, by cells of the image; NaN where there are none.
cv::Mat_<float> cellMeans(std::vector<Sample> const& samples, std::vector<Disagreement> const& disagreements,
                          std::vector<bool> const& counts, cv::Size const& image, cv::Size const& cells) {
  cv::Mat_<double> sums(cells, 0.0);
  cv::Mat_<int> numbers(cells, 0);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (counts[i]) {
      cv::Point const cell(static_cast<int>(samples[i].pixel.x) * cells.width / image.width,
                           static_cast<int>(samples[i].pixel.y) * cells.height / image.height);
      sums(cell) += disagreements[i].across;
      ++numbers(cell);
    }
  }
  cv::Mat_<float> means(cells, std::numeric_limits<float>::quiet_NaN());
  for (int y = 0; y < cells.height; ++y) {
    for (int x = 0; x < cells.width; ++x) {
      if (numbers(y, x) > 0) {
        means(y, x) = static_cast<float>(sums(y, x) / numbers(y, x));
      }
    }
  }
  return means;
}

/// The share of cells that hold anything.
double coverageOf(cv::Mat_<float> const& means) {
  cv::Mat const isFilled = means == means;
  return static_cast<double>(cv::countNonZero(isFilled)) / static_cast<double>(means.total());
}

void checkMaps(Sl3dScanner const& scanner, cv::Mat_<float> const& columns, cv::Mat_<float> const& rows) {
  if (!scanner.isCalibrated()) {
    throw error("The scanner is not calibrated: it has no models with an error below half a pixel", context);
  }
  ScannerAccess::requireTransform(scanner, context);
  cv::Size const size = scanner.getCameraModel().getResolution();
  if (columns.size() != size || rows.size() != size) {
    std::ostringstream message;
    message << "The maps of columns and rows are " << columns.size() << " and " << rows.size()
            << ", but the scanner's camera has " << size;
    throw error(message.str(), context);
  }
}

} // namespace

void ScanCheckSettings::check() const {
  if (!(limit > 0) || !std::isfinite(limit)) {
    throw error("limit must be above 0, not " + std::to_string(limit), context);
  }
  if (mostPixels < static_cast<int>(fewestPixels)) {
    throw error("mostPixels must be at least 1000, not " + std::to_string(mostPixels), context);
  }
}

ScanCheck checkScan(Sl3dScanner const& scanner, cv::Mat_<float> const& columns, cv::Mat_<float> const& rows,
                    ScanCheckSettings const& settings, Observer* observer) {
  settings.check();
  checkMaps(scanner, columns, rows);
  Progress const progress(observer);
  cv::Size const size = columns.size();
  bool const isColumn = coordinateOf(scanner) == MapCoordinate::Column;
  std::vector<Sample> const samples = isColumn ? samplesOf(columns, rows, settings.mostPixels)
                                               : samplesOf(rows, columns, settings.mostPixels);
  auto const disagreements = disagreementsOf(geometryOf(scanner, {}), samples, progress.part(0.0, 0.2));
  SmoothPart const part(samples, disagreements, size);
  ScanCheck check;
  check.limit = settings.limit;
  check.pixels = part.count();
  if (check.pixels < std::max(fewestPixels, samples.size() / 100)) {
    throw error("Only " + std::to_string(check.pixels) + " of " + std::to_string(samples.size()) +
                    " pixels with a column and a row have a point and agree with their neighbours: too few "
                    "to check a calibration by",
                context);
  }
  check.outliers = samples.size() - check.pixels;
  check.smooth = part.smooth;
  check.mean = part.mean;
  check.noise = part.noise;
  check.smoothSigma = part.noise * std::sqrt(cubicTerms / static_cast<double>(check.pixels));
  check.coverage = coverageOf(cellMeans(samples, disagreements, part.counts, size, {8, 6}));
  check.map = cellMeans(samples, disagreements, part.counts, size, {24, 18});
  bool const isHidden = significance * check.smoothSigma > settings.limit;
  bool const isAbove = check.smooth > std::max(settings.limit, significance * check.smoothSigma);
  bool const isTorn =
      static_cast<double>(check.outliers) > mostOutliers * static_cast<double>(samples.size());
  check.verdict = isTorn     ? ScanVerdict::Unclear
                  : isAbove  ? ScanVerdict::Drifted
                  : isHidden ? ScanVerdict::Unclear
                             : ScanVerdict::Good;
  check.isTorn = isTorn;
  if (check.verdict == ScanVerdict::Drifted) {
    findTurn(scanner, samples, part.counts, progress.part(0.2, 0.8), check);
    auto const after = disagreementsOf(geometryOf(scanner, check.turn), samples, progress.part(0.8, 1.0));
    check.smoothAfter = SmoothPart(samples, after, size).smooth;
  }
  progress.at(stage, 1.0);
  return check;
}

Sl3dScanner repaired(Sl3dScanner const& scanner, ScanCheck const& check) {
  if (check.verdict != ScanVerdict::Drifted) {
    throw error("The scan does not say that the calibration has drifted: there is nothing to repair",
                "repaired");
  }
  if (!(check.smoothAfter <= check.limit)) {
    std::ostringstream message;
    message << "No turn of the projector makes columns and rows agree: " << check.smoothAfter
            << " px are left, but at most " << check.limit
            << " may be. Something else has changed: calibrate anew";
    throw error(message.str(), "repaired");
  }
  Sl3dScanner result = scanner;
  cv::Matx33d turned;
  cv::Rodrigues(check.turn, turned);
  cv::Matx44d const transform = scanner.getTransform();
  result.setTransform(math::createTransform(turned * math::getR3(transform), math::getT3(transform)));
  return result;
}

} // namespace vorn::mv
