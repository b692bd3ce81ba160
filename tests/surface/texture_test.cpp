// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/surface/texture.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "support/expect_error.hpp"
#include "surface/sheet_scene.hpp"

namespace vorn::mv {
namespace {

using namespace test;

TEST(Texture, GivesEachPlaceItsColour) {
  SurfaceMesh const mesh = sheet();
  MeshTexture const texture = textureFrom(mesh, twoViews());
  EXPECT_EQ(texture.unseenVertices, 0U);
  constexpr double rounding = 1.5; // grey levels: of the image, of the mean, and of the sine within a pixel
  for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
    cv::Vec3f const& at = mesh.vertices[i];
    ASSERT_LT(farthest(cv::Vec3d(texture.colors[i]), colorOf(at[0], at[1])), rounding);
    ASSERT_EQ(texture.views[i], 2);
  }
  // The atlas, read as other programs read it: bilinear, v upwards.
  for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
    cv::Vec2f place;
    cv::Vec3f at;
    for (int k = 0; k < 3; ++k) {
      place += texture.places[static_cast<std::size_t>(texture.placeTriangles[i][k])] * (1.0F / 3.0F);
      at += mesh.vertices[static_cast<std::size_t>(mesh.triangles[i][k])] * (1.0F / 3.0F);
    }
    cv::Point2f const pixel(place[0] * static_cast<float>(texture.atlas.cols) - 0.5F,
                            (1.0F - place[1]) * static_cast<float>(texture.atlas.rows) - 0.5F);
    cv::Mat color;
    cv::getRectSubPix(texture.atlas, {1, 1}, pixel, color);
    ASSERT_LT(farthest(cv::Vec3d(color.at<cv::Vec3b>(0)), colorOf(at[0], at[1])), 3.0) << "triangle " << i;
  }
}

TEST(Texture, TakesNothingFromHiddenOrTurnedPlaces) {
  // A small sheet before the large one hides its middle.
  SurfaceMesh mesh = sheet();
  std::size_t const behind = mesh.vertices.size();
  SurfaceMesh const front = sheet(-10.0, 5.0);
  for (cv::Vec3i const& triangle : front.triangles) {
    mesh.triangles.push_back(triangle + cv::Vec3i::all(static_cast<int>(behind)));
  }
  mesh.vertices.insert(mesh.vertices.end(), front.vertices.begin(), front.vertices.end());
  mesh.normals.insert(mesh.normals.end(), front.normals.begin(), front.normals.end());
  cv::Matx44d const pose = viewFromMesh(0.0);
  MeshTexture const texture = textureFrom(mesh, {{imageOf(pose), pinhole(), pose}});
  for (std::size_t i = 0; i < behind; ++i) {
    cv::Vec3f const& at = mesh.vertices[i];
    // By similar triangles the sheet 90 before the camera covers 100 / 90 as much of the one behind.
    bool const isHidden = std::abs(at[0]) < 5.0F * 100.0F / 90.0F - 0.3F;
    bool const isFree = std::abs(at[0]) > 5.0F * 100.0F / 90.0F + 0.3F;
    if (isHidden || isFree) {
      ASSERT_EQ(texture.views[i], isFree ? 1 : 0) << at;
    }
  }
  EXPECT_GT(texture.unseenTriangles, 100U);
  SurfaceMesh away = sheet();
  for (cv::Vec3f& normal : away.normals) {
    normal = -normal;
  }
  test::expectError([&] { textureFrom(away, twoViews()); }, "No view sees");
}

// Places of a sheet to the right and to the left of a strip before its middle, at every part of a pixel.
TEST(Texture, HidesAlikeOnBothSides) {
  SurfaceMesh const front = sheet(-10.0, 5.0);
  auto const seenWith = [&](float shift) {
    SurfaceMesh mesh = sheet();
    auto const behind = static_cast<int>(mesh.vertices.size());
    for (cv::Vec3f& vertex : mesh.vertices) {
      vertex[0] += shift;
    }
    for (cv::Vec3i const& triangle : front.triangles) {
      mesh.triangles.push_back(triangle + cv::Vec3i::all(behind));
    }
    mesh.vertices.insert(mesh.vertices.end(), front.vertices.begin(), front.vertices.end());
    mesh.normals.insert(mesh.normals.end(), front.normals.begin(), front.normals.end());
    cv::Matx44d const pose = viewFromMesh(0.0);
    return textureFrom(mesh, {{imageOf(pose), pinhole(), pose}}).views;
  };
  constexpr std::size_t columns = 41;
  for (int i = 0; i < 10; ++i) {
    float const shift = 0.03F + 0.1F * static_cast<float>(i);
    auto const right = seenWith(shift);
    auto const left = seenWith(-shift);
    for (std::size_t k = 0; k < 31 * columns; ++k) {
      std::size_t const mirrored = k / columns * columns + columns - 1 - k % columns;
      ASSERT_EQ(right[k], left[mirrored]) << shift << ", column " << k % columns;
    }
  }
}

TEST(Texture, ColoursPointsWithoutTriangles) {
  SurfaceMesh points = sheet();
  points.triangles.clear();
  MeshTexture const texture = textureFrom(points, twoViews());
  EXPECT_EQ(texture.unseenVertices, 0U);
  EXPECT_TRUE(texture.atlas.empty());
  EXPECT_LT(
      farthest(cv::Vec3d(texture.colors[100]), colorOf(points.vertices[100][0], points.vertices[100][1])),
      2.0);
}

/// A point beside the camera is a disc of millions of pixels, elsewhere.
TEST(Texture, PointsBesideTheCameraHideNothing) {
  SurfaceMesh points = sheet();
  points.triangles.clear();
  points.vertices.emplace_back(5.0F, 0.0F, -99.9999F);
  points.normals.emplace_back(0.0F, 0.0F, -1.0F);
  EXPECT_EQ(textureFrom(points, {twoViews()[0]}).unseenVertices, 1U);
}

/// The polynomial of a lens turns back somewhere, 46 degrees here: what lies farther out is not in the image
/// though the polynomial puts it there.
TEST(Texture, LensesSeeNothingBeyondTheirFold) {
  TextureView view;
  view.image = cv::Mat(height, width, CV_8UC3, cv::Scalar(10, 20, 30));
  view.camera = pinhole();
  nlohmann::json json;
  view.camera.write(json);
  json["D"]["data"][0] = -0.3;
  view.camera.read(json);
  view.viewFromMesh = viewFromMesh(0.0);
  SurfaceMesh mesh = sheet();
  std::size_t const inside = mesh.vertices.size();
  for (int i = 0; i < 20; ++i) { // at 60 degrees
    mesh.vertices.emplace_back(173.0F, static_cast<float>(i - 10), 0.0F);
    mesh.normals.emplace_back(0.0F, 0.0F, -1.0F);
  }
  MeshTexture const texture = textureFrom(mesh, {view});
  EXPECT_EQ(std::count(texture.views.begin() + static_cast<std::ptrdiff_t>(inside), texture.views.end(), 0),
            20);
  EXPECT_EQ(texture.unseenVertices, 20U);
}

TEST(Texture, SaysWhatDoesNotFit) {
  std::vector<TextureView> views = twoViews();
  views[1].image = views[1].image(cv::Rect(0, 0, 100, 100));
  test::expectError([&] { textureFrom(sheet(), views); }, "View 1 has an image of 100 x 100");
  views = twoViews();
  views[0].camera = CameraModel();
  test::expectError([&] { textureFrom(sheet(), views); }, "View 0 has a camera without calibration");
  views = twoViews();
  views[0].viewFromMesh(0, 0) = 3.0;
  test::expectError([&] { textureFrom(sheet(), views); }, "no rigid motion");
  test::expectError([&] { textureFrom(sheet(), {}); }, "no views");
  SurfaceMesh broken = sheet();
  broken.triangles.emplace_back(0, 1, -4);
  test::expectError([&] { textureFrom(broken, twoViews()); }, "vertex -4");
}

} // namespace
} // namespace vorn::mv
