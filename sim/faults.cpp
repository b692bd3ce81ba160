// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "sim/faults.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <locale>
#include <sstream>
#include <stdexcept>

#include <opencv2/calib3d.hpp>

namespace vorn::sim {
namespace {

/// What a fault does to a view and to the rig from then on; `number` counts the views.
using Effect = std::function<void(Campaign& campaign, std::size_t number, double strength)>;

/// What a fault does to the rig alone.
using RigEffect = std::function<void(Rig& rig, double strength)>;

Effect ofRig(RigEffect const& change) {
  return [change](Campaign& campaign, std::size_t number, double strength) {
    bool const isScan = number >= campaign.views.size();
    change(isScan ? campaign.scanRig : campaign.views[number].rig, strength);
  };
}

/// What a fault does to a view; the scan is spared.
Effect ofView(std::function<void(PlannedView& view, double strength)> const& change) {
  return [change](Campaign& campaign, std::size_t number, double strength) {
    if (number < campaign.views.size()) {
      change(campaign.views[number], strength);
    }
  };
}

cv::Matx33d turnAbout(cv::Vec3d const& axis, double radians) {
  cv::Matx33d R;
  cv::Rodrigues(axis * radians, R);
  return R;
}

Device zoomed(Device const& device, double percent) {
  constexpr double whole = 100;
  Device result(device.focal() * (1 + percent / whole), device.centre(), device.distortion(),
                device.resolution());
  return result.withPrism(device.prism());
}

/// Within the plane alone a flat target would light up at the same places as before.
Pose shifted(Pose const& world_from_target, double mm) {
  double const along = mm / std::sqrt(3.0);
  return world_from_target * Pose{cv::Matx33d::eye(), {along, along, along}};
}

cv::Range middle(cv::Range const& range, double percent) {
  constexpr double whole = 100;
  int const kept = std::max(3, cvRound(range.size() * percent / whole));
  // The marked dots, about the origin, stay.
  int const first = std::min((range.start + range.end - kept) / 2, 0);
  return {first, std::max(first + kept, 2)};
}

double tiltOf(Pose const& pose) {
  return std::acos(std::clamp(pose.rotation(2, 2), -1.0, 1.0));
}

/// The pose with its normal nearer to the viewing direction.
Pose lessTilted(Pose const& pose, double share) {
  cv::Vec3d const axis(-pose.rotation(1, 2), pose.rotation(0, 2), 0);
  double const length = cv::norm(axis);
  return length == 0
             ? pose
             : Pose{turnAbout(axis / length, (share - 1) * tiltOf(pose)) * pose.rotation, pose.translation};
}

void place(PlannedView& view, Pose const& world_from_target) {
  view.atTarget = view.atColumns = view.atRows = world_from_target;
}

void limitTilt(Campaign& campaign, std::size_t number, double degrees) {
  if (number < campaign.views.size()) {
    PlannedView& view = campaign.views[number];
    double const tilt = tiltOf(view.atTarget) * 180 / CV_PI;
    constexpr double steepest = 32;
    place(view, lessTilted(view.atTarget, degrees / std::max(tilt, steepest)));
  }
}

void repeatPose(Campaign& campaign, std::size_t number, double) {
  if (number < campaign.views.size()) {
    place(campaign.views[number],
          campaign.views[number == 0 ? campaign.views.size() - 1 : number - 1].atTarget);
  }
}

void mixPoses(Campaign& campaign, std::size_t number, double) {
  if (number < campaign.views.size()) {
    Pose const other = campaign.views[(number + 1) % campaign.views.size()].atTarget;
    campaign.views[number].atColumns = campaign.views[number].atRows = other;
  }
}

struct Entry {
  FaultKind kind;
  Effect effect;
};

std::vector<Entry> rigEntries() {
  constexpr double whole = 100;
  constexpr auto All = FaultReach::All;
  constexpr auto Following = FaultReach::Following;
  return {
      {{"projector-turned", "the projector is turned", "degrees", 0.03, -10, 10, Following},
       ofRig([](Rig& rig, double degrees) {
         Pose& pose = rig.projector.world_from_proj;
         pose.rotation = pose.rotation * turnAbout({0, 1, 0}, degrees * CV_PI / 180);
       })},
      {{"camera-focus", "the camera's focal length changes", "%", 0.2, -20, 20, Following},
       ofRig([](Rig& rig, double percent) { rig.camera.device = zoomed(rig.camera.device, percent); })},
      {{"projector-focus", "the projector's focal length changes", "%", 0.2, -20, 20, Following},
       ofRig([](Rig& rig, double percent) { rig.projector.device = zoomed(rig.projector.device, percent); })},
      {{"gamma", "the projector's light goes with a power of its grey levels", "power", 2.2, 0.2, 5, All},
       ofRig([](Rig& rig, double power) { rig.projector.gamma = power; })},
      {{"flicker", "the light changes from image to image", "%", 4, 0, 50, All},
       ofRig([](Rig& rig, double percent) { rig.camera.sensor.flicker = percent / whole; })},
      {{"bands", "lamps draw bands through a rolling shutter", "%", 8, 0, 50, All},
       ofRig([](Rig& rig, double percent) { rig.camera.sensor.bandDepth = percent / whole; })},
      {{"overexposed", "the camera is exposed so many times longer", "times", 3, 1, 100, All},
       ofRig([](Rig& rig, double times) { rig.camera.sensor.exposure *= times; })},
      {{"too-dark", "the camera is exposed so many times shorter", "times", 10, 1, 100, All},
       ofRig([](Rig& rig, double times) { rig.camera.sensor.exposure /= times; })},
      {{"room-light", "lamps add so much of the projector's light, and the exposure is shorter", "times", 2,
        0, 100, All},
       ofRig([](Rig& rig, double share) {
         rig.camera.sensor.exposure /= 1 + share;
         rig.camera.sensor.ambient += share;
       })},
      {{"camera-blurred", "the camera is out of focus", "px", 2, 0, 10, All},
       ofRig([](Rig& rig, double pixels) { rig.camera.blur = std::hypot(rig.camera.blur, pixels); })},
      {{"projector-blurred", "the projector is out of focus", "px", 4, 0, 7, All},
       ofRig([](Rig& rig, double pixels) { rig.projector.blur += pixels; })},
      {{"staircase", "the projector shows its single pixels sharply", "", 0, 0, 0, All},
       ofRig([](Rig& rig, double) { rig.projector.blur = rig.projector.blurSlope = 0; })},
      {{"prism", "the camera's lens has thin prism terms", "times", 1, 0, 10, All},
       ofRig([](Rig& rig, double times) {
         cv::Vec4d const terms(2e-3, -1e-3, -3e-3, 5e-4);
         rig.camera.device = rig.camera.device.withPrism(terms * times);
       })},
  };
}

std::vector<Entry> viewEntries() {
  constexpr double whole = 100;
  constexpr auto Views = FaultReach::Views;
  constexpr auto One = FaultReach::One;
  return {
      {{"bent-target", "the target's ends along x stand behind its middle", "mm", 0.3, -20, 20, Views},
       ofView([](PlannedView& view, double mm) { view.target.sag[0] = mm; })},
      {{"dirty-dots", "specks cut into the rims of dots", "% of them", 1, 0, 100, Views, true},
       ofView([](PlannedView& view, double percent) { view.dirtyShare = percent / whole; })},
      {{"small-target", "the target has so much of its columns and rows", "%", 40, 10, 100, Views, true},
       ofView([](PlannedView& view, double percent) {
         DotGrid& grid = view.target.grid;
         grid.columns = middle(grid.columns, percent);
         grid.rows = middle(grid.rows, percent);
       })},
      {{"small-tilts", "the target is tilted by so much at most", "degrees", 5, 0, 32, Views}, limitTilt},
      {{"target-overexposed", "the target's image is exposed so many times longer", "times", 3, 1, 100,
        Views},
       ofView([](PlannedView& view, double times) { view.targetExposure = times; })},
      {{"moved-before", "the target moves between its image and the sequences", "mm", 0.36, -100, 100, One},
       ofView(
           [](PlannedView& view, double mm) { view.atColumns = view.atRows = shifted(view.atTarget, mm); })},
      {{"moved-between", "the target moves between columns and rows", "mm", 0.36, -100, 100, One},
       ofView([](PlannedView& view, double mm) { view.atRows = shifted(view.atRows, mm); })},
      {{"moved-during", "the target creeps while the sequences are shown", "mm", 0.36, -100, 100, One},
       ofView([](PlannedView& view, double mm) {
         constexpr double images = 20; // of both sequences, about
         view.creep = shifted({}, mm / images).translation;
       })},
      {{"mixed-view", "the sequences show the next view's pose", "", 0, 0, 0, One}, mixPoses},
      {{"same-pose", "the target stands as in the view before", "", 0, 0, 0, One}, repeatPose},
      {{"mirrored-camera", "the camera's images are mirrored", "", 0, 0, 0, One},
       ofView([](PlannedView& view, double) { view.isCameraMirrored = true; })},
      {{"mirrored-projector", "the projector's images are mirrored", "", 0, 0, 0, One},
       ofView([](PlannedView& view, double) { view.isProjectorMirrored = true; })},
  };
}

std::vector<Entry> const& entries() {
  static std::vector<Entry> const all = [] {
    std::vector<Entry> result = rigEntries();
    for (Entry const& entry : viewEntries()) {
      result.push_back(entry);
    }
    return result;
  }();
  return all;
}

Entry const& entryOf(std::string const& name) {
  std::string known;
  for (Entry const& entry : entries()) {
    if (entry.kind.name == name) {
      return entry;
    }
    known += (known.empty() ? "" : ", ") + entry.kind.name;
  }
  throw std::invalid_argument("There is no fault \"" + name + "\"; there are " + known);
}

/// The number that a text is, whole.
double numberOf(std::string const& text, std::string const& words) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  double number = 0;
  if (!(stream >> number) || !stream.eof()) {
    throw std::invalid_argument("The fault \"" + words + "\" has \"" + text + "\" where a number should be");
  }
  return number;
}

std::string textOf(double number) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << number;
  return text.str();
}

} // namespace

Campaign plannedCampaign(Rig const& rig, Target const& target, std::vector<Pose> const& world_from_targets) {
  Campaign campaign;
  campaign.scanRig = rig;
  for (Pose const& pose : world_from_targets) {
    campaign.views.push_back({rig, target, pose, pose, pose});
  }
  return campaign;
}

std::vector<FaultKind> const& faultKinds() {
  static std::vector<FaultKind> const kinds = [] {
    std::vector<FaultKind> result;
    for (Entry const& entry : entries()) {
      result.push_back(entry.kind);
    }
    return result;
  }();
  return kinds;
}

Fault faultOf(std::string const& words) {
  std::size_t const at = words.find('@');
  std::string const front = words.substr(0, at);
  std::size_t const equals = front.find('=');
  Fault fault;
  fault.kind = entryOf(front.substr(0, equals)).kind;
  FaultKind const& kind = fault.kind;
  fault.strength = kind.strength;
  if (equals != std::string::npos) {
    if (kind.unit.empty()) {
      throw std::invalid_argument("The fault \"" + kind.name + "\" has no strength");
    }
    fault.strength = numberOf(front.substr(equals + 1), words);
    if (!(fault.strength >= kind.least && fault.strength <= kind.most)) {
      throw std::invalid_argument("The strength of \"" + words + "\" must be from " + textOf(kind.least) +
                                  " to " + textOf(kind.most) + " " + kind.unit);
    }
  }
  if (at != std::string::npos) {
    double const view = numberOf(words.substr(at + 1), words);
    constexpr double mostViews = 1e6;
    if (!(view >= 0 && view <= mostViews && view == std::floor(view))) {
      throw std::invalid_argument("The view of \"" + words + "\" must be a whole number from 0 on");
    }
    fault.view = static_cast<int>(view);
  }
  return fault;
}

int firstSpoiled(Fault const& fault, int viewCount) {
  if (fault.view >= 0) {
    return fault.view;
  }
  constexpr int fourth = 3;
  switch (fault.kind.reach) {
  case FaultReach::One:
    return std::min(fourth, viewCount - 1);
  case FaultReach::Following:
    return viewCount / 2;
  default:
    return -1;
  }
}

void spoil(Campaign& campaign, Fault const& fault) {
  std::size_t const count = campaign.views.size();
  int const first = firstSpoiled(fault, static_cast<int>(count));
  bool const isScanToo = fault.kind.reach == FaultReach::All || fault.kind.reach == FaultReach::Following;
  if (first >= static_cast<int>(count) + (fault.kind.reach == FaultReach::Following ? 1 : 0)) {
    throw std::invalid_argument("The fault \"" + fault.kind.name + "\" is of view " + std::to_string(first) +
                                ", and there are " + std::to_string(count));
  }
  if (fault.kind.isOfDots && std::any_of(campaign.views.begin(), campaign.views.end(),
                                         [](PlannedView const& v) { return !v.target.grid.hasMarkers; })) {
    throw std::invalid_argument("The fault \"" + fault.kind.name + "\" is of a target of marked dots");
  }
  Effect const& effect = entryOf(fault.kind.name).effect;
  bool const isOne = first >= 0 && fault.kind.reach != FaultReach::Following;
  std::size_t const begin = first < 0 ? 0 : static_cast<std::size_t>(first);
  std::size_t const end = isOne ? begin + 1 : count + (isScanToo ? 1 : 0);
  for (std::size_t number = begin; number < end; ++number) {
    effect(campaign, number, fault.strength);
  }
}

} // namespace vorn::sim
