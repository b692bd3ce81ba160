// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv_charuco/charuco.hpp>

#include <algorithm>
#include <cmath>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/aruco/charuco.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/detect_target.hpp>
#include <vorn/mv/calib/target_finder.hpp>
#include <vorn/mv/core/library.hpp>

#include "support/expect_error.hpp"

namespace vorn::test {
namespace {

using mv::Detection;
using mv::detectTarget;
using mv::TargetDescription;
using mv::TargetKind;

constexpr double square = 12;
constexpr double marker = 8.4;

/// A board of 9 x 6 inner corners.
TargetDescription boardOf(std::string const& dictionary = "DICT_5X5_100") {
  TargetDescription target;
  target.kind = TargetKind::Charuco;
  target.pitch = square;
  target.size = {9, 6};
  target.markerSize = marker;
  target.dictionary = dictionary;
  return target;
}

/// Pixels a millimetre of a drawn board; cells of markers are whole pixels.
constexpr int drawn = 10;

/// The board as OpenCV draws it, `drawn` pixels a millimetre, with a square of white around it.
cv::Mat drawBoard(cv::Size const& squares = {10, 7},
                  cv::aruco::PREDEFINED_DICTIONARY_NAME dictionary = cv::aruco::DICT_5X5_100) {
  auto const board = cv::aruco::CharucoBoard::create(squares.width, squares.height,
                                                     static_cast<float>(square), static_cast<float>(marker),
                                                     cv::aruco::getPredefinedDictionary(dictionary));
  cv::Mat picture;
  int const side = cvRound(square * drawn);
  board->draw({side * (squares.width + 2), side * (squares.height + 2)}, picture, side);
  return picture;
}

/// A slanted view of a drawn board: image_from_target, both with pixel centres at whole numbers, and the
/// picture, each pixel the mean of 8 x 8 samples.
struct View {
  cv::Matx33d image_from_target;
  cv::Mat image;
};

View viewOf(cv::Mat const& picture, cv::Size const& size = {960, 720}, double scale = 1) {
  auto const side = static_cast<float>(square * drawn);
  // The first inner corner lies two squares into the picture, with its white border.
  std::vector<cv::Point2f> const corners = {
      {-2 * side, -2 * side},
      {static_cast<float>(picture.cols) - 2 * side, -2 * side},
      {static_cast<float>(picture.cols) - 2 * side, static_cast<float>(picture.rows) - 2 * side},
      {-2 * side, static_cast<float>(picture.rows) - 2 * side}};
  std::vector<cv::Point2f> onTarget;
  std::vector<cv::Point2f> seen = {{90, 60}, {900, 130}, {830, 640}, {60, 590}};
  for (std::size_t i = 0; i < corners.size(); ++i) {
    onTarget.push_back(corners[i] * (1.0F / drawn));
    seen[i] = (seen[i] - cv::Point2f(480, 360)) * scale +
              cv::Point2f(static_cast<float>(size.width), static_cast<float>(size.height)) * 0.5F;
  }
  View view;
  view.image_from_target = cv::getPerspectiveTransform(onTarget, seen);
  constexpr int samples = 8;
  // Edges between pixels of the drawing lie half a pixel before their centres; a sample likewise.
  cv::Matx33d const drawing(drawn, 0, 2 * side - 0.5, 0, drawn, 2 * side - 0.5, 0, 0, 1);
  cv::Matx33d const fine(samples, 0, 0.5 * samples - 0.5, 0, samples, 0.5 * samples - 0.5, 0, 0, 1);
  cv::Mat large;
  cv::warpPerspective(picture, large, cv::Mat(fine * view.image_from_target * drawing.inv()), size * samples,
                      cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(255));
  cv::resize(large, view.image, size, 0, 0, cv::INTER_AREA);
  cv::Mat(view.image * 0.7 + 30).convertTo(view.image, CV_8U);
  return view;
}

cv::Point2d seenAt(View const& view, cv::Point const& index) {
  cv::Vec3d const p = view.image_from_target * cv::Vec3d(square * index.x, square * index.y, 1);
  return {p[0] / p[2], p[1] / p[2]};
}

/// The root mean square and the greatest distance of the key points from where the view shows them, px.
cv::Point2d errorsOf(Detection const& detection, View const& view) {
  double squares = 0;
  double worst = 0;
  for (std::size_t i = 0; i < detection.keyPoints.size(); ++i) {
    double const off =
        cv::norm(cv::Point2d(detection.keyPoints[i].imgPnt) - seenAt(view, detection.indices[i]));
    squares += off * off;
    worst = std::max(worst, off);
  }
  return {std::sqrt(squares / static_cast<double>(detection.keyPoints.size())), worst};
}

class Charuco : public testing::Test {
protected:
  static void SetUpTestSuite() {
    mv::Library::init();
    mv::useCharuco();
  }
};

TEST_F(Charuco, EveryCornerOfASlantedBoardIsWhereItsCornerIs) {
  View const view = viewOf(drawBoard());
  Detection const detection = detectTarget(view.image, boardOf());
  ASSERT_EQ(detection.keyPoints.size(), 54U) << detection.reason;
  EXPECT_EQ(detection.readings, 1);
  EXPECT_TRUE(detection.isOriginMarked);
  cv::Point2d const errors = errorsOf(detection, view);
  EXPECT_LT(errors.x, 0.015);
  EXPECT_LT(errors.y, 0.05);
  // By rows, as of all targets.
  for (std::size_t i = 0; i < detection.indices.size(); ++i) {
    EXPECT_EQ(detection.indices[i], cv::Point(static_cast<int>(i) % 9, static_cast<int>(i) / 9));
    EXPECT_EQ(detection.keyPoints[i].objPnt, cv::Point2f(cv::Point2d(detection.indices[i]) * square));
  }
  // Turned upside down the same corners keep their indices.
  View turned = view;
  cv::rotate(view.image, turned.image, cv::ROTATE_180);
  turned.image_from_target =
      cv::Matx33d(-1, 0, view.image.cols - 1, 0, -1, view.image.rows - 1, 0, 0, 1) * view.image_from_target;
  Detection const upsideDown = detectTarget(turned.image, boardOf());
  EXPECT_EQ(upsideDown.keyPoints.size(), 54U);
  EXPECT_LT(errorsOf(upsideDown, turned).y, 0.1);
}

TEST_F(Charuco, ACoveredBoardGivesTheCornersThatAreInView) {
  View view = viewOf(drawBoard());
  // A dark hand over the right half, its edge slanted through squares.
  std::vector<cv::Point> const hand = {{500, 0}, {960, 0}, {960, 720}, {430, 720}};
  cv::fillConvexPoly(view.image, hand, cv::Scalar(50), cv::LINE_AA);
  Detection const detection = detectTarget(view.image, boardOf());
  int visible = 0;
  for (int y = 0; y < 6; ++y) {
    for (int x = 0; x < 9; ++x) {
      cv::Point2d const at = seenAt(view, {x, y});
      visible += cv::pointPolygonTest(hand, cv::Point2f(at), true) < -40 ? 1 : 0; // with a square around
    }
  }
  EXPECT_GT(visible, 15);
  EXPECT_GE(static_cast<int>(detection.keyPoints.size()), visible) << detection.reason;
  EXPECT_LT(errorsOf(detection, view).y, 0.15);
  for (auto const& point : detection.keyPoints) {
    EXPECT_LT(cv::pointPolygonTest(hand, point.imgPnt, true), 0);
  }
}

TEST_F(Charuco, NoisyDeepSmallAndLargeImages) {
  cv::Mat const picture = drawBoard();
  for (double const scale : {0.5, 3.0}) {
    SCOPED_TRACE(scale);
    View view = viewOf(picture, cv::Size(cvRound(960 * scale), cvRound(720 * scale)), scale);
    cv::GaussianBlur(view.image, view.image, {}, 0.6 * scale);
    cv::Mat deep;
    view.image.convertTo(deep, CV_16U, 16);
    cv::Mat noise(deep.size(), CV_16S);
    cv::RNG random(7);
    random.fill(noise, cv::RNG::NORMAL, 0, 40);
    cv::add(deep, noise, deep, cv::noArray(), CV_16U);
    Detection const detection = detectTarget(deep, boardOf());
    EXPECT_GE(detection.keyPoints.size(), 53U) << detection.reason;
    EXPECT_LT(errorsOf(detection, view).x, 0.04);
  }
}

TEST_F(Charuco, DimImagesAndNegatives) {
  View const view = viewOf(drawBoard());
  for (auto const& [scale, offset] : {std::pair(0.04, 3.0), {-1.0, 255.0}, {-0.06, 20.0}}) {
    SCOPED_TRACE(scale);
    cv::Mat image; // seven to eleven grey levels from dark to bright where it is dim
    view.image.convertTo(image, CV_8U, scale, offset);
    Detection const detection = detectTarget(image, boardOf());
    EXPECT_EQ(detection.keyPoints.size(), 54U) << detection.reason;
    EXPECT_LT(errorsOf(detection, view).y, 0.2);
  }
}

TEST_F(Charuco, BoardsOfOlderProgramsAreCountedRight) {
  // With an even number of rows their upper left square holds a marker; here by markers put into an own
  // drawing.
  TargetDescription target = boardOf();
  target.size = {9, 5};
  auto const dictionary = cv::aruco::getPredefinedDictionary(cv::aruco::DICT_5X5_100);
  cv::Mat picture(8 * 120, 12 * 120, CV_8U, cv::Scalar(255));
  int number = 0;
  for (int y = 0; y < 6; ++y) {
    for (int x = 0; x < 10; ++x) {
      cv::Mat place = picture(cv::Rect((x + 1) * 120, (y + 1) * 120, 120, 120));
      if ((x + y) % 2 != 0) {
        place.setTo(0);
      } else {
        cv::Mat cells;
        dictionary->drawMarker(number++, 84, cells);
        cells.copyTo(place(cv::Rect(18, 18, 84, 84)));
      }
    }
  }
  View const view = viewOf(picture);
  Detection const detection = detectTarget(view.image, target);
  EXPECT_EQ(detection.keyPoints.size(), 45U) << detection.reason;
  EXPECT_LT(errorsOf(detection, view).y, 0.1);
}

TEST_F(Charuco, OtherBoardsAreRefusedWithWhatWasSeen) {
  cv::Mat const image = viewOf(drawBoard()).image;
  auto const expectNone = [&](TargetDescription const& target, std::string const& reason) {
    Detection const detection = detectTarget(image, target);
    EXPECT_TRUE(detection.isEmpty()) << detection.keyPoints.size();
    EXPECT_NE(detection.reason.find(reason), std::string::npos) << detection.reason;
  };
  expectNone(boardOf("DICT_6X6_250"), "none is a marker of DICT_6X6_250");
  TargetDescription narrow = boardOf();
  narrow.size = {7, 6};
  expectNone(narrow, "8 x 7 squares");
  TargetDescription later = boardOf();
  later.firstMarker = 40;
  expectNone(later, "0 have the board's numbers, 40 to 74");
  Detection const nothing = detectTarget(cv::Mat(480, 640, CV_8U, cv::Scalar(128)), boardOf());
  EXPECT_TRUE(nothing.isEmpty());
  EXPECT_FALSE(nothing.reason.empty());
  expectError([&] { detectTarget(image, boardOf("DICT_5X5")); }, "DICT_5X5_100");
  TargetDescription huge = boardOf("DICT_5X5_50");
  huge.size = {15, 10};
  expectError([&] { detectTarget(image, huge); }, "ends at 49");
}

TEST_F(Charuco, DarkPartsAreOpenCvsDrawing) {
  for (cv::Size const& squares : {cv::Size(10, 7), cv::Size(5, 8)}) {
    TargetDescription target = boardOf();
    target.size = squares - cv::Size(1, 1);
    cv::Mat const expected = drawBoard(squares);
    cv::Mat picture(expected.size(), CV_8U, cv::Scalar(255));
    int const side = cvRound(square * drawn);
    for (cv::Rect2d const& part : mv::targetFinder(TargetKind::Charuco)->darkParts(target)) {
      picture(cv::Rect(cvRound(part.x * drawn) + 2 * side, cvRound(part.y * drawn) + 2 * side,
                       cvRound(part.width * drawn), cvRound(part.height * drawn)))
          .setTo(0);
    }
    EXPECT_EQ(cv::norm(picture, expected, cv::NORM_L1), 0);
  }
}

TEST_F(Charuco, DescriptionsRoundTripAndAreHeldToTheirBounds) {
  nlohmann::json json;
  TargetDescription target = boardOf();
  target.firstMarker = 3;
  target.write(json);
  TargetDescription back;
  back.read(json);
  EXPECT_EQ(back.kind, TargetKind::Charuco);
  EXPECT_EQ(back.markerSize, marker);
  EXPECT_EQ(back.dictionary, "DICT_5X5_100");
  EXPECT_EQ(back.firstMarker, 3);
  json.erase("size");
  json["squares"] = {10, 7};
  back.read(json);
  EXPECT_EQ(back.size, cv::Size(9, 6));
  json["size"] = {10, 7};
  expectError([&] { back.read(json); }, "do not agree");
  json.erase("size");
  json["markerSize"] = 12;
  expectError([&] { back.read(json); }, "12");
  json["markerSize"] = 8;
  json.erase("dictionary");
  expectError([&] { back.read(json); }, "dictionary");
}

TEST_F(Charuco, WithoutAFinderTheKindIsRefused) {
  auto const finder = mv::targetFinder(TargetKind::Charuco);
  mv::setTargetFinder(TargetKind::Charuco, nullptr);
  expectError([] { detectTarget(cv::Mat(48, 64, CV_8U, cv::Scalar(0)), boardOf()); }, "useCharuco");
  mv::setTargetFinder(TargetKind::Charuco, finder);
  expectError([&] { mv::setTargetFinder(TargetKind::Circles, finder); }, "without a finder");
}

} // namespace
} // namespace vorn::test
