// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/fusion_report.hpp"

#include <algorithm>
#include <iostream>
#include <utility>

#include <vorn/core/exception.hpp>
#include <vorn/mv/registration/deviation.hpp>

#include "tools/report/mesh_report.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/report/printed.hpp"
#include "tools/report/registration_page.hpp"

namespace vorn::tools {

namespace {

/// Of places that others see as well, more than so many beyond their reach are no chance.
constexpr double mostApart = 0.1;

void warnOf(mv::Fusion const& fusion, std::vector<std::string> const& names, Report& report) {
  bool const isSeveral = fusion.views.size() > 1;
  if (isSeveral && std::all_of(fusion.views.begin(), fusion.views.end(),
                               [](mv::FusedView const& view) { return view.overlap == 0.0; })) {
    throw Exception("No view overlaps another: are their poses those of this part, and in mm?", nullptr, 0,
                    "fuse");
  }
  for (std::size_t i = 0; i < fusion.views.size(); ++i) {
    mv::FusedView const& view = fusion.views[i];
    if (isSeveral && view.overlap == 0.0) {
      report.warn(names[i] + " overlaps no other view: its pose could not be checked");
    } else if (view.apart > mostApart) {
      report.warn(printed("%s lies off the others by more than %.3g mm over %.0f %% of what they share: "
                          "its pose is not good enough to fuse",
                          names[i].c_str(), fusion.reach, 100.0 * view.apart));
    }
  }
}

void addSurface(mv::Fusion const& fusion, Page& page) {
  PageCloud cloud;
  cloud.name = "surface";
  cloud.points = fusion.mesh.vertices;
  cloud.normals = fusion.mesh.normals;
  cloud.colors = fusion.mesh.colors;
  cloud.triangles = fusion.mesh.triangles;
  auto const addField = [&](char const* field, char const* unit, bool isSigned) {
    cv::Mat_<float> const& values = fusion.cloud.fields().at(field);
    PageField of{field, unit, {}, isSigned};
    for (unsigned const cell : fusion.mesh.cells) {
      of.values.push_back(values(static_cast<int>(cell)));
    }
    cloud.fields.push_back(std::move(of));
  };
  cloud.coloredBy = "sigma";
  if (fusion.cloud.fields().count("deviation") > 0) {
    addField("deviation", "mm", true);
    cloud.coloredBy = "deviation";
  }
  addField("sigma", "mm", false);
  addField("views", "", false);
  page.add(cloud);
}

/// A view with the distances of its points from the surface; together the views have as many points as it may
/// have.
void addView(mv::Fusion const& fusion, mv::PointCloud const& view, std::string const& name, std::size_t count,
             Page& page) {
  mv::DeviationSettings settings;
  settings.surfaceFromCloud = view.getTransform();
  constexpr double shown = 4.0; // as far as places count as apart
  settings.maxDistance = shown * fusion.reach;
  MovedCloud moved =
      movedCloud(name, view, view.getTransform(), mv::calcDeviations(view, fusion.cloud, settings));
  PageCloud cloud;
  cloud.name = name;
  cloud.isShown = false;
  cloud.points = std::move(moved.points);
  cloud.fields.push_back({"distance from the surface", "mm", std::move(moved.deviations), true});
  page.add(cloud, count);
}

void addSurfaceFigures(mv::Fusion const& fusion, Report& report) {
  using Weight = PageFinding::Weight;
  nlohmann::json const& mesh = report["mesh"];
  std::size_t const rims = mesh["boundaries"].size();
  report.page().findings.push_back(
      {Weight::Note,
       printed("%zu views make one surface with points %.3g mm apart; it %s.", fusion.views.size(),
               fusion.spacing,
               rims == 0 ? "is closed"
                         : printed("is open at %zu rims, the longest %.4g mm long", rims,
                                   mesh["boundaries"][0]["length"].get<double>())
                               .c_str()),
       rims == 0 ? "" : "Places that no view sees need another one; --close closes small holes."});
  PageTable table;
  table.title = "Surface";
  bool const isClosed = mesh["volume"].is_number();
  table.rows = {
      {"points", countText(fusion.cloud.presentCount())},
      {"distance of points [mm]", figure(fusion.spacing)},
      {"skins farther apart are different surfaces [mm]", figure(fusion.reach)},
      {"triangles", countText(fusion.mesh.triangles.size())},
      {"area [mm\u00b2]", figure(mesh["area"].get<double>())},
      {"volume [mm\u00b3]", isClosed ? figure(mesh["volume"].get<double>()) : "none: it is not closed"},
      {"pieces", countText(mesh["pieces"].get<std::size_t>())},
      {"rims", countText(rims)},
      {"faulty edges", countText(mesh["faultyEdges"].get<std::size_t>())},
      {"triangles without area", countText(mesh["degenerateTriangles"].get<std::size_t>())}};
  if (report.has("registration")) {
    nlohmann::json const& found = report["registration"];
    table.rows.push_back({"pairs of views that overlap", countText(found["overlaps"].get<std::size_t>())});
    table.rows.push_back(
        {"distance of views where they overlap, RMS [mm]", figure(found["rms"].get<double>())});
  }
  report.page().tables.push_back(table);
}

void addViewTable(mv::Fusion const& fusion, std::vector<std::string> const& names, Page& page) {
  constexpr double percent = 100.0;
  PageTable table;
  table.title = "Views";
  table.head = {"view",       "points",      "outliers",        "strays", "seen by others too [%]",
                "sigma [mm]", "offset [mm]", "off it, RMS [mm]"};
  for (std::size_t i = 0; i < names.size(); ++i) {
    mv::FusedView const& view = fusion.views[i];
    table.rows.push_back({names[i], countText(view.points), countText(view.outliers), countText(view.strays),
                          printed("%.1f", percent * view.overlap), figure(view.sigma), figure(view.offset),
                          figure(view.rms)});
  }
  page.tables.push_back(table);
}

} // namespace

void reportFusion(mv::Fusion const& fusion, std::vector<std::string> const& names, Report& report) {
  std::cout << printed("%-20s %10s %9s %7s %9s %9s %9s %9s\n", "view", "points", "outliers", "strays",
                       "overlap", "sigma", "offset", "rms");
  nlohmann::json views = nlohmann::json::array();
  for (std::size_t i = 0; i < fusion.views.size(); ++i) {
    mv::FusedView const& view = fusion.views[i];
    std::cout << printed("%-20s %10zu %9zu %7zu %7.1f %% %9.4f %9.4f %9.4f\n", names[i].c_str(), view.points,
                         view.outliers, view.strays, 100.0 * view.overlap, view.sigma, view.offset, view.rms);
    views.push_back({{"name", names[i]},
                     {"points", view.points},
                     {"outliers", view.outliers},
                     {"strays", view.strays},
                     {"overlap", view.overlap},
                     {"apart", view.apart},
                     {"sigma", view.sigma},
                     {"offset", view.offset},
                     {"rms", view.rms}});
  }
  warnOf(fusion, names, report);
  std::cout << printed("points      %zu, %.4g mm apart\n", fusion.cloud.presentCount(), fusion.spacing);
  report["views"] = std::move(views);
  report["points"] = fusion.cloud.presentCount();
  report["spacing"] = fusion.spacing;
  report["reach"] = fusion.reach;
  reportMesh(fusion.mesh, report);
}

void reportRegistration(mv::ViewsRegistration const& found, Report& report) {
  std::cout << printed("registered  %zu views by %zu overlaps, %.4f mm RMS, in %d steps\n",
                       found.views.size(), found.pairs.size(), found.rms, found.iterations);
  report["registration"] = {{"rms", found.rms},
                            {"overlaps", found.pairs.size()},
                            {"groups", found.groups.size()},
                            {"iterations", found.iterations}};
}

graphic::GraphicObject fusedObject(mv::Fusion const& fusion) {
  graphic::GraphicObject object = fusion.cloud.getGraphicObject(false);
  for (cv::Vec3i const& triangle : fusion.mesh.triangles) {
    auto const pointOf = [&](int vertex) {
      return static_cast<int>(fusion.mesh.cells[static_cast<std::size_t>(vertex)]);
    };
    object.triangles().emplace_back(pointOf(triangle[0]), pointOf(triangle[1]), pointOf(triangle[2]));
  }
  return object;
}

void fillFusionPage(mv::Fusion const& fusion, std::string const& name,
                    std::vector<mv::PointCloud> const& views, std::vector<std::string> const& names,
                    Report& report) {
  Page& page = report.page();
  page.title = "Fused part";
  page.subtitle = name;
  addSurface(fusion, page);
  for (std::size_t i = 0; i < views.size() && views.size() > 1; ++i) {
    addView(fusion, views[i], names[i], views.size(), page);
  }
  addSurfaceFigures(fusion, report);
  addViewTable(fusion, names, page);
}

} // namespace vorn::tools
