// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/mv/calib/laser_line.hpp>
#include <vorn/mv/core/library.hpp>
#include <vorn/mv/geometry/plane3f.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "sim/laser.hpp"
#include "sim/sensor.hpp"
#include "support/expect_error.hpp"
#include "support/temporary_folder.hpp"
#include "support/tool_run.hpp"
#include "tools/calibration/calibration_report.hpp"
#include "tools/calibration/folder_calibration.hpp"
#include "tools/files/cloud_files.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/json_file.hpp"
#include "tools/scan/laser_folder.hpp"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;

constexpr int viewCount = 5;
constexpr int positions = 3;
cv::Vec3d const stageStep(0, 4, 1);

/// A surface without edges, so that nothing but noise moves the stripes.
sim::Object tiltedPlate() {
  sim::Object plate;
  plate.shape = sim::Rectangle{{300, 300}};
  plate.world_from_object = sim::Pose::fromDegrees({0, 0, 570}, {8, -12, 0});
  plate.material.albedo = 0.6;
  return plate;
}

/// Two lasers: folders of target views and of a scan, rendered once.
class LaserSession : public testing::Test {
protected:
  static void SetUpTestSuite() {
    mv::Library::init();
    folder = new TemporaryFolder;
    std::vector<sim::Pose> poses = sim::demoTargetPoses();
    poses.resize(viewCount);
    sim::FolderOptions options;
    options.truth = false;
    options.render.supersample = 2; // a stripe is three times as wide as half a pixel
    sim::writeLaserCalibrationFolder(*folder / "calib", rig(), sim::demoTarget(), poses, options);
    sim::writeLaserScanFolder(*folder / "scan", rig(), sim::Scene({tiltedPlate()}), {stageStep, positions},
                              options);
    sim::writeLaserTruth(*folder / "laser.json", rig());
  }
  static void TearDownTestSuite() { delete folder; }

  static sim::LaserRig rig() {
    sim::LaserRig rig = sim::demoLaserRig(2);
    rig.lasers.push_back(sim::laserTowards({-10, -190, 20}, {0, 50, 560}, {1, -0.03, 0}));
    rig.lasers[1].sigma = 0.7;
    return rig;
  }

  static mv::CalibrationSettings settings() {
    mv::CalibrationSettings settings;
    settings.detector["PatternDim"] = 15.0;
    settings.detector["MinDotArea"] = 20.0;
    return settings;
  }

  static mv::LineScanner trueScanner() {
    mv::LineScanner scanner;
    vorn::load(*folder / "laser.json", scanner);
    return scanner;
  }

  static TemporaryFolder* folder;
};

TemporaryFolder* LaserSession::folder = nullptr;

double degreesBetween(cv::Vec3d const& a, cv::Vec3d const& b) {
  return std::asin(std::min(1.0, cv::norm(cv::normalize(a).cross(cv::normalize(b))))) * 180 / CV_PI;
}

TEST_F(LaserSession, RecoversTheLaserPlanes) {
  auto const calibration = tools::calibrateLaser(folder->path().string(), settings());
  std::vector<mv::Plane3f> const expected = trueScanner().getPlanes();
  std::vector<mv::Plane3f> const& found = calibration.object.getPlanes();
  ASSERT_EQ(found.size(), expected.size());
  nlohmann::json const report = mv::toJson(calibration);
  constexpr double mostTurn = 0.02; // degrees
  for (std::size_t p = 0; p < found.size(); ++p) {
    EXPECT_LT(degreesBetween(found[p].normal(), expected[p].normal()), mostTurn) << p;
    EXPECT_GT(report.at("planes")[p].at("points").get<int>(), 100 * viewCount) << p;
    EXPECT_LT(report.at("planes")[p].at("rms").get<double>(), 0.05) << p;
  }
  EXPECT_LT(report.at("camera").at("rms").get<double>(), 0.05);
  // Five views do not reach into all corners; nothing else is found.
  for (mv::Finding const& finding : calibration.report.findings) {
    EXPECT_EQ(finding.cause, mv::FindingCause::Coverage) << finding.text;
  }
  EXPECT_NE(tools::table(calibration).find("laser plane 1 known to"), std::string::npos);

  mv::CalibrationSettings separate = settings();
  separate.isAdjusted = false;
  auto const apart = tools::calibrateLaser(folder->path().string(), separate);
  EXPECT_FALSE(mv::toJson(apart).at("planes")[0].contains("sigma"));
  // Where the points of a line are at all.
  auto const errorOf = [&](mv::Plane3f const& plane, std::size_t p) {
    double squares = 0;
    for (double const along : {-100.0, 0.0, 100.0}) {
      for (double const depth : {540.0, 570.0, 600.0}) {
        cv::Vec3d const n(cv::Vec3f(expected[p].normal()));
        cv::Vec3d const on(cv::Vec3f(expected[p].point()));
        // The point of the true plane at this x and z.
        double const y = on[1] - (n[0] * (along - on[0]) + n[2] * (depth - on[2])) / n[1];
        squares += std::pow(plane.distance({cv::Point3f(cv::Point3d(along, y, depth))}), 2) / 9;
      }
    }
    return std::sqrt(squares);
  };
  double joint = 0;
  double alone = 0;
  for (std::size_t p = 0; p < found.size(); ++p) {
    joint += errorOf(found[p], p);
    alone += errorOf(apart.object.getPlanes()[p], p);
    EXPECT_LT(errorOf(found[p], p), 3 * calibration.report.planes[p].sigma);
  }
  EXPECT_LE(joint, alone);
}

/// The deviation of a scanned plate's points that the noise of the images explains, mm.
double explainedRms(mv::LineScanner const& scanner, fs::path const& scan, cv::Vec3d const& normal) {
  double squares = 0;
  std::size_t count = 0;
  for (int plane = 0; plane < 2; ++plane) {
    cv::Mat const image = tools::readGrayImage(tools::sequencePath(scan, "line", plane));
    for (mv::LaserPeak const& peak : mv::extract_laser_peaks(image)) {
      sim::Sensor const sensor = sim::demoLaserRig().camera.sensor;
      // Most of what places a stripe comes from its flanks, where it has 0.6 of its height.
      double const grey = sensor.blackLevel + 0.6 * static_cast<double>(peak.contrast);
      constexpr double rounding = 1.0 / 12;
      double const variance = std::pow(sim::noiseSigma(sensor, grey), 2) + rounding;
      double const place = std::sqrt(variance) / static_cast<double>(peak.contrast) *
                           std::sqrt(2 * static_cast<double>(peak.width) / std::sqrt(CV_PI));
      constexpr float shift = 0.1F;
      auto const ends = scanner.triangulate({peak.point, peak.point + cv::Point2f(0, shift)}, plane, {});
      cv::Vec3d const motion = cv::Vec3d(cv::Vec3f(ends[1] - ends[0])) / static_cast<double>(shift);
      squares += std::pow(place * motion.dot(normal), 2);
      ++count;
    }
  }
  return std::sqrt(squares / static_cast<double>(count));
}

TEST_F(LaserSession, ScansAsWellAsTheNoiseAllows) {
  mv::LineScanner const scanner = trueScanner();
  mv::LaserScanResult const scan = tools::scanLaser(*folder / "scan", scanner, {}, {});
  sim::Object const plate = tiltedPlate();
  cv::Vec3d const normal = plate.world_from_object.rotation * cv::Vec3d(0, 0, 1);
  double squares = 0;
  for (cv::Vec3f const& p : scan.cloud.points()) {
    squares += std::pow(normal.dot(cv::Vec3d(p) - plate.world_from_object.translation), 2);
  }
  double const found = std::sqrt(squares / static_cast<double>(scan.points));
  double const explained = explainedRms(scanner, *folder / "scan", normal);
  constexpr double mostExcess = 1.2;
  EXPECT_LT(found, mostExcess * explained);
  EXPECT_GT(scan.points, 2U * positions * 500U);
}

TEST_F(LaserSession, SeesABlueLaserInColourPictures) {
  TemporaryFolder const blue;
  fs::copy(*folder / "scan", blue / "scan", fs::copy_options::recursive);
  fs::copy(*folder / "calib", blue / "calib", fs::copy_options::recursive);
  for (auto const& entry : fs::recursive_directory_iterator(blue.path())) {
    std::string const path = entry.path().string();
    if (entry.path().filename().string().rfind("line_", 0) == 0) {
      cv::Mat const grey = tools::readGrayImage(path);
      cv::Mat colours;
      cv::merge(std::vector<cv::Mat>{grey, grey / 8, grey / 8}, colours);
      tools::writeImage(path, colours);
    }
  }
  mv::LineScanner const scanner = trueScanner();
  cv::Mat const fromBlue = tools::scanLaser(blue / "scan", scanner, {}, {}).cloud.points();
  cv::Mat const fromGrey = tools::scanLaser(*folder / "scan", scanner, {}, {}).cloud.points();
  ASSERT_EQ(fromBlue.size(), fromGrey.size());
  EXPECT_EQ(cv::norm(fromBlue, fromGrey, cv::NORM_INF), 0.0);
  auto const calibration = tools::calibrateLaser((blue / "calib").string(), settings());
  auto const expected = tools::calibrateLaser((*folder / "calib").string(), settings());
  EXPECT_EQ(calibration.views[0].lines[0].imgPnts, expected.views[0].lines[0].imgPnts);
}

TEST_F(LaserSession, AnEncoderTellsTheSameAsEvenSteps) {
  mv::LineScanner const scanner = trueScanner();
  mv::LaserScanResult const even = tools::scanLaser(*folder / "scan", scanner, {"0,4,1", ""}, {});
  TemporaryFolder const files;
  double const length = cv::norm(stageStep);
  std::ofstream csv(files / "places.csv");
  csv << "place in mm\n";
  nlohmann::json list;
  for (int i = 0; i < positions; ++i) {
    csv << 100 + i * length << "\n";
    list.push_back(100 + i * length); // once for each of both lines
    list.push_back(100 + i * length);
  }
  csv.close();
  tools::writeJsonFile(files / "places.json", list);
  for (char const* name : {"places.csv", "places.json"}) {
    mv::LaserScanResult const scan = tools::scanLaser(*folder / "scan", scanner, {"", files / name}, {});
    ASSERT_EQ(scan.points, even.points);
    constexpr double textDigits = 1e-3; // of the text's six digits
    EXPECT_LT(cv::norm(*(scan.cloud.points().end() - 1) - *(even.cloud.points().end() - 1)), textDigits)
        << name;
  }
}

/// The farthest that a point of a laser line on the target lies from the laser's true plane, mm.
double farthestFromPlane(mv::CalibratedView const& view, sim::Pose const& cam_from_target,
                         mv::LineScanner const& truth) {
  cv::Vec3d const normal = cam_from_target.rotation * cv::Vec3d(0, 0, 1);
  mv::Plane3f const ground(cv::Point3f(cv::Vec3f(cam_from_target.translation)), cv::Vec3f(normal));
  double farthest = 0;
  for (std::size_t line = 0; line < view.lines.size(); ++line) {
    for (cv::Point3f const& p : truth.getCameraModel().triangulate(view.lines[line].imgPnts, ground, {})) {
      farthest = std::max(farthest, static_cast<double>(truth.getPlanes()[line].distance(p)));
    }
  }
  return farthest;
}

TEST_F(LaserSession, CalibratesWithTheLineOnEvenGroundAlone) {
  TemporaryFolder spoiled;
  fs::copy(*folder / "calib", spoiled.path(), fs::copy_options::recursive);
  auto const stripe = [](cv::Mat const& image, int left, int right, int row) {
    cv::line(image, {left, row}, {right, row}, cv::Scalar(250), 2);
    cv::Mat const around = image(cv::Rect(left - 3, row - 8, right - left + 6, 16));
    cv::GaussianBlur(around, around, {0, 0}, 1);
  };
  auto const plain = tools::calibrateLaser(spoiled.path().string(), settings());
  for (std::size_t i = 0; i < plain.views.size(); ++i) {
    std::string const path = spoiled / (plain.views[i].name + "/line_00.png");
    cv::Mat const image = tools::readGrayImage(path);
    cv::Rect const dots = cv::boundingRect(plain.views[i].devices[0].imgPnts);
    int const row = cvRound(plain.views[i].lines[0].imgPnts[0].y);
    // More of the line lies on the table behind the target than on the target's ground.
    stripe(image, 5, dots.x - 5, row + 30);
    stripe(image, dots.br().x + 5, image.cols - 5, row + 30);
    // It shines on the target a second time, through a reflection.
    stripe(image, 300, 325, row - 40);
    tools::writeImage(path, image);
  }
  auto const calibration = tools::calibrateLaser(spoiled.path().string(), settings());
  mv::LineScanner const truth = trueScanner();
  // Five deviations of a stripe's noise are 0.1 pixels of 0.8 mm each; the rims of dots move it further.
  constexpr double mostDistance = 0.08;
  for (std::size_t i = 0; i < calibration.views.size(); ++i) {
    EXPECT_LT(farthestFromPlane(calibration.views[i], sim::demoTargetPoses()[i], truth), mostDistance) << i;
    EXPECT_GT(calibration.views[i].lines[0].imgPnts.size(), 100U) << i;
  }
}

TEST_F(LaserSession, NamesTheViewsThatALineMisses) {
  TemporaryFolder spoiled;
  fs::copy(*folder / "calib", spoiled.path(), fs::copy_options::recursive);
  cv::Mat const blank(rig().camera.device.resolution(), CV_8U, cv::Scalar(4));
  auto const line = [&](int view, int number) {
    return spoiled / ("pose_0" + std::to_string(view)) / ("line_0" + std::to_string(number) + ".png");
  };
  tools::writeImage(line(0, 1), blank);
  tools::writeImage(line(1, 0), blank);
  tools::writeImage(line(1, 1), blank);
  auto const calibration = tools::calibrateLaser(spoiled.path().string(), settings());
  std::string const table = tools::table(calibration);
  EXPECT_NE(table.find("pose_00: laser line 1 misses the target"), std::string::npos) << table;
  EXPECT_TRUE(calibration.views[0].isUsed());
  EXPECT_NE(table.find("pose_01         left out: laser line 0 misses the target"), std::string::npos)
      << table;
  tools::writeImage(line(3, 1), blank);
  expectError([&] { tools::calibrateLaser(spoiled.path().string(), settings()); },
              "Laser line 1 lies on the target in 2 views, and its plane takes 3; pose_00, pose_03: laser "
              "line 1 misses");
  fs::remove(line(2, 1));
  fs::remove(line(4, 0));
  std::ofstream(spoiled / "laser.json") << "old";
  ToolOutcome const outcome = run({"calibrate", "--laser", spoiled.path(), "--out", spoiled / "laser.json",
                                   "--set", "PatternDim=15", "--set", "MinDotArea=20"});
  EXPECT_EQ(outcome.status, 1);
  for (char const* part : {"Only 2 of 5 views can be used", "pose_02: it has 1 laser lines, the first view 2",
                           "pose_04: The sequence in"}) {
    EXPECT_NE(outcome.errors.find(part), std::string::npos) << outcome.errors;
  }
  EXPECT_EQ(fs::file_size(spoiled / "laser.json"), 3U);
}

TEST_F(LaserSession, NamesAViewInWhichTheTargetMoved) {
  TemporaryFolder spoiled;
  fs::copy(*folder / "calib", spoiled.path(), fs::copy_options::recursive);
  std::string const path = spoiled / "pose_03/line_00.png";
  cv::Mat const image = tools::readGrayImage(path);
  constexpr int shift = 12; // pixels
  cv::Mat moved = cv::Mat::zeros(image.size(), CV_8U);
  image.rowRange(0, image.rows - shift).copyTo(moved.rowRange(shift, image.rows));
  tools::writeImage(path, moved);
  auto const calibration = tools::calibrateLaser(spoiled.path().string(), settings());
  EXPECT_NE(tools::table(calibration).find("pose_03: laser line 0 lies off the plane"), std::string::npos)
      << tools::table(calibration);
  EXPECT_EQ(calibration.views[2].remark, "");
}

TEST_F(LaserSession, WritesAllFilesOfACalibrationOrNone) {
  TemporaryFolder const out;
  auto const calibrate = [&](std::string const& object, char const* plot) {
    return run({"calibrate", "--laser", *folder / "calib", "--out", object, "--report", out / "report.json",
                "--plot", out / plot, "--pitch", "15", "--set", "MinDotArea=20"});
  };
  EXPECT_NE(calibrate(out / "laser.json", "plot.text").errors.find("no picture format"), std::string::npos);
  EXPECT_EQ(calibrate("/dev/full", "plot.png").status, 1);
  EXPECT_TRUE(fs::is_empty(out.path()));
  ToolOutcome const good = calibrate(out / "laser.json", "plot.png");
  ASSERT_EQ(good.status, 0) << good.errors;
  mv::LineScanner scanner;
  vorn::load(out / "laser.json", scanner);
  EXPECT_TRUE(scanner.isCalibrated());
  double const distance = trueScanner().getPlanes()[0].distance({0, 0, 0});
  EXPECT_NEAR(scanner.getPlanes()[0].distance({0, 0, 0}), distance, 0.01 * distance);
  EXPECT_EQ(tools::readJsonFile(out / "report.json").at("planes").size(), 2U);
  EXPECT_FALSE(tools::readImage(out / "plot.png").empty());
}

TEST_F(LaserSession, TheCommandWritesCloudReportAndPreview) {
  TemporaryFolder const out;
  fs::copy(*folder / "scan", out / "scan", fs::copy_options::recursive);
  std::vector<std::string> const scan{"scan", "--laser", out / "scan", "--calib", *folder / "laser.json"};
  auto const with = [&](std::vector<std::string> const& more) {
    std::vector<std::string> arguments = scan;
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  };
  ToolOutcome const good =
      with({"--out", out / "cloud.ply", "--report", out / "r.json", "--preview", out / "p.png"});
  ASSERT_EQ(good.status, 0) << good.errors;
  EXPECT_EQ(tools::readJsonFile(out / "r.json")["points"].get<std::size_t>(),
            tools::readGraphic(out / "cloud.ply").vertices().size());
  EXPECT_TRUE(fs::exists(out / "p.png"));
  for (char const* first : {"nan", "h1,2", "9mm", "inf;h2", "-x"}) {
    std::ofstream(out / "encoder.txt") << first << "\n1\n2\n";
    EXPECT_NE(with({"--encoder", out / "encoder.txt"}).errors.find("line 1"), std::string::npos) << first;
  }
  for (char const* heading : {"h1,h2", "place (mm)", "\"s1\""}) {
    std::ofstream(out / "encoder.txt") << heading << "\nthree\n";
    EXPECT_NE(with({"--encoder", out / "encoder.txt"}).errors.find("line 2: \"three\""), std::string::npos)
        << heading;
  }
  std::ofstream(out / "encoder.txt") << "1\n2\nthree\n";
  EXPECT_NE(with({"--encoder", out / "encoder.txt"}).errors.find("encoder.txt, line 3"), std::string::npos);
  EXPECT_NE(with({"--step", "1,2"}).errors.find("three numbers"), std::string::npos);
  EXPECT_EQ(with({"--out", out / "a.stl"}).status, 1);
  std::ofstream(out / "encoder.txt") << "1\n2\n\x01\xff" << std::string(100, 'x');
  EXPECT_NE(with({"--encoder", out / "encoder.txt"}).errors.find("line 3: \"??xxxxxxxxxxxxxxxxxx...\""),
            std::string::npos);
  EXPECT_NE(with({"--step", "1e300,0,1", "--out", out / "a.ply"}).errors.find("kilometre"),
            std::string::npos);
  EXPECT_NE(with({"--preview", out / "p.text", "--out", out / "a.ply"}).errors.find("no picture format"),
            std::string::npos);
  EXPECT_FALSE(fs::exists(out / "a.ply"));
  for (char const* stage : {"[1]", R"({"step": [1, "x", 2]})", R"({"step": [1, 2]})"}) {
    std::ofstream(out / "scan/stage.json") << stage;
    EXPECT_NE(with({}).errors.find("step"), std::string::npos) << stage;
  }
  EXPECT_EQ(with({"--map", out / "m.png"}).status, 2);
}

} // namespace
} // namespace vorn::test
