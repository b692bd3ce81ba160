// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/view_overlays.hpp"

#include <cmath>
#include <filesystem>
#include <sstream>
#include <vector>

#include <vorn/core/exception.hpp>

#include "tools/calibration/folder_calibration.hpp"
#include "tools/calibration/next_view_picture.hpp"
#include "tools/calibration/target_overlay.hpp"
#include "tools/files/image_files.hpp"
#include "tools/files/named_images.hpp"
#include "tools/report/figure_files.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

/// A photograph of a view: its file, and which device took it.
struct Photograph {
  std::string file;
  std::size_t device = 0;
};

std::vector<Photograph> photographsOf(mv::Calibration const& calibration, ViewNames const& names) {
  std::vector<Photograph> photographs{{names.targets[0], 0}};
  for (std::size_t d = 1; d < calibration.report.devices.size(); ++d) {
    if (calibration.report.devices[d].name != "projector") { // which takes none
      photographs.push_back({names.targets.at(d), d});
    }
  }
  return photographs;
}

/// Empty for one that is missing or broken, of a view that was left out for such a reason.
cv::Mat readPhotograph(fs::path const& path, mv::CalibratedView const& view) {
  try {
    return readImage(path.string());
  } catch (Exception const&) {
    if (view.isUsed()) {
      throw;
    }
    return {};
  }
}

/// The photograph's file; empty for one that is missing, of a view that was left out.
fs::path fileOf(fs::path const& pose, std::string const& name, mv::CalibratedView const& view) {
  try {
    return namedFile(pose.string(), name);
  } catch (Exception const&) {
    if (view.isUsed()) {
      throw;
    }
    return {};
  }
}

/// The pictures of a view's laser lines that are there.
std::vector<std::string> lineFiles(fs::path const& pose, std::size_t count, ViewNames const& names) {
  std::vector<std::string> files;
  if (!names.lines.empty()) {
    files = namedFiles(pose.string(), names.lines); // pages of one file make no pictures
    return files.size() == count ? files : std::vector<std::string>();
  }
  for (std::size_t line = 0; line < count; ++line) {
    std::string const file = sequencePath(pose.string(), "line", static_cast<int>(line));
    files.push_back(fs::exists(file) ? file : "");
  }
  return files;
}

std::string titleOf(mv::CalibratedView const& view, std::string const& file, std::size_t device,
                    double enlargement) {
  std::ostringstream title;
  title << view.name << ' ' << fs::path(file).stem().string() << ": ";
  if (!view.isUsed()) {
    title << "left out: " << view.reason;
    return title.str();
  }
  title.precision(3);
  title << view.devices[device].imgPnts.size() << " points, RMS " << mv::rms(view.devices[device].residuals)
        << " px, errors " << std::lround(enlargement) << " times enlarged";
  return title.str();
}

mv::AMat targetPicture(cv::Mat const& image, mv::CalibratedView const& view, Photograph const& photograph,
                       double pitch, double error) {
  constexpr double typicalLength = 0.012; // of the image's width, of an arrow as long as the RMS error
  double const enlargement = typicalLength * image.cols / std::max(error, 1e-9);
  mv::AMat picture(image);
  picture.setTitle(titleOf(view, photograph.file, photograph.device, enlargement));
  if (photograph.device >= view.devices.size()) {
    return picture;
  }
  mv::ViewPoints const& points = view.devices[photograph.device];
  std::vector<SeenDot> dots;
  for (std::size_t i = 0; i < points.imgPnts.size(); ++i) {
    dots.push_back(
        {points.imgPnts[i], {cvRound(points.objPnts[i].x / pitch), cvRound(points.objPnts[i].y / pitch)}});
  }
  addTarget(picture, dots, false);
  mv::MarkStyle style;
  style.meaning = mv::Meaning::Reference;
  style.size = 3.0;
  for (std::size_t i = 0; i < points.residuals.size(); ++i) {
    cv::Point2d const from = points.imgPnts[i];
    picture.addArrow(from, from + cv::Point2d(points.residuals[i]) * enlargement, style, "errors");
  }
  return picture;
}

mv::AMat linePicture(cv::Mat const& image, mv::CalibratedView const& view, std::size_t line) {
  mv::AMat picture(image);
  std::ostringstream title;
  title.precision(3);
  title << view.name << " line " << line << ": " << view.lines[line].imgPnts.size()
        << " points on the target, " << view.lines[line].planeRms << " mm from the plane (RMS)";
  picture.setTitle(title.str());
  mv::MarkStyle style;
  style.meaning = mv::Meaning::Found;
  style.size = 1.0;
  style.hasHalo = false;
  for (cv::Point2f const& point : view.lines[line].imgPnts) {
    picture.addPoint(cv::Point2d(point), style, "line");
  }
  return picture;
}

} // namespace

int writeViewOverlays(std::string const& folder, std::string const& overlays,
                      mv::Calibration const& calibration, double pitch, mv::DrawSettings const& settings,
                      ViewNames const& names) {
  makeFolder(overlays);
  int written = 0;
  auto const write = [&](std::string const& name, mv::AMat const& picture) {
    writeFigure((fs::path(overlays) / name).string(), picture, settings);
    ++written;
  };
  for (mv::CalibratedView const& view : calibration.views) {
    fs::path const pose = viewPath(folder, view.name);
    for (Photograph const& photograph : photographsOf(calibration, names)) {
      bool const isPicture = fs::is_regular_file(pose); // a view of one camera may be a picture itself
      fs::path const file = isPicture ? pose : fileOf(pose, photograph.file, view);
      cv::Mat const image = file.empty() ? cv::Mat() : readPhotograph(file, view);
      if (!image.empty()) {
        double const error = calibration.report.devices[photograph.device].rms;
        write(isPicture ? pose.stem().string() + ".png" : view.name + "_" + file.stem().string() + ".png",
              targetPicture(image, view, photograph, pitch, error));
      }
    }
    std::vector<std::string> const lines =
        view.isUsed() ? lineFiles(pose, view.lines.size(), names) : std::vector<std::string>();
    for (std::size_t line = 0; line < lines.size(); ++line) {
      if (!lines[line].empty()) {
        write(view.name + "_" + fs::path(lines[line]).stem().string() + ".png",
              linePicture(readImage(lines[line]), view, line));
      }
    }
  }
  if (calibration.report.nextView) {
    write("next_view.png", nextViewPicture(calibration, calibration.report.adjustment->models[0]));
  }
  return written;
}

} // namespace vorn::tools
