// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <opencv2/core/utility.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "registration_loop.hpp"
#include "surfaces/contender.hpp"

namespace vorn::bench {

namespace {

void normals(benchmark::State& state, bool isGrid, double missing) {
  System::set("EnableDebugMode", false);
  cv::setNumThreads(1);
  NoisyScan const scan = scanOf(state, missing);
  mv::PointCloud cloud(scan.points, isGrid);
  mv::NormalSettings settings;
  settings.neighbourCount = neighbourCount;
  settings.orientation = mv::NormalOrientation::TowardsViewpoint;
  for (auto _ : state) {
    cloud.points(); // so that its octree is built anew
    cloud.calcNormals(settings);
  }
  countNormals(state, scan, cloud.normals());
}
void gridNormals(benchmark::State& state) {
  normals(state, true, 0.0);
}
void gridNormalsWithGaps(benchmark::State& state) {
  normals(state, true, missingShare);
}
void listNormals(benchmark::State& state) {
  normals(state, false, 0.0);
}

void gridRegistration(benchmark::State& state) {
  timeRegistration(state, scansOf(state), true);
}
void listRegistration(benchmark::State& state) {
  timeRegistration(state, scansOf(state), false);
}

} // namespace

void addOurSurfaces(std::vector<SurfaceContender>& contenders) {
  contenders.push_back({"grid normals", "ours", gridNormals});
  contenders.push_back({"grid normals with gaps", "ours", gridNormalsWithGaps});
  contenders.push_back({"list normals", "ours", listNormals});
  contenders.push_back({"grid registration", "ours", gridRegistration});
  contenders.push_back({"list registration", "ours", listRegistration});
}

} // namespace vorn::bench
