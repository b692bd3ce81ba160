// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <vorn/mv/sl/phase_unwrapping.hpp>

namespace vorn::mv {

/// The working memory of `unwrap_phase`, for callers that unwrap again and again.
struct UnwrapScratch {
  /// A pixel in the queue, or about to enter it.
  struct Waiting {
    float quality;
    std::uint32_t pixel;
  };

  std::vector<unsigned char> marks;   ///< of the pixels of one row
  std::vector<Waiting> seeds;         ///< where growth starts, in the order in which it was found
  cv::Mat_<std::int32_t> labels;      ///< of the pixels to grow into; undefined elsewhere
  std::vector<std::uint32_t> parents; ///< of the labels: their region is the one without another parent
  std::vector<std::uint32_t> starts;  ///< of each label in `regionSeeds`
  std::vector<Waiting> regionSeeds;   ///< the seeds, region by region, in their order
};

/// As the public function, in the memory of `scratch`.
void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask, UnwrapScratch& scratch);

} // namespace vorn::mv
