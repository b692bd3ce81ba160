// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/view_folder.hpp"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/files/transform_file.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

char const* const poseName = "commonFromView";

Exception refusal(std::string const& path, std::string const& reason) {
  return {path + ": " + reason, nullptr, 0, "fuse"};
}

std::vector<std::string> const& cloudEndings() {
  // A grid tells more than a list of the same points.
  static std::vector<std::string> const endings{".tiff", ".tif", ".ply", ".pcd", ".xyz", ".obj"};
  return endings;
}

/// A member of a view that may be left out; empty then.
std::string textOf(nlohmann::json const& view, char const* member, std::string const& path) {
  if (!view.contains(member)) {
    return "";
  }
  if (!view[member].is_string()) {
    throw refusal(path, std::string("\"") + member + "\" of a view is no text");
  }
  return view[member].get<std::string>();
}

bool isScanFolder(fs::path const& path) {
  return fs::is_directory(path) && !findSequence(path.string(), "columns").empty();
}

/// What a name stands for in a folder; none when nothing does.
std::optional<ViewEntry> entryOf(fs::path const& folder, std::string const& name, bool calibrated) {
  ViewEntry entry;
  entry.name = name;
  for (std::string const& ending : cloudEndings()) {
    fs::path const cloud = folder / (name + ending);
    if (fs::is_regular_file(cloud)) {
      entry.path = cloud.string();
      fs::path const pose = folder / (name + ".json");
      if (fs::exists(pose)) {
        entry.commonFromView = motionFrom(readJsonFile(pose.string()), poseName, pose.string());
        entry.hasPose = true;
      }
      return entry;
    }
  }
  if (calibrated && isScanFolder(folder / name)) {
    entry.path = (folder / name).string();
    entry.isScan = true;
    return entry;
  }
  return std::nullopt;
}

std::vector<ViewEntry> listedViews(fs::path const& folder, std::string const& list, bool calibrated) {
  std::vector<ViewEntry> views;
  for (ViewPose const& pose : readViewPoses(list)) {
    std::optional<ViewEntry> entry = entryOf(folder, pose.name, calibrated);
    if (!entry) {
      std::string const missing = isScanFolder(folder / pose.name)
                                      ? "is a folder of images, which need --calib"
                                      : "is neither a cloud nor a folder of images";
      throw refusal(list, "the view " + pose.name + " " + missing);
    }
    entry->commonFromView = pose.commonFromView;
    entry->hasPose = true;
    views.push_back(*std::move(entry));
  }
  return views;
}

} // namespace

std::vector<ViewPose> readViewPoses(std::string const& path) {
  nlohmann::json const json = readJsonFile(path);
  if (!json.contains("views") || !json["views"].is_array() || json["views"].empty()) {
    throw refusal(path, "\"views\" is no list of views");
  }
  std::vector<ViewPose> poses;
  for (nlohmann::json const& view : json["views"]) {
    if (!view.contains("name") || !view["name"].is_string()) {
      throw refusal(path, "a view has no \"name\"");
    }
    auto const name = view["name"].get<std::string>();
    poses.push_back({name, motionFrom(view, poseName, path + ": view " + name), textOf(view, "camera", path),
                     textOf(view, "image", path)});
  }
  return poses;
}

cv::Matx44d readViewPose(std::string const& path) {
  nlohmann::json const json = readJsonFile(path);
  return motionFrom(json, json.contains(poseName) ? poseName : "targetFromSource", path);
}

nlohmann::json viewPosesJson(std::vector<ViewPose> const& poses) {
  nlohmann::json views = nlohmann::json::array();
  for (ViewPose const& pose : poses) {
    nlohmann::json rows = nlohmann::json::array();
    for (int i = 0; i < 4; ++i) {
      cv::Matx14d const row = pose.commonFromView.row(i);
      rows.push_back({row(0), row(1), row(2), row(3)});
    }
    nlohmann::json view = {{"name", pose.name}, {poseName, rows}};
    if (!pose.camera.empty()) {
      view["camera"] = pose.camera;
    }
    if (!pose.image.empty()) {
      view["image"] = pose.image;
    }
    views.push_back(std::move(view));
  }
  return {{"views", views}};
}

std::string viewsPath(std::string const& folder) {
  return (fs::path(folder) / "views.json").string();
}

std::vector<ViewEntry> findViews(std::string const& folder, bool calibrated) {
  if (!fs::is_directory(folder)) {
    throw refusal(folder, "is no folder");
  }
  std::vector<ViewEntry> views;
  if (fs::exists(viewsPath(folder))) {
    views = listedViews(folder, viewsPath(folder), calibrated);
  } else {
    std::vector<std::string> names;
    for (auto const& entry : fs::directory_iterator(folder)) {
      fs::path const& path = entry.path();
      auto const& endings = cloudEndings();
      bool const isCloud =
          std::find(endings.begin(), endings.end(), lowerCaseEnding(path.string())) != endings.end();
      if (entry.is_directory() || isCloud) {
        names.push_back(entry.is_directory() ? path.filename().string() : path.stem().string());
      }
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    for (std::string const& name : names) {
      if (auto entry = entryOf(folder, name, calibrated)) {
        views.push_back(*std::move(entry));
      }
    }
  }
  if (views.empty()) {
    throw refusal(folder, "has no views: neither clouds nor, with --calib, folders of images");
  }
  return views;
}

} // namespace vorn::tools
