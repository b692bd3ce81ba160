// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <functional>
#include <opencv2/core.hpp>
#include <vector>

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/pointcloud/cloud_filters.hpp>
#include <vorn/mv/pointcloud/octree.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "cloud_inputs.hpp"
#include "memory_case.hpp"

namespace vorn::bench {

namespace {

using L2 = mv::Distance<cv::Vec3f>::L2;

cv::Mat_<cv::Vec3f> const& points(Sizes const& sizes) {
  static cv::Mat_<cv::Vec3f> made;
  if (made.rows != sizes.cloudSide) {
    made = organizedScan(sizes.cloudSide);
  }
  return made;
}

enum class Tree { None, Built };

/// An operation on a fresh cloud with normals and colours, which has its octree before or not.
double edit(Sizes const& sizes, Tree tree, std::function<void(mv::PointCloud&)> const& operation) {
  cv::Mat_<cv::Vec3f> const grid = points(sizes).clone();
  mv::PointCloud cloud(grid, true, cv::Mat_<cv::Vec3f>(grid.size(), cv::Vec3f(0, 0, 1)),
                       cv::Mat_<cv::Vec3b>(grid.size(), cv::Vec3b()));
  if (tree == Tree::Built) {
    cloud.octree();
  }
  return workingBytes(grid.total(), [&] { operation(cloud); });
}

MemoryCase editing(char const* name, Tree tree, std::function<void(mv::PointCloud&)> const& operation) {
  return {name, [=](Sizes const& sizes) { return edit(sizes, tree, operation); }};
}

/// A search that finds every point.
template <class Search>
double searchForAll(Sizes const& sizes, Search const& search) {
  mv::GridOctree tree;
  tree.init(points(sizes));
  return workingBytes(points(sizes).total(), [&] { return search(tree, points(sizes)(0, 0)); });
}

void removePlane(mv::PointCloud& cloud) {
  mv::pc::PlaneRemovalFilter()(cloud, mv::Plane3f({0, 0, 500}, {0, 0, 1}));
}

} // namespace

std::vector<MemoryCase> cloudCases() {
  using mv::PointCloud;
  constexpr float radius = 3 * pitch;
  constexpr float wide = 1e6F;
  return {
      {"`PointCloud` over matrices",
       [](Sizes const& s) {
         return workingBytes(points(s).total(), [&] { return PointCloud(points(s), true).state().clone(); });
       }},
      {"`PointCloud` of a `GraphicObject`",
       [](Sizes const& s) {
         graphic::GraphicObject object;
         object.vertices().assign(points(s).begin(), points(s).end());
         return workingBytes(points(s).total(), [&] { return PointCloud(object).points(); });
       }},
      {"`Octree::init`",
       [](Sizes const& s) {
         return workingBytes(points(s).total(), [&] { mv::GridOctree().init(points(s)); });
       }},
      {"`Octree::radiusNeighborsSearch`, per point found",
       [](Sizes const& s) {
         return searchForAll(s, [=](mv::GridOctree const& tree, cv::Vec3f const& query) {
           std::vector<unsigned> found;
           tree.radiusNeighborsSearch<L2>(query, wide, found);
           return found;
         });
       }},
      {"`Octree::radiusNeighborsCount`",
       [](Sizes const& s) {
         return searchForAll(s, [=](mv::GridOctree const& tree, cv::Vec3f const& query) {
           tree.radiusNeighborsCount<L2>(query, wide);
           return cv::Mat();
         });
       }},
      {"`Octree::knnSearch`, per point found",
       [](Sizes const& s) {
         return searchForAll(s, [&](mv::GridOctree const& tree, cv::Vec3f const& query) {
           std::vector<unsigned> found;
           std::vector<float> distances;
           tree.knnSearch<L2>(query, static_cast<int>(points(s).total()), found, distances);
           return cv::Mat(1, static_cast<int>(found.size()), CV_32FC2, found.data()); // as large as both
         });
       }},
      editing("`PointCloud::clean`, first call", Tree::None, [](PointCloud& c) { c.clean(radius, 8); }),
      editing("`PointCloud::clean`", Tree::Built, [](PointCloud& c) { c.clean(radius, 8); }),
      editing("`PointCloud::clean`, nothing stays", Tree::Built, [](PointCloud& c) { c.clean(radius, 100); }),
      editing("`PointCloud::filterSmallCluster`", Tree::Built,
              [](PointCloud& c) { c.filterSmallCluster(radius, 500); }),
      editing("`PointCloud::filterSmallCluster`, one cluster", Tree::Built,
              [](PointCloud& c) { c.filterSmallCluster(wide, 500); }),
      editing("`PointCloud::filterSmallClusterOrganized`", Tree::None,
              [](PointCloud& c) { c.filterSmallClusterOrganized(radius, 500); }),
      editing("`PointCloud::filterSmallClusterOrganized`, no two joined", Tree::None,
              [](PointCloud& c) { c.filterSmallClusterOrganized(0.1F * pitch, 500); }),
      editing("`PointCloud::markEdgePoints`", Tree::Built,
              [](PointCloud& c) { c.markEdgePoints(radius, 12); }),
      editing("`PointCloud::filterByZRange`", Tree::None, [](PointCloud& c) { c.filterByZRange(490, 510); }),
      editing("`PointCloud::filterByDz`", Tree::None, [](PointCloud& c) { c.filterByDz(1); }),
      editing("`PointCloud::filterBorder`", Tree::None, [](PointCloud& c) { c.filterBorder(3); }),
      editing("`PointCloud::filterOutlier`", Tree::None, [](PointCloud& c) { c.filterOutlier(); }),
      editing("`PointCloud::saveState`, `undoState`", Tree::None,
              [](PointCloud& c) {
                c.saveState();
                c.undoState();
              }),
      editing("`PointCloud::applyTransform`", Tree::None, [](PointCloud& c) { c.applyTransform(); }),
      {"`PointCloud::calcDistStat`",
       [](Sizes const& s) {
         PointCloud other(points(s), true);
         other.octree();
         return edit(s, Tree::None, [&](PointCloud& c) { c.calcDistStat(other); });
       }},
      {"`PointCloud::getGraphicObject`",
       [](Sizes const& s) {
         PointCloud const cloud(points(s), true);
         return workingBytes(points(s).total(), [&] { return cloud.getGraphicObject(true); });
       }},
      editing("`PlaneRemovalFilter`", Tree::None, removePlane),
      editing("`UniformSampler`", Tree::Built,
              [](PointCloud& c) {
                mv::pc::UniformSampler sampler;
                sampler["Radius"] = 0.25;
                sampler(c);
              }),
  };
}

} // namespace vorn::bench
