// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/calibration_page.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include <opencv2/core.hpp>

#include <vorn/mv/geometry/plane3f.hpp>

#include "tools/calibration/adjustment_plots.hpp"
#include "tools/calibration/calibration_report.hpp"
#include "tools/calibration/device_outlines.hpp"
#include "tools/calibration/next_view_picture.hpp"
#include "tools/calibration/residual_plots.hpp"
#include "tools/report/page_tables.hpp"

namespace vorn::tools {

using mv::CalibratedView;
using mv::Calibration;
using mv::DeviceReport;
using mv::ViewPoints;

namespace {

using Weight = PageFinding::Weight;

/// A device and where it stands; all in the frame of the first one.
struct Device {
  mv::CameraModel const& model;
  cv::Matx44d cam_from_device;
};

using Devices = std::vector<Device>;

cv::Vec3f placed(cv::Matx44d const& cam_from_target, cv::Point2f const& p) {
  cv::Vec4d const q =
      cam_from_target * cv::Vec4d(static_cast<double>(p.x), static_cast<double>(p.y), 0.0, 1.0);
  return cv::Vec3f(cv::Vec3d(q[0], q[1], q[2]));
}

cv::Vec3b viewColor(std::size_t view) {
  return mv::seriesColor(static_cast<int>(view), mv::Ground::Light);
}

/// Where the target stood in a view.
cv::Matx44d cam_from_target(Devices const& devices, CalibratedView const& view) {
  return devices.front().model.estimate(view.devices.front().imgPnts, view.devices.front().objPnts);
}

void addFindings(Page& page, Calibration const& calibration) {
  for (DeviceReport const& device : calibration.report.devices) {
    std::string const error = device.name + ": the reprojection error is " + figure(device.rms) + " px.";
    page.findings.push_back(
        device.isCalibrated ? PageFinding{Weight::Good, error, ""}
                            : PageFinding{Weight::Failure, error + " It does not count as calibrated.",
                                          "It must be below half a pixel: look at the plot of the errors, "
                                          "and leave out or repeat the worst views."});
  }
  if (calibration.report.isProjectorGuessed) {
    page.findings.push_back({Weight::Warning, "The projector's pixels were taken from the decoded images.",
                             "--projector sets them."});
  }
  if (!calibration.report.shapeLimit.empty()) {
    page.findings.push_back({Weight::Note, calibration.report.shapeLimit + ".", ""});
  }
  if (!calibration.report.notAdjusted.empty()) {
    page.findings.push_back(
        {Weight::Warning, "The views were not adjusted together: " + calibration.report.notAdjusted, ""});
  }
  for (mv::Finding const& finding : calibration.report.findings) {
    if (isLeftOut(finding, calibration)) {
      continue; // said of the view, below
    }
    page.findings.push_back(
        {finding.isGrave ? Weight::Failure : Weight::Warning, finding.text, finding.advice});
  }
  for (CalibratedView const& view : calibration.views) {
    if (!view.isUsed()) {
      page.findings.push_back({Weight::Warning, view.name + " was left out: " + view.reason, ""});
    } else if (!view.remark.empty()) {
      page.findings.push_back({Weight::Note, view.name + ": " + view.remark, ""});
    }
  }
}

PageTable deviceTable(Calibration const& calibration, Devices const& devices) {
  PageTable table;
  table.title = "Devices";
  table.head = {
      "device", "pixels", "error [px]", "focal lengths [px]", "middle [px]", "distortion k1, k2, p1, p2, k3"};
  for (std::size_t d = 0; d < devices.size(); ++d) {
    DeviceReport const& report = calibration.report.devices[d];
    cv::Matx33d const k = devices[d].model.getK();
    cv::Mat_<double> const distortion = devices[d].model.getD();
    std::string coefficients;
    for (double const value : distortion) {
      coefficients += (coefficients.empty() ? "" : ", ") + figure(value);
    }
    table.rows.push_back(
        {report.name,
         std::to_string(report.resolution.width) + " x " + std::to_string(report.resolution.height),
         figure(report.rms), figure(k(0, 0)) + ", " + figure(k(1, 1)),
         figure(k(0, 2)) + ", " + figure(k(1, 2)), coefficients});
  }
  return table;
}

PageTable viewTable(Calibration const& calibration) {
  PageTable table;
  table.title = "Views";
  table.head = {"view"};
  for (DeviceReport const& device : calibration.report.devices) {
    table.head.push_back(device.name + ": points");
    table.head.push_back("error [px]");
  }
  for (std::size_t p = 0; p < calibration.report.planes.size(); ++p) {
    table.head.push_back("line " + std::to_string(p) + ": points");
    table.head.push_back("off plane [mm]");
  }
  for (std::size_t v = 0; v < calibration.views.size(); ++v) {
    CalibratedView const& view = calibration.views[v];
    std::vector<std::string> row{view.name};
    for (ViewPoints const& seen : view.isUsed() ? view.devices : std::vector<ViewPoints>()) {
      row.push_back(countText(seen.imgPnts.size()));
      row.push_back(figure(mv::rms(seen.residuals)));
    }
    for (mv::ViewLine const& line : view.isUsed() ? view.lines : std::vector<mv::ViewLine>()) {
      row.push_back(countText(line.imgPnts.size()));
      row.push_back(figure(line.planeRms));
    }
    if (!view.isUsed()) {
      row.emplace_back("left out");
    }
    row.resize(table.head.size());
    table.rows.push_back(row);
    table.keys.push_back(viewColor(v));
  }
  return table;
}

/// How the second device stands to the first one.
PageTable transformTable(Calibration const& calibration, Device const& second) {
  cv::Matx44d const& t = second.cam_from_device;
  cv::Vec3d const base(t(0, 3), t(1, 3), t(2, 3));
  double const cosine = t(2, 2) / std::sqrt(t(0, 2) * t(0, 2) + t(1, 2) * t(1, 2) + t(2, 2) * t(2, 2));
  constexpr double degrees = 180.0 / CV_PI;
  PageTable table;
  std::vector<DeviceReport> const& devices = calibration.report.devices;
  table.title = "From " + devices[1].name + " to " + devices[0].name;
  table.rows = {
      {"base [mm]", figure(cv::norm(base))},
      {"place x, y, z [mm]", figure(base[0]) + ", " + figure(base[1]) + ", " + figure(base[2])},
      {"angle between the axes [degrees]", figure(std::acos(std::clamp(cosine, -1.0, 1.0)) * degrees)},
      {"mean rotation off a rotation by", figure(calibration.report.rotationDefect)}};
  return table;
}

/// The dots as one device saw them, in space, with their errors.
PageCloud dotsOf(Calibration const& calibration, Devices const& devices, std::size_t device) {
  PageCloud cloud;
  cloud.name = "points, by the error of the " + calibration.report.devices[device].name;
  cloud.coloredBy = "error";
  cloud.isShown = device == 0;
  cloud.isSurface = false;
  PageField error{"error", "px", {}};
  for (CalibratedView const& view : calibration.views) {
    if (!view.isUsed()) {
      continue;
    }
    cv::Matx44d const pose = cam_from_target(devices, view);
    ViewPoints const& seen = view.devices[device];
    for (std::size_t i = 0; i < seen.objPnts.size(); ++i) {
      cloud.points.push_back(placed(pose, seen.objPnts[i]));
      error.values.push_back(i < seen.residuals.size() ? static_cast<float>(cv::norm(seen.residuals[i]))
                                                       : std::numeric_limits<float>::quiet_NaN());
    }
  }
  cloud.fields.push_back(error);
  return cloud;
}

/// The rectangle of a view's dots where the target stood. Its name is at another corner for each of four
/// views, so that names leave each other room.
PageOutline boardOf(Devices const& devices, CalibratedView const& view, std::size_t number) {
  std::vector<cv::Point2f> const& dots = view.devices.front().objPnts;
  cv::Point2f low = dots.front();
  cv::Point2f high = dots.front();
  for (cv::Point2f const& p : dots) {
    low = {std::min(low.x, p.x), std::min(low.y, p.y)};
    high = {std::max(high.x, p.x), std::max(high.y, p.y)};
  }
  cv::Matx44d const pose = cam_from_target(devices, view);
  auto const corner = [&](float x, float y) {
    cv::Vec3f const p = placed(pose, {x, y});
    return cv::Point3d(cv::Point3f(p));
  };
  PageOutline outline;
  outline.name = view.name;
  outline.group = "target poses";
  outline.color = viewColor(number);
  outline.face = {corner(low.x, low.y), corner(high.x, low.y), corner(high.x, high.y), corner(low.x, high.y)};
  std::size_t const turn = number % outline.face.size();
  std::rotate(outline.face.begin(), outline.face.begin() + static_cast<std::ptrdiff_t>(turn),
              outline.face.end());
  outline.lines = {outline.face};
  outline.lines.front().push_back(outline.face.front());
  return outline;
}

/// How far away the target stood, about.
double usualDepth(PageCloud const& dots) {
  double sum = 0.0;
  for (cv::Vec3f const& p : dots.points) {
    sum += static_cast<double>(p[2]);
  }
  return dots.points.empty() ? 1.0 : sum / static_cast<double>(dots.points.size());
}

void describe(Page& page, Calibration const& calibration, Devices const& devices) {
  page.title = "Calibration";
  addFindings(page, calibration);
  page.tables.push_back(deviceTable(calibration, devices));
  if (devices.size() > 1) {
    page.tables.push_back(transformTable(calibration, devices[1]));
  }
  page.tables.push_back(viewTable(calibration));
  addErrorPlots(page, calibration);
  for (mv::Plot const& plot : adjustmentPlots(calibration, mv::Ground::Light)) {
    page.add("Views: " + plot.title, "", {plot});
  }
  for (std::size_t v = 0; v < calibration.views.size(); ++v) {
    if (calibration.views[v].isUsed()) {
      page.outlines.push_back(boardOf(devices, calibration.views[v], v));
    }
  }
  // Long enough to show where a device looks, and short enough to leave the target alone.
  constexpr double share = 0.3;
  double const depth = share * usualDepth(dotsOf(calibration, devices, 0));
  for (std::size_t d = 0; d < devices.size(); ++d) {
    std::string const& name = calibration.report.devices[d].name;
    page.add(dotsOf(calibration, devices, d));
    page.outlines.push_back(frustumOf(devices[d].model, devices[d].cam_from_device, depth, name,
                                      mv::seriesColor(static_cast<int>(d), mv::Ground::Light)));
    page.views.push_back(viewOf(devices[d].model, devices[d].cam_from_device, name));
  }
}

/// A rectangle of the plane around points on it.
PageOutline planeOutline(mv::Plane3f const& plane, std::vector<cv::Point3f> const& points,
                         std::string const& name) {
  cv::Vec3f const normal = plane.normal();
  // The direction of the plane that is nearest to the camera's x axis, or to y where that stands upright on
  // it.
  constexpr float upright = 0.9F;
  cv::Vec3f const axis = std::abs(normal[0]) < upright ? cv::Vec3f(1, 0, 0) : cv::Vec3f(0, 1, 0);
  cv::Vec3f const u = cv::normalize(axis - normal * axis.dot(normal));
  cv::Vec3f const v = normal.cross(u);
  cv::Vec3f const origin(plane.point());
  cv::Vec2f low(std::numeric_limits<float>::max(), std::numeric_limits<float>::max());
  cv::Vec2f high = -low;
  for (cv::Point3f const& p : points) {
    cv::Vec3f const at = cv::Vec3f(p) - origin;
    cv::Vec2f const place(at.dot(u), at.dot(v));
    for (int i = 0; i < 2; ++i) {
      low[i] = std::min(low[i], place[i]);
      high[i] = std::max(high[i], place[i]);
    }
  }
  auto const corner = [&](float a, float b) { return cv::Point3d(cv::Point3f(origin + u * a + v * b)); };
  PageOutline outline;
  outline.name = name;
  outline.group = "laser planes";
  outline.color = cv::Vec3b(40, 39, 214);
  outline.face = {corner(low[0], low[1]), corner(high[0], low[1]), corner(high[0], high[1]),
                  corner(low[0], high[1])};
  outline.lines = {outline.face};
  outline.lines.front().push_back(outline.face.front());
  return outline;
}

} // namespace

void addErrorPlots(Page& page, Calibration const& calibration) {
  std::vector<mv::Plot> const plots = meanErrorPlots(calibration, mv::Ground::Light);
  for (std::size_t d = 0; d < plots.size(); ++d) {
    page.add(
        "Errors of the target's points, " + calibration.report.devices[d].name,
        "Where the model puts the points against where they were measured, the mean of points nearby, much "
        "enlarged. Arrows with a pattern are what the model does not tell: another lens, or a bent target.",
        {plots[d]});
  }
  std::string names;
  for (mv::DeviceReport const& device : calibration.report.devices) {
    names += (names.empty() ? "" : ", ") + device.name;
  }
  page.add("Errors of the views, " + names, "", {errorsByViewPlot(calibration, mv::Ground::Light)});
}

void describeCalibration(Page& page, mv::CameraCalibration const& calibration) {
  describe(page, calibration, {{calibration.object, cv::Matx44d::eye()}});
}

void describeCalibration(Page& page, mv::ScannerCalibration const& calibration) {
  mv::Sl3dScanner const& scanner = calibration.object;
  describe(page, calibration,
           {{scanner.getCameraModel(), cv::Matx44d::eye()},
            {scanner.getProjectorModel(), scanner.getTransform()}});
  if (calibration.report.nextView) {
    page.add("Where to hold the target next", nextViewText(*calibration.report.nextView) + ".",
             nextViewPicture(calibration, scanner.getCameraModel()));
  }
}

void describeCalibration(Page& page, mv::StereoCalibration const& calibration) {
  mv::StereoCamera const& pair = calibration.object;
  describe(page, calibration,
           {{pair.getCameraModel0(), cv::Matx44d::eye()}, {pair.getCameraModel1(), pair.getTransform()}});
}

void describeCalibration(Page& page, mv::LaserCalibration const& calibration) {
  mv::LineScanner const& scanner = calibration.object;
  describe(page, calibration, {{scanner.getCameraModel(), cv::Matx44d::eye()}});
  for (std::size_t i = 0; i < scanner.getPlanes().size(); ++i) {
    mv::Plane3f const& plane = scanner.getPlanes()[i];
    std::vector<cv::Point3f> points;
    for (CalibratedView const& view : calibration.views) {
      if (view.isUsed() && !view.lines[i].imgPnts.empty()) {
        std::vector<cv::Point3f> const seen =
            scanner.triangulate(view.lines[i].imgPnts, static_cast<int>(i), cv::Point2f());
        points.insert(points.end(), seen.begin(), seen.end());
      }
    }
    if (!points.empty()) {
      page.outlines.push_back(planeOutline(plane, points, "laser " + std::to_string(i)));
    }
  }
}

} // namespace vorn::tools
