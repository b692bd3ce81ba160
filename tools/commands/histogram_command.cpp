// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <vorn/mv/measure/histogram.hpp>
#include <vorn/mv/measure/plot.hpp>

#include "tools/commands/commands.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/report/figure_files.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/work.hpp"

namespace vorn::tools {

namespace {

constexpr double shares[] = {0.001, 0.01, 0.25, 0.5, 0.75, 0.99, 0.999};

struct HistogramOptions {
  std::string image;
  std::string plot;
  std::string mask;
  int bins = 0;
};

void print(mv::Histogram const& histogram) {
  std::cout << printed("%-8s %12s %10s %10s %10s", "channel", "pixels", "least", "greatest", "mean");
  for (double const share : shares) {
    std::cout << printed(" %8g%%", 100.0 * share);
  }
  std::cout << "\n";
  for (std::size_t c = 0; c < histogram.channels.size(); ++c) {
    mv::ChannelHistogram const& channel = histogram.channels[c];
    std::uint64_t const total = histogram.total(c);
    std::cout << printed("%-8zu %12llu %10.6g %10.6g %10.6g", c, static_cast<unsigned long long>(total),
                         channel.least, channel.greatest, channel.mean);
    for (double const share : shares) {
      std::cout << (total > 0 ? printed(" %9.6g", histogram.percentile(c, share)) : printed(" %9s", "-"));
    }
    std::cout << "\n";
    if (channel.notFinite > 0) {
      std::cout << printed("         and %llu values that are not finite\n",
                           static_cast<unsigned long long>(channel.notFinite));
    }
  }
}

nlohmann::json toJson(mv::Histogram const& histogram) {
  nlohmann::json json{
      {"low", histogram.low}, {"high", histogram.high}, {"channels", nlohmann::json::array()}};
  for (std::size_t c = 0; c < histogram.channels.size(); ++c) {
    mv::ChannelHistogram const& channel = histogram.channels[c];
    nlohmann::json entry{{"counts", channel.counts},
                         {"below", channel.below},
                         {"above", channel.above},
                         {"notFinite", channel.notFinite}};
    if (histogram.total(c) > 0) {
      entry.update({{"least", channel.least}, {"greatest", channel.greatest}, {"mean", channel.mean}});
    }
    json["channels"].push_back(entry);
  }
  return json;
}

void run(HistogramOptions const& options, Report& report) {
  checkFigurePath(options.plot);
  std::vector<std::string> inputs{options.image};
  if (!options.mask.empty()) {
    inputs.push_back(options.mask);
  }
  report.declare(inputs, {options.plot});
  mv::HistogramSettings settings;
  settings.bins = options.bins;
  if (!options.mask.empty()) {
    settings.mask = readGrayImage(options.mask);
  }
  mv::Histogram const histogram = mv::calcHistogram(readImage(options.image), settings);
  if (!options.plot.empty()) {
    writeFigure(options.plot, mv::plotOf(histogram, "Histogram of " + options.image));
  }
  print(histogram);
  report.add(toJson(histogram));
}

} // namespace

void addHistogramCommand(CLI::App& app) {
  auto options = std::make_shared<HistogramOptions>();
  CLI::App* command = app.add_subcommand("histogram", "Count the values of an image");
  command->add_option("image", options->image, "Image of 8 or 16 bits or float")->required();
  command->add_option("--plot", options->plot, "Picture (or .svg) of the counts");
  command->add_option("--mask", options->mask, "Image whose black pixels do not count");
  command->add_option("--bins", options->bins, "Number of bins; 0: one a value, or 1024 for float")
      ->transform(wholeNumber<int>());
  setWork(
      *command, [=](Report& report) { run(*options, report); }, "--report", "all counts");
}

} // namespace vorn::tools
