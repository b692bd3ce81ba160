// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/normal_orientation.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>
#include <vector>

#include "pointcloud/octree_nearest.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

using L2 = Distance<cv::Vec3f>::L2;

/// Neighbours of a point in the graph.
constexpr std::size_t edgesPerPoint = 8;
constexpr unsigned noPoint = std::numeric_limits<unsigned>::max();
/// Edges are taken by how much their normals agree, in so many classes.
constexpr std::size_t agreements = 512;
/// A piece whose normals point from its middle less than this, as a mean cosine, has no inside.
constexpr double leastOutward = 0.05;

/// The nearest few points, as indices.
class NearestFew {
public:
  float worst() const { return squares_.back(); }
  void add(unsigned index, float square) {
    std::size_t place = edgesPerPoint - 1;
    for (; place > 0 && squares_[place - 1] > square; --place) {
      squares_[place] = squares_[place - 1];
      indices[place] = indices[place - 1];
    }
    squares_[place] = square;
    indices[place] = index;
  }

  std::array<unsigned, edgesPerPoint> indices = filled(noPoint);

private:
  template <class Value>
  static std::array<Value, edgesPerPoint> filled(Value value) {
    std::array<Value, edgesPerPoint> array{};
    array.fill(value);
    return array;
  }

  std::array<float, edgesPerPoint> squares_ = filled(std::numeric_limits<float>::max());
};

/// Sets of points of which each knows whether its normal is turned against that of its set's first point.
class TurnedSets {
public:
  explicit TurnedSets(std::size_t count) : parents_(count), turned_(count) {
    std::iota(parents_.begin(), parents_.end(), 0U);
  }

  /// The first point of a point's set, and whether the point is turned against it.
  std::pair<unsigned, bool> find(unsigned point) {
    unsigned root = point;
    bool isTurned = false;
    while (parents_[root] != root) {
      isTurned ^= turned_[root] != 0;
      root = parents_[root];
    }
    bool rest = isTurned;
    while (parents_[point] != root && point != root) {
      unsigned const next = parents_[point];
      bool const wasTurned = turned_[point] != 0;
      parents_[point] = root;
      turned_[point] = rest ? 1 : 0;
      rest ^= wasTurned;
      point = next;
    }
    return {root, isTurned};
  }

  /// Joins the sets of two points so that they are turned against each other or not.
  void join(unsigned a, unsigned b, bool areOpposed) {
    auto [rootA, turnedA] = find(a);
    auto [rootB, turnedB] = find(b);
    if (rootA != rootB) {
      unsigned const low = std::min(rootA, rootB);
      unsigned const high = std::max(rootA, rootB);
      parents_[high] = low;
      turned_[high] = (turnedA != turnedB) != areOpposed ? 1 : 0;
    }
  }

private:
  std::vector<unsigned> parents_;
  std::vector<std::uint8_t> turned_;
};

struct Graph {
  std::vector<std::array<unsigned, edgesPerPoint>> neighbours; ///< `noPoint` where there is none
};

Graph graphOf(cv::Mat_<cv::Vec3f> const& points, GridOctree const& tree, cv::Mat_<cv::Vec3f> const& normals,
              Progress const& progress) {
  Graph graph;
  graph.neighbours.resize(points.total());
  withPointAccess(points, [&](auto const& access) {
    parallelRows(points.rows, 16, progress, "orientation", [&](int firstRow, int endRow) {
      for (int row = firstRow; row < endRow; ++row) {
        for (int column = 0; column < points.cols; ++column) {
          auto const index = static_cast<unsigned>(row * points.cols + column);
          NearestFew nearest;
          if (normals(row, column) != cv::Vec3f()) {
            findNearest<L2>(OctreeView(tree), access, access[index], nearest, [&](unsigned other) {
              return other != index && normals(static_cast<int>(other) / points.cols,
                                               static_cast<int>(other) % points.cols) != cv::Vec3f();
            });
          }
          graph.neighbours[index] = nearest.indices;
        }
      }
    });
  });
  return graph;
}

std::size_t classOf(cv::Vec3f const& a, cv::Vec3f const& b) {
  auto const agreement = static_cast<std::size_t>(std::abs(a.dot(b)) * static_cast<float>(agreements));
  return agreements - 1 - std::min(agreement, agreements - 1);
}

/// Calls `body(from, to)` for all edges, those with the most similar normals first.
template <class Body>
void forEdgesByAgreement(Graph const& graph, std::vector<cv::Vec3f> const& normals, Body const& body) {
  std::vector<std::size_t> starts(agreements + 1);
  auto const forEdges = [&](auto const& visit) {
    for (unsigned from = 0; from < normals.size(); ++from) {
      for (unsigned const to : graph.neighbours[from]) {
        if (to != noPoint) {
          visit(from, to, classOf(normals[from], normals[to]));
        }
      }
    }
  };
  forEdges([&](unsigned, unsigned, std::size_t c) { ++starts[c + 1]; });
  std::partial_sum(starts.begin(), starts.end(), starts.begin());
  std::vector<std::pair<unsigned, unsigned>> edges(starts.back());
  forEdges([&](unsigned from, unsigned to, std::size_t c) { edges[starts[c]++] = {from, to}; });
  for (auto const& [from, to] : edges) {
    body(from, to);
  }
}

/// What decides on a piece's side.
struct Piece {
  cv::Vec3d sum;
  double count = 0.0;
  double outward = 0.0;
  double distances = 0.0;
  double towardsView = 0.0;
};

} // namespace

void orientConsistently(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                        GridOctree const& tree, cv::Point3f const& viewpoint, cv::Mat_<cv::Vec3f>& normals,
                        Progress const& progress) {
  Graph const graph = graphOf(points, tree, normals, progress);
  std::vector<cv::Vec3f> flat(normals.begin(), normals.end());
  TurnedSets sets(flat.size());
  forEdgesByAgreement(
      graph, flat, [&](unsigned from, unsigned to) { sets.join(from, to, flat[from].dot(flat[to]) < 0.0F); });
  auto const isUsed = [&](unsigned i) {
    return state(static_cast<int>(i) / points.cols, static_cast<int>(i) % points.cols) == 0 &&
           flat[i] != cv::Vec3f();
  };
  auto const pointOf = [&](unsigned i) {
    return cv::Vec3d(points(static_cast<int>(i) / points.cols, static_cast<int>(i) % points.cols));
  };
  std::vector<Piece> pieces(flat.size());
  for (unsigned i = 0; i < flat.size(); ++i) {
    if (isUsed(i)) {
      auto const [root, isTurned] = sets.find(i);
      flat[i] = isTurned ? -flat[i] : flat[i];
      pieces[root].sum += pointOf(i);
      pieces[root].count += 1.0;
    }
  }
  for (unsigned i = 0; i < flat.size(); ++i) {
    if (isUsed(i)) {
      Piece& piece = pieces[sets.find(i).first];
      cv::Vec3d const offset = pointOf(i) - piece.sum * (1.0 / piece.count);
      cv::Vec3d const normal(flat[i]);
      piece.outward += normal.dot(offset);
      piece.distances += std::sqrt(offset.dot(offset));
      piece.towardsView +=
          normal.dot(cv::Vec3d(viewpoint.x, viewpoint.y, viewpoint.z) - pointOf(i)) < 0.0 ? -1.0 : 1.0;
    }
  }
  for (unsigned i = 0; i < flat.size(); ++i) {
    if (isUsed(i)) {
      Piece const& piece = pieces[sets.find(i).first];
      bool const hasInside = std::abs(piece.outward) > leastOutward * piece.distances;
      double const side = hasInside ? piece.outward : piece.towardsView;
      normals(static_cast<int>(i) / points.cols, static_cast<int>(i) % points.cols) =
          side < 0.0 ? -flat[i] : flat[i];
    }
  }
}

} // namespace vorn::mv
