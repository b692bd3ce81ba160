// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// Decoders on stacks, maps and masks of any size, type and place in a larger matrix.
#include <functional>
#include <stdexcept>
#include <vector>

#include <vorn/core/exception.hpp>
#include <vorn/mv/sl/code_decoding.hpp>
#include <vorn/mv/sl/global_direct_light.hpp>
#include <vorn/mv/sl/phase_decoding.hpp>
#include <vorn/mv/sl/phase_quality.hpp>
#include <vorn/mv/sl/phase_unwrapping.hpp>
#include <vorn/mv/sl/projector_points.hpp>

#include "byte_source.hpp"
#include "require.hpp"

namespace vorn::fuzz {
namespace {

constexpr int types[] = {CV_8UC1, CV_16SC1, CV_32FC1, CV_16UC1, CV_8UC3, CV_64FC1};

/// The inputs of a decoder: mostly fitting together, here and there not.
class Inputs {
public:
  explicit Inputs(ByteSource& source) : source_(source), size_(source.number(0, 20), source.number(0, 12)) {}

  /// A matrix of that type and the common size, or now and then of others.
  cv::Mat map(int type) {
    constexpr int rarely = 24;
    cv::Size const size = oneIn(rarely) ? cv::Size(source_.number(0, 20), source_.number(0, 12)) : size_;
    return source_.matrix(size, oneIn(rarely) ? source_.oneOf(types) : type);
  }

  std::vector<cv::Mat> stack() {
    std::vector<cv::Mat> images(static_cast<std::size_t>(source_.number(0, 20)));
    for (cv::Mat& image : images) {
      image = map(CV_8UC1);
    }
    return images;
  }

  cv::Mat mask() { return source_.flag() ? map(CV_8UC1) : cv::Mat(); }
  /// An output that is empty, or has a size and place already.
  cv::Mat output(int type) { return source_.flag() ? map(type) : cv::Mat(); }
  cv::Mat_<float> floats() { return asFloat(map(CV_32FC1)); }
  cv::Mat_<float> floatOutput() { return asFloat(output(CV_32FC1)); }
  int integer() { return source_.flag() ? source_.number(-8, 200) : source_.any<int>(); }
  float coordinate() {
    return source_.flag() ? static_cast<float>(source_.number(-3, 24)) : source_.any<float>();
  }

private:
  bool oneIn(int count) { return source_.number(0, count - 1) == count - 1; }

  static cv::Mat_<float> asFloat(cv::Mat const& map) {
    return map.type() == CV_32FC1 ? cv::Mat_<float>(map) : cv::Mat_<float>();
  }

  ByteSource& source_;
  cv::Size size_;
};

/// Runs a decoder on outputs: those must stay as they are when it refuses its inputs, and it may write
/// nothing outside.
void tryDecoder(std::vector<cv::Mat> const& outputs, std::function<void()> const& decode) {
  std::vector<cv::Mat> before;
  std::vector<Surroundings> surroundings;
  for (cv::Mat const& output : outputs) {
    before.push_back(output.clone());
    surroundings.emplace_back(output);
  }
  bool isRefused = false;
  try {
    decode();
  } catch (std::logic_error const&) {
    isRefused = true;
  } catch (Exception const&) {
    isRefused = true;
  }
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    require(surroundings[i].areUnchanged(), "a decoder writes nothing outside of its region");
    require(!isRefused || sameBytes(outputs[i], before[i]), "a refused input changes nothing");
  }
}

using CodeDecoder = void (*)(std::vector<cv::Mat> const&, cv::Mat&, int, int, int, cv::Mat const&);

void tryCodes(Inputs& inputs, bool isGray) {
  std::vector<cv::Mat> const images = inputs.stack();
  cv::Mat code = inputs.output(isGray ? CV_16UC1 : CV_16SC1);
  cv::Mat const mask = inputs.mask();
  int const maxCode = inputs.integer();
  int const minContrast = inputs.integer();
  int const threshold = inputs.integer();
  auto const decode =
      isGray ? static_cast<CodeDecoder>(mv::decode_gray_patterns) : mv::decode_binary_xor0_pattern;
  tryDecoder({code}, [&] { decode(images, code, maxCode, minContrast, threshold, mask); });
}

using PhaseDecoder = void (*)(std::vector<cv::Mat> const&, cv::Mat_<float>&, cv::Mat const&);

void tryPhase(Inputs& inputs, PhaseDecoder decode) {
  std::vector<cv::Mat> images = inputs.stack();
  images.resize(images.size() % 6);
  cv::Mat_<float> map = inputs.floatOutput();
  cv::Mat const mask = inputs.mask();
  tryDecoder({map}, [&] { decode(images, map, mask); });
}

void tryQuality(Inputs& inputs) {
  cv::Mat_<float> const phase = inputs.floats();
  cv::Mat_<float> quality = inputs.floatOutput();
  cv::Mat const mask = inputs.mask();
  tryDecoder({quality}, [&] { mv::calc_quality(phase, quality, mask); });
}

void tryUnwrapping(Inputs& inputs) {
  cv::Mat_<float> phase = inputs.floats();
  cv::Mat_<float> const quality = inputs.floats();
  cv::Mat state = inputs.map(CV_8UC1);
  cv::Mat const code = inputs.map(CV_16SC1);
  cv::Mat const mask = inputs.mask();
  tryDecoder({phase, state}, [&] { mv::unwrap_phase(phase, quality, state, code, mask); });
}

void trySeparation(Inputs& inputs) {
  std::vector<cv::Mat> const images = inputs.stack();
  cv::Mat direct = inputs.output(CV_32FC1);
  cv::Mat global = inputs.output(CV_32FC1);
  cv::Mat highest = inputs.output(CV_32FC1);
  cv::Mat lowest = inputs.output(CV_32FC1);
  tryDecoder({direct, global, highest, lowest},
             [&] { mv::estimate_global_direct_light(direct, global, images, highest, lowest); });
}

void tryProjectorPoints(Inputs& inputs) {
  cv::Mat const columns = inputs.map(CV_32FC1);
  cv::Mat const rows = inputs.map(CV_32FC1);
  std::vector<cv::Point2f> points(5);
  for (cv::Point2f& point : points) {
    point = {inputs.coordinate(), inputs.coordinate()};
  }
  std::vector<cv::Point2f> projPnts;
  std::vector<std::uint8_t> valid(points.size());
  tryDecoder({}, [&] {
    mv::find_projector_points(columns, rows, points, projPnts, valid);
    require(projPnts.size() == points.size() && valid.size() == points.size(), "one result for each point");
  });
}

void tryAnyDecoder(ByteSource& source) {
  int const function = source.number(0, 7);
  Inputs inputs(source);
  switch (function) {
  case 0:
    tryPhase(inputs, mv::decode_phase_shift);
    break;
  case 1:
    tryPhase(inputs, mv::calc_magnitude);
    break;
  case 2:
    tryCodes(inputs, false);
    break;
  case 3:
    tryCodes(inputs, true);
    break;
  case 4:
    tryQuality(inputs);
    break;
  case 5:
    tryUnwrapping(inputs);
    break;
  case 6:
    trySeparation(inputs);
    break;
  default:
    tryProjectorPoints(inputs);
  }
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  return vorn::fuzz::runInput([=] {
    vorn::fuzz::ByteSource source(data, size);
    vorn::fuzz::tryAnyDecoder(source);
  });
}
