// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/radius_cleaning.hpp"

#include <algorithm>

#include "core/parallel.hpp"
#include "pointcloud/octree_search.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

using L2 = Distance<cv::Vec3f>::L2;

/// Points judged by one piece of parallel work: enough to outweigh the handing out.
constexpr std::size_t pointsPerTask = 1024;

template <class Body>
void parallelTasks(std::size_t count, Body const& body) {
  auto const tasks = static_cast<int>((count + pointsPerTask - 1) / pointsPerTask);
  parallelRows(tasks, [&](int first, int end) {
    for (int task = first; task < end; ++task) {
      std::size_t const start = static_cast<std::size_t>(task) * pointsPerTask;
      body(static_cast<std::size_t>(task), start, std::min(start + pointsPerTask, count));
    }
  });
}

template <class Points>
class RadiusCleaning {
public:
  RadiusCleaning(Points const& points, std::vector<uchar> const& states, GridOctree const& tree, float radius,
                 int minNeighbours)
      : points_(points), states_(states), tree_(tree), radius_(radius),
        // Rounding may let one point find another that does not find it in turn.
        reach_(radius * (1.0F + 10.0F * boundSlack) + 2.0F * tree.tolerance()), minNeighbours_(minNeighbours),
        removed_(states.size()), waits_(states.size()) {}

  std::vector<uchar> run() {
    if (minNeighbours_ <= 0) {
      return std::move(removed_);
    }
    // In the order of the chain one search finds the octants of the last one still in the cache.
    std::vector<unsigned> candidates;
    candidates.reserve(states_.size());
    for (unsigned const point : std::vector<unsigned>(tree_.chain, tree_.chain + finiteCount())) {
      if (states_[point] == 0) {
        candidates.push_back(point);
      }
    }
    removePointsWithoutNeighbours();
    while (!candidates.empty()) {
      std::vector<unsigned> const sparse = findSparse(candidates);
      for (unsigned const point : sparse) {
        removed_[point] = 1;
      }
      candidates = findBereaved(sparse);
    }
    return std::move(removed_);
  }

private:
  std::size_t finiteCount() const { return tree_.isEmpty ? 0 : tree_.octants[0].count; }

  /// Points that are no numbers have no neighbours, not even themselves.
  void removePointsWithoutNeighbours() {
    for (std::size_t i = 0; i < states_.size(); ++i) {
      removed_[i] = states_[i] == 0 && !isFinite(points_[i]) ? 1 : 0;
    }
  }

  std::vector<unsigned> findSparse(std::vector<unsigned> const& candidates) const {
    std::vector<uchar> isSparse(candidates.size());
    parallelTasks(candidates.size(), [&](std::size_t /*task*/, std::size_t start, std::size_t end) {
      for (std::size_t i = start; i < end; ++i) {
        isSparse[i] = hasEnoughNeighbours(candidates[i]) ? 0 : 1;
      }
    });
    std::vector<unsigned> sparse;
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      if (isSparse[i] != 0) {
        sparse.push_back(candidates[i]);
      }
    }
    return sparse;
  }

  bool counts(unsigned neighbour, unsigned point) const {
    return states_[neighbour] == 0 && !(removed_[neighbour] != 0 && neighbour < point);
  }

  bool hasEnoughNeighbours(unsigned point) const {
    int missing = minNeighbours_;
    Ball<L2> const ball(points_[point], radius_);
    auto const whole = [&](BasicOctant<unsigned> const& octant) {
      unsigned const* const chain = tree_.chain + octant.first;
      for (unsigned i = 0; i < octant.count && missing > 0; ++i) {
        missing -= counts(chain[i], point) ? 1 : 0;
      }
      return missing > 0;
    };
    auto const leaf = [&](BasicOctant<unsigned> const& octant) {
      unsigned const* const chain = tree_.chain + octant.first;
      for (unsigned i = 0; i < octant.count; ++i) {
        bool const isInside = ball.holds(points_[chain[i]]);
        missing -= (isInside & counts(chain[i], point)) ? 1 : 0;
      }
      return missing > 0;
    };
    visitBall(tree_, ball, whole, leaf);
    return missing <= 0;
  }

  /// The points that may still stand and have lost a neighbour of lower index to `sparse`.
  std::vector<unsigned> findBereaved(std::vector<unsigned> const& sparse) {
    std::vector<std::vector<unsigned>> found((sparse.size() + pointsPerTask - 1) / pointsPerTask);
    parallelTasks(sparse.size(), [&](std::size_t task, std::size_t start, std::size_t end) {
      for (std::size_t i = start; i < end; ++i) {
        listLaterNeighbours(sparse[i], found[task]);
      }
    });
    std::vector<unsigned> bereaved;
    for (std::vector<unsigned> const& part : found) {
      for (unsigned const point : part) {
        if (waits_[point] == 0) {
          waits_[point] = 1;
          bereaved.push_back(point);
        }
      }
    }
    for (unsigned const point : bereaved) {
      waits_[point] = 0;
    }
    return bereaved;
  }

  void listLaterNeighbours(unsigned point, std::vector<unsigned>& found) const {
    Ball<L2> const ball(points_[point], reach_);
    auto const visit = [&](BasicOctant<unsigned> const& octant) {
      unsigned const* const chain = tree_.chain + octant.first;
      for (unsigned i = 0; i < octant.count; ++i) {
        unsigned const other = chain[i];
        if (other > point && states_[other] == 0 && removed_[other] == 0 && ball.holds(points_[other])) {
          found.push_back(other);
        }
      }
      return true;
    };
    visitBall(tree_, ball, visit, visit);
  }

  Points points_;
  std::vector<uchar> const& states_;
  OctreeView tree_;
  float radius_;
  float reach_;
  int minNeighbours_;
  std::vector<uchar> removed_;
  std::vector<uchar> waits_;
};

} // namespace

std::vector<uchar> findSparsePoints(cv::Mat_<cv::Vec3f> const& points, std::vector<uchar> const& states,
                                    GridOctree const& tree, float radius, int minNeighbours) {
  return withPointAccess(points, [&](auto const& access) {
    using Points = std::decay_t<decltype(access)>;
    return RadiusCleaning<Points>(access, states, tree, radius, minNeighbours).run();
  });
}

} // namespace vorn::mv
