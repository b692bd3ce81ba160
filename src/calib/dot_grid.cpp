// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/dot_grid.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "calib/marker_ring.hpp"
#include "calib/point_buckets.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// Farthest that a dot may lie from where its neighbour expects it, in pitches. Perspective and distortion
/// change the step from one dot to the next by some hundredths.
constexpr double maxStepError = 0.22;

/// A marker's area is 2.25 times an ordinary dot's; this bound lies between, in the middle of the diameters.
constexpr double leastMarkerRatio = 1.5;

/// Share of a grid's dots that may have been claimed for two positions before the whole is discarded.
constexpr double maxConflictShare = 0.05;

/// Fewest dots that make a grid.
constexpr std::size_t leastGridSize = 9;

/// Share of the dots around the origin that must stand where the homography through them has them.
constexpr double leastInnerAgreement = 0.8;

std::array<cv::Point, 4> const unitSteps = {cv::Point(1, 0), cv::Point(0, 1), cv::Point(-1, 0),
                                            cv::Point(0, -1)};

/// The steps from a dot to its next ones along both grid directions, in the image.
struct Basis {
  cv::Point2d x;
  cv::Point2d y;

  cv::Point2d operator*(cv::Point const& step) const {
    return {x.x * step.x + y.x * step.y, x.y * step.x + y.y * step.y};
  }
  /// The grid step that leads along `offset`.
  cv::Point2d inverse(cv::Point2d const& offset) const {
    double const area = x.cross(y);
    return {offset.cross(y) / area, x.cross(offset) / area};
  }
  bool isRegular() const { return std::abs(x.cross(y)) > 0.05 * cv::norm(x) * cv::norm(y); }
};

/// The cross seen as a basis whose directions agree with `expected`, or `expected` where none does.
Basis alignedBasis(std::optional<GridCross> const& cross, Basis const& expected) {
  if (!cross) {
    return expected;
  }
  Basis aligned = expected;
  constexpr double maxDeviation = 0.35;
  bool hasX = false;
  bool hasY = false;
  for (cv::Point2d const& direction : {cross->first, -cross->first, cross->second, -cross->second}) {
    cv::Point2d const inGrid = expected.inverse(direction);
    if (cv::norm(inGrid - cv::Point2d(1, 0)) < maxDeviation) {
      aligned.x = direction;
      hasX = true;
    } else if (cv::norm(inGrid - cv::Point2d(0, 1)) < maxDeviation) {
      aligned.y = direction;
      hasY = true;
    }
  }
  return hasX && hasY ? aligned : expected;
}

/// Grows one grid over the candidates, dot by dot from a seed, each new one where its neighbour expects it.
class Growth {
public:
  Growth(std::vector<DotCandidate> const& candidates, std::vector<std::optional<GridCross>> const& crosses,
         PointBuckets const& buckets)
      : candidates_(candidates), crosses_(crosses), buckets_(buckets), isUsed_(candidates.size(), 0),
        place_(candidates.size(), GridIndex::none) {}

  /// Whether a candidate may start a grid: it has a cross and is in no grid yet.
  bool canStart(std::size_t candidate) const { return crosses_[candidate] && isUsed_[candidate] == 0; }

  /// The dots joined to `seed`, with indices counted from it; none when they are too few or contradict each
  /// other. Dots of a grid with enough of them are not used again.
  std::vector<GridDot> run(int seed) {
    clear();
    GridCross const& cross = *crosses_[static_cast<std::size_t>(seed)];
    add(seed, {0, 0}, {cross.first, cross.second});
    for (std::size_t next = 0; next < dots_.size(); ++next) {
      for (cv::Point const& step : unitSteps) {
        extend(next, step);
      }
    }
    if (dots_.size() < leastGridSize) {
      return {};
    }
    std::vector<GridDot> sound;
    for (std::size_t i = 0; i < dots_.size(); ++i) {
      isUsed_[static_cast<std::size_t>(dots_[i].candidate)] = 1;
      if (!isDoubtful_[i]) {
        sound.push_back(dots_[i]);
      }
    }
    auto const doubtful = static_cast<double>(dots_.size() - sound.size());
    if (doubtful > maxConflictShare * static_cast<double>(dots_.size())) {
      sound.clear();
    }
    return sound;
  }

private:
  void clear() {
    for (GridDot const& dot : dots_) {
      place_[static_cast<std::size_t>(dot.candidate)] = GridIndex::none;
      index_.set(dot.index, GridIndex::none);
    }
    dots_.clear();
    bases_.clear();
    isDoubtful_.clear();
  }

  void add(int candidate, cv::Point const& index, Basis const& basis) {
    place_[static_cast<std::size_t>(candidate)] = static_cast<int>(dots_.size());
    index_.set(index, static_cast<int>(dots_.size()));
    dots_.push_back({candidate, index});
    bases_.push_back(basis);
    isDoubtful_.push_back(0);
  }

  int nearest(cv::Point2d const& expected, Basis const& basis) const {
    double const radius = maxStepError * (cv::norm(basis.x) + cv::norm(basis.y));
    int best = GridIndex::none;
    double least = maxStepError;
    buckets_.visitNear(expected, radius, [&](int candidate) {
      double const distance =
          cv::norm(basis.inverse(candidates_[static_cast<std::size_t>(candidate)].centre - expected));
      if (distance < least || (distance == least && candidate < best)) {
        least = distance;
        best = candidate;
      }
    });
    return best;
  }

  void extend(std::size_t from, cv::Point const& step) {
    cv::Point const index = dots_[from].index + step;
    if (!GridIndex::contains(index)) {
      return;
    }
    Basis const basis = bases_[from];
    cv::Point2d const start = candidates_[static_cast<std::size_t>(dots_[from].candidate)].centre;
    int const found = nearest(start + basis * step, basis);
    if (found == GridIndex::none) {
      return;
    }
    int const place = place_[static_cast<std::size_t>(found)];
    int const occupant = index_.at(index);
    if (place == GridIndex::none && occupant == GridIndex::none) {
      if (isUsed_[static_cast<std::size_t>(found)] != 0) {
        return;
      }
      Basis expected = basis;
      cv::Point2d const way = candidates_[static_cast<std::size_t>(found)].centre - start;
      (step.x != 0 ? expected.x : expected.y) = way * static_cast<double>(step.x + step.y);
      Basis const own = alignedBasis(crosses_[static_cast<std::size_t>(found)], expected);
      if (own.isRegular()) {
        add(found, index, own);
      }
      return;
    }
    if (place != occupant) {
      for (int const doubtful : {place, occupant}) {
        if (doubtful != GridIndex::none) {
          isDoubtful_[static_cast<std::size_t>(doubtful)] = 1;
        }
      }
    }
  }

  std::vector<DotCandidate> const& candidates_;
  std::vector<std::optional<GridCross>> const& crosses_;
  PointBuckets const& buckets_;
  std::vector<char> isUsed_;
  std::vector<int> place_;
  GridIndex index_;
  std::vector<GridDot> dots_;
  std::vector<Basis> bases_;
  std::vector<char> isDoubtful_;
};

/// A grid whose origin is not settled yet.
class RawGrid {
public:
  RawGrid(std::vector<DotCandidate> const& candidates, std::vector<GridDot> dots)
      : candidates_(candidates), dots_(std::move(dots)) {
    for (std::size_t i = 0; i < dots_.size(); ++i) {
      index_.set(dots_[i].index, static_cast<int>(i));
    }
  }

  std::vector<GridDot> const& dots() const { return dots_; }
  int at(cv::Point const& index) const { return index_.at(index); }
  cv::Point2d centre(int dot) const { return candidate(dot).centre; }
  DotCandidate const& candidate(int dot) const {
    return candidates_[static_cast<std::size_t>(dots_[static_cast<std::size_t>(dot)].candidate)];
  }

  /// The step in the image along a unit step of the grid, from the neighbours on both sides or one.
  std::optional<cv::Point2d> stepAt(int dot, cv::Point const& step) const {
    cv::Point const index = dots_[static_cast<std::size_t>(dot)].index;
    int const after = at(index + step);
    int const before = at(index - step);
    if (after != GridIndex::none && before != GridIndex::none) {
      return 0.5 * (centre(after) - centre(before));
    }
    if (after != GridIndex::none) {
      return centre(after) - centre(dot);
    }
    if (before != GridIndex::none) {
      return centre(dot) - centre(before);
    }
    return std::nullopt;
  }

  /// Each dot's area as a share of the grid cell around it; 0 where there is no cell to compare with.
  std::vector<double> areaShares() const {
    std::vector<double> shares;
    for (int i = 0; i < static_cast<int>(dots_.size()); ++i) {
      auto const x = stepAt(i, {1, 0});
      auto const y = stepAt(i, {0, 1});
      shares.push_back(x && y ? candidate(i).area / std::abs(x->cross(*y)) : 0.0);
    }
    return shares;
  }

private:
  std::vector<DotCandidate> const& candidates_;
  std::vector<GridDot> dots_;
  GridIndex index_;
};

/// Where the origin lies and which grid steps lead along +x and +y.
struct Orientation {
  int origin = 0;
  cv::Point x;
  cv::Point y;
  bool isMarked = false;
};

double medianOfPositive(std::vector<double> values) {
  values.erase(std::remove_if(values.begin(), values.end(), [](double v) { return v <= 0; }), values.end());
  return medianOf(std::move(values));
}

/// The dots that are bright where only a marker is, half way between the rims of an ordinary dot and a
/// marker.
std::vector<char> findWideDots(cv::Mat const& image, RawGrid const& grid) {
  constexpr double leastExcess = 0.15;   // above the ordinary dots; a sharp image gives 1
  constexpr double shareOfMarker = 0.65; // more than half way: what lies beside a dot may brighten its ring
  std::vector<double> brightness;
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    auto const x = grid.stepAt(i, {1, 0});
    auto const y = grid.stepAt(i, {0, 1});
    brightness.push_back(x && y ? markerRing(image, grid.centre(i), {x->x, y->x, x->y, y->y}) : 0.0);
  }
  double const usual = medianOf(brightness);
  std::vector<double> sorted = brightness;
  auto const third = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size()) - 3;
  std::nth_element(sorted.begin(), third, sorted.end());
  double const threshold = usual + std::max(leastExcess, shareOfMarker * (*third - usual));
  std::vector<char> isWide;
  isWide.reserve(brightness.size());
  for (double const value : brightness) {
    isWide.push_back(value >= threshold);
  }
  return isWide;
}

/// The corners of Ls that three marker dots form, seen from the front of the target.
std::vector<Orientation> markedCorners(RawGrid const& grid, std::vector<char> const& isMarker) {
  auto const markerAt = [&](cv::Point const& index) {
    int const dot = grid.at(index);
    return dot != GridIndex::none && isMarker[static_cast<std::size_t>(dot)] != 0;
  };
  std::vector<Orientation> corners;
  for (std::size_t i = 0; i < grid.dots().size(); ++i) {
    cv::Point const index = grid.dots()[i].index;
    for (std::size_t k = 0; isMarker[i] != 0 && k < unitSteps.size(); ++k) {
      cv::Point const a = unitSteps[k];
      cv::Point const b = unitSteps[(k + 1) % unitSteps.size()];
      if (!markerAt(index + a) || !markerAt(index + b) || markerAt(index - a) || markerAt(index - b) ||
          markerAt(index + a + b)) {
        continue;
      }
      int const origin = static_cast<int>(i);
      cv::Point2d const toA = grid.centre(grid.at(index + a)) - grid.centre(origin);
      cv::Point2d const toB = grid.centre(grid.at(index + b)) - grid.centre(origin);
      bool const aIsX = toA.cross(toB) > 0;
      corners.push_back({origin, aIsX ? a : b, aIsX ? b : a, true});
    }
  }
  return corners;
}

/// The dot nearest the middle of the grid, x along the image's columns.
std::optional<Orientation> middleOrientation(RawGrid const& grid) {
  cv::Point2d mean;
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    mean += grid.centre(i) * (1.0 / static_cast<double>(grid.dots().size()));
  }
  Orientation orientation;
  double least = std::numeric_limits<double>::infinity();
  for (int i = 0; i < static_cast<int>(grid.dots().size()); ++i) {
    double const distance = cv::norm(grid.centre(i) - mean);
    if (distance < least && grid.stepAt(i, {1, 0}) && grid.stepAt(i, {0, 1})) {
      least = distance;
      orientation.origin = i;
    }
  }
  if (!std::isfinite(least)) {
    return std::nullopt;
  }
  auto const inImage = [&](cv::Point const& step) {
    cv::Point2d const way = *grid.stepAt(orientation.origin, {std::abs(step.x), std::abs(step.y)});
    return way * static_cast<double>(step.x + step.y);
  };
  double mostAlong = 0;
  for (cv::Point const& step : unitSteps) {
    cv::Point2d const way = inImage(step);
    double const along = way.x / cv::norm(way);
    if (along > mostAlong) {
      mostAlong = along;
      orientation.x = step;
    }
  }
  orientation.y = {orientation.x.y, orientation.x.x};
  if (inImage(orientation.x).cross(inImage(orientation.y)) < 0) {
    orientation.y = -orientation.y;
  }
  return orientation;
}

/// The grid's dots with indices counted from the origin, without those that are no dots of the target by
/// size.
DotGrid oriented(RawGrid const& grid, Orientation const& orientation, std::vector<double> const& shares,
                 double ordinaryShare, std::vector<char> const& isMarker, TargetSettings const& settings) {
  DotGrid result;
  result.isOriginMarked = orientation.isMarked;
  cv::Point const origin = grid.dots()[static_cast<std::size_t>(orientation.origin)].index;
  for (std::size_t i = 0; i < grid.dots().size(); ++i) {
    cv::Point const raw = grid.dots()[i].index - origin;
    cv::Point const index(raw.dot(orientation.x), raw.dot(orientation.y));
    bool const isMarkerPlace = orientation.isMarked && index.x >= 0 && index.y >= 0 && index.x + index.y <= 1;
    bool const isTooSmall = shares[i] > 0 && shares[i] < settings.minAreaMultiplier * ordinaryShare;
    if ((isMarker[i] != 0) == isMarkerPlace && !isTooSmall) {
      result.dots.push_back({grid.dots()[i].candidate, index});
    }
  }
  return result;
}

/// Settles origin and directions; nothing where more than one set of markers is in the grid.
std::optional<DotGrid> settle(cv::Mat const& image, RawGrid const& grid, TargetSettings const& settings) {
  std::vector<double> const shares = grid.areaShares();
  double const ordinary = medianOfPositive(shares);
  std::vector<char> isMarker;
  isMarker.reserve(shares.size());
  for (double const share : shares) {
    isMarker.push_back(share >= leastMarkerRatio * ordinary &&
                       share <= settings.maxAreaMultiplier * ordinary);
  }
  std::vector<Orientation> corners = markedCorners(grid, isMarker);
  if (corners.size() != 1) {
    // Areas of blobs are coarse where dots are small, slanted or blurred.
    std::vector<char> const hasWideRing = findWideDots(image, grid);
    std::vector<Orientation> const byRings = markedCorners(grid, hasWideRing);
    if (byRings.size() == 1) {
      corners = byRings;
      isMarker = hasWideRing;
    }
  }
  if (corners.size() > 1) {
    return std::nullopt;
  }
  std::optional<Orientation> const orientation =
      corners.size() == 1 ? std::optional(corners.front()) : middleOrientation(grid);
  if (!orientation) {
    return std::nullopt;
  }
  return oriented(grid, *orientation, shares, ordinary, isMarker, settings);
}

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

} // namespace

DotGrid assignGrid(cv::Mat const& image, std::vector<DotCandidate> const& candidates,
                   std::vector<std::optional<GridCross>> const& crosses, TargetSettings const& settings) {
  std::vector<cv::Point2d> centres;
  double meanSize = 0;
  for (DotCandidate const& candidate : candidates) {
    centres.push_back(candidate.centre);
    meanSize += std::sqrt(candidate.area) / static_cast<double>(candidates.size());
  }
  PointBuckets const buckets(centres, 2.0 * meanSize);
  Growth growth(candidates, crosses, buckets);
  DotGrid best;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (!growth.canStart(i)) {
      continue;
    }
    RawGrid const raw(candidates, growth.run(static_cast<int>(i)));
    if (raw.dots().size() < leastGridSize) {
      continue;
    }
    std::optional<DotGrid> grid = settle(image, raw, settings);
    if (!grid || !agreesAroundOrigin(*grid, candidates, settings)) {
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
