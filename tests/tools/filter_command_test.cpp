// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include "support/file_content.hpp"
#include "support/point_sets.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/dirty_plane.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {
namespace {

using test::contentOf;
using test::put;
using test::run;
using test::ToolOutcome;

/// The plane as a grid, its right half ten higher, with two holes.
cv::Mat_<cv::Vec3f> steppedGrid() {
  cv::Mat_<cv::Vec3f> grid = test::asGrid(plane(), columns);
  grid.colRange(columns / 2, columns) += cv::Scalar(0, 0, 10);
  grid(10, 5)[2] = test::notANumber;
  grid(12, 20) = cv::Vec3f::all(test::notANumber);
  return grid;
}

/// A row of the table of steps.
struct TableRow {
  std::string step;
  std::size_t removed;
  std::size_t left;

  bool operator==(TableRow const& other) const {
    return step == other.step && removed == other.removed && left == other.left;
  }
};

void PrintTo(TableRow const& row, std::ostream* stream) {
  *stream << row.step << ": " << row.removed << " removed, " << row.left << " left";
}

/// The rows of steps that ran.
std::vector<TableRow> tableOf(ToolOutcome const& outcome) {
  std::vector<TableRow> table;
  std::istringstream stream(outcome.output);
  std::regex const pattern(R"((\S.*\S) +(\d+) +(\d+) +\d+\.\d)");
  std::smatch match;
  for (std::string line; std::getline(stream, line);) {
    if (std::regex_match(line, match, pattern)) {
      std::string const step = match[1];
      table.push_back(
          {step.substr(0, step.find_last_not_of(' ') + 1), std::stoul(match[2]), std::stoul(match[3])});
    }
  }
  return table;
}

class FilterCommand : public testing::Test {
protected:
  void SetUp() override {
    writeGraphic(in_, dirtyPlane());
    put(out_, "old");
  }

  ToolOutcome filter(std::vector<std::string> const& steps) const { return filter(in_, steps); }

  ToolOutcome filter(std::string const& input, std::vector<std::string> const& steps) const {
    std::vector<std::string> arguments{"filter", input, out_};
    arguments.insert(arguments.end(), steps.begin(), steps.end());
    return run(arguments);
  }

  std::size_t pointsLeft() const { return readGraphic(out_).vertices().size(); }

  test::TemporaryFolder folder_;
  std::string in_ = folder_ / "in.ply";
  std::string out_ = folder_ / "out.ply";
};

TEST_F(FilterCommand, RunsItsStepsInTheOrderGiven) {
  std::size_t const all = dirtyPlane().vertices().size();
  std::vector<std::string> const range{"--z-range", "300", "700"};
  std::vector<std::string> const outlier{"--outlier", "1.5", "3"};
  std::vector<std::string> const cluster{"--small-cluster", "1.5", "20"};
  auto const joined = [](std::vector<std::string> a, std::vector<std::string> const& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  };

  ToolOutcome const outcome = filter(joined(joined(range, outlier), cluster));
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  std::vector<TableRow> const expected{{"z-range 300 700", highCount, all - highCount},
                                       {"outlier 1.5 3", strayCount, all - highCount - strayCount},
                                       {"small-cluster 1.5 20", islandCount, planeCount}};
  EXPECT_EQ(tableOf(outcome), expected);
  EXPECT_EQ(readGraphic(out_).vertices(), plane());

  // Whatever is alone is in a small cluster too, and what has been removed is not removed again.
  std::vector<TableRow> const reversed{{"small-cluster 1.5 20", all - planeCount, planeCount},
                                       {"outlier 1.5 3", 0, planeCount},
                                       {"z-range 300 700", 0, planeCount}};
  EXPECT_EQ(tableOf(filter(joined(joined(cluster, outlier), range))), reversed);

  std::vector<TableRow> const twice{{"z-range 300 600", highCount, all - highCount},
                                    {"outlier 1.5 3", strayCount, all - highCount - strayCount},
                                    {"z-range 600 700", planeCount + islandCount, 0}};
  EXPECT_EQ(tableOf(filter({"--z-range", "300", "600", "--outlier", "1.5", "3", "--z-range", "600", "700",
                            "--allow-loss"})),
            twice);
  EXPECT_EQ(pointsLeft(), 0U);
}

TEST_F(FilterCommand, TakesChainsAndSingleFilterClasses) {
  ASSERT_EQ(filter({"--z-range", "300", "700", "--outlier", "1.5", "3"}).status, 0);
  std::string const expected = contentOf(out_);

  nlohmann::json const chain{
      {{"class", "vorn::mv::pc::ZRangeFilter"}, {"properties", {{"Zmin", 300.0}, {"Zmax", 700.0}}}},
      {{"class", "vorn::mv::pc::OutlierFilter"},
       {"properties", {{"Radius", 1.5}, {"MinNeighbourCount", 3}}}}};
  writeJsonFile(folder_ / "chain.json", chain);
  ToolOutcome const chained =
      filter({"--properties", folder_ / "chain.json", "--small-cluster", "1.5", "20"});
  ASSERT_EQ(chained.status, 0) << chained.errors;
  std::vector<TableRow> const table = tableOf(chained);
  ASSERT_EQ(table.size(), 3U) << chained.output;
  EXPECT_EQ(table[0].removed, highCount);
  EXPECT_EQ(table[1].removed, strayCount);
  EXPECT_EQ(table[2].removed, islandCount);
  // The filters' own messages stay out of the table: its head, the input and three steps.
  EXPECT_EQ(std::count(chained.output.begin(), chained.output.end(), '\n'), 5) << chained.output;

  ASSERT_EQ(filter({"--filter", "ZRangeFilter:Zmin=300,Zmax=700", "--filter",
                    "OutlierFilter:Radius=1.5,MinNeighbourCount=3"})
                .status,
            0);
  EXPECT_EQ(contentOf(out_), expected);
}

TEST_F(FilterCommand, UsesTheGridOfAnImageOfPoints) {
  std::string const grid = folder_ / "xyz.tiff";
  writeImage(grid, steppedGrid());
  ToolOutcome const outcome = filter(grid, {"--dz", "5", "--border", "2", "--preview", folder_ / "p.png"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  // Two columns along the step, without their ends on the edge of the grid.
  constexpr std::size_t stepCount = 2 * (rows - 2);
  constexpr std::size_t holes = 2;
  // Of the border of two cells, the step has taken two in the second and in the last but one row.
  constexpr std::size_t border = planeCount - (rows - 4) * (columns - 4) - 4;
  std::vector<TableRow> const expected{{"dz 5", stepCount, planeCount - holes - stepCount},
                                       {"border 2", border, planeCount - holes - stepCount - border}};
  EXPECT_EQ(tableOf(outcome), expected);
  EXPECT_EQ(pointsLeft(), expected.back().left);
  EXPECT_FALSE(cv::imread(folder_ / "p.png").empty());

  // The eight cells around each hole but the one at its upper right.
  constexpr std::size_t aroundHole = 7;
  ToolOutcome const eroded = filter(grid, {"--erode", "1"});
  ASSERT_EQ(tableOf(eroded).size(), 1U) << eroded.output;
  EXPECT_EQ(tableOf(eroded)[0].removed, holes * aroundHole);
}

TEST_F(FilterCommand, GridsBecomeSurfacesAndTheBoundsOfPropertiesNameTheWayAroundThem) {
  cv::Mat_<cv::Vec3f> const grid = steppedGrid();
  writeImage(folder_ / "grid.tiff", grid);
  ToolOutcome const surface = run({"filter", folder_ / "grid.tiff", folder_ / "s.stl"});
  ASSERT_EQ(surface.status, 0) << surface.errors;
  // Two triangles a cell, but for the column across the step and what touches the two points that are
  // missing.
  int const cells = (grid.rows - 1) * (grid.cols - 2);
  EXPECT_EQ(readGraphic(folder_ / "s.stl").triangles().size(), static_cast<std::size_t>(2 * cells - 2 * 6));
  ToolOutcome const wide =
      run({"filter", folder_ / "grid.tiff", folder_ / "w.ply", "--filter", "Outlier:Radius=30"});
  EXPECT_EQ(wide.status, 1);
  EXPECT_NE(wide.errors.find("--outlier has no such bounds"), std::string::npos) << wide.errors;
}

TEST_F(FilterCommand, SkipsGridFiltersWithoutAGridWhereThatIsAllowed) {
  for (std::vector<std::string> const& steps : std::vector<std::vector<std::string>>{
           {"--dz", "0.5"}, {"--border", "3"}, {"--erode", "1"}, {"--filter", "DzFilter:Dz=0.5"}}) {
    ToolOutcome const refused = filter(steps);
    EXPECT_EQ(refused.status, 1) << steps[0];
    EXPECT_NE(refused.errors.find("needs the camera's grid"), std::string::npos) << refused.errors;
    EXPECT_EQ(contentOf(out_), "old");
  }
  ToolOutcome const outcome = filter({"--allow-loss", "--dz", "0.5", "--border", "3", "--z-range", "300",
                                      "700", "--erode", "1", "--filter", "DzFilter:Dz=0.5"});
  ASSERT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(tableOf(outcome).size(), 1U) << outcome.output;
  for (std::string const skipped : {"dz 0.5", "border 3", "erode 1", "DzFilter"}) {
    EXPECT_TRUE(std::regex_search(outcome.output, std::regex(skipped + ".*skipped: the points have no grid")))
        << skipped << '\n'
        << outcome.output;
  }
  EXPECT_EQ(pointsLeft(), dirtyPlane().vertices().size() - highCount);
}

TEST_F(FilterCommand, LosesNothingWithoutAWord) {
  ToolOutcome const empty = filter({"--z-range", "1", "2"});
  EXPECT_EQ(empty.status, 1);
  EXPECT_NE(empty.errors.find("No point of "), std::string::npos) << empty.errors;
  EXPECT_EQ(contentOf(out_), "old");
  EXPECT_EQ(filter({"--z-range", "1", "2", "--allow-loss"}).status, 0);

  graphic::GraphicObject mesh;
  mesh.vertices() = {{0, 0, 400}, {1, 0, 400}, {0, 1, 400}};
  mesh.triangles() = {{0, 1, 2}};
  writeGraphic(folder_ / "mesh.ply", mesh);
  ToolOutcome const meshed = filter(folder_ / "mesh.ply", {"--z-range", "300", "500"});
  EXPECT_EQ(meshed.status, 1);
  EXPECT_NE(meshed.errors.find("1 triangles"), std::string::npos) << meshed.errors;

  std::string const before = contentOf(in_);
  ToolOutcome const onto = run({"filter", in_, in_, "--z-range", "300", "700"});
  EXPECT_EQ(onto.status, 1);
  EXPECT_NE(onto.errors.find("it is an input"), std::string::npos) << onto.errors;
  EXPECT_EQ(contentOf(in_), before);
}

TEST_F(FilterCommand, BadInputIsOneLineAndHarmsNothing) {
  put(folder_ / "cut.ply", contentOf(in_).substr(0, contentOf(in_).size() / 2));
  put(folder_ / "cloud.abc", "1 2 3\n");
  writeImage(folder_ / "grey.tiff", cv::Mat::zeros(4, 4, CV_32F));
  put(folder_ / "broken.json", "[{");
  put(folder_ / "object.json", "{}");
  put(folder_ / "unknown.json", R"([{"class": "vorn::mv::pc::Absent"}])");
  put(folder_ / "misspelt.json", R"([{"class": "vorn::mv::pc::DzFilter", "properties": {"Dx": 1.0}}])");
  put(folder_ / "range.json", R"([{"class": "vorn::mv::pc::DzFilter", "properties": {"Dz": 1000.0}}])");
  struct Case {
    std::string part; ///< what the message must name
    std::string input;
    std::vector<std::string> steps;
  };
  auto const chain = [&](std::string const& name) {
    return std::vector<std::string>{"--properties", folder_ / name};
  };
  std::vector<Case> const cases{
      {"absent.ply", folder_ / "absent.ply", {}},
      {"cut.ply", folder_ / "cut.ply", {}},
      {"cloud.abc", folder_ / "cloud.abc", {}},
      {"grey.tiff", folder_ / "grey.tiff", {}},
      {"absent.tiff", folder_ / "absent.tiff", {}},
      {"absent.json", in_, chain("absent.json")},
      {"broken.json", in_, chain("broken.json")},
      {"object.json", in_, chain("object.json")},
      {"Absent", in_, chain("unknown.json")},
      {"Dx", in_, chain("misspelt.json")},
      {"Dz", in_, chain("range.json")},
      {"Absent", in_, {"--filter", "Absent:Dz=1"}},
      {"Dx", in_, {"--filter", "DzFilter:Dx=1"}},
      {"--z-range", in_, {"--z-range", "700", "300"}},
      {"--z-range", in_, {"--z-range", "nan", "300"}},
      {"--dz", in_, {"--dz", "0"}},
      {"--border", in_, {"--border", "-1"}},
      {"--erode", in_, {"--erode", "-1"}},
      {"--outlier", in_, {"--outlier", "-1", "8"}},
      {"--outlier", in_, {"--outlier", "inf", "8"}},
      {"--small-cluster", in_, {"--small-cluster", "1", "0"}},
      {"no folder", in_, {"--preview", "/absent/p.png"}},
      {"p.nothing", in_, {"--preview", folder_ / "p.nothing"}},
  };
  for (Case const& c : cases) {
    ToolOutcome const outcome = filter(c.input, c.steps);
    EXPECT_EQ(outcome.status, 1) << c.part;
    EXPECT_NE(outcome.errors.find(c.part), std::string::npos) << c.part << ": " << outcome.errors;
    EXPECT_EQ(std::count(outcome.errors.begin(), outcome.errors.end(), '\n'), 1) << outcome.errors;
    EXPECT_EQ(contentOf(out_), "old") << c.part;
  }
  EXPECT_EQ(run({"filter", in_, folder_ / "out.txt"}).status, 1);
  EXPECT_EQ(run({"filter", in_, folder_ / "absent" / "out.ply"}).status, 1);
  EXPECT_EQ(filter({"--z-range", "300"}).status, 2);
  EXPECT_EQ(filter({"--dz", "much"}).status, 2);
}

TEST(FilteredFields, StayWithTheirPointsAndSoDoFarPlaces) {
  test::TemporaryFolder const folder;
  graphic::GraphicObject object;
  for (int i = 0; i < 10; ++i) {
    object.vertices().emplace_back(static_cast<float>(i) + 0.25F, 0.0F, static_cast<float>(i));
    object.fields()["sigma"].push_back(0.5F * static_cast<float>(i));
  }
  object.fields()["sigma"][3] = test::notANumber;
  object.offset() = {5e8, 0, 0};
  writeGraphic(folder / "in.ply", object);
  ASSERT_EQ(run({"filter", folder / "in.ply", folder / "out.ply", "--z-range", "2", "6"}).status, 0);
  graphic::GraphicObject const found = readGraphic(folder / "out.ply");
  ASSERT_EQ(found.vertices().size(), 5U);
  EXPECT_EQ(found.offset()[0] + double{found.vertices()[4][0]}, 500000006.25);
  EXPECT_EQ(found.fields().at("sigma")[4], 3.0F);

  ToolOutcome const info = run({"info", folder / "out.ply", "--json"});
  nlohmann::json const described = nlohmann::json::parse(info.output).at("files").at(0);
  EXPECT_EQ(described.at("fields"),
            nlohmann::json::parse(
                R"([{"name": "sigma", "finiteValues": 4, "min": 1.0, "median": 2.5, "max": 3.0}])"));
  EXPECT_EQ(described.at("offset"), nlohmann::json({5e8, 0.0, 0.0}));
  std::string const said = run({"info", folder / "out.ply"}).output;
  EXPECT_NE(said.find("Field sigma: 1 to 3, median 2.5 (1 values are not finite)"), std::string::npos)
      << said;

  // Where they cannot be kept, that is said.
  ToolOutcome const lossy = run({"filter", folder / "in.ply", folder / "out.obj", "--z-range", "2", "6"});
  EXPECT_EQ(lossy.status, 0);
  EXPECT_NE(lossy.errors.find("is without the points' fields (sigma)"), std::string::npos) << lossy.errors;
}

} // namespace
} // namespace vorn::tools
