// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_centre.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "calib/target/grey_pixels.hpp"

namespace vorn::mv {
namespace {

/// Least half width of the band along the edge: a sharp edge is spread over a pixel.
constexpr double leastHalfWidth = 1.2;

/// Directions in which a dot must stand out against its ground.
constexpr std::size_t rimDirections = 16;

/// Sums over a dot, each pixel weighted by where it lies between ground and dot; positions from an origin.
struct WeightSums {
  double weight = 0;
  double x = 0;
  double y = 0;
  double mixed = 0; ///< of weight * (1 - weight): what the blur spreads
};

/// One row of a dot: pixels inside `inner` count in full, those outside `outer` not at all.
template <class Pixel>
WeightSums sumRow(Pixel const* pixels, std::pair<int, int> const& inner, std::pair<int, int> const& outer,
                  DotLevels const& levels, double y, int originX) {
  WeightSums sums;
  double const ground = levels.ground.value + levels.ground.slopeY * y;
  double const contrast = levels.contrast.value + levels.contrast.slopeY * y;
  auto const add = [&](int from, int to) {
    for (int column = from; column < to; ++column) {
      double const x = column - originX;
      double const shaded = levels.shade ? levels.shade->at(x, y) : 0.0;
      double const w = (pixels[column] - (ground + levels.ground.slopeX * x) - shaded) /
                       (contrast + levels.contrast.slopeX * x - shaded);
      sums.weight += w;
      sums.x += w * x;
      sums.mixed += w * (1.0 - w);
    }
  };
  if (inner.second > inner.first) {
    add(outer.first, inner.first);
    add(inner.second, outer.second);
    double const count = inner.second - inner.first;
    sums.weight += count;
    sums.x += count * (0.5 * (inner.first + inner.second - 1) - originX);
  } else {
    add(outer.first, outer.second);
  }
  sums.y = sums.weight * y;
  return sums;
}

WeightSums sumDot(cv::Mat const& image, EllipseRows const& inner, EllipseRows const& outer,
                  DotLevels const& levels) {
  WeightSums sums;
  for (int row = outer.top(); row < outer.bottom(); ++row) {
    WeightSums const added = withRow(image, row, [&](auto const* pixels) {
      return sumRow(pixels, inner.columns(row), outer.columns(row), levels, row - levels.origin.y,
                    levels.origin.x);
    });
    sums.weight += added.weight;
    sums.x += added.x;
    sums.y += added.y;
    sums.mixed += added.mixed;
  }
  return sums;
}

/// How a dot stands out against its ground around its rim.
struct RimLook {
  /// In the same way all around. The edge of the light or of something in front that crosses the dot leaves
  /// directions where it does not.
  bool isWhole = false;
  /// How far the ground departs from what it is taken for, beyond noise; of the dot's contrast.
  double unevenness = 0;
};

RimLook lookAtRim(cv::Mat const& image, cv::Point2d const& centre, Ellipse const& outline, double halfWidth,
                  DotLevels const& levels) {
  // In the middle of the rim's directions: a narrow band on a blurred edge sees neither dot nor ground.
  constexpr double leastInside = 0.6;
  constexpr double mostOutside = 0.4;
  // Of one direction, from the middle.
  constexpr double mostDarkening = 0.25;
  constexpr double mostBrightening = 0.5;
  constexpr double mostUnevenness = 0.2;
  constexpr double leastSignalToNoise = 3.0;
  if (levels.contrast.value < leastSignalToNoise * levels.coreNoise) {
    return {};
  }
  Ellipse const inner = outline.grownBy(-std::min(halfWidth, 0.7 * outline.shortAxis));
  Ellipse const outer = outline.grownBy(halfWidth);
  double const slack = 2.0 / levels.contrast.value; // one level of rounding and of noise
  std::array<double, rimDirections> inside = {};
  std::array<double, rimDirections> outside = {};
  for (std::size_t i = 0; i < rimDirections; ++i) {
    double const angle = 2.0 * CV_PI * static_cast<double>(i) / rimDirections;
    cv::Point2d const in = centre + inner.rim(angle);
    cv::Point2d const out = centre + outer.rim(angle);
    inside[i] = levels.relative(in, greyAround(image, in));
    outside[i] = levels.relative(out, greyAround(image, out));
  }
  std::sort(inside.begin(), inside.end());
  std::sort(outside.begin(), outside.end());
  double const insideMiddle = inside[rimDirections / 2];
  double const outsideMiddle = outside[rimDirections / 2];
  double const unevenness = std::max(outsideMiddle - outside.front(), outside.back() - outsideMiddle) - slack;
  return {insideMiddle >= leastInside - slack && outsideMiddle <= mostOutside + slack &&
              inside.front() >= insideMiddle - mostDarkening - slack &&
              inside.back() <= insideMiddle + mostBrightening + slack && unevenness <= mostUnevenness,
          unevenness};
}

/// The blur of a dot's edge from what it spreads: across an edge blurred by a Gaussian of deviation s,
/// weight * (1 - weight) integrates to s / sqrt(pi).
double blurOf(double mixed, Ellipse const& outline) {
  double const perimeter =
      2.0 * CV_PI *
      std::sqrt(0.5 * (outline.longAxis * outline.longAxis + outline.shortAxis * outline.shortAxis));
  return std::sqrt(CV_PI) * std::max(mixed, 0.0) / perimeter;
}

double areaNoiseOf(Ellipse const& outline, double halfWidth, DotLevels const& levels) {
  double const inner =
      std::max(outline.longAxis - halfWidth, 0.0) * std::max(outline.shortAxis - halfWidth, 0.0);
  double const band =
      CV_PI * ((outline.longAxis + halfWidth) * (outline.shortAxis + halfWidth) - inner); // pixels
  // Pixels of the band lie between ground and dot by half in the mean, and so take half of either's error.
  double const byLevels = 0.25 * band * band * (1 / levels.coreCount + 1 / levels.groundCount);
  constexpr double planeParameters = 3;
  double const freedom = std::max(levels.coreCount - planeParameters, 1.0);
  double const noise = levels.coreNoise * std::sqrt(levels.coreCount / freedom) / levels.contrast.value;
  return noise * std::sqrt(band + byLevels);
}

/// Room between an ellipse about `centre` and the image's border.
double roomAround(cv::Mat const& image, cv::Point2d const& centre, Ellipse const& outline) {
  double const x = std::min(centre.x, image.cols - 1 - centre.x) - outline.halfWidth();
  double const y = std::min(centre.y, image.rows - 1 - centre.y) - outline.halfHeight();
  return std::min(x, y);
}

/// What the ground around a dot is taken for.
enum class Ground {
  Plane, ///< of grey levels
  Shaded ///< by direction, about a plane
};

struct Settled {
  DotMeasurement dot;
  double halfWidth = 0; ///< of the band that was used
  RimLook rim;
};

/// Moves to the dot's centre; nothing where there is no dot to settle on.
std::optional<Settled> settle(cv::Mat const& image, cv::Point2d const& start, DotShape const& shape,
                              double halfWidth, Ground ground) {
  constexpr int maxRounds = 6;
  constexpr double settled = 0.05;
  constexpr double levelsHold = 0.5; // shift, pixels, after which dot and ground are measured anew
  Ellipse const outline(shape.outline);
  double const room = std::max(0.45 * (shape.reach - 1.0) * outline.shortAxis, leastHalfWidth);
  cv::Point2d centre = start;
  cv::Point2d levelsAt;
  std::optional<DotLevels> levels;
  for (int round = 0; round < maxRounds; ++round) {
    double const width = std::min({halfWidth, room, roomAround(image, centre, outline)});
    if (!(width >= leastHalfWidth)) {
      return std::nullopt;
    }
    if (!levels || cv::norm(centre - levelsAt) > levelsHold) {
      levels = measureLevels(image, centre, outline, shape.reach, width, shape.lightSlope);
      if (levels && ground == Ground::Shaded) {
        levels->shade = measureShade(image, centre, outline, shape.reach, width, *levels);
      }
      levelsAt = centre;
    }
    if (!levels || (ground == Ground::Shaded && !levels->shade)) {
      return std::nullopt;
    }
    WeightSums const sums = sumDot(image, EllipseRows(centre, outline.grownBy(-width)),
                                   EllipseRows(centre, outline.grownBy(width)), *levels);
    cv::Point2d const moved = cv::Point2d(levels->origin) + cv::Point2d(sums.x, sums.y) / sums.weight;
    if (!(sums.weight > 0) || !(cv::norm(moved - start) < outline.longAxis)) {
      return std::nullopt;
    }
    bool const isSettled = cv::norm(moved - centre) < settled;
    centre = moved;
    if (isSettled && cv::norm(centre - levelsAt) <= levelsHold) {
      return Settled{
          {centre, sums.weight, areaNoiseOf(outline, width, *levels), *levels, blurOf(sums.mixed, outline)},
          width,
          roomAround(image, centre, outline) >= leastHalfWidth
              ? lookAtRim(image, centre, outline, width, *levels)
              : RimLook()};
    }
  }
  return std::nullopt;
}

} // namespace

std::optional<DotMeasurement> measureDot(cv::Mat const& image, cv::Point2d const& start,
                                         DotShape const& shape, double halfWidth) {
  constexpr double mostEven = 0.1; // half of what a dot may have: more moves its centre by hundredths
  auto const plain = settle(image, start, shape, halfWidth, Ground::Plane);
  if (!plain) {
    return std::nullopt;
  }
  auto const asPlain = plain->rim.isWhole ? std::optional(plain->dot) : std::nullopt;
  if (asPlain && plain->rim.unevenness <= mostEven) {
    return asPlain;
  }
  auto const shaded = settle(image, start, shape, halfWidth, Ground::Shaded);
  if (!shaded || !shaded->rim.isWhole) {
    return asPlain;
  }
  DotMeasurement const& dot = shaded->dot;
  Ellipse const expected(shape.outline);
  Ellipse const outline =
      expected.scaledBy(std::sqrt(dot.area / (CV_PI * expected.longAxis * expected.shortAxis)));
  return isRimElliptic(image, dot.centre, outline, shaded->halfWidth, dot.levels) ? std::optional(dot)
                                                                                  : asPlain;
}

} // namespace vorn::mv
