// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/registration_page.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include <opencv2/core.hpp>

#include <vorn/mv/measure/color_map.hpp>

#include "tools/files/transform_file.hpp"
#include "tools/report/deviation_scale.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/report/printed.hpp"
#include "tools/scan/preview.hpp"

namespace vorn::tools {

namespace {

std::vector<cv::Vec3f> presentPoints(mv::PointCloud const& cloud) {
  std::vector<cv::Vec3f> points;
  for (int row = 0; row < cloud.points().rows; ++row) {
    for (int column = 0; column < cloud.points().cols; ++column) {
      if (cloud.state()(row, column) == 0) {
        points.push_back(cloud.points()(row, column));
      }
    }
  }
  return points;
}

constexpr double percent = 100.0;

std::pair<double, double> colorRange(MovedCloud const& moved, FigureOptions const& look) {
  double const reach = deviationReach(moved.deviations);
  return look.range.value_or(std::pair(-reach, reach));
}

std::string strayWords(MovedCloud const& moved, std::pair<double, double> const& range) {
  auto const count = std::count_if(moved.deviations.begin(), moved.deviations.end(),
                                   [](float value) { return std::isfinite(value); });
  return beyondInWords(countBeyond(moved.deviations, range.first, range.second),
                       static_cast<std::size_t>(count));
}

PageTable figuresOf(mv::Registration const& found) {
  PageTable table;
  table.title = "Fit";
  table.rows = {{"points with a place on the target [%]", printed("%.1f", percent * found.overlap)},
                {"points used", countText(found.matches)},
                {"off the target, RMS [mm]", figure(found.rms)},
                {"noise of a point, standard deviation [mm]", figure(found.sigma)},
                {"iterations", std::to_string(found.iterations)}};
  return table;
}

} // namespace

MovedCloud movedCloud(std::string const& name, mv::PointCloud const& cloud,
                      cv::Matx44d const& target_from_source, cv::Mat_<float> const& deviations) {
  MovedCloud moved;
  moved.name = name;
  cv::Matx33d const rotation = target_from_source.get_minor<3, 3>(0, 0);
  cv::Vec3d const translation(target_from_source(0, 3), target_from_source(1, 3), target_from_source(2, 3));
  for (int row = 0; row < cloud.points().rows; ++row) {
    for (int column = 0; column < cloud.points().cols; ++column) {
      if (cloud.state()(row, column) == 0) {
        moved.points.emplace_back(rotation * cv::Vec3d(cloud.points()(row, column)) + translation);
        moved.deviations.push_back(deviations(row, column));
      }
    }
  }
  return moved;
}

mv::AMat drawDeviations(MovedCloud const& moved, FigureOptions const& look) {
  auto const [low, high] = colorRange(moved, look);
  std::vector<cv::Vec3b> colors;
  colors.reserve(moved.points.size());
  for (float const value : moved.deviations) {
    double const share = (static_cast<double>(value) - low) / (high - low);
    constexpr uchar grey = 128;
    colors.push_back(std::isfinite(value) ? mv::colorOf(mv::ColorMap::Diverging, share)
                                          : cv::Vec3b::all(grey));
  }
  std::string const beyond = strayWords(moved, {low, high});
  mv::AMat picture = drawCloud(
      moved.points, colors,
      "Distance of " + moved.name + " from the target" + (beyond.empty() ? "" : "; " + beyond), look);
  picture.addLegend(mv::ColorMap::Diverging, low, high, "mm", "deviation");
  return picture;
}

void describeRegistration(Page& page, mv::Registration const& found, MovedCloud const& moved,
                          mv::PointCloud const& target, std::string const& targetName,
                          FigureOptions const& look) {
  using Weight = PageFinding::Weight;
  page.findings.push_back(
      {Weight::Note,
       printed("%.1f %% of the points of %s have a place on %s, %.4g mm RMS off it.", percent * found.overlap,
               moved.name.c_str(), targetName.c_str(), found.rms),
       ""});
  if (std::string const doubts = doubtsInWords(found); !doubts.empty()) {
    page.findings.push_back({Weight::Failure, doubts + ".",
                             "Begin nearer to the right place, or let the shapes be searched for a start."});
  }
  if (std::string const free = freeMotionsInWords(found); !free.empty()) {
    page.findings.push_back({Weight::Failure, "The motion is not known: " + free + ".",
                             "Let the views share places that differ more, such as edges and steps."});
  }
  if (found.resolution > found.sigma) {
    page.findings.push_back(
        {Weight::Warning,
         "The coordinates are so far from zero that floats, not the noise, limit the result.",
         "Store them as doubles, or nearer to zero."});
  }
  if (cv::Vec3d const origin = target.offset(); origin != cv::Vec3d()) {
    page.findings.push_back({Weight::Note,
                             printed("Coordinates on this page count from (%.15g, %.15g, %.15g) of %s.",
                                     origin[0], origin[1], origin[2], targetName.c_str()),
                             ""});
  }
  PageCloud source;
  source.name = moved.name;
  source.points = moved.points;
  source.fields.push_back({"deviation", "mm", moved.deviations, true, look.range});
  source.coloredBy = "deviation";
  page.add(source);
  PageCloud other;
  other.name = targetName;
  other.isShown = false; // within the noise of the source's points it would hide half of their colours
  other.points = presentPoints(target);
  page.add(other);
  page.tables.push_back(figuresOf(found));
  PageTable table;
  table.title = "How well the motion is known";
  table.head = {"", "x", "y", "z"};
  auto const row = [&](char const* name, int first, double scale) {
    std::vector<std::string> cells{name};
    for (int i = first; i < first + 3; ++i) {
      cells.push_back(figure(scale * std::sqrt(found.covariance(i, i))));
    }
    table.rows.push_back(std::move(cells));
  };
  row("turn, standard deviation [mrad]", 0, 1000.0);
  row("shift of the overlap's middle, standard deviation [mm]", 3, 1.0);
  table.rows.push_back(
      {"middle of the overlap [mm]", figure(found.pivot[0]), figure(found.pivot[1]), figure(found.pivot[2])});
  page.tables.push_back(table);
  FigureOptions light = look;
  light.isLight = true;
  std::string const beyond = strayWords(moved, colorRange(moved, look));
  page.add("Deviations",
           "The source's points, coloured by their distance from the target; grey: no place on it." +
               (beyond.empty() ? "" : " Of the others " + beyond + " the ends of the colours."),
           drawDeviations(moved, light));
}

} // namespace vorn::tools
