// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <Eigen/Core>
#include <opencv2/core/matx.hpp>
#include <opencv2/core/types.hpp>

namespace vorn::mv {

/// The ways in which a target's dots may leave their places; each moves dots in proportion to its parameter.
class ShapeBasis {
public:
  /// How many ways, from none to three for every dot.
  enum class Level { Flat, Quadratic, Smooth, Dots };

  ShapeBasis() = default;
  /// @param dots places on the perfect target
  ShapeBasis(Level level, std::vector<cv::Point2f> const& dots);

  Level level() const { return level_; }
  int parameterCount() const { return parameterCount_; }
  /// Whether every dot has parameters of its own, three each in their order, x, y, z.
  bool isByDot() const { return level_ == Level::Dots; }
  /// Of a basis that is not by dot: 3 x parameterCount, what the parameters move a dot by.
  Eigen::Ref<Eigen::MatrixXd const> ofDot(int dot) const { return ways_.middleRows(3 * dot, 3); }
  /// How far dots are from their places.
  cv::Vec3d deviation(int dot, Eigen::VectorXd const& parameters) const;
  /// The inverse variance that each parameter has before any view: what keeps dots by themselves from taking
  /// up poses and scale. 0 for polynomials, which cannot.
  double priorWeight(int parameter) const;

private:
  Level level_ = Level::Flat;
  int parameterCount_ = 0;
  double pitch_ = 1;
  Eigen::MatrixXd ways_;
};

/// The distance of the nearest two dots, as most of them have it.
double medianPitch(std::vector<cv::Point2f> const& dots);

} // namespace vorn::mv
