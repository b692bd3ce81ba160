// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/texture.hpp>

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <string>
#include <utility>

#include "core/error.hpp"
#include "core/progress.hpp"
#include "geometry/rigid_motion.hpp"
#include "surface/mesh_checks.hpp"
#include "surface/texture/atlas.hpp"
#include "surface/texture/brightness.hpp"
#include "surface/texture/image_color.hpp"
#include "surface/texture/mesh_view.hpp"

namespace vorn::mv {

namespace {

constexpr char const* function = "textureFrom";

Exception viewError(std::size_t view, std::string const& reason) {
  return error("View " + std::to_string(view) + " " + reason, function);
}

std::string textOf(cv::Size const& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

void checkView(TextureView const& view, std::size_t number) {
  if (view.camera.getK().empty()) {
    throw viewError(number, "has a camera without calibration");
  }
  if (view.image.depth() != CV_8U || (view.image.channels() != 1 && view.image.channels() != 3)) {
    throw viewError(number, "has an image that is not of 8 bits with one or three channels");
  }
  if (view.image.size() != view.camera.getResolution()) {
    throw viewError(number, "has an image of " + textOf(view.image.size()) + " by a camera of " +
                                textOf(view.camera.getResolution()));
  }
  constexpr double tolerance = 1e-4;
  if (!isRigidMotion(view.viewFromMesh, tolerance)) {
    throw viewError(number, "has a transform that is no rigid motion");
  }
}

void check(SurfaceMesh const& mesh, std::vector<TextureView> const& views, TextureSettings const& settings) {
  if (views.empty()) {
    throw error("There are no views", function);
  }
  for (std::size_t i = 0; i < views.size(); ++i) {
    checkView(views[i], i);
  }
  if (!(settings.maxViewAngle > 0.0 && settings.maxViewAngle < 90.0)) {
    throw error("maxViewAngle is " + std::to_string(settings.maxViewAngle) + ", not between 0 and 90",
                function);
  }
  if (!(settings.depthTolerance >= 0.0)) {
    throw error("depthTolerance is " + std::to_string(settings.depthTolerance) + ", not at least 0",
                function);
  }
  constexpr int widestMargin = 64;
  if (settings.margin < 0 || settings.margin > widestMargin) {
    throw error("margin is " + std::to_string(settings.margin) + ", not 0 .. 64", function);
  }
  if (mesh.vertices.empty() || mesh.normals.size() != mesh.vertices.size()) {
    throw error("There are " + std::to_string(mesh.normals.size()) + " normals of " +
                    std::to_string(mesh.vertices.size()) + " vertices",
                function);
  }
  checkTriangles(mesh, function);
}

/// @param texture with the gains of the views
void colorVertices(std::vector<TextureView> const& views, std::vector<MeshView> const& seen,
                   std::size_t count, MeshTexture& texture) {
  constexpr uchar grey = 128;
  texture.colors.assign(count, cv::Vec3b::all(grey));
  texture.views.assign(count, 0);
  for (std::size_t i = 0; i < count; ++i) {
    cv::Vec3d sum;
    double weights = 0.0;
    for (std::size_t view = 0; view < views.size(); ++view) {
      auto const weight = static_cast<double>(seen[view].weights[i]);
      if (weight > 0.0) {
        cv::Vec3d const color = colorAt(views[view].image, seen[view].pixels[i]);
        sum += color.mul(texture.gains[view]) * weight;
        weights += weight;
        ++texture.views[i];
      }
    }
    if (weights > 0.0) {
      texture.colors[i] = cv::Vec3b(sum * (1.0 / weights));
    } else {
      ++texture.unseenVertices;
    }
  }
}

} // namespace

MeshTexture textureFrom(SurfaceMesh const& mesh, std::vector<TextureView> const& views,
                        TextureSettings const& settings, Observer* observer) {
  check(mesh, views, settings);
  Progress const progress(observer);
  constexpr double edges = 3.0;
  double const tolerance = settings.depthTolerance > 0.0 ? settings.depthTolerance : edges * usualEdge(mesh);
  std::vector<MeshView> seen;
  for (TextureView const& view : views) {
    progress.at("visibility", 0.7 * static_cast<double>(seen.size()) / static_cast<double>(views.size()));
    seen.push_back(meshViewOf(mesh, view, settings.maxViewAngle, tolerance));
  }
  MeshTexture texture;
  texture.gains.assign(views.size(), cv::Vec3d::all(1.0));
  if (settings.brightness == TextureBrightness::Matched) {
    progress.at("brightness", 0.7);
    BrightnessMatch match = matchBrightness(views, seen);
    texture.gains = std::move(match.gains);
    texture.brightnessSets = match.sets;
  }
  progress.at("colours", 0.75);
  colorVertices(views, seen, mesh.vertices.size(), texture);
  if (texture.unseenVertices == mesh.vertices.size()) {
    throw error("No view sees any of the " + std::to_string(mesh.vertices.size()) + " vertices", function);
  }
  if (mesh.triangles.empty()) {
    return texture;
  }
  progress.at("atlas", 0.8);
  texture.viewOfTriangle = viewsOfTriangles(mesh, seen);
  texture.unseenTriangles =
      static_cast<std::size_t>(std::count(texture.viewOfTriangle.begin(), texture.viewOfTriangle.end(), -1));
  packAtlas(mesh, views, seen, settings, texture);
  return texture;
}

} // namespace vorn::mv
