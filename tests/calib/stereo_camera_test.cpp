// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/stereo_camera.hpp>

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <vorn/core/exception.hpp>
#include <vorn/core/observer.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/rotation.hpp>

#include "calib/exact_views.hpp"

namespace vorn::mv {
namespace {

using nlohmann::json;
using test::addViews;
using test::ExactCamera;
using test::patternPoses;

/// A stereo pair whose second camera stands to the right and turns in.
struct StereoCameraTest : testing::Test {
  StereoCameraTest() {
    Library::init();
    testing::internal::CaptureStdout();
    stereo.setResolution(camera0.resolution, camera1.resolution);
  }
  ~StereoCameraTest() override { testing::internal::GetCapturedStdout(); }

  void addViewsOf(int count0, int count1) {
    addViews(data0, camera0, patternPoses(count0));
    addViews(data1, camera1, patternPoses(count1), cam0_from_cam1.inv());
  }

  json written() const {
    json j;
    stereo.write(j);
    return j;
  }

  ExactCamera camera0{{612, 512}, {600, 0, 302, 0, 602, 257, 0, 0, 1}, {-0.12, 0.09, 0.0005, -0.0007, 0}};
  ExactCamera camera1{{320, 240}, {350, 0, 158, 0, 352, 121, 0, 0, 1}, {0.05, -0.02, 0, 0, 0}};
  cv::Matx44d cam0_from_cam1 = math::createTransform(math::rotY(-0.3), {120, 5, 20});
  StereoCamera stereo;
  CameraCalibData data0;
  CameraCalibData data1;
};

TEST_F(StereoCameraTest, FindsTheTransformFromCamera1ToCamera0) {
  addViewsOf(6, 6);
  stereo.calib(data0, data1);
  EXPECT_TRUE(stereo.isCalibrated());
  // What rounding of the image points leaves, in millimetres and radians.
  EXPECT_LT(cv::norm(stereo.getTransform() - cam0_from_cam1, cv::NORM_INF), 0.02);
  EXPECT_EQ(stereo.getUndistortedMap0().size(), camera0.resolution);
  EXPECT_EQ(stereo.getUndistortedMap1().size(), camera1.resolution);
  cv::Vec2f const ray = stereo.getUndistortedMap1()(50, 70);
  auto const expected = stereo.getCameraModel1().undistortPoints({{70, 50}})[0];
  EXPECT_EQ(ray, cv::Vec2f(expected.x, expected.y));
}

TEST_F(StereoCameraTest, AveragesAllPosesElementByElement) {
  addViewsOf(3, 3);
  data0.addPose(math::createTransform(math::rotX(0.5), {1, 2, 3})); // of some earlier calibration
  data1.addPose(cv::Matx44d::eye());
  stereo.calib(data0, data1);
  ASSERT_EQ(data0.getPoses().size(), 4U);
  cv::Matx44d mean;
  for (int i = 0; i < 4; ++i) {
    mean += data0.getPose(i) * data1.getPose(i).inv() * 0.25;
  }
  EXPECT_LT(cv::norm(stereo.getTransform() - mean, cv::NORM_INF), 1e-11);
  EXPECT_GT(cv::norm(math::getR3(mean) * math::getR3(mean).t() - cv::Matx33d::eye()), 0.01) << "no rotation";
}

TEST_F(StereoCameraTest, EqualDataGiveTheIdentity) {
  addViews(data0, camera0, patternPoses(4));
  data1 = data0;
  stereo.setResolution(camera0.resolution, camera0.resolution);
  stereo.calib(data0, data1);
  EXPECT_LT(cv::norm(stereo.getTransform() - cv::Matx44d::eye(), cv::NORM_INF), 1e-12);
}

TEST_F(StereoCameraTest, KeepsTheTransformButNoMapsOfAPoorCalibration) {
  addViewsOf(4, 4);
  CameraCalibData noisy;
  for (int i = 0; i < 4; ++i) {
    auto imgPnts = data0.getImgPnts(i);
    for (cv::Point2f& p : imgPnts) {
      p.x += static_cast<float>(cv::theRNG().gaussian(1.5));
    }
    noisy.add(imgPnts, data0.getObjPnts(i));
  }
  CameraCalibData good = data0;
  CameraCalibData good1 = data1;
  stereo.calib(good, good1);
  ASSERT_FALSE(stereo.getUndistortedMap0().empty() || stereo.getUndistortedMap1().empty());
  stereo.calib(noisy, data1);
  EXPECT_GE(stereo.getCameraModel0().getCalibError(), 0.5);
  EXPECT_FALSE(stereo.isCalibrated());
  EXPECT_NE(stereo.getTransform(), cv::Matx44d::eye());
  EXPECT_TRUE(stereo.getUndistortedMap0().empty()) << "nor those of the good calibration before";
  EXPECT_TRUE(stereo.getUndistortedMap1().empty());
}

TEST_F(StereoCameraTest, AFailedCalibrationChangesNothing) {
  auto const failure = [this] {
    json const before = written();
    try {
      stereo.calib(data0, data1);
    } catch (Exception const& e) {
      EXPECT_EQ(written(), before);
      EXPECT_TRUE(data0.getPoses().empty() && data1.getPoses().empty());
      return e.message();
    }
    return std::string("no exception");
  };
  addViewsOf(2, 2);
  EXPECT_EQ(failure(), "Insufficient calibration data");
  addViewsOf(2, 0);
  EXPECT_EQ(failure(), "Not enough calibration sample.") << "of camera 1";
  addViewsOf(0, 1);
  EXPECT_EQ(failure(), "The data sets do not match: 4 views with 0 poses and 3 views with 0 poses");
}

TEST_F(StereoCameraTest, ReadsWhatItWrote) {
  json models;
  camera0.model().write(models["CameraModel0"]);
  camera1.model().write(models["CameraModel1"]);
  models["Hpc"] = cam0_from_cam1;
  models["Hpose"] = math::createTransform(math::rotZ(1), {7, 8, 9});
  stereo.read(models);
  EXPECT_EQ(written(), models);
  EXPECT_EQ(stereo.getTransform(), cam0_from_cam1);
  EXPECT_EQ(math::getT3(stereo.getPose()), cv::Vec3d(7, 8, 9));
  stereo.calcUndistortedMaps();
  EXPECT_FALSE(stereo.getUndistortedMap1().empty());
  stereo.read(models);
  EXPECT_TRUE(stereo.getUndistortedMap1().empty()) << "maps belong to the cameras they were made for";
  stereo.calcUndistortedMaps();
  stereo.setResolution({64, 48}, {32, 24});
  EXPECT_TRUE(stereo.getUndistortedMap0().empty()) << "and to their resolution";
  stereo.read(models);
  for (char const* key : {"CameraModel0", "CameraModel1", "Hpc", "Hpose"}) {
    json broken = models;
    broken["Hpc"] = cv::Matx44d::eye();
    broken[key] = 5;
    EXPECT_ANY_THROW(stereo.read(broken));
    EXPECT_EQ(written(), models) << key;
  }
  EXPECT_THROW(StereoCamera().calcUndistortedMaps(), Exception);
}

/// The true rig of the tests above, and points of space with their images.
struct StereoPointsTest : StereoCameraTest {
  StereoPointsTest() { take(cam0_from_cam1); }

  void take(cv::Matx44d const& transform) {
    cam0_from_cam1 = transform;
    json models;
    camera0.model().write(models["CameraModel0"]);
    camera1.model().write(models["CameraModel1"]);
    models["Hpc"] = transform;
    models["Hpose"] = cv::Matx44d::eye();
    stereo.read(models);
  }

  static std::vector<cv::Point2f> imageOf(ExactCamera const& camera, std::vector<cv::Point3d> const& points,
                                          cv::Matx44d const& camera_from_points) {
    cv::Vec3d rvec;
    cv::Rodrigues(math::getR3(camera_from_points), rvec);
    std::vector<cv::Point2d> pixels;
    cv::projectPoints(points, rvec, math::getT3(camera_from_points), camera.K, camera.D, pixels);
    return {pixels.begin(), pixels.end()};
  }
  std::vector<cv::Point2f> image0(std::vector<cv::Point3d> const& points) const {
    return imageOf(camera0, points, cv::Matx44d::eye());
  }
  std::vector<cv::Point2f> image1(std::vector<cv::Point3d> const& points) const {
    return imageOf(camera1, points, cam0_from_cam1.inv());
  }

  static std::vector<cv::Point3d> scene() {
    std::vector<cv::Point3d> points;
    for (double z : {300.0, 450.0, 800.0}) {
      for (double y : {-0.25, 0.0, 0.2}) {
        for (double x : {-0.2, 0.05, 0.25}) {
          points.emplace_back(x * z, y * z, z);
        }
      }
    }
    return points;
  }

  /// The sum of the squared distances in both images, by OpenCV's projection.
  double squaresAt(cv::Point3d const& point, cv::Point2f const& pixel0, cv::Point2f const& pixel1) const {
    std::vector<cv::Point2d> image;
    cv::projectPoints(std::vector<cv::Point3d>{point}, cv::Vec3d(), cv::Vec3d(), camera0.K, camera0.D, image);
    cv::Point2d const error0 = image[0] - cv::Point2d(pixel0);
    cv::Vec3d rvec;
    cv::Rodrigues(math::getR3(cam0_from_cam1.inv()), rvec);
    cv::projectPoints(std::vector<cv::Point3d>{point}, rvec, math::getT3(cam0_from_cam1.inv()), camera1.K,
                      camera1.D, image);
    cv::Point2d const error1 = image[0] - cv::Point2d(pixel1);
    return error0.dot(error0) + error1.dot(error1);
  }
};

TEST_F(StereoPointsTest, FindsThePointsThatPairsOfPixelsShow) {
  auto const points = scene();
  StereoPoints const found = stereo.triangulate(image0(points), image1(points));
  ASSERT_EQ(found.points.size(), points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    // Pixels rounded to float (3e-5 px), at a depth z by a base of 120 mm and a focal length of 350 px.
    double const rounding = 3e-5 * 2 * points[i].z * points[i].z / (120 * 350);
    EXPECT_LT(cv::norm(cv::Point3d(found.points[i]) - points[i]), 5 * rounding) << points[i];
    EXPECT_LT(found.residuals[i], 1e-4);
  }
  EXPECT_EQ(found.behindCount + found.parallelCount + found.raylessCount, 0);
}

TEST_F(StereoPointsTest, APointsImagesLieAsNearToThePixelsAsCanBe) {
  cv::RNG rng(7);
  auto const points = scene();
  auto pixels0 = image0(points);
  auto pixels1 = image1(points);
  for (auto* pixels : {&pixels0, &pixels1}) {
    for (cv::Point2f& p : *pixels) {
      p += cv::Point2f(cv::Point2d(rng.gaussian(3), rng.gaussian(3)));
    }
  }
  StereoPoints const found = stereo.triangulate(pixels0, pixels1);
  for (std::size_t i = 0; i < points.size(); ++i) {
    cv::Point3d const point = found.points[i];
    double const squares = squaresAt(point, pixels0[i], pixels1[i]);
    EXPECT_NEAR(found.residuals[i], std::sqrt(squares / 2), 1e-3);
    // A step of a thousandth of the depth is a hundred times what rounding the point to float is.
    double const step = 1e-3 * points[i].z;
    for (cv::Point3d const& way : {cv::Point3d(step, 0, 0), cv::Point3d(0, step, 0), point * 1e-3}) {
      EXPECT_LT(squares, squaresAt(point + way, pixels0[i], pixels1[i]));
      EXPECT_LT(squares, squaresAt(point - way, pixels0[i], pixels1[i]));
    }
  }
}

TEST_F(StereoPointsTest, CountsPairsWithoutAPoint) {
  camera0 = camera1 = ExactCamera{{320, 240}, {350, 0, 160, 0, 350, 120, 0, 0, 1}, {-0.5, 0, 0, 0, 0}};
  take(math::createTransform(cv::Matx33d::eye(), {100, 0, 0}));
  std::vector<cv::Point2f> const pixels0{{170, 120}, {150, 120},  {200, 100},
                                         {NAN, 1},   {3000, 120}, {170, 120}};
  std::vector<cv::Point2f> const pixels1{{150, 120}, {170, 120}, {200, 100},
                                         {10, 10},   {150, 120}, {INFINITY, 0}};
  StereoPoints const found = stereo.triangulate(pixels0, pixels1);
  EXPECT_GT(found.points[0].z, 1000);
  EXPECT_TRUE(std::isfinite(found.residuals[0]));
  for (std::size_t i = 1; i < pixels0.size(); ++i) {
    EXPECT_TRUE(std::isnan(found.points[i].x + found.points[i].z) && std::isnan(found.residuals[i])) << i;
  }
  EXPECT_EQ(found.behindCount, 1);
  EXPECT_EQ(found.parallelCount, 1);
  EXPECT_EQ(found.raylessCount, 3) << "no number, beyond the lens model's fold, infinite";

  EXPECT_THROW((void)stereo.triangulate({{1, 2}}, {}), Exception);
  EXPECT_TRUE(stereo.triangulate({}, {}).points.empty());
  EXPECT_THROW((void)StereoCamera().triangulate({{1, 2}}, {{1, 2}}), Exception) << "no cameras";
  stereo.setTransform(cv::Matx44d::eye());
  EXPECT_THROW((void)stereo.triangulate({{1, 2}}, {{1, 2}}), Exception) << "no base";
}

TEST_F(StereoPointsTest, AnObserverStopsALongList) {
  struct Stop : Observer {
    bool onProgress(std::string_view, double fraction) override { return fraction < 0.5; }
  } stop;
  std::vector<cv::Point2f> const pixels(100000, {300, 250});
  std::vector<cv::Point2f> const others(100000, {150, 120});
  EXPECT_THROW((void)stereo.triangulate(pixels, others, &stop), Cancelled);
}

/// What `rectify` promises, by OpenCV's projection of the points through the true cameras.
void expectRectified(StereoRectification const& r, StereoPointsTest const& rig) {
  auto const pixels0 = rig.image0(rig.scene());
  auto const pixels1 = rig.image1(rig.scene());
  auto const rays0 = rig.stereo.getCameraModel0().undistortPoints(pixels0);
  auto const rays1 = rig.stereo.getCameraModel1().undistortPoints(pixels1);
  auto const at = [](cv::Mat const& map, CameraModel const& camera, cv::Matx33d const& turn, cv::Point2f ray,
                     cv::Point2f pixel) {
    cv::Matx33d const K = camera.getK();
    cv::Vec3d const turned = K * (turn * cv::Vec3d(ray.x, ray.y, 1));
    cv::Point2d const rectified(turned[0] / turned[2], turned[1] / turned[2]);
    cv::Point const cell = rectified;
    if (cv::Rect({}, map.size() - cv::Size(1, 1)).contains(cell)) {
      // The map is smooth, so its place between pixels follows from the four around.
      auto const u = static_cast<float>(rectified.x - cell.x);
      auto const v = static_cast<float>(rectified.y - cell.y);
      cv::Vec2f const place =
          (1 - v) * ((1 - u) * map.at<cv::Vec2f>(cell) + u * map.at<cv::Vec2f>(cell + cv::Point(1, 0))) +
          v * ((1 - u) * map.at<cv::Vec2f>(cell + cv::Point(0, 1)) +
               u * map.at<cv::Vec2f>(cell + cv::Point(1, 1)));
      EXPECT_LT(cv::norm(cv::Point2f(place) - pixel), 0.002) << pixel;
    }
    return rectified;
  };
  for (std::size_t i = 0; i < pixels0.size(); ++i) {
    cv::Point2d const p0 = at(r.map0, r.camera0, r.rect0_from_cam0, rays0[i], pixels0[i]);
    cv::Point2d const p1 = at(r.map1, r.camera1, r.rect1_from_cam1, rays1[i], pixels1[i]);
    EXPECT_NEAR(r.isVertical ? p0.x : p0.y, r.isVertical ? p1.x : p1.y, 2e-3) << "one row (column)";
    double const disparity = r.isVertical ? p0.y - p1.y : p0.x - p1.x;
    cv::Vec4d const x = r.Q * cv::Vec4d(p0.x, p0.y, disparity, 1);
    cv::Vec3d const inCam0 = r.rect0_from_cam0.t() * cv::Vec3d(x[0], x[1], x[2]) / x[3];
    EXPECT_LT(cv::norm(cv::Point3d(inCam0) - rig.scene()[i]), 2e-4 * rig.scene()[i].z);
  }
  EXPECT_NEAR(r.baseline, cv::norm(math::getT3(rig.stereo.getTransform())), 1e-9);
  for (cv::Matx33d const& turn : {r.rect0_from_cam0, r.rect1_from_cam1}) {
    EXPECT_LT(cv::norm(turn * turn.t() - cv::Matx33d::eye()), 1e-12);
    EXPECT_NEAR(cv::determinant(turn), 1, 1e-12);
  }
}

TEST_F(StereoPointsTest, RectifiesASideBySidePairWhateverSideAndBelow) {
  for (cv::Matx44d const& transform :
       {cam0_from_cam1, math::createTransform(math::rotY(0.25) * math::rotZ(0.05), {-110, -8, 10}),
        math::createTransform(math::rotX(0.3), {4, 120, 20})}) {
    take(transform);
    for (auto const coverage :
         {StereoRectificationSettings::Coverage::Valid, StereoRectificationSettings::Coverage::All}) {
      SCOPED_TRACE(cv::Mat(transform));
      StereoRectificationSettings settings;
      settings.coverage = coverage;
      settings.size = {400, 300};
      StereoRectification const r = stereo.rectify(settings);
      EXPECT_EQ(r.isVertical, std::abs(transform(1, 3)) > 100);
      EXPECT_EQ(r.map0.size(), cv::Size(400, 300));
      EXPECT_EQ(r.camera1.getResolution(), cv::Size(400, 300));
      expectRectified(r, *this);
    }
  }
}

TEST_F(StereoPointsTest, RectifiedImagesShowAllOrOnlyWhatTheCamerasSee) {
  auto const share = [&](StereoRectificationSettings::Coverage coverage, int camera) {
    StereoRectificationSettings settings;
    settings.coverage = coverage;
    StereoRectification const r = stereo.rectify(settings);
    cv::Size const size = (camera == 0 ? camera0 : camera1).resolution;
    cv::Mat const white(size, CV_8U, cv::Scalar(255));
    cv::Mat image;
    cv::remap(white, image, camera == 0 ? r.map0 : r.map1, {}, cv::INTER_NEAREST);
    return std::pair(cv::countNonZero(image) / static_cast<double>(image.total()), r);
  };
  using Coverage = StereoRectificationSettings::Coverage;
  for (int camera : {0, 1}) {
    EXPECT_EQ(share(Coverage::Valid, camera).first, 1.0);
    auto const [lit, r] = share(Coverage::All, camera);
    EXPECT_GT(lit, 0.25);
    ExactCamera const& truth = camera == 0 ? camera0 : camera1;
    // Every corner of the camera's image is shown.
    auto const right = static_cast<float>(truth.resolution.width - 1);
    auto const bottom = static_cast<float>(truth.resolution.height - 1);
    CameraModel const& model = camera == 0 ? r.camera0 : r.camera1;
    for (cv::Point2f const& ray :
         truth.model().undistortPoints({{0, 0}, {right, 0}, {0, bottom}, {right, bottom}})) {
      cv::Matx33d const K = model.getK();
      cv::Matx33d const& turn = camera == 0 ? r.rect0_from_cam0 : r.rect1_from_cam1;
      cv::Vec3d const x = K * (turn * cv::Vec3d(ray.x, ray.y, 1));
      cv::Size const size = model.getResolution();
      EXPECT_TRUE(x[0] / x[2] > -0.01 && x[0] / x[2] < size.width - 0.99);
      EXPECT_TRUE(x[1] / x[2] > -0.01 && x[1] / x[2] < size.height - 0.99);
    }
  }
}

TEST_F(StereoPointsTest, RectifiesATurnOfMicroradians) {
  take(math::createTransform(math::rotY(8e-6) * math::rotX(6e-6), {100, 0, 0}));
  StereoRectification const r = stereo.rectify();
  cv::Matx33d const turn = r.rect0_from_cam0 * math::getR3(cam0_from_cam1) * r.rect1_from_cam1.t();
  EXPECT_LT(cv::norm(turn - cv::Matx33d::eye(), cv::NORM_INF), 1e-12) << "the rectified cameras are parallel";
}

TEST_F(StereoPointsTest, SaysWhatCannotBeRectified) {
  EXPECT_THROW((void)StereoCamera().rectify(), Exception);
  StereoRectificationSettings settings;
  settings.size = {1, 40000};
  EXPECT_THROW((void)stereo.rectify(settings), Exception);
  stereo.setTransform(cv::Matx44d::eye());
  EXPECT_THROW((void)stereo.rectify(), Exception) << "no base";
  stereo.setTransform(math::createTransform(math::rotY(2.5), {100, 0, 0}));
  EXPECT_THROW((void)stereo.rectify(), Exception) << "back to back";
}

} // namespace
} // namespace vorn::mv
