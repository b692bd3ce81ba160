// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/view_names.hpp"

#include <filesystem>
#include <system_error>

#include <vorn/core/exception.hpp>

#include "tools/files/image_files.hpp"
#include "tools/files/named_images.hpp"
#include "tools/files/output_path.hpp"

namespace vorn::tools {

std::string pictureOf(std::string const& folder, std::string const& name) {
  namespace fs = std::filesystem;
  fs::path const exact = fs::path(folder) / name;
  std::error_code unreadable;
  if (fs::exists(exact, unreadable)) {
    return exact.string();
  }
  std::vector<std::string> others;
  for (auto const& entry : fs::directory_iterator(exact.parent_path(), unreadable)) {
    if (entry.path().stem() == exact.stem() && hasPictureEnding(entry.path())) {
      others.push_back(entry.path().string());
    }
  }
  if (others.size() > 1) {
    throw Exception("There is no " + name + " in " + folder + ", and more than one picture of its name",
                    nullptr, 0, "images");
  }
  return others.empty() ? "" : others[0];
}

std::string namedFile(std::string const& folder, std::string const& name) {
  std::string const picture = pictureOf(folder, name);
  if (!picture.empty()) {
    return picture;
  }
  std::vector<std::string> const files = namedFiles(folder, {name});
  if (files.size() != 1) {
    throw Exception(name + " stands for " + std::to_string(files.size()) + " files in " + folder +
                        ", and one is wanted",
                    nullptr, 0, "images");
  }
  if (!std::filesystem::exists(files[0])) {
    throw Exception("There is no " + name + " in " + folder + ": --target-image names another picture",
                    nullptr, 0, "images");
  }
  return files[0];
}

std::vector<cv::Mat> readNamedLines(std::string const& folder, std::vector<std::string> const& names) {
  std::vector<std::string> const files = namedFiles(folder, names);
  if (files.size() == 1 && isTiff(files[0])) {
    return readNamedImages(files);
  }
  std::vector<cv::Mat> images;
  for (std::string const& file : files) {
    images.push_back(readImage(file));
  }
  return images;
}

} // namespace vorn::tools
