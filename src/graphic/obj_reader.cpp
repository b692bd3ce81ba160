// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/obj_reader.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include <vorn/core/system.hpp>

#include "graphic/far_coordinates.hpp"
#include "graphic/file_colors.hpp"
#include "graphic/line_fields.hpp"
#include "graphic/polygon.hpp"

namespace vorn::graphic {
namespace {

constexpr int none = -1;

/// One corner of a face as it stands in the file: indices from 1, or negative; 0 where none is given.
struct Corner {
  std::int64_t vertex = 0;
  std::int64_t normal = 0;
};

/// "v", "v/vt", "v//vn" or "v/vt/vn".
std::optional<Corner> parseCorner(std::string_view text) {
  std::array<std::int64_t, 3> indices = {};
  char const* next = text.data();
  char const* const end = next + text.size();
  for (std::size_t part = 0; part < indices.size(); ++part) {
    std::from_chars_result const result = std::from_chars(next, end, indices[part]);
    bool const isGiven = result.ec == std::errc();
    if ((!isGiven && (part == 0 || result.ec == std::errc::result_out_of_range)) ||
        (isGiven && indices[part] == 0)) {
      return std::nullopt;
    }
    next = result.ptr;
    if (next == end) {
      return Corner{indices[0], indices[2]};
    }
    if (*next++ != '/') {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

/// Finds a line's indices in one of the file's lists, whose length is known only at the end of the file:
/// statements may stand in any order.
class IndexRange {
public:
  /// @param name what the indices are of
  /// @param most how many of it the file can hold
  IndexRange(char const* name, std::uint64_t most)
      : name_(name), most_(std::min<std::uint64_t>(most, std::numeric_limits<int>::max())) {}

  /// The index from 0 that the file's `index` stands for where `count` have been read.
  int resolve(std::int64_t index, std::size_t count, FileReader const& file) {
    bool const isTooLarge = index > 0 && static_cast<std::uint64_t>(index) > most_;
    if (isTooLarge || index < -static_cast<std::int64_t>(count)) {
      failAt(file.lineNumber(), index, count, file);
    }
    int const resolved = static_cast<int>(index > 0 ? index - 1 : static_cast<std::int64_t>(count) + index);
    if (resolved > highest_) {
      highest_ = resolved;
      highestLine_ = file.lineNumber();
    }
    return resolved;
  }

  /// Called when all are read.
  void assertBelow(std::size_t count, FileReader const& file) const {
    if (highest_ >= 0 && static_cast<std::size_t>(highest_) >= count) {
      failAt(highestLine_, std::int64_t{highest_} + 1, count, file);
    }
  }

private:
  [[noreturn]] void failAt(std::uint64_t line, std::int64_t index, std::size_t count,
                           FileReader const& file) const {
    file.failAtLine(line, "the " + std::string(name_) + " index " + std::to_string(index) +
                              ", but there are " + std::to_string(count));
  }

  char const* name_;
  std::uint64_t most_;
  int highest_ = none;
  std::uint64_t highestLine_ = 0;
};

class ObjReader {
public:
  ObjReader(FileReader& file, cv::Vec3d const& offset)
      : file_(file), offset_(offset), finder_(offset),
        vertexRange_("vertex", file.size() / shortestStatement) {}

  void take() {
    std::string_view line;
    while (nextStatement(line)) {
      LineFields fields(line);
      std::string_view const keyword = fields.word();
      if (keyword == "v") {
        takeVertex(fields);
      } else if (keyword == "vn") {
        takeNormal(fields);
      } else if (keyword == "f") {
        takeFace(fields);
      } else if (!keyword.empty() && keyword[0] != '#') {
        passOver(keyword);
      }
    }
  }

  OffsetFinder const& finder() const { return finder_; }

  GraphicObject finish() {
    vertexRange_.assertBelow(object_.vertices().size(), file_);
    if (object_.isEmpty() && hasUnknown_) {
      file_.fail("it is no OBJ file: it has no vertices");
    }
    fans_.cutConcave(object_.vertices(), object_.triangles());
    assignColors();
    assignNormals();
    return std::move(object_);
  }

private:
  static constexpr std::uint64_t shortestStatement = 7;                 // "v 1 2 3"
  static constexpr float full = std::numeric_limits<float>::infinity(); ///< of a colour, in any unit

  /// The next line; with the lines behind it that a backslash at its end joins to it. At the end of a comment
  /// it is mere text, as in "# from C:\models\", and must not swallow the statement behind it.
  bool nextStatement(std::string_view& line) {
    if (!file_.nextLine(line)) {
      return false;
    }
    if (endsInBackslash(line) && LineFields(line).word().substr(0, 1) != "#") {
      joined_.clear();
      bool isContinued = true;
      while (isContinued) {
        joined_.append(line.substr(0, line.rfind('\\'))).push_back(' ');
        line = {};
        isContinued = file_.nextLine(line) && endsInBackslash(line);
      }
      joined_.append(line).push_back('\n');
      line = std::string_view(joined_).substr(0, joined_.size() - 1);
    }
    return true;
  }

  static bool endsInBackslash(std::string_view line) {
    if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    }
    return !line.empty() && line.back() == '\\';
  }

  void takeVertex(LineFields& fields) {
    std::array<double, 7> values = {};
    std::size_t count = 0;
    while (count < values.size() && fields.number(values[count])) {
      ++count;
    }
    if (!fields.atEnd() || count < 3 || count == 5) {
      failAtRest(fields, "a vertex is 3 coordinates, with a weight, or 3 or 4 color components");
    }
    cv::Vec3d const place(values[0], values[1], values[2]);
    finder_.add(place);
    object_.vertices().push_back(static_cast<cv::Vec3f>(place - offset_));
    if (count >= 6) {
      cv::Vec4d const color(values[3], values[4], values[5], count == 7 ? values[6] : full);
      colors_.resize(object_.vertices().size() - 1, cv::Vec4f::all(full));
      colors_.emplace_back(color);
      for (int channel = 0; channel < 4; ++channel) {
        scales_.add(channel, color[channel]);
      }
    }
  }

  void assignColors() {
    if (colors_.empty()) {
      return;
    }
    colors_.resize(object_.vertices().size(), cv::Vec4f::all(full));
    cv::Vec4f unit;
    for (int channel = 0; channel < 4; ++channel) {
      unit[channel] = scales_.isUnit(channel, true) ? 1.0F : 255.0F;
    }
    object_.colors().reserve(colors_.size());
    for (cv::Vec4f const& color : colors_) {
      object_.colors().emplace_back(colorByte(color[0] / unit[0]), colorByte(color[1] / unit[1]),
                                    colorByte(color[2] / unit[2]), colorByte(color[3] / unit[3]));
    }
    if (std::string const text = scales_.assumption(true); !text.empty()) {
      System::message(file_.path() + ": " + text + "\n");
    }
  }

  void takeNormal(LineFields& fields) {
    cv::Vec3f normal;
    for (float& value : normal.val) {
      if (!fields.number(value)) {
        failAtRest(fields, "a normal is 3 numbers");
      }
    }
    if (!fields.atEnd()) {
      failAtRest(fields, "a normal is 3 numbers");
    }
    normals_.push_back(normal);
  }

  void takeFace(LineFields& fields) {
    corners_.clear();
    for (std::string_view text = fields.word(); !text.empty(); text = fields.word()) {
      std::optional<Corner> const corner = parseCorner(text);
      if (!corner) {
        file_.failAtLine(quoted(text) + " is no corner of a face");
      }
      int const vertex = vertexRange_.resolve(corner->vertex, object_.vertices().size(), file_);
      if (corner->normal != 0) {
        nameNormal(vertex, corner->normal);
      }
      corners_.push_back(vertex);
    }
    if (corners_.size() < 3) {
      file_.failAtLine("a face of " + std::to_string(corners_.size()) + " corners");
    }
    fans_.add(corners_, object_.triangles());
  }

  /// Notes the normal that a corner names. That it is not there costs the file its normals, not its surface:
  /// exporters that leave them out leave their indices behind.
  /// @param index as it stands in the file
  void nameNormal(int vertex, std::int64_t index) {
    std::int64_t const normal = index > 0 ? index - 1 : static_cast<std::int64_t>(normals_.size()) + index;
    if (normal < 0 || normal > highestNormal_) {
      bool const isThere = normal >= 0 && normal < std::numeric_limits<int>::max();
      highestNormal_ = isThere ? normal : std::numeric_limits<std::int64_t>::max();
      highestName_ = index;
      highestLine_ = file_.lineNumber();
    }
    if (highestNormal_ >= std::numeric_limits<int>::max()) {
      return; // none of them will be taken
    }
    std::size_t const place = static_cast<std::size_t>(vertex);
    if (normalOfVertex_.size() <= place) {
      normalOfVertex_.resize(std::max(place + 1, object_.vertices().size()), none);
    }
    if (normalOfVertex_[place] == none) {
      normalOfVertex_[place] = static_cast<int>(normal);
    }
  }

  void assignNormals() {
    if (highestNormal_ >= static_cast<std::int64_t>(normals_.size())) {
      System::message(file_.path() + ": line " + std::to_string(highestLine_) + " names the normal " +
                      std::to_string(highestName_) + ", but there are " + std::to_string(normals_.size()) +
                      "; it is read without normals\n");
      return;
    }
    if (!normalOfVertex_.empty()) {
      object_.normals().resize(object_.vertices().size());
      for (std::size_t vertex = 0; vertex < normalOfVertex_.size(); ++vertex) {
        if (normalOfVertex_[vertex] != none) {
          object_.normals()[vertex] = normals_[static_cast<std::size_t>(normalOfVertex_[vertex])];
        }
      }
    } else if (normals_.size() == object_.vertices().size()) {
      object_.normals() = std::move(normals_);
    }
  }

  /// Passes over a statement of no interest. A file of other statements only is not OBJ, and neither is one
  /// with a statement that is not text.
  void passOver(std::string_view keyword) {
    if (std::any_of(keyword.begin(), keyword.end(), [](char each) { return each >= 0 && each < ' '; })) {
      file_.failAtLine(quoted(keyword) + " is no OBJ statement");
    }
    hasUnknown_ = true;
  }

  [[noreturn]] void failAtRest(LineFields& fields, std::string const& rule) const {
    file_.failAtLine(rule +
                     (fields.atEnd() ? ", but the line ends" : ", but there is " + quoted(fields.rest())));
  }

  FileReader& file_;
  cv::Vec3d offset_;
  OffsetFinder finder_;
  GraphicObject object_;
  PolygonFans fans_;
  std::vector<int> corners_;      ///< of the face that is read
  std::vector<cv::Vec4f> colors_; ///< as the file has them
  ColorScales scales_;
  std::vector<cv::Vec3f> normals_;
  std::vector<int> normalOfVertex_; ///< as long as needed for the vertices that have one
  IndexRange vertexRange_;
  std::int64_t highestNormal_ = none; ///< the greatest index from 0 that a corner named
  std::int64_t highestName_ = 0;      ///< the same as the file has it
  std::uint64_t highestLine_ = 0;     ///< where
  std::string joined_;
  bool hasUnknown_ = false;
};

} // namespace

GraphicObject readObj(FileReader& file) {
  return readNearZero<ObjReader>(file);
}

} // namespace vorn::graphic
