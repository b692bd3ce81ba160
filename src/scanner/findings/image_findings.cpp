// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <vorn/mv/scanner/view_figures.hpp>

#include "scanner/findings/view_images.hpp"

namespace vorn::mv {

namespace {

using Figure = std::function<double(ViewFigures const&)>;

/// In place of a figure that another cause explains.
constexpr double explained = 0;

double larger(double a, double b) {
  return std::fmax(a, b); // of one that is untold the other
}

/// A cause that a figure of single views shows.
struct ImageCause {
  FindingCause cause;
  int device; ///< 0 the camera, 1 the projector, -1 neither by itself
  Figure figure;
  double limit;
  bool isBelow; ///< found where the figure is below its limit, else above
  /// What is said of a figure, after the views' names.
  char const* text; ///< # stands for the figure
  int digits;
  double factor; ///< of the number in the text
};

constexpr double mostBands = 5;

/// How much the light changes from image to image. Bands do not cancel out over the rows of an image: what is
/// less than their depth is theirs.
double flickerOf(SequenceFigures const& figures) {
  return isBanded(figures) && figures.flicker < figures.bandDepth ? explained : figures.flicker;
}

bool isBanded(ViewFigures const& view) {
  return isBanded(view.columns) || isBanded(view.rows);
}

bool isFlickering(ViewFigures const& view) {
  constexpr double mostFlicker = 0.003;
  return larger(view.columns.flicker, view.rows.flicker) > mostFlicker;
}

bool isBent(ViewFigures const& view) {
  constexpr double mostHarmonic = 0.02;
  return larger(view.columns.secondHarmonic, view.rows.secondHarmonic) > mostHarmonic;
}

bool isClipped(ViewFigures const& view) {
  constexpr double mostClipped = 0.002;
  return larger(view.columns.clipped, view.rows.clipped) > mostClipped;
}

bool isBlurred(ViewFigures const& view) {
  constexpr double mostBlur = 1.6;
  return view.cameraBlur > mostBlur;
}

/// How much of the columns' fringes, which are narrower than the rows', is left: their amplitude as a share
/// of that of the rows', or of the light where there are no fringes at all, though there is light.
double fringesLeft(ViewFigures const& view) {
  constexpr double leastAmplitude = 1.5; // of 255; below are noise and rounding
  constexpr double leastLight = 20;
  SequenceFigures const& columns = view.columns;
  if (std::isnan(columns.amplitude) && view.rows.amplitude > leastLight * view.rows.contrast) {
    return 0; // in good light nothing but noise, which nowhere holds its amplitude over a few pixels
  }
  bool const areGone =
      columns.amplitude < leastAmplitude && columns.amplitude > leastLight * columns.contrast;
  return areGone ? columns.contrast : columns.amplitude / view.rows.amplitude;
}

/// Whether a projector out of focus has wiped the fringes out: what is left of them tells nothing else.
constexpr double leastLeft = 0.35;
bool isFaded(ViewFigures const& view) {
  return !isBlurred(view) && fringesLeft(view) < leastLeft;
}

/// Whether fringes are so dark that their noise passes for repetition.
constexpr double leastAmplitude = 8;
bool isDark(ViewFigures const& view) {
  return view.columns.amplitude < leastAmplitude;
}

constexpr double leastContrast = 0.45;

/// What is left of the light's mean for the rows' fringes, or all where that has another cause.
double contrastOf(ViewFigures const& view) {
  return isBent(view) || isBlurred(view) || isFaded(view) ? 1 : view.rows.contrast;
}

/// The columns' amplitude, or what it were without light of the room that leaves no more exposure to it.
double amplitudeOf(ViewFigures const& view) {
  SequenceFigures const& columns = view.columns;
  return contrastOf(view) < leastContrast
             ? std::fmax(columns.amplitude, leastContrast * columns.amplitude / columns.contrast)
             : columns.amplitude;
}

double const mostMotion = 0.05;
constexpr double fullRange = 255;

std::vector<ImageCause> const& imageCauses() {
  static std::vector<ImageCause> const causes = {
      {FindingCause::Gamma, -1,
       [](ViewFigures const& v) {
         return isClipped(v) || isFaded(v) ? explained
                                           : larger(v.columns.secondHarmonic, v.rows.secondHarmonic);
       },
       0.02, false, "camera or projector are not linear: the fringes hold # % at twice their frequency", 1,
       100},
      {FindingCause::Flicker, -1,
       [](ViewFigures const& v) { return larger(flickerOf(v.columns), flickerOf(v.rows)); }, 0.003, false,
       "the light changes from image to image by # %", 1, 100},
      {FindingCause::Bands, -1,
       [](ViewFigures const& v) {
         return isBent(v) || isClipped(v) ? explained : larger(v.columns.bands, v.rows.bands);
       },
       mostBands, false, "bands run through the images, # times above the noise", 1, 1},
      {FindingCause::Overexposed, 0,
       [](ViewFigures const& v) { return larger(v.columns.clipped, v.rows.clipped); }, 0.002, false,
       "# % of the fringe images are overexposed", 1, 100},
      {FindingCause::TargetOverexposed, 0,
       [](ViewFigures const& v) { return isClipped(v) ? explained : v.targetClipped; }, 0.02, false,
       "# % of the target image are overexposed", 1, 100},
      {FindingCause::TooDark, -1,
       [](ViewFigures const& v) { return isBlurred(v) || isFaded(v) ? fullRange : amplitudeOf(v); },
       leastAmplitude, true, "the fringes are dark: their amplitude is # of 255 grey values", 1, 1},
      {FindingCause::CameraBlurred, 0, [](ViewFigures const& v) { return v.cameraBlur; }, 1.6, false,
       "the camera is out of focus: edges are blurred with a deviation of # px", 1, 1},
      {FindingCause::ProjectorBlurred, 1,
       [](ViewFigures const& v) { return isBlurred(v) ? 1 : fringesLeft(v); }, leastLeft, true,
       "the projector is out of focus: the columns' fringes have # % of the amplitude of the rows', or of "
       "the "
       "light where there are none",
       0, 100},
      {FindingCause::Staircase, 1,
       [](ViewFigures const& v) {
         return isFlickering(v) || isBanded(v) || isBent(v) || isFaded(v) || isDark(v)
                    ? explained
                    : larger(v.columns.staircase, v.rows.staircase);
       },
       0.01, false, "the projector is too sharp: the decoded coordinates repeat with its pixels by # px", 3,
       1},
      {FindingCause::RoomLight, -1, contrastOf, leastContrast, true,
       "light of the room: the rows' fringes have # % of the light's mean", 0, 100},
  };
  return causes;
}

std::string number(double value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

/// "pose_03" or "3 of 12 views, most in pose_03".
std::string named(std::vector<NamedFigures> const& views, std::vector<std::size_t> const& found,
                  std::size_t worst) {
  if (found.size() == 1) {
    return views[worst].name;
  }
  return std::to_string(found.size()) + " of " + std::to_string(views.size()) + " views, most in " +
         views[worst].name;
}

void find(ImageCause const& cause, std::vector<NamedFigures> const& views, std::vector<Finding>& findings) {
  std::vector<std::size_t> found;
  std::size_t worst = 0;
  for (std::size_t i = 0; i < views.size(); ++i) {
    double const value = cause.figure(views[i].figures);
    if (cause.isBelow ? value < cause.limit : value > cause.limit) {
      double const most = cause.figure(views[worst].figures);
      bool const isWorse = found.empty() || (cause.isBelow ? value < most : value > most);
      found.push_back(i);
      worst = isWorse ? i : worst;
    }
  }
  if (!found.empty()) {
    double const value = cause.figure(views[worst].figures);
    std::string text = cause.text;
    text.replace(text.find('#'), 1, number(cause.factor * value, cause.digits));
    findings.push_back({cause.cause, found.size() == 1 ? static_cast<int>(worst) : -1, cause.device, value,
                        cause.limit, named(views, found, worst) + ": " + text, adviceOf(cause.cause), false});
  }
}

/// Whether the target creeps while the fringes are shown: it is seen to move from one of their images to the
/// next, or the coordinates repeat with them.
bool isCreeping(ViewFigures const& view, double motion) {
  constexpr double mostStep = 0.005;
  constexpr double mostShare = 0.05; // of the motion; a sequence has some ten images
  double const step = larger(view.columns.creep, view.rows.creep);
  constexpr double mostRipple = 0.008;
  bool const isRippled = larger(view.columns.ripple, view.rows.ripple) > mostRipple && !isFlickering(view) &&
                         !isBent(view) && !isBanded(view);
  return step > std::max(mostStep, mostShare * motion) || isRippled;
}

void findMotion(NamedFigures const& view, int index, std::vector<Finding>& findings) {
  ViewFigures const& figures = view.figures;
  double const motion = larger(figures.movedBefore, figures.movedBetween);
  if (!(motion > mostMotion)) {
    return;
  }
  bool const isBefore = figures.movedBefore >= figures.movedBetween;
  FindingCause const cause = isCreeping(figures, motion) ? FindingCause::MovedDuring
                             : isBefore                  ? FindingCause::MovedBefore
                                                         : FindingCause::MovedBetween;
  std::string const when = cause == FindingCause::MovedDuring   ? "while the sequences were shown"
                           : cause == FindingCause::MovedBefore ? "between the target image and the columns"
                                                                : "between the columns and the rows";
  findings.push_back(
      {cause, index, -1, motion, mostMotion,
       view.name + ": the target moved " + when + " by " +
           (motion < ViewFigures::largeMotion ? number(motion, 2) + " px" : "a pixel and more"),
       adviceOf(cause), true});
}

} // namespace

bool isBanded(SequenceFigures const& figures) {
  return figures.bands > mostBands;
}

std::vector<Finding> diagnoseImages(std::vector<NamedFigures> const& views) {
  std::vector<Finding> findings;
  for (std::size_t i = 0; i < views.size(); ++i) {
    findMotion(views[i], static_cast<int>(i), findings);
  }
  for (ImageCause const& cause : imageCauses()) {
    find(cause, views, findings);
  }
  return findings;
}

} // namespace vorn::mv
