// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/surface/mesh.hpp>
#include <vorn/mv/surface/simplify.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_input.hpp"
#include "tools/files/mesh_input.hpp"
#include "tools/progress.hpp"
#include "tools/report/mesh_report.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct MeshOptions {
  std::string input;
  std::string output;
  mv::MeshSettings settings;
  std::array<double, 3> viewpoint{};
  std::string orientation = "towards";
  double maxError = 0.0; ///< of a simplified mesh; 0: as it is
};

mv::SurfaceMesh meshFrom(CloudInput const& input, MeshOptions const& options, Report& report) {
  if (input.object.hasTriangles()) {
    report["points"] = input.object.vertices().size();
    return meshOfObject(input.object);
  }
  report["points"] = input.cloud.presentCount();
  return watched([&](Observer* observer) { return meshOf(input.cloud, options.settings, observer); });
}

void turn(mv::SurfaceMesh& mesh) {
  for (cv::Vec3i& triangle : mesh.triangles) {
    std::swap(triangle[1], triangle[2]);
  }
  for (cv::Vec3f& normal : mesh.normals) {
    normal = -normal;
  }
}

void run(MeshOptions options, Report& report) {
  checkMeshPath(options.output);
  report.declare({options.input}, {options.output});
  CloudInput const input = readCloudInput(options.input);
  std::array<double, 3> const& from = options.viewpoint;
  options.settings.viewpoint =
      cv::Point3f(cv::Point3d(cv::Vec3d(from[0], from[1], from[2]) - input.cloud.offset()));
  mv::SurfaceMesh mesh = meshFrom(input, options, report);
  if (options.orientation == "away") {
    turn(mesh);
  }
  if (options.maxError > 0.0) {
    mv::SimplifySettings settings;
    settings.maxError = options.maxError;
    mesh = watched([&](Observer* observer) { return simplified(mesh, settings, observer); });
  }
  reportMesh(mesh, report);
  graphic::GraphicObject object = graphicObjectOf(mesh);
  object.offset() = input.object.offset();
  writeGraphic(options.output, object);
}

} // namespace

void addMeshCommand(CLI::App& app) {
  auto options = std::make_shared<MeshOptions>();
  CLI::App* command =
      app.add_subcommand("mesh", "Join a cloud's points to a mesh, and measure it or another mesh");
  command
      ->add_option(
          "input", options->input,
          "Grid of points (tiff), points (ply, pcd, xyz, obj), or a mesh, to measure (ply, obj, stl)")
      ->required();
  command->add_option("output", options->output, "Mesh to write (ply, obj, stl)")->required();
  command
      ->add_option("--max-edge", options->settings.maxEdge,
                   "Points farther apart are not joined; 0: six times the usual distance")
      ->type_name("MM")
      ->check(notBelowZero())
      ->capture_default_str();
  command
      ->add_option("--max-view-angle", options->settings.maxViewAngle,
                   "Triangles seen at a flatter angle are walls across a step, which are left out")
      ->type_name("DEGREES")
      ->check(between(1.0, 90.0))
      ->capture_default_str();
  command->add_option("--viewpoint", options->viewpoint, "Where the surface was seen from; default 0 0 0")
      ->type_name("X Y Z")
      ->check(anyNumber());
  command
      ->add_option("--orientation", options->orientation,
                   "Triangles face towards the viewpoint or away from it; of a mesh, as they are or turned")
      ->check(CLI::IsMember({"towards", "away"}))
      ->capture_default_str();
  command
      ->add_option("--simplify", options->maxError,
                   "Fewer triangles, none of the points farther from them than this")
      ->type_name("MM")
      ->check(aboveZero());
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report",
      "what the mesh measures: area, volume, pieces, boundaries");
}

} // namespace vorn::tools
