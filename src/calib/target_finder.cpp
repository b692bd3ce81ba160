// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target_finder.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <optional>

#include "calib/dot_candidate.hpp"
#include "calib/dot_centre.hpp"
#include "calib/dot_edge.hpp"
#include "calib/dot_grid.hpp"
#include "calib/dot_template.hpp"
#include "calib/marker_ring.hpp"
#include "calib/target_map.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// Diameters of dots and markers, in pitches.
constexpr double ordinaryRadius = 0.25;
constexpr double markerRadius = 0.375;

/// Half way to the next dot, and a little more: the ground there belongs to nobody.
constexpr double groundReach = 0.525;

/// The grid that the image shows when reduced by `factor`. Positions are those of the candidates.
TargetView findGrid(cv::Mat const& image, int factor, TargetSettings const& settings) {
  ReducedImage level = reduce(image, factor);
  std::vector<DotCandidate> const candidates = findCandidates(level, settings);
  auto crosses = findCrosses(candidates, settings.maxAreaMultiplier);
  std::vector<char> const resembles = resembleDots(level, candidates, crosses);
  std::vector<DotCandidate> dots;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (resembles[i] != 0) {
      dots.push_back(candidates[i]);
    }
  }
  if (dots.size() < candidates.size()) {
    crosses = findCrosses(dots, settings.maxAreaMultiplier);
  }
  DotGrid const grid = assignGrid(image, dots, crosses, settings);
  TargetView view;
  view.isOriginMarked = grid.isOriginMarked;
  for (GridDot const& dot : grid.dots) {
    view.dots.push_back({dot.index, dots[static_cast<std::size_t>(dot.candidate)].centre});
  }
  return view;
}

/// A dot with its measurement; `dot.centre` is the centre of its image.
struct MeasuredDot {
  TargetDot dot;
  DotMeasurement measured;
  double radius = 0; ///< pitches
};

/// Measures the dots of a grid in the full image and completes the grid.
class GridMeasurement {
public:
  GridMeasurement(cv::Mat const& image, TargetSettings const& settings, bool isMarked)
      : image_(image), settings_(settings), isMarked_(isMarked) {}

  cv::Mat const& image() const { return image_; }
  bool isMarked() const { return isMarked_; }
  bool isMarker(cv::Point const& index) const {
    return isMarked_ && index.x >= 0 && index.y >= 0 && index.x + index.y <= 1;
  }

  /// First measurement, from rough positions.
  std::vector<MeasuredDot> start(std::vector<TargetDot> const& rough) {
    std::vector<MeasuredDot> dots;
    auto const map = TargetMap::fit(rough);
    if (!map) {
      return dots;
    }
    for (TargetDot const& dot : rough) {
      if (auto found = measure(*map, dot)) {
        dots.push_back(*found);
      }
    }
    learn(dots);
    return dots;
  }

  /// Whether all three markers were measured, are as much larger than the other dots as markers are, and the
  /// image is brighter around them than around the others.
  bool hasMarkers(std::vector<MeasuredDot> const& dots) const {
    constexpr double leastRadiusRatio = 1.25; // of 1.5
    constexpr double leastExcess = 0.12;      // of the dots' contrast; a sharp image gives 1
    auto const isLarge = [&](MeasuredDot const& dot) {
      return isMarker(dot.dot.index) && dot.radius >= leastRadiusRatio * ordinaryRadius_;
    };
    if (std::count_if(dots.begin(), dots.end(), isLarge) < 3) {
      return false;
    }
    auto const map = TargetMap::fit(targetDots(dots));
    if (!map) {
      return false;
    }
    auto const ringAt = [&](cv::Point const& index) {
      auto const local = map->around(index, TargetMap::Self::Included);
      return local ? markerRing(image_, local->position(index), local->jacobian(index)) : 0.0;
    };
    std::vector<double> ordinary;
    for (MeasuredDot const& dot : dots) {
      if (!isMarker(dot.dot.index)) {
        ordinary.push_back(ringAt(dot.dot.index));
      }
    }
    double const least = medianOf(ordinary) + leastExcess;
    return ringAt({0, 0}) >= least && ringAt({1, 0}) >= least && ringAt({0, 1}) >= least;
  }

  /// Looks for dots where the grid has gaps and beyond its edge, until there are no more.
  void complete(std::vector<MeasuredDot>& dots) {
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

  /// Measures once more, with band and outline as the first measurement found them.
  void refine(std::vector<MeasuredDot>& dots) {
    auto const map = TargetMap::fit(targetDots(dots));
    std::vector<MeasuredDot> refined;
    for (MeasuredDot const& dot : dots) {
      if (auto found = map ? measure(*map, dot.dot) : std::nullopt) {
        refined.push_back(*found);
      }
    }
    dots = std::move(refined);
  }

  /// Moves the dots' centres to where their edges have them.
  void fitEdges(std::vector<MeasuredDot>& dots) const {
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

  static std::vector<TargetDot> targetDots(std::vector<MeasuredDot> const& dots) {
    std::vector<TargetDot> list;
    list.reserve(dots.size());
    for (MeasuredDot const& dot : dots) {
      list.push_back(dot.dot);
    }
    return list;
  }

private:
  std::optional<MeasuredDot> measure(TargetMap const& map, TargetDot const& dot) const {
    auto const local = map.around(dot.index, TargetMap::Self::Included);
    return local ? measure(*local, dot) : std::nullopt;
  }

  std::optional<MeasuredDot> measure(LocalMap const& local, TargetDot const& dot) const {
    cv::Matx22d const jacobian = local.jacobian(dot.index);
    double const radius = isMarker(dot.index) ? markerRadius_ : ordinaryRadius_;
    double const cell = std::abs(cv::determinant(jacobian));
    double const shortAxis = radius * cell / std::max(cv::norm(jacobian), 1e-9);
    double const halfWidth = halfWidth_ > 0 ? halfWidth_ : std::clamp(0.4 * shortAxis, 2.0, 6.0);
    auto const measured =
        measureDot(image_, dot.centre, {jacobian * radius, groundReach / radius}, halfWidth);
    if (!measured) {
      return std::nullopt;
    }
    return MeasuredDot{{dot.index, measured->centre}, *measured, std::sqrt(measured->area / (CV_PI * cell))};
  }

  static double usualBlur(std::vector<MeasuredDot> const& dots) {
    std::vector<double> blurs;
    for (MeasuredDot const& dot : dots) {
      blurs.push_back(dot.measured.blur);
    }
    return medianOf(std::move(blurs));
  }

  /// Takes over the dots' sizes and the blur of their edges.
  void learn(std::vector<MeasuredDot> const& dots) {
    std::vector<double> ordinary;
    std::vector<double> markers;
    for (MeasuredDot const& dot : dots) {
      (isMarker(dot.dot.index) ? markers : ordinary).push_back(dot.radius);
    }
    if (!ordinary.empty()) {
      ordinaryRadius_ = std::clamp(medianOf(ordinary), 0.15, 0.4);
    }
    if (!markers.empty()) {
      markerRadius_ = std::clamp(medianOf(markers), ordinaryRadius_, 0.45);
    }
    constexpr double widthInBlurs = 2.5;
    halfWidth_ = std::max(1.5, widthInBlurs * usualBlur(dots) + 0.7);
  }

  /// Adds dots up to `reach` steps from those that are there.
  bool addMissing(TargetMap const& map, int reach, std::vector<MeasuredDot>& dots) const {
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

  std::optional<MeasuredDot> findMissing(TargetMap const& map, cv::Point const& index, int reach,
                                         GridIndex const& present,
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

  cv::Mat const& image_;
  TargetSettings const& settings_;
  bool isMarked_;
  double ordinaryRadius_ = ordinaryRadius;
  double markerRadius_ = markerRadius;
  double halfWidth_ = 0;
};

/// Moves each dot from the centre of its image to the image of its centre.
void correctPerspective(std::vector<MeasuredDot>& dots) {
  auto const rough = TargetMap::fit(GridMeasurement::targetDots(dots));
  if (!rough) {
    return;
  }
  // Twice: markers shift more than their neighbours, and that must not bend the map that tells how much.
  std::vector<TargetDot> corrected = GridMeasurement::targetDots(dots);
  for (int round = 0; round < 2; ++round) {
    auto const map = TargetMap::fit(corrected);
    for (std::size_t i = 0; map && i < dots.size(); ++i) {
      if (auto const local = map->around(dots[i].dot.index, TargetMap::Self::Included)) {
        corrected[i].centre = dots[i].measured.centre - local->discOffset(dots[i].dot.index, dots[i].radius);
      }
    }
  }
  for (std::size_t i = 0; i < dots.size(); ++i) {
    dots[i].dot = corrected[i];
  }
}

/// Takes out dots that do not stand where the dots around them say: cut, covered, or no dot of the target.
void dropMisplaced(std::vector<MeasuredDot>& dots) {
  constexpr double leastTolerance = 0.25; // pixels
  constexpr double toleranceInSigmas = 7;
  constexpr int maxRounds = 12;
  for (int round = 0; round < maxRounds; ++round) {
    auto const map = TargetMap::fit(GridMeasurement::targetDots(dots));
    if (!map) {
      return;
    }
    std::vector<double> deviations;
    GridIndex index;
    for (std::size_t i = 0; i < dots.size(); ++i) {
      index.set(dots[i].dot.index, static_cast<int>(i));
      auto const local = map->around(dots[i].dot.index, TargetMap::Self::LeftOut);
      // A dot with nothing to compare it with cannot be vouched for.
      deviations.push_back(local ? cv::norm(local->position(dots[i].dot.index) - dots[i].dot.centre) /
                                       std::sqrt(1.0 + local->variance())
                                 : std::numeric_limits<double>::infinity());
    }
    double const tolerance = std::max(leastTolerance, toleranceInSigmas * medianOf(deviations));
    // A misplaced dot throws suspicion on its neighbours: of those near each other only the worst goes now.
    std::vector<MeasuredDot> kept;
    for (std::size_t i = 0; i < dots.size(); ++i) {
      bool isWorst = deviations[i] > tolerance;
      for (int y = -2; y <= 2 && isWorst; ++y) {
        for (int x = -2; x <= 2; ++x) {
          int const other = index.at(dots[i].dot.index + cv::Point(x, y));
          isWorst = isWorst && (other == GridIndex::none ||
                                deviations[static_cast<std::size_t>(other)] <= deviations[i]);
        }
      }
      if (!isWorst) {
        kept.push_back(dots[i]);
      }
    }
    if (kept.size() == dots.size()) {
      return;
    }
    dots = std::move(kept);
  }
}

/// What noise does to a dot's measured radius, relative to it: half of what it does to the area, which it
/// enters over a band of some five pixels along the edge.
double radiusNoise(DotMeasurement const& dot) {
  constexpr double bandWidth = 5;
  double const perimeter = 2.0 * std::sqrt(CV_PI * dot.area);
  double const relativeNoise = dot.levels.coreNoise / dot.levels.contrast.value;
  return 0.5 * relativeNoise * std::sqrt(bandWidth * perimeter) / dot.area;
}

/// Takes out dots whose size differs from that of the dots around them: something covers or cuts them.
/// Compared are neighbours only, for overexposed dots look larger.
void dropMissized(std::vector<MeasuredDot>& dots, GridMeasurement const& grid) {
  constexpr double leastTolerance = 0.015; // of the radius; ink on paper scatters less
  constexpr double toleranceInSigmas = 8;
  constexpr std::size_t leastNeighbours = 5;
  GridIndex index;
  for (std::size_t i = 0; i < dots.size(); ++i) {
    index.set(dots[i].dot.index, static_cast<int>(i));
  }
  std::vector<MeasuredDot> kept;
  for (MeasuredDot const& dot : dots) {
    std::vector<double> radii;
    for (int y = -2; y <= 2; ++y) {
      for (int x = -2; x <= 2; ++x) {
        cv::Point const place = dot.dot.index + cv::Point(x, y);
        int const other = index.at(place);
        if (other != GridIndex::none && !grid.isMarker(place)) {
          radii.push_back(dots[static_cast<std::size_t>(other)].radius);
        }
      }
    }
    double const tolerance = std::max(leastTolerance, toleranceInSigmas * radiusNoise(dot.measured));
    if (grid.isMarker(dot.dot.index) || radii.size() < leastNeighbours ||
        std::abs(dot.radius / medianOf(radii) - 1) <= tolerance) {
      kept.push_back(dot);
    }
  }
  dots = std::move(kept);
}

/// Replaces the measured centres by the peaks of the correlation with a drawn dot. The patches are rectified
/// through the target's map, so that what is drawn as a circle is one, about the image of its centre.
void measureByTemplate(GridMeasurement const& grid, std::vector<MeasuredDot>& dots) {
  auto const map = TargetMap::fit(GridMeasurement::targetDots(dots));
  if (!map) {
    return;
  }
  std::vector<MeasuredDot> const before = dots;
  for (bool const areMarkers : {false, true}) {
    std::vector<std::size_t> numbers;
    std::vector<double> radii;
    std::vector<RectifiedDot> rectified;
    double reach = 0;
    for (std::size_t i = 0; i < before.size(); ++i) {
      MeasuredDot const& dot = before[i];
      auto const local = map->around(dot.dot.index, TargetMap::Self::Included);
      if (local && grid.isMarker(dot.dot.index) == areMarkers) {
        // The map passes by the dot at the distance of its noise; the patch is centred on the dot itself.
        cv::Point2d const index(dot.dot.index);
        cv::Point2d const shift = dot.dot.centre - local->position(index);
        rectified.push_back({[local, index, shift, radius = dot.radius](cv::Point2d const& offset) {
                               return local->position(index + offset * radius) + shift;
                             },
                             dot.measured.levels});
        numbers.push_back(i);
        radii.push_back(std::sqrt(dot.measured.area / CV_PI));
        reach = groundReach / dot.radius;
      }
    }
    std::vector<cv::Point2d> const peaks = correlationPeaks(grid.image(), rectified, medianOf(radii), reach);
    std::vector<double> moves;
    for (std::size_t k = 0; k < numbers.size(); ++k) {
      moves.push_back(cv::norm(rectified[k].position(peaks[k]) - before[numbers[k]].dot.centre));
    }
    // A correlation sees everything in its patch: where something else reaches in, the centre by its edge
    // stands.
    constexpr double leastTolerance = 0.1; // pixels
    constexpr double toleranceInMedians = 5;
    double const tolerance = std::max(leastTolerance, toleranceInMedians * medianOf(moves));
    for (std::size_t k = 0; k < numbers.size(); ++k) {
      if (moves[k] <= tolerance) {
        dots[numbers[k]].dot.centre = rectified[k].position(peaks[k]);
      }
    }
  }
}

/// Takes out dots outside the bounds of area and shape.
void keepWithinBounds(std::vector<MeasuredDot>& dots, GridMeasurement const& grid,
                      TargetSettings const& settings) {
  auto const map = TargetMap::fit(GridMeasurement::targetDots(dots));
  if (!map) {
    dots.clear();
    return;
  }
  std::vector<double> radii;
  for (MeasuredDot const& dot : dots) {
    if (!grid.isMarker(dot.dot.index)) {
      radii.push_back(dot.radius);
    }
  }
  double const usual = medianOf(radii);
  auto const isOutOfBounds = [&](MeasuredDot const& dot) {
    bool const isMarker = grid.isMarker(dot.dot.index);
    double const relative = dot.radius / usual;
    double const area = dot.measured.area;
    if (relative < std::sqrt(settings.minAreaMultiplier) ||
        relative > std::sqrt(settings.maxAreaMultiplier) || area < settings.minDotArea ||
        (!isMarker && area > settings.maxDotArea)) {
      return true;
    }
    auto const local = map->around(dot.dot.index, TargetMap::Self::Included);
    if (!local) {
      return true;
    }
    cv::Matx22d const j = local->jacobian(dot.dot.index);
    // Ratio of the singular values from the determinant and the squared norm.
    double const det = 2.0 * std::abs(cv::determinant(j));
    double const squares = cv::norm(j, cv::NORM_L2SQR);
    double const root = std::sqrt(std::max(squares * squares - det * det, 0.0));
    return std::sqrt(std::max(squares - root, 0.0) / (squares + root)) < settings.minDotRatio;
  };
  dots.erase(std::remove_if(dots.begin(), dots.end(), isOutOfBounds), dots.end());
}

/// Counts the indices of an unmarked grid from the dot nearest its middle.
void centreIndices(std::vector<TargetDot>& dots) {
  cv::Point2d mean;
  for (TargetDot const& dot : dots) {
    mean += dot.centre * (1.0 / static_cast<double>(dots.size()));
  }
  auto const nearest =
      std::min_element(dots.begin(), dots.end(), [&](TargetDot const& a, TargetDot const& b) {
        return cv::norm(a.centre - mean) < cv::norm(b.centre - mean);
      });
  cv::Point const origin = nearest->index;
  for (TargetDot& dot : dots) {
    dot.index -= origin;
  }
}

/// Everything from the first measurement of a grid's dots to the finished view.
TargetView finish(GridMeasurement& grid, std::vector<MeasuredDot> dots, TargetSettings const& settings) {
  if (dots.empty()) {
    return {};
  }
  grid.complete(dots);
  grid.refine(dots);
  grid.fitEdges(dots);
  correctPerspective(dots);
  dropMissized(dots, grid);
  dropMisplaced(dots);
  keepWithinBounds(dots, grid, settings);
  if (settings.centreMethod == CentreMethod::TemplatePeak) {
    measureByTemplate(grid, dots);
  }
  if (dots.size() < static_cast<std::size_t>(settings.minKeyPointCount)) {
    return {};
  }
  TargetView view{GridMeasurement::targetDots(dots), grid.isMarked()};
  if (!view.isOriginMarked) {
    centreIndices(view.dots);
  }
  auto const isOutside = [&](TargetDot const& dot) {
    return dot.index.x < settings.minIndex.x || dot.index.x > settings.maxIndex.x ||
           dot.index.y < settings.minIndex.y || dot.index.y > settings.maxIndex.y;
  };
  view.dots.erase(std::remove_if(view.dots.begin(), view.dots.end(), isOutside), view.dots.end());
  std::sort(view.dots.begin(), view.dots.end(), [](TargetDot const& a, TargetDot const& b) {
    return a.index.y != b.index.y ? a.index.y < b.index.y : a.index.x < b.index.x;
  });
  return view;
}

} // namespace

TargetView findTarget(cv::Mat const& image, TargetSettings const& settings) {
  TargetView unmarked;
  for (int const factor : searchFactors(image.size(), settings)) {
    TargetView rough = findGrid(image, factor, settings);
    if (rough.isOriginMarked) {
      GridMeasurement grid(image, settings, true);
      std::vector<MeasuredDot> const dots = grid.start(rough.dots);
      if (grid.hasMarkers(dots)) {
        return finish(grid, dots, settings);
      }
    }
    if (rough.dots.size() > unmarked.dots.size()) {
      unmarked = std::move(rough);
    }
  }
  GridMeasurement grid(image, settings, false);
  return finish(grid, grid.start(unmarked.dots), settings);
}

} // namespace vorn::mv
