// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/shape_choice.hpp"

#include <algorithm>
#include <cmath>

#include <Eigen/Cholesky>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "calib/adjust/bundle_solver.hpp"

namespace vorn::mv {

namespace {

using Level = ShapeBasis::Level;

double freedomOf(Bundle const& bundle, Squares const& squares) {
  return squares.totalCount() - bundle.commonCount() - 6.0 * static_cast<double>(bundle.views.size());
}

/// Whether dots are off in all views alike: the squares that a shift of every dot on the target would take
/// away, for poses and devices as they are.
bool areDotsOff(Bundle const& bundle) {
  Bundle byDot = bundle;
  byDot.extendShape(Level::Dots);
  Transfers const transfers = transfersOf(byDot);
  NormalEquations const normal = normalEquationsOf(byDot, transfers);
  int const first = byDot.deviceCount() + byDot.transformCount();
  double gain = 0;
  int count = 0;
  for (int dot = 0; dot < static_cast<int>(byDot.target.size()); ++dot) {
    Eigen::Matrix2d const weight = normal.common.block<2, 2>(first + 3 * dot, first + 3 * dot);
    Eigen::Vector2d const slope = normal.commonSlope.segment<2>(first + 3 * dot);
    gain += slope.dot(weight.llt().solve(slope));
    count += 2;
  }
  Squares const squares = squaresOf(bundle, transfers);
  double const rest = std::max(squares.total() - gain, 0.0);
  return isSignificant(gain, count, rest, freedomOf(bundle, squares) - count);
}

/// The best quadratic surface of the dots' heights: 1, x, y, x^2, xy, y^2, by coordinates from -1 to 1.
cv::Matx61d quadraticOf(std::vector<cv::Vec3d> const& places, std::vector<cv::Point3d> const& deviations) {
  cv::Mat_<double> design(static_cast<int>(places.size()), 6);
  cv::Mat_<double> height(static_cast<int>(places.size()), 1);
  for (int i = 0; i < design.rows; ++i) {
    cv::Vec3d const& p = places[static_cast<std::size_t>(i)];
    cv::Matx16d const row(1, p[0], p[1], p[0] * p[0], p[0] * p[1], p[1] * p[1]);
    cv::Mat(row).copyTo(design.row(i));
    height(i) = deviations[static_cast<std::size_t>(i)].z;
  }
  cv::Mat solution;
  cv::solve(design, height, solution, cv::DECOMP_SVD);
  return cv::Matx61d(solution.ptr<double>());
}

/// What is said where views show signs of more than a shape and do not determine it.
std::string undetermined(Level taken) {
  std::string const what = taken == Level::Flat        ? "flat"
                           : taken == Level::Quadratic ? "evenly bent"
                                                       : "smooth";
  return "The target looks uneven, and so few or so like views do not determine how: it is "
         "taken to be " +
         what + ". Show it in more poses, tilted to all sides and turned in its plane";
}

} // namespace

bool isSignificant(double gain, double parameters, double squares, double freedom) {
  if (!(freedom > 0) || !(gain > 0)) {
    return false;
  }
  double const ratio = (gain / parameters) / (squares / freedom);
  // Paulson's approximation (1942): the cube root of F is nearly normal.
  constexpr double oneInAThousand = 3.0902;
  double const a = 2 / (9 * parameters);
  double const b = 2 / (9 * freedom);
  double const root = std::cbrt(ratio);
  return ((1 - b) * root - (1 - a)) / std::sqrt(b * root * root + a) > oneInAThousand;
}

std::string chooseShape(Bundle& bundle, AdjustmentSettings const& settings, Progress const& progress) {
  auto const take = [&](Level level) {
    bundle.extendShape(level);
    solveBundle(bundle, settings.maxIterations, progress);
  };
  switch (settings.shape) {
  case AdjustmentSettings::Shape::Flat:
    return {};
  case AdjustmentSettings::Shape::Smooth:
    take(Level::Smooth);
    return {};
  case AdjustmentSettings::Shape::Dots:
    take(Level::Dots);
    return {};
  case AdjustmentSettings::Shape::Auto:
  case AdjustmentSettings::Shape::Bent:
    break;
  }
  for (Level const level : {Level::Quadratic, Level::Smooth, Level::Dots}) {
    Squares const squares = squaresOf(bundle, transfersOf(bundle));
    // Dots that are printed off differ from their neighbours too, so residuals exceed that noise for other
    // reasons.
    constexpr double mostS0 = 2;
    bool const isScatter = squares.total() < mostS0 * mostS0 * freedomOf(bundle, squares);
    bool const isBeyond = settings.shape == AdjustmentSettings::Shape::Bent && level != Level::Quadratic;
    if (isBeyond || (level == Level::Dots && !(isScatter && areDotsOff(bundle)))) {
      return {};
    }
    double const more = ShapeBasis(level, bundle.target).parameterCount() - bundle.shape.parameterCount();
    double const gain = gainOf(bundle, level);
    double const rest = std::max(squares.total() - gain, 0.0);
    if (isSignificant(gain, more, rest, freedomOf(bundle, squares) - more)) {
      Bundle const simpler = bundle;
      try {
        take(level);
      } catch (Cancelled const&) {
        throw;
      } catch (Exception const&) {
        bundle = simpler;
        return undetermined(bundle.shape.level());
      }
    }
  }
  return {};
}

TargetShape targetShapeOf(Bundle const& bundle, double significance, double flatS0) {
  TargetShape shape;
  shape.objPnts = bundle.target;
  shape.flatS0 = flatS0;
  shape.significance = significance;
  Level const level = bundle.shape.level();
  shape.kind = level == Level::Flat   ? TargetShape::Kind::Flat
               : level == Level::Dots ? TargetShape::Kind::Dots
                                      : TargetShape::Kind::Smooth;
  shape.degree = level == Level::Quadratic ? 2 : level == Level::Smooth ? 6 : 0;
  double squares = 0;
  for (int dot = 0; dot < static_cast<int>(bundle.target.size()); ++dot) {
    cv::Vec3d const deviation = bundle.shape.deviation(dot, bundle.shapeParameters);
    shape.deviations.emplace_back(deviation);
    squares += deviation.dot(deviation);
  }
  shape.rms = std::sqrt(squares / static_cast<double>(bundle.target.size()));
  if (level == Level::Flat) {
    return shape;
  }
  cv::Rect2f const box = [&] {
    cv::Point2f low = bundle.target[0];
    cv::Point2f high = low;
    for (cv::Point2f const& p : bundle.target) {
      low = {std::min(low.x, p.x), std::min(low.y, p.y)};
      high = {std::max(high.x, p.x), std::max(high.y, p.y)};
    }
    return cv::Rect2f(low, high);
  }();
  std::vector<cv::Vec3d> places;
  for (cv::Point2f const& p : bundle.target) {
    places.emplace_back(2.0 * (p.x - box.x) / box.width - 1, 2.0 * (p.y - box.y) / box.height - 1, 0);
  }
  cv::Matx61d const surface = quadraticOf(places, shape.deviations);
  shape.sagX = surface(3);
  shape.twist = surface(4);
  shape.sagY = surface(5);
  return shape;
}

} // namespace vorn::mv
