// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "pointcloud/normal_orientation.hpp"
#include "pointcloud/smallest_axis.hpp"
#include "registration/surface_block.hpp"

namespace vorn::mv {

namespace {

using L2 = Distance<cv::Vec3f>::L2;

constexpr double fewestInBlock = 5.0;
/// Leaves among which a point's seed is, its own included.
constexpr int leavesAround = 8;
/// Seeds are farther apart than so many radii of the fuller one.
constexpr float leastApart = 1.5F;
/// The block itself and those around it, whose points its normal is from.
constexpr int blocksOfNormal = 5;

/// What the points of a leaf sum up to.
struct Moments {
  double count = 0.0;
  cv::Vec3d mean;
  cv::Matx33d scatter; ///< about the mean

  /// The moments of both sets of points.
  void add(Moments const& other) {
    double const all = count + other.count;
    cv::Vec3d const way = other.mean - mean;
    scatter += other.scatter + way * way.t() * (count * other.count / all);
    mean += way * (other.count / all);
    count = all;
  }

  double along(cv::Vec3d const& normal) const { return std::max(0.0, normal.dot(scatter * normal)); }
  double trace() const { return scatter(0, 0) + scatter(1, 1) + scatter(2, 2); }
};

/// Makes the blocks of a list. The leaves of its octree are as large as blocks should be, but cut through the
/// noise where a face of a cube lies along the surface. So the fuller ones of them are seeds, and each point
/// belongs to the nearest seed: that cuts across the surface alone.
class ListBlocks {
public:
  ListBlocks(PointCloud& cloud, Progress const& progress)
      : tree_(cloud.octree()), points_(inOnePiece(std::as_const(cloud).points())),
        normals_(inOnePiece(std::as_const(cloud).normals())),
        state_(inOnePiece(std::as_const(cloud).state())), hasNormals_(!normals_.empty()),
        progress_(progress) {
    gather();
  }

  SurfaceBlocks make(cv::Point3f const& viewpoint) {
    cv::Mat_<cv::Vec3f> places(static_cast<int>(blocks_.size()), 1);
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
      places(static_cast<int>(i)) = cv::Vec3f(blocks_[i].place);
    }
    PointCloud means(places, false);
    findNormals(means.octree(), places);
    lift();
    cv::Mat_<cv::Vec3f> normals(places.size());
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
      normals(static_cast<int>(i)) = cv::Vec3f(blocks_[i].normal);
    }
    if (!hasNormals_) {
      orientConsistently(places, means.state(), means.octree(), viewpoint, normals, progress_);
    }
    return collect(normals);
  }

private:
  struct Leaf {
    unsigned first;
    unsigned count;
    float radius;
    bool isSeed;
    std::vector<unsigned> around; ///< the nearest leaves, itself included
  };

  /// The mean of a leaf that makes a block.
  struct Seed {
    cv::Vec3f place;
    unsigned leaf;
  };

  /// The sums of a leaf's or a block's points.
  struct Sums {
    double count = 0.0;
    cv::Vec3d origin;
    cv::Vec3d sum; ///< from the origin
    cv::Matx33d products = cv::Matx33d::zeros();
    cv::Vec3d normal;

    void add(cv::Vec3f const& point, cv::Vec3f const& own) {
      cv::Vec3d const offset = cv::Vec3d(point) - origin;
      count += 1.0;
      sum += offset;
      products += offset * offset.t();
      normal += cv::Vec3d(own);
    }
    cv::Vec3d mean() const { return origin + sum * (1.0 / count); }
    Moments moments() const { return {count, mean(), products - sum * sum.t() * (1.0 / count)}; }
  };

  /// So that cells are found without rows and columns.
  template <class T>
  static cv::Mat_<T> inOnePiece(cv::Mat_<T> const& matrix) {
    return matrix.isContinuous() ? matrix : cv::Mat_<T>(matrix.clone());
  }

  cv::Vec3f const& pointAt(unsigned cell) const { return points_.ptr<cv::Vec3f>()[cell]; }
  cv::Vec3f normalAt(unsigned cell) const {
    return hasNormals_ ? normals_.ptr<cv::Vec3f>()[cell] : cv::Vec3f();
  }

  /// Calls `body(cell)` for the points of a leaf that may be used.
  template <class Body>
  void forPoints(Leaf const& leaf, Body const& body) const {
    for (unsigned i = leaf.first; i < leaf.first + leaf.count; ++i) {
      unsigned const cell = tree_.chain()[i];
      cv::Vec3f const own = normalAt(cell);
      if (state_.ptr<uchar>()[cell] == 0 && (!hasNormals_ || own.dot(own) > 0.5F)) {
        body(cell);
      }
    }
  }

  void gather() {
    std::vector<Leaf> leaves;
    std::vector<cv::Vec3f> means;
    for (BasicOctant<unsigned> const& octant : tree_.octants()) {
      if (octant.isLeaf) {
        Leaf leaf{octant.first, octant.count, 0.0F, true, {}};
        Sums sums;
        sums.origin = cv::Vec3d(pointAt(tree_.chain()[octant.first]));
        forPoints(leaf, [&](unsigned cell) { sums.add(pointAt(cell), {}); });
        if (sums.count > 0.0) {
          leaf.radius = static_cast<float>(std::sqrt(sums.moments().trace() / sums.count));
          means.emplace_back(sums.mean());
          leaves.push_back(std::move(leaf));
        }
      }
    }
    chooseSeeds(leaves, means);
    std::vector<Sums> sums(leaves.size());
    for (std::size_t i = 0; i < leaves.size(); ++i) {
      sums[i].origin = cv::Vec3d(means[i]);
    }
    std::vector<Seed> seeds;
    for (Leaf const& leaf : leaves) {
      seeds.clear();
      for (unsigned const other : leaf.around) {
        if (leaves[other].isSeed) {
          seeds.push_back({means[other], other});
        }
      }
      if (!seeds.empty()) {
        forPoints(leaf, [&](unsigned cell) {
          cv::Vec3f const& point = pointAt(cell);
          sums[nearestSeed(seeds, point)].add(point, normalAt(cell));
        });
      }
    }
    for (Sums const& each : sums) {
      addBlock(each);
    }
  }

  void chooseSeeds(std::vector<Leaf>& leaves, std::vector<cv::Vec3f> const& means) const {
    cv::Mat_<cv::Vec3f> const places(means, false);
    GridOctree tree;
    tree.init(places);
    parallelRows(static_cast<int>(leaves.size()), 4096, progress_, "blocks", [&](int first, int end) {
      std::vector<float> squares;
      for (int at = first; at < end; ++at) {
        auto const i = static_cast<std::size_t>(at);
        tree.knnSearch<L2>(means[i], leavesAround, leaves[i].around, squares);
        for (std::size_t k = 0; k < squares.size(); ++k) {
          unsigned const j = leaves[i].around[k];
          bool const isFuller =
              std::pair(leaves[j].count, j) > std::pair(leaves[i].count, static_cast<unsigned>(at));
          float const apart = leastApart * leaves[j].radius;
          if (isFuller && squares[k] < apart * apart) {
            leaves[i].isSeed = false;
          }
        }
      }
    });
  }

  static unsigned nearestSeed(std::vector<Seed> const& seeds, cv::Vec3f const& point) {
    unsigned found = seeds.front().leaf;
    float best = std::numeric_limits<float>::max();
    for (Seed const& seed : seeds) {
      cv::Vec3f const way = seed.place - point;
      float const square = way.dot(way);
      if (square < best) {
        best = square;
        found = seed.leaf;
      }
    }
    return found;
  }

  void addBlock(Sums const& sums) {
    double const length = std::sqrt(sums.normal.dot(sums.normal));
    if (sums.count < fewestInBlock || (hasNormals_ && !(length > leastAgreement * sums.count))) {
      return;
    }
    SurfaceBlock block;
    block.count = sums.count;
    block.place = sums.mean();
    block.normal = !hasNormals_ ? cv::Vec3d() : sums.normal * (1.0 / length);
    moments_.push_back(sums.moments());
    block.radius = std::sqrt(moments_.back().trace() / sums.count);
    blocks_.push_back(block);
  }

  void findNormals(GridOctree const& tree, cv::Mat_<cv::Vec3f> const& places) {
    around_.resize(blocks_.size());
    parallelRows(static_cast<int>(blocks_.size()), 4096, progress_, "normals", [&](int first, int end) {
      std::vector<float> squares;
      for (int at = first; at < end; ++at) {
        auto const i = static_cast<std::size_t>(at);
        tree.knnSearch<L2>(places(at), blocksOfNormal, around_[i], squares);
        Moments all;
        for (unsigned const other : around_[i]) {
          all.add(moments_[other]);
        }
        SurfaceBlock& block = blocks_[i];
        if (!hasNormals_) {
          cv::Matx33d const& s = all.scatter;
          double const products[6] = {s(0, 0), s(0, 1), s(0, 2), s(1, 1), s(1, 2), s(2, 2)};
          block.normal = smallestAxisOf(products).direction;
        }
        block.bend = std::sqrt(all.along(block.normal) / all.count);
        block.bendRadius = std::sqrt(all.trace() / all.count);
        block.squares = moments_[i].along(block.normal);
        block.count = block.normal == cv::Vec3d() ? 0.0 : block.count;
      }
    });
  }

  /// The mean of points of a curved surface lies off it by half the mean product of their offsets and of how
  /// their normals differ, which the blocks around tell for farther ones.
  void lift() {
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
      double products = 0.0;
      double squares = 0.0;
      for (unsigned const other : around_[i]) {
        cv::Vec3d const way = blocks_[other].place - blocks_[i].place;
        double const side = blocks_[other].normal.dot(blocks_[i].normal) < 0.0 ? -1.0 : 1.0;
        products += way.dot(blocks_[other].normal * side - blocks_[i].normal);
        squares += way.dot(way);
      }
      double const own = blocks_[i].radius * blocks_[i].radius;
      blocks_[i].lift = squares > 0.0 ? 0.5 * products * own / squares : 0.0;
    }
  }

  SurfaceBlocks collect(cv::Mat_<cv::Vec3f> const& normals) const {
    std::vector<bool> const areSmooth = smoothOnes(blocks_);
    std::vector<cv::Vec3f> keptPlaces;
    std::vector<cv::Vec3f> keptNormals;
    for (std::size_t i = 0; i < blocks_.size(); ++i) {
      if (areSmooth[i]) {
        keptPlaces.emplace_back(blocks_[i].place + blocks_[i].lift * blocks_[i].normal);
        keptNormals.push_back(normals(static_cast<int>(i)));
      }
    }
    SurfaceBlocks result;
    result.cloud =
        PointCloud(cv::Mat_<cv::Vec3f>(keptPlaces, true), false, cv::Mat_<cv::Vec3f>(keptNormals, true));
    result.side = blockSide;
    addFigures(blocks_, areSmooth, result);
    return result;
  }

  GridOctree const& tree_;
  cv::Mat_<cv::Vec3f> points_;
  cv::Mat_<cv::Vec3f> normals_;
  cv::Mat_<uchar> state_;
  bool hasNormals_;
  Progress progress_;
  std::vector<Moments> moments_;
  std::vector<SurfaceBlock> blocks_;
  std::vector<std::vector<unsigned>> around_;
};

} // namespace

SurfaceBlocks listBlocks(PointCloud& cloud, Progress const& progress) {
  cv::Vec3d const& offset = cloud.offset();
  return ListBlocks(cloud, progress).make(cv::Point3f(cv::Vec3f(-offset)));
}

} // namespace vorn::mv
