// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/findings/image_consequences.hpp"

#include <algorithm>
#include <cstddef>

namespace vorn::mv {

Finding* imageFaultOf(std::vector<Finding>& said, int view) {
  auto const fault = std::find_if(said.begin(), said.end(), [view](Finding const& finding) {
    return finding.view == view && finding.cause >= FindingCause::Gamma &&
           finding.cause < FindingCause::MovedBefore;
  });
  return fault == said.end() ? nullptr : &*fault;
}

void addConsequence(Finding& fault, std::string const& consequence) {
  fault.text += "; " + consequence;
}

void explainWrongDots(std::vector<Finding>& said, std::vector<Finding>& findings,
                      Adjustment const& adjustment, std::vector<int> const& numbers) {
  auto const wrongDots = std::find_if(findings.begin(), findings.end(), [](Finding const& finding) {
    return finding.cause == FindingCause::WrongDots;
  });
  if (wrongDots == findings.end()) {
    return;
  }
  std::size_t wrong = 0;
  std::size_t all = 0;
  for (std::size_t i = 0; i < adjustment.views.size(); ++i) {
    ViewAdjustment const& view = adjustment.views[i];
    if (imageFaultOf(said, numbers[i]) == nullptr) {
      wrong += view.leftOut.size();
      all += view.leftOut.size() + static_cast<std::size_t>(view.dotCount);
    }
  }
  if (static_cast<double>(wrong) > wrongDots->limit * static_cast<double>(all)) {
    return;
  }
  for (std::size_t i = 0; i < adjustment.views.size(); ++i) {
    std::size_t const count = adjustment.views[i].leftOut.size();
    Finding* const fault = imageFaultOf(said, numbers[i]);
    if (fault != nullptr && count > 0) {
      addConsequence(*fault, std::to_string(count) + " of its dots were left out");
    }
  }
  findings.erase(wrongDots);
}

} // namespace vorn::mv
