// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/phase/phase_blur.hpp"

#include <algorithm>
#include <cmath>
#include <complex>

#include <opencv2/imgproc.hpp>

#include "core/pi.hpp"

namespace vorn::mv::sl {

namespace {

using Phasor = std::complex<float>;
using Phasors = cv::Mat_<Phasor>;

constexpr int rowsBetweenAskings = 128;
constexpr char const* stage = "smoothing";

constexpr float largestTurn = piFloat / 4.0F;

Phasors phasorsOf(cv::Mat_<float> const& phase, cv::Mat_<float> const& magnitude, cv::Mat_<uchar> const& mask,
                  Progress const& progress) {
  Phasors phasors(phase.size());
  parallelRows(phase.rows, rowsBetweenAskings, progress, stage, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < phase.cols; ++x) {
        float const m = mask(y, x) != 0 ? magnitude(y, x) : 0.0F;
        phasors(y, x) = {m * std::cos(phase(y, x)), m * std::sin(phase(y, x))};
      }
    }
  });
  return phasors;
}

/// How far the phase runs from each pixel to the next one along a step, on average over the window.
Phasors runOf(Phasors const& phasors, cv::Point const& step, int radius, Progress const& progress) {
  Phasors products(phasors.size(), Phasor(0));
  parallelRows(phasors.rows - step.y, rowsBetweenAskings, progress, stage, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x + step.x < phasors.cols; ++x) {
        products(y, x) = phasors(y + step.y, x + step.x) * std::conj(phasors(y, x));
      }
    }
  });
  cv::blur(products, products, {2 * radius + 1, 2 * radius + 1});
  return products;
}

/// The sum over a line of pixels through each one, every pixel turned back by what the phase runs up to it.
Phasors sumAlong(Phasors const& phasors, cv::Point const& step, int radius, Progress const& progress) {
  // Each sum takes the place of the run that it was turned by.
  Phasors sums = runOf(phasors, step, radius, progress.part(0.0, 0.2));
  parallelRows(phasors.rows, rowsBetweenAskings, progress.part(0.2, 1.0), stage,
               [&](int firstRow, int endRow) {
                 for (int y = firstRow; y < endRow; ++y) {
                   for (int x = 0; x < phasors.cols; ++x) {
                     Phasor const run = sums(y, x);
                     float const length = std::abs(run);
                     Phasor const back = length > 0 ? std::conj(run) / length : Phasor(1);
                     Phasor sum = phasors(y, x);
                     Phasor turn = back;
                     for (int k = 1; k <= radius; ++k, turn *= back) {
                       cv::Point const after = cv::Point(x, y) + k * step;
                       cv::Point const before = cv::Point(x, y) - k * step;
                       if (after.x < phasors.cols && after.y < phasors.rows) {
                         sum += phasors(after) * turn;
                       }
                       if (before.x >= 0 && before.y >= 0) {
                         sum += phasors(before) * std::conj(turn);
                       }
                     }
                     sums(y, x) = sum;
                   }
                 }
               });
  return sums;
}

} // namespace

void blurPhase(cv::Mat_<float>& phase, cv::Mat_<float> const& magnitude, cv::Mat_<uchar> const& mask,
               int radius, Progress const& progress) {
  Phasors smooth = phasorsOf(phase, magnitude, mask, progress.part(0.0, 0.2));
  smooth = sumAlong(smooth, {1, 0}, radius, progress.part(0.2, 0.5));
  smooth = sumAlong(smooth, {0, 1}, radius, progress.part(0.5, 0.8));
  parallelRows(phase.rows, rowsBetweenAskings, progress.part(0.8, 1.0), stage, [&](int firstRow, int endRow) {
    for (int y = firstRow; y < endRow; ++y) {
      for (int x = 0; x < phase.cols; ++x) {
        if (mask(y, x) == 0) {
          continue;
        }
        float const angle = std::arg(smooth(y, x));
        float const turn = std::remainder(angle - phase(y, x), twoPiFloat);
        if (std::fabs(turn) <= largestTurn) {
          float const wrapped = angle < 0.0F ? angle + twoPiFloat : angle;
          phase(y, x) = wrapped < twoPiFloat ? wrapped : 0.0F;
        }
      }
    }
  });
}

} // namespace vorn::mv::sl
