// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/cloud_info.hpp"

#include <cmath>
#include <iostream>

#include <opencv2/core.hpp>

namespace vorn::tools {

namespace {

struct Box {
  cv::Vec3f low;
  cv::Vec3f high;
  std::size_t finite = 0;
};

Box finiteBox(std::vector<cv::Vec3f> const& points) {
  Box box;
  for (cv::Vec3f const& p : points) {
    if (!std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2])) {
      continue;
    }
    for (int i = 0; i < 3; ++i) {
      box.low[i] = box.finite == 0 ? p[i] : std::min(box.low[i], p[i]);
      box.high[i] = box.finite == 0 ? p[i] : std::max(box.high[i], p[i]);
    }
    ++box.finite;
  }
  return box;
}

} // namespace

void printCloudInfo(graphic::GraphicObject const& object) {
  Box const box = finiteBox(object.vertices());
  std::cout << object.vertices().size() << " points";
  if (box.finite < object.vertices().size()) {
    std::cout << " (" << object.vertices().size() - box.finite << " of them not finite)";
  }
  std::cout << ", " << object.triangles().size() << " triangles; " << (object.hasNormals() ? "" : "no ")
            << "normals, " << (object.hasColors() ? "" : "no ") << "colours\n";
  if (box.finite > 0) {
    std::cout << "Box from " << box.low << " to " << box.high << ", size " << box.high - box.low << '\n';
  }
}

} // namespace vorn::tools
