// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/pattern_set.hpp>

#include <algorithm>
#include <array>
#include <charconv>

#include <opencv2/core.hpp>

#include "core/error.hpp"
#include "sl/coding/axis_image.hpp"
#include "sl/patterns/set_groups.hpp"

namespace vorn::mv {

namespace {

/// Six digits tell images apart, and a period of 200 / 3 pixels has no more to say.
std::string sixDigits(double value) {
  std::array<char, 32> buffer{};
  constexpr int digits = 6;
  auto const result =
      std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::general, digits);
  return {buffer.data(), result.ptr};
}

std::string exposureText(double exposure) {
  return exposure == 1.0 ? "" : " at exposure " + sixDigits(exposure);
}

} // namespace

std::string PatternImage::describe() const {
  std::string const along = axis == PatternAxis::Column ? " along columns" : " along rows";
  switch (role) {
  case PatternRole::Phase:
    return "step " + std::to_string(step) + " of " + std::to_string(steps) +
           (offset == 0.0 ? "" : " at " + sixDigits(offset) + " degrees") + " of period " +
           sixDigits(period) + along + exposureText(exposure);
  case PatternRole::Bit:
    return (isInverse ? "inverse of bit " : "bit ") + std::to_string(bit) + along + exposureText(exposure);
  case PatternRole::White:
    return "white" + exposureText(exposure);
  case PatternRole::Black:
    return "black" + exposureText(exposure);
  case PatternRole::Line:
    return "lines of period " + sixDigits(period) + along + exposureText(exposure);
  case PatternRole::Reference:
    break;
  }
  return "reference" + exposureText(exposure);
}

bool PatternSet::codes(PatternAxis axis) const {
  return std::any_of(images.begin(), images.end(), [&](PatternImage const& image) {
    return image.axis == axis && (image.role == PatternRole::Phase || image.role == PatternRole::Bit);
  });
}

std::vector<cv::Mat> PatternSet::generate(std::vector<std::uint8_t> const& gammaTable) const {
  validate();
  constexpr std::size_t levels = 256;
  if (!gammaTable.empty() && gammaTable.size() != levels) {
    throw error("The gamma table has " + std::to_string(gammaTable.size()) + " entries and must have 256",
                "PatternSet");
  }
  std::vector<cv::Mat> made;
  for (PatternImage const& image : images) {
    auto const axis = image.axis == PatternAxis::Column ? sl::Axis::Column : sl::Axis::Row;
    made.push_back(sl::makeAxisImage(projector, axis, [&](int c) {
      constexpr uchar grey = 128;
      switch (image.role) {
      case PatternRole::Phase:
        return sl::fringeLevel(c * 2 * CV_PI / image.period + sl::angleOf(image));
      case PatternRole::Bit:
        return sl::litWhere(((sl::wordAt(image, c) >> image.bit & 1U) != 0) != image.isInverse);
      case PatternRole::Line:
        return sl::litWhere((c + static_cast<int>(image.shift)) % static_cast<int>(image.period) <
                            static_cast<int>(image.cell));
      case PatternRole::Reference:
        return grey;
      case PatternRole::White:
      case PatternRole::Black:
        break;
      }
      return sl::litWhere(image.role == PatternRole::White);
    }));
    if (!gammaTable.empty()) {
      cv::LUT(made.back(), gammaTable, made.back());
    }
  }
  return made;
}

} // namespace vorn::mv
