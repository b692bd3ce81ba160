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

TEST_F(DetectCommand, DeepImagesAreMeasuredWithoutADescriptionToo) {
  cv::Mat const bright = 255 - plate();
  cv::Mat deep; // 12 bits in the lower ones of 16, as cameras hand them out
  bright.convertTo(deep, CV_16U, 16.0);
  auto const pointsOf = [&](std::string const& image) {
    ToolOutcome const outcome = run({"detect", image, "--pitch", "2", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return nlohmann::json::parse(outcome.output)["images"][0]["points"];
  };
  nlohmann::json const shallow = pointsOf(save("a.png", bright));
  nlohmann::json const read = pointsOf(save("b.png", deep));
  ASSERT_EQ(read.size(), 63U);
  ASSERT_EQ(shallow.size(), 63U);
  for (std::size_t i = 0; i < read.size(); ++i) {
    EXPECT_NEAR(read[i]["imgPnt"][0].get<double>(), shallow[i]["imgPnt"][0].get<double>(), 0.02);
    EXPECT_NEAR(read[i]["imgPnt"][1].get<double>(), shallow[i]["imgPnt"][1].get<double>(), 0.02);
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

/// How many of the places have marks drawn at them: colour, within some pixels.
int markedPlaces(cv::Mat const& picture, cv::Size const& image, nlohmann::json const& places) {
  constexpr int around = 6; // px
  int marked = 0;
  for (auto const& place : places) {
    cv::Point const at(place["imgPnt"][0].get<int>(),
                       place["imgPnt"][1].get<int>() + picture.rows - image.height); // below the title
    cv::Rect const patch(at - cv::Point(around, around), cv::Size(2 * around, 2 * around));
    bool isMarked = false;
    for (int y = patch.y; y < patch.br().y; ++y) {
      for (int x = patch.x; x < patch.br().x; ++x) {
        auto const& pixel = picture.at<cv::Vec3b>(y, x);
        isMarked = isMarked || std::abs(pixel[0] - pixel[2]) > 50;
      }
    }
    marked += isMarked ? 1 : 0;
  }
  return marked;
}

TEST_F(DetectCommand, PicturesOfRefusedGridsShowWhatWasRefusedAndWhy) {
  cv::Mat scattered(480, 640, CV_8UC1, cv::Scalar(200));
  cv::RNG random(3);
  for (int i = 0; i < 25; ++i) {
    cv::circle(scattered,
               {60 + i % 5 * 120 + random.uniform(-25, 25), 60 + i / 5 * 85 + random.uniform(-25, 25)}, 9,
               cv::Scalar(40), cv::FILLED, cv::LINE_AA);
  }
  cv::GaussianBlur(scattered, scattered, {}, 1.0);
  struct Case {
    cv::Mat image;
    std::vector<std::string> options;
    std::string reason;
    std::size_t least;
  };
  cv::Mat board(8 * step, 10 * step, CV_8UC1, cv::Scalar(220)); // of which a part is wanted
  for (int i = 0; i < 48; ++i) {
    if ((i % 8 + i / 8) % 2 == 0) {
      board(cv::Rect((1 + i % 8) * step, (1 + i / 8) * step, step, step)).setTo(30);
    }
  }
  cv::GaussianBlur(board, board, {}, 0.8);
  for (Case const& of :
       {Case{plate(), {"--size", "9x6"}, "63 dots dropped: its grid is not the target's", 63},
        Case{scattered, {"--size", "5x5"}, " dots dropped: no grid goes through it", 15},
        Case{board,
             {"--kind", "chessboard", "--size", "6x4"},
             "35 corners dropped: it belongs to a chessboard of 7 x 5 corners in view",
             35}}) {
    SCOPED_TRACE(of.reason);
    std::vector<std::string> arguments{
        "detect",    save("a.png", of.image), "--out", path("out.json"), "--explain",
        path("why"), "--replace-input"};
    arguments.insert(arguments.end(), of.options.begin(), of.options.end());
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.output.find(of.reason), std::string::npos) << outcome.output;
    nlohmann::json const dropped = readJsonFile(path("out.json"))["images"][0]["dropped"];
    EXPECT_GE(dropped.size(), of.least);
    EXPECT_EQ(markedPlaces(readImage(path("why/a.png")), of.image.size(), dropped),
              static_cast<int>(dropped.size()));
  }
}

TEST_F(DetectCommand, RingsAreAsLargeAsTheirDots) {
  cv::Mat const image = plate();
  ToolOutcome const outcome = run({"detect", save("a.png", image), "--size", "9x7", "--out", path("out.json"),
                                   "--overlay", path("found")});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  for (auto const& point : readJsonFile(path("out.json"))["images"][0]["points"]) {
    EXPECT_NEAR(point["radius"].get<double>(), 9.3, 0.4); // as drawn, with half a pixel of its rim
  }
  // A dot's rim on the diagonal, where no line of the grid is, has its ring on it.
  cv::Mat const picture = readImage(path("found/a.png"));
  cv::Point const at(3 * step, 3 * step + picture.rows - image.rows);
  int farthest = 0;
  for (int k = 2; k < step / 2; ++k) {
    auto const& pixel = picture.at<cv::Vec3b>(at + cv::Point(k, k));
    farthest = std::abs(pixel[0] - pixel[1]) > 50 ? k : farthest;
  }
  EXPECT_NEAR(farthest * std::sqrt(2.0), 9.3, 2);
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
