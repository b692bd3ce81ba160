// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "registration_accuracy.hpp"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <random>

#include <vorn/mv/registration/find_start.hpp>
#include <vorn/mv/registration/registration.hpp>

#include "sim/measured_parts.hpp"

namespace vorn::bench {

namespace {

struct Scattered {
  char const* name;
  bool isGrid;
  int side;
  double turn;    ///< of the source's grid in its own plane, rad
  double shift;   ///< of the source's view along x, mm
  double height;  ///< of the waves
  double density; ///< of the waves
  double offset;  ///< of the source's grid, in cells: whole ones lay points on points
};

constexpr Scattered scattered[] = {{"grid", true, 90, 0.0, 0.0, 3.0, 1.0, 0.37},
                                   {"list", false, 90, 0.0, 0.0, 3.0, 1.0, 0.37},
                                   {"grid, half seen", true, 90, 0.0, 13.0, 3.0, 1.0, 0.37},
                                   {"grid, fine waves", true, 90, 0.0, 0.0, 1.5, 3.0, 0.37},
                                   {"grid turned", true, 90, 0.5, 0.0, 3.0, 1.0, 0.37},
                                   {"grid, 57 600 points", true, 240, 0.0, 0.0, 3.0, 0.5, 0.37},
                                   {"list, 57 600 points", false, 240, 0.3, 0.0, 3.0, 0.5, 0.37},
                                   {"list of one raster", false, 90, 0.0, 0.0, 3.0, 1.0, 1.0},
                                   {"list of one raster, 57 600", false, 240, 0.0, 0.0, 3.0, 0.5, 1.0}};

cv::Mat_<cv::Vec3f> wavesOf(Scattered const& given, double turn, double shift, double offset,
                            std::mt19937& random) {
  constexpr double spacing = 0.3;
  std::normal_distribution<double> noise(0.0, 0.02);
  cv::Mat_<cv::Vec3f> points(given.side, given.side);
  for (int row = 0; row < given.side; ++row) {
    for (int column = 0; column < given.side; ++column) {
      double const u = spacing * (column - given.side / 2 + offset) + shift;
      double const v = spacing * (row - given.side / 2 + offset);
      double const x = u * std::cos(turn) - v * std::sin(turn);
      double const y = u * std::sin(turn) + v * std::cos(turn);
      double const z = 500.0 +
                       given.height * std::sin(0.3 * given.density * x) * std::cos(0.25 * given.density * y) +
                       0.01 * x * y;
      points(row, column) = cv::Vec3f(cv::Vec3d(x + noise(random), y + noise(random), z + noise(random)));
    }
  }
  return points;
}

cv::Matx44d motionAbout(cv::Vec3d const& pivot, cv::Vec3d const& turn, cv::Vec3d const& shift) {
  cv::Matx33d rotation;
  cv::Rodrigues(turn, rotation);
  cv::Vec3d const offset = pivot + shift - rotation * pivot;
  cv::Matx44d motion = cv::Matx44d::eye();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      motion(i, j) = rotation(i, j);
    }
    motion(i, 3) = offset[i];
  }
  return motion;
}

cv::Vec3d moved(cv::Matx44d const& motion, cv::Vec3d const& point) {
  cv::Vec4d const place = motion * cv::Vec4d(point[0], point[1], point[2], 1.0);
  return {place[0], place[1], place[2]};
}

ScatterFigures compare(Scattered const& given, int runs) {
  ScatterFigures figures;
  figures.name = given.name;
  cv::Matx44d const sourceFromTarget = motionAbout({0, 0, 500}, {0.002, 0.003, -0.002}, {0.1, -0.08, 0.05});
  cv::Vec6d squares;
  cv::Vec6d foretold;
  cv::Vec6d sum;
  for (int run = 0; run < runs; ++run) {
    std::mt19937 random(static_cast<unsigned>(run) * 10U + 1U);
    cv::Mat_<cv::Vec3f> const target = wavesOf(given, 0.0, 0.0, 0.0, random);
    cv::Mat_<cv::Vec3f> source = wavesOf(given, given.turn, given.shift, given.offset, random);
    for (cv::Vec3f& point : source) {
      point = cv::Vec3f(moved(sourceFromTarget, cv::Vec3d(point)));
    }
    mv::Registration const found =
        mv::registerClouds(mv::PointCloud(source, given.isGrid), mv::PointCloud(target, given.isGrid));
    if (!found.isFound() || !found.freeMotions.empty()) {
      continue;
    }
    cv::Matx44d const rest = found.targetFromSource * sourceFromTarget;
    cv::Vec3d turn;
    cv::Rodrigues(rest.get_minor<3, 3>(0, 0), turn);
    cv::Vec3d const shift = moved(rest, found.pivot) - found.pivot;
    cv::Vec6d const error(turn[0], turn[1], turn[2], shift[0], shift[1], shift[2]);
    figures.joint += error.dot(found.covariance.inv(cv::DECOMP_CHOLESKY) * error) / 6.0;
    ++figures.runs;
    for (int i = 0; i < 6; ++i) {
      squares[i] += error[i] * error[i];
      foretold[i] += found.covariance(i, i);
      sum[i] += error[i];
    }
  }
  double const count = std::max(1, figures.runs);
  figures.joint = std::sqrt(figures.joint / count);
  for (int i = 0; i < 6; ++i) {
    figures.axes[i] = std::sqrt(squares[i] / foretold[i]);
    figures.bias[i] = sum[i] / count / std::sqrt(foretold[i] / count);
  }
  return figures;
}

struct Start {
  char const* name;
  double degrees;
  double shift; ///< of the part's size
};
constexpr Start starts[] = {{"nothing", 0, 0},
                            {"2 degrees, 2 %", 2, 0.02},
                            {"5 degrees, 5 %", 5, 0.05},
                            {"10 degrees, 5 %", 10, 0.05},
                            {"20 degrees, 10 %", 20, 0.1},
                            {"30 degrees, 15 %", 30, 0.15},
                            {"45 degrees, 20 %", 45, 0.2}};

cv::Vec3d directionBy(std::mt19937& random) {
  std::normal_distribution<double> any(0.0, 1.0);
  return cv::normalize(cv::Vec3d(any(random), any(random), any(random)));
}

/// Two scans of a part and how they lie.
struct Pair {
  mv::PointCloud source;
  mv::PointCloud target;
  cv::Matx44d targetFromSource;
  std::vector<cv::Vec3d> places; ///< some of the source's
};

Pair pairOf(sim::MeasuredPart const& part, double overlap, std::mt19937& random) {
  constexpr int side = 400;
  constexpr double sigma = 0.002;
  sim::PartViews const views = sim::viewsOf(part, overlap, side, sigma, random);
  Pair pair{
      mv::PointCloud(views.source, true), mv::PointCloud(views.target, true), views.targetFromSource, {}};
  for (int i = 0; i < static_cast<int>(views.source.total()); i += 97) {
    cv::Vec3f const& point = views.source(i / side, i % side);
    if (std::isfinite(point[0])) {
      pair.places.emplace_back(point);
    }
  }
  return pair;
}

/// Whether a motion takes the source's points to their places, to a hundredth of the part's size.
bool isRight(Pair const& pair, cv::Matx44d const& targetFromSource) {
  double squares = 0.0;
  for (cv::Vec3d const& place : pair.places) {
    cv::Vec3d const off = moved(targetFromSource, place) - moved(pair.targetFromSource, place);
    squares += off.dot(off);
  }
  return std::sqrt(squares / static_cast<double>(std::max<std::size_t>(1, pair.places.size()))) < 0.02;
}

/// The same of which what both see is held in all directions: two views of one flat face have no one answer.
Pair heldPairOf(sim::MeasuredPart const& part, double overlap, std::mt19937& random) {
  constexpr int mostDraws = 8;
  for (int draw = 1;; ++draw) {
    Pair pair = pairOf(part, overlap, random);
    mv::RegistrationSettings settings;
    settings.targetFromSource = pair.targetFromSource;
    mv::Registration const found = mv::registerClouds(pair.source, pair.target, settings);
    if ((found.isFound() && found.freeMotions.empty()) || draw == mostDraws) {
      return pair;
    }
  }
}

void count(std::string const& part, Pair const& pair, mv::Registration const& found, bool isFound,
           BasinFigures& figures) {
  ++figures.runs;
  if (found.isFound() && isRight(pair, found.targetFromSource)) {
    ++figures.right;
  } else {
    figures.flagged +=
        !isFound || !found.isFound() || found.isDoubtful() || !found.freeMotions.empty() ? 1 : 0;
    figures.lost.push_back(part);
  }
}

} // namespace

std::vector<ScatterFigures> compareRegistrations(int runs) {
  std::vector<ScatterFigures> all;
  for (Scattered const& given : scattered) {
    all.push_back(compare(given, runs));
  }
  return all;
}

std::vector<BasinFigures> basins(BasinSettings const& settings) {
  std::vector<BasinFigures> all;
  std::vector<sim::MeasuredPart> parts = sim::measuredParts();
  parts.resize(std::min(parts.size(), settings.parts));
  for (double const overlap : settings.overlaps) {
    std::vector<BasinFigures> rows;
    for (Start const& start : starts) {
      rows.push_back({start.name, overlap, 0, 0, 0, {}});
    }
    if (settings.isSearching) {
      rows.push_back({"search", overlap, 0, 0, 0, {}});
    }
    unsigned seed = 1;
    for (sim::MeasuredPart const& part : parts) {
      for (int view = 0; view < settings.views; ++view) {
        std::mt19937 random(seed++);
        Pair const pair = heldPairOf(part, overlap, random);
        cv::Vec3d const middle(0, 0, 8.0);
        for (std::size_t i = 0; i < std::size(starts); ++i) {
          mv::RegistrationSettings from;
          from.targetFromSource =
              motionAbout(middle, directionBy(random) * (starts[i].degrees * CV_PI / 180.0),
                          directionBy(random) * (2.0 * starts[i].shift)) *
              pair.targetFromSource;
          count(part.name, pair, mv::registerClouds(pair.source, pair.target, from), true, rows[i]);
        }
        if (settings.isSearching) {
          mv::StartSearch const search = mv::findStart(pair.source, pair.target);
          mv::RegistrationSettings from;
          from.targetFromSource = search.targetFromSource;
          count(part.name, pair, mv::registerClouds(pair.source, pair.target, from), search.isFound,
                rows.back());
        }
      }
    }
    all.insert(all.end(), rows.begin(), rows.end());
  }
  return all;
}

bool printRegistrations(int runs) {
  bool isHonest = true;
  std::cout << "| surface | runs | error over foretold | rotations | translations | mean error, sigmas |\n"
               "|---|---|---|---|---|---|\n";
  for (ScatterFigures const& f : compareRegistrations(runs)) {
    double worst = 0.0;
    for (double const bias : f.bias) {
      worst = std::max(worst, std::abs(bias));
    }
    std::cout << cv::format("| %s | %d | %.3f | %.2f %.2f %.2f | %.2f %.2f %.2f | at most %.2f |\n",
                            f.name.c_str(), f.runs, f.joint, f.axes[0], f.axes[1], f.axes[2], f.axes[3],
                            f.axes[4], f.axes[5], worst);
    // Chance moves it by the root of 1 / (12 runs).
    double const allowed = 0.35 + 3.0 / std::sqrt(12.0 * runs);
    isHonest = isHonest && f.runs == runs && std::abs(f.joint - 1.0) < allowed;
  }
  return isHonest;
}

void printBasins(std::vector<BasinFigures> const& all) {
  std::cout << "\n| overlap | start off by | right | of | wrong ones flagged | wrong parts "
               "|\n|---|---|---|---|---|---|\n";
  for (BasinFigures const& f : all) {
    std::string lost;
    for (std::string const& name : f.lost) {
      lost += (lost.empty() ? "" : ", ") + name;
    }
    std::cout << cv::format("| %.0f %% | %s | %d | %d | %d | ", 100.0 * f.overlap, f.start.c_str(), f.right,
                            f.runs, f.flagged)
              << lost << " |\n";
  }
}

} // namespace vorn::bench
