// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <vorn/mv/calib/target_description.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "core/error.hpp"
#include "core/json_member.hpp"
#include "core/nearest_word.hpp"

namespace vorn::mv {
namespace {

/// Farther than any index that the search for a target reaches.
constexpr int farthestIndex = 96;

template <class Value, std::size_t Count>
using Names = std::array<std::pair<char const*, Value>, Count>;

constexpr Names<TargetKind, 4> kinds = {{{"circles", TargetKind::Circles},
                                         {"staggered", TargetKind::StaggeredCircles},
                                         {"chessboard", TargetKind::Chessboard},
                                         {"charuco", TargetKind::Charuco}}};
constexpr Names<TargetPolarity, 3> polarities = {
    {{"either", TargetPolarity::Either}, {"bright", TargetPolarity::Bright}, {"dark", TargetPolarity::Dark}}};

template <class Value, std::size_t Count>
Value valueOf(Names<Value, Count> const& names, std::string const& name, char const* member) {
  std::string known;
  for (auto const& entry : names) {
    if (name == entry.first) {
      return entry.second;
    }
    known += (known.empty() ? "" : ", ") + std::string(entry.first);
  }
  throw error("\"" + std::string(member) + "\" of a target is \"" + name + "\" and must be one of " + known,
              "TargetDescription");
}

template <class Value, std::size_t Count>
char const* nameOf(Names<Value, Count> const& names, Value value) {
  return std::find_if(names.begin(), names.end(), [&](auto const& entry) { return entry.second == value; })
      ->first;
}

/// The numbers of a list, of which there must be `Count`.
template <class Number, std::size_t Count>
std::array<Number, Count> numbersOf(nlohmann::json const& json, char const* member) {
  bool const isRight = json.is_array() && json.size() == Count &&
                       std::all_of(json.begin(), json.end(), [](auto const& j) { return j.is_number(); });
  if (!isRight) {
    throw error("\"" + std::string(member) + "\" of a target holds " + json.dump() + " in place of " +
                    std::to_string(Count) + " numbers",
                "TargetDescription");
  }
  return json.get<std::array<Number, Count>>();
}

cv::Point pointOf(nlohmann::json const& json, char const* member) {
  auto const [x, y] = numbersOf<int, 2>(json, member);
  return {x, y};
}

nlohmann::json listOf(nlohmann::json const& json, char const* member) {
  nlohmann::json list = json.value(member, nlohmann::json::array());
  if (!list.is_array()) {
    throw error("\"" + std::string(member) + "\" of a target is no list", "TargetDescription");
  }
  return list;
}

std::string nameIn(nlohmann::json const& json, char const* member, char const* usual) {
  return json.contains(member) ? jsonValue<std::string>(json, member, "TargetDescription") : usual;
}

/// Members of other names are for others, but not one that is misspelt: what it says would be passed over.
void requireNoMisspelling(nlohmann::json const& json) {
  static std::vector<std::string> const known = {"kind",       "pitch",      "size",       "first",
                                                 "marks",      "polarity",   "deviations", "squares",
                                                 "markerSize", "dictionary", "firstMarker"};
  for (auto const& [name, value] : json.items()) {
    std::string const meant = nearestWord(name, known);
    if (!meant.empty() && meant != name) {
      throw error("\"" + name + "\" is no member of a target's description; did you mean \"" + meant + "\"?",
                  "TargetDescription");
    }
  }
}

void require(bool isMet, std::string const& message) {
  if (!isMet) {
    throw error(message, "TargetDescription");
  }
}

bool isChessboard(TargetKind kind) {
  return kind == TargetKind::Chessboard || kind == TargetKind::Charuco;
}

/// Boards are sold by their squares, of which there is one more than inner corners each way.
void readSquares(TargetDescription& target, nlohmann::json const& json) {
  if (!json.contains("squares")) {
    return;
  }
  require(isChessboard(target.kind), "\"squares\" belong to chessboards, and the target is one of " +
                                         std::string(nameOf(kinds, target.kind)));
  cv::Point const corners = pointOf(json["squares"], "squares") - cv::Point(1, 1);
  require(!json.contains("size") || cv::Point(target.size) == corners,
          "\"size\" and \"squares\" of a target do not agree: a board has one square more than inner corners "
          "each way");
  target.size = cv::Size(corners.x, corners.y);
}

void readMarkers(TargetDescription& target, nlohmann::json const& json) {
  if (target.kind != TargetKind::Charuco) {
    return;
  }
  readJson(json, "markerSize", target.markerSize, "TargetDescription");
  readJson(json, "dictionary", target.dictionary, "TargetDescription");
  if (json.contains("firstMarker")) {
    readJson(json, "firstMarker", target.firstMarker, "TargetDescription");
  }
}

void checkMarkers(TargetDescription const& target) {
  require(target.markerSize > 0 && target.markerSize < target.pitch,
          "The markers of a ChArUco board are " + std::to_string(target.markerSize) +
              " mm wide and must be above 0 and below the squares' " + std::to_string(target.pitch) + " mm");
  require(!target.dictionary.empty(), "A ChArUco board takes the name of its markers' dictionary");
  require(target.firstMarker >= 0,
          "The first marker of a target is " + std::to_string(target.firstMarker) + " and must be 0 or more");
}

} // namespace

void TargetDescription::check() const {
  require(pitch > 0 && std::isfinite(pitch),
          "The pitch of a target is " + std::to_string(pitch) + " mm and must be above 0");
  auto const text = std::to_string(size.width) + " x " + std::to_string(size.height);
  require(size == cv::Size() || (size.width >= 2 && size.height >= 2),
          "The size of a target is " + text + " and must be 2 x 2 or more, or 0 x 0 when it is not known");
  constexpr int leastCorners = 3;
  require(kind != TargetKind::Chessboard || std::min(size.width, size.height) >= leastCorners,
          "The size of a chessboard is " + text + " inner corners and must be 3 x 3 or more");
  require(std::max(size.width, size.height) <= farthestIndex,
          "The size of a target is " + text + " and must be at most " + std::to_string(farthestIndex) +
              " each way");
  require(kind == TargetKind::Circles || size != cv::Size(),
          "A " + std::string(nameOf(kinds, kind)) + " target takes its size: columns and rows");
  require(kind == TargetKind::Circles || first == cv::Point(),
          "The indices of a " + std::string(nameOf(kinds, kind)) + " target begin at 0, 0");
  require(std::max(std::abs(first.x), std::abs(first.y)) <= farthestIndex,
          "\"first\" of a target lies beyond " + std::to_string(farthestIndex));
  require(!isChessboard(kind) || marks.empty(), "A chessboard has no marks");
  if (kind == TargetKind::Charuco) {
    checkMarkers(*this);
  }
}

bool TargetDescription::hasCornerMarks() const {
  std::array<cv::Point, 3> const corner = {cv::Point(0, 0), cv::Point(1, 0), cv::Point(0, 1)};
  return kind == TargetKind::Circles && marks.size() == corner.size() &&
         std::all_of(corner.begin(), corner.end(), [&](cv::Point const& place) {
           return std::find(marks.begin(), marks.end(), place) != marks.end();
         });
}

cv::Point2d TargetDescription::position(cv::Point const& index) const {
  cv::Point2d place = cv::Point2d(index) * pitch;
  for (DotDeviation const& deviation : deviations) {
    if (deviation.index == index) {
      place += deviation.offset;
    }
  }
  return place;
}

void TargetDescription::read(nlohmann::json const& json) {
  TargetDescription target;
  readJson(json, "pitch", target.pitch, "TargetDescription");
  requireNoMisspelling(json);
  target.kind = valueOf(kinds, nameIn(json, "kind", "circles"), "kind");
  target.polarity = valueOf(polarities, nameIn(json, "polarity", "either"), "polarity");
  if (json.contains("size")) {
    target.size = pointOf(json["size"], "size");
  }
  readSquares(target, json);
  readMarkers(target, json);
  if (json.contains("first")) {
    target.first = pointOf(json["first"], "first");
  }
  for (nlohmann::json const& mark : listOf(json, "marks")) {
    target.marks.push_back(pointOf(mark, "marks"));
  }
  for (nlohmann::json const& entry : listOf(json, "deviations")) {
    auto const [column, row, dx, dy] = numbersOf<double, 4>(entry, "deviations");
    target.deviations.push_back({{cvRound(column), cvRound(row)}, {dx, dy}});
  }
  target.check();
  *this = std::move(target);
}

void TargetDescription::write(nlohmann::json& json) const {
  nlohmann::json marked = nlohmann::json::array();
  for (cv::Point const& mark : marks) {
    marked.push_back({mark.x, mark.y});
  }
  nlohmann::json moved = nlohmann::json::array();
  for (DotDeviation const& deviation : deviations) {
    moved.push_back({deviation.index.x, deviation.index.y, deviation.offset.x, deviation.offset.y});
  }
  json = {{"kind", nameOf(kinds, kind)}, {"pitch", pitch},  {"size", {size.width, size.height}},
          {"first", {first.x, first.y}}, {"marks", marked}, {"polarity", nameOf(polarities, polarity)},
          {"deviations", moved}};
  if (kind == TargetKind::Charuco) {
    json["markerSize"] = markerSize;
    json["dictionary"] = dictionary;
    json["firstMarker"] = firstMarker;
  }
}

} // namespace vorn::mv
