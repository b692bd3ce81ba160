// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/cloud_input.hpp"

#include <algorithm>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/output_path.hpp"
#include "tools/report/warning.hpp"

namespace vorn::tools {

namespace {

/// Says so when the points' colours are translucent, which a cloud's are not.
void warnOfAlpha(std::string const& path, graphic::GraphicObject const& object) {
  auto const translucent = std::count_if(object.colors().begin(), object.colors().end(),
                                         [](cv::Vec4b const& color) { return color[3] != 255; });
  if (translucent > 0) {
    warn("the transparency (alpha) of " + std::to_string(translucent) + " points of " + path +
         " is lost: a cloud's colours have none");
  }
}

mv::PointCloud gridOf(std::string const& path) {
  cv::Mat const image = readImage(path);
  if (image.type() != CV_32FC3) {
    throw Exception(path + " is no image of points: it needs three channels of 32-bit floats", nullptr, 0,
                    "cloud");
  }
  mv::PointCloud cloud(cv::Mat_<cv::Vec3f>(image), true);
  for (int row = 0; row < image.rows; ++row) {
    for (int column = 0; column < image.cols; ++column) {
      if (!cv::checkRange(cv::Mat(std::as_const(cloud).points()(row, column)))) {
        cloud.state()(row, column) = 255;
      }
    }
  }
  cloud.calcBoundingBox();
  return cloud;
}

} // namespace

CloudInput readCloudInput(std::string const& path) {
  if (isTiff(path)) {
    return {gridOf(path), {}};
  }
  graphic::GraphicObject object = readGraphic(path);
  warnOfAlpha(path, object);
  mv::PointCloud cloud = mv::PointCloud::fromVertices(object);
  return {std::move(cloud), std::move(object)};
}

} // namespace vorn::tools
