// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <cstddef>
#include <string>

#include <vorn/mv/calib/diagnosis.hpp>

namespace vorn::mv {

namespace {

struct CauseText {
  char const* name;
  char const* advice;
};

/// In the order of the enumerators.
CauseText const causeTexts[] = {
    {"wrongDots", "Look for glare, dirt and shadows on the target, and for dots that the edge of the light "
                  "cuts."}, // WrongDots
    {"bentTarget",
     "Glue the target to something stiff and flat, or keep the shape found with it."}, // BentTarget
    {"wrongView", "Take the view again: the target moved while it was taken, or its images are of several "
                  "poses."}, // WrongView
    {"viewDisagrees",
     "Take the view again: the target or a device moved while it was taken."},        // ViewDisagrees
    {"deviceMoved", "Fix both devices to one stiff base, and take all views again."}, // DeviceMoved
    {"focusChanged", "Fix the lens's rings, and take all views again."},              // FocusChanged
    {"coverage", "Hold the target into the corners too, or nearer."},                 // Coverage
    {"smallTilts", "Tilt the target by 20 to 40 degrees to all sides."},              // SmallTilts
    {"mirrored",
     "Turn mirroring off in the camera or projector, put columns and rows in their places, and take "
     "the views again."},                           // Mirrored
    {"samePose", "Move the target between views."}, // SamePose
    {"lensModel",
     "Nothing, where the calibration has them; else calibrate with thin prism terms: --prism, or "
     "AdjustmentSettings::Lens::ThinPrism."},                                                    // LensModel
    {"gamma", "Set the gamma of camera and projector to 1, and switch image enhancements off."}, // Gamma
    {"flicker", "Expose for whole periods of the projector's and the room's lamps."},            // Flicker
    {"bands",
     "Expose for whole periods of the projector's and the room's lamps, or use a global shutter."}, // Bands
    {"overexposed", "Expose less, or close the camera's aperture."},           // Overexposed
    {"targetOverexposed", "Expose the target image less."},                    // TargetOverexposed
    {"tooDark", "Expose longer, open the camera's aperture, or come nearer."}, // TooDark
    {"cameraBlurred",
     "Focus the camera on the middle of the volume, or close its aperture."},    // CameraBlurred
    {"projectorBlurred", "Focus the projector on the middle of the volume."},    // ProjectorBlurred
    {"staircase", "Defocus the projector by half of a pixel."},                  // Staircase
    {"roomLight", "Darken the room, or expose less with a brighter projector."}, // RoomLight
    {"movedBefore",
     "Put the target down, and wait until it stands still before the first image."},  // MovedBefore
    {"movedBetween", "Let nothing move from the first image of a pose to the last."}, // MovedBetween
    {"movedDuring", "Fix target and rig, and wait until they stand still."},          // MovedDuring
};

} // namespace

std::string nameOf(FindingCause cause) {
  return causeTexts[static_cast<std::size_t>(cause)].name;
}

std::string adviceOf(FindingCause cause) {
  return causeTexts[static_cast<std::size_t>(cause)].advice;
}

} // namespace vorn::mv
