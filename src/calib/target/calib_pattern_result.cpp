// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/calib_pattern_detector.hpp>

#include "calib/target/dot_grid.hpp"
#include "core/error.hpp"

namespace vorn::mv {

struct CalibPatternDetector::Result::Private : Record<Private, PropertySetBase::Private> {
  std::vector<CalibKeyPoint> keyPoints;
  bool isOriginMarked = false;
};

namespace {

/// The pitch of key points on a grid: the least step between two of their coordinates.
float pitchOf(std::vector<CalibKeyPoint> const& keyPoints) {
  float least = std::numeric_limits<float>::infinity();
  for (float cv::Point2f::*coordinate : {&cv::Point2f::x, &cv::Point2f::y}) {
    std::vector<float> values;
    values.reserve(keyPoints.size());
    for (CalibKeyPoint const& point : keyPoints) {
      if (std::isfinite(point.objPnt.*coordinate)) {
        values.push_back(point.objPnt.*coordinate);
      }
    }
    std::sort(values.begin(), values.end());
    for (std::size_t i = 1; i < values.size(); ++i) {
      float const step = values[i] - values[i - 1];
      if (step > 1e-3F * std::abs(values[i])) {
        least = std::min(least, step);
      }
    }
  }
  return std::isfinite(least) ? least : 1.0F;
}

/// The whole number next to a coordinate in steps; far off every grid for one that is none.
int gridNumber(float steps) {
  constexpr float farOff = 1e6F;
  return std::abs(steps) < farOff ? cvRound(steps) : static_cast<int>(farOff);
}

/// Draws a detected grid; see `Result::draw`.
class GridDrawing {
public:
  GridDrawing(cv::Mat& image, std::vector<CalibKeyPoint> const& keyPoints)
      : image_(image), keyPoints_(keyPoints) {
    float const pitch = pitchOf(keyPoints);
    for (std::size_t i = 0; i < keyPoints.size(); ++i) {
      cv::Point const index(gridNumber(keyPoints[i].objPnt.x / pitch),
                            gridNumber(keyPoints[i].objPnt.y / pitch));
      indices_.push_back(index);
      if (GridIndex::contains(index)) {
        places_.set(index, static_cast<int>(i));
      }
    }
  }

  void dots(int radius, cv::Scalar const& color) {
    for (std::size_t i = 0; i < indices_.size(); ++i) {
      cv::circle(image_, keyPoints_[i].imgPnt, radius, color, 1, cv::LINE_AA);
      for (cv::Point const& step : {cv::Point(1, 0), cv::Point(0, 1)}) {
        int const next = places_.at(indices_[i] + step);
        if (next != GridIndex::none) {
          cv::line(image_, keyPoints_[i].imgPnt, at(next), color, 1, cv::LINE_AA);
        }
      }
    }
  }

  void markers(int radius, cv::Scalar const& color) {
    for (cv::Point const& index : {cv::Point(0, 0), cv::Point(1, 0), cv::Point(0, 1)}) {
      int const dot = places_.at(index);
      if (dot != GridIndex::none) {
        cv::circle(image_, at(dot), radius, color, 2, cv::LINE_AA);
      }
    }
  }

  /// An arrow from the origin three steps along `step`, or as far as the grid goes, with its name at the tip.
  void axis(cv::Point const& step, char const* name, cv::Scalar const& color) {
    int const origin = places_.at({0, 0});
    int tip = origin;
    for (int k = 1; k <= 3 && places_.at(step * k) != GridIndex::none; ++k) {
      tip = places_.at(step * k);
    }
    if (origin != GridIndex::none && tip != origin) {
      cv::arrowedLine(image_, at(origin), at(tip), color, 2, cv::LINE_AA, 0, 0.15);
      write(name, at(tip), 2.0, color);
    }
  }

  /// Column numbers along the grid's first row and row numbers along its first column, as many as there is
  /// room.
  void numbers(cv::Scalar const& color) {
    int const every = numberStep();
    for (std::size_t i = 0; i < indices_.size(); ++i) {
      if (indices_[i].x % every == 0 && isFirst(indices_[i], {0, 1})) {
        write(std::to_string(indices_[i].x), keyPoints_[i].imgPnt, 1.0, color);
      } else if (places_.at(indices_[i] - cv::Point(1, 0)) == GridIndex::none &&
                 isFirst(indices_[i], {1, 0})) {
        write(std::to_string(indices_[i].y), keyPoints_[i].imgPnt, 1.0, color);
      }
    }
  }

private:
  cv::Point2f at(int dot) const { return keyPoints_[static_cast<std::size_t>(dot)].imgPnt; }

  /// Whether no dot stands anywhere before `index` along `step`.
  bool isFirst(cv::Point index, cv::Point const& step) const {
    for (index -= step; GridIndex::contains(index); index -= step) {
      if (places_.at(index) != GridIndex::none) {
        return false;
      }
    }
    return true;
  }

  double fontScale() const { return std::clamp(image_.rows / 1500.0, 0.35, 3.0); }

  /// Every how many dots a number of three characters has room.
  int numberStep() const {
    double shortest = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < indices_.size(); ++i) {
      for (cv::Point const& step : {cv::Point(1, 0), cv::Point(0, 1)}) {
        int const next = places_.at(indices_[i] + step);
        if (next != GridIndex::none) {
          shortest = std::min(shortest, cv::norm(at(next) - keyPoints_[i].imgPnt));
        }
      }
    }
    constexpr double numberWidth = 60; // pixels of the font at scale 1
    return shortest >= numberWidth * fontScale() ? 1 : 5;
  }

  void write(std::string const& text, cv::Point2f const& place, double weight, cv::Scalar const& color) {
    double const scale = fontScale() * (0.5 + 0.5 * weight);
    int const thickness = std::max(1, cvRound(1.2 * scale * weight));
    cv::Point const corner(cvRound(place.x + 5.0 * scale), cvRound(place.y - 5.0 * scale));
    cv::putText(image_, text, corner, cv::FONT_HERSHEY_SIMPLEX, scale, color, thickness, cv::LINE_AA);
  }

  cv::Mat& image_;
  std::vector<CalibKeyPoint> const& keyPoints_;
  std::vector<cv::Point> indices_;
  GridIndex places_;
};

} // namespace

std::vector<cv::Point2f> getImgPoints(std::vector<CalibKeyPoint> const& keyPoints) {
  std::vector<cv::Point2f> points;
  points.reserve(keyPoints.size());
  for (CalibKeyPoint const& keyPoint : keyPoints) {
    points.push_back(keyPoint.imgPnt);
  }
  return points;
}

std::vector<cv::Point2f> getObjPoints(std::vector<CalibKeyPoint> const& keyPoints) {
  std::vector<cv::Point2f> points;
  points.reserve(keyPoints.size());
  for (CalibKeyPoint const& keyPoint : keyPoints) {
    points.push_back(keyPoint.objPnt);
  }
  return points;
}

CalibPatternDetector::Result::Result() : AlgorithmResultBase(new Private) {}

CalibPatternDetector::Result::Private const& CalibPatternDetector::Result::own() const {
  return static_cast<Private const&>(record());
}

CalibPatternDetector::Result::Private& CalibPatternDetector::Result::change() {
  return static_cast<Private&>(ownRecord());
}

void CalibPatternDetector::Result::addKeyPoint(CalibKeyPoint const& keyPoint) {
  change().keyPoints.push_back(keyPoint);
}

int CalibPatternDetector::Result::count() const {
  return static_cast<int>(own().keyPoints.size());
}

bool CalibPatternDetector::Result::isEmpty() const {
  return own().keyPoints.empty();
}

CalibKeyPoint const& CalibPatternDetector::Result::getKeyPoint(int number) const {
  if (number < 0 || number >= count()) {
    throw error("No key point " + std::to_string(number) + "; there are " + std::to_string(count()),
                "getKeyPoint");
  }
  return own().keyPoints[static_cast<std::size_t>(number)];
}

std::vector<CalibKeyPoint>& CalibPatternDetector::Result::getKeyPoints() {
  return static_cast<Private&>(lendRecord()).keyPoints;
}

std::vector<CalibKeyPoint> const& CalibPatternDetector::Result::getKeyPoints() const {
  return own().keyPoints;
}

std::vector<cv::Point2f> CalibPatternDetector::Result::getImgPnts() const {
  return getImgPoints(own().keyPoints);
}

std::vector<cv::Point2f> CalibPatternDetector::Result::getObjPnts() const {
  return getObjPoints(own().keyPoints);
}

bool CalibPatternDetector::Result::isOriginMarked() const {
  return own().isOriginMarked;
}

void CalibPatternDetector::Result::setOriginMarked(bool isMarked) {
  change().isOriginMarked = isMarked;
}

void CalibPatternDetector::Result::draw(cv::Mat& image, int radius, cv::Scalar const& color1,
                                        cv::Scalar const& color2) const {
  if (isEmpty() || image.empty()) {
    return;
  }
  if (image.dims != 2) {
    throw error("Cannot draw into an image of " + std::to_string(image.dims) + " dimensions", "draw");
  }
  // A larger circle around a dot in the image leaves no trace in it.
  radius = std::min(radius, image.cols + image.rows);
  GridDrawing drawing(image, own().keyPoints);
  drawing.dots(std::max(radius, 1), color1);
  drawing.axis({1, 0}, "x", color2);
  drawing.axis({0, 1}, "y", color2);
  if (isOriginMarked()) {
    drawing.markers(std::max(radius * 3 / 2, 2), color2);
  }
  drawing.numbers(color2);
}

std::string const& CalibPatternDetector::Result::getClassName() const {
  static std::string const name = "vorn::mv::CalibPatternDetector::Result";
  return name;
}

} // namespace vorn::mv
