// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>

#include "tools/report/page_cloud.hpp"

namespace vorn::tools {
namespace {

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

unsigned byteAt(PackedCloud const& cloud, std::size_t at) {
  return static_cast<unsigned char>(cloud.bytes.at(at));
}

unsigned wordAt(PackedCloud const& cloud, std::size_t at) {
  return byteAt(cloud, at) | byteAt(cloud, at + 1) << 8U;
}

/// The points as the description says they are to be read.
std::vector<cv::Vec3d> pointsOf(PackedCloud const& cloud) {
  std::size_t const count = cloud.description["count"];
  std::vector<cv::Vec3d> points;
  for (auto const& block : cloud.description["blocks"]) {
    for (std::size_t i = 0; i < block[0].get<std::size_t>(); ++i) {
      std::size_t const n = points.size();
      cv::Vec3d point;
      for (int axis = 0; axis < 3; ++axis) {
        auto const place = static_cast<std::size_t>(axis);
        point[axis] = block[1 + place].get<double>() +
                      wordAt(cloud, 2 * (count * place + n)) * block[4 + place].get<double>();
      }
      points.push_back(point);
    }
  }
  return points;
}

/// The shortest distance from a point to one of the cloud.
double distanceTo(std::vector<cv::Vec3f> const& points, cv::Vec3d const& point) {
  double nearest = std::numeric_limits<double>::max();
  for (cv::Vec3f const& p : points) {
    nearest = std::min(nearest, cv::norm(cv::Vec3d(p) - point));
  }
  return nearest;
}

/// A wavy surface of side x side points, 0.1 apart.
PageCloud surface(int side, cv::Vec3f const& origin = {}) {
  PageCloud cloud;
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) {
      auto const u = static_cast<float>(x) * 0.1F;
      auto const v = static_cast<float>(y) * 0.1F;
      cloud.points.push_back(origin + cv::Vec3f(u, v, std::sin(u) * std::cos(v)));
    }
  }
  return cloud;
}

TEST(PageCloud, PointsLieWithinTheStatedErrorWhichIsFarBelowTheirSpacing) {
  // Two patches so far apart that 16 bits over both would be coarser than the spacing, and a lonely point.
  PageCloud cloud = surface(60);
  PageCloud const far = surface(60, {30000.0F, 0.0F, 0.0F});
  cloud.points.insert(cloud.points.end(), far.points.begin(), far.points.end());
  cloud.points.push_back({0.0F, -2e5F, 0.0F});
  PackedCloud const result = packed(cloud, 100000);
  auto const spacing = result.description["spacing"].get<double>();
  auto const error = result.description["error"].get<double>();
  EXPECT_NEAR(spacing, 0.1, 0.02);
  EXPECT_LT(error, spacing / 10.0);
  std::vector<cv::Vec3d> const points = pointsOf(result);
  ASSERT_EQ(points.size(), cloud.points.size());
  double worst = 0.0;
  for (cv::Vec3d const& point : points) {
    worst = std::max(worst, distanceTo(cloud.points, point));
  }
  EXPECT_LE(worst, error * (1.0 + 1e-9));
  EXPECT_GT(worst, 0.0) << "nothing was rounded: no test";
}

TEST(PageCloud, ThinningKeepsAnEvenShareAndIsTheSameTwice) {
  PageCloud const cloud = surface(100);
  PackedCloud const result = packed(cloud, 2500);
  EXPECT_EQ(result.description["count"], 2500);
  EXPECT_EQ(result.description["total"], 10000);
  std::vector<cv::Vec3d> const points = pointsOf(result);
  // A tenth of the surface's square keeps its tenth of the points.
  for (int i = 0; i < 10; ++i) {
    auto const inside = std::count_if(points.begin(), points.end(), [&](cv::Vec3d const& p) {
      return p[0] >= i - 0.05 && p[0] < i + 0.95;
    });
    EXPECT_NEAR(static_cast<double>(inside), 250.0, 60.0) << i;
  }
  EXPECT_EQ(result.bytes, packed(cloud, 2500).bytes);
  PageCloud turned = cloud;
  std::reverse(turned.points.begin(), turned.points.end());
  EXPECT_EQ(packed(turned, 10000).bytes, packed(cloud, 10000).bytes)
      << "the order of the points does not matter";
}

TEST(PageCloud, PointsThatAreNotFiniteAreLeftOutAndCounted) {
  PageCloud cloud;
  cloud.points = {{1, 2, 3}, {nan, 0, 0}, {4, 5, 6}, {0, std::numeric_limits<float>::infinity(), 0}};
  cloud.fields.push_back({"error", "mm", {7.0F, 8.0F, nan, 9.0F}});
  PackedCloud const result = packed(cloud, 10);
  EXPECT_EQ(result.description["count"], 2);
  EXPECT_EQ(result.description["dropped"], 2);
  std::vector<cv::Vec3d> const points = pointsOf(result);
  EXPECT_LT(cv::norm(points[0] - cv::Vec3d(1, 2, 3)), 1e-3);
  EXPECT_LT(cv::norm(points[1] - cv::Vec3d(4, 5, 6)), 1e-3);
  auto const& field = result.description["fields"][0];
  EXPECT_EQ(wordAt(result, field["offset"]), 1U);
  EXPECT_EQ(wordAt(result, field["offset"].get<std::size_t>() + 2), 0U) << "none";
  EXPECT_EQ(field["low"], 7.0);
}

TEST(PageCloud, NoPointAndOnePoint) {
  PageCloud cloud;
  EXPECT_EQ(packed(cloud, 10).description["count"], 0);
  cloud.points = {{nan, nan, nan}};
  EXPECT_EQ(packed(cloud, 10).description["dropped"], 1);
  cloud.points = {{1e7F, -2e7F, 3e7F}, {1e7F, -2e7F, 3e7F}};
  for (int i = 0; i < 2; ++i) { // two in one place, then one
    PackedCloud const result = packed(cloud, 10);
    EXPECT_EQ(pointsOf(result).back(), cv::Vec3d(1e7, -2e7, 3e7));
    EXPECT_EQ(result.description["error"], 0.0);
    cloud.points.pop_back();
  }
}

TEST(PageCloud, FieldsAndColoursFollowTheirPoints) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> place(-50.0F, 50.0F);
  PageCloud cloud;
  PageField field{"x again", "mm", {}, true};
  for (int i = 0; i < 3000; ++i) {
    cv::Vec3f const p(place(random), place(random), place(random));
    cloud.points.push_back(p);
    cloud.normals.push_back(5.0F * cv::normalize(p));
    cloud.colors.emplace_back(static_cast<uchar>(p[2] + 100.0F), uchar{0}, static_cast<uchar>(p[0] + 100.0F));
    field.values.push_back(p[0]);
  }
  cloud.fields.push_back(field);
  PackedCloud const result = packed(cloud, 1000);
  auto const& told = result.description["fields"][0];
  EXPECT_EQ(told["range"][0].get<double>(), -told["range"][1].get<double>())
      << "signed: as far to both sides";
  std::size_t n = 0;
  for (cv::Vec3d const& p : pointsOf(result)) {
    unsigned const word = wordAt(result, told["offset"].get<std::size_t>() + 2 * n);
    EXPECT_NEAR(told["low"].get<double>() + (word - 1) * told["step"].get<double>(), p[0], 0.01);
    unsigned const color = wordAt(result, result.description["texture"]["offset"].get<std::size_t>() + 2 * n);
    EXPECT_NEAR(static_cast<double>(color >> 11U) * 8.0, p[0] + 100.0, 9.0);
    EXPECT_NEAR(static_cast<double>(color & 31U) * 8.0, p[2] + 100.0, 9.0);
    std::size_t const at = result.description["normals"].get<std::size_t>() + 2 * n;
    cv::Vec3d normal((byteAt(result, at) - 1.0) / 127.0 - 1.0, (byteAt(result, at + 1) - 1.0) / 127.0 - 1.0,
                     0.0);
    normal[2] = 1.0 - std::abs(normal[0]) - std::abs(normal[1]);
    if (normal[2] < 0.0) {
      normal = {std::copysign(1.0 - std::abs(normal[1]), normal[0]),
                std::copysign(1.0 - std::abs(normal[0]), normal[1]), normal[2]};
    }
    EXPECT_GT(cv::normalize(normal).dot(cv::normalize(p)), std::cos(0.02));
    ++n;
  }
}

std::vector<cv::Vec3i> gridTriangles(int side) {
  std::vector<cv::Vec3i> triangles;
  for (int y = 0; y + 1 < side; ++y) {
    for (int x = 0; x + 1 < side; ++x) {
      int const at = y * side + x;
      triangles.emplace_back(at, at + 1, at + side);
      triangles.emplace_back(at + 1, at + side + 1, at + side);
    }
  }
  return triangles;
}

/// The corners of the triangles, from numbers of seven bits a byte.
std::vector<cv::Vec3i> trianglesOf(PackedCloud const& cloud) {
  auto at = cloud.description["triangles"]["offset"].get<std::size_t>();
  auto const next = [&] {
    int value = 0;
    int shift = 0;
    unsigned byte = 0x80U;
    for (; byte >= 0x80U; shift += 7) {
      byte = byteAt(cloud, at++);
      value |= static_cast<int>(byte & 0x7FU) << shift;
    }
    return value;
  };
  std::vector<cv::Vec3i> triangles;
  int first = 0;
  for (std::size_t i = 0; i < cloud.description["triangles"]["count"].get<std::size_t>(); ++i) {
    first += next();
    int const second = next();
    int const third = next();
    auto const signedOf = [](int v) { return v % 2 == 0 ? v / 2 : -(v + 1) / 2; };
    triangles.emplace_back(first, first + signedOf(second), first + signedOf(third));
  }
  return triangles;
}

double areaOf(std::vector<cv::Vec3d> const& points, std::vector<cv::Vec3i> const& triangles) {
  double area = 0.0;
  for (cv::Vec3i const& t : triangles) {
    cv::Vec3d const normal =
        (points.at(static_cast<std::size_t>(t[1])) - points.at(static_cast<std::size_t>(t[0])))
            .cross(points.at(static_cast<std::size_t>(t[2])) - points.at(static_cast<std::size_t>(t[0])));
    area += normal[2] / 2.0; // upwards: a triangle that was turned over counts against it
  }
  return area;
}

TEST(PageCloud, AMeshStaysASurfaceAlsoWhenItIsThinned) {
  constexpr int side = 50;
  PageCloud cloud = surface(side);
  cloud.triangles = gridTriangles(side);
  PackedCloud const whole = packed(cloud, 10000);
  constexpr double area = 4.9 * 4.9; // seen from above
  EXPECT_EQ(whole.description["triangles"]["count"], cloud.triangles.size());
  EXPECT_NEAR(areaOf(pointsOf(whole), trianglesOf(whole)), area, 1e-3);
  PackedCloud const thin = packed(cloud, 900);
  EXPECT_LE(thin.description["count"], 900);
  EXPECT_GT(thin.description["count"], 100);
  EXPECT_NEAR(areaOf(pointsOf(thin), trianglesOf(thin)), area, 0.12 * area);
  EXPECT_EQ(thin.description["triangleTotal"], cloud.triangles.size());
}

TEST(PageCloud, ArraysThatDoNotFitAreRefused) {
  PageCloud cloud = surface(3);
  cloud.normals.resize(8);
  EXPECT_THROW(packed(cloud, 10), Exception);
  cloud.normals.clear();
  cloud.triangles = {{0, 1, 9}};
  EXPECT_THROW(packed(cloud, 10), Exception);
  cloud.triangles.clear();
  cloud.fields.push_back({"short", "", {1.0F}});
  EXPECT_THROW(packed(cloud, 10), Exception);
}

} // namespace
} // namespace vorn::tools
