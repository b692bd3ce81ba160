// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/registration/markers.hpp>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <random>

#include <vorn/mv/registration/turntable.hpp>

#include "registration/registered_views.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using namespace vorn::test;
using Points = std::vector<cv::Vec3d>;

TEST(Markers, AreFoundAmongOthersWhateverTheirOrder) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> anywhere(0.0, 300.0);
    std::normal_distribution<double> noise(0.0, 0.02);
    cv::Matx44d const truth = motionAbout({150, 150, 150}, {100, -60, 140}, {500, -200, 40});
    // Half of them are seen in both views.
    Points source;
    Points target;
    std::vector<int> order(18);
    for (int i = 0; i < 18; ++i) {
      order[static_cast<std::size_t>(i)] = i;
    }
    std::shuffle(order.begin(), order.end(), random);
    std::vector<int> twins(18, -1);
    for (int i = 0; i < 18; ++i) {
      source.emplace_back(anywhere(random), anywhere(random), anywhere(random));
    }
    for (int const i : order) {
      bool const isShared = i < 9;
      cv::Vec3d const other(anywhere(random), anywhere(random), anywhere(random));
      cv::Vec3d const error(noise(random), noise(random), noise(random));
      twins[static_cast<std::size_t>(i)] = isShared ? static_cast<int>(target.size()) : -1;
      target.push_back(movePoint(truth, isShared ? source[static_cast<std::size_t>(i)] : other) + error);
    }
    MarkerSettings settings;
    settings.tolerance = 0.1;
    MarkerMatch const found = matchMarkers(source, target, settings);
    ASSERT_EQ(found.pairs.size(), 9U);
    for (auto const& [i, j] : found.pairs) {
      EXPECT_EQ(twins[i], static_cast<int>(j));
    }
    EXPECT_LT(found.rms, 0.06);
    EXPECT_LT(cv::norm(errorOf(found.targetFromSource, truth, movePoint(truth, {150, 150, 150}))), 0.05);
  }
}

struct MarkerViews {
  Points source;
  Points target;
};

/// Views of 90 markers each, of which the first ones are shared.
MarkerViews viewsSharing(std::size_t shared) {
  std::mt19937 random(3);
  std::uniform_real_distribution<double> anywhere(0.0, 1000.0);
  cv::Matx44d const truth = motionAbout({500, 500, 500}, {20, -60, 140}, {500, -200, 40});
  MarkerViews views;
  for (std::size_t i = 0; i < 90; ++i) {
    views.source.emplace_back(anywhere(random), anywhere(random), anywhere(random));
    views.target.push_back(movePoint(truth, views.source.back()) + cv::Vec3d(0.1, -0.1, 0.05));
    if (i >= shared) {
      views.target.back() = {anywhere(random), anywhere(random), anywhere(random)};
    }
  }
  return views;
}

/// Nearly all triangles of so many markers that a view shares few of with another are alike by chance.
TEST(Markers, FewAreFoundAmongManyOthers) {
  constexpr std::size_t shared = 12;
  auto const [source, target] = viewsSharing(shared);
  MarkerSettings settings;
  settings.tolerance = 0.5;
  MarkerMatch const found = matchMarkers(source, target, settings);
  ASSERT_EQ(found.pairs.size(), shared);
  for (std::size_t i = 0; i < shared; ++i) {
    EXPECT_EQ(found.pairs[i], std::pair(i, i));
  }
}

/// A search that ends early has seen some of what agrees by chance: only so many that chance does not bring
/// them together are believed.
TEST(Markers, SearchThatEndsEarlyBelievesNoChance) {
  MarkerSettings settings;
  settings.tolerance = 3.0;
  settings.maxComparisons = 3e5;
  MarkerViews const apart = viewsSharing(0);
  expectError([&] { matchMarkers(apart.source, apart.target, settings); },
              "90 and 90 markers agree by chance in too many ways");
  MarkerViews const alike = viewsSharing(30);
  EXPECT_GE(matchMarkers(alike.source, alike.target, settings).pairs.size(), 30U);
}

TEST(Markers, ThreeAreEnoughAndNeedNotFillSpace) {
  Points const source = {{0, 0, 0}, {40, 0, 0}, {0, 25, 0}, {std::nan(""), 0, 0}};
  for (cv::Vec3d const& turn : {cv::Vec3d(0, 0, 170), cv::Vec3d(175, 0, 0), cv::Vec3d(0, -90, 90)}) {
    cv::Matx44d const truth = motionAbout({10, 5, 0}, turn, {7, 8, 9});
    Points const target = {movePoint(truth, source[2]), movePoint(truth, source[0]),
                           movePoint(truth, source[1])};
    MarkerMatch const found = matchMarkers(source, target);
    EXPECT_EQ(found.pairs.size(), 3U);
    EXPECT_LT(cv::norm(errorOf(found.targetFromSource, truth, {7, 8, 9})), 1e-9);
  }
}

// A fourth marker makes almost the triangle with two of the others that another place makes with theirs: one
// side differs by more than two tolerances, and a motion that lays these three is no rival.
TEST(Markers, OneSideThatDiffersIsNoTriangle) {
  MarkerSettings settings;
  settings.tolerance = 0.1;
  Points const source = {{0, 0, 0}, {100, 0, 0}, {40, 30, 0}, {62, 0, 38}};
  for (double const off : {-0.21, 0.21}) {
    Points target(source.begin(), source.begin() + 3);
    // About as far from the second marker as the source's, on the other side of both.
    double const first = cv::norm(source[3]) + off;
    double const second = cv::norm(source[3] - source[1]) - 0.2 * off;
    double const along = (first * first - second * second + 1e4) / 200;
    target.emplace_back(along, 0, -std::sqrt(first * first - along * along));
    MarkerMatch const found = matchMarkers(source, target, settings);
    EXPECT_EQ(found.pairs.size(), 3U) << off;
    EXPECT_LT(cv::norm(found.targetFromSource - cv::Matx44d::eye()), 1e-9) << off;
  }
}

TEST(Markers, AreRefusedWhereTheyDoNotTell) {
  Points const square = {{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}};
  expectError([&] { matchMarkers(square, square); }, "Two motions fit 4 markers each");
  Points const line = {{0, 0, 0}, {1, 0, 0}, {5, 0, 0}, {7, 0, 0}};
  expectError([&] { matchMarkers(line, line); }, "No three markers, not on a line");
  expectError([&] { matchMarkers(square, {{0, 0, 0}, {33, 0, 0}, {0, 44, 0}}); }, "No three markers");
  expectError([&] { matchMarkers({{0, 0, 0}, {1, 0, 0}}, square); }, "The source has 2 markers");
  MarkerSettings settings;
  settings.tolerance = -1;
  expectError([&] { matchMarkers(square, square, settings); }, "tolerance is -1");
  settings = {};
  settings.maxComparisons = 0;
  expectError([&] { matchMarkers(square, square, settings); }, "maxComparisons is 0");
}

/// Places of views on a turntable about a tilted axis.
std::vector<cv::Matx44d> turned(std::vector<double> const& degrees, cv::Matx44d const& first, double error) {
  std::mt19937 random(7);
  std::normal_distribution<double> noise(0.0, error);
  cv::Vec3d const axis = cv::normalize(cv::Vec3d(0.2, -0.3, 0.9));
  std::vector<cv::Matx44d> places;
  for (double const angle : degrees) {
    cv::Vec3d const off(noise(random), noise(random), noise(random));
    places.push_back(motionAbout({30, -20, 5}, axis * angle, off) * first);
  }
  return places;
}

TEST(Turntable, AxisIsThatOfTheMotionsAndLeadsToFurtherViews) {
  cv::Matx44d const first = motionAbout({1, 2, 3}, {40, 50, -60}, {10, 20, 30});
  cv::Vec3d const axis = cv::normalize(cv::Vec3d(0.2, -0.3, 0.9));
  for (std::vector<double> const& degrees : {std::vector<double>{0, 45}, {0, 60, 120, 170, -100}}) {
    TurntableAxis const found = findTurntableAxis(turned(degrees, first, 0.0));
    EXPECT_LT(cv::norm(found.direction - axis), 1e-9);
    cv::Vec3d const offAxis = cv::Vec3d(30, -20, 5) - found.point;
    EXPECT_LT(cv::norm(offAxis.cross(axis)), 1e-8) << "on the axis";
    EXPECT_NEAR(found.point.dot(axis), 0.0, 1e-9) << "the point nearest to the origin";
    for (std::size_t i = 0; i < degrees.size(); ++i) {
      EXPECT_NEAR(found.angles[i], degrees[i] * CV_PI / 180.0, 1e-9);
    }
    EXPECT_LT(found.rms, 1e-8);
    std::vector<cv::Matx44d> const places = turntablePlaces(found, first, {CV_PI / 2, -2.0});
    std::vector<cv::Matx44d> const truth = turned({90, -360.0 / CV_PI}, first, 0.0);
    EXPECT_LT(cv::norm(places[0] - truth[0]), 1e-7);
    EXPECT_LT(cv::norm(places[1] - truth[1]), 1e-7);
  }
  // Errors of views are those of the axis, or less.
  TurntableAxis const noisy = findTurntableAxis(turned({0, 40, 80, 120, 160}, first, 0.05));
  cv::Vec3d const off = (cv::Vec3d(30, -20, 5) - noisy.point).cross(axis);
  EXPECT_LT(cv::norm(off), 0.1);
  EXPECT_GT(noisy.rms, 0.02);
  EXPECT_LT(noisy.rms, 0.3);
}

TEST(Turntable, NeedsViewsThatTurn) {
  cv::Matx44d const eye = cv::Matx44d::eye();
  expectError([&] { findTurntableAxis({eye}); }, "1 views, fewer than two");
  expectError([&] { findTurntableAxis({eye, motionAbout({}, {}, {5, 0, 0})}); }, "less than half a degree");
  expectError([&] { findTurntableAxis({eye, eye * 2.0}); }, "The place of view 1 is no rigid motion");
}

} // namespace
} // namespace vorn::mv
