// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <opencv2/core/hal/intrin.hpp>

#include <vorn/mv/pointcloud/octree.hpp>

#include "core/bits.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

/// Each level halves the edge, from at most 2^128 to below the smallest float, 2^-149, so no path is longer.
constexpr int maxOctreeDepth = 128 + 149 + 2;

/// Bounds of distances are widened by this share so that rounding never rejects a cube that holds a
/// neighbour.
constexpr float boundSlack = 1e-6F;

/// What a search needs of a tree.
struct OctreeView {
  template <class Tree>
  explicit OctreeView(Tree const& tree)
      : octants(tree.octants().data()), chain(tree.chain().data()), tolerance(tree.tolerance()),
        isEmpty(tree.isEmpty()) {}

  BasicOctant<unsigned> const* octants;
  unsigned const* chain;
  float tolerance;
  bool isEmpty;
};

/// A point as a vector register holds it.
inline cv::v_float32x4 loadQuery(float const* point) {
  return {point[0], point[1], point[2], 0.0F};
}

/// One distance for each of the eight children of an octant.
template <class Kind>
class ChildDistances {
public:
  ChildDistances() = default;

  /// The distance to child c from the distances along the axes to the lower (bit of c clear) and upper
  /// halves.
  ChildDistances(cv::v_float32x4 lower, cv::v_float32x4 upper) {
    if constexpr (Kind::isSquared) {
      lower = lower * lower;
      upper = upper * upper;
    }
    cv::v_float32x4 xy, z, unused, y;
    cv::v_zip(lower, upper, xy, z);
    cv::v_zip(xy, xy, unused, y);
    cv::v_float32x4 const plane = combine(cv::v_combine_low(xy, xy), y);
    front_ = combine(plane, cv::v_broadcast_element<0>(z));
    back_ = combine(plane, cv::v_broadcast_element<1>(z));
  }

  /// Bit c is set when child c is at most `limit` away.
  unsigned atMost(float limit) const {
    cv::v_float32x4 const all = cv::v_setall_f32(limit);
    return static_cast<unsigned>(cv::v_signmask(front_ <= all) | (cv::v_signmask(back_ <= all) << 4));
  }

  /// Bit c is set when child c is less than `limit` away.
  unsigned below(float limit) const {
    cv::v_float32x4 const all = cv::v_setall_f32(limit);
    return static_cast<unsigned>(cv::v_signmask(front_ < all) | (cv::v_signmask(back_ < all) << 4));
  }

private:
  static cv::v_float32x4 combine(cv::v_float32x4 const& a, cv::v_float32x4 const& b) {
    if constexpr (Kind::takesLargest) {
      return cv::v_max(a, b);
    } else {
      return a + b;
    }
  }

  cv::v_float32x4 front_, back_; ///< Children 0 .. 3 and 4 .. 7.
};

/// What the children of an octant are to a query point. The axes are worked on side by side.
template <class Kind>
class ChildGeometry {
public:
  ChildGeometry(BasicOctant<unsigned> const& octant, cv::v_float32x4 const& query) : query_(query) {
    static_assert(offsetof(BasicOctant<unsigned>, halfSize) == 3 * sizeof(float),
                  "centre and size are one vector");
    centre_ = cv::v_load(&octant.x);
    halfSize_ = cv::v_setall_f32(octant.halfSize);
  }

  /// Code of the child on the query's side of the centre planes.
  unsigned ownCode() const { return static_cast<unsigned>(cv::v_signmask(query_ > centre_)) & 7U; }

  /// Lower bounds of the distances to the child cubes.
  ChildDistances<Kind> nearest(float tolerance) const {
    cv::v_float32x4 lower, upper;
    alongAxes(tolerance, lower, upper);
    return {lower, upper};
  }

  /// The same by code ^ `ownCode()`.
  ChildDistances<Kind> nearestFromOwn(float tolerance) const {
    cv::v_float32x4 lower, upper;
    alongAxes(tolerance, lower, upper);
    cv::v_float32x4 const isUpper = query_ > centre_;
    return {cv::v_select(isUpper, upper, lower), cv::v_select(isUpper, lower, upper)};
  }

  /// Distances to the farthest corners of the child cubes, rounded as for each child alone.
  ChildDistances<Kind> farthest() const {
    cv::v_float32x4 const half = halfSize_ * cv::v_setall_f32(0.5F);
    return {cv::v_abs(query_ - (centre_ - half)) + half, cv::v_abs(query_ - (centre_ + half)) + half};
  }

private:
  /// Distances along each axis to the lower half [-reach, tolerance] and the upper half [-tolerance, reach].
  void alongAxes(float tolerance, cv::v_float32x4& lower, cv::v_float32x4& upper) const {
    cv::v_float32x4 const zero = cv::v_setzero_f32();
    cv::v_float32x4 const slack = cv::v_setall_f32(tolerance);
    cv::v_float32x4 const reach = halfSize_ + slack;
    cv::v_float32x4 const offset = query_ - centre_;
    lower = cv::v_max(cv::v_max(offset - slack, (zero - reach) - offset), zero);
    upper = cv::v_max(cv::v_max((zero - slack) - offset, offset - reach), zero);
  }

  cv::v_float32x4 query_, centre_, halfSize_;
};

/// For each child mask, how many children come before each code, four bits a code.
struct ChildRanks {
  constexpr ChildRanks() {
    for (unsigned mask = 0; mask < 256; ++mask) {
      unsigned rank = 0;
      for (unsigned code = 0; code < 8; ++code) {
        packed[mask] |= rank << (4 * code);
        rank += (mask >> code) & 1U;
      }
    }
  }

  unsigned packed[256] = {};
};
inline constexpr ChildRanks childRanks;

/// The place of child `code`, which exists.
inline unsigned childPlace(BasicOctant<unsigned> const& octant, unsigned code) {
  return octant.children + ((childRanks.packed[octant.childMask] >> (4 * code)) & 15U);
}

/// `Kind::between` for four differences at once.
template <class Kind>
cv::v_float32x4 between(cv::v_float32x4 const& dx, cv::v_float32x4 const& dy, cv::v_float32x4 const& dz) {
  if constexpr (Kind::isSquared) {
    return dx * dx + dy * dy + dz * dz;
  } else if constexpr (Kind::takesLargest) {
    return cv::v_max(cv::v_max(cv::v_abs(dx), cv::v_abs(dy)), cv::v_abs(dz));
  } else {
    return cv::v_abs(dx) + cv::v_abs(dy) + cv::v_abs(dz);
  }
}

/// The distances from one query point to points anywhere in a container, four at a time.
template <class Kind>
class DistancesOfFour {
public:
  explicit DistancesOfFour(float const* query)
      : x_(cv::v_setall_f32(query[0])), y_(cv::v_setall_f32(query[1])), z_(cv::v_setall_f32(query[2])) {}

  /// To the points with the first four of `indices`, rounded as by `Kind::between`.
  template <class Points>
  cv::v_float32x4 operator()(Points const& points, unsigned const* indices) const {
    float const* const a = points[indices[0]];
    float const* const b = points[indices[1]];
    float const* const c = points[indices[2]];
    float const* const d = points[indices[3]];
    cv::v_float32x4 xx, yy, x, y;
    cv::v_zip(cv::v_load_halves(a, b), cv::v_load_halves(c, d), xx, yy);
    cv::v_zip(xx, yy, x, y);
    return between<Kind>(x - x_, y - y_, cv::v_float32x4(a[2], b[2], c[2], d[2]) - z_);
  }

private:
  cv::v_float32x4 x_, y_, z_;
};

/// A query point and a radius in terms of one distance kind.
template <class Kind>
class Ball {
public:
  Ball(float const* centre, float radius)
      : centre_{centre[0], centre[1], centre[2]}, radius_(radius), norm_(Kind::norm(radius)) {
    isEmpty_ = !(radius >= 0.0F) || !isFinite(centre_);
  }

  /// A ball that holds no point whatever the cloud: a negative radius, or a centre that is not a number.
  bool isEmpty() const { return isEmpty_; }
  float const* centre() const { return centre_; }
  float radius() const { return radius_; }
  float norm() const { return norm_; }

  bool holds(float const* point) const {
    return Kind::between(point[0] - centre_[0], point[1] - centre_[1], point[2] - centre_[2]) < norm_;
  }

  /// True when the farthest corner of the cube is at most the radius away.
  bool holdsAll(BasicOctant<unsigned> const& octant) const {
    float const e = octant.halfSize;
    return norm_ >= Kind::between(std::abs(centre_[0] - octant.x) + e, std::abs(centre_[1] - octant.y) + e,
                                  std::abs(centre_[2] - octant.z) + e);
  }

private:
  float centre_[3];
  float radius_;
  float norm_;
  bool isEmpty_;
};

/// Visits the octants that make up a ball, last octant first: `whole(octant)` for a cube that lies inside,
/// else `leaf(octant)` for a leaf whose points are to be tried one by one. Both return false to end the
/// search.
template <class Kind, class Whole, class Leaf>
void visitBall(OctreeView const& tree, Ball<Kind> const& ball, Whole const& whole, Leaf const& leaf) {
  struct Level {
    BasicOctant<unsigned> const* octant;
    unsigned toVisit;
    unsigned inside;
  };
  if (tree.isEmpty || ball.isEmpty()) {
    return;
  }
  BasicOctant<unsigned> const& root = tree.octants[0];
  if (ball.holdsAll(root)) {
    whole(root);
    return;
  }
  if (root.isLeaf) {
    leaf(root);
    return;
  }
  float const bound = ball.norm() * (1.0F + boundSlack);
  cv::v_float32x4 const query = loadQuery(ball.centre());
  auto const enter = [&](BasicOctant<unsigned> const& octant) {
    ChildGeometry<Kind> const children(octant, query);
    unsigned const near = children.nearest(tree.tolerance).atMost(bound);
    unsigned const inside = children.farthest().atMost(ball.norm());
    return Level{&octant, (near | inside) & octant.childMask, inside};
  };
  std::array<Level, maxOctreeDepth> above;
  std::size_t depth = 0;
  Level level = enter(root);
  for (;;) {
    if (level.toVisit == 0) {
      if (depth == 0) {
        return;
      }
      level = above[--depth];
      continue;
    }
    unsigned const code = static_cast<unsigned>(highestBit(level.toVisit));
    level.toVisit ^= 1U << code;
    BasicOctant<unsigned> const& child = tree.octants[childPlace(*level.octant, code)];
    if (((level.inside >> code) & 1U) != 0) {
      if (!whole(child)) {
        return;
      }
    } else if (child.isLeaf) {
      if (!leaf(child)) {
        return;
      }
    } else {
      if (level.toVisit != 0) {
        above[depth++] = level;
      }
      level = enter(child);
    }
  }
}

} // namespace vorn::mv
