// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/files/output_path.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>
#include <system_error>

#include <unistd.h>

#include <vorn/core/atomic_file.hpp>
#include <vorn/core/exception.hpp>

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

/// What stands for standard output in place of a path.
char const* const dash = "-";

Exception refusal(std::string const& path, std::string const& reason) {
  return {"Cannot write " + path + ": " + reason, nullptr, 0, "output"};
}

/// A terminal, a pipe, /dev/null, an open file of the shell's: what takes any number of files without losing
/// one.
bool isStream(std::string const& path) {
  std::error_code absent;
  if (path.rfind("/dev/", 0) == 0 || path.rfind("/proc/self/fd/", 0) == 0) {
    return fs::exists(path, absent) && !fs::is_directory(path, absent);
  }
  fs::file_status const status = fs::status(path, absent);
  return !absent && fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

/// Where a path leads, through links also where nothing stands at their end yet.
fs::path placeOf(fs::path path, std::error_code& failed) {
  constexpr int mostLinks = 40; // the kernel's own limit
  std::error_code noLink;
  for (int i = 0; i < mostLinks && fs::is_symlink(fs::symlink_status(path, noLink)); ++i) {
    path = path.parent_path() / fs::read_symlink(path, failed);
  }
  return fs::weakly_canonical(fs::absolute(path), failed);
}

/// Whether both lead to one file, which may not be there yet.
bool areOneFile(std::string const& a, std::string const& b) {
  std::error_code absent;
  if (fs::equivalent(a, b, absent) && !absent) {
    return true;
  }
  std::error_code failedA;
  std::error_code failedB;
  fs::path const placeA = placeOf(a, failedA);
  fs::path const placeB = placeOf(b, failedB);
  return !failedA && !failedB && placeA == placeB;
}

void checkPlace(std::string const& path) {
  std::error_code reason;
  if (fs::is_directory(path, reason)) {
    throw refusal(path, "it is a folder");
  }
  fs::path const parent = fs::path(path).parent_path();
  fs::path const folder = parent.empty() ? "." : parent;
  if (!fs::is_directory(folder, reason)) {
    throw refusal(path, "there is no folder " + folder.string());
  }
  // A stream is written to where it stands; a file is replaced, which is its folder's affair.
  std::string const written = isStream(path) ? path : folder.string();
  if (access(written.c_str(), W_OK) != 0) {
    throw refusal(path, std::strerror(errno));
  }
}

/// Past the stream of what people read, which may be silenced, and on the open file itself: opening
/// /dev/stdout anew needs rights that the file's owner may not have given, and writes from the start of a
/// file.
void writeToStandardOutput(std::string const& bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0) {
    throw refusal("to standard output", std::strerror(errno));
  }
}

} // namespace

bool isStandardOutput(std::string const& path) {
  return path == dash || path == "/dev/stdout" || path == "/dev/fd/1" || path == "/proc/self/fd/1";
}

void checkOutputs(std::vector<std::string> const& paths, std::vector<std::string> const& inputs) {
  std::vector<std::string> earlier;
  for (std::string const& path : paths) {
    if (path.empty()) {
      continue;
    }
    if (isStandardOutput(path)) {
      if (std::any_of(earlier.begin(), earlier.end(), isStandardOutput)) {
        throw refusal("to standard output", "two outputs go there");
      }
      earlier.push_back(path);
      continue;
    }
    checkPlace(path);
    if (isStream(path)) {
      continue;
    }
    for (std::string const& input : inputs) {
      if (!input.empty() && areOneFile(path, input)) {
        throw refusal(path, "it is an input, " + input);
      }
    }
    for (std::string const& other : earlier) {
      if (areOneFile(path, other)) {
        throw refusal(path, "another output goes there too");
      }
    }
    earlier.push_back(path);
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
    if (!isStandardOutput(content.path)) {
      files.emplace_back(content.path).write(content.bytes);
    }
  }
  for (FileContent const& content : contents) {
    if (isStandardOutput(content.path)) {
      writeToStandardOutput(content.bytes);
    }
  }
  for (AtomicFile& file : files) {
    file.commit();
  }
}

} // namespace vorn::tools
