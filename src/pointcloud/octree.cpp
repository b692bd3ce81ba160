// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/pointcloud/octree.hpp>

#include <algorithm>
#include <array>
#include <limits>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>

#include "core/bits.hpp"
#include "core/error.hpp"
#include "core/progress.hpp"
#include "pointcloud/ball_counter.hpp"
#include "pointcloud/octree_build.hpp"
#include "pointcloud/octree_nearest.hpp"
#include "pointcloud/octree_search.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

std::size_t sizeOf(cv::Mat_<cv::Vec3f> const& points) {
  return points.total();
}
std::size_t sizeOf(std::vector<cv::Point3f> const& points) {
  return points.size();
}

float const* coordinates(cv::Vec3f const& point) {
  return point.val;
}
float const* coordinates(cv::Point3f const& point) {
  return &point.x;
}

struct Neighbour {
  float distance;
  unsigned index;

  bool operator<(Neighbour const& other) const { return distance < other.distance; }
};

/// The nearest points found so far. Few are kept in order all the time; many are gathered until there are
/// twice as many as asked for, and then the farther half is dropped, so that a point costs the same however
/// large k is.
class NearestPoints {
public:
  explicit NearestPoints(std::size_t capacity) : capacity_(capacity), isSorted_(capacity <= sortedCapacity) {
    if (!isSorted_) {
      gathered_.reserve(2 * capacity);
    }
  }

  /// Only points nearer than this still matter.
  float worst() const { return worst_; }

  void add(unsigned index, float distance) {
    if (!isSorted_) {
      gather({distance, index});
      return;
    }
    std::size_t place = size_ < capacity_ ? size_++ : capacity_ - 1;
    for (; place > 0 && sorted_[place - 1].distance > distance; --place) {
      sorted_[place] = sorted_[place - 1];
    }
    sorted_[place] = {distance, index};
    if (size_ == capacity_) {
      worst_ = sorted_[capacity_ - 1].distance;
    }
  }

  std::size_t take(std::vector<unsigned>& indices, std::vector<float>& distances) {
    Neighbour const* nearest = sorted_.data();
    if (!isSorted_) {
      std::stable_sort(gathered_.begin(), gathered_.end());
      size_ = std::min(capacity_, gathered_.size());
      nearest = gathered_.data();
    }
    indices.resize(size_);
    distances.resize(size_);
    for (std::size_t i = 0; i < size_; ++i) {
      indices[i] = nearest[i].index;
      distances[i] = nearest[i].distance;
    }
    return size_;
  }

private:
  static constexpr std::size_t sortedCapacity = 64;

  void gather(Neighbour const& neighbour) {
    gathered_.push_back(neighbour);
    if (gathered_.size() == 2 * capacity_) {
      auto const last = gathered_.begin() + static_cast<std::ptrdiff_t>(capacity_ - 1);
      std::nth_element(gathered_.begin(), last, gathered_.end());
      worst_ = last->distance;
      gathered_.resize(capacity_);
    }
  }

  std::size_t capacity_;
  bool isSorted_;
  std::size_t size_ = 0;
  float worst_ = std::numeric_limits<float>::max();
  std::array<Neighbour, sortedCapacity> sorted_;
  std::vector<Neighbour> gathered_;
};

template <class Kind, class Points>
void listLeaf(OctreeView const& tree, Points const& points, Ball<Kind> const& ball,
              BasicOctant<unsigned> const& leaf, std::vector<unsigned>& indices) {
  // Every index is written and the place moves on only behind those that are inside: no branch to mispredict.
  std::size_t size = indices.size();
  indices.resize(size + leaf.count);
  unsigned const* const chain = tree.chain + leaf.first;
  DistancesOfFour<Kind> const distancesOfFour(ball.centre());
  cv::v_float32x4 const norm = cv::v_setall_f32(ball.norm());
  unsigned i = 0;
  for (; i + 4 <= leaf.count; i += 4) {
    auto const inside = static_cast<unsigned>(cv::v_signmask(distancesOfFour(points, chain + i) < norm));
    for (unsigned j = 0; j < 4; ++j) {
      indices[size] = chain[i + j];
      size += (inside >> j) & 1U;
    }
  }
  for (; i < leaf.count; ++i) {
    indices[size] = chain[i];
    size += ball.holds(points[chain[i]]) ? 1U : 0U;
  }
  indices.resize(size);
}

/// The same by the sketches of the points, so that few of them have to be fetched.
template <class Kind, class Points>
void listSketchedLeaf(OctreeView const& tree, PointSketch const* sketches, Points const& points,
                      Ball<Kind> const& ball, BasicOctant<unsigned> const& leaf,
                      std::vector<unsigned>& indices) {
  std::size_t size = indices.size();
  indices.resize(size + leaf.count);
  unsigned const* const chain = tree.chain + leaf.first;
  SketchedBall sketchedBall;
  BallSketcher<Kind>(ball.centre(), ball.radius(), tree.tolerance).sketch(leaf, sketchedBall);
  SketchedLeaf<Kind> const sketchedLeaf(sketchedBall);
  for (unsigned i = 0; i < leaf.count; i += 4) {
    auto bits = sketchedLeaf.four(sketches + leaf.first + i);
    unsigned const end = std::min(leaf.count - i, 4U);
    bits.doubtful &= (1U << end) - 1U;
    for (; bits.doubtful != 0; bits.doubtful &= bits.doubtful - 1) {
      auto const j = static_cast<unsigned>(__builtin_ctz(bits.doubtful));
      bits.inside |= ball.holds(points[chain[i + j]]) ? 1U << j : 0U;
    }
    for (unsigned j = 0; j < end; ++j) {
      indices[size] = chain[i + j];
      size += (bits.inside >> j) & 1U;
    }
  }
  indices.resize(size);
}

void listWhole(OctreeView const& tree, BasicOctant<unsigned> const& octant, std::vector<unsigned>& indices) {
  unsigned const* const chain = tree.chain + octant.first;
  indices.insert(indices.end(), chain, chain + octant.count);
}

template <class Kind, class Points>
void listRecursively(OctreeView const& tree, Points const& points, Ball<Kind> const& ball,
                     BasicOctant<unsigned> const& octant, std::vector<unsigned>& indices) {
  if (ball.holdsAll(octant)) {
    listWhole(tree, octant, indices);
  } else if (octant.isLeaf) {
    listLeaf(tree, points, ball, octant, indices);
  } else {
    unsigned toVisit = octant.childMask & ChildGeometry<Kind>(octant, loadQuery(ball.centre()))
                                              .nearest(tree.tolerance)
                                              .atMost(ball.norm() * (1.0F + boundSlack));
    for (; toVisit != 0; toVisit &= toVisit - 1) {
      unsigned const child = childPlace(octant, static_cast<unsigned>(__builtin_ctz(toVisit)));
      listRecursively(tree, points, ball, tree.octants[child], indices);
    }
  }
}

void printOctant(std::ostream& stream, OctreeView const& tree, BasicOctant<unsigned> const& octant,
                 int level) {
  std::string const indent(2 * static_cast<std::size_t>(level), ' ');
  stream << indent << "[isLeaf=" << octant.isLeaf << ", c={" << octant.x << "," << octant.y << "," << octant.z
         << "}, e=" << octant.halfSize << ", start=" << tree.chain[octant.first]
         << ", end=" << tree.chain[octant.first + octant.count - 1] << ", count=" << octant.count << "\n";
  if (octant.isLeaf) {
    return;
  }
  unsigned child = octant.children;
  for (unsigned code = 0; code < 8; ++code) {
    stream << indent << "child[" << code << "]:";
    if (((octant.childMask >> code) & 1U) != 0) {
      stream << "\n";
      printOctant(stream, tree, tree.octants[child++], level + 1);
    } else {
      stream << "NULL\n";
    }
  }
}

} // namespace

template <class Point, class Container, class Index>
template <class Body>
decltype(auto) Octree<Point, Container, Index>::withPoints(Body const& body) const {
  if (step_ == columns_ * sizeof(Point)) {
    return body(ContiguousPoints{static_cast<float const*>(static_cast<void const*>(data_))});
  }
  return body(StridedPoints{data_, step_, columns_});
}

template <class Point, class Container, class Index>
void Octree<Point, Container, Index>::init(Container const& points, Param const& param) {
  init(points, param, nullptr);
}

template <class Point, class Container, class Index>
void Octree<Point, Container, Index>::init(Container const& points, Param const& param, Observer* observer) {
  std::size_t const count = sizeOf(points);
  if (count > std::numeric_limits<Index>::max()) {
    throw error("More points than an index can number: " + std::to_string(count), "Octree");
  }
  Octree tree;
  tree.param_ = param;
  if (count > 0) {
    tree.hold(points);
    OctreeParts parts = tree.withPoints([&](auto const& access) {
      return buildOctree(access, count, param.bucketCapacity, param.minHalfSize, Progress(observer));
    });
    tree.octants_ = std::move(parts.octants);
    tree.chain_ = std::move(parts.chain);
    tree.sketches_ = std::move(parts.sketches);
    tree.tolerance_ = parts.tolerance;
  }
  *this = std::move(tree);
}

template <class Point, class Container, class Index>
void Octree<Point, Container, Index>::hold(Container const& points) {
  if constexpr (std::is_same_v<Container, cv::Mat_<Point>>) {
    held_ = param_.copyData ? Container(points.clone()) : points;
    data_ = held_.data;
    columns_ =
        static_cast<Index>(held_.isContinuous() ? held_.total() : static_cast<std::size_t>(held_.cols));
    step_ = held_.isContinuous() ? columns_ * sizeof(Point) : held_.step[0];
  } else {
    if (param_.copyData) {
      held_ = points;
    }
    Container const& source = param_.copyData ? held_ : points;
    data_ = static_cast<std::uint8_t const*>(static_cast<void const*>(source.data()));
    columns_ = static_cast<Index>(source.size());
    step_ = columns_ * sizeof(Point);
  }
}

template <class Point, class Container, class Index>
void Octree<Point, Container, Index>::clear() {
  Param const param = param_;
  *this = Octree();
  param_ = param;
}

template <class Point, class Container, class Index>
std::size_t Octree<Point, Container, Index>::memoryUsage() const {
  return octants_.capacity() * sizeof(Octant) + chain_.capacity() * sizeof(Index) +
         sketches_.capacity() * sizeof(std::uint32_t) + (param_.copyData ? sizeOf(held_) * sizeof(Point) : 0);
}

template <class Point, class Container, class Index>
template <class Kind>
std::size_t Octree<Point, Container, Index>::knnSearch(Point const& query, int k, std::vector<Index>& indices,
                                                       std::vector<float>& distances) const {
  indices.clear();
  distances.clear();
  if (k <= 0 || isEmpty() || !isFinite(coordinates(query))) {
    return 0;
  }
  NearestPoints nearest(std::min(static_cast<std::size_t>(k), chain_.size()));
  withPoints([&](auto const& points) {
    findNearest<Kind>(OctreeView(*this), points, coordinates(query), nearest, [](unsigned) { return true; });
  });
  return nearest.take(indices, distances);
}

template <class Point, class Container, class Index>
template <class Kind>
std::size_t Octree<Point, Container, Index>::radiusNeighborsSearch(Point const& query, float radius,
                                                                   std::vector<Index>& indices) const {
  indices.clear();
  OctreeView const tree(*this);
  Ball<Kind> const ball(coordinates(query), radius);
  bool const sketchesTell = !tree.isEmpty && canSketch<Kind>(tree.octants[0], ball.centre(), ball.radius());
  withPoints([&](auto const& points) {
    // What makes up the ball, gathered so that its memory is fetched side by side.
    struct Part {
      Octant const* octant;
      bool isWhole;
    };
    constexpr std::size_t mostParts = 32;
    std::array<Part, mostParts> parts;
    std::size_t count = 0;
    auto const list = [&] {
      for (std::size_t i = 0; i < count; ++i) {
        if (parts[i].isWhole) {
          listWhole(tree, *parts[i].octant, indices);
        } else if (sketchesTell) {
          listSketchedLeaf(tree, sketches_.data(), points, ball, *parts[i].octant, indices);
        } else {
          listLeaf(tree, points, ball, *parts[i].octant, indices);
        }
      }
      count = 0;
    };
    auto const gather = [&](Octant const& octant, bool isWhole) {
      prefetch(tree.chain + octant.first);
      prefetch(sketches_.data() + octant.first);
      parts[count++] = {&octant, isWhole};
      if (count == mostParts) {
        list();
      }
      return true;
    };
    visitBall(
        tree, ball, [&](Octant const& octant) { return gather(octant, true); },
        [&](Octant const& octant) { return gather(octant, false); });
    list();
  });
  return indices.size();
}

template <class Point, class Container, class Index>
template <class Kind>
std::size_t
Octree<Point, Container, Index>::radiusNeighborsSearchRecursive(Point const& query, float radius,
                                                                std::vector<Index>& indices) const {
  indices.clear();
  OctreeView const tree(*this);
  Ball<Kind> const ball(coordinates(query), radius);
  if (!isEmpty() && !ball.isEmpty()) {
    withPoints([&](auto const& points) { listRecursively(tree, points, ball, octants_.front(), indices); });
  }
  return indices.size();
}

template <class Point, class Container, class Index>
template <class Kind>
std::size_t Octree<Point, Container, Index>::radiusNeighborsCount(Point const& query, float radius) const {
  Ball<Kind> const ball(coordinates(query), radius);
  return withPoints([&](auto const& points) {
    return BallCounter<Kind, std::decay_t<decltype(points)>>(OctreeView(*this), sketches_.data(), points,
                                                             ball)
        .count();
  });
}

template <class Point, class Container, class Index>
void Octree<Point, Container, Index>::print(std::ostream& stream) const {
  if (!isEmpty()) {
    printOctant(stream, OctreeView(*this), octants_.front(), 0);
  }
}

// The two trees and their searches for each distance kind.
#define VORN_INSTANTIATE_SEARCHES(Tree, Point, Kind)                                                         \
  template VORN_API std::size_t Tree::knnSearch<Distance<Point>::Kind>(                                      \
      Point const&, int, std::vector<unsigned>&, std::vector<float>&) const;                                 \
  template VORN_API std::size_t Tree::radiusNeighborsSearch<Distance<Point>::Kind>(                          \
      Point const&, float, std::vector<unsigned>&) const;                                                    \
  template VORN_API std::size_t Tree::radiusNeighborsSearchRecursive<Distance<Point>::Kind>(                 \
      Point const&, float, std::vector<unsigned>&) const;                                                    \
  template VORN_API std::size_t Tree::radiusNeighborsCount<Distance<Point>::Kind>(Point const&, float) const;

template class Octree<cv::Vec3f, cv::Mat_<cv::Vec3f>, unsigned>;
template class Octree<cv::Point3f, std::vector<cv::Point3f>, unsigned>;
VORN_INSTANTIATE_SEARCHES(GridOctree, cv::Vec3f, L1)
VORN_INSTANTIATE_SEARCHES(GridOctree, cv::Vec3f, L2)
VORN_INSTANTIATE_SEARCHES(GridOctree, cv::Vec3f, LInf)
VORN_INSTANTIATE_SEARCHES(ListOctree, cv::Point3f, L1)
VORN_INSTANTIATE_SEARCHES(ListOctree, cv::Point3f, L2)
VORN_INSTANTIATE_SEARCHES(ListOctree, cv::Point3f, LInf)
#undef VORN_INSTANTIATE_SEARCHES

} // namespace vorn::mv
