// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core/types.hpp>

#include <vorn/mv/measure/amat.hpp>
#include <vorn/mv/measure/plot.hpp>

#include "tools/report/page_cloud.hpp"

/// A report as one HTML file that opens without network: a view of clouds that people turn, with pictures,
/// tables and findings beside it, and the report's JSON inside for programs.
namespace vorn::tools {

/// Something beside the points: the frustum of a camera, a board.
struct PageOutline {
  std::string name;                            ///< written at its first point
  std::string group;                           ///< what is shown and hidden together, such as "target poses"
  cv::Vec3b color;                             ///< blue, green, red
  std::vector<std::vector<cv::Point3d>> lines; ///< each through two or more points, mm
  std::vector<cv::Point3d> face;               ///< a convex plane polygon that is tinted; or none
  bool isShown = true;                         ///< when the page opens; that of a group's first one counts
};

/// A place to look from.
struct PageView {
  std::string name;
  cv::Point3d eye;            ///< mm
  cv::Vec3d forward{0, 0, 1}; ///< where it looks
  cv::Vec3d down{0, 1, 0};    ///< which way is down in its picture
  double fieldOfView = 0.0;   ///< from top to bottom, degrees
};

/// A picture with what it shows.
struct PagePicture {
  std::string title;
  std::string caption;
  std::string ending; ///< of the file that the bytes would be: .png or .jpg
  std::string bytes;
};

/// Words or figures in rows; the first word of each names it.
struct PageTable {
  std::string title;
  std::vector<std::string> head;              ///< one a column; or none
  std::vector<std::vector<std::string>> rows; ///< as many as there are columns each
  std::vector<cv::Vec3b> keys;                ///< a colour a row, blue, green, red; or none
};

/// What the reader should know first.
struct PageFinding {
  enum class Weight { Good, Note, Warning, Failure };

  Weight weight = Weight::Note;
  std::string text;
  std::string advice; ///< what to do about it; or none
};

/// What a command's page shows. All texts are plain words: whatever they hold, nothing of it is taken as
/// HTML.
class Page {
public:
  std::string title;    ///< what was done
  std::string subtitle; ///< with what, such as a folder's name
  std::vector<PageFinding> findings;
  std::vector<PageTable> tables;
  std::vector<PagePicture> pictures;
  std::vector<PageOutline> outlines;
  std::vector<PageView> views;
  /// Why there is nothing to see in the view, where that is so.
  std::string emptyReason;

  /// Packs a cloud for the view, thinned to the points that were asked for; its own points are free then.
  /// @param among so many clouds share these points
  void add(PageCloud const& cloud, std::size_t among = 1) {
    clouds_.push_back(packed(cloud, std::max<std::size_t>(mostPoints_ / among, 1)));
  }
  /// Adds a drawing, reduced to what a page shows: 1400 pixels on the longer side.
  void add(std::string const& title, std::string const& caption, mv::AMat const& drawing);
  /// Adds plots, one below the other.
  void add(std::string const& title, std::string const& caption, std::vector<mv::Plot> const& plots);

  void setMostPoints(std::size_t count) { mostPoints_ = count; }
  std::vector<PackedCloud> const& clouds() const { return clouds_; }

private:
  std::size_t mostPoints_ = 500000;
  std::vector<PackedCloud> clouds_;
};

/// The whole file.
/// @param report as `Report` writes it: its members become tables, and it stands in the page
std::string html(Page const& page, nlohmann::json const& report);

} // namespace vorn::tools
