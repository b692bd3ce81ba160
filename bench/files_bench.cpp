// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Reading and writing clouds and meshes: a million points with normals and colours, a million triangles.
#include <benchmark/benchmark.h>
#include <string>

#include <vorn/graphic/obj_file.hpp>
#include <vorn/graphic/ply_file.hpp>
#include <vorn/graphic/stl_file.hpp>

#include "file_inputs.hpp"

using namespace vorn::graphic;

namespace {

template <class File>
void read(benchmark::State& state, GraphicObject const& object, File const& file) {
  std::string const path = vorn::bench::filePath("");
  file.write(path, object);
  for (auto _ : state) {
    benchmark::DoNotOptimize(file.read(path));
  }
}

template <class File>
void write(benchmark::State& state, GraphicObject const& object, File const& file) {
  std::string const path = vorn::bench::filePath("");
  for (auto _ : state) {
    file.write(path, object);
  }
}

PLYFile const binary(PLYFile::Format::BinaryLittleEndian);
PLYFile const bigEndian(PLYFile::Format::BinaryBigEndian);
PLYFile const ascii(PLYFile::Format::Ascii);
STLFile const asciiStl(STLFile::Format::Ascii);

GraphicObject const& cloud() {
  static GraphicObject const object = vorn::bench::scan(1000, 1000);
  return object;
}

GraphicObject const& mesh() {
  static GraphicObject const object = vorn::bench::triangulated(708, 708);
  return object;
}

} // namespace

BENCHMARK_CAPTURE(read, PlyBinary, cloud(), binary)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read, PlyBigEndian, cloud(), bigEndian)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read, PlyAscii, cloud(), ascii)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read, Obj, cloud(), OBJFile())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read, PlyBinaryMesh, mesh(), binary)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read, ObjMesh, mesh(), OBJFile())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read, StlBinary, mesh(), STLFile())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read, StlAscii, mesh(), asciiStl)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(write, PlyBinary, cloud(), binary)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(write, PlyBigEndian, cloud(), bigEndian)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(write, PlyAscii, cloud(), ascii)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(write, Obj, cloud(), OBJFile())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(write, StlBinary, mesh(), STLFile())->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(write, StlAscii, mesh(), asciiStl)->Unit(benchmark::kMillisecond);
