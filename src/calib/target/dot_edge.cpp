// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_edge.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core.hpp>
#include <utility>

#include "calib/target/dot_outline.hpp"
#include "calib/target/grey_pixels.hpp"

namespace vorn::mv {
namespace {

/// An edge blurred by a Gaussian of deviation 1, tabulated: evaluating it is what a fit spends its time on.
class EdgeProfile {
public:
  /// Distances beyond which there is no edge left to see.
  static constexpr double reach = 2.5;

  struct Sample {
    float grey;  ///< 1 inside, 0 outside
    float slope; ///< downwards
  };

  static EdgeProfile const& instance() {
    static EdgeProfile const profile;
    return profile;
  }

  /// At a distance from the edge, positive outside; at most `reach` either way.
  Sample at(double distance) const {
    return samples_[static_cast<std::size_t>((distance + reach) * stepsPerUnit + 0.5)];
  }

private:
  static constexpr int stepsPerUnit = 512;
  static constexpr int count = static_cast<int>(2 * reach * stepsPerUnit) + 1;

  EdgeProfile() {
    for (int i = 0; i < count; ++i) {
      double const x = static_cast<double>(i) / stepsPerUnit - reach;
      samples_[static_cast<std::size_t>(i)] = {
          static_cast<float>(0.5 * std::erfc(x / std::sqrt(2.0))),
          static_cast<float>(std::exp(-0.5 * x * x) / std::sqrt(2.0 * CV_PI))};
    }
  }

  std::array<Sample, count> samples_;
};

/// A move of the centre and growth of the outline, pixels.
struct EdgeStep {
  cv::Point2d move;
  double growth = 0;
};

/// Normal equations of one step of the fit.
class EdgeEquations {
public:
  EdgeEquations(cv::Mat const& image, DotLevels const& levels) : image_(image), levels_(levels) {}

  /// Adds the pixels within `EdgeProfile::reach` blurs of the outline.
  void add(cv::Point2d const& centre, Ellipse const& outline, double blur) {
    double const width = EdgeProfile::reach * blur;
    EllipseRows const inner(centre, outline.grownBy(-width));
    EllipseRows const outer(centre, outline.grownBy(width));
    int const bottom = std::min(outer.bottom(), image_.rows);
    for (int row = std::max(outer.top(), 0); row < bottom; ++row) {
      auto const [left, right] = outer.columns(row);
      auto const [holeLeft, holeRight] = inner.columns(row);
      int const from = std::max(left, 0);
      int const to = std::min(right, image_.cols);
      if (holeRight > holeLeft) {
        addRun(row, from, std::min(holeLeft, to), centre, outline, blur);
        addRun(row, std::max(holeRight, from), to, centre, outline, blur);
      } else {
        addRun(row, from, to, centre, outline, blur);
      }
    }
  }

  std::optional<EdgeStep> solve() const {
    cv::Matx33d const normal(xx_, xy_, x_, xy_, yy_, y_, x_, y_, n_);
    bool isSolved = false;
    cv::Matx33d const inverse = normal.inv(cv::DECOMP_CHOLESKY, &isSolved);
    if (!isSolved) {
      return std::nullopt;
    }
    cv::Vec3d const step = inverse * cv::Vec3d(rx_, ry_, r_);
    return EdgeStep{{step[0], step[1]}, step[2]};
  }

private:
  void addRun(int row, int from, int to, cv::Point2d const& centre, Ellipse const& outline, double blur) {
    withRow(image_, row, [&](auto const* pixels) { addRun(pixels, row, from, to, centre, outline, blur); });
  }

  template <class Pixel>
  void addRun(Pixel const* pixels, int row, int from, int to, cv::Point2d const& centre,
              Ellipse const& outline, double blur) {
    EdgeProfile const& profile = EdgeProfile::instance();
    double const l = 1.0 / (outline.longAxis * outline.longAxis);
    double const s = 1.0 / (outline.shortAxis * outline.shortAxis);
    double const xx = l * outline.cosine * outline.cosine + s * outline.sine * outline.sine;
    double const xy = (l - s) * outline.cosine * outline.sine;
    double const yy = l * outline.sine * outline.sine + s * outline.cosine * outline.cosine;
    double const y = row - centre.y;
    for (int column = from; column < to; ++column) {
      // The ellipse is where q = 1; its distance to first order is (q - 1) over q's gradient.
      double const x = column - centre.x;
      double const gx = xx * x + xy * y;
      double const gy = xy * x + yy * y;
      double const q = std::sqrt(x * gx + y * gy);
      double const steepness = std::sqrt(gx * gx + gy * gy);
      double const distance = (q - 1.0) * q / (steepness * blur);
      if (!(std::abs(distance) <= EdgeProfile::reach)) {
        continue;
      }
      EdgeProfile::Sample const edge = profile.at(distance);
      double const slope = edge.slope / blur;
      double const residual =
          levels_.relative(cv::Point2d(column, row), pixels[column]) - static_cast<double>(edge.grey);
      double const byX = slope * gx / steepness;
      double const byY = slope * gy / steepness;
      xx_ += byX * byX;
      xy_ += byX * byY;
      yy_ += byY * byY;
      x_ += byX * slope;
      y_ += byY * slope;
      n_ += slope * slope;
      rx_ += byX * residual;
      ry_ += byY * residual;
      r_ += slope * residual;
    }
  }

  cv::Mat const& image_;
  DotLevels const& levels_;
  double xx_ = 0;
  double xy_ = 0;
  double yy_ = 0;
  double x_ = 0;
  double y_ = 0;
  double n_ = 0;
  double rx_ = 0;
  double ry_ = 0;
  double r_ = 0;
};

} // namespace

std::optional<cv::Point2d> fitEdge(cv::Mat const& image, DotMeasurement const& dot,
                                   cv::Matx22d const& outline, double blur) {
  constexpr int maxRounds = 4;
  constexpr double settled = 0.02; // what is left after it is a thousandth
  Ellipse shape(outline);
  shape = shape.scaledBy(std::sqrt(dot.area / (CV_PI * shape.longAxis * shape.shortAxis)));
  cv::Point2d centre = dot.centre;
  for (int round = 0; round < maxRounds; ++round) {
    EdgeEquations equations(image, dot.levels);
    equations.add(centre, shape, blur);
    auto const step = equations.solve();
    if (!step) {
      return std::nullopt;
    }
    centre += step->move;
    shape = shape.grownBy(step->growth);
    if (!(cv::norm(centre - dot.centre) < blur) || !(shape.shortAxis > 0.5)) {
      return std::nullopt;
    }
    if (cv::norm(step->move) < settled) {
      return centre;
    }
  }
  return std::nullopt;
}

} // namespace vorn::mv
