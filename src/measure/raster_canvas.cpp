// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>

#include "core/simd.hpp"
#include "measure/canvas.hpp"
#include "measure/inked_row.hpp"

namespace vorn::mv {

namespace {

constexpr float farAway = 1e6F;

/// The distances of a row's pixels from a piece of a line that starts at the row's origin.
VORN_TARGET_CLONES void nearerToPiece(float* row, int count, float x0, float y, cv::Point2f along,
                                      float perSquaredLength) {
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < count; ++x) {
    float const px = x0 + static_cast<float>(x);
    float t = (px * along.x + y * along.y) * perSquaredLength;
    t = t < 0.0F ? 0.0F : t;
    t = t > 1.0F ? 1.0F : t;
    float const dx = px - t * along.x;
    float const dy = y - t * along.y;
    float const distance = std::sqrt(dx * dx + dy * dy);
    row[x] = distance < row[x] ? distance : row[x];
  }
}

/// The distances of a row's pixels from a circle about the row's origin.
VORN_TARGET_CLONES void distancesFromCircle(float* row, int count, float x0, float y, float radius) {
  VORN_INDEPENDENT_ITERATIONS
  for (int x = 0; x < count; ++x) {
    float const px = x0 + static_cast<float>(x);
    row[x] = std::abs(std::sqrt(px * px + y * y) - radius);
  }
}

/// Lowers the distances of the pixels in a box to those from a piece of a line, where they are within reach.
void approach(cv::Point2d const& a, cv::Point2d const& b, double reach, cv::Rect const& box,
              cv::Mat_<float>& distances) {
  cv::Point2d const along = b - a;
  double const squaredLength = along.dot(along);
  auto const perSquaredLength = static_cast<float>(squaredLength > 0.0 ? 1.0 / squaredLength : 0.0);
  cv::Rect const rows = boxOf({a, b}, reach) & box;
  for (int y = rows.y; y < rows.y + rows.height; ++y) {
    // The part of the piece that lies within reach of this row.
    double from = 0.0;
    double to = 1.0;
    if (std::abs(along.y) > 1e-9) {
      double const one = (y - reach - a.y) / along.y;
      double const other = (y + reach - a.y) / along.y;
      from = std::clamp(std::min(one, other), 0.0, 1.0);
      to = std::clamp(std::max(one, other), 0.0, 1.0);
    }
    double const x0 = a.x + from * along.x;
    double const x1 = a.x + to * along.x;
    int const first = std::max(rows.x, toPixel(std::floor(std::min(x0, x1) - reach)));
    int const last = std::min(rows.x + rows.width - 1, toPixel(std::ceil(std::max(x0, x1) + reach)));
    if (first <= last) {
      nearerToPiece(distances.ptr<float>(y - box.y) + (first - box.x), last - first + 1,
                    static_cast<float>(first - a.x), static_cast<float>(y - a.y), along, perSquaredLength);
    }
  }
}

/// Of a piece of a line in equal parts those that reach into a box, and perhaps one more at either end.
cv::Range partsWithin(cv::Point2d const& a, cv::Point2d const& b, int parts, cv::Rect const& box) {
  double from = 0.0;
  double to = 1.0;
  auto const cut = [&](double start, double end, double low, double high) {
    double const along = end - start;
    if (along == 0.0) {
      to = start < low || start > high ? -1.0 : to;
      return;
    }
    double const one = (low - start) / along;
    double const other = (high - start) / along;
    from = std::max(from, std::min(one, other));
    to = std::min(to, std::max(one, other));
  };
  cut(a.x, b.x, box.x, box.x + box.width);
  cut(a.y, b.y, box.y, box.y + box.height);
  if (!(from <= to)) {
    return {0, 0};
  }
  return {std::max(0, cvFloor(from * parts) - 1), std::min(parts, cvCeil(to * parts) + 1)};
}

/// Where a row at height y crosses the outline.
void crossings(Outline const& outline, double y, std::vector<double>& xs) {
  xs.clear();
  for (std::size_t i = 0; i < outline.size(); ++i) {
    cv::Point2d const& a = outline[i];
    cv::Point2d const& b = outline[(i + 1) % outline.size()];
    if ((a.y <= y) != (b.y <= y)) {
      xs.push_back(a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x));
    }
  }
  std::sort(xs.begin(), xs.end());
}

/// Adds `weight` to the pixels of a row as far as [from, to) covers them.
void addSpan(float* row, cv::Rect const& box, double from, double to, float weight) {
  double const left = std::clamp(from + 0.5 - box.x, 0.0, static_cast<double>(box.width));
  double const right = std::clamp(to + 0.5 - box.x, 0.0, static_cast<double>(box.width));
  int const first = static_cast<int>(left);
  int const last = static_cast<int>(right);
  if (first == last) {
    row[first] += weight * static_cast<float>(right - left);
    return;
  }
  row[first] += weight * static_cast<float>(first + 1 - left);
  for (int x = first + 1; x < last; ++x) {
    row[x] += weight;
  }
  row[last] += weight * static_cast<float>(right - last);
}

} // namespace

RasterCanvas::RasterCanvas(cv::Mat& picture, double low, double high)
    : RasterCanvas(picture, low, high, cv::Range(0, picture.rows)) {}

RasterCanvas::RasterCanvas(cv::Mat& picture, double low, double high, cv::Range const& rows)
    : picture_(picture), low_(low), high_(high), limits_(0, rows.start, picture.cols, rows.size()),
      clip_(limits_) {}

void RasterCanvas::clip(cv::Rect const& rectangle) {
  clip_ = rectangle & limits_;
}

cv::Vec3d RasterCanvas::toDepth(cv::Vec3b const& color) const {
  constexpr double white = 255.0;
  return cv::Vec3d::all(low_) + cv::Vec3d(color) * ((high_ - low_) / white);
}

void RasterCanvas::blend(cv::Rect const& box, cv::Mat_<float> const& coverage, cv::Vec3b const& color) {
  cv::Vec3d const value = toDepth(color);
  for (int y = 0; y < box.height; ++y) {
    blendRow(picture_, {box.x, box.y + y}, coverage.ptr<float>(y), box.width, value);
  }
}

void RasterCanvas::ink(cv::Rect const& box, cv::Mat_<float>& distances, Pen const& pen) {
  constexpr double edge = 0.5; // ink fades out over a pixel
  auto const inkOf = [&](cv::Vec3b const& color) {
    cv::Vec3d const value = toDepth(color);
    return picture_.depth() == CV_8U // which is mixed in whole numbers
               ? cv::Vec3d(cv::saturate_cast<uchar>(value[0]), cv::saturate_cast<uchar>(value[1]),
                           cv::saturate_cast<uchar>(value[2]))
               : value;
  };
  InkedPen const inked{inkOf(pen.color), inkOf(haloColor), static_cast<float>(0.5 * pen.width + edge),
                       pen.halo > 0.0 ? static_cast<float>(0.5 * pen.width + pen.halo + edge) : 0.0F};
  for (int y = 0; y < box.height; ++y) {
    inkRow(picture_, {box.x, box.y + y}, distances.ptr<float>(y), box.width, inked);
  }
}

/// A box as wide as bytes are mixed at once, where there is room: the rest of it is out of reach.
cv::Rect RasterCanvas::widened(cv::Rect box) const {
  constexpr int step = 16;
  box.width = std::min((box.width + step - 1) / step * step, clip_.br().x - box.x);
  return box;
}

/// Fetches what will be drawn into while its distances are reckoned: marks lie all over a picture that is
/// larger than any cache.
void RasterCanvas::fetch(cv::Rect const& box) const {
#if defined(__GNUC__)
  constexpr std::size_t line = 64;
  std::size_t const pixel = picture_.elemSize();
  std::size_t const bytes = static_cast<std::size_t>(box.width) * pixel;
  for (int y = box.y; y < box.y + box.height; ++y) {
    uchar const* row = picture_.ptr(y) + static_cast<std::size_t>(box.x) * pixel;
    for (std::size_t at = 0; at < bytes + line; at += line) {
      __builtin_prefetch(row + std::min(at, bytes - 1), 1);
    }
  }
#endif
}

cv::Mat_<float> RasterCanvas::sheetOf(cv::Size size) {
  if (sheet_.rows < size.height || sheet_.cols < size.width) {
    sheet_.create(std::max(sheet_.rows, size.height), std::max(sheet_.cols, size.width));
  }
  return sheet_(cv::Rect(cv::Point(), size));
}

void RasterCanvas::circle(cv::Point2d centre, double radius, Pen const& pen) {
  constexpr double largest = 500.0; // beyond, a closed line has less to look at
  if (radius > largest) {
    stroke(ellipseOutline(centre, {radius, radius}, 0.0), pen);
    return;
  }
  cv::Rect box = boxOf({centre}, radius + 0.5 * pen.width + pen.halo + 1.0) & clip_;
  if (box.empty()) {
    return;
  }
  box = widened(box);
  fetch(box);
  cv::Mat_<float> sheet = sheetOf(box.size());
  for (int y = 0; y < box.height; ++y) {
    distancesFromCircle(sheet.ptr<float>(y), box.width, static_cast<float>(box.x - centre.x),
                        static_cast<float>(box.y + y - centre.y), static_cast<float>(radius));
  }
  ink(box, sheet, pen);
}

void RasterCanvas::stroke(Outline const& line, Pen const& pen) {
  if (line.empty()) {
    return;
  }
  double const reach = 0.5 * pen.width + pen.halo + 0.5;
  cv::Rect const whole = boxOf(line, reach + 0.5) & cv::Rect(cv::Point(), picture_.size());
  cv::Rect box = whole & clip_;
  if (box.empty()) {
    return;
  }
  // One sheet for the whole line, so that its corners are covered once; piece by piece when it would be
  // large, whatever lies in these rows: the picture must not depend on how it is divided.
  constexpr std::int64_t largestSheet = 1 << 16;
  std::size_t const pieces = std::max<std::size_t>(1, line.size() - 1);
  if (static_cast<std::int64_t>(whole.width) * whole.height <= largestSheet) {
    box = widened(box);
    fetch(box);
    cv::Mat_<float> sheet = sheetOf(box.size());
    sheet.setTo(farAway);
    for (std::size_t i = 0; i < pieces; ++i) {
      approach(line[i], line[std::min(i + 1, line.size() - 1)], reach, box, sheet);
    }
    ink(box, sheet, pen);
    return;
  }
  constexpr double partLength = 96.0; // of a long piece, so that its sheets stay small
  // The rim first, or it would lie on the line at every seam.
  for (bool const isRim : {true, false}) {
    if (isRim && pen.halo <= 0.0) {
      continue;
    }
    Pen const now = isRim ? Pen{pen.width + 2.0 * pen.halo, haloColor, 0.0} : Pen{pen.width, pen.color, 0.0};
    for (std::size_t i = 0; i < pieces; ++i) {
      strokeInParts(line[i], line[std::min(i + 1, line.size() - 1)], now, partLength);
    }
  }
}

void RasterCanvas::strokeInParts(cv::Point2d const& a, cv::Point2d const& b, Pen const& pen,
                                 double partLength) {
  constexpr int mostParts = 100000;
  int const parts = static_cast<int>(std::clamp(cv::norm(b - a) / partLength, 1.0, 1.0 * mostParts));
  double const reach = 0.5 * pen.width + 0.5;
  // Which parts can reach what is drawn into; how the piece is divided does not depend on it.
  cv::Range const shares =
      partsWithin(a, b, parts, boxOf({cv::Point2d(clip_.tl()), cv::Point2d(clip_.br())}, reach + 1.0));
  for (int k = shares.start; k < shares.end; ++k) {
    cv::Point2d const from = a + (b - a) * (static_cast<double>(k) / parts);
    cv::Point2d const to = a + (b - a) * (static_cast<double>(k + 1) / parts);
    cv::Rect const box = boxOf({from, to}, reach + 0.5) & clip_;
    if (!box.empty()) {
      cv::Mat_<float> sheet = sheetOf(box.size());
      sheet.setTo(farAway);
      approach(from, to, reach, box, sheet);
      ink(box, sheet, pen);
    }
  }
}

void RasterCanvas::fill(Outline const& outline, cv::Vec3b const& color, double opacity) {
  if (outline.size() < 3) {
    return;
  }
  constexpr int samples = 4; // rows that a pixel's row is judged by
  cv::Rect const box = boxOf(outline, 1.0) & clip_;
  if (box.empty()) {
    return;
  }
  cv::Mat_<float> coverage(1, box.width + 1);
  std::vector<double> xs;
  for (int y = box.y; y < box.y + box.height; ++y) {
    coverage.setTo(0);
    for (int s = 0; s < samples; ++s) {
      crossings(outline, y - 0.5 + (s + 0.5) / samples, xs);
      for (std::size_t i = 0; i + 1 < xs.size(); i += 2) {
        addSpan(coverage.ptr<float>(0), box, xs[i], xs[i + 1], static_cast<float>(opacity / samples));
      }
    }
    blend(cv::Rect(box.x, y, box.width, 1), coverage, color);
  }
}

void RasterCanvas::picture(cv::Mat const& image, cv::Point corner) {
  cv::Rect const place(corner, image.size());
  cv::Rect const seen = place & clip_;
  if (!seen.empty()) {
    constexpr double white = 255.0;
    cv::Mat target = picture_(seen);
    image(seen - corner).convertTo(target, picture_.depth(), (high_ - low_) / white, low_);
  }
}

void RasterCanvas::stamp(cv::Mat_<uchar> const& ink, cv::Point corner, cv::Vec3b const& color,
                         std::string_view /*words*/) {
  cv::Rect const place(corner, ink.size());
  cv::Rect const seen = place & clip_;
  if (!seen.empty()) {
    cv::Vec3d const value = toDepth(color);
    picture_(seen).setTo(cv::Scalar(value[0], value[1], value[2]), ink(seen - corner));
  }
}

} // namespace vorn::mv
