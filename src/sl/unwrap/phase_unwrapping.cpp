// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/unwrap/phase_unwrapping.hpp"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include <opencv2/core.hpp>

#include "sl/decode/stack_checks.hpp"
#include "sl/unwrap/region_growth.hpp"
#include "sl/unwrap/unwrap_seeding.hpp"

namespace vorn::mv {

namespace {

/// Gathered pixels are numbered with 30 bits, and so are more of them than a map of this size has in a batch.
constexpr std::size_t mostPixels = std::size_t{1} << 31;

void unwrap(UnwrapMaps const& maps, GrowthRegions& regions) {
  regions.clear();
  if (maps.phase.rows < 3 || maps.phase.cols < 3) {
    return;
  }
  UnwrapSeeding seeding(maps);
  for (int row = 1; row + 1 < maps.phase.rows; ++row) {
    regions.addRow(seeding.nextRow(), maps.state.ptr<uchar>(row), unwrap_state::waiting);
  }
  growRegions(maps, regions);
}

} // namespace

void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask, GrowthRegions& regions) {
  if (phase.empty()) {
    return;
  }
  cv::Size const size = phase.size();
  requireMap(phase, "phase map", CV_32FC1, size);
  requireMap(quality, "quality map", CV_32FC1, size);
  requireMap(state, "state map", CV_8UC1, size);
  requireMap(code, "code map", CV_16SC1, size);
  requireMask(mask, size);
  if (phase.total() >= mostPixels) {
    throw std::invalid_argument("The phase map has more pixels than 31 bits can number");
  }
  cv::Mat_<float> const fixedQuality = mayOverlap(quality, phase) ? quality.clone() : quality;
  cv::Mat const fixedMask = mayOverlap(mask, state) ? mask.clone() : mask;
  unwrap({phase, fixedQuality, state, code, fixedMask}, regions);
}

void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask) {
  GrowthRegions regions;
  unwrap_phase(phase, quality, state, code, mask, regions);
}

} // namespace vorn::mv
