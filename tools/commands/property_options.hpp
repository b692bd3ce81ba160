// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include <CLI/App.hpp>

#include <vorn/core/property_set.hpp>

namespace vorn::tools {

/// Adds `--set NAME=VALUE`, which may be given more than once, and returns it.
/// @param what   whose properties they are, for the help text
/// @param object one that has them, for the shells' completion
CLI::Option* addSetOption(CLI::App& command, std::vector<std::string>& assignments, std::string const& what,
                          IPropertySet const& object);

/// Sets properties from "NAME=VALUE" texts.
/// @throws Exception for a text without "=", an unknown name (with those that exist) or a refused value
void applyAssignments(PropertySetBase& object, std::vector<std::string> const& assignments);

/// The pitch of the target, as an option or as the detector's property.
struct PitchOption {
  double pitch = 0; ///< mm; 0 when the option is not given

  /// Adds `--pitch MM`.
  void addTo(CLI::App& command);

  /// Gives the detector the pitch, where there is one.
  ///
  /// @param assignments of the detector's properties, which may hold the pitch as "PatternDim"
  /// @throws CLI::ValidationError when both give it, or for one that the detector does not take
  void apply(PropertySetBase& detector, std::vector<std::string> const& assignments) const;

  /// The pitch that the option or an assignment of "PatternDim" gives, mm; 0 when neither does.
  /// @throws CLI::ValidationError when both do
  double given(std::vector<std::string> const& assignments) const;

  /// @throws CLI::RequiredError when neither the option nor an assignment gives the pitch: without it every
  ///         length of a calibration would be wrong by one factor, which nothing in its figures shows
  void require(std::vector<std::string> const& assignments) const;

private:
  void requireOnce(std::vector<std::string> const& assignments) const;
};

} // namespace vorn::tools
