// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/calibration/board_words.hpp"

#include <gtest/gtest.h>

namespace vorn::mv {
namespace {

TEST(BoardWords, SpeakOfCornersWhereDotsAreMeant) {
  EXPECT_EQ(
      withCorners("dots of view 3: 12 dots, the worst dot (dot 7) is a dotted line's, anecdote, dot"),
      "corners of view 3: 12 corners, the worst corner (corner 7) is a dotted line's, anecdote, corner");
  EXPECT_EQ(withCorners(""), "");
  Calibration calibration;
  calibration.views.resize(1);
  calibration.views[0].reason = "5 dots are not where they should be";
  calibration.report.findings.resize(1);
  calibration.report.findings[0].text = "The dots fill 3 % of the image";
  calibration.report.findings[0].advice = "Look for dots";
  speakOfCorners(calibration);
  EXPECT_EQ(calibration.views[0].reason, "5 corners are not where they should be");
  EXPECT_EQ(calibration.report.findings[0].text, "The corners fill 3 % of the image");
  EXPECT_EQ(calibration.report.findings[0].advice, "Look for corners");
}

} // namespace
} // namespace vorn::mv
