// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "grid_finders.hpp"

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/detect_target.hpp>

namespace vorn::bench {

namespace {

FoundPoints findByLibrary(cv::Mat const& grey, CaptureSet const& set) {
  FoundPoints found;
  for (mv::CalibKeyPoint const& point : mv::detectTarget(grey, set.target).keyPoints) {
    found.imgPnts.push_back(point.imgPnt);
    found.objPnts.emplace_back(point.objPnt.x, point.objPnt.y, 0.0F);
  }
  return found;
}

/// OpenCV gives all points of a grid, by rows.
FoundPoints wholeGrid(std::vector<cv::Point2f> points, CaptureSet const& set) {
  FoundPoints found;
  bool const isStaggered = set.target.kind == mv::TargetKind::StaggeredCircles;
  for (std::size_t i = 0; i < points.size(); ++i) {
    int const column = static_cast<int>(i) % set.openCvSize.width;
    int const row = static_cast<int>(i) / set.openCvSize.width;
    cv::Point const index(isStaggered ? 2 * column + row % 2 : column, row);
    found.objPnts.emplace_back(cv::Point3d(set.target.pitch * index.x, set.target.pitch * index.y, 0));
  }
  found.imgPnts = std::move(points);
  return found;
}

FoundPoints findCircles(cv::Mat const& grey, CaptureSet const& set, int flags) {
  bool const isStaggered = set.target.kind == mv::TargetKind::StaggeredCircles;
  flags |= isStaggered ? cv::CALIB_CB_ASYMMETRIC_GRID : cv::CALIB_CB_SYMMETRIC_GRID;
  std::vector<cv::Point2f> points;
  bool isFound = false;
  for (mv::TargetPolarity const polarity : {mv::TargetPolarity::Dark, mv::TargetPolarity::Bright}) {
    bool const isTried = set.target.polarity == mv::TargetPolarity::Either || set.target.polarity == polarity;
    if (!isFound && isTried) { // its blobs are dark ones
      cv::Mat const image = polarity == mv::TargetPolarity::Dark ? grey : cv::Mat(255 - grey);
      isFound = cv::findCirclesGrid(image, set.openCvSize, points, flags);
    }
  }
  return isFound ? wholeGrid(points, set) : FoundPoints();
}

FoundPoints findChessboard(cv::Mat const& grey, CaptureSet const& set) {
  std::vector<cv::Point2f> points;
  bool const isFound = cv::findChessboardCornersSB(grey, set.openCvSize, points,
                                                   cv::CALIB_CB_EXHAUSTIVE | cv::CALIB_CB_ACCURACY);
  return isFound ? wholeGrid(points, set) : FoundPoints();
}

} // namespace

std::vector<GridFinder> gridFinders(mv::TargetKind kind) {
  std::vector<GridFinder> finders = {{"library", findByLibrary}};
  if (kind == mv::TargetKind::Chessboard) {
    finders.push_back({"OpenCV", findChessboard});
  } else if (kind != mv::TargetKind::Charuco) {
    finders.push_back(
        {"OpenCV", [](cv::Mat const& grey, CaptureSet const& set) { return findCircles(grey, set, 0); }});
    finders.push_back({"OpenCV, clustering", [](cv::Mat const& grey, CaptureSet const& set) {
                         return findCircles(grey, set, cv::CALIB_CB_CLUSTERING);
                       }});
  }
  return finders;
}

} // namespace vorn::bench
