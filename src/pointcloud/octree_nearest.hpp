// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <opencv2/core/hal/intrin.hpp>

#include "core/bits.hpp"
#include "pointcloud/octree_search.hpp"

namespace vorn::mv {

/// Child masks by code ^ flip: bit c of `of[flip][mask]` is bit c ^ flip of the mask. A table, since branches
/// on the side that a query lies on are a coin's toss each.
struct FlippedMasks {
  constexpr FlippedMasks() {
    for (unsigned flip = 0; flip < 8; ++flip) {
      for (unsigned mask = 0; mask < 256; ++mask) {
        unsigned flipped = 0;
        for (unsigned code = 0; code < 8; ++code) {
          flipped |= ((mask >> (code ^ flip)) & 1U) << code;
        }
        of[flip][mask] = static_cast<std::uint8_t>(flipped);
      }
    }
  }

  std::uint8_t of[8][256] = {};
};
inline constexpr FlippedMasks flippedMasks;

/// An octant whose children are still to be visited for a query, nearest first.
template <class Kind>
struct NearestLevel {
  BasicOctant<unsigned> const* octant;
  /// Code of the child on the query's side; children are taken in the order own, own ^ 1, ...
  unsigned own;
  unsigned toVisit; ///< By code ^ own.
  ChildDistances<Kind> distances;
};

template <class Kind>
NearestLevel<Kind> enterNearest(BasicOctant<unsigned> const& octant, cv::v_float32x4 const& query,
                                float tolerance) {
  ChildGeometry<Kind> const children(octant, query);
  unsigned const own = children.ownCode();
  return {&octant, own, flippedMasks.of[own][octant.childMask], children.nearestFromOwn(tolerance)};
}

/// Offers the points of leaves to a set of nearest ones, see `findNearest`.
template <class Kind, class Points, class Nearest, class Accepts>
class LeafScan {
public:
  LeafScan(unsigned const* chain, Points const& points, float const* query, Nearest& nearest,
           Accepts const& accepts)
      : chain_(chain), points_(points), query_(query), distancesOfFour_(query), nearest_(nearest),
        accepts_(accepts) {}

  void operator()(BasicOctant<unsigned> const& leaf) const {
    unsigned const* const chain = chain_ + leaf.first;
    unsigned i = 0;
    // Nothing is nearer than a point at no distance: a leaf of identical points is not read to its end.
    for (; i + 4 <= leaf.count && nearest_.worst() > 0.0F; i += 4) {
      cv::v_float32x4 const four = distancesOfFour_(points_, chain + i);
      if (cv::v_signmask(four < cv::v_setall_f32(nearest_.worst())) != 0) {
        float distances[4];
        cv::v_store(distances, four);
        for (unsigned j = 0; j < 4; ++j) {
          offer(chain[i + j], distances[j]);
        }
      }
    }
    for (; i < leaf.count && nearest_.worst() > 0.0F; ++i) {
      float const* point = points_[chain[i]];
      offer(chain[i], Kind::between(point[0] - query_[0], point[1] - query_[1], point[2] - query_[2]));
    }
  }

private:
  void offer(unsigned index, float distance) const {
    if (distance < nearest_.worst() && accepts_(index)) {
      nearest_.add(index, distance);
    }
  }

  unsigned const* chain_;
  Points const& points_;
  float const* query_;
  DistancesOfFour<Kind> distancesOfFour_;
  Nearest& nearest_;
  Accepts const& accepts_;
};

/// Visits leaves from near to far and offers the points that `accepts(index)` to a set of nearest ones, which
/// has `worst()`, the distance from which on points no longer matter, and `add(index, distance)`.
/// @param tree not empty
template <class Kind, class Points, class Nearest, class Accepts>
void findNearest(OctreeView const& tree, Points const& points, float const* query, Nearest& nearest,
                 Accepts const& accepts) {
  LeafScan<Kind, Points, Nearest, Accepts> const scan(tree.chain, points, query, nearest, accepts);
  cv::v_float32x4 const position = loadQuery(query);
  std::array<NearestLevel<Kind>, maxOctreeDepth> above;
  std::size_t depth = 0;
  // Down to the leaf around the query first. The distances of what is passed matter only afterwards, so they
  // are no link in the chain of steps down.
  BasicOctant<unsigned> const* octant = tree.octants;
  while (!octant->isLeaf) {
    unsigned const own = ChildGeometry<Kind>(*octant, position).ownCode();
    if (((octant->childMask >> own) & 1U) == 0) {
      break;
    }
    above[depth++].octant = octant;
    octant = tree.octants + childPlace(*octant, own);
  }
  if (octant->isLeaf) {
    scan(*octant);
    if (!(nearest.worst() > 0.0F)) {
      return;
    }
  }
  for (std::size_t i = 0; i < depth; ++i) {
    above[i] = enterNearest<Kind>(*above[i].octant, position, tree.tolerance);
    above[i].toVisit &= ~1U;
  }
  NearestLevel<Kind> level{};
  if (!octant->isLeaf) {
    level = enterNearest<Kind>(*octant, position, tree.tolerance);
  }
  for (;;) {
    level.toVisit &= level.distances.below(nearest.worst() * (1.0F + boundSlack));
    if (level.toVisit == 0) {
      if (depth == 0) {
        return;
      }
      level = above[--depth];
      continue;
    }
    auto const flip = static_cast<unsigned>(__builtin_ctz(level.toVisit));
    level.toVisit &= level.toVisit - 1;
    BasicOctant<unsigned> const& child = tree.octants[childPlace(*level.octant, flip ^ level.own)];
    if (child.isLeaf) {
      scan(child);
    } else {
      if (level.toVisit != 0) {
        above[depth++] = level;
      }
      level = enterNearest<Kind>(child, position, tree.tolerance);
    }
  }
}

} // namespace vorn::mv
