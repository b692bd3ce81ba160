// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <limits>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/filter_chain.hpp>
#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/pointcloud/cloud_filter.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "require.hpp"

namespace vorn::fuzz {

/// Runs a chain over small images of several types: it gives an image, or refuses by an exception that it may
/// throw, and leaves its input alone.
inline void runImageFilters(FilterChain<mv::IImageFilter> const& chain) {
  for (int const type : {CV_8UC1, CV_8UC3, CV_16UC1, CV_32FC1}) {
    cv::Mat whole(19, 23, type);
    cv::randu(whole, 0, 255);
    for (cv::Mat const& input :
         {whole, whole(cv::Rect(3, 2, 1, 1)), whole(cv::Rect(4, 5, 9, 7)), cv::Mat()}) {
      cv::Mat const before = whole.clone();
      try {
        mv::applyFilters(chain, input);
      } catch (Exception const&) {
      } catch (cv::Exception const&) {
      }
      require(cv::norm(whole, before, cv::NORM_INF) == 0, "a filter leaves its input alone");
    }
  }
}

/// Runs a chain over a small bumpy cloud with points missing: it may only change states.
inline void runCloudFilters(FilterChain<mv::pc::IFilter> const& chain) {
  cv::Mat_<cv::Vec3f> points(9, 11);
  points.forEach([](cv::Vec3f& point, int const* place) {
    int const bump = place[0] * place[1] % 7;
    point = bump == 6 ? cv::Vec3f::all(std::numeric_limits<float>::quiet_NaN())
                      : cv::Vec3f(static_cast<float>(place[1]), static_cast<float>(place[0]),
                                  static_cast<float>(400 + bump));
  });
  for (bool const organized : {false, true}) {
    mv::PointCloud cloud(points.clone(), organized);
    mv::PointCloud empty;
    for (auto const& filter : chain) {
      try {
        (*filter)(cloud);
        (*filter)(empty);
      } catch (Exception const&) {
      }
    }
    require(cloud.pointCount() == points.total(), "a cloud filter keeps the cells");
  }
}

} // namespace vorn::fuzz
