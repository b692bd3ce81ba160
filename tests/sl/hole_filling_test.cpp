// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/hole_filling.hpp"

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

namespace vorn::mv::sl {
namespace {

/// A smooth surface in radians of projector phase, with a hole in its middle.
struct Surface {
  cv::Mat_<float> phase;
  cv::Mat_<uchar> kept;
  cv::Mat_<float> truth;

  explicit Surface(int holeRadius, float step = 0.0F, cv::Size const& size = {70, 60})
      : phase(size), kept(size, uchar{255}) {
    for (int y = 0; y < phase.rows; ++y) {
      for (int x = 0; x < phase.cols; ++x) {
        auto const u = static_cast<float>(x - 35);
        auto const v = static_cast<float>(y - 30);
        phase(y, x) = 200.0F + 0.7F * u - 0.1F * v + 0.004F * u * v + 0.006F * u * u + (x > 35 ? step : 0.0F);
      }
    }
    truth = phase.clone();
    cv::circle(kept, {35, 30}, holeRadius, cv::Scalar(0), cv::FILLED);
    phase.setTo(noPhase, kept == 0);
  }

  int fill(
      int maxRadius, OwnPhase const& own = [](cv::Point) { return noPhase; }) {
    std::vector<Run> missing;
    findSegments(
        kept.size(), [&](int y, uchar* /*room*/) { return kept[y]; }, 0, Neighbourhood::Eight, missing);
    ScanMaps maps;
    maps.createWithoutCode(kept.size());
    phase.copyTo(maps.wrapped.inner);
    maps.order.inner.setTo(0);
    maps.state.inner.setTo(pixel_state::noCode);
    maps.state.inner.setTo(pixel_state::trusted, kept);
    auto const put = [&](cv::Point p, float value) {
      phase(p) = value;
      kept(p) = 255;
    };
    return fillHoles(maps, missing, maxRadius, own, put);
  }
};

TEST(HoleFilling, ClosesWhatFitsIntoTheRadius) {
  // A quadratic surface is met exactly but for float rounding of phases of some hundred radians.
  constexpr double rounding = 1e-4;
  Surface surface(5);
  int const missing = surface.kept.rows * surface.kept.cols - cv::countNonZero(surface.kept);
  EXPECT_EQ(surface.fill(0), 0);
  EXPECT_EQ(surface.fill(4), 0);
  EXPECT_EQ(surface.fill(5), missing);
  EXPECT_EQ(cv::countNonZero(surface.kept == 0), 0);
  EXPECT_LT(cv::norm(cv::Mat(surface.phase), cv::Mat(surface.truth), cv::NORM_INF), rounding);
}

TEST(HoleFilling, LeavesHolesAcrossADepthStepAndAtTheBorder) {
  // A step of a whole period, invisible in the wrapped phase.
  Surface step(4, 6.2832F);
  EXPECT_EQ(step.fill(9), 0);
  Surface border(0);
  border.kept(cv::Rect(0, 20, 3, 3)).setTo(0);
  border.kept(cv::Rect(30, 57, 2, 3)).setTo(0);
  EXPECT_EQ(border.fill(9), 1);
}

TEST(HoleFilling, LeavesNarrowButLongHoles) {
  Surface wire(0);
  wire.kept(cv::Rect(10, 12, 40, 2)).setTo(0);
  EXPECT_EQ(wire.fill(9), 1);
}

TEST(HoleFilling, AsksForASmoothSurroundingByTheRootOfTheMeanSquare) {
  // Neighbours that alternate about a surface by so much are that far from it, root mean square.
  for (auto const& [ripple, isFilled] : {std::pair(0.45F, true), std::pair(0.6F, false)}) {
    Surface surface(4);
    for (int y = 0; y < surface.phase.rows; ++y) {
      for (int x = 0; x < surface.phase.cols; ++x) {
        surface.phase(y, x) += (x + y) % 2 == 0 ? ripple : -ripple;
      }
    }
    EXPECT_EQ(surface.fill(9) > 0, isFilled) << ripple;
  }
}

/// The value at a missing pixel of the quadratic surface through the pixels of a window that are kept.
double surfaceThrough(Surface const& surface, cv::Rect const& window, cv::Point const& at) {
  auto const terms = [&](cv::Point const& p) {
    double const u = p.x - at.x;
    double const v = p.y - at.y;
    return cv::Mat(cv::Matx<double, 1, 6>(1, u, v, u * u, u * v, v * v));
  };
  cv::Mat rows;
  cv::Mat values;
  for (int y = window.y; y < window.br().y; ++y) {
    for (int x = window.x; x < window.br().x; ++x) {
      if (surface.kept(y, x) != 0) {
        rows.push_back(terms({x, y}));
        values.push_back(static_cast<double>(surface.phase(y, x)));
      }
    }
  }
  cv::Mat coefficients;
  cv::solve(rows, values, coefficients, cv::DECOMP_SVD);
  return coefficients.at<double>(0);
}

TEST(HoleFilling, EachHoleOfManyGetsTheSurfaceAroundIt) {
  // Holes of one to six pixels, with others in their windows: some thousand shapes of what is around.
  Surface surface(0, 0.0F, {200, 150});
  surface.kept.setTo(255);
  surface.phase = surface.truth.clone();
  cv::Mat_<float> noise(surface.phase.size());
  cv::RNG random(7);
  random.fill(noise, cv::RNG::NORMAL, 0, 0.2);
  surface.phase += noise;
  std::vector<cv::Rect> holes;
  for (int y = 4; y < 144; y += 3) {
    for (int x = 4; x < 194; x += 5) {
      holes.emplace_back(x + random.uniform(0, 2), y, random.uniform(1, 4), random.uniform(1, 3));
      surface.kept(holes.back()).setTo(0);
      surface.phase(holes.back()).setTo(noPhase);
    }
  }
  Surface filled = surface;
  filled.phase = surface.phase.clone();
  filled.kept = surface.kept.clone();
  EXPECT_EQ(filled.fill(9), cv::countNonZero(surface.kept == 0));
  for (cv::Rect const& hole : holes) {
    cv::Rect const window(hole.x - 2, hole.y - 2, hole.width + 4, hole.height + 4);
    for (cv::Point const& at : {hole.tl(), hole.br() - cv::Point(1, 1)}) {
      EXPECT_NEAR(filled.phase(at), surfaceThrough(surface, window, at), 1e-4) << hole;
    }
  }
}

TEST(HoleFilling, PixelsOwnPhasesDecide) {
  Surface surface(4);
  cv::Point const agreeing(36, 30);
  cv::Point const contradicting(33, 31);
  constexpr float noise = 0.3F;
  auto const own = [&](cv::Point p) {
    float const wrapped = std::fmod(surface.truth(p), 6.2831853F);
    return p == agreeing        ? wrapped + noise
           : p == contradicting ? std::fmod(wrapped + 3.0F, 6.2831853F)
                                : noPhase;
  };
  int const missing = cv::countNonZero(surface.kept == 0);
  EXPECT_EQ(surface.fill(9, own), missing - 1);
  EXPECT_NEAR(surface.phase(agreeing), surface.truth(agreeing) + noise, 1e-3);
  EXPECT_EQ(surface.kept(contradicting), 0);
}

} // namespace
} // namespace vorn::mv::sl
