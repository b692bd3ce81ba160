// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/target/chessboard.hpp"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "calib/target/board_crossings.hpp"
#include "calib/target/chessboard_corners.hpp"
#include "calib/target/corner_saddle.hpp"
#include "calib/target/grid_placement.hpp"

namespace vorn::mv {
namespace {

constexpr char const* stage = "detecting targets";

/// Least share of a board's corners that must be clear.
constexpr double leastKept = 0.8;

std::string sizeText(cv::Size const& size) {
  return std::to_string(size.width) + " x " + std::to_string(size.height);
}

/// The image with its light and contrast the same everywhere: `findChessboardCornersSB` looks for one
/// threshold for all of it, and dim or shaded boards fall under that.
cv::Mat evened(cv::Mat const& image) {
  constexpr double windowsASide = 40;
  constexpr double leastDeviation = 2; // grey levels: of noise alone no pattern is made
  constexpr double contrast = 60;
  constexpr double middle = 128;
  constexpr int coarser = 4;
  cv::Mat coarse;
  cv::Size const size(std::max(1, image.cols / coarser), std::max(1, image.rows / coarser));
  cv::resize(image, coarse, size, 0, 0, cv::INTER_AREA);
  coarse.convertTo(coarse, CV_32F);
  double const sigma = std::max(1.0, std::max(size.width, size.height) / windowsASide);
  cv::Mat mean;
  cv::Mat squares;
  cv::GaussianBlur(coarse, mean, {}, sigma);
  cv::GaussianBlur(coarse.mul(coarse), squares, {}, sigma);
  cv::Mat deviation;
  cv::sqrt(cv::max(squares - mean.mul(mean), leastDeviation * leastDeviation), deviation);
  cv::resize(mean, mean, image.size());
  cv::resize(deviation, deviation, image.size());
  cv::Mat level;
  image.convertTo(level, CV_32F);
  cv::Mat even = (level - mean) / deviation * contrast + middle;
  even.convertTo(even, CV_8U);
  return even;
}

bool search(cv::Mat const& image, cv::Size const& size, int more, BoardCorners& corners) {
  cv::Mat squares; // of the board that was found, one a corner
  // Images that are no larger are enlarged for the search.
  constexpr int smallSide = 640;
  more |= std::max(image.cols, image.rows) < smallSide ? cv::CALIB_CB_ACCURACY : 0;
  bool const isFound =
      cv::findChessboardCornersSB(image, size, corners.places, cv::CALIB_CB_EXHAUSTIVE | more, squares);
  corners.size = squares.size();
  if (!isFound || corners.places.size() != static_cast<std::size_t>(corners.size.area())) {
    return false;
  }
  cv::Point2d const right = corners.at({corners.size.width - 1, 0}) - corners.at({0, 0});
  cv::Point2d const down = corners.at({0, corners.size.height - 1}) - corners.at({0, 0});
  if (right.cross(down) < 0) { // boards are seen from the front
    for (auto row = corners.places.begin(); row != corners.places.end(); row += corners.size.width) {
      std::reverse(row, row + corners.size.width);
    }
  }
  return true;
}

bool isTurned(cv::Size const& a, cv::Size const& b) {
  return a.width == b.height && a.height == b.width;
}

/// Factors to reduce an image by, coarse first: a search takes a time that goes with the number of pixels.
std::vector<int> factorsFor(cv::Size const& size) {
  constexpr int longSide = 640; // of the coarsest, at least
  constexpr int mostFactor = 16;
  int factor = 1;
  int const most = std::min(mostFactor, std::min(size.width, size.height) / 2); // images may be a line
  while (factor < most && std::max(size.width, size.height) >= 2 * factor * longSide) {
    factor *= 2;
  }
  std::vector<int> factors;
  for (; factor > 0; factor /= 2) {
    factors.push_back(factor);
  }
  return factors;
}

cv::Mat reduced(cv::Mat const& image, int factor) {
  if (factor == 1) {
    return image;
  }
  cv::Size const size(image.cols / factor, image.rows / factor);
  cv::Mat level;
  cv::resize(image(cv::Rect({}, size * factor)), level, size, 0, 0, cv::INTER_AREA);
  return level;
}

cv::Point2f unreduced(cv::Point2f const& place, int factor) {
  auto const f = static_cast<float>(factor);
  return place * f + cv::Point2f((f - 1) / 2, (f - 1) / 2);
}

/// A chessboard in an image, to be measured.
class Search {
public:
  Search(cv::Mat const& image, TargetDescription const& target) : image_(image), target_(target) {
    cv::GaussianBlur(image, smooth_, {}, saddleSmoothing);
  }

  Detection run(Progress const& progress) {
    std::vector<int> const factors = factorsFor(image_.size());
    double done = 0;
    for (int const factor : factors) {
      progress.at(stage, done);
      done = 0.1 + 0.9 * done; // each takes a few times as long as the one before
      cv::Mat const level = reduced(image_, factor);
      for (cv::Mat const& seen : {evened(level), level}) {
        progress.at(stage, done);
        BoardCorners corners;
        if (search(seen, target_.size, 0, corners) && corners.size == target_.size) {
          lookAt(std::move(corners), factor);
        }
        if (static_cast<int>(best_.keyPoints.size()) == target_.size.area()) {
          return best_;
        }
      }
      // All are measured in the whole image: finer ones tell where to, but do not show what is covered.
      if (!best_.isEmpty() && factor != factors.front()) {
        return best_;
      }
    }
    if (best_.isEmpty()) {
      lookForAny(std::max(1, factors.front() / 2)); // fine enough for boards, and quick
    }
    return best_;
  }

private:
  /// Takes a board of the target's size in a reduced image, if it tells more than the last one.
  void lookAt(BoardCorners corners, int factor) {
    measure(corners, factor);
    Judgement const judgement = judge(smooth_, corners);
    if (goesOn(smooth_, corners, judgement)) {
      goesOn_ = true;
      return;
    }
    JudgedBoard board = sieve(corners, judgement);
    std::size_t const least = std::max(best_.keyPoints.size() + 1,
                                       static_cast<std::size_t>(std::ceil(leastKept * target_.size.area())));
    if (board.kept.size() >= least) {
      take(std::move(board), judgement);
    } else if (board.kept.size() > unclear_.kept.size()) {
      unclear_ = std::move(board);
    }
  }

  void take(JudgedBoard board, Judgement const& judgement) {
    GridPlacement placement =
        placeGrid(board.kept, target_, {}, [&](cv::Point const& place, cv::Point const& index, int turns) {
          bool const isDark = ((place.x + place.y) % 2 == 0) == judgement.isFirstDark;
          bool const isDarkTurned = isDark == (turns % 2 == 0); // what is upper left is upper right then
          return isDarkTurned == ((index.x + index.y) % 2 == 0);
        });
    if (placement.dots.empty()) {
      return;
    }
    best_ = Detection();
    best_.steps = {{"inner corners of a chessboard", target_.size.area()},
                   {"crossings of dark and bright squares", static_cast<int>(board.kept.size())}};
    best_.dropped = std::move(board.dropped);
    best_.readings = placement.readings;
    std::sort(placement.dots.begin(), placement.dots.end(), [](TargetDot const& a, TargetDot const& b) {
      return a.index.y != b.index.y ? a.index.y < b.index.y : a.index.x < b.index.x;
    });
    for (TargetDot const& corner : placement.dots) {
      best_.keyPoints.emplace_back(cv::Point2f(corner.centre), cv::Point2f(target_.position(corner.index)));
      best_.indices.push_back(corner.index);
    }
  }

  /// Brings corners from a reduced image to this one's saddles.
  void measure(BoardCorners& corners, int factor) const {
    for (cv::Point2f& place : corners.places) {
      place = unreduced(place, factor);
    }
    constexpr double doubtInReduced = 0.5; // px there
    if (factor > 1) {
      cv::Mat blurred;
      cv::GaussianBlur(image_, blurred, {}, doubtInReduced * factor);
      refine(blurred, doubtInReduced * factor + 1, corners);
    }
    refine(smooth_, 1, corners);
  }

  /// Looks for a board of any size: it is taken if it is the target, and said if it is not.
  void lookForAny(int factor) {
    cv::Mat const level = reduced(image_, factor);
    BoardCorners part;
    constexpr int least = 3; // corners each way that can be looked for
    bool const isPart =
        search(evened(level), {least, least}, cv::CALIB_CB_LARGER, part) && part.size.area() > least * least;
    bool const isTarget = part.size == target_.size || isTurned(part.size, target_.size);
    if (isPart && isTarget) {
      lookAt(part, factor);
    }
    if (best_.isEmpty()) {
      bool const isOther = isPart && !isTarget && isClear(part, factor);
      refuse(findCrossings(level), isOther ? part : BoardCorners(), factor);
    }
  }

  /// Whether a board of another size is one, and no chance in noise.
  bool isClear(BoardCorners part, int factor) const {
    measure(part, factor);
    return static_cast<double>(sieve(part, judge(smooth_, part)).kept.size()) >= leastKept * part.size.area();
  }

  /// Says why there is no board, and what was seen in its place.
  /// @param crossings in the reduced image
  /// @param other a board of another size there; empty: none
  void refuse(std::vector<cv::Point2f> const& crossings, BoardCorners const& other, int factor) {
    best_.steps = {{"crossings of dark and bright squares", static_cast<int>(crossings.size())},
                   {"inner corners of one chessboard", other.size.area()},
                   {"of the described one", 0}};
    auto const drop = [&](std::vector<cv::Point2f> const& places, std::string const& reason) {
      constexpr std::size_t most = 1000;
      for (std::size_t i = 0; i < std::min(most, places.size()); ++i) {
        best_.dropped.push_back({unreduced(places[i], factor), reason});
      }
    };
    constexpr double leastUnclear = 0.4; // of the corners: less might be a chance
    if (static_cast<double>(unclear_.kept.size()) >= leastUnclear * target_.size.area()) {
      best_.steps[1].count = target_.size.area();
      best_.steps[2].count = static_cast<int>(unclear_.kept.size());
      best_.dropped = unclear_.dropped;
      for (TargetDot const& corner : unclear_.kept) {
        best_.dropped.push_back({cv::Point2f(corner.centre), "too few corners of its board are as clear"});
      }
      best_.reason = "a chessboard of " + sizeText(target_.size) + " inner corners was found, but only " +
                     std::to_string(unclear_.kept.size()) + " of its " + std::to_string(target_.size.area()) +
                     " corners are clear; of most others: " + usualReason(unclear_.dropped);
      return;
    }
    if (!other.places.empty()) {
      cv::Size const seen = alongTarget(other.size);
      best_.reason = reasonFor(seen);
      drop(other.places, "it belongs to a chessboard of " + sizeText(seen) + " corners in view");
      return;
    }
    drop(crossings, "it is a crossing of dark and bright squares, but of no whole chessboard");
    best_.reason = goesOn_ ? "a chessboard goes on beyond " + sizeText(target_.size) +
                                 " inner corners, and which of its corners are meant cannot be told"
                           : "of " + std::to_string(crossings.size()) +
                                 " crossings of dark and bright squares no chessboard of " +
                                 sizeText(target_.size) +
                                 " inner corners can be made, the whole of which must be in view";
  }

  /// A board's size, the longer way where it is the target's.
  cv::Size alongTarget(cv::Size const& part) const {
    bool const isAcross = (part.width >= part.height) == (target_.size.width >= target_.size.height);
    return isAcross ? part : cv::Size(part.height, part.width);
  }

  /// Why a board of another size is not the target.
  std::string reasonFor(cv::Size const& seen) const {
    std::string const text = "a chessboard of " + sizeText(seen) +
                             " inner corners was found in place of one of " + sizeText(target_.size) + ": ";
    return seen == target_.size - cv::Size(1, 1)
               ? text + "the size counts inner corners, one fewer than squares each way, and the whole "
                        "board must be in view"
               : text + "the whole board must be in view, and the size is that of all of it";
  }

  cv::Mat const& image_;
  TargetDescription const& target_;
  cv::Mat smooth_;
  Detection best_;
  JudgedBoard unclear_; ///< of the target's size, with too few corners
  bool goesOn_ = false; ///< whether a part of a larger board was found
};

} // namespace

Detection detectChessboard(cv::Mat const& image, TargetDescription const& target, Progress const& progress) {
  return Search(image, target).run(progress);
}

} // namespace vorn::mv
