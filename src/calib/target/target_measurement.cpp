// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/target_measurement.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <utility>

#include "calib/target/dot_edge.hpp"
#include "calib/target/marker_ring.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// Radii of dots that can be told from their neighbours and from the ground, pitches.
constexpr double leastRadius = 0.08;
constexpr double mostRadius = 0.42;

/// A marker's radius in those of an ordinary dot, before it is measured, and its most, pitches: the next dot
/// begins beyond it.
constexpr double markerInRadii = 1.5;
constexpr double mostMarkerRadius = 0.45;

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

std::vector<MeasuredDot> GridMeasurement::start(std::vector<TargetDot> const& rough) {
  std::vector<MeasuredDot> dots;
  auto const map = TargetMap::fit(rough);
  if (!map) {
    return dots;
  }
  // Small blurred dots look larger than they are. An outline too large by little already meets their
  // neighbours.
  constexpr double smaller = 0.93;
  constexpr double mostMissing = 0.05;
  double const asItLooks = ordinaryRadius_;
  for (double const radius : {asItLooks, smaller * asItLooks}) {
    assume(radius);
    std::vector<MeasuredDot> measured;
    for (TargetDot const& dot : rough) {
      if (auto found = measure(*map, dot)) {
        measured.push_back(*found);
      }
    }
    if (measured.size() > dots.size()) {
      dots = std::move(measured);
    }
    if (static_cast<double>(dots.size()) >= (1 - mostMissing) * static_cast<double>(rough.size())) {
      break;
    }
  }
  learn(dots);
  if (!dots.empty()) {
    complete(dots);
  }
  return dots;
}

bool GridMeasurement::hasMarkers(std::vector<MeasuredDot> const& dots) const {
  constexpr double leastRadiusRatio = 1.25; // of 1.5
  constexpr double leastExcess = 0.12;      // of the dots' contrast; a sharp image gives 1
  constexpr double excessInDeviations = 8;  // of their median, which is two thirds of a sigma
  constexpr int leastMeasured = 3;
  int large = 0;
  for (MeasuredDot const& dot : dots) {
    if (isMarker(dot.dot.index)) {
      if (dot.radius < leastRadiusRatio * ordinaryRadius_) {
        return false;
      }
      ++large;
    }
  }
  if (large < leastMeasured) {
    return false;
  }
  auto const map = TargetMap::fit(targetDots(dots));
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
  for (MeasuredDot const& dot : dots) {
    if (!isMarker(dot.dot.index)) {
      ordinary.push_back(ringAt(dot.dot.index));
    }
  }
  double const usual = medianOf(ordinary);
  std::vector<double> deviations;
  for (double const ring : ordinary) {
    deviations.push_back(std::abs(ring - usual));
  }
  double const least = usual + std::max(leastExcess, excessInDeviations * medianOf(deviations));
  return ringAt({0, 0}) >= least && ringAt({1, 0}) >= least && ringAt({0, 1}) >= least;
}

void GridMeasurement::complete(std::vector<MeasuredDot>& dots) {
  constexpr int maxRounds = 16;
  constexpr int nextDot = 1;
  constexpr int acrossGap = 4;
  int reach = nextDot;
  for (int round = 0; round < maxRounds; ++round) {
    auto const map = TargetMap::fit(targetDots(dots));
    if (map && addMissing(*map, reach, dots)) {
      reach = nextDot;
    } else if (map && reach == nextDot) {
      reach = acrossGap;
    } else {
      return;
    }
  }
}

void GridMeasurement::refine(std::vector<MeasuredDot>& dots) {
  auto const map = TargetMap::fit(targetDots(dots));
  std::vector<MeasuredDot> refined;
  for (MeasuredDot const& dot : dots) {
    if (auto found = map ? measure(*map, dot.dot) : std::nullopt) {
      refined.push_back(*found);
    }
  }
  dots = std::move(refined);
}

void GridMeasurement::fitEdges(std::vector<MeasuredDot>& dots) const {
  constexpr double leastBlur = 0.4; // pixels; the edge of a square pixel alone is as wide as 0.3
  auto const map = TargetMap::fit(targetDots(dots));
  double const blur = std::max(usualBlur(dots), leastBlur);
  for (MeasuredDot& dot : dots) {
    auto const local = map ? map->around(dot.dot.index, TargetMap::Self::Included) : std::nullopt;
    auto const centre =
        local ? fitEdge(image_, dot.measured, local->jacobian(dot.dot.index), blur) : std::nullopt;
    if (centre) {
      dot.measured.centre = *centre;
      dot.dot.centre = *centre;
    }
  }
}

std::vector<TargetDot> targetDots(std::vector<MeasuredDot> const& dots) {
  std::vector<TargetDot> list;
  list.reserve(dots.size());
  for (MeasuredDot const& dot : dots) {
    list.push_back(dot.dot);
  }
  return list;
}

std::optional<MeasuredDot> GridMeasurement::measure(TargetMap const& map, TargetDot const& dot) const {
  auto const local = map.around(dot.index, TargetMap::Self::Included);
  return local ? measure(*local, dot) : std::nullopt;
}

std::optional<MeasuredDot> GridMeasurement::measure(LocalMap const& local, TargetDot const& dot) const {
  cv::Matx22d const jacobian = local.jacobian(dot.index);
  double const radius = isMarker(dot.index) ? markerRadius_ : ordinaryRadius_;
  double const cell = std::abs(cv::determinant(jacobian));
  double const shortAxis = radius * cell / std::max(cv::norm(jacobian), 1e-9);
  double const halfWidth = halfWidth_ > 0 ? halfWidth_ : std::clamp(0.4 * shortAxis, 2.0, 6.0);
  auto const measured = measureDot(image_, dot.centre, {jacobian * radius, groundReach / radius}, halfWidth);
  if (!measured) {
    return std::nullopt;
  }
  return MeasuredDot{{dot.index, measured->centre}, *measured, std::sqrt(measured->area / (CV_PI * cell))};
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
    (isMarker(dot.dot.index) ? markers : ordinary).push_back(dot.radius);
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

bool GridMeasurement::addMissing(TargetMap const& map, int reach, std::vector<MeasuredDot>& dots) const {
  GridIndex present;
  cv::Rect extent(dots.front().dot.index, cv::Size(1, 1));
  for (std::size_t i = 0; i < dots.size(); ++i) {
    present.set(dots[i].dot.index, static_cast<int>(i));
    extent |= cv::Rect(dots[i].dot.index, cv::Size(1, 1));
  }
  std::vector<MeasuredDot> added;
  int const bottom = std::min(extent.br().y - 1 + reach, settings_.maxIndex.y);
  int const right = std::min(extent.br().x - 1 + reach, settings_.maxIndex.x);
  for (int y = std::max(extent.y - reach, settings_.minIndex.y); y <= bottom; ++y) {
    for (int x = std::max(extent.x - reach, settings_.minIndex.x); x <= right; ++x) {
      if (present.at({x, y}) == GridIndex::none) {
        if (auto found = findMissing(map, {x, y}, reach, present, dots)) {
          added.push_back(*found);
        }
      }
    }
  }
  dots.insert(dots.end(), added.begin(), added.end());
  return !added.empty();
}

std::optional<MeasuredDot> GridMeasurement::findMissing(TargetMap const& map, cv::Point const& index,
                                                        int reach, GridIndex const& present,
                                                        std::vector<MeasuredDot> const& dots) const {
  constexpr std::size_t leastNeighbours = 2;
  constexpr double farthest = 0.15;
  std::vector<double> contrasts;
  for (int y = -reach; y <= reach; ++y) {
    for (int x = -reach; x <= reach; ++x) {
      int const neighbour = present.at(index + cv::Point(x, y));
      if (neighbour != GridIndex::none) {
        contrasts.push_back(dots[static_cast<std::size_t>(neighbour)].measured.levels.contrast.value);
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
  auto const found = measure(*local, {index, expected});
  if (!found) {
    return std::nullopt;
  }
  cv::Point2d const offset = found->dot.centre - expected;
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
