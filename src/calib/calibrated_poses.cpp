// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/calibrated_poses.hpp"

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

namespace vorn::mv {

cv::Matx44d meanTransform(std::vector<cv::Matx44d> const& a_from_pattern,
                          std::vector<cv::Matx44d> const& b_from_pattern) {
  cv::Matx33d sumR;
  cv::Vec3d sumP;
  for (std::size_t i = 0; i < a_from_pattern.size(); ++i) {
    cv::Matx33d const R = math::getR3(a_from_pattern[i]);
    cv::Matx33d const inverse = math::getR3(b_from_pattern[i]).inv();
    sumR += R * inverse;
    sumP += R * -(inverse * math::getT3(b_from_pattern[i])) + math::getT3(a_from_pattern[i]);
  }
  double const n = static_cast<double>(a_from_pattern.size());
  return math::createTransform(sumR * (1 / n), sumP * (1 / n));
}

std::vector<cv::Matx44d> latestPoses(CameraCalibData const& data) {
  return {data.getPoses().end() - data.count(), data.getPoses().end()};
}

void addNewPoses(CameraCalibData& data, CameraCalibData const& calibrated) {
  for (cv::Matx44d const& pose : latestPoses(calibrated)) {
    data.addPose(pose);
  }
}

} // namespace vorn::mv
