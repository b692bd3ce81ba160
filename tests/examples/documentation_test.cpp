// Copyright 2026 the vorn authors
// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <sim/faults.hpp>
#include <vorn/mv/calib/diagnosis.hpp>

#include "support/file_content.hpp"
#include "support/tool_run.hpp"

namespace vorn::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

fs::path const source = VORN_MV_SOURCE;

Lines linesOf(std::string const& text) {
  Lines lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// README.md, CONTRIBUTING.md and everything under docs/.
std::vector<fs::path> pages() {
  std::vector<fs::path> paths{source / "README.md", source / "CONTRIBUTING.md"};
  for (auto const& entry : fs::recursive_directory_iterator(source / "docs")) {
    if (entry.path().extension() == ".md") {
      paths.push_back(entry.path());
    }
  }
  return paths;
}

/// All matches in a page, each with its groups.
std::vector<Lines> matchesIn(fs::path const& page, std::regex const& pattern) {
  std::string const text = contentOf(page);
  std::vector<Lines> matches;
  for (std::sregex_iterator it(text.begin(), text.end(), pattern); it != std::sregex_iterator(); ++it) {
    matches.emplace_back(it->begin(), it->end());
  }
  return matches;
}

/// A fenced code block.
struct Block {
  std::string language;
  std::string text;
  int line = 0; ///< of its fence
};

std::vector<Block> blocksOf(fs::path const& page) {
  std::vector<Block> blocks;
  bool isInside = false;
  int number = 0;
  for (std::string const& line : linesOf(contentOf(page))) {
    ++number;
    if (line.rfind("```", 0) == 0) {
      isInside = !isInside;
      if (isInside) {
        blocks.push_back({line.substr(3), "", number});
      }
    } else if (isInside) {
      blocks.back().text += line + '\n';
    }
  }
  EXPECT_FALSE(isInside) << page << " has a block without end";
  return blocks;
}

TEST(Documentation, CodeIsThatOfExamples) {
  std::string examples;
  for (fs::path const& folder : {source / "examples", source / "tests/install/consumer"}) {
    for (auto const& entry : fs::directory_iterator(folder)) {
      examples += '\n' + contentOf(entry.path()) + '\n';
    }
  }
  int count = 0;
  for (fs::path const& page : pages()) {
    for (Block const& block : blocksOf(page)) {
      EXPECT_FALSE(block.language.empty()) << page << ':' << block.line << " says no language";
      EXPECT_NE(examples.find('\n' + block.text), std::string::npos)
          << page << ':' << block.line << " is in no file of examples/:\n"
          << block.text;
      ++count;
    }
  }
  constexpr int fewest = 25;
  EXPECT_GT(count, fewest);
}

TEST(Documentation, TroubleshootingNamesAllFindingsWithTheirAdvice) {
  std::string const text = contentOf(source / "docs/troubleshooting.md");
  for (int i = 0; i <= static_cast<int>(mv::FindingCause::MovedDuring); ++i) {
    auto const cause = static_cast<mv::FindingCause>(i);
    EXPECT_NE(text.find("| `" + mv::nameOf(cause) + "` |"), std::string::npos) << mv::nameOf(cause);
    EXPECT_NE(text.find("| " + mv::adviceOf(cause) + " |"), std::string::npos) << mv::adviceOf(cause);
  }
}

TEST(Documentation, FaultyViewsNameAllFaultsWithTheirStrength) {
  std::regex const row(R"(\| `([a-z-]+)` \| ([0-9.]*)[^|]*\|)");
  std::map<std::string, std::string> documented;
  for (Lines const& match : matchesIn(source / "docs/faulty_views.md", row)) {
    documented[match[1]] = match[2];
  }
  EXPECT_EQ(documented.size(), sim::faultKinds().size());
  for (sim::FaultKind const& kind : sim::faultKinds()) {
    ASSERT_EQ(documented.count(kind.name), 1U) << kind.name;
    EXPECT_EQ(documented[kind.name].empty(), kind.unit.empty()) << kind.name;
    EXPECT_EQ(kind.unit.empty() ? 0 : std::stod(documented[kind.name]), kind.strength) << kind.name;
  }
}

/// A property's type, default and allowed values.
using Facts = std::vector<std::string>;
/// By class, without its namespace, and by name.
using Properties = std::map<std::string, std::map<std::string, Facts>>;

Properties propertiesOfProgram() {
  Properties all;
  std::string className;
  std::regex const row(R"(  (\S+) +(\S+) +(\S+) *(.*))");
  for (std::string const& line : linesOf(run({"info", "--properties"}).output)) {
    std::smatch match;
    if (std::regex_match(line, match, row)) {
      all[className][match[1]] = {match[2], match[3], match[4]};
    } else {
      className = line.substr(line.rfind(':') + 1);
    }
  }
  return all;
}

std::string trimmed(std::string const& text) {
  auto const first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

/// The tables with the columns "property", "type", "default" and "allowed", under headings that name a class.
Properties propertiesOfPages() {
  Properties all;
  for (fs::path const& page : pages()) {
    std::string heading;
    bool isTable = false;
    for (std::string const& line : linesOf(contentOf(page))) {
      if (line.rfind("##", 0) == 0) {
        heading = line.substr(line.find(' ') + 1);
      }
      if (line.rfind("| property | type | default | allowed |", 0) == 0) {
        isTable = true;
        continue;
      }
      isTable = isTable && line.rfind('|', 0) == 0;
      if (isTable && line.rfind("|---", 0) != 0) {
        std::vector<std::string> cells;
        std::istringstream in(line.substr(1));
        for (std::string cell; std::getline(in, cell, '|');) {
          cells.push_back(trimmed(cell));
        }
        EXPECT_GE(cells.size(), 4U) << page << ": " << line;
        EXPECT_EQ(all[heading].count(cells[0]), 0U) << heading << " has " << cells[0] << " twice";
        all[heading][cells[0]] = {cells[1], cells[2], cells[3]};
      }
    }
  }
  return all;
}

TEST(Documentation, PropertyTablesAreThoseOfTheProgram) {
  Properties const program = propertiesOfProgram();
  Properties const written = propertiesOfPages();
  constexpr std::size_t classes =
      29; // scanner, line scanner, detector, two aligners, six cloud and eighteen image filters
  EXPECT_EQ(program.size(), classes);
  for (auto const& [className, properties] : program) {
    auto const page = written.find(className);
    if (page == written.end()) {
      ADD_FAILURE() << className << " has no table";
      continue;
    }
    EXPECT_EQ(page->second, properties) << className;
  }
  EXPECT_EQ(written.size(), program.size()) << "a table of a class that does not exist";
}

/// The classes and free functions that the shared library exports, without their namespaces.
std::set<std::string> exportedNames() {
  std::set<std::string> names;
  std::regex const symbol(R"(((?:\w+::)*)(\w+)::~?(\w+)\(.*)");
  std::smatch match;
  for (std::string const& line : linesOf(contentOf(source / "cmake/exported_symbols.txt"))) {
    if (!std::regex_match(line, match, symbol) || line.find("::detail::") != std::string::npos ||
        match[2] == "Private") {
      continue;
    }
    std::string const scope = match[2];
    bool const isClass = std::isupper(static_cast<unsigned char>(scope[0])) != 0;
    names.insert(isClass ? scope : std::string(match[3]));
  }
  return names;
}

TEST(Documentation, NamesEveryPublicClassAndFunction) {
  std::set<std::string> written;
  std::regex const word(R"(\w+)");
  for (fs::path const& page : pages()) {
    for (Lines const& match : matchesIn(page, word)) {
      written.insert(match[0]);
    }
  }
  std::set<std::string> const exported = exportedNames();
  constexpr std::size_t fewest = 140;
  EXPECT_GT(exported.size(), fewest);
  for (std::string const& name : exported) {
    EXPECT_EQ(written.count(name), 1U) << "no page says what " << name << " is for";
  }
}

TEST(Documentation, EveryPageIsLinked) {
  std::set<fs::path> linked;
  std::regex const link(R"rx(\]\(([^)\s#]+\.md))rx");
  for (fs::path const& page : pages()) {
    for (Lines const& match : matchesIn(page, link)) {
      linked.insert((page.parent_path() / match[1]).lexically_normal());
    }
  }
  for (fs::path const& page : pages()) {
    EXPECT_TRUE(page == source / "README.md" || linked.count(page.lexically_normal()) == 1) << page;
  }
}

TEST(Documentation, CommandsAndOptionsExist) {
  std::map<std::string, std::string> help;
  std::regex const command(R"(vorn-mv ([a-z]+)((?:\\\n|[^`\n])*))");
  std::regex const option(R"(--[a-z][a-z-]*)");
  int count = 0;
  for (fs::path const& page : pages()) {
    for (Lines const& match : matchesIn(page, command)) {
      std::string const& verb = match[1];
      std::string const& rest = match[2];
      if (help.count(verb) == 0) {
        ToolOutcome const outcome = run({verb, "--help"});
        EXPECT_EQ(outcome.status, 0) << page << ": vorn-mv " << verb;
        help[verb] = outcome.output;
      }
      for (std::sregex_iterator o(rest.begin(), rest.end(), option); o != std::sregex_iterator(); ++o) {
        EXPECT_NE(help[verb].find(o->str()), std::string::npos)
            << page << ": vorn-mv " << verb << " has no " << o->str();
        ++count;
      }
    }
  }
  constexpr int fewest = 40;
  EXPECT_GT(count, fewest);
}

/// The heading's anchor: lower case, blanks to dashes, other signs left out.
std::string anchorOf(std::string const& heading) {
  std::string anchor;
  for (char const c : heading) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_') {
      anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    } else if (c == ' ') {
      anchor += '-';
    }
  }
  return anchor;
}

std::set<std::string> anchorsOf(fs::path const& page) {
  std::set<std::string> anchors;
  for (std::string const& line : linesOf(contentOf(page))) {
    if (line.rfind('#', 0) == 0) {
      anchors.insert(anchorOf(line.substr(line.find(' ') + 1)));
    }
  }
  return anchors;
}

TEST(Documentation, LinksLeadSomewhere) {
  std::regex const link(R"rx(\]\(([^)\s]+)\)|<img src="([^"]+)")rx");
  for (fs::path const& page : pages()) {
    for (Lines const& match : matchesIn(page, link)) {
      std::string const target = match[1] + match[2];
      if (target.find("://") != std::string::npos) {
        continue;
      }
      auto const hash = target.find('#');
      fs::path const file = hash == 0 ? page : page.parent_path() / target.substr(0, hash);
      EXPECT_TRUE(fs::exists(file)) << page << ": " << target;
      if (hash != std::string::npos) {
        EXPECT_EQ(anchorsOf(file).count(target.substr(hash + 1)), 1U) << page << ": " << target;
      }
    }
  }
}

} // namespace
} // namespace vorn::test
