// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <CLI/App.hpp>
#include <opencv2/core/mat.hpp>

#include <vorn/mv/sl/sl3d_scanner.hpp>

#include "tools/commands/target_options.hpp"
#include "tools/report/report.hpp"

namespace vorn::tools {

/// A known length in a scan, as the options of `check` give it.
struct LengthOptions {
  double length = 0.0;            ///< mm; 0: none
  std::vector<std::string> balls; ///< pixels on two balls, or
  std::vector<std::string> dots;  ///< on two dots of a target
  TargetOptions target;
  double tolerance = 0.02; ///< percent

  /// Adds `--length`, `--ball`, `--dot`, `--target`, `--size`, `--kind` and `--tolerance`.
  void addTo(CLI::App& command);

  /// @throws Exception unless two balls or two dots belong to a length
  void check() const;

  /// The file that describes the target; empty where none is needed or its dots are marked.
  std::string targetFile(std::string const& folder) const;
};

/// Compares a length in a scan with what it is, for output, report and page.
/// @param modulation of the fringes at every pixel: the scene as the projector lights it
/// @return what is wrong; empty when nothing is, or no length is given
/// @throws Exception where the scan does not show what the options name
std::string measureLength(LengthOptions const& options, std::string const& folder,
                          cv::Mat_<cv::Vec3f> const& xyz, cv::Mat_<float> const& modulation,
                          mv::Sl3dScanner const& scanner, Report& report);

} // namespace vorn::tools
