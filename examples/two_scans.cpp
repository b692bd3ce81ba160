// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

using namespace vorn::mv;

namespace {

Sl3dScanner readScanner(std::string const& path) {
  Sl3dScanner scanner;
  vorn::load(path, scanner);
  return scanner;
}

/// The points of one camera with the projector, on that camera's grid and in the frame of its scanner's pose.
PointCloud scan(Sl3dScanner& scanner, std::string const& folder) {
  std::vector<cv::String> names;
  cv::glob(folder + "/columns_*.png", names);
  std::vector<cv::Mat> images;
  for (cv::String const& name : names) {
    images.push_back(cv::imread(name, cv::IMREAD_GRAYSCALE));
  }
  cv::Mat_<float> const map = scanner.decode(images);
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(map, xyz, cv::Rect(0, 0, map.cols, map.rows));
  PointCloud cloud(xyz, true);
  cloud.filterByZRange(1, 10000); // mm; unmeasured pixels lie at z = -1
  cloud.filterByDz(4);
  return cloud;
}

} // namespace

int main(int argc, char** argv) try {
  if (argc != 6) {
    throw std::invalid_argument(
        "usage: example_two_scans scanner.json FOLDER second.json SECOND_FOLDER both.ply");
  }
  Library::start(false);
  vorn::System::set("EnableDebugMode", false);
  Sl3dScanner scanner0 = readScanner(argv[1]);
  Sl3dScanner scanner1 = readScanner(argv[3]);
  // Both see one projector: cam0_from_proj and proj_from_cam1 make cam0_from_cam1.
  cv::Matx44d const cam0_from_cam1 = scanner0.getTransform() * scanner1.getTransform().inv();
  scanner1.setPose(cam0_from_cam1); // from here on its points are in the frame of camera 0

  PointCloud cloud0 = scan(scanner0, argv[2]);
  PointCloud cloud1 = scan(scanner1, argv[4]);

  vorn::graphic::GraphicObject both = cloud0.getGraphicObject(true);
  std::size_t const seenByFirst = both.vertices().size();
  std::vector<cv::Vec3f> const more = cloud1.getGraphicObject(true).vertices();
  both.vertices().insert(both.vertices().end(), more.begin(), more.end());
  vorn::graphic::PLYFile().write(argv[5], both);

  constexpr float near = 3; // mm, some distances between neighbouring points
  auto const added = std::count_if(more.begin(), more.end(), [&](cv::Vec3f const& p) {
    return cloud0.octree().radiusNeighborsCount<Distance<cv::Vec3f>::L2>(p, near) == 0;
  });
  std::cout << seenByFirst << " and " << more.size() << " points; " << added
            << " of the second lie where the first camera saw nothing\n";
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
