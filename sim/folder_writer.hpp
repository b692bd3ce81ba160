// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core/mat.hpp>
#include <string>
#include <vector>

namespace vorn::sim {

/// Writes files into one folder, each complete or not at all. Makes the folder.
class FolderWriter {
public:
  explicit FolderWriter(std::string const& folder);

  /// A folder inside this one.
  FolderWriter inside(std::string const& name) const;

  /// An image; the name's ending picks the format.
  void image(std::string const& name, cv::Mat const& image) const;

  /// Images stem_00.png, stem_01.png, ...
  void images(std::string const& stem, std::vector<cv::Mat> const& images) const;

  void json(std::string const& name, nlohmann::json const& document) const;

private:
  std::string folder_;
};

/// "stem_07" for 7; numbers of three digits and more are written in full.
std::string numbered(std::string const& stem, int number);

/// Writes a document to a file whose folder exists.
void writeJson(std::string const& path, nlohmann::json const& document);

} // namespace vorn::sim
