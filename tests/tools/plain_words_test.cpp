// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// What the tool says where a command line or its files are not what was meant.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/scan/exposure.hpp"
#include "tools/scan/sequence_count.hpp"

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

TEST_F(PlainWords, TooFewImagesAreCounted) {
  // Stripes of four columns whose words begin with 2: 640 columns have words up to 161, which take eight
  // bits, one of them the reference's; rows of eight, 400 of them words up to 51, six bits.
  EXPECT_EQ(missingImages("columns", 12, {640, 400}), "");
  EXPECT_EQ(missingImages("columns", 11, {640, 400}),
            "11 images of columns, and a projector of 640 x 400 takes 12");
  EXPECT_EQ(missingImages("rows", 10, {640, 400}), "");
  EXPECT_EQ(missingImages("rows", 9, {640, 400}), "9 images of rows, and a projector of 640 x 400 takes 10");
  EXPECT_EQ(missingImages("rows", 1, {}), "1 image of rows, and any projector takes at least 6");
  EXPECT_EQ(missingImages("rows", 6, {}), "");
  EXPECT_EQ(extraImages("columns", 12, {640, 400}), "");
  EXPECT_EQ(extraImages("columns", 13, {640, 400}),
            "13 images of columns, and a projector of 640 x 400 takes 12");
  // The generator stops at eight planes, and so at 13 images; words of 1920 columns take nine bits, too, of
  // 3000 ten.
  EXPECT_EQ(extraImages("columns", 13, {1920, 1080}), "");
  EXPECT_EQ(extraImages("columns", 14, {1920, 1080}),
            "14 images of columns, and a projector of 1920 x 1080 takes 13");
  EXPECT_EQ(extraImages("columns", 15, {3000, 1080}),
            "15 images of columns, and a projector of 3000 x 1080 takes 14");
  EXPECT_EQ(extraImages("rows", 20, {}), "");
  EXPECT_EQ(extraImages("rows", 21, {}), "21 images of rows, and no projector takes more than 20");

  constexpr int divisor = 8;
  sim::Rig const rig = sim::demoRig(divisor);
  sim::FolderOptions options;
  options.truth = false;
  sim::writeScanFolder(path("scan"), rig, sim::demoScene(), options);
  sim::writeScannerTruth(path("truth.json"), rig);
  std::size_t const count = findSequence(path("scan"), "columns").size();
  fs::remove(sequencePath(path("scan"), "columns", static_cast<int>(count) - 1));
  expectErrors({"scan", path("scan"), "--calib", path("truth.json"), "-o", path("a.ply")},
               {"Insufficient input patterns!", path("scan"),
                std::to_string(count - 1) + " images of columns", "takes " + std::to_string(count)});
  for (int i = static_cast<int>(count) - 1; i < static_cast<int>(count) + 1; ++i) {
    fs::copy(sequencePath(path("scan"), "columns", 0), sequencePath(path("scan"), "columns", i));
  }
  expectErrors({"scan", path("scan"), "--calib", path("truth.json"), "-o", path("a.ply")},
               {"Too many input patterns!", path("scan"), std::to_string(count + 1) + " images of columns",
                "takes " + std::to_string(count)});
}

TEST_F(PlainWords, ViewsWithTooFewImagesAreCounted) {
  for (char const* pose : {"pose_00", "pose_01", "pose_02"}) {
    std::string const view = std::string("views/") + pose + "/";
    picture(view + "target.png", 90);
    for (int i = 0; i < 7; ++i) {
      picture(view + "columns_0" + std::to_string(i) + ".png", 90);
      picture(view + "rows_0" + std::to_string(i) + ".png", 90);
    }
  }
  expectErrors({"calibrate", path("views"), "--pitch", "15", "--projector", "640x400", "-o", path("k.json")},
               {"Insufficient input patterns!", "pose_01",
                "7 images of columns, and a projector of 640 x 400 takes 12"});
  for (char const* pose : {"pose_00", "pose_01", "pose_02"}) {
    std::string const view = std::string("views/") + pose + "/";
    for (int i = 7; i < 12; ++i) {
      picture(view + sequencePath("", "columns", i), 90);
    }
    for (int i = 7; i < 11; ++i) {
      picture(view + sequencePath("", "rows", i), 90);
    }
  }
  expectErrors(
      {"calibrate", path("views"), "--pitch", "15", "--projector", "640x400", "-o", path("k.json")},
      {"Too many input patterns!", "pose_01", "11 images of rows, and a projector of 640 x 400 takes 10"});
}

TEST_F(PlainWords, OtherCalibrationsAreNamed) {
  test::put(path("camera.json"), R"({"Resolution": [640, 480], "K": []})");
  test::put(path("line.json"), R"({"CameraModel": {}, "Plane_0": {}})");
  test::put(path("stereo.json"), R"({"CameraModel0": {}})");
  picture("scan/columns_00.png", 3);
  struct Case {
    char const* file;
    char const* kind;
  };
  for (Case const& one : {Case{"camera.json", "holds a camera, not a structured-light scanner"},
                          Case{"line.json", "--laser"}, Case{"stereo.json", "two cameras"}}) {
    expectErrors({"scan", path("scan"), "--calib", path(one.file)}, {path(one.file), one.kind});
  }
}

TEST_F(PlainWords, FilesOfTheWrongKind) {
  test::put(path("c.ply"), "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\n"
                           "property float z\nend_header\n1 2 3\n");
  expectErrors({"height", path("c.ply"), path("h.png")}, {"a height map is written as .tiff"});
  expectErrors({"filter", path("c.ply"), path("d.ply"), "--z-range", "nan", "500"}, {"numbers, not nan"});
  expectErrors({"info", folder_.path()}, {"it is a folder", "*.json"});
  // A copy is said, a conversion is not.
  expectErrors({"filter", path("c.ply"), path("d.ply")}, {"no filter is named"}, 0);
  EXPECT_EQ(run({"filter", path("c.ply"), path("d.xyz")}).errors, "");
  std::string const image = picture("a.png", 9);
  expectErrors({"image", image, path("b.png")}, {"no filter is named"}, 0);
  EXPECT_EQ(run({"image", image, path("b.tiff")}).errors, "");
}

TEST_F(PlainWords, ExposureAdvisesWhereItMatters) {
  auto const kindsOf = [](Exposure const& exposure) {
    std::vector<Advice::Kind> kinds;
    for (Advice const& advice : exposure.advice) {
      kinds.push_back(advice.kind);
    }
    return kinds;
  };
  // A target as the tutorial wants it: paper at 120 of 255 on a dark ground that fills half of the image.
  cv::Mat target(100, 200, CV_8UC1, cv::Scalar(4));
  target(cv::Rect(0, 0, 100, 100)) = cv::Scalar(120);
  using Kinds = std::vector<Advice::Kind>;
  EXPECT_EQ(kindsOf(exposureOfImages({target}, Ground::IsNoFault)), Kinds{});
  EXPECT_EQ(kindsOf(exposureOfImages({target})), Kinds{Advice::Kind::Dark});
  cv::Mat const dim = target / 2;
  EXPECT_EQ(kindsOf(exposureOfImages({dim}, Ground::IsNoFault)), Kinds{Advice::Kind::Dim});

  // Four views that are all dim, and of which one is clipped too.
  for (char const* pose : {"pose_00", "pose_01", "pose_02", "pose_03"}) {
    fs::create_directories(path(std::string("views/") + pose));
    cv::Mat view = dim.clone();
    if (pose == std::string("pose_02")) {
      view(cv::Rect(0, 0, 10, 30)) = cv::Scalar(255);
      view(cv::Rect(20, 0, 80, 100)) = cv::Scalar(210);
    }
    writeImage(path(std::string("views/") + pose + "/target.png"), view);
  }
  ToolOutcome const mixed = run({"exposure", path("views")});
  ASSERT_EQ(mixed.status, 0) << mixed.errors;
  auto const count = [](std::string const& text, std::string const& part) {
    int found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
      ++found;
    }
    return found;
  };
  EXPECT_EQ(count(mixed.output, "lengthen"), 3) << mixed.output;
  EXPECT_EQ(count(mixed.output, "shorten"), 1) << mixed.output;
  EXPECT_EQ(count(mixed.output, "all 4"), 0) << mixed.output;
  writeImage(path("views/pose_02/target.png"), cv::Mat(dim / 2));
  std::string const alike = run({"exposure", path("views")}).output;
  EXPECT_EQ(count(alike, "lengthen"), 1) << alike;
  EXPECT_NE(alike.find("all 4 sequences, most of all pose_02/target"), std::string::npos) << alike;
}

} // namespace
} // namespace vorn::tools
