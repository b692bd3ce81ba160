// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/height_file.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {

namespace {

constexpr int highestValue = 65535;

struct Scale {
  double scale = 1.0;
  double offset = 0.0;
};

/// 1 .. 65535 for the heights from the least to the greatest.
Scale scaleOf(cv::Mat_<float> const& heights) {
  double least = std::numeric_limits<double>::max();
  double greatest = std::numeric_limits<double>::lowest();
  for (float const height : heights) {
    if (std::isfinite(height)) {
      least = std::min(least, static_cast<double>(height));
      greatest = std::max(greatest, static_cast<double>(height));
    }
  }
  double const scale = greatest > least ? (greatest - least) / (highestValue - 1) : 1.0;
  return {scale, least - scale};
}

cv::Mat valuesOf(cv::Mat_<float> const& heights, Scale const& scale) {
  cv::Mat_<ushort> values(heights.size());
  std::transform(heights.begin(), heights.end(), values.begin(), [&](float height) {
    return std::isfinite(height)
               ? cv::saturate_cast<ushort>(
                     std::max(1L, std::lround((static_cast<double>(height) - scale.offset) / scale.scale)))
               : ushort{0};
  });
  return values;
}

Exception refusal(std::string const& path, std::string const& reason) {
  return {path + ": " + reason, nullptr, 0, "height"};
}

cv::Mat_<float> heightsOf(cv::Mat const& values, Scale const& scale) {
  cv::Mat_<float> heights(values.size());
  cv::Mat_<ushort> const whole = values;
  std::transform(whole.begin(), whole.end(), heights.begin(), [&](ushort value) {
    return value == 0 ? std::numeric_limits<float>::quiet_NaN()
                      : static_cast<float>(scale.offset + scale.scale * value);
  });
  return heights;
}

} // namespace

std::string heightJsonPath(std::string const& path) {
  return std::filesystem::path(path).replace_extension(".json").string();
}

std::vector<FileContent> heightFiles(std::string const& path, mv::HeightMap const& map, HeightDepth depth) {
  if (!isTiff(path)) {
    throw refusal(path, "a height map is written as .tiff");
  }
  bool const isWhole = depth == HeightDepth::Bits16;
  Scale const scale = isWhole ? scaleOf(map.heights) : Scale();
  nlohmann::json rows = nlohmann::json::array();
  for (int i = 0; i < 4; ++i) {
    cv::Matx14d const row = map.mapFromCloud.row(i);
    rows.push_back({row(0), row(1), row(2), row(3)});
  }
  nlohmann::json const json = {
      {"cellSize", map.cellSize}, {"mapFromCloud", rows}, {"scale", scale.scale}, {"offset", scale.offset}};
  return {{path, encodedImage(path, isWhole ? valuesOf(map.heights, scale) : cv::Mat(map.heights))},
          {heightJsonPath(path), jsonText(json)}};
}

mv::HeightMap readHeightMap(std::string const& path) {
  cv::Mat const values = readImage(path);
  if (values.type() != CV_32FC1 && values.type() != CV_16UC1) {
    throw refusal(path, "no height map: it needs one channel of 32-bit floats or of 16 bits");
  }
  std::string const jsonPath = heightJsonPath(path);
  nlohmann::json const json = readJsonFile(jsonPath);
  mv::HeightMap map;
  Scale scale;
  try {
    map.cellSize = json.at("cellSize").get<double>();
    scale = {json.at("scale").get<double>(), json.at("offset").get<double>()};
    for (int i = 0; i < 4; ++i) {
      for (int j = 0; j < 4; ++j) {
        map.mapFromCloud(i, j) = json.at("mapFromCloud")
                                     .at(static_cast<std::size_t>(i))
                                     .at(static_cast<std::size_t>(j))
                                     .get<double>();
      }
    }
  } catch (nlohmann::json::exception const& e) {
    throw refusal(jsonPath, e.what());
  }
  constexpr double leastDeterminant = 0.5; // 1 for a rigid motion
  if (!(map.cellSize > 0.0) || !(scale.scale > 0.0) || !std::isfinite(scale.offset) ||
      !(cv::determinant(map.mapFromCloud) > leastDeterminant)) {
    throw refusal(jsonPath, "needs a cellSize and a scale above 0 and a rigid mapFromCloud");
  }
  map.heights = values.depth() == CV_32F ? cv::Mat_<float>(values) : heightsOf(values, scale);
  map.counts = cv::Mat_<int>(map.heights.size());
  std::transform(map.heights.begin(), map.heights.end(), map.counts.begin(),
                 [](float height) { return std::isfinite(height) ? 1 : 0; });
  map.coverage = static_cast<double>(cv::countNonZero(map.counts)) / static_cast<double>(map.counts.total());
  return map;
}

} // namespace vorn::tools
