// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0

// The same input gives the same bits with any number of threads: every operation that does real work, run
// twice with 1, 2 and 8 threads, and in several threads of the host at once.
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/mv.hpp>

#include "sim/demo.hpp"
#include "sim/laser.hpp"
#include "support/scanner_rig.hpp"
#include "support/target_photos.hpp"

namespace vorn::mv {
namespace {

/// The FNV-1a hash of what an operation returned.
class Hash {
public:
  Hash& add(void const* data, std::size_t bytes) {
    auto const* const first = static_cast<unsigned char const*>(data);
    for (unsigned char const* byte = first; byte < first + bytes; ++byte) {
      value_ = (value_ ^ *byte) * 0x100000001b3U;
    }
    return *this;
  }
  Hash& add(cv::Mat const& matrix) {
    for (int row = 0; row < matrix.rows; ++row) {
      add(matrix.ptr(row), static_cast<std::size_t>(matrix.cols) * matrix.elemSize());
    }
    return *this;
  }
  template <class T>
  Hash& add(std::vector<T> const& values) {
    return add(values.data(), values.size() * sizeof(T));
  }
  Hash& add(std::string const& text) { return add(text.data(), text.size()); }
  template <class Object>
  Hash& addJson(Object const& object) {
    nlohmann::json json;
    object.write(json);
    return add(json.dump());
  }

  std::uint64_t value() const { return value_; }

private:
  std::uint64_t value_ = 0xcbf29ce484222325U;
};

struct Operation {
  std::string name;
  std::function<Hash()> run;
};

/// What the operations take, made once.
struct Inputs {
  sim::Rig rig = sim::demoRig(4);
  std::vector<cv::Mat> columns = test::captured(rig, sim::demoScene());
  std::vector<cv::Mat> rows =
      test::captured(rig, sim::demoScene(), scanner::ScannerType(scanner::ScannerType::Vertical));
  cv::Mat photo = sim::render(vorn::test::targetPhoto(16, 25, 40, 20));
  cv::Mat laser =
      sim::captureLasers(sim::demoLaserRig(2).camera, sim::demoLaserRig(2).lasers, sim::demoScene());
  cv::Mat_<cv::Vec3f> points = makePoints();

  cv::Mat_<cv::Vec3f> makePoints() const {
    Sl3dScanner scanner = test::scannerOf(rig);
    cv::Mat_<cv::Vec3f> xyz;
    scanner.triangulate(scanner.decode(columns), xyz, cv::Rect({}, columns[0].size()));
    return xyz;
  }
};

Inputs const& inputs() {
  static Inputs const made;
  return made;
}

Hash scan(scanner::ScannerType::Item type, std::vector<cv::Mat> const& images, int fillRadius) {
  Sl3dScanner scanner = test::scannerOf(inputs().rig);
  scanner["ScannerType"] = scanner::ScannerType(type);
  scanner["MaxFillRadius"] = fillRadius;
  scanner["PhaseBlurRadius"] = 2 * fillRadius;
  scanner["EnableTexture"] = true;
  cv::Mat_<float> const map = scanner.decode(images);
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(map, xyz, cv::Rect({}, map.size()));
  return Hash().add(map).add(xyz).add(scanner.getTexture());
}

Hash decodeByHand() {
  std::vector<cv::Mat> const phases(inputs().columns.begin(), inputs().columns.begin() + 4);
  std::vector<cv::Mat> const codes(inputs().columns.begin() + 4, inputs().columns.end());
  cv::Mat_<float> phase, magnitude, quality;
  cv::Mat code, gray, direct, global, highest, lowest;
  decode_phase_shift(phases, phase);
  calc_magnitude(phases, magnitude);
  calc_quality(phase, quality);
  decode_binary_xor0_pattern(codes, code, 255, 15, 0);
  decode_gray_patterns(codes, gray, 255, 15, 100);
  estimate_global_direct_light(direct, global, phases, highest, lowest);
  Hash hash = Hash().add(phase).add(magnitude).add(quality).add(code).add(gray);
  cv::Mat state = magnitude > 20;
  unwrap_phase(phase, quality, state, code);
  return hash.add(phase).add(state).add(direct).add(global).add(highest).add(lowest);
}

Hash detect() {
  std::vector<CalibKeyPoint> const dots = vorn::test::targetDetector().detect(inputs().photo).getKeyPoints();
  EXPECT_GT(dots.size(), 50U);
  return Hash().add(dots);
}

Hash calibrate() {
  sim::Camera const camera = sim::demoRig().camera;
  CameraCalibData data;
  for (sim::Pose const& pose : sim::demoTargetPoses()) {
    std::vector<cv::Point2f> imgPnts, objPnts;
    for (sim::DotTruth const& dot : sim::dotTruth(sim::demoTarget(), pose, camera, nullptr)) {
      if (dot.camera) {
        imgPnts.emplace_back(*dot.camera);
        objPnts.emplace_back(dot.pattern);
      }
    }
    data.add(imgPnts, objPnts);
  }
  CameraModel model;
  model.setResolution(camera.device.resolution());
  model.calib(data, 100);
  return Hash().addJson(model).addJson(data);
}

Hash cleanCloud(std::function<void(PointCloud&)> const& clean) {
  PointCloud cloud(inputs().points, true);
  clean(cloud);
  return Hash().add(cloud.points()).add(cloud.state());
}

std::vector<Operation> operations() {
  using scanner::ScannerType;
  std::vector<Operation> all = {
      {"decoders", decodeByHand},
      {"scan of columns", [] { return scan(ScannerType::Horizontal, inputs().columns, 0); }},
      {"scan of rows, blurred and filled", [] { return scan(ScannerType::Vertical, inputs().rows, 2); }},
      {"target", detect},
      {"camera", calibrate},
      {"laser", [] { return Hash().add(extract_laser_line(inputs().laser)); }},
      {"clean", [] { return cleanCloud([](PointCloud& cloud) { cloud.clean(6, 8); }); }},
      {"clusters", [] { return cleanCloud([](PointCloud& cloud) { cloud.filterSmallCluster(3, 50); }); }},
      {"edges", [] { return cleanCloud([](PointCloud& cloud) { cloud.markEdgePoints(6, 12); }); }},
  };
  for (std::string const& name : pc::filters().names()) {
    all.push_back({name, [name] {
                     std::unique_ptr<pc::IFilter> const filter = pc::createFilter(name);
                     if (auto* const planeRemoval = dynamic_cast<pc::PlaneRemovalFilter*>(filter.get())) {
                       planeRemoval->setPlane(Plane3f({0, 0, 600}, {0, 0, 1}));
                     }
                     if (filter->hasProperty("Radius")) {
                       (*filter)["Radius"] = 3.0; // twice the spacing of the points
                     }
                     return cleanCloud([&](PointCloud& cloud) { (*filter)(cloud); });
                   }});
  }
  for (std::string const& name : imageFilters().names()) {
    all.push_back({name, [name] { return Hash().add(createImageFilter(name)->apply(inputs().photo)); }});
  }
  return all;
}

TEST(ThreadCount, ChangesNoBitOfAnyResult) {
  Library::init();
  System::set("EnableDebugMode", Variant(false));
  System::setLogSink([](std::string const&) {});
  int const threads = cv::getNumThreads();
  for (Operation const& operation : operations()) {
    cv::setNumThreads(1);
    std::uint64_t const expected = operation.run().value();
    EXPECT_NE(expected, Hash().value()) << operation.name << " returned nothing";
    for (int const count : {1, 2, 8}) {
      cv::setNumThreads(count);
      EXPECT_EQ(operation.run().value(), expected) << operation.name << " with " << count << " threads";
    }
  }
  cv::setNumThreads(threads);
  System::setLogSink({});
}

TEST(ThreadCount, OperationsSideBySideReturnTheSame) {
  Library::init();
  System::setLogSink([](std::string const&) {});
  std::vector<Operation> const all = operations();
  std::vector<std::uint64_t> expected;
  for (Operation const& operation : all) {
    expected.push_back(operation.run().value());
  }
  constexpr std::size_t hosts = 3;
  std::vector<std::vector<std::uint64_t>> results(hosts, std::vector<std::uint64_t>(all.size()));
  std::vector<std::thread> threads;
  for (std::size_t host = 0; host < hosts; ++host) {
    threads.emplace_back([&, host] {
      for (std::size_t k = 0; k < all.size(); ++k) {
        std::size_t const turn = (k + host) % all.size(); // some do the same at once, some not
        results[host][turn] = all[turn].run().value();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (std::size_t k = 0; k < all.size(); ++k) {
    for (auto const& result : results) {
      EXPECT_EQ(result[k], expected[k]) << all[k].name;
    }
  }
  System::setLogSink({});
}

} // namespace
} // namespace vorn::mv
