// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_shade.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <utility>

#include "calib/target/dot_levels.hpp"
#include "calib/target/grey_pixels.hpp"

namespace vorn::mv {
namespace {

/// Turns from the x axis, in steps of one direction, from 0.
double directionOf(double x, double y) {
  double const turn = std::atan2(y, x) / (2.0 * CV_PI);
  return (turn < 0 ? turn + 1.0 : turn) * shadeDirections;
}

std::size_t nearestDirection(double x, double y) {
  return static_cast<std::size_t>(std::lround(directionOf(x, y))) % shadeDirections;
}

/// Calls `visit(x, y, grey)` for the pixels between two ellipses about `centre`, positions from there.
template <class Visit>
void forEachBetween(cv::Mat const& image, cv::Point2d const& centre, Ellipse const& inside,
                    Ellipse const& outside, Visit const& visit) {
  EllipseRows const inner(centre, inside);
  EllipseRows const outer(centre, outside);
  for (int row = std::max(outer.top(), 0); row < std::min(outer.bottom(), image.rows); ++row) {
    auto const [left, right] = outer.columns(row);
    std::pair<int, int> const hole = inner.columns(row);
    int const from = std::max(left, 0);
    int const to = std::min(right, image.cols);
    withRow(image, row, [&](auto const* pixels) {
      for (int column = from; column < to; ++column) {
        if (column < hole.first || column >= hole.second) {
          visit(column - centre.x, row - centre.y, static_cast<double>(pixels[column]));
        }
      }
    });
  }
}

/// Least squares of a line through grey levels over distances.
class RaySums {
public:
  void add(double r, double grey) {
    n_ += 1;
    r_ += r;
    rr_ += r * r;
    g_ += grey;
    rg_ += r * grey;
  }

  /// Nothing from too few pixels.
  std::optional<GroundShade::Ray> ray() const {
    constexpr double leastPixels = 4;
    double const spread = rr_ - r_ * r_ / n_;
    if (n_ < leastPixels || !(spread > 0)) {
      return std::nullopt;
    }
    return GroundShade::Ray{r_ / n_, g_ / n_, (rg_ - r_ * g_ / n_) / spread};
  }

private:
  double n_ = 0;
  double r_ = 0;
  double rr_ = 0;
  double g_ = 0;
  double rg_ = 0;
};

/// What is left of figures by direction without their part that turns up to twice: an ellipse near another
/// one is moved, grown and stretched, no more.
double mostOffEllipse(std::array<double, shadeDirections> const& figures) {
  std::array<double, shadeDirections> left = figures;
  for (int turns = 0; turns <= 2; ++turns) {
    double cosines = 0;
    double sines = 0;
    auto const angle = [turns](std::size_t i) {
      return 2.0 * CV_PI * turns * static_cast<double>(i) / shadeDirections;
    };
    double const scale = (turns == 0 ? 1.0 : 2.0) / shadeDirections;
    for (std::size_t i = 0; i < shadeDirections; ++i) {
      cosines += scale * figures[i] * std::cos(angle(i));
      sines += scale * figures[i] * std::sin(angle(i));
    }
    for (std::size_t i = 0; i < shadeDirections; ++i) {
      left[i] -= cosines * std::cos(angle(i)) + sines * std::sin(angle(i));
    }
  }
  return std::abs(*std::max_element(left.begin(), left.end(),
                                    [](double a, double b) { return std::abs(a) < std::abs(b); }));
}

} // namespace

double GroundShade::at(double x, double y) const {
  double const direction = directionOf(x, y);
  double const r = std::hypot(x, y);
  auto const before = static_cast<std::size_t>(direction);
  double const share = direction - static_cast<double>(before);
  return (1.0 - share) * rays_[before % shadeDirections].at(r) +
         share * rays_[(before + 1) % shadeDirections].at(r);
}

std::optional<GroundShade> measureShade(cv::Mat const& image, cv::Point2d const& centre,
                                        Ellipse const& outline, double reach, double halfWidth,
                                        DotLevels const& levels) {
  // A shadow that takes more of the light than this hides what is in it.
  constexpr double leastContrastShare = 0.4;
  constexpr double widthInAxes = 0.35;
  constexpr double leastWidth = 3; // pixels
  double const farthest = (reach - 1.0) * outline.shortAxis;
  double const width = std::min(farthest, halfWidth + std::max(leastWidth, widthInAxes * outline.shortAxis));
  std::array<RaySums, shadeDirections> sums;
  forEachBetween(image, centre, outline.grownBy(halfWidth), outline.grownBy(width),
                 [&](double x, double y, double grey) {
                   cv::Point2d const p = centre + cv::Point2d(x, y) - cv::Point2d(levels.origin);
                   sums[nearestDirection(x, y)].add(std::hypot(x, y), grey - levels.ground.at(p.x, p.y));
                 });
  GroundShade::Rays rays;
  double most = 0;
  double least = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < shadeDirections; ++i) {
    auto const ray = sums[i].ray();
    if (!ray) {
      return std::nullopt;
    }
    rays[i] = *ray;
    most = std::max(most, levels.contrast.value - ray->excess);
    least = std::min(least, levels.contrast.value - ray->excess);
  }
  return least >= leastContrastShare * most && least > 0 ? std::optional(GroundShade(rays)) : std::nullopt;
}

bool isRimElliptic(cv::Mat const& image, cv::Point2d const& centre, Ellipse const& outline, double halfWidth,
                   DotLevels const& levels) {
  constexpr double mostOffInAxes = 0.008;
  constexpr double leastOff = 0.1; // pixels
  std::array<double, shadeDirections> excess = {};
  std::array<double, shadeDirections> lengths = {};
  double const width = std::min(halfWidth, 0.9 * outline.shortAxis);
  forEachBetween(
      image, centre, outline.grownBy(-width), outline.grownBy(width), [&](double x, double y, double grey) {
        double const along = x * outline.cosine + y * outline.sine;
        double const across = y * outline.cosine - x * outline.sine;
        double const u = along / outline.longAxis;
        double const v = across / outline.shortAxis;
        double const q = std::hypot(u, v);
        double const distance = (q - 1.0) * q / std::hypot(u / outline.longAxis, v / outline.shortAxis);
        std::size_t const direction = nearestDirection(u, v);
        excess[direction] +=
            levels.relative(centre + cv::Point2d(x, y), grey) - std::clamp(0.5 - distance, 0.0, 1.0);
        lengths[direction] += 0.5 / width;
      });
  for (std::size_t i = 0; i < shadeDirections; ++i) {
    if (!(lengths[i] > 0)) {
      return false;
    }
    excess[i] /= lengths[i];
  }
  return mostOffEllipse(excess) <= std::max(leastOff, mostOffInAxes * outline.shortAxis);
}

} // namespace vorn::mv
