// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/graphic/graphic_object.hpp>
#include <vorn/mv/core/matrix_json.hpp>

#include "registration/registered_views.hpp"
#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/report/page_tables.hpp"

namespace vorn::tools {
namespace {

using namespace vorn::test;

class RegistrationCommands : public testing::Test {
protected:
  std::string path(std::string const& name) const { return folder_ / name; }

  /// Writes points as a cloud, shifted as a whole.
  void write(std::string const& name, cv::Mat_<cv::Vec3f> const& points, cv::Vec3d const& offset = {}) const {
    graphic::GraphicObject object;
    object.vertices().assign(points.begin(), points.end());
    object.offset() = offset;
    writeGraphic(path(name), object);
  }

  static cv::Matx44d matrixOf(nlohmann::json const& json) {
    cv::Mat matrix;
    json.get_to(matrix);
    return cv::Matx44d(matrix.ptr<double>());
  }

private:
  TemporaryFolder folder_;
};

cv::Vec3d const middle(4.0, 4.0, 400.0);
constexpr int side = 80;

cv::Vec3d slope(double u, double v) {
  return {u, v, 400.0 + 0.25 * u};
}

TEST_F(RegistrationCommands, NormalsOfASlopeAreThoseOfItsPlane) {
  cv::Mat_<cv::Vec3f> const points = view(slope, side, 0.0, 0.0, 0.0, 1);
  write("in.ply", points);
  writeImage(path("in.tiff"), points);
  double const length = std::sqrt(1.0 + 0.25 * 0.25);
  cv::Vec3f const towardsViewer(static_cast<float>(0.25 / length), 0.0F, static_cast<float>(-1.0 / length));
  for (char const* const input : {"in.ply", "in.tiff"}) {
    ToolOutcome const outcome =
        run({"normals", path(input), path("out.ply"), "--orientation", "viewpoint", "--figures", "--json"});
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    graphic::GraphicObject const found = readGraphic(path("out.ply"));
    ASSERT_EQ(found.normals().size(), points.total()) << input;
    for (cv::Vec3f const& normal : found.normals()) {
      ASSERT_LT(cv::norm(normal - towardsViewer), 1e-3) << input;
    }
    EXPECT_EQ(found.fields().count("fit_error") + found.fields().count("curvature"), 2U);
    EXPECT_EQ(nlohmann::json::parse(outcome.output).at("computed"), points.total());
  }
  // From behind they turn; of a grid they may be an image.
  ASSERT_EQ(run({"normals", path("in.tiff"), path("n.tiff"), "--viewpoint", "0", "0", "900"}).status, 0);
  cv::Mat_<cv::Vec3f> const image = readImage(path("n.tiff"));
  ASSERT_EQ(image.size(), points.size());
  EXPECT_LT(cv::norm(image(40, 40) + towardsViewer), 1e-3);

  EXPECT_EQ(run({"normals", path("in.ply"), path("n.tiff")}).status, 1) << "no grid";
  EXPECT_EQ(run({"normals", path("in.ply"), path("n.stl")}).status, 1) << "no place for normals";
  cv::Mat_<cv::Vec3f> line(1, 50);
  for (int i = 0; i < 50; ++i) {
    line(0, i) = cv::Vec3f(static_cast<float>(i), 0, 1);
  }
  write("line.ply", line);
  ToolOutcome const none = run({"normals", path("line.ply"), path("n.ply")});
  EXPECT_EQ(none.status, 1);
  EXPECT_NE(none.errors.find("No point of"), std::string::npos) << none.errors;
  EXPECT_FALSE(std::filesystem::exists(path("n.ply")));
}

/// Twelve triangles have eight corners, on which nothing could be laid.
TEST_F(RegistrationCommands, AlignLaysAScanOntoADrawing) {
  cv::Vec3d const size(40, 30, 20);
  graphic::GraphicObject drawing;
  for (int i = 0; i < 8; ++i) {
    drawing.vertices().emplace_back(cv::Vec3d(i % 2 * size[0], i / 2 % 2 * size[1], i / 4 * size[2]));
  }
  drawing.triangles() = {{0, 2, 1}, {1, 2, 3}, {4, 5, 6}, {5, 7, 6}, {0, 1, 4}, {1, 5, 4},
                         {2, 6, 3}, {3, 6, 7}, {0, 4, 2}, {2, 4, 6}, {1, 3, 5}, {3, 7, 5}};
  writeGraphic(path("drawing.stl"), drawing);
  // What a sensor above one corner sees of it: three faces, with noise, and one of them 0.1 mm too high.
  constexpr double noise = 0.01;
  constexpr double wrong = 0.1;
  cv::RNG random(7);
  std::vector<cv::Vec3f> seen;
  for (int axis = 0; axis < 3; ++axis) {
    int const a = (axis + 1) % 3;
    int const b = (axis + 2) % 3;
    for (double u = 0.2; u < size[a]; u += 0.4) {
      for (double v = 0.2; v < size[b]; v += 0.4) {
        cv::Vec3d point;
        point[axis] = size[axis] + random.gaussian(noise);
        point[a] = u;
        point[b] = v;
        bool const isBump = axis == 2 && u < 8 && v < 8;
        point[axis] += isBump ? wrong : 0;
        seen.emplace_back(point);
      }
    }
  }
  cv::Matx44d const truth = motionAbout(0.5 * size, {0.3, -0.4, 0.5}, {0.2, -0.1, 0.15});
  cv::Mat_<cv::Vec3f> const points = cv::Mat_<cv::Vec3f>(seen).reshape(3, 1);
  write("scan.ply", moveAll(truth.inv(), points));
  ToolOutcome const outcome =
      run({"align", path("scan.ply"), path("drawing.stl"), "--moved", path("moved.ply"), "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  auto const report = nlohmann::json::parse(outcome.output);
  EXPECT_EQ(report.at("sampled").at(0).at("triangles"), 12);
  EXPECT_LT(cv::norm(matrixOf(report.at("targetFromSource")) - truth), 0.01);
  graphic::GraphicObject const moved = readGraphic(path("moved.ply"));
  std::vector<float> const deviations = moved.fields().at("deviation");
  ASSERT_EQ(deviations.size(), seen.size());
  std::vector<float> onBump;
  std::vector<float> elsewhere;
  for (std::size_t i = 0; i < seen.size(); ++i) {
    bool const isBump = seen[i][2] > size[2] + wrong / 2;
    float const value = deviations[i];
    if (!std::isnan(value)) {
      (isBump ? onBump : elsewhere).push_back(value);
    }
  }
  EXPECT_GT(onBump.size() + elsewhere.size(), 0.98 * static_cast<double>(seen.size()));
  EXPECT_NEAR(cv::mean(onBump)[0], wrong, 0.005);
  EXPECT_NEAR(cv::mean(elsewhere)[0], 0, 0.003);
}

TEST_F(RegistrationCommands, AlignFindsTheMotionAlsoFarFromZero) {
  cv::Matx44d const truth = motionAbout(middle, {0.5, -0.8, 1.0}, {0.15, -0.1, 0.1});
  cv::Vec3d const sourceOffset(3.5e6, 0, 0);
  cv::Vec3d const targetOffset(5e6, 2e6, 0);
  write("target.ply", view(bumps, side, 0.0, 0.0, 0.005, 1), targetOffset);
  write("source.ply", moveAll(truth.inv(), view(bumps, side, 0.03, 0.02, 0.005, 2)), sourceOffset);
  // The files lie 2.5e6 apart: the start brings them together.
  cv::Matx44d start = cv::Matx44d::eye();
  for (int i = 0; i < 3; ++i) {
    start(i, 3) = targetOffset[i] - sourceOffset[i];
  }
  nlohmann::json json;
  json["targetFromSource"] = cv::Mat(start);
  vorn::test::put(path("start.json"), json.dump());
  ToolOutcome const outcome = run({"align", path("source.ply"), path("target.ply"), "--start",
                                   path("start.json"), "--out", path("t.json"), "--moved", path("moved.ply"),
                                   "--picture", path("p.png"), "--html", path("p.html"), "--json"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  nlohmann::json const file = nlohmann::json::parse(contentOf(path("t.json")));
  EXPECT_EQ(file.at("targetFromSource"), nlohmann::json::parse(outcome.output).at("targetFromSource"));
  EXPECT_EQ(file.at("stop"), "converged");
  EXPECT_GT(file.at("overlap"), 0.9);
  EXPECT_EQ(file.at("freeMotions").size(), 0U);
  // The motion of the files moves the source's middle onto the target's.
  cv::Vec3d const inSource = sourceOffset + movePoint(truth.inv(), middle);
  EXPECT_LT(cv::norm(movePoint(matrixOf(file.at("targetFromSource")), inSource) - (targetOffset + middle)),
            0.003);
  graphic::GraphicObject const moved = readGraphic(path("moved.ply"));
  std::vector<float> const& deviations = moved.fields().at("deviation");
  double squares = 0.0;
  int count = 0;
  for (float const value : deviations) {
    if (std::isfinite(value)) {
      squares += static_cast<double>(value * value);
      ++count;
    }
  }
  EXPECT_GT(10 * count, 9 * static_cast<int>(deviations.size()));
  // The noise of both along the normal, 0.007, of which the target's averages out but a little.
  EXPECT_LT(std::sqrt(squares / count), 0.01);
  EXPECT_GT(std::sqrt(squares / count), 0.003);
  EXPECT_EQ(readImage(path("p.png")).channels(), 3);
  std::string const page = contentOf(path("p.html"));
  EXPECT_NE(page.find("Alignment of two clouds"), std::string::npos);
  // The page's coordinates are those of the target's floats, and it says from where they count.
  std::string const words = "count from (";
  std::size_t const at = page.find(words);
  ASSERT_NE(at, std::string::npos);
  cv::Vec3d origin;
  ASSERT_EQ(
      std::sscanf(page.c_str() + at + words.size(), "%lf, %lf, %lf)", &origin[0], &origin[1], &origin[2]), 3);
  EXPECT_LT(cv::norm(origin - targetOffset), 1000) << "mm, by the size of the scene";
  std::string row = "middle of the overlap [mm]</th>";
  for (int i = 0; i < 3; ++i) {
    row += "<td class=\"short\">" + figure(file.at("pivot")[i].get<double>() - origin[i]) + "</td>";
  }
  EXPECT_NE(page.find(row), std::string::npos) << row;

  // The result is a start that nothing is left to do from.
  ToolOutcome const again =
      run({"align", path("source.ply"), path("target.ply"), "--start", path("t.json"), "--json"});
  cv::Matx44d const second = matrixOf(nlohmann::json::parse(again.output).at("targetFromSource"));
  EXPECT_LT(cv::norm(movePoint(second, inSource) - (targetOffset + middle)), 0.003);
}

TEST_F(RegistrationCommands, AlignBeginsWithMarkersOrSearches) {
  cv::Matx44d const truth = motionAbout(middle, {20, -60, 110}, {300, -20, 60});
  write("target.ply", view(bumps, 100, 0.0, 0.0, 0.002, 1));
  write("source.ply", moveAll(truth.inv(), view(bumps, 100, 1.5, 0.5, 0.002, 2)));
  cv::Mat_<cv::Vec3f> markers(1, 4);
  markers(0, 0) = {0, 0, 390};
  markers(0, 1) = {9, 0, 395};
  markers(0, 2) = {2, 7, 400};
  markers(0, 3) = {8, 5, 380};
  write("markers.xyz", markers);
  write("their.xyz", moveAll(truth.inv(), markers.colRange(1, 4).clone()));
  auto const errorOf = [&](ToolOutcome const& outcome) {
    cv::Matx44d const found = matrixOf(nlohmann::json::parse(outcome.output).at("targetFromSource"));
    return cv::norm(movePoint(found, movePoint(truth.inv(), middle)) - middle);
  };
  ToolOutcome const marked = run({"align", path("source.ply"), path("target.ply"), "--json", "--markers",
                                  path("their.xyz"), path("markers.xyz")});
  ASSERT_EQ(marked.status, 0) << marked.errors;
  EXPECT_LT(errorOf(marked), 0.002);
  EXPECT_EQ(nlohmann::json::parse(marked.output).at("markers").at("count"), 3);
  ToolOutcome const found = run({"align", path("source.ply"), path("target.ply"), "--json", "--search"});
  ASSERT_EQ(found.status, 0) << found.errors;
  EXPECT_LT(errorOf(found), 0.002);
  EXPECT_GT(nlohmann::json::parse(found.output).at("search").at("overlap"), 0.5);
  EXPECT_EQ(run({"align", path("source.ply"), path("target.ply")}).status, 1) << "from where they are";
  EXPECT_EQ(
      run({"align", path("source.ply"), path("target.ply"), "--search", "--start", path("t.json")}).status,
      2);
}

TEST_F(RegistrationCommands, AlignFailsWhereTheMotionIsNotHeld) {
  write("target.ply", view(slope, side, 0.0, 0.0, 0.01, 1));
  write("source.ply", view(slope, side, 0.4, 0.2, 0.01, 2));
  std::vector<std::string> const results{path("t.json"), path("moved.ply"), path("deviations.png")};
  std::vector<std::string> arguments{"align",    path("source.ply"), path("target.ply"), "-o",
                                     results[0], "--moved",          results[1],         "--picture",
                                     results[2], "--report",         path("report.json")};
  ToolOutcome const outcome = run(arguments);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.errors.find("the source may slide along"), std::string::npos) << outcome.errors;
  EXPECT_NE(outcome.errors.find("as a plane does"), std::string::npos) << outcome.errors;
  nlohmann::json const report = nlohmann::json::parse(contentOf(path("report.json")));
  EXPECT_EQ(report.at("freeShape"), "plane");
  EXPECT_EQ(report.at("freeMotions").size(), 3U);
  for (std::string const& result : results) {
    EXPECT_FALSE(std::filesystem::exists(result)) << result;
  }
  arguments.emplace_back("--allow-free");
  ToolOutcome const allowed = run(arguments);
  EXPECT_EQ(allowed.status, 0);
  for (std::string const& result : results) {
    EXPECT_TRUE(std::filesystem::exists(result)) << result;
  }
  EXPECT_NE(allowed.errors.find("warning: the shapes do not hold the motion"), std::string::npos)
      << allowed.errors;
}

TEST_F(RegistrationCommands, AlignFailsWhereTheMotionIsDoubtful) {
  cv::Mat_<cv::Vec3f> source = view(bumps, side, 0.03, 0.02, 0.005, 2);
  write("target.ply", view(bumps, side, 0.0, 0.0, 0.005, 1));
  source(cv::Rect(20, 20, side / 3, side / 3)) -= cv::Scalar(0.0, 0.0, 5.0);
  write("source.ply", source);
  ToolOutcome const outcome = run({"align", path("source.ply"), path("target.ply"), "-o", path("t.json"),
                                   "--report", path("report.json")});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.errors.find("the motion found is doubtful: 11 % of the points"), std::string::npos)
      << outcome.errors;
  nlohmann::json const report = nlohmann::json::parse(contentOf(path("report.json")));
  EXPECT_EQ(report.at("doubts"), nlohmann::json::array({"inTheWay"}));
  EXPECT_FALSE(std::filesystem::exists(path("t.json")));
  ToolOutcome const allowed = run({"align", path("source.ply"), path("target.ply"), "--allow-doubtful"});
  EXPECT_EQ(allowed.status, 0);
  EXPECT_NE(allowed.errors.find("warning: the motion found is doubtful"), std::string::npos)
      << allowed.errors;
}

TEST_F(RegistrationCommands, AlignSaysWhyNothingWasFound) {
  cv::Mat_<cv::Vec3f> const points = view(bumps, side, 0.0, 0.0, 0.005, 1);
  write("target.ply", points);
  write("far.ply", moveAll(motionAbout(middle, {}, {500, 0, 0}), points));
  ToolOutcome const far = run({"align", path("far.ply"), path("target.ply"), "--out", path("t.json")});
  EXPECT_EQ(far.status, 1);
  EXPECT_NE(far.errors.find("does not overlap"), std::string::npos) << far.errors;
  EXPECT_FALSE(std::filesystem::exists(path("t.json")));
  // A part in inches, and in metres.
  for (auto const& [scale, units] :
       {std::pair{1.0 / 25.4, "inches and millimetres"}, {1e-3, "metres and millimetres"}}) {
    write("small.ply", cv::Mat_<cv::Vec3f>(points * scale));
    ToolOutcome const small = run({"align", path("small.ply"), path("target.ply")});
    EXPECT_EQ(small.status, 1);
    EXPECT_NE(small.errors.find("different units"), std::string::npos) << small.errors;
    EXPECT_TRUE(scale < 0.01 || small.errors.find(units) != std::string::npos) << small.errors;
  }
  write("few.ply", points(cv::Rect(0, 0, 6, 6)).clone());
  EXPECT_EQ(run({"align", path("few.ply"), path("target.ply")}).status, 1);
  vorn::test::put(path("start.json"), R"({"targetFromSource": {"rows": 4, "cols": 4, "dt": "d",
      "data": [2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1]}})");
  ToolOutcome const bent = run({"align", path("far.ply"), path("target.ply"), "--start", path("start.json")});
  EXPECT_EQ(bent.status, 1);
  EXPECT_NE(bent.errors.find("is no rigid motion"), std::string::npos) << bent.errors;
}

} // namespace
} // namespace vorn::tools
