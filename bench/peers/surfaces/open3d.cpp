// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "surfaces/contender.hpp"

#ifdef VORN_HAS_OPEN3D

#include <open3d/geometry/KDTreeSearchParam.h>
#include <open3d/geometry/PointCloud.h>
#include <open3d/pipelines/registration/Registration.h>
#include <open3d/pipelines/registration/TransformationEstimation.h>

namespace vorn::bench {

namespace {

namespace registration = open3d::pipelines::registration;

open3d::geometry::PointCloud open3dCloud(cv::Mat_<cv::Vec3f> const& points) {
  open3d::geometry::PointCloud cloud;
  for (cv::Vec3f const& point : points) {
    cloud.points_.emplace_back(point[0], point[1], point[2]);
  }
  return cloud;
}

void listNormals(benchmark::State& state) {
  NoisyScan const scan = scanOf(state);
  open3d::geometry::PointCloud cloud = open3dCloud(scan.points);
  for (auto _ : state) {
    cloud.normals_.clear();
    cloud.EstimateNormals(open3d::geometry::KDTreeSearchParamKNN(neighbourCount));
  }
  cv::Mat_<cv::Vec3f> found(scan.points.size());
  for (std::size_t i = 0; i < found.total(); ++i) {
    Eigen::Vector3f const normal = cloud.normals_[i].cast<float>();
    found(static_cast<int>(i)) = {normal[0], normal[1], normal[2]};
  }
  countNormals(state, scan, found);
}

void registerScans(benchmark::State& state) {
  MovedScans const scans = scansOf(state);
  open3d::geometry::PointCloud const source = open3dCloud(scans.source);
  open3d::geometry::PointCloud target = open3dCloud(scans.target);
  target.EstimateNormals(open3d::geometry::KDTreeSearchParamKNN(neighbourCount));
  registration::RegistrationResult found;
  for (auto _ : state) {
    found = registration::RegistrationICP(source, target, pairDistance, Eigen::Matrix4d::Identity(),
                                          registration::TransformationEstimationPointToPlane(),
                                          registration::ICPConvergenceCriteria(1e-6, 1e-6, mostIterations));
  }
  cv::Matx44d targetFromSource;
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j < 4; ++j) {
      targetFromSource(i, j) = found.transformation_(i, j);
    }
  }
  state.counters["um"] = 1000.0 * scans.errorOfMiddle(targetFromSource);
}

} // namespace

void addOpen3dSurfaces(std::vector<SurfaceContender>& contenders) {
  contenders.push_back({"list normals", "open3d", listNormals});
  contenders.push_back({"grid registration", "open3d", registerScans});
  contenders.push_back({"list registration", "open3d", registerScans});
}

} // namespace vorn::bench

#else

namespace vorn::bench {
void addOpen3dSurfaces(std::vector<SurfaceContender>& /*contenders*/) {}
} // namespace vorn::bench

#endif
