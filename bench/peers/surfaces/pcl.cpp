// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surfaces/contender.hpp"

#ifdef VORN_HAS_PCL

#include <pcl/features/integral_image_normal.h>
#include <pcl/features/normal_3d.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>
#include <pcl/registration/icp.h>
#include <pcl/search/kdtree.h>

namespace vorn::bench {

namespace {

template <class Point>
typename pcl::PointCloud<Point>::Ptr pclCloud(cv::Mat_<cv::Vec3f> const& points) {
  auto cloud = typename pcl::PointCloud<Point>::Ptr(new pcl::PointCloud<Point>);
  cloud->is_dense = cv::checkRange(points);
  for (cv::Vec3f const& point : points) {
    cloud->push_back(Point());
    cloud->back().getVector3fMap() = Eigen::Vector3f(point[0], point[1], point[2]);
  }
  cloud->width = static_cast<unsigned>(points.cols);
  cloud->height = static_cast<unsigned>(points.rows);
  return cloud;
}

void count(benchmark::State& state, NoisyScan const& scan, pcl::PointCloud<pcl::Normal> const& normals) {
  cv::Mat_<cv::Vec3f> found(scan.points.size());
  for (std::size_t i = 0; i < found.total(); ++i) {
    found(static_cast<int>(i)) = {normals[i].normal_x, normals[i].normal_y, normals[i].normal_z};
  }
  countNormals(state, scan, found);
}

/// The size at which its normals of a whole scan are as exact as ours.
constexpr float smoothingSize = 14.0F;

void gridNormals(benchmark::State& state, double missing) {
  using Estimation = pcl::IntegralImageNormalEstimation<pcl::PointXYZ, pcl::Normal>;
  NoisyScan const scan = scanOf(state, missing);
  auto const cloud = pclCloud<pcl::PointXYZ>(scan.points);
  pcl::PointCloud<pcl::Normal> normals;
  for (auto _ : state) {
    Estimation estimation;
    estimation.setNormalEstimationMethod(Estimation::AVERAGE_3D_GRADIENT);
    estimation.setNormalSmoothingSize(smoothingSize);
    estimation.setInputCloud(cloud);
    estimation.compute(normals);
  }
  count(state, scan, normals);
}
void gridNormalsWhole(benchmark::State& state) {
  gridNormals(state, 0.0);
}
void gridNormalsWithGaps(benchmark::State& state) {
  gridNormals(state, missingShare);
}

void listNormals(benchmark::State& state) {
  NoisyScan const scan = scanOf(state);
  auto const cloud = pclCloud<pcl::PointXYZ>(scan.points);
  pcl::PointCloud<pcl::Normal> normals;
  for (auto _ : state) {
    pcl::NormalEstimation<pcl::PointXYZ, pcl::Normal> estimation;
    estimation.setInputCloud(cloud);
    estimation.setSearchMethod(pcl::make_shared<pcl::search::KdTree<pcl::PointXYZ>>());
    estimation.setKSearch(neighbourCount);
    estimation.compute(normals);
  }
  count(state, scan, normals);
}

pcl::PointCloud<pcl::PointNormal>::Ptr withNormals(cv::Mat_<cv::Vec3f> const& points) {
  auto cloud = pclCloud<pcl::PointNormal>(points);
  pcl::NormalEstimation<pcl::PointNormal, pcl::PointNormal> estimation;
  estimation.setInputCloud(cloud);
  estimation.setKSearch(neighbourCount);
  pcl::PointCloud<pcl::PointNormal> normals;
  estimation.compute(normals);
  for (std::size_t i = 0; i < cloud->size(); ++i) {
    (*cloud)[i].getNormalVector3fMap() = normals[i].getNormalVector3fMap();
  }
  return cloud;
}

void registration(benchmark::State& state) {
  MovedScans const scans = scansOf(state);
  auto const source = withNormals(scans.source);
  auto const target = withNormals(scans.target);
  Eigen::Matrix4f found = Eigen::Matrix4f::Identity();
  for (auto _ : state) {
    pcl::IterativeClosestPointWithNormals<pcl::PointNormal, pcl::PointNormal> icp;
    icp.setInputSource(source);
    icp.setInputTarget(target);
    icp.setMaxCorrespondenceDistance(pairDistance);
    icp.setMaximumIterations(mostIterations);
    pcl::PointCloud<pcl::PointNormal> moved;
    icp.align(moved);
    found = icp.getFinalTransformation();
  }
  cv::Matx44d targetFromSource;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      targetFromSource(i, j) = static_cast<double>(found(i, j));
    }
  }
  state.counters["um"] = 1000.0 * scans.errorOfMiddle(targetFromSource);
}

} // namespace

void addPclSurfaces(std::vector<SurfaceContender>& contenders) {
  contenders.push_back({"grid normals", "pcl", gridNormalsWhole});
  contenders.push_back({"grid normals with gaps", "pcl", gridNormalsWithGaps});
  contenders.push_back({"list normals", "pcl", listNormals});
  contenders.push_back({"grid registration", "pcl", registration});
  contenders.push_back({"list registration", "pcl", registration});
}

} // namespace vorn::bench

#else

namespace vorn::bench {
void addPclSurfaces(std::vector<SurfaceContender>& /*contenders*/) {}
} // namespace vorn::bench

#endif
