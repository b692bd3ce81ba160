// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/stripe_crossings.hpp"

#include <algorithm>
#include <cmath>
#include <optional>

#include "core/parallel.hpp"

namespace vorn::mv::sl {

namespace {

/// How far from an edge or a line its lit and dark ground is looked for, pixels.
constexpr int reach = 6;

/// Inverse of the error function, to 0.002 of its value (S. Winitzki, 2008).
double inverseErf(double x) {
  constexpr double a = 0.147;
  double const log = std::log(1.0 - x * x);
  double const b = 2.0 / (CV_PI * a) + 0.5 * log;
  return std::copysign(std::sqrt(std::sqrt(b * b - log / a) - b), x);
}

/// The contrast at a pixel in widths of the edge from its middle, and what noise makes of that.
struct EdgeSample {
  double z;
  double sigma;
};

EdgeSample edgeSample(double contrast, double plateau, double sigma) {
  // Beyond, noise decides.
  constexpr double most = 0.98;
  constexpr double slope = 0.88622692545275801; // of the inverse error function at 0
  double const z = inverseErf(std::clamp(contrast / plateau, -most, most));
  return {z, slope * std::exp(z * z) * sigma / plateau};
}

/// One row of a comparison and its neighbours.
class Row {
public:
  Row(ComparedImage const& image, int y, float leastDeviations)
      : contrast_(image.contrast[y]), sigma_(image.sigma[y]), above_(image.contrast[std::max(0, y - 1)]),
        below_(image.contrast[std::min(y + 1, image.contrast.rows - 1)]), columns_(image.contrast.cols),
        least_(leastDeviations) {}

  /// Of an edge between a column and the next.
  std::optional<Crossing> edgeAt(int x) const {
    float const first = contrast_[x];
    float const second = contrast_[x + 1];
    // False for NaN.
    bool const isRising = first < 0.0F && second >= 0.0F;
    bool const isFalling = first >= 0.0F && second < 0.0F;
    if (!isRising && !isFalling) {
      return std::nullopt;
    }
    float const before = plateau(x, -1);
    float const after = plateau(x + 1, 1);
    if (std::min(before, after) < least_ * std::max(sigma_[x], sigma_[x + 1]) ||
        std::fabs(second - first) < steepnessAcross(x)) {
      return std::nullopt;
    }
    auto const height = static_cast<double>(std::max(before, after));
    EdgeSample const a = edgeSample(static_cast<double>(first), height, static_cast<double>(sigma_[x]));
    EdgeSample const b = edgeSample(static_cast<double>(second), height, static_cast<double>(sigma_[x + 1]));
    double const step = b.z - a.z;
    return Crossing{0, static_cast<float>(x - a.z / step),
                    static_cast<float>(std::hypot(b.z * a.sigma, a.z * b.sigma) / (step * step))};
  }

  /// Of a line whose brightest column is x.
  std::optional<Crossing> lineAt(int x) const {
    if (x == 0 || x + 1 >= columns_ || !(contrast_[x] > contrast_[x - 1]) ||
        !(contrast_[x] >= contrast_[x + 1])) {
      return std::nullopt;
    }
    float const dark = std::max(lowest(x, -1), lowest(x, 1));
    // Along a line that runs along the row it is nowhere dark.
    if (contrast_[x] - dark < least_ * sigma_[x] || isBeside(x)) {
      return std::nullopt;
    }
    double l[3];
    double s[3];
    for (int i = 0; i < 3; ++i) {
      auto const height = static_cast<double>(contrast_[x + i - 1] - std::max(dark, 0.0F));
      if (height <= static_cast<double>(sigma_[x])) {
        return std::nullopt;
      }
      l[i] = std::log(height);
      s[i] = static_cast<double>(sigma_[x + i - 1]) / height;
    }
    double const bend = l[0] - 2.0 * l[1] + l[2];
    double const slope = 0.5 * (l[0] - l[2]);
    double const place = slope / bend;
    double const by[3] = {(0.5 - place) / bend, 2.0 * place / bend, (-0.5 - place) / bend};
    double const variance =
        by[0] * by[0] * s[0] * s[0] + by[1] * by[1] * s[1] * s[1] + by[2] * by[2] * s[2] * s[2];
    return Crossing{0, static_cast<float>(x + place), static_cast<float>(std::sqrt(variance))};
  }

private:
  /// The strongest contrast of the stripe on one side of an edge.
  float plateau(int x, int direction) const {
    float const sign = contrast_[x] < 0.0F ? -1.0F : 1.0F;
    float most = 0.0F;
    for (int i = 0; i < reach && x >= 0 && x < columns_ && sign * contrast_[x] >= 0.0F; ++i, x += direction) {
      most = std::max(most, sign * contrast_[x]);
    }
    return most;
  }

  float lowest(int x, int direction) const {
    float least = contrast_[x];
    for (int i = 0; i < reach && x >= 0 && x < columns_ && !std::isnan(contrast_[x]); ++i, x += direction) {
      least = std::min(least, contrast_[x]);
    }
    return least;
  }

  /// Whether a brighter top is near.
  bool isBeside(int x) const {
    int const first = std::max(0, x - reach / 2);
    int const end = std::min(columns_, x + reach / 2 + 1);
    for (int i = first; i < end; ++i) {
      if (contrast_[i] > contrast_[x]) {
        return true;
      }
    }
    return false;
  }

  /// By how much the contrast changes from row to row beside an edge.
  float steepnessAcross(int x) const {
    float most = 0.0F;
    for (int i = x; i <= x + 1; ++i) {
      float const change = 0.5F * std::fabs(below_[i] - above_[i]);
      most = std::isnan(change) ? most : std::max(most, change);
    }
    return most;
  }

  float const* contrast_;
  float const* sigma_;
  float const* above_;
  float const* below_;
  int columns_;
  float least_;
};

} // namespace

std::vector<Crossing> findCrossings(ComparedImage const& image, StripeForm form, float leastDeviations,
                                    Progress const& progress) {
  std::vector<std::vector<Crossing>> ofRows(static_cast<std::size_t>(image.contrast.rows));
  constexpr int bandRows = 64;
  parallelRows(image.contrast.rows, bandRows, progress, "finding stripes", [&](int first, int end) {
    for (int y = first; y < end; ++y) {
      Row const row(image, y, leastDeviations);
      for (int x = 0; x + 1 < image.contrast.cols; ++x) {
        std::optional<Crossing> found = form == StripeForm::Edge ? row.edgeAt(x) : row.lineAt(x);
        if (found) {
          found->row = y;
          ofRows[static_cast<std::size_t>(y)].push_back(*found);
        }
      }
    }
  });
  std::vector<Crossing> all;
  for (std::vector<Crossing> const& row : ofRows) {
    all.insert(all.end(), row.begin(), row.end());
  }
  return all;
}

} // namespace vorn::mv::sl
