// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/dot_centre.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

namespace vorn::mv {
namespace {

/// Least contrast of a dot, grey levels.
constexpr double leastContrast = 3.0;

/// Least half width of the band along the edge: a sharp edge is spread over a pixel.
constexpr double leastHalfWidth = 1.2;

/// Directions in which a dot must stand out against its ground.
constexpr std::size_t rimDirections = 16;

/// An ellipse by its half axes.
struct Ellipse {
  double longAxis;
  double shortAxis;
  double cosine; ///< of the long axis' direction
  double sine;

  explicit Ellipse(cv::Matx22d const& outline) {
    cv::Matx22d const q = outline * outline.t();
    double const middle = 0.5 * (q(0, 0) + q(1, 1));
    double const spread = std::hypot(0.5 * (q(0, 0) - q(1, 1)), q(0, 1));
    longAxis = std::sqrt(middle + spread);
    shortAxis = std::sqrt(std::max(middle - spread, 0.0));
    double const angle = 0.5 * std::atan2(2.0 * q(0, 1), q(0, 0) - q(1, 1));
    cosine = std::cos(angle);
    sine = std::sin(angle);
  }

  Ellipse grownBy(double margin) const {
    Ellipse grown = *this;
    grown.longAxis = std::max(longAxis + margin, 0.0);
    grown.shortAxis = std::max(shortAxis + margin, 0.0);
    return grown;
  }
  Ellipse scaledBy(double factor) const {
    Ellipse scaled = *this;
    scaled.longAxis *= factor;
    scaled.shortAxis *= factor;
    return scaled;
  }
  double halfWidth() const { return std::hypot(longAxis * cosine, shortAxis * sine); }
  double halfHeight() const { return std::hypot(longAxis * sine, shortAxis * cosine); }
  cv::Point2d rim(double angle) const {
    double const u = longAxis * std::cos(angle);
    double const v = shortAxis * std::sin(angle);
    return {u * cosine - v * sine, u * sine + v * cosine};
  }
};

/// The pixels inside an ellipse, row by row.
class EllipseRows {
public:
  EllipseRows(cv::Point2d const& centre, Ellipse const& e) : centre_(centre) {
    if (e.shortAxis < 0.3) {
      top_ = 0;
      bottom_ = 0;
      return;
    }
    double const l = 1.0 / (e.longAxis * e.longAxis);
    double const s = 1.0 / (e.shortAxis * e.shortAxis);
    xx_ = l * e.cosine * e.cosine + s * e.sine * e.sine;
    xy_ = (l - s) * e.cosine * e.sine;
    yy_ = l * e.sine * e.sine + s * e.cosine * e.cosine;
    double const height = e.halfHeight();
    top_ = static_cast<int>(std::ceil(centre.y - height));
    bottom_ = static_cast<int>(std::floor(centre.y + height)) + 1;
  }

  int top() const { return top_; }
  int bottom() const { return bottom_; }

  /// Columns [first, second) of a row; empty outside.
  std::pair<int, int> columns(int y) const {
    if (y < top_ || y >= bottom_) {
      return {0, 0};
    }
    double const dy = y - centre_.y;
    double const discriminant = xy_ * xy_ * dy * dy - xx_ * (yy_ * dy * dy - 1.0);
    if (discriminant < 0) {
      return {0, 0};
    }
    double const root = std::sqrt(discriminant);
    double const middle = centre_.x - xy_ * dy / xx_;
    return {static_cast<int>(std::ceil(middle - root / xx_)),
            static_cast<int>(std::floor(middle + root / xx_)) + 1};
  }

private:
  cv::Point2d centre_;
  double xx_ = 1;
  double xy_ = 0;
  double yy_ = 1;
  int top_;
  int bottom_;
};

/// Sums of pixel positions, counted from an origin, and grey levels, for a plane through them.
class PlaneSums {
public:
  explicit PlaneSums(cv::Point const& origin) : origin_(origin) {}

  void add(cv::Mat const& image, int row, int from, int to) {
    if (to <= from) {
      return;
    }
    std::uint8_t const* pixels = image.ptr<std::uint8_t>(row);
    // 32 bits hold the sums of rows up to 5000 pixels long.
    std::uint32_t grey = 0;
    std::uint32_t greyX = 0;
    std::uint32_t greySquared = 0;
    for (int x = from; x < to; ++x) {
      std::uint32_t const value = pixels[x];
      grey += value;
      greyX += value * static_cast<std::uint32_t>(x - from);
      greySquared += value * value;
    }
    auto const y = static_cast<double>(row - origin_.y);
    auto const start = static_cast<double>(from - origin_.x);
    auto const count = static_cast<double>(to - from);
    double const sumX = count * start + 0.5 * count * (count - 1);
    double const sumXX =
        count * start * start + start * count * (count - 1) + (count - 1) * count * (2 * count - 1) / 6;
    auto const sum = static_cast<double>(grey);
    n += count;
    x_ += sumX;
    y_ += count * y;
    xx_ += sumXX;
    xy_ += sumX * y;
    yy_ += count * y * y;
    g_ += sum;
    gx_ += static_cast<double>(greyX) + start * sum;
    gy_ += sum * y;
    gg_ += static_cast<double>(greySquared);
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
    for (int x = from; x < to; ++x) {
      pixels.emplace_back(cv::Point(x, y), image.at<std::uint8_t>(y, x));
    }
  });
  std::vector<double> deviations(pixels.size());
  auto const median = [](std::vector<double>& values) {
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
  };
  std::transform(pixels.begin(), pixels.end(), deviations.begin(), [](auto const& p) { return p.second; });
  GreyPlane plane;
  plane.value = median(deviations);
  for (int round = 0; round < 4; ++round) {
    auto const deviation = [&](std::pair<cv::Point, double> const& p) {
      return std::abs(p.second - plane.at(p.first.x - origin.x, p.first.y - origin.y));
    };
    std::transform(pixels.begin(), pixels.end(), deviations.begin(), deviation);
    constexpr double gaussianSigma = 1.4826;
    double const limit = std::max(2.5 * gaussianSigma * median(deviations), 1.0);
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

std::optional<DotLevels> measureLevels(cv::Mat const& image, cv::Point2d const& centre,
                                       Ellipse const& outline, double reach, double halfWidth) {
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
        coreNoise};
  }
  // Too few pixels for a slope: dot and ground are taken to be lit alike.
  double const ratio = contrast / std::max(ground.value, contrast);
  return DotLevels{origin, ground, {contrast, ground.slopeX * ratio, ground.slopeY * ratio}, coreNoise};
}

/// Sums over a dot, each pixel weighted by where it lies between ground and dot; positions from an origin.
struct WeightSums {
  double weight = 0;
  double x = 0;
  double y = 0;
  double mixed = 0; ///< of weight * (1 - weight): what the blur spreads
};

/// One row of a dot: pixels inside `inner` count in full, those outside `outer` not at all.
WeightSums sumRow(std::uint8_t const* pixels, std::pair<int, int> const& inner,
                  std::pair<int, int> const& outer, DotLevels const& levels, double y, int originX) {
  WeightSums sums;
  double const ground = levels.ground.value + levels.ground.slopeY * y;
  double const contrast = levels.contrast.value + levels.contrast.slopeY * y;
  auto const add = [&](int from, int to) {
    for (int column = from; column < to; ++column) {
      double const x = column - originX;
      double const w =
          (pixels[column] - (ground + levels.ground.slopeX * x)) / (contrast + levels.contrast.slopeX * x);
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
    WeightSums const added = sumRow(image.ptr<std::uint8_t>(row), inner.columns(row), outer.columns(row),
                                    levels, row - levels.origin.y, levels.origin.x);
    sums.weight += added.weight;
    sums.x += added.x;
    sums.y += added.y;
    sums.mixed += added.mixed;
  }
  return sums;
}

/// Whether the dot stands out against its ground in the same way all around its rim. The edge of the light or
/// of something in front that crosses the dot leaves directions where it does not.
bool isWhole(cv::Mat const& image, cv::Point2d const& centre, Ellipse const& outline, double halfWidth,
             DotLevels const& levels) {
  // In the middle of the rim's directions: a narrow band on a blurred edge sees neither dot nor ground.
  constexpr double leastInside = 0.6;
  constexpr double mostOutside = 0.4;
  // Of one direction, from the middle.
  constexpr double mostDarkening = 0.25;
  constexpr double mostBrightening = 0.5;
  constexpr double mostOutsideSpread = 0.2;
  constexpr double leastSignalToNoise = 3.0;
  if (levels.contrast.value < leastSignalToNoise * levels.coreNoise) {
    return false;
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
  return insideMiddle >= leastInside - slack && outsideMiddle <= mostOutside + slack &&
         inside.front() >= insideMiddle - mostDarkening - slack &&
         inside.back() <= insideMiddle + mostBrightening + slack &&
         outside.front() >= outsideMiddle - mostOutsideSpread - slack &&
         outside.back() <= outsideMiddle + mostOutsideSpread + slack;
}

/// The blur of a dot's edge from what it spreads: across an edge blurred by a Gaussian of deviation s,
/// weight * (1 - weight) integrates to s / sqrt(pi).
double blurOf(double mixed, Ellipse const& outline) {
  double const perimeter =
      2.0 * CV_PI *
      std::sqrt(0.5 * (outline.longAxis * outline.longAxis + outline.shortAxis * outline.shortAxis));
  return std::sqrt(CV_PI) * std::max(mixed, 0.0) / perimeter;
}

/// Room between an ellipse about `centre` and the image's border.
double roomAround(cv::Mat const& image, cv::Point2d const& centre, Ellipse const& outline) {
  double const x = std::min(centre.x, image.cols - 1 - centre.x) - outline.halfWidth();
  double const y = std::min(centre.y, image.rows - 1 - centre.y) - outline.halfHeight();
  return std::min(x, y);
}

} // namespace

double greyAround(cv::Mat const& image, cv::Point2d const& p) {
  int const x = std::clamp(static_cast<int>(std::floor(p.x)), 0, image.cols - 2);
  int const y = std::clamp(static_cast<int>(std::floor(p.y)), 0, image.rows - 2);
  std::uint8_t const* upper = image.ptr<std::uint8_t>(y) + x;
  std::uint8_t const* lower = image.ptr<std::uint8_t>(y + 1) + x;
  return 0.25 * (upper[0] + upper[1] + lower[0] + lower[1]);
}

std::optional<DotMeasurement> measureDot(cv::Mat const& image, cv::Point2d const& start,
                                         DotShape const& shape, double halfWidth) {
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
      levels = measureLevels(image, centre, outline, shape.reach, width);
      levelsAt = centre;
    }
    if (!levels) {
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
      if (roomAround(image, centre, outline) < leastHalfWidth ||
          !isWhole(image, centre, outline, width, *levels)) {
        return std::nullopt;
      }
      return DotMeasurement{centre, sums.weight, *levels, blurOf(sums.mixed, outline)};
    }
  }
  return std::nullopt;
}

} // namespace vorn::mv
