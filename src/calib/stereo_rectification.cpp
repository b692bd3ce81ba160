// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/stereo_camera.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "calib/camera_model_of.hpp"
#include "calib/projection.hpp"
#include "core/error.hpp"
#include "core/parallel.hpp"
#include "geometry/rotation_vector.hpp"

namespace vorn::mv {

namespace {

using Coverage = StereoRectificationSettings::Coverage;

/// A range of normalised coordinates of a rectified camera.
struct Range {
  double from;
  double to;

  double length() const { return to - from; }
  double middle() const { return (from + to) / 2; }
};

/// What a camera's image covers of its rectified view, along x and along y.
struct View {
  Range range[2];
};

/// How far the rectified camera turns with each of the two, and along which axis the base then lies.
struct Turns {
  cv::Matx33d rect_from_cam[2];
  int baseAxis;
  double baseline;
  double side; ///< 1 when camera 1 lies to the right of (below) camera 0, else -1
};

/// Both cameras by half of the angle between them, then both until the base lies along an image axis
/// (Bouguet's scheme).
Turns turnsOf(cv::Matx44d const& cam0_from_cam1) {
  cv::Matx44d const cam1_from_cam0 = cam0_from_cam1.inv();
  cv::Vec3d const angle = rotationVector(math::getR3(cam1_from_cam0));
  cv::Matx33d half_from_cam0;
  cv::Matx33d half_from_cam1;
  cv::Rodrigues(angle / 2, half_from_cam0);
  cv::Rodrigues(-angle / 2, half_from_cam1);
  cv::Vec3d const base = half_from_cam0 * math::getT3(cam0_from_cam1); // to camera 1
  double const baseline = cv::norm(base);
  if (!(baseline > 0) || !std::isfinite(baseline)) {
    throw error("The cameras stand at one place: their transform has no base", "rectify");
  }
  Turns turns;
  turns.baseAxis = std::abs(base[0]) >= std::abs(base[1]) ? 0 : 1;
  turns.baseline = baseline;
  turns.side = base[turns.baseAxis] < 0 ? -1 : 1;
  cv::Vec3d along;
  along[turns.baseAxis] = turns.side;
  cv::Vec3d const axis = base.cross(along); // of the least turn that lays the base there
  double const sine = cv::norm(axis) / baseline;
  cv::Matx33d rect_from_half = cv::Matx33d::eye();
  if (sine > 0) {
    cv::Rodrigues(axis / cv::norm(axis) * std::atan2(sine, base.dot(along) / baseline), rect_from_half);
  }
  turns.rect_from_cam[0] = rect_from_half * half_from_cam0;
  turns.rect_from_cam[1] = rect_from_half * half_from_cam1;
  return turns;
}

/// The largest ranges that the camera's image fills, or the smallest that hold all of it.
View viewOf(CameraModel const& camera, cv::Matx33d const& rect_from_cam, Coverage coverage) {
  constexpr int steps = 64; // along each side of the image
  cv::Size const size = camera.getResolution();
  Undistortion const undistortion(camera.getK(), camera.getD());
  constexpr double infinity = std::numeric_limits<double>::infinity();
  // The sides of the image, in the order left, right, top, bottom: the least and the greatest coordinate of
  // each, across it.
  Range sides[4];
  for (int side = 0; side < 4; ++side) {
    sides[side] = {infinity, -infinity};
    for (int i = 0; i <= steps; ++i) {
      double const along = static_cast<double>(i) / steps;
      double x = (side < 2 ? side : along) * (size.width - 1);
      double y = (side < 2 ? along : side - 2) * (size.height - 1);
      undistortion.toRays(&x, &y, 1);
      cv::Vec3d const ray = rect_from_cam * cv::Vec3d(x, y, 1);
      if (!(ray[2] > 0)) { // a ray that is no number too
        throw error("No rectified images exist: the cameras look apart too far, or a lens model folds over "
                    "within its image",
                    "rectify");
      }
      double const place = ray[side / 2] / ray[2];
      sides[side] = {std::min(sides[side].from, place), std::max(sides[side].to, place)};
    }
  }
  bool const isAll = coverage == Coverage::All;
  auto const between = [isAll](Range const& low, Range const& high) {
    return isAll ? Range{std::min(low.from, high.from), std::max(low.to, high.to)} : Range{low.to, high.from};
  };
  return {{between(sides[0], sides[1]), between(sides[2], sides[3])}};
}

/// The rectified camera matrices: one focal length, one principal point across the base.
struct RectifiedCameras {
  double f;
  cv::Vec2d centre[2];
};

RectifiedCameras camerasFor(View (&views)[2], Turns const& turns, cv::Size const& size, Coverage coverage) {
  int const across = 1 - turns.baseAxis;
  bool const isAll = coverage == Coverage::All;
  Range const& a = views[0].range[across];
  Range const& b = views[1].range[across];
  Range const common = isAll ? Range{std::min(a.from, b.from), std::max(a.to, b.to)}
                             : Range{std::max(a.from, b.from), std::min(a.to, b.to)};
  views[0].range[across] = common;
  views[1].range[across] = common;
  int const last[2] = {size.width - 1, size.height - 1};
  RectifiedCameras cameras{isAll ? std::numeric_limits<double>::infinity() : 0, {}};
  for (View const& view : views) {
    for (int axis = 0; axis < 2; ++axis) {
      double const length = view.range[axis].length();
      if (!(length > 0)) {
        throw error("No rectified images exist: the cameras share no rows (or columns) once they are turned",
                    "rectify");
      }
      cameras.f = isAll ? std::min(cameras.f, last[axis] / length) : std::max(cameras.f, last[axis] / length);
    }
  }
  for (int i = 0; i < 2; ++i) {
    for (int axis = 0; axis < 2; ++axis) {
      cameras.centre[i][axis] = last[axis] / 2.0 - cameras.f * views[i].range[axis].middle();
    }
  }
  return cameras;
}

cv::Mat mapOf(CameraModel const& camera, cv::Matx33d const& rect_from_cam, double f, cv::Vec2d const& centre,
              cv::Size const& size) {
  Projection const projection(cameraNumbers(camera.getK(), camera.getD()));
  cv::Matx33d const cam_from_rect = rect_from_cam.t();
  cv::Mat_<cv::Vec2f> map(size);
  parallelRows(size.height, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      for (int col = 0; col < size.width; ++col) {
        cv::Vec3d const ray = cam_from_rect * cv::Vec3d((col - centre[0]) / f, (row - centre[1]) / f, 1);
        // A pixel outside of every image, for what the camera cannot see.
        map(row, col) = ray[2] > 0 ? cv::Vec2f(projection(ray)) : cv::Vec2f(-1e4F, -1e4F);
      }
    }
  });
  return cv::Mat(map);
}

void checkSettings(StereoRectificationSettings const& settings, CameraModel const& camera0,
                   CameraModel const& camera1) {
  constexpr int largest = 32767; // what cv::remap takes
  auto const isSize = [](cv::Size const& size) {
    return size.width >= 2 && size.height >= 2 && size.width <= largest && size.height <= largest;
  };
  auto const text = [](cv::Size const& size) {
    return std::to_string(size.width) + " x " + std::to_string(size.height);
  };
  if (settings.size != cv::Size() && !isSize(settings.size)) {
    throw error("size must lie between 2 x 2 and 32767 x 32767, not " + text(settings.size), "rectify");
  }
  for (cv::Size const& size : {camera0.getResolution(), camera1.getResolution()}) {
    if (!isSize(size)) {
      throw error("A camera has no usable resolution: " + text(size), "rectify");
    }
  }
}

} // namespace

StereoRectification StereoCamera::rectify(StereoRectificationSettings const& settings) const {
  CameraModel const* const cameras[2] = {&getCameraModel0(), &getCameraModel1()};
  checkSettings(settings, *cameras[0], *cameras[1]);
  cv::Size const size = settings.size == cv::Size() ? cameras[0]->getResolution() : settings.size;
  Turns const turns = turnsOf(getTransform());
  View views[2];
  for (int i = 0; i < 2; ++i) {
    views[i] = viewOf(*cameras[i], turns.rect_from_cam[i], settings.coverage);
  }
  RectifiedCameras const rectified = camerasFor(views, turns, size, settings.coverage);
  double const f = rectified.f;
  auto const modelOf = [&](int i) {
    cv::Matx33d const K(f, 0, rectified.centre[i][0], 0, f, rectified.centre[i][1], 0, 0, 1);
    return cameraModelOf(cv::Mat(K), {}, size, cameras[i]->getCalibError());
  };
  auto const mapFor = [&](int i) {
    return mapOf(*cameras[i], turns.rect_from_cam[i], f, rectified.centre[i], size);
  };
  StereoRectification result;
  result.camera0 = modelOf(0);
  result.camera1 = modelOf(1);
  result.rect0_from_cam0 = turns.rect_from_cam[0];
  result.rect1_from_cam1 = turns.rect_from_cam[1];
  result.isVertical = turns.baseAxis == 1;
  result.baseline = turns.baseline;
  // A point at depth Z has the disparity d = f * side * baseline / Z + (centre0 - centre1).
  double const base = turns.side * turns.baseline;
  double const shift = rectified.centre[0][turns.baseAxis] - rectified.centre[1][turns.baseAxis];
  result.Q = cv::Matx44d(1, 0, 0, -rectified.centre[0][0], 0, 1, 0, -rectified.centre[0][1], 0, 0, 0, f, //
                         0, 0, 1 / base, -shift / base);
  result.map0 = mapFor(0);
  result.map1 = mapFor(1);
  return result;
}

} // namespace vorn::mv
