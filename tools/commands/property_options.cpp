// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/commands/property_options.hpp"

#include <algorithm>
#include <sstream>

#include <vorn/core/exception.hpp>
#include <vorn/mv/calib/calib_pattern_detector.hpp>

#include "tools/commands/number_check.hpp"
#include "tools/commands/option_words.hpp"

namespace vorn::tools {

namespace {

bool givesPitch(std::vector<std::string> const& assignments) {
  return std::any_of(assignments.begin(), assignments.end(),
                     [](std::string const& assignment) { return assignment.rfind("PatternDim=", 0) == 0; });
}

} // namespace

CLI::Option* addSetOption(CLI::App& command, std::vector<std::string>& assignments, std::string const& what,
                          IPropertySet const& object) {
  CLI::Option* option =
      command.add_option("--set", assignments, "Set a property of the " + what + ", as NAME=VALUE")
          ->type_name("NAME=VALUE")
          ->allow_extra_args(false)
          ->take_all();
  setWords(*option, propertyWords(object));
  return option;
}

void applyAssignments(PropertySetBase& object, std::vector<std::string> const& assignments) {
  for (std::string const& assignment : assignments) {
    auto const equals = assignment.find('=');
    if (equals == std::string::npos) {
      throw Exception("\"" + assignment + "\" is not NAME=VALUE", nullptr, 0, "--set");
    }
    std::string const name = assignment.substr(0, equals);
    Property* const property = object.findProperty(name);
    if (property == nullptr) {
      std::string known;
      for (std::string const& candidate : object.getPropertyNames()) {
        known += (known.empty() ? "" : ", ") + candidate;
      }
      throw Exception("There is no property \"" + name + "\"; there are " + known, nullptr, 0, "--set");
    }
    *property = Variant(assignment.substr(equals + 1));
  }
}

void PitchOption::addTo(CLI::App& command) {
  command.add_option("--pitch", pitch, "From one dot of the target to the next, mm: measure it on the print")
      ->type_name("MM")
      ->check(aboveZero());
}

void PitchOption::apply(PropertySetBase& detector, std::vector<std::string> const& assignments) const {
  requireOnce(assignments);
  if (pitch <= 0) {
    return;
  }
  Property& ofDetector = *detector.findProperty("PatternDim");
  double const least = ofDetector.getMin().toDouble();
  double const greatest = ofDetector.getMax().toDouble();
  if (pitch < least || pitch > greatest) {
    std::ostringstream text;
    text << "the pitch is " << pitch << " mm, and without a description of the target it must be " << least
         << " to " << greatest << "; --size COLUMNSxROWS or --target FILE describe one of any pitch";
    throw CLI::ValidationError("--pitch", text.str());
  }
  ofDetector = Variant(pitch);
}

double PitchOption::given(std::vector<std::string> const& assignments) const {
  requireOnce(assignments);
  if (pitch > 0 || !givesPitch(assignments)) {
    return pitch;
  }
  mv::CalibPatternDetector detector;
  applyAssignments(detector, assignments);
  return detector["PatternDim"].get<double>();
}

void PitchOption::requireOnce(std::vector<std::string> const& assignments) const {
  if (pitch > 0 && givesPitch(assignments)) {
    throw CLI::ValidationError("--pitch", "the pitch is given by --set PatternDim too");
  }
}

void PitchOption::require(std::vector<std::string> const& assignments) const {
  if (pitch <= 0 && !givesPitch(assignments)) {
    throw CLI::RequiredError("The target's pitch, --pitch MM (or --set PatternDim=MM),");
  }
}

} // namespace vorn::tools
