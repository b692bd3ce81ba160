// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <initializer_list>

#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/measure/amat.hpp>

#include "core/error.hpp"
#include "measure/mark_names.hpp"

namespace vorn::mv {

namespace {

using Names = std::initializer_list<char const*>;

constexpr Names kinds{"Point",   "Cross", "Arrow",    "Line",   "Circle", "Ellipse",
                      "Polygon", "Text",  "ScaleBar", "Legend", "Axes"};
constexpr Names spaces{"Pixel", "World"};
constexpr Names maps{"Turbo", "TurboDown", "Gray", "Diverging"};
constexpr Names meanings{"Note", "Found", "Dropped", "Warning", "Reference"};
constexpr Names fonts{"Small", "Medium", "Large"};

template <class Enum>
std::string item(Names const& names, Enum value) {
  return names.begin()[static_cast<std::size_t>(value)];
}

template <class Enum>
Enum valueOf(Names const& names, nlohmann::json const& json, char const* member) {
  auto const name = json.at(member).get<std::string>();
  auto const found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    throw error("\"" + std::string(member) + "\" has no item \"" + name + "\"", "AMat");
  }
  return static_cast<Enum>(found - names.begin());
}

nlohmann::json toJson(MarkStyle const& style) {
  nlohmann::json json{{"meaning", item(meanings, style.meaning)},
                      {"width", style.width},
                      {"size", style.size},
                      {"filled", style.isFilled},
                      {"opacity", style.opacity},
                      {"halo", style.hasHalo},
                      {"font", item(fonts, style.font)},
                      {"fontScale", style.fontScale}};
  if (style.color) {
    json["color"] = *style.color;
  }
  return json;
}

MarkStyle styleFrom(nlohmann::json const& json) {
  MarkStyle style;
  style.meaning = valueOf<Meaning>(meanings, json, "meaning");
  json.at("width").get_to(style.width);
  json.at("size").get_to(style.size);
  json.at("filled").get_to(style.isFilled);
  json.at("opacity").get_to(style.opacity);
  json.at("halo").get_to(style.hasHalo);
  style.font = valueOf<FontSize>(fonts, json, "font");
  json.at("fontScale").get_to(style.fontScale);
  if (json.contains("color")) {
    style.color = json.at("color").get<cv::Vec3b>();
  }
  return style;
}

} // namespace

std::string nameOf(MarkKind kind) {
  return item(kinds, kind);
}

nlohmann::json toJson(Mark const& mark) {
  nlohmann::json json{{"kind", nameOf(mark.kind)}, {"space", item(spaces, mark.space)},
                      {"points", mark.points},     {"style", toJson(mark.style)},
                      {"layer", mark.layer},       {"text", mark.text}};
  if (mark.kind == MarkKind::Legend) {
    json.update({{"map", item(maps, mark.map)}, {"low", mark.low}, {"high", mark.high}, {"unit", mark.unit}});
  } else {
    json.update({{"length", mark.length},
                 {"length2", mark.length2},
                 {"angle", mark.angle},
                 {"mmPerPixel", mark.mmPerPixel}});
  }
  return json;
}

Mark markFrom(nlohmann::json const& json) {
  Mark mark;
  mark.kind = valueOf<MarkKind>(kinds, json, "kind");
  mark.space = valueOf<MarkSpace>(spaces, json, "space");
  json.at("points").get_to(mark.points);
  mark.style = styleFrom(json.at("style"));
  json.at("layer").get_to(mark.layer);
  json.at("text").get_to(mark.text);
  if (mark.kind == MarkKind::Legend) {
    mark.map = valueOf<ColorMap>(maps, json, "map");
    json.at("low").get_to(mark.low);
    json.at("high").get_to(mark.high);
    json.at("unit").get_to(mark.unit);
  } else {
    json.at("length").get_to(mark.length);
    json.at("length2").get_to(mark.length2);
    json.at("angle").get_to(mark.angle);
    json.at("mmPerPixel").get_to(mark.mmPerPixel);
  }
  return mark;
}

void AMat::write(nlohmann::json& json) const {
  json = {{"Title", title_}, {"HiddenLayers", hiddenLayers_}, {"Marks", nlohmann::json::array()}};
  for (Mark const& mark : marks_) {
    json["Marks"].push_back(toJson(mark));
  }
  if (!camera_.getK().empty()) {
    camera_.write(json["View"]["Camera"]);
    json["View"]["CamFromWorld"] = cam_from_world_;
  }
}

void AMat::read(nlohmann::json const& json) {
  AMat other;
  json.at("Title").get_to(other.title_);
  json.at("HiddenLayers").get_to(other.hiddenLayers_);
  for (nlohmann::json const& mark : json.at("Marks")) {
    other.add(markFrom(mark));
  }
  if (json.contains("View")) {
    CameraModel camera;
    camera.read(json.at("View").at("Camera"));
    other.setView(camera, json.at("View").at("CamFromWorld").get<cv::Matx44d>());
  }
  other.image_ = image_;
  *this = std::move(other);
}

} // namespace vorn::mv
