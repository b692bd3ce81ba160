// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <vorn/mv/sl/phase_unwrapping.hpp>

#include "sl/quality_heap.hpp"

namespace vorn::mv {

/// The working memory of `unwrap_phase`, for callers that unwrap again and again.
struct UnwrapScratch {
  QualityHeap heap;
  std::vector<unsigned char> seeds;
};

/// As the public function, in the memory of `scratch`.
void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask, UnwrapScratch& scratch);

} // namespace vorn::mv
