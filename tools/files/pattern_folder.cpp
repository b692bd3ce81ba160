// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/pattern_folder.hpp"

#include <filesystem>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>

#include "tools/files/file_list.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/progress.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

/// The names in a folder that a pattern stands for, in the order of their numbers.
nlohmann::json namesOf(fs::path const& folder, std::string const& pattern) {
  nlohmann::json names = nlohmann::json::array();
  for (std::string const& path : expandFiles({(folder / pattern).string()})) {
    names.push_back(fs::path(path).lexically_relative(folder).string());
  }
  return names;
}

} // namespace

std::string patternSetPath(std::string const& folder) {
  return (fs::path(folder) / "pattern_set.json").string();
}

PatternFolder readPatternFolder(std::string const& folder, std::string const& description) {
  PatternFolder found;
  found.description = description.empty() ? patternSetPath(folder) : description;
  checkInputFile(found.description);
  nlohmann::json json = readJsonFile(found.description);
  if (json.is_object() && json.contains("images") && json["images"].is_array()) {
    for (nlohmann::json& entry : json["images"]) {
      if (entry.is_object() && entry.contains("files") && entry["files"].is_string()) {
        entry["files"] = namesOf(folder, entry["files"].get<std::string>());
      }
    }
  }
  try {
    found.set.read(json);
  } catch (Exception const& e) {
    throw Exception(found.description + ": " + e.message(), nullptr, 0, e.file().c_str());
  }
  for (mv::PatternImage const& image : found.set.images) {
    if (image.file.empty()) {
      throw Exception(found.description + " names no files: \"file\" of each image, or \"files\"", nullptr, 0,
                      "decode");
    }
    found.paths.push_back((fs::path(folder) / image.file).string());
  }
  return found;
}

std::vector<cv::Mat> readPatternImages(PatternFolder const& folder, Observer* observer) {
  std::vector<cv::Mat> images;
  for (std::size_t i = 0; i < folder.paths.size(); ++i) {
    tell(observer, "reading", i, folder.paths.size());
    cv::Mat image = readImage(folder.paths[i]);
    if (image.channels() == 3) {
      cv::cvtColor(image, image, cv::COLOR_BGR2GRAY);
    }
    images.push_back(image);
  }
  return images;
}

} // namespace vorn::tools
