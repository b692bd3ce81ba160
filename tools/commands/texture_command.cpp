// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/json_file.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>
#include <vorn/mv/surface/texture.hpp>

#include "tools/commands/commands.hpp"
#include "tools/files/camera_input.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_input.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/mesh_input.hpp"
#include "tools/files/textured_mesh.hpp"
#include "tools/files/transform_file.hpp"
#include "tools/files/view_folder.hpp"
#include "tools/progress.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

struct TextureOptions {
  std::string mesh;
  std::string folder;
  std::string calibration;
  std::string output;
  std::string image = "white.png";
  mv::TextureSettings settings;
};

Exception refusal(std::string const& reason) {
  return {reason, nullptr, 0, "texture"};
}

/// The picture of a view: in its folder, or beside it with its name.
std::string imagePath(TextureOptions const& options, std::string const& view) {
  fs::path const inside = fs::path(options.folder) / view / options.image;
  if (fs::is_regular_file(inside)) {
    return inside.string();
  }
  fs::path const beside = fs::path(options.folder) / (view + fs::path(options.image).extension().string());
  if (fs::is_regular_file(beside)) {
    return beside.string();
  }
  throw refusal("There is neither " + inside.string() + " nor " + beside.string());
}

bool isObj(std::string const& path) {
  return lowerCaseEnding(path) == ".obj";
}

void describe(mv::SurfaceMesh const& mesh, mv::MeshTexture const& texture, Report& report) {
  std::cout << printed("vertices   %zu, of which %zu are in no view\n", mesh.vertices.size(),
                       texture.unseenVertices)
            << printed("triangles  %zu, of which %zu are in no view as a whole\n", mesh.triangles.size(),
                       texture.unseenTriangles)
            << printed("atlas      %d x %d\n", texture.atlas.cols, texture.atlas.rows);
  report["vertices"] = mesh.vertices.size();
  report["unseenVertices"] = texture.unseenVertices;
  report["triangles"] = mesh.triangles.size();
  report["unseenTriangles"] = texture.unseenTriangles;
  report["atlas"] = {texture.atlas.cols, texture.atlas.rows};
  if (2 * texture.unseenVertices > mesh.vertices.size()) {
    report.warn("more than half of the vertices are in no view: they are grey");
  }
}

void run(TextureOptions const& options, Report& report) {
  checkGraphicPath(options.output);
  if (!isObj(options.output) && lowerCaseEnding(options.output) != ".ply") {
    throw refusal(options.output +
                  " would hold no colours: textures are written as .obj, colours of points as .ply");
  }
  std::vector<ViewPose> const poses = readViewPoses(viewsPath(options.folder));
  std::vector<std::string> inputs{options.mesh, options.calibration, viewsPath(options.folder)};
  for (ViewPose const& pose : poses) {
    inputs.push_back(imagePath(options, pose.name));
  }
  report.declare(inputs, isObj(options.output) ? texturedMeshPaths(options.output)
                                               : std::vector<std::string>{options.output});
  graphic::GraphicObject const object = readCloudInput(options.mesh).object;
  mv::SurfaceMesh mesh = meshOfObject(object);
  if (isObj(options.output) && mesh.triangles.empty()) {
    throw refusal(options.mesh + " has no triangles for an atlas: write colours of points as .ply");
  }
  mv::CameraModel const camera = readCamera(options.calibration);
  std::vector<mv::TextureView> views;
  for (std::size_t i = 0; i < poses.size(); ++i) {
    views.push_back({readImage(inputs[i + 3]), camera,
                     betweenClouds(poses[i].commonFromView.inv(), object.offset(), {})});
  }
  mv::MeshTexture const texture =
      watched([&](Observer* observer) { return textureFrom(mesh, views, options.settings, observer); });
  describe(mesh, texture, report);
  if (isObj(options.output)) {
    writeTogether(texturedMeshFiles(options.output, mesh, object.offset(), texture));
  } else {
    mesh.colors = texture.colors;
    graphic::GraphicObject coloured = graphicObjectOf(mesh);
    coloured.offset() = object.offset();
    writeGraphic(options.output, coloured);
  }
}

} // namespace

void addTextureCommand(CLI::App& app) {
  auto options = std::make_shared<TextureOptions>();
  CLI::App* command = app.add_subcommand("texture", "Give a mesh the colours of calibrated images");
  command->add_option("mesh", options->mesh, "Mesh, or points with normals (ply, obj, stl)")->required();
  command
      ->add_option("folder", options->folder,
                   "Folder with views.json, the poses of the views, and their pictures (VIEW/white.png, or "
                   "VIEW.png)")
      ->required();
  command->add_option("--calib", options->calibration, "The calibrated scanner or camera, a JSON file")
      ->required();
  command
      ->add_option("-o,--out", options->output,
                   "Textured mesh to write (obj; beside it .mtl and .png), or colours of the points (ply)")
      ->required();
  command->add_option("--image", options->image, "Name of the picture in each view's folder")
      ->capture_default_str();
  command
      ->add_option("--max-view-angle", options->settings.maxViewAngle,
                   "Views say nothing of what they see at a flatter angle")
      ->type_name("DEGREES")
      ->check(CLI::Range(1.0, 89.0))
      ->capture_default_str();
  command->add_option("--margin", options->settings.margin, "Pixels around each piece of the atlas")
      ->check(CLI::Range(0, 64))
      ->capture_default_str();
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report", "what of the mesh is seen");
}

} // namespace vorn::tools
