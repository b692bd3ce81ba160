// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/matx.hpp>

namespace vorn::tools {

/// One view of a part in a folder.
struct ViewEntry {
  std::string name;
  /// A cloud (tiff, ply, pcd, xyz, obj), or a folder with the images of a scan.
  std::string path;
  bool isScan = false;
  cv::Matx44d commonFromView = cv::Matx44d::eye();
  bool hasPose = false;
};

/// The views that a folder holds: those that its views.json names, each with its pose ("commonFromView", four
/// rows), else all clouds in it and all folders in it with columns_00.png, by their names; beside a cloud its
/// pose may stand as NAME.json.
/// @param calibrated whether images of scans may be used; without a cloud of their name they are passed over
///                   otherwise
/// @throws Exception for no folder, no view, a pose that is none, and a view of views.json that is not there
std::vector<ViewEntry> findViews(std::string const& folder, bool calibrated);

/// A view's name and pose.
struct ViewPose {
  std::string name;
  cv::Matx44d commonFromView;
  std::string camera; ///< whose view it is: a calibration, relative to the folder; empty where not named
  std::string image;  ///< its picture, relative to the folder; empty where not named
};

/// The poses that a views.json holds.
/// @throws Exception when it cannot be read or is no such list
std::vector<ViewPose> readViewPoses(std::string const& path);

/// The pose of a single view: "commonFromView", four rows, or the "targetFromSource" of a transform file.
/// @throws Exception when it cannot be read or holds neither
cv::Matx44d readViewPose(std::string const& path);

/// What a views.json holds.
nlohmann::json viewPosesJson(std::vector<ViewPose> const& poses);

/// The file with the poses in a folder.
std::string viewsPath(std::string const& folder);

} // namespace vorn::tools
