// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/scan_stack.hpp"

#include <sstream>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/lookup_tables.hpp>

#include "core/error.hpp"

namespace vorn::mv::sl {

namespace {

std::string sizeText(cv::Size const& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

void checkImages(std::vector<cv::Mat> const& images, StackDepth depth) {
  for (std::size_t i = 0; i < images.size(); ++i) {
    bool const isDeep = depth == StackDepth::Any && images[i].type() == CV_16UC1;
    if ((images[i].type() != CV_8UC1 && !isDeep) || images[i].empty()) {
      throw error("Image " + std::to_string(i) + " is not an 8-bit image of one channel", "decode");
    }
    if (images[i].size() != images[0].size()) {
      throw error("Image " + std::to_string(i) + " has " + sizeText(images[i].size()) +
                      " pixels, the first has " + sizeText(images[0].size()),
                  "decode");
    }
  }
}

} // namespace

CodedAxis codedAxis(cv::Size const& projectorResolution, bool alongWidth) {
  return alongWidth ? CodedAxis{projectorResolution.width, columnCode}
                    : CodedAxis{projectorResolution.height, rowCode};
}

void checkStack(std::vector<cv::Mat> const& images, CodedAxis const& axis, cv::Size const& cameraResolution,
                StackDepth depth) {
  int const planes = StripeCode::planesIn(images.size());
  if (planes < 1) { // too few for any projector
    throw error("Insufficient input patterns!", "decode");
  }
  if (axis.resolution < axis.code.period) {
    throw error("The projector's resolution is not set", "decode");
  }
  if (planes > StripeCode::maxPlanes) {
    throw error("There are " + std::to_string(images.size()) + " images; a scan has at most " +
                    std::to_string(StripeCode::images(StripeCode::maxPlanes)),
                "decode");
  }
  if (!axis.code.isCodedBy(planes, axis.resolution)) {
    throw error("Insufficient input patterns!", "decode");
  }
  checkImages(images, depth);
  if (!cameraResolution.empty() && images[0].size() != cameraResolution) {
    throw error("The images have " + sizeText(images[0].size()) + " pixels, the camera has " +
                    sizeText(cameraResolution),
                "decode");
  }
  if (get_lut_atan2().empty()) {
    throw error("The library is not started: call vorn::mv::Library::init first", "decode");
  }
}

cv::Mat_<float> cropTo(cv::Mat_<float> const& phase, cv::Rect const& roi, cv::Size const& cameraResolution) {
  if ((roi & cv::Rect({0, 0}, cameraResolution)) != roi || roi.empty()) {
    std::ostringstream message;
    message << "The region " << roi << " is not within the camera's " << sizeText(cameraResolution)
            << " pixels";
    throw error(message.str(), "triangulate");
  }
  if (phase.size() == roi.size()) {
    return phase;
  }
  if (phase.size() != cameraResolution) {
    throw error("The map has " + sizeText(phase.size()) + " pixels, neither the camera's " +
                    sizeText(cameraResolution) + " nor the region's " + sizeText(roi.size()),
                "triangulate");
  }
  return phase(roi);
}

void checkProjector(cv::Size const& resolution) {
  constexpr int least = 5;
  if (resolution.width < least || resolution.height < least) {
    throw error("A projector of " + sizeText(resolution) + " pixels is too small", "triangulate");
  }
}

} // namespace vorn::mv::sl
