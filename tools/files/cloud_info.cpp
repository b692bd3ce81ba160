// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/cloud_info.hpp"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/mv/pointcloud/octree.hpp>

namespace vorn::tools {

namespace {

std::vector<cv::Point3f> finitePoints(std::vector<cv::Vec3f> const& points) {
  std::vector<cv::Point3f> finite;
  finite.reserve(points.size());
  for (cv::Vec3f const& p : points) {
    if (std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2])) {
      finite.emplace_back(p);
    }
  }
  return finite;
}

nlohmann::json printBox(std::vector<cv::Point3f> const& points) {
  cv::Vec3f low = points.front();
  cv::Vec3f high = low;
  for (cv::Vec3f const p : points) {
    for (int i = 0; i < 3; ++i) {
      low[i] = std::min(low[i], p[i]);
      high[i] = std::max(high[i], p[i]);
    }
  }
  std::cout << "Box from " << low << " to " << high << ", size " << high - low << '\n';
  cv::Vec3f const size = high - low;
  return {{"origin", {low[0], low[1], low[2]}}, {"size", {size[0], size[1], size[2]}}};
}

/// The median distance of a point to the nearest other one, over points from all parts of the list.
float usualSpacing(std::vector<cv::Point3f> const& points) {
  constexpr std::size_t mostSamples = 10000;
  std::size_t const stride = (points.size() + mostSamples - 1) / mostSamples;
  mv::ListOctree tree;
  tree.init(points);
  std::vector<unsigned> indices;
  std::vector<float> squares;
  std::vector<float> nearest;
  for (std::size_t i = 0; i < points.size(); i += stride) {
    // The nearest of all is the point itself.
    tree.knnSearch<mv::Distance<cv::Point3f>::L2>(points[i], 2, indices, squares);
    nearest.push_back(squares.back());
  }
  auto const middle = nearest.begin() + static_cast<std::ptrdiff_t>(nearest.size() / 2);
  std::nth_element(nearest.begin(), middle, nearest.end());
  return std::sqrt(*middle);
}

/// Least, middle and greatest of the numbers among a field's values.
nlohmann::json printField(std::string const& name, std::vector<float> const& values) {
  std::vector<float> finite;
  std::copy_if(values.begin(), values.end(), std::back_inserter(finite),
               [](float value) { return std::isfinite(value); });
  std::cout << "Field " << name << ": ";
  nlohmann::json field = {{"name", name}, {"finiteValues", finite.size()}};
  if (finite.empty()) {
    std::cout << "no value is a finite number\n";
    return field;
  }
  auto const middle = finite.begin() + static_cast<std::ptrdiff_t>(finite.size() / 2);
  std::nth_element(finite.begin(), middle, finite.end());
  float const median = *middle;
  auto const [least, greatest] = std::minmax_element(finite.begin(), finite.end());
  std::cout << *least << " to " << *greatest << ", median " << median;
  if (finite.size() < values.size()) {
    std::cout << " (" << values.size() - finite.size() << " values are not finite)";
  }
  std::cout << '\n';
  field["min"] = *least;
  field["median"] = median;
  field["max"] = *greatest;
  return field;
}

} // namespace

nlohmann::json printCloudInfo(graphic::GraphicObject const& object) {
  std::vector<cv::Point3f> const finite = finitePoints(object.vertices());
  nlohmann::json info = {{"kind", "cloud"},
                         {"points", object.vertices().size()},
                         {"finitePoints", finite.size()},
                         {"triangles", object.triangles().size()},
                         {"hasNormals", object.hasNormals()},
                         {"hasColors", object.hasColors()}};
  std::cout << object.vertices().size() << " points";
  if (finite.size() < object.vertices().size()) {
    std::cout << " (" << object.vertices().size() - finite.size() << " of them not finite)";
  }
  std::cout << ", " << object.triangles().size() << " triangles; " << (object.hasNormals() ? "" : "no ")
            << "normals, " << (object.hasColors() ? "" : "no ") << "colours\n";
  if (!finite.empty()) {
    info["box"] = printBox(finite);
  }
  if (finite.size() > 1) {
    float const spacing = usualSpacing(finite);
    std::cout << "Usual spacing " << spacing << " (median distance to the nearest point)\n";
    info["spacing"] = spacing;
  }
  if (object.offset() != cv::Vec3d()) {
    std::ostringstream text;
    text << std::setprecision(std::numeric_limits<double>::max_digits10) << object.offset();
    std::cout << "Coordinates are relative to the offset " << text.str()
              << ": floats would lose their place far from zero\n";
    info["offset"] = {object.offset()[0], object.offset()[1], object.offset()[2]};
  }
  nlohmann::json fields = nlohmann::json::array();
  for (auto const& [name, values] : object.fields()) {
    fields.push_back(printField(name, values));
  }
  info["fields"] = fields;
  return info;
}

} // namespace vorn::tools
