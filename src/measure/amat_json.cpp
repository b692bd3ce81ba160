// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <initializer_list>

#include <vorn/mv/core/matrix_json.hpp>
#include <vorn/mv/measure/amat.hpp>

#include "core/json_member.hpp"
#include "measure/mark_names.hpp"

namespace vorn::mv {

namespace {

constexpr char const* context = "AMat";

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
  auto const name = jsonValue<std::string>(json, member, context);
  auto const found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    throw JsonRefusal(member, " has no item \"" + name + '"', context);
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
  readJson(json, "width", style.width, context);
  readJson(json, "size", style.size, context);
  readJson(json, "filled", style.isFilled, context);
  readJson(json, "opacity", style.opacity, context);
  readJson(json, "halo", style.hasHalo, context);
  style.font = valueOf<FontSize>(fonts, json, "font");
  readJson(json, "fontScale", style.fontScale, context);
  if (json.contains("color")) {
    style.color = jsonValue<cv::Vec3b>(json, "color", context);
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
  readJson(json, "points", mark.points, context);
  nlohmann::json const& style = jsonMember(json, "style", context);
  mark.style = atJsonPlace("style", context, [&] { return styleFrom(style); });
  readJson(json, "layer", mark.layer, context);
  readJson(json, "text", mark.text, context);
  if (mark.kind == MarkKind::Legend) {
    mark.map = valueOf<ColorMap>(maps, json, "map");
    readJson(json, "low", mark.low, context);
    readJson(json, "high", mark.high, context);
    readJson(json, "unit", mark.unit, context);
  } else {
    readJson(json, "length", mark.length, context);
    readJson(json, "length2", mark.length2, context);
    readJson(json, "angle", mark.angle, context);
    readJson(json, "mmPerPixel", mark.mmPerPixel, context);
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
  readJson(json, "Title", other.title_, context);
  nlohmann::json const& hidden = jsonMember(json, "HiddenLayers", context);
  atJsonPlace("HiddenLayers", context, [&] {
    requireJson(hidden.is_array(), hidden, "a list", context);
    for (std::size_t i = 0; i < hidden.size(); ++i) {
      atJsonIndex(i, context, [&] {
        requireJson(hidden[i].is_string(), hidden[i], "a text", context);
        other.hiddenLayers_.insert(hidden[i].get<std::string>());
      });
    }
  });
  nlohmann::json const& marks = jsonMember(json, "Marks", context);
  atJsonPlace("Marks", context, [&] {
    requireJson(marks.is_array(), marks, "a list", context);
    for (std::size_t i = 0; i < marks.size(); ++i) {
      atJsonIndex(i, context, [&] { other.add(markFrom(marks[i])); });
    }
  });
  if (json.contains("View")) {
    atJsonPlace("View", context, [&] {
      CameraModel camera;
      readJsonObject(json["View"], "Camera", camera, context);
      other.setView(camera, jsonValue<cv::Matx44d>(json["View"], "CamFromWorld", context));
    });
  }
  other.image_ = image_;
  *this = std::move(other);
}

} // namespace vorn::mv
