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

#include <vorn/graphic/pcd_file.hpp>

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

using PcdFile = vorn::test::PointFile<PCDFile>;

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

/// Whether points have been moved by it, programs do not agree.
TEST_F(PcdFile, SaysThatPointsAreNotMovedByAViewpoint) {
  auto const parsed = [&](std::string const& pose) {
    GraphicObject object;
    std::string const text = said([&] {
      object = parse(
          pcdHeader("x y z", "4 4 4", "F F F", "WIDTH 1\nHEIGHT 1\nVIEWPOINT " + pose + "\nDATA ascii\n") +
          "1 2 3\n");
    });
    EXPECT_EQ(object.vertices(), (std::vector<cv::Vec3f>{{1, 2, 3}}));
    return text;
  };
  EXPECT_EQ(parsed("0 0 0 1 0 0 0"), "");
  EXPECT_EQ(parsed("0.0 0 0 1.0 0 0 0"), "");
  std::string const text = parsed("0 0 10 0.7 0.7 0 0");
  EXPECT_NE(text.find("not moved by its VIEWPOINT 0 0 10 0.7 0.7 0 0"), std::string::npos) << text;
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
