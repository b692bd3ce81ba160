// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/obj_file.hpp>

#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>

#include <vorn/core/system.hpp>

#include "support/expect_error.hpp"
#include "support/file_content.hpp"
#include "support/graphic_objects.hpp"
#include "support/temporary_folder.hpp"

using namespace vorn::graphic;
using vorn::test::Alpha;
using vorn::test::expectError;
using vorn::test::expectSameBits;
using vorn::test::fullObject;

namespace {

GraphicObject parse(std::string const& content) {
  vorn::test::TemporaryFolder const folder;
  vorn::test::put(folder / "test.obj", content);
  return OBJFile().read((folder / "test.obj").string());
}

std::string const square = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";

} // namespace

TEST(OBJFile, KeepsEveryValue) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.obj").string();
  constexpr int moreThanOneWindow = 10000;
  for (auto const alpha : {Alpha::Opaque, Alpha::Varied}) {
    GraphicObject object = fullObject(moreThanOneWindow, alpha);
    object.triangles().emplace_back(0, 1, 2); // so that every vertex has a corner to name its normal
    OBJFile().write(path, object);
    expectSameBits(OBJFile().read(path), object);
    object.triangles().clear();
    OBJFile().write(path, object);
    expectSameBits(OBJFile().read(path), object);
    object.normals().clear();
    object.colors().clear();
    OBJFile().write(path, object);
    expectSameBits(OBJFile().read(path), object);
  }
  OBJFile().write(path, GraphicObject());
  EXPECT_TRUE(OBJFile().read(path).isEmpty());
}

TEST(OBJFile, ColorsReadBackTheSameByRoundingAndByCuttingOff) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.obj").string();
  GraphicObject object;
  for (int color = 0; color < 256; ++color) {
    object.vertices().emplace_back(0.0F, 0.0F, 0.0F);
    object.colors().push_back(cv::Vec4b::all(static_cast<uchar>(color)));
  }
  OBJFile().write(path, object);
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  for (int color = 0; color < 256; ++color) {
    std::string keyword;
    double x, y, z, red, green, blue, alpha;
    file >> keyword >> x >> y >> z >> red >> green >> blue >> alpha;
    ASSERT_EQ(static_cast<int>(red * 255), color);
    ASSERT_EQ(static_cast<int>(alpha * 255 + 0.5), color);
  }
}

TEST(OBJFile, FacesInAllTheirForms) {
  GraphicObject const object = parse("# by hand\r\nmtllib a.mtl\r\no plate\r\n" + square +
                                     "vt 0 0\nvt 1 1 0\nvn 0 0 1\nvn 1 0 0\nvn 0 1 0\ng side\ns off\n"
                                     "f 1//2 2//2 3//1 4//1\r\n"
                                     "f -4/-1/-1 -2/1/-1 \\\r\n  4/2/3\n"
                                     "f 1/1 2/2 3/1\nl 1 2\np 1\nf 4 3 5\nv 2 2 2");
  EXPECT_EQ(object.vertices().size(), 5U);
  EXPECT_EQ(object.triangles(),
            std::vector<cv::Vec3i>({{0, 1, 2}, {0, 2, 3}, {0, 2, 3}, {0, 1, 2}, {3, 2, 4}}));
  EXPECT_EQ(object.normals(),
            std::vector<cv::Vec3f>({{1, 0, 0}, {1, 0, 0}, {0, 0, 1}, {0, 0, 1}, {0, 0, 0}}));
  EXPECT_FALSE(object.hasColors());
}

TEST(OBJFile, StarsOfThousandsOfPointsKeepTheirArea) {
  constexpr int count = 4000;
  std::string vertices;
  std::string face = "f";
  for (int i = 0; i < count; ++i) {
    double const angle = 2.0 * CV_PI * i / count;
    double const radius = i % 2 == 0 ? 1000.0 : 700.0;
    vertices += "v " + std::to_string(radius * std::cos(angle)) + " " +
                std::to_string(radius * std::sin(angle)) + " 5\n";
    face += " " + std::to_string(i + 1);
  }
  GraphicObject const object = parse(vertices + face + "\n");
  ASSERT_EQ(object.triangles().size(), count - 2U);
  double sum = 0.0;
  for (cv::Vec3i const& t : object.triangles()) {
    auto const at = [&](int k) { return cv::Vec3d(object.vertices()[static_cast<std::size_t>(t[k])]); };
    sum += cv::norm((at(1) - at(0)).cross(at(2) - at(0))) / 2.0;
  }
  double const area = count * 1000.0 * 700.0 * std::sin(2.0 * CV_PI / count) / 2.0;
  EXPECT_NEAR(sum, area, 1e-5 * area);
}

TEST(OBJFile, PolygonsThatAreNotConvexKeepTheirArea) {
  // In a tilted plane, from every corner on and in both directions: an L, a comb, and a square with a hole
  // that is joined to its rim by a cut.
  std::vector<std::pair<std::vector<cv::Vec2f>, double>> const shapes{
      {{{1, 1}, {1, 2}, {0, 2}, {0, 0}, {2, 0}, {2, 1}}, 3.0},
      {{{0, 0}, {7, 0}, {7, 3}, {6, 3}, {6, 1}, {5, 1}, {5, 3}, {4, 3}, {4, 1}, {3, 1}, {3, 3}, {0, 3}},
       17.0},
      {{{0, 0}, {4, 0}, {4, 4}, {0, 4}, {0, 0}, {1, 1}, {1, 3}, {3, 3}, {3, 1}, {1, 1}}, 12.0},
      // The same where the cut's ends are one place but for rounding, to either side.
      {{{0, 0}, {4, 0}, {4, 4}, {0, 4}, {1e-6F, 3e-6F}, {1, 1.000002F}, {1, 3}, {3, 3}, {3, 1}, {1, 1}},
       12.0},
      {{{0, 0},
        {4, 0},
        {4, 4},
        {0, 4},
        {3e-6F, -2e-6F},
        {1, 1},
        {1, 3},
        {3, 3},
        {3, 1},
        {1.000003F, 1.000002F}},
       12.0},
      {{{0, 0}, {4, 0}, {4, 4}, {2, 0.5F}, {0, 4}}, 9.0}};
  cv::Vec3d const x = cv::normalize(cv::Vec3d(1, 2, -0.5));
  cv::Vec3d const y = cv::normalize(x.cross(cv::Vec3d(0.3, -1, 2)));
  for (auto const& [corners, area] : shapes) {
    for (std::size_t start = 0; start < 2 * corners.size(); ++start) {
      bool const isTurned = start >= corners.size();
      std::string vertices;
      std::string face = "f";
      for (std::size_t i = 0; i < corners.size(); ++i) {
        std::size_t const step = isTurned ? corners.size() - i : i;
        cv::Vec2f const p = corners[(start + step) % corners.size()];
        cv::Vec3d const place = x * p[0] + y * p[1];
        vertices += "v " + std::to_string(place[0]) + " " + std::to_string(place[1]) + " " +
                    std::to_string(place[2]) + "\n";
        face += " " + std::to_string(i + 1);
      }
      GraphicObject const object = parse(face + "\n" + vertices); // the face first: its vertices follow
      ASSERT_EQ(object.triangles().size(), corners.size() - 2);
      double sum = 0.0;
      cv::Vec3d const up = x.cross(y) * (isTurned ? -1.0 : 1.0);
      for (cv::Vec3i const& t : object.triangles()) {
        auto const at = [&](int k) { return cv::Vec3d(object.vertices()[static_cast<std::size_t>(t[k])]); };
        double const its = (at(1) - at(0)).cross(at(2) - at(0)).dot(up) / 2.0;
        EXPECT_GT(its, -1e-5) << "no triangle is turned";
        sum += std::abs(its);
      }
      EXPECT_NEAR(sum, area, 1e-4) << start;
    }
  }
}

TEST(OBJFile, ColorsAreOfOneOr255) {
  using Colors = std::vector<cv::Vec4b>;
  EXPECT_EQ(parse("v 0 0 0 255 128 0\nv 1 0 0\nv 0 1 0 1 0 2 64\n").colors(),
            Colors({{255, 128, 0, 255}, {255, 255, 255, 255}, {1, 0, 2, 64}}));
  // A component that is wrong darkens no others.
  std::string shares;
  for (int i = 0; i < 20; ++i) {
    shares += "v 0 0 0 0.25 0.5 1\n";
  }
  std::vector<cv::Vec4b> const stray = parse(shares + "v 0 0 0 7 0.5 0\n").colors();
  EXPECT_EQ(stray.front(), cv::Vec4b(64, 128, 255, 255));
  EXPECT_EQ(stray.back(), cv::Vec4b(255, 128, 0, 255));
  EXPECT_EQ(parse("v 0 0 0 1.25 0.5 0\nv 1 0 0\n").colors(),
            Colors({{255, 128, 0, 255}, {255, 255, 255, 255}}));
}

TEST(OBJFile, BackslashesJoinLinesOfStatementsAlone) {
  GraphicObject const object =
      parse("# from C:\\models\\\n" + square + "f 1 \\\n2 \\\n3\n  # of two\\\r\nf 1 3 \\\n4 \\");
  EXPECT_EQ(object.vertices().size(), 4U);
  EXPECT_EQ(object.triangles(), std::vector<cv::Vec3i>({{0, 1, 2}, {0, 2, 3}}));
}

TEST(OBJFile, VerticesWithSomeOfTheirAttributes) {
  GraphicObject const object =
      parse("v 1 2 3\nv 4 5 6 1\nv 7 8 9 1 0.5 0\nv nan -inf 1e99 2 -1 nan 0\nvn 0 0 1\n");
  EXPECT_EQ(object.vertices()[1], cv::Vec3f(4, 5, 6));
  EXPECT_TRUE(std::isnan(object.vertices()[3][0]));
  EXPECT_EQ(object.vertices()[3][1], -INFINITY);
  EXPECT_EQ(object.vertices()[3][2], INFINITY);
  EXPECT_EQ(object.colors(),
            std::vector<cv::Vec4b>(
                {{255, 255, 255, 255}, {255, 255, 255, 255}, {255, 128, 0, 255}, {255, 0, 0, 0}}));
  EXPECT_FALSE(object.hasNormals()) << "one normal for four vertices belongs to none of them";
}

TEST(OBJFile, FarCoordinatesKeepTheirPlace) {
  vorn::test::TemporaryFolder const folder;
  std::vector<cv::Vec3d> const places{{4500000.125, 5400000.375, 400.0625},
                                      {4500001.125, 5400000.375, 400.0625},
                                      {4500000.125, 5400001.375, 400.0625}};
  std::string text = "vn 0 0 1\nf 1//1 2//1 3//1\n";
  for (cv::Vec3d const& place : places) {
    text += "v " + std::to_string(place[0]) + ' ' + std::to_string(place[1]) + ' ' +
            std::to_string(place[2]) + " 1 0.5 0\n";
  }
  auto const expectPlaces = [&](GraphicObject const& object) {
    ASSERT_EQ(object.vertices().size(), places.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
      EXPECT_EQ(object.offset() + cv::Vec3d(object.vertices()[i]), places[i]);
    }
    EXPECT_EQ(object.triangles(), std::vector<cv::Vec3i>({{0, 1, 2}}));
    EXPECT_EQ(object.normals(), std::vector<cv::Vec3f>(3, {0, 0, 1}));
    EXPECT_EQ(object.colors(), std::vector<cv::Vec4b>(3, {255, 128, 0, 255}));
  };
  GraphicObject const object = parse(text);
  expectPlaces(object);
  OBJFile().write((folder / "a.obj").string(), object);
  expectPlaces(OBJFile().read((folder / "a.obj").string()));
  // More than a window is read again from the file's start, and a pipe from memory.
  constexpr std::size_t moreThanOneWindow = 20000;
  GraphicObject column;
  column.offset() = {4500000.125, 5400000.375, 0.5};
  for (std::size_t i = 0; i < moreThanOneWindow; ++i) {
    column.vertices().emplace_back(0.0F, 0.0F, static_cast<float>(i));
  }
  std::string const pipe = (folder / "pipe").string();
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::thread writer([&] { OBJFile().write(pipe, column); });
  GraphicObject const piped = OBJFile().read(pipe);
  writer.join();
  OBJFile().write((folder / "b.obj").string(), column);
  for (GraphicObject const& found : {OBJFile().read((folder / "b.obj").string()), piped}) {
    ASSERT_EQ(found.vertices().size(), moreThanOneWindow);
    for (std::size_t const i : {std::size_t{0}, moreThanOneWindow - 1}) {
      EXPECT_EQ(found.offset() + cv::Vec3d(found.vertices()[i]),
                column.offset() + cv::Vec3d(column.vertices()[i]));
    }
  }
}

TEST(OBJFile, NormalsThatAreNotThereCostOnlyTheNormals) {
  std::string said;
  vorn::System::setMessageSink([&](std::string const& text) { said += text; });
  std::string const normal = "vn 0 0 1\n";
  // Later than the faces is not missing.
  EXPECT_EQ(parse(square + "f 1//1 2//1 3//1\n" + normal).normals().size(), 4U);
  EXPECT_EQ(parse(square + normal + "f 1//-1 2//-1 3//-1\n").normals()[2], cv::Vec3f(0, 0, 1));
  EXPECT_EQ(said, "");
  for (char const* face : {"f 1//1 2//2 3//1\nf 1//1 3//1 4//1\n", "f 1//1 2//-2 3//1\nf 1//1 3//1 4//1\n",
                           "f 1//1 2//3000000000 3//1\nf 1//1 3//1 4//1\n"}) {
    said.clear();
    GraphicObject const object = parse(square + normal + face);
    EXPECT_EQ(object.vertices().size(), 4U);
    EXPECT_EQ(object.triangles().size(), 2U);
    EXPECT_FALSE(object.hasNormals());
    EXPECT_NE(said.find("test.obj: line 6 names the normal "), std::string::npos) << said;
    EXPECT_NE(said.find(", but there are 1; it is read without normals\n"), std::string::npos) << said;
  }
  vorn::System::setMessageSink({});
}

TEST(OBJFile, DamagedFilesAreNamedWithPlaceAndReason) {
  struct Case {
    std::string content;
    char const* message;
  };
  for (Case const& damaged : std::initializer_list<Case>{
           {"", "the file is empty"},
           {"Dear reader,\n", "it is no OBJ file: it has no vertices"},
           {square + std::string("\x01 1 2\n"), "line 5: '?' is no OBJ statement"},
           {"v 1 2\n",
            "line 1: a vertex is 3 coordinates, with a weight, or 3 or 4 color components, but the line"},
           {"v 1 2 3 4 5\n", "line 1: a vertex is"},
           {"v 1 2 3 4 5 6 7 8\n", "line 1: a vertex is"},
           {"v 1 2 x\n", "but there is 'x'"},
           {square + "vn 1 2\n", "line 5: a normal is 3 numbers"},
           {square + "vn 1 2 3 4\n", "line 5: a normal is 3 numbers"},
           {square + "f 1 2\n", "line 5: a face of 2 corners"},
           {square + "f 1 2 5\nvt 0 0\n", "line 5: the vertex index 5, but there are 4"},
           {square + "f 1 2 2000000000\n", "line 5: the vertex index 2000000000"},
           {square + "f 1 2 99999999999999999999\n", "line 5: '99999999999999999999' is no corner of a face"},
           {square + "f 1 2 -5\n", "line 5: the vertex index -5, but there are 4"},
           {square + "f 0 1 2\n", "line 5: '0' is no corner of a face"},
           {square + "f 1/2/3/4 1 2\n", "line 5: '1/2/3/4' is no corner of a face"},
           {square + "f 1 2 /3\n", "line 5: '/3' is no corner of a face"},
       }) {
    expectError([&] { parse(damaged.content); }, damaged.message);
  }
}
