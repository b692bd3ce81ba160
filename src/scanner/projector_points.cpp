// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/projector_points.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "core/median.hpp"
#include "core/parallel.hpp"
#include "geometry/quadratic_fit.hpp"

namespace vorn::mv {
namespace {

/// Bounds of a neighbourhood's radius, pixels: below, a polynomial has no pixels to stand on; above, it is no
/// longer a good picture of the surface and the lenses.
constexpr double leastRadius = 4;
constexpr double greatestRadius = 40;
/// Radius for a point without others to take it from.
constexpr double loneRadius = 10;

/// A dot's radius as a share of the neighbourhood's, a little more than a half.
constexpr double dotShare = 0.55;

/// Share of the pixels of each of the sectors of a dot that must be decoded and agree with the fit.
constexpr double leastCoverage = 0.7;
constexpr int sectors = 8;

/// Deviations below this are as good as none, projector pixels.
constexpr double leastScale = 0.005;

/// No point is more exact, projector pixels: noiseless maps would have it so.
constexpr double leastSigma = 1e-5;

/// A decoded pixel: its offset from the point, in radii of the neighbourhood, and its projector coordinate.
struct Sample {
  double x;
  double y;
  double value;
  int sector;
  bool isInDot;
};

using Coefficients = cv::Vec6d; // of the quadratic terms

double evaluate(Coefficients const& c, Sample const& s) {
  return c[0] + s.x * (c[1] + s.x * c[3] + s.y * c[4]) + s.y * (c[2] + s.y * c[5]);
}

/// The pixels around one point and how many of them there should be.
struct Neighbourhood {
  std::vector<Sample> samples;
  std::array<int, sectors> wanted = {}; ///< pixels of the dot in each sector, decoded or not
};

Neighbourhood gather(cv::Mat const& map, cv::Point2f const& centre, double radius) {
  Neighbourhood around;
  int const top = static_cast<int>(std::ceil(centre.y - radius));
  int const bottom = static_cast<int>(std::floor(centre.y + radius));
  int const left = static_cast<int>(std::ceil(centre.x - radius));
  int const right = static_cast<int>(std::floor(centre.x + radius));
  for (int row = top; row <= bottom; ++row) {
    for (int column = left; column <= right; ++column) {
      double const x = (column - static_cast<double>(centre.x)) / radius;
      double const y = (row - static_cast<double>(centre.y)) / radius;
      double const squared = x * x + y * y;
      if (squared > 1) {
        continue;
      }
      double const turn = (std::atan2(y, x) / (2.0 * CV_PI) + 1.0) * sectors;
      int const sector = static_cast<int>(turn) % sectors;
      bool const isInDot = squared <= dotShare * dotShare;
      around.wanted[static_cast<std::size_t>(sector)] += isInDot ? 1 : 0;
      if (row >= 0 && row < map.rows && column >= 0 && column < map.cols) {
        float const value = map.at<float>(row, column);
        if (value >= 0) {
          around.samples.push_back({x, y, value, sector, isInDot});
        }
      }
    }
  }
  return around;
}

/// A plane through most of the samples: the median slope between samples far enough apart in each direction,
/// and the median of what is left.
Coefficients medianPlane(std::vector<Sample> const& samples) {
  std::vector<double> slopesX;
  std::vector<double> slopesY;
  // Samples come row by row; strides of several lengths pair each with others in its row and in rows below.
  for (std::size_t const stride : {samples.size() / 2, samples.size() / 3, std::size_t(5), std::size_t(9)}) {
    for (std::size_t i = 0; stride > 0 && i + stride < samples.size(); ++i) {
      Sample const& a = samples[i];
      Sample const& b = samples[i + stride];
      double const dx = b.x - a.x;
      double const dy = b.y - a.y;
      constexpr double apart = 0.2;
      constexpr double aligned = 0.1;
      if (std::abs(dx) > apart && std::abs(dy) < aligned) {
        slopesX.push_back((b.value - a.value) / dx);
      } else if (std::abs(dy) > apart && std::abs(dx) < aligned) {
        slopesY.push_back((b.value - a.value) / dy);
      }
    }
  }
  Coefficients plane = {};
  plane[1] = medianOf(std::move(slopesX));
  plane[2] = medianOf(std::move(slopesY));
  std::vector<double> rest;
  rest.reserve(samples.size());
  for (Sample const& s : samples) {
    rest.push_back(s.value - evaluate(plane, s));
  }
  plane[0] = medianOf(std::move(rest));
  return plane;
}

/// Standard deviations of the samples about a fit, robustly, in the dot and outside it.
struct Scales {
  double dot = 0;
  double ground = 0;

  double of(Sample const& s) const { return s.isInDot ? dot : ground; }
};

Scales scalesOf(std::vector<Sample> const& samples, Coefficients const& fit) {
  std::array<std::vector<double>, 2> deviations;
  for (Sample const& s : samples) {
    deviations[s.isInDot ? 0 : 1].push_back(std::abs(s.value - evaluate(fit, s)));
  }
  constexpr double gaussianSigma = 1.4826;
  return {std::max(gaussianSigma * medianOf(std::move(deviations[0])), leastScale),
          std::max(gaussianSigma * medianOf(std::move(deviations[1])), leastScale)};
}

constexpr double tukeyWidth = 4.685;

std::optional<Coefficients> weightedFit(std::vector<Sample> const& samples, Coefficients const& fit,
                                        Scales const& scales) {
  QuadraticFit<6, 1> next;
  for (Sample const& s : samples) {
    double const scale = scales.of(s);
    double const u = (s.value - evaluate(fit, s)) / (tukeyWidth * scale);
    if (std::abs(u) >= 1) {
      continue;
    }
    double const weight = (1 - u * u) * (1 - u * u) / (scale * scale);
    next.add(quadraticTerms(s.x, s.y), s.value, weight);
  }
  auto const fitted = next.solve();
  return fitted ? std::optional(Coefficients(fitted->coefficients.val)) : std::nullopt;
}

/// Whether every sector of the dot is decoded and lies on the fit.
bool isCovered(Neighbourhood const& around, Coefficients const& fit, Scales const& scales) {
  std::array<int, sectors> good = {};
  for (Sample const& s : around.samples) {
    if (s.isInDot && std::abs(s.value - evaluate(fit, s)) < tukeyWidth * scales.dot) {
      ++good[static_cast<std::size_t>(s.sector)];
    }
  }
  for (std::size_t i = 0; i < good.size(); ++i) {
    if (good[i] < leastCoverage * around.wanted[i]) {
      return false;
    }
  }
  return true;
}

/// The standard deviation of a fit's value at the point, from how its samples scatter about it: their noise
/// differs, as does how they lie. Nothing where they do not determine it.
std::optional<double> sigmaOf(std::vector<Sample> const& samples, Coefficients const& fit,
                              Scales const& scales) {
  using Square = cv::Matx<double, 6, 6>;
  Square normal = Square::zeros();
  Square scatter = Square::zeros();
  int count = 0;
  double weights = 0; // of Tukey's biweight, for deviations in its own unit
  double slopes = 0;  // of its influence function: how much a fit's value follows its samples
  for (Sample const& s : samples) {
    double const scale = scales.of(s);
    double const deviation = s.value - evaluate(fit, s);
    double const u = deviation / (tukeyWidth * scale);
    if (std::abs(u) < 1) {
      double const near = 1 - u * u;
      double const weight = near * near / (scale * scale);
      weights += near * near;
      slopes += near * (1 - 5 * u * u);
      cv::Vec6d const terms = quadraticTerms(s.x, s.y);
      Square const product = terms * terms.t();
      normal += weight * product;
      scatter += std::pow(weight * deviation, 2) * product;
      ++count;
    }
  }
  bool isSolved = false;
  Square const inverse = normal.inv(cv::DECOMP_CHOLESKY, &isSolved);
  if (!isSolved || count <= Square::rows) {
    return std::nullopt;
  }
  double const unbiased = static_cast<double>(count) / (count - Square::rows);
  constexpr double least = 0.4; // of normal deviations 0.83
  double const follows = std::max(slopes / weights, least);
  return std::max(std::sqrt(unbiased * (inverse * scatter * inverse)(0, 0)) / follows, leastSigma);
}

/// A map's value at a point.
struct MapValue {
  float value = 0;
  float sigma = 0;
};

/// The map's value at a point, by the fit to its neighbourhood.
std::optional<MapValue> valueAt(cv::Mat const& map, cv::Point2f const& centre, double radius) {
  constexpr std::size_t leastSamples = 24;
  constexpr int rounds = 6;
  Neighbourhood const around = gather(map, centre, radius);
  if (around.samples.size() < leastSamples) {
    return std::nullopt;
  }
  Coefficients fit = medianPlane(around.samples);
  Scales scales;
  for (int i = 0; i < rounds; ++i) {
    scales = scalesOf(around.samples, fit);
    auto const next = weightedFit(around.samples, fit, scales);
    if (!next) {
      return std::nullopt;
    }
    fit = *next;
  }
  scales = scalesOf(around.samples, fit);
  auto const sigma = sigmaOf(around.samples, fit, scales);
  if (!sigma || !isCovered(around, fit, scales)) {
    return std::nullopt;
  }
  return MapValue{static_cast<float>(fit[0]), static_cast<float>(*sigma)};
}

/// For each point, half the way to the nearest other one.
std::vector<double> neighbourhoodRadii(std::vector<cv::Point2f> const& points) {
  std::vector<double> radii;
  for (std::size_t i = 0; i < points.size(); ++i) {
    double nearest = std::numeric_limits<double>::infinity();
    for (std::size_t j = 0; j < points.size(); ++j) {
      double const distance = cv::norm(points[j] - points[i]);
      if (j != i && distance > 0) {
        nearest = std::min(nearest, distance);
      }
    }
    radii.push_back(std::isfinite(nearest) ? std::clamp(0.5 * nearest, leastRadius, greatestRadius)
                                           : loneRadius);
  }
  return radii;
}

} // namespace

void find_projector_points(cv::Mat const& columns, cv::Mat const& rows,
                           std::vector<cv::Point2f> const& imgPnts, std::vector<cv::Point2f>& projPnts,
                           std::vector<std::uint8_t>& valid) {
  std::vector<cv::Point2f> sigmas;
  find_projector_points(columns, rows, imgPnts, projPnts, sigmas, valid);
}

void find_projector_points(cv::Mat const& columns, cv::Mat const& rows,
                           std::vector<cv::Point2f> const& imgPnts, std::vector<cv::Point2f>& projPnts,
                           std::vector<cv::Point2f>& sigmas, std::vector<std::uint8_t>& valid) {
  if (columns.type() != CV_32FC1 || rows.type() != CV_32FC1 || columns.size() != rows.size()) {
    throw error("The maps of projector columns and rows must be CV_32FC1 and of one size",
                "find_projector_points");
  }
  std::vector<double> const radii = neighbourhoodRadii(imgPnts);
  std::vector<cv::Point2f> points(imgPnts.size(), cv::Point2f(-1, -1));
  std::vector<cv::Point2f> deviations(imgPnts.size());
  std::vector<std::uint8_t> flags(imgPnts.size(), 0);
  cv::Rect2f const image(-0.5F, -0.5F, static_cast<float>(columns.cols), static_cast<float>(columns.rows));
  parallelRows(static_cast<int>(imgPnts.size()), [&](int first, int last) {
    for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(last); ++i) {
      if (!image.contains(imgPnts[i])) {
        continue;
      }
      auto const column = valueAt(columns, imgPnts[i], radii[i]);
      auto const row = column ? valueAt(rows, imgPnts[i], radii[i]) : std::nullopt;
      if (column && row) {
        points[i] = {column->value, row->value};
        deviations[i] = {column->sigma, row->sigma};
        flags[i] = 1;
      }
    }
  });
  projPnts = std::move(points);
  sigmas = std::move(deviations);
  valid = std::move(flags);
}

} // namespace vorn::mv
