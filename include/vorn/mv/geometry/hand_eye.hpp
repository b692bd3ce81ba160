// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/matx.hpp>

#include <vorn/core/export.hpp>

namespace vorn::mv::math {

/// How `handEyeCalib` calibrates.
struct HandEyeSettings {
  /// Where the camera is.
  enum class Mount {
    OnHand,     ///< the robot carries the camera before a target that stands still
    BesideRobot ///< the camera stands still, the robot carries the target
  };

  /// Where the camera is.
  Mount mount = Mount::OnHand;
  /// The hand must turn by at least so much about two axes (root mean square between its poses, degrees):
  /// turns about one axis alone leave a shift along it unknown. Above 0.
  double leastTurn = 2;
  /// Limit of the rounds of the refinement. At least 1.
  int maxIterations = 100;
};

/// Where a robot's camera and target are. Two of the four transforms belong to each mount, the others stay
/// the identity.
struct HandEye {
  /// From the hand's frame to the camera's, for a camera on the hand.
  cv::Matx44d camFromHand = cv::Matx44d::eye();
  /// From the target's frame to that of the robot's base, for a camera on the hand.
  cv::Matx44d baseFromTarget = cv::Matx44d::eye();
  /// From the frame of the robot's base to the camera's, for a camera beside the robot.
  cv::Matx44d camFromBase = cv::Matx44d::eye();
  /// From the target's frame to the hand's, for a camera beside the robot.
  cv::Matx44d handFromTarget = cv::Matx44d::eye();
  /// The covariance of both, 12 x 12 CV_64F: a small turn of the first one in the camera's frame (radians),
  /// its shift, a small turn of the second one in the frame that it leads to, its shift.
  cv::Mat covariance;
  /// Root mean square of what the poses' turns differ from the calibration by, radians.
  double turnRms = 0;
  /// The same of their shifts, in their unit.
  double shiftRms = 0;
  /// What each pose's turn differs by, radians.
  std::vector<double> turnResiduals;
  /// What each pose's shift differs by.
  std::vector<double> shiftResiduals;
};

/// Where a camera sits on a robot's hand, or stands beside the robot, from poses of the hand and what the
/// camera saw of a target in each.
///
/// Solves cam_from_target = X * hand_from_base * Z (with base_from_hand when the camera stands beside the
/// robot) for X and Z: turns from the axes of all motions between two poses (Park and Martin 1994), shifts
/// linearly, then both by least squares of the turns and shifts of all poses together, weighted by how much
/// either scatters. The unit of lengths is that of the poses, the same in both lists.
/// @param handPoses   base_from_hand, as robots report it, at least 6
/// @param targetPoses cam_from_target of the same moments, as CameraModel::estimate gives it
/// @throws Exception for lists of other lengths, matrices that are no rigid transforms (naming the pose),
///         turns that are too small or all about one axis, and settings out of their range
[[nodiscard]] VORN_API HandEye handEyeCalib(std::vector<cv::Matx44d> const& handPoses,
                                            std::vector<cv::Matx44d> const& targetPoses,
                                            HandEyeSettings const& settings = {});

} // namespace vorn::mv::math
