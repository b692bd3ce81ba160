// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <opencv2/core.hpp>

#include <gtest/gtest.h>

#include <vorn/core/exception.hpp>
#include <vorn/graphic/graphic_object.hpp>

#include "support/expect_error.hpp"
#include "support/point_sets.hpp"

namespace vorn::mv {
namespace {

using L2 = Distance<cv::Vec3f>::L2;

graphic::GraphicObject numberedObject(int count) {
  graphic::GraphicObject object;
  for (int i = 0; i < count; ++i) {
    auto const value = static_cast<float>(i);
    auto const byte = static_cast<uchar>(i);
    object.vertices().emplace_back(value, 0.5F * value, -value);
    object.normals().emplace_back(0.0F, value, 1.0F);
    object.colors().emplace_back(byte, uchar{10}, uchar{20}, uchar{128});
  }
  return object;
}

cv::Mat_<cv::Vec3f> somePoints() {
  return test::asGrid(test::randomPoints(200, -1.0F, 1.0F), 20);
}

TEST(PointCloud, TakesWholeRowsOf64Vertices) {
  PointCloud const cloud(numberedObject(130));
  ASSERT_EQ(cloud.points().size(), cv::Size(64, 2));
  EXPECT_EQ(cloud.points()(1, 63), cv::Vec3f(127.0F, 63.5F, -127.0F));
  EXPECT_EQ(cloud.normals()(1, 0), cv::Vec3f(0.0F, 64.0F, 1.0F));
  EXPECT_EQ(cloud.texture()(0, 7), cv::Vec3b(20, 10, 7));
  EXPECT_FALSE(cloud.isOrganized());
  EXPECT_EQ(cloud.boxDims(), cv::Vec3f(127.0F, 63.5F, 127.0F));
  EXPECT_TRUE(PointCloud(numberedObject(63)).isEmpty());
}

TEST(PointCloud, GivesBackThePresentPointsWithTheirColours) {
  PointCloud cloud(numberedObject(64));
  cloud.state()(0, 3) = 1;
  cloud.state()(0, 4) = 255;
  graphic::GraphicObject const object = cloud.getGraphicObject(false);
  ASSERT_EQ(object.vertices().size(), 62U);
  EXPECT_EQ(object.vertices()[3], cv::Vec3f(5.0F, 2.5F, -5.0F));
  EXPECT_EQ(object.colors()[3], cv::Vec4b(5, 10, 20, 255));
  cloud.setTransform({1, 0, 0, 10, 0, 1, 0, 20, 0, 0, 1, 30, 0, 0, 0, 1});
  EXPECT_EQ(cloud.getGraphicObject(true).vertices()[3], cv::Vec3f(15.0F, 22.5F, 25.0F));
  EXPECT_EQ(cloud.getGraphicObject(true).normals()[3], object.normals()[3]);
  EXPECT_EQ(cloud.getGraphicObject(false).vertices()[3], object.vertices()[3]);
}

TEST(PointCloud, RefusesNormalsAndColoursOfAnotherSize) {
  cv::Mat_<cv::Vec3f> const points = somePoints();
  EXPECT_THROW(PointCloud(points, true, points.rowRange(0, 2), {}), Exception);
  EXPECT_THROW(PointCloud(points, true, {}, cv::Mat_<cv::Vec3b>(1, 1)), Exception);
  graphic::GraphicObject object = numberedObject(64);
  object.normals().pop_back();
  EXPECT_THROW(PointCloud{object}, Exception);
  PointCloud cloud(points, true);
  cloud.points() = points.rowRange(0, 2);
  EXPECT_THROW(cloud.clean(1.0F, 1), Exception);
  cloud = PointCloud(points.clone(), true);
  cloud.normals() = points.rowRange(0, 1);
  EXPECT_THROW(cloud.applyTransform(), Exception);
  cloud = PointCloud(points.clone(), true);
  cloud.texture() = cv::Mat_<cv::Vec3b>(1, 1);
  EXPECT_THROW(cloud.getGraphicObject(false), Exception);
}

TEST(PointCloud, OfRowsWithoutColumnsIsEmpty) {
  for (cv::Size const size : {cv::Size(0, 3), cv::Size(3, 0)}) {
    PointCloud cloud(cv::Mat_<cv::Vec3f>(size), true);
    EXPECT_TRUE(cloud.isEmpty());
    cloud.applyTransform();
    cloud.saveState();
    cloud.undoState();
    cloud.filterByDz(1.0F);
    cloud.filterBorder(1);
    cloud.filterOutlier();
    EXPECT_EQ(cloud.clean(1.0F, 1) + cloud.filterSmallCluster(1.0F, 2), 0);
    EXPECT_TRUE(cloud.getGraphicObject(true).isEmpty());
  }
}

TEST(PointCloud, StatesRememberGenerationsAndSaturate) {
  PointCloud cloud(cv::Mat_<cv::Vec3f>(1, 5, cv::Vec3f(0, 0, 0)), false);
  cv::Mat_<uchar> const states = (cv::Mat_<uchar>(1, 5) << 0, 1, 253, 254, 255);
  states.copyTo(cloud.state());
  cloud.saveState();
  EXPECT_EQ(cv::norm(cloud.state(), cv::Mat_<uchar>((cv::Mat_<uchar>(1, 5) << 0, 2, 254, 254, 255))), 0);
  cv::Mat_<uchar>((cv::Mat_<uchar>(1, 5) << 0, 1, 2, 254, 255)).copyTo(cloud.state());
  cloud.undoState();
  EXPECT_EQ(cv::norm(cloud.state(), cv::Mat_<uchar>((cv::Mat_<uchar>(1, 5) << 0, 0, 1, 253, 255))), 0);
}

TEST(PointCloud, BoxHoldsThePresentFinitePoints) {
  PointCloud cloud(somePoints(), true);
  cloud.points()(0, 0) = {100.0F, 0.0F, 0.0F};
  cloud.points()(0, 1) = {0.0F, std::numeric_limits<float>::infinity(), 50.0F};
  cloud.points()(0, 2) = {test::notANumber, 60.0F, 0.0F};
  cloud.points()(0, 3) = {-3.0F, 2.0F, 5.0F};
  cloud.points()(0, 4) = {1.0F, -4.0F, -7.0F};
  cloud.state()(0, 0) = 255;
  cloud.calcBoundingBox();
  EXPECT_EQ(cloud.boxOrigin(), cv::Point3f(-3.0F, -4.0F, -7.0F));
  EXPECT_EQ(cloud.span()[1], 6.0F);
  EXPECT_EQ(cloud.center().z, -1.0F);
  cloud.state() = 1;
  cloud.calcBoundingBox();
  EXPECT_EQ(cloud.boxOrigin(), cv::Point3f(FLT_MAX, FLT_MAX, FLT_MAX));
  EXPECT_EQ(cloud.boxDims()[2], -std::numeric_limits<float>::infinity());
  EXPECT_EQ(PointCloud().boxDims()[0], -std::numeric_limits<float>::infinity());
}

TEST(PointCloud, MovesPresentPointsAndTurnsTheirNormals) {
  // A quarter turn about z maps whole numbers to whole numbers.
  cv::Matx44d const motion(0, -1, 0, 5, 1, 0, 0, 6, 0, 0, 1, 7, 0, 0, 0, 1);
  PointCloud cloud(numberedObject(64));
  cloud.state()(0, 9) = 3;
  cloud.setTransform(motion);
  cloud.octree();
  cloud.applyTransform();
  EXPECT_EQ(cloud.points()(0, 8), cv::Vec3f(1.0F, 14.0F, -1.0F));
  EXPECT_EQ(cloud.normals()(0, 8), cv::Vec3f(-8.0F, 0.0F, 1.0F));
  EXPECT_EQ(cloud.points()(0, 9), cv::Vec3f(9.0F, 4.5F, -9.0F));
  EXPECT_EQ(cloud.getTransform(), cv::Matx44d::eye());
  EXPECT_EQ(cloud.boxOrigin(), cv::Point3f(5.0F - 31.5F, 6.0F, 7.0F - 63.0F));
  EXPECT_EQ(cloud.octree().radiusNeighborsCount<L2>({1.0F, 14.0F, -1.0F}, 0.5F), 1U);
}

TEST(PointCloud, TheIdentityChangesNoBitOfAPoint) {
  constexpr float infinite = std::numeric_limits<float>::infinity();
  cv::Mat_<cv::Vec3f> points(1, 3, cv::Vec3f(infinite, -infinite, 0.0F));
  points(1) = {test::notANumber, 1.0F, 2.0F};
  points(2) = {-0.0F, 0.0F, -0.0F};
  PointCloud cloud(points, false);
  auto const expectUntouched = [](cv::Vec3f const* found) {
    EXPECT_EQ(found[0], cv::Vec3f(infinite, -infinite, 0.0F));
    EXPECT_EQ(found[1][2], 2.0F);
    EXPECT_TRUE(std::signbit(found[2][0]) && !std::signbit(found[2][1]));
  };
  expectUntouched(cloud.getGraphicObject(true).vertices().data());
  cloud.applyTransform();
  expectUntouched(std::as_const(cloud).points()[0]);
}

TEST(PointCloud, SearchesSeeMovedPointsOfCloudsThatShareThem) {
  PointCloud cloud(somePoints(), true);
  PointCloud copy(cloud);
  cv::Vec3f const moved(100.0F, 0.0F, 0.0F);
  auto const countAt = [&](PointCloud& searched, cv::Vec3f const& place) {
    return searched.octree().radiusNeighborsCount<L2>(place, 1.0F);
  };
  EXPECT_EQ(countAt(cloud, moved), 0U);
  copy.points()(0, 0) = moved;
  EXPECT_EQ(countAt(cloud, moved), 1U);
  cloud.setTransform({1, 0, 0, 50, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  cloud.applyTransform();
  EXPECT_EQ(countAt(cloud, moved), 0U);
  EXPECT_EQ(countAt(cloud, {150.0F, 0.0F, 0.0F}), 1U);
  EXPECT_EQ(countAt(copy, {150.0F, 0.0F, 0.0F}), 1U);
  cloud = PointCloud(somePoints(), true);
  EXPECT_EQ(countAt(cloud, {150.0F, 0.0F, 0.0F}), 0U);
  PointCloud const taken = std::move(copy);
  EXPECT_EQ(taken.presentCount(), 200U);
  copy = taken;
  EXPECT_EQ(countAt(copy, {150.0F, 0.0F, 0.0F}), 1U);
}

TEST(PointCloud, AnOctreeInHandStaysGoodWhilePointsAreReplaced) {
  PointCloud cloud(test::asGrid(test::randomPoints(5000, -1.0F, 1.0F), 50), true);
  cv::Mat_<cv::Vec3f>& points = cloud.points();
  GridOctree const& tree = cloud.octree();
  std::size_t const found = tree.radiusNeighborsCount<L2>({0, 0, 0}, 0.5F);
  EXPECT_GT(found, 0U);
  EXPECT_FALSE(cloud.points().empty()); // marks the tree as outdated
  EXPECT_EQ(tree.radiusNeighborsCount<L2>({0, 0, 0}, 0.5F), found);
  cloud.octree();
  // Fewer points by way of the kept reference: the tree must not read past their end.
  points = cv::Mat_<cv::Vec3f>(1, 2, cv::Vec3f(0, 0, 0));
  EXPECT_EQ(tree.radiusNeighborsCount<L2>({0, 0, 0}, 0.5F), found) << "the points as they were";
  cloud.state() = cv::Mat_<uchar>(1, 2, uchar{0});
  EXPECT_EQ(cloud.clean(1.0F, 2), 0);
  EXPECT_EQ(cloud.clean(1.0F, 3), 2);
  EXPECT_EQ(&cloud.octree(), &tree);
  EXPECT_EQ(tree.radiusNeighborsCount<L2>({0, 0, 0}, 0.5F), 2U) << "deleted points included";
}

TEST(PointCloud, CopiesShareTheirPointsAndAClonesAreItsOwn) {
  PointCloud cloud(numberedObject(64));
  cloud.setTransform({1, 0, 0, 10, 0, 1, 0, 20, 0, 0, 1, 30, 0, 0, 0, 1});
  cloud.markUncontinuous();
  cloud.auxMask() = cv::Mat_<uchar>(1, 64, uchar{1});
  cloud.fields()["Weight"] = cv::Mat_<float>(1, 64, 1.0F);
  PointCloud const copy = cloud;
  PointCloud clone = cloud.clone();
  EXPECT_EQ(clone.getTransform(), cloud.getTransform());
  EXPECT_EQ(clone.boxDims(), cloud.boxDims());
  EXPECT_FALSE(clone.isContinous());
  EXPECT_EQ(clone.octree().radiusNeighborsCount<L2>({0, 0, 0}, 0.5F), 1U);
  std::size_t const removed = 10;
  cloud.filterByZRange(-53.5F, 0.5F);
  cloud.points()(0, 0) = {5.0F, 5.0F, 5.0F};
  cloud.normals()(0, 0) = {5.0F, 5.0F, 5.0F};
  cloud.texture()(0, 0) = {5, 5, 5};
  cloud.auxMask()(0, 0) = 5;
  cloud.fields()["Weight"](0, 0) = 5.0F;
  EXPECT_EQ(copy.presentCount(), 64 - removed);
  EXPECT_EQ(copy.points()(0, 0), cv::Vec3f(5.0F, 5.0F, 5.0F));
  graphic::GraphicObject const kept = clone.getGraphicObject(false);
  graphic::GraphicObject const original = numberedObject(64);
  EXPECT_EQ(kept.vertices(), original.vertices());
  EXPECT_EQ(kept.normals(), original.normals());
  EXPECT_EQ(clone.texture()(0, 0), cv::Vec3b(20, 10, 0));
  EXPECT_EQ(clone.auxMask()(0, 0), 1);
  EXPECT_EQ(clone.fields()["Weight"](0, 0), 1.0F);
  EXPECT_EQ(clone.octree().radiusNeighborsCount<L2>({0, 0, 0}, 0.5F), 1U);
}

class PointCloudFiles : public testing::Test {
protected:
  std::string path(std::string const& extension) const {
    return (std::filesystem::path(testing::TempDir()) / ("vorn_point_cloud_test." + extension)).string();
  }

  void TearDown() override {
    for (char const* extension : {"ply", "obj", "PLY"}) {
      std::filesystem::remove(path(extension));
    }
  }
};

TEST_F(PointCloudFiles, KeepPointsNormalsAndColours) {
  PointCloud cloud(numberedObject(192));
  cloud.state()(2, 63) = 1;
  cloud.setTransform({1, 0, 0, 1000, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  for (std::string const extension : {"ply", "obj"}) {
    testing::internal::CaptureStdout();
    cloud.saveToFile(path(extension), extension);
    PointCloud loaded(somePoints(), true);
    loaded.loadFromFile(path(extension), extension);
    std::string const name = extension == "ply" ? "PLY" : "OBJ";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Saving " + name + " file: " + path(extension) +
                                                          "...\nDONE\n" + "Loading " + name +
                                                          " file: " + path(extension) + "...\n...DONE\n");
    // 191 points were present, two whole rows come back.
    ASSERT_EQ(loaded.points().size(), cv::Size(64, 2));
    EXPECT_EQ(loaded.points()(1, 1), cv::Vec3f(1065.0F, 32.5F, -65.0F));
    EXPECT_EQ(loaded.texture()(1, 1), cv::Vec3b(20, 10, 65));
    EXPECT_TRUE(loaded.hasNormals());
    EXPECT_FALSE(loaded.isOrganized());
  }
}

TEST_F(PointCloudFiles, LoadKeepsEveryVertexAndSaysNothing) {
  graphic::GraphicObject const object = numberedObject(131);
  testing::internal::CaptureStdout();
  for (std::string const extension : {"ply", "obj"}) {
    PointCloud(cv::Mat_<cv::Vec3f>(object.vertices(), true), false,
               cv::Mat_<cv::Vec3f>(object.normals(), true), cv::Mat_<cv::Vec3b>(131, 1, cv::Vec3b(3, 2, 1)))
        .save(path(extension));
    PointCloud const cloud = PointCloud::load(path(extension));
    EXPECT_EQ(cloud.pointCount(), 131U);
    EXPECT_FALSE(cloud.isOrganized());
    EXPECT_EQ(cloud.boxDims(), cv::Vec3f(130.0F, 65.0F, 130.0F));
    graphic::GraphicObject const loaded = cloud.getGraphicObject(false);
    EXPECT_EQ(loaded.vertices(), object.vertices());
    EXPECT_EQ(loaded.normals(), object.normals());
    EXPECT_EQ(cloud.texture()(130, 0), cv::Vec3b(3, 2, 1));
  }
  std::filesystem::rename(path("ply"), path("PLY"));
  EXPECT_EQ(PointCloud::load(path("PLY")).pointCount(), 131U);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(PointCloudFiles, LoadAndSaveRefuseWhatTheyCannotDoNamingThePath) {
  PointCloud const cloud(somePoints(), true);
  auto const load = [](std::string const& name) { static_cast<void>(PointCloud::load(name)); };
  for (std::string const& name :
       {path("txt"), path("ply.gz"), std::string("ply"), std::string("./a.ply/cloud")}) {
    test::expectError([&] { load(name); }, name + " does not end in .ply, .pcd, .xyz, .obj or .stl");
    test::expectError([&] { cloud.save(name); }, name + " does not end in .ply, .pcd, .xyz, .obj or .stl");
    EXPECT_FALSE(std::filesystem::exists(name));
  }
  test::expectError([&] { load(path("ply")); }, path("ply"));
  test::expectError([&] { cloud.save(path("stl")); }, path("stl"));
  test::expectError([&] { cloud.save(path("none") + "/cloud.ply"); }, "/cloud.ply");
}

TEST_F(PointCloudFiles, FailuresLeaveTheCloudAsItWas) {
  PointCloud cloud(somePoints(), true);
  testing::internal::CaptureStdout();
  EXPECT_THROW(cloud.loadFromFile(path("missing"), "ply"), Exception);
  EXPECT_THROW(cloud.saveToFile(path("stl"), "stl"), Exception);
  testing::internal::GetCapturedStdout();
  testing::internal::CaptureStdout();
  cloud.loadFromFile(path("ply"), "PLY");
  cloud.saveToFile(path("xyz"), "xyz");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Unsupported extension\nUnsupported extension\n");
  EXPECT_EQ(cloud.pointCount(), 200U);
  EXPECT_TRUE(cloud.isOrganized());
  EXPECT_FALSE(std::filesystem::exists(path("xyz")));
}

} // namespace
} // namespace vorn::mv
