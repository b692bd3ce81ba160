// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "support/target_photos.hpp"

#include <cmath>
#include <map>
#include <utility>

#include "support/seed.hpp"

namespace vorn::test {

sim::TargetPhoto targetPhoto(double dotDiameter, double tilt, double tiltDirection, double roll) {
  constexpr double pitch = 15;
  constexpr double distance = 750;
  double const pitchInPixels = 2 * dotDiameter;
  cv::Size const size(cvRound(26 * pitchInPixels), cvRound(20 * pitchInPixels));
  double const focal = pitchInPixels * distance / pitch;
  sim::TargetPhoto photo;
  photo.device = sim::Device({focal, focal}, {0.497 * size.width, 0.503 * size.height},
                             {-0.12, 0.08, 0.0005, -0.0004, 0}, size);
  photo.target.grid.pitch = pitch;
  photo.cam_from_target = sim::viewOf({0, 0}, distance, tilt, tiltDirection, roll);
  photo.shading = {0.4, -0.3};
  photo.noise = 2;
  photo.seed = seed();
  return photo;
}

mv::CalibPatternDetector targetDetector() {
  mv::CalibPatternDetector detector;
  detector["PatternDim"] = 15.0;
  detector["MinDotArea"] = 20.0;
  detector["MaxDotArea"] = 10000.0;
  return detector;
}

std::ostream& operator<<(std::ostream& out, DetectionErrors const& errors) {
  return out << errors.found << " of " << errors.visible << " found, " << errors.wrong << " wrong, RMS "
             << errors.rms << " px, worst " << errors.worst << " px";
}

DetectionErrors compare(mv::CalibPatternDetector::Result const& result, sim::TargetPhoto const& photo) {
  // Far more than any error of a centre, far less than the way to the next dot.
  constexpr double sameDot = 2.0;
  // The blur of an edge: a dot nearer to something else cannot be told from one that is cut.
  constexpr double margin = 2.5;
  std::map<std::pair<int, int>, cv::Point2d> visible;
  for (sim::DotTruth const& dot : sim::visibleDots(photo, margin)) {
    visible[{dot.index.x, dot.index.y}] = *dot.camera;
  }
  DetectionErrors errors;
  errors.visible = static_cast<int>(visible.size());
  double squares = 0;
  for (mv::CalibKeyPoint const& point : result.getKeyPoints()) {
    cv::Vec3d const onTarget(point.objPnt.x, point.objPnt.y, 0);
    auto const expected = photo.device.project(photo.cam_from_target * onTarget);
    double const error = expected ? cv::norm(cv::Point2d(point.imgPnt) - *expected) : sameDot;
    if (error >= sameDot) {
      ++errors.wrong;
      continue;
    }
    double const pitch = photo.target.grid.pitch;
    if (visible.count({cvRound(point.objPnt.x / pitch), cvRound(point.objPnt.y / pitch)}) != 0) {
      ++errors.found;
      squares += error * error;
      errors.worst = std::max(errors.worst, error);
    }
  }
  errors.rms = std::sqrt(squares / std::max(1, 2 * errors.found));
  return errors;
}

} // namespace vorn::test
