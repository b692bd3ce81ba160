// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// A point's place within its leaf in 32 bits, ten an axis.
//
// The sketches of a leaf stand side by side, while its points lie wherever the caller put them. A sketch
// tells nearly always whether a point is in a ball; only points within a thousandth of a leaf's edge of the
// ball's surface have to be looked up.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <opencv2/core/hal/intrin.hpp>

#include <vorn/mv/pointcloud/octree.hpp>

#include "pointcloud/octree_search.hpp"

namespace vorn::mv {

using PointSketch = std::uint32_t;
constexpr int sketchBits = 10;
constexpr PointSketch sketchMask = (1U << sketchBits) - 1U;

/// Sketches are compared so many at a time; a tree keeps one less after its last.
constexpr std::size_t sketchLanes = 8;

/// The grid that the sketches of one leaf number: cells of edge `step` from the corner `low` on.
struct SketchGrid {
  SketchGrid(BasicOctant<unsigned> const& leaf, float tolerance) {
    float const reach = leaf.halfSize + tolerance;
    low = cv::v_load(&leaf.x) - cv::v_setall_f32(reach);
    step = reach * (2.0F / (1U << sketchBits));
  }

  PointSketch sketch(float const* point) const {
    // In this order a quotient that is not a number becomes zero.
    cv::v_float32x4 const quotients =
        cv::v_max((loadQuery(point) - low) / cv::v_setall_f32(step), cv::v_setzero_f32());
    int cells[4];
    cv::v_store(cells, cv::v_trunc(cv::v_min(quotients, cv::v_setall_f32(sketchMask))));
    return static_cast<PointSketch>(cells[0] | (cells[1] << sketchBits) | (cells[2] << (2 * sketchBits)));
  }

  cv::v_float32x4 low; ///< The fourth lane means nothing.
  float step;
};

/// A ball as the sketches of one leaf see it.
struct alignas(32) SketchedBall {
  float start[3]; ///< From the ball's centre to the middle of the grid's first cell.
  float step;
  float inner;  ///< A sketch nearer than this is a point inside.
  float outer;  ///< A sketch farther than this is a point outside.
  unsigned end; ///< Where the leaf ends in the chain.
};

/// Makes the `SketchedBall`s of one ball.
template <class Kind>
class BallSketcher {
public:
  BallSketcher(float const* centre, float radius, float tolerance)
      : centre_(loadQuery(centre)), radius_(radius), tolerance_(tolerance) {}

  void sketch(BasicOctant<unsigned> const& leaf, SketchedBall& ball) const {
    // From a cell's middle to its farthest corner, with a thousandth for the rounding within the grid.
    constexpr float cornerSteps =
        1.001F * (Kind::takesLargest ? 0.5F : (Kind::isSquared ? 0.8660255F : 1.5F));
    // For rounding in proportion to the distance, here and when the point itself is looked at.
    constexpr float distanceSlack = 4e-6F;
    SketchGrid const grid(leaf, tolerance_);
    float const error = cornerSteps * grid.step + distanceSlack * radius_;
    // The fourth lane is overwritten.
    cv::v_store(ball.start, grid.low - centre_ + cv::v_setall_f32(0.5F * grid.step));
    ball.step = grid.step;
    ball.inner = Kind::norm(std::max(0.0F, radius_ - error));
    ball.outer = Kind::norm(radius_ + error);
    ball.end = leaf.first + leaf.count;
  }

private:
  cv::v_float32x4 centre_;
  float radius_;
  float tolerance_;
};

/// Holds the sketches of one leaf against a ball, four at a time.
template <class Kind>
class SketchedLeaf {
public:
  /// A bit a point; those behind the leaf's last mean nothing.
  struct Bits {
    unsigned inside;
    unsigned doubtful;
  };

  explicit SketchedLeaf(SketchedBall const& ball)
      : x_(cv::v_setall_f32(ball.start[0])), y_(cv::v_setall_f32(ball.start[1])),
        z_(cv::v_setall_f32(ball.start[2])), step_(cv::v_setall_f32(ball.step)),
        inner_(cv::v_setall_f32(ball.inner)), outer_(cv::v_setall_f32(ball.outer)) {}

  Bits four(PointSketch const* sketches) const {
    cv::v_uint32x4 const cells = cv::v_load(sketches);
    cv::v_uint32x4 const mask = cv::v_setall_u32(sketchMask);
    cv::v_float32x4 const distances =
        between<Kind>(offset(cells & mask, x_), offset(cv::v_shr<sketchBits>(cells) & mask, y_),
                      offset(cv::v_shr<2 * sketchBits>(cells), z_));
    auto const inside = static_cast<unsigned>(cv::v_signmask(distances < inner_));
    auto const possible = static_cast<unsigned>(cv::v_signmask(distances <= outer_));
    return {inside, possible & ~inside};
  }

private:
  cv::v_float32x4 offset(cv::v_uint32x4 const& cells, cv::v_float32x4 const& first) const {
    return cv::v_cvt_f32(cv::v_reinterpret_as_s32(cells)) * step_ + first;
  }

  cv::v_float32x4 x_, y_, z_, step_, inner_, outer_;
};

/// True when sketches can be held against a ball in a tree with this root: nowhere do the numbers come near
/// the ends of the range of float, where rounding is not in proportion.
template <class Kind>
bool canSketch(BasicOctant<unsigned> const& root, float const* centre, float radius) {
  constexpr float tiny = 1e-30F;
  constexpr float huge = 1e18F;
  auto const isModerate = [](float number) { return std::abs(number) < huge; };
  return Kind::norm(radius) > tiny && isModerate(radius) && isModerate(root.halfSize) && isModerate(root.x) &&
         isModerate(root.y) && isModerate(root.z) && isModerate(centre[0]) && isModerate(centre[1]) &&
         isModerate(centre[2]);
}

/// Up to `sketchLanes` points of one leaf.
struct SketchBlock {
  unsigned place; ///< In the chain.
  unsigned ball;  ///< Which `SketchedBall` is this leaf's.
};

/// At most so many blocks are compared in one go, so that what is in doubt fits the bits of a number.
constexpr std::size_t mostSketchBlocks = 32;

/// What the sketches of some blocks tell.
struct SketchedCount {
  unsigned inside; ///< Points that are certainly inside.
  /// Bit b of element l is set when point l of block b is in doubt.
  std::array<std::uint32_t, sketchLanes> doubtful;
};

/// Holds the points of up to `mostSketchBlocks` blocks against the balls of their leaves.
template <class Kind>
SketchedCount countSketches(SketchBlock const* blocks, std::size_t count, SketchedBall const* balls,
                            PointSketch const* sketches);

} // namespace vorn::mv
