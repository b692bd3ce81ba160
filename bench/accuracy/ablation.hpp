// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include <sim/truth.hpp>

#include "sl/decode/decoding_settings.hpp"

/// What each rule of decoding gains: every scene is decoded with all rules, and with each of them off in
/// turn.
namespace vorn::bench {

/// The images of a scan of columns, and what they ought to give.
struct AblationScene {
  std::string name;
  std::vector<cv::Mat> images;
  int resolution = 0; ///< columns of the projector
  sim::Truth truth;   ///< its `projector` alone is needed
  sim::Signal signal;
  cv::Mat_<uchar> mask;
};

/// Easy and hard scenes of the virtual rig, at half its resolution.
std::vector<AblationScene> ablationScenes();

/// A scene from a folder of a rendered scan with its truth.
/// @throws Exception for a file that is missing
AblationScene ablationScene(std::string const& folder);

/// Decodes all scenes under all rules and prints the tables.
void printAblation(std::vector<AblationScene> const& scenes);

} // namespace vorn::bench
