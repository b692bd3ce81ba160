// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/output_path.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <list>

#include <unistd.h>

#include <vorn/core/atomic_file.hpp>
#include <vorn/core/exception.hpp>

namespace vorn::tools {

namespace fs = std::filesystem;

void checkOutputs(std::initializer_list<std::string> paths) {
  for (std::string const& path : paths) {
    if (path.empty()) {
      continue;
    }
    auto const failure = [&](std::string const& reason) {
      return Exception("Cannot write " + path + ": " + reason, nullptr, 0, "output");
    };
    if (fs::is_directory(path)) {
      throw failure("it is a folder");
    }
    fs::path const parent = fs::path(path).parent_path();
    fs::path const folder = parent.empty() ? "." : parent;
    if (!fs::is_directory(folder)) {
      throw failure("there is no folder " + folder.string());
    }
    if (access(folder.c_str(), W_OK) != 0) {
      throw failure(std::strerror(errno));
    }
  }
}

std::string lowerCaseEnding(std::string const& path) {
  std::string ending = fs::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ending;
}

bool isTiff(std::string const& path) {
  std::string const ending = lowerCaseEnding(path);
  return ending == ".tif" || ending == ".tiff";
}

void writeTogether(std::vector<FileContent> const& contents) {
  std::list<AtomicFile> files;
  for (FileContent const& content : contents) {
    files.emplace_back(content.path).write(content.bytes);
  }
  for (AtomicFile& file : files) {
    file.commit();
  }
}

} // namespace vorn::tools
