// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/preview.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include <opencv2/imgproc.hpp>

namespace vorn::tools {

namespace {

cv::Vec3b const background(40, 36, 34);

bool isFinite(cv::Vec3f const& p) {
  return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
}

bool isPresent(cv::Vec3f const& p) {
  return isFinite(p) && p[2] > 0.0F;
}

struct DepthRange {
  float near = 0.0F;
  float far = 1.0F;
};

/// The depths between which nearly all points lie, so that a few stray ones do not flatten the colours.
DepthRange depthRange(cv::Mat_<cv::Vec3f> const& xyz) {
  std::vector<float> depths;
  for (cv::Vec3f const& p : xyz) {
    if (isPresent(p)) {
      depths.push_back(p[2]);
    }
  }
  if (depths.empty()) {
    return {};
  }
  auto const quantile = [&](double share) {
    auto const place =
        depths.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(depths.size() - 1));
    std::nth_element(depths.begin(), place, depths.end());
    return *place;
  };
  constexpr double stray = 0.002;
  DepthRange range{quantile(stray), quantile(1.0 - stray)};
  range.far = std::max(range.far, range.near + 1e-3F);
  return range;
}

/// 256 colours from near to far.
cv::Mat_<cv::Vec3b> depthColors() {
  cv::Mat_<uchar> ramp(1, 256);
  for (int i = 0; i < ramp.cols; ++i) {
    ramp(0, i) = static_cast<uchar>(255 - i);
  }
  cv::Mat_<cv::Vec3b> colors;
  cv::applyColorMap(ramp, colors, cv::COLORMAP_TURBO);
  return colors;
}

int colorIndex(float depth, DepthRange const& range) {
  float const share = (depth - range.near) / (range.far - range.near);
  return static_cast<int>(std::lround(255.0F * std::clamp(share, 0.0F, 1.0F)));
}

/// The step along the surface from one side of (y, x) to the other, over the farthest present neighbours in
/// reach; zero where there are none.
cv::Vec3f tangent(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& at, cv::Point const& step) {
  // Wide enough a baseline to show the shape rather than the noise.
  constexpr int reach = 2;
  cv::Rect const frame(cv::Point(0, 0), xyz.size());
  auto const farthest = [&](int sign) {
    for (int i = reach; i > 0; --i) {
      cv::Point const neighbour = at + sign * i * step;
      if (frame.contains(neighbour) && isPresent(xyz(neighbour))) {
        return xyz(neighbour);
      }
    }
    return xyz(at);
  };
  return farthest(1) - farthest(-1);
}

/// The light that the surface around a pixel sends back.
float shade(cv::Mat_<cv::Vec3f> const& xyz, cv::Point const& at) {
  cv::Vec3f const normal = tangent(xyz, at, {1, 0}).cross(tangent(xyz, at, {0, 1}));
  auto const length = static_cast<float>(cv::norm(normal));
  constexpr float unknown = 0.7F;
  if (length <= 0.0F) {
    return unknown;
  }
  static cv::Vec3f const light = cv::normalize(cv::Vec3f(-0.35F, -0.45F, -0.8F));
  constexpr float ambient = 0.3F;
  return ambient + (1.0F - ambient) * std::abs(normal.dot(light)) / length;
}

cv::Vec3b scaled(cv::Vec3b const& color, float factor) {
  cv::Vec3b result;
  for (int i = 0; i < 3; ++i) {
    result[i] = cv::saturate_cast<uchar>(static_cast<float>(color[i]) * factor);
  }
  return result;
}

/// @param lift what was added to the depths
void drawScale(cv::Mat_<cv::Vec3b>& strip, DepthRange const& range, float lift,
               cv::Mat_<cv::Vec3b> const& colors) {
  int const margin = std::max(strip.rows / 20, 4);
  int const barWidth = std::max(strip.cols / 6, 2);
  int const height = std::max(strip.rows - 2 * margin, 1);
  for (int y = 0; y < height; ++y) {
    int const index = std::clamp(y * 255 / height, 0, 255);
    cv::Rect const line(margin / 2, margin + y, barWidth, 1);
    strip(line & cv::Rect(0, 0, strip.cols, strip.rows)).setTo(colors(0, index));
  }
  constexpr int labels = 5;
  double const fontScale = strip.cols / 280.0;
  for (int i = 0; i < labels; ++i) {
    float const depth = range.near + (range.far - range.near) * static_cast<float>(i) / (labels - 1);
    char text[32];
    std::snprintf(text, sizeof text, "%.1f mm", static_cast<double>(depth - lift));
    cv::putText(strip, text, cv::Point(margin / 2 + barWidth + 4, margin + 4 + height * i / (labels - 1)),
                cv::FONT_HERSHEY_SIMPLEX, fontScale, cv::Scalar(230, 230, 230), 1, cv::LINE_AA);
  }
}

/// The points of a grid, each enlarged to a square of `enlarge` pixels, and the scale of the depths, to which
/// `lift` was added.
cv::Mat drawLifted(cv::Mat_<cv::Vec3f> const& xyz, float lift, int enlarge,
                   cv::Mat_<cv::Vec3b> const& texture) {
  DepthRange const range = depthRange(xyz);
  cv::Mat_<cv::Vec3b> const colors = depthColors();
  cv::Mat_<cv::Vec3b> relief(xyz.size(), background);
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x < xyz.cols; ++x) {
      if (isPresent(xyz(y, x))) {
        cv::Vec3b const color = texture.empty() ? colors(0, colorIndex(xyz(y, x)[2], range)) : texture(y, x);
        relief(y, x) = scaled(color, shade(xyz, {x, y}));
      }
    }
  }
  if (enlarge > 1) {
    cv::Mat enlarged;
    cv::resize(relief, enlarged, cv::Size(), enlarge, enlarge, cv::INTER_NEAREST);
    relief = enlarged;
  }
  if (!texture.empty()) {
    return std::move(relief); // only colours that stand for depths have a scale
  }
  cv::Mat_<cv::Vec3b> strip(relief.rows, std::clamp(relief.cols / 8, 60, 160), background);
  drawScale(strip, range, lift, colors);
  cv::Mat picture;
  cv::hconcat(relief, strip, picture);
  return picture;
}

constexpr int longSide = 1000; // pixels

/// A grid of cells over the x and y of a cloud.
struct CloudFrame {
  cv::Vec2f low;
  float step = 1.0F;
  cv::Size cells;

  cv::Point cellOf(cv::Vec3f const& p) const {
    return {static_cast<int>((p[0] - low[0]) / step), static_cast<int>((p[1] - low[1]) / step)};
  }
};

/// A grid with about one point a cell, so that the relief closes; no cells for a cloud without finite points.
CloudFrame frameOf(std::vector<cv::Vec3f> const& points) {
  constexpr float greatest = std::numeric_limits<float>::max();
  CloudFrame frame;
  frame.low = cv::Vec2f(greatest, greatest);
  cv::Vec2f high(-greatest, -greatest);
  int present = 0;
  for (cv::Vec3f const& p : points) {
    if (isFinite(p)) {
      ++present;
      for (int i = 0; i < 2; ++i) {
        frame.low[i] = std::min(frame.low[i], p[i]);
        high[i] = std::max(high[i], p[i]);
      }
    }
  }
  if (present == 0) {
    return {};
  }
  cv::Vec2f const size = high - frame.low;
  float const side = std::max({size[0], size[1], 1e-6F});
  float const aspect = std::max(std::min(size[0], size[1]) / side, 0.05F);
  constexpr float fewest = 100.0F;
  float const wanted = std::sqrt(std::max(static_cast<float>(present), fewest) / aspect);
  frame.step = side / std::min(wanted, static_cast<float>(longSide));
  frame.cells =
      cv::Size(static_cast<int>(size[0] / frame.step) + 1, static_cast<int>(size[1] / frame.step) + 1);
  return frame;
}

} // namespace

cv::Mat drawRelief(cv::Mat_<cv::Vec3f> const& xyz, cv::Mat_<cv::Vec3b> const& texture) {
  return drawLifted(xyz, 0.0F, 1, texture);
}

cv::Mat drawCloud(std::vector<cv::Vec3f> const& points, std::vector<cv::Vec3b> const& colors) {
  CloudFrame const frame = frameOf(points);
  if (frame.cells.empty()) {
    return cv::Mat(longSide / 2, longSide, CV_8UC3, cv::Scalar(background[0], background[1], background[2]));
  }
  // Depths may be negative in a cloud that was moved: the relief wants them positive.
  float lift = 0.0F;
  for (cv::Vec3f const& p : points) {
    lift = isFinite(p) ? std::max(lift, 1.0F - p[2]) : lift;
  }
  cv::Mat_<cv::Vec3f> nearest(frame.cells, cv::Vec3f(0, 0, 0));
  cv::Mat_<cv::Vec3b> texture(colors.empty() ? cv::Size() : frame.cells);
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (!isFinite(points[i])) {
      continue;
    }
    cv::Point const cell = frame.cellOf(points[i]);
    cv::Vec3f const lifted = points[i] + cv::Vec3f(0, 0, lift);
    if (!isPresent(nearest(cell)) || lifted[2] < nearest(cell)[2]) {
      nearest(cell) = lifted;
      if (!colors.empty()) {
        texture(cell) = colors[i];
      }
    }
  }
  return drawLifted(nearest, lift, std::max(1, longSide / nearest.cols), texture);
}

cv::Mat drawDecodedMap(cv::Mat_<float> const& map, float period) {
  double greatest = 0.0;
  cv::minMaxLoc(map, nullptr, &greatest);
  cv::Mat_<cv::Vec3b> hsv(map.size());
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      float const value = map(y, x);
      if (!(value >= 0.0F)) {
        hsv(y, x) = cv::Vec3b(0, 0, 45);
        continue;
      }
      constexpr float hues = 170.0F; // short of 180, so that the two ends differ
      float const phase = value / period - std::floor(value / period);
      hsv(y, x) = cv::Vec3b(static_cast<uchar>(hues * value / std::max(static_cast<float>(greatest), 1.0F)),
                            200, static_cast<uchar>(120.0F + 135.0F * phase));
    }
  }
  cv::Mat picture;
  cv::cvtColor(hsv, picture, cv::COLOR_HSV2BGR);
  return picture;
}

} // namespace vorn::tools
