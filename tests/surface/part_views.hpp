// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <opencv2/core.hpp>
#include <random>
#include <vector>

#include <sim/demo.hpp>
#include <sim/part.hpp>
#include <sim/truth.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "support/seed.hpp"

namespace vorn::test {

/// Views of the rig's part with noise along the lines of sight.
struct PartViews {
  std::vector<mv::PointCloud> clouds;     ///< the poses pending
  std::vector<cv::Mat_<cv::Vec3f>> exact; ///< the points without noise
  std::vector<sim::Pose> cam_from_part;
  sim::Rig rig;
  double sigma;

  PartViews(int count, int divisor, double noise) : rig(sim::demoRig(divisor)), sigma(noise) {
    std::mt19937 random(seed());
    std::normal_distribution<double> error(0.0, sigma);
    cam_from_part = sim::partPoses(count, sim::PartMotion::Turntable);
    for (sim::Pose const& pose : cam_from_part) {
      exact.push_back(sim::truth(rig.camera, rig.projector, sim::partScene().moved(pose)).x_in_cam);
      cv::Mat_<cv::Vec3f> points = exact.back().clone();
      cv::Mat_<uchar> absent(points.size(), uchar{0});
      for (int row = 0; row < points.rows; ++row) {
        for (int column = 0; column < points.cols; ++column) {
          cv::Vec3d const point(points(row, column));
          if (std::isnan(point[0])) {
            absent(row, column) = 255;
          } else {
            points(row, column) = cv::Vec3f(point * (1.0 + error(random) / cv::norm(point)));
          }
        }
      }
      mv::PointCloud cloud(points, true);
      cloud.state() = absent;
      cloud.setTransform(pose.inverse().matrix());
      clouds.push_back(cloud);
    }
  }

  /// 1 / variance that the noise of all views gives together which see a place of the part.
  /// @param leastCosine 1: as if noise were along the normal; else that along the line of sight is turned
  ///                    into it, by at most an angle of this cosine
  double weightAt(cv::Vec3d const& x_in_part, cv::Vec3d const& normal, double leastCosine) const {
    double weight = 0.0;
    for (std::size_t view = 0; view < exact.size(); ++view) {
      cv::Vec3d const x = cam_from_part[view] * x_in_part;
      auto const pixel = rig.camera.device.project(x);
      if (!pixel || !rig.camera.device.contains(*pixel)) {
        continue;
      }
      cv::Vec3d const seen(exact[view](cvRound(pixel->y), cvRound(pixel->x)));
      constexpr double near = 1.0; // mm: neighbouring pixels on slopes, but no other surface
      if (cv::norm(seen - x) < near) {
        double const cosine =
            std::max(std::abs(normal.dot(cam_from_part[view].rotation.t() * x)) / cv::norm(x), leastCosine);
        weight += 1.0 / (sigma * sigma * cosine * cosine);
      }
    }
    return weight;
  }
};

/// The part's outward normal at a point near its surface, by differences of the distance.
inline cv::Vec3d partNormal(cv::Vec3d const& x) {
  constexpr double step = 1e-4;
  cv::Vec3d gradient;
  for (int i = 0; i < 3; ++i) {
    cv::Vec3d offset;
    offset[i] = step;
    gradient[i] = sim::distanceToPart(x + offset) - sim::distanceToPart(x - offset);
  }
  return gradient * (1.0 / cv::norm(gradient));
}

/// Whether the part has no edge within `radius` of a point near its surface.
inline bool isAwayFromEdges(cv::Vec3d const& x, double radius) {
  cv::Vec3d const normal = partNormal(x);
  cv::Vec3d across = normal.cross(std::abs(normal[0]) < 0.6 ? cv::Vec3d(1, 0, 0) : cv::Vec3d(0, 1, 0));
  across *= 1.0 / cv::norm(across);
  cv::Vec3d const along = normal.cross(across);
  // The roundest body has a radius of 6 mm.
  double const sag = radius * radius / 10.0 + 0.15;
  for (int i = 0; i < 8; ++i) {
    double const angle = i * CV_PI / 4.0;
    if (std::abs(sim::distanceToPart(x + radius * (std::cos(angle) * across + std::sin(angle) * along))) >
        sag) {
      return false;
    }
  }
  return true;
}

} // namespace vorn::test
