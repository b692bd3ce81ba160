// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/target_rejection.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "calib/target/dot_candidate.hpp"
#include "calib/target/target_map.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// What noise does to a dot's measured radius, relative to it: half of what it does to the area.
double radiusNoise(DotMeasurement const& dot) {
  return 0.5 * dot.areaNoise / dot.area;
}

} // namespace

void dropMisplaced(MeasuredGrid& grid) {
  constexpr double leastTolerance = 0.25; // pixels
  constexpr double toleranceInSigmas = 7;
  constexpr int maxRounds = 12;
  for (int round = 0; round < maxRounds; ++round) {
    auto const& map = grid.map();
    if (!map) {
      return;
    }
    std::vector<double> deviations;
    for (MeasuredDot const& dot : grid.dots()) {
      auto const local = map->around(dot.index, TargetMap::Self::LeftOut);
      // A dot with nothing to compare it with cannot be vouched for.
      deviations.push_back(local ? cv::norm(local->position(dot.index) - dot.measured.centre) /
                                       std::sqrt(1.0 + local->variance())
                                 : std::numeric_limits<double>::infinity());
    }
    double const tolerance = std::max(leastTolerance, toleranceInSigmas * medianOf(deviations));
    // A misplaced dot throws suspicion on its neighbours: of those near each other only the worst goes now.
    bool const hasDropped = grid.keepOnly([&](std::size_t i, MeasuredDot const& dot) {
      bool isWorst = deviations[i] > tolerance;
      for (int y = -2; y <= 2 && isWorst; ++y) {
        for (int x = -2; x <= 2; ++x) {
          int const other = grid.numberAt(dot.index + cv::Point(x, y));
          isWorst = isWorst && (other == GridIndex::none ||
                                deviations[static_cast<std::size_t>(other)] <= deviations[i]);
        }
      }
      return !isWorst;
    });
    if (!hasDropped) {
      return;
    }
  }
}

void dropMissized(MeasuredGrid& grid, GridMeasurement const& measurement) {
  // Shares of the radius. Dots of a fine print differ by less than the least; how much those of another do is
  // measured, up to where a dot may have lost enough to be off by a tenth of its radius.
  constexpr double leastTolerance = 0.015;
  constexpr double mostTolerance = 0.1;
  constexpr double toleranceInSpreads = 6;
  constexpr double toleranceInSigmas = 5;
  constexpr double sigmaOfMedianDeviation = 1.4826;
  constexpr std::size_t leastNeighbours = 5;
  std::vector<std::optional<double>> deviations;
  std::vector<double> magnitudes;
  for (MeasuredDot const& dot : grid.dots()) {
    std::vector<double> radii;
    for (int y = -2; y <= 2; ++y) {
      for (int x = -2; x <= 2; ++x) {
        MeasuredDot const* const other = grid.at(dot.index + cv::Point(x, y));
        if (other != nullptr && !measurement.isMarker(other->index)) {
          radii.push_back(other->radius);
        }
      }
    }
    if (measurement.isMarker(dot.index) || radii.size() < leastNeighbours) {
      deviations.emplace_back();
    } else {
      magnitudes.push_back(std::abs(dot.radius / medianOf(radii) - 1));
      deviations.emplace_back(magnitudes.back());
    }
  }
  double const spread = sigmaOfMedianDeviation * medianOf(magnitudes);
  double const usual = std::clamp(toleranceInSpreads * spread, leastTolerance, mostTolerance);
  auto const& map = grid.map();
  grid.keepOnly([&](std::size_t i, MeasuredDot const& dot) {
    double const tolerance = std::max(usual, toleranceInSigmas * radiusNoise(dot.measured));
    if (!deviations[i] || *deviations[i] <= tolerance) {
      return true;
    }
    if (!map || *deviations[i] > mostTolerance) {
      return false;
    }
    // A radius has half the relative deviation of the cell's area that it is taken from.
    double const spreadOfMap = 0.5 * map->cellSpread(dot.index).value_or(0.0);
    return *deviations[i] <= std::hypot(tolerance, toleranceInSigmas * spreadOfMap);
  });
}

void keepWithinBounds(MeasuredGrid& grid, GridMeasurement const& measurement,
                      TargetSettings const& settings) {
  auto const& map = grid.map();
  if (!map) {
    grid.replace({});
    return;
  }
  std::vector<double> radii;
  std::vector<double> areas;
  for (MeasuredDot const& dot : grid.dots()) {
    if (!measurement.isMarker(dot.index)) {
      radii.push_back(dot.radius);
      areas.push_back(dot.measured.area);
    }
  }
  double const usual = medianOf(radii);
  double const usualArea = medianOf(areas);
  // The bounds of the area say which blobs are looked for, the upper one up to the size of markers. A grid of
  // such dots keeps all of them: at the far end of a slanted target they are a fraction of the near ones.
  constexpr double blobExcess = 1.25; // of a small dot's blob over the dot
  if (usualArea * areaSlack * blobExcess < settings.minDotArea ||
      usualArea > settings.maxDotArea * areaSlack) {
    grid.replace({});
    return;
  }
  auto const isOutOfBounds = [&](MeasuredDot const& dot) {
    double const relative = dot.radius / usual;
    if (relative < std::sqrt(settings.minAreaMultiplier) ||
        relative > std::sqrt(settings.maxAreaMultiplier)) {
      return true;
    }
    auto const local = map->around(dot.index, TargetMap::Self::Included);
    if (!local) {
      return true;
    }
    cv::Matx22d const j = local->jacobian(dot.index);
    // Ratio of the singular values from the determinant and the squared norm.
    double const det = 2.0 * std::abs(cv::determinant(j));
    double const squares = cv::norm(j, cv::NORM_L2SQR);
    double const root = std::sqrt(std::max(squares * squares - det * det, 0.0));
    return std::sqrt(std::max(squares - root, 0.0) / (squares + root)) < settings.minDotRatio;
  };
  grid.keepOnly([&](std::size_t, MeasuredDot const& dot) { return !isOutOfBounds(dot); });
}

} // namespace vorn::mv
