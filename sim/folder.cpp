// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/folder.hpp"

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/sl/patterns.hpp>

#include "sim/folder_writer.hpp"
#include "sim/laser.hpp"
#include "sim/sensor.hpp"
#include "sim/truth.hpp"
#include "sim/truth_json.hpp"

namespace vorn::sim {
namespace {

using nlohmann::json;

/// Image numbers, which select the noise, of two views lie this far apart: a view has fewer images.
constexpr int imagesPerView = 100;

class Steps {
public:
  Steps(FolderOptions const& options, int total) : options_(options), total_(total) { report(); }

  void done() {
    ++done_;
    report();
  }

private:
  void report() const {
    if (options_.progress) {
      options_.progress(done_, total_);
    }
  }

  FolderOptions const& options_;
  int total_;
  int done_ = 0;
};

cv::Mat whitePattern(Projector const& projector) {
  return cv::Mat(projector.device.resolution(), CV_8UC1, cv::Scalar(255));
}

struct Patterns {
  std::vector<cv::Mat> columns;
  std::vector<cv::Mat> rows;

  Patterns(Projector const& projector, FolderOptions const& options) {
    cv::Size size = projector.device.resolution();
    mv::generate_ps4_patterns(columns, rows, size);
    if (!options.columns) {
      columns.clear();
    }
    if (!options.rows) {
      rows.clear();
    }
  }
};

/// Captures and writes the sequences; returns the number of images.
int writeStacks(FolderWriter const& out, ProjectorView const& view, Patterns const& patterns,
                int firstImage) {
  out.images("columns", view.capture(patterns.columns, firstImage));
  auto const columns = static_cast<int>(patterns.columns.size());
  out.images("rows", view.capture(patterns.rows, firstImage + columns));
  return columns + static_cast<int>(patterns.rows.size());
}

void writeScanTruth(FolderWriter const& out, Rig const& rig, Scene const& scene, ProjectorView const& view,
                    Patterns const& patterns) {
  Truth const exact = truth(rig.camera, rig.projector, scene);
  out.image("truth_xyz.tiff", exact.x_in_cam);
  cv::Mat coordinates[3];
  cv::split(exact.projector, coordinates);
  coordinates[2] = coordinates[0] * 0.0; // 0, and NaN where there is no truth
  cv::Mat projector;
  cv::merge(coordinates, 3, projector);
  out.image("truth_projector.tiff", projector);
  out.image("truth_label.png", exact.label);
  out.json("truth_objects.json", objectsJson(scene, rig.camera));

  constexpr int fringes = 4;
  constexpr double amplitudeScale = 200;
  constexpr double noiseScale = 5000;
  cv::Mat channels[3];
  for (cv::Mat& channel : channels) {
    channel = cv::Mat::zeros(exact.label.size(), CV_16UC1);
  }
  cv::Mat_<std::uint8_t> mask;
  int axis = 0;
  for (auto const* sequence : {&patterns.columns, &patterns.rows}) {
    if (!sequence->empty()) {
      Signal const found =
          signal(rig.camera.sensor, view.expose({sequence->begin(), sequence->begin() + fringes}));
      found.amplitude.convertTo(channels[axis], CV_16U, amplitudeScale);
      found.noise.convertTo(channels[2], CV_16U, noiseScale);
      cv::Mat_<std::uint8_t> const usable = truthMask(exact, found);
      mask = mask.empty() ? usable : cv::Mat_<std::uint8_t>(cv::min(mask, usable));
    }
    ++axis;
  }
  if (!mask.empty()) {
    out.image("truth_mask.png", mask);
  }
  cv::Mat levels;
  cv::merge(channels, 3, levels);
  out.image("truth_signal.png", levels);
}

/// The target under a lamp that shows white.
cv::Mat lampImage(Camera const& camera, Projector const& lamp, Scene const& scene, int imageNumber,
                  RenderOptions const& options) {
  return ProjectorView(camera, lamp, scene, options).capture({whitePattern(lamp)}, imageNumber)[0];
}

json lineJson(std::vector<LaserPoint> const& points) {
  json result = json::array();
  for (LaserPoint const& point : points) {
    cv::Vec3d const& x = point.x_in_cam;
    result.push_back({point.pixel.x, point.pixel.y, x[0], x[1], x[2]});
  }
  return result;
}

/// Writes a folder of target views: `writeView(folder, world_from_target, scene, firstImage)` writes the
/// images of one pose and returns its truth.
template <class WriteView>
void writeViews(std::string const& folder, Target const& target, std::vector<Pose> const& world_from_targets,
                FolderOptions const& options, WriteView const& writeView) {
  FolderWriter const out(folder);
  Steps steps(options, static_cast<int>(world_from_targets.size()));
  json poses = json::array();
  int number = 0;
  for (Pose const& world_from_target : world_from_targets) {
    FolderWriter const pose = out.inside(numbered("pose", number));
    Scene const scene({targetObject(target, world_from_target)});
    poses.push_back(writeView(pose, world_from_target, scene, imagesPerView * ++number));
    steps.done();
  }
  if (options.truth) {
    out.json("truth_points.json", {{"poses", std::move(poses)}});
  }
}

} // namespace

void writeScanFolder(std::string const& folder, Rig const& rig, Scene const& scene,
                     FolderOptions const& options) {
  FolderWriter const out(folder);
  Steps steps(options, options.truth ? 3 : 2);
  Patterns const patterns(rig.projector, options);
  ProjectorView const view(rig.camera, rig.projector, scene, options.render);
  steps.done();
  int const images = writeStacks(out, view, patterns, 0);
  out.image("white.png", view.capture({whitePattern(rig.projector)}, images)[0]);
  steps.done();
  if (options.truth) {
    writeScanTruth(out, rig, scene, view, patterns);
    steps.done();
  }
}

void writeCalibrationFolder(std::string const& folder, Rig const& rig, Target const& target,
                            std::vector<Pose> const& world_from_targets, FolderOptions const& options) {
  writeCalibrationFolder(folder, plannedCampaign(rig, target, world_from_targets), {}, options);
}

void writeCalibrationFolder(std::string const& folder, Campaign const& campaign,
                            std::vector<Fault> const& faults, FolderOptions const& options) {
  FolderWriter const out(folder);
  Steps steps(options, static_cast<int>(campaign.views.size()));
  json poses = json::array();
  Patterns const patterns(campaign.scanRig.projector, options);
  int number = 0;
  for (PlannedView const& view : campaign.views) {
    FolderWriter const pose = out.inside(numbered("pose", number));
    ViewImages const images =
        taken(view, patterns.columns, patterns.rows, imagesPerView * ++number, options.render);
    pose.image("target.png", images.target);
    pose.images("columns", images.columns);
    pose.images("rows", images.rows);
    poses.push_back(viewJson(view.rig.camera.cam_from_world * view.atTarget,
                             dotTruth(view.target, view.atTarget, view.rig.camera, &view.rig.projector)));
    steps.done();
  }
  if (options.truth) {
    json truth{{"poses", std::move(poses)}};
    for (Fault const& fault : faults) {
      truth["faults"].push_back(
          {{"name", fault.kind.name}, {"strength", fault.strength}, {"view", firstSpoiled(fault, number)}});
    }
    out.json("truth_points.json", truth);
  }
}

void writeStereoFolder(std::string const& folder, StereoRig const& rig, Target const& target,
                       std::vector<Pose> const& world_from_targets, FolderOptions const& options) {
  writeViews(folder, target, world_from_targets, options,
             [&](FolderWriter const& out, Pose const& world_from_target, Scene const& scene, int image) {
               out.image("target.png", lampImage(rig.camera0, rig.lamp, scene, image, options.render));
               out.image("target_1.png", lampImage(rig.camera1, rig.lamp, scene, image, options.render));
               json view = viewJson(rig.camera0.cam_from_world * world_from_target,
                                    dotTruth(target, world_from_target, rig.camera0, nullptr));
               addSecondCamera(view, dotTruth(target, world_from_target, rig.camera1, nullptr));
               return view;
             });
}

void writeLaserCalibrationFolder(std::string const& folder, LaserRig const& rig, Target const& target,
                                 std::vector<Pose> const& world_from_targets, FolderOptions const& options) {
  writeViews(folder, target, world_from_targets, options,
             [&](FolderWriter const& out, Pose const& world_from_target, Scene const& scene, int image) {
               out.image("target.png", lampImage(rig.camera, rig.lamp, scene, image, options.render));
               json view = viewJson(rig.camera.cam_from_world * world_from_target,
                                    dotTruth(target, world_from_target, rig.camera, nullptr));
               std::vector<cv::Mat> lines;
               for (Laser const& laser : rig.lasers) {
                 lines.push_back(captureLasers(rig.camera, {laser}, scene, ++image, options.render));
                 view["lines"].push_back(lineJson(laserTruth(rig.camera, laser, scene)));
               }
               out.images("line", lines);
               return view;
             });
}

void writeLaserScanFolder(std::string const& folder, LaserRig const& rig, Scene const& scene,
                          Stage const& stage, FolderOptions const& options) {
  FolderWriter const out(folder);
  Steps steps(options, stage.images);
  json truths = json::array();
  int image = 0;
  for (int i = 0; i < stage.images; ++i) {
    Scene const moved = scene.moved({cv::Matx33d::eye(), stage.step * i});
    for (Laser const& laser : rig.lasers) {
      out.image(numbered("line", image) + ".png",
                captureLasers(rig.camera, {laser}, moved, image, options.render));
      truths.push_back(lineJson(laserTruth(rig.camera, laser, moved)));
      ++image;
    }
    steps.done();
  }
  out.json("stage.json", {{"step", stage.step}});
  if (options.truth) {
    out.json("truth_points.json", {{"lines", truths}});
    out.json("truth_objects.json", objectsJson(scene, rig.camera));
  }
}

void writeScannerTruth(std::string const& path, Rig const& rig) {
  writeJson(path, scannerJson(rig));
}

void writeStereoTruth(std::string const& path, StereoRig const& rig) {
  writeJson(path, stereoJson(rig));
}

void writeLaserTruth(std::string const& path, LaserRig const& rig) {
  writeJson(path, laserJson(rig));
}

} // namespace vorn::sim
