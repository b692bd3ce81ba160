// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "graphic/xyz_reader.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
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
    return rows_->finish(file_);
  }

private:
  static bool isSeparator(char character) { return character == ',' || character == ';'; }
  static bool isBlank(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }
  static bool isQuote(char character) { return character == '"' || character == '\''; }
  static bool isDigit(char character) { return character >= '0' && character <= '9'; }

  static std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
      text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
      text.remove_suffix(1);
    }
    return text;
  }

  /// A name without the quotes around it.
  static std::string_view unquoted(std::string_view name) {
    bool const isIn = name.size() > 1 && isQuote(name.front()) && name.back() == name.front();
    return isIn ? trimmed(name.substr(1, name.size() - 2)) : name;
  }

  /// The words of a text, whatever separates them; valid until the next call.
  LineFields wordsOf(std::string_view text) {
    line_.assign(text);
    std::replace_if(line_.begin(), line_.end(), isSeparator, ' ');
    line_ += '\n';
    return LineFields({line_.data(), text.size()});
  }

  /// Takes the next line that is more than blanks and separators, without blanks around it.
  bool nextText(std::string_view& text) {
    std::string_view line;
    while (file_.nextLine(line)) {
      constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
      if (file_.lineNumber() == 1 && line.substr(0, byteOrderMark.size()) == byteOrderMark) {
        line.remove_prefix(byteOrderMark.size());
      }
      text = trimmed(line);
      if (!std::all_of(text.begin(), text.end(),
                       [](char each) { return isSeparator(each) || isBlank(each); })) {
        return true;
      }
    }
    return false;
  }

  /// Takes the next line of numbers.
  bool nextRow(Row& row) {
    std::string_view text;
    while (nextText(text)) {
      std::size_t const mark = text[0] == '#' ? 1 : text.substr(0, 2) == "//" ? 2 : 0;
      if (mark > 0) {
        takeNames(text.substr(mark));
        continue;
      }
      if (isHeading(text)) {
        hasHeading_ = true;
        continue;
      }
      takeNumbers(text, row);
      bool const isCount = row.size() == 1 && first_.empty() && !hasCount_ && row[0] == std::floor(row[0]);
      hasCount_ = hasCount_ || isCount;
      if (!isCount) {
        checkWidth(row);
        return true;
      }
    }
    return false;
  }

  /// Takes a first line of names without a mark, whatever a remark before it names.
  bool isHeading(std::string_view text) {
    double value = 0.0;
    return !wordsOf(text).number(value) && takeNames(text);
  }

  /// Takes names with commas or semicolons between them, or tabs, or else words, if they name the
  /// coordinates.
  bool takeNames(std::string_view text) {
    if (!first_.empty() || hasHeading_) {
      return false;
    }
    for (std::vector<std::string> const& names :
         {separatedNames(text, ",;"), separatedNames(text, "\t"), withoutUnits(words(text)), words(text)}) {
      if (hasPositions(columnsNamed(names))) {
        names_ = names;
        unitAtEnd_ = isUnit(names.back());
        return true;
      }
    }
    return false;
  }

  /// Whether a word is one in brackets, which a coordinate's name would have behind it.
  static bool isUnit(std::string_view word) { return !word.empty() && lengthBeforeUnit(word) == 0; }

  /// Where a name ends that has a unit in brackets behind it: "X [mm]"; 0 where the name is one alone.
  static std::size_t lengthBeforeUnit(std::string_view name) {
    bool const isClosed = !name.empty() && (name.back() == ']' || name.back() == ')');
    std::size_t const open = isClosed ? name.rfind(name.back() == ']' ? '[' : '(') : std::string_view::npos;
    return open == std::string_view::npos ? name.size() : open;
  }

  /// A coordinate's name without its unit. Others keep it: what they measure has no unit that is known.
  static std::string_view withoutUnit(std::string_view name) {
    std::string_view const bare = trimmed(name.substr(0, lengthBeforeUnit(name)));
    return bare.size() == 1 && std::string_view("xyzXYZ").find(bare) != std::string_view::npos ? bare : name;
  }

  /// Without the words that are units, if a coordinate has one: other programs may name a column "[a]".
  static std::vector<std::string> withoutUnits(std::vector<std::string> const& words) {
    std::vector<std::string> names;
    if (words.size() < 2 || (lengthBeforeUnit(words[1]) > 0 && withoutUnit(words[0]) == words[0])) {
      return names;
    }
    for (std::string const& word : words) {
      if (lengthBeforeUnit(word) > 0) {
        names.emplace_back(withoutUnit(word));
      }
    }
    return names;
  }

  std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> names;
    LineFields fields = wordsOf(text);
    while (!fields.atEnd() && names.size() <= mostColumns) {
      names.emplace_back(unquoted(fields.word()));
    }
    return names;
  }

  /// The names between separators, which may hold blanks, and in quotes separators; a column without a name
  /// is skipped.
  static std::vector<std::string> separatedNames(std::string_view text, char const* separators) {
    std::vector<std::string> names;
    while (!text.empty() && names.size() <= mostColumns) {
      std::string_view const start = text.substr(std::min(text.find_first_not_of(" \t"), text.size()));
      std::size_t const closing =
          start.empty() || !isQuote(start[0]) ? std::string_view::npos : start.find(start[0], 1);
      std::size_t const behind = closing == std::string_view::npos ? 0 : text.size() - start.size() + closing;
      std::size_t const length = std::min(text.find_first_of(separators, behind), text.size());
      std::string_view const name = unquoted(trimmed(text.substr(0, length)));
      names.emplace_back(name.empty() ? "_" : withoutUnit(name));
      text.remove_prefix(std::min(length + 1, text.size()));
    }
    return names;
  }

  void takeNumbers(std::string_view text, Row& row) {
    bool const endsOpen = separateNumbers(text);
    LineFields fields({line_.data(), line_.size() - 1});
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
    // Some programs end every line with a separator; only the width tells an empty last field from that.
    if (endsOpen && row.size() + 1 == (first_.empty() ? names_.size() : first_.front().size())) {
      row.push_back(std::numeric_limits<double>::quiet_NaN());
    }
  }

  /// Whether the commas of a text may be those of decimals: between digits, with other separators too. Blanks
  /// beside a comma are one separator with it, unless each of three numbers or more may then have decimals.
  static bool mayHaveDecimalCommas(std::string_view text) {
    std::size_t commas = 0; // between digits
    std::size_t commasInWord = 0;
    std::size_t mostInWord = 0;
    constexpr int thousands = 3; // digits between a point and the comma of decimals
    bool mayBeDecimal = false;
    std::size_t words = 1;
    int decimals = -1; // behind the point of the number that is read
    bool hasOtherSeparator = text.find(';') != std::string_view::npos;
    char last = ','; // not a blank
    for (std::size_t i = 0; i < text.size(); ++i) {
      char const character = text[i];
      if (isBlank(character)) {
        decimals = -1;
        continue;
      }
      if (i > 0 && isBlank(text[i - 1])) {
        ++words;
        commasInWord = 0;
        hasOtherSeparator = hasOtherSeparator || !(isSeparator(last) || isSeparator(character));
      }
      if (character == ',' && i > 0 && i + 1 < text.size() && isDigit(text[i - 1]) && isDigit(text[i + 1])) {
        ++commas;
        mayBeDecimal = mayBeDecimal || decimals < 0 || decimals == thousands;
        mostInWord = std::max(mostInWord, ++commasInWord);
      }
      decimals = character == '.' ? 0 : !isDigit(character) ? -1 : decimals < 0 ? -1 : decimals + 1;
      last = character;
    }
    constexpr std::size_t fewest = 3; // numbers of a point
    return commas > 0 && (hasOtherSeparator || (words >= fewest && mostInWord == 1 && mayBeDecimal));
  }

  /// Makes `line_` the numbers of a text with blanks between them, "nan" where a field is empty, and the end
  /// that `LineFields` needs.
  /// @return whether the text ends with a separator
  bool separateNumbers(std::string_view text) {
    bool isOpen = true;
    bool hasComma = false;
    line_.clear();
    for (char const character : text) {
      hasComma = hasComma || character == ',';
      if (isSeparator(character)) {
        line_ += isOpen ? " nan " : " ";
        isOpen = true;
      } else {
        isOpen = isOpen && isBlank(character);
        line_ += character;
      }
    }
    if (hasComma && mayHaveDecimalCommas(text)) {
      file_.failAtLine(
          "a comma between digits, and other separators too: decimal commas? Decimals need a point");
    }
    line_ += '\n';
    return isOpen;
  }

  void checkWidth(Row const& row) {
    if (first_.empty() && unitAtEnd_ && row.size() + 1 == names_.size()) {
      names_.pop_back(); // "x y z (mm)"
    }
    if (row.size() < 3) {
      file_.failAtLine("a point needs three numbers, not " + std::to_string(row.size()));
    }
    if (first_.empty() && hasHeading_ && row.size() != names_.size()) {
      file_.failAtLine(std::to_string(row.size()) + " numbers under a heading of " +
                       std::to_string(names_.size()) + " columns");
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
  bool hasHeading_ = false; ///< whether they stood in a line without a mark, which no remark is
  bool unitAtEnd_ = false;  ///< whether the last of them may be the unit of all, and no name
  bool hasCount_ = false;
  std::vector<Row> first_; ///< to judge columns without names
  std::optional<VertexRows> rows_;
};

} // namespace

GraphicObject readXyz(FileReader& file) {
  return XyzReader(file).read();
}

} // namespace vorn::graphic
