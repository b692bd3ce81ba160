// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/registration/deviation.hpp>
#include <vorn/mv/registration/find_start.hpp>
#include <vorn/mv/registration/markers.hpp>
#include <vorn/mv/registration/registration.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_input.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/mesh_input.hpp"
#include "tools/files/transform_file.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/figure_options.hpp"
#include "tools/report/page.hpp"
#include "tools/report/page_options.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/registration_page.hpp"
#include "tools/report/warning.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct AlignOptions {
  std::string source;
  std::string target;
  std::string out;
  std::string moved;
  std::string picture;
  std::string start;
  std::vector<std::string> markers; ///< files of the source's and of the target's; or none
  bool isSearched = false;
  bool allowFree = false;
  bool allowDoubtful = false;
  mv::RegistrationSettings settings;
  FigureOptions look;
  PageOptions page;
};

[[noreturn]] void fail(std::string const& text) {
  throw Exception(text, nullptr, 0, "align");
}

/// The longest edge of the box of the present points.
double lengthOf(mv::PointCloud cloud) {
  cloud.calcBoundingBox();
  cv::Vec3f const size = cloud.boxDims();
  return static_cast<double>(std::max({size[0], size[1], size[2]}));
}

/// Why clouds of such different lengths may be; empty when they differ as views of one part do.
std::string unitsHint(double source, double target) {
  struct Factor {
    double value;
    char const* units;
  };
  constexpr Factor factors[] = {{10.0, "centimetres and millimetres"},
                                {25.4, "inches and millimetres"},
                                {100.0, "metres and centimetres"},
                                {304.8, "feet and millimetres"},
                                {1000.0, "metres and millimetres"}};
  double const ratio = std::max(source / target, target / source);
  constexpr double leastRatio = 5.0;
  if (!(ratio > leastRatio)) {
    return "";
  }
  std::string const text =
      printed("one cloud is %.4g times as large as the other, %.4g and %.4g: are they in different units",
              ratio, source, target);
  for (Factor const& factor : factors) {
    constexpr double tolerance = 0.35;
    if (std::abs(std::log(ratio / factor.value)) < tolerance) {
      return text + ", such as " + factor.units + "?";
    }
  }
  return text + "?";
}

mv::Registration registered(AlignOptions const& options, mv::PointCloud const& source,
                            mv::PointCloud const& target, std::string const& hint) {
  try {
    return watched(
        [&](Observer* observer) { return mv::registerClouds(source, target, options.settings, observer); });
  } catch (Cancelled const&) {
    throw;
  } catch (Exception const& e) {
    bool const says = hint.empty() || e.message().find("units") != std::string::npos;
    fail(options.source + " onto " + options.target + ": " + e.message() + (says ? "" : "; " + hint));
  }
}

void print(mv::Registration const& found, cv::Matx44d const& target_from_source, cv::Vec3d const& pivot) {
  std::cout << printed("%.1f %% of the points have a place on the target, %zu used, %.4g mm RMS off its "
                       "smooth surface, the noise of "
                       "both clouds included (sigma %.4g mm)\n",
                       100.0 * found.overlap, found.matches, found.rms, found.sigma);
  for (int i = 0; i < 4; ++i) {
    std::cout << printed("%14.9f %14.9f %14.9f %16.9g\n", target_from_source(i, 0), target_from_source(i, 1),
                         target_from_source(i, 2), target_from_source(i, 3));
  }
  auto const deviation = [&](int i) { return std::sqrt(found.covariance(i, i)); };
  constexpr double milli = 1000.0;
  std::cout << printed(
      "standard deviations: turn %.3g %.3g %.3g mrad, shift %.3g %.3g %.3g mm about (%.4g, %.4g, %.4g)\n",
      milli * deviation(0), milli * deviation(1), milli * deviation(2), deviation(3), deviation(4),
      deviation(5), pivot[0], pivot[1], pivot[2]);
  std::cout << printed("%s after %d iterations\n",
                       found.stop == mv::RegistrationStop::Converged ? "converged" : "stopped",
                       found.iterations);
}

/// The points in the target's frame, with their deviations as a field.
void writeMoved(std::string const& path, mv::PointCloud source, mv::Registration const& found,
                cv::Vec3d const& targetOffset, cv::Mat_<float> const& deviations) {
  source.fields()["deviation"] = deviations;
  source.setTransform(found.targetFromSource);
  source.setOffset(targetOffset);
  writeGraphic(path, source.getGraphicObject(true));
}

/// Writes the moved cloud, the picture and what the page shows, as far as they are wanted.
void showDeviations(AlignOptions const& options, mv::PointCloud const& source, mv::PointCloud const& target,
                    mv::Registration const& found, Report& report) {
  mv::DeviationSettings measure;
  measure.surfaceFromCloud = found.targetFromSource;
  // Farther points are of other places, such as the back of the part.
  constexpr double share = 0.01;
  constexpr double sigmas = 30.0;
  measure.maxDistance = std::max(sigmas * std::max(found.sigma, found.resolution), share * lengthOf(target));
  cv::Mat_<float> const deviations =
      watched([&](Observer* observer) { return mv::calcDeviations(source, target, measure, observer); });
  if (!options.moved.empty()) {
    writeMoved(options.moved, source, found, target.offset(), deviations);
  }
  MovedCloud const moved = movedCloud(options.source, source, found.targetFromSource, deviations);
  if (!options.picture.empty()) {
    writeFigure(options.picture, drawDeviations(moved, options.look), options.look.drawSettings());
  }
  if (report.isPageWanted()) {
    report.page().title = "Alignment of two clouds";
    report.page().subtitle = options.source + " onto " + options.target;
    describeRegistration(report.page(), found, moved, target, options.target, options.look);
  }
}

/// The places of markers in a file of points.
std::vector<cv::Vec3d> readMarkers(std::string const& path) {
  graphic::GraphicObject const object = readGraphic(path);
  std::vector<cv::Vec3d> places;
  for (cv::Vec3f const& vertex : object.vertices()) {
    places.push_back(object.offset() + cv::Vec3d(vertex));
  }
  return places;
}

cv::Matx44d searched(AlignOptions const& options, mv::PointCloud const& source, mv::PointCloud const& target,
                     Report& report) {
  mv::StartSettings settings;
  settings.minOverlap = std::max(settings.minOverlap, options.settings.minOverlap);
  mv::StartSearch const found =
      watched([&](Observer* observer) { return mv::findStart(source, target, settings, observer); });
  report["search"] = {{"overlap", found.overlap}, {"rivalOverlap", found.rivalOverlap}};
  constexpr double percent = 100.0;
  if (!found.isFound) {
    fail(printed("%s: no motion found that lays it onto %s; the best one covers %.0f %%",
                 options.source.c_str(), options.target.c_str(), percent * found.overlap));
  }
  std::cout << printed(
      "start found: %.0f %% of the points lie on the target, %.0f %% by the next best motion\n",
      percent * found.overlap, percent * found.rivalOverlap);
  constexpr double leastLead = 1.1;
  if (found.overlap < leastLead * found.rivalOverlap) {
    warn(printed(
        "the shapes hardly tell which motion is right: the next best one covers %.0f %% against %.0f %%",
        percent * found.rivalOverlap, percent * found.overlap));
  }
  return found.targetFromSource;
}

/// Where the source is thought to lie, from what the options name.
cv::Matx44d startOf(AlignOptions const& options, mv::PointCloud const& source, mv::PointCloud const& target,
                    Report& report) {
  if (options.isSearched) {
    return searched(options, source, target, report);
  }
  cv::Matx44d start = cv::Matx44d::eye();
  if (!options.markers.empty()) {
    mv::MarkerMatch const found =
        mv::matchMarkers(readMarkers(options.markers[0]), readMarkers(options.markers[1]));
    std::cout << printed("%zu markers in both, %.3g mm RMS\n", found.pairs.size(), found.rms);
    report["markers"] = {{"count", found.pairs.size()}, {"rms", found.rms}};
    start = found.targetFromSource;
  } else if (!options.start.empty()) {
    start = readTransform(options.start);
  }
  return betweenClouds(start, source.offset(), target.offset());
}

void checkFound(AlignOptions const& options, mv::Registration const& found, std::string const& hint) {
  if (!found.isFound()) {
    fail(options.source + " does not overlap " + options.target +
         " from where it is: fewer points than --min-overlap asks for find a place" +
         (hint.empty() ? "; --search finds a start from the shapes, --start and --markers take one"
                       : "; " + hint));
  }
}

/// Why the motion found is no result; empty when it is, or is taken all the same.
std::string refusalOf(AlignOptions const& options, mv::Registration const& found) {
  if (std::string const doubts = doubtsInWords(found); !doubts.empty() && !options.allowDoubtful) {
    return doubts +
           "; --search finds a start from the shapes (--allow-doubtful takes the motion all the same)";
  }
  if (std::string const free = freeMotionsInWords(found); !free.empty() && !options.allowFree) {
    return free + " (--allow-free takes the nearest motion all the same)";
  }
  return "";
}

/// The cloud of a file; of a drawing points on its triangles, which is said.
mv::PointCloud readSurface(std::string const& path, Report& report) {
  CloudInput const input = readCloudInput(path);
  mv::PointCloud cloud = surfacePointsOf(input);
  std::size_t const corners = input.object.vertices().size();
  std::size_t const points = std::as_const(cloud).points().total();
  if (corners > 0 && points != std::as_const(input.cloud).points().total()) {
    std::cout << printed("%s: %zu points on its %zu triangles are taken in place of their %zu corners\n",
                         path.c_str(), points, input.object.triangles().size(), corners);
    report["sampled"].push_back(
        {{"file", path}, {"points", points}, {"triangles", input.object.triangles().size()}});
  }
  return cloud;
}

void run(AlignOptions& options, Report& report) {
  if (!options.moved.empty()) {
    checkGraphicPath(options.moved);
  }
  checkFigurePath(options.picture);
  options.look.check();
  report.wantPage(options.page);
  std::vector<std::string> inputs{options.source, options.target};
  if (!options.start.empty()) {
    inputs.push_back(options.start);
  }
  inputs.insert(inputs.end(), options.markers.begin(), options.markers.end());
  report.declare(inputs, {options.out, options.moved, options.picture});
  mv::PointCloud const source = readSurface(options.source, report);
  mv::PointCloud const target = readSurface(options.target, report);
  options.settings.targetFromSource = startOf(options, source, target, report);
  std::string const hint = unitsHint(lengthOf(source), lengthOf(target));
  mv::Registration const found = registered(options, source, target, hint);
  nlohmann::json const json = transformJson(found, source.offset(), target.offset());
  report.add(json);
  checkFound(options, found, hint);
  if (!hint.empty()) {
    warn(hint);
  }
  if (found.stop == mv::RegistrationStop::IterationLimit) {
    warn("the motion was still changing after " + std::to_string(found.iterations) + " iterations");
  }
  if (found.resolution > found.sigma) {
    warn(printed(
        "coordinates are so far from zero that floats resolve them to %.3g, more than the noise of %.3g",
        found.resolution, found.sigma));
  }
  print(found, betweenFiles(found.targetFromSource, source.offset(), target.offset()),
        found.pivot + target.offset());
  std::string const refusal = refusalOf(options, found);
  if (!refusal.empty()) {
    // It is shown in the report and on the page, which say so; files of a result would not.
    options.out.clear();
    options.moved.clear();
    options.picture.clear();
  }
  if (!options.out.empty()) {
    writeJsonFile(options.out, json);
  }
  if (!options.moved.empty() || !options.picture.empty() || report.isPageWanted()) {
    showDeviations(options, source, target, found, report);
  }
  if (!refusal.empty()) {
    report.write();
    fail(refusal);
  }
  for (std::string const& allowed : {doubtsInWords(found), freeMotionsInWords(found)}) {
    if (!allowed.empty()) {
      warn(allowed);
    }
  }
}

void addSettings(CLI::App& command, mv::RegistrationSettings& settings) {
  command
      .add_option("--max-distance", settings.maxDistance,
                  "Points farther apart are never the same place; 0: three times the median distance")
      ->type_name("MM")
      ->check(notBelowZero())
      ->capture_default_str();
  command
      .add_option("--max-angle", settings.maxNormalAngle, "Normals of one place differ by at most this angle")
      ->type_name("DEGREES")
      ->check(between(1.0, 90.0))
      ->capture_default_str();
  command.add_option("--iterations", settings.maxIterations, "Steps after which the work ends in any case")
      ->type_name("COUNT")
      ->transform(between(1, 1000))
      ->capture_default_str();
  command
      .add_option("--min-overlap", settings.minOverlap,
                  "The share of the source's points that must find a place on the target")
      ->type_name("SHARE")
      ->check(between(0.0, 1.0))
      ->capture_default_str();
}

} // namespace

void addAlignCommand(CLI::App& app) {
  auto options = std::make_shared<AlignOptions>();
  CLI::App* command = app.add_subcommand("align", "Find the motion that lays one cloud onto another");
  command
      ->add_option("source", options->source,
                   "Cloud that is moved (ply, pcd, xyz, obj, stl), or a grid of points (tiff)")
      ->required();
  command->add_option("target", options->target, "Cloud that it is laid onto, or a grid of points (tiff)")
      ->required();
  command->add_option("-o,--out", options->out, "Write the motion and how well it is known as JSON");
  command->add_option("--moved", options->moved,
                      "Write the source in the target's frame, with its deviations (ply, pcd, xyz)");
  command->add_option("--picture", options->picture, "Picture of the deviations to write (png, svg)");
  command->add_option("--start", options->start, "Begin with the motion of this file, as --out writes it")
      ->type_name("FILE");
  command
      ->add_option("--markers", options->markers,
                   "Begin with the markers that both views share: their places as the points of two files")
      ->type_name("SOURCE TARGET")
      ->expected(2)
      ->excludes("--start");
  command->add_flag("--search", options->isSearched, "Find where to begin from the shapes alone")
      ->excludes("--start")
      ->excludes("--markers");
  addSettings(*command, options->settings);
  command->add_flag("--allow-free", options->allowFree,
                    "Take the motion also where the shapes do not hold it, as on a plane");
  command->add_flag("--allow-doubtful", options->allowDoubtful,
                    "Take the motion also where the clouds fit badly, or hide what the other's sensor saw");
  options->look.addRange(*command, "deviations in mm");
  options->look.addLight(*command);
  options->page.addTo(*command);
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report",
      "the motion, its covariance and what is not held");
}

} // namespace vorn::tools
