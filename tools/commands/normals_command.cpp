// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/pointcloud/normals.hpp>

#include "core/median.hpp"
#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_input.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/output_path.hpp"
#include "tools/progress.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct NormalsOptions {
  std::string input;
  std::string output;
  mv::NormalSettings settings;
  std::string orientation = "auto";
  std::array<float, 3> viewpoint{};
  bool hasFigures = false;
};

void checkOutput(std::string const& path) {
  if (isTiff(path)) {
    return;
  }
  checkGraphicPath(path);
  if (lowerCaseEnding(path) == ".stl") {
    throw Exception(path + ": STL keeps no normals of points", nullptr, 0, "normals");
  }
}

/// The file's object, or the cloud's, with the cloud's normals and fields: what a cloud does not keep, such
/// as triangles, stays.
graphic::GraphicObject resultOf(CloudInput input) {
  graphic::GraphicObject result = input.cloud.getGraphicObject(true);
  if (!input.object.isEmpty()) {
    result.colors() = std::move(input.object.colors());
    result.triangles() = std::move(input.object.triangles());
  }
  return result;
}

double medianOfNumbers(cv::Mat_<float> const& values) {
  std::vector<float> numbers;
  for (float const value : values) {
    if (std::isfinite(value)) {
      numbers.push_back(value);
    }
  }
  return static_cast<double>(medianAmong(numbers));
}

void run(NormalsOptions options, Report& report) {
  checkOutput(options.output);
  report.declare({options.input}, {options.output});
  static std::map<std::string, mv::NormalOrientation> const orientations = {
      {"auto", mv::NormalOrientation::Automatic},
      {"viewpoint", mv::NormalOrientation::TowardsViewpoint},
      {"consistent", mv::NormalOrientation::Consistent}};
  options.settings.orientation = orientations.at(options.orientation);
  options.settings.figures = mv::NormalFigures::FitAndCurvature;
  CloudInput input = readCloudInput(options.input);
  cv::Vec3d const offset = input.cloud.offset();
  options.settings.viewpoint =
      cv::Vec3f(cv::Vec3d(options.viewpoint[0], options.viewpoint[1], options.viewpoint[2]) - offset);
  if (isTiff(options.output) && !input.cloud.isOrganized()) {
    throw Exception("The points of " + options.input + " have no grid to write as " + options.output, nullptr,
                    0, "normals");
  }
  if (input.cloud.hasNormals()) {
    std::cout << "Its normals are replaced\n";
  }
  Timer const timer;
  mv::NormalResult const found =
      watched([&](Observer* observer) { return input.cloud.calcNormals(options.settings, observer); });
  double const time = timer.toc();
  if (found.computed == 0) {
    throw Exception("No point of " + options.input + " has a normal: they need neighbours that span a plane",
                    nullptr, 0, "normals");
  }
  double const fitError = medianOfNumbers(found.fitError);
  std::cout << printed("%zu points have a normal, %zu have none; planes fit to %.4g (median), %.0f ms\n",
                       found.computed, found.missing, fitError, time);
  report["computed"] = found.computed;
  report["missing"] = found.missing;
  report["fitError"] = fitError;
  report["time"] = time;
  if (isTiff(options.output)) {
    writeImage(options.output, input.cloud.normals());
    return;
  }
  if (options.hasFigures) {
    input.cloud.fields()["fit_error"] = found.fitError;
    input.cloud.fields()["curvature"] = found.curvature;
  }
  writeGraphic(options.output, resultOf(std::move(input)));
}

} // namespace

void addNormalsCommand(CLI::App& app) {
  auto options = std::make_shared<NormalsOptions>();
  mv::NormalSettings& settings = options->settings;
  CLI::App* command = app.add_subcommand("normals", "Give every point of a cloud the normal of its surface");
  command->add_option("input", options->input, "Cloud (ply, pcd, xyz, obj, stl), or a grid of points (tiff)")
      ->required();
  command
      ->add_option("output", options->output,
                   "Cloud with normals to write (ply, pcd, xyz, obj); of a grid also its normals (tiff)")
      ->required();
  command
      ->add_option("--window", settings.windowRadius,
                   "Grids: planes are fitted to the cells at most so many rows and columns away")
      ->type_name("CELLS")
      ->transform(between(1, 31))
      ->capture_default_str();
  command
      ->add_option("--max-step", settings.maxStep,
                   "Grids: neighbours farther apart are other surfaces; 0: six times the usual distance")
      ->type_name("MM")
      ->check(notBelowZero())
      ->capture_default_str();
  command
      ->add_option("--neighbours", settings.neighbourCount,
                   "Other clouds: planes are fitted to so many nearest points")
      ->type_name("COUNT")
      ->transform(between(3, 1000))
      ->capture_default_str();
  command
      ->add_option("--radius", settings.radius,
                   "Other clouds: planes are fitted to the points nearer than this instead")
      ->type_name("MM")
      ->check(notBelowZero())
      ->capture_default_str();
  command
      ->add_option("--orientation", options->orientation,
                   "Normals point to the viewpoint, or alike among neighbours and outwards; auto: the former "
                   "for grids")
      ->check(CLI::IsMember({"auto", "viewpoint", "consistent"}))
      ->capture_default_str();
  command->add_option("--viewpoint", options->viewpoint, "Where the surface was seen from; default 0 0 0")
      ->type_name("X Y Z")
      ->check(anyNumber());
  command->add_flag(
      "--figures", options->hasFigures,
      "Write how well the planes fit and how much the surface curves as fields fit_error and curvature");
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report",
      "how many points have a normal");
}

} // namespace vorn::tools
