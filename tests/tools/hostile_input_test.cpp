// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <sys/stat.h>

#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

namespace fs = std::filesystem;
using test::run;
using test::ToolOutcome;

class HostileInput : public testing::Test {
protected:
  std::string path(std::string const& name) const { return folder_ / name; }

  std::string put(std::string const& name, std::string const& content) const {
    test::put(folder_ / name, content);
    return path(name);
  }

  /// The one line on standard error of a command that fails, and has it name `name`.
  static std::string refusal(std::vector<std::string> const& arguments, std::string const& name) {
    ToolOutcome const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1) << arguments[1];
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
    EXPECT_EQ(outcome.errors.rfind("vorn-mv: ", 0), 0U) << outcome.errors;
    EXPECT_NE(outcome.errors.find(name), std::string::npos) << outcome.errors;
    return outcome.errors;
  }

  test::TemporaryFolder folder_;
};

TEST_F(HostileInput, DamagedPicturesAreOneLineThatNamesTheFile) {
  cv::Mat noise(60, 80, CV_8UC1);
  cv::randu(noise, 0, 256);
  for (char const* ending : {".png", ".bmp", ".pgm", ".tiff", ".jpg"}) {
    std::string const whole = encodedImage(std::string("a") + ending, noise);
    std::string const name = std::string("half") + ending;
    std::string const file = put(name, whole.substr(0, whole.size() / 2));
    refusal({"info", file}, name);
    refusal({"image", file, path("out.png"), "--filter", "Blur"}, name);
  }
  std::string flipped = encodedImage("a.png", noise);
  flipped[flipped.size() / 2] = static_cast<char>(flipped[flipped.size() / 2] ^ 0x55);
  refusal({"info", put("flipped.png", flipped)}, "flipped.png");
}

TEST_F(HostileInput, DevicesAndFoldersAreNoPictures) {
  for (char const* device : {"/dev/zero", "/dev/null"}) {
    EXPECT_NE(refusal({"info", device}, device).find("it is a device"), std::string::npos);
    refusal({"filter", path("link.ply"), path("b.ply")}, "link.ply");
    refusal({"scan", path(""), "--calib", device}, device);
  }
  EXPECT_NE(refusal({"detect", path("")}, path("")).find("it is a folder"), std::string::npos);
}

TEST_F(HostileInput, FilesBeyondTheLimitAreNotRead) {
  std::string const file = put("sparse.png", "");
  fs::resize_file(file, std::uint64_t{3} << 30); // of zeros that no disk holds
  EXPECT_NE(refusal({"info", file}, "sparse.png").find("more than 1024 MB"), std::string::npos);
  fs::resize_file(file, std::uint64_t{2} << 20);
  EXPECT_NE(refusal({"info", file, "--max-input", "1"}, "sparse.png").find("--max-input"), std::string::npos);
  EXPECT_NE(refusal({"info", file, "--max-input", "2"}, "sparse.png").find("not a picture"),
            std::string::npos);
}

TEST_F(HostileInput, LoopsAndLongNamesAreSaidInWords) {
  fs::create_symlink("loop", path("loop"));
  std::string const tooLong = path(std::string(300, 'n'));
  for (std::string const& name : {path("loop"), tooLong}) {
    for (std::vector<std::string> const& arguments : {std::vector<std::string>{"info", name},
                                                      {"scan", name, "--calib", name},
                                                      {"calibrate", name, "-o", path("c"), "--pitch", "3"}}) {
      EXPECT_EQ(refusal(arguments, name).find("filesystem error"), std::string::npos);
    }
  }
}

TEST_F(HostileInput, TwelveBitsInSixteenAreRefusedWhereEightAreUsed) {
  cv::Mat_<ushort> deep(40, 60, ushort{4000});
  writeImage(path("low.png"), deep);
  writeImage(path("low.tiff"), deep);
  writeImage(path("low.pgm"), deep);
  writeImage(path("image.png"), cv::Mat(40, 60, CV_8UC1, cv::Scalar(9)));
  for (char const* mask : {"low.png", "low.tiff", "low.pgm"}) {
    EXPECT_NE(
        refusal({"histogram", path("image.png"), "--mask", path(mask)}, mask).find("no value above 4000"),
        std::string::npos);
    ToolOutcome const found = run({"detect", path(mask)});
    EXPECT_NE(found.output.find(std::string(mask) + ": no target"), std::string::npos) << found.output;
    EXPECT_NE(found.errors.find("1 of 1 pictures have more than 8 bits"), std::string::npos) << found.errors;
  }
  writeImage(path("plain.pgm"), cv::Mat(40, 60, CV_8UC1, cv::Scalar(9)));
  EXPECT_NE(run({"detect", path("plain.pgm")}).output.find("plain.pgm: no target"), std::string::npos);
  writeImage(path("high.png"), cv::Mat(deep * 16));
  EXPECT_NE(run({"detect", path("high.png")}).output.find("high.png: no target"), std::string::npos);
}

TEST_F(HostileInput, LostTransparencyIsSaid) {
  writeImage(path("a.png"), cv::Mat(4, 4, CV_8UC4, cv::Scalar(1, 2, 3, 100)));
  ToolOutcome const picture = run({"image", path("a.png"), path("b.png"), "--filter", "Blur", "--json"});
  EXPECT_EQ(picture.status, 0);
  EXPECT_NE(picture.errors.find("warning: the transparency (alpha) of"), std::string::npos) << picture.errors;
  EXPECT_EQ(nlohmann::json::parse(picture.output)["warnings"].size(), 1U);
  put("a.obj", "v 0 0 1 1 0 0 0.5\nv 1 0 1 0 1 0 1\nv 0 1 1 0 0 1 1\n");
  ToolOutcome const cloud = run({"filter", path("a.obj"), path("b.ply")});
  EXPECT_NE(cloud.errors.find("of 1 points of"), std::string::npos) << cloud.errors;
  put("c.obj", "v 0 0 1 1 0 0\nv 1 0 1 0 1 0\nv 0 1 1 0 0 1\n");
  EXPECT_EQ(run({"filter", path("c.obj"), path("b.ply")}).errors, "");
}

TEST_F(HostileInput, NormalsThatAreNotThereAreAWarning) {
  put("a.obj", "v 0 0 1\nv 1 0 1\nv 0 1 1\nf 1//1 2//1 3//1\n");
  ToolOutcome const outcome = run({"info", path("a.obj")});
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_NE(outcome.output.find("3 points, 1 triangles; no normals"), std::string::npos) << outcome.output;
  EXPECT_NE(outcome.errors.find("warning: " + path("a.obj") + ": line 4 names the normal 1"),
            std::string::npos)
      << outcome.errors;
}

TEST_F(HostileInput, NothingIsChangedWithoutAFilter) {
  put("a.ply",
      "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\nproperty float z\n"
      "end_header\ninf -inf 0\nnan 1 2\n-0 1 2\n1 2 3\n");
  ASSERT_EQ(run({"filter", path("a.ply"), path("b.obj")}).status, 0);
  std::string const text = test::contentOf(path("b.obj"));
  for (char const* line : {"v inf -inf 0\n", "v nan 1 2\n", "v -0 1 2\n", "v 1 2 3\n"}) {
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
  }
}

/// No output may take the place of an input or of another output, whatever it is called.
TEST_F(HostileInput, CollidingPathsAreRefusedByEveryCommand) {
  writeImage(path("a.png"), cv::Mat(40, 60, CV_8UC1, cv::Scalar(9)));
  put("a.ply",
      "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\nproperty float y\nproperty float z\n"
      "end_header\n1 2 3\n");
  fs::create_directory(path("views"));
  fs::create_directory(path("views/pose_00"));
  writeImage(path("views/pose_00/target.png"), cv::Mat(40, 60, CV_8UC1, cv::Scalar(9)));
  fs::create_symlink("new.json", path("link.json"));
  fs::create_hard_link(path("a.png"), path("same.png"));
  fs::create_directory_symlink(".", path("here"));
  std::string const picture = path("a.png");
  std::string const before = test::contentOf(picture);
  std::vector<std::vector<std::string>> const cases{
      {"image", picture, picture, "--filter", "Blur"},
      {"image", picture, path("same.png"), "--filter", "Blur"},
      {"image", picture, path("here/a.png"), "--filter", "Blur"},
      {"image", picture, path("b.png"), "--filter", "Blur", "--save-filters", path("here/b.png")},
      {"image", picture, path("b.png"), "--filter", "Blur", "--save-filters", path("link.json"), "--report",
       path("new.json")},
      {"detect", picture, "--overlay", path("")},
      {"detect", picture, "--size", "3x3", "--explain", path("here")},
      {"detect", picture, "-o", path("here/a.png")},
      {"info", picture, "--report", picture},
      {"filter", path("a.ply"), path("here/a.ply")},
      {"filter", path("a.ply"), path("b.ply"), "--preview", path("b.ply")},
      {"target", path("t.svg"), "--report", path("here/t.json")},
      {"calibrate", path("views"), "--pitch", "3", "-o", path("views/pose_00/target.png")},
      {"calibrate", path("views"), "--pitch", "3", "-o", path("new.json"), "--report", path("link.json")}};
  for (auto const& arguments : cases) {
    refusal(arguments, "Cannot write");
    EXPECT_EQ(test::contentOf(picture), before) << arguments[0];
    EXPECT_FALSE(fs::exists(path("b.png")) || fs::exists(path("new.json")) || fs::exists(path("t.svg")));
  }
  EXPECT_EQ(run({"image", picture, picture, "--filter", "Blur", "--replace-input"}).status, 0);
}

TEST_F(HostileInput, AReportDoesNotReplaceWhatItsCommandWrote) {
  std::string const pattern = path("p/columns_00.png");
  ToolOutcome const outcome =
      run({"patterns", path("p"), "--width", "64", "--height", "48", "--report", pattern});
  EXPECT_EQ(outcome.status, 1);
  fs::create_directory(path("q"));
  ToolOutcome const second =
      run({"patterns", path("q"), "--width", "64", "--height", "48", "--report", path("q/columns_00.png")});
  EXPECT_EQ(second.status, 1);
  EXPECT_NE(second.errors.find("another output went there"), std::string::npos) << second.errors;
  EXPECT_EQ(readGrayImage(path("q/columns_00.png")).cols, 64);
}

} // namespace
} // namespace vorn::tools
