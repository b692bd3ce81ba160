// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/target_photo.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include "sim/noise.hpp"
#include "sim/scene.hpp"

namespace vorn::sim {
namespace {

/// Where rays meet the plane of the target, mm on it.
class PlaneView {
public:
  explicit PlaneView(TargetPhoto const& photo)
      : device_(photo.device), target_from_cam_(photo.cam_from_target.inverse()) {}

  /// False for a ray that does not meet the plane in front of the camera.
  bool hit(cv::Point2d const& pixel, cv::Vec2d& uv) const {
    cv::Vec3d const origin = target_from_cam_.translation;
    cv::Vec3d const direction = target_from_cam_.rotation * device_.ray(pixel);
    double const t = -origin[2] / direction[2];
    if (!(t > 0) || !std::isfinite(t)) {
      return false;
    }
    uv = {origin[0] + t * direction[0], origin[1] + t * direction[1]};
    return true;
  }

private:
  Device const& device_;
  Pose target_from_cam_;
};

bool isInside(Overlay const& overlay, cv::Point2d const& p) {
  double const angle = overlay.outline.angle * CV_PI / 180.0;
  cv::Point2d const d = p - cv::Point2d(overlay.outline.center);
  double const u = (d.x * std::cos(angle) + d.y * std::sin(angle)) / (0.5 * overlay.outline.size.width);
  double const v = (-d.x * std::sin(angle) + d.y * std::cos(angle)) / (0.5 * overlay.outline.size.height);
  return overlay.shape == Overlay::Shape::Ellipse ? u * u + v * v <= 1.0
                                                  : std::abs(u) <= 1.0 && std::abs(v) <= 1.0;
}

void draw(Overlay const& overlay, cv::Mat& albedoImage) {
  constexpr int samples = 4;
  cv::Rect const box = overlay.outline.boundingRect() & cv::Rect({}, albedoImage.size());
  for (int y = box.y; y < box.br().y; ++y) {
    for (int x = box.x; x < box.br().x; ++x) {
      int covered = 0;
      for (int i = 0; i < samples * samples; ++i) {
        int const column = i % samples;
        int const row = i / samples;
        cv::Point2d const offset((column + 0.5) / samples - 0.5, (row + 0.5) / samples - 0.5);
        covered += isInside(overlay, cv::Point2d(x, y) + offset) ? 1 : 0;
      }
      double const share = static_cast<double>(covered) / (samples * samples);
      auto& pixel = albedoImage.at<float>(y, x);
      pixel = static_cast<float>((1.0 - share) * pixel + share * overlay.albedo);
    }
  }
}

void renderRow(TargetPhoto const& photo, PlaneView const& view, cv::Rect2d const& plate,
               Material const& material, int y, float* row) {
  for (int x = 0; x < photo.device.resolution().width; ++x) {
    cv::Vec2d uv;
    cv::Vec2d right;
    cv::Vec2d below;
    double value = photo.backgroundAlbedo;
    if (view.hit(cv::Point2d(x, y), uv) && plate.contains(cv::Point2d(uv)) &&
        view.hit(cv::Point2d(x + 0.5, y), right) && view.hit(cv::Point2d(x, y + 0.5), below)) {
      value = albedo(material, uv, 2.0 * (right - uv), 2.0 * (below - uv));
    }
    row[x] = static_cast<float>(value);
  }
}

} // namespace

cv::Mat render(TargetPhoto const& photo) {
  cv::Size const size = photo.device.resolution();
  DotGrid const& grid = photo.target.grid;
  double const border = photo.target.border * grid.pitch;
  cv::Rect2d const plate(grid.columns.start * grid.pitch - border, grid.rows.start * grid.pitch - border,
                         (grid.columns.size() - 1) * grid.pitch + 2 * border,
                         (grid.rows.size() - 1) * grid.pitch + 2 * border);
  Material material;
  material.albedo = photo.target.groundAlbedo;
  if (photo.target.board) {
    material.texture = photo.target.board;
  } else {
    material.texture = grid;
  }
  PlaneView const view(photo);
  cv::Mat light(size, CV_32F);
  cv::parallel_for_(cv::Range(0, size.height), [&](cv::Range const& rows) {
    for (int y = rows.start; y < rows.end; ++y) {
      renderRow(photo, view, plate, material, y, light.ptr<float>(y));
    }
  });
  for (Overlay const& overlay : photo.overlays) {
    draw(overlay, light);
  }
  if (photo.blur > 0) {
    cv::GaussianBlur(light, light, {}, photo.blur);
  }
  bool const isDeep = photo.bits > 8;
  double const steps = std::exp2(photo.bits - 8); // in a grey level
  double const most = std::exp2(photo.bits) - 1;
  cv::Mat image(size, isDeep ? CV_16U : CV_8U);
  for (int y = 0; y < size.height; ++y) {
    auto const* row = light.ptr<float>(y);
    for (int x = 0; x < size.width; ++x) {
      double const lit = 1.0 + photo.shading[0] * ((x + 0.5) / size.width - 0.5) +
                         photo.shading[1] * ((y + 0.5) / size.height - 0.5);
      double grey = photo.blackLevel + photo.white * lit * row[x];
      if (photo.noise > 0) {
        std::uint64_t const pixel = static_cast<std::uint64_t>(y) * static_cast<std::uint64_t>(size.width) +
                                    static_cast<std::uint64_t>(x);
        grey += photo.noise * gaussian(scramble(photo.seed) ^ pixel);
      }
      if (isDeep) {
        image.at<std::uint16_t>(y, x) = cv::saturate_cast<std::uint16_t>(std::min(steps * grey, most));
      } else {
        image.at<std::uint8_t>(y, x) = cv::saturate_cast<std::uint8_t>(grey);
      }
    }
  }
  return image;
}

std::vector<DotTruth> visibleDots(TargetPhoto const& photo, double margin) {
  Camera camera;
  camera.device = photo.device;
  std::vector<DotTruth> visible;
  auto const isClear = [&](cv::Point2d const& p) {
    return photo.device.contains(p) &&
           std::none_of(photo.overlays.begin(), photo.overlays.end(),
                        [&](Overlay const& overlay) { return isInside(overlay, p); });
  };
  constexpr int rimPoints = 24;
  for (DotTruth const& dot : dotTruth(photo.target, photo.cam_from_target, camera, nullptr)) {
    double const radius = dotRadius(photo.target.grid, dot.index.x, dot.index.y);
    bool isVisible = dot.camera && isClear(*dot.camera);
    for (int i = 0; i < rimPoints && isVisible; ++i) {
      double const angle = 2.0 * CV_PI * i / rimPoints;
      cv::Vec3d const onTarget(dot.pattern.x + radius * std::cos(angle),
                               dot.pattern.y + radius * std::sin(angle), 0);
      auto const rim = photo.device.project(photo.cam_from_target * onTarget);
      cv::Point2d const outwards = rim ? *rim - *dot.camera : cv::Point2d();
      isVisible = rim && isClear(*rim) && isClear(*rim + outwards * (margin / cv::norm(outwards)));
    }
    if (isVisible) {
      visible.push_back(dot);
    }
  }
  return visible;
}

Pose viewOf(cv::Point2d const& pointOnTarget, double distance, double tilt, double tiltDirection,
            double roll) {
  auto const about = [](cv::Vec3d const& degrees) { return Pose::fromDegrees({}, degrees).rotation; };
  Pose cam_from_target;
  cam_from_target.rotation =
      about({0, 0, tiltDirection}) * about({tilt, 0, 0}) * about({0, 0, roll - tiltDirection});
  cam_from_target.translation =
      cv::Vec3d(0, 0, distance) - cam_from_target.rotation * cv::Vec3d(pointOnTarget.x, pointOnTarget.y, 0);
  return cam_from_target;
}

} // namespace vorn::sim
