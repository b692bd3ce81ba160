// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <CLI/App.hpp>

#include <vorn/mv/calib/target_description.hpp>

namespace vorn::tools {

/// The target as a command's options describe it: a file, or its size and kind.
class TargetOptions {
public:
  /// Adds `--target`, `--size`, `--kind`, `--marker-size` and `--dictionary`, none of which goes with another
  /// option.
  void addTo(CLI::App& command, CLI::Option* other = nullptr);

  /// Whether any of them is given.
  bool isGiven() const { return !file_.empty() || !size_.empty() || !kind_.empty(); }

  /// The file given by `--target`; empty when it is not.
  std::string const& file() const { return file_; }

  /// The target that they describe.
  /// @param pitch mm, as `--pitch` gives it; 0 when it does not, which counts positions in pitches
  /// @throws Exception when both a file and the pitch are given, or what is given makes no target
  mv::TargetDescription description(double pitch) const;

private:
  std::string file_;
  std::string size_;
  std::string kind_;
  double markerSize_ = 0;
  std::string dictionary_;
};

} // namespace vorn::tools
