// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/pattern_doubts.hpp"

#include <nlohmann/json.hpp>

namespace vorn::tools {

namespace {

char const* wordOf(mv::PatternFault fault) {
  switch (fault) {
  case mv::PatternFault::Steps:
    return "steps";
  case mv::PatternFault::Level:
    return "level";
  case mv::PatternFault::Mirrored:
    return "mirrored";
  case mv::PatternFault::Shifted:
    return "shifted";
  case mv::PatternFault::Stripes:
    break;
  }
  return "stripes";
}

} // namespace

void noteDoubts(std::vector<mv::PatternDoubt> const& doubts, Report& report) {
  nlohmann::json list = nlohmann::json::array();
  for (mv::PatternDoubt const& doubt : doubts) {
    list.push_back({{"fault", wordOf(doubt.fault)},
                    {"axis", doubt.axis == mv::PatternAxis::Column ? "column" : "row"},
                    {"period", doubt.period},
                    {"images", doubt.images},
                    {"value", doubt.value},
                    {"limit", doubt.limit},
                    {"text", doubt.text}});
  }
  report["doubts"] = list;
  warnOfDoubts(doubts, report);
}

void warnOfDoubts(std::vector<mv::PatternDoubt> const& doubts, Report& report) {
  for (mv::PatternDoubt const& doubt : doubts) {
    report.warn("what is decoded is not to be trusted: " + doubt.text);
  }
}

} // namespace vorn::tools
