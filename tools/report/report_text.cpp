// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include "tools/report/report_text.hpp"

#include <algorithm>
#include <cctype>
#include <string>

#include <nlohmann/json.hpp>

namespace vorn::tools {

namespace {

/// "NotMeasured" as "notMeasured", "RMS" as "rms".
std::string inCamelCase(std::string name) {
  bool const isAbbreviation =
      std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isupper(c) != 0; });
  std::size_t const changed = isAbbreviation ? name.size() : 1;
  std::transform(name.begin(), name.begin() + static_cast<std::ptrdiff_t>(std::min(changed, name.size())),
                 name.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return name;
}

/// The same with all names in camelCase, but for those of artefacts, which are texts.
nlohmann::json renamed(nlohmann::json const& json) {
  if (!json.is_object()) {
    return json;
  }
  nlohmann::json result = nlohmann::json::object();
  for (auto const& [name, value] : json.items()) {
    result[inCamelCase(name)] = name == "Artefacts" ? value : renamed(value);
  }
  return result;
}

/// The command that wrote a report without a schema; empty for none.
std::string oldCommand(nlohmann::json const& json) {
  auto const isList = [&](char const* name) { return json.contains(name) && json[name].is_array(); };
  if (json.contains("Points") && json.contains("Times")) {
    return json.contains("Truth") ? "demo" : "scan";
  }
  if (isList("views")) {
    return "calibrate";
  }
  return isList("images") ? "detect" : "";
}

/// A value on one line.
std::string brief(nlohmann::json const& value) {
  constexpr std::size_t mostElements = 4;
  if (value.is_string()) {
    return value.get<std::string>();
  }
  std::string text;
  if (value.is_object()) {
    for (auto const& [name, member] : value.items()) {
      text += (text.empty() ? "" : ", ") + name + ' ' +
              (member.is_object() ? "(" + brief(member) + ")" : brief(member));
    }
    return text;
  }
  if (value.is_array()) {
    if (value.size() > mostElements || (!value.empty() && value.front().is_structured())) {
      return "(" + std::to_string(value.size()) + ")";
    }
    for (auto const& element : value) {
      text += (text.empty() ? "" : ", ") + brief(element);
    }
    return text.empty() ? "none" : text;
  }
  return value.dump();
}

void printMember(std::ostream& out, std::string const& name, nlohmann::json const& value) {
  if (!value.is_array() || value.empty() || !value.front().is_object()) {
    out << name << ": " << brief(value) << '\n';
    return;
  }
  out << name << ": " << value.size() << '\n';
  for (auto const& element : value) {
    out << "  " << brief(element) << '\n';
  }
}

} // namespace

nlohmann::json asReport(nlohmann::json const& json) {
  if (!json.is_object()) {
    return nullptr;
  }
  if (json.contains("schema") && json["schema"].is_object()) {
    std::string const name = json["schema"].value("name", "");
    return name.rfind("vorn-mv.", 0) == 0 ? json : nlohmann::json();
  }
  std::string const command = oldCommand(json);
  if (command.empty()) {
    return nullptr;
  }
  nlohmann::json report = command == "scan" || command == "demo" ? renamed(json) : json;
  report["schema"] = {{"name", "vorn-mv." + command}, {"version", 0}};
  return report;
}

void printReport(std::ostream& out, nlohmann::json const& report) {
  std::string const schema = report["schema"]["name"];
  out << "Report of vorn-mv " << schema.substr(schema.find('.') + 1);
  if (report.contains("tool")) {
    out << ", version " << brief(report["tool"].value("version", nlohmann::json()));
  }
  out << '\n';
  for (auto const& [name, value] : report.items()) {
    if (name == "settings" && value.is_object()) {
      for (auto const& [kind, members] : value.items()) {
        out << kind << ": " << (members.empty() ? "none" : brief(members)) << '\n';
      }
    } else if (name != "schema" && name != "tool") {
      printMember(out, name, value);
    }
  }
}

} // namespace vorn::tools
