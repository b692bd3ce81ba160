// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Folders of numbered pictures: each line of the input makes an entry, a letter for its kind and its name, as
// in "p columns_00.png".
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "require.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::fuzz {
namespace {

namespace fs = std::filesystem;

constexpr int mostEntries = 40;

/// A folder, in memory where there is one, that is emptied for every run and removed at the end.
class ScratchFolder {
public:
  ScratchFolder() {
    fs::path const root = fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : fs::temp_directory_path();
    std::string name = (root / "vorn-fuzz-XXXXXX").string();
    require(mkdtemp(name.data()) != nullptr, "there is room for a folder");
    path_ = name;
  }
  ScratchFolder(ScratchFolder const&) = delete;
  ScratchFolder& operator=(ScratchFolder const&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  fs::path const& emptied() const {
    for (auto const& entry : fs::directory_iterator(path_)) {
      fs::remove_all(entry.path());
    }
    return path_;
  }

private:
  fs::path path_;
};

std::string picture(int width) {
  static std::string const pictures[] = {tools::encodedImage("a.png", cv::Mat(3, 4, CV_8UC1, cv::Scalar(7))),
                                         tools::encodedImage("a.png", cv::Mat(3, 5, CV_8UC1, cv::Scalar(7)))};
  return pictures[width % 2];
}

void makeEntry(fs::path const& path, char kind) {
  std::error_code reason;
  if (kind == 'd') {
    fs::create_directory(path, reason);
  } else if (kind == 'l') {
    fs::create_symlink("nowhere", path, reason);
  } else {
    std::string const content = kind == 'p'   ? picture(0)
                                : kind == 'w' ? picture(1)
                                : kind == 't' ? picture(0).substr(0, 40)
                                              : "";
    std::ofstream(path, std::ios::binary) << content;
  }
}

void tryFolder(std::string const& listing) {
  static ScratchFolder const scratch;
  fs::path const& folder = scratch.emptied();
  std::istringstream lines(listing);
  std::string line;
  for (int i = 0; i < mostEntries && std::getline(lines, line); ++i) {
    bool const isName = line.size() > 2 && line.size() < 100 && line.find('/') == std::string::npos &&
                        line.find('\0') == std::string::npos && line[2] != '.';
    if (isName) {
      makeEntry(folder / line.substr(2), line[0]);
    }
  }
  for (char const* prefix : {"columns", "line", ""}) {
    try {
      auto const files = tools::findSequence(folder.string(), prefix);
      for (std::size_t i = 0; i < files.size(); ++i) {
        require(files[i].number == static_cast<int>(i), "a sequence has no gaps");
        std::string const name = fs::path(files[i].path).filename().string();
        require(name.rfind(std::string(prefix) + "_", 0) == 0,
                "a sequence holds what begins with its prefix");
      }
      require(tools::readSequence(folder.string(), prefix).size() == files.size(),
              "every file gives an image");
    } catch (Exception const&) {
    }
  }
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::runInput([=] { vorn::fuzz::tryFolder(std::string(data, data + size)); });
}
