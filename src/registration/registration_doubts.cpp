// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/registration_doubts.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "core/median.hpp"
#include "pointcloud/smallest_axis.hpp"
#include "registration/seen_cloud.hpp"

namespace vorn::mv {

namespace {

constexpr double mostNoises = 4.0;
constexpr double mostConflict = 0.02;

/// The scatter of a grid's points along their normals, from their second differences over a few cells:
/// neighbours share noise where a cloud was smoothed.
double gridScatter(PointCloud const& cloud) {
  constexpr int lag = 4;
  constexpr double wanted = 20000.0;
  cv::Size const size = cloud.points().size();
  int const stride = std::max(1, static_cast<int>(std::sqrt(1.0 * size.area() / wanted)));
  std::vector<double> differences;
  auto const add = [&](int row, int column, int down, int right) {
    int const rows[] = {row - down, row, row + down};
    int const columns[] = {column - right, column, column + right};
    cv::Vec3d sum;
    for (int i = 0; i < 3; ++i) {
      if (rows[i] < 0 || columns[i] < 0 || rows[i] >= size.height || columns[i] >= size.width ||
          !isThere(cloud, rows[i], columns[i])) {
        return;
      }
      sum += cv::Vec3d(cloud.points()(rows[i], columns[i])) * (i == 1 ? -2.0 : 1.0);
    }
    differences.push_back(std::abs(sum.dot(cv::Vec3d(cloud.normals()(row, column)))));
  };
  for (int row = 0; row < size.height; row += stride) {
    for (int column = 0; column < size.width; column += stride) {
      add(row, column, 0, lag);
      add(row, column, lag, 0);
    }
  }
  constexpr double sigmaOverMedian = 1.4826;
  double const factors = std::sqrt(6.0); // of 1, -2, 1
  return differences.empty() ? 0.0 : sigmaOverMedian * medianAmong(differences) / factors;
}

/// The scatter of a list's points about the planes of their neighbours.
double listScatter(PointCloud& cloud) {
  constexpr std::size_t neighbours = 30;
  constexpr std::size_t samples = 400; // the median of their scatters is known to 1 %
  GridOctree const& tree = cloud.octree();
  cv::Mat_<cv::Vec3f> const& points = std::as_const(cloud).points();
  std::size_t const stride = std::max<std::size_t>(1, tree.chain().size() / samples);
  std::vector<double> scatters;
  std::vector<unsigned> found;
  std::vector<float> squares;
  auto const at = [&](unsigned index) {
    return cv::Vec3d(points(static_cast<int>(index) / points.cols, static_cast<int>(index) % points.cols));
  };
  for (std::size_t i = 0; i < tree.chain().size(); i += stride) {
    cv::Vec3d const middle = at(tree.chain()[i]);
    tree.knnSearch<Distance<cv::Vec3f>::L2>(cv::Vec3f(middle), neighbours, found, squares);
    cv::Vec3d sum;
    cv::Matx33d products = cv::Matx33d::zeros();
    for (unsigned const index : found) {
      cv::Vec3d const offset = at(index) - middle;
      sum += offset;
      products += offset * offset.t();
    }
    auto const count = static_cast<double>(found.size());
    products -= sum * sum.t() * (1.0 / count);
    double const upper[6] = {products(0, 0), products(0, 1), products(0, 2),
                             products(1, 1), products(1, 2), products(2, 2)};
    scatters.push_back(std::sqrt(std::max(0.0, smallestAxisOf(upper).scatter) / count));
  }
  return scatters.empty() ? 0.0 : medianAmong(scatters);
}

} // namespace

double scatterOf(PointCloud& cloud) {
  return cloud.isOrganized() && cloud.isContinous() ? gridScatter(cloud) : listScatter(cloud);
}

void judge(PointCloud& source, PointCloud& target, Registration& result) {
  result.noise = std::hypot(scatterOf(source), scatterOf(target));
  SeenCloud const ofSource(source, result.noise);
  SeenCloud const ofTarget(target, result.noise);
  cv::Matx44d const& motion = result.targetFromSource;
  if (ofTarget.isSeen()) {
    result.conflict = ofSource.conflictWith(ofTarget, motion);
  }
  if (ofSource.isSeen()) {
    result.conflict = std::max(result.conflict, ofTarget.conflictWith(ofSource, motion.inv()));
  }
  if (result.sigma > mostNoises * std::hypot(result.noise, result.resolution)) {
    result.doubts.push_back(RegistrationDoubt::Rough);
  }
  if (result.conflict > mostConflict) {
    result.doubts.push_back(RegistrationDoubt::InTheWay);
  }
}

} // namespace vorn::mv
