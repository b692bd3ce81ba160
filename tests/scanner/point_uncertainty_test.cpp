// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// The predicted errors of points, against the library's own triangulation with parameters moved, and against
// the scatter of calibrations from noisy views.
#include <vorn/mv/scanner/point_uncertainty.hpp>

#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/geometry/rotation.hpp>

#include "calib/adjustment_runs.hpp"
#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

std::vector<std::string> const parameters{"fx0",  "fy0",  "cx0", "cy0", "k1_0", "k2_0", "p1_0", "p2_0",
                                          "k3_0", "fx1",  "fy1", "cx1", "cy1",  "k1_1", "k2_1", "p1_1",
                                          "p2_1", "k3_1", "rx",  "ry",  "rz",   "tx",   "ty",   "tz"};

/// A step that moves points by some tenths of a millimetre.
double stepOf(std::string const& parameter) {
  switch (parameter[0]) {
  case 'f':
  case 'c':
    return 0.2;
  case 'k':
    return 0.003;
  case 'p':
  case 'r':
    return 3e-4;
  default:
    return 0.2;
  }
}

/// The scanner with one parameter changed in its document.
Sl3dScanner moved(Sl3dScanner const& scanner, std::string const& parameter, double step) {
  nlohmann::json json;
  scanner.write(json);
  json.erase("Covariance");
  std::string const lens[] = {"k1_", "k2_", "p1_", "p2_", "k3_"};
  nlohmann::json& model = json[parameter.back() == '0' ? "CameraModel" : "ProjectorModel"];
  int const place = parameter[0] == 'f' ? (parameter[1] == 'x' ? 0 : 4) : (parameter[1] == 'x' ? 2 : 5);
  auto const add = [&](nlohmann::json& number) { number = number.get<double>() + step; };
  if (parameter[0] == 'f' || parameter[0] == 'c') {
    add(model["K"]["data"][static_cast<std::size_t>(place)]);
  }
  for (std::size_t i = 0; i < 5; ++i) {
    if (parameter.substr(0, 3) == lens[i]) {
      add(model["D"]["data"][i]);
    }
  }
  Sl3dScanner result;
  result.read(json);
  cv::Matx44d transform = scanner.getTransform();
  cv::Vec3d axis;
  if (parameter[0] == 'r' || parameter[0] == 't') {
    axis[parameter[1] - 'x'] = 1;
    if (parameter[0] == 't') {
      transform = math::createTransform(math::getR3(transform), math::getT3(transform) + step * axis);
    } else {
      transform =
          math::createTransform(math::rot3(axis, step) * math::getR3(transform), math::getT3(transform));
    }
  }
  result.setTransform(transform);
  return result;
}

/// By the library's own triangulation.
std::vector<cv::Vec3d> pointsOf(Sl3dScanner scanner, std::vector<ScannerSighting> const& sightings) {
  cv::Size const size = scanner.getCameraModel().getResolution();
  cv::Mat_<float> map(size, -1.0F);
  for (ScannerSighting const& sighting : sightings) {
    map(cv::Point(sighting.pixel)) = static_cast<float>(sighting.coordinate);
  }
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(map, xyz, cv::Rect({0, 0}, size));
  std::vector<cv::Vec3d> points;
  for (ScannerSighting const& sighting : sightings) {
    points.emplace_back(xyz(cv::Point(sighting.pixel)));
  }
  return points;
}

/// A covariance of all parameters with correlations of both signs.
cv::Mat_<double> oddCovariance() {
  auto const count = static_cast<int>(parameters.size());
  cv::Mat_<double> root(count, count);
  cv::RNG rng(4);
  for (int row = 0; row < count; ++row) {
    for (int col = 0; col < count; ++col) {
      root(row, col) = rng.gaussian(0.1) * stepOf(parameters[static_cast<std::size_t>(row)]);
    }
  }
  cv::Mat const product = root * root.t();
  return product;
}

void expectDerivatives(Sl3dScanner scanner, std::vector<ScannerSighting> const& sightings, double tolerance) {
  auto const count = static_cast<int>(parameters.size());
  auto const rows = 3 * static_cast<int>(sightings.size());
  cv::Mat_<double> J(rows, count);
  for (int col = 0; col < count; ++col) {
    std::string const& parameter = parameters[static_cast<std::size_t>(col)];
    double const step = stepOf(parameter);
    auto const ahead = pointsOf(moved(scanner, parameter, step), sightings);
    auto const behind = pointsOf(moved(scanner, parameter, -step), sightings);
    for (int row = 0; row < rows; ++row) {
      auto const i = static_cast<std::size_t>(row / 3);
      J(row, col) = (ahead[i][row % 3] - behind[i][row % 3]) / (2 * step);
    }
  }
  cv::Mat_<double> const C = oddCovariance();
  scanner.setCovariance({parameters, C, 0});
  PointUncertainty const uncertainty(scanner);
  std::vector<cv::Vec3d> const points = pointsOf(scanner, sightings);
  for (std::size_t i = 0; i < sightings.size(); ++i) {
    auto const row = 3 * static_cast<int>(i);
    UncertainPoint const point = uncertainty.at(sightings[i]);
    if (scanner.scannerType().getIndex() == scanner::ScannerType::Horizontal) {
      EXPECT_LT(cv::norm(cv::Vec3d(point.point) - points[i]), 5e-3);
    }
    cv::Mat const expected = J.rowRange(row, row + 3) * C * J.rowRange(row, row + 3).t();
    EXPECT_LT(cv::norm(cv::Mat(point.calibration), expected), tolerance * cv::norm(expected)) << i;

    double const coordinateStep = 0.05;
    std::vector<ScannerSighting> stepped = sightings;
    stepped[i].coordinate += coordinateStep;
    cv::Vec3d const ahead = pointsOf(scanner, stepped)[i];
    stepped[i].coordinate -= 2 * coordinateStep;
    cv::Vec3d const by = (ahead - pointsOf(scanner, stepped)[i]) / (2 * coordinateStep) * sightings[i].sigma;
    EXPECT_LT(cv::norm(point.noise, by * by.t()), 3 * tolerance * by.dot(by)) << i;
    EXPECT_LT(cv::norm(point.covariance(), point.noise + point.calibration), 1e-12);

    for (std::size_t k = 0; k < i; ++k) {
      cv::Vec3d const n = cv::normalize(points[i] - points[k]);
      auto const other = 3 * static_cast<int>(k);
      cv::Mat const along = cv::Mat(n).t() * (J.rowRange(row, row + 3) - J.rowRange(other, other + 3));
      double const expectedSigma = std::sqrt(cv::Mat_<double>(along * C * along.t())(0));
      UncertainLength const length = uncertainty.between(sightings[k], sightings[i]);
      EXPECT_NEAR(length.calibration, expectedSigma, tolerance * expectedSigma);
      UncertainPoint const first = uncertainty.at(sightings[k]);
      double const noise = std::sqrt(n.dot((first.noise + point.noise) * n));
      EXPECT_NEAR(length.noise, noise, tolerance * noise);
      EXPECT_NEAR(length.length, cv::norm(points[i] - points[k]), 0.01 * length.length);
    }
  }
}

/// What the scanner sees at pixels, of points at some depth.
std::vector<ScannerSighting> sightingsOf(Sl3dScanner const& scanner, std::vector<cv::Point2f> const& pixels,
                                         std::vector<float> const& depths, bool isColumn) {
  std::vector<cv::Point2f> const rays = scanner.getCameraModel().undistortPoints(pixels);
  std::vector<cv::Point3f> points;
  for (std::size_t i = 0; i < rays.size(); ++i) {
    points.emplace_back(depths[i] * rays[i].x, depths[i] * rays[i].y, depths[i]);
  }
  auto const lit = scanner.getProjectorModel().calcImagePoints(points, scanner.getTransform().inv());
  std::vector<ScannerSighting> sightings;
  for (std::size_t i = 0; i < rays.size(); ++i) {
    sightings.push_back({pixels[i], static_cast<double>(isColumn ? lit[i].x : lit[i].y), 0.02});
  }
  return sightings;
}

TEST(PointUncertainty, DerivativesAreThoseOfTheTriangulationOfColumns) {
  Sl3dScanner const scanner = test::scannerOf(sim::demoRig(4));
  expectDerivatives(scanner, sightingsOf(scanner, {{160, 120}, {50, 30}, {260, 200}}, {560, 500, 620}, true),
                    2e-3);
}

TEST(PointUncertainty, DerivativesAreThoseOfTheTriangulationOfRows) {
  Sl3dScanner scanner = test::scannerOf(sim::demoRig(4));
  scanner.setScannerType(scanner::ScannerType::Vertical);
  scanner.setTransform(math::createTransform(math::rotX(0.3), {-10, 180, 20})); // the one below the other
  expectDerivatives(scanner, sightingsOf(scanner, {{160, 120}, {70, 50}, {250, 190}}, {560, 500, 600}, false),
                    0.03);
}

TEST(PointUncertainty, PitchScalesAndThePoseTurns) {
  Sl3dScanner scanner = test::scannerOf(sim::demoRig(4));
  ScannerSighting const a{{160, 120}, 110, 0.02};
  ScannerSighting const b{{60, 50}, 60, 0.02};
  scanner.setCovariance({parameters, cv::Mat(oddCovariance()), 0});
  UncertainPoint const known = PointUncertainty(scanner).at(a);
  scanner.setCovariance({parameters, cv::Mat(oddCovariance()), 1e-3});
  UncertainPoint const point = PointUncertainty(scanner).at(a);
  cv::Vec3d const place(point.point);
  EXPECT_LT(cv::norm(point.calibration - known.calibration, 1e-6 * place * place.t()), 1e-9);
  UncertainLength const length = PointUncertainty(scanner).between(a, b);
  EXPECT_NEAR(length.pitch, 1e-3 * length.length, 1e-9);
  EXPECT_NEAR(length.sigma(),
              std::sqrt(length.pitch * length.pitch + length.noise * length.noise +
                        length.calibration * length.calibration),
              1e-12);

  cv::Matx44d const pose = math::createTransform(math::rotX(0.4) * math::rotZ(1.1), {5, -20, 300});
  scanner.setPose(pose);
  UncertainPoint const posed = PointUncertainty(scanner).at(a);
  cv::Matx33d const R = math::getR3(pose);
  EXPECT_LT(cv::norm(cv::Vec3d(posed.point) - (R * place + math::getT3(pose))), 1e-9);
  EXPECT_LT(cv::norm(posed.calibration - R * point.calibration * R.t()), 1e-9);
  EXPECT_LT(cv::norm(posed.noise - R * point.noise * R.t()), 1e-12);
  EXPECT_NEAR(PointUncertainty(scanner).between(a, b).sigma(), length.sigma(), 1e-12);
}

TEST(PointUncertainty, RefusesWhatHasNoPoint) {
  Sl3dScanner scanner = test::scannerOf(sim::demoRig(4));
  vorn::test::expectError([&] { PointUncertainty const none(scanner); }, "Covariance");
  vorn::test::expectError([&] { PointUncertainty const none{Sl3dScanner()}; }, "not calibrated");
  scanner.setCovariance({parameters, cv::Mat(oddCovariance()), 0});
  PointUncertainty const uncertainty(scanner);
  ScannerSighting const good{{160, 120}, 110, 0.02};
  vorn::test::expectError([&] { (void)uncertainty.at({{160, 120}, 110, -0.1}); }, "sigma");
  vorn::test::expectError([&] { (void)uncertainty.at({{10, 120}, 225, 0.02}); }, "no point");
  vorn::test::expectError([&] { (void)uncertainty.between(good, good); }, "one point");
  vorn::test::expectError([&] { (void)uncertainty.over({500, 400}); }, "depths");
  vorn::test::expectError([&] { (void)uncertainty.over({0, 400}); }, "depths");
  vorn::test::expectError([&] { (void)uncertainty.over({1, 1.5}); }, "both");
  vorn::test::expectError([&] { (void)uncertainty.over({450, 650}, 0); }, "barLength");
  EXPECT_EQ(uncertainty.over({450, 650}, 5000).barCount, 0);
}

// Forty calibrations of one rig from points with fresh noise scatter as each says. Their scatter is known to
// a tenth; the whole run is in bench/accuracy.
TEST(PointUncertainty, CalibrationsScatterAsPredicted) {
  vorn::test::AdjustmentRig rig;
  rig.cameraNoise = 0.008;
  rig.projectorNoise = 0.003;
  rig.halfColumns = 5;
  rig.halfRows = 4;
  rig.pitch = 26;
  vorn::test::RunSummary const summary = vorn::test::repeatAdjustments(rig, 6, 40);
  double const typical = summary.parameterRatio(0.5);
  EXPECT_GT(typical, 0.9);
  EXPECT_LT(typical, 1.1);
  EXPECT_GT(summary.parameterRatio(0), 0.75);
  EXPECT_LT(summary.parameterRatio(1), 1.3);
  EXPECT_GT(summary.rigid, 0.85);
  EXPECT_LT(summary.rigid, 1.15);
  EXPECT_GT(summary.raw, 0.75);
  EXPECT_LT(summary.raw, 1.25);
  EXPECT_GT(summary.scale, 0.75);
  EXPECT_LT(summary.scale, 1.25);
  EXPECT_GT(summary.bars, 0.85);
  EXPECT_LT(summary.bars, 1.15);
  EXPECT_GT(summary.zScore, 0.85);
  EXPECT_LT(summary.zScore, 1.15);
  EXPECT_GT(summary.pointZ, 0.85);
  EXPECT_LT(summary.pointZ, 1.15);
}

} // namespace
} // namespace vorn::mv
