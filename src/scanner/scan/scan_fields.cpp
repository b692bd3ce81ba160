// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/scanner/scan_fields.hpp>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>

#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "core/error.hpp"
#include "core/progress.hpp"
#include "scanner/scan/scan_points.hpp"
#include "scanner/scan/sight_geometry.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "addScanFields";
constexpr int bandRows = 16;

/// A number of the point at a pixel, which is given in the camera's frame.
using PointNumber = std::function<double(cv::Point const& pixel, cv::Vec3d const& point)>;

cv::Mat_<float> fieldOf(ScanResult const& result, cv::Matx44d const& camFromPose, PointNumber const& number,
                        Progress const& progress) {
  cv::Mat_<float> field(result.xyz.size(), std::numeric_limits<float>::quiet_NaN());
  cv::Matx33d const R = math::getR3(camFromPose);
  cv::Vec3d const t = math::getT3(camFromPose);
  parallelRows(field.rows, bandRows, progress, "reckoning errors of points", [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < field.cols; ++x) {
        cv::Vec3f const& p = result.xyz(y, x);
        if (!std::isnan(p[2])) {
          field(y, x) = static_cast<float>(number({x, y}, R * cv::Vec3d(p) + t));
        }
      }
    }
  });
  return field;
}

void requireImage(cv::Mat const& image, ScanResult const& result, std::string const& name,
                  char const* setting) {
  if (image.size() != result.xyz.size()) {
    throw error("The field \"" + name + "\" needs a scan with ScanSettings::" + setting, context);
  }
}

CalibrationCovariance requiredCovariance(Sl3dScanner const& scanner) {
  CalibrationCovariance const covariance = scanner.getCovariance();
  if (covariance.isEmpty()) {
    throw error(
        "The field \"sigma_calibration\" needs a scanner that knows how well it is calibrated: it has "
        "no \"Covariance\"",
        context);
  }
  return covariance;
}

PointNumber numberOf(std::string const& name, ScanResult const& result, Sl3dScanner const& scanner,
                     SightGeometry const& geometry) {
  if (name == "modulation") {
    requireImage(result.modulation, result, name, "makeModulation");
    return [&](cv::Point const& pixel, cv::Vec3d const&) {
      return static_cast<double>(result.modulation(pixel));
    };
  }
  if (name == "sigma") {
    requireImage(result.sigma, result, name, "makeSigma");
    return [&](cv::Point const& pixel, cv::Vec3d const& point) {
      return cv::norm(geometry.byCoordinate(point)) * static_cast<double>(result.sigma(pixel));
    };
  }
  if (name == "sigma_calibration") {
    CalibrationCovariance const covariance = requiredCovariance(scanner);
    return [&geometry, C = wholeMatrix(covariance), scale = covariance.scaleSigma](cv::Point const&,
                                                                                   cv::Vec3d const& point) {
      ByCalibration const J = geometry.byCalibration(point);
      double const variance = (J * C).cwiseProduct(J).sum();
      return std::sqrt(std::max(0.0, variance) + scale * scale * point.dot(point));
    };
  }
  std::string known;
  for (std::string const& one : scanFieldNames()) {
    known += (known.empty() ? "" : ", ") + one;
  }
  throw error("There is no field \"" + name + "\" of scans; there are " + known, context);
}

} // namespace

std::vector<std::string> const& scanFieldNames() {
  static std::vector<std::string> const names{"modulation", "sigma", "sigma_calibration"};
  return names;
}

void addScanFields(ScanResult& result, Sl3dScanner const& scanner, std::vector<std::string> const& names,
                   Observer* observer) {
  if (!scanner.isCalibrated()) {
    throw error("The scanner is not calibrated: it has no models with an error below half a pixel", context);
  }
  Progress const progress(observer);
  SightGeometry const geometry(scanner.getCameraModel(), scanner.getProjectorModel(), scanner.getTransform(),
                               coordinateOf(scanner));
  std::map<std::string, cv::Mat_<float>> fields;
  double done = 0;
  for (std::string const& name : names) {
    double const next = done + 1.0 / static_cast<double>(names.size());
    fields[name] = fieldOf(result, scanner.getPose().inv(), numberOf(name, result, scanner, geometry),
                           progress.part(done, next));
    done = next;
  }
  for (auto const& [name, field] : fields) {
    result.cloud.fields()[name] = field;
  }
}

} // namespace vorn::mv
