// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iomanip>
#include <iostream>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/timer.hpp>
#include <vorn/mv/pointcloud/cloud_filters.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/commands/option_words.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/cloud_input.hpp"
#include "tools/files/json_file.hpp"
#include "tools/files/output_path.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/figure_options.hpp"
#include "tools/report/warning.hpp"
#include "tools/report/work.hpp"
#include "tools/scan/preview.hpp"

namespace vorn::tools {

namespace {

enum class Needs { AnyCloud, Grid };

/// One filter of the command line.
struct Step {
  std::string name;
  Needs needs;
  std::function<void(mv::PointCloud&)> run;
};

struct FilterOptions {
  std::string input;
  std::string output;
  std::vector<Step> steps;
  std::vector<std::string> chains; ///< files that some of the steps stood in
  bool allowLoss = false;
  std::string preview;
  FigureOptions look;
};

/// What would be lost without a word.
Exception loss(std::string const& what) {
  return {what + " (--allow-loss goes on all the same)", nullptr, 0, "filter"};
}

/// The points of a file.
/// @throws Exception for a mesh, whose triangles a cloud does not keep, unless that is allowed
mv::PointCloud readCloud(std::string const& path, bool allowLoss) {
  CloudInput input = readCloudInput(path);
  if (input.object.hasTriangles() && !allowLoss) {
    throw loss(path + " is a mesh, whose " + std::to_string(input.object.triangles().size()) +
               " triangles filtered points would lose");
  }
  return std::move(input.cloud);
}

void writePreview(FilterOptions const& options, mv::PointCloud const& cloud) {
  std::string const title = std::to_string(cloud.presentCount()) + " points";
  mv::DrawSettings const settings = options.look.drawSettings();
  if (cloud.isOrganized()) {
    cv::Mat_<cv::Vec3f> visible = cloud.points().clone();
    visible.setTo(cv::Scalar::all(std::numeric_limits<double>::quiet_NaN()), cloud.state());
    writeFigure(options.preview, drawRelief(visible, cloud.texture(), title, options.look), settings);
    return;
  }
  std::vector<cv::Vec3f> points;
  std::vector<cv::Vec3b> colors;
  for (int row = 0; row < cloud.points().rows; ++row) {
    for (int column = 0; column < cloud.points().cols; ++column) {
      if (cloud.state()(row, column) == 0) {
        points.push_back(cloud.points()(row, column));
        if (cloud.hasTexture()) {
          colors.push_back(cloud.texture()(row, column));
        }
      }
    }
  }
  writeFigure(options.preview, drawCloud(points, colors, title, options.look), settings);
}

/// As STL a grid of points is written by its surface.
void writeCloud(std::string const& path, mv::PointCloud const& cloud) {
  graphic::GraphicObject object = cloud.getGraphicObject(true);
  if (lowerCaseEnding(path) == ".stl" && cloud.isOrganized()) {
    cv::Mat const present = cloud.state() == 0;
    addSurface(object, cloud.points(), present);
  }
  writeGraphic(path, object);
}

/// A line of the table of steps.
void printRow(std::string const& name, std::string const& removed, std::string const& left,
              std::string const& time) {
  constexpr int nameWidth = 44;
  constexpr int countWidth = 12;
  constexpr int timeWidth = 9;
  std::cout << std::left << std::setw(nameWidth) << name << std::right << ' ' << std::setw(countWidth)
            << removed << ' ' << std::setw(countWidth) << left << ' ' << std::setw(timeWidth) << time
            << std::endl;
}

void run(FilterOptions const& options, Report& report) {
  checkGraphicPath(options.output);
  std::vector<std::string> inputs = options.chains;
  inputs.push_back(options.input);
  report.declare(inputs, {options.output, options.preview});
  checkFigurePath(options.preview);
  options.look.check();
  mv::PointCloud cloud = readCloud(options.input, options.allowLoss);
  printRow("step", "removed", "left", "ms");
  printRow(options.input, "", std::to_string(cloud.presentCount()), "");
  report["pointsRead"] = cloud.presentCount();
  bool const isConverted = lowerCaseEnding(options.input) != lowerCaseEnding(options.output);
  if (options.steps.empty() && !isConverted) {
    report.warn("no filter is named: " + options.output + " gets the points as they are");
  }
  nlohmann::json& steps = report["steps"] = nlohmann::json::array();
  for (Step const& step : options.steps) {
    if (step.needs == Needs::Grid && !cloud.isOrganized()) {
      if (!options.allowLoss) {
        throw loss(step.name + " needs the camera's grid, but the points of " + options.input +
                   " have none: take those of scan --xyz");
      }
      std::string const reason = "skipped: the points have no grid (see scan --xyz)";
      printRow(step.name, reason, "", "");
      warn(step.name + " " + reason);
      steps.push_back({{"name", step.name}, {"skipped", true}});
      continue;
    }
    std::size_t const before = cloud.presentCount();
    Timer const timer;
    step.run(cloud);
    double const elapsed = timer.toc();
    std::size_t const left = cloud.presentCount();
    std::ostringstream time;
    time << std::fixed << std::setprecision(1) << elapsed;
    printRow(step.name, std::to_string(before - left), std::to_string(left), time.str());
    steps.push_back({{"name", step.name}, {"removed", before - left}, {"left", left}, {"time", elapsed}});
    if (left == 0 && !options.allowLoss) {
      throw loss("No point of " + options.input + " is left after " + step.name);
    }
  }
  if (!options.preview.empty()) {
    writePreview(options, cloud);
  }
  writeCloud(options.output, cloud);
  report["points"] = cloud.presentCount();
}

using RadiusAndCount = std::pair<float, int>;

/// The steps stand in the order in which the command line names them, so options act as soon as they are
/// parsed.
template <class Value>
void addStepOption(CLI::App& command, std::string const& name, std::string const& help,
                   std::string const& values, std::function<void(Value const&)> const& addStep) {
  CLI::Option* option =
      command.add_option_function<Value>("--" + name, addStep, help)->trigger_on_parse()->type_name(values);
  if constexpr (std::is_same<Value, int>::value) {
    option->transform(wholeNumber<int>());
  } else if constexpr (!std::is_same<Value, std::string>::value) {
    option->check(numeral());
  }
  if constexpr (std::is_same<Value, RadiusAndCount>::value) {
    option->transform(wholeNumber<int>().application_index(1));
  }
}

std::string textOf(float value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", static_cast<double>(value));
  return text;
}

void addObjectStep(std::vector<Step>& steps, std::shared_ptr<mv::pc::IFilter> const& filter) {
  bool const needsGrid = dynamic_cast<mv::pc::DzFilter const*>(filter.get()) != nullptr;
  std::string const name = filter->toString();
  steps.push_back({name.substr(name.rfind("::", name.find(' ')) + 2),
                   needsGrid ? Needs::Grid : Needs::AnyCloud,
                   [filter](mv::PointCloud& cloud) { (*filter)(cloud); }});
}

/// A filter from "Class:Property=value,...". Where a value is refused, the option that takes any is named.
std::unique_ptr<mv::pc::IFilter> parsedFilter(std::string const& text) {
  try {
    return parseFilter(text, mv::pc::filters());
  } catch (Exception const& e) {
    std::pair<char const*, char const*> const options[] = {
        {"Outlier", "outlier"}, {"SmallCluster", "small-cluster"}, {"Dz", "dz"}, {"ZRange", "z-range"}};
    std::string const name = text.substr(0, text.find(':'));
    for (auto const& [filter, option] : options) {
      if (name == filter && e.message().find(" is not in [") != std::string::npos) {
        throw Exception(e.message() + "; --" + option + " has no such bounds", nullptr, 0, e.file().c_str());
      }
    }
    throw;
  }
}

void addChain(std::vector<Step>& steps, std::string const& path) {
  nlohmann::json const json = readJsonFile(path);
  try {
    for (auto& filter : readFilterChain(json, mv::pc::filters())) {
      addObjectStep(steps, std::move(filter));
    }
  } catch (Exception const& e) {
    throw Exception(path + ": " + e.message(), nullptr, 0, e.file().c_str());
  }
}

void require(bool isGood, std::string const& step, std::string const& rule) {
  if (!isGood) {
    throw Exception("--" + step + ": " + rule, nullptr, 0, "filter");
  }
}

void requirePositive(float length, std::string const& step) {
  require(std::isfinite(length) && length > 0.0F, step, "the length must be a number above zero");
}

void addGridSteps(CLI::App& command, std::vector<Step>& steps) {
  addStepOption<float>(command, "dz", "Remove points farther than this from a grid neighbour", "MM",
                       [&steps](float step) {
                         requirePositive(step, "dz");
                         steps.push_back({"dz " + textOf(step), Needs::Grid,
                                          [=](mv::PointCloud& cloud) { cloud.filterByDz(step); }});
                       });
  addStepOption<int>(command, "border", "Remove the outermost rows and columns of the grid", "CELLS",
                     [&steps](int width) {
                       require(width >= 0, "border", "the width must not be negative");
                       steps.push_back({"border " + std::to_string(width), Needs::Grid,
                                        [=](mv::PointCloud& cloud) { cloud.filterBorder(width); }});
                     });
  addStepOption<int>(command, "erode", "Peel this many layers off holes and edges of the grid", "LAYERS",
                     [&steps](int layers) {
                       require(layers >= 0, "erode", "the number of layers must not be negative");
                       steps.push_back(
                           {"erode " + std::to_string(layers), Needs::Grid, [=](mv::PointCloud& cloud) {
                              for (int i = 0; i < layers; ++i) {
                                cloud.filterOutlier();
                              }
                            }});
                     });
}

void addPointSteps(CLI::App& command, std::vector<Step>& steps) {
  using Pair = std::pair<float, float>;
  addStepOption<Pair>(
      command, "z-range", "Remove points with z outside a range", "MIN MAX", [&steps](Pair const& z) {
        require(!std::isnan(z.first) && !std::isnan(z.second), "z-range",
                "both ends must be numbers, not nan");
        require(z.first <= z.second, "z-range", "the least z must not be above the greatest");
        steps.push_back({"z-range " + textOf(z.first) + " " + textOf(z.second), Needs::AnyCloud,
                         [=](mv::PointCloud& cloud) { cloud.filterByZRange(z.first, z.second); }});
      });
  auto const addNeighbourhoodStep = [&](std::string const& name, std::string const& help,
                                        int (mv::PointCloud::*filter)(float, int)) {
    addStepOption<RadiusAndCount>(
        command, name, help, "MM COUNT", [&steps, name, filter](RadiusAndCount const& values) {
          requirePositive(values.first, name);
          require(values.second >= 1, name, "the count must be at least one");
          steps.push_back({name + " " + textOf(values.first) + " " + std::to_string(values.second),
                           Needs::AnyCloud,
                           [=](mv::PointCloud& cloud) { (cloud.*filter)(values.first, values.second); }});
        });
  };
  addNeighbourhoodStep("outlier", "Remove points with fewer neighbours than this within a radius",
                       &mv::PointCloud::clean);
  addNeighbourhoodStep("small-cluster", "Remove clusters of fewer points than this",
                       &mv::PointCloud::filterSmallCluster);
}

} // namespace

void addFilterCommand(CLI::App& app) {
  auto options = std::make_shared<FilterOptions>();
  CLI::App* command = app.add_subcommand("filter", "Clean a cloud with filters, in the order given");
  command
      ->add_option("input", options->input,
                   "Cloud to filter (ply, pcd, xyz, obj, stl), or a grid of points (tiff)")
      ->required();
  command->add_option("output", options->output, "Cloud to write (ply, pcd, xyz, obj, stl)")->required();
  // The command's callback, below, keeps the steps alive as long as the options.
  std::vector<Step>& steps = options->steps;
  addPointSteps(*command, steps);
  addGridSteps(*command, steps);
  addStepOption<std::string>(*command, "filter", "Any filter by its class, such as UniformSampler:Radius=0.5",
                             "FILTER",
                             [&steps](std::string const& text) { addObjectStep(steps, parsedFilter(text)); });
  setWords(*command->get_option("--filter"), filterWords(mv::pc::filters()));
  addStepOption<std::string>(*command, "properties", "The filters of a chain stored as JSON", "TEXT",
                             [&steps, &chains = options->chains](std::string const& path) {
                               addChain(steps, path);
                               chains.push_back(path);
                             });
  command->add_flag("--allow-loss", options->allowLoss,
                    "Go on where no point is left, a filter needs a grid that the points do not have, or a "
                    "mesh loses its triangles");
  command->add_option("--preview", options->preview, "Picture of the filtered cloud to write (png, svg)");
  options->look.addRange(*command, "depths in mm");
  options->look.addLight(*command);
  setWork(
      *command, [options](Report& report) { run(*options, report); }, "--report",
      "what each step removed and took");
}

} // namespace vorn::tools
