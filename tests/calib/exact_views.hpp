// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/calib3d.hpp>

#include <nlohmann/json.hpp>
#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/geometry/transform.hpp>

namespace vorn::test {

/// A camera with a moderate wide-angle lens.
struct ExactCamera {
  cv::Size resolution{2448, 2048};
  cv::Matx33d K{2400, 0, 1210, 0, 2410, 1030, 0, 0, 1};
  std::vector<double> D{-0.12, 0.09, 0.0005, -0.0007, -0.02};

  mv::CameraModel model(double error = 0.1) const {
    mv::CameraModel result;
    result.read({{"Resolution", resolution}, {"K", K}, {"D", cv::Mat(D)}, {"Error", error}});
    return result;
  }

  /// The image of points of the plane z = 0, by OpenCV in double.
  std::vector<cv::Point2f> image(std::vector<cv::Point2f> const& points, cv::Matx44d const& pose) const {
    std::vector<cv::Point3d> lifted;
    for (cv::Point2f const& p : points) {
      lifted.emplace_back(p.x, p.y, 0);
    }
    cv::Vec3d rvec;
    cv::Rodrigues(mv::math::getR3(pose), rvec);
    std::vector<cv::Point2d> pixels;
    cv::projectPoints(lifted, rvec, mv::math::getT3(pose), K, D, pixels);
    return {pixels.begin(), pixels.end()};
  }
};

/// Points of a pattern, 15 mm apart.
inline std::vector<cv::Point2f> patternPoints() {
  std::vector<cv::Point2f> points;
  for (int y = -4; y <= 4; ++y) {
    for (int x = -5; x <= 5; ++x) {
      points.emplace_back(15.0F * static_cast<float>(x), 15.0F * static_cast<float>(y));
    }
  }
  return points;
}

/// Poses half a metre before a camera, tilted to all sides.
inline std::vector<cv::Matx44d> patternPoses(int count) {
  std::vector<cv::Matx44d> poses;
  for (int i = 0; i < count; ++i) {
    cv::Matx33d R;
    cv::Rodrigues(cv::Vec3d(0.5 * std::sin(2.1 * i), 0.5 * std::cos(1.7 * i), 0.3 * i), R);
    poses.push_back(
        mv::math::createTransform(R, {20 * std::cos(3.0 * i), 15 * std::sin(5.0 * i), 450 + 20.0 * i}));
  }
  return poses;
}

/// What a perfect detector would give for some views of the pattern. The camera looks at the poses through
/// `camera_from_world`.
inline void addViews(mv::CameraCalibData& data, ExactCamera const& camera,
                     std::vector<cv::Matx44d> const& poses,
                     cv::Matx44d const& camera_from_world = cv::Matx44d::eye()) {
  for (cv::Matx44d const& pose : poses) {
    data.add(camera.image(patternPoints(), camera_from_world * pose), patternPoints());
  }
}

} // namespace vorn::test
