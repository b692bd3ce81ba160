// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/view_names.hpp"

#include <vorn/core/exception.hpp>

#include "tools/files/image_files.hpp"
#include "tools/files/named_images.hpp"
#include "tools/files/output_path.hpp"

namespace vorn::tools {

std::string namedFile(std::string const& folder, std::string const& name) {
  std::vector<std::string> const files = namedFiles(folder, {name});
  if (files.size() != 1) {
    throw Exception(name + " stands for " + std::to_string(files.size()) + " files in " + folder +
                        ", and one is wanted",
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
