// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/json_file.hpp>

#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"

namespace vorn::tools {
namespace {

using test::run;
using test::ToolOutcome;

constexpr int columns = 9;
constexpr int rows = 7;
constexpr int step = 36; // pixels

/// A dark 9 x 7 grid without marks.
cv::Mat plate() {
  cv::Mat image((rows + 2) * step, (columns + 2) * step, CV_8UC1, cv::Scalar(200));
  for (int i = 0; i < rows * columns; ++i) {
    cv::circle(image, {(1 + i % columns) * step, (1 + i / columns) * step}, 9, cv::Scalar(40), cv::FILLED,
               cv::LINE_AA);
  }
  cv::GaussianBlur(image, image, {}, 1.0);
  return image;
}

class DetectCommand : public testing::Test {
protected:
  std::string path(std::string const& name) const { return (folder_.path() / name).string(); }

  std::string save(std::string const& name, cv::Mat const& image) const {
    writeImage(path(name), image);
    return path(name);
  }

  std::string saveText(std::string const& name, std::string const& text) const {
    std::ofstream(path(name)) << text;
    return path(name);
  }

  test::TemporaryFolder folder_;
};

TEST_F(DetectCommand, FileAndOptionsDescribeTheSameTarget) {
  std::string const image = save("a.png", plate());
  std::string const file = saveText("plate.json", R"({"pitch": 2.5, "size": [9, 7], "polarity": "either"})");
  ToolOutcome const byFile = run({"detect", image, "--target", file, "--out", path("file.json")});
  ASSERT_EQ(byFile.status, 0) << byFile.errors;
  ToolOutcome const byOptions = run({"detect", image, "--size", "9x7", "--kind", "circles", "--pitch", "2.5",
                                     "--out", path("options.json")});
  ASSERT_EQ(byOptions.status, 0) << byOptions.errors;
  EXPECT_NE(byFile.output.find("63 points, looks the same turned"), std::string::npos) << byFile.output;
  nlohmann::json const json = readJsonFile(path("file.json"));
  EXPECT_EQ(json["images"], readJsonFile(path("options.json"))["images"]);
  nlohmann::json const points = json["images"][0]["points"];
  ASSERT_EQ(points.size(), std::size_t{rows * columns});
  for (auto const& point : points) {
    for (int axis = 0; axis < 2; ++axis) {
      double const index = point["index"][axis];
      EXPECT_NEAR(point["imgPnt"][axis].get<double>(), (1 + index) * step, 0.05);
      EXPECT_NEAR(point["objPnt"][axis].get<double>(), 2.5 * index, 1e-5);
    }
  }
}

TEST_F(DetectCommand, PicturesShowDeepImagesToo) {
  // As a camera of 12 bits delivers: shown by its upper 8 bits it would be black.
  cv::Mat deep;
  plate().convertTo(deep, CV_16UC1, 12.0);
  ToolOutcome const outcome = run({"detect", save("deep.png", deep), "--size", "9x7", "--explain",
                                   path("why"), "--overlay", path("found")});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_NE(outcome.output.find(" measured\n"), std::string::npos) << outcome.output;
  for (char const* name : {"why/deep.png", "found/deep.png"}) {
    cv::Mat const picture = readImage(path(name));
    ASSERT_GT(picture.rows, deep.rows) << "a title above the image";
    EXPECT_GT(picture.at<cv::Vec3b>(picture.rows - deep.rows + 3, 3)[0], 200) << name;
  }
}

TEST_F(DetectCommand, RefusesBeforeAnyWork) {
  std::string const image = save("a.png", plate());
  std::string const file = saveText("plate.json", R"({"pitch": 2.5, "size": [9, 7]})");
  std::vector<std::pair<std::vector<std::string>, std::string>> const cases{
      {{"--target", file, "--pitch", "3"}, "--pitch"},
      {{"--kind", "chessboard"}, "size"},
      {{"--size", "0x4"}, "0x4"},
      {{"--target", saveText("bad.json", R"({"pitch": -1})")}, "bad.json"},
      {{"--target", file, "--out", image}, "input"},
      {{"--target", file, "--out", file}, "input"},
      {{"--target", file, "--out", path("none/a.json")}, "none"},
      {{"--target", file, "--explain", path("p"), "--overlay", path("p/")}, "--overlay"}};
  for (auto const& [options, word] : cases) {
    std::vector<std::string> arguments{"detect", image};
    arguments.insert(arguments.end(), options.begin(), options.end());
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1) << word;
    EXPECT_NE(outcome.errors.find(word), std::string::npos) << outcome.errors;
    EXPECT_TRUE(outcome.output.empty()) << outcome.output;
  }
  EXPECT_FALSE(std::filesystem::exists(path("p")));
}

TEST_F(DetectCommand, SaysWhyThereIsNoTarget) {
  ToolOutcome const outcome =
      run({"detect", save("a.png", plate()), "--size", "9x6", "--out", path("out.json")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.output.find("9 x 7"), std::string::npos) << outcome.output;
  EXPECT_NE(readJsonFile(path("out.json"))["images"][0]["reason"], "");
}

TEST_F(DetectCommand, TargetKeepsWhatItsDescriptionWouldReplace) {
  std::string const measured = R"({"pitch": 10, "deviations": [[0, 0, 0.01, 0]]})";
  for (std::string const& text : {measured, std::string(R"({"results": 3})"), std::string("no JSON")}) {
    std::string const file = saveText("t.json", text);
    ToolOutcome const outcome = run({"target", path("t.svg"), "--pitch", "10"});
    EXPECT_EQ(outcome.status, 1) << text;
    EXPECT_NE(outcome.errors.find("t.json"), std::string::npos) << outcome.errors;
    std::ifstream kept(file);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), text);
    EXPECT_FALSE(std::filesystem::exists(path("t.svg")));
  }
  saveText("t.json", R"({"pitch": 7})");
  EXPECT_EQ(run({"target", path("t.svg"), "--pitch", "10"}).status, 0);
  EXPECT_EQ(readJsonFile(path("t.json"))["pitch"], 10.0);
}

} // namespace
} // namespace vorn::tools
