// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

namespace {

float medianOf(std::vector<float>& values) {
  auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return values.empty() ? 0.0F : *middle;
}

/// What the four fringe images of a scan say about exposure and noise.
struct Exposure {
  double lit = 0;      ///< share of the image with fringes
  double clipped = 0;  ///< share of the lit pixels that reach 255 in an image
  float amplitude = 0; ///< median over the lit pixels, grey levels
  float noise = 0;     ///< standard deviation of the camera's noise, grey levels
};

Exposure measureExposure(std::vector<cv::Mat> const& fringes) {
  cv::Mat_<float> magnitude; // twice the amplitude
  vorn::mv::calc_magnitude(fringes, magnitude);
  constexpr float leastMagnitude = 6; // "Sensitivity" 3 is an amplitude of 3 grey levels
  std::vector<float> amplitudes;
  std::vector<float> defects;
  int clipped = 0;
  for (int y = 0; y < magnitude.rows; ++y) {
    for (int x = 0; x < magnitude.cols; ++x) {
      if (magnitude(y, x) < leastMagnitude) {
        continue;
      }
      int const p[] = {fringes[0].at<uchar>(y, x), fringes[1].at<uchar>(y, x), fringes[2].at<uchar>(y, x),
                       fringes[3].at<uchar>(y, x)};
      clipped += *std::max_element(p, p + 4) == 255 ? 1 : 0;
      amplitudes.push_back(magnitude(y, x) / 2);
      // Steps half a period apart have the same sum: what is left of the difference is the noise of four
      // images.
      defects.push_back(std::abs(static_cast<float>(p[0] - p[1] + p[2] - p[3])));
    }
  }
  auto const lit = static_cast<double>(amplitudes.size());
  constexpr float deviationsOfMedian = 0.6745F; // half of a normal distribution lies within these
  return {lit / static_cast<double>(magnitude.total()), lit == 0 ? 0 : clipped / lit, medianOf(amplitudes),
          medianOf(defects) / deviationsOfMedian / 2};
}

} // namespace

int main(int argc, char** argv) try {
  if (argc != 5) {
    throw std::invalid_argument(
        "usage: example_exposure columns_00.png columns_01.png columns_02.png columns_03.png");
  }
  vorn::mv::Library::start(false);
  std::vector<cv::Mat> fringes;
  for (int i = 1; i <= 4; ++i) {
    fringes.push_back(cv::imread(argv[i], cv::IMREAD_GRAYSCALE));
  }
  Exposure const exposure = measureExposure(fringes);
  constexpr double period = 4; // projector pixels of a column fringe
  double const noise = period / (2 * CV_PI) * exposure.noise / (exposure.amplitude * std::sqrt(2.0));
  std::cout << "lit " << 100 * exposure.lit << " % of the image, of that clipped " << 100 * exposure.clipped
            << " %\nmedian amplitude " << exposure.amplitude << ", noise " << exposure.noise
            << " grey levels: " << noise << " projector pixels\n";
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
