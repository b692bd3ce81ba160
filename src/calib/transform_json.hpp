// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/matx.hpp>

namespace vorn::mv {

/// The transform in the member `key` of a calibrated object's document.
/// @throws JsonRefusal when it is missing or no rigid motion; the mean of rotations near each other, which
///         calibrations store, is near enough to one
cv::Matx44d readTransform(nlohmann::json const& json, char const* key, char const* context);

} // namespace vorn::mv
