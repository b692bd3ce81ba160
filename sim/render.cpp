// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/render.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/core.hpp>
#include <stdexcept>

#include "core/parallel.hpp"
#include "sim/light.hpp"
#include "sim/sensor.hpp"

namespace vorn::sim {
namespace {

/// How far, in projector pixels, the blur of a pixel reaches at most; light reaches as far beyond the
/// pattern.
constexpr int maxReach = 30;
constexpr int maxTaps = 2 * maxReach;
/// Dark pixels kept around a pattern, so that no sample reads outside it: a sample's place, its reach, and
/// the taps that fill up a vector register.
constexpr int patternMargin = 2 * maxReach + 4;

/// The weights of the projector pixels around a position, along one axis: a pixel's box blurred by a
/// Gaussian.
struct Taps {
  /// Index of the first tap in the padded pattern.
  int first = 0;
  /// A multiple of 4; surplus weights are 0.
  int count = 0;
  std::array<float, maxTaps + 4> weights;

  Taps(float position, float sigma) {
    auto const whole = static_cast<int>(std::floor(position));
    // Beyond four deviations nothing is left.
    int const reach = std::min(static_cast<int>(std::ceil(4.0F * sigma + 0.5F)), maxReach);
    first = whole - reach + 1 + patternMargin;
    int const used = 2 * reach;
    count = (used + 3) / 4 * 4;
    float const scale = 1.0F / (std::max(sigma, 1e-4F) * std::sqrt(2.0F));
    float edge = static_cast<float>(whole - reach + 1) - 0.5F - position;
    float below = std::erf(edge * scale);
    for (int i = 0; i < used; ++i) {
      edge += 1.0F;
      float const above = std::erf(edge * scale);
      weights[static_cast<std::size_t>(i)] = 0.5F * (above - below);
      below = above;
    }
    std::fill(weights.begin() + used, weights.begin() + count, 0.0F);
  }
};

/// The light of a pattern at a place; four running sums let the compiler use vector registers.
float blurredPattern(cv::Mat const& padded, Taps const& x, Taps const& y) {
  std::array<float, 4> sum = {};
  for (int j = 0; j < y.count; ++j) {
    float const* row = padded.ptr<float>(y.first + j) + x.first;
    float const weight = y.weights[static_cast<std::size_t>(j)];
    for (int i = 0; i < x.count; i += 4) {
      float const* weights = x.weights.data() + i;
      float const* light = row + i;
      for (std::size_t lane = 0; lane < sum.size(); ++lane) {
        sum[lane] += weight * weights[lane] * light[lane];
      }
    }
  }
  return (sum[0] + sum[1]) + (sum[2] + sum[3]);
}

/// Light values of a pattern's pixels with a dark margin around them, CV_32FC1.
cv::Mat lightOfPattern(Projector const& projector, cv::Mat const& pattern) {
  std::array<float, 256> light;
  for (std::size_t i = 0; i < light.size(); ++i) {
    light[i] =
        static_cast<float>(projector.black + (1.0 - projector.black) *
                                                 std::pow(static_cast<double>(i) / 255.0, projector.gamma));
  }
  cv::Mat padded =
      cv::Mat::zeros(pattern.rows + 2 * patternMargin, pattern.cols + 2 * patternMargin, CV_32FC1);
  for (int y = 0; y < pattern.rows; ++y) {
    auto const* source = pattern.ptr<std::uint8_t>(y);
    float* target = padded.ptr<float>(y + patternMargin) + patternMargin;
    for (int x = 0; x < pattern.cols; ++x) {
      target[x] = light[source[x]];
    }
  }
  return padded;
}

double meanLight(cv::Mat const& padded, cv::Size const& size) {
  return cv::sum(padded)[0] / static_cast<double>(size.area());
}

void checkPatterns(std::vector<cv::Mat> const& patterns, cv::Size const& resolution) {
  for (cv::Mat const& pattern : patterns) {
    if (pattern.type() != CV_8UC1 || pattern.size() != resolution) {
      throw std::invalid_argument("sim::ProjectorView: patterns are CV_8UC1 of the projector's resolution");
    }
  }
}

} // namespace

ProjectorView::ProjectorView(Camera const& camera, Projector const& projector, Scene const& scene,
                             RenderOptions const& options)
    : camera_(camera), projector_(projector), supersample_(options.supersample),
      integral_(options.supersample, camera.blur) {
  cv::Size const size = camera.device.resolution();
  auto const perPixel = static_cast<std::size_t>(supersample_) * static_cast<std::size_t>(supersample_);
  samples_.resize(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * perPixel);
  parallelRows(size.height * supersample_, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      traceRow(scene, row);
    }
  });
}

void ProjectorView::traceRow(Scene const& scene, int subRow) {
  Pose const world_from_cam = camera_.cam_from_world.inverse();
  Pose const proj_from_world = projector_.world_from_proj.inverse();
  int const columns = camera_.device.resolution().width * supersample_;
  Sample* samples = samples_.data() + static_cast<std::size_t>(subRow) * static_cast<std::size_t>(columns);
  double const width = 1.0 / supersample_;
  CameraSample seen;
  for (int x = 0; x < columns; ++x) {
    cv::Point2d const pixel((x + 0.5) * width - 0.5, (subRow + 0.5) * width - 0.5);
    if (!look(camera_, world_from_cam, scene, pixel, width, seen)) {
      continue;
    }
    ProjectorLight const light =
        lightFrom(projector_, proj_from_world, scene, seen, world_from_cam.translation, maxReach);
    samples[x] = {static_cast<float>(light.pixel.x), static_cast<float>(light.pixel.y),
                  static_cast<float>(light.sigma), static_cast<float>(light.gain),
                  static_cast<float>(seen.albedo)};
  }
}

void ProjectorView::lightRow(std::vector<cv::Mat> const& padded, std::vector<double> const& means, int subRow,
                             cv::Mat& light) const {
  int const columns = light.cols;
  Sample const* samples =
      samples_.data() + static_cast<std::size_t>(subRow) * static_cast<std::size_t>(columns);
  auto const ambient = static_cast<float>(camera_.sensor.ambient);
  auto const globalLight = static_cast<float>(projector_.globalLight);
  for (int x = 0; x < columns; ++x) {
    Sample const& sample = samples[x];
    if (sample.gain <= 0.0F) {
      for (std::size_t p = 0; p < padded.size(); ++p) {
        light.ptr<float>(static_cast<int>(p))[x] =
            sample.albedo * (ambient + globalLight * static_cast<float>(means[p]));
      }
      continue;
    }
    Taps const u(sample.u, sample.sigma);
    Taps const v(sample.v, sample.sigma);
    for (std::size_t p = 0; p < padded.size(); ++p) {
      light.ptr<float>(static_cast<int>(p))[x] =
          sample.gain * blurredPattern(padded[p], u, v) +
          sample.albedo * (ambient + globalLight * static_cast<float>(means[p]));
    }
  }
}

std::vector<cv::Mat> ProjectorView::expose(std::vector<cv::Mat> const& patterns) const {
  checkPatterns(patterns, projector_.device.resolution());
  cv::Size const size = camera_.device.resolution();
  cv::Size const fine = size * supersample_;

  // Patterns are taken several at a time, since the weights of a sample serve them all; how many is a matter
  // of memory.
  constexpr std::size_t budget = std::size_t{256} << 20U;
  std::size_t const imageBytes =
      static_cast<std::size_t>(size.width) * static_cast<std::size_t>(fine.height) * sizeof(float);
  std::size_t const batch = std::max<std::size_t>(1, budget / imageBytes);

  std::vector<cv::Mat> images;
  for (std::size_t first = 0; first < patterns.size(); first += batch) {
    std::size_t const end = std::min(first + batch, patterns.size());
    std::vector<cv::Mat> padded;
    std::vector<double> means;
    std::vector<cv::Mat> lights;
    for (std::size_t p = first; p < end; ++p) {
      padded.push_back(lightOfPattern(projector_, patterns[p]));
      means.push_back(meanLight(padded.back(), patterns[p].size()));
      lights.emplace_back(fine.height, size.width, CV_32FC1);
    }
    parallelRows(fine.height, [&](int firstRow, int endRow) {
      cv::Mat light(static_cast<int>(padded.size()), fine.width, CV_32FC1);
      for (int row = firstRow; row < endRow; ++row) {
        lightRow(padded, means, row, light);
        for (std::size_t p = 0; p < padded.size(); ++p) {
          integral_.alongRow(light.ptr<float>(static_cast<int>(p)), size.width, lights[p].ptr<float>(row));
        }
      }
    });
    for (cv::Mat const& light : lights) {
      images.push_back(integral_.greyLevels(camera_, light));
    }
  }
  return images;
}

std::vector<cv::Mat> ProjectorView::capture(std::vector<cv::Mat> const& patterns, int firstImage) const {
  std::vector<cv::Mat> images = expose(patterns);
  int number = firstImage;
  for (cv::Mat& image : images) {
    image = readOut(camera_.sensor, image, number++);
  }
  return images;
}

} // namespace vorn::sim
