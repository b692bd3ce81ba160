// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/scan/scan_points.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/imgproc.hpp>

#include <vorn/mv/sl/scanner_type.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

namespace vorn::mv {

namespace {

/// Rows between two questions to the observer: a tenth of the time that it is promised, at 4096 columns.
constexpr int bandRows = 64;
/// Likewise where a call has a start of its own that costs as much as some rows.
constexpr int triangulatedRows = 256;

bool isMeasured(cv::Vec3f const& p) {
  return !std::isnan(p[2]);
}

/// Puts NaN in place of what is not a point in front of the camera: the markers for no coordinate, and
/// intersections behind it.
void dropUnmeasured(cv::Mat_<cv::Vec3f> xyz, Progress const& progress) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  parallelRows(xyz.rows, bandRows, progress, "triangulating", [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < xyz.cols; ++x) {
        cv::Vec3f& p = xyz(y, x);
        if (!(p[2] > 0.0F) || !std::isfinite(p[0]) || !std::isfinite(p[1]) || !std::isfinite(p[2])) {
          p = cv::Vec3f(nan, nan, nan);
        }
      }
    }
  });
}

} // namespace

MapCoordinate coordinateOf(Sl3dScanner const& scanner) {
  IEnum const& type = scanner.getProperty("ScannerType");
  return type.getIndex() == scanner::ScannerType::Horizontal ? MapCoordinate::Column : MapCoordinate::Row;
}

cv::Mat_<cv::Vec3f> pointsInCamera(sl::TriangulationSetup setup, cv::Mat_<float> const& map,
                                   MapCoordinate coordinate, Progress const& progress) {
  setup.poseFromCam = cv::Matx44d::eye();
  cv::Mat_<cv::Vec3f> xyz(map.size());
  int const beside = coordinate == MapCoordinate::Column ? 0 : sl::leftOut;
  for (int begin = 0; begin < map.rows; begin += triangulatedRows) {
    progress.at("triangulating", 0.8 * begin / map.rows);
    int const first = std::max(0, begin - beside);
    int const end = std::min(map.rows, begin + triangulatedRows + beside);
    cv::Rect const band(0, first, map.cols, end - first);
    cv::Mat_<cv::Vec3f> part = xyz(band);
    if (coordinate == MapCoordinate::Column) {
      sl::triangulateColumns(setup, map(band), band, part);
    } else {
      sl::triangulateRows(setup, map(band), band, part);
    }
  }
  if (coordinate == MapCoordinate::Row) {
    sl::clearLeftOut(xyz);
  }
  dropUnmeasured(xyz, progress.part(0.8, 1.0));
  return xyz;
}

void dropBeyond(cv::Mat_<cv::Vec3f>& xyz, double farthest, Progress const& progress) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  auto const most = static_cast<float>(farthest);
  parallelRows(xyz.rows, bandRows, progress, "triangulating", [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < xyz.cols; ++x) {
        if (xyz(y, x)[2] > most) { // false for a NaN
          xyz(y, x) = cv::Vec3f(nan, nan, nan);
        }
      }
    }
  });
}

void blurMeasured(cv::Mat_<cv::Vec3f>& xyz, int radius, Progress const& progress) {
  // Points and their weight, blurred together.
  cv::Mat_<cv::Vec4f> weighted(xyz.size());
  constexpr char const* stage = "smoothing points";
  parallelRows(xyz.rows, bandRows, progress, stage, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < xyz.cols; ++x) {
        cv::Vec3f const& p = xyz(y, x);
        weighted(y, x) = isMeasured(p) ? cv::Vec4f(p[0], p[1], p[2], 1.0F) : cv::Vec4f(0, 0, 0, 0);
      }
    }
  });
  cv::Size const kernel(2 * radius + 1, 2 * radius + 1);
  cv::Mat_<cv::Vec4f> blurred;
  for (int begin = 0; begin < xyz.rows; begin += bandRows) {
    progress.at(stage, static_cast<double>(begin) / xyz.rows);
    int const end = std::min(xyz.rows, begin + bandRows);
    // Not isolated: the rows beside the band take part.
    cv::GaussianBlur(weighted.rowRange(begin, end), blurred, kernel, 0, 0, cv::BORDER_REFLECT_101);
    for (int y = begin; y < end; ++y) {
      for (int x = 0; x < xyz.cols; ++x) {
        if (isMeasured(xyz(y, x))) {
          cv::Vec4f const& sum = blurred(y - begin, x);
          xyz(y, x) = cv::Vec3f(sum[0] / sum[3], sum[1] / sum[3], sum[2] / sum[3]);
        }
      }
    }
  }
}

void movePoints(cv::Mat_<cv::Vec3f>& xyz, cv::Matx44d const& transform, Progress const& progress) {
  parallelRows(xyz.rows, bandRows, progress, "moving points", [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < xyz.cols; ++x) {
        cv::Vec3f& p = xyz(y, x);
        cv::Vec4d const moved = transform * cv::Vec4d(p[0], p[1], p[2], 1.0);
        p = cv::Vec3f(static_cast<float>(moved[0]), static_cast<float>(moved[1]),
                      static_cast<float>(moved[2]));
      }
    }
  });
}

} // namespace vorn::mv
