// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

/// Pictures of what lies about in a laboratory and is no target: chessboards, textures, screws and holes, as
/// a camera sees them, with perspective, uneven light, blur, noise and the rounding of JPEG's kind.

#include <cmath>
#include <functional>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/system.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/detect_target.hpp>

namespace vorn::mv {
namespace {

constexpr int countOfEach = 10;
cv::Size const sheet(900, 700);
cv::Size const camera(480, 360);

using Draw = std::function<cv::Mat(cv::RNG&)>;

cv::Mat chessboard(cv::RNG& random) {
  cv::Mat image(sheet, CV_32F, cv::Scalar(random.uniform(150.0, 230.0)));
  int const side = random.uniform(18, 70);
  double const black = random.uniform(10.0, 60.0);
  for (int y = side; y + side < sheet.height; y += side) {
    for (int x = side; x + side < sheet.width; x += side) {
      if ((x / side + y / side) % 2 == 0) {
        image(cv::Rect(x, y, side, side)).setTo(black);
      }
    }
  }
  return image;
}

/// Grains of several sizes on each other: stone, cloth, cast metal.
cv::Mat texture(cv::RNG& random) {
  cv::Mat image(sheet, CV_32F, cv::Scalar(random.uniform(80.0, 160.0)));
  for (double size = random.uniform(1.5, 4.0); size < 60; size *= random.uniform(1.6, 2.6)) {
    cv::Mat grains(sheet, CV_32F);
    random.fill(grains, cv::RNG::NORMAL, 0, 1);
    cv::GaussianBlur(grains, grains, {}, size, size * random.uniform(0.5, 2.0));
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(grains, mean, deviation);
    image += grains * (random.uniform(10.0, 30.0) / deviation[0]);
  }
  if (random.uniform(0, 2) == 1) { // blobs with sharp outlines, as of printed cloth
    cv::threshold(image, image, 120, 110, cv::THRESH_BINARY);
    image += 60;
  }
  return image;
}

/// Slotted and hexagonal heads with a bright rim, here and there or in loose rows.
cv::Mat screws(cv::RNG& random) {
  cv::Mat image(sheet, CV_32F, cv::Scalar(random.uniform(70.0, 130.0)));
  int const pitch = random.uniform(70, 130);
  double const disorder = random.uniform(0.15, 0.5);
  for (int y = pitch; y < sheet.height; y += pitch) {
    for (int x = pitch; x < sheet.width; x += pitch) {
      cv::Point const at(x + cvRound(disorder * pitch * random.uniform(-1.0, 1.0)),
                         y + cvRound(disorder * pitch * random.uniform(-1.0, 1.0)));
      int const radius = random.uniform(10, pitch / 3);
      cv::circle(image, at, radius, random.uniform(150.0, 240.0), cv::FILLED, cv::LINE_8);
      cv::circle(image, at, radius * 3 / 4, random.uniform(90.0, 200.0), cv::FILLED, cv::LINE_8);
      double const turn = random.uniform(0.0, CV_PI);
      cv::Point const slot(cvRound(radius * std::cos(turn)), cvRound(radius * std::sin(turn)));
      cv::line(image, at - slot, at + slot, cv::Scalar(30), std::max(2, radius / 4));
    }
  }
  return image;
}

/// Bores of many sizes in a plate, on bolt circles and along edges.
cv::Mat holes(cv::RNG& random) {
  cv::Mat image(sheet, CV_32F, cv::Scalar(random.uniform(120.0, 200.0)));
  for (int circle = 0; circle < 4; ++circle) {
    cv::Point const middle(random.uniform(150, 750), random.uniform(150, 550));
    int const count = random.uniform(4, 13);
    double const ring = random.uniform(60.0, 140.0);
    double const start = random.uniform(0.0, CV_PI);
    int const radius = random.uniform(5, 18);
    cv::circle(image, middle, radius * 2, cv::Scalar(20), cv::FILLED);
    for (int i = 0; i < count; ++i) {
      double const angle = start + 2 * CV_PI * i / count;
      cv::circle(image, middle + cv::Point(cvRound(ring * std::cos(angle)), cvRound(ring * std::sin(angle))),
                 radius, cv::Scalar(15), cv::FILLED);
    }
  }
  for (int x = 40; x < sheet.width; x += random.uniform(45, 90)) {
    cv::circle(image, {x, 25}, random.uniform(6, 14), cv::Scalar(15), cv::FILLED);
  }
  return image;
}

/// As a camera sees a sheet.
cv::Mat photographed(cv::Mat const& drawn, cv::RNG& random) {
  auto const corner = [&](float x, float y) {
    return cv::Point2f(x + random.uniform(-45.0F, 45.0F), y + random.uniform(-38.0F, 38.0F));
  };
  auto const width = static_cast<float>(sheet.width);
  auto const height = static_cast<float>(sheet.height);
  std::vector<cv::Point2f> const from{{0, 0}, {width, 0}, {width, height}, {0, height}};
  std::vector<cv::Point2f> const to{corner(0, 0), corner(480, 0), corner(480, 360), corner(0, 360)};
  cv::Mat seen;
  cv::warpPerspective(drawn, seen, cv::getPerspectiveTransform(from, to), camera, cv::INTER_AREA,
                      cv::BORDER_CONSTANT, cv::Scalar(random.uniform(20.0, 120.0)));
  cv::GaussianBlur(seen, seen, {}, random.uniform(0.6, 1.4));
  cv::Point2f const lamp(random.uniform(0.0F, 480.0F), random.uniform(0.0F, 360.0F));
  double const reach = random.uniform(400.0, 900.0);
  for (int y = 0; y < seen.rows; ++y) {
    for (int x = 0; x < seen.cols; ++x) {
      double const distance =
          std::hypot(x - static_cast<double>(lamp.x), y - static_cast<double>(lamp.y)) / reach;
      seen.at<float>(y, x) /= static_cast<float>(1 + distance * distance);
    }
  }
  cv::Mat noise(camera, CV_32F);
  random.fill(noise, cv::RNG::NORMAL, 0, random.uniform(0.5, 4.0));
  cv::Mat bytes;
  cv::Mat(seen + noise).convertTo(bytes, CV_8U);
  // Blocks of 8 x 8 whose fine waves are rounded off, as in JPEG.
  for (int y = 0; y < bytes.rows; y += 8) {
    for (int x = 0; x < bytes.cols; x += 8) {
      cv::Mat block;
      bytes(cv::Rect(x, y, 8, 8)).convertTo(block, CV_32F);
      cv::dct(block, block);
      constexpr double step = 12;
      cv::Mat whole;
      block.convertTo(whole, CV_32S, 1 / step);
      whole.convertTo(block, CV_32F, step);
      cv::idct(block, block);
      block.convertTo(bytes(cv::Rect(x, y, 8, 8)), CV_8U);
    }
  }
  return bytes;
}

TargetDescription described(cv::Size const& size, TargetKind kind) {
  TargetDescription target;
  target.pitch = 10;
  target.size = size;
  target.kind = kind;
  if (size.empty()) {
    target.marks = {{0, 0}, {1, 0}, {0, 1}};
  }
  return target;
}

class NoTarget : public testing::TestWithParam<std::pair<char const*, Draw>> {};

TEST_P(NoTarget, IsFoundInPicturesOfOtherThings) {
  System::set("EnableDebugMode", Variant(false));
  cv::RNG random(std::hash<std::string>()(GetParam().first) % 100000);
  CalibPatternDetector loose;
  loose["MinDotArea"] = 10.0;
  loose["MinKeypointCount"] = 9;
  for (int i = 0; i < countOfEach; ++i) {
    cv::Mat const picture = photographed(GetParam().second(random), random);
    EXPECT_TRUE(detectTarget(picture, described({}, TargetKind::Circles)).isEmpty())
        << i << ", with corner marks";
    EXPECT_TRUE(detectTarget(picture, described({10, 8}, TargetKind::Circles)).isEmpty())
        << i << ", of known size";
    EXPECT_TRUE(detectTarget(picture, described({4, 11}, TargetKind::StaggeredCircles)).isEmpty())
        << i << ", staggered";
    EXPECT_TRUE(loose.detect(picture).isEmpty()) << i << ", by the detector";
  }
}

INSTANTIATE_TEST_SUITE_P(Pictures, NoTarget,
                         testing::Values(std::pair<char const*, Draw>("chessboard", chessboard),
                                         std::pair<char const*, Draw>("texture", texture),
                                         std::pair<char const*, Draw>("screws", screws),
                                         std::pair<char const*, Draw>("holes", holes)),
                         [](auto const& named) { return std::string(named.param.first); });

} // namespace
} // namespace vorn::mv
