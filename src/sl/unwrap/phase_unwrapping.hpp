// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vorn/mv/sl/phase_unwrapping.hpp>

#include "sl/unwrap/unwrap_regions.hpp"

namespace vorn::mv {

/// As the public function, in the memory of `regions`, for callers that unwrap again and again.
void unwrap_phase(cv::Mat_<float>& phase, cv::Mat_<float> const& quality, cv::Mat& state, cv::Mat const& code,
                  cv::Mat const& mask, GrowthRegions& regions);

} // namespace vorn::mv
