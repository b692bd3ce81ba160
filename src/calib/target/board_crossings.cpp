// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/board_crossings.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace vorn::mv {
namespace {

double levelAt(cv::Mat const& image, cv::Point2d const& at) {
  int const x = std::clamp(cvRound(at.x), 0, image.cols - 1);
  int const y = std::clamp(cvRound(at.y), 0, image.rows - 1);
  return image.at<unsigned char>(y, x);
}

/// Whether a ring of pixels around a place has two bright and two dark arcs.
bool isCrossing(cv::Mat const& image, cv::Point const& at) {
  constexpr int samples = 24;
  constexpr double radius = 4;
  constexpr double leastRange = 6; // grey levels
  std::array<double, samples> ring = {};
  double sum = 0;
  for (int i = 0; i < samples; ++i) {
    double const angle = 2 * CV_PI * i / samples;
    ring[static_cast<std::size_t>(i)] =
        levelAt(image, cv::Point2d(at) + radius * cv::Point2d(std::cos(angle), std::sin(angle)));
    sum += ring[static_cast<std::size_t>(i)];
  }
  auto const [least, most] = std::minmax_element(ring.begin(), ring.end());
  if (*most - *least < leastRange) {
    return false;
  }
  double const mean = sum / samples;
  int changes = 0;
  int alike = 0; // with what lies opposite
  for (int i = 0; i < samples; ++i) {
    auto const isBright = [&](int k) { return ring[static_cast<std::size_t>(k % samples)] > mean; };
    changes += isBright(i) != isBright(i + 1) ? 1 : 0;
    alike += isBright(i) == isBright(i + samples / 2) ? 1 : 0;
  }
  constexpr double leastAlike = 0.75;
  return changes == 4 && alike >= leastAlike * samples;
}

/// Whether a place is near one of those that were found by rows.
bool isNear(std::vector<cv::Point2f> const& found, cv::Point2f const& place, int distance) {
  auto const reach = static_cast<float>(distance);
  for (auto other = found.rbegin(); other != found.rend() && place.y - other->y <= reach; ++other) {
    if (std::abs(place.x - other->x) <= reach) {
      return true;
    }
  }
  return false;
}

} // namespace

double crossingContrast(cv::Mat const& smooth, Crossing const& crossing) {
  constexpr double reach = 0.25; // squares along both axes
  auto const level = [&](double x, double y) {
    return levelAt(smooth, crossing.centre + reach * (x * crossing.right + y * crossing.down));
  };
  double const upperLeft = level(-1, -1);
  double const lowerRight = level(1, 1);
  double const upperRight = level(1, -1);
  double const lowerLeft = level(-1, 1);
  double const dark = std::min(upperRight, lowerLeft) - std::max(upperLeft, lowerRight);
  double const bright = std::min(upperLeft, lowerRight) - std::max(upperRight, lowerLeft);
  return dark > 0 ? dark : -std::max(bright, 0.0);
}

std::vector<cv::Point2f> findCrossings(cv::Mat const& image) {
  constexpr double sigma = 1.5;
  constexpr double leastBend = 0.02; // of the strongest in the image
  constexpr int around = 7;          // px: of two saddles nearer than that one is the other
  cv::Mat smooth;
  cv::GaussianBlur(image, smooth, {}, sigma);
  cv::Mat xx;
  cv::Mat yy;
  cv::Mat xy;
  cv::Sobel(smooth, xx, CV_32F, 2, 0);
  cv::Sobel(smooth, yy, CV_32F, 0, 2);
  cv::Sobel(smooth, xy, CV_32F, 1, 1);
  cv::Mat const saddle = xy.mul(xy) - xx.mul(yy); // above 0 where the surface is one
  cv::Mat greatest;
  cv::dilate(saddle, greatest, cv::Mat::ones(around, around, CV_8U));
  double most = 0;
  cv::minMaxLoc(saddle, nullptr, &most);
  std::vector<cv::Point2f> crossings;
  for (int y = 0; y < saddle.rows; ++y) {
    for (int x = 0; x < saddle.cols; ++x) {
      float const value = saddle.at<float>(y, x);
      cv::Point2f const at(static_cast<float>(x), static_cast<float>(y));
      if (value > 0 && value >= leastBend * most && value >= greatest.at<float>(y, x) &&
          isCrossing(smooth, {x, y}) && !isNear(crossings, at, around / 2)) { // of equals one
        crossings.push_back(at);
      }
    }
  }
  return crossings;
}

} // namespace vorn::mv
