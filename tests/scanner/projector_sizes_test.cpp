// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// From generated patterns to decoded coordinates, for projectors of the sizes at which the code changes.
#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/scanner_type.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "scanner/projector_axis.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using scanner::ScannerType;

struct Projector {
  ScannerType::Item type;
  int length; ///< pixels along the coded axis

  bool isAlongWidth() const { return type == ScannerType::Horizontal; }

  cv::Size size(int across) const {
    return isAlongWidth() ? cv::Size(length, across) : cv::Size(across, length);
  }
};

/// What a camera with a pixel for each of the projector's sees of it, a little away from black and white.
std::vector<cv::Mat> seen(Projector const& projector, int across) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  generate_ps4_patterns(columns, rows, projector.size(across));
  std::vector<cv::Mat>& images = projector.isAlongWidth() ? columns : rows;
  for (cv::Mat& image : images) {
    image.convertTo(image, CV_8U, 0.8, 10);
  }
  return images;
}

cv::Mat_<float> decoded(Projector const& projector, std::vector<cv::Mat> const& images) {
  Library::init();
  System::set("EnableDebugMode", Variant(false));
  Sl3dScanner scanner;
  scanner["ScannerType"] = ScannerType(projector.type);
  scanner["MinSegmentSize"] = 0;
  scanner.getProjectorModel().setResolution(projector.size(images[0].size().area() / projector.length));
  return scanner.decode(images);
}

class ProjectorSizes : public testing::TestWithParam<Projector> {};

TEST_P(ProjectorSizes, DecodeToTheirOwnCoordinates) {
  constexpr int across = 12;
  // Grey levels are whole: half a level of 100 is a two-hundredth of a radian.
  constexpr float rounding = 0.01F;
  Projector const& projector = GetParam();
  cv::Mat_<float> const map = decoded(projector, seen(projector, across));
  int missing = 0;
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      int const c = projector.isAlongWidth() ? x : y;
      missing += map(y, x) < 0 ? 1 : 0;
      ASSERT_TRUE(map(y, x) < 0 || std::abs(map(y, x) - static_cast<float>(c)) < rounding)
          << map(y, x) << " at " << c;
    }
  }
  EXPECT_EQ(missing, 0);
}

std::vector<Projector> sizes() {
  std::vector<Projector> all;
  for (int const length : {16,  56,   59,   60,   63,   64,   65,   120,  128,  248,  251,  252,
                           256, 1015, 1016, 1019, 1020, 1024, 1025, 1280, 2040, 2041, 2047, 2048}) {
    all.push_back({ScannerType::Horizontal, length});
    all.push_back({ScannerType::Vertical, 2 * length});
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Boundaries, ProjectorSizes, testing::ValuesIn(sizes()), [](auto const& given) {
  return (given.param.isAlongWidth() ? "Columns" : "Rows") + std::to_string(given.param.length);
});

TEST(GuessedProjector, IsTheUsualOneThatTheImagesAreMadeFor) {
  Library::init();
  System::set("EnableDebugMode", Variant(false));
  for (cv::Size const& size :
       {cv::Size(320, 240), cv::Size(640, 400), cv::Size(912, 570), cv::Size(1024, 768), cv::Size(1280, 1024),
        cv::Size(1920, 1200), cv::Size(2048, 1080)}) {
    auto const extent = [&](Projector const& projector, ProjectorAxis const& axis) {
      std::vector<cv::Mat> const images = seen(projector, 12);
      cv::Mat_<float> const map = decodeAxis(axis, {images}, {}, {});
      EXPECT_EQ(cv::countNonZero(map < 0), 0) << size;
      return DecodedExtent{farthestOf(map), images.size()};
    };
    EXPECT_EQ(guessProjector(extent({ScannerType::Horizontal, size.width}, columnAxis),
                             extent({ScannerType::Vertical, size.height}, rowAxis)),
              size);
  }
}

TEST(ProjectorSizesBeyondTheCode, AreRefused) {
  for (Projector const& projector :
       {Projector{ScannerType::Horizontal, 2049}, Projector{ScannerType::Vertical, 4097}}) {
    std::vector<cv::Mat> const images = seen(projector, 12);
    vorn::test::expectError([&] { decoded(projector, images); }, "Insufficient input patterns!");
  }
  // One plane less than the projector needs.
  for (int const length : {64, 1017, 1024}) {
    std::vector<cv::Mat> images = seen({ScannerType::Horizontal, length}, 12);
    images.pop_back();
    vorn::test::expectError(
        [&] {
          decoded({ScannerType::Horizontal, length}, images);
        },
        "Insufficient input patterns!");
  }
}

} // namespace
} // namespace vorn::mv
