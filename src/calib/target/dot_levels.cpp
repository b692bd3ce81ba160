// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_levels.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "calib/target/grey_pixels.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

/// Least contrast of a dot, grey levels.
constexpr double leastContrast = 3.0;

/// Sums of a row's grey levels, of these times the pixels' places from the first one, and of their squares.
struct RowSums {
  double grey = 0;
  double greyX = 0;
  double greySquared = 0;
};

template <class Pixel>
RowSums sumRow(Pixel const* pixels, int from, int to) {
  // 32 bits hold the sums of 8-bit rows up to 5000 pixels long.
  using Sum = std::conditional_t<std::is_same_v<Pixel, std::uint8_t>, std::uint32_t, double>;
  Sum grey = 0;
  Sum greyX = 0;
  Sum greySquared = 0;
  for (int x = from; x < to; ++x) {
    Sum const value = pixels[x];
    grey += value;
    greyX += value * static_cast<Sum>(x - from);
    greySquared += value * value;
  }
  return {static_cast<double>(grey), static_cast<double>(greyX), static_cast<double>(greySquared)};
}

/// Sums of pixel positions, counted from an origin, and grey levels, for a plane through them.
class PlaneSums {
public:
  explicit PlaneSums(cv::Point const& origin) : origin_(origin) {}

  void add(cv::Mat const& image, int row, int from, int to) {
    if (to <= from) {
      return;
    }
    RowSums const sums = withRow(image, row, [&](auto const* pixels) { return sumRow(pixels, from, to); });
    auto const y = static_cast<double>(row - origin_.y);
    auto const start = static_cast<double>(from - origin_.x);
    auto const count = static_cast<double>(to - from);
    double const sumX = count * start + 0.5 * count * (count - 1);
    double const sumXX =
        count * start * start + start * count * (count - 1) + (count - 1) * count * (2 * count - 1) / 6;
    double const sum = sums.grey;
    n += count;
    x_ += sumX;
    y_ += count * y;
    xx_ += sumXX;
    xy_ += sumX * y;
    yy_ += count * y * y;
    g_ += sum;
    gx_ += sums.greyX + start * sum;
    gy_ += sum * y;
    gg_ += sums.greySquared;
  }

  void addPixel(cv::Point const& p, double grey) {
    double const x = p.x - origin_.x;
    double const y = p.y - origin_.y;
    n += 1;
    x_ += x;
    y_ += y;
    xx_ += x * x;
    xy_ += x * y;
    yy_ += y * y;
    g_ += grey;
    gx_ += grey * x;
    gy_ += grey * y;
    gg_ += grey * grey;
  }

  double mean() const { return g_ / n; }

  /// The least-squares plane and its residual's standard deviation.
  std::pair<GreyPlane, double> plane() const {
    double const mx = x_ / n;
    double const my = y_ / n;
    double const mg = g_ / n;
    double const xx = xx_ - n * mx * mx;
    double const xy = xy_ - n * mx * my;
    double const yy = yy_ - n * my * my;
    double const gx = gx_ - n * mg * mx;
    double const gy = gy_ - n * mg * my;
    double const det = xx * yy - xy * xy;
    GreyPlane plane;
    if (det > 1e-6 * xx * yy) {
      plane.slopeX = (gx * yy - gy * xy) / det;
      plane.slopeY = (gy * xx - gx * xy) / det;
    }
    plane.value = mg - plane.slopeX * mx - plane.slopeY * my;
    double const rest = gg_ - n * mg * mg - plane.slopeX * gx - plane.slopeY * gy;
    return {plane, std::sqrt(std::max(rest, 0.0) / n)};
  }

  double n = 0;

private:
  cv::Point origin_;
  double x_ = 0;
  double y_ = 0;
  double xx_ = 0;
  double xy_ = 0;
  double yy_ = 0;
  double g_ = 0;
  double gx_ = 0;
  double gy_ = 0;
  double gg_ = 0;
};

/// The ground around a dot: the pixels between two ellipses, kept inside the image.
class GroundRing {
public:
  GroundRing(cv::Mat const& image, cv::Point2d const& centre, Ellipse const& inner, Ellipse const& outer)
      : image_(image), inner_(centre, inner), outer_(centre, outer), rowStep_(outer.shortAxis > 16 ? 2 : 1) {}

  /// Calls `visit(row, from, to)` for every run of pixels.
  template <class Visit>
  void forEachRun(Visit const& visit) const {
    int const bottom = std::min(outer_.bottom(), image_.rows);
    for (int y = std::max(outer_.top(), 0); y < bottom; y += rowStep_) {
      auto const [left, right] = outer_.columns(y);
      auto const [holeLeft, holeRight] = inner_.columns(y);
      int const from = std::max(left, 0);
      int const to = std::min(right, image_.cols);
      if (holeRight > holeLeft) {
        visit(y, from, std::min(holeLeft, to));
        visit(y, std::max(holeRight, from), to);
      } else {
        visit(y, from, to);
      }
    }
  }

private:
  cv::Mat const& image_;
  EllipseRows inner_;
  EllipseRows outer_;
  int rowStep_;
};

/// The plane that most of the ring's pixels lie on, whatever else reaches into it: a shadow's edge, the
/// border of the target, clutter.
GreyPlane robustPlane(cv::Mat const& image, GroundRing const& ring, cv::Point const& origin) {
  std::vector<std::pair<cv::Point, double>> pixels;
  ring.forEachRun([&](int y, int from, int to) {
    withRow(image, y, [&](auto const* row) {
      for (int x = from; x < to; ++x) {
        pixels.emplace_back(cv::Point(x, y), row[x]);
      }
    });
  });
  std::vector<double> deviations(pixels.size());
  std::transform(pixels.begin(), pixels.end(), deviations.begin(), [](auto const& p) { return p.second; });
  GreyPlane plane;
  plane.value = medianAmong(deviations);
  for (int round = 0; round < 4; ++round) {
    auto const deviation = [&](std::pair<cv::Point, double> const& p) {
      return std::abs(p.second - plane.at(p.first.x - origin.x, p.first.y - origin.y));
    };
    std::transform(pixels.begin(), pixels.end(), deviations.begin(), deviation);
    constexpr double gaussianSigma = 1.4826;
    double const limit = std::max(2.5 * gaussianSigma * medianAmong(deviations), 1.0);
    PlaneSums sums(origin);
    for (auto const& pixel : pixels) {
      if (deviation(pixel) <= limit) {
        sums.addPixel(pixel.first, pixel.second);
      }
    }
    plane = sums.plane().first;
  }
  return plane;
}

/// The pixels certainly inside a dot, or the nine in its middle where it is too small to have any.
PlaneSums sumCore(cv::Mat const& image, EllipseRows const& inner, cv::Point const& origin) {
  constexpr double leastPixels = 4;
  PlaneSums core(origin);
  for (int y = inner.top(); y < inner.bottom(); ++y) {
    auto const [left, right] = inner.columns(y);
    core.add(image, y, left, right);
  }
  if (core.n < leastPixels) {
    core = PlaneSums(origin);
    for (int y = -1; y <= 1; ++y) {
      core.add(image, origin.y + y, origin.x - 1, origin.x + 2);
    }
  }
  return core;
}

double sumOfTwo(cv::Mat const& image, int y, int x) {
  return withRow(image, y, [x](auto const* row) {
    return static_cast<double>(row[x]) + static_cast<double>(row[x + 1]);
  });
}

} // namespace

double greyAround(cv::Mat const& image, cv::Point2d const& p) {
  int const x = std::clamp(static_cast<int>(std::floor(p.x)), 0, image.cols - 2);
  int const y = std::clamp(static_cast<int>(std::floor(p.y)), 0, image.rows - 2);
  return 0.25 * (sumOfTwo(image, y, x) + sumOfTwo(image, y + 1, x));
}

std::optional<DotLevels> measureLevels(cv::Mat const& image, cv::Point2d const& centre,
                                       Ellipse const& outline, double reach, double halfWidth,
                                       std::optional<cv::Vec2d> const& lightSlope) {
  cv::Point const origin(cvRound(centre.x), cvRound(centre.y));
  constexpr double leastPixels = 12;
  constexpr double leastPixelsForSlope = 80;
  GroundRing const ring(image, centre, outline.grownBy(halfWidth), outline.scaledBy(reach));
  PlaneSums ringSums(origin);
  ring.forEachRun([&](int y, int from, int to) { ringSums.add(image, y, from, to); });
  if (ringSums.n < leastPixels) {
    return std::nullopt;
  }
  PlaneSums const core = sumCore(image, EllipseRows(centre, outline.grownBy(-halfWidth)), origin);
  auto const [corePlane, coreNoise] = core.plane();
  auto [ground, ringNoise] = ringSums.plane();
  double const coreMean = core.mean();
  if (ringNoise > 1.5 * coreNoise + 0.02 * std::abs(coreMean - ground.value) + 0.5) {
    ground = robustPlane(image, ring, origin);
  }
  double const contrast = coreMean - ground.value;
  if (!(contrast >= leastContrast)) {
    return std::nullopt;
  }
  if (core.n >= leastPixelsForSlope) {
    return DotLevels{
        origin,
        ground,
        {corePlane.value - ground.value, corePlane.slopeX - ground.slopeX, corePlane.slopeY - ground.slopeY},
        coreNoise,
        core.n,
        ringSums.n};
  }
  if (lightSlope) {
    cv::Vec2d const slope = *lightSlope * contrast;
    return DotLevels{origin, ground, {contrast, slope[0], slope[1]}, coreNoise, core.n, ringSums.n};
  }
  // Too few pixels for a slope: dot and ground are taken to be lit alike.
  double const ratio = contrast / std::max(ground.value, contrast);
  return DotLevels{origin,    ground, {contrast, ground.slopeX * ratio, ground.slopeY * ratio},
                   coreNoise, core.n, ringSums.n};
}

} // namespace vorn::mv
