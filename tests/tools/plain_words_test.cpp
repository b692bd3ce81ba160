// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What the tool says where a command line or its files are not what was meant.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;
using test::run;
using test::ToolOutcome;

class PlainWords : public testing::Test {
protected:
  std::string path(std::string const& name) const { return folder_ / name; }

  std::string picture(std::string const& name, int value) const {
    fs::create_directories(fs::path(path(name)).parent_path());
    writeImage(path(name), cv::Mat(40, 60, CV_8UC1, cv::Scalar(value)));
    return path(name);
  }

  static void expectErrors(std::vector<std::string> const& arguments, std::vector<std::string> const& parts,
                           int status = 1) {
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, status) << outcome.errors;
    for (std::string const& part : parts) {
      EXPECT_NE(outcome.errors.find(part), std::string::npos) << part << ": " << outcome.errors;
    }
  }

  test::TemporaryFolder folder_;
};

TEST_F(PlainWords, AnOptionIsNotTheValueOfAnother) {
  std::string const image = picture("a.png", 9);
  expectErrors({"detect", image, "--overlay", "--json"}, {"--overlay needs a value", "--overlay=--json"}, 2);
  expectErrors({"detect", image, "--overlay", "--nothing"}, {"--overlay needs a value"}, 2);
  expectErrors({"scan", folder_.path(), "-o", "--calib", "c.json"}, {"-o needs a value"}, 2);
  expectErrors({"histogram", image, "--plot", "-h"}, {"--plot needs a value"}, 2);
  expectErrors({"align", "a.ply", "b.ply", "--markers", "m.xyz", "--search"}, {"--markers needs"}, 2);
  EXPECT_FALSE(fs::exists("--json") || fs::exists("--nothing"));
  // A report on standard output, numbers below zero, and values behind "=".
  EXPECT_EQ(run({"info", image, "--report", "-"}).status, 0);
  expectErrors({"filter", path("none.ply"), path("b.ply"), "--z-range", "-5", "-2"}, {"none.ply"});
  expectErrors({"histogram", image, "--plot=--none/plot.png"}, {"--none"});
}

} // namespace
} // namespace vorn::tools
