// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Several cameras that see one mesh: which of them gives a place its colour, and how they are joined.
#include <vorn/mv/surface/texture.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "surface/sheet_scene.hpp"

namespace vorn::mv {
namespace {

using namespace test;

cv::Vec3d const coarseColor(60.0, 80.0, 120.0);
cv::Vec3d const fineColor(160.0, 150.0, 200.0);
constexpr double frontZ = -10.0;
constexpr double frontHalf = 7.0;
constexpr double coarseAngle = -25.0;
constexpr double fineAngle = 20.0;

/// Two cameras, the second with three times the pixels each way, whose images have one colour each.
std::vector<TextureView> plainViews() {
  std::vector<TextureView> views;
  views.push_back(
      {cv::Mat(height, width, CV_8UC3, cv::Scalar(coarseColor[0], coarseColor[1], coarseColor[2])), pinhole(),
       viewFromMesh(coarseAngle)});
  views.push_back(
      {cv::Mat(3 * height, 3 * width, CV_8UC3, cv::Scalar(fineColor[0], fineColor[1], fineColor[2])),
       pinhole(3), viewFromMesh(fineAngle)});
  return views;
}

/// The sheet, and a smaller one before it that hides some of it from each camera.
SurfaceMesh hiddenSheet() {
  SurfaceMesh mesh = sheet();
  auto const behind = static_cast<int>(mesh.vertices.size());
  SurfaceMesh const front = sheet(frontZ, frontHalf);
  for (cv::Vec3i const& triangle : front.triangles) {
    mesh.triangles.push_back(triangle + cv::Vec3i::all(behind));
  }
  mesh.vertices.insert(mesh.vertices.end(), front.vertices.begin(), front.vertices.end());
  mesh.normals.insert(mesh.normals.end(), front.normals.begin(), front.normals.end());
  return mesh;
}

/// How far inside the front sheet's shadow from a camera a place of the sheet behind it lies; below 0
/// outside.
double depthInShadow(cv::Vec3d const& place, cv::Matx44d const& pose) {
  cv::Matx44d const back = pose.inv();
  cv::Vec3d const eye(back(0, 3), back(1, 3), back(2, 3));
  cv::Vec3d const at = place + (eye - place) * (frontZ / eye[2]);
  return std::min(frontHalf - std::abs(at[0]), 15.0 - std::abs(at[1]));
}

/// By how squarely and in how many pixels a camera sees a place of the sheet.
double weightOf(cv::Vec3d const& place, cv::Matx44d const& pose, double pixels) {
  cv::Vec4d const seen = pose * cv::Vec4d(place[0], place[1], place[2], 1.0);
  cv::Vec3d const sight(seen[0], seen[1], seen[2]);
  cv::Vec3d const normal = pose.get_minor<3, 3>(0, 0) * cv::Vec3d(0.0, 0.0, -1.0);
  double const weight = -normal.dot(sight) / cv::norm(sight) * pixels / seen[2];
  return weight * weight;
}

TextureSettings asTaken() {
  TextureSettings settings;
  settings.brightness = TextureBrightness::AsTaken;
  return settings;
}

TEST(TextureOfCameras, PlacesTakeTheColourOfThoseThatSeeThem) {
  SurfaceMesh const mesh = hiddenSheet();
  MeshTexture const texture = textureFrom(mesh, plainViews(), asTaken());
  constexpr double unsure = 0.6; // mm about the edge of a shadow
  std::array<int, 4> counts{};
  for (std::size_t i = 0; i < sheet().vertices.size(); ++i) {
    cv::Vec3d const place(mesh.vertices[i]);
    double const coarse = depthInShadow(place, viewFromMesh(coarseAngle));
    double const fine = depthInShadow(place, viewFromMesh(fineAngle));
    if (std::abs(coarse) < unsure || std::abs(fine) < unsure) {
      continue;
    }
    double const a = coarse < 0.0 ? weightOf(place, viewFromMesh(coarseAngle), focal) : 0.0;
    double const b = fine < 0.0 ? weightOf(place, viewFromMesh(fineAngle), 3.0 * focal) : 0.0;
    ++counts[(a > 0.0 ? 1 : 0) + (b > 0.0 ? 2U : 0U)];
    ASSERT_EQ(texture.views[i], (a > 0.0 ? 1 : 0) + (b > 0.0 ? 1 : 0)) << place;
    cv::Vec3d const wanted =
        a + b > 0.0 ? (coarseColor * a + fineColor * b) * (1.0 / (a + b)) : cv::Vec3d::all(128.0);
    ASSERT_LT(farthest(cv::Vec3d(texture.colors[i]), wanted), 0.6) << place;
  }
  for (int const count : counts) {
    EXPECT_GT(count, 20) << "vertices that neither camera, one, the other, both see";
  }
}

/// What the atlas shows at the middle of a side of a triangle.
cv::Vec3d atSide(MeshTexture const& texture, std::size_t triangle, int from, int to) {
  cv::Vec3i const& corners = texture.placeTriangles[triangle];
  cv::Vec2f const place = (texture.places[static_cast<std::size_t>(corners[from])] +
                           texture.places[static_cast<std::size_t>(corners[to])]) *
                          0.5F;
  cv::Point2f const pixel(place[0] * static_cast<float>(texture.atlas.cols) - 0.5F,
                          (1.0F - place[1]) * static_cast<float>(texture.atlas.rows) - 0.5F);
  cv::Mat color;
  cv::getRectSubPix(texture.atlas, {1, 1}, pixel, color);
  return cv::Vec3d(color.at<cv::Vec3b>(0));
}

/// The largest difference of what two triangles show on the side that they share.
double worstSeam(SurfaceMesh const& mesh, MeshTexture const& texture) {
  double worst = 0.0;
  for (std::size_t i = 0; i < mesh.triangles.size(); ++i) {
    for (std::size_t other = i + 1; other < std::min(i + 90, mesh.triangles.size()); ++other) {
      bool const areSeen = texture.viewOfTriangle[i] >= 0 && texture.viewOfTriangle[other] >= 0;
      for (int k = 0; k < 9 && areSeen; ++k) {
        int const a = k / 3;
        int const b = k % 3;
        if (mesh.triangles[i][a] == mesh.triangles[other][(b + 1) % 3] &&
            mesh.triangles[i][(a + 1) % 3] == mesh.triangles[other][b]) {
          worst = std::max(
              worst, farthest(atSide(texture, i, a, (a + 1) % 3), atSide(texture, other, b, (b + 1) % 3)));
        }
      }
    }
  }
  return worst;
}

TEST(TextureOfCameras, OneFadesIntoTheOtherWhereItsSightEnds) {
  SurfaceMesh const mesh = hiddenSheet();
  TextureSettings settings = asTaken();
  EXPECT_LT(worstSeam(mesh, textureFrom(mesh, plainViews(), settings)), 12.0);
  settings.blend = TextureBlend::Best;
  EXPECT_GT(worstSeam(mesh, textureFrom(mesh, plainViews(), settings)), 50.0);
}

/// Two triangles as large as the image, seen from 40 degrees to either side: both images must be asked at the
/// very place.
TEST(TextureOfCameras, LargeTrianglesAreBlendedInPerspective) {
  SurfaceMesh quad;
  for (int i = 0; i < 4; ++i) {
    quad.vertices.emplace_back(i % 2 == 0 ? -20.0F : 20.0F, i < 2 ? -15.0F : 15.0F, 0.0F);
    quad.normals.emplace_back(0.0F, 0.0F, -1.0F);
  }
  quad.triangles = {{0, 2, 1}, {1, 2, 3}};
  std::vector<TextureView> views;
  for (double const degrees : {-40.0, 38.0}) {
    views.push_back({imageOf(viewFromMesh(degrees)), pinhole(), viewFromMesh(degrees)});
  }
  MeshTexture const texture = textureFrom(quad, views, asTaken());
  for (std::size_t i = 0; i < 2; ++i) {
    auto const view = static_cast<std::size_t>(texture.viewOfTriangle[i]);
    auto const pixelOf = [&](cv::Vec3d const& place) {
      cv::Vec4d const seen = views[view].viewFromMesh * cv::Vec4d(place[0], place[1], place[2], 1.0);
      return cv::Point2d(159.5 + focal * seen[0] / seen[2], 119.5 + focal * seen[1] / seen[2]);
    };
    auto const first = static_cast<std::size_t>(texture.placeTriangles[i][0]);
    cv::Point2d const corner(static_cast<double>(texture.places[first][0]) * texture.atlas.cols - 0.5,
                             (1.0 - static_cast<double>(texture.places[first][1])) * texture.atlas.rows -
                                 0.5);
    auto const cornerOf = [&](int k) {
      return cv::Vec3d(quad.vertices[static_cast<std::size_t>(quad.triangles[i][k])]);
    };
    for (double a = 0.1; a < 0.85; a += 0.1) {
      for (double b = 0.05; a + b < 0.95; b += 0.1) {
        cv::Vec3d const place = cornerOf(0) * (1.0 - a - b) + cornerOf(1) * a + cornerOf(2) * b;
        cv::Point2d const pixel = corner + pixelOf(place) - pixelOf(cornerOf(0));
        cv::Mat color;
        cv::getRectSubPix(texture.atlas, {1, 1}, cv::Point2f(pixel), color);
        ASSERT_LT(farthest(cv::Vec3d(color.at<cv::Vec3b>(0)), colorOf(place[0], place[1])), 2.5) << place;
      }
    }
  }
}

TEST(TextureOfCameras, BecomeEquallyBright) {
  SurfaceMesh const mesh = sheet();
  std::vector<TextureView> views = twoViews();
  cv::Vec3d const dimming(0.5, 0.7, 0.9);
  cv::multiply(views[1].image, cv::Scalar(dimming[0], dimming[1], dimming[2]), views[1].image);
  MeshTexture const texture = textureFrom(mesh, views);
  ASSERT_EQ(texture.gains.size(), 2U);
  for (int channel = 0; channel < 3; ++channel) {
    EXPECT_NEAR(texture.gains[0][channel], std::sqrt(dimming[channel]), 0.003);
    EXPECT_NEAR(texture.gains[0][channel] * texture.gains[1][channel], 1.0, 1e-9);
  }
  for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
    cv::Vec3d const wanted = colorOf(mesh.vertices[i][0], mesh.vertices[i][1]).mul(texture.gains[0]);
    ASSERT_LT(farthest(cv::Vec3d(texture.colors[i]), wanted), 2.5);
  }
  TextureSettings best;
  best.blend = TextureBlend::Best;
  EXPECT_LT(worstSeam(mesh, textureFrom(mesh, views, best)), 3.0);
  EXPECT_EQ(textureFrom(mesh, views, asTaken()).gains[1], cv::Vec3d::all(1.0));
  // Views of one camera keep what lies between them.
  views[0].brightnessGroup = 7;
  views[1].brightnessGroup = 7;
  EXPECT_EQ(textureFrom(mesh, views).gains[1], cv::Vec3d::all(1.0));
}

TEST(TextureOfCameras, KeepTheirBrightnessWithoutCommonPlaces) {
  SurfaceMesh mesh = sheet();
  SurfaceMesh const back = sheet(5.0);
  auto const first = static_cast<int>(mesh.vertices.size());
  for (std::size_t i = 0; i < back.vertices.size(); ++i) {
    mesh.vertices.push_back(back.vertices[i]);
    mesh.normals.push_back(-back.normals[i]);
  }
  for (cv::Vec3i const& t : back.triangles) {
    mesh.triangles.emplace_back(first + t[0], first + t[2], first + t[1]);
  }
  std::vector<TextureView> views = plainViews();
  views[1].viewFromMesh = viewFromMesh(180.0);
  MeshTexture const texture = textureFrom(mesh, views);
  EXPECT_EQ(texture.brightnessSets, 2);
  EXPECT_LT(farthest(texture.gains[0], cv::Vec3d::all(1.0)), 1e-12);
  EXPECT_EQ(cv::Vec3d(texture.colors[0]), coarseColor);
  EXPECT_EQ(cv::Vec3d(texture.colors.back()), fineColor);
}

} // namespace
} // namespace vorn::mv
