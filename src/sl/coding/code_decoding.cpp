// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/code_decoding.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/mv/sl/gray_code.hpp>

#include "core/parallel.hpp"
#include "core/simd.hpp"
#include "sl/coding/lookup_tables.hpp"
#include "sl/coding/stripe_code.hpp"
#include "sl/decode/stack_checks.hpp"

namespace vorn::mv {

namespace {

constexpr int byteBits = 8;
constexpr int wordBits = 16;

/// Pixels decoded together: a block's working bytes and its pixels in every image stay in the first-level
/// cache, where one pass finds the range and the next the bits.
constexpr int blockLength = 512;
using Bytes = std::array<uchar, blockLength>;

/// What the images say of a block of pixels.
struct CodeBlock {
  Bytes lowest;
  Bytes highest;
  Bytes threshold;
  Bytes lowByte;  ///< bits 0 to 7 of the code word
  Bytes highByte; ///< bits 8 to 15
};

VORN_TARGET_CLONES
void widenRange(uchar const* image, int length, uchar* __restrict lowest, uchar* __restrict highest) {
  for (int x = 0; x < length; ++x) {
    lowest[x] = image[x] < lowest[x] ? image[x] : lowest[x];
    highest[x] = image[x] > highest[x] ? image[x] : highest[x];
  }
}

/// The middle of the range, or `fallback` where the range is below `minContrast`.
VORN_TARGET_CLONES
void findThresholds(uchar const* lowest, uchar const* highest, int length, int minContrast, uchar fallback,
                    uchar* __restrict threshold) {
  for (int x = 0; x < length; ++x) {
    auto const middle = static_cast<uchar>((lowest[x] + highest[x]) / 2);
    threshold[x] = highest[x] - lowest[x] < minContrast ? fallback : middle;
  }
}

/// Sets `bit` in `word` where the image is brighter than the threshold.
VORN_TARGET_CLONES
void addBit(uchar const* image, uchar const* threshold, int length, uchar bit, uchar* __restrict word) {
  for (int x = 0; x < length; ++x) {
    word[x] = static_cast<uchar>(word[x] | (image[x] > threshold[x] ? bit : 0));
  }
}

/// Reads the range and the code word of `length` pixels from column `x` on.
void readBlock(std::vector<cv::Mat> const& stack, int row, int x, int length, int minContrast, uchar fallback,
               CodeBlock& block) {
  auto const pixels = [&](std::size_t image) { return stack[image].ptr<uchar>(row) + x; };
  std::copy_n(pixels(0), length, block.lowest.data());
  std::copy_n(pixels(0), length, block.highest.data());
  for (std::size_t k = 1; k < stack.size(); ++k) {
    widenRange(pixels(k), length, block.lowest.data(), block.highest.data());
  }
  findThresholds(block.lowest.data(), block.highest.data(), length, minContrast, fallback,
                 block.threshold.data());
  std::fill_n(block.lowByte.data(), length, uchar{0});
  std::fill_n(block.highByte.data(), length, uchar{0});
  for (std::size_t k = 0; k < std::min<std::size_t>(stack.size(), wordBits); ++k) {
    Bytes& bytes = k < byteBits ? block.lowByte : block.highByte;
    addBit(pixels(k), block.threshold.data(), length, static_cast<uchar>(1U << (k % byteBits)), bytes.data());
  }
}

/// Runs `finish(row, x, length, block)` over the blocks of the whole stack.
template <class Finish>
void forEachBlock(std::vector<cv::Mat> const& stack, int minContrast, uchar fallback, Finish const& finish) {
  int const width = stack[0].cols;
  parallelRows(stack[0].rows, [&](int firstRow, int endRow) {
    CodeBlock block;
    for (int row = firstRow; row < endRow; ++row) {
      for (int x = 0; x < width; x += blockLength) {
        int const length = std::min(blockLength, width - x);
        readBlock(stack, row, x, length, minContrast, fallback, block);
        finish(row, x, length, block);
      }
    }
  });
}

/// How code words become stripe indices.
struct StripeRule {
  int laterBits; ///< the bits of all images but the first
  int maxCode;
  int minContrast;
};

/// Undoes the XOR with the reference (bit 0) and the offset of the code words.
VORN_TARGET_CLONES
void stripeIndices(CodeBlock const& block, StripeRule const& rule, int length,
                   std::int16_t* __restrict code) {
  constexpr std::int16_t undecodable = -1;
  int const laterBits = rule.laterBits;
  int const maxCode = rule.maxCode;
  int const minContrast = rule.minContrast;
  uchar const* const lowest = block.lowest.data();
  uchar const* const highest = block.highest.data();
  uchar const* const lowByte = block.lowByte.data();
  uchar const* const highByte = block.highByte.data();
  for (int x = 0; x < length; ++x) {
    int const word = lowByte[x] | highByte[x] << byteBits;
    int const relative = word ^ ((word & 1) != 0 ? laterBits : 0);
    auto const index = static_cast<std::int16_t>(relative - sl::StripeCode::wordOffset);
    bool const isLost = (highest[x] - lowest[x] < minContrast) | (index > maxCode);
    code[x] = isLost ? undecodable : index;
  }
}

/// The number of a Gray code word; words beyond the table are worked out.
unsigned int readGray(unsigned short const* table, unsigned int word) {
  return word < grayLutSize ? table[word] : gray2Bin(word);
}

template <class Code>
void clearMasked(cv::Mat const& mask, int row, int x, int length, Code* code) {
  if (mask.empty()) {
    return;
  }
  uchar const* const pixels = mask.ptr<uchar>(row) + x;
  for (int i = 0; i < length; ++i) {
    code[i] = pixels[i] != 0 ? code[i] : Code{0};
  }
}

/// The bits that a stack of `count` images has in a code word.
unsigned int wordMask(std::size_t count) {
  return (1U << std::min<std::size_t>(count, wordBits)) - 1U;
}

} // namespace

void decode_binary_xor0_pattern(std::vector<cv::Mat> const& images, cv::Mat& code, int maxCode,
                                int minContrast, int /*ignored*/, cv::Mat const& mask) {
  if (images.empty()) {
    return;
  }
  requireImageStack(images);
  requireMask(mask, images[0].size());
  // Headers of our own: the output may be one of the inputs.
  std::vector<cv::Mat> const stack = images;
  cv::Mat const valid = mask;
  code.create(stack[0].size(), CV_16SC1);

  StripeRule const rule{static_cast<int>(wordMask(stack.size()) & ~1U), maxCode, minContrast};
  constexpr int noFallback = 0;
  forEachBlock(stack, noFallback, 0, [&](int row, int x, int length, CodeBlock const& block) {
    std::int16_t* const out = code.ptr<std::int16_t>(row) + x;
    stripeIndices(block, rule, length, out);
    clearMasked(valid, row, x, length, out);
  });
}

void decode_gray_patterns(std::vector<cv::Mat> const& images, cv::Mat& code, int maxCode, int minContrast,
                          int fallbackThreshold, cv::Mat const& mask) {
  if (images.empty()) {
    return;
  }
  if (images.size() > wordBits) {
    throw std::invalid_argument("A Gray code has at most 16 images, not " + std::to_string(images.size()));
  }
  requireImageStack(images);
  requireMask(mask, images[0].size());
  unsigned short const* const table = requireTable(get_lut_gray2bin());
  std::vector<cv::Mat> const stack = images;
  cv::Mat const valid = mask;
  code.create(stack[0].size(), CV_16UC1);

  unsigned int const allBits = wordMask(stack.size());
  auto const fallback = static_cast<uchar>(std::clamp(fallbackThreshold, 0, 255));
  // Below 0 every intensity is above the threshold, which no byte can say.
  bool const isFlatAllBits = fallbackThreshold < 0;
  forEachBlock(stack, minContrast, fallback, [&](int row, int x, int length, CodeBlock const& block) {
    std::uint16_t* const out = code.ptr<std::uint16_t>(row) + x;
    for (int i = 0; i < length; ++i) {
      auto const p = static_cast<std::size_t>(i);
      unsigned int word = block.lowByte[p] | static_cast<unsigned int>(block.highByte[p]) << byteBits;
      if (isFlatAllBits && block.highest[p] - block.lowest[p] < minContrast) {
        word = allBits;
      }
      unsigned int const number = readGray(table, word);
      out[i] = static_cast<int>(number) > maxCode ? std::uint16_t{0} : static_cast<std::uint16_t>(number);
    }
    clearMasked(valid, row, x, length, out);
  });
}

void decode_gray_patterns(std::initializer_list<cv::Mat> images, cv::Mat& code, int maxCode, int minContrast,
                          int fallbackThreshold, cv::Mat const& mask) {
  decode_gray_patterns(std::vector<cv::Mat>(images), code, maxCode, minContrast, fallbackThreshold, mask);
}

} // namespace vorn::mv
