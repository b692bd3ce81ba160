// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/target_description.hpp>

namespace vorn::bench {

/// Pictures of one target by one camera.
struct CaptureSet {
  std::string name;
  std::vector<std::string> files;
  mv::TargetDescription target;
  /// The grid that OpenCV is to look for, which needs its size: the target's, unless the description says
  /// another one because the target is larger than the pictures.
  cv::Size openCvSize;
};

/// The sets in a folder: those that `description` lists, a JSON file as sets.json; without one every folder
/// in it that holds pictures and a target.json, and the folder itself.
/// @throws Exception when there are none, and that names what is wrong in a description
std::vector<CaptureSet> captureSets(std::string const& folder, std::string const& description);

} // namespace vorn::bench
