// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/mesh.hpp>

#include <algorithm>
#include <cmath>
#include <string>

#include "core/error.hpp"
#include "core/progress.hpp"
#include "pointcloud/grid_steps.hpp"
#include "pointcloud/point_access.hpp"
#include "surface/mesh_points.hpp"

namespace vorn::mv {

namespace {

constexpr int noVertex = -1;
constexpr int rowsPerBand = 64;

void checkSettings(MeshSettings const& settings) {
  if (!(settings.maxEdge >= 0.0F)) {
    throw error("maxEdge is " + std::to_string(settings.maxEdge) + ", not at least 0", "meshOf");
  }
  if (!(settings.maxViewAngle > 0.0 && settings.maxViewAngle <= 90.0)) {
    throw error("maxViewAngle is " + std::to_string(settings.maxViewAngle) + ", not above 0 .. 90", "meshOf");
  }
}

/// Joins the cells of a grid; triangles hold cell numbers, row, right and down being the order of corners.
class GridJoiner {
public:
  GridJoiner(PointCloud const& cloud, MeshSettings const& settings)
      : points_(cloud.points()), state_(cloud.state()),
        steps_(gridStepsOf(points_, state_, settings.maxEdge)),
        diagonal_(settings.maxEdge > 0.0F ? settings.maxEdge
                                          : std::hypot(steps_.alongRow, steps_.alongColumn)),
        view_(settings.viewpoint.x, settings.viewpoint.y, settings.viewpoint.z),
        leastCosine_(std::cos(settings.maxViewAngle * CV_PI / 180.0)) {}

  void joinRow(int row) {
    for (int column = 0; column + 1 < points_.cols; ++column) {
      cv::Point const corners[4] = {
          {column, row}, {column + 1, row}, {column + 1, row + 1}, {column, row + 1}};
      bool present[4];
      int count = 0;
      for (int i = 0; i < 4; ++i) {
        present[i] = state_(corners[i]) == 0 && isFinite(points_(corners[i]).val);
        count += present[i] ? 1 : 0;
      }
      if (count == 4) {
        int const first = squareOf(corners[0], corners[2]) <= squareOf(corners[1], corners[3]) ? 0 : 1;
        add(corners[first], corners[first + 1], corners[first + 2]);
        add(corners[first], corners[first + 2], corners[(first + 3) % 4]);
      } else if (count == 3) {
        int const missing = static_cast<int>(std::find(present, present + 4, false) - present);
        add(corners[(missing + 1) % 4], corners[(missing + 2) % 4], corners[(missing + 3) % 4]);
      }
    }
  }

  /// The triangles, facing the viewpoint.
  std::vector<cv::Vec3i> finish() {
    if (facing_ < 0.0) {
      for (cv::Vec3i& triangle : triangles_) {
        std::swap(triangle[1], triangle[2]);
      }
    }
    return std::move(triangles_);
  }

private:
  float squareOf(cv::Point const& a, cv::Point const& b) const {
    cv::Vec3f const difference = points_(b) - points_(a);
    return difference.dot(difference);
  }

  bool isEdge(cv::Point const& a, cv::Point const& b) const {
    float const limit = a.y == b.y ? steps_.alongRow : (a.x == b.x ? steps_.alongColumn : diagonal_);
    float const square = squareOf(a, b);
    return square > 0.0F && square <= limit * limit;
  }

  void add(cv::Point const& a, cv::Point const& b, cv::Point const& c) {
    if (!isEdge(a, b) || !isEdge(b, c) || !isEdge(c, a)) {
      return;
    }
    cv::Vec3d const origin(points_(a));
    cv::Vec3d const normal = (cv::Vec3d(points_(b)) - origin).cross(cv::Vec3d(points_(c)) - origin);
    cv::Vec3d const toView = view_ - origin;
    double const side = normal.dot(toView);
    // Not above: a triangle without area has no angle.
    if (!(std::abs(side) > leastCosine_ * std::sqrt(normal.dot(normal) * toView.dot(toView)))) {
      return;
    }
    facing_ += side > 0.0 ? 1.0 : -1.0;
    triangles_.emplace_back(cellOf(a), cellOf(b), cellOf(c));
  }

  int cellOf(cv::Point const& cell) const { return cell.y * points_.cols + cell.x; }

  cv::Mat_<cv::Vec3f> points_;
  cv::Mat_<uchar> state_;
  GridSteps steps_;
  float diagonal_;
  cv::Vec3d view_;
  double leastCosine_;
  double facing_ = 0.0;
  std::vector<cv::Vec3i> triangles_;
};

/// Numbers the vertices that triangles use and takes what the cloud knows of them.
void takeVertices(PointCloud const& cloud, SurfaceMesh& mesh) {
  std::vector<int> vertexOf(cloud.pointCount(), noVertex);
  for (cv::Vec3i const& triangle : mesh.triangles) {
    for (int const cell : triangle.val) {
      vertexOf[static_cast<std::size_t>(cell)] = 0;
    }
  }
  for (std::size_t cell = 0; cell < vertexOf.size(); ++cell) {
    if (vertexOf[cell] == noVertex) {
      continue;
    }
    vertexOf[cell] = static_cast<int>(mesh.vertices.size());
    cv::Point const at(static_cast<int>(cell) % cloud.points().cols,
                       static_cast<int>(cell) / cloud.points().cols);
    mesh.vertices.push_back(cloud.points()(at));
    mesh.cells.push_back(static_cast<unsigned>(cell));
    if (cloud.hasNormals()) {
      mesh.normals.push_back(cloud.normals()(at));
    }
    if (cloud.hasTexture()) {
      mesh.colors.push_back(cloud.texture()(at));
    }
  }
  for (cv::Vec3i& triangle : mesh.triangles) {
    for (int& corner : triangle.val) {
      corner = vertexOf[static_cast<std::size_t>(corner)];
    }
  }
}

} // namespace

SurfaceMesh meshOf(PointCloud const& cloud, MeshSettings const& settings, Observer* observer) {
  checkSettings(settings);
  cloud.checkSizes();
  Progress const progress(observer);
  if (!cloud.isOrganized() || !cloud.isContinous()) {
    return meshOfPoints(cloud, settings, progress);
  }
  GridJoiner joiner(cloud, settings);
  for (int row = 0; row + 1 < cloud.points().rows; ++row) {
    if (row % rowsPerBand == 0) {
      progress.at("mesh", static_cast<double>(row) / cloud.points().rows);
    }
    joiner.joinRow(row);
  }
  SurfaceMesh mesh;
  mesh.triangles = joiner.finish();
  if (mesh.triangles.empty()) {
    throw error("No three neighbours of the " + std::to_string(cloud.presentCount()) +
                    " present points can be joined",
                "meshOf");
  }
  takeVertices(cloud, mesh);
  if (mesh.normals.empty()) {
    mesh.normals = vertexNormalsOf(mesh);
  }
  return mesh;
}

graphic::GraphicObject graphicObjectOf(SurfaceMesh const& mesh) {
  graphic::GraphicObject object;
  object.vertices() = mesh.vertices;
  object.normals() = mesh.normals;
  object.triangles() = mesh.triangles;
  object.colors().reserve(mesh.colors.size());
  for (cv::Vec3b const& color : mesh.colors) {
    // Files and graphic objects hold red, green, blue.
    object.colors().emplace_back(color[2], color[1], color[0], uchar{255});
  }
  return object;
}

} // namespace vorn::mv
