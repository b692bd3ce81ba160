// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/cloud_files.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/system.hpp>
#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/pcd_file.hpp>
#include <vorn/graphic/ply_file.hpp>
#include <vorn/graphic/stl_file.hpp>
#include <vorn/graphic/xyz_file.hpp>

#include "tools/files/input_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/report/warning.hpp"

namespace vorn::tools {

namespace {

enum class Format { Ply, Pcd, Xyz, Obj, Stl };

Format formatOf(std::string const& path) {
  std::string const ending = lowerCaseEnding(path);
  if (ending == ".ply") {
    return Format::Ply;
  }
  if (ending == ".pcd") {
    return Format::Pcd;
  }
  if (ending == ".xyz") {
    return Format::Xyz;
  }
  if (ending == ".obj") {
    return Format::Obj;
  }
  if (ending == ".stl") {
    return Format::Stl;
  }
  throw Exception(path + " does not end in .ply, .pcd, .xyz, .obj or .stl", nullptr, 0, "cloud");
}

/// What the reader says of the file, such as normals that are not there, becomes a warning.
template <class File>
graphic::GraphicObject readHearing(File const& file, std::string const& path) {
  std::string said;
  System::setMessageSink([&](std::string const& text) { said += text; });
  auto const finish = [&] { System::setMessageSink([](std::string const& /*text*/) {}); };
  try {
    graphic::GraphicObject object = file.read(path);
    finish();
    if (!said.empty()) {
      warn(said.substr(0, said.find_last_not_of('\n') + 1));
    }
    return object;
  } catch (...) {
    finish();
    throw;
  }
}

/// Says what a format has no place for.
void warnOfLoss(std::string const& path, graphic::GraphicObject const& object) {
  Format const format = formatOf(path);
  bool const isOfPoints = format == Format::Pcd || format == Format::Xyz;
  if (isOfPoints && object.hasTriangles()) {
    warn(path + " is without the " + std::to_string(object.triangles().size()) +
         " triangles: its format has no place for them");
  }
  if (format != Format::Obj && format != Format::Stl) {
    return;
  }
  if (!object.fields().empty()) {
    std::string names;
    for (auto const& field : object.fields()) {
      names += (names.empty() ? "" : ", ") + field.first;
    }
    warn(path + " is without the points' fields (" + names + "): its format has no place for them");
  }
  if (format == Format::Stl && object.offset() != cv::Vec3d()) {
    warn("the coordinates in " + path +
         " are rounded: they lie so far from zero that floats lose their place");
  }
}

} // namespace

graphic::GraphicObject readGraphic(std::string const& path) {
  checkInputFile(path);
  switch (formatOf(path)) {
  case Format::Ply:
    return readHearing(graphic::PLYFile(), path);
  case Format::Obj:
    return readHearing(graphic::OBJFile(), path);
  case Format::Pcd:
    return graphic::PCDFile().read(path);
  case Format::Xyz:
    return readHearing(graphic::XYZFile(), path);
  case Format::Stl:
    break;
  }
  return graphic::STLFile().read(path);
}

void writeGraphic(std::string const& path, graphic::GraphicObject const& object) {
  warnOfLoss(path, object);
  switch (formatOf(path)) {
  case Format::Ply:
    graphic::PLYFile().write(path, object);
    break;
  case Format::Pcd:
    graphic::PCDFile().write(path, object);
    break;
  case Format::Xyz:
    graphic::XYZFile().write(path, object);
    break;
  case Format::Obj:
    graphic::OBJFile().write(path, object);
    break;
  case Format::Stl:
    graphic::STLFile().write(path, object);
    break;
  }
}

void checkGraphicPath(std::string const& path) {
  formatOf(path);
}

bool holdsTriangles(std::string const& path) {
  Format const format = formatOf(path);
  return format != Format::Pcd && format != Format::Xyz;
}

void checkMeshPath(std::string const& path) {
  if (!holdsTriangles(path)) {
    throw Exception(path + " would hold no triangles: meshes are written as .ply, .obj or .stl", nullptr, 0,
                    "cloud");
  }
}

float medianSpacing(cv::Mat_<cv::Vec3f> const& xyz) {
  std::vector<float> distances;
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x + 1 < xyz.cols; ++x) {
      float const distance = static_cast<float>(cv::norm(xyz(y, x + 1) - xyz(y, x)));
      if (std::isfinite(distance)) {
        distances.push_back(distance);
      }
    }
  }
  if (distances.empty()) {
    return 0.0F;
  }
  auto const middle = distances.begin() + static_cast<std::ptrdiff_t>(distances.size() / 2);
  std::nth_element(distances.begin(), middle, distances.end());
  return *middle;
}

void addGridTriangles(graphic::GraphicObject& object, cv::Mat_<cv::Vec3f> const& xyz,
                      cv::Mat_<uchar> const& present, float maxEdge) {
  constexpr int absent = -1;
  cv::Mat_<int> vertex(xyz.size(), absent);
  int count = 0;
  for (int y = 0; y < xyz.rows; ++y) {
    for (int x = 0; x < xyz.cols; ++x) {
      if (present(y, x) != 0) {
        vertex(y, x) = count++;
      }
    }
  }
  float const maxSquare = maxEdge * maxEdge;
  auto const joined = [&](cv::Point const& a, cv::Point const& b) {
    cv::Vec3f const edge = xyz(a) - xyz(b);
    return edge.dot(edge) <= maxSquare;
  };
  auto const add = [&](std::array<cv::Point, 3> const& corners) {
    cv::Vec3i triangle;
    for (int i = 0; i < 3; ++i) {
      auto const k = static_cast<std::size_t>(i);
      triangle[i] = vertex(corners[k]);
      if (triangle[i] == absent || !joined(corners[k], corners[(k + 1) % 3])) {
        return;
      }
    }
    object.triangles().push_back(triangle);
  };
  for (int y = 0; y + 1 < xyz.rows; ++y) {
    for (int x = 0; x + 1 < xyz.cols; ++x) {
      // Seen from the camera counter-clockwise, so that the surface faces it.
      add({cv::Point(x, y), cv::Point(x, y + 1), cv::Point(x + 1, y)});
      add({cv::Point(x + 1, y), cv::Point(x, y + 1), cv::Point(x + 1, y + 1)});
    }
  }
}

void addSurface(graphic::GraphicObject& object, cv::Mat_<cv::Vec3f> const& xyz,
                cv::Mat_<uchar> const& present) {
  constexpr float stepRatio = 5.0F;
  addGridTriangles(object, xyz, present, stepRatio * medianSpacing(xyz));
}

} // namespace vorn::tools
