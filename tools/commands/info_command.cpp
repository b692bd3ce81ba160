// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <memory>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>
#include <vorn/mv/calib/camera_model.hpp>
#include <vorn/mv/calib/line_scanner.hpp>
#include <vorn/mv/calib/stereo_camera.hpp>
#include <vorn/mv/geometry/plane3f.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/pointcloud/cloud_filters.hpp>
#include <vorn/mv/registration/icp_aligner.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/property_table.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_info.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"

namespace vorn::tools {

namespace {

void printCamera(std::string const& title, mv::CameraModel const& camera) {
  std::cout << title << ": " << camera.getResolution().width << " x " << camera.getResolution().height
            << " pixels, ";
  if (camera.getK().empty()) {
    std::cout << "not calibrated\n";
    return;
  }
  cv::Matx33d const k = camera.getK();
  std::cout << "error " << camera.getCalibError() << " px"
            << (camera.isCalibrated() ? "" : " (not calibrated)") << "\n  focal lengths " << k(0, 0) << ", "
            << k(1, 1) << " px; centre " << k(0, 2) << ", " << k(1, 2) << " px; distortion";
  for (double const coefficient : cv::Mat_<double>(camera.getD())) {
    std::cout << ' ' << coefficient;
  }
  std::cout << '\n';
}

void printScanner(mv::Sl3dScanner const& scanner) {
  std::cout << "Structured-light scanner, " << (scanner.isCalibrated() ? "calibrated" : "not calibrated")
            << '\n';
  printCamera("Camera", scanner.getCameraModel());
  printCamera("Projector", scanner.getProjectorModel());
  cv::Matx44d const cam_from_proj = scanner.getTransform();
  cv::Vec3d const projector(cam_from_proj(0, 3), cam_from_proj(1, 3), cam_from_proj(2, 3));
  std::cout << "Projector at " << projector << " mm in the camera's frame, baseline " << cv::norm(projector)
            << " mm\n";
  for (Property const* property : scanner.getProperties()) {
    std::cout << "  " << property->toString() << '\n';
  }
}

void printStereo(mv::StereoCamera const& stereo) {
  std::cout << "Stereo camera, " << (stereo.isCalibrated() ? "calibrated" : "not calibrated") << '\n';
  printCamera("Camera 0", stereo.getCameraModel0());
  printCamera("Camera 1", stereo.getCameraModel1());
  cv::Vec3d const camera1 = mv::math::getT3(stereo.getTransform());
  std::cout << "Camera 1 at " << camera1 << " mm in the frame of camera 0, baseline " << cv::norm(camera1)
            << " mm\n";
}

void printLineScanner(mv::LineScanner const& scanner) {
  std::cout << "Laser line scanner, " << (scanner.isCalibrated() ? "calibrated" : "not calibrated") << '\n';
  printCamera("Camera", scanner.getCameraModel());
  for (mv::Plane3f const& plane : scanner.getPlanes()) {
    std::cout << "Laser plane through " << plane.point() << " mm, normal " << plane.normal() << '\n';
  }
}

void printJson(std::string const& path) {
  nlohmann::json const json = readJsonFile(path);
  if (json.contains("ProjectorModel")) {
    mv::Sl3dScanner scanner;
    load(path, scanner);
    printScanner(scanner);
  } else if (json.contains("CameraModel0")) {
    mv::StereoCamera stereo;
    load(path, stereo);
    printStereo(stereo);
  } else if (json.contains("Plane_0")) {
    mv::LineScanner scanner;
    load(path, scanner);
    printLineScanner(scanner);
  } else if (json.contains("K")) {
    mv::CameraModel camera;
    load(path, camera);
    printCamera("Camera", camera);
  } else {
    throw Exception(path + " holds no scanner and no camera", nullptr, 0, "info");
  }
}

void printPicture(std::string const& path) {
  cv::Mat const image = readImage(path);
  double least = 0.0;
  double greatest = 0.0;
  cv::minMaxLoc(image.reshape(1), &least, &greatest);
  std::cout << "Picture, " << image.cols << " x " << image.rows << ", " << cv::typeToString(image.type())
            << ", values " << least << " to " << greatest << '\n';
}

/// Every class that is set up by properties.
void printAllProperties() {
  printProperties(std::cout, mv::Sl3dScanner());
  printProperties(std::cout, mv::LineScanner());
  printProperties(std::cout, mv::CalibPatternDetector());
  for (std::string const& name : mv::pc::filters().names()) {
    printProperties(std::cout, *mv::pc::createFilter(name));
  }
  printProperties(std::cout, mv::pc::ICPAligner());
  printProperties(std::cout, mv::pc::ICPAligner2());
  for (std::string const& name : mv::imageFilters().names()) {
    printProperties(std::cout, *mv::createImageFilter(name));
  }
}

void run(std::string const& path) {
  std::string const ending = lowerCaseEnding(path);
  if (ending == ".json") {
    printJson(path);
  } else if (ending == ".ply" || ending == ".obj" || ending == ".stl") {
    printCloudInfo(readGraphic(path));
  } else {
    printPicture(path);
  }
}

} // namespace

void addInfoCommand(CLI::App& app) {
  auto path = std::make_shared<std::string>();
  auto properties = std::make_shared<bool>(false);
  CLI::App* command =
      app.add_subcommand("info", "Say what a file holds: a calibration, a cloud or a picture");
  CLI::Option* file = command->add_option("file", *path, "The file");
  command
      ->add_flag("--properties", *properties,
                 "Print the properties of every class instead, with types, defaults and allowed values")
      ->excludes(file);
  command->callback([=] {
    if (*properties) {
      printAllProperties();
    } else if (file->count() == 0) {
      throw CLI::RequiredError("file");
    } else {
      run(*path);
    }
  });
}

} // namespace vorn::tools
