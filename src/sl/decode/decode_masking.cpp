// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/decode_masking.hpp"

#include <algorithm>

#include <opencv2/imgproc.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int saturated = 255;
/// Pixels of a row that are worked on together: what is kept for them stays in the first-level cache.
constexpr int chunk = 1024;

VORN_TARGET_CLONES
void exposureRow(uchar const* p0, uchar const* p1, uchar const* p2, uchar const* p3, int maxSum, uchar* mask,
                 int n) {
  for (int x = 0; x < n; ++x) {
    int const sum = p0[x] + p1[x] + p2[x] + p3[x];
    uchar const top = std::max(std::max(p0[x], p1[x]), std::max(p2[x], p3[x]));
    mask[x] = sum <= maxSum && top < saturated ? 255 : 0;
  }
}

VORN_TARGET_CLONES
void widenRange(uchar const* image, uchar* lowest, uchar* highest, int n) {
  for (int x = 0; x < n; ++x) {
    lowest[x] = std::min(lowest[x], image[x]);
    highest[x] = std::max(highest[x], image[x]);
  }
}

/// The two middles between bright and dark, the lower one in `lowest`, the upper one in `highest`.
VORN_TARGET_CLONES
void middlesAndContrast(uchar const* p0, uchar const* p1, uchar const* p2, uchar const* p3, int minContrast,
                        uchar* lowest, uchar* highest, uchar* lit, int n) {
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < n; ++x) {
    auto const ofRange = static_cast<uchar>((lowest[x] + highest[x]) / 2);
    auto const ofPhases = static_cast<uchar>((p0[x] + p1[x] + p2[x] + p3[x]) / 4);
    lit[x] = highest[x] - lowest[x] >= minContrast ? 255 : 0;
    lowest[x] = std::min(ofRange, ofPhases);
    highest[x] = std::max(ofRange, ofPhases);
  }
}

VORN_TARGET_CLONES
void narrowMargin(uchar const* image, uchar const* lower, uchar const* upper, uchar* margin, int n) {
  for (int x = 0; x < n; ++x) {
    // Differences of bytes that stop at zero.
    auto const above = static_cast<uchar>(std::max(image[x], upper[x]) - upper[x]);
    auto const below = static_cast<uchar>(lower[x] - std::min(image[x], lower[x]));
    margin[x] = std::min(margin[x], std::max(above, below));
  }
}

void contrastChunk(std::vector<cv::Mat> const& phaseImages, std::vector<cv::Mat> const& codeImages, int y,
                   int x0, int n, int minContrast, uchar* lit, uchar* margin) {
  uchar lowest[chunk] = {};
  uchar highest[chunk];
  std::copy_n(codeImages[0].ptr(y) + x0, n, lowest);
  std::copy_n(codeImages[0].ptr(y) + x0, n, highest);
  for (std::size_t k = 1; k < codeImages.size(); ++k) {
    widenRange(codeImages[k].ptr(y) + x0, lowest, highest, n);
  }
  middlesAndContrast(phaseImages[0].ptr(y) + x0, phaseImages[1].ptr(y) + x0, phaseImages[2].ptr(y) + x0,
                     phaseImages[3].ptr(y) + x0, minContrast, lowest, highest, lit, n);
  std::fill_n(margin, n, uchar{255});
  for (cv::Mat const& image : codeImages) {
    narrowMargin(image.ptr(y) + x0, lowest, highest, margin, n);
  }
}

} // namespace

void maskExposure(std::vector<cv::Mat> const& phaseImages, int maxGrayLevel, cv::Mat_<uchar>& mask) {
  parallelRows(mask.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      exposureRow(phaseImages[0].ptr(y), phaseImages[1].ptr(y), phaseImages[2].ptr(y), phaseImages[3].ptr(y),
                  4 * maxGrayLevel, mask[y], mask.cols);
    }
  });
}

void maskContrast(std::vector<cv::Mat> const& phaseImages, std::vector<cv::Mat> const& codeImages,
                  int minContrast, int bridged, cv::Mat_<uchar>& lit, cv::Mat_<uchar>& margin) {
  parallelRows(lit.rows, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < lit.cols; x += chunk) {
        contrastChunk(phaseImages, codeImages, y, x, std::min(chunk, lit.cols - x), minContrast, lit[y] + x,
                      margin[y] + x);
      }
    }
  });
  cv::Mat const kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(bridged + 1, bridged + 1));
  cv::dilate(lit, lit, kernel);
  cv::erode(lit, lit, kernel);
}

} // namespace vorn::mv::sl
