// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "clouds/contender.hpp"

#include <opencv2/core/utility.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

namespace vorn::bench {

namespace {

using L2 = mv::Distance<cv::Vec3f>::L2;

mv::GridOctree treeOf(cv::Mat_<cv::Vec3f> const& points) {
  mv::GridOctree tree;
  tree.init(points);
  return tree;
}

void buildOurs(benchmark::State& state) {
  cv::Mat_<cv::Vec3f> const points = cloudOf(state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(treeOf(points));
  }
  perPoint(state, points.total());
}

void countOurs(benchmark::State& state) {
  cv::Mat_<cv::Vec3f> const points = cloudOf(state);
  mv::GridOctree const tree = treeOf(points);
  float const radius = radiusOf(state);
  runQueries(state, points,
             [&](cv::Vec3f const& query) { return tree.radiusNeighborsCount<L2>(query, radius); });
}

void searchOurs(benchmark::State& state) {
  cv::Mat_<cv::Vec3f> const points = cloudOf(state);
  mv::GridOctree const tree = treeOf(points);
  float const radius = radiusOf(state);
  std::vector<unsigned> indices;
  runQueries(state, points,
             [&](cv::Vec3f const& query) { return tree.radiusNeighborsSearch<L2>(query, radius, indices); });
}

void knnOurs(benchmark::State& state) {
  cv::Mat_<cv::Vec3f> const points = cloudOf(state);
  mv::GridOctree const tree = treeOf(points);
  std::vector<unsigned> indices;
  std::vector<float> distances;
  runQueries(state, points, [&](cv::Vec3f const& query) {
    return tree.knnSearch<L2>(query, static_cast<int>(state.range(2)), indices, distances);
  });
}

/// Cleans a cloud whose octree has to be built each time.
template <class Filter>
void filterOurs(benchmark::State& state, int threads, Filter const& filter) {
  System::set("EnableDebugMode", false);
  cv::setNumThreads(threads);
  mv::PointCloud cloud(cloudOf(state), true);
  for (auto _ : state) {
    cloud.points();
    cloud.resetState();
    filter(cloud);
  }
  cv::setNumThreads(1);
  state.counters["deleted"] = static_cast<double>(cloud.pointCount() - cloud.presentCount());
}

void clean(mv::PointCloud& cloud) {
  cloud.clean(cleanRadius, cleanNeighbours);
}
void clusters(mv::PointCloud& cloud) {
  cloud.filterSmallCluster(cleanRadius, clusterSize);
}
void cleanOurs(benchmark::State& state) {
  filterOurs(state, 1, clean);
}
void cleanOursTwoThreads(benchmark::State& state) {
  filterOurs(state, 2, clean);
}
void clustersOurs(benchmark::State& state) {
  filterOurs(state, 1, clusters);
}
void clustersOursTwoThreads(benchmark::State& state) {
  filterOurs(state, 2, clusters);
}

} // namespace

void addOurs(std::vector<Contender>& contenders) {
  contenders.push_back({"build", "ours", buildOurs, {0}});
  contenders.push_back({"count", "ours", countOurs, radii()});
  contenders.push_back({"search", "ours", searchOurs, radii()});
  contenders.push_back({"knn", "ours", knnOurs, nearest()});
  contenders.push_back({"clean", "ours", cleanOurs, {0}});
  contenders.push_back({"clean", "ours/two_threads", cleanOursTwoThreads, {0}});
  contenders.push_back({"clusters", "ours", clustersOurs, {0}});
  contenders.push_back({"clusters", "ours/two_threads", clustersOursTwoThreads, {0}});
}

} // namespace vorn::bench
