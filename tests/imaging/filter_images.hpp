// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include <opencv2/imgproc.hpp>

namespace vorn::test {

inline cv::Mat noise(int rows, int columns) {
  cv::Mat image(rows, columns, CV_8U);
  cv::randu(image, 0, 256);
  return image;
}

inline bool same(cv::Mat const& a, cv::Mat const& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

/// f(the pixels of the neighbourhood of `mask`) at every pixel, with mirrored borders.
using Statistic = std::function<double(std::vector<uchar>&)>;
inline cv::Mat bruteForce(cv::Mat const& image, cv::Mat const& mask, int border, Statistic const& statistic) {
  int const radius = mask.rows / 2;
  cv::Mat padded;
  cv::copyMakeBorder(image, padded, radius, radius, radius, radius, border);
  cv::Mat result(image.size(), CV_8U);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      std::vector<uchar> pixels;
      for (int dy = 0; dy < mask.rows; ++dy) {
        for (int dx = 0; dx < mask.cols; ++dx) {
          if (mask.at<uchar>(dy, dx) != 0) {
            pixels.push_back(padded.at<uchar>(y + dy, x + dx));
          }
        }
      }
      result.at<uchar>(y, x) = cv::saturate_cast<uchar>(statistic(pixels));
    }
  }
  return result;
}

} // namespace vorn::test
