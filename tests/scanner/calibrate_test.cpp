// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <limits>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/calib/calibration_covariance.hpp>
#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/scanner/calibrate_camera.hpp>
#include <vorn/mv/scanner/calibrate_scanner.hpp>

#include "scanner/projector_axis.hpp"
#include "scanner/rendered_view.hpp"
#include "support/expect_error.hpp"
#include "support/watching.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

constexpr int viewCount = 4;

/// Views of the demonstration's target, rendered once.
std::vector<ScannerView> const& renderedViews() {
  static std::vector<ScannerView> const views = [] {
    Library::init();
    std::vector<ScannerView> result;
    for (int i = 0; i < viewCount; ++i) {
      result.push_back(test::renderedView(
          test::halfRig(), sim::demoTargetPoses()[static_cast<std::size_t>(i)], "view " + std::to_string(i)));
    }
    return result;
  }();
  return views;
}

nlohmann::json written(IJsonSerializable const& object) {
  nlohmann::json json;
  object.write(json);
  return json;
}

TEST(CalibrateScanner, RecoversTheRigWithItsResiduals) {
  ScannerCalibration const calibration = calibrateScanner(renderedViews(), test::halfRigSettings());
  cv::Matx44d const found = calibration.object.getTransform();
  cv::Vec3d const base(found(0, 3), found(1, 3), found(2, 3));
  EXPECT_LT(cv::norm(base - test::halfRig().projector.world_from_proj.translation), 2.0) << "mm of 200";
  EXPECT_TRUE(calibration.report.isProjectorGuessed);
  // The projector has 456 x 285 pixels: this is the least usual size that shows them.
  EXPECT_EQ(calibration.report.devices.at(1).resolution, cv::Size(480, 320));
  for (CalibratedView const& view : calibration.views) {
    EXPECT_TRUE(view.isUsed()) << view.reason;
    for (ViewPoints const& device : view.devices) {
      EXPECT_EQ(device.residuals.size(), device.imgPnts.size());
      EXPECT_LT(rms(device.residuals), 0.1);
      EXPECT_GT(rms(device.residuals), 0.0);
    }
    std::vector<cv::Point2f> const& sigmas = view.devices[1].sigmas;
    ASSERT_EQ(sigmas.size(), view.devices[1].imgPnts.size());
    for (cv::Point2f const& sigma : sigmas) {
      EXPECT_TRUE(sigma.x > 1e-4 && sigma.x < 0.03 && sigma.y > 1e-4 && sigma.y < 0.03) << sigma;
    }
  }
}

TEST(CalibrateScanner, ThreadsDoNotMatter) {
  int const threads = cv::getNumThreads();
  cv::setNumThreads(1);
  ScannerCalibration const alone = calibrateScanner(renderedViews(), test::halfRigSettings());
  cv::setNumThreads(4);
  ScannerCalibration const together = calibrateScanner(renderedViews(), test::halfRigSettings());
  cv::setNumThreads(threads);
  EXPECT_EQ(written(alone.object), written(together.object));
  EXPECT_EQ(toJson(alone), toJson(together));
}

/// The image with its upper and lower rows moved to the right by up to three pixels: what no pose explains.
cv::Mat bent(cv::Mat const& image) {
  cv::Mat result = image.clone();
  for (int y = 0; y < image.rows; ++y) {
    double const place = 2.0 * y / image.rows - 1.0;
    int const shift = cvRound(3.0 * place * place);
    image.row(y).colRange(0, image.cols - shift).copyTo(result.row(y).colRange(shift, image.cols));
  }
  return result;
}

TEST(CalibrateScanner, LeavesOutTheViewWhoseErrorStandsOut) {
  std::vector<ScannerView> views = renderedViews();
  // The projector was moved in one view: every coordinate is off by some pixels, which a pose cannot explain.
  views.push_back(views[2]);
  for (cv::Mat& image : views.back().columns) {
    image = bent(image);
  }
  CalibrationSettings keeping = test::halfRigSettings();
  keeping.isAdjusted = false; // or the diagnosis names the view too
  keeping.outlierRatio = std::numeric_limits<double>::infinity();
  ScannerCalibration const all = calibrateScanner(views, keeping);
  EXPECT_TRUE(all.views.back().isUsed());
  double const worst = rms(all.views.back().devices[1].residuals);
  double const middle = rms(all.views[2].devices[1].residuals);
  ASSERT_GT(worst, 0.2);

  // Five times the middle error is left out at a limit of three, and not at one above.
  ScannerCalibration const some = calibrateScanner(views, test::halfRigSettings());
  EXPECT_NE(some.views.back().reason.find("projector's reprojection error is "), std::string::npos);
  EXPECT_LT(some.report.devices[1].rms, all.report.devices[1].rms / 2);
  keeping.outlierRatio = 2 * worst / middle;
  EXPECT_TRUE(calibrateScanner(views, keeping).views.back().isUsed());
}

TEST(CalibrateScanner, ViewsThatDoNotServeSayWhy) {
  std::vector<ScannerView> views = renderedViews();
  views.resize(viewCount + 6);
  for (std::size_t i = viewCount; i < views.size(); ++i) {
    views[i] = views[0];
    views[i].name = "bad " + std::to_string(i - viewCount);
  }
  views[viewCount].target = cv::Mat(views[0].target.size(), CV_8U, cv::Scalar(60));
  views[viewCount + 1].columns.clear();
  views[viewCount + 2].target = views[0].target.colRange(0, 500);
  views[viewCount + 3].rows = std::vector<cv::Mat>(views[0].rows.begin(), views[0].rows.begin() + 5);
  for (cv::Mat& image : views[viewCount + 4].columns) {
    image = image.colRange(0, 600);
  }
  for (cv::Mat& image : views[viewCount + 5].rows) {
    image = image.rowRange(0, 400);
  }
  ScannerCalibration const calibration = calibrateScanner(views, test::halfRigSettings());
  auto const reason = [&](std::size_t i) { return calibration.views[viewCount + i].reason; };
  EXPECT_NE(reason(0).find("no target found"), std::string::npos) << reason(0);
  EXPECT_NE(reason(1).find("no images of the columns"), std::string::npos) << reason(1);
  EXPECT_NE(reason(2).find("the target image is 500 x 480, the first view's 640 x 480"), std::string::npos)
      << reason(2);
  EXPECT_NE(reason(3).find("Insufficient input patterns"), std::string::npos) << reason(3);
  EXPECT_EQ(reason(4), "the images of the columns are 600 x 480, the target image 640 x 480");
  EXPECT_EQ(reason(5), "the images of the rows are 640 x 400, the target image 640 x 480");
  EXPECT_EQ(calibration.views[0].reason, "");
  views.erase(views.begin() + 2, views.begin() + viewCount);
  expectError([&] { calibrateScanner(views, test::halfRigSettings()); },
              "Only 2 of 8 views can be used, and a calibration takes 3; bad 0: no target found");
}

TEST(CalibrateScanner, ViewsWhoseImagesContradictEachOtherAreLeftOutAndTheImagesNamed) {
  std::vector<ScannerView> views = renderedViews();
  views.resize(viewCount + 3, views[1]);
  std::swap(views[viewCount].columns[1], views[viewCount].columns[2]);
  views[viewCount + 1].rows[5] = views[1].rows[6];
  views[viewCount + 2].columns.back() = views[1].columns[views[1].columns.size() - 2];
  ScannerCalibration const calibration = calibrateScanner(views, test::halfRigSettings());
  for (std::size_t i = 0; i < viewCount; ++i) {
    EXPECT_TRUE(calibration.views[i].isUsed()) << calibration.views[i].reason;
  }
  auto const says = [&](std::size_t i, char const* text) {
    std::string const& reason = calibration.views[viewCount + i].reason;
    EXPECT_NE(reason.find(text), std::string::npos) << reason;
  };
  for (char const* text : {"image 1 ", "image 2 ", "along columns"}) {
    says(0, text);
  }
  for (char const* text : {"image 5 ", "image 6 ", "along rows", "are the same"}) {
    says(1, text);
  }
  for (char const* text : {"image 9 ", "image 10 ", "along columns", "are the same"}) {
    says(2, text);
  }
}

TEST(CalibrateScanner, TakesViewsOneByOne) {
  std::vector<std::string> names;
  for (ScannerView const& view : renderedViews()) {
    names.push_back(view.name);
  }
  names.emplace_back("unreadable");
  auto const source = [&](std::size_t i) {
    if (i == viewCount) {
      throw Exception("the disk is gone", nullptr, 0, "test");
    }
    return renderedViews()[i];
  };
  ScannerCalibration const calibration = calibrateScanner(names, source, test::halfRigSettings());
  EXPECT_EQ(calibration.views.back().reason, "the disk is gone");
  EXPECT_EQ(written(calibration.object),
            written(calibrateScanner(renderedViews(), test::halfRigSettings()).object));
}

TEST(CalibrateScanner, StopsWhenAskedTo) {
  // Some stops in each stage: to try all of them takes long.
  for (int const questions : {0, 1, 7, 20, 40}) {
    vorn::test::Watching observer(questions);
    EXPECT_THROW(calibrateScanner(renderedViews(), test::halfRigSettings(), &observer), Cancelled);
    EXPECT_EQ(observer.asked, questions + 1);
  }
  struct : vorn::test::Watching {
    bool onProgress(std::string_view stage, double place) override {
      askedInViews += place < 0.9 ? 1 : 0;
      return Watching::onProgress(stage, place);
    }
    int askedInViews = 0;
  } observer;
  calibrateScanner(renderedViews(), test::halfRigSettings(), &observer);
  EXPECT_EQ(observer.fraction, 1.0);
  constexpr int stepsOfView = 4;
  EXPECT_GT(observer.askedInViews, 4 * stepsOfView * viewCount) << "within the decoding of single views too";
}

TEST(CalibrateScanner, RefusesSettingsOutOfRange) {
  CalibrationSettings bad = test::halfRigSettings();
  bad.projector = {640, 0};
  expectError([&] { calibrateScanner(renderedViews(), bad); },
              "projector is [640 x 0], but must be 16 to 8192");
  bad = test::halfRigSettings();
  bad.outlierRatio = 0.5;
  expectError([&] { calibrateScanner(renderedViews(), bad); }, "outlierRatio is 0.5, but must be 1 or more");
  bad = test::halfRigSettings();
  bad.outlierError = std::numeric_limits<double>::quiet_NaN();
  expectError([&] { calibrateScanner(renderedViews(), bad); }, "outlierError is nan, but must be 0 or more");
}

TEST(GuessedProjector, IsTheLeastUsualSizeThatShowsWhatWasDecodedInAsManyImages) {
  auto const guess = [](cv::Size const& truth, float unseen) {
    auto const images = [](int extent, sl::StripeCode const& code) {
      return static_cast<std::size_t>(sl::StripeCode::images(code.generatedPlanes(extent)));
    };
    return guessProjector({static_cast<float>(truth.width) - unseen, images(truth.width, sl::columnCode)},
                          {static_cast<float>(truth.height) - unseen, images(truth.height, sl::rowCode)});
  };
  for (cv::Size const usual : {cv::Size(912, 570), cv::Size(1280, 800), cv::Size(1920, 1080)}) {
    EXPECT_EQ(guess(usual, 3), usual);
  }
  EXPECT_EQ(guess({1280, 800}, 100), cv::Size(1280, 720)) << "the part that nobody saw cannot be known";
  EXPECT_EQ(guess({700, 590}, 1), cv::Size(800, 600));
  EXPECT_EQ(guess({5000, 3000}, 1), cv::Size(5000, 3000)) << "in whole eighths where none is usual";
}

TEST(CalibrateCamera, NeedsNoMarkers) {
  std::vector<CameraView> views;
  for (ScannerView const& view : renderedViews()) {
    views.push_back({view.name, view.target});
  }
  CameraCalibration const calibration = calibrateCamera(views, test::halfRigSettings());
  cv::Mat const K = calibration.object.getK();
  EXPECT_NEAR(K.at<double>(0, 0) / test::halfRig().camera.device.focal().x, 1, 5e-3);
  EXPECT_EQ(calibration.report.devices.size(), 1U);
  EXPECT_FALSE(toJson(calibration).contains("rotationDefect"));
}

// A camera that was calibrated elsewhere is kept, and only its error on these images is new.
TEST(CalibrateScanner, KeepsACameraThatIsGivenAndHeld) {
  CalibrationSettings settings = test::halfRigSettings();
  CameraModel const own = calibrateScanner(renderedViews(), settings).object.getCameraModel();
  cv::Matx33d K = own.getK();
  cv::Mat_<double> D(8, 1, 0.0);
  own.getD().reshape(1, 5).copyTo(D.rowRange(0, 5));
  K(0, 2) += 1e-6;
  CameraModel given;
  given.read({{"Resolution", cv::Size()}, {"K", K}, {"D", cv::Mat(D)}, {"Error", -1}});
  settings.camera = given;
  settings.adjustment.holdCamera0 = true;
  ScannerCalibration const held = calibrateScanner(renderedViews(), settings);
  CameraModel const& camera = held.object.getCameraModel();
  EXPECT_EQ(cv::norm(camera.getK(), cv::Mat(K)), 0);
  EXPECT_EQ(camera.getD().total(), 8U);
  EXPECT_EQ(camera.getResolution(), renderedViews()[0].target.size());
  EXPECT_DOUBLE_EQ(camera.getCalibError(), held.report.devices[0].rms);
  EXPECT_EQ(held.object.getCovariance().sigmaOf("fx0"), 0);
  EXPECT_GT(held.object.getCovariance().sigmaOf("fx1"), 0);

  settings.adjustment.holdCamera0 = false;
  ScannerCalibration const free = calibrateScanner(renderedViews(), settings);
  EXPECT_NE(free.object.getCameraModel().getK().at<double>(0, 0), K(0, 0));

  nlohmann::json other = written(given);
  other["K"]["data"][0] = 1.02 * K(0, 0);
  other["K"]["data"][4] = 1.02 * K(1, 1);
  settings.adjustment.holdCamera0 = true;
  settings.camera->read(other);
  expectError([&] { (void)calibrateScanner(renderedViews(), settings); }, "does not fit the views");
  settings.camera->setResolution({1000, 750});
  expectError([&] { (void)calibrateScanner(renderedViews(), settings); }, "1000 x 750");
  settings.camera1 = given;
  expectError([&] { (void)calibrateScanner(renderedViews(), settings); }, "second camera");
  settings.camera1.reset();
  settings.isAdjusted = false;
  expectError([&] { (void)calibrateScanner(renderedViews(), settings); }, "isAdjusted");
  settings = test::halfRigSettings();
  settings.camera = CameraModel();
  expectError([&] { (void)calibrateScanner(renderedViews(), settings); }, "not calibrated");
}

} // namespace
} // namespace vorn::mv
