// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/sl/sl3d_scanner.hpp>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/camera_calib_data.hpp>
#include <vorn/mv/geometry/transform.hpp>
#include <vorn/mv/sl/encoding_type.hpp>

#include "support/expect_error.hpp"
#include "support/scanner_rig.hpp"

namespace vorn::mv {
namespace {

using test::captured;
using test::scannerOf;
using vorn::test::expectError;

sim::Rig smallRig() {
  return sim::demoRig(4);
}

cv::Rect whole(cv::Mat const& image) {
  return {{0, 0}, image.size()};
}

TEST(Sl3dScanner, StatesThePatternsOfItsProjector) {
  Sl3dScanner scanner;
  scanner.getProjectorModel().setResolution({1280, 800});
  auto const columns = scanner.getPatternInfo(true);
  EXPECT_EQ(columns.phaseCount, 4);
  EXPECT_EQ(columns.bitCount, 9);
  EXPECT_EQ(columns.stripeCount, 320);
  auto const rows = scanner.getPatternInfo(false);
  EXPECT_EQ(rows.bitCount, 8);
  EXPECT_EQ(rows.stripeCount, 200);
  scanner["EncodingType"] = "GrayXor0_PhaseShift4x4px";
  expectError([&] { scanner.getPatternInfo(true); }, "Encoding method not implemented.");
  expectError([&] { scanner.decode({}); }, "Encoding method not implemented.");
}

TEST(Sl3dScanner, RefusesWhatItCannotDecode) {
  sim::Rig const rig = smallRig();
  Sl3dScanner scanner = scannerOf(rig);
  cv::Mat const image(rig.camera.device.resolution(), CV_8UC1, cv::Scalar(50));
  // 228 columns make 57 stripes, words up to 58: six bits, five of them as planes.
  std::vector<cv::Mat> const enough(10, image);
  EXPECT_NO_THROW(scanner.decode(enough));
  expectError([&] { scanner.decode({}); }, "Insufficient input patterns!");
  expectError([] { Sl3dScanner().decode({}); }, "Insufficient input patterns!");
  expectError([&] { scanner.decode(std::vector<cv::Mat>(9, image)); }, "Insufficient input patterns!");
  std::vector<cv::Mat> stack = enough;
  stack[7] = cv::Mat(image.size(), CV_8UC3);
  expectError([&] { scanner.decode(stack); }, "Image 7 is not an 8-bit image");
  stack[7] = image.colRange(1, image.cols).clone();
  expectError([&] { scanner.decode(stack); }, "Image 7 has 319 x 240 pixels, the first has 320 x 240");
  scanner.getCameraModel().setResolution({640, 480});
  expectError([&] { scanner.decode(enough); }, "The images have 320 x 240 pixels, the camera has 640 x 480");
  expectError([&] { Sl3dScanner().decode(enough); }, "resolution is not set");
}

TEST(Sl3dScanner, RefusesProjectorsThatThePatternsCannotCode) {
  std::vector<cv::Mat> const images(13, cv::Mat(8, 8, CV_8UC1, cv::Scalar(50)));
  Sl3dScanner scanner = scannerOf(smallRig());
  scanner.getCameraModel().setResolution({8, 8});
  for (auto const& [type, most] :
       {std::pair("Horizontal", cv::Size(2048, 9)), std::pair("Vertical", cv::Size(9, 4096))}) {
    scanner["ScannerType"] = type;
    scanner.getProjectorModel().setResolution(most);
    EXPECT_NO_THROW(scanner.decode(images)) << type;
    // One pixel of a stripe that looks like the first one.
    scanner.getProjectorModel().setResolution(most + cv::Size(1, 1));
    expectError([&] { scanner.decode(images); }, "Insufficient input patterns!");
  }
}

TEST(Sl3dScanner, RefusesWhatItCannotTriangulate) {
  cv::Mat_<cv::Vec3f> xyz;
  expectError([&] { Sl3dScanner().triangulate({}, xyz, {}); }, "Attempting to use an uncalibrated system.");
  Sl3dScanner scanner = scannerOf(smallRig());
  cv::Mat_<float> const map(240, 320, 50.0F);
  expectError(
      [&] {
        scanner.triangulate(map, xyz, {100, 100, 221, 50});
      },
      "is not within the camera's 320 x 240");
  expectError([&] { scanner.triangulate(map(cv::Rect(0, 0, 30, 30)), xyz, {0, 0, 31, 30}); }, "30 x 30");
  EXPECT_TRUE(xyz.empty());
}

TEST(Sl3dScanner, RefusesTooFewOrUnequalSamples) {
  Sl3dScanner scanner;
  CameraCalibData two;
  two.add({{0, 0}}, {{0, 0}});
  two.add({{0, 0}}, {{0, 0}});
  CameraCalibData three = two;
  three.add({{0, 0}}, {{0, 0}});
  expectError([&] { scanner.calib(two, three); }, "Insufficient calibration data");
  expectError([&] { scanner.calib(three, two); }, "Not enough calibration sample.");
  CameraCalibData none;
  expectError([&] { scanner.calib(three, none); }, "Not enough calibration sample.");
  CameraCalibData four = three;
  four.add({{0, 0}}, {{0, 0}});
  expectError([&] { scanner.calib(three, four); }, "samples: 3, the projector: 4");
}

TEST(Sl3dScanner, ScansARegionLikeTheWhole) {
  sim::Rig const rig = smallRig();
  Sl3dScanner scanner = scannerOf(rig);
  cv::Mat_<float> const map = scanner.decode(captured(rig, sim::demoScene()));
  cv::Mat_<cv::Vec3f> xyz;
  scanner.triangulate(map, xyz, whole(map));
  cv::Rect const roi(37, 21, 150, 90);
  cv::Mat_<cv::Vec3f> fromWholeMap;
  scanner.triangulate(map, fromWholeMap, roi);
  cv::Mat_<cv::Vec3f> fromCrop;
  scanner.triangulate(map(roi).clone(), fromCrop, roi);
  EXPECT_EQ(cv::norm(fromWholeMap, xyz(roi), cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(fromCrop, xyz(roi), cv::NORM_INF), 0.0);
}

TEST(Sl3dScanner, BlursWithinTheRegionThatItWrites) {
  sim::Rig const rig = smallRig();
  Sl3dScanner scanner = scannerOf(rig);
  scanner["PointcloudBlurRadius"] = 2;
  cv::Mat_<float> const map(rig.camera.device.resolution(), 100.0F);
  cv::Rect const roi(37, 21, 50, 40);
  cv::Mat_<cv::Vec3f> own;
  scanner.triangulate(map, own, roi);
  cv::Mat_<cv::Vec3f> larger(100, 100, cv::Vec3f(1e6F, 1e6F, 1e6F));
  cv::Mat_<cv::Vec3f> part = larger(cv::Rect({10, 10}, roi.size()));
  scanner.triangulate(map, part, roi);
  EXPECT_EQ(cv::norm(part, own, cv::NORM_INF), 0.0);
}

TEST(Sl3dScanner, StoredScannerScansAlike) {
  sim::Rig const rig = smallRig();
  Sl3dScanner scanner = scannerOf(rig);
  scanner.setPose(sim::Pose::fromDegrees({1, 2, 3}, {10, 20, 30}).matrix());
  scanner["MinSegmentSize"] = 40;
  nlohmann::json json;
  scanner.write(json);
  Sl3dScanner restored;
  restored.read(nlohmann::json::parse(json.dump()));
  EXPECT_TRUE(restored.isCalibrated());
  EXPECT_EQ(static_cast<int>(restored["MinSegmentSize"]), 40);
  auto const images = captured(rig, sim::demoScene());
  cv::Mat_<float> const map = scanner.decode(images);
  EXPECT_EQ(cv::norm(map, restored.decode(images), cv::NORM_INF), 0.0);
  cv::Mat_<cv::Vec3f> xyz;
  cv::Mat_<cv::Vec3f> again;
  scanner.triangulate(map, xyz, whole(map));
  restored.triangulate(map, again, whole(map));
  EXPECT_EQ(cv::norm(xyz, again, cv::NORM_INF), 0.0);
}

TEST(Sl3dScanner, FailedReadChangesNothing) {
  Sl3dScanner scanner = scannerOf(smallRig());
  nlohmann::json before;
  scanner.write(before);
  nlohmann::json broken = before;
  broken["CameraModel"]["Resolution"] = {1, 2};
  broken["Hpose"]["data"][3] = 17.0;
  broken["Properties"]["MaxFillRadius"] = 4;
  broken["Properties"]["Sensitivity"] = 21;
  EXPECT_THROW(scanner.read(broken), Exception);
  broken.erase("Hpose");
  EXPECT_ANY_THROW(scanner.read(broken));
  nlohmann::json after;
  scanner.write(after);
  EXPECT_EQ(before, after);
  // Documents of the models and the pose alone are complete.
  after.erase("Hpc");
  after.erase("Properties");
  EXPECT_NO_THROW(scanner.read(after));
}

TEST(Sl3dScanner, MapsFollowTheModels) {
  sim::Rig rig = smallRig();
  Sl3dScanner scanner = scannerOf(rig);
  cv::Mat_<float> const map(240, 320, 100.5F);
  cv::Mat_<cv::Vec3f> before;
  scanner.triangulate(map, before, whole(map));
  Sl3dScanner const untouched = scanner;
  rig.camera.device = sim::Device({500, 500}, {160, 120}, {}, {320, 240});
  scanner.getCameraModel() = test::modelOf(rig.camera.device);
  cv::Mat_<cv::Vec3f> changed;
  scanner.triangulate(map, changed, whole(map));
  cv::Mat_<cv::Vec3f> expected;
  scannerOf(rig).triangulate(map, expected, whole(map));
  EXPECT_EQ(cv::norm(changed, expected, cv::NORM_INF), 0.0);
  EXPECT_GT(cv::norm(changed, before, cv::NORM_INF), 1.0);
  EXPECT_EQ(untouched.getCameraModel().getK().at<double>(0, 0), smallRig().camera.device.focal().x);
}

TEST(Sl3dScanner, TextureIsTheWhiteLevel) {
  sim::Rig rig = smallRig();
  rig.camera.sensor.readNoise = 0;
  rig.camera.sensor.fullWell = 1e9;
  Sl3dScanner scanner = scannerOf(rig);
  sim::ProjectorView const view(rig.camera, rig.projector, sim::demoScene());
  auto const images = view.capture(test::patternsOf(rig, scanner::ScannerType::Horizontal));
  scanner.decode(images);
  EXPECT_TRUE(scanner.getTexture().empty());
  scanner["EnableTexture"] = true;
  scanner.decode(images);
  cv::Mat const white(rig.projector.device.resolution(), CV_8UC1, cv::Scalar(255));
  cv::Mat const truth = view.expose({white})[0];
  cv::Mat texture;
  scanner.getTexture().convertTo(texture, CV_32F);
  ASSERT_EQ(texture.size(), truth.size());
  // The fringes are attenuated by the blur, white is not: the texture is somewhat darker, and never brighter
  // than rounding allows.
  constexpr double rounding = 2.0;
  double const ratio = cv::mean(texture)[0] / cv::mean(truth)[0];
  EXPECT_GT(ratio, 0.7);
  cv::Mat const excess = texture - truth;
  double most = 0;
  cv::minMaxLoc(excess, nullptr, &most);
  EXPECT_LT(most, rounding);
}

TEST(Sl3dScanner, CalibratesFromTargetsThatBothDevicesSee) {
  sim::Rig const rig = sim::demoRig();
  auto const view = [](sim::Device const& device, sim::Pose const& device_from_target) {
    std::vector<cv::Point2f> pixels;
    for (int y = -4; y <= 4; ++y) {
      for (int x = -6; x <= 6; ++x) {
        pixels.emplace_back(device.project(device_from_target * cv::Vec3d(15 * x, 15 * y, 0)).value());
      }
    }
    return pixels;
  };
  std::vector<cv::Point2f> points;
  for (int y = -4; y <= 4; ++y) {
    for (int x = -6; x <= 6; ++x) {
      points.emplace_back(15.0F * static_cast<float>(x), 15.0F * static_cast<float>(y));
    }
  }
  CameraCalibData camera;
  CameraCalibData projector;
  sim::Pose const proj_from_cam = rig.projector.world_from_proj.inverse();
  for (sim::Pose const& cam_from_target : sim::demoTargetPoses()) {
    camera.add(view(rig.camera.device, cam_from_target), points);
    projector.add(view(rig.projector.device, proj_from_cam * cam_from_target), points);
  }
  Library::init();
  System::set("EnableDebugMode", Variant(false));
  Sl3dScanner scanner;
  scanner.getCameraModel().setResolution(rig.camera.device.resolution());
  scanner.getProjectorModel().setResolution(rig.projector.device.resolution());
  // Twice: the poses of the first time, which stay in the data, do not count in the second.
  scanner.calib(camera, projector);
  scanner.calib(camera, projector);
  EXPECT_EQ(camera.getPoses().size(), 2 * sim::demoTargetPoses().size());
  EXPECT_TRUE(scanner.isCalibrated());
  cv::Matx44d const difference = scanner.getTransform() - rig.projector.world_from_proj.matrix();
  // Pixels are rounded to float (6e-5): the poses, half a metre away, follow to a hundredth of a millimetre.
  constexpr double placeTolerance = 0.02;
  constexpr double angleTolerance = 1e-4;
  EXPECT_LT(cv::norm(math::getT3(difference), cv::NORM_INF), placeTolerance);
  EXPECT_LT(cv::norm(math::getR3(difference), cv::NORM_INF), angleTolerance);

  // One object as both: the poses of both calibrations, and a projector that stands in the camera.
  std::size_t const before = camera.getPoses().size();
  scanner.getProjectorModel().setResolution(rig.camera.device.resolution());
  scanner.calib(camera, camera);
  ASSERT_EQ(camera.getPoses().size(), before + 2 * sim::demoTargetPoses().size());
  EXPECT_EQ(camera.getPoses()[before], camera.getPoses()[before + sim::demoTargetPoses().size()]);
  EXPECT_LT(cv::norm(scanner.getTransform() - cv::Matx44d::eye(), cv::NORM_INF), angleTolerance);
}

TEST(Sl3dScanner, BlursThePointsWhenAskedTo) {
  sim::Rig const rig = smallRig();
  Sl3dScanner scanner = scannerOf(rig);
  cv::Mat_<float> map(240, 320);
  cv::randu(map, 50, 60);
  cv::Mat_<cv::Vec3f> plain;
  scanner.triangulate(map, plain, whole(map));
  scanner["PointcloudBlurRadius"] = 2;
  cv::Mat_<cv::Vec3f> blurred;
  scanner.triangulate(map, blurred, whole(map));
  cv::Mat expected;
  cv::GaussianBlur(plain, expected, {5, 5}, 0, 0, cv::BORDER_REFLECT_101);
  EXPECT_EQ(cv::norm(cv::Mat(blurred), expected, cv::NORM_INF), 0.0);
}

} // namespace
} // namespace vorn::mv
