// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/chessboard.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/core/library.hpp>

#include "sim/target_photo.hpp"
#include "support/expect_error.hpp"

namespace vorn::test {
namespace {

using mv::Detection;
using mv::detectTarget;
using mv::TargetDescription;
using mv::TargetKind;
using sim::TargetPhoto;

constexpr double square = 15;
cv::Size const corners(9, 6);

TargetDescription boardOf(cv::Size const& size) {
  TargetDescription target;
  target.kind = TargetKind::Chessboard;
  target.pitch = square;
  target.size = size;
  return target;
}

cv::Point2d middleOf(cv::Size const& size) {
  return cv::Point2d(size.width - 1, size.height - 1) * (square / 2);
}

/// A view of a board that fills half of the image, squares of 22 pixels and more.
TargetPhoto photoOf(cv::Size const& size, double roll, double tilt = 25) {
  constexpr double spaceInSquares = 2.2;
  TargetPhoto photo;
  photo.device = sim::Device({700, 700}, {398, 302}, {-0.08, 0.05, 0, 0, 0}, {800, 600});
  photo.target = sim::chessboard(size, square);
  photo.cam_from_target = sim::viewOf(
      middleOf(size), spaceInSquares * square * std::max(size.width, size.height), tilt, 40, roll);
  photo.noise = 1;
  return photo;
}

/// Of the key points from where the photograph shows the places that they claim; infinite when none is there.
/// @param turns quarter turns of the board about its middle between them
double worstError(Detection const& detection, TargetPhoto const& photo, int turns = 0) {
  double worst = detection.isEmpty() ? std::numeric_limits<double>::infinity() : 0;
  for (mv::CalibKeyPoint const& point : detection.keyPoints) {
    cv::Point2d place(point.objPnt);
    cv::Point2d const middle = middleOf({photo.target.grid.columns.end, photo.target.grid.rows.end});
    for (int i = 0; i < turns; ++i) {
      place = middle + cv::Point2d(-(place - middle).y, (place - middle).x);
    }
    auto const truth = photo.device.project(photo.cam_from_target * cv::Vec3d(place.x, place.y, 0));
    worst = std::max(worst, cv::norm(*truth - cv::Point2d(point.imgPnt)));
  }
  return worst;
}

class ChessboardTest : public testing::Test {
protected:
  static void SetUpTestSuite() { mv::Library::init(); }
};

TEST_F(ChessboardTest, ColoursOfSquaresTellWhichWayRoundABoardLies) {
  struct Case {
    cv::Size size;
    int readings;
  };
  for (Case const& of : {Case{{9, 6}, 1}, Case{{4, 3}, 1}, Case{{8, 6}, 2}, Case{{7, 5}, 2}, Case{{8, 8}, 4},
                         Case{{7, 7}, 2}, Case{{3, 3}, 2}}) {
    for (double const roll : {75.0, 180.0, -100.0}) {
      SCOPED_TRACE(testing::Message() << of.size << " turned by " << roll);
      TargetPhoto const photo = photoOf(of.size, roll);
      Detection const detection = detectTarget(sim::render(photo), boardOf(of.size));
      ASSERT_EQ(static_cast<int>(detection.keyPoints.size()), of.size.area()) << detection.reason;
      EXPECT_EQ(detection.readings, of.readings);
      double least = std::numeric_limits<double>::infinity();
      for (int turns = 0; turns < 4; turns += 4 / of.readings) {
        least = std::min(least, worstError(detection, photo, turns));
      }
      EXPECT_LT(least, 0.1);
      for (std::size_t i = 0; i < detection.indices.size(); ++i) {
        int const number = static_cast<int>(i);
        EXPECT_EQ(detection.indices[i], cv::Point(number % of.size.width, number / of.size.width));
      }
    }
  }
}

TEST_F(ChessboardTest, IsFoundInPoorLightAndMeasuredToItsNoise) {
  TargetPhoto const sound = photoOf(corners, 10);
  auto const expectFound = [&](std::string const& what, cv::Mat const& image, double worst) {
    SCOPED_TRACE(what);
    Detection const detection = detectTarget(image, boardOf(corners));
    EXPECT_EQ(detection.keyPoints.size(), 54U) << detection.reason;
    EXPECT_LT(worstError(detection, sound), worst);
  };
  auto const rendered = [&](std::function<void(TargetPhoto&)> const& change) {
    TargetPhoto photo = sound;
    change(photo);
    return sim::render(photo);
  };
  // Bounds in pixels: what a saddle of noisy grey levels is known to, about 0.3 of the noise over the
  // contrast.
  expectFound("dim", rendered([](TargetPhoto& photo) { photo.white = 30; }), 0.3);
  expectFound("dark", rendered([](TargetPhoto& photo) { photo.white = 12; }), 0.8);
  expectFound("lit from a side", rendered([](TargetPhoto& photo) { photo.shading = {1.5, -0.4}; }), 0.2);
  expectFound("overexposed", rendered([](TargetPhoto& photo) {
                photo.white = 300;
                photo.blackLevel = 40;
              }),
              0.1);
  expectFound("out of focus", rendered([](TargetPhoto& photo) { photo.blur = 4; }), 0.2);
  expectFound("noisy", rendered([](TargetPhoto& photo) { photo.noise = 12; }), 0.5);
  cv::Mat const image = sim::render(sound);
  std::vector<unsigned char> file;
  cv::imencode(".jpg", image, file, {cv::IMWRITE_JPEG_QUALITY, 25});
  expectFound("JPEG", cv::imdecode(file, cv::IMREAD_GRAYSCALE), 0.3);
  cv::Mat const deep = rendered([](TargetPhoto& photo) { photo.bits = 12; });
  expectFound("12 bits to the right", deep, 0.1);
  expectFound("12 bits to the left", deep * 16, 0.1);
  expectFound("12 bits, dark", rendered([](TargetPhoto& photo) {
                photo.bits = 12;
                photo.white = 20;
                photo.noise = 0.2;
              }),
              0.1);
  // The negative has its dark squares elsewhere, so that it is counted from its other end.
  Detection const negative = detectTarget(255 - image, boardOf(corners));
  EXPECT_EQ(negative.keyPoints.size(), 54U) << negative.reason;
  EXPECT_LT(worstError(negative, sound, 2), 0.1);
}

TEST_F(ChessboardTest, LargeImagesAreMeasuredInAllTheirPixels) {
  TargetPhoto photo = photoOf(corners, 10);
  photo.device = sim::Device({2800, 2800}, {1592, 1208}, {-0.08, 0.05, 0, 0, 0}, {3200, 2400});
  Detection const detection = detectTarget(sim::render(photo), boardOf(corners));
  EXPECT_EQ(detection.keyPoints.size(), 54U) << detection.reason;
  EXPECT_LT(worstError(detection, photo), 0.05);
}

TEST_F(ChessboardTest, CornersAtTheEdgeOfAShadowAreLeftOut) {
  TargetPhoto const photo = photoOf(corners, 10);
  cv::Mat image = sim::render(photo);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      double const inside = 1 / (1 + std::exp((x - 0.4 * y - 280) / 3.0));
      image.at<unsigned char>(y, x) =
          cv::saturate_cast<unsigned char>(image.at<unsigned char>(y, x) * (1 - 0.7 * inside));
    }
  }
  Detection const detection = detectTarget(image, boardOf(corners));
  EXPECT_GE(detection.keyPoints.size(), 44U) << detection.reason;
  EXPECT_LT(detection.keyPoints.size(), 54U);
  EXPECT_EQ(detection.keyPoints.size() + detection.dropped.size(), 54U);
  EXPECT_LT(worstError(detection, photo), 0.5);
}

TEST_F(ChessboardTest, PartsOfABoardAndOtherBoardsAreRefusedWithWhatIsSeen) {
  TargetPhoto const photo = photoOf(corners, 10, 15);
  cv::Mat const image = sim::render(photo);
  auto const expectRefused = [](cv::Mat const& seen, cv::Size const& size, std::string const& reason) {
    Detection const detection = detectTarget(seen, boardOf(size));
    EXPECT_TRUE(detection.isEmpty()) << size;
    EXPECT_NE(detection.reason.find(reason), std::string::npos) << detection.reason;
    ASSERT_EQ(detection.steps.size(), 3U);
    EXPECT_GE(detection.steps[0].count, 15) << "crossings";
    EXPECT_LT(detection.steps[0].count, 70) << "and the board has 54";
    EXPECT_FALSE(detection.dropped.empty());
    for (mv::DroppedDot const& dropped : detection.dropped) {
      EXPECT_TRUE(cv::Rect({}, seen.size()).contains(cv::Point(dropped.imgPnt)));
    }
  };
  // A part of a larger board: which one, nothing tells.
  for (cv::Size const& size : {cv::Size(8, 5), cv::Size(5, 4), cv::Size(9, 5), cv::Size(3, 3)}) {
    expectRefused(image, size, "9 x 6 inner corners was found in place of one of");
  }
  expectRefused(image, {10, 7}, "the size counts inner corners, one fewer than squares each way");
  // The half of it, by a cover and beyond the picture.
  auto const edge = photo.device.project(photo.cam_from_target * cv::Vec3d(4.5 * square, 3 * square, 0));
  cv::Mat half = image.clone();
  half(cv::Rect(cvRound(edge->x), 0, half.cols - cvRound(edge->x), half.rows)).setTo(30);
  expectRefused(half, corners, "the whole board must be in view");
  TargetPhoto beside = photo;
  beside.cam_from_target = sim::viewOf({-20, 37}, 180, 10, 40, 5);
  expectRefused(sim::render(beside), corners, "the whole board must be in view");
  Detection const nothing = detectTarget(cv::Mat(480, 640, CV_8U, cv::Scalar(128)), boardOf(corners));
  EXPECT_NE(nothing.reason.find("of 0 crossings of dark and bright squares"), std::string::npos)
      << nothing.reason;
  expectError([&] { detectTarget(image, boardOf({2, 6})); }, "2 x 6 inner corners and must be 3 x 3");
}

// It is said to be what it is, where its corners are too few.
TEST_F(ChessboardTest, BoardHalfInDeepShadowIsRefusedForItsCorners) {
  TargetPhoto const photo = photoOf(corners, 10);
  cv::Mat image = sim::render(photo);
  for (int x = 0; x < image.cols; ++x) {
    image.col(x) *= 0.1 + 0.9 / (1 + std::exp((x - 400) / 20.0));
  }
  Detection const detection = detectTarget(image, boardOf(corners));
  EXPECT_TRUE(detection.isEmpty());
  EXPECT_NE(detection.reason.find("a chessboard of 9 x 6 inner corners was found, but only"),
            std::string::npos)
      << detection.reason;
  EXPECT_EQ(detection.reason.find("in place of"), std::string::npos) << detection.reason;
  EXPECT_EQ(detection.dropped.size(), 54U);
}

TEST_F(ChessboardTest, NoiseAndLinesOfPixelsAreNoBoards) {
  for (int seed = 1; seed < 3; ++seed) {
    cv::RNG random(static_cast<std::uint64_t>(seed));
    cv::Mat noise(480, 640, CV_8U);
    random.fill(noise, cv::RNG::NORMAL, 128, 10);
    cv::GaussianBlur(noise, noise, {}, seed);
    Detection const detection = detectTarget((noise - 128) * 8 + 128, boardOf(corners));
    EXPECT_TRUE(detection.isEmpty());
    EXPECT_EQ(detection.reason.find("was found"), std::string::npos) << detection.reason;
    EXPECT_LE(detection.dropped.size(), 1000U);
  }
  for (cv::Size const& size : {cv::Size(1300, 1), cv::Size(1, 1300), cv::Size(1, 1)}) {
    Detection const detection = detectTarget(cv::Mat(size, CV_8U, cv::Scalar(128)), boardOf(corners));
    EXPECT_NE(detection.reason.find("of 0 crossings"), std::string::npos) << size << detection.reason;
  }
}

} // namespace
} // namespace vorn::test
