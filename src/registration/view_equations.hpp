// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>
#include <vector>

#include "registration/pair_equations.hpp"

namespace vorn::mv {

/// The normal equations of the small motions (rotation times a size about a pivot, translation) of all views
/// in the common frame. Distances between two views depend on the difference of their motions alone, so every
/// pair adds one block four times, as an edge adds to a graph's Laplacian.
class ViewEquations {
public:
  /// @param isFixed views that do not move, one in each group
  ViewEquations(std::vector<bool> const& isFixed, cv::Vec3d const& pivot, double size);

  /// Adds what a pair of views says.
  /// @param variance of a distance between the two
  void add(std::size_t source, std::size_t target, PairEquations const& equations,
           cv::Matx44d const& frameFromTarget, SurfaceMatcher const& surface, double variance);

  /// Splits motions into those that shapes hold and those that they do not. To be called when all pairs are
  /// there.
  void split();
  /// The step of each view that minimises the squares within the held motions.
  std::vector<cv::Vec6d> solve() const;
  /// How large a step is in standard deviations of the result, RMS over the held motions.
  double sizeInDeviations(std::vector<cv::Vec6d> const& steps) const;
  /// The covariance of a view's motion within the held ones, rotation times the size; that of a shift by the
  /// size where the scatter does not tell.
  std::vector<cv::Matx66d> covariances() const;
  /// The motions of a view that are not held, 6 x k with orthonormal columns.
  cv::Mat_<double> freeMotions(std::size_t view) const;

private:
  void addBlocks(Eigen::MatrixXd& to, std::size_t source, std::size_t target,
                 Eigen::MatrixXd const& block) const;
  Eigen::VectorXd stacked(std::vector<cv::Vec6d> const& steps) const;

  std::vector<int> first_; ///< row of a view's motion; below 0 when it is fixed
  cv::Vec3d pivot_;
  double size_;
  Eigen::MatrixXd normal_;
  Eigen::MatrixXd response_;
  Eigen::MatrixXd scatter_;
  Eigen::VectorXd gradient_;
  Eigen::VectorXd weights_; ///< a row
  double chance_ = 0.0;     ///< how much the noise of normals lets free motions look held
  double parts_ = 0.0;      ///< that `scatter_` is of
  Eigen::MatrixXd held_; ///< columns; the squares' curvature along them is that of a held motion of weight 1
  Eigen::VectorXd values_;
  Eigen::MatrixXd free_;
};

} // namespace vorn::mv
