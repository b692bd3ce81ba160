// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// The transform in the member `key` of a calibrated object's document.
/// @throws Exception with `context` when an element is not finite: nothing could be measured with it
/// @throws nlohmann::json::exception when it is missing or no matrix
cv::Matx44d readTransform(nlohmann::json const& json, char const* key, char const* context);

} // namespace vorn::mv
