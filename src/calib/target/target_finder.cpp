// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/target_finder.hpp"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <optional>
#include <utility>

#include "calib/target/dot_candidate.hpp"
#include "calib/target/dot_grid.hpp"
#include "calib/target/dot_template.hpp"
#include "calib/target/measured_grid.hpp"
#include "calib/target/target_measurement.hpp"
#include "calib/target/target_rejection.hpp"
#include "core/median.hpp"

namespace vorn::mv {
namespace {

constexpr char const* stage = "detecting targets";

/// A grid with dots where their blobs are, to start measuring from.
struct RoughView {
  TargetView view;
  bool areMarkersClear = false;
  double dotRadius = 0; ///< pitches
  std::vector<SearchReport::Step> steps;
  std::vector<SearchReport::Dropped> loose;
};

/// Which candidates are in no grid.
std::vector<SearchReport::Dropped> looseOf(std::vector<DotCandidate> const& candidates,
                                           std::vector<char> const& resembles,
                                           std::vector<DotCandidate> const& dots, DotGrid const& grid) {
  constexpr std::size_t most = 1000;
  std::vector<SearchReport::Dropped> loose;
  std::vector<char> isInGrid(dots.size(), 0);
  for (GridDot const& dot : grid.dots) {
    isInGrid[static_cast<std::size_t>(dot.candidate)] = 1;
  }
  for (std::size_t i = 0; i < dots.size() && loose.size() < most; ++i) {
    if (isInGrid[i] == 0) {
      loose.push_back({dots[i].centre, "no grid goes through it"});
    }
  }
  std::size_t const end = loose.size() + most;
  for (std::size_t i = 0; i < candidates.size() && loose.size() < end; ++i) {
    if (resembles[i] == 0) {
      loose.push_back({candidates[i].centre, "it does not look like a dot"});
    }
  }
  return loose;
}

/// The grid that the image shows when reduced by `factor`.
RoughView findGrid(cv::Mat const& image, int factor, TargetSettings const& settings, bool isReported,
                   Progress const& progress) {
  ReducedImage level = reduce(image, factor);
  std::vector<DotCandidate> const candidates = findCandidates(level, settings, progress.part(0.0, 0.5));
  auto crosses = findCrosses(candidates, settings.maxAreaMultiplier, progress.part(0.5, 0.6));
  std::vector<char> const resembles = resembleDots(level, candidates, crosses, progress.part(0.6, 0.8));
  std::vector<DotCandidate> dots;
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (resembles[i] != 0) {
      dots.push_back(candidates[i]);
    }
  }
  if (dots.size() < candidates.size()) {
    crosses = findCrosses(dots, settings.maxAreaMultiplier, progress.part(0.8, 0.9));
  }
  DotGrid const grid = assignGrid(image, dots, crosses, settings, progress.part(0.9, 1.0));
  RoughView rough;
  rough.view.isOriginMarked = grid.isOriginMarked;
  rough.areMarkersClear = grid.areMarkersClear;
  rough.dotRadius = grid.dotRadius;
  rough.steps = {{"candidates", static_cast<int>(candidates.size())},
                 {"like dots", static_cast<int>(dots.size())},
                 {"in one grid", static_cast<int>(grid.dots.size())}};
  if (isReported) {
    rough.loose = looseOf(candidates, resembles, dots, grid);
  }
  for (GridDot const& dot : grid.dots) {
    rough.view.dots.push_back({dot.index, dots[static_cast<std::size_t>(dot.candidate)].centre});
  }
  return rough;
}

/// Moves each dot from the centre of its image to the image of its centre.
void correctPerspective(MeasuredGrid& grid) {
  std::vector<MeasuredDot> const seen = grid.dots();
  // Twice: markers shift more than their neighbours, and that must not bend the map that tells how much.
  for (int round = 0; round < 2; ++round) {
    auto const& map = grid.map();
    std::vector<MeasuredDot> corrected = grid.dots();
    for (std::size_t i = 0; map && i < seen.size(); ++i) {
      if (auto const local = map->around(seen[i].index, TargetMap::Self::Included)) {
        corrected[i].measured.centre =
            seen[i].measured.centre - local->discOffset(seen[i].index, seen[i].radius);
      }
    }
    grid.replace(std::move(corrected));
  }
}

/// Replaces the measured centres by the peaks of the correlation with a drawn dot. The patches are rectified
/// through the target's map, so that what is drawn as a circle is one, about the image of its centre.
void measureByTemplate(GridMeasurement const& measurement, MeasuredGrid& grid) {
  auto const& map = grid.map();
  if (!map) {
    return;
  }
  std::vector<MeasuredDot> dots = grid.dots();
  for (bool const areMarkers : {false, true}) {
    std::vector<std::size_t> numbers;
    std::vector<double> radii;
    std::vector<RectifiedDot> rectified;
    double reach = 0;
    for (std::size_t i = 0; i < dots.size(); ++i) {
      MeasuredDot const& dot = dots[i];
      auto const local = map->around(dot.index, TargetMap::Self::Included);
      if (local && measurement.isMarker(dot.index) == areMarkers) {
        // The map passes by the dot at the distance of its noise; the patch is centred on the dot itself.
        cv::Point2d const index(dot.index);
        cv::Point2d const shift = dot.measured.centre - local->position(index);
        rectified.push_back({[local, index, shift, radius = dot.radius](cv::Point2d const& offset) {
                               return local->position(index + offset * radius) + shift;
                             },
                             dot.measured.levels});
        numbers.push_back(i);
        radii.push_back(std::sqrt(dot.measured.area / CV_PI));
        reach = groundReach / dot.radius;
      }
    }
    std::vector<cv::Point2d> const peaks =
        correlationPeaks(measurement.image(), rectified, medianOf(radii), reach);
    std::vector<double> moves;
    for (std::size_t k = 0; k < numbers.size(); ++k) {
      moves.push_back(cv::norm(rectified[k].position(peaks[k]) - dots[numbers[k]].measured.centre));
    }
    // A correlation sees everything in its patch: where something else reaches in, the centre by its edge
    // stands.
    constexpr double leastTolerance = 0.1; // pixels
    constexpr double toleranceInMedians = 5;
    double const tolerance = std::max(leastTolerance, toleranceInMedians * medianOf(moves));
    for (std::size_t k = 0; k < numbers.size(); ++k) {
      if (moves[k] <= tolerance) {
        dots[numbers[k]].measured.centre = rectified[k].position(peaks[k]);
      }
    }
  }
  grid.replace(std::move(dots));
}

/// Counts the indices of an unmarked grid from the dot nearest its middle.
void centreIndices(std::vector<TargetDot>& dots) {
  cv::Point2d mean;
  for (TargetDot const& dot : dots) {
    mean += dot.centre * (1.0 / static_cast<double>(dots.size()));
  }
  auto const nearest =
      std::min_element(dots.begin(), dots.end(), [&](TargetDot const& a, TargetDot const& b) {
        return cv::norm(a.centre - mean) < cv::norm(b.centre - mean);
      });
  cv::Point const origin = nearest->index;
  for (TargetDot& dot : dots) {
    dot.index -= origin;
  }
}

/// Takes a grid through steps that may drop some of its dots, and keeps a record of them where one is wanted.
class Sieve {
public:
  Sieve(MeasuredGrid& grid, SearchReport* report, Progress progress)
      : grid_(grid), report_(report), progress_(std::move(progress)) {}

  template <class Step>
  void apply(char const* left, char const* reason, Step const& step) {
    progress_.at(stage, 1.0);
    if (report_ == nullptr) {
      step();
      return;
    }
    std::vector<TargetDot> const before = grid_.targetDots();
    step();
    recordDropped(*report_, before, grid_, reason);
    report_->steps.push_back({left, static_cast<int>(grid_.dots().size())});
  }

  static void recordDropped(SearchReport& report, std::vector<TargetDot> const& before,
                            MeasuredGrid const& grid, char const* reason) {
    for (TargetDot const& dot : before) {
      if (grid.at(dot.index) == nullptr) {
        report.dropped.push_back({cv::Point2f(dot.centre), reason});
      }
    }
  }

private:
  MeasuredGrid& grid_;
  SearchReport* report_;
  Progress progress_;
};

constexpr char const* notWhole = "it is not whole";

/// Records which dots of a grid could not be measured.
void reportStart(SearchReport& report, std::vector<TargetDot> const& rough, MeasuredGrid const& grid) {
  Sieve::recordDropped(report, rough, grid, notWhole);
  report.steps.push_back({"measured", static_cast<int>(grid.dots().size())});
}

/// Everything from the first measurement of a grid's dots to the finished view.
TargetView finish(GridMeasurement const& measurement, MeasuredGrid grid, TargetSettings const& settings,
                  SearchReport* report, Progress const& progress) {
  if (grid.empty()) {
    return {};
  }
  Sieve sieve(grid, report, progress);
  sieve.apply("measured to their edges", notWhole, [&] { measurement.refine(grid); });
  progress.at(stage, 1.0);
  measurement.fitEdges(grid);
  progress.at(stage, 1.0);
  correctPerspective(grid);
  sieve.apply("of the size of their neighbours", "its size is not that of its neighbours",
              [&] { dropMissized(grid, measurement); });
  sieve.apply("where their neighbours say", "it does not stand where its neighbours say",
              [&] { dropMisplaced(grid); });
  sieve.apply("within the bounds of area and shape", "its area or shape is out of bounds",
              [&] { keepWithinBounds(grid, measurement, settings); });
  if (settings.centreMethod == CentreMethod::TemplatePeak) {
    progress.at(stage, 1.0);
    measureByTemplate(measurement, grid);
  }
  TargetView view{grid.targetDots(), measurement.isMarked(), measurement.dotRadius()};
  if (!view.isOriginMarked && !view.dots.empty()) {
    centreIndices(view.dots);
  }
  auto const isOutside = [&](TargetDot const& dot) {
    return dot.index.x < settings.minIndex.x || dot.index.x > settings.maxIndex.x ||
           dot.index.y < settings.minIndex.y || dot.index.y > settings.maxIndex.y;
  };
  view.dots.erase(std::remove_if(view.dots.begin(), view.dots.end(), isOutside), view.dots.end());
  if (report != nullptr) {
    report->steps.push_back({"within the range of indices", static_cast<int>(view.dots.size())});
  }
  if (view.dots.size() < static_cast<std::size_t>(settings.minKeyPointCount)) {
    for (TargetDot const& dot : report != nullptr ? view.dots : std::vector<TargetDot>()) {
      report->dropped.push_back({cv::Point2f(dot.centre), "too few dots are left with it"});
    }
    return {};
  }
  std::sort(view.dots.begin(), view.dots.end(), [](TargetDot const& a, TargetDot const& b) {
    return a.index.y != b.index.y ? a.index.y < b.index.y : a.index.x < b.index.x;
  });
  return view;
}

/// The finished view of a marked grid; nothing where its markers do not stand up to a close look.
std::optional<TargetView> finishMarked(cv::Mat const& image, RoughView const& rough,
                                       TargetSettings const& settings, SearchReport* report,
                                       Progress const& progress) {
  progress.at(stage, 1.0);
  GridMeasurement measurement(image, settings, true, rough.dotRadius);
  MeasuredGrid grid = measurement.start(rough.view.dots);
  if (!measurement.hasMarkers(grid)) {
    return std::nullopt;
  }
  if (report != nullptr) {
    report->steps = rough.steps;
    reportStart(*report, rough.view.dots, grid);
  }
  return finish(measurement, std::move(grid), settings, report, progress);
}

} // namespace

TargetView findTarget(GreyImage const& image, TargetSettings const& settings, SearchReport* report,
                      Progress const& progress) {
  cv::Mat const& measured = image.deep.empty() ? image.bytes : image.deep;
  RoughView unmarked;
  RoughView blurred;
  double searched = 0.0;
  for (int const factor : searchFactors(image.bytes.size(), settings)) {
    // Each search takes a few times as long as the one before: the last one decides.
    double const after = 0.25 + 0.75 * searched;
    RoughView rough =
        findGrid(image.bytes, factor, settings, report != nullptr, progress.part(searched, after));
    searched = after;
    if (rough.view.isOriginMarked && rough.areMarkersClear) {
      if (auto view = finishMarked(measured, rough, settings, report, progress)) {
        return *view;
      }
    }
    // Blurred dots settle where they start from: a finer image, if it shows the markers too, is better.
    if (rough.view.isOriginMarked && !rough.areMarkersClear) {
      blurred = rough;
    }
    if (rough.view.dots.size() > unmarked.view.dots.size()) {
      unmarked = std::move(rough);
    } else if (unmarked.view.dots.empty() && !rough.steps.empty() &&
               (unmarked.steps.empty() || rough.steps.front().count > unmarked.steps.front().count)) {
      unmarked.steps = std::move(rough.steps);
      unmarked.loose = std::move(rough.loose);
    }
    if (settings.expectedDots > 0 &&
        unmarked.view.dots.size() >= static_cast<std::size_t>(settings.expectedDots)) {
      break;
    }
  }
  if (auto view = finishMarked(measured, blurred, settings, report, progress)) {
    return *view;
  }
  progress.at(stage, 1.0);
  GridMeasurement measurement(measured, settings, false, unmarked.dotRadius);
  MeasuredGrid grid = measurement.start(unmarked.view.dots);
  if (report != nullptr) {
    report->steps = unmarked.steps;
    report->loose = std::move(unmarked.loose);
    reportStart(*report, unmarked.view.dots, grid);
  }
  return finish(measurement, std::move(grid), settings, report, progress);
}

} // namespace vorn::mv
