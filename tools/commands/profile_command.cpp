// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/measure/plot.hpp>
#include <vorn/mv/measure/profile.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

struct ProfileOptions {
  std::string image;
  std::vector<double> path;
  std::string plot;
  std::string overlay;
  mv::ProfileSettings settings;
};

std::vector<cv::Point2d> pathOf(std::vector<double> const& numbers) {
  if (numbers.size() < 4 || numbers.size() % 2 != 0) {
    throw Exception("A path takes pairs of numbers, two or more: X Y X Y ...; there are " +
                        std::to_string(numbers.size()) + " numbers",
                    nullptr, 0, "profile");
  }
  std::vector<cv::Point2d> path;
  for (std::size_t i = 0; i < numbers.size(); i += 2) {
    path.emplace_back(numbers[i], numbers[i + 1]);
  }
  return path;
}

cv::Mat greyOf(std::string const& path) {
  cv::Mat image = readImage(path);
  if (image.channels() == 3) {
    cv::cvtColor(image, image, cv::COLOR_BGR2GRAY);
  }
  return image;
}

mv::Plot plotOf(mv::Profile const& profile, std::string const& title) {
  mv::Plot plot;
  plot.title = title;
  plot.x = {"along the path", "px"};
  plot.y.title = "grey value";
  mv::PlotSeries line;
  line.kind = mv::SeriesKind::Line;
  line.name = "profile";
  line.size = 1.5;
  line.x = profile.positions;
  line.y = profile.values;
  plot.series.push_back(line);
  mv::PlotSeries edges;
  edges.name = "edges";
  edges.size = 4.0;
  for (mv::ProfileEdge const& edge : profile.edges) {
    auto const nearest = static_cast<std::size_t>(
        std::lower_bound(profile.positions.begin(), profile.positions.end() - 1, edge.position) -
        profile.positions.begin());
    edges.x.push_back(edge.position);
    edges.y.push_back(profile.values[nearest]);
  }
  plot.series.push_back(edges);
  return plot;
}

mv::AMat overlayOf(cv::Mat const& image, std::vector<cv::Point2d> const& path, mv::Profile const& profile) {
  mv::AMat overlay(image);
  overlay.addLine(path);
  mv::MarkStyle style;
  style.meaning = mv::Meaning::Found;
  for (mv::ProfileEdge const& edge : profile.edges) {
    overlay.addCross(edge.point, style);
  }
  return overlay;
}

void print(mv::Profile const& profile) {
  std::cout << printed("%zu samples, noise %.3g, %zu edges\n", profile.values.size(), profile.noise,
                       profile.edges.size());
  if (!profile.edges.empty()) {
    std::cout << printed("%12s %12s %12s %12s %10s %10s\n", "along px", "x", "y", "contrast", "blur px",
                         "sigma px");
  }
  for (mv::ProfileEdge const& edge : profile.edges) {
    std::cout << printed("%12.4f %12.4f %12.4f %12.4g %10.3f %10.4f\n", edge.position, edge.point.x,
                         edge.point.y, edge.contrast, edge.blur, edge.sigma);
  }
}

nlohmann::json toJson(mv::Profile const& profile) {
  nlohmann::json json{
      {"noise", profile.noise}, {"positions", profile.positions}, {"edges", nlohmann::json::array()}};
  for (double const value : profile.values) {
    json["values"].push_back(finiteOrNull(value));
  }
  for (mv::ProfileEdge const& edge : profile.edges) {
    json["edges"].push_back({{"position", edge.position},
                             {"point", edge.point},
                             {"direction", edge.direction},
                             {"contrast", edge.contrast},
                             {"blur", edge.blur},
                             {"sigma", edge.sigma}});
  }
  return json;
}

void run(ProfileOptions const& options, Report& report) {
  checkFigurePath(options.plot);
  checkFigurePath(options.overlay);
  report.declare({options.image}, {options.plot, options.overlay});
  std::vector<cv::Point2d> const path = pathOf(options.path);
  cv::Mat const image = greyOf(options.image);
  mv::Profile const profile = mv::calcProfile(image, path, options.settings);
  writeFigure(options.plot, plotOf(profile, "Profile of " + options.image));
  if (!options.overlay.empty()) {
    writeFigure(options.overlay, overlayOf(image, path, profile));
  }
  print(profile);
  report.add(toJson(profile));
}

} // namespace

void addProfileCommand(CLI::App& app) {
  auto options = std::make_shared<ProfileOptions>();
  CLI::App* command = app.add_subcommand("profile", "Read the grey values along a line, and find its edges");
  command->add_option("image", options->image, "Image; colours are read as grey")->required();
  command->add_option("path", options->path, "X Y of two points or more, in pixels")
      ->required()
      ->type_name("NUMBER")
      ->check(anyNumber());
  command->add_option("--width", options->settings.width, "Samples across the path to take the mean of")
      ->transform(wholeNumber<int>());
  command->add_option("--step", options->settings.step, "Pixels between samples")->check(anyNumber());
  command
      ->add_option("--smoothing", options->settings.smoothing,
                   "Smoothing before edges are looked for, in pixels")
      ->check(anyNumber());
  command
      ->add_option("--contrast", options->settings.leastContrast,
                   "Least contrast of an edge; 0: by the noise")
      ->check(anyNumber());
  command->add_option("--plot", options->plot, "Picture (or .svg) of the profile");
  command->add_option("--overlay", options->overlay, "Picture (or .svg) of the image with path and edges");
  setWork(
      *command, [=](Report& report) { run(*options, report); }, "--report", "all samples and edges");
}

} // namespace vorn::tools
