// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/point_sketch.hpp"

#include <cstring>

#include "core/lanes.hpp"
#include "core/simd.hpp"

namespace vorn::mv {

namespace {

using Kinds = Distance<cv::Vec3f>;

static_assert(sketchLanes == laneCount);

template <class Kind>
VORN_ALWAYS_INLINE SketchedCount countOfKind(SketchBlock const* blocks, std::size_t count,
                                             SketchedBall const* balls, PointSketch const* sketches) {
  IntLanes const lane = {0, 1, 2, 3, 4, 5, 6, 7};
  IntLanes inside = {};
  IntLanes doubtful = {};
  for (std::size_t b = 0; b < count; ++b) {
    SketchedBall const& ball = balls[blocks[b].ball];
    IntLanes cells;
    std::memcpy(&cells, sketches + blocks[b].place, sizeof(cells));
    constexpr auto mask = static_cast<std::int32_t>(sketchMask);
    FloatLanes dx;
    FloatLanes dy;
    FloatLanes dz;
    toFloats(cells & mask, dx);
    toFloats((cells >> sketchBits) & mask, dy);
    toFloats(cells >> (2 * sketchBits), dz);
    dx = dx * ball.step + ball.start[0];
    dy = dy * ball.step + ball.start[1];
    dz = dz * ball.step + ball.start[2];
    FloatLanes distance;
    if constexpr (Kind::isSquared) {
      distance = dx * dx + dy * dy + dz * dz;
    } else {
      select(dx < 0.0F, -dx, dx, dx);
      select(dy < 0.0F, -dy, dy, dy);
      select(dz < 0.0F, -dz, dz, dz);
      if constexpr (Kind::takesLargest) {
        select(dx < dy, dy, dx, dx);
        select(dx < dz, dz, dx, distance);
      } else {
        distance = dx + dy + dz;
      }
    }
    IntLanes const isPoint = lane < static_cast<std::int32_t>(ball.end - blocks[b].place);
    IntLanes const isInside = (distance < ball.inner) & isPoint;
    IntLanes const isInDoubt = (distance <= ball.outer) & isPoint & ~isInside;
    inside -= isInside;
    doubtful |= isInDoubt & static_cast<std::int32_t>(1U << b);
  }
  SketchedCount result = {};
  for (std::size_t l = 0; l < sketchLanes; ++l) {
    result.inside += static_cast<unsigned>(inside[l]);
    result.doubtful[l] = static_cast<std::uint32_t>(doubtful[l]);
  }
  return result;
}

VORN_TARGET_CLONES SketchedCount countL1(SketchBlock const* blocks, std::size_t count,
                                         SketchedBall const* balls, PointSketch const* sketches) {
  return countOfKind<Kinds::L1>(blocks, count, balls, sketches);
}
VORN_TARGET_CLONES SketchedCount countL2(SketchBlock const* blocks, std::size_t count,
                                         SketchedBall const* balls, PointSketch const* sketches) {
  return countOfKind<Kinds::L2>(blocks, count, balls, sketches);
}
VORN_TARGET_CLONES SketchedCount countLInf(SketchBlock const* blocks, std::size_t count,
                                           SketchedBall const* balls, PointSketch const* sketches) {
  return countOfKind<Kinds::LInf>(blocks, count, balls, sketches);
}

} // namespace

template <class Kind>
SketchedCount countSketches(SketchBlock const* blocks, std::size_t count, SketchedBall const* balls,
                            PointSketch const* sketches) {
  if constexpr (Kind::isSquared) {
    return countL2(blocks, count, balls, sketches);
  } else if constexpr (Kind::takesLargest) {
    return countLInf(blocks, count, balls, sketches);
  } else {
    return countL1(blocks, count, balls, sketches);
  }
}

#define VORN_INSTANTIATE_COUNT(Kind)                                                                         \
  template SketchedCount countSketches<Kind>(SketchBlock const*, std::size_t, SketchedBall const*,           \
                                             PointSketch const*);
VORN_INSTANTIATE_COUNT(Distance<cv::Vec3f>::L1)
VORN_INSTANTIATE_COUNT(Distance<cv::Vec3f>::L2)
VORN_INSTANTIATE_COUNT(Distance<cv::Vec3f>::LInf)
VORN_INSTANTIATE_COUNT(Distance<cv::Point3f>::L1)
VORN_INSTANTIATE_COUNT(Distance<cv::Point3f>::L2)
VORN_INSTANTIATE_COUNT(Distance<cv::Point3f>::LInf)
#undef VORN_INSTANTIATE_COUNT

} // namespace vorn::mv
