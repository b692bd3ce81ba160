// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/find_stripes.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include <opencv2/core.hpp>

#include <vorn/core/text.hpp>

#include "core/error.hpp"
#include "core/median.hpp"
#include "core/pieces.hpp"
#include "sl/coding/stripe_cells.hpp"
#include "sl/patterns/pixel_rows.hpp"
#include "sl/patterns/set_groups.hpp"
#include "sl/patterns/stripe_crossings.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "find_stripes";
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

/// An image with edges or lines and what it is compared with.
struct Pair {
  std::size_t image;
  std::optional<std::size_t> inverse; ///< of bits, else
  std::optional<std::size_t> white;
  std::optional<std::size_t> black;

  sl::StripeForm form(PatternSet const& set) const {
    return set.images[image].role == PatternRole::Bit ? sl::StripeForm::Edge : sl::StripeForm::Line;
  }
};

std::optional<std::size_t> find(PatternSet const& set, double exposure, PatternImage const& like) {
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    PatternImage const& image = set.images[i];
    bool const isBit = image.role == PatternRole::Bit;
    if (image.role == like.role && image.exposure == exposure &&
        (!isBit || (image.axis == like.axis && image.bit == like.bit && image.isInverse == like.isInverse))) {
      return i;
    }
  }
  return std::nullopt;
}

/// The images of the longest exposure that have edges or lines.
std::vector<Pair> pairsOf(PatternSet const& set) {
  double exposure = 0.0;
  for (PatternImage const& image : set.images) {
    exposure = std::max(exposure, image.exposure);
  }
  PatternImage white;
  PatternImage black;
  black.role = PatternRole::Black;
  std::vector<Pair> pairs;
  for (std::size_t i = 0; i < set.images.size(); ++i) {
    PatternImage const& image = set.images[i];
    bool const isBit = image.role == PatternRole::Bit && !image.isInverse;
    if (image.exposure != exposure || (!isBit && image.role != PatternRole::Line)) {
      continue;
    }
    PatternImage inverse = image;
    inverse.isInverse = true;
    Pair const pair{i, isBit ? find(set, exposure, inverse) : std::nullopt, find(set, exposure, white),
                    find(set, exposure, black)};
    if (isBit && !pair.inverse && !(pair.white && pair.black)) {
      throw error(sl::nameOf(set, i) +
                      " has no edges to be found: its inverse is missing, or white and black",
                  context);
    }
    pairs.push_back(pair);
  }
  if (pairs.empty()) {
    throw error("The pattern set has neither bits nor lines", context);
  }
  return pairs;
}

/// What images hold.
class Grey {
public:
  Grey(std::vector<cv::Mat> const& images, DecodeSettings const& settings)
      : images_(images), black_(static_cast<float>(settings.blackLevel)) {
    int const depth = images.front().depth();
    double const full = depth == CV_8U ? 255.0 : depth == CV_16U ? 65535.0 : 1e30;
    clipped_ = static_cast<float>(settings.whiteLevel > 0.0 ? settings.whiteLevel : full) - black_;
  }

  /// Whether grey levels are whole numbers.
  bool isWhole() const { return images_.front().depth() != CV_32F; }
  /// How finely an image tells grey levels apart, as a standard deviation.
  double resolution(std::size_t image) const {
    constexpr double rounding = 0.28867513;
    double most = 0.0;
    if (!isWhole()) {
      cv::minMaxLoc(images_[image], nullptr, &most);
    }
    return isWhole() ? rounding : static_cast<double>(std::numeric_limits<float>::epsilon()) * most;
  }
  int columns() const { return images_.front().cols; }
  int rows() const { return images_.front().rows; }
  cv::Size size() const { return images_.front().size(); }

  /// A row of an image, NaN where it is clipped.
  void load(std::size_t image, int y, std::vector<float>& row) const {
    row.resize(static_cast<std::size_t>(columns()));
    sl::loadRow(images_[image], y, black_, row.data());
    for (float& value : row) {
      value = value < clipped_ ? value : notANumber;
    }
  }

private:
  std::vector<cv::Mat> const& images_;
  float black_;
  float clipped_;
};

/// The rows that are compared, and how.
struct Rows {
  std::vector<float> image, inverse, white, black;
};

/// Contrast and its standard deviation; both are NaN without light.
void compareRow(Rows const& rows, Pair const& pair, bool isLine, float noise, float* contrast, float* sigma) {
  float const ofPair = std::sqrt(2.0F) * noise;
  float const ofMean = std::sqrt(1.5F) * noise;
  for (std::size_t x = 0; x < rows.image.size(); ++x) {
    float difference = rows.image[x];
    float scale = 1.0F;
    float deviation = noise;
    if (isLine) {
      difference -= pair.black ? rows.black[x] : 0.0F;
      scale = pair.black && pair.white ? rows.white[x] - rows.black[x] : 1.0F;
      deviation = pair.black ? ofPair : noise;
    } else if (pair.inverse) {
      difference -= rows.inverse[x];
      scale = rows.image[x] + rows.inverse[x];
      deviation = ofPair;
    } else {
      difference -= 0.5F * (rows.white[x] + rows.black[x]);
      scale = 0.5F * (rows.white[x] - rows.black[x]);
      deviation = ofMean;
    }
    bool const isLit = scale > deviation || (isLine && scale == 1.0F);
    contrast[x] = isLit ? difference / scale : notANumber;
    sigma[x] = isLit ? deviation / scale : notANumber;
  }
}

sl::ComparedImage compare(Grey const& grey, Pair const& pair, bool isLine, float noise) {
  sl::ComparedImage compared{cv::Mat_<float>(grey.size()), cv::Mat_<float>(grey.size())};
  parallelRows(grey.rows(), [&](int first, int end) {
    Rows rows;
    for (int y = first; y < end; ++y) {
      grey.load(pair.image, y, rows.image);
      for (auto const& [index, row] :
           {std::pair(pair.inverse, &rows.inverse), std::pair(pair.white, &rows.white),
            std::pair(pair.black, &rows.black)}) {
        if (index) {
          grey.load(*index, y, *row);
        }
      }
      compareRow(rows, pair, isLine, noise, compared.contrast[y], compared.sigma[y]);
    }
  });
  return compared;
}

/// A bit and its inverse add up to the same in every pair.
std::optional<double> noiseOfPairs(Grey const& grey, std::vector<Pair> const& pairs) {
  std::vector<Pair> both;
  std::copy_if(pairs.begin(), pairs.end(), std::back_inserter(both),
               [](Pair const& pair) { return pair.inverse.has_value(); });
  if (both.size() < 2) {
    return std::nullopt;
  }
  // Some rows are enough.
  int const step = std::max(1, grey.rows() / 200);
  std::vector<float> deviations;
  std::vector<float> a, b, c, d;
  for (int y = 0; y < grey.rows(); y += step) {
    grey.load(both[0].image, y, a);
    grey.load(*both[0].inverse, y, b);
    grey.load(both[1].image, y, c);
    grey.load(*both[1].inverse, y, d);
    for (std::size_t x = 0; x < a.size(); ++x) {
      float const deviation = a[x] + b[x] - c[x] - d[x];
      if (!std::isnan(deviation)) {
        deviations.push_back(std::fabs(deviation));
      }
    }
  }
  if (deviations.empty()) {
    return std::nullopt;
  }
  // Of whole numbers the median is one, too: it only says what is too far off to count.
  constexpr float farthest = 5.0F;
  float const most = farthest * (medianAmong(deviations) + (grey.isWhole() ? 1.0F : 0.0F));
  double squares = 0.0;
  double count = 0.0;
  for (float const deviation : deviations) {
    if (deviation <= most) {
      squares += static_cast<double>(deviation) * static_cast<double>(deviation);
      ++count;
    }
  }
  return std::sqrt(squares / count / 4.0); // four images are in each
}

/// The edge or line of an image that is nearest to a projector coordinate; -1 where none is within reach.
float placeNear(PatternSet const& set, PatternImage const& image, float coordinate) {
  auto const c = static_cast<double>(coordinate);
  if (image.role == PatternRole::Line) {
    double const middle = 0.5 * (image.cell - 1.0) - image.shift;
    double const place = middle + image.period * std::round((c - middle) / image.period);
    bool const isShown = place >= 0.0 && place <= sl::resolutionAlong(set, image.axis) - 1;
    return isShown ? static_cast<float>(place) : -1.0F;
  }
  double const farthest = std::max(1.0, 0.75 * image.cell);
  double best = -1.0;
  sl::StripeCells const cells{image.cell, image.shift};
  int const around = cells.stripeOf(c + 0.5);
  for (int stripe = std::max(1, around - 2); stripe <= around + 3; ++stripe) {
    double const edge = cells.edge(stripe);
    bool const isShown = edge > 0.0 && edge < sl::resolutionAlong(set, image.axis) - 1;
    auto const wordBeside = [&](double side) { return sl::wordAt(image, edge + side); };
    bool const changes =
        isShown && ((wordBeside(0.5) ^ wordBeside(-0.5)) >> static_cast<unsigned>(image.bit) & 1U) != 0;
    if (changes && std::fabs(edge - c) <= farthest && std::fabs(edge - c) < std::fabs(best - c)) {
      best = edge;
    }
  }
  return static_cast<float>(best);
}

/// What decoding knows at a place between two pixels.
float coordinateAt(cv::Mat_<float> const& map, cv::Point2f const& at) {
  constexpr float half = 0.5F;
  int const x = std::clamp(cvFloor(at.x), 0, map.cols - 1);
  int const y = std::clamp(cvFloor(at.y), 0, map.rows - 1);
  float const u = at.x - static_cast<float>(x) + at.y - static_cast<float>(y);
  float const a = map(y, x);
  float const b = map(std::min(y + (at.y > static_cast<float>(y) ? 1 : 0), map.rows - 1),
                      std::min(x + (at.x > static_cast<float>(x) ? 1 : 0), map.cols - 1));
  if (a >= 0.0F && b >= 0.0F) {
    return a + u * (b - a);
  }
  float const known = u < half ? a : b;
  return known >= 0.0F ? known : std::max(a, b);
}

class StripeSearch {
public:
  StripeSearch(PatternSet const& set, std::vector<cv::Mat> const& images, DecodedPatterns const& decoded,
               StripeSettings const& settings)
      : set_(set), grey_(images, settings.decode), decoded_(decoded),
        least_(static_cast<float>(settings.leastDeviations)) {}

  FoundStripes run(std::vector<Pair> const& pairs, double noise, Progress const& progress) {
    FoundStripes found;
    found.noise = noise > 0.0 ? noise
                              : std::max(noiseOfPairs(grey_, pairs).value_or(decoded_.noise),
                                         grey_.resolution(pairs.front().image));
    for (std::size_t i = 0; i < pairs.size(); ++i) {
      auto const share = [&](double part) {
        return (static_cast<double>(i) + part) / static_cast<double>(pairs.size());
      };
      bool const isColumn = set_.images[pairs[i].image].axis == PatternAxis::Column;
      std::vector<StripePoint>& points = isColumn ? found.columns : found.rows;
      sl::StripeForm const form = pairs[i].form(set_);
      sl::ComparedImage compared =
          compare(grey_, pairs[i], form == sl::StripeForm::Line, static_cast<float>(found.noise));
      add(pairs[i], findCrossings(compared, form, least_, progress.part(share(0.0), share(0.5))), false,
          points);
      cv::transpose(compared.contrast.clone(), compared.contrast);
      cv::transpose(compared.sigma.clone(), compared.sigma);
      add(pairs[i], findCrossings(compared, form, least_, progress.part(share(0.5), share(1.0))), true,
          points);
    }
    return found;
  }

private:
  void add(Pair const& pair, std::vector<sl::Crossing> const& crossings, bool isAcross,
           std::vector<StripePoint>& points) const {
    PatternImage const& image = set_.images[pair.image];
    cv::Mat_<float> const& map = image.axis == PatternAxis::Column ? decoded_.column : decoded_.row;
    for (sl::Crossing const& crossing : crossings) {
      StripePoint point;
      auto const whole = static_cast<float>(crossing.row);
      point.point = isAcross ? cv::Point2f(whole, crossing.place) : cv::Point2f(crossing.place, whole);
      point.sigma = crossing.sigma;
      point.image = pair.image;
      point.isAcross = isAcross;
      float const coordinate = map.empty() ? -1.0F : coordinateAt(map, point.point);
      point.projector = coordinate >= 0.0F ? placeNear(set_, image, coordinate) : -1.0F;
      points.push_back(point);
    }
  }

  PatternSet const& set_;
  Grey grey_;
  DecodedPatterns const& decoded_;
  float least_;
};

} // namespace

void StripeSettings::check() const {
  decode.check();
  constexpr double least = 3.0;
  if (!(leastDeviations >= least && std::isfinite(leastDeviations))) {
    throw error("StripeSettings: leastDeviations is " + toString(leastDeviations) + ", but must be 3 or more",
                context);
  }
}

FoundStripes find_stripes(PatternSet const& set, std::vector<cv::Mat> const& images,
                          StripeSettings const& settings, Observer* observer) {
  settings.check();
  set.validate();
  std::vector<Pair> const pairs = pairsOf(set);
  Progress const progress(observer);
  PartObserver first(progress.part(0.0, 0.6));
  DecodedPatterns const decoded = decode_patterns(set, images, settings.decode, first.ifWatched());
  FoundStripes found =
      StripeSearch(set, images, decoded, settings).run(pairs, settings.decode.noise, progress.part(0.6, 1.0));
  progress.at("finding stripes", 1.0);
  return found;
}

} // namespace vorn::mv
