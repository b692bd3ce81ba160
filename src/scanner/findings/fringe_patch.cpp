// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "scanner/findings/fringe_patch.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "core/median.hpp"

namespace vorn::mv {

cv::Mat_<float> patchOf(cv::Mat const& image, cv::Rect const& patch, double white) {
  constexpr double fullRange = 255;
  cv::Mat grey = image(patch);
  if (grey.channels() > 1) {
    cv::cvtColor(grey, grey, grey.channels() == 4 ? cv::COLOR_BGRA2GRAY : cv::COLOR_BGR2GRAY);
  }
  cv::Mat_<float> result;
  grey.convertTo(result, CV_32F, fullRange / white);
  return result;
}

double shareClipped(cv::Mat_<float> const& patch) {
  constexpr float clipped = 254;
  return static_cast<double>(cv::countNonZero(patch >= clipped)) / static_cast<double>(patch.total());
}

FringePatch::FringePatch(sl::GreyStack const& sequence, cv::Rect const& patch) : isInner(patch.size()) {
  for (std::size_t k = 0; k < images.size(); ++k) {
    images[k] = patchOf(sequence.images[k], patch, sequence.white);
  }
  cv::Mat c;
  cv::Mat s;
  cv::subtract(images[0], images[2], c);
  cv::subtract(images[3], images[1], s);
  cv::magnitude(c, s, amplitude);
  amplitude *= 0.5;
  std::vector<float> all(amplitude.begin(), amplitude.end());
  float const high = rankedAmong(all, all.size() * 9 / 10);
  constexpr int rim = 5;
  cv::erode(amplitude > 0.5F * high, isInner, cv::Mat::ones(rim, rim, CV_8U), cv::Point(-1, -1), 1,
            cv::BORDER_CONSTANT, cv::Scalar(0));
}

FringeSample FringePatch::sampleAt(int y, int x) const {
  auto const at = [&](std::size_t k) { return static_cast<double>(images[k](y, x)); };
  double const c = at(0) - at(2);
  double const s = at(3) - at(1);
  double const squares = std::max(c * c + s * s, 1e-9);
  return {{x, y},
          static_cast<double>(amplitude(y, x)),
          0.25 * (at(0) + at(1) + at(2) + at(3)),
          0.25 * (at(0) - at(1) + at(2) - at(3)),
          c / std::sqrt(squares),
          s / std::sqrt(squares),
          (c * c - s * s) / squares,
          2 * c * s / squares};
}

cv::Mat_<float> FringePatch::fullLight() const {
  cv::Mat_<float> light = amplitude.clone();
  for (auto const& image : images) {
    cv::scaleAdd(image, 1.0 / static_cast<double>(images.size()), light, light);
  }
  return light;
}

cv::Mat_<float> FringePatch::meanOfPair(std::size_t first) const {
  cv::Mat_<float> mean;
  cv::addWeighted(images[first], 0.5, images[first + 2], 0.5, 0, mean);
  return mean;
}

} // namespace vorn::mv
