// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <vector>

#include <opencv2/core/types.hpp>

#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/measure/amat.hpp>

#include "measure/canvas.hpp"

namespace vorn::mv {

/// Where image and world lie on a canvas.
struct MarkPlacement {
  cv::Point2d shown; ///< the image's pixel at the shown part's upper left corner
  double zoom = 1.0;
  cv::Rect area; ///< of the shown part on the canvas
  double markScale = 1.0;
  CameraModel const* camera = nullptr; ///< none: no view
  cv::Matx44d cam_from_world;

  /// From a pixel of the image to one of the canvas.
  cv::Point2d place(cv::Point2d const& pixel) const;
};

/// Draws marks on a canvas and counts what became of them.
class MarkPainter {
public:
  MarkPainter(Canvas& canvas, MarkPlacement placement, DrawReport& report)
      : canvas_(canvas), at_(std::move(placement)), report_(report) {}

  /// @throws Exception for a mark in millimetres when there is no view
  void paint(Mark const& mark);

private:
  /// The canvas places of points, with `parts` pieces a line between them; nothing when the camera cannot see
  /// one.
  std::optional<Outline> placed(Mark const& mark, std::vector<cv::Point3d> const& points, int parts) const;
  std::optional<Outline> shapeOf(Mark const& mark) const;
  cv::Vec3b inkOf(Mark const& mark) const;

  Pen penOf(Mark const& mark, cv::Vec3b const& ink) const;
  void arrow(Mark const& mark, Outline const& points, cv::Vec3b const& ink);
  void words(Mark const& mark, std::string const& text, cv::Point2d position, cv::Vec3b const& ink,
             TextDown down = TextDown::Middle);
  void paintShape(Mark const& mark, Outline const& shape);
  bool paintAxes(Mark const& mark);
  bool paintScaleBar(Mark const& mark);

  Canvas& canvas_;
  MarkPlacement at_;
  DrawReport& report_;
};

} // namespace vorn::mv
