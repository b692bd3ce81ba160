// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <functional>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/adjustment.hpp>
#include <vorn/mv/geometry/rotation.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "calib/exact_views.hpp"

namespace vorn::test {

/// A camera and a projector (or second camera) before a target of dots, by OpenCV's projection in double.
struct AdjustmentRig {
  ExactCamera camera{{1024, 768}, {1402, 0, 515, 0, 1401, 381, 0, 0, 1}, {-0.12, 0.09, 6e-4, -4e-4, -0.02}};
  ExactCamera projector{{640, 400}, {806, 0, 322, 0, 805, 208, 0, 0, 1}, {-0.05, 0.03, 5e-4, 8e-4, 0}};
  cv::Matx44d cam_from_proj =
      mv::math::createTransform(mv::math::rotY(-0.32) * mv::math::rotX(0.02), {172, -8, 16});
  double pitch = 20;
  int halfColumns = 7;
  int halfRows = 5;
  /// What a dot of the target is off by.
  std::function<cv::Vec3d(cv::Vec2d const&)> deviation = [](cv::Vec2d const&) { return cv::Vec3d(); };
  /// Noise of one coordinate of a dot in the camera, and of what reading its projector point adds, pixels.
  double cameraNoise = 0;
  double projectorNoise = 0;

  std::vector<cv::Point2f> dots() const {
    std::vector<cv::Point2f> result;
    for (int y = -halfRows; y <= halfRows; ++y) {
      for (int x = -halfColumns; x <= halfColumns; ++x) {
        result.emplace_back(cv::Point2d(pitch * x, pitch * y));
      }
    }
    return result;
  }

  static std::vector<cv::Matx44d> poses(int count) {
    std::vector<cv::Matx44d> result;
    for (int i = 0; i < count; ++i) {
      cv::Matx33d R;
      cv::Rodrigues(cv::Vec3d(0.5 * std::sin(2.1 * i), 0.5 * std::cos(1.7 * i), 0.3 * i), R);
      result.push_back(mv::math::createTransform(
          R, {35 * std::cos(3.0 * i), 25 * std::sin(5.0 * i), 500 + 100 * std::sin(1.3 * i)}));
    }
    return result;
  }

  static cv::Vec2d imageOf(ExactCamera const& device, cv::Vec3d const& point) {
    std::vector<cv::Point2d> pixels;
    cv::projectPoints(std::vector<cv::Point3d>{cv::Point3d(point)}, cv::Vec3d(), cv::Vec3d(), device.K,
                      device.D, pixels);
    return {pixels[0].x, pixels[0].y};
  }

  static bool isInside(ExactCamera const& device, cv::Vec2d const& pixel) {
    return pixel[0] >= 0 && pixel[1] >= 0 && pixel[0] <= device.resolution.width - 1 &&
           pixel[1] <= device.resolution.height - 1;
  }

  cv::Vec3d inCamera(cv::Vec2d const& dot, cv::Matx44d const& pose) const {
    return mv::math::getR3(pose) * (cv::Vec3d(dot[0], dot[1], 0) + deviation(dot)) + mv::math::getT3(pose);
  }
  cv::Vec3d inProjector(cv::Vec3d const& inCamera) const {
    return mv::math::getR3(cam_from_proj).t() * (inCamera - mv::math::getT3(cam_from_proj));
  }

  /// What the camera sees and the projector lights. An error of the camera's point carries the projector's
  /// with it, as both lie on the target: by where the ray of the wrong pixel meets it.
  mv::AdjustmentView view(cv::Matx44d const& pose, cv::RNG& rng) const {
    constexpr float none = std::numeric_limits<float>::quiet_NaN();
    mv::AdjustmentView result;
    for (cv::Point2f const& dot : dots()) {
      cv::Vec2d const place(dot.x, dot.y);
      cv::Vec2d const c = imageOf(camera, inCamera(place, pose));
      if (!isInside(camera, c)) {
        continue;
      }
      cv::Vec2d const error(rng.gaussian(cameraNoise), rng.gaussian(cameraNoise));
      cv::Vec2d const moved = place + onTarget(place, pose, error);
      cv::Vec2d const p = imageOf(projector, inProjector(inCamera(moved, pose)));
      cv::Vec2d const read = p + cv::Vec2d(rng.gaussian(projectorNoise), rng.gaussian(projectorNoise));
      result.objPnts.push_back(dot);
      result.points0.emplace_back(cv::Point2d(c + error));
      result.points1.push_back(isInside(projector, read) ? cv::Point2f(cv::Point2d(read))
                                                         : cv::Point2f(none, none));
    }
    return result;
  }

  std::vector<mv::AdjustmentView> views(int count, std::uint64_t seed = 1) const {
    cv::RNG rng(seed);
    std::vector<mv::AdjustmentView> result;
    for (cv::Matx44d const& pose : poses(count)) {
      result.push_back(view(pose, rng));
      result.back().name = "pose_" + std::to_string(result.size() - 1);
    }
    return result;
  }

  static mv::CameraModel sizeOf(ExactCamera const& device) {
    mv::CameraModel model;
    model.setResolution(device.resolution);
    return model;
  }

private:
  /// How far on the target a small step in the camera's image goes, by differences.
  cv::Vec2d onTarget(cv::Vec2d const& dot, cv::Matx44d const& pose, cv::Vec2d const& step) const {
    constexpr double h = 1e-3;
    cv::Vec2d const x = (imageOf(camera, inCamera(dot + cv::Vec2d(h, 0), pose)) -
                         imageOf(camera, inCamera(dot - cv::Vec2d(h, 0), pose))) /
                        (2 * h);
    cv::Vec2d const y = (imageOf(camera, inCamera(dot + cv::Vec2d(0, h), pose)) -
                         imageOf(camera, inCamera(dot - cv::Vec2d(0, h), pose))) /
                        (2 * h);
    return cv::Matx22d(x[0], y[0], x[1], y[1]).inv() * step;
  }
};

/// The views of the first device alone.
inline std::vector<mv::AdjustmentView> ofCamera(std::vector<mv::AdjustmentView> views) {
  for (mv::AdjustmentView& view : views) {
    view.points1.clear();
  }
  return views;
}

/// fx, fy, cx, cy and D of a model, in the order of the covariance.
inline std::vector<double> numbersOf(cv::Matx33d const& K, std::vector<double> const& D) {
  std::vector<double> numbers{K(0, 0), K(1, 1), K(0, 2), K(1, 2)};
  numbers.insert(numbers.end(), D.begin(), D.end());
  return numbers;
}
inline std::vector<double> numbersOf(mv::CameraModel const& model) {
  cv::Mat_<double> const D(model.getD().reshape(1, 1));
  return numbersOf(cv::Matx33d(model.getK()), {D.begin(), D.end()});
}

} // namespace vorn::test
