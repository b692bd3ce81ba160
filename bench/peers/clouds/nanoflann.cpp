// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "clouds/contender.hpp"

#ifdef VORN_HAS_NANOFLANN

#include <numeric>
#include <utility>

#include <nanoflann.hpp>

namespace vorn::bench {

namespace {

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
} // namespace

void addNanoflann(std::vector<Contender>& contenders) {
  contenders.push_back({"build", "nanoflann", buildNanoflann, {0}});
  contenders.push_back({"count", "nanoflann", countNanoflann, radii()});
  contenders.push_back({"search", "nanoflann", searchNanoflann, radii()});
  contenders.push_back({"knn", "nanoflann", knnNanoflann, nearest()});
  contenders.push_back({"clean", "nanoflann", cleanNanoflann, {0}});
  contenders.push_back({"clusters", "nanoflann", clustersNanoflann, {0}});
}

} // namespace vorn::bench

#else

namespace vorn::bench {
void addNanoflann(std::vector<Contender>& /*contenders*/) {}
} // namespace vorn::bench

#endif
