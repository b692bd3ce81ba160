// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <map>
#include <stdexcept>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>
#include <vorn/mv.hpp>

using namespace vorn::mv;

namespace {

/// Points of the target that both cameras see, in the same order.
struct Matches {
  std::vector<cv::Point2f> pixels0;
  std::vector<cv::Point2f> pixels1;
  std::vector<cv::Point2f> onTarget;
};

Matches matchTarget(CalibPatternDetector const& detector, cv::Mat const& image0, cv::Mat const& image1) {
  auto const found0 = detector.detect(image0);
  auto const found1 = detector.detect(image1);
  if (!found0.isOriginMarked() || !found1.isOriginMarked()) {
    throw std::runtime_error("both cameras must see the target with its markers");
  }
  std::map<std::pair<float, float>, cv::Point2f> inImage1;
  for (CalibKeyPoint const& dot : found1.getKeyPoints()) {
    inImage1[{dot.objPnt.x, dot.objPnt.y}] = dot.imgPnt;
  }
  Matches matches;
  for (CalibKeyPoint const& dot : found0.getKeyPoints()) {
    auto const same = inImage1.find({dot.objPnt.x, dot.objPnt.y});
    if (same != inImage1.end()) {
      matches.pixels0.push_back(dot.imgPnt);
      matches.pixels1.push_back(same->second);
      matches.onTarget.push_back(dot.objPnt);
    }
  }
  return matches;
}

/// A point in the frame of camera 0, and how far the two viewing rays pass each other there, mm.
struct Meeting {
  cv::Point3f point;
  double gap = 0;
};

std::vector<Meeting> triangulate(StereoCamera const& stereo, Matches const& matches) {
  auto const rays0 = stereo.getCameraModel0().undistortPoints(matches.pixels0);
  auto const rays1 = stereo.getCameraModel1().undistortPoints(matches.pixels1);
  cv::Matx44d const& cam0_from_cam1 = stereo.getTransform();
  cv::Point3f const centre1(math::getT3(cam0_from_cam1));
  std::vector<Meeting> meetings;
  for (std::size_t i = 0; i < rays0.size(); ++i) {
    Line3f const ray0(cv::Point3f(), cv::Vec3f(rays0[i].x, rays0[i].y, 1));
    Line3f const ray1(centre1, math::getR3(cam0_from_cam1) * cv::Vec3d(rays1[i].x, rays1[i].y, 1));
    std::vector<cv::Point3f> const nearest = ray0.intersect3(ray1);
    meetings.push_back({(nearest[0] + nearest[1]) / 2, cv::norm(nearest[0] - nearest[1])});
  }
  return meetings;
}

/// What OpenCV's rectification and dense matching take.
struct Rectification {
  cv::Mat R0, R1, P0, P1, Q;
};

Rectification rectify(StereoCamera const& stereo) {
  CameraModel const& camera0 = stereo.getCameraModel0();
  CameraModel const& camera1 = stereo.getCameraModel1();
  cv::Matx44d const cam1_from_cam0 = stereo.getTransform().inv();
  Rectification r;
  cv::stereoRectify(camera0.getK(), camera0.getD(), camera1.getK(), camera1.getD(), camera0.getResolution(),
                    math::getR3(cam1_from_cam0), math::getT3(cam1_from_cam0), r.R0, r.R1, r.P0, r.P1, r.Q);
  return r;
}

/// Root of the mean square.
class Rms {
public:
  void add(double value) {
    squares_ += value * value;
    ++count_;
  }
  int count() const { return count_; }
  double value() const { return std::sqrt(squares_ / std::max(1, count_)); }

private:
  double squares_ = 0;
  int count_ = 0;
};

/// The distances of all pairs of dots, against those that they have on the target.
Rms lengthErrors(std::vector<Meeting> const& meetings, std::vector<cv::Point2f> const& onTarget) {
  Rms errors;
  for (std::size_t i = 0; i < meetings.size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      errors.add(cv::norm(meetings[i].point - meetings[j].point) - cv::norm(onTarget[i] - onTarget[j]));
    }
  }
  return errors;
}

/// How far apart the rows are in which both rectified images show a point, pixels.
Rms rowErrors(StereoCamera const& stereo, Matches const& matches) {
  Rectification const r = rectify(stereo);
  CameraModel const& camera0 = stereo.getCameraModel0();
  CameraModel const& camera1 = stereo.getCameraModel1();
  std::vector<cv::Point2f> rectified0;
  std::vector<cv::Point2f> rectified1;
  cv::undistortPoints(matches.pixels0, rectified0, camera0.getK(), camera0.getD(), r.R0, r.P0);
  cv::undistortPoints(matches.pixels1, rectified1, camera1.getK(), camera1.getD(), r.R1, r.P1);
  Rms errors;
  for (std::size_t i = 0; i < rectified0.size(); ++i) {
    errors.add(static_cast<double>(rectified0[i].y - rectified1[i].y));
  }
  return errors;
}

} // namespace

int main(int argc, char** argv) try {
  if (argc != 5) {
    throw std::invalid_argument("usage: example_two_cameras stereo.json PITCH target.png target_1.png");
  }
  Library::start(false);
  vorn::System::set("EnableDebugMode", false);
  StereoCamera stereo;
  vorn::load(argv[1], stereo);
  CalibPatternDetector detector;
  detector.setPatternDim(std::stod(argv[2]));
  detector.setMinDotArea(20.0);

  Matches const matches = matchTarget(detector, cv::imread(argv[3], cv::IMREAD_GRAYSCALE),
                                      cv::imread(argv[4], cv::IMREAD_GRAYSCALE));
  std::vector<Meeting> const meetings = triangulate(stereo, matches);
  Rms gaps;
  for (Meeting const& meeting : meetings) {
    gaps.add(meeting.gap);
  }
  Rms const lengths = lengthErrors(meetings, matches.onTarget);
  std::cout << meetings.size() << " points; their rays pass each other at " << gaps.value() << " mm RMS\n"
            << lengths.count() << " lengths between them are off by " << lengths.value() << " mm RMS\n"
            << "rows of the rectified images differ by " << rowErrors(stereo, matches).value() << " px RMS\n";
} catch (std::exception const& e) {
  std::cerr << e.what() << '\n';
  return EXIT_FAILURE;
}
