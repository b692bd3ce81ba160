// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/view_equations.hpp"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

namespace vorn::mv {

namespace {

/// Squared: a surface that leaves itself by 0.3 % of a motion's length holds it no better than a plane would.
constexpr double leastHold = 1e-5;
/// The noise of the normals cancels between the clouds but for its share by chance, which is given this room.
constexpr double chanceRoom = 4.0;
/// A view takes part in a free motion of several from this share of it on.
constexpr double leastShare = 0.05;

using Block = Eigen::Matrix<double, 6, 6, Eigen::RowMajor>;

Block blockOf(cv::Matx66d const& matrix) {
  return Eigen::Map<Block const>(matrix.val);
}

/// From small motions in the common frame to those in a view's frame about the middle of its surface.
Block motionInView(cv::Matx44d const& frameFromView, SurfaceMatcher const& surface, cv::Vec3d const& pivot,
                   double size) {
  cv::Matx33d const turned = frameFromView.get_minor<3, 3>(0, 0).t();
  cv::Vec4d const middle =
      frameFromView * cv::Vec4d(surface.middle()[0], surface.middle()[1], surface.middle()[2], 1.0);
  cv::Vec3d const arm = (cv::Vec3d(middle[0], middle[1], middle[2]) - pivot) * (1.0 / size);
  cv::Matx33d const cross(0.0, -arm[2], arm[1], arm[2], 0.0, -arm[0], -arm[1], arm[0], 0.0);
  cv::Matx33d const shift = turned * cross * -1.0;
  Block motion = Block::Zero();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      motion(i, j) = turned(i, j) * surface.size() / size;
      motion(i + 3, j) = shift(i, j);
      motion(i + 3, j + 3) = turned(i, j);
    }
  }
  return motion;
}

} // namespace

ViewEquations::ViewEquations(std::vector<bool> const& isFixed, cv::Vec3d const& pivot, double size)
    : pivot_(pivot), size_(size) {
  int rows = 0;
  for (bool const fixed : isFixed) {
    first_.push_back(fixed ? -1 : rows);
    rows += fixed ? 0 : 6;
  }
  normal_ = Eigen::MatrixXd::Zero(rows, rows);
  response_ = normal_;
  scatter_ = normal_;
  gradient_ = Eigen::VectorXd::Zero(rows);
  weights_ = gradient_;
}

void ViewEquations::addBlocks(Eigen::MatrixXd& to, std::size_t source, std::size_t target,
                              Eigen::MatrixXd const& block) const {
  int const s = first_[source];
  int const t = first_[target];
  if (s >= 0) {
    to.block<6, 6>(s, s) += block;
  }
  if (t >= 0) {
    to.block<6, 6>(t, t) += block;
  }
  if (s >= 0 && t >= 0) {
    to.block<6, 6>(s, t) -= block;
    to.block<6, 6>(t, s) -= block;
  }
}

void ViewEquations::add(std::size_t source, std::size_t target, PairEquations const& equations,
                        cv::Matx44d const& frameFromTarget, SurfaceMatcher const& surface, double variance) {
  Block const motion = motionInView(frameFromTarget, surface, pivot_, size_);
  auto const inFrame = [&](cv::Matx66d const& matrix, double divisor) -> Eigen::MatrixXd {
    return motion.transpose() * blockOf(matrix) * motion / divisor;
  };
  addBlocks(normal_, source, target, inFrame(equations.normal, variance));
  addBlocks(response_, source, target, inFrame(equations.response, variance));
  addBlocks(scatter_, source, target, inFrame(equations.scatter, variance * variance));
  Eigen::Matrix<double, 6, 1> const gradient =
      motion.transpose() * Eigen::Map<Eigen::Matrix<double, 6, 1> const>(equations.gradient.val) / variance;
  double const weight = equations.weights / variance;
  for (auto const& [view, sign] : {std::pair{source, 1.0}, std::pair{target, -1.0}}) {
    if (int const at = first_[view]; at >= 0) {
      gradient_.segment<6>(at) += sign * gradient;
      weights_.segment<6>(at).array() += weight;
    }
  }
  parts_ += static_cast<double>(equations.parts);
  chance_ = std::max(chance_, chanceRoom * equations.normalNoise / equations.weights /
                                  std::sqrt(std::max(1.0, static_cast<double>(equations.patches))));
}

void ViewEquations::split() {
  Eigen::Index const rows = normal_.rows();
  if (rows == 0) {
    return;
  }
  // As if every view had the weight 1; a row of views bends more easily the longer it is.
  Eigen::VectorXd const scale = weights_.cwiseSqrt().cwiseInverse();
  Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> const solver(scale.asDiagonal() * normal_ *
                                                              scale.asDiagonal());
  double const views = static_cast<double>(rows) / 6.0;
  double const limit = std::max(leastHold, chance_) / std::max(1.0, views * views);
  Eigen::Index free = 0;
  while (free < rows && solver.eigenvalues()[free] < limit) {
    ++free;
  }
  free_ = scale.asDiagonal() * solver.eigenvectors().leftCols(free);
  held_ = scale.asDiagonal() * solver.eigenvectors().rightCols(rows - free);
  values_ = solver.eigenvalues().tail(rows - free);
}

std::vector<cv::Vec6d> ViewEquations::solve() const {
  std::vector<cv::Vec6d> steps(first_.size());
  if (held_.cols() == 0) {
    return steps;
  }
  Eigen::VectorXd const motion = held_ * values_.cwiseInverse().asDiagonal() * held_.transpose() * -gradient_;
  for (std::size_t view = 0; view < first_.size(); ++view) {
    for (int i = 0; i < 6 && first_[view] >= 0; ++i) {
      steps[view][i] = motion[first_[view] + i];
    }
  }
  return steps;
}

Eigen::VectorXd ViewEquations::stacked(std::vector<cv::Vec6d> const& steps) const {
  Eigen::VectorXd motion = Eigen::VectorXd::Zero(gradient_.size());
  for (std::size_t view = 0; view < first_.size(); ++view) {
    for (int i = 0; i < 6 && first_[view] >= 0; ++i) {
      motion[first_[view] + i] = steps[view][i];
    }
  }
  return motion;
}

double ViewEquations::sizeInDeviations(std::vector<cv::Vec6d> const& steps) const {
  Eigen::VectorXd const motion = stacked(steps);
  double const square = motion.dot(normal_ * motion);
  return std::sqrt(std::max(0.0, square) / std::max<double>(1.0, static_cast<double>(held_.cols())));
}

std::vector<cv::Matx66d> ViewEquations::covariances() const {
  std::vector<cv::Matx66d> covariances(first_.size(), cv::Matx66d::zeros());
  double const spare = parts_ - static_cast<double>(held_.cols());
  if (held_.cols() == 0) {
    return covariances;
  }
  if (spare <= 0.0) {
    for (std::size_t view = 0; view < first_.size(); ++view) {
      covariances[view] = cv::Matx66d::eye() * (first_[view] >= 0 ? size_ * size_ : 0.0);
    }
    return covariances;
  }
  Eigen::MatrixXd const within = held_.transpose() * response_ * held_;
  Eigen::MatrixXd const gain = held_ * within.ldlt().solve(held_.transpose());
  Eigen::MatrixXd const all = gain * scatter_ * gain.transpose() * (parts_ / spare);
  for (std::size_t view = 0; view < first_.size(); ++view) {
    for (int i = 0; i < 6 && first_[view] >= 0; ++i) {
      for (int j = 0; j < 6; ++j) {
        covariances[view](i, j) =
            0.5 * (all(first_[view] + i, first_[view] + j) + all(first_[view] + j, first_[view] + i));
      }
    }
  }
  return covariances;
}

cv::Mat_<double> ViewEquations::freeMotions(std::size_t view) const {
  if (first_[view] < 0 || free_.cols() == 0) {
    return cv::Mat_<double>(6, 0);
  }
  Eigen::MatrixXd const part = free_.middleRows<6>(first_[view]) * std::sqrt(weights_[first_[view]]);
  Eigen::JacobiSVD<Eigen::MatrixXd> const split(part, Eigen::ComputeFullU);
  int count = 0;
  while (count < split.singularValues().size() && split.singularValues()[count] > leastShare) {
    ++count;
  }
  cv::Mat_<double> motions(6, count);
  for (int i = 0; i < 6; ++i) {
    for (int j = 0; j < count; ++j) {
      motions(i, j) = split.matrixU()(i, j);
    }
  }
  return motions;
}

} // namespace vorn::mv
