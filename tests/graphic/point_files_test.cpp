// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>

#include <vorn/core/system.hpp>
#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/pcd_file.hpp>
#include <vorn/graphic/stl_file.hpp>
#include <vorn/graphic/xyz_file.hpp>

#include "support/expect_error.hpp"
#include "support/file_content.hpp"
#include "support/graphic_objects.hpp"
#include "support/temporary_folder.hpp"

using namespace vorn::graphic;
using vorn::test::Alpha;
using vorn::test::expectError;
using vorn::test::expectSameBits;

namespace {

/// Points with everything that a table holds.
GraphicObject table(int count, Alpha alpha) {
  GraphicObject object = vorn::test::fullObject(count, alpha);
  object.triangles().clear();
  for (char const* const name : {"sigma", "rgb", "X", "scalar_sigma", "normal_y", "phase error"}) {
    for (cv::Vec3f const& vector : vorn::test::hardVectors(count)) {
      object.fields()[name].push_back(vector[0]);
    }
  }
  return object;
}

void expectSameTable(GraphicObject const& actual, GraphicObject expected) {
  auto renamed = expected.fields().extract("phase error");
  renamed.key() = "phase_error";
  expected.fields().insert(std::move(renamed));
  expectSameBits(actual, expected);
  ASSERT_EQ(actual.fields().size(), expected.fields().size());
  for (auto const& [name, values] : expected.fields()) {
    ASSERT_EQ(actual.fields().count(name), 1U) << name;
    ASSERT_EQ(actual.fields().at(name).size(), values.size()) << name;
    EXPECT_EQ(std::memcmp(actual.fields().at(name).data(), values.data(), values.size() * sizeof(float)), 0)
        << name;
  }
}

template <class File>
class PointFile : public testing::Test {
protected:
  static std::string path(std::string const& name = "a") { return folder() / name; }
  static GraphicObject parse(std::string const& content) {
    vorn::test::put(path("parsed"), content);
    return File().read(path("parsed"));
  }

private:
  static vorn::test::TemporaryFolder const& folder() {
    static vorn::test::TemporaryFolder const shared;
    return shared;
  }
};

using PcdFile = PointFile<PCDFile>;
using XyzFile = PointFile<XYZFile>;

std::string pcdHeader(std::string const& fields, std::string const& sizes, std::string const& types,
                      std::string const& end) {
  return "# made elsewhere\nVERSION .7\nFIELDS " + fields + "\nSIZE " + sizes + "\nTYPE " + types + "\n" +
         end;
}

std::string bytesOf(std::vector<float> const& values) {
  return {reinterpret_cast<char const*>(values.data()), values.size() * sizeof(float)};
}

void appendNumber(std::string& to, std::uint32_t number) {
  to.append(reinterpret_cast<char const*>(&number), sizeof number);
}

/// What System::message says while something is done.
template <class Action>
std::string said(Action const& action) {
  std::string text;
  vorn::System::setMessageSink([&](std::string const& message) { text += message; });
  action();
  vorn::System::setMessageSink({});
  return text;
}

} // namespace

TEST_F(PcdFile, EveryFormatKeepsEveryBit) {
  for (auto const format : {PCDFile::Format::Binary, PCDFile::Format::Ascii}) {
    for (auto const alpha : {Alpha::Opaque, Alpha::Varied}) {
      constexpr int moreThanOneWindow = 9000;
      GraphicObject object = table(moreThanOneWindow, alpha);
      PCDFile(format).write(path(), object);
      expectSameTable(PCDFile().read(path()), object);
    }
    GraphicObject far;
    far.vertices() = {{1, 2, 3}, {4.5F, 5, 6}};
    far.offset() = {3512345.125, -1e7, 0};
    PCDFile(format).write(path(), far);
    GraphicObject const found = PCDFile().read(path());
    for (std::size_t i = 0; i < 2; ++i) {
      EXPECT_EQ(found.offset() + cv::Vec3d(found.vertices()[i]), far.offset() + cv::Vec3d(far.vertices()[i]));
    }
    PCDFile(format).write(path(), GraphicObject());
    EXPECT_TRUE(PCDFile().read(path()).isEmpty());
  }
}

TEST_F(PcdFile, TakesColoursAsEveryProgramPacksThem) {
  // Red 0x40, green 0x41, blue 0x3F: as a whole number, and as the float that has these bits.
  cv::Vec4b const expected(0x40, 0x41, 0x3F, 255);
  std::uint32_t const packed = 0x0040413F;
  float asFloat = 0;
  std::memcpy(&asFloat, &packed, sizeof packed);
  std::ostringstream text;
  text.precision(9);
  text << asFloat;
  for (std::string const& color : {std::to_string(packed), text.str()}) {
    GraphicObject const object = parse(
        pcdHeader("rgb x y z", "4 4 4 4", "F F F F", "WIDTH 1\nHEIGHT 1\nDATA ascii\n") + color + " 1 2 3\n");
    ASSERT_TRUE(object.hasColors()) << color;
    EXPECT_EQ(object.colors()[0], expected) << color;
    EXPECT_TRUE(object.fields().empty());
  }
  // Opaque alpha makes a float that is no number; its bits must survive, also where it is a signalling one.
  for (std::uint32_t const bits : {0xFF81020FU, 0xFFC1020FU, 0x8081020FU}) {
    std::string bytes = bytesOf({1, 2, 3});
    appendNumber(bytes, bits);
    for (char const* const name : {"rgb", "rgba"}) {
      GraphicObject const object = parse(
          pcdHeader(std::string("x y z ") + name, "4 4 4 4", "F F F F", "POINTS 1\nDATA binary\n") + bytes);
      auto const alpha = static_cast<uchar>(bits >> 24U);
      EXPECT_EQ(object.colors()[0], cv::Vec4b(static_cast<uchar>(bits >> 16U), 2, 15,
                                              std::string(name) == "rgba" ? alpha : uchar{255}));
    }
  }
}

TEST_F(PcdFile, TakesFieldsOfAnyTypeAndNumberAndRowsOfPoints) {
  std::string const header =
      pcdHeader("y _ x label z hist", "8 1 4 2 4 1", "F U F U F I",
                "COUNT 1 3 1 1 1 2\nWIDTH 2\nHEIGHT 2\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS 4\n");
  std::string bytes;
  std::string text;
  for (int i = 0; i < 4; ++i) {
    auto const add = [&](auto value) { bytes.append(reinterpret_cast<char const*>(&value), sizeof value); };
    add(0.5 * i);
    bytes += "abc";
    add(static_cast<float>(i));
    add(static_cast<std::uint16_t>(65535 - i));
    add(i == 3 ? NAN : 7.0F);
    add(static_cast<std::int8_t>(-i));
    add(static_cast<std::int8_t>(i));
    text += std::to_string(0.5 * i) + " 97 98 99 " + std::to_string(i) + ' ' + std::to_string(65535 - i) +
            (i == 3 ? " nan " : " 7 ") + std::to_string(-i) + ' ' + std::to_string(i) + '\n';
  }
  for (std::string const& content : {header + "DATA binary\n" + bytes, header + "DATA ascii\n" + text}) {
    GraphicObject const object = parse(content);
    ASSERT_EQ(object.vertices().size(), 4U);
    EXPECT_EQ(object.vertices()[2], cv::Vec3f(2, 1, 7));
    EXPECT_TRUE(std::isnan(object.vertices()[3][2])) << "a hole of the grid stays";
    ASSERT_EQ(object.fields().size(), 3U);
    EXPECT_EQ(object.fields().at("label")[1], 65534.0F);
    EXPECT_EQ(object.fields().at("hist_0")[3], -3.0F);
    EXPECT_EQ(object.fields().at("hist_1")[3], 3.0F);
  }
}

TEST_F(PcdFile, UnpacksCompressedColumns) {
  // Three columns of eight floats: ramps written as they are, and a column of zeros by a repetition that runs
  // into itself, then all of the first column by a repetition from 64 bytes back.
  std::vector<float> const ramp = {1, 2, 3, 4, 5, 6, 7, 8};
  std::string packed = std::string(1, 31) + bytesOf(ramp);
  packed += std::string(2, '\0');                                  // one zero as it is
  packed += std::string{char(7 << 5), char(31 - 2 - 7), '\0'};     // 31 bytes from 1 back
  packed += std::string{char(7 << 5), char(32 - 2 - 7), char(63)}; // 32 bytes from 64 back
  std::string const header =
      pcdHeader("x y z", "4 4 4", "F F F", "WIDTH 8\nHEIGHT 1\nPOINTS 8\nDATA binary_compressed\n");
  auto const file = [&](std::uint32_t compressed, std::uint32_t size, std::string const& data) {
    std::string content = header;
    appendNumber(content, compressed);
    appendNumber(content, size);
    return content + data;
  };
  auto const length = static_cast<std::uint32_t>(packed.size());
  GraphicObject const object = parse(file(length, 96, packed));
  ASSERT_EQ(object.vertices().size(), 8U);
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(object.vertices()[i], cv::Vec3f(ramp[i], 0, ramp[i]));
  }
  expectError([&] { parse(file(length, 96, packed.substr(1) + "x")); }, "the compressed points are damaged");
  expectError([&] { parse(file(length + 1, 96, packed)); }, "the file ends within its compressed points");
  expectError([&] { parse(file(length, 84, packed)); }, "do not fit the header");
  expectError([&] { parse(file(length - 3, 96, packed)); }, "the compressed points are damaged");
}

TEST_F(PcdFile, CompressedFieldsOfSeveralNumbersStandPointByPoint) {
  constexpr int points = 5;
  std::string const fields = pcdHeader("d x _ y h z", "8 4 1 4 2 4", "F F U F U F",
                                       "COUNT 2 1 3 1 3 1\nWIDTH 5\nHEIGHT 1\nPOINTS 5\n");
  std::string blocks;
  auto const add = [&](auto value) { blocks.append(reinterpret_cast<char const*>(&value), sizeof value); };
  auto const addBlock = [&](int count, auto const& valueOf) {
    for (int point = 0; point < points; ++point) {
      for (int k = 0; k < count; ++k) {
        add(valueOf(point, k));
      }
    }
  };
  addBlock(2, [](int point, int k) { return 10.0 * point + k; });
  addBlock(1, [](int point, int) { return 1.5F * static_cast<float>(point); });
  addBlock(3, [](int, int) { return 'p'; });
  addBlock(1, [](int point, int) { return -static_cast<float>(point); });
  addBlock(3, [](int point, int k) { return static_cast<std::uint16_t>(1000 * point + k); });
  addBlock(1, [](int, int) { return 7.0F; });
  std::string packed;
  for (std::size_t i = 0; i < blocks.size(); i += 32) {
    std::string const piece = blocks.substr(i, 32);
    packed += static_cast<char>(piece.size() - 1) + piece;
  }
  std::string content = fields + "DATA binary_compressed\n";
  appendNumber(content, static_cast<std::uint32_t>(packed.size()));
  appendNumber(content, static_cast<std::uint32_t>(blocks.size()));
  GraphicObject const object = parse(content + packed);
  ASSERT_EQ(object.vertices().size(), 5U);
  ASSERT_EQ(object.fields().size(), 5U);
  for (std::size_t i = 0; i < points; ++i) {
    auto const point = static_cast<float>(i);
    EXPECT_EQ(object.vertices()[i], cv::Vec3f(1.5F * point, -point, 7));
    for (int k = 0; k < 3; ++k) {
      auto const number = static_cast<float>(k);
      EXPECT_EQ(object.fields().at("h_" + std::to_string(k))[i], 1000 * point + number);
      if (k < 2) {
        EXPECT_EQ(object.fields().at("d_" + std::to_string(k))[i], 10 * point + number);
      }
    }
  }
}

TEST_F(PcdFile, DamagedFilesAreNamedWithPlaceAndReason) {
  auto const plain = [](std::string const& end) { return pcdHeader("x y z", "4 4 4", "F F F", end); };
  expectError([&] { parse("x y z\n"); }, "line 1: unknown keyword 'x' in the header");
  expectError([&] { parse(plain("POINTS 1\n")); }, "it is no PCD file");
  expectError([&] { parse(plain("POINTS -1\nDATA ascii\n")); }, "line 6: 'POINTS' needs a whole number");
  expectError([&] { parse(plain("WIDTH 3\nHEIGHT 2\nPOINTS 5\nDATA ascii\n")); }, "5 POINTS in 2 rows of 3");
  expectError([&] { parse(plain("POINTS 99\nDATA binary\nabc")); },
              "99 points of at least 12 bytes, but only 3");
  expectError([&] { parse(plain("POINTS 1\nDATA ascii\n1 2\n3")); }, "line 8: the value of 'z' is missing");
  expectError([&] { parse(plain("POINTS 1\nDATA ascii\n1 2 z")); }, "line 8: 'z' is no value of 'z'");
  expectError([&] { parse(plain("POINTS 1\nDATA ascii\n1 2 3 4")); }, "unexpected '4'");
  expectError([&] { parse(plain("POINTS 1\nDATA png\n")); }, "unknown kind of DATA 'png'");
  expectError([&] { parse(pcdHeader("x y", "4 4", "F F", "POINTS 1\nDATA ascii\n1 2\n")); },
              "lack x, y or z");
  expectError([&] { parse(pcdHeader("x y z", "4 4 8", "F F I", "POINTS 1\nDATA ascii\n1 2 3\n")); },
              "of type 'I' and 8 bytes is unknown");
  expectError([&] { parse(pcdHeader("x y z", "4 4", "F F F", "POINTS 1\nDATA ascii\n1 2 3\n")); },
              "other numbers of FIELDS, SIZE");
  // The most numbers that a point may have, and one more.
  auto const wide = [](int columns) {
    return pcdHeader("x y z h", "4 4 4 4", "F F F F",
                     "COUNT 1 1 1 " + std::to_string(columns - 3) + "\nPOINTS 1\nDATA binary\n") +
           bytesOf(std::vector<float>(static_cast<std::size_t>(columns), 1.5F));
  };
  EXPECT_EQ(parse(wide(4096)).fields().size(), 4093U);
  expectError([&] { parse(wide(4097)); }, "more than 4096 numbers");
}

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
  EXPECT_EQ(colorsOf("0 0 0 0 1 1\n1 0 0 0 1 0\n"), Colors({{0, 1, 1, 255}, {0, 1, 0, 255}}));
}

TEST_F(XyzFile, TakesTheHeadingsOfOrdinaryExports) {
  for (std::string const heading :
       {"X [mm],Y [mm],Z [mm]\n1,2,3\n", "X[mm] Y[mm] Z[mm]\n1 2 3\n", "x (m) y (m) z (m)\n1 2 3\n",
        "# exported columns: x y z\nx y z\n1 2 3\n", "# x y z t\nx;y;z\n1;2;3\n"}) {
    GraphicObject object;
    EXPECT_EQ(said([&] { object = parse(heading); }), "") << heading;
    EXPECT_EQ(object.vertices(), (std::vector<cv::Vec3f>{{1, 2, 3}})) << heading;
    EXPECT_TRUE(object.fields().empty()) << heading;
  }
  GraphicObject const tabs = parse("x\ty\tz\tconfidence value\n1\t2\t3\t0.5\n");
  EXPECT_EQ(tabs.fields().at("confidence value"), (std::vector<float>{0.5F}));
  EXPECT_EQ(parse("x,y,z,depth [m]\n1,2,3,4\n").fields().count("depth [m]"), 1U);
  // A blank beside a comma separates no more than the comma, unless it may stand between decimals.
  for (std::string const row : {"1,2,3, 4\n", "1, 2, 3, 4\n", "1 , 2 , 3 , 4\n", "1,2, 3,4\n"}) {
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
       {"1,5;2,5;3,25", "1,5 2,5 3,25", "1,5\t2,5\t3,25", "1,5, 2,5, 3,25", "1,234.5 2,345.5 3,456.5"}) {
    expectError([&] { parse(std::string("0 0 0\n") + line + "\n"); }, "line 2: a comma between digits");
  }
  // Commas between all numbers, blanks around them, and commas of names and remarks are none.
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
