// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <utility>

#include "core/base64.hpp"
#include "tools/report/page.hpp"
#include "tools/report/page_assets.hpp"
#include "tools/report/page_tables.hpp"
#include "tools/report/sha256.hpp"

namespace vorn::tools {

namespace {

std::string text(nlohmann::json const& json) {
  // A file's name need not be UTF-8.
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/// Words as HTML, also within quotes: whatever they are, a reader sees them as they are.
std::string escaped(std::string const& words) {
  std::string result;
  // Through JSON and back what is no UTF-8 is replaced.
  for (char const c : nlohmann::json::parse(text(words)).get<std::string>()) {
    switch (c) {
    case '&':
      result += "&amp;";
      break;
    case '<':
      result += "&lt;";
      break;
    case '>':
      result += "&gt;";
      break;
    case '"':
      result += "&quot;";
      break;
    case '\'':
      result += "&#39;";
      break;
    default: // other control characters are none of HTML's
      result += static_cast<unsigned char>(c) < 0x20 && c != '\n' ? ' ' : c;
    }
  }
  return result;
}

/// JSON that may stand in a script: no "</script>" and no "<!--" can be in it.
std::string scriptJson(nlohmann::json const& json) {
  std::string result;
  for (char const c : text(json)) {
    result += c == '<' ? "\\u003c" : std::string(1, c);
  }
  return result;
}

/// What the content security policy knows an inline script or style by.
std::string policyHash(std::string_view content) {
  Sha256 hash;
  hash.update(content.data(), content.size());
  std::string const digits = hash.digest();
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return "'sha256-" + base64(bytes) + "'";
}

std::string policy() {
  return "default-src 'none'; script-src " + policyHash(page::three) + ' ' + policyHash(page::script) +
         "; style-src " + policyHash(page::style) +
         "; img-src data: blob:; base-uri 'none'; form-action 'none'";
}

/// Now, or what SOURCE_DATE_EPOCH says, for pages that are to be the same twice.
std::string date() {
  char const* const fixed = std::getenv("SOURCE_DATE_EPOCH");
  std::time_t const now = fixed != nullptr ? std::strtoll(fixed, nullptr, 10) : std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  std::array<char, 64> words{};
  std::strftime(words.data(), words.size(), "%Y-%m-%d %H:%M UTC", &parts);
  return words.data();
}

std::string hex(cv::Vec3b const& color) {
  constexpr char const* digits = "0123456789abcdef";
  std::string result = "#";
  for (int i = 2; i >= 0; --i) {
    result += {digits[color[i] >> 4U], digits[color[i] & 15U]};
  }
  return result;
}

std::string html(PageFinding const& finding) {
  static constexpr std::array<std::pair<char const*, char const*>, 4> kinds{
      {{"good", "Good"}, {"note", "Note"}, {"warning", "Warning"}, {"failure", "Failure"}}};
  auto const& kind = kinds[static_cast<std::size_t>(finding.weight)];
  return std::string("<li class=\"") + kind.first + "\"><strong>" + kind.second + ":</strong> " +
         escaped(finding.text) +
         (finding.advice.empty() ? "" : " <span class=\"advice\">" + escaped(finding.advice) + "</span>") +
         "</li>\n";
}

std::string html(PagePicture const& picture) {
  std::string const kind = picture.ending == ".png" ? "png" : "jpeg";
  return "<figure>\n<img alt=\"" + escaped(picture.title + ". " + picture.caption) + "\" src=\"data:image/" +
         kind + ";base64," + base64(picture.bytes) + "\">\n<figcaption><strong>" + escaped(picture.title) +
         "</strong> " + escaped(picture.caption) + "</figcaption>\n</figure>\n";
}

/// A hash, whose end is not printed; a figure, which is not to be broken; or words.
std::string cell(std::string const& words) {
  constexpr std::size_t shortest = 16;
  constexpr std::size_t hashDigits = 64;
  if (words.size() == hashDigits && words.find_first_not_of("0123456789abcdef") == std::string::npos) {
    return "<td class=\"hash\">" + words.substr(0, shortest) + "<span class=\"rest\">" +
           words.substr(shortest) + "</span></td>";
  }
  return (words.size() <= shortest ? "<td class=\"short\">" : "<td>") + escaped(words) + "</td>";
}

std::string html(PageTable const& table) {
  constexpr std::size_t narrow = 3; // columns
  bool const isWide = table.head.size() > narrow;
  std::string result = std::string("<div class=\"table") + (isWide ? " wide" : "") + "\"><table>\n<caption>" +
                       escaped(table.title) + "</caption>\n";
  if (!table.head.empty()) {
    result += "<thead><tr>";
    for (std::string const& word : table.head) {
      result += "<th scope=\"col\">" + escaped(word) + "</th>";
    }
    result += "</tr></thead>\n";
  }
  result += "<tbody>\n";
  for (std::size_t row = 0; row < table.rows.size(); ++row) {
    std::string key;
    if (row < table.keys.size()) {
      key = "<svg class=\"key\" viewBox=\"0 0 10 10\" aria-hidden=\"true\"><rect width=\"10\" height=\"10\" "
            "fill=\"" +
            hex(table.keys[row]) + "\"/></svg>";
    }
    result += "<tr>";
    for (std::size_t column = 0; column < table.rows[row].size(); ++column) {
      std::string const& words = table.rows[row][column];
      result += column == 0 ? "<th scope=\"row\">" + key + escaped(words) + "</th>" : cell(words);
    }
    result += "</tr>\n";
  }
  return result + "</tbody>\n</table></div>\n";
}

template <class Part>
std::string all(std::vector<Part> const& parts) {
  std::string result;
  for (Part const& part : parts) {
    result += html(part);
  }
  return result;
}

nlohmann::json list(cv::Point3d const& p) {
  return {p.x, p.y, p.z};
}

nlohmann::json list(std::vector<cv::Point3d> const& points) {
  nlohmann::json result = nlohmann::json::array();
  for (cv::Point3d const& p : points) {
    result.push_back(list(p));
  }
  return result;
}

nlohmann::json colorTable(mv::ColorMap map) {
  constexpr int count = 256;
  nlohmann::json colors = nlohmann::json::array();
  for (int i = 0; i < count; ++i) {
    cv::Vec3b const color = mv::colorOf(map, static_cast<double>(i) / (count - 1));
    colors.push_back({color[2], color[1], color[0]});
  }
  return colors;
}

/// What the view shows beside the clouds' bytes.
nlohmann::json scene(Page const& page) {
  nlohmann::json result = {{"title", page.title},
                           {"emptyReason", page.emptyReason},
                           {"clouds", nlohmann::json::array()},
                           {"outlines", nlohmann::json::array()},
                           {"views", nlohmann::json::array()},
                           {"colors",
                            {{"depth", colorTable(mv::ColorMap::TurboDown)},
                             {"value", colorTable(mv::ColorMap::Turbo)},
                             {"signed", colorTable(mv::ColorMap::Diverging)}}}};
  for (PackedCloud const& cloud : page.clouds()) {
    result["clouds"].push_back(cloud.description);
  }
  for (PageOutline const& outline : page.outlines) {
    nlohmann::json lines = nlohmann::json::array();
    for (auto const& line : outline.lines) {
      lines.push_back(list(line));
    }
    result["outlines"].push_back({{"name", outline.name},
                                  {"group", outline.group},
                                  {"color", hex(outline.color)},
                                  {"lines", lines},
                                  {"face", list(outline.face)},
                                  {"isShown", outline.isShown}});
  }
  for (PageView const& view : page.views) {
    result["views"].push_back({{"name", view.name},
                               {"eye", list(view.eye)},
                               {"forward", list(cv::Point3d(view.forward))},
                               {"down", list(cv::Point3d(view.down))},
                               {"fieldOfView", view.fieldOfView}});
  }
  return result;
}

std::string cloudScripts(Page const& page) {
  std::string result;
  for (std::size_t i = 0; i < page.clouds().size(); ++i) {
    result += "<script type=\"application/octet-stream\" id=\"cloud-" + std::to_string(i) + "\">" +
              base64(page.clouds()[i].bytes) + "</script>\n";
  }
  return result;
}

/// Puts each part where the frame names it, as {{name}}; what is put is not looked at again.
std::string filled(std::string_view frame,
                   std::vector<std::pair<std::string_view, std::string>> const& parts) {
  std::string result;
  for (std::size_t at = 0; at < frame.size();) {
    std::size_t const open = frame.find("{{", at);
    std::size_t const close = frame.find("}}", std::min(open, frame.size()));
    result += frame.substr(at, std::min(open, frame.size()) - at);
    if (close == std::string_view::npos) {
      break;
    }
    std::string_view const name = frame.substr(open + 2, close - open - 2);
    for (auto const& part : parts) {
      result += part.first == name ? part.second : "";
    }
    at = close + 2;
  }
  return result;
}

} // namespace

std::string html(Page const& page, nlohmann::json const& report) {
  std::string const version = report["tool"]["version"];
  std::vector<PageTable> const figures = page.tables.empty() ? figureTables(report) : page.tables;
  return filled(page::frame, {{"policy", policy()},
                              {"version", escaped(version)},
                              {"title", escaped(page.title)},
                              {"subtitle", escaped(page.subtitle)},
                              {"date", date()},
                              {"style", std::string(page::style)},
                              {"findings", all(page.findings)},
                              {"pictures", all(page.pictures)},
                              {"tables", all(figures)},
                              {"settings", all(settingTables(report))},
                              {"inputs", html(inputTable(report))},
                              {"notices", escaped(std::string(page::notices))},
                              {"report", scriptJson(report)},
                              {"scene", scriptJson(scene(page))},
                              {"clouds", cloudScripts(page)},
                              {"three", std::string(page::three)},
                              {"script", std::string(page::script)}});
}

} // namespace vorn::tools
