// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace vorn::test {

/// All bytes of a file; none when it cannot be read.
inline std::string contentOf(std::filesystem::path const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Makes `content` all that the file holds.
inline void put(std::filesystem::path const& path, std::string const& content) {
  std::ofstream(path, std::ios::binary) << content;
}

} // namespace vorn::test
