// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/projector_points.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "calib/target/grey_image.hpp"
#include "core/error.hpp"
#include "core/median.hpp"
#include "core/parallel.hpp"
#include "scanner/calibration/map_fit.hpp"

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

/// The pixels around one point and how many of them there should be.
struct Neighbourhood {
  std::vector<CoordinateSample> samples;
  std::array<int, sectors> wanted = {}; ///< pixels of the dot in each sector, decoded or not
};

/// Which pixels serve; all where the mask is empty.
struct Usable {
  cv::Mat_<std::uint8_t> mask; ///< not 0 where they do
  cv::Point first;             ///< the mask's first pixel

  bool at(int row, int column) const { return mask.empty() || mask(row - first.y, column - first.x) != 0; }
};

/// The pixels of the image whose distance from a point is below a radius, as a rectangle around them.
cv::Rect pixelsAround(cv::Point2f const& centre, double radius, cv::Size const& image) {
  cv::Point const first(cvCeil(static_cast<double>(centre.x) - radius),
                        cvCeil(static_cast<double>(centre.y) - radius));
  cv::Point const last(cvFloor(static_cast<double>(centre.x) + radius),
                       cvFloor(static_cast<double>(centre.y) + radius));
  return cv::Rect(first, last + cv::Point(1, 1)) & cv::Rect({}, image);
}

Neighbourhood gather(cv::Mat const& map, cv::Point2f const& centre, double radius, Usable const& usable) {
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
      bool const isInner = squared <= dotShare * dotShare;
      around.wanted[static_cast<std::size_t>(sector)] += isInner ? 1 : 0;
      if (row >= 0 && row < map.rows && column >= 0 && column < map.cols) {
        float const value = map.at<float>(row, column);
        if (value >= 0 && usable.at(row, column)) {
          around.samples.push_back({x, y, value, sector, isInner});
        }
      }
    }
  }
  return around;
}

/// Pixels near the point in each sector that are decoded and lie on the fit.
std::array<int, sectors> goodOf(Neighbourhood const& around, MapFit const& fit) {
  std::array<int, sectors> good = {};
  for (CoordinateSample const& s : around.samples) {
    if (s.isInner && fit.agreesWith(s)) {
      ++good[static_cast<std::size_t>(s.sector)];
    }
  }
  return good;
}

/// Whether every sector of the dot is decoded and lies on the fit.
bool isCovered(Neighbourhood const& around, MapFit const& fit) {
  std::array<int, sectors> const good = goodOf(around, fit);
  for (std::size_t i = 0; i < good.size(); ++i) {
    if (good[i] < leastCoverage * around.wanted[i]) {
      return false;
    }
  }
  return true;
}

/// Whether what is decoded near the point and lies on the fit stands on all sides of it alike, so that the
/// fit interpolates there though whole sectors are missing.
bool isBalanced(Neighbourhood const& around, MapFit const& fit) {
  constexpr double leastOpposite = 0.6; // of the pixels on the other side
  constexpr double leastShare = 0.1;    // of all pixels
  std::array<int, sectors> const good = goodOf(around, fit);
  int const all = std::accumulate(good.begin(), good.end(), 0);
  int const wanted = std::accumulate(around.wanted.begin(), around.wanted.end(), 0);
  for (std::size_t first = 0; first < good.size(); ++first) {
    int side = 0;
    for (std::size_t i = 0; i < good.size() / 2; ++i) {
      side += good[(first + i) % good.size()];
    }
    if (side < leastOpposite * (all - side)) {
      return false;
    }
  }
  return all >= leastShare * wanted;
}

/// What the camera sees of a board under full light, CV_8UC1; empty where points are dots.
using Light = cv::Mat;

/// The pixels well within white squares. Black ones hardly return the projector's light, and across edges the
/// camera's blur mixes the light of places that the projector sees apart.
Usable whiteAround(Light const& light, cv::Point2f const& centre, double radius) {
  // Of small squares little else would be left; what it costs is alike on both sides, and cancels.
  constexpr double rimShare = 0.06;
  constexpr int narrowest = 1;
  constexpr int widest = 3;
  int const rim = std::clamp(static_cast<int>(rimShare * radius), narrowest, widest);
  cv::Rect const pixels = pixelsAround(centre, radius + rim, light.size());
  cv::Mat const patch = light(pixels);
  std::vector<std::uint8_t> levels(patch.begin<std::uint8_t>(), patch.end<std::uint8_t>());
  if (levels.empty()) {
    return {};
  }
  double const dark = rankedAmong(levels, levels.size() / 10);
  double const bright = rankedAmong(levels, levels.size() * 9 / 10);
  Usable white{{}, pixels.tl()};
  cv::erode(patch > 0.5 * (dark + bright), white.mask, cv::Mat::ones(2 * rim + 1, 2 * rim + 1, CV_8U));
  return white;
}

/// A map's value at a point.
struct MapValue {
  float value = 0;
  float sigma = 0;
};

/// The map's value at a point, by the fit to its neighbourhood.
std::optional<MapValue> valueAt(cv::Mat const& map, Light const& light, cv::Point2f const& centre,
                                double radius) {
  Neighbourhood const around =
      gather(map, centre, radius, light.empty() ? Usable() : whiteAround(light, centre, radius));
  auto const fit = fitMap(around.samples);
  if (!fit || !(light.empty() ? isCovered(around, *fit) : isBalanced(around, *fit))) {
    return std::nullopt;
  }
  return MapValue{static_cast<float>(fit->value()), static_cast<float>(fit->sigma)};
}

/// For each point, a share of the way to the nearest other one.
std::vector<double> neighbourhoodRadii(std::vector<cv::Point2f> const& points, double share) {
  std::vector<double> radii;
  for (std::size_t i = 0; i < points.size(); ++i) {
    double nearest = std::numeric_limits<double>::infinity();
    for (std::size_t j = 0; j < points.size(); ++j) {
      double const distance = cv::norm(points[j] - points[i]);
      if (j != i && distance > 0) {
        nearest = std::min(nearest, distance);
      }
    }
    radii.push_back(std::isfinite(nearest) ? std::clamp(share * nearest, leastRadius, greatestRadius)
                                           : loneRadius);
  }
  return radii;
}

/// What lights points, in the projector's pixels.
struct ProjectorPoints {
  std::vector<cv::Point2f> points;
  std::vector<cv::Point2f> sigmas;
  std::vector<std::uint8_t> valid;

  explicit ProjectorPoints(std::size_t count) : points(count, {-1, -1}), sigmas(count), valid(count, 0) {}
};

ProjectorPoints findPoints(cv::Mat const& columns, cv::Mat const& rows, Light const& light,
                           std::vector<cv::Point2f> const& imgPnts, double radiusShare) {
  std::vector<double> const radii = neighbourhoodRadii(imgPnts, radiusShare);
  ProjectorPoints found(imgPnts.size());
  cv::Rect2f const image(-0.5F, -0.5F, static_cast<float>(columns.cols), static_cast<float>(columns.rows));
  parallelRows(static_cast<int>(imgPnts.size()), [&](int first, int last) {
    for (auto i = static_cast<std::size_t>(first); i < static_cast<std::size_t>(last); ++i) {
      if (!image.contains(imgPnts[i])) {
        continue;
      }
      auto const column = valueAt(columns, light, imgPnts[i], radii[i]);
      auto const row = column ? valueAt(rows, light, imgPnts[i], radii[i]) : std::nullopt;
      if (column && row) {
        found.points[i] = {column->value, row->value};
        found.sigmas[i] = {column->sigma, row->sigma};
        found.valid[i] = 1;
      }
    }
  });
  return found;
}

/// @throws Exception for maps that are none
void requireMaps(cv::Mat const& columns, cv::Mat const& rows, char const* context) {
  if (columns.type() != CV_32FC1 || rows.type() != CV_32FC1 || columns.size() != rows.size()) {
    throw error("The maps of projector columns and rows must be CV_32FC1 and of one size", context);
  }
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
  requireMaps(columns, rows, "find_projector_points");
  constexpr double halfWay = 0.5; // to the next dot
  ProjectorPoints found = findPoints(columns, rows, {}, imgPnts, halfWay);
  projPnts = std::move(found.points);
  sigmas = std::move(found.sigmas);
  valid = std::move(found.valid);
}

void find_projector_corners(cv::Mat const& columns, cv::Mat const& rows, cv::Mat const& light,
                            std::vector<cv::Point2f> const& imgPnts, std::vector<cv::Point2f>& projPnts,
                            std::vector<cv::Point2f>& sigmas, std::vector<std::uint8_t>& valid) {
  requireMaps(columns, rows, "find_projector_corners");
  if (light.size() != columns.size()) {
    throw error("The image under full light must be of the maps' size", "find_projector_corners");
  }
  constexpr double mostOfTheWay = 0.8; // to the next corner, at which a white square ends
  ProjectorPoints found =
      findPoints(columns, rows, greyImage(light, "find_projector_corners").bytes, imgPnts, mostOfTheWay);
  projPnts = std::move(found.points);
  sigmas = std::move(found.sigmas);
  valid = std::move(found.valid);
}

} // namespace vorn::mv
