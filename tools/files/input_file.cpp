// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/input_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <vorn/core/exception.hpp>

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

std::uint64_t inputLimit = usualInputLimit;

Exception failure(std::string const& path, std::string const& reason, char const* action = "open") {
  return {std::string("Cannot ") + action + " " + path + ": " + reason, nullptr, 0, "input"};
}

std::string limitText() {
  return "more than " + std::to_string(inputLimit >> 20U) + " MB, the limit that --max-input sets";
}

} // namespace

void setInputLimit(std::uint64_t bytes) {
  inputLimit = bytes;
}

void checkInputFile(std::string const& path) {
  std::error_code reason;
  fs::file_status const status = fs::status(path, reason);
  switch (status.type()) {
  case fs::file_type::directory:
    throw failure(path, "it is a folder");
  case fs::file_type::character:
  case fs::file_type::block:
    throw failure(path, "it is a device");
  case fs::file_type::regular:
    if (fs::file_size(path, reason) > inputLimit && !reason) {
      throw failure(path, "it has " + limitText());
    }
    break;
  default:
    break;
  }
}

std::vector<unsigned char> readInputFile(std::string const& path) {
  checkInputFile(path);
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw failure(path, std::strerror(errno));
  }
  std::vector<unsigned char> bytes;
  constexpr std::size_t pieceSize = std::size_t{1} << 20;
  std::error_code unknown;
  auto const size = fs::file_size(path, unknown);
  std::size_t const expected = unknown ? 0 : static_cast<std::size_t>(size);
  while (file) {
    std::size_t const filled = bytes.size();
    // One byte more than expected shows the end.
    bytes.resize(filled + (filled < expected ? expected - filled + 1 : pieceSize));
    file.read(reinterpret_cast<char*>(bytes.data()) + filled,
              static_cast<std::streamsize>(bytes.size() - filled));
    bytes.resize(filled + static_cast<std::size_t>(file.gcount()));
    if (bytes.size() > inputLimit) {
      throw failure(path, "it brings " + limitText(), "read");
    }
  }
  if (file.bad()) {
    throw failure(path, std::strerror(errno), "read");
  }
  return bytes;
}

} // namespace vorn::tools
