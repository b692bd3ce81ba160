// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "calib/opencv_storage.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/error.hpp"

namespace vorn::mv {

namespace {

using nlohmann::json;

/// Deeper than any file of a camera; the parsers call themselves at each level.
constexpr int deepest = 50;

/// A number, or what is none as a string.
json scalarOf(std::string const& word) {
  std::string plain = word;
  plain.erase(0, plain.rfind('+', 0) == 0 ? 1 : 0);
  std::string lower = plain;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  if (lower == ".nan") {
    return std::numeric_limits<double>::quiet_NaN();
  }
  if (lower == ".inf" || lower == "-.inf") {
    return (lower[0] == '-' ? -1 : 1) * std::numeric_limits<double>::infinity();
  }
  double value = 0;
  auto const result = std::from_chars(plain.data(), plain.data() + plain.size(), value);
  if (plain.empty() || result.ptr != plain.data() + plain.size()) {
    return word;
  }
  return result.ec == std::errc() ? value : std::numeric_limits<double>::infinity();
}

/// A place in a text.
class Cursor {
public:
  explicit Cursor(std::string const& text) : text_(&text) {}

  bool isEnd() const { return at_ >= text_->size(); }
  char now() const { return isEnd() ? '\0' : (*text_)[at_]; }
  char next() const { return at_ + 1 < text_->size() ? (*text_)[at_ + 1] : '\n'; }
  bool isLineEnd() const { return isEnd() || now() == '\n' || now() == '\r'; }
  bool startsWith(std::string const& word) const { return text_->compare(at_, word.size(), word) == 0; }
  void step(std::size_t count = 1) { at_ = std::min(at_ + count, text_->size()); }
  std::size_t place() const { return at_; }
  std::string from(std::size_t start) const { return text_->substr(start, at_ - start); }

  static bool isBlank(char c) { return c == ' ' || c == '\t'; }
  static bool isSpace(char c) { return isBlank(c) || c == '\n' || c == '\r'; }

  int column() const {
    std::size_t const start = at_ == 0 ? std::string::npos : text_->rfind('\n', at_ - 1);
    return static_cast<int>(at_ - (start == std::string::npos ? 0 : start + 1));
  }
  void skipBlanks() {
    while (isBlank(now())) {
      step();
    }
  }
  void skipLine() {
    while (!isLineEnd()) {
      step();
    }
  }
  /// Goes behind the next such word. @throws Exception where there is none
  void skipTo(std::string const& word) {
    std::size_t const found = text_->find(word, at_);
    if (found == std::string::npos) {
      throw refusal("nothing ends with " + word);
    }
    at_ = found + word.size();
  }

  Exception refusal(std::string const& problem) const {
    auto const line = 1 + std::count(text_->begin(), text_->begin() + static_cast<std::ptrdiff_t>(at_), '\n');
    return error("line " + std::to_string(line) + ": " + problem, "OpenCV storage");
  }
  void checkDepth(int depth) const {
    if (depth > deepest) {
      throw refusal("nested deeper than " + std::to_string(deepest) + " levels");
    }
  }

private:
  std::string const* text_;
  std::size_t at_ = 0;
};

/// YAML as OpenCV and writers of cameras use it: maps and lists by indentation or in brackets.
class YamlParser {
public:
  explicit YamlParser(std::string const& text) : in_(text) {}

  json parse() {
    json result = block(0, 0);
    skipSpace();
    if (!in_.isEnd() && !in_.startsWith("...")) {
      throw in_.refusal("something stands beside the members");
    }
    return result;
  }

private:
  /// Blanks, ends of lines, comments, and the lines that a document begins with.
  void skipSpace() {
    for (;;) {
      while (Cursor::isSpace(in_.now())) {
        in_.step();
      }
      bool const isHead = (in_.now() == '%' || in_.startsWith("---")) && in_.column() == 0;
      if (in_.now() != '#' && !isHead) {
        return;
      }
      in_.skipLine();
    }
  }

  bool isDash() const { return in_.now() == '-' && Cursor::isSpace(in_.next()); }

  /// A node whose lines stand at a column of at least `least`.
  json block(int least, int depth) {
    in_.checkDepth(depth);
    skipSpace();
    int const column = in_.column();
    if (in_.isEnd() || column < least || in_.startsWith("...")) {
      return nullptr;
    }
    if (isDash()) {
      json list = json::array();
      while (!in_.isEnd() && in_.column() == column && isDash()) {
        in_.step();
        in_.skipBlanks();
        skipTag();
        list.push_back(in_.isLineEnd() ? block(column + 1, depth + 1) : inlineNode(depth + 1));
        skipSpace();
      }
      return list;
    }
    std::string key;
    if (!takeKey(key)) {
      return value(column, depth);
    }
    json map = json::object();
    do {
      in_.skipBlanks();
      skipTag();
      map.emplace(key, value(column, depth));
      skipSpace();
    } while (!in_.isEnd() && in_.column() == column && takeKey(key));
    return map;
  }

  /// What stands behind the dash of a list.
  json inlineNode(int depth) {
    char const c = in_.now();
    return c == '[' || c == '{' ? flow(depth) : block(0, depth);
  }

  /// What stands behind a key, or a word by itself.
  json value(int column, int depth) {
    char const c = in_.now();
    if (in_.isLineEnd() || c == '#') {
      skipSpace();
      return block(in_.column() == column && isDash() ? column : column + 1, depth + 1);
    }
    if (c == '|' || c == '>') {
      std::size_t const start = in_.place();
      do {
        in_.skipLine();
        skipSpace();
      } while (!in_.isEnd() && in_.column() > column);
      return in_.from(start);
    }
    if (c == '[' || c == '{' || c == '"' || c == '\'') {
      return flow(depth + 1);
    }
    return word("");
  }

  void skipTag() {
    if (in_.now() == '!') {
      while (!Cursor::isSpace(in_.now()) && !in_.isEnd()) {
        in_.step();
      }
      in_.skipBlanks();
    }
  }

  /// Takes a key and its colon, if the line begins with one.
  bool takeKey(std::string& key) {
    Cursor const before = in_;
    std::size_t const start = in_.place();
    while (!in_.isLineEnd() && !(in_.now() == ':' && Cursor::isSpace(in_.next()))) {
      in_.step();
    }
    if (in_.isLineEnd()) {
      in_ = before;
      return false;
    }
    key = in_.from(start);
    in_.step();
    return true;
  }

  /// A word up to the end of the line or one of some characters.
  json word(std::string const& ends) {
    std::size_t const start = in_.place();
    while (!in_.isLineEnd() && ends.find(in_.now()) == std::string::npos && in_.now() != '#') {
      in_.step();
    }
    std::string text = in_.from(start);
    text.erase(text.find_last_not_of(" \t") + 1);
    return scalarOf(text);
  }

  json quoted() {
    char const quote = in_.now();
    in_.step();
    std::size_t const start = in_.place();
    while (!in_.isLineEnd() && in_.now() != quote) {
      in_.step(in_.now() == '\\' && quote == '"' ? 2 : 1);
    }
    if (in_.now() != quote) {
      throw in_.refusal("a text does not end");
    }
    std::string text = in_.from(start);
    in_.step();
    return text;
  }

  /// What stands in brackets or quotes, or between commas.
  json flow(int depth) {
    in_.checkDepth(depth);
    char const c = in_.now();
    if (c == '"' || c == '\'') {
      return quoted();
    }
    if (c != '[' && c != '{') {
      return word(",]}");
    }
    json result = c == '[' ? json::array() : json::object();
    char const end = c == '[' ? ']' : '}';
    in_.step();
    for (skipSpace(); in_.now() != end; skipSpace()) {
      std::string key;
      if (c == '{' && !takeKey(key)) {
        throw in_.refusal("a member has no name");
      }
      skipSpace();
      std::size_t const before = in_.place();
      json part = flow(depth + 1);
      skipSpace();
      if (in_.now() == ',') {
        in_.step();
      } else if (in_.now() != end || in_.place() == before) {
        throw in_.refusal(std::string("a list does not end with ") + end);
      }
      if (c == '[') {
        result.push_back(std::move(part));
      } else {
        result.emplace(key, std::move(part));
      }
    }
    in_.step();
    return result;
  }

  Cursor in_;
};

/// XML as OpenCV writes it: elements that hold elements, or words.
class XmlParser {
public:
  explicit XmlParser(std::string const& text) : in_(text) {}

  json parse() {
    skipSpace();
    if (in_.now() != '<') {
      throw in_.refusal("no element");
    }
    return element(0).second;
  }

private:
  void skipSpace() {
    for (;;) {
      while (Cursor::isSpace(in_.now())) {
        in_.step();
      }
      if (in_.startsWith("<!--")) {
        in_.skipTo("-->");
      } else if (in_.startsWith("<?")) {
        in_.skipTo("?>");
      } else {
        return;
      }
    }
  }

  std::string name() {
    std::size_t const start = in_.place();
    while (!in_.isEnd() && !Cursor::isSpace(in_.now()) && in_.now() != '>' && in_.now() != '/') {
      in_.step();
    }
    return in_.from(start);
  }

  /// Goes behind the tag's end; whether it has no content.
  bool skipAttributes() {
    char last = '\0';
    char quote = '\0';
    for (; !in_.isEnd() && (quote != '\0' || in_.now() != '>'); in_.step()) {
      last = in_.now();
      if (quote == '\0' && (last == '"' || last == '\'')) {
        quote = last;
      } else if (last == quote) {
        quote = '\0';
      }
    }
    if (in_.isEnd()) {
      throw in_.refusal("a tag does not end");
    }
    in_.step();
    return last == '/';
  }

  std::pair<std::string, json> element(int depth) {
    in_.checkDepth(depth);
    in_.step();
    std::string const own = name();
    if (skipAttributes()) {
      return {own, nullptr};
    }
    json words = json::array();
    json members = json::object();
    for (skipSpace(); !in_.startsWith("</"); skipSpace()) {
      if (in_.isEnd()) {
        throw in_.refusal("<" + own + "> does not end");
      }
      if (in_.now() != '<') {
        words.push_back(word());
        continue;
      }
      auto [part, content] = element(depth + 1);
      if (part == "_") { // of a list
        words.push_back(std::move(content));
      } else {
        members.emplace(part, std::move(content));
      }
    }
    in_.step(2);
    if (name() != own) {
      throw in_.refusal("<" + own + "> ends with another name");
    }
    skipAttributes();
    if (!members.empty()) {
      return {own, members};
    }
    return {own, words.size() == 1 ? words[0] : words};
  }

  json word() {
    std::size_t const start = in_.place();
    if (in_.now() == '"') {
      in_.step();
      in_.skipTo("\"");
      std::string const text = in_.from(start + 1);
      return text.substr(0, text.size() - 1);
    }
    while (!in_.isEnd() && !Cursor::isSpace(in_.now()) && in_.now() != '<') {
      in_.step();
    }
    return scalarOf(in_.from(start));
  }

  Cursor in_;
};

} // namespace

nlohmann::json parseOpenCvStorage(std::string const& text) {
  std::size_t const start = text.find_first_not_of(" \t\r\n");
  char const first = start == std::string::npos ? '\0' : text[start];
  json result;
  if (first == '<') {
    result = XmlParser(text).parse();
  } else if (first == '{') {
    result = json::parse(text, nullptr, false);
  } else {
    result = YamlParser(text).parse();
  }
  if (!result.is_object()) {
    throw error("it holds no members", "OpenCV storage");
  }
  return result;
}

} // namespace vorn::mv
