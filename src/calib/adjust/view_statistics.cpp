// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/view_statistics.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/transform.hpp>

#include "calib/adjust/bundle_start.hpp"
#include "calib/adjust/normal_equations.hpp"
#include "core/error.hpp"
#include "geometry/rotation_vector.hpp"

namespace vorn::mv {

namespace {

std::vector<cv::Point2f> const& pointsOf(AdjustmentView const& view, int device) {
  return device == 0 ? view.points0 : view.points1;
}

bool isPoint(cv::Point2f const& p) {
  return std::isfinite(p.x) && std::isfinite(p.y);
}

/// What an adjustment left free of a device: as many parameters as names that end with its number.
std::vector<int> freeParametersOf(Adjustment const& adjustment, std::size_t device) {
  auto const count =
      std::count_if(adjustment.parameters.begin(), adjustment.parameters.end(),
                    [&](std::string const& name) { return name.back() == static_cast<char>('0' + device); });
  std::vector<int> free;
  for (int i = 0; i < static_cast<int>(count); ++i) {
    constexpr int polynomialCount = 9; // after which thin prism terms follow, beyond the rational ones
    free.push_back(i < polynomialCount ? i : i + 3);
  }
  return free;
}

} // namespace

Bundle solvedBundle(std::vector<AdjustmentView> const& views, Adjustment const& adjustment) {
  std::size_t const deviceCount = adjustment.models.size();
  Bundle bundle = bundleOf(views, static_cast<int>(deviceCount), adjustment.isRead);
  if (bundle.target != adjustment.shape.objPnts) {
    throw error("The views show other dots of the target, " + std::to_string(bundle.target.size()) +
                    ", than the adjustment knows, " + std::to_string(adjustment.shape.objPnts.size()),
                "diagnose");
  }
  for (std::size_t i = 0; i < views.size(); ++i) {
    std::vector<int> const& leftOut = adjustment.views[i].leftOut;
    auto& dots = bundle.views[i].dots;
    dots.erase(std::remove_if(dots.begin(), dots.end(),
                              [&](BundleDot const& dot) {
                                return std::find(leftOut.begin(), leftOut.end(), dot.source) != leftOut.end();
                              }),
               dots.end());
    bundle.views[i].dev0_from_target = Placement::of(adjustment.poses[i]);
  }
  for (std::size_t device = 0; device < deviceCount; ++device) {
    CameraModel const& model = adjustment.models[device];
    bundle.devices.push_back(
        {cameraNumbers(model.getK(), model.getD()), freeParametersOf(adjustment, device)});
  }
  bundle.dev0_from_dev1 = Placement::of(adjustment.transform);
  bundle.sigma[0] = adjustment.localNoise.camera0;
  bundle.sigma[1] = deviceCount > 1 ? adjustment.localNoise.camera1 : 1;
  for (cv::Point3d const& deviation : adjustment.shape.deviations) {
    bundle.knownDeviations.emplace_back(deviation.x, deviation.y, deviation.z);
  }
  if (adjustment.shape.kind != TargetShape::Kind::Flat) {
    // What was taken for a shape may be another fault, so it must be able to go.
    bundle.extendShape(adjustment.shape.degree == 2 ? ShapeBasis::Level::Quadratic
                                                    : ShapeBasis::Level::Smooth);
  }
  return bundle;
}

double bundleS0(Bundle const& bundle) {
  Squares const squares = squaresOf(bundle, transfersOf(bundle));
  double const freedom =
      squares.totalCount() - bundle.commonCount() - 6.0 * static_cast<double>(bundle.views.size());
  return freedom > 0 ? std::sqrt(squares.total() / freedom) : 1;
}

cv::Matx22d affineMapOf(std::vector<cv::Point2f> const& from, std::vector<cv::Point2f> const& to) {
  std::vector<std::size_t> common;
  cv::Point2d meanFrom;
  cv::Point2d meanTo;
  for (std::size_t i = 0; i < to.size(); ++i) {
    if (isPoint(from[i]) && isPoint(to[i])) {
      meanFrom += cv::Point2d(from[i]);
      meanTo += cv::Point2d(to[i]);
      common.push_back(i);
    }
  }
  constexpr std::size_t fewest = 4;
  if (common.size() < fewest) {
    return cv::Matx22d::zeros();
  }
  auto const count = static_cast<double>(common.size());
  cv::Matx22d cross;
  cv::Matx22d squares;
  for (std::size_t const i : common) {
    cv::Point2d const a = cv::Point2d(from[i]) - meanFrom / count;
    cv::Point2d const b = cv::Point2d(to[i]) - meanTo / count;
    cross += cv::Matx22d(b.x * a.x, b.x * a.y, b.y * a.x, b.y * a.y);
    squares += cv::Matx22d(a.x * a.x, a.x * a.y, a.y * a.x, a.y * a.y);
  }
  bool isRegular = false;
  cv::Matx22d const inverse = squares.inv(cv::DECOMP_LU, &isRegular);
  return isRegular ? cv::Matx22d(cross * inverse) : cv::Matx22d::zeros();
}

double handednessOf(AdjustmentView const& view, int device) {
  double const determinant = cv::determinant(affineMapOf(view.objPnts, pointsOf(view, device)));
  return determinant > 0 ? 1 : determinant < 0 ? -1 : 0;
}

double coverageOf(std::vector<AdjustmentView> const& views, int device, cv::Size const& size) {
  constexpr int cols = 8;
  constexpr int rows = 6;
  bool isHit[rows][cols] = {};
  for (AdjustmentView const& view : views) {
    for (cv::Point2f const& p : pointsOf(view, device)) {
      int const col =
          isPoint(p) ? static_cast<int>(std::floor(p.x * cols / static_cast<float>(size.width))) : -1;
      int const row =
          isPoint(p) ? static_cast<int>(std::floor(p.y * rows / static_cast<float>(size.height))) : -1;
      if (col >= 0 && col < cols && row >= 0 && row < rows) {
        isHit[row][col] = true;
      }
    }
  }
  int count = 0;
  for (auto const& row : isHit) {
    count += static_cast<int>(std::count(std::begin(row), std::end(row), true));
  }
  return static_cast<double>(count) / (cols * rows);
}

double greatestTiltOf(std::vector<cv::Matx44d> const& poses) {
  double greatest = 0;
  for (cv::Matx44d const& a : poses) {
    for (cv::Matx44d const& b : poses) {
      double const cosine = cv::Vec3d(a(0, 2), a(1, 2), a(2, 2)).dot(cv::Vec3d(b(0, 2), b(1, 2), b(2, 2)));
      greatest = std::max(greatest, std::acos(std::clamp(cosine, -1.0, 1.0)));
    }
  }
  return greatest * 180 / CV_PI;
}

SeenDots seenDotsOf(AdjustmentView const& view) {
  SeenDots seen;
  for (std::size_t i = 0; i < view.objPnts.size(); ++i) {
    if (isPoint(view.points0[i])) {
      seen.push_back({{view.objPnts[i].x, view.objPnts[i].y}, view.points0[i]});
    }
  }
  std::stable_sort(seen.begin(), seen.end(),
                   [](SeenDot const& a, SeenDot const& b) { return a.place < b.place; });
  return seen;
}

double motionBetween(SeenDots const& a, SeenDots const& b) {
  double squares = 0;
  int count = 0;
  auto same = a.begin();
  for (SeenDot const& dot : b) {
    while (same != a.end() && same->place < dot.place) {
      ++same;
    }
    if (same != a.end() && same->place == dot.place) {
      cv::Point2d const motion(dot.pixel - same->pixel);
      squares += motion.dot(motion);
      ++count;
    }
  }
  constexpr int fewest = 6;
  return count < fewest ? std::numeric_limits<double>::infinity() : std::sqrt(squares / count);
}

double angleBetween(cv::Matx33d const& a, cv::Matx33d const& b) {
  return cv::norm(rotationVector(a * b.t()));
}

} // namespace vorn::mv
