// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <iostream>
#include <stdexcept>

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
    images.push_back(toMat(rig.showAndGrab(pattern)));
  }
  return images;
}

int main(int argc, char** argv) try {
  if (argc != 4) {
    throw std::invalid_argument("usage: example_host_scan scanner.json FOLDER cloud.ply");
  }
  Library::start(false);
  Sl3dScanner scanner;
  vorn::load(argv[1], scanner);
  ReplayedRig rig(argv[2], scanner.getProjectorModel().getResolution());

  ScanResult const result = scan(scanner, capture(rig));
  result.cloud.save(argv[3]);
  std::cout << result.counts.points << " points\n";
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
