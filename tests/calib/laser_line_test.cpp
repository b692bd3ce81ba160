// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/laser_line.hpp>

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>

#include "calib/laser/laser_edges.hpp"
#include "calib/laser/laser_profile.hpp"

namespace vorn::mv {
namespace {

using Direction = LaserLineOptions::Direction;
using Method = LaserLineOptions::Method;

/// Adds a Gaussian stripe to a CV_32F image, at `place[x]` in column x.
void addStripe(cv::Mat_<float>& image, std::vector<double> const& place, double peak, double width) {
  for (int x = 0; x < image.cols; ++x) {
    double const middle = place[static_cast<std::size_t>(x)];
    int const first = std::max(0, static_cast<int>(middle - 6 * width));
    int const end = std::min(image.rows, static_cast<int>(middle + 6 * width));
    for (int y = first; y < end; ++y) {
      double const u = (y - middle) / width;
      image(y, x) += static_cast<float>(peak * std::exp(-u * u / 2));
    }
  }
}

/// As a camera would give it: with noise, rounded and clipped.
cv::Mat exposed(cv::Mat_<float> const& image, double sigma) {
  cv::Mat_<float> noise(image.size());
  cv::theRNG().fill(noise, cv::RNG::NORMAL, 0, sigma);
  cv::Mat result;
  cv::Mat(image + noise).convertTo(result, CV_8U);
  return result;
}

/// A line that wanders over all sub-pixel places.
std::vector<double> wanderingLine(int columns, double middle) {
  std::vector<double> place;
  for (int x = 0; x < columns; ++x) {
    place.push_back(middle + 3 * std::sin(0.01 * x) + 0.001 * (x % 997));
  }
  return place;
}

/// Of noisy stripes, those that a test of their shape with 4.5 standard deviations may cost.
constexpr double mostLost = 0.001;

/// The error of each found point; fails when more of them are missing than noise explains.
std::vector<double> errors(std::vector<cv::Point2f> const& points, std::vector<double> const& place) {
  EXPECT_LE(points.size(), place.size());
  EXPECT_GE(static_cast<double>(points.size()), (1 - mostLost) * static_cast<double>(place.size()));
  std::vector<double> result;
  for (cv::Point2f const& p : points) {
    result.push_back(p.y - place[static_cast<std::size_t>(p.x)]);
  }
  return result;
}

double rms(std::vector<double> const& values) {
  return cv::norm(values) / std::sqrt(static_cast<double>(values.size()));
}

/// Enough columns to know a standard deviation to 0.5 %.
constexpr int columns = 20000;
constexpr double peak = 100;
constexpr double sigma = 2;

/// The noise bound, with the noise that rounding to grey levels adds.
double bound(double width) {
  return std::sqrt(sigma * sigma + 1 / 12.0) / peak * std::sqrt(2 * width / std::sqrt(CV_PI));
}

TEST(LaserLine, ReachesTheNoiseBound) {
  for (double width : {1.5, 2.0, 3.0}) {
    auto const place = wanderingLine(columns, 30);
    cv::Mat_<float> light(60, columns, 20.0F);
    addStripe(light, place, peak, width);
    cv::Mat const image = exposed(light, sigma);
    auto const measured = errors(extract_laser_line(image), place);
    EXPECT_LT(rms(measured), 1.02 * bound(width)) << "matched to the width measured, " << width;
    LaserLineOptions options;
    options.width = width;
    auto const found = errors(extract_laser_line(image, options), place);
    EXPECT_LT(rms(found), 1.02 * bound(width)) << "matched to the width " << width;
    EXPECT_GT(rms(found), 0.98 * bound(width)) << "it is a bound";
    EXPECT_LT(std::abs(cv::mean(found)[0]), 4 * bound(width) / std::sqrt(columns)) << "no bias";
  }
}

TEST(LaserLine, MeasuresPlaceHeightAndWidth) {
  auto const place = wanderingLine(200, 30);
  for (double width : {1.0, 2.5, 4.0}) {
    cv::Mat_<float> light(60, 200, 20.0F);
    addStripe(light, place, peak, width);
    for (Method method : {Method::DerivativeZero, Method::CentreOfGravity}) {
      LaserLineOptions options;
      options.method = method;
      auto const peaks = extract_laser_peaks(exposed(light, 0), options);
      ASSERT_EQ(peaks.size(), place.size());
      for (std::size_t i = 0; i < peaks.size(); ++i) {
        EXPECT_NEAR(peaks[i].point.y, place[i], method == Method::DerivativeZero ? 0.02 : 0.04)
            << "rounding to grey levels is the only noise; the centre of gravity feels it more";
        EXPECT_NEAR(peaks[i].contrast, peak, 0.01 * peak);
        EXPECT_NEAR(peaks[i].width, width, 0.01 * width);
      }
    }
  }
}

TEST(LaserLine, RunsDownTheImageAsWellAsAcross) {
  auto const place = wanderingLine(300, 40);
  cv::Mat_<float> light(80, 300, 20.0F);
  addStripe(light, place, peak, 2);
  cv::Mat const across = exposed(light, sigma);
  LaserLineOptions options;
  auto const acrossPoints = extract_laser_line(across, options);
  options.direction = Direction::PerRow;
  auto const downPoints = extract_laser_line(across.t(), options);
  ASSERT_EQ(acrossPoints.size(), 300U);
  ASSERT_EQ(downPoints.size(), 300U);
  for (std::size_t i = 0; i < 300; ++i) {
    EXPECT_EQ(downPoints[i], cv::Point2f(acrossPoints[i].y, acrossPoints[i].x));
  }
}

TEST(LaserLine, FindsSeveralLines) {
  cv::Mat_<float> light(100, 50, 10.0F);
  for (int line = 0; line < 3; ++line) {
    addStripe(light, std::vector<double>(50, 20.25 + 25 * line), 60 + 40 * line, 1.5 + 0.5 * line);
  }
  LaserLineOptions options;
  options.maxPeaks = 5;
  auto const all = extract_laser_line(exposed(light, sigma), options);
  ASSERT_EQ(all.size(), 150U);
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_NEAR(all[i].y, 20.25 + 25 * static_cast<double>(i % 3), 0.3);
  }
  options.maxPeaks = 2;
  auto const two = extract_laser_line(exposed(light, sigma), options);
  ASSERT_EQ(two.size(), 100U);
  EXPECT_NEAR(two[0].y, 45.25, 0.3) << "the highest ones stay";
}

TEST(LaserLine, DropsWhatIsNoGoodStripe) {
  auto const found = [](auto const& draw, LaserLineOptions const& options = {}) {
    cv::Mat_<float> light(80, 40, 30.0F);
    draw(light);
    return extract_laser_line(exposed(light, sigma), options).size();
  };
  auto const stripe = [](double place, double height, double width) {
    return [=](cv::Mat_<float>& light) { addStripe(light, std::vector<double>(40, place), height, width); };
  };
  EXPECT_EQ(found([](cv::Mat_<float>&) {}), 0U) << "noise alone";
  EXPECT_EQ(found([](cv::Mat_<float>& light) { light.rowRange(0, 40) += 120; }), 0U)
      << "a step of brightness";
  EXPECT_EQ(found(stripe(40, 10, 2)), 0U) << "too weak";
  EXPECT_EQ(found(stripe(40, 100, 8)), 0U) << "too wide";
  EXPECT_EQ(found(stripe(1.5, 100, 2)), 0U) << "cut by the border";
  EXPECT_EQ(found(stripe(79.5, 100, 2)), 0U);
  EXPECT_EQ(found(stripe(40, 700, 2)), 0U) << "saturated";
  EXPECT_EQ(found(stripe(40, 30, 2)), 40U);
  LaserLineOptions tolerant;
  tolerant.maxSaturated = 10;
  EXPECT_EQ(found(stripe(40, 700, 2), tolerant), 40U);
  LaserLineOptions narrow;
  narrow.maxWidth = 1.5;
  EXPECT_EQ(found(stripe(40, 100, 2.5), narrow), 0U);
  narrow.width = 10;
  EXPECT_EQ(found(stripe(40, 100, 1.2), narrow), 40U) << "the filter may be wider than any stripe";
}

TEST(LaserLine, CountsANoisyStripeOnce) {
  constexpr int many = 2000;
  cv::Mat_<float> light(80, many, 30.0F);
  addStripe(light, std::vector<double>(many, 40.3), 60, 4);
  LaserLineOptions options;
  options.maxPeaks = 3;
  options.maxWidth = 6;
  // Of this noise, the sums that candidates are looked for in have several tops on most stripes.
  auto const points = extract_laser_line(exposed(light, 8), options);
  std::vector<int> found(many);
  for (cv::Point2f const& p : points) {
    found[static_cast<std::size_t>(p.x)] += std::abs(p.y - 40.3F) < 4 ? 1 : 0;
  }
  EXPECT_EQ(*std::max_element(found.begin(), found.end()), 1);
  EXPECT_GT(cv::countNonZero(found), many * 9 / 10);
}

TEST(LaserLine, AllowsAsManySaturatedPixelsAsItSays) {
  std::vector<unsigned char> const levels{10,  10,  10, 10, 10, 12, 20, 60, 140, 230, 255, 255, 255,
                                          230, 140, 60, 20, 12, 10, 10, 10, 10,  10,  10,  10,  10};
  LaserLineOptions options;
  for (int allowed : {0, 2, 3, 4}) {
    options.maxSaturated = allowed;
    auto const found = measurePeak({levels.data(), 1, static_cast<int>(levels.size())}, 11, options);
    EXPECT_EQ(found.has_value(), allowed >= 3) << allowed;
  }
}

TEST(LaserLine, StripesNarrowerThanPixelsHaveAFiniteAsymmetry) {
  std::vector<unsigned char> levels(24, 126);
  std::fill(levels.begin() + 12, levels.end(), static_cast<unsigned char>(42));
  levels[12] = 205;
  LaserLineOptions options;
  options.minWidth = 0;
  auto const narrow = measurePeak({levels.data(), 1, 24}, 12, options);
  ASSERT_TRUE(narrow.has_value());
  EXPECT_TRUE(std::isfinite(narrow->odd[0]) && std::isfinite(narrow->odd[1]));
}

/// A line over a straight edge between two brightnesses, as a lens would show it.
struct LineOverEdge {
  static constexpr int fine = 4;             // rays a pixel and direction
  static constexpr double stripeWidth = 1.6; // of the light; the lens and the pixels widen it
  static constexpr double lensBlur = 0.55;

  /// The light of a stripe of height 1 at a distance from its middle.
  double (*stripe)(double) = [](double y) { return std::exp(-y * y / (2 * stripeWidth * stripeWidth)); };
  double step = 1;  ///< brightness beyond the edge
  double angle = 0; ///< between edge and line, degrees
  int columns = 400;
  int rows = 61;
  double slope = 0.021;

  double place(double x) const { return rows / 2 + 0.3 + slope * (x - columns / 2); }

  /// The farthest found place from the true one, away from the ends of the line.
  double worst(cv::Mat const& image, LaserLineOptions const& options = {}) const {
    constexpr float end = 5;
    double most = 0;
    for (cv::Point2f const& p : extract_laser_line(image, options)) {
      bool const isEnd = p.x < end || p.x > static_cast<float>(columns) - end;
      most = isEnd ? most : std::max(most, std::abs(p.y - place(p.x)));
    }
    return most;
  }

  cv::Mat image(double height) const {
    cv::Mat_<float> light(rows * fine, columns * fine);
    double const direction = std::atan(slope) + angle * CV_PI / 180;
    for (int i = 0; i < light.rows; ++i) {
      for (int j = 0; j < light.cols; ++j) {
        double const x = (j + 0.5) / fine - 0.5;
        double const y = (i + 0.5) / fine - 0.5;
        double const beyond =
            (y - place(columns / 2)) * std::cos(direction) - (x - columns / 2) * std::sin(direction);
        light(i, j) = static_cast<float>(height * stripe(y - place(x)) * (beyond > 0 ? step : 1.0));
      }
    }
    cv::GaussianBlur(light, light, {}, lensBlur * fine);
    cv::Mat_<float> pixels;
    cv::resize(light, pixels, {columns, rows}, 0, 0, cv::INTER_AREA);
    pixels += 10;
    return exposed(pixels, 1);
  }
};

TEST(LaserLine, DropsWhatAnEdgeOfBrightnessMoves) {
  LaserLineOptions everything;
  everything.dropMoved = false;
  for (double step : {0.2, 0.45, 0.7, 0.85}) {
    for (double angle : {5.0, 20.0, 45.0, 80.0}) {
      SCOPED_TRACE(std::to_string(step) + " at " + std::to_string(angle) + " degrees");
      LineOverEdge edge;
      edge.step = step;
      edge.angle = angle;
      cv::Mat const image = edge.image(200);
      // A twentieth of the width by what is too small to be seen, and five deviations of the noise.
      constexpr double mostMoved = 0.2;
      EXPECT_LT(edge.worst(image), mostMoved);
      if (step < 0.5 && angle < 60) {
        EXPECT_GT(edge.worst(image, everything), 2 * mostMoved) << "the edge does move stripes";
      }
      // The stripes that the edge reaches, and the neighbours that are judged together with them.
      double const reach = 12 + 4 * LineOverEdge::stripeWidth / std::sin(angle * CV_PI / 180);
      int kept = 0;
      int plain = 0;
      std::vector<bool> isFound(static_cast<std::size_t>(edge.columns));
      for (cv::Point2f const& p : extract_laser_line(image)) {
        isFound[static_cast<std::size_t>(p.x)] = true;
      }
      for (int x = 0; x < edge.columns; ++x) {
        bool const isPlain = std::abs(x - edge.columns / 2) > reach;
        plain += isPlain ? 1 : 0;
        kept += isPlain && isFound[static_cast<std::size_t>(x)] ? 1 : 0;
      }
      EXPECT_GE(kept, plain - 2);
    }
  }
}

TEST(LaserLine, DropsWhatAnEdgeMovesOnASteepLine) {
  LineOverEdge edge;
  edge.slope = 3;
  edge.columns = 120;
  edge.rows = 400;
  edge.step = 0.45;
  edge.angle = 60;
  edge.stripe = [](double y) { return std::exp(-y * y / (2 * 3.2 * 3.2)); };
  cv::Mat const image = edge.image(200);
  LaserLineOptions everything;
  everything.dropMoved = false;
  constexpr double mostMoved = 0.4; // a tenth of the width along the columns
  EXPECT_GT(edge.worst(image, everything), 2 * mostMoved) << "the edge does move stripes";
  EXPECT_LT(edge.worst(image), mostMoved);
  EXPECT_GT(extract_laser_line(image).size(), 90U) << "and leaves most of them";
}

/// Samples of a horizontal line of symmetric stripes, whose heights scatter a little.
std::vector<LaserSample> symmetricSamples(int count) {
  cv::RNG rng(5);
  std::vector<LaserSample> samples;
  for (int x = 0; x < count; ++x) {
    samples.push_back({x, {20.0, 100 + rng.gaussian(0.3), 2, {rng.gaussian(0.3), rng.gaussian(0.3)}}});
  }
  return samples;
}

TEST(MovedByEdges, AGapEndsALine) {
  constexpr int gap = 100;
  constexpr int edge = 200;
  constexpr int count = 300;
  auto samples = symmetricSamples(count);
  for (LaserSample& sample : samples) {
    double const beyondEdge = std::clamp((sample.line - edge) / 6.0, 0.0, 1.0);
    sample.peak.contrast *= (sample.line > gap ? 0.8 : 1.0) - 0.3 * beyondEdge;
  }
  samples.erase(samples.begin() + gap);
  auto const flags = movedByEdges(samples);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    int const line = samples[i].line;
    if (line > edge && line < edge + 6) {
      EXPECT_TRUE(flags[i]) << "an edge beyond the gap, column " << line;
    } else if (std::abs(line - edge - 3) > 20) {
      EXPECT_FALSE(flags[i]) << "another height beyond the gap, column " << line;
    }
  }
}

TEST(MovedByEdges, RoundingErrorsThatNeighboursShareAreNoEdge) {
  // Without noise, neighbours of a line that is nearly horizontal are rounded alike.
  auto samples = symmetricSamples(400);
  for (LaserSample& sample : samples) {
    double const share = std::clamp(2 - std::abs(sample.line - 200) / 20.0, 0.0, 1.0);
    sample.peak.contrast = 100;
    sample.peak.odd = {0.6 * share, -0.6 * share};
  }
  EXPECT_EQ(movedByEdges(samples), std::vector<bool>(400, false));
  for (LaserSample& sample : samples) {
    sample.peak.odd = {5 * sample.peak.odd[0], 0};
  }
  EXPECT_TRUE(movedByEdges(samples)[200]) << "more than rounding makes";
}

TEST(LaserLine, KeepsALaserThatIsAsymmetricItself) {
  LineOverEdge skewed;
  skewed.stripe = [](double y) { return std::exp(-y * y / (y < 0 ? 3.0 : 7.0)); };
  EXPECT_GE(extract_laser_line(skewed.image(200)).size(), static_cast<std::size_t>(skewed.columns) - 2);
}

TEST(LaserLine, TakesGreyAndColourRegions) {
  auto const place = wanderingLine(64, 30);
  cv::Mat_<float> light(60, 64, 20.0F);
  addStripe(light, place, peak, 2);
  cv::Mat const grey = exposed(light, sigma);
  auto const expected = extract_laser_line(grey);
  cv::Mat frame(100, 120, CV_8UC3, cv::Scalar::all(255));
  cv::Mat const region = frame(cv::Rect(17, 9, 64, 60));
  cv::merge(std::vector<cv::Mat>{grey / 4, grey / 3, grey}, region);
  EXPECT_EQ(extract_laser_line(region), expected) << "a red line";

  EXPECT_TRUE(extract_laser_line(cv::Mat()).empty());
  EXPECT_TRUE(extract_laser_line(cv::Mat::zeros(3, 3, CV_8U)).empty());
  EXPECT_THROW(extract_laser_line(cv::Mat::zeros(9, 9, CV_16U)), Exception);
  EXPECT_THROW(extract_laser_line(cv::Mat::zeros(9, 9, CV_8UC4)), Exception);
  LaserLineOptions options;
  options.maxPeaks = 0;
  EXPECT_THROW(extract_laser_line(grey, options), Exception);
  options = {};
  options.minWidth = NAN;
  EXPECT_THROW(extract_laser_line(grey, options), Exception);
}

TEST(LaserLine, IsTheSameForAnyNumberOfThreads) {
  auto const place = wanderingLine(500, 120);
  cv::Mat_<float> light(240, 500, 20.0F);
  addStripe(light, place, peak, 2);
  cv::Mat const image = exposed(light, 10);
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  auto const one = extract_laser_line(image);
  cv::setNumThreads(4);
  EXPECT_EQ(extract_laser_line(image), one);
  cv::setNumThreads(threads);
}

} // namespace
} // namespace vorn::mv
