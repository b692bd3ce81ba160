// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pointcloud/point_sketch.hpp"

#include <cstring>

#include "core/simd.hpp"

namespace vorn::mv {

namespace {

using Kinds = Distance<cv::Vec3f>;

constexpr std::size_t registerSize = sketchLanes * sizeof(float);
using Floats = float __attribute__((vector_size(registerSize)));
using Integers = std::int32_t __attribute__((vector_size(registerSize)));
using Bits = std::uint32_t __attribute__((vector_size(registerSize)));

template <class Kind>
[[gnu::always_inline]] inline SketchedCount countOfKind(SketchBlock const* blocks, std::size_t count,
                                                        SketchedBall const* balls,
                                                        PointSketch const* sketches) {
  Integers const lane = {0, 1, 2, 3, 4, 5, 6, 7};
  Integers inside = {};
  Bits doubtful = {};
  Bits bit = Bits{} + 1U;
  for (std::size_t b = 0; b < count; ++b) {
    SketchedBall const& ball = balls[blocks[b].ball];
    Integers cells;
    std::memcpy(&cells, sketches + blocks[b].place, sizeof(cells));
    constexpr auto mask = static_cast<std::int32_t>(sketchMask);
    Floats dx = __builtin_convertvector(cells & mask, Floats) * ball.step + ball.start[0];
    Floats dy = __builtin_convertvector((cells >> sketchBits) & mask, Floats) * ball.step + ball.start[1];
    Floats dz = __builtin_convertvector(cells >> (2 * sketchBits), Floats) * ball.step + ball.start[2];
    Floats distance;
    if constexpr (Kind::isSquared) {
      distance = dx * dx + dy * dy + dz * dz;
    } else {
      dx = dx < 0.0F ? -dx : dx;
      dy = dy < 0.0F ? -dy : dy;
      dz = dz < 0.0F ? -dz : dz;
      if constexpr (Kind::takesLargest) {
        dx = dx < dy ? dy : dx;
        distance = dx < dz ? dz : dx;
      } else {
        distance = dx + dy + dz;
      }
    }
    Integers const isPoint = lane < static_cast<std::int32_t>(ball.end - blocks[b].place);
    Integers const isInside = (distance < ball.inner) & isPoint;
    Integers const isInDoubt = (distance <= ball.outer) & isPoint & ~isInside;
    inside -= isInside;
    doubtful |= reinterpret_cast<Bits>(isInDoubt) & bit;
    bit += bit;
  }
  SketchedCount result = {};
  for (std::size_t l = 0; l < sketchLanes; ++l) {
    result.inside += static_cast<unsigned>(inside[l]);
    result.doubtful[l] = doubtful[l];
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
