// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/camera_model_of.hpp"

#include <nlohmann/json.hpp>

#include <vorn/mv/core/matrix_json.hpp>

namespace vorn::mv {

CameraModel cameraModelOf(cv::Mat const& K, cv::Mat const& D, cv::Size const& resolution, double calibError) {
  nlohmann::json document{{"Resolution", resolution}, {"K", K}, {"Error", calibError}};
  if (!D.empty()) {
    document["D"] = D;
  }
  CameraModel model;
  model.read(document);
  return model;
}

} // namespace vorn::mv
