// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/grey_image.hpp"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "core/error.hpp"

namespace vorn::mv {
namespace {

/// The values below and above which a thousandth of the finite pixels lies. Of a regular sample of them: the
/// tails of a whole image are the same to a grey level.
std::pair<float, float> tails(cv::Mat const& image) {
  constexpr std::size_t sampled = 1U << 18U;
  constexpr double tail = 0.001;
  std::size_t const every = std::max<std::size_t>(1, image.total() / sampled);
  std::vector<float> values;
  for (std::size_t i = 0; i < image.total(); i += every) {
    auto const columns = static_cast<std::size_t>(image.cols);
    float const value = image.ptr<float>(static_cast<int>(i / columns))[i % columns];
    if (std::isfinite(value)) {
      values.push_back(value);
    }
  }
  if (values.empty()) {
    return {0.0F, 0.0F};
  }
  auto const rank = static_cast<std::ptrdiff_t>(tail * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), values.begin() + rank, values.end());
  float const low = values[static_cast<std::size_t>(rank)];
  std::nth_element(values.begin(), values.end() - 1 - rank, values.end());
  return {low, *(values.end() - 1 - rank)};
}

constexpr double white = 255;

} // namespace

GreyImage GreyImage::inverted() const {
  return {white - bytes, deep.empty() ? cv::Mat() : cv::Mat(white - deep)};
}

GreyImage greyImage(cv::Mat const& image, char const* context) {
  bool const isDepthRight =
      image.depth() == CV_8U || image.depth() == CV_16U || image.depth() == CV_32F || image.depth() == CV_64F;
  if (image.empty() || image.dims != 2 || !isDepthRight || (image.channels() != 1 && image.channels() != 3)) {
    throw error(
        "Invalid input image type: it takes 8- or 16-bit unsigned or floating-point pixels of one or three "
        "channels",
        context);
  }
  cv::Mat grey = image;
  if (grey.depth() == CV_32F) {
    grey = image.clone(); // to be changed
  } else if (grey.depth() != CV_8U) {
    grey.convertTo(grey, CV_32F);
  }
  if (grey.channels() == 3) {
    cv::cvtColor(grey, grey, cv::COLOR_BGR2GRAY);
  }
  if (grey.depth() == CV_8U) {
    return {grey, {}};
  }
  auto const [low, high] = tails(grey);
  double const scale = high > low ? white / (static_cast<double>(high) - low) : 0.0;
  if (image.depth() != CV_16U) {
    cv::patchNaNs(grey, low);
  }
  GreyImage stretched;
  grey.convertTo(stretched.bytes, CV_8U, scale, -scale * low);
  grey.convertTo(grey, CV_32F, scale, -scale * low); // in its place: new memory costs as much as the work
  stretched.deep = grey;
  return stretched;
}

} // namespace vorn::mv
