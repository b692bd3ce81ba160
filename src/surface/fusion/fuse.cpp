// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/fuse.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "core/error.hpp"
#include "core/progress.hpp"
#include "pointcloud/point_access.hpp"
#include "pointcloud/sensor_frame.hpp"
#include "pointcloud/sight_map.hpp"
#include "surface/fusion/skins.hpp"
#include "surface/fusion/view_surfaces.hpp"
#include "surface/mesh_gaps.hpp"
#include "surface/point_triangulation.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "fuse";

void checkSettings(std::vector<PointCloud> const& views, FuseSettings const& settings) {
  constexpr std::size_t mostViews = 255;
  if (views.empty() || views.size() > mostViews) {
    throw error("There are " + std::to_string(views.size()) + " views, not 1 .. 255", function);
  }
  for (std::size_t i = 0; i < views.size(); ++i) {
    requireSensorFrame(views[i], i, function);
  }
  std::pair<char const*, double> const lengths[] = {{"spacing", settings.spacing},
                                                    {"reach", settings.reach},
                                                    {"maxEdge", settings.maxEdge},
                                                    {"closeHoles", settings.closeHoles}};
  for (auto const& [name, length] : lengths) {
    if (!(length >= 0.0) || !std::isfinite(length)) {
      throw error(std::string(name) + " is " + std::to_string(length) + ", not a number of at least 0",
                  function);
    }
  }
  if (!(settings.maxNormalAngle > 0.0 && settings.maxNormalAngle <= 90.0)) {
    throw error("maxNormalAngle is " + std::to_string(settings.maxNormalAngle) + ", not above 0 .. 90",
                function);
  }
}

SkinLimits limitsOf(ViewSurfaces const& all, FuseSettings const& settings) {
  SkinLimits limits;
  double sigma = 0.0;
  limits.spacing = all.views[0].spacing;
  for (ViewSurface const& view : all.views) {
    limits.spacing = std::min(limits.spacing, view.spacing);
    sigma = std::max(sigma, view.medianSigma);
  }
  if (settings.spacing > 0.0) {
    limits.spacing = static_cast<float>(settings.spacing);
  }
  constexpr double sigmas = 6.0;
  limits.reach = static_cast<float>(
      settings.reach > 0.0 ? settings.reach
                           : std::max(sigmas * sigma, 0.5 * static_cast<double>(limits.spacing)));
  limits.leastCosine = static_cast<float>(std::cos(settings.maxNormalAngle * CV_PI / 180.0));
  return limits;
}

/// How far points of the result are joined: those of a list spread by chance are farther apart than most of
/// their nearest ones.
double usualEdge(ViewSurfaces const& all, float spacing) {
  constexpr float edgeOverSpacing = 3.0F;
  float pitch = all.views[0].pitch;
  for (ViewSurface const& view : all.views) {
    pitch = std::min(pitch, view.pitch);
  }
  return static_cast<double>(edgeOverSpacing * std::max(spacing, pitch));
}

/// Which cells of each view are outliers: 1, else 0.
std::vector<cv::Mat_<uchar>> outliersOf(ViewSurfaces const& all, SkinLimits const& limits,
                                        Progress const& progress) {
  constexpr double spacings = 3.0;
  double const margin =
      std::max(static_cast<double>(limits.reach), spacings * static_cast<double>(limits.spacing));
  std::vector<SightMap> maps;
  for (ViewSurface const& view : all.views) {
    maps.emplace_back(view.points, view.viewFromCommon, static_cast<double>(view.spacing), margin);
  }
  std::vector<cv::Mat_<uchar>> outliers;
  for (std::size_t own = 0; own < all.views.size(); ++own) {
    progress.at("outliers", static_cast<double>(own) / static_cast<double>(all.views.size()));
    cv::Mat_<cv::Vec3f> const& points = all.views[own].points;
    cv::Mat_<uchar> marks(points.size(), uchar{0});
    parallelRows(points.rows, [&](int begin, int end) {
      for (int row = begin; row < end; ++row) {
        for (int column = 0; column < points.cols; ++column) {
          int votes = 0;
          for (std::size_t other = 0; other < maps.size() && isFinite(points(row, column).val); ++other) {
            Sight const sight = other == own ? Sight::Unknown : maps[other].of(points(row, column));
            votes += sight == Sight::SeenThrough ? 1 : sight == Sight::Seen ? -1 : 0;
          }
          marks(row, column) = votes > 0 ? 1 : 0;
        }
      }
    });
    outliers.push_back(std::move(marks));
  }
  return outliers;
}

SkinPoints gather(ViewSurfaces const& all, std::vector<cv::Mat_<uchar>> const& outliers,
                  std::vector<FusedView>& views) {
  SkinPoints points;
  for (std::size_t i = 0; i < all.views.size(); ++i) {
    cv::Mat_<cv::Vec3f> const& places = all.views[i].points;
    views[i].sigma = all.views[i].medianSigma;
    for (int row = 0; row < places.rows; ++row) {
      for (int column = 0; column < places.cols; ++column) {
        if (!isFinite(places(row, column).val)) {
          continue;
        }
        ++views[i].points;
        if (outliers[i](row, column) != 0) {
          ++views[i].outliers;
          continue;
        }
        points.places.push_back(places(row, column));
        points.cells.push_back(static_cast<std::uint32_t>(row * places.cols + column));
        points.views.push_back(static_cast<std::uint8_t>(i));
      }
    }
  }
  return points;
}

void addFigures(std::vector<ViewSums> const& sums, std::vector<FusedView>& views) {
  for (std::size_t i = 0; i < views.size(); ++i) {
    auto const ratio = [](double part, std::size_t of) {
      return of > 0 ? part / static_cast<double>(of) : 0.0;
    };
    views[i].overlap = ratio(static_cast<double>(sums[i].shared), sums[i].seen);
    views[i].apart = ratio(static_cast<double>(sums[i].apart), sums[i].shared + sums[i].apart);
    views[i].offset = ratio(sums[i].offset, sums[i].shared);
    views[i].rms = std::sqrt(ratio(sums[i].squares, sums[i].shared));
  }
}

/// Leaves strays out. The places that they hide have points of those that see them, which stand for places of
/// their own when they are farther away than the reach.
void dropStrays(std::vector<std::uint32_t> const& chosen, SkinPoints const& points,
                std::vector<MergedPoint>& merged, std::vector<FusedView>& views) {
  auto const isStray = [](MergedPoint const& point) { return point.views == 0; };
  for (std::size_t i = 0; i < merged.size(); ++i) {
    views[points.views[chosen[i]]].strays += isStray(merged[i]) ? 1 : 0;
  }
  merged.erase(std::remove_if(merged.begin(), merged.end(), isStray), merged.end());
}

void requireFinite(std::vector<std::uint32_t> const& chosen, SkinPoints const& points,
                   std::vector<MergedPoint> const& merged) {
  for (std::size_t i = 0; i < merged.size(); ++i) {
    if (!isFinite(merged[i].place.val)) {
      throw error("A place of view " + std::to_string(points.views[chosen[i]]) +
                      " is no number once merged: coordinates or sigmas are too large for it",
                  function);
    }
  }
}

PointCloud cloudOf(std::vector<MergedPoint> const& merged, ViewSurfaces const& all) {
  auto const count = static_cast<int>(merged.size());
  cv::Mat_<cv::Vec3f> points(count, 1);
  cv::Mat_<cv::Vec3f> normals(count, 1);
  cv::Mat_<cv::Vec3b> colors;
  cv::Mat_<float> sigmas(count, 1);
  cv::Mat_<float> views(count, 1);
  if (std::none_of(all.views.begin(), all.views.end(),
                   [](ViewSurface const& view) { return view.texture.empty(); })) {
    colors = cv::Mat_<cv::Vec3b>(count, 1);
  }
  for (int i = 0; i < count; ++i) {
    MergedPoint const& point = merged[static_cast<std::size_t>(i)];
    points(i) = cv::Vec3f(cv::Vec3d(point.place) + all.origin);
    normals(i) = point.normal;
    sigmas(i) = point.sigma;
    views(i) = static_cast<float>(point.views);
    if (!colors.empty()) {
      colors(i) = point.color;
    }
  }
  PointCloud cloud(points, false, normals, colors);
  cloud.fields()["sigma"] = sigmas;
  cloud.fields()["views"] = views;
  return cloud;
}

SurfaceMesh meshFrom(PointCloud const& cloud, std::vector<MergedPoint> const& merged, double maxEdge,
                     double closeHoles, Progress const& progress) {
  std::vector<cv::Vec3f> places;
  std::vector<cv::Vec3f> normals;
  for (MergedPoint const& point : merged) {
    places.push_back(point.place);
    normals.push_back(point.normal);
  }
  std::vector<cv::Vec3i> triangles =
      triangulatedPoints(places, normals, static_cast<float>(maxEdge), progress);
  if (triangles.empty()) {
    throw error("No three of the " + std::to_string(merged.size()) + " points can be joined", function);
  }
  if (closeHoles > 0.0) {
    GapLimits limits;
    limits.maxLength = closeHoles;
    fillGaps(places, normals, triangles, limits);
  }
  SurfaceMesh mesh;
  std::vector<int> vertexOf(merged.size(), -1);
  for (cv::Vec3i& triangle : triangles) {
    for (int& corner : triangle.val) {
      int& vertex = vertexOf[static_cast<std::size_t>(corner)];
      if (vertex < 0) {
        vertex = static_cast<int>(mesh.vertices.size());
        mesh.vertices.push_back(cloud.points()(corner));
        mesh.normals.push_back(cloud.normals()(corner));
        mesh.cells.push_back(static_cast<unsigned>(corner));
        if (cloud.hasTexture()) {
          mesh.colors.push_back(cloud.texture()(corner));
        }
      }
      corner = vertex;
    }
  }
  mesh.triangles = std::move(triangles);
  return mesh;
}

} // namespace

Fusion fuse(std::vector<PointCloud> const& views, FuseSettings const& settings, Observer* observer) {
  checkSettings(views, settings);
  Progress const progress(observer);
  ViewSurfaces const all = viewSurfacesOf(views, progress.part(0.0, 0.2));
  SkinLimits const limits = limitsOf(all, settings);
  Fusion result;
  result.spacing = static_cast<double>(limits.spacing);
  result.reach = static_cast<double>(limits.reach);
  result.views.resize(views.size());
  std::vector<MergedPoint> merged;
  {
    SkinPoints const points = gather(all, outliersOf(all, limits, progress.part(0.2, 0.35)), result.views);
    constexpr float cellOverSpacing = 2.0F;
    float const cell = std::max(cellOverSpacing * limits.spacing, limits.reach);
    PointCells const cells(points.places, cell, progress.part(0.35, 0.45));
    std::vector<std::uint32_t> const chosen = thinnedSkins(all, points, cells, limits);
    std::vector<ViewSums> sums;
    merged = mergedSkins(all, points, cells, chosen, limits, sums, progress.part(0.5, 0.75));
    requireFinite(chosen, points, merged);
    addFigures(sums, result.views);
    dropStrays(chosen, points, merged, result.views);
  }
  result.cloud = cloudOf(merged, all);
  result.cloud.setOffset(views[0].offset());
  double const maxEdge = settings.maxEdge > 0.0 ? settings.maxEdge : usualEdge(all, limits.spacing);
  result.mesh = meshFrom(result.cloud, merged, maxEdge, settings.closeHoles, progress.part(0.75, 1.0));
  return result;
}

} // namespace vorn::mv
