// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/texture/mesh_view.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>

#include "calib/undistortion.hpp"
#include "core/median.hpp"

namespace vorn::mv {

namespace {

constexpr float farAway = std::numeric_limits<float>::max();

/// The vertices of a mesh in a camera's frame and image.
struct Projected {
  std::vector<cv::Vec3f> places;
  std::vector<cv::Point2f> pixels;
};

Projected projected(SurfaceMesh const& mesh, TextureView const& view) {
  Projected result;
  std::vector<cv::Point3f> ahead;
  std::vector<std::size_t> numbers;
  double const widest = validRadius(cameraNumbers(view.camera.getK(), view.camera.getD()).lens);
  constexpr float none = std::numeric_limits<float>::quiet_NaN();
  result.pixels.assign(mesh.vertices.size(), {none, none});
  for (cv::Vec3f const& vertex : mesh.vertices) {
    cv::Vec4d const moved = view.viewFromMesh * cv::Vec4d(vertex[0], vertex[1], vertex[2], 1.0);
    result.places.emplace_back(cv::Vec3d(moved[0], moved[1], moved[2]));
    if (moved[2] > 0.0 && std::hypot(moved[0], moved[1]) <= widest * moved[2]) {
      ahead.emplace_back(result.places.back());
      numbers.push_back(result.places.size() - 1);
    }
  }
  if (!ahead.empty()) {
    std::vector<cv::Point2f> const pixels = view.camera.calcImagePoints(ahead, cv::Matx44d::eye());
    for (std::size_t i = 0; i < pixels.size(); ++i) {
      result.pixels[numbers[i]] = pixels[i];
    }
  }
  return result;
}

float crossOf(cv::Point2f const& a, cv::Point2f const& b, cv::Point2f const& c) {
  return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

/// The nearest depth in each pixel.
class DepthMap {
public:
  explicit DepthMap(cv::Size const& size) : depths_(size, farAway) {}

  void add(cv::Point2f const (&at)[3], float const (&depth)[3]) {
    float const whole = crossOf(at[0], at[1], at[2]);
    if (!(std::abs(whole) > 0.0F)) {
      return;
    }
    auto const [left, right] = std::minmax({at[0].x, at[1].x, at[2].x});
    auto const [top, bottom] = std::minmax({at[0].y, at[1].y, at[2].y});
    // As far as half a pixel beyond, so that no gap is between triangles that are smaller than pixels.
    cv::Range const rows = between(top, bottom, depths_.rows);
    cv::Range const columns = between(left, right, depths_.cols);
    for (int y = rows.start; y < rows.end; ++y) {
      for (int x = columns.start; x < columns.end; ++x) {
        cv::Point2f const pixel(std::clamp(static_cast<float>(x), left, right),
                                std::clamp(static_cast<float>(y), top, bottom));
        float const a = crossOf(pixel, at[1], at[2]) / whole;
        float const b = crossOf(pixel, at[2], at[0]) / whole;
        float const c = 1.0F - a - b;
        constexpr float slack = -0.01F;
        if (a >= slack && b >= slack && c >= slack) {
          lower(x, y, a * depth[0] + b * depth[1] + c * depth[2]);
        }
      }
    }
  }

  void addDisc(cv::Point2f const& at, float radius, float depth) {
    cv::Range const rows = between(at.y - radius, at.y + radius, depths_.rows);
    cv::Range const columns = between(at.x - radius, at.x + radius, depths_.cols);
    for (int y = rows.start; y < rows.end; ++y) {
      for (int x = columns.start; x < columns.end; ++x) {
        lower(x, y, depth);
      }
    }
  }

  bool hides(cv::Point2f const& at, float depth) const {
    int const x = cvRound(at.x);
    int const y = cvRound(at.y);
    return depths_(y, x) < depth;
  }

private:
  /// The pixels of `size` from one place to another, which may lie far outside.
  static cv::Range between(float low, float high, int size) {
    auto const most = static_cast<float>(size);
    int const first = std::max(0, cvRound(std::clamp(low, -1.0F, most)));
    int const last = std::min(size - 1, cvRound(std::clamp(high, -1.0F, most)));
    return {first, std::max(first, last + 1)};
  }

  void lower(int x, int y, float depth) { depths_(y, x) = std::min(depths_(y, x), depth); }

  cv::Mat_<float> depths_;
};

DepthMap depthsOf(SurfaceMesh const& mesh, Projected const& seen, cv::Size const& size) {
  DepthMap depths(size);
  for (cv::Vec3i const& triangle : mesh.triangles) {
    cv::Point2f at[3];
    float depth[3];
    for (int i = 0; i < 3; ++i) {
      at[i] = seen.pixels[static_cast<std::size_t>(triangle[i])];
      depth[i] = seen.places[static_cast<std::size_t>(triangle[i])][2];
    }
    if (!(std::isnan(at[0].x) || std::isnan(at[1].x) || std::isnan(at[2].x))) {
      depths.add(at, depth);
    }
  }
  return depths;
}

} // namespace

double usualEdge(SurfaceMesh const& mesh) {
  std::vector<float> lengths;
  std::size_t const stride = std::max<std::size_t>(1, mesh.triangles.size() / 10000);
  for (std::size_t i = 0; i < mesh.triangles.size(); i += stride) {
    cv::Vec3i const& triangle = mesh.triangles[i];
    lengths.push_back(static_cast<float>(cv::norm(mesh.vertices[static_cast<std::size_t>(triangle[0])] -
                                                  mesh.vertices[static_cast<std::size_t>(triangle[1])])));
  }
  if (lengths.empty()) {
    std::size_t const step = std::max<std::size_t>(1, mesh.vertices.size() / 100);
    for (std::size_t i = 0; i < mesh.vertices.size(); i += step) {
      float nearest = farAway;
      for (std::size_t other = 0; other < mesh.vertices.size(); ++other) {
        cv::Vec3f const apart = mesh.vertices[other] - mesh.vertices[i];
        nearest = other == i ? nearest : std::min(nearest, apart.dot(apart));
      }
      lengths.push_back(std::sqrt(nearest));
    }
  }
  return static_cast<double>(medianAmong(lengths));
}

MeshView meshViewOf(SurfaceMesh const& mesh, TextureView const& view, double maxViewAngle,
                    double depthTolerance) {
  Projected seen = projected(mesh, view);
  cv::Size const size = view.image.size();
  DepthMap depths = depthsOf(mesh, seen, size);
  auto const focal = static_cast<float>(view.camera.getK().at<double>(0, 0));
  if (mesh.triangles.empty()) {
    auto const edge = static_cast<float>(usualEdge(mesh));
    for (std::size_t i = 0; i < seen.places.size(); ++i) {
      float const depth = seen.places[i][2];
      if (!std::isnan(seen.pixels[i].x)) {
        depths.addDisc(seen.pixels[i], edge * focal / depth, depth);
      }
    }
  }
  MeshView result;
  cv::Matx33d const rotation = view.viewFromMesh.get_minor<3, 3>(0, 0);
  auto const least = static_cast<float>(std::cos(maxViewAngle * CV_PI / 180.0));
  for (std::size_t i = 0; i < seen.places.size(); ++i) {
    cv::Vec3f const& place = seen.places[i];
    cv::Point2f const& at = seen.pixels[i];
    cv::Vec3f const normal(rotation * cv::Vec3d(mesh.normals[i]));
    float const cosine = -normal.dot(place) / std::max(std::sqrt(place.dot(place)), 1e-20F);
    bool const isInside = at.x >= 0.0F && at.y >= 0.0F && at.x <= static_cast<float>(size.width - 1) &&
                          at.y <= static_cast<float>(size.height - 1);
    bool const isSeen =
        isInside && cosine > least && !depths.hides(at, place[2] - static_cast<float>(depthTolerance));
    float const pixelsPerLength = focal / place[2];
    result.cosines.push_back(isSeen ? cosine : 0.0F);
    result.weights.push_back(isSeen ? cosine * cosine * pixelsPerLength * pixelsPerLength : 0.0F);
    result.depths.push_back(place[2]);
  }
  for (cv::Vec3i const& triangle : mesh.triangles) {
    cv::Point2f at[3];
    bool isSeen = true;
    for (int i = 0; i < 3; ++i) {
      at[i] = seen.pixels[static_cast<std::size_t>(triangle[i])];
      isSeen = isSeen && result.cosines[static_cast<std::size_t>(triangle[i])] > 0.0F;
    }
    result.areas.push_back(isSeen ? 0.5F * std::abs(crossOf(at[0], at[1], at[2])) : 0.0F);
  }
  result.pixels = std::move(seen.pixels);
  return result;
}

} // namespace vorn::mv
