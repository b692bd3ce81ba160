// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/xyz_reader.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <vorn/core/system.hpp>

#include "graphic/line_fields.hpp"
#include "graphic/vertex_columns.hpp"

namespace vorn::graphic {
namespace {

using Role = VertexColumn::Role;
using Row = std::vector<double>;

constexpr std::size_t judgedRows = 100;
constexpr std::size_t mostColumns = 4096;

class XyzReader {
public:
  explicit XyzReader(FileReader& file) : file_(file) {}

  GraphicObject read() {
    Row row;
    while (nextRow(row)) {
      if (!rows_.has_value()) {
        first_.push_back(row);
        if (first_.size() == judgedRows) {
          begin();
        }
      } else {
        rows_->add(row.data());
      }
    }
    if (!rows_.has_value()) {
      if (first_.empty() && !names_.empty()) {
        return {};
      }
      if (first_.empty()) {
        file_.fail("it has no points");
      }
      begin();
    }
    return rows_->finish();
  }

private:
  /// A copy of a line with blanks for what separates numbers, and the end that `LineFields` needs.
  std::string_view separated(std::string_view line) {
    line_.assign(line);
    std::replace_if(
        line_.begin(), line_.end(), [](char character) { return character == ',' || character == ';'; }, ' ');
    std::size_t const length = line_.size();
    line_ += '\n';
    return {line_.data(), length};
  }

  /// Takes the next line of numbers.
  bool nextRow(Row& row) {
    std::string_view line;
    while (file_.nextLine(line)) {
      LineFields fields(separated(line));
      if (fields.atEnd()) {
        continue;
      }
      std::string_view const text(line_);
      std::size_t const start = text.find_first_not_of(" \t\r");
      std::size_t const mark = text[start] == '#' ? 1 : text.compare(start, 2, "//") == 0 ? 2 : 0;
      if (mark > 0) {
        takeNames(LineFields({line_.data() + start + mark, line_.size() - 1 - start - mark}));
        continue;
      }
      if (isHeading(fields)) {
        continue;
      }
      takeNumbers(fields, row);
      bool const isCount = row.size() == 1 && first_.empty() && !hasCount_ && row[0] == std::floor(row[0]);
      hasCount_ = hasCount_ || isCount;
      if (!isCount) {
        checkWidth(row);
        return true;
      }
    }
    return false;
  }

  /// Takes a first line of names without a mark.
  bool isHeading(LineFields fields) {
    double value = 0.0;
    if (!first_.empty() || !names_.empty() || LineFields(fields).number(value)) {
      return false;
    }
    takeNames(fields);
    return !names_.empty();
  }

  void takeNames(LineFields fields) {
    if (!first_.empty()) {
      return;
    }
    std::vector<std::string> names;
    while (!fields.atEnd() && names.size() <= mostColumns) {
      names.emplace_back(fields.word());
    }
    if (hasPositions(columnsNamed(names))) {
      names_ = names;
    }
  }

  void takeNumbers(LineFields& fields, Row& row) const {
    row.clear();
    while (!fields.atEnd()) {
      double value = 0.0;
      if (!fields.number(value)) {
        file_.failAtLine(quoted(fields.word()) + " is no number");
      }
      if (row.size() == mostColumns) {
        file_.failAtLine("a point of more than 4096 numbers");
      }
      row.push_back(value);
    }
  }

  void checkWidth(Row const& row) const {
    if (row.size() < 3) {
      file_.failAtLine("a point needs three numbers, not " + std::to_string(row.size()));
    }
    if (!first_.empty() && row.size() != first_.front().size()) {
      file_.failAtLine(std::to_string(row.size()) + " numbers where the points before have " +
                       std::to_string(first_.front().size()));
    }
  }

  /// Whether three columns of the first rows are what `test` asks of every one.
  template <class Test>
  bool areAll(std::size_t column, Test const& test) const {
    return std::all_of(first_.begin(), first_.end(), [&](Row const& row) {
      return test(cv::Vec3d(row[column], row[column + 1], row[column + 2]));
    });
  }

  bool areColors(std::size_t column) const {
    double largest = 0.0;
    bool const areBytes = areAll(column, [&](cv::Vec3d const& values) {
      for (double const value : values.val) {
        largest = std::max(largest, value);
        if (!(value >= 0 && value <= 255 && value == std::floor(value))) {
          return false;
        }
      }
      return true;
    });
    return areBytes && largest > 1;
  }

  bool areNormals(std::size_t column) const {
    constexpr double tolerance = 0.01;
    return areAll(column, [&](cv::Vec3d const& values) {
      return std::abs(std::sqrt(values.dot(values)) - 1.0) <= tolerance;
    });
  }

  /// The meaning of columns without names.
  std::vector<VertexColumn> concluded(std::size_t width) {
    std::vector<VertexColumn> columns = {{Role::Position, 0}, {Role::Position, 1}, {Role::Position, 2}};
    std::string said;
    bool hasColors = false;
    bool hasNormals = false;
    while (columns.size() < width) {
      std::size_t const at = columns.size();
      Role role = Role::Field;
      if (at + 3 <= width && !hasColors && areColors(at)) {
        role = Role::Color;
        hasColors = true;
      } else if (at + 3 <= width && !hasNormals && areNormals(at)) {
        role = Role::Normal;
        hasNormals = true;
      }
      std::size_t const count = role == Role::Field ? 1 : 3;
      for (std::size_t channel = 0; channel < count; ++channel) {
        columns.push_back({role, channel});
      }
      said += (said.empty() ? "" : ", ") + std::to_string(at + 1) +
              (count > 1 ? " to " + std::to_string(at + count) : "") +
              (role == Role::Color    ? " as colours"
               : role == Role::Normal ? " as normals"
                                      : " as the field column_" + std::to_string(at + 1));
    }
    if (!said.empty()) {
      System::message(file_.path() + " does not name its columns; taken: " + said + "\n");
    }
    return columns;
  }

  void begin() {
    std::size_t const width = first_.front().size();
    std::vector<std::string> names = names_;
    std::vector<VertexColumn> columns;
    if (names.size() == width) {
      columns = columnsNamed(names);
    } else {
      names.clear();
      for (std::size_t i = 0; i < width; ++i) {
        names.push_back("column_" + std::to_string(i + 1));
      }
      columns = concluded(width);
    }
    rows_.emplace(columns, names);
    for (Row const& row : first_) {
      rows_->add(row.data());
    }
  }

  FileReader& file_;
  std::string line_;
  std::vector<std::string> names_;
  bool hasCount_ = false;
  std::vector<Row> first_; ///< to judge columns without names
  std::optional<VertexRows> rows_;
};

} // namespace

GraphicObject readXyz(FileReader& file) {
  return XyzReader(file).read();
}

} // namespace vorn::graphic
