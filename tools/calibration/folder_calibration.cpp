// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/folder_calibration.hpp"

#include <algorithm>
#include <filesystem>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/scanner/pattern_scanner.hpp>

#include "tools/files/file_list.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/pattern_folder.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

/// The folder that holds the views: the one given, or "calib" in it.
fs::path viewFolder(std::string const& folder) {
  fs::path const inner = fs::path(folder) / "calib";
  fs::path const root = fs::is_directory(inner) ? inner : fs::path(folder);
  if (!fs::is_directory(root)) {
    throw Exception("There is no folder " + root.string(), nullptr, 0, "calibrate");
  }
  return root;
}

/// The names of those entries of a folder that `isWanted`, in the order of their numbers.
template <class Wanted>
std::vector<std::string> entriesOf(fs::path const& folder, Wanted const& isWanted) {
  std::vector<std::string> names;
  for (auto const& entry : fs::directory_iterator(folder)) {
    if (isWanted(entry)) {
      names.push_back(entry.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end(), comesBefore);
  return names;
}

/// pose_00, pose_01, ...
std::vector<std::string> posesIn(fs::path const& root) {
  return entriesOf(root, [](fs::directory_entry const& entry) {
    return entry.is_directory() && entry.path().filename().string().rfind("pose_", 0) == 0;
  });
}

std::vector<std::string> picturesIn(fs::path const& root) {
  return entriesOf(root, [](fs::directory_entry const& entry) {
    return entry.is_regular_file() && hasPictureEnding(entry.path());
  });
}

/// A reason without the path of the view, which is named beside it.
std::string withoutPath(std::string reason, fs::path const& view) {
  std::string const paths[] = {view.string() + "/", view.string()};
  std::string const texts[] = {"", fs::is_directory(view) ? "its folder" : "it"};
  for (int i = 0; i < 2; ++i) {
    for (auto at = reason.find(paths[i]); at != std::string::npos;
         at = reason.find(paths[i], at + texts[i].size())) {
      reason.replace(at, paths[i].size(), texts[i]);
    }
  }
  return reason;
}

/// Runs `job(names, view)` with the views that `read` makes of those names in a folder.
template <class View, class Read, class Job>
auto calibrate(fs::path const& root, std::vector<std::string> const& names, Read const& read,
               Job const& job) {
  auto const view = [&](std::size_t number) {
    fs::path const path = root / names[number];
    try {
      View result = read(path);
      result.name = names[number];
      return result;
    } catch (Exception const& e) {
      throw Exception(withoutPath(e.message(), path), nullptr, 0, "calibrate");
    }
  };
  return job(names, view);
}

/// The same with the poses' folders.
template <class View, class Read, class Job>
auto calibrate(std::string const& folder, Read const& read, Job const& job) {
  fs::path const root = viewFolder(folder);
  std::vector<std::string> const poses = posesIn(root);
  if (poses.empty()) {
    throw Exception("There are no folders pose_00, pose_01, ... in " + root.string(), nullptr, 0,
                    "calibrate");
  }
  return calibrate<View>(root, poses, read, job);
}

/// A described target is searched in the picture as it is, the detector wants it grey.
cv::Mat readTarget(fs::path const& path, mv::CalibrationSettings const& settings) {
  return settings.target ? readImage(path.string()) : readMeasuredImage(path.string());
}

/// The pictures of a sequence, of which there must be some.
std::vector<cv::Mat> readNeeded(fs::path const& pose, std::string const& prefix,
                                cv::Mat (*read)(std::string const&) = readMeasuredImage) {
  std::vector<cv::Mat> images = readSequence(pose.string(), prefix, read);
  if (images.empty()) {
    throw Exception("there is no " + prefix + "_00.png", nullptr, 0, "calibrate");
  }
  return images;
}

/// The set of a view that describes it itself, or whose description lies beside the views.
PatternFolder describedView(fs::path const& pose) {
  bool const hasOwn = fs::exists(patternSetPath(pose.string()));
  return readPatternFolder(pose.string(), hasOwn ? "" : patternSetPath(pose.parent_path().string()));
}

mv::PatternView readPatternView(fs::path const& pose, mv::CalibrationSettings const& settings) {
  PatternFolder const captured = describedView(pose);
  mv::PatternView view;
  view.set = captured.set;
  view.images = readPatternImages(captured, nullptr);
  fs::path const target = pose / "target.png";
  if (fs::exists(target)) {
    view.target = readTarget(target, settings);
  }
  return view;
}

mv::ScannerCalibration calibrateByPatterns(std::string const& folder, std::string const& description,
                                           mv::CalibrationSettings const& settings, Observer* observer) {
  std::string const place = fs::path(description).parent_path().string();
  // Where the set lies beside the views, globs in it are of their folders.
  fs::path const root = viewFolder(folder);
  std::string const images = fs::equivalent(place, root) ? (root / posesIn(root).front()).string() : place;
  mv::PatternScanner scanner(readPatternFolder(images, description).set);
  return calibrate<mv::PatternView>(
      folder, [&](fs::path const& pose) { return readPatternView(pose, settings); },
      [&](auto const& names, auto const& view) {
        return scanner.calibrate(names, view, settings, observer);
      });
}

} // namespace

std::vector<std::string> calibrationPictures(std::string const& folder,
                                             std::vector<std::string> const& prefixes) {
  fs::path const root = viewFolder(folder);
  std::vector<std::string> files;
  for (std::string const& name : posesIn(root)) {
    for (auto const& entry : fs::directory_iterator(root / name)) {
      std::string const file = entry.path().filename().string();
      std::string const start = file.substr(0, file.find_first_of("._"));
      if (std::find(prefixes.begin(), prefixes.end(), start) != prefixes.end()) {
        files.push_back(entry.path().string());
      }
    }
  }
  if (files.empty()) {
    for (std::string const& name : picturesIn(root)) {
      files.push_back((root / name).string());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string targetFileOf(std::string const& folder) {
  fs::path const given = fs::path(folder) / "";
  std::vector<fs::path> places = {given, given / "calib"};
  if (given.parent_path().filename() == "calib") {
    places.push_back(given / "..");
  }
  for (fs::path const& place : places) {
    fs::path const file = (place / "target.json").lexically_normal();
    if (fs::is_regular_file(file)) {
      return file.string();
    }
  }
  return "";
}

mv::CameraCalibration calibrateCamera(std::string const& folder, mv::CalibrationSettings const& settings,
                                      Observer* observer) {
  fs::path const root = viewFolder(folder);
  std::vector<std::string> const poses = posesIn(root);
  std::vector<std::string> const pictures = picturesIn(root);
  if (poses.empty() && pictures.empty()) {
    throw Exception("There are neither folders pose_00, pose_01, ... nor pictures in " + root.string(),
                    nullptr, 0, "calibrate");
  }
  return calibrate<mv::CameraView>(
      root, poses.empty() ? pictures : poses,
      [&](fs::path const& path) {
        return mv::CameraView{"", readTarget(poses.empty() ? path : path / "target.png", settings)};
      },
      [&](auto const& names, auto const& view) {
        return mv::calibrateCamera(names, view, settings, observer);
      });
}

std::string viewPath(std::string const& folder, std::string const& view) {
  return (viewFolder(folder) / view).string();
}

std::string patternSetFileOf(std::string const& folder) {
  fs::path const root = viewFolder(folder);
  for (std::string const& pose : posesIn(root)) {
    std::string const own = patternSetPath((root / pose).string());
    if (fs::exists(own)) {
      return own;
    }
  }
  std::string const shared = patternSetPath(root.string());
  return fs::exists(shared) ? shared : "";
}

std::vector<std::string> patternViewFiles(std::string const& folder) {
  fs::path const root = viewFolder(folder);
  std::vector<std::string> files{patternSetPath(root.string())};
  for (std::string const& name : posesIn(root)) {
    fs::path const pose = root / name;
    files.push_back(patternSetPath(pose.string()));
    files.push_back((pose / "target.png").string());
    try {
      PatternFolder const captured = describedView(pose);
      files.insert(files.end(), captured.paths.begin(), captured.paths.end());
    } catch (Exception const&) { // calibration says of this view why it does not serve
    }
  }
  files.erase(std::remove_if(files.begin(), files.end(), [](auto const& file) { return !fs::exists(file); }),
              files.end());
  return files;
}

mv::ScannerCalibration calibrateScanner(std::string const& folder, mv::CalibrationSettings const& settings,
                                        Observer* observer) {
  std::string const description = patternSetFileOf(folder);
  if (!description.empty()) {
    return calibrateByPatterns(folder, description, settings, observer);
  }
  return calibrate<mv::ScannerView>(
      folder,
      [&](fs::path const& pose) {
        return mv::ScannerView{"", readTarget(pose / "target.png", settings), readNeeded(pose, "columns"),
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
      [&](fs::path const& pose) {
        return mv::StereoView{
            "", {readTarget(pose / "target.png", settings), readTarget(pose / "target_1.png", settings)}};
      },
      [&](auto const& names, auto const& view) {
        return mv::calibrateStereo(names, view, settings, observer);
      });
}

std::string secondCameraFolder(std::string const& folder) {
  fs::path const given = (fs::path(folder) / "").parent_path();
  fs::path const place = given.filename() == "calib" ? given.parent_path() / "second" : given / "second";
  if (!fs::is_directory(place)) {
    throw Exception("There is no folder " + place.string() + " with what the second camera saw", nullptr, 0,
                    "calibrate");
  }
  return place.string();
}

mv::RigCalibration calibrateRig(std::string const& folder, mv::CalibrationSettings const& settings,
                                Observer* observer) {
  std::vector<fs::path> const roots = {viewFolder(folder), viewFolder(secondCameraFolder(folder))};
  std::vector<std::string> names;
  for (fs::path const& root : roots) {
    if (!patternSetFileOf(root.string()).empty()) {
      throw Exception("Views of described pattern sets are not calibrated as a rig: " + root.string(),
                      nullptr, 0, "calibrate");
    }
    std::vector<std::string> const poses = posesIn(root);
    names.insert(names.end(), poses.begin(), poses.end());
  }
  std::sort(names.begin(), names.end(), comesBefore);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  if (names.empty()) {
    throw Exception("There are no folders pose_00, pose_01, ... in " + roots[0].string(), nullptr, 0,
                    "calibrate");
  }
  return mv::calibrateRig(
      names,
      [&](std::size_t view, std::size_t camera) {
        fs::path const pose = roots[camera] / names[view];
        try {
          return mv::ScannerView{names[view], readTarget(pose / "target.png", settings),
                                 readNeeded(pose, "columns"), readNeeded(pose, "rows")};
        } catch (Exception const& e) {
          throw Exception(withoutPath(e.message(), pose), nullptr, 0, "calibrate");
        }
      },
      settings, observer);
}

mv::LaserCalibration calibrateLaser(std::string const& folder, mv::CalibrationSettings const& settings,
                                    Observer* observer) {
  return calibrate<mv::LaserView>(
      folder,
      [&](fs::path const& pose) {
        return mv::LaserView{"", readTarget(pose / "target.png", settings),
                             readNeeded(pose, "line", readImage)};
      },
      [&](auto const& names, auto const& view) {
        return mv::calibrateLaser(names, view, settings, observer);
      });
}

} // namespace vorn::tools
