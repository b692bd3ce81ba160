// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/scan_stack.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/lookup_tables.hpp>

#include "core/error.hpp"

namespace vorn::mv::sl {

namespace {

constexpr std::size_t phaseAndReferenceImages = 5;
/// A code word has 16 bits: the reference and at most so many planes.
constexpr int maxPlanes = 15;
/// What the pattern generator stops at.
constexpr int maxGeneratedPlanes = 8;

/// Words number stripes from 2 on.
constexpr float firstWord = 2.0F;

int planesFor(CodedAxis const& axis) {
  float const words =
      std::floor(static_cast<float>(axis.resolution) / static_cast<float>(axis.period) + firstWord);
  return static_cast<int>(std::ceil(std::log2(words))) - 1;
}

std::string sizeText(cv::Size const& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

void checkImages(std::vector<cv::Mat> const& images) {
  for (std::size_t i = 0; i < images.size(); ++i) {
    if (images[i].type() != CV_8UC1 || images[i].empty()) {
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
  return alongWidth ? CodedAxis{projectorResolution.width, 4} : CodedAxis{projectorResolution.height, 8};
}

void checkStack(std::vector<cv::Mat> const& images, CodedAxis const& axis, cv::Size const& cameraResolution) {
  if (images.size() <= phaseAndReferenceImages) { // too few for any projector
    throw error("Insufficient input patterns!", "decode");
  }
  if (axis.resolution < axis.period) {
    throw error("The projector's resolution is not set", "decode");
  }
  int const planes = static_cast<int>(images.size() - phaseAndReferenceImages);
  if (planes > maxPlanes) {
    throw error("There are " + std::to_string(images.size()) + " images; a scan has at most " +
                    std::to_string(phaseAndReferenceImages + maxPlanes),
                "decode");
  }
  // With fewer bits than the projector's stripes need, the last stripes would look like the first. The last
  // one may be cut by the projector's edge.
  int const stripes = axis.resolution / axis.period + (axis.resolution % axis.period > 0 ? 1 : 0);
  bool const isAmbiguous = stripes > 2 << planes;
  if (planes < std::min(planesFor(axis), maxGeneratedPlanes) || isAmbiguous) {
    throw error("Insufficient input patterns!", "decode");
  }
  checkImages(images);
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
