// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/folder_writer.hpp"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <stdexcept>

#include <vorn/core/atomic_file.hpp>

namespace vorn::sim {

FolderWriter::FolderWriter(std::string const& folder) : folder_(folder) {
  std::filesystem::create_directories(folder_);
}

FolderWriter FolderWriter::inside(std::string const& name) const {
  return FolderWriter(folder_ + "/" + name);
}

void FolderWriter::image(std::string const& name, cv::Mat const& image) const {
  std::string const path = folder_ + "/" + name;
  // OpenCV would store three float channels as LogLuv, which keeps neither negative values nor precision.
  constexpr int lzw = 5;
  std::string const format = std::filesystem::path(name).extension().string();
  std::vector<std::uint8_t> bytes;
  if (!cv::imencode(format, image, bytes, {cv::IMWRITE_TIFF_COMPRESSION, lzw})) {
    throw std::runtime_error("Cannot encode " + path);
  }
  AtomicFile file(path);
  file.write(bytes.data(), bytes.size());
  file.commit();
}

void FolderWriter::images(std::string const& stem, std::vector<cv::Mat> const& images) const {
  int number = 0;
  for (cv::Mat const& next : images) {
    image(numbered(stem, number++) + ".png", next);
  }
}

void FolderWriter::json(std::string const& name, nlohmann::json const& document) const {
  writeJson(folder_ + "/" + name, document);
}

std::string numbered(std::string const& stem, int number) {
  return stem + (number < 10 ? "_0" : "_") + std::to_string(number);
}

void writeJson(std::string const& path, nlohmann::json const& document) {
  AtomicFile file(path);
  file.write(document.dump(1) + "\n");
  file.commit();
}

} // namespace vorn::sim
