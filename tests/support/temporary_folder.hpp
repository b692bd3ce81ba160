// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace vorn::test {

/// An empty folder that is removed, with all that is in it, when the object goes.
class TemporaryFolder {
public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "vorn-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no temporary folder");
    }
    path_ = name;
  }
  TemporaryFolder(TemporaryFolder const&) = delete;
  TemporaryFolder& operator=(TemporaryFolder const&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::filesystem::path const& path() const { return path_; }
  std::filesystem::path operator/(std::string const& name) const { return path_ / name; }

private:
  std::filesystem::path path_;
};

} // namespace vorn::test
