// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/detect_target.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/core/library.hpp>

#include "support/expect_error.hpp"
#include "support/target_photos.hpp"

namespace vorn::test {
namespace {

using mv::Detection;
using mv::detectTarget;
using mv::TargetDescription;
using mv::TargetKind;
using mv::TargetPolarity;
using sim::TargetPhoto;

constexpr double pitch = 15;

TargetDescription plainTarget(cv::Size const& size, TargetKind kind = TargetKind::Circles) {
  TargetDescription target;
  target.kind = kind;
  target.pitch = pitch;
  target.size = size;
  return target;
}

/// A view of a plain grid whose first dot is at (0, 0), turned by `roll` degrees in the image.
TargetPhoto plainPhoto(cv::Size const& places, double roll, double tilt = 25) {
  TargetPhoto photo = targetPhoto(20, 0, 0, 0);
  photo.target.grid.hasMarkers = false;
  photo.target.grid.columns = {0, places.width};
  photo.target.grid.rows = {0, places.height};
  cv::Point2d const middle(0.5 * pitch * (places.width - 1), 0.5 * pitch * (places.height - 1));
  photo.cam_from_target = sim::viewOf(middle, 750, tilt, 40, roll);
  return photo;
}

/// How many key points stand where the target's points of their indices are seen; -1 when any stands
/// elsewhere.
int rightPoints(Detection const& detection, TargetPhoto const& photo) {
  constexpr double mostOff = 0.1; // pixels
  for (std::size_t i = 0; i < detection.keyPoints.size(); ++i) {
    mv::CalibKeyPoint const& point = detection.keyPoints[i];
    auto const truth =
        photo.device.project(photo.cam_from_target * cv::Vec3d(point.objPnt.x, point.objPnt.y, 0));
    bool const isIndexRight = point.objPnt == cv::Point2f(cv::Point2d(detection.indices[i]) * pitch);
    if (!truth || cv::norm(*truth - cv::Point2d(point.imgPnt)) > mostOff || !isIndexRight) {
      return -1;
    }
  }
  return static_cast<int>(detection.keyPoints.size());
}

class DetectTarget : public testing::Test {
protected:
  static void SetUpTestSuite() { mv::Library::init(); }
};

TEST_F(DetectTarget, TakesEveryDepthAndPolarity) {
  TargetPhoto const photo = targetPhoto(20, 20, 30, 10);
  cv::Mat const grey = sim::render(photo);
  TargetDescription target = plainTarget({21, 15});
  target.first = {-10, -7};
  target.marks = {{0, 0}, {1, 0}, {0, 1}};
  Detection const expected = detectTarget(grey, target);
  EXPECT_EQ(rightPoints(expected, photo), 315);
  EXPECT_TRUE(expected.isOriginMarked);
  auto const expectAlike = [&](cv::Mat const& image) {
    SCOPED_TRACE(image.type());
    Detection const found = detectTarget(image, target);
    ASSERT_EQ(found.indices, expected.indices);
    double squares = 0;
    for (std::size_t i = 0; i < found.keyPoints.size(); ++i) {
      cv::Point2f const move = found.keyPoints[i].imgPnt - expected.keyPoints[i].imgPnt;
      squares += move.ddot(move);
    }
    constexpr double mostOff = 2e-4; // pixels: only the search's bytes are rounded anew
    EXPECT_LT(std::sqrt(squares / static_cast<double>(2 * found.keyPoints.size())), mostOff);
  };
  for (auto const& [type, scale] :
       {std::pair(CV_16U, 4.0), {CV_16U, 16.0}, {CV_16U, 257.0}, {CV_32F, 1 / 255.0}, {CV_64F, -1e4}}) {
    cv::Mat image;
    grey.convertTo(image, type, scale, 3);
    expectAlike(image);
  }
  cv::Mat deep;
  grey.convertTo(deep, CV_16U, 16);
  cv::Mat colour;
  cv::cvtColor(deep, colour, cv::COLOR_GRAY2BGR);
  expectAlike(colour);
  expectAlike(255 - grey);
  cv::Mat holed;
  grey.convertTo(holed, CV_32F);
  holed.row(3).setTo(std::numeric_limits<float>::quiet_NaN());
  expectAlike(holed);
  EXPECT_TRUE(std::isnan(holed.at<float>(3, 5))) << "the caller's image stays as it is";
  cv::Mat glints; // pixels that stand at the end of the scale, far above all that the target shows
  grey.convertTo(glints, CV_16U, 4);
  for (int i = 0; i < 40; ++i) {
    glints.at<ushort>(2 + i % 3, 7 * i + 5) = 65535;
  }
  expectAlike(glints);
  target.polarity = TargetPolarity::Dark;
  EXPECT_TRUE(detectTarget(grey, target).isEmpty());
}

/// Root mean square of one coordinate's error; infinite when a point is missing or wrong.
double errorOf(Detection const& detection, TargetPhoto const& photo, int expected) {
  if (rightPoints(detection, photo) != expected) {
    return std::numeric_limits<double>::infinity();
  }
  double squares = 0;
  for (mv::CalibKeyPoint const& point : detection.keyPoints) {
    auto const truth =
        photo.device.project(photo.cam_from_target * cv::Vec3d(point.objPnt.x, point.objPnt.y, 0));
    cv::Point2d const off = cv::Point2d(point.imgPnt) - cv::Point2d(*truth);
    squares += off.dot(off);
  }
  return std::sqrt(squares / static_cast<double>(2 * expected));
}

TEST_F(DetectTarget, MeasuresDotsInTheImagesFullDepth) {
  // Dots of a dozen grey levels beside a lamp that takes the rest of the scale, and little noise.
  TargetPhoto photo = plainPhoto({12, 9}, 10);
  photo.white = 16;
  photo.noise = 0.05;
  photo.bits = 12;
  photo.overlays.push_back({{{30, 30}, {40, 40}, 0}, sim::Overlay::Shape::Box, 14});
  cv::Mat const image = sim::render(photo);
  cv::Mat bytes;
  image.convertTo(bytes, CV_8U, 1 / 16.0);
  for (bool const isDark : {false, true}) {
    cv::Mat const deep = isDark ? cv::Mat(4095 - image) : image;
    TargetDescription const target = plainTarget({12, 9});
    double const full = errorOf(detectTarget(deep, target), photo, 108);
    EXPECT_LT(full, 0.006);
    EXPECT_LT(full, 0.4 * errorOf(detectTarget(isDark ? cv::Mat(255 - bytes) : bytes, target), photo, 108));
  }
}

TEST_F(DetectTarget, LightFromTheSideDoesNotDrawSmallDotsToIt) {
  // A projector beside the camera lights one side of the target half as much again as the other. Dots of 12
  // pixels have too few of their own to show the slope.
  for (bool const isDark : {false, true}) {
    TargetPhoto photo = plainPhoto({24, 18}, 10, 0);
    photo.target.grid.dotAlbedo = isDark ? 0.1 : 0.85;
    photo.target.groundAlbedo = isDark ? 0.85 : 0.25;
    photo.cam_from_target = sim::viewOf({0.5 * pitch * 23, 0.5 * pitch * 17}, 1250, 10, 40, 10);
    photo.blur = 1;
    photo.noise = 0.3;
    photo.bits = 12;
    photo.shading = {0.8, 0};
    Detection const found = detectTarget(sim::render(photo), plainTarget({24, 18}));
    ASSERT_GT(found.keyPoints.size(), 400U) << found.reason;
    cv::Point2d sum;
    for (mv::CalibKeyPoint const& point : found.keyPoints) {
      sum += cv::Point2d(point.imgPnt) -
             *photo.device.project(photo.cam_from_target * cv::Vec3d(point.objPnt.x, point.objPnt.y, 0));
    }
    EXPECT_LT(cv::norm(sum) / static_cast<double>(found.keyPoints.size()), 0.0005) << isDark;
  }
}

TEST_F(DetectTarget, AWholeGridOfKnownSizeFixesItsIndices) {
  // A rectangle looks the same after half a turn, a square after a quarter.
  for (auto const& [size, readings] : {std::pair(cv::Size(12, 9), 2), {cv::Size(8, 8), 4}}) {
    TargetPhoto const photo = plainPhoto(size, 12);
    Detection const detection = detectTarget(sim::render(photo), plainTarget(size));
    EXPECT_EQ(rightPoints(detection, photo), size.area()) << detection.reason;
    EXPECT_EQ(detection.readings, readings);
    EXPECT_FALSE(detection.isOriginMarked);
  }
}

TEST_F(DetectTarget, AGridThatIsCutOrOfAnotherSizeIsRefusedWithItsSize) {
  TargetPhoto photo = plainPhoto({12, 9}, 0, 0);
  auto const cover = [&](cv::Point const& index) {
    auto const place =
        photo.device.project(photo.cam_from_target * cv::Vec3d(pitch * index.x, pitch * index.y, 0));
    photo.overlays.push_back({{cv::Point2f(*place), {36, 36}, 0}, sim::Overlay::Shape::Box, 0.25});
  };
  cover({0, 0});
  cover({5, 4});
  EXPECT_EQ(rightPoints(detectTarget(sim::render(photo), plainTarget({12, 9})), photo), 106)
      << "with two gaps";
  for (cv::Size const& size : {cv::Size(12, 10), cv::Size(11, 9), cv::Size(13, 9)}) {
    Detection const other = detectTarget(sim::render(photo), plainTarget(size));
    EXPECT_TRUE(other.isEmpty()) << size;
    EXPECT_NE(other.reason.find("12 x 9"), std::string::npos) << other.reason;
  }
  for (int row = 0; row < 9; ++row) {
    cover({11, row});
  }
  Detection const cut = detectTarget(sim::render(photo), plainTarget({12, 9}));
  EXPECT_TRUE(cut.isEmpty());
  EXPECT_NE(cut.reason.find("11 x 9"), std::string::npos) << cut.reason;
}

TEST_F(DetectTarget, AStaggeredGridIsCountedRightAnyWayRound) {
  for (double const roll : {0.0, 100.0, 180.0, -80.0}) {
    TargetPhoto photo = plainPhoto({8, 11}, roll);
    photo.target.grid.isStaggered = true;
    Detection const detection =
        detectTarget(sim::render(photo), plainTarget({4, 11}, TargetKind::StaggeredCircles));
    EXPECT_EQ(rightPoints(detection, photo), 44) << roll << detection.reason;
    EXPECT_EQ(detection.readings, 1);
  }
}

TEST_F(DetectTarget, OneLargerDotTellsWhichWayRoundAGridLies) {
  for (double const roll : {0.0, 90.0, 180.0, 270.0}) {
    TargetPhoto photo = plainPhoto({10, 10}, roll, 0);
    auto const corner = photo.device.project(photo.cam_from_target * cv::Vec3d(0, 0, 0));
    photo.overlays.push_back({{cv::Point2f(*corner), {32, 32}, 0}, sim::Overlay::Shape::Ellipse, 0.85});
    TargetDescription target = plainTarget({10, 10});
    target.marks = {{0, 0}};
    Detection const detection = detectTarget(sim::render(photo), target);
    EXPECT_GE(rightPoints(detection, photo), 99) << roll << detection.reason;
    EXPECT_TRUE(detection.isOriginMarked);
    EXPECT_EQ(detection.readings, 1);
  }
}

TEST_F(DetectTarget, CornersOfAChessboardAreThoseOfItsSquares) {
  constexpr int square = 30;
  cv::Mat board(9 * square, 12 * square, CV_8U, cv::Scalar(255));
  for (int y = 1; y < 8; ++y) {
    for (int x = 1; x < 11; ++x) {
      board(cv::Rect(x * square, y * square, square, square)).setTo((x + y) % 2 == 0 ? 20 : 230);
    }
  }
  cv::Matx33d const view(0.9, 0.12, 15, -0.08, 0.85, 35, 2e-4, 4e-4, 1);
  cv::Mat image;
  cv::warpPerspective(board, image, view, {360, 300}, cv::INTER_AREA, cv::BORDER_CONSTANT, 255);
  Detection const detection = detectTarget(image, plainTarget({9, 6}, TargetKind::Chessboard));
  ASSERT_EQ(detection.keyPoints.size(), 54U) << detection.reason;
  EXPECT_EQ(detection.readings, 1);
  for (std::size_t i = 0; i < detection.indices.size(); ++i) {
    cv::Vec3d const p = view * cv::Vec3d(square * (detection.indices[i].x + 2) - 0.5,
                                         square * (detection.indices[i].y + 2) - 0.5, 1);
    EXPECT_LT(cv::norm(cv::Point2d(p[0] / p[2], p[1] / p[2]) - cv::Point2d(detection.keyPoints[i].imgPnt)),
              0.2);
  }
  Detection const other = detectTarget(image, plainTarget({9, 7}, TargetKind::Chessboard));
  EXPECT_TRUE(other.isEmpty());
  EXPECT_NE(other.reason.find("9 x 7"), std::string::npos);
  // Squares counted in place of corners.
  Detection const squares = detectTarget(image, plainTarget({10, 7}, TargetKind::Chessboard));
  EXPECT_TRUE(squares.isEmpty());
  EXPECT_NE(squares.reason.find("9 x 6 inner corners was found in place of one of 10 x 7: the size counts"),
            std::string::npos)
      << squares.reason;
}

TEST_F(DetectTarget, SaysAtWhichStepNothingWasLeft) {
  TargetDescription target = plainTarget({});
  Detection const nothing = detectTarget(cv::Mat(300, 400, CV_8U, cv::Scalar(90)), target);
  EXPECT_TRUE(nothing.isEmpty());
  EXPECT_NE(nothing.reason.find("0 are candidates"), std::string::npos) << nothing.reason;
  TargetPhoto photo = plainPhoto({12, 9}, 0);
  photo.overlays.push_back({{{260, 300}, {8, 900}, 5}, sim::Overlay::Shape::Box, 0.9});
  Detection const some = detectTarget(sim::render(photo), target);
  ASSERT_FALSE(some.isEmpty());
  EXPECT_EQ(some.readings, 0) << "the size is not known";
  ASSERT_GE(some.steps.size(), 4U);
  EXPECT_EQ(some.steps.front().name, "candidates");
  EXPECT_EQ(some.steps.back().count, static_cast<int>(some.keyPoints.size()));
  mv::DetectSettings settings;
  settings.maxDotArea = 50; // those in view have 300 px²
  EXPECT_TRUE(detectTarget(sim::render(photo), target, settings).isEmpty());
}

TEST_F(DetectTarget, EveryDotOfTheGridIsFoundOrSaidToBeDropped) {
  TargetPhoto photo = plainPhoto({12, 9}, 0);
  // Across some dots, with a grey between theirs and the ground's.
  photo.overlays.push_back({{{320, 240}, {6, 900}, 20}, sim::Overlay::Shape::Box, 0.45});
  Detection const detection = detectTarget(sim::render(photo), plainTarget({}));
  auto const inGrid = std::find_if(detection.steps.begin(), detection.steps.end(),
                                   [](auto const& step) { return step.name == "in one grid"; });
  ASSERT_NE(inGrid, detection.steps.end());
  EXPECT_LT(static_cast<int>(detection.keyPoints.size()), inGrid->count);
  EXPECT_GE(static_cast<int>(detection.keyPoints.size() + detection.dropped.size()), inGrid->count);
}

TEST_F(DetectTarget, DarkDotsAtTheEdgeOfAShadowAreAllMeasured) {
  TargetPhoto const photo = plainPhoto({12, 9}, 10);
  cv::Mat image = 255 - sim::render(photo);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      double const inside = 1 / (1 + std::exp((x - 0.4 * y - 230) / 3.0));
      image.at<std::uint8_t>(y, x) =
          cv::saturate_cast<std::uint8_t>(image.at<std::uint8_t>(y, x) * (1 - 0.35 * inside));
    }
  }
  Detection const detection = detectTarget(image, plainTarget({12, 9}));
  EXPECT_TRUE(detection.dropped.empty());
  EXPECT_EQ(rightPoints(detection, photo), 108);
}

TEST_F(DetectTarget, RefusesWhatItCannotSearch) {
  TargetDescription const target = plainTarget({12, 9});
  for (int const type : {CV_8UC2, CV_8UC4, CV_16S, CV_32S}) {
    expectError([&] { detectTarget(cv::Mat(50, 50, type, cv::Scalar::all(0)), target); },
                "Invalid input image type");
  }
  expectError([&] { detectTarget(cv::Mat(), target); }, "Invalid input image type");
  cv::Mat const image(50, 50, CV_8U, cv::Scalar(0));
  mv::DetectSettings settings;
  settings.maxDotArea = 10;
  expectError([&] { detectTarget(image, target, settings); }, "maxDotArea is 10");
  expectError([&] { detectTarget(image, TargetDescription()); }, "pitch");
}

TEST_F(DetectTarget, DeviationsOfDotsMoveThemOnTheTarget) {
  TargetPhoto const photo = plainPhoto({12, 9}, 0);
  TargetDescription target = plainTarget({12, 9});
  target.deviations = {{{3, 2}, {0.04, -0.03}}};
  Detection const detection = detectTarget(sim::render(photo), target);
  auto const at = std::find(detection.indices.begin(), detection.indices.end(), cv::Point(3, 2));
  ASSERT_NE(at, detection.indices.end());
  EXPECT_EQ(detection.keyPoints[static_cast<std::size_t>(at - detection.indices.begin())].objPnt,
            cv::Point2f(45.04F, 29.97F));
}

TEST(TargetDescriptionTest, ReadsWhatItWrites) {
  TargetDescription target = plainTarget({4, 11}, TargetKind::StaggeredCircles);
  target.polarity = TargetPolarity::Dark;
  target.marks = {{0, 2}};
  target.deviations = {{{2, 4}, {0.125, -0.25}}};
  nlohmann::json json;
  target.write(json);
  TargetDescription copy;
  copy.read(json);
  nlohmann::json again;
  copy.write(again);
  EXPECT_EQ(again, json);
  EXPECT_EQ(json.at("kind"), "staggered");
  copy.read({{"pitch", 2.5}});
  EXPECT_EQ(copy.size, cv::Size()) << "the rest may be missing";
  copy.read({{"pitch", 2.5}, {"maker", "ourselves"}});
  for (auto const& [text, message] : {std::pair(R"({})", "pitch"),
                                      {R"({"pitch": 0})", "pitch"},
                                      {R"({"pitch": 1, "seize": [4, 5]})", "did you mean \"size\""},
                                      {R"({"pitch": 1, "kind": "dots"})", "circles"},
                                      {R"({"pitch": 1, "size": [3]})", "size"},
                                      {R"({"pitch": 1, "size": [1, 5]})", "1 x 5"},
                                      {R"({"pitch": 1, "kind": "chessboard"})", "size"},
                                      {R"({"pitch": 1, "marks": 3})", "marks"}}) {
    expectError([&, json = nlohmann::json::parse(text)] { copy.read(json); }, message);
    EXPECT_EQ(copy.pitch, 2.5) << text;
  }
}

TEST(TargetDescriptionTest, OnlyTheThreeCornerPlacesAreCornerMarks) {
  TargetDescription target = plainTarget({12, 9});
  target.marks = {{0, 1}, {0, 0}, {1, 0}};
  EXPECT_TRUE(target.hasCornerMarks()) << "in any order";
  for (std::vector<cv::Point> const& others :
       {std::vector<cv::Point>{{0, 0}, {1, 0}, {4, 1}}, {{0, 0}, {0, 0}, {0, 1}}, {{0, 0}}, {}}) {
    target.marks = others;
    EXPECT_FALSE(target.hasCornerMarks());
  }
}

} // namespace
} // namespace vorn::test
