// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

namespace host {

/// Brightens or darkens an 8-bit image: (value / 255) ^ (1 / Gamma).
class GammaFilter : public vorn::mv::ImageFilterBase<GammaFilter> {
public:
  static constexpr char const* className = "host::GammaFilter";
  GammaFilter() : ImageFilterBase({gammaRow()}) {}

  /// Above 1 brightens.
  VORN_PROPERTY(double, gamma, Gamma, 2.2, 0.1, 10.0);

  cv::Mat apply(cv::Mat const& input) const override {
    double const exponent = 1 / gamma();
    cv::Mat_<uchar> table(1, 256);
    for (int i = 0; i < table.cols; ++i) {
      table(i) = cv::saturate_cast<uchar>(255 * std::pow(i / 255.0, exponent));
    }
    cv::Mat output;
    cv::LUT(input, table, output);
    return output;
  }
};

/// The channel of a texture that a filter looks at.
class Channel : public vorn::EnumBase<Channel> {
public:
  enum Item { Blue, Green, Red };
  static constexpr char const* className = "host::Channel";
  static constexpr char const* itemList = "Blue, Green, Red";
  Channel(Item item = Green) : EnumBase(item) {}
};

/// Deletes the dark points of a cloud, in a new undo generation.
class DarkPointFilter : public vorn::mv::pc::FilterBase<DarkPointFilter> {
public:
  static constexpr char const* className = "host::DarkPointFilter";
  DarkPointFilter() : FilterBase({minBrightnessRow(), channelRow()}) {}

  /// Points whose texture is darker go, grey levels.
  VORN_PROPERTY(int, minBrightness, MinBrightness, 30, 0, 255);

  /// Where the texture is looked at.
  VORN_PROPERTY(Channel, channel, Channel, Channel());

  void operator()(vorn::mv::PointCloud& cloud) override {
    if (!cloud.hasTexture()) {
      throw vorn::Exception("The cloud has no texture", nullptr, 0, className);
    }
    int const least = minBrightness();
    int const looked = channel().getIndex();
    cloud.saveState(); // a generation of its own, which undoState takes back
    cv::Mat_<cv::Vec3b> const& texture = cloud.texture();
    cv::Mat_<uchar>& state = cloud.state();
    for (int y = 0; y < state.rows; ++y) {
      for (int x = 0; x < state.cols; ++x) {
        if (state(y, x) == 0 && texture(y, x)[looked] < least) {
          state(y, x) = 1;
        }
      }
    }
  }
};

} // namespace host

int main(int argc, char** argv) try {
  if (argc != 6) {
    throw std::invalid_argument("usage: example_own_filter in.png out.png chain.json cloud.ply clean.ply");
  }
  vorn::mv::Library::start(false);
  auto imageFilters = vorn::mv::imageFilters(); // a copy, to be added to
  imageFilters.add<host::GammaFilter>();
  auto const chain = vorn::readFilterChain(vorn::readJsonFile(argv[3]), imageFilters);
  cv::imwrite(argv[2], vorn::mv::applyFilters(chain, cv::imread(argv[1], cv::IMREAD_GRAYSCALE)));

  auto cloudFilters = vorn::mv::pc::filters();
  cloudFilters.add<host::DarkPointFilter>();
  auto const dark = vorn::parseFilter("DarkPoint:MinBrightness=60", cloudFilters);
  auto cloud = vorn::mv::PointCloud::load(argv[4]);
  (*dark)(cloud);
  cloud.save(argv[5]);
  nlohmann::json json;
  dark->write(json);
  std::cout << dark->getClassName() << ' ' << json << ": " << cloud.presentCount() << " of "
            << cloud.pointCount() << " points are bright\n";
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
