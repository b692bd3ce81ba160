// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/graphic/stl_file.hpp>

#include <gtest/gtest.h>
#include <map>
#include <string>

#include "support/expect_error.hpp"
#include "support/file_content.hpp"
#include "support/graphic_objects.hpp"
#include "support/temporary_folder.hpp"

using namespace vorn::graphic;
using vorn::test::Alpha;
using vorn::test::contentOf;
using vorn::test::expectError;
using vorn::test::expectSameBits;

namespace {

GraphicObject parse(std::string const& content) {
  vorn::test::TemporaryFolder const folder;
  vorn::test::put(folder / "test.stl", content);
  return STLFile().read((folder / "test.stl").string());
}

/// A mesh as STL keeps it: its corners joined by their bits, numbered by first use.
GraphicObject weldedByMap(GraphicObject const& object) {
  GraphicObject result;
  std::map<std::string, int> places;
  for (cv::Vec3i const& triangle : object.triangles()) {
    cv::Vec3i indices;
    for (int corner = 0; corner < 3; ++corner) {
      cv::Vec3f const& vertex = object.vertices()[static_cast<std::size_t>(triangle[corner])];
      std::string const bits(reinterpret_cast<char const*>(vertex.val), sizeof vertex);
      auto const [place, isNew] = places.emplace(bits, static_cast<int>(places.size()));
      if (isNew) {
        result.vertices().push_back(vertex);
      }
      indices[corner] = place->second;
    }
    result.triangles().push_back(indices);
  }
  return result;
}

std::string const facet =
    "facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\n"
    "endfacet\n";

} // namespace

TEST(STLFile, MeshesWithoutSharedCornersAreReadToo) {
  constexpr int count = 5000; // three vertices each, where a mesh usually has half a vertex a triangle
  GraphicObject object;
  for (int i = 0; i < count; ++i) {
    auto const x = static_cast<float>(2 * i);
    object.vertices().insert(object.vertices().end(), {{x, 0, 0}, {x + 1, 0, 0}, {x, 1, 0}});
    object.triangles().emplace_back(3 * i, 3 * i + 1, 3 * i + 2);
  }
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "loose.stl").string();
  for (auto const format : {STLFile::Format::Binary, STLFile::Format::Ascii}) {
    STLFile(format).write(path, object);
    GraphicObject const read = STLFile().read(path);
    EXPECT_EQ(read.vertices(), object.vertices());
    EXPECT_EQ(read.triangles(), object.triangles());
  }
}

TEST(STLFile, BothFormatsKeepEveryBitAndJoinCorners) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.stl").string();
  constexpr int moreThanOneWindow = 10000;
  for (auto const format : {STLFile::Format::Binary, STLFile::Format::Ascii}) {
    GraphicObject const object = vorn::test::fullObject(moreThanOneWindow, Alpha::Opaque);
    STLFile(format).write(path, object);
    GraphicObject const read = STLFile(format).read(path);
    expectSameBits(read, weldedByMap(object));
    STLFile(format).write(path, read);
    expectSameBits(STLFile(format).read(path), read);
    STLFile(format).write(path, GraphicObject());
    EXPECT_TRUE(STLFile(format).read(path).isEmpty());
  }
}

TEST(STLFile, WritesTheNormalOfEachTriangle) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.stl").string();
  constexpr float tiny = 1e-30F; // squares of it are no floats any more
  GraphicObject object;
  object.vertices() = {{0, 0, 0}, {0, tiny, 0}, {0, 0, tiny}, {2, 0, 0}, {0, NAN, 0}};
  object.triangles() = {{0, 1, 2}, {0, 2, 3}, {0, 1, 1}, {0, 1, 4}};
  STLFile().write(path, object);
  std::string const content = contentOf(path);
  ASSERT_EQ(content.size(), 84U + 4 * 50);
  cv::Vec3f const normals[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {0, 0, 0}};
  for (std::size_t triangle = 0; triangle < 4; ++triangle) {
    cv::Vec3f normal;
    std::memcpy(normal.val, content.data() + 84 + 50 * triangle, sizeof normal);
    EXPECT_EQ(normal, normals[triangle]) << triangle;
  }
}

TEST(STLFile, SizeDecidesWhetherAFileIsBinary) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.stl").string();
  GraphicObject object;
  object.vertices() = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  object.triangles() = {{0, 1, 2}};
  STLFile().write(path, object);
  std::string content = contentOf(path);
  for (std::string const header : {"solid of a careless program", "anything else", "SOLID"}) {
    content.replace(0, 80, header + std::string(80 - header.size(), ' '));
    content.replace(132, 2, "\x12\x34"); // attributes
    expectSameBits(parse(content), object);
    expectError([&] { parse(content.substr(0, content.size() - 1)); },
                "the header promises 1 triangles of 50 bytes, but only 49 bytes are left for them");
  }
}

TEST(STLFile, AsciiInFreeForm) {
  GraphicObject const object =
      parse("SOLID two of them facet\n" + facet +
            "endsolid two\n\n solid\rsolid\nFACET NORMAL 0 0 1 "
            "OUTER LOOP VERTEX 0 0 0 VERTEX 0 1 0\r\n\tVERTEX nan -1E-3 +2. ENDLOOP ENDFACET "
            "ENDSOLID");
  ASSERT_EQ(object.vertices().size(), 4U);
  EXPECT_EQ(object.triangles(), std::vector<cv::Vec3i>({{0, 1, 2}, {0, 2, 3}}));
  EXPECT_EQ(object.vertices()[3][1], -1e-3F);
  EXPECT_EQ(object.vertices()[3][2], 2.0F);
}

TEST(STLFile, FarCoordinatesOfAsciiFilesKeepTheirPlace) {
  GraphicObject const object =
      parse("solid\nfacet normal 0 0 1\nouter loop\n"
            "vertex 4500000.125 5400000.375 400.0625\n"
            "vertex 4500001.125 5400000.375 400.0625\n"
            "vertex 4500000.125 5400001.375 400.0625\nendloop\nendfacet\n"
            "facet normal 0 0 1\nouter loop\n"
            "vertex 4500000.125 5400001.375 400.0625\n"
            "vertex 4500001.125 5400000.375 400.0625\n"
            "vertex 4500001.125 5400001.375 400.0625\nendloop\nendfacet\nendsolid\n");
  ASSERT_EQ(object.vertices().size(), 4U);
  EXPECT_EQ(object.triangles(), std::vector<cv::Vec3i>({{0, 1, 2}, {2, 1, 3}}));
  EXPECT_EQ(object.offset() + cv::Vec3d(object.vertices()[0]), cv::Vec3d(4500000.125, 5400000.375, 400.0625));
  EXPECT_EQ(object.offset() + cv::Vec3d(object.vertices()[3]), cv::Vec3d(4500001.125, 5400001.375, 400.0625));
}

TEST(STLFile, DamagedFilesAreNamedWithPlaceAndReason) {
  struct Case {
    std::string content;
    char const* message;
  };
  for (Case const& damaged : std::initializer_list<Case>{
           {"", "the file is empty"},
           {"hello", "it is no STL file"},
           {std::string(200, 'x'), "the header promises 2021161080 triangles"},
           {"solid a\n", "line 1: the file ends before its 'endsolid'"},
           {"solid a\n" + facet, "line 8: the file ends before its 'endsolid'"},
           {"solid a\n" + facet.substr(0, 40), "the file ends before its 'endsolid'"},
           {"solid a\n" + facet + "facet normal 0 0 1\nouter loop\nvertex 0 zero 0\n",
            "line 11: 'zero' is no number"},
           {"solid a\nfacet normal 0 0 1\nvertex 0 0 0\n", "line 3: expected 'outer', but there is 'vertex'"},
           {"solid a\nendsolid a\nrubbish\n", "line 3: expected 'solid', but there is 'rubbish'"},
       }) {
    expectError([&] { parse(damaged.content); }, damaged.message);
  }
}

TEST(STLFile, PointsWithoutTrianglesAreNotLost) {
  vorn::test::TemporaryFolder const folder;
  std::string const path = (folder / "a.stl").string();
  vorn::test::put(path, "old");
  GraphicObject object;
  object.vertices().resize(7);
  expectError([&] { STLFile().write(path, object); },
              "STL holds only triangles, and all 7 points would be lost");
  EXPECT_EQ(contentOf(path), "old");
}
