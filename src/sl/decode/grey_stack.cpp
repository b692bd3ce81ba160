// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/grey_stack.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <sstream>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/imaging/white_level.hpp>

#include "core/error.hpp"
#include "sl/coding/stripe_code.hpp"

namespace vorn::mv::sl {

namespace {

constexpr char const* context = "decode";
constexpr int mostOfWords = 65535;

bool isReal(cv::Mat const& image) {
  return image.depth() == CV_32F || image.depth() == CV_64F;
}

std::string kindText(cv::Mat const& image) {
  return image.empty() ? "empty"
                       : cv::typeToString(image.type()) + " of " + std::to_string(image.cols) + " x " +
                             std::to_string(image.rows) + " pixels";
}

double whiteOf(std::vector<cv::Mat> const& images, double whiteLevel) {
  constexpr int mostOfBytes = 255;
  double const most = images[0].depth() == CV_8U    ? mostOfBytes
                      : images[0].depth() == CV_16U ? mostOfWords
                                                    : 1e30;
  if (!(whiteLevel >= 0.0 && whiteLevel <= most)) {
    std::ostringstream message;
    message << "The white level is " << whiteLevel << ", which must be 0 to " << most << " for images of "
            << cv::typeToString(images[0].type());
    throw error(message.str(), context);
  }
  if (whiteLevel > 0.0) {
    return whiteLevel;
  }
  // The phase images are the brightest of a scan.
  std::size_t const count = std::min<std::size_t>(images.size(), StripeCode::phaseImages);
  return findWhiteLevel({images.begin(), images.begin() + static_cast<std::ptrdiff_t>(count)});
}

/// One channel of the image's depth.
cv::Mat grey(cv::Mat const& image, double white) {
  if (image.channels() == 1) {
    return image;
  }
  cv::Mat result;
  cv::cvtColor(image, result, cv::COLOR_BGR2GRAY);
  std::vector<cv::Mat> channels;
  cv::split(image, channels);
  for (cv::Mat const& channel : channels) {
    result.setTo(white, channel >= white);
  }
  return result;
}

} // namespace

void requireOneKind(std::vector<cv::Mat> const& images) {
  for (std::size_t i = 0; i < images.size(); ++i) {
    cv::Mat const& image = images[i];
    bool const isDepth = image.depth() == CV_8U || image.depth() == CV_16U || isReal(image);
    if (image.empty() || image.dims != 2 || !isDepth || (image.channels() != 1 && image.channels() != 3)) {
      throw error(
          "Image " + std::to_string(i) + " is " + kindText(image) +
              " and must have 8- or 16-bit unsigned or floating-point pixels of one or three channels",
          context);
    }
    if (image.type() != images[0].type() || image.size() != images[0].size()) {
      throw error("Image " + std::to_string(i) + " is " + kindText(image) + "; the first one is " +
                      kindText(images[0]),
                  context);
    }
  }
}

GreyStack greyStack(std::vector<cv::Mat> const& images, double whiteLevel) {
  requireOneKind(images);
  GreyStack stack;
  if (images.empty()) {
    return stack;
  }
  double const white = whiteOf(images, whiteLevel);
  stack.white = isReal(images[0]) ? mostOfWords : static_cast<int>(std::ceil(white));
  stack.unit = isReal(images[0]) ? white / mostOfWords : 1.0;
  for (cv::Mat const& image : images) {
    cv::Mat single;
    if (isReal(image)) {
      image.convertTo(single, CV_32F);
      cv::patchNaNs(single);
    } else {
      single = image;
    }
    cv::Mat one = grey(single, white);
    if (isReal(image)) {
      one.convertTo(one, CV_16U, 1.0 / stack.unit);
    }
    stack.images.push_back(one);
  }
  return stack;
}

} // namespace vorn::mv::sl
