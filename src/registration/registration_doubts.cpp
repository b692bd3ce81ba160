// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration/registration_doubts.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "core/median.hpp"
#include "pointcloud/grid_steps.hpp"
#include "pointcloud/list_spacing.hpp"
#include "pointcloud/point_access.hpp"
#include "pointcloud/sight_map.hpp"
#include "pointcloud/smallest_axis.hpp"

namespace vorn::mv {

namespace {

constexpr double mostNoises = 4.0;
constexpr double mostConflict = 0.02;

bool isThere(PointCloud const& cloud, int row, int column) {
  return cloud.state()(row, column) == 0 && isFinite(cloud.points()(row, column).val);
}

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
  constexpr std::size_t samples = 1000;
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

double scatterOf(PointCloud& cloud) {
  return cloud.isOrganized() && cloud.isContinous() ? gridScatter(cloud) : listScatter(cloud);
}

/// What was seen from the origin of a cloud's frame, thinned.
class SeenCloud {
public:
  SeenCloud(PointCloud& cloud, double noise)
      : points_(thinned(cloud)), map_(points_, fromOrigin(cloud), spacing_, std::max(spacing_, 6.0 * noise)) {
    isSeen_ = isBeforeOrigin(cloud) && isItsOwnSight();
  }

  /// Whether all was seen from the origin.
  bool isSeen() const { return isSeen_; }

  /// The share of this cloud's points within the view of another that lie before what that one sees; 0 for
  /// too few to tell.
  double conflictWith(SeenCloud const& other, cv::Matx44d const& otherFromOwn) const {
    std::size_t seen = 0;
    std::size_t before = 0;
    for (cv::Vec3f const& point : points_) {
      cv::Vec4d const moved = otherFromOwn * cv::Vec4d(point[0], point[1], point[2], 1.0);
      Sight const sight = other.map_.of(cv::Vec3f(cv::Vec3d(moved[0], moved[1], moved[2])));
      seen += sight == Sight::Seen ? 1 : 0;
      before += sight == Sight::SeenThrough ? 1 : 0;
    }
    constexpr std::size_t fewest = 50;
    return seen + before < fewest ? 0.0 : static_cast<double>(before) / static_cast<double>(seen + before);
  }

private:
  static cv::Matx44d fromOrigin(PointCloud const& cloud) {
    cv::Matx44d shift = cv::Matx44d::eye();
    for (int axis = 0; axis < 3; ++axis) {
      shift(axis, 3) = cloud.offset()[axis];
    }
    return shift;
  }

  cv::Mat_<cv::Vec3f> thinned(PointCloud& cloud) {
    constexpr double most = 100000.0;
    bool const isGrid = cloud.isOrganized() && cloud.isContinous();
    cv::Mat_<cv::Vec3f> const& points = std::as_const(cloud).points();
    double const stride = std::max(1.0, std::sqrt(static_cast<double>(cloud.presentCount()) / most));
    int const step = isGrid ? static_cast<int>(std::ceil(stride)) : 1;
    std::size_t const skip = isGrid ? 1 : static_cast<std::size_t>(std::ceil(stride * stride));
    spacing_ = static_cast<double>(isGrid ? gridSpacingOf(points, cloud.state()) : listSpacingOf(cloud)) *
               (isGrid ? step : std::sqrt(1.0 * static_cast<double>(skip)));
    std::vector<cv::Vec3f> kept;
    std::size_t count = 0;
    for (int row = 0; row < points.rows; row += step) {
      for (int column = 0; column < points.cols; column += step) {
        if (isThere(cloud, row, column) && count++ % skip == 0) {
          kept.push_back(points(row, column));
        }
      }
    }
    return cv::Mat_<cv::Vec3f>(kept, true);
  }

  /// Whether all points lie before the origin, and it stands off.
  bool isBeforeOrigin(PointCloud const& cloud) const {
    double low = std::numeric_limits<double>::max();
    double high = std::numeric_limits<double>::lowest();
    for (cv::Vec3f const& point : points_) {
      double const depth = static_cast<double>(point[2]) + cloud.offset()[2];
      low = std::min(low, depth);
      high = std::max(high, depth);
    }
    return low > 0.0 && low > 0.5 * (high - low);
  }

  /// Whether no surface hides another from the origin.
  bool isItsOwnSight() const {
    auto const seen = std::count_if(points_.begin(), points_.end(),
                                    [&](cv::Vec3f const& point) { return map_.of(point) == Sight::Seen; });
    constexpr double least = 0.98;
    return static_cast<double>(seen) >= least * static_cast<double>(points_.total());
  }

  double spacing_ = 0.0;
  cv::Mat_<cv::Vec3f> points_;
  SightMap map_;
  bool isSeen_ = false;
};

} // namespace

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
