// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/size_option.hpp"

#include <cmath>
#include <sstream>

#include <vorn/core/exception.hpp>

namespace vorn::tools {

cv::Size2d parseSize(std::string const& text, std::string const& option) {
  std::istringstream stream(text);
  cv::Size2d size;
  char times = 0;
  if (!(stream >> size.width >> times >> size.height) || (times != 'x' && times != 'X') || !stream.eof() ||
      !(size.width > 0) || !(size.height > 0)) {
    throw Exception("\"" + text + "\" is not a size like 640x400", nullptr, 0, option.c_str());
  }
  return size;
}

cv::Size parsePixels(std::string const& text, std::string const& option) {
  constexpr double mostPixels = 16384; // along either side
  cv::Size2d const size = parseSize(text, option);
  if (size.width > mostPixels || size.height > mostPixels || std::floor(size.width) != size.width ||
      std::floor(size.height) != size.height) {
    throw Exception("\"" + text + "\" is not a size in whole pixels, up to 16384 along a side", nullptr, 0,
                    option.c_str());
  }
  return size;
}

std::string sizeText(cv::Size const& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

} // namespace vorn::tools
