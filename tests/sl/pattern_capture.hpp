// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/pattern_set.hpp>

namespace vorn::mv::test {

/// A built-in set with so many steps; 0: its own number.
inline PatternSet builtIn(std::string const& name, int steps = 0, cv::Size size = {640, 400},
                          PatternAxes axes = PatternAxes::Both) {
  PatternSetOptions options;
  options.axes = axes;
  options.steps = steps;
  return PatternSet::builtIn(name, size, options);
}

/// A camera's view of a projector's light, exact but for what is asked for: it shares nothing with the
/// library but the meaning of a `PatternImage`, which it takes from the formulas of that.
struct PatternCapture {
  cv::Size size{180, 120};
  /// Projector column and row that pixel (x, y) sees.
  std::function<double(int, int)> column = [](int x, int y) { return 20.3 + 1.37 * x + 0.21 * y; };
  std::function<double(int, int)> row = [](int x, int y) { return 40.7 + 1.13 * y - 0.11 * x; };
  std::function<double(int, int)> albedo = [](int, int) { return 1.0; };
  double mean = 110.0;     ///< grey level between dark and lit, at albedo 1 and the longest exposure
  double amplitude = 80.0; ///< of lit and dark about it
  double noise = 1.0;
  double blur = 0.5; ///< standard deviation, projector pixels
  double gamma = 1.0;
  double white = 255.0;     ///< no grey level is above
  bool showsPixels = false; ///< fringes, too, are squares of even light, blurred
  int type = CV_8UC1;

  /// Brightness 0 to 1 of an image at a place, blurred.
  double brightness(PatternImage const& image, double place) const {
    if (image.role == PatternRole::White || image.role == PatternRole::Black) {
      return image.role == PatternRole::White ? 1.0 : 0.0;
    }
    if (image.role == PatternRole::Reference) {
      return 0.5;
    }
    if (image.role == PatternRole::Phase && !showsPixels) {
      double const turns = place / image.period + static_cast<double>(image.sign * image.step) / image.steps +
                           image.offset / 360.0;
      double const contrast = std::exp(-2.0 * CV_PI * CV_PI * blur * blur / (image.period * image.period));
      return std::pow(0.5 + 0.5 * contrast * std::sin(2 * CV_PI * turns), gamma);
    }
    // Of each pixel nearby the share of its light that comes here.
    double const width = std::max(blur, 1e-3) * std::sqrt(2.0);
    auto const upTo = [&](double border) { return 0.5 * std::erf((border - place) / width); };
    auto const reach = static_cast<int>(std::ceil(4.0 * blur)) + 1;
    auto const middle = static_cast<int>(std::floor(place + 0.5));
    double sum = 0.0;
    for (int pixel = middle - reach; pixel <= middle + reach; ++pixel) {
      sum += pixelLight(image, pixel) * (upTo(pixel + 0.5) - upTo(pixel - 0.5));
    }
    return sum;
  }

  /// What a pixel shows, 0 to 1.
  static double pixelLight(PatternImage const& image, int pixel) {
    if (image.role == PatternRole::Phase) {
      return 0.5 + 0.5 * std::sin(2 * CV_PI *
                                  (pixel / image.period +
                                   static_cast<double>(image.sign * image.step) / image.steps +
                                   image.offset / 360.0));
    }
    return isPixelLit(image, pixel) ? 1.0 : 0.0;
  }

  static bool isPixelLit(PatternImage const& image, int pixel) {
    if (image.role == PatternRole::Line) {
      double const within = std::fmod(pixel + image.shift, image.period);
      return (within < 0.0 ? within + image.period : within) < image.cell;
    }
    return isLit(image, static_cast<long>(std::floor((pixel + image.shift) / image.cell)));
  }

  static bool isLit(PatternImage const& image, long stripe) {
    long word = stripe;
    if (image.code == BitCode::Gray) {
      word = stripe ^ (stripe >> 1);
    } else if (image.code == BitCode::Xor) {
      word = stripe + 2;
      word = image.bit > 0 && word % 2 != 0 ? ~word : word;
    }
    return ((word >> image.bit & 1) != 0) != image.isInverse;
  }

  std::vector<cv::Mat> capture(PatternSet const& set, unsigned seed = 1) const {
    std::mt19937 random(seed);
    std::normal_distribution<double> deviate(0.0, 1.0);
    double longest = 0.0;
    for (PatternImage const& image : set.images) {
      longest = std::max(longest, image.exposure);
    }
    std::vector<cv::Mat> images;
    for (PatternImage const& image : set.images) {
      cv::Mat_<double> seen(size);
      for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
          double const place = image.axis == PatternAxis::Column ? column(x, y) : row(x, y);
          double const light = mean + amplitude * (2.0 * brightness(image, place) - 1.0);
          double const exact = albedo(x, y) * light * image.exposure / longest;
          seen(y, x) = std::min(white, exact + noise * deviate(random));
        }
      }
      cv::Mat made;
      seen.convertTo(made, type);
      images.push_back(made);
    }
    return images;
  }
};

/// A scene under light that is not linear, under such that clips it as well, and of a projector so sharp that
/// its pixels show.
inline std::vector<PatternCapture> inHarshLight(PatternCapture const& scene) {
  PatternCapture gamma = scene;
  gamma.gamma = 2.2;
  PatternCapture clipped = gamma;
  clipped.mean = 170.0;
  clipped.amplitude = 140.0;
  PatternCapture sharp = scene;
  sharp.showsPixels = true;
  sharp.blur = 0.2;
  return {gamma, clipped, sharp};
}

/// Standard deviation of the least-squares phases of all fringes of an axis together, projector pixels: of
/// each 1 / (2 pi / period * B * sqrt(N / 2)).
inline double boundOf(PatternSet const& set, PatternAxis axis, PatternCapture const& capture) {
  double weights = 0.0;
  for (PatternImage const& image : set.images) {
    if (image.role == PatternRole::Phase && image.axis == axis) {
      double const perPixel = 2 * CV_PI / image.period;
      double const contrast = std::exp(-0.5 * perPixel * perPixel * capture.blur * capture.blur);
      weights += 0.5 * std::pow(perPixel * capture.amplitude * contrast, 2);
    }
  }
  // Rounding to whole numbers adds its own noise.
  double const rounding = capture.type == CV_32FC1 ? 0.0 : 1.0 / 12.0;
  return std::sqrt((capture.noise * capture.noise + rounding) / weights);
}

/// What decoding of one axis came to.
struct PatternErrors {
  double decoded = 0.0;    ///< share of pixels
  double wrong = 0.0;      ///< share of the decoded that are off by `gross` or more
  double rms = 0.0;        ///< of the others
  double systematic = 0.0; ///< their mean
  double meanSigma = 0.0;  ///< root mean square of the foretold
};

inline PatternErrors errorsOf(cv::Mat_<float> const& coordinate, cv::Mat_<float> const& sigma,
                              std::function<double(int, int)> const& truth, double gross) {
  PatternErrors e;
  double count = 0.0;
  double wrong = 0.0;
  double squares = 0.0;
  double sum = 0.0;
  double variances = 0.0;
  for (int y = 0; y < coordinate.rows; ++y) {
    for (int x = 0; x < coordinate.cols; ++x) {
      if (coordinate(y, x) < 0) {
        continue;
      }
      ++count;
      double const error = static_cast<double>(coordinate(y, x)) - truth(x, y);
      if (!(std::fabs(error) < gross)) {
        ++wrong;
        continue;
      }
      squares += error * error;
      sum += error;
      variances += static_cast<double>(sigma(y, x)) * static_cast<double>(sigma(y, x));
    }
  }
  e.decoded = count / static_cast<double>(coordinate.total());
  e.wrong = wrong / count;
  double const good = count - wrong;
  e.rms = std::sqrt(squares / good);
  e.systematic = sum / good;
  e.meanSigma = std::sqrt(variances / good);
  return e;
}

} // namespace vorn::mv::test
