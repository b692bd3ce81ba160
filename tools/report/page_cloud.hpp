// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core/matx.hpp>

namespace vorn::tools {

/// A number that comes with each point, to colour by.
struct PageField {
  std::string name;          ///< such as "modulation"
  std::string unit;          ///< such as "grey levels"
  std::vector<float> values; ///< one a point; NaN where there is none
  bool isSigned = false;     ///< a deviation: nought has a colour of its own
  /// What the ends of the colours stand for; else where the bulk of the values lies.
  std::optional<std::pair<double, double>> range = std::nullopt;
};

/// Points, or a mesh, for the view of a page.
struct PageCloud {
  std::string name;
  std::vector<cv::Vec3f> points;    ///< mm; those that are not finite are left out and counted
  std::vector<cv::Vec3f> normals;   ///< one a point, of any length; or none
  std::vector<cv::Vec3b> colors;    ///< one a point: blue, green, red; or none
  std::vector<cv::Vec3i> triangles; ///< of points; or none
  std::vector<PageField> fields;
  bool isSurface = true; ///< drawn closed; else as single dots
  bool isShown = true;   ///< when the page opens
  std::string coloredBy; ///< the field that it is coloured by then; empty: z
};

/// A cloud as a page keeps it: with 16 bits a coordinate within blocks of near points, little-endian.
struct PackedCloud {
  nlohmann::json description; ///< what the bytes hold and how; see page/decode.js
  std::string bytes;
};

/// Packs a cloud. Points are put in an order that keeps neighbours together; where there are more than
/// `most`, every so manieth of it is taken, or for a mesh, one for each cell of a grid. The same cloud always
/// gives the same bytes. Coordinates are rounded by less than a twentieth of the distance between points,
/// which the description states.
/// @param most 1 or more
/// @throws Exception when the arrays do not fit the points, or a triangle names none
PackedCloud packed(PageCloud const& cloud, std::size_t most);

} // namespace vorn::tools
