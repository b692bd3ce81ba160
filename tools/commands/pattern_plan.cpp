// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/pattern_plan.hpp"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>

#include <nlohmann/json.hpp>

#include <vorn/core/exception.hpp>

#include "sl/coding/stripe_code.hpp"
#include "tools/commands/number_check.hpp"
#include "tools/files/input_file.hpp"
#include "tools/files/json_file.hpp"

namespace vorn::tools {

namespace {

/// Part of the light's amplitude that the projector's pixels leave to fringes, without blur.
double ofPixels(double period) {
  return std::sin(CV_PI / period) * period / CV_PI;
}

/// What blur leaves of it: exp(-this * blur^2).
double blurLoss(double period) {
  return 2.0 * CV_PI * CV_PI / (period * period);
}

/// Takes noise, amplitude and, where columns and rows tell it, blur from a report of `exposure`: its fringes
/// are fainter than wide stripes by what blur takes, and the shorter ones more so.
void readLight(std::string const& path, mv::PatternWish& wish) {
  checkInputFile(path);
  nlohmann::json const json = readJsonFile(path);
  std::map<std::string, double> amplitudes;
  double noise = 0.0;
  for (auto const& sequence : json.value("sequences", nlohmann::json::array())) {
    if (sequence.contains("amplitude") && sequence["amplitude"].is_number() && sequence.contains("name")) {
      amplitudes[sequence["name"].get<std::string>()] = sequence["amplitude"].get<double>();
      noise = std::max(noise, sequence.value("noise", 0.0));
    }
  }
  std::map<std::string, double> const periods{{"columns", mv::sl::columnCode.period},
                                              {"rows", mv::sl::rowCode.period}};
  std::vector<std::pair<double, double>> seen; // period and amplitude without the pixels' part
  for (auto const& [name, period] : periods) {
    if (amplitudes.count(name) != 0 && amplitudes[name] > 0.0) {
      seen.emplace_back(period, amplitudes[name] / ofPixels(period));
    }
  }
  if (seen.empty() || !(noise > 0.0)) {
    throw Exception(path +
                        " is no report of vorn-mv exposure of columns or rows: it has no amplitude and noise",
                    nullptr, 0, "patterns");
  }
  if (seen.size() == 2) {
    double const loss = std::log(seen[1].second / seen[0].second);
    wish.blur = std::sqrt(std::max(0.0, loss / (blurLoss(seen[0].first) - blurLoss(seen[1].first))));
  }
  constexpr double ofRounding = 1.0 / 12.0; // of the images that were judged, which the plan counts again
  constexpr double least = 0.05;
  wish.noise = std::sqrt(std::max(noise * noise - ofRounding, least * least));
  wish.amplitude = seen.back().second * std::exp(blurLoss(seen.back().first) * wish.blur * wish.blur);
}

std::string listOf(std::vector<double> const& periods) {
  std::ostringstream out;
  for (std::size_t i = 0; i < periods.size(); ++i) {
    out << (i == 0 ? "" : " ") << std::setprecision(5) << periods[i];
  }
  return periods.empty() ? "-" : out.str();
}

/// Of every phase shift; 0 for bits alone.
int stepsOf(mv::PatternPlan const& plan) {
  auto const& images = plan.set.images;
  auto const fringe = std::find_if(images.begin(), images.end(), [](mv::PatternImage const& image) {
    return image.role == mv::PatternRole::Phase;
  });
  return fringe == images.end() ? 0 : fringe->steps;
}

nlohmann::json toJson(mv::PatternPlan const& plan) {
  return {{"set", plan.set.name},
          {"images", plan.set.images.size()},
          {"steps", stepsOf(plan)},
          {"periods", plan.periods},
          {"inverses", plan.options.hasInverses},
          {"sigma", plan.sigma},
          {"orderErrors", plan.orderErrors},
          {"decoded", plan.decoded},
          {"decodedAlone", plan.decodedAlone},
          {"time", plan.time}};
}

} // namespace

void PlanOptions::addTo(CLI::App& command) {
  CLI::Option* plan = command.add_flag("--plan", isWanted,
                                       "Tell which set serves best, and write it where a folder is given");
  command
      .add_option("--sigma", wish.sigma, "Plan: wanted standard deviation of a coordinate, projector pixels")
      ->check(anyNumber())
      ->needs(plan);
  command.add_option("--images", wish.images, "Plan: most images; without --sigma as good as they make it")
      ->transform(wholeNumber<int>())
      ->needs(plan);
  CLI::Option* noise =
      command.add_option("--noise", wish.noise, "Plan: standard deviation of an image's noise, grey levels")
          ->check(anyNumber())
          ->needs(plan)
          ->capture_default_str();
  CLI::Option* amplitude = command
                               .add_option("--amplitude", wish.amplitude,
                                           "Plan: half of the difference of lit and dark, grey levels")
                               ->check(anyNumber())
                               ->needs(plan)
                               ->capture_default_str();
  command
      .add_option(
          "--blur", wish.blur,
          "Plan: standard deviation of the projector's sharpness as the camera sees it, projector pixels")
      ->check(anyNumber())
      ->needs(plan)
      ->capture_default_str();
  command
      .add_option("--light", light,
                  "Plan: noise, amplitude and, of columns and rows, blur from a report of vorn-mv exposure")
      ->needs(plan)
      ->excludes(noise)
      ->excludes(amplitude);
  command
      .add_option("--order-errors", wish.orderErrors,
                  "Plan: most pixels with a wrong fringe, as a share of all")
      ->check(anyNumber())
      ->needs(plan)
      ->capture_default_str();
  command.add_option("--image-time", wish.imageTime, "Plan: seconds for an image")
      ->check(anyNumber())
      ->needs(plan)
      ->capture_default_str();
}

std::vector<mv::PatternPlan> showPlans(PlanOptions const& options, cv::Size const& projector,
                                       mv::PatternAxes axes, Report& report) {
  mv::PatternWish wish = options.wish;
  wish.projector = projector;
  wish.axes = axes;
  if (!options.light.empty()) {
    readLight(options.light, wish);
  }
  std::vector<mv::PatternPlan> const plans = planPatterns(wish);
  report["light"] = {{"noise", wish.noise}, {"amplitude", wish.amplitude}, {"blur", wish.blur}};
  report["plans"] = nlohmann::json::array();
  std::cout << "Noise " << wish.noise << ", amplitude " << wish.amplitude << ", blur " << wish.blur << " px\n"
            << std::left << std::setw(17) << "set" << std::right << std::setw(7) << "images" << std::setw(7)
            << "steps" << std::setw(12) << "sigma px" << std::setw(14) << "order errors" << std::setw(10)
            << "decoded" << std::setw(9) << "time s"
            << "  periods px\n";
  for (mv::PatternPlan const& plan : plans) {
    report["plans"].push_back(toJson(plan));
    std::cout << std::left << std::setw(17) << plan.set.name << std::right << std::setw(7)
              << plan.set.images.size() << std::setw(7) << stepsOf(plan) << std::setw(12)
              << std::setprecision(3) << plan.sigma << std::setw(14) << plan.orderErrors << std::setw(8)
              << 100.0 * plan.decoded << " %" << std::setw(9) << plan.time << "  " << listOf(plan.periods)
              << (plan.options.hasInverses ? "" : "  white and black for inverses") << '\n';
  }
  return plans;
}

} // namespace vorn::tools
