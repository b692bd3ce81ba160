// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/image_files.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include <opencv2/imgcodecs.hpp>

#include <vorn/core/atomic_file.hpp>
#include <vorn/core/exception.hpp>

#include "tools/commands/size_option.hpp"
#include "tools/files/output_path.hpp"
#include "tools/progress.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

Exception failure(std::string const& message) {
  return {message, nullptr, 0, "images"};
}

std::vector<unsigned char> readBytes(std::string const& path) {
  if (fs::is_directory(path)) {
    throw failure("Cannot open " + path + ": it is a folder");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw failure("Cannot open " + path + ": " + std::strerror(errno));
  }
  std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) {
    throw failure("Cannot read " + path);
  }
  return bytes;
}

/// Whether a JPEG file breaks off: its reader fills what is missing with grey and says nothing. In the coded
/// picture, which the first scan (FF DA) begins, FF D9 stands for nothing but the end.
bool isCutJpeg(std::vector<unsigned char> const& bytes) {
  constexpr unsigned char marker = 0xFF;
  constexpr unsigned char startOfImage = 0xD8;
  constexpr unsigned char startOfScan = 0xDA;
  constexpr unsigned char endOfImage = 0xD9;
  if (bytes.size() < 4 || bytes[0] != marker || bytes[1] != startOfImage) {
    return false;
  }
  std::size_t at = 2;
  while (at + 4 <= bytes.size() && bytes[at] == marker && bytes[at + 1] != startOfScan) {
    // A fill byte stands alone, a segment says its length.
    at += bytes[at + 1] == marker ? 1U : 2U + 256U * bytes[at + 2] + bytes[at + 3];
  }
  std::vector<unsigned char> const end{marker, endOfImage};
  return at >= bytes.size() || std::search(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(),
                                           end.begin(), end.end()) == bytes.end();
}

cv::Mat decoded(std::string const& path, int flags) {
  std::vector<unsigned char> const bytes = readBytes(path);
  if (isCutJpeg(bytes)) {
    throw failure(path + " is incomplete: the end of the picture is missing");
  }
  cv::Mat image = bytes.empty() ? cv::Mat() : cv::imdecode(bytes, flags);
  if (image.empty()) {
    throw failure(path + " is not a picture that can be read");
  }
  return image;
}

/// The number in PREFIX_NN.EXT, when `name` is such a name.
std::optional<int> sequenceNumber(fs::path const& name, std::string const& prefix) {
  std::string const stem = name.stem().string();
  std::string const start = prefix + "_";
  constexpr std::size_t mostDigits = 6;
  if (!hasPictureEnding(name) || stem.rfind(start, 0) != 0 || stem.size() == start.size() ||
      stem.size() > start.size() + mostDigits ||
      !std::all_of(stem.begin() + static_cast<std::ptrdiff_t>(start.size()), stem.end(),
                   [](unsigned char c) { return std::isdigit(c) != 0; })) {
    return std::nullopt;
  }
  return std::stoi(stem.substr(start.size()));
}

} // namespace

bool hasPictureEnding(std::filesystem::path const& path) {
  static std::vector<std::string> const endings{".png", ".bmp", ".tif", ".tiff", ".jpg", ".jpeg", ".pgm"};
  return std::find(endings.begin(), endings.end(), lowerCaseEnding(path)) != endings.end();
}

cv::Mat readGrayImage(std::string const& path) {
  return decoded(path, cv::IMREAD_GRAYSCALE);
}

cv::Mat readLaserImage(std::string const& path) {
  return decoded(path, cv::IMREAD_ANYCOLOR);
}

cv::Mat readImage(std::string const& path) {
  return decoded(path, cv::IMREAD_ANYCOLOR | cv::IMREAD_ANYDEPTH);
}

std::string encodedImage(std::string const& path, cv::Mat const& image, Packing packing) {
  std::string const extension = fs::path(path).extension().string();
  std::vector<unsigned char> bytes;
  bool encoded = false;
  // The default for floating-point TIFF is a lossy encoding of luminance.
  constexpr int lzw = 5;
  std::vector<int> parameters{cv::IMWRITE_TIFF_COMPRESSION, lzw};
  if (packing == Packing::Small) {
    constexpr int most = 9;
    parameters.insert(parameters.end(), {cv::IMWRITE_PNG_COMPRESSION, most, cv::IMWRITE_PNG_STRATEGY,
                                         cv::IMWRITE_PNG_STRATEGY_DEFAULT});
  }
  try {
    encoded = !extension.empty() && cv::imencode(extension, image, bytes, parameters);
  } catch (cv::Exception const&) {
    encoded = false;
  }
  if (!encoded) {
    throw failure("Cannot write " + path + ": no picture format for the ending \"" + extension + "\"");
  }
  return {bytes.begin(), bytes.end()};
}

void checkPicturePath(std::string const& path) {
  if (!path.empty()) {
    encodedImage(path, cv::Mat::zeros(1, 1, CV_8UC3));
  }
}

void writeImage(std::string const& path, cv::Mat const& image) {
  std::string const bytes = encodedImage(path, image);
  AtomicFile file(path);
  file.write(bytes);
  file.commit();
}

void makeFolder(std::string const& path) {
  std::error_code reason;
  fs::create_directories(path, reason);
  if (reason) {
    throw failure("Cannot make the folder " + path + ": " + reason.message());
  }
}

std::vector<NumberedFile> findSequence(std::string const& folder, std::string const& prefix) {
  if (!fs::is_directory(folder)) {
    throw failure("There is no folder " + folder);
  }
  std::vector<NumberedFile> files;
  for (auto const& entry : fs::directory_iterator(folder)) {
    if (auto const number = sequenceNumber(entry.path().filename(), prefix)) {
      files.push_back({*number, entry.path().string()});
    }
  }
  std::sort(files.begin(), files.end(), [](NumberedFile const& a, NumberedFile const& b) {
    return a.number != b.number ? a.number < b.number : a.path < b.path;
  });
  for (std::size_t i = 0; i < files.size(); ++i) {
    int const expected = static_cast<int>(i);
    if (files[i].number > expected) {
      throw failure("The sequence in " + folder + " has a gap: " + sequencePath("", prefix, expected) +
                    " is missing");
    }
    if (files[i].number < expected) {
      throw failure(files[i - 1].path + " and " + files[i].path + " have the same number");
    }
  }
  return files;
}

std::vector<cv::Mat> readSequence(std::string const& folder, std::string const& prefix,
                                  cv::Mat (*read)(std::string const&), Observer* observer) {
  std::vector<NumberedFile> const files = findSequence(folder, prefix);
  std::vector<cv::Mat> images;
  for (NumberedFile const& file : files) {
    tell(observer, "reading " + prefix, images.size(), files.size());
    images.push_back(read(file.path));
    if (images.back().size() != images.front().size()) {
      throw failure(file.path + " is " + sizeText(images.back().size()) + ", but " + files.front().path +
                    " is " + sizeText(images.front().size()));
    }
  }
  return images;
}

std::string sequencePath(std::string const& folder, std::string const& prefix, int number) {
  char name[16];
  std::snprintf(name, sizeof name, "_%02d.png", number);
  return (fs::path(folder) / (prefix + name)).string();
}

} // namespace vorn::tools
