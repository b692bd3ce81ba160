// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/drawn_share.hpp"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/decode_patterns.hpp>

#include "sl/patterns/set_groups.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int width = 240;     ///< camera pixels
constexpr int bands = 4;       ///< of rows, each a surface of its own
constexpr int rowsOfBand = 40; ///< camera pixels
/// Projector pixels from one camera pixel to the next.
constexpr double alongRow = 0.8;
constexpr double alongColumn = 0.11;

/// The images that tell of an axis, and those that are plain.
PatternSet onlyOf(PatternSet const& set, PatternAxis axis) {
  PatternSet only = set;
  only.images.erase(std::remove_if(only.images.begin(), only.images.end(),
                                   [&](PatternImage const& image) {
                                     bool const isOfAxis = image.role == PatternRole::Phase ||
                                                           image.role == PatternRole::Bit ||
                                                           image.role == PatternRole::Line;
                                     return isOfAxis && image.axis != axis;
                                   }),
                    only.images.end());
  return only;
}

double placeOf(int x, int y, int resolution) {
  int const band = y / rowsOfBand;
  double const extent = alongRow * width + alongColumn * rowsOfBand;
  double const start = std::max(0.0, resolution - extent) * band / (bands - 1);
  return std::min(start + alongRow * x + alongColumn * (y % rowsOfBand), resolution - 1.0);
}

/// Brightness -1 to 1 along the projector's image, as the camera sees it.
class Light {
public:
  Light(PatternImage const& image, int resolution, double blur) : image_(image) {
    if (image.role == PatternRole::Bit) {
      blurBits(resolution, std::max(blur, 1e-3));
    }
  }

  double at(double place, double blur) const {
    switch (image_.role) {
    case PatternRole::Phase: {
      double const p = image_.period;
      double const blurred = std::exp(-2.0 * CV_PI * CV_PI * blur * blur / (p * p));
      return blurred * std::sin(CV_PI / p) * p / CV_PI * std::sin(2 * CV_PI * place / p + angleOf(image_));
    }
    case PatternRole::Bit: {
      double const in = std::clamp(place * perPixel, 0.0, static_cast<double>(table_.size()) - 1.001);
      auto const first = static_cast<std::size_t>(in);
      double const rest = in - static_cast<double>(first);
      return table_[first] * (1.0 - rest) + table_[first + 1] * rest;
    }
    case PatternRole::White:
      return 1.0;
    case PatternRole::Reference:
      return 0.0;
    default:
      return -1.0;
    }
  }

private:
  static constexpr int perPixel = 16;

  void blurBits(int resolution, double blur) {
    auto const reach = static_cast<int>(std::ceil(4.0 * blur)) + 1;
    for (int i = 0; i < resolution * perPixel; ++i) {
      double const place = static_cast<double>(i) / perPixel;
      int const middle = static_cast<int>(std::lround(place));
      auto const upTo = [&](double border) {
        return 0.5 * std::erf((border - place) / (std::sqrt(2.0) * blur));
      };
      double sum = 0.0;
      for (int pixel = middle - reach; pixel <= middle + reach; ++pixel) {
        unsigned const word = wordAt(image_, std::clamp(pixel, 0, resolution - 1));
        bool const isLit = ((word >> static_cast<unsigned>(image_.bit) & 1U) != 0) != image_.isInverse;
        sum += (isLit ? 1.0 : -1.0) * (upTo(pixel + 0.5) - upTo(pixel - 0.5));
      }
      table_.push_back(sum);
    }
  }

  PatternImage image_;
  std::vector<double> table_;
};

} // namespace

DrawnShares drawnShares(PatternSet const& set, PatternAxis axis, PatternWish const& wish) {
  PatternSet const only = onlyOf(set, axis);
  int const resolution = resolutionAlong(set, axis);
  std::mt19937 random(1);
  std::normal_distribution<double> noise(0.0, wish.noise);
  double longest = 0.0;
  for (PatternImage const& image : only.images) {
    longest = std::max(longest, image.exposure);
  }
  std::vector<cv::Mat> images;
  for (PatternImage const& image : only.images) {
    Light const light(image, resolution, wish.blur);
    cv::Mat_<float> seen(bands * rowsOfBand, width);
    for (int y = 0; y < seen.rows; ++y) {
      for (int x = 0; x < seen.cols; ++x) {
        double const lit = wish.amplitude * (1.0 + light.at(placeOf(x, y, resolution), wish.blur));
        double const value = lit * image.exposure / longest + noise(random);
        seen(y, x) = static_cast<float>(wish.isRounded ? std::round(value) : value);
      }
    }
    images.push_back(seen);
  }
  DecodeSettings settings;
  // As of images of 8 bits, of which bits alone tell no noise.
  constexpr double usualModulation = 3.0;
  constexpr double usualNoise = 1.0;
  settings.dropsEdges = false; // every band of the drawing is a surface of its own
  settings.minModulation = wish.isRounded ? usualModulation : -1.0;
  settings.noise = wish.isRounded && fringesAlong(only, axis).empty() ? usualNoise : 0.0;
  auto const share = [&](bool usesNeighbours, int smallest) {
    settings.usesNeighbours = usesNeighbours;
    settings.minSegmentSize = smallest;
    cv::Mat const mask = decode_patterns(only, images, settings).mask;
    return 1.0 - cv::countNonZero(mask) / static_cast<double>(mask.total());
  };
  return {share(false, 0), share(true, settings.minSegmentSize)};
}

} // namespace vorn::mv::sl
