// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What is out of bounds in the settings of a job is refused by name, with its value and its bound.
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/calib/laser_line.hpp>
#include <vorn/mv/measure/fit.hpp>
#include <vorn/mv/registration/registration.hpp>
#include <vorn/mv/scanner/calibration.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/scanner/scan_laser.hpp>
#include <vorn/mv/surface/mesh.hpp>

#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

template <class Settings, class Member, class Value>
std::function<void()> checked(Member Settings::*member, Value value) {
  return [=] {
    Settings settings;
    settings.*member = static_cast<Member>(value);
    settings.check();
  };
}

template <class Value, class Member>
std::function<void()> line(Member LaserLineOptions::*member, Value value) {
  return checked(member, value);
}

PointCloud plane() {
  cv::Mat_<cv::Vec3f> points(20, 20);
  for (int y = 0; y < points.rows; ++y) {
    for (int x = 0; x < points.cols; ++x) {
      points(y, x) = {static_cast<float>(x), static_cast<float>(y), 500.0F};
    }
  }
  return {points, true};
}

template <class Member, class Value>
std::function<void()> fitted(Member FitSettings::*member, Value value) {
  return [=] {
    FitSettings settings;
    settings.*member = value;
    fitPlane(plane(), settings);
  };
}

template <class Member, class Value>
std::function<void()> registered(Member RegistrationSettings::*member, Value value) {
  return [=] {
    RegistrationSettings settings;
    settings.*member = value;
    PointCloud source = plane();
    PointCloud target = plane();
    registerClouds(source, target, settings);
  };
}

template <class Member, class Value>
std::function<void()> normals(Member NormalSettings::*member, Value value) {
  return [=] {
    NormalSettings settings;
    settings.*member = value;
    plane().calcNormals(settings);
  };
}

struct Bad {
  char const* what;
  std::function<void()> job;
  std::vector<std::string> parts; ///< of the message: setting, value, bound
};

std::vector<Bad> all() {
  using Lines = LaserLineOptions;
  using Detect = DetectSettings;
  return {
      {"scan noise", checked(&ScanSettings::noise, -1.0), {"noise is -1", "0 or more"}},
      {"scan noise nan", checked(&ScanSettings::noise, nan), {"noise is nan", "0 or more"}},
      {"projector", checked(&CalibrationSettings::projector, cv::Size(640, 9000)), {"9000", "16 to 8192"}},
      {"ratio", checked(&CalibrationSettings::outlierRatio, 0.9), {"outlierRatio is 0.9", "1 or more"}},
      {"error", checked(&CalibrationSettings::outlierError, -0.1), {"outlierError is -0.1", "0 or more"}},
      {"width", line(&Lines::width, 10.5), {"width is 10.5", "0 to 10"}},
      {"width nan", line(&Lines::width, nan), {"width is nan", "0 to 10"}},
      {"most width", line(&Lines::maxWidth, 11.0), {"maxWidth is 11", "0 to 10"}},
      {"least width", line(&Lines::minWidth, 6.0), {"minWidth is 6", "at most maxWidth, 5"}},
      {"line contrast", line(&Lines::minContrast, 0.0), {"minContrast is 0", "above 0"}},
      {"peaks", line(&Lines::maxPeaks, 0), {"maxPeaks is 0", "1 or more"}},
      {"key points", checked(&Detect::minKeyPoints, -1), {"minKeyPoints is -1", "0 or more"}},
      {"area", checked(&Detect::minDotArea, nan), {"minDotArea is nan", "0 or more"}},
      {"most area", checked(&Detect::maxDotArea, 10.0), {"maxDotArea is 10", "minDotArea or more"}},
      {"shape", checked(&Detect::minDotRatio, 1.1), {"minDotRatio is 1.1", "above 0 and up to 1"}},
      {"blur", checked(&Detect::blurRadius, 16), {"blurRadius is 16", "from 0 to 15"}},
      {"morph", checked(&Detect::morphRadius, 11), {"morphRadius is 11", "from 0 to 10"}},
      {"sigmas", fitted(&FitSettings::outlierSigmas, 0.0), {"outlierSigmas", "0.0", "more than 0"}},
      {"distance", fitted(&FitSettings::outlierDistance, -2.0), {"outlierDistance", "-2.0", "0 or more"}},
      {"share", fitted(&FitSettings::formShare, 1.5), {"formShare", "1.5", "at most 1"}},
      {"icp distance", registered(&RegistrationSettings::maxDistance, -1.0), {"maxDistance", "-1", "0"}},
      {"icp angle", registered(&RegistrationSettings::maxNormalAngle, 91.0), {"maxNormalAngle", "91", "90"}},
      {"icp rounds", registered(&RegistrationSettings::maxIterations, 0), {"maxIterations", "0", "1"}},
      {"icp samples", registered(&RegistrationSettings::maxSamples, 5), {"maxSamples", "5", "100"}},
      {"icp overlap", registered(&RegistrationSettings::minOverlap, 1.5), {"minOverlap", "1.5", "1"}},
      {"window", normals(&NormalSettings::windowRadius, 0), {"windowRadius", "0", "1"}},
      {"neighbours", normals(&NormalSettings::neighbourCount, 1), {"neighbourCount", "1", "3"}},
      {"step", normals(&NormalSettings::maxStep, -1.0F), {"maxStep", "-1", "0"}},
      {"radius", normals(&NormalSettings::radius, -1.0F), {"radius", "-1", "0"}},
  };
}

TEST(Settings, NameWhatIsOutOfBounds) {
  for (Bad const& bad : all()) {
    try {
      bad.job();
      ADD_FAILURE() << bad.what << " was taken";
    } catch (Exception const& exception) {
      for (std::string const& part : bad.parts) {
        EXPECT_NE(exception.message().find(part), std::string::npos)
            << bad.what << ": " << exception.message();
      }
    }
  }
}

TEST(Settings, OfLaserLinesAreCheckedBeforeAnyImage) {
  CalibrationSettings settings;
  settings.line.maxPeaks = 0;
  vorn::test::expectError([&] { settings.check(); }, "maxPeaks is 0");
  LaserScanSettings scanning;
  scanning.line.minContrast = -1;
  vorn::test::expectError([&] { scanning.check(); }, "minContrast is -1");
}

} // namespace
} // namespace vorn::mv
