// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "core/bits.hpp"
#include "pointcloud/octree_search.hpp"
#include "pointcloud/point_sketch.hpp"

namespace vorn::mv {

/// Counts the points of a ball.
///
/// The order of visits is free, so octants of one kind are gathered and worked on together, with as few
/// branches as can be: which children a ball cuts is nothing that a processor could predict, and without
/// wrong guesses it fetches many parts of the tree at once.
template <class Kind, class Points>
class BallCounter {
public:
  BallCounter(OctreeView const& tree, PointSketch const* sketches, Points const& points,
              Ball<Kind> const& ball)
      : tree_(tree), sketches_(sketches), points_(points), ball_(ball),
        canSketch_(!tree.isEmpty && mv::canSketch<Kind>(tree.octants[0], ball.centre(), ball.radius())) {}

  std::size_t count() {
    if (tree_.isEmpty || ball_.isEmpty()) {
      return 0;
    }
    BasicOctant<unsigned> const& root = tree_.octants[0];
    if (ball_.holdsAll(root)) {
      return root.count;
    }
    if (root.isLeaf) {
      leaves_[leafCount_++] = 0;
      countInLeaves();
      return count_;
    }
    std::array<unsigned, mostWaiting> waiting;
    waiting[0] = 0;
    for (std::size_t size = 1; size > 0;) {
      std::size_t const batch = size > mostForBatches ? 1 : std::min(size, batchSize);
      size = enter(batch, waiting.data(), size - batch);
      if (leafCount_ > mostLeaves) {
        countInLeaves();
      }
    }
    countInLeaves();
    return count_;
  }

private:
  /// Octants that are entered together: a bit for each of their children fits a number.
  static constexpr std::size_t batchSize = 8;
  /// While more wait than these, octants are entered one by one, each for at most eight of the next level.
  static constexpr std::size_t mostForBatches = 512;
  static constexpr std::size_t mostWaiting = mostForBatches + 8 * batchSize + 7 * std::size_t{maxOctreeDepth};
  /// Leaves that are gathered before their points are counted, give or take those of one batch.
  static constexpr std::size_t mostLeaves = 40;
  /// With a place that is written to but not kept.
  static constexpr std::size_t leafPlaces = mostLeaves + 8 * batchSize + 1;
  /// Larger leaves are rare: points at one place, or a tree that is not to be divided further.
  static constexpr unsigned usualLeafCapacity = 32;
  static constexpr auto lanes = static_cast<unsigned>(sketchLanes);
  static constexpr unsigned blocksPerLeaf = usualLeafCapacity / lanes;

  /// Enters the `batch` octants that wait from place `size` on: counts the children that lie inside, notes
  /// the leaves, and lets the others wait from there on. Returns the number that wait then.
  std::size_t enter(std::size_t batch, unsigned* waiting, std::size_t size) {
    std::array<BasicOctant<unsigned> const*, batchSize> octants;
    // A byte an octant, a bit a child.
    std::uint64_t toVisit = 0;
    std::uint64_t isInside = 0;
    std::uint64_t isLeaf = 0;
    for (std::size_t i = 0; i < batch; ++i) {
      BasicOctant<unsigned> const& octant = tree_.octants[waiting[size + i]];
      octants[i] = &octant;
      ChildGeometry<Kind> const children(octant, query_);
      std::uint64_t const inside = children.farthest().atMost(ball_.norm());
      std::uint64_t const near = children.nearest(tree_.tolerance).atMost(bound_);
      toVisit |= ((near | inside) & octant.childMask) << (8 * i);
      isInside |= inside << (8 * i);
      isLeaf |= std::uint64_t{octant.leafMask} << (8 * i);
    }
    std::uint64_t const leaves = isLeaf & ~isInside;
    std::uint64_t const inner = ~(isLeaf | isInside);
    for (; toVisit != 0; toVisit &= toVisit - 1) {
      auto const bit = static_cast<unsigned>(lowestBit(toVisit));
      unsigned const place = childPlace(*octants[bit / 8], bit % 8);
      BasicOctant<unsigned> const& child = tree_.octants[place];
      // What comes next if the child is a leaf, and if it is none: its lower and its upper children.
      prefetch(sketches_ + child.first);
      prefetch(tree_.octants + child.children);
      prefetch(tree_.octants + childPlace(child, 4));
      count_ += child.count & (0U - static_cast<unsigned>((isInside >> bit) & 1U));
      leaves_[leafCount_] = place;
      leafCount_ += (leaves >> bit) & 1U;
      waiting[size] = place;
      size += (inner >> bit) & 1U;
    }
    return size;
  }

  void countInLeaves() {
    std::array<SketchedBall, leafPlaces> balls;
    std::array<SketchBlock, leafPlaces * blocksPerLeaf> blocks;
    std::size_t blockCount = 0;
    BallSketcher<Kind> const sketcher(ball_.centre(), ball_.radius(), tree_.tolerance);
    for (std::size_t i = 0; i < leafCount_; ++i) {
      BasicOctant<unsigned> const& leaf = tree_.octants[leaves_[i]];
      if (!canSketch_ || leaf.count > usualLeafCapacity) {
        countAmong(leaf);
        continue;
      }
      sketcher.sketch(leaf, balls[i]);
      for (unsigned j = 0; j < blocksPerLeaf; ++j) {
        blocks[blockCount + j] = {leaf.first + j * lanes, static_cast<unsigned>(i)};
      }
      blockCount += (leaf.count + lanes - 1) / lanes;
    }
    for (std::size_t first = 0; first < blockCount; first += mostSketchBlocks) {
      countInBlocks(blocks.data() + first, std::min(mostSketchBlocks, blockCount - first), balls.data());
    }
    leafCount_ = 0;
  }

  void countInBlocks(SketchBlock const* blocks, std::size_t count, SketchedBall const* balls) {
    SketchedCount const result = countSketches<Kind>(blocks, count, balls, sketches_);
    count_ += result.inside;
    for (unsigned lane = 0; lane < lanes; ++lane) {
      for (std::uint32_t doubtful = result.doubtful[lane]; doubtful != 0; doubtful &= doubtful - 1) {
        unsigned const place = blocks[__builtin_ctz(doubtful)].place + lane;
        count_ += ball_.holds(points_[tree_.chain[place]]) ? 1U : 0U;
      }
    }
  }

  void countAmong(BasicOctant<unsigned> const& leaf) {
    unsigned const* const chain = tree_.chain + leaf.first;
    DistancesOfFour<Kind> const distancesOfFour(ball_.centre());
    cv::v_float32x4 const norm = cv::v_setall_f32(ball_.norm());
    cv::v_int32x4 negated = cv::v_setzero_s32();
    unsigned i = 0;
    for (; i + 4 <= leaf.count; i += 4) {
      // A comparison that holds is -1 in each lane.
      negated += cv::v_reinterpret_as_s32(distancesOfFour(points_, chain + i) < norm);
    }
    count_ += static_cast<unsigned>(-cv::v_reduce_sum(negated));
    for (; i < leaf.count; ++i) {
      count_ += ball_.holds(points_[chain[i]]) ? 1U : 0U;
    }
  }

  OctreeView tree_;
  PointSketch const* sketches_;
  Points points_;
  Ball<Kind> ball_;
  bool canSketch_;
  cv::v_float32x4 query_ = loadQuery(ball_.centre());
  float bound_ = ball_.norm() * (1.0F + boundSlack);
  std::size_t count_ = 0;
  std::size_t leafCount_ = 0;
  std::array<unsigned, leafPlaces> leaves_;
};

} // namespace vorn::mv
