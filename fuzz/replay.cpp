// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Feeds a fuzz target with its corpus, and with damaged copies of it, without a fuzzer: replay_ply corpus/ply
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int damagesPerFile = 40;

void feed(Bytes const& bytes) {
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

/// Cut short, or with a byte changed.
Bytes damaged(Bytes bytes, std::minstd_rand& random) {
  if (bytes.empty()) {
    return bytes;
  }
  std::size_t const place = random() % bytes.size();
  if (random() % 4 == 0) {
    bytes.resize(place);
  } else {
    bytes[place] = static_cast<std::uint8_t>(random());
  }
  return bytes;
}

} // namespace

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> paths;
  if (argc == 2 && std::filesystem::is_directory(argv[1])) {
    std::filesystem::directory_iterator const folder(argv[1]);
    std::copy(begin(folder), end(folder), std::back_inserter(paths));
  }
  if (paths.empty()) {
    std::fprintf(stderr, "Usage: %s FOLDER, with files in it\n", argv[0]);
    return 2;
  }
  std::sort(paths.begin(), paths.end());
  std::minstd_rand random;
  for (auto const& path : paths) {
    std::fprintf(stderr, "%s\n", path.c_str());
    std::ifstream file(path, std::ios::binary);
    Bytes const bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    feed(bytes);
    for (int i = 0; i < damagesPerFile; ++i) {
      feed(damaged(bytes, random));
    }
  }
  return 0;
}
