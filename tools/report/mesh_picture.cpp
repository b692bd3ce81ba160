// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/mesh_picture.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>

namespace vorn::tools {

namespace {

/// The nearest surface in each pixel.
class Canvas {
public:
  Canvas(cv::Size const& size, cv::Vec3b const& ground)
      : picture_(size, ground), depths_(size, std::numeric_limits<double>::max()) {}

  /// @param corners pixels and depth
  void add(cv::Vec3d const (&corners)[3], cv::Vec3d const (&colors)[3]) {
    auto const cross = [](cv::Vec3d const& a, cv::Vec3d const& b, cv::Vec3d const& c) {
      return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
    };
    double const whole = cross(corners[0], corners[1], corners[2]);
    if (whole == 0.0) {
      return;
    }
    auto const [left, right] = std::minmax({corners[0][0], corners[1][0], corners[2][0]});
    auto const [top, bottom] = std::minmax({corners[0][1], corners[1][1], corners[2][1]});
    for (int y = std::max(0, cvCeil(top)); y <= std::min(depths_.rows - 1, cvFloor(bottom)); ++y) {
      for (int x = std::max(0, cvCeil(left)); x <= std::min(depths_.cols - 1, cvFloor(right)); ++x) {
        cv::Vec3d const pixel(x, y, 0.0);
        double const a = cross(pixel, corners[1], corners[2]) / whole;
        double const b = cross(pixel, corners[2], corners[0]) / whole;
        double const c = 1.0 - a - b;
        double const depth = a * corners[0][2] + b * corners[1][2] + c * corners[2][2];
        if (a >= 0.0 && b >= 0.0 && c >= 0.0 && depth < depths_(y, x)) {
          depths_(y, x) = depth;
          picture_(y, x) = cv::Vec3b(colors[0] * a + colors[1] * b + colors[2] * c);
        }
      }
    }
  }

  cv::Mat_<cv::Vec3b> const& picture() const { return picture_; }

private:
  cv::Mat_<cv::Vec3b> picture_;
  cv::Mat_<double> depths_;
};

} // namespace

cv::Mat_<cv::Vec3b> picturedMesh(mv::SurfaceMesh const& mesh, cv::Matx44d const& eyeFromMesh,
                                 std::vector<cv::Vec3b> const& colors, cv::Vec3b const& ground, int width) {
  cv::Matx33d const rotation = eyeFromMesh.get_minor<3, 3>(0, 0);
  std::vector<cv::Vec3d> places;
  cv::Vec3d low = cv::Vec3d::all(std::numeric_limits<double>::max());
  cv::Vec3d high = -low;
  for (cv::Vec3f const& vertex : mesh.vertices) {
    places.push_back(rotation * cv::Vec3d(vertex));
    for (int i = 0; i < 3; ++i) {
      low[i] = std::min(low[i], places.back()[i]);
      high[i] = std::max(high[i], places.back()[i]);
    }
  }
  constexpr double margin = 0.05;
  double const step = (high[0] - low[0]) * (1.0 + 2.0 * margin) / width;
  cv::Vec3d const corner = low - (high - low) * margin;
  Canvas canvas({width, static_cast<int>((high[1] - low[1]) * (1.0 + 2.0 * margin) / step) + 1}, ground);
  for (cv::Vec3i const& triangle : mesh.triangles) {
    cv::Vec3d corners[3];
    cv::Vec3d shades[3];
    for (int i = 0; i < 3; ++i) {
      auto const vertex = static_cast<std::size_t>(triangle[i]);
      cv::Vec3d const& place = places[vertex];
      corners[i] = {(place[0] - corner[0]) / step, (place[1] - corner[1]) / step, place[2]};
      double const facing = std::abs((rotation * cv::Vec3d(mesh.normals[vertex]))[2]);
      constexpr double least = 0.35;
      shades[i] = cv::Vec3d(colors[vertex]) * (least + (1.0 - least) * std::min(facing, 1.0));
    }
    canvas.add(corners, shades);
  }
  return canvas.picture();
}

} // namespace vorn::tools
