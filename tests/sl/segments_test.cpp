// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/decode/segments.hpp"

#include <algorithm>
#include <map>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "support/seed.hpp"

namespace vorn::mv::sl {
namespace {

/// Labels by flood fill, the plainest way there is; 0 for other pixels.
cv::Mat_<int> floodLabels(cv::Mat_<uchar> const& map, uchar value, bool diagonal) {
  cv::Mat_<int> labels(map.size(), 0);
  int count = 0;
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      std::vector<cv::Point> open;
      auto const visit = [&](cv::Point p, int label) {
        if (p.inside({0, 0, map.cols, map.rows}) && map(p) == value && labels(p) == 0) {
          labels(p) = label;
          open.push_back(p);
        }
      };
      if (map(y, x) == value && labels(y, x) == 0) {
        visit({x, y}, ++count);
      }
      while (!open.empty()) {
        cv::Point const p = open.back();
        open.pop_back();
        for (int dy = -1; dy <= 1; ++dy) {
          for (int dx = -1; dx <= 1; ++dx) {
            if (diagonal || dx == 0 || dy == 0) {
              visit({p.x + dx, p.y + dy}, count);
            }
          }
        }
      }
    }
  }
  return labels;
}

cv::Mat_<uchar> randomMap(cv::Size size, int percent, unsigned seed) {
  cv::RNG random(seed);
  cv::Mat_<uchar> map(size);
  for (uchar& pixel : map) {
    pixel = random.uniform(0, 100) < percent ? 255 : 0;
  }
  return map;
}

MarkedRow rowsOf(cv::Mat_<uchar> const& map) {
  return [map](int y, uchar* /*room*/) { return map[y]; };
}

void expectSameSegments(cv::Mat_<uchar> const& map, uchar value, Neighbourhood neighbourhood) {
  std::vector<vorn::Run> runs;
  findSegments(map.size(), rowsOf(map), value, neighbourhood, runs);
  cv::Mat_<int> const expected = floodLabels(map, value, neighbourhood == Neighbourhood::Eight);
  std::map<int, int> labelOf;
  std::map<int, int> segmentOf;
  int pixels = 0;
  for (Run const& run : runs) {
    for (int x = run.begin; x < run.end; ++x, ++pixels) {
      int const label = expected(run.row, x);
      EXPECT_EQ(labelOf.emplace(run.segment, label).first->second, label);
      EXPECT_EQ(segmentOf.emplace(label, run.segment).first->second, run.segment);
    }
    EXPECT_LE(run.segment, static_cast<int>(&run - runs.data()));
  }
  EXPECT_EQ(pixels, cv::countNonZero(expected));
}

TEST(Segments, AreThoseOfFloodFill) {
  for (int percent : {20, 45, 60, 85}) {
    for (unsigned i = 0; i < 5; ++i) {
      cv::Mat_<uchar> const map = randomMap({41, 37}, percent, test::seed() + i);
      SCOPED_TRACE(testing::Message() << percent << " % seed " << test::seed() + i);
      expectSameSegments(map, 255, Neighbourhood::Four);
      expectSameSegments(map, 255, Neighbourhood::Eight);
      expectSameSegments(map, 0, Neighbourhood::Eight);
    }
  }
  expectSameSegments(cv::Mat_<uchar>(3, 5, uchar{255}), 0, Neighbourhood::Four);
  // Several bands of rows.
  for (int percent : {30, 60}) {
    cv::Mat_<uchar> const tall = randomMap({17, 300}, percent, test::seed());
    expectSameSegments(tall, 255, Neighbourhood::Four);
    expectSameSegments(tall, 255, Neighbourhood::Eight);
  }
}

TEST(Segments, SmallOnesGoAndOthersStay) {
  cv::Mat_<uchar> map = randomMap({60, 50}, 55, test::seed());
  cv::Mat_<int> const labels = floodLabels(map, 255, false);
  constexpr int minSize = 6;
  cv::Mat_<uchar> expected(map.size(), uchar{0});
  for (int y = 0; y < map.rows; ++y) {
    for (int x = 0; x < map.cols; ++x) {
      bool const large = labels(y, x) > 0 && cv::countNonZero(labels == labels(y, x)) >= minSize;
      expected(y, x) = large ? 255 : 0;
    }
  }
  std::vector<vorn::Run> runs;
  findSegments(map.size(), rowsOf(map), 255, Neighbourhood::Four, runs);
  forEachSmallRun(runs, minSize, [&](vorn::Run const& run) {
    std::fill(map[run.row] + run.begin, map[run.row] + run.end, uchar{0});
  });
  EXPECT_EQ(cv::norm(cv::Mat(map), cv::Mat(expected), cv::NORM_INF), 0.0);
}

} // namespace
} // namespace vorn::mv::sl
