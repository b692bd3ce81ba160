// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/pcd_file.hpp>
#include <vorn/graphic/stl_file.hpp>
#include <vorn/graphic/xyz_file.hpp>

#include "graphic/point_tables.hpp"
#include "support/expect_error.hpp"
#include "support/file_content.hpp"
#include "support/graphic_objects.hpp"

using namespace vorn::graphic;
using vorn::test::Alpha;
using vorn::test::expectError;
using vorn::test::expectSameBits;
using vorn::test::expectSameTable;
using vorn::test::said;
using vorn::test::table;

namespace {

using XyzFile = vorn::test::PointFile<XYZFile>;

} // namespace

TEST_F(XyzFile, KeepsEveryBit) {
  GraphicObject const object = table(3000, Alpha::Opaque);
  EXPECT_EQ(said([&] {
              XYZFile().write(path(), object);
              expectSameTable(XYZFile().read(path()), object);
            }),
            "");
  XYZFile().write(path(), GraphicObject());
  EXPECT_TRUE(XYZFile().read(path()).isEmpty());
  GraphicObject const far = parse("3512345.125 1 -1e7\n3512346.25 2 -10000001.5\n");
  EXPECT_EQ(far.offset() + cv::Vec3d(far.vertices()[1]), cv::Vec3d(3512346.25, 2, -10000001.5));
}

/// A plate of 40 x 25 places 0.01 apart, far from zero, and strays.
std::vector<cv::Vec3d> plateFarAway(std::vector<cv::Vec3d> const& strays) {
  std::vector<cv::Vec3d> places;
  for (int i = 0; i < 1000; ++i) {
    places.emplace_back(500000.12 + 0.01 * (i % 40), 5400000.65 + 0.01 * (i / 40), 3.0 + 1e-4 * (i % 7));
  }
  places.insert(places.begin() + 300, strays.begin(), strays.end());
  return places;
}

TEST_F(XyzFile, StrayPlacesLoseNoDigitsOfOthers) {
  auto const textOf = [](std::vector<cv::Vec3d> const& places, std::string const& before) {
    std::ostringstream text;
    text.precision(17);
    for (cv::Vec3d const& place : places) {
      text << before << place[0] << ' ' << place[1] << ' ' << place[2] << '\n';
    }
    return text.str();
  };
  std::vector<std::vector<cv::Vec3d>> const allStrays{
      {cv::Vec3d()},
      {{1.5, -2.25, 0.5}},
      {{1.1, 1.2, 1.3}, {-1e30, 4, 5}, {0, 7e9, 0}, cv::Vec3d()},
      std::vector<cv::Vec3d>(1500), // more misses than points
      std::vector<cv::Vec3d>(300, cv::Vec3d(0.1, 0.2, 0.3))};
  for (std::vector<cv::Vec3d> const& strays : allStrays) {
    std::vector<cv::Vec3d> const places = plateFarAway(strays);
    std::string facets = "solid\n";
    for (std::size_t i = 2; i < places.size(); ++i) {
      facets += "facet normal 0 0 1\nouter loop\n" +
                textOf({places[i - 2], places[i - 1], places[i]}, "vertex ") + "endloop\nendfacet\n";
    }
    vorn::test::put(path("a.obj"), textOf(places, "v "));
    vorn::test::put(path("a.stl"), facets + "endsolid\n");
    GraphicObject xyz;
    EXPECT_EQ(said([&] { xyz = parse(textOf(places, "")); }), "");
    for (GraphicObject const& object : {xyz, OBJFile().read(path("a.obj")), STLFile().read(path("a.stl"))}) {
      ASSERT_NE(object.offset(), cv::Vec3d());
      for (cv::Vec3d const& place : {places.front(), places[299], places.back()}) {
        EXPECT_TRUE(std::any_of(object.vertices().begin(), object.vertices().end(), [&](cv::Vec3f vertex) {
          return cv::norm(object.offset() + cv::Vec3d(vertex), place, cv::NORM_INF) < 1e-6;
        })) << strays.size();
      }
    }
  }
  // Two parts that no offset brings near zero together.
  std::vector<cv::Vec3d> apart = plateFarAway({});
  for (int i = 0; i < 900; ++i) {
    apart.emplace_back(0.01 * (i % 40), 0.01 * (i / 40), 0.1);
  }
  EXPECT_NE(said([&] { parse(textOf(apart, "")); }).find("than floats tell"), std::string::npos);
}

TEST_F(XyzFile, ColorsOfOneAreTold) {
  auto const colorsOf = [&](std::string const& rows) {
    vorn::test::put(path(), "x y z r g b\n" + rows);
    return XYZFile().read(path()).colors();
  };
  using Colors = std::vector<cv::Vec4b>;
  EXPECT_EQ(colorsOf("0 0 0 0.5 0.25 1\n1 0 0 0 1 0\n"), Colors({{128, 64, 255, 255}, {0, 255, 0, 255}}));
  EXPECT_EQ(colorsOf("0 0 0 0.5 0.25 1\n1 0 0 0 200 0\n"), Colors({{1, 0, 1, 255}, {0, 200, 0, 255}}));
  std::string shares;
  for (int i = 1; i < 20; ++i) {
    shares += "0 0 0 0.25 0.5 0." + std::to_string(i) + "\n";
  }
  std::string const text =
      said([&] { EXPECT_EQ(colorsOf(shares + "0 0 0 9 0.5 0\n").back(), cv::Vec4b(255, 128, 0, 255)); });
  EXPECT_NE(text.find("taken as 0..1, 1 components above 2 as 1"), std::string::npos) << text;
  EXPECT_EQ(colorsOf("0 0 0 0 1 1\n1 0 0 0 1 0\n"), Colors({{0, 1, 1, 255}, {0, 1, 0, 255}}));
}

TEST_F(XyzFile, ColorsBeyondAByteAreSaid) {
  vorn::test::put(path(), "x y z r g b a\n0 0 0 65535 128 3 1\n1 0 0 0 200 0 1\n");
  std::string const text = said([&] {
    EXPECT_EQ(XYZFile().read(path()).colors(),
              std::vector<cv::Vec4b>({{255, 128, 3, 255}, {0, 200, 0, 255}}));
  });
  EXPECT_NE(text.find("taken as 0..255, 1 components above 255 as 255"), std::string::npos) << text;
}

TEST_F(XyzFile, TakesTheHeadingsOfOrdinaryExports) {
  for (std::string const heading :
       {"X [mm],Y [mm],Z [mm]\n1,2,3\n", "X[mm] Y[mm] Z[mm]\n1 2 3\n", "x (m) y (m) z (m)\n1 2 3\n",
        "# exported columns: x y z\nx y z\n1 2 3\n", "x y z (mm)\n1 2 3\n", "# x y z [m]\n1 2 3\n",
        "\"x\",\"y\",\"z\"\n1,2,3\n", "'X' 'Y' 'Z'\n1 2 3\n", "\"X [mm]\";\"Y [mm]\";\"Z [mm]\"\n1;2;3\n",
        "# x y z t\nx;y;z\n1;2;3\n"}) {
    GraphicObject object;
    EXPECT_EQ(said([&] { object = parse(heading); }), "") << heading;
    EXPECT_EQ(object.vertices(), (std::vector<cv::Vec3f>{{1, 2, 3}})) << heading;
    EXPECT_TRUE(object.fields().empty()) << heading;
  }
  GraphicObject const tabs = parse("x\ty\tz\tconfidence value\n1\t2\t3\t0.5\n");
  EXPECT_EQ(tabs.fields().at("confidence value"), (std::vector<float>{0.5F}));
  EXPECT_EQ(parse("x,y,z,depth [m]\n1,2,3,4\n").fields().count("depth [m]"), 1U);
  EXPECT_EQ(parse("x y z (mm)\n1 2 3 4\n").fields().at("(mm)"), (std::vector<float>{4}));
  EXPECT_EQ(parse("\"x\",\"y\",\"z\",\"depth, m\"\n1,2,3,4\n").fields().count("depth, m"), 1U);
  // A blank beside a comma separates no more than the comma, unless it may stand between decimals.
  for (std::string const row :
       {"1,2,3, 4\n", "1, 2, 3, 4\n", "1 , 2 , 3 , 4\n", "1,2, 3,4\n", "1.5, 2.5,3.5, 4\n"}) {
    EXPECT_EQ(parse("x,y,z,t\n" + row).fields().at("t"), (std::vector<float>{4})) << row;
  }
  for (std::string const row : {"1,5 2,5 3,5\n", "1,5, 2,5, 3,5\n", "1,5;2,5;3,5\n", "1,5\t2\t3\n"}) {
    expectError([&] { parse(row); }, "decimal commas");
  }
  expectError([&] { parse("x y z\nx y z\n1 2 3\n"); }, "'x' is no number");
}

TEST_F(XyzFile, TakesWhatProgramsWriteAndSaysWhatItConcludes) {
  GraphicObject object;
  EXPECT_EQ(said([&] { object = parse("2\n\n 1;2;3\t\r\n// between\n4 5 6\r\n"); }), "");
  EXPECT_EQ(object.vertices(), (std::vector<cv::Vec3f>{{1, 2, 3}, {4, 5, 6}}));

  EXPECT_EQ(said([&] { object = parse("//Z Y X Intensity\n1 2 3 0.5\n4 5 6 7\n"); }), "");
  EXPECT_EQ(object.vertices()[1], cv::Vec3f(6, 5, 4));
  EXPECT_EQ(object.fields().at("Intensity"), (std::vector<float>{0.5F, 7}));

  EXPECT_EQ(said([&] { object = parse("x,y,z,t\n1,2,3,4\n"); }), "");
  EXPECT_EQ(object.fields().at("t"), std::vector<float>{4});

  std::string const conclusion =
      said([&] { object = parse("1 2 3 255 0 7 0.6 0 0.8 9\n4 5 6 1 1 1 0 1 0 -9\n"); });
  EXPECT_NE(conclusion.find("4 to 6 as colours, 7 to 9 as normals, 10 as the field column_10"),
            std::string::npos)
      << conclusion;
  EXPECT_EQ(object.colors()[0], cv::Vec4b(255, 0, 7, 255));
  EXPECT_EQ(object.normals()[1], cv::Vec3f(0, 1, 0));
  EXPECT_EQ(object.fields().at("column_10")[1], -9.0F);
  // Names for another number of columns, and comments that name nothing, say nothing.
  EXPECT_NE(
      said([&] { object = parse("# x y z\n# of the part\n1 2 3 0.5\n"); }).find("4 as the field column_4"),
      std::string::npos);

  expectError([&] { parse("# nothing\n"); }, "it has no points");
  expectError([&] { parse("1 2 3\n4 5\n"); }, "line 2: a point needs three numbers, not 2");
  expectError([&] { parse("1 2 3\n4 5 6 7\n"); }, "line 2: 4 numbers where the points before have 3");
  expectError([&] { parse("x,y,w\n1,2,3\n"); }, "line 1: 'x' is no number");
}

TEST_F(XyzFile, RefusesDecimalCommas) {
  for (char const* const line :
       {"1,5;2,5;3,25", "1,5 2,5 3,25", "1,5\t2,5\t3,25", "1,5, 2,5, 3,25", "1,234.5 2,345.5 3,456.5",
        "1.234,5 2.345,5 3.456,5", "1.234,5, 2.345,5, 3.456,5"}) {
    expectError([&] { parse(std::string("0 0 0\n") + line + "\n"); }, "line 2: a comma between digits");
  }
  // Commas between all numbers, blanks around them, and commas of names and remarks are none.
  EXPECT_EQ(parse("1.5, 2.5,3.5\n0.5, 1.5,2.25\n").vertices(),
            (std::vector<cv::Vec3f>{{1.5F, 2.5F, 3.5F}, {0.5F, 1.5F, 2.25F}}));
  EXPECT_EQ(parse("# 1,5 mm apart\n 1,2,3 \r\n4, -5 ,6\n").vertices(),
            (std::vector<cv::Vec3f>{{1, 2, 3}, {4, -5, 6}}));
}

TEST_F(XyzFile, EmptyFieldsStayTheirColumns) {
  for (char const* const text :
       {"x,y,z,i,q\n1,2,3,,7\n4,5,6,8,\n,,9,1,2\n,,,,\n", "1;2;3; ;7\n4;5;6;8;\n; ;9;1;2\n"}) {
    GraphicObject object;
    std::string const conclusion = said([&] { object = parse(text); });
    bool const isNamed = text[0] == 'x';
    EXPECT_EQ(conclusion.empty(), isNamed) << conclusion;
    ASSERT_EQ(object.vertices().size(), 3U);
    EXPECT_EQ(object.vertices()[0], cv::Vec3f(1, 2, 3));
    EXPECT_TRUE(std::isnan(object.vertices()[2][0]) && std::isnan(object.vertices()[2][1]));
    EXPECT_EQ(object.vertices()[2][2], 9);
    ASSERT_EQ(object.fields().size(), 2U);
    std::vector<float> const& i = object.fields().at(isNamed ? "i" : "column_4");
    std::vector<float> const& q = object.fields().at(isNamed ? "q" : "column_5");
    EXPECT_TRUE(std::isnan(i[0]));
    EXPECT_EQ(i[1], 8);
    EXPECT_EQ(q[0], 7);
    EXPECT_TRUE(std::isnan(q[1]));
  }
  // A separator behind every line is no column.
  EXPECT_TRUE(parse("x,y,z\n1,2,3,\n").fields().empty());
}

TEST_F(XyzFile, HeadingsFitTheirColumnsOrAreErrors) {
  expectError([&] { parse("x,y,z,i\n# of the part\n1,2,3\n"); },
              "line 3: 3 numbers under a heading of 4 columns");
  expectError([&] { parse("x y z\n1 2 3 4\n"); }, "line 2: 4 numbers under a heading of 3 columns");
  GraphicObject object;
  EXPECT_EQ(said([&] { object = parse("\xEF\xBB\xBF,x,y,z,phase error\n0,1,2,3,4\n"); }), "");
  EXPECT_EQ(object.vertices()[0], cv::Vec3f(1, 2, 3))
      << "behind a byte order mark and a column without a name";
  ASSERT_EQ(object.fields().size(), 1U);
  EXPECT_EQ(object.fields().at("phase error"), std::vector<float>{4});
  EXPECT_EQ(parse("\xEF\xBB\xBF"
                  "1 2 3\n")
                .vertices()[0],
            cv::Vec3f(1, 2, 3));
}
