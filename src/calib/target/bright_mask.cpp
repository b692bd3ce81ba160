// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/bright_mask.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "core/simd.hpp"

namespace vorn::mv {
namespace {

constexpr int block = 4;
constexpr int blockArea = block * block;

/// Of the middle of a pixel between those of its block and the next one, in eighths of a block.
constexpr int eighths = 8;
constexpr int nextShares[block] = {-3, -1, 1, 3};

/// The blocks that a pixel lies between, and the share of the second one in eighths.
struct Between {
  int first;
  int second;
  int share;
};

Between blocksOf(int pixel, int count) {
  int const own = pixel / block;
  int const next = nextShares[pixel % block];
  int const first = next < 0 ? own - 1 : own;
  return {std::max(first, 0), std::min(first + 1, count - 1), next < 0 ? eighths + next : next};
}

constexpr int scale = blockArea * eighths * eighths; // of drawn out sums to grey levels

VORN_TARGET_CLONES void addRow(std::uint8_t const* pixels, std::size_t width, std::uint16_t* sums) {
  VORN_INDEPENDENT_ITERATIONS
  for (std::size_t x = 0; x < width; ++x) {
    sums[x] = static_cast<std::uint16_t>(sums[x] + pixels[x]);
  }
}

/// Draws sums of blocks, times 8, out to pixels; one block more stands at either end of them.
VORN_TARGET_CLONES void drawOut(int const* sums, std::size_t count, int* fine) {
  VORN_INDEPENDENT_ITERATIONS
  for (std::size_t x = 0; x < count; ++x) {
    int const before = sums[x];
    int const own = sums[x + 1];
    int const after = sums[x + 2];
    fine[block * x] = 3 * before + 5 * own;
    fine[block * x + 1] = before + 7 * own;
    fine[block * x + 2] = 7 * own + after;
    fine[block * x + 3] = 5 * own + 3 * after;
  }
}

/// The mask of a row whose surroundings, times `scale`, are in `around`.
VORN_TARGET_CLONES void markRow(std::uint8_t const* pixels, int const* around, int excess, std::size_t width,
                                std::uint8_t* mask) {
  VORN_INDEPENDENT_ITERATIONS
  for (std::size_t x = 0; x < width; ++x) {
    // To whole grey levels: an even ground is no brighter than itself by less.
    int const level = (around[x] + scale / 2) / scale;
    mask[x] = static_cast<std::uint8_t>(pixels[x] - level <= excess ? 255 : 0);
  }
}

/// Sums of blocks of pixels; those that reach beyond the image repeat its last ones.
///
/// @return ceil(H / 4) x ceil(W / 4) CV_16UC1
cv::Mat blockSums(cv::Mat const& image) {
  cv::Mat sums((image.rows + block - 1) / block, (image.cols + block - 1) / block, CV_16U);
  std::vector<std::uint16_t> columns(static_cast<std::size_t>(sums.cols) * block);
  auto const width = static_cast<std::size_t>(image.cols);
  for (int row = 0; row < sums.rows; ++row) {
    std::fill(columns.begin(), columns.end(), std::uint16_t{0});
    for (int i = 0; i < block; ++i) {
      addRow(image.ptr<std::uint8_t>(std::min(row * block + i, image.rows - 1)), width, columns.data());
    }
    std::fill(columns.begin() + static_cast<std::ptrdiff_t>(width), columns.end(), columns[width - 1]);
    auto* sum = sums.ptr<std::uint16_t>(row);
    for (int x = 0; x < sums.cols; ++x) {
      std::uint16_t const* four = columns.data() + static_cast<std::ptrdiff_t>(x) * block;
      sum[x] = static_cast<std::uint16_t>(four[0] + four[1] + four[2] + four[3]);
    }
  }
  return sums;
}

} // namespace

cv::Mat groundOf(cv::Mat const& image, double sigma, int excess, Progress const& progress) {
  constexpr char const* stage = "detecting targets";
  // Blocks and drawing out blur too: a square by (4² - 1) / 12 pixels², a line between blocks by 4² / 6.
  double const variance = sigma * sigma - (blockArea - 1) / 12.0 - blockArea / 6.0;
  double const rest = std::sqrt(std::max(variance, 0.0)) / block;
  int const radius = static_cast<int>(std::ceil(3.0 * rest));
  cv::Mat around = blockSums(image);
  progress.at(stage, 0.0);
  cv::GaussianBlur(around, around, {2 * radius + 1, 2 * radius + 1}, rest, rest, cv::BORDER_REPLICATE);
  progress.at(stage, 0.3);
  constexpr int rowsBetweenAskings = 256;
  cv::Mat ground(image.size(), CV_8U);
  std::vector<int> line(static_cast<std::size_t>(around.cols) + 2); // one block more at either end
  std::vector<int> fine(static_cast<std::size_t>(around.cols) * block);
  for (int y = 0; y < image.rows; ++y) {
    if (y % rowsBetweenAskings == 0) {
      progress.at(stage, 0.3 + 0.7 * y / image.rows);
    }
    Between const rows = blocksOf(y, around.rows);
    auto const* upper = around.ptr<std::uint16_t>(rows.first);
    auto const* lower = around.ptr<std::uint16_t>(rows.second);
    for (int x = 0; x < around.cols; ++x) {
      line[static_cast<std::size_t>(x) + 1] = (eighths - rows.share) * upper[x] + rows.share * lower[x];
    }
    line.front() = line[1];
    line.back() = line[line.size() - 2];
    drawOut(line.data(), static_cast<std::size_t>(around.cols), fine.data());
    markRow(image.ptr<std::uint8_t>(y), fine.data(), excess, static_cast<std::size_t>(image.cols),
            ground.ptr<std::uint8_t>(y));
  }
  return ground;
}

} // namespace vorn::mv
