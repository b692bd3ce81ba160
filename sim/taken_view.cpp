// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <utility>

#include <opencv2/core.hpp>

#include "sim/faults.hpp"
#include "sim/noise.hpp"

namespace vorn::sim {
namespace {

bool isSame(Pose const& a, Pose const& b) {
  return a.rotation == b.rotation && a.translation == b.translation;
}

/// Specks before the rims of some of the dots, which cut into their images.
void addDirt(std::vector<Object>& objects, PlannedView const& view, Pose const& world_from_target,
             int firstImage) {
  DotGrid const& grid = view.target.grid;
  constexpr std::uint64_t dirtKey = 0x64697274;
  std::uint64_t key = scramble(static_cast<std::uint64_t>(firstImage) ^ dirtKey);
  for (int row = grid.rows.start; row < grid.rows.end; ++row) {
    for (int column = grid.columns.start; column < grid.columns.end; ++column) {
      key = scramble(key);
      constexpr double scale = 1.0 / 4294967296.0;
      double const chance = static_cast<double>(key >> 32U) * scale;
      double const angle = 2 * CV_PI * static_cast<double>(key & 0xffffffffU) * scale;
      if (chance >= view.dirtyShare || !hasDot(grid, column, row)) {
        continue;
      }
      double const radius = dotRadius(grid, column, row);
      cv::Point2d const at =
          cv::Point2d(column, row) * grid.pitch + radius * cv::Point2d(std::cos(angle), std::sin(angle));
      constexpr double aboveTarget = 0.05; // mm
      Object speck;
      speck.name = "speck";
      constexpr double sizeInRadii = 0.2;
      speck.shape = Rectangle{{sizeInRadii * radius, sizeInRadii * radius}};
      speck.world_from_object =
          world_from_target *
          Pose{cv::Matx33d::eye(), {at.x, at.y, targetHeight(view.target, at) - aboveTarget}};
      speck.material.albedo = view.target.groundAlbedo;
      objects.push_back(speck);
    }
  }
}

/// The view with the target in a pose.
ProjectorView viewAt(PlannedView const& view, Pose const& world_from_target, int firstImage,
                     RenderOptions const& options) {
  std::vector<Object> objects{targetObject(view.target, world_from_target)};
  if (view.dirtyShare > 0) {
    addDirt(objects, view, world_from_target, firstImage);
  }
  return {view.rig.camera, view.rig.projector, Scene(std::move(objects)), options};
}

std::vector<cv::Mat> mirrored(std::vector<cv::Mat> const& images, bool isMirrored) {
  if (!isMirrored) {
    return images;
  }
  std::vector<cv::Mat> result(images.size());
  for (std::size_t i = 0; i < images.size(); ++i) {
    constexpr int leftRight = 1;
    cv::flip(images[i], result[i], leftRight);
  }
  return result;
}

/// Takes the images of one view after another.
class Taking {
public:
  Taking(PlannedView const& view, int firstImage, RenderOptions const& options)
      : view_(view), first_(firstImage), options_(options) {}

  std::vector<cv::Mat> take(std::vector<cv::Mat> const& patterns, Pose const& world_from_target) {
    std::vector<cv::Mat> const shown = mirrored(patterns, view_.isProjectorMirrored);
    std::vector<cv::Mat> images;
    if (view_.creep == cv::Vec3d()) {
      images = at(world_from_target).capture(shown, first_ + number_);
      number_ += static_cast<int>(shown.size());
    } else {
      for (cv::Mat const& pattern : shown) {
        Pose const moved =
            world_from_target * Pose{cv::Matx33d::eye(), view_.creep * static_cast<double>(number_)};
        images.push_back(at(moved).capture({pattern}, first_ + number_)[0]);
        ++number_;
      }
    }
    return mirrored(images, view_.isCameraMirrored);
  }

private:
  /// The view, traced anew only where the target stands elsewhere.
  ProjectorView const& at(Pose const& world_from_target) {
    if (traced_.empty() || !isSame(pose_, world_from_target)) {
      traced_.clear();
      traced_.push_back(viewAt(view_, world_from_target, first_, options_));
      pose_ = world_from_target;
    }
    return traced_.front();
  }

  PlannedView const& view_;
  int first_;
  RenderOptions options_;
  int number_ = 0;
  std::vector<ProjectorView> traced_;
  Pose pose_;
};

} // namespace

ViewImages taken(PlannedView const& view, std::vector<cv::Mat> const& columns,
                 std::vector<cv::Mat> const& rows, int firstImage, RenderOptions const& options) {
  cv::Mat const white(view.rig.projector.device.resolution(), CV_8UC1, cv::Scalar(255));
  ViewImages images;
  PlannedView ofTarget = view;
  ofTarget.rig.camera.sensor.exposure *= view.targetExposure;
  ofTarget.creep = {0, 0, 0};
  bool const isOneExposure = view.targetExposure == 1;
  Taking target(isOneExposure ? view : ofTarget, firstImage, options);
  images.target = target.take({white}, view.atTarget)[0];
  if (isOneExposure) {
    images.columns = target.take(columns, view.atColumns);
    images.rows = target.take(rows, view.atRows);
  } else {
    Taking sequences(view, firstImage + 1, options);
    images.columns = sequences.take(columns, view.atColumns);
    images.rows = sequences.take(rows, view.atRows);
  }
  return images;
}

} // namespace vorn::sim
