// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/transform_json.hpp"

#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/core/matrix_json.hpp>

#include "core/error.hpp"

namespace vorn::mv {

cv::Matx44d readTransform(nlohmann::json const& json, char const* key, char const* context) {
  auto const transform = json.at(key).get<cv::Matx44d>();
  if (!cv::checkRange(transform)) {
    throw error('"' + std::string(key) + "\" holds an element that is not finite", context);
  }
  return transform;
}

} // namespace vorn::mv
