// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/target_turns.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>

#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/calib/camera_model.hpp>

#include "scanner/calibration/target_views.hpp"

namespace vorn::mv {

namespace {

constexpr int quarterTurns = 4;

/// Rotation by quarter turns about a point of the target's plane.
cv::Matx44d turnAbout(cv::Point2d const& middle, int turns) {
  constexpr std::array<int, quarterTurns> cosines = {1, 0, -1, 0};
  double const c = cosines[static_cast<std::size_t>(turns)];
  double const s = cosines[static_cast<std::size_t>((turns + quarterTurns - 1) % quarterTurns)];
  return {c, -s, 0, middle.x - c * middle.x + s * middle.y, //
          s, c,  0, middle.y - s * middle.x - c * middle.y, //
          0, 0,  1, 0,                                      //
          0, 0,  0, 1};
}

/// Where the second camera stands to the first, for each way to count a view.
struct TurnedView {
  std::size_t number = 0;              ///< among all views
  double distance = 0;                 ///< from the first camera to the target
  std::vector<int> turns;              ///< quarter turns of the second camera's count
  std::vector<cv::Matx44d> transforms; ///< cam0_from_cam1, for each of them
};

/// The way to count a view that is nearest to a transform.
std::size_t nearestTurn(TurnedView const& view, cv::Matx44d const& transform) {
  std::size_t best = 0;
  double least = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < view.turns.size(); ++i) {
    double const d = difference(transform, view.transforms[i], view.distance);
    if (d < least) {
      least = d;
      best = i;
    }
  }
  return best;
}

/// Ways to count all views, and how well they agree.
struct Count {
  std::vector<std::size_t> ways; ///< of each view, of those that it has
  double disagreement = std::numeric_limits<double>::infinity();
};

/// The count of all views that follows from a transform.
Count countOf(std::vector<TurnedView> const& views, cv::Matx44d const& transform) {
  constexpr double most = 0.1; // radians: a view that does not belong must not outweigh the others
  Count count;
  count.disagreement = 0;
  for (TurnedView const& view : views) {
    std::size_t const way = nearestTurn(view, transform);
    count.ways.push_back(way);
    count.disagreement += std::min(difference(transform, view.transforms[way], view.distance), most);
  }
  return count;
}

/// The best count and the best of those that differ from it.
std::array<Count, 2> bestCounts(std::vector<TurnedView> const& views) {
  std::array<Count, 2> best;
  for (TurnedView const& view : views) {
    for (cv::Matx44d const& transform : view.transforms) {
      Count count = countOf(views, transform);
      if (count.disagreement < best[0].disagreement) {
        if (count.ways != best[0].ways) {
          best[1] = std::move(best[0]);
        }
        best[0] = std::move(count);
      } else if (count.ways != best[0].ways && count.disagreement < best[1].disagreement) {
        best[1] = std::move(count);
      }
    }
  }
  return best;
}

/// The target's poses before one camera, calibrated by itself.
CameraCalibData posesOf(std::vector<CalibratedView> const& views, std::size_t device, cv::Size const& size) {
  constexpr int maxIterations = 100;
  CameraCalibData data = calibData(views, device);
  CameraModel camera;
  camera.setResolution(size);
  camera.calib(data, maxIterations);
  return data;
}

std::vector<TurnedView> turnedViews(std::vector<CalibratedView> const& views,
                                    std::vector<int> const& readings, cv::Point2d const& middle,
                                    std::vector<cv::Size> const& sizes) {
  CameraCalibData const data0 = posesOf(views, 0, sizes[0]);
  CameraCalibData const data1 = posesOf(views, 1, sizes[1]);
  std::vector<TurnedView> result;
  for (std::size_t number = 0; number < views.size(); ++number) {
    if (views[number].isUsed()) {
      auto const row = static_cast<int>(result.size());
      TurnedView view;
      view.number = number;
      cv::Matx44d const& pose = data0.getPose(row);
      view.distance = std::hypot(pose(0, 3), pose(1, 3), pose(2, 3));
      for (int turns = 0; turns < quarterTurns; turns += quarterTurns / readings[number]) {
        view.turns.push_back(turns);
        // A count that is turned by S calls S x what x was.
        view.transforms.push_back(pose * turnAbout(middle, turns) * data1.getPose(row).inv());
      }
      result.push_back(std::move(view));
    }
  }
  return result;
}

} // namespace

cv::Point2d middleOf(TargetDescription const& target) {
  bool const isStaggered = target.kind == TargetKind::StaggeredCircles;
  cv::Size const extent(isStaggered ? 2 * target.size.width : target.size.width, target.size.height);
  return (cv::Point2d(target.first) + cv::Point2d(extent.width - 1, extent.height - 1) / 2) * target.pitch;
}

double difference(cv::Matx44d const& a, cv::Matx44d const& b, double distance) {
  cv::Matx44d const step = a.inv() * b;
  double const cosine = (step(0, 0) + step(1, 1) + step(2, 2) - 1) / 2;
  return std::acos(std::clamp(cosine, -1.0, 1.0)) + std::hypot(step(0, 3), step(1, 3), step(2, 3)) / distance;
}

void countAlike(std::vector<CalibratedView>& views, std::vector<int> const& readings,
                TargetDescription const& target, std::vector<cv::Size> const& sizes) {
  bool const isAnyTurned = std::any_of(readings.begin(), readings.end(), [](int count) { return count > 1; });
  if (!isAnyTurned) {
    return;
  }
  requireViews(views);
  cv::Point2d const middle = middleOf(target);
  std::vector<TurnedView> const turned = turnedViews(views, readings, middle, sizes);
  std::array<Count, 2> const best = bestCounts(turned);
  constexpr double leastLead = 2; // how much better the best count must agree than the next
  if (best[1].disagreement <= leastLead * best[0].disagreement) {
    throw calibrationFailure(
        "The target looks the same turned, and the views leave open which of its points the two "
        "cameras see as the same: tilt it to more sides, or take a target with marks");
  }
  for (std::size_t i = 0; i < turned.size(); ++i) {
    cv::Matx44d const turn = turnAbout(middle, turned[i].turns[best[0].ways[i]]);
    for (cv::Point2f& point : views[turned[i].number].devices[1].objPnts) {
      cv::Vec4d const at = turn * cv::Vec4d(point.x, point.y, 0, 1);
      point = cv::Point2f(cv::Point2d(at[0], at[1]));
    }
  }
}

} // namespace vorn::mv
