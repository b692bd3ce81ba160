// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/coding/stripe_code.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/mv/sl/code_decoding.hpp>
#include <vorn/mv/sl/patterns.hpp>

namespace vorn::mv::sl {
namespace {

class StripeCodes : public testing::TestWithParam<StripeCode> {};

/// How many planes the sequences for a length are documented to have.
int documentedPlanes(int length, double stripesPerPixel) {
  auto const words = static_cast<float>(static_cast<int>(length * stripesPerPixel + 2.0));
  return std::min(static_cast<int>(std::ceil(std::log2(words))) - 1, 8);
}

TEST_P(StripeCodes, MakeTheDocumentedPlanes) {
  StripeCode const code = GetParam();
  for (int length = 0; length <= 5000; ++length) {
    ASSERT_EQ(code.generatedPlanes(length), documentedPlanes(length, 1.0 / code.period)) << length;
  }
}

TEST_P(StripeCodes, TellStripesApartUpToTheCapacityAndNoFurther) {
  StripeCode const code = GetParam();
  for (int planes = 1; planes <= 10; ++planes) {
    unsigned const shown = (2U << planes) - 1U;
    std::set<unsigned> seen;
    int stripe = 0;
    while (seen.insert(StripeCode::shownWord(stripe) & shown).second) {
      ++stripe;
    }
    EXPECT_EQ(code.stripes(code.capacity(planes)), stripe) << planes;
    EXPECT_EQ(code.stripes(code.capacity(planes) + 1), stripe + 1) << planes;
  }
}

TEST_P(StripeCodes, CodeEveryProjectorUpToTheLargest) {
  StripeCode const code = GetParam();
  for (int planes = 1; planes <= 10; ++planes) {
    int largest = 0;
    for (int resolution = 1; resolution <= code.capacity(planes) + 20; ++resolution) {
      largest = code.isCodedBy(planes, resolution) ? resolution : largest;
      ASSERT_EQ(code.isCodedBy(planes, resolution), largest == resolution) << resolution;
    }
    EXPECT_EQ(code.largestResolution(planes), largest) << planes;
  }
  EXPECT_FALSE(code.isCodedBy(StripeCode::maxPlanes + 1, 100));
}

TEST_P(StripeCodes, RecogniseTheProjectorsThatAStackIsMadeFor) {
  StripeCode const code = GetParam();
  int const most = code.capacity(StripeCode::maxGeneratedPlanes);
  for (int resolution = code.period; resolution <= most; ++resolution) {
    int const planes = code.generatedPlanes(resolution);
    ASSERT_TRUE(code.isMadeFor(planes, resolution)) << resolution;
    ASSERT_FALSE(code.isMadeFor(planes - 1, resolution)) << resolution;
    ASSERT_FALSE(code.isMadeFor(planes + 2, resolution)) << resolution;
  }
  // Words of a ninth plane: beyond what the generator makes, but a longer sequence may have it.
  EXPECT_TRUE(code.isMadeFor(9, most));
  EXPECT_FALSE(code.isMadeFor(8, most + 1));
  EXPECT_TRUE(code.isMadeFor(9, most + 1));
  EXPECT_FALSE(code.isMadeFor(9, most / 2));
}

/// The images that code one axis of a projector, a single line of pixels.
std::vector<cv::Mat> codeImages(StripeCode const& code, int length) {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  bool const alongWidth = code.period == columnCode.period;
  generate_ps4_patterns(columns, rows, alongWidth ? cv::Size(length, 1) : cv::Size(1, length));
  std::vector<cv::Mat>& images = alongWidth ? columns : rows;
  images.erase(images.begin(), images.begin() + StripeCode::phaseImages);
  return images;
}

TEST_P(StripeCodes, ReadBackAsGeneratedForEveryProjector) {
  StripeCode const code = GetParam();
  int const most = code.capacity(StripeCode::maxGeneratedPlanes);
  for (int length = code.period; length <= most; ++length) {
    // All short ones, all from three stripes below a capacity on, and some between.
    int const upper = code.capacity(code.generatedPlanes(length));
    if (length > 100 && length < upper - 3 * code.period && length % 61 != 0) {
      continue;
    }
    std::vector<cv::Mat> const images = codeImages(code, length);
    int const planes = static_cast<int>(images.size()) - 1;
    cv::Mat read;
    decode_binary_xor0_pattern(images, read, code.stripes(length) - 1, 1, 0, {});
    cv::Mat_<std::int16_t> const stripes = read.reshape(1, 1);
    ASSERT_EQ(stripes.cols, length);
    for (int c = 0; c < length; ++c) {
      // The two last words of a full code do not fit; they read as no stripe.
      int const stripe = c / code.period;
      bool const isReadable = stripe + 2 < 2 << planes;
      ASSERT_TRUE(isReadable ? stripes(0, c) == stripe : stripes(0, c) < 0) << c << " of " << length;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Axes, StripeCodes, testing::Values(columnCode, rowCode), [](auto const& given) {
  return given.param.period == columnCode.period ? std::string("Columns") : std::string("Rows");
});

} // namespace
} // namespace vorn::mv::sl
