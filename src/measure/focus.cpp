// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/measure/focus.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "core/error.hpp"
#include "core/median.hpp"
#include "core/parallel.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "calcFocus";
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

void check(cv::Mat const& image, FocusSettings const& settings) {
  bool const isDepth = image.depth() == CV_8U || image.depth() == CV_16U || image.depth() == CV_32F;
  bool const isColor = image.channels() == 3 || image.channels() == 4;
  if (image.empty()) {
    throw error("The image is empty", function);
  }
  if (image.dims > 2 || !isDepth || (image.channels() != 1 && !isColor)) {
    throw error("The image must have 1, 3 or 4 channels of 8 or 16 bits or float", function);
  }
  if (!settings.mask.empty() && (settings.mask.size() != image.size() || settings.mask.type() != CV_8UC1)) {
    throw error("The mask must be CV_8UC1 and as large as the image", function);
  }
  if (!(settings.smoothing >= 0.3 && settings.smoothing <= 10.0)) {
    throw error("smoothing must be 0.3 to 10 px, not " + std::to_string(settings.smoothing), function);
  }
  if (settings.cell < 8 || settings.cell > 4096) {
    throw error("cell must be 8 to 4096 px, not " + std::to_string(settings.cell), function);
  }
}

/// The image in grey, in float.
cv::Mat_<float> greyOf(cv::Mat const& image) {
  cv::Mat grey = image;
  if (image.channels() > 1) {
    cv::cvtColor(image, grey, image.channels() == 3 ? cv::COLOR_BGR2GRAY : cv::COLOR_BGRA2GRAY);
  }
  cv::Mat_<float> result;
  grey.convertTo(result, CV_32F);
  return result;
}

/// Sets pixels that are not finite to 0, and finds all that filters would mix with them: they take no part.
/// @return empty where all are finite
cv::Mat_<uchar> takeNonFinite(cv::Mat_<float>& grey, FocusSettings const& settings) {
  cv::Mat_<uchar> bad;
  for (int y = 0; y < grey.rows; ++y) {
    for (int x = 0; x < grey.cols; ++x) {
      if (!std::isfinite(grey(y, x))) {
        if (bad.empty()) {
          bad = cv::Mat_<uchar>(grey.size(), uchar{0});
        }
        grey(y, x) = 0.0F;
        bad(y, x) = 255;
      }
    }
  }
  if (bad.empty()) {
    return bad;
  }
  // OpenCV's Gaussian of floats reaches four deviations; a difference or a sample beside an edge reaches on.
  bool const isEdgeWidth = settings.measure == FocusMeasure::EdgeWidth;
  double const deviation = isEdgeWidth ? 2.0 * settings.smoothing : settings.smoothing;
  int const reach = static_cast<int>(std::ceil(4.0 * deviation)) + (isEdgeWidth ? 4 : 2);
  cv::dilate(bad, bad, cv::getStructuringElement(cv::MORPH_RECT, {2 * reach + 1, 2 * reach + 1}));
  return bad;
}

cv::Mat_<float> smoothed(cv::Mat_<float> const& image, double sigma) {
  cv::Mat_<float> result;
  cv::GaussianBlur(image, result, {}, sigma, sigma, cv::BORDER_REPLICATE);
  return result;
}

/// Sums over the pixels of a cell that count.
struct CellSums {
  double value = 0.0;
  double squares = 0.0;
  double brightness = 0.0;
  std::size_t count = 0;

  void add(CellSums const& other) {
    value += other.value;
    squares += other.squares;
    brightness += other.brightness;
    count += other.count;
  }
};

/// Calls `body(sums, y, x)` for each pixel that counts, cells in parallel, and returns the cells' sums.
template <class Body>
std::vector<CellSums> overCells(cv::Size image, FocusSettings const& settings, cv::Size cells,
                                Body const& body) {
  std::vector<CellSums> sums(static_cast<std::size_t>(cells.area()));
  parallelRows(cells.height, [&](int begin, int end) {
    for (int row = begin; row < end; ++row) {
      for (int y = row * settings.cell; y < std::min((row + 1) * settings.cell, image.height); ++y) {
        uchar const* mask = settings.mask.empty() ? nullptr : settings.mask.ptr<uchar>(y);
        for (int x = 0; x < image.width; ++x) {
          if (mask == nullptr || mask[x] != 0) {
            CellSums& cell = sums[static_cast<std::size_t>(row * cells.width + x / settings.cell)];
            body(cell, y, x);
            ++cell.count;
          }
        }
      }
    }
  });
  return sums;
}

/// A figure of the whole from those of the cells, and their map.
template <class Figure>
Focus gathered(std::vector<CellSums> const& sums, cv::Size cells, Figure const& figure) {
  Focus focus;
  cv::Mat_<float> map(cells);
  CellSums all;
  for (int y = 0; y < cells.height; ++y) {
    for (int x = 0; x < cells.width; ++x) {
      CellSums const& cell = sums[static_cast<std::size_t>(y * cells.width + x)];
      map(y, x) = cell.count == 0 ? notANumber : static_cast<float>(figure(cell));
      all.add(cell);
    }
  }
  focus.map = map;
  focus.value = all.count == 0 ? std::numeric_limits<double>::quiet_NaN() : figure(all);
  return focus;
}

/// Relative to the brightness, so that a lamp or exposure changes nothing; a dark image has nothing to judge.
double perBrightness(double value, CellSums const& sums) {
  double const mean = sums.brightness / static_cast<double>(sums.count);
  return mean > 0.0 ? value / (mean * mean) : 0.0;
}

Focus laplacianVariance(cv::Mat_<float> const& grey, FocusSettings const& settings, cv::Size cells) {
  cv::Mat_<float> laplacian;
  cv::Laplacian(smoothed(grey, settings.smoothing), laplacian, CV_32F, 1, 1.0, 0.0, cv::BORDER_REPLICATE);
  auto const sums = overCells(grey.size(), settings, cells, [&](CellSums& cell, int y, int x) {
    auto const value = static_cast<double>(laplacian(y, x));
    cell.value += value;
    cell.squares += value * value;
    cell.brightness += static_cast<double>(grey(y, x));
  });
  return gathered(sums, cells, [](CellSums const& cell) {
    double const mean = cell.value / static_cast<double>(cell.count);
    return perBrightness(cell.squares / static_cast<double>(cell.count) - mean * mean, cell);
  });
}

struct Gradient {
  cv::Mat_<float> x;
  cv::Mat_<float> y;

  explicit Gradient(cv::Mat_<float> const& image) {
    cv::Matx13f const central(-0.5F, 0.0F, 0.5F);
    cv::filter2D(image, x, CV_32F, central, {-1, -1}, 0.0, cv::BORDER_REPLICATE);
    cv::filter2D(image, y, CV_32F, central.t(), {-1, -1}, 0.0, cv::BORDER_REPLICATE);
  }
  double size(int row, int column) const {
    return std::hypot(static_cast<double>(x(row, column)), static_cast<double>(y(row, column)));
  }
};

Focus tenengrad(cv::Mat_<float> const& grey, FocusSettings const& settings, cv::Size cells) {
  Gradient const gradient(smoothed(grey, settings.smoothing));
  auto const sums = overCells(grey.size(), settings, cells, [&](CellSums& cell, int y, int x) {
    auto const gx = static_cast<double>(gradient.x(y, x));
    auto const gy = static_cast<double>(gradient.y(y, x));
    cell.squares += gx * gx + gy * gy;
    cell.brightness += static_cast<double>(grey(y, x));
  });
  return gathered(sums, cells, [](CellSums const& cell) {
    return perBrightness(cell.squares / static_cast<double>(cell.count), cell);
  });
}

double sampled(cv::Mat_<float> const& image, double y, double x) {
  int const x0 = std::clamp(static_cast<int>(x), 0, image.cols - 2);
  int const y0 = std::clamp(static_cast<int>(y), 0, image.rows - 2);
  auto const fx = static_cast<float>(x - x0);
  auto const fy = static_cast<float>(y - y0);
  return static_cast<double>((image(y0, x0) * (1 - fx) + image(y0, x0 + 1) * fx) * (1 - fy) +
                             (image(y0 + 1, x0) * (1 - fx) + image(y0 + 1, x0 + 1) * fx) * fy);
}

/// A blur's standard deviation from the slopes of one edge under two smoothings: a Gaussian edge's slope goes
/// with 1 / sqrt(blur^2 + smoothing^2). NaN where the slopes do not fit an edge.
double blurOf(double fineSlope, double coarseSlope, double fineVariance, double coarseVariance) {
  double const ratio = fineSlope * fineSlope / (coarseSlope * coarseSlope);
  double const variance = (coarseVariance - ratio * fineVariance) / (ratio - 1.0);
  return ratio > 1.0 ? std::sqrt(std::max(variance, 0.0)) : std::numeric_limits<double>::quiet_NaN();
}

/// What the gradients of noise reach: several times the median size, which edges hardly move.
/// @param bad pixels that take no part; may be empty
double edgeThreshold(cv::Mat_<float> const& sizes, cv::Mat_<uchar> const& bad) {
  constexpr double timesMedian = 6.0;
  constexpr double shareOfGreatest = 0.1;
  std::vector<double> some;
  std::size_t const stride = std::max<std::size_t>(1, sizes.total() / 100000);
  double greatest = 0.0;
  for (std::size_t i = 0; i < sizes.total(); i += stride) {
    auto const y = static_cast<int>(i / static_cast<std::size_t>(sizes.cols));
    auto const x = static_cast<int>(i % static_cast<std::size_t>(sizes.cols));
    if (bad.empty() || bad(y, x) == 0) {
      some.push_back(static_cast<double>(sizes(y, x)));
    }
  }
  if (some.empty()) {
    return std::numeric_limits<double>::infinity();
  }
  for (double const size : some) {
    greatest = std::max(greatest, size);
  }
  return std::max({timesMedian * medianOf(some), shareOfGreatest * greatest, 1e-9});
}

struct EdgeBlur {
  cv::Point at;
  double sigma;
};

/// The blur at the crests of the gradient.
std::vector<EdgeBlur> edgeBlurs(cv::Mat_<float> const& grey, FocusSettings const& settings,
                                cv::Mat_<uchar> const& bad) {
  // A difference over two pixels smooths by as much as a box of that width.
  constexpr double ofDifference = 4.0 / 12.0;
  double const fine = settings.smoothing;
  double const coarse = 2.0 * settings.smoothing;
  cv::Mat_<float> sizes;
  cv::Mat_<float> coarseSizes;
  Gradient const gradient(smoothed(grey, fine));
  cv::magnitude(gradient.x, gradient.y, sizes);
  {
    Gradient const second(smoothed(grey, coarse));
    cv::magnitude(second.x, second.y, coarseSizes);
  }
  double const threshold = edgeThreshold(sizes, bad);
  std::vector<std::vector<EdgeBlur>> rows(static_cast<std::size_t>(grey.rows));
  int const border = static_cast<int>(std::ceil(3.0 * coarse));
  parallelRows(grey.rows, [&](int begin, int end) {
    for (int y = std::max(begin, border); y < std::min(end, grey.rows - border); ++y) {
      for (int x = border; x < grey.cols - border; ++x) {
        auto const here = static_cast<double>(sizes(y, x));
        if (here < threshold || (!settings.mask.empty() && settings.mask.at<uchar>(y, x) == 0)) {
          continue;
        }
        double const ux = static_cast<double>(gradient.x(y, x)) / here;
        double const uy = static_cast<double>(gradient.y(y, x)) / here;
        double const before = sampled(sizes, y - uy, x - ux);
        double const after = sampled(sizes, y + uy, x + ux);
        if (here < before || here <= after) {
          continue;
        }
        // To the crest itself, by a parabola.
        double const off = 0.5 * (before - after) / (before - 2.0 * here + after);
        double const crest = here - 0.25 * (before - after) * off;
        double const sigma = blurOf(crest, sampled(coarseSizes, y + off * uy, x + off * ux),
                                    fine * fine + ofDifference, coarse * coarse + ofDifference);
        if (std::isfinite(sigma)) {
          rows[static_cast<std::size_t>(y)].push_back({{x, y}, sigma});
        }
      }
    }
  });
  std::vector<EdgeBlur> all;
  for (auto const& row : rows) {
    all.insert(all.end(), row.begin(), row.end());
  }
  return all;
}

Focus edgeWidth(cv::Mat_<float> const& grey, FocusSettings const& settings, cv::Mat_<uchar> const& bad,
                cv::Size cells) {
  constexpr std::size_t fewestOfCell = 5;
  std::vector<EdgeBlur> const edges = edgeBlurs(grey, settings, bad);
  std::vector<std::vector<double>> ofCells(static_cast<std::size_t>(cells.area()));
  std::vector<double> all;
  for (EdgeBlur const& edge : edges) {
    int const cell = edge.at.y / settings.cell * cells.width + edge.at.x / settings.cell;
    ofCells[static_cast<std::size_t>(cell)].push_back(edge.sigma);
    all.push_back(edge.sigma);
  }
  Focus focus;
  focus.edges = edges.size();
  cv::Mat_<float> map(cells, notANumber);
  for (int i = 0; i < cells.area(); ++i) {
    std::vector<double> const& its = ofCells[static_cast<std::size_t>(i)];
    if (its.size() >= fewestOfCell) {
      map(i / cells.width, i % cells.width) = static_cast<float>(medianOf(its));
    }
  }
  focus.map = map;
  if (!all.empty()) {
    focus.value = medianOf(std::move(all));
  }
  return focus;
}

} // namespace

Focus calcFocus(cv::Mat const& image, FocusSettings const& settings) {
  check(image, settings);
  cv::Mat_<float> grey = greyOf(image);
  FocusSettings judged = settings;
  cv::Mat_<uchar> const bad = takeNonFinite(grey, settings);
  if (!bad.empty()) {
    judged.mask =
        settings.mask.empty() ? cv::Mat(grey.size(), CV_8UC1, cv::Scalar(255)) : settings.mask.clone();
    judged.mask.setTo(0, bad);
  }
  cv::Size const cells((image.cols + settings.cell - 1) / settings.cell,
                       (image.rows + settings.cell - 1) / settings.cell);
  switch (settings.measure) {
  case FocusMeasure::LaplacianVariance:
    return laplacianVariance(grey, judged, cells);
  case FocusMeasure::Tenengrad:
    return tenengrad(grey, judged, cells);
  default:
    return edgeWidth(grey, judged, bad, cells);
  }
}

} // namespace vorn::mv
