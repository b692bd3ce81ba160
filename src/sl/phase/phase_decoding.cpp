// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/phase_decoding.hpp>

#include <algorithm>
#include <stdexcept>

#include <opencv2/core.hpp>

#include "core/parallel.hpp"
#include "sl/coding/lookup_tables.hpp"
#include "sl/decode/stack_checks.hpp"
#include "sl/phase/phase_rows.hpp"

namespace vorn::mv {

namespace {

constexpr std::size_t threeSteps = 3;
constexpr std::size_t fourSteps = 4;

void decodeRow(std::vector<cv::Mat> const& images, float const* table, cv::Mat const& mask, int row,
               float* out) {
  int const width = images[0].cols;
  PhaseIndices indices;
  for (int x = 0; x < width; x += phaseBlockLength) {
    int const length = std::min(phaseBlockLength, width - x);
    auto const pixels = [&](std::size_t image) { return images[image].ptr<uchar>(row) + x; };
    if (images.size() == fourSteps) {
      indexFourSteps(pixels(0), pixels(1), pixels(2), pixels(3), length, indices);
    } else {
      indexThreeSteps(pixels(0), pixels(1), pixels(2), length, indices);
    }
    readTable(table, indices, length, out + x);
    if (!mask.empty()) {
      rejectMasked(mask.ptr<uchar>(row) + x, length, out + x);
    }
  }
}

/// Writes the table entry of each pixel into `out`, from the table that belongs to the number of images.
void decodeByTable(std::vector<cv::Mat> const& images, cv::Mat_<float> const& tableFourSteps,
                   cv::Mat_<float> const& tableThreeSteps, cv::Mat_<float>& out, cv::Mat const& mask) {
  if (images.size() < threeSteps) {
    throw std::invalid_argument("Need at least 3 phase images to decode");
  }
  requireImageStack(images);
  cv::Size const size = images[0].size();
  requireMask(mask, size);
  if (images.size() > fourSteps) {
    out.create(size);
    return;
  }
  float const* const table = images.size() == fourSteps ? requireTable(tableFourSteps, lutRowsFourSteps)
                                                        : requireTable(tableThreeSteps, lutRowsThreeSteps);
  out.create(size);
  parallelRows(size.height, [&](int firstRow, int endRow) {
    for (int row = firstRow; row < endRow; ++row) {
      decodeRow(images, table, mask, row, out[row]);
    }
  });
}

} // namespace

void decode_phase_shift(std::vector<cv::Mat> const& images, cv::Mat_<float>& phase, cv::Mat const& mask) {
  decodeByTable(images, get_lut_atan2(), get_lut_atan2_p3(), phase, mask);
}

void decode_phase_shift(std::initializer_list<cv::Mat> images, cv::Mat_<float>& phase, cv::Mat const& mask) {
  decode_phase_shift(std::vector<cv::Mat>(images), phase, mask);
}

void calc_magnitude(std::vector<cv::Mat> const& images, cv::Mat_<float>& magnitude, cv::Mat const& mask) {
  decodeByTable(images, get_lut_mag(), get_lut_mag_p3(), magnitude, mask);
}

} // namespace vorn::mv
