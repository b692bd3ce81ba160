// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

using namespace vorn::mv;

namespace {

std::vector<cv::Mat> readImages(std::string const& pattern) {
  std::vector<cv::String> names;
  cv::glob(pattern, names);
  std::vector<cv::Mat> images;
  for (cv::String const& name : names) {
    images.push_back(cv::imread(name, cv::IMREAD_GRAYSCALE));
  }
  return images;
}

/// The projector coordinate that every camera pixel sees: nothing but measured values, however few together.
cv::Mat decode(std::vector<cv::Mat> const& images, scanner::ScannerType const& type,
               cv::Size const& projector) {
  Sl3dScanner decoder;
  decoder.setScannerType(type);
  decoder.setMaxFillRadius(0);
  decoder.setMinSegmentSize(20);
  decoder.setMaxGrayLevel(200);
  decoder.getCameraModel().setResolution(images.at(0).size());
  decoder.getProjectorModel().setResolution(projector);
  return decoder.decode(images);
}

/// Adds what camera and projector see of the target in one pose; false where they do not see it well.
bool addView(std::string const& pose, CalibPatternDetector const& detector, cv::Size const& projector,
             CameraCalibData& cameraData, CameraCalibData& projectorData) {
  auto const target = detector.detect(cv::imread(pose + "/target.png", cv::IMREAD_GRAYSCALE));
  if (!target.isOriginMarked()) {
    return false; // without the marker dots nobody knows which dot is which
  }
  cv::Mat const columns =
      decode(readImages(pose + "/columns_*.png"), scanner::ScannerType::Horizontal, projector);
  cv::Mat const rows = decode(readImages(pose + "/rows_*.png"), scanner::ScannerType::Vertical, projector);
  std::vector<cv::Point2f> projPnts;
  std::vector<std::uint8_t> valid;
  find_projector_points(columns, rows, target.getImgPnts(), projPnts, valid);
  std::vector<cv::Point2f> litPnts;
  std::vector<cv::Point2f> litObjPnts;
  for (std::size_t i = 0; i < projPnts.size(); ++i) {
    if (valid[i] != 0) {
      litPnts.push_back(projPnts[i]);
      litObjPnts.push_back(target.getObjPnts()[i]);
    }
  }
  constexpr std::size_t fewest = 20;
  if (litPnts.size() < fewest) {
    return false;
  }
  cameraData.add(target.getImgPnts(), target.getObjPnts());
  projectorData.add(litPnts, litObjPnts);
  return true;
}

} // namespace

int main(int argc, char** argv) try {
  if (argc < 8) {
    throw std::invalid_argument("usage: example_calibrate scanner.json PITCH PROJECTOR_WIDTH "
                                "PROJECTOR_HEIGHT pose_00 pose_01 pose_02 ...");
  }
  Library::start(false);
  vorn::System::set("EnableDebugMode", false);
  CalibPatternDetector detector;
  detector.setPatternDim(std::stod(argv[2]));
  detector.setMinDotArea(20.0);
  cv::Size const projector(std::stoi(argv[3]), std::stoi(argv[4]));

  CameraCalibData cameraData;
  CameraCalibData projectorData;
  for (int i = 5; i < argc; ++i) {
    if (!addView(argv[i], detector, projector, cameraData, projectorData)) {
      std::cerr << argv[i] << " shows too little of the target\n";
    }
  }
  cv::Size const camera = cv::imread(std::string(argv[5]) + "/target.png").size();
  for (auto const& [data, size] : {std::pair(&cameraData, camera), std::pair(&projectorData, projector)}) {
    if (auto const problem = findCalibrationProblem(*data, size)) {
      throw std::runtime_error(*problem);
    }
  }

  Sl3dScanner scanner;
  scanner.getCameraModel().setResolution(camera);
  scanner.getProjectorModel().setResolution(projector);
  scanner.calib(cameraData, projectorData);
  std::cout << "camera " << scanner.getCameraModel().getCalibError() << " px, projector "
            << scanner.getProjectorModel().getCalibError() << " px\n";
  nlohmann::json json;
  scanner.write(json);
  vorn::AtomicFile file(argv[1]); // a calibration that stood there is lost only to a whole one
  file.write(json.dump(1));
  file.commit();
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
