// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/ply_file.hpp>

#include <array>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>

#include <vorn/core/system.hpp>

#include "support/expect_error.hpp"
#include "support/file_content.hpp"
#include "support/graphic_objects.hpp"
#include "support/temporary_folder.hpp"

using namespace vorn::graphic;
using vorn::test::expectError;

namespace {

constexpr std::array<PLYFile::Format, 3> formats = {PLYFile::Format::BinaryLittleEndian,
                                                    PLYFile::Format::BinaryBigEndian, PLYFile::Format::Ascii};

class PlyFields : public testing::Test {
protected:
  GraphicObject parse(std::string const& content) const {
    vorn::test::put(folder_ / "parsed.ply", content);
    return PLYFile().read((folder_ / "parsed.ply").string());
  }
  /// The object as it comes back from a file, and the file.
  GraphicObject throughFile(GraphicObject const& object, PLYFile::Format format) {
    std::string const path = (folder_ / "written.ply").string();
    PLYFile(format).write(path, object);
    content_ = vorn::test::contentOf(path);
    return PLYFile().read(path);
  }
  std::string const& content() const { return content_; }

private:
  vorn::test::TemporaryFolder folder_;
  std::string content_;
};

std::vector<float> hardNumbers(std::size_t count) {
  std::vector<float> numbers;
  for (cv::Vec3f const& vector : vorn::test::hardVectors(static_cast<int>(count))) {
    numbers.push_back(vector[1]);
  }
  return numbers;
}

void expectSameFields(GraphicObject const& actual, GraphicObject const& expected) {
  ASSERT_EQ(actual.fields().size(), expected.fields().size());
  for (auto const& [name, values] : expected.fields()) {
    ASSERT_EQ(actual.fields().count(name), 1U) << name;
    std::vector<float> const& found = actual.fields().at(name);
    ASSERT_EQ(found.size(), values.size()) << name;
    EXPECT_EQ(std::memcmp(found.data(), values.data(), values.size() * sizeof(float)), 0) << name;
  }
}

/// A small part where a country's coordinates put it, on a grid of millimetres.
std::vector<cv::Vec3d> placesFarAway(int count) {
  std::vector<cv::Vec3d> places;
  for (int i = 0; i < count; ++i) {
    auto const near = [] { return 0.001 * cv::theRNG().uniform(-20000, 20000); };
    places.emplace_back(3512345.678 + near(), 5412345.123 + near(), -431.5 + near());
  }
  return places;
}

std::string textOf(std::vector<cv::Vec3d> const& places, std::string const& type) {
  std::ostringstream text;
  text.precision(17);
  text << "ply\nformat ascii 1.0\nelement vertex " << places.size();
  for (char const axis : {'x', 'y', 'z'}) {
    text << "\nproperty " << type << ' ' << axis;
  }
  text << "\nend_header\n";
  for (cv::Vec3d const& place : places) {
    text << place[0] << ' ' << place[1] << ' ' << place[2] << '\n';
  }
  return text.str();
}

TEST_F(PlyFields, WhatHasNoPlaceIsSaid) {
  std::string said;
  vorn::System::setMessageSink([&](std::string const& message) { said += message; });
  std::string const vertices = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                               "property float z\nproperty short row\n";
  GraphicObject const object = parse(
      vertices + "property list uchar float weights\nelement face 1\nproperty list uchar int vertex_indices\n"
                 "property uchar flags\nelement edge 2\nproperty int a\nelement camera 0\n"
                 "property float f\nend_header\n0 0 0 1 2 5 6\n1 0 0 2 0\n0 1 0 3 1 7\n3 0 1 2 9\n4\n5\n");
  EXPECT_EQ(object.triangles().size(), 1U);
  EXPECT_EQ(object.fields().at("row")[2], 3.0F);
  EXPECT_NE(
      said.find("parsed.ply: passed over: 'weights' of 'vertex', 'flags' of 'face', the 2 rows of 'edge'\n"),
      std::string::npos)
      << said;
  said.clear();
  parse(vertices + "element face 1\nproperty list uchar int vertex_index\nend_header\n0 0 0 1\n1 0 0 2\n0 1 "
                   "0 3\n3 0 1 2\n");
  EXPECT_EQ(said, "");
  vorn::System::setMessageSink({});
}

} // namespace

TEST_F(PlyFields, ComeBackBitForBitFromEveryFormat) {
  constexpr int moreThanOneWindow = 15000;
  GraphicObject object = vorn::test::fullObject(moreThanOneWindow, vorn::test::Alpha::Varied);
  // Names that other properties have, and that look like marked ones.
  for (char const* const name : {"sigma", "x", "nx", "red", "scalar_red", "scalar_", "\xCE\xB4z"}) {
    object.fields()[name] = hardNumbers(moreThanOneWindow);
  }
  for (auto const format : formats) {
    GraphicObject const found = throughFile(object, format);
    vorn::test::expectSameBits(found, object);
    expectSameFields(found, object);
    EXPECT_NE(content().find("\nproperty float scalar_sigma\n"), std::string::npos);
  }
  object.fields()["sigma"].pop_back();
  expectError([&] { throughFile(object, formats[0]); }, "14999 values of the field sigma for 15000 vertices");
}

TEST_F(PlyFields, HaveNamesThatFilesCanHold) {
  GraphicObject object;
  object.vertices() = {{1, 2, 3}};
  object.fields()["phase error\n"] = {0.5F};
  GraphicObject const found = throughFile(object, PLYFile::Format::Ascii);
  ASSERT_EQ(found.fields().size(), 1U);
  EXPECT_EQ(found.fields().at("phase_error_"), std::vector<float>{0.5F});
  object.fields()["phase_error\n"] = {0.25F};
  expectError([&] { throughFile(object, PLYFile::Format::Ascii); },
              "Two fields would have the name 'phase_error_' in a file");
  object.fields().clear();
  object.fields()[""] = {1.0F};
  expectError([&] { throughFile(object, PLYFile::Format::Ascii); }, "A field has no name");
}

TEST_F(PlyFields, AreWhatOtherProgramsCallOtherwise) {
  std::string const header =
      "element vertex 2\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\n"
      "property uchar red\nproperty float scalar_Deviation\nproperty double quality\nproperty list uchar int "
      "tags\n"
      "property int32 id\nproperty float scalar_id\nend_header\n";
  GraphicObject const text = parse("ply\nformat ascii 1.0\n" + header +
                                   "1 2 3 0.5 7 -1.5 0.1 2 8 9 70000 4\n4 5 6 nan 8 inf 1e99 0 -3 5\n");
  std::map<std::string, std::vector<float>> const& fields = text.fields();
  ASSERT_EQ(fields.size(), 6U) << "all but the list";
  EXPECT_EQ(text.vertices()[1], cv::Vec3f(4, 5, 6));
  EXPECT_FALSE(text.hasNormals() || text.hasColors());
  EXPECT_EQ(fields.at("nx")[0], 0.5F);
  EXPECT_TRUE(std::isnan(fields.at("nx")[1]));
  EXPECT_EQ(fields.at("red"), (std::vector<float>{7, 8}));
  EXPECT_EQ(fields.at("Deviation"), (std::vector<float>{-1.5F, INFINITY}));
  EXPECT_EQ(fields.at("quality"), (std::vector<float>{0.1F, INFINITY}));
  EXPECT_EQ(fields.at("id"), (std::vector<float>{70000, -3}));
  EXPECT_EQ(fields.at("scalar_id"), (std::vector<float>{4, 5})) << "the plain name is taken";

  GraphicObject const marks =
      parse("ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\n"
            "property float z\nproperty float a\nproperty float scalar_a\n"
            "property float scalar_scalar_a\nend_header\n1 2 3 4 5 6\n");
  EXPECT_EQ(marks.fields().size(), 3U) << "none is lost";

  // The same in binary, with the list in between.
  std::string bytes;
  auto const add = [&](auto value) { bytes.append(reinterpret_cast<char const*>(&value), sizeof value); };
  for (int row = 0; row < 2; ++row) {
    for (float const value : {1.0F, 2.0F, 3.0F, 0.5F}) {
      add(value);
    }
    add(static_cast<unsigned char>(7 + row));
    add(row == 0 ? -1.5F : INFINITY);
    add(row == 0 ? 0.1 : 1e99);
    add(static_cast<unsigned char>(row));
    if (row == 1) {
      add(12);
    }
    add(row == 0 ? 70000 : -3);
    add(4.0F + static_cast<float>(row));
  }
  GraphicObject const binary = parse("ply\nformat binary_little_endian 1.0\n" + header + bytes);
  for (char const* const name : {"red", "Deviation", "quality", "id", "scalar_id"}) {
    EXPECT_EQ(binary.fields().at(name), fields.at(name)) << name;
  }
}

TEST_F(PlyFields, FarCoordinatesKeepTheirPlace) {
  std::vector<cv::Vec3d> const places = placesFarAway(500);
  GraphicObject const object = parse(textOf(places, "double"));
  EXPECT_EQ(object.offset(), cv::Vec3d(3512350, 5412350, -430)) << "of as few digits as do";
  // Vertices within 50 of zero are rounded by at most 2 um where floats of the places are by 250 mm.
  constexpr double largestRounding = 50.0 / (1 << 24);
  for (auto const format : formats) {
    GraphicObject const found = throughFile(object, format);
    ASSERT_EQ(found.vertices().size(), places.size());
    vorn::test::expectSameBits(found, object);
    EXPECT_EQ(found.offset(), object.offset());
    for (std::size_t i = 0; i < places.size(); ++i) {
      EXPECT_LE(cv::norm(found.offset() + cv::Vec3d(found.vertices()[i]), places[i], cv::NORM_INF),
                largestRounding);
    }
  }
  EXPECT_NE(content().find("property double z\n"), std::string::npos);
}

TEST_F(PlyFields, OnlyCoordinatesThatFloatsWouldMoveHaveAnOffset) {
  std::vector<cv::Vec3d> places = placesFarAway(3);
  EXPECT_EQ(parse(textOf(places, "float")).offset(), cv::Vec3d()) << "the file itself says float";
  EXPECT_EQ(parse(textOf({places[0]}, "double")).offset(), cv::Vec3d()) << "one point has no extent";
  // Points that are no numbers have no say.
  places = {cv::Vec3d(1.0 / 3, 0, 4e7 + 0.1), cv::Vec3d(NAN, 1, 1), cv::Vec3d(1e300, 0, INFINITY),
            cv::Vec3d(-1.0 / 3, 0, 4e7)};
  GraphicObject const two = parse(textOf(places, "float64"));
  EXPECT_LT(cv::norm(two.offset() + cv::Vec3d(two.vertices()[0]), places[0], cv::NORM_INF), 1e-7);
  EXPECT_TRUE(std::isnan(two.vertices()[1][0]));
  EXPECT_EQ(two.vertices()[2][0], INFINITY);
  // Whole numbers: 16777217 is the first that no float is.
  for (int const value : {16777216, 16777217}) {
    GraphicObject const whole = parse(textOf({{double(value), 0, 1}, {double(value) - 9, 5, 2}}, "int"));
    EXPECT_EQ(whole.offset() == cv::Vec3d(), value == 16777216);
    EXPECT_EQ(whole.offset()[0] + double{whole.vertices()[0][0]}, value);
  }
  // A scan as any camera makes it, and doubles that were floats.
  for (double const scale : {1.0, 1e-3}) {
    EXPECT_EQ(
        parse(textOf({{-70.1 * scale, 0.3, 600.7 * scale}, {60.2 * scale, -0.3, 610.9 * scale}}, "double"))
            .offset(),
        cv::Vec3d());
  }
  GraphicObject const rounded = parse(textOf({{double{7e7F}, 1, 2}, {double{7e7F} + 8, 1, 2}}, "double"));
  EXPECT_EQ(rounded.offset(), cv::Vec3d());
  EXPECT_EQ(rounded.vertices()[1][0], 7e7F + 8);
}
