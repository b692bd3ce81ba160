// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_template.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/geometry/fitting.hpp>

namespace vorn::mv {
namespace {

/// Least correlation of a candidate with a dot. Squares reach 0.9 but do not come in grids; ragged shapes
/// stay below.
constexpr double leastCorrelation = 0.7;

/// Ground around the dot that a template shows, in dot radii.
constexpr double templateReach = 1.7;

/// Grey levels of drawn dots and of rectified ones: noise has room on either side.
constexpr double groundGrey = 60;
constexpr double dotGrey = 195;

/// A dot of the given radius in the middle of a square of the given half side.
cv::Mat drawTemplate(int radius, int half, double blur) {
  int const side = 2 * half + 1;
  cv::Mat drawn = cv::Mat::zeros(side, side, CV_8U);
  cv::Point const centre(half, half);
  cv::circle(drawn, centre, 2 * side, cv::Scalar::all(groundGrey), cv::FILLED);
  cv::circle(drawn, centre, radius, cv::Scalar::all(dotGrey), cv::FILLED);
  cv::GaussianBlur(drawn, drawn, {}, blur);
  return drawn;
}

double sample(cv::Mat const& image, cv::Point2d const& p) {
  double const x = std::clamp(p.x, 0.0, image.cols - 1.001);
  double const y = std::clamp(p.y, 0.0, image.rows - 1.001);
  int const column = static_cast<int>(x);
  int const row = static_cast<int>(y);
  double const fx = x - column;
  double const fy = y - row;
  std::uint8_t const* upper = image.ptr<std::uint8_t>(row) + column;
  std::uint8_t const* lower = image.ptr<std::uint8_t>(row + 1) + column;
  return (1 - fy) * ((1 - fx) * upper[0] + fx * upper[1]) + fy * ((1 - fx) * lower[0] + fx * lower[1]);
}

/// Square patches side by side in one image, so that one correlation serves all.
class Atlas {
public:
  Atlas(std::size_t count, int half)
      : half_(half),
        columns_(std::max(1, static_cast<int>(std::ceil(std::sqrt(static_cast<double>(count)))))) {
    int const rows = (static_cast<int>(count) + columns_ - 1) / columns_;
    image_ = cv::Mat::zeros(std::max(rows, 1) * side(), columns_ * side(), CV_8U);
  }

  int side() const { return 2 * half_ + 1; }
  cv::Mat const& image() const { return image_; }

  cv::Point corner(std::size_t patch) const {
    int const number = static_cast<int>(patch);
    return {number % columns_ * side(), number / columns_ * side()};
  }

  /// Fills a patch: `grey(offset)` is the grey level at an offset from the patch's middle.
  template <class Grey>
  void fill(std::size_t patch, Grey const& grey) {
    cv::Point const at = corner(patch);
    for (int y = 0; y < side(); ++y) {
      std::uint8_t* row = image_.ptr<std::uint8_t>(at.y + y) + at.x;
      for (int x = 0; x < side(); ++x) {
        row[x] = cv::saturate_cast<std::uint8_t>(grey(cv::Point2d(x - half_, y - half_)));
      }
    }
  }

private:
  int half_;
  int columns_;
  cv::Mat image_;
};

/// The correlation of a drawn dot, given by its departure from its mean, with a part of a patch.
double correlation(cv::Mat const& part, cv::Mat const& drawn) {
  double sum = 0;
  double squares = 0;
  double products = 0;
  double drawnSquares = 0;
  for (int y = 0; y < drawn.rows; ++y) {
    auto const* seen = part.ptr<float>(y);
    auto const* expected = drawn.ptr<float>(y);
    for (int x = 0; x < drawn.cols; ++x) {
      auto const g = static_cast<double>(seen[x]);
      auto const e = static_cast<double>(expected[x]);
      sum += g;
      squares += g * g;
      products += g * e;
      drawnSquares += e * e;
    }
  }
  double const spread = squares - sum * sum / static_cast<double>(drawn.total());
  return spread > 0 ? products / std::sqrt(spread * drawnSquares) : 0.0;
}

/// Whether a drawn dot correlates well with a patch, in its middle or up to `play` beside that.
bool correlates(cv::Mat const& patch, cv::Mat const& drawn, int play) {
  auto const at = [&](int x, int y) {
    return correlation(patch(cv::Rect(cv::Point(x, y), drawn.size())), drawn) >= leastCorrelation;
  };
  if (at(play, play)) {
    return true;
  }
  for (int y = 0; y <= 2 * play; ++y) {
    for (int x = 0; x <= 2 * play; ++x) {
      if ((x != play || y != play) && at(x, y)) {
        return true;
      }
    }
  }
  return false;
}

/// Where a quadratic surface through the response around (x, y) peaks, relative to there; zero if it does
/// not.
cv::Point2d quadraticPeak(cv::Mat const& response, cv::Point const& at) {
  std::vector<cv::Point3f> points;
  for (int y = -2; y <= 2; ++y) {
    for (int x = -2; x <= 2; ++x) {
      points.emplace_back(static_cast<float>(x), static_cast<float>(y),
                          response.at<float>(at.y + y, at.x + x));
    }
  }
  cv::Mat const surface = math::quadraticFit(points);
  double const a = surface.at<double>(0);
  double const c = surface.at<double>(2);
  if (!(a < 0) || !(c < 0)) {
    return {};
  }
  cv::Point2d const peak(-0.5 * surface.at<double>(1) / a, -0.5 * surface.at<double>(3) / c);
  return std::max(std::abs(peak.x), std::abs(peak.y)) <= 1.0 ? peak : cv::Point2d();
}

} // namespace

std::vector<char> resembleDots(ReducedImage const& level, std::vector<DotCandidate> const& candidates,
                               std::vector<std::optional<GridCross>> const& crosses,
                               Progress const& progress) {
  constexpr int radius = 5;
  constexpr int half = 8; // templateReach * radius
  constexpr int play = 1;
  std::vector<char> isPart(candidates.size(), 0);
  for (std::size_t i = 0; i < crosses.size(); ++i) {
    if (crosses[i]) {
      isPart[i] = 1;
      for (int const neighbour : crosses[i]->neighbours) {
        isPart[static_cast<std::size_t>(neighbour)] = 1;
      }
    }
  }
  std::vector<std::size_t> judged;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (isPart[i] != 0) {
      judged.push_back(i);
    }
  }
  std::vector<char> resembles(candidates.size(), 1);
  cv::Mat drawn;
  drawTemplate(radius, half, 1.5).convertTo(drawn, CV_32F);
  drawn -= cv::mean(drawn);
  cv::Mat patch(2 * (half + play) + 1, 2 * (half + play) + 1, CV_32F);
  constexpr std::size_t candidatesBetweenAskings = 1024;
  for (std::size_t i = 0; i < judged.size(); ++i) {
    if (i % candidatesBetweenAskings == 0) {
      progress.at("detecting targets", static_cast<double>(i) / static_cast<double>(judged.size()));
    }
    DotCandidate const& candidate = candidates[judged[i]];
    cv::Point2d const centre = level.fromFull(candidate.centre);
    cv::Matx22d const scale = candidate.outline * (1.0 / (radius * level.factor));
    for (int y = 0; y < patch.rows; ++y) {
      for (int x = 0; x < patch.cols; ++x) {
        cv::Vec2d const step = scale * cv::Vec2d(x - half - play, y - half - play);
        patch.at<float>(y, x) =
            static_cast<float>(sample(level.image, {centre.x + step[0], centre.y + step[1]}));
      }
    }
    resembles[judged[i]] = correlates(patch, drawn, play);
  }
  return resembles;
}

std::vector<cv::Point2d> correlationPeaks(cv::Mat const& image, std::vector<RectifiedDot> const& dots,
                                          double radius, double reach) {
  constexpr int play = 4;
  std::vector<cv::Point2d> peaks(dots.size());
  if (dots.empty()) {
    return peaks;
  }
  int const drawnRadius = std::clamp(cvRound(radius), 5, 12);
  int const half = static_cast<int>(std::min(reach, templateReach) * drawnRadius);
  Atlas atlas(dots.size(), half + play);
  for (std::size_t i = 0; i < dots.size(); ++i) {
    atlas.fill(i, [&](cv::Point2d const& offset) {
      cv::Point2d const p = dots[i].position(offset * (1.0 / drawnRadius));
      return groundGrey + (dotGrey - groundGrey) * dots[i].levels.relative(p, sample(image, p));
    });
  }
  cv::Mat response;
  cv::matchTemplate(atlas.image(), drawTemplate(drawnRadius, half, 1.0), response, cv::TM_CCOEFF_NORMED);
  for (std::size_t i = 0; i < dots.size(); ++i) {
    // The peak lies within two pixels of the middle, so that the fit's 5 x 5 pixels stay inside the patch.
    cv::Rect const around(atlas.corner(i) + cv::Point(2, 2), cv::Size(2 * play - 3, 2 * play - 3));
    cv::Point best;
    cv::minMaxLoc(response(around), nullptr, nullptr, nullptr, &best);
    cv::Point const at = around.tl() + best;
    cv::Point2d const middle = cv::Point2d(atlas.corner(i)) + cv::Point2d(play, play);
    peaks[i] = (cv::Point2d(at) + quadraticPeak(response, at) - middle) * (1.0 / drawnRadius);
  }
  return peaks;
}

} // namespace vorn::mv
