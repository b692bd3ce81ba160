// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sl/patterns/crossing_check.hpp"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>

#include <vorn/core/text.hpp>

#include "core/pi.hpp"

namespace vorn::mv::sl {

namespace {

constexpr int fewestCrossings = 100;

/// So much of a period may a fringe begin elsewhere than the bits say. Gamma moves that of three steps by a
/// twentieth.
constexpr double mostShift = 0.05;
constexpr double mostShiftOfThree = 0.09;
/// Share of the borders between stripes at which surfaces may end.
constexpr double mostBroken = 0.5;

/// What was seen where one word follows another.
struct Crossing {
  int count = 0;
  /// Of each fringe, where it is halfway, as numbers on the unit circle, and how often it grows there less
  /// how often it falls.
  std::vector<std::complex<double>> middles;
  std::vector<int> rises;
};

using Words = std::pair<std::uint32_t, std::uint32_t>;
using Crossings = std::map<Words, Crossing>;

/// Walks along lines of the image from stripe to stripe.
class Walk {
public:
  Walk(CrossingMaps const& maps, float certain) : maps_(maps), certain_(certain) {}

  Crossings run() {
    constexpr int lines = 60; // some thousand borders, in a hundredth of the time that decoding takes
    cv::Size const size = maps_.codes[0]->word.size();
    for (int y = 0; y < size.height; y += std::max(1, size.height / lines)) {
      alongLine(size.width, [y](int at) { return cv::Point(at, y); });
    }
    for (int x = 0; x < size.width; x += std::max(1, size.width / lines)) {
      alongLine(size.height, [x](int at) { return cv::Point(x, at); });
    }
    return std::move(crossings_);
  }

private:
  template <class PointAt>
  void alongLine(int length, PointAt const& pointAt) {
    constexpr int farthest = 6; // pixels from one stripe to the next
    constexpr int nothing = -1000;
    int last = nothing;
    std::uint32_t lastWord = 0;
    for (int i = 0; i < length; ++i) {
      cv::Point const at = pointAt(i);
      CodeMaps const& code = best(at);
      if (!(fromShortFloat(code.margin(at)) > certain_)) {
        continue;
      }
      auto const word = static_cast<std::uint32_t>(code.word(at));
      if (i - last <= farthest && word != lastWord) {
        add({lastWord, word}, pointAt(last), at);
      }
      last = i;
      lastWord = word;
    }
  }

  /// The exposure whose bits are farthest from their thresholds.
  CodeMaps const& best(cv::Point const& at) const {
    return **std::max_element(
        maps_.codes.begin(), maps_.codes.end(),
        [&](CodeMaps const* a, CodeMaps const* b) { return a->margin(at) < b->margin(at); });
  }

  void add(Words const& words, cv::Point const& from, cv::Point const& to) {
    Crossing& crossing = crossings_[words];
    crossing.middles.resize(maps_.fringes.size());
    crossing.rises.resize(maps_.fringes.size());
    ++crossing.count;
    for (std::size_t i = 0; i < maps_.fringes.size(); ++i) {
      double const first = (*maps_.fringes[i].phase)(from);
      double const last = (*maps_.fringes[i].phase)(to);
      double const way = std::remainder(last - first, 2 * CV_PI);
      // Farther than that, and over several pixels, it may have gone the other way.
      double const tooFar = cv::norm(to - from) < 2.0 ? 0.9 * CV_PI : 0.5 * CV_PI;
      if (first >= 0.0 && last >= 0.0 && std::fabs(way) < tooFar) {
        crossing.middles[i] += std::polar(1.0, first + 0.5 * way);
        crossing.rises[i] += way > 0.0 ? 1 : -1;
      }
    }
  }

  CrossingMaps const& maps_;
  float certain_;
  Crossings crossings_;
};

/// What a word would be had the images been in their places.
struct Mend {
  enum Kind { None, Exchange, Inverse, Reverse, ReverseOfInverses } kind = None;
  int first = 0;
  int second = 0;

  std::uint32_t operator()(std::uint32_t word, int bits) const {
    auto const bitAt = [&](int bit) { return word >> static_cast<unsigned>(bit) & 1U; };
    switch (kind) {
    case Exchange: {
      std::uint32_t const differ = bitAt(first) ^ bitAt(second);
      return word ^ (differ << static_cast<unsigned>(first)) ^ (differ << static_cast<unsigned>(second));
    }
    case Inverse:
      return word ^ (1U << static_cast<unsigned>(first));
    case Reverse:
    case ReverseOfInverses: {
      std::uint32_t reversed = 0;
      for (int bit = 0; bit < bits; ++bit) {
        reversed |= bitAt(bit) << static_cast<unsigned>(bits - 1 - bit);
      }
      return kind == Reverse ? reversed : reversed ^ ((1U << static_cast<unsigned>(bits)) - 1U);
    }
    case None:
      break;
    }
    return word;
  }
};

class Check {
public:
  Check(PatternSet const& set, PatternAxis axis, CodeWord const& code, CrossingMaps const& maps,
        float certain)
      : set_(set), axis_(axis), code_(code), maps_(maps), crossings_(Walk(maps, certain).run()) {
    for (std::size_t const i : bitsAlong(set, axis)) {
      bits_ = std::max(bits_, set.images[i].bit + 1);
    }
    for (auto const& [words, crossing] : crossings_) {
      total_ += crossing.count;
    }
    farthest_ = farthestStep();
  }

  std::vector<PatternDoubt> run() const {
    std::vector<PatternDoubt> doubts;
    if (total_ < fewestCrossings) {
      return doubts;
    }
    checkStripes(doubts);
    for (std::size_t i = 0; doubts.empty() && i < maps_.fringes.size(); ++i) {
      checkFringe(i, doubts);
    }
    return doubts;
  }

private:
  int stepOf(Words const& words, Mend const& mend) const {
    return std::abs(code_.stripeOf(mend(words.first, bits_)) - code_.stripeOf(mend(words.second, bits_)));
  }

  bool isFollowing(Words const& words, Mend const& mend) const { return stepOf(words, mend) <= farthest_; }

  /// How many stripes lie between neighbours at most. Of a camera that is coarser than the stripes, the next
  /// pixel rightly sees a stripe beyond the next: one more than half of the crossings have. Four stripes are
  /// the period of the finest bit of a Gray code; what is coarser does not see it, and has no certain words.
  /// Every other pixel may lie on borders, and be left out. Bits in wrong order go much farther, unless there
  /// are few of them.
  int farthestStep() const {
    constexpr int ofTwoPixels = 8;
    constexpr int partOfAll = 16;
    int const most = std::min(ofTwoPixels, (1 << bits_) / partOfAll);
    int upTo = 0;
    for (int step = 1; step <= most; ++step) {
      for (auto const& [words, crossing] : crossings_) {
        upTo += stepOf(words, {}) == step ? crossing.count : 0;
      }
      if (2 * upTo >= total_) {
        return step == 1 ? 1 : step + 1;
      }
    }
    return 1;
  }

  /// How many crossings a mend makes right and how many wrong. Places where surfaces end are of many kinds,
  /// each of which is seen a few times.
  std::pair<int, int> changes(Mend const& mend) const {
    constexpr int fewest = 5;
    int right = 0;
    int wrong = 0;
    for (auto const& [words, crossing] : crossings_) {
      bool const isRight = isFollowing(words, {});
      bool const isMended = isFollowing(words, mend);
      right += !isRight && isMended && crossing.count >= fewest ? crossing.count : 0;
      wrong += isRight && !isMended ? crossing.count : 0;
    }
    return {right, wrong};
  }

  std::vector<Mend> mends() const {
    std::vector<Mend> all{{Mend::Reverse, 0, 0}, {Mend::ReverseOfInverses, 0, 0}};
    for (int first = 0; first < bits_; ++first) {
      all.push_back({Mend::Inverse, first, 0});
      for (int second = first + 1; second < bits_; ++second) {
        all.push_back({Mend::Exchange, first, second});
      }
    }
    return all;
  }

  std::vector<std::size_t> imagesOf(int bit) const {
    std::vector<std::size_t> images = bitsAlong(set_, axis_);
    images.erase(std::remove_if(images.begin(), images.end(),
                                [&](std::size_t i) { return set_.images[i].bit != bit; }),
                 images.end());
    return images;
  }

  void checkStripes(std::vector<PatternDoubt>& doubts) const {
    int broken = 0;
    for (auto const& [words, crossing] : crossings_) {
      broken += isFollowing(words, {}) ? 0 : crossing.count;
    }
    Mend best;
    int mostRight = 0;
    int itsWrong = 0;
    for (Mend const& mend : mends()) {
      auto const [right, wrong] = changes(mend);
      if (right - wrong > mostRight - itsWrong) {
        best = mend;
        mostRight = right;
        itsWrong = wrong;
      }
    }
    constexpr int fewest = 30;
    constexpr int ofTen = 10;
    bool const isMended = mostRight >= fewest && ofTen * itsWrong <= mostRight;
    double const share = static_cast<double>(broken) / total_;
    if (!isMended && share <= mostBroken) {
      return;
    }
    PatternDoubt doubt{PatternFault::Stripes, axis_, 0.0, bitsAlong(set_, axis_), share, mostBroken, ""};
    doubt.text = toString(std::round(1000.0 * share) / 10.0) + " % of the stripes along " +
                 (axis_ == PatternAxis::Column ? "columns" : "rows") + " do not follow their neighbours";
    if (isMended && (best.kind == Mend::Reverse || best.kind == Mend::ReverseOfInverses)) {
      doubt.text += ": the bits look as if the finest came first";
    } else if (isMended) {
      doubt.images = imagesOf(best.first);
      std::vector<std::size_t> const others =
          best.kind == Mend::Exchange ? imagesOf(best.second) : doubt.images;
      std::string const what = nameWithin(set_, doubt.images.front());
      doubt.text += best.kind == Mend::Exchange
                        ? ": " + what + " and " + nameWithin(set_, others.front()) + " look exchanged"
                        : ": " + what + " looks as if it were its inverse";
      if (best.kind == Mend::Exchange) {
        doubt.images.insert(doubt.images.end(), others.begin(), others.end());
      }
    }
    doubts.push_back(std::move(doubt));
  }

  /// Between neighbouring stripes a fringe is at the border's place.
  void checkFringe(std::size_t number, std::vector<PatternDoubt>& doubts) const {
    Fringe const& fringe = *maps_.fringes[number].fringe;
    std::complex<double> sum;
    int count = 0;
    int along = 0;
    for (auto const& [words, crossing] : crossings_) {
      int const from = code_.stripeOf(words.first);
      int const to = code_.stripeOf(words.second);
      if (stepOf(words, {}) != 1) {
        continue;
      }
      double const border = static_cast<double>(code_.edge(std::max(from, to)));
      sum += crossing.middles[number] * std::polar(1.0, -2 * CV_PI * border / fringe.period);
      count += crossing.count;
      along += (to > from ? 1 : -1) * crossing.rises[number];
    }
    double const shift = std::arg(sum) / (2 * CV_PI);
    // At borders of stripes that are as wide as the fringe it is the same everywhere.
    constexpr double atLeast = 0.5;
    double const limit = fringe.images.size() == 3 ? mostShiftOfThree : mostShift;
    bool const isMirrored = along < -atLeast * count;
    bool const isShifted = std::abs(sum) > atLeast * count && std::fabs(shift) > limit;
    if (count < fewestCrossings || (!isMirrored && !isShifted)) {
      return;
    }
    PatternDoubt doubt{isMirrored ? PatternFault::Mirrored : PatternFault::Shifted,
                       fringe.axis,
                       fringe.period,
                       fringe.images,
                       isMirrored ? -static_cast<double>(along) / count : std::fabs(shift),
                       isMirrored ? atLeast : limit,
                       ""};
    doubt.text = isMirrored
                     ? "the fringe " + ofFringe(fringe) +
                           " runs against the bits: two of its steps look exchanged, or its sign is wrong"
                     : "the fringe " + ofFringe(fringe) + " begins " +
                           toString(std::round(100.0 * shift) / 100.0) +
                           " of a period from where the bits say: its steps look as if they began with "
                           "another one, or its offset is wrong";
    doubts.push_back(std::move(doubt));
  }

  PatternSet const& set_;
  PatternAxis axis_;
  CodeWord const& code_;
  CrossingMaps const& maps_;
  Crossings crossings_;
  int bits_ = 0;
  int total_ = 0;
  int farthest_ = 1;
};

} // namespace

std::vector<PatternDoubt> checkCrossings(PatternSet const& set, PatternAxis axis, CodeWord const& code,
                                         CrossingMaps const& maps, float certain) {
  return Check(set, axis, code, maps, certain).run();
}

} // namespace vorn::mv::sl
