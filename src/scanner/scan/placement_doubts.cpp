// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/scan/placement_doubts.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "scanner/scan/scan_points.hpp"

namespace vorn::mv {

namespace {

constexpr char const* causes =
    ": were the images mirrored or turned in the camera or its driver, are columns "
    "and rows exchanged, or is the calibration another rig's?";

/// How the coordinate of a surface far away changes from the middle of the camera's image on, projector
/// pixels a camera pixel; lens distortion does not turn it round.
cv::Vec2d farGradient(Sl3dScanner const& scanner) {
  cv::Mat_<double> const camera = scanner.getCameraModel().getK();
  cv::Mat_<double> const projector = scanner.getProjectorModel().getK();
  cv::Size const size = scanner.getCameraModel().getResolution();
  cv::Matx33d const projFromCam = math::getR3(scanner.getTransform()).t();
  int const axis = coordinateOf(scanner) == MapCoordinate::Column ? 0 : 1;
  auto const coordinateAt = [&](double x, double y) {
    cv::Vec3d const ray((x - camera(0, 2)) / camera(0, 0), (y - camera(1, 2)) / camera(1, 1), 1.0);
    cv::Vec3d const seen = projFromCam * ray;
    return projector(axis, axis) * seen[axis] / seen[2];
  };
  double const x = 0.5 * size.width;
  double const y = 0.5 * size.height;
  constexpr double step = 8.0;
  double const here = coordinateAt(x, y);
  return {(coordinateAt(x + step, y) - here) / step, (coordinateAt(x, y + step) - here) / step};
}

/// How many neighbours in a map are in the order that the calibration foretells, and how many against it.
struct Order {
  std::int64_t with = 0;
  std::int64_t against = 0;
};

Order orderOf(cv::Mat_<float> const& map, cv::Vec2d const& gradient) {
  constexpr int reach = 6;              // camera pixels: more than noise turns round
  constexpr int rowStep = 4;            // enough rows
  constexpr double gross = 4.0 * reach; // another surface begins
  bool const alongRows = std::abs(gradient[0]) >= std::abs(gradient[1]);
  double const sign = (alongRows ? gradient[0] : gradient[1]) > 0.0 ? 1.0 : -1.0;
  cv::Point const beside = alongRows ? cv::Point(reach, 0) : cv::Point(0, reach);
  Order order;
  for (int y = 0; y + beside.y < map.rows; y += rowStep) {
    for (int x = 0; x + beside.x < map.cols; ++x) {
      double const here = map(y, x);
      double const there = map(y + beside.y, x + beside.x);
      double const change = sign * (there - here);
      if (here >= 0.0 && there >= 0.0 && std::abs(change) < gross && change != 0.0) {
        ++(change > 0.0 ? order.with : order.against);
      }
    }
  }
  return order;
}

PatternDoubt doubtOf(PatternFault fault, PatternAxis axis, double value, double limit) {
  PatternDoubt doubt;
  doubt.fault = fault;
  doubt.axis = axis;
  doubt.value = value;
  doubt.limit = limit;
  return doubt;
}

std::string percentOf(double share) {
  return std::to_string(std::lround(100.0 * share)) + " %";
}

} // namespace

double farthestDepth(Sl3dScanner const& scanner) {
  int const axis = coordinateOf(scanner) == MapCoordinate::Column ? 0 : 1;
  double const focal = scanner.getProjectorModel().getK().at<double>(axis, axis);
  return 2.0 * cv::norm(math::getT3(scanner.getTransform())) * focal;
}

std::vector<PatternDoubt> placementDoubts(Sl3dScanner const& scanner, ScanResult const& result) {
  constexpr std::int64_t fewest = 1000; // neighbours and points
  PatternAxis const axis =
      coordinateOf(scanner) == MapCoordinate::Column ? PatternAxis::Column : PatternAxis::Row;
  std::string const what = axis == PatternAxis::Column ? "columns" : "rows";
  Order const order = orderOf(result.map, farGradient(scanner));
  auto const all = static_cast<double>(order.with + order.against);
  constexpr double half = 0.5;
  if (order.with + order.against >= fewest && static_cast<double>(order.against) > half * all) {
    double const share = static_cast<double>(order.against) / all;
    PatternDoubt doubt = doubtOf(PatternFault::Mirrored, axis, share, half);
    doubt.text =
        "the " + what + " run against the calibration at " + percentOf(share) + " of the places" + causes;
    return {doubt};
  }
  constexpr double most = 0.25; // of the coordinates
  std::size_t const nowhere = result.counts.of(PixelReason::NoPoint);
  double const share =
      static_cast<double>(nowhere) / std::max(1.0, static_cast<double>(result.counts.decoded));
  if (nowhere >= static_cast<std::size_t>(fewest) && share > most) {
    PatternDoubt doubt = doubtOf(PatternFault::Mirrored, axis, share, most);
    doubt.text = percentOf(share) + " of the decoded " + what +
                 " have no point in front of the scanner: it would lie behind the camera or nowhere" + causes;
    return {doubt};
  }
  return {};
}

PatternDoubt emptyDoubt(std::vector<cv::Mat> const& images, double white, ScanResult const& result,
                        PatternAxis axis) {
  double brightest = 0.0;
  for (cv::Mat const& image : images) {
    double most = 0.0;
    cv::minMaxLoc(image.reshape(1), nullptr, &most);
    brightest = std::max(brightest, most);
  }
  constexpr double dark = 0.1; // of white
  PatternDoubt doubt = doubtOf(PatternFault::Level, axis, brightest / white, dark);
  ScanCounts const& counts = result.counts;
  std::ostringstream text;
  if (brightest < dark * white) {
    text << "the brightest level of all images is " << brightest << " of " << white
         << "; there was too little light, or 10 or 12 bits were scaled down to 8 (vorn::mv::toMat keeps "
            "them)";
  } else if (2 * counts.of(PixelReason::Dark) > counts.pixels) {
    text << percentOf(static_cast<double>(counts.of(PixelReason::Dark)) / static_cast<double>(counts.pixels))
         << " of the pixels see no fringe; are all images the same one, was the projector off, or do camera "
            "and projector not keep step?";
  } else {
    text << "most of the pixels are "
         << (2 * counts.of(PixelReason::Clipped) > counts.pixels
                 ? "too bright; shorten the exposure"
                 : "without a trusted code; are the images those of this scanner's sequence, in order?");
  }
  doubt.text = text.str();
  return doubt;
}

} // namespace vorn::mv
