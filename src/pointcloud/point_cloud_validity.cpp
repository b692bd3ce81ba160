// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "core/error.hpp"
#include "core/median.hpp"
#include "pointcloud/grid_normals.hpp"
#include "pointcloud/grid_steps.hpp"
#include "pointcloud/neighbour_normals.hpp"
#include "pointcloud/point_access.hpp"

namespace vorn::mv {

namespace {

/// The fit of a plane is weak when its error is this many times the cloud's median.
constexpr float weakOverMedian = 4.0F;

constexpr uchar byteOf(PointKind kind) {
  return static_cast<uchar>(kind);
}

bool isPoint(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state, int row, int column) {
  return state(row, column) == 0 && isFinite(points(row, column).val);
}

/// The plane of a small window says whether a point lies on a surface; a larger one would call every edge
/// weak.
constexpr int fitRadius = 2;

/// 255 where no surface is known, or where it is rougher than the rest.
cv::Mat_<uchar> weakFits(NormalField const& field) {
  std::vector<float> errors;
  for (float const error : field.fitError) {
    if (std::isfinite(error)) {
      errors.push_back(error);
    }
  }
  float const limit = weakOverMedian * medianAmong(errors);
  cv::Mat_<uchar> weak(field.fitError.size());
  std::transform(field.fitError.begin(), field.fitError.end(), weak.begin(),
                 [limit](float error) { return static_cast<uchar>(error <= limit ? 0 : 255); });
  return weak;
}

/// Marks the points on both sides of steps between neighbours of the grid, the eight around a cell.
cv::Mat_<uchar> stepPoints(cv::Mat_<cv::Vec3f> const& points, cv::Mat_<uchar> const& state) {
  GridSteps const steps = gridStepsOf(points, state, 0.0F);
  cv::Mat_<uchar> isStep(points.size(), uchar{0});
  constexpr int onward[][2] = {{0, 1}, {1, -1}, {1, 0}, {1, 1}};
  for (int row = 0; row < points.rows; ++row) {
    for (int column = 0; column < points.cols; ++column) {
      for (auto const& [down, right] : onward) {
        int const r = row + down;
        int const c = column + right;
        if (r < points.rows && c >= 0 && c < points.cols && isPoint(points, state, row, column) &&
            isPoint(points, state, r, c)) {
          cv::Vec3f const difference = points(r, c) - points(row, column);
          float const limit = steps.of(down, std::abs(right));
          if (difference.dot(difference) > limit * limit) {
            isStep(row, column) = 255;
            isStep(r, c) = 255;
          }
        }
      }
    }
  }
  return isStep;
}

/// 255 for the cells at most `width` rows and columns away from a marked one, and from outside the grid.
cv::Mat_<uchar> around(cv::Mat_<uchar> const& marks, int width, int outside) {
  cv::Mat_<uchar> grown;
  cv::Mat const box(2 * width + 1, 2 * width + 1, CV_8U, cv::Scalar(1));
  cv::dilate(marks, grown, box, {-1, -1}, 1, cv::BORDER_CONSTANT, cv::Scalar(outside));
  return grown;
}

} // namespace

void PointCloud::calcValidMap() {
  checkSizes();
  if (isEmpty()) {
    auxMask_.release();
    return;
  }
  cv::Mat_<uchar> mask(points_.size(), byteOf(PointKind::Inner));
  bool const usesGrid = organized_ && continuous_;
  NormalSettings settings;
  settings.windowRadius = fitRadius;
  settings.figures = NormalFigures::FitAndCurvature;
  NormalField const field = usesGrid ? gridNormals(points_, state_, settings, Progress())
                                     : neighbourNormals(points_, state_, octree(), settings, Progress());
  mask.setTo(byteOf(PointKind::WeakFit), weakFits(field));
  cv::Mat_<uchar> absent(points_.size(), uchar{0});
  for (int row = 0; row < points_.rows; ++row) {
    for (int column = 0; column < points_.cols; ++column) {
      absent(row, column) = isPoint(points_, state_, row, column) ? 0 : 255;
    }
  }
  if (usesGrid) {
    mask.setTo(byteOf(PointKind::Border), around(absent, 1, 255));
    mask.setTo(byteOf(PointKind::Step), stepPoints(points_, state_));
  }
  mask.setTo(byteOf(PointKind::Absent), absent);
  auxMask_ = mask;
}

void PointCloud::icpRemoveBoder(int width) {
  if (width < 0) {
    throw error("The width of the border is " + std::to_string(width) + ", not at least 0", "icpRemoveBoder");
  }
  if (auxMask_.size() != points_.size()) {
    calcValidMap();
  }
  if (isEmpty() || width == 0 || !organized_ || !continuous_) {
    return;
  }
  // More than the grid's size is the whole grid.
  width = std::min(width, std::max(points_.rows, points_.cols));
  cv::Mat absent;
  cv::Mat isStep;
  cv::compare(auxMask_, byteOf(PointKind::Absent), absent, cv::CMP_EQ);
  cv::compare(auxMask_, byteOf(PointKind::Step), isStep, cv::CMP_EQ);
  cv::Mat near;
  cv::bitwise_or(around(absent, width, 255), around(isStep, width - 1, 0), near);
  near.setTo(0, absent);
  auxMask_ = auxMask_.clone();
  auxMask_.setTo(byteOf(PointKind::RegistrationBorder), near);
}

} // namespace vorn::mv
