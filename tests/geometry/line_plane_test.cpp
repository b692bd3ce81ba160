// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <functional>
#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/geometry/line2f.hpp>
#include <vorn/mv/geometry/line3f.hpp>
#include <vorn/mv/geometry/plane3f.hpp>

namespace vorn::mv {
namespace {

/// A few roundings of floats of size 10.
constexpr double rounding = 5e-6;

std::string failure(std::function<void()> const& action) {
  try {
    action();
  } catch (Exception const& e) {
    return e.message() + "|" + e.file();
  }
  return "no exception";
}

/// The sine of the angle between two unit vectors, whatever their signs.
template <class Vector>
double sineBetween(Vector const& a, Vector const& b) {
  return std::sqrt(std::max(0.0, 1 - std::pow(cv::Mat(cv::Vec3d(a[0], a[1], a.rows > 2 ? a[2] : 0))
                                                  .dot(cv::Mat(cv::Vec3d(b[0], b[1], b.rows > 2 ? b[2] : 0))),
                                              2)));
}

/// The least distance of a point to the points of a line, found by trying.
template <class Line, class Point>
double triedDistance(Line const& line, Point const& p) {
  double best = 1e9;
  for (double t = -20; t < 20; t += 1e-3) {
    best = std::min(best, cv::norm(line.point() + Point(line.direction() * t) - p));
  }
  return best;
}
/// What steps of 1e-3 leave of a distance above 1.
constexpr double trying = 1e-6;

TEST(Line2f, GoesThroughTwoPoints) {
  Line2f const line({0, 0}, {1, 0});
  EXPECT_EQ(line.point(), cv::Point2f(0.5, 0));
  EXPECT_EQ(line.direction(), cv::Vec2f(1, 0));
  EXPECT_EQ(Line2f({1, 1}, {-2, 5}).direction(), cv::Vec2f(-0.6F, 0.8F));
  EXPECT_EQ(failure([] { Line2f({3, 4}, {3, 4}); }), "Direction vector could not be zero!|Line2f");
  Line2f const fresh;
  EXPECT_EQ(fresh.point(), cv::Point2f());
  EXPECT_EQ(fresh.direction(), cv::Vec2f());
}

TEST(Line2f, FitsPoints) {
  std::vector<cv::Point2f> points;
  for (int x = -3; x < 10; ++x) {
    points.emplace_back(static_cast<float>(x), static_cast<float>(2 * x + 1));
  }
  Line2f const line(points);
  EXPECT_EQ(line.point(), cv::Point2f(3, 7));
  EXPECT_NEAR(line.direction()[1] / line.direction()[0], 2, rounding);
  EXPECT_NEAR(cv::norm(line.direction()), 1, rounding);
  EXPECT_EQ(failure([] {
              Line2f{std::vector<cv::Point2f>{{1, 2}}};
            }),
            "Not enough point to estimate 2D line|Line2f");
  EXPECT_NO_THROW((Line2f{std::vector<cv::Point2f>{{1, 1}, {2, 2}, {3, 3}}}))
      << "a singular system is no error";
}

TEST(Line2f, RobustFitLeavesOutliersOut) {
  std::vector<cv::Point2f> points;
  for (int i = 0; i < 60; ++i) {
    auto const x = static_cast<float>(i);
    points.emplace_back(x, i % 4 == 0 ? 200 + 5 * x : 3 * x + 10);
  }
  Line2f const line(points, 0.5F, 0.4F, 50);
  EXPECT_NEAR(line.direction()[1] / line.direction()[0], 3, rounding);
  EXPECT_NEAR(line.distance({0, 10}), 0, 50 * rounding);
  EXPECT_EQ(Line2f(points, 0.5F, 0.0F, 20).direction(), cv::Vec2f())
      << "more than all points is never reached";
  EXPECT_EQ(failure([] { Line2f({{1, 2}}, 1, 0.5F, 10); }), "Not enough data point!|Line2f");
  EXPECT_EQ(failure([] {
              Line2f({{1, 2}, {1, 2}}, 1, 0.5F, 10);
            }),
            "Direction vector could not be zero!|Line2f");
}

TEST(Line2f, RobustFitDrawsAsTheProcessDoes) {
  // One round over four points: the same two draws by hand give the same candidate.
  std::vector<cv::Point2f> const points{{0, 1}, {1, 0}, {5, 7}, {20, 3}};
  for (unsigned seed = 1; seed < 20; ++seed) {
    std::srand(seed);
    Line2f const line(points, 1e-3F, 0.51F, 0);
    std::srand(seed);
    auto const i = static_cast<std::size_t>(std::rand() % 4);
    std::size_t j = i;
    while (j == i) {
      j = static_cast<std::size_t>(std::rand() % 4);
    }
    Line2f const expected(std::vector<cv::Point2f>{points[std::min(i, j)], points[std::max(i, j)]});
    EXPECT_EQ(line.point(), expected.point());
    EXPECT_EQ(line.direction(), expected.direction());
  }
}

TEST(Line2f, MeasuresAndIntersects) {
  Line2f const line({1, 2}, {4, 6});
  EXPECT_NEAR(line.distance({5, -3}), triedDistance(line, cv::Point2f(5, -3)), trying);
  EXPECT_EQ(line.distance(line.point()), 0);
  EXPECT_LT(cv::norm(line.intersect(Line2f({0, 6}, {9, 6})) - cv::Point2f(4, 6)), rounding);
  cv::Point2f const far = line.intersect(Line2f({0, 2}, {3, 6}));
  EXPECT_GT(cv::norm(far), 1e6) << "parallel lines meet far away";
}

TEST(Line2f, DrawsFromEdgeToEdge) {
  auto const drawn = [](Line2f const& line) {
    cv::Mat image = cv::Mat::zeros(40, 60, CV_8U);
    line.draw(image, cv::Scalar(255), 1.9F);
    return image;
  };
  for (Line2f const& line : {Line2f({0, 5}, {59, 30}), Line2f({10, 0}, {25, 39}), Line2f({50, 0}, {12, 39}),
                             Line2f({7, 3}, {7, 9}), Line2f({7, 3}, {2, 3})}) {
    cv::Mat const image = drawn(line);
    // One pixel in every column of a flat line, in every row of a steep one.
    bool const isFlat = std::abs(line.direction()[0]) > std::abs(line.direction()[1]);
    EXPECT_EQ(cv::countNonZero(image), isFlat ? image.cols : image.rows);
    std::vector<cv::Point> pixels;
    cv::findNonZero(image, pixels);
    for (cv::Point const& pixel : pixels) {
      // Half a pixel along one axis, and the rounding of the end points.
      EXPECT_LT(line.distance(cv::Point2f(pixel)), 1.01) << pixel;
    }
  }
  EXPECT_EQ(cv::countNonZero(drawn(Line2f({7.0F, 3.0F}, {7.0F, 9.0F})).col(7)), 40);
  for (float const thickness : {1e30F, std::numeric_limits<float>::infinity()}) {
    cv::Mat image = cv::Mat::zeros(40, 60, CV_8U);
    Line2f({0, 5}, {59, 30}).draw(image, cv::Scalar(255), thickness);
    EXPECT_EQ(cv::countNonZero(image), 40 * 60);
  }
  Line2f broken;
  broken.read(nlohmann::json{{"p", {0, 0}}, {"a", {nullptr, 1}}});
  EXPECT_EQ(cv::countNonZero(drawn(broken)), 0);
}

TEST(Line3f, OfPointsOnOneSpotIsGivenUpAtOnce) {
  std::vector<cv::Point3f> const heap(1000, {1, 2, 3});
  Line3f const line(heap, 0.1F, 0.1F, std::numeric_limits<int>::max());
  EXPECT_EQ(line.direction(), cv::Vec3f(0, 0, 0));
}

TEST(Line3f, IsMadeFromPointsAndDirections) {
  Line3f const line(cv::Point3f(1, 1, 1), cv::Point3f(1, 4, 5));
  EXPECT_EQ(line.point(), cv::Point3f(1, 2.5F, 3));
  EXPECT_EQ(line.direction(), cv::Vec3f(0, 0.6F, 0.8F));
  EXPECT_EQ(Line3f(cv::Point3f(1, 2, 3), cv::Vec3f(0, 0, 9)).direction(), cv::Vec3f(0, 0, 1));
  EXPECT_FALSE(std::isfinite(Line3f(cv::Point3f(1, 2, 3), cv::Point3f(1, 2, 3)).direction()[0]));
  EXPECT_EQ(failure([] { Line3f(cv::Point3f(1, 2, 3), cv::Vec3f()); }),
            "Direction vector could not be zero!|Line3f");
}

/// Points around a line, a share of them far off.
std::vector<cv::Point3f> pointsAlong(cv::Vec3f const& direction, int outlierEvery) {
  std::vector<cv::Point3f> points;
  for (int i = 0; i < 80; ++i) {
    auto const t = static_cast<float>(i - 40);
    cv::Point3f const offset = i % outlierEvery == 0 ? cv::Point3f(30, t, 7) : cv::Point3f();
    points.push_back(cv::Point3f(1, 2, 3) + cv::Point3f(direction * t) + offset);
  }
  return points;
}

TEST(Line3f, FitsThePrincipalAxis) {
  cv::Vec3f const direction(0.48F, -0.6F, 0.64F);
  auto const points = pointsAlong(direction, 1000);
  Line3f const line(points);
  EXPECT_NEAR(std::abs(line.direction().dot(direction)), 1, rounding);
  EXPECT_LT(line.distance({1, 2, 3}), 2) << "point 0 is an outlier";
  Line3f const robust(points, 0.01F, 0.5F, 20);
  EXPECT_LT(robust.distance({1, 2, 3}), 10 * rounding);
  EXPECT_EQ(failure([] { Line3f{std::vector<cv::Point3f>{{1, 2, 3}}}; }), "Not enough data!|Line3f");
}

TEST(Line3f, RobustFitEndsAndRepeats) {
  cv::Vec3f const direction(0.48F, -0.6F, 0.64F);
  Line3f const line(pointsAlong(direction, 3), 0.01F, 0.5F, 100);
  EXPECT_NEAR(std::abs(line.direction().dot(direction)), 1, rounding);
  EXPECT_LT(line.distance({1, 2, 3}), 10 * rounding);
  EXPECT_EQ(Line3f(pointsAlong(direction, 3), 0.01F, 0.5F, 100).direction(), line.direction());
  EXPECT_EQ(Line3f(std::vector<cv::Point3f>(5), 0.01F, 0.5F, 100).direction(), cv::Vec3f());
  EXPECT_EQ(failure([] { Line3f({{1, 2, 3}}, 1, 0.5F, 10); }), "Not enough data!|Line3f");
}

TEST(Line3f, MeasuresAndFindsTheClosestPoints) {
  Line3f const a(cv::Point3f(1, 0, 2), cv::Vec3f(1, 2, -1));
  Line3f const b(cv::Point3f(-3, 1, 4), cv::Vec3f(0, 1, 3));
  EXPECT_NEAR(a.distance({4, 5, 6}), triedDistance(a, cv::Point3f(4, 5, 6)), trying);
  auto const closest = a.intersect3(b);
  ASSERT_EQ(closest.size(), 2U);
  EXPECT_LT(a.distance(closest[0]), rounding);
  EXPECT_LT(b.distance(closest[1]), rounding);
  cv::Vec3f const between = closest[1] - closest[0];
  EXPECT_NEAR(between.dot(a.direction()), 0, rounding) << "the shortest link is square to both";
  EXPECT_NEAR(between.dot(b.direction()), 0, rounding);
  EXPECT_EQ(a.intersect(b), (closest[0] + closest[1]) * 0.5F);
  Line3f const parallel(cv::Point3f(7, 7, 7), cv::Vec3f(1, 2, -1));
  EXPECT_EQ(
      Line3f(cv::Point3f(), cv::Vec3f(1, 0, 0)).intersect3({cv::Point3f(7, 7, 7), cv::Vec3f(1, 0, 0)})[1],
      parallel.point());
}

TEST(Plane3f, IsMadeFromPointsAndNormals) {
  Plane3f const plane({3, 0, 1}, {0, 3, 1}, {0, 0, 1});
  EXPECT_LT(cv::norm(plane.point() - cv::Point3f(1, 1, 1)), rounding);
  EXPECT_EQ(plane.normal(), cv::Vec3f(0, 0, 1)) << "(p2 - p1) x (p3 - p1)";
  EXPECT_EQ(plane.distance({9, 9, 3.5F}), 2.5);
  EXPECT_EQ(plane.distance({9, 9, -1.5F}), 2.5);
  EXPECT_EQ(failure([] {
              Plane3f({0, 0, 0}, {1, 1, 1}, {2, 2, 2});
            }),
            "Normal vector could not be zero!|Plane3f");
  EXPECT_EQ(failure([] {
              Plane3f({0, 0, 0}, cv::Vec3f(1e-8F, 0, 0));
            }),
            "Normal vector could not be zero!|Plane3f");
}

TEST(Plane3f, MeetsLinesAndPlanes) {
  Plane3f const plane({0, 0, 10}, {0.6F, 0, 0.8F});
  Line3f const line(cv::Point3f(1, 2, 3), cv::Vec3f(1, 2, 3));
  cv::Point3f const shared = plane.intersect(line);
  EXPECT_LT(plane.distance(shared), rounding);
  EXPECT_LT(line.distance(shared), rounding);
  EXPECT_EQ(line.intersect(plane), shared);
  EXPECT_FALSE(std::isfinite(plane.intersect(Line3f(cv::Point3f(), cv::Vec3f(0, 1, 0))).x));

  Plane3f const other({1, 2, 3}, {0, 1, 0});
  Line3f const common = plane.intersect(other);
  for (float t : {-5.0F, 0.0F, 5.0F}) {
    cv::Point3f const p = common.point() + cv::Point3f(common.direction() * t);
    EXPECT_LT(plane.distance(p) + other.distance(p), rounding);
  }
  EXPECT_NEAR(
      cv::norm(Plane3f({0, 0, 0}, {0, 0, 1}).intersect(Plane3f({0, 0, 0}, {0, 0.6F, 0.8F})).direction()), 0.6,
      rounding)
      << "the direction keeps the length of the cross product";
  EXPECT_EQ(plane.intersect(plane).direction(), cv::Vec3f());
  EXPECT_EQ(plane.intersect(plane).point(), cv::Point3f());
}

TEST(Plane3f, EstimateRemovesOutliers) {
  cv::Vec3f const normal(0.36F, 0.48F, -0.8F);
  std::vector<cv::Point3f> points;
  for (int i = 0; i < 400; ++i) {
    auto const x = static_cast<float>(i % 20);
    auto const y = static_cast<float>(i / 20);
    float const z = 500 + (0.36F * x + 0.48F * y) / 0.8F;
    points.emplace_back(x, y, i % 10 == 0 ? z + 40 : z);
  }
  Plane3f const plane = Plane3f::estimate(points, 0.01);
  EXPECT_NEAR(std::abs(plane.normal().dot(normal)), 1, rounding);
  EXPECT_LT(plane.distance({0, 0, 500}), 1e-3);
  EXPECT_GT(Plane3f::estimate(points, 100).distance({0, 0, 500}), 1) << "a wide bound is met at once";
}

TEST(Plane3f, EstimateEndsWhenItCannotConverge) {
  std::string const removed = "Not enough point to estimate 3d plane due to outliner removal|estimate";
  auto const estimating = [](std::vector<cv::Point3f> const& points, double bound) {
    return failure([&] { Plane3f::estimate(points, bound); });
  };
  std::vector<cv::Point3f> const flat{{0, 0, 8}, {8, 0, 8}, {0, 8, 8}, {8, 8, 8}};
  EXPECT_EQ(estimating(flat, 1), "no exception");
  EXPECT_EQ(estimating(flat, 0), removed) << "the mean is never below 0, and no point is off";
  std::vector<cv::Point3f> const saddle{{8, 0, 9}, {-8, 0, 9}, {0, 8, 7}, {0, -8, 7}};
  EXPECT_EQ(estimating(saddle, 0.5), removed) << "all points are equally far off";
  EXPECT_EQ(estimating({{0, 0, 8}, {8, 0, 8}, {0, 8, NAN}}, 1), removed);
  EXPECT_EQ(estimating({{0, 0, 8}, {8, 0, 8}}, 1), "Not enough point to estimate 3d plane!|estimate");
  EXPECT_EQ(estimating({{1, 1, 1}, {2, 2, 2}, {3, 3, 3}}, 1), "Normal vector could not be zero!|Plane3f");
}

template <class T>
void expectKeptByFiles(T const& value, char const* vectorKey) {
  nlohmann::json j;
  value.write(j);
  EXPECT_EQ(j.size(), 2U);
  EXPECT_TRUE(j.contains("p") && j.contains(vectorKey));
  T fromJson;
  fromJson.read(nlohmann::json::parse(j.dump()));
  nlohmann::json again;
  fromJson.write(again);
  EXPECT_EQ(again, j);

  j["p"] = "nowhere";
  EXPECT_ANY_THROW(fromJson.read(j));
  j = again;
  j[vectorKey] = {1};
  j["p"][0] = 77;
  EXPECT_ANY_THROW(fromJson.read(j));
  nlohmann::json unchanged;
  fromJson.write(unchanged);
  EXPECT_EQ(unchanged, again);

  cv::FileStorage out(".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  out << "first" << value << "list"
      << "[" << value << value << "]"
      << "nested";
  value.write(out);
  cv::FileStorage const in(out.releaseAndGetString(), cv::FileStorage::READ | cv::FileStorage::MEMORY);
  EXPECT_TRUE(in["first"].isMap());
  for (cv::FileNode const& node : {in["first"], in["list"][1], in["nested"]}) {
    T fromStorage;
    node >> fromStorage;
    EXPECT_EQ(fromStorage.point(), value.point());
    nlohmann::json stored;
    fromStorage.write(stored);
    EXPECT_EQ(stored, again);
  }
  T fallback;
  cv::read(in["absent"], fallback, value);
  EXPECT_EQ(fallback.point(), value.point());
  EXPECT_THROW(fallback.read(in["list"]), Exception);
}

TEST(LinesAndPlanes, RefuseFileStorageOfOtherDimensions) {
  cv::FileStorage const in("%YAML:1.0\nlong: {p: [1, 2, 3], a: [0, 1]}\nshort: {p: [1, 2, 3], a: [0, 1]}\n"
                           "text: {p: [1, 2, 3], a: [0, 1, x]}\nflat: {p: 1, a: 2}\n",
                           cv::FileStorage::READ | cv::FileStorage::MEMORY);
  Line2f flat({1, 2}, {3, 4});
  EXPECT_THROW(flat.read(in["long"]), Exception);
  EXPECT_EQ(flat.point(), cv::Point2f(2, 3));
  Line3f line(cv::Point3f(1, 2, 3), cv::Vec3f(0, 0, 1));
  for (char const* name : {"short", "text", "flat"}) {
    EXPECT_THROW(line.read(in[name]), Exception) << name;
    EXPECT_EQ(line.point(), cv::Point3f(1, 2, 3)) << name;
    EXPECT_EQ(line.direction(), cv::Vec3f(0, 0, 1)) << name;
  }
}

TEST(LinesAndPlanes, AreKeptByJsonAndFileStorage) {
  expectKeptByFiles(Line2f({0.1F, -7}, {3, 1e-20F}), "a");
  expectKeptByFiles(Line3f(cv::Point3f(0.1F, 2, 1e20F), cv::Vec3f(3, -2, 7)), "a");
  expectKeptByFiles(Plane3f({0.1F, 2, -3}, cv::Vec3f(3, -2, 7)), "n");
}

} // namespace
} // namespace vorn::mv
