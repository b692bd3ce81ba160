// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/stack_checks.hpp"

#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>

namespace vorn::mv {

namespace {

std::string describe(cv::Size size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height) + " pixels";
}

/// What makes `matrix` differ from a two-dimensional one of that type and size; empty when nothing does.
std::string mismatch(cv::Mat const& matrix, int type, cv::Size size) {
  if (matrix.empty() && !size.empty()) {
    return "is empty, not " + describe(size);
  }
  if (matrix.dims > 2) {
    return "has " + std::to_string(matrix.dims) + " dimensions, not 2";
  }
  if (matrix.type() != type) {
    return "is " + cv::typeToString(matrix.type()) + ", not " + cv::typeToString(type);
  }
  if (matrix.size() != size) {
    return "is " + describe(matrix.size()) + ", not " + describe(size);
  }
  return {};
}

} // namespace

void requireImageStack(std::vector<cv::Mat> const& images) {
  for (std::size_t i = 0; i < images.size(); ++i) {
    std::string const name = "Image " + std::to_string(i) + " of the stack ";
    if (images[i].empty()) {
      throw std::invalid_argument(name + "is empty");
    }
    // Image 0 sets the size and is only held against its own, where it has one.
    cv::Size const size = images[0].dims == 2 ? images[0].size() : cv::Size();
    std::string const reason = mismatch(images[i], CV_8UC1, size);
    if (!reason.empty()) {
      throw std::invalid_argument(name + reason);
    }
  }
}

void requireMap(cv::Mat const& map, char const* name, int type, cv::Size size) {
  std::string const reason = mismatch(map, type, size);
  if (!reason.empty()) {
    throw std::invalid_argument(std::string("The ") + name + " " + reason);
  }
}

void requireMask(cv::Mat const& mask, cv::Size size) {
  if (!mask.empty()) {
    requireMap(mask, "mask", CV_8UC1, size);
  }
}

bool mayOverlap(cv::Mat const& a, cv::Mat const& b) {
  return !a.empty() && !b.empty() && a.data < b.dataend && b.data < a.dataend;
}

} // namespace vorn::mv
