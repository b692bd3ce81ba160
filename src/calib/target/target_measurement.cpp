// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/target_measurement.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core.hpp>
#include <utility>

#include "calib/target/dot_edge.hpp"
#include "calib/target/marker_ring.hpp"
#include "core/median.hpp"
#include "geometry/quadratic_fit.hpp"

namespace vorn::mv {
namespace {

/// Radii of dots that can be told from their neighbours and from the ground, pitches.
constexpr double leastRadius = 0.08;
constexpr double mostRadius = 0.42;

/// A marker's radius in those of an ordinary dot, before it is measured, and its most, pitches: the next dot
/// begins beyond it.
constexpr double markerInRadii = 1.5;
constexpr double mostMarkerRadius = 0.45;

/// How the light changes across a dot, from the contrasts of those around it: a dot without many pixels does
/// not tell by itself, and what is left of a slope of light draws its centre towards the light. Nothing where
/// the dots around are few, or lie at an edge of the light or in a reflection.
std::optional<cv::Vec2d> lightSlopeAt(MeasuredGrid const& grid, MeasuredDot const& dot) {
  constexpr int reach = 2;
  constexpr std::size_t leastDots = 6;
  constexpr double mostScatter = 0.03; // of the contrast, about a plane
  double const contrast = dot.measured.levels.contrast.value;
  QuadraticFit<3, 1> plane;
  std::vector<std::pair<cv::Point2d, double>> around;
  for (int y = -reach; y <= reach; ++y) {
    for (int x = -reach; x <= reach; ++x) {
      if (MeasuredDot const* const other = grid.at(dot.index + cv::Point(x, y))) {
        cv::Point2d const offset = other->measured.centre - dot.measured.centre;
        around.emplace_back(offset, other->measured.levels.contrast.value / contrast - 1);
        plane.add(quadraticTerms(offset.x, offset.y), around.back().second);
      }
    }
  }
  auto const fitted = around.size() >= leastDots ? plane.solve() : std::nullopt;
  if (!fitted) {
    return std::nullopt;
  }
  cv::Matx31d const& of = fitted->coefficients;
  double squares = 0;
  for (auto const& [offset, change] : around) {
    squares += std::pow(change - of(0) - of(1) * offset.x - of(2) * offset.y, 2);
  }
  bool const isPlane = squares < mostScatter * mostScatter * static_cast<double>(around.size());
  return isPlane ? std::optional(cv::Vec2d(of(1), of(2))) : std::nullopt;
}

} // namespace

GridMeasurement::GridMeasurement(cv::Mat const& image, TargetSettings const& settings, bool isMarked,
                                 double dotRadius)
    : image_(image), settings_(settings), isMarked_(isMarked) {
  assume(dotRadius);
}

void GridMeasurement::assume(double dotRadius) {
  ordinaryRadius_ = std::clamp(dotRadius, leastRadius, mostRadius);
  markerRadius_ = std::min(markerInRadii * ordinaryRadius_, mostMarkerRadius);
}

MeasuredGrid GridMeasurement::start(std::vector<TargetDot> const& rough) {
  auto const map = TargetMap::fit(rough);
  if (!map) {
    return {};
  }
  // Small blurred dots look larger than they are. An outline too large by little already meets their
  // neighbours.
  constexpr double smaller = 0.93;
  constexpr double mostMissing = 0.05;
  double const asItLooks = ordinaryRadius_;
  std::vector<MeasuredDot> dots;
  for (double const radius : {asItLooks, smaller * asItLooks}) {
    assume(radius);
    std::vector<MeasuredDot> measured = measureAll(*map, rough);
    if (measured.size() > dots.size()) {
      dots = std::move(measured);
    }
    if (static_cast<double>(dots.size()) >= (1 - mostMissing) * static_cast<double>(rough.size())) {
      break;
    }
  }
  learn(dots);
  MeasuredGrid grid(std::move(dots));
  complete(grid);
  return grid;
}

bool GridMeasurement::hasMarkers(MeasuredGrid& grid) const {
  constexpr double leastRadiusRatio = 1.25; // of 1.5
  constexpr double leastExcess = 0.12;      // of the dots' contrast; a sharp image gives 1
  constexpr double excessInDeviations = 8;  // of their median, which is two thirds of a sigma
  std::array<cv::Point, 3> const markers{cv::Point(0, 0), cv::Point(1, 0), cv::Point(0, 1)};
  for (cv::Point const& index : markers) {
    MeasuredDot const* const marker = grid.at(index);
    if (marker == nullptr || marker->radius < leastRadiusRatio * ordinaryRadius_) {
      return false;
    }
  }
  auto const& map = grid.map();
  if (!map) {
    return false;
  }
  auto const ringAt = [&](cv::Point const& index) {
    auto const local = map->around(index, TargetMap::Self::Included);
    auto const ring =
        local ? markerRing(image_, local->position(index), local->jacobian(index), ordinaryRadius_)
              : std::nullopt;
    return ring.value_or(0);
  };
  std::vector<double> ordinary;
  for (MeasuredDot const& dot : grid.dots()) {
    if (!isMarker(dot.index)) {
      ordinary.push_back(ringAt(dot.index));
    }
  }
  double const usual = medianOf(ordinary);
  std::vector<double> deviations;
  for (double const ring : ordinary) {
    deviations.push_back(std::abs(ring - usual));
  }
  double const least = usual + std::max(leastExcess, excessInDeviations * medianOf(deviations));
  return std::all_of(markers.begin(), markers.end(),
                     [&](cv::Point const& index) { return ringAt(index) >= least; });
}

void GridMeasurement::complete(MeasuredGrid& grid) const {
  constexpr int maxRounds = 16;
  constexpr int nextDot = 1;
  constexpr int acrossGap = 4;
  int reach = nextDot;
  for (int round = 0; round < maxRounds && grid.map(); ++round) {
    if (addMissing(grid, reach)) {
      reach = nextDot;
    } else if (reach == nextDot) {
      reach = acrossGap;
    } else {
      return;
    }
  }
}

void GridMeasurement::refine(MeasuredGrid& grid) const {
  auto const& map = grid.map();
  std::vector<MeasuredDot> refined;
  for (MeasuredDot const& dot : grid.dots()) {
    auto const local = map ? map->around(dot.index, TargetMap::Self::Included) : std::nullopt;
    if (auto found =
            local ? measure(*local, dot.index, dot.measured.centre, lightSlopeAt(grid, dot)) : std::nullopt) {
      refined.push_back(*found);
    }
  }
  grid.replace(std::move(refined));
}

void GridMeasurement::fitEdges(MeasuredGrid& grid) const {
  constexpr double leastBlur = 0.4; // pixels; the edge of a square pixel alone is as wide as 0.3
  auto const& map = grid.map();
  std::vector<MeasuredDot> dots = grid.dots();
  double const blur = std::max(usualBlur(dots), leastBlur);
  for (MeasuredDot& dot : dots) {
    auto const local = map ? map->around(dot.index, TargetMap::Self::Included) : std::nullopt;
    auto const centre =
        local ? fitEdge(image_, dot.measured, local->jacobian(dot.index), blur) : std::nullopt;
    dot.measured.centre = centre.value_or(dot.measured.centre);
  }
  grid.replace(std::move(dots));
}

std::vector<MeasuredDot> GridMeasurement::measureAll(TargetMap const& map,
                                                     std::vector<TargetDot> const& dots) const {
  std::vector<MeasuredDot> measured;
  for (TargetDot const& dot : dots) {
    auto const local = map.around(dot.index, TargetMap::Self::Included);
    if (auto found = local ? measure(*local, dot.index, dot.centre) : std::nullopt) {
      measured.push_back(*found);
    }
  }
  return measured;
}

std::optional<MeasuredDot> GridMeasurement::measure(LocalMap const& local, cv::Point const& index,
                                                    cv::Point2d const& start,
                                                    std::optional<cv::Vec2d> const& lightSlope) const {
  cv::Matx22d const jacobian = local.jacobian(index);
  double const radius = isMarker(index) ? markerRadius_ : ordinaryRadius_;
  double const cell = std::abs(cv::determinant(jacobian));
  double const shortAxis = radius * cell / std::max(cv::norm(jacobian), 1e-9);
  double const halfWidth = halfWidth_ > 0 ? halfWidth_ : std::clamp(0.4 * shortAxis, 2.0, 6.0);
  auto const measured =
      measureDot(image_, start, {jacobian * radius, groundReach / radius, lightSlope}, halfWidth);
  if (!measured) {
    return std::nullopt;
  }
  return MeasuredDot{index, *measured, std::sqrt(measured->area / (CV_PI * cell))};
}

double GridMeasurement::usualBlur(std::vector<MeasuredDot> const& dots) {
  std::vector<double> blurs;
  for (MeasuredDot const& dot : dots) {
    blurs.push_back(dot.measured.blur);
  }
  return medianOf(std::move(blurs));
}

void GridMeasurement::learn(std::vector<MeasuredDot> const& dots) {
  std::vector<double> ordinary;
  std::vector<double> markers;
  for (MeasuredDot const& dot : dots) {
    (isMarker(dot.index) ? markers : ordinary).push_back(dot.radius);
  }
  if (!ordinary.empty()) {
    ordinaryRadius_ = std::clamp(medianOf(ordinary), leastRadius, mostRadius);
  }
  if (!markers.empty()) {
    markerRadius_ = std::clamp(medianOf(markers), ordinaryRadius_, mostMarkerRadius);
  }
  constexpr double widthInBlurs = 2.5;
  halfWidth_ = std::max(1.5, widthInBlurs * usualBlur(dots) + 0.7);
}

bool GridMeasurement::addMissing(MeasuredGrid& grid, int reach) const {
  TargetMap const& map = *grid.map();
  cv::Rect extent(grid.dots().front().index, cv::Size(1, 1));
  for (MeasuredDot const& dot : grid.dots()) {
    extent |= cv::Rect(dot.index, cv::Size(1, 1));
  }
  std::vector<MeasuredDot> added;
  int const bottom = std::min(extent.br().y - 1 + reach, settings_.maxIndex.y);
  int const right = std::min(extent.br().x - 1 + reach, settings_.maxIndex.x);
  for (int y = std::max(extent.y - reach, settings_.minIndex.y); y <= bottom; ++y) {
    for (int x = std::max(extent.x - reach, settings_.minIndex.x); x <= right; ++x) {
      if (grid.at({x, y}) == nullptr) {
        if (auto found = findMissing(grid, map, {x, y}, reach)) {
          added.push_back(*found);
        }
      }
    }
  }
  grid.add(added);
  return !added.empty();
}

std::optional<MeasuredDot> GridMeasurement::findMissing(MeasuredGrid const& grid, TargetMap const& map,
                                                        cv::Point const& index, int reach) const {
  constexpr std::size_t leastNeighbours = 2;
  constexpr double farthest = 0.15;
  std::vector<double> contrasts;
  for (int y = -reach; y <= reach; ++y) {
    for (int x = -reach; x <= reach; ++x) {
      if (MeasuredDot const* const neighbour = grid.at(index + cv::Point(x, y))) {
        contrasts.push_back(neighbour->measured.levels.contrast.value);
      }
    }
  }
  if (contrasts.size() < leastNeighbours) {
    return std::nullopt;
  }
  auto const local = map.around(index, TargetMap::Self::Included, reach + 1);
  if (!local) {
    return std::nullopt;
  }
  cv::Point2d const expected = local->position(index);
  if (!cv::Rect2d(0, 0, image_.cols, image_.rows).contains(expected)) {
    return std::nullopt;
  }
  auto const found = measure(*local, index, expected);
  if (!found) {
    return std::nullopt;
  }
  cv::Point2d const offset = found->measured.centre - expected;
  cv::Vec2d const inGrid = local->jacobian(index).inv() * cv::Vec2d(offset.x, offset.y);
  double const size = found->radius / (isMarker(index) ? markerRadius_ : ordinaryRadius_);
  double const contrast = found->measured.levels.contrast.value / medianOf(contrasts);
  constexpr double mostSizeRatio = 1.15;
  constexpr double mostContrastRatio = 2.5;
  bool const isAlike = size < mostSizeRatio && size * mostSizeRatio > 1 && contrast < mostContrastRatio &&
                       contrast * mostContrastRatio > 1;
  return isAlike && cv::norm(inGrid) < farthest ? found : std::nullopt;
}

} // namespace vorn::mv
