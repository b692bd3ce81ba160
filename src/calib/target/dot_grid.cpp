// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_grid.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "calib/target/dot_growth.hpp"
#include "calib/target/dot_origin.hpp"
#include "calib/target/point_buckets.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// Share of the dots around the origin that must stand where the homography through them has them.
constexpr double leastInnerAgreement = 0.8;

/// The homography from the image to grid indices through four dots given by index.
std::optional<cv::Mat> gridFromImage(DotGrid const& grid, GridIndex const& places,
                                     std::vector<DotCandidate> const& candidates,
                                     std::array<cv::Point, 4> const& indices) {
  std::array<cv::Point2f, 4> image;
  std::array<cv::Point2f, 4> plane;
  for (std::size_t i = 0; i < indices.size(); ++i) {
    int const dot = places.at(indices[i]);
    if (dot == GridIndex::none) {
      return std::nullopt;
    }
    image[i] =
        candidates[static_cast<std::size_t>(grid.dots[static_cast<std::size_t>(dot)].candidate)].centre;
    plane[i] = indices[i];
  }
  return cv::getPerspectiveTransform(image.data(), plane.data());
}

bool isInner(cv::Point const& index, TargetSettings const& settings) {
  return index.x >= settings.innerMinIndex.x && index.x <= settings.innerMaxIndex.x &&
         index.y >= settings.innerMinIndex.y && index.y <= settings.innerMaxIndex.y;
}

/// A grid cell with all four corners present, as near the origin as can be.
std::optional<std::array<cv::Point, 4>> cellNearOrigin(DotGrid const& grid, GridIndex const& places) {
  std::optional<std::array<cv::Point, 4>> best;
  int least = std::numeric_limits<int>::max();
  for (GridDot const& dot : grid.dots) {
    cv::Point const i = dot.index;
    std::array<cv::Point, 4> const cell = {i, i + cv::Point(1, 0), i + cv::Point(1, 1), i + cv::Point(0, 1)};
    int const distance = std::abs(2 * i.x + 1) + std::abs(2 * i.y + 1);
    bool const isWhole = std::all_of(cell.begin(), cell.end(),
                                     [&](cv::Point const& p) { return places.at(p) != GridIndex::none; });
    if (isWhole && distance < least) {
      least = distance;
      best = cell;
    }
  }
  return best;
}

/// The inner dots farthest towards the four corners of the inner range.
std::array<cv::Point, 4> innerCorners(DotGrid const& grid, TargetSettings const& settings) {
  std::array<cv::Point, 4> const towards = {cv::Point(-1, -1), cv::Point(1, -1), cv::Point(1, 1),
                                            cv::Point(-1, 1)};
  std::array<cv::Point, 4> corners;
  for (std::size_t i = 0; i < towards.size(); ++i) {
    int most = std::numeric_limits<int>::min();
    for (GridDot const& dot : grid.dots) {
      int const along = dot.index.dot(towards[i]);
      if (isInner(dot.index, settings) && along > most) {
        most = along;
        corners[i] = dot.index;
      }
    }
  }
  return corners;
}

/// Takes out inner dots that do not stand where the homography through a cell at the origin, and then the one
/// through the corners of the inner range, have them. False when too many do not.
bool agreesAroundOrigin(DotGrid& grid, std::vector<DotCandidate> const& candidates,
                        TargetSettings const& settings) {
  GridIndex places;
  for (std::size_t i = 0; i < grid.dots.size(); ++i) {
    places.set(grid.dots[i].index, static_cast<int>(i));
  }
  auto const cell = cellNearOrigin(grid, places);
  if (!cell) {
    return false;
  }
  std::vector<char> agrees(grid.dots.size(), 1);
  for (std::array<cv::Point, 4> const& corners : {*cell, innerCorners(grid, settings)}) {
    auto const homography = gridFromImage(grid, places, candidates, corners);
    if (!homography || cv::abs(cv::determinant(*homography)) == 0) {
      return false;
    }
    for (std::size_t i = 0; i < grid.dots.size(); ++i) {
      cv::Point2f const centre = candidates[static_cast<std::size_t>(grid.dots[i].candidate)].centre;
      if (isInner(grid.dots[i].index, settings)) {
        cv::Point2f const position = math::transform(centre, *homography);
        cv::Point2f const index(std::floor(position.x + 0.5F), std::floor(position.y + 0.5F));
        agrees[i] = static_cast<char>(agrees[i] != 0 && index == cv::Point2f(grid.dots[i].index));
      }
    }
  }
  std::vector<GridDot> kept;
  double inner = 0;
  double agreeing = 0;
  for (std::size_t i = 0; i < grid.dots.size(); ++i) {
    bool const isInside = isInner(grid.dots[i].index, settings);
    inner += isInside ? 1 : 0;
    agreeing += isInside && agrees[i] != 0 ? 1 : 0;
    if (agrees[i] != 0) {
      kept.push_back(grid.dots[i]);
    }
  }
  grid.dots = std::move(kept);
  return agreeing >= leastInnerAgreement * inner;
}

void keepAllowedIndices(DotGrid& grid, TargetSettings const& settings) {
  auto const isOutside = [&](GridDot const& dot) {
    return dot.index.x < settings.minIndex.x || dot.index.x > settings.maxIndex.x ||
           dot.index.y < settings.minIndex.y || dot.index.y > settings.maxIndex.y;
  };
  grid.dots.erase(std::remove_if(grid.dots.begin(), grid.dots.end(), isOutside), grid.dots.end());
}

/// The candidates with crosses in the order in which to start grids from them: first those whose cross is no
/// longer, in their own scale, than most are. A dot at the rim of staggered rows may have a cross with
/// something beside the target that passes over its next neighbours, and would grow a grid of every other
/// dot.
std::vector<std::size_t> seedOrder(std::vector<DotCandidate> const& candidates,
                                   std::vector<std::optional<GridCross>> const& crosses) {
  constexpr double mostLengthRatio = 1.2; // of lengths; passing over neighbours makes them 1.4 times as long
  std::vector<std::size_t> seeds;
  std::vector<double> lengths;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (crosses[i]) {
      auto const length = [&](cv::Point2d const& step) {
        return cv::norm(candidates[i].whitening * cv::Vec2d(step.x, step.y));
      };
      seeds.push_back(i);
      lengths.push_back(length(crosses[i]->first) + length(crosses[i]->second));
    }
  }
  double const longest = mostLengthRatio * medianOf(lengths);
  std::vector<std::size_t> order;
  for (bool const isLong : {false, true}) {
    for (std::size_t i = 0; i < seeds.size(); ++i) {
      if ((lengths[i] > longest) == isLong) {
        order.push_back(seeds[i]);
      }
    }
  }
  return order;
}

} // namespace

DotGrid assignGrid(cv::Mat const& image, std::vector<DotCandidate> const& candidates,
                   std::vector<std::optional<GridCross>> const& crosses, TargetSettings const& settings,
                   Progress const& progress) {
  std::vector<cv::Point2d> centres;
  double meanSize = 0;
  for (DotCandidate const& candidate : candidates) {
    centres.push_back(candidate.centre);
    meanSize += std::sqrt(candidate.area) / static_cast<double>(candidates.size());
  }
  PointBuckets const buckets(centres, 2.0 * meanSize);
  Growth growth(candidates, crosses, buckets);
  DotGrid best;
  std::vector<std::size_t> const seeds = seedOrder(candidates, crosses);
  for (std::size_t i = 0; i < seeds.size(); ++i) {
    if (!growth.canStart(seeds[i])) {
      continue;
    }
    progress.at("detecting targets", static_cast<double>(i) / static_cast<double>(seeds.size()));
    RawGrid const raw(candidates, growth.run(static_cast<int>(seeds[i])));
    if (raw.dots().size() < leastGridSize) {
      continue;
    }
    std::vector<DotGrid> readings = settleOrigin(image, raw, settings);
    auto const grid = std::find_if(readings.begin(), readings.end(), [&](DotGrid& reading) {
      return agreesAroundOrigin(reading, candidates, settings);
    });
    if (grid == readings.end()) {
      continue;
    }
    keepAllowedIndices(*grid, settings);
    bool const isBetter = grid->isOriginMarked != best.isOriginMarked ? grid->isOriginMarked
                                                                      : grid->dots.size() > best.dots.size();
    if (grid->dots.size() >= leastGridSize && isBetter) {
      best = std::move(*grid);
    }
  }
  return best;
}

} // namespace vorn::mv
