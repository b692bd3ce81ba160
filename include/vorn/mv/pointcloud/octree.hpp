// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>
#include <vector>

#include <vorn/core/export.hpp>
#include <vorn/mv/pointcloud/distance.hpp>

namespace vorn {
class Observer;
}

namespace vorn::mv {

/// One cube of an octree.
template <class Index>
struct BasicOctant {
  float x;        ///< Centre.
  float y;        ///< Centre.
  float z;        ///< Centre.
  float halfSize; ///< Half the edge length.
  Index first;    ///< Place of the octant's first point in the tree's `chain()`.
  Index count;    ///< Number of points.
  Index children; ///< Place of the first child in the tree's `octants()`; the children that exist follow each
                  ///< other.
  /// Bit c is set when child c exists: c = 1 for the upper half in x, plus 2 in y, plus 4 in z.
  std::uint8_t childMask;
  std::uint8_t leafMask; ///< Bit c is set when child c exists and is a leaf.
  bool isLeaf;           ///< True when the octant has no children.
};

/// Finds the neighbours of a point among millions: a tree of cubes over a set of 3D points.
///
/// The tree keeps an index and 32 bits on the place within its leaf for each point, and reads the coordinates
/// from the caller's container. The points of an octant form one chain, children in code order and points in
/// index order within a leaf, so that a whole octant is counted or listed without visiting its children.
/// Points with a NaN or infinite coordinate enter no octant and are never found; a query point with one finds
/// nothing.
///
/// A built tree is read-only: several threads may search it at once. The method is that of J. Behley, V.
/// Steinhage and A. B. Cremers, "Efficient Radius Neighbor Search in Three-dimensional Point Clouds", ICRA
/// 2015.
///
/// The library holds two instantiations, `GridOctree` and `ListOctree`, each with the three kinds of
/// `Distance`: `tree.radiusNeighborsCount<Distance<cv::Vec3f>::L2>(query, radius)`.
template <class Point, class Container, class Index>
class VORN_API Octree {
public:
  /// How a tree is built.
  struct Param {
    /// @param capacity      an octant with at most this many points is a leaf; 0 counts as 1
    /// @param copy          true: the tree keeps its own copy of the points; false: the container must
    ///                      outlive the tree and must not be reallocated
    /// @param leastHalfSize an octant whose half edge is not greater than twice this is a leaf, however full
    explicit Param(std::size_t capacity = 32, bool copy = false, float leastHalfSize = 0.0F)
        : copyData(copy), bucketCapacity(capacity), minHalfSize(leastHalfSize) {}

    /// See the constructor.
    bool copyData;
    /// See the constructor.
    std::size_t bucketCapacity;
    /// See the constructor's `leastHalfSize`.
    float minHalfSize;
  };

  /// One cube of this tree.
  using Octant = BasicOctant<Index>;

  Octree() = default;
  Octree(Octree&&) noexcept = default;
  Octree& operator=(Octree&&) noexcept = default;
  Octree(Octree const&) = delete;
  Octree& operator=(Octree const&) = delete;
  ~Octree() = default;

  /// Builds the tree over all points of the container; an earlier tree is dropped. The root is the bounding
  /// cube of the finite points; where there are none the tree stays empty. Working memory: 25 bytes a point,
  /// of which the tree keeps about 11.
  ///
  /// A grid is indexed row by row and may be a region of a larger matrix.
  /// @throws Exception when there are more points than an index can number
  void init(Container const& points, Param const& param = Param());

  /// The same, watched.
  /// @param observer may be null
  /// @throws Cancelled when the observer stops it; the earlier tree stays then
  void init(Container const& points, Param const& param, Observer* observer);

  /// Drops the tree and the copy of the points, if any.
  void clear();

  /// The k nearest points, nearest first; of points at equal distance any may come first. Working memory: 17
  /// bytes a point found.
  ///
  /// @param distances as `Kind::between` gives them, so squared with L2
  /// @return the number found: min(k, number of finite points); 0 for k <= 0
  template <class Kind>
  std::size_t knnSearch(Point const& query, int k, std::vector<Index>& indices,
                        std::vector<float>& distances) const;

  /// The points nearer than `radius`, in the order in which the tree holds them, from the last octant to the
  /// first.
  ///
  /// A single point counts when it is strictly nearer than the radius; a cube all of whose corners are at
  /// most the radius away counts as a whole. A negative radius finds nothing. Working memory: none beyond
  /// `indices`.
  /// @return the number found
  template <class Kind>
  std::size_t radiusNeighborsSearch(Point const& query, float radius, std::vector<Index>& indices) const;

  /// The points of `radiusNeighborsSearch`, from the first octant to the last.
  template <class Kind>
  std::size_t radiusNeighborsSearchRecursive(Point const& query, float radius,
                                             std::vector<Index>& indices) const;

  /// The number of points that `radiusNeighborsSearch` finds, without listing them. Working memory: none.
  template <class Kind>
  std::size_t radiusNeighborsCount(Point const& query, float radius) const;

  /// Writes the tree, one octant a line, children indented below their parent.
  void print(std::ostream& stream) const;

  /// True before `init`, and when no point was finite.
  bool isEmpty() const { return octants_.empty(); }
  /// How the tree was built.
  Param const& param() const { return param_; }
  /// All octants; the first is the root. Empty for an empty tree.
  std::vector<Octant> const& octants() const { return octants_; }
  /// The point indices in the order of the chain; an octant's points stand at [first, first + count).
  std::vector<Index> const& chain() const { return chain_; }
  /// How far a point may stick out of its octant's cube by rounding of the centres, an upper bound.
  float tolerance() const { return tolerance_; }
  /// The memory that the tree takes beside the caller's points, in bytes.
  std::size_t memoryUsage() const;

private:
  void hold(Container const& points);
  template <class Body>
  decltype(auto) withPoints(Body const& body) const;

  Param param_;
  std::vector<Octant> octants_;
  std::vector<Index> chain_;
  /// Where each point of the chain lies within its leaf, roughly.
  std::vector<std::uint32_t> sketches_;
  /// The copied points; for a grid that is not copied its header, which keeps the caller's buffer alive.
  Container held_;
  /// The points: rows of `columns_` points, `step_` bytes apart.
  std::uint8_t const* data_ = nullptr;
  std::size_t step_ = 0;
  Index columns_ = 0;
  float tolerance_ = 0.0F;
};

extern template class VORN_API Octree<cv::Vec3f, cv::Mat_<cv::Vec3f>, unsigned>;
extern template class VORN_API Octree<cv::Point3f, std::vector<cv::Point3f>, unsigned>;

/// The tree over the points of a `PointCloud`.
using GridOctree = Octree<cv::Vec3f, cv::Mat_<cv::Vec3f>, unsigned>;
/// The tree over a list of points.
using ListOctree = Octree<cv::Point3f, std::vector<cv::Point3f>, unsigned>;

} // namespace vorn::mv
