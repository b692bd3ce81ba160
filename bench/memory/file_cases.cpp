// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/pcd_file.hpp>
#include <vorn/graphic/ply_file.hpp>
#include <vorn/graphic/stl_file.hpp>
#include <vorn/graphic/xyz_file.hpp>
#include <vorn/mv/pointcloud/point_cloud.hpp>

#include "file_inputs.hpp"
#include "memory_case.hpp"

namespace vorn::bench {

namespace {

graphic::GraphicObject const& mesh(Sizes const& sizes) {
  static graphic::GraphicObject made;
  auto const side = static_cast<std::size_t>(sizes.cloudSide);
  if (made.vertices().size() != side * side) {
    made = triangulated(sizes.cloudSide, sizes.cloudSide);
  }
  return made;
}

/// Reads the mesh from a file that `file` has written.
template <class File>
double read(File const& file, Sizes const& sizes) {
  std::string const path = filePath(".read");
  file.write(path, mesh(sizes));
  return workingBytes(mesh(sizes).vertices().size(), [&] { return file.read(path); });
}

template <class File>
double write(File const& file, Sizes const& sizes) {
  std::string const path = filePath(".written");
  return workingBytes(mesh(sizes).vertices().size(), [&] { file.write(path, mesh(sizes)); });
}

double load(Sizes const& sizes) {
  std::string const path = filePath(".ply");
  graphic::PLYFile().write(path, mesh(sizes));
  mv::PointCloud cloud;
  return workingBytes(mesh(sizes).vertices().size(), [&] {
    cloud.loadFromFile(path, "ply");
    return cv::Mat(cloud.points().rows, cloud.points().cols, CV_8UC(12 + 12 + 3 + 1), cloud.points().data);
  });
}

double save(Sizes const& sizes) {
  mv::PointCloud const cloud(mesh(sizes));
  return workingBytes(cloud.pointCount(), [&] { cloud.saveToFile(filePath(".ply"), "ply"); });
}

} // namespace

std::vector<MemoryCase> fileCases() {
  using graphic::OBJFile;
  using graphic::PCDFile;
  using graphic::PLYFile;
  using graphic::STLFile;
  using graphic::XYZFile;
  PCDFile const pcdText(PCDFile::Format::Ascii);
  PLYFile const plyText(PLYFile::Format::Ascii);
  STLFile const stlText(STLFile::Format::Ascii);
  return {
      {"`PLYFile::read`, binary", [](Sizes const& s) { return read(PLYFile(), s); }},
      {"`PLYFile::read`, ascii", [=](Sizes const& s) { return read(plyText, s); }},
      {"`OBJFile::read`", [](Sizes const& s) { return read(OBJFile(), s); }},
      {"`STLFile::read`, binary", [](Sizes const& s) { return read(STLFile(), s); }},
      {"`STLFile::read`, ascii", [=](Sizes const& s) { return read(stlText, s); }},
      {"`PCDFile::read`, binary", [](Sizes const& s) { return read(PCDFile(), s); }},
      {"`PCDFile::read`, ascii", [=](Sizes const& s) { return read(pcdText, s); }},
      {"`XYZFile::read`", [](Sizes const& s) { return read(XYZFile(), s); }},
      {"`PLYFile::write`, binary", [](Sizes const& s) { return write(PLYFile(), s); }},
      {"`PLYFile::write`, ascii", [=](Sizes const& s) { return write(plyText, s); }},
      {"`OBJFile::write`", [](Sizes const& s) { return write(OBJFile(), s); }},
      {"`STLFile::write`, binary", [](Sizes const& s) { return write(STLFile(), s); }},
      {"`STLFile::write`, ascii", [=](Sizes const& s) { return write(stlText, s); }},
      {"`PCDFile::write`, binary", [](Sizes const& s) { return write(PCDFile(), s); }},
      {"`PCDFile::write`, ascii", [=](Sizes const& s) { return write(pcdText, s); }},
      {"`XYZFile::write`", [](Sizes const& s) { return write(XYZFile(), s); }},
      {"`PointCloud::loadFromFile`", load},
      {"`PointCloud::saveToFile`", save},
  };
}

} // namespace vorn::bench
