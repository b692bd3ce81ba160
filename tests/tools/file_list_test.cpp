// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>

#include "support/expect_error.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/file_list.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::tools {
namespace {

TEST(FileList, NumbersAreSortedByTheirValue) {
  std::vector<std::string> const sorted{
      "a",    "a1",    "a01", "a2", "a10", "a10b", "a99999999999999999999", "a100000000000000000000",
      "b2a9", "b2a10", "c"};
  std::vector<std::string> names = sorted;
  std::reverse(names.begin(), names.end());
  std::sort(names.begin(), names.end(), comesBefore);
  // Equal numbers are ordered as texts.
  std::vector<std::string> expected = sorted;
  std::swap(expected[1], expected[2]);
  EXPECT_EQ(names, expected);
}

/// All words of up to `longest` letters of an alphabet.
std::vector<std::string> wordsOf(std::string const& alphabet, std::size_t longest) {
  std::vector<std::string> words{""};
  for (std::size_t i = 0; i < words.size(); ++i) {
    for (std::size_t k = 0; k < alphabet.size() && words[i].size() < longest; ++k) {
      words.push_back(words[i] + alphabet[k]);
    }
  }
  return words;
}

TEST(FileList, PatternsMatchAsTheShellsDo) {
  std::vector<std::string> patterns = wordsOf("ab*?", 5);
  for (char const* pattern : {"[ab]*", "[!a]b", "*[b-c]", "a[a-b][!b]", "[]a]b", "[a", "a[", "*.p[mn][gm]"}) {
    patterns.emplace_back(pattern);
  }
  std::vector<std::string> names = wordsOf("abc", 4);
  for (char const* name : {"[a", "a[", "]b", "x.png", "x.pgm", "x.ppm", ".png"}) {
    names.emplace_back(name);
  }
  for (std::string const& pattern : patterns) {
    for (std::string const& name : names) {
      ASSERT_EQ(matches(name, pattern), fnmatch(pattern.c_str(), name.c_str(), 0) == 0)
          << pattern << ' ' << name;
    }
  }
}

class FileListFolder : public testing::Test {
protected:
  FileListFolder() {
    for (char const* name : {"view_10.png", "view_9.png", ".view_1.png", "[1].png", "other.txt"}) {
      std::ofstream(folder_ / name) << "x";
    }
    for (char const* name : {"pose_2", "pose_10"}) {
      std::filesystem::create_directory(folder_ / name);
      std::ofstream(folder_ / name / "t.png") << "x";
    }
  }

  std::vector<std::string> expand(std::string const& pattern) const {
    std::vector<std::string> found = expandFiles({folder_ / pattern});
    for (std::string& path : found) {
      path = std::filesystem::relative(path, folder_.path()).string();
    }
    return found;
  }

  test::TemporaryFolder folder_;
};

using Names = std::vector<std::string>;

TEST_F(FileListFolder, PatternsAreReplacedByWhatIsThere) {
  EXPECT_EQ(expand("view_*.png"), (Names{"view_9.png", "view_10.png"}));
  EXPECT_EQ(expand("pose_*/t.png"), (Names{"pose_2/t.png", "pose_10/t.png"}));
  EXPECT_EQ(expand("[1].png"), Names{"[1].png"}) << "a file that is there is no pattern";
  std::filesystem::create_directory(folder_ / "scan [1]");
  std::ofstream(folder_ / "scan [1]/x_1.png");
  EXPECT_EQ(expand("scan [1]/x_*.png"), Names{"scan [1]/x_1.png"}) << "a folder that is there is none either";
  EXPECT_EQ(expand("none.png"), Names{"none.png"}) << "its reader says that it is not there";
  EXPECT_EQ(expand(".view*"), Names{".view_1.png"});
  test::expectError([&] { expand("*.tiff"); }, "No file matches");
}

TEST_F(FileListFolder, CommandsTakeListsAndPatterns) {
  for (char const* name : {"view_10.png", "view_9.png"}) {
    writeImage(folder_ / name, cv::Mat(4, 6, CV_8UC1, cv::Scalar(3)));
  }
  test::ToolOutcome const outcome =
      test::run({"info", folder_ / "view_*.png", folder_ / "view_9.png", "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  nlohmann::json const files = nlohmann::json::parse(outcome.output)["files"];
  ASSERT_EQ(files.size(), 3U);
  EXPECT_EQ(files[0]["file"], std::string(folder_ / "view_9.png"));
  EXPECT_EQ(files[1]["file"], std::string(folder_ / "view_10.png"));
  EXPECT_EQ(test::run({"detect", folder_ / "*.bmp"}).status, 1);
  test::ToolOutcome const detection = test::run({"detect", folder_ / "view_*.png"});
  EXPECT_NE(detection.output.find("view_9.png: no target"), std::string::npos) << detection.output;
  EXPECT_NE(detection.errors.find("any of 2 images"), std::string::npos) << detection.errors;
}

} // namespace
} // namespace vorn::tools
