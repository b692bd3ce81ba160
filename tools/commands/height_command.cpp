// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/surface/height_map.hpp>
#include <vorn/mv/surface/mesh.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_input.hpp"
#include "tools/files/height_file.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/transform_file.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct HeightOptions {
  std::string input;
  std::string output;
  std::array<double, 6> plane{};
  bool isPlaneGiven = false;
  double cellSize = 0.0;
  std::string rule = "mean";
  int depth = 32;
};

std::map<std::string, mv::HeightRule> const& rules() {
  static std::map<std::string, mv::HeightRule> const all{{"top", mv::HeightRule::Top},
                                                         {"mean", mv::HeightRule::Mean},
                                                         {"median", mv::HeightRule::Median},
                                                         {"weighted", mv::HeightRule::Weighted}};
  return all;
}

/// @param offset of the cloud, whose points the plane is laid among
mv::HeightMapSettings settingsOf(HeightOptions const& options, cv::Vec3d const& offset) {
  mv::HeightMapSettings settings;
  if (options.isPlaneGiven) {
    std::array<double, 6> const& p = options.plane;
    settings.plane = mv::Plane3f(cv::Point3f(cv::Point3d(cv::Vec3d(p[0], p[1], p[2]) - offset)),
                                 cv::Point3f(cv::Point3d(p[3], p[4], p[5])));
  }
  settings.cellSize = options.cellSize;
  settings.rule = rules().at(options.rule);
  return settings;
}

void describe(mv::HeightMap const& map, Report& report) {
  double least = 0.0;
  double greatest = 0.0;
  cv::minMaxLoc(map.heights, &least, &greatest, nullptr, nullptr, map.heights == map.heights);
  std::cout << printed("cells     %d x %d of %.4g mm\n", map.heights.cols, map.heights.rows, map.cellSize)
            << printed("heights   %.6g to %.6g mm\n", least, greatest)
            << printed("coverage  %.2f %%\n", 100.0 * map.coverage);
  report["size"] = {map.heights.cols, map.heights.rows};
  report["cellSize"] = map.cellSize;
  report["coverage"] = map.coverage;
  report["lowest"] = least;
  report["highest"] = greatest;
}

void makeMap(HeightOptions const& options, Report& report) {
  report.declare({options.input}, {options.output, heightJsonPath(options.output)});
  CloudInput const input = readCloudInput(options.input);
  if (input.object.hasTriangles()) {
    report.warn("of the mesh only the vertices are laid onto the grid");
  }
  cv::Vec3d const offset = input.cloud.offset();
  mv::HeightMap map = heightMapOf(input.cloud, settingsOf(options, offset));
  map.mapFromCloud = betweenFiles(map.mapFromCloud, offset, {});
  describe(map, report);
  constexpr double sparse = 0.01;
  if (map.coverage < sparse) {
    report.warn(printed("only %.2g %% of the cells have points: either some points lie far from all others, "
                        "which filter --outlier drops, or the points do not cover the plane",
                        100.0 * map.coverage));
  }
  writeTogether(
      heightFiles(options.output, map, options.depth == 16 ? HeightDepth::Bits16 : HeightDepth::Float));
}

/// What to take off the places of a map that lies so far from zero that floats would lose them; else zero.
cv::Vec3d offsetOf(mv::HeightMap const& map) {
  cv::Vec3d const halfSize(0.5 * map.heights.cols * map.cellSize, 0.5 * map.heights.rows * map.cellSize, 0.0);
  cv::Vec4d const middle = map.mapFromCloud.inv() * cv::Vec4d(halfSize[0], halfSize[1], 0.0, 1.0);
  constexpr double halfStep = 1.0 / (1 << 24); // of floats, relative
  constexpr double bearable = 1e-5;            // of the extent
  cv::Vec3d const place(middle[0], middle[1], middle[2]);
  if (cv::norm(place) * halfStep <= bearable * 2.0 * cv::norm(halfSize)) {
    return {};
  }
  return {std::round(place[0]), std::round(place[1]), std::round(place[2])};
}

void makeCloud(HeightOptions const& options, Report& report) {
  if (hasPictureEnding(options.output)) {
    throw Exception(options.output +
                        ": a height map is written as .tiff, points as .ply, .pcd, .xyz, .obj or .stl",
                    nullptr, 0, "height");
  }
  checkGraphicPath(options.output);
  report.declare({options.input, heightJsonPath(options.input)}, {options.output});
  mv::HeightMap map = readHeightMap(options.input);
  if (cv::countNonZero(map.counts) == 0) {
    throw Exception(options.input + " has no height in any cell", nullptr, 0, "height");
  }
  describe(map, report);
  cv::Vec3d const offset = offsetOf(map);
  map.mapFromCloud = betweenClouds(map.mapFromCloud, offset, {});
  mv::PointCloud cloud = cloudOf(map);
  cloud.setOffset(offset);
  cloud.state().setTo(255, map.counts == 0);
  graphic::GraphicObject object;
  if (lowerCaseEnding(options.output) == ".stl") {
    mv::MeshSettings settings;
    // From far above the plane every triangle is seen.
    cv::Matx44d const back = map.mapFromCloud.inv();
    double const away = 1e3 * (map.heights.cols + map.heights.rows) * map.cellSize;
    settings.viewpoint = cv::Point3f(static_cast<float>(back(0, 3) + away * back(0, 2)),
                                     static_cast<float>(back(1, 3) + away * back(1, 2)),
                                     static_cast<float>(back(2, 3) + away * back(2, 2)));
    object = graphicObjectOf(meshOf(cloud, settings));
    object.offset() = offset;
  } else {
    object = cloud.getGraphicObject(false);
  }
  writeGraphic(options.output, object);
}

void run(HeightOptions const& options, Report& report) {
  if (isTiff(options.output)) {
    makeMap(options, report);
  } else {
    makeCloud(options, report);
  }
}

} // namespace

void addHeightCommand(CLI::App& app) {
  auto options = std::make_shared<HeightOptions>();
  CLI::App* command =
      app.add_subcommand("height", "Lay a cloud onto a grid of heights over a plane, or back");
  command
      ->add_option("input", options->input,
                   "Cloud (ply, pcd, xyz, obj, stl, tiff), or a height map to turn back")
      ->required();
  command
      ->add_option(
          "output", options->output,
          "Height map to write (tiff; beside it a .json with cell size, frame and scale); with "
          "another ending (ply, pcd, xyz, obj, stl) the points of the input, which is a height map then")
      ->required();
  command
      ->add_option("--plane", options->plane,
                   "A point of the plane and its normal; default: the plane that fits the points best")
      ->type_name("X Y Z NX NY NZ")
      ->check(anyNumber())
      ->each([options](std::string const& /*text*/) { options->isPlaneGiven = true; });
  command->add_option("--cell", options->cellSize, "Edge length of a cell; 0: the usual distance of points")
      ->type_name("MM")
      ->check(notBelowZero())
      ->capture_default_str();
  std::vector<std::string> names;
  for (auto const& [name, rule] : rules()) {
    names.push_back(name);
  }
  command->add_option("--rule", options->rule, "Which height a cell with several points gets")
      ->check(CLI::IsMember(names))
      ->capture_default_str();
  command
      ->add_option("--depth", options->depth,
                   "Bits of a height: 32, a float, or 16, scaled as the .json says")
      ->transform(wholeNumber<int>())
      ->check(CLI::IsMember({16, 32}))
      ->capture_default_str();
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report",
      "size, range and coverage of the map");
}

} // namespace vorn::tools
