// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/exposure.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/measure/focus.hpp>
#include <vorn/mv/measure/histogram.hpp>

#include "core/median.hpp"

namespace vorn::tools {

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double white8 = 255.0; // of the grey values that are told

std::string textOf(double value, char const* unit) {
  char text[64];
  std::snprintf(text, sizeof text, "%.3g%s", value, unit);
  return text;
}

std::string percent(double share) {
  return textOf(100.0 * share, " %");
}

cv::Rect ninthOf(cv::Size size, int number) {
  int const column = number % 3;
  int const row = number / 3;
  cv::Point const from(column * size.width / 3, row * size.height / 3);
  return {from, cv::Point((column + 1) * size.width / 3, (row + 1) * size.height / 3)};
}

Spread shareOf(cv::Mat_<uchar> const& mask) {
  Spread spread;
  spread.all = cv::countNonZero(mask) / static_cast<double>(mask.total());
  for (int i = 0; i < 9; ++i) {
    cv::Rect const part = ninthOf(mask.size(), i);
    spread.ninths[static_cast<std::size_t>(i)] =
        part.empty() ? spread.all : cv::countNonZero(mask(part)) / static_cast<double>(part.area());
  }
  return spread;
}

Spread blurOf(cv::Mat_<uchar> const& image) {
  mv::FocusSettings settings;
  settings.measure = mv::FocusMeasure::EdgeWidth;
  settings.cell = 32;
  mv::Focus const focus = mv::calcFocus(image, settings);
  Spread spread;
  spread.all = focus.value;
  cv::Mat_<float> const map = focus.map;
  for (int i = 0; i < 9; ++i) {
    std::vector<float> blurs;
    for (float const blur : cv::Mat_<float>(map(ninthOf(map.size(), i)))) {
      if (std::isfinite(blur)) {
        blurs.push_back(blur);
      }
    }
    spread.ninths[static_cast<std::size_t>(i)] =
        blurs.empty() ? notANumber : static_cast<double>(medianAmong(blurs));
  }
  return spread;
}

/// Images as the camera gave them.
struct Captured {
  std::vector<cv::Mat_<ushort>> images;
  double white;
  double unit; ///< one of their grey values in those of 255
};

Captured capturedOf(std::vector<cv::Mat> const& images, double white) {
  Captured captured{{}, white, white8 / white};
  for (cv::Mat const& image : images) {
    captured.images.emplace_back(image); // converts those of 8 bits
  }
  return captured;
}

/// The four images of a fringe hold three numbers, so P0 - P1 + P2 - P3 is noise alone, of twice its
/// deviation.
double noiseOfFringes(Captured const& fringes, cv::Mat_<uchar> const& isLeftOut) {
  std::vector<cv::Mat_<ushort>> const& p = fringes.images;
  double sum = 0.0;
  std::size_t count = 0;
  for (int y = 0; y < p[0].rows; ++y) {
    for (int x = 0; x < p[0].cols; ++x) {
      if (isLeftOut(y, x) == 0) {
        sum += std::abs(p[0](y, x) - p[1](y, x) + p[2](y, x) - p[3](y, x));
        ++count;
      }
    }
  }
  // Whole numbers: the mean size is finer than their median. Of a normal distribution it is 0.798 sigma.
  constexpr double meanSize = 0.79788;
  return count == 0 ? 0.0 : fringes.unit * sum / static_cast<double>(count) / meanSize / 2.0;
}

/// The pixels around which nothing is black or white, where images show no noise.
cv::Mat noisyPixels(cv::Mat const& image, Captured const& among) {
  constexpr double nearlyBlack = 2.0;
  cv::Mat least;
  cv::Mat greatest;
  cv::erode(image, least, cv::Mat());
  cv::dilate(image, greatest, cv::Mat());
  return (least > nearlyBlack / among.unit) & (greatest < among.white);
}

/// The least over the images of what the finest detail of most pixels says (Immerkaer 1996, by the median, so
/// that edges do not count); NaN where all images are black and white.
double noiseOfImages(Captured const& captured) {
  cv::Matx33f const finest(1, -2, 1, -2, 4, -2, 1, -2, 1);
  constexpr double ofUnitNoise = 6.0; // deviation of the filtered image
  constexpr double leastShare = 0.01; // of the pixels, for an image to tell
  double least = std::numeric_limits<double>::infinity();
  for (cv::Mat const& image : captured.images) {
    cv::Mat const noisy = noisyPixels(image, captured);
    if (cv::countNonZero(noisy) < leastShare * static_cast<double>(image.total())) {
      continue;
    }
    cv::Mat filtered;
    cv::filter2D(image, filtered, CV_32F, finest);
    cv::Mat const sizes = cv::abs(filtered);
    double greatest = 0.0;
    cv::minMaxLoc(sizes, nullptr, &greatest);
    mv::HistogramSettings whereNoisy;
    whereNoisy.mask = noisy;
    whereNoisy.low = -0.5;
    whereNoisy.high = greatest + 0.5;
    whereNoisy.bins = static_cast<int>(greatest) + 1;
    mv::Histogram const histogram = mv::calcHistogram(sizes, whereNoisy);
    // Whole numbers: the share up to the median's bin tells where within it the median lies.
    double const middle = histogram.percentile(0, 0.5);
    mv::HistogramSettings upTo = whereNoisy;
    upTo.high = middle + 0.5;
    upTo.bins = static_cast<int>(middle) + 1;
    mv::Histogram const lower = mv::calcHistogram(sizes, upTo);
    std::vector<std::uint64_t> const counts = lower.cumulative(0);
    double const total = static_cast<double>(lower.total(0));
    double const before = counts.size() > 1 ? static_cast<double>(counts[counts.size() - 2]) : 0.0;
    double const within = static_cast<double>(counts.back()) - before;
    double const median = middle - 0.5 + (0.5 * total - before) / std::max(1.0, within);
    constexpr double medianSize = 0.67449; // of a normal distribution
    least = std::min(least, captured.unit * std::max(0.0, median) / medianSize / ofUnitNoise);
  }
  return std::isfinite(least) ? least : notANumber;
}

/// @param least the brightness from which on more light gains little
std::vector<Advice> adviceFor(Exposure const& e, double least, Ground ground) {
  using Kind = Advice::Kind;
  constexpr double muchClipped = 0.002;
  constexpr double muchDark = 0.2;
  constexpr double wellLit = 200.0;
  constexpr double aim = 230.0;
  constexpr double blurred = 1.5;
  constexpr double flat = 0.3;
  std::vector<Advice> advice;
  std::string const clipped = percent(e.clipped.all) + " clipped" + e.clipped.where(100.0, " %");
  if (e.clipped.all > muchClipped) {
    bool const areHighlights = e.bright < wellLit;
    advice.push_back(
        {areHighlights ? Kind::Highlights : Kind::Clipped, e.clipped.all,
         areHighlights
             ? clipped + ", the rest no brighter than " + textOf(e.bright, "") +
                   ": no exposure suits both; take highlights away (spray, polarisers, another "
                   "angle) or scan twice"
             : clipped + ": shorten the exposure, or dim the projector, by a third and look again"});
  } else if (e.bright < least) {
    advice.push_back({Kind::Dim, -e.bright,
                      "the brightest grey values reach " + textOf(e.bright, "") +
                          " of 255: lengthen the exposure to " + textOf(aim / std::max(e.bright, 1.0), "") +
                          " times as long"});
  }
  if (e.dark.all > muchDark && ground == Ground::Counts) {
    advice.push_back({Kind::Dark, e.dark.all,
                      percent(e.dark.all) + " dark" + e.dark.where(100.0, " %") +
                          ": shadows and the ground count; where there is surface, bring light to it"});
  }
  if (e.modulation < flat) {
    advice.push_back({Kind::Flat, -e.modulation,
                      "fringes are only " + percent(e.modulation) +
                          " of the brightness: shield ambient light, and focus the projector"});
  }
  if (e.blur.all > blurred) {
    advice.push_back({Kind::Blurred, e.blur.all,
                      "edges are blurred by " + textOf(e.blur.all, " px") + e.blur.where(1.0, " px") +
                          ": focus the camera (vorn-mv focus shows where)"});
  }
  return advice;
}

/// That one of the four images has another light than the others, whose figures then tell nothing: over many
/// fringes they all have one mean.
std::vector<Advice> adviceForUneven(Captured const& phases) {
  constexpr double most = 0.23; // of the others: scans correct what is less
  std::vector<double> means;
  for (cv::Mat const& image : phases.images) {
    means.push_back(phases.unit * cv::mean(image)[0]);
  }
  double const usual = medianOf(means);
  auto const farther = [&](double a, double b) { return std::abs(a - usual) < std::abs(b - usual); };
  auto const odd = std::max_element(means.begin(), means.end(), farther);
  // Whatever the phases, two opposite steps have the sum of the other two.
  double const excess = std::abs(means[0] - means[1] + means[2] - means[3]);
  if (excess <= most * usual) {
    return {};
  }
  std::string const what = *odd == 0.0 ? " is black" : " has a mean of " + textOf(*odd, "");
  return {{Advice::Kind::Uneven, excess,
           "image " + std::to_string(odd - means.begin()) + what + ", the other steps of the fringe " +
               textOf(usual, "") + ": a frame was lost, or a lamp or the exposure changed; capture the " +
               "sequence again"}};
}

/// What all stacks have in common.
Exposure commonOf(Captured const& captured) {
  std::vector<cv::Mat_<ushort>> const& images = captured.images;
  Exposure result;
  cv::Mat brightest = images[0].clone();
  cv::Mat sum;
  images[0].convertTo(sum, CV_32S);
  for (std::size_t k = 1; k < images.size(); ++k) {
    cv::max(brightest, images[k], brightest);
    cv::add(sum, images[k], sum, cv::noArray(), CV_32S);
  }
  sum.convertTo(result.mean, CV_8U, captured.unit / static_cast<double>(images.size()));
  cv::compare(brightest, captured.white, result.isClipped, cv::CMP_GE);
  result.bright = captured.unit * mv::calcHistogram(brightest).percentile(0, 0.99);
  return result;
}

/// Takes the amplitudes of all pixels: which are dark, and the median of the others.
void judge(Exposure& result, cv::Mat_<float> const& amplitudes, double leastAmplitude) {
  constexpr double timesNoise = 4.0;
  double const least = std::max(leastAmplitude, timesNoise * result.noise);
  result.isDark = cv::Mat_<uchar>(amplitudes.size(), uchar{0});
  std::vector<float> lit;
  double brightness = 0.0;
  for (int y = 0; y < amplitudes.rows; ++y) {
    for (int x = 0; x < amplitudes.cols; ++x) {
      if (result.isClipped(y, x) != 0) {
        continue;
      }
      if (static_cast<double>(amplitudes(y, x)) < least) {
        result.isDark(y, x) = std::numeric_limits<uchar>::max();
      } else {
        lit.push_back(amplitudes(y, x));
        brightness += result.mean(y, x);
      }
    }
  }
  result.amplitude = lit.empty() ? notANumber : static_cast<double>(medianAmong(lit));
  result.modulation = result.amplitude * static_cast<double>(lit.size()) / brightness;
  result.clipped = shareOf(result.isClipped);
  result.dark = shareOf(result.isDark);
  result.blur = blurOf(result.mean);
}

} // namespace

std::string Spread::where(double factor, char const* unit) const {
  static std::array<char const*, 9> const names{{"upper left", "at the top", "upper right", "at the left",
                                                 "in the middle", "at the right", "lower left",
                                                 "at the bottom", "lower right"}};
  std::size_t worst = 0;
  for (std::size_t i = 1; i < ninths.size(); ++i) {
    if (ninths[i] > ninths[worst] || !std::isfinite(ninths[worst])) {
      worst = i;
    }
  }
  constexpr double muchMore = 1.3;
  return ninths[worst] > muchMore * all
             ? std::string(", most ") + names[worst] + " (" + textOf(factor * ninths[worst], unit) + ")"
             : "";
}

Exposure exposureOfFringes(std::vector<cv::Mat> const& phases, double period, Ground ground, double white) {
  constexpr double leastBright = 150.0;  // more gains less than a third of the noise
  constexpr double leastAmplitude = 2.0; // grey values
  Captured const fringes = capturedOf({phases.begin(), phases.begin() + 4}, white);
  std::vector<cv::Mat_<ushort>> const& p = fringes.images;
  Exposure result = commonOf(fringes);
  result.noise = noiseOfFringes(fringes, result.isClipped);
  cv::Mat_<float> amplitudes(p[0].size());
  for (int y = 0; y < amplitudes.rows; ++y) {
    for (int x = 0; x < amplitudes.cols; ++x) {
      amplitudes(y, x) = static_cast<float>(0.5 * fringes.unit *
                                            std::hypot(p[0](y, x) - p[2](y, x), p[1](y, x) - p[3](y, x)));
    }
  }
  judge(result, amplitudes, leastAmplitude);
  // Light has noise of its own: it is told where the amplitude is about the one that is told.
  if (std::isfinite(result.amplitude)) {
    constexpr double about = 1.3;
    cv::Mat_<uchar> isOther;
    cv::bitwise_not((amplitudes > result.amplitude / about) & (amplitudes < result.amplitude * about),
                    isOther);
    cv::bitwise_or(result.isClipped, isOther, isOther);
    result.noise = noiseOfFringes(fringes, isOther);
  }
  // Four steps: the phase's deviation is noise / (sqrt(2) amplitude).
  result.sigma = result.noise / (std::sqrt(2.0) * result.amplitude) * period / (2.0 * CV_PI);
  result.advice = adviceForUneven(fringes);
  if (result.advice.empty()) {
    result.advice = adviceFor(result, leastBright, ground);
  }
  return result;
}

Exposure exposureOfImages(std::vector<cv::Mat> const& images, Ground ground, double white) {
  constexpr double leastBright = 100.0; // dots and edges are found as well from there on
  constexpr double leastBrightness = 16.0;
  constexpr double leastAmplitude = 2.0;
  Captured const captured = capturedOf(images, white);
  Exposure result = commonOf(captured);
  result.noise = noiseOfImages(captured);
  cv::Mat amplitudes;
  if (images.size() == 1) { // nothing to compare: what is lit at all
    images[0].convertTo(amplitudes, CV_32F, captured.unit);
    judge(result, amplitudes, leastBrightness);
    result.amplitude = notANumber;
  } else {
    cv::Mat least = images[0].clone();
    cv::Mat greatest = images[0].clone();
    for (cv::Mat const& image : images) {
      cv::min(least, image, least);
      cv::max(greatest, image, greatest);
    }
    cv::Mat const range = greatest - least;
    range.convertTo(amplitudes, CV_32F, 0.5 * captured.unit);
    judge(result, amplitudes, leastAmplitude);
  }
  result.modulation = notANumber; // of fringes only
  result.advice = adviceFor(result, leastBright, ground);
  return result;
}

} // namespace vorn::tools
