// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/named_images.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <filesystem>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <vorn/core/exception.hpp>

#include "tools/files/file_list.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/files/silence.hpp"
#include "tools/files/tiff_bytes.hpp"
#include "tools/progress.hpp"

namespace vorn::tools {

namespace {

Exception failure(std::string const& message) {
  return {message, nullptr, 0, "images"};
}

/// The pages of a TIFF file; one or none for others.
std::vector<cv::Mat> pagesOf(std::string const& path) {
  std::vector<cv::Mat> pages;
  Silence const silence;
  try {
    cv::imreadmulti(path, pages, cv::IMREAD_ANYCOLOR | cv::IMREAD_ANYDEPTH);
  } catch (cv::Exception const&) {
    pages.clear();
  }
  return pages;
}

std::string kindText(cv::Mat const& image) {
  return cv::typeToString(image.type()) + " of " + std::to_string(image.cols) + " x " +
         std::to_string(image.rows);
}

} // namespace

std::vector<std::string> namedFiles(std::string const& folder, std::vector<std::string> const& names) {
  std::vector<std::string> paths;
  for (std::string const& name : names) {
    paths.push_back((std::filesystem::path(folder) / name).string());
  }
  return expandFiles(paths);
}

std::vector<cv::Mat> readNamedImages(std::vector<std::string> const& files, Observer* observer) {
  if (files.size() == 1 && isTiff(files[0])) {
    std::size_t const count = pageCount(readInputFile(files[0]));
    std::vector<cv::Mat> pages = pagesOf(files[0]);
    if (pages.size() < 2) {
      readMeasuredImage(files[0]); // which tells what is wrong with the file
    }
    if (pages.size() < count) {
      throw failure(files[0] + " is incomplete: of its " + std::to_string(count) + " pages only " +
                    std::to_string(pages.size()) + " can be read");
    }
    for (std::size_t i = 1; i < pages.size(); ++i) {
      if (pages[i].type() != pages[0].type() || pages[i].size() != pages[0].size()) {
        throw failure("Page " + std::to_string(i) + " of " + files[0] + " is " + kindText(pages[i]) +
                      ", the first one is " + kindText(pages[0]));
      }
    }
    return pages;
  }
  std::vector<cv::Mat> images;
  for (std::string const& file : files) {
    tell(observer, "reading images", images.size(), files.size());
    images.push_back(readMeasuredImage(file));
    if (images.back().type() != images[0].type() || images.back().size() != images[0].size()) {
      throw failure(file + " is " + kindText(images.back()) + ", but " + files[0] + " is " +
                    kindText(images[0]));
    }
  }
  return images;
}

bool isLikeMosaic(cv::Mat const& image) {
  if (image.channels() != 1 || image.rows < 16 || image.cols < 16) {
    return false;
  }
  std::array<double, 4> means{};
  cv::Mat wide;
  image.convertTo(wide, CV_32F);
  for (int y = 0; y < wide.rows / 2 * 2; ++y) {
    float const* const row = wide.ptr<float>(y);
    for (int x = 0; x < wide.cols / 2 * 2; ++x) {
      means[static_cast<std::size_t>(2 * (y % 2) + x % 2)] += static_cast<double>(row[x]);
    }
  }
  double const mean = (means[0] + means[1] + means[2] + means[3]) / 4;
  // Lines of two pixels' period, which fringes may make, are alike along columns or rows, not along
  // diagonals.
  auto const differ = [&](double a, double b) { return std::abs(a - b) / std::max(mean, 1e-9); };
  constexpr double alike = 0.02;
  constexpr double apart = 0.08;
  auto const isMosaic = [&](double green1, double green2, double other1, double other2) {
    double const green = (green1 + green2) / 2;
    return differ(green1, green2) < alike && differ(green, other1) > apart && differ(green, other2) > apart;
  };
  return isMosaic(means[0], means[3], means[1], means[2]) || isMosaic(means[1], means[2], means[0], means[3]);
}

} // namespace vorn::tools
