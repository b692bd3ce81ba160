// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

#include "core/pieces.hpp"
#include "pointcloud/octree_search.hpp"

namespace vorn::mv {

/// How many points of each octant are present, and how many of those were taken away since: what a search for
/// many neighbours need not count one by one. 8 bytes an octant.
class OctantCounts {
public:
  OctantCounts() = default;

  /// @param states of all points; 0 is present
  /// @throws Cancelled when the observer stops it
  OctantCounts(OctreeView const& tree, std::size_t octantCount, std::vector<unsigned char> const& states,
               Progress const& progress)
      : tree_(tree.octants), present_(octantCount), removed_(octantCount) {
    constexpr std::size_t octantsAtOnce = 1 << 14;
    inPieces(
        octantCount, octantsAtOnce, progress, "counting points", [&](std::size_t first, std::size_t end) {
          // Backwards: children stand behind their parents.
          for (std::size_t place = octantCount - first; place-- > octantCount - end;) {
            BasicOctant<unsigned> const& octant = tree_[place];
            if (octant.isLeaf) {
              unsigned const* const chain = tree.chain + octant.first;
              for (unsigned i = 0; i < octant.count; ++i) {
                present_[place] += states[chain[i]] == 0 ? 1U : 0U;
              }
            } else {
              visitChildren(octant,
                            [&](BasicOctant<unsigned> const& child) { present_[place] += present(child); });
            }
          }
        });
  }

  /// The points of an octant that were present at first.
  unsigned present(BasicOctant<unsigned> const& octant) const { return present_[placeOf(octant)]; }

  /// Those of them that were taken away.
  unsigned removed(BasicOctant<unsigned> const& octant) const { return removed_[placeOf(octant)]; }

  /// Takes a present point away: from the octants on the path that led it to its leaf.
  void remove(float const* point) {
    BasicOctant<unsigned> const* octant = tree_;
    ++removed_[0];
    while (!octant->isLeaf) {
      unsigned const code = (point[0] > octant->x ? 1U : 0U) | (point[1] > octant->y ? 2U : 0U) |
                            (point[2] > octant->z ? 4U : 0U);
      octant = tree_ + childPlace(*octant, code);
      ++removed_[placeOf(*octant)];
    }
  }

  /// Calls `visit(child)` for every child of an octant that is no leaf.
  template <class Visit>
  void visitChildren(BasicOctant<unsigned> const& octant, Visit const& visit) const {
    unsigned place = octant.children;
    for (unsigned mask = octant.childMask; mask != 0; mask &= mask - 1) {
      visit(tree_[place++]);
    }
  }

private:
  std::size_t placeOf(BasicOctant<unsigned> const& octant) const {
    return static_cast<std::size_t>(&octant - tree_);
  }

  BasicOctant<unsigned> const* tree_ = nullptr;
  std::vector<unsigned> present_;
  std::vector<unsigned> removed_;
};

} // namespace vorn::mv
