// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// A calibrated scanner with any settings, any stack of images and any region to triangulate.
#include <string>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "byte_source.hpp"
#include "require.hpp"

namespace vorn::fuzz {
namespace {

nlohmann::json device(cv::Size size, ByteSource& source) {
  double const focal = source.number(5, 200);
  cv::Matx33d const K(focal, 0, size.width / 2.0, 0, focal, size.height / 2.0, 0, 0, 1);
  cv::Mat const D =
      (cv::Mat_<double>(1, 5) << source.number(-90, 90) / 100.0, source.number(-9, 9) / 100.0, 0.001, 0, 0);
  return {{"Resolution", size}, {"K", K}, {"D", D}, {"Error", 0.1}};
}

/// Settings within and outside of their ranges.
void configure(mv::Sl3dScanner& scanner, ByteSource& source) {
  scanner["ScannerType"] = Variant(source.number(0, 1));
  for (char const* name : {"EnableTexture", "EnableDebug"}) {
    scanner[name] = Variant(source.flag());
  }
  for (char const* name : {"MaxGrayLevel", "BlackWhiteSensitivity", "Sensitivity", "PhaseBlurRadius",
                           "PointcloudBlurRadius", "MinSegmentSize", "MaxFillRadius"}) {
    try {
      scanner[name] = Variant(source.number(0, 200));
    } catch (Exception const&) {
      continue; // keeps its default
    }
  }
}

cv::Rect anyRect(ByteSource& source) {
  if (source.number(0, 7) == 0) {
    return {source.any<int>(), source.any<int>(), source.any<int>(), source.any<int>()};
  }
  return {source.number(-2, 30), source.number(-2, 20), source.number(-1, 34), source.number(-1, 24)};
}

void tryScanner(ByteSource& source) {
  cv::Size const camera(source.number(1, 32), source.number(1, 20));
  cv::Size const projector(source.number(0, 64), source.number(0, 64));
  mv::Sl3dScanner scanner;
  scanner.read({{"CameraModel", device(camera, source)},
                {"ProjectorModel", device(projector, source)},
                {"Hpc", cv::Mat(cv::Mat::eye(4, 4, CV_64F))},
                {"Hpose", cv::Mat(cv::Mat::eye(4, 4, CV_64F))}});
  configure(scanner, source);
  std::vector<cv::Mat> images(static_cast<std::size_t>(source.number(3, 19)));
  for (cv::Mat& image : images) {
    image = source.matrix(camera, source.number(0, 60) == 1 ? CV_16UC1 : CV_8UC1);
  }
  cv::Mat_<float> map(camera, -1.0F);
  try {
    map = scanner.decode(images);
    require(map.size() == camera, "a decoded map is as large as the camera's image");
  } catch (Exception const&) {
    map = source.matrix(camera, CV_32FC1);
  }
  cv::Rect const roi = anyRect(source);
  cv::Mat_<cv::Vec3f> xyz = source.matrix({source.number(0, 32), source.number(0, 20)}, CV_32FC3);
  Surroundings around(xyz);
  try {
    scanner.triangulate(map, xyz, roi);
    require(xyz.size() == roi.size(), "there is one point for each pixel of the region");
  } catch (Exception const&) {
  }
  require(around.areUnchanged(), "points are written nowhere else");
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::runInput([=] {
    vorn::fuzz::ByteSource source(data, size);
    vorn::fuzz::tryScanner(source);
  });
}
