// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/dot_template.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/geometry/fitting.hpp>

#include "core/simd.hpp"

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

/// Between the pixels of an image, none of which lies beyond it.
double sampleInside(cv::Mat const& image, cv::Point2d const& p) {
  double const x = p.x;
  double const y = p.y;
  int const column = static_cast<int>(x);
  int const row = static_cast<int>(y);
  double const fx = x - column;
  double const fy = y - row;
  std::uint8_t const* upper = image.ptr<std::uint8_t>(row) + column;
  std::uint8_t const* lower = image.ptr<std::uint8_t>(row + 1) + column;
  return (1 - fy) * ((1 - fx) * upper[0] + fx * upper[1]) + fy * ((1 - fx) * lower[0] + fx * lower[1]);
}

double sample(cv::Mat const& image, cv::Point2d const& p) {
  return sampleInside(image,
                      {std::clamp(p.x, 0.0, image.cols - 1.001), std::clamp(p.y, 0.0, image.rows - 1.001)});
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

/// What a row of a patch and one of a drawn dot add to the sums of each column.
VORN_TARGET_CLONES void addProducts(float const* seen, float const* expected, std::size_t width, double* sums,
                                    double* squares, double* products) {
  VORN_INDEPENDENT_ITERATIONS
  for (std::size_t x = 0; x < width; ++x) {
    auto const g = static_cast<double>(seen[x]);
    sums[x] += g;
    squares[x] += g * g;
    products[x] += g * static_cast<double>(expected[x]);
  }
}

constexpr int judgedRadius = 5; ///< of dots in the patches that candidates are judged by
constexpr int judgedHalf = 8;   ///< `templateReach` of it
constexpr int judgedPlay = 1;   ///< of a dot in its patch
constexpr std::size_t drawnSide = 2 * judgedHalf + 1;
constexpr std::size_t patchSide = 2 * (judgedHalf + judgedPlay) + 1;
static_assert(judgedHalf <= templateReach * judgedRadius);

/// A drawn dot by its departure from its mean.
struct DrawnDot {
  cv::Mat grey;       ///< CV_32FC1
  double squares = 0; ///< their sum
};

DrawnDot drawJudge(double blur) {
  DrawnDot drawn;
  drawTemplate(judgedRadius, judgedHalf, blur).convertTo(drawn.grey, CV_32F);
  drawn.grey -= cv::mean(drawn.grey);
  drawn.squares = drawn.grey.dot(drawn.grey);
  return drawn;
}

/// The correlation of a drawn dot with the part of a patch that begins at a place.
double correlation(cv::Mat const& patch, cv::Point const& at, DrawnDot const& drawn) {
  std::array<double, drawnSide> sums = {};
  std::array<double, drawnSide> squares = {};
  std::array<double, drawnSide> products = {};
  for (int y = 0; y < drawn.grey.rows; ++y) {
    addProducts(patch.ptr<float>(at.y + y) + at.x, drawn.grey.ptr<float>(y), drawnSide, sums.data(),
                squares.data(), products.data());
  }
  auto const total = [](std::array<double, drawnSide> const& columns) {
    return std::accumulate(columns.begin(), columns.end(), 0.0);
  };
  double const sum = total(sums);
  double const spread = total(squares) - sum * sum / static_cast<double>(drawn.grey.total());
  return spread > 0 ? total(products) / std::sqrt(spread * drawn.squares) : 0.0;
}

/// Whether a drawn dot correlates well with a patch, in its middle or up to `judgedPlay` beside that.
bool correlates(cv::Mat const& patch, DrawnDot const& drawn) {
  auto const at = [&](int x, int y) { return correlation(patch, {x, y}, drawn) >= leastCorrelation; };
  if (at(judgedPlay, judgedPlay)) {
    return true;
  }
  for (int y = 0; y <= 2 * judgedPlay; ++y) {
    for (int x = 0; x <= 2 * judgedPlay; ++x) {
      if ((x != judgedPlay || y != judgedPlay) && at(x, y)) {
        return true;
      }
    }
  }
  return false;
}

/// Where the pixels of a patch's row lie.
struct PatchRow {
  std::array<double, patchSide> x;
  std::array<double, patchSide> y;
};

VORN_TARGET_CLONES void placeRow(double const* stepsX, double const* stepsY, cv::Point2d const& start,
                                 cv::Point2d const& down, PatchRow& row) {
  VORN_INDEPENDENT_ITERATIONS
  for (std::size_t k = 0; k < patchSide; ++k) {
    row.x[k] = start.x + (stepsX[k] + down.x);
    row.y[k] = start.y + (stepsY[k] + down.y);
  }
}

/// The grey levels around a candidate, its outline drawn to a circle of `judgedRadius`.
void fillPatch(cv::Mat const& image, cv::Point2d const& centre, cv::Matx22d const& scale, cv::Mat& patch) {
  constexpr int middle = judgedHalf + judgedPlay;
  std::array<double, patchSide> stepsX = {};
  std::array<double, patchSide> stepsY = {};
  for (std::size_t k = 0; k < patchSide; ++k) {
    double const across = static_cast<double>(k) - middle;
    stepsX[k] = scale(0, 0) * across;
    stepsY[k] = scale(1, 0) * across;
  }
  double const reachX = middle * (std::abs(scale(0, 0)) + std::abs(scale(0, 1)));
  double const reachY = middle * (std::abs(scale(1, 0)) + std::abs(scale(1, 1)));
  bool const isInside = centre.x >= reachX && centre.y >= reachY && centre.x + reachX < image.cols - 2 &&
                        centre.y + reachY < image.rows - 2;
  PatchRow row = {};
  for (int y = 0; y < patch.rows; ++y) {
    double const below = static_cast<double>(y) - middle;
    placeRow(stepsX.data(), stepsY.data(), centre, {scale(0, 1) * below, scale(1, 1) * below}, row);
    auto* grey = patch.ptr<float>(y);
    for (std::size_t k = 0; k < patchSide; ++k) {
      cv::Point2d const at(row.x[k], row.y[k]);
      grey[k] = static_cast<float>(isInside ? sampleInside(image, at) : sample(image, at));
    }
  }
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
  DrawnDot const drawn = drawJudge(1.5);
  cv::Mat patch(static_cast<int>(patchSide), static_cast<int>(patchSide), CV_32F);
  constexpr std::size_t candidatesBetweenAskings = 1024;
  for (std::size_t i = 0; i < judged.size(); ++i) {
    if (i % candidatesBetweenAskings == 0) {
      progress.at("detecting targets", static_cast<double>(i) / static_cast<double>(judged.size()));
    }
    DotCandidate const& candidate = candidates[judged[i]];
    cv::Point2d const centre = level.fromFull(candidate.centre);
    fillPatch(level.image, centre, candidate.outline * (1.0 / (judgedRadius * level.factor)), patch);
    resembles[judged[i]] = correlates(patch, drawn);
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
