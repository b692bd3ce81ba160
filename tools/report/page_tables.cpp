// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/page_tables.hpp"

#include <algorithm>
#include <cmath>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

namespace vorn::tools {

namespace {

constexpr std::size_t longestList = 6;

std::string words(nlohmann::json const& value) {
  if (value.is_string()) {
    return value.get<std::string>();
  }
  if (value.is_number_unsigned()) {
    return countText(value.get<std::size_t>());
  }
  if (value.is_number_float()) {
    return figure(value.get<double>());
  }
  if (value.is_boolean()) {
    return value.get<bool>() ? "yes" : "no";
  }
  if (value.is_null()) {
    return "none";
  }
  std::string result;
  if (value.is_array()) {
    for (auto const& element : value) {
      result += (result.empty() ? "" : ", ") + words(element);
    }
    return result;
  }
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool isShort(nlohmann::json const& value) {
  return value.is_primitive() || (value.is_array() && value.size() <= longestList &&
                                  std::all_of(value.begin(), value.end(),
                                              [](auto const& element) { return element.is_primitive(); }));
}

/// "notMeasured" as "not measured"; "RMS" stays.
std::string spaced(std::string const& name) {
  std::string result;
  for (std::size_t i = 0; i < name.size(); ++i) {
    bool const isUpper = name[i] >= 'A' && name[i] <= 'Z';
    bool const followsLower = i > 0 && name[i - 1] >= 'a' && name[i - 1] <= 'z';
    result += isUpper && followsLower ? std::string(" ") + static_cast<char>(name[i] - 'A' + 'a')
                                      : std::string(1, name[i]);
  }
  return result;
}

void addRows(PageTable& table, nlohmann::json const& object, std::string const& before) {
  for (auto const& [name, value] : object.items()) {
    std::string const full = before.empty() ? spaced(name) : before + ", " + spaced(name);
    if (value.is_object()) {
      addRows(table, value, full);
    } else if (isShort(value)) {
      table.rows.push_back({full, words(value)});
    }
  }
}

/// The folder that all inputs lie in, with the slash behind it; empty for none, or for less than two inputs.
std::string commonFolder(nlohmann::json const& inputs) {
  if (inputs.size() < 2) {
    return "";
  }
  std::string common = words(inputs.front()["path"]);
  for (auto const& input : inputs) {
    std::string const path = words(input["path"]);
    auto const [end, other] = std::mismatch(common.begin(), common.end(), path.begin(), path.end());
    common.erase(end, common.end());
  }
  return common.substr(0, common.rfind('/') + 1);
}

} // namespace

std::string figure(double value) {
  if (!std::isfinite(value)) {
    return "none";
  }
  std::ostringstream out;
  double const size = std::abs(value);
  if (size > 0.0 && (size < 1e-3 || size >= 1e7)) {
    out.precision(3);
    out << value;
  } else {
    out.setf(std::ios::fixed);
    out.precision(size >= 1000.0 ? 1 : size >= 100.0 ? 2 : size >= 1.0 ? 3 : 4);
    out << value;
  }
  return out.str();
}

std::string countText(std::size_t count) {
  std::string result = std::to_string(count);
  for (std::size_t end = result.size(); end > 3; end -= 3) {
    result.insert(end - 3, "\u202f"); // a narrow space that keeps the line together
  }
  return result;
}

std::vector<PageTable> figureTables(nlohmann::json const& report) {
  static std::set<std::string> const others{"schema", "tool", "inputs", "settings", "warnings"};
  PageTable table;
  table.title = "Figures";
  for (auto const& [name, value] : report.items()) {
    if (others.count(name) == 0) {
      addRows(table, {{name, value}}, "");
    }
  }
  return table.rows.empty() ? std::vector<PageTable>() : std::vector<PageTable>{table};
}

std::vector<PageTable> settingTables(nlohmann::json const& report) {
  std::vector<PageTable> tables;
  PageTable options;
  options.title = "Options of the command line";
  addRows(options, report["settings"]["options"], "");
  tables.push_back(options);
  for (auto const& [name, properties] : report["settings"]["properties"].items()) {
    PageTable table;
    table.title = "Properties of " + name;
    for (auto const& [property, value] : properties.items()) {
      table.rows.push_back({property, words(value)});
    }
    tables.push_back(table);
  }
  return tables;
}

PageTable inputTable(nlohmann::json const& report) {
  PageTable table;
  std::string const folder = commonFolder(report["inputs"]);
  table.title = folder.empty() ? "What was read" : "What was read in " + folder;
  table.head = {"file", "bytes", "SHA-256 (printed: its first 16 digits)"};
  for (auto const& input : report["inputs"]) {
    table.rows.push_back(
        {words(input["path"]).substr(folder.size()), words(input["size"]), words(input["sha256"])});
  }
  return table;
}

} // namespace vorn::tools
