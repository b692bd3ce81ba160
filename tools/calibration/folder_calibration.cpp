// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/folder_calibration.hpp"

#include <algorithm>
#include <filesystem>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "tools/files/image_files.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

/// A folder with views.
struct PoseFolders {
  fs::path root;
  std::vector<std::string> names; ///< pose_00, ...
};

PoseFolders poseFolders(std::string const& folder) {
  fs::path const inner = fs::path(folder) / "calib";
  PoseFolders poses;
  poses.root = fs::is_directory(inner) ? inner : fs::path(folder);
  if (!fs::is_directory(poses.root)) {
    throw Exception("There is no folder " + poses.root.string(), nullptr, 0, "calibrate");
  }
  for (auto const& entry : fs::directory_iterator(poses.root)) {
    std::string const name = entry.path().filename().string();
    if (entry.is_directory() && name.rfind("pose_", 0) == 0) {
      poses.names.push_back(name);
    }
  }
  if (poses.names.empty()) {
    throw Exception("There are no folders pose_00, pose_01, ... in " + poses.root.string(), nullptr, 0,
                    "calibrate");
  }
  std::sort(poses.names.begin(), poses.names.end());
  return poses;
}

/// A reason without the path of the view's folder: the view is named beside it.
std::string withoutFolder(std::string reason, std::string const& folder) {
  std::string const paths[] = {folder + "/", folder};
  std::string const texts[] = {"", "its folder"};
  for (int i = 0; i < 2; ++i) {
    for (auto at = reason.find(paths[i]); at != std::string::npos;
         at = reason.find(paths[i], at + texts[i].size())) {
      reason.replace(at, paths[i].size(), texts[i]);
    }
  }
  return reason;
}

/// Runs `job(names, view)` with the views that `read` makes of the poses' folders.
template <class View, class Read, class Job>
auto calibrate(std::string const& folder, Read const& read, Job const& job) {
  PoseFolders const poses = poseFolders(folder);
  auto const view = [&](std::size_t number) {
    fs::path const pose = poses.root / poses.names[number];
    try {
      View result = read(pose);
      result.name = poses.names[number];
      return result;
    } catch (Exception const& e) {
      throw Exception(withoutFolder(e.message(), pose.string()), nullptr, 0, "calibrate");
    }
  };
  return job(poses.names, view);
}

cv::Mat readTarget(fs::path const& pose, char const* name) {
  return readGrayImage((pose / name).string());
}

/// The pictures of a sequence, of which there must be some.
std::vector<cv::Mat> readNeeded(fs::path const& pose, std::string const& prefix,
                                cv::Mat (*read)(std::string const&) = readGrayImage) {
  std::vector<cv::Mat> images = readSequence(pose.string(), prefix, read);
  if (images.empty()) {
    throw Exception("there is no " + prefix + "_00.png", nullptr, 0, "calibrate");
  }
  return images;
}

} // namespace

std::vector<std::string> calibrationPictures(std::string const& folder,
                                             std::vector<std::string> const& prefixes) {
  PoseFolders const poses = poseFolders(folder);
  std::vector<std::string> files;
  for (std::string const& name : poses.names) {
    for (auto const& entry : fs::directory_iterator(poses.root / name)) {
      std::string const file = entry.path().filename().string();
      std::string const start = file.substr(0, file.find_first_of("._"));
      if (std::find(prefixes.begin(), prefixes.end(), start) != prefixes.end()) {
        files.push_back(entry.path().string());
      }
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

mv::ScannerCalibration calibrateScanner(std::string const& folder, mv::CalibrationSettings const& settings,
                                        Observer* observer) {
  return calibrate<mv::ScannerView>(
      folder,
      [](fs::path const& pose) {
        return mv::ScannerView{"", readTarget(pose, "target.png"), readNeeded(pose, "columns"),
                               readNeeded(pose, "rows")};
      },
      [&](auto const& names, auto const& view) {
        return mv::calibrateScanner(names, view, settings, observer);
      });
}

mv::StereoCalibration calibrateStereo(std::string const& folder, mv::CalibrationSettings const& settings,
                                      Observer* observer) {
  return calibrate<mv::StereoView>(
      folder,
      [](fs::path const& pose) {
        return mv::StereoView{"", {readTarget(pose, "target.png"), readTarget(pose, "target_1.png")}};
      },
      [&](auto const& names, auto const& view) {
        return mv::calibrateStereo(names, view, settings, observer);
      });
}

mv::LaserCalibration calibrateLaser(std::string const& folder, mv::CalibrationSettings const& settings,
                                    Observer* observer) {
  return calibrate<mv::LaserView>(
      folder,
      [](fs::path const& pose) {
        return mv::LaserView{"", readTarget(pose, "target.png"), readNeeded(pose, "line", readLaserImage)};
      },
      [&](auto const& names, auto const& view) {
        return mv::calibrateLaser(names, view, settings, observer);
      });
}

} // namespace vorn::tools
