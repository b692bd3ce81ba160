// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <vorn/mv/calib/laser_line.hpp>

#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;
using test::contentOf;
using test::put;
using test::run;
using test::ToolOutcome;

/// A copy of a rendered scan of a small rig, to be used and spoilt.
class RenderedScan {
public:
  RenderedScan() { fs::copy(original().path(), folder_.path(), fs::copy_options::recursive); }

  fs::path operator/(std::string const& name) const { return folder_ / name; }

  ToolOutcome scan(std::vector<std::string> const& more) const {
    std::vector<std::string> arguments{"scan", folder_ / "scan", "--calib", folder_ / "scanner_truth.json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }

private:
  /// Rendered once for all tests.
  static test::TemporaryFolder const& original() {
    static test::TemporaryFolder const folder;
    static int const status = run({"simulate", folder.path(), "--divisor", "4", "--no-calib"}).status;
    EXPECT_EQ(status, 0);
    return folder;
  }

  test::TemporaryFolder folder_;
};

TEST(ScanCommand, ReadsTwelveBitsInSixteen) {
  RenderedScan const files;
  ASSERT_EQ(files.scan({"--map", files / "bytes.tiff"}).status, 0);
  for (NumberedFile const& file : findSequence((files / "scan").string(), "columns")) {
    cv::Mat deep;
    readImage(file.path).convertTo(deep, CV_16U, 4095.0 / 255);
    writeImage(file.path, deep);
  }
  ToolOutcome const found = files.scan({"--map", files / "deep.tiff", "--report", files / "r.json"});
  ASSERT_EQ(found.status, 0) << found.errors;
  EXPECT_EQ(readJsonFile(files / "r.json")["whiteLevel"], 4095);
  cv::Mat const expected = readImage(files / "bytes.tiff");
  cv::Mat const deep = readImage(files / "deep.tiff");
  cv::Mat const inBoth = (expected >= 0) & (deep >= 0);
  EXPECT_GT(cv::countNonZero(inBoth), 0.99 * cv::countNonZero(expected >= 0));
  EXPECT_LT(cv::norm(expected, deep, cv::NORM_L1, inBoth) / cv::countNonZero(inBoth), 1e-2);

  auto const clippedIn = [&](char const* report) {
    return readJsonFile(files / report)["notMeasured"]["clipped"].get<int>();
  };
  ASSERT_EQ(files.scan({"--white-level", "500", "--report", files / "given.json"}).status, 0);
  EXPECT_EQ(readJsonFile(files / "given.json")["whiteLevel"], 500);
  EXPECT_GT(clippedIn("given.json"), 100 + clippedIn("r.json"));
  // One of the images in 8 bits.
  cv::Mat const first = readImage(files / "scan/columns_00.png");
  writeImage(files / "scan/columns_00.png", cv::Mat(first.size(), CV_8U, cv::Scalar(1)));
  ToolOutcome const mixed = files.scan({"--map", files / "deep.tiff"});
  EXPECT_EQ(mixed.status, 1);
  EXPECT_NE(mixed.errors.find("columns_01.png is CV_16UC1"), std::string::npos) << mixed.errors;
}

TEST(ScanCommand, TakesImagesOfAnyNamesAndPages) {
  RenderedScan const files;
  ASSERT_EQ(files.scan({"--map", files / "expected.tiff"}).status, 0);
  cv::Mat const expected = readImage(files / "expected.tiff");
  std::vector<cv::Mat> pages;
  for (NumberedFile const& file : findSequence((files / "scan").string(), "columns")) {
    pages.push_back(readImage(file.path));
    // Without leading zeros, "img 10" stands before "img 2" by letters.
    fs::rename(file.path, files / ("scan/img " + std::to_string(file.number) + ".png"));
  }
  ASSERT_TRUE(cv::imwritemulti(files / "scan/stack.tif", pages));
  auto const expectSame = [&](std::vector<std::string> more) {
    more.insert(more.end(), {"--map", files / "map.tiff"});
    ToolOutcome const outcome = files.scan(more);
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(cv::norm(readImage(files / "map.tiff"), expected, cv::NORM_INF), 0) << more[1];
  };
  expectSame({"--columns", "img *.png"});
  expectSame({"--columns", "stack.tif"});
  expectSame({"--columns", "img [0-4].png", "img [!0-4].png"});
  // Names that are given come before a description that lies there, too.
  put(files / "scan/pattern_set.json", "{}");
  expectSame({"--columns", "img *.png"});
  fs::remove(files / "scan/pattern_set.json");
  ToolOutcome const none = files.scan({"--columns", "x*.png", "--map", files / "map.tiff"});
  EXPECT_EQ(none.status, 1);
  EXPECT_NE(none.errors.find("No file matches"), std::string::npos) << none.errors;
}

TEST(ScanCommand, MeasuresTheSceneThatWasRendered) {
  RenderedScan const files;
  ToolOutcome const outcome =
      files.scan({"--out", files / "cloud.ply", "--xyz", files / "xyz.tiff", "--map", files / "map.tiff",
                  "--preview", files / "p.png", "--report", files / "r.json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;

  cv::Mat_<cv::Vec3f> const xyz = cv::imread(files / "xyz.tiff", cv::IMREAD_UNCHANGED);
  cv::Mat_<cv::Vec3f> const truth = cv::imread(files / "scan/truth_xyz.tiff", cv::IMREAD_UNCHANGED);
  cv::Mat_<uchar> const mask = cv::imread(files / "scan/truth_mask.png", cv::IMREAD_UNCHANGED);
  ASSERT_EQ(xyz.size(), truth.size());
  int expected = 0;
  int measured = 0;
  double squares = 0.0;
  constexpr uchar clean = 255;
  for (int y = 0; y < mask.rows; ++y) {
    for (int x = 0; x < mask.cols; ++x) {
      expected += mask(y, x) == clean ? 1 : 0;
      if (mask(y, x) == clean && std::isfinite(xyz(y, x)[2])) {
        ++measured;
        squares += std::pow(cv::norm(xyz(y, x) - truth(y, x)), 2);
      }
    }
  }
  constexpr double leastShare = 0.99;
  // The noise of this rig's coarse pixels makes 0.1 mm.
  constexpr double mostError = 0.15;
  EXPECT_GT(measured, leastShare * expected);
  EXPECT_LT(std::sqrt(squares / measured), mostError);

  nlohmann::json const report = readJsonFile(files / "r.json");
  EXPECT_EQ(report["points"].get<std::size_t>(), readGraphic(files / "cloud.ply").vertices().size());
  EXPECT_GT(cv::imread(files / "p.png").rows, xyz.rows) << "a title above the relief";
  EXPECT_EQ(cv::imread(files / "map.tiff", cv::IMREAD_UNCHANGED).type(), CV_32F);
}

TEST(ScanCommand, WritesASurfaceAsStl) {
  RenderedScan const files;
  ASSERT_EQ(files.scan({"--out", files / "surface.stl"}).status, 0);
  constexpr std::size_t fewest = 10000;
  EXPECT_GT(readGraphic(files / "surface.stl").triangles().size(), fewest);
}

struct BadInput {
  char const* part; ///< what the message must name
  std::function<void(RenderedScan const&)> spoil;
  std::vector<std::string> more;
};

/// Changes the calibration by `edit`.
template <class Edit>
std::function<void(RenderedScan const&)> recalibrated(Edit const& edit) {
  return [edit](RenderedScan const& files) {
    nlohmann::json json = readJsonFile(files / "scanner_truth.json");
    edit(json);
    writeJsonFile(files / "scanner_truth.json", json);
  };
}

TEST(ScanCommand, BadInputIsOneLineAndHarmsNothing) {
  auto const nothing = [](RenderedScan const& /*files*/) {};
  std::vector<BadInput> const cases{
      {"columns_04", [](auto const& files) { fs::remove(files / "scan/columns_04.png"); }, {}},
      {"columns_03.png", [](auto const& files) { put(files / "scan/columns_03.png", "no picture"); }, {}},
      {"9 x 7",
       [](auto const& files) { writeImage(files / "scan/columns_05.png", cv::Mat::zeros(7, 9, CV_8U)); },
       {}},
      {"Insufficient input patterns",
       [](auto const& files) {
         for (int i = 6; fs::remove(sequencePath(files / "scan", "columns", i)); ++i) {
         }
       },
       {}},
      {"no folder", [](auto const& files) { fs::remove_all(files / "scan"); }, {}},
      {"scanner_truth.json", [](auto const& files) { put(files / "scanner_truth.json", "{"); }, {}},
      {"scanner_truth.json", [](auto const& files) { fs::remove(files / "scanner_truth.json"); }, {}},
      {"ProjectorModel", recalibrated([](auto& json) { json.erase("ProjectorModel"); }), {}},
      {"640 x 480",
       recalibrated([](auto& json) {
         json["CameraModel"]["Resolution"] = {640, 480};
       }),
       {}},
      {"not calibrated", recalibrated([](auto& json) { json["CameraModel"]["Error"] = 0.7; }), {}},
      {"columns_02.jpg is incomplete",
       [](auto const& files) {
         // As a copy that broke off leaves it.
         std::string const whole = encodedImage("a.jpg", readGrayImage(files / "scan/columns_02.png"));
         fs::remove(files / "scan/columns_02.png");
         put(files / "scan/columns_02.jpg", whole.substr(0, whole.size() * 6 / 10));
       },
       {}},
      {"has a point: 76800 ",
       [](auto const& files) {
         for (NumberedFile const& file : findSequence(files / "scan", "columns")) {
           writeImage(file.path, cv::Mat::zeros(240, 320, CV_8U));
         }
       },
       {}},
      {"no pictures columns_00.png",
       [](auto const& files) {
         for (NumberedFile const& file : findSequence(files / "scan", "columns")) {
           fs::remove(file.path);
         }
       },
       {}},
      {"absent", nothing, {"--preview", "/absent/p.png"}},
      {"points.png", nothing, {"--xyz", fs::temp_directory_path() / "points.png"}},
      {"Sensitivty", nothing, {"--set", "Sensitivty=3"}},
      {"Sensitivity", nothing, {"--set", "Sensitivity=300"}},
  };
  for (BadInput const& c : cases) {
    RenderedScan const files;
    put(files / "cloud.ply", "old");
    c.spoil(files);
    std::vector<std::string> more = c.more;
    more.insert(more.end(), {"--out", files / "cloud.ply"});
    ToolOutcome const outcome = files.scan(more);
    EXPECT_EQ(outcome.status, 1) << c.part;
    EXPECT_NE(outcome.errors.find(c.part), std::string::npos) << outcome.errors;
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
    EXPECT_EQ(contentOf(files / "cloud.ply"), "old") << c.part;
  }
}

TEST(ScanCommand, RefusesToWriteOverInputsAndOtherOutputs) {
  RenderedScan const files;
  std::string const calibration = contentOf(files / "scanner_truth.json");
  fs::create_symlink(files / "scanner_truth.json", files / "link.json");
  struct Case {
    std::vector<std::string> outputs;
    char const* part;
  };
  std::vector<Case> const cases{
      {{"--report", files / "scanner_truth.json"}, "it is an input"},
      {{"--report", files / "link.json"}, "it is an input"},
      {{"--preview", files / "scan/../scan/columns_03.png"}, "it is an input"},
      {{"--preview", files / "a.png", "--map", files / "a.png"}, "another output goes there too"},
      {{"--out", files / "q.ply", "--report", files / "scan/../q.ply"}, "another output goes there too"},
  };
  for (Case const& c : cases) {
    ToolOutcome const outcome = files.scan(c.outputs);
    EXPECT_EQ(outcome.status, 1) << c.outputs[1];
    EXPECT_NE(outcome.errors.find(c.part), std::string::npos) << outcome.errors;
  }
  EXPECT_EQ(contentOf(files / "scanner_truth.json"), calibration);
  EXPECT_FALSE(fs::exists(files / "q.ply"));
  EXPECT_EQ(files.scan({"--report", "/dev/null", "--preview", files / "p.png"}).status, 0);
}

TEST(ScanCommand, ReadsWholeJpegFiles) {
  RenderedScan const files;
  for (NumberedFile const& file : findSequence(files / "scan", "columns")) {
    std::string const bytes = encodedImage("a.jpg", readGrayImage(file.path));
    fs::remove(file.path);
    put(fs::path(file.path).replace_extension(".jpg"), bytes);
  }
  EXPECT_EQ(files.scan({}).status, 0);
}

TEST(DemoCommand, MeasuresSpheresAndPlane) {
  test::TemporaryFolder const folder;
  ASSERT_EQ(run({"demo", "--true-calibration", "--divisor", "2", "--out", folder.path()}).status, 0);
  nlohmann::json const truth = readJsonFile(folder / "report.json")["truth"];
  // Pixels twice as large as the rig's own make about 0.06 mm of noise, the worst of thousands five times
  // that.
  constexpr double noise = 0.1;
  EXPECT_LT(truth["rms"].get<double>(), noise);
  EXPECT_GT(truth["rms"].get<double>(), 0.0);
  EXPECT_LT(std::abs(truth["artefacts"]["sphere A: size error"].get<double>()), noise);
  EXPECT_LT(std::abs(truth["artefacts"]["sphere A to sphere B: distance error"].get<double>()), noise);
  EXPECT_LT(truth["artefacts"]["back plane: flatness"].get<double>(), 10.0 * noise);
}

TEST(Tool, SuggestsWhatAMisspeltWordMeans) {
  auto const errors = [](std::vector<std::string> const& arguments) {
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    return outcome.errors;
  };
  EXPECT_NE(errors({"scna", "folder"}).find("mean \"scan\"?"), std::string::npos);
  EXPECT_NE(errors({"--verbose", "calibarte"}).find("mean \"calibrate\"?"), std::string::npos);
  EXPECT_NE(errors({"scan", "x", "--calib", "y", "--reprot", "z"}).find("mean \"--report\"?"),
            std::string::npos);
  EXPECT_NE(errors({"scan", "x", "--calib=y", "--prevew=z"}).find("mean \"--preview\"?"), std::string::npos);
  EXPECT_EQ(errors({"frobnicate"}).find("mean"), std::string::npos);
  EXPECT_EQ(errors({"scan"}).find("mean"), std::string::npos) << "nothing is misspelt";
}

TEST(Tool, WrongUsageIsStatusTwo) {
  EXPECT_EQ(run({}).status, 2);
  EXPECT_EQ(run({"scan"}).status, 2);
  EXPECT_EQ(run({"patterns", "x", "--width", "many", "--height", "4"}).status, 2);
  EXPECT_EQ(run({"patterns", "x", "--width", "2049", "--height", "4"}).status, 2);
  EXPECT_EQ(run({"patterns", "x", "--width", "4", "--height", "4097"}).status, 2);
  // Options that the kind of job does not take.
  EXPECT_EQ(run({"scan", "x", "--calib", "y", "--laser", "--set", "Sensitivity=3"}).status, 2);
  EXPECT_EQ(run({"calibrate", "x", "--out", "y", "--stereo", "--projector", "640x400"}).status, 2);
  EXPECT_EQ(run({"calibrate", "x", "--out", "y", "--pitch", "0"}).status, 2);
  EXPECT_EQ(run({"calibrate", "x", "--out", "y", "--pitch", "15", "--set", "PatternDim=20"}).status, 2);
  EXPECT_EQ(run({"simulate", "x", "--stereo", "--no-calib"}).status, 2);
  EXPECT_EQ(run({"simulate", "x", "--laser", "--rows"}).status, 2);
  EXPECT_EQ(run({"simulate", "x", "--laser", "--fault", "gamma"}).status, 2);
  EXPECT_EQ(run({"simulate", "x", "--fault", "gamma=9"}).status, 2);
  EXPECT_EQ(run({"--help"}).status, 0);
  EXPECT_EQ(run({"scan", "--help"}).status, 0);
}

TEST(Tool, HelpTellsTheDefaults) {
  struct Case {
    char const* command;
    char const* option;
    char const* value;
  };
  for (Case const& known : {Case{"scan", "--laser-color", "auto"},
                            {"calibrate", "--laser-color", "auto"},
                            {"normals", "--orientation", "auto"},
                            {"scan", "--contrast", nullptr}}) {
    std::string const help = run({known.command, "--help"}).output;
    std::size_t const at = help.find(known.option);
    ASSERT_NE(at, std::string::npos) << known.command << ' ' << known.option;
    std::string const line = help.substr(at, help.find('\n', at) - at);
    double const contrast = mv::LaserLineOptions().minContrast;
    std::string const value =
        known.value != nullptr ? known.value : std::to_string(static_cast<int>(contrast));
    EXPECT_NE(line.find("=" + value), std::string::npos) << line;
  }
}

TEST(Tool, CalibratesNothingWithoutAPitch) {
  ToolOutcome const without =
      run({"calibrate", "no such folder", "--out", "x.json", "--set", "MinDotArea=20"});
  EXPECT_EQ(without.status, 2);
  EXPECT_NE(without.errors.find("--pitch MM"), std::string::npos) << without.errors;
  // Either way of giving it leads on to the folder.
  for (std::vector<std::string> const& pitch :
       {std::vector<std::string>{"--pitch", "15"}, {"--set", "PatternDim=15"}}) {
    std::vector<std::string> arguments = {"calibrate", "no such folder", "--out", "x.json"};
    arguments.insert(arguments.end(), pitch.begin(), pitch.end());
    ToolOutcome const with = run(arguments);
    EXPECT_EQ(with.status, 1);
    EXPECT_NE(with.errors.find("no such folder"), std::string::npos) << with.errors;
  }
}

} // namespace
} // namespace vorn::tools
