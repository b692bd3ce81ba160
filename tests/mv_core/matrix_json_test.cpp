// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/core/matrix_json.hpp>

#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

namespace {

using nlohmann::json;

/// The message of the exception that `action` throws, with its context.
std::string failure(std::function<void()> const& action) {
  try {
    action();
  } catch (vorn::Exception const& e) {
    return e.message() + "|" + e.file();
  }
  return "no exception";
}

/// Through text, as a file would hold it.
template <class T>
T throughText(T const& value) {
  return json::parse(json(value).dump()).template get<T>();
}

template <class T>
cv::Mat extremes() {
  using Limits = std::numeric_limits<T>;
  T const odd = static_cast<T>(1) / static_cast<T>(3);
  return (cv::Mat_<T>(2, 3) << Limits::lowest(), Limits::max(), Limits::min(), odd, T{}, T{7});
}

TEST(MatrixJson, KeepsEveryBitOfEveryDepth) {
  for (cv::Mat const& m : {extremes<ushort>(), extremes<short>(), extremes<int>(), extremes<float>(),
                           extremes<double>(), cv::Mat(0, 0, CV_64F), cv::Mat(0, 4, CV_32F)}) {
    cv::Mat const back = throughText(m);
    ASSERT_EQ(back.type(), m.type());
    ASSERT_EQ(back.size(), m.size());
    EXPECT_TRUE(std::equal(m.datastart, m.dataend, back.datastart, back.dataend));
  }
}

TEST(MatrixJson, StoresAFlatListWithTheTypeCode) {
  cv::Mat const m = (cv::Mat_<double>(2, 2) << 1, 2, 3, 4.5);
  EXPECT_EQ(json(m), json::parse(R"({"rows": 2, "cols": 2, "dt": "d", "data": [1.0, 2.0, 3.0, 4.5]})"));
  char const* const letters = "ucwsifd";
  for (int depth = CV_16U; depth <= CV_64F; ++depth) {
    for (int channels = 1; channels <= 3; ++channels) {
      std::string const code = (channels > 1 ? std::to_string(channels) : "") + letters[depth];
      cv::Mat const ones(1, 2, CV_MAKETYPE(depth, channels), cv::Scalar::all(1));
      EXPECT_EQ(json(ones).at("dt"), code);
      EXPECT_EQ(throughText(ones).type(), ones.type());
    }
  }
}

TEST(MatrixJson, KeepsTheFirstColsScalarsOfEachRow) {
  cv::Mat_<cv::Vec3d> m(3, 3);
  for (int i = 0; i < 27; ++i) {
    m(i / 9, (i / 3) % 3)[i % 3] = i + 1;
  }
  EXPECT_EQ(json(m).at("data"), json({1., 2., 3., 10., 11., 12., 19., 20., 21.}));
  cv::Mat_<cv::Vec3d> const back = throughText<cv::Mat>(m);
  EXPECT_EQ(back(1, 0), cv::Vec3d(10, 11, 12));
  EXPECT_EQ(back(1, 1), cv::Vec3d());
}

TEST(MatrixJson, ReadsAndWritesRegionsOfInterest) {
  cv::Mat frame = cv::Mat::zeros(4, 5, CV_32F);
  cv::Mat inner = frame(cv::Rect(1, 1, 2, 2));
  json const j = cv::Mat(cv::Matx22f(1, 2, 3, 4));
  j.get_to(inner);
  EXPECT_EQ(inner.datastart, frame.datastart) << "a matrix of the right size keeps its buffer";
  EXPECT_EQ(frame.at<float>(2, 2), 4);
  EXPECT_EQ(cv::sum(frame)[0], 10) << "nothing else may be written";
  EXPECT_EQ(json(inner), j);
}

TEST(MatrixJson, ReadsNullAsNotANumber) {
  cv::Mat const m = (cv::Mat_<float>(1, 2) << std::nanf(""), 1);
  cv::Mat const back = throughText(m);
  EXPECT_TRUE(std::isnan(back.at<float>(0)));
  EXPECT_EQ(back.at<float>(1), 1);
  json whole = cv::Mat(cv::Matx<int, 1, 1>(1));
  whole["data"] = {nullptr};
  EXPECT_THROW(whole.get<cv::Mat>(), json::type_error);
}

TEST(MatrixJson, NamesWhatItCannotHold) {
  json j = "before";
  EXPECT_EQ(failure([&] { j = cv::Mat(1, 2, CV_8UC3); }), "Not implemented|to_json");
  EXPECT_EQ(failure([&] { cv::to_json(j, cv::Mat(1, 2, CV_8UC3)); }), "Not implemented|to_json");
  EXPECT_EQ(failure([&] { cv::to_json(j, cv::Mat(1, 2, CV_64FC4)); }), "Unsupported type|to_json");
  EXPECT_EQ(failure([&] { cv::to_json(j, cv::Mat(1, 2, CV_16F)); }), "Unsupported type|to_json");
  EXPECT_EQ(failure([&] {
              cv::to_json(j, cv::Mat(std::vector<int>{2, 2, 2}, CV_64F));
            }),
            "Unsupported type|to_json");
  EXPECT_EQ(j, "before");
}

TEST(MatrixJson, RefusesBrokenDocuments) {
  auto const reading = [](char const* changes) {
    json j = cv::Mat(cv::Matx33d::eye());
    j.merge_patch(json::parse(changes));
    cv::Mat m;
    std::string message = failure([&] { cv::from_json(j, m); });
    return message + (m.empty() ? "" : "|allocated");
  };
  EXPECT_EQ(reading(R"({"dt": "u"})"), "Not implemented|from_json|allocated");
  EXPECT_EQ(reading(R"({"dt": "u", "data": null})"), "Not implemented|from_json|allocated");
  EXPECT_EQ(reading(R"({"dt": "4d"})"), "Unsupported type|from_json");
  EXPECT_EQ(reading(R"({"data": [1, 2, 3, 4, 5, 6, 7, 8]})"), "Corrupted matrix data.|read_|allocated");
  EXPECT_EQ(reading(R"({"dt": "w", "data": [1, 2, 3, 4, 5, 6, 7, 8, 65536]})"),
            "Corrupted matrix data.|read_|allocated");
  EXPECT_EQ(reading(R"({"rows": -3, "cols": -3})"), "Corrupted matrix data.|read_");
  EXPECT_EQ(reading(R"({"rows": 4294967299})"), "Corrupted matrix data.|read_");
  EXPECT_EQ(reading(R"({"rows": 2000000000, "cols": 2000000000})"), "Corrupted matrix data.|read_")
      << "before any memory is asked for";
  EXPECT_THROW(reading(R"({"rows": null})"), json::exception);
  EXPECT_THROW(reading(R"({"data": 5})"), json::exception);
  EXPECT_THROW(reading(R"({"data": ["1", 2, 3, 4, 5, 6, 7, 8, 9]})"), json::exception);
}

TEST(SmallValueJson, PointsVectorsAndSizesAreArrays) {
  EXPECT_EQ(json(cv::Point2f(1, 2.5F)), json({1.0, 2.5}));
  EXPECT_EQ(json(cv::Point3d(1, 2, 3)), json({1.0, 2.0, 3.0}));
  EXPECT_EQ(json(cv::Vec4b(1, 2, 3, 4)), json({1, 2, 3, 4}));
  EXPECT_EQ(json(cv::Size(640, 480)), json({640, 480}));
  std::vector<std::vector<cv::Point2f>> const lists{{{0.1F, 1e-30F}, {-3, 4}}, {}};
  EXPECT_EQ(throughText(lists), lists);
  EXPECT_EQ(throughText(cv::Size2f(0.1F, 2)), cv::Size2f(0.1F, 2));
  EXPECT_EQ(throughText(cv::Point3f(0.1F, 2, 3)), cv::Point3f(0.1F, 2, 3));
  EXPECT_EQ(throughText(cv::Vec3d(0.1, 2, 3)), cv::Vec3d(0.1, 2, 3));
}

TEST(SmallValueJson, FixedMatricesAreMatrixObjects) {
  cv::Matx44d const pose(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 1. / 3);
  EXPECT_EQ(json(pose), json(cv::Mat(pose)));
  EXPECT_EQ(throughText(pose), pose);
  json const floats = cv::Mat(cv::Matx12f(0.5F, 2));
  EXPECT_EQ(floats.get<cv::Matx12d>(), cv::Matx12d(0.5, 2)) << "the element type may differ";
  EXPECT_EQ(cv::countNonZero(floats.get<cv::Mat_<double>>() != cv::Mat_<double>(cv::Matx12d(0.5, 2))), 0);
}

TEST(SmallValueJson, AWrongLengthChangesNothing) {
  cv::Point2f point(1, 2);
  EXPECT_EQ(failure([&] { json({1, 2, 3}).get_to(point); }), "Expected a list of 2 numbers|from_json");
  EXPECT_THROW(json({3, "4"}).get_to(point), json::exception);
  EXPECT_EQ(point, cv::Point2f(1, 2));
  auto pose = cv::Matx22d::eye();
  json const other = cv::Matx33d::eye();
  EXPECT_EQ(failure([&] { other.get_to(pose); }), "Expected a matrix of 2 x 2, not 3 x 3|from_json");
  EXPECT_EQ(pose, cv::Matx22d::eye());
}

} // namespace
