// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <vorn/graphic/ply_file.hpp>

#include "sim/demo.hpp"
#include "sim/folder.hpp"
#include "support/file_content.hpp"
#include "support/temporary_folder.hpp"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;
using Points = std::vector<cv::Vec3f>;

constexpr int divisor = 3;
sim::Stage const stage{{0, 9, 0}, 6};

/// Target views and a scan of camera and projector.
void renderScanner(fs::path const& folder, sim::Rig const& rig, std::vector<sim::Pose> const& poses) {
  sim::FolderOptions calibration;
  calibration.rows = true;
  calibration.truth = false;
  calibration.render.supersample = 1; // dots are exact with one ray
  fs::create_directories(folder);
  sim::writeCalibrationFolder(folder / "calib", rig, sim::demoTarget(), poses, calibration);
  sim::writeScanFolder(folder / "scan", rig, sim::demoScene());
  sim::writeScannerTruth(folder / "scanner_truth.json", rig);
}

/// What laser.sh and the tutorials find: folders "rig", "pair" and "laser", as `vorn-mv simulate` lays them
/// out.
void render(fs::path const& folder) {
  std::vector<sim::Pose> poses = sim::demoTargetPoses();
  poses.resize(5);
  renderScanner(folder / "rig", sim::demoRig(divisor), poses);
  renderScanner(folder / "rig/second", sim::demoSecondRig(divisor), poses);

  sim::FolderOptions pair;
  pair.truth = false;
  pair.render.supersample = 1;
  constexpr int pairDivisor = 2;
  sim::writeStereoFolder(folder / "pair/calib", sim::demoStereoRig(pairDivisor), sim::demoTarget(), poses,
                         pair);

  sim::FolderOptions laser;
  laser.truth = false;
  fs::create_directories(folder / "laser");
  sim::LaserRig const laserRig = sim::demoLaserRig(divisor);
  sim::writeLaserCalibrationFolder(folder / "laser/calib", laserRig, sim::demoTarget(), poses, laser);
  sim::writeLaserScanFolder(folder / "laser/scan", laserRig, sim::demoScene(), stage, laser);
  sim::writeLaserTruth(folder / "laser/laser_truth.json", laserRig);
}

/// An empty folder with the rendered ones in it, where an example is run as a reader of the tutorials would.
class Workplace {
public:
  Workplace() {
    static TemporaryFolder const rendered;
    static bool const isRendered = (render(rendered.path()), true);
    EXPECT_TRUE(isRendered);
    for (char const* name : {"rig", "pair", "laser"}) {
      fs::create_directory_symlink(rendered / name, folder_ / name);
    }
  }

  fs::path operator/(std::string const& name) const { return folder_ / name; }
  Points cloud(std::string const& name) const { return graphic::PLYFile().read(folder_ / name).vertices(); }

  /// Runs a command line with the built programs and the scripts in the path.
  /// @return what it printed
  std::string run(std::string const& command) const {
    std::string const setting =
        "cd '" + folder_.path().string() + "' && PATH=\"" VORN_MV_EXAMPLES_PATH ":$PATH\" && ";
    int const status = std::system((setting + "{ " + command + "; } > output.txt 2>&1").c_str());
    std::string const output = contentOf(folder_ / "output.txt");
    EXPECT_EQ(status, 0) << command << '\n' << output;
    return output;
  }

private:
  TemporaryFolder folder_;
};

/// Collects the names of all members at any depth, those of properties and of a command's options excepted.
void collectNames(nlohmann::json const& json, std::set<std::string>& names) {
  for (auto const& [name, value] : json.items()) {
    if (json.is_object()) {
      names.insert(name);
    }
    if (value.is_structured() && name != "Properties" && name != "properties" && name != "options") {
      collectNames(value, names);
    }
  }
}

/// Expects that the page on files says what every member of a JSON file is.
void expectDescribed(fs::path const& path) {
  static std::string const page = contentOf(fs::path(VORN_MV_SOURCE) / "docs/files.md");
  std::set<std::string> names;
  collectNames(nlohmann::json::parse(contentOf(path)), names);
  EXPECT_GE(names.size(), 6U);
  for (std::string const& name : names) {
    EXPECT_NE(page.find('"' + name + '"'), std::string::npos) << name << " in " << path.filename();
  }
}

/// Root mean square distance of the points near a surface from it, and how many there are.
struct Fit {
  double rms = 0;
  int count = 0;
};

template <class Distance>
Fit fitOf(Points const& points, Distance const& distance) {
  constexpr double near = 2; // mm: no other object of the scene is so near
  Fit fit;
  for (cv::Vec3f const& p : points) {
    double const d = distance(cv::Vec3d(p));
    if (std::abs(d) < near) {
      fit.rms += d * d;
      ++fit.count;
    }
  }
  fit.rms = std::sqrt(fit.rms / std::max(1, fit.count));
  return fit;
}

/// The scene's left ball.
Fit ballFit(Points const& points) {
  return fitOf(points, [](cv::Vec3d const& p) {
    constexpr double radius = 27;
    return cv::norm(p - cv::Vec3d(-140, -74, 530)) - radius;
  });
}

/// The scene's back plane, which the stage has not moved yet in the first image.
Fit planeFit(Points const& points) {
  return fitOf(points, [](cv::Vec3d const& p) {
    sim::Pose const plane = sim::Pose::fromDegrees({0, 0, 590}, {3, -4, 0});
    return (plane.inverse() * p)[2];
  });
}

// Twice what the noise of the small rig's coarse pixels leaves on the ball, 0.104 mm with the true
// calibration.
constexpr double mostError = 0.2;

TEST(Examples, ScriptsLeadFromPhotographsToACleanCloud) {
  Workplace const work;
  work.run("calibrate.sh");
  work.run("scan.sh");
  for (char const* file : {"scanner.json", "calibration.json", "scan.json"}) {
    expectDescribed(work / file);
  }
  Fit const ball = ballFit(work.cloud("cloud.ply"));
  constexpr int fewest = 900;
  EXPECT_LT(ball.rms, mostError);
  EXPECT_GT(ball.count, fewest);

  work.run("clean.sh");
  constexpr double keptShare = 0.8; // the rim of the ball goes
  EXPECT_GT(ballFit(work.cloud("clean.ply")).count, keptShare * ball.count);
  Points const thin = work.cloud("thin.ply");
  ASSERT_GT(thin.size(), 1000U);
  float nearest = 1e9F;
  for (std::size_t i = 0; i < 300; ++i) {
    for (std::size_t j = i + 1; j < thin.size(); ++j) {
      nearest = std::min(nearest, static_cast<float>(cv::norm(thin[i] - thin[j])));
    }
  }
  constexpr float samplerRadius = 2;
  EXPECT_GE(nearest, samplerRadius * (1 - 1e-6F));
}

TEST(Examples, HostCalibratesAndScans) {
  Workplace const work;
  cv::Size const projector = sim::demoRig(divisor).projector.device.resolution();
  work.run("example_calibrate scanner.json 15 " + std::to_string(projector.width) + " " +
           std::to_string(projector.height) + " rig/calib/pose_*");
  work.run("example_host_scan scanner.json rig/scan host.ply");
  EXPECT_LT(ballFit(work.cloud("host.ply")).rms, mostError);
  work.run("vorn-mv scan rig/scan --calib scanner.json --out tool.ply");
  EXPECT_EQ(work.cloud("host.ply"), work.cloud("tool.ply"));
  work.run("example_scan scanner.json rig/scan/columns_*.png readme.ply");
  EXPECT_LT(ballFit(work.cloud("readme.ply")).rms, mostError);
  work.run("example_measure 15 rig/scan measured.ply rig/calib/pose_*");
  EXPECT_LT(ballFit(work.cloud("measured.ply")).rms, mostError);
  EXPECT_GT(ballFit(work.cloud("measured.ply")).count, 700);
}

/// The words of a text that begin with a digit.
std::vector<double> numbersIn(std::string const& text) {
  std::istringstream in(text);
  std::vector<double> numbers;
  for (std::string word; in >> word;) {
    if (std::isdigit(static_cast<unsigned char>(word[0])) != 0) {
      numbers.push_back(std::stod(word));
    }
  }
  return numbers;
}

TEST(Examples, TwoCamerasMeasureTheTarget) {
  Workplace const work;
  std::string const output = work.run("two_cameras.sh");
  expectDescribed(work / "stereo.json");
  expectDescribed(work / "stereo_report.json");
  std::string const answer = output.substr(output.rfind('\n', output.find("points; their rays")) + 1);
  std::vector<double> const numbers = numbersIn(answer);
  ASSERT_EQ(numbers.size(), 5U) << answer; // points, gap, lengths, their error, rows
  constexpr double fewest = 150;           // of 315 dots
  EXPECT_GT(numbers[0], fewest);
  // Dots are known to 0.03 px, a pixel covers 0.7 mm, and depth is three times less exact than width; a pair
  // whose transform is taken the wrong way round or from other poses is off by millimetres.
  constexpr double mostGap = 0.1;    // mm
  constexpr double mostLength = 0.2; // mm
  constexpr double mostRow = 0.15;   // px
  EXPECT_LT(numbers[1], mostGap);
  EXPECT_EQ(numbers[2], numbers[0] * (numbers[0] - 1) / 2);
  EXPECT_LT(numbers[3], mostLength);
  EXPECT_LT(numbers[4], mostRow);
}

TEST(Examples, SecondScanFillsWhatTheFirstDoesNotSee) {
  Workplace const work;
  std::string const output = work.run("two_scans.sh");
  std::size_t const line = output.rfind('\n', output.find("points;")) + 1;
  std::vector<double> const numbers = numbersIn(output.substr(line, output.find('\n', line) - line));
  ASSERT_EQ(numbers.size(), 3U); // points of the first, of the second, what the second adds
  Points const both = work.cloud("both.ply");
  auto const first = static_cast<std::size_t>(numbers[0]);
  ASSERT_EQ(both.size(), first + static_cast<std::size_t>(numbers[1]));

  // Two clouds apart by a tenth of a millimetre would show.
  EXPECT_LT(ballFit(both).rms, mostError);
  EXPECT_LT(planeFit(both).rms, mostError);

  constexpr std::size_t stride = 60; // brute force over a part of them
  std::size_t added = 0;
  std::size_t tried = 0;
  for (std::size_t i = first; i < both.size(); i += stride, ++tried) {
    constexpr double near = 3;
    added +=
        std::none_of(both.begin(), both.begin() + static_cast<std::ptrdiff_t>(first),
                     [&](cv::Vec3f const& p) { return cv::norm(p - both[i], cv::NORM_L2SQR) < near * near; });
  }
  double const share = static_cast<double>(added) / static_cast<double>(tried);
  constexpr double scatter = 0.02; // three standard deviations of a share of 0.07 in a thousand points
  EXPECT_NEAR(numbers[2] / numbers[1], share, scatter);
  EXPECT_GT(share, scatter);
}

TEST(Examples, ExposureIsThatOfTheImages) {
  Workplace const work;
  std::vector<double> numbers = numbersIn(work.run("example_exposure rig/scan/columns_0[0-3].png"));
  ASSERT_EQ(numbers.size(), 5U); // lit, clipped, amplitude, noise, error

  cv::Mat_<cv::Vec3w> const signal = cv::imread(work / "rig/scan/truth_signal.png", cv::IMREAD_UNCHANGED);
  std::vector<double> amplitudes;
  std::vector<double> noises;
  for (cv::Vec3w const& s : signal) { // stored as blue, green, red: amplitude of columns, of rows, noise
    constexpr double amplitudeUnit = 200;
    constexpr double noiseUnit = 5000;
    if (s[0] >= 3 * amplitudeUnit) {
      amplitudes.push_back(s[0] / amplitudeUnit);
      noises.push_back(s[2] / noiseUnit);
    }
  }
  auto const median = [](std::vector<double>& values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                     values.end());
    return values[values.size() / 2];
  };
  constexpr double relative = 0.05; // between the medians of noisy and of exact values
  constexpr double percent = 100;
  EXPECT_NEAR(numbers[0],
              percent * static_cast<double>(amplitudes.size()) / static_cast<double>(signal.total()), 2);
  EXPECT_NEAR(numbers[2], median(amplitudes), relative * median(amplitudes));
  EXPECT_NEAR(numbers[3], median(noises), relative * median(noises));
  EXPECT_NEAR(numbers[4], 0.4502 * numbers[3] / numbers[2], 1e-5);
}

TEST(Examples, LaserScansLieOnTheScene) {
  Workplace const work;
  work.run("laser.sh");
  expectDescribed(work / "laser.json");
  constexpr int fewest = 300;
  Fit const fromTool = planeFit(work.cloud("laser.ply"));
  EXPECT_LT(fromTool.rms, mostError);
  EXPECT_GT(fromTool.count, fewest);

  work.run("example_laser laser/laser_truth.json 9 laser/scan/line_*.png host.ply");
  Fit const fromHost = planeFit(work.cloud("host.ply"));
  EXPECT_LT(fromHost.rms, mostError);
  EXPECT_GT(fromHost.count, fewest);
}

TEST(Examples, CleaningIsTakenBack) {
  Workplace const work;
  work.run("vorn-mv scan rig/scan --calib rig/scanner_truth.json --out cloud.ply");
  std::string const text = work.run("example_clean cloud.ply clean.ply");
  std::regex const number("(?:present|again|deleted|outliers|clusters): ([0-9]+)");
  std::vector<int> counts;
  for (std::sregex_iterator it(text.begin(), text.end(), number); it != std::sregex_iterator(); ++it) {
    counts.push_back(std::stoi((*it)[1]));
  }
  ASSERT_EQ(counts.size(), 6U);
  EXPECT_GT(counts[1], counts[0] / 2) << "the strict filter should hit hard";
  EXPECT_EQ(counts[2], counts[0]);
  EXPECT_EQ(counts[5], counts[0] - counts[3] - counts[4]);
  EXPECT_EQ(work.cloud("clean.ply").size(), static_cast<std::size_t>(counts[5]));
}

TEST(Examples, OwnFiltersWorkLikeTheLibrarys) {
  Workplace const work;
  std::string const picture = work / "rig/scan/columns_00.png";
  work.run("vorn-mv scan rig/scan --calib rig/scanner_truth.json --set EnableTexture=true --out cloud.ply");
  work.run("example_own_filter " + picture +
           " out.png " VORN_MV_SOURCE "/examples/own_chain.json cloud.ply clean.ply");

  cv::Mat expected;
  cv::medianBlur(cv::imread(picture, cv::IMREAD_GRAYSCALE), expected, 5);
  cv::Mat const out = cv::imread(work / "out.png", cv::IMREAD_GRAYSCALE);
  ASSERT_EQ(out.size(), expected.size());
  for (int y = 0; y < out.rows; ++y) {
    for (int x = 0; x < out.cols; ++x) {
      ASSERT_NEAR(out.at<uchar>(y, x), 255 * std::pow(expected.at<uchar>(y, x) / 255.0, 1 / 1.8), 0.501);
    }
  }

  constexpr int least = 60;
  auto const isBright = [](cv::Vec4b const& color) { return color[1] >= least; };
  auto const before = graphic::PLYFile().read(work / "cloud.ply").colors();
  auto const after = graphic::PLYFile().read(work / "clean.ply").colors();
  EXPECT_TRUE(std::all_of(after.begin(), after.end(), isBright));
  // A cloud is read in whole rows of 64 points.
  auto const kept = static_cast<std::ptrdiff_t>(before.size() / 64 * 64);
  EXPECT_EQ(static_cast<std::ptrdiff_t>(after.size()),
            std::count_if(before.begin(), before.begin() + kept, isBright));
  EXPECT_LT(after.size(), before.size());
}

TEST(Examples, ChainsAreTheSameFromScriptAndProgram) {
  Workplace const work;
  fs::copy(work / "rig/scan/columns_02.png", work / "in.png");
  work.run("image_filters.sh");
  work.run("example_image_filters in.png chain.json marks.png result.png");
  cv::Mat const result = cv::imread(work / "result.png", cv::IMREAD_GRAYSCALE);
  EXPECT_EQ(cv::norm(cv::imread(work / "out.png", cv::IMREAD_GRAYSCALE), result, cv::NORM_INF), 0);
  double const share = cv::mean(result)[0] / 255;
  EXPECT_GT(share, 0.2); // a threshold that tells bright from dark in fringes
  EXPECT_LT(share, 0.98);
}

} // namespace
} // namespace vorn::test
