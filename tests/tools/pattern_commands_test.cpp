// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <vorn/core/json_file.hpp>
#include <vorn/mv/sl/pattern_set.hpp>

#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;

using test::run;
using test::ToolOutcome;

class PatternCommands : public testing::Test {
protected:
  std::string path(std::string const& name) const { return (folder_.path() / name).string(); }

  /// What a camera sees that looks straight at the projector's image, at half of its light.
  void capture(std::string const& patterns) const {
    for (auto const& entry : fs::directory_iterator(patterns)) {
      if (entry.path().extension() == ".png") {
        cv::Mat const shown = cv::imread(entry.path().string(), cv::IMREAD_GRAYSCALE);
        writeImage(entry.path().string(), shown * 0.5 + 20);
      }
    }
  }

  ToolOutcome makeSet(std::vector<std::string> const& more) const {
    std::vector<std::string> arguments{"patterns", path("set"), "--width", "160", "--height", "90", "--set"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }

  /// The largest difference of a decoded map to the pixel's own place.
  static double worst(std::string const& map, bool isColumn) {
    cv::Mat_<float> const found = cv::imread(map, cv::IMREAD_UNCHANGED);
    double most = found.empty() ? 1e9 : 0.0;
    for (int y = 0; y < found.rows; ++y) {
      for (int x = 0; x < found.cols; ++x) {
        most = std::max(most, std::fabs(static_cast<double>(found(y, x)) - (isColumn ? x : y)));
      }
    }
    return most;
  }

  test::TemporaryFolder folder_;
};

TEST_F(PatternCommands, WhatIsWrittenIsDecodedToThePlacesOfThePixels) {
  for (std::string const& name : mv::PatternSet::builtInNames()) {
    fs::remove_all(path("set"));
    ASSERT_EQ(makeSet({name}).status, 0) << name;
    capture(path("set"));
    ToolOutcome const outcome =
        run({"decode", path("set"), "-o", path("maps"), "--column", path("c.png"), "--json"});
    ASSERT_EQ(outcome.status, 0) << name << outcome.errors;
    auto const report = nlohmann::json::parse(outcome.output);
    EXPECT_GT(report["decoded"].get<int>(), 160 * 90 * 0.9) << name;
    EXPECT_TRUE(report["warnings"].empty()) << name << report["warnings"];
    for (bool const isColumn : {true, false}) {
      cv::Mat const map =
          cv::imread(path(isColumn ? "maps/column.tiff" : "maps/row.tiff"), cv::IMREAD_UNCHANGED);
      cv::Mat_<float> known = map.clone();
      for (int y = 0; y < known.rows; ++y) {
        for (int x = 0; x < known.cols; ++x) {
          // The very first column and row may fall before the projector's image.
          known(y, x) = known(y, x) < 0 ? static_cast<float>(isColumn ? x : y) : known(y, x);
        }
      }
      writeImage(path("known.tiff"), known);
      EXPECT_LT(worst(path("known.tiff"), isColumn), 0.1) << name;
    }
    EXPECT_TRUE(fs::exists(path("c.png")));
  }
}

TEST_F(PatternCommands, DescriptionsByHandTakeListsAndPatterns) {
  ASSERT_EQ(makeSet({"gray-phase", "--axes", "columns", "--steps", "3", "--period", "16"}).status, 0);
  capture(path("set"));
  // 3 steps and 5 bits of cells of 8 pixels with inverses.
  writeJsonFile(path("mine.json"), nlohmann::json::parse(R"({"projector": [160, 90], "images": [
    {"role": "phase", "axis": "column", "period": 16, "files": "pattern_0[0-2].png"},
    {"role": "gray", "axis": "column", "cell": 8, "inverse": "each", "files":
      ["pattern_03.png", "pattern_04.png", "pattern_05.png", "pattern_06.png", "pattern_07.png",
       "pattern_08.png", "pattern_09.png", "pattern_10.png", "pattern_11.png", "pattern_12.png"]}]})"));
  ASSERT_EQ(run({"decode", path("set"), "-o", path("own")}).status, 0);
  ASSERT_EQ(run({"decode", path("set"), "--patterns", path("mine.json"), "-o", path("mine")}).status, 0);
  EXPECT_EQ(cv::norm(cv::imread(path("own/column.tiff"), cv::IMREAD_UNCHANGED),
                     cv::imread(path("mine/column.tiff"), cv::IMREAD_UNCHANGED), cv::NORM_INF),
            0.0);
}

TEST_F(PatternCommands, LevelsAndNoiseAreThoseThatWereGiven) {
  ASSERT_EQ(makeSet({"gray-phase", "--axes", "columns", "--steps", "3"}).status, 0);
  capture(path("set")); // 20 to 147
  ToolOutcome const clipped = run({"decode", path("set"), "-o", path("none"), "--white-level", "100"});
  EXPECT_EQ(clipped.status, 1);
  EXPECT_NE(clipped.errors.find("clipped"), std::string::npos) << clipped.errors;
  EXPECT_EQ(run({"decode", path("set"), "-o", path("all"), "--white-level", "150"}).status, 0);
  for (std::string const noise : {"2", "4"}) {
    ASSERT_EQ(run({"decode", path("set"), "-o", path("noise" + noise), "--noise", noise}).status, 0);
  }
  cv::Mat const sigma = cv::imread(path("noise2/sigma_column.tiff"), cv::IMREAD_UNCHANGED);
  cv::Mat const twice = cv::imread(path("noise4/sigma_column.tiff"), cv::IMREAD_UNCHANGED);
  cv::Mat const isKnown = cv::imread(path("noise2/mask.png"), cv::IMREAD_GRAYSCALE) == 0;
  ASSERT_GT(cv::countNonZero(isKnown), 160 * 90 / 2);
  EXPECT_LT(cv::norm(2.0 * sigma, twice, cv::NORM_INF, isKnown), 1e-5);
}

TEST_F(PatternCommands, PlansAreToldAndTheBestIsWritten) {
  std::vector<std::string> call{"patterns",    "--plan",  "--width", "640",     "--height",
                                "400",         "--sigma", "0.03",    "--noise", "1.5",
                                "--amplitude", "60",      "--blur",  "0.7",     "--json"};
  ToolOutcome const told = run(call);
  ASSERT_EQ(told.status, 0) << told.errors;
  auto const plans = nlohmann::json::parse(told.output)["plans"];
  ASSERT_GE(plans.size(), 2U);
  EXPECT_LE(plans[0]["images"], plans[1]["images"]);
  for (auto const& plan : plans) {
    EXPECT_LE(plan["sigma"].get<double>(), 0.03);
    EXPECT_GT(plan["decoded"].get<double>(), 0.99);
    EXPECT_EQ(plan["steps"].get<int>() > 0, !plan["periods"].empty());
  }
  call.insert(call.begin() + 1, path("best"));
  ASSERT_EQ(run(call).status, 0);
  auto const written = load<mv::PatternSet>(path("best/pattern_set.json"));
  EXPECT_EQ(written.name, plans[0]["set"]);
  EXPECT_EQ(written.images.size(), plans[0]["images"].get<std::size_t>());
  EXPECT_TRUE(fs::exists(path("best") + "/" + written.images.back().file));

  // Light as seen: blur and amplitude from how much fainter fringes of 4 pixels are than those of 8.
  writeJsonFile(path("light.json"), nlohmann::json::parse(R"({"sequences": [
    {"name": "columns", "amplitude": 29.5, "noise": 1.5}, {"name": "rows", "amplitude": 50.3, "noise": 1.4},
    {"name": "target", "amplitude": null, "noise": 9}]})"));
  auto const seen = nlohmann::json::parse(run({"patterns", "--plan", "--width", "640", "--height", "400",
                                               "--images", "40", "--light", path("light.json"), "--json"})
                                              .output);
  EXPECT_NEAR(seen["light"]["blur"].get<double>(), 0.7, 0.01);
  EXPECT_NEAR(seen["light"]["amplitude"].get<double>(), 60.0, 0.5);
  EXPECT_NEAR(seen["light"]["noise"].get<double>(), std::sqrt(1.5 * 1.5 - 1.0 / 12.0), 1e-9)
      << "as seen, it has rounding in it";
  EXPECT_EQ(run({"patterns", "--plan", "--width", "640", "--height", "400"}).status, 1);
  EXPECT_EQ(run({"patterns", "--plan", "--width", "640", "--height", "400", "--set", "gray"}).status, 2);
  EXPECT_EQ(run({"patterns", "--width", "64", "--height", "48"}).status, 2) << "no folder";
  EXPECT_EQ(run({"patterns", path("p"), "--width", "64", "--height", "48", "--axes", "rows"}).status, 2);
}

TEST_F(PatternCommands, ImagesOutOfOrderAreAWarning) {
  ASSERT_EQ(makeSet({"gray-phase"}).status, 0);
  capture(path("set"));
  fs::rename(path("set/pattern_01.png"), path("other.png"));
  fs::rename(path("set/pattern_08.png"), path("set/pattern_01.png"));
  fs::rename(path("other.png"), path("set/pattern_08.png"));
  ToolOutcome const outcome = run({"decode", path("set"), "--report", path("report.json")});
  EXPECT_NE(outcome.errors.find("pattern_01.png"), std::string::npos) << outcome.errors;
  EXPECT_NE(outcome.errors.find("pattern_08.png"), std::string::npos) << outcome.errors;
  nlohmann::json const doubts = readJsonFile(path("report.json"))["doubts"];
  ASSERT_FALSE(doubts.empty());
  EXPECT_EQ(doubts[0]["fault"], "steps");
}

TEST_F(PatternCommands, NothingThatIsThereIsTakenForSomethingElse) {
  ASSERT_EQ(makeSet({"gray"}).status, 0);
  EXPECT_EQ(makeSet({"gray"}).errors, "") << "as many as before";
  ToolOutcome const shorter = makeSet({"gray", "--axes", "columns"});
  EXPECT_EQ(shorter.status, 0);
  EXPECT_NE(shorter.errors.find("no part of this one"), std::string::npos) << shorter.errors;
  // A capture that has the name of a map.
  capture(path("set"));
  auto json = readJsonFile(path("set/pattern_set.json"));
  fs::rename(path("set/pattern_03.png"), path("set/mask.png"));
  json["images"][3]["file"] = "mask.png";
  writeJsonFile(path("set/pattern_set.json"), json);
  ToolOutcome const outcome = run({"decode", path("set"), "--out", path("set")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.errors.find("mask.png"), std::string::npos) << outcome.errors;
}

TEST_F(PatternCommands, FailuresNameFileAndMember) {
  ASSERT_EQ(makeSet({"gray"}).status, 0);
  auto const expectFailure = [&](std::string const& part) {
    ToolOutcome const outcome = run({"decode", path("set")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors;
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
  };
  fs::remove(path("set/pattern_03.png"));
  expectFailure("pattern_03.png");
  auto json = readJsonFile(path("set/pattern_set.json"));
  json["images"][2]["inverce"] = true;
  writeJsonFile(path("set/pattern_set.json"), json);
  expectFailure("did you mean \"inverse\"");
  fs::remove(path("set/pattern_set.json"));
  expectFailure("pattern_set.json");
  EXPECT_EQ(makeSet({"grey"}).status, 1);
  EXPECT_EQ(run({"patterns", path("p"), "--width", "64", "--height", "48", "--steps", "5"}).status, 2);
}

} // namespace
} // namespace vorn::tools
