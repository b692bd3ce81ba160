// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/ply_file.hpp>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>

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
  vorn::test::put(folder / "test.ply", content);
  return PLYFile().read((folder / "test.ply").string());
}

std::string const xyz = "property float x\nproperty float y\nproperty float z\n";

/// The bytes of numbers in a binary file of either byte order.
class Bytes {
public:
  explicit Bytes(bool bigEndian) : bigEndian_(bigEndian) {}

  template <class T>
  Bytes& add(T value) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    if (bigEndian_) {
      std::reverse(bytes.begin(), bytes.end());
    }
    text_ += bytes;
    return *this;
  }
  std::string const& text() const { return text_; }

private:
  bool bigEndian_;
  std::string text_;
};

} // namespace

TEST(PLYFile, EveryFormatKeepsEveryBit) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.ply").string();
  for (auto const format :
       {PLYFile::Format::BinaryLittleEndian, PLYFile::Format::BinaryBigEndian, PLYFile::Format::Ascii}) {
    PLYFile const file(format);
    constexpr int moreThanOneWindow = 20000;
    for (auto const alpha : {Alpha::Opaque, Alpha::Varied}) {
      GraphicObject object = fullObject(moreThanOneWindow, alpha);
      file.write(path, object);
      expectSameBits(file.read(path), object);
      object.colors().clear();
      object.triangles().clear();
      file.write(path, object);
      expectSameBits(file.read(path), object);
      object.normals().clear();
      object.vertices().resize(1);
      file.write(path, object);
      expectSameBits(file.read(path), object);
    }
    file.write(path, GraphicObject());
    EXPECT_TRUE(file.read(path).isEmpty());
  }
}

TEST(PLYFile, TakesPropertiesInAnyOrderAndElementsInBetween) {
  GraphicObject const object =
      parse("ply\r\nformat ascii 1.0\r\ncomment made by hand\r\nobj_info none\r\n"
            "element camera 1\r\nproperty list uchar float view\r\nproperty int id\r\n"
            "element vertex 2\r\nproperty uchar diffuse_blue\r\nproperty float nz\r\n"
            "property double z\r\nproperty list int int tags\r\nproperty short y\r\n"
            "property float confidence\r\nproperty int x\r\nproperty float ny\r\n"
            "property float nx\r\nproperty uchar diffuse_red\r\n"
            "property uchar diffuse_green\r\nelement empty 1000000000000\r\n"
            "element face 1\r\nproperty list uchar int vertex_index\r\nend_header\r\n"
            "2 0.5 0.25 7\r\n"
            "3 0.5 1e-3 2 8 9 -4 nan 17 0.25 0.125 1 2\r\n"
            "\r\n"
            "  6 -INF +inf 0 -5 1 18 NaN -nan 4 5  \r\n"
            "3 0 1 0");
  ASSERT_EQ(object.vertices().size(), 2U);
  EXPECT_EQ(object.vertices()[0], cv::Vec3f(17, -4, 1e-3F));
  EXPECT_EQ(object.vertices()[1], cv::Vec3f(18, -5, INFINITY));
  EXPECT_EQ(object.normals()[0], cv::Vec3f(0.125F, 0.25F, 0.5F));
  EXPECT_TRUE(std::isnan(object.normals()[1][0]) && std::isnan(object.normals()[1][1]));
  EXPECT_EQ(object.normals()[1][2], -INFINITY);
  EXPECT_EQ(object.colors()[0], cv::Vec4b(1, 2, 3, 255));
  EXPECT_EQ(object.colors()[1], cv::Vec4b(4, 5, 6, 255));
  EXPECT_EQ(object.triangles(), std::vector<cv::Vec3i>({{0, 1, 0}}));
}

TEST(PLYFile, TakesEveryScalarTypeInBothByteOrders) {
  for (bool const bigEndian : {false, true}) {
    std::string const header =
        std::string("ply\nformat binary_") + (bigEndian ? "big" : "little") +
        "_endian 1.0\nelement extra 2\nproperty list uint16 double values\nproperty int8 a\n"
        "element vertex 2\nproperty char x\nproperty float64 y\nproperty uint16 z\n"
        "property int32 nx\nproperty uint ny\nproperty short nz\n"
        "property float red\nproperty double green\nproperty int64_is_not_there blue\n";
    expectError([&] { parse(header + "end_header\n"); },
                "line 15: unknown property type 'int64_is_not_there'");

    Bytes bytes(bigEndian);
    bytes.add(std::uint16_t{1}).add(0.5).add(std::int8_t{1}).add(std::uint16_t{0}).add(std::int8_t{1});
    for (int row = 0; row < 2; ++row) {
      bytes.add(std::int8_t{-7}).add(1.5).add(std::uint16_t{65535}).add(std::int32_t{-70000});
      bytes.add(std::uint32_t{4000000000U}).add(std::int16_t{-300});
      bytes.add(row == 0 ? 0.5F : -1.0F)
          .add(row == 0 ? 2.0 : NAN)
          .add(row == 0 ? 128 : 300)
          .add(std::uint8_t{9});
    }
    std::string const complete = header.substr(0, header.find("property int64")) +
                                 "property int blue\nproperty uchar alpha\nend_header\n" + bytes.text();
    GraphicObject const object = parse(complete);
    ASSERT_EQ(object.vertices().size(), 2U);
    EXPECT_EQ(object.vertices()[1], cv::Vec3f(-7, 1.5F, 65535));
    EXPECT_EQ(object.normals()[1], cv::Vec3f(-70000, 4e9F, -300));
    EXPECT_EQ(object.colors()[0], cv::Vec4b(128, 255, 128, 9));
    EXPECT_EQ(object.colors()[1], cv::Vec4b(0, 0, 255, 9));
    expectError([&] { parse(complete.substr(0, complete.size() - 1)); },
                "the file ends within the rows of 'vertex'");
  }
}

TEST(PLYFile, ColoursOfFloatsAreSharesAndOfIntegersBytes) {
  std::string const start = "ply\nformat ascii 1.0\nelement vertex 1\n" + xyz;
  for (std::string const type : {"float", "double"}) {
    GraphicObject const object = parse(start + "property " + type + " red\nproperty " + type +
                                       " green\nproperty uchar blue\nend_header\n1 2 3 1.0 0.4 77\n");
    ASSERT_TRUE(object.hasColors());
    EXPECT_EQ(object.colors()[0], cv::Vec4b(255, 102, 77, 255)) << type;
  }
}

TEST(PLYFile, ColorsOf16BitsAreOf65535) {
  std::string const header = " 1.0\nelement vertex 1\n" + xyz +
                             "property ushort red\nproperty ushort green\nproperty ushort blue\nend_header\n";
  std::vector<cv::Vec4b> const expected{{255, 128, 1, 255}};
  EXPECT_EQ(parse("ply\nformat ascii" + header + "0 0 0 65535 32896 257\n").colors(), expected);
  Bytes bytes(false);
  bytes.add(0.0F)
      .add(0.0F)
      .add(0.0F)
      .add(std::uint16_t{65535})
      .add(std::uint16_t{32896})
      .add(std::uint16_t{257});
  EXPECT_EQ(parse("ply\nformat binary_little_endian" + header + bytes.text()).colors(), expected);
}

/// Programs write 0..255 in floats and in 16 bits, too: all of a file's colours tell.
TEST(PLYFile, ScalesOfColorsAreThoseOfAllOfThem) {
  using Colors = std::vector<cv::Vec4b>;
  for (bool const isBinary : {false, true}) {
    auto const colorsOf = [&](auto typed, std::vector<double> const& values) {
      using T = decltype(typed);
      std::string const type = std::is_same_v<T, float>    ? "float"
                               : std::is_same_v<T, double> ? "double"
                                                           : "ushort";
      std::string const header = std::string("ply\nformat ") + (isBinary ? "binary_little_endian" : "ascii") +
                                 " 1.0\nelement vertex " + std::to_string(values.size() / 3) + "\n" + xyz +
                                 "property " + type + " red\nproperty " + type + " green\nproperty " + type +
                                 " blue\nend_header\n";
      std::ostringstream text;
      Bytes bytes(false);
      for (std::size_t i = 0; i < values.size(); i += 3) {
        text << "0 0 0 " << values[i] << ' ' << values[i + 1] << ' ' << values[i + 2] << '\n';
        bytes.add(0.0F).add(0.0F).add(0.0F).add(T(values[i])).add(T(values[i + 1])).add(T(values[i + 2]));
      }
      return parse(header + (isBinary ? bytes.text() : text.str())).colors();
    };
    std::vector<double> const byteValues{255, 128, 0, 1, 0, 64};
    Colors const byteColors{{255, 128, 0, 255}, {1, 0, 64, 255}};
    EXPECT_EQ(colorsOf(float{}, byteValues), byteColors);
    EXPECT_EQ(colorsOf(double{}, byteValues), byteColors);
    EXPECT_EQ(colorsOf(std::uint16_t{}, byteValues), byteColors);
    EXPECT_EQ(colorsOf(std::uint16_t{}, {0, 0, 0, 0, 40000, 200}),
              Colors({{0, 0, 0, 255}, {0, 156, 1, 255}}));
    EXPECT_EQ(colorsOf(std::uint16_t{}, {200, 100, 50, 200, 4000, 200, 100, 50, 20}).at(1),
              cv::Vec4b(1, 16, 1, 255))
        << "most of what is dark is below 256";
    EXPECT_EQ(colorsOf(float{}, {0, 1, 0, 1, 1.5, 0}), Colors({{0, 255, 0, 255}, {255, 255, 0, 255}}));
    std::vector<double> stray;
    for (int i = 0; i < 10; ++i) {
      stray.insert(stray.end(), {0.25, 0.5, 1.0});
    }
    stray.insert(stray.end(), {300.0, 0.5, 0.0});
    EXPECT_EQ(colorsOf(float{}, stray).front(), cv::Vec4b(64, 128, 255, 255));
    EXPECT_EQ(colorsOf(float{}, stray).back(), cv::Vec4b(255, 128, 0, 255));
  }
}

// Of the scale of the colours, 1 of 255 would leave nothing to see, and 255 of 1 make all of them dark.
TEST(PLYFile, AlphaHasItsOwnScale) {
  std::string const header = "ply\nformat ascii 1.0\nelement vertex 2\n" + xyz +
                             "property float red\nproperty float green\nproperty float blue\n" +
                             "property float alpha\nend_header\n";
  using Colors = std::vector<cv::Vec4b>;
  EXPECT_EQ(parse(header + "0 0 0 255 128 7 1\n0 0 0 3 4 5 1\n").colors(),
            Colors({{255, 128, 7, 255}, {3, 4, 5, 255}}));
  EXPECT_EQ(parse(header + "0 0 0 0.5 0.25 1 255\n0 0 0 0.125 0.75 0.5 255\n").colors(),
            Colors({{128, 64, 255, 255}, {32, 191, 128, 255}}));
}

TEST(PLYFile, NormalsGoByTwoNames) {
  std::string const start = "ply\nformat ascii 1.0\nelement vertex 1\n" + xyz;
  std::string const names = "property float normal_x\nproperty float normal_y\nproperty float normal_z\n";
  GraphicObject const object = parse(start + names + "end_header\n1 2 3 0 0 1\n");
  EXPECT_EQ(object.normals(), std::vector<cv::Vec3f>({{0, 0, 1}}));
  EXPECT_TRUE(object.fields().empty());
  GraphicObject const both = parse(start + "property float nx\nproperty float ny\nproperty float nz\n" +
                                   names + "end_header\n1 2 3 0 1 0 0 0 1\n");
  EXPECT_EQ(both.normals(), std::vector<cv::Vec3f>({{0, 1, 0}}));
  EXPECT_EQ(both.fields().at("normal_z"), std::vector<float>({1}));
}

TEST(PLYFile, PolygonsAndStripsBecomeTriangles) {
  std::string const start = "ply\nformat ascii 1.0\nelement vertex 6\n" + xyz;
  std::string const points = "end_header\n0 0 0\n1 0 0\n1 1 0\n0 1 0\n2 0 0\n2 1 0\n";
  EXPECT_EQ(parse(start + "element face 3\nproperty uchar flag\nproperty list uchar uint vertex_indices\n" +
                  points + "1 5 0 1 2 3 4\n0 2 1 0\n1 3 5 4 3\n")
                .triangles(),
            std::vector<cv::Vec3i>({{0, 1, 2}, {0, 2, 3}, {0, 3, 4}, {5, 4, 3}}));
  EXPECT_EQ(parse(start + "element tristrips 1\nproperty list int int vertex_indices\n" + points +
                  "9 0 1 2 3 -1 3 4 5 5\n")
                .triangles(),
            std::vector<cv::Vec3i>({{0, 1, 2}, {2, 1, 3}, {3, 4, 5}}));
  // A dart: of its two triangles none may lie outside.
  EXPECT_EQ(parse("ply\nformat ascii 1.0\nelement vertex 4\n" + xyz +
                  "element face 1\nproperty list uchar int vertex_indices\nend_header\n"
                  "0 4 0\n-4 0 0\n0 1 0\n4 0 0\n4 3 0 1 2\n")
                .triangles(),
            std::vector<cv::Vec3i>({{2, 3, 0}, {0, 1, 2}}));
}

TEST(PLYFile, ListsInVerticesAndFacesBeforeThem) {
  Bytes bytes(false);
  bytes.add(std::int32_t{3}).add(1.0F).add(0.0F).add(2.0F);
  for (std::uint8_t row = 0; row < 3; ++row) {
    bytes.add(row);
    for (std::uint8_t value = 0; value < row; ++value) {
      bytes.add(std::int16_t{-1});
    }
    bytes.add(static_cast<float>(row)).add(1.0F).add(2.0F);
  }
  std::string const header = "ply\nformat binary_little_endian 1.0\nelement face 1\n"
                             "property list int float vertex_indices\nelement vertex 3\n"
                             "property list uchar short neighbours\n" +
                             xyz + "end_header\n";
  GraphicObject const object = parse(header + bytes.text());
  EXPECT_EQ(object.vertices(), std::vector<cv::Vec3f>({{0, 1, 2}, {1, 1, 2}, {2, 1, 2}}));
  EXPECT_EQ(object.triangles(), std::vector<cv::Vec3i>({{1, 0, 2}}));
  for (std::size_t size = 0; size < bytes.text().size(); ++size) {
    expectError([&] { parse(header + bytes.text().substr(0, size)); }, "test.ply");
  }
}

TEST(PLYFile, ComponentsInMixedOrderAndTypes) {
  Bytes bytes(false);
  for (float const value : {1.0F, 3.0F, 2.0F, 4.0F}) {
    bytes.add(value);
  }
  bytes.add(5.0).add(6.0F);
  GraphicObject const object =
      parse("ply\nformat binary_little_endian 1.0\nelement vertex 1\n"
            "property float x\nproperty float z\nproperty float y\nproperty float nx\n"
            "property double ny\nproperty float nz\nend_header\n" +
            bytes.text());
  EXPECT_EQ(object.vertices()[0], cv::Vec3f(1, 2, 3));
  EXPECT_EQ(object.normals()[0], cv::Vec3f(4, 5, 6));
}

TEST(PLYFile, LastLineWithoutAnEnd) {
  constexpr int moreThanOneWindow = 20000;
  std::string content = "ply\nformat ascii 1.0\nelement vertex 20001\n" + xyz + "end_header\n";
  for (int row = 0; row < moreThanOneWindow; ++row) {
    content += "1111111 1111111 1111111\n";
  }
  // It is shorter than the lines before, so that digits of one of them stand behind it in the window.
  EXPECT_EQ(parse(content + "2 2 2").vertices().back(), cv::Vec3f(2, 2, 2));
}

TEST(PLYFile, ClassicMacLineEnds) {
  std::string header = "ply\nformat binary_big_endian 1.0\nelement vertex 1\n" + xyz + "end_header\n";
  std::replace(header.begin(), header.end(), '\n', '\r');
  EXPECT_EQ(parse(header + Bytes(true).add(1.0F).add(2.0F).add(3.0F).text()).vertices()[0],
            cv::Vec3f(1, 2, 3));
}

TEST(PLYFile, DamagedFilesAreNamedWithPlaceAndReason) {
  std::string const format = "ply\nformat ascii 1.0\n";
  std::string const points = format + "element vertex 2\n" + xyz + "end_header\n";
  std::string const mesh =
      format + "element vertex 3\n" + xyz +
      "element face 1\nproperty list char int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n";
  struct Case {
    std::string content;
    char const* message;
  };
  for (Case const& damaged : std::initializer_list<Case>{
           {"", "the file is empty"},
           {"plywood\n", "it is no PLY file"},
           {"ply\n", "the header does not end"},
           {"ply\nformat ascii 2.0\n", "line 2: unknown PLY version '2.0'"},
           {"ply\nformat text 1.0\n", "line 2: unknown PLY format 'text'"},
           {"ply\nend_header\n", "line 2: the header names no format"},
           {format + "element vertex -3\n", "line 3: element 'vertex' has the negative count -3"},
           {format + "element vertex many\n", "line 3: element 'vertex' has no valid count"},
           {format + "element vertex 1 2\n", "line 3: unexpected '2'"},
           {format + "property float x\n", "line 3: a property before the first element"},
           {format + "element vertex 1\n" + xyz + "property float x\n", "line 7: 'x' is declared twice"},
           {format + "element vertex 1\nproperty list float int a\n",
            "line 4: the length of a list is no integer"},
           {format + "colour red\n", "line 3: unknown keyword 'colour'"},
           {format + "end_header\n", "it has no vertices"},
           {format + "element vertex 1\nproperty float x\nend_header\n1\n", "its vertices lack x, y or z"},
           {format + "element vertex 4000000000\n" + xyz + "end_header\n1 2 3\n",
            "the header promises 4000000000 rows of 'vertex' of at least 6 bytes, but only 7 bytes are left"},
           {points + "1 2 3\n1 2\n\n\n", "line 9: the value of 'z' is missing"},
           {points + "1 2 3\n1 2 3 4\n", "line 9: unexpected '4'"},
           {points + "1 2 3\n1 2,5 3\n", "line 9: '2,5' is no value of 'y'"},
           {points + "1 2 3\n       \n", "the file ends within the rows of 'vertex'"},
           {mesh + "3 0 1 3\n", "line 13: the vertex index 3, but there are 3 vertices"},
           {mesh + "3 0 1 -1\n", "line 13: the vertex index -1"},
           {mesh + "-3 0 1 2\n", "line 13: the list 'vertex_indices' has the negative length -3"},
           {mesh + "4 0 1 2\n", "line 13: the value of 'vertex_indices' is missing"},
       }) {
    expectError([&] { parse(damaged.content); }, damaged.message);
  }
}

TEST(PLYFile, DamagedBinaryFacesAreNamedWithTheByte) {
  constexpr int vertexCount = 100000; // more than one window
  std::string const header = "ply\nformat binary_little_endian 1.0\nelement vertex 100000\n" + xyz +
                             "element face 1\nproperty list int int vertex_indices\nend_header\n" +
                             std::string(12 * vertexCount, '\0');
  auto const faceByte = [&](int offset) { return "byte " + std::to_string(header.size() + offset) + ": "; };
  expectError([&] { parse(header + Bytes(false).add(-1).text()); }, faceByte(0) + "the list");
  expectError([&] { parse(header + Bytes(false).add(2000000000).add(0).text()); },
              faceByte(4) + "the list 'vertex_indices' of 2000000000 values goes beyond the end of the file");
  expectError([&] { parse(header + Bytes(false).add(3).add(0).add(0).add(vertexCount).text()); },
              faceByte(4) + "the vertex index 100000");
}

TEST(PLYFile, ReadsFromAPipe) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "pipe").string();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  constexpr int moreThanOneWindow = 20000;
  GraphicObject const object = fullObject(moreThanOneWindow, Alpha::Varied);
  std::thread writer([&] { PLYFile().write(path, object); });
  expectSameBits(PLYFile().read(path), object);
  writer.join();
}

TEST(PLYFile, UnusablePathsAndObjects) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.ply").string();
  expectError([&] { PLYFile().read(path); }, "Cannot open " + path + ": No such file or directory");
  expectError([&] { PLYFile().read(folder.path().string()); }, "Is a directory");
  expectError([&] { PLYFile().read("/dev/zero"); }, "it is a device");
  vorn::test::put(path, "old");
  GraphicObject object = fullObject(10, Alpha::Opaque);
  object.normals().pop_back();
  expectError([&] { PLYFile().write(path, object); }, "9 normals for 10 vertices");
  object.normals().clear();
  object.triangles()[3][1] = 10;
  expectError([&] { PLYFile().write(path, object); }, "Triangle 3 has the vertex index 10");
  EXPECT_EQ(vorn::test::contentOf(path), "old");
}
