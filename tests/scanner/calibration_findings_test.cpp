// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/scanner/calibrate_scanner.hpp>

#include "scanner/rendered_view.hpp"
#include "support/expect_error.hpp"

namespace vorn::mv {
namespace {

using vorn::test::expectError;

constexpr int viewCount = 6;

sim::Pose poseOf(int view) {
  return sim::demoTargetPoses()[static_cast<std::size_t>(view)];
}

/// Views of a clean rig, rendered once.
std::vector<ScannerView> const& cleanViews() {
  static std::vector<ScannerView> const views = [] {
    Library::init();
    std::vector<ScannerView> result;
    for (int i = 0; i < viewCount; ++i) {
      result.push_back(test::renderedView(test::halfRig(), poseOf(i), "pose_0" + std::to_string(i)));
    }
    return result;
  }();
  return views;
}

/// The causes found, but for those that speak of a set as small as this.
std::vector<std::string> causesOf(ScannerCalibration const& calibration) {
  std::vector<std::string> causes;
  for (Finding const& finding : calibration.report.findings) {
    if (finding.cause != FindingCause::Coverage) {
      causes.push_back(nameOf(finding.cause));
    }
  }
  return causes;
}

/// Changes all images of a view's sequences, in floats, and its target image where that is wanted.
void change(ScannerView& view, std::function<void(cv::Mat& image, int number)> const& changeImage,
            bool isTargetToo = false) {
  auto const applied = [&](cv::Mat& image, int number) {
    cv::Mat changed;
    image.convertTo(changed, CV_32F);
    changeImage(changed, number);
    changed.convertTo(image, CV_8U);
  };
  for (std::vector<cv::Mat>* sequence : {&view.columns, &view.rows}) {
    for (std::size_t k = 0; k < sequence->size(); ++k) {
      cv::Mat own = (*sequence)[k].clone();
      applied(own, static_cast<int>(k));
      (*sequence)[k] = own;
    }
  }
  if (isTargetToo) {
    cv::Mat own = view.target.clone();
    applied(own, 0);
    view.target = own;
  }
}

TEST(CalibrationFindings, CleanViewsHaveNone) {
  ScannerCalibration const calibration = calibrateScanner(cleanViews(), test::halfRigSettings());
  EXPECT_EQ(causesOf(calibration), std::vector<std::string>());
  EXPECT_EQ(calibration.report.notAdjusted, "");
  ASSERT_TRUE(calibration.report.adjustment);
  EXPECT_NEAR(calibration.report.adjustment->s0, 1, 0.3);
  ASSERT_EQ(calibration.report.deviations.size(), static_cast<std::size_t>(viewCount));
  for (TransformDeviation const& deviation : calibration.report.deviations) {
    EXPECT_LT(deviation.chi2, 10);
  }
  // Better than each device by itself, whose base is off by up to 2 mm.
  cv::Matx44d const found = calibration.object.getTransform();
  cv::Vec3d const base(found(0, 3), found(1, 3), found(2, 3));
  EXPECT_LT(cv::norm(base - test::halfRig().projector.world_from_proj.translation), 0.5);
}

/// A fault of the images of one view and what it is called.
struct ImageFault {
  char const* cause;
  std::function<void(ScannerView&)> apply;
};

/// Every image as a projector or camera of gamma 2 would give it.
void bendLight(ScannerView& view) {
  change(view, [](cv::Mat& image, int) {
    image /= 255;
    cv::pow(image, 0.5, image);
    image *= 255;
  });
}

std::vector<ImageFault> imageFaults() {
  return {
      {"gamma", bendLight},
      {"flicker",
       [](ScannerView& view) {
         change(view, [](cv::Mat& image, int k) { image *= k % 2 == 0 ? 1.03 : 0.97; });
       }},
      {"bands",
       [](ScannerView& view) {
         change(view, [](cv::Mat& image, int k) {
           for (int y = 0; y < image.rows; ++y) {
             image.row(y) *= 1 + 0.08 * std::sin(0.06 * y + 1.9 * k);
           }
         });
       }},
      {"overexposed", [](ScannerView& view) { change(view, [](cv::Mat& image, int) { image *= 1.9; }); }},
      {"targetOverexposed", [](ScannerView& view) { view.target = cv::Mat(view.target * 2); }},
      {"tooDark", [](ScannerView& view) { change(view, [](cv::Mat& image, int) { image *= 0.1; }); }},
      {"cameraBlurred",
       [](ScannerView& view) {
         change(
             view, [](cv::Mat& image, int) { cv::GaussianBlur(image, image, cv::Size(), 2); }, true);
       }},
      {"roomLight",
       [](ScannerView& view) { change(view, [](cv::Mat& image, int) { image = image * 0.6 + 90; }); }},
      {"projectorBlurred",
       [](ScannerView& view) {
         // What a blur along the columns' fringes leaves of their amplitude.
         cv::Mat mean = cv::Mat::zeros(view.target.size(), CV_32F);
         for (std::size_t k = 0; k < 4; ++k) {
           cv::accumulateWeighted(view.columns[k], mean, 1.0 / static_cast<double>(k + 1));
         }
         for (std::size_t k = 0; k < 4; ++k) {
           cv::Mat changed;
           cv::Mat image;
           view.columns[k].convertTo(image, CV_32F);
           cv::addWeighted(image, 0.3, mean, 0.7, 0, changed, CV_8U);
           view.columns[k] = changed;
         }
       }},
  };
}

TEST(CalibrationFindings, NameWhatIsWrongWithTheImages) {
  for (ImageFault const& fault : imageFaults()) {
    std::vector<ScannerView> views(cleanViews().begin(), cleanViews().begin() + 4);
    for (cv::Mat& image : views[2].columns) {
      image = image.clone();
    }
    fault.apply(views[2]);
    ScannerCalibration const calibration = calibrateScanner(views, test::halfRigSettings());
    auto const found =
        std::find_if(calibration.report.findings.begin(), calibration.report.findings.end(),
                     [&](Finding const& finding) { return nameOf(finding.cause) == fault.cause; });
    ASSERT_NE(found, calibration.report.findings.end()) << fault.cause << " " << calibration.views[2].reason;
    EXPECT_EQ(found->view, 2) << fault.cause;
    EXPECT_NE(found->text.find("pose_02"), std::string::npos) << found->text;
    EXPECT_EQ(std::count_if(calibration.report.findings.begin(), calibration.report.findings.end(),
                            [](Finding const& finding) { return finding.cause >= FindingCause::Gamma; }),
              1)
        << fault.cause << toJson(calibration)["findings"].dump(1);
  }
}

/// The finding of a cause; none when there is none.
Finding const* findingOf(ScannerCalibration const& calibration, FindingCause cause) {
  auto const& findings = calibration.report.findings;
  auto const found = std::find_if(findings.begin(), findings.end(),
                                  [cause](Finding const& finding) { return finding.cause == cause; });
  return found == findings.end() ? nullptr : &*found;
}

/// A pose a little beside another, by a third of a millimetre: three quarters of a camera pixel.
sim::Pose movedPose(sim::Pose pose) {
  pose.translation += cv::Vec3d(0.3, 0.2, 0);
  return pose;
}

TEST(CalibrationFindings, ViewsWhoseTargetMovedAreNamedAndLeftOut) {
  ScannerView const moved = test::renderedView(test::halfRig(), movedPose(poseOf(3)), "moved");
  std::vector<ScannerView> before = cleanViews();
  before[3].columns = moved.columns;
  before[3].rows = moved.rows;
  std::vector<ScannerView> between = cleanViews();
  between[3].rows = moved.rows;
  for (auto const& [cause, views] :
       {std::pair(FindingCause::MovedBefore, before), std::pair(FindingCause::MovedBetween, between)}) {
    ScannerCalibration const calibration = calibrateScanner(views, test::halfRigSettings());
    Finding const* const finding = findingOf(calibration, cause);
    ASSERT_NE(finding, nullptr) << nameOf(cause);
    EXPECT_EQ(finding->view, 3);
    EXPECT_NEAR(finding->value, 0.37, 0.2) << "camera pixels";
    EXPECT_NE(calibration.views[3].reason.find("the target moved between"), std::string::npos);
    EXPECT_EQ(calibration.report.adjustment->views.size(), static_cast<std::size_t>(viewCount) - 1);
    EXPECT_LT(calibration.report.adjustment->s0, 1.3);

    CalibrationSettings keeping = test::halfRigSettings();
    keeping.outlierRatio = std::numeric_limits<double>::infinity();
    EXPECT_TRUE(calibrateScanner(views, keeping).views[3].isUsed());
  }
}

TEST(CalibrationFindings, ProjectorPointsOfAnotherPoseAreNamed) {
  // Each device by itself is content; the mean of the transforms is not one.
  std::vector<ScannerView> views = cleanViews();
  ScannerView const other = test::renderedView(test::halfRig(), poseOf(7), "other");
  views[1].target = other.target;
  views[1].columns = cleanViews()[1].columns;
  ScannerCalibration const calibration = calibrateScanner(views, test::halfRigSettings());
  EXPECT_NE(
      calibration.views[1].reason.find("moved between the target image and the columns by a pixel and more"),
      std::string::npos)
      << calibration.views[1].reason;
  EXPECT_EQ(std::count_if(calibration.views.begin(), calibration.views.end(),
                          [](CalibratedView const& view) { return view.isUsed(); }),
            viewCount - 1);
}

/// The clean views but for one that a fault spoils.
std::vector<ScannerView> viewsWith(std::string const& fault, std::size_t view) {
  sim::Campaign campaign = sim::plannedCampaign(test::halfRig(), sim::demoTarget(), sim::demoTargetPoses());
  campaign.views.resize(viewCount);
  spoil(campaign, sim::faultOf(fault + "@" + std::to_string(view)));
  std::vector<ScannerView> views = cleanViews();
  views[view] = test::renderedView(campaign, view);
  return views;
}

TEST(CalibrationFindings, MirroredViewsAreNamedAndLeftOut) {
  for (char const* fault : {"mirrored-projector", "mirrored-camera"}) {
    ScannerCalibration const calibration = calibrateScanner(viewsWith(fault, 2), test::halfRigSettings());
    EXPECT_EQ(causesOf(calibration), std::vector<std::string>{"mirrored"}) << fault;
    ASSERT_FALSE(calibration.report.findings.empty());
    EXPECT_EQ(calibration.report.findings[0].view, 2);
    EXPECT_EQ(calibration.views[2].reason, "the images of the camera or of the projector are mirrored");
    ASSERT_TRUE(calibration.report.adjustment);
    EXPECT_EQ(calibration.report.adjustment->views.size(), static_cast<std::size_t>(viewCount) - 1);
    EXPECT_LT(calibration.report.adjustment->s0, 1.3);
  }
}

TEST(CalibrationFindings, WhatIsRenderedIntoOneViewIsNamed) {
  for (auto const& [fault, cause] : {std::pair("mixed-view", FindingCause::MovedBefore),
                                     std::pair("moved-during=1.5", FindingCause::MovedDuring),
                                     std::pair("staircase", FindingCause::Staircase)}) {
    ScannerCalibration const calibration = calibrateScanner(viewsWith(fault, 4), test::halfRigSettings());
    Finding const* const finding = findingOf(calibration, cause);
    ASSERT_NE(finding, nullptr) << fault << toJson(calibration)["findings"].dump(1);
    EXPECT_EQ(finding->view, 4) << fault;
  }
}

TEST(CalibrationFindings, WhatFollowsFromAFaultIsNoSecondOne) {
  for (auto const& [fault, cause] :
       {std::pair("moved-during", "movedDuring"), std::pair("bands=12", "bands"),
        std::pair("room-light", "roomLight"), std::pair("overexposed", "overexposed")}) {
    ScannerCalibration const calibration = calibrateScanner(viewsWith(fault, 4), test::halfRigSettings());
    EXPECT_EQ(causesOf(calibration), std::vector<std::string>{cause})
        << fault << toJson(calibration)["findings"].dump(1) << toJson(calibration)["views"][4].dump(1);
    ASSERT_FALSE(calibration.report.findings.empty());
    EXPECT_EQ(calibration.report.findings[0].view, 4) << fault;
  }
}

/// Figures of rendered views, columns and rows.
ViewFigures figuresOfView(cv::Vec4d const& columns, cv::Vec4d const& rows) {
  ViewFigures figures;
  for (auto const& [sequence, of] : {std::pair(&figures.columns, columns), std::pair(&figures.rows, rows)}) {
    sequence->secondHarmonic = of[0];
    sequence->amplitude = of[1];
    sequence->contrast = of[2];
    sequence->staircase = of[3];
  }
  figures.cameraBlur = 0.79;
  return figures;
}

TEST(CalibrationFindings, FringesThatAProjectorOutOfFocusWipesOutTellNothingElse) {
  constexpr double untold = SequenceFigures::untold;
  std::vector<std::pair<ViewFigures, std::vector<std::string>>> const cases = {
      {figuresOfView({0.000, 31.98, 0.381, 0.0006}, {0.001, 57.87, 0.723, 0.0004}), {}},
      {figuresOfView({0.127, 0.71, 0.010, untold}, {0.001, 7.43, 0.090, 0.0016}), {"projectorBlurred"}},
      {figuresOfView({0.122, 0.71, 0.010, untold}, {0.085, 2.06, 0.052, 0.0978}), {"projectorBlurred"}},
      {figuresOfView({0.120, 0.71, 0.010, untold}, {0.090, 0.80, 0.011, untold}), {"projectorBlurred"}},
      {figuresOfView({untold, untold, untold, untold}, {0.001, 8.61, 0.084, 0.001}), {"projectorBlurred"}},
      {figuresOfView({untold, untold, untold, untold}, {0.001, 1.20, 0.540, 0.001}), {}},
      {figuresOfView({0.003, 3.04, 0.283, 0.0002}, {0.001, 5.70, 0.540, 0.0011}), {"tooDark"}},
      {figuresOfView({0.030, 0.90, 0.283, 0.0002}, {0.010, 1.70, 0.540, 0.0011}), {"gamma", "tooDark"}},
      {figuresOfView({0.002, 10.4, 0.075, 0.0003}, {0.001, 19.2, 0.141, 0.0010}), {"roomLight"}},
      {figuresOfView({0.042, 32.0, 0.510, 0.0007}, {0.144, 57.3, 0.957, 0.0003}), {"gamma"}},
  };
  for (auto const& [figures, causes] : cases) {
    std::vector<std::string> named;
    for (Finding const& finding : diagnoseImages({{"pose_00", figures}})) {
      named.push_back(nameOf(finding.cause));
    }
    EXPECT_EQ(named, causes) << figures.columns.amplitude << ' ' << figures.rows.amplitude;
  }
}

/// The causes that are found in figures.
std::vector<std::string> causesIn(ViewFigures const& figures) {
  std::vector<std::string> named;
  for (Finding const& finding : diagnoseImages({{"pose_00", figures}})) {
    named.push_back(nameOf(finding.cause));
  }
  return named;
}

// Bands are no contradiction of the images, which would leave the view out without a word of them; and light
// that changes from image to image, and leaves rows of fringes unlike each other, is no bands.
TEST(CalibrationFindings, BandsAndFlickerOfRealSequencesAreToldApart) {
  std::vector<ScannerView> views = cleanViews();
  change(views[2], [](cv::Mat& image, int number) {
    constexpr double depth = 0.16;
    double const phase = 2.6 * number * number; // elsewhere in every image
    for (int y = 0; y < image.rows; ++y) {
      image.row(y) *= 1 + depth * std::sin(CV_2PI * y / 52 + phase);
    }
  });
  change(views[4], [](cv::Mat& image, int number) {
    constexpr double factors[] = {1.04, 0.97, 0.96, 1.01, 0.99, 1.03};
    image *= factors[number % 6];
  });
  ScannerCalibration const calibration = calibrateScanner(views, test::halfRigSettings());
  EXPECT_EQ(causesOf(calibration), (std::vector<std::string>{"flicker", "bands"}));
  for (Finding const& finding : calibration.report.findings) {
    EXPECT_TRUE(finding.cause != FindingCause::Bands || finding.view == 2) << finding.view;
    EXPECT_TRUE(finding.cause != FindingCause::Flicker || finding.view == 4) << finding.view;
  }
  EXPECT_EQ(calibration.views[2].reason.find("steps"), std::string::npos) << calibration.views[2].reason;
}

TEST(CalibrationFindings, FlickerIsToldFromBands) {
  struct Case {
    double flicker, bands, depth;
    std::vector<std::string> causes;
  };
  for (Case const& of : {Case{0.0046, 17.4, 0.02, {"bands"}}, Case{0.035, 1.0, 0.0002, {"flicker"}},
                         Case{0.035, 6.0, 0.004, {"flicker", "bands"}}, Case{0.002, 4.0, 0.001, {}}}) {
    ViewFigures figures = figuresOfView({0.001, 32.0, 0.38, 0.0006}, {0.001, 57.9, 0.72, 0.0004});
    figures.rows.flicker = of.flicker;
    figures.rows.bands = of.bands;
    figures.rows.bandDepth = of.depth;
    EXPECT_EQ(causesIn(figures), of.causes) << of.flicker;
  }
}

TEST(CalibrationFindings, CreepingIsToldFromSteps) {
  struct Case {
    double before, between, creep;
    std::vector<std::string> causes;
  };
  for (Case const& of :
       {Case{0.06, 0.235, 0.024, {"movedDuring"}}, Case{0.001, 0.43, 0.002, {"movedBetween"}},
        Case{0.43, 0.002, 0.003, {"movedBefore"}}, Case{0.9, 0.8, 0.02, {"movedBefore"}},
        Case{0.01, 0.02, 0.02, {}}}) {
    ViewFigures figures = figuresOfView({0.001, 32.0, 0.38, 0.0006}, {0.001, 57.9, 0.72, 0.0004});
    figures.movedBefore = of.before;
    figures.movedBetween = of.between;
    figures.columns.creep = of.creep;
    EXPECT_EQ(causesIn(figures), of.causes) << of.before << ' ' << of.between;
  }
}

TEST(CalibrationFindings, MovedProjectorIsRefusedWithItsView) {
  sim::Rig turned = test::halfRig();
  cv::Matx33d R;
  cv::Rodrigues(cv::Vec3d(0, 0.1 * CV_PI / 180, 0), R);
  turned.projector.world_from_proj.rotation = turned.projector.world_from_proj.rotation * R;
  std::vector<ScannerView> views = cleanViews();
  for (int i = 3; i < viewCount; ++i) {
    views[static_cast<std::size_t>(i)] = test::renderedView(turned, poseOf(i), "pose_0" + std::to_string(i));
  }
  expectError([&] { calibrateScanner(views, test::halfRigSettings()); }, "A device moved before pose_03");
  CalibrationSettings keeping = test::halfRigSettings();
  keeping.isRefused = false;
  ScannerCalibration const kept = calibrateScanner(views, keeping);
  Finding const* const finding = findingOf(kept, FindingCause::DeviceMoved);
  ASSERT_NE(finding, nullptr);
  EXPECT_EQ(finding->view, 3);
  EXPECT_TRUE(finding->isGrave);
}

TEST(CalibrationFindings, SeparateDevicesAreAsBefore) {
  CalibrationSettings separate = test::halfRigSettings();
  separate.isAdjusted = false;
  ScannerCalibration const calibration = calibrateScanner(cleanViews(), separate);
  EXPECT_FALSE(calibration.report.adjustment);
  EXPECT_TRUE(calibration.report.findings.empty());
  EXPECT_FALSE(toJson(calibration).contains("adjustment"));
}

} // namespace
} // namespace vorn::mv
