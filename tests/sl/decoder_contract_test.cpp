// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What holds for every function that takes a stack of images and a mask, whatever it makes of them.
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <vorn/mv/core/library.hpp>
#include <vorn/mv/sl/code_decoding.hpp>
#include <vorn/mv/sl/global_direct_light.hpp>
#include <vorn/mv/sl/phase_decoding.hpp>

namespace vorn::mv {
namespace {

using Stack = std::vector<cv::Mat>;

struct Decoder {
  char const* name;
  int type;
  double maskedValue;
  std::function<void(Stack const&, cv::Mat& out, cv::Mat const& mask)> run;
};

void PrintTo(Decoder const& decoder, std::ostream* os) {
  *os << decoder.name;
}

using Phase = void (*)(Stack const&, cv::Mat_<float>&, cv::Mat const&);

Decoder phaseDecoder(char const* name, Phase decode) {
  return {name, CV_32FC1, -1, [decode](Stack const& images, cv::Mat& out, cv::Mat const& mask) {
            cv::Mat_<float> map = out;
            decode(images, map, mask);
            out = map;
          }};
}

Decoder const decoders[] = {
    phaseDecoder("decode_phase_shift", decode_phase_shift),
    phaseDecoder("calc_magnitude", calc_magnitude),
    {"decode_binary_xor0_pattern", CV_16SC1, 0,
     [](Stack const& images, cv::Mat& out, cv::Mat const& mask) {
       decode_binary_xor0_pattern(images, out, 9, 30, 0, mask);
     }},
    {"decode_gray_patterns", CV_16UC1, 0,
     [](Stack const& images, cv::Mat& out, cv::Mat const& mask) {
       decode_gray_patterns(images, out, 12, 30, 100, mask);
     }},
};

class DecoderContract : public testing::TestWithParam<Decoder> {
protected:
  static void SetUpTestSuite() { init_library(); }

  static Stack randomStack(cv::Size size) {
    Stack images(4);
    for (cv::Mat& image : images) {
      image.create(size, CV_8UC1);
      cv::randu(image, 0, 256);
    }
    return images;
  }

  static cv::Mat decode(Stack const& images, cv::Mat const& mask = cv::Mat()) {
    cv::Mat out;
    GetParam().run(images, out, mask);
    return out;
  }

  static void expectSame(cv::Mat const& a, cv::Mat const& b) {
    ASSERT_EQ(a.type(), GetParam().type);
    ASSERT_EQ(a.size(), b.size());
    EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0);
  }

  /// Decoding must fail with a message that holds `part`, and leave the output alone.
  static void expectRefused(Stack const& images, cv::Mat const& mask, std::string const& part) {
    cv::Mat out(2, 3, GetParam().type, cv::Scalar(42));
    uchar const* const data = out.data;
    try {
      GetParam().run(images, out, mask);
      ADD_FAILURE() << "not refused: " << part;
    } catch (std::invalid_argument const& e) {
      EXPECT_NE(std::string(e.what()).find(part), std::string::npos) << e.what();
    }
    EXPECT_EQ(out.data, data);
    EXPECT_EQ(cv::countNonZero(out == 42), 6);
  }
};

TEST_P(DecoderContract, RegionsOfLargerMatricesDecodeLikeCopies) {
  for (cv::Size const size : {cv::Size(1, 1), cv::Size(7, 3), cv::Size(1031, 5), cv::Size(1, 40)}) {
    cv::Rect const region({3, 2}, size);
    Stack const whole = randomStack({size.width + 9, size.height + 4});
    cv::Mat wholeMask(whole[0].size(), CV_8UC1);
    cv::randu(wholeMask, 0, 3);
    Stack regions;
    Stack copies;
    for (cv::Mat const& image : whole) {
      regions.push_back(image(region));
      copies.push_back(image(region).clone());
    }
    cv::Mat const expected = decode(copies, wholeMask(region).clone());
    expectSame(decode(regions, wholeMask(region)), expected);

    cv::Mat const frame(whole[0].size(), GetParam().type, cv::Scalar(42));
    cv::Mat out = frame(region);
    GetParam().run(regions, out, wholeMask(region));
    expectSame(frame(region), expected);
    cv::Mat outside = cv::Mat::ones(frame.size(), CV_8UC1);
    outside(region) = 0;
    EXPECT_EQ(cv::countNonZero((frame == 42) & outside), cv::countNonZero(outside));
  }
}

TEST_P(DecoderContract, MaskedPixelsAreMarkedAndOthersUntouchedByTheMask) {
  Stack const images = randomStack({700, 9});
  cv::Mat mask(images[0].size(), CV_8UC1);
  cv::randu(mask, 0, 2);
  cv::Mat const masked = decode(images, mask);
  cv::Mat expected = decode(images);
  expected.setTo(cv::Scalar(GetParam().maskedValue), mask == 0);
  expectSame(masked, expected);
}

TEST_P(DecoderContract, AnyNumberOfThreadsGivesTheSameBits) {
  Stack const images = randomStack({533, 211});
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  cv::Mat const expected = decode(images);
  cv::setNumThreads(4);
  expectSame(decode(images), expected);
  cv::setNumThreads(threads);
}

TEST_P(DecoderContract, RefusesStacksThatDoNotFitAndSaysWhy) {
  Stack const good = randomStack({40, 30});
  Stack bad = good;
  bad[2] = cv::Mat(30, 41, CV_8UC1, cv::Scalar(0));
  expectRefused(bad, cv::Mat(), "Image 2 of the stack is 41 x 30 pixels, not 40 x 30");
  bad[2] = cv::Mat(30, 40, CV_16UC1, cv::Scalar(0));
  expectRefused(bad, cv::Mat(), "Image 2 of the stack is CV_16UC1, not CV_8UC1");
  bad[2] = cv::Mat();
  expectRefused(bad, cv::Mat(), "Image 2 of the stack is empty");
  bad = good;
  bad[0] = cv::Mat(std::vector<int>{2, 3, 4}, CV_8UC1, cv::Scalar(0));
  expectRefused(bad, cv::Mat(), "Image 0 of the stack has 3 dimensions");
  expectRefused(good, cv::Mat(30, 39, CV_8UC1, cv::Scalar(1)), "The mask is 39 x 30 pixels");
  expectRefused(good, cv::Mat(30, 40, CV_32FC1, cv::Scalar(1)), "The mask is CV_32FC1");
}

INSTANTIATE_TEST_SUITE_P(All, DecoderContract, testing::ValuesIn(decoders),
                         [](auto const& instance) { return std::string(instance.param.name); });

TEST(DecoderLimits, TooFewPhaseImagesAndEmptyStacks) {
  cv::Mat_<float> map(2, 2, 5.0F);
  for (Phase const decode : {Phase{decode_phase_shift}, Phase{calc_magnitude}}) {
    try {
      decode(Stack(2), map, cv::Mat());
      ADD_FAILURE() << "two images decoded";
    } catch (std::exception const& e) {
      EXPECT_STREQ(e.what(), "Need at least 3 phase images to decode");
    }
  }
  cv::Mat out(2, 2, CV_8UC1, cv::Scalar(5));
  decode_binary_xor0_pattern(Stack(), out, 9, 9, 0);
  decode_gray_patterns(Stack(), out, 9, 9, 0);
  estimate_global_direct_light(out, out, Stack(), out, out);
  EXPECT_EQ(out.type(), CV_8UC1);
  EXPECT_EQ(cv::countNonZero(out == 5), 4);
}

TEST(DecoderLimits, TheOutputMayBeOneOfTheInputs) {
  Stack images(2);
  images[0] = (cv::Mat_<uchar>(1, 2) << 200, 10);
  images[1] = (cv::Mat_<uchar>(1, 2) << 10, 200);
  decode_binary_xor0_pattern(images, images[0], 9, 9, 0);
  EXPECT_EQ(images[0].at<short>(0, 0), 1); // bits 0 and 1 set, less the offset 2
  EXPECT_EQ(images[0].at<short>(0, 1), 0);
}

TEST(DecoderLimits, TheOutputMayBeTheMask) {
  Stack images(2);
  images[0] = (cv::Mat_<uchar>(1, 3) << 200, 10, 200);
  images[1] = (cv::Mat_<uchar>(1, 3) << 10, 200, 10);
  cv::Mat mask = (cv::Mat_<uchar>(1, 3) << 255, 0, 255);
  decode_binary_xor0_pattern(images, mask, 9, 9, 0, mask);
  cv::Mat_<short> const expected = (cv::Mat_<short>(1, 3) << 1, 0, 1);
  EXPECT_EQ(cv::norm(mask, expected, cv::NORM_INF), 0);
}

TEST(GlobalDirectLight, SeparatesASyntheticScene) {
  Stack images;
  for (int const bright : {1, 0, 1}) {
    cv::Mat image(8, 64, CV_8UC1);
    for (int i = 0; i < image.rows * image.cols; ++i) {
      bool const isLit = (i % 2 == 0) == (bright == 1);
      image.data[i] = static_cast<uchar>(10 + i / 64 + (isLit ? 40 + i % 64 : 0));
    }
    images.push_back(image);
  }
  cv::Mat direct;
  cv::Mat global;
  cv::Mat highest;
  cv::Mat lowest;
  estimate_global_direct_light(direct, global, images, highest, lowest);
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 64; ++x) {
      EXPECT_EQ(direct.at<float>(y, x), 40 + x);
      EXPECT_EQ(global.at<float>(y, x), 20 + 2 * y);
      EXPECT_EQ(highest.at<float>(y, x), 50 + x + y);
      EXPECT_EQ(lowest.at<float>(y, x), 10 + y);
    }
  }
  images[1] = images[1].rowRange(0, 7);
  EXPECT_THROW(estimate_global_direct_light(direct, global, images, highest, lowest), std::invalid_argument);
}

} // namespace
} // namespace vorn::mv
