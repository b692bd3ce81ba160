// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include <vorn/core/system.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/geometry/transform.hpp>

#include "core/error.hpp"
#include "core/parallel.hpp"
#include "core/pieces.hpp"
#include "pointcloud/flat_states.hpp"
#include "pointcloud/octree_nearest.hpp"
#include "pointcloud/point_access.hpp"
#include "pointcloud/radius_cleaning.hpp"
#include "pointcloud/remaining_points.hpp"

namespace vorn::mv {

namespace {

using L2 = Distance<cv::Vec3f>::L2;

/// Marks all present points of clusters below `minClusterSize`.
template <class Points>
std::vector<uchar> findSmallClusters(GridOctree const& tree, Points const& points, float maxDistance,
                                     int minClusterSize, std::vector<uchar> const& states,
                                     Progress const& progress) {
  RemainingPoints<Points> remaining(tree, points, states, progress.part(0.0, 0.2));
  std::vector<uchar> isVisited(states.size());
  std::vector<uchar> isSmall(states.size());
  std::vector<unsigned> cluster;
  std::size_t visited = 0;
  auto const askSometimes = [&] {
    constexpr std::size_t pointsBetweenAskings = std::size_t{1} << 14;
    if (visited++ % pointsBetweenAskings == 0) {
      double const share = static_cast<double>(visited) / static_cast<double>(states.size());
      progress.at("finding clusters", 0.2 + 0.8 * share);
    }
  };
  for (unsigned seed = 0; seed < states.size(); ++seed) {
    if (states[seed] != 0 || isVisited[seed] != 0) {
      continue;
    }
    cluster.assign(1, seed);
    isVisited[seed] = 1;
    for (std::size_t next = 0; next < cluster.size(); ++next) {
      askSometimes();
      std::size_t size = cluster.size();
      remaining.takeBall(points[cluster[next]], maxDistance, cluster);
      for (std::size_t i = size; i < cluster.size(); ++i) {
        // A seed was not taken from the tree; it finds itself there.
        if (isVisited[cluster[i]] == 0) {
          isVisited[cluster[i]] = 1;
          cluster[size++] = cluster[i];
        }
      }
      cluster.resize(size);
    }
    if (cluster.size() < static_cast<std::size_t>(std::max(minClusterSize, 0))) {
      for (unsigned const point : cluster) {
        isSmall[point] = 1;
      }
    }
  }
  return isSmall;
}

/// The distance to the nearest point alone, squared.
class NearestDistance {
public:
  float worst() const { return distance_; }
  void add(unsigned /*index*/, float distance) { distance_ = distance; }

private:
  float distance_ = std::numeric_limits<float>::max();
};

/// From the frame of one cloud's points to that of another's, by the offsets and pending transforms of both.
class FrameChange {
public:
  FrameChange(PointCloud const& from, PointCloud const& to) {
    bool hasInverse = false;
    cv::Matx33d const back = math::getR3(to.getTransform()).inv(cv::DECOMP_LU, &hasInverse);
    if (!hasInverse) {
      throw error("The other cloud's transform has no inverse", "calcDistStat");
    }
    turn_ = back * math::getR3(from.getTransform());
    // The offsets first: they may be alike, and so large that nothing else should be added to them.
    shift_ = back * ((from.offset() - to.offset()) +
                     (math::getT3(from.getTransform()) - math::getT3(to.getTransform())));
    isNone_ = turn_ == cv::Matx33d::eye() && shift_ == cv::Vec3d();
  }

  cv::Vec3f operator()(cv::Vec3f const& point) const {
    return isNone_ ? point : cv::Vec3f(turn_ * cv::Vec3d(point) + shift_);
  }

private:
  cv::Matx33d turn_;
  cv::Vec3d shift_;
  bool isNone_ = true;
};

/// Squared distances from the present, finite points to the nearest present point of a tree; -1 where there
/// is none.
/// @param treeFrame carries the points into the frame of the tree
std::vector<float> nearestDistances(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state,
                                    FrameChange const& treeFrame, GridOctree const& tree,
                                    cv::Mat_<cv::Vec3f> const& treePoints,
                                    std::vector<uchar> const& treeStates) {
  constexpr float none = -1.0F;
  std::vector<float> distances(points.total(), none);
  withPointAccess(treePoints, [&](auto const& access) {
    parallelRows(points.rows, [&](int firstRow, int endRow) {
      for (int row = firstRow; row < endRow; ++row) {
        float* const found =
            distances.data() + static_cast<std::size_t>(row) * static_cast<std::size_t>(points.cols);
        for (int column = 0; column < points.cols; ++column) {
          cv::Vec3f const point = treeFrame(points(row, column));
          if (state(row, column) == 0 && isFinite(point.val)) {
            NearestDistance nearest;
            findNearest<L2>(OctreeView(tree), access, point.val, nearest,
                            [&](unsigned index) { return treeStates[index] == 0; });
            found[column] = nearest.worst() < std::numeric_limits<float>::max() ? nearest.worst() : none;
          }
        }
      }
    });
  });
  return distances;
}

} // namespace

int PointCloud::clean(float radius, int minNeighbours) {
  return clean(radius, minNeighbours, nullptr);
}

int PointCloud::clean(float radius, int minNeighbours, Observer* observer) {
  checkSizes();
  if (isEmpty()) {
    return 0;
  }
  Progress const progress(observer);
  PartObserver treeObserver(progress.part(0.0, 0.4));
  GridOctree const& tree = octree(treeObserver.ifWatched());
  std::vector<uchar> const removed =
      findSparsePoints(points_, flatStates(state_), tree, radius, minNeighbours, progress.part(0.4, 1.0));
  progress.at("deleting points", 1.0);
  int const count = deleteMarked(*this, removed);
  calcBoundingBox();
  return count;
}

int PointCloud::filterSmallCluster(float maxDistance, int minClusterSize) {
  return filterSmallCluster(maxDistance, minClusterSize, nullptr);
}

int PointCloud::filterSmallCluster(float maxDistance, int minClusterSize, Observer* observer) {
  checkSizes();
  if (isEmpty()) {
    return 0;
  }
  Progress const progress(observer);
  PartObserver treeObserver(progress.part(0.0, 0.4));
  GridOctree const& tree = octree(treeObserver.ifWatched());
  std::vector<uchar> const isSmall = withPointAccess(points_, [&](auto const& points) {
    return findSmallClusters(tree, points, maxDistance, minClusterSize, flatStates(state_),
                             progress.part(0.4, 1.0));
  });
  progress.at("deleting points", 1.0);
  int const removed = deleteMarked(*this, isSmall);
  calcBoundingBox();
  return removed;
}

void PointCloud::markEdgePoints(float radius, int minNeighbours) {
  checkSizes();
  if (isEmpty()) {
    return;
  }
  System::message("Marking edge points...\n");
  Timer timer;
  GridOctree const& tree = octree();
  cv::Mat_<uchar> isEdge(points_.size(), uchar{0});
  parallelRows(points_.rows, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      for (int column = 0; column < points_.cols; ++column) {
        if (state_(row, column) == 0) {
          auto const count = tree.radiusNeighborsCount<L2>(points_(row, column), radius);
          isEdge(row, column) = static_cast<std::int64_t>(count) < minNeighbours ? 1 : 0;
        }
      }
    }
  });
  if (hasTexture()) {
    texture_.setTo(cv::Scalar(255, 255, 255), isEdge);
  }
  System::message("Edge point count: " + std::to_string(cv::countNonZero(isEdge)) + "\nFinished in " +
                  timer.toString() + "\n");
}

cv::Vec2d PointCloud::calcDistStat(PointCloud& other) {
  checkSizes();
  other.checkSizes();
  if (isEmpty() || other.isEmpty() || other.octree().isEmpty()) {
    return {0.0, 0.0};
  }
  std::vector<float> const squares = nearestDistances(
      points_, state_, FrameChange(*this, other), other.octree(), other.points_, flatStates(other.state_));
  double sum = 0.0;
  double sumOfSquares = 0.0;
  std::size_t count = 0;
  for (float const square : squares) {
    if (square >= 0.0F) {
      sum += std::sqrt(static_cast<double>(square));
      ++count;
    }
  }
  double const mean = count == 0 ? 0.0 : sum / static_cast<double>(count);
  for (float const square : squares) {
    if (square >= 0.0F) {
      double const deviation = std::sqrt(static_cast<double>(square)) - mean;
      sumOfSquares += deviation * deviation;
    }
  }
  double const sigma = count == 0 ? 0.0 : std::sqrt(sumOfSquares / static_cast<double>(count));
  std::ostringstream message;
  message << "N=" << count << "\nMean=" << mean << " mm\nSigma=" << sigma << "\n";
  System::message(message.str());
  return {mean, sigma};
}

} // namespace vorn::mv
