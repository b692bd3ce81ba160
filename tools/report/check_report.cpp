// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/check_report.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/measure/plot.hpp>

#include "tools/report/deviation_scale.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/report/printed.hpp"

namespace vorn::tools {

namespace {

constexpr double degrees = 180.0 / CV_PI;

char const* wordOf(mv::ScanVerdict verdict) {
  switch (verdict) {
  case mv::ScanVerdict::Good:
    return "good";
  case mv::ScanVerdict::Drifted:
    return "drifted";
  default:
    return "unclear";
  }
}

nlohmann::json inDegrees(cv::Vec3d const& angles) {
  return {angles[0] * degrees, angles[1] * degrees, angles[2] * degrees};
}

PageTable figuresOf(mv::ScanCheck const& check) {
  constexpr double percent = 100.0;
  PageTable table;
  table.title = "Figures";
  table.rows = {{"verdict", wordOf(check.verdict)},
                {"smooth part of the disagreement, RMS [px]", figure(check.smooth)},
                {"its limit [px]", figure(check.limit)},
                {"what noise alone makes of it [px]", figure(check.smoothSigma)},
                {"its mean [px]", figure(check.mean)},
                {"noise of a pixel, standard deviation [px]", figure(check.noise)},
                {"pixels that counted", countText(check.pixels)},
                {"outliers, such as at edges", countText(check.outliers)},
                {"cells of the image with such pixels [%]", printed("%.0f", percent * check.coverage)}};
  if (check.verdict == mv::ScanVerdict::Drifted) {
    for (int axis = 0; axis < 3; ++axis) {
      table.rows.push_back(
          {printed("turn of the projector about the camera's %c [degrees]", 'x' + axis),
           figure(degrees * check.turn[axis]) + " \u00b1 " + figure(degrees * check.turnSigma[axis])});
    }
    table.rows.push_back({"smooth part with the projector turned back [px]", figure(check.smoothAfter)});
  }
  return table;
}

/// Where columns and rows disagree, coloured so that the limit can be seen, whatever single cells at the
/// border say.
void addMap(mv::ScanCheck const& check, Page& page) {
  std::vector<float> const cells(check.map.begin(), check.map.end());
  auto const present = static_cast<std::size_t>(
      std::count_if(cells.begin(), cells.end(), [](float value) { return std::isfinite(value); }));
  double const reach = std::max(check.limit, deviationReach(cells));
  mv::Plot plot;
  plot.title = "decoded minus foretold projector coordinate, means of cells";
  plot.heat = check.map;
  plot.heatMap = mv::ColorMap::Diverging;
  plot.x.title = "column of cells";
  plot.y.title = "row of cells";
  plot.heatScale.title = "difference";
  plot.heatScale.unit = "px";
  plot.heatScale.low = -reach;
  plot.heatScale.high = reach;
  plot.isEqualScale = true;
  plot.isYDown = true;
  std::string const beyond = beyondInWords(countBeyond(cells, -reach, reach), present);
  page.add("Disagreement",
           "Where one coordinate of the scan is not what the other one and the calibration foretell; grey: "
           "no pixel that "
           "counted." +
               (beyond.empty() ? "" : " Of the cells " + beyond + " the ends of the colours."),
           std::vector<mv::Plot>{plot});
}

} // namespace

nlohmann::json asJson(mv::ScanCheck const& check) {
  nlohmann::json json{{"verdict", wordOf(check.verdict)},
                      {"smooth", check.smooth},
                      {"mean", check.mean},
                      {"limit", check.limit},
                      {"smoothSigma", check.smoothSigma},
                      {"noise", check.noise},
                      {"pixels", check.pixels},
                      {"outliers", check.outliers},
                      {"coverage", check.coverage}};
  if (check.verdict == mv::ScanVerdict::Drifted) {
    json["turn"] = inDegrees(check.turn);
    json["turnSigma"] = inDegrees(check.turnSigma);
    json["smoothAfter"] = check.smoothAfter;
  }
  return json;
}

std::string sentence(mv::ScanCheck const& check) {
  std::string const figures =
      printed("by %.4f px (smooth part; limit %g) at %zu pixels with a noise of %.3f px", check.smooth,
              check.limit, check.pixels, check.noise);
  switch (check.verdict) {
  case mv::ScanVerdict::Good:
    return "Columns and rows agree: they differ " + figures;
  case mv::ScanVerdict::Drifted:
    return "The calibration has drifted: columns and rows differ " + figures;
  default:
    if (check.isTorn) {
      std::size_t const all = check.pixels + check.outliers;
      return printed(
          "Nothing can be said: %zu of %zu pixels (%.0f %%) are outliers, whose column and row are not "
          "of one point; are images in a wrong place?",
          check.outliers, all, 100.0 * static_cast<double>(check.outliers) / static_cast<double>(all));
    }
    return "Nothing can be said: columns and rows differ " + figures +
           ", which would hide what is looked for";
  }
}

std::string turnSentence(mv::ScanCheck const& check) {
  cv::Vec3d const turn = check.turn * degrees;
  std::string const text =
      printed("A projector turned by %.4f %.4f %.4f degrees about the camera's axes leaves %.4f px", turn[0],
              turn[1], turn[2], check.smoothAfter);
  return text + (check.smoothAfter <= check.limit ? "" : ": something else has changed, calibrate anew");
}

void fillCheckPage(mv::ScanCheck const& check, std::string const& name, Page& page) {
  page.title = "Check of a calibration";
  page.subtitle = name;
  using Weight = PageFinding::Weight;
  bool const isDrifted = check.verdict == mv::ScanVerdict::Drifted;
  Weight const weight = isDrifted                                ? Weight::Failure
                        : check.verdict == mv::ScanVerdict::Good ? Weight::Good
                                                                 : Weight::Warning;
  page.findings.push_back({weight, sentence(check) + ".", isDrifted ? turnSentence(check) + "." : ""});
  page.tables = {figuresOf(check)};
  addMap(check, page);
  page.emptyReason = "A check shows no points: the picture below shows where columns and rows disagree.";
}

} // namespace vorn::tools
