// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/laser.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <optional>

#include "core/parallel.hpp"
#include "sim/light.hpp"
#include "sim/pixel_integral.hpp"
#include "sim/sensor.hpp"

namespace vorn::sim {
namespace {

/// Follows one column or row of the image and finds where the laser's plane crosses what it sees.
class LineWalker {
public:
  LineWalker(Camera const& camera, Laser const& laser, Scene const& scene)
      : camera_(camera), laser_(laser), scene_(scene), world_from_cam_(camera.cam_from_world.inverse()),
        laser_from_world_(laser.world_from_laser.inverse()) {
    cv::Vec3d const normal =
        camera.cam_from_world.rotation * (laser.world_from_laser.rotation * cv::Vec3d(1, 0, 0));
    alongColumns_ = std::abs(normal[1]) > std::abs(normal[0]);
  }

  int lineCount() const {
    cv::Size const size = camera_.device.resolution();
    return alongColumns_ ? size.width : size.height;
  }

  std::vector<LaserPoint> walk(int line) const {
    cv::Size const size = camera_.device.resolution();
    std::vector<LaserPoint> points;
    CameraSample before;
    CameraSample after;
    bool sawBefore = false;
    for (int i = 0; i < (alongColumns_ ? size.height : size.width); ++i) {
      bool const sees = sight(line, i, after);
      if (sees && sawBefore && before.point.object == after.point.object &&
          (offset(before) < 0.0) != (offset(after) < 0.0)) {
        if (auto const point = crossing(line, i - 1, offset(before) < 0.0)) {
          points.push_back(*point);
        }
      }
      std::swap(before, after);
      sawBefore = sees;
    }
    return points;
  }

private:
  cv::Point2d at(int line, double along) const {
    return alongColumns_ ? cv::Point2d(line, along) : cv::Point2d(along, line);
  }

  bool sight(int line, double along, CameraSample& sample) const {
    return look(camera_, world_from_cam_, scene_, at(line, along), 1.0, sample);
  }

  /// Signed distance from the laser's plane.
  double offset(CameraSample const& sample) const { return (laser_from_world_ * sample.point.x_in_world)[0]; }

  /// Bisects between `from` and the next pixel; empty where a jump of depth passes for a crossing and in
  /// shadow.
  std::optional<LaserPoint> crossing(int line, int from, bool startsBelow) const {
    constexpr int halvings = 40;
    constexpr double onPlane = 1e-6;
    double low = from;
    double high = from + 1.0;
    CameraSample sample;
    for (int i = 0; i < halvings; ++i) {
      double const middle = 0.5 * (low + high);
      if (!sight(line, middle, sample)) {
        return std::nullopt;
      }
      ((offset(sample) < 0.0) == startsBelow ? low : high) = middle;
    }
    if (std::abs(offset(sample)) > onPlane || lightFrom(laser_, laser_from_world_, scene_, sample) <= 0.0) {
      return std::nullopt;
    }
    return LaserPoint{at(line, low), camera_.cam_from_world * sample.point.x_in_world};
  }

  Camera const& camera_;
  Laser const& laser_;
  Scene const& scene_;
  Pose world_from_cam_;
  Pose laser_from_world_;
  bool alongColumns_ = false;
};

} // namespace

Laser laserTowards(cv::Vec3d const& position, cv::Vec3d const& target, cv::Vec3d const& line) {
  cv::Vec3d const z = cv::normalize(target - position);
  cv::Vec3d const x = cv::normalize(line.cross(z));
  cv::Vec3d const y = z.cross(x);
  Laser laser;
  laser.world_from_laser = {{x[0], y[0], z[0], x[1], y[1], z[1], x[2], y[2], z[2]}, position};
  laser.referenceDistance = cv::norm(target - position);
  return laser;
}

cv::Mat exposeLasers(Camera const& camera, std::vector<Laser> const& lasers, Scene const& scene,
                     RenderOptions const& options) {
  cv::Size const size = camera.device.resolution();
  cv::Size const fine = size * options.supersample;
  PixelIntegral const integral(options.supersample, camera.blur);
  Pose const world_from_cam = camera.cam_from_world.inverse();
  std::vector<Pose> lasers_from_world;
  lasers_from_world.reserve(lasers.size());
  for (Laser const& laser : lasers) {
    lasers_from_world.push_back(laser.world_from_laser.inverse());
  }
  double const width = 1.0 / options.supersample;
  cv::Mat light(fine.height, size.width, CV_32FC1);
  parallelRows(fine.height, [&](int firstRow, int endRow) {
    std::vector<float> row(static_cast<std::size_t>(fine.width));
    CameraSample seen;
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < fine.width; ++x) {
        cv::Point2d const pixel((x + 0.5) * width - 0.5, (y + 0.5) * width - 0.5);
        double sum = 0;
        if (look(camera, world_from_cam, scene, pixel, width, seen)) {
          sum = camera.sensor.ambient * seen.albedo;
          for (std::size_t i = 0; i < lasers.size(); ++i) {
            sum += lightFrom(lasers[i], lasers_from_world[i], scene, seen);
          }
        }
        row[static_cast<std::size_t>(x)] = static_cast<float>(sum);
      }
      integral.alongRow(row.data(), size.width, light.ptr<float>(y));
    }
  });
  return integral.greyLevels(camera, light);
}

cv::Mat captureLasers(Camera const& camera, std::vector<Laser> const& lasers, Scene const& scene,
                      int imageNumber, RenderOptions const& options) {
  return readOut(camera.sensor, exposeLasers(camera, lasers, scene, options), imageNumber);
}

std::vector<LaserPoint> laserTruth(Camera const& camera, Laser const& laser, Scene const& scene) {
  LineWalker const walker(camera, laser, scene);
  std::vector<std::vector<LaserPoint>> lines(static_cast<std::size_t>(walker.lineCount()));
  parallelRows(walker.lineCount(), [&](int first, int end) {
    for (int line = first; line < end; ++line) {
      lines[static_cast<std::size_t>(line)] = walker.walk(line);
    }
  });
  std::vector<LaserPoint> points;
  for (auto const& line : lines) {
    points.insert(points.end(), line.begin(), line.end());
  }
  return points;
}

} // namespace vorn::sim
