// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/core/library.hpp>

#include "support/expect_error.hpp"
#include "support/seed.hpp"
#include "support/target_photos.hpp"

namespace vorn::test {
namespace {

using mv::CalibPatternDetector;
using sim::Overlay;
using sim::TargetPhoto;

/// What noise of two grey levels leaves of a centre, with room for the worst lighting of these views: the
/// edge of a dot of diameter d holds it to about 0.02 / sqrt(d) px, and small dots have fewer pixels for
/// their levels.
constexpr double maxRms = 0.015;
constexpr double maxRmsSmall = 0.04;

class CalibPatternDetectorTest : public testing::Test {
protected:
  static void SetUpTestSuite() { mv::Library::init(); }

  static DetectionErrors errorsOf(TargetPhoto const& photo,
                                  CalibPatternDetector const& detector = targetDetector()) {
    auto const result = detector.detect(sim::render(photo));
    EXPECT_TRUE(result.isOriginMarked());
    return compare(result, photo);
  }

  static void expectAll(DetectionErrors const& errors, double rms) {
    EXPECT_EQ(errors.found, errors.visible) << errors;
    EXPECT_EQ(errors.wrong, 0) << errors;
    EXPECT_LT(errors.rms, rms) << errors;
  }
};

TEST_F(CalibPatternDetectorTest, MeasuresTheImagesOfDotCentresFromAnySide) {
  struct View {
    double dot, tilt, direction, roll, rms;
  };
  for (View const& view : {View{20, 0, 0, 0, maxRms}, View{20, 45, 60, 130, maxRms},
                           View{20, 60, 100, -77, maxRms}, View{47, 35, 10, 180, maxRms},
                           View{10, 40, 200, 33, maxRmsSmall}, View{8, 15, 200, -90, maxRmsSmall}}) {
    TargetPhoto const photo = targetPhoto(view.dot, view.tilt, view.direction, view.roll);
    cv::Mat const image = sim::render(photo);
    for (bool const quadraticFit : {false, true}) {
      SCOPED_TRACE(testing::Message() << "dots of " << view.dot << " px tilted by " << view.tilt
                                      << (quadraticFit ? ", by template" : ", by the edge"));
      CalibPatternDetector detector = targetDetector();
      detector["QuadraticFit"] = quadraticFit;
      auto const result = detector.detect(image);
      EXPECT_TRUE(result.isOriginMarked());
      expectAll(compare(result, photo), view.rms);
    }
  }
}

TEST_F(CalibPatternDetectorTest, CentresScatterLittleMoreThanTheNoiseOfTheirEdgesAllows) {
  // Of a circle of radius r, contrast C and edge blur s in noise n, no estimate scatters less than
  // n / C * sqrt(2 s / (sqrt(pi) r)) per coordinate: the Cramer-Rao bound of its blurred edge. Light that may
  // slope across the dot costs a fifth more; a centre of area is at 1.6 to 2 times the bound.
  constexpr double mostOverBound = 1.35;
  for (double const diameter : {20.0, 40.0}) {
    TargetPhoto photo = targetPhoto(diameter, 0, 0, 0);
    photo.shading = {};
    double const contrast = photo.white * (photo.target.grid.dotAlbedo - photo.target.groundAlbedo);
    double const noise = std::hypot(photo.noise, std::sqrt(1.0 / 12)); // grey levels are rounded
    double const blur = std::hypot(photo.blur, std::sqrt(1.0 / 12));   // pixels are squares
    double const bound = noise / contrast * std::sqrt(2 * blur / (std::sqrt(CV_PI) * diameter / 2));
    expectAll(errorsOf(photo), mostOverBound * bound);
  }
}

TEST_F(CalibPatternDetectorTest, KeepsIndicesWhenHalfTheTargetIsOutside) {
  for (cv::Point2d const& lookedAt : {cv::Point2d(-120, -60), cv::Point2d(130, 80), cv::Point2d(100, -90)}) {
    TargetPhoto photo = targetPhoto(20, 30, 40, 200);
    photo.cam_from_target = sim::viewOf(lookedAt, 600, 30, 40, 200);
    DetectionErrors const errors = errorsOf(photo);
    EXPECT_LT(errors.visible, 300);
    expectAll(errors, maxRms);
  }
}

TEST_F(CalibPatternDetectorTest, FindsTheTargetAmongClutter) {
  TargetPhoto photo = targetPhoto(20, 30, 20, 10);
  photo.cam_from_target = sim::viewOf({0, 0}, 1000, 30, 20, 10);
  cv::RNG random(seed());
  float const width = static_cast<float>(photo.device.resolution().width);
  float const height = static_cast<float>(photo.device.resolution().height);
  for (int i = 0; i < 200; ++i) {
    float const x = random.uniform(0.0F, 0.13F * width);
    cv::Point2f const centre(i % 2 == 0 ? x : width - x, random.uniform(0.0F, height));
    cv::Size2f const size(random.uniform(5.0F, 40.0F), random.uniform(5.0F, 40.0F));
    photo.overlays.push_back({{centre, size, random.uniform(0.0F, 180.0F)},
                              i % 3 == 0 ? Overlay::Shape::Box : Overlay::Shape::Ellipse,
                              random.uniform(0.0, 1.0)});
  }
  expectAll(errorsOf(photo), maxRms);
}

TEST_F(CalibPatternDetectorTest, LeavesOutDotsThatAreCutAndReachesThoseBeyond) {
  TargetPhoto photo = targetPhoto(20, 20, 20, 10);
  cv::Point2f const middle(0.3F * static_cast<float>(photo.device.resolution().width),
                           0.5F * static_cast<float>(photo.device.resolution().height));
  photo.overlays.push_back({{middle, {70, 1500}, 10}, Overlay::Shape::Box, 0.4});
  photo.overlays.push_back({{middle * 2.3F, {55, 35}, 70}, Overlay::Shape::Ellipse, 0.02});
  DetectionErrors const errors = errorsOf(photo);
  EXPECT_LT(errors.visible, 290);
  EXPECT_GE(errors.found, errors.visible - 3)
      << errors; // some stand too close to the bar to be told from cut ones
  EXPECT_EQ(errors.wrong, 0);
  EXPECT_LT(errors.worst, 0.1) << errors; // a dot that has lost a twentieth of its area would be off by more
}

TEST_F(CalibPatternDetectorTest, NoDotThatABarTouchesPassesFarOff) {
  constexpr double mostOff = 0.12; // px; without a look at the whole rim slightly cut dots are off by 0.2
  for (int shift = -12; shift <= 12; shift += 4) {
    TargetPhoto photo = targetPhoto(20, 20, 20, 10);
    cv::Point2f const middle(0.3F * static_cast<float>(photo.device.resolution().width) +
                                 1.7F * static_cast<float>(shift),
                             0.5F * static_cast<float>(photo.device.resolution().height));
    photo.overlays.push_back({{middle, {70, 1500}, 10}, Overlay::Shape::Box, shift > 0 ? 0.4 : 0.02});
    auto const result = targetDetector().detect(sim::render(photo));
    EXPECT_GE(result.count(), 270);
    for (mv::CalibKeyPoint const& point : result.getKeyPoints()) {
      auto const truth =
          photo.device.project(photo.cam_from_target * cv::Vec3d(point.objPnt.x, point.objPnt.y, 0));
      ASSERT_TRUE(truth);
      EXPECT_LT(cv::norm(cv::Point2d(point.imgPnt) - *truth), mostOff)
          << "bar " << shift << ", " << point.objPnt;
    }
  }
}

TEST_F(CalibPatternDetectorTest, KnowsTheMarkersInSlantedAndBlurredViews) {
  TargetPhoto slanted = targetPhoto(14, 57, 8, 238);
  slanted.blur = 1.5;
  TargetPhoto blurred = targetPhoto(20, 20, 310, 43);
  blurred.blur = 4; // a fifth of a dot
  TargetPhoto small = targetPhoto(9, 58, 100, 20);
  small.blur = 1.4; // the markers run together with their neighbours
  TargetPhoto cluttered = small;
  cv::Point2d const size(small.device.resolution().width, small.device.resolution().height);
  for (double const x : {0.35, 0.6, 0.7}) {
    cv::Point2f const centre(cv::Point2d(x * size.x, (1.1 - x) * size.y));
    cluttered.overlays.push_back({{centre, {14, 14}, 0}, Overlay::Shape::Box, 1.0});
  }
  for (TargetPhoto const& photo : {slanted, blurred, small, cluttered}) {
    DetectionErrors const errors = errorsOf(photo);
    EXPECT_GE(errors.found, 0.8 * errors.visible) << errors;
    EXPECT_EQ(errors.wrong, 0) << errors;
    EXPECT_LT(errors.rms, 0.12) << errors; // blurred dots run into each other
  }
}

TEST_F(CalibPatternDetectorTest, CopesWithLightBlurAndNoise) {
  TargetPhoto dim = targetPhoto(20, 30, 20, 10);
  dim.white = 40;
  dim.noise = 1;
  TargetPhoto uneven = targetPhoto(20, 30, 20, 10);
  uneven.shading = {1.6, 0.2};
  TargetPhoto blurred = targetPhoto(20, 30, 20, 10);
  blurred.blur = 2;
  TargetPhoto noisy = targetPhoto(20, 30, 20, 10);
  noisy.noise = 10;
  TargetPhoto bent = targetPhoto(20, 25, 20, 10);
  bent.device = sim::Device(bent.device.focal() * 0.6, bent.device.centre(), {-0.35, 0.15, 0, 0, 0},
                            bent.device.resolution());
  bent.cam_from_target = sim::viewOf({0, 0}, 450, 25, 20, 10);
  expectAll(errorsOf(uneven), maxRms);
  expectAll(errorsOf(bent), maxRms);
  expectAll(errorsOf(blurred), 2 * maxRms);
  // Noise relative to contrast is two and a half and five times that of the others.
  expectAll(errorsOf(dim), 2.5 * maxRms);
  expectAll(errorsOf(noisy), 5 * maxRms);
}

TEST_F(CalibPatternDetectorTest, CountsFromTheMiddleWithoutMarkers) {
  TargetPhoto photo = targetPhoto(20, 20, 20, 100);
  photo.target.grid.hasMarkers = false;
  auto const result = targetDetector().detect(sim::render(photo));
  // 15 columns and 21 rows in this view, of which the detector's range allows 15.
  EXPECT_EQ(result.count(), 15 * 15);
  EXPECT_FALSE(result.isOriginMarked());
  cv::Point2f origin(-1, -1);
  cv::Point2f next(-1, -1);
  for (mv::CalibKeyPoint const& point : result.getKeyPoints()) {
    origin = cv::norm(point.objPnt) == 0 ? point.imgPnt : origin;
    next = point.objPnt == cv::Point2f(15, 0) ? point.imgPnt : next;
  }
  cv::Point2d const middle = *photo.device.project(photo.cam_from_target * cv::Vec3d(0, 0, 0));
  EXPECT_LT(cv::norm(cv::Point2d(origin) - middle), 40) << "one pitch";
  EXPECT_GT(next.x - origin.x, std::abs(next.y - origin.y));
}

TEST_F(CalibPatternDetectorTest, FewerDotsThanAskedForAreNoTargetEvenAfterTheirIndicesAreCounted) {
  TargetPhoto photo = targetPhoto(20, 0, 0, 0);
  photo.target.grid.hasMarkers = false;
  cv::Mat const image = sim::render(photo);
  CalibPatternDetector detector = targetDetector();
  // Counted from their own middle, some of the dots right of the grid's middle lie left of the range.
  detector["XMin"] = -1;
  detector["YMin"] = -2;
  detector["YMax"] = 2;
  int const count = detector.detect(image).count();
  ASSERT_GE(count, 30);
  ASSERT_LT(count, 100);
  detector["MinKeypointCount"] = count;
  EXPECT_EQ(detector.detect(image).count(), count);
  detector["MinKeypointCount"] = count + 1;
  EXPECT_TRUE(detector.detect(image).isEmpty());
}

TEST_F(CalibPatternDetectorTest, FindsNothingWithoutATarget) {
  CalibPatternDetector const detector = targetDetector();
  cv::Mat noise(480, 640, CV_8U);
  cv::RNG(seed()).fill(noise, cv::RNG::UNIFORM, 0, 256);
  cv::Mat smooth;
  cv::GaussianBlur(noise, smooth, {}, 3);
  cv::normalize(smooth, smooth, 0, 255, cv::NORM_MINMAX);
  cv::Mat squares(480, 640, CV_8U);
  for (int y = 0; y < squares.rows; ++y) {
    for (int x = 0; x < squares.cols; ++x) {
      squares.at<std::uint8_t>(y, x) = (x / 20 + y / 20) % 2 == 0 ? 200 : 40;
    }
  }
  for (cv::Mat const& image :
       {cv::Mat(480, 640, CV_8U, cv::Scalar(90)), noise, smooth, squares, cv::Mat(1, 1, CV_8U),
        cv::Mat(3, 700, CV_8U, cv::Scalar(0)), cv::Mat(), cv::Mat(0, 7, CV_8UC3)}) {
    EXPECT_TRUE(detector.detect(image).isEmpty()) << image.size();
  }
}

TEST_F(CalibPatternDetectorTest, TakesColourRegionsAndEitherPolarity) {
  TargetPhoto const photo = targetPhoto(12, 20, 20, 10);
  cv::Mat const grey = sim::render(photo);
  CalibPatternDetector detector = targetDetector();
  auto const expected = detector.detect(grey);
  ASSERT_EQ(expected.count(), 315);
  auto const expectSame = [&](cv::Mat const& image) {
    auto const result = detector.detect(image);
    EXPECT_EQ(result.getImgPnts(), expected.getImgPnts());
    EXPECT_EQ(result.getObjPnts(), expected.getObjPnts());
  };
  cv::Mat frame;
  cv::copyMakeBorder(grey, frame, 5, 5, 7, 9, cv::BORDER_CONSTANT, 255);
  expectSame(frame(cv::Rect({7, 5}, grey.size())));
  cv::Mat colour;
  cv::cvtColor(grey, colour, cv::COLOR_GRAY2BGR);
  expectSame(colour);
  detector["PatternType"] = mv::CalibPatternType(mv::CalibPatternType::CircleGridGrayOnWhite);
  expectSame(255 - grey);
  EXPECT_TRUE(detector.detect(grey).isEmpty());
}

TEST_F(CalibPatternDetectorTest, RejectsOtherImageTypes) {
  CalibPatternDetector const detector;
  for (int const type : {CV_16UC1, CV_32FC1, CV_8UC4, CV_8UC2}) {
    expectError([&] { detector.detect(cv::Mat(100, 100, type, cv::Scalar::all(0))); },
                "Invalid input image type");
  }
}

TEST_F(CalibPatternDetectorTest, EveryBoundTakesEffect) {
  TargetPhoto const photo = targetPhoto(20, 50, 20, 10); // areas from 150 to 260 px², axis ratio 0.6
  cv::Mat const image = sim::render(photo);
  auto const countWith = [&](char const* name, Variant const& value) {
    CalibPatternDetector detector = targetDetector();
    detector[name] = value;
    return detector.detect(image).count();
  };
  ASSERT_EQ(targetDetector().detect(image).count(), 315);
  EXPECT_EQ(countWith("XMin", -4), 15 * 15);
  EXPECT_EQ(countWith("XMax", 3), 14 * 15);
  EXPECT_EQ(countWith("YMin", -1), 21 * 9);
  EXPECT_EQ(countWith("YMax", 2), 21 * 10);
  EXPECT_EQ(countWith("MinDotArea", 500.0), 0);
  EXPECT_EQ(countWith("MaxDotArea", 100.0), 0);
  EXPECT_EQ(countWith("MinDotRatio", 0.9), 0);
  EXPECT_EQ(countWith("MorphRadius", 10), 0);
  // Markers are 2.25 times as large as the others.
  EXPECT_EQ(countWith("MaxDotAreaMultiplier", 2.0), 312);
  // No more than half of the dots lie above the middle of their sizes.
  EXPECT_LT(countWith("MinDotAreaMultiplier", 1.0), 0.7 * 315);
  TargetPhoto few = photo;
  few.target.grid.columns = {-3, 4};
  few.target.grid.rows = {-3, 4};
  EXPECT_EQ(targetDetector().detect(sim::render(few)).count(), 49);
  CalibPatternDetector demanding = targetDetector();
  demanding["MinKeypointCount"] = 50;
  EXPECT_TRUE(demanding.detect(sim::render(few)).isEmpty());
}

TEST_F(CalibPatternDetectorTest, InnerRangeBoundsWhatMustAgreeOnOneHomography) {
  // A lens so strong that a homography found at the origin fails five dots away.
  TargetPhoto photo = targetPhoto(20, 20, 20, 10);
  photo.device = sim::Device(photo.device.focal() * 0.4, photo.device.centre(), {-1.5, 0, 0, 0, 0},
                             photo.device.resolution());
  photo.cam_from_target = sim::viewOf({0, 0}, 270, 20, 20, 10);
  cv::Mat const image = sim::render(photo);
  CalibPatternDetector detector = targetDetector();
  EXPECT_GT(detector.detect(image).count(), 100);
  for (char const* const name : {"PXMin", "PYMin"}) {
    detector[name] = -5;
  }
  for (char const* const name : {"PXMax", "PYMax"}) {
    detector[name] = 5;
  }
  EXPECT_EQ(detector.detect(image).count(), 0);
}

TEST_F(CalibPatternDetectorTest, ResultHoldsWhatIsAddedAndDrawsIt) {
  CalibPatternDetector::Result result;
  EXPECT_TRUE(result.isEmpty());
  cv::Mat canvas = cv::Mat::zeros(100, 100, CV_8UC3);
  result.draw(canvas, 5, {255, 0, 0}, {0, 0, 255});
  EXPECT_EQ(cv::countNonZero(canvas.reshape(1)), 0);
  result.addKeyPoint({{20, 30}, {0, 0}});
  result.addKeyPoint({{60, 30}, {15, 0}});
  CalibPatternDetector::Result const copy = result;
  result.getKeyPoints().front().imgPnt.x = 21;
  EXPECT_EQ(copy.getKeyPoint(0).imgPnt, cv::Point2f(20, 30));
  EXPECT_EQ(result.count(), 2);
  EXPECT_EQ(result.getImgPnts(), (std::vector<cv::Point2f>{{21, 30}, {60, 30}}));
  EXPECT_EQ(result.getObjPnts(), (std::vector<cv::Point2f>{{0, 0}, {15, 0}}));
  expectError([&] { result.getKeyPoint(2); }, "No key point 2");
  result.draw(canvas, 5, {255, 0, 0}, {0, 0, 255});
  EXPECT_GT(canvas.at<cv::Vec3b>(35, 60)[0], 100) << "the ring about the second dot";
  EXPECT_GT(canvas.at<cv::Vec3b>(30, 40)[2], 100) << "the x axis";
}

TEST_F(CalibPatternDetectorTest, DrawsWhatMakesSenseOfAbsurdResults) {
  CalibPatternDetector::Result result;
  float const noNumber = std::numeric_limits<float>::quiet_NaN();
  for (float const absurd : {noNumber, 1e38F, -1e38F, 1e9F, std::numeric_limits<float>::infinity()}) {
    result.addKeyPoint({{20, 30}, {absurd, 0}});
    result.addKeyPoint({{40, 60}, {15, absurd}});
  }
  cv::Mat canvas = cv::Mat::zeros(100, 100, CV_8UC3);
  result.draw(canvas, std::numeric_limits<int>::max(), {255, 0, 0}, {0, 0, 255});
  canvas.setTo(0);
  result.draw(canvas, 5, {255, 0, 0}, {0, 0, 255});
  EXPECT_GT(canvas.at<cv::Vec3b>(35, 20)[0], 100) << "the ring about the first dot";
  int const sizes[] = {4, 5, 6};
  cv::Mat block(3, sizes, CV_32F, cv::Scalar(0));
  expectError([&] { result.draw(block, 5, {255, 0, 0}, {0, 0, 255}); }, "3 dimensions");
}

} // namespace
} // namespace vorn::test
