// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/calibration/target_overlay.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <utility>

#include "core/median.hpp"

namespace vorn::tools {

namespace fs = std::filesystem;

namespace {

using Place = std::pair<int, int>; ///< column and row

mv::MarkStyle styleOf(mv::Meaning meaning, double width) {
  mv::MarkStyle style;
  style.meaning = meaning;
  style.width = width;
  style.font = mv::FontSize::Small;
  return style;
}

/// The dots of a target by their columns and rows, as marks.
class TargetMarks {
public:
  TargetMarks(mv::AMat& picture, std::vector<SeenDot> const& dots) : picture_(picture) {
    for (SeenDot const& dot : dots) {
      dots_[{dot.index.x, dot.index.y}] = dot.at;
      radii_[{dot.index.x, dot.index.y}] = dot.radius;
    }
    std::vector<double> steps;
    for (auto const& [place, at] : dots_) {
      for (Place const& next : {Place(place.first + 1, place.second), Place(place.first, place.second + 1)}) {
        if (has(next)) {
          steps.push_back(cv::norm(dots_[next] - at));
        }
      }
    }
    constexpr double alone = 20.0; // px, of dots without neighbours
    step_ = steps.empty() ? alone : medianOf(std::move(steps));
  }

  void grid() {
    mv::MarkStyle style = styleOf(mv::Meaning::Found, 1.0);
    style.hasHalo = false;
    constexpr double radius = 0.32; // of the step between dots
    for (auto const& [place, at] : dots_) {
      double const seen = radii_.at(place);
      picture_.addCircle(at, seen > 0.0 ? seen : radius * step_, style, "dots");
      for (Place const& next : {Place(place.first + 1, place.second), Place(place.first, place.second + 1)}) {
        if (has(next)) {
          picture_.addLine({at, dots_[next]}, style, "grid");
        }
      }
    }
  }

  /// An arrow from the origin three steps on, or as far as the grid goes.
  void axis(Place const& step, char const* name) {
    Place tip(0, 0);
    constexpr int steps = 3;
    for (int k = 1; k <= steps && has({k * step.first, k * step.second}); ++k) {
      tip = {k * step.first, k * step.second};
    }
    if (!has({0, 0}) || tip == Place(0, 0)) {
      return;
    }
    mv::MarkStyle style = styleOf(mv::Meaning::Dropped, 2.0);
    style.size = 6.0;
    style.font = mv::FontSize::Large;
    picture_.addArrow(dots_[{0, 0}], dots_[tip], style, "axes");
    picture_.addText(dots_[tip] + cv::Point2d(0.4, -0.4) * step_, name, style, "axes");
  }

  void origin() {
    constexpr double radius = 0.45; // of the step between dots
    constexpr double beyond = 1.25; // of the dot's own ring
    for (Place const& place : {Place(0, 0), Place(1, 0), Place(0, 1)}) {
      if (has(place)) {
        double const around = std::max(radius * step_, beyond * radii_.at(place));
        picture_.addCircle(dots_[place], around, styleOf(mv::Meaning::Dropped, 1.5), "axes");
      }
    }
  }

  void numbers() {
    std::map<int, Place> columns; // the first dot of each
    std::map<int, Place> rows;
    for (auto const& [place, at] : dots_) {
      auto const column = columns.emplace(place.first, place).first;
      column->second.second = std::min(column->second.second, place.second);
      auto const row = rows.emplace(place.second, place).first;
      row->second.first = std::min(row->second.first, place.first);
    }
    mv::MarkStyle const style = styleOf(mv::Meaning::Warning, 1.0);
    auto const write = [&](std::map<int, Place> const& firsts, cv::Point2d const& off) {
      for (auto const& [number, place] : firsts) {
        picture_.addText(dots_[place] + off * step_, std::to_string(number), style, "numbers");
      }
    };
    write(columns, away({0, 1}));
    write(rows, away({1, 0}));
  }

private:
  bool has(Place const& place) const { return dots_.count(place) != 0; }

  /// From a first dot out of the grid, in steps between dots.
  cv::Point2d away(Place const& step) const {
    cv::Point2d sum;
    for (auto const& [place, at] : dots_) {
      auto const next = dots_.find({place.first + step.first, place.second + step.second});
      if (next != dots_.end()) {
        sum += at - next->second;
      }
    }
    double const length = cv::norm(sum);
    constexpr double distance = 0.75;
    return length > 0.0 ? sum * (distance / length) : cv::Point2d(distance, 0.0);
  }

  mv::AMat& picture_;
  std::map<Place, cv::Point2d> dots_;
  std::map<Place, double> radii_;
  double step_ = 0.0;
};

/// The reasons in the order of their letters, and how many dots each dropped.
std::map<std::string, int> reasonsOf(std::vector<mv::DroppedDot> const& dropped) {
  std::map<std::string, int> reasons;
  for (mv::DroppedDot const& dot : dropped) {
    ++reasons[dot.reason];
  }
  return reasons;
}

std::string letterOf(std::map<std::string, int> const& reasons, std::string const& reason) {
  constexpr int letters = 26;
  auto const number = static_cast<int>(std::distance(reasons.begin(), reasons.find(reason)));
  return std::string(static_cast<std::size_t>(number / letters + 1),
                     static_cast<char>('a' + number % letters));
}

} // namespace

void addTarget(mv::AMat& picture, std::vector<SeenDot> const& dots, bool isOriginMarked) {
  if (dots.empty()) {
    return;
  }
  TargetMarks marks(picture, dots);
  marks.grid();
  marks.numbers();
  marks.axis({1, 0}, "x");
  marks.axis({0, 1}, "y");
  if (isOriginMarked) {
    marks.origin();
  }
}

void addDropped(mv::AMat& picture, std::vector<mv::DroppedDot> const& dropped) {
  std::map<std::string, int> const reasons = reasonsOf(dropped);
  mv::Mark mark;
  mark.kind = mv::MarkKind::Cross;
  mark.style = styleOf(mv::Meaning::Warning, 1.5);
  mark.layer = "dropped";
  for (mv::DroppedDot const& dot : dropped) {
    mark.points = {{static_cast<double>(dot.imgPnt.x), static_cast<double>(dot.imgPnt.y), 0.0}};
    mark.text = letterOf(reasons, dot.reason);
    picture.add(mark);
  }
}

std::vector<std::string> droppedKey(std::vector<mv::DroppedDot> const& dropped, bool isBoard) {
  std::map<std::string, int> const reasons = reasonsOf(dropped);
  std::vector<std::string> lines;
  for (auto const& [reason, count] : reasons) {
    lines.push_back(letterOf(reasons, reason) + ": " + std::to_string(count) +
                    (isBoard ? " corner" : " dot") + (count == 1 ? "" : "s") + " dropped: " + reason);
  }
  return lines;
}

std::vector<std::string> pictureNames(std::vector<std::string> const& images) {
  std::vector<std::string> names;
  std::map<std::string, int> counts;
  for (std::string const& image : images) {
    fs::path const path = fs::path(image).lexically_normal();
    std::string const folder = path.parent_path().filename().string();
    bool const isAlone = images.size() == 1 || folder.empty() || folder == "." || folder == "..";
    names.push_back((isAlone ? "" : folder + "_") + path.stem().string());
    ++counts[names.back()];
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (counts[names[i]] > 1) {
      names[i] = std::to_string(i) + "_" + names[i];
    }
  }
  return names;
}

} // namespace vorn::tools
