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
#include "tools/files/named_images.hpp"
#include "tools/files/pattern_folder.hpp"
#include "tools/scan/sequence_count.hpp"

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
std::vector<std::string> posesIn(fs::path const& root, ViewNames const& names = {}) {
  return entriesOf(root, [&](fs::directory_entry const& entry) {
    return entry.is_directory() && matches(entry.path().filename().string(), names.poses);
  });
}

/// What there should be, for messages.
std::string posesText(ViewNames const& names) {
  return names.poses == ViewNames().poses ? "pose_00, pose_01, ..." : names.poses;
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
auto calibrate(std::string const& folder, ViewNames const& names, Read const& read, Job const& job) {
  fs::path const root = viewFolder(folder);
  std::vector<std::string> const poses = posesIn(root, names);
  if (poses.empty()) {
    throw Exception("There are no folders " + posesText(names) + " in " + root.string(), nullptr, 0,
                    "calibrate");
  }
  return calibrate<View>(root, poses, read, job);
}

/// A described target is searched in the picture as it is, the detector wants it grey.
cv::Mat readTarget(std::string const& path, mv::CalibrationSettings const& settings) {
  return settings.target ? readImage(path) : readMeasuredImage(path);
}

/// The target in a view's folder as one camera sees it.
cv::Mat readTarget(fs::path const& pose, ViewNames const& names, std::size_t camera,
                   mv::CalibrationSettings const& settings) {
  return readTarget(namedFile(pose.string(), names.targets.at(camera)), settings);
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

/// What a camera saw of the target and of the projector's sequences.
mv::ScannerView readScannerView(fs::path const& pose, ViewNames const& names,
                                mv::CalibrationSettings const& settings) {
  auto const sequence = [&](char const* prefix, std::vector<std::string> const& given) {
    std::vector<cv::Mat> images =
        given.empty() ? readNeeded(pose, prefix) : readNamedImages(namedFiles(pose.string(), given));
    requireImageCount(prefix, images.size(), settings.projector, "", "calibrate");
    return images;
  };
  return {"", readTarget(pose, names, 0, settings), sequence("columns", names.columns),
          sequence("rows", names.rows)};
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
  std::string const target = pictureOf(pose.string(), "target.png");
  if (!target.empty()) {
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
      folder, {}, [&](fs::path const& pose) { return readPatternView(pose, settings); },
      [&](auto const& names, auto const& view) {
        return scanner.calibrate(names, view, settings, observer);
      });
}

} // namespace

std::vector<std::string> calibrationPictures(std::string const& folder,
                                             std::vector<std::string> const& prefixes,
                                             ViewNames const& names) {
  fs::path const root = viewFolder(folder);
  std::vector<std::string> files;
  std::vector<std::string> given = names.targets;
  for (auto const* sequence : {&names.columns, &names.rows, &names.lines}) {
    given.insert(given.end(), sequence->begin(), sequence->end());
  }
  for (std::string const& name : posesIn(root, names)) {
    for (auto const& entry : fs::directory_iterator(root / name)) {
      std::string const file = entry.path().filename().string();
      std::string const start = file.substr(0, file.find_first_of("._"));
      if (std::find(prefixes.begin(), prefixes.end(), start) != prefixes.end()) {
        files.push_back(entry.path().string());
      } else if (std::any_of(given.begin(), given.end(), [&](auto const& g) { return matches(file, g); })) {
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
                                      Observer* observer, ViewNames const& names) {
  fs::path const root = viewFolder(folder);
  std::vector<std::string> const poses = posesIn(root, names);
  std::vector<std::string> const pictures = picturesIn(root);
  if (poses.empty() && pictures.empty()) {
    throw Exception("There are neither folders " + posesText(names) + " nor pictures in " + root.string(),
                    nullptr, 0, "calibrate");
  }
  return calibrate<mv::CameraView>(
      root, poses.empty() ? pictures : poses,
      [&](fs::path const& path) {
        return mv::CameraView{"", poses.empty() ? readTarget(path.string(), settings)
                                                : readTarget(path, names, 0, settings)};
      },
      [&](auto const& views, auto const& view) {
        return mv::calibrateCamera(views, view, settings, observer);
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
    try {
      files.push_back(pictureOf(pose.string(), "target.png"));
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
                                        Observer* observer, ViewNames const& names) {
  std::string const description = patternSetFileOf(folder);
  if (!description.empty()) {
    return calibrateByPatterns(folder, description, settings, observer);
  }
  return calibrate<mv::ScannerView>(
      folder, names, [&](fs::path const& pose) { return readScannerView(pose, names, settings); },
      [&](auto const& views, auto const& view) {
        return mv::calibrateScanner(views, view, settings, observer);
      });
}

mv::StereoCalibration calibrateStereo(std::string const& folder, mv::CalibrationSettings const& settings,
                                      Observer* observer, ViewNames const& names) {
  return calibrate<mv::StereoView>(
      folder, names,
      [&](fs::path const& pose) {
        return mv::StereoView{"",
                              {readTarget(pose, names, 0, settings), readTarget(pose, names, 1, settings)}};
      },
      [&](auto const& views, auto const& view) {
        return mv::calibrateStereo(views, view, settings, observer);
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
                                Observer* observer, ViewNames const& names) {
  std::vector<fs::path> const roots = {viewFolder(folder), viewFolder(secondCameraFolder(folder))};
  std::vector<std::string> views;
  for (fs::path const& root : roots) {
    if (!patternSetFileOf(root.string()).empty()) {
      throw Exception("Views of described pattern sets are not calibrated as a rig: " + root.string(),
                      nullptr, 0, "calibrate");
    }
    std::vector<std::string> const poses = posesIn(root, names);
    views.insert(views.end(), poses.begin(), poses.end());
  }
  std::sort(views.begin(), views.end(), comesBefore);
  views.erase(std::unique(views.begin(), views.end()), views.end());
  if (views.empty()) {
    throw Exception("There are no folders " + posesText(names) + " in " + roots[0].string(), nullptr, 0,
                    "calibrate");
  }
  return mv::calibrateRig(
      views,
      [&](std::size_t view, std::size_t camera) {
        fs::path const pose = roots[camera] / views[view];
        try {
          return readScannerView(pose, names, settings);
        } catch (Exception const& e) {
          throw Exception(withoutPath(e.message(), pose), nullptr, 0, "calibrate");
        }
      },
      settings, observer);
}

mv::LaserCalibration calibrateLaser(std::string const& folder, mv::CalibrationSettings const& settings,
                                    Observer* observer, ViewNames const& names) {
  return calibrate<mv::LaserView>(
      folder, names,
      [&](fs::path const& pose) {
        return mv::LaserView{"", readTarget(pose, names, 0, settings),
                             names.lines.empty() ? readNeeded(pose, "line", readImage)
                                                 : readNamedLines(pose.string(), names.lines)};
      },
      [&](auto const& views, auto const& view) {
        return mv::calibrateLaser(views, view, settings, observer);
      });
}

} // namespace vorn::tools
