// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/part_demo.hpp"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <sim/part.hpp>
#include <sim/render.hpp>
#include <vorn/core/exception.hpp>
#include <vorn/mv/registration/register_views.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/surface/fuse.hpp>

#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/view_folder.hpp"
#include "tools/progress.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/fusion_report.hpp"
#include "tools/report/mesh_picture.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/report/printed.hpp"

namespace vorn::tools {

namespace {

constexpr int viewCount = 8;

/// How far a surface lies from the part.
struct PartErrors {
  std::vector<float> deviations; ///< of the points of the cloud, outwards, mm
  double bias = 0.0;
  double rms = 0.0;
  double error95 = 0.0;
  double worst = 0.0;
};

mv::PointCloud scanned(sim::Rig rig, mv::Sl3dScanner& scanner, sim::Pose const& cam_from_part, int number) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  mv::generate_ps4_patterns(columns, rows, rig.projector.device.resolution());
  rig.camera.sensor.seed += static_cast<unsigned>(number) + 1; // every scan has noise of its own
  std::vector<cv::Mat> const images =
      sim::ProjectorView(rig.camera, rig.projector, sim::partScene().moved(cam_from_part)).capture(columns);
  mv::ScanSettings settings;
  settings.makeModulation = settings.makeSigma = false;
  return mv::scan(scanner, images, settings).cloud;
}

/// What the turntable says of a view: it is off by some tenths.
cv::Matx44d toldPose(sim::Pose const& cam_from_part, int number) {
  double const side = number % 2 == 0 ? 1.0 : -1.0;
  sim::Pose const error = sim::Pose::fromDegrees({0.3 * side, -0.2 * side, 0.25}, {0.1 * side, 0.15, -0.1});
  return ((number == 0 ? sim::Pose() : error) * cam_from_part.inverse()).matrix();
}

std::vector<mv::PointCloud> scanAll(sim::Rig const& rig, mv::Sl3dScanner& scanner,
                                    std::filesystem::path const& folder) {
  std::vector<sim::Pose> const poses = sim::partPoses(viewCount, sim::PartMotion::Turntable);
  auto const follow = followFolder("scanning the part");
  std::vector<mv::PointCloud> views;
  for (int i = 0; i < viewCount; ++i) {
    sim::Pose const& pose = poses[static_cast<std::size_t>(i)];
    views.push_back(scanned(rig, scanner, pose, i));
    views.back().setTransform(toldPose(pose, i));
    writeGraphic((folder / (sim::partViewName(i) + ".ply")).string(), views.back().getGraphicObject(false));
    follow(i + 1, viewCount);
  }
  return views;
}

void registerAll(std::vector<mv::PointCloud>& views, Report& report) {
  mv::ViewsSettings settings;
  for (mv::PointCloud const& view : views) {
    settings.frameFromView.push_back(view.getTransform());
  }
  mv::ViewsRegistration const found =
      watched([&](Observer* observer) { return registerViews(views, settings, observer); });
  if (!found.isConnected()) {
    throw Exception("The views of the part do not overlap", nullptr, 0, "demo");
  }
  for (std::size_t i = 0; i < views.size(); ++i) {
    views[i].setTransform(found.views[i].frameFromView);
  }
  reportRegistration(found, report);
}

PartErrors errorsOf(mv::PointCloud const& cloud) {
  PartErrors errors;
  std::vector<double> sizes;
  for (cv::Vec3f const& point : cloud.points()) {
    double const error = sim::distanceToPart(cv::Vec3d(point));
    errors.deviations.push_back(static_cast<float>(error));
    errors.bias += error;
    errors.rms += error * error;
    sizes.push_back(std::abs(error));
  }
  auto const count = static_cast<double>(sizes.size());
  errors.bias /= count;
  errors.rms = std::sqrt(errors.rms / count);
  std::sort(sizes.begin(), sizes.end());
  errors.error95 = sizes[sizes.size() * 95 / 100];
  errors.worst = sizes.back();
  return errors;
}

/// The part as the first view's camera sees it, its deviations as colours.
void draw(std::string const& path, mv::SurfaceMesh const& mesh, PartErrors const& errors) {
  double const range = std::max(2.0 * errors.error95, 1e-3);
  std::vector<cv::Vec3b> colors;
  for (unsigned const cell : mesh.cells) {
    double const share = 0.5 + 0.5 * static_cast<double>(errors.deviations[cell]) / range;
    colors.push_back(mv::colorOf(mv::ColorMap::Diverging, std::clamp(share, 0.0, 1.0)));
  }
  constexpr int width = 1200;
  sim::Pose const eye = sim::partPoses(viewCount, sim::PartMotion::Turntable).front();
  mv::AMat figure(picturedMesh(mesh, eye.matrix(), colors, {34, 32, 30}, width));
  figure.setTitle(printed("fused from %d views: %.4f mm RMS from the truth", viewCount, errors.rms));
  figure.addLegend(mv::ColorMap::Diverging, -range, range, "mm", "deviation");
  writeFigure(path, figure);
}

void fillPage(mv::Fusion const& fusion, std::vector<mv::PointCloud> const& views,
              std::vector<std::string> const& names, PartErrors const& errors, Report& report) {
  fillFusionPage(fusion, "A part of the virtual rig, compared with the truth", views, names, report);
  Page& page = report.page();
  page.title = "Demo";
  PageTable table;
  table.title = "Against the truth";
  table.rows = {{"mean [mm]", figure(errors.bias)},
                {"RMS [mm]", figure(errors.rms)},
                {"95 % are below [mm]", figure(errors.error95)},
                {"worst [mm]", figure(errors.worst)}};
  page.tables.push_back(table);
}

} // namespace

void demonstratePart(sim::Rig const& rig, mv::Sl3dScanner& scanner, std::filesystem::path const& folder,
                     Report& report) {
  std::filesystem::path const viewFolder = folder / "views";
  makeFolder(viewFolder.string());
  std::cout << "Scanning a part from " << viewCount << " sides" << std::endl;
  std::vector<mv::PointCloud> views = scanAll(rig, scanner, viewFolder);
  registerAll(views, report);
  mv::Fusion fusion = watched([&](Observer* observer) { return fuse(views, {}, observer); });
  std::vector<std::string> names;
  std::vector<ViewPose> poses;
  for (mv::PointCloud const& view : views) {
    names.push_back(sim::partViewName(static_cast<int>(names.size())));
    poses.push_back({names.back(), view.getTransform(), "", ""});
  }
  writeJsonFile(viewsPath(viewFolder.string()), viewPosesJson(poses));
  reportFusion(fusion, names, report);
  PartErrors const errors = errorsOf(fusion.cloud);
  std::cout << printed("against the truth: mean %.4f mm, RMS %.4f mm, 95 %% below %.4f mm, worst %.3f mm\n",
                       errors.bias, errors.rms, errors.error95, errors.worst);
  report["truth"] = {
      {"mean", errors.bias}, {"rms", errors.rms}, {"error95", errors.error95}, {"worst", errors.worst}};
  fusion.cloud.fields()["deviation"] = cv::Mat_<float>(errors.deviations, true);
  writeGraphic((folder / "part.ply").string(), fusedObject(fusion));
  draw((folder / "part.png").string(), fusion.mesh, errors);
  if (report.isPageWanted()) {
    fillPage(fusion, views, names, errors, report);
  }
}

} // namespace vorn::tools
