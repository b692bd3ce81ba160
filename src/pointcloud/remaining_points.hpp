// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/bits.hpp"
#include "core/pieces.hpp"
#include "pointcloud/octree_search.hpp"

namespace vorn::mv {

/// The points of an octree that nobody has taken yet.
///
/// A flood fill that asks for all neighbours of every point meets each point as often as it has neighbours.
/// Here a point that was found is gone, and octants without points left are passed by, so the whole fill
/// costs little more than one visit a point, even where millions of points lie on one spot.
template <class Points>
class RemainingPoints {
  using L2 = Distance<cv::Vec3f>::L2;

public:
  /// All points of the tree with state 0; `states` is indexed like the points.
  /// @throws Cancelled when the observer stops it
  RemainingPoints(GridOctree const& tree, Points const& points, std::vector<uchar> const& states,
                  Progress const& progress)
      : tree_(tree), points_(points), chain_(tree.chain()), counts_(tree.octants().size()) {
    constexpr std::size_t octantsAtOnce = 1 << 14;
    std::size_t const octants = counts_.size();
    inPieces(octants, octantsAtOnce, progress, "counting points", [&](std::size_t first, std::size_t end) {
      // Children stand behind their parents, so backwards every octant finds its children counted.
      for (std::size_t place = octants - first; place-- > octants - end;) {
        count(place, states);
      }
    });
  }

  /// Appends the remaining points that an L2 radius search around `query` finds to `taken`; they remain no
  /// longer.
  void takeBall(float const* query, float radius, std::vector<unsigned>& taken) {
    Ball<L2> const ball(query, radius);
    if (!tree_.isEmpty && !ball.isEmpty()) {
      take(ball, 0, taken);
    }
  }

private:
  /// Brings the points of a leaf that are present to its front, and counts those of any octant.
  void count(std::size_t place, std::vector<uchar> const& states) {
    BasicOctant<unsigned> const& octant = tree_.octants[place];
    unsigned found = 0;
    if (octant.isLeaf) {
      for (unsigned i = octant.first; i < octant.first + octant.count; ++i) {
        chain_[octant.first + found] = chain_[i];
        found += states[chain_[i]] == 0 ? 1U : 0U;
      }
    } else {
      found = countOfChildren(octant);
    }
    counts_[place] = found;
  }

  unsigned countOfChildren(BasicOctant<unsigned> const& octant) const {
    unsigned count = 0;
    unsigned const end = childPlace(octant, 7) + ((octant.childMask >> 7) & 1U);
    for (unsigned child = octant.children; child < end; ++child) {
      count += counts_[child];
    }
    return count;
  }

  void take(Ball<L2> const& ball, unsigned place, std::vector<unsigned>& taken) {
    BasicOctant<unsigned> const& octant = tree_.octants[place];
    if (ball.holdsAll(octant)) {
      takeAll(place, taken);
    } else if (octant.isLeaf) {
      unsigned* const chain = chain_.data() + octant.first;
      unsigned kept = 0;
      for (unsigned i = 0; i < counts_[place]; ++i) {
        unsigned const point = chain[i];
        if (ball.holds(points_[point])) {
          taken.push_back(point);
        } else {
          chain[kept++] = point;
        }
      }
      counts_[place] = kept;
    } else {
      unsigned toVisit = octant.childMask & ChildGeometry<L2>(octant, loadQuery(ball.centre()))
                                                .nearest(tree_.tolerance)
                                                .atMost(ball.norm() * (1.0F + boundSlack));
      for (; toVisit != 0; toVisit &= toVisit - 1) {
        unsigned const child = childPlace(octant, static_cast<unsigned>(__builtin_ctz(toVisit)));
        if (counts_[child] != 0) {
          take(ball, child, taken);
        }
      }
      counts_[place] = countOfChildren(octant);
    }
  }

  void takeAll(unsigned place, std::vector<unsigned>& taken) {
    BasicOctant<unsigned> const& octant = tree_.octants[place];
    if (octant.isLeaf) {
      unsigned const* const chain = chain_.data() + octant.first;
      taken.insert(taken.end(), chain, chain + counts_[place]);
    } else {
      unsigned const end = childPlace(octant, 7) + ((octant.childMask >> 7) & 1U);
      for (unsigned child = octant.children; child < end; ++child) {
        if (counts_[child] != 0) {
          takeAll(child, taken);
        }
      }
    }
    counts_[place] = 0;
  }

  OctreeView tree_;
  Points points_;
  std::vector<unsigned> chain_;
  std::vector<unsigned> counts_;
};

} // namespace vorn::mv
