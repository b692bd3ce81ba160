// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "clouds/contender.hpp"

#ifdef VORN_HAS_PCL

#include <pcl/filters/radius_outlier_removal.h>
#include <pcl/octree/octree_search.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>
#include <pcl/segmentation/extract_clusters.h>

namespace vorn::bench {

namespace {

pcl::PointCloud<pcl::PointXYZ>::Ptr pclCloud(cv::Mat_<cv::Vec3f> const& points) {
  auto cloud = pcl::PointCloud<pcl::PointXYZ>::Ptr(new pcl::PointCloud<pcl::PointXYZ>);
  for (cv::Vec3f const& point : points) {
    cloud->push_back({point[0], point[1], point[2]});
  }
  return cloud;
}

using PclOctree = pcl::octree::OctreePointCloudSearch<pcl::PointXYZ>;
/// About as many points a leaf as ours.
double pclResolution(benchmark::State const& state) {
  return state.range(0) == 1 ? 0.3 : 0.4;
}

void buildPcl(benchmark::State& state) {
  auto const cloud = pclCloud(cloudOf(state));
  for (auto _ : state) {
    PclOctree tree(pclResolution(state));
    tree.setInputCloud(cloud);
    tree.addPointsFromInputCloud();
    benchmark::DoNotOptimize(tree.getLeafCount());
  }
  perPoint(state, cloud->size());
}

template <class Search>
void runPclQueries(benchmark::State& state, Search const& search) {
  cv::Mat_<cv::Vec3f> const points = cloudOf(state);
  PclOctree tree(pclResolution(state));
  tree.setInputCloud(pclCloud(points));
  tree.addPointsFromInputCloud();
  std::vector<int> indices;
  std::vector<float> distances;
  runQueries(state, points, [&](cv::Vec3f const& query) {
    return static_cast<std::size_t>(
        search(tree, pcl::PointXYZ(query[0], query[1], query[2]), indices, distances));
  });
}

void searchPcl(benchmark::State& state) {
  auto const radius = static_cast<double>(radiusOf(state));
  runPclQueries(state, [=](PclOctree& tree, pcl::PointXYZ const& query, auto& indices, auto& distances) {
    return tree.radiusSearch(query, radius, indices, distances);
  });
}

void knnPcl(benchmark::State& state) {
  auto const k = static_cast<unsigned>(state.range(2));
  runPclQueries(state, [=](PclOctree& tree, pcl::PointXYZ const& query, auto& indices, auto& distances) {
    return tree.nearestKSearch(query, k, indices, distances);
  });
}

void cleanPcl(benchmark::State& state) {
  auto const cloud = pclCloud(cloudOf(state));
  pcl::PointCloud<pcl::PointXYZ> kept;
  for (auto _ : state) {
    pcl::RadiusOutlierRemoval<pcl::PointXYZ> filter;
    filter.setInputCloud(cloud);
    filter.setRadiusSearch(static_cast<double>(cleanRadius));
    filter.setMinNeighborsInRadius(cleanNeighbours);
    filter.filter(kept);
  }
  state.counters["deleted"] = static_cast<double>(cloud->size() - kept.size());
}

void clustersPcl(benchmark::State& state) {
  auto const cloud = pclCloud(cloudOf(state));
  for (auto _ : state) {
    auto tree = pcl::search::KdTree<pcl::PointXYZ>::Ptr(new pcl::search::KdTree<pcl::PointXYZ>(false));
    tree->setInputCloud(cloud);
    pcl::EuclideanClusterExtraction<pcl::PointXYZ> extraction;
    extraction.setInputCloud(cloud);
    extraction.setSearchMethod(tree);
    extraction.setClusterTolerance(static_cast<double>(cleanRadius));
    extraction.setMinClusterSize(clusterSize);
    std::vector<pcl::PointIndices> clusters;
    extraction.extract(clusters);
    benchmark::DoNotOptimize(clusters.size());
  }
}
} // namespace

void addPcl(std::vector<Contender>& contenders) {
  contenders.push_back({"build", "pcl", buildPcl, {0}});
  contenders.push_back({"search", "pcl", searchPcl, radii()});
  contenders.push_back({"knn", "pcl", knnPcl, nearest()});
  contenders.push_back({"clean", "pcl", cleanPcl, {0}});
  contenders.push_back({"clusters", "pcl", clustersPcl, {0}});
}

} // namespace vorn::bench

#else

namespace vorn::bench {
void addPcl(std::vector<Contender>& /*contenders*/) {}
} // namespace vorn::bench

#endif
