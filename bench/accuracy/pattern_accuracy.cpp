// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "pattern_accuracy.hpp"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <sim/demo.hpp>
#include <sim/map_comparison.hpp>
#include <sim/render.hpp>
#include <sim/truth_json.hpp>
#include <vorn/mv/scanner/scan.hpp>
#include <vorn/mv/sl/decode_patterns.hpp>
#include <vorn/mv/sl/patterns.hpp>
#include <vorn/mv/sl/plan_patterns.hpp>
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "sl/pattern_capture.hpp"

namespace vorn::bench {

namespace {

using mv::test::PatternCapture;
using mv::test::PatternErrors;

char const* const fringeSets[] = {"xor4", "gray-phase", "multi-frequency", "heterodyne"};

/// The columns of a set in drawn images, errors of half the finest fringe and more being wrong orders.
PatternErrors decodeColumns(mv::PatternSet const& set, PatternCapture const& capture, double gross,
                            mv::DecodeSettings const& settings = {}) {
  mv::DecodedPatterns const decoded = mv::decode_patterns(set, capture.capture(set), settings);
  return mv::test::errorsOf(decoded.column, decoded.sigmaColumn, capture.column, gross);
}

mv::PatternSet columnsOf(std::string const& name, cv::Size projector) {
  return mv::test::builtIn(name, 0, projector, mv::PatternAxes::Columns);
}

double finestPeriod(mv::PatternSet const& set) {
  double finest = 1e9;
  for (mv::PatternImage const& image : set.images) {
    finest = image.role == mv::PatternRole::Phase ? std::min(finest, image.period) : finest;
  }
  return finest;
}

void printBounds(int side) {
  std::cout << "| set | bits | error over bound | sigma over error | decoded, % |\n|---|---|---|---|---|\n";
  for (char const* const name : fringeSets) {
    for (int const bits : {8, 10, 12, 16}) {
      mv::PatternSet const set = columnsOf(name, {640, 400});
      PatternCapture capture;
      capture.size = {side, side};
      double const unit = std::pow(2.0, bits - 8);
      capture.column = [](int x, int y) { return 20.3 + 1.1 * x + 0.04 * y; };
      capture.type = bits == 8 ? CV_8UC1 : CV_16UC1;
      capture.noise *= std::sqrt(unit); // a deeper sensor has less of it
      capture.mean *= unit;
      capture.amplitude *= unit;
      capture.white = 256.0 * unit - 1.0;
      mv::DecodeSettings settings;
      settings.whiteLevel = capture.white;
      PatternErrors const e = decodeColumns(set, capture, 1.0, settings);
      double const bound = mv::test::boundOf(set, mv::PatternAxis::Column, capture);
      std::cout << cv::format("| %s | %d | %.3f | %.3f | %.2f |\n", name, bits, e.rms / bound,
                              e.meanSigma / e.rms, 100.0 * e.decoded);
    }
  }
}

/// The noise for which a share of wrong orders is foretold.
double noiseOf(mv::PatternSet const& set, mv::PatternWish wish, double rate) {
  double low = 0.1;
  double high = 60.0;
  constexpr int halvings = 60;
  for (int i = 0; i < halvings; ++i) {
    wish.noise = std::sqrt(low * high);
    (mv::foretell(set, wish).orderErrors > rate ? high : low) = wish.noise;
  }
  return low;
}

void printOrders(int side) {
  constexpr double rate = 1e-6;
  std::cout << "\n| set | noise of 1e-6 | decoded, % | foretold, % | sigma foretold over error | wrong of "
               "decoded |\n|---|---|---|---|---|---|\n";
  for (char const* const name : fringeSets) {
    mv::PatternWish wish;
    wish.projector = {1280, 800};
    wish.blur = 0.7;
    wish.amplitude = 60.0;
    wish.axes = mv::PatternAxes::Columns;
    mv::PatternSet const set = columnsOf(name, wish.projector);
    wish.noise = noiseOf(set, wish, rate);
    PatternCapture capture;
    capture.size = {side, side};
    capture.showsPixels = true;
    capture.noise = wish.noise;
    capture.amplitude = wish.amplitude;
    capture.blur = wish.blur;
    capture.column = [](int x, int y) { return 20.3 + 1.2 * x + 0.021 * y; };
    PatternErrors const e = decodeColumns(set, capture, 0.5 * finestPeriod(set));
    mv::PatternPlan const plan = mv::foretell(set, wish);
    double const known = e.decoded * static_cast<double>(capture.size.area());
    std::cout << cv::format("| %s | %.2f | %.2f | %.2f | %.3f | %.0f of %.0f |\n", name, wish.noise,
                            100.0 * e.decoded, 100.0 * plan.decoded, plan.sigma / e.rms, e.wrong * known,
                            known);
  }
}

/// Three exposures of albedos from 0.03 to 0.9 with a highlight on them.
void printExposures(int side) {
  std::cout << "\n| set, three exposures | decoded, % | wrong | sigma over error |\n|---|---|---|---|\n";
  for (char const* const name : fringeSets) {
    mv::PatternSet set = columnsOf(name, {640, 400});
    std::vector<mv::PatternImage> const once = std::move(set.images);
    set.images.clear();
    for (double const exposure : {1.0, 4.0, 16.0}) {
      for (mv::PatternImage image : once) {
        image.exposure = exposure;
        set.images.push_back(image);
      }
    }
    PatternCapture capture;
    capture.size = {side, side};
    capture.column = [](int x, int y) { return 20.3 + 1.1 * x + 0.04 * y; };
    capture.albedo = [side](int x, int y) {
      constexpr double steps = 30.0;
      double const share = std::fmod(steps * x / side, 3.0);
      double const dx = 10.0 * x / side - 8.0;
      double const dy = 10.0 * y / side - 5.0;
      return (share < 1.0 ? 0.03 : share < 2.0 ? 0.3 : 0.9) + 2.0 * std::exp(-(dx * dx + dy * dy));
    };
    capture.mean = 1300.0;
    capture.amplitude = 1100.0;
    PatternErrors const e = decodeColumns(set, capture, 1.0);
    std::cout << cv::format("| %s | %.2f | %.2g | %.3f |\n", name, 100.0 * e.decoded, e.wrong,
                            e.meanSigma / e.rms);
  }
}

/// The scanner's own set, shown by a projector whose pixels are squares to a twentieth of their width.
/// @param rays per pixel along a row and a column: few sample the stairs, many average over the pixel
void printStairsOf(sim::Rig rig, double ratio, int rays) {
  rig.projector.blur = 0.05;
  rig.projector.blurSlope = 0.0;
  sim::RenderOptions options;
  options.supersample = rays;
  sim::Truth const truth = sim::truth(rig.camera, rig.projector, sim::demoScene());
  sim::ProjectorView const view(rig.camera, rig.projector, sim::demoScene(), options);
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;
  mv::generate_ps4_patterns(columns, rows, rig.projector.device.resolution());
  mv::Sl3dScanner scanner;
  scanner.read(sim::scannerJson(rig));
  for (bool const isColumn : {true, false}) {
    using Type = mv::scanner::ScannerType;
    scanner["ScannerType"] = Type(isColumn ? Type::Horizontal : Type::Vertical);
    std::vector<cv::Mat> const images = view.capture(isColumn ? columns : rows);
    auto const left = [&](bool isCorrected) {
      mv::ScanSettings settings;
      settings.correctsStaircase = isCorrected;
      return sim::systematicError(mv::scan(scanner, images, settings).map, truth,
                                  isColumn ? sim::MapAxis::Column : sim::MapAxis::Row);
    };
    std::cout << cv::format("| %s | %.1f | %d x %d | %.4f | %.4f |\n", isColumn ? "columns" : "rows", ratio,
                            rays, rays, left(false), left(true));
  }
}

void printStairs(int divisor) {
  std::cout << "\n| sharp to 0.05 px | camera pixels a projector pixel | rays a pixel | left as it is, px | "
               "corrected, px |\n|---|---|---|---|---|\n";
  for (double const ratio : {1.0, 1.4, 2.5}) {
    for (int const rays : {2, 4}) {
      printStairsOf(sim::demoRigSampled(ratio, divisor), ratio, rays);
    }
  }
}

} // namespace

void printPatternAccuracy(int side) {
  constexpr int fullSize = 1000;
  printBounds(side / 2);
  printOrders(side);
  printExposures(side / 2);
  printStairs(side < fullSize ? 2 : 1);
}

} // namespace vorn::bench
