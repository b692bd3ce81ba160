// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Pictures are drawn band by band into memory that held something else: neither may show.
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/measure/amat.hpp>

namespace vorn::mv {
namespace {

TEST(AMat, MarginsDoNotHangOnWhatMemoryHeldBefore) {
  AMat amat(cv::Mat(60, 80, CV_32F, cv::Scalar(0.25F)));
  amat.setTitle("depth");
  DrawSettings settings;
  settings.depth = DrawDepth::Own;
  cv::Size const size = amat.draw(settings).picture.size();
  // Blocks of the picture's size go back to the heap, which hands them out again.
  for (double const held : {1e30, -1e30, std::numeric_limits<double>::quiet_NaN(), 1e30}) {
    cv::Mat(size, CV_32FC3, cv::Scalar::all(held)).release();
    cv::Mat const picture = amat.draw(settings).picture;
    EXPECT_TRUE(cv::checkRange(picture));
    EXPECT_EQ(cv::norm(picture, amat.draw(settings).picture, cv::NORM_INF), 0);
  }
}

TEST(AMat, LinesThatMostlyLieBesideThePictureAreDrawnWhereTheyCross) {
  // The circle's rim passes through the picture as good as upright, the line from corner to corner.
  AMat amat(cv::Mat(300, 200, CV_8U, cv::Scalar(0)));
  MarkStyle style;
  style.width = 3;
  constexpr double radius = 1e5;
  amat.addCircle(cv::Point2d(100.0 + radius, 150.0), radius, style);
  amat.addLine({cv::Point2d(-2e6, -3e6 + 150.0), {2e6, 3e6 + 150.0}}, style);
  cv::Mat const picture = amat.draw().picture;
  ASSERT_EQ(picture.rows, 300);
  for (int const row : {5, 150, 294}) {
    EXPECT_GT(cv::norm(picture.at<cv::Vec3b>(row, 100)), 100) << row;
    EXPECT_EQ(cv::norm(picture.at<cv::Vec3b>(row, 106)), 0) << row;
  }
}

TEST(AMat, TheSameBitsWithAnyNumberOfThreads) {
  AMat amat(cv::Mat(400, 300, CV_8U, cv::Scalar(90)));
  cv::RNG& random = cv::theRNG();
  for (int i = 0; i < 200; ++i) {
    cv::Point2d const p(random.uniform(-20.0, 320.0), random.uniform(-20.0, 220.0));
    amat.addCircle(p, random.uniform(1.0, 40.0));
    amat.addLine({p, cv::Point2d(random.uniform(0.0, 300.0), random.uniform(0.0, 200.0))});
  }
  // Beyond some size a line is drawn in parts, which is not left to how much of it lies in a band.
  std::vector<cv::Point2d> corners;
  for (int i = 0; i < 40; ++i) {
    corners.emplace_back(random.uniform(0.0, 300.0), i % 2 == 0 ? 3.3 : 397.6);
  }
  amat.addLine(corners);
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  cv::Mat const one = amat.draw().picture;
  for (int const count : {2, 7}) {
    cv::setNumThreads(count);
    EXPECT_EQ(cv::norm(amat.draw().picture, one, cv::NORM_INF), 0);
  }
  cv::setNumThreads(threads);
}

TEST(AMat, MarksOfEveryKindAreWholeWhereverRowsAreDivided) {
  AMat amat(cv::Mat(700, 200, CV_8U, cv::Scalar(90)));
  cv::RNG random(8);
  for (int i = 0; i < 300; ++i) {
    cv::Point2d const p(random.uniform(-20.0, 220.0), random.uniform(-20.0, 720.0));
    cv::Point2d const q = p + cv::Point2d(random.uniform(-40.0, 40.0), random.uniform(-40.0, 40.0));
    MarkStyle filled;
    filled.isFilled = true;
    filled.opacity = 0.4;
    switch (i % 6) {
    case 0:
      amat.addCircle(p, random.uniform(1.0, 30.0));
      break;
    case 1:
      amat.addArrow(p, q);
      break;
    case 2:
      amat.addText(p, "Band\nand seam");
      break;
    case 3:
      amat.addPolygon({p, q, {p.x, q.y}}, filled);
      break;
    case 4:
      amat.addEllipse(p, cv::Size2d(12.0, 5.0), 30.0, filled);
      break;
    default:
      amat.addCross(p);
    }
  }
  cv::Mat const all = amat.draw().picture;
  // Rows are divided elsewhere in every part of the picture.
  for (int const first : {31, 64, 97}) {
    DrawSettings settings;
    settings.markScale = 1.0;
    settings.crop = {0, first, 200, 560};
    // Words whose place lies outside are left out, whole.
    cv::Range const inside(60, 500);
    EXPECT_LE(cv::norm(amat.draw(settings).picture.rowRange(inside),
                       all.rowRange(first + inside.start, first + inside.end), cv::NORM_INF),
              1)
        << first;
  }
}

} // namespace
} // namespace vorn::mv
