// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstdint>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include <vorn/mv/sl/code_decoding.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>
#include <vorn/mv/sl/global_direct_light.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/phase_decoding.hpp>
#include <vorn/mv/sl/phase_quality.hpp>
#include <vorn/mv/sl/phase_unwrapping.hpp>
#include <vorn/mv/sl/projector_points.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "memory_case.hpp"
#include "scan_inputs.hpp"

namespace vorn::bench {

namespace {

using Stack = std::vector<cv::Mat>;

std::size_t pixelsOf(Sizes const& sizes) {
  return static_cast<std::size_t>(sizes.image.area());
}

/// The stack of a good scan, made once for all that take it.
Stack const& goodStack(cv::Size const& size) {
  static Stack stack;
  if (stack.empty() || stack[0].size() != size) {
    stack = capturedStack(size);
  }
  return stack;
}

Stack phaseImages(cv::Size const& size) {
  Stack const& stack = goodStack(size);
  return {stack.begin(), stack.begin() + 4};
}

Stack codeImages(cv::Size const& size) {
  Stack const& stack = goodStack(size);
  return {stack.begin() + 4, stack.end()};
}

double decode(Stack const& stack, char const* setting = nullptr, int value = 0) {
  mv::Sl3dScanner scanner = calibratedScanner(stack[0].size());
  if (setting != nullptr) {
    scanner[setting] = value;
  }
  return workingBytes(stack[0].total(), [&] { return scanner.decode(stack); });
}

cv::Mat trustedPixels(cv::Size const& size, int percent) {
  cv::Mat_<uchar> chance(size);
  cv::randu(chance, 0, 100);
  return chance < percent;
}

cv::Mat everySecondPixel(cv::Size const& size) {
  cv::Mat_<uchar> state(size);
  for (int y = 0; y < state.rows; ++y) {
    for (int x = 0; x < state.cols; ++x) {
      state(y, x) = (x + y) % 2 == 0 ? 255 : 0;
    }
  }
  return state;
}

/// Unwraps a map of random phases and qualities.
double unwrap(cv::Mat state, double lowestQuality = 1) {
  cv::Mat_<float> phase(state.size());
  cv::Mat_<float> quality(state.size());
  cv::randu(phase, 0, 6.28);
  cv::randu(quality, lowestQuality, 2);
  cv::Mat const code = cv::Mat::zeros(state.size(), CV_16S);
  return workingBytes(phase.total(), [&] { mv::unwrap_phase(phase, quality, state, code); });
}

/// The first call also makes the rays of both devices' pixels, which stay.
double triangulate(cv::Size const& size, bool isFirst, char const* type, int blur) {
  mv::Sl3dScanner scanner = calibratedScanner(size);
  scanner["ScannerType"] = type;
  scanner["PointcloudBlurRadius"] = blur;
  cv::Rect const whole({}, size);
  cv::Mat_<float> const coordinates(size, 300.0F);
  cv::Mat_<cv::Vec3f> before;
  if (!isFirst) {
    scanner.triangulate(coordinates, before, whole);
  }
  std::size_t const rays = isFirst ? static_cast<std::size_t>(projectorSize.area()) : 0;
  return workingBytes(coordinates.total() + rays, [&] {
    cv::Mat_<cv::Vec3f> xyz;
    scanner.triangulate(coordinates, xyz, whole);
    return xyz;
  });
}

double findProjectorPoints(cv::Size const& size) {
  cv::Mat_<float> const map(size, 300.0F);
  std::vector<cv::Point2f> dots;
  for (int y = 20; y < size.height - 20; y += 40) {
    for (int x = 20; x < size.width - 20; x += 40) {
      dots.emplace_back(static_cast<float>(x), static_cast<float>(y));
    }
  }
  return workingBytes(map.total(), [&] {
    std::vector<cv::Point2f> points;
    std::vector<std::uint8_t> valid;
    mv::find_projector_points(map, map, dots, points, valid);
  });
}

/// Both axes of a set image by image, with the maps that come of it.
double decodePatterns(Sizes const& sizes, std::string const& name, int steps) {
  cv::Size const square(1280, 1280);
  mv::PatternSetOptions options;
  options.steps = steps;
  mv::PatternSet const set = mv::PatternSet::builtIn(name, square, options);
  Stack patterns = set.generate();
  for (std::size_t i = 0; i < patterns.size(); ++i) {
    patterns[i] = set.images[i].axis == mv::PatternAxis::Row ? cv::Mat(patterns[i].t()) : patterns[i];
  }
  Stack const images = captured(patterns, sizes.image);
  return workingBytes(pixelsOf(sizes), [&] {
    mv::PatternDecoder decoder(set);
    for (cv::Mat const& image : images) {
      decoder.add(image);
    }
    decoder.finish();
  });
}

} // namespace

std::vector<MemoryCase> scanCases() {
  return {
      {"`decode_phase_shift`",
       [](Sizes const& s) {
         Stack const images = phaseImages(s.image);
         return workingBytes(pixelsOf(s), [&] {
           cv::Mat_<float> phase;
           mv::decode_phase_shift(images, phase);
           return phase;
         });
       }},
      {"`calc_magnitude`",
       [](Sizes const& s) {
         Stack const images = phaseImages(s.image);
         return workingBytes(pixelsOf(s), [&] {
           cv::Mat_<float> magnitude;
           mv::calc_magnitude(images, magnitude);
           return magnitude;
         });
       }},
      {"`calc_quality`",
       [](Sizes const& s) {
         cv::Mat_<float> const phase(s.image, 1.0F);
         return workingBytes(pixelsOf(s), [&] {
           cv::Mat_<float> quality;
           mv::calc_quality(phase, quality);
           return quality;
         });
       }},
      {"`decode_binary_xor0_pattern`",
       [](Sizes const& s) {
         Stack const images = codeImages(s.image);
         return workingBytes(pixelsOf(s), [&] {
           cv::Mat code;
           mv::decode_binary_xor0_pattern(images, code, 320, 20, 0);
           return code;
         });
       }},
      {"`decode_gray_patterns`",
       [](Sizes const& s) {
         Stack const images = codeImages(s.image);
         return workingBytes(pixelsOf(s), [&] {
           cv::Mat code;
           mv::decode_gray_patterns(images, code, 511, 20, 0);
           return code;
         });
       }},
      {"`estimate_global_direct_light`",
       [](Sizes const& s) {
         Stack const images = codeImages(s.image);
         return workingBytes(pixelsOf(s), [&] {
           cv::Mat direct, global, highest, lowest;
           mv::estimate_global_direct_light(direct, global, images, highest, lowest);
           return cv::Mat(direct.rows, direct.cols, CV_32FC4, direct.data); // as large as the four
         });
       }},
      {"`generate_ps4_patterns`",
       [](Sizes const& s) {
         return workingBytes(pixelsOf(s), [&] {
           Stack columns, rows;
           mv::generate_ps4_patterns(columns, rows, s.image);
           Stack& all = columns;
           all.insert(all.end(), rows.begin(), rows.end());
           return cv::Mat(all[0].rows, all[0].cols, CV_8UC(static_cast<int>(all.size())), all[0].data);
         });
       }},
      {"`unwrap_phase`, nine tenths trusted",
       [](Sizes const& s) { return unwrap(trustedPixels(s.image, 90)); }},
      {"`unwrap_phase`, half trusted", [](Sizes const& s) { return unwrap(trustedPixels(s.image, 50)); }},
      {"`unwrap_phase`, half trusted, one quality",
       [](Sizes const& s) { return unwrap(trustedPixels(s.image, 50), 2); }},
      {"`unwrap_phase`, a hundredth trusted",
       [](Sizes const& s) { return unwrap(trustedPixels(s.image, 1)); }},
      {"`unwrap_phase`, every second pixel trusted",
       [](Sizes const& s) { return unwrap(everySecondPixel(s.image)); }},
      {"`Sl3dScanner::decode`", [](Sizes const& s) { return decode(goodStack(s.image)); }},
      {"`Sl3dScanner::decode`, dim and noisy",
       [](Sizes const& s) {
         return decode(capturedStack(s.image, {10, 3}));
       }},
      {"`Sl3dScanner::decode`, noise alone", [](Sizes const& s) { return decode(noiseStack(s.image)); }},
      {"`Sl3dScanner::decode`, \"PhaseBlurRadius\"",
       [](Sizes const& s) { return decode(goodStack(s.image), "PhaseBlurRadius", 3); }},
      {"`Sl3dScanner::triangulate`, first call, per pixel of both devices",
       [](Sizes const& s) { return triangulate(s.image, true, "Horizontal", 0); }},
      {"`Sl3dScanner::triangulate`",
       [](Sizes const& s) { return triangulate(s.image, false, "Horizontal", 0); }},
      {"`Sl3dScanner::triangulate`, \"Vertical\"",
       [](Sizes const& s) { return triangulate(s.image, false, "Vertical", 0); }},
      {"`Sl3dScanner::triangulate`, \"PointcloudBlurRadius\"",
       [](Sizes const& s) { return triangulate(s.image, false, "Horizontal", 5); }},
      {"`PatternDecoder`, \"multi-frequency\", with its result",
       [](Sizes const& s) { return decodePatterns(s, "multi-frequency", 3); }},
      {"`PatternDecoder`, \"heterodyne\", with its result",
       [](Sizes const& s) { return decodePatterns(s, "heterodyne", 4); }},
      {"`PatternDecoder`, \"gray-phase\", with its result",
       [](Sizes const& s) { return decodePatterns(s, "gray-phase", 4); }},
      {"`find_projector_points`", [](Sizes const& s) { return findProjectorPoints(s.image); }},
  };
}

} // namespace vorn::bench
