// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

#include <vorn/core/observer.hpp>
#include <vorn/mv/sl/pattern_set.hpp>

namespace vorn::tools {

/// A pattern set and where its captured images are.
struct PatternFolder {
  std::string description; ///< the file that the set came from
  mv::PatternSet set;
  std::vector<std::string> paths; ///< one for each image of the set
};

/// The description of a folder: pattern_set.json.
std::string patternSetPath(std::string const& folder);

/// Reads a description, in which "files" may be patterns such as "step_*.png", and finds its images in a
/// folder.
/// @throws Exception that names the file and the member, or the picture that is not there
PatternFolder readPatternFolder(std::string const& folder, std::string const& description);

/// The images of a set as they are stored, in grey.
/// @throws Exception for one that cannot be read
std::vector<cv::Mat> readPatternImages(PatternFolder const& folder, Observer* observer);

} // namespace vorn::tools
