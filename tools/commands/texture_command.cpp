// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/json_file.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>
#include <vorn/mv/surface/texture.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
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
  std::vector<std::tuple<std::string, std::string, std::string>> views; ///< picture, camera, pose
  std::string output;
  std::string image = "white.png";
  std::string blend = "blended";
  std::string brightness = "cameras";
  mv::TextureSettings settings;
};

Exception refusal(std::string const& reason) {
  return {reason, nullptr, 0, "texture"};
}

/// A picture, by whom it was taken and from where.
struct Shot {
  std::string name;
  std::string image;
  std::string camera;
  cv::Matx44d commonFromView;
};

/// The picture of a view: the one named, or in its folder, or beside it with its name.
std::string imagePath(TextureOptions const& options, ViewPose const& view) {
  fs::path const folder = options.folder;
  if (!view.image.empty()) {
    return (folder / view.image).string();
  }
  fs::path const inside = folder / view.name / options.image;
  if (fs::is_regular_file(inside)) {
    return inside.string();
  }
  fs::path const beside = folder / (view.name + fs::path(options.image).extension().string());
  if (fs::is_regular_file(beside)) {
    return beside.string();
  }
  throw refusal("There is neither " + inside.string() + " nor " + beside.string());
}

std::vector<Shot> shotsOf(TextureOptions const& options) {
  std::vector<Shot> shots;
  if (!options.folder.empty()) {
    for (ViewPose const& view : readViewPoses(viewsPath(options.folder))) {
      if (view.camera.empty() && options.calibration.empty()) {
        throw refusal("The view " + view.name +
                      " names no camera: give --calib, or \"camera\" in views.json");
      }
      shots.push_back(
          {view.name, imagePath(options, view),
           view.camera.empty() ? options.calibration : (fs::path(options.folder) / view.camera).string(),
           view.commonFromView});
    }
  }
  for (auto const& [image, camera, pose] : options.views) {
    shots.push_back({fs::path(image).filename().string(), image, camera,
                     pose == "-" ? cv::Matx44d::eye() : readViewPose(pose)});
  }
  if (shots.empty()) {
    throw refusal("There are no views: name their folder, or give --view");
  }
  return shots;
}

std::vector<std::string> inputsOf(TextureOptions const& options, std::vector<Shot> const& shots) {
  std::vector<std::string> inputs{options.mesh};
  if (!options.folder.empty()) {
    inputs.push_back(viewsPath(options.folder));
  }
  for (Shot const& shot : shots) {
    inputs.push_back(shot.image);
    if (std::find(inputs.begin(), inputs.end(), shot.camera) == inputs.end()) {
      inputs.push_back(shot.camera);
    }
  }
  for (auto const& [image, camera, pose] : options.views) {
    if (pose != "-") {
      inputs.push_back(pose);
    }
  }
  return inputs;
}

/// @param offset where the zero of the mesh's vertices lies
std::vector<mv::TextureView> viewsOf(TextureOptions const& options, std::vector<Shot> const& shots,
                                     cv::Vec3d const& offset) {
  std::map<std::string, std::pair<int, mv::CameraModel>> cameras;
  std::vector<mv::TextureView> views;
  for (Shot const& shot : shots) {
    auto found = cameras.find(shot.camera);
    if (found == cameras.end()) {
      auto const number = static_cast<int>(cameras.size());
      found = cameras.emplace(shot.camera, std::pair(number, readCamera(shot.camera))).first;
    }
    auto const& [number, camera] = found->second;
    cv::Mat const image = readImage(shot.image);
    if (image.depth() != CV_8U) {
      throw Exception(shot.image + " is not of 8 bits a channel, as pictures of a texture must be", nullptr,
                      0, "texture");
    }
    views.push_back({image, camera, betweenClouds(shot.commonFromView.inv(), offset, {}),
                     options.brightness == "cameras" ? number : -1});
  }
  return views;
}

bool isObj(std::string const& path) {
  return lowerCaseEnding(path) == ".obj";
}

void describeViews(std::vector<Shot> const& shots, mv::MeshTexture const& texture, Report& report) {
  for (std::size_t i = 0; i < shots.size(); ++i) {
    cv::Vec3d const& gain = texture.gains[i];
    auto const best =
        std::count(texture.viewOfTriangle.begin(), texture.viewOfTriangle.end(), static_cast<int>(i));
    report["views"].push_back(
        {{"name", shots[i].name}, {"bestTriangles", best}, {"gain", {gain[2], gain[1], gain[0]}}});
    if (shots.size() > 1) {
      std::cout << printed("%-10s best of %td triangles, brightness times %.3f %.3f %.3f\n",
                           shots[i].name.c_str(), best, gain[2], gain[1], gain[0]);
    }
  }
  report["brightnessSets"] = texture.brightnessSets;
  if (texture.brightnessSets > 1) {
    report.warn(printed("the pictures fall into %d sets that show too few common places: their brightness is "
                        "not matched to each other",
                        texture.brightnessSets));
  }
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
  std::vector<Shot> const shots = shotsOf(options);
  report.declare(inputsOf(options, shots), isObj(options.output) ? texturedMeshPaths(options.output)
                                                                 : std::vector<std::string>{options.output});
  graphic::GraphicObject const object = readCloudInput(options.mesh).object;
  mv::SurfaceMesh mesh = meshOfObject(object);
  if (isObj(options.output) && mesh.triangles.empty()) {
    throw refusal(options.mesh + " has no triangles for an atlas: write colours of points as .ply");
  }
  std::vector<mv::TextureView> const views = viewsOf(options, shots, object.offset());
  mv::TextureSettings settings = options.settings;
  settings.blend = options.blend == "best" ? mv::TextureBlend::Best : mv::TextureBlend::Blended;
  settings.brightness =
      options.brightness == "as-taken" ? mv::TextureBrightness::AsTaken : mv::TextureBrightness::Matched;
  mv::MeshTexture const texture =
      watched([&](Observer* observer) { return textureFrom(mesh, views, settings, observer); });
  describe(mesh, texture, report);
  describeViews(shots, texture, report);
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
  command->add_option(
      "folder", options->folder,
      "Folder with views.json, the poses of the views, and their pictures (VIEW/white.png, or "
      "VIEW.png)");
  command->add_option("--calib", options->calibration,
                      "The calibrated scanner or camera, a JSON file, of views of the folder that name none");
  command
      ->add_option("--view", options->views,
                   "One more view: its picture, its camera (JSON, YAML, XML), and a JSON file with its "
                   "commonFromView or targetFromSource; - where the mesh is in the camera's frame")
      ->type_name("IMAGE CAMERA POSE")
      ->allow_extra_args(false);
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
      ->check(between(1.0, 89.0))
      ->capture_default_str();
  command
      ->add_option("--blend", options->blend,
                   "Show of each triangle the best picture alone, or all of it, faded into each other")
      ->check(CLI::IsMember({"blended", "best"}))
      ->capture_default_str();
  command
      ->add_option("--brightness", options->brightness,
                   "Match the brightness of cameras, of single views, or leave it as it was taken")
      ->check(CLI::IsMember({"cameras", "views", "as-taken"}))
      ->capture_default_str();
  command->add_option("--margin", options->settings.margin, "Pixels around each piece of the atlas")
      ->transform(between(0, 64))
      ->capture_default_str();
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report", "what of the mesh is seen");
}

} // namespace vorn::tools
