// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "grid_scores.hpp"

#include <algorithm>
#include <cmath>

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

namespace vorn::bench {

namespace {

constexpr std::size_t fewestPictures = 3;
constexpr std::size_t fewestPoints = 12; // of a picture: three rows of four

struct Lens {
  cv::Mat k;
  cv::Mat d;
  double rms = 0;
};

bool serves(FoundPoints const& points) {
  return points.imgPnts.size() >= fewestPoints;
}

std::optional<Lens> calibrate(std::vector<FoundPoints> const& pictures, cv::Size const& size) {
  std::vector<std::vector<cv::Point2f>> imgPnts;
  std::vector<std::vector<cv::Point3f>> objPnts;
  for (FoundPoints const& points : pictures) {
    if (serves(points)) {
      imgPnts.push_back(points.imgPnts);
      objPnts.push_back(points.objPnts);
    }
  }
  if (imgPnts.size() < fewestPictures) {
    return std::nullopt;
  }
  Lens lens;
  std::vector<cv::Mat> turns;
  std::vector<cv::Mat> shifts;
  lens.rms = cv::calibrateCamera(objPnts, imgPnts, size, lens.k, lens.d, turns, shifts);
  return lens;
}

} // namespace

int foundCount(FoundSet const& found) {
  return static_cast<int>(std::count_if(found.pictures.begin(), found.pictures.end(),
                                        [](FoundPoints const& p) { return !p.imgPnts.empty(); }));
}

int pointCount(FoundSet const& found) {
  std::size_t count = 0;
  for (FoundPoints const& points : found.pictures) {
    count += points.imgPnts.size();
  }
  return static_cast<int>(count);
}

std::optional<double> calibrationError(FoundSet const& found) {
  auto const lens = calibrate(found.pictures, found.imageSize);
  return lens ? std::optional(lens->rms) : std::nullopt;
}

std::optional<double> heldOutError(FoundSet const& found) {
  constexpr std::size_t everyThird = 3;
  std::vector<FoundPoints> used;
  std::vector<FoundPoints> held;
  for (std::size_t i = 0; i < found.pictures.size(); ++i) {
    (i % everyThird == everyThird - 1 ? held : used).push_back(found.pictures[i]);
  }
  auto const lens = calibrate(used, found.imageSize);
  double squares = 0;
  std::size_t count = 0;
  for (FoundPoints const& points : held) {
    cv::Mat turn;
    cv::Mat shift;
    if (!lens || !serves(points) ||
        !cv::solvePnP(points.objPnts, points.imgPnts, lens->k, lens->d, turn, shift)) {
      continue;
    }
    std::vector<cv::Point2f> seen;
    cv::projectPoints(points.objPnts, turn, shift, lens->k, lens->d, seen);
    for (std::size_t i = 0; i < seen.size(); ++i) {
      cv::Point2f const off = seen[i] - points.imgPnts[i];
      squares += static_cast<double>(off.dot(off));
    }
    count += seen.size();
  }
  return count == 0 ? std::nullopt : std::optional(std::sqrt(squares / static_cast<double>(count)));
}

FoundSet shared(FoundSet const& found, FoundSet const& other) {
  constexpr double same = 3; // px
  FoundSet result = found;
  for (std::size_t i = 0; i < found.pictures.size(); ++i) {
    FoundPoints kept;
    std::vector<cv::Point2f> const& others = other.pictures[i].imgPnts;
    for (std::size_t k = 0; k < found.pictures[i].imgPnts.size(); ++k) {
      cv::Point2f const& point = found.pictures[i].imgPnts[k];
      if (std::any_of(others.begin(), others.end(),
                      [&](cv::Point2f const& p) { return cv::norm(p - point) < same; })) {
        kept.imgPnts.push_back(point);
        kept.objPnts.push_back(found.pictures[i].objPnts[k]);
      }
    }
    result.pictures[i] = kept;
  }
  return result;
}

} // namespace vorn::bench
