// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

using test::run;
using test::ToolOutcome;

/// A picture, and its filtering with more arguments.
class ReportOptions : public testing::Test {
protected:
  ReportOptions() { writeImage(folder_ / "a.png", cv::Mat(8, 12, CV_8UC1, cv::Scalar(7))); }

  ToolOutcome blur(std::vector<std::string> const& arguments) {
    std::vector<std::string> all{"image", folder_ / "a.png", folder_ / "b.png", "--filter", "Blur"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run(all);
  }

  test::TemporaryFolder folder_;
};

TEST_F(ReportOptions, JsonIsAllThatStandardOutputHas) {
  ToolOutcome const outcome = run({"info", folder_ / "a.png", "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.errors, "");
  nlohmann::json const report = nlohmann::json::parse(outcome.output);
  EXPECT_EQ(report["schema"]["name"], "vorn-mv.info");
  EXPECT_EQ(report["files"][0]["size"], nlohmann::json({12, 8}));
  EXPECT_EQ(report["files"][0]["values"], nlohmann::json({7.0, 7.0}));
}

TEST_F(ReportOptions, DashLeadsTheReportToStandardOutputAndTextToStandardError) {
  for (char const* path : {"-", "/dev/stdout"}) {
    ToolOutcome const outcome = run({"info", folder_ / "a.png", "--report", path});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(nlohmann::json::parse(outcome.output)["files"][0]["kind"], "picture");
    EXPECT_NE(outcome.errors.find("12 x 8"), std::string::npos) << outcome.errors;
  }
}

TEST_F(ReportOptions, QuietSaysNothing) {
  ToolOutcome const outcome = run({"info", folder_ / "a.png", "--quiet", "--report", folder_ / "r.json"});
  EXPECT_EQ(outcome.output + outcome.errors, "");
  EXPECT_EQ(readJsonFile(folder_ / "r.json")["files"][0]["kind"], "picture");
  // The next run is heard again.
  EXPECT_NE(run({"info", folder_ / "a.png"}).output, "");
}

TEST_F(ReportOptions, HoldWhatWasGiven) {
  ASSERT_EQ(blur({"--report", folder_ / "r.json"}).status, 0);
  nlohmann::json const options = readJsonFile(folder_ / "r.json")["settings"]["options"];
  EXPECT_EQ(options["filter"], nlohmann::json({"Blur"}));
  EXPECT_EQ(options["input"], std::string(folder_ / "a.png"));
  EXPECT_EQ(options["list"], false);
}

TEST_F(ReportOptions, ReportOverAnInputOrOutputIsRefused) {
  for (char const* name : {"a.png", "b.png"}) {
    ToolOutcome const outcome = blur({"--report", folder_ / name});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find(name), std::string::npos) << outcome.errors;
    EXPECT_FALSE(std::filesystem::exists(folder_ / "b.png"));
  }
  EXPECT_EQ(blur({"--json", "--report", "-"}).status, 2);
}

TEST_F(ReportOptions, AFailedCommandWritesNone) {
  ToolOutcome const outcome = run({"info", folder_ / "none.png", "--json", "--report", folder_ / "r.json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "r.json"));
}

TEST_F(ReportOptions, NamesThatAreNoUtf8AreNoHindrance) {
  std::string const name = folder_ / "\xff.png";
  writeImage(name, cv::Mat(8, 12, CV_8UC1, cv::Scalar(7)));
  ToolOutcome const outcome = run({"info", name, "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(nlohmann::json::parse(outcome.output)["inputs"].size(), 1U);
}

TEST_F(ReportOptions, ReportsOfEarlierVersionsAreRead) {
  std::ofstream(folder_ / "scan.json") << R"({"Images": 11, "Points": 3, "Times": {"Read": 1.5},
    "NotMeasured": {"LowContrast": 5}, "Resolution": [640, 480], "Truth": {"RMS": 0.5, "Artefacts": {"Sphere A: size": 1}}})";
  ToolOutcome const scan = run({"info", folder_ / "scan.json"});
  ASSERT_EQ(scan.status, 0) << scan.errors;
  EXPECT_EQ(scan.output.rfind("Report of vorn-mv demo\n", 0), 0U) << scan.output;
  for (char const* line : {"\nimages: 11\n", "\nnotMeasured: lowContrast 5\n", "\nresolution: 640, 480\n",
                           "\ntruth: artefacts (Sphere A: size 1), rms 0.5\n"}) {
    EXPECT_NE(scan.output.find(line), std::string::npos) << scan.output;
  }
  std::ofstream(folder_ / "calib.json") << R"({"views": [{"name": "pose_00", "used": true}], "camera": {}})";
  ToolOutcome const calibration = run({"info", folder_ / "calib.json"});
  EXPECT_NE(calibration.output.find("views: 1\n  name pose_00, used true\n"), std::string::npos)
      << calibration.output << calibration.errors;
}

} // namespace
} // namespace vorn::tools
