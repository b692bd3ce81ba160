// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surface/fusion/view_surfaces.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <string>
#include <utility>

#include "core/error.hpp"
#include "core/median.hpp"
#include "geometry/rigid_motion.hpp"
#include "pointcloud/list_spacing.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

/// Seen flatter than this, a view's error is no longer that of its noise turned into the normal.
constexpr double leastCosine = 0.3;
/// No view is more exact than this share of its spacing: its triangles are not.
constexpr double leastSigmaOverSpacing = 1e-4;

Exception viewError(std::size_t view, std::string const& reason) {
  return error("View " + std::to_string(view) + " " + reason, "fuse");
}

void checkRigid(cv::Matx44d const& transform, std::size_t view) {
  constexpr double tolerance = 1e-4;
  if (!isRigidMotion(transform, tolerance)) {
    throw viewError(view, "has a transform that is no rigid motion");
  }
}

/// The cloud with normals, and how its points scatter about their neighbours' planes.
PointCloud withNormals(PointCloud const& cloud, cv::Mat_<float>& scatter, bool wantsScatter) {
  PointCloud copy = cloud;
  if (cloud.hasNormals() && !wantsScatter) {
    return copy;
  }
  NormalSettings settings;
  constexpr int window = 3; // edges shall bend normals no farther away than this
  settings.windowRadius = window;
  settings.orientation = NormalOrientation::TowardsViewpoint;
  settings.figures = wantsScatter ? NormalFigures::FitAndCurvature : NormalFigures::None;
  cv::Mat_<cv::Vec3f> const own = copy.normals();
  copy.normals().release();
  scatter = copy.calcNormals(settings).fitError;
  if (cloud.hasNormals()) {
    copy.normals() = own;
  }
  return copy;
}

struct Bounds {
  cv::Vec3d low = cv::Vec3d::all(std::numeric_limits<double>::max());
  cv::Vec3d high = cv::Vec3d::all(std::numeric_limits<double>::lowest());
};

/// The cloud's pending transform, to places relative to `offset`.
cv::Matx44d motionOf(PointCloud const& cloud, cv::Vec3d const& offset) {
  cv::Matx44d motion = cloud.getTransform();
  for (int axis = 0; axis < 3; ++axis) {
    motion(axis, 3) += cloud.offset()[axis] - offset[axis];
  }
  return motion;
}

void addBounds(PointCloud const& cloud, cv::Vec3d const& offset, Bounds& bounds) {
  cv::Matx44d const transform = motionOf(cloud, offset);
  for (int row = 0; row < cloud.points().rows; ++row) {
    for (int column = 0; column < cloud.points().cols; ++column) {
      cv::Vec3f const& p = cloud.points()(row, column);
      if (cloud.state()(row, column) != 0 || !isFinite(p.val)) {
        continue;
      }
      cv::Vec4d const moved = transform * cv::Vec4d(p[0], p[1], p[2], 1.0);
      for (int i = 0; i < 3; ++i) {
        bounds.low[i] = std::min(bounds.low[i], moved[i]);
        bounds.high[i] = std::max(bounds.high[i], moved[i]);
      }
    }
  }
}

/// The standard deviations along the line of sight of the points, and their median.
cv::Mat_<float> sightSigmas(PointCloud const& cloud, cv::Mat_<float> const& scatter, std::size_t view,
                            double& median) {
  auto const given = cloud.fields().find("sigma");
  bool const isGiven = given != cloud.fields().end();
  cv::Mat_<float> const& values = isGiven ? given->second : scatter;
  std::vector<float> all;
  for (int row = 0; row < values.rows; ++row) {
    for (int column = 0; column < values.cols; ++column) {
      float const value = values(row, column);
      bool const isPresent = cloud.state()(row, column) == 0 && isFinite(cloud.points()(row, column).val);
      if (isGiven && isPresent && !(value > 0.0F && std::isfinite(value))) {
        throw viewError(view, "has a sigma of " + std::to_string(value) + " at row " + std::to_string(row) +
                                  ", column " + std::to_string(column));
      }
      if (isPresent && std::isfinite(value)) {
        all.push_back(value);
      }
    }
  }
  auto const middle = medianAmong(all);
  median = static_cast<double>(middle);
  if (isGiven) {
    return values;
  }
  // Of scatter alone it cannot be told where it is noise and where shape.
  cv::Mat_<float> bounded(values.size());
  std::transform(values.begin(), values.end(), bounded.begin(), [&](float value) {
    return std::isfinite(value) ? std::clamp(value, 0.5F * middle, 2.0F * middle) : middle;
  });
  return bounded;
}

/// Moves the points with a normal to the common frame.
void moveInto(ViewSurface& surface, PointCloud const& cloud, cv::Mat_<float> const& sigmas,
              cv::Matx44d const& commonFromView) {
  constexpr float absent = std::numeric_limits<float>::quiet_NaN();
  cv::Size const size = cloud.points().size();
  surface.points = cv::Mat_<cv::Vec3f>(size, cv::Vec3f::all(absent));
  surface.normals = cv::Mat_<cv::Vec3f>(size, cv::Vec3f());
  surface.sigmas = cv::Mat_<float>(size, 0.0F);
  cv::Matx33d const rotation = commonFromView.get_minor<3, 3>(0, 0);
  constexpr auto rounding = static_cast<double>(std::numeric_limits<float>::epsilon()) / 2.0;
  auto const spacing = static_cast<double>(surface.spacing);
  parallelRows(size.height, [&](int begin, int end) {
    for (int row = begin; row < end; ++row) {
      for (int column = 0; column < size.width; ++column) {
        cv::Vec3f const& p = cloud.points()(row, column);
        cv::Vec3d const normal(cloud.normals()(row, column));
        double const length = std::sqrt(normal.dot(normal));
        if (cloud.state()(row, column) != 0 || !isFinite(p.val) || !(length > 0.5)) {
          continue;
        }
        cv::Vec3d const sight(p);
        double const distance = cv::norm(sight);
        double const cosine = std::abs(normal.dot(sight)) / (length * std::max(distance, 1e-30));
        cv::Vec4d const moved = commonFromView * cv::Vec4d(p[0], p[1], p[2], 1.0);
        surface.points(row, column) = cv::Vec3f(cv::Vec3d(moved[0], moved[1], moved[2]));
        surface.normals(row, column) = cv::Vec3f(rotation * (normal * (1.0 / length)));
        // A view without noise is still rounded, and weights of 1 / 0 would be no numbers.
        double const least = std::max(rounding * distance, leastSigmaOverSpacing * spacing);
        double const sigma = static_cast<double>(sigmas(row, column)) * std::max(cosine, leastCosine);
        surface.sigmas(row, column) = static_cast<float>(std::max(sigma, least));
      }
    }
  });
}

} // namespace

ViewSurfaces viewSurfacesOf(std::vector<PointCloud> const& clouds, Progress const& progress) {
  ViewSurfaces all;
  Bounds bounds;
  for (std::size_t i = 0; i < clouds.size(); ++i) {
    clouds[i].checkSizes();
    checkRigid(clouds[i].getTransform(), i);
    addBounds(clouds[i], clouds[0].offset(), bounds);
  }
  all.origin = (bounds.low + bounds.high) * 0.5;
  for (std::size_t i = 0; i < clouds.size(); ++i) {
    progress.at("views", static_cast<double>(i) / static_cast<double>(clouds.size()));
    ViewSurface surface;
    cv::Mat_<float> scatter;
    bool const hasSigma = clouds[i].fields().count("sigma") != 0;
    PointCloud cloud = withNormals(clouds[i], scatter, !hasSigma);
    surface.isGrid = cloud.isOrganized() && cloud.isContinous();
    surface.spacing =
        surface.isGrid ? gridSpacingOf(std::as_const(cloud).points(), cloud.state()) : listSpacingOf(cloud);
    if (!(surface.spacing > 0.0F)) {
      throw viewError(i, "has fewer than three distinct points: " + std::to_string(cloud.presentCount()) +
                             " are present");
    }
    surface.pitch = surface.isGrid ? surface.spacing : std::max(surface.spacing, listPitchOf(cloud));
    surface.steps = gridStepsOf(std::as_const(cloud).points(), cloud.state(), 0.0F);
    cv::Matx44d commonFromView = motionOf(cloud, clouds[0].offset());
    for (int axis = 0; axis < 3; ++axis) {
      commonFromView(axis, 3) -= all.origin[axis];
    }
    surface.viewFromCommon = commonFromView.inv();
    cv::Mat_<float> const sigmas = sightSigmas(cloud, scatter, i, surface.medianSigma);
    moveInto(surface, cloud, sigmas, commonFromView);
    surface.texture = cloud.texture();
    all.views.push_back(std::move(surface));
  }
  return all;
}

} // namespace vorn::mv
