// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/fusion_report.hpp"

#include <algorithm>
#include <iostream>
#include <utility>

#include <vorn/core/exception.hpp>

#include "tools/report/mesh_report.hpp"
#include "tools/report/printed.hpp"

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

void fillFusionPage(mv::Fusion const& fusion, std::string const& name, Page& page) {
  page.title = "Fused part";
  page.subtitle = name;
  PageCloud cloud;
  cloud.name = "surface";
  cloud.points = fusion.mesh.vertices;
  cloud.normals = fusion.mesh.normals;
  cloud.colors = fusion.mesh.colors;
  cloud.triangles = fusion.mesh.triangles;
  for (auto const& [field, unit] : {std::pair("sigma", "mm"), std::pair("views", "")}) {
    cv::Mat_<float> const& values = fusion.cloud.fields().at(field);
    PageField of{field, unit, {}, false};
    for (unsigned const cell : fusion.mesh.cells) {
      of.values.push_back(values(static_cast<int>(cell)));
    }
    cloud.fields.push_back(std::move(of));
  }
  cloud.coloredBy = "sigma";
  page.add(cloud);
}

} // namespace vorn::tools
