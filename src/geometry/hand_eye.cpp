// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/geometry/hand_eye.hpp>

#include <algorithm>
#include <cmath>
#include <string>

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "core/error.hpp"
#include "geometry/rigid_motion.hpp"
#include "geometry/rotation_vector.hpp"

namespace vorn::mv::math {

namespace {

using Mount = HandEyeSettings::Mount;
using Matrix12 = Eigen::Matrix<double, 12, 12>;
using Vector12 = Eigen::Matrix<double, 12, 1>;

struct Motion {
  cv::Matx33d R = cv::Matx33d::eye();
  cv::Vec3d t;
};

Motion operator*(Motion const& a, Motion const& b) {
  return {a.R * b.R, a.R * b.t + a.t};
}

Motion inverseOf(Motion const& m) {
  return {m.R.t(), -(m.R.t() * m.t)};
}

/// What both lists say: for every pose, seen = X * moved * Z.
struct Equations {
  std::vector<Motion> moved;
  std::vector<Motion> seen;
};

Motion checkedMotion(cv::Matx44d const& M, char const* list, std::size_t index) {
  constexpr double mostSkew = 1e-4; // robots report poses with few digits
  Motion const motion{getR3(M), getT3(M)};
  if (!isRigidMotion(M, mostSkew)) {
    throw error(std::string(list) + " " + std::to_string(index) + " is no rigid transform", "handEyeCalib");
  }
  return motion;
}

Equations equationsOf(std::vector<cv::Matx44d> const& handPoses, std::vector<cv::Matx44d> const& targetPoses,
                      HandEyeSettings const& settings) {
  constexpr std::size_t fewest = 6;
  if (handPoses.size() != targetPoses.size() || handPoses.size() < fewest) {
    throw error("There are " + std::to_string(handPoses.size()) + " poses of the hand and " +
                    std::to_string(targetPoses.size()) + " of the target; it takes at least " +
                    std::to_string(fewest) + " of both",
                "handEyeCalib");
  }
  if (!(settings.leastTurn > 0)) {
    throw error("leastTurn must be above 0, not " + std::to_string(settings.leastTurn), "handEyeCalib");
  }
  if (settings.maxIterations < 1) {
    throw error("maxIterations must be at least 1, not " + std::to_string(settings.maxIterations),
                "handEyeCalib");
  }
  Equations equations;
  for (std::size_t i = 0; i < handPoses.size(); ++i) {
    Motion const hand = checkedMotion(handPoses[i], "Hand pose", i);
    equations.moved.push_back(settings.mount == Mount::OnHand ? inverseOf(hand) : hand);
    equations.seen.push_back(checkedMotion(targetPoses[i], "Target pose", i));
  }
  return equations;
}

/// The turn nearest to a matrix.
cv::Matx33d nearestTurn(cv::Matx33d const& M) {
  cv::Matx33d U;
  cv::Matx33d Vt;
  cv::Vec3d w;
  cv::SVD::compute(M, w, U, Vt);
  double const sign = cv::determinant(U * Vt) < 0 ? -1 : 1;
  return U * cv::Matx33d::diag({1, 1, sign}) * Vt;
}

/// Half the sine of a turn's angle along its axis, so that its sign is certain below half a revolution.
cv::Vec3d halfTurnOf(cv::Matx33d const& R) {
  cv::Vec3d const vector = rotationVector(R);
  double const angle = cv::norm(vector);
  return angle > 0 ? vector * (std::sin(angle / 2) / angle) : vector;
}

/// @throws Exception when the turns do not determine the calibration
void checkTurns(cv::Matx33d const& spread, double pairs, double leastTurn) {
  cv::Vec3d variances; // descending
  cv::eigen(spread, variances);
  auto const degrees = [&](int axis) {
    return 2 * std::asin(std::min(1.0, std::sqrt(std::max(variances[axis], 0.0) / pairs))) * 180 / CV_PI;
  };
  if (degrees(0) < leastTurn) {
    throw error("The hand turns too little: by " + std::to_string(degrees(0)) +
                    " degrees (root mean square between its poses), not " + std::to_string(leastTurn),
                "handEyeCalib");
  }
  if (degrees(1) < leastTurn) {
    throw error("The hand's turns are all about one axis: about others they are of " +
                    std::to_string(degrees(1)) + " degrees, not " + std::to_string(leastTurn),
                "handEyeCalib");
  }
}

/// X and Z.
struct Unknowns {
  Motion x;
  Motion z;
};

Unknowns closedForm(Equations const& equations, double leastTurn) {
  constexpr double mostTurn = 170 * CV_PI / 180; // beyond it noise turns the axis' sign
  std::size_t const n = equations.seen.size();
  cv::Matx33d spread;
  cv::Matx33d cross;
  double pairs = 0;
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      cv::Matx33d const movedTurn = equations.moved[i].R * equations.moved[j].R.t();
      cv::Vec3d const moved = halfTurnOf(movedTurn);
      cv::Vec3d const seen = halfTurnOf(equations.seen[i].R * equations.seen[j].R.t());
      if (cv::norm(rotationVector(movedTurn)) < mostTurn) {
        spread += moved * moved.t();
        cross += seen * moved.t();
        pairs += 1;
      }
    }
  }
  checkTurns(spread, std::max(pairs, 1.0), leastTurn);
  Unknowns unknowns;
  unknowns.x.R = nearestTurn(cross);
  cv::Matx33d sum;
  for (std::size_t i = 0; i < n; ++i) {
    sum += equations.moved[i].R.t() * unknowns.x.R.t() * equations.seen[i].R;
  }
  unknowns.z.R = nearestTurn(sum);
  // seen.t = X (moved.R z + moved.t) + x is linear in both shifts.
  cv::Mat_<double> design(static_cast<int>(3 * n), 6);
  cv::Mat_<double> right(static_cast<int>(3 * n), 1);
  for (std::size_t i = 0; i < n; ++i) {
    cv::Range const rows(static_cast<int>(3 * i), static_cast<int>(3 * i + 3));
    cv::Mat(cv::Matx33d::eye()).copyTo(design(rows, {0, 3}));
    cv::Mat(unknowns.x.R * equations.moved[i].R).copyTo(design(rows, {3, 6}));
    cv::Mat(equations.seen[i].t - unknowns.x.R * equations.moved[i].t).copyTo(right.rowRange(rows));
  }
  cv::Mat solution;
  cv::solve(design, right, solution, cv::DECOMP_SVD);
  unknowns.x.t = cv::Vec3d(solution.ptr<double>(0));
  unknowns.z.t = cv::Vec3d(solution.ptr<double>(3));
  return unknowns;
}

/// A pose's residuals: the turn and the shift by which it is seen elsewhere than expected.
struct Residual {
  cv::Vec3d turn;
  cv::Vec3d shift;
};

Residual residualOf(Unknowns const& unknowns, Motion const& moved, Motion const& seen) {
  Motion const expected = unknowns.x * moved * unknowns.z;
  return {rotationVector(seen.R * expected.R.t()), seen.t - expected.t};
}

std::vector<Residual> residualsOf(Unknowns const& unknowns, Equations const& equations) {
  std::vector<Residual> residuals;
  for (std::size_t i = 0; i < equations.seen.size(); ++i) {
    residuals.push_back(residualOf(unknowns, equations.moved[i], equations.seen[i]));
  }
  return residuals;
}

/// Standard deviations of one coordinate of a turn and of a shift.
struct Scatter {
  double turn = 1;
  double shift = 1;
};

Scatter scatterOf(std::vector<Residual> const& residuals) {
  Scatter sums{0, 0};
  for (Residual const& residual : residuals) {
    sums.turn += residual.turn.dot(residual.turn);
    sums.shift += residual.shift.dot(residual.shift);
  }
  // Each kind of residual gives up half of the twelve unknowns.
  double const freedom = 3 * static_cast<double>(residuals.size()) - 6;
  constexpr double leastTurn = 1e-12; // exact poses leave rounding errors
  constexpr double leastShift = 1e-9;
  return {std::max(std::sqrt(sums.turn / freedom), leastTurn),
          std::max(std::sqrt(sums.shift / freedom), leastShift)};
}

Eigen::Matrix3d eigenOf(cv::Matx33d const& m) {
  return Eigen::Map<Eigen::Matrix<double, 3, 3, Eigen::RowMajor> const>(m.val);
}

struct NormalMatrix {
  Matrix12 products = Matrix12::Zero();
  Vector12 slopes = Vector12::Zero();
};

NormalMatrix normalMatrixOf(Unknowns const& unknowns, Equations const& equations, Scatter const& scatter) {
  NormalMatrix normal;
  for (std::size_t i = 0; i < equations.seen.size(); ++i) {
    Motion const& moved = equations.moved[i];
    Residual const residual = residualOf(unknowns, moved, equations.seen[i]);
    cv::Matx33d const carried = unknowns.x.R * moved.R; // from the frame of Z to the camera's
    cv::Vec3d const arm = carried * unknowns.z.t + unknowns.x.R * moved.t;
    Eigen::Matrix<double, 6, 12> slope = Eigen::Matrix<double, 6, 12>::Zero();
    slope.block<3, 3>(0, 0) = Eigen::Matrix3d::Identity() / scatter.turn;
    slope.block<3, 3>(0, 6) = eigenOf(carried) / scatter.turn;
    slope.block<3, 3>(3, 0) = -eigenOf(skew3(arm)) / scatter.shift;
    slope.block<3, 3>(3, 3) = Eigen::Matrix3d::Identity() / scatter.shift;
    slope.block<3, 3>(3, 9) = eigenOf(carried) / scatter.shift;
    Eigen::Matrix<double, 6, 1> values;
    for (int axis = 0; axis < 3; ++axis) {
      values[axis] = residual.turn[axis] / scatter.turn;
      values[3 + axis] = residual.shift[axis] / scatter.shift;
    }
    normal.products += slope.transpose() * slope;
    normal.slopes += slope.transpose() * values;
  }
  return normal;
}

Motion movedBy(Motion const& motion, double const* step) {
  cv::Matx33d turn;
  cv::Rodrigues(cv::Vec3d(step), turn);
  return {turn * motion.R, motion.t + cv::Vec3d(step + 3)};
}

double squaresOf(std::vector<Residual> const& residuals, Scatter const& scatter) {
  double squares = 0;
  for (Residual const& residual : residuals) {
    squares += residual.turn.dot(residual.turn) / (scatter.turn * scatter.turn) +
               residual.shift.dot(residual.shift) / (scatter.shift * scatter.shift);
  }
  return squares;
}

/// Gauss and Newton's method, halving steps that do not help.
void refine(Unknowns& unknowns, Equations const& equations, Scatter const& scatter, int maxIterations) {
  constexpr double lastGain = 1e-10; // of the squares: far below what moves a number by its own error
  double squares = squaresOf(residualsOf(unknowns, equations), scatter);
  for (int round = 0; round < maxIterations; ++round) {
    NormalMatrix const normal = normalMatrixOf(unknowns, equations, scatter);
    Vector12 step = normal.products.ldlt().solve(normal.slopes);
    double const before = squares;
    for (int halving = 0; halving < 10; ++halving, step *= 0.5) {
      Unknowns const tried{movedBy(unknowns.x, step.data()), movedBy(unknowns.z, step.data() + 6)};
      double const triedSquares = squaresOf(residualsOf(tried, equations), scatter);
      if (triedSquares < squares) {
        unknowns = tried;
        squares = triedSquares;
        break;
      }
    }
    if (before - squares < lastGain) {
      return;
    }
  }
}

} // namespace

HandEye handEyeCalib(std::vector<cv::Matx44d> const& handPoses, std::vector<cv::Matx44d> const& targetPoses,
                     HandEyeSettings const& settings) {
  Equations const equations = equationsOf(handPoses, targetPoses, settings);
  Unknowns unknowns = closedForm(equations, settings.leastTurn);
  Scatter scatter;
  constexpr int reweightings = 3;
  for (int i = 0; i < reweightings; ++i) {
    scatter = scatterOf(residualsOf(unknowns, equations));
    refine(unknowns, equations, scatter, settings.maxIterations);
  }
  auto const residuals = residualsOf(unknowns, equations);
  HandEye result;
  cv::Matx44d const x = createTransform(unknowns.x.R, unknowns.x.t);
  cv::Matx44d const z = createTransform(unknowns.z.R, unknowns.z.t);
  bool const isOnHand = settings.mount == Mount::OnHand;
  (isOnHand ? result.camFromHand : result.camFromBase) = x;
  (isOnHand ? result.baseFromTarget : result.handFromTarget) = z;
  Matrix12 const covariance =
      normalMatrixOf(unknowns, equations, scatterOf(residuals)).products.ldlt().solve(Matrix12::Identity());
  result.covariance.create(12, 12, CV_64F);
  Eigen::Map<Eigen::Matrix<double, 12, 12, Eigen::RowMajor>>(result.covariance.ptr<double>()) = covariance;
  for (Residual const& residual : residuals) {
    result.turnResiduals.push_back(cv::norm(residual.turn));
    result.shiftResiduals.push_back(cv::norm(residual.shift));
  }
  double const root = std::sqrt(static_cast<double>(residuals.size()));
  result.turnRms = cv::norm(result.turnResiduals) / root;
  result.shiftRms = cv::norm(result.shiftResiduals) / root;
  return result;
}

} // namespace vorn::mv::math
