// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <system_error>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/observer.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/calib/target_description.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/pointcloud/cloud_filters.hpp>
#include <vorn/mv/registration/icp_aligner.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/property_table.hpp"
#include "tools/files/camera_input.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_info.hpp"
#include "tools/files/file_list.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/report/report_text.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

// Each of these prints what it says, and returns it for the report.

nlohmann::json cameraInfo(std::string const& title, mv::CameraModel const& camera) {
  nlohmann::json info = {{"resolution", {camera.getResolution().width, camera.getResolution().height}},
                         {"isCalibrated", camera.isCalibrated()}};
  std::cout << title << ": " << camera.getResolution().width << " x " << camera.getResolution().height
            << " pixels, ";
  if (camera.getK().empty()) {
    std::cout << "not calibrated\n";
    return info;
  }
  cv::Matx33d const k = camera.getK();
  std::cout << "error " << camera.getCalibError() << " px"
            << (camera.isCalibrated() ? "" : " (not calibrated)") << "\n  focal lengths " << k(0, 0) << ", "
            << k(1, 1) << " px; centre " << k(0, 2) << ", " << k(1, 2) << " px; distortion";
  info["error"] = camera.getCalibError();
  info["focalLengths"] = {k(0, 0), k(1, 1)};
  info["centre"] = {k(0, 2), k(1, 2)};
  info["distortion"] = nlohmann::json::array();
  for (double const coefficient : cv::Mat_<double>(camera.getD())) {
    std::cout << ' ' << coefficient;
    info["distortion"].push_back(coefficient);
  }
  std::cout << '\n';
  return info;
}

nlohmann::json listOf(cv::Vec3d const& vector) {
  return {vector[0], vector[1], vector[2]};
}

nlohmann::json scannerInfo(mv::Sl3dScanner const& scanner) {
  std::cout << "Structured-light scanner, " << (scanner.isCalibrated() ? "calibrated" : "not calibrated")
            << '\n';
  nlohmann::json info = {{"kind", "scanner"}, {"isCalibrated", scanner.isCalibrated()}};
  info["camera"] = cameraInfo("Camera", scanner.getCameraModel());
  info["projector"] = cameraInfo("Projector", scanner.getProjectorModel());
  cv::Matx44d const cam_from_proj = scanner.getTransform();
  cv::Vec3d const projector(cam_from_proj(0, 3), cam_from_proj(1, 3), cam_from_proj(2, 3));
  std::cout << "Projector at " << projector << " mm in the camera's frame, baseline " << cv::norm(projector)
            << " mm\n";
  for (Property const* property : scanner.getProperties()) {
    std::cout << "  " << property->toString() << '\n';
  }
  info["projectorInCamera"] = listOf(projector);
  info["baseline"] = cv::norm(projector);
  return info;
}

nlohmann::json stereoInfo(mv::StereoCamera const& stereo) {
  std::cout << "Stereo camera, " << (stereo.isCalibrated() ? "calibrated" : "not calibrated") << '\n';
  nlohmann::json info = {{"kind", "stereoCamera"}, {"isCalibrated", stereo.isCalibrated()}};
  info["camera"] = cameraInfo("Camera 0", stereo.getCameraModel0());
  info["camera_1"] = cameraInfo("Camera 1", stereo.getCameraModel1());
  cv::Vec3d const camera1 = mv::math::getT3(stereo.getTransform());
  std::cout << "Camera 1 at " << camera1 << " mm in the frame of camera 0, baseline " << cv::norm(camera1)
            << " mm\n";
  info["camera1InCamera"] = listOf(camera1);
  info["baseline"] = cv::norm(camera1);
  return info;
}

nlohmann::json lineScannerInfo(mv::LineScanner const& scanner) {
  std::cout << "Laser line scanner, " << (scanner.isCalibrated() ? "calibrated" : "not calibrated") << '\n';
  nlohmann::json info = {{"kind", "lineScanner"}, {"isCalibrated", scanner.isCalibrated()}};
  info["camera"] = cameraInfo("Camera", scanner.getCameraModel());
  info["planes"] = nlohmann::json::array();
  for (mv::Plane3f const& plane : scanner.getPlanes()) {
    std::cout << "Laser plane through " << plane.point() << " mm, normal " << plane.normal() << '\n';
    info["planes"].push_back(
        {{"point", listOf(cv::Vec3f(plane.point()))}, {"normal", listOf(cv::Vec3f(plane.normal()))}});
  }
  return info;
}

nlohmann::json targetInfo(mv::TargetDescription const& target) {
  nlohmann::json description;
  target.write(description);
  std::cout << "Description of a target\n";
  for (auto const& [name, value] : description.items()) {
    std::cout << "  " << name << ' ' << value << '\n';
  }
  return {{"kind", "target"}, {"target", description}};
}

nlohmann::json chainInfo(nlohmann::json const& chain) {
  std::cout << "Chain of " << chain.size() << " filters\n";
  for (auto const& filter : chain) {
    std::cout << "  " << filter.dump() << '\n';
  }
  return {{"kind", "filters"}, {"filters", chain}};
}

nlohmann::json reportInfo(nlohmann::json const& report) {
  printReport(std::cout, report);
  return {{"kind", "report"}, {"report", report}};
}

/// Files that lie beside others; each is known by a member.
struct SideFile {
  char const* member;
  char const* kind;
  char const* title;
};

std::optional<SideFile> sideFileOf(nlohmann::json const& json) {
  bool const isOfViews = json.contains("views") && json["views"].is_array() && !json["views"].empty() &&
                         json["views"].front().contains("commonFromView");
  if (isOfViews) {
    return SideFile{"views", "views", "Poses of views"};
  }
  for (SideFile const& known :
       {SideFile{"targetFromSource", "motion", "Motion of a registration"},
        SideFile{"commonFromView", "pose", "Pose of a view"},
        SideFile{"mapFromCloud", "heightMap", "What the values of a height map mean"},
        SideFile{"step", "stage", "Motion of a stage from one position to the next, mm"}}) {
    if (json.contains(known.member)) {
      return known;
    }
  }
  return std::nullopt;
}

nlohmann::json sideFileInfo(SideFile const& file, nlohmann::json const& json) {
  std::cout << file.title << '\n';
  for (auto const& [name, value] : json.items()) {
    std::cout << "  " << name << ' ' << value << '\n';
  }
  return {{"kind", file.kind}, {"content", json}};
}

nlohmann::json jsonInfo(std::string const& path) {
  nlohmann::json const json = readJsonFile(path);
  if (json.contains("ProjectorModel")) {
    return scannerInfo(load<mv::Sl3dScanner>(path));
  }
  if (json.contains("CameraModel0")) {
    return stereoInfo(load<mv::StereoCamera>(path));
  }
  if (json.contains("Plane_0")) {
    return lineScannerInfo(load<mv::LineScanner>(path));
  }
  if (json.contains("K")) {
    return {{"kind", "camera"}, {"camera", cameraInfo("Camera", load<mv::CameraModel>(path))}};
  }
  if (!json.contains("schema")) { // reports tell of motions and views too
    if (std::optional<SideFile> const file = sideFileOf(json)) {
      return sideFileInfo(*file, json);
    }
  }
  if (nlohmann::json const report = asReport(json); !report.is_null()) {
    return reportInfo(report);
  }
  if (json.contains("pitch")) {
    return targetInfo(load<mv::TargetDescription>(path));
  }
  if (json.is_array() && !json.empty() && json.front().contains("class")) {
    return chainInfo(json);
  }
  throw Exception(
      path + " holds no scanner, camera, target, chain of filters, motion, poses of views, stage, height "
             "map or report",
      nullptr, 0, "info");
}

nlohmann::json pictureInfo(std::string const& path) {
  cv::Mat const image = readImage(path);
  double least = 0.0;
  double greatest = 0.0;
  cv::minMaxLoc(image.reshape(1), &least, &greatest);
  std::cout << "Picture, " << image.cols << " x " << image.rows << ", " << cv::typeToString(image.type())
            << ", values " << least << " to " << greatest << '\n';
  nlohmann::json info = {{"kind", "picture"},
                         {"size", {image.cols, image.rows}},
                         {"type", cv::typeToString(image.type())},
                         {"values", {least, greatest}}};
  if (isTiff(path) && image.type() == CV_32FC3) {
    graphic::GraphicObject points;
    points.vertices().assign(image.begin<cv::Vec3f>(), image.end<cv::Vec3f>());
    std::cout << "As a grid of points x, y, z: ";
    info["cloud"] = printCloudInfo(points);
  }
  return info;
}

/// Every class that is set up by properties.
nlohmann::json allProperties() {
  nlohmann::json classes;
  auto const add = [&](IPropertySet const& object) {
    std::string const name = object.getClassName();
    classes[name.substr(name.rfind(':') + 1)] = printProperties(std::cout, object);
  };
  add(mv::Sl3dScanner());
  add(mv::LineScanner());
  add(mv::CalibPatternDetector());
  for (std::string const& name : mv::pc::filters().names()) {
    add(*mv::pc::createFilter(name));
  }
  add(mv::pc::ICPAligner());
  add(mv::pc::ICPAligner2());
  for (std::string const& name : mv::imageFilters().names()) {
    add(*mv::createImageFilter(name));
  }
  return classes;
}

/// @throws Exception for a folder, which says what to do
void refuseFolder(std::string const& path) {
  std::error_code unreadable; // which is told when it is read
  if (std::filesystem::is_directory(path, unreadable)) {
    throw Exception(path + ": it is a folder; name files in it, as " +
                        (std::filesystem::path(path) / "*.json").string() +
                        " (images of a scan or of views are judged by vorn-mv exposure)",
                    nullptr, 0, "info");
  }
}

nlohmann::json infoOf(std::string const& path) {
  std::string const ending = lowerCaseEnding(path);
  if (ending == ".json") {
    return jsonInfo(path);
  }
  if (isOpenCvStorage(path)) {
    return {{"kind", "camera"}, {"camera", cameraInfo("Camera", readCamera(path))}};
  }
  if (ending == ".ply" || ending == ".pcd" || ending == ".xyz" || ending == ".obj" || ending == ".stl") {
    return printCloudInfo(readGraphic(path));
  }
  return pictureInfo(path);
}

/// Tells of each file; of several, those that cannot be read are told and passed over.
/// @throws Exception where one cannot, once the others are told of
void tellOf(std::vector<std::string> const& files, Report& report) {
  bool const areSeveral = files.size() > 1;
  std::size_t failures = 0;
  auto const goOn = [&](std::exception const& reason) {
    if (!areSeveral) {
      throw;
    }
    report.warn(reason.what());
    ++failures;
  };
  std::vector<std::string> readable;
  for (std::string const& path : files) {
    try {
      refuseFolder(path);
      checkInputFile(path);
      readable.push_back(path);
    } catch (Exception const& e) {
      goOn(e);
    }
  }
  report.declare(readable, {});
  report["files"] = nlohmann::json::array();
  for (std::string const& path : readable) {
    if (areSeveral) {
      std::cout << path << ":\n";
    }
    try {
      nlohmann::json info = infoOf(path);
      info["file"] = path;
      report["files"].push_back(std::move(info));
    } catch (Cancelled const&) {
      throw;
    } catch (std::exception const& e) {
      goOn(e);
    }
  }
  if (failures > 0) {
    report.write();
    throw Exception(std::to_string(failures) + " of " + std::to_string(files.size()) +
                        " files could not be read, as warned",
                    nullptr, 0, "info");
  }
}

} // namespace

void addInfoCommand(CLI::App& app) {
  auto paths = std::make_shared<std::vector<std::string>>();
  auto properties = std::make_shared<bool>(false);
  CLI::App* command =
      app.add_subcommand("info", "Say what files hold: a calibration, a cloud, a picture, a report");
  CLI::Option* file = command->add_option("files", *paths, "The files; * and ? stand for parts of names");
  command
      ->add_flag("--properties", *properties,
                 "Print the properties of every class instead, with types, defaults and allowed values")
      ->excludes(file);
  setWork(
      *command,
      [=](Report& report) {
        if (*properties) {
          report["classes"] = allProperties();
          return;
        }
        if (file->count() == 0) {
          throw CLI::RequiredError("files");
        }
        tellOf(expandFiles(*paths), report);
      },
      "--report", "what the files hold");
}

} // namespace vorn::tools
