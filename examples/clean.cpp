// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include <vorn/mv.hpp>

int main(int argc, char** argv) try {
  if (argc != 3) {
    throw std::invalid_argument("usage: example_clean cloud.ply clean.ply");
  }
  auto cloud = vorn::mv::PointCloud::load(argv[1]);
  std::cout << "present: " << cloud.presentCount() << '\n';

  // Too strict on purpose: ten neighbours within a tenth of a millimetre.
  int const strict = cloud.clean(0.1F, 10);
  std::cout << "deleted: " << strict << '\n';
  cloud.undoState(); // they are back
  std::cout << "present again: " << cloud.presentCount() << '\n';

  int const outliers = cloud.clean(3.0F, 8);
  int const inSmallClusters = cloud.filterSmallCluster(3.0F, 500);
  std::cout << "outliers: " << outliers << "\nin small clusters: " << inSmallClusters
            << "\npresent: " << cloud.presentCount() << '\n';
  cloud.save(argv[2]); // the present points only
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
