// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/scan/row_guides.hpp"

#include <cmath>
#include <cstddef>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

namespace vorn::mv::sl {

namespace {

/// Leads from a camera ray to the projector's row in one column.
///
/// The plane of light through the column's first and last point contains the directions e1, half way between
/// the two, and e2, at a right angle to it. The ray c meets the plane m.X = 1 in X = c / (m.c), and from the
/// projector's centre T that point is seen at the angle atan((X - T).e2 / (X - T).e1) from e1, of which both
/// sides are linear in c: (X - T).e = c.(e - (T.e) m) / (m.c) = c.G / (m.c).
struct RowGuide {
  cv::Vec4f along;  ///< G of e1, and rows a radian
  cv::Vec4f across; ///< G of e2, and 0
};

RowGuide rowGuide(TriangulationSetup const& setup, int column) {
  auto const direction = [&](int row) {
    cv::Vec2f const at = setup.projectorMap(row, column);
    return cv::normalize(cv::Vec3d(static_cast<double>(at[0]), static_cast<double>(at[1]), 1));
  };
  int const lastRow = setup.projectorMap.rows - 1;
  cv::Vec3d const first = direction(0);
  cv::Vec3d const last = direction(lastRow);
  cv::Matx33d const rotation = math::getR3(setup.camFromProj);
  cv::Vec3d const centre = math::getT3(setup.camFromProj);
  cv::Vec3d const normal = (rotation * first).cross(rotation * last);
  cv::Vec3d const plane = normal / normal.dot(centre);
  auto const guide = [&](cv::Vec3d const& e, double fourth) {
    cv::Vec3d const inCamera = rotation * e;
    cv::Vec3d const g = inCamera - centre.dot(inCamera) * plane;
    return cv::Vec4f(cv::Vec4d(g[0], g[1], g[2], fourth));
  };
  double const angle = 2 * std::atan2(cv::norm(last - first), cv::norm(last + first));
  return {guide(cv::normalize(first + last), lastRow / angle), guide(cv::normalize(last - first), 0)};
}

} // namespace

Step stepOf(cv::Vec4f const& at, cv::Vec4f const& next) {
  Step step{};
  for (int i = 0; i < 4; ++i) {
    step.at[i] = at[i];
    step.step[i] = next[i] - at[i];
  }
  return step;
}

std::vector<Step> rowGuides(TriangulationSetup const& setup) {
  int const width = setup.projectorMap.cols;
  std::vector<Step> steps;
  steps.reserve(2 * static_cast<std::size_t>(width));
  RowGuide guide = rowGuide(setup, 0);
  for (int column = 0; column + 1 < width; ++column) {
    RowGuide const next = rowGuide(setup, column + 1);
    steps.push_back(stepOf(guide.along, next.along));
    steps.push_back(stepOf(guide.across, next.across));
    guide = next;
  }
  return steps;
}

} // namespace vorn::mv::sl
