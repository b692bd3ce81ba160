// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/sample_mesh.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iomanip>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "core/error.hpp"
#include "surface/mesh_checks.hpp"

namespace vorn::mv {

namespace {

using Corners = std::array<cv::Vec3d, 3>;

Corners cornersOf(SurfaceMesh const& mesh, cv::Vec3i const& triangle) {
  Corners corners;
  for (int i = 0; i < 3; ++i) {
    corners[static_cast<std::size_t>(i)] = mesh.vertices[static_cast<std::size_t>(triangle[i])];
    if (!std::isfinite(cv::norm(corners[static_cast<std::size_t>(i)]))) {
      throw error("Vertex " + std::to_string(triangle[i]) + " is not finite", "sampleMesh");
    }
  }
  return corners;
}

/// A triangle on its longest edge.
struct Tent {
  cv::Vec3d from;
  cv::Vec3d along;  ///< of length 1
  cv::Vec3d up;     ///< from the edge to the third corner
  double length;    ///< of the edge
  double height;    ///< of the third corner
  double peak;      ///< below which place of the edge it is
  cv::Vec3d normal; ///< of length 1

  /// Of what is above a place of the edge, in heights of the third corner.
  double shareAt(double x) const { return x < peak ? x / peak : (length - x) / (length - peak); }
};

/// None for a triangle without area.
std::optional<Tent> tentOf(Corners const& corners) {
  std::size_t edge = 0;
  double longest = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    double const length = cv::norm(corners[(i + 1) % 3] - corners[i]);
    edge = length > longest ? i : edge;
    longest = std::max(longest, length);
  }
  cv::Vec3d const& from = corners[edge];
  cv::Vec3d const way = corners[(edge + 1) % 3] - from;
  cv::Vec3d const third = corners[(edge + 2) % 3] - from;
  cv::Vec3d const across = way.cross(third);
  double const twiceArea = cv::norm(across);
  if (!(twiceArea > 0.0)) {
    return std::nullopt;
  }
  cv::Vec3d const along = way * (1 / longest);
  double const peak = std::clamp(along.dot(third), 0.0, longest);
  return Tent{
      from, along, third - peak * along, longest, twiceArea / longest, peak, across * (1 / twiceArea)};
}

/// Points and normals in the middles of cells of triangles.
class Sampler {
public:
  explicit Sampler(double longestEdge) : longest_(longestEdge) {}

  void add(Corners const& corners) {
    auto const tent = tentOf(corners);
    if (!tent) {
      return;
    }
    if (tent->length <= longest_) {
      checkRoom(1);
      put((corners[0] + corners[1] + corners[2]) * (1.0 / 3.0), tent->normal);
      return;
    }
    double const cell = longest_ / 2;
    double const columns = std::ceil(tent->length / cell);
    checkRoom(std::max(columns, tent->length / cell * tent->height / cell / 2));
    for (double column = 0.5; column < columns; ++column) {
      double const x = column / columns * tent->length;
      double const share = tent->shareAt(x);
      double const rows = std::max(1.0, std::ceil(share * tent->height / cell));
      checkRoom(rows);
      for (double row = 0.5; row < rows; ++row) {
        put(tent->from + x * tent->along + row / rows * share * tent->up, tent->normal);
      }
    }
  }

  PointCloud cloud() const {
    if (points_.empty()) {
      throw error("The mesh has no triangle with an area", "sampleMesh");
    }
    constexpr bool isCopied = true;
    return PointCloud(cv::Mat_<cv::Vec3f>(points_, isCopied), false, cv::Mat_<cv::Vec3f>(normals_, isCopied));
  }

private:
  void checkRoom(double more) const {
    constexpr double most = 1e8;
    if (static_cast<double>(points_.size()) + more > most) {
      std::ostringstream message;
      message << "With points up to " << longest_ << " apart there would be more than " << std::fixed
              << std::setprecision(0) << most << " points";
      throw error(message.str(), "sampleMesh");
    }
  }

  void put(cv::Vec3d const& point, cv::Vec3d const& normal) {
    points_.emplace_back(point);
    normals_.emplace_back(normal);
  }

  double longest_;
  std::vector<cv::Vec3f> points_;
  std::vector<cv::Vec3f> normals_;
};

} // namespace

PointCloud sampleMesh(SurfaceMesh const& mesh, double longestEdge) {
  if (!(longestEdge > 0.0)) {
    std::ostringstream message;
    message << "longestEdge is " << longestEdge << ", but must be above 0";
    throw error(message.str(), "sampleMesh");
  }
  checkTriangles(mesh, "sampleMesh");
  Sampler sampler(longestEdge);
  for (cv::Vec3i const& triangle : mesh.triangles) {
    sampler.add(cornersOf(mesh, triangle));
  }
  return sampler.cloud();
}

} // namespace vorn::mv
