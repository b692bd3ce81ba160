// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/preview.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "core/median.hpp"

namespace vorn::tools {

namespace {

/// What is shown where there is nothing.
cv::Vec3b absentColor(mv::Ground ground) {
  return ground == mv::Ground::Light ? cv::Vec3b(255, 255, 255) : cv::Vec3b(40, 36, 34);
}

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

/// A length of 1, 2 or 5 times a power of ten that takes at most a quarter of a width.
double roundLength(double widthMm) {
  double const most = 0.25 * widthMm;
  double const decade = std::pow(10.0, std::floor(std::log10(most)));
  for (double const factor : {5.0, 2.0}) {
    if (factor * decade <= most) {
      return factor * decade;
    }
  }
  return decade;
}

/// The median step across the camera's view from a pixel to the next, mm; 0 without neighbours.
double stepAcross(cv::Mat_<cv::Vec3f> const& xyz) {
  std::vector<float> steps;
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x + 1 < xyz.cols; ++x) {
      if (isPresent(xyz(y, x)) && isPresent(xyz(y, x + 1))) {
        steps.push_back(std::abs(xyz(y, x + 1)[0] - xyz(y, x)[0]));
      }
    }
  }
  return steps.empty() ? 0.0 : static_cast<double>(medianAmong(steps));
}

/// Points on a grid and how they are to be shown.
struct Relief {
  cv::Mat_<cv::Vec3f> xyz;
  cv::Mat_<cv::Vec3b> texture; ///< or empty
  float lift = 0.0F;           ///< what was added to the depths
  int enlarge = 1;             ///< side of the square that shows a point, pixels
  double mmPerPixel = 0.0;     ///< of the picture; 0: unknown
};

mv::AMat pictureOf(Relief const& relief, std::string const& title, FigureOptions const& look) {
  DepthRange range = depthRange(relief.xyz);
  if (look.range) {
    range = {static_cast<float>(look.range->first) + relief.lift,
             static_cast<float>(look.range->second) + relief.lift};
  }
  cv::Mat_<cv::Vec3b> shown(relief.xyz.size(), absentColor(look.ground()));
  bool const hasTexture = !relief.texture.empty();
  for (int y = 0; y < shown.rows; ++y) {
    for (int x = 0; x < shown.cols; ++x) {
      cv::Vec3f const& point = relief.xyz(y, x);
      if (isPresent(point)) {
        double const share = static_cast<double>((point[2] - range.near) / (range.far - range.near));
        cv::Vec3b const color =
            hasTexture ? relief.texture(y, x) : mv::colorOf(mv::ColorMap::TurboDown, share);
        shown(y, x) = scaled(color, shade(relief.xyz, {x, y}));
      }
    }
  }
  if (relief.enlarge > 1) {
    cv::Mat enlarged;
    cv::resize(shown, enlarged, cv::Size(), relief.enlarge, relief.enlarge, cv::INTER_NEAREST);
    shown = enlarged;
  }
  mv::AMat picture(shown);
  picture.setTitle(title);
  if (!hasTexture) { // only colours that stand for depths have a legend
    picture.addLegend(mv::ColorMap::TurboDown, static_cast<double>(range.near - relief.lift),
                      static_cast<double>(range.far - relief.lift), "mm", "z");
  }
  if (relief.mmPerPixel > 0.0) {
    mv::MarkStyle style;
    if (look.isLight) { // white would need its rim to be seen at all
      style.color = cv::Vec3b(30, 30, 30);
      style.hasHalo = false;
    }
    picture.addScaleBar(roundLength(relief.mmPerPixel * shown.cols), relief.mmPerPixel, style);
  }
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

mv::AMat drawRelief(cv::Mat_<cv::Vec3f> const& xyz, cv::Mat_<cv::Vec3b> const& texture,
                    std::string const& title, FigureOptions const& look) {
  return pictureOf({xyz, texture, 0.0F, 1, stepAcross(xyz)}, title, look);
}

mv::AMat drawCloud(std::vector<cv::Vec3f> const& points, std::vector<cv::Vec3b> const& colors,
                   std::string const& title, FigureOptions const& look) {
  CloudFrame const frame = frameOf(points);
  if (frame.cells.empty()) {
    mv::AMat nothing(cv::Mat(cv::Size(longSide, longSide / 2), CV_8UC3, absentColor(look.ground())));
    nothing.setTitle(title.empty() ? "no points" : title + ": no points");
    return nothing;
  }
  // Depths may be negative in a cloud that was moved: the relief wants them positive.
  Relief relief;
  for (cv::Vec3f const& p : points) {
    relief.lift = isFinite(p) ? std::max(relief.lift, 1.0F - p[2]) : relief.lift;
  }
  relief.xyz.create(frame.cells);
  relief.xyz.setTo(cv::Scalar::all(0));
  relief.texture.create(colors.empty() ? cv::Size() : frame.cells);
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (!isFinite(points[i])) {
      continue;
    }
    cv::Point const cell = frame.cellOf(points[i]);
    cv::Vec3f const lifted = points[i] + cv::Vec3f(0, 0, relief.lift);
    if (!isPresent(relief.xyz(cell)) || lifted[2] < relief.xyz(cell)[2]) {
      relief.xyz(cell) = lifted;
      if (!colors.empty()) {
        relief.texture(cell) = colors[i];
      }
    }
  }
  relief.enlarge = std::max(1, longSide / relief.xyz.cols);
  relief.mmPerPixel = static_cast<double>(frame.step) / relief.enlarge;
  return pictureOf(relief, title, look);
}

mv::AMat drawDecodedMap(cv::Mat_<float> const& map, float period, std::string const& axis,
                        std::string const& title, FigureOptions const& look) {
  double greatest = 0.0;
  cv::minMaxLoc(map, nullptr, &greatest);
  double const low = look.range ? look.range->first : 0.0;
  double const high = look.range ? look.range->second : std::max(greatest, 1.0);
  cv::Mat_<cv::Vec3b> picture(map.size(), absentColor(look.ground()));
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      float const value = map(y, x);
      if (value >= 0.0F) {
        // Short of the ends of black and white, so that the colours stay what the legend says.
        constexpr float darkest = 0.6F;
        float const phase = value / period - std::floor(value / period);
        picture(y, x) =
            scaled(mv::colorOf(mv::ColorMap::Turbo, (static_cast<double>(value) - low) / (high - low)),
                   darkest + (1.0F - darkest) * phase);
      }
    }
  }
  mv::AMat shown(picture);
  shown.setTitle(title);
  shown.addLegend(mv::ColorMap::Turbo, low, high, "projector px", axis);
  return shown;
}

} // namespace vorn::tools
