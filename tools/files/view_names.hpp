// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace vorn::tools {

/// How the views of the target and their pictures are called. Names may hold the patterns of `matches`.
struct ViewNames {
  /// The views' folders.
  std::string poses = "pose_*";
  /// The target's picture by each camera, one file each.
  std::vector<std::string> targets = {"target.png", "target_1.png"};
  /// The sequences; none for columns_00.png, rows_00.png and line_00.png and so on.
  std::vector<std::string> columns;
  std::vector<std::string> rows;
  std::vector<std::string> lines;
};

/// The picture of a name in a folder, or where there is none the one whose name differs in its ending alone,
/// as target.tiff for target.png; empty for neither.
/// @throws Exception when there are several such
std::string pictureOf(std::string const& folder, std::string const& name);

/// The target's picture in a view's folder: the one file that a pattern stands for, or of a name `pictureOf`.
/// @throws Exception when there is none, or several
std::string namedFile(std::string const& folder, std::string const& name);

/// The pictures of a laser line by their names, as they are stored: of files in their order, or the pages of
/// a single TIFF file.
/// @throws Exception as `namedFiles` and `readImage`
std::vector<cv::Mat> readNamedLines(std::string const& folder, std::vector<std::string> const& names);

} // namespace vorn::tools
