// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/octree_build.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "core/pieces.hpp"
#include "core/radix_sort.hpp"
#include "core/simd.hpp"
#include "pointcloud/octree_search.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

using Octant = BasicOctant<unsigned>;

/// Levels whose child codes make up one sort key: three bits each.
constexpr int levelsPerKey = 10;
/// Points whose keys are worked out together.
constexpr int batchSize = 64;
/// Of the radix sort, which makes three passes.
constexpr unsigned int digitBits = levelsPerKey;

constexpr char const* stage = "building the octree";
/// Some milliseconds of work.
constexpr std::size_t pointsAtOnce = std::size_t{1} << 18;
constexpr std::size_t splitsBetweenAskings = std::size_t{1} << 12;

/// A point's key in the upper and its index in the lower half, so that sorting by the whole keeps the index
/// order.
using KeyedPoint = std::uint64_t;

unsigned keyOf(KeyedPoint point) {
  return static_cast<unsigned>(point >> 32);
}
unsigned indexOf(KeyedPoint point) {
  return static_cast<unsigned>(point);
}

/// Puts two zero bits between the lowest ten bits of a number.
unsigned spreadBits(unsigned bits) {
  bits = (bits | (bits << 16)) & 0x030000FFU;
  bits = (bits | (bits << 8)) & 0x0300F00FU;
  bits = (bits | (bits << 4)) & 0x030C30C3U;
  return (bits | (bits << 2)) & 0x09249249U;
}

struct Batch {
  std::array<std::array<float, batchSize>, 3> coordinates;
  std::array<unsigned, batchSize> indices;
  std::array<unsigned, batchSize> keys;
};

/// Follows each point of the batch down the levels below an octant, exactly as the cubes' centres are
/// rounded.
VORN_TARGET_CLONES void computeKeys(Batch& batch, Octant const& octant) {
  std::array<float, 3> const origin{octant.x, octant.y, octant.z};
  std::array<unsigned, batchSize> keys{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    std::array<float, batchSize> centre;
    std::array<unsigned, batchSize> path{};
    centre.fill(origin[axis]);
    float const* coordinate = batch.coordinates[axis].data();
    float half = octant.halfSize;
    for (int level = 0; level < levelsPerKey; ++level) {
      half *= 0.5F;
      for (std::size_t i = 0; i < batchSize; ++i) {
        bool const isUpper = coordinate[i] > centre[i];
        centre[i] += isUpper ? half : -half;
        path[i] = path[i] * 2U + (isUpper ? 1U : 0U);
      }
    }
    for (std::size_t i = 0; i < batchSize; ++i) {
      keys[i] |= spreadBits(path[i]) << axis;
    }
  }
  batch.keys = keys;
}

template <class Points>
class OctreeBuilder {
public:
  OctreeBuilder(Points const& points, std::size_t bucketCapacity, float minHalfSize, Progress progress)
      // Cubes shrink to a half size of 0 and no further: with a negative bound they would be halved for ever.
      // A single point cannot be divided: cubes around it would be halved until they have no size.
      : points_(points), bucketCapacity_(std::max<std::size_t>(bucketCapacity, 1)),
        minHalfSize_(std::max(minHalfSize, 0.0F)), progress_(std::move(progress)) {}

  OctreeParts build(std::size_t count) {
    Octant root{};
    if (!findRoot(count, root)) {
      return std::move(parts_);
    }
    parts_.chain.reserve(root.count);
    inPieces(count, pointsAtOnce, progress_.part(0.05, 0.1), stage, [&](std::size_t first, std::size_t end) {
      for (std::size_t i = first; i < end; ++i) {
        if (isFinite(points_[i])) {
          parts_.chain.push_back(static_cast<unsigned>(i));
        }
      }
    });
    parts_.octants.reserve(root.count / 8 + 1);
    parts_.octants.push_back(root);
    splitWithKeys(0);
    parts_.octants.shrink_to_fit();
    sketchPoints();
    return std::move(parts_);
  }

private:
  /// The bounding cube of the finite points; false where there are none.
  bool findRoot(std::size_t count, Octant& root) {
    constexpr float huge = std::numeric_limits<float>::max();
    std::array<float, 3> low{huge, huge, huge};
    std::array<float, 3> high{-huge, -huge, -huge};
    std::size_t finite = 0;
    inPieces(count, pointsAtOnce, progress_.part(0.0, 0.05), stage, [&](std::size_t first, std::size_t end) {
      for (std::size_t i = first; i < end; ++i) {
        float const* point = points_[i];
        if (isFinite(point)) {
          ++finite;
          for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = point[axis] < low[axis] ? point[axis] : low[axis];
            high[axis] = point[axis] > high[axis] ? point[axis] : high[axis];
          }
        }
      }
    });
    if (finite == 0) {
      return false;
    }
    float side = 0.0F;
    float magnitude = 0.0F;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      side = std::max(side, high[axis] - low[axis]);
      magnitude = std::max({magnitude, std::abs(low[axis]), std::abs(high[axis])});
    }
    root.x = (low[0] + high[0]) * 0.5F;
    root.y = (low[1] + high[1]) * 0.5F;
    root.z = (low[2] + high[2]) * 0.5F;
    root.halfSize = 0.5F * side;
    root.count = static_cast<unsigned>(finite);
    root.isLeaf = isLeaf(root);
    // A cube's centre is off by half a unit in the last place a level, for the levels that still move it.
    parts_.tolerance = 32.0F * std::numeric_limits<float>::epsilon() * magnitude;
    return true;
  }

  bool isLeaf(Octant const& octant) const {
    // A cube beyond the range of float cannot be halved into smaller ones.
    return octant.count <= bucketCapacity_ || !(octant.halfSize > 2.0F * minHalfSize_) ||
           !std::isfinite(octant.halfSize) || !std::isfinite(octant.x + octant.y + octant.z);
  }

  /// Brings an octant's points into chain order for the next ten levels and makes the octants of these
  /// levels.
  void splitWithKeys(unsigned place) {
    Octant const octant = parts_.octants[place];
    if (octant.isLeaf) {
      return;
    }
    std::vector<KeyedPoint> keyed = computeSortedKeys(octant);
    progress_.at(stage, 0.6);
    for (std::size_t i = 0; i < keyed.size(); ++i) {
      parts_.chain[octant.first + i] = indexOf(keyed[i]);
    }
    std::vector<unsigned> unfinished;
    split(place, keyed.data() - octant.first, levelsPerKey, unfinished);
    keyed = {};
    for (unsigned const inner : unfinished) {
      splitWithKeys(inner);
    }
  }

  std::vector<KeyedPoint> computeSortedKeys(Octant const& octant) {
    std::vector<KeyedPoint> keyed;
    resizeInPieces(keyed, octant.count, progress_.part(0.1, 0.15), stage);
    Batch batch{};
    for (std::size_t start = 0; start < keyed.size(); start += batchSize) {
      if (start % pointsAtOnce == 0) {
        progress_.at(stage, 0.15 + 0.15 * static_cast<double>(start) / static_cast<double>(keyed.size()));
      }
      std::size_t const size = std::min<std::size_t>(batchSize, keyed.size() - start);
      unsigned const* chain = &parts_.chain[octant.first + start];
      for (std::size_t i = 0; i < size; ++i) {
        float const* point = points_[chain[i]];
        batch.coordinates[0][i] = point[0];
        batch.coordinates[1][i] = point[1];
        batch.coordinates[2][i] = point[2];
      }
      computeKeys(batch, octant);
      for (std::size_t i = 0; i < size; ++i) {
        keyed[start + i] = (static_cast<KeyedPoint>(batch.keys[i]) << 32) | chain[i];
      }
    }
    if (keyed.size() < radixSortThreshold) {
      std::stable_sort(keyed.begin(), keyed.end(),
                       [](KeyedPoint a, KeyedPoint b) { return keyOf(a) < keyOf(b); });
    } else {
      std::vector<KeyedPoint> other;
      sortByUpperHalf<digitBits, KeyOrder::Rising>(keyed, other, progress_.part(0.3, 0.6));
    }
    return keyed;
  }

  /// Makes the children of an octant and theirs, as far as the keys reach; `keyed` is addressed by chain
  /// place.
  void split(unsigned place, KeyedPoint const* keyed, int levels, std::vector<unsigned>& unfinished) {
    if (levels == 0) {
      unfinished.push_back(place);
      return;
    }
    Octant octant = parts_.octants[place];
    auto const children = static_cast<unsigned>(parts_.octants.size());
    float const half = 0.5F * octant.halfSize;
    int const shift = 32 + 3 * (levels - 1);
    unsigned const end = octant.first + octant.count;
    for (unsigned first = octant.first; first < end;) {
      unsigned const code = static_cast<unsigned>(keyed[first] >> shift) & 7U;
      auto const isSame = [=](KeyedPoint point) { return ((point >> shift) & 7U) == code; };
      auto const next =
          static_cast<unsigned>(std::partition_point(keyed + first, keyed + end, isSame) - keyed);
      Octant child{};
      child.x = octant.x + ((code & 1U) != 0 ? half : -half);
      child.y = octant.y + ((code & 2U) != 0 ? half : -half);
      child.z = octant.z + ((code & 4U) != 0 ? half : -half);
      child.halfSize = half;
      child.first = first;
      child.count = next - first;
      child.isLeaf = isLeaf(child);
      parts_.octants.push_back(child);
      octant.childMask = static_cast<std::uint8_t>(octant.childMask | (1U << code));
      octant.leafMask = static_cast<std::uint8_t>(octant.leafMask | ((child.isLeaf ? 1U : 0U) << code));
      first = next;
    }
    octant.children = children;
    parts_.octants[place] = octant;
    if (splits_++ % splitsBetweenAskings == 0) {
      double const share = static_cast<double>(octant.first) / static_cast<double>(parts_.chain.size());
      progress_.at(stage, 0.6 + 0.3 * share);
    }
    auto const childrenEnd = static_cast<unsigned>(parts_.octants.size());
    for (unsigned child = children; child < childrenEnd; ++child) {
      Octant const& made = parts_.octants[child];
      if (made.isLeaf) {
        // The keys of the levels below the leaf have ordered its points too; in a leaf the index order
        // counts.
        std::sort(parts_.chain.begin() + made.first, parts_.chain.begin() + made.first + made.count);
      } else {
        split(child, keyed, levels - 1, unfinished);
      }
    }
  }

  void sketchPoints() {
    resizeInPieces(parts_.sketches, parts_.chain.size() + sketchLanes - 1, progress_.part(0.9, 0.92), stage);
    auto const sketchLeaf = [&](Octant const& leaf) {
      SketchGrid const grid(leaf, parts_.tolerance);
      for (unsigned place = leaf.first; place < leaf.first + leaf.count; ++place) {
        parts_.sketches[place] = grid.sketch(points_[parts_.chain[place]]);
      }
    };
    constexpr std::size_t octantsAtOnce = 1 << 14;
    inPieces(parts_.octants.size(), octantsAtOnce, progress_.part(0.92, 1.0), stage,
             [&](std::size_t first, std::size_t end) {
               for (std::size_t i = first; i < end; ++i) {
                 if (parts_.octants[i].isLeaf) {
                   sketchLeaf(parts_.octants[i]);
                 }
               }
             });
  }

  Points points_;
  std::size_t bucketCapacity_;
  float minHalfSize_;
  Progress progress_;
  OctreeParts parts_;
  std::size_t splits_ = 0;
};

} // namespace

template <class Points>
OctreeParts buildOctree(Points const& points, std::size_t count, std::size_t bucketCapacity,
                        float minHalfSize, Progress const& progress) {
  return OctreeBuilder<Points>(points, bucketCapacity, minHalfSize, progress).build(count);
}

template OctreeParts buildOctree(ContiguousPoints const&, std::size_t, std::size_t, float, Progress const&);
template OctreeParts buildOctree(StridedPoints const&, std::size_t, std::size_t, float, Progress const&);

} // namespace vorn::mv
