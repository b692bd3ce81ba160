// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/adjust/point_noise.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include <opencv2/core.hpp>

#include "core/median.hpp"

namespace vorn::mv {

namespace {

/// The median length of a normal vector in the plane, in standard deviations of one coordinate.
constexpr double medianLength = 1.17741;

cv::Vec2d const& ofDevice(DotResidual const& residual, int device) {
  return device == 0 ? residual.in0 : residual.in1;
}

bool isSeen(BundleDot const& dot, int device) {
  return device == 0 ? dot.has0 : dot.has1;
}

/// Those of a dot's coordinates, in that of a dot of weight 1.
cv::Vec2d variancesOf(BundleDot const& dot, int device) {
  return {1 / dot.weights[device][0], 1 / dot.weights[device][1]};
}

/// How long a dot's residual is, in standard deviations of a dot of weight 1.
double lengthOf(BundleDot const& dot, DotResidual const& residual, int device) {
  cv::Vec2d const& r = ofDevice(residual, device);
  return std::sqrt(dot.weights[device].dot(r.mul(r)));
}

/// Adds the squared length of what each dot of a view differs by from the mean around it, scaled to the
/// variance of a dot of weight 1.
void addDifferences(BundleView const& view, std::vector<DotResidual> const& residuals,
                    DotNeighbours const& neighbours, int device, std::vector<double>& squares) {
  std::vector<int> dotAt(neighbours.size(), -1);
  for (std::size_t i = 0; i < view.dots.size(); ++i) {
    if (isSeen(view.dots[i], device)) {
      dotAt[static_cast<std::size_t>(view.dots[i].target)] = static_cast<int>(i);
    }
  }
  for (std::size_t i = 0; i < view.dots.size(); ++i) {
    auto const& around = neighbours[static_cast<std::size_t>(view.dots[i].target)];
    bool const isWhole = isSeen(view.dots[i], device) && !around.empty() &&
                         std::all_of(around.begin(), around.end(),
                                     [&](int dot) { return dotAt[static_cast<std::size_t>(dot)] >= 0; });
    if (!isWhole) {
      continue;
    }
    auto const count = static_cast<double>(around.size());
    cv::Vec2d difference = ofDevice(residuals[i], device);
    cv::Vec2d variance = variancesOf(view.dots[i], device);
    for (int dot : around) {
      auto const other = static_cast<std::size_t>(dotAt[static_cast<std::size_t>(dot)]);
      difference -= ofDevice(residuals[other], device) / count;
      variance += variancesOf(view.dots[other], device) / (count * count);
    }
    squares.push_back(difference[0] * difference[0] / variance[0] +
                      difference[1] * difference[1] / variance[1]);
  }
}

} // namespace

DotNeighbours neighboursOf(std::vector<cv::Point2f> const& target) {
  constexpr double reach = 1.3;      // pitches; the diagonal of a square grid has 1.41
  constexpr double mostUneven = 0.1; // pitches
  constexpr std::size_t fewest = 4;
  double const pitch = medianPitch(target);
  DotNeighbours neighbours(target.size());
  for (std::size_t i = 0; i < target.size(); ++i) {
    cv::Point2d sum;
    for (std::size_t j = 0; j < target.size(); ++j) {
      cv::Point2d const way = target[j] - target[i];
      if (j != i && cv::norm(way) < reach * pitch) {
        neighbours[i].push_back(static_cast<int>(j));
        sum += way;
      }
    }
    if (neighbours[i].size() < fewest || cv::norm(sum) > mostUneven * pitch) {
      neighbours[i].clear();
    }
  }
  return neighbours;
}

double localNoise(Bundle const& bundle, DotNeighbours const& neighbours,
                  std::vector<std::vector<DotResidual>> const& residuals, int device) {
  std::vector<double> squares;
  for (std::size_t i = 0; i < bundle.views.size(); ++i) {
    addDifferences(bundle.views[i], residuals[i], neighbours, device, squares);
  }
  constexpr std::size_t fewest = 30;
  if (squares.size() < fewest) {
    return 0;
  }
  constexpr double limit = 6; // standard deviations
  double const most = limit * limit * medianOf(squares) / (medianLength * medianLength);
  double sum = 0;
  std::size_t count = 0;
  for (double square : squares) {
    if (square <= most) {
      sum += square;
      ++count;
    }
  }
  return std::sqrt(sum / (2 * static_cast<double>(count)));
}

std::vector<std::vector<bool>> outliersOf(Bundle const& bundle,
                                          std::vector<std::vector<DotResidual>> const& residuals, int device,
                                          double limit) {
  std::vector<std::vector<bool>> isOutlier;
  for (std::size_t i = 0; i < bundle.views.size(); ++i) {
    std::vector<BundleDot> const& dots = bundle.views[i].dots;
    std::vector<double> lengths;
    for (std::size_t j = 0; j < dots.size(); ++j) {
      if (isSeen(dots[j], device)) {
        lengths.push_back(lengthOf(dots[j], residuals[i][j], device));
      }
    }
    double const most = lengths.empty() ? 0 : limit * medianOf(lengths) / medianLength;
    isOutlier.emplace_back();
    for (std::size_t j = 0; j < dots.size(); ++j) {
      isOutlier.back().push_back(isSeen(dots[j], device) &&
                                 lengthOf(dots[j], residuals[i][j], device) > most);
    }
  }
  return isOutlier;
}

} // namespace vorn::mv
