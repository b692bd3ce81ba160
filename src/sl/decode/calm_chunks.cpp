// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/calm_chunks.hpp"

#include <cmath>

#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

VORN_TARGET_CLONES
bool hasSmallSteps(float const* a, float const* b, int n) {
  int small = 0;
  for (int x = 0; x < n; ++x) {
    small += std::fabs(b[x] - a[x]) <= calmStep ? 1 : 0;
  }
  return small == n;
}

VORN_TARGET_CLONES
bool areKnown(uchar const* state, int n) {
  uchar all = 255;
  for (int x = 0; x < n; ++x) {
    all = static_cast<uchar>(all & state[x]);
  }
  return pixel_state::isKnown(all);
}

VORN_TARGET_CLONES
void scale(float const* values, float factor, int n, float* __restrict scaled) {
  for (int x = 0; x < n; ++x) {
    scaled[x] = values[x] * factor;
  }
}

} // namespace

// Comparisons with an unknown phase, a NaN, are false.
bool isCalmAlong(float const* phase, int n) {
  return hasSmallSteps(phase, phase + 1, n - 1);
}

bool isCalmAcross(float const* phase, float const* below, int n) {
  return hasSmallSteps(phase, below, n);
}

CalmWalk::CalmWalk(ScanMaps const& maps, float pixelsPerRadian, CalmChunks& calm,
                   cv::Mat_<float>& coordinates)
    : maps_(maps), pixelsPerRadian_(pixelsPerRadian), calm_(calm), coordinates_(coordinates),
      own_(static_cast<std::size_t>(maps.size().width + 2 * CalmChunks::pad), unknownPhase), above_(own_) {}

void CalmWalk::read(int y) {
  std::swap(own_, above_);
  bool const hasAbove = row_ == y - 1 && y > 0;
  row_ = y;
  float* const phase = own_.data() + CalmChunks::pad;
  float const* const above = above_.data() + CalmChunks::pad;
  uchar const* const state = maps_.state.inner[y];
  for (int chunk = 0; chunk < calm_.perRow(); ++chunk) {
    auto const [begin, end] = calm_.pixelsOf(chunk);
    int const first = begin - CalmChunks::pad;
    int const count = end - begin + 2 * CalmChunks::pad;
    // Beside the image lie pixels that are not known.
    if (!areKnown(state + first, count)) {
      continue;
    }
    absoluteRow(maps_.wrapped.inner[y] + first, maps_.order.inner[y] + first, state + first, count,
                phase + first);
    if (!isCalmAlong(phase + first, count)) {
      continue;
    }
    bool const isAcross = hasAbove && (calm_.at(y - 1, chunk) & CalmChunks::along) != 0 &&
                          isCalmAcross(above + first, phase + first, count);
    calm_.at(y, chunk) = CalmChunks::along | (isAcross ? CalmChunks::across : uchar{0});
    scale(phase + begin, pixelsPerRadian_, end - begin, coordinates_[y] + begin);
  }
}

} // namespace vorn::mv::sl
