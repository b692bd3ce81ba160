// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

using namespace vorn::mv;

/// What a scan needs of the devices. A host has one class of this kind, with the calls of its own camera and
/// projector in it.
class Rig {
public:
  virtual ~Rig() = default;
  virtual cv::Size projectorSize() const = 0;
  /// Shows a pattern, waits until it is up, and returns the camera's pixels.
  virtual Image showAndGrab(cv::Mat const& pattern) = 0;
};

/// Stands in for devices: hands out images that were captured before.
class ReplayedRig : public Rig {
public:
  ReplayedRig(std::string const& folder, cv::Size const& projector) : projector_(projector) {
    cv::glob(folder + "/columns_*.png", files_);
  }
  cv::Size projectorSize() const override { return projector_; }
  Image showAndGrab(cv::Mat const& /*pattern*/) override {
    cv::Mat const picture = cv::imread(files_.at(next_++), cv::IMREAD_GRAYSCALE);
    return Image(picture.data, picture.cols, picture.rows, PixelFormat{PixelFormat::Order::Gray, 8});
  }

private:
  cv::Size projector_;
  std::vector<cv::String> files_;
  std::size_t next_ = 0;
};

std::vector<cv::Mat> capture(Rig& rig) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  generate_ps4_patterns(columns, rows, rig.projectorSize());
  std::vector<cv::Mat> images;
  for (cv::Mat const& pattern : columns) {
    images.push_back(toGrayMat(rig.showAndGrab(pattern)));
  }
  return images;
}

int main(int argc, char** argv) try {
  if (argc != 4) {
    throw std::invalid_argument("usage: example_host_scan scanner.json FOLDER cloud.ply");
  }
  Library::init();
  Sl3dScanner scanner;
  scanner.read(nlohmann::json::parse(std::ifstream(argv[1])));
  scanner["EnableTexture"] = true;
  ReplayedRig rig(argv[2], scanner.getProjectorModel().getResolution());

  cv::Mat_<float> const map = scanner.decode(capture(rig));
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(map, xyz, cv::Rect(0, 0, map.cols, map.rows));

  cv::Mat_<cv::Vec3b> colors;
  cv::Mat const grey[] = {scanner.getTexture(), scanner.getTexture(), scanner.getTexture()};
  cv::merge(grey, 3, colors);
  PointCloud cloud(xyz, true, {}, colors);
  cloud.filterByZRange(1, 10000); // mm; unmeasured pixels lie at z = -1
  cloud.saveToFile(argv[3], "ply");
  std::cout << cloud.presentCount() << " points\n";
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
