// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Files of a million points with normals and colours, and of a million triangles, read and written by the
// libraries that are installed. All read the files that we write.
#include <benchmark/benchmark.h>
#include <memory>
#include <stdexcept>
#include <string>

#ifdef VORN_HAS_PCL
#include <pcl/io/ply_io.h>
#include <pcl/point_types.h>
#endif
#ifdef VORN_HAS_OPEN3D
#include <open3d/geometry/PointCloud.h>
#include <open3d/io/PointCloudIO.h>
#endif
#ifdef VORN_HAS_TINYOBJLOADER
#include <tiny_obj_loader.h>
#endif
#ifdef VORN_HAS_ASSIMP
#include <assimp/Importer.hpp>
#endif

#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/ply_file.hpp>
#include <vorn/graphic/stl_file.hpp>

#include "file_inputs.hpp"

using vorn::graphic::GraphicObject;
using vorn::graphic::OBJFile;
using vorn::graphic::PLYFile;
using vorn::graphic::STLFile;

namespace {

GraphicObject const& cloud() {
  static GraphicObject const object = vorn::bench::scan(1000, 1000);
  return object;
}

PLYFile plyFile(bool isAscii) {
  return PLYFile(isAscii ? PLYFile::Format::Ascii : PLYFile::Format::BinaryLittleEndian);
}

void require(bool succeeded) {
  if (!succeeded) {
    throw std::runtime_error("a peer could not read or write the file");
  }
}

std::string plyPath() {
  return vorn::bench::filePath(".ply");
}
std::string objPath() {
  return vorn::bench::filePath(".obj");
}
std::string stlPath() {
  return vorn::bench::filePath(".stl");
}

/// The argument of the PLY benchmarks: binary or ascii.
void plyFormats(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("ascii")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
}

void readPlyVorn(benchmark::State& state) {
  PLYFile const file = plyFile(state.range(0) != 0);
  file.write(plyPath(), cloud());
  for (auto _ : state) {
    benchmark::DoNotOptimize(file.read(plyPath()));
  }
}
BENCHMARK(readPlyVorn)->Name("readPly/ours")->Apply(plyFormats);

void writePlyVorn(benchmark::State& state) {
  for (auto _ : state) {
    plyFile(state.range(0) != 0).write(plyPath(), cloud());
  }
}
BENCHMARK(writePlyVorn)->Name("writePly/ours")->Apply(plyFormats);

#ifdef VORN_HAS_PCL
using PclCloud = pcl::PointCloud<pcl::PointXYZRGBNormal>;

void readPlyPcl(benchmark::State& state) {
  plyFile(state.range(0) != 0).write(plyPath(), cloud());
  for (auto _ : state) {
    PclCloud read;
    require(pcl::io::loadPLYFile(plyPath(), read) == 0 && read.size() == cloud().vertices().size());
  }
}
BENCHMARK(readPlyPcl)->Name("readPly/pcl")->Apply(plyFormats);

void writePlyPcl(benchmark::State& state) {
  PLYFile().write(plyPath(), cloud());
  PclCloud object;
  require(pcl::io::loadPLYFile(plyPath(), object) == 0);
  for (auto _ : state) {
    require(pcl::io::savePLYFile(plyPath(), object, state.range(0) == 0) == 0);
  }
}
BENCHMARK(writePlyPcl)->Name("writePly/pcl")->Apply(plyFormats);
#endif

#ifdef VORN_HAS_OPEN3D
void readPlyOpen3d(benchmark::State& state) {
  plyFile(state.range(0) != 0).write(plyPath(), cloud());
  for (auto _ : state) {
    open3d::geometry::PointCloud read;
    require(open3d::io::ReadPointCloud(plyPath(), read) && read.points_.size() == cloud().vertices().size());
  }
}
BENCHMARK(readPlyOpen3d)->Name("readPly/open3d")->Apply(plyFormats);

void writePlyOpen3d(benchmark::State& state) {
  PLYFile().write(plyPath(), cloud());
  open3d::geometry::PointCloud object;
  require(open3d::io::ReadPointCloud(plyPath(), object));
  for (auto _ : state) {
    require(open3d::io::WritePointCloud(plyPath(), object, {state.range(0) != 0}));
  }
}
BENCHMARK(writePlyOpen3d)->Name("writePly/open3d")->Apply(plyFormats);
#endif

void readObjVorn(benchmark::State& state) {
  OBJFile().write(objPath(), cloud());
  for (auto _ : state) {
    benchmark::DoNotOptimize(OBJFile().read(objPath()));
  }
}
BENCHMARK(readObjVorn)->Name("readObj/ours")->Unit(benchmark::kMillisecond);

#ifdef VORN_HAS_TINYOBJLOADER
void readObjTinyobjloader(benchmark::State& state) {
  OBJFile().write(objPath(), cloud());
  for (auto _ : state) {
    tinyobj::ObjReader reader;
    require(reader.ParseFromFile(objPath()) &&
            reader.GetAttrib().vertices.size() == 3 * cloud().vertices().size());
  }
}
BENCHMARK(readObjTinyobjloader)->Name("readObj/tinyobjloader")->Unit(benchmark::kMillisecond);
#endif

void writeMesh() {
  STLFile().write(stlPath(), vorn::bench::triangulated(708, 708));
}

void readStlVorn(benchmark::State& state) {
  writeMesh();
  for (auto _ : state) {
    benchmark::DoNotOptimize(STLFile().read(stlPath()));
  }
}
BENCHMARK(readStlVorn)->Name("readStl/ours")->Unit(benchmark::kMillisecond);

#ifdef VORN_HAS_ASSIMP
// Without joining equal corners, which reading by us includes.
void readStlAssimp(benchmark::State& state) {
  writeMesh();
  for (auto _ : state) {
    Assimp::Importer importer;
    require(importer.ReadFile(stlPath(), 0) != nullptr);
  }
}
BENCHMARK(readStlAssimp)->Name("readStl/assimp")->Unit(benchmark::kMillisecond);
#endif

} // namespace
