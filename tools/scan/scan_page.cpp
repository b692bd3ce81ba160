// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/scan_page.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <utility>

#include <opencv2/core.hpp>

#include "core/median.hpp"
#include "sl/coding/stripe_code.hpp"
#include "tools/calibration/device_outlines.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/scan/preview.hpp"
#include "tools/scan/scan_report.hpp"

namespace vorn::tools {

using mv::PixelReason;

namespace {

struct ReasonWords {
  PixelReason reason;
  char const* name;
  char const* advice;
  cv::Vec3b color; ///< blue, green, red
};

constexpr std::size_t reasonCount = mv::pixelReasonCount - 1; // but Measured

std::array<ReasonWords, reasonCount> const& reasons() {
  static std::array<ReasonWords, reasonCount> const all{{
      {PixelReason::Clipped, "too bright", "Expose shorter, or dim the projector.", {40, 39, 214}},
      {PixelReason::Dark,
       "too dark, or in shadow",
       "Expose longer, or brighten the projector; shadows need another view.",
       {120, 70, 30}},
      {PixelReason::LowContrast,
       "little contrast of the code",
       "Shade other light, or brighten the projector.",
       {214, 160, 60}},
      {PixelReason::NoCode, "code not known", "Sharpen the projector, or move nearer.", {189, 103, 148}},
      {PixelReason::Edge,
       "at an edge",
       "Edges of surfaces are left out; another view shows what lies behind.",
       {14, 127, 255}},
      {PixelReason::SmallPiece,
       "in a small piece",
       "MinSegmentSize sets how small a piece may be.",
       {60, 200, 230}},
      {PixelReason::NoPoint, "no point there", "Is the calibration that of this set-up?", {44, 160, 44}},
      {PixelReason::Contradiction,
       "column and row contradict",
       "Was the projector moved since it was calibrated?",
       {0, 0, 0}},
  }};
  return all;
}

constexpr double percent = 100.0;

std::string shareText(std::size_t count, std::size_t of) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(1)
      << percent * static_cast<double>(count) / static_cast<double>(std::max<std::size_t>(of, 1)) << " %";
  return out.str();
}

/// The surface's direction at a grid point from its neighbours; none where they are missing.
cv::Vec3f normalAt(cv::Mat_<cv::Vec3f> const& xyz, int y, int x) {
  auto const step = [&](int dy, int dx) {
    auto const at = [&](int sign) {
      int const row = y + sign * dy;
      int const column = x + sign * dx;
      bool const isInside = row >= 0 && row < xyz.rows && column >= 0 && column < xyz.cols;
      return isInside && std::isfinite(xyz(row, column)[2]) ? xyz(row, column) : xyz(y, x);
    };
    return at(1) - at(-1);
  };
  // Wide enough a baseline to show the shape rather than the noise.
  constexpr int reach = 2;
  cv::Vec3f const normal = step(0, reach).cross(step(reach, 0));
  double const length = cv::norm(normal);
  return length > 0.0 ? normal * static_cast<float>(1.0 / length) : cv::Vec3f();
}

mv::AMat reasonPicture(cv::Mat_<uchar> const& mask) {
  constexpr uchar ground = 225;
  cv::Mat_<cv::Vec3b> picture(mask.size(), cv::Vec3b::all(ground));
  for (int y = 0; y < mask.rows; ++y) {
    for (int x = 0; x < mask.cols; ++x) {
      if (mask(y, x) > 0 && mask(y, x) < mv::pixelReasonCount) {
        picture(y, x) = reasons()[mask(y, x) - 1U].color;
      }
    }
  }
  return mv::AMat(picture);
}

/// A map of values with a legend; from the least to what 1 % exceed.
mv::AMat valuePicture(cv::Mat_<float> const& values, std::string const& unit, std::string const& name) {
  std::vector<float> present;
  std::copy_if(values.begin(), values.end(), std::back_inserter(present),
               [](float v) { return std::isfinite(v); });
  constexpr double share = 0.99;
  double const high =
      present.empty()
          ? 1.0
          : static_cast<double>(rankedAmong(
                present, static_cast<std::size_t>(share * static_cast<double>(present.size() - 1))));
  double const top = std::max(high, 1e-6);
  mv::AMat picture(mv::colored(values, mv::ColorMap::Turbo, 0.0, top, cv::Vec3b::all(255)));
  picture.addLegend(mv::ColorMap::Turbo, 0.0, top, unit, name);
  return picture;
}

PageTable figuresOf(mv::ScanResult const& result) {
  mv::ScanCounts const& counts = result.counts;
  PageTable table;
  table.title = "Scan";
  table.rows = {
      {"points", countText(counts.points)},
      {"share of the pixels", shareText(counts.points, counts.pixels)},
      {"pixels of the camera", std::to_string(result.mask.cols) + " x " + std::to_string(result.mask.rows)},
      {"pixels with a projector coordinate", countText(counts.decoded)}};
  if (counts.points > 0) {
    cv::Point3f const low = result.cloud.boxOrigin();
    cv::Vec3f const size = result.cloud.boxDims();
    float const ends[3] = {low.x, low.y, low.z};
    for (int i = 0; i < 3; ++i) {
      table.rows.push_back(
          {std::string("xyz").substr(static_cast<std::size_t>(i), 1) + " from, to [mm]",
           figure(static_cast<double>(ends[i])) + ", " + figure(static_cast<double>(ends[i] + size[i]))});
    }
  }
  table.rows.push_back({"time to decode [ms]", figure(result.times.decode)});
  table.rows.push_back({"time to triangulate [ms]", figure(result.times.triangulate)});
  return table;
}

PageTable reasonTable(mv::ScanCounts const& counts) {
  PageTable table;
  table.title = "Pixels without a point";
  table.head = {"reason", "pixels", "share", "what helps"};
  for (ReasonWords const& words : reasons()) {
    std::size_t const count = counts.of(words.reason);
    if (count > 0) {
      table.rows.push_back({words.name, countText(count), shareText(count, counts.pixels), words.advice});
      table.keys.push_back(words.color);
    }
  }
  return table;
}

void addFindings(Page& page, mv::ScanCounts const& counts) {
  ReasonWords const& main =
      *std::max_element(reasons().begin(), reasons().end(), [&](ReasonWords const& a, ReasonWords const& b) {
        return counts.of(a.reason) < counts.of(b.reason);
      });
  std::string const missing = counts.of(main.reason) == 0
                                  ? ""
                                  : "; most of the others (" +
                                        shareText(counts.of(main.reason), counts.pixels) +
                                        " of all pixels): " + main.name;
  bool const isEmpty = counts.points == 0;
  page.findings.push_back(
      {isEmpty ? PageFinding::Weight::Failure : PageFinding::Weight::Note,
       (isEmpty ? std::string("No pixel has a point")
                : shareText(counts.points, counts.pixels) + " of the pixels have a point") +
           missing + ".",
       counts.of(main.reason) == 0 ? "" : main.advice});
  if (isEmpty) {
    page.emptyReason = "There is no point to show: " + reasonText(counts) + ".";
  }
}

/// How far the points lie from a device along its axis, about.
double usualDepth(mv::ScanResult const& result, cv::Matx44d const& device_from_world) {
  cv::Point3f const low = result.cloud.boxOrigin();
  cv::Vec3f const size = result.cloud.boxDims();
  cv::Vec4d const middle(static_cast<double>(low.x + size[0] / 2), static_cast<double>(low.y + size[1] / 2),
                         static_cast<double>(low.z + size[2] / 2), 1.0);
  return (device_from_world * middle)[2];
}

void addDevices(Page& page, mv::ScanResult const& result, mv::Sl3dScanner const& scanner) {
  cv::Matx44d const world_from_cam = scanner.getPose();
  cv::Matx44d const world_from_proj = world_from_cam * scanner.getTransform();
  page.views.push_back(viewOf(scanner.getCameraModel(), world_from_cam, "Camera"));
  page.views.push_back(viewOf(scanner.getProjectorModel(), world_from_proj, "Projector"));
  if (result.counts.points == 0) {
    return;
  }
  auto const add = [&](mv::CameraModel const& model, cv::Matx44d const& pose, char const* name, int color) {
    double const depth = std::max(usualDepth(result, pose.inv()), 1.0);
    page.outlines.push_back(frustumOf(model, pose, depth, name, mv::seriesColor(color, mv::Ground::Light)));
    page.outlines.back().isShown = false; // far away from what is looked at
  };
  add(scanner.getCameraModel(), world_from_cam, "camera", 0);
  add(scanner.getProjectorModel(), world_from_proj, "projector", 1);
}

} // namespace

PageCloud pageCloud(mv::ScanResult const& result, std::vector<cv::Vec3i> triangles) {
  PageCloud cloud;
  cloud.name = "points";
  cloud.triangles = std::move(triangles);
  bool const hasTexture = result.cloud.hasTexture();
  PageField modulation{"modulation", "grey levels", {}};
  PageField sigma{"sigma", "projector px", {}};
  for (int y = 0; y < result.mask.rows; ++y) {
    for (int x = 0; x < result.mask.cols; ++x) {
      if (result.cloud.state()(y, x) != 0) {
        continue;
      }
      cloud.points.push_back(result.xyz(y, x));
      cloud.normals.push_back(normalAt(result.xyz, y, x));
      if (hasTexture) {
        cloud.colors.push_back(result.cloud.texture()(y, x));
      }
      if (!result.modulation.empty()) {
        modulation.values.push_back(result.modulation(y, x));
      }
      if (!result.sigma.empty()) {
        sigma.values.push_back(result.sigma(y, x));
      }
    }
  }
  for (PageField* field : {&modulation, &sigma}) {
    if (!field->values.empty()) {
      cloud.fields.push_back(std::move(*field));
    }
  }
  return cloud;
}

void describeScan(Page& page, mv::ScanResult const& result, mv::Sl3dScanner const& scanner,
                  std::string const& axis) {
  addFindings(page, result.counts);
  addDevices(page, result, scanner);
  page.tables.push_back(figuresOf(result));
  page.tables.push_back(reasonTable(result.counts));
  FigureOptions look;
  look.isLight = true;
  if (result.counts.points > 0) {
    page.add("Depth", "What the camera saw, coloured by distance.", drawRelief(result.xyz, {}, "", look));
  }
  page.add("Pixels without a point", "Coloured by reason, as in the table; measured pixels are light grey.",
           reasonPicture(result.mask));
  // The periods of the two coded axes differ; either shows as bands.
  constexpr auto period = static_cast<float>(mv::sl::rowCode.period);
  page.add("Decoded " + axis + "s", "Projector coordinates, brighter along each period.",
           drawDecodedMap(result.map, period, axis, "", look));
  if (!result.modulation.empty()) {
    page.add("Modulation", "The fringes' amplitude: what the projector's light adds to a pixel.",
             valuePicture(result.modulation, "grey levels", "modulation"));
  }
  if (!result.sigma.empty()) {
    page.add("Sigma", "Standard deviation of the projector coordinate that the images' noise gives.",
             valuePicture(result.sigma, "projector px", "sigma"));
  }
}

} // namespace vorn::tools
