// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/imaging/edge_filters.hpp>
#include <vorn/mv/imaging/image_depth.hpp>
#include <vorn/mv/imaging/image_filters.hpp>
#include <vorn/mv/imaging/morph_shape.hpp>
#include <vorn/mv/imaging/morphology_filters.hpp>
#include <vorn/mv/imaging/smoothing_filters.hpp>
#include <vorn/mv/imaging/threshold_filters.hpp>

namespace {

using namespace vorn::mv;

cv::Mat noise(int rows, int columns) {
  cv::Mat image(rows, columns, CV_8U);
  cv::randu(image, 0, 256);
  return image;
}

/// All grey levels in one row.
cv::Mat greyLevels() {
  cv::Mat levels(1, 256, CV_8U);
  for (int i = 0; i < 256; ++i) {
    levels.at<uchar>(i) = static_cast<uchar>(i);
  }
  return levels;
}

bool same(cv::Mat const& a, cv::Mat const& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0;
}

/// "Radius int 1 [0, 32]; Shape enum Rect": the properties of a filter in words.
std::string propertiesOf(IImageFilter const& filter) {
  static char const* const types[] = {"int", "int64", "double", "bool", "enum", "string"};
  std::string text;
  for (std::string const& name : filter.getPropertyNames()) {
    vorn::Property const& property = filter[name];
    text += text.empty() ? "" : "; ";
    text += name + " " + types[static_cast<int>(property.getDefault().type())];
    text += " " + property.getValue().toString();
    if (property.hasRange()) {
      text += " [" + property.getMin().toString() + ", " + property.getMax().toString() + "]";
    }
  }
  return text;
}

TEST(ImageFilters, PropertiesTypesDefaultsAndRanges) {
  std::vector<std::pair<std::string, std::string>> const table = {
      {"BilateralFilter", "Diameter int 1 [1, 32]; SigmaColor double 1 [1, 10]; SigmaSpace double 1 [1, 10]"},
      {"BlurFilter", "Radius int 1 [0, 32]"},
      {"BoxFilter", "Radius int 1 [0, 32]"},
      {"GaussianFilter", "Radius int 1 [0, 32]; SigmaX double 1 [0, 32]; SigmaY double 1 [0, 32]"},
      {"MedianFilter", "Radius int 1 [0, 32]"},
      {"CannyFilter", "Threshold1 int 50 [0, 255]; Threshold2 int 100 [0, 255]"},
      {"LaplacianFilter", "Radius int 1 [0, 32]; Depth enum UInt8"},
      {"SobelFilter", "Radius int 1 [0, 32]; Depth enum UInt8; Dx int 1 [-5, 5]; Dy int 1 [-5, 5]"},
      {"DilateFilter", "Radius int 1 [0, 32]; Shape enum Rect"},
      {"ErodeFilter", "Radius int 1 [0, 32]; Shape enum Rect"},
      {"BinaryThresholdFilter", "MaxValue int 255 [1, 255]; Threshold int 127 [1, 255]; Inverted bool false"},
      {"GaussianAdaptiveThresholdFilter",
       "MaxValue int 255 [1, 255]; Inverted bool false; Radius int 1 [1, 50]; C int 2 [0, 50]"},
      {"LocalAverageAdaptiveThresholdFilter",
       "MaxValue int 255 [1, 255]; Inverted bool false; Radius int 5 [5, 50]; Threshold int 90 [0, 100]"},
      {"MeanAdaptiveThresholdFilter",
       "MaxValue int 255 [1, 255]; Inverted bool false; Radius int 1 [1, 50]; C int 2 [0, 50]"},
      {"OtsuThresholdFilter", "MaxValue int 255 [1, 255]"},
      {"ToZeroThresholdFilter", "Threshold int 127 [1, 255]; Inverted bool false"},
      {"TriangleThresholdFilter", "MaxValue int 255 [1, 255]"},
      {"TruncateThresholdFilter", "Threshold int 127 [1, 255]"}};
  ASSERT_EQ(imageFilters().names().size(), table.size());
  for (std::size_t i = 0; i < table.size(); ++i) {
    std::string const fullName = "vorn::mv::" + table[i].first;
    EXPECT_EQ(imageFilters().names()[i], fullName);
    EXPECT_EQ(createImageFilter(fullName)->getClassName(), fullName);
    EXPECT_EQ(propertiesOf(*createImageFilter(table[i].first)), table[i].second) << fullName;
  }
  EXPECT_EQ(createImageFilter("Gaussian")->getClassName(), "vorn::mv::GaussianFilter");
  EXPECT_THROW(createImageFilter("Gauss"), vorn::Exception);
}

/// What every image filter has in common.
class EveryImageFilter : public testing::TestWithParam<std::string> {
protected:
  std::unique_ptr<IImageFilter> filter = createImageFilter(GetParam());
};

TEST_P(EveryImageFilter, MakesANewImageOfTheSameSize) {
  cv::Mat const image = noise(48, 61);
  cv::Mat const before = image.clone();
  for (bool const neutral : {false, true}) {
    if (neutral && filter->hasProperty("Radius") && GetParam() != "vorn::mv::LaplacianFilter") {
      filter->getProperty("Radius") = filter->getProperty("Radius").getMin();
    }
    cv::Mat const result = filter->apply(image);
    EXPECT_EQ(result.size(), image.size());
    EXPECT_EQ(result.type(), CV_8UC1);
    EXPECT_NE(result.data, image.data);
    EXPECT_TRUE(same(image, before));
  }
}

TEST_P(EveryImageFilter, RegionOfAnImageGivesWhatItsCopyGives) {
  constexpr int reach = 6;       // of the default settings
  constexpr double rounding = 1; // OpenCV's Gaussian rounds differently in a region
  cv::Mat const image = noise(90, 100);
  cv::Mat const region = image(cv::Rect(13, 21, 64, 50));
  cv::Rect const inner(reach, reach, region.cols - 2 * reach, region.rows - 2 * reach);
  cv::Mat const expected = filter->apply(region.clone());
  EXPECT_LE(cv::norm(filter->apply(region)(inner), expected(inner), cv::NORM_INF), rounding);
}

TEST_P(EveryImageFilter, EmptyImageIsRefusedOrStaysEmpty) {
  try {
    EXPECT_TRUE(filter->apply(cv::Mat()).empty());
  } catch (std::exception const& e) {
    EXPECT_STRNE(e.what(), "");
  }
}

TEST_P(EveryImageFilter, JsonHoldsItsSettings) {
  for (std::string const& name : filter->getPropertyNames()) {
    vorn::Property& property = filter->getProperty(name);
    bool const isGreatest = property.hasRange() && property.getValue() == property.getMax();
    property = isGreatest ? property.getMin() : property.hasRange() ? property.getMax() : vorn::Variant(1);
  }
  nlohmann::json json;
  filter->write(json);
  auto const copy = createImageFilter(GetParam());
  EXPECT_NE(propertiesOf(*copy), propertiesOf(*filter));
  copy->read(json);
  EXPECT_EQ(propertiesOf(*copy), propertiesOf(*filter));
}

std::string shortName(testing::TestParamInfo<std::string> const& info) {
  return info.param.substr(info.param.rfind(':') + 1);
}
INSTANTIATE_TEST_SUITE_P(Imaging, EveryImageFilter, testing::ValuesIn(imageFilters().names()), shortName);

TEST(ImageFilters, CanBeDerivedFromWithARecordAndAreValues) {
  class Sharper : public GaussianFilter {
  public:
    Sharper() : GaussianFilter(new vorn::PropertySetBase::Private) {
      declareProperties({new vorn::Property("Amount", 0.5)});
    }
  };
  EXPECT_EQ(Sharper().getPropertyNames(), std::vector<std::string>{"Amount"});

  GaussianFilter original;
  GaussianFilter copy = original;
  copy["Radius"] = 7;
  EXPECT_EQ(int(original["Radius"]), 1);
  original = std::move(copy);
  EXPECT_EQ(int(original["Radius"]), 7);
}

/// f(the pixels of the neighbourhood of `mask`) at every pixel, with mirrored borders.
using Statistic = std::function<double(std::vector<uchar>&)>;
cv::Mat bruteForce(cv::Mat const& image, cv::Mat const& mask, int border, Statistic const& statistic) {
  int const radius = mask.rows / 2;
  cv::Mat padded;
  cv::copyMakeBorder(image, padded, radius, radius, radius, radius, border);
  cv::Mat result(image.size(), CV_8U);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      std::vector<uchar> pixels;
      for (int dy = 0; dy < mask.rows; ++dy) {
        for (int dx = 0; dx < mask.cols; ++dx) {
          if (mask.at<uchar>(dy, dx) != 0) {
            pixels.push_back(padded.at<uchar>(y + dy, x + dx));
          }
        }
      }
      result.at<uchar>(y, x) = cv::saturate_cast<uchar>(statistic(pixels));
    }
  }
  return result;
}

double mean(std::vector<uchar>& pixels) {
  double sum = 0;
  for (uchar pixel : pixels) {
    sum += pixel;
  }
  return sum / static_cast<double>(pixels.size());
}

double median(std::vector<uchar>& pixels) {
  auto const middle = pixels.begin() + static_cast<std::ptrdiff_t>(pixels.size() / 2);
  std::nth_element(pixels.begin(), middle, pixels.end());
  return *middle;
}

TEST(SmoothingFilters, StatisticOfTheNeighbourhood) {
  cv::Mat const image = noise(20, 25);
  cv::Mat const square(7, 7, CV_8U, cv::Scalar(1));
  for (char const* name : {"Blur", "Box"}) {
    auto const filter = createImageFilter(name);
    filter->getProperty("Radius") = 3;
    EXPECT_TRUE(same(filter->apply(image), bruteForce(image, square, cv::BORDER_REFLECT_101, mean))) << name;
    EXPECT_EQ(filter->apply(cv::Mat(image.size(), CV_16SC3, cv::Scalar::all(-300))).type(), CV_16SC3);
  }
  MedianFilter filter;
  filter["Radius"] = 3;
  EXPECT_TRUE(same(filter.apply(image), bruteForce(image, square, cv::BORDER_REPLICATE, median)));
}

TEST(SmoothingFilters, RadiusZeroCopies) {
  cv::Mat const image = noise(20, 25);
  for (char const* name : {"Blur", "Box", "Gaussian", "Median", "Dilate", "Erode"}) {
    auto const filter = createImageFilter(name);
    filter->getProperty("Radius") = 0;
    EXPECT_TRUE(same(filter->apply(image), image)) << name;
  }
}

TEST(SmoothingFilters, GaussianHasItsSigmaInEachDirection) {
  constexpr double tolerance = 1e-6; // of float weights
  cv::Mat spot = cv::Mat::zeros(15, 15, CV_32F);
  spot.at<float>(7, 7) = 1.0F;
  GaussianFilter filter;
  filter["Radius"] = 4;
  filter["SigmaX"] = 1.5;
  filter["SigmaY"] = 0.8;
  cv::Mat_<float> const result = filter.apply(spot);
  EXPECT_NEAR(result(7, 9) / result(7, 7), std::exp(-2 * 2 / (2 * 1.5 * 1.5)), tolerance);
  EXPECT_NEAR(result(9, 7) / result(7, 7), std::exp(-2 * 2 / (2 * 0.8 * 0.8)), tolerance);
  EXPECT_GT(result(7, 11), 0.0F);
  EXPECT_EQ(result(7, 12), 0.0F);
  EXPECT_NEAR(cv::sum(result)[0], 1.0, tolerance);
}

TEST(SmoothingFilters, BilateralWeighsDistanceAndValue) {
  constexpr double tolerance = 1e-3; // OpenCV interpolates the weights of values in a table
  cv::Mat spot = cv::Mat::zeros(15, 15, CV_32F);
  spot.at<float>(7, 7) = 4.0F;
  BilateralFilter filter;
  filter["Diameter"] = 5;
  filter["SigmaColor"] = 3.0;
  filter["SigmaSpace"] = 1.5;
  double rest = 0; // weights of the round neighbourhood without its middle
  for (int dy = -2; dy <= 2; ++dy) {
    for (int dx = -2; dx <= 2; ++dx) {
      int const square = dx * dx + dy * dy;
      rest += square > 0 && square <= 4 ? std::exp(-square / (2 * 1.5 * 1.5)) : 0;
    }
  }
  rest *= std::exp(-4.0 * 4.0 / (2 * 3.0 * 3.0));
  EXPECT_NEAR(filter.apply(spot).at<float>(7, 7), 4.0 / (1 + rest), tolerance);
}

TEST(EdgeFilters, CannyStartsEdgesAtTheGreaterThreshold) {
  for (auto const& [step, edges] :
       {std::pair(24, 0), std::pair(26, 20)}) { // the gradient is 4 steps: 96, 104
    cv::Mat image(20, 20, CV_8U, cv::Scalar(100));
    image.colRange(10, 20) += step;
    EXPECT_EQ(cv::countNonZero(CannyFilter().apply(image)), edges) << step;
  }
}

/// The sum of kernel x neighbourhood with mirrored borders, in 16 bits.
cv::Mat correlated(cv::Mat const& image, cv::Matx<int, 3, 3> const& kernel) {
  cv::Mat padded;
  cv::copyMakeBorder(image, padded, 1, 1, 1, 1, cv::BORDER_REFLECT_101);
  cv::Mat result(image.size(), CV_16S);
  for (int y = 0; y < image.rows; ++y) {
    for (int x = 0; x < image.cols; ++x) {
      int sum = 0;
      for (int i = 0; i < 9; ++i) {
        sum += kernel(i / 3, i % 3) * padded.at<uchar>(y + i / 3, x + i % 3);
      }
      result.at<short>(y, x) = cv::saturate_cast<short>(sum);
    }
  }
  return result;
}

TEST(EdgeFilters, LaplacianTakesRadiusAsAperture) {
  cv::Mat const image = noise(20, 25);
  LaplacianFilter filter;
  filter["Depth"] = ImageDepth::Int16;
  EXPECT_TRUE(same(filter.apply(image), correlated(image, {0, 1, 0, 1, -4, 1, 0, 1, 0})));
  filter["Radius"] = 3;
  EXPECT_TRUE(same(filter.apply(image), correlated(image, {2, 0, 2, 0, -8, 0, 2, 0, 2})));
  filter["Radius"] = 2;
  EXPECT_THROW(filter.apply(image), cv::Exception);
}

TEST(EdgeFilters, SobelDerivesInXAndY) {
  cv::Mat const image = noise(20, 25);
  cv::Mat clipped;
  correlated(image, {1, 0, -1, 0, 0, 0, -1, 0, 1}).convertTo(clipped, CV_8U);
  SobelFilter filter;
  EXPECT_TRUE(same(filter.apply(image), clipped));
  filter["Depth"] = ImageDepth::Int16;
  filter["Dy"] = 0;
  EXPECT_TRUE(same(filter.apply(image), correlated(image, {-1, 0, 1, -2, 0, 2, -1, 0, 1})));
  filter["Dx"] = 0;
  EXPECT_THROW(filter.apply(image), cv::Exception);
}

TEST(EdgeFilters, DepthIsThatOfTheOutput) {
  int const depths[] = {CV_8U, CV_16S, CV_32S, CV_32F, CV_64F};
  for (int item = 0; item < 5; ++item) {
    EXPECT_EQ(ImageDepth(static_cast<ImageDepth::Item>(item)).cvDepth(), depths[item]);
  }
  EXPECT_EQ(vorn::parseFilter("Sobel:Depth=Float", imageFilters())->apply(noise(9, 9)).type(), CV_32F);
}

TEST(MorphologyFilters, ExtremesOfTheShape) {
  cv::Mat const image = noise(20, 25);
  for (auto const& [item, shape] :
       {std::pair(MorphShape::Rect, cv::MORPH_RECT), std::pair(MorphShape::Cross, cv::MORPH_CROSS),
        std::pair(MorphShape::Ellipse, cv::MORPH_ELLIPSE)}) {
    cv::Mat const mask = cv::getStructuringElement(shape, cv::Size(7, 7));
    for (bool const isGreatest : {false, true}) {
      auto const filter = createImageFilter(isGreatest ? "Dilate" : "Erode");
      filter->getProperty("Radius") = 3;
      filter->getProperty("Shape") = MorphShape(item);
      auto const extreme = [&](std::vector<uchar>& pixels) {
        return double(isGreatest ? *std::max_element(pixels.begin(), pixels.end())
                                 : *std::min_element(pixels.begin(), pixels.end()));
      };
      EXPECT_TRUE(same(filter->apply(image), bruteForce(image, mask, cv::BORDER_REPLICATE, extreme)));
    }
  }
}

TEST(ThresholdFilters, GlobalThresholdsOfEveryGreyLevel) {
  auto const result = [](char const* text, int level) {
    return int(vorn::parseFilter(text, imageFilters())->apply(greyLevels()).at<uchar>(level));
  };
  for (int level = 0; level < 256; ++level) {
    bool const above = level > 100;
    EXPECT_EQ(result("BinaryThreshold:Threshold=100,MaxValue=50", level), above ? 50 : 0);
    EXPECT_EQ(result("BinaryThreshold:Threshold=100,MaxValue=50,Inverted=true", level), above ? 0 : 50);
    EXPECT_EQ(result("ToZeroThreshold:Threshold=100", level), above ? level : 0);
    EXPECT_EQ(result("ToZeroThreshold:Threshold=100,Inverted=true", level), above ? 0 : level);
    EXPECT_EQ(result("TruncateThreshold:Threshold=100", level), std::min(level, 100));
  }
}

/// The split whose two classes differ most, by the definition of between-class variance.
int otsuThreshold(cv::Mat const& image) {
  double best = -1;
  int threshold = 0;
  for (int t = 0; t < 255; ++t) {
    cv::Mat const upper = image > t;
    double const share = cv::countNonZero(upper) / static_cast<double>(image.total());
    double const difference = cv::mean(image, upper)[0] - cv::mean(image, ~upper)[0];
    double const variance = share * (1 - share) * difference * difference;
    if (variance > best) {
      best = variance;
      threshold = t;
    }
  }
  return threshold;
}

TEST(ThresholdFilters, OtsuAndTriangleSplitTheHistogram) {
  // A histogram that falls linearly from a peak of 101 at level 20 to 1 at 120, and one step too steep at 40.
  std::vector<uchar> pixels;
  for (int level = 20; level <= 120; ++level) {
    int const count = 121 - level - (level == 40 ? 30 : 0);
    pixels.insert(pixels.end(), static_cast<std::size_t>(count), static_cast<uchar>(level));
  }
  cv::Mat const image(1, static_cast<int>(pixels.size()), CV_8U, pixels.data());
  EXPECT_TRUE(same(OtsuThresholdFilter().apply(image), image > otsuThreshold(image)));
  // The threshold lies one level from the dent, on the side away from the peak.
  EXPECT_TRUE(same(TriangleThresholdFilter().apply(image), image > 41));
  EXPECT_THROW(TriangleThresholdFilter().apply(cv::Mat(9, 9, CV_32F, cv::Scalar(1))), cv::Exception);
  EXPECT_THROW(OtsuThresholdFilter().apply(cv::Mat(9, 9, CV_32F, cv::Scalar(1))), cv::Exception);
}

TEST(ThresholdFilters, AdaptiveThresholdsCompareWithTheirMean) {
  cv::Mat const image = noise(30, 40);
  for (bool const isGaussian : {false, true}) {
    cv::Mat mean;
    image.convertTo(mean, CV_32F);
    if (isGaussian) {
      cv::GaussianBlur(mean, mean, cv::Size(7, 7), 0, 0, cv::BORDER_REPLICATE);
    } else {
      cv::blur(mean, mean, cv::Size(7, 7), cv::Point(-1, -1), cv::BORDER_REPLICATE);
    }
    mean.convertTo(mean, CV_8U);
    cv::Mat above;
    cv::compare(image, mean - 10, above, cv::CMP_GT);
    above.setTo(255, mean < 10);
    auto const filter = createImageFilter(isGaussian ? "GaussianAdaptiveThreshold" : "MeanAdaptiveThreshold");
    filter->getProperty("Radius") = 3;
    filter->getProperty("C") = 10;
    EXPECT_TRUE(same(filter->apply(image), above)) << isGaussian;
    filter->getProperty("Inverted") = true;
    filter->getProperty("MaxValue") = 40;
    EXPECT_TRUE(same(filter->apply(image), ~above & 40)) << isGaussian;
  }
}

TEST(ImageFilters, ChainAppliesInOrder) {
  auto const chain = vorn::readFilterChain(nlohmann::json::parse(R"([
      {"class": "Gaussian", "properties": {"Radius": 2}},
      {"class": "BinaryThreshold", "properties": {"Threshold": 120}}])"),
                                           imageFilters());
  cv::Mat const image = noise(30, 40);
  cv::Mat smooth;
  cv::GaussianBlur(image, smooth, cv::Size(5, 5), 1.0, 1.0);
  EXPECT_TRUE(same(applyFilters(chain, image), smooth > 120));
  cv::Mat const copy = applyFilters({}, image);
  EXPECT_TRUE(same(copy, image));
  EXPECT_NE(copy.data, image.data);
}

} // namespace
