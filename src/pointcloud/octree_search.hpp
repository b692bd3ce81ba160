// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>

#include <vorn/mv/pointcloud/octree.hpp>

#include "pointcloud/point_access.hpp"

namespace vorn::mv {

/// Each level halves the edge, from at most 2^128 to below the smallest float, 2^-149, so no path is longer
/// than this, and each level of it leaves at most seven siblings waiting.
constexpr int maxOctreeDepth = 128 + 149 + 2;
constexpr int maxWaitingOctants = 7 * maxOctreeDepth + 8;

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

/// Lower bounds of the distance from a query point to the eight child cubes of an octant.
template <class Kind>
class ChildDistances {
public:
  ChildDistances(BasicOctant<unsigned> const& octant, float const* query, float tolerance) {
    float const reach = octant.halfSize + tolerance;
    axis(query[0] - octant.x, reach, tolerance, x_);
    axis(query[1] - octant.y, reach, tolerance, y_);
    axis(query[2] - octant.z, reach, tolerance, z_);
  }

  float operator[](unsigned code) const {
    return Kind::between(x_[code & 1], y_[(code >> 1) & 1], z_[code >> 2]);
  }

private:
  /// Distance along one axis to the lower half [-reach, tolerance] and the upper half [-tolerance, reach].
  static void axis(float offset, float reach, float tolerance, float* distance) {
    distance[0] = std::max(std::max(offset - tolerance, -reach - offset), 0.0F);
    distance[1] = std::max(std::max(-tolerance - offset, offset - reach), 0.0F);
  }

  float x_[2], y_[2], z_[2];
};

/// A query point and a radius in terms of one distance kind.
template <class Kind>
class Ball {
public:
  Ball(float const* centre, float radius)
      : centre_{centre[0], centre[1], centre[2]}, norm_(Kind::norm(radius)) {
    isEmpty_ = !(radius >= 0.0F) || !isFinite(centre_);
  }

  /// A ball that holds no point whatever the cloud: a negative radius, or a centre that is not a number.
  bool isEmpty() const { return isEmpty_; }
  float const* centre() const { return centre_; }
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
  float norm_;
  bool isEmpty_;
};

/// Visits the octants that make up a ball, last octant first: `whole(octant)` for a cube that lies inside,
/// else `leaf(octant)` for a leaf whose points are to be tried one by one. Both return false to end the
/// search.
template <class Kind, class Whole, class Leaf>
void visitBall(OctreeView const& tree, Ball<Kind> const& ball, Whole const& whole, Leaf const& leaf) {
  if (tree.isEmpty || ball.isEmpty()) {
    return;
  }
  float const bound = ball.norm() * (1.0F + boundSlack);
  std::array<unsigned, maxWaitingOctants> waiting;
  unsigned* top = waiting.data();
  *top++ = 0;
  while (top != waiting.data()) {
    BasicOctant<unsigned> const& octant = tree.octants[*--top];
    if (ball.holdsAll(octant)) {
      if (!whole(octant)) {
        return;
      }
    } else if (octant.isLeaf) {
      if (!leaf(octant)) {
        return;
      }
    } else {
      ChildDistances<Kind> const distances(octant, ball.centre(), tree.tolerance);
      unsigned child = octant.children;
      for (unsigned mask = octant.childMask; mask != 0; mask &= mask - 1, ++child) {
        if (distances[static_cast<unsigned>(__builtin_ctz(mask))] <= bound) {
          *top++ = child;
        }
      }
    }
  }
}

struct WaitingOctant {
  unsigned place;
  float distance;
};

/// Visits leaves from near to far and offers the points that `accepts(index)` to a set of nearest ones, which
/// has `worst()`, the distance from which on points no longer matter, and `add(index, distance)`.
template <class Kind, class Points, class Nearest, class Accepts>
void findNearest(OctreeView const& tree, Points const& points, float const* query, Nearest& nearest,
                 Accepts const& accepts) {
  std::array<WaitingOctant, maxWaitingOctants> waiting;
  WaitingOctant* top = waiting.data();
  *top++ = {0, 0.0F};
  while (top != waiting.data()) {
    WaitingOctant const next = *--top;
    if (next.distance * (1.0F - boundSlack) >= nearest.worst()) {
      continue;
    }
    BasicOctant<unsigned> const& octant = tree.octants[next.place];
    if (octant.isLeaf) {
      unsigned const* const end = tree.chain + octant.first + octant.count;
      for (unsigned const* place = tree.chain + octant.first; place != end; ++place) {
        float const* point = points[*place];
        float const distance = Kind::between(point[0] - query[0], point[1] - query[1], point[2] - query[2]);
        if (distance < nearest.worst() && accepts(*place)) {
          nearest.add(*place, distance);
        }
      }
      continue;
    }
    // The child on the query's side is taken from the stack first, its opposite last.
    unsigned const own =
        (query[0] > octant.x ? 1U : 0U) + (query[1] > octant.y ? 2U : 0U) + (query[2] > octant.z ? 4U : 0U);
    ChildDistances<Kind> const distances(octant, query, tree.tolerance);
    for (unsigned const flip : {7U, 6U, 5U, 3U, 4U, 2U, 1U, 0U}) {
      unsigned const code = own ^ flip;
      if (((octant.childMask >> code) & 1U) != 0) {
        float const distance = distances[code];
        if (distance * (1.0F - boundSlack) < nearest.worst()) {
          unsigned const before = octant.childMask & ((1U << code) - 1U);
          *top++ = {octant.children + static_cast<unsigned>(__builtin_popcount(before)), distance};
        }
      }
    }
  }
}

} // namespace vorn::mv
