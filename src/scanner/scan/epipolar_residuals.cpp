// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/scan/epipolar_residuals.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <vorn/mv/geometry/transform.hpp>

#include "core/parallel.hpp"

namespace vorn::mv {

namespace {

/// The ray of a projector's point, between those of its pixels.
class ProjectorRays {
public:
  explicit ProjectorRays(cv::Mat_<cv::Vec2f> const& map) : map_(map) {}

  bool holds(float column, float row) const {
    return column >= 0.0F && row >= 0.0F && column <= static_cast<float>(map_.cols - 1) &&
           row <= static_cast<float>(map_.rows - 1);
  }

  cv::Vec2f at(float column, float row) const {
    int const x = std::min(static_cast<int>(column), map_.cols - 2);
    int const y = std::min(static_cast<int>(row), map_.rows - 2);
    float const u = column - static_cast<float>(x);
    float const v = row - static_cast<float>(y);
    cv::Vec2f const above = (1.0F - u) * map_(y, x) + u * map_(y, x + 1);
    cv::Vec2f const below = (1.0F - u) * map_(y + 1, x) + u * map_(y + 1, x + 1);
    return (1.0F - v) * above + v * below;
  }

private:
  cv::Mat_<cv::Vec2f> const& map_;
};

} // namespace

EpipolarResiduals epipolarResiduals(sl::TriangulationSetup const& setup, cv::Matx33d const& projectorMatrix,
                                    ProjectorMaps const& maps, Progress const& progress) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  bool const hasSigma = !maps.sigmaColumn.empty() && !maps.sigmaRow.empty();
  EpipolarResiduals out;
  out.distance.create(maps.column.size());
  out.distance.setTo(nan);
  if (hasSigma) {
    out.sigma.create(maps.column.size());
    out.sigma.setTo(nan);
  }
  cv::Matx33d const projFromCam = math::getR3(setup.camFromProj).t();
  cv::Vec3d const base = math::getT3(setup.camFromProj);
  ProjectorRays const rays(setup.projectorMap);
  auto const residualAt = [&](int y, int x) {
    float const column = maps.column(y, x);
    float const row = maps.row(y, x);
    if (!rays.holds(column, row)) {
      return;
    }
    cv::Vec2f const camera = setup.cameraMap(y, x);
    // The plane of the base and the pixel's ray, whose trace in the projector's image is the line.
    cv::Vec3d const normal =
        projFromCam *
        cv::Vec3d(static_cast<double>(camera[0]), static_cast<double>(camera[1]), 1.0).cross(base);
    double const acrossX = normal[0] / projectorMatrix(0, 0);
    double const acrossY = normal[1] / projectorMatrix(1, 1);
    double const length = std::hypot(acrossX, acrossY);
    cv::Vec2f const ray = rays.at(column, row);
    double const distance =
        (normal[0] * static_cast<double>(ray[0]) + normal[1] * static_cast<double>(ray[1]) + normal[2]) /
        length;
    out.distance(y, x) = std::isfinite(distance) ? static_cast<float>(distance) : nan;
    if (hasSigma) {
      out.sigma(y, x) = static_cast<float>(std::hypot(acrossX * static_cast<double>(maps.sigmaColumn(y, x)),
                                                      acrossY * static_cast<double>(maps.sigmaRow(y, x))) /
                                           length);
    }
  };
  constexpr int bandRows = 64;
  parallelRows(maps.column.rows, bandRows, progress, "comparing coordinates", [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      for (int x = 0; x < maps.column.cols; ++x) {
        residualAt(y, x);
      }
    }
  });
  return out;
}

} // namespace vorn::mv
