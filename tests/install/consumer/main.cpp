// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>

#include <vorn/mv.hpp>

int main() {
  vorn::mv::Library::init();
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  vorn::mv::generate_ps4_patterns(columns, rows, cv::Size(640, 400));
  std::cout << columns.size() << " column patterns, " << rows.size() << " row patterns\n";
  return columns.empty() || rows.empty() ? 1 : 0;
}
