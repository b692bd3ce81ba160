// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Neighbour search and cleaning with other libraries, beside ours in one run, on an organized scan, a random
// cube and a spherical shell (kind 0, 1, 2) of 100 k and 1 M points, and on a scan of 5 M; one thread unless
// the name says otherwise.
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <benchmark/benchmark.h>
#include <numeric>
#include <opencv2/core/utility.hpp>
#include <string>
#include <utility>
#include <vector>

#include <vorn/core/system.hpp>

#include "cloud_inputs.hpp"

#ifdef VORN_HAS_NANOFLANN
#include <nanoflann.hpp>
#endif
#ifdef VORN_HAS_PCL
#include <pcl/filters/radius_outlier_removal.h>
#include <pcl/octree/octree_search.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>
#include <pcl/segmentation/extract_clusters.h>
#endif
#ifdef VORN_HAS_OPEN3D
#include <open3d/geometry/PointCloud.h>
#endif

namespace {

using namespace vorn;
using L2 = mv::Distance<cv::Vec3f>::L2;

constexpr float cleanRadius = 0.3F;
constexpr int cleanNeighbours = 10;
constexpr int clusterSize = 500;

/// The arguments of a benchmark: the kind of cloud, the root of its number of points, and what is asked for.
cv::Mat_<cv::Vec3f> cloudOf(benchmark::State const& state) {
  return bench::cloudOfKind(state.range(0), state.range(1));
}
float radiusOf(benchmark::State const& state) {
  return bench::radiusForNeighbours(state.range(0), state.range(2));
}

void perPoint(benchmark::State& state, std::size_t count) {
  state.counters["each"] =
      benchmark::Counter(static_cast<double>(count),
                         benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

/// Runs `search(query)` for points of the cloud and reports the time a query.
template <class Search>
void runQueries(benchmark::State& state, cv::Mat_<cv::Vec3f> const& points, Search const& search) {
  std::vector<int> const queries = bench::queryIndices(points.total());
  for (auto _ : state) {
    std::size_t found = 0;
    for (int const query : queries) {
      found += search(points(query));
    }
    benchmark::DoNotOptimize(found);
  }
  perPoint(state, queries.size());
}

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

#ifdef VORN_HAS_NANOFLANN
/// A matrix of points as the library wants to see it.
struct MatrixAdaptor {
  cv::Mat_<cv::Vec3f> points;

  std::size_t kdtree_get_point_count() const { return points.total(); }
  float kdtree_get_pt(std::size_t index, std::size_t axis) const {
    return points.ptr<float>()[3 * index + axis];
  }
  template <class Box>
  bool kdtree_get_bbox(Box& /*box*/) const {
    return false;
  }
};
using KdTree = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, MatrixAdaptor>,
                                                   MatrixAdaptor, 3, unsigned>;

/// Counts points within a radius until there are enough.
class CountingSet {
public:
  CountingSet(float square, std::size_t enough) : square_(square), enough_(enough) {}
  std::size_t size() const { return size_; }
  bool full() const { return true; }
  bool addPoint(float distance, unsigned /*index*/) {
    size_ += distance < square_ ? 1 : 0;
    return size_ < enough_;
  }
  float worstDist() const { return square_; }

private:
  float square_;
  std::size_t enough_;
  std::size_t size_ = 0;
};

struct KdTreeOfCloud {
  explicit KdTreeOfCloud(benchmark::State const& state) : adaptor{cloudOf(state)}, tree(3, adaptor) {}

  MatrixAdaptor adaptor;
  KdTree tree;
};

void buildNanoflann(benchmark::State& state) {
  MatrixAdaptor const adaptor{cloudOf(state)};
  for (auto _ : state) {
    KdTree const tree(3, adaptor);
    benchmark::DoNotOptimize(tree.size(tree));
  }
  perPoint(state, adaptor.points.total());
}

void countNanoflann(benchmark::State& state) {
  KdTreeOfCloud const cloud(state);
  float const radius = radiusOf(state);
  runQueries(state, cloud.adaptor.points, [&](cv::Vec3f const& query) {
    CountingSet set(radius * radius, ~std::size_t{0});
    cloud.tree.findNeighbors(set, query.val, nanoflann::SearchParams());
    return set.size();
  });
}

void searchNanoflann(benchmark::State& state) {
  KdTreeOfCloud const cloud(state);
  float const radius = radiusOf(state);
  std::vector<std::pair<unsigned, float>> found;
  runQueries(state, cloud.adaptor.points, [&](cv::Vec3f const& query) {
    return cloud.tree.radiusSearch(query.val, radius * radius, found,
                                   nanoflann::SearchParams(32, 0.0F, false));
  });
}

void knnNanoflann(benchmark::State& state) {
  KdTreeOfCloud const cloud(state);
  auto const k = static_cast<std::size_t>(state.range(2));
  std::vector<unsigned> indices(k);
  std::vector<float> distances(k);
  runQueries(state, cloud.adaptor.points, [&](cv::Vec3f const& query) {
    return cloud.tree.knnSearch(query.val, k, indices.data(), distances.data());
  });
}

/// What a skilled user writes: tree, counting with early exit, no states.
void cleanNanoflann(benchmark::State& state) {
  MatrixAdaptor const adaptor{cloudOf(state)};
  std::vector<uchar> isSparse(adaptor.points.total());
  for (auto _ : state) {
    KdTree const tree(3, adaptor);
    for (std::size_t i = 0; i < isSparse.size(); ++i) {
      CountingSet set(cleanRadius * cleanRadius, cleanNeighbours);
      tree.findNeighbors(set, adaptor.points.ptr<float>() + 3 * i, nanoflann::SearchParams());
      isSparse[i] = set.size() < cleanNeighbours ? 1 : 0;
    }
  }
  state.counters["deleted"] = std::accumulate(isSparse.begin(), isSparse.end(), 0.0);
}

void clustersNanoflann(benchmark::State& state) {
  MatrixAdaptor const adaptor{cloudOf(state)};
  std::size_t deleted = 0;
  for (auto _ : state) {
    KdTree const tree(3, adaptor);
    std::vector<uchar> isVisited(adaptor.points.total());
    std::vector<std::pair<unsigned, float>> found;
    std::vector<unsigned> cluster;
    deleted = 0;
    for (unsigned seed = 0; seed < isVisited.size(); ++seed) {
      if (isVisited[seed] != 0) {
        continue;
      }
      cluster.assign(1, seed);
      isVisited[seed] = 1;
      for (std::size_t next = 0; next < cluster.size(); ++next) {
        tree.radiusSearch(adaptor.points.ptr<float>() + 3 * std::size_t{cluster[next]},
                          cleanRadius * cleanRadius, found, nanoflann::SearchParams(32, 0.0F, false));
        for (auto const& neighbour : found) {
          if (isVisited[neighbour.first] == 0) {
            isVisited[neighbour.first] = 1;
            cluster.push_back(neighbour.first);
          }
        }
      }
      deleted += cluster.size() < clusterSize ? cluster.size() : 0;
    }
  }
  state.counters["deleted"] = static_cast<double>(deleted);
}
#endif

#ifdef VORN_HAS_PCL
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
#endif

#ifdef VORN_HAS_OPEN3D
open3d::geometry::PointCloud open3dCloud(cv::Mat_<cv::Vec3f> const& points) {
  open3d::geometry::PointCloud cloud;
  for (cv::Vec3f const& point : points) {
    cloud.points_.emplace_back(point[0], point[1], point[2]);
  }
  return cloud;
}

void cleanOpen3d(benchmark::State& state) {
  open3d::geometry::PointCloud const cloud = open3dCloud(cloudOf(state));
  for (auto _ : state) {
    auto const kept = cloud.RemoveRadiusOutliers(cleanNeighbours, static_cast<double>(cleanRadius));
    benchmark::DoNotOptimize(std::get<0>(kept));
  }
}

void clustersOpen3d(benchmark::State& state) {
  open3d::geometry::PointCloud const cloud = open3dCloud(cloudOf(state));
  for (auto _ : state) {
    benchmark::DoNotOptimize(cloud.ClusterDBSCAN(static_cast<double>(cleanRadius), 1));
  }
}
#endif

struct Contender {
  std::string work;
  std::string name;
  void (*run)(benchmark::State&);
  std::vector<long> sizes;
};

void registerAt(Contender const& contender, long kind, long side, long size) {
  benchmark::RegisterBenchmark((contender.work + "/" + contender.name).c_str(), contender.run)
      ->Args({kind, side, size})
      ->ArgNames({"kind", "side", "n"})
      ->Unit(benchmark::kMillisecond)
      ->MeasureProcessCPUTime();
}

/// Those who do the same with the same points run one after the other. The largest cloud is of one kind only.
void registerInTurn(std::vector<Contender> const& contenders) {
  for (auto const& [kind, side] :
       {std::pair{0L, 316L}, {1L, 316L}, {2L, 316L}, {0L, 1000L}, {1L, 1000L}, {2L, 1000L}, {0L, 2236L}}) {
    for (Contender const& first : contenders) {
      if (first.name != "ours") {
        continue;
      }
      for (long const size : first.sizes) {
        for (Contender const& contender : contenders) {
          if (contender.work == first.work) {
            registerAt(contender, kind, side, size);
          }
        }
      }
    }
  }
}

bool const isRegistered = [] {
  std::vector<long> const radii{10, 50, 500};
  std::vector<long> const nearest{1, 8, 32};
  std::vector<Contender> contenders;
  contenders.push_back({"build", "ours", buildOurs, {0}});
  contenders.push_back({"count", "ours", countOurs, radii});
  contenders.push_back({"search", "ours", searchOurs, radii});
  contenders.push_back({"knn", "ours", knnOurs, nearest});
  contenders.push_back({"clean", "ours", cleanOurs, {0}});
  contenders.push_back({"clean", "ours/two_threads", cleanOursTwoThreads, {0}});
  contenders.push_back({"clusters", "ours", clustersOurs, {0}});
  contenders.push_back({"clusters", "ours/two_threads", clustersOursTwoThreads, {0}});
#ifdef VORN_HAS_NANOFLANN
  contenders.push_back({"build", "nanoflann", buildNanoflann, {0}});
  contenders.push_back({"count", "nanoflann", countNanoflann, radii});
  contenders.push_back({"search", "nanoflann", searchNanoflann, radii});
  contenders.push_back({"knn", "nanoflann", knnNanoflann, nearest});
  contenders.push_back({"clean", "nanoflann", cleanNanoflann, {0}});
  contenders.push_back({"clusters", "nanoflann", clustersNanoflann, {0}});
#endif
#ifdef VORN_HAS_PCL
  contenders.push_back({"build", "pcl", buildPcl, {0}});
  contenders.push_back({"search", "pcl", searchPcl, radii});
  contenders.push_back({"knn", "pcl", knnPcl, nearest});
  contenders.push_back({"clean", "pcl", cleanPcl, {0}});
  contenders.push_back({"clusters", "pcl", clustersPcl, {0}});
#endif
#ifdef VORN_HAS_OPEN3D
  contenders.push_back({"clean", "open3d", cleanOpen3d, {0}});
  contenders.push_back({"clusters", "open3d", clustersOpen3d, {0}});
#endif
  registerInTurn(contenders);
  return true;
}();

} // namespace
