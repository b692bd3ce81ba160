// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/imaging/image_filters.hpp>

#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/imgproc.hpp>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/imaging/smoothing_filters.hpp>

#include "imaging/filter_images.hpp"

namespace {

using namespace vorn::mv;
using vorn::test::noise;
using vorn::test::same;

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

TEST_P(EveryImageFilter, EmptyImageLeavesNoImageBehind) {
  cv::Mat output(2, 2, CV_8U, cv::Scalar(1));
  bool isRefused = false;
  try {
    output = filter->apply(cv::Mat());
  } catch (std::exception const& e) {
    isRefused = std::string(e.what()).size() > 10;
  }
  EXPECT_NE(isRefused, output.empty());
}

TEST(BilateralFilter, RefusesPixelsInfinitelyFarApart) {
  constexpr float infinite = std::numeric_limits<float>::infinity();
  constexpr float huge = std::numeric_limits<float>::max();
  for (auto const& [low, high] : {std::pair(-infinite, infinite), std::pair(0.0F, infinite),
                                  std::pair(-infinite, -infinite), std::pair(-huge, huge)}) {
    cv::Mat image(48, 64, CV_32FC1, cv::Scalar(1.0));
    image.at<float>(5, 6) = low;
    image.at<float>(20, 30) = high;
    EXPECT_THROW(BilateralFilter().apply(image), vorn::Exception) << low << ' ' << high;
  }
  EXPECT_NO_THROW(BilateralFilter().apply(cv::Mat(48, 64, CV_32FC3, cv::Scalar::all(1e38))));
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
