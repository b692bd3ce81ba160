// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/svg_raster.hpp"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "support/temporary_folder.hpp"

namespace vorn::test {

cv::Mat rasterized(std::string const& svg) {
  TemporaryFolder const folder;
  std::string const source = (folder.path() / "drawing.svg").string();
  std::string const target = (folder.path() / "drawing.png").string();
  std::ofstream(source) << svg;
  std::string const command = "rsvg-convert --unlimited '" + source + "' -o '" + target + "'";
  if (std::system(command.c_str()) != 0) {
    ADD_FAILURE() << "rsvg-convert, of the package librsvg2-bin, did not draw the document";
    return {};
  }
  return cv::imread(target, cv::IMREAD_COLOR);
}

} // namespace vorn::test
