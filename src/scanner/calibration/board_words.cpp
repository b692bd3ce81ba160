// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/board_words.hpp"

#include <cctype>
#include <cstddef>

namespace vorn::mv {

bool hasCorners(CalibrationSettings const& settings) {
  return settings.target &&
         (settings.target->kind == TargetKind::Chessboard || settings.target->kind == TargetKind::Charuco);
}

std::string withCorners(std::string const& text) {
  std::string const dot = "dot";
  std::string words;
  std::size_t from = 0;
  auto const isLetter = [&](std::size_t i) {
    return i < text.size() && std::isalpha(static_cast<unsigned char>(text[i])) != 0;
  };
  for (std::size_t at = text.find(dot); at != std::string::npos; at = text.find(dot, at + 1)) {
    std::size_t const end = at + dot.size();
    bool const isWord =
        (at == 0 || !isLetter(at - 1)) && (!isLetter(end) || (text[end] == 's' && !isLetter(end + 1)));
    if (isWord) {
      words += text.substr(from, at - from) + "corner";
      from = end;
    }
  }
  return words + text.substr(from);
}

void speakOfCorners(Calibration& calibration) {
  for (CalibratedView& view : calibration.views) {
    view.reason = withCorners(view.reason);
    view.remark = withCorners(view.remark);
  }
  CalibrationReport& report = calibration.report;
  for (Finding& finding : report.findings) {
    finding.text = withCorners(finding.text);
    finding.advice = withCorners(finding.advice);
  }
  for (std::string* text : {&report.notAdjusted, &report.shapeLimit, &report.noNextView}) {
    *text = withCorners(*text);
  }
}

} // namespace vorn::mv
