// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/graphic/graphic_object.hpp>

#include "support/expect_error.hpp"
#include "support/temporary_folder.hpp"

namespace vorn::mv {
namespace {

/// Vertices whose field is ten times their x.
graphic::GraphicObject tenfold(int count) {
  graphic::GraphicObject object;
  for (int i = 0; i < count; ++i) {
    auto const number = static_cast<float>(i);
    object.vertices().emplace_back(number, -number, 1.0F);
    object.fields()["tenfold"].push_back(10 * number);
  }
  return object;
}

TEST(CloudFields, StayWithTheirPointsThroughFilesAndDeletions) {
  test::TemporaryFolder const folder;
  std::string const path = folder / "cloud.ply";
  PointCloud cloud(PointCloud::fromVertices(tenfold(150)));
  ASSERT_EQ(cloud.fields().at("tenfold").size(), cloud.points().size());
  cloud.setOffset({1e6, 0, -3});
  cloud.state()(7, 0) = 1;
  cloud.state()(149, 0) = 255;
  cloud.save(path);

  PointCloud const found = PointCloud::load(path);
  ASSERT_EQ(found.pointCount(), 148U);
  EXPECT_EQ(found.offset() + cv::Vec3d(found.points()(7, 0)), cv::Vec3d(1e6 + 8, -8, -2));
  for (int row = 0; row < found.points().rows; ++row) {
    double const x = found.offset()[0] - 1e6 + double{found.points()(row, 0)[0]};
    EXPECT_EQ(double{found.fields().at("tenfold")(row, 0)}, 10 * x);
  }
  EXPECT_EQ(found.fields().at("tenfold")(7, 0), 80.0F);

  // Whole rows of 64, as the constructor takes them.
  PointCloud const rows(tenfold(150));
  EXPECT_EQ(rows.fields().at("tenfold").size(), cv::Size(64, 2));
  EXPECT_EQ(rows.fields().at("tenfold")(1, 63), 1270.0F);
}

TEST(CloudFields, AreSharedByCopiesAndOwnedByClones) {
  PointCloud cloud(PointCloud::fromVertices(tenfold(3)));
  cloud.setOffset({1, 2, 3});
  PointCloud const copy(cloud);
  PointCloud const clone = cloud.clone();
  cloud.fields()["tenfold"](1, 0) = -1.0F;
  EXPECT_EQ(copy.fields().at("tenfold")(1, 0), -1.0F);
  EXPECT_EQ(clone.fields().at("tenfold")(1, 0), 10.0F);
  EXPECT_EQ(copy.offset(), cv::Vec3d(1, 2, 3));
  EXPECT_EQ(clone.offset(), cv::Vec3d(1, 2, 3));
}

TEST(CloudFields, OfAnotherSizeThanThePointsAreRefused) {
  graphic::GraphicObject object = tenfold(64);
  object.fields()["tenfold"].pop_back();
  test::expectError([&] { static_cast<void>(PointCloud::fromVertices(object)); }, "tenfold");
  test::expectError([&] { PointCloud{object}; }, "tenfold");
  PointCloud cloud(PointCloud::fromVertices(tenfold(64)));
  cloud.fields()["tenfold"] = cv::Mat_<float>::zeros(1, 64);
  test::expectError([&] { static_cast<void>(cloud.getGraphicObject(true)); }, "tenfold");
}

} // namespace
} // namespace vorn::mv
