// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/detect_target.hpp>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/mv/calib/target_finder.hpp>
#include <vorn/mv/core/library.hpp>

#include "calib/target/chessboard.hpp"
#include "calib/target/dot_grid.hpp"
#include "calib/target/grey_image.hpp"
#include "calib/target/grid_placement.hpp"
#include "calib/target/marker_ring.hpp"
#include "calib/target/target_finder.hpp"
#include "calib/target/target_map.hpp"
#include "core/error.hpp"
#include "core/progress.hpp"

namespace vorn::mv {
namespace {

/// Fewest points of a target of unknown size: what is not one has small grids in it at times.
constexpr int leastOfUnknown = 20;

void require(bool isMet, std::string const& message, char const* context = "DetectSettings") {
  if (!isMet) {
    throw error(message, context);
  }
}

int leastKeyPoints(TargetDescription const& target, DetectSettings const& settings) {
  int const most = target.size == cv::Size() ? leastOfUnknown : target.size.area();
  return settings.minKeyPoints > 0 ? settings.minKeyPoints : std::min(leastOfUnknown, most);
}

TargetSettings searchSettings(TargetDescription const& target, DetectSettings const& settings) {
  TargetSettings search;
  search.minDotArea = settings.minDotArea;
  search.maxDotArea = settings.maxDotArea;
  search.minDotRatio = settings.minDotRatio;
  search.blurRadius = settings.blurRadius;
  search.morphRadius = settings.morphRadius;
  search.minKeyPointCount = std::min(leastKeyPoints(target, settings), 9);
  cv::Point const farthest(GridIndex::reach, GridIndex::reach);
  search.minIndex = -farthest;
  search.maxIndex = farthest;
  if (target.size != cv::Size()) {
    search.expectedDots = target.size.area() - static_cast<int>(target.marks.size());
    if (target.hasCornerMarks()) {
      search.minIndex = target.first;
      search.maxIndex = target.first + cv::Point(target.size) - cv::Point(1, 1);
    }
  }
  return search;
}

void addPoint(Detection& detection, TargetDescription const& target, TargetDot const& dot) {
  detection.keyPoints.emplace_back(cv::Point2f(dot.centre), cv::Point2f(target.position(dot.index)));
  detection.indices.push_back(dot.index);
  detection.radii.push_back(static_cast<float>(dot.radius));
}

/// Takes the dots in the order of rows.
void addPoints(Detection& detection, TargetDescription const& target, std::vector<TargetDot> dots) {
  std::sort(dots.begin(), dots.end(), [](TargetDot const& a, TargetDot const& b) {
    return a.index.y != b.index.y ? a.index.y < b.index.y : a.index.x < b.index.x;
  });
  for (TargetDot const& dot : dots) {
    addPoint(detection, target, dot);
  }
}

/// The last step that left too few, in words.
std::string reasonOf(std::vector<DetectionStep> const& steps, int least) {
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (steps[i].count < least) {
      return "of " +
             (i == 0 ? std::string("the image")
                     : std::to_string(steps[i - 1].count) + " " + steps[i - 1].name) +
             " " + std::to_string(steps[i].count) + " are " + steps[i].name + ", and a target takes " +
             std::to_string(least);
    }
  }
  return "no grid of dots";
}

/// Places the dots of an unmarked grid of known size.
void place(Detection& detection, cv::Mat const& image, TargetView const& view,
           TargetDescription const& target) {
  auto const map = TargetMap::fit(view.dots);
  GridPlacement placement = placeGrid(view.dots, target, [&](cv::Point const& index) {
    constexpr double leastRing = 0.5; // of the dots' contrast; near 0 for the others
    auto const local = map ? map->around(index, TargetMap::Self::Included) : std::nullopt;
    auto const ring = local
                          ? markerRing(image, local->position(index), local->jacobian(index), view.dotRadius)
                          : std::nullopt;
    return ring.value_or(0) >= leastRing;
  });
  detection.reason = placement.reason;
  detection.readings = placement.readings;
  detection.isOriginMarked = placement.isMarked;
  addPoints(detection, target, std::move(placement.dots));
}

/// What is found of a target of bright dots.
Detection detectDots(GreyImage const& image, TargetDescription const& target, DetectSettings const& settings,
                     Progress const& progress) {
  SearchReport report;
  int const least = leastKeyPoints(target, settings);
  TargetView view = findTarget(image, searchSettings(target, settings), &report, progress);
  std::vector<TargetDot> const grid = view.dots;
  Detection detection;
  for (auto& step : report.steps) {
    detection.steps.push_back({std::move(step.name), step.count});
  }
  for (auto& dropped : report.dropped) {
    detection.dropped.push_back({dropped.centre, std::move(dropped.reason)});
  }
  if (static_cast<int>(view.dots.size()) < least) {
    detection.reason = reasonOf(detection.steps, least);
  } else if (target.hasCornerMarks() && view.isOriginMarked) {
    detection.isOriginMarked = true;
    detection.readings = 1;
    addPoints(detection, target, std::move(view.dots));
  } else if (target.size != cv::Size()) {
    place(detection, image.bytes, view, target);
  } else if (target.kind == TargetKind::Circles) {
    detection.isOriginMarked = view.isOriginMarked;
    detection.readings = view.isOriginMarked ? 1 : 0;
    addPoints(detection, target, std::move(view.dots));
  }
  if (static_cast<int>(detection.keyPoints.size()) < least && detection.reason.empty()) {
    detection.reason =
        std::to_string(detection.keyPoints.size()) + " dots, and a target takes " + std::to_string(least);
  }
  if (!detection.reason.empty()) {
    for (auto const& dot : grid) {
      detection.dropped.push_back({cv::Point2f(dot.centre), "its grid is not the target's"});
    }
    for (auto& loose : report.loose) {
      detection.dropped.push_back({loose.centre, std::move(loose.reason)});
    }
    detection.keyPoints.clear();
    detection.indices.clear();
    detection.radii.clear();
    detection.isOriginMarked = false;
    detection.readings = 0;
  }
  return detection;
}

/// Whether a detection tells more than another one: marks first, then fixed indices, then points, then what
/// was left after the steps.
bool tellsMore(Detection const& a, Detection const& b) {
  auto const rank = [](Detection const& d) {
    std::vector<int> left; // by the last step, then by those before
    std::transform(d.steps.rbegin(), d.steps.rend(), std::back_inserter(left),
                   [](DetectionStep const& step) { return step.count; });
    return std::make_tuple(d.isOriginMarked, !d.isEmpty() && d.readings > 0, d.keyPoints.size(), left);
  };
  return rank(a) > rank(b);
}

} // namespace

void DetectSettings::check() const {
  constexpr int mostBlur = 15;
  constexpr int mostMorph = 10;
  require(minKeyPoints >= 0, "minKeyPoints is " + std::to_string(minKeyPoints) + " and must be 0 or more");
  require(minDotArea >= 0, "minDotArea is " + std::to_string(minDotArea) + " and must be 0 or more");
  require(maxDotArea >= std::max(minDotArea, 1.0),
          "maxDotArea is " + std::to_string(maxDotArea) + " and must be minDotArea or more, and at least 1");
  require(minDotRatio > 0 && minDotRatio <= 1,
          "minDotRatio is " + std::to_string(minDotRatio) + " and must be above 0 and up to 1");
  require(blurRadius >= 0 && blurRadius <= mostBlur, "blurRadius is " + std::to_string(blurRadius) +
                                                         " and must be from 0 to " +
                                                         std::to_string(mostBlur));
  require(morphRadius >= 0 && morphRadius <= mostMorph, "morphRadius is " + std::to_string(morphRadius) +
                                                            " and must be from 0 to " +
                                                            std::to_string(mostMorph));
}

Detection detectTarget(cv::Mat const& image, TargetDescription const& target, DetectSettings const& settings,
                       Observer* observer) {
  Library::assertValid();
  target.check();
  settings.check();
  std::shared_ptr<ITargetFinder const> const finder = targetFinder(target.kind);
  require(finder != nullptr || target.kind != TargetKind::Charuco,
          "ChArUco boards are found by the library vorn::mv_charuco: link it and call useCharuco first",
          "detectTarget");
  Progress const progress(observer);
  progress.at("detecting targets", 0.0);
  GreyImage const grey = greyImage(image, "detectTarget");
  if (target.kind == TargetKind::Chessboard) {
    return detectChessboard(grey.bytes, target, progress);
  }
  if (target.kind == TargetKind::Charuco) {
    return finder->detect(grey.bytes, target, settings);
  }
  Detection best;
  bool isFirst = true;
  for (TargetPolarity const polarity : {TargetPolarity::Bright, TargetPolarity::Dark}) {
    if (target.polarity != TargetPolarity::Either && target.polarity != polarity) {
      continue;
    }
    Detection detection = detectDots(polarity == TargetPolarity::Bright ? grey : grey.inverted(), target,
                                     settings, isFirst ? progress.part(0.0, 0.5) : progress.part(0.5, 1.0));
    if (isFirst || tellsMore(detection, best)) {
      best = std::move(detection);
      isFirst = false;
    }
    if (best.isOriginMarked) {
      break;
    }
  }
  return best;
}

} // namespace vorn::mv
